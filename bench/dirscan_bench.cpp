// Directory capture and live comparison speed, under Wine: builds a tree of 100,000 files (once,
// in the given folder), then times CaptureDirectory, writing and reading back the packed listing,
// and CompareDirectory of the listing against the live disk. Prints files per second.
#include <windows.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "engine/context.h"
#include "engine/locale.h"
#include "items/dirtree/dirtree.h"

using namespace orvalis;
using Clock = std::chrono::steady_clock;

namespace {

double Seconds(Clock::time_point a, Clock::time_point b) { return std::chrono::duration<double>(b - a).count(); }

size_t CountFiles(const DirNode* d) {
  size_t n = 0;
  for (const DirNode* f = d->files; f; f = f->next) ++n;
  for (const DirNode* s = d->subdirs; s; s = s->next) n += CountFiles(s);
  return n;
}

void BuildTree(const std::string& root, int dirs, int perDir) {
  CreateDirectoryA(root.c_str(), nullptr);
  for (int d = 0; d < dirs; ++d) {
    std::string dir = root + "\\dir" + std::to_string(d / 50) ;
    CreateDirectoryA(dir.c_str(), nullptr);
    dir += "\\sub" + std::to_string(d);
    CreateDirectoryA(dir.c_str(), nullptr);
    for (int f = 0; f < perDir; ++f) {
      std::string path = dir + "\\file" + std::to_string(f) + ".dat";
      HANDLE h = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
      if (h == INVALID_HANDLE_VALUE) continue;
      DWORD w;
      WriteFile(h, path.data(), static_cast<DWORD>(f % 64), &w, nullptr);
      CloseHandle(h);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  State().instance = GetModuleHandleA(nullptr);
  InstallWindowsDateLocale();
  const std::string root = argc > 1 ? argv[1] : "C:\\orvalis-bench-tree";
  const int files = argc > 2 ? std::atoi(argv[2]) : 100000;
  const int perDir = 100;
  if (GetFileAttributesA((root + "\\done").c_str()) == INVALID_FILE_ATTRIBUTES) {
    std::printf("building a tree of %d files in %s ...\n", files, root.c_str());
    auto t0 = Clock::now();
    BuildTree(root, files / perDir, perDir);
    CloseHandle(CreateFileA((root + "\\done").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    std::printf("  built in %.1f s\n", Seconds(t0, Clock::now()));
  }
  const int rounds = 3;
  double best = 1e9;
  size_t n = 0;
  DirNode* tree = nullptr;
  for (int i = 0; i < rounds; ++i) {
    auto t0 = Clock::now();
    DirNode* t = CaptureDirectory(root.c_str());
    double s = Seconds(t0, Clock::now());
    if (!t) return 1;
    n = CountFiles(t);
    if (s < best) best = s;
    if (tree) FreeDirTree(tree);
    tree = t;
  }
  std::printf("capture:            %zu files, best of %d: %.3f s, %.0f files/s\n", n, rounds, best, n / best);

  const std::string listing = root + "-listing.OVD";
  uint32_t crc = 0;
  auto t0 = Clock::now();
  WriteDirListing(listing.c_str(), tree, 1, &crc);
  auto t1 = Clock::now();
  DirNode* back = LoadDirListing(listing.c_str(), 1);
  auto t2 = Clock::now();
  std::printf("listing write+pack: %.3f s, %.0f files/s\n", Seconds(t0, t1), n / Seconds(t0, t1));
  std::printf("listing read:       %.3f s, %.0f files/s\n", Seconds(t1, t2), n / Seconds(t1, t2));
  FreeDirTree(back);
  FreeDirTree(tree);

  best = 1e9;
  for (int i = 0; i < rounds; ++i) {
    DirCompareRecord rec{};
    rec.flags = 0xC0;
    lstrcpynA(rec.path, root.c_str(), MAX_PATH);
    lstrcpynA(rec.olderListing, listing.c_str(), MAX_PATH);
    rec.olderCompressed = 1;
    auto c0 = Clock::now();
    if (!CompareDirectory(&rec, nullptr)) return 1;
    double s = Seconds(c0, Clock::now());
    if (s < best) best = s;
    FreeDirTree(rec.tree);
  }
  std::printf("compare with disk:  best of %d: %.3f s, %.0f files/s (listing read + live walk)\n", rounds, best,
              n / best);
  DeleteFileA(listing.c_str());
  return 0;
}
