// The engine's packing entry points: the work area comes from GlobalAlloc through the seam, is
// big enough for the coder, is released after every call, and its absence gives 8.
#include "engine/filecodec_win.h"

#include <gtest/gtest.h>

#include <string>

#include "compress/crc32.h"
#include "compress/filecodec.h"
#include "engine/sys.h"
#include "tests/support/test_support.h"

namespace orvalis_test {
namespace {

using orvalis::Sys;

struct Counts {
  int allocs = 0, frees = 0;
  SIZE_T size = 0;
  bool failAlloc = false, failLock = false;
} g_counts;

HGLOBAL WINAPI CountingAlloc(UINT flags, SIZE_T size) {
  ++g_counts.allocs;
  g_counts.size = size;
  return g_counts.failAlloc ? nullptr : ::GlobalAlloc(flags, size);
}
LPVOID WINAPI FailableLock(HGLOBAL h) { return g_counts.failLock ? nullptr : ::GlobalLock(h); }
HGLOBAL WINAPI CountingFree(HGLOBAL h) { ++g_counts.frees; return ::GlobalFree(h); }

class CompressFileWin : public ::testing::Test {
 protected:
  void SetUp() override {
    g_counts = Counts{};
    Sys().GlobalAlloc = CountingAlloc;
    Sys().GlobalLock = FailableLock;
    Sys().GlobalFree = CountingFree;
  }
  void TearDown() override { orvalis::ResetSys(); }
  std::string Path(const char* name) const { return dir_.file(name); }
  ScratchDir dir_;
};

TEST_F(CompressFileWin, RoundTripsAndReleasesTheWorkAreaEachTime) {
  std::string data;
  for (int i = 0; i < 3000; ++i) data += "2048,123,1600000000,C:\\WINDOWS\\F" + std::to_string(i) + "\n";
  ASSERT_TRUE(WriteWholeFile(Path("src"), data));
  for (int dict : {0, 4096}) {  // 0: CompressFile, whose dictionary is 1024 bytes
    SCOPED_TRACE(dict);
    unsigned long crc = 0;
    ASSERT_EQ(dict ? orvalis::CompressFileEx(Path("src").c_str(), Path("packed").c_str(), &crc, dict)
                   : orvalis::CompressFile(Path("src").c_str(), Path("packed").c_str(), &crc),
              0);
    EXPECT_EQ(crc, orvalis::Crc32(data.data(), data.size()));
    const std::string packed = ReadWholeFile(Path("packed"));
    EXPECT_EQ(packed.substr(0, 2), std::string(dict ? "\0\6" : "\0\4", 2));  // binary mode, dictionary size
    ASSERT_EQ(orvalis::ExpandFile(Path("back").c_str(), Path("packed").c_str()), 0);
    EXPECT_TRUE(ReadWholeFile(Path("back")) == data);
  }
  EXPECT_GE(g_counts.size, orvalis::kFileCodecWorkSize);
  EXPECT_EQ(g_counts.allocs, 4);
  EXPECT_EQ(g_counts.frees, 4);
}

TEST_F(CompressFileWin, NoWorkAreaGives8AndLeavesTheCrc) {
  ASSERT_TRUE(WriteWholeFile(Path("src"), "data"));
  for (bool lockFails : {false, true}) {
    g_counts = Counts{};
    g_counts.failAlloc = !lockFails;
    g_counts.failLock = lockFails;
    unsigned long crc = 0xABCDu;
    EXPECT_EQ(orvalis::CompressFile(Path("src").c_str(), Path("t").c_str(), &crc), 8);
    EXPECT_EQ(crc, 0xABCDu);
    EXPECT_EQ(orvalis::ExpandFile(Path("t2").c_str(), Path("src").c_str()), 8);
    EXPECT_FALSE(FileExists(Path("t")));
    EXPECT_FALSE(FileExists(Path("t2")));
    EXPECT_EQ(g_counts.frees, lockFails ? 2 : 0);  // a handle whose lock failed is not leaked
  }
}

}  // namespace
}  // namespace orvalis_test
