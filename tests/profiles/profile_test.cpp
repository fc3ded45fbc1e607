// Profiles under Wine: groups, tags, the text-file test, writing back, and the list document.
#include "exports/exports.h"
#include "items/sysfiles/sysfiles.h"
#include "profiles/profile.h"
#include "tests/support/engine_sandbox.h"

using namespace orvalis;
using namespace orvalis_test;

namespace {

struct Read {
  Profile* p = NewProfile();
  int rc = 0;
  explicit Read(const std::string& path) {
    lstrcpynA(p->path, path.c_str(), MAX_PATH);
    rc = ReadProfile(p);
  }
  ~Read() { FreeProfile(p); }
};

template <typename T> int Count(const T* e) {
  int n = 0;
  for (; e; e = e->next) ++n;
  return n;
}

std::string Folder(UINT(WINAPI* get)(LPSTR, UINT)) {
  char d[MAX_PATH];
  get(d, MAX_PATH);
  return d;
}

TEST(Profile, GroupsTagsAssetsMarkersWritingBackFolderTagsAndSystemFileTokens) {
  EngineSandbox box;
  WriteWholeFile(box.file("text.ini"), "[a]\nb=c\n");
  WriteWholeFile(box.file("binary.dat"), std::string("ab\0cd", 5));
  WriteWholeFile(box.file("empty.ini"), "");
  WriteWholeFile(box.file("DAILY.GCF"),
                 "Daily watch\n[groupasset_start]\nMy Tool, release 9,3,4\nno numbers\nFonts,1,4096\n[GROUPASSET_END]\n"
                 "stray line outside any group\n"
                 "[GROUPFILES_START]\n" + box.file("text.ini") + "\n" + box.file("binary.dat") + "\n" +
                 box.file("empty.ini") + "\n" + box.file("missing.ini") + "\n<windows>\\win.ini\n[GROUPFILES_END]\n"
                 "[GROUPREGKEYS_START]\nHKLM\\Software\\Quillant\n[GROUPREGKEYS_END]\n"
                 "[GROUPDIRS_START]\nC:\\Program Files\n<windows>\\fonts\n[GROUPDIRS_END]\n"
                 "[GROUPDIRS_START]\nsecond group is ignored\n[GROUPDIRS_END]\n");
  Read r(box.file("DAILY.GCF"));
  ASSERT_EQ(r.rc, 0);
  EXPECT_STREQ(r.p->description, "Daily watch");
  // Existence and the text-file test per entry; the tag is kept in the entry (and resolved for both).
  std::string files;
  for (const ProfileFileEntry* e = r.p->files; e; e = e->next)
    files += std::string(e->path) + (e->flags & kProfileFileExists ? " exists" : "") +
             (e->flags & kProfileFileText ? " text" : "") + "\n";
  EXPECT_EQ(files, box.file("text.ini") + " exists text\n" + box.file("binary.dat") + " exists\n" + box.file("empty.ini") +
                       " exists text\n" + box.file("missing.ini") + "\n<windows>\\win.ini exists text\n");
  EXPECT_EQ(Count(r.p->dirs), 2);
  EXPECT_EQ(Count(r.p->regKeys), 1);
  ASSERT_EQ(Count(r.p->assets), 2);  // the line without two commas is dropped
  EXPECT_STREQ(r.p->assets->name, "My Tool, release 9");
  EXPECT_EQ(r.p->assets->first, 3);
  EXPECT_EQ(r.p->assets->second, 4);
  // Markers are whole lines without regard to case: one with a trailing blank is an item. An
  // unclosed files group keeps what it read.
  WriteWholeFile(box.file("P.GCF"), "d\n[groupdirs_start]\nC:\\A\n[GROUPDIRS_END] \nC:\\B\n[GroupDirs_End]\n"
                                    "[GROUPFILES_START]\nC:\\never\\closed.ini\n");
  Read m(box.file("P.GCF"));
  ASSERT_EQ(Count(m.p->dirs), 3);
  EXPECT_STREQ(m.p->dirs->next->name, "[GROUPDIRS_END] ");
  EXPECT_EQ(Count(m.p->files), 1);
  // Writing back drops the missing files.
  WriteWholeFile(box.file("IN.GCF"), "Round trip\n[GROUPFILES_START]\n" + box.file("text.ini") + "\n" +
                                         box.file("gone.ini") + "\n[GROUPFILES_END]\n[GROUPASSET_START]\n"
                                         "A,b,-1,28673\n[GROUPASSET_END]\n[GROUPREGKEYS_START]\nHKCU\\X\n"
                                         "[GROUPREGKEYS_END]\n");
  Read w(box.file("IN.GCF"));
  lstrcpynA(w.p->fileName, "OUT.GCF", MAX_PATH);
  ASSERT_EQ(WriteProfile(w.p, (box.dir() + "\\").c_str()), 0);
  EXPECT_EQ(ReadWholeFile(box.file("OUT.GCF")), "Round trip\r\n[GROUPFILES_START]\r\n" + box.file("text.ini") +
                                                    "\r\n[GROUPFILES_END]\r\n[GROUPDIRS_START]\r\n[GROUPDIRS_END]\r\n"
                                                    "[GROUPREGKEYS_START]\r\nHKCU\\X\r\n[GROUPREGKEYS_END]\r\n"
                                                    "[GROUPASSET_START]\r\nA,b,-1,28673\r\n[GROUPASSET_END]\r\n");
  EXPECT_EQ(WriteProfile(w.p, "Q:\\no\\such\\folder\\"), -1);
  // A profile's folder tag runs to the last ">", and all but <windows> mean the system folder; a system
  // file's path token (at snapshot time) is <windows> or <system>, anything else is refused ("").
  const std::string win = Folder(GetWindowsDirectoryA), sys = Folder(GetSystemDirectoryA);
  const struct { const char* in; std::string tag, token; } tags[] = {
      {"<windows>\\WIN.INI", win + "\\WIN.INI", win + "\\WIN.INI"}, {"<WINDOWS>\\x", win + "\\x", win + "\\x"},
      {"<System>\\drivers\\etc\\hosts", sys + "\\drivers\\etc\\hosts", sys + "\\drivers\\etc\\hosts"},
      {"<temp>\\X.INI", sys + "\\X.INI", ""}, {"<windows><system>\\x", sys + "\\x", ""},
      {"<windows\\no-close.ini", "<windows\\no-close.ini", ""}, {"C:\\plain.ini", "C:\\plain.ini", ""}};
  for (const auto& r : tags) {
    char tag[MAX_PATH], token[MAX_PATH] = "";
    ExpandFolderTag(r.in, tag);
    EXPECT_EQ(tag, r.tag) << r.in;
    EXPECT_EQ(ResolvePathToken(r.in, token), r.token.empty() ? 0 : 1) << r.in;
    EXPECT_EQ(token, r.token) << r.in;
  }
}

TEST(Profile, ListDocumentOfEveryReadableProfileUnescapedAndBadInputReadSafely) {
  EngineSandbox box;
  const std::string head = "<?xml version = \"1.0\"?>\r\n<!DOCTYPE PROFILELIST SYSTEM \"proflist.dtd\">\r\n<PROFILELIST>\r\n";
  ASSERT_EQ(GetProfileList(box.dir().c_str(), "list.xml"), 0u);
  EXPECT_EQ(ReadWholeFile(box.file("list.xml")), head + "</PROFILELIST>\r\n");
  WriteWholeFile(box.file("A.GCF"), "Fish & <chips>\n");
  WriteWholeFile(box.file("B.GCF"), "");  // no first line: left out
  ASSERT_EQ(GetProfileList((box.dir() + "\\").c_str(), "list.xml"), 0u);
  EXPECT_EQ(ReadWholeFile(box.file("list.xml")),
            head + "  <PROFILES>\r\n    <DESCRIPTION>Fish & <chips></DESCRIPTION>\r\n    <FILE>A.GCF</FILE>\r\n"
                   "  </PROFILES>\r\n</PROFILELIST>\r\n");
  const std::string& shown = box.CaptureMessageBoxes();
  EXPECT_EQ(GetProfileList("Q:\\no\\such\\folder", "list.xml"), 1u);
  EXPECT_EQ(shown, "open failed|Q:\\no\\such\\folder\\list.xml");
  // Bad input is read safely.
  std::string longLine(1000, 'L'), many = "many\n[GROUPDIRS_START]\n";
  for (int i = 0; i < 10000; ++i) many += "C:\\dir" + std::to_string(i) + "\n";
  many += "[GROUPDIRS_END]\n";
  const struct { const char* name; std::string text; int rc, dirs; } rows[] = {
      {"empty", "", -1, 0}, {"no groups", "only a description\n", 0, 0},
      {"long lines", longLine + "\n[GROUPDIRS_START]\n" + longLine + "\n[GROUPDIRS_END]\n", 0, 4},
      {"binary", std::string("d\n[GROUPDIRS_START]\n\x01\xff\x00zz\n[GROUPDIRS_END]\n", 42), 0, 1},
      {"ten thousand", many, 0, 10000}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    WriteWholeFile(box.file("B.GCF"), row.text);
    Read r(box.file("B.GCF"));
    EXPECT_EQ(r.rc, row.rc);
    EXPECT_EQ(Count(r.p->dirs), row.dirs);
    EXPECT_LT(strlen(r.p->description), 256u);
    for (const ProfileGroupEntry* d = r.p->dirs; d; d = d->next) EXPECT_LT(strlen(d->name), 260u);
  }
  Read missing(box.file("none.GCF"));
  EXPECT_EQ(missing.rc, -1);
}

}  // namespace
