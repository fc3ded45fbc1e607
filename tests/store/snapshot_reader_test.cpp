// Reading snapshot index files of every format version, and bad input.
#include "store/snapshot.h"
#include "tests/support/test_support.h"

using namespace orvalis;
using namespace orvalis_test;

namespace {

// The record read from an index file holding this text.
struct Loaded {
  explicit Loaded(const std::string& text, bool isNT = true) {
    ScratchDir dir;
    WriteWholeFile(dir.file("BASE0000.BCF"), text);
    rc = ReadSnapshotFile(dir.file("BASE0000.BCF").c_str(), rec, isNT);
  }
  ~Loaded() { FreeSnapshotRecord(rec); }
  SnapshotRecord* rec = NewSnapshotRecord();
  int rc = 0;
};

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

// Every field the reader fills, one line per record.
std::string Describe(const SnapshotRecord& r) {
  char line[1200];
  std::string out;
  auto add = [&](const char* format, auto... args) {
    std::snprintf(line, sizeof line, format, args...);
    out += line;
  };
  add("%s|%u|%u\n", r.description, r.time, r.flags);
  for (const SysInfoItem* i = r.sysInfo; i; i = i->next)
    add("sys %u=%s\n", i->item, i->text ? i->text : std::to_string(i->value).c_str());
  for (int d = 0; r.drives && d < 26; ++d)
    if (r.drives[d].type) add("drive %c %u %u %u %s\n", 'A' + d, r.drives[d].type, r.drives[d].totalKB, r.drives[d].freeKB, r.drives[d].netName);
  for (const SnapFileEntry* e = r.files; e; e = e->next) add("file %s|%s|%u|%u\n", e->path, e->companion, e->flags, e->time);
  const std::pair<const char*, const SnapGroupEntry*> groups[] = {{"reg", r.regKeys}, {"asset", r.assets}, {"dir", r.dirs}};
  for (auto [kind, list] : groups)
    for (const SnapGroupEntry* e = list; e; e = e->next) add("%s %s|%s|%d|%u\n", kind, e->name, e->companion, e->first, e->second);
  if (const RegBackupRecord* b = r.regBackup)
    add("backup %s|%d|%u|%s|%d|%u\n", b->userName, b->userFlag, b->userCrc, b->systemName, b->systemFlag, b->systemCrc);
  return out;
}

TEST(SnapshotReader, Version6EverySectionAndMarkersWithoutCaseButWholeLine) {
  Loaded l(kVersion6);
  ASSERT_EQ(l.rc, 0);
  // Texts for SYSINFO items 9 and 16; drive fields in the order letter, type, total, free, net
  // name; right-split records keep commas in their first field; a CRC above 2^31 survives; the
  // last REGNT record's folder wins; a non-zero FILEINFO mark reads as flag 2. FILEINFO is split
  // from the left, kept as it is: a comma in the path cuts it there, and the piece taken as the
  // companion is no bare file name, so it is dropped.
  EXPECT_EQ(Describe(*l.rec),
            "Before the driver update|651060909|8192\n"
            "sys 1=5\nsys 2=1\nsys 3=65536\nsys 5=262154\nsys 9=GenuineIntel\nsys 16=Pentium II MMX\n"
            "drive A 2 0 0 \ndrive C 3 2097152 1048576 \ndrive N 4 100 50 \\\\server\\share\n"
            "file C:\\WINDOWS\\WIN.INI|WIN0000.BSE|2|651060909\nfile C:\\WINDOWS\\SYSTEM.INI|SYST0000.BSE|0|5\n"
            "file C:\\a||0|1\n"
            "reg HKEY_LOCAL_MACHINE\\Software\\A,B,C|REG0000.OVR|1024|0\n"
            "asset C:\\Fonts\\*.TTF|AST0000.OVA|1|28673\n"
            "dir C:\\Program Files\\My, Tool|DIR0000.OVD|1|3735928559\n"
            "backup NT0001|0|0||0|0\n");
  // Markers match without regard to case but as whole lines.
  Loaded m("FormatVersion=6\nd\n[fileinfo_start]\nC:\\A.INI,A0000.BSE,0,1\n[FileInfo_End]\n"
           "[FLAGS_START] \n4\n[FLAGS_END]\n");
  ASSERT_EQ(m.rc, 0);
  EXPECT_EQ(Describe(*m.rec), "d|0|0\nfile C:\\A.INI|A0000.BSE|0|1\n");  // "[FLAGS_START] " is no marker
}

// Version 0 has no version line and no FILEINFO markers: every line after [DRIVES_END] with four
// fields is a file record, the ASSETINFO one included. REGINFO has two fields before version 2,
// DIRINFO numbers from version 3, ASSETINFO numbers count from 2; drive sizes were bytes before 4.
TEST(SnapshotReader, VersionRulesForOldFilesAndWindows9xReadsRegBackInsteadOfRegNt) {
  const struct { int version; const char *driveKB, *reg, *asset, *dir, *files; } rows[] = {
      {0, "1 1", "0|0", "0|0", "0|0", "file C:\\W.INI|W0000.BSE|2|5\nfile A|AST0000.OVA|2|2\n"},
      {1, "1 1", "0|0", "0|0", "0|0", ""}, {3, "1 1", "1024|0", "1|2", "1|77", ""},
      {4, "1024 1024", "1024|0", "1|2", "1|77", ""}, {6, "1024 1024", "1024|0", "1|2", "1|77", ""}};
  for (const auto& r : rows) {
    SCOPED_TRACE(r.version);
    Loaded l((r.version ? "FormatVersion=" + std::to_string(r.version) + "\n" : "") +
             "desc\n[DRIVES_START]\nc,3,1024,1024,\n[DRIVES_END]\nC:\\W.INI,W0000.BSE,1,5\n[REGINFO_START]\n" +
             (r.version <= 1 ? "HKLM\\S,REG0000.OVR\n" : "HKLM\\S,REG0000.OVR,1024,0\n") +
             "[REGINFO_END]\n[ASSETINFO_START]\nA,AST0000.OVA,1,2\n[ASSETINFO_END]\n[DIRINFO_START]\n" +
             (r.version >= 3 ? "C:\\D,DIR0000.OVD,1,77\n" : "C:\\D,DIR0000.OVD\n") + "[DIRINFO_END]\n");
    ASSERT_EQ(l.rc, 0);
    // (The lower-case drive letter is drive C.)
    EXPECT_EQ(Describe(*l.rec), "desc|0|0\ndrive C 3 " + std::string(r.driveKB) + " \n" + r.files +
                                    "reg HKLM\\S|REG0000.OVR|" + r.reg + "\nasset A|AST0000.OVA|" + r.asset +
                                    "\ndir C:\\D|DIR0000.OVD|" + r.dir + "\n");
  }
  // Windows 95/98 reads REGBACK instead of REGNT.
  Loaded l("FormatVersion=6\nd\n[REGNT_START]\nHKLM\\X,NT0000\n[REGNT_END]\n"
           "[REGBACK_START]\nC:\\WINDOWS\\USER.DAT,UDAT0000.CRG,1,305419896\n"
           "C:\\WINDOWS\\SYSTEM.DAT,SDAT0000.CRG,0,0\n[REGBACK_END]\n", false);
  ASSERT_EQ(l.rc, 0);
  EXPECT_EQ(Describe(*l.rec), "d|0|0\nbackup UDAT0000.CRG|1|305419896|SDAT0000.CRG|0|0\n");
  // Records naming neither data file are dropped with the backup record.
  Loaded none("FormatVersion=6\nd\n[REGBACK_START]\nC:\\X.DAT,A,0,0\n[REGBACK_END]\n", false);
  EXPECT_EQ(none.rec->regBackup, nullptr);
}

// None of these holds a whole record: all are dropped; a file without a description line gives -1.
// (Overruns on any input are the reader fuzzer's.)
TEST(SnapshotReader, BadInputGivesNoRecord) {
  const std::string longLine(3000, 'x');
  const struct { const char* name; std::string text; int rc; } rows[] = {
      {"empty file", "", -1}, {"version line only", "FormatVersion=6\n", -1},
      {"truncated section", "FormatVersion=6\nd\n[DRIVES_START]\nC,3,1", 0},
      {"missing fields", "FormatVersion=6\nd\n[FILEINFO_START]\nC:\\A.INI,X\nC:\\B.INI\n[FILEINFO_END]\n"
                         "[REGINFO_START]\nnocomma\n[REGINFO_END]\n[SYSINFO_START]\n9\n9,\n,,\n[SYSINFO_END]\n", 0},
      {"bad drive letters", "FormatVersion=6\nd\n[DRIVES_START]\n1,3,1,1,\n,3,1,1\n\xff,3,1,1,\n[DRIVES_END]\n", 0},
      {"long lines", "FormatVersion=6\n" + longLine + "\n[FILEINFO_START]\n" + longLine + "," + longLine + ",1,2\n" +
                         "[DIRINFO_START]\n" + longLine + "," + longLine + ",1,2\n[DIRINFO_END]\n", 0},
      {"huge numbers", "FormatVersion=99999999999\nd\n[TIMEDATE_START]\n-99999999999999\n[TIMEDATE_END]\n", 0}};
  for (const auto& r : rows) {
    SCOPED_TRACE(r.name);
    Loaded l(r.text);
    EXPECT_EQ(l.rc, r.rc);
    EXPECT_EQ(Describe(*l.rec).find('\n'), Describe(*l.rec).size() - 1);  // no record, only the head line
  }
  SnapshotRecord* missing = NewSnapshotRecord();
  EXPECT_EQ(ReadSnapshotFile("no/such/dir/BASE0000.BCF", missing, true), -1);
  FreeSnapshotRecord(missing);
}

// Time and flags as the writer leaves them: bit 31 of the time printed as a negative long, the
// flag bits 0x0F00 never reaching the file. (The OS version and user name sections are read back
// through the information document.)
TEST(SnapshotWriter, TimeAndFlagsReadBack) {
  ScratchDir dir;
  const std::string path = dir.file("W.BCF");
  FILE* f = std::fopen(path.c_str(), "w");
  ASSERT_NE(f, nullptr);
  WriteFormatVersion(f);
  std::fprintf(f, "written\n");
  WriteTimeDateSection(f, 0xC1234567u);
  WriteFlagsSection(f, 0x2F05);
  std::fclose(f);
  EXPECT_EQ(NoCr(ReadWholeFile(path)),
            "FormatVersion=6\nwritten\n[TIMEDATE_START]\n-1054653081\n[TIMEDATE_END]\n[FLAGS_START]\n8197\n[FLAGS_END]\n");
  Loaded l(ReadWholeFile(path));
  ASSERT_EQ(l.rc, 0);
  EXPECT_EQ(Describe(*l.rec), "written|3240314215|8197\n");
}

}  // namespace
