// MARLOW.DLL speed under Wine, through its exported entry points as the engine calls them.
// Grows the registry of the prefix it runs in to about 150,000 keys and 400,000 values below
// HKLM\Software\OrvalisBench (once), then prints, in one run: a plain read-only walk of the
// whole registry with the Win32 enumeration calls, the whole dump at every compression setting
// (and whether the dumps left the wine server anything to write out), a small key and a
// 10,000-key subtree read back from the dump, the check that every root read back from the dump
// equals the live read, and the comparison of two 150,000-key trees.
#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/companion_api.h"

namespace {

using Clock = std::chrono::steady_clock;
double Since(Clock::time_point t) { return std::chrono::duration<double>(Clock::now() - t).count(); }

const char kBase[] = "Software\\OrvalisBench";
const int kVendors = 15, kProducts = 100, kKeysPerProduct = 99;  // 15 x 10,000 keys

// Value kinds in the proportions a real Software hive shows: mostly short strings and numbers.
void AddValues(HKEY h, unsigned seed) {
  static const int counts[] = {2, 3, 1, 4, 3, 3};  // 2.67 a key on average
  char name[32], text[160];
  unsigned char bin[256];
  for (int i = 0; i < counts[seed % 6]; ++i) {
    unsigned r = seed * 2654435761u + unsigned(i) * 40503u;
    std::snprintf(name, sizeof name, "Value%u", i);
    unsigned kind = r % 100;
    if (kind < 60) {
      int n = std::snprintf(text, sizeof text, "C:\\Program Files\\Vendor %u\\component-%08x.dll", seed % 97, r);
      RegSetValueExA(h, name, 0, REG_SZ, reinterpret_cast<BYTE*>(text), DWORD(n + 1));
    } else if (kind < 85) {
      DWORD v = r;
      RegSetValueExA(h, name, 0, REG_DWORD, reinterpret_cast<BYTE*>(&v), 4);
    } else if (kind < 95) {
      DWORD n = 16 + r % 240;
      for (DWORD k = 0; k < n; ++k) bin[k] = static_cast<unsigned char>(r >> (k % 24));
      RegSetValueExA(h, name, 0, REG_BINARY, bin, n);
    } else if (kind < 98) {
      static const char msz[] = "first\0second entry\0third\0";
      RegSetValueExA(h, name, 0, REG_MULTI_SZ, reinterpret_cast<const BYTE*>(msz), sizeof msz);
    } else {
      static const char ex[] = "%SystemRoot%\\system32\\bench.exe";
      RegSetValueExA(h, name, 0, REG_EXPAND_SZ, reinterpret_cast<const BYTE*>(ex), sizeof ex);
    }
  }
}

void Generate() {
  HKEY base;
  RegCreateKeyExA(HKEY_LOCAL_MACHINE, kBase, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &base, nullptr);
  unsigned seed = 0;
  for (int v = 0; v < kVendors; ++v) {
    char vn[32];
    std::snprintf(vn, sizeof vn, "Vendor%02d", v);
    HKEY hv;
    RegCreateKeyExA(base, vn, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &hv, nullptr);
    for (int p = 0; p < kProducts; ++p) {
      char pn[32];
      std::snprintf(pn, sizeof pn, "Product%02d", p);
      HKEY hp;
      RegCreateKeyExA(hv, pn, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &hp, nullptr);
      AddValues(hp, seed++);
      for (int k = 0; k < kKeysPerProduct; ++k) {
        char kn[32];
        std::snprintf(kn, sizeof kn, "Key%03d", k);
        HKEY hk;
        RegCreateKeyExA(hp, kn, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &hk, nullptr);
        AddValues(hk, seed++);
        RegCloseKey(hk);
      }
      RegCloseKey(hp);
    }
    RegCloseKey(hv);
    std::printf("  vendor %d of %d\n", v + 1, kVendors);
  }
  DWORD done = 1;
  RegSetValueExA(base, "complete", 0, REG_DWORD, reinterpret_cast<BYTE*>(&done), 4);
  RegCloseKey(base);
}

struct Counts {
  size_t keys = 0, values = 0;
};

// The plain walk: open, query, enumerate values (reading their data) and subkeys, close.
void Walk(HKEY h, Counts* c, std::vector<char>& name, std::vector<BYTE>& data, int depth) {
  ++c->keys;
  DWORD subkeys = 0, values = 0, maxData = 0;
  if (RegQueryInfoKeyA(h, nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, &values, nullptr, &maxData, nullptr,
                       nullptr) != ERROR_SUCCESS)
    return;
  if (data.size() < maxData + 2) data.resize(maxData + 2);
  for (DWORD i = 0; i < values; ++i) {
    DWORD nl = DWORD(name.size()), dl = DWORD(data.size()), type;
    if (RegEnumValueA(h, i, name.data(), &nl, nullptr, &type, data.data(), &dl) == ERROR_SUCCESS) ++c->values;
  }
  if (depth >= 512) return;
  std::vector<std::string> names;
  for (DWORD i = 0; i < subkeys; ++i) {
    DWORD nl = DWORD(name.size());
    if (RegEnumKeyExA(h, i, name.data(), &nl, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
    names.emplace_back(name.data(), nl);
  }
  for (const std::string& n : names) {
    HKEY s;
    if (RegOpenKeyExA(h, n.c_str(), 0, KEY_READ, &s) != ERROR_SUCCESS) continue;
    Walk(s, c, name, data, depth + 1);
    RegCloseKey(s);
  }
}

size_t CountNodes(const ChangeNode* k) {
  size_t n = 1;
  for (const ChangeNode* v = k->values; v; v = v->next) ++n;
  for (const ChangeNode* c = k->children; c; c = c->next) n += CountNodes(c);
  return n;
}
size_t CountKeys(const ChangeNode* k) {
  size_t n = 1;
  for (const ChangeNode* c = k->children; c; c = c->next) n += CountKeys(c);
  return n;
}

// The first few marked nodes with their paths, so that a difference can be found.
void PrintMarked(const ChangeNode* k, const std::string& path, int* budget) {
  for (const ChangeNode* v = k->values; v && *budget > 0; v = v->next)
    if (v->flags & kChangeAny) {
      --*budget;
      std::printf("  %s : value \"%s\" flags %04x type %u length %u\n", path.c_str(), v->name ? v->name : "", v->flags,
                  v->type, v->length);
    }
  for (const ChangeNode* c = k->children; c && *budget > 0; c = c->next) {
    std::string p = path + "\\" + (c->name ? c->name : "");
    if (c->flags & kChangeAny) {
      --*budget;
      std::printf("  %s : key flags %04x\n", p.c_str(), c->flags);
    } else if (c->flags & kChangeBelow) {
      PrintMarked(c, p, budget);
    }
  }
}

// When the wine server last wrote the machine half of the registry to its file (zero outside
// Wine). It writes the registry out 30 s after anything in it changed, Wine's own start-up
// included, and with a registry this size that takes the server away for about 0.4 s.
uint64_t HiveWritten() {
  char prefix[MAX_PATH];
  DWORD n = GetEnvironmentVariableA("WINEPREFIX", prefix, sizeof prefix);
  if (!n || n >= sizeof prefix) return 0;
  std::string path = std::string("Z:") + prefix + "/system.reg";
  std::replace(path.begin(), path.end(), '/', '\\');
  WIN32_FILE_ATTRIBUTE_DATA fa{};
  if (!GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &fa)) return 0;
  return uint64_t(fa.ftLastWriteTime.dwHighDateTime) << 32 | fa.ftLastWriteTime.dwLowDateTime;
}

template <class F>
F Proc(HMODULE dll, const char* name) {
  return reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(dll, name)));
}

}  // namespace

int main(int argc, char** argv) {
  std::string folder = argc > 1 ? argv[1] : "C:\\";
  if (!folder.empty() && folder.back() != '\\') folder += '\\';
  char exe[MAX_PATH];
  GetModuleFileNameA(nullptr, exe, MAX_PATH);
  std::string dllPath(exe);
  dllPath = dllPath.substr(0, dllPath.rfind('\\') + 1) + "MARLOW.DLL";
  HMODULE dll = LoadLibraryA(dllPath.c_str());
  if (!dll) {
    std::printf("cannot load %s\n", dllPath.c_str());
    return 1;
  }
  auto dump = Proc<EntireRegToFileFn>(dll, "_EntireRegToFile");
  auto fromFile = Proc<RegKeyFromFileFn>(dll, "_RegKeyFromFile");
  auto toTree = Proc<RegKeyToTreeFn>(dll, "_RegKeyToTree");
  auto compare = Proc<RegCompareTreesFn>(dll, "_RegCompareTrees");
  auto freeTree = Proc<FreeRegTreeFn>(dll, "_FreeRegTree");

  HKEY probe;
  DWORD done = 0, len = 4;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, kBase, 0, KEY_READ, &probe) == ERROR_SUCCESS) {
    RegQueryValueExA(probe, "complete", nullptr, nullptr, reinterpret_cast<BYTE*>(&done), &len);
    RegCloseKey(probe);
  }
  if (!done) {
    std::printf("growing the registry by %d keys below HKLM\\%s (once) ...\n", kVendors * kProducts * (kKeysPerProduct + 1),
                kBase);
    auto t = Clock::now();
    Generate();
    std::printf("  done in %.1f s\n", Since(t));
  }
  DWORD_PTR mask = 0, sys = 0;
  GetProcessAffinityMask(GetCurrentProcess(), &mask, &sys);
  std::printf("MARLOW.DLL benchmark, %d-bit, processors allowed: mask 0x%lx\n", int(sizeof(void*) * 8),
              static_cast<unsigned long>(mask));

  // 1. The plain walk of every root the dump covers.
  {
    static const HKEY roots[] = {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER, HKEY_CLASSES_ROOT, HKEY_USERS, HKEY_CURRENT_CONFIG};
    Counts c;
    std::vector<char> name(65536);
    std::vector<BYTE> data(65536);
    auto t = Clock::now();
    for (HKEY r : roots) Walk(r, &c, name, data, 0);
    double s = Since(t);
    std::printf("plain Win32 walk (HKLM, HKCU, HKCR, HKU, HKCC): %zu keys, %zu values: %.2f s\n", c.keys, c.values, s);
    // The same walk with this thread held on the processor it runs on: does the wine server
    // follow it there?
    DWORD_PTR old = SetThreadAffinityMask(GetCurrentThread(), DWORD_PTR(1) << GetCurrentProcessorNumber());
    Counts c2;
    t = Clock::now();
    for (HKEY r : roots) Walk(r, &c2, name, data, 0);
    s = Since(t);
    if (old) SetThreadAffinityMask(GetCurrentThread(), old);
    std::printf("same walk, thread held on one processor: %.2f s\n", s);
  }

  // For reference: the platform's bulk save of the two big roots, which leaves volatile keys
  // out (and, in a 32-bit process on 64-bit Windows or Wine, has no 32-bit view).
  {
    HANDLE token;
    if (OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &token)) {
      TOKEN_PRIVILEGES tp{};
      tp.PrivilegeCount = 1;
      tp.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
      if (LookupPrivilegeValueA(nullptr, "SeBackupPrivilege", &tp.Privileges[0].Luid))
        AdjustTokenPrivileges(token, FALSE, &tp, 0, nullptr, nullptr);
      CloseHandle(token);
    }
    double total = 0, bytes = 0;
    LONG last = 0;
    for (HKEY root : {HKEY_LOCAL_MACHINE, HKEY_USERS}) {
      std::string file = folder + "marlow-bench-save.reg";
      DeleteFileA(file.c_str());
      auto t = Clock::now();
      LONG r = RegSaveKeyA(root, file.c_str(), nullptr);
      total += Since(t);
      if (r) last = r;
      WIN32_FILE_ATTRIBUTE_DATA fa{};
      if (GetFileAttributesExA(file.c_str(), GetFileExInfoStandard, &fa)) bytes += fa.nFileSizeLow;
      DeleteFileA(file.c_str());
    }
    std::printf("reference: RegSaveKeyA of HKLM and HKU (no volatile keys): result %ld, %.2f s, %.1f MB of text\n",
                static_cast<long>(last), total, bytes / 1e6);
  }

  // 2. The whole dump at each compression setting, five times each: on a shared machine single
  // runs stray by a few tenths of a second either way. A run during which the wine server wrote
  // the registry to its files measures that write as well: it is shown, marked, and made again
  // (twice at most).
  std::string file1024;
  double dump1024 = 0;
  for (int compression : {0, 1, 1024, 2048, 4096}) {
    std::string file = folder + "marlow-bench-" + std::to_string(compression) + ".OVR";
    double runs[5];
    int r = 0;
    std::string marked;
    for (double& s : runs) {
      for (int attempt = 0;; ++attempt) {
        uint64_t before = HiveWritten();
        auto t = Clock::now();
        r |= dump(file.c_str(), compression);
        s = Since(t);
        if (attempt == 2 || HiveWritten() == before) break;
        char note[64];
        std::snprintf(note, sizeof note, "%s%.2f", marked.empty() ? "" : ", ", s);
        marked += note;
      }
    }
    std::vector<double> sorted(runs, runs + 5);
    std::sort(sorted.begin(), sorted.end());
    double s = sorted[2];
    WIN32_FILE_ATTRIBUTE_DATA fa{};
    GetFileAttributesExA(file.c_str(), GetFileExInfoStandard, &fa);
    std::printf("_EntireRegToFile compression %4d: result %d, median %.2f s (runs %.2f, %.2f, %.2f, %.2f, %.2f), %.1f MB",
                compression, r, s, runs[0], runs[1], runs[2], runs[3], runs[4],
                (double(fa.nFileSizeHigh) * 4294967296.0 + fa.nFileSizeLow) / 1e6);
    if (!marked.empty()) std::printf("; made again: %s s (the wine server wrote its registry files)", marked.c_str());
    std::printf("\n");
    if (compression == 1024) {
      file1024 = file;
      dump1024 = s;
    } else {
      DeleteFileA(file.c_str());
    }
  }
  // A dump only reads: the server must have nothing to write out after the last one.
  if (uint64_t before = HiveWritten()) {
    Sleep(31000);
    std::printf("the wine server %s its registry files in the 31 s after the last dump\n",
                HiveWritten() == before ? "did not write" : "WROTE");
  }

  // 3. Keys read back from the dump.
  struct Read {
    const char* what;
    std::string key;
  };
  const Read reads[] = {
      {"small key (1 key, 3 values)", std::string("HKLM\\") + kBase + "\\Vendor03\\Product07\\Key042"},
      {"10,000-key subtree", std::string("HKEY_LOCAL_MACHINE\\") + kBase + "\\Vendor05"},
  };
  for (const Read& rd : reads) {
    const int rounds = 5;
    double best = 1e9;
    size_t keys = 0;
    for (int i = 0; i < rounds; ++i) {
      ChangeNode* t = nullptr;
      auto t0 = Clock::now();
      int r = fromFile(file1024.c_str(), &t, 1, rd.key.c_str());
      double s = Since(t0);
      if (r == 0) keys = CountKeys(t);
      if (s < best) best = s;
      freeTree(t);
    }
    std::printf("_RegKeyFromFile %-28s: %zu keys, best of %d: %.4f s (%.4f of the dump's time)\n", rd.what, keys, rounds,
                best, best / dump1024);
  }

  // 4. Every root read back from the dump equals the live read (nothing changed in between).
  for (const char* root : {"HKLM", "HKCU", "HKCR", "HKU", "HKCC"}) {
    ChangeNode *a = nullptr, *b = nullptr;
    int ra = fromFile(file1024.c_str(), &a, 1, root);
    int rb = toTree(&b, root, 1, 2);
    uint32_t diff = 0;
    size_t nodes = a ? CountNodes(a) : 0;
    if (ra == 0 && rb == 0) compare(&a, b, &diff);
    std::printf("dump against live walk, %-4s: %zu nodes, %s\n", root, nodes,
                ra || rb ? "could not be read" : diff ? "DIFFERENT" : "equal");
    int budget = 10;
    if (diff && a) PrintMarked(a, root, &budget);
    freeTree(a);
    freeTree(b);
  }

  // 5. Comparing two 150,000-key trees.
  {
    std::string key = std::string("HKLM\\") + kBase;
    ChangeNode *a = nullptr, *b = nullptr;
    fromFile(file1024.c_str(), &a, 1, key.c_str());
    fromFile(file1024.c_str(), &b, 2, key.c_str());
    if (a && b) {
      size_t nodes = CountNodes(a) + CountNodes(b);
      size_t keys = CountKeys(a);
      uint32_t diff = 0;
      auto t = Clock::now();
      compare(&a, b, &diff);
      double s = Since(t);
      std::printf("_RegCompareTrees of two %zu-key trees: %zu nodes in both, %.3f s, %.2f million nodes/s\n", keys, nodes,
                  s, nodes / s / 1e6);
    }
    freeTree(a);
    freeTree(b);
  }
  DeleteFileA(file1024.c_str());
  FreeLibrary(dll);
  return 0;
}
