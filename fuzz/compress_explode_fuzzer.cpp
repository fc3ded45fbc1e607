// Explode on arbitrary bytes: it must end with a verdict, never read or write out of bounds,
// and whatever it accepts must survive implode and explode again unchanged.
#include <cstdlib>

#include "compress/coder_mem.h"
#include "compress/explode.h"
#include "compress/implode.h"
#include "fuzz/coder_fuzz_io.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Odd sizes trickle in small reads, to reach the decoder's byte-wise refill everywhere.
  Pieces p{data, size, size % 2 ? 1 + size % 61 : 4096, {}};
  static unsigned char work[orvalis::kExplodeWorkSize];
  int rc = orvalis::Explode(Read, Write, work, sizeof work, &p);
  if (rc != orvalis::kExplodeOk && rc != orvalis::kExplodeTruncated && rc != orvalis::kExplodeBadLiteralMode &&
      rc != orvalis::kExplodeBadDictionary && rc != orvalis::kExplodeBadDistance) std::abort();
  // Every token takes at least 5 bits and gives at most 518 bytes.
  if (p.out.size() > (size * 8 / 5 + 1) * 518) std::abort();
  if (rc == orvalis::kExplodeOk && size >= 2) {
    std::string packed, back;
    if (orvalis::ImplodeMemory(p.out.data(), p.out.size(), &packed, data[0], 64 << data[1]) != 0) std::abort();
    if (orvalis::ExplodeMemory(packed.data(), packed.size(), &back) != 0 || back != p.out) std::abort();
  }
  return 0;
}
