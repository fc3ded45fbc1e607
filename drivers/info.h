// The snapshot information document (ORVALISBCF): what one snapshot holds, for the user interface.
#pragma once
#include <cstdint>

namespace orvalis {

// snapshot: an index file name beside the engine. 0; 13 when the snapshot cannot be read; 8 no
// memory; 2 the output cannot be created (after the destination box); 29 not written whole.
uint32_t WriteSnapshotInfo(const char* snapshot, const char* output);

}  // namespace orvalis
