// Restore under Wine, each test run twice: as NT (saved keys) and in an exe Wine reports Windows 98
// to (key trees written back, USER.DAT and SYSTEM.DAT copied from the Windows folder the test
// gives). End to end against real files, registry and asset folders: snapshot, change everything,
// restore, and a second snapshot compares equal to the first through the report exports; the undo
// base holds the changed state and restoring it brings that back. Then the failure rows and log
// lines, the seven exports that restore nothing, and the reboot exports with their countdown box:
// the restart and the box's window calls go through the seam, so no Wine process is ever restarted.
#include "base/companion_api.h"
#include "drivers/restore.h"
#include "engine/settings.h"
#include "engine/sys.h"
#include "exports/exports.h"
#include "tests/support/engine_sandbox.h"

using namespace orvalis;
using namespace orvalis_test;

namespace orvalis {
INT_PTR CALLBACK RebootCountdownProc(HWND dialog, UINT message, WPARAM wparam, LPARAM lparam);
}

namespace {

const std::string kCount("\x05\0\0\0", 4), kBin("\x01\x00\x02", 3), kFont(3000, 'a');

class Restore : public ::testing::Test {
 protected:
  void SetUp() override {
    box_.MakeDirs({"NIMBRA", "app", "fonts", "fonts\\sub", "windows"});
    WriteWholeFile(box_.file("windows\\USER.DAT"), "user hive");
    WriteWholeFile(box_.file("windows\\SYSTEM.DAT"), "system hive");
    box_.SetWindowsFolder(box_.file("windows"));
    WriteWholeFile(File("app.ini"), "[Main]\r\nColor=blue\r\n");
    WriteWholeFile(File("locked.txt"), "do not touch\r\n");
    SetFileAttributesA(File("locked.txt").c_str(), FILE_ATTRIBUTE_READONLY);
    WriteWholeFile(box_.file("fonts\\a.ttf"), kFont);
    WriteWholeFile(box_.file("fonts\\b.ttf"), "bbbb");
    WriteWholeFile(box_.file("fonts\\sub\\c.ttf"), "cccc");
    key_.Set("", "Name", "Orvalis");
    key_.Set("", "Count", kCount, REG_DWORD);
    key_.Set("Colors", "Back", "blue");
    key_.Set("Colors\\Deep", "Bin", kBin, REG_BINARY);
    WriteWholeFile(box_.file("P.GCF"), "Everything\n[GROUPFILES_START]\n" + File("app.ini") + "\n" + File("locked.txt") +
                                           "\n[GROUPFILES_END]\n[GROUPREGKEYS_START]\nHKEY_CURRENT_USER\\" +
                                           key_.path() + "\n[GROUPREGKEYS_END]\n[GROUPASSET_START]\n" +
                                           box_.file("fonts") + ",0,12288\n[GROUPASSET_END]\n");
  }
  void TearDown() override { SetFileAttributesA(File("locked.txt").c_str(), FILE_ATTRIBUTE_NORMAL); }
  std::string File(const char* name) { return box_.file(std::string("app\\") + name); }
  // Files, values and assets as the test reads them, one line each.
  std::string State() {
    std::string s;
    for (const char* f : {"app.ini", "locked.txt"}) s += std::string(f) + "=" + ReadWholeFile(File(f)) + "|";
    s += (GetFileAttributesA(File("locked.txt").c_str()) & FILE_ATTRIBUTE_READONLY) ? "read-only|" : "writable|";
    const char* values[][2] = {{"", "Name"}, {"", "Count"}, {"", "Added"}, {"Colors", "Back"},
                               {"Colors\\Deep", "Bin"}, {"NewSub", "X"}};
    for (auto& v : values) s += std::string(v[1]) + "=" + key_.Get(v[0], v[1]) + "|";
    for (const char* f : {"a.ttf", "sub\\c.ttf", "new.ttf"})
      s += std::string(f) + "=" + (FileExists(box_.file(std::string("fonts\\") + f))
                                       ? ReadWholeFile(box_.file(std::string("fonts\\") + f)) : "<none>") + "|";
    return s;
  }
  void Change() {
    SetFileAttributesA(File("locked.txt").c_str(), FILE_ATTRIBUTE_NORMAL);
    WriteWholeFile(File("locked.txt"), "touched\r\n");
    SetFileAttributesA(File("locked.txt").c_str(), FILE_ATTRIBUTE_READONLY);
    DeleteFileA(File("app.ini").c_str());
    key_.Set("", "Name", "Changed");
    key_.Set("", "Added", "new");
    key_.Delete("", "Count");
    key_.Delete("Colors");
    key_.Set("NewSub", "X", "y");
    WriteWholeFile(box_.file("fonts\\a.ttf"), "changed");
    DeleteFileA(box_.file("fonts\\sub\\c.ttf").c_str());
    WriteWholeFile(box_.file("fonts\\new.ttf"), "new font");
  }
  // Every line of a report that marks a change.
  std::string ChangeLines(const std::string& older, const std::string& newer) {
    const std::string report = box_.file("r.log");
    EXPECT_EQ(CreateReportOfFileDifferences(older.c_str(), newer.c_str(), report.c_str(), 0), 0u);
    EXPECT_EQ(CreateReportOfRegistryDifferences(older.c_str(), newer.c_str(), report.c_str(), 1), 0u);
    EXPECT_EQ(CreateReportOfAssetDifferences(older.c_str(), newer.c_str(), report.c_str(), 1), 0u);
    std::string out, text = NoCr(ReadWholeFile(report));
    for (size_t at = 0, end; (end = text.find('\n', at)) != std::string::npos; at = end + 1)
      for (const char* m : {" +", " -", "<-", "->", "**"})
        if (text.compare(at, 2, m) == 0) out += text.substr(at, end + 1 - at);
    return out;
  }

  EngineSandbox box_;
  TestKey key_{"restore"};
};

TEST_F(Restore, PutsEverythingBackAndItsUndoBaseTakesItBackAgain) {
  ASSERT_EQ(CreateSnapshotFromSpecifiedProfile("P.GCF", "before"), 0u);  // BASE0000
  const std::string original = State();
  Change();
  const std::string changed = State();
  EXPECT_NE(ChangeLines("BASE0000.BCF", "").find("Changed"), std::string::npos);  // the report sees the changes
  ASSERT_EQ(RestoreFromSpecifiedSnapshot(box_.file("BASE0000.BCF").c_str()), 0u);
  EXPECT_NE(box_.Log().find("restore of reg keys went OK\nrestore of assets went OK\nRestore was successful\n"),
            std::string::npos) << box_.Log();
  EXPECT_EQ(box_.UndoBase(), "BASE0001.BCF");
  EXPECT_EQ(State(), original);
  // A new snapshot compares equal to the first in files, registry and assets.
  ASSERT_EQ(CreateSnapshotFromSpecifiedProfile("P.GCF", "after"), 0u);  // BASE0002
  EXPECT_EQ(ChangeLines("BASE0000.BCF", "BASE0002.BCF"), "");
  // The undo base held the changed state: restoring it brings that back (system files are copied
  // back, never deleted, so app.ini stays as the first restore put it), and leaves an undo base of
  // its own in its place.
  ASSERT_EQ(RestoreFromSpecifiedSnapshot(box_.file("BASE0001.BCF").c_str()), 0u);
  EXPECT_EQ(State(), "app.ini=[Main]\r\nColor=blue\r\n|" + changed.substr(changed.find("locked.txt=")));
  EXPECT_FALSE(FileExists(box_.file("BASE0001.BCF")));  // the restored undo base has done its work
  const std::string undo = box_.UndoBase();
  ASSERT_EQ(RestoreFromSpecifiedSnapshot(box_.file(undo).c_str()), 0u);
  EXPECT_EQ(State(), original);
}

std::string g_failKey;
NTRestoreRegKeyFn g_realRestore;
FARPROC(WINAPI* g_realGetProc)(HMODULE, LPCSTR);

int __cdecl RestoreFailingFor(const char* key, const char* folder) {
  return g_failKey == key ? 1234 : g_realRestore(key, folder);
}
FARPROC WINAPI ProcWithFailingRestore(HMODULE h, LPCSTR name) {
  FARPROC p = g_realGetProc(h, name);
  if (std::string(name) != "_NTRestoreRegKey" || !p) return p;
  g_realRestore = reinterpret_cast<NTRestoreRegKeyFn>(reinterpret_cast<void*>(p));
  return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(RestoreFailingFor));
}

class RestoreRows : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* k : {"A", "B", "C"}) key_.Set(k, "v", "1");
    box_.MakeDirs({"NIMBRA", "fonts"});
    WriteWholeFile(box_.file("fonts\\a.ttf"), "font");
    WriteWholeFile(box_.file("app.ini"), "[a]\r\nb=1\r\n");
    WriteWholeFile(box_.file("P.GCF"), "rows\n[GROUPFILES_START]\n" + box_.file("app.ini") +
                                           "\n[GROUPFILES_END]\n[GROUPREGKEYS_START]\n" + key_.Full("A") + "\n" +
                                           key_.Full("B") + "\n" + key_.Full("C") + "\n[GROUPREGKEYS_END]\n"
                                           "[GROUPASSET_START]\n" + box_.file("fonts") + ",0,0\n[GROUPASSET_END]\n");
    ASSERT_EQ(CreateSnapshotFromSpecifiedProfile("P.GCF", "rows"), 0u);
  }
  bool Logged(const std::string& lines) { return box_.Log().find(lines) != std::string::npos; }
  EngineSandbox box_;
  TestKey key_{"rows"};
};

TEST_F(RestoreRows, LogLinesOfEachPathAndOnlyTheLastNtKeyCounts) {
  if (OnWindows9x()) GTEST_SKIP() << "the NT rows";
  // A clean restore: the whole log as the restore writes it.
  ASSERT_EQ(RestoreFromSpecifiedSnapshot("BASE0000.BCF"), 0u);
  EXPECT_EQ(box_.Log().rfind("RestoreFromSpecifiedSnapshot: Entered\nBASE0000.BCF\nRestoreFromSpecifiedSnapshot: About to "
                             "init engine\nSnapshot Source Locaton:\n" + box_.file("BASE0000.BCF") + "\nRestoreFromSnapshot: "
                             "Entered\n", 0), 0u) << box_.Log();
  const std::string ok = "restore of NT reg key worked OK\n";
  // Only the last key's result counts; a failure is not logged by itself.
  g_realGetProc = Sys().GetProcAddress;
  for (const char* failing : {"", "C", "A"}) {
    Sys().GetProcAddress = *failing ? ProcWithFailingRestore : g_realGetProc;
    g_failKey = key_.Full(failing);
    ASSERT_EQ(RestoreFromSpecifiedSnapshot("BASE0000.BCF"), 0u);
    const std::string keys = std::string(failing) == "C" ? ok + ok + "restore of reg keys failed, error 1234\n"
                                                       : ok + ok + (*failing ? "" : ok) + "restore of reg keys went OK\n";
    EXPECT_TRUE(Logged("Restore system files\n" + keys + "restore of assets went OK\nRestore was successful\n"))
        << failing << box_.Log();
  }
}

TEST_F(RestoreRows, FailingStagesReachOnlyTheLog) {
  // Without the libraries: both stages fail, the export still answers 0 and logs success.
  box_.RemoveCompanionLibraries();
  ASSERT_EQ(RestoreFromSpecifiedSnapshot(box_.file("BASE0000.BCF").c_str()), 0u);
  // (The loader's error: 126 on NT, another number where Wine plays Windows 98.)
  const std::string log = box_.Log();
  const size_t failed = log.find("We failed to load MARLOW.dll\nrestore of reg keys failed, error ");
  EXPECT_NE(failed, std::string::npos) << log;
  EXPECT_NE(log.find("\nrestore of assets failed\nRestore was successful\n", failed), std::string::npos) << log;
  box_.CopyFromBin("MARLOW.DLL");
  box_.CopyFromBin("CORVID.DLL");
  // A snapshot that cannot be read still takes an undo snapshot and logs success.
  SetSnapshotSourceLocation(box_.dir().c_str());
  ASSERT_EQ(RestoreFromSpecifiedSnapshot("BASE0042.BCF"), 0u);
  EXPECT_TRUE(Logged("Restore was successful"));
  EXPECT_TRUE(FileExists(box_.file(box_.UndoBase()))) << box_.UndoBase();
  // A bare name is looked for in SnapshotSourceLocation, with or without its trailing backslash.
  for (const std::string& folder : {box_.dir(), box_.dir() + "\\"}) {
    SetSnapshotSourceLocation(folder.c_str());
    ASSERT_EQ(RestoreFromSpecifiedSnapshot("BASE0000.BCF"), 0u);
    EXPECT_TRUE(Logged("Snapshot Source Locaton:\n" + box_.file("BASE0000.BCF") + "\n")) << box_.Log();
  }
  // An asset kept without its contents is never restored: its live change stays.
  WriteWholeFile(box_.file("fonts\\a.ttf"), "changed");
  ASSERT_EQ(RestoreFromSpecifiedSnapshot("BASE0000.BCF"), 0u);
  EXPECT_EQ(ReadWholeFile(box_.file("fonts\\a.ttf")), "changed");
  // The NT stage of a snapshot that names no save folder.
  if (!OnWindows9x()) {
    WriteWholeFile(box_.file("BASE0050.BCF"), "FormatVersion=6\nno saves\n[REGINFO_START]\n" + key_.Full("A") +
                                                  ",REG0000.OVR,1024,0\n[REGINFO_END]\n");
    ASSERT_EQ(RestoreFromSpecifiedSnapshot("BASE0050.BCF"), 0u);
    EXPECT_TRUE(Logged("missing registry back files\nrestore of reg keys failed, error 13\n")) << box_.Log();
  }
  // No memory for the record: 8, and only the lines written before it.
  Io().calloc = [](size_t, size_t) -> void* { return nullptr; };
  EXPECT_EQ(RestoreFromSpecifiedSnapshot("BASE0000.BCF"), 8u);
  ResetIo();
  EXPECT_EQ(box_.Log(), "RestoreFromSpecifiedSnapshot: Entered\nBASE0000.BCF\n");
  // The seven exports that restore nothing write nothing and answer the start-up's result.
  WriteWholeFile(box_.file("halvern.log"), "");
  for (auto stub : {RestoreFromInitialSnapshot, RestoreFromMostRecentSnapshot, RestoreFromUndoSnapshot,
                    RestoreFromSpecifiedSnapshotSelect, RestoreFromInitialSnapshotSelect,
                    RestoreFromMostRecentSnapshotSelect, RestoreFromUndoSnapshotSelect}) EXPECT_EQ(stub(), 0u);
  EXPECT_EQ(box_.Log(), "");
  box_.SetOrvalis("NO_CPUID_SUPPORT", "1");
  EXPECT_EQ(RestoreFromUndoSnapshotSelect(), 1u);
}

std::vector<std::string> g_calls;
bool g_torvane = false;
template <typename R> R Record(const std::string& call, R result) { return g_calls.push_back(call), result; }
std::string N(long long v) { return std::to_string(v); }

int Access(const char* path, int) { return Record(std::string("access ") + path, g_torvane ? 0 : -1); }
UINT WINAPI FakeWinExec(LPCSTR command, UINT show) { return Record("WinExec " + std::string(command) + " " + N(show), 33u); }
BOOL WINAPI FakeExitWindows(UINT flags, DWORD reserved) { return Record("ExitWindowsEx " + N(flags) + " " + N(reserved), TRUE); }
BOOL WINAPI TokenRefused(HANDLE, DWORD, PHANDLE) { return SetLastError(ERROR_ACCESS_DENIED), FALSE; }
INT_PTR WINAPI FakeDialog(HINSTANCE, LPCSTR tmpl, HWND, DLGPROC, LPARAM) {
  return Record("dialog " + N(reinterpret_cast<uintptr_t>(tmpl)) + " count " + N(RebootCountdown), INT_PTR{1});
}
BOOL WINAPI FakeWindowRect(HWND, LPRECT r) { return *r = RECT{0, 0, 300, 130}, TRUE; }
BOOL WINAPI FakeClientRect(HWND, LPRECT r) { return *r = RECT{0, 0, 290, 100}, TRUE; }
int WINAPI FakeMetrics(int i) { return i == SM_CXSCREEN ? 1024 : 768; }
BOOL WINAPI FakeSetPos(HWND, HWND, int x, int y, int, int, UINT flags) {
  return Record("pos " + N(x) + "," + N(y) + " " + N(flags), TRUE);
}
HWND WINAPI FakeCreate(DWORD, LPCSTR cls, LPCSTR, DWORD style, int x, int y, int w, int h, HWND, HMENU id, HINSTANCE,
                       LPVOID) {
  char buf[160];
  std::snprintf(buf, sizeof buf, "%s %lx %d,%d %dx%d id %d", cls, static_cast<unsigned long>(style), x, y, w, h,
                static_cast<int>(reinterpret_cast<intptr_t>(id)));
  return Record(buf, reinterpret_cast<HWND>(static_cast<intptr_t>(0x100 + g_calls.size())));
}
BOOL WINAPI FakeText(HWND, LPCSTR text) { return Record(std::string("text ") + text, TRUE); }
UINT_PTR WINAPI FakeSetTimer(HWND, UINT_PTR id, UINT ms, TIMERPROC) { return Record("SetTimer " + N(ms), id); }
BOOL WINAPI FakeKillTimer(HWND, UINT_PTR) { return Record("KillTimer", TRUE); }
BOOL WINAPI FakeEndDialog(HWND, INT_PTR r) { return Record("EndDialog " + N(r), TRUE); }
int WINAPI NoString(HINSTANCE, UINT, LPSTR out, int) { return out[0] = '\0', 0; }

class Reboot : public RestoreRows {
 protected:
  void SetUp() override {
    RestoreRows::SetUp();
    g_calls.clear(), g_torvane = false;
    SysApi& s = Sys();
    s.access = Access, s.WinExec = FakeWinExec, s.ExitWindowsEx = FakeExitWindows, s.DialogBoxParamA = FakeDialog;
    s.GetWindowRect = FakeWindowRect, s.GetClientRect = FakeClientRect, s.GetSystemMetrics = FakeMetrics;
    s.SetWindowPos = FakeSetPos, s.CreateWindowExA = FakeCreate, s.SetWindowTextA = FakeText;
    s.SetTimer = FakeSetTimer, s.KillTimer = FakeKillTimer, s.EndDialog = FakeEndDialog;
  }
  // Since the last look, without the file probes.
  std::string Calls() {
    std::string out;
    for (const std::string& c : g_calls) out += c.rfind("access", 0) == 0 ? "" : c + "\n";
    g_calls.clear();
    return out;
  }
};

TEST_F(Reboot, RestartMethodsPrivilegeDelaysAndTheCountdownBox) {
  // No TORVANE.EXE beside the engine: ExitWindowsEx (reboot, reserved 0).
  EXPECT_EQ(RestoreFromSpecifiedSnapshotReboot("BASE0000.BCF"), 0u);
  EXPECT_NE(g_calls[0].find("TORVANE.EXE /Y"), std::string::npos);  // tested on the whole command (kept)
  EXPECT_EQ(Calls(), "ExitWindowsEx 2 0\n");
  EXPECT_EQ(Logged("RestoreFromSpecifiedSnapshotReboot: NT Checking SystemShutdown info"), !OnWindows9x());
  // Present: the program is started, shown normally.
  g_torvane = true;
  EXPECT_EQ(RestoreFromSpecifiedSnapshotDelayReboot("BASE0000.BCF", 0), 0u);
  EXPECT_EQ(Calls(), "dialog 101 count 15\nWinExec " + box_.dir() + "\\TORVANE.EXE /Y 5\n");
  // On NT a privilege that cannot be had is returned, after the restore, with no restart.
  if (!OnWindows9x()) {
    Sys().OpenProcessToken = TokenRefused;
    EXPECT_EQ(RestoreFromSpecifiedSnapshotReboot("BASE0000.BCF"), static_cast<unsigned long>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(Calls(), "");
    EXPECT_TRUE(Logged("RestoreFromSnapshot: Entered"));
  }
  // The countdown box.
  const HWND box = reinterpret_cast<HWND>(static_cast<intptr_t>(0x42));
  // Laid out from the box's own size: centred, the message above, the button below; texts the
  // language library does not have fall back to the same ones built in.
  const std::string layout = "pos 362,319 5\nSTATIC 50000001 0,10 290x54 id 65535\n"
                             "text System will automatically reboot in 15 seconds\n"
                             "BUTTON 50010001 103,64 84x26 id 65534\ntext Reboot\nSetTimer 1000\n";
  for (bool library : {true, false}) {
    if (!library) Sys().LoadStringA = NoString;
    RebootCountdown = 15;
    EXPECT_EQ(RebootCountdownProc(box, WM_INITDIALOG, 0, 0), 1);
    EXPECT_EQ(Calls(), layout) << library;
  }
  RebootCountdown = 1;
  EXPECT_EQ(RebootCountdownProc(box, WM_TIMER, 1, 0), 1);
  EXPECT_EQ(Calls(), "KillTimer\nEndDialog 1\n");
  // A negative count never reaches 0 by counting; the button closes the box, nothing else does.
  RebootCountdown = -1;
  for (int i = 0; i < 3; ++i) RebootCountdownProc(box, WM_TIMER, 1, 0);
  EXPECT_EQ(RebootCountdown, -4);
  EXPECT_EQ(RebootCountdownProc(box, WM_COMMAND, IDOK, 0), 1);
  EXPECT_EQ(RebootCountdownProc(box, WM_PAINT, 0, 0), 0);
  EXPECT_EQ(Calls(), "SetTimer 1000\nSetTimer 1000\nSetTimer 1000\n");
  EXPECT_EQ(RebootCountdownProc(box, WM_COMMAND, 0xFFFE, 0), 1);
  EXPECT_EQ(Calls(), "EndDialog 1\n");
}

}  // namespace
