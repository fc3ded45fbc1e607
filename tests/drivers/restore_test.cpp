// RegDeleteTreeA needs the Vista headers; the engine itself stays on the XP-level API.
#undef _WIN32_WINNT
#define _WIN32_WINNT 0x0600
// Restore end to end under Wine, against real files, the real registry and real asset folders:
// snapshot, change everything, restore, and a second snapshot compares equal to the first through
// the report exports; the undo base holds the changed state and restoring it brings that back.
// The same binary runs twice: as NT (saved keys) and in an exe Wine reports Windows 98 to (key
// trees written back, USER.DAT and SYSTEM.DAT copied from the Windows folder the test gives).
#include <windows.h>

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "engine/log.h"
#include "engine/settings.h"
#include "engine/sys.h"
#include "exports/exports.h"
#include "tests/support/engine_sandbox.h"

using namespace orvalis;
using orvalis_test::EngineSandbox;
using orvalis_test::FileExists;
using orvalis_test::ReadWholeFile;
using orvalis_test::WriteWholeFile;

namespace {


class Restore : public ::testing::Test {
 protected:
  void SetUp() override {
    std::random_device rd;
    key_ = "Software\\OrvalisTest\\restore" + std::to_string(rd());
    CreateDirectoryA(box_.file("NIMBRA").c_str(), nullptr);
    CreateDirectoryA(box_.file("app").c_str(), nullptr);
    CreateDirectoryA(box_.file("fonts").c_str(), nullptr);
    CreateDirectoryA(box_.file("fonts\\sub").c_str(), nullptr);
    CreateDirectoryA(box_.file("windows").c_str(), nullptr);
    WriteWholeFile(box_.file("windows\\USER.DAT"), "user hive");
    WriteWholeFile(box_.file("windows\\SYSTEM.DAT"), "system hive");
    box_.SetWindowsFolder(box_.file("windows"));
    WriteWholeFile(File("app.ini"), "[Main]\r\nColor=blue\r\n");
    WriteWholeFile(File("locked.txt"), "do not touch\r\n");
    SetFileAttributesA(File("locked.txt").c_str(), FILE_ATTRIBUTE_READONLY);
    WriteWholeFile(box_.file("fonts\\a.ttf"), std::string(3000, 'a'));
    WriteWholeFile(box_.file("fonts\\b.ttf"), "bbbb");
    WriteWholeFile(box_.file("fonts\\sub\\c.ttf"), "cccc");
    SetKey("", "Name", REG_SZ, "Orvalis");
    SetKey("", "Count", REG_DWORD, std::string("\x05\0\0\0", 4));
    SetKey("Colors", "Back", REG_SZ, "blue");
    SetKey("Colors\\Deep", "Bin", REG_BINARY, std::string("\x01\x00\x02", 3));
    WriteWholeFile(box_.file("P.GCF"), "Everything\n[GROUPFILES_START]\n" + File("app.ini") + "\n" + File("locked.txt") +
                                           "\n[GROUPFILES_END]\n[GROUPREGKEYS_START]\nHKEY_CURRENT_USER\\" + key_ +
                                           "\n[GROUPREGKEYS_END]\n[GROUPASSET_START]\n" + box_.file("fonts") +
                                           ",0,12288\n[GROUPASSET_END]\n");
  }
  void TearDown() override {
    SetFileAttributesA(File("locked.txt").c_str(), FILE_ATTRIBUTE_NORMAL);
    RegDeleteTreeA(HKEY_CURRENT_USER, key_.c_str());
  }
  std::string File(const char* name) { return box_.file(std::string("app\\") + name); }
  void SetKey(const std::string& sub, const char* name, DWORD type, const std::string& data) {
    HKEY k;
    const std::string path = sub.empty() ? key_ : key_ + "\\" + sub;
    ASSERT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, nullptr), 0);
    RegSetValueExA(k, name, 0, type, reinterpret_cast<const BYTE*>(data.data()),
                   static_cast<DWORD>(data.size() + (type == REG_SZ ? 1 : 0)));
    RegCloseKey(k);
  }
  std::string GetValue(const std::string& sub, const char* name) {
    HKEY k;
    const std::string path = sub.empty() ? key_ : key_ + "\\" + sub;
    if (RegOpenKeyExA(HKEY_CURRENT_USER, path.c_str(), 0, KEY_READ, &k) != 0) return "<no key>";
    char buf[256];
    DWORD size = sizeof buf, type = 0;
    LONG rc = RegQueryValueExA(k, name, nullptr, &type, reinterpret_cast<BYTE*>(buf), &size);
    RegCloseKey(k);
    if (rc != 0) return "<none>";
    return type == REG_SZ ? std::string(buf) : std::string(buf, size);
  }
  void Change() {
    SetFileAttributesA(File("locked.txt").c_str(), FILE_ATTRIBUTE_NORMAL);
    WriteWholeFile(File("locked.txt"), "touched\r\n");
    SetFileAttributesA(File("locked.txt").c_str(), FILE_ATTRIBUTE_READONLY);
    DeleteFileA(File("app.ini").c_str());
    SetKey("", "Name", REG_SZ, "Changed");
    SetKey("", "Added", REG_SZ, "new");
    HKEY k;
    RegOpenKeyExA(HKEY_CURRENT_USER, key_.c_str(), 0, KEY_ALL_ACCESS, &k);
    RegDeleteValueA(k, "Count");
    RegCloseKey(k);
    RegDeleteTreeA(HKEY_CURRENT_USER, (key_ + "\\Colors").c_str());
    SetKey("NewSub", "X", REG_SZ, "y");
    WriteWholeFile(box_.file("fonts\\a.ttf"), "changed");
    DeleteFileA(box_.file("fonts\\sub\\c.ttf").c_str());
    WriteWholeFile(box_.file("fonts\\new.ttf"), "new font");
  }
  // Every line of a report that marks a change.
  std::string ChangeLines(const std::string& older, const std::string& newer) {
    const std::string report = box_.file("r.log");
    EXPECT_EQ(CreateReportOfFileDifferences(older.c_str(), newer.c_str(), report.c_str(), 0), 0u);
    EXPECT_EQ(CreateReportOfRegistryDifferences(older.c_str(), newer.c_str(), report.c_str(), 1), 0u);
    EXPECT_EQ(CreateReportOfAssetDifferences(older.c_str(), newer.c_str(), report.c_str(), 1), 0u);
    std::string out, line;
    for (char c : ReadWholeFile(report)) {
      if (c == '\r') continue;
      if (c != '\n') {
        line += c;
        continue;
      }
      for (const char* m : {" +", " -", "<-", "->", "**"})
        if (line.rfind(m, 0) == 0) out += line + "\n";
      line.clear();
    }
    return out;
  }
  std::string Undo() {
    char v[MAX_PATH];
    ReadOrvalisString("UNDOBASE", "", v, sizeof v);
    return v;
  }

  EngineSandbox box_;
  std::string key_;
};

TEST_F(Restore, PutsEverythingBackAndItsUndoBaseTakesItBackAgain) {
  ASSERT_EQ(CreateSnapshotFromSpecifiedProfile("P.GCF", "before"), 0u);  // BASE0000
  ASSERT_TRUE(FileExists(box_.file("BASE0000.BCF"))) << ReadWholeFile(box_.file("halvern.log"));
  Change();
  const std::string changed = ChangeLines("BASE0000.BCF", "");
  EXPECT_NE(changed.find("Changed"), std::string::npos) << changed;  // the report sees the changes

  ASSERT_EQ(RestoreFromSpecifiedSnapshot(box_.file("BASE0000.BCF").c_str()), 0u);
  const std::string log = ReadWholeFile(box_.file("halvern.log"));
  EXPECT_NE(log.find("restore of reg keys went OK"), std::string::npos) << log;
  EXPECT_NE(log.find("restore of assets went OK"), std::string::npos) << log;
  EXPECT_NE(log.find("Restore was successful"), std::string::npos) << log;
  EXPECT_EQ(Undo(), "BASE0001.BCF");

  // Byte for byte and value for value, and the read-only file is still read-only.
  EXPECT_EQ(ReadWholeFile(File("app.ini")), "[Main]\r\nColor=blue\r\n");
  EXPECT_EQ(ReadWholeFile(File("locked.txt")), "do not touch\r\n");
  EXPECT_TRUE(GetFileAttributesA(File("locked.txt").c_str()) & FILE_ATTRIBUTE_READONLY);
  EXPECT_EQ(GetValue("", "Name"), "Orvalis");
  EXPECT_EQ(GetValue("", "Count"), std::string("\x05\0\0\0", 4));
  EXPECT_EQ(GetValue("", "Added"), "<none>");
  EXPECT_EQ(GetValue("Colors", "Back"), "blue");
  EXPECT_EQ(GetValue("Colors\\Deep", "Bin"), std::string("\x01\x00\x02", 3));
  EXPECT_EQ(GetValue("NewSub", "X"), "<no key>");
  EXPECT_EQ(ReadWholeFile(box_.file("fonts\\a.ttf")), std::string(3000, 'a'));
  EXPECT_EQ(ReadWholeFile(box_.file("fonts\\sub\\c.ttf")), "cccc");
  EXPECT_FALSE(FileExists(box_.file("fonts\\new.ttf")));

  // A new snapshot compares equal to the first in files, registry and assets.
  ASSERT_EQ(CreateSnapshotFromSpecifiedProfile("P.GCF", "after"), 0u);  // BASE0002
  EXPECT_EQ(ChangeLines("BASE0000.BCF", "BASE0002.BCF"), "");

  // The undo base held the changed state: restoring it brings that back, and leaves an undo
  // base of its own in its place.
  ASSERT_EQ(RestoreFromSpecifiedSnapshot(box_.file("BASE0001.BCF").c_str()), 0u);
  EXPECT_EQ(GetValue("", "Name"), "Changed");
  EXPECT_EQ(GetValue("", "Added"), "new");
  EXPECT_EQ(GetValue("NewSub", "X"), "y");
  EXPECT_EQ(ReadWholeFile(File("locked.txt")), "touched\r\n");
  // (System files are copied back, never deleted: app.ini, absent when the undo base was taken,
  // stays as the first restore put it.)
  EXPECT_EQ(ReadWholeFile(box_.file("fonts\\a.ttf")), "changed");
  EXPECT_TRUE(FileExists(box_.file("fonts\\new.ttf")));
  EXPECT_FALSE(FileExists(box_.file("BASE0001.BCF")));  // the restored undo base has done its work
  const std::string undo = Undo();
  EXPECT_NE(undo, "");
  EXPECT_TRUE(FileExists(box_.file(undo)));
  // ... and that undo base undoes it again.
  ASSERT_EQ(RestoreFromSpecifiedSnapshot(box_.file(undo).c_str()), 0u);
  EXPECT_EQ(GetValue("", "Name"), "Orvalis");
  EXPECT_EQ(ReadWholeFile(File("app.ini")), "[Main]\r\nColor=blue\r\n");
  EXPECT_EQ(ReadWholeFile(box_.file("fonts\\a.ttf")), std::string(3000, 'a'));
}

}  // namespace
