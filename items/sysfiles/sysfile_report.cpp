#include <windows.h>

#include <cstdio>
#include <initializer_list>

#include "base/io.h"
#include "base/report_text.h"
#include "base/textutil.h"
#include "items/sysfiles/filecompare.h"
#include "items/sysfiles/sysfiles.h"
#include "store/store_win.h"

namespace orvalis {
namespace {

const char* LineMarker(uint16_t kind) {
  switch (kind) {
    case kLineAdded: return " +";
    case kLineRemoved: return " -";
    case kLineChangedOlder: return "<-";
    case kLineChangedNewer: return "->";
    default: return "";
  }
}

const char* SectionMarker(uint16_t flags) {
  if (flags & kIniNewerOnly) return " +";
  if (flags & kIniOlderOnly) return " -";
  if (flags & kIniChanged) return "**";
  return "";
}

constexpr uint16_t kIniChangeBits = kIniOlderOnly | kIniNewerOnly | kIniValueOlder | kIniChanged;

void PrintLines(FILE* f, const LineChange* lines, bool sorted) {
  if (!sorted) {
    for (const LineChange* l = lines; l; l = l->next)
      if (l->kind != kLineSame) std::fprintf(f, "%s %s\n", LineMarker(l->kind), l->text);
    return;
  }
  // Removals, additions, then the newer text of changes: the older text of a changed line is left
  // out of a sorted report on purpose.
  for (uint16_t kind : {uint16_t{kLineRemoved}, uint16_t{kLineAdded}, uint16_t{kLineChangedNewer}})
    for (const LineChange* l = lines; l; l = l->next)
      if (l->kind == kind) std::fprintf(f, "%s %s\n", LineMarker(l->kind), l->text);
}

void PrintEntries(FILE* f, const IniSection* s, uint16_t mask) {
  for (const IniEntry* e = s->entries; e; e = e->next)
    if (e->flags & mask) std::fprintf(f, "%s %s%s\n", ChangeMarker(e->flags), e->key, e->value);
}

void PrintSections(FILE* f, const IniSection* sections, bool sorted) {
  if (!sorted) {
    for (const IniSection* s = sections; s; s = s->next) {
      if (!(s->flags & (kIniOlderOnly | kIniNewerOnly | kIniChanged))) continue;
      std::fprintf(f, "\n%s %s\n", SectionMarker(s->flags), s->name);
      PrintEntries(f, s, kIniChangeBits);
    }
    return;
  }
  for (uint16_t mask : {uint16_t{kIniOlderOnly}, uint16_t{kIniNewerOnly}, uint16_t{kIniValueOlder | kIniChanged}}) {
    for (const IniSection* s = sections; s; s = s->next) {
      bool show;
      if (s->flags & kIniChanged) {
        show = false;
        for (const IniEntry* e = s->entries; e && !show; e = e->next) show = (e->flags & mask) != 0;
      } else {
        show = (s->flags & mask) != 0;
      }
      if (!show) continue;
      std::fprintf(f, "\n%s %s\n", SectionMarker(s->flags), s->name);
      PrintEntries(f, s, mask);
    }
  }
}

FileCompareItem* AppendItem(FileCompareItem*** tail) {
  auto* item = static_cast<FileCompareItem*>(Io().calloc(1, sizeof(FileCompareItem)));
  if (!item) return nullptr;
  **tail = item;
  *tail = &item->next;
  return item;
}

}  // namespace

FileCompareItem* CompareSnapshotFiles(const SnapshotRecord* older, const SnapshotRecord* newer) {
  FileCompareItem* head = nullptr;
  FileCompareItem** tail = &head;
  char olderFolder[MAX_PATH] = "", newerFolder[MAX_PATH] = "";
  const bool haveOlder = CompanionFolder(older->indexPath, olderFolder);
  if (newer && !CompanionFolder(newer->indexPath, newerFolder)) newer = nullptr;
  for (const SnapFileEntry* e = older->files; haveOlder && e; e = e->next) {
    FileCompareItem* item = AppendItem(&tail);
    if (!item) break;
    item->flags = kFileIsText;
    CopyText(item->path, e->path, sizeof item->path);
    if (CompanionPath(olderFolder, e->companion, item->olderCopy)) item->flags |= kFileInOlder;
    if (!newer) {
      CopyText(item->newerCopy, e->path, sizeof item->newerCopy);
      item->flags |= kFileInNewer;
    } else {
      for (const SnapFileEntry* o = newer->files; o; o = o->next)
        if (EqualNoCase(o->path, e->path) && CompanionPath(newerFolder, o->companion, item->newerCopy)) {
          item->flags |= kFileInNewer;
          break;
        }
    }
    CompareSystemFile(item);
  }
  // Files only the newer snapshot holds come after, with the message that says so.
  for (const SnapFileEntry* o = newer ? newer->files : nullptr; o; o = o->next) {
    bool inOlder = false;
    for (const SnapFileEntry* e = older->files; e && !inOlder; e = e->next) inOlder = EqualNoCase(o->path, e->path);
    if (inOlder) continue;
    FileCompareItem* item = AppendItem(&tail);
    if (!item) break;
    item->flags = kFileIsText;
    CopyText(item->path, o->path, sizeof item->path);
    if (CompanionPath(newerFolder, o->companion, item->newerCopy)) item->flags |= kFileInNewer;
    CompareSystemFile(item);
  }
  return head;
}

void FreeFileCompareItems(FileCompareItem* list) {
  while (list) {
    FileCompareItem* next = list->next;
    FreeIniSections(list->sections);
    FreeLineChanges(list->lines);
    Io().free(list);
    list = next;
  }
}

void PrintFilesSection(FILE* f, const char* heading, const FileCompareItem* items, bool sorted) {
  std::fprintf(f, "%s\n\n", heading);
  for (const FileCompareItem* i = items; i; i = i->next) {
    std::fprintf(f, "\n%s\n\n", i->path);
    char ext[MAX_PATH];
    SplitFileName(i->path, nullptr, 0, ext, sizeof ext);
    if (EqualNoCase(ext, ".INI"))
      PrintSections(f, i->sections, sorted);
    else
      PrintLines(f, i->lines, sorted);
  }
}

}  // namespace orvalis
