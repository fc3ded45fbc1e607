#include <windows.h>

#include "base/report_text.h"
#include "base/textutil.h"
#include "items/assets/assets.h"
#include "store/store_win.h"

namespace orvalis {

ReportTreeItem* CompareSnapshotAssets(const SnapshotRecord* older, const SnapshotRecord* newer) {
  ReportTreeItem* head = nullptr;
  ReportTreeItem** tail = &head;
  char olderFolder[MAX_PATH], newerFolder[MAX_PATH] = "";
  if (!CompanionFolder(older->indexPath, olderFolder)) return nullptr;
  if (newer && !CompanionFolder(newer->indexPath, newerFolder)) newer = nullptr;
  for (const SnapGroupEntry* a = older->assets; a; a = a->next) {
    char first[MAX_PATH], second[MAX_PATH];
    if (!CompanionPath(olderFolder, a->companion, first)) continue;
    const SnapGroupEntry* other = nullptr;
    if (newer)
      for (other = newer->assets; other && !EqualNoCase(other->name, a->name); other = other->next) {
      }
    ReportTreeItem* item = AppendReportTreeItem(&tail);
    if (!item) break;
    CopyText(item->name, a->name, sizeof item->name);
    item->release = FreeAssetChangeTree;
    if (newer && !(other && CompanionPath(newerFolder, other->companion, second))) continue;
    // Each side is read with its own entry's value and options; the live side with the older's.
    const uint32_t value1 = static_cast<uint32_t>(a->first) & 0xFFFF, flags1 = a->second & 0xFFFF;
    const uint32_t value2 = other ? static_cast<uint32_t>(other->first) & 0xFFFF : value1;
    const uint32_t flags2 = other ? other->second & 0xFFFF : flags1;
    item->tree = BuildAssetChangeTree(first, newer ? second : nullptr, a->name, newer ? 0 : 1, flags1 | flags2 << 16,
                                      value1 | value2 << 16);
  }
  return head;
}

}  // namespace orvalis
