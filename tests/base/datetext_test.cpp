// Date and time text in the locale's three orders, and the formatter's kept quirks.
#include <cstring>

#include "base/datetext.h"
#include "tests/support/test_support.h"

using namespace orvalis;

namespace {

DateLocale g_locale;
void TestLocale(DateLocale* out) { *out = g_locale; }

void UseLocale(int order, const char* d, const char* t) {
  g_locale.order = order;
  std::snprintf(g_locale.dateSep, sizeof g_locale.dateSep, "%s", d);
  std::snprintf(g_locale.timeSep, sizeof g_locale.timeSep, "%s", t);
  SetDateLocaleProvider(TestLocale);
}

BrokenDownTime Time(int y, int mo, int d, int h, int mi, int s) { return {y, mo, 0, d, h, mi, s}; }
uint32_t Pack(int y, int mo, int d, int h, int mi, int s) { return PackDosDateTime(Time(y, mo, d, h, mi, s)); }

// The packed value shows its stored fields; a broken-down time its true seconds and full year.
TEST(DateText, ThreeOrdersPackedAndBrokenDownInALocaleReadOnce) {
  const uint32_t may30 = Pack(1999, 5, 30, 13, 37, 51);  // seconds field 25
  const struct Row { int order; const char* d; uint32_t packed; const char* text; } rows[] = {
      {0, "/", may30, "05/30/1999 13:37:25"},  // the stored field, not doubled
      {1, ".", may30, "30.05.1999 13:37:25"},
      {2, "-", may30, "99-05-30 13:37:25"},    // years since 1900
      {2, "-", Pack(2001, 1, 2, 3, 4, 6), "101-01-02 03:04:03"},
      {2, "-", Pack(2000, 12, 31, 23, 59, 59), "100-12-31 23:59:29"},
      {7, "/", may30, "05/30/1999 13:37:25"},  // unknown order: month-day-year
      {0, "/", 0, "00/00/1980 00:00:00"}};  // callers test for 0 first
  char out[64];
  for (const Row& r : rows) {
    UseLocale(r.order, r.d, ":");
    EXPECT_EQ(FormatPackedDateTime(r.packed, out), static_cast<int>(std::strlen(r.text)));
    EXPECT_STREQ(out, r.text) << r.order;
  }
  const char* broken[] = {"05/30/1999 13:37:51", "30/05/1999 13:37:51", "1999/05/30 13:37:51"};  // by order
  for (int order = 0; order < 3; ++order) {
    UseLocale(order, "/", ":");
    FormatSystemTime(Time(1999, 5, 30, 13, 37, 51), out);
    EXPECT_STREQ(out, broken[order]);
  }
  // The locale is read once; a later change is seen only after the cache is reset.
  g_locale.order = 1;
  FormatSystemTime(Time(1999, 5, 30, 0, 0, 0), out);
  EXPECT_STREQ(out, "1999/05/30 00:00:00");
  ResetDateLocaleCache();
  FormatSystemTime(Time(1999, 5, 30, 0, 0, 0), out);
  EXPECT_STREQ(out, "30/05/1999 00:00:00");
  UseLocale(0, "1234567", "7654321");  // long separators stay in the buffer
  const int n = FormatPackedDateTime(0xFFFFFFFFu, out);
  EXPECT_TRUE(n < 64 && std::strlen(out) == static_cast<size_t>(n)) << n;
  SetDateLocaleProvider(nullptr);
}

}  // namespace
