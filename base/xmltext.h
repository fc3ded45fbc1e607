// Text pieces shared by the engine's XML writers. Portable.
#pragma once
#include <cstddef>
#include <cstdio>

namespace orvalis {

// Writes the first length bytes of text as XML character data. Bytes of 0x80 and above are
// dropped (the documents are read as plain ASCII).
//  - Normal case: a CDATA section, "<![CDATA[" ... "]]>".
//  - When text (as a terminated string) holds "]]>", CDATA cannot carry it and the bytes are
//    escaped instead: "&lt", "&gt", "&amp" with no closing semicolon; and after every input
//    byte everything escaped so far except its last character is written again, so the
//    output repeats growing prefixes of the escaped text. The viewer of these documents
//    expects exactly that; do not "fix" it.
void WriteEscapedText(FILE* f, const char* text, size_t length);

// The change letter of a tree node, INI section or INI entry: the first of the bits
// 0x1 "O", 0x4 "F", 0x8 "T", 0x2 "N" that is set; "X" when none is.
char ChangeLetterFromFlags(unsigned flags);

// The change letter of a line-comparison record: kind 2 "O", 4 "F", 5 "T", 1 "N", else "X".
char LineChangeLetter(int kind);

}  // namespace orvalis
