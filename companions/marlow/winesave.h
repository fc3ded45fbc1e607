// A registry branch as Wine's RegSaveKey writes it: the server's own text format ("WINE
// REGISTRY Version 2"), which it answers in a fraction of the time a walk of the same keys
// takes. Portable: names and string data stay UTF-16 here; the library turns them into the
// ANSI forms its walk reads.
//
// What the format holds, and what it leaves out:
//   [path] seconds        a key, path relative to the saved key, components joined by "\\";
//                         a key with subkeys but no values is left out and only implied by
//                         its subkeys' paths
//   #time= #class= #arch= lines after a key or at the top; "#link" marks a symbolic link
//   "name"=... or @=...   a value of the key above: "text" (REG_SZ), str(t):"text",
//                         dword:8-hex-digits, hex:aa,bb (REG_BINARY) or hex(t):aa,bb, long
//                         hex lines continued by a trailing backslash
//   Strings escape with C escapes, \x + up to 4 hex digits and octal of up to 3 digits.
//   Volatile keys (and so everything below them) are never written.
#pragma once
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace marlow {

struct SavedValue {
  uint32_t name, nameLength;  // UTF-16 units in SavedBranch::names; length 0: the default value
  uint32_t type;
  uint32_t data, dataLength;  // bytes in SavedBranch::data, as the registry holds them
};

struct SavedKey {
  uint32_t name, nameLength;       // UTF-16 units in SavedBranch::names
  std::vector<uint32_t> children;  // indexes into SavedBranch::keys, in the registry's order
  uint32_t firstValue = 0, valueCount = 0;
  bool link = false;
  bool hasHeader = false;  // written with a line of its own (not only implied by a subkey)
};

struct SavedBranch {
  std::vector<SavedKey> keys;  // keys[0] is the saved key itself
  std::vector<SavedValue> values;
  std::u16string names;
  std::string data;
};

// false: not this format, or damaged (the caller then reads the live registry instead).
bool ParseWineSave(std::string_view text, SavedBranch* out);

}  // namespace marlow
