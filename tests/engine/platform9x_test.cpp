// The Windows 95/98 and NT paths of the engine. CTest runs this file twice: once in an exe that
// Wine tells it is on Windows 98 and once as Windows XP; each check expects the path of the
// platform the exe was started as.
#include "engine/context.h"
#include "engine/sys.h"
#include "items/sysinfo/sysinfo.h"
#include "store/store_win.h"
#include "tests/support/engine_sandbox.h"

using namespace orvalis;
using namespace orvalis_test;

namespace {

TEST(Platform, TheLibraryEntryTakesThePlatformFromGetVersion) {
  EngineSandbox box;
  State().isWindowsNT = 7;
  HandleLibraryEntry(GetModuleHandleA(nullptr), DLL_PROCESS_ATTACH);
  EXPECT_EQ(State().isWindowsNT, OnWindows9x() ? 0 : 1);
  EXPECT_EQ(RunningOnWindows9x(), OnWindows9x());
  if (!OnWindows9x()) return;
  SnapshotRecord rec{};
  ASSERT_EQ(CollectSysInfo(&rec), 0);
  const SysInfoItem* win = rec.sysInfo;
  while (win && win->item != 5) win = win->next;
  ASSERT_NE(win, nullptr);
  EXPECT_EQ(win->value, 0x0004000A);  // Windows 98 is 4.10
  ClearSnapshotRecord(&rec);
}

TEST(Platform, Windows9xSnapshotsReadTheRegistryDataFileCopiesAndNTTheSaveFolder) {
  EngineSandbox box;
  const std::string path = box.file("BASE0000.BCF");
  WriteWholeFile(path, "FormatVersion=6\nd\n[REGBACK_START]\nC:\\WINDOWS\\USER.DAT,UDAT0000.CRG,1,77\n"
                       "C:\\WINDOWS\\SYSTEM.DAT,SDAT0000.CRG,1,88\n[REGBACK_END]\n[REGNT_START]\nHKLM\\X,NT0000\n"
                       "[REGNT_END]\n");
  SnapshotRecord* rec = NewSnapshotRecord();
  ASSERT_EQ(LoadSnapshot(path.c_str(), rec), 0);
  ASSERT_NE(rec->regBackup, nullptr);
  EXPECT_STREQ(rec->regBackup->userName, OnWindows9x() ? "UDAT0000.CRG" : "NT0000");
  EXPECT_EQ(rec->regBackup->systemCrc, OnWindows9x() ? 88u : 0u);
  FreeSnapshotRecord(rec);
}

int g_exLookups = 0;
FARPROC WINAPI CountingGetProcAddress(HMODULE m, LPCSTR name) {
  if (HIWORD(name) && lstrcmpA(name, "GetDiskFreeSpaceExA") == 0) ++g_exLookups;
  return GetProcAddress(m, name);
}

// The older call stops at 2 GB on Windows 95 OSR2 and later; NT keeps it on purpose.
TEST(Platform, DriveSpaceUsesTheExCallOnlyOnLaterWindows95Builds) {
  EngineSandbox box;
  Sys().GetProcAddress = CountingGetProcAddress;
  uint32_t freeKB = 0, totalKB = 0;
  EXPECT_EQ(GetDriveSpaceKB("C:\\", &freeKB, &totalKB), 1);
  EXPECT_EQ(g_exLookups, OnWindows9x() ? 1 : 0);
  EXPECT_GT(totalKB, 0u);
  EXPECT_LE(freeKB, totalKB);
}

}  // namespace
