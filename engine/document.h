// The frame every XML document of the engine shares: the head lines naming its type definition,
// the root element, and a close that reports a document cut short.
#pragma once
#include <cstdint>
#include <cstdio>

namespace orvalis {

// Creates destination and writes the XML declaration, the DOCTYPE line naming dtd and the root's
// opening tag. Null when it cannot be created: the "Destination file is invalid" box has then been
// shown.
FILE* BeginDocument(const char* destination, const char* root, const char* dtd);
// Writes the root's closing tag and closes the document: 0, or 29 when it could not be written
// whole (a full disk); the cut-short document is removed then.
uint32_t EndDocument(FILE* out, const char* destination, const char* root);

}  // namespace orvalis
