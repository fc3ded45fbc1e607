// MARLOW.DLL as the engine calls it, against the real registry under Wine.
#include <windows.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/companions/marlow/marlow_fixture.h"
#include "tests/support/test_support.h"

namespace {

using namespace marlow_test;
using namespace std::string_literals;

// The current user's key below HKEY_USERS: the one that holds the test's key.
std::string UserKey(const std::string& key) {
  char name[256];
  HKEY h;
  for (DWORD i = 0, len; len = sizeof name, !RegEnumKeyExA(HKEY_USERS, i, name, &len, nullptr, nullptr, nullptr, nullptr); ++i)
    if (!RegOpenKeyExA(HKEY_USERS, (std::string(name) + "\\" + key).c_str(), 0, KEY_READ, &h) && !RegCloseKey(h))
      return name;
  return "";
}

TEST_F(MarlowTest, DumpReadsBackEveryKeyAsTheLiveReadWhateverTheRootSpelling) {
  const std::string rich = base + "\\rich", sid = UserKey(base);
  ASSERT_FALSE(sid.empty());
  BuildRichKey(rich);
  // A name with no ANSI form: the A calls meet it as "??" and cannot open it, and the dump (taken
  // from the platform's save where it can be) must record it as they do.
  HKEY h = CreateKey(rich), cyrillic;
  ASSERT_EQ(RegCreateKeyExW(h, L"\x0416\x0438", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &cyrillic, nullptr), 0);
  ASSERT_EQ(RegSetValueExW(cyrillic, L"v", 0, REG_DWORD, reinterpret_cast<const BYTE*>("\1\0\0\0"), 4), 0);
  RegCloseKey(cyrillic);
  RegCloseKey(h);
  const std::string paths[] = {"HKEY_CURRENT_USER\\" + rich, "HKCU\\" + rich, "hkcu\\\\" + rich + "\\",
                               "HKEY_USERS\\" + sid + "\\" + rich, "HKU\\" + sid + "\\" + rich};
  ChangeNode* live = Live(paths[0]);
  ASSERT_NE(live, nullptr);
  const std::string text = Flatten(live);
  // The key, 21 values, the long-named key and its value, the empty key, the volatile key and its
  // value, the key with no ANSI name (seen empty), 30 levels of a key and a value.
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1 + 21 + 2 + 1 + 2 + 1 + 30 * 2);
  // The engine reads a number from the data member itself and the default value by its null name.
  const ChangeNode *dw = Find(live->values, "dw"), *deep = live;
  EXPECT_TRUE(dw && dw->data == reinterpret_cast<void*>(uintptr_t(0xDEADBEEF)) && Find(live->values, nullptr));
  for (int i = 0; i < 30 && deep; ++i) deep = Find(deep->children, ("d" + std::to_string(i)).c_str());
  EXPECT_TRUE(live->depth == 0 && deep && deep->depth == 30);
  m.free(live);

  std::string file;
  for (int compression : {0, 1024, 2048, 4096}) {
    file = dir.file("REG" + std::to_string(compression) + ".OVR");
    ASSERT_EQ(m.dump(file.c_str(), compression), 0) << compression;
    for (const std::string& path : paths) {
      SCOPED_TRACE(path + ", compression " + std::to_string(compression));
      ChangeNode* t = FromDump(file, path);
      EXPECT_EQ(Flatten(t), text);
      EXPECT_EQ(LiveText(path), text);
      // The root takes the key's own name, and carries the path by which the update finds it again.
      EXPECT_EQ(t ? std::string(t->name) + " " + static_cast<const char*>(t->data) : "", "rich " + path);
      m.free(t);
    }
  }
  const struct {
    std::string path;
    int result;
  } rows[] = {{"HKCU\\" + base + "\\nothing here", 3}, {"hkcr\\.orvalis nothing", 3}, {"HKEY_NOWHERE\\Software", 87},
              {"", 87}, {"HKEY_CURRENT_CONFIG", 0},
              // Through a symbolic link, and (in the 32-bit build) the 32-bit view of HKLM\Software.
              {"HKLM\\System\\CurrentControlSet\\Control\\Session Manager", 0},
              {"HKLM\\Software\\Microsoft\\Windows NT\\CurrentVersion", 0}};
  for (const auto& row : rows) {
    ChangeNode *a = FromDump(file, row.path, row.result), *b = Live(row.path, row.result);
    EXPECT_TRUE(row.result || Flatten(a) == Flatten(b)) << row.path;
    m.free(a);
    m.free(b);
  }
  m.free(nullptr);
}

TEST_F(MarlowTest, CompareMarksAddedRemovedAndChangedNodesUpToTheRoot) {
  const std::string one = base + "\\one", two = base + "\\two";
  for (const std::string& k : {one, two}) SetValue(k, "same", REG_SZ, "x\0"s);
  SetValue(one, "removed", REG_SZ, "r\0"s);
  SetValue(two, "added", REG_SZ, "a\0"s);
  SetValue(one, "Data", REG_SZ, "old\0"s);
  SetValue(two, "DATA", REG_SZ, "new\0"s);  // the same name in another case: changed, not added
  SetValue(one, "type", REG_DWORD, Dword(5));
  SetValue(two, "type", REG_BINARY, Dword(5));
  SetValue(one + "\\Gone\\Below", "x", REG_DWORD, Dword(1));
  SetValue(two + "\\New\\Below", "x", REG_DWORD, Dword(1));
  SetValue(one + "\\Keep\\Deeper", "v", REG_DWORD, Dword(1));
  SetValue(two + "\\KEEP\\deeper", "v", REG_DWORD, Dword(2));
  ChangeNode *a = Live("HKCU\\" + one), *b = Live("HKEY_CURRENT_USER\\" + two);
  uint32_t count = 0;
  ASSERT_EQ(m.compare(&a, b, &count), 0);
  m.free(b);
  const struct {
    std::vector<const char*> path;  // keys, then "@value"
    int flags;
  } rows[] = {
      {{}, kKindKey | kChangeBelow}, {{"@same"}, 0}, {{"@removed"}, kChangeOlder}, {{"@added"}, kChangeNewer},
      {{"@Data"}, kChangeFrom}, {{"@DATA"}, kChangeTo}, {{"@type"}, kChangeFrom},
      {{"Gone"}, kKindKey | kChangeOlder | kChangeBelow}, {{"Gone", "Below", "@x"}, kChangeOlder},
      {{"New"}, kKindKey | kChangeNewer | kChangeBelow}, {{"New", "Below", "@x"}, kChangeNewer},
      {{"Keep"}, kKindKey | kChangeBelow}, {{"Keep", "Deeper"}, kKindKey | kChangeBelow},
      {{"Keep", "Deeper", "@v"}, kChangeFrom}};
  for (const auto& row : rows) {
    const ChangeNode* n = a;
    for (const char* p : row.path) n = !n ? n : p[0] == '@' ? Find(n->values, p + 1) : Find(n->children, p);
    EXPECT_TRUE(n && n->flags == row.flags) << (row.path.empty() ? "the root" : row.path.back()) << ": " << (n ? n->flags : -1);
  }
  // The newer half of a pair follows its older half directly.
  const ChangeNode *data = Find(a->values, "Data"), *type = Find(a->values, "type");
  EXPECT_EQ(data->next, Find(a->values, "DATA"));
  EXPECT_TRUE(type->next && type->next->flags == kChangeTo && type->next->type == REG_BINARY);
  // The three pairs, the two values, the two keys with their subtrees.
  EXPECT_EQ(count, 3u * 2 + 2 + 3 + 3);
  m.free(a);

  // Without a second tree: a listing, nothing marked.
  ChangeNode* listing = Live("HKCU\\" + one);
  ASSERT_EQ(m.compare(&listing, nullptr, &count), 0);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(listing->flags, kKindKey);
  m.free(listing);
}

// A live key changed in every way, or deleted whole, is put back as it was saved, by the dump and
// the tree update as a restore does it, or by the key save; a key beside it keeps its change.
TEST_F(MarlowTest, PuttingBackMakesTheKeyEqualToItsSaveAndTouchesNothingElse) {
  const std::string target = base + "\\T\xc4RGET", outside = base + "\\outside", path = "HKCU\\" + target;
  const std::string file = dir.file("REG.OVR"), folder = dir.path();
  for (bool nt : {false, true})
    for (bool whole : {false, true}) {
      SCOPED_TRACE(std::string(nt ? "key save" : "dump and tree update") + (whole ? ", deleted whole" : ", changed"));
      RegDeleteTreeA(HKEY_CURRENT_USER, target.c_str());
      BuildRichKey(target);
      SetValue(outside, "untouched", REG_SZ, "o\0"s);
      const std::string before = LiveText(path);
      if (nt) {
        ASSERT_EQ(m.save(path.c_str(), folder.c_str()), 0);
        // A second save in the folder must not be taken for the first.
        ASSERT_EQ(m.save(("HKCU\\" + outside).c_str(), (folder + "\\").c_str()), 0);
      } else {
        ASSERT_EQ(m.dump(file.c_str(), 1024), 0);
      }
      if (whole) {
        ASSERT_EQ(RegDeleteTreeA(HKEY_CURRENT_USER, target.c_str()), 0);
      } else {
        SetValue(target, "added", REG_SZ, "new\0"s);
        SetValue(target, "bin", REG_BINARY, "\x01\x03\x05"s);
        SetValue(target, "dw", REG_SZ, "9\0"s);
        SetValue(target, nullptr, REG_SZ, "other default\0"s);
        EXPECT_EQ(RegDeleteKeyValueA(HKEY_CURRENT_USER, target.c_str(), "msz"), 0);
        SetValue(target + "\\d0", "level", REG_DWORD, Dword(4));
        SetValue(target + "\\d0\\Added\\Below", "b", REG_SZ, "b\0"s);
        ASSERT_EQ(RegDeleteTreeA(HKEY_CURRENT_USER, (target + "\\d0\\d1\\d2").c_str()), 0);
      }
      SetValue(outside, "untouched", REG_SZ, "changed outside\0"s);
      const std::string outsideBefore = LiveText("HKCU\\" + outside);
      if (nt) {
        // Another spelling, non-ASCII letters in another case too, finds the same save.
        EXPECT_EQ(m.restore(("hkcu\\" + base + "\\t\xe4rget").c_str(), folder.c_str()), 0);
      } else {
        ChangeNode *tree = FromDump(file, path), *live = nullptr;
        m.toTree(&live, path.c_str(), 1, 1);
        ASSERT_EQ(m.compare(&tree, live, nullptr), 0);
        EXPECT_EQ(m.update(tree, 1), 0);
        m.free(tree);
        m.free(live);
      }
      EXPECT_EQ(LiveText(path), before);
      EXPECT_EQ(LiveText("HKCU\\" + outside), outsideBefore);
    }
  EXPECT_EQ(m.restore(("HKCU\\" + base + "\\never saved").c_str(), folder.c_str()), 2);
  // A save that cannot be read is damage, not absence.
  WIN32_FIND_DATAA found;
  HANDLE saves = FindFirstFileA((folder + "\\K*.MRK").c_str(), &found);
  ASSERT_NE(saves, INVALID_HANDLE_VALUE);
  do EXPECT_TRUE(orvalis_test::WriteWholeFile(folder + "\\" + found.cFileName, "WINE"));
  while (FindNextFileA(saves, &found));
  FindClose(saves);
  EXPECT_EQ(m.restore(path.c_str(), folder.c_str()), 13);
  // An empty key deleted since the dump compares equal to the missing one; the update makes it again.
  const std::string empty = "HKCU\\" + base + "\\empty";
  RegCloseKey(CreateKey(base + "\\empty"));
  ASSERT_EQ(m.dump(file.c_str(), 1024), 0);
  ASSERT_EQ(RegDeleteKeyA(HKEY_CURRENT_USER, (base + "\\empty").c_str()), 0);
  ChangeNode *tree = FromDump(file, empty), *live = Live(empty, 3);
  ASSERT_EQ(m.compare(&tree, live, nullptr), 0);
  EXPECT_EQ(m.update(tree, 1), 0);
  EXPECT_EQ(LiveText(empty), "root\n");
  m.free(tree);
  m.free(live);
  EXPECT_EQ(m.save(("HKCU\\" + base + "\\no such key").c_str(), folder.c_str()), 3);
}

// Every cut and flip of a dump is tried natively; here a real registry's dump, through the entry
// point. A whole root reads through the first blocks.
TEST_F(MarlowTest, CorruptTruncatedOrForeignDumpsGive13) {
  const std::string good = dir.file("good.OVR"), bad = dir.file("bad.OVR"), root = "HKEY_LOCAL_MACHINE";
  ASSERT_EQ(m.dump(good.c_str(), 1024), 0);
  const std::string bytes = orvalis_test::ReadWholeFile(good);
  ASSERT_GT(bytes.size(), 200u);
  for (const std::string& data : {std::string("REGEDIT4\r\n[HKEY_LOCAL_MACHINE\\Software]\r\n"),
                                  bytes.substr(0, 70) + std::string(32, 'U') + bytes.substr(102)}) {
    ASSERT_TRUE(orvalis_test::WriteWholeFile(bad, data));
    EXPECT_EQ(FromDump(bad, root, 13), nullptr) << data.substr(0, 8);
  }
  EXPECT_EQ(FromDump(dir.file("absent.OVR"), root, 2), nullptr);
  // A dump that cannot be made leaves no file behind.
  EXPECT_EQ(m.dump(dir.file("REG3.OVR").c_str(), 3), 87);
  EXPECT_FALSE(orvalis_test::FileExists(dir.file("REG3.OVR")));
  EXPECT_NE(m.dump((dir.path() + "\\no folder\\REG.OVR").c_str(), 0), 0);
}

}  // namespace
