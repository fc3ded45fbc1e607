#pragma once
namespace orvalis {
// Makes the date-time formatters take their order and separators from the system default
// locale (GetLocaleInfoA items LOCALE_SDATE, LOCALE_STIME, LOCALE_IDATE).
void InstallWindowsDateLocale();
}  // namespace orvalis
