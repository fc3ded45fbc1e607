// The engine's seam to the operating system. Every Win32 call goes through this table, and the
// C runtime calls whose failure matters (open, close, remove, rename, heap memory) through the
// portable table of base/io.h beside it, so that a test can make any of them fail (out of space,
// access denied, no memory) and check that the engine keeps its promises. Both tables hold the
// real calls unless a test swaps an entry.
#pragma once
#include <windows.h>

#include "base/io.h"

namespace orvalis {

struct SysApi {
  // Modules and libraries
  DWORD(WINAPI* GetModuleFileNameA)(HMODULE, LPSTR, DWORD);
  HMODULE(WINAPI* LoadLibraryA)(LPCSTR);
  FARPROC(WINAPI* GetProcAddress)(HMODULE, LPCSTR);
  BOOL(WINAPI* FreeLibrary)(HMODULE);
  UINT(WINAPI* SetErrorMode)(UINT);
  DWORD(WINAPI* GetLastError)();

  // Memory
  HGLOBAL(WINAPI* GlobalAlloc)(UINT, SIZE_T);
  LPVOID(WINAPI* GlobalLock)(HGLOBAL);
  BOOL(WINAPI* GlobalUnlock)(HGLOBAL);
  HGLOBAL(WINAPI* GlobalFree)(HGLOBAL);

  // Files and folders
  BOOL(WINAPI* CopyFileA)(LPCSTR, LPCSTR, BOOL);
  BOOL(WINAPI* DeleteFileA)(LPCSTR);
  BOOL(WINAPI* CreateDirectoryA)(LPCSTR, LPSECURITY_ATTRIBUTES);
  BOOL(WINAPI* RemoveDirectoryA)(LPCSTR);
  DWORD(WINAPI* GetFileAttributesA)(LPCSTR);
  BOOL(WINAPI* SetFileAttributesA)(LPCSTR, DWORD);
  HANDLE(WINAPI* FindFirstFileA)(LPCSTR, LPWIN32_FIND_DATAA);
  BOOL(WINAPI* FindNextFileA)(HANDLE, LPWIN32_FIND_DATAA);
  BOOL(WINAPI* FindClose)(HANDLE);
  UINT(WINAPI* GetWindowsDirectoryA)(LPSTR, UINT);
  UINT(WINAPI* GetSystemDirectoryA)(LPSTR, UINT);
  BOOL(WINAPI* SetCurrentDirectoryA)(LPCSTR);
  BOOL(WINAPI* GetFileTime)(HANDLE, LPFILETIME, LPFILETIME, LPFILETIME);
  BOOL(WINAPI* FileTimeToLocalFileTime)(const FILETIME*, LPFILETIME);
  BOOL(WINAPI* FileTimeToDosDateTime)(const FILETIME*, LPWORD, LPWORD);
  BOOL(WINAPI* SetFileTime)(HANDLE, const FILETIME*, const FILETIME*, const FILETIME*);
  BOOL(WINAPI* LocalFileTimeToFileTime)(const FILETIME*, LPFILETIME);
  BOOL(WINAPI* DosDateTimeToFileTime)(WORD, WORD, LPFILETIME);
  void(WINAPI* GetSystemTimeAsFileTime)(LPFILETIME);

  // Settings files
  UINT(WINAPI* GetPrivateProfileIntA)(LPCSTR, LPCSTR, INT, LPCSTR);
  DWORD(WINAPI* GetPrivateProfileStringA)(LPCSTR, LPCSTR, LPCSTR, LPSTR, DWORD, LPCSTR);
  BOOL(WINAPI* WritePrivateProfileStringA)(LPCSTR, LPCSTR, LPCSTR, LPCSTR);

  // Registry
  LONG(WINAPI* RegOpenKeyExA)(HKEY, LPCSTR, DWORD, REGSAM, PHKEY);
  LONG(WINAPI* RegOpenKeyA)(HKEY, LPCSTR, PHKEY);
  LONG(WINAPI* RegQueryValueExA)(HKEY, LPCSTR, LPDWORD, LPDWORD, LPBYTE, LPDWORD);
  LONG(WINAPI* RegCloseKey)(HKEY);
  LONG(WINAPI* RegFlushKey)(HKEY);

  // System information, time and locale
  DWORD(WINAPI* GetVersion)();
  BOOL(WINAPI* GetVersionExA)(LPOSVERSIONINFOA);
  void(WINAPI* GetSystemInfo)(LPSYSTEM_INFO);
  void(WINAPI* GlobalMemoryStatus)(LPMEMORYSTATUS);
  void(WINAPI* GetLocalTime)(LPSYSTEMTIME);
  BOOL(WINAPI* GetUserNameA)(LPSTR, LPDWORD);
  UINT(WINAPI* GetDriveTypeA)(LPCSTR);
  BOOL(WINAPI* GetDiskFreeSpaceA)(LPCSTR, LPDWORD, LPDWORD, LPDWORD, LPDWORD);
  DWORD(WINAPI* WNetGetConnectionA)(LPCSTR, LPSTR, LPDWORD);
  LCID(WINAPI* GetUserDefaultLCID)();
  LCID(WINAPI* GetSystemDefaultLCID)();
  int(WINAPI* GetLocaleInfoA)(LCID, LCTYPE, LPSTR, int);

  // User interface
  int(WINAPI* MessageBoxA)(HWND, LPCSTR, LPCSTR, UINT);
  int(WINAPI* LoadStringA)(HINSTANCE, UINT, LPSTR, int);
  HCURSOR(WINAPI* SetCursor)(HCURSOR);
  HCURSOR(WINAPI* LoadCursorA)(HINSTANCE, LPCSTR);

  // The reboot after a restore: the countdown box, the privilege, the restart itself
  int (*access)(const char*, int);
  UINT(WINAPI* WinExec)(LPCSTR, UINT);
  BOOL(WINAPI* ExitWindowsEx)(UINT, DWORD);
  HANDLE(WINAPI* GetCurrentProcess)();
  BOOL(WINAPI* OpenProcessToken)(HANDLE, DWORD, PHANDLE);
  BOOL(WINAPI* LookupPrivilegeValueA)(LPCSTR, LPCSTR, PLUID);
  BOOL(WINAPI* AdjustTokenPrivileges)(HANDLE, BOOL, PTOKEN_PRIVILEGES, DWORD, PTOKEN_PRIVILEGES, PDWORD);
  HWND(WINAPI* GetActiveWindow)();
  INT_PTR(WINAPI* DialogBoxParamA)(HINSTANCE, LPCSTR, HWND, DLGPROC, LPARAM);
  BOOL(WINAPI* EndDialog)(HWND, INT_PTR);
  UINT_PTR(WINAPI* SetTimer)(HWND, UINT_PTR, UINT, TIMERPROC);
  BOOL(WINAPI* KillTimer)(HWND, UINT_PTR);
  HWND(WINAPI* SetFocus)(HWND);
  BOOL(WINAPI* GetWindowRect)(HWND, LPRECT);
  BOOL(WINAPI* GetClientRect)(HWND, LPRECT);
  int(WINAPI* GetSystemMetrics)(int);
  BOOL(WINAPI* SetWindowPos)(HWND, HWND, int, int, int, int, UINT);
  HWND(WINAPI* CreateWindowExA)(DWORD, LPCSTR, LPCSTR, DWORD, int, int, int, int, HWND, HMENU, HINSTANCE, LPVOID);
  BOOL(WINAPI* SetWindowTextA)(HWND, LPCSTR);
};

// The table in force.
SysApi& Sys();
// Puts the real calls back into every entry of both tables.
void ResetSys();

}  // namespace orvalis
