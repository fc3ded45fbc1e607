#include "items/sysfiles/sysfilexml.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <sstream>

#include "base/xmltext.h"
#include "tests/items/sysfiles/compare_helpers.h"

using namespace orvalis;
using namespace orvalis_test;

namespace {

// Writes through a text-mode stream, as the export does, and reads it back in text mode so
// that the expected text is the same with and without CR LF translation.
std::string Written(const std::function<void(FILE*)>& write) {
  ScratchDir dir;
  FILE* f = std::fopen(dir.file("out.xml").c_str(), "w");
  write(f);
  std::fclose(f);
  std::ostringstream text;
  text << std::ifstream(dir.file("out.xml")).rdbuf();
  return text.str();
}

std::string Escaped(const std::string& text, size_t length) {
  return Written([&](FILE* f) { WriteEscapedText(f, text.c_str(), length); });
}

TEST(WriteEscapedText, Output) {
  const struct { const char* name; std::string text; size_t length; std::string expected; } cases[] = {
      {"cdata", "a<b>&c", 6, "<![CDATA[a<b>&c]]>"},
      {"cdata drops bytes of 0x80 and above", "\xe9t\x80", 3, "<![CDATA[t]]>"},
      {"length bounds the bytes", "abcdef", 3, "<![CDATA[abc]]>"},
      // Escape mode: no semicolons, and every byte rewrites all but the last character of
      // what has been escaped so far.
      {"escape: growing prefixes", "<]]>&", 5, "&l&lt&lt]&lt]]&g&lt]]&gt&am"},
      {"escape: a dropped byte repeats the prefix", "ab\xff]]>", 6, "aaabab]ab]]&g"},
      {"escape chosen on the whole string", "ab]]>", 2, "a"},
  };
  for (const auto& c : cases) EXPECT_EQ(Escaped(c.text, c.length), c.expected) << c.name;
}

TEST(WriteEscapedText, LongTextCrossesTheFlushPoints) {
  std::string text, kept;
  for (int i = 0; i < 20000; ++i) {
    text += static_cast<char>(i % 7 ? 'a' + i % 26 : 0x80 + i % 100);
    if (i % 7) kept += text.back();
  }
  EXPECT_EQ(Escaped(text, text.size()), "<![CDATA[" + kept + "]]>");
  // Escape mode empties its buffer once it holds 8187 characters; the prefix rewrites start
  // over from there.
  std::string out = Escaped(std::string(8190, 'a') + "]]>", 8193);
  EXPECT_EQ(out.size(), 8185u * 8186u / 2 + 8187 + 17);
  EXPECT_EQ(out.substr(out.size() - 18), "aaaaaaaaaa]aaa]]&g");
}

// Unchanged lines, entries and messages are left out; lines are numbered in base 32 (10 is
// "a", 40 is "18"); text lines are escaped (the CDATA carries "<" and "&" as they are), INI
// text goes out as it stands. Each "%" of a body stands for the next letter, or for "X" when
// the document is one-sided.
TEST(WriteSysFileDocument, Documents) {
  std::string older, newer;
  for (int i = 1; i < 40; ++i) {
    older += i == 10 ? "value=1\n" : "same " + std::to_string(i) + "\n";
    newer += i == 10 ? "new value=1\n" : "same " + std::to_string(i) + "\n";
  }
  const Compared text("C:\\AUTOEXEC.BAT", older + "gone & <away>\ntail\n", newer + "tail\nx]]>y\n");
  const Compared ini("C:\\WINDOWS\\SYSTEM.INI", "[boot]\nshell=Explorer.exe\nkeep=1\n[386Enh]\na=1\n[gone]\ng=1\n",
                     "[boot]\nshell=<my>shell.exe\nkeep=1\nnew=1\n[386Enh]\na=1\n[added]\nz=1\n");
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
      {ini.item,
       "    <INI>\n"
       "    <SECTION>[boot]</SECTION>        <CHGFLAG flag=\"%\"/>\n"
       "   <ENTRIES>      <LINE>shell=Explorer.exe</LINE>      <CHGFLAG flag=\"%\"/>   </ENTRIES>\n"
       "   <ENTRIES>      <LINE>shell=<my>shell.exe</LINE>      <CHGFLAG flag=\"%\"/>   </ENTRIES>\n"
       "   <ENTRIES>      <LINE>new=1</LINE>      <CHGFLAG flag=\"%\"/>   </ENTRIES>\n"
       "    <SECTION>[added]</SECTION>        <CHGFLAG flag=\"%\"/>\n"
       "   <ENTRIES>      <LINE>z=1</LINE>      <CHGFLAG flag=\"%\"/>   </ENTRIES>\n"
       "    <SECTION>[gone]</SECTION>        <CHGFLAG flag=\"%\"/>\n"
       "   <ENTRIES>      <LINE>g=1</LINE>      <CHGFLAG flag=\"%\"/>   </ENTRIES>\n"
       "    </INI>\n",
       "TFTNNNOO"},
      {empty, "", ""},
  };
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
