#include <windows.h>

#include <cstdio>

#include "base/messages.h"
#include "base/textutil.h"
#include "drivers/restore.h"
#include "engine/context.h"
#include "engine/strings.h"
#include "engine/sys.h"

namespace orvalis {

int32_t RebootCountdown = 0;

namespace {

constexpr int kMessageId = 0xFFFF;  // -1 as a control id
constexpr int kButtonId = 0xFFFE;   // -2
constexpr UINT_PTR kTimerId = 1;

// A string of the engine's own table, or the text built in when the table has none.
void EngineText(UINT id, const char* fallback, char* out, int size) {
  out[0] = '\0';
  LoadLocalString(id, out, size);  // the language library: German texts for a German user
  if (!out[0]) CopyText(out, fallback, static_cast<size_t>(size));
}

}  // namespace

// Centres the box on the screen and makes its message and its button from the client area.
void LayoutRebootCountdown(HWND dialog) {
  RECT r{};
  Sys().GetWindowRect(dialog, &r);
  const int w = r.right - r.left, h = r.bottom - r.top;
  const int x = (Sys().GetSystemMetrics(SM_CXSCREEN) - w) / 2;
  const int y = (Sys().GetSystemMetrics(SM_CYSCREEN) - h) / 2;
  Sys().SetWindowPos(dialog, nullptr, x, y, 0, 0, SWP_NOSIZE | SWP_NOZORDER);
  RECT c{};
  Sys().GetClientRect(dialog, &c);
  const int cw = c.right - c.left, ch = c.bottom - c.top;
  HWND message = Sys().CreateWindowExA(0, "STATIC", "", 0x50000001, c.left, c.top + 10, cw, ch - 46, dialog,
                                       reinterpret_cast<HMENU>(static_cast<INT_PTR>(kMessageId)), State().instance,
                                       nullptr);
  char format[256], text[256];
  EngineText(IDS_REBOOT_MESSAGE, "System will automatically reboot in %d seconds", format, sizeof format);
  wsprintfA(text, format, RebootCountdown);
  Sys().SetWindowTextA(message, text);
  HWND button = Sys().CreateWindowExA(0, "BUTTON", "", 0x50010001, cw / 2 - 42, ch - 36, 84, 26, dialog,
                                      reinterpret_cast<HMENU>(static_cast<INT_PTR>(kButtonId)), State().instance,
                                      nullptr);
  char caption[256];
  EngineText(IDS_REBOOT_BUTTON, "Reboot", caption, sizeof caption);
  Sys().SetWindowTextA(button, caption);
}

// The box's procedure. The message keeps the starting count: it is set once, not on each tick.
INT_PTR CALLBACK RebootCountdownProc(HWND dialog, UINT message, WPARAM wparam, LPARAM) {
  switch (message) {
    case WM_INITDIALOG:
      LayoutRebootCountdown(dialog);
      Sys().SetTimer(dialog, kTimerId, 1000, nullptr);
      Sys().SetFocus(dialog);
      return 1;
    case WM_COMMAND:
      if (LOWORD(wparam) == kButtonId) Sys().EndDialog(dialog, 1);
      return 1;
    case WM_TIMER:
      // A negative delay never reaches 0 by counting: only the button closes the box then.
      if (--RebootCountdown == 0) {
        Sys().KillTimer(dialog, kTimerId);
        Sys().EndDialog(dialog, 1);
      } else {
        Sys().SetTimer(dialog, kTimerId, 1000, nullptr);
      }
      return 1;
    default:
      return 0;
  }
}

int ShowRebootCountdown(void* owner) {
  Sys().DialogBoxParamA(State().instance, MAKEINTRESOURCEA(IDD_REBOOT_COUNTDOWN), static_cast<HWND>(owner),
                        RebootCountdownProc, 0);
  return 1;
}

uint32_t EnableShutdownPrivilege() {
  HANDLE token = nullptr;
  if (!Sys().OpenProcessToken(Sys().GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, &token))
    return Sys().GetLastError();
  TOKEN_PRIVILEGES privileges{};
  if (!Sys().LookupPrivilegeValueA(nullptr, "SeShutdownPrivilege", &privileges.Privileges[0].Luid))
    return Sys().GetLastError();
  privileges.PrivilegeCount = 1;
  privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
  // A true answer counts, even when the privilege was not granted; the token stays open.
  if (!Sys().AdjustTokenPrivileges(token, FALSE, &privileges, sizeof privileges, nullptr, nullptr))
    return Sys().GetLastError();
  return 0;
}

bool RebootCommand(char* command, size_t size) {
  char module[MAX_PATH] = "";
  DWORD n = Sys().GetModuleFileNameA(State().instance, module, MAX_PATH);
  if (n >= MAX_PATH) n = MAX_PATH - 1;
  module[n] = '\0';
  SiblingPath(command, size, module, "TORVANE.EXE /Y");
  // Kept as it is: the existence test is made on the whole command text, " /Y" included.
  return Sys().access(command, 0) != -1;
}

void RequestRestart(bool torvanePresent, const char* command) {
  if (torvanePresent)
    Sys().WinExec(command, SW_SHOW);  // 5, as the restart has always been started
  else
    Sys().ExitWindowsEx(EWX_REBOOT, 0);
}

}  // namespace orvalis
