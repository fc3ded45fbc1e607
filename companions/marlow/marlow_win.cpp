// MARLOW.DLL: the registry-tree entry points. The live registry is read and written here; the
// dump format and the trees are the portable regdump/regtree.
#include <windows.h>

#include <sddl.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "base/companion_api.h"
#include "companions/marlow/marlow_win.h"
#include "companions/marlow/regdump.h"
#include "companions/marlow/regtree.h"
#include "compress/crc32.h"

namespace marlow {
namespace {

HKEY RootKey(int root) {
  switch (root) {
    case kRootHklm: return HKEY_LOCAL_MACHINE;
    case kRootHkcu: return HKEY_CURRENT_USER;
    case kRootHkcr: return HKEY_CLASSES_ROOT;
    case kRootHku: return HKEY_USERS;
    case kRootHkcc: return HKEY_CURRENT_CONFIG;
  }
  return nullptr;
}

// Holds the calling thread on the processor it runs on for the duration of a walk. Every
// registry call is a round trip to the wine server; with the thread free to move, each one wakes
// the server on the other processor (measured: a whole-registry walk 35 s against 4.7 s held).
// Held, the server is woken beside the thread and follows it there. The caller's affinity is
// put back afterwards. Windows 95/98 and XP have no GetCurrentProcessorNumber: nothing is held.
class HoldProcessor {
 public:
  HoldProcessor() {
    using Fn = DWORD(WINAPI*)(void);
    static const Fn current = reinterpret_cast<Fn>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("kernel32.dll"), "GetCurrentProcessorNumber")));
    if (!current) return;
    DWORD cpu = current();
    if (cpu >= sizeof(DWORD_PTR) * 8) return;
    old_ = SetThreadAffinityMask(GetCurrentThread(), DWORD_PTR(1) << cpu);
  }
  ~HoldProcessor() {
    if (old_) SetThreadAffinityMask(GetCurrentThread(), old_);
  }
  HoldProcessor(const HoldProcessor&) = delete;
  HoldProcessor& operator=(const HoldProcessor&) = delete;

 private:
  DWORD_PTR old_ = 0;
};

// Opens (or creates) `rest` below a root one component at a time: Wine's ANSI registry calls
// refuse more than 260 characters of path in one piece, and a deep key's path has more.
LONG OpenPath(HKEY root, const std::string& rest, REGSAM access, bool create, HKEY* out) {
  HKEY h;
  LONG r = RegOpenKeyExA(root, nullptr, 0, access, &h);
  size_t i = 0;
  while (r == ERROR_SUCCESS && i < rest.size()) {
    size_t j = rest.find('\\', i);
    if (j == std::string::npos) j = rest.size();
    std::string part = rest.substr(i, j - i);
    i = j + 1;
    HKEY next;
    r = create ? RegCreateKeyExA(h, part.c_str(), 0, nullptr, 0, access, nullptr, &next, nullptr)
               : RegOpenKeyExA(h, part.c_str(), 0, access, &next);
    RegCloseKey(h);
    h = next;
  }
  if (r == ERROR_SUCCESS) *out = h;
  return r;
}

// Enumeration buffers shared by every key of one walk, grown when a key needs more.
struct KeyScan {
  std::vector<char> name = std::vector<char>(32768);
  std::vector<unsigned char> data = std::vector<unsigned char>(4096);
  std::vector<std::string> subkeys;

  // Calls f(name or null for the default, name length, type, data, length) for every value.
  template <class F>
  LONG Values(HKEY h, DWORD count, DWORD maxData, F&& f) {
    if (data.size() < maxData + 2) data.resize(maxData + 2);
    for (DWORD i = 0; i < count; ++i) {
      LONG r;
      DWORD nameLen, type, len;
      for (;;) {
        nameLen = static_cast<DWORD>(name.size());
        len = static_cast<DWORD>(data.size());
        r = RegEnumValueA(h, i, name.data(), &nameLen, nullptr, &type, data.data(), &len);
        if (r != ERROR_MORE_DATA) break;
        // The value grew since the key was queried (or a name outgrew the buffer).
        if (len > data.size()) data.resize(len + 2);
        else if (data.size() < (1u << 20)) data.resize(data.size() * 2);
        if (name.size() < 65536) name.resize(65536);
        else if (len <= data.size()) return r;
      }
      if (r == ERROR_NO_MORE_ITEMS) break;
      if (r != ERROR_SUCCESS) return r;
      if (!f(nameLen ? name.data() : nullptr, nameLen, type, data.data(), len)) return ERROR_NOT_ENOUGH_MEMORY;
    }
    return ERROR_SUCCESS;
  }

  // Fills `out` with the names of the subkeys, in the registry's order.
  LONG Subkeys(HKEY h, DWORD count, std::vector<std::string>* out) {
    out->clear();
    for (DWORD i = 0;; ++i) {
      DWORD len = static_cast<DWORD>(name.size());
      LONG r = RegEnumKeyExA(h, i, name.data(), &len, nullptr, nullptr, nullptr, nullptr);
      if (r == ERROR_NO_MORE_ITEMS) break;
      if (r != ERROR_SUCCESS) return i >= count ? ERROR_SUCCESS : r;
      out->emplace_back(name.data(), len);
    }
    return ERROR_SUCCESS;
  }
};

struct KeyInfo {
  DWORD subkeys = 0, values = 0, maxData = 0;
};
bool QueryKey(HKEY h, KeyInfo* info) {
  return RegQueryInfoKeyA(h, nullptr, nullptr, nullptr, &info->subkeys, nullptr, nullptr, &info->values,
                          nullptr, &info->maxData, nullptr, nullptr) == ERROR_SUCCESS;
}

// ---- live key -> tree --------------------------------------------------------------------------

// Reads the values and subkeys below an open key into `key`. A subkey that cannot be opened is
// kept as an empty key: it exists, and the dump records it the same way.
int ReadLive(KeyScan* scan, HKEY h, ChangeNode* key, int depth) {
  KeyInfo info;
  if (!QueryKey(h, &info)) return ERROR_SUCCESS;
  ChangeNode** vtail = &key->values;
  bool memoryOk = true;
  if (info.values)
    scan->Values(h, info.values, info.maxData, [&](const char* name, DWORD nameLen, DWORD type, const void* data, DWORD len) {
      ChangeNode* v = NewValue(name, nameLen, type, data, len, uint16_t(depth + 1));
      if (!v) return memoryOk = false;
      *vtail = v;
      vtail = &v->next;
      return true;
    });
  if (!memoryOk) return ERROR_NOT_ENOUGH_MEMORY;
  if (!info.subkeys || depth + 1 > kMaxDepth) return ERROR_SUCCESS;
  std::vector<std::string> names;
  scan->Subkeys(h, info.subkeys, &names);
  ChangeNode** ktail = &key->children;
  for (const std::string& n : names) {
    ChangeNode* sub = NewKey(n.data(), n.size(), uint16_t(depth + 1));
    if (!sub) return ERROR_NOT_ENOUGH_MEMORY;
    *ktail = sub;
    ktail = &sub->next;
    HKEY hs;
    if (RegOpenKeyExA(h, n.c_str(), 0, KEY_READ, &hs) != ERROR_SUCCESS) continue;
    int r = ReadLive(scan, hs, sub, depth + 1);
    RegCloseKey(hs);
    if (r != ERROR_SUCCESS) return r;
  }
  return ERROR_SUCCESS;
}

// ---- live registry -> dump ---------------------------------------------------------------------

// The current user's key under HKEY_USERS, when HKEY_CURRENT_USER really is it: the dump then
// stores that subtree once and points to it from HKEY_USERS.
std::string CurrentUserSid() {
  HANDLE token;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) return {};
  std::string sid;
  union {
    TOKEN_USER user;
    unsigned char raw[512];
  } buf;
  DWORD len = 0;
  char* text = nullptr;
  if (GetTokenInformation(token, TokenUser, &buf, sizeof buf, &len) && ConvertSidToStringSidA(buf.user.User.Sid, &text)) {
    sid = text;
    LocalFree(text);
  }
  CloseHandle(token);
  if (sid.empty()) return {};
  HKEY h;
  if (RegOpenKeyExA(HKEY_USERS, sid.c_str(), 0, KEY_READ, &h) != ERROR_SUCCESS) return {};
  DWORD a[4] = {}, b[4] = {};
  FILETIME ta = {}, tb = {};
  bool same = RegQueryInfoKeyA(h, nullptr, nullptr, nullptr, &a[0], &a[1], nullptr, &a[2], &a[3], nullptr, nullptr, &ta) == 0 &&
              RegQueryInfoKeyA(HKEY_CURRENT_USER, nullptr, nullptr, nullptr, &b[0], &b[1], nullptr, &b[2], &b[3], nullptr,
                               nullptr, &tb) == 0 &&
              std::memcmp(a, b, sizeof a) == 0 && CompareFileTime(&ta, &tb) == 0;
  RegCloseKey(h);
  return same ? sid : std::string();
}

struct DumpWalk {
  DumpWriter* writer;
  KeyScan scan;
  std::string userSid;  // non-empty while walking HKEY_USERS
  RecordBuilder rec;

  // Writes the subtree below h in post-order and returns its record's offset.
  uint64_t Walk(HKEY h, int depth) {
    uint64_t start = writer->Position();
    KeyInfo info;
    if (!QueryKey(h, &info)) info = KeyInfo();
    std::vector<std::string> names;
    if (info.subkeys && depth + 1 <= kMaxDepth) scan.Subkeys(h, info.subkeys, &names);
    std::vector<uint64_t> targets(names.size());
    for (size_t i = 0; i < names.size(); ++i) {
      if (depth == 0 && !userSid.empty() && NamesEqual(names[i].data(), names[i].size(), userSid.data(), userSid.size())) {
        targets[i] = kAliasBit | kRootHkcu;
        continue;
      }
      HKEY hs;
      if (RegOpenKeyExA(h, names[i].c_str(), 0, KEY_READ, &hs) == ERROR_SUCCESS) {
        targets[i] = Walk(hs, depth + 1);
        RegCloseKey(hs);
      } else {
        rec.Clear();  // unreadable: an empty key, as the live read sees it
        uint64_t at = writer->Position();
        targets[i] = writer->WriteRecord(at, rec);
      }
    }
    rec.Clear();
    for (size_t i = 0; i < names.size(); ++i) rec.AddChild(names[i].data(), names[i].size(), targets[i]);
    if (info.values)
      scan.Values(h, info.values, info.maxData, [&](const char* name, DWORD nameLen, DWORD type, const void* data, DWORD len) {
        rec.AddValue(name, nameLen, type, data, len);
        return true;
      });
    return writer->WriteRecord(start, rec);
  }
};

// ---- tree -> live registry ---------------------------------------------------------------------

LONG SetValue(HKEY h, const ChangeNode* v) {
  unsigned char buf[4];
  const unsigned char* data = ValueBytes(v, buf);
  return RegSetValueExA(h, v->name, 0, v->type, data, v->length);
}

LONG DeleteTree(HKEY parent, const char* name) {
  HKEY h;
  LONG r = RegOpenKeyExA(parent, name, 0, KEY_READ | KEY_WRITE, &h);
  if (r != ERROR_SUCCESS) return r;
  std::vector<char> sub(1024);
  for (;;) {
    DWORD len = static_cast<DWORD>(sub.size());
    if (RegEnumKeyExA(h, 0, sub.data(), &len, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
    if (DeleteTree(h, sub.data()) != ERROR_SUCCESS) break;
  }
  RegCloseKey(h);
  return RegDeleteKeyA(parent, name);
}

// Writes every value and subkey of `key` below h (a key created for it).
LONG WriteWhole(HKEY h, const ChangeNode* key) {
  LONG result = ERROR_SUCCESS, r;
  for (const ChangeNode* v = key->values; v; v = v->next)
    if ((r = SetValue(h, v)) != ERROR_SUCCESS) result = r;
  for (const ChangeNode* k = key->children; k; k = k->next) {
    HKEY hs;
    if ((r = RegCreateKeyExA(h, k->name, 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr, &hs, nullptr)) != ERROR_SUCCESS) {
      result = r;
      continue;
    }
    if ((r = WriteWhole(hs, k)) != ERROR_SUCCESS) result = r;
    RegCloseKey(hs);
  }
  return result;
}

// Puts the first side of a compared key back: only flagged nodes are visited.
LONG ApplyKey(HKEY h, const ChangeNode* key) {
  LONG result = ERROR_SUCCESS, r = ERROR_SUCCESS;
  for (const ChangeNode* v = key->values; v; v = v->next) {
    if (v->flags & kChangeTo) continue;  // the newer half of a pair: the older one is written
    if (v->flags & (kChangeOlder | kChangeFrom)) r = SetValue(h, v);
    else if (v->flags & kChangeNewer) r = RegDeleteValueA(h, v->name);
    else continue;
    if (r != ERROR_SUCCESS) result = r;
  }
  for (const ChangeNode* k = key->children; k; k = k->next) {
    r = ERROR_SUCCESS;
    if (k->flags & kChangeOlder) {
      HKEY hs;
      r = RegCreateKeyExA(h, k->name, 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr, &hs, nullptr);
      if (r == ERROR_SUCCESS) {
        r = WriteWhole(hs, k);
        RegCloseKey(hs);
      }
    } else if (k->flags & kChangeNewer) {
      r = DeleteTree(h, k->name);
    } else if (k->flags & kChangeBelow) {
      HKEY hs;
      r = RegOpenKeyExA(h, k->name, 0, KEY_READ | KEY_WRITE, &hs);
      if (r == ERROR_SUCCESS) {
        r = ApplyKey(hs, k);
        RegCloseKey(hs);
      }
    }
    if (r != ERROR_SUCCESS) result = r;
  }
  return result;
}

// ---- key saves ---------------------------------------------------------------------------------

std::string SaveName(const std::string& folder, const std::string& canonical, int probe) {
  char name[32];
  std::snprintf(name, sizeof name, "K%08lX.MRK", static_cast<unsigned long>(orvalis::Crc32(canonical.data(), canonical.size()) + probe));
  std::string path = folder;
  if (!path.empty() && path.back() != '\\' && path.back() != '/') path += '\\';
  return path + name;
}

// The save of `canonical` in folder: its path, or the first free name when there is none yet.
bool FindSave(const std::string& folder, const std::string& canonical, std::string* path, bool* exists) {
  for (int probe = 0; probe < 64; ++probe) {
    *path = SaveName(folder, canonical, probe);
    if (GetFileAttributesA(path->c_str()) == INVALID_FILE_ATTRIBUTES) {
      *exists = false;
      return true;
    }
    DumpReader reader;
    if (reader.Open(*path) == kDumpOk && reader.label() == canonical) {
      *exists = true;
      return true;
    }
  }
  return false;
}

}  // namespace

int ReadLiveKey(const char* keyPath, ChangeNode** out) {
  *out = nullptr;
  HoldProcessor hold;
  KeyPath kp;
  if (!keyPath || !ParseKeyPath(keyPath, &kp)) return ERROR_INVALID_PARAMETER;
  std::string last = kp.LastName();
  *out = NewKey(last.data(), last.size(), 0, keyPath);
  if (!*out) return ERROR_NOT_ENOUGH_MEMORY;
  HKEY h;
  if (OpenPath(RootKey(kp.root), kp.rest, KEY_READ, false, &h) != ERROR_SUCCESS) return ERROR_PATH_NOT_FOUND;
  KeyScan scan;
  int r = ReadLive(&scan, h, *out, 0);
  RegCloseKey(h);
  return r;
}

int DumpRegistry(const char* path, int compression, const int* roots, int rootCount) {
  if (!path) return ERROR_INVALID_PARAMETER;
  HoldProcessor hold;
  DumpWriter writer;
  int r = writer.Open(path, compression);
  if (r) return r;
  DumpWalk walk{&writer, {}, {}, {}};
  std::string sid = CurrentUserSid();
  bool haveHkcu = false;
  for (int i = 0; i < rootCount; ++i) {
    HKEY h;
    if (RegOpenKeyExA(RootKey(roots[i]), nullptr, 0, KEY_READ, &h) != ERROR_SUCCESS) continue;
    if (roots[i] == kRootHkcu) haveHkcu = true;
    walk.userSid = roots[i] == kRootHku && haveHkcu ? sid : std::string();
    writer.SetRoot(static_cast<uint32_t>(roots[i]), walk.Walk(h, 0));
    RegCloseKey(h);
    if (writer.error()) break;
  }
  return writer.Finish();
}

int ReadDumpKey(const char* file, const char* keyPath, ChangeNode** out) {
  *out = nullptr;
  KeyPath kp;
  if (!file || !keyPath || !ParseKeyPath(keyPath, &kp)) return ERROR_INVALID_PARAMETER;
  DumpReader reader;
  int r = reader.Open(file);
  if (r) return r;
  std::string last = kp.LastName();
  return reader.ReadKey(static_cast<uint32_t>(kp.root), kp.rest, last, keyPath, out);
}

int UpdateLive(const ChangeNode* tree) {
  if (!tree || !(tree->flags & kKindKey) || !tree->data) return ERROR_INVALID_PARAMETER;
  KeyPath kp;
  if (!ParseKeyPath(static_cast<const char*>(tree->data), &kp)) return ERROR_INVALID_PARAMETER;
  if (!(tree->flags & (kChangeAny | kChangeBelow))) return ERROR_SUCCESS;
  HoldProcessor hold;
  HKEY h;
  LONG r = OpenPath(RootKey(kp.root), kp.rest, KEY_READ | KEY_WRITE, true, &h);
  if (r != ERROR_SUCCESS) return r;
  r = ApplyKey(h, tree);
  RegCloseKey(h);
  return r;
}

int SaveKey(const char* keyPath, const char* folder) {
  KeyPath kp;
  if (!keyPath || !folder || !ParseKeyPath(keyPath, &kp)) return ERROR_INVALID_PARAMETER;
  ChangeNode* tree = nullptr;
  int r = ReadLiveKey(keyPath, &tree);
  if (r) {
    FreeTree(tree);
    return r;
  }
  std::string canonical = kp.Canonical(), path;
  bool exists;
  if (!FindSave(folder, canonical, &path, &exists)) {
    FreeTree(tree);
    return ERROR_FILE_EXISTS;
  }
  // Written beside the final name and moved over it, so a failed save never leaves a torn file.
  std::string temp = path + ".new";
  {
    DumpWriter writer;
    r = writer.Open(temp, 1024, canonical);
    if (!r) {
      writer.SetRoot(kSavedKeyRoot, WriteTree(&writer, tree));
      r = writer.Finish();
    }
  }
  FreeTree(tree);
  if (!r && !MoveFileExA(temp.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING)) {
    r = static_cast<int>(GetLastError());
    DeleteFileA(temp.c_str());
  }
  return r;
}

int RestoreKey(const char* keyPath, const char* folder) {
  KeyPath kp;
  if (!keyPath || !folder || !ParseKeyPath(keyPath, &kp)) return ERROR_INVALID_PARAMETER;
  std::string path;
  bool exists = false;
  if (!FindSave(folder, kp.Canonical(), &path, &exists) || !exists) return ERROR_FILE_NOT_FOUND;
  DumpReader reader;
  int r = reader.Open(path);
  if (r) return r == kDumpNoFile ? ERROR_FILE_NOT_FOUND : r;
  std::string last = kp.LastName();
  ChangeNode *saved = nullptr, *live = nullptr;
  r = reader.ReadKey(kSavedKeyRoot, {}, last, keyPath, &saved);
  if (r) return r == kDumpNoKey ? ERROR_INVALID_DATA : r;
  r = ReadLiveKey(keyPath, &live);
  if (r == ERROR_SUCCESS || r == ERROR_PATH_NOT_FOUND) {
    CompareTrees(saved, live);
    if (r == ERROR_PATH_NOT_FOUND) saved->flags |= kChangeBelow;  // the key itself must come back
    r = UpdateLive(saved);
  }
  FreeTree(live);
  FreeTree(saved);
  return r;
}

}  // namespace marlow
