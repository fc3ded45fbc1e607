#include "engine/files.h"

#include <io.h>

#include "base/datetext.h"
#include "base/io.h"
#include "engine/sys.h"

namespace orvalis {

uint32_t OpenFileDosTime(FILE* f) {
  if (!f) return 0;
  HANDLE h = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(f)));
  if (h == INVALID_HANDLE_VALUE) return 0;
  FILETIME write, local;
  WORD date = 0, time = 0;
  if (!Sys().GetFileTime(h, nullptr, nullptr, &write)) return 0;
  if (!Sys().FileTimeToLocalFileTime(&write, &local)) return 0;
  if (!Sys().FileTimeToDosDateTime(&local, &date, &time)) return 0;
  return static_cast<uint32_t>(date) << 16 | time;
}

uint32_t PathDosTime(const char* path) {
  FILE* f = Io().fopen(path, "rb");
  if (!f) return 0;
  uint32_t t = OpenFileDosTime(f);
  Io().fclose(f);
  return t;
}

bool SetOpenFileDosTime(FILE* f, uint32_t packed) {
  if (!f) return false;
  std::fflush(f);
  HANDLE h = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(f)));
  if (h == INVALID_HANDLE_VALUE) return false;
  FILETIME local, utc;
  if (!Sys().DosDateTimeToFileTime(static_cast<WORD>(packed >> 16), static_cast<WORD>(packed & 0xFFFF), &local)) return false;
  if (!Sys().LocalFileTimeToFileTime(&local, &utc)) return false;
  return Sys().SetFileTime(h, nullptr, nullptr, &utc) != FALSE;
}

uint32_t NowDosTime() {
  SYSTEMTIME st;
  Sys().GetLocalTime(&st);
  BrokenDownTime t;
  t.year = st.wYear;
  t.month = st.wMonth;
  t.day = st.wDay;
  t.hour = st.wHour;
  t.minute = st.wMinute;
  t.second = st.wSecond;
  return PackDosDateTime(t);
}

bool PathExists(const char* path) { return Sys().GetFileAttributesA(path) != INVALID_FILE_ATTRIBUTES; }

bool IsDirectory(const char* path) {
  DWORD a = Sys().GetFileAttributesA(path);
  return a != INVALID_FILE_ATTRIBUTES && (a & FILE_ATTRIBUTE_DIRECTORY);
}

}  // namespace orvalis
