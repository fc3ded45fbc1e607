// The engine's packing entry points: the work area comes from GlobalAlloc through the seam, is
// big enough for the coder, is released after every call, and its absence gives 8.
#include "engine/filecodec_win.h"

#include "compress/crc32.h"
#include "compress/filecodec.h"
#include "engine/sys.h"
#include "tests/support/test_support.h"

namespace orvalis_test {
namespace {

using namespace orvalis;

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

TEST(CompressFileWin, RoundTripsReleaseTheWorkAreaEachTimeAndWithoutOneTheResultIs8) {
  ScratchDir dir;
  const std::string src = dir.file("src"), packed = dir.file("packed"), back = dir.file("back");
  Sys().GlobalAlloc = CountingAlloc, Sys().GlobalLock = FailableLock, Sys().GlobalFree = CountingFree;
  std::string data;
  for (int i = 0; i < 3000; ++i) data += "2048,123,1600000000,C:\\WINDOWS\\F" + std::to_string(i) + "\n";
  ASSERT_TRUE(WriteWholeFile(src, data));
  for (int dict : {0, 4096}) {  // 0: CompressFile, whose dictionary is 1024 bytes
    unsigned long crc = 0;
    ASSERT_EQ(dict ? CompressFileEx(src.c_str(), packed.c_str(), &crc, dict)
                   : CompressFile(src.c_str(), packed.c_str(), &crc), 0);
    EXPECT_EQ(crc, Crc32(data.data(), data.size()));
    // Binary mode, and the dictionary size.
    EXPECT_EQ(ReadWholeFile(packed).substr(0, 2), std::string(dict ? "\0\6" : "\0\4", 2)) << dict;
    ASSERT_EQ(ExpandFile(back.c_str(), packed.c_str()), 0);
    EXPECT_TRUE(ReadWholeFile(back) == data) << dict;
  }
  EXPECT_GE(g_counts.size, kFileCodecWorkSize);
  EXPECT_TRUE(g_counts.allocs == 4 && g_counts.frees == 4) << g_counts.allocs << " " << g_counts.frees;
  for (bool lockFails : {false, true}) {
    g_counts = Counts{0, 0, 0, !lockFails, lockFails};
    unsigned long crc = 0xABCDu;
    EXPECT_EQ(CompressFile(src.c_str(), dir.file("t").c_str(), &crc), 8);
    EXPECT_EQ(crc, 0xABCDu);
    EXPECT_EQ(ExpandFile(dir.file("t2").c_str(), src.c_str()), 8);
    EXPECT_FALSE(FileExists(dir.file("t")) || FileExists(dir.file("t2")));
    EXPECT_EQ(g_counts.frees, lockFails ? 2 : 0);  // a handle whose lock failed is not leaked
  }
  ResetSys();
}

}  // namespace
}  // namespace orvalis_test
