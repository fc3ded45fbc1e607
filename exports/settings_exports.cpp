// Settings exports: the schedule values of ORVALIS.INI that the user interface shows.
#include <cstdio>

#include "engine/context.h"
#include "engine/settings.h"
#include "exports/exports.h"

using namespace orvalis;

// GetMaxSnapshot () -> [ORVALIS] MaxScheduleSnapshots, default 8.
extern "C" int GetMaxSnapshot(void) {
  InitEngine();
  return ReadOrvalisInt("MaxScheduleSnapshots", 8);
}

// SetMaxSnapshot (value) -> 0. The string is written as it stands, unchecked; a non-number
// reads back as 0.
extern "C" int SetMaxSnapshot(const char* value) {
  InitEngine();
  WriteOrvalisString("MaxScheduleSnapshots", value);
  return 0;
}

// GetSchedule () -> [ORVALIS] INTERVAL, default 3. Stored for the scheduler; the engine itself
// does not act on it.
extern "C" int GetSchedule(void) {
  InitEngine();
  return ReadOrvalisInt("INTERVAL", 3);
}

// SetSchedule (value) -> 0, written as it stands.
extern "C" int SetSchedule(const char* value) {
  InitEngine();
  WriteOrvalisString("INTERVAL", value);
  return 0;
}
