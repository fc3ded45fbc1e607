// Windows test support: an engine sandbox for tests that link the engine's internals.
// Each sandbox has its own scratch folder that stands in as the engine's module folder
// (the seam's GetModuleFileNameA answers "<scratch>\HALVERN.DLL"; every other call is real),
// its own registry subtree standing in for HKEY_LOCAL_MACHINE (RegOverridePredefKey, removed
// afterwards), and the message texts library beside it. On teardown the seam, the engine state
// and the current directory are put back and everything is removed.
#pragma once
#include <windows.h>

#include <string>

#include "tests/support/test_support.h"

namespace orvalis_test {

// The build's bin folder (HALVERN.DLL and the companion libraries) as a Windows path.
std::string BinDir();
// Unix path -> Z:\ path (Wine maps / to Z:).
std::string WinPath(const std::string& unixPath);

class EngineSandbox {
 public:
  EngineSandbox();
  ~EngineSandbox();
  EngineSandbox(const EngineSandbox&) = delete;
  EngineSandbox& operator=(const EngineSandbox&) = delete;

  // The module folder, without and with the trailing backslash.
  const std::string& dir() const { return scratch_.path(); }
  std::string dirSlash() const { return scratch_.path() + "\\"; }
  std::string file(const std::string& name) const { return scratch_.file(name); }
  // The key that HKEY_LOCAL_MACHINE stands for during the test (under HKEY_CURRENT_USER).
  const std::string& hklmKey() const { return hklm_; }

  // Puts the real calls back into the seam, except the module path that stays the sandbox's.
  // Tests use this instead of orvalis::ResetSys().
  void RestoreSeam();

  // Helpers on the redirected HKEY_LOCAL_MACHINE.
  void SetHklmString(const char* key, const char* value, const char* data);
  // Copies a file of the bin folder (e.g. "TAMBRELL.DLL") into the module folder.
  void CopyFromBin(const char* name, const char* as = nullptr);
  // The seam's GetWindowsDirectoryA answers this folder (where USER.DAT and SYSTEM.DAT lie on
  // Windows 95/98) until RestoreSeam.
  void SetWindowsFolder(const std::string& folder);
  // Takes the registry and asset libraries out of the module folder again (the sandbox puts them
  // there, as every snapshot needs them).
  void RemoveCompanionLibraries();
  // Writes [section] key=value into ORVALIS.INI of the module folder.
  void SetOrvalis(const char* key, const char* value);

 private:
  ScratchDir scratch_;
  std::string hklm_;
  HKEY override_ = nullptr;
  char cwd_[MAX_PATH] = "";
};

}  // namespace orvalis_test
