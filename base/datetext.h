// Date and time text: a DOS packed date-time or a broken-down local time shown in the
// order and with the separators of the system's locale. Portable: the locale values come
// from a provider that the platform layer installs (Win32 locale calls on Windows, the C
// library's locale elsewhere).
#pragma once
#include <cstdint>

namespace orvalis {

// The locale values the formatters need. order: 0 month-day-year, 1 day-month-year,
// 2 year-month-day (anything else is treated as 0).
struct DateLocale {
  int order = 0;
  char dateSep[8] = "/";
  char timeSep[8] = ":";
};

using DateLocaleProvider = void (*)(DateLocale* out);

// Installs the provider used to fill the cache on the first format call. Null restores the
// portable default (derived from the C library's LC_TIME formats).
void SetDateLocaleProvider(DateLocaleProvider provider);
// Forgets the cached locale so the next format call asks the provider again. The engine
// itself never refreshes the cache; tests do.
void ResetDateLocaleCache();

// Broken-down local time, fields as GetLocalTime gives them.
struct BrokenDownTime {
  int year = 0, month = 0, dayOfWeek = 0, day = 0, hour = 0, minute = 0, second = 0;
};

// Both write at most 63 characters plus the terminator into out (which holds at least 64)
// and return the number of characters written.
int FormatPackedDateTime(uint32_t packed, char* out);
int FormatSystemTime(const BrokenDownTime& t, char* out);

// DOS packed date-time helpers: bits 0-4 seconds/2, 5-10 minutes, 11-15 hours, 16-20 day,
// 21-24 month, 25-31 years since 1980.
uint32_t PackDosDateTime(const BrokenDownTime& t);

}  // namespace orvalis
