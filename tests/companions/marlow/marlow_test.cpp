// MARLOW.DLL as the engine calls it: loaded by LoadLibraryA, every entry point resolved by its
// exported name, run against the real registry under Wine. Each test works below its own key
// HKEY_CURRENT_USER\Software\OrvalisTest\<unique> and removes it afterwards.
#include <windows.h>

#include <sddl.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/companion_api.h"
#include "tests/support/engine_sandbox.h"
#include "tests/support/test_support.h"

namespace {

using orvalis_test::BinDir;
using orvalis_test::ScratchDir;

struct Marlow {
  HMODULE dll = nullptr;
  EntireRegToFileFn dump = nullptr;
  RegKeyFromFileFn fromFile = nullptr;
  RegKeyToTreeFn toTree = nullptr;
  RegCompareTreesFn compare = nullptr;
  TreeUpdateRegFn update = nullptr;
  NTSaveRegKeyFn save = nullptr;
  NTRestoreRegKeyFn restore = nullptr;
  FreeRegTreeFn free = nullptr;
  template <class F>
  F Proc(const char* name) {
    return reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(dll, name)));
  }
  bool Load() {
    dll = LoadLibraryA((BinDir() + "\\MARLOW.DLL").c_str());
    if (!dll) return false;
    dump = Proc<EntireRegToFileFn>("_EntireRegToFile");
    fromFile = Proc<RegKeyFromFileFn>("_RegKeyFromFile");
    toTree = Proc<RegKeyToTreeFn>("_RegKeyToTree");
    compare = Proc<RegCompareTreesFn>("_RegCompareTrees");
    update = Proc<TreeUpdateRegFn>("_TreeUpdateReg");
    save = Proc<NTSaveRegKeyFn>("_NTSaveRegKey");
    restore = Proc<NTRestoreRegKeyFn>("_NTRestoreRegKey");
    free = Proc<FreeRegTreeFn>("_FreeRegTree");
    return dump && fromFile && toTree && compare && update && save && restore && free;
  }
  ~Marlow() {
    if (dll) FreeLibrary(dll);
  }
};

// ---- registry helpers ----------------------------------------------------------------------------

LONG DeleteTree(HKEY parent, const char* name) {
  HKEY h;
  LONG r = RegOpenKeyExA(parent, name, 0, KEY_ALL_ACCESS, &h);
  if (r != ERROR_SUCCESS) return r;
  char sub[1024];
  for (;;) {
    DWORD len = sizeof sub;
    if (RegEnumKeyExA(h, 0, sub, &len, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
    if (DeleteTree(h, sub) != ERROR_SUCCESS) break;
  }
  RegCloseKey(h);
  return RegDeleteKeyA(parent, name);
}

// Creates the key one component at a time: Wine's ANSI calls refuse a path of more than 260
// characters in one piece, and a 255-character name below the test key makes one.
HKEY CreatePath(const std::string& key) {
  HKEY h = HKEY_CURRENT_USER;
  size_t i = 0;
  while (i < key.size()) {
    size_t j = key.find('\\', i);
    if (j == std::string::npos) j = key.size();
    HKEY next = nullptr;
    LONG r = RegCreateKeyExA(h, key.substr(i, j - i).c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &next, nullptr);
    if (h != HKEY_CURRENT_USER) RegCloseKey(h);
    if (r != ERROR_SUCCESS) return nullptr;
    h = next;
    i = j + 1;
  }
  return h;
}

void SetValue(const std::string& key, const char* name, DWORD type, const std::string& data) {
  HKEY h = CreatePath(key);
  ASSERT_NE(h, nullptr) << key;
  ASSERT_EQ(RegSetValueExA(h, name, 0, type, reinterpret_cast<const BYTE*>(data.data()), DWORD(data.size())), 0)
      << (name ? name : "(default)");
  RegCloseKey(h);
}
void CreateKey(const std::string& key) {
  HKEY h = CreatePath(key);
  ASSERT_NE(h, nullptr) << key;
  RegCloseKey(h);
}
void DeleteValue(const std::string& key, const char* name) {
  HKEY h;
  ASSERT_EQ(RegOpenKeyExA(HKEY_CURRENT_USER, key.c_str(), 0, KEY_ALL_ACCESS, &h), 0);
  ASSERT_EQ(RegDeleteValueA(h, name), 0);
  RegCloseKey(h);
}
std::string Str(const char* s, size_t n) { return std::string(s, n); }
std::string Dword(uint32_t v) { return Str(reinterpret_cast<const char*>(&v), 4); }

std::string CurrentUserSid() {
  HANDLE token;
  std::string sid;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) return sid;
  union {
    TOKEN_USER user;
    unsigned char raw[512];
  } buf;
  DWORD len;
  char* text;
  if (GetTokenInformation(token, TokenUser, &buf, sizeof buf, &len) && ConvertSidToStringSidA(buf.user.User.Sid, &text)) {
    sid = text;
    LocalFree(text);
  }
  CloseHandle(token);
  return sid;
}

// ---- tree helpers --------------------------------------------------------------------------------

std::string ValueData(const ChangeNode* v) {
  if ((v->type == 4 || v->type == 5) && v->length <= 4) {
    uint32_t x = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(v->data));
    return Str(reinterpret_cast<const char*>(&x), v->length);
  }
  return Str(static_cast<const char*>(v->data), v->length);
}

// "" when the trees are equal node for node and byte for byte, else where they first differ.
// The roots' names and paths are not compared: they are the caller's spelling.
std::string Difference(const ChangeNode* a, const ChangeNode* b, const std::string& at, bool root = true) {
  if (!a || !b) return a == b ? "" : at + ": one side missing";
  if (a->flags != b->flags) return at + ": flags";
  if (a->depth != b->depth) return at + ": depth";
  if (!root) {
    if (a->nameLength != b->nameLength || (!a->name) != (!b->name)) return at + ": name length";
    if (a->name && std::memcmp(a->name, b->name, a->nameLength + 1) != 0) return at + ": name";
  }
  if (a->flags & kKindKey) {
    const ChangeNode *va = a->values, *vb = b->values;
    for (; va && vb; va = va->next, vb = vb->next) {
      std::string here = at + "/@" + (va->name ? std::string(va->name, va->nameLength > 40 ? 40 : va->nameLength) : "(default)");
      if (va->flags != vb->flags || va->type != vb->type || va->length != vb->length || va->depth != vb->depth ||
          va->nameLength != vb->nameLength || (!va->name) != (!vb->name) ||
          (va->name && std::memcmp(va->name, vb->name, va->nameLength + 1) != 0) || ValueData(va) != ValueData(vb))
        return here;
    }
    if (va || vb) return at + ": value count";
    const ChangeNode *ka = a->children, *kb = b->children;
    for (; ka && kb; ka = ka->next, kb = kb->next) {
      std::string d = Difference(ka, kb, at + "/" + std::string(ka->name, ka->nameLength > 40 ? 40 : ka->nameLength), false);
      if (!d.empty()) return d;
    }
    if (ka || kb) return at + ": subkey count";
  }
  return "";
}

const ChangeNode* Find(const ChangeNode* list, const char* name) {
  for (; list; list = list->next)
    if (name ? (list->name && std::strcmp(list->name, name) == 0) : !list->name) return list;
  return nullptr;
}

size_t CountNodes(const ChangeNode* k) {
  size_t n = 1;
  for (const ChangeNode* v = k->values; v; v = v->next) ++n;
  for (const ChangeNode* c = k->children; c; c = c->next) n += CountNodes(c);
  return n;
}

constexpr uint16_t kKey = kKindKey;

class MarlowTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(m.Load()) << "MARLOW.DLL or one of its entry points is missing";
    char name[64];
    std::snprintf(name, sizeof name, "marlow-%lu-%lu", GetCurrentProcessId(), GetTickCount());
    base = std::string("Software\\OrvalisTest\\") + name;
    CreateKey(base);
  }
  void TearDown() override {
    DeleteTree(HKEY_CURRENT_USER, base.c_str());
    for (const std::string& t : trees) (void)t;
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
  // The round-trip key: every value type, odd sizes and names, 30 levels.
  void BuildRichKey(const std::string& k) {
    std::string bin;
    for (int i = 0; i < 300; ++i) bin += char(i * 7);
    SetValue(k, nullptr, REG_SZ, Str("default data", 13));
    SetValue(k, "none", REG_NONE, Str("\x01\x00\x02", 3));
    SetValue(k, "sz", REG_SZ, Str("hello", 6));
    SetValue(k, "sz embedded zeros", REG_SZ, Str("a\0b\0\0", 5));
    SetValue(k, "exsz", REG_EXPAND_SZ, Str("%PATH%;x", 9));
    SetValue(k, "bin", REG_BINARY, bin);
    SetValue(k, "dw", REG_DWORD, Dword(0xDEADBEEF));
    SetValue(k, "dwbe", REG_DWORD_BIG_ENDIAN, Dword(0x01020304));
    SetValue(k, "link", REG_LINK, Str("\\\0R\0e\0g\0", 8));
    SetValue(k, "msz", REG_MULTI_SZ, Str("one\0two\0\0", 9));
    SetValue(k, "rlist", REG_RESOURCE_LIST, Str("\x01\x00\x00\x00\xff", 5));
    SetValue(k, "rdesc", REG_FULL_RESOURCE_DESCRIPTOR, Str("\x00\x00\x09", 3));
    SetValue(k, "rrl", REG_RESOURCE_REQUIREMENTS_LIST, Str("\x10\x20\x30\x00", 4));
    SetValue(k, "qword", 11, Str("\x01\x02\x03\x04\x05\x06\x07\x08", 8));
    SetValue(k, "empty sz", REG_SZ, "");
    SetValue(k, "empty bin", REG_BINARY, "");
    SetValue(k, "empty dw", REG_DWORD, "");
    SetValue(k, "long dw", REG_DWORD, Str("\x01\x02\x03\x04\x05\x06", 6));
    SetValue(k, "caf\xe9 \xfc\xdf", REG_SZ, Str("\xe9\xe8\xc7\xf1", 5));
    SetValue(k, "high bytes", REG_BINARY, Str("\x80\xff\x00\xfe", 4));
    SetValue(k, std::string(16383, 'v').c_str(), REG_SZ, Str("long name", 10));
    std::string longKey = k + "\\" + std::string(255, 'k');
    SetValue(longKey, "in long key", REG_DWORD, Dword(7));
    CreateKey(k + "\\Caf\xe9\xc4 empty");
    // A volatile key: the platform's bulk save leaves such keys out; the dump must not.
    HKEY parent = CreatePath(k), vol;
    ASSERT_NE(parent, nullptr);
    ASSERT_EQ(RegCreateKeyExA(parent, "volatile", 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr, &vol, nullptr), 0);
    DWORD one = 1;
    RegSetValueExA(vol, "in volatile key", 0, REG_DWORD, reinterpret_cast<BYTE*>(&one), 4);
    RegCloseKey(vol);
    RegCloseKey(parent);
    std::string deep = k;
    for (int i = 0; i < 30; ++i) {
      deep += "\\d" + std::to_string(i);
      SetValue(deep, "level", REG_DWORD, Dword(uint32_t(i)));
    }
  }
  Marlow m;
  std::string base;
  std::vector<std::string> trees;
};

// ---- round trip ----------------------------------------------------------------------------------

TEST_F(MarlowTest, DumpReadsBackEveryKeyAsTheLiveReadWhateverTheRootSpelling) {
  std::string rich = base + "\\rich";
  BuildRichKey(rich);
  ScratchDir dir;
  const std::string sid = CurrentUserSid();
  struct Row {
    const char* name;
    std::string path;
  };
  const Row rows[] = {
      {"full root", "HKEY_CURRENT_USER\\" + rich},
      {"short root", "HKCU\\" + rich},
      {"lower case, doubled and trailing backslashes", "hkcu\\\\" + rich + "\\"},
      {"through HKEY_USERS", "HKEY_USERS\\" + sid + "\\" + rich},
      {"through HKU", "HKU\\" + sid + "\\" + rich},
  };
  ChangeNode* live = Live(rows[0].path);
  ASSERT_NE(live, nullptr);
  EXPECT_EQ(CountNodes(live), 1u + 21 + 2 + 1 + 2 + 30 * 2);
  for (int compression : {0, 1024, 2048, 4096}) {
    std::string file = dir.file("REG" + std::to_string(compression) + ".OVR");
    ASSERT_EQ(m.dump(file.c_str(), compression), 0) << compression;
    for (const Row& row : rows) {
      SCOPED_TRACE(std::string(row.name) + ", compression " + std::to_string(compression));
      ChangeNode* fromDump = FromDump(file, row.path);
      ChangeNode* again = Live(row.path);
      EXPECT_EQ(Difference(live, fromDump, "dump"), "");
      EXPECT_EQ(Difference(live, again, "live"), "");
      ASSERT_NE(fromDump, nullptr);
      EXPECT_EQ(std::string(fromDump->name), "rich");
      EXPECT_EQ(std::string(static_cast<const char*>(fromDump->data)), row.path);
      m.free(fromDump);
      m.free(again);
    }
  }
  // The default value has no name; numbers live in the data member; 30 levels keep their depth.
  const ChangeNode* def = Find(live->values, nullptr);
  ASSERT_NE(def, nullptr);
  EXPECT_EQ(def->nameLength, 0u);
  const ChangeNode* dw = Find(live->values, "dw");
  ASSERT_NE(dw, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(dw->data), 0xDEADBEEFu);
  const ChangeNode* k = live;
  for (int i = 0; i < 30 && k; ++i) k = Find(k->children, ("d" + std::to_string(i)).c_str());
  ASSERT_NE(k, nullptr);
  EXPECT_EQ(k->depth, 30);
  m.free(live);
}

TEST_F(MarlowTest, MissingKeysAndRootsAsKeys) {
  ScratchDir dir;
  std::string file = dir.file("REG0000.OVR");
  ASSERT_EQ(m.dump(file.c_str(), 1), 0);
  struct Row {
    const char* name;
    std::string path;
    int fromFile, live;
  };
  const Row rows[] = {
      {"no such key", "HKCU\\" + base + "\\nothing here", 3, 3},
      {"unknown root", "HKEY_NOWHERE\\Software", 87, 87},
      {"empty path", "", 87, 87},
      {"a whole root", "HKEY_CURRENT_CONFIG", 0, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    ChangeNode* a = FromDump(file, row.path, row.fromFile);
    ChangeNode* b = Live(row.path, row.live);
    if (row.fromFile == 0) {
      EXPECT_EQ(Difference(a, b, "root"), "");
      ASSERT_NE(a, nullptr);
      EXPECT_EQ(std::string(a->name), row.path);
    }
    m.free(a);
    m.free(b);
  }
  m.free(nullptr);
}

// ---- comparison ----------------------------------------------------------------------------------

TEST_F(MarlowTest, CompareMarksAddedRemovedAndChangedNodesUpToTheRoot) {
  std::string one = base + "\\one", two = base + "\\two";
  for (const std::string& k : {one, two}) {
    SetValue(k, "same", REG_SZ, Str("x", 2));
    SetValue(k + "\\Keep\\Deeper", "v", REG_DWORD, Dword(1));
  }
  SetValue(one, "removed", REG_SZ, Str("r", 2));
  SetValue(two, "added", REG_SZ, Str("a", 2));
  SetValue(one, "Data", REG_SZ, Str("old", 4));
  SetValue(two, "DATA", REG_SZ, Str("new", 4));  // same name in another case: changed, not added
  SetValue(one, "type", REG_DWORD, Dword(5));
  SetValue(two, "type", REG_BINARY, Dword(5));
  SetValue(one + "\\Gone\\Below", "x", REG_DWORD, Dword(1));
  SetValue(two + "\\New\\Below", "x", REG_DWORD, Dword(1));
  SetValue(one + "\\Keep\\Deeper", "v", REG_DWORD, Dword(1));
  SetValue(two + "\\KEEP\\deeper", "v", REG_DWORD, Dword(2));
  ChangeNode* a = Live("HKCU\\" + one);
  ChangeNode* b = Live("HKEY_CURRENT_USER\\" + two);
  uint32_t count = 0;
  ASSERT_EQ(m.compare(&a, b, &count), 0);
  m.free(b);
  struct Row {
    const char* what;
    std::vector<const char*> path;  // keys, then "@value"
    uint16_t flags;
  };
  const Row rows[] = {
      {"root", {}, kKey | kChangeBelow},
      {"equal value", {"@same"}, 0},
      {"removed value", {"@removed"}, kChangeOlder},
      {"added value", {"@added"}, kChangeNewer},
      {"changed data, older", {"@Data"}, kChangeFrom},
      {"changed data, newer", {"@DATA"}, kChangeTo},
      {"removed key", {"Gone"}, kKey | kChangeOlder | kChangeBelow},
      {"below the removed key", {"Gone", "Below", "@x"}, kChangeOlder},
      {"added key", {"New"}, kKey | kChangeNewer | kChangeBelow},
      {"below the added key", {"New", "Below", "@x"}, kChangeNewer},
      {"key matched in another case", {"Keep"}, kKey | kChangeBelow},
      {"deeper", {"Keep", "Deeper"}, kKey | kChangeBelow},
      {"deep value, older", {"Keep", "Deeper", "@v"}, kChangeFrom},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    const ChangeNode* n = a;
    for (const char* p : row.path) {
      ASSERT_NE(n, nullptr);
      n = p[0] == '@' ? Find(n->values, p + 1) : Find(n->children, p);
    }
    ASSERT_NE(n, nullptr);
    EXPECT_EQ(n->flags, row.flags);
  }
  // The newer half of a pair follows its older half directly; so does a changed type.
  const ChangeNode* data = Find(a->values, "Data");
  ASSERT_TRUE(data && data->next);
  EXPECT_STREQ(data->next->name, "DATA");
  const ChangeNode* type = Find(a->values, "type");
  ASSERT_TRUE(type && type->next);
  EXPECT_EQ(type->flags, kChangeFrom);
  EXPECT_EQ(type->next->flags, kChangeTo);
  EXPECT_EQ(type->next->type, uint32_t(REG_BINARY));
  // The deep pair, the two values, the two keys with their subtrees.
  EXPECT_EQ(count, 2u + 1 + 1 + 2 + 2 + 3 + 3);
  m.free(a);

  // Without a second tree: a listing, nothing marked.
  ChangeNode* listing = Live("HKCU\\" + one);
  ASSERT_EQ(m.compare(&listing, nullptr, &count), 0);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(listing->flags, kKindKey);
  m.free(listing);
}

// ---- putting a key back --------------------------------------------------------------------------

class RestoreTest : public MarlowTest {
 protected:
  void SetUp() override {
    MarlowTest::SetUp();
    target = base + "\\target";
    outside = base + "\\outside";
    SetValue(target, nullptr, REG_SZ, Str("default", 8));
    SetValue(target, "keep", REG_SZ, Str("k", 2));
    SetValue(target, "change data", REG_BINARY, Str("\x01\x02", 2));
    SetValue(target, "change type", REG_DWORD, Dword(9));
    SetValue(target, "delete me", REG_MULTI_SZ, Str("a\0\0", 3));
    SetValue(target + "\\Sub\\Deep", "d", REG_DWORD, Dword(3));
    SetValue(target + "\\Sub", "s", REG_SZ, Str("s", 2));
    SetValue(target + "\\Doomed\\Child", "c", REG_SZ, Str("c", 2));
    SetValue(outside, "untouched", REG_SZ, Str("o", 2));
  }
  // Every kind of change a live key can go through, inside the target; and one outside it.
  void ChangeEverything() {
    SetValue(target, "added", REG_SZ, Str("new", 4));
    SetValue(target, "change data", REG_BINARY, Str("\x01\x03\x05", 3));
    SetValue(target, "change type", REG_SZ, Str("9", 2));
    SetValue(target, nullptr, REG_SZ, Str("other default", 14));
    DeleteValue(target, "delete me");
    SetValue(target + "\\Sub\\Deep", "d", REG_DWORD, Dword(4));
    SetValue(target + "\\Sub\\Deep\\Added\\Below", "b", REG_SZ, Str("b", 2));
    ASSERT_EQ(DeleteTree(HKEY_CURRENT_USER, (target + "\\Doomed").c_str()), 0);
    SetValue(outside, "untouched", REG_SZ, Str("changed outside", 16));
  }
  std::string target, outside;
};

TEST_F(RestoreTest, TreeUpdateRegPutsBackTheDumpedStateAndNothingElse) {
  ScratchDir dir;
  std::string file = dir.file("REG0000.OVR");
  const std::string path = "HKCU\\" + target;
  ChangeNode* before = Live(path);
  ASSERT_EQ(m.dump(file.c_str(), 1024), 0);
  ChangeEverything();
  ChangeNode* outsideBefore = Live("HKCU\\" + outside);

  // As the restore builds it: the snapshot side from the dump, compared with the live key.
  ChangeNode* tree = FromDump(file, path);
  ChangeNode* live = Live(path);
  uint32_t count = 0;
  ASSERT_EQ(m.compare(&tree, live, &count), 0);
  m.free(live);
  EXPECT_GT(count, 0u);
  EXPECT_EQ(m.update(tree, 1), 0);
  m.free(tree);

  ChangeNode* after = Live(path);
  ChangeNode* outsideAfter = Live("HKCU\\" + outside);
  EXPECT_EQ(Difference(before, after, "target"), "");
  EXPECT_EQ(Difference(outsideBefore, outsideAfter, "outside"), "");
  // Applying an equal tree does nothing at all.
  ChangeNode* again = FromDump(file, path);
  ChangeNode* live2 = Live(path);
  ASSERT_EQ(m.compare(&again, live2, &count), 0);
  EXPECT_EQ(count, 0u);
  m.free(live2);
  m.free(again);
  for (ChangeNode* t : {before, after, outsideBefore, outsideAfter}) m.free(t);
}

TEST_F(RestoreTest, NTSaveAndRestoreMakeTheKeyEqualToItsSave) {
  ScratchDir dir;
  const std::string folder = dir.path();
  const std::string path = "HKEY_CURRENT_USER\\" + target;
  std::string second = base + "\\second";
  SetValue(second, "x", REG_SZ, Str("second", 7));
  ChangeNode* before = Live(path);
  ChangeNode* secondBefore = Live("HKCU\\" + second);
  ASSERT_EQ(m.save(path.c_str(), folder.c_str()), 0);
  ASSERT_EQ(m.save(("HKCU\\" + second).c_str(), (folder + "\\").c_str()), 0);
  EXPECT_EQ(orvalis_test::ListDir(folder).size(), 2u);

  ChangeEverything();
  ChangeNode* outsideBefore = Live("HKCU\\" + outside);
  // Another spelling of the same key finds the same save.
  EXPECT_EQ(m.restore(("hkcu\\" + target).c_str(), folder.c_str()), 0);
  ChangeNode* after = Live(path);
  EXPECT_EQ(Difference(before, after, "target"), "");
  ChangeNode* outsideAfter = Live("HKCU\\" + outside);
  EXPECT_EQ(Difference(outsideBefore, outsideAfter, "outside"), "");

  // A key deleted whole comes back whole; the other save of the folder is its own.
  ASSERT_EQ(DeleteTree(HKEY_CURRENT_USER, second.c_str()), 0);
  EXPECT_EQ(m.restore(("HKCU\\" + second).c_str(), folder.c_str()), 0);
  ChangeNode* secondAfter = Live("HKCU\\" + second);
  EXPECT_EQ(Difference(secondBefore, secondAfter, "second"), "");

  EXPECT_EQ(m.restore(("HKCU\\" + base + "\\never saved").c_str(), folder.c_str()), 2);
  EXPECT_EQ(m.save(("HKCU\\" + base + "\\no such key").c_str(), folder.c_str()), 3);
  for (ChangeNode* t : {before, after, outsideBefore, outsideAfter, secondBefore, secondAfter}) m.free(t);
}

// ---- bad dumps -----------------------------------------------------------------------------------

TEST_F(MarlowTest, CorruptTruncatedOrForeignDumpsGive13) {
  std::string k = base + "\\small";
  SetValue(k, "v", REG_SZ, Str("value", 6));
  ScratchDir dir;
  std::string good = dir.file("good.OVR");
  ASSERT_EQ(m.dump(good.c_str(), 1024), 0);
  std::string bytes = orvalis_test::ReadWholeFile(good);
  ASSERT_GT(bytes.size(), 200u);
  const std::string path = "HKCU\\" + k;
  struct Row {
    const char* name;
    std::string data;
    std::string path = "";
  };
  auto flip = [&](size_t at) {
    std::string s = bytes;
    s[at] ^= 0x40;
    return s;
  };
  const Row rows[] = {
      {"empty file", ""},
      {"foreign text", "REGEDIT4\r\n[HKEY_CURRENT_USER\\Software]\r\n"},
      {"header only", bytes.substr(0, 64)},
      {"cut in half", bytes.substr(0, bytes.size() / 2)},
      {"last byte missing", bytes.substr(0, bytes.size() - 1)},
      {"magic damaged", flip(2)},
      {"version damaged", flip(8)},
      {"directory damaged", flip(bytes.size() - 5)},
      {"first block damaged, read through", bytes.substr(0, 70) + std::string(32, '\x55') + bytes.substr(102),
       "HKEY_LOCAL_MACHINE"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::string file = dir.file("bad.OVR");
    ASSERT_TRUE(orvalis_test::WriteWholeFile(file, row.data));
    ChangeNode* t = FromDump(file, row.path.empty() ? path : row.path, 13);
    EXPECT_EQ(t, nullptr);
  }
  EXPECT_EQ(FromDump(dir.file("absent.OVR"), path, 2), nullptr);
}

TEST_F(MarlowTest, DumpRefusesAnUnknownCompressionAndAnUnwritablePath) {
  ScratchDir dir;
  std::string file = dir.file("REG0000.OVR");
  EXPECT_EQ(m.dump(file.c_str(), 3), 87);
  EXPECT_FALSE(orvalis_test::FileExists(file));
  EXPECT_NE(m.dump((dir.path() + "\\no folder\\REG0000.OVR").c_str(), 0), 0);
}

}  // namespace
