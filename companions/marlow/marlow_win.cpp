// MARLOW.DLL: the registry-tree entry points. The live registry is read and written here; the
// dump format and the trees are the portable regdump/regtree.
#include <windows.h>

#include <sddl.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
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
// The account this process runs as, as its token names it; sid() is null when it cannot be read.
class ProcessUser {
 public:
  ProcessUser() {
    HANDLE token;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) return;
    DWORD len = 0;
    ok_ = GetTokenInformation(token, TokenUser, &buf_, sizeof buf_, &len);
    CloseHandle(token);
  }
  PSID sid() const { return ok_ ? buf_.user.User.Sid : nullptr; }

 private:
  union {
    TOKEN_USER user;
    unsigned char raw[512];
  } buf_;
  bool ok_ = false;
};

std::string CurrentUserSid() {
  ProcessUser user;
  std::string sid;
  char* text = nullptr;
  if (user.sid() && ConvertSidToStringSidA(user.sid(), &text)) {
    sid = text;
    LocalFree(text);
  }
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
// every value; NtSaveKey (the call behind RegSaveKey) hands over a whole root in one. The save
// leaves out volatile keys (and everything below them): they show in the counts the server
// gives per key through its parent (NtEnumerateKey with KeyFullInformation: the subkey's own
// subkey and value counts), and wherever the live counts differ from the save's, that subtree is
// walked instead. That costs
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
  LONG(WINAPI* save)(HANDLE, HANDLE) = nullptr;
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
    c.save = reinterpret_cast<decltype(c.save)>(reinterpret_cast<void*>(GetProcAddress(ntdll, "NtSaveKey")));
    if (!c.query || !c.save) c.enumerate = nullptr;
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

// Security attributes that give the current user alone access to a new file: a save holds a
// whole branch of the registry, and Wine gives such a file no permissions for others.
class OwnerOnly {
 public:
  OwnerOnly() {
    ProcessUser user;  // the ACE keeps a copy of the SID
    auto* acl = reinterpret_cast<ACL*>(acl_);
    if (user.sid() && InitializeAcl(acl, sizeof acl_, ACL_REVISION) &&
        AddAccessAllowedAce(acl, ACL_REVISION, GENERIC_ALL, user.sid()) &&
        InitializeSecurityDescriptor(&sd_, SECURITY_DESCRIPTOR_REVISION) && SetSecurityDescriptorDacl(&sd_, TRUE, acl, FALSE))
      attributes_ = {sizeof attributes_, &sd_, FALSE};
  }
  SECURITY_ATTRIBUTES* get() { return attributes_.nLength ? &attributes_ : nullptr; }
  OwnerOnly(const OwnerOnly&) = delete;
  OwnerOnly& operator=(const OwnerOnly&) = delete;

 private:
  alignas(8) unsigned char acl_[512];
  SECURITY_DESCRIPTOR sd_{};
  SECURITY_ATTRIBUTES attributes_{};
};

// The folders a save may go to, best first: the host's RAM-backed /dev/shm when it has room
// (the text is read once and deleted, and on a disk the host may start writing it out before
// that), then the temp folder. Returns how many were filled in.
int SaveFolders(char (*dirs)[MAX_PATH]) {
  int count = 0;
  using DosName = WCHAR*(CDECL*)(const char*);
  static const DosName dosName = reinterpret_cast<DosName>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("kernel32.dll"), "wine_get_dos_file_name")));
  if (WCHAR* shm = dosName ? dosName("/dev/shm/") : nullptr) {
    ULARGE_INTEGER avail{}, total, free;
    int n = WideCharToMultiByte(CP_ACP, 0, shm, -1, dirs[0], MAX_PATH, nullptr, nullptr);
    if (n > 0 && GetDiskFreeSpaceExA(dirs[0], &avail, &total, &free) && avail.QuadPart >= (1ull << 30)) ++count;
    HeapFree(GetProcessHeap(), 0, shm);
  }
  DWORD n = GetTempPathA(MAX_PATH, dirs[count]);
  if (n && n < MAX_PATH) ++count;
  return count;
}

// Saves the key behind h to a new file in dir and reads it back: kSavedText; kNoRoom when the
// file could not be made or written (another folder may do); kUnreadable when the save is not
// in Wine's format. The file is ours from the start and deleted when its handle closes, so nothing
// is left behind whatever happens; the text is read through a mapping, not copied.
enum SaveResult { kSavedText, kNoRoom, kUnreadable };
SaveResult SaveBranchIn(const char* dir, HKEY h, SavedBranch* out) {
  OwnerOnly owner;
  char path[MAX_PATH];
  HANDLE file = INVALID_HANDLE_VALUE;
  UINT unique = (GetTickCount() ^ (GetCurrentThreadId() << 12)) & 0xFFFF;
  for (int attempt = 0; attempt < 64 && file == INVALID_HANDLE_VALUE; ++attempt) {
    if (!GetTempFileNameA(dir, "mrl", ((unique + UINT(attempt)) & 0xFFFF) | 1, path)) return kNoRoom;
    file = CreateFileA(path, GENERIC_READ | GENERIC_WRITE, 0, owner.get(), CREATE_NEW,
                       FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (file == INVALID_HANDLE_VALUE && GetLastError() != ERROR_FILE_EXISTS) return kNoRoom;
  }
  if (file == INVALID_HANDLE_VALUE) return kNoRoom;
  SaveResult result = kNoRoom;
  bool ok = false;
  LARGE_INTEGER size{};
  if (BulkSave().save(h, file) == 0 && GetFileSizeEx(file, &size) && size.QuadPart > 0 &&
      uint64_t(size.QuadPart) < SIZE_MAX / 2) {
    result = kUnreadable;
    if (HANDLE map = CreateFileMappingA(file, nullptr, PAGE_READONLY, 0, 0, nullptr)) {
      if (const void* view = MapViewOfFile(map, FILE_MAP_READ, 0, 0, 0)) {
        try {
          ok = ParseWineSave(std::string_view(static_cast<const char*>(view), size_t(size.QuadPart)), out);
        } catch (const std::bad_alloc&) {
          *out = SavedBranch();  // the walk needs far less memory than the save's copy
        }
        UnmapViewOfFile(view);
      }
      CloseHandle(map);
    }
  }
  CloseHandle(file);
  return ok ? kSavedText : result;
}

bool SaveBranch(HKEY h, SavedBranch* out) {
  char dirs[2][MAX_PATH];
  int count = SaveFolders(dirs);
  for (int i = 0; i < count; ++i) {
    SaveResult r = SaveBranchIn(dirs[i], h, out);
    if (r != kNoRoom) return r == kSavedText;
  }
  return false;
}

// UTF-16 from the save to the ANSI form the A calls of the walk return. False when a character
// has no ANSI form: a key of that name cannot be opened by it, so the walk must meet it as it is.
bool ToAnsi(const void* utf16, size_t units, std::string* out) {
  out->clear();
  if (!units) return true;
  // Nearly every name and string is ASCII, which every ANSI code page keeps as it is: that
  // needs no call. Four units at a time while all four are ASCII (the data may be unaligned).
  const auto* bytes = static_cast<const unsigned char*>(utf16);
  out->resize(units);
  char* to = out->data();
  size_t i = 0;
  for (uint64_t four; i + 4 <= units; i += 4) {
    std::memcpy(&four, bytes + 2 * i, 8);
    if (four & 0xFF80FF80FF80FF80ull) break;
    to[i] = char(four), to[i + 1] = char(four >> 16), to[i + 2] = char(four >> 32), to[i + 3] = char(four >> 48);
  }
  for (; i < units && bytes[2 * i] < 0x80 && !bytes[2 * i + 1]; ++i) to[i] = char(bytes[2 * i]);
  if (i == units) return true;
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

// HKEY_USERS' key of the current user, which the dump points to HKEY_CURRENT_USER's (sid is
// empty for every other root).
bool IsCurrentUser(const std::string& sid, int depth, const std::string& name) {
  return depth == 0 && !sid.empty() && NamesEqual(name.data(), name.size(), sid.data(), sid.size());
}

// A root's save, kept while the roots after it are dumped: in Wine HKEY_CLASSES_ROOT and
// HKEY_CURRENT_CONFIG are keys of HKEY_LOCAL_MACHINE, so its save holds them too, and the
// records written for its keys serve them again. Which keys a subtree shows depends only on
// the key it starts at (its links and, under WOW64, its 32-bit view go with the key), so a
// record is reused wherever the same saved key comes up again, unless the nesting limit could
// have cut the two differently.
struct KeptSave {
  static constexpr uint64_t kNone = ~uint64_t(0);
  SavedBranch branch;
  std::u16string top;  // the saved key's full name
  struct Written {
    uint64_t record = kNone;
    uint16_t depth = 0;
  };
  std::vector<Written> written;  // per saved key
  volatile bool cut = false;     // some subtree was cut at the nesting limit: no reuse

  // The record already written for saved key `key`, for a key at `depth`; kNone if there is none.
  uint64_t Reusable(int64_t key, int depth) const {
    if (cut || key < 0 || size_t(key) >= written.size()) return kNone;
    const Written& w = written[size_t(key)];
    return depth <= w.depth ? w.record : kNone;
  }
};

// Every key below a root as the dump will write it, settled before anything is written.
struct PlanKey {
  enum Kind : uint8_t { kSaved, kWalk, kAlias, kEmpty, kWritten };
  Kind kind = kEmpty;
  bool ownsHandle = true;
  uint16_t depth = 0;
  uint32_t index = 0;  // its place among the parent's live subkeys
  uint32_t childCount = 0;
  volatile LONG unvisited = 0;  // subkeys whose visit still needs h
  int64_t saved = -1;           // kSaved: the save's key it is written from
  uint64_t record = 0;          // kWritten: the record an earlier root wrote for the same key
  HKEY h = nullptr;             // open while its subkeys are visited; kWalk: until it is walked
  PlanKey* parent = nullptr;
  std::string name;  // as the walk's A calls return it
  std::unique_ptr<PlanKey[]> children;
  std::u16string real;  // under WOW64: the key's full name as the server knows it
};

// Closes the key's handle where the plan opened it.
void CloseOwn(PlanKey* k) {
  if (k->ownsHandle && k->h) RegCloseKey(k->h);
  k->h = nullptr;
}

void CloseAll(PlanKey* k) {
  CloseOwn(k);
  for (uint32_t i = 0; i < k->childCount; ++i) CloseAll(&k->children[i]);
}

// Visits the keys below a root with a few threads at once. A visit is a handful of round trips
// to the wine server: the key's counts asked through its parent and, for a key with subkeys, its
// opening. One thread alone leaves the server idle between its requests, and when the two run on
// different processors every request pays for waking the other one; with several requests in
// flight the server goes from one to the next (measured unpinned on one machine, the whole dump:
// 12 s asking alone, 6.4-8.3 s with only the counts shared out, 2.2-2.7 s with every visit shared
// by six threads). The threads wait on the
// process's own lock and condition variable, which need no server round trip; where those calls
// are missing the caller visits alone.
class SavePlan {
 public:
  SavePlan(KeptSave* kept, const std::string& userSid)
      : kept_(*kept), b_(kept->branch), top_(kept->top), userSid_(userSid) {}

  // Settles every key below root, which is open with liveSubkeys subkeys. False when memory ran
  // out: the handles left open are closed by CloseAll.
  bool Settle(PlanKey* root, DWORD liveSubkeys) {
    const SyncCalls& sync = Sync();
    HANDLE threads[kWorkers];
    int started = 0;
    try {
      Scratch mine;
      Expand(root, liveSubkeys, &mine);
      // Locked from here on: a worker takes keys as soon as it starts. A process held to one
      // processor gains nothing from them: its threads only take turns.
      DWORD_PTR allowed = 0, system = 0;
      threaded_ = sync.sleep && GetProcessAffinityMask(GetCurrentProcess(), &allowed, &system) && (allowed & (allowed - 1));
      for (; threaded_ && started < kWorkers; ++started)
        if (!(threads[started] = CreateThread(nullptr, 128 * 1024, &SavePlan::Worker, this, 0, nullptr))) break;
      threaded_ = started > 0;
      Visits(&mine);
    } catch (...) {
      failed_ = true;
      Visits(nullptr);
    }
    if (started) WaitForMultipleObjects(DWORD(started), threads, TRUE, INFINITE);
    for (int i = 0; i < started; ++i) CloseHandle(threads[i]);
    return !failed_;
  }

 private:
  static constexpr int kWorkers = 6;

  struct Scratch {
    KeyScan scan;
    std::vector<unsigned char> nameInfo = std::vector<unsigned char>(65536);
    unsigned char info[1024];
    std::string savedName;
  };

  // The kernel's lock and condition variable calls, looked up: Windows XP has none.
  struct SyncCalls {
    void(WINAPI* acquire)(void*) = nullptr;
    void(WINAPI* release)(void*) = nullptr;
    BOOL(WINAPI* sleep)(void*, void*, DWORD, ULONG) = nullptr;
    void(WINAPI* wakeAll)(void*) = nullptr;
  };
  static const SyncCalls& Sync() {
    static const SyncCalls calls = [] {
      SyncCalls c;
      HMODULE k = GetModuleHandleA("kernel32.dll");
      auto get = [k](auto* fn, const char* name) {
        *fn = reinterpret_cast<std::remove_reference_t<decltype(*fn)>>(reinterpret_cast<void*>(GetProcAddress(k, name)));
        return *fn != nullptr;
      };
      if (!(get(&c.acquire, "AcquireSRWLockExclusive") && get(&c.release, "ReleaseSRWLockExclusive") &&
            get(&c.sleep, "SleepConditionVariableSRW") && get(&c.wakeAll, "WakeAllConditionVariable")))
        c = SyncCalls();
      return c;
    }();
    return calls;
  }
  void Lock() {
    if (threaded_) Sync().acquire(&lock_);
  }
  void Unlock() {
    if (threaded_) Sync().release(&lock_);
  }

  static DWORD WINAPI Worker(void* self) {
    auto* plan = static_cast<SavePlan*>(self);
    try {
      Scratch scratch;
      plan->Visits(&scratch);
    } catch (...) {
      plan->failed_ = true;
      plan->Visits(nullptr);
    }
    return 0;
  }

  // Takes keys off the stack until every visit has ended. Without scratch (memory ran out) the
  // keys are only counted off, so that the other threads end too.
  void Visits(Scratch* s) {
    Lock();
    for (;;) {
      while (stack_.empty() && outstanding_ > 0) Sync().sleep(&cv_, &lock_, INFINITE, 0);
      if (stack_.empty()) break;
      PlanKey* k = stack_.back();
      stack_.pop_back();
      Unlock();
      if (s && !failed_) {
        try {
          Visit(k, s);
        } catch (...) {
          failed_ = true;
        }
      }
      Lock();
      if (--outstanding_ == 0 && threaded_) Sync().wakeAll(&cv_);
    }
    Unlock();
  }

  // The key's live counts decide: a key the save holds as it is needs no more (nor opening, when
  // nothing is below it on either side); one whose values differ is walked; a link is looked up
  // by the name of the key it leads to.
  void Visit(PlanKey* k, Scratch* s) {
    PlanKey* parent = k->parent;
    ULONG got = 0;
    LONG st = BulkSave().enumerate(parent->h, k->index, kKeyFullInformation, s->info, sizeof s->info, &got);
    KeyFullInfo live{};
    std::memcpy(&live, s->info, sizeof live);
    // 0x80000005: the class name did not fit; the counts did.
    bool ok = (st == 0 || st == LONG(0x80000005)) && got >= kKeyFullInfoFixed;
    const SavedKey* child = k->saved >= 0 ? &b_.keys[size_t(k->saved)] : nullptr;
    bool asSaved = child && ok && (child->link || live.values == child->valueCount);
    bool leaf = asSaved && !child->link && !live.subKeys && child->children.empty();
    HKEY hs = nullptr;
    LONG opened = leaf ? ERROR_SUCCESS : RegOpenKeyExA(parent->h, k->name.c_str(), 0, KEY_READ, &hs);
    if (InterlockedDecrement(&parent->unvisited) == 0) CloseOwn(parent);
    if (leaf) {
      k->kind = PlanKey::kSaved;
    } else if (opened != ERROR_SUCCESS) {
      k->kind = PlanKey::kEmpty;  // unreadable: an empty key, as the walk records it
    } else {
      k->h = hs;
      k->kind = asSaved ? PlanKey::kSaved : PlanKey::kWalk;
      if (!asSaved) return;
      if (!parent->real.empty() || child->link) Opened(k, live.subKeys, s);
      else Expand(k, live.subKeys, s);
    }
  }

  // A key that may be another than its name says: a link leads to its target, and under WOW64
  // the 32-bit view may open a Wow6432Node in the key's place. The key the server names is looked
  // up in the save and taken from there, or walked when the save does not hold it.
  void Opened(PlanKey* k, DWORD liveSubkeys, Scratch* s) {
    const std::u16string* parentReal = k->parent->real.empty() ? nullptr : &k->parent->real;
    std::u16string real;
    k->kind = PlanKey::kWalk;
    if (!KeyName(k->h, &s->nameInfo, &real)) return;
    const SavedKey& c = b_.keys[size_t(k->saved)];
    if (parentReal && !c.link) {
      std::u16string expected = *parentReal + u'\\';
      expected.append(&b_.names[c.name], c.nameLength);
      if (real == expected) {
        k->kind = PlanKey::kSaved;
        k->real = std::move(real);
        Expand(k, liveSubkeys, s);
        return;
      }
    }
    int64_t other = FindSaved(b_, top_, real);
    KeyInfo info;
    if (other < 0 || b_.keys[size_t(other)].link || !QueryKey(k->h, &info) ||
        info.values != b_.keys[size_t(other)].valueCount)
      return;
    k->kind = PlanKey::kSaved;
    k->saved = other;
    if (parentReal) k->real = std::move(real);
    Expand(k, info.subkeys, s);
  }

  // Names k's subkeys and puts them up for visiting; k's handle stays open until the last of
  // them has used it.
  void Expand(PlanKey* k, DWORD liveSubkeys, Scratch* s) {
    uint64_t earlier = kept_.Reusable(k->saved, k->depth);
    if (earlier != KeptSave::kNone) {
      k->kind = PlanKey::kWritten;
      k->record = earlier;
      return CloseOwn(k);
    }
    if (liveSubkeys && k->depth + 1 > kMaxDepth) kept_.cut = true;
    std::vector<std::string> names;
    // saved[j]: the save's subkey at live index j, or -1 for one the save left out or whose name
    // has no ANSI form.
    std::vector<int64_t> saved;
    const SavedKey& key = b_.keys[size_t(k->saved)];
    if (liveSubkeys && k->depth + 1 <= kMaxDepth) {
      if (liveSubkeys == key.children.size()) {
        names.resize(liveSubkeys);
        saved.assign(liveSubkeys, -1);
        for (size_t j = 0; j < liveSubkeys; ++j) {
          const SavedKey& child = b_.keys[key.children[j]];
          if (ToAnsi(&b_.names[child.name], child.nameLength, &names[j])) saved[j] = key.children[j];
        }
      } else {
        // Volatile subkeys among them: the live names, matched to the save's in their common order.
        s->scan.Subkeys(k->h, liveSubkeys, &names);
        saved.assign(names.size(), -1);
        size_t c = 0;
        for (size_t j = 0; j < names.size() && c < key.children.size(); ++j) {
          for (size_t probe = c; probe < key.children.size(); ++probe) {
            const SavedKey& child = b_.keys[key.children[probe]];
            if (ToAnsi(&b_.names[child.name], child.nameLength, &s->savedName) &&
                NamesEqual(s->savedName.data(), s->savedName.size(), names[j].data(), names[j].size())) {
              saved[j] = key.children[probe];
              c = probe + 1;
              break;
            }
          }
        }
      }
    }
    LONG visits = 0;
    if (!names.empty()) {
      k->children.reset(new PlanKey[names.size()]);
      k->childCount = uint32_t(names.size());
      for (uint32_t j = 0; j < k->childCount; ++j) {
        PlanKey& c = k->children[j];
        c.parent = k;
        c.index = j;
        c.depth = uint16_t(k->depth + 1);
        c.saved = saved[j];
        c.name = std::move(names[j]);
        if (IsCurrentUser(userSid_, k->depth, c.name))
          c.kind = PlanKey::kAlias;
        else
          ++visits;
      }
    }
    if (!visits) return CloseOwn(k);
    k->unvisited = visits;
    Lock();
    try {
      for (uint32_t j = 0; j < k->childCount; ++j)
        if (k->children[j].kind != PlanKey::kAlias) {
          stack_.push_back(&k->children[j]);
          ++outstanding_;
        }
    } catch (...) {
      failed_ = true;  // the keys not put up keep k open; CloseAll closes it
    }
    if (threaded_) Sync().wakeAll(&cv_);
    Unlock();
  }

  KeptSave& kept_;
  const SavedBranch& b_;
  const std::u16string& top_;
  const std::string& userSid_;
  void* lock_ = nullptr;  // SRWLOCK and CONDITION_VARIABLE: one pointer each, zero when free
  void* cv_ = nullptr;
  bool threaded_ = false;
  volatile bool failed_ = false;
  std::vector<PlanKey*> stack_;
  long outstanding_ = 0;
};

struct DumpWalk {
  DumpWriter* writer = nullptr;
  KeyScan scan;
  std::string userSid;  // non-empty while walking HKEY_USERS
  RecordBuilder rec;
  bool bulk = false;  // the platform's save may be used
  std::vector<unsigned char> nameInfo = std::vector<unsigned char>(65536);  // one key's full name
  std::vector<std::unique_ptr<KeptSave>> kept;  // the saves of the roots dumped so far
  KeptSave* writing = nullptr;                  // the save being written from
  std::string name, text;                       // one value's name and string, as written

  bool IsUserAlias(int depth, const std::string& name) const { return IsCurrentUser(userSid, depth, name); }

  // Writes a settled key in post-order.
  uint64_t WritePlanned(PlanKey* k) {
    switch (k->kind) {
      case PlanKey::kAlias: return kAliasBit | kRootHkcu;
      case PlanKey::kWritten: return k->record;
      case PlanKey::kEmpty: rec.Clear(); return writer->WriteRecord(writer->Position(), rec);
      case PlanKey::kWalk: {
        uint64_t at = Walk(k->h, k->depth);
        CloseOwn(k);
        return at;
      }
      case PlanKey::kSaved: break;
    }
    uint64_t start = writer->Position();
    std::vector<uint64_t> targets(k->childCount);
    for (uint32_t j = 0; j < k->childCount; ++j) targets[j] = WritePlanned(&k->children[j]);
    rec.Clear();
    for (uint32_t j = 0; j < k->childCount; ++j) rec.AddChild(k->children[j].name.data(), k->children[j].name.size(), targets[j]);
    const SavedBranch& b = writing->branch;
    const SavedKey& key = b.keys[size_t(k->saved)];
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
    uint64_t at = writer->WriteRecord(start, rec);
    KeptSave::Written& w = writing->written[size_t(k->saved)];
    if (w.record == KeptSave::kNone || w.depth < k->depth) w = {at, k->depth};
    return at;
  }

  // A real handle to a root's key, which the server's own calls need: opening a root with an
  // empty name returns its pseudo handle, which they refuse, and "creating" it gives a real one.
  // HKCR and HKCC are opened as the machine keys they stand for instead, because Wine's server
  // takes that "creation" of either as a change: 30 s later it writes the machine's whole
  // registry file out again (0.4 s of its time with a large registry), though nothing changed.
  // Under WOW64 the 64-bit access asks for the key itself, not its 32-bit view (HKCR's
  // Wow6432Node), as the pseudo handle does. The caller's counts confirm it is the key the walk
  // would read.
  static LONG OpenRootKey(HKEY root, HKEY* h) {
    REGSAM access = KEY_READ | (BulkSave().wow64 ? KEY_WOW64_64KEY : 0);
    if (root == HKEY_CLASSES_ROOT) return RegOpenKeyExA(HKEY_LOCAL_MACHINE, "Software\\Classes", 0, access, h);
    if (root == HKEY_CURRENT_CONFIG)
      return RegOpenKeyExA(HKEY_LOCAL_MACHINE, "System\\CurrentControlSet\\Hardware Profiles\\Current", 0, access, h);
    return RegCreateKeyExA(root, "", 0, nullptr, 0, access, nullptr, h, nullptr);
  }

  // One root, from the platform's save where it can be had and trusted, else by the walk.
  uint64_t Root(HKEY root) {
    HKEY h;
    KeyInfo info, expected;
    if (!BulkSave().enumerate || !QueryKey(root, &expected) || OpenRootKey(root, &h) != ERROR_SUCCESS)
      return Walk(root, 0);
    PlanKey plan;
    plan.kind = PlanKey::kSaved;
    plan.h = h;
    plan.ownsHandle = false;
    struct Handles {  // closed however this is left, memory running out included
      PlanKey* plan;
      HKEY root;
      ~Handles() {
        CloseAll(plan);
        RegCloseKey(root);
      }
    } handles{&plan, h};
    std::u16string top;
    bool ok = QueryKey(h, &info) && info.subkeys == expected.subkeys && info.values == expected.values &&
              KeyName(h, &nameInfo, &top);
    // A root inside one dumped before is taken from that one's save.
    KeptSave* save = nullptr;
    for (size_t i = 0; ok && !save && i < kept.size(); ++i)
      if ((plan.saved = FindSaved(kept[i]->branch, kept[i]->top, top)) >= 0) save = kept[i].get();
    if (ok && !save) {
      auto fresh = std::make_unique<KeptSave>();
      if ((ok = SaveBranch(h, &fresh->branch))) {
        fresh->top = top;
        fresh->written.resize(fresh->branch.keys.size());
        plan.saved = 0;
        kept.push_back(std::move(fresh));
        save = kept.back().get();
      }
    }
    uint64_t at = KeptSave::kNone;
    if (ok) {
      const SavedKey& key = save->branch.keys[size_t(plan.saved)];
      ok = info.values == key.valueCount && !key.link;
      at = ok ? save->Reusable(plan.saved, 0) : at;
    }
    if (ok && at == KeptSave::kNone) {
      if (BulkSave().wow64) plan.real = top;
      writing = save;
      ok = SavePlan(save, userSid).Settle(&plan, info.subkeys);
      at = ok ? WritePlanned(&plan) : at;
      writing = nullptr;
    }
    if (!ok) at = Walk(root, 0);
    return at;
  }

  // Writes the subtree below h in post-order and returns its record's offset.
  uint64_t Walk(HKEY h, int depth) {
    uint64_t start = writer->Position();
    KeyInfo info;
    if (!QueryKey(h, &info)) info = KeyInfo();
    std::vector<std::string> names;
    if (info.subkeys && depth + 1 <= kMaxDepth) scan.Subkeys(h, info.subkeys, &names);
    else if (info.subkeys && writing) writing->cut = true;
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
  DumpWalk walk;
  walk.writer = &writer;
  walk.bulk = backup.held() && BulkSave().enumerate;
  std::string sid = CurrentUserSid();
  bool haveHkcu = false;
  for (int i = 0; i < rootCount; ++i) {
    HKEY h;
    if (RegOpenKeyExA(RootKey(roots[i]), nullptr, 0, KEY_READ, &h) != ERROR_SUCCESS) continue;
    if (roots[i] == kRootHkcu) haveHkcu = true;
    walk.userSid = roots[i] == kRootHku && haveHkcu ? sid : std::string();
    try {
      writer.SetRoot(static_cast<uint32_t>(roots[i]), walk.bulk ? walk.Root(h) : walk.Walk(h, 0));
    } catch (const std::bad_alloc&) {
      RegCloseKey(h);
      writer.Abort();  // no half dump is left behind
      return ERROR_NOT_ENOUGH_MEMORY;
    }
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
