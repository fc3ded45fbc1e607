// Small text helpers shared by every reader and writer of the engine's files. Portable.
#pragma once
#include <cstddef>
#include <cstdio>

namespace orvalis {

// Reads one line of at most size-1 characters and removes one trailing line feed.
// Returns buf, or null at end of file (or when size < 2). A longer line is returned in
// pieces, as fgets gives it.
char* ReadTextLine(char* buf, int size, FILE* stream);

// The last occurrence of an ASCII character in a double-byte string: a byte in 0x80-0x9F or
// 0xE0-0xFF is a lead byte, and it and the byte after it are stepped over together, so a
// trail byte that happens to equal c is never taken for it. Null when absent.
const char* FindLastChar(const char* text, char c);
char* FindLastChar(char* text, char c);

// Case-insensitive comparison of ASCII letters (other bytes compare as they are).
int CompareNoCase(const char* a, const char* b);
int CompareNoCaseN(const char* a, const char* b, size_t n);
bool EqualNoCase(const char* a, const char* b);
// Case-insensitive substring search; null when absent.
const char* FindNoCase(const char* haystack, const char* needle);

// Splits a path the way the C runtime's fnsplit does for our purposes: name is the last
// component without its extension, ext the extension with its dot ("" when none). Either
// output may be null; each is cut to capacity-1 characters.
void SplitFileName(const char* path, char* name, size_t nameCap, char* ext, size_t extCap);

// Copies at most cap-1 characters and always terminates (cap > 0). Returns dst.
char* CopyText(char* dst, const char* src, size_t cap);
// Appends with the same bound. Returns dst.
char* AppendText(char* dst, const char* src, size_t cap);
// True when name is a bare file name: not empty, no folder or drive part ("\\", "/", ":"), and
// neither "." nor "..".
bool IsBareFileName(const char* name);
// True when text ends with the character c.
bool EndsWith(const char* text, char c);

}  // namespace orvalis

namespace orvalis {
// folder + "\" (only when folder is non-empty and does not already end in one) + name,
// bounded by cap. Returns false (and leaves a cut result) when it did not fit.
bool JoinPath(char* out, size_t cap, const char* folder, const char* name);
// The folder of path, up to and including its last backslash ("" when it has none), followed by
// name: the path of a file beside another. False when it did not fit in cap.
bool SiblingPath(char* out, size_t cap, const char* path, const char* name);
}  // namespace orvalis
