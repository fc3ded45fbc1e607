#include "engine/settings.h"

#include <cstdio>

#include "base/textutil.h"
#include "engine/context.h"
#include "engine/sys.h"

namespace orvalis {
namespace {

int GetEngineValue(const char* section, const char* key, char* out, bool scanForProfile) {
  char ini[MAX_PATH];
  GetEngineIniPath(ini);
  out[0] = '\0';
  Sys().GetPrivateProfileStringA(section, key, "", out, MAX_PATH, ini);
  if (out[0] == '\0') {
    // Defaults are computed afresh each time and never written back.
    if (scanForProfile)
      ScanDefaultProfile(out);
    else
      GetModuleFolder(out);
  }
  return 0;
}

int SetEngineValue(const char* section, const char* key, const char* value) {
  char ini[MAX_PATH];
  GetEngineIniPath(ini);
  Sys().WritePrivateProfileStringA(section, key, value, ini);
  return 0;
}

}  // namespace

int GetProfileSourceLocation(char* out) { return GetEngineValue("PROFILE", "ProfileSourceLocation", out, false); }
int SetProfileSourceLocation(const char* v) { return SetEngineValue("PROFILE", "ProfileSourceLocation", v); }
int GetProfileDestinationLocation(char* out) {
  return GetEngineValue("PROFILE", "ProfileDestinationLocation", out, false);
}
int SetProfileDestinationLocation(const char* v) { return SetEngineValue("PROFILE", "ProfileDestinationLocation", v); }
int GetDefaultProfile(char* out) { return GetEngineValue("PROFILE", "DefaultProfile", out, true); }
int SetDefaultProfile(const char* v) { return SetEngineValue("PROFILE", "DefaultProfile", v); }
int GetSnapshotSourceLocation(char* out) { return GetEngineValue("SNAPSHOT", "SnapshotSourceLocation", out, false); }
int SetSnapshotSourceLocation(const char* v) { return SetEngineValue("SNAPSHOT", "SnapshotSourceLocation", v); }
int GetSnapshotDestinationLocation(char* out) {
  return GetEngineValue("SNAPSHOT", "SnapshotDestinationLocation", out, false);
}
int SetSnapshotDestinationLocation(const char* v) {
  return SetEngineValue("SNAPSHOT", "SnapshotDestinationLocation", v);
}

void ScanDefaultProfile(char* out) {
  out[0] = '\0';
  char folder[MAX_PATH];
  GetModuleFolder(folder);
  const char* sep = EndsWith(folder, '\\') ? "" : "\\";
  char pattern[MAX_PATH];
  if (std::snprintf(pattern, sizeof pattern, "%s%s*.GCF", folder, sep) >= static_cast<int>(sizeof pattern)) return;

  // The best time starts at all ones and is never lowered, so every file whose low half is
  // below all ones is taken in turn: the result is the last file the search returns. This is
  // how the product has always chosen, and callers depend on it.
  const DWORD bestHigh = 0xFFFFFFFFu, bestLow = 0xFFFFFFFFu;
  char chosen[MAX_PATH] = "";
  WIN32_FIND_DATAA fd;
  HANDLE h = Sys().FindFirstFileA(pattern, &fd);
  if (h == INVALID_HANDLE_VALUE) return;
  do {
    if (fd.ftLastWriteTime.dwHighDateTime <= bestHigh && fd.ftLastWriteTime.dwLowDateTime < bestLow)
      CopyText(chosen, fd.cFileName, sizeof chosen);
  } while (Sys().FindNextFileA(h, &fd));
  Sys().FindClose(h);
  if (chosen[0] != '\0') std::snprintf(out, MAX_PATH, "%s%s%s", folder, sep, chosen);
}

int ReadOrvalisInt(const char* key, int defaultValue) {
  char ini[MAX_PATH];
  GetOrvalisIniPath(ini);
  return static_cast<int>(Sys().GetPrivateProfileIntA("ORVALIS", key, defaultValue, ini));
}

void ReadOrvalisString(const char* key, const char* defaultValue, char* out, DWORD size) {
  char ini[MAX_PATH];
  GetOrvalisIniPath(ini);
  if (size == 0) return;
  out[0] = '\0';
  Sys().GetPrivateProfileStringA("ORVALIS", key, defaultValue, out, size, ini);
}

void WriteOrvalisString(const char* key, const char* value) {
  char ini[MAX_PATH];
  GetOrvalisIniPath(ini);
  Sys().WritePrivateProfileStringA("ORVALIS", key, value, ini);
}

int RegistrySnapCompression() {
  int v = ReadOrvalisInt("CompressRegistrySnap", 1024);
  switch (v) {
    case 0:
    case 1:
    case 1024:
    case 2048:
    case 4096:
      return v;
    default:
      return 1024;
  }
}

}  // namespace orvalis
