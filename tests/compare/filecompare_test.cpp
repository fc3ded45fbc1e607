#include "compare/filecompare.h"

#include <gtest/gtest.h>

#include "tests/compare/compare_helpers.h"

using namespace orvalis;
using namespace orvalis_test;
using V = std::vector<std::string>;

namespace {

struct WalkCase {
  const char* name;
  std::string older, newer;
  V expected;
  int differs;
};

TEST(CompareTextLines, Walk) {
  const std::string x255(255, 'x');
  const WalkCase cases[] = {
      {"identical", "a\nb\n", "a\nb\n", {"6 1 a", "6 2 b"}, 0},
      {"leading blanks ignored", "  a\n\tb\n", "a\n  b\n", {"6 1   a", "6 2 \tb"}, 0},
      {"inserted line", "a\nb\nc\n", "a\nX\nb\nc\n", {"6 1 a", "1 -1 X", "6 2 b", "6 3 c"}, 1},
      {"removed line", "a\nX\nb\n", "a\nb\n", {"6 1 a", "2 2 X", "6 3 b"}, 1},
      {"older blank shown, newer blank skipped", "a\n\nb\n", "a\nb\n", {"6 1 a", "6 2 ", "6 3 b"}, 0},
      {"newer blank skipped", "a\nb\n", "a\n\nb\n", {"6 1 a", "6 2 b"}, 0},
      {"newer tail, blanks too", "a\n", "a\n\nz\n", {"6 1 a", "1 -1 ", "1 -1 z"}, 1},
      {"older tail", "a\nq\n\n", "a\n", {"6 1 a", "2 2 q", "2 3 "}, 1},
      {"unrelated lines", "a\nfoo\nb\n", "a\nbar\nb\n", {"6 1 a", "2 2 foo", "1 -1 bar", "6 3 b"}, 1},
      {"changed line", "a\nvalue=1\nb\n", "a\nnew value=1\nb\n",
       {"6 1 a", "4 2 value=1", "5 -1 new value=1", "6 3 b"}, 1},
      {"long line read in 255-byte pieces", x255 + "xyz\nend\n", x255 + "xyz\nend\n",
       {"6 1 " + x255, "6 2 xyz", "6 3 end"}, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ScratchDir dir;
    Compared r;
    CompareCopies(r, dir, "C:\\AUTOEXEC.BAT", c.older, c.newer);
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(RenderLines(r.item.lines), c.expected);
    EXPECT_EQ((r.item.flags & kFileDiffers) != 0, c.differs == 1);
    EXPECT_EQ(r.item.sections, nullptr);
  }
}

// One-line files that differ: similar lines pair up as a change (4 then 5), others are a
// removal followed by an addition. Lengths count the line feed.
TEST(CompareTextLines, Similarity) {
  const struct {
    const char* name;
    std::string older, newer;
    bool similar;
  } cases[] = {
      {"3 chars never similar", "ab\n", "zzab\n", false},
      {"4 chars, substring", "abc\n", "zzabc\n", true},
      {"newer shorter, found in older", "xxabc\n", "abc\n", true},
      {"case matters", "Key\n", "key\n", false},
      {"trailing blank is a change", "alpha beta\n", "alpha beta \n", false},
      {"last line without line feed", "last", "last\n", true},
      {"25 chars, first 12 agree", "abcdefghijklmnopqrstuvwx\n", "abcdefghijklMNOPQRSTUVWX\n", true},
      {"24 chars, second piece to the end", "0123456789ABCDEFGHIJKLM\n", "xxxxxxxxxxxxDEFGHIJKLM\n", true},
      {"24 chars, skipped character", "0123456789ABCDEFGHIJKLM\n", "xxxxxxxxxxxxCDEFGHIJKLy\n", false},
      {"30 chars, three pieces", "0123456789ABCDEFGHIJKLMNOPQRS\n", "xxxxxxxxxxxxBCDEFGHIJyyyyyy\n", true},
      {"33 chars, middle piece", "0123456789ABCDEFGHIJKLMNOPQRSTUV\n", "xxxxxxxxxxCDEFGHIJKLyyyyyyyy\n", true},
      {"33 chars, middle piece shifted", "0123456789ABCDEFGHIJKLMNOPQRSTUV\n", "xxxxxxxxxxDEFGHIJKLMyyyyyyyy\n", false},
      {"33 chars, last piece", "0123456789ABCDEFGHIJKLMNOPQRSTUV\n", "xxxxxxxxxxxxxxxxxxxxNOPQRSTUV\n", true},
      {"long older, short newer: substring", "0123456789ABCDEFGHIJKLMNOPQRSTUV\n", "TUV\n", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ScratchDir dir;
    Compared r;
    CompareCopies(r, dir, "c:\\config.sys", c.older, c.newer);
    std::string o = c.older.substr(0, c.older.find('\n')), n = c.newer.substr(0, c.newer.find('\n'));
    V expected = c.similar ? V{"4 1 " + o, "5 -1 " + n} : V{"2 1 " + o, "1 -1 " + n};
    EXPECT_EQ(RenderLines(r.item.lines), expected);
  }
}

// The look-ahead reaches 50 lines: a block of 50 inserted lines is recognised, 51 are not
// (the common line then shows as removed and added again).
TEST(CompareTextLines, LookAheadIsFiftyLines) {
  for (int inserted : {50, 51}) {
    std::string newer;
    for (int i = 0; i < inserted; ++i) newer += "new" + std::to_string(i) + "\n";
    ScratchDir dir;
    Compared r;
    CompareCopies(r, dir, "c:\\a.txt", "keep\n", newer + "keep\n");
    V got = RenderLines(r.item.lines);
    ASSERT_FALSE(got.empty());
    if (inserted == 50) {
      EXPECT_EQ(got.size(), 51u);
      EXPECT_EQ(got.back(), "6 1 keep");
    } else {
      EXPECT_EQ(got.size(), 53u);
      EXPECT_EQ(got.front(), "2 1 keep");
      EXPECT_EQ(got.back(), "1 -1 keep");
    }
  }
}

// MinGW reads in text mode with CR LF folded to LF; glibc keeps the CR.
TEST(CompareTextLines, CrLfFollowsTheRuntime) {
  ScratchDir dir;
  Compared r;
  CompareCopies(r, dir, "c:\\a.txt", "a\r\nb\r\n", "a\nb\n");
#ifdef _WIN32
  EXPECT_EQ(RenderLines(r.item.lines), (V{"6 1 a", "6 2 b"}));
#else
  EXPECT_NE(r.item.flags & kFileDiffers, 0);
#endif
}

struct IniCase {
  const char* name;
  std::string older, newer;
  V expected;
  int differs;
};

TEST(CompareIniFiles, Merge) {
  const IniCase cases[] = {
      {"key case differs, value changed", "[s]\na=1\n", "[S]\nA=2\n", {"1008 [s]", "  14 a=|1", "  8 A=|2"}, 1},
      {"values compared without case", "[s]\na=abc\n", "[s]\na=ABC\n", {"1000 [s]", "  10 a=|abc"}, 0},
      {"keys keep '=', values untrimmed, comments and bare lines whole",
       "[s]\n key = v \n  ;c=1\nbare\n", "[s]\n key = v \n  ;c=1\nbare\n",
       {"1000 [s]", "  10  key =| v ", "  10   ;c=1|", "  10 bare|"}, 0},
      {"lines before the first section and empty lines ignored", "junk=1\n\n[s]\n\na=1\n", "other\n[s]\na=1\n\n",
       {"1000 [s]", "  10 a=|1"}, 0},
      {"new section after its predecessor in the newer copy", "[a]\nx=1\n[b]\ny=1\n",
       "[a]\nx=1\n[n]\nz=1\nw=2\n[b]\ny=1\n",
       {"1000 [a]", "  10 x=|1", "1002 [n]", "  2 z=|1", "  2 w=|2", "1000 [b]", "  10 y=|1"}, 1},
      {"new first section at the head", "[a]\nx=1\n", "[n]\nz=1\n[a]\nx=1\n",
       {"1002 [n]", "  2 z=|1", "1000 [a]", "  10 x=|1"}, 1},
      {"new entries: at the head, then after prev", "[s]\na=1\nc=3\n", "[s]\nz=0\na=1\nb=2\nc=3\n",
       {"1008 [s]", "  2 z=|0", "  10 a=|1", "  2 b=|2", "  10 c=|3"}, 1},
      {"removed entry marks its section", "[a]\nx=1\nw=1\n[b]\ny=1\n", "[a]\nx=1\n[b]\ny=2\n",
       {"1008 [a]", "  10 x=|1", "  1 w=|1", "1008 [b]", "  14 y=|1", "  8 y=|2"}, 1},
      // The final pass stops at the first marked section: [c] keeps its unclaimed entry
      // without being marked itself.
      {"final pass stops at the first marked section", "[a]\nx=1\n[b]\ny=1\n[c]\nz=1\nw=1\n",
       "[a]\nx=1\n[b]\ny=2\n[c]\nz=1\n",
       {"1000 [a]", "  10 x=|1", "1008 [b]", "  14 y=|1", "  8 y=|2", "1000 [c]", "  10 z=|1", "  1 w=|1"}, 1},
      {"continuation lines, all equal", "[s]\np=a\\\nx\n", "[s]\np=a\\\nx\n",
       {"1000 [s]", "  10 p=|a", "    4000 +x"}, 0},
      // Inverted on purpose: a differing continuation line counts as a match, values unseen.
      {"differing continuation matches", "[s]\np=a\\\nx\n", "[s]\np=a\\\ny\n",
       {"1000 [s]", "  10 p=|a", "    4000 +x"}, 0},
      {"differing continuation hides a changed value", "[s]\np=a\\\nx\n", "[s]\np=b\\\ny\n",
       {"1000 [s]", "  10 p=|a", "    4000 +x"}, 0},
      {"equal continuation, changed value", "[s]\np=a\\\nx\n", "[s]\np=b\\\nx\n",
       {"1008 [s]", "  14 p=|a", "    4000 +x", "  8 p=|b", "    4000 +x"}, 1},
      {"only the value's backslashes pull in lines", "[s]\np=a\\\\\nx\\\ny\nq=b\\\nz\\\nr=1\n",
       "[s]\np=a\\\\\nx\\\ny\nq=b\\\nz\\\nr=1\n",
       {"1000 [s]", "  10 p=|a", "    4000 +x\\", "    4000 +y", "  10 q=|b", "    4000 +z\\", "  10 r=|1"}, 0},
      // "device=" lines: a built-in driver is held against the first entry only, whatever
      // its key, by file name and extension.
      {"device: built-in matches the first entry's file name", "[386Enh]\nebios=*ebios\n",
       "[386Enh]\nebios=*ebios\ndevice=*EBIOS\ny=1\n",
       {"1008 [386Enh]", "  14 ebios=|*ebios", "  8 device=|*EBIOS", "  2 y=|1"}, 1},
      {"device: path ignored, file name compared", "[386Enh]\ndevice=c:\\win\\*vmm.386\n",
       "[386Enh]\ndevice=*VMM.386\n",
       {"1008 [386Enh]", "  14 device=|c:\\win\\*vmm.386", "  8 device=|*VMM.386"}, 1},
      {"device: other built-in dropped unseen", "[386Enh]\na=1\n", "[386Enh]\na=1\ndevice=*vmm\n",
       {"1000 [386Enh]", "  10 a=|1"}, 0},
      {"device: built-in compared with the first entry only", "[386Enh]\na=1\ndevice=*vmm\n",
       "[386Enh]\na=1\ndevice=*pagefile\n", {"1008 [386Enh]", "  10 a=|1", "  1 device=|*vmm"}, 1},
      {"device: not built-in is new", "[386Enh]\na=1\n", "[386Enh]\ndevice=vshare.386\na=1\n",
       {"1008 [386Enh]", "  2 device=|vshare.386", "  10 a=|1"}, 1},
      {"device: built-in with parameters is new", "[386Enh]\na=1\n", "[386Enh]\na=1\ndevice=*int13,x\n",
       {"1008 [386Enh]", "  10 a=|1", "  2 device=|*int13,x"}, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ScratchDir dir;
    Compared r;
    CompareCopies(r, dir, "C:\\WINDOWS\\SYSTEM.INI", c.older, c.newer);
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(RenderIni(r.item.sections), c.expected);
    EXPECT_EQ((r.item.flags & kFileDiffers) != 0, c.differs == 1);
    EXPECT_EQ(r.item.lines, nullptr);
  }
}

TEST(CompareIniFiles, RewindsBothStreams) {
  ScratchDir dir;
  WriteWholeFile(dir.file("a.ini"), "[a]\nx=1\n");
  WriteWholeFile(dir.file("b.ini"), "[a]\nx=2\n");
  FILE* older = std::fopen(dir.file("a.ini").c_str(), "r");
  FILE* newer = std::fopen(dir.file("b.ini").c_str(), "r");
  ASSERT_TRUE(older && newer);
  IniSection* s = nullptr;
  EXPECT_EQ(CompareIniFiles(newer, older, &s), 1);
  EXPECT_EQ(std::ftell(older), 0);
  EXPECT_EQ(std::ftell(newer), 0);
  FreeIniSections(s);
  std::fclose(older);
  std::fclose(newer);
}

TEST(CompareSystemFile, ExtensionChoosesIni) {
  const struct {
    const char* path;
    bool ini;
  } cases[] = {{"C:\\WINDOWS\\SYSTEM.INI", true}, {"c:\\x\\win.Ini", true}, {"c:\\dir.ini\\config", false},
               {"c:\\x\\a.ini.bak", false},      {"c:\\x\\INI", false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    ScratchDir dir;
    Compared r;
    CompareCopies(r, dir, c.path, "[a]\nx=1\n", "[a]\nx=1\n");
    EXPECT_EQ(r.item.sections != nullptr, c.ini);
    EXPECT_EQ(r.item.lines != nullptr, !c.ini);
  }
}

TEST(CompareSystemFile, Messages) {
  const struct {
    unsigned flags;
    const char* text;
  } cases[] = {{0xC0, kMsgNotText}, {0x42, kMsgNotInNewer}, {0x82, kMsgNotInOlder}, {0x02, kMsgInNeither}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.flags);
    ScratchDir dir;
    Compared r;
    CompareCopies(r, dir, "c:\\a.ini", "[a]\n", "[b]\n", c.flags);
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(RenderLines(r.item.lines), V{std::string("6 -1 ") + c.text});
    EXPECT_EQ(r.item.sections, nullptr);
    EXPECT_EQ(r.item.flags, c.flags);
  }
}

TEST(CompareSystemFile, MissingCopyGivesZeroAndNoMessage) {
  for (const char* missing : {"older", "newer"}) {
    SCOPED_TRACE(missing);
    ScratchDir dir;
    Compared r;
    WriteWholeFile(dir.file("older"), "a\n");
    WriteWholeFile(dir.file("newer"), "b\n");
    r.item.flags = 0xC2;
    CopyText(r.item.olderCopy, dir.file("older").c_str(), 260);
    CopyText(r.item.newerCopy, dir.file("newer").c_str(), 260);
    std::remove(dir.file(missing).c_str());
    EXPECT_EQ(CompareSystemFile(&r.item), 0);
    EXPECT_EQ(r.item.lines, nullptr);
  }
}

// Fails the n-th allocation for every n until a run gets through. A failing run must leave
// no result and no leak (the sanitizer build checks the latter).
int g_allocsLeft;
void* FailingCalloc(size_t n, size_t size) { return g_allocsLeft-- > 0 ? std::calloc(n, size) : nullptr; }

TEST(CompareSystemFile, AllocationFailures) {
  const struct {
    const char* path;
    unsigned flags;
    int resultOnFailure;
  } cases[] = {{"c:\\a.txt", 0xC2, 1}, {"c:\\a.ini", 0xC2, 1}, {"c:\\a.ini", 0x42, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    ScratchDir dir;
    for (int n = 0;; ++n) {
      ASSERT_LT(n, 1000);
      Compared r;
      g_allocsLeft = n;
      CompareSys().calloc = FailingCalloc;
      CompareCopies(r, dir, c.path, "[a]\nx=1\\\ny\nz=2\nold\n", "[a]\nx=1\\\nq\nz=3\n[b]\nnew=1\n", c.flags);
      ResetCompareSys();
      if (g_allocsLeft >= 0) break;  // nothing failed
      EXPECT_EQ(r.result, c.resultOnFailure);
      EXPECT_EQ(r.item.lines, nullptr);
      EXPECT_EQ(r.item.sections, nullptr);
      EXPECT_EQ(r.item.flags & kFileDiffers, 0);
    }
  }
}

}  // namespace
