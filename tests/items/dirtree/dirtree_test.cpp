// Directory trees under Wine: capture, listings, comparison and the directory document.
#include <algorithm>

#include "compress/crc32.h"
#include "engine/filecodec_win.h"
#include "engine/sys.h"
#include "exports/exports.h"
#include "items/dirtree/dirtree.h"
#include "tests/support/engine_sandbox.h"

using namespace orvalis;
using namespace orvalis_test;

namespace {

void MakeDir(const std::string& p) { CreateDirectoryA(p.c_str(), nullptr); }

void SetTime(const std::string& p, SYSTEMTIME st) {
  HANDLE h = CreateFileA(p.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  FILETIME local, utc;
  SystemTimeToFileTime(&st, &local);
  LocalFileTimeToFileTime(&local, &utc);
  SetFileTime(h, nullptr, nullptr, &utc);
  CloseHandle(h);
}
void SetMinute(const std::string& p, int minute) { SetTime(p, {2001, 2, 0, 3, 4, WORD(minute), 6, 0}); }

const char* Letter(uint16_t f) {
  return f & kDirOlder ? "O" : f & kDirNewer ? "N" : f & kDirModified ? "F" : f & kDirNewerCopy ? "T"
         : f & kDirChangeBelow ? "B" : "-";
}

// One line per node, depth first: path, then optionally its change letter, its size and time.
std::string Dump(const DirNode* d, bool marks = true, bool sizes = false) {
  if (!d) return "";
  std::string out = std::string(d->path) + (marks ? std::string(" ") + Letter(d->flags) : "") +
                    (sizes ? " " + std::to_string(d->size) + " " + std::to_string(d->time) : "") + "\n";
  for (const DirNode* s = d->subdirs; s; s = s->next) out += Dump(s, marks, sizes);
  for (const DirNode* s = d->files; s; s = s->next) out += Dump(s, marks, sizes);
  return out;
}
std::string Under(const std::string& root, std::initializer_list<const char*> rows) {
  std::string out;
  for (const char* r : rows) out += root + r + "\n";
  return out;
}

class DirTrees : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* d : {"", "\\a", "\\a\\b", "\\a\\b\\c", "\\.hidden", "\\Temporary Internet Files"})
      MakeDir(root_ + d);
    for (const char* f : {"\\top.txt", "\\with, comma.txt", "\\.dotfile", "\\.hidden\\inside.txt",
                          "\\Temporary Internet Files\\cache.dat", "\\a\\b\\c\\deep.ini", "\\a\\one.dll"})
      WriteWholeFile(root_ + f, f);
    SetMinute(root_ + "\\a\\b\\c\\deep.ini", 5);
    MakeDir(box_.file("NIMBRA"));
  }
  std::string Listing(const char* name, int compress) {
    DirNode* tree = CaptureDirectory(root_.c_str());
    uint32_t crc;
    EXPECT_EQ(WriteDirListing(box_.file(name).c_str(), tree, compress, &crc), 1);
    FreeDirTree(tree);
    return box_.file(name);
  }
  EngineSandbox box_;
  const std::string root_ = box_.file("tree");
};

TEST_F(DirTrees, CaptureSkipsDotNamesAndBrowserCachesReadsBackEqualKeepsTimesAndCopesWithThousands) {
  DirNode* live = CaptureDirectory((root_ + "\\").c_str());  // a trailing backslash changes nothing
  ASSERT_NE(live, nullptr);
  EXPECT_EQ(Dump(live, false), Under(root_, {"\\", "\\a", "\\a\\b", "\\a\\b\\c", "\\a\\b\\c\\deep.ini", "\\a\\one.dll",
                                             "\\top.txt", "\\with, comma.txt"}));
  for (int compress : {0, 1}) {
    uint32_t crc = 7;
    const std::string listing = box_.file("NIMBRA\\L.OVD");
    ASSERT_EQ(WriteDirListing(listing.c_str(), live, compress, &crc), 1);
    EXPECT_FALSE(FileExists(box_.file("NIMBRA\\DIRTEMP.TMP")));
    DirNode* back = LoadDirListing(listing.c_str(), compress);
    EXPECT_EQ(Dump(back, true, true), Dump(live, true, true));
    FreeDirTree(back);
    std::string text = ReadWholeFile(listing);
    if (compress) {
      ASSERT_EQ(ExpandFile(box_.file("plain.txt").c_str(), listing.c_str()), 0);
      text = ReadWholeFile(box_.file("plain.txt"));
    }
    EXPECT_EQ(crc, compress ? Crc32(text.data(), text.size()) : 0u);
    EXPECT_EQ(text.substr(0, text.find('\n')), root_ + "\r");
  }
  FreeDirTree(live);
  box_.SetOrvalis("SkipIETempFiles", "0");
  live = CaptureDirectory(root_.c_str());
  EXPECT_NE(Dump(live).find("Temporary Internet Files\\cache.dat"), std::string::npos);
  FreeDirTree(live);
  EXPECT_EQ(CaptureDirectory(box_.file("missing").c_str()), nullptr);
  // The walk converts file times with its own calendar arithmetic: odd seconds, a leap day of a
  // century, and years before and past the DOS range must agree with the system's conversion.
  const std::string dir = box_.file("t");
  MakeDir(dir);
  const SYSTEMTIME times[] = {{1999, 12, 0, 31, 23, 59, 59, 0}, {2000, 2, 0, 29, 12, 30, 31, 0},
                              {1979, 12, 0, 31, 23, 0, 0, 0}, {2108, 1, 0, 1, 0, 0, 0, 0}};
  for (size_t i = 0; i < std::size(times); ++i) {
    WriteWholeFile(dir + "\\f" + std::to_string(i), "x");
    SetTime(dir + "\\f" + std::to_string(i), times[i]);
  }
  live = CaptureDirectory(dir.c_str());
  ASSERT_NE(live, nullptr);
  for (const DirNode* f = live->files; f; f = f->next) {
    WIN32_FILE_ATTRIBUTE_DATA a;
    FILETIME local;
    WORD date = 0, time = 0;
    GetFileAttributesExA(f->path, GetFileExInfoStandard, &a);
    FileTimeToLocalFileTime(&a.ftLastWriteTime, &local);
    EXPECT_EQ(f->time, FileTimeToDosDateTime(&local, &date, &time) ? uint32_t(date) << 16 | time : 0) << f->path;
  }
  FreeDirTree(live);
  // Thousands of files, and paths near the limit.
  for (int d = 0; d < 20; ++d) {
    MakeDir(root_ + "\\bulk" + std::to_string(d));
    for (int f = 0; f < 100; ++f)
      WriteWholeFile(root_ + "\\bulk" + std::to_string(d) + "\\file" + std::to_string(f) + ".dat", std::string(f, 'x'));
  }
  std::string deep = root_;
  int levels = 0;
  for (; deep.size() < 230; ++levels) MakeDir(deep += "\\nnnnnnnnnnnnnnnnnnnnnnnn");
  const std::string nearLimit = deep + "\\" + std::string(MAX_PATH - 2 - deep.size(), 'f');  // 258 characters
  WriteWholeFile(nearLimit, "edge");
  live = CaptureDirectory(root_.c_str());
  const std::string dump = Dump(live, false, true);
  EXPECT_NE(dump.find(nearLimit + " 4 "), std::string::npos);
  EXPECT_EQ(std::count(dump.begin(), dump.end(), '\n'), 10 + 20 * 101 + levels + 1);  // the browser cache now in
  FreeDirTree(live);
  DirNode* back = LoadDirListing(Listing("NIMBRA\\BIG.OVD", 1).c_str(), 1);
  EXPECT_EQ(Dump(back, false, true), dump);
  FreeDirTree(back);
}

struct Compared {
  Compared(uint16_t flags, const std::string& older = "", const std::string& newer = "", const std::string& path = "") {
    rec.flags = flags;
    rec.olderCompressed = !older.empty();
    lstrcpynA(rec.path, path.c_str(), MAX_PATH);
    lstrcpynA(rec.olderListing, older.c_str(), MAX_PATH);
    lstrcpynA(rec.newerListing, newer.c_str(), MAX_PATH);
    result = CompareDirectory(&rec, nullptr);
  }
  ~Compared() { FreeDirTree(rec.tree); }
  DirCompareRecord rec{};
  int result;
};

// A file's name changed only in case is unchanged.
TEST_F(DirTrees, ComparisonWithTheLiveDiskAndWithASecondListing) {
  const std::string older = Listing("NIMBRA\\OLD.OVD", 1);
  SetMinute(root_ + "\\a\\b\\c\\deep.ini", 9);
  DeleteFileA((root_ + "\\a\\one.dll").c_str());
  WriteWholeFile(root_ + "\\new.txt", "new");
  MoveFileA((root_ + "\\top.txt").c_str(), (root_ + "\\TOP.TXT").c_str());
  MakeDir(root_ + "\\added");
  for (const std::string& newer : {std::string(), Listing("NIMBRA\\NEW.OVD", 0)}) {
    Compared c(0xC0, older, newer, root_);
    ASSERT_EQ(c.result, 1);
    EXPECT_EQ(Dump(c.rec.tree), Under(root_, {"\\ B", "\\a B", "\\a\\b B", "\\a\\b\\c B", "\\a\\b\\c\\deep.ini F",
                                              "\\a\\b\\c\\deep.ini T", "\\a\\one.dll O", "\\added N", "\\new.txt N",
                                              "\\top.txt -", "\\with, comma.txt -"}));
  }
  WriteWholeFile(box_.file("NIMBRA\\OTHER.OVD"), "C:\\elsewhere\n2048,1,1,C:\\elsewhere\\f\n");
  Compared other(0xC0, older, box_.file("NIMBRA\\OTHER.OVD"));
  EXPECT_EQ(other.result, 0);
  EXPECT_EQ(other.rec.tree, nullptr);
  const std::pair<uint16_t, const char*> sides[] = {{0x40, kDirOnlyOlder}, {0x80, kDirOnlyNewer}, {0, kDirInNeither}};
  for (auto [flags, text] : sides) {
    Compared c(flags);
    ASSERT_EQ(c.result, 1);
    EXPECT_STREQ(c.rec.tree->path, text);
    EXPECT_EQ(c.rec.tree->subdirs, nullptr);
  }
}

// An empty value counts as a file pattern too.
TEST_F(DirTrees, FiltersFromTheConfigurationFileAndBadListings) {
  const std::string cfg = box_.file("ORVALIS.CFG"), onlyEmpty = box_.file("EMPTY.CFG");
  WritePrivateProfileStringA("INC_FILTER", "1", "*.ini", cfg.c_str());
  WritePrivateProfileStringA("INC_FILTER", "2", "one.dll", cfg.c_str());
  WritePrivateProfileStringA("EXC_FILTER", "1", "DEEP.INI", cfg.c_str());
  WritePrivateProfileStringA("INC_FILTER", "1", "", onlyEmpty.c_str());
  const struct { std::string file; const char* name; bool admitted; } rows[] = {
      {cfg, "x.ini", true},    {cfg, "X.INI", true},    {cfg, "one.dll", true},  {cfg, "two.dll", false},
      {cfg, "deep.ini", false}, {cfg, "noext", false}, {box_.file("missing.cfg"), "anything.at.all", true},
      {onlyEmpty, "x.ini", false}};
  for (const auto& r : rows) {
    DirFilters* f = nullptr;
    ASSERT_EQ(LoadDirFilters(r.file.c_str(), &f), 0);
    EXPECT_EQ(FilterAdmits(f, r.name), r.admitted) << r.file << " " << r.name;
    FreeDirFilters(f);
  }
  orvalis::Io().calloc = [](size_t, size_t) -> void* { return nullptr; };
  DirFilters* failed = reinterpret_cast<DirFilters*>(1);
  EXPECT_EQ(LoadDirFilters(cfg.c_str(), &failed), 8);
  EXPECT_EQ(failed, nullptr);
  box_.RestoreSeam();
  // Bad listings load without overrun, or not at all.
  const std::string packed = ReadWholeFile(Listing("NIMBRA\\OLD.OVD", 1));
  std::string deep = "C:\\r", deepListing = "C:\\r\n";
  for (int i = 0; i < 200; ++i) deepListing += "1024,0,0," + (deep += "\\d") + "\n";
  deepListing += "2048,1,1," + deep + "\\f\n";
  const struct { const char* name; std::string bytes; int compressed; bool loads; } listings[] = {
      {"truncated stream", packed.substr(0, packed.size() / 2), 1, true},
      {"garbage stream", std::string(300, '\x5a'), 1, false},
      {"empty", "", 0, false},
      {"no commas", "C:\\r\njunk line\n2048,1,1,C:\\r\\f\n", 0, true},
      {"binary lines", std::string("C:\\r\n\x01\x02,\xff,,C:\\r\\\x80\n", 18), 0, true},
      {"200 levels", deepListing, 0, true},
      {"long line", "C:\\r\n2048,1,1,C:\\r\\" + std::string(2000, 'y') + "\n", 0, true}};
  for (const auto& r : listings) {
    WriteWholeFile(box_.file("NIMBRA\\BAD.OVD"), r.bytes);
    DirNode* t = LoadDirListing(box_.file("NIMBRA\\BAD.OVD").c_str(), r.compressed);
    EXPECT_EQ(t != nullptr, r.loads) << r.name;
    FreeDirTree(t);
  }
}

TEST_F(DirTrees, SnapshotDocuments) {
  WriteWholeFile(box_.file("P.GCF"), "dirs\n[GROUPDIRS_START]\n" + root_ + "\n" + box_.file("absent") +
                                         "\n[GROUPDIRS_END]\n");
  ASSERT_EQ(CreateSnapshotFromSpecifiedProfile(box_.file("P.GCF").c_str(), "one"), 0u);
  const std::string out = box_.file("d.xml");
  auto Doc = [](const std::string& body) {
    return "<?xml version = \"1.0\"?>\r\n<!DOCTYPE DIRTREEXML SYSTEM \"dirtree.dtd\">\r\n<DIRTREEXML>\r\n" + body +
           "</DIRTREEXML>\r\n";
  };
  // The absent directory gives no line.
  ASSERT_EQ(ExpandFile(box_.file("x.txt").c_str(), box_.file("NIMBRA\\DIR0000.OVD").c_str()), 0);
  const std::string text = ReadWholeFile(box_.file("x.txt"));
  EXPECT_NE(ReadWholeFile(box_.file("BASE0000.BCF")).find("[DIRINFO_START]\r\n" + root_ + ",DIR0000.OVD,1," +
                                                          std::to_string(Crc32(text.data(), text.size())) + "\r\n[DIRINFO_END]"),
            std::string::npos);
  // Identical trees: even the root is skipped.
  ASSERT_EQ(CreateSnapshotFromSpecifiedProfile(box_.file("P.GCF").c_str(), "two"), 0u);
  ASSERT_EQ(CompareDirtoXML("BASE0000.BCF", "BASE0001.BCF", root_.c_str(), out.c_str(), 0), 0u);
  EXPECT_EQ(ReadWholeFile(out), Doc(""));
  // A change three levels down: the chain of directories, then the file's two DIRVALs.
  SetMinute(root_ + "\\a\\b\\c\\deep.ini", 7);
  ASSERT_EQ(CompareDirtoXML("BASE0000.BCF", nullptr, root_.c_str(), out.c_str(), 1), 0u);
  std::string chain;
  for (const char* d : {"\\", "\\a", "\\a\\b", "\\a\\b\\c"})
    chain += "  <DIRTREE>\r\n   <NNAME><![CDATA[" + root_ + d + "]]></NNAME><CHGFLAG flag=\"X\"/>\r\n";
  const std::string val = "    <DIRVAL>    <FNAME><![CDATA[deep.ini]]></FNAME><CHGFLAG flag=\"";
  EXPECT_EQ(ReadWholeFile(out),
            Doc(chain + val + "F\"/>     <TIME>02/03/2001 04:05:03</TIME>     <SIZE>15</SIZE>\r\n    </DIRVAL>\r\n" +
                val + "T\"/>     <TIME>02/03/2001 04:07:03</TIME>     <SIZE>15</SIZE>\r\n    </DIRVAL>\r\n" +
                "  </DIRTREE>\r\n  </DIRTREE>\r\n  </DIRTREE>\r\n  </DIRTREE>\r\n"));
  // One snapshot alone: the whole tree, every letter "X".
  ASSERT_EQ(CompareDirtoXML("BASE0000.BCF", nullptr, root_.c_str(), out.c_str(), 0), 0u);
  const std::string listing = ReadWholeFile(out);
  EXPECT_NE(listing.find("<FNAME><![CDATA[with, comma.txt]]></FNAME><CHGFLAG flag=\"X\"/>"), std::string::npos);
  EXPECT_EQ(listing.find("flag=\"F\""), std::string::npos);
  // The live side's nodes carry the spelling of the directory as named.
  WriteWholeFile(root_ + "\\added.txt", "new");
  std::string shouted = root_;
  for (char& c : shouted) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
  ASSERT_EQ(CompareDirtoXML("BASE0000.BCF", nullptr, shouted.c_str(), out.c_str(), 1), 0u);
  EXPECT_NE(ReadWholeFile(out).find("<FNAME><![CDATA[added.txt]]></FNAME><CHGFLAG flag=\"N\"/>"), std::string::npos);
  WriteWholeFile(root_ + "\\a\\one.dll", "changed size");
  WritePrivateProfileStringA("EXC_FILTER", "1", "*.txt", box_.file("ORVALIS.CFG").c_str());
  ASSERT_EQ(CompareDirtoXML("BASE0000.BCF", nullptr, root_.c_str(), out.c_str(), 1), 0u);
  const std::string filtered = ReadWholeFile(out);
  EXPECT_EQ(filtered.find("added.txt"), std::string::npos);
  EXPECT_NE(filtered.find("<FNAME><![CDATA[one.dll]]></FNAME><CHGFLAG flag=\"F\"/>"), std::string::npos);
  DeleteFileA(out.c_str());
  EXPECT_EQ(CompareDirtoXML("BASE0000.BCF", nullptr, box_.file("absent").c_str(), out.c_str(), 1), 87u);
  EXPECT_EQ(CompareDirtoXML(nullptr, nullptr, root_.c_str(), out.c_str(), 0), 87u);
  EXPECT_EQ(CompareDirtoXML("BASE0000.BCF", "BASE0009.BCF", root_.c_str(), out.c_str(), 0), 87u);
  EXPECT_FALSE(FileExists(out));
  EXPECT_EQ(CompareDirtoXML(nullptr, nullptr, root_.c_str(), out.c_str(), 1), 0u);  // live against itself
  EXPECT_EQ(ReadWholeFile(out), Doc(""));
}

}  // namespace
