// Snapshot packages end to end under Wine: export, delete, import and compare; importing twice;
// damaged and hostile packages refused with nothing left behind; verify finding one flipped byte
// in each kind of companion and a missing one.
#undef _WIN32_WINNT
#define _WIN32_WINNT 0x0600  // RegDeleteTreeA
#include <windows.h>

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>

#include "compress/coder_mem.h"
#include "compress/crc32.h"
#include "compress/implode.h"
#include "exports/exports.h"
#include "tests/support/engine_sandbox.h"

using orvalis_test::EngineSandbox;
using orvalis_test::FileExists;
using orvalis_test::ListDir;
using orvalis_test::ReadWholeFile;
using orvalis_test::WriteWholeFile;

namespace {

std::string Le32(uint32_t v) {
  std::string s(4, '\0');
  for (int i = 0; i < 4; ++i) s[i] = static_cast<char>(v >> (8 * i));
  return s;
}

// A package made by hand, so that names and framing a writer of ours never produces can be tried.
struct Entry {
  uint8_t kind;
  std::string folder, name, data;
};
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
    std::random_device rd;
    key_ = "Software\\OrvalisTest\\pkg" + std::to_string(rd());
    HKEY k;
    RegCreateKeyExA(HKEY_CURRENT_USER, key_.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, nullptr);
    RegSetValueExA(k, "v", 0, REG_SZ, reinterpret_cast<const BYTE*>("one"), 4);
    RegCloseKey(k);
    for (const char* d : {"NIMBRA", "w", "fonts", "other"}) CreateDirectoryA(box_.file(d).c_str(), nullptr);
    box_.CopyFromBin("TAMBRELL.DLL");
    WriteWholeFile(box_.file("w\\app.ini"), "[Main]\r\nColor=blue\r\n");
    WriteWholeFile(box_.file("fonts\\a.ttf"), std::string(5000, 'a'));
    WriteWholeFile(box_.file("P.GCF"), "packed\n[GROUPFILES_START]\n" + box_.file("w\\app.ini") +
                                           "\n[GROUPFILES_END]\n[GROUPDIRS_START]\n" + box_.file("w") +
                                           "\n[GROUPDIRS_END]\n[GROUPREGKEYS_START]\nHKCU\\" + key_ +
                                           "\n[GROUPREGKEYS_END]\n[GROUPASSET_START]\n" + box_.file("fonts") +
                                           ",0,8192\n[GROUPASSET_END]\n");
    ASSERT_EQ(CreateSnapshotFromSpecifiedProfile("P.GCF", "to move"), 0u);
    pkg_ = box_.file("other\\move.pkg");
  }
  void TearDown() override { RegDeleteTreeA(HKEY_CURRENT_USER, key_.c_str()); }
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
  std::string key_, pkg_;
};

TEST_F(Packages, ExportDeleteImportComparesEqualAndImportsTwice) {
  // Changes since the snapshot, so that the comparisons have something to show.
  WriteWholeFile(box_.file("w\\app.ini"), "[Main]\r\nColor=red\r\n");
  WriteWholeFile(box_.file("fonts\\a.ttf"), "short");
  const std::string before = Sections("BASE0000.BCF");
  ASSERT_EQ(ExportSnapshot("BASE0000.BCF", pkg_.c_str()), 0u);
  ASSERT_EQ(DeleteSnapshot("BASE0000.BCF"), 0u);
  ASSERT_EQ(ImportSnapshot(pkg_.c_str(), nullptr), 0u);
  ASSERT_TRUE(FileExists(box_.file("BASE0000.BCF")));
  EXPECT_EQ(Sections("BASE0000.BCF"), before);
  const std::string info = box_.file("i.xml");
  ASSERT_EQ(SnapshotInfoXML("BASE0000.BCF", info.c_str()), 0u);
  EXPECT_NE(ReadWholeFile(info).find("<FLAGS><![CDATA[Imported]]></FLAGS>"), std::string::npos) << ReadWholeFile(info);
  // A second import is a second snapshot with companions of its own; the first is untouched.
  ASSERT_EQ(ImportSnapshot(pkg_.c_str(), nullptr), 0u);
  ASSERT_TRUE(FileExists(box_.file("BASE0001.BCF")));
  EXPECT_EQ(Sections("BASE0001.BCF"), before);
  ASSERT_EQ(DeleteSnapshot("BASE0000.BCF"), 0u);
  EXPECT_EQ(Sections("BASE0001.BCF"), before);
  // Both verify; the package too.
  const std::string report = box_.file("v.txt");
  EXPECT_EQ(VerifySnapshot("BASE0001.BCF", report.c_str()), 0u) << ReadWholeFile(report);
  EXPECT_EQ(VerifySnapshot(pkg_.c_str(), report.c_str()), 0u) << ReadWholeFile(report);
}

TEST_F(Packages, DamagedAndHostilePackagesLeaveNothingBehind) {
  ASSERT_EQ(ExportSnapshot("BASE0000.BCF", pkg_.c_str()), 0u);
  const std::string good = ReadWholeFile(pkg_);
  const std::string index = "FormatVersion=6\nd\n[FILEINFO_START]\nC:\\a.ini,X0000.BSE,1,0\n[FILEINFO_END]\n";
  auto flip = [&](size_t at) {
    std::string p = good;
    p[at] = static_cast<char>(p[at] ^ 0x20);
    return p;
  };
  std::string wrongCrc = Package({{1, "", "BASE0000.BCF", index}, {2, "", "X0000.BSE", "copy"}});
  wrongCrc[wrongCrc.size() - 10] ^= 1;  // inside the last entry's data; the trailer no longer matches either
  const struct {
    const char* what;
    std::string bytes;
  } rows[] = {
      {"empty", ""},
      {"truncated", good.substr(0, good.size() / 2)},
      {"last byte missing", good.substr(0, good.size() - 1)},
      {"flipped byte in the middle", flip(good.size() / 2)},
      {"flipped byte in the magic", flip(2)},
      {"wrong CRC", wrongCrc},
      {"foreign", "PK\x03\x04 this is a zip, not a package of ours"},
      {"two index files", Package({{1, "", "BASE0000.BCF", index}, {1, "", "BASE0001.BCF", index}})},
      {"folder part", Package({{1, "", "BASE0000.BCF", index}, {2, "", "sub\\X0000.BSE", "x"}})},
      {"dot dot", Package({{1, "", "BASE0000.BCF", index}, {2, "", "..", "x"}})},
      {"drive", Package({{1, "", "BASE0000.BCF", index}, {2, "", "C:X0000.BSE", "x"}})},
      {"CON", Package({{1, "", "BASE0000.BCF", index}, {2, "", "CON", "x"}})},
      {"nul with an extension", Package({{1, "", "BASE0000.BCF", index}, {2, "", "nul.txt", "x"}})},
      {"COM1", Package({{1, "", "BASE0000.BCF", index}, {2, "", "COM1.BSE", "x"}})},
      {"LPT1", Package({{1, "", "BASE0000.BCF", index}, {2, "", "lpt1", "x"}})},
      {"folder named up", Package({{1, "", "BASE0000.BCF", index}, {3, "..", "k.sav", "x"}})},
  };
  const std::set<std::string> before = Files();
  for (const auto& r : rows) {
    WriteWholeFile(pkg_, r.bytes);
    EXPECT_EQ(ImportSnapshot(pkg_.c_str(), nullptr), 13u) << r.what;
    EXPECT_EQ(Files(), before) << r.what;
  }
  EXPECT_EQ(ImportSnapshot(box_.file("other\\none.pkg").c_str(), nullptr), 2u);
}

TEST_F(Packages, VerifyFindsAFlippedByteInEachKindOfCompanionAndAMissingOne) {
  const std::string report = box_.file("v.txt");
  ASSERT_EQ(VerifySnapshot("BASE0000.BCF", report.c_str()), 0u) << ReadWholeFile(report);
  for (const char* prefix : {"DIR", "AST", "REG"}) {
    std::string name;
    for (const std::string& n : ListDir(box_.file("NIMBRA")))
      if (n.rfind(prefix, 0) == 0 && !ReadWholeFile(box_.file("NIMBRA\\" + n)).empty()) name = n;
    ASSERT_NE(name, "") << prefix;
    const std::string path = box_.file("NIMBRA\\" + name);
    const std::string good = ReadWholeFile(path);
    std::string bad = good;
    bad[bad.size() / 2] ^= 0x01;
    WriteWholeFile(path, bad);
    EXPECT_EQ(VerifySnapshot("BASE0000.BCF", report.c_str()), 13u) << prefix << "\n" << ReadWholeFile(report);
    EXPECT_NE(ReadWholeFile(report).find("DAMAGED"), std::string::npos) << prefix;
    WriteWholeFile(path, good);
  }
  DeleteFileA(box_.file("NIMBRA\\app0000.BSE").c_str());
  EXPECT_EQ(VerifySnapshot("BASE0000.BCF", report.c_str()), 13u);
  EXPECT_NE(ReadWholeFile(report).find("app0000.BSE: missing"), std::string::npos) << ReadWholeFile(report);
  EXPECT_EQ(VerifySnapshot("BASE0009.BCF", report.c_str()), 2u);
}

}  // namespace
