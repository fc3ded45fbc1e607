// The result codes of the engine's exports: Win32 error numbers, so that a caller can hand them to
// FormatMessage. One list for the exports, the internals that pass a code through, and orvalis.exe.
// Inside a layer, yes/no answers are bool and a function with several outcomes lists its own small
// set where it is declared; these numbers are what crosses the export boundary.
#pragma once
#include <cstdint>

namespace orvalis {

enum Result : uint32_t {
  kResultOk = 0,
  kResultFileNotFound = 2,        // also: the "Destination file is invalid" box was shown
  kResultAccessDenied = 5,
  kResultNoMemory = 8,
  kResultInvalidData = 13,        // bad profile, location, path, companion or package
  kResultWriteFault = 29,         // a file could not be written whole (disk full); nothing was kept
  kResultInvalidParameter = 87,   // a required argument is missing
  kResultOpenFailed = 110,        // a report, list or NT registry folder cannot be opened
  kResultNotAvailable = 120,      // this build has no such operation
  kResultBadLibrary = 1154,       // a companion library cannot be loaded
};

// The words orvalis.exe prints beside a result; null for a code not listed above.
inline const char* ResultText(uint32_t code) {
  switch (code) {
    case kResultOk: return "done";
    case kResultFileNotFound: return "file not found, or the destination file is invalid";
    case kResultAccessDenied: return "access denied";
    case kResultNoMemory: return "not enough memory";
    case kResultInvalidData: return "invalid data (profile, location, path, companion or package)";
    case kResultWriteFault: return "a file could not be written whole (disk full?)";
    case kResultInvalidParameter: return "invalid parameter";
    case kResultOpenFailed: return "the output file or folder cannot be opened";
    case kResultNotAvailable: return "not available in this build of the engine";
    case kResultBadLibrary: return "a companion library cannot be loaded";
    default: return nullptr;
  }
}

}  // namespace orvalis
