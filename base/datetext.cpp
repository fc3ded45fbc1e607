#include "base/datetext.h"

#include <cstdio>
#include <cstring>
#if __has_include(<langinfo.h>)
#include <langinfo.h>
#endif

namespace orvalis {
namespace {

// The process-wide cache: filled once, on the first call of either formatter.
int g_dateOrder = -1;
char g_dateSep[8];
char g_timeSep[8];
DateLocaleProvider g_provider = nullptr;

// The C library's view of the locale: order and separators read off its date and time
// formats ("%m/%d/%y", "%d.%m.%Y", "%Y-%m-%d", "%H:%M:%S").
void CLibraryLocale(DateLocale* out) {
#if defined(D_FMT) && defined(T_FMT)
  const char* d = nl_langinfo(D_FMT);
  const char* t = nl_langinfo(T_FMT);
  if (d && *d) {
    const char* first = std::strchr(d, '%');
    if (first && first[1]) {
      char c = first[1];
      out->order = (c == 'Y' || c == 'y') ? 2 : (c == 'd' || c == 'e') ? 1 : 0;
      const char* sep = first + 2;
      size_t n = std::strcspn(sep, "%");
      if (n > 0 && n < sizeof out->dateSep) {
        std::memcpy(out->dateSep, sep, n);
        out->dateSep[n] = '\0';
      }
    }
  }
  if (t && *t) {
    const char* first = std::strchr(t, '%');
    if (first && first[1]) {
      const char* sep = first + 2;
      size_t n = std::strcspn(sep, "%");
      if (n > 0 && n < sizeof out->timeSep) {
        std::memcpy(out->timeSep, sep, n);
        out->timeSep[n] = '\0';
      }
    }
  }
#else
  (void)out;
#endif
}

void FillCache() {
  if (g_dateOrder != -1) return;
  DateLocale loc;
  (g_provider ? g_provider : CLibraryLocale)(&loc);
  std::snprintf(g_dateSep, sizeof g_dateSep, "%s", loc.dateSep);
  std::snprintf(g_timeSep, sizeof g_timeSep, "%s", loc.timeSep);
  g_dateOrder = loc.order;
}

int Clamp(int n) { return n < 0 ? 0 : (n > 63 ? 63 : n); }

}  // namespace

void SetDateLocaleProvider(DateLocaleProvider provider) {
  g_provider = provider;
  g_dateOrder = -1;
}

void ResetDateLocaleCache() { g_dateOrder = -1; }

int FormatPackedDateTime(uint32_t packed, char* out) {
  FillCache();
  const int secondsField = static_cast<int>(packed & 0x1F);  // shown as stored: 00-29
  const int minutes = static_cast<int>((packed >> 5) & 0x3F);
  const int hours = static_cast<int>((packed >> 11) & 0x1F);
  const int day = static_cast<int>((packed >> 16) & 0x1F);
  const int month = static_cast<int>((packed >> 21) & 0x0F);
  const int years = static_cast<int>((packed >> 25) & 0x7F);
  int n;
  if (g_dateOrder == 2)  // years since 1900, at least two digits: 1999 "99", 2000 "100"
    n = std::snprintf(out, 64, "%02i%s%02i%s%02i %02i%s%02i%s%02i", years + 80, g_dateSep, month,
                      g_dateSep, day, hours, g_timeSep, minutes, g_timeSep, secondsField);
  else if (g_dateOrder == 1)
    n = std::snprintf(out, 64, "%02i%s%02i%s%04i %02i%s%02i%s%02i", day, g_dateSep, month, g_dateSep,
                      years + 1980, hours, g_timeSep, minutes, g_timeSep, secondsField);
  else
    n = std::snprintf(out, 64, "%02i%s%02i%s%04i %02i%s%02i%s%02i", month, g_dateSep, day, g_dateSep,
                      years + 1980, hours, g_timeSep, minutes, g_timeSep, secondsField);
  return Clamp(n);
}

int FormatSystemTime(const BrokenDownTime& t, char* out) {
  FillCache();
  int n;
  if (g_dateOrder == 2)
    n = std::snprintf(out, 64, "%02i%s%02i%s%02i %02i%s%02i%s%02i", t.year, g_dateSep, t.month,
                      g_dateSep, t.day, t.hour, g_timeSep, t.minute, g_timeSep, t.second);
  else if (g_dateOrder == 1)
    n = std::snprintf(out, 64, "%02i%s%02i%s%04i %02i%s%02i%s%02i", t.day, g_dateSep, t.month,
                      g_dateSep, t.year, t.hour, g_timeSep, t.minute, g_timeSep, t.second);
  else
    n = std::snprintf(out, 64, "%02i%s%02i%s%04i %02i%s%02i%s%02i", t.month, g_dateSep, t.day,
                      g_dateSep, t.year, t.hour, g_timeSep, t.minute, g_timeSep, t.second);
  return Clamp(n);
}

uint32_t PackDosDateTime(const BrokenDownTime& t) {
  const uint32_t years = t.year >= 1980 ? static_cast<uint32_t>(t.year - 1980) : 0;
  return (years & 0x7F) << 25 | (static_cast<uint32_t>(t.month) & 0x0F) << 21 |
         (static_cast<uint32_t>(t.day) & 0x1F) << 16 | (static_cast<uint32_t>(t.hour) & 0x1F) << 11 |
         (static_cast<uint32_t>(t.minute) & 0x3F) << 5 | ((static_cast<uint32_t>(t.second) / 2) & 0x1F);
}

}  // namespace orvalis
