// Registry trees of MARLOW.DLL in the shared ChangeNode layout, and what the library does with
// them that needs no Win32: root names, name matching, building and freeing nodes, comparison.
// Portable.
//
// A tree is the key its path names (depth 0, its name the path's last component, or the root
// name as the caller wrote it) with its values and subkeys. Key nodes carry kKindKey; value
// nodes no kind bit. Every name is terminated as well (nameLength excludes the terminator); the
// default value has a null name. Types 4 and 5 keep the number itself in `data` when the data is
// at most 4 bytes long (the usual case); longer data of those types, which the registry allows,
// is kept behind a pointer like any other type so that it still round-trips byte for byte.
//
// The root node also carries the full key path the tree was read for, in `data` (terminated,
// `length` counting the terminator): the live update needs it and the engine only passes the
// tree. Every node, with its name, data and that path, is one allocation of ours.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/changetree.h"

namespace marlow {

// The five roots a key path may name, in the order the dump stores them.
enum RegRoot : int { kRootHklm = 0, kRootHkcu, kRootHkcr, kRootHku, kRootHkcc, kRootCount };

// A key path split into its root and the rest. root is -1 when the path names no known root.
// rest has no leading or trailing backslash; rootText is the root as written.
struct KeyPath {
  int root = -1;
  std::string rootText;
  std::string rest;
  // The name the tree's root node gets: the last component of rest, or rootText.
  std::string LastName() const;
  // Upper-case short-root form ("HKLM\SOFTWARE\X") that names the key whatever spelling was used.
  std::string Canonical() const;
};

// Accepts full and short root names without regard to case; backslash-separated, empty
// components (doubled or trailing backslashes) are dropped. False for an unknown root.
bool ParseKeyPath(std::string_view path, KeyPath* out);

const char* RootShortName(int root);

// Case folding as the registry matches names: ASCII and the Latin letters of Windows-1252.
unsigned char FoldByte(unsigned char c);
bool NamesEqual(const char* a, size_t an, const char* b, size_t bn);
// Orders names by their folded bytes: <0, 0, >0.
int CompareNames(const char* a, size_t an, const char* b, size_t bn);

inline bool IsValue(const ChangeNode* n) { return (n->flags & kKindKey) == 0; }
// Types 4 and 5 at most 4 bytes long: the number lives in `data`.
inline bool DataInline(uint32_t type, uint32_t length) { return (type == 4 || type == 5) && length <= 4; }
// The value's bytes, whether inline or behind the pointer.
const unsigned char* ValueBytes(const ChangeNode* v, unsigned char inlineBuf[4]);

// Allocators: null when memory runs out.
ChangeNode* NewKey(const char* name, size_t nameLength, uint16_t depth, std::string_view fullPath = {});
// name null: the default value.
ChangeNode* NewValue(const char* name, size_t nameLength, uint32_t type, const void* data, uint32_t length,
                     uint16_t depth);
// Frees a node with everything below it and every sibling after it.
void FreeTree(ChangeNode* tree);

// Marks the differences between *first and second inside *first (the rules are those of
// base/changetree.h). second is consumed: nodes it shares are left in it, the moved ones are
// taken out, and the caller frees what is left. Returns the number of nodes marked with a
// change bit (0: equal). second null: a listing, nothing is marked.
size_t CompareTrees(ChangeNode* first, ChangeNode* second);

}  // namespace marlow
