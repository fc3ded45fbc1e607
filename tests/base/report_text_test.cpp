// The text report's tree printer: exact lines for registry, folder and file nodes, every value
// rendering and its kept oddities, the masks of a sorted report. And the date text it uses.
#include "base/report_text.h"

#include <cstring>
#include <deque>

#include "base/datetext.h"
#include "tests/support/test_support.h"

using namespace orvalis;
using orvalis_test::NoCr;
using orvalis_test::WrittenBy;

namespace {

// Trees built by hand; the nodes and their texts live as long as the builder.
struct Trees {
  std::deque<ChangeNode> nodes;
  std::deque<std::string> texts;
  char* Text(const std::string& s) { return texts.emplace_back(s).data(); }
  ChangeNode* Node(uint16_t flags, const char* name, ChangeNode* parent = nullptr,
                   ChangeNode* ChangeNode::*list = &ChangeNode::children) {
    ChangeNode* n = &nodes.emplace_back();
    n->flags = flags;
    n->depth = static_cast<uint16_t>(parent ? parent->depth + 1 : 0);
    if (name) n->name = Text(name), n->nameLength = static_cast<uint32_t>(std::strlen(name));
    ChangeNode** tail = parent ? &(parent->*list) : &n->next;  // appended last among its siblings
    while (*tail) tail = &(*tail)->next;
    if (parent) *tail = n;
    return n;
  }
  // A number of up to four bytes is held in the data member itself: here 0.
  ChangeNode* Value(ChangeNode* key, uint16_t flags, const char* name, uint32_t type, const std::string& data) {
    ChangeNode* v = Node(flags, name, key, &ChangeNode::values);
    v->type = type;
    v->data = type == 4 && data.size() <= 4 ? nullptr : Text(data);
    v->length = static_cast<uint32_t>(data.size());
    return v;
  }
};

// Date and time text in the locale's three orders, and the formatter's kept quirks.
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

std::string Print(const ChangeNode* root, bool sorted = false, bool truncate = true) {
  return NoCr(WrittenBy([&](FILE* f) { PrintChangeTree(f, root, TreeReportOptions{sorted, truncate}); }));
}

TEST(ReportTree, KeysValuesFoldersFilesSortedPassesAndDateTexts) {
  Trees t;
  ChangeNode* root = t.Node(kKindKey | kChangeBelow, "Software");
  ChangeNode* sub = t.Node(kKindKey | kChangeNewer, "Added", root);
  t.Value(sub, kChangeNewer, "inside", 1, std::string("x") + '\0');
  const std::string s64(64, 's'), s65(65, 't');
  t.Value(root, kChangeOlder, nullptr, 1, "default" + std::string(1, '\0'));
  t.Value(root, kChangeFrom, "s64", 1, s64 + '\0');
  t.Value(root, kChangeTo, "s65", 1, s65 + '\0');
  t.Value(root, kChangeNewer, "dw", 4, "")->data = reinterpret_cast<void*>(static_cast<uintptr_t>(255));
  // A number longer than four bytes keeps its data behind the pointer: its first four bytes show.
  t.Value(root, kChangeNewer, "dw6", 4, std::string("\x34\x12\x00\x00\xEE\xEE", 6));
  t.Value(root, kChangeNewer, "b8", 3, "\x01\x02\x03\x04\x05\x06\x07\x08");
  t.Value(root, kChangeNewer, "b9", 3, std::string("\xAB\xCD\x00\x00\x00\x00\x00\x00\x09", 9));
  t.Value(root, kChangeNewer, "b17", 3, std::string(17, '\x11'));
  t.Value(root, kChangeNewer, "list", 7, std::string("one\0two\0\0", 9));
  t.Value(root, kChangeNewer, "none", 0, "zz");
  EXPECT_EQ(Print(root),
            "   [Software]\n"
            " +   [Added]\n"                             // subkeys before values
            " +     inside  x\n"
            " -   <DEFAULT>  default\n"
            "<-   s64  " + s64 + "\n"                      // 64 characters: no "..."
            "->   s65  " + std::string(64, 't') + "...\n"  // 65: cut with "..."
            " +   dw  FF\n"
            " +   dw6  1234\n"
            " +   b8  0102030405060708\n"
            " +   b9  ABCD000000000000\n"                // 9-16 bytes cut without "..." (kept)
            " +   b17  1111111111111111...\n"
            " +   list  \"one\"\"two\"\n"
            " +   none\n");
  // Truncation off: a value's name, then its text in pieces; of binary data the first 16 bytes of
  // every 32 (kept).
  root = t.Node(kKindKey | kChangeBelow, "K");
  t.Value(root, kChangeNewer, "s", 1, std::string(100, 'a') + '\0');
  std::string bin;
  for (int i = 0; i < 40; ++i) bin += static_cast<char>(i);
  t.Value(root, kChangeNewer, "b", 3, bin);
  t.Value(root, kChangeNewer, "l", 7, "short" + std::string(1, '\0') + std::string(130, 'm') + '\0' + '\0');
  EXPECT_EQ(Print(root, false, false),
            "   [K]\n +   s\n +     " + std::string(64, 'a') + "\n +     " + std::string(36, 'a') + "\n"
            " +   b\n +     000102030405060708090A0B0C0D0E0F\n +     2021222324252627\n"
            " +   l\n +     \"short\"\n +     \"" + std::string(64, 'm') + "\n +     " + std::string(64, 'm') + "\n +     mm\"\n");
  // Folders and files.
  root = t.Node(kKindName | kChangeBelow, "C:\\Fonts");
  ChangeNode* folder = t.Node(kKindFolder | kChangeBelow, "sub\\deep", root);
  ChangeNode* file = t.Node(kKindFile | kChangeOlder, "sub\\deep\\a.ttf", folder);
  // 30 May 2000 13:37, seconds field 12: the date text shows the field as it is (kept).
  file->time = (20u << 25) | (5u << 21) | (30u << 16) | (13u << 11) | (37u << 5) | 12u;
  file->length = 1234;
  t.Node(kKindName | kChangeNewer, "ignored", folder);
  // The root (a plain name) repeats the text of the line before it, which is none yet.
  EXPECT_EQ(Print(root),
            "   \n"
            "     [deep]\n"
            " -     a.ttf  05/30/2000 13:37:12, 1234\n"
            " +     a.ttf  05/30/2000 13:37:12, 1234\n");
  // Sorted: removals, additions, changes, each pass under its own copy of the key.
  root = t.Node(kKindKey | kChangeBelow, "R");
  t.Value(root, kChangeFrom, "c", 4, "");
  t.Value(root, kChangeNewer, "a", 4, "");
  t.Value(root, kChangeOlder, "r", 4, "");
  EXPECT_EQ(Print(root, true), "   [R]\n -   r  0\n   [R]\n +   a  0\n   [R]\n<-   c  0\n");
  // An excluded node and a tree without changes print nothing.
  root->flags |= kChangeExcluded;
  EXPECT_EQ(Print(root), "   [R]\n");
  EXPECT_EQ(Print(t.Node(kKindKey, "Q")), "");
  EXPECT_EQ(Print(nullptr), "");
  EXPECT_STREQ(ChangeMarker(kChangeOlder | kChangeNewer), " +");
  EXPECT_STREQ(ChangeMarker(kChangeTo | kChangeNewer), " +");
  // Date texts in the three orders: the packed value shows its stored fields; a broken-down time its
  // true seconds and full year.
  const uint32_t may30 = Pack(1999, 5, 30, 13, 37, 51);  // seconds field 25
  const struct Row { int order; const char* d; uint32_t packed; const char* text; } rows[] = {
      {0, "/", may30, "05/30/1999 13:37:25"},  // the stored field, not doubled
      {1, ".", may30, "30.05.1999 13:37:25"}, {2, "-", may30, "99-05-30 13:37:25"},  // years since 1900
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
