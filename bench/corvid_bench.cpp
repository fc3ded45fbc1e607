// CORVID.DLL speed under Wine, through its exported entry points as the engine calls them. Makes
// (once) a folder of 10,000 files of about 10 KB, 100 MB in all, of the mix a program folder holds
// (text, code-like binary, already-compressed data), then prints in one run: a plain CopyFileA of
// every file, the capture with contents beside it, the capture without contents, and reading the
// live tree (each file's CRC-32) and comparing it with the snapshot.
#include <windows.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "base/companion_api.h"

namespace {

using Clock = std::chrono::steady_clock;
double Since(Clock::time_point t) { return std::chrono::duration<double>(Clock::now() - t).count(); }

// One file's contents: a third each of text, structured binary and noise, as compressible as an
// installed program's files roughly are.
std::string Contents(unsigned seed, size_t size) {
  std::string s(size, '\0');
  unsigned r = seed * 2654435761u + 1;
  for (size_t i = 0; i < size; ++i) {
    r = r * 1103515245u + 12345u;
    switch (seed % 3) {
      case 0: s[i] = "abcdefghij klmnop\r\n=[]"[(r >> 16) % 23]; break;
      case 1: s[i] = char((i % 16 < 4) ? (r >> 24) : (i & 0x1F)); break;
      default: s[i] = char(r >> 16); break;
    }
  }
  return s;
}

bool Generate(const std::string& folder, int files, uint64_t* bytes) {
  CreateDirectoryA(folder.c_str(), nullptr);
  *bytes = 0;
  for (int i = 0; i < files; ++i) {
    char sub[MAX_PATH], path[MAX_PATH];
    std::snprintf(sub, sizeof sub, "%s\\d%02d", folder.c_str(), i / 250);
    CreateDirectoryA(sub, nullptr);
    std::snprintf(path, sizeof path, "%s\\file%05d.%s", sub, i, i % 3 == 0 ? "txt" : i % 3 == 1 ? "dll" : "cab");
    const size_t size = 4096 + (unsigned(i) * 7919u) % 12289;  // 4-16 KB, 10 KB on average
    const std::string data = Contents(unsigned(i), size);
    FILE* f = std::fopen(path, "wb");
    if (!f || std::fwrite(data.data(), 1, data.size(), f) != data.size()) return false;
    std::fclose(f);
    *bytes += size;
  }
  return true;
}

// Copies every file of folder (two levels) into target; the bytes copied.
uint64_t CopyAll(const std::string& folder, const std::string& target) {
  uint64_t bytes = 0;
  CreateDirectoryA(target.c_str(), nullptr);
  WIN32_FIND_DATAA d, f;
  HANDLE hd = FindFirstFileA((folder + "\\d*").c_str(), &d);
  if (hd == INVALID_HANDLE_VALUE) return 0;
  do {
    const std::string sub = folder + "\\" + d.cFileName, to = target + "\\" + d.cFileName;
    CreateDirectoryA(to.c_str(), nullptr);
    HANDLE hf = FindFirstFileA((sub + "\\*").c_str(), &f);
    if (hf == INVALID_HANDLE_VALUE) continue;
    do {
      if (f.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) continue;
      if (CopyFileA((sub + "\\" + f.cFileName).c_str(), (to + "\\" + f.cFileName).c_str(), FALSE)) bytes += f.nFileSizeLow;
    } while (FindNextFileA(hf, &f));
    FindClose(hf);
  } while (FindNextFileA(hd, &d));
  FindClose(hd);
  return bytes;
}

void RemoveAll(const std::string& folder) {
  WIN32_FIND_DATAA d;
  HANDLE h = FindFirstFileA((folder + "\\*").c_str(), &d);
  if (h != INVALID_HANDLE_VALUE) {
    do {
      const std::string name = d.cFileName;
      if (name == "." || name == "..") continue;
      if (d.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) RemoveAll(folder + "\\" + name);
      else DeleteFileA((folder + "\\" + name).c_str());
    } while (FindNextFileA(h, &d));
    FindClose(h);
  }
  RemoveDirectoryA(folder.c_str());
}

uint64_t FileSize(const std::string& path) {
  WIN32_FILE_ATTRIBUTE_DATA a;
  return GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &a) ? a.nFileSizeLow : 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: corvid_bench WORKFOLDER [FILES]\n");
    return 2;
  }
  const std::string work = argv[1];
  const int files = argc > 2 ? std::atoi(argv[2]) : 10000;
  HMODULE dll = LoadLibraryA("CORVID.DLL");
  auto proc = [&](const char* name) { return reinterpret_cast<void*>(GetProcAddress(dll, name)); };
  auto snap = reinterpret_cast<SnapResFromWildcardFn>(proc("_SnapResFromWildcard"));
  auto fromSnapshot = reinterpret_cast<AssetsFromSnapshotFn>(proc("_AssetsFromSnapshot"));
  auto fromLive = reinterpret_cast<AssetsFromLiveFn>(proc("_AssetsFromLive"));
  auto compare = reinterpret_cast<AssetTreeCompareFn>(proc("_AssetTreeCompare"));
  auto freeTree = reinterpret_cast<FreeAssetTreeFn>(proc("_FreeAssetTree"));
  if (!snap || !fromSnapshot || !fromLive || !compare || !freeTree) {
    std::fprintf(stderr, "CORVID.DLL not loaded\n");
    return 1;
  }
  CreateDirectoryA(work.c_str(), nullptr);
  char name[64];
  std::snprintf(name, sizeof name, "\\assets-%d", files);
  const std::string folder = work + name, copy = work + "\\copy", data = work + "\\data";
  uint64_t total = 0;
  if (GetFileAttributesA(folder.c_str()) == INVALID_FILE_ATTRIBUTES) {
    std::printf("  making %d files in %s\n", files, folder.c_str());
    if (!Generate(folder, files, &total)) return 1;
  }
  RemoveAll(copy);
  RemoveAll(data);
  CreateDirectoryA(data.c_str(), nullptr);
  const std::string index = data + "\\MASTER.IDX";

  CopyAll(folder, copy);  // warms the cache for both readers alike
  RemoveAll(copy);
  auto t = Clock::now();
  total = CopyAll(folder, copy);
  const double copySeconds = Since(t);
  const double mb = double(total) / 1e6;
  std::printf("files %d, %.1f MB, in 40 subfolders\n", files, mb);
  std::printf("CopyFileA of every file:          %6.2f s  %7.1f MB/s\n", copySeconds, mb / copySeconds);
  RemoveAll(copy);

  uint16_t result = 0;
  const std::string withContents = data + "\\AST0000.OVA", listOnly = data + "\\AST0001.OVA";
  t = Clock::now();
  int rc = snap(folder.c_str(), index.c_str(), withContents.c_str(), &result, 0x3000);
  const double captureSeconds = Since(t);
  std::printf("capture with contents (0x3000):   %6.2f s  %7.1f MB/s  (%.2f of the copy's speed; rc %d, "
              "companion %.1f MB)\n",
              captureSeconds, mb / captureSeconds, copySeconds / captureSeconds, rc,
              double(FileSize(withContents)) / 1e6);
  t = Clock::now();
  rc = snap(folder.c_str(), index.c_str(), listOnly.c_str(), &result, 0x1000);
  double s = Since(t);
  std::printf("capture without contents (0x1000): %5.2f s  %7.0f files/s  (names, sizes and times only; rc %d)\n", s,
              files / s, rc);

  t = Clock::now();
  ChangeNode* first = nullptr;
  ChangeNode* second = nullptr;
  rc = fromSnapshot(withContents.c_str(), folder.c_str(), &first, 1, 0, 0x3000);
  const double readSeconds = Since(t);
  uint16_t value = 0, scratch = 0;
  t = Clock::now();
  const int liveRc = fromLive(folder.c_str(), &second, 0x2002, &value, 0x3000);
  const double liveSeconds = Since(t);
  t = Clock::now();
  compare(&first, second, &scratch, 0x3000);
  const double compareSeconds = Since(t);
  std::printf("snapshot tree read:               %6.2f s  %7.0f files/s  (rc %d)\n", readSeconds,
              files / readSeconds, rc);
  std::printf("live tree read (with CRC-32):     %6.2f s  %7.0f files/s  (rc %d)\n", liveSeconds, files / liveSeconds,
              liveRc);
  std::printf("comparison of the two trees:      %6.2f s  (changes below the root: %s)\n", compareSeconds,
              first && (first->flags & kChangeBelow) ? "yes" : "no");
  freeTree(first);
  freeTree(second);
  RemoveAll(data);
  FreeLibrary(dll);
  return 0;
}
