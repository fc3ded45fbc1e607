// The difference report end to end under Wine: its head, the system-file section unsorted and
// sorted, INI sections, directories, appending, results for bad arguments, German headings; and the
// system-file difference document of the same snapshots.
#include <regex>

#include "engine/context.h"
#include "exports/exports.h"
#include "tests/support/engine_sandbox.h"

using namespace orvalis_test;

namespace {

class Report : public ::testing::Test {
 protected:
  void SetUp() override {
    box_.MakeDirs({"NIMBRA", "w"});
    box_.CopyFromBin("TAMBRELL.DLL");
    WriteWholeFile(box_.file("w\\notes.txt"), "alpha\r\nVersion 1.0 of the notes\r\ngamma\r\n");
    WriteWholeFile(box_.file("w\\app.ini"), "[Gone]\r\nx=1\r\n[Main]\r\nColor=blue\r\nSize=9\r\n");
    WriteWholeFile(box_.file("P.GCF"), "report\n[GROUPFILES_START]\n" + box_.file("w\\notes.txt") + "\n" +
                                           box_.file("w\\app.ini") + "\n[GROUPFILES_END]\n[GROUPDIRS_START]\n" +
                                           box_.file("w") + "\n[GROUPDIRS_END]\n");
    ASSERT_EQ(CreateSnapshotFromSpecifiedProfile("P.GCF", "before"), 0u);
    WriteWholeFile(box_.file("w\\notes.txt"), "alpha\r\nVersion 1.1 of the notes\r\ngamma\r\ndelta\r\n");
    // One byte longer, so that the folder shows it changed whether or not its time has moved on.
    WriteWholeFile(box_.file("w\\app.ini"), "[Main]\r\nColor=green\r\nSize=9\r\n[New]\r\ny=22\r\n");
    ASSERT_EQ(CreateSnapshotFromSpecifiedProfile("P.GCF", "after"), 0u);
    report_ = box_.file("r.log");
  }
  // The report from one heading to the next, every date and time as "T".
  std::string Body(const std::string& from, const std::string& to) {
    const std::string text = std::regex_replace(NoCr(ReadWholeFile(report_)), std::regex(R"(\d\d/\d\d/\d{4} \d\d:\d\d:\d\d)"), "T");
    const size_t a = text.find(from);
    if (a == std::string::npos) return "<no " + from + ">";
    const size_t b = to.empty() ? std::string::npos : text.find(to, a + from.size());
    return text.substr(a, b == std::string::npos ? std::string::npos : b - a);
  }
  EngineSandbox box_;
  std::string report_;
};

TEST_F(Report, HeadFilesSectionUnsortedAndSortedLiveSystemAppendingAndBadArguments) {
  ASSERT_EQ(CreateReportOfSnapshotDifferences("BASE0000.BCF", "BASE0001.BCF", report_.c_str()), 0u);
  EXPECT_EQ(Body("Orvalis", "System Information\n"), "Orvalis Snapshot Difference Report\n"
            "==================================\n\nOlder snapshot: T  before\nNewer snapshot: T  after\n\n");
  const std::string notes = box_.file("w\\notes.txt"), ini = box_.file("w\\app.ini");
  EXPECT_EQ(Body("System Files\n", "Directories\n"),
            "System Files\n\n\n" + notes + "\n\n<- Version 1.0 of the notes\n-> Version 1.1 of the notes\n + delta\n\n" +
                ini + "\n\n\n - [Gone]\n - x=1\n\n** [Main]\n<- Color=blue\n-> Color=green\n\n + [New]\n + y=22\n");
  EXPECT_EQ(Body("Directories\n", "Registry\n"), "Directories\n\n" + box_.file("w") + "\n\n   [w]\n<-   app.ini  T, 41\n"
            "->   app.ini  T, 42\n<-   notes.txt  T, 40\n->   notes.txt  T, 47\n\n\n");
  // Sorted: removals, additions, then only the newer text of a change.
  box_.SetOrvalis("SortReportByType", "1");
  ASSERT_EQ(CreateReportOfFileDifferences("BASE0000.BCF", "BASE0001.BCF", report_.c_str(), 0), 0u);
  EXPECT_EQ(Body("System Files\n", ""),
            "System Files\n\n\n" + notes + "\n\n + delta\n-> Version 1.1 of the notes\n\n" + ini +
                "\n\n\n - [Gone]\n - x=1\n\n + [New]\n + y=22\n\n** [Main]\n<- Color=blue\n-> Color=green\n");
  ASSERT_EQ(CreateReportOfFileDifferences("BASE0000.BCF", "", report_.c_str(), 0), 0u);
  EXPECT_NE(NoCr(ReadWholeFile(report_)).find("  Current system\n\nSystem Files"), std::string::npos)
      << ReadWholeFile(report_);
  // Appending adds a section and no second head.
  ASSERT_EQ(CreateReportOfDriveDifferences("BASE0000.BCF", "BASE0001.BCF", report_.c_str(), 1), 0u);
  const std::string text = NoCr(ReadWholeFile(report_));
  EXPECT_EQ(text.find("Orvalis Snapshot Difference Report", 1), std::string::npos);
  EXPECT_NE(text.find("Drives\n\n"), std::string::npos);
  // A null or empty older snapshot writes nothing; an unopenable report is 110.
  DeleteFileA(report_.c_str());
  EXPECT_EQ(CreateReportOfSnapshotDifferences(nullptr, "BASE0001.BCF", report_.c_str()), 87u);
  EXPECT_EQ(CreateReportOfRegistryDifferences("", "BASE0001.BCF", report_.c_str(), 0), 87u);
  EXPECT_FALSE(FileExists(report_));
  EXPECT_EQ(CreateReportOfAssetDifferences("BASE0000.BCF", nullptr, box_.file("no\\such\\r.log").c_str(), 0), 110u);
  // A snapshot that cannot be read, or a companion that is damaged, leaves its part empty.
  WriteWholeFile(box_.file("NIMBRA\\DIR0000.OVD"), "garbage");
  EXPECT_EQ(CreateReportOfSnapshotDifferences("BASE0000.BCF", "BASE0009.BCF", report_.c_str()), 0u);
  EXPECT_TRUE(FileExists(report_));
}

// Two snapshots of an INI file; a snapshot against the live text file; one snapshot alone (only the
// older side: the file is "not in the newer snapshot", a message, so TEXT is empty); the live file
// against itself. A row without a body is refused with 87 and no document: the file in neither or
// only the older snapshot, no older snapshot and no live side, a missing snapshot.
TEST_F(Report, SystemFileDocumentsAndResultCodes) {
  const std::string out = box_.file("out.xml"), ini = box_.file("w\\app.ini"), txt = box_.file("w\\notes.txt"),
                    other = box_.file("other.ini");
  const struct { const char *older, *newer; const std::string& file; int live; std::string body; } rows[] = {
      {"BASE0000.BCF", "BASE0001.BCF", ini, 0,
       "    <INI>\r\n    <SECTION>[Gone]</SECTION>        <CHGFLAG flag=\"O\"/>\r\n"
       "   <ENTRIES>      <LINE>x=1</LINE>      <CHGFLAG flag=\"O\"/>   </ENTRIES>\r\n"
       "    <SECTION>[Main]</SECTION>        <CHGFLAG flag=\"T\"/>\r\n"
       "   <ENTRIES>      <LINE>Color=blue</LINE>      <CHGFLAG flag=\"F\"/>   </ENTRIES>\r\n"
       "   <ENTRIES>      <LINE>Color=green</LINE>      <CHGFLAG flag=\"T\"/>   </ENTRIES>\r\n"
       "    <SECTION>[New]</SECTION>        <CHGFLAG flag=\"N\"/>\r\n"
       "   <ENTRIES>      <LINE>y=22</LINE>      <CHGFLAG flag=\"N\"/>   </ENTRIES>\r\n    </INI>\r\n"},
      {"BASE0000.BCF", nullptr, txt, 1,
       "    <TEXT>\r\n   <ENTRIES>      <LINE><![CDATA[Version 1.0 of the notes]]></LINE>      <LNUM>2</LNUM>      "
       "<CHGFLAG flag=\"F\"/>   </ENTRIES>\r\n"
       "   <ENTRIES>      <LINE><![CDATA[Version 1.1 of the notes]]></LINE>      <CHGFLAG flag=\"T\"/>   </ENTRIES>\r\n"
       "   <ENTRIES>      <LINE><![CDATA[delta]]></LINE>      <CHGFLAG flag=\"N\"/>   </ENTRIES>\r\n    </TEXT>\r\n"},
      {"BASE0001.BCF", nullptr, txt, 0, "    <TEXT>\r\n    </TEXT>\r\n"},
      {nullptr, nullptr, ini, 1, "    <INI>\r\n    </INI>\r\n"},
      {"BASE0000.BCF", nullptr, other, 1, ""}, {"BASE0000.BCF", "BASE0001.BCF", other, 0, ""},
      {nullptr, "BASE0001.BCF", ini, 0, ""}, {"BASE0009.BCF", nullptr, ini, 1, ""}};
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
  EXPECT_EQ(CompareFilestoXML("BASE0000.BCF", "BASE0001.BCF", ini.c_str(), bad.c_str(), 0), 2u);
  EXPECT_EQ(shown, "Destination file is invalid (" + bad + ")|Orvalis Engine Error");
}

// Run with the German locale (ORVALIS_LC_ALL): the headings come from the German library.
TEST_F(Report, GermanHeadingsForAGermanUser) {
  char lang[16] = "";
  GetLocaleInfoA(GetUserDefaultLCID(), LOCALE_SABBREVLANGNAME, lang, sizeof lang);
  if (std::string(lang) != "DEU") GTEST_SKIP() << "run by CTest with the German locale";
  box_.CopyFromBin("DEUOV32.DLL");
  SetCurrentDirectoryA(box_.dir().c_str());
  // The snapshots of SetUp loaded the language library before it was there: a thread
  // notification lets it go, and the next export loads it again.
  orvalis::HandleLibraryEntry(orvalis::State().instance, DLL_THREAD_ATTACH);
  ASSERT_EQ(CreateReportOfFileDifferences("BASE0000.BCF", "", report_.c_str(), 0), 0u);
  const std::string text = NoCr(ReadWholeFile(report_));
  for (const char* english : {"System Files", "Current system", "Older snapshot"})
    EXPECT_EQ(text.find(english), std::string::npos) << text;
}

}  // namespace
