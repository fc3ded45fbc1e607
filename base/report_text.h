// The text report's shared pieces: the two-character change markers and the printer of change
// trees (registry keys, directory trees and assets all print through it). Portable.
//
// A tree prints only when its root carries a change or a change below it. Unsorted, the root's
// line and then its subtree with the mask 15; sorted, three passes with the masks 1 (removed),
// 2 (added) and 12 (changed), each printing the root and the matching part of the subtree. Under a
// node, its children come first (those that hold a match), then its own values that match: a
// key's subkeys before its values.
//
// One node's line: the marker padded to two columns, one blank, depth times two blanks, the
// item text. Kept as they are: a node of the plain-name kind alone repeats the text of the line
// before it; binary values of 9 to 16 bytes are cut without "..."; the multi-line binary form shows
// only the first 16 bytes of every 32.
#pragma once
#include <cstdint>
#include <cstdio>

#include "base/changetree.h"

namespace orvalis {

// " +" added, " -" removed, "<-" older state, "->" newer state, tested in that order on the
// change bits; "" for none of them.
const char* ChangeMarker(uint16_t flags);

struct TreeReportOptions {
  bool sorted = false;     // SortReportByType
  bool truncate = true;    // TruncateValuesInReport
};

// Prints one tree (null prints nothing) with the rules above.
void PrintChangeTree(FILE* f, const ChangeNode* root, const TreeReportOptions& options);

// One compared registry key root, directory or asset of a report section: its title, its tree
// (may be null) and how the tree is released (its builder's free function).
struct ReportTreeItem {
  ReportTreeItem* next;
  ChangeNode* tree;
  void (*release)(ChangeNode* tree);
  const char* message;  // printed instead of a tree, may be null
  char name[260];
};

// A zero-filled item appended at *tail (which then points at its next); null when out of memory.
ReportTreeItem* AppendReportTreeItem(ReportTreeItem*** tail);
// Releases every item and its tree.
void FreeReportTreeItems(ReportTreeItem* list);

// A tree section: the heading, then per item "%s\n\n" with its name and its tree (an extra line
// after each item when itemGap is set, as the directories section has it), then a final line.
void PrintTreeSection(FILE* f, const char* heading, const ReportTreeItem* items, bool itemGap,
                      const TreeReportOptions& options);

}  // namespace orvalis
