// The engine frame under Wine, against the real registry, INI, file, locale and string calls, and
// its file packing entry points.
#include "compress/crc32.h"
#include "compress/filecodec.h"
#include "engine/context.h"
#include "engine/filecodec_win.h"
#include "engine/log.h"
#include "engine/settings.h"
#include "engine/strings.h"
#include "engine/sys.h"
#include "exports/exports.h"
#include "tests/support/engine_sandbox.h"

using namespace orvalis;
using namespace orvalis_test;

namespace {

const char kOrvalisKey[] = "software\\Quillant\\Orvalis";
const char kUninstallKey[] = "software\\microsoft\\windows\\currentversion\\uninstall\\Orvalis";

std::string Str(int (*fn)(char*)) {
  char buf[MAX_PATH];
  fn(buf);
  return buf;
}

TEST(Settings, ExportsRoundTripThroughOrvalisIniAndEngineIniDefaultsToTheModuleFolder) {
  EngineSandbox box;
  EXPECT_EQ(GetMaxSnapshot(), 8);
  EXPECT_EQ(GetSchedule(), 3);
  for (auto [written, read] : {std::pair{"12", 12}, {"abc", 0}, {"7days", 7}, {"-2", -2}}) {
    SCOPED_TRACE(written);
    EXPECT_EQ(SetMaxSnapshot(written), 0);
    EXPECT_EQ(GetMaxSnapshot(), read);
    EXPECT_EQ(SetSchedule(written), 0);
    EXPECT_EQ(GetSchedule(), read);
  }
  // Written unchanged, as a string.
  char raw[64];
  GetPrivateProfileStringA("ORVALIS", "MaxScheduleSnapshots", "", raw, sizeof raw, box.file("ORVALIS.INI").c_str());
  EXPECT_STREQ(raw, "-2");
  // ENGINE.INI settings default to the module folder and are never written back; the default profile,
  // when none is set, is the last profile the folder scan enumerates.
  const struct { const char* name; int (*get)(char*); int (*set)(const char*); } rows[] = {
      {"ProfileSourceLocation", GetProfileSourceLocation, SetProfileSourceLocation},
      {"ProfileDestinationLocation", GetProfileDestinationLocation, SetProfileDestinationLocation},
      {"SnapshotSourceLocation", GetSnapshotSourceLocation, SetSnapshotSourceLocation},
      {"SnapshotDestinationLocation", GetSnapshotDestinationLocation, SetSnapshotDestinationLocation}};
  for (const auto& r : rows) EXPECT_EQ(Str(r.get), box.dir()) << r.name;
  EXPECT_FALSE(FileExists(box.file("ENGINE.INI")));
  for (const auto& r : rows) {
    SCOPED_TRACE(r.name);
    EXPECT_EQ(r.set("D:\\Snaps"), 0);
    EXPECT_EQ(Str(r.get), "D:\\Snaps");
    r.set("");
    EXPECT_EQ(Str(r.get), box.dir());
  }
  EXPECT_EQ(Str(GetDefaultProfile), "");
  for (const char* n : {"beta.GCF", "alpha.GCF", "Gamma.gcf", "notes.txt"}) WriteWholeFile(box.file(n), "x\n");
  // Wine enumerates without regard to case, so Gamma.gcf comes last.
  EXPECT_EQ(Str(GetDefaultProfile), box.file("Gamma.gcf"));
  SetDefaultProfile("C:\\P\\DAILY.GCF");
  EXPECT_EQ(Str(GetDefaultProfile), "C:\\P\\DAILY.GCF");
}

TEST(Settings, WorkFolderGetsExactlyOneBackslashAndHoldsOrvalisIni) {
  const struct { const char *value, *folder; } rows[] = {  // value null: no key
      {"C:\\Work", "C:\\Work\\"}, {"C:\\Work\\", "C:\\Work\\"}, {"C:\\", "C:\\"}, {"", ""}, {nullptr, ""}};
  for (const auto& r : rows) {
    SCOPED_TRACE(r.value ? r.value : "no key");
    EngineSandbox box;
    if (r.value) box.SetHklmString(kOrvalisKey, "OrvalisWorkDir", r.value);
    EXPECT_EQ(Str(GetWorkFolder), r.folder);
    EXPECT_EQ(Str(GetOrvalisIniPath), r.folder[0] ? std::string(r.folder) + "ORVALIS.INI" : box.file("ORVALIS.INI"));
    EXPECT_EQ(Str(GetEngineIniPath), box.file("ENGINE.INI"));  // ENGINE.INI never moves
  }
  EngineSandbox box;
  ScratchDir work;
  box.SetHklmString(kOrvalisKey, "OrvalisWorkDir", work.path().c_str());
  WritePrivateProfileStringA("ORVALIS", "NO_CPUID_SUPPORT", "1", work.file("ORVALIS.INI").c_str());
  EXPECT_EQ(InitEngine(), 1);
  EXPECT_EQ(GetMaxSnapshot(), 8);
  SetMaxSnapshot("5");
  EXPECT_EQ(GetPrivateProfileIntA("ORVALIS", "MaxScheduleSnapshots", 0, work.file("ORVALIS.INI").c_str()), 5u);
}

TEST(Log, ResetEmptiesTheFileAFailedOpenIsSkippedSilentlyAndTheUninstallerNamesTheFolder) {
  EngineSandbox box;
  WriteLog("before any reset");  // no log path yet: nothing is written anywhere
  EXPECT_FALSE(FileExists(box.file("halvern.log")));
  ResetLog();
  WriteLog("one");
  WriteLogF("two %d", 2);
  EXPECT_EQ(ReadWholeFile(box.file("halvern.log")), "one\r\ntwo 2\r\n");
  ResetLog();
  EXPECT_EQ(ReadWholeFile(box.file("halvern.log")), "");
  Io().fopen = [](const char*, const char*) -> FILE* { return nullptr; };
  WriteLog("lost");  // must not crash or fail
  box.RestoreSeam();
  EXPECT_EQ(ReadWholeFile(box.file("halvern.log")), "");
  // The uninstaller's argument is the log folder.
  ScratchDir logs;
  const struct { std::string uninstall, logPath; } rows[] = {
      {"C:\\Orvalis\\unwise.exe " + logs.path(), logs.file("halvern.log")},
      {"C:\\Orvalis\\unwise.exe", "\\halvern.log"}};  // no argument: no folder, kept as it is
  for (const auto& r : rows) {
    box.SetHklmString(kUninstallKey, "UninstallString", r.uninstall.c_str());
    ResetLog();
    EXPECT_EQ(std::string(State().logPath), r.logPath);
    if (&r == rows) {
      WriteLog("here");
      EXPECT_EQ(ReadWholeFile(logs.file("halvern.log")), "here\r\n");
    }
  }
}

// Answers a chosen abbreviated language name, as a user of that language would have.
const char* g_language = "ENU";
int WINAPI FakeLocaleInfo(LCID, LCTYPE type, LPSTR out, int size) {
  if (type != LOCALE_SABBREVLANGNAME) return 0;
  lstrcpynA(out, g_language, size);
  return lstrlenA(out) + 1;
}

// The library is released on purpose at every thread notification, never on process detach.
TEST(Strings, LanguageLibraryNameRuleFallbacksReleaseAndMissingIds) {
  // present: the file placed beside the test as a language library
  const struct { const char *language, *present, *text1360; DWORD release; } rows[] = {
      {"DEU", "DEUOV32.DLL", "Prozessor", DLL_THREAD_ATTACH},
      {"DES", "DEAOV32.DLL", "Prozessor", DLL_THREAD_DETACH},  // "DESOV32" missing: retried as "DEAOV32"
      {"ENU", nullptr, "Processor", DLL_THREAD_ATTACH},  // no English library: own module, then TAMBRELL
      {"FRAX", nullptr, "Processor", DLL_THREAD_DETACH}};  // only three characters are used
  for (const auto& r : rows) {
    SCOPED_TRACE(r.language);
    EngineSandbox box;
    box.CopyFromBin("TAMBRELL.DLL");
    if (r.present) box.CopyFromBin("DEUOV32.DLL", r.present);
    SetCurrentDirectoryA(box.dir().c_str());
    g_language = r.language;
    Sys().GetLocaleInfoA = FakeLocaleInfo;
    HMODULE lib = LoadLanguageLibrary();
    EXPECT_EQ(lib == State().instance, r.present == nullptr);
    char text[256];
    EXPECT_GT(LoadLocalString(1360, text, sizeof text), 0);
    EXPECT_STREQ(text, r.text1360);
    HandleLibraryEntry(State().instance, DLL_PROCESS_DETACH);
    EXPECT_EQ(State().languageLibrary, lib);
    HandleLibraryEntry(State().instance, r.release);
    EXPECT_EQ(State().languageLibrary, nullptr);
    EXPECT_TRUE(!r.present || !GetModuleHandleA(r.present));  // really unloaded
  }
  // TAMBRELL.DLL as the fallback, missing ids, and the bounded error box (whose text and title are
  // pinned through the document exports).
  EngineSandbox box;
  char text[256] = "junk";
  EXPECT_EQ(LoadEngineString(nullptr, 1360, text, sizeof text), 0);  // no TAMBRELL.DLL yet
  EXPECT_STREQ(text, "");
  box.CopyFromBin("TAMBRELL.DLL");
  EXPECT_EQ(LoadEngineString(nullptr, 4242, text, sizeof text), 0);
  char small[5];
  EXPECT_EQ(LoadEngineString(nullptr, 1541, small, sizeof small), 4);  // cut to the buffer
  EXPECT_STREQ(small, "Syst");
  const std::string& shown = box.CaptureMessageBoxes();
  ShowDestinationError(std::string(400, 'x').c_str());
  EXPECT_LT(shown.find('|'), 400u);
}

struct Counts {
  int allocs = 0, frees = 0;
  SIZE_T size = 0;
  bool failAlloc = false, failLock = false;
} g_counts;

HGLOBAL WINAPI CountingAlloc(UINT flags, SIZE_T size) {
  ++g_counts.allocs;
  g_counts.size = size;
  return g_counts.failAlloc ? nullptr : ::GlobalAlloc(flags, size);
}
LPVOID WINAPI FailableLock(HGLOBAL h) { return g_counts.failLock ? nullptr : ::GlobalLock(h); }
HGLOBAL WINAPI CountingFree(HGLOBAL h) { ++g_counts.frees; return ::GlobalFree(h); }

// The packing entry points: the work area comes from GlobalAlloc through the seam, is big enough
// for the coder, is released after every call, and its absence gives 8.
TEST(CompressFileWin, RoundTripsReleaseTheWorkAreaEachTimeAndWithoutOneTheResultIs8) {
  EngineSandbox box;
  const std::string src = box.file("src"), packed = box.file("packed"), back = box.file("back");
  Sys().GlobalAlloc = CountingAlloc, Sys().GlobalLock = FailableLock, Sys().GlobalFree = CountingFree;
  std::string data;
  for (int i = 0; i < 3000; ++i) data += "2048,123,1600000000,C:\\WINDOWS\\F" + std::to_string(i) + "\n";
  ASSERT_TRUE(WriteWholeFile(src, data));
  for (int dict : {0, 4096}) {  // 0: CompressFile, whose dictionary is 1024 bytes
    unsigned long crc = 0;
    ASSERT_EQ(dict ? CompressFileEx(src.c_str(), packed.c_str(), &crc, dict)
                   : CompressFile(src.c_str(), packed.c_str(), &crc), 0);
    EXPECT_EQ(crc, Crc32(data.data(), data.size()));
    // Binary mode, and the dictionary size.
    EXPECT_EQ(ReadWholeFile(packed).substr(0, 2), std::string(dict ? "\0\6" : "\0\4", 2)) << dict;
    ASSERT_EQ(ExpandFile(back.c_str(), packed.c_str()), 0);
    EXPECT_TRUE(ReadWholeFile(back) == data) << dict;
  }
  EXPECT_GE(g_counts.size, kFileCodecWorkSize);
  EXPECT_TRUE(g_counts.allocs == 4 && g_counts.frees == 4) << g_counts.allocs << " " << g_counts.frees;
  for (bool lockFails : {false, true}) {
    g_counts = Counts{0, 0, 0, !lockFails, lockFails};
    unsigned long crc = 0xABCDu;
    EXPECT_EQ(CompressFile(src.c_str(), box.file("t").c_str(), &crc), 8);
    EXPECT_EQ(crc, 0xABCDu);
    EXPECT_EQ(ExpandFile(box.file("t2").c_str(), src.c_str()), 8);
    EXPECT_FALSE(FileExists(box.file("t")) || FileExists(box.file("t2")));
    EXPECT_EQ(g_counts.frees, lockFails ? 2 : 0);  // a handle whose lock failed is not leaked
  }
}

}  // namespace
