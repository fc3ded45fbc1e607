// MARLOW.DLL as the engine loads and calls it, against the real registry under Wine, each test in
// a private key HKCU\Software\OrvalisTest\<unique>.
#include <algorithm>

#include "base/companion_api.h"
#include "tests/companions/marlow/marlow_fixture.h"
#include "tests/support/engine_sandbox.h"

// Newer than the platform level the build's headers are set to; Wine has them.
extern "C" WINADVAPI LONG WINAPI RegDeleteTreeA(HKEY key, LPCSTR subKey);
extern "C" WINADVAPI LONG WINAPI RegDeleteKeyValueA(HKEY key, LPCSTR subKey, LPCSTR valueName);

namespace {

using marlow_test::Flatten;
using namespace std::string_literals;

struct Marlow {
  HMODULE dll = LoadLibraryA((orvalis_test::BinDir() + "\\MARLOW.DLL").c_str());
  template <class F> F Get(const char* name) const {
    return dll ? reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(dll, name))) : nullptr;
  }
  EntireRegToFileFn dump = Get<EntireRegToFileFn>("_EntireRegToFile");
  RegKeyFromFileFn fromFile = Get<RegKeyFromFileFn>("_RegKeyFromFile");
  RegKeyToTreeFn toTree = Get<RegKeyToTreeFn>("_RegKeyToTree");
  RegCompareTreesFn compare = Get<RegCompareTreesFn>("_RegCompareTrees");
  TreeUpdateRegFn update = Get<TreeUpdateRegFn>("_TreeUpdateReg");
  NTSaveRegKeyFn save = Get<NTSaveRegKeyFn>("_NTSaveRegKey");
  NTRestoreRegKeyFn restore = Get<NTRestoreRegKeyFn>("_NTRestoreRegKey");
  FreeRegTreeFn free = Get<FreeRegTreeFn>("_FreeRegTree");
  bool ok() const { return dump && fromFile && toTree && compare && update && save && restore && free; }
  ~Marlow() { dll && FreeLibrary(dll); }
};

HKEY CreateKey(const std::string& key, DWORD options = 0, HKEY parent = HKEY_CURRENT_USER) {
  HKEY h = nullptr;
  EXPECT_EQ(RegCreateKeyExA(parent, key.c_str(), 0, nullptr, options, KEY_ALL_ACCESS, nullptr, &h, nullptr), 0) << key;
  return h;
}
void SetValue(const std::string& key, const char* name, DWORD type, const std::string& data, DWORD options = 0,
                     HKEY parent = HKEY_CURRENT_USER) {
  HKEY h = CreateKey(key, options, parent);
  EXPECT_EQ(RegSetValueExA(h, name, 0, type, reinterpret_cast<const BYTE*>(data.data()), DWORD(data.size())), 0);
  RegCloseKey(h);
}
std::string Dword(uint32_t v) { return std::string(reinterpret_cast<const char*>(&v), 4); }

const ChangeNode* Find(const ChangeNode* list, const char* name) {
  for (; list; list = list->next) if (name ? (list->name && std::string(list->name) == name) : !list->name) return list;
  return nullptr;
}

class MarlowTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(m.ok()) << "MARLOW.DLL or one of its entry points is missing";
    base = "Software\\OrvalisTest\\marlow-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(GetTickCount());
    RegCloseKey(CreateKey(base));
  }
  void TearDown() override {
    RegDeleteTreeA(HKEY_CURRENT_USER, base.c_str());
    if (!cls.empty()) RegDeleteTreeA(HKEY_CLASSES_ROOT, cls.c_str());
  }
  ChangeNode* Live(const std::string& path, int expect = 0) {
    ChangeNode* t = nullptr;
    EXPECT_EQ(m.toTree(&t, path.c_str(), 1, 1), expect) << path;
    return t;
  }
  ChangeNode* FromDump(const std::string& file, const std::string& path, int expect = 0) {
    ChangeNode* t = nullptr;
    EXPECT_EQ(m.fromFile(file.c_str(), &t, 1, path.c_str()), expect) << path;
    return t;
  }
  std::string LiveText(const std::string& path) {
    ChangeNode* t = Live(path);
    const std::string s = Flatten(t);
    return m.free(t), s;
  }
  // As a restore does it: the dump's tree compared with the live one, then the update.
  void PutBack(const std::string& file, const std::string& path, int liveResult) {
    ChangeNode *tree = FromDump(file, path), *live = Live(path, liveResult);
    EXPECT_EQ(m.compare(&tree, live, nullptr), 0);
    EXPECT_EQ(m.update(tree, 1), 0);
    m.free(tree), m.free(live);
  }
  // Every value type, empty and odd-sized data, the longest names, non-ASCII bytes, a volatile
  // key (the platform's bulk save leaves such keys out; a dump must not), 30 levels.
  void BuildRichKey(const std::string& k) {
    std::string bin;
    for (int i = 0; i < 300; ++i) bin += char(i * 7);
    const struct { const char* name; DWORD type; std::string data; } values[] = {
        {nullptr, REG_SZ, "default data\0"s}, {"none", REG_NONE, "\x01\0\x02"s}, {"sz", REG_SZ, "hello\0"s},
        {"sz embedded zeros", REG_SZ, "a\0b\0\0"s}, {"exsz", REG_EXPAND_SZ, "%PATH%;x\0"s}, {"bin", REG_BINARY, bin},
        {"dw", REG_DWORD, Dword(0xDEADBEEF)}, {"dwbe", REG_DWORD_BIG_ENDIAN, Dword(0x01020304)},
        {"link", REG_LINK, "\\\0R\0e\0g\0"s}, {"msz", REG_MULTI_SZ, "one\0two\0\0"s},
        {"rlist", REG_RESOURCE_LIST, "\x01\0\0\0\xff"s}, {"rdesc", REG_FULL_RESOURCE_DESCRIPTOR, "\0\0\x09"s},
        {"rrl", REG_RESOURCE_REQUIREMENTS_LIST, "\x10\x20\x30\0"s}, {"qword", 11, "\x01\x02\x03\x04\x05\x06\x07\x08"s},
        {"empty sz", REG_SZ, ""}, {"empty bin", REG_BINARY, ""}, {"empty dw", REG_DWORD, ""},
        {"long dw", REG_DWORD, "\x01\x02\x03\x04\x05\x06"s}, {"caf\xe9 \xfc\xdf", REG_SZ, "\xe9\xe8\xc7\xf1\0"s},
        {"high bytes", REG_BINARY, "\x80\xff\0\xfe"s}};
    for (const auto& v : values) SetValue(k, v.name, v.type, v.data);
    SetValue(k, std::string(16383, 'v').c_str(), REG_SZ, "long name\0"s);
    // Made below its parent: Wine's ANSI calls refuse more than 260 characters of path in one piece.
    HKEY parent = CreateKey(k);
    SetValue(std::string(255, 'k'), "in long key", REG_DWORD, Dword(7), 0, parent);
    RegCloseKey(parent);
    RegCloseKey(CreateKey(k + "\\Caf\xe9\xc4 empty"));
    SetValue(k + "\\volatile", "in volatile key", REG_DWORD, Dword(1), REG_OPTION_VOLATILE);
    std::string deep = k;
    for (int i = 0; i < 30; ++i) SetValue(deep += "\\d" + std::to_string(i), "level", REG_DWORD, Dword(uint32_t(i)));
  }
  Marlow m;
  std::string base, cls;
  orvalis_test::ScratchDir dir;
};

std::string UserKey(const std::string& key) {
  char name[256];
  HKEY h;
  for (DWORD i = 0, len; len = sizeof name, !RegEnumKeyExA(HKEY_USERS, i, name, &len, nullptr, nullptr, nullptr, nullptr); ++i)
    if (!RegOpenKeyExA(HKEY_USERS, (std::string(name) + "\\" + key).c_str(), 0, KEY_READ, &h) && !RegCloseKey(h))
      return name;
  return "";
}

TEST_F(MarlowTest, DumpReadsBackEveryKeyCompareMarksChangesAndPuttingBackMakesTheKeyEqualToItsSave) {
  const std::string rich = base + "\\rich", sid = UserKey(base);
  ASSERT_FALSE(sid.empty());
  BuildRichKey(rich);
  // A name with no ANSI form: the A calls meet it as "??" and cannot open it, and the dump (taken
  // from the platform's save where it can be) must record it as they do.
  HKEY cyrillic;
  ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, (std::wstring(rich.begin(), rich.end()) + L"\\\x0416\x0438").c_str(), 0,
                            nullptr, 0, KEY_ALL_ACCESS, nullptr, &cyrillic, nullptr), 0);
  ASSERT_EQ(RegSetValueExW(cyrillic, L"v", 0, REG_DWORD, reinterpret_cast<const BYTE*>("\1\0\0\0"), 4), 0);
  RegCloseKey(cyrillic);
  // Under Wine HKCR is a key of HKLM, and the dump takes it from HKLM's records: a class with a
  // volatile key must come out of both as the live read has it.
  cls = base.substr(base.rfind('\\') + 1) + ".class";
  SetValue(cls, nullptr, REG_SZ, "class\0"s, 0, HKEY_CLASSES_ROOT);
  SetValue(cls + "\\volatile", "v", REG_DWORD, Dword(3), REG_OPTION_VOLATILE, HKEY_CLASSES_ROOT);
  const std::string paths[] = {"HKEY_CURRENT_USER\\" + rich, "HKCU\\" + rich, "hkcu\\\\" + rich + "\\",
                               "HKEY_USERS\\" + sid + "\\" + rich, "HKU\\" + sid + "\\" + rich};
  ChangeNode* live = Live(paths[0]);
  ASSERT_NE(live, nullptr);
  const std::string text = Flatten(live);
  // The key and 21 values; the long-named, empty, volatile and non-ANSI keys; 30 levels.
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
  const struct { std::string path; int result; } rows[] = {
      {"HKCU\\" + base + "\\nothing here", 3}, {"hkcr\\.orvalis nothing", 3}, {"HKEY_NOWHERE\\Software", 87},
      {"", 87}, {"HKEY_CURRENT_CONFIG", 0}, {"HKCR\\" + cls, 0}, {"HKLM\\Software\\Classes\\" + cls, 0},
      {"HKEY_CLASSES_ROOT\\CLSID", 0},
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
  // Every cut and flip is tried natively; here damage where a whole root's read must pass.
  const std::string bytes = orvalis_test::ReadWholeFile(file), bad = dir.file("bad.OVR"), root = "HKEY_LOCAL_MACHINE";
  ASSERT_GT(bytes.size(), 200u);
  for (const std::string& data : {"REGEDIT4\r\n[HKEY_LOCAL_MACHINE\\Software]\r\n"s,
                                  bytes.substr(0, 70) + std::string(32, 'U') + bytes.substr(102)}) {
    ASSERT_TRUE(orvalis_test::WriteWholeFile(bad, data));
    EXPECT_EQ(FromDump(bad, root, 13), nullptr) << data.substr(0, 8);
  }
  EXPECT_EQ(FromDump(dir.file("absent.OVR"), root, 2), nullptr);
  // A dump that cannot be made leaves no file behind.
  EXPECT_EQ(m.dump(dir.file("REG3.OVR").c_str(), 3), 87);
  EXPECT_FALSE(orvalis_test::FileExists(dir.file("REG3.OVR")));
  EXPECT_NE(m.dump((dir.path() + "\\no folder\\REG.OVR").c_str(), 0), 0);
  // Nor do the server's saves the dumps were taken from, wherever they went.
  char temp[MAX_PATH];
  ASSERT_TRUE(GetTempPathA(MAX_PATH, temp));
  for (const std::string& folder : {std::string(temp), "Z:\\dev\\shm\\"s}) {
    WIN32_FIND_DATAA left;
    HANDLE found = FindFirstFileA((folder + "mrl*.tmp").c_str(), &left);
    EXPECT_EQ(found, INVALID_HANDLE_VALUE) << folder << left.cFileName;
    if (found != INVALID_HANDLE_VALUE) FindClose(found);
  }
  // The comparison marks added, removed and changed nodes up to the root.
  const std::string one = base + "\\one", two = base + "\\two";
  // "Data" and "DATA", "Keep" and "KEEP": the same names in another case, changed, not added.
  const struct { std::string key; const char* name; DWORD type; std::string data; } values[] = {
      {one, "same", REG_SZ, "x\0"s}, {two, "same", REG_SZ, "x\0"s}, {one, "removed", REG_SZ, "r\0"s},
      {two, "added", REG_SZ, "a\0"s}, {one, "Data", REG_SZ, "old\0"s}, {two, "DATA", REG_SZ, "new\0"s},
      {one, "type", REG_DWORD, Dword(5)}, {two, "type", REG_BINARY, Dword(5)}, {one + "\\Gone\\Below", "x", REG_DWORD, Dword(1)},
      {two + "\\New\\Below", "x", REG_DWORD, Dword(1)}, {one + "\\Keep\\Deeper", "v", REG_DWORD, Dword(1)},
      {two + "\\KEEP\\deeper", "v", REG_DWORD, Dword(2)}};
  for (const auto& v : values) SetValue(v.key, v.name, v.type, v.data);
  ChangeNode *a = Live("HKCU\\" + one), *b = Live("HKEY_CURRENT_USER\\" + two);
  uint32_t count = 0;
  ASSERT_EQ(m.compare(&a, b, &count), 0);
  m.free(b);
  const struct { std::vector<const char*> path; int flags; } marks[] = {  // keys, then "@value"
      {{}, kKindKey | kChangeBelow}, {{"@same"}, 0}, {{"@removed"}, kChangeOlder}, {{"@added"}, kChangeNewer},
      {{"@Data"}, kChangeFrom}, {{"@DATA"}, kChangeTo}, {{"@type"}, kChangeFrom},
      {{"Gone"}, kKindKey | kChangeOlder | kChangeBelow}, {{"Gone", "Below", "@x"}, kChangeOlder},
      {{"New"}, kKindKey | kChangeNewer | kChangeBelow}, {{"New", "Below", "@x"}, kChangeNewer},
      {{"Keep"}, kKindKey | kChangeBelow}, {{"Keep", "Deeper"}, kKindKey | kChangeBelow},
      {{"Keep", "Deeper", "@v"}, kChangeFrom}};
  for (const auto& row : marks) {
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
  // A key changed in every way, or deleted whole, is put back as saved; a key beside it keeps its change.
  const std::string target = base + "\\T\xc4RGET", outside = base + "\\outside", path = "HKCU\\" + target;
  const std::string dump = dir.file("REG.OVR"), folder = dir.path();
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
        ASSERT_EQ(m.dump(dump.c_str(), 1024), 0);
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
      // The key save is found again by another spelling, non-ASCII letters in another case too.
      if (nt) EXPECT_EQ(m.restore(("hkcu\\" + base + "\\t\xe4rget").c_str(), folder.c_str()), 0);
      else PutBack(dump, path, whole ? 3 : 0);
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
  ASSERT_EQ(m.dump(dump.c_str(), 1024), 0);
  ASSERT_EQ(RegDeleteKeyA(HKEY_CURRENT_USER, (base + "\\empty").c_str()), 0);
  PutBack(dump, empty, 3);
  EXPECT_EQ(LiveText(empty), "root\n");
  EXPECT_EQ(m.save(("HKCU\\" + base + "\\no such key").c_str(), folder.c_str()), 3);
}

}  // namespace
