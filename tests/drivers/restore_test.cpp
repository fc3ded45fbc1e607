// Restore end to end under Wine, against real files, the real registry and real asset folders:
// snapshot, change everything, restore, and a second snapshot compares equal to the first through
// the report exports; the undo base holds the changed state and restoring it brings that back.
// The same binary runs twice: as NT (saved keys) and in an exe Wine reports Windows 98 to (key
// trees written back, USER.DAT and SYSTEM.DAT copied from the Windows folder the test gives).
#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "exports/exports.h"
#include "tests/support/engine_sandbox.h"

using orvalis_test::EngineSandbox;
using orvalis_test::FileExists;
using orvalis_test::ReadWholeFile;
using orvalis_test::TestKey;
using orvalis_test::WriteWholeFile;

namespace {

const std::string kCount("\x05\0\0\0", 4), kBin("\x01\x00\x02", 3), kFont(3000, 'a');

class Restore : public ::testing::Test {
 protected:
  void SetUp() override {
    box_.MakeDirs({"NIMBRA", "app", "fonts", "fonts\\sub", "windows"});
    WriteWholeFile(box_.file("windows\\USER.DAT"), "user hive");
    WriteWholeFile(box_.file("windows\\SYSTEM.DAT"), "system hive");
    box_.SetWindowsFolder(box_.file("windows"));
    WriteWholeFile(File("app.ini"), "[Main]\r\nColor=blue\r\n");
    WriteWholeFile(File("locked.txt"), "do not touch\r\n");
    SetFileAttributesA(File("locked.txt").c_str(), FILE_ATTRIBUTE_READONLY);
    WriteWholeFile(box_.file("fonts\\a.ttf"), kFont);
    WriteWholeFile(box_.file("fonts\\b.ttf"), "bbbb");
    WriteWholeFile(box_.file("fonts\\sub\\c.ttf"), "cccc");
    key_.Set("", "Name", "Orvalis");
    key_.Set("", "Count", kCount, REG_DWORD);
    key_.Set("Colors", "Back", "blue");
    key_.Set("Colors\\Deep", "Bin", kBin, REG_BINARY);
    WriteWholeFile(box_.file("P.GCF"), "Everything\n[GROUPFILES_START]\n" + File("app.ini") + "\n" + File("locked.txt") +
                                           "\n[GROUPFILES_END]\n[GROUPREGKEYS_START]\nHKEY_CURRENT_USER\\" +
                                           key_.path() + "\n[GROUPREGKEYS_END]\n[GROUPASSET_START]\n" +
                                           box_.file("fonts") + ",0,12288\n[GROUPASSET_END]\n");
  }
  void TearDown() override { SetFileAttributesA(File("locked.txt").c_str(), FILE_ATTRIBUTE_NORMAL); }
  std::string File(const char* name) { return box_.file(std::string("app\\") + name); }
  // Files, values and assets as the test reads them, one line each.
  std::string State() {
    std::string s;
    for (const char* f : {"app.ini", "locked.txt"}) s += std::string(f) + "=" + ReadWholeFile(File(f)) + "|";
    s += (GetFileAttributesA(File("locked.txt").c_str()) & FILE_ATTRIBUTE_READONLY) ? "read-only|" : "writable|";
    const char* values[][2] = {{"", "Name"}, {"", "Count"}, {"", "Added"}, {"Colors", "Back"},
                               {"Colors\\Deep", "Bin"}, {"NewSub", "X"}};
    for (auto& v : values) s += std::string(v[1]) + "=" + key_.Get(v[0], v[1]) + "|";
    for (const char* f : {"a.ttf", "sub\\c.ttf", "new.ttf"})
      s += std::string(f) + "=" + (FileExists(box_.file(std::string("fonts\\") + f))
                                       ? ReadWholeFile(box_.file(std::string("fonts\\") + f)) : "<none>") + "|";
    return s;
  }
  void Change() {
    SetFileAttributesA(File("locked.txt").c_str(), FILE_ATTRIBUTE_NORMAL);
    WriteWholeFile(File("locked.txt"), "touched\r\n");
    SetFileAttributesA(File("locked.txt").c_str(), FILE_ATTRIBUTE_READONLY);
    DeleteFileA(File("app.ini").c_str());
    key_.Set("", "Name", "Changed");
    key_.Set("", "Added", "new");
    key_.Delete("", "Count");
    key_.Delete("Colors");
    key_.Set("NewSub", "X", "y");
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
    std::string out, text = orvalis_test::NoCr(ReadWholeFile(report));
    for (size_t at = 0, end; (end = text.find('\n', at)) != std::string::npos; at = end + 1)
      for (const char* m : {" +", " -", "<-", "->", "**"})
        if (text.compare(at, 2, m) == 0) out += text.substr(at, end + 1 - at);
    return out;
  }

  EngineSandbox box_;
  TestKey key_{"restore"};
};

TEST_F(Restore, PutsEverythingBackAndItsUndoBaseTakesItBackAgain) {
  ASSERT_EQ(CreateSnapshotFromSpecifiedProfile("P.GCF", "before"), 0u);  // BASE0000
  ASSERT_TRUE(FileExists(box_.file("BASE0000.BCF"))) << box_.Log();
  const std::string original = State();
  Change();
  const std::string changed = State();
  EXPECT_NE(ChangeLines("BASE0000.BCF", "").find("Changed"), std::string::npos);  // the report sees the changes

  ASSERT_EQ(RestoreFromSpecifiedSnapshot(box_.file("BASE0000.BCF").c_str()), 0u);
  EXPECT_NE(box_.Log().find("restore of reg keys went OK\nrestore of assets went OK\nRestore was successful\n"),
            std::string::npos) << box_.Log();
  EXPECT_EQ(box_.UndoBase(), "BASE0001.BCF");
  // Byte for byte and value for value, and the read-only file is still read-only.
  EXPECT_EQ(State(), original);
  // A new snapshot compares equal to the first in files, registry and assets.
  ASSERT_EQ(CreateSnapshotFromSpecifiedProfile("P.GCF", "after"), 0u);  // BASE0002
  EXPECT_EQ(ChangeLines("BASE0000.BCF", "BASE0002.BCF"), "");

  // The undo base held the changed state: restoring it brings that back (system files are copied
  // back, never deleted, so app.ini stays as the first restore put it), and leaves an undo base of
  // its own in its place.
  ASSERT_EQ(RestoreFromSpecifiedSnapshot(box_.file("BASE0001.BCF").c_str()), 0u);
  EXPECT_EQ(State(), "app.ini=[Main]\r\nColor=blue\r\n|" + changed.substr(changed.find("locked.txt=")));
  EXPECT_FALSE(FileExists(box_.file("BASE0001.BCF")));  // the restored undo base has done its work
  const std::string undo = box_.UndoBase();
  ASSERT_NE(undo, "");
  EXPECT_TRUE(FileExists(box_.file(undo)));
  // ... and that undo base undoes it again.
  ASSERT_EQ(RestoreFromSpecifiedSnapshot(box_.file(undo).c_str()), 0u);
  EXPECT_EQ(State(), original);
}

}  // namespace
