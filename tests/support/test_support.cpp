#include "tests/support/test_support.h"

#include <cstdlib>
#include <filesystem>
#include <random>

namespace fs = std::filesystem;

namespace orvalis_test {

char PathSep() { return static_cast<char>(fs::path::preferred_separator); }

ScratchDir::ScratchDir() {
  std::random_device rd;
  std::mt19937_64 gen(rd());
  fs::path base = fs::temp_directory_path();
  for (int i = 0; i < 100; ++i) {
    char name[40];
    std::snprintf(name, sizeof name, "orvt%08llx", static_cast<unsigned long long>(gen() & 0xffffffffu));
    fs::path p = base / name;
    std::error_code ec;
    if (fs::create_directory(p, ec)) {
      path_ = p.string();
      return;
    }
  }
  std::abort();
}

ScratchDir::~ScratchDir() {
  std::error_code ec;
  fs::remove_all(path_, ec);
}

std::string ScratchDir::file(const std::string& name) const { return path_ + PathSep() + name; }

std::string ReadWholeFile(const std::string& path, bool* ok) {
  std::string out;
  FILE* f = std::fopen(path.c_str(), "rb");
  if (ok) *ok = f != nullptr;
  if (!f) return out;
  char buf[65536];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
  std::fclose(f);
  return out;
}

bool WriteWholeFile(const std::string& path, const std::string& data) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return false;
  bool good = std::fwrite(data.data(), 1, data.size(), f) == data.size();
  return std::fclose(f) == 0 && good;
}

bool FileExists(const std::string& path) {
  std::error_code ec;
  return fs::exists(path, ec);
}

std::vector<std::string> ListDir(const std::string& path) {
  std::vector<std::string> names;
  std::error_code ec;
  for (auto& e : fs::directory_iterator(path, ec)) names.push_back(e.path().filename().string());
  return names;
}

std::string NoCr(std::string text) {
  std::erase(text, '\r');
  return text;
}

std::string WrittenBy(const std::function<void(FILE*)>& write) {
  ScratchDir dir;
  FILE* f = std::fopen(dir.file("out.txt").c_str(), "w");
  write(f);
  std::fclose(f);
  return ReadWholeFile(dir.file("out.txt"));
}

}  // namespace orvalis_test
