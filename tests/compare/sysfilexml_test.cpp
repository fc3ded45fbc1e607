#include "compare/sysfilexml.h"

#include <gtest/gtest.h>

#include <functional>

#include "compare/xmltext.h"
#include "tests/compare/compare_helpers.h"

using namespace orvalis;
using namespace orvalis_test;

namespace {

// Writes through a text-mode stream, as the export does, and reads it back in text mode so
// that the expected text is the same with and without CR LF translation.
std::string Written(const std::function<void(FILE*)>& write) {
  ScratchDir dir;
  std::string path = dir.file("out.xml");
  FILE* f = std::fopen(path.c_str(), "w");
  if (!f) return "(cannot create)";
  write(f);
  std::fclose(f);
  std::string text;
  f = std::fopen(path.c_str(), "r");
  char buf[65536];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) text.append(buf, n);
  std::fclose(f);
  return text;
}

std::string Escaped(const std::string& text, size_t length) {
  return Written([&](FILE* f) { WriteEscapedText(f, text.c_str(), length); });
}

std::string Document(const FileCompareItem& item, bool oneSided, int* result = nullptr) {
  return Written([&](FILE* f) {
    int r = WriteSysFileDocument(f, &item, oneSided);
    if (result) *result = r;
  });
}

TEST(WriteEscapedText, Output) {
  const struct {
    const char* name;
    std::string text;
    size_t length;
    std::string expected;
  } cases[] = {
      {"cdata", "a<b>&c", 6, "<![CDATA[a<b>&c]]>"},
      {"cdata drops bytes of 0x80 and above", "\xe9t\xe9", 3, "<![CDATA[t]]>"},
      {"length bounds the bytes", "abcdef", 3, "<![CDATA[abc]]>"},
      {"empty", "", 0, "<![CDATA[]]>"},
      // Escape mode: no semicolons, and every byte rewrites all but the last character of
      // what has been escaped so far.
      {"escape: growing prefixes", "x]]>&", 5, "xx]x]]&gx]]&gt&am"},
      {"escape: a dropped byte repeats the prefix", "ab\xff]]>", 6, "aaabab]ab]]&g"},
      {"escape chosen on the whole string", "ab]]>", 2, "a"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(Escaped(c.text, c.length), c.expected);
  }
}

TEST(WriteEscapedText, LongTextCrossesTheFlushPoints) {
  std::string text, kept;
  for (int i = 0; i < 20000; ++i) {
    char c = static_cast<char>(i % 7 == 0 ? 0x80 + i % 100 : 'a' + i % 26);
    text += c;
    if (i % 7) kept += c;
  }
  EXPECT_EQ(Escaped(text, text.size()), "<![CDATA[" + kept + "]]>");

  // Escape mode empties its buffer once it holds 8187 characters; the prefix rewrites
  // start over from there.
  std::string as(8190, 'a');
  std::string out = Escaped(as + "]]>", as.size() + 3);
  EXPECT_EQ(out.size(), 8185u * 8186u / 2 + 8187 + 17);
  EXPECT_EQ(out.substr(out.size() - 18), "aaaaaaaaaa]aaa]]&g");
}

// The first bit set wins, in the order 0x1, 0x4, 0x8, 0x2.
TEST(ChangeLetters, Priority) {
  EXPECT_EQ(std::string() + ChangeLetterFromFlags(0x3) + ChangeLetterFromFlags(0xA) + ChangeLetterFromFlags(0x16) +
                ChangeLetterFromFlags(0x1010) + LineChangeLetter(6) + LineChangeLetter(3),
            "OTFXXX");
}

const char kHead[] =
    "<?xml version = \"1.0\"?>\n<!DOCTYPE SYSFILE SYSTEM \"sysfile.dtd\">\n<SYSFILE>\n";

TEST(WriteSysFileDocument, TextDifferences) {
  std::string older = "same 1\nvalue=1\n", newer = "same 1\nnew value=1\n";
  for (int i = 3; i < 40; ++i) older += "same " + std::to_string(i) + "\n";
  newer += older.substr(older.find("same 3"));
  older += "gone & <away>\ntail\n";
  newer += "tail\nx]]>y\n";
  ScratchDir dir;
  Compared r;
  CompareCopies(r, dir, "C:\\AUTOEXEC.BAT", older, newer);
  const std::string body[] = {
      "   <ENTRIES>      <LINE><![CDATA[value=1]]></LINE>      <LNUM>2</LNUM>      <CHGFLAG flag=\"%\"/>   </ENTRIES>\n",
      "   <ENTRIES>      <LINE><![CDATA[new value=1]]></LINE>      <CHGFLAG flag=\"%\"/>   </ENTRIES>\n",
      // line 40 in base 32; the CDATA carries "<" and "&" as they are
      "   <ENTRIES>      <LINE><![CDATA[gone & <away>]]></LINE>      <LNUM>18</LNUM>      <CHGFLAG flag=\"%\"/>   </ENTRIES>\n",
      "   <ENTRIES>      <LINE>xx]x]]&gx]]&gt</LINE>      <CHGFLAG flag=\"%\"/>   </ENTRIES>\n",
  };
  for (bool oneSided : {false, true}) {
    SCOPED_TRACE(oneSided);
    const char* letters = oneSided ? "XXXX" : "FTON";
    std::string expected = std::string(kHead) + "  <FILENAME><![CDATA[C:\\AUTOEXEC.BAT]]></FILENAME>\n    <TEXT>\n";
    for (int i = 0; i < 4; ++i) {
      std::string line = body[i];
      line[line.find('%')] = letters[i];
      expected += line;
    }
    expected += "    </TEXT>\n</SYSFILE>\n";
    int result = -1;
    EXPECT_EQ(Document(r.item, oneSided, &result), expected);
    EXPECT_EQ(result, 0);
  }
}

TEST(WriteSysFileDocument, IniDifferencesUnescaped) {
  ScratchDir dir;
  Compared r;
  CompareCopies(r, dir, "C:\\WINDOWS\\SYSTEM.INI",
                "[boot]\nshell=Explorer.exe\nkeep=1\n[386Enh]\na=1\n[gone]\ng=1\n",
                "[boot]\nshell=<my>shell.exe\nkeep=1\nnew=1\n[386Enh]\na=1\n[added]\nz=1\n");
  std::string expected = std::string(kHead) +
                         "  <FILENAME><![CDATA[C:\\WINDOWS\\SYSTEM.INI]]></FILENAME>\n"
                         "    <INI>\n"
                         "    <SECTION>[boot]</SECTION>        <CHGFLAG flag=\"T\"/>\n"
                         "   <ENTRIES>      <LINE>shell=Explorer.exe</LINE>      <CHGFLAG flag=\"F\"/>   </ENTRIES>\n"
                         "   <ENTRIES>      <LINE>shell=<my>shell.exe</LINE>      <CHGFLAG flag=\"T\"/>   </ENTRIES>\n"
                         "   <ENTRIES>      <LINE>new=1</LINE>      <CHGFLAG flag=\"N\"/>   </ENTRIES>\n"
                         "    <SECTION>[added]</SECTION>        <CHGFLAG flag=\"N\"/>\n"
                         "   <ENTRIES>      <LINE>z=1</LINE>      <CHGFLAG flag=\"N\"/>   </ENTRIES>\n"
                         "    <SECTION>[gone]</SECTION>        <CHGFLAG flag=\"O\"/>\n"
                         "   <ENTRIES>      <LINE>g=1</LINE>      <CHGFLAG flag=\"O\"/>   </ENTRIES>\n"
                         "    </INI>\n"
                         "</SYSFILE>\n";
  EXPECT_EQ(Document(r.item, false), expected);
}

TEST(WriteSysFileDocument, MessagesAndEmptyItems) {
  ScratchDir dir;
  Compared message;
  CompareCopies(message, dir, "c:\\a.txt", "a\n", "a\n", 0x42);
  Compared empty;
  CopyText(empty.item.path, "c:\\a.txt", sizeof empty.item.path);
  const std::string name = "  <FILENAME><![CDATA[c:\\a.txt]]></FILENAME>\n";
  EXPECT_EQ(Document(message.item, true), kHead + name + "    <TEXT>\n    </TEXT>\n</SYSFILE>\n");
  EXPECT_EQ(Document(empty.item, false), kHead + name + "</SYSFILE>\n");
}

void* NoMemory(size_t, size_t) { return nullptr; }

TEST(WriteSysFileDocument, NoMemoryWritesNothing) {
  FileCompareItem item{};
  CompareSys().calloc = NoMemory;
  int result = -1;
  std::string text = Document(item, false, &result);
  ResetCompareSys();
  EXPECT_EQ(result, 8);
  EXPECT_EQ(text, "");
}

}  // namespace
