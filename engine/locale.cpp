#include "engine/locale.h"

#include <windows.h>

#include <cstdlib>

#include "base/datetext.h"
#include "engine/sys.h"

namespace orvalis {
namespace {

void WindowsDateLocale(DateLocale* out) {
  LCID lcid = Sys().GetSystemDefaultLCID();
  char scratch[8] = "";
  if (Sys().GetLocaleInfoA(lcid, LOCALE_SDATE, out->dateSep, sizeof out->dateSep) == 0) out->dateSep[0] = '\0';
  if (Sys().GetLocaleInfoA(lcid, LOCALE_STIME, out->timeSep, sizeof out->timeSep) == 0) out->timeSep[0] = '\0';
  if (Sys().GetLocaleInfoA(lcid, LOCALE_IDATE, scratch, sizeof scratch) == 0) scratch[0] = '\0';
  out->order = std::atoi(scratch);
}

}  // namespace

void InstallWindowsDateLocale() { SetDateLocaleProvider(WindowsDateLocale); }

}  // namespace orvalis
