#include "compress/implode.h"

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include "compress/bytes.h"
#include "compress/implode_codes.h"

namespace orvalis {
namespace {

using namespace implode_codes;

// Match finder: hash chains over 3-byte prefixes (positions older than the dictionary fall
// off the chain by distance), plus a table indexed by the 2-byte prefix itself that keeps the
// low 16 bits of its latest position, for length-2 matches (the format allows them only
// within 256 bytes, so the latest is the one that counts). Positions are 32-bit absolute
// counts that may wrap: every candidate is verified byte by byte and bounded by the history
// actually held, so a stale or wrapped entry can cost time but never give a bad match.
constexpr int kHashBits = 13;

// Parsing: lazy by one byte, the choice made on estimated bits saved (see Better()).
// Tuned on directory listings (bench/): every position is inserted, since with a 1024-byte
// dictionary skipping the insides of long matches costs over a tenth of the ratio; the chain
// length is the knob between speed and ratio.
constexpr int kMaxChain = 10;  // candidates looked at per position
constexpr int kGoodLen = 8;    // a pending match this long: look at a quarter as many
constexpr int kNiceLen = 96;   // a match this long ends the search
constexpr int kLazyMax = 40;   // a pending match this long is taken without looking further
constexpr int kByteGain = 6;   // bits a byte of a match is assumed to save, for Better()

// Optimal level: a shortest path over positions, one segment at a time (see ParseSegment).
// The code lengths are fixed, so every token's price is exact and stateless: a segment can
// end wherever no match found so far reaches past the current position, and the path is
// then exact for the matches looked at. kOptSpan only bounds the memory.
// What is looked at is the speed knob. A match of kOptNice bytes or more is taken at once
// (the longest one found) and its inside is not searched; inside a shorter match of
// kOptSkimLen or more, up to its last kOptSkimTail bytes, only the newest candidate is
// looked at. Figures on the find(1) listing of /usr, binary/1024 (bench/; fast level
// 0.1492 at 320 MB/s), with chain/nice/skimming:
//   every candidate, nothing taken at once: 0.1458 at 14 MB/s (the exact optimum)
//   16/32/none: 0.1474, 90 MB/s     16/32/8: 0.1480, 150 MB/s     6/24/none: 0.1488, 142 MB/s
// The registry export gives 0.3278 exhaustively, 0.3288 and 0.3294 with the two 16/32 rows.
constexpr int kOptSpan = 4096;    // positions in one segment at most
constexpr int kOptChain = 16;     // candidates looked at per position
constexpr int kOptNice = 32;
constexpr int kOptSkimLen = 8;
constexpr int kOptSkimTail = 2;
constexpr int kOptSkimChain = 1;
static_assert(kOptSkimChain <= kOptChain, "FindAll fills one candidate array for both");

// Input window: the dictionary's worth of history, a block of new data, and enough read-ahead
// for a maximal match starting one byte ahead (the lazy step) or anywhere in a segment.
constexpr size_t kBlock = 65536;
constexpr size_t kLookahead = kMaxMatch + 2;
constexpr size_t kOptLookahead = kOptSpan + kLookahead;
constexpr size_t kWinSize = kMaxDict + kBlock + kLookahead;
static_assert(kWinSize - kMaxDict >= kOptLookahead, "a moved window must hold a whole segment");
constexpr size_t kWinPad = 16;  // match comparison and hashing read a few bytes past the data
constexpr size_t kOutSize = 8192;
constexpr size_t kOutPad = 16;  // the bit writer stores 8 bytes at a time

// One position of a segment of the optimal parse: the cheapest known way to reach it, as its
// price in bits from the segment's start (high half) and the last token of that way (len 1:
// a literal). Packed so that the cheaper of two ways is the smaller number: the relaxation
// then compiles to a conditional move, not to a branch that is mispredicted half the time.
using Node = uint64_t;
constexpr Node kNoWay = ~Node{0};
inline Node MakeNode(uint32_t price, int len, uint32_t dist) {
  return Node{price} << 32 | unsigned(len) << 16 | dist;
}
inline uint32_t NodePrice(Node n) { return static_cast<uint32_t>(n >> 32); }
inline int NodeLen(Node n) { return static_cast<int>(n >> 16 & 0xFFFF); }
inline uint32_t NodeDist(Node n) { return static_cast<uint32_t>(n & 0xFFFF); }

struct State {
  uint32_t head[1u << kHashBits];
  uint16_t head2[1u << 16];
  uint32_t prev[kMaxDict];
  unsigned char win[kWinSize + kWinPad];
  unsigned char out[kOutSize + kOutPad];
  Node node[kOptSpan + kMaxMatch + 1];
  Node path[kOptSpan];
};

// Whole length field, flag bit included, as an LSB-first value and its width.
struct LengthField {
  std::array<uint16_t, kEndLength + 1> value;
  std::array<uint8_t, kEndLength + 1> bits;
};

constexpr LengthField MakeLengthFields() {
  LengthField f{};
  for (int sym = 0; sym < 16; ++sym) {
    int count = 1 << kLengthExtra[sym];
    for (int extra = 0; extra < count; ++extra) {
      int len = kLengthBase[sym] + extra;
      if (len > kEndLength) break;
      f.value[len] = static_cast<uint16_t>(1u | unsigned(kLengthCode[sym]) << 1 |
                                           unsigned(extra) << (1 + kLengthBits[sym]));
      f.bits[len] = static_cast<uint8_t>(1 + kLengthBits[sym] + kLengthExtra[sym]);
    }
  }
  return f;
}

constexpr LengthField kLengthField = MakeLengthFields();
static_assert(kLengthField.value[kEndLength] == 0xFF01 && kLengthField.bits[kEndLength] == 16);
static_assert(kLengthField.value[2] == 0xB && kLengthField.bits[2] == 4);
static_assert(kLengthField.value[3] == 0x7 && kLengthField.bits[3] == 3);



inline void Store64LE(unsigned char* p, uint64_t v) {
  if constexpr (std::endian::native == std::endian::little) {
    std::memcpy(p, &v, 8);
  } else {
    for (int i = 0; i < 8; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
  }
}

inline uint32_t Hash3(uint32_t first4) {
  return ((first4 & 0xFFFFFF) * 2654435761u) >> (32 - kHashBits);
}

// Length of the common prefix of a and b, at most max. Reads up to 7 bytes past max.
inline int MatchLength(const unsigned char* a, const unsigned char* b, int max) {
  int n = 0;
  while (n + 8 <= max) {
    uint64_t x = Load64LE(a + n) ^ Load64LE(b + n);
    if (x) return n + (std::countr_zero(x) >> 3);
    n += 8;
  }
  while (n < max && a[n] == b[n]) ++n;
  return n;
}

struct Match {
  int len = 0;  // 0: none
  uint32_t dist = 0;
  int gain = 0;  // bits saved against coding the same bytes as literals
};

// A match candidate of the optimal parse: the nearest one found of at least this length.
struct Candidate {
  int len;
  uint32_t dist;
};

template <bool Ascii>
class Encoder {
 public:
  Encoder(State* s, CoderRead read, CoderWrite write, void* param, unsigned k)
      : s_(s), read_(read), write_(write), param_(param), k_(k), dict_(64u << k), chainMask_(dict_ - 1) {}

  int Run(int level) {
    std::memset(s_->head, 0, sizeof s_->head);
    std::memset(s_->head2, 0, sizeof s_->head2);
    std::memset(s_->prev, 0, sizeof s_->prev);
    op_ = s_->out;
    *op_++ = Ascii ? 1 : 0;
    *op_++ = static_cast<unsigned char>(k_);
    if (!(level == kImplodeOptimal ? ParseOptimal() : ParseFast())) return kImplodeWriteError;
    Put(kLengthField.value[kEndLength], kLengthField.bits[kEndLength]);
    // Zero padding up to the byte boundary: the bits above nbits_ are already zero.
    Store64LE(op_, acc_);
    op_ += (nbits_ + 7) >> 3;
    return FlushOut() ? kImplodeOk : kImplodeWriteError;
  }

 private:
  // Lazy matching by one byte. False when a write failed.
  bool ParseFast() {
    size_t pos = 0;
    Match pending;          // match starting at pos - 1, if any
    bool havePending = false;  // the byte at pos - 1 is not coded yet
    for (;;) {
      if (end_ - pos < kLookahead && !eof_) pos = Fill(pos, kLookahead);
      if (pos >= end_) break;

      Match cur;
      if (!havePending || pending.len < kLazyMax) {
        int chain = havePending && pending.len >= kGoodLen ? kMaxChain / 4 : kMaxChain;
        cur = Find(pos, chain);
      }
      Insert(pos);

      if (havePending && pending.len >= kMinMatch && !Better(cur, pending)) {
        PutMatch(pending.len, pending.dist);
        size_t stop = pos - 1 + pending.len;
        for (size_t p = pos + 1; p < stop; ++p) Insert(p);
        pos = stop;
        havePending = false;
      } else {
        if (havePending) PutLiteral(s_->win[pos - 1]);
        pending = cur;
        havePending = true;
        ++pos;
      }
      if (op_ >= s_->out + kOutSize && !FlushOut()) return false;
    }
    // A pending match cannot reach past the end, so one that is left here is at most a byte.
    if (havePending) PutLiteral(s_->win[pos - 1]);
    return true;
  }

  // Shortest path over positions with the exact bit price of every token. False when a
  // write failed.
  bool ParseOptimal() {
    size_t pos = 0;
    for (;;) {
      if (end_ - pos < kOptLookahead && !eof_) pos = Fill(pos, kOptLookahead);
      if (pos >= end_) return true;
      pos = ParseSegment(pos);
      if (writeFailed_) return false;
    }
  }

  // Parses and codes the input from window position start on, up to where the path is
  // settled, and returns the window position after it (always past start). The window holds
  // kOptLookahead bytes from start, or all that is left.
  size_t ParseSegment(size_t start) {
    Node* node = s_->node;
    const size_t avail = end_ - start;
    const int limit = avail < size_t(kOptSpan) ? int(avail) : kOptSpan;
    node[0] = 0;
    int reach = 0;  // every node up to here has a price (possibly "none yet")
    Candidate cand[kOptChain + 1];
    int skimUntil = 0;  // positions before this one lie inside a match found earlier
    for (int r = 0;; ++r) {
      // Nothing found so far crosses r: the cheapest way to r is part of the cheapest way on.
      if (r == limit || (r > 0 && r == reach)) {
        CodePath(start, r);
        return start + r;
      }
      const size_t pos = start + r;
      const int maxLen = avail - r < size_t(kMaxMatch) ? int(avail - r) : kMaxMatch;
      const int found = FindAll(pos, maxLen, r < skimUntil ? kOptSkimChain : kOptChain, cand);
      Insert(pos);
      const uint32_t base = NodePrice(node[r]);
      if (found > 0 && cand[found - 1].len >= kOptNice) {
        const Candidate& m = cand[found - 1];
        CodePath(start, r);
        PutMatch(m.len, m.dist);
        Emitted();
        for (size_t p = pos + 1; p < pos + m.len; ++p) Insert(p);
        return pos + m.len;
      }
      const int furthest = r + (found > 0 ? cand[found - 1].len : 1);
      if (furthest - r >= kOptSkimLen && furthest - kOptSkimTail > skimUntil)
        skimUntil = furthest - kOptSkimTail;
      while (reach < furthest) node[++reach] = kNoWay;
      Relax(node + r + 1, base + LiteralBits(s_->win[pos]), 1, 0);
      int len = kMinMatch;
      for (int i = 0; i < found; ++i) {
        const uint32_t dist = cand[i].dist;
        if (len == 2) {
          if (dist <= uint32_t(kMaxDistLen2))
            Relax(node + r + 2, base + MatchBits(2, dist), 2, dist);
          len = 3;
        }
        const uint32_t distBits = base + kDistBits[(dist - 1) >> k_] + k_;
        for (; len <= cand[i].len; ++len)
          Relax(node + r + len, distBits + kLengthField.bits[len], len, dist);
      }
    }
  }

  static void Relax(Node* n, uint32_t price, int len, uint32_t dist) {
    const Node way = MakeNode(price, len, dist);
    *n = way < *n ? way : *n;
  }

  // Codes the cheapest way from window position start to start + r.
  void CodePath(size_t start, int r) {
    int count = 0;
    for (int t = r; t > 0; t -= NodeLen(s_->node[t])) s_->path[count++] = s_->node[t];
    size_t pos = start;
    while (count > 0) {
      const Node n = s_->path[--count];
      const int len = NodeLen(n);
      if (len == 1)
        PutLiteral(s_->win[pos]);
      else
        PutMatch(len, NodeDist(n));
      pos += len;
      Emitted();
    }
  }

  // Hands the output on when its buffer is full; after a failed write, nothing more is.
  void Emitted() {
    if (op_ >= s_->out + kOutSize && !writeFailed_) writeFailed_ = !FlushOut();
  }

  // Every useful match at pos among the first `chain` candidates of the 3-byte chain, and the
  // nearest byte pair, shortest first: each one the nearest of its length or more, since
  // nearer distances never cost more bits. Returns the count (at most chain + 1); candidates
  // of length 2 lie within kMaxDistLen2.
  int FindAll(size_t pos, int maxLen, int chain, Candidate* out) const {
    if (maxLen < kMinMatch) return 0;
    uint32_t maxDist = pos < dict_ ? uint32_t(pos) : dict_;
    const unsigned char* cur = s_->win + pos;
    uint32_t abs = base_ + static_cast<uint32_t>(pos);
    int count = 0;
    int best = 2;  // the 3-byte chains must beat this
    // The latest occurrence of the byte pair is the nearest match of any length.
    uint32_t d = (abs - s_->head2[Load32LE(cur) & 0xFFFF]) & 0xFFFF;
    uint32_t limit2 = maxDist < uint32_t(kMaxDistLen2) ? maxDist : uint32_t(kMaxDistLen2);
    if (d - 1 < limit2 && cur[-int(d)] == cur[0] && cur[1 - int(d)] == cur[1]) {
      best = MatchLength(cur - d, cur, maxLen);
      out[count++] = Candidate{best, d};
      if (best == maxLen) return count;
    }
    if (maxLen < 3) return count;
    uint32_t cand = s_->head[Hash3(Load32LE(cur))];
    for (; chain > 0; --chain) {
      d = abs - cand;
      if (d - 1 >= maxDist) break;
      const unsigned char* m2 = cur - d;
      if (m2[best] == cur[best] && m2[0] == cur[0] && m2[1] == cur[1]) {
        int len = MatchLength(m2, cur, maxLen);
        if (len > best) {
          best = len;
          out[count++] = Candidate{len, d};
          if (len == maxLen) break;
        }
      }
      cand = s_->prev[cand & chainMask_];
    }
    return count;
  }

  // Moves the window down when its tail is shorter than need, then reads until it is full
  // or the input ends. Returns pos adjusted to the moved window.
  size_t Fill(size_t pos, size_t need) {
    if (end_ + need > kWinSize) {
      size_t from = pos > kMaxDict ? pos - kMaxDict : 0;
      std::memmove(s_->win, s_->win + from, end_ - from);
      end_ -= from;
      pos -= from;
      base_ += static_cast<uint32_t>(from);
    }
    while (end_ < kWinSize && !eof_) {
      unsigned want = static_cast<unsigned>(kWinSize - end_);
      unsigned n = read_(reinterpret_cast<char*>(s_->win + end_), want, param_);
      if (n > want) n = want;
      if (n == 0) eof_ = true;
      end_ += n;
    }
    std::memset(s_->win + end_, 0, kWinPad);
    return pos;
  }

  void Insert(size_t pos) {
    uint32_t w = Load32LE(s_->win + pos);
    uint32_t abs = base_ + static_cast<uint32_t>(pos);
    uint32_t h = Hash3(w);
    s_->prev[abs & chainMask_] = s_->head[h];
    s_->head[h] = abs;
    s_->head2[w & 0xFFFF] = static_cast<uint16_t>(abs);
  }

  int LiteralBits(unsigned char c) const { return Ascii ? 1 + kAsciiBits[c] : 9; }

  int MatchBits(int len, uint32_t dist) const {
    unsigned low = len == 2 ? 2 : k_;
    return kLengthField.bits[len] + kDistBits[(dist - 1) >> low] + low;
  }

  int Gain(const unsigned char* p, int len, uint32_t dist) const {
    int lit = 9 * len;
    if constexpr (Ascii) {
      lit = 0;
      for (int i = 0; i < len; ++i) lit += LiteralBits(p[i]);
    }
    return lit - MatchBits(len, dist);
  }

  // Longest match at pos among the candidates looked at; the nearest wins among equals,
  // since nearer distances never cost more bits.
  Match Find(size_t pos, int chain) const {
    Match m;
    size_t avail = end_ - pos;
    if (avail < kMinMatch) return m;
    int maxLen = avail < size_t(kMaxMatch) ? int(avail) : kMaxMatch;
    // History is whatever the window holds before pos: never more than was coded so far.
    uint32_t maxDist = pos < dict_ ? uint32_t(pos) : dict_;
    const unsigned char* cur = s_->win + pos;
    uint32_t abs = base_ + static_cast<uint32_t>(pos);

    int best = 2;  // the 3-byte chains must beat 2: a length-2 match is limited to 256 back
    uint32_t bestDist = 0;
    if (maxLen >= 3) {
      uint32_t cand = s_->head[Hash3(Load32LE(cur))];
      while (chain-- > 0) {
        uint32_t d = abs - cand;
        if (d - 1 >= maxDist) break;
        const unsigned char* m2 = cur - d;
        if (m2[best] == cur[best] && m2[0] == cur[0] && m2[1] == cur[1]) {
          int len = MatchLength(m2, cur, maxLen);
          if (len > best) {
            best = len;
            bestDist = d;
            if (len >= kNiceLen || len == maxLen) break;
          }
        }
        cand = s_->prev[cand & chainMask_];
      }
    }
    if (bestDist == 0) {
      uint32_t d = (abs - s_->head2[Load32LE(cur) & 0xFFFF]) & 0xFFFF;
      uint32_t limit = maxDist < uint32_t(kMaxDistLen2) ? maxDist : uint32_t(kMaxDistLen2);
      if (d - 1 < limit && cur[-int(d)] == cur[0] && cur[1 - int(d)] == cur[1]) {
        best = MatchLength(cur - d, cur, maxLen);
        bestDist = d;
      }
    }
    if (bestDist == 0) return m;
    int gain = Gain(cur, best, bestDist);
    if (gain <= 0) return m;
    m.len = best;
    m.dist = bestDist;
    m.gain = gain;
    return m;
  }

  // Is "literal, then cur" better than the pending match one byte earlier? The two cover
  // different spans; the difference is charged at kByteGain bits a byte.
  static bool Better(const Match& cur, const Match& pending) {
    if (cur.len == 0) return false;
    return cur.gain > pending.gain + (cur.len + 1 - pending.len) * kByteGain;
  }

  void Put(uint32_t value, unsigned bits) {
    acc_ |= uint64_t{value} << nbits_;
    nbits_ += bits;
    if (nbits_ >= 32) {
      Store64LE(op_, acc_);
      op_ += nbits_ >> 3;
      acc_ >>= nbits_ & ~7u;
      nbits_ &= 7;
    }
  }

  void PutLiteral(unsigned char c) {
    if constexpr (Ascii)
      Put(uint32_t{kAsciiCode[c]} << 1, 1 + kAsciiBits[c]);
    else
      Put(uint32_t{c} << 1, 9);
  }

  void PutMatch(int len, uint32_t dist) {
    unsigned low = len == 2 ? 2 : k_;
    uint32_t high = (dist - 1) >> low;
    uint32_t distField = kDistCode[high] | ((dist - 1) & ((1u << low) - 1)) << kDistBits[high];
    unsigned lenBits = kLengthField.bits[len];
    Put(kLengthField.value[len] | distField << lenBits, lenBits + kDistBits[high] + low);
  }

  bool FlushOut() {
    unsigned n = static_cast<unsigned>(op_ - s_->out);
    op_ = s_->out;
    return n == 0 || write_(reinterpret_cast<const char*>(s_->out), n, param_) == n;
  }

  State* s_;
  CoderRead read_;
  CoderWrite write_;
  void* param_;
  unsigned k_;
  uint32_t dict_;
  uint32_t chainMask_;
  size_t end_ = 0;
  bool eof_ = false;
  // Absolute position of win[0]. Starting far from 0 keeps the zeroed tables from looking
  // like near candidates.
  uint32_t base_ = 1u << 16;
  uint64_t acc_ = 0;
  unsigned nbits_ = 0;
  unsigned char* op_ = nullptr;
  bool writeFailed_ = false;
};

}  // namespace

const size_t kImplodeWorkSize = sizeof(State) + alignof(State) - 1;

int Implode(CoderRead read, CoderWrite write, void* work, size_t workSize, void* param,
            int type, int dictSize, int level) {
  if (type != kImplodeBinary && type != kImplodeAscii) return kImplodeBadType;
  if (level != kImplodeFast && level != kImplodeOptimal) return kImplodeBadLevel;
  unsigned k;
  switch (dictSize) {
    case 1024: k = 4; break;
    case 2048: k = 5; break;
    case 4096: k = 6; break;
    default: return kImplodeBadDictSize;
  }
  std::unique_ptr<unsigned char[]> owned;
  void* area = work;
  size_t space = work ? workSize : 0;
  if (!work || !std::align(alignof(State), sizeof(State), area, space)) {
    owned.reset(new (std::nothrow) unsigned char[kImplodeWorkSize]);
    if (!owned) return kImplodeNoMemory;
    area = owned.get();
    space = kImplodeWorkSize;
    std::align(alignof(State), sizeof(State), area, space);
  }
  State* s = ::new (area) State;
  if (type == kImplodeAscii) return Encoder<true>(s, read, write, param, k).Run(level);
  return Encoder<false>(s, read, write, param, k).Run(level);
}

}  // namespace orvalis
