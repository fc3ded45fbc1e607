#include "drivers/report.h"

#include <windows.h>

#include <cstdio>

#include "base/datetext.h"
#include "base/io.h"
#include "base/messages.h"
#include "base/report_text.h"
#include "base/results.h"
#include "base/textutil.h"
#include "engine/context.h"
#include "engine/cursor.h"
#include "engine/files.h"
#include "engine/settings.h"
#include "engine/strings.h"
#include "items/assets/assets.h"
#include "items/dirtree/dirtree.h"
#include "items/registry/registry.h"
#include "items/sysfiles/sysfiles.h"
#include "items/sysinfo/sysinfo.h"
#include "store/store_win.h"

namespace orvalis {
namespace {

// "label" + date-time text (left out for a zero time) + two blanks + description.
void HeadLine(FILE* f, UINT label, uint32_t time, const char* description, const char* end) {
  char text[512] = "", stamp[64] = "";
  LoadLocalString(label, text, sizeof text);
  if (time) FormatPackedDateTime(time, stamp);
  std::fprintf(f, "%s%s  %s%s", text, stamp, description, end);
}

void WriteHead(FILE* f, const SnapshotRecord* older, const SnapshotRecord* newer) {
  char text[512] = "";
  LoadLocalString(IDS_REPORT_TITLE, text, sizeof text);
  std::fprintf(f, "%s\n", text);
  text[0] = '\0';
  LoadLocalString(IDS_REPORT_RULE, text, sizeof text);
  std::fprintf(f, "%s\n\n", text);
  HeadLine(f, IDS_REPORT_OLDER, older->time, older->description, "\n");
  if (newer) {
    HeadLine(f, IDS_REPORT_NEWER, newer->time, newer->description, "\n\n");
  } else {
    char live[64] = "";
    LoadLocalString(IDS_CURRENT_SYSTEM, live, sizeof live);
    HeadLine(f, IDS_REPORT_NEWER, NowDosTime(), live, "\n\n");
  }
}

TreeReportOptions ReadOptions() {
  TreeReportOptions o;
  o.sorted = ReadOrvalisInt("SortReportByType", 0) != 0;
  o.truncate = ReadOrvalisInt("TruncateValuesInReport", 1) != 0;
  return o;
}

void Heading(UINT id, char* out, int size) {
  out[0] = '\0';
  LoadLocalString(id, out, size);
}

// Everything one report holds while it is written.
struct ReportRecords {
  SnapshotRecord* older = nullptr;
  SnapshotRecord* newer = nullptr;  // null: the live system
  SnapshotRecord* live = nullptr;   // the live system's information and drives, when asked for
  ~ReportRecords() {
    FreeSnapshotRecord(older);
    FreeSnapshotRecord(newer);
    FreeSnapshotRecord(live);
  }
};

uint32_t LoadRecords(const char* older, const char* newer, unsigned sections, ReportRecords* r) {
  char path[MAX_PATH];
  r->older = NewSnapshotRecord();
  if (!r->older) return kResultNoMemory;
  // A snapshot that cannot be read leaves an empty record: its sections then say it lacks them.
  if (EngineSnapshotPath(older, path)) LoadSnapshot(path, r->older);
  if (newer && newer[0]) {
    r->newer = NewSnapshotRecord();
    if (!r->newer) return kResultNoMemory;
    if (EngineSnapshotPath(newer, path)) LoadSnapshot(path, r->newer);
  } else if (sections & (kReportSysInfo | kReportDrives)) {
    r->live = NewSnapshotRecord();
    if (!r->live) return kResultNoMemory;
    LoadLocalString(IDS_CURRENT_SYSTEM, r->live->description, 64);
    if (sections & kReportSysInfo) CollectSysInfo(r->live);
    if (sections & kReportDrives) CollectDrives(r->live);
  }
  return kResultOk;
}

void WriteSysSections(FILE* f, const ReportRecords& r, unsigned sections) {
  const SnapshotRecord* newer = r.newer ? r.newer : r.live;
  SysCompareResult result{};
  if (sections & kReportSysInfo) {
    CompareSysInfo(r.older, newer, &result);
    WriteSysInfoReport(f, &result);
    FreeSysInfoChanges(result.sysInfo);
    result.sysInfo = nullptr;
  }
  if (sections & kReportDrives) {
    CompareDrives(r.older, newer, &result);
    WriteDrivesReport(f, &result);
    FreeDriveChanges(result.drives);
  }
}

void WriteTreeSection(FILE* f, UINT heading, ReportTreeItem* items, bool itemGap) {
  char text[256];
  Heading(heading, text, sizeof text);
  PrintTreeSection(f, text, items, itemGap, ReadOptions());
  FreeReportTreeItems(items);
}

}  // namespace

uint32_t WriteDifferenceReport(const char* older, const char* newer, const char* reportPath, bool append,
                               unsigned sections) {
  if (!older || !older[0]) return kResultInvalidParameter;
  WaitCursor cursor;
  ReportRecords r;
  if (uint32_t rc = LoadRecords(older, newer, sections, &r)) {
    cursor.Restore();
    return rc;
  }
  char path[MAX_PATH];
  if (reportPath && reportPath[0]) {
    CopyText(path, reportPath, sizeof path);
  } else {
    char folder[MAX_PATH];
    GetModuleFolderWithSlash(folder);
    std::snprintf(path, sizeof path, "%sORVALIS.LOG", folder);
  }
  const bool existed = PathExists(path);
  FILE* f = Io().fopen(path, append ? "at" : "wt");
  if (!f) {
    cursor.Restore();
    return kResultOpenFailed;
  }
  if (!append || !existed) WriteHead(f, r.older, r.newer);
  WriteSysSections(f, r, sections);
  if (sections & kReportFiles) {
    char heading[256];
    Heading(IDS_HEADING_FILES, heading, sizeof heading);
    FileCompareItem* items = CompareSnapshotFiles(r.older, r.newer);
    PrintFilesSection(f, heading, items, ReadOptions().sorted);
    FreeFileCompareItems(items);
  }
  if (sections & kReportDirectories) {
    char folder[MAX_PATH], cfg[MAX_PATH];
    GetModuleFolderWithSlash(folder);
    DirFilters* filters = nullptr;
    if (std::snprintf(cfg, sizeof cfg, "%sORVALIS.CFG", folder) < MAX_PATH) LoadDirFilters(cfg, &filters);
    WriteTreeSection(f, IDS_HEADING_DIRECTORIES, CompareSnapshotDirectories(r.older, r.newer, filters), true);
    FreeDirFilters(filters);
  }
  if (sections & kReportRegistry)
    WriteTreeSection(f, IDS_HEADING_REGISTRY, CompareSnapshotRegistry(r.older, r.newer), false);
  if (sections & kReportAssets) WriteTreeSection(f, IDS_HEADING_ASSETS, CompareSnapshotAssets(r.older, r.newer), false);
  const bool written = CloseChecked(f);
  cursor.Restore();
  return written ? kResultOk : kResultWriteFault;
}

}  // namespace orvalis
