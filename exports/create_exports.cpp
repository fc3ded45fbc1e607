// Creation exports. Each initialises the engine (which reads the processor-probe setting) and
// hands over to the creation driver. Results: 0 (also when a stage failed: see halvern.log),
// 8 out of memory, 13 no profile or no location.
#include "drivers/create.h"
#include "engine/context.h"
#include "engine/log.h"
#include "engine/settings.h"
#include "exports/exports.h"
#include "store/snapshot.h"

using namespace orvalis;

// CreateSnapshotFromDefaultProfile (description or null): also empties the debug log and logs
// its arguments and settings.
extern "C" unsigned long CreateSnapshotFromDefaultProfile(const char* description) {
  ResetLog();
  InitEngine();
  WriteLog("CreateSnapshotFromDefault: Entered");
  WriteLog(description ? description : "");
  char profile[260], destination[260];
  GetDefaultProfile(profile);
  GetSnapshotDestinationLocation(destination);
  WriteLog("Default Profile:");
  WriteLog(profile);
  WriteLog("SnapshotLocation:");
  WriteLog(destination);
  uint32_t rc = CreateFromDefaultProfile(description, 0);
  WriteLog("Back from create snapshot");
  return rc;
}

// CreateSnapshotFromSpecifiedProfile (profile, description): a profile without a backslash is
// looked up in [PROFILE] ProfileSourceLocation.
extern "C" unsigned long CreateSnapshotFromSpecifiedProfile(const char* profile, const char* description) {
  InitEngine();
  return CreateFromSpecifiedProfile(profile, description, 0);
}

// Scheduled snapshots carry flag 0x2000 (8192 in FLAGS).
extern "C" unsigned long CreateScheduledSnapshotFromDefaultProfile(const char* description) {
  InitEngine();
  return CreateFromDefaultProfile(description, kFlagScheduled);
}

extern "C" unsigned long CreateScheduledSnapshotFromSpecifiedProfile(const char* profile, const char* description) {
  InitEngine();
  return CreateFromSpecifiedProfile(profile, description, kFlagScheduled);
}

// Initial snapshots carry flag 0x8000 (32768 in FLAGS).
extern "C" unsigned long CreateInitialSnapshotFromDefaultProfile(const char* description) {
  InitEngine();
  return CreateFromDefaultProfile(description, kFlagInitial);
}

extern "C" unsigned long CreateInitialSnapshotFromSpecifiedProfile(const char* profile, const char* description) {
  InitEngine();
  return CreateFromSpecifiedProfile(profile, description, kFlagInitial);
}
