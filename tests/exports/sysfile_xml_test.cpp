// The system-file difference document end to end under Wine: real snapshots of a real file.
#include "exports/exports.h"
#include "tests/support/engine_sandbox.h"

using namespace orvalis_test;

namespace {

class SysFileXml : public ::testing::Test {
 protected:
  void SetUp() override {
    box_.MakeDirs({"NIMBRA"});
    WriteWholeFile(ini_, "[Main]\nColor=blue\nSize=10\n");
    WriteWholeFile(txt_, "@echo off\nset PATH=C:\\DOS\nrem <done>\n");
    WriteWholeFile(box_.file("P.GCF"), "watch\n[GROUPFILES_START]\n" + ini_ + "\n" + txt_ + "\n[GROUPFILES_END]\n");
    ASSERT_EQ(CreateSnapshotFromSpecifiedProfile(box_.file("P.GCF").c_str(), "before"), 0u);
    WriteWholeFile(ini_, "[Main]\nColor=green\nSize=10\n[New]\nk=v\n");
    WriteWholeFile(txt_, "@echo off\nset PATH=C:\\DOS;C:\\WIN\nrem <done>\n");
    ASSERT_EQ(CreateSnapshotFromSpecifiedProfile(box_.file("P.GCF").c_str(), "after"), 0u);
  }
  EngineSandbox box_;
  const std::string ini_ = box_.file("app.ini"), txt_ = box_.file("autoexec.bat");
};

// Two snapshots of an INI file; a snapshot against the live text file; one snapshot alone (only the
// older side: the file is "not in the newer snapshot", a message, so TEXT is empty); the live file
// against itself. A row without a body is refused with 87 and no document: the file in neither or
// only the older snapshot, no older snapshot and no live side, a missing snapshot.
TEST_F(SysFileXml, DocumentsAndResultCodes) {
  const std::string out = box_.file("out.xml"), other = box_.file("other.ini");
  const struct { const char *older, *newer; const std::string& file; int live; std::string body; } rows[] = {
      {"BASE0000.BCF", "BASE0001.BCF", ini_, 0,
       "    <INI>\r\n    <SECTION>[Main]</SECTION>        <CHGFLAG flag=\"T\"/>\r\n"
       "   <ENTRIES>      <LINE>Color=blue</LINE>      <CHGFLAG flag=\"F\"/>   </ENTRIES>\r\n"
       "   <ENTRIES>      <LINE>Color=green</LINE>      <CHGFLAG flag=\"T\"/>   </ENTRIES>\r\n"
       "    <SECTION>[New]</SECTION>        <CHGFLAG flag=\"N\"/>\r\n"
       "   <ENTRIES>      <LINE>k=v</LINE>      <CHGFLAG flag=\"N\"/>   </ENTRIES>\r\n    </INI>\r\n"},
      {"BASE0000.BCF", nullptr, txt_, 1,
       "    <TEXT>\r\n   <ENTRIES>      <LINE><![CDATA[set PATH=C:\\DOS]]></LINE>      <LNUM>2</LNUM>      "
       "<CHGFLAG flag=\"O\"/>   </ENTRIES>\r\n"
       "   <ENTRIES>      <LINE><![CDATA[ver]]></LINE>      <CHGFLAG flag=\"N\"/>   </ENTRIES>\r\n    </TEXT>\r\n"},
      {"BASE0001.BCF", nullptr, txt_, 0, "    <TEXT>\r\n    </TEXT>\r\n"},
      {nullptr, nullptr, ini_, 1, "    <INI>\r\n    </INI>\r\n"},
      {"BASE0000.BCF", nullptr, other, 1, ""}, {"BASE0000.BCF", "BASE0001.BCF", other, 0, ""},
      {nullptr, "BASE0001.BCF", ini_, 0, ""}, {"BASE0009.BCF", nullptr, ini_, 1, ""}};
  WriteWholeFile(txt_, "@echo off\nrem <done>\nver\n");
  for (const auto& r : rows) {
    SCOPED_TRACE(testing::Message() << (r.older ? r.older : "-") << " " << (r.newer ? r.newer : "-") << " " << r.file);
    DeleteFileA(out.c_str());
    ASSERT_EQ(CompareFilestoXML(r.older, r.newer, r.file.c_str(), out.c_str(), r.live), r.body.empty() ? 87u : 0u);
    if (r.body.empty()) EXPECT_FALSE(FileExists(out));
    else EXPECT_EQ(ReadWholeFile(out), "<?xml version = \"1.0\"?>\r\n<!DOCTYPE SYSFILE SYSTEM \"sysfile.dtd\">\r\n"
                                       "<SYSFILE>\r\n  <FILENAME><![CDATA[" + r.file + "]]></FILENAME>\r\n" + r.body +
                                       "</SYSFILE>\r\n");
  }
  const std::string& shown = box_.CaptureMessageBoxes();
  const std::string bad = box_.file("no\\such\\dir\\out.xml");
  EXPECT_EQ(CompareFilestoXML("BASE0000.BCF", "BASE0001.BCF", ini_.c_str(), bad.c_str(), 0), 2u);
  EXPECT_EQ(shown, "Destination file is invalid (" + bad + ")|Orvalis Engine Error");
}

}  // namespace
