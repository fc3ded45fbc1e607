// The file wrappers: round trips with their CRC, the quiet failures the engine has always relied
// on, and the checked expansion that reports them instead.
#include "compress/filecodec.h"

#include <random>

#include "base/io.h"
#include "compress/crc32.h"
#include "compress/implode.h"
#include "tests/support/test_support.h"

namespace orvalis_test {
namespace {

using namespace orvalis;

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
TEST_F(FileCodec, RoundTripsWithTheSameCrcBothWays) {
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
}

// Kept as the engine has always had it: both files are opened before either is checked, the result
// stays 0 and the CRC is 0xFFFFFFFF; a missing source leaves an empty target.
TEST_F(FileCodec, UnopenableFilesAreQuiet) {
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
}

// Out of memory is 8 with the CRC untouched and no target: no work area, one too small, or the
// encoder's own area (taken beside a work area that only the decoder can live in) refused.
TEST_F(FileCodec, WithoutAWorkAreaTheResultIs8AndTheCrcUntouched) {
  ASSERT_TRUE(WriteWholeFile(Path("src"), "data"));
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
}

// A cut or foreign stream expands quietly to a prefix of the data; the checked expansion says why
// and leaves no target.
TEST_F(FileCodec, CorruptStreamsExpandQuietlyButCheckedExpansionRefuses) {
  const std::string data = Listing(2000);
  uint32_t crc = 0;
  ASSERT_TRUE(WriteWholeFile(Path("src"), data));
  ASSERT_EQ(Compress(Path("src"), Path("packed"), &crc), 0);
  const std::string packed = ReadWholeFile(Path("packed"));
  for (const std::string& bad : {packed.substr(0, packed.size() / 2), std::string("\0\x09", 2) + packed.substr(2)}) {
    ASSERT_TRUE(WriteWholeFile(Path("bad"), bad));
    EXPECT_EQ(Expand(Path("quiet"), Path("bad")), 0);
    const std::string quiet = ReadWholeFile(Path("quiet"));
    EXPECT_LT(quiet.size(), data.size());
    EXPECT_EQ(quiet, data.substr(0, quiet.size()));
    ASSERT_TRUE(WriteWholeFile(Path("checked"), "old"));
    EXPECT_EQ(ExpandFileChecked(Path("checked").c_str(), Path("bad").c_str(), nullptr), kExpandBadData);
    EXPECT_FALSE(FileExists(Path("checked")));
  }
  EXPECT_EQ(ExpandFileChecked(Path("out").c_str(), Path("missing").c_str(), nullptr), kExpandSourceMissing);
  EXPECT_FALSE(FileExists(Path("out")));
  EXPECT_EQ(ExpandFileChecked(noDir_.c_str(), Path("packed").c_str(), nullptr), kExpandCannotCreate);
}

TEST_F(FileCodec, IsTextFileLooksForAZeroByteInEveryBlock) {
  std::string late(9000, 'a');
  late[8500] = '\0';
  for (const auto& [data, result] : {std::pair<std::string, int>{"", 1}, {"\xff\xfe\x80 text", 1}, {late, 0}}) {
    ASSERT_TRUE(WriteWholeFile(Path("f"), data));
    EXPECT_EQ(IsTextFile(Path("f").c_str()), result) << data.size();
  }
  EXPECT_EQ(IsTextFile(Path("missing").c_str()), -1);
}

}  // namespace
}  // namespace orvalis_test
