// Windows test support: an engine sandbox for tests that link the engine's internals.
// Each sandbox has its own scratch folder that stands in as the engine's module folder
// (the seam's GetModuleFileNameA answers "<scratch>\HALVERN.DLL"; every other call is real),
// its own registry subtree standing in for HKEY_LOCAL_MACHINE (RegOverridePredefKey, removed
// afterwards), and the message texts library beside it. On teardown the seam, the engine state
// and the current directory are put back and everything is removed.
#pragma once
#include <windows.h>

#include "tests/support/test_support.h"

namespace orvalis_test {

// The build's bin folder (HALVERN.DLL and the companion libraries) as a Windows path.
std::string BinDir();
// CTest runs some exes twice, once with Wine playing Windows 98 (ORVALIS_WINVER=win98).
inline bool OnWindows9x() { return (GetVersion() & 0x80000000u) != 0; }
// The lines between [NAME_START] and [NAME_END] of an index file's text, "<none>" without them.
std::string IndexSection(const std::string& index, const std::string& name);

class EngineSandbox {
 public:
  EngineSandbox();
  ~EngineSandbox();
  EngineSandbox(const EngineSandbox&) = delete;
  EngineSandbox& operator=(const EngineSandbox&) = delete;

  const std::string& dir() const { return scratch_.path(); }
  std::string file(const std::string& name) const { return scratch_.file(name); }
  void MakeDirs(std::initializer_list<const char*> names) const;
  // halvern.log without carriage returns, and the UNDOBASE setting.
  std::string Log() const;
  std::string UndoBase() const;

  // Puts the real calls back into the seam, except the module path that stays the sandbox's.
  // Tests use this instead of orvalis::ResetSys().
  void RestoreSeam();

  // Helpers on the redirected HKEY_LOCAL_MACHINE.
  void SetHklmString(const char* key, const char* value, const char* data);
  // A file of the bin folder (e.g. "TAMBRELL.DLL") into the module folder.
  void CopyFromBin(const char* name, const char* as = nullptr);
  // The seam's GetWindowsDirectoryA answers this folder (where USER.DAT and SYSTEM.DAT lie on
  // Windows 95/98) until RestoreSeam.
  void SetWindowsFolder(const std::string& folder);
  // Takes the registry and asset libraries out of the module folder again (the sandbox puts them
  // there, as every snapshot needs them).
  void RemoveCompanionLibraries();
  // Writes [ORVALIS] key=value into ORVALIS.INI of the module folder.
  void SetOrvalis(const char* key, const char* value);
  // The seam's MessageBoxA answers IDOK at once; the text given shows the last box as "text|title".
  const std::string& CaptureMessageBoxes();

 private:
  ScratchDir scratch_;
  std::string hklm_;
  HKEY override_ = nullptr;
  char cwd_[MAX_PATH] = "";
};

// A fresh key under HKEY_CURRENT_USER\Software\OrvalisTest, removed with its subtree afterwards.
// Subkeys are named relative to it ("" for the key itself).
class TestKey {
 public:
  explicit TestKey(const char* tag);
  ~TestKey();
  TestKey(const TestKey&) = delete;
  TestKey& operator=(const TestKey&) = delete;
  const std::string& path() const { return path_; }  // below HKEY_CURRENT_USER
  std::string Full(const std::string& sub = "") const;  // "HKCU\\..." as a profile names it
  // A REG_SZ text is stored with its terminator, any other type byte for byte.
  void Set(const std::string& sub, const char* name, const std::string& data, DWORD type = REG_SZ) const;
  // The value's data as stored (a REG_SZ up to its terminator), "<none>" or "<no key>".
  std::string Get(const std::string& sub, const char* name) const;
  // One value, or the subkey with everything below it when name is null.
  void Delete(const std::string& sub, const char* name = nullptr) const;

 private:
  std::string Sub(const std::string& sub) const { return sub.empty() ? path_ : path_ + "\\" + sub; }
  std::string path_;
};

}  // namespace orvalis_test
