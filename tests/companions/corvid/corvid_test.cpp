// CORVID.DLL through its exported entry points, against real folders under Wine.
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>

#include "base/companion_api.h"
#include "base/io.h"
#include "companions/corvid/assetstore.h"
#include "tests/support/engine_sandbox.h"

namespace {

using namespace orvalis_test;
using Lines = std::vector<std::string>;

const uint32_t kBaseTime = (uint32_t(44) << 9 | 5 << 5 | 6) << 16 | (10 << 11 | 20 << 5 | 15);  // 2024-05-06 10:20:30

// A fixed time, so that times compare exactly.
void Put(const std::string& path, const std::string& data, uint32_t dosTime = kBaseTime, DWORD attributes = 0) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL);
  ASSERT_TRUE(WriteWholeFile(path, data)) << path;
  FILETIME local, utc;
  DosDateTimeToFileTime(WORD(dosTime >> 16), WORD(dosTime & 0xFFFF), &local);
  LocalFileTimeToFileTime(&local, &utc);
  HANDLE h = CreateFileA(path.c_str(), FILE_WRITE_ATTRIBUTES, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  SetFileTime(h, nullptr, nullptr, &utc);
  CloseHandle(h);
  if (attributes) SetFileAttributesA(path.c_str(), attributes);
}

std::string Binary(size_t n, unsigned seed) {
  std::string s(n, '\0');
  for (size_t i = 0; i < n; ++i, seed = seed * 1103515245u + 12345u) s[i] = char((seed >> 16) & (i % 3 ? 0xFF : 0x0F));
  return s;
}

Lines StateOf(const std::string& folder, const Lines& names) {
  Lines out;
  for (const std::string& n : names) {
    WIN32_FILE_ATTRIBUTE_DATA a{};
    GetFileAttributesExA((folder + "\\" + n).c_str(), GetFileExInfoStandard, &a);
    out.push_back(n + " " + std::to_string(std::hash<std::string>{}(ReadWholeFile(folder + "\\" + n))) + " " +
                  std::to_string(a.ftLastWriteTime.dwLowDateTime) + " " + std::to_string(a.dwFileAttributes));
  }
  return out;
}

Lines Sorted(Lines v) { return std::sort(v.begin(), v.end()), v; }

// "letter name" per node, folders with a trailing backslash; a changed file's older state must be
// followed directly by its newer one.
void Walk(const ChangeNode* parent, Lines* out) {
  for (const ChangeNode* n = parent ? parent->children : nullptr; n; n = n->next) {
    const uint16_t f = n->flags;
    const char* letter = f & kChangeOlder ? "O" : f & kChangeNewer ? "N" : f & kChangeFrom ? "F" : f & kChangeTo ? "T"
                         : f & kChangeBelow ? "B" : "-";
    out->push_back(std::string(letter) + " " + n->name + (f & kKindFolder ? "\\" : ""));
    EXPECT_TRUE(!(f & kChangeFrom) || (n->next && (n->next->flags & kChangeTo) && !std::strcmp(n->next->name, n->name)))
        << n->name;
    Walk(n, out);
  }
}
// The changed nodes' lines, or (changed false) the file names alone.
Lines Nodes(const ChangeNode* root, bool changed = true) {
  Lines v;
  Walk(root, &v);
  std::erase_if(v, [&](const std::string& l) { return changed ? l[0] == '-' : l.back() == '\\'; });
  for (std::string& l : v) l.erase(0, changed ? 0 : 2);
  return Sorted(v);
}

// Damage the library would never write, made with the portable format writers.
void Rewrite(const std::string& from, const std::string& to, const std::string& asset,
             const std::function<void(corvid::FileRecord&)>& edit) {
  const std::string image = ReadWholeFile(from);
  FILE* in = std::fopen(from.c_str(), "rb");
  char folder[260];
  uint32_t options = 0, count = 0;
  corvid::FileRecord* records = nullptr;
  ASSERT_EQ(corvid::ReadAssetBlock(in, asset.c_str(), folder, &options, &records, &count), 0);
  std::fclose(in);
  FILE* out = std::fopen(to.c_str(), "wb");
  ASSERT_TRUE(corvid::WriteCompanionHead(out) && corvid::WriteBlockHead(out, asset.c_str(), folder, options, count));
  for (uint32_t i = 0; i < count; ++i) {
    corvid::FileRecord r = records[i];
    edit(r);
    ASSERT_TRUE(corvid::WriteFileRecord(out, r));
    std::fwrite(image.data() + records[i].offset, 1, r.stored, out);
  }
  orvalis::Io().free(records);
  ASSERT_EQ(std::fclose(out), 0);
}

using Tree = std::unique_ptr<ChangeNode, FreeAssetTreeFn>;

class Corvid : public ::testing::Test {
 protected:
  template <class F> F Get(const char* name) {
    F f = reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(dll_, name)));
    EXPECT_TRUE(f) << name;
    return f;
  }
  void SetUp() override { ASSERT_FALSE(HasFailure()) << "CORVID.DLL or one of its entry points is missing"; }
  ~Corvid() override { FreeLibrary(dll_); }

  // The guard beside the preset 16-bit result shows that only 16 bits are written back.
  int Snap(const std::string& asset, uint32_t options, const char* companion = "AST0000.OVA",
           uint16_t* result = nullptr) {
    struct { uint16_t value = 0x7777, guard = 0xBEEF; } r;
    const int rc = snap_(asset.c_str(), index_.c_str(), dir_.file(companion).c_str(), &r.value, options);
    EXPECT_EQ(r.guard, 0xBEEF);
    if (result) *result = r.value;
    return rc;
  }
  Tree FromSnapshot(const std::string& asset, uint32_t options, const char* companion = "AST0000.OVA",
                    int side = 1) {
    ChangeNode* t = nullptr;
    EXPECT_EQ(fromSnapshot_(dir_.file(companion).c_str(), asset.c_str(), &t, side, 0, options), 0) << companion;
    return Tree(t, freeTree_);
  }
  void Compare(Tree& first, ChangeNode* second, uint32_t options) {
    ChangeNode* p = first.release();
    uint16_t scratch = 0;
    EXPECT_EQ(compare_(&p, second, &scratch, options), 0);
    first.reset(p);
  }
  // As the engine's restore builds it: the snapshot, then the live side.
  Tree AgainstLive(const std::string& asset, uint32_t options, const char* companion = "AST0000.OVA",
                   int* liveRc = nullptr) {
    Tree first = FromSnapshot(asset, options, companion);
    ChangeNode* second = nullptr;
    uint16_t value = 0;
    const int rc = fromLive_(asset.c_str(), &second, int((options & 0x2000) | 2), &value, options);
    if (liveRc) *liveRc = rc;
    Compare(first, second, options);
    freeTree_(second);  // what the comparison did not move into first
    return first;
  }
  int Restore(const Tree& tree, bool* listed = nullptr) {
    AssetChange* list = nullptr;
    EXPECT_EQ(changes_(tree.get(), &list), 0);
    if (listed) *listed = list != nullptr;
    const int rc = list ? restore_(&list, "unused", 0, 1) : 0;
    freeChanges_(&list);
    EXPECT_EQ(list, nullptr);
    return rc;
  }

  HMODULE dll_ = LoadLibraryA((BinDir() + "\\CORVID.DLL").c_str());
  SnapResFromWildcardFn snap_ = Get<SnapResFromWildcardFn>("_SnapResFromWildcard");
  AssetsFromSnapshotFn fromSnapshot_ = Get<AssetsFromSnapshotFn>("_AssetsFromSnapshot");
  AssetsFromLiveFn fromLive_ = Get<AssetsFromLiveFn>("_AssetsFromLive");
  AssetTreeCompareFn compare_ = Get<AssetTreeCompareFn>("_AssetTreeCompare");
  AssetChgListFn changes_ = Get<AssetChgListFn>("_AssetChgList");
  AssetChgListRestoreFn restore_ = Get<AssetChgListRestoreFn>("_AssetChgListRestore");
  FreeAssetChgListFn freeChanges_ = Get<FreeAssetChgListFn>("_FreeAssetChgList");
  FreeAssetTreeFn freeTree_ = Get<FreeAssetTreeFn>("_FreeAssetTree");
  DeleteAssetSnapshotFn delete_ = Get<DeleteAssetSnapshotFn>("_DeleteAssetSnapshot");
  ScratchDir dir_;
  const std::string app_ = dir_.file("app"), index_ = dir_.file("MASTER.IDX");
};

// Each row in its own companion; the written-back result is 1 when something matched.
TEST_F(Corvid, CaptureRecordsWhatTheAssetMatches) {
  const Lines top = {"a.txt", "b.TXT", "c.dat", "f1.log", "f22.log"},
              all = {"a.txt", "b.TXT", "c.dat", "f1.log", "f22.log", "sub\\deeper\\d.txt", "sub\\deeper\\e.dat", "sub\\s.txt"};
  for (const std::string& f : all) Put(app_ + "\\" + f, f);
  const struct { const char* asset; uint32_t options; Lines files; } rows[] = {
      {"app\\*.txt", 0, {"a.txt", "b.TXT"}}, {"app\\f?.log", 0, {"f1.log"}}, {"app\\c.dat", 0x2000, {"c.dat"}},
      {"app", 0, top}, {"app\\", 0x2000, top}, {"app", 0x1000, all}, {"app\\*.none", 0x3000, {}},
      {"app\\*.txt", 0x3000, {"a.txt", "b.TXT", "sub\\deeper\\d.txt", "sub\\s.txt"}}, {"nowhere\\*.txt", 0x2000, {}}};
  int n = 0;
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.asset) + " " + std::to_string(row.options));
    const std::string asset = dir_.file(row.asset), companion = "C" + std::to_string(n++) + ".OVA";
    uint16_t result = 0;
    EXPECT_EQ(Snap(asset, row.options, companion.c_str(), &result), 0);
    EXPECT_EQ(result, row.files.empty() ? 0 : 1);
    EXPECT_EQ(Nodes(FromSnapshot(asset, row.options, companion.c_str()).get(), false), Sorted(row.files));
  }
}

// Without contents (0x1000) nothing is restored: half a restore is worse than none.
TEST_F(Corvid, ComparisonAndRestoreOfAChangedOrRemovedFolder) {
  const Lines files = {"plain.txt", "ro.txt", "empty.txt", "time.txt", "Case.TXT", "sub\\deep.bin", "sub\\deeper\\z.txt"};
  std::string text;
  for (int i = 0; i < 200; ++i) text += "line " + std::to_string(i) + " of a text file\r\n";
  Put(app_ + "\\plain.txt", text);
  Put(app_ + "\\ro.txt", "read only", kBaseTime - 2, FILE_ATTRIBUTE_READONLY);
  Put(app_ + "\\empty.txt", "", kBaseTime + 4);
  Put(app_ + "\\time.txt", "time");
  Put(app_ + "\\Case.TXT", "case");
  Put(app_ + "\\sub\\deep.bin", Binary(100000, 7), kBaseTime - (1 << 16));
  Put(app_ + "\\sub\\deeper\\z.txt", "zzz", kBaseTime + (1 << 5));
  const Lines before = StateOf(app_, files);
  ASSERT_EQ(Snap(app_, 0x3000), 0);
  ASSERT_EQ(Snap(app_, 0x1000, "AST0001.OVA"), 0);
  Put(app_ + "\\plain.txt", "changed");
  Put(app_ + "\\ro.txt", "READ ONLY", kBaseTime - 2, FILE_ATTRIBUTE_READONLY);  // only the CRC-32 differs
  DeleteFileA((app_ + "\\empty.txt").c_str());
  Put(app_ + "\\time.txt", "time", kBaseTime + (1 << 11));
  MoveFileA((app_ + "\\Case.TXT").c_str(), (app_ + "\\case.txt").c_str());
  Put(app_ + "\\sub\\deep.bin", Binary(100001, 7));
  std::filesystem::remove_all(app_ + "\\sub\\deeper");
  Put(app_ + "\\new.txt", "new");
  Put(app_ + "\\newro.txt", "new", kBaseTime, FILE_ATTRIBUTE_READONLY);
  Put(app_ + "\\newdir\\deeper\\y.txt", "y");
  const Lines added = {"plain.txt", "ro.txt", "new.txt", "newro.txt", "newdir\\deeper\\y.txt"};
  const Lines changed = StateOf(app_, added);
  ASSERT_EQ(Snap(app_, 0x3000, "AST0002.OVA"), 0);
  Tree two = FromSnapshot(app_, 0x3000);
  Compare(two, FromSnapshot(app_, 0x3000, "AST0002.OVA", 2).get(), 0x3000);
  for (const Tree& tree : {AgainstLive(app_, 0x3000), std::move(two)}) {
    ASSERT_TRUE(tree);
    EXPECT_EQ(Nodes(tree.get()),
              (Lines{"B sub\\", "F plain.txt", "F ro.txt", "F sub\\deep.bin", "F time.txt", "N new.txt", "N newdir\\",
                     "N newdir\\deeper\\", "N newdir\\deeper\\y.txt", "N newro.txt", "O empty.txt", "O sub\\deeper\\",
                     "O sub\\deeper\\z.txt", "T plain.txt", "T ro.txt", "T sub\\deep.bin", "T time.txt"}));
    EXPECT_NE(tree->flags & kChangeBelow, 0);
  }
  bool listed = true;
  EXPECT_EQ(Restore(AgainstLive(app_, 0x1000, "AST0001.OVA"), &listed), 0);
  EXPECT_FALSE(listed);
  EXPECT_EQ(StateOf(app_, added), changed);
  EXPECT_EQ(Restore(AgainstLive(app_, 0x3000), &listed), 0);
  EXPECT_TRUE(listed);
  EXPECT_EQ(StateOf(app_, files), before);
  Lines left = ListDir(app_);
  for (std::string& n : left) CharLowerA(n.data());  // whether Wine renamed Case.TXT is its own affair
  EXPECT_EQ(Sorted(left), (Lines{"case.txt", "empty.txt", "plain.txt", "ro.txt", "sub", "time.txt"}));
  SetFileAttributesA((app_ + "\\ro.txt").c_str(), FILE_ATTRIBUTE_NORMAL);
  std::filesystem::remove_all(app_);
  int liveRc = 0;
  Tree gone = AgainstLive(app_, 0x3000, "AST0000.OVA", &liveRc);
  EXPECT_EQ(liveRc, 3);
  EXPECT_EQ(Nodes(gone.get()), (Lines{"O Case.TXT", "O empty.txt", "O plain.txt", "O ro.txt", "O sub\\", "O sub\\deep.bin",
                                      "O sub\\deeper\\", "O sub\\deeper\\z.txt", "O time.txt"}));
  EXPECT_EQ(Restore(gone), 0);
  EXPECT_EQ(StateOf(app_, files), before);
}

// A record without contents is not written back, nor contents that fail their CRC-32; the rest of the
// list is still carried out.
TEST_F(Corvid, RestoreWritesOnlyContentsThatCheck) {
  for (const char* f : {"bad", "bare", "kept"}) Put(app_ + "\\" + f + ".txt", std::string(f) + " contents");
  ASSERT_EQ(Snap(app_, 0x2000), 0);
  Rewrite(dir_.file("AST0000.OVA"), dir_.file("AST0001.OVA"), app_, [](corvid::FileRecord& r) {
    if (!std::strcmp(r.path, "bare.txt")) r.stored = 0;
    if (!std::strcmp(r.path, "bad.txt")) r.crc ^= 1;
  });
  for (const char* f : {"\\kept.txt", "\\bare.txt"}) DeleteFileA((app_ + f).c_str());
  Put(app_ + "\\bad.txt", "live contents");
  Tree tree = AgainstLive(app_, 0x2000, "AST0001.OVA");
  EXPECT_EQ(Nodes(tree.get()), (Lines{"F bad.txt", "O bare.txt", "O kept.txt", "T bad.txt"}));
  EXPECT_EQ(Restore(tree), 13);
  EXPECT_EQ(ReadWholeFile(app_ + "\\kept.txt"), "kept contents");
  EXPECT_EQ(ReadWholeFile(app_ + "\\bad.txt"), "live contents");
  EXPECT_EQ(Sorted(ListDir(app_)), (Lines{"bad.txt", "kept.txt"})) << "no temporary file stays";
}

TEST_F(Corvid, DeletingOneSnapshotLeavesTheOthersReadable) {
  const std::string fonts = dir_.file("fonts"), ttf = fonts + "\\*.ttf";
  for (int s = 0; s < 3; ++s) {
    const std::string companion = "AST000" + std::to_string(s) + ".OVA";
    Put(fonts + "\\f" + std::to_string(s) + ".ttf", Binary(5000 + s, s));
    Put(app_ + "\\bin\\app.dll", Binary(20000 + s, 3));
    ASSERT_EQ(Snap(ttf, 0x2000, companion.c_str()), 0);
    ASSERT_EQ(Snap(app_, 0x3000, companion.c_str()), 0);
  }
  EXPECT_EQ(delete_(index_.c_str(), "AST0001.OVA"), 0);
  EXPECT_FALSE(FileExists(dir_.file("AST0001.OVA")));
  corvid::IndexRecord* r = nullptr;
  uint32_t count = 0;
  ASSERT_EQ(corvid::ReadIndex(index_.c_str(), &r, &count), 0);
  Lines index;
  for (uint32_t i = 0; i < count; ++i) index.push_back(std::string(r[i].companion) + " " + r[i].asset);
  orvalis::Io().free(r);
  EXPECT_EQ(index, (Lines{"AST0000.OVA " + ttf, "AST0000.OVA " + app_, "AST0002.OVA " + ttf, "AST0002.OVA " + app_}));
  EXPECT_EQ(Nodes(FromSnapshot(ttf, 0x2000, "AST0002.OVA").get(), false), (Lines{"f0.ttf", "f1.ttf", "f2.ttf"}));
  EXPECT_EQ(Nodes(FromSnapshot(app_, 0x3000, "AST0000.OVA").get(), false), Lines{"bin\\app.dll"});
  // The first asset's contents restore although another block follows it in the companion.
  DeleteFileA((fonts + "\\f0.ttf").c_str());
  EXPECT_EQ(Restore(AgainstLive(ttf, 0x2000, "AST0000.OVA")), 0);
  EXPECT_EQ(ReadWholeFile(fonts + "\\f0.ttf"), Binary(5000, 0));
  const std::string image = ReadWholeFile(index_);
  EXPECT_EQ(delete_(index_.c_str(), "AST0009.OVA"), 0);
  EXPECT_EQ(ReadWholeFile(index_), image);
  EXPECT_EQ(delete_(index_.c_str(), "..\\AST0000.OVA"), 13);
  EXPECT_TRUE(FileExists(dir_.file("AST0000.OVA")));
}

TEST_F(Corvid, DamagedCompanionsAndIndexesGiveAnErrorAndAreLeftAsTheyAre) {
  Put(app_ + "\\a.txt", Binary(3000, 9));
  ASSERT_EQ(Snap(app_, 0x2000), 0);
  const std::string companion = ReadWholeFile(dir_.file("AST0000.OVA")), bad = dir_.file("BAD.OVA");
  const struct { std::string bytes; const char* asset; int rc; } rows[] = {  // "-": no file at all
      {"-", app_.c_str(), 2}, {"", app_.c_str(), 3},  // empty as the engine creates it
      {std::string("MZ\x90\0\3\0\0\0\4\0\0\0\xFF\xFF", 16), app_.c_str(), 13}, {companion + "GARBAGE", "C:\\other", 13}};
  for (const auto& row : rows) {
    DeleteFileA(bad.c_str());
    if (row.bytes != "-") WriteWholeFile(bad, row.bytes);
    ChangeNode* tree = reinterpret_cast<ChangeNode*>(1);
    EXPECT_EQ(fromSnapshot_(bad.c_str(), row.asset, &tree, 1, 0, 0x2000), row.rc) << row.bytes.size();
    EXPECT_EQ(tree, nullptr);
  }
  freeTree_(nullptr), freeChanges_(nullptr);  // nothing to free is no error
  // An index that exists but cannot be opened must not be taken for a missing (empty) one: that would
  // replace every other snapshot's records with the capture's own.
  ASSERT_EQ(Snap(app_, 0x2000, "AST0001.OVA"), 0);
  const std::string good = ReadWholeFile(index_), damaged = good.substr(0, 40);
  WriteWholeFile(index_, damaged);
  uint16_t result = 0;
  EXPECT_EQ(Snap(app_, 0x2000, "AST0002.OVA", &result), 13);
  EXPECT_EQ(result, 1) << "the asset itself was recorded";
  EXPECT_EQ(delete_(index_.c_str(), "AST0000.OVA"), 13);
  EXPECT_TRUE(FileExists(dir_.file("AST0000.OVA")));
  EXPECT_EQ(ReadWholeFile(index_), damaged);
  WriteWholeFile(index_, good);
  HANDLE h = CreateFileA(index_.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(h, INVALID_HANDLE_VALUE);
  EXPECT_NE(Snap(app_, 0x2000, "AST0002.OVA"), 0);
  EXPECT_NE(delete_(index_.c_str(), "AST0000.OVA"), 0);
  CloseHandle(h);
  EXPECT_EQ(ReadWholeFile(index_), good);
  EXPECT_TRUE(FileExists(dir_.file("AST0000.OVA")));
}

}  // namespace
