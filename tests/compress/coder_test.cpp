// The implode/explode coders through their callback interface, and the file wrappers around them.
#include <algorithm>
#include <cstdint>
#include <random>

#include "base/io.h"
#include "compress/crc32.h"
#include "compress/explode.h"
#include "compress/filecodec.h"
#include "compress/implode.h"
#include "compress/implode_codes.h"
#include "tests/support/test_support.h"

namespace {

using namespace orvalis;
using namespace orvalis_test;
namespace codes = orvalis::implode_codes;

struct Streams {
  std::string in;
  size_t chunk = 4096;         // most bytes handed over per read
  size_t outLimit = SIZE_MAX;  // the writer refuses bytes past this many
  size_t pos = 0;
  std::string out{};
  int refusals = 0;
};

unsigned ReadStreams(char* buf, unsigned size, void* param) {
  auto* s = static_cast<Streams*>(param);
  size_t n = s->in.copy(buf, std::min<size_t>(size, s->chunk), s->pos);
  s->pos += n;
  return static_cast<unsigned>(n);
}

unsigned WriteStreams(const char* buf, unsigned size, void* param) {
  auto* s = static_cast<Streams*>(param);
  size_t n = std::min(size_t{size}, s->outLimit - s->out.size());
  s->refusals += n < size;
  s->out.append(buf, n);
  return static_cast<unsigned>(n);
}

int ExplodeString(const std::string& stream, std::string* out, size_t chunk = 4096, size_t limit = SIZE_MAX) {
  Streams s{stream, chunk, limit};
  std::vector<unsigned char> work(kExplodeWorkSize);
  int rc = Explode(ReadStreams, WriteStreams, work.data(), work.size(), &s);
  *out = s.out;
  EXPECT_LE(s.refusals, 1) << "a refused write must end the run";
  return rc;
}

struct Area { unsigned char* work; size_t size, chunk; };

std::string Imploded(const std::string& data, int type, int dict, Area area = {}, int level = kImplodeFast) {
  std::vector<unsigned char> own(kImplodeWorkSize);
  if (!area.work) area = {own.data(), own.size(), 65536};
  Streams s{data, area.chunk};
  EXPECT_EQ(Implode(ReadStreams, WriteStreams, area.work, area.size, &s, type, dict, level), kImplodeOk);
  return s.out;
}

std::string Hex(const char* text) {
  std::string out;
  unsigned v;
  for (int n; std::sscanf(text, " %2x%n", &v, &n) == 1; text += n) out += char(v);
  return out;
}

std::string Random(size_t size, unsigned seed) {
  std::mt19937 r(seed);
  std::string s(size, '\0');
  for (auto& c : s) c = static_cast<char>(r());
  return s;
}

std::string Text(size_t size) {
  std::string s;
  for (int i = 0; s.size() < size; ++i)
    s += "2048,C:\\WINDOWS\\SYSTEM\\F" + std::to_string(i * 7919 % 10007) + ".DLL\r\n";
  return s.substr(0, size);
}

// A binary-mode stream token by token, LSB first: streams our encoder would never write.
struct BitWriter {
  explicit BitWriter(int k) : bytes_{'\0', char(k)}, k_(k) {}
  void Put(uint32_t value, int bits) {
    for (int i = 0; i < bits; ++i, ++n_) {
      if (n_ % 8 == 0) bytes_ += '\0';
      bytes_.back() = static_cast<char>(bytes_.back() | ((value >> i) & 1) << (n_ % 8));
    }
  }
  void Literal(unsigned char c) { Put(uint32_t{c} << 1, 9); }
  void Match(int len, int dist) {
    int sym = 15, low = len == 2 ? 2 : k_, high = (dist - 1) >> low;
    while (codes::kLengthBase[sym] > len) --sym;
    Put(1 | codes::kLengthCode[sym] << 1, 1 + codes::kLengthBits[sym]);
    Put(len - codes::kLengthBase[sym], codes::kLengthExtra[sym]);
    if (len == codes::kEndLength) return;
    Put(codes::kDistCode[high], codes::kDistBits[high]);
    Put((dist - 1) & ((1 << low) - 1), low);
  }
  std::string Finish() { return Match(codes::kEndLength, 1), bytes_; }
  std::string bytes_;
  int n_ = 0, k_;
};

// Size of the smallest stream the format allows for data, found by trying every distance and
// length at every position: what the optimal level must reach when its match finder misses
// nothing (no byte triple repeated more often than its chain is searched, no long matches).
size_t ExhaustiveSize(const std::string& d, int type, int dict) {
  const int k = dict == 1024 ? 4 : dict == 2048 ? 5 : 6;
  auto lengthBits = [](int len) {
    int sym = 15;
    while (codes::kLengthBase[sym] > len) --sym;
    return 1 + codes::kLengthBits[sym] + codes::kLengthExtra[sym];
  };
  std::vector<uint32_t> best(d.size() + 1, UINT32_MAX);
  best[0] = 0;
  for (size_t i = 0; i < d.size(); ++i) {
    const unsigned char c = d[i];
    best[i + 1] = std::min(best[i + 1], best[i] + (type == kImplodeBinary ? 9 : 1 + codes::kAsciiBits[c]));
    for (size_t dist = 1; dist <= std::min<size_t>(i, dict); ++dist) {
      size_t len = 0;
      while (i + len < d.size() && len < codes::kMaxMatch && d[i + len] == d[i + len - dist]) ++len;
      for (size_t l = 2; l <= len; ++l) {
        const int low = l == 2 ? 2 : k;
        if (l == 2 && dist > codes::kMaxDistLen2) continue;
        const uint32_t bits = lengthBits(int(l)) + codes::kDistBits[(dist - 1) >> low] + low;
        best[i + l] = std::min(best[i + l], best[i] + bits);
      }
    }
  }
  return 2 + (best.back() + 16 + 7) / 8;
}

// Letters with copies of earlier pieces (3 to 20 bytes, and 2-byte ones just inside and
// outside the 256-byte limit of length 2): many ways to parse, and copies sparse and short
// enough for the optimal level's bounded search to see every match.
std::string Patchwork(size_t size, unsigned seed, int letters, size_t reach) {
  std::mt19937 r(seed);
  std::string s;
  while (s.size() < size) {
    const unsigned pick = r() % 32;
    if (pick < 2 && s.size() > 300) {
      const size_t dist = 255 + r() % 3, len = 2;  // 255, 256 or 257 back
      s += s.substr(s.size() - dist, len);
    } else if (pick < 3 && s.size() > 40) {
      const size_t dist = 1 + r() % std::min(s.size(), reach), len = 3 + r() % 18;
      for (size_t i = 0; i < len; ++i) s += s[s.size() - dist];  // may overlap itself
    } else {
      s += char('a' + r() % letters);
    }
  }
  return s.substr(0, size);
}

TEST(Implode, OptimalLevelFindsTheSmallestStream) {
  const struct { const char* name; std::string data; int type, dict; } rows[] = {
      {"2-byte copies at the limit", Patchwork(1500, 1, 20, 1024), kImplodeBinary, 1024},
      {"ascii literals", Patchwork(1500, 2, 20, 1024), kImplodeAscii, 1024},
      {"far copies 2048", Patchwork(2600, 3, 20, 2048), kImplodeBinary, 2048},
      {"far copies 4096", Patchwork(4600, 4, 20, 4096), kImplodeAscii, 4096}};
  for (const auto& row : rows)
    EXPECT_EQ(Imploded(row.data, row.type, row.dict, {}, kImplodeOptimal).size(),
              ExhaustiveSize(row.data, row.type, row.dict)) << row.name;  // round trips below
}

// The same stream whatever the read sizes and work area; with the engine's dictionary the optimal
// level never longer than the fast one; in binary mode, size bounds that keep the match finder
// honest (noise costs at most a literal per byte). Where a segmented parse goes wrong: a parse that
// never settles (only the segment's length ends it), copies cut by the end, runs longer than a match.
TEST(Coders, RoundTripEveryModeAndDictionary) {
  std::string binary, unsettled, period = Random(300, 9);
  for (int b = 0; b < 256 * 40; ++b) binary += char(b / 256 % 2 ? 255 - b % 256 : b);
  binary += std::string(3000, 'x') + Random(5000, 2) + std::string(600, '\0');
  for (std::mt19937 r(9); unsettled.size() < 40000;) {
    period[r() % period.size()] = static_cast<char>(r());  // keeps most matches short
    unsettled += period.substr(0, 25);
    std::rotate(period.begin(), period.begin() + 25, period.end());
  }
  const struct { const char* name; std::string data; size_t maxSize; } inputs[] = {
      {"long run", std::string(100000, 'a'), 600},
      {"random", Random(200000, 1), 200000 * 9 / 8 + 16},
      {"text", Text(300000), 300000 / 6},
      {"binary", binary, 5000 * 9 / 8 + 800},  // its noise and a little more
      {"never settles", unsettled, SIZE_MAX},
      {"run of 1035", std::string("q").append(1035, 'r'), SIZE_MAX},
      {"ends inside a copy", Text(5000) + Text(700), SIZE_MAX},
      {"ends after a pair", Text(3000) + "ab" + Text(100) + "ab", SIZE_MAX}};  // a 2-byte copy at the end
  std::vector<unsigned char> work(kImplodeWorkSize + 1);
  const Area areas[] = {{work.data() + 1, kImplodeWorkSize, 7}, {work.data(), 36312, 4096}, {work.data(), 36312, 1}};
  int n = 0;
  for (const auto& [name, data, maxSize] : inputs)
    for (int type : {kImplodeBinary, kImplodeAscii})
      for (int dict : {1024, 2048, 4096}) {
        size_t fastSize = SIZE_MAX;
        for (int level : {kImplodeFast, kImplodeOptimal}) {
          SCOPED_TRACE(testing::Message() << name << " " << type << "/" << dict << " level " << level);
          const std::string packed = Imploded(data, type, dict, {}, level);
          std::string out;
          EXPECT_LE(packed.size(), type == kImplodeBinary ? maxSize : SIZE_MAX);
          EXPECT_LE(packed.size(), dict > 1024 ? SIZE_MAX : fastSize);
          fastSize = packed.size();
          EXPECT_TRUE(Imploded(data, type, dict, areas[n++ % (data.size() < 10000 ? 3 : 2)], level) == packed);
          EXPECT_EQ(ExplodeString(packed, &out), kExplodeOk);
          EXPECT_TRUE(out == data);
        }
      }
}

// Published streams decode exactly, and the encoder does no worse on their texts; each kind of bad
// stream is named; every cut of a good one is "truncated" with a correct prefix written. (Garbage
// in general is the explode fuzzer's.)
TEST(Explode, StreamsGiveTheirTextOrANamedVerdictWriteFailuresBadArgumentsAndEveryLengthAndDistance) {
  auto stream = [](int k, std::initializer_list<std::pair<int, int>> tokens) {
    BitWriter w(k);
    for (auto [len, dist] : tokens) len ? w.Match(len, dist) : w.Literal(static_cast<unsigned char>(dist));
    return w.Finish();
  };
  const struct { const char* name; std::string stream; int rc; std::string out; } rows[] = {
      {"empty", Hex("00 04 01 ff"), kExplodeOk, ""},
      {"a literal", Hex("00 04 82 02 fe 01"), kExplodeOk, "A"},
      {"overlapping copy", Hex("00 04 82 24 25 8f 80 7f"), kExplodeOk, "AIAIAIAIAIAIA"},
      {"copy", Hex("00 04 c2 88 69 d9 0d f8 07"), kExplodeOk, "ab-ab"},
      {"long copies", Hex("00 04 00 00 04 f0 1f 81 2e 7a 05 fc 03"), kExplodeOk, std::string(700, '\0')},
      {"ascii literals, 4096", Hex("01 06 62 41 f2 20 e0 1f"), kExplodeOk, "AIAIAIAIAIAIA"},
      {"trailing bytes ignored", Hex("00 04 82 24 25 8f 80 7f 12 34"), kExplodeOk, "AIAIAIAIAIAIA"},
      {"bad mode alone", Hex("02"), kExplodeBadLiteralMode, ""},
      {"bad mode", Hex("02 04 01 ff"), kExplodeBadLiteralMode, ""},
      {"dictionary 3", Hex("00 03 01 ff"), kExplodeBadDictionary, ""},
      {"dictionary 7", Hex("01 07 01 ff"), kExplodeBadDictionary, ""},
      {"distance one past output", stream(4, {{0, 'a'}, {0, 'b'}, {3, 3}}), kExplodeBadDistance, "ab"},
      {"length 2 past output", stream(6, {{0, 'a'}, {2, 2}}), kExplodeBadDistance, "a"}};
  std::string out;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(ExplodeString(row.stream, &out, 1), row.rc);
    EXPECT_EQ(out, row.out);
    if (row.rc != kExplodeOk) continue;
    // For the empty text this bound leaves "00 04 01 ff" as the only possible stream.
    const std::string packed = Imploded(row.out, row.stream[0], 64 << row.stream[1]);
    EXPECT_EQ(packed.substr(0, 2), row.stream.substr(0, 2));
    EXPECT_LE(packed.size(), row.stream.size());
    EXPECT_EQ(ExplodeString(packed, &out), kExplodeOk);
    EXPECT_EQ(out, row.out);
  }
  const std::string data = Text(3000) + std::string(600, 'z') + Random(300, 5);
  for (int type : {kImplodeBinary, kImplodeAscii}) {
    const std::string packed = Imploded(data, type, 2048);
    for (size_t cut = 0; cut < packed.size(); ++cut) {
      ASSERT_EQ(ExplodeString(packed.substr(0, cut), &out, 1 + cut % 5), kExplodeTruncated) << cut;
      ASSERT_EQ(out, data.substr(0, out.size())) << cut;
    }
  }
  // Write failures and bad arguments of both coders.
  const std::string text = Text(200000);
  EXPECT_EQ(ExplodeString(Imploded(text, kImplodeBinary, 1024), &out, 4096, text.size() - 1), kExplodeWriteError);
  EXPECT_EQ(out, text.substr(0, text.size() - 1));
  for (int level : {kImplodeFast, kImplodeOptimal}) {
    Streams s{text, 4096, 1000};
    EXPECT_EQ(Implode(ReadStreams, WriteStreams, nullptr, 0, &s, kImplodeBinary, 1024, level), kImplodeWriteError);
    EXPECT_EQ(s.refusals, 1) << level;
  }
  Streams s{text, 4096, 1000};
  const struct { int type, dict, level, rc; } bad[] = {{2, 1024, kImplodeFast, kImplodeBadType},
      {0, 1024, -1, kImplodeBadLevel}, {0, 1024, 2, kImplodeBadLevel}, {1, 0, 0, kImplodeBadDictSize},
      {1, 1000, 0, kImplodeBadDictSize}, {1, 8192, 0, kImplodeBadDictSize}};
  for (auto [type, dict, level, rc] : bad)
    EXPECT_EQ(Implode(ReadStreams, WriteStreams, nullptr, 0, &s, type, dict, level), rc) << type << dict << level;
  std::vector<unsigned char> work(kExplodeWorkSize);
  EXPECT_EQ(Explode(ReadStreams, WriteStreams, nullptr, kExplodeWorkSize, &s), kExplodeNoWorkArea);
  EXPECT_EQ(Explode(ReadStreams, WriteStreams, work.data(), kExplodeWorkSize - 1, &s), kExplodeNoWorkArea);
  // Every length and distance of each header decodes.
  for (int k : {4, 5, 6}) {
    BitWriter w(k);
    std::string expect = Random(64 << k, k), out;
    for (char c : expect) w.Literal(static_cast<unsigned char>(c));
    auto match = [&](int len, int dist) { for (w.Match(len, dist); len--;) expect += expect[expect.size() - dist]; };
    for (int len = 2; len <= 518; ++len) match(len, len == 2 ? 256 : 1 + len % (64 << k));
    for (int dist = 1; dist <= 64 << k; ++dist) match(3 + dist % 16, dist), match(2, std::min(dist, 256));
    EXPECT_EQ(ExplodeString(w.Finish(), &out), kExplodeOk) << k;
    EXPECT_TRUE(out == expect) << k;
  }
}

// The file wrappers: round trips with their CRC, the quiet failures the engine has always relied
// on, and the checked expansion that reports them instead.
std::string Listing(int lines) {
  std::string s;
  for (int i = 0; i < lines; ++i)
    s += "2048," + std::to_string(i * 7919 % 100000) + ",C:\\WINDOWS\\F" + std::to_string(i) + ".DLL\n";
  return s;
}

class FileCodec : public ::testing::Test {
 protected:
  std::string Path(const char* name) const { return dir_.file(name); }
  int Compress(const std::string& src, const std::string& dst, uint32_t* crc, int dict = 1024, int level = kFileCodecLevel) {
    return CompressFileWith(src.c_str(), dst.c_str(), crc, work_.data(), work_.size(), kImplodeBinary, dict, level);
  }
  int Expand(const std::string& dst, const std::string& src, uint32_t* crc = nullptr) {
    return ExpandFileWith(dst.c_str(), src.c_str(), work_.data(), work_.size(), crc);
  }
  ScratchDir dir_;
  const std::string noDir_ = dir_.file("no such dir") + PathSep() + "x";
  std::vector<unsigned char> work_ = std::vector<unsigned char>(kFileCodecWorkSize);
};

// Binary data also checks that no file is opened in text mode.
TEST_F(FileCodec, RoundTripsWithTheSameCrcBothWaysAndCorruptStreams) {
  std::string binary(70000, '\0');
  std::mt19937 r(8);
  for (auto& c : binary) c = static_cast<char>(r() % 7 ? r() : 0);
  const struct { std::string data; int dict, level; } rows[] = {
      {"", 1024, kImplodeOptimal}, {"123456789", 2048, kImplodeFast}, {Listing(5000), 1024, kImplodeOptimal},
      {binary + "\r\n\x1a", 4096, kImplodeOptimal}};
  for (const auto& [data, dict, level] : rows) {
    SCOPED_TRACE(testing::Message() << data.size() << " level " << level);
    ASSERT_TRUE(WriteWholeFile(Path("src"), data));
    uint32_t crc = 1, crcBack = 0, crcChecked = 0;
    ASSERT_EQ(Compress(Path("src"), Path("packed"), &crc, dict, level), 0);
    EXPECT_EQ(crc, data == "123456789" ? 0xCBF43926u : Crc32(data.data(), data.size()));
    EXPECT_EQ(64 << ReadWholeFile(Path("packed"))[1], dict);
    ASSERT_EQ(Expand(Path("back"), Path("packed"), &crcBack), 0);
    EXPECT_TRUE(ReadWholeFile(Path("back")) == data && crcBack == crc);
    EXPECT_EQ(ExpandFileChecked(Path("checked").c_str(), Path("packed").c_str(), &crcChecked), kExpandOk);
    EXPECT_TRUE(ReadWholeFile(Path("checked")) == data && crcChecked == crc);
  }
  uint32_t crc = 0;
  EXPECT_EQ(Compress(Path("src"), Path("packed"), &crc, 1024, 7), -1);
  // A cut or foreign stream expands quietly to a prefix of the data; the checked expansion says why
  // and leaves no target.
  const std::string listing = Listing(2000);
  ASSERT_TRUE(WriteWholeFile(Path("src"), listing));
  ASSERT_EQ(Compress(Path("src"), Path("packed"), &crc), 0);
  const std::string packed = ReadWholeFile(Path("packed"));
  for (const std::string& bad : {packed.substr(0, packed.size() / 2), std::string("\0\x09", 2) + packed.substr(2)}) {
    ASSERT_TRUE(WriteWholeFile(Path("bad"), bad));
    EXPECT_EQ(Expand(Path("quiet"), Path("bad")), 0);
    const std::string quiet = ReadWholeFile(Path("quiet"));
    EXPECT_LT(quiet.size(), listing.size());
    EXPECT_EQ(quiet, listing.substr(0, quiet.size()));
    ASSERT_TRUE(WriteWholeFile(Path("checked"), "old"));
    EXPECT_EQ(ExpandFileChecked(Path("checked").c_str(), Path("bad").c_str(), nullptr), kExpandBadData);
    EXPECT_FALSE(FileExists(Path("checked")));
  }
  EXPECT_EQ(ExpandFileChecked(Path("out").c_str(), Path("missing").c_str(), nullptr), kExpandSourceMissing);
  EXPECT_FALSE(FileExists(Path("out")));
  EXPECT_EQ(ExpandFileChecked(noDir_.c_str(), Path("packed").c_str(), nullptr), kExpandCannotCreate);
}

// Kept as the engine has always had it: both files are opened before either is checked, the result
// stays 0 and the CRC is 0xFFFFFFFF; a missing source leaves an empty target. Out of memory is 8
// with the CRC untouched and no target: no work area, one too small, or the encoder's own area
// (taken beside a work area that only the decoder can live in) refused.
TEST_F(FileCodec, UnopenableFilesAreQuietWithoutAWorkAreaTheResultIs8AndTheTextFileTest) {
  ASSERT_TRUE(WriteWholeFile(Path("src"), std::string("\0\4\x82\2\xfe\1", 6)));  // "A"
  const std::pair<std::string, std::string> opens[] = {{Path("missing"), Path("target")}, {Path("src"), noDir_}};
  for (const auto& [src, dst] : opens) {
    uint32_t crc = 1;
    EXPECT_EQ(Compress(src, dst, &crc), 0) << dst;
    EXPECT_EQ(crc, 0xFFFFFFFFu) << dst;
  }
  EXPECT_EQ(Expand(Path("expanded"), Path("missing")), 0);
  EXPECT_EQ(Expand(noDir_, Path("src")), 0);
  for (const char* name : {"target", "expanded"})
    EXPECT_TRUE(FileExists(Path(name)) && ReadWholeFile(Path(name)).empty()) << name;
  const std::pair<unsigned char*, size_t> areas[] = {{nullptr, 0}, {work_.data(), kFileCodecWorkSize - 1}};
  for (auto [work, size] : areas) {
    uint32_t crc = 0x12345678u;
    EXPECT_EQ(CompressFileWith(Path("src").c_str(), Path("t").c_str(), &crc, work, size, kImplodeBinary, 1024), 8);
    EXPECT_EQ(crc, 0x12345678u);
    EXPECT_EQ(ExpandFileWith(Path("t").c_str(), Path("src").c_str(), work, size, nullptr), 8);
    EXPECT_FALSE(FileExists(Path("t")));
  }
  Io().calloc = [](size_t, size_t) -> void* { return nullptr; };
  uint32_t crc = 7;
  EXPECT_EQ(Compress(Path("src"), Path("t"), &crc), 8);
  ResetIo();
  EXPECT_EQ(crc, 7u);
  EXPECT_FALSE(FileExists(Path("t")));
  // The text-file test looks for a zero byte in every block.
  std::string late(9000, 'a');
  late[8500] = '\0';
  for (const auto& [data, result] : {std::pair<std::string, int>{"", 1}, {"\xff\xfe\x80 text", 1}, {late, 0}}) {
    ASSERT_TRUE(WriteWholeFile(Path("f"), data));
    EXPECT_EQ(IsTextFile(Path("f").c_str()), result) << data.size();
  }
  EXPECT_EQ(IsTextFile(Path("missing").c_str()), -1);
}

}  // namespace
