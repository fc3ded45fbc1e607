// Registry keys in snapshots under Wine, run once as NT and once as Windows 98, and REGKEYXML.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "engine/sys.h"
#include "exports/exports.h"
#include "tests/support/engine_sandbox.h"

using namespace orvalis;
using orvalis_test::EngineSandbox;
using orvalis_test::FileExists;
using orvalis_test::ReadWholeFile;
using orvalis_test::TestKey;
using orvalis_test::WriteWholeFile;

namespace {

bool Windows9x() { return (GetVersion() & 0x80000000u) != 0; }

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
  static std::string Section(const std::string& index, const std::string& name) {
    const std::string start = "[" + name + "_START]\r\n";
    const size_t a = index.find(start);
    if (a == std::string::npos) return "<none>";
    return index.substr(a + start.size(), index.find("[" + name + "_END]") - a - start.size());
  }
  EngineSandbox box_;
  TestKey root_{"reg"};
};

TEST_F(Registry, CaptureStagesAsEachPlatformHasThem) {
  // Only the last key's save decides on NT; Windows 98 saves no keys and keeps both.
  std::string index = Snap(Key("A") + "\n" + Key("B") + "\n" + Key("C") + "\n");
  ASSERT_NE(index, "");
  EXPECT_NE(Section(index, "REGINFO").find(Key("A") + ",REG"), std::string::npos);
  if (Windows9x()) {
    EXPECT_EQ(Section(index, "REGNT"), "<none>");
    EXPECT_NE(Section(index, "REGBACK").find("USER.DAT,UDAT0000.CRG,1,"), std::string::npos) << index;
    EXPECT_NE(Section(index, "REGBACK").find("SYSTEM.DAT,SDAT0000.CRG,1,"), std::string::npos) << index;
  } else {
    EXPECT_EQ(Section(index, "REGBACK"), "<none>");
    EXPECT_EQ(Section(index, "REGNT"), Key("A") + ",NT0000\r\n" + Key("C") + ",NT0000\r\n");
  }
  index = Snap(Key("A") + "\n" + Key("C") + "\n" + Key("B") + "\n");
  EXPECT_EQ(index.empty(), !Windows9x());

  // The dump's compression: 3 is taken as 1024, 0 and 1 as they are.
  for (const char* setting : {"3", "0", "1"}) {
    box_.SetOrvalis("CompressRegistrySnap", setting);
    index = Snap(Key("A") + "\n");
    const std::string expected = std::string(setting) == "3" ? "1024" : setting;
    EXPECT_NE(Section(index, "REGINFO").find(".OVR," + expected + ",0\r\n"), std::string::npos) << index;
  }
}

TEST_F(Registry, Windows98RegistryCopies) {
  if (!Windows9x()) GTEST_SKIP() << "the Windows 98 run";
  box_.SetOrvalis("SaveRegistryData", "0");
  EXPECT_EQ(Section(Snap(Key("A") + "\n"), "REGBACK"), "<none>");
  box_.SetOrvalis("SaveRegistryData", "1");
  box_.SetOrvalis("CompressRegistryData", "0");
  Sys().CopyFileA = CopyFailsFor;
  g_failCopyOf = "USER.DAT";  // the USER half alone failing keeps the snapshot
  std::string index = Snap(Key("A") + "\n");
  EXPECT_EQ(Section(index, "REGBACK").find("USER.DAT"), std::string::npos);
  EXPECT_NE(Section(index, "REGBACK").find("SYSTEM.DAT,SDAT0000.CRG,0,0"), std::string::npos) << index;
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

}  // namespace
