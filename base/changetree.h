// The change-tree node shared by the engine, the registry library (MARLOW.DLL) and the asset
// library (CORVID.DLL). A library builds a tree of one side (a snapshot's companion or the live
// system), marks the differences against a second tree inside the first, and the engine reads the
// marked tree: the difference report, the XML documents and the restore all walk it.
//
// One node type serves every tree. A registry key uses flags, next, values, children, nameLength
// and name; a registry value uses flags, next, nameLength, name, length, data and type (so each
// keeps its members in the order the engine has always read them); asset folders and files use
// children, length (the file's size), time, attributes and crc. depth counts from 0 at the root.
//
// The 16-bit flags word: change bits in the low byte, kind bits in the high byte.
//
// Comparison rules, the same in both libraries: children are matched by name without regard to
// case (a null or empty value name is the key's default value); nodes only in the first tree get
// kChangeOlder; nodes only in the second are moved into the first tree after their preceding
// matched sibling, with kChangeNewer on the node and everything below it; a matched value or file
// whose type, size, time or data differ gets kChangeFrom and the second tree's node is inserted
// directly after it with kChangeTo; every ancestor of a change gets kChangeBelow. With no second
// tree the first is a listing and keeps flags 0 (consumers write "X").
//
// Memory: a tree belongs to the library that built it and is released by that library's free
// entry point. Plain C layout, no constructors, so that the engine and both libraries agree on it
// whichever compiler built them.
#pragma once
#include <stdint.h>

// One enumeration for both bytes, so that a kind and a change combine without a cast.
enum ChangeFlags {
  kChangeOlder = 0x0001,     // only in the older side (side 1)         letter O
  kChangeNewer = 0x0002,     // only in the newer side (side 2)         letter N
  kChangeFrom = 0x0004,      // changed: this node holds the older state; the newer follows it
  kChangeTo = 0x0008,        // changed: this node holds the newer state
  kChangeExcluded = 0x0010,  // left out of the report
  kChangeBelow = 0x0080,     // something below this node changed
  kChangeAny = 0x000F,

  kKindKey = 0x0200,     // registry key
  kKindFolder = 0x0400,  // asset folder
  kKindName = 0x4000,    // plain name: an asset's root
  kKindFile = 0x8000,    // asset file
  kKindMask = 0xFF00,
};

typedef struct ChangeNode {
  uint16_t flags;
  struct ChangeNode* next;      // next sibling
  struct ChangeNode* values;    // a key's first value
  struct ChangeNode* children;  // a key's first subkey; a folder's first entry
  uint32_t nameLength;          // bytes of name, without the terminator
  char* name;                   // null for a key's default value; always terminated as well
  uint32_t length;              // value data bytes (terminators included for string types); file size
  void* data;                   // value data; for types 4 and 5 the 32-bit number itself
  uint32_t type;                // registry value type 0-10 (beyond: shown as binary)
  uint16_t depth;
  uint32_t time;                // file: last-write time, DOS packed (date high, time low)
  uint32_t attributes;          // file: attributes as the file system gave them
  uint32_t crc;                 // file: CRC-32 of its contents
} ChangeNode;

#ifdef __cplusplus
// The registry value type's name in the documents and the report.
inline const char* RegTypeName(uint32_t type) {
  static const char* const names[] = {"none", "sz",    "exsz",  "bin",   "dw", "dwbe",
                                      "link", "msz",   "rlist", "rdesc", "rrl"};
  return type < sizeof names / sizeof names[0] ? names[type] : "bin";
}

// Types whose data member carries the number itself.
inline bool IsRegNumberType(uint32_t type) { return type == 4 || type == 5; }

// The number of a value of those types: the data member itself, or, for the rare value longer
// than four bytes (which the registry allows), its first four bytes behind the pointer.
inline uint32_t RegNumberOf(const ChangeNode* v) {
  if (v->length <= 4) return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(v->data));
  const auto* p = static_cast<const unsigned char*>(v->data);
  return p ? static_cast<uint32_t>(p[0] | p[1] << 8 | p[2] << 16) | static_cast<uint32_t>(p[3]) << 24 : 0;
}
#endif
