// The snapshot store on a real (Wine) file system: unique names, loading, the locale's dates.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "base/datetext.h"
#include "engine/sys.h"
#include "store/store_win.h"
#include "tests/support/engine_sandbox.h"

using namespace orvalis;
using orvalis_test::EngineSandbox;
using orvalis_test::FileExists;
using orvalis_test::WriteWholeFile;

namespace {

TEST(UniqueName, FilesAndFoldersCountUpAndAreReserved) {
  EngineSandbox box;
  const std::pair<const char*, const char*> files[] = {{"BASE", "BASE0000.BCF"}, {"BASE", "BASE0001.BCF"},
                                                       {"SYSTEM", "SYST0000.BSE"}, {"WIN", "WIN0000.BSE"},
                                                       {"WINFILE", "WINF0000.BSE"}, {"WIN", "WIN0001.BSE"}};
  char name[MAX_PATH];
  for (auto [prefix, expected] : files) {
    ASSERT_EQ(MakeUniqueFileName(box.dir().c_str(), prefix, expected + std::strlen(expected) - 3, name), 1);
    EXPECT_STREQ(name, expected);
    EXPECT_TRUE(FileExists(box.file(name)));  // reserved empty
  }
  EXPECT_EQ(MakeUniqueFileName((box.dir() + "\\").c_str(), "BASE", "BCF", name), 1);  // trailing backslash
  EXPECT_STREQ(name, "BASE0002.BCF");
  EXPECT_EQ(MakeUniqueFileName(box.file("missing").c_str(), "BASE", "BCF", name), 0);
  // Folders skip a file of the same name.
  WriteWholeFile(box.file("NT0001"), "a file in the way");
  for (const char* expected : {"NT0000", "NT0002"}) {
    ASSERT_EQ(MakeUniqueFolderName(box.dir().c_str(), "NT", name), 1);
    EXPECT_STREQ(name, expected);
  }
}

DWORD WINAPI EverythingExists(LPCSTR path) {
  // The folder itself answers as a folder, every candidate as a file.
  return std::string(path).find("BASE") == std::string::npos ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_NORMAL;
}
BOOL WINAPI NoFolderCanBeMade(LPCSTR, LPSECURITY_ATTRIBUTES) { return FALSE; }

TEST(UniqueName, FullCounterAndPathsTooLongForABufferFail) {
  EngineSandbox box;
  Sys().GetFileAttributesA = EverythingExists;
  char name[MAX_PATH] = "untouched";
  EXPECT_EQ(MakeUniqueFileName(box.dir().c_str(), "BASE", "BCF", name), 0);
  EXPECT_STREQ(name, "untouched");
  box.RestoreSeam();
  Sys().CreateDirectoryA = NoFolderCanBeMade;
  EXPECT_EQ(MakeUniqueFolderName(box.dir().c_str(), "NT", name), 0);
  box.RestoreSeam();
  std::string deep = box.dir();
  while (deep.size() < 240) CreateDirectoryA((deep += "\\ddddddddddddddddddd").c_str(), nullptr);
  EXPECT_EQ(MakeUniqueFileName(deep.c_str(), "BASE", "BCF", name), 0);
}

TEST(LoadSnapshot, TakesTheFileTimeWhenTheStampIsMissing) {
  EngineSandbox box;
  std::string path = box.file("BASE0000.BCF");
  WriteWholeFile(path, "FormatVersion=6\nno time\n[TIMEDATE_START]\n0\n[TIMEDATE_END]\n");
  SnapshotRecord* rec = NewSnapshotRecord();
  ASSERT_EQ(LoadSnapshot(path.c_str(), rec), 0);
  EXPECT_NE(rec->time, 0u);
  FreeSnapshotRecord(rec);
  char folder[MAX_PATH];
  EXPECT_TRUE(CompanionFolder(path.c_str(), folder));
  EXPECT_EQ(std::string(folder), box.dir() + "\\NIMBRA\\");
  EXPECT_FALSE(CompanionFolder("BASE0000.BCF", folder));
}

// The dates as the system's locale shows them: the test is run once per locale (LC_ALL set by
// CTest) and told the expected text through ORVALIS_EXPECT_DATE.
TEST(WindowsLocale, DatesFollowTheSystemLocale) {
  EngineSandbox box;  // installs the Windows locale provider
  ResetDateLocaleCache();
  const char* expect = std::getenv("ORVALIS_EXPECT_DATE");
  if (!expect) GTEST_SKIP() << "run by CTest with a locale";
  char out[64];
  FormatPackedDateTime(PackDosDateTime({1999, 5, 0, 30, 13, 37, 51}), out);
  EXPECT_STREQ(out, expect);
}

}  // namespace
