#include <windows.h>

#include <cstring>
#include <initializer_list>

#include "base/io.h"
#include "base/report_text.h"
#include "base/textutil.h"
#include "items/dirtree/dirtree.h"
#include "store/store_win.h"

namespace orvalis {
namespace {

void FreeConverted(ChangeNode* n) {
  while (n) {
    ChangeNode* next = n->next;
    FreeConverted(n->children);
    Io().free(n);  // the name lives in the same block
    n = next;
  }
}

// The report prints every kind of tree through one printer: a compared directory tree becomes a
// change tree of folders and files with the same change bits. Null when memory runs out.
ChangeNode* Convert(const DirNode* d) {
  // The root's path keeps its trailing backslash; the report names a folder by its last part.
  size_t len = std::strlen(d->path);
  if (len > 3 && d->path[len - 1] == '\\') --len;
  auto* n = static_cast<ChangeNode*>(Io().calloc(1, sizeof(ChangeNode) + len + 1));
  if (!n) return nullptr;
  n->name = reinterpret_cast<char*>(n + 1);
  std::memcpy(n->name, d->path, len);
  n->name[len] = '\0';
  n->nameLength = static_cast<uint32_t>(len);
  n->flags = static_cast<uint16_t>((d->flags & (kChangeAny | kChangeBelow)) |
                                   ((d->flags & kDirFile) ? kKindFile : kKindFolder));
  n->depth = d->depth;
  n->time = d->time;
  n->length = d->size;
  ChangeNode** tail = &n->children;
  for (const DirNode* lists : {d->subdirs, d->files}) {
    for (const DirNode* c = lists; c; c = c->next) {
      ChangeNode* child = Convert(c);
      if (!child) {
        FreeConverted(n);
        return nullptr;
      }
      *tail = child;
      tail = &child->next;
    }
  }
  return n;
}

}  // namespace

ReportTreeItem* CompareSnapshotDirectories(const SnapshotRecord* older, const SnapshotRecord* newer,
                                           const DirFilters* filters) {
  ReportTreeItem* head = nullptr;
  ReportTreeItem** tail = &head;
  char olderFolder[MAX_PATH], newerFolder[MAX_PATH] = "";
  if (!CompanionFolder(older->indexPath, olderFolder)) return nullptr;
  if (newer && !CompanionFolder(newer->indexPath, newerFolder)) newer = nullptr;
  for (const SnapGroupEntry* d = older->dirs; d; d = d->next) {
    auto* rec = static_cast<DirCompareRecord*>(Io().calloc(1, sizeof(DirCompareRecord)));
    if (!rec) break;
    rec->flags = 0x4000;
    CopyText(rec->path, d->name, sizeof rec->path);
    if (CompanionPath(olderFolder, d->companion, rec->olderListing)) {
      rec->flags |= 0x40;
      rec->olderCompressed = d->first;
      rec->olderCrc = d->second;
    }
    if (!newer) {
      rec->flags |= 0x80;  // the live disk
    } else {
      for (const SnapGroupEntry* o = newer->dirs; o; o = o->next) {
        if (!EqualNoCase(o->name, d->name) || !CompanionPath(newerFolder, o->companion, rec->newerListing)) continue;
        rec->flags |= 0x80;
        rec->newerCompressed = o->first;
        rec->newerCrc = o->second;
        break;
      }
    }
    ReportTreeItem* item = AppendReportTreeItem(&tail);
    if (item) {
      CopyText(item->name, d->name, sizeof item->name);
      item->release = FreeConverted;
      if (CompareDirectory(rec, filters) && rec->tree) {
        if ((rec->flags & 0xC0) != 0xC0)
          item->message = (rec->flags & 0x40) ? kDirOnlyOlder : (rec->flags & 0x80) ? kDirOnlyNewer : kDirInNeither;
        else
          item->tree = Convert(rec->tree);
        FreeDirTree(rec->tree);
      }
    }
    Io().free(rec);
    if (!item) break;
  }
  return head;
}

}  // namespace orvalis
