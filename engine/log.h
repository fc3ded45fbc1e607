// The debug log "halvern.log": one plain line per event, the file opened and closed for every
// line so that it survives a crash or a reboot in mid-operation. Writing never fails an
// operation: an unopenable log is skipped.
#pragma once

namespace orvalis {

// Works out the log path (uninstall entry's argument folder, else the module folder) and
// empties the file. Until the first reset of the process, WriteLog writes nothing.
void ResetLog();
void WriteLog(const char* text);
// printf-style convenience; the line is cut at 1023 characters.
void WriteLogF(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace orvalis
