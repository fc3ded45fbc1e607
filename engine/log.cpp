#include "engine/log.h"

#include <windows.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "base/io.h"
#include "base/textutil.h"
#include "engine/context.h"
#include "engine/sys.h"

namespace orvalis {
namespace {

void ComputeLogPath(char* out) {
  char folder[MAX_PATH] = "";
  char uninstall[520] = "";
  bool present = false;
  HKEY key;
  if (Sys().RegOpenKeyExA(HKEY_LOCAL_MACHINE, "software\\microsoft\\windows\\currentversion\\uninstall\\Orvalis", 0,
                          KEY_QUERY_VALUE, &key) == ERROR_SUCCESS) {
    DWORD size = sizeof uninstall - 1;
    DWORD type = 0;
    if (Sys().RegQueryValueExA(key, "UninstallString", nullptr, &type, reinterpret_cast<BYTE*>(uninstall), &size) ==
            ERROR_SUCCESS &&
        uninstall[0] != '\0')
      present = true;
    Sys().RegCloseKey(key);
  }
  if (present) {
    // The uninstaller is started as "program folder": the folder is its argument. Without a
    // space the folder stays empty and the log lands at "\halvern.log".
    const char* space = std::strchr(uninstall, ' ');
    if (space) CopyText(folder, space + 1, sizeof folder);
  } else {
    GetModuleFolder(folder);
  }
  std::snprintf(out, MAX_PATH, "%s\\%s", folder, "halvern.log");
}

}  // namespace

void ResetLog() {
  char* path = State().logPath;
  ComputeLogPath(path);
  FILE* f = Io().fopen(path, "w");
  if (f) Io().fclose(f);
}

void WriteLog(const char* text) {
  const char* path = State().logPath;
  if (path[0] == '\0') return;
  FILE* f = Io().fopen(path, "a");
  if (!f) return;
  std::fprintf(f, "%s\n", text);
  Io().fclose(f);
}

void WriteLogF(const char* format, ...) {
  char line[1024];
  va_list ap;
  va_start(ap, format);
  std::vsnprintf(line, sizeof line, format, ap);
  va_end(ap);
  WriteLog(line);
}

}  // namespace orvalis
