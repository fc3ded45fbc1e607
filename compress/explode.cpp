#include "compress/explode.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <new>

#include "compress/bytes.h"
#include "compress/implode_codes.h"

namespace orvalis {
namespace {

using namespace implode_codes;

constexpr auto kLengthDecode = DecodeTable<16, 8>(kLengthCode, kLengthBits);
constexpr auto kDistDecode = DecodeTable<64, 8>(kDistCode, kDistBits);
constexpr auto kAsciiDecode = DecodeTable<256, 13>(kAsciiCode, kAsciiBits);

// The output buffer keeps the last kMaxDict bytes (enough for any header) in front of the
// bytes not yet written, so matches never wrap. Flushing once per kOutChunk bytes keeps the
// cost of sliding the history down small against the copying itself.
constexpr size_t kInSize = 4096;
constexpr size_t kOutChunk = 26624;
constexpr size_t kFlushAt = kMaxDict + kOutChunk;
// Matches are copied in 8-byte pieces and may run up to 7 bytes past their end.
constexpr size_t kOutSize = kFlushAt + kMaxMatch + 8;

struct State {
  unsigned char in[kInSize];
  unsigned char out[kOutSize];
};


class Decoder {
 public:
  Decoder(State* s, CoderRead read, CoderWrite write, void* param)
      : s_(s), read_(read), write_(write), param_(param) {}

  int Run() {
    SlowRefill();
    // A lone wrong first byte is reported as what it is, not as a short stream.
    if (nb_ >= 8 && (bb_ & 0xFF) > 1) return kExplodeBadLiteralMode;
    if (nb_ < 16) return kExplodeTruncated;
    unsigned mode = bb_ & 0xFF;
    unsigned k = (bb_ >> 8) & 0xFF;
    bb_ >>= 16;
    nb_ -= 16;
    if (k < 4 || k > 6) return kExplodeBadDictionary;
    int rc = mode ? Tokens<true>(k) : Tokens<false>(k);
    // Whatever was decoded goes out, also when the stream turned out bad. After a refused
    // write nothing more is handed over: the callback may have taken part of those bytes.
    if (rc != kExplodeWriteError && !Flush() && rc == kExplodeOk) rc = kExplodeWriteError;
    return rc;
  }

 private:
  // Byte-wise refill for the edges of the input buffer and the end of the input. Bits that
  // a 64-bit load left above nb_ are dropped first; they come back from the bytes themselves.
  void SlowRefill() {
    bb_ &= nb_ ? ~uint64_t{0} >> (64 - nb_) : 0;
    while (nb_ <= 56) {
      if (in_ == inEnd_) {
        if (eof_) return;
        unsigned n = read_(reinterpret_cast<char*>(s_->in), kInSize, param_);
        if (n > kInSize) n = kInSize;
        if (n == 0) {
          eof_ = true;
          return;
        }
        in_ = s_->in;
        inEnd_ = s_->in + n;
      }
      bb_ |= uint64_t{*in_++} << nb_;
      nb_ += 8;
    }
  }

  bool Flush() {
    if (pos_ > flushed_) {
      unsigned n = static_cast<unsigned>(pos_ - flushed_);
      if (write_(reinterpret_cast<const char*>(s_->out + flushed_), n, param_) != n) return false;
    }
    flushed_ = pos_;
    return true;
  }

  // The token loop. Locals mirror the members so they live in registers; every field is
  // checked against the bits held, which only matters in the last bytes of the input
  // (elsewhere a refill leaves at least 56 bits, and no token needs more than 30).
  template <bool Ascii>
  int Tokens(unsigned k) {
    uint64_t bb = bb_;
    unsigned nb = nb_;
    unsigned char* const out = s_->out;
    size_t pos = pos_;
    const uint64_t lowMaskK = (uint64_t{1} << k) - 1;
    int rc = kExplodeOk;

    for (;;) {
      if (nb < 32) {
        if (inEnd_ - in_ >= 8) {
          bb |= Load64LE(in_) << nb;
          in_ += (63 - nb) >> 3;
          nb |= 56;
        } else {
          bb_ = bb;
          nb_ = nb;
          SlowRefill();
          bb = bb_;
          nb = nb_;
        }
      }
      if (pos >= kFlushAt) {
        pos_ = pos;
        if (!Flush()) return kExplodeWriteError;
        std::memmove(out, out + pos - kMaxDict, kMaxDict);
        pos = flushed_ = kMaxDict;
      }
      if (nb == 0) {
        rc = kExplodeTruncated;
        break;
      }

      if ((bb & 1) == 0) {
        unsigned n;
        if constexpr (Ascii) {
          unsigned e = kAsciiDecode[(bb >> 1) & 0x1FFF];
          n = 1 + (e & 15);
          if (nb < n) {
            rc = kExplodeTruncated;
            break;
          }
          out[pos++] = static_cast<unsigned char>(e >> 4);
        } else {
          n = 9;
          if (nb < n) {
            rc = kExplodeTruncated;
            break;
          }
          out[pos++] = static_cast<unsigned char>(bb >> 1);
        }
        bb >>= n;
        nb -= n;
        continue;
      }

      unsigned e = kLengthDecode[(bb >> 1) & 0xFF];
      unsigned sym = e >> 4;
      unsigned codeLen = e & 15;
      unsigned extra = kLengthExtra[sym];
      unsigned n = 1 + codeLen + extra;
      if (nb < n) {
        rc = kExplodeTruncated;
        break;
      }
      unsigned len = kLengthBase[sym] + static_cast<unsigned>((bb >> (1 + codeLen)) &
                                                              ((uint64_t{1} << extra) - 1));
      bb >>= n;
      nb -= n;
      if (len == kEndLength) break;

      e = kDistDecode[bb & 0xFF];
      codeLen = e & 15;
      unsigned lowBits = len == 2 ? 2 : k;
      uint64_t lowMask = len == 2 ? 3 : lowMaskK;
      n = codeLen + lowBits;
      if (nb < n) {
        rc = kExplodeTruncated;
        break;
      }
      size_t dist = ((size_t{e >> 4} << lowBits) | ((bb >> codeLen) & lowMask)) + 1;
      bb >>= n;
      nb -= n;
      if (dist > pos) {
        rc = kExplodeBadDistance;
        break;
      }

      unsigned char* dst = out + pos;
      const unsigned char* src = dst - dist;
      if (dist >= 8) {
        // Each 8-byte piece reads only bytes already written, so overlap is harmless.
        for (unsigned i = 0; i < len; i += 8) std::memcpy(dst + i, src + i, 8);
      } else if (dist == 1) {
        std::memset(dst, *src, len);
      } else {
        for (unsigned i = 0; i < len; ++i) dst[i] = src[i];
      }
      pos += len;
    }
    bb_ = bb;
    nb_ = nb;
    pos_ = pos;
    return rc;
  }

  State* s_;
  CoderRead read_;
  CoderWrite write_;
  void* param_;
  const unsigned char* in_ = nullptr;
  const unsigned char* inEnd_ = nullptr;
  bool eof_ = false;
  uint64_t bb_ = 0;
  unsigned nb_ = 0;
  size_t pos_ = 0;
  size_t flushed_ = 0;
};

}  // namespace

static_assert(sizeof(State) == kExplodeWorkSize);

int Explode(CoderRead read, CoderWrite write, void* work, size_t workSize, void* param) {
  if (work == nullptr || workSize < kExplodeWorkSize) return kExplodeNoWorkArea;
  Decoder d(::new (work) State, read, write, param);
  return d.Run();
}

}  // namespace orvalis
