// MARLOW.DLL: the registry-tree entry points. The live registry is read and written here; the
// dump format and the trees are the portable regdump/regtree.
#include <windows.h>

#include <sddl.h>

#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "base/companion_api.h"
#include "companions/marlow/marlow_win.h"
#include "companions/marlow/regdump.h"
#include "companions/marlow/regtree.h"
#include "companions/marlow/winesave.h"
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

// ---- the platform's bulk save -------------------------------------------------------------------
//
// A walk costs a round trip to the wine server for every key opened, queried and closed and for
// every value; RegSaveKey hands over a whole root in one. The save leaves out volatile keys (and
// everything below them): they show in the counts the server gives per key through its parent
// (NtEnumerateKey with KeyFullInformation: the subkey's own subkey and value counts), and
// wherever the live counts differ from the save's, that subtree is walked instead. That costs
// one round trip a key and two a key with subkeys, against the walk's three and more a key plus
// one a value. A symbolic link leads somewhere else: the key it opens is asked for its name and
// taken from the save by that name (walked when the save does not hold it, as for a target in
// another root).
//
// Only Wine's own text format is read (real Windows writes its binary hive format, which takes
// the walk). A 32-bit process under WOW64 opens some keys in their 32-bit view: the key's
// Wow6432Node subkey stands in for it. Such a process asks the server the name of every key it
// opens, and takes that key's part of the save in the same way.

struct KeyFullInfo {  // KEY_FULL_INFORMATION without its trailing class name
  LARGE_INTEGER lastWrite;
  ULONG titleIndex, classOffset, classLength, subKeys, maxNameLength, maxClassLength, values, maxValueNameLength,
      maxValueDataLength;
};
constexpr ULONG kKeyFullInfoFixed = 44;  // the server's length of the above (no tail padding)
constexpr int kKeyNameInformation = 3, kKeyFullInformation = 2;

struct BulkSaveCalls {
  LONG(WINAPI* enumerate)(HANDLE, ULONG, int, void*, ULONG, ULONG*) = nullptr;
  LONG(WINAPI* query)(HANDLE, int, void*, ULONG, ULONG*) = nullptr;
  bool wow64 = false;
};

// Null members where the bulk save is not to be used.
const BulkSaveCalls& BulkSave() {
  static const BulkSaveCalls calls = [] {
    BulkSaveCalls c;
    HMODULE ntdll = GetModuleHandleA("ntdll.dll");
    if (!ntdll || !GetProcAddress(ntdll, "wine_get_version")) return c;  // Wine's save format only
    using IsWow64Fn = BOOL(WINAPI*)(HANDLE, PBOOL);
    auto isWow64 = reinterpret_cast<IsWow64Fn>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("kernel32.dll"), "IsWow64Process")));
    BOOL wow64 = FALSE;
    c.wow64 = isWow64 && isWow64(GetCurrentProcess(), &wow64) && wow64;
    c.enumerate = reinterpret_cast<decltype(c.enumerate)>(reinterpret_cast<void*>(GetProcAddress(ntdll, "NtEnumerateKey")));
    c.query = reinterpret_cast<decltype(c.query)>(reinterpret_cast<void*>(GetProcAddress(ntdll, "NtQueryKey")));
    if (!c.query) c.enumerate = nullptr;
    return c;
  }();
  return calls;
}

// The key's full name as the server knows it ("\REGISTRY\MACHINE\...").
bool KeyName(HKEY h, std::vector<unsigned char>* buf, std::u16string* out) {
  ULONG got = 0;
  LONG st = BulkSave().query(h, kKeyNameInformation, buf->data(), ULONG(buf->size()), &got);
  ULONG bytes = 0;
  if (st != 0 || got < 4) return false;
  std::memcpy(&bytes, buf->data(), 4);
  if (bytes > got - 4) return false;
  out->assign(bytes / 2, u'\0');
  std::memcpy(out->data(), buf->data() + 4, bytes / 2 * 2);
  return true;
}

bool Utf16NamesEqual(const char16_t* a, size_t an, const char16_t* b, size_t bn) {
  auto upper = [](char16_t c) { return c >= u'a' && c <= u'z' ? char16_t(c - 32) : c; };
  if (an != bn) return false;
  for (size_t i = 0; i < an; ++i)
    if (upper(a[i]) != upper(b[i])) return false;
  return true;
}

// The key of the save whose full name is `name`, given the saved key's own; -1 when the save has
// none.
int64_t FindSaved(const SavedBranch& b, const std::u16string& top, const std::u16string& name) {
  if (top.empty() || name.size() < top.size() || !Utf16NamesEqual(name.data(), top.size(), top.data(), top.size())) return -1;
  uint32_t k = 0;
  for (size_t at = top.size(); at < name.size();) {
    if (name[at] != u'\\') return -1;
    size_t end = name.find(u'\\', at + 1);
    if (end == std::u16string::npos) end = name.size();
    int64_t next = -1;
    for (uint32_t c : b.keys[k].children)
      if (Utf16NamesEqual(&b.names[b.keys[c].name], b.keys[c].nameLength, name.data() + at + 1, end - at - 1)) next = c;
    if (next < 0) return -1;
    k = uint32_t(next);
    at = end;
  }
  return k;
}

// The save needs the backup privilege; it is held only while the dump runs.
class BackupPrivilege {
 public:
  BackupPrivilege() {
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &token_)) {
      token_ = nullptr;
      return;
    }
    TOKEN_PRIVILEGES tp{};
    tp.PrivilegeCount = 1;
    tp.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    DWORD len = sizeof old_;
    if (LookupPrivilegeValueA(nullptr, "SeBackupPrivilege", &tp.Privileges[0].Luid) &&
        AdjustTokenPrivileges(token_, FALSE, &tp, sizeof old_, &old_, &len) && GetLastError() == ERROR_SUCCESS)
      held_ = true;
  }
  ~BackupPrivilege() {
    if (held_ && old_.PrivilegeCount) AdjustTokenPrivileges(token_, FALSE, &old_, 0, nullptr, nullptr);
    if (token_) CloseHandle(token_);
  }
  bool held() const { return held_; }
  BackupPrivilege(const BackupPrivilege&) = delete;
  BackupPrivilege& operator=(const BackupPrivilege&) = delete;

 private:
  HANDLE token_ = nullptr;
  TOKEN_PRIVILEGES old_{};
  bool held_ = false;
};

// Saves the key behind h to a temporary file and reads it back. False when the save is refused
// or is not Wine's format.
bool SaveBranch(HKEY h, SavedBranch* out) {
  char dir[MAX_PATH], file[MAX_PATH];
  DWORD n = GetTempPathA(MAX_PATH, dir);
  if (!n || n >= MAX_PATH || !GetTempFileNameA(dir, "mrl", 0, file)) return false;
  DeleteFileA(file);  // the save will not write over a file
  bool ok = false;
  if (RegSaveKeyA(h, file, nullptr) == ERROR_SUCCESS) {
    std::string text;
    if (std::FILE* f = std::fopen(file, "rb")) {
      char buf[65536];
      size_t got;
      while ((got = std::fread(buf, 1, sizeof buf, f)) > 0) text.append(buf, got);
      ok = !std::ferror(f);
      std::fclose(f);
    }
    ok = ok && ParseWineSave(text, out);
  }
  DeleteFileA(file);
  return ok;
}

// UTF-16 from the save to the ANSI form the A calls of the walk return. False when a character
// has no ANSI form: a key of that name cannot be opened by it, so the walk must meet it as it is.
bool ToAnsi(const void* utf16, size_t units, std::string* out) {
  out->clear();
  if (!units) return true;
  std::u16string w(units, 0);
  std::memcpy(w.data(), utf16, units * 2);
  const auto* src = reinterpret_cast<LPCWCH>(w.data());
  BOOL lossy = FALSE;
  BOOL* probe = GetACP() == CP_UTF8 ? nullptr : &lossy;  // the UTF-8 code page refuses the probe
  int len = WideCharToMultiByte(CP_ACP, 0, src, int(units), nullptr, 0, nullptr, probe);
  out->resize(size_t(len > 0 ? len : 0));
  if (len > 0) WideCharToMultiByte(CP_ACP, 0, src, int(units), out->data(), len, nullptr, nullptr);
  return len > 0 && !lossy;
}

// The subkey counts of a key's subkeys, asked for by a few threads at once. Each answer is a
// round trip to the wine server; one thread alone leaves the server idle between its requests,
// and when the two run on different processors every request pays for waking the other one.
// With several requests in flight the server goes from one to the next (measured unpinned: the
// whole dump 4.7 s against 13 s asking alone; pinned to one processor 1.8 s either way). Where
// no thread can be made the caller asks alone.
class CountPool {
 public:
  struct Answer {
    bool ok;
    DWORD subkeys, values;
  };

  CountPool() {
    done_ = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    if (!done_) return;
    for (Worker& w : workers_) {
      w.pool = this;
      if (!(w.start = CreateEventA(nullptr, FALSE, FALSE, nullptr))) break;
      if (!(w.thread = CreateThread(nullptr, 64 * 1024, &CountPool::Thread, &w, 0, nullptr))) {
        CloseHandle(w.start);
        break;
      }
      ++started_;
    }
  }
  ~CountPool() {
    stop_ = true;
    for (int i = 0; i < started_; ++i) {
      SetEvent(workers_[i].start);
      WaitForSingleObject(workers_[i].thread, INFINITE);
      CloseHandle(workers_[i].thread);
      CloseHandle(workers_[i].start);
    }
    if (done_) CloseHandle(done_);
  }
  CountPool(const CountPool&) = delete;
  CountPool& operator=(const CountPool&) = delete;

  // The counts of subkeys 0 to n - 1 of h, into out[0 .. n).
  void Ask(HKEY h, size_t n, Answer* out) {
    h_ = h;
    out_ = out;
    n_ = LONG(n);
    next_ = 0;
    // Each worker is woken once per call and answers once: a call never ends while one of them
    // may still write into out.
    int helpers = n >= kWorthSharing ? started_ : 0;
    active_ = helpers;
    for (int i = 0; i < helpers; ++i) SetEvent(workers_[i].start);
    Drain(mine_, sizeof mine_);
    if (helpers) WaitForSingleObject(done_, INFINITE);
  }

 private:
  static constexpr int kThreads = 3;
  static constexpr size_t kWorthSharing = 8;

  struct Worker {
    CountPool* pool = nullptr;
    HANDLE start = nullptr, thread = nullptr;
  };

  static DWORD WINAPI Thread(void* self) {
    const Worker* w = static_cast<Worker*>(self);
    CountPool* pool = w->pool;
    unsigned char buffer[1024];
    for (;;) {
      WaitForSingleObject(w->start, INFINITE);
      if (pool->stop_) return 0;
      pool->Drain(buffer, sizeof buffer);
      if (InterlockedDecrement(&pool->active_) == 0) SetEvent(pool->done_);
    }
  }

  void Drain(unsigned char* buffer, ULONG size) {
    auto enumerate = BulkSave().enumerate;
    for (LONG j; (j = InterlockedIncrement(&next_) - 1) < n_;) {
      ULONG got = 0;
      LONG st = enumerate(h_, ULONG(j), kKeyFullInformation, buffer, size, &got);
      KeyFullInfo live{};
      std::memcpy(&live, buffer, sizeof live);
      // 0x80000005: the class name did not fit; the counts did.
      out_[j] = {(st == 0 || st == LONG(0x80000005)) && got >= kKeyFullInfoFixed, live.subKeys, live.values};
    }
  }

  HANDLE done_ = nullptr;
  Worker workers_[kThreads];
  int started_ = 0;
  volatile bool stop_ = false;
  unsigned char mine_[1024];
  HKEY h_ = nullptr;
  Answer* out_ = nullptr;
  LONG n_ = 0;
  volatile LONG next_ = 0, active_ = 0;
};

struct DumpWalk {
  DumpWriter* writer;
  KeyScan scan;
  std::string userSid;  // non-empty while walking HKEY_USERS
  RecordBuilder rec;
  CountPool* pool = nullptr;  // where the bulk save is used
  std::vector<unsigned char> nameInfo = std::vector<unsigned char>(65536);  // one key's full name
  std::u16string top = {};  // the full name of the saved key

  bool IsUserAlias(int depth, const std::string& name) const {
    return depth == 0 && !userSid.empty() && NamesEqual(name.data(), name.size(), userSid.data(), userSid.size());
  }

  // Writes key k of a save in post-order. h is the live key and liveSubkeys its subkey count
  // (h is null when k has no subkeys on either side, so that nothing below needs the server);
  // real is its full name under WOW64, else null.
  uint64_t WriteSaved(const SavedBranch& b, uint32_t k, HKEY h, DWORD liveSubkeys, int depth,
                      const std::u16string* real) {
    uint64_t start = writer->Position();
    const SavedKey& key = b.keys[k];
    std::vector<std::string> names;
    std::vector<uint64_t> targets;
    if (h && liveSubkeys && depth + 1 <= kMaxDepth) {
      // saved[j]: the save's subkey at live index j, or -1 for one the save left out or whose name
      // has no ANSI form.
      std::vector<int64_t> saved(liveSubkeys, -1);
      if (liveSubkeys == key.children.size()) {
        names.resize(liveSubkeys);
        for (size_t j = 0; j < liveSubkeys; ++j) {
          const SavedKey& child = b.keys[key.children[j]];
          if (ToAnsi(&b.names[child.name], child.nameLength, &names[j])) saved[j] = key.children[j];
        }
      } else {
        // Volatile subkeys among them: the live names, matched to the save's in their common order.
        scan.Subkeys(h, liveSubkeys, &names);
        saved.assign(names.size(), -1);
        std::string savedName;
        size_t c = 0;
        for (size_t j = 0; j < names.size() && c < key.children.size(); ++j) {
          for (size_t probe = c; probe < key.children.size(); ++probe) {
            const SavedKey& child = b.keys[key.children[probe]];
            if (ToAnsi(&b.names[child.name], child.nameLength, &savedName) &&
                NamesEqual(savedName.data(), savedName.size(), names[j].data(), names[j].size())) {
              saved[j] = key.children[probe];
              c = probe + 1;
              break;
            }
          }
        }
      }
      std::vector<CountPool::Answer> counts(names.size());
      pool->Ask(h, names.size(), counts.data());
      targets.resize(names.size());
      for (size_t j = 0; j < names.size(); ++j) {
        if (IsUserAlias(depth, names[j])) {
          targets[j] = kAliasBit | kRootHkcu;
          continue;
        }
        const SavedKey* child = saved[j] >= 0 ? &b.keys[size_t(saved[j])] : nullptr;
        const CountPool::Answer& live = counts[j];
        // Values that differ are walked; a link is looked up by the name of the key it leads to.
        bool asSaved = child && live.ok && (child->link || live.values == child->valueCount);
        if (asSaved && !child->link && !live.subkeys && child->children.empty()) {
          targets[j] = WriteSaved(b, uint32_t(saved[j]), nullptr, 0, depth + 1, nullptr);
          continue;
        }
        HKEY hs;
        if (RegOpenKeyExA(h, names[j].c_str(), 0, KEY_READ, &hs) == ERROR_SUCCESS) {
          targets[j] = !asSaved                  ? Walk(hs, depth + 1)
                       : real || child->link ? WriteOpened(b, uint32_t(saved[j]), hs, live.subkeys, depth + 1, real)
                                             : WriteSaved(b, uint32_t(saved[j]), hs, live.subkeys, depth + 1, nullptr);
          RegCloseKey(hs);
        } else {
          rec.Clear();  // unreadable: an empty key, as the walk records it
          targets[j] = writer->WriteRecord(writer->Position(), rec);
        }
      }
    }
    rec.Clear();
    for (size_t i = 0; i < names.size(); ++i) rec.AddChild(names[i].data(), names[i].size(), targets[i]);
    std::string name, text;
    for (uint32_t v = key.firstValue; v < key.firstValue + key.valueCount; ++v) {
      const SavedValue& sv = b.values[v];
      ToAnsi(&b.names[sv.name], sv.nameLength, &name);
      const char* data = b.data.data() + sv.data;
      uint32_t length = sv.dataLength;
      if (sv.type == REG_SZ || sv.type == REG_EXPAND_SZ || sv.type == REG_MULTI_SZ) {
        ToAnsi(data, length / 2, &text);
        data = text.data();
        length = static_cast<uint32_t>(text.size());
      }
      rec.AddValue(sv.nameLength ? name.data() : nullptr, name.size(), sv.type, data, length);
    }
    return writer->WriteRecord(start, rec);
  }

  // Subkey c of the save, opened as hs, when the key opened may be another: a link leads to its
  // target, and under WOW64 (parent, the full name of the key above, is given only then) the
  // 32-bit view may open a Wow6432Node in the key's place. The key the server names is looked up
  // in the save and written from there, or walked when the save does not hold it.
  uint64_t WriteOpened(const SavedBranch& b, uint32_t c, HKEY hs, DWORD liveSubkeys, int depth,
                       const std::u16string* parent) {
    std::u16string real;
    if (!KeyName(hs, &nameInfo, &real)) return Walk(hs, depth);
    if (parent && !b.keys[c].link) {
      std::u16string expected = *parent + u'\\';
      expected.append(&b.names[b.keys[c].name], b.keys[c].nameLength);
      if (real == expected) return WriteSaved(b, c, hs, liveSubkeys, depth, &real);
    }
    int64_t other = FindSaved(b, top, real);
    KeyInfo info;
    if (other < 0 || b.keys[size_t(other)].link || !QueryKey(hs, &info) ||
        info.values != b.keys[size_t(other)].valueCount)
      return Walk(hs, depth);
    return WriteSaved(b, uint32_t(other), hs, info.subkeys, depth, parent ? &real : nullptr);
  }

  // One root, from the platform's save where it can be had and trusted, else by the walk.
  uint64_t Root(HKEY root) {
    // Opening a root returns its pseudo handle, which the server's own calls refuse; "creating"
    // it gives a real one. Under WOW64 that would take the 32-bit view of the root key itself
    // (HKCR's Wow6432Node), where the pseudo handle stands for the key: the 64-bit access asks
    // for the key, and the counts confirm it is the one the walk would read.
    HKEY h;
    KeyInfo info, expected;
    if (!BulkSave().enumerate || !QueryKey(root, &expected) ||
        RegCreateKeyExA(root, "", 0, nullptr, 0, KEY_READ | (BulkSave().wow64 ? KEY_WOW64_64KEY : 0), nullptr, &h,
                        nullptr) != ERROR_SUCCESS)
      return Walk(root, 0);
    SavedBranch saved;
    bool bulk = QueryKey(h, &info) && info.subkeys == expected.subkeys && info.values == expected.values &&
                KeyName(h, &nameInfo, &top) && SaveBranch(h, &saved) && info.values == saved.keys[0].valueCount &&
                !saved.keys[0].link;
    uint64_t at = bulk ? WriteSaved(saved, 0, h, info.subkeys, 0, BulkSave().wow64 ? &top : nullptr) : Walk(root, 0);
    RegCloseKey(h);
    return at;
  }

  // Writes the subtree below h in post-order and returns its record's offset.
  uint64_t Walk(HKEY h, int depth) {
    uint64_t start = writer->Position();
    KeyInfo info;
    if (!QueryKey(h, &info)) info = KeyInfo();
    std::vector<std::string> names;
    if (info.subkeys && depth + 1 <= kMaxDepth) scan.Subkeys(h, info.subkeys, &names);
    std::vector<uint64_t> targets(names.size());
    for (size_t i = 0; i < names.size(); ++i) {
      if (IsUserAlias(depth, names[i])) {
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
// `damaged` tells whether a file met on the way could not be read (it may be this key's save).
bool FindSave(const std::string& folder, const std::string& canonical, std::string* path, bool* exists,
              bool* damaged = nullptr) {
  for (int probe = 0; probe < 64; ++probe) {
    *path = SaveName(folder, canonical, probe);
    if (GetFileAttributesA(path->c_str()) == INVALID_FILE_ATTRIBUTES) {
      *exists = false;
      return true;
    }
    DumpReader reader;
    int r = reader.Open(*path);
    if (r == kDumpOk && reader.label() == canonical) {
      *exists = true;
      return true;
    }
    if (r != kDumpOk && damaged) *damaged = true;
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
  BackupPrivilege backup;
  std::optional<CountPool> pool;
  if (backup.held() && BulkSave().enumerate) pool.emplace();
  DumpWalk walk{&writer, {}, {}, {}, pool ? &*pool : nullptr};
  std::string sid = CurrentUserSid();
  bool haveHkcu = false;
  for (int i = 0; i < rootCount; ++i) {
    HKEY h;
    if (RegOpenKeyExA(RootKey(roots[i]), nullptr, 0, KEY_READ, &h) != ERROR_SUCCESS) continue;
    if (roots[i] == kRootHkcu) haveHkcu = true;
    walk.userSid = roots[i] == kRootHku && haveHkcu ? sid : std::string();
    writer.SetRoot(static_cast<uint32_t>(roots[i]), pool ? walk.Root(h) : walk.Walk(h, 0));
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
  // Opened with create even when nothing below is flagged: the first side has the key, so a
  // live one deleted since (an empty key compares equal to the missing one) comes back.
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
  bool exists = false, damaged = false;
  if (!FindSave(folder, kp.Canonical(), &path, &exists, &damaged) || !exists)
    return damaged ? ERROR_INVALID_DATA : ERROR_FILE_NOT_FOUND;
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
    r = UpdateLive(saved);
  }
  FreeTree(live);
  FreeTree(saved);
  return r;
}

}  // namespace marlow
