// The fixed prefix codes of the PKWARE DCL implode stream, shared by the encoder and the
// decoder. Internal to compress/.
//
// Stream: byte 0 = literal mode (0 binary, 1 ASCII), byte 1 = k = log2(dictionary) - 6
// (4, 5, 6), then one LSB-first bit stream of tokens, the end marker, zero padding.
//   literal:  0, then 8 raw bits (binary) or the byte's ASCII code
//   match:    1, length code, extra length bits, distance code (high part of dist-1),
//             then 2 low bits when the length is 2, else k low bits
//   end:      a match of length 519 (length code 15, extra 0xFF)
// All three codes are canonical codes with every bit inverted, so only the code lengths
// are written down here; the bit patterns are derived at compile time.
#pragma once
#include <array>
#include <cstdint>

namespace orvalis::implode_codes {

inline constexpr int kMinMatch = 2;
inline constexpr int kMaxMatch = 518;
inline constexpr int kEndLength = 519;
inline constexpr int kMaxDict = 4096;
inline constexpr int kMaxDistLen2 = 256;  // length-2 matches always use 2 low bits

inline constexpr uint8_t kLengthBits[16] = {3, 2, 3, 3, 4, 4, 4, 5, 5, 5, 5, 6, 6, 6, 7, 7};
inline constexpr uint8_t kLengthExtra[16] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8};
inline constexpr uint16_t kLengthBase[16] = {2, 3, 4, 5, 6, 7, 8, 9, 10, 12, 16, 24, 40, 72, 136, 264};

inline constexpr std::array<uint8_t, 64> kDistBits = [] {
  std::array<uint8_t, 64> b{};
  for (int i = 0; i < 64; ++i) b[i] = i == 0 ? 2 : i < 3 ? 4 : i < 7 ? 5 : i < 22 ? 6 : i < 48 ? 7 : 8;
  return b;
}();

// Literal code lengths of ASCII mode, by byte value. Space is the only 4-bit code.
inline constexpr uint8_t kAsciiBits[256] = {
    /* 00 */ 11, 12, 12, 12, 12, 12, 12, 12, 12,  8,  7, 12, 12,  7, 12, 12,
    /* 10 */ 12, 12, 12, 12, 12, 12, 12, 12, 12, 12, 13, 12, 12, 12, 12, 12,
    /* 20 */  4, 10,  8, 12, 10, 12, 10,  8,  7,  7,  8,  9,  7,  6,  7,  8,
    /* 30 */  7,  6,  7,  7,  7,  7,  8,  7,  7,  8,  8, 12, 11,  7,  9, 11,
    /* 40 */ 12,  6,  7,  6,  6,  5,  7,  8,  8,  6, 11,  9,  6,  7,  6,  6,
    /* 50 */  7, 11,  6,  6,  6,  7,  9,  8,  9,  9, 11,  8, 11,  9, 12,  8,
    /* 60 */ 12,  5,  6,  6,  6,  5,  6,  6,  6,  5, 11,  7,  5,  6,  5,  5,
    /* 70 */  6, 10,  5,  5,  5,  5,  8,  7,  8,  8, 10, 11, 11, 12, 12, 12,
    /* 80 */ 13, 13, 13, 13, 13, 13, 13, 13, 13, 13, 13, 13, 13, 13, 13, 13,
    /* 90 */ 13, 13, 13, 13, 13, 13, 13, 13, 13, 13, 13, 13, 13, 13, 13, 13,
    /* A0 */ 13, 13, 13, 13, 13, 13, 13, 13, 13, 13, 13, 13, 13, 13, 13, 13,
    /* B0 */ 12, 12, 12, 12, 12, 12, 12, 12, 12, 12, 12, 12, 12, 12, 12, 12,
    /* C0 */ 12, 12, 12, 12, 12, 12, 12, 12, 12, 12, 12, 12, 12, 12, 12, 12,
    /* D0 */ 12, 12, 12, 12, 12, 12, 12, 12, 12, 12, 12, 12, 12, 12, 12, 12,
    /* E0 */ 13, 12, 13, 13, 13, 12, 13, 13, 13, 12, 13, 13, 13, 13, 12, 13,
    /* F0 */ 13, 13, 12, 12, 12, 13, 13, 13, 13, 13, 13, 13, 13, 13, 13, 13,
};

// Canonical code assignment (by length, then symbol), MSB-first, every bit inverted,
// returned as the LSB-first value a bit writer emits.
template <size_t N>
constexpr std::array<uint16_t, N> InvertedCanonical(const uint8_t (&bits)[N]) {
  std::array<uint16_t, N> out{};
  unsigned code = 0;
  int prevLen = 0;
  bool first = true;
  for (int len = 1; len <= 16; ++len) {
    for (size_t s = 0; s < N; ++s) {
      if (bits[s] != len) continue;
      if (!first) code = (code + 1) << (len - prevLen);
      first = false;
      prevLen = len;
      unsigned v = 0;
      for (int i = 0; i < len; ++i)  // stream bit i = MSB-first bit i, inverted
        if (((code >> (len - 1 - i)) & 1) == 0) v |= 1u << i;
      out[s] = static_cast<uint16_t>(v);
    }
  }
  return out;
}

template <size_t N>
constexpr std::array<uint16_t, N> InvertedCanonical(const std::array<uint8_t, N>& bits) {
  uint8_t raw[N] = {};
  for (size_t i = 0; i < N; ++i) raw[i] = bits[i];
  return InvertedCanonical(raw);
}

inline constexpr std::array<uint16_t, 16> kLengthCode = InvertedCanonical(kLengthBits);
inline constexpr std::array<uint16_t, 64> kDistCode = InvertedCanonical(kDistBits);
inline constexpr std::array<uint16_t, 256> kAsciiCode = InvertedCanonical(kAsciiBits);

// A few published patterns, so that a slip in the derivation cannot go unnoticed.
static_assert(kLengthCode[0] == 0x05 && kLengthCode[1] == 0x03 && kLengthCode[15] == 0x00);
static_assert(kLengthCode[11] == 0x30 && kLengthCode[14] == 0x40);
static_assert(kDistCode[0] == 0x03 && kDistCode[7] == 0x3E && kDistCode[48] == 0xF0);
static_assert(kDistCode[63] == 0x00 && kDistCode[22] == 0x42);
static_assert(kAsciiCode[' '] == 0x000F && kAsciiCode['A'] == 0x0031 && kAsciiCode[0] == 0x0490);
static_assert(kAsciiCode[255] == 0x0000 && kAsciiCode[0x80] == 0x0240 && kAsciiCode[9] == 0x00B8);

// Decoding: peek the next `Bits` stream bits (LSB = first) and look up symbol and code length.
// Entry = symbol << 4 | code length. Every length/distance code has <= 8 bits, every
// ASCII code <= 13, so one level of lookup suffices for each.
template <size_t N, int Bits>
constexpr std::array<uint16_t, (1u << Bits)> DecodeTable(const std::array<uint16_t, N>& code,
                                                         const uint8_t (&bits)[N]) {
  std::array<uint16_t, (1u << Bits)> t{};
  for (size_t s = 0; s < N; ++s)
    for (unsigned fill = code[s]; fill < (1u << Bits); fill += 1u << bits[s])
      t[fill] = static_cast<uint16_t>(s << 4 | bits[s]);
  return t;
}

template <size_t N, int Bits>
constexpr std::array<uint16_t, (1u << Bits)> DecodeTable(const std::array<uint16_t, N>& code,
                                                         const std::array<uint8_t, N>& bits) {
  uint8_t raw[N] = {};
  for (size_t i = 0; i < N; ++i) raw[i] = bits[i];
  return DecodeTable<N, Bits>(code, raw);
}

}  // namespace orvalis::implode_codes
