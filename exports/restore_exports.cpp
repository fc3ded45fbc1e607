// Restoring a snapshot, with or without the reboot that follows, and the seven restore exports
// that restore nothing.
#include <windows.h>

#include "base/results.h"
#include "drivers/restore.h"
#include "engine/context.h"
#include "engine/log.h"
#include "engine/sys.h"
#include "exports/exports.h"

using namespace orvalis;

// RestoreFromSpecifiedSnapshot (snapshot): snapshot is a full path, or a name looked for in
// SnapshotSourceLocation. Takes an undo snapshot, then puts back the system files, the registry
// (key trees on Windows 95/98, saved keys on NT) and the assets kept with their contents.
// Results: 0 once the restore ran (a failing stage reaches only the log); 8 no memory; the
// settings read's code, or 13 when no snapshot folder is set; 87 for a null snapshot.
extern "C" unsigned long RestoreFromSpecifiedSnapshot(const char* snapshot) {
  if (!snapshot) return kResultInvalidParameter;
  return RestoreSpecifiedSnapshot(snapshot, RestoreFlavour::kPlain);
}

namespace {

unsigned long RestoreAndReboot(const char* snapshot, RestoreFlavour flavour) {
  if (!snapshot) return kResultInvalidParameter;
  char command[MAX_PATH];
  const bool torvane = RebootCommand(command, sizeof command);
  const uint32_t result = RestoreSpecifiedSnapshot(snapshot, flavour);
  if (result != kResultOk) return result;  // nothing was restored: no restart either
  if (flavour == RestoreFlavour::kDelayReboot) ShowRebootCountdown(Sys().GetActiveWindow());
  if (State().isWindowsNT) {
    WriteLog("RestoreFromSpecifiedSnapshotReboot: NT Checking SystemShutdown info");
    if (uint32_t r = EnableShutdownPrivilege()) return r;  // the restore is done; no restart
  }
  RequestRestart(torvane, command);
  return result;
}

}  // namespace

// RestoreFromSpecifiedSnapshotReboot (snapshot): the restore above, then the restart: on NT the
// shutdown privilege first (its failure is returned and nothing restarts), then "TORVANE.EXE /Y"
// beside the engine when it is there, otherwise ExitWindowsEx (reboot).
extern "C" unsigned long RestoreFromSpecifiedSnapshotReboot(const char* snapshot) {
  return RestoreAndReboot(snapshot, RestoreFlavour::kReboot);
}

// RestoreFromSpecifiedSnapshotDelayReboot (snapshot, delay): as above, with a countdown box of
// delay seconds before the restart (0 means 15; a negative delay waits for the button).
extern "C" unsigned long RestoreFromSpecifiedSnapshotDelayReboot(const char* snapshot, long delay) {
  RebootCountdown = delay == 0 ? 15 : static_cast<int32_t>(delay);
  return RestoreAndReboot(snapshot, RestoreFlavour::kDelayReboot);
}

// The seven exports below restore nothing: they run the engine's start-up and return its result
// (NO_CPUID_SUPPORT, so 0 with default settings). They write nothing to the log.
extern "C" unsigned long RestoreFromInitialSnapshot(void) { return static_cast<unsigned long>(InitEngine()); }
extern "C" unsigned long RestoreFromMostRecentSnapshot(void) { return static_cast<unsigned long>(InitEngine()); }
extern "C" unsigned long RestoreFromUndoSnapshot(void) { return static_cast<unsigned long>(InitEngine()); }
extern "C" unsigned long RestoreFromSpecifiedSnapshotSelect(void) { return static_cast<unsigned long>(InitEngine()); }
extern "C" unsigned long RestoreFromInitialSnapshotSelect(void) { return static_cast<unsigned long>(InitEngine()); }
extern "C" unsigned long RestoreFromMostRecentSnapshotSelect(void) {
  return static_cast<unsigned long>(InitEngine());
}
extern "C" unsigned long RestoreFromUndoSnapshotSelect(void) { return static_cast<unsigned long>(InitEngine()); }
