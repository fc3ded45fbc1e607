// The portable half of CORVID.DLL, natively: damaged companions and indexes go through the sanitizers.
#include <cstdlib>

#include "base/io.h"
#include "companions/corvid/assetstore.h"
#include "tests/support/test_support.h"

namespace {

using namespace corvid;

FileRecord Record(const char* path, uint32_t size, uint32_t stored) {
  FileRecord r{{}, size, 0x5A215C00u + size, 0x20, 0x01020304u * (size + 1), stored, 0};
  std::snprintf(r.path, sizeof r.path, "%s", path);
  return r;
}

std::string Text(const char* folder, uint32_t options, const FileRecord* r, size_t count) {
  std::string s = std::string(folder) + " " + std::to_string(options);
  for (size_t i = 0; i < count; ++i)
    s += " " + std::string(r[i].path) + "," + std::to_string(r[i].size) + "," + std::to_string(r[i].time) + "," +
         std::to_string(r[i].attributes) + "," + std::to_string(r[i].crc) + "," + std::to_string(r[i].stored);
  return s;
}

struct Block {
  const char *asset, *folder;
  uint32_t options;
  std::vector<FileRecord> files;
  std::string text() const { return Text(folder, options, files.data(), files.size()); }
};

const std::vector<Block> kBlocks = {
    {"C:\\Fonts\\*.ttf", "C:\\Fonts", 0x2000, {Record("a.ttf", 40, 9), Record("b.ttf", 0, 0)}},
    {"C:\\App", "C:\\App", 0x3000, {Record("x.ini", 7, 5), Record("sub\\y.dll", 100, 30)}}};

// Contents are filler the reader never decodes.
std::string Companion(std::vector<size_t>* blockEnds) {
  FILE* f = std::tmpfile();
  EXPECT_TRUE(WriteCompanionHead(f));
  for (const Block& b : kBlocks) {
    EXPECT_TRUE(WriteBlockHead(f, b.asset, b.folder, b.options, uint32_t(b.files.size())));
    for (const FileRecord& r : b.files) {
      EXPECT_TRUE(WriteFileRecord(f, r));
      for (uint32_t i = 0; i < r.stored; ++i) std::fputc(int('a' + i % 26), f);
    }
    blockEnds->push_back(size_t(std::ftell(f)));
  }
  std::string image(size_t(std::ftell(f)), '\0');
  std::rewind(f);
  EXPECT_EQ(std::fread(image.data(), 1, image.size(), f), image.size());
  std::fclose(f);
  return image;
}

// "rc", or "rc folder options records..." when it reads; closes f.
std::string Read(FILE* f, const char* asset) {
  char folder[260] = "";
  uint32_t options = 0, count = 0;
  FileRecord* records = nullptr;
  const int rc = ReadAssetBlock(f, asset, folder, &options, &records, &count);
  std::fclose(f);
  EXPECT_TRUE(rc == kOk || !records);
  const std::string out = std::to_string(rc) + (rc == kOk ? " " + Text(folder, options, records, count) : "");
  orvalis::Io().free(records);
  return out;
}
std::string Read(const std::string& image, const char* asset) {
  FILE* f = std::tmpfile();
  std::fwrite(image.data(), 1, image.size(), f);
  return Read(f, asset);
}

// A cut at a block's end, or a flip in the undecoded contents, reads as exactly what was written.
TEST(AssetStore, CompanionsReadBackOrReadAsDamage) {
  std::vector<size_t> ends;
  const std::string image = Companion(&ends), ok = std::to_string(kOk) + " ";
  const std::string bad = std::to_string(kBadData), none = std::to_string(kNoAsset);
  for (const Block& b : kBlocks) EXPECT_EQ(Read(image, b.asset), ok + b.text());
  EXPECT_EQ(Read(image, "c:\\app"), ok + kBlocks[1].text());
  EXPECT_EQ(Read(image, "C:\\Other"), none);
  const size_t head = 12;  // magic and version: a companion that holds no asset yet
  for (size_t n = 0; n < image.size(); ++n) {
    const std::string cut = image.substr(0, n);
    const bool empty = n == 0 || n == head;
    EXPECT_EQ(Read(cut, kBlocks[0].asset), empty ? none : n >= ends[0] ? ok + kBlocks[0].text() : bad) << n;
    EXPECT_EQ(Read(cut, kBlocks[1].asset), empty || n == ends[0] ? none : bad) << n;
  }
  int intact = 0;
  for (size_t i = 0; i < image.size(); ++i)
    for (unsigned char mask : {0x01, 0x80, 0xFF}) {
      std::string flipped = image;
      flipped[i] = char(flipped[i] ^ mask);
      for (const Block& b : kBlocks) {
        const std::string got = Read(flipped, b.asset);
        EXPECT_TRUE(got == bad || got == ok + b.text()) << i << " " << got;
        intact += got != bad;
      }
    }
  EXPECT_GT(intact, 0);  // the flips in the contents
}

std::string Marks(const std::vector<FileRecord>& older, const std::vector<FileRecord>& newer) {
  ChangeNode* first = BuildAssetTree(AssetOrigin{}, older.data(), uint32_t(older.size()));
  ChangeNode* second = BuildAssetTree(AssetOrigin{}, newer.data(), uint32_t(newer.size()));
  CompareAssetTrees(&first, second);
  std::string out;
  for (const ChangeNode* n = first->children; n; n = n->next)
    out += std::string(n->name) + ":" + (n->flags & kChangeFrom ? "F" : n->flags & kChangeTo ? "T"
                                         : n->flags & kChangeOlder ? "O" : n->flags & kChangeNewer ? "N" : "-") + " ";
  FreeAssetTree(first), FreeAssetTree(second);
  return out;
}

// A case-sensitive file system (Wine on Linux) can hold "a" and "A" side by side.
TEST(AssetStore, WildcardsAndNamesMatchAsWindowsMatchesThemAndUntrustworthyBlocksAreDamage) {
  const std::vector<FileRecord> two = {Record("a", 1, 0), Record("A", 2, 0)};
  EXPECT_EQ(Marks(two, two), "a:- A:- ");
  EXPECT_EQ(Marks(two, {Record("a", 1, 0), Record("A", 3, 0)}), "a:- A:F A:T ");
  EXPECT_EQ(Marks(two, {Record("A", 1, 0)}), "a:- A:O ");
  EXPECT_EQ(Marks({Record("a", 1, 0)}, two), "a:- A:N ");
  // A record path that would leave the asset's folder makes the whole block unreadable, so no tree of
  // it reaches the restore; a file count the companion cannot hold is refused before it is allocated.
  auto* const saved = orvalis::Io().calloc;
  orvalis::Io().calloc = [](size_t n, size_t size) { return n * size > (1u << 20) ? nullptr : std::calloc(n, size); };
  const char* paths[] = {"sub\\deeper\\a.txt", "a..b.txt", ".profile",  // the safe ones
                         "", "..\\x", "a\\..\\..\\x", "..", ".\\x", "C:\\x", "C:x", "a.txt:evil", "\\x",
                         "\\\\server\\share\\x", "a\\", "a\\\\b", "a/../x", "a"};
  for (size_t i = 0; i < std::size(paths); ++i) {
    const uint32_t files = i + 1 < std::size(paths) ? 2 : 999999;
    FILE* f = std::tmpfile();
    ASSERT_TRUE(WriteCompanionHead(f) && WriteBlockHead(f, "C:\\App", "C:\\App", 0, files) &&
                WriteFileRecord(f, Record("fine.txt", 3, 0)) && WriteFileRecord(f, Record(paths[i], 3, 0)));
    EXPECT_EQ(Read(f, "C:\\App").substr(0, 2), i < 3 ? "0 " : std::to_string(kBadData)) << paths[i];
  }
  orvalis::Io().calloc = saved;
  // Wildcards match as Windows matches them.
  const struct { const char* pattern; const char* name; bool match; } rows[] = {
      {"*.TXT", "ReadMe.txt", true}, {"*.txt", "readme.doc", false}, {"*.txt", "readme.txt.bak", false},
      {"a*b", "ab", true},           {"a*c*e", "abcde", true},       {"*a*b", "xaxxaxb", true},
      {"a*c", "abcd", false},        {"f?.log", "f1.log", true},     {"f?.log", "f22.log", false},
      {"f?.log", "f.log", false},    {"???", "a.b", true},           {"*.*", "README", true},
      {"setup.*", "setup", true},    {"setup.*", "setupx", false},   {"Font.TTF", "font.ttf", true},
      {"font", "font.ttf", false},   {"font.ttf", "font", false},    {"\xC4*", "\xC4rger.txt", true}};
  for (const auto& r : rows) EXPECT_EQ(WildcardMatch(r.pattern, r.name), r.match) << r.pattern << " vs " << r.name;
}

// MASTER.IDX is replaced through a temporary file; missing means empty.
TEST(AssetStore, IndexReadsBackOrReadsAsDamage) {
  orvalis_test::ScratchDir dir;
  const std::string path = dir.file("MASTER.IDX");
  const IndexRecord want[] = {{"AST0000.OVA", "C:\\Fonts\\*.ttf", 0x1000, 0, 12},
                              {"AST0000.OVA", "C:\\App", 0x2000, 7, 312}, {"AST0001.OVA", "C:\\App", 0x3000, 14, 612}};
  auto read = [&](const std::string* image) {  // "rc records..."
    if (image) orvalis_test::WriteWholeFile(path, *image);
    IndexRecord* r = nullptr;
    uint32_t count = 0;
    const int rc = ReadIndex(path.c_str(), &r, &count);
    std::string out = std::to_string(rc);
    for (uint32_t i = 0; rc == kOk && i < count; ++i)
      out += std::string(" ") + r[i].companion + "," + r[i].asset + "," + std::to_string(r[i].options) + "," +
             std::to_string(r[i].files) + "," + std::to_string(r[i].offset);
    orvalis::Io().free(r);
    return out;
  };
  EXPECT_EQ(read(nullptr), "0");
  ASSERT_EQ(WriteIndex(path.c_str(), want, 1), kOk);
  ASSERT_EQ(WriteIndex(path.c_str(), want, 3), kOk);
  EXPECT_FALSE(orvalis_test::FileExists(path + ".tmp"));
  EXPECT_EQ(read(nullptr), "0 AST0000.OVA,C:\\Fonts\\*.ttf,4096,0,12 AST0000.OVA,C:\\App,8192,7,312 "
                           "AST0001.OVA,C:\\App,12288,14,612");
  const std::string image = orvalis_test::ReadWholeFile(path), bad = std::to_string(kBadData);
  for (size_t n = 0; n < image.size(); ++n) {
    const std::string cut = image.substr(0, n);
    std::string flipped = image;
    flipped[n] = char(flipped[n] ^ 0x01);
    EXPECT_EQ(read(&cut), bad) << n;
    EXPECT_EQ(read(&flipped), bad) << n;
  }
  const std::string longer = image + "x";
  EXPECT_EQ(read(&longer), bad);
}

}  // namespace
