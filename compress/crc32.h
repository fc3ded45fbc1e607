// CRC-32 as PKZIP, zlib and the DCL tools compute it: reflected, polynomial 0xEDB88320.
// Portable.
#pragma once
#include <cstddef>
#include <cstdint>

namespace orvalis {

// Raw running update, no conditioning: start with 0xFFFFFFFF, feed the data in any number
// of pieces, complement the final value. This is the form the file wrappers keep in their
// stream state, so that a failed run can report the running value as it stood.
uint32_t Crc32Update(uint32_t crc, const void* data, size_t len);

// The complete CRC-32 of one buffer: ~Crc32Update(0xFFFFFFFF, data, len).
// Crc32("123456789", 9) == 0xCBF43926.
uint32_t Crc32(const void* data, size_t len);

}  // namespace orvalis
