// The Windows 95/98 paths of the engine, run in an exe that Wine tells it is on Windows 98
// (CTest sets it up; run elsewhere, the tests skip themselves).
#include <windows.h>

#include <gtest/gtest.h>

#include "engine/context.h"
#include "engine/sys.h"
#include "items/sysinfo/sysinfo.h"
#include "store/store_win.h"
#include "tests/support/engine_sandbox.h"

using namespace orvalis;
using orvalis_test::EngineSandbox;
using orvalis_test::WriteWholeFile;

namespace {

bool OnWindows9x() { return (GetVersion() & 0x80000000u) != 0; }

TEST(Windows9x, TheLibraryEntryTakesThePlatformFromGetVersion) {
  if (!OnWindows9x()) GTEST_SKIP() << "not started as Windows 98";
  EngineSandbox box;
  HandleLibraryEntry(GetModuleHandleA(nullptr), DLL_PROCESS_ATTACH);
  EXPECT_EQ(State().isWindowsNT, 0);
  EXPECT_TRUE(RunningOnWindows9x());
  SnapshotRecord rec{};
  ASSERT_EQ(CollectSysInfo(&rec), 0);
  const SysInfoItem* win = rec.sysInfo;
  while (win && win->item != 5) win = win->next;
  ASSERT_NE(win, nullptr);
  EXPECT_EQ(win->value, 0x0004000A);  // Windows 98 is 4.10
  ClearSnapshotRecord(&rec);
}

TEST(Windows9x, SnapshotsReadTheRegistryDataFileCopies) {
  if (!OnWindows9x()) GTEST_SKIP() << "not started as Windows 98";
  EngineSandbox box;
  const std::string path = box.file("BASE0000.BCF");
  WriteWholeFile(path, "FormatVersion=6\nd\n[REGBACK_START]\nC:\\WINDOWS\\USER.DAT,UDAT0000.CRG,1,77\n"
                       "C:\\WINDOWS\\SYSTEM.DAT,SDAT0000.CRG,1,88\n[REGBACK_END]\n[REGNT_START]\nHKLM\\X,NT0000\n"
                       "[REGNT_END]\n");
  SnapshotRecord* rec = NewSnapshotRecord();
  ASSERT_EQ(LoadSnapshot(path.c_str(), rec), 0);
  ASSERT_NE(rec->regBackup, nullptr);
  EXPECT_STREQ(rec->regBackup->userName, "UDAT0000.CRG");
  EXPECT_EQ(rec->regBackup->systemCrc, 88u);
  FreeSnapshotRecord(rec);
}

int g_exLookups = 0;
FARPROC WINAPI CountingGetProcAddress(HMODULE m, LPCSTR name) {
  if (HIWORD(name) && lstrcmpA(name, "GetDiskFreeSpaceExA") == 0) ++g_exLookups;
  return GetProcAddress(m, name);
}

TEST(Windows9x, DriveSpaceUsesTheExCallOnLaterWindows95Builds) {
  if (!OnWindows9x()) GTEST_SKIP() << "not started as Windows 98";
  EngineSandbox box;
  Sys().GetProcAddress = CountingGetProcAddress;
  uint32_t freeKB = 0, totalKB = 0;
  EXPECT_EQ(GetDriveSpaceKB("C:\\", &freeKB, &totalKB), 1);
  EXPECT_EQ(g_exLookups, 1);
  EXPECT_GT(totalKB, 0u);
  EXPECT_LE(freeKB, totalKB);
}

TEST(WindowsNT, DriveSpaceKeepsTheOlderCallOnNT) {
  if (OnWindows9x()) GTEST_SKIP() << "started as Windows 98";
  EngineSandbox box;
  g_exLookups = 0;
  Sys().GetProcAddress = CountingGetProcAddress;
  uint32_t freeKB = 0, totalKB = 0;
  GetDriveSpaceKB("C:\\", &freeKB, &totalKB);
  EXPECT_EQ(g_exLookups, 0);
  EXPECT_GT(totalKB, 0u);
}

}  // namespace
