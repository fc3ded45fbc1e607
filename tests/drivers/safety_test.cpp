// Snapshot creation end to end under Wine: real profile, real files, real index file. Then every
// export that writes files, swept with the fault plan: each fallible seam entry it calls fails at
// each of its calls in turn, and every run must end with a proper result, no leaked memory or open
// file, and either no trace of the operation or its complete result.
#include <set>
#include <tuple>

#include "drivers/create.h"
#include "drivers/delete.h"
#include "engine/files.h"
#include "engine/log.h"
#include "engine/settings.h"
#include "engine/sys.h"
#include "exports/exports.h"
#include "items/sysfiles/sysfiles.h"
#include "store/store_win.h"
#include "tests/support/engine_sandbox.h"
#include "tests/support/fault_plan.h"

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

class Safety : public ::testing::Test {
 protected:
  void SetUp() override {
    box_.MakeDirs({"NIMBRA", "watched", "watched\\sub"});
    WriteWholeFile(box_.file("watched\\app.ini"), "[Main]\r\nColor=blue\r\n");
    WriteWholeFile(box_.file("watched\\notes.txt"), "one\r\ntwo\r\n");
    WriteWholeFile(box_.file("watched\\sub\\deep.dat"), "deep\r\n");
    SetFileAttributesA(box_.file("watched\\notes.txt").c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
    WriteWholeFile(box_.file("DAILY.GCF"), "Daily\n[GROUPFILES_START]\n" + box_.file("watched\\app.ini") + "\n" +
                                               box_.file("watched\\notes.txt") + "\n[GROUPFILES_END]\n"
                                               "[GROUPDIRS_START]\n" + box_.file("watched") + "\n[GROUPDIRS_END]\n");
  }
  void TearDown() override { SetFileAttributesA(box_.file("watched\\notes.txt").c_str(), FILE_ATTRIBUTE_NORMAL); }

  std::set<std::string> Files() {
    std::set<std::string> out;
    for (const std::string& n : ListDir(box_.dir()))
      if (n != "halvern.log" && n != "ORVALIS.INI") out.insert(n);  // the log and the settings come and go
    // An empty asset reservation stays behind after every snapshot without assets (kept as it
    // is: it is removed by its bare name from the current folder); anything else would be a leak.
    for (const std::string& n : ListDir(box_.file("NIMBRA")))
      if (n.rfind("AST", 0) != 0 || !ReadWholeFile(box_.file("NIMBRA\\" + n)).empty()) out.insert("NIMBRA\\" + n);
    return out;
  }
  std::set<std::string> Snapshots() {
    std::set<std::string> out;
    for (const std::string& n : Files()) if (n.ends_with(".BCF")) out.insert(n);
    return out;
  }
  // Loads a snapshot and checks that every companion it names is there.
  bool ReadsBackWhole(const std::string& name) {
    SnapshotRecord* rec = NewSnapshotRecord();
    bool ok = LoadSnapshot(box_.file(name).c_str(), rec) == 0;
    char folder[MAX_PATH];
    ok = ok && CompanionFolder(rec->indexPath, folder);
    for (SnapFileEntry* e = rec->files; ok && e; e = e->next) ok = FileExists(std::string(folder) + e->companion);
    for (SnapGroupEntry* e = rec->dirs; ok && e; e = e->next)
      ok = !e->companion[0] || FileExists(std::string(folder) + e->companion);
    FreeSnapshotRecord(rec);
    return ok;
  }

  // Runs op once failing nothing, to count its calls, then once per call of every entry with that
  // call failing; each run's result goes to check, and restore puts the folder back after it.
  void Sweep(const char* what, const std::function<unsigned long()>& op,
             const std::function<void(unsigned long rc, const std::string& where)>& check,
             const std::function<void()>& restore) {
    std::vector<std::pair<std::string, int>> runs{{"", 0}};
    for (size_t i = 0; i < runs.size(); ++i) {
      const auto [entry, n] = runs[i];
      const std::string where = std::string(what) + (n ? ", " + entry + " call " + std::to_string(n) + " failing" : "");
      unsigned long rc;
      {
        FaultPlan plan;
        plan.Arm(entry, n);
        rc = op();
        EXPECT_EQ(plan.LiveBlocks(), 0) << where << ": leaked memory";
        EXPECT_EQ(plan.OpenFiles(), 0) << where << ": file left open";
        auto calls = plan.Calls();
        for (const std::string& e : FaultPlan::Entries())
          for (int k = 1; i == 0 && k <= calls[e]; ++k) runs.emplace_back(e, k);
      }
      check(rc, where);
      restore();
    }
    EXPECT_GT(runs.size(), 4u) << what << ": the sweep reached too few calls";
    std::printf("%s: %zu faulted runs\n", what, runs.size() - 1);
  }

  EngineSandbox box_;
};

TEST_F(Safety, CreationKeepsAWholeSnapshotOrNothing) {
  const std::set<std::string> before = Files();
  Sweep(
      "snapshot", [&] { return ResetLog(), CreateSnapshotFromSpecifiedProfile("DAILY.GCF", "swept"); },
      [&](unsigned long rc, const std::string& where) {
        EXPECT_TRUE(rc == 0 || rc == 8) << where << ": result " << rc;
        const auto made = Snapshots();
        ASSERT_LE(made.size(), 1u) << where;
        if (made.empty()) {
          EXPECT_EQ(Files(), before) << where << ": a failed creation left files behind";
          const std::string log = box_.Log();
          EXPECT_TRUE(log.find("Opened output snapshot file OK") == std::string::npos ||
                      log.find("Failed to write") != std::string::npos) << where << ": no failure line\n" << log;
        } else {
          EXPECT_TRUE(ReadsBackWhole(*made.begin())) << where << ": a kept snapshot does not read back whole";
        }
      },
      [&] {
        for (const std::string& s : Snapshots()) DeleteSnapshotAt(box_.file(s).c_str());
        ASSERT_EQ(Files(), before) << "deleting the snapshot left companions behind";
      });
}

// UNDOBASE is left naming the user's own snapshot (the undo base it named was deleted and the name
// given out again): no run of the new undo base, failing or not, may take that snapshot with it.
TEST_F(Safety, UndoBaseDeletesOnlyAnUndoBase) {
  const std::set<std::string> empty = Files();
  ASSERT_EQ(CreateSnapshotFromSpecifiedProfile("DAILY.GCF", "restoring"), 0u);
  SnapshotRecord* restoring = NewSnapshotRecord();
  ASSERT_EQ(LoadSnapshot(box_.file("BASE0000.BCF").c_str(), restoring), 0);
  const std::set<std::string> before = Files();
  box_.SetOrvalis("UNDOBASE", "BASE0000.BCF");
  Sweep(
      "undo base", [&] { return static_cast<unsigned long>(CreateUndoBaseSnapshot(restoring, nullptr, 0)); },
      [&](unsigned long rc, const std::string& where) {
        EXPECT_TRUE(rc == 0 || rc == 8) << where;
        EXPECT_TRUE(ReadsBackWhole("BASE0000.BCF")) << where;
        const auto made = Snapshots();
        if (made.size() == 1) EXPECT_EQ(Files(), before) << where;
        else EXPECT_TRUE(made.size() == 2 && ReadsBackWhole("BASE0001.BCF")) << where << ": " << made.size();
      },
      [&] {
        if (FileExists(box_.file("BASE0001.BCF"))) DeleteSnapshotAt(box_.file("BASE0001.BCF").c_str());
        box_.SetOrvalis("UNDOBASE", "BASE0000.BCF");
        ASSERT_EQ(Files(), before);
      });
  // A real undo base is replaced by the next one, which takes the freed name again.
  for (int i = 0; i < 2; ++i) ASSERT_EQ(CreateUndoBaseSnapshot(restoring, nullptr, 0), 0u);
  FreeSnapshotRecord(restoring);
  EXPECT_EQ(Snapshots(), (std::set<std::string>{"BASE0000.BCF", "BASE0001.BCF"}));
  EXPECT_EQ(box_.UndoBase(), "BASE0001.BCF");
  // Deleting the undo base by hand forgets it; the copy of the read-only hidden file goes with its
  // snapshot too, and nothing of either is left.
  EXPECT_EQ(DeleteSnapshot("BASE0001.BCF"), 0u);
  EXPECT_EQ(box_.UndoBase(), "");
  EXPECT_EQ(DeleteSnapshot("BASE0000.BCF"), 0u);
  EXPECT_EQ(Files(), empty);
}

TEST_F(Safety, RenameDeleteAndDocumentsUnderFaultsAndCompanionNamesOutsideTheDataFolder) {
  ASSERT_EQ(CreateSnapshotFromSpecifiedProfile("DAILY.GCF", "original"), 0u);
  const std::string index = box_.file("BASE0000.BCF"), original = ReadWholeFile(index);
  const std::set<std::string> before = Files();
  // A description longer than a line, and with a line break, is cut to what one line holds.
  const std::string longName = std::string(700, 'd') + "\nsecond line";
  Sweep(
      "rename", [&] { return RenameSnapshot("BASE0000.BCF", longName.c_str()); },
      [&](unsigned long rc, const std::string& where) {
        const std::string now = ReadWholeFile(index);
        if (rc == 0) EXPECT_NE(now.find("\n" + std::string(255, 'd') + "\r\n"), std::string::npos) << where;
        else EXPECT_EQ(now, original) << where << ": a failed rename changed the snapshot (" << rc << ")";
        EXPECT_TRUE(rc == 0 || rc == static_cast<unsigned long>(-1)) << where;
        EXPECT_TRUE(ReadsBackWhole("BASE0000.BCF")) << where;
        EXPECT_EQ(Files(), before) << where << ": the rewrite left a file behind";
      },
      [&] { WriteWholeFile(index, original); });
  const std::string out = box_.file("doc.xml");
  auto documents = [&](const char* what, std::function<unsigned long()> op) {
    Sweep(
        what, op,
        [&](unsigned long rc, const std::string& where) {
          EXPECT_TRUE(rc == 0 || rc == 2 || rc == 8 || rc == 29 || rc == 87) << where << ": result " << rc;
          EXPECT_TRUE(rc == 0 || !FileExists(out)) << where << ": a failed document was left behind";
        },
        [&] { DeleteFileA(out.c_str()); });
  };
  const std::string ini = box_.file("watched\\app.ini"), dir = box_.file("watched");
  documents("file document", [&] { return CompareFilestoXML("BASE0000.BCF", nullptr, ini.c_str(), out.c_str(), 1); });
  documents("directory document", [&] { return CompareDirtoXML("BASE0000.BCF", nullptr, dir.c_str(), out.c_str(), 1); });
  Sweep(
      "delete", [&] { return DeleteSnapshot("BASE0000.BCF"); },
      [&](unsigned long rc, const std::string& where) {
        EXPECT_TRUE(rc == 0 || rc == 8 || rc == static_cast<unsigned long>(-1)) << where;
        EXPECT_TRUE(rc == 0 || ReadsBackWhole("BASE0000.BCF")) << where << ": a refused delete damaged it";
      },
      [&] {
        if (!FileExists(index)) {
          for (const std::string& s : Snapshots()) DeleteSnapshotAt(box_.file(s).c_str());
          ASSERT_EQ(CreateSnapshotFromSpecifiedProfile("DAILY.GCF", "original"), 0u);
        }
      });
  // Each row writes an index file by hand whose records name companions outside the data folder
  // or the folder itself; deleting it must touch nothing but its own index file.
  const struct { const char *name, *records; } rows[] = {
      {"file copy up", "[FILEINFO_START]\nC:\\a.ini,..\\victim.txt,0,0\n[FILEINFO_END]\n"},
      {"file copy dot", "[FILEINFO_START]\nC:\\a.ini,.,0,0\n[FILEINFO_END]\n"},
      {"file copy absolute", "[FILEINFO_START]\nC:\\a.ini,VICTIMDIR\\victim.txt,0,0\n[FILEINFO_END]\n"},
      {"listing up", "[DIRINFO_START]\nC:\\d,..\\victim.txt,1,0\n[DIRINFO_END]\n"},
      {"registry dump drive", "[REGINFO_START]\nHKLM\\x,Z:victim.txt,1024,0\n[REGINFO_END]\n"},
      {"NT folder dot", "[REGNT_START]\nHKLM\\x,.\n[REGNT_END]\n"},
      {"NT folder up", "[REGNT_START]\nHKLM\\x,..\n[REGNT_END]\n"}};
  for (const auto& r : rows) {
    WriteWholeFile(box_.file("victim.txt"), "mine");
    CreateDirectoryA(box_.file("NIMBRA\\VICTIMDIR").c_str(), nullptr);
    WriteWholeFile(box_.file("NIMBRA\\VICTIMDIR\\victim.txt"), "mine");
    WriteWholeFile(box_.file("NIMBRA\\OTHER0000.BSE"), "another snapshot's copy");
    WriteWholeFile(box_.file("BASE0007.BCF"), std::string("FormatVersion=6\nhostile\n") + r.records);
    EXPECT_EQ(DeleteSnapshot("BASE0007.BCF"), 0u) << r.name;
    EXPECT_FALSE(FileExists(box_.file("BASE0007.BCF"))) << r.name;
    EXPECT_EQ(ReadWholeFile(box_.file("victim.txt")), "mine") << r.name;
    EXPECT_EQ(ReadWholeFile(box_.file("NIMBRA\\VICTIMDIR\\victim.txt")), "mine") << r.name;
    EXPECT_TRUE(FileExists(box_.file("NIMBRA\\OTHER0000.BSE"))) << r.name;
  }
}

}  // namespace
