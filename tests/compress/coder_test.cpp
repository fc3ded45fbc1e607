// The implode/explode coders through their callback interface: published test vectors,
// round trips in every mode, every length and distance the format has, hostile streams.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "compress/crc32.h"
#include "compress/explode.h"
#include "compress/implode.h"
#include "tests/compress/coder_helpers.h"

namespace orvalis_test {
namespace {

using namespace orvalis;

struct Vector {
  const char* name;
  int type, dict;
  std::string input;
  const char* stream;
};

std::vector<Vector> FormatVectors() {
  return {
      {"TV1_empty", kImplodeBinary, 1024, "", "00 04 01 ff"},
      {"TV2_A", kImplodeBinary, 1024, "A", "00 04 82 02 fe 01"},
      {"TV3_AIAI", kImplodeBinary, 1024, "AIAIAIAIAIAIA", "00 04 82 24 25 8f 80 7f"},
      {"TV4_len2", kImplodeBinary, 1024, "ab-ab", "00 04 c2 88 69 d9 0d f8 07"},
      {"TV5_700_zeros", kImplodeBinary, 1024, std::string(700, '\0'),
       "00 04 00 00 04 f0 1f 81 2e 7a 05 fc 03"},
      {"TV6_alphabet", kImplodeBinary, 1024,
       "abcdefghijklmnopqrstuvwxyz ABCDEFGHIJKLMNOPQRSTUVWXYZ abcdefghijklmnopqrstuvwxyz",
       "00 04 c2 88 19 43 a6 8c 99 33 68 d2 a8 59 c3 a6 8d 9b 37 70 e2 c8 99 43 a7 8e 9d 3b 78 "
       "f2 e8 01 11 44 c8 10 22 45 8c 1c 41 92 44 c9 12 26 4d 9c 3c 81 12 45 ca 14 2a 55 ac 5c "
       "c1 92 45 0b 48 58 72 05 fc 03"},
      {"TV7_ascii_4096", kImplodeAscii, 4096, "AIAIAIAIAIAIA", "01 06 62 41 f2 20 e0 1f"},
  };
}

TEST(Explode, DecodesEveryFormatVectorInAnyReadSize) {
  for (const auto& v : FormatVectors()) {
    for (size_t chunk : {1, 3, 4096}) {
      std::string out;
      EXPECT_EQ(ExplodeString(Hex(v.stream), &out, chunk), kExplodeOk) << v.name << " " << chunk;
      EXPECT_EQ(out, v.input) << v.name << " " << chunk;
    }
  }
}

TEST(Implode, FormatVectorInputsRoundTripWithTheirHeader) {
  for (const auto& v : FormatVectors()) {
    std::string packed, out;
    ASSERT_EQ(ImplodeString(v.input, &packed, v.type, v.dict), kImplodeOk) << v.name;
    ASSERT_GE(packed.size(), 4u);
    EXPECT_EQ(packed.substr(0, 2), Hex(v.stream).substr(0, 2)) << v.name;
    EXPECT_LE(packed.size(), Hex(v.stream).size()) << v.name;
    EXPECT_EQ(ExplodeString(packed, &out), kExplodeOk) << v.name;
    EXPECT_EQ(out, v.input) << v.name;
  }
  std::string empty;
  ImplodeString("", &empty, kImplodeBinary, 1024);
  EXPECT_EQ(empty, Hex("00 04 01 ff"));
}

std::string TextSample(size_t size) {
  static const char* const words[] = {"C:\\WINDOWS", "SYSTEM", "drivers", "etc", "hosts",
                                      "2048", "1024", "Program Files", "\r\n", ","};
  TestRng r{99};
  std::string s;
  while (s.size() < size) s += words[r.Next() % 10], s += r.Next() % 4 ? "\\" : ",";
  s.resize(size);
  return s;
}

std::string RandomBytes(size_t size, uint64_t seed) {
  TestRng r{seed};
  std::string s(size, '\0');
  for (auto& c : s) c = static_cast<char>(r.Byte());
  return s;
}

std::string AllBytesRepeated() {
  std::string s;
  for (int rep = 0; rep < 40; ++rep)
    for (int b = 0; b < 256; ++b) s += static_cast<char>(rep % 2 ? 255 - b : b);
  return s;
}

TEST(Implode, RoundTripsEveryModeAndDictionary) {
  const std::pair<const char*, std::string> inputs[] = {
      {"empty", ""},
      {"one byte", "\x7f"},
      {"long run", std::string(100000, 'a')},
      {"random", RandomBytes(200000, 1)},
      {"text", TextSample(300000)},
      {"all bytes", AllBytesRepeated()},
      {"runs and noise", std::string(3000, 'x') + RandomBytes(5000, 2) + std::string(600, 'y')},
  };
  for (const auto& [name, data] : inputs) {
    for (int type : {kImplodeBinary, kImplodeAscii}) {
      for (int dict : {1024, 2048, 4096}) {
        std::string packed, out;
        ASSERT_EQ(ImplodeString(data, &packed, type, dict), kImplodeOk) << name;
        EXPECT_EQ(packed[0], type) << name;
        EXPECT_EQ(64 << packed[1], dict) << name;
        EXPECT_EQ(ExplodeString(packed, &out), kExplodeOk) << name << " " << type << "/" << dict;
        EXPECT_TRUE(out == data) << name << " " << type << "/" << dict;
      }
    }
  }
}

TEST(Implode, StreamDoesNotDependOnReadSizesOrWorkArea) {
  const std::string data = TextSample(150000) + RandomBytes(20000, 3);
  std::string whole, trickle, small, unaligned;
  ASSERT_EQ(ImplodeString(data, &whole, kImplodeBinary, 1024), kImplodeOk);
  ASSERT_EQ(ImplodeString(data, &trickle, kImplodeBinary, 1024, 7), kImplodeOk);
  // The wrappers' 36312 bytes are too few for the encoder: it takes the rest itself.
  ASSERT_EQ(ImplodeString(data, &small, kImplodeBinary, 1024, 4096, 36312), kImplodeOk);
  EXPECT_EQ(whole, trickle);
  EXPECT_EQ(whole, small);

  Streams s{data, 0, 65536, {}, SIZE_MAX};
  std::vector<unsigned char> work(kImplodeWorkSize + 1);
  ASSERT_EQ(Implode(ReadStreams, WriteStreams, work.data() + 1, kImplodeWorkSize, &s,
                    kImplodeBinary, 1024),
            kImplodeOk);
  Streams none{data, 0, 65536, {}, SIZE_MAX};
  ASSERT_EQ(Implode(ReadStreams, WriteStreams, nullptr, 0, &none, kImplodeBinary, 1024),
            kImplodeOk);
  EXPECT_EQ(s.out, whole);
  EXPECT_EQ(none.out, whole);
}

TEST(Implode, ShrinksListingsAndStaysNearEightBitsOnNoise) {
  std::string listing;
  for (int i = 0; i < 3000; ++i)
    listing += "2048," + std::to_string(i * 37 % 9000) + ",1600000000,C:\\WINDOWS\\SYSTEM\\FILE" +
               std::to_string(i) + ".DLL\n";
  std::string packed;
  ImplodeString(listing, &packed, kImplodeBinary, 1024);
  EXPECT_LT(packed.size(), listing.size() / 4);
  const std::string noise = RandomBytes(100000, 4);
  ImplodeString(noise, &packed, kImplodeBinary, 1024);
  EXPECT_LT(packed.size(), noise.size() * 9 / 8 + 16);  // never worse than all literals
}

// Data with planted copies: fresh random bytes, then `len` bytes copied from `dist` back
// (from bytes that are fresh and copied only this once, so that nothing nearer matches),
// then a byte that cannot extend the copy. Unless planted, no byte pair repeats within 300
// bytes and no three bytes within 5000, so no stray match can draw the parse away.
class Planter {
 public:
  explicit Planter(uint64_t seed) : rng_{seed}, pairSeen_(65536, -1000) {}
  void Fresh(int n) {
    for (int i = 0; i < n; ++i) {
      unsigned char c;
      do c = rng_.Byte();
      while (PairRecent(c) || TripleRecent(c));
      Push(c, true);
    }
  }
  void Copy(int len, int dist) {
    Fresh(2);
    // Nor may the byte before the copy extend it backwards.
    while (!SourceFresh(len, dist) || data_.back() == data_[data_.size() - dist - 1] ||
           PairRecent(static_cast<unsigned char>(data_[data_.size() - dist])))
      Fresh(1);
    size_t from = data_.size() - dist;
    for (int i = 0; i < len; ++i) Push(data_[from + i], false);
    for (int i = 0; i < std::min(len, dist); ++i) fresh_[from + i] = false;
    unsigned char next = data_[from + len];
    unsigned char breaker;
    do breaker = rng_.Byte();
    while (breaker == next || PairRecent(breaker));
    Push(breaker, true);
  }
  const std::string& data() const { return data_; }

 private:
  bool SourceFresh(int len, int dist) const {
    if (data_.size() < size_t(dist) + 2) return false;
    size_t from = data_.size() - dist;
    for (int i = 0; i < std::min(len, dist) + 1 && from + i < data_.size(); ++i)
      if (!fresh_[from + i]) return false;
    return true;
  }
  int Pair(unsigned char c) const {
    return data_.empty() ? c : static_cast<unsigned char>(data_.back()) << 8 | c;
  }
  bool TripleRecent(unsigned char c) const {
    if (data_.size() < 2) return false;
    auto it = tripleSeen_.find(Pair(c) | static_cast<unsigned char>(data_[data_.size() - 2]) << 16);
    return it != tripleSeen_.end() && long(data_.size()) - it->second < 5000;
  }
  bool PairRecent(unsigned char c) const {
    return !data_.empty() && long(data_.size()) - pairSeen_[Pair(c)] < 300;
  }
  void Push(unsigned char c, bool fresh) {
    if (!data_.empty()) pairSeen_[Pair(c)] = long(data_.size());
    if (data_.size() >= 2)
      tripleSeen_[Pair(c) | static_cast<unsigned char>(data_[data_.size() - 2]) << 16] =
          long(data_.size());
    data_ += static_cast<char>(c);
    fresh_.push_back(fresh);
  }
  TestRng rng_;
  std::string data_;
  std::vector<bool> fresh_;
  std::vector<long> pairSeen_;
  std::unordered_map<int, long> tripleSeen_;
};

// A plant can still be drawn into another parse by an unlucky byte; what must hold is that
// every (length, distance) is produced when the data calls for it, so a plant that did not
// come out as planted is tried again in fresh data.
TEST(Implode, ProducesEveryLengthAndDistance) {
  for (int dict : {1024, 2048, 4096}) {
    std::set<std::pair<int, int>> todo;
    for (int len = 2; len <= 518; ++len) todo.insert({len, len == 2 ? 1 + len * 37 % 256 : 1 + len * 37 % dict});
    for (int dist = 1; dist <= dict; ++dist) todo.insert({3 + dist % 4, dist});
    for (int dist = 1; dist <= 256; ++dist) todo.insert({2, dist});
    for (int round = 0; round < 4 && !todo.empty(); ++round) {
      Planter p(dict * 10 + round);
      p.Fresh(dict);
      for (auto [len, dist] : todo) p.Copy(len, dist);
      std::string packed, out;
      ASSERT_EQ(ImplodeString(p.data(), &packed, kImplodeBinary, dict), kImplodeOk);
      ASSERT_EQ(ExplodeString(packed, &out), kExplodeOk);
      ASSERT_TRUE(out == p.data());
      for (const Token& t : BinaryTokens(packed)) {
        EXPECT_LE(t.dist, t.len == 2 ? 256 : dict);
        todo.erase({t.len, t.dist});
      }
    }
    for (auto [len, dist] : todo) ADD_FAILURE() << dict << ": never produced length " << len << " distance " << dist;
  }
}

TEST(Explode, AcceptsEveryLengthAndDistanceOfEachHeader) {
  for (int k : {4, 5, 6}) {
    const int dict = 64 << k;
    BitWriter w(0, k);
    std::string expect;
    TestRng r{uint64_t(k)};
    auto literal = [&](unsigned char c) { w.Literal(c), expect += static_cast<char>(c); };
    auto match = [&](int len, int dist) {
      w.Match(len, dist);
      for (int i = 0; i < len; ++i) expect += expect[expect.size() - dist];
    };
    for (int i = 0; i < dict; ++i) literal(r.Byte());
    for (int len = 2; len <= 518; ++len) match(len, len == 2 ? 256 : 1 + len % dict);
    for (int dist = 1; dist <= dict; ++dist) match(3, dist), literal(r.Byte());
    for (int dist = 1; dist <= 256; ++dist) match(2, dist);
    std::string out;
    EXPECT_EQ(ExplodeString(w.Finish(), &out), kExplodeOk) << k;
    EXPECT_TRUE(out == expect) << k;
  }
}

TEST(Explode, ReportsEachKindOfBadStream) {
  auto stream = [](int k, std::initializer_list<std::pair<int, int>> tokens) {
    BitWriter w(0, k);
    for (auto [len, dist] : tokens) len ? w.Match(len, dist) : w.Literal(static_cast<unsigned char>(dist));
    return w.Finish();
  };
  const struct {
    const char* name;
    std::string stream;
    int rc;
    size_t outSize;
  } rows[] = {
      {"nothing", "", kExplodeTruncated, 0},
      {"one header byte", Hex("00"), kExplodeTruncated, 0},
      {"bad mode alone", Hex("02"), kExplodeBadLiteralMode, 0},
      {"bad mode", Hex("02 04 01 ff"), kExplodeBadLiteralMode, 0},
      {"mode ff", Hex("ff 04 01 ff"), kExplodeBadLiteralMode, 0},
      {"dictionary 3", Hex("00 03 01 ff"), kExplodeBadDictionary, 0},
      {"dictionary 7", Hex("01 07 01 ff"), kExplodeBadDictionary, 0},
      {"dictionary 0", Hex("00 00"), kExplodeBadDictionary, 0},
      {"header only", Hex("00 04"), kExplodeTruncated, 0},
      {"match before any output", stream(4, {{3, 1}}), kExplodeBadDistance, 0},
      {"distance one past output", stream(4, {{0, 'a'}, {0, 'b'}, {3, 3}}), kExplodeBadDistance, 2},
      {"length 2 past output", stream(6, {{0, 'a'}, {2, 2}}), kExplodeBadDistance, 1},
      {"far distance of a big header", stream(6, {{0, 'a'}, {4, 4000}}), kExplodeBadDistance, 1},
      {"end marker cut", Hex("00 04 01"), kExplodeTruncated, 0},
      {"trailing bytes ignored", Hex("00 04 82 24 25 8f 80 7f 12 34"), kExplodeOk, 13},
  };
  for (const auto& row : rows) {
    std::string out = "sentinel";
    EXPECT_EQ(ExplodeString(row.stream, &out), row.rc) << row.name;
    EXPECT_EQ(out.size(), row.outSize) << row.name;
  }
}

TEST(Explode, EveryCutOfAValidStreamIsTruncatedAndKeepsThePrefix) {
  const std::string data = TextSample(3000) + std::string(600, 'z') + RandomBytes(300, 5);
  for (int type : {kImplodeBinary, kImplodeAscii}) {
    std::string packed;
    ASSERT_EQ(ImplodeString(data, &packed, type, 2048), kImplodeOk);
    for (size_t cut = 0; cut < packed.size(); ++cut) {
      std::string out;
      ASSERT_EQ(ExplodeString(packed.substr(0, cut), &out, 1 + cut % 5), kExplodeTruncated) << cut;
      ASSERT_EQ(out, data.substr(0, out.size())) << cut;
    }
  }
}

TEST(Explode, GarbageEndsWithAVerdictAndNoOverrun) {
  TestRng r{6};
  for (int i = 0; i < 3000; ++i) {
    std::string s = RandomBytes(2 + r.Next() % 600, r.Next());
    s[0] = static_cast<char>(r.Next() % 2);
    s[1] = static_cast<char>(4 + r.Next() % 3);
    std::string out;
    int rc = ExplodeString(s, &out, 1 + r.Next() % 64);
    EXPECT_TRUE(rc == kExplodeOk || rc == kExplodeTruncated || rc == kExplodeBadDistance) << rc;
    // No token is shorter than 5 bits or longer than 518 bytes.
    EXPECT_LE(out.size(), (s.size() * 8 / 5 + 1) * 518);
  }
}

TEST(Coders, ReportWriteFailuresAndBadArguments) {
  const std::string data = TextSample(200000);
  std::string packed, out;
  ASSERT_EQ(ImplodeString(data, &packed, kImplodeBinary, 1024), kImplodeOk);
  EXPECT_EQ(ExplodeString(packed, &out, 4096, 100000), kExplodeWriteError);
  EXPECT_EQ(ExplodeString(packed, &out, 4096, data.size() - 1), kExplodeWriteError);
  EXPECT_EQ(out, data.substr(0, data.size() - 1));

  Streams s{data, 0, 4096, {}, 1000};
  EXPECT_EQ(Implode(ReadStreams, WriteStreams, nullptr, 0, &s, kImplodeBinary, 1024),
            kImplodeWriteError);
  EXPECT_EQ(Implode(ReadStreams, WriteStreams, nullptr, 0, &s, 2, 1024), kImplodeBadType);
  for (int dict : {0, 512, 1000, 8192})
    EXPECT_EQ(Implode(ReadStreams, WriteStreams, nullptr, 0, &s, kImplodeAscii, dict),
              kImplodeBadDictSize);

  std::vector<unsigned char> work(kExplodeWorkSize);
  EXPECT_EQ(Explode(ReadStreams, WriteStreams, nullptr, kExplodeWorkSize, &s), kExplodeNoWorkArea);
  EXPECT_EQ(Explode(ReadStreams, WriteStreams, work.data(), kExplodeWorkSize - 1, &s),
            kExplodeNoWorkArea);
}

TEST(Crc32, KnownValuesAndPiecewiseUpdate) {
  const struct {
    std::string data;
    uint32_t crc;
  } rows[] = {{"", 0},
              {"a", 0xE8B7BE43u},
              {"123456789", 0xCBF43926u},
              {"The quick brown fox jumps over the lazy dog", 0x414FA339u},
              {std::string(1000, '\0'), 0x060B1780u}};
  for (const auto& row : rows) EXPECT_EQ(Crc32(row.data.data(), row.data.size()), row.crc) << row.data;

  const std::string data = RandomBytes(1000, 7);
  const uint32_t whole = Crc32(data.data(), data.size());
  for (size_t split = 0; split < 40; ++split) {
    uint32_t c = Crc32Update(0xFFFFFFFFu, data.data(), split);
    c = Crc32Update(c, data.data() + split, data.size() - split);
    EXPECT_EQ(~c, whole) << split;
  }
}

}  // namespace
}  // namespace orvalis_test
