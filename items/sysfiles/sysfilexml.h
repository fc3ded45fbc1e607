// The SYSFILE document: how one watched system file differs between two snapshots, as the
// user interface displays it. Portable; the Windows export opens the output file, runs
// CompareSystemFile and calls the writer.
#pragma once
#include <cstdio>

#include "items/sysfiles/filecompare.h"

namespace orvalis {

// Writes the whole document for a compared item to out (opened for writing in text mode;
// the caller closes it). oneSided: only one snapshot was given, so every change letter
// reads "X". INI results are written as they stand (not escaped); file names and text
// lines go through WriteEscapedText.
// Returns 0 when written, 8 when the line buffer cannot be allocated (nothing written).
int WriteSysFileDocument(FILE* out, const FileCompareItem* item, bool oneSided);

// value in base 32 (digits 0-9 then a-v), as the runtime's _itoa(value, buf, 32) gives it:
// a negative value is taken as its 32-bit unsigned pattern. buf needs 8 bytes.
void FormatBase32(int value, char* buf, size_t cap);

}  // namespace orvalis
