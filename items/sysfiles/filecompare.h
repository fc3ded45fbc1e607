// Comparison of one watched system file as two snapshots saved it: INI files section by
// section and entry by entry, every other text file line by line. The results hang on the
// file's FileCompareItem and are read by the text report and the SYSFILE XML writer.
// Portable: plain C stdio, no <windows.h>.
//
// Line endings are whatever the runtime's text mode gives: MinGW turns CR LF into LF when
// reading, glibc leaves the CR in place (so on Linux a CR LF copy and an LF copy differ on
// every line, while on Windows they are equal).
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace orvalis {

// FileCompareItem.flags
enum : uint16_t {
  kFileIsText = 0x2,       // the profile marked the file as text
  kFileDiffers = 0x10,     // set by CompareSystemFile when a difference was found
  kFileInOlder = 0x40,     // the older snapshot holds a copy
  kFileInNewer = 0x80,     // the newer snapshot holds a copy
};

// LineChange.kind
enum : uint16_t {
  kLineAdded = 1,         // only in the newer copy; lineNumber -1
  kLineRemoved = 2,       // only in the older copy
  kLineChangedOlder = 4,  // older text of a changed line; always followed by kLineChangedNewer
  kLineChangedNewer = 5,  // newer text of a changed line; lineNumber -1
  kLineSame = 6,          // unchanged line, or an explanatory message (lineNumber -1)
};

// Flags of IniSection, IniEntry and IniContinuation.
enum : uint16_t {
  kIniOlderOnly = 0x1,     // section/entry seen only in the older copy (so far)
  kIniNewerOnly = 0x2,     // section/entry only in the newer copy
  kIniValueOlder = 0x4,    // entry: older entry whose value changed; its newer value follows it
  kIniChanged = 0x8,       // section: something in it changed; entry: newer value of a change
  kIniMatched = 0x10,      // entry: older entry matched by a newer one
  kIniSectionBase = 0x1000,
  kIniContinuationBase = 0x4000,
};

struct LineChange {
  LineChange* prev;
  LineChange* next;
  uint16_t kind;
  int32_t lineNumber;  // in the older copy, from 1; -1 for newer lines and messages
  char text[256];      // the line as read without its line feed, leading blanks kept
};

struct IniEntry;

struct IniContinuation {
  uint16_t flags;  // the entry's low four flag bits plus 0x4000 when read (so 0x4000)
  IniContinuation* next;
  IniEntry* owner;
  char text[256];  // the physical line as read
};

struct IniEntry {
  uint16_t flags;
  IniEntry* next;
  char* key;    // 256 bytes: text before the first "=" with the "=" kept; comments whole
  char* value;  // 256 bytes: the rest after the first "=", untrimmed; "" for comments
  IniContinuation* continuation;
};

struct IniSection {
  uint16_t flags;  // kIniSectionBase plus the change bits
  IniSection* next;
  char name[256];  // the section line as read, brackets included
  IniEntry* entries;
};

struct FileCompareItem {
  uint16_t flags;
  FileCompareItem* next;
  char path[260];       // as the profile names it; its extension picks INI or line comparison
  char olderCopy[260];  // saved copy in the older snapshot
  char newerCopy[260];  // saved copy in the newer snapshot
  LineChange* lines;    // line comparison result, or one kLineSame message
  IniSection* sections; // INI comparison result
};

// Message texts attached as a single kLineSame record.
extern const char kMsgNotText[];
extern const char kMsgNotInNewer[];
extern const char kMsgNotInOlder[];
extern const char kMsgInNeither[];

// How far the line comparison looks ahead for a resynchronising line.
constexpr int kLookAheadDepth = 50;

// Compares the item's two saved copies, or attaches the message that explains why not.
// Any earlier result on the item is freed first.
// Returns 1 when the item was handled (compared, or given a message); 0 when a saved copy
// cannot be opened (no message then) or the message record cannot be allocated. A memory
// failure inside a comparison still returns 1, with no result attached.
int CompareSystemFile(FileCompareItem* item);

// Line comparison of two open text streams. *out receives the change list (null when
// nothing was read or memory ran out). Returns 1 when any line was added, removed or changed.
// depth bounds the look-ahead; the engine always passes kLookAheadDepth.
int CompareTextLines(FILE* newer, FILE* older, int depth, LineChange** out);

// INI comparison of two open text streams; *out receives the merged section list (null on a
// memory failure, which returns 0). Returns 1 when any difference was counted. Both streams
// are rewound before returning.
int CompareIniFiles(FILE* newer, FILE* older, IniSection** out);

void FreeLineChanges(LineChange* list);
void FreeIniSections(IniSection* list);

}  // namespace orvalis
