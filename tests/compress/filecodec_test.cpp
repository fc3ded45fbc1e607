// The file wrappers: round trips with their CRC, the kept quiet failures of the engine's
// wrappers, and the checked expansion that reports them instead.
#include "compress/filecodec.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "compress/crc32.h"
#include "compress/implode.h"
#include "tests/compress/coder_helpers.h"
#include "tests/support/test_support.h"

namespace orvalis_test {
namespace {

using namespace orvalis;

std::string Listing(int lines) {
  std::string s = "C:\\WINDOWS\n";
  for (int i = 0; i < lines; ++i)
    s += "2048," + std::to_string(i * 7919 % 100000) + ",1600000" + std::to_string(i % 1000) +
         ",C:\\WINDOWS\\SYSTEM\\F" + std::to_string(i) + ".DLL\n";
  return s;
}

class FileCodec : public ::testing::Test {
 protected:
  std::string Path(const char* name) const { return dir_.file(name); }
  int Compress(const std::string& src, const std::string& dst, uint32_t* crc, int dict = 1024) {
    return CompressFileWith(src.c_str(), dst.c_str(), crc, work_.data(), work_.size(),
                            kImplodeBinary, dict);
  }
  int Expand(const std::string& dst, const std::string& src, uint32_t* crc = nullptr) {
    return ExpandFileWith(dst.c_str(), src.c_str(), work_.data(), work_.size(), crc);
  }
  ScratchDir dir_;
  std::vector<unsigned char> work_ = std::vector<unsigned char>(kFileCodecWorkSize);
};

TEST_F(FileCodec, RoundTripsWithTheSameCrcBothWays) {
  std::string binary(70000, '\0');
  TestRng r{8};
  for (auto& c : binary) c = static_cast<char>(r.Next() % 7 ? r.Byte() : 0);
  const std::pair<const char*, std::string> rows[] = {
      {"listing", Listing(5000)}, {"binary", binary}, {"one byte", "x"}};
  for (int dict : {1024, 4096}) {
    for (const auto& [name, data] : rows) {
      ASSERT_TRUE(WriteWholeFile(Path("src"), data));
      uint32_t crc = 0, crcBack = 0;
      ASSERT_EQ(Compress(Path("src"), Path("packed"), &crc, dict), 0) << name;
      EXPECT_EQ(crc, Crc32(data.data(), data.size())) << name;
      EXPECT_EQ(ReadWholeFile(Path("packed"))[1], dict == 1024 ? 4 : 6) << name;
      ASSERT_EQ(Expand(Path("back"), Path("packed"), &crcBack), 0) << name;
      EXPECT_EQ(crcBack, crc) << name;
      EXPECT_TRUE(ReadWholeFile(Path("back")) == data) << name;
      EXPECT_EQ(ExpandFileChecked(Path("checked").c_str(), Path("packed").c_str(), &crcBack), 0);
      EXPECT_EQ(crcBack, crc) << name;
      EXPECT_TRUE(ReadWholeFile(Path("checked")) == data) << name;
    }
  }
}

TEST_F(FileCodec, EmptySourceGivesTheEmptyStreamAndCrcZero) {
  ASSERT_TRUE(WriteWholeFile(Path("empty"), ""));
  uint32_t crc = 1;
  EXPECT_EQ(Compress(Path("empty"), Path("packed"), &crc), 0);
  EXPECT_EQ(crc, 0u);
  EXPECT_EQ(ReadWholeFile(Path("packed")), Hex("00 04 01 ff"));
}

TEST_F(FileCodec, UnopenableFilesAreQuietAsTheEngineAlwaysWas) {
  ASSERT_TRUE(WriteWholeFile(Path("src"), "data"));
  const std::string noDir = Path("no such dir") + PathSep() + "x";
  uint32_t crc = 1;
  // Both files are opened before either is checked: a missing source leaves an empty target.
  EXPECT_EQ(Compress(Path("missing"), Path("target"), &crc), 0);
  EXPECT_EQ(crc, 0xFFFFFFFFu);
  bool exists = false;
  EXPECT_EQ(ReadWholeFile(Path("target"), &exists), "");
  EXPECT_TRUE(exists);

  crc = 1;
  EXPECT_EQ(Compress(Path("src"), noDir, &crc), 0);
  EXPECT_EQ(crc, 0xFFFFFFFFu);

  EXPECT_EQ(Expand(Path("expanded"), Path("missing")), 0);
  EXPECT_EQ(ReadWholeFile(Path("expanded"), &exists), "");
  EXPECT_TRUE(exists);
  EXPECT_EQ(Expand(noDir, Path("src")), 0);
}

TEST_F(FileCodec, WithoutAWorkAreaTheResultIs8AndTheCrcUntouched) {
  ASSERT_TRUE(WriteWholeFile(Path("src"), "data"));
  uint32_t crc = 0x12345678u;
  EXPECT_EQ(CompressFileWith(Path("src").c_str(), Path("t").c_str(), &crc, nullptr, 0,
                             kImplodeBinary, 1024), 8);
  EXPECT_EQ(CompressFileWith(Path("src").c_str(), Path("t").c_str(), &crc, work_.data(),
                             kFileCodecWorkSize - 1, kImplodeBinary, 1024), 8);
  EXPECT_EQ(crc, 0x12345678u);
  EXPECT_FALSE(FileExists(Path("t")));
  EXPECT_EQ(ExpandFileWith(Path("t").c_str(), Path("src").c_str(), nullptr, 0, nullptr), 8);
}

TEST_F(FileCodec, CorruptStreamsExpandQuietlyButCheckedExpansionRefuses) {
  const std::string data = Listing(2000);
  ASSERT_TRUE(WriteWholeFile(Path("src"), data));
  uint32_t crc = 0;
  ASSERT_EQ(Compress(Path("src"), Path("packed"), &crc), 0);
  const std::string packed = ReadWholeFile(Path("packed"));

  const struct {
    const char* name;
    std::string stream;
    int checked;
  } rows[] = {
      {"cut in half", packed.substr(0, packed.size() / 2), kExpandBadData},
      {"end marker missing", packed.substr(0, packed.size() - 2), kExpandBadData},
      {"bad mode", "\x07" + packed.substr(1), kExpandBadData},
      {"bad dictionary", packed.substr(0, 1) + "\x09" + packed.substr(2), kExpandBadData},
      {"empty file", "", kExpandBadData},
  };
  for (const auto& row : rows) {
    ASSERT_TRUE(WriteWholeFile(Path("bad"), row.stream));
    EXPECT_EQ(Expand(Path("quiet"), Path("bad")), 0) << row.name;
    const std::string quiet = ReadWholeFile(Path("quiet"));
    EXPECT_LE(quiet.size(), data.size()) << row.name;
    EXPECT_EQ(quiet, data.substr(0, quiet.size())) << row.name;

    ASSERT_TRUE(WriteWholeFile(Path("checked"), "old"));
    EXPECT_EQ(ExpandFileChecked(Path("checked").c_str(), Path("bad").c_str(), nullptr), row.checked)
        << row.name;
    EXPECT_FALSE(FileExists(Path("checked"))) << row.name;
  }
  EXPECT_EQ(ExpandFileChecked(Path("out").c_str(), Path("missing").c_str(), nullptr),
            kExpandSourceMissing);
  EXPECT_FALSE(FileExists(Path("out")));
  const std::string noDir = Path("no such dir") + PathSep() + "x";
  EXPECT_EQ(ExpandFileChecked(noDir.c_str(), Path("packed").c_str(), nullptr), kExpandCannotCreate);
}

TEST_F(FileCodec, IsTextFileLooksForAZeroByteInEveryBlock) {
  std::string late(9000, 'a');
  late[8500] = '\0';
  const struct {
    const char* name;
    std::string data;
    int result;
  } rows[] = {
      {"empty", "", 1},
      {"text", "[ORVALIS]\r\nCompressDirInfo=1\r\n", 1},
      {"high bytes are text", "\xff\xfe\x80", 1},
      {"zero first", std::string(1, '\0') + "abc", 0},
      {"zero in third block", late, 0},
      {"long text", std::string(10000, 'b'), 1},
  };
  for (const auto& row : rows) {
    ASSERT_TRUE(WriteWholeFile(Path("f"), row.data));
    EXPECT_EQ(IsTextFile(Path("f").c_str()), row.result) << row.name;
  }
  EXPECT_EQ(IsTextFile(Path("missing").c_str()), -1);
}

}  // namespace
}  // namespace orvalis_test
