// File helpers on top of the seam: DOS packed times of files, existence tests.
#pragma once
#include <windows.h>

#include <cstdint>
#include <cstdio>

namespace orvalis {

// Last-write time of an open stream, DOS packed in local time (as the C runtime's getftime
// gives it); 0 when it cannot be had.
uint32_t OpenFileDosTime(FILE* f);
// The same for a path (opened for reading); 0 when it cannot be opened.
uint32_t PathDosTime(const char* path);
// Sets an open stream's last-write time from a DOS packed local time.
bool SetOpenFileDosTime(FILE* f, uint32_t packed);
// Current local time, DOS packed.
uint32_t NowDosTime();
bool PathExists(const char* path);
bool IsDirectory(const char* path);

}  // namespace orvalis
