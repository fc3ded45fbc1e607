// Restoring a snapshot: an undo snapshot of the live state first, then the system files, the
// registry (key trees on Windows 95/98, saved keys on NT) and the assets, always in this order;
// and the reboot that may follow.
#pragma once
#include <cstdint>

#include "store/snapshot.h"

namespace orvalis {

// The four stages over a loaded record. A failing stage is logged and never stops the later
// ones; the result is always 0. The undo snapshot is taken into the engine's folder; when the
// snapshot being restored is the previous undo base itself, it survives until the stages have
// copied from it and is deleted afterwards, so that restoring the undo base undoes the last
// restore and the new undo base can undo that in turn.
uint32_t RestoreFromSnapshot(SnapshotRecord* rec, bool registry, bool assets);

// How a restore export starts and ends: the log lines it writes of its own.
enum class RestoreFlavour { kPlain, kReboot, kDelayReboot };

// Resets the log, reads the snapshot (a name without a backslash is looked for in
// SnapshotSourceLocation) and restores it. 0 once the restore ran (whatever its stages did); 8
// without memory; the settings read's code, or 13 when no snapshot folder is set (nothing
// restored then).
uint32_t RestoreSpecifiedSnapshot(const char* snapshot, RestoreFlavour flavour);

// ---- Reboot ------------------------------------------------------------------------------------
// Seconds left in the countdown box, counted down by its timer.
extern int32_t RebootCountdown;
// Enables SeShutdownPrivilege in the engine's own token: 0 or the GetLastError value.
uint32_t EnableShutdownPrivilege();
// The modal countdown box (dialog 101 of the engine's module); returns 1 when it has closed.
int ShowRebootCountdown(void* owner);
// Requests the restart: "TORVANE.EXE /Y" beside the engine when present, otherwise ExitWindowsEx.
void RequestRestart(bool torvanePresent, const char* command);
// The restart command beside the engine and whether it is there (tested on the whole text,
// " /Y" included, as the engine always has).
bool RebootCommand(char* command, size_t size);

}  // namespace orvalis
