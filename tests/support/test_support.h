// Helpers shared by the test suites: scratch folders that clean up after themselves,
// and small file utilities. Portable: used by the native and the Windows tests alike.
#pragma once
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
  // path() + separator + name
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

}  // namespace orvalis_test
