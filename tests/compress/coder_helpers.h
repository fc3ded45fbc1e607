// Test-side tools for the implode stream: the coders run through their callbacks over
// strings (with reads cut into pieces of a chosen size), a bit writer that builds streams
// token by token, and a token reader that shows what the encoder chose.
#pragma once
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdint>
#include <string>
#include <vector>

#include "compress/explode.h"
#include "compress/implode.h"
#include "compress/implode_codes.h"

namespace orvalis_test {

namespace codes = orvalis::implode_codes;

struct Streams {
  std::string in;
  size_t pos = 0;
  size_t chunk = 4096;  // most bytes handed over per read
  std::string out;
  size_t outLimit = SIZE_MAX;  // the writer refuses bytes past this many
};

inline unsigned ReadStreams(char* buf, unsigned size, void* param) {
  auto* s = static_cast<Streams*>(param);
  size_t n = std::min({size_t{size}, s->chunk, s->in.size() - s->pos});
  std::copy_n(s->in.data() + s->pos, n, buf);
  s->pos += n;
  return static_cast<unsigned>(n);
}

inline unsigned WriteStreams(const char* buf, unsigned size, void* param) {
  auto* s = static_cast<Streams*>(param);
  size_t n = std::min(size_t{size}, s->outLimit - s->out.size());
  s->out.append(buf, n);
  return static_cast<unsigned>(n);
}

inline int ExplodeString(const std::string& stream, std::string* out, size_t chunk = 4096,
                         size_t outLimit = SIZE_MAX) {
  Streams s{stream, 0, chunk, {}, outLimit};
  std::vector<unsigned char> work(orvalis::kExplodeWorkSize);
  int rc = orvalis::Explode(ReadStreams, WriteStreams, work.data(), work.size(), &s);
  *out = s.out;
  return rc;
}

inline int ImplodeString(const std::string& data, std::string* out, int type, int dict,
                         size_t chunk = 65536, size_t workSize = 0) {
  Streams s{data, 0, chunk, {}, SIZE_MAX};
  if (workSize == 0) workSize = orvalis::kImplodeWorkSize;
  std::vector<unsigned char> work(workSize);
  int rc = orvalis::Implode(ReadStreams, WriteStreams, work.data(), work.size(), &s, type, dict);
  *out = s.out;
  return rc;
}

inline std::string Hex(const char* text) {
  std::string out;
  unsigned v;
  int n;
  while (std::sscanf(text, " %2x%n", &v, &n) == 1) {
    out += static_cast<char>(v);
    text += n;
  }
  return out;
}

// Builds a stream LSB first, the way the format packs it.
class BitWriter {
 public:
  BitWriter(int mode, int k) : k_(k) {
    bytes_ += static_cast<char>(mode);
    bytes_ += static_cast<char>(k);
  }
  void Put(uint32_t value, int bits) {
    for (int i = 0; i < bits; ++i) {
      if (n_ == 0) bytes_ += '\0';
      if ((value >> i) & 1) bytes_.back() = static_cast<char>(bytes_.back() | (1 << n_));
      n_ = (n_ + 1) & 7;
    }
  }
  void Literal(unsigned char c) { Put(uint32_t{c} << 1, 9); }
  void Match(int len, int dist) {
    int sym = 15;
    while (codes::kLengthBase[sym] > len) --sym;
    Put(1, 1);
    Put(codes::kLengthCode[sym], codes::kLengthBits[sym]);
    Put(len - codes::kLengthBase[sym], codes::kLengthExtra[sym]);
    if (len == codes::kEndLength) return;
    int low = len == 2 ? 2 : k_;
    int high = (dist - 1) >> low;
    Put(codes::kDistCode[high], codes::kDistBits[high]);
    Put((dist - 1) & ((1 << low) - 1), low);
  }
  std::string Finish() {
    Match(codes::kEndLength, 0);
    return bytes_;
  }

 private:
  std::string bytes_;
  int n_ = 0;
  int k_;
};

// The tokens of a binary-mode stream: len 0 = literal. Reads bit by bit, matching codes by
// trying every symbol, independent of the decoder's tables. Stops at the end marker.
struct Token {
  int len;
  int dist;
};

inline std::vector<Token> BinaryTokens(const std::string& stream) {
  std::vector<Token> tokens;
  size_t bit = 16;
  auto get = [&](int n) {
    uint32_t v = 0;
    for (int i = 0; i < n; ++i, ++bit)
      if (bit / 8 < stream.size() && (static_cast<unsigned char>(stream[bit / 8]) >> (bit % 8)) & 1)
        v |= 1u << i;
    return v;
  };
  auto peekIs = [&](uint32_t code, int n) {
    size_t save = bit;
    bool match = get(n) == code;
    if (!match) bit = save;
    return match;
  };
  int k = stream.size() > 1 ? stream[1] : 4;
  while (bit < stream.size() * 8) {
    if (get(1) == 0) {
      get(8);
      tokens.push_back({0, 0});
      continue;
    }
    int sym = 0;
    while (sym < 16 && !peekIs(codes::kLengthCode[sym], codes::kLengthBits[sym])) ++sym;
    if (sym == 16) break;
    int len = codes::kLengthBase[sym] + static_cast<int>(get(codes::kLengthExtra[sym]));
    if (len == codes::kEndLength) break;
    int high = 0;
    while (high < 64 && !peekIs(codes::kDistCode[high], codes::kDistBits[high])) ++high;
    int low = len == 2 ? 2 : k;
    int dist = ((high << low) | static_cast<int>(get(low))) + 1;
    tokens.push_back({len, dist});
  }
  return tokens;
}

// xorshift: reproducible data on every platform.
struct TestRng {
  uint64_t s;
  uint32_t Next() {
    s ^= s << 13;
    s ^= s >> 7;
    s ^= s << 17;
    return static_cast<uint32_t>(s >> 11);
  }
  unsigned char Byte() { return static_cast<unsigned char>(Next()); }
};

}  // namespace orvalis_test
