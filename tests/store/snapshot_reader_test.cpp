// Reading snapshot index files of every format version, and bad input.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "store/snapshot.h"
#include "tests/support/test_support.h"

using namespace orvalis;
using orvalis_test::ScratchDir;
using orvalis_test::WriteWholeFile;

namespace {

struct Loaded {
  SnapshotRecord* rec = NewSnapshotRecord();
  int rc = 0;
  ~Loaded() { FreeSnapshotRecord(rec); }
};

void Load(Loaded& l, const std::string& text, bool isNT = true) {
  ScratchDir dir;
  std::string path = dir.file("BASE0000.BCF");
  WriteWholeFile(path, text);
  l.rc = ReadSnapshotFile(path.c_str(), l.rec, isNT);
}

template <typename T>
int Count(const T* e) {
  int n = 0;
  for (; e; e = e->next) ++n;
  return n;
}

const char kVersion6[] =
    "FormatVersion=6\n"
    "Before the driver update\n"
    "[TIMEDATE_START]\n651060909\n[TIMEDATE_END]\n"
    "[FLAGS_START]\n8192\n[FLAGS_END]\n"
    "[OSVERSION_START]\n3325691142\n[OSVERSION_END]\n"
    "[USERNAME_START]\nalice\n[USERNAME_END]\n"
    "[SYSINFO_START]\n1,5\n2,1\n3,65536\n5,262154\n9,GenuineIntel\n16,Pentium II MMX\n[SYSINFO_END]\n"
    "[DRIVES_START]\nA,2,0,0,\nC,3,2097152,1048576,\nN,4,100,50,\\\\server\\share\n[DRIVES_END]\n"
    "[REGINFO_START]\nHKEY_LOCAL_MACHINE\\Software\\A,B,C,REG0000.OVR,1024,0\n[REGINFO_END]\n"
    "[REGNT_START]\nHKLM\\Software\\A,NT0000\nHKLM\\Software\\B,NT0001\n[REGNT_END]\n"
    "[ASSETINFO_START]\nC:\\Fonts\\*.TTF,AST0000.OVA,1,28673\n[ASSETINFO_END]\n"
    "[DIRINFO_START]\nC:\\Program Files\\My, Tool,DIR0000.OVD,1,3735928559\n[DIRINFO_END]\n"
    "[FILEINFO_START]\nC:\\WINDOWS\\WIN.INI,WIN0000.BSE,1,651060909\nC:\\WINDOWS\\SYSTEM.INI,SYST0000.BSE,0,5\n"
    "C:\\a,b\\X.INI,X0000.BSE,1,2\n[FILEINFO_END]\n";

TEST(SnapshotReader, Version6EverySection) {
  Loaded l;
  Load(l, kVersion6);
  ASSERT_EQ(l.rc, 0);
  SnapshotRecord& r = *l.rec;
  EXPECT_STREQ(r.description, "Before the driver update");
  EXPECT_EQ(r.time, 651060909u);
  EXPECT_EQ(r.flags, 0x2000);
  // SYSINFO: six items in file order, texts for 9 and 16.
  std::string items;
  for (const SysInfoItem* i = r.sysInfo; i; i = i->next)
    items += std::to_string(i->item) + "=" + (i->text ? i->text : std::to_string(i->value)) + " ";
  EXPECT_EQ(items, "1=5 2=1 3=65536 5=262154 9=GenuineIntel 16=Pentium II MMX ");
  // DRIVES: field order letter, type, totalKB, freeKB, net name.
  ASSERT_NE(r.drives, nullptr);
  EXPECT_EQ(r.drives[0].type, 2u);
  EXPECT_EQ(r.drives[2].type, 3u);
  EXPECT_EQ(r.drives[2].totalKB, 2097152u);
  EXPECT_EQ(r.drives[2].freeKB, 1048576u);
  EXPECT_STREQ(r.drives[13].netName, "\\\\server\\share");
  EXPECT_EQ(r.drives[1].type, 0u);
  // Right-split records keep commas in their first field.
  ASSERT_EQ(Count(r.regKeys), 1);
  EXPECT_STREQ(r.regKeys->name, "HKEY_LOCAL_MACHINE\\Software\\A,B,C");
  EXPECT_STREQ(r.regKeys->companion, "REG0000.OVR");
  EXPECT_EQ(r.regKeys->first, 1024);
  ASSERT_EQ(Count(r.dirs), 1);
  EXPECT_STREQ(r.dirs->name, "C:\\Program Files\\My, Tool");
  EXPECT_EQ(r.dirs->second, 3735928559u);  // a CRC above 2^31 survives
  EXPECT_EQ(r.assets->first, 1);
  EXPECT_EQ(r.assets->second, 28673u);
  // REGNT: the last record's folder wins.
  ASSERT_NE(r.regBackup, nullptr);
  EXPECT_STREQ(r.regBackup->userName, "NT0001");
  // FILEINFO: a non-zero mark reads as flag 2.
  ASSERT_NE(r.files, nullptr);
  EXPECT_STREQ(r.files->path, "C:\\WINDOWS\\WIN.INI");
  EXPECT_STREQ(r.files->companion, "WIN0000.BSE");
  EXPECT_EQ(r.files->flags, 2);
  EXPECT_EQ(r.files->time, 651060909u);
  ASSERT_EQ(Count(r.files), 3);
  EXPECT_EQ(r.files->next->flags, 0);
  // Split from the left, kept as it is: a comma in the path cuts it there, and the piece taken
  // as the companion is no bare file name, so it is dropped.
  EXPECT_STREQ(r.files->next->next->path, "C:\\a");
  EXPECT_STREQ(r.files->next->next->companion, "");
}

TEST(SnapshotReader, Windows9xReadsRegBackInsteadOfRegNt) {
  Loaded l;
  Load(l,
       "FormatVersion=6\nd\n"
       "[REGNT_START]\nHKLM\\X,NT0000\n[REGNT_END]\n"
       "[REGBACK_START]\nC:\\WINDOWS\\USER.DAT,UDAT0000.CRG,1,305419896\n"
       "C:\\WINDOWS\\SYSTEM.DAT,SDAT0000.CRG,0,0\n[REGBACK_END]\n",
       false);
  ASSERT_EQ(l.rc, 0);
  ASSERT_NE(l.rec->regBackup, nullptr);
  EXPECT_STREQ(l.rec->regBackup->userName, "UDAT0000.CRG");
  EXPECT_EQ(l.rec->regBackup->userCrc, 305419896u);
  EXPECT_STREQ(l.rec->regBackup->systemName, "SDAT0000.CRG");

  Loaded none;  // records naming neither data file are dropped with the backup record
  Load(none, "FormatVersion=6\nd\n[REGBACK_START]\nC:\\X.DAT,A,0,0\n[REGBACK_END]\n", false);
  EXPECT_EQ(none.rec->regBackup, nullptr);
}

// Version 0 has no version line and no FILEINFO markers: every line after [DRIVES_END] with four
// fields is a file record, the ASSETINFO one included. REGINFO has two fields before version 2,
// DIRINFO numbers from version 3, ASSETINFO numbers count from 2; drive sizes were bytes before 4.
TEST(SnapshotReader, VersionRulesForOldFiles) {
  struct Row {
    int version;
    int regFirst;
    int assetFirst;
    uint32_t dirSecond;
    uint32_t driveKB;
    int files;
  } rows[] = {{0, 0, 0, 0, 1, 2}, {1, 0, 0, 0, 1, 0}, {3, 1024, 1, 77, 1, 0}, {4, 1024, 1, 77, 1024, 0},
              {6, 1024, 1, 77, 1024, 0}};
  for (const Row& r : rows) {
    SCOPED_TRACE(r.version);
    std::string reg = r.version <= 1 ? "HKLM\\S,REG0000.OVR\n" : "HKLM\\S,REG0000.OVR,1024,0\n";
    std::string dir = r.version >= 3 ? "C:\\D,DIR0000.OVD,1,77\n" : "C:\\D,DIR0000.OVD\n";
    Loaded l;
    Load(l, (r.version ? "FormatVersion=" + std::to_string(r.version) + "\n" : "") +
                "desc\n[DRIVES_START]\nc,3,1024,1024,\n[DRIVES_END]\nC:\\W.INI,W0000.BSE,1,5\n[REGINFO_START]\n" + reg +
                "[REGINFO_END]\n[ASSETINFO_START]\nA,AST0000.OVA,1,2\n[ASSETINFO_END]\n[DIRINFO_START]\n" + dir +
                "[DIRINFO_END]\n");
    ASSERT_EQ(l.rc, 0);
    EXPECT_STREQ(l.rec->description, "desc");
    ASSERT_NE(l.rec->regKeys, nullptr);
    EXPECT_STREQ(l.rec->regKeys->companion, "REG0000.OVR");
    EXPECT_EQ(l.rec->regKeys->first, r.regFirst);
    EXPECT_EQ(l.rec->assets->first, r.assetFirst);
    ASSERT_NE(l.rec->dirs, nullptr);
    EXPECT_STREQ(l.rec->dirs->companion, "DIR0000.OVD");
    EXPECT_EQ(l.rec->dirs->second, r.dirSecond);
    EXPECT_EQ(l.rec->drives[2].totalKB, r.driveKB);  // the lower-case letter is drive C
    EXPECT_EQ(l.rec->drives[2].freeKB, r.driveKB);
    ASSERT_EQ(Count(l.rec->files), r.files);
    if (r.files) {
      EXPECT_STREQ(l.rec->files->path, "C:\\W.INI");
      EXPECT_EQ(l.rec->files->flags, 2);
    }
  }
}

TEST(SnapshotReader, MarkersMatchWithoutRegardToCaseButWholeLine) {
  Loaded l;
  Load(l,
       "FormatVersion=6\nd\n[fileinfo_start]\nC:\\A.INI,A0000.BSE,0,1\n[FileInfo_End]\n"
       "[FLAGS_START] \n4\n[FLAGS_END]\n");
  ASSERT_EQ(l.rc, 0);
  ASSERT_NE(l.rec->files, nullptr);
  EXPECT_EQ(l.rec->files->next, nullptr);
  EXPECT_EQ(l.rec->flags, 0);  // "[FLAGS_START] " with a blank is not a marker
}

// None of these holds a whole record: all are dropped (overruns are left to the sanitizers).
TEST(SnapshotReader, BadInputNeverCrashes) {
  std::string longLine(3000, 'x');
  std::string binary;
  for (int i = 0; i < 4096; ++i) binary.push_back(static_cast<char>((i * 7919) & 0xFF));
  struct Row {
    const char* name;
    std::string text;
    int rc;
  } rows[] = {
      {"empty file", "", -1},
      {"version line only", "FormatVersion=6\n", -1},
      {"truncated section", "FormatVersion=6\nd\n[DRIVES_START]\nC,3,1", 0},
      {"missing fields", "FormatVersion=6\nd\n[FILEINFO_START]\nC:\\A.INI,X\nC:\\B.INI\n[FILEINFO_END]\n"
                         "[REGINFO_START]\nnocomma\n[REGINFO_END]\n[SYSINFO_START]\n9\n9,\n,,\n[SYSINFO_END]\n",
       0},
      {"bad drive letters", "FormatVersion=6\nd\n[DRIVES_START]\n1,3,1,1,\n,3,1,1\n\xff,3,1,1,\n[DRIVES_END]\n", 0},
      {"long lines", "FormatVersion=6\n" + longLine + "\n[FILEINFO_START]\n" + longLine + "," + longLine + ",1,2\n" +
                         "[DIRINFO_START]\n" + longLine + "," + longLine + ",1,2\n[DIRINFO_END]\n",
       0},
      {"binary garbage", binary, 0},
      {"huge numbers", "FormatVersion=99999999999\nd\n[TIMEDATE_START]\n-99999999999999\n[TIMEDATE_END]\n", 0},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.name);
    Loaded l;
    Load(l, r.text);
    EXPECT_EQ(l.rc, r.rc);
    EXPECT_EQ(Count(l.rec->files) + Count(l.rec->dirs) + Count(l.rec->regKeys) + Count(l.rec->sysInfo), 0);
  }
  Loaded missing;
  missing.rc = ReadSnapshotFile("no/such/dir/BASE0000.BCF", missing.rec, true);
  EXPECT_EQ(missing.rc, -1);
}

TEST(SnapshotWriter, SimpleSectionsReadBack) {
  ScratchDir dir;
  std::string path = dir.file("W.BCF");
  FILE* f = std::fopen(path.c_str(), "w");
  ASSERT_NE(f, nullptr);
  WriteFormatVersion(f);
  std::fprintf(f, "%s\n", "written");
  WriteTimeDateSection(f, 0xC1234567u);  // bit 31 set: printed as a negative long
  WriteFlagsSection(f, 0x2F05);          // bits 0x0F00 never reach the file
  WriteOsVersionSection(f, 0xC0000A04u);
  WriteUserNameSection(f, "bob");
  std::fclose(f);
  std::string text = orvalis_test::ReadWholeFile(path);
  std::erase(text, '\r');  // text mode writes CR LF on Windows
  EXPECT_NE(text.find("FormatVersion=6\n"), std::string::npos);
  EXPECT_NE(text.find("[FLAGS_START]\n8197\n[FLAGS_END]\n"), std::string::npos);
  EXPECT_NE(text.find("[TIMEDATE_START]\n-1054653081\n"), std::string::npos);
  Loaded l;
  l.rc = ReadSnapshotFile(path.c_str(), l.rec, true);
  ASSERT_EQ(l.rc, 0);
  EXPECT_EQ(l.rec->time, 0xC1234567u);
  EXPECT_EQ(l.rec->flags, 0x2005);
  EXPECT_EQ(ReadOsVersionSection(path.c_str()), 0xC0000A04u);
  char user[260];
  ReadUserNameSection(path.c_str(), user);
  EXPECT_STREQ(user, "bob");
  WriteWholeFile(path, "FormatVersion=6\nno sections\n");
  EXPECT_EQ(ReadOsVersionSection(path.c_str()), 0u);
  ReadUserNameSection(path.c_str(), user);
  EXPECT_STREQ(user, "");
}

}  // namespace
