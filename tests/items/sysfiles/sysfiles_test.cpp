// System files natively: the line and INI comparisons, and the SYSFILE document.
#include <algorithm>
#include <cstdlib>

#include "base/io.h"
#include "base/textutil.h"
#include "base/xmltext.h"
#include "items/sysfiles/filecompare.h"
#include "items/sysfiles/sysfilexml.h"
#include "tests/support/test_support.h"

using namespace orvalis;
using namespace orvalis_test;

namespace {

using V = std::vector<std::string>;

// Both copies compared as the file `path`, whose extension picks the INI or the line comparison.
struct Compared {
  Compared(const char* path, const std::string& older, const std::string& newer, unsigned flags = 0xC2) {
    WriteWholeFile(dir.file("older"), older);
    WriteWholeFile(dir.file("newer"), newer);
    item.flags = static_cast<uint16_t>(flags);
    CopyText(item.path, path, sizeof item.path);
    CopyText(item.olderCopy, dir.file("older").c_str(), sizeof item.olderCopy);
    CopyText(item.newerCopy, dir.file("newer").c_str(), sizeof item.newerCopy);
    result = CompareSystemFile(&item);
  }
  ~Compared() { FreeLineChanges(item.lines), FreeIniSections(item.sections); }
  bool differs() const { return item.flags & kFileDiffers; }
  // "kind number text" per record.
  V lines() const {
    V out;
    for (auto* l = item.lines; l; l = l->next)
      out.push_back(std::to_string(l->kind) + " " + std::to_string(l->lineNumber) + " " + l->text);
    return out;
  }
  // "flags name" per section, "  flags key|value" per entry, "    flags +text" per continuation.
  V ini() const {
    V out;
    auto hex = [](unsigned f) { char b[16]; return std::string(b, std::snprintf(b, sizeof b, "%x", f)); };
    for (auto* s = item.sections; s; s = s->next) {
      out.push_back(hex(s->flags) + " " + s->name);
      for (auto* e = s->entries; e; e = e->next) {
        out.push_back("  " + hex(e->flags) + " " + e->key + "|" + e->value);
        for (auto* k = e->continuation; k; k = k->next)
          out.push_back("    " + hex(k->flags) + " +" + k->text + (k->owner == e ? "" : " (bad owner)"));
      }
    }
    return out;
  }

  ScratchDir dir;
  FileCompareItem item{};
  int result;
};

// A blank line counts only in the older copy; a line of more than 255 characters is read in pieces.
TEST(CompareSystemFile, TextWalkSimilarityLookAheadAndTheIniMerge) {
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
  // Lengths count the line feed. From 20 characters the older line is cut into two pieces (three
  // from 30), the character at each cut left out, and one piece found in the newer line is enough.
  const std::string l20 = "0123456789ABCDEFGHI\n", l25 = "abcdefghijklmnopqrstuvwx\n",
                    l29 = "0123456789ABCDEFGHIJKLMNOPQR\n", l30 = "0123456789ABCDEFGHIJKLMNOPQRS\n",
                    l40 = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabc\n";
  const struct { const char* name; std::string older, newer; bool similar; } similar[] = {
      {"3 characters never", "ab\n", "zzab\n", false}, {"4 characters, contained", "abc\n", "zzabc\n", true},
      {"newer shorter, contained in the older", l40, "abc\n", true},
      {"trailing blank", "alpha beta\n", "alpha beta \n", false}, {"no last line feed", "last", "last\n", true},
      {"20: second half", l20, "xxxxxxxxxxxBCDEFGHI\n", true},
      {"25: first half", l25, "abcdefghijklMNOPQRSTUVWX\n", true},
      {"25: second half, after the cut", l25, "ABCDEFGHIJKLMnopqrstuvwx\n", true},
      {"29: two pieces only", l29, "xxxxxABCDEFGHyyyyyyyy\n", false},
      {"30: three pieces", l30, "xxxxxBCDEFGHIJyyyyyyyy\n", true},
      {"40: middle third", l40, "xxxxxEFGHIJKLMNOPyyyy\n", true},
      {"40: middle third shifted", l40, "xxxxxFGHIJKLMNOPQyyyy\n", false},
      {"40: last third", l40, "xxxxxxxxRSTUVWXYZabc\n", true}};
  for (const auto& c : similar) {
    SCOPED_TRACE(c.name);
    Compared r("c:\\config.sys", c.older, c.newer);
    std::string o = c.older.substr(0, c.older.find('\n')), n = c.newer.substr(0, c.newer.find('\n'));
    EXPECT_EQ(r.lines(), (c.similar ? V{"4 1 " + o, "5 -1 " + n} : V{"2 1 " + o, "1 -1 " + n}));
  }
  // The look-ahead is fifty lines.
  for (int inserted : {50, 51}) {
    std::string newer;
    for (int i = 0; i < inserted; ++i) newer += "new" + std::to_string(i) + "\n";
    const V got = Compared("c:\\a.txt", "keep\n", newer + "keep\n").lines();
    EXPECT_EQ(got.front() + "|" + got.back(), inserted == 50 ? "1 -1 new0|6 1 keep" : "2 1 keep|1 -1 keep");
  }
  // The INI comparison merges both copies into one list of sections.
  const struct { const char* name; std::string older, newer; V expected; bool differs; } inis[] = {
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
       {"1008 [386Enh]", "  2 device=|vshare.386", "  10 a=|1", "  2 z=|1", "  2 device=|*int13,x"}, 1}};
  for (const auto& c : inis) {
    SCOPED_TRACE(c.name);
    Compared r("C:\\WINDOWS\\SYSTEM.INI", c.older, c.newer);
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(r.ini(), c.expected);
    EXPECT_EQ(r.differs(), c.differs);
  }
}

int g_allocsLeft;
void* FailingCalloc(size_t n, size_t size) { return g_allocsLeft-- > 0 ? std::calloc(n, size) : nullptr; }

// A copy that cannot be opened gives 0 and no message.
TEST(CompareSystemFile, ExtensionChoosesIniMessagesExplainTheRestAndAllocationsFail) {
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
  // Each allocation fails in turn: no result and no leak (the sanitizers see that). The INI file of
  // both copies is swept through the file document export with the other failing exports.
  const std::pair<const char*, unsigned> cases[] = {{"c:\\a.txt", 0xC2}, {"c:\\a.ini", 0x42}};
  for (const auto& [path, flags] : cases) {
    for (int n = 0;; ++n) {
      ASSERT_LT(n, 1000);
      g_allocsLeft = n;
      orvalis::Io().calloc = FailingCalloc;
      Compared r(path, "[a]\nx=1\\\ny\nz=2\nold\n", "[a]\nx=1\\\nq\nz=3\n[b]\nnew=1\\\nmore\n", flags);
      orvalis::ResetIo();
      if (g_allocsLeft >= 0) break;  // nothing failed
      EXPECT_EQ(r.result, flags == 0x42 ? 0 : 1) << path;
      EXPECT_TRUE(!r.item.lines && !r.item.sections && !r.differs()) << path << " " << n;
    }
  }
}

// Without carriage returns, so the expected text is the same with and without CR LF translation.
std::string Written(const std::function<void(FILE*)>& write) { return NoCr(WrittenBy(write)); }
std::string Escaped(const std::string& text, size_t length) {
  return Written([&](FILE* f) { WriteEscapedText(f, text.c_str(), length); });
}

TEST(WriteEscapedText, OutputShortAndLong) {
  const struct { const char* name; std::string text; size_t length; std::string expected; } cases[] = {
      {"cdata", "a<b>&c", 6, "<![CDATA[a<b>&c]]>"},
      {"cdata drops bytes of 0x80 and above", "\xe9t\x80", 3, "<![CDATA[t]]>"},
      {"length bounds the bytes", "abcdef", 3, "<![CDATA[abc]]>"},
      // Kept as it is: no semicolons, and each byte rewrites all but the last character so far.
      {"escape: growing prefixes", "<]]>&", 5, "&l&lt&lt]&lt]]&g&lt]]&gt&am"},
      {"escape: a dropped byte repeats the prefix", "ab\xff]]>", 6, "aaabab]ab]]&g"},
      {"escape chosen on the whole string", "ab]]>", 2, "a"}};
  for (const auto& c : cases) EXPECT_EQ(Escaped(c.text, c.length), c.expected) << c.name;
  // Long texts cross the flush points.
  std::string text, kept;
  for (int i = 0; i < 20000; ++i) {
    text += static_cast<char>(i % 7 ? 'a' + i % 26 : 0x80 + i % 100);
    if (i % 7) kept += text.back();
  }
  EXPECT_EQ(Escaped(text, text.size()), "<![CDATA[" + kept + "]]>");
  // The escape buffer is emptied at 8187 characters and the prefix rewrites start over.
  std::string out = Escaped(std::string(8190, 'a') + "]]>", 8193);
  EXPECT_EQ(out.size(), 8185u * 8186u / 2 + 8187 + 17);
  EXPECT_EQ(out.substr(out.size() - 18), "aaaaaaaaaa]aaa]]&g");
}

// Line numbers in base 32; INI text goes out unescaped. Each "%" stands for the next letter, or
// for "X" when the document is one-sided.
TEST(WriteSysFileDocument, Documents) {
  std::string older, newer;
  for (int i = 1; i < 40; ++i) {
    older += i == 10 ? "value=1\n" : "same " + std::to_string(i) + "\n";
    newer += i == 10 ? "new value=1\n" : "same " + std::to_string(i) + "\n";
  }
  const Compared text("C:\\AUTOEXEC.BAT", older + "gone & <away>\ntail\n", newer + "tail\nx]]>y\n");
  const Compared ini("C:\\WINDOWS\\SYSTEM.INI", "[boot]\nkeep=1\n[gone]\ng=<1>\n", "[boot]\nkeep=1\n");
  const FileCompareItem empty{};
  const struct { const FileCompareItem& item; const char* body; const char* letters; } docs[] = {
      {text.item,
       "    <TEXT>\n"
       "   <ENTRIES>      <LINE><![CDATA[value=1]]></LINE>      <LNUM>a</LNUM>      <CHGFLAG flag=\"%\"/>   </ENTRIES>\n"
       "   <ENTRIES>      <LINE><![CDATA[new value=1]]></LINE>      <CHGFLAG flag=\"%\"/>   </ENTRIES>\n"
       "   <ENTRIES>      <LINE><![CDATA[gone & <away>]]></LINE>      <LNUM>18</LNUM>      <CHGFLAG flag=\"%\"/>   </ENTRIES>\n"
       "   <ENTRIES>      <LINE>xx]x]]&gx]]&gt</LINE>      <CHGFLAG flag=\"%\"/>   </ENTRIES>\n"
       "    </TEXT>\n",
       "FTON"},
      {ini.item,  // the changes of both sides are in the end-to-end document test
       "    <INI>\n"
       "    <SECTION>[gone]</SECTION>        <CHGFLAG flag=\"%\"/>\n"
       "   <ENTRIES>      <LINE>g=<1></LINE>      <CHGFLAG flag=\"%\"/>   </ENTRIES>\n"
       "    </INI>\n",
       "OO"},
      {empty, "", ""}};
  for (const auto& doc : docs) {
    for (bool oneSided : {false, true}) {
      std::string expected = "<?xml version = \"1.0\"?>\n<!DOCTYPE SYSFILE SYSTEM \"sysfile.dtd\">\n<SYSFILE>\n";
      expected += "  <FILENAME><![CDATA[" + std::string(doc.item.path) + "]]></FILENAME>\n" + doc.body + "</SYSFILE>\n";
      for (size_t i = 0, at = 0; (at = expected.find('%', at)) != std::string::npos; ++i)
        expected[at] = oneSided ? 'X' : doc.letters[i];
      int result = -1;
      EXPECT_EQ(Written([&](FILE* f) { result = WriteSysFileDocument(f, &doc.item, oneSided); }), expected)
          << doc.item.path << " " << oneSided;
      EXPECT_EQ(result, 0);
    }
  }
}

}  // namespace
