// Turns one fuzz input into the two saved copies of a file: the bytes before the first 0xFF
// are the older copy, the rest the newer one. Both become read-only memory streams.
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace orvalis_fuzz {

constexpr uint8_t kSeparator = 0xFF;

// fmemopen refuses an empty buffer on some C libraries; an empty copy reads /dev/null.
inline FILE* OpenBytes(const uint8_t* data, size_t size) {
  if (size == 0) return std::fopen("/dev/null", "r");
  return fmemopen(const_cast<uint8_t*>(data), size, "r");
}

struct Copies {
  FILE* older = nullptr;
  FILE* newer = nullptr;
  Copies(const uint8_t* data, size_t size) {
    const void* sep = std::memchr(data, kSeparator, size);
    size_t cut = sep ? static_cast<size_t>(static_cast<const uint8_t*>(sep) - data) : size;
    older = OpenBytes(data, cut);
    newer = cut < size ? OpenBytes(data + cut + 1, size - cut - 1) : OpenBytes(data, 0);
  }
  ~Copies() {
    if (older) std::fclose(older);
    if (newer) std::fclose(newer);
  }
  bool ok() const { return older && newer; }
};

}  // namespace orvalis_fuzz
