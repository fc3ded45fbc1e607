// Snapshot creation end to end under Wine: real profile, real files, real index file.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "drivers/create.h"
#include "engine/files.h"
#include "engine/settings.h"
#include "engine/sys.h"
#include "exports/exports.h"
#include "items/sysfiles/sysfiles.h"
#include "store/store_win.h"
#include "tests/support/engine_sandbox.h"

using namespace orvalis;
using orvalis_test::EngineSandbox;
using orvalis_test::FileExists;
using orvalis_test::ReadWholeFile;
using orvalis_test::WriteWholeFile;

namespace {

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> out;
  std::string cur;
  for (char c : text) {
    if (c == '\r') continue;
    if (c == '\n') {
      out.push_back(cur);
      cur.clear();
    } else {
      cur.push_back(c);
    }
  }
  return out;
}

// The section start markers of an index file, in order.
std::string Sections(const std::string& path) {
  std::string s;
  for (const std::string& l : Lines(ReadWholeFile(path)))
    if (l.size() > 7 && l.compare(l.size() - 7, 7, "_START]") == 0) s += l.substr(1, l.size() - 8) + " ";
  return s;
}

std::string SectionBody(const std::string& path, const std::string& name) {
  std::string out;
  bool in = false;
  for (const std::string& l : Lines(ReadWholeFile(path))) {
    if (l == "[" + name + "_END]") break;
    if (in) out += l + "\n";
    if (l == "[" + name + "_START]") in = true;
  }
  return out;
}

// The data folder's files, less the empty asset reservations a snapshot without assets leaves
// behind (kept as it is: it is removed by its bare name from the current folder, not the data
// folder).
std::vector<std::string> Companions(const std::string& folder) {
  std::vector<std::string> out;
  for (const std::string& n : orvalis_test::ListDir(folder))
    if (n.rfind("AST", 0) != 0 || !ReadWholeFile(folder + "\\" + n).empty()) out.push_back(n);
  return out;
}

class Creation : public ::testing::Test {
 protected:
  void SetUp() override {
    CreateDirectoryA(box_.file("NIMBRA").c_str(), nullptr);
    CreateDirectoryA(box_.file("watched").c_str(), nullptr);
    WriteWholeFile(box_.file("watched\\app.ini"), "[Main]\r\nColor=blue\r\n");
    WriteWholeFile(box_.file("watched\\WINFILE.INI"), "[Settings]\r\nx=1\r\n");
    WriteWholeFile(box_.file("watched\\blob.bin"), std::string("\0\1\2\3", 4));
    WriteWholeFile(box_.file("DAILY.GCF"), "Daily check\n[GROUPFILES_START]\n" + box_.file("watched\\app.ini") + "\n" +
                                               box_.file("watched\\WINFILE.INI") + "\n" +
                                               box_.file("watched\\blob.bin") + "\n" +
                                               box_.file("watched\\missing.ini") + "\n<temp>\\X.INI\n"
                                               "[GROUPFILES_END]\n");
  }
  std::string Index(int n) {
    char name[32];
    snprintf(name, sizeof name, "BASE%04d.BCF", n);
    return box_.file(name);
  }
  EngineSandbox box_;
};

TEST_F(Creation, SnapshotFromAProfile) {
  ASSERT_EQ(CreateSnapshotFromSpecifiedProfile(box_.file("DAILY.GCF").c_str(), "First look"), 0u);
  const std::string index = Index(0);
  ASSERT_TRUE(FileExists(index));
  std::vector<std::string> lines = Lines(ReadWholeFile(index));
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[0], "FormatVersion=6");
  EXPECT_EQ(lines[1], "First look");
  EXPECT_EQ(Sections(index), "TIMEDATE FLAGS OSVERSION USERNAME SYSINFO DRIVES REGINFO REGNT ASSETINFO DIRINFO FILEINFO ");
  // Without keys or assets: empty sections, no registry dump, no save folder left behind.
  EXPECT_EQ(SectionBody(index, "REGINFO") + SectionBody(index, "REGNT") + SectionBody(index, "ASSETINFO"), "");
  EXPECT_FALSE(FileExists(box_.file("NIMBRA\\REG0000.OVR")));
  EXPECT_FALSE(FileExists(box_.file("NIMBRA\\NT0000")));
  EXPECT_EQ(SectionBody(index, "FLAGS"), "0\n");
  EXPECT_EQ(SectionBody(index, "OSVERSION"), std::to_string(GetVersion()) + "\n");
  char user[MAX_PATH];
  DWORD size = sizeof user;
  GetUserNameA(user, &size);
  EXPECT_EQ(SectionBody(index, "USERNAME"), std::string(user) + "\n");

  // Companions are byte-identical copies; the record carries the DOS time of the source and
  // the text mark; the binary file is copied with mark 0; missing and unknown-tag files are not.
  const std::string app = box_.file("watched\\app.ini");
  const std::string win = box_.file("watched\\WINFILE.INI");
  const std::string blob = box_.file("watched\\blob.bin");
  EXPECT_EQ(SectionBody(index, "FILEINFO"),
            app + ",app0000.BSE,1," + std::to_string(static_cast<int32_t>(PathDosTime(app.c_str()))) + "\n" + win +
                ",WINF0000.BSE,1," + std::to_string(static_cast<int32_t>(PathDosTime(win.c_str()))) + "\n" + blob +
                ",blob0000.BSE,0," + std::to_string(static_cast<int32_t>(PathDosTime(blob.c_str()))) + "\n");
  EXPECT_EQ(ReadWholeFile(box_.file("NIMBRA\\app0000.BSE")), ReadWholeFile(app));
  EXPECT_EQ(ReadWholeFile(box_.file("NIMBRA\\blob0000.BSE")), ReadWholeFile(blob));

  // What was written reads back.
  SnapshotRecord* rec = NewSnapshotRecord();
  ASSERT_EQ(LoadSnapshot(index.c_str(), rec), 0);
  EXPECT_STREQ(rec->description, "First look");
  EXPECT_NE(rec->time, 0u);
  ASSERT_NE(rec->drives, nullptr);
  EXPECT_EQ(rec->drives[2].type, static_cast<uint32_t>(DRIVE_FIXED));
  int items = 0;
  for (SysInfoItem* i = rec->sysInfo; i; i = i->next) ++items;
  EXPECT_GE(items, 4);
  FreeSnapshotRecord(rec);
}

TEST_F(Creation, FlagsCountersAndProfileLookup) {
  SetProfileSourceLocation(box_.dir().c_str());
  SetSnapshotDestinationLocation(box_.dir().c_str());
  SetDefaultProfile(box_.file("DAILY.GCF").c_str());
  struct Row {
    unsigned long (*create)();
    const char* flags;
  } rows[] = {
      {[] { return CreateSnapshotFromDefaultProfile(nullptr); }, "0"},
      {[] { return CreateScheduledSnapshotFromDefaultProfile("s"); }, "8192"},
      {[] { return CreateScheduledSnapshotFromSpecifiedProfile("DAILY.GCF", "s"); }, "8192"},
      {[] { return CreateInitialSnapshotFromDefaultProfile("i"); }, "32768"},
      {[] { return CreateInitialSnapshotFromSpecifiedProfile("DAILY.GCF", "i"); }, "32768"},
      {[] { return CreateSnapshotFromSpecifiedProfile("DAILY.GCF", nullptr); }, "0"},
  };
  int n = 0;
  for (const Row& r : rows) {
    SCOPED_TRACE(n);
    ASSERT_EQ(r.create(), 0u);
    const std::string index = Index(n++);
    ASSERT_TRUE(FileExists(index));
    EXPECT_EQ(SectionBody(index, "FLAGS"), std::string(r.flags) + "\n");
  }
  // A null description takes the profile's.
  EXPECT_EQ(Lines(ReadWholeFile(Index(0)))[1], "Daily check");
  EXPECT_EQ(Lines(ReadWholeFile(Index(5)))[1], "Daily check");
  // The default-profile export writes its log from scratch.
  std::string log = ReadWholeFile(box_.file("halvern.log"));
  EXPECT_EQ(log.rfind("CreateSnapshotFromDefault: Entered\r\n\r\nDefault Profile:\r\n" + box_.file("DAILY.GCF") +
                          "\r\nSnapshotLocation:\r\n" + box_.dir() + "\r\nCreateSnapshot:\r\nProfile" +
                          box_.file("DAILY.GCF") + "\r\nDestDir" + box_.dir() + "\r\nOpened output snapshot file OK\r\n"
                          "Done writing the easy stuff\r\nCreateSnapshot:\r\nPath from base entry:" + Index(0) +
                          "\r\nCreateSnapshot:\r\nSnapshot Path :" + Index(0) +
                          "\r\nput the reginfo start line inf the file\r\nWriteBaseNTregRestoreInfo:Enter\r\n"
                          "WriteBaseNTregRestoreInfo:Wrote the start line to the file\r\n"
                          "WriteBaseNTregRestoreInfo:CreateDirectoryName worked OK\r\n"
                          "WriteBaseNTregRestoreInfo:Wrote the end line to the file\r\nCompleted WriteBaseNTRegRestoreInfo\r\n"
                          "Writing base asset info\r\nCompleted writing base asset info\r\n"
                          "Writing base dir info\r\nWriting base sys file info\r\nBack from create snapshot\r\n",
                      0),
            0u)
      << log;
}

TEST_F(Creation, ResultCodesWhenNothingCanBeWritten) {
  // No default profile anywhere: 13. A source location that is empty cannot happen through the
  // getter (it falls back), so a bare name resolves to the module folder.
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
}

TEST_F(Creation, TheIndexFileThatCannotBeOpenedLeavesNoReservation) {
  Io().fopen = [](const char* path, const char* mode) -> FILE* {
    if (std::string(path).find(".BCF") != std::string::npos && std::string(mode) == "wt" &&
        GetFileAttributesA(path) != INVALID_FILE_ATTRIBUTES)
      return nullptr;  // the reservation works, opening it for the snapshot does not
    return fopen(path, mode);
  };
  EXPECT_EQ(CreateSnapshot(box_.file("DAILY.GCF").c_str(), box_.dir().c_str(), "x", 0, 0), 0u);
  box_.RestoreSeam();
  EXPECT_FALSE(FileExists(Index(0)));
}

TEST_F(Creation, MissingDataFolderKeepsTheSnapshotWithoutCopies) {
  RemoveDirectoryA(box_.file("NIMBRA").c_str());
  ASSERT_EQ(CreateSnapshotFromSpecifiedProfile(box_.file("DAILY.GCF").c_str(), "no data folder"), 0u);
  EXPECT_EQ(SectionBody(Index(0), "FILEINFO"), "");
  EXPECT_FALSE(FileExists(box_.file("NIMBRA")));  // the engine never creates it
}

TEST_F(Creation, UndoBaseReplacesThePreviousOne) {
  ASSERT_EQ(CreateSnapshotFromSpecifiedProfile(box_.file("DAILY.GCF").c_str(), "to restore"), 0u);
  SnapshotRecord* rec = NewSnapshotRecord();
  ASSERT_EQ(LoadSnapshot(Index(0).c_str(), rec), 0);
  ASSERT_EQ(CreateUndoBaseSnapshot(rec, nullptr, 0), 0u);
  EXPECT_EQ(Lines(ReadWholeFile(Index(1)))[1], "Undo Base File");
  EXPECT_EQ(Sections(Index(1)), "TIMEDATE FLAGS OSVERSION USERNAME REGINFO REGNT ASSETINFO FILEINFO ");
  EXPECT_EQ(SectionBody(Index(1), "FLAGS"), "16384\n");
  char undo[MAX_PATH];
  ReadOrvalisString("UNDOBASE", "", undo, sizeof undo);
  EXPECT_STREQ(undo, "BASE0001.BCF");
  EXPECT_TRUE(FileExists(box_.file("NIMBRA\\app0001.BSE")));
  // The next undo base deletes the previous one with its companions first, so the freed
  // names are taken again and nothing accumulates.
  ASSERT_EQ(CreateUndoBaseSnapshot(rec, nullptr, 0), 0u);
  ReadOrvalisString("UNDOBASE", "", undo, sizeof undo);
  EXPECT_STREQ(undo, "BASE0001.BCF");
  EXPECT_FALSE(FileExists(Index(2)));
  EXPECT_FALSE(FileExists(box_.file("NIMBRA\\app0002.BSE")));
  EXPECT_EQ(Companions(box_.file("NIMBRA")).size(), 6u);
  EXPECT_TRUE(FileExists(Index(0)));  // the snapshot being restored is untouched
  FreeSnapshotRecord(rec);
}

TEST_F(Creation, DiscardRemovesEveryCompanionAndTheIndex) {
  ASSERT_EQ(CreateSnapshotFromSpecifiedProfile(box_.file("DAILY.GCF").c_str(), "doomed"), 0u);
  SnapshotRecord* rec = NewSnapshotRecord();
  ASSERT_EQ(LoadSnapshot(Index(0).c_str(), rec), 0);
  DiscardPartialSnapshot(rec, nullptr);
  EXPECT_FALSE(FileExists(Index(0)));
  EXPECT_TRUE(Companions(box_.file("NIMBRA")).empty());
}

}  // namespace

namespace {

// FILEINFO is split from the left: a system file whose path holds a comma is captured and
// written, but reads back with a wrong path. Kept from the format; pinned here.
TEST(CreationFormat, ACommaInASystemFilePathDoesNotReadBack) {
  EngineSandbox box;
  CreateDirectoryA(box.file("NIMBRA").c_str(), nullptr);
  CreateDirectoryA(box.file("a,b").c_str(), nullptr);
  const std::string file = box.file("a,b\\x.ini");
  WriteWholeFile(file, "[s]\nk=v\n");
  WriteWholeFile(box.file("C.GCF"), "comma\n[GROUPFILES_START]\n" + file + "\n[GROUPFILES_END]\n");
  ASSERT_EQ(CreateSnapshotFromSpecifiedProfile(box.file("C.GCF").c_str(), "c"), 0u);
  EXPECT_NE(ReadWholeFile(box.file("BASE0000.BCF")).find(file + ",x0000.BSE,1,"), std::string::npos);
  SnapshotRecord* rec = NewSnapshotRecord();
  ASSERT_EQ(LoadSnapshot(box.file("BASE0000.BCF").c_str(), rec), 0);
  ASSERT_NE(rec->files, nullptr);
  EXPECT_EQ(std::string(rec->files->path), file.substr(0, file.find(',')));
  FreeSnapshotRecord(rec);
}

}  // namespace

namespace {

TEST(SystemFileTokens, OnlyWindowsAndSystemAreKnown) {
  EngineSandbox box;
  char windows[MAX_PATH], system[MAX_PATH];
  GetWindowsDirectoryA(windows, MAX_PATH);
  GetSystemDirectoryA(system, MAX_PATH);
  struct Row {
    const char* in;
    int rc;
    std::string out;
  } rows[] = {{"<windows>\\WIN.INI", 1, std::string(windows) + "\\WIN.INI"},
              {"<WINDOWS>\\SYSTEM.INI", 1, std::string(windows) + "\\SYSTEM.INI"},
              {"<System>\\drivers\\etc\\hosts", 1, std::string(system) + "\\drivers\\etc\\hosts"},
              {"<temp>\\X.INI", 0, ""},
              {"<windows\\no-close", 0, ""},
              {"<windows><system>\\x", 0, ""}};  // the token runs to the last ">"
  for (const Row& r : rows) {
    char out[MAX_PATH] = "";
    EXPECT_EQ(ResolvePathToken(r.in, out), r.rc) << r.in;
    if (r.rc) {
      EXPECT_EQ(std::string(out), r.out);
    }
  }
}

}  // namespace
