// Implode then explode: byte 0 chooses the literal mode, dictionary and level, byte 1 the read
// size the encoder is fed with; the rest is the data. The output must equal the data, and the
// stream must never be longer than coding every byte as a literal.
#include <cstdlib>

#include "compress/coder_mem.h"
#include "compress/explode.h"
#include "compress/implode.h"
#include "fuzz/coder_fuzz_io.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const int type = data[0] & 1;
  const int dict = 1024 << ((data[0] >> 1 & 3) % 3);
  const int level = data[0] & 8 ? orvalis::kImplodeOptimal : orvalis::kImplodeFast;
  const size_t chunk = data[1] < 128 ? 1 + data[1] : 65536;
  Pieces p{data + 2, size - 2, chunk, {}};
  // A work area of the wrappers' size, so the encoder's own allocation is exercised too.
  static unsigned char work[36312];
  if (orvalis::Implode(Read, Write, work, sizeof work, &p, type, dict, level) != orvalis::kImplodeOk) std::abort();
  const size_t n = size - 2;
  const size_t literalBits = type == orvalis::kImplodeBinary ? 9 : 14;
  if (p.out.size() > 2 + (n * literalBits + 16 + 7) / 8) std::abort();
  std::string back;
  if (orvalis::ExplodeMemory(p.out.data(), p.out.size(), &back) != orvalis::kExplodeOk) std::abort();
  if (back.size() != n || back.compare(0, n, reinterpret_cast<const char*>(data + 2), n) != 0) std::abort();
  return 0;
}
