// Every export that writes files, swept with the fault plan: each fallible seam entry it calls fails
// at each of its calls in turn, and every run must end with a proper result, no leaked memory or
// open file, and either no trace of the operation or its complete result.
#include <set>

#include "drivers/create.h"
#include "drivers/delete.h"
#include "engine/log.h"
#include "engine/settings.h"
#include "exports/exports.h"
#include "store/store_win.h"
#include "tests/support/engine_sandbox.h"
#include "tests/support/fault_plan.h"

using namespace orvalis;
using namespace orvalis_test;

namespace {

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

TEST_F(Safety, RenameDeleteAndDocumentsUnderFaults) {
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
}

// Each row writes an index file by hand whose records name companions outside the data folder
// or the folder itself; deleting it must touch nothing but its own index file.
TEST_F(Safety, CompanionNamesOutsideTheDataFolderAreNeverUsed) {
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
