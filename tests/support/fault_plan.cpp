#include "tests/support/fault_plan.h"

#include <windows.h>

#include <io.h>

#include <cstdio>
#include <set>

#include "engine/sys.h"

namespace orvalis_test {
namespace {

using orvalis::CoreIo;
using orvalis::SysApi;

struct State {
  CoreIo io{};
  SysApi sys{};
  std::string target;
  int n = 0;
  std::map<std::string, int> calls;
  std::set<void*> blocks;
  std::map<FILE*, bool> files;  // open files, and whether they were created by the open ("w")
  long globals = 0;
};
State* g = nullptr;

// Counts the call and says whether it is the one to fail.
bool Hit(const char* entry) {
  int c = ++g->calls[entry];
  return g->n > 0 && c == g->n && g->target == entry;
}

FILE* FFopen(const char* path, const char* mode) {
  if (Hit("fopen")) return nullptr;
  FILE* f = g->io.fopen(path, mode);
  if (f) g->files[f] = mode[0] == 'w';
  return f;
}
int FFclose(FILE* f) {
  const auto it = g->files.find(f);
  const bool created = it != g->files.end() && it->second;
  if (it != g->files.end()) g->files.erase(it);
  const bool fail = Hit("fclose");
  if (fail && created) {
    // A failed close still closes, and what the stream wrote is lost as on a full disk: a file
    // the stream created is cut to nothing.
    std::fflush(f);
    _chsize(_fileno(f), 0);
  }
  int rc = g->io.fclose(f);
  return fail ? EOF : rc;
}
int FRemove(const char* p) { return Hit("remove") ? -1 : g->io.remove(p); }
int FRename(const char* a, const char* b) { return Hit("rename") ? -1 : g->io.rename(a, b); }
void* FCalloc(size_t n, size_t s) {
  if (Hit("calloc")) return nullptr;
  void* p = g->io.calloc(n, s);
  if (p) g->blocks.insert(p);
  return p;
}
void FFree(void* p) {
  if (p) g->blocks.erase(p);
  g->io.free(p);
}

HGLOBAL WINAPI FGlobalAlloc(UINT f, SIZE_T s) {
  if (Hit("GlobalAlloc")) return nullptr;
  HGLOBAL h = g->sys.GlobalAlloc(f, s);
  if (h) ++g->globals;
  return h;
}
HGLOBAL WINAPI FGlobalFree(HGLOBAL h) {
  if (h) --g->globals;
  return g->sys.GlobalFree(h);
}
LPVOID WINAPI FGlobalLock(HGLOBAL h) { return Hit("GlobalLock") ? nullptr : g->sys.GlobalLock(h); }
// A failing Win32 call answers FALSE with the error the system would give.
BOOL Refuse(DWORD error) {
  SetLastError(error);
  return FALSE;
}
BOOL WINAPI FCopyFileA(LPCSTR a, LPCSTR b, BOOL c) {
  return Hit("CopyFileA") ? Refuse(ERROR_DISK_FULL) : g->sys.CopyFileA(a, b, c);
}
BOOL WINAPI FCreateDirectoryA(LPCSTR a, LPSECURITY_ATTRIBUTES s) {
  return Hit("CreateDirectoryA") ? Refuse(ERROR_ACCESS_DENIED) : g->sys.CreateDirectoryA(a, s);
}
BOOL WINAPI FSetFileAttributesA(LPCSTR a, DWORD v) {
  return Hit("SetFileAttributesA") ? Refuse(ERROR_ACCESS_DENIED) : g->sys.SetFileAttributesA(a, v);
}
BOOL WINAPI FWritePrivateProfileStringA(LPCSTR s, LPCSTR k, LPCSTR v, LPCSTR f) {
  return Hit("WritePrivateProfileStringA") ? Refuse(ERROR_DISK_FULL) : g->sys.WritePrivateProfileStringA(s, k, v, f);
}

}  // namespace

FaultPlan::FaultPlan() {
  g = new State;
  g->io = orvalis::Io(), g->sys = orvalis::Sys();
  CoreIo& io = orvalis::Io();
  io.fopen = FFopen, io.fclose = FFclose, io.remove = FRemove, io.rename = FRename;
  io.calloc = FCalloc, io.free = FFree;
  SysApi& s = orvalis::Sys();
  s.GlobalAlloc = FGlobalAlloc, s.GlobalFree = FGlobalFree, s.GlobalLock = FGlobalLock, s.CopyFileA = FCopyFileA;
  s.CreateDirectoryA = FCreateDirectoryA, s.SetFileAttributesA = FSetFileAttributesA;
  s.WritePrivateProfileStringA = FWritePrivateProfileStringA;
}

FaultPlan::~FaultPlan() {
  orvalis::Io() = g->io, orvalis::Sys() = g->sys;
  delete g;
  g = nullptr;
}

const std::vector<std::string>& FaultPlan::Entries() {
  static const std::vector<std::string> entries = {"fopen", "fclose", "rename", "calloc", "GlobalAlloc", "GlobalLock",
      "CopyFileA", "CreateDirectoryA", "SetFileAttributesA", "WritePrivateProfileStringA"};
  return entries;
}

void FaultPlan::Arm(const std::string& entry, int n) {
  g->target = entry, g->n = n, g->globals = 0;
  g->calls.clear(), g->blocks.clear(), g->files.clear();
}

std::map<std::string, int> FaultPlan::Calls() const { return g->calls; }
long FaultPlan::LiveBlocks() const { return static_cast<long>(g->blocks.size()) + g->globals; }
long FaultPlan::OpenFiles() const { return static_cast<long>(g->files.size()); }

}  // namespace orvalis_test
