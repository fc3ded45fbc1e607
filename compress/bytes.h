// Little-endian loads shared by the coders: the stream is read and the window compared eight
// bytes at a time. Internal to compress/.
#pragma once
#include <bit>
#include <cstdint>
#include <cstring>

namespace orvalis {

inline uint32_t Load32LE(const unsigned char* p) {
  if constexpr (std::endian::native == std::endian::little) {
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
  }
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

inline uint64_t Load64LE(const unsigned char* p) {
  uint64_t v = 0;
  if constexpr (std::endian::native == std::endian::little) {
    std::memcpy(&v, p, 8);
  } else {
    for (int i = 7; i >= 0; --i) v = v << 8 | p[i];
  }
  return v;
}

}  // namespace orvalis
