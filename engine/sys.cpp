#include "engine/sys.h"

#include <io.h>


namespace orvalis {
namespace {

SysApi RealApi() {
  SysApi s{};
  s.GetModuleFileNameA = ::GetModuleFileNameA;
  s.LoadLibraryA = ::LoadLibraryA;
  s.GetProcAddress = ::GetProcAddress;
  s.FreeLibrary = ::FreeLibrary;
  s.SetErrorMode = ::SetErrorMode;
  s.GetLastError = ::GetLastError;
  s.GlobalAlloc = ::GlobalAlloc;
  s.GlobalLock = ::GlobalLock;
  s.GlobalUnlock = ::GlobalUnlock;
  s.GlobalFree = ::GlobalFree;
  s.CopyFileA = ::CopyFileA;
  s.DeleteFileA = ::DeleteFileA;
  s.CreateDirectoryA = ::CreateDirectoryA;
  s.RemoveDirectoryA = ::RemoveDirectoryA;
  s.GetFileAttributesA = ::GetFileAttributesA;
  s.SetFileAttributesA = ::SetFileAttributesA;
  s.FindFirstFileA = ::FindFirstFileA;
  s.FindNextFileA = ::FindNextFileA;
  s.FindClose = ::FindClose;
  s.GetWindowsDirectoryA = ::GetWindowsDirectoryA;
  s.GetSystemDirectoryA = ::GetSystemDirectoryA;
  s.SetCurrentDirectoryA = ::SetCurrentDirectoryA;
  s.GetFileTime = ::GetFileTime;
  s.FileTimeToLocalFileTime = ::FileTimeToLocalFileTime;
  s.FileTimeToDosDateTime = ::FileTimeToDosDateTime;
  s.SetFileTime = ::SetFileTime;
  s.LocalFileTimeToFileTime = ::LocalFileTimeToFileTime;
  s.DosDateTimeToFileTime = ::DosDateTimeToFileTime;
  s.GetSystemTimeAsFileTime = ::GetSystemTimeAsFileTime;
  s.GetPrivateProfileIntA = ::GetPrivateProfileIntA;
  s.GetPrivateProfileStringA = ::GetPrivateProfileStringA;
  s.WritePrivateProfileStringA = ::WritePrivateProfileStringA;
  s.RegOpenKeyExA = ::RegOpenKeyExA;
  s.RegOpenKeyA = ::RegOpenKeyA;
  s.RegQueryValueExA = ::RegQueryValueExA;
  s.RegCloseKey = ::RegCloseKey;
  s.RegFlushKey = ::RegFlushKey;
  s.GetVersion = ::GetVersion;
  s.GetVersionExA = ::GetVersionExA;
  s.GetSystemInfo = ::GetSystemInfo;
  s.GlobalMemoryStatus = ::GlobalMemoryStatus;
  s.GetLocalTime = ::GetLocalTime;
  s.GetUserNameA = ::GetUserNameA;
  s.GetDriveTypeA = ::GetDriveTypeA;
  s.GetDiskFreeSpaceA = ::GetDiskFreeSpaceA;
  s.WNetGetConnectionA = ::WNetGetConnectionA;
  s.GetUserDefaultLCID = ::GetUserDefaultLCID;
  s.GetSystemDefaultLCID = ::GetSystemDefaultLCID;
  s.GetLocaleInfoA = ::GetLocaleInfoA;
  s.MessageBoxA = ::MessageBoxA;
  s.LoadStringA = ::LoadStringA;
  s.SetCursor = ::SetCursor;
  s.LoadCursorA = ::LoadCursorA;
  s.access = ::_access;
  s.WinExec = ::WinExec;
  s.ExitWindowsEx = ::ExitWindowsEx;
  s.GetCurrentProcess = ::GetCurrentProcess;
  s.OpenProcessToken = ::OpenProcessToken;
  s.LookupPrivilegeValueA = ::LookupPrivilegeValueA;
  s.AdjustTokenPrivileges = ::AdjustTokenPrivileges;
  s.GetActiveWindow = ::GetActiveWindow;
  s.DialogBoxParamA = ::DialogBoxParamA;
  s.EndDialog = ::EndDialog;
  s.SetTimer = ::SetTimer;
  s.KillTimer = ::KillTimer;
  s.SetFocus = ::SetFocus;
  s.GetWindowRect = ::GetWindowRect;
  s.GetClientRect = ::GetClientRect;
  s.GetSystemMetrics = ::GetSystemMetrics;
  s.SetWindowPos = ::SetWindowPos;
  s.CreateWindowExA = ::CreateWindowExA;
  s.SetWindowTextA = ::SetWindowTextA;
  return s;
}

SysApi g_sys = RealApi();

}  // namespace

SysApi& Sys() { return g_sys; }
void ResetSys() {
  g_sys = RealApi();
  ResetIo();
}

}  // namespace orvalis
