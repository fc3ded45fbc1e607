#include "items/sysfiles/filecompare.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "base/io.h"
#include "tests/items/sysfiles/compare_helpers.h"

using namespace orvalis;
using namespace orvalis_test;

namespace {

// Leading blanks and blank lines of the newer copy do not count; a blank line of the older
// copy is shown. A physical line of more than 255 characters is read, numbered and compared
// in pieces.
TEST(CompareTextLines, Walk) {
  const std::string x255(255, 'x');
  const struct { const char* name; std::string older, newer; V expected; } cases[] = {
      {"blanks", "  a\n\nb\n\tc\n", "a\nb\n\n  c\n", {"6 1   a", "6 2 ", "6 3 b", "6 4 \tc"}},
      {"look-ahead both ways", "a\nX\nb\nc\n", "a\nb\nY\nc\n", {"6 1 a", "2 2 X", "6 3 b", "1 -1 Y", "6 4 c"}},
      {"look-ahead in the newer copy first", "a\nb\n", "b\na\n", {"1 -1 b", "6 1 a", "2 2 b"}},
      {"newer tail, blank lines too", "a\n", "a\n\nz\n", {"6 1 a", "1 -1 ", "1 -1 z"}},
      {"older tail", "a\nq\n\n", "a\n", {"6 1 a", "2 2 q", "2 3 "}},
      {"long line", x255 + "xyz\nend\n", x255 + "xyz\nend\n", {"6 1 " + x255, "6 2 xyz", "6 3 end"}},
      // MinGW reads in text mode with CR LF folded to LF; glibc keeps the CR.
#ifdef _WIN32
      {"CR LF", "a\r\nb\r\n", "a\nb\n", {"6 1 a", "6 2 b"}},
#else
      {"CR LF", "a\r\nb\r\n", "a\nb\n", {"2 1 a\r", "2 2 b\r", "1 -1 a", "1 -1 b"}},
#endif
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Compared r("C:\\AUTOEXEC.BAT", c.older, c.newer);
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(r.lines(), c.expected);
    EXPECT_EQ(r.differs(), std::any_of(c.expected.begin(), c.expected.end(), [](auto& l) { return l[0] != '6'; }));
  }
}

// One-line files that differ: similar lines pair up as a change (4 then 5), others are a
// removal and an addition. Lengths count the line feed. From 20 characters on, the older
// line is cut into two pieces (three from 30 on), the character at each cut left out, and
// one piece found in the newer line is enough; shorter lines must contain one another.
TEST(CompareTextLines, Similarity) {
  const std::string l20 = "0123456789ABCDEFGHI\n", l25 = "abcdefghijklmnopqrstuvwx\n",
                    l29 = "0123456789ABCDEFGHIJKLMNOPQR\n", l30 = "0123456789ABCDEFGHIJKLMNOPQRS\n",
                    l40 = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabc\n";
  const struct { const char* name; std::string older, newer; bool similar; } cases[] = {
      {"3 characters never", "ab\n", "zzab\n", false},
      {"4 characters, contained", "abc\n", "zzabc\n", true},
      {"newer shorter, contained in the older", l40, "abc\n", true},
      {"trailing blank", "alpha beta\n", "alpha beta \n", false},
      {"last line without line feed", "last", "last\n", true},
      {"20: second half", l20, "xxxxxxxxxxxBCDEFGHI\n", true},
      {"25: first half", l25, "abcdefghijklMNOPQRSTUVWX\n", true},
      {"25: second half, after the cut", l25, "ABCDEFGHIJKLMnopqrstuvwx\n", true},
      {"29: two pieces only", l29, "xxxxxABCDEFGHyyyyyyyy\n", false},
      {"30: three pieces", l30, "xxxxxBCDEFGHIJyyyyyyyy\n", true},
      {"40: middle third", l40, "xxxxxEFGHIJKLMNOPyyyy\n", true},
      {"40: middle third shifted", l40, "xxxxxFGHIJKLMNOPQyyyy\n", false},
      {"40: last third", l40, "xxxxxxxxRSTUVWXYZabc\n", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Compared r("c:\\config.sys", c.older, c.newer);
    std::string o = c.older.substr(0, c.older.find('\n')), n = c.newer.substr(0, c.newer.find('\n'));
    EXPECT_EQ(r.lines(), (c.similar ? V{"4 1 " + o, "5 -1 " + n} : V{"2 1 " + o, "1 -1 " + n}));
  }
}

// A block of 50 inserted lines is recognised; with 51 the common line shows as removed and
// added again.
TEST(CompareTextLines, LookAheadIsFiftyLines) {
  for (int inserted : {50, 51}) {
    std::string newer;
    for (int i = 0; i < inserted; ++i) newer += "new" + std::to_string(i) + "\n";
    Compared r("c:\\a.txt", "keep\n", newer + "keep\n");
    V got = r.lines();
    EXPECT_EQ(got.front(), inserted == 50 ? "1 -1 new0" : "2 1 keep");
    EXPECT_EQ(got.back(), inserted == 50 ? "6 1 keep" : "1 -1 keep");
  }
}

TEST(CompareIniFiles, Merge) {
  const struct { const char* name; std::string older, newer; V expected; bool differs; } cases[] = {
      {"key and section case ignored, value changed", "[s]\na=1\n", "[S]\nA=2\n", {"1008 [s]", "  14 a=|1", "  8 A=|2"}, 1},
      {"keys keep '=', values untrimmed and compared without case, comments and bare lines whole",
       "[s]\n key = v \n  ;c=1\nbare\n", "[s]\n key = V \n  ;c=1\nbare\n",
       {"1000 [s]", "  10  key =| v ", "  10   ;c=1|", "  10 bare|"}, 0},
      {"lines before the first section and empty lines ignored", "junk=1\n\n[s]\n\na=1\n", "other\n[s]\na=1\n\n",
       {"1000 [s]", "  10 a=|1"}, 0},
      {"new sections after their predecessor in the newer copy", "[a]\nx=1\n[b]\ny=1\n",
       "[h]\n[a]\nx=1\n[n]\nz=1\nw=2\n[b]\ny=1\n",
       {"1002 [h]", "1000 [a]", "  10 x=|1", "1002 [n]", "  2 z=|1", "  2 w=|2", "1000 [b]", "  10 y=|1"}, 1},
      {"new entries at the head, then after the one before", "[s]\na=1\nc=3\n", "[s]\nz=0\na=1\nb=2\nc=3\n",
       {"1008 [s]", "  2 z=|0", "  10 a=|1", "  2 b=|2", "  10 c=|3"}, 1},
      {"removed section alone", "[a]\nx=1\n[b]\ny=1\n", "[a]\nx=1\n", {"1000 [a]", "  10 x=|1", "1001 [b]", "  1 y=|1"}, 1},
      // Removed entries mark their section in a final pass, which stops at the first section
      // marked otherwise: [c] keeps its removed entry without being marked itself.
      {"final pass", "[a]\nx=1\nv=1\n[b]\ny=1\n[c]\nz=1\nw=1\n", "[a]\nx=1\n[b]\ny=2\n[c]\nz=1\n",
       {"1008 [a]", "  10 x=|1", "  1 v=|1", "1008 [b]", "  14 y=|1", "  8 y=|2", "1000 [c]", "  10 z=|1", "  1 w=|1"}, 1},
      // Inverted on purpose: with continuation lines, a differing pair counts as a match and
      // the values are not looked at; an equal pair falls back to the values.
      {"continuation lines", "[s]\np=a\\\nx\nq=a\\\nx\n", "[s]\np=b\\\ny\nq=b\\\nx\n",
       {"1008 [s]", "  10 p=|a", "    4000 +x", "  14 q=|a", "    4000 +x", "  8 q=|b", "    4000 +x"}, 1},
      {"only the value's backslashes pull in lines", "[s]\np=a\\\\\nx\\\ny\nq=b\\\nz\\\nr=1\n",
       "[s]\np=a\\\\\nx\\\ny\nq=b\\\nz\\\nr=1\n",
       {"1000 [s]", "  10 p=|a", "    4000 +x\\", "    4000 +y", "  10 q=|b", "    4000 +z\\", "  10 r=|1"}, 0},
      // "device=": a built-in driver is held against the section's first entry alone, whatever
      // its key, by file name and extension; a mismatch is dropped unseen. Others are new.
      {"device: built-in, same file name as the first entry", "[386Enh]\nebios=c:\\win\\*ebios.386\n",
       "[386Enh]\nebios=c:\\win\\*ebios.386\nDevice=*EBIOS.386\ny=1\n",
       {"1008 [386Enh]", "  14 ebios=|c:\\win\\*ebios.386", "  8 Device=|*EBIOS.386", "  2 y=|1"}, 1},
      {"device: built-in, other extension", "[386Enh]\nvmm=*vmm.386\n", "[386Enh]\nvmm=*vmm.386\ndevice=*vmm.vxd\n",
       {"1000 [386Enh]", "  10 vmm=|*vmm.386"}, 0},
      {"device: the older device line is not consulted", "[386Enh]\na=1\ndevice=c:\\*vmm\n",
       "[386Enh]\na=1\ndevice=*vmm\n", {"1008 [386Enh]", "  10 a=|1", "  1 device=|c:\\*vmm"}, 1},
      // Those do not count as the entry before the next new one.
      {"device: not built-in, or with parameters", "[386Enh]\na=1\n",
       "[386Enh]\ndevice=vshare.386\na=1\ndevice=*int13,x\nz=1\n",
       {"1008 [386Enh]", "  2 device=|vshare.386", "  10 a=|1", "  2 z=|1", "  2 device=|*int13,x"}, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Compared r("C:\\WINDOWS\\SYSTEM.INI", c.older, c.newer);
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(r.ini(), c.expected);
    EXPECT_EQ(r.differs(), c.differs);
  }
}

// A second run frees the first result; a copy that cannot be opened gives 0 and no message.
TEST(CompareSystemFile, ExtensionChoosesIniAndMessagesExplainTheRest) {
  const std::pair<const char*, bool> paths[] = {
      {"c:\\x\\win.Ini", true}, {"c:\\dir.ini\\config", false}, {"c:\\x\\a.ini.bak", false}};
  for (const auto& [path, ini] : paths) {
    Compared r(path, "[a]\nx=1\n", "[a]\nx=1\n");
    EXPECT_EQ(r.item.sections != nullptr, ini) << path;
    EXPECT_EQ(r.item.lines != nullptr, !ini) << path;
    std::remove(r.dir.file(ini ? "older" : "newer").c_str());
    EXPECT_EQ(CompareSystemFile(&r.item), 0) << path;
    EXPECT_TRUE(r.item.lines == nullptr && r.item.sections == nullptr) << path;
  }
  const std::pair<unsigned, const char*> messages[] = {
      {0xC0, kMsgNotText}, {0x42, kMsgNotInNewer}, {0x82, kMsgNotInOlder}, {0x02, kMsgInNeither}};
  for (const auto& [flags, text] : messages) {
    Compared r("c:\\a.ini", "[a]\n", "[b]\n", flags);
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(r.lines(), V{std::string("6 -1 ") + text});
    EXPECT_EQ(r.item.sections, nullptr);
    EXPECT_EQ(r.item.flags, flags);
  }
}

// Fails the n-th allocation for every n until a run gets through. A failing run must leave
// no result and no leak (the sanitizer build checks the latter).
int g_allocsLeft;
void* FailingCalloc(size_t n, size_t size) { return g_allocsLeft-- > 0 ? std::calloc(n, size) : nullptr; }

TEST(CompareSystemFile, AllocationFailures) {
  const std::pair<const char*, unsigned> cases[] = {{"c:\\a.txt", 0xC2}, {"c:\\a.ini", 0xC2}, {"c:\\a.ini", 0x42}};
  for (const auto& [path, flags] : cases) {
    for (int n = 0;; ++n) {
      ASSERT_LT(n, 1000);
      g_allocsLeft = n;
      orvalis::Io().calloc = FailingCalloc;
      Compared r(path, "[a]\nx=1\\\ny\nz=2\nold\n", "[a]\nx=1\\\nq\nz=3\n[b]\nnew=1\\\nmore\n", flags);
      orvalis::ResetIo();
      if (g_allocsLeft >= 0) break;  // nothing failed
      EXPECT_EQ(r.result, flags == 0x42 ? 0 : 1) << path;
      EXPECT_EQ(r.item.lines, nullptr);
      EXPECT_EQ(r.item.sections, nullptr);
      EXPECT_FALSE(r.differs());
    }
  }
}

}  // namespace
