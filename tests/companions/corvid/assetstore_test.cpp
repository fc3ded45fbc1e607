// The portable half of CORVID.DLL, natively (under ASan and UBSan in the native preset): the
// wildcard match, the record-path guard, and companions and indexes that are cut short or carry
// one wrong byte.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "companions/corvid/assetstore.h"
#include "base/io.h"
#include "tests/support/test_support.h"

namespace {

using namespace corvid;
using orvalis_test::ScratchDir;

struct MatchRow {
  const char* name;
  const char* pattern;
  const char* file;
  bool match;
};

const MatchRow kMatchRows[] = {
    {"star_extension", "*.txt", "readme.txt", true},
    {"star_extension_other_case", "*.TXT", "ReadMe.txt", true},
    {"star_extension_wrong", "*.txt", "readme.doc", false},
    {"star_extension_longer", "*.txt", "readme.txt.bak", false},
    {"star_alone", "*", "anything.at.all", true},
    {"star_empty_run", "a*b", "ab", true},
    {"star_middle", "a*c*e", "abcde", true},
    {"star_backtracks", "*ab", "aab", true},
    {"star_backtracks_twice", "*a*b", "xaxxaxb", true},
    {"star_no_tail", "a*c", "abcd", false},
    {"question_one", "f?.log", "f1.log", true},
    {"question_not_two", "f?.log", "f22.log", false},
    {"question_not_zero", "f?.log", "f.log", false},
    {"question_any_char", "???", "a.b", true},
    {"star_dot_star_any", "*.*", "font.ttf", true},
    {"star_dot_star_no_dot", "*.*", "README", true},   // as Windows matches it
    {"name_dot_star_bare", "setup.*", "setup", true},  // as Windows matches it
    {"name_dot_star_other", "setup.*", "setupx", false},
    {"plain_equal_no_case", "Font.TTF", "font.ttf", true},
    {"plain_prefix_only", "font", "font.ttf", false},
    {"pattern_longer", "font.ttf", "font", false},
    {"high_bytes", "\xC4*", "\xC4rger.txt", true},
};

class WildcardMatchTest : public ::testing::TestWithParam<MatchRow> {};

TEST_P(WildcardMatchTest, Matches) {
  const MatchRow& r = GetParam();
  EXPECT_EQ(WildcardMatch(r.pattern, r.file), r.match) << r.pattern << " vs " << r.file;
}

INSTANTIATE_TEST_SUITE_P(Table, WildcardMatchTest, ::testing::ValuesIn(kMatchRows),
                         [](const auto& info) { return std::string(info.param.name); });

struct PathRow {
  const char* name;
  const char* path;
  bool safe;
};

const PathRow kPathRows[] = {
    {"bare_name", "a.txt", true},
    {"nested", "sub\\deeper\\a.txt", true},
    {"dots_inside_name", "a..b.txt", true},
    {"leading_dot_name", ".profile", true},
    {"empty", "", false},
    {"parent", "..\\x", false},
    {"parent_later", "a\\..\\..\\x", false},
    {"parent_alone", "..", false},
    {"current", ".\\x", false},
    {"drive", "C:\\x", false},
    {"drive_relative", "C:x", false},
    {"stream", "a.txt:evil", false},
    {"rooted", "\\x", false},
    {"unc", "\\\\server\\share\\x", false},
    {"trailing_separator", "a\\", false},
    {"double_separator", "a\\\\b", false},
    {"forward_slash", "a/../x", false},
};

class SafePathTest : public ::testing::TestWithParam<PathRow> {};

TEST_P(SafePathTest, Judges) {
  const PathRow& r = GetParam();
  EXPECT_EQ(IsSafeRelativePath(r.path), r.safe) << r.path;
}

INSTANTIATE_TEST_SUITE_P(Table, SafePathTest, ::testing::ValuesIn(kPathRows),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- companion images ------------------------------------------------------------------------

FileRecord Record(const char* path, uint32_t size, uint32_t stored) {
  FileRecord r{};
  std::snprintf(r.path, sizeof r.path, "%s", path);
  r.size = size;
  r.time = 0x5A215C00u + size;
  r.attributes = 0x20;
  r.crc = 0x01020304u * (size + 1);
  r.stored = stored;
  return r;
}

struct Block {
  const char* asset;
  const char* folder;
  uint32_t options;
  std::vector<FileRecord> files;
};

// The companion the library would write for these blocks; each file's contents are `stored`
// bytes of filler, which the reader never decodes.
std::string Companion(const std::vector<Block>& blocks, std::vector<size_t>* blockEnds = nullptr) {
  FILE* f = std::tmpfile();
  EXPECT_NE(f, nullptr);
  EXPECT_TRUE(WriteCompanionHead(f));
  for (const Block& b : blocks) {
    EXPECT_TRUE(WriteBlockHead(f, b.asset, b.folder, b.options, uint32_t(b.files.size())));
    for (const FileRecord& r : b.files) {
      EXPECT_TRUE(WriteFileRecord(f, r));
      for (uint32_t i = 0; i < r.stored; ++i) std::fputc(int('a' + i % 26), f);
    }
    if (blockEnds) blockEnds->push_back(size_t(std::ftell(f)));
  }
  std::string image(size_t(std::ftell(f)), '\0');
  std::rewind(f);
  EXPECT_EQ(std::fread(&image[0], 1, image.size(), f), image.size());
  std::fclose(f);
  return image;
}

struct ReadResult {
  int rc;
  std::string folder;
  uint32_t options = 0;
  std::vector<FileRecord> files;
};

ReadResult Read(const std::string& image, const char* asset) {
  FILE* f = std::tmpfile();
  std::fwrite(image.data(), 1, image.size(), f);
  std::fflush(f);
  char folder[260] = "";
  uint32_t options = 0, count = 0;
  FileRecord* records = nullptr;
  ReadResult out;
  out.rc = ReadAssetBlock(f, asset, folder, &options, &records, &count);
  std::fclose(f);
  out.folder = folder;
  out.options = options;
  out.files.assign(records, records + count);
  orvalis::Io().free(records);
  return out;
}

bool SameRecords(const std::vector<FileRecord>& got, const std::vector<FileRecord>& want) {
  if (got.size() != want.size()) return false;
  for (size_t i = 0; i < got.size(); ++i) {
    const FileRecord &a = got[i], &b = want[i];
    if (std::strcmp(a.path, b.path) || a.size != b.size || a.time != b.time || a.attributes != b.attributes ||
        a.crc != b.crc || a.stored != b.stored)
      return false;
  }
  return true;
}

const std::vector<Block>& SmallBlocks() {
  static const std::vector<Block> blocks = {
      {"C:\\Fonts\\*.ttf", "C:\\Fonts", 0x2000, {Record("a.ttf", 40, 9), Record("b.ttf", 0, 0)}},
      {"C:\\App", "C:\\App", 0x3000, {Record("x.ini", 7, 5), Record("sub\\y.dll", 100, 30)}},
  };
  return blocks;
}

TEST(CompanionTest, EachAssetReadsBackOnItsOwn) {
  const std::string image = Companion(SmallBlocks());
  for (const Block& b : SmallBlocks()) {
    ReadResult r = Read(image, b.asset);
    ASSERT_EQ(r.rc, kOk) << b.asset;
    EXPECT_EQ(r.folder, b.folder);
    EXPECT_EQ(r.options, b.options);
    EXPECT_TRUE(SameRecords(r.files, b.files)) << b.asset;
  }
  EXPECT_EQ(Read(image, "c:\\app").rc, kOk) << "asset names compare without regard to case";
  EXPECT_EQ(Read(image, "C:\\Other").rc, kNoAsset);
}

// A record whose path leaves the asset's folder makes the whole block unreadable, so no tree of
// it can reach the restore.
TEST(CompanionTest, RecordPathsOutsideTheFolderAreRefused) {
  for (const char* bad : {"..\\x", "C:\\x", "\\x", "a\\..\\..\\x", "a/../x", "a:b"}) {
    const std::string image = Companion({{"C:\\App", "C:\\App", 0x2000, {Record("fine.txt", 3, 3), Record(bad, 3, 3)}}});
    EXPECT_EQ(Read(image, "C:\\App").rc, kBadData) << bad;
  }
}

// A block that claims more files than the rest of the companion can hold is refused before any
// memory is set aside for them.
void* SmallCalloc(size_t n, size_t size) { return n * size > (1u << 20) ? nullptr : std::calloc(n, size); }

TEST(CompanionTest, ImpossibleFileCountIsRefused) {
  auto* const saved = orvalis::Io().calloc;
  orvalis::Io().calloc = SmallCalloc;
  FILE* f = std::tmpfile();
  ASSERT_TRUE(WriteCompanionHead(f));
  ASSERT_TRUE(WriteBlockHead(f, "C:\\App", "C:\\App", 0x2000, 999999));
  ASSERT_TRUE(WriteFileRecord(f, Record("a", 1, 0)));
  char folder[260];
  uint32_t options, count;
  FileRecord* records = nullptr;
  EXPECT_EQ(ReadAssetBlock(f, "C:\\App", folder, &options, &records, &count), kBadData);
  EXPECT_EQ(records, nullptr);
  std::fclose(f);
  orvalis::Io().calloc = saved;
}

// Every cut of the companion reads as damaged, except cuts where a block ends (or none has begun):
// the blocks before it are whole and the rest simply absent.
TEST(CompanionTest, EveryTruncationIsDamageOrACorrectAnswer) {
  std::vector<size_t> ends;
  const std::string image = Companion(SmallBlocks(), &ends);
  const Block& first = SmallBlocks()[0];
  const Block& second = SmallBlocks()[1];
  const size_t head = 12;  // magic and version: a companion that holds no asset yet
  for (size_t n = 0; n < image.size(); ++n) {
    const std::string cut = image.substr(0, n);
    ReadResult a = Read(cut, first.asset);
    if (n == 0 || n == head) {
      EXPECT_EQ(a.rc, kNoAsset) << n;
    } else if (n >= ends[0]) {
      EXPECT_EQ(a.rc, kOk) << n;
      EXPECT_TRUE(SameRecords(a.files, first.files)) << n;
    } else {
      EXPECT_EQ(a.rc, kBadData) << n;
    }
    ReadResult b = Read(cut, second.asset);
    EXPECT_EQ(b.rc, n == 0 || n == head || n == ends[0] ? kNoAsset : kBadData) << n;
  }
}

// One wrong byte anywhere: damage, or (in the contents, which the reader does not decode) the
// records exactly as written.
TEST(CompanionTest, EverySingleFlippedByteIsDamageOrACorrectAnswer) {
  const std::string image = Companion(SmallBlocks());
  int correct = 0;
  for (size_t i = 0; i < image.size(); ++i) {
    for (unsigned char mask : {0x01, 0x80, 0xFF}) {
      std::string bad = image;
      bad[i] = char(bad[i] ^ mask);
      for (const Block& b : SmallBlocks()) {
        ReadResult r = Read(bad, b.asset);
        ASSERT_TRUE(r.rc == kBadData || r.rc == kOk) << i << " " << r.rc;
        if (r.rc == kOk) {
          EXPECT_TRUE(SameRecords(r.files, b.files)) << i;
          ++correct;
        }
      }
    }
  }
  EXPECT_GT(correct, 0);  // the flips in the contents
}

// ---- comparison -----------------------------------------------------------------------------

std::string Marks(const std::vector<FileRecord>& older, const std::vector<FileRecord>& newer) {
  AssetOrigin origin{};
  ChangeNode* first = BuildAssetTree(origin, older.data(), uint32_t(older.size()));
  ChangeNode* second = BuildAssetTree(origin, newer.data(), uint32_t(newer.size()));
  CompareAssetTrees(&first, second);
  std::string out;
  for (const ChangeNode* n = first->children; n; n = n->next)
    out += std::string(n->name) + ":" + (n->flags & kChangeFrom ? "F" : n->flags & kChangeTo ? "T"
                                         : n->flags & kChangeOlder ? "O" : n->flags & kChangeNewer ? "N" : "-") + " ";
  FreeAssetTree(first);
  FreeAssetTree(second);
  return out;
}

// A folder on a file system that tells case apart (Wine on Linux) can hold "a" and "A": each
// pairs with its own counterpart, so an unchanged folder stays unchanged and a change keeps its
// older state directly before its newer one.
TEST(CompareTest, NamesDifferingOnlyInCasePairOneToOne) {
  const std::vector<FileRecord> two = {Record("a", 1, 0), Record("A", 2, 0)};
  EXPECT_EQ(Marks(two, two), "a:- A:- ");
  EXPECT_EQ(Marks(two, {Record("a", 1, 0), Record("A", 3, 0)}), "a:- A:F A:T ");
  EXPECT_EQ(Marks(two, {Record("A", 1, 0)}), "a:- A:O ");
  EXPECT_EQ(Marks({Record("a", 1, 0)}, two), "a:- A:N ");
}

// ---- MASTER.IDX -------------------------------------------------------------------------------

std::vector<IndexRecord> SmallIndex() {
  std::vector<IndexRecord> v(3);
  const char* companions[] = {"AST0000.OVA", "AST0000.OVA", "AST0001.OVA"};
  const char* assets[] = {"C:\\Fonts\\*.ttf", "C:\\App", "C:\\App"};
  for (size_t i = 0; i < v.size(); ++i) {
    std::snprintf(v[i].companion, sizeof v[i].companion, "%s", companions[i]);
    std::snprintf(v[i].asset, sizeof v[i].asset, "%s", assets[i]);
    v[i].options = 0x1000u * uint32_t(i + 1);
    v[i].files = uint32_t(i * 7);
    v[i].offset = uint32_t(12 + i * 300);
  }
  return v;
}

bool SameIndex(const IndexRecord* got, uint32_t count, const std::vector<IndexRecord>& want) {
  if (count != want.size()) return false;
  for (uint32_t i = 0; i < count; ++i)
    if (std::strcmp(got[i].companion, want[i].companion) || std::strcmp(got[i].asset, want[i].asset) ||
        got[i].options != want[i].options || got[i].files != want[i].files || got[i].offset != want[i].offset)
      return false;
  return true;
}

int ReadImage(const std::string& path, const std::string& image, std::vector<IndexRecord>* want, bool* same) {
  orvalis_test::WriteWholeFile(path, image);
  IndexRecord* records = nullptr;
  uint32_t count = 0;
  const int rc = ReadIndex(path.c_str(), &records, &count);
  *same = rc == kOk && SameIndex(records, count, *want);
  orvalis::Io().free(records);
  return rc;
}

TEST(IndexTest, WrittenRecordsReadBackAndNoTemporaryStays) {
  ScratchDir dir;
  const std::string path = dir.file("MASTER.IDX");
  std::vector<IndexRecord> want = SmallIndex();
  ASSERT_EQ(WriteIndex(path.c_str(), want.data(), uint32_t(want.size())), kOk);
  IndexRecord* records = nullptr;
  uint32_t count = 0;
  ASSERT_EQ(ReadIndex(path.c_str(), &records, &count), kOk);
  EXPECT_TRUE(SameIndex(records, count, want));
  orvalis::Io().free(records);
  EXPECT_FALSE(orvalis_test::FileExists(path + ".tmp"));
  // Rewriting replaces the old index whole.
  ASSERT_EQ(WriteIndex(path.c_str(), want.data(), 1), kOk);
  ASSERT_EQ(ReadIndex(path.c_str(), &records, &count), kOk);
  EXPECT_EQ(count, 1u);
  orvalis::Io().free(records);
}

TEST(IndexTest, MissingIndexIsEmpty) {
  ScratchDir dir;
  IndexRecord* records = nullptr;
  uint32_t count = 7;
  EXPECT_EQ(ReadIndex(dir.file("MASTER.IDX").c_str(), &records, &count), kOk);
  EXPECT_EQ(count, 0u);
}

TEST(IndexTest, EveryTruncationAndFlippedByteIsDamage) {
  ScratchDir dir;
  const std::string path = dir.file("MASTER.IDX");
  std::vector<IndexRecord> want = SmallIndex();
  ASSERT_EQ(WriteIndex(path.c_str(), want.data(), uint32_t(want.size())), kOk);
  const std::string image = orvalis_test::ReadWholeFile(path);
  bool same = false;
  for (size_t n = 0; n < image.size(); ++n)
    EXPECT_EQ(ReadImage(path, image.substr(0, n), &want, &same), kBadData) << n;
  for (size_t i = 0; i < image.size(); ++i) {
    std::string bad = image;
    bad[i] = char(bad[i] ^ 0x01);
    EXPECT_EQ(ReadImage(path, bad, &want, &same), kBadData) << i;
  }
  EXPECT_EQ(ReadImage(path, image + "x", &want, &same), kBadData) << "bytes after the last record";
  EXPECT_EQ(ReadImage(path, image, &want, &same), kOk);
  EXPECT_TRUE(same);
}

}  // namespace
