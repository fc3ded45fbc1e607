// Exports whose operations are not built yet. Each answers ERROR_CALL_NOT_IMPLEMENTED (120)
// so a caller can tell "not available in this build" from a failure of the operation.
#include "base/results.h"
#include "exports/exports.h"

using orvalis::kResultNotAvailable;

extern "C" unsigned long ExportSnapshot(const char*, const char*) { return kResultNotAvailable; }
extern "C" unsigned long ImportSnapshot(const char*, const char*) { return kResultNotAvailable; }
