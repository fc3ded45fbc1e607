// Snapshot packages end to end under Wine: export, delete, import and compare; importing twice;
// damaged and hostile packages refused with nothing left behind; verify finding one flipped byte
// in each kind of companion and a missing one.
#include <cstdlib>
#include <set>

#include "compress/coder_mem.h"
#include "compress/crc32.h"
#include "compress/implode.h"
#include "exports/exports.h"
#include "tests/support/engine_sandbox.h"

using namespace orvalis_test;

namespace {

std::string Flipped(std::string s, size_t at, char mask) { return s[at] ^= mask, s; }

std::string Le32(uint32_t v) {
  std::string s(4, '\0');
  for (int i = 0; i < 4; ++i) s[i] = static_cast<char>(v >> (8 * i));
  return s;
}

// A package made by hand, so that names and framing a writer of ours never produces can be tried.
struct Entry { uint8_t kind; std::string folder, name, data; };
std::string Package(const std::vector<Entry>& entries) {
  std::string p = "ORVALPKG" + Le32(1) + Le32(static_cast<uint32_t>(entries.size()));
  for (const Entry& e : entries) {
    std::string packed;
    orvalis::ImplodeMemory(e.data.data(), e.data.size(), &packed, orvalis::kImplodeBinary, 4096);
    p += static_cast<char>(e.kind);
    p += static_cast<char>(e.folder.size()) + e.folder;
    p += static_cast<char>(e.name.size()) + e.name;
    p += Le32(static_cast<uint32_t>(e.data.size())) + Le32(orvalis::Crc32(e.data.data(), e.data.size())) +
         Le32(static_cast<uint32_t>(packed.size())) + packed;
  }
  return p + Le32(orvalis::Crc32(p.data(), p.size()));
}

class Packages : public ::testing::Test {
 protected:
  void SetUp() override {
    key_.Set("", "v", "one");
    box_.MakeDirs({"NIMBRA", "w", "fonts", "other"});
    box_.CopyFromBin("TAMBRELL.DLL");
    WriteWholeFile(box_.file("w\\app.ini"), "[Main]\r\nColor=blue\r\n");
    WriteWholeFile(box_.file("fonts\\a.ttf"), std::string(5000, 'a'));
    WriteWholeFile(box_.file("P.GCF"), "packed\n[GROUPFILES_START]\n" + box_.file("w\\app.ini") +
                                           "\n[GROUPFILES_END]\n[GROUPDIRS_START]\n" + box_.file("w") +
                                           "\n[GROUPDIRS_END]\n[GROUPREGKEYS_START]\n" + key_.Full() +
                                           "\n[GROUPREGKEYS_END]\n[GROUPASSET_START]\n" + box_.file("fonts") +
                                           ",0,8192\n[GROUPASSET_END]\n");
    ASSERT_EQ(CreateSnapshotFromSpecifiedProfile("P.GCF", "to move"), 0u);
  }
  // Every section of a report against the live system, without its head.
  std::string Sections(const char* snapshot) {
    const std::string r = box_.file("r.log");
    EXPECT_EQ(CreateReportOfFileDifferences(snapshot, "", r.c_str(), 0), 0u);
    EXPECT_EQ(CreateReportOfRegistryDifferences(snapshot, "", r.c_str(), 1), 0u);
    EXPECT_EQ(CreateReportOfDirectoryDifferences(snapshot, "", r.c_str(), 1), 0u);
    EXPECT_EQ(CreateReportOfAssetDifferences(snapshot, "", r.c_str(), 1), 0u);
    const std::string text = ReadWholeFile(r);
    return text.substr(text.find("System Files"));
  }
  std::set<std::string> Files() {
    std::set<std::string> out;
    for (const std::string& n : ListDir(box_.dir())) out.insert(n);
    for (const std::string& n : ListDir(box_.file("NIMBRA"))) out.insert("NIMBRA\\" + n);
    return out;
  }
  EngineSandbox box_;
  TestKey key_{"pkg"};
  const std::string pkg_ = box_.file("other\\move.pkg");
};

TEST_F(Packages, ExportDeleteImportComparesEqualAndImportsTwice) {
  // Changes since the snapshot, so that the comparisons have something to show.
  WriteWholeFile(box_.file("w\\app.ini"), "[Main]\r\nColor=red\r\n");
  WriteWholeFile(box_.file("fonts\\a.ttf"), "short");
  const std::string before = Sections("BASE0000.BCF");
  ASSERT_EQ(ExportSnapshot("BASE0000.BCF", pkg_.c_str()), 0u);
  ASSERT_EQ(DeleteSnapshot("BASE0000.BCF"), 0u);
  ASSERT_EQ(ImportSnapshot(pkg_.c_str(), nullptr), 0u);
  EXPECT_EQ(Sections("BASE0000.BCF"), before);
  const std::string info = box_.file("i.xml");
  ASSERT_EQ(SnapshotInfoXML("BASE0000.BCF", info.c_str()), 0u);
  EXPECT_NE(ReadWholeFile(info).find("<FLAGS><![CDATA[Imported]]></FLAGS>"), std::string::npos) << ReadWholeFile(info);
  // A second import is a second snapshot with companions of its own; the first is untouched.
  ASSERT_EQ(ImportSnapshot(pkg_.c_str(), nullptr), 0u);
  EXPECT_EQ(Sections("BASE0001.BCF"), before);
  ASSERT_EQ(DeleteSnapshot("BASE0000.BCF"), 0u);
  EXPECT_EQ(Sections("BASE0001.BCF"), before);
  const std::string report = box_.file("v.txt");
  EXPECT_EQ(VerifySnapshot("BASE0001.BCF", report.c_str()), 0u) << ReadWholeFile(report);
  EXPECT_EQ(VerifySnapshot(pkg_.c_str(), report.c_str()), 0u) << ReadWholeFile(report);
}

TEST_F(Packages, DamagedAndHostilePackagesLeaveNothingBehind) {
  ASSERT_EQ(ExportSnapshot("BASE0000.BCF", pkg_.c_str()), 0u);
  const std::string good = ReadWholeFile(pkg_);
  const std::string index = "FormatVersion=6\nd\n[FILEINFO_START]\nC:\\a.ini,X0000.BSE,1,0\n[FILEINFO_END]\n";
  const std::string two = Package({{1, "", "BASE0000.BCF", index}, {2, "", "X0000.BSE", "copy"}});
  std::vector<std::pair<std::string, std::string>> rows = {
      {"empty", ""}, {"last byte missing", good.substr(0, good.size() - 1)},
      {"flipped byte in the middle", Flipped(good, good.size() / 2, 0x20)},
      // Inside the last entry's data; the trailer no longer matches either.
      {"wrong CRC", Flipped(two, two.size() - 10, 1)}, {"foreign", "PK\x03\x04 this is a zip, not a package of ours"},
      {"two index files", Package({{1, "", "BASE0000.BCF", index}, {1, "", "BASE0001.BCF", index}})},
      {"folder named up", Package({{1, "", "BASE0000.BCF", index}, {3, "..", "k.sav", "x"}})}};
  // Entry names with a folder part, "..", a drive, or a device name with or without an extension.
  for (const char* name : {"sub\\X0000.BSE", "..", "C:X0000.BSE", "CON", "nul.txt", "COM1.BSE", "lpt1"})
    rows.emplace_back(name, Package({{1, "", "BASE0000.BCF", index}, {2, "", name, "x"}}));
  const std::set<std::string> before = Files();
  for (const auto& [what, bytes] : rows) {
    WriteWholeFile(pkg_, bytes);
    EXPECT_EQ(ImportSnapshot(pkg_.c_str(), nullptr), 13u) << what;
    EXPECT_EQ(Files(), before) << what;
  }
  EXPECT_EQ(ImportSnapshot(box_.file("other\\none.pkg").c_str(), nullptr), 2u);
}

TEST_F(Packages, VerifyFindsAFlippedByteOrAMissingCompanionAndTheInformationDocumentExactly) {
  const std::string report = box_.file("v.txt");
  ASSERT_EQ(VerifySnapshot("BASE0000.BCF", report.c_str()), 0u) << ReadWholeFile(report);
  for (const char* prefix : {"DIR", "AST", "REG"}) {
    std::string name;
    for (const std::string& n : ListDir(box_.file("NIMBRA")))
      if (n.rfind(prefix, 0) == 0 && !ReadWholeFile(box_.file("NIMBRA\\" + n)).empty()) name = n;
    ASSERT_NE(name, "") << prefix;
    const std::string path = box_.file("NIMBRA\\" + name), good = ReadWholeFile(path);
    WriteWholeFile(path, Flipped(good, good.size() / 2, 0x01));
    EXPECT_EQ(VerifySnapshot("BASE0000.BCF", report.c_str()), 13u) << prefix << "\n" << ReadWholeFile(report);
    EXPECT_NE(ReadWholeFile(report).find("DAMAGED"), std::string::npos) << prefix;
    WriteWholeFile(path, good);
  }
  DeleteFileA(box_.file("NIMBRA\\app0000.BSE").c_str());
  EXPECT_EQ(VerifySnapshot("BASE0000.BCF", report.c_str()), 13u);
  EXPECT_NE(ReadWholeFile(report).find("app0000.BSE: missing"), std::string::npos) << ReadWholeFile(report);
  EXPECT_EQ(VerifySnapshot("BASE0009.BCF", report.c_str()), 2u);
  // A package's contents: one flipped byte.
  WriteWholeFile(box_.file("NIMBRA\\app0000.BSE"), "[Main]\r\nColor=blue\r\n");
  ASSERT_EQ(ExportSnapshot("BASE0000.BCF", pkg_.c_str()), 0u);
  ASSERT_EQ(VerifySnapshot(pkg_.c_str(), report.c_str()), 0u);
  const std::string bytes = ReadWholeFile(pkg_);
  WriteWholeFile(pkg_, Flipped(bytes, bytes.size() / 3, 0x40));
  EXPECT_EQ(VerifySnapshot(pkg_.c_str(), report.c_str()), 13u);
  EXPECT_NE(ReadWholeFile(report).find("DAMAGED  package"), std::string::npos) << ReadWholeFile(report);
  WriteWholeFile(box_.file("BASE0007.BCF"),
                 "FormatVersion=6\nDaily <check>\n[TIMEDATE_START]\n650013881\n[TIMEDATE_END]\n[FLAGS_START]\n4096\n"
                 "[FLAGS_END]\n[OSVERSION_START]\n170393861\n[OSVERSION_END]\n[USERNAME_START]\nalice\n[USERNAME_END]\n"
                 "[SYSINFO_START]\n1,5\n2,1\n3,65536\n5,262154\n9,GenuineIntel\n16,Pentium II MMX\n[SYSINFO_END]\n"
                 "[DRIVES_START]\nC,3,1000,500,\n[DRIVES_END]\n[REGINFO_START]\nHKCU\\Software\\X,REG0000.OVR,1024,0\n"
                 "[REGINFO_END]\n[ASSETINFO_START]\nC:\\Fonts,AST0000.OVA,1,8192\n[ASSETINFO_END]\n[DIRINFO_START]\n"
                 "C:\\App,DIR0000.OVD,1,7\n[DIRINFO_END]\n[FILEINFO_START]\nC:\\a.ini,a0000.BSE,1,0\n[FILEINFO_END]\n");
  const std::string out = box_.file("i.xml");
  ASSERT_EQ(SnapshotInfoXML("BASE0007.BCF", out.c_str()), 0u);
  EXPECT_EQ(ReadWholeFile(out),
            "<?xml version = \"1.0\"?>\r\n<!DOCTYPE ORVALISBCF SYSTEM \"snapinfo.dtd\">\r\n<ORVALISBCF>\r\n"
            "  <FILE><![CDATA[BASE0007.BCF]]></FILE>\r\n  <DESCRIPTION><![CDATA[Daily <check>]]></DESCRIPTION>\r\n"
            "  <TIMESTAMP><![CDATA[05/30/1999 13:37:25]]></TIMESTAMP>\r\n  <FLAGS><![CDATA[Imported]]></FLAGS>\r\n"
            "  <WINVERSION><![CDATA[5.01]]></WINVERSION>\r\n  <USERNAME><![CDATA[alice]]></USERNAME>\r\n"
            "    <SYSINFO>\r\n      <CPU>Pentium II MMX</CPU>\r\n      <CPUVENDOR>GenuineIntel</CPUVENDOR>\r\n"
            "      <COCPU>1</COCPU>\r\n      <MEM>65536</MEM>\r\n      <WINVER>4.10</WINVER>\r\n    </SYSINFO>\r\n"
            "    <DRIVES>\r\n      <DRIVE>\r\n        <DRVNAME>C:</DRVNAME>\r\n        <DRVTYPE type=\"F\"/>\r\n"
            "        <DRVSPACE>500 KB free</DRVSPACE>\r\n      </DRIVE>\r\n    </DRIVES>\r\n"
            "  <SYSFILES>\r\n    <SYSFILE><![CDATA[C:\\a.ini]]></SYSFILE>\r\n  </SYSFILES>\r\n"
            "  <DIRECTORIES>\r\n    <DIRECTORY><![CDATA[C:\\App]]></DIRECTORY>\r\n  </DIRECTORIES>\r\n"
            "  <REGKEYS>\r\n    <REGKEY><![CDATA[HKCU\\Software\\X]]></REGKEY>\r\n  </REGKEYS>\r\n"
            "  <ASSETS>\r\n    <ASSET><![CDATA[C:\\Fonts]]></ASSET>\r\n  </ASSETS>\r\n</ORVALISBCF>\r\n");
  EXPECT_EQ(SnapshotInfoXML("BASE0099.BCF", out.c_str()), 13u);
}

// A snapshot made on one platform path imports on the other: run as two CTest pairs, the export in
// one exe (Windows 98 or NT) and the import in the other, through a package in the build tree.
TEST_F(Packages, CrossPlatformExport) {
  const char* handoff = std::getenv("ORVALIS_PACKAGE_HANDOFF");
  if (!handoff) GTEST_SKIP() << "run by CTest with a hand-off folder";
  const std::string pkg = std::string(handoff) + (OnWindows9x() ? "\\from9x.pkg" : "\\fromnt.pkg");
  DeleteFileA(pkg.c_str());
  ASSERT_EQ(ExportSnapshot("BASE0000.BCF", pkg.c_str()), 0u);
}

TEST_F(Packages, CrossPlatformImport) {
  const char *handoff = std::getenv("ORVALIS_PACKAGE_HANDOFF"), *from = std::getenv("ORVALIS_PACKAGE_FROM");
  if (!handoff || !from) GTEST_SKIP() << "run by CTest after the other platform's export";
  const std::string pkg = std::string(handoff) + "\\from" + from + ".pkg";
  ASSERT_TRUE(FileExists(pkg)) << pkg;
  ASSERT_EQ(ImportSnapshot(pkg.c_str(), nullptr), 0u);
  const std::string report = box_.file("v.txt");
  EXPECT_EQ(VerifySnapshot("BASE0001.BCF", report.c_str()), 0u) << ReadWholeFile(report);
  // Whichever backup the other platform made came along.
  const std::string text = ReadWholeFile(report);
  EXPECT_NE(text.find(std::string(from) == "9x" ? " SDAT" : "registry save folder NT"), std::string::npos) << text;
  EXPECT_NE(Sections("BASE0001.BCF").find("Registry"), std::string::npos);
}

}  // namespace
