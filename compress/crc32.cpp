#include "compress/crc32.h"

#include <array>

namespace orvalis {
namespace {

// Table 0 is the classic byte table; tables 1-7 let the loop take eight bytes per step
// ("slicing by 8"), since the wrappers run the CRC over every byte they move.
using CrcTables = std::array<std::array<uint32_t, 256>, 8>;

constexpr CrcTables MakeTables() {
  CrcTables t{};
  for (uint32_t n = 0; n < 256; ++n) {
    uint32_t c = n;
    for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
    t[0][n] = c;
  }
  for (uint32_t n = 0; n < 256; ++n)
    for (int s = 1; s < 8; ++s) t[s][n] = t[0][t[s - 1][n] & 0xFF] ^ (t[s - 1][n] >> 8);
  return t;
}

constexpr CrcTables kTables = MakeTables();
static_assert(kTables[0][1] == 0x77073096u && kTables[0][255] == 0x2D02EF8Du);

}  // namespace

uint32_t Crc32Update(uint32_t crc, const void* data, size_t len) {
  const auto* p = static_cast<const unsigned char*>(data);
  while (len >= 8) {
    // Bytes are combined explicitly, so the result does not depend on the host's byte order.
    uint32_t lo = crc ^ (uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 |
                         uint32_t(p[3]) << 24);
    crc = kTables[7][lo & 0xFF] ^ kTables[6][(lo >> 8) & 0xFF] ^ kTables[5][(lo >> 16) & 0xFF] ^
          kTables[4][lo >> 24] ^ kTables[3][p[4]] ^ kTables[2][p[5]] ^ kTables[1][p[6]] ^
          kTables[0][p[7]];
    p += 8;
    len -= 8;
  }
  while (len--) crc = kTables[0][(crc ^ *p++) & 0xFF] ^ (crc >> 8);
  return crc;
}

uint32_t Crc32(const void* data, size_t len) { return ~Crc32Update(0xFFFFFFFFu, data, len); }

}  // namespace orvalis
