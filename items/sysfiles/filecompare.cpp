#include "items/sysfiles/filecompare.h"

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/io.h"
#include "base/lists.h"
#include "base/textutil.h"

namespace orvalis {

const char kMsgNotText[] = "The selected file is not a text file and changes cannot be displayed";
const char kMsgNotInNewer[] = "The newer snapshot that was selected does not contain a version of this file";
const char kMsgNotInOlder[] = "The older snapshot that was selected does not contain a version of this file";
const char kMsgInNeither[] = "This file is not contained in either of the snapshots that were selected";

namespace {

constexpr int kLineBuf = 256;


template <typename T>
T* NewRecord() {
  return static_cast<T*>(Io().calloc(1, sizeof(T)));
}

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

// ---------------------------------------------------------------------------------------
// Line comparison

// One record per fgets read: a physical line longer than 255 characters becomes several
// records, each with its own number, because that is how the copies are numbered when shown.
struct TextLine {
  TextLine* next;
  int32_t number;
  size_t trim;     // offset of the first character that is neither blank nor tab
  size_t trimLen;  // length of the trimmed text, line feed included
  char text[kLineBuf];  // as read, line feed kept
};

const char* Trimmed(const TextLine* l) { return l->text + l->trim; }

void FreeTextLines(TextLine* l) {
  while (l) {
    TextLine* next = l->next;
    Io().free(l);
    l = next;
  }
}

// Reads the whole stream. False (with nothing left allocated) when memory runs out.
bool ReadTextLines(FILE* f, TextLine** out) {
  *out = nullptr;
  TextLine** tail = out;
  char buf[kLineBuf];
  int32_t number = 0;
  while (std::fgets(buf, sizeof buf, f)) {
    TextLine* l = NewRecord<TextLine>();
    if (!l) {
      FreeTextLines(*out);
      *out = nullptr;
      return false;
    }
    CopyText(l->text, buf, sizeof l->text);
    l->number = ++number;
    size_t t = 0;
    while (IsBlank(l->text[t])) ++t;
    l->trim = t;
    l->trimLen = std::strlen(l->text + t);
    *tail = l;
    tail = &l->next;
  }
  return true;
}

bool SameTrimmed(const TextLine* a, const TextLine* b) {
  return a->trimLen == b->trimLen && std::memcmp(Trimmed(a), Trimmed(b), a->trimLen) == 0;
}

// True when one of the depth lines after from has the trimmed text of wanted.
bool FoundAhead(const TextLine* wanted, const TextLine* from, int depth) {
  const TextLine* l = from->next;
  for (int i = 0; i < depth && l; ++i, l = l->next)
    if (SameTrimmed(wanted, l)) return true;
  return false;
}

bool Contains(std::string_view hay, std::string_view piece) {
  return hay.find(piece) != std::string_view::npos;
}

// Two lines that resemble each other are shown as one changed line rather than a removal
// and an addition. Long lines are cut into two or three pieces (the characters at the cuts
// are skipped) and any piece found in the newer line is enough.
bool Similar(const TextLine* older, const TextLine* newer) {
  std::string_view a(Trimmed(older), older->trimLen);
  std::string_view b(Trimmed(newer), newer->trimLen);
  size_t la = a.size(), lb = b.size();
  if (la < 4 || lb < 4) return false;
  if (la >= 20 && lb >= 20) {
    size_t d = la < 30 ? la / 2 : la / 3;
    if (Contains(b, a.substr(0, d))) return true;
    if (la < 30) return Contains(b, a.substr(d + 1));
    if (Contains(b, a.substr(d + 1, d - 1))) return true;
    return Contains(b, a.substr(2 * d + 1));
  }
  return lb >= la ? Contains(b, a) : Contains(a, b);
}

// The output list under construction; a failed allocation is remembered so that the
// caller can throw the whole result away.
struct ChangeList {
  LineChange* head = nullptr;
  LineChange* tail = nullptr;
  bool failed = false;
  bool differs = false;

  void Emit(uint16_t kind, const TextLine* l) {
    if (failed) return;
    LineChange* c = NewRecord<LineChange>();
    if (!c) {
      failed = true;
      return;
    }
    c->kind = kind;
    c->lineNumber = (kind == kLineAdded || kind == kLineChangedNewer) ? -1 : l->number;
    std::memcpy(c->text, l->text, sizeof c->text);
    c->text[sizeof c->text - 1] = '\0';
    size_t n = std::strlen(c->text);
    if (n > 0 && c->text[n - 1] == '\n') c->text[n - 1] = '\0';
    c->prev = tail;
    if (tail)
      tail->next = c;
    else
      head = c;
    tail = c;
    if (kind != kLineSame) differs = true;
  }
};

// ---------------------------------------------------------------------------------------
// INI comparison

void FreeEntry(IniEntry* e) {
  if (!e) return;
  IniContinuation* c = e->continuation;
  while (c) {
    IniContinuation* next = c->next;
    Io().free(c);
    c = next;
  }
  Io().free(e->key);
  Io().free(e->value);
  Io().free(e);
}

void FreeEntries(IniEntry* e) {
  while (e) {
    IniEntry* next = e->next;
    FreeEntry(e);
    e = next;
  }
}

bool IsCommentLine(const char* p) {
  while (IsBlank(*p)) ++p;
  return *p == ';';
}

bool IsComment(const IniEntry* e) { return IsCommentLine(e->key); }

enum class Parse { kOk, kNoMemory };

// Builds an entry from line, taking continuation lines from f while the value ends in a
// backslash. Only the entry's own value is tested: each round strips one backslash from it,
// so a continuation line that itself ends in a backslash pulls in nothing further, and a
// value ending in two backslashes takes two lines.
Parse ParseEntry(const char* line, FILE* f, IniEntry** out) {
  *out = nullptr;
  IniEntry* e = NewRecord<IniEntry>();
  if (!e) return Parse::kNoMemory;
  e->key = static_cast<char*>(Io().calloc(1, kLineBuf));
  e->value = static_cast<char*>(Io().calloc(1, kLineBuf));
  if (!e->key || !e->value) {
    FreeEntry(e);
    return Parse::kNoMemory;
  }
  const char* eq = std::strchr(line, '=');
  if (IsCommentLine(line) || !eq) {
    CopyText(e->key, line, kLineBuf);
  } else {
    size_t keyLen = static_cast<size_t>(eq - line) + 1;  // "=" kept with the key
    if (keyLen > kLineBuf - 1) keyLen = kLineBuf - 1;
    std::memcpy(e->key, line, keyLen);
    e->key[keyLen] = '\0';
    CopyText(e->value, eq + 1, kLineBuf);
  }
  IniContinuation** tail = &e->continuation;
  while (EndsWith(e->value, '\\')) {
    e->value[std::strlen(e->value) - 1] = '\0';
    char next[kLineBuf];
    if (!ReadTextLine(next, kLineBuf, f)) break;
    IniContinuation* c = NewRecord<IniContinuation>();
    if (!c) {
      FreeEntry(e);
      return Parse::kNoMemory;
    }
    c->flags = static_cast<uint16_t>(kIniContinuationBase | (e->flags & 0xF));
    c->owner = e;
    CopyText(c->text, next, sizeof c->text);
    *tail = c;
    tail = &c->next;
  }
  *out = e;
  return Parse::kOk;
}

// Puts e after prev, or after prev's successor when prev is the older half of a changed
// pair, so that the pair stays together; at the head when there is no prev.
void InsertAfterPrev(IniSection* s, IniEntry* prev, IniEntry* e) {
  if (!prev) {
    e->next = s->entries;
    s->entries = e;
    return;
  }
  IniEntry* at = (prev->flags & kIniValueOlder) && prev->next ? prev->next : prev;
  e->next = at->next;
  at->next = e;
}

void InsertDirectlyAfter(IniEntry* at, IniEntry* e) {
  e->next = at->next;
  at->next = e;
}

bool ContinuationsDiffer(const IniEntry* a, const IniEntry* b) {
  const IniContinuation* x = a->continuation;
  const IniContinuation* y = b->continuation;
  for (; x && y; x = x->next, y = y->next)
    if (!EqualNoCase(x->text, y->text)) return true;
  return false;
}

bool SameFileName(const char* a, const char* b) {
  char na[260], ea[260], nb[260], eb[260];
  SplitFileName(a, na, sizeof na, ea, sizeof ea);
  SplitFileName(b, nb, sizeof nb, eb, sizeof eb);
  return EqualNoCase(na, nb) && EqualNoCase(ea, eb);
}

// Places one entry of the newer copy into a section that both copies hold.
// Takes ownership of e (it is either linked into the section or freed).
// unclaimed: no entry before it carries kIniOlderOnly (a claimed entry never gets it back and
// inserted entries never carry it), so the search may start there; the caller moves it on.
void MatchEntry(IniSection* s, IniEntry* e, IniEntry** prev, IniEntry** unclaimed, int* differences) {
  IniEntry* old = nullptr;
  for (IniEntry* o = *unclaimed; o; o = o->next) {
    if ((o->flags & kIniOlderOnly) && !(o->flags & kIniMatched) && EqualNoCase(o->key, e->key)) {
      old = o;
      break;
    }
  }
  if (old) {
    bool matches;
    if (IsComment(e))
      matches = true;
    else if (!e->continuation)
      matches = EqualNoCase(old->value, e->value);
    else
      // Inverted on purpose: with continuation lines only a differing pair counts as a
      // match, and the values themselves are not looked at.
      matches = ContinuationsDiffer(old, e);
    if (matches) {
      old->flags = static_cast<uint16_t>((old->flags & ~kIniOlderOnly) | kIniMatched);
      FreeEntry(e);
      *prev = old;
      return;
    }
  }

  if (!EqualNoCase(e->key, "device=")) {
    if (old) {
      old->flags = static_cast<uint16_t>((old->flags & ~kIniOlderOnly) | kIniMatched);
      if (!EqualNoCase(old->value, e->value)) {
        old->flags |= kIniValueOlder;
        e->flags = kIniChanged;
        InsertDirectlyAfter(old, e);
        s->flags |= kIniChanged;
        ++*differences;
      } else {
        FreeEntry(e);
      }
      return;
    }
    s->flags |= kIniChanged;
    ++*differences;
    e->flags = kIniNewerOnly;
    InsertAfterPrev(s, *prev, e);
    *prev = e;
    return;
  }

  // "device=" lines of SYSTEM.INI get a narrow treatment, kept as it always was: a driver
  // that is not a built-in ("*name") or that carries parameters is simply shown as new;
  // a built-in is held against the section's first entry alone, whatever its key, by file
  // name and extension; a mismatch drops the newer line without any mark.
  if (e->value[0] != '*' || std::strchr(e->value, ',')) {
    e->flags = kIniNewerOnly;
    InsertAfterPrev(s, *prev, e);
    return;
  }
  IniEntry* first = s->entries;
  if (first && SameFileName(first->value, e->value)) {
    first->flags = static_cast<uint16_t>((first->flags & ~kIniOlderOnly) | kIniMatched | kIniValueOlder);
    e->flags = kIniChanged;
    InsertDirectlyAfter(first, e);
    s->flags |= kIniChanged;
    ++*differences;
  } else {
    FreeEntry(e);
  }
}

IniSection* NewSection(const char* line, uint16_t flags) {
  IniSection* s = NewRecord<IniSection>();
  if (!s) return nullptr;
  s->flags = flags;
  CopyText(s->name, line, sizeof s->name);
  return s;
}

// Reads the older copy: its sections in file order, each with its entries, all flagged as
// found only there until the newer copy claims them.
bool ReadOlderIni(FILE* f, IniSection** out) {
  IniSection** tail = out;
  IniSection* cur = nullptr;
  IniEntry** entryTail = nullptr;
  char line[kLineBuf];
  while (ReadTextLine(line, kLineBuf, f)) {
    if (line[0] == '[') {
      cur = NewSection(line, kIniSectionBase | kIniOlderOnly);
      if (!cur) return false;
      *tail = cur;
      tail = &cur->next;
      entryTail = &cur->entries;
      continue;
    }
    if (line[0] == '\0' || !cur) continue;
    IniEntry* e;
    if (ParseEntry(line, f, &e) != Parse::kOk) return false;
    e->flags = kIniOlderOnly;
    *entryTail = e;
    entryTail = &e->next;
  }
  return true;
}

bool MergeNewerIni(FILE* f, IniSection** list, int* differences) {
  IniSection* cur = nullptr;
  bool curIsNew = false;
  IniEntry* prev = nullptr;
  // Searches start at the first section (entry) still carrying kIniOlderOnly: everything
  // before it has been claimed or is new, and gets no flag back. The first match in list
  // order is found all the same, and copies in the same order cost a linear walk.
  IniSection* unclaimedSection = *list;
  IniEntry* unclaimed = nullptr;
  char line[kLineBuf];
  while (ReadTextLine(line, kLineBuf, f)) {
    if (line[0] == '[') {
      IniSection* found = nullptr;
      for (IniSection* s = unclaimedSection; s; s = s->next) {
        if ((s->flags & kIniOlderOnly) && EqualNoCase(s->name, line)) {
          found = s;
          break;
        }
      }
      if (found) {
        found->flags &= static_cast<uint16_t>(~kIniOlderOnly);
        curIsNew = false;
        while (unclaimedSection && !(unclaimedSection->flags & kIniOlderOnly))
          unclaimedSection = unclaimedSection->next;
        unclaimed = found->entries;
      } else {
        found = NewSection(line, kIniSectionBase | kIniNewerOnly);
        if (!found) return false;
        // After the section that precedes it in the newer copy.
        if (cur) {
          found->next = cur->next;
          cur->next = found;
        } else {
          found->next = *list;
          *list = found;
        }
        curIsNew = true;
        ++*differences;
      }
      cur = found;
      prev = nullptr;
      continue;
    }
    if (line[0] == '\0' || !cur) continue;
    IniEntry* e;
    if (ParseEntry(line, f, &e) != Parse::kOk) return false;
    if (curIsNew) {
      e->flags = kIniNewerOnly;
      InsertAfterPrev(cur, prev, e);
      prev = e;
    } else {
      MatchEntry(cur, e, &prev, &unclaimed, differences);
      while (unclaimed && !(unclaimed->flags & kIniOlderOnly)) unclaimed = unclaimed->next;
    }
  }
  return true;
}

// Marks sections whose only change is an unclaimed older entry. It stops at the first
// section already marked, so later ones keep whatever the merge gave them; the overall
// verdict is right either way, since that marked section is itself a difference.
void FinalPass(IniSection* list, int* differences) {
  constexpr uint16_t kMask = kIniOlderOnly | kIniNewerOnly | kIniChanged;
  IniSection* s = list;
  while (s && !(s->flags & kMask)) {
    for (IniEntry* e = s->entries; e; e = e->next) {
      if (e->flags & kMask) {
        s->flags |= kIniChanged;
        ++*differences;
        break;
      }
    }
    s = s->next;
  }
  if (s) ++*differences;
}

int AttachMessage(FileCompareItem* item, const char* text) {
  LineChange* c = NewRecord<LineChange>();
  if (!c) return 0;
  c->kind = kLineSame;
  c->lineNumber = -1;
  CopyText(c->text, text, sizeof c->text);
  item->lines = c;
  return 1;
}

}  // namespace

void FreeLineChanges(LineChange* list) { FreeChain(list); }

void FreeIniSections(IniSection* list) {
  while (list) {
    IniSection* next = list->next;
    FreeEntries(list->entries);
    Io().free(list);
    list = next;
  }
}

int CompareTextLines(FILE* newer, FILE* older, int depth, LineChange** out) {
  *out = nullptr;
  TextLine* olderLines = nullptr;
  TextLine* newerLines = nullptr;
  if (!ReadTextLines(older, &olderLines)) return 0;
  if (!ReadTextLines(newer, &newerLines)) {
    FreeTextLines(olderLines);
    return 0;
  }

  ChangeList result;
  const TextLine* a = olderLines;
  const TextLine* b = newerLines;
  while ((a || b) && !result.failed) {
    if (!b) {
      for (; a; a = a->next) result.Emit(kLineRemoved, a);
      break;
    }
    if (!a) {
      for (; b; b = b->next) result.Emit(kLineAdded, b);
      break;
    }
    if (SameTrimmed(a, b)) {
      result.Emit(kLineSame, a);
      a = a->next;
      b = b->next;
    } else if (Trimmed(a)[0] == '\n') {
      result.Emit(kLineSame, a);
      a = a->next;
    } else if (Trimmed(b)[0] == '\n') {
      b = b->next;
    } else if (FoundAhead(a, b, depth)) {
      result.Emit(kLineAdded, b);
      b = b->next;
    } else if (FoundAhead(b, a, depth)) {
      result.Emit(kLineRemoved, a);
      a = a->next;
    } else if (Similar(a, b)) {
      result.Emit(kLineChangedOlder, a);
      result.Emit(kLineChangedNewer, b);
      a = a->next;
      b = b->next;
    } else {
      result.Emit(kLineRemoved, a);
      a = a->next;
    }
  }
  FreeTextLines(olderLines);
  FreeTextLines(newerLines);
  if (result.failed) {
    FreeLineChanges(result.head);
    return 0;
  }
  *out = result.head;
  return result.differs ? 1 : 0;
}

int CompareIniFiles(FILE* newer, FILE* older, IniSection** out) {
  *out = nullptr;
  IniSection* list = nullptr;
  int differences = 0;
  bool ok = ReadOlderIni(older, &list) && MergeNewerIni(newer, &list, &differences);
  std::rewind(newer);
  std::rewind(older);
  if (!ok) {
    FreeIniSections(list);
    return 0;
  }
  FinalPass(list, &differences);
  *out = list;
  return differences > 0 ? 1 : 0;
}

int CompareSystemFile(FileCompareItem* item) {
  FreeLineChanges(item->lines);
  FreeIniSections(item->sections);
  item->lines = nullptr;
  item->sections = nullptr;

  const bool inOlder = (item->flags & kFileInOlder) != 0;
  const bool inNewer = (item->flags & kFileInNewer) != 0;
  if (!inOlder || !inNewer) {
    const char* msg = inOlder ? kMsgNotInNewer : inNewer ? kMsgNotInOlder : kMsgInNeither;
    return AttachMessage(item, msg);
  }
  if (!(item->flags & kFileIsText)) return AttachMessage(item, kMsgNotText);

  FILE* older = Io().fopen(item->olderCopy, "r");
  if (!older) return 0;
  FILE* newer = Io().fopen(item->newerCopy, "r");
  if (!newer) {
    Io().fclose(older);
    return 0;
  }
  char ext[260];
  SplitFileName(item->path, nullptr, 0, ext, sizeof ext);
  int differs = EqualNoCase(ext, ".INI") ? CompareIniFiles(newer, older, &item->sections)
                                         : CompareTextLines(newer, older, kLookAheadDepth, &item->lines);
  if (differs) item->flags |= kFileDiffers;
  Io().fclose(newer);
  Io().fclose(older);
  return 1;
}

}  // namespace orvalis
