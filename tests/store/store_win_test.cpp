// The snapshot store and catalogue on a real (Wine) file system: unique names, loading, the
// locale's dates, the list document, deleting with companions, renaming.
#include <cstdlib>
#include <cstring>

#include "base/datetext.h"
#include "engine/sys.h"
#include "exports/exports.h"
#include "store/store_win.h"
#include "tests/support/engine_sandbox.h"

using namespace orvalis;
using namespace orvalis_test;

namespace {

DWORD WINAPI EverythingExists(LPCSTR path) {
  // The folder itself answers as a folder, every candidate as a file.
  return std::string(path).find("BASE") == std::string::npos ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_NORMAL;
}
BOOL WINAPI NoFolderCanBeMade(LPCSTR, LPSECURITY_ATTRIBUTES) { return FALSE; }

// A full counter and paths too long for a buffer fail, leaving the name untouched.
TEST(UniqueName, FilesAndFoldersCountUpAndAreReserved) {
  EngineSandbox box;
  const std::pair<const char*, const char*> files[] = {{"BASE", "BASE0000.BCF"}, {"BASE", "BASE0001.BCF"},
      {"SYSTEM", "SYST0000.BSE"}, {"WIN", "WIN0000.BSE"}, {"WINFILE", "WINF0000.BSE"}, {"WIN", "WIN0001.BSE"}};
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
  Sys().GetFileAttributesA = EverythingExists;
  std::strcpy(name, "untouched");
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

const char kHead[] = "<?xml version = \"1.0\"?>\r\n<!DOCTYPE SNAPSHOTLIST SYSTEM \"snaplist.dtd\">\r\n<SNAPSHOTLIST>\r\n";

TEST(Catalogue, ListDocumentRenamingDeletingAndLoading) {
  EngineSandbox box;
  box.CaptureMessageBoxes();
  EXPECT_EQ(GetSnapshotList(box.file("none").c_str(), "l.xml"), 110u);  // output cannot be opened
  ASSERT_EQ(GetSnapshotList(box.dir().c_str(), "l.xml"), 0u);
  EXPECT_EQ(ReadWholeFile(box.file("l.xml")), std::string(kHead) + "</SNAPSHOTLIST>\r\n");
  // 30 May 1999 13:37:50 packed; the locale of the test run is month-day-year with "/".
  WriteWholeFile(box.file("BASE0000.BCF"), "FormatVersion=6\nFish & <chips>\n[TIMEDATE_START]\n650013881\n[TIMEDATE_END]\n");
  WriteWholeFile(box.file("BASE0001.BCF"), "");  // the reader rejects it: left out
  ASSERT_EQ(GetSnapshotList((box.dir() + "\\").c_str(), "l.xml"), 0u);
  EXPECT_EQ(ReadWholeFile(box.file("l.xml")),
            std::string(kHead) + "  <SNAPSHOT>\r\n    <DESCRIPTION>Fish & <chips></DESCRIPTION>\r\n"
                                 "    <TIMESTAMP>05/30/1999 13:37:25</TIMESTAMP>\r\n    <FILE>BASE0000.BCF</FILE>\r\n"
                                 "  </SNAPSHOT>\r\n</SNAPSHOTLIST>\r\n");
  // Renaming rewrites the description and keeps the file time; a version 0 file has no version line.
  const std::string path = box.file("BASE0000.BCF");
  WriteWholeFile(path, "FormatVersion=6\nold words\n[FLAGS_START]\n4096\n[FLAGS_END]\n");
  const SYSTEMTIME st = {1999, 5, 0, 30, 13, 37, 50, 0};
  FILETIME past;
  SystemTimeToFileTime(&st, &past);
  HANDLE h = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  SetFileTime(h, nullptr, nullptr, &past), CloseHandle(h);
  ASSERT_EQ(RenameSnapshot("BASE0000.BCF", "new words"), 0u);
  EXPECT_EQ(ReadWholeFile(path), "FormatVersion=6\r\nnew words\r\n[FLAGS_START]\r\n4096\r\n[FLAGS_END]\r\n");
  WIN32_FILE_ATTRIBUTE_DATA a;
  GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &a);
  EXPECT_EQ(CompareFileTime(&a.ftLastWriteTime, &past), 0);
  WriteWholeFile(box.file("OLD.BCF"), "Version 0 description\n[DRIVES_START]\n[DRIVES_END]\n");
  ASSERT_EQ(RenameSnapshot("OLD.BCF", "renamed"), 0u);
  EXPECT_EQ(ReadWholeFile(box.file("OLD.BCF")), "renamed\r\n[DRIVES_START]\r\n[DRIVES_END]\r\n");
  EXPECT_EQ(RenameSnapshot("BASE0001.BCF", "x"), 0xFFFFFFFFu);  // empty
  EXPECT_EQ(RenameSnapshot("MISSING.BCF", "x"), 0xFFFFFFFFu);
  // Deleting takes every companion, even without the asset library, and nothing else.
  box.RemoveCompanionLibraries();
  box.MakeDirs({"NIMBRA", "NIMBRA\\NT0000"});
  for (const char* f : {"NIMBRA\\WIN0000.BSE", "NIMBRA\\DIR0000.OVD", "NIMBRA\\REG0000.OVR", "NIMBRA\\NT0000\\k.sav",
                        "NIMBRA\\AST0000.OVA", "NIMBRA\\OTHER.BSE"})
    WriteWholeFile(box.file(f), "x");
  WriteWholeFile(box.file("BASE0000.BCF"),
                 "FormatVersion=6\nd\n[REGINFO_START]\nHKLM\\S,REG0000.OVR,1024,0\n[REGINFO_END]\n"
                 "[REGNT_START]\nHKLM\\S,NT0000\n[REGNT_END]\n[ASSETINFO_START]\nA,AST0000.OVA,1,0\n[ASSETINFO_END]\n"
                 "[DIRINFO_START]\nC:\\D,DIR0000.OVD,1,5\n[DIRINFO_END]\n"
                 "[FILEINFO_START]\nC:\\WIN.INI,WIN0000.BSE,1,1\nC:\\GONE.INI,GONE0000.BSE,1,1\n[FILEINFO_END]\n");
  ASSERT_EQ(DeleteSnapshot("BASE0000.BCF"), 0u);
  EXPECT_FALSE(FileExists(box.file("BASE0000.BCF")));
  for (const char* f : {"NIMBRA\\WIN0000.BSE", "NIMBRA\\DIR0000.OVD", "NIMBRA\\REG0000.OVR", "NIMBRA\\NT0000"})
    EXPECT_FALSE(FileExists(box.file(f))) << f;
  EXPECT_TRUE(FileExists(box.file("NIMBRA\\OTHER.BSE")));  // another snapshot's file
  EXPECT_TRUE(FileExists(box.file("NIMBRA\\AST0000.OVA")));  // only the asset library may remove it
  EXPECT_EQ(DeleteSnapshot("BASE0009.BCF"), 0xFFFFFFFFu);
  // Loading takes the file time when the stamp is missing.
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

}  // namespace
