// The restore's failure rows and log lines, the seven exports that restore nothing, and the reboot
// exports with their countdown box, all under Wine; the restart and the box's window calls go
// through the seam, so no Wine process is ever restarted.
#undef _WIN32_WINNT
#define _WIN32_WINNT 0x0600  // RegDeleteTreeA
#include <windows.h>

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "base/companion_api.h"
#include "drivers/restore.h"
#include "engine/context.h"
#include "engine/settings.h"
#include "engine/sys.h"
#include "exports/exports.h"
#include "tests/support/engine_sandbox.h"

using namespace orvalis;
using orvalis_test::EngineSandbox;
using orvalis_test::FileExists;
using orvalis_test::ReadWholeFile;
using orvalis_test::WriteWholeFile;

// The box's procedure and layout, from the engine.
namespace orvalis {
INT_PTR CALLBACK RebootCountdownProc(HWND dialog, UINT message, WPARAM wparam, LPARAM lparam);
}

namespace {

std::vector<std::string> g_calls;
std::string g_failKey;
NTRestoreRegKeyFn g_realRestore;
FARPROC(WINAPI* g_realGetProc)(HMODULE, LPCSTR);

int __cdecl RestoreFailingFor(const char* key, const char* folder) {
  if (g_failKey == key) return 1234;
  return g_realRestore(key, folder);
}
FARPROC WINAPI ProcWithFailingRestore(HMODULE h, LPCSTR name) {
  FARPROC p = g_realGetProc(h, name);
  if (std::string(name) != "_NTRestoreRegKey" || !p) return p;
  g_realRestore = reinterpret_cast<NTRestoreRegKeyFn>(reinterpret_cast<void*>(p));
  return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(RestoreFailingFor));
}

std::string Lines(const std::string& text) {
  std::string out;
  for (char c : text)
    if (c != '\r') out += c;
  return out;
}

class RestoreRows : public ::testing::Test {
 protected:
  void SetUp() override {
    std::random_device rd;
    key_ = "Software\\OrvalisTest\\rows" + std::to_string(rd());
    for (const char* k : {"\\A", "\\B", "\\C"}) {
      HKEY h;
      RegCreateKeyExA(HKEY_CURRENT_USER, (key_ + k).c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &h, nullptr);
      RegSetValueExA(h, "v", 0, REG_SZ, reinterpret_cast<const BYTE*>("1"), 2);
      RegCloseKey(h);
    }
    CreateDirectoryA(box_.file("NIMBRA").c_str(), nullptr);
    CreateDirectoryA(box_.file("fonts").c_str(), nullptr);
    WriteWholeFile(box_.file("fonts\\a.ttf"), "font");
    WriteWholeFile(box_.file("app.ini"), "[a]\r\nb=1\r\n");
    WriteWholeFile(box_.file("P.GCF"), "rows\n[GROUPFILES_START]\n" + box_.file("app.ini") +
                                           "\n[GROUPFILES_END]\n[GROUPREGKEYS_START]\nHKCU\\" + key_ + "\\A\nHKCU\\" +
                                           key_ + "\\B\nHKCU\\" + key_ + "\\C\n[GROUPREGKEYS_END]\n"
                                           "[GROUPASSET_START]\n" + box_.file("fonts") + ",0,0\n[GROUPASSET_END]\n");
    ASSERT_EQ(CreateSnapshotFromSpecifiedProfile("P.GCF", "rows"), 0u);
  }
  void TearDown() override { RegDeleteTreeA(HKEY_CURRENT_USER, key_.c_str()); }
  std::string Log() { return Lines(ReadWholeFile(box_.file("halvern.log"))); }
  std::string Key(const char* sub) { return "HKCU\\" + key_ + "\\" + sub; }
  EngineSandbox box_;
  std::string key_;
};

TEST_F(RestoreRows, LogLinesOfEachPathAndOnlyTheLastNtKeyCounts) {
  if (GetVersion() & 0x80000000u) GTEST_SKIP() << "the NT rows";
  // A clean restore: the whole log as the restore writes it.
  ASSERT_EQ(RestoreFromSpecifiedSnapshot("BASE0000.BCF"), 0u);
  const std::string head = "RestoreFromSpecifiedSnapshot: Entered\nBASE0000.BCF\n"
                           "RestoreFromSpecifiedSnapshot: About to init engine\nSnapshot Source Locaton:\n" +
                           box_.file("BASE0000.BCF") + "\nRestoreFromSnapshot: Entered\n";
  std::string log = Log();
  EXPECT_EQ(log.rfind(head, 0), 0u) << log;
  EXPECT_NE(log.find("Restore system files\nrestore of NT reg key worked OK\nrestore of NT reg key worked OK\n"
                     "restore of NT reg key worked OK\nrestore of reg keys went OK\nrestore of assets went OK\n"
                     "Restore was successful\n"),
            std::string::npos) << log;
  // Only the last key's result counts; a failure is not logged by itself.
  g_realGetProc = Sys().GetProcAddress;
  Sys().GetProcAddress = ProcWithFailingRestore;
  const struct {
    const char* failing;
    const char* expected;
  } rows[] = {
      {"C", "restore of NT reg key worked OK\nrestore of NT reg key worked OK\nrestore of reg keys failed, error 1234\n"},
      {"A", "restore of NT reg key worked OK\nrestore of NT reg key worked OK\nrestore of reg keys went OK\n"},
  };
  for (const auto& r : rows) {
    g_failKey = Key(r.failing);
    ASSERT_EQ(RestoreFromSpecifiedSnapshot("BASE0000.BCF"), 0u);
    log = Log();
    EXPECT_NE(log.find(std::string("Restore system files\n") + r.expected), std::string::npos) << r.failing << log;
    EXPECT_NE(log.find("Restore was successful\n"), std::string::npos);
  }
}

TEST_F(RestoreRows, FailingStagesReachOnlyTheLog) {
  // Without the libraries: both stages fail, the export still answers 0 and logs success.
  box_.RemoveCompanionLibraries();
  ASSERT_EQ(RestoreFromSpecifiedSnapshot(box_.file("BASE0000.BCF").c_str()), 0u);
  std::string log = Log();
  // (The loader's error: 126 on NT, another number where Wine plays Windows 98.)
  const size_t failed = log.find("We failed to load MARLOW.dll\nrestore of reg keys failed, error ");
  EXPECT_NE(failed, std::string::npos) << log;
  EXPECT_NE(log.find("\nrestore of assets failed\nRestore was successful\n", failed), std::string::npos) << log;
  box_.CopyFromBin("MARLOW.DLL");
  box_.CopyFromBin("CORVID.DLL");
  // A snapshot that cannot be read still takes an undo snapshot and logs success.
  SetSnapshotSourceLocation(box_.dir().c_str());
  ASSERT_EQ(RestoreFromSpecifiedSnapshot("BASE0042.BCF"), 0u);
  EXPECT_NE(Log().find("Restore was successful"), std::string::npos);
  char undo[MAX_PATH];
  ReadOrvalisString("UNDOBASE", "", undo, sizeof undo);
  EXPECT_TRUE(FileExists(box_.file(undo))) << undo;
  // A bare name is looked for in SnapshotSourceLocation, with or without its trailing backslash.
  for (const std::string& folder : {box_.dir(), box_.dir() + "\\"}) {
    SetSnapshotSourceLocation(folder.c_str());
    ASSERT_EQ(RestoreFromSpecifiedSnapshot("BASE0000.BCF"), 0u);
    EXPECT_NE(Log().find("Snapshot Source Locaton:\n" + box_.file("BASE0000.BCF") + "\n"), std::string::npos) << Log();
  }
  // An asset kept without its contents is never restored: its live change stays.
  WriteWholeFile(box_.file("fonts\\a.ttf"), "changed");
  ASSERT_EQ(RestoreFromSpecifiedSnapshot("BASE0000.BCF"), 0u);
  EXPECT_EQ(ReadWholeFile(box_.file("fonts\\a.ttf")), "changed");
  // The NT stage of a snapshot that names no save folder.
  if (!(GetVersion() & 0x80000000u)) {
    WriteWholeFile(box_.file("BASE0050.BCF"), "FormatVersion=6\nno saves\n[REGINFO_START]\n" + Key("A") +
                                                  ",REG0000.OVR,1024,0\n[REGINFO_END]\n");
    ASSERT_EQ(RestoreFromSpecifiedSnapshot("BASE0050.BCF"), 0u);
    EXPECT_NE(Log().find("missing registry back files\nrestore of reg keys failed, error 13\n"), std::string::npos)
        << Log();
  }
  // No memory for the record: 8, and only the lines written before it.
  Io().calloc = [](size_t, size_t) -> void* { return nullptr; };
  EXPECT_EQ(RestoreFromSpecifiedSnapshot("BASE0000.BCF"), 8u);
  ResetIo();
  EXPECT_EQ(Log(), "RestoreFromSpecifiedSnapshot: Entered\nBASE0000.BCF\n");
  // The seven exports that restore nothing write nothing and answer the start-up's result.
  WriteWholeFile(box_.file("halvern.log"), "");
  for (auto stub : {RestoreFromInitialSnapshot, RestoreFromMostRecentSnapshot, RestoreFromUndoSnapshot,
                    RestoreFromSpecifiedSnapshotSelect, RestoreFromInitialSnapshotSelect,
                    RestoreFromMostRecentSnapshotSelect, RestoreFromUndoSnapshotSelect})
    EXPECT_EQ(stub(), 0u);
  EXPECT_EQ(ReadWholeFile(box_.file("halvern.log")), "");
  box_.SetOrvalis("NO_CPUID_SUPPORT", "1");
  EXPECT_EQ(RestoreFromUndoSnapshotSelect(), 1u);
}

// ---- Reboot ---------------------------------------------------------------------------------

bool g_torvane = false;
int Access(const char* path, int) {
  g_calls.push_back(std::string("access ") + path);
  return g_torvane ? 0 : -1;
}
UINT WINAPI FakeWinExec(LPCSTR command, UINT show) {
  g_calls.push_back("WinExec " + std::string(command) + " " + std::to_string(show));
  return 33;
}
BOOL WINAPI FakeExitWindows(UINT flags, DWORD reserved) {
  g_calls.push_back("ExitWindowsEx " + std::to_string(flags) + " " + std::to_string(reserved));
  return TRUE;
}
BOOL WINAPI TokenRefused(HANDLE, DWORD, PHANDLE) {
  SetLastError(ERROR_ACCESS_DENIED);
  return FALSE;
}
INT_PTR WINAPI FakeDialog(HINSTANCE, LPCSTR tmpl, HWND, DLGPROC, LPARAM) {
  g_calls.push_back("dialog " + std::to_string(reinterpret_cast<uintptr_t>(tmpl)) + " count " +
                    std::to_string(RebootCountdown));
  return 1;
}
// The box's window calls, recorded.
BOOL WINAPI FakeWindowRect(HWND, LPRECT r) { return *r = RECT{0, 0, 300, 130}, TRUE; }
BOOL WINAPI FakeClientRect(HWND, LPRECT r) { return *r = RECT{0, 0, 290, 100}, TRUE; }
int WINAPI FakeMetrics(int i) { return i == SM_CXSCREEN ? 1024 : 768; }
BOOL WINAPI FakeSetPos(HWND, HWND, int x, int y, int, int, UINT flags) {
  g_calls.push_back("pos " + std::to_string(x) + "," + std::to_string(y) + " " + std::to_string(flags));
  return TRUE;
}
HWND WINAPI FakeCreate(DWORD, LPCSTR cls, LPCSTR, DWORD style, int x, int y, int w, int h, HWND, HMENU id, HINSTANCE,
                       LPVOID) {
  char buf[160];
  std::snprintf(buf, sizeof buf, "%s %lx %d,%d %dx%d id %d", cls, static_cast<unsigned long>(style), x, y, w, h,
                static_cast<int>(reinterpret_cast<intptr_t>(id)));
  g_calls.push_back(buf);
  return reinterpret_cast<HWND>(static_cast<intptr_t>(0x100 + g_calls.size()));
}
BOOL WINAPI FakeText(HWND, LPCSTR text) { return g_calls.push_back(std::string("text ") + text), TRUE; }
UINT_PTR WINAPI FakeSetTimer(HWND, UINT_PTR id, UINT ms, TIMERPROC) {
  return g_calls.push_back("SetTimer " + std::to_string(ms)), id;
}
BOOL WINAPI FakeKillTimer(HWND, UINT_PTR) { return g_calls.push_back("KillTimer"), TRUE; }
BOOL WINAPI FakeEndDialog(HWND, INT_PTR r) { return g_calls.push_back("EndDialog " + std::to_string(r)), TRUE; }
HWND WINAPI FakeFocus(HWND) { return nullptr; }
int WINAPI NoString(HINSTANCE, UINT, LPSTR out, int) { return out[0] = '\0', 0; }

class Reboot : public RestoreRows {
 protected:
  void SetUp() override {
    RestoreRows::SetUp();
    g_calls.clear();
    SysApi& s = Sys();
    g_torvane = false;
    s.access = Access;
    s.WinExec = FakeWinExec;
    s.ExitWindowsEx = FakeExitWindows;
    s.DialogBoxParamA = FakeDialog;
    s.GetWindowRect = FakeWindowRect;
    s.GetClientRect = FakeClientRect;
    s.GetSystemMetrics = FakeMetrics;
    s.SetWindowPos = FakeSetPos;
    s.CreateWindowExA = FakeCreate;
    s.SetWindowTextA = FakeText;
    s.SetTimer = FakeSetTimer;
    s.KillTimer = FakeKillTimer;
    s.EndDialog = FakeEndDialog;
    s.SetFocus = FakeFocus;
  }
  std::string Calls() {
    std::string out;
    for (const std::string& c : g_calls)
      if (c.rfind("access", 0) != 0) out += c + "\n";
    return out;
  }
};

TEST_F(Reboot, RestartMethodsPrivilegeAndDelays) {
  // No TORVANE.EXE beside the engine: ExitWindowsEx (reboot, reserved 0).
  EXPECT_EQ(RestoreFromSpecifiedSnapshotReboot("BASE0000.BCF"), 0u);
  EXPECT_EQ(Calls(), "ExitWindowsEx 2 0\n");
  EXPECT_NE(g_calls[0].find("TORVANE.EXE /Y"), std::string::npos);  // tested on the whole command (kept)
  const bool nt = !(GetVersion() & 0x80000000u);
  EXPECT_EQ(Log().find("RestoreFromSpecifiedSnapshotReboot: NT Checking SystemShutdown info") != std::string::npos, nt);
  // Present: the program is started, shown normally.
  g_torvane = true;
  g_calls.clear();
  EXPECT_EQ(RestoreFromSpecifiedSnapshotDelayReboot("BASE0000.BCF", 0), 0u);
  EXPECT_EQ(Calls(), "dialog 101 count 15\nWinExec " + box_.dir() + "\\TORVANE.EXE /Y 5\n");
  // On NT a privilege that cannot be had is returned, after the restore, with no restart.
  if (nt) {
    Sys().OpenProcessToken = TokenRefused;
    g_calls.clear();
    EXPECT_EQ(RestoreFromSpecifiedSnapshotReboot("BASE0000.BCF"), static_cast<unsigned long>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(Calls(), "");
    EXPECT_NE(Log().find("RestoreFromSnapshot: Entered"), std::string::npos);
  }
}

TEST_F(Reboot, TheCountdownBoxLaysOutCountsAndCloses) {
  const HWND box = reinterpret_cast<HWND>(static_cast<intptr_t>(0x42));
  // Laid out from the box's own size: centred, the message above, the button below.
  RebootCountdown = 15;
  EXPECT_EQ(RebootCountdownProc(box, WM_INITDIALOG, 0, 0), 1);
  EXPECT_EQ(Calls(), "pos 362,319 5\n"
                     "STATIC 50000001 0,10 290x54 id 65535\n"
                     "text System will automatically reboot in 15 seconds\n"
                     "BUTTON 50010001 103,64 84x26 id 65534\n"
                     "text Reboot\n"
                     "SetTimer 1000\n");
  // Texts the language library does not have fall back to the ones built in.
  g_calls.clear();
  Sys().LoadStringA = NoString;
  EXPECT_EQ(RebootCountdownProc(box, WM_INITDIALOG, 0, 0), 1);
  EXPECT_NE(Calls().find("text System will automatically reboot in 15 seconds\n"), std::string::npos) << Calls();
  EXPECT_NE(Calls().find("text Reboot\n"), std::string::npos);
  // A count of 1 closes at the first tick.
  g_calls.clear();
  RebootCountdown = 1;
  EXPECT_EQ(RebootCountdownProc(box, WM_TIMER, 1, 0), 1);
  EXPECT_EQ(Calls(), "KillTimer\nEndDialog 1\n");
  // A negative count never reaches 0 by counting; the button closes the box.
  g_calls.clear();
  RebootCountdown = -1;
  for (int i = 0; i < 3; ++i) RebootCountdownProc(box, WM_TIMER, 1, 0);
  EXPECT_EQ(RebootCountdown, -4);
  EXPECT_EQ(Calls(), "SetTimer 1000\nSetTimer 1000\nSetTimer 1000\n");
  EXPECT_EQ(RebootCountdownProc(box, WM_COMMAND, 0xFFFE, 0), 1);
  EXPECT_EQ(RebootCountdownProc(box, WM_COMMAND, IDOK, 0), 1);  // any other command: nothing
  EXPECT_EQ(RebootCountdownProc(box, WM_PAINT, 0, 0), 0);
  EXPECT_EQ(Calls(), "SetTimer 1000\nSetTimer 1000\nSetTimer 1000\nEndDialog 1\n");
}

}  // namespace
