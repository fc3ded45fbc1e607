// Registry keys in snapshots under Wine, and REGKEYXML; with them the engine's other Windows 95/98
// and NT paths. CTest runs this file twice: once in an exe that Wine tells it is on Windows 98 and
// once as Windows XP; each check expects the path of the platform the exe was started as.
#include "engine/context.h"
#include "engine/sys.h"
#include "exports/exports.h"
#include "items/sysinfo/sysinfo.h"
#include "store/store_win.h"
#include "tests/support/engine_sandbox.h"

using namespace orvalis;
using namespace orvalis_test;

namespace {

const char* g_failCopyOf;
BOOL WINAPI CopyFailsFor(LPCSTR from, LPCSTR to, BOOL failIfExists) {
  if (std::string(from).find(g_failCopyOf) != std::string::npos) return SetLastError(ERROR_DISK_FULL), FALSE;
  return CopyFileA(from, to, failIfExists);
}

class Registry : public ::testing::Test {
 protected:
  void SetUp() override {
    box_.MakeDirs({"NIMBRA", "windows"});
    WriteWholeFile(box_.file("windows\\USER.DAT"), "user hive");
    WriteWholeFile(box_.file("windows\\SYSTEM.DAT"), "system hive");
    box_.SetWindowsFolder(box_.file("windows"));
    root_.Set("A", "v", "1");
    root_.Set("C", "v", "3");
    root_.Set("C\\Deeper", "", "default value");
  }
  std::string Key(const char* sub) { return root_.Full(sub); }
  // The index file's text, "" if the snapshot was discarded.
  std::string Snap(const std::string& keys) {
    WriteWholeFile(box_.file("R.GCF"), "keys\n[GROUPREGKEYS_START]\n" + keys + "[GROUPREGKEYS_END]\n");
    for (int i = 0; i < 10; ++i) DeleteFileA(box_.file("BASE000" + std::to_string(i) + ".BCF").c_str());
    EXPECT_EQ(CreateSnapshotFromSpecifiedProfile("R.GCF", "reg"), 0u);
    return ReadWholeFile(box_.file("BASE0000.BCF"));
  }
  EngineSandbox box_;
  TestKey root_{"reg"};
};

TEST_F(Registry, CaptureStagesAsEachPlatformHasThemAndWindows98Copies) {
  // Only the last key's save decides on NT; Windows 98 saves no keys and keeps both.
  std::string index = Snap(Key("A") + "\n" + Key("B") + "\n" + Key("C") + "\n");
  EXPECT_NE(IndexSection(index, "REGINFO").find(Key("A") + ",REG"), std::string::npos);
  if (OnWindows9x()) {
    EXPECT_EQ(IndexSection(index, "REGNT"), "<none>");
    for (const char* copy : {"USER.DAT,UDAT0000.CRG,1,", "SYSTEM.DAT,SDAT0000.CRG,1,"})
      EXPECT_NE(IndexSection(index, "REGBACK").find(copy), std::string::npos) << index;
  } else {
    EXPECT_EQ(IndexSection(index, "REGBACK"), "<none>");
    EXPECT_EQ(IndexSection(index, "REGNT"), Key("A") + ",NT0000\r\n" + Key("C") + ",NT0000\r\n");
  }
  EXPECT_EQ(Snap(Key("A") + "\n" + Key("C") + "\n" + Key("B") + "\n").empty(), !OnWindows9x());
  // The dump's compression: 3 is taken as 1024, 0 and 1 as they are.
  for (auto [setting, expected] : {std::pair{"3", "1024"}, {"0", "0"}, {"1", "1"}}) {
    box_.SetOrvalis("CompressRegistrySnap", setting);
    const std::string reginfo = IndexSection(Snap(Key("A") + "\n"), "REGINFO");
    EXPECT_NE(reginfo.find(std::string(".OVR,") + expected + ",0\r\n"), std::string::npos) << reginfo;
  }
  if (!OnWindows9x()) return;
  // The copies of the registry data files on Windows 98.
  box_.SetOrvalis("SaveRegistryData", "0");
  EXPECT_EQ(IndexSection(Snap(Key("A") + "\n"), "REGBACK"), "<none>");
  box_.SetOrvalis("SaveRegistryData", "1");
  box_.SetOrvalis("CompressRegistryData", "0");
  Sys().CopyFileA = CopyFailsFor;
  g_failCopyOf = "USER.DAT";  // the USER half alone failing keeps the snapshot
  // (SDAT0000 to SDAT0004 belong to the snapshots above.)
  EXPECT_EQ(IndexSection(Snap(Key("A") + "\n"), "REGBACK"), box_.file("windows\\SYSTEM.DAT,SDAT0005.CRG,0,0\r\n"));
  g_failCopyOf = "SYSTEM.DAT";  // the SYSTEM half failing discards it
  EXPECT_EQ(Snap(Key("A") + "\n"), "");
}

TEST_F(Registry, Documents) {
  ASSERT_NE(Snap(Key("C") + "\n"), "");
  const std::string out = box_.file("r.xml"), key = Key("C");
  auto doc = [](const std::string& body) {
    return "<?xml version = \"1.0\"?>\r\n<!DOCTYPE REGKEYXML SYSTEM \"regkey.dtd\">\r\n<REGKEYXML>\r\n" + body +
           "</REGKEYXML>\r\n";
  };
  // One snapshot alone: the whole key, every node "X"; the default value's name is empty.
  ASSERT_EQ(CompareRegtoXML("BASE0000.BCF", nullptr, key.c_str(), out.c_str(), 0), 0u);
  EXPECT_EQ(ReadWholeFile(out),
            doc("  <REGTREE>\r\n   <NNAME><![CDATA[C]]></NNAME>\r\n    <CHGFLAG flag=\"X\"/>\r\n"
                "  <REGTREE>\r\n   <NNAME><![CDATA[Deeper]]></NNAME>\r\n    <CHGFLAG flag=\"X\"/>\r\n"
                "    <REGVAL>\r\n     <FNAME></FNAME>\r\n     <CHGFLAG flag=\"X\"/>\r\n     <DATATYPE type=\"sz\"/>\r\n"
                "     <DATA><![CDATA[default value]]></DATA>\r\n    </REGVAL>\r\n  </REGTREE>\r\n"
                "    <REGVAL>\r\n     <FNAME><![CDATA[v]]></FNAME>\r\n     <CHGFLAG flag=\"X\"/>\r\n"
                "     <DATATYPE type=\"sz\"/>\r\n     <DATA><![CDATA[3]]></DATA>\r\n    </REGVAL>\r\n  </REGTREE>\r\n"));
  root_.Set("C", "v", "]]>");
  ASSERT_EQ(CompareRegtoXML("BASE0000.BCF", nullptr, key.c_str(), out.c_str(), 1), 0u);
  const std::string live = ReadWholeFile(out);
  EXPECT_EQ(live.find("Deeper"), std::string::npos) << live;
  EXPECT_NE(live.find("<CHGFLAG flag=\"F\"/>\r\n     <DATATYPE type=\"sz\"/>\r\n     <DATA><![CDATA[3]]></DATA>"),
            std::string::npos) << live;
  // Text holding "]]>" is written in escape mode: growing prefixes, entities without ";" (kept).
  EXPECT_NE(live.find("<DATA>]]]&g</DATA>"), std::string::npos) << live;
  EXPECT_EQ(CompareRegtoXML(nullptr, nullptr, key.c_str(), out.c_str(), 0), 87u);
  EXPECT_EQ(CompareRegtoXML("BASE0000.BCF", nullptr, Key("A").c_str(), out.c_str(), 0), 87u);
}

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
