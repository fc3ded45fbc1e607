// Directory trees under Wine: capture, listings, comparison with a snapshot or the live disk,
// the directory document, and bad listings.
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>

#include "compress/crc32.h"
#include "engine/context.h"
#include "engine/filecodec_win.h"
#include "engine/settings.h"
#include "engine/sys.h"
#include "exports/exports.h"
#include "items/dirtree/dirtree.h"
#include "tests/support/engine_sandbox.h"

using namespace orvalis;
using orvalis_test::EngineSandbox;
using orvalis_test::FileExists;
using orvalis_test::ReadWholeFile;
using orvalis_test::WriteWholeFile;

namespace {

void MakeDir(const std::string& p) { CreateDirectoryA(p.c_str(), nullptr); }

void SetTime(const std::string& p, int minute) {
  HANDLE h = CreateFileA(p.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  SYSTEMTIME st = {2001, 2, 0, 3, 4, static_cast<WORD>(minute), 6, 0};
  FILETIME local, utc;
  SystemTimeToFileTime(&st, &local);
  LocalFileTimeToFileTime(&local, &utc);
  SetFileTime(h, nullptr, nullptr, &utc);
  CloseHandle(h);
}

// "path flags" lines of a tree, depth first, for comparing trees and reading results.
std::string Dump(const DirNode* n, uint16_t mask = 0x0F | kDirChangeBelow, bool sizes = false) {
  std::string out;
  std::function<void(const DirNode*)> walk = [&](const DirNode* d) {
    out += std::string(d->path) + " " + std::to_string(d->flags & mask) + "\n";
    for (const DirNode* s = d->subdirs; s; s = s->next) walk(s);
    for (const DirNode* f = d->files; f; f = f->next)
      out += std::string(f->path) + " " + std::to_string(f->flags & mask) +
             (sizes ? " " + std::to_string(f->size) + " " + std::to_string(f->time) : "") + "\n";
  };
  if (n) walk(n);
  return out;
}

class DirTrees : public ::testing::Test {
 protected:
  void SetUp() override {
    root_ = box_.file("tree");
    MakeDir(root_);
    MakeDir(root_ + "\\a");
    MakeDir(root_ + "\\a\\b");
    MakeDir(root_ + "\\a\\b\\c");
    MakeDir(root_ + "\\.hidden");
    MakeDir(root_ + "\\Temporary Internet Files");
    WriteWholeFile(root_ + "\\top.txt", "top");
    WriteWholeFile(root_ + "\\with, comma.txt", "comma");
    WriteWholeFile(root_ + "\\.dotfile", "dot");
    WriteWholeFile(root_ + "\\.hidden\\inside.txt", "x");
    WriteWholeFile(root_ + "\\Temporary Internet Files\\cache.dat", "x");
    WriteWholeFile(root_ + "\\a\\b\\c\\deep.ini", "deep");
    WriteWholeFile(root_ + "\\a\\one.dll", "1");
    SetTime(root_ + "\\a\\b\\c\\deep.ini", 5);
    CreateDirectoryA(box_.file("NIMBRA").c_str(), nullptr);
  }
  EngineSandbox box_;
  std::string root_;
};

TEST_F(DirTrees, CaptureSkipsDotNamesAndBrowserCachesAndReadsBackEqual) {
  DirNode* live = CaptureDirectory((root_ + "\\").c_str());  // a trailing backslash changes nothing
  ASSERT_NE(live, nullptr);
  EXPECT_EQ(Dump(live, 0xFFFF & ~kDirAllocated),
            root_ + "\\ " + std::to_string(kDirRoot | kDirDirectory | kDirMarked) + "\n" + root_ + "\\a 1025\n" +
                root_ + "\\a\\b 1025\n" + root_ + "\\a\\b\\c 1025\n" + root_ + "\\a\\b\\c\\deep.ini 2049\n" + root_ +
                "\\a\\one.dll 2049\n" + root_ + "\\top.txt 2049\n" + root_ + "\\with, comma.txt 2049\n");
  for (int compress : {0, 1}) {
    uint32_t crc = 7;
    const std::string listing = box_.file("NIMBRA\\L.OVD");
    ASSERT_EQ(WriteDirListing(listing.c_str(), live, compress, &crc), 1);
    EXPECT_FALSE(FileExists(box_.file("NIMBRA\\DIRTEMP.TMP")));
    DirNode* back = LoadDirListing(listing.c_str(), compress);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(Dump(back, 0xFFFF, true), Dump(live, 0xFFFF, true));
    FreeDirTree(back);
    if (compress) {
      ASSERT_EQ(ExpandFile(box_.file("plain.txt").c_str(), listing.c_str()), 0);
      std::string text = ReadWholeFile(box_.file("plain.txt"));
      EXPECT_EQ(crc, Crc32(text.data(), text.size()));
      EXPECT_EQ(text.substr(0, text.find('\n')), root_ + "\r");
    } else {
      EXPECT_EQ(crc, 0u);
    }
  }
  FreeDirTree(live);
  box_.SetOrvalis("SkipIETempFiles", "0");
  live = CaptureDirectory(root_.c_str());
  EXPECT_NE(Dump(live).find("Temporary Internet Files\\cache.dat"), std::string::npos);
  FreeDirTree(live);
  EXPECT_EQ(CaptureDirectory(box_.file("missing").c_str()), nullptr);
}

TEST_F(DirTrees, ThousandsOfFilesAndPathsNearTheLimit) {
  for (int d = 0; d < 20; ++d) {
    std::string dir = root_ + "\\bulk" + std::to_string(d);
    MakeDir(dir);
    for (int f = 0; f < 100; ++f) WriteWholeFile(dir + "\\file" + std::to_string(f) + ".dat", std::string(f, 'x'));
  }
  std::string deep = root_;
  while (deep.size() < 230) {
    deep += "\\nnnnnnnnnnnnnnnnnnnnnnnn";
    MakeDir(deep);
  }
  std::string nearLimit = deep + "\\" + std::string(MAX_PATH - 2 - deep.size(), 'f');  // 258 characters
  WriteWholeFile(nearLimit, "edge");
  DirNode* live = CaptureDirectory(root_.c_str());
  ASSERT_NE(live, nullptr);
  const std::string dump = Dump(live, 0xFFFF, true);
  EXPECT_NE(dump.find(nearLimit), std::string::npos);
  EXPECT_EQ(std::count(dump.begin(), dump.end(), '\n'), 8 + 20 * 101 + (long)std::count(deep.begin() + root_.size(), deep.end(), '\\') + 1);
  uint32_t crc;
  ASSERT_EQ(WriteDirListing(box_.file("NIMBRA\\BIG.OVD").c_str(), live, 1, &crc), 1);
  DirNode* back = LoadDirListing(box_.file("NIMBRA\\BIG.OVD").c_str(), 1);
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(Dump(back, 0xFFFF, true), dump);
  FreeDirTree(back);
  FreeDirTree(live);
}

struct Compared {
  DirCompareRecord rec{};
  ~Compared() { FreeDirTree(rec.tree); }
};

TEST_F(DirTrees, ComparisonWithTheLiveDiskAndWithASecondListing) {
  DirNode* before = CaptureDirectory(root_.c_str());
  uint32_t crc;
  ASSERT_EQ(WriteDirListing(box_.file("NIMBRA\\OLD.OVD").c_str(), before, 1, &crc), 1);
  FreeDirTree(before);
  // Changes: a file deep down gets a new time (same size), one is removed, one added, one file's
  // name changes only in case, a folder is added.
  SetTime(root_ + "\\a\\b\\c\\deep.ini", 9);
  DeleteFileA((root_ + "\\a\\one.dll").c_str());
  WriteWholeFile(root_ + "\\new.txt", "new");
  MoveFileA((root_ + "\\top.txt").c_str(), (root_ + "\\TOP.TXT").c_str());
  MakeDir(root_ + "\\added");
  const std::string expected = root_ + "\\ 128\n" + root_ + "\\a 128\n" + root_ + "\\a\\b 128\n" + root_ +
                               "\\a\\b\\c 128\n" + root_ + "\\a\\b\\c\\deep.ini 4\n" + root_ + "\\a\\b\\c\\deep.ini 8\n" +
                               root_ + "\\a\\one.dll 1\n" + root_ + "\\added 2\n" + root_ + "\\new.txt 2\n" + root_ +
                               "\\top.txt 0\n" + root_ + "\\with, comma.txt 0\n";
  Compared live;
  live.rec.flags = 0xC0;
  lstrcpynA(live.rec.path, root_.c_str(), MAX_PATH);
  lstrcpynA(live.rec.olderListing, box_.file("NIMBRA\\OLD.OVD").c_str(), MAX_PATH);
  live.rec.olderCompressed = 1;
  ASSERT_EQ(CompareDirectory(&live.rec, nullptr), 1);
  EXPECT_EQ(Dump(live.rec.tree), expected);

  DirNode* after = CaptureDirectory(root_.c_str());
  ASSERT_EQ(WriteDirListing(box_.file("NIMBRA\\NEW.OVD").c_str(), after, 0, &crc), 1);
  FreeDirTree(after);
  Compared two;
  two.rec = live.rec;
  two.rec.tree = nullptr;
  lstrcpynA(two.rec.newerListing, box_.file("NIMBRA\\NEW.OVD").c_str(), MAX_PATH);
  ASSERT_EQ(CompareDirectory(&two.rec, nullptr), 1);
  EXPECT_EQ(Dump(two.rec.tree), expected);
}

TEST_F(DirTrees, FiltersFromTheConfigurationFile) {
  const std::string cfg = box_.file("ORVALIS.CFG");
  WritePrivateProfileStringA("INC_FILTER", "1", "*.ini", cfg.c_str());
  WritePrivateProfileStringA("INC_FILTER", "2", "one.dll", cfg.c_str());
  WritePrivateProfileStringA("EXC_FILTER", "1", "DEEP.INI", cfg.c_str());
  DirFilters* f = nullptr;
  ASSERT_EQ(LoadDirFilters(cfg.c_str(), &f), 0);
  struct Row {
    const char* name;
    bool admitted;
  } rows[] = {{"x.ini", true}, {"X.INI", true}, {"one.dll", true}, {"two.dll", false}, {"deep.ini", false},
              {"noext", false}};
  for (const Row& r : rows) EXPECT_EQ(FilterAdmits(f, r.name), r.admitted) << r.name;
  FreeDirFilters(f);
  DirFilters* none = nullptr;
  ASSERT_EQ(LoadDirFilters(box_.file("missing.cfg").c_str(), &none), 0);
  EXPECT_TRUE(FilterAdmits(none, "anything.at.all"));
  FreeDirFilters(none);

  // An empty value is a filter too: an include list holding only it admits no file
  // that has a name.
  const std::string onlyEmpty = box_.file("EMPTY.CFG");
  WritePrivateProfileStringA("INC_FILTER", "1", "", onlyEmpty.c_str());
  DirFilters* empty = nullptr;
  ASSERT_EQ(LoadDirFilters(onlyEmpty.c_str(), &empty), 0);
  EXPECT_FALSE(FilterAdmits(empty, "x.ini"));
  FreeDirFilters(empty);

  // Out of memory while loading is an answer, not an exception.
  orvalis::Io().calloc = [](size_t, size_t) -> void* { return nullptr; };
  DirFilters* failed = reinterpret_cast<DirFilters*>(1);
  EXPECT_EQ(LoadDirFilters(cfg.c_str(), &failed), 8);
  EXPECT_EQ(failed, nullptr);
  box_.RestoreSeam();
}

TEST_F(DirTrees, BadListings) {
  DirNode* live = CaptureDirectory(root_.c_str());
  uint32_t crc;
  ASSERT_EQ(WriteDirListing(box_.file("NIMBRA\\OLD.OVD").c_str(), live, 1, &crc), 1);
  FreeDirTree(live);
  std::string packed = ReadWholeFile(box_.file("NIMBRA\\OLD.OVD"));
  std::string deep = "C:\\r";
  std::string deepListing = "C:\\r\n";
  for (int i = 0; i < 200; ++i) {
    deep += "\\d";
    deepListing += "1024,0,0," + deep + "\n";
  }
  deepListing += "2048,1,1," + deep + "\\f\n";
  struct Row {
    const char* name;
    std::string bytes;
    int compressed;
    bool loads;
  } rows[] = {
      {"truncated stream", packed.substr(0, packed.size() / 2), 1, true},
      {"garbage stream", std::string(300, '\x5a'), 1, false},
      {"empty", "", 0, false},
      {"no commas", "C:\\r\njunk line\n2048,1,1,C:\\r\\f\n", 0, true},
      {"binary lines", std::string("C:\\r\n\x01\x02,\xff,,C:\\r\\\x80\n", 18), 0, true},
      {"200 levels", deepListing, 0, true},
      {"long line", "C:\\r\n2048,1,1,C:\\r\\" + std::string(2000, 'y') + "\n", 0, true},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.name);
    WriteWholeFile(box_.file("NIMBRA\\BAD.OVD"), r.bytes);
    DirNode* t = LoadDirListing(box_.file("NIMBRA\\BAD.OVD").c_str(), r.compressed);
    EXPECT_EQ(t != nullptr, r.loads);
    FreeDirTree(t);
  }
  // A newer listing of another directory is not merged.
  WriteWholeFile(box_.file("NIMBRA\\OTHER.OVD"), "C:\\elsewhere\n2048,1,1,C:\\elsewhere\\f\n");
  Compared c;
  c.rec.flags = 0xC0;
  lstrcpynA(c.rec.olderListing, box_.file("NIMBRA\\OLD.OVD").c_str(), MAX_PATH);
  c.rec.olderCompressed = 1;
  lstrcpynA(c.rec.newerListing, box_.file("NIMBRA\\OTHER.OVD").c_str(), MAX_PATH);
  EXPECT_EQ(CompareDirectory(&c.rec, nullptr), 0);
  EXPECT_EQ(c.rec.tree, nullptr);
}

TEST_F(DirTrees, MessagesWhenASnapshotLacksTheDirectory) {
  struct Row {
    uint16_t flags;
    const char* text;
  } rows[] = {{0x40, kDirOnlyOlder}, {0x80, kDirOnlyNewer}, {0, kDirInNeither}};
  for (const Row& r : rows) {
    Compared c;
    c.rec.flags = r.flags;
    ASSERT_EQ(CompareDirectory(&c.rec, nullptr), 1);
    EXPECT_STREQ(c.rec.tree->path, r.text);
    EXPECT_EQ(c.rec.tree->subdirs, nullptr);
  }
}

// ---- Through the exports ------------------------------------------------------------------------

class DirSnapshots : public DirTrees {
 protected:
  void SetUp() override {
    DirTrees::SetUp();
    WriteWholeFile(box_.file("P.GCF"), "dirs\n[GROUPDIRS_START]\n" + root_ + "\n" + box_.file("absent") +
                                           "\n[GROUPDIRS_END]\n");
    ASSERT_EQ(CreateSnapshotFromSpecifiedProfile(box_.file("P.GCF").c_str(), "one"), 0u);
  }
  std::string Doc(const std::string& body) {
    return "<?xml version = \"1.0\"?>\r\n<!DOCTYPE DIRTREEXML SYSTEM \"dirtree.dtd\">\r\n<DIRTREEXML>\r\n" + body +
           "</DIRTREEXML>\r\n";
  }
};

TEST_F(DirSnapshots, DirInfoLineCarriesTheListingCrc) {
  std::string index = ReadWholeFile(box_.file("BASE0000.BCF"));
  size_t at = index.find("[DIRINFO_START]\r\n");
  ASSERT_NE(at, std::string::npos);
  std::string line = index.substr(at + 17, index.find("\r\n", at + 17) - at - 17);
  const std::string prefix = root_ + ",DIR0000.OVD,1,";
  ASSERT_EQ(line.substr(0, prefix.size()), prefix);  // the missing directory gives no line
  EXPECT_NE(index.find(root_ + ",DIR0000.OVD,1," + line.substr(prefix.size()) + "\r\n[DIRINFO_END]"), std::string::npos);
  ASSERT_EQ(ExpandFile(box_.file("x.txt").c_str(), box_.file("NIMBRA\\DIR0000.OVD").c_str()), 0);
  std::string text = ReadWholeFile(box_.file("x.txt"));
  EXPECT_EQ(line.substr(prefix.size()), std::to_string(Crc32(text.data(), text.size())));
}

TEST_F(DirSnapshots, Documents) {
  const std::string out = box_.file("d.xml");
  // Identical trees: even the root is skipped.
  ASSERT_EQ(CreateSnapshotFromSpecifiedProfile(box_.file("P.GCF").c_str(), "two"), 0u);
  ASSERT_EQ(CompareDirtoXML("BASE0000.BCF", "BASE0001.BCF", root_.c_str(), out.c_str(), 0), 0u);
  EXPECT_EQ(ReadWholeFile(out), Doc(""));
  // A change three levels down: the chain of directories, then the file's two DIRVALs.
  SetTime(root_ + "\\a\\b\\c\\deep.ini", 7);
  ASSERT_EQ(CompareDirtoXML("BASE0000.BCF", nullptr, root_.c_str(), out.c_str(), 1), 0u);
  const std::string doc = ReadWholeFile(out);
  EXPECT_EQ(doc, Doc("  <DIRTREE>\r\n   <NNAME><![CDATA[" + root_ + "\\]]></NNAME><CHGFLAG flag=\"X\"/>\r\n"
                     "  <DIRTREE>\r\n   <NNAME><![CDATA[" + root_ + "\\a]]></NNAME><CHGFLAG flag=\"X\"/>\r\n"
                     "  <DIRTREE>\r\n   <NNAME><![CDATA[" + root_ + "\\a\\b]]></NNAME><CHGFLAG flag=\"X\"/>\r\n"
                     "  <DIRTREE>\r\n   <NNAME><![CDATA[" + root_ + "\\a\\b\\c]]></NNAME><CHGFLAG flag=\"X\"/>\r\n"
                     "    <DIRVAL>    <FNAME><![CDATA[deep.ini]]></FNAME><CHGFLAG flag=\"F\"/>     "
                     "<TIME>02/03/2001 04:05:03</TIME>     <SIZE>4</SIZE>\r\n    </DIRVAL>\r\n"
                     "    <DIRVAL>    <FNAME><![CDATA[deep.ini]]></FNAME><CHGFLAG flag=\"T\"/>     "
                     "<TIME>02/03/2001 04:07:03</TIME>     <SIZE>4</SIZE>\r\n    </DIRVAL>\r\n"
                     "  </DIRTREE>\r\n  </DIRTREE>\r\n  </DIRTREE>\r\n  </DIRTREE>\r\n"));
  // One snapshot alone: the whole tree, every letter "X".
  ASSERT_EQ(CompareDirtoXML("BASE0000.BCF", nullptr, root_.c_str(), out.c_str(), 0), 0u);
  const std::string listing = ReadWholeFile(out);
  EXPECT_NE(listing.find("<FNAME><![CDATA[with, comma.txt]]></FNAME><CHGFLAG flag=\"X\"/>"), std::string::npos);
  EXPECT_EQ(listing.find("flag=\"O\""), std::string::npos);
  EXPECT_EQ(listing.find("flag=\"F\""), std::string::npos);
  // The directory named in another case: a file added on the live side (whose nodes carry that
  // spelling) still shows its bare name.
  WriteWholeFile(root_ + "\\added.txt", "new");
  std::string shouted = root_;
  for (char& c : shouted) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
  ASSERT_EQ(CompareDirtoXML("BASE0000.BCF", nullptr, shouted.c_str(), out.c_str(), 1), 0u);
  EXPECT_NE(ReadWholeFile(out).find("<FNAME><![CDATA[added.txt]]></FNAME><CHGFLAG flag=\"N\"/>"), std::string::npos)
      << ReadWholeFile(out);
}

TEST_F(DirSnapshots, FiltersOfTheConfigurationFileApply) {
  const std::string out = box_.file("d.xml");
  WriteWholeFile(root_ + "\\top.txt", "changed size");
  WriteWholeFile(root_ + "\\a\\one.dll", "changed size too");
  WritePrivateProfileStringA("EXC_FILTER", "1", "*.txt", box_.file("ORVALIS.CFG").c_str());
  ASSERT_EQ(CompareDirtoXML("BASE0000.BCF", nullptr, root_.c_str(), out.c_str(), 1), 0u);
  const std::string doc = ReadWholeFile(out);
  EXPECT_EQ(doc.find("top.txt"), std::string::npos);
  EXPECT_NE(doc.find("<FNAME><![CDATA[one.dll]]></FNAME><CHGFLAG flag=\"F\"/>"), std::string::npos);
}

TEST_F(DirSnapshots, ResultCodes) {
  const std::string out = box_.file("d.xml");
  EXPECT_EQ(CompareDirtoXML("BASE0000.BCF", nullptr, box_.file("absent").c_str(), out.c_str(), 1), 87u);
  EXPECT_EQ(CompareDirtoXML(nullptr, nullptr, root_.c_str(), out.c_str(), 0), 87u);
  EXPECT_EQ(CompareDirtoXML("BASE0000.BCF", "BASE0009.BCF", root_.c_str(), out.c_str(), 0), 87u);
  EXPECT_FALSE(FileExists(out));
  EXPECT_EQ(CompareDirtoXML(nullptr, nullptr, root_.c_str(), out.c_str(), 1), 0u);  // live against itself
  EXPECT_EQ(ReadWholeFile(out), Doc(""));
}

FILE* FailListingWrites(const char* path, const char* mode) {
  if (std::string(path).find("DIRTEMP.TMP") != std::string::npos) return nullptr;
  return fopen(path, mode);
}

TEST_F(DirSnapshots, AFailingDirectoryStageLeavesNothingBehind) {
  Io().fopen = FailListingWrites;
  ASSERT_EQ(CreateSnapshotFromSpecifiedProfile(box_.file("P.GCF").c_str(), "doomed"), 0u);
  box_.RestoreSeam();
  EXPECT_FALSE(FileExists(box_.file("BASE0001.BCF")));
  for (const std::string& n : orvalis_test::ListDir(box_.file("NIMBRA")))
    if (n.rfind("AST", 0) != 0) {
      EXPECT_EQ(n, "DIR0000.OVD");  // only the first snapshot's listing
    }
  // The default-profile export resets and writes the log; this one appends to it.
  SetDefaultProfile(box_.file("P.GCF").c_str());
  Io().fopen = FailListingWrites;
  ASSERT_EQ(CreateSnapshotFromDefaultProfile("doomed"), 0u);
  box_.RestoreSeam();
  std::string log = ReadWholeFile(box_.file("halvern.log"));
  EXPECT_NE(log.find("Writing base dir info\r\nFailed to write dir info\r\nBack from create snapshot\r\n"),
            std::string::npos)
      << log;
  EXPECT_FALSE(FileExists(box_.file("BASE0001.BCF")));
}

}  // namespace

namespace {

// The walk converts file times itself; it must agree with the system's conversion everywhere
// in the DOS range (leap days, ends of the range, the last second of a day).
TEST(DirTimes, WalkTimesAgreeWithTheSystemConversion) {
  EngineSandbox box;
  const std::string root = box.file("t");
  CreateDirectoryA(root.c_str(), nullptr);
  const SYSTEMTIME times[] = {{1980, 1, 0, 1, 0, 0, 0, 0},    {1999, 12, 0, 31, 23, 59, 59, 0},
                              {2000, 2, 0, 29, 12, 30, 31, 0}, {2024, 2, 0, 29, 1, 2, 3, 0},
                              {2038, 1, 0, 19, 3, 14, 8, 0},   {2107, 12, 0, 31, 23, 59, 58, 0},
                              {1979, 12, 0, 31, 23, 0, 0, 0},  {2108, 1, 0, 1, 0, 0, 0, 0}};
  int i = 0;
  for (const SYSTEMTIME& st : times) {
    const std::string p = root + "\\f" + std::to_string(i++);
    WriteWholeFile(p, "x");
    FILETIME local, utc;
    SystemTimeToFileTime(&st, &local);
    LocalFileTimeToFileTime(&local, &utc);
    HANDLE h = CreateFileA(p.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    SetFileTime(h, nullptr, nullptr, &utc);
    CloseHandle(h);
  }
  DirNode* tree = CaptureDirectory(root.c_str());
  ASSERT_NE(tree, nullptr);
  for (const DirNode* f = tree->files; f; f = f->next) {
    WIN32_FILE_ATTRIBUTE_DATA a;
    GetFileAttributesExA(f->path, GetFileExInfoStandard, &a);
    FILETIME local;
    WORD date = 0, time = 0;
    FileTimeToLocalFileTime(&a.ftLastWriteTime, &local);
    uint32_t want = FileTimeToDosDateTime(&local, &date, &time) ? (static_cast<uint32_t>(date) << 16 | time) : 0;
    EXPECT_EQ(f->time, want) << f->path;
  }
  FreeDirTree(tree);
}

}  // namespace
