// The two stream callbacks through which the implode and explode coders see their data,
// shaped like those of the DCL interface. Portable.
#pragma once
#include <cstddef>

namespace orvalis {

// Fills buf with up to size bytes and returns how many it placed there; 0 means the input
// is over (the coder does not ask again). A count above size is taken as size.
using CoderRead = unsigned (*)(char* buf, unsigned size, void* param);

// Takes size bytes (size > 0) and returns how many it took; fewer than size is a write
// failure and ends the run.
using CoderWrite = unsigned (*)(const char* buf, unsigned size, void* param);

}  // namespace orvalis
