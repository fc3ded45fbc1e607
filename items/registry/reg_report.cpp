#include <windows.h>

#include "base/report_text.h"
#include "base/textutil.h"
#include "items/registry/registry.h"
#include "store/store_win.h"

namespace orvalis {

ReportTreeItem* CompareSnapshotRegistry(const SnapshotRecord* older, const SnapshotRecord* newer) {
  ReportTreeItem* head = nullptr;
  ReportTreeItem** tail = &head;
  char olderFolder[MAX_PATH], newerFolder[MAX_PATH] = "";
  if (!CompanionFolder(older->indexPath, olderFolder)) return nullptr;
  if (newer && !CompanionFolder(newer->indexPath, newerFolder)) newer = nullptr;
  for (const SnapGroupEntry* k = older->regKeys; k; k = k->next) {
    char first[MAX_PATH], second[MAX_PATH];
    if (!CompanionPath(olderFolder, k->companion, first)) continue;  // a record without a usable dump
    const SnapGroupEntry* other = nullptr;
    if (newer)
      for (other = newer->regKeys; other && !EqualNoCase(other->name, k->name); other = other->next) {
      }
    ReportTreeItem* item = AppendReportTreeItem(&tail);
    if (!item) break;
    CopyText(item->name, k->name, sizeof item->name);
    item->release = FreeRegChangeTree;
    if (newer && !(other && CompanionPath(newerFolder, other->companion, second))) continue;  // not in the newer
    item->tree = BuildRegChangeTree(first, newer ? second : nullptr, k->name, newer ? 0 : 1);
  }
  return head;
}

}  // namespace orvalis
