// Snapshot creation end to end under Wine: real profile, real files, real index file.
#include <tuple>

#include "drivers/create.h"
#include "engine/files.h"
#include "engine/settings.h"
#include "engine/sys.h"
#include "exports/exports.h"
#include "items/sysfiles/sysfiles.h"
#include "store/store_win.h"
#include "tests/support/engine_sandbox.h"

using namespace orvalis;
using namespace orvalis_test;

namespace {

std::string Section(const std::string& name, const std::string& body) {
  return "[" + name + "_START]\n" + body + "[" + name + "_END]\n";
}

class Creation : public ::testing::Test {
 protected:
  void SetUp() override {
    box_.MakeDirs({"NIMBRA", "watched"});
    WriteWholeFile(box_.file("watched\\app.ini"), "[Main]\r\nColor=blue\r\n");
    WriteWholeFile(box_.file("watched\\WINFILE.INI"), "[Settings]\r\nx=1\r\n");
    WriteWholeFile(box_.file("watched\\blob.bin"), std::string("\0\1\2\3", 4));
    WriteWholeFile(box_.file("DAILY.GCF"), "Daily check\n[GROUPFILES_START]\n" + box_.file("watched\\app.ini") + "\n" +
                                               box_.file("watched\\WINFILE.INI") + "\n" + box_.file("watched\\blob.bin") +
                                               "\n" + box_.file("watched\\missing.ini") + "\n<temp>\\X.INI\n"
                                               "[GROUPFILES_END]\n");
  }
  std::string Index(int n) {
    char name[32];
    std::snprintf(name, sizeof name, "BASE%04d.BCF", n);
    return box_.file(name);
  }
  // Snapshot n's index file, with the bodies of the sections that hold the moment and the machine
  // shown as "*" (an empty one stays empty).
  std::string Skeleton(int n) {
    std::string t = NoCr(ReadWholeFile(Index(n)));
    for (const std::string s : {"TIMEDATE", "SYSINFO", "DRIVES"}) {
      const size_t a = t.find("[" + s + "_START]\n"), b = t.find("[" + s + "_END]");
      if (a != std::string::npos && b > a + s.size() + 9) t.replace(a + s.size() + 9, b - a - s.size() - 9, "*\n");
    }
    return t;
  }
  // What Skeleton shows for a snapshot n of DAILY.GCF: text files marked 1, the binary one 0, each
  // with its source's DOS time; the missing file and the unknown folder tag are left out.
  std::string Expected(const std::string& description, const char* flags, int n, bool undoBase = false) {
    char user[MAX_PATH];
    DWORD size = sizeof user;
    GetUserNameA(user, &size);
    std::string files;
    const std::tuple<const char*, const char*, int> rows[] = {{"app.ini", "app", 1}, {"WINFILE.INI", "WINF", 1},
                                                               {"blob.bin", "blob", 0}};
    for (auto [name, copy, mark] : rows) {
      const std::string path = box_.file(std::string("watched\\") + name);
      char line[600];
      std::snprintf(line, sizeof line, "%s,%s%04d.BSE,%d,%d\n", path.c_str(), copy, n, mark,
                    static_cast<int32_t>(PathDosTime(path.c_str())));
      files += line;
    }
    return "FormatVersion=6\n" + description + "\n" + Section("TIMEDATE", "*\n") + Section("FLAGS", flags + std::string("\n")) +
           Section("OSVERSION", std::to_string(GetVersion()) + "\n") + Section("USERNAME", user + std::string("\n")) +
           (undoBase ? "" : Section("SYSINFO", "*\n") + Section("DRIVES", "*\n")) + Section("REGINFO", "") +
           Section("REGNT", "") + Section("ASSETINFO", "") + (undoBase ? "" : Section("DIRINFO", "")) +
           Section("FILEINFO", files);
  }
  EngineSandbox box_;
};

// The undo base has no machine or directory sections. (Replacing the previous undo base, and what
// it may delete, is checked with the safety tests.)
TEST_F(Creation, SnapshotFromAProfileAndItsUndoBase) {
  ASSERT_EQ(CreateSnapshotFromSpecifiedProfile(box_.file("DAILY.GCF").c_str(), "First look"), 0u);
  // Without keys or assets: empty sections, no registry dump, no save folder left behind.
  EXPECT_EQ(Skeleton(0), Expected("First look", "0", 0));
  EXPECT_FALSE(FileExists(box_.file("NIMBRA\\REG0000.OVR")));
  EXPECT_FALSE(FileExists(box_.file("NIMBRA\\NT0000")));
  // Companions are byte-identical copies, the binary file's too.
  EXPECT_EQ(ReadWholeFile(box_.file("NIMBRA\\app0000.BSE")), ReadWholeFile(box_.file("watched\\app.ini")));
  EXPECT_EQ(ReadWholeFile(box_.file("NIMBRA\\blob0000.BSE")), std::string("\0\1\2\3", 4));
  SnapshotRecord* rec = NewSnapshotRecord();
  ASSERT_EQ(LoadSnapshot(Index(0).c_str(), rec), 0);
  ASSERT_EQ(CreateUndoBaseSnapshot(rec, nullptr, 0), 0u);
  FreeSnapshotRecord(rec);
  EXPECT_EQ(Skeleton(1), Expected("Undo Base File", "16384", 1, true));
  EXPECT_EQ(box_.UndoBase(), "BASE0001.BCF");
  EXPECT_EQ(Skeleton(0), Expected("First look", "0", 0));
}

TEST_F(Creation, FlagsCountersAndProfileLookup) {
  SetProfileSourceLocation(box_.dir().c_str());
  SetSnapshotDestinationLocation(box_.dir().c_str());
  SetDefaultProfile(box_.file("DAILY.GCF").c_str());
  const struct { unsigned long (*create)(); const char *description, *flags; } rows[] = {  // null: the profile's
      {[] { return CreateSnapshotFromDefaultProfile(nullptr); }, "Daily check", "0"},
      {[] { return CreateScheduledSnapshotFromDefaultProfile("s"); }, "s", "8192"},
      {[] { return CreateScheduledSnapshotFromSpecifiedProfile("DAILY.GCF", "s"); }, "s", "8192"},
      {[] { return CreateInitialSnapshotFromDefaultProfile("i"); }, "i", "32768"},
      {[] { return CreateInitialSnapshotFromSpecifiedProfile("DAILY.GCF", "i"); }, "i", "32768"},
      {[] { return CreateSnapshotFromSpecifiedProfile("DAILY.GCF", nullptr); }, "Daily check", "0"}};
  for (int n = 0; n < 6; ++n) {
    SCOPED_TRACE(n);
    ASSERT_EQ(rows[n].create(), 0u);
    EXPECT_EQ(Skeleton(n), Expected(rows[n].description, rows[n].flags, n));
  }
  // The default-profile export writes its log from scratch.
  const std::string gcf = box_.file("DAILY.GCF");
  EXPECT_EQ(box_.Log().rfind("CreateSnapshotFromDefault: Entered\n\nDefault Profile:\n" + gcf + "\nSnapshotLocation:\n" +
                                 box_.dir() + "\nCreateSnapshot:\nProfile" + gcf + "\nDestDir" + box_.dir() +
                                 "\nOpened output snapshot file OK\nDone writing the easy stuff\nCreateSnapshot:\n"
                                 "Path from base entry:" + Index(0) + "\nCreateSnapshot:\nSnapshot Path :" + Index(0) +
                                 "\nput the reginfo start line inf the file\nWriteBaseNTregRestoreInfo:Enter\n"
                                 "WriteBaseNTregRestoreInfo:Wrote the start line to the file\n"
                                 "WriteBaseNTregRestoreInfo:CreateDirectoryName worked OK\n"
                                 "WriteBaseNTregRestoreInfo:Wrote the end line to the file\n"
                                 "Completed WriteBaseNTRegRestoreInfo\nWriting base asset info\n"
                                 "Completed writing base asset info\nWriting base dir info\n"
                                 "Writing base sys file info\nBack from create snapshot\n", 0),
            0u) << box_.Log();
}

TEST_F(Creation, ResultCodesAndMissingFolders) {
  // No default profile anywhere: 13; nor is a null profile name anything else.
  MoveFileA(box_.file("DAILY.GCF").c_str(), box_.file("DAILY.TXT").c_str());
  EXPECT_EQ(CreateSnapshotFromDefaultProfile("x"), 13u);
  MoveFileA(box_.file("DAILY.TXT").c_str(), box_.file("DAILY.GCF").c_str());
  EXPECT_EQ(CreateSnapshotFromSpecifiedProfile(nullptr, "x"), 13u);
  // A destination that does not exist: nothing is written, still 0.
  SetSnapshotDestinationLocation(box_.file("nowhere").c_str());
  EXPECT_EQ(CreateSnapshotFromSpecifiedProfile("DAILY.GCF", "x"), 0u);
  EXPECT_FALSE(FileExists(box_.file("nowhere")));
  // Out of memory for the records: 8 and nothing written.
  SetSnapshotDestinationLocation(box_.dir().c_str());
  Io().calloc = [](size_t, size_t) -> void* { return nullptr; };
  EXPECT_EQ(CreateSnapshotFromSpecifiedProfile("DAILY.GCF", "x"), 8u);
  box_.RestoreSeam();
  EXPECT_FALSE(FileExists(Index(0)));
  // Without the data folder the files are left out and the stage still succeeds; the engine never
  // creates the folder. (On NT the whole snapshot goes, as the registry stage needs the folder.)
  RemoveDirectoryA(box_.file("NIMBRA").c_str());
  Profile* profile = NewProfile();
  lstrcpynA(profile->path, box_.file("DAILY.GCF").c_str(), MAX_PATH);
  ASSERT_EQ(ReadProfile(profile), 0);
  SnapshotRecord* rec = NewSnapshotRecord();
  lstrcpynA(rec->indexPath, Index(0).c_str(), MAX_PATH);
  FILE* f = std::fopen(box_.file("stage.txt").c_str(), "w");
  EXPECT_EQ(WriteFileInfo(f, profile, rec), 0);
  std::fclose(f);
  EXPECT_EQ(NoCr(ReadWholeFile(box_.file("stage.txt"))), Section("FILEINFO", ""));
  EXPECT_FALSE(FileExists(box_.file("NIMBRA")));
  FreeSnapshotRecord(rec);
  FreeProfile(profile);
}

}  // namespace
