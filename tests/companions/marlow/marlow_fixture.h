// Shared by the MARLOW.DLL tests. Portable: trees as text. Windows: the library loaded as the
// engine loads it, and a private key HKCU\Software\OrvalisTest\<unique> per test.
#pragma once
#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "base/changetree.h"
#ifdef _WIN32
#include <windows.h>

#include "base/companion_api.h"
#include "tests/support/engine_sandbox.h"

// Newer than the platform level the build's headers are set to; Wine has them.
extern "C" WINADVAPI LONG WINAPI RegDeleteTreeA(HKEY key, LPCSTR subKey);
extern "C" WINADVAPI LONG WINAPI RegDeleteKeyValueA(HKEY key, LPCSTR subKey, LPCSTR valueName);
#endif

namespace marlow_test {

inline std::string ValueData(const ChangeNode* v) {
  if ((v->type == 4 || v->type == 5) && v->length <= 4) {
    uint32_t x = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(v->data));
    return std::string(reinterpret_cast<const char*>(&x), v->length);
  }
  return std::string(static_cast<const char*>(v->data), v->length);
}

// One line per node, depths relative to the root: equal texts are equal trees node for node and
// byte for byte, and a failed comparison shows where they part. The root's own name is the
// caller's spelling and is left out.
inline std::string Flatten(const ChangeNode* k, int base = -1) {
  if (!k) return "(no tree)";
  if (base < 0) base = k->depth;
  auto head = [&](const ChangeNode* n) {
    std::string name = n->name ? std::string(n->name) : "(default)";
    if (name.size() > 64) name = name.substr(0, 16) + "..." + std::to_string(std::hash<std::string>{}(name));
    return std::to_string(n->depth - base) + " " + std::to_string(n->flags) + " " + name + "#" + std::to_string(n->nameLength);
  };
  std::string s = (int(k->depth) == base ? "root" : head(k)) + "\n";
  for (const ChangeNode* v = k->values; v; v = v->next) {
    s += head(v) + " type " + std::to_string(v->type) + ":";
    for (unsigned char c : ValueData(v)) s += {' ', "0123456789abcdef"[c >> 4], "0123456789abcdef"[c & 15]};
    s += "\n";
  }
  for (const ChangeNode* c = k->children; c; c = c->next) s += Flatten(c, base);
  return s;
}

#ifdef _WIN32

struct Marlow {
  HMODULE dll = LoadLibraryA((orvalis_test::BinDir() + "\\MARLOW.DLL").c_str());
  template <class F>
  F Get(const char* name) const {
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
  ~Marlow() {
    if (dll) FreeLibrary(dll);
  }
};

inline HKEY CreateKey(const std::string& key, DWORD options = 0, HKEY parent = HKEY_CURRENT_USER) {
  HKEY h = nullptr;
  EXPECT_EQ(RegCreateKeyExA(parent, key.c_str(), 0, nullptr, options, KEY_ALL_ACCESS, nullptr, &h, nullptr), 0) << key;
  return h;
}
inline void SetValue(const std::string& key, const char* name, DWORD type, const std::string& data, DWORD options = 0,
                     HKEY parent = HKEY_CURRENT_USER) {
  HKEY h = CreateKey(key, options, parent);
  EXPECT_EQ(RegSetValueExA(h, name, 0, type, reinterpret_cast<const BYTE*>(data.data()), DWORD(data.size())), 0);
  RegCloseKey(h);
}
inline std::string Dword(uint32_t v) { return std::string(reinterpret_cast<const char*>(&v), 4); }

inline const ChangeNode* Find(const ChangeNode* list, const char* name) {
  for (; list; list = list->next)
    if (name ? (list->name && std::string(list->name) == name) : !list->name) return list;
  return nullptr;
}

class MarlowTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(m.ok()) << "MARLOW.DLL or one of its entry points is missing";
    base = "Software\\OrvalisTest\\marlow-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(GetTickCount());
    RegCloseKey(CreateKey(base));
  }
  void TearDown() override { RegDeleteTreeA(HKEY_CURRENT_USER, base.c_str()); }
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
    std::string s = Flatten(t);
    m.free(t);
    return s;
  }
  // Every value type, empty and odd-sized data, the longest names, non-ASCII bytes, a volatile
  // key (the platform's bulk save leaves such keys out; a dump must not), 30 levels.
  void BuildRichKey(const std::string& k) {
    using namespace std::string_literals;
    std::string bin;
    for (int i = 0; i < 300; ++i) bin += char(i * 7);
    const struct {
      const char* name;
      DWORD type;
      std::string data;
    } values[] = {
        {nullptr, REG_SZ, "default data\0"s}, {"none", REG_NONE, "\x01\0\x02"s}, {"sz", REG_SZ, "hello\0"s},
        {"sz embedded zeros", REG_SZ, "a\0b\0\0"s}, {"exsz", REG_EXPAND_SZ, "%PATH%;x\0"s}, {"bin", REG_BINARY, bin},
        {"dw", REG_DWORD, Dword(0xDEADBEEF)}, {"dwbe", REG_DWORD_BIG_ENDIAN, Dword(0x01020304)},
        {"link", REG_LINK, "\\\0R\0e\0g\0"s}, {"msz", REG_MULTI_SZ, "one\0two\0\0"s},
        {"rlist", REG_RESOURCE_LIST, "\x01\0\0\0\xff"s}, {"rdesc", REG_FULL_RESOURCE_DESCRIPTOR, "\0\0\x09"s},
        {"rrl", REG_RESOURCE_REQUIREMENTS_LIST, "\x10\x20\x30\0"s}, {"qword", 11, "\x01\x02\x03\x04\x05\x06\x07\x08"s},
        {"empty sz", REG_SZ, ""}, {"empty bin", REG_BINARY, ""}, {"empty dw", REG_DWORD, ""},
        {"long dw", REG_DWORD, "\x01\x02\x03\x04\x05\x06"s}, {"caf\xe9 \xfc\xdf", REG_SZ, "\xe9\xe8\xc7\xf1\0"s},
        {"high bytes", REG_BINARY, "\x80\xff\0\xfe"s},
    };
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
  std::string base;
  orvalis_test::ScratchDir dir;
};

#endif  // _WIN32

}  // namespace marlow_test
