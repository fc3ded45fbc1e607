// Helpers shared by the test suites: scratch folders that clean up after themselves, and small
// file utilities. Portable: used by the native and the Windows tests alike. Every test includes it
// (the Wine tests through engine_sandbox.h), and GoogleTest and the standard strings with it.
#pragma once
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace orvalis_test {

// A fresh folder under the system's temporary folder, removed with everything in it
// when the object goes out of scope.
class ScratchDir {
 public:
  ScratchDir();
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const;

 private:
  std::string path_;
};

std::string ReadWholeFile(const std::string& path, bool* ok = nullptr);
bool WriteWholeFile(const std::string& path, const std::string& data);
bool FileExists(const std::string& path);
std::vector<std::string> ListDir(const std::string& path);  // names, no "." entries
char PathSep();
std::string NoCr(std::string text);  // the text with every carriage return removed
// What write puts into a file opened in text mode, as bytes (with CR LF on Windows).
std::string WrittenBy(const std::function<void(FILE*)>& write);

}  // namespace orvalis_test
