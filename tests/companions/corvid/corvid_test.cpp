// CORVID.DLL as the engine calls it: loaded by LoadLibraryA, every entry point resolved by its
// exported name, run against real folders under Wine. Each test works in its own scratch folder,
// removed afterwards. Companions with damage the library would never write are made with the
// format writers of the portable half.
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/companion_api.h"
#include "base/io.h"
#include "companions/corvid/assetstore.h"
#include "tests/support/engine_sandbox.h"
#include "tests/support/test_support.h"

namespace {

using orvalis_test::BinDir;
using orvalis_test::FileExists;
using orvalis_test::ReadWholeFile;
using orvalis_test::ScratchDir;
using orvalis_test::WriteWholeFile;
using Lines = std::vector<std::string>;

struct Corvid {
  HMODULE dll = nullptr;
  SnapResFromWildcardFn snap = nullptr;
  AssetsFromSnapshotFn fromSnapshot = nullptr;
  AssetsFromLiveFn fromLive = nullptr;
  AssetTreeCompareFn compare = nullptr;
  AssetChgListFn changes = nullptr;
  AssetChgListRestoreFn restore = nullptr;
  FreeAssetChgListFn freeChanges = nullptr;
  FreeAssetTreeFn freeTree = nullptr;
  DeleteAssetSnapshotFn deleteSnapshot = nullptr;
  template <class F>
  F Proc(const char* name) {
    return reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(dll, name)));
  }
  Corvid() {
    dll = LoadLibraryA((BinDir() + "\\CORVID.DLL").c_str());
    if (!dll) return;
    snap = Proc<SnapResFromWildcardFn>("_SnapResFromWildcard");
    fromSnapshot = Proc<AssetsFromSnapshotFn>("_AssetsFromSnapshot");
    fromLive = Proc<AssetsFromLiveFn>("_AssetsFromLive");
    compare = Proc<AssetTreeCompareFn>("_AssetTreeCompare");
    changes = Proc<AssetChgListFn>("_AssetChgList");
    restore = Proc<AssetChgListRestoreFn>("_AssetChgListRestore");
    freeChanges = Proc<FreeAssetChgListFn>("_FreeAssetChgList");
    freeTree = Proc<FreeAssetTreeFn>("_FreeAssetTree");
    deleteSnapshot = Proc<DeleteAssetSnapshotFn>("_DeleteAssetSnapshot");
  }
  bool Loaded() const {
    return snap && fromSnapshot && fromLive && compare && changes && restore && freeChanges && freeTree &&
           deleteSnapshot;
  }
  ~Corvid() {
    if (dll) FreeLibrary(dll);
  }

  // The engine's call: the 16-bit result is preset to the profile's value; the guard beside it
  // shows that only 16 bits are written.
  int Snap(const std::string& asset, const std::string& index, const std::string& companion, uint32_t options,
           uint16_t* result = nullptr) {
    struct {
      uint16_t value = 0x7777;
      uint16_t guard = 0xBEEF;
    } r;
    const int rc = snap(asset.c_str(), index.c_str(), companion.c_str(), &r.value, options);
    EXPECT_EQ(r.guard, 0xBEEF);
    if (result) *result = r.value;
    return rc;
  }
  // Builds the comparison as the engine's restore does: the snapshot, then the live side.
  ChangeNode* SnapshotAgainstLive(const std::string& companion, const std::string& asset, uint32_t flags,
                                  int* liveRc = nullptr) {
    ChangeNode* first = nullptr;
    ChangeNode* second = nullptr;
    EXPECT_EQ(fromSnapshot(companion.c_str(), asset.c_str(), &first, 1, 0, flags), 0);
    uint16_t value = 0;
    const int rc = fromLive(asset.c_str(), &second, int((flags & 0x2000) | 2), &value, flags);
    if (liveRc) *liveRc = rc;
    uint16_t scratch = 0;
    EXPECT_EQ(compare(&first, second, &scratch, flags), 0);
    freeTree(second);  // what is left of it: the changed and new nodes moved into first
    return first;
  }
  // Lists and carries out the changes that bring the live folder back to the tree's first side.
  int Restore(ChangeNode* tree, bool* hadChanges = nullptr) {
    AssetChange* list = nullptr;
    EXPECT_EQ(changes(tree, &list), 0);
    if (hadChanges) *hadChanges = list != nullptr;
    const int rc = list ? restore(&list, "unused", 0, 1) : 0;
    freeChanges(&list);
    EXPECT_EQ(list, nullptr);
    return rc;
  }
};

// ---- files -----------------------------------------------------------------------------------

const uint32_t kBaseTime = (uint32_t(44) << 9 | 5 << 5 | 6) << 16 | (10 << 11 | 20 << 5 | 15);  // 2024-05-06 10:20:30

uint32_t DosTimeOf(const std::string& path) {
  WIN32_FILE_ATTRIBUTE_DATA a;
  FILETIME local;
  WORD date = 0, time = 0;
  if (!GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &a) ||
      !FileTimeToLocalFileTime(&a.ftLastWriteTime, &local) || !FileTimeToDosDateTime(&local, &date, &time))
    return 0;
  return uint32_t(date) << 16 | time;
}

void SetDosTime(const std::string& path, uint32_t dos) {
  FILETIME local, utc;
  ASSERT_TRUE(DosDateTimeToFileTime(WORD(dos >> 16), WORD(dos & 0xFFFF), &local));
  ASSERT_TRUE(LocalFileTimeToFileTime(&local, &utc));
  HANDLE h = CreateFileA(path.c_str(), FILE_WRITE_ATTRIBUTES, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(h, INVALID_HANDLE_VALUE) << path;
  SetFileTime(h, nullptr, nullptr, &utc);
  CloseHandle(h);
}

void MakeFolders(const std::string& path) {
  for (size_t i = 3; i < path.size(); ++i)
    if (path[i] == '\\') CreateDirectoryA(path.substr(0, i).c_str(), nullptr);
}

// Writes a file (folders made as needed) with a fixed time, so that DOS times compare exactly.
void Put(const std::string& path, const std::string& data, uint32_t time = kBaseTime, DWORD attributes = 0) {
  MakeFolders(path);
  SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL);
  ASSERT_TRUE(WriteWholeFile(path, data)) << path;
  SetDosTime(path, time);
  if (attributes) SetFileAttributesA(path.c_str(), attributes);
}

void RemoveTree(const std::string& path) {
  WIN32_FIND_DATAA fd;
  HANDLE h = FindFirstFileA((path + "\\*").c_str(), &fd);
  if (h != INVALID_HANDLE_VALUE) {
    do {
      const std::string name = fd.cFileName;
      if (name == "." || name == "..") continue;
      const std::string full = path + "\\" + name;
      if (fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
        RemoveTree(full);
      } else {
        SetFileAttributesA(full.c_str(), FILE_ATTRIBUTE_NORMAL);
        DeleteFileA(full.c_str());
      }
    } while (FindNextFileA(h, &fd));
    FindClose(h);
  }
  RemoveDirectoryA(path.c_str());
}

std::string Binary(size_t n, unsigned seed) {
  std::string s(n, '\0');
  for (size_t i = 0; i < n; ++i) {
    seed = seed * 1103515245u + 12345u;
    s[i] = char((seed >> 16) & (i % 3 ? 0xFF : 0x0F));  // some repetition for the coder
  }
  return s;
}

// A file as the test left it: bytes, DOS time, attributes.
struct FileState {
  std::string path, data;
  uint32_t time;
  DWORD attributes;
};
std::vector<FileState> StateOf(const std::string& folder, const Lines& relative) {
  std::vector<FileState> out;
  for (const std::string& r : relative) {
    const std::string p = folder + "\\" + r;
    out.push_back({r, ReadWholeFile(p), DosTimeOf(p), GetFileAttributesA(p.c_str())});
  }
  return out;
}

// ---- trees -----------------------------------------------------------------------------------

// One line per node below the root, depth first: the change letter ("-" unchanged, "B" a folder
// with a change below it) and the node's name, folders with a trailing backslash. Checks on the
// way that every changed file's older state is followed directly by its newer one.
void Walk(const ChangeNode* parent, Lines* out) {
  for (const ChangeNode* n = parent->children; n; n = n->next) {
    const uint16_t f = n->flags;
    const char* letter = f & kChangeOlder ? "O" : f & kChangeNewer ? "N" : f & kChangeFrom ? "F" : f & kChangeTo ? "T"
                         : f & kChangeBelow ? "B" : "-";
    out->push_back(std::string(letter) + " " + n->name + (f & kKindFolder ? "\\" : ""));
    if (f & kChangeFrom) {
      EXPECT_TRUE(n->next && (n->next->flags & kChangeTo) && !std::strcmp(n->next->name, n->name)) << n->name;
    }
    Walk(n, out);
  }
}
Lines Marked(const ChangeNode* root) {
  Lines all;
  if (root) Walk(root, &all);
  std::sort(all.begin(), all.end());
  return all;
}
Lines Files(const ChangeNode* root) {
  Lines names;
  for (const std::string& l : Marked(root))
    if (l.back() != '\\') names.push_back(l.substr(2));
  return names;
}
// Every line of `all` not in `changed` must be unchanged ("-").
Lines UnchangedExcept(const Lines& all, const Lines& changed) {
  Lines out = changed;
  for (const std::string& l : all) {
    const std::string name = l.substr(2);
    bool listed = false;
    for (const std::string& c : changed) listed = listed || c.substr(2) == name;
    if (!listed) out.push_back("- " + name);
  }
  std::sort(out.begin(), out.end());
  return out;
}

// ---- capture ---------------------------------------------------------------------------------

struct CaptureRow {
  const char* name;
  const char* asset;  // below the scratch folder's "app"
  uint32_t options;
  uint16_t result;
  Lines files;        // the recorded paths
};

// app: a.txt, b.TXT, c.dat, README, f1.log, f22.log, g1.log, check.bin ("123456789"),
//      sub\s.txt, sub\deeper\d.txt, sub\deeper\e.dat
const CaptureRow kCaptureRows[] = {
    {"star", "app\\*.txt", 0, 1, {"a.txt", "b.TXT"}},
    {"question", "app\\f?.log", 0, 1, {"f1.log"}},
    {"star_and_question", "app\\?1.*", 0, 1, {"f1.log", "g1.log"}},
    {"star_dot_star_takes_names_without_dot", "app\\*.*", 0, 1,
     {"README", "a.txt", "b.TXT", "c.dat", "check.bin", "f1.log", "f22.log", "g1.log"}},
    {"single_file", "app\\check.bin", 0x2000, 1, {"check.bin"}},
    {"folder_is_every_file", "app", 0, 1,
     {"README", "a.txt", "b.TXT", "c.dat", "check.bin", "f1.log", "f22.log", "g1.log"}},
    {"folder_with_trailing_backslash", "app\\", 0x2000, 1,
     {"README", "a.txt", "b.TXT", "c.dat", "check.bin", "f1.log", "f22.log", "g1.log"}},
    {"folder_with_subfolders", "app", 0x1000, 1,
     {"README", "a.txt", "b.TXT", "c.dat", "check.bin", "f1.log", "f22.log", "g1.log", "sub\\deeper\\d.txt",
      "sub\\deeper\\e.dat", "sub\\s.txt"}},
    {"wildcard_with_subfolders", "app\\*.txt", 0x3000, 1,
     {"a.txt", "b.TXT", "sub\\deeper\\d.txt", "sub\\s.txt"}},
    {"subfolder_as_folder_asset", "app\\sub\\deeper", 0x2000, 1, {"d.txt", "e.dat"}},
    {"nothing_matches", "app\\*.none", 0x3000, 0, {}},
    {"missing_folder", "nowhere\\*.txt", 0x2000, 0, {}},
};

class CaptureTest : public ::testing::TestWithParam<CaptureRow> {};

TEST_P(CaptureTest, RecordsWhatTheAssetMatches) {
  const CaptureRow& row = GetParam();
  Corvid c;
  ASSERT_TRUE(c.Loaded());
  ScratchDir dir;
  const std::string app = dir.file("app");
  for (const char* f : {"a.txt", "b.TXT", "c.dat", "README", "f1.log", "f22.log", "g1.log", "sub\\s.txt",
                        "sub\\deeper\\d.txt", "sub\\deeper\\e.dat"})
    Put(app + "\\" + f, std::string("contents of ") + f);
  Put(app + "\\check.bin", "123456789");
  const std::string asset = dir.file(row.asset);
  const std::string companion = dir.file("AST0000.OVA"), index = dir.file("MASTER.IDX");
  uint16_t result = 0;
  EXPECT_EQ(c.Snap(asset, index, companion, row.options, &result), 0);
  EXPECT_EQ(result, row.result);

  ChangeNode* tree = nullptr;
  ASSERT_EQ(c.fromSnapshot(companion.c_str(), asset.c_str(), &tree, 1, 0, row.options), 0);
  Lines want = row.files;
  std::sort(want.begin(), want.end());
  EXPECT_EQ(Files(tree), want);
  // Listed without a second side, nothing is marked.
  uint16_t scratch = 0;
  EXPECT_EQ(c.compare(&tree, nullptr, &scratch, row.options), 0);
  for (const std::string& l : Marked(tree)) EXPECT_EQ(l[0], '-') << l;
  // Size, time and, with the contents kept, CRC-32 as recorded (without them nothing is read).
  std::function<void(const ChangeNode*)> check = [&](const ChangeNode* n) {
    for (; n; n = n->next) {
      if ((n->flags & kKindFile) && !std::strcmp(n->name, "check.bin")) {
        EXPECT_EQ(n->length, 9u);
        EXPECT_EQ(n->crc, (row.options & 0x2000) ? 0xCBF43926u : 0u);
        EXPECT_EQ(n->time, kBaseTime);
      }
      check(n->children);
    }
  };
  check(tree->children);
  c.freeTree(tree);

  // With 0x2000 the asset is restorable: every file deleted comes back.
  const std::string folder = dir.file(std::strstr(row.asset, "deeper") ? "app\\sub\\deeper" : "app");
  const std::vector<FileState> before = StateOf(folder, row.files);
  for (const std::string& f : row.files) DeleteFileA((folder + "\\" + f).c_str());
  ChangeNode* marked = c.SnapshotAgainstLive(companion, asset, row.options);
  bool listed = false;
  EXPECT_EQ(c.Restore(marked, &listed), 0);
  c.freeTree(marked);
  EXPECT_EQ(listed, (row.options & 0x2000) && !row.files.empty());
  for (const FileState& s : before)
    EXPECT_EQ(FileExists(folder + "\\" + s.path), (row.options & 0x2000) != 0) << s.path;
}

INSTANTIATE_TEST_SUITE_P(Table, CaptureTest, ::testing::ValuesIn(kCaptureRows),
                         [](const auto& info) { return std::string(info.param.name); });

// Three assets appended to one companion, each readable on its own and indexed.
TEST(CaptureTest, ThreeAssetsShareOneCompanion) {
  Corvid c;
  ASSERT_TRUE(c.Loaded());
  ScratchDir dir;
  Put(dir.file("fonts\\a.ttf"), Binary(5000, 1));
  Put(dir.file("fonts\\b.fon"), Binary(300, 2));
  Put(dir.file("app\\app.ini"), "[x]\r\ny=1\r\n");
  Put(dir.file("app\\bin\\app.dll"), Binary(20000, 3));
  const std::string companion = dir.file("AST0000.OVA"), index = dir.file("MASTER.IDX");
  struct Entry {
    std::string asset;
    uint32_t options;
    Lines files;
  } entries[] = {{dir.file("fonts\\*.ttf"), 0x2000, {"a.ttf"}},
                 {dir.file("app"), 0x3000, {"app.ini", "bin\\app.dll"}},
                 {dir.file("fonts\\*.fon"), 0, {"b.fon"}}};
  for (const Entry& e : entries) EXPECT_EQ(c.Snap(e.asset, index, companion, e.options), 0);
  for (const Entry& e : entries) {
    ChangeNode* tree = nullptr;
    ASSERT_EQ(c.fromSnapshot(companion.c_str(), e.asset.c_str(), &tree, 1, 0, e.options), 0) << e.asset;
    EXPECT_EQ(Files(tree), e.files) << e.asset;
    c.freeTree(tree);
  }
  corvid::IndexRecord* records = nullptr;
  uint32_t count = 0;
  ASSERT_EQ(corvid::ReadIndex(index.c_str(), &records, &count), 0);
  ASSERT_EQ(count, 3u);
  for (uint32_t i = 0; i < count; ++i) {
    EXPECT_STREQ(records[i].companion, "AST0000.OVA");
    EXPECT_EQ(records[i].asset, entries[i].asset);
    EXPECT_EQ(records[i].options, entries[i].options);
    EXPECT_EQ(records[i].files, entries[i].files.size());
  }
  orvalis::Io().free(records);
  // The contents of the first asset restore although others follow it in the companion.
  DeleteFileA(dir.file("fonts\\a.ttf").c_str());
  ChangeNode* tree = c.SnapshotAgainstLive(companion, entries[0].asset, 0x2000);
  EXPECT_EQ(c.Restore(tree), 0);
  c.freeTree(tree);
  EXPECT_EQ(ReadWholeFile(dir.file("fonts\\a.ttf")), Binary(5000, 1));
}

// ---- comparison ------------------------------------------------------------------------------

struct CompareRow {
  const char* name;
  std::function<void(const std::string& app)> change;
  Lines marked;  // the lines that are not "-"
};

const CompareRow kCompareRows[] = {
    {"nothing_changed", [](const std::string&) {}, {}},
    {"file_added", [](const std::string& a) { Put(a + "\\new.txt", "new"); }, {"N new.txt"}},
    {"file_removed", [](const std::string& a) { DeleteFileA((a + "\\gone.txt").c_str()); }, {"O gone.txt"}},
    {"size_changed", [](const std::string& a) { Put(a + "\\size.txt", "123456"); }, {"F size.txt", "T size.txt"}},
    {"time_changed", [](const std::string& a) { SetDosTime(a + "\\time.txt", kBaseTime + (1 << 11)); },
     {"F time.txt", "T time.txt"}},
    {"contents_changed_only", [](const std::string& a) { Put(a + "\\crc.txt", "xyz2"); }, {"F crc.txt", "T crc.txt"}},
    {"name_case_changed",
     [](const std::string& a) { MoveFileA((a + "\\Case.TXT").c_str(), (a + "\\case.txt").c_str()); }, {}},
    {"folder_added",
     [](const std::string& a) {
       Put(a + "\\newdir\\a.txt", "a");
       Put(a + "\\newdir\\deep\\b.txt", "b");
     },
     {"N newdir\\", "N newdir\\a.txt", "N newdir\\deep\\", "N newdir\\deep\\b.txt"}},
    {"folder_removed",
     [](const std::string& a) {
       DeleteFileA((a + "\\oldsub\\old.txt").c_str());
       RemoveDirectoryA((a + "\\oldsub").c_str());
     },
     {"O oldsub\\", "O oldsub\\old.txt"}},
    {"file_in_subfolder_changed", [](const std::string& a) { Put(a + "\\sub\\inner.txt", "IN"); },
     {"B sub\\", "F sub\\inner.txt", "T sub\\inner.txt"}},
};

struct CompareCase {
  const CompareRow* row;
  bool live;
};

class CompareTest : public ::testing::TestWithParam<CompareCase> {};

TEST_P(CompareTest, MarksTheDifferences) {
  const CompareRow& row = *GetParam().row;
  const bool live = GetParam().live;
  Corvid c;
  ASSERT_TRUE(c.Loaded());
  ScratchDir dir;
  const std::string app = dir.file("app");
  Put(app + "\\keep.txt", "same");
  Put(app + "\\size.txt", "12345");
  Put(app + "\\time.txt", "abc");
  Put(app + "\\crc.txt", "xyz1");
  Put(app + "\\gone.txt", "bye");
  Put(app + "\\Case.TXT", "case");
  Put(app + "\\sub\\inner.txt", "in");
  Put(app + "\\oldsub\\old.txt", "old");
  const std::string index = dir.file("MASTER.IDX"), older = dir.file("AST0000.OVA"), newer = dir.file("AST0001.OVA");
  // With the contents kept, as a restorable asset is: files compare by their CRC-32 too.
  ASSERT_EQ(c.Snap(app, index, older, 0x3000), 0);
  row.change(app);
  ChangeNode* first = nullptr;
  ChangeNode* second = nullptr;
  ASSERT_EQ(c.fromSnapshot(older.c_str(), app.c_str(), &first, 1, 0, 0x3000), 0);
  if (live) {
    uint16_t value = 0;
    ASSERT_EQ(c.fromLive(app.c_str(), &second, 0x2002, &value, 0x3000), 0);
  } else {
    ASSERT_EQ(c.Snap(app, index, newer, 0x3000), 0);
    ASSERT_EQ(c.fromSnapshot(newer.c_str(), app.c_str(), &second, 2, 0, 0x3000), 0);
  }
  uint16_t scratch = 0;
  ASSERT_EQ(c.compare(&first, second, &scratch, 0x3000), 0);
  c.freeTree(second);
  const Lines got = Marked(first);
  EXPECT_EQ(got, UnchangedExcept(got, row.marked));
  EXPECT_EQ((first->flags & kChangeBelow) != 0, !row.marked.empty());
  c.freeTree(first);
}

std::vector<CompareCase> CompareCases() {
  std::vector<CompareCase> v;
  for (const CompareRow& r : kCompareRows) {
    v.push_back({&r, false});
    v.push_back({&r, true});
  }
  return v;
}

INSTANTIATE_TEST_SUITE_P(Table, CompareTest, ::testing::ValuesIn(CompareCases()), [](const auto& info) {
  return std::string(info.param.row->name) + (info.param.live ? "_against_live" : "_two_snapshots");
});

// ---- restore ---------------------------------------------------------------------------------

const Lines kRestoreFiles = {"plain.txt", "ro.txt", "empty.txt", "sub\\deep.bin", "sub\\deeper\\z.txt"};

void MakeRestoreFolder(const std::string& app) {
  std::string text;
  for (int i = 0; i < 200; ++i) text += "line " + std::to_string(i) + " of a text file\r\n";
  Put(app + "\\plain.txt", text);
  Put(app + "\\ro.txt", "read only", kBaseTime - 2, FILE_ATTRIBUTE_READONLY);
  Put(app + "\\empty.txt", "", kBaseTime + 4);
  Put(app + "\\sub\\deep.bin", Binary(100000, 7), kBaseTime - (1 << 16));
  Put(app + "\\sub\\deeper\\z.txt", "zzz", kBaseTime + (1 << 5));
}

void ExpectSame(const std::vector<FileState>& want, const std::vector<FileState>& got) {
  ASSERT_EQ(want.size(), got.size());
  for (size_t i = 0; i < want.size(); ++i) {
    EXPECT_TRUE(want[i].data == got[i].data) << want[i].path;
    EXPECT_EQ(want[i].time, got[i].time) << want[i].path;
    EXPECT_EQ(want[i].attributes, got[i].attributes) << want[i].path;
  }
}

TEST(RestoreTest, BringsAChangedFolderBackByteForByte) {
  Corvid c;
  ASSERT_TRUE(c.Loaded());
  ScratchDir dir;
  const std::string app = dir.file("app");
  MakeRestoreFolder(app);
  const std::vector<FileState> before = StateOf(app, kRestoreFiles);
  ASSERT_NE(before[1].attributes & FILE_ATTRIBUTE_READONLY, 0u);
  const std::string companion = dir.file("AST0000.OVA");
  ASSERT_EQ(c.Snap(app, dir.file("MASTER.IDX"), companion, 0x3000), 0);

  Put(app + "\\plain.txt", "changed");
  Put(app + "\\ro.txt", "READ ONLY", kBaseTime - 2, FILE_ATTRIBUTE_READONLY);  // same size and time
  DeleteFileA((app + "\\empty.txt").c_str());
  RemoveTree(app + "\\sub");
  Put(app + "\\new.txt", "new");
  Put(app + "\\newro.txt", "new", kBaseTime, FILE_ATTRIBUTE_READONLY);
  Put(app + "\\newdir\\x.txt", "x");
  Put(app + "\\newdir\\deeper\\y.txt", "y");

  ChangeNode* tree = c.SnapshotAgainstLive(companion, app, 0x3000);
  bool listed = false;
  EXPECT_EQ(c.Restore(tree, &listed), 0);
  EXPECT_TRUE(listed);
  c.freeTree(tree);
  ExpectSame(before, StateOf(app, kRestoreFiles));
  for (const char* gone : {"new.txt", "newro.txt", "newdir"}) EXPECT_FALSE(FileExists(app + "\\" + gone)) << gone;
  EXPECT_TRUE(FileExists(app + "\\sub\\deeper"));
  Lines left = orvalis_test::ListDir(app);
  std::sort(left.begin(), left.end());
  EXPECT_EQ(left, (Lines{"empty.txt", "plain.txt", "ro.txt", "sub"}));

  // Now nothing differs, and nothing is listed.
  tree = c.SnapshotAgainstLive(companion, app, 0x3000);
  for (const std::string& l : Marked(tree)) EXPECT_EQ(l[0], '-') << l;
  EXPECT_EQ(c.Restore(tree, &listed), 0);
  EXPECT_FALSE(listed);
  c.freeTree(tree);
}

// The live side answers 3 for a folder that is gone; its tree still compares (everything was
// removed), and the restore brings the whole folder back.
TEST(RestoreTest, MissingFolderComparesAsAllRemovedAndComesBack) {
  Corvid c;
  ASSERT_TRUE(c.Loaded());
  ScratchDir dir;
  const std::string app = dir.file("app");
  MakeRestoreFolder(app);
  const std::vector<FileState> before = StateOf(app, kRestoreFiles);
  const std::string companion = dir.file("AST0000.OVA");
  ASSERT_EQ(c.Snap(app, dir.file("MASTER.IDX"), companion, 0x3000), 0);
  RemoveTree(app);
  ASSERT_FALSE(FileExists(app));

  ChangeNode* live = nullptr;
  uint16_t value = 0;
  ASSERT_EQ(c.fromLive(app.c_str(), &live, 2, &value, 0x1000), 3);
  ASSERT_NE(live, nullptr);
  EXPECT_TRUE(Marked(live).empty());
  c.freeTree(live);

  int liveRc = 0;
  ChangeNode* tree = c.SnapshotAgainstLive(companion, app, 0x3000, &liveRc);
  EXPECT_EQ(liveRc, 3);
  EXPECT_EQ(Marked(tree), (Lines{"O empty.txt", "O plain.txt", "O ro.txt", "O sub\\", "O sub\\deep.bin",
                                 "O sub\\deeper\\", "O sub\\deeper\\z.txt"}));
  EXPECT_NE(tree->flags & kChangeBelow, 0);
  EXPECT_EQ(c.Restore(tree), 0);
  c.freeTree(tree);
  ExpectSame(before, StateOf(app, kRestoreFiles));
}

// Without 0x2000 nothing can be written back, so nothing is touched at all: deleting what was
// added while leaving what was removed would be half a restore.
TEST(RestoreTest, AssetWithoutContentsChangesNothing) {
  Corvid c;
  ASSERT_TRUE(c.Loaded());
  ScratchDir dir;
  const std::string app = dir.file("app");
  MakeRestoreFolder(app);
  const std::string companion = dir.file("AST0000.OVA");
  ASSERT_EQ(c.Snap(app, dir.file("MASTER.IDX"), companion, 0x1000), 0);
  DeleteFileA((app + "\\plain.txt").c_str());
  Put(app + "\\new.txt", "new");
  ChangeNode* tree = c.SnapshotAgainstLive(companion, app, 0x1000);
  bool listed = true;
  EXPECT_EQ(c.Restore(tree, &listed), 0);
  EXPECT_FALSE(listed);
  c.freeTree(tree);
  EXPECT_FALSE(FileExists(app + "\\plain.txt"));
  EXPECT_TRUE(FileExists(app + "\\new.txt"));
}

// Copies a companion of one asset through the format writers, with `edit` applied to each
// record; a record whose stored size it sets to 0 loses its contents.
void Rewrite(const std::string& from, const std::string& to, const std::string& asset,
             const std::function<void(corvid::FileRecord&)>& edit) {
  FILE* in = std::fopen(from.c_str(), "rb");
  ASSERT_NE(in, nullptr);
  char folder[260];
  uint32_t options = 0, count = 0;
  corvid::FileRecord* records = nullptr;
  ASSERT_EQ(corvid::ReadAssetBlock(in, asset.c_str(), folder, &options, &records, &count), 0);
  FILE* out = std::fopen(to.c_str(), "wb");
  ASSERT_NE(out, nullptr);
  ASSERT_TRUE(corvid::WriteCompanionHead(out));
  ASSERT_TRUE(corvid::WriteBlockHead(out, asset.c_str(), folder, options, count));
  for (uint32_t i = 0; i < count; ++i) {
    corvid::FileRecord r = records[i];
    edit(r);
    ASSERT_TRUE(corvid::WriteFileRecord(out, r));
    std::string contents(r.stored, '\0');
    std::fseek(in, long(records[i].offset), SEEK_SET);
    if (r.stored) {
      ASSERT_EQ(std::fread(&contents[0], 1, r.stored, in), r.stored);
    }
    std::fwrite(contents.data(), 1, contents.size(), out);
  }
  orvalis::Io().free(records);
  std::fclose(in);
  ASSERT_EQ(std::fclose(out), 0);
}

TEST(RestoreTest, FileRecordedWithoutContentsIsNotWritten) {
  Corvid c;
  ASSERT_TRUE(c.Loaded());
  ScratchDir dir;
  const std::string app = dir.file("app");
  Put(app + "\\kept.txt", "kept contents");
  Put(app + "\\bare.txt", "bare contents");
  const std::string recorded = dir.file("AST0000.OVA"), crafted = dir.file("AST0001.OVA");
  ASSERT_EQ(c.Snap(app, dir.file("MASTER.IDX"), recorded, 0x2000), 0);
  Rewrite(recorded, crafted, app, [](corvid::FileRecord& r) {
    if (!std::strcmp(r.path, "bare.txt")) r.stored = 0;
  });
  DeleteFileA((app + "\\kept.txt").c_str());
  DeleteFileA((app + "\\bare.txt").c_str());
  ChangeNode* tree = c.SnapshotAgainstLive(crafted, app, 0x2000);
  EXPECT_EQ(Marked(tree), (Lines{"O bare.txt", "O kept.txt"}));
  EXPECT_EQ(c.Restore(tree), 0);
  c.freeTree(tree);
  EXPECT_EQ(ReadWholeFile(app + "\\kept.txt"), "kept contents");
  EXPECT_FALSE(FileExists(app + "\\bare.txt"));
}

// Recorded contents that do not decode to their CRC-32 leave the live file as it is.
TEST(RestoreTest, ContentsThatDoNotCheckLeaveTheLiveFile) {
  Corvid c;
  ASSERT_TRUE(c.Loaded());
  ScratchDir dir;
  const std::string app = dir.file("app");
  Put(app + "\\a.txt", "recorded contents");
  const std::string recorded = dir.file("AST0000.OVA"), crafted = dir.file("AST0001.OVA");
  ASSERT_EQ(c.Snap(app, dir.file("MASTER.IDX"), recorded, 0x2000), 0);
  Rewrite(recorded, crafted, app, [](corvid::FileRecord& r) { r.crc ^= 1; });
  Put(app + "\\a.txt", "live contents!!");
  ChangeNode* tree = c.SnapshotAgainstLive(crafted, app, 0x2000);
  EXPECT_EQ(c.Restore(tree), 13);
  c.freeTree(tree);
  EXPECT_EQ(ReadWholeFile(app + "\\a.txt"), "live contents!!");
  EXPECT_EQ(orvalis_test::ListDir(app), Lines{"a.txt"}) << "no temporary file stays";
}

// ---- deleting a snapshot -----------------------------------------------------------------------

TEST(DeleteTest, OneSnapshotGoesAndTheOthersStayReadable) {
  Corvid c;
  ASSERT_TRUE(c.Loaded());
  ScratchDir dir;
  const std::string index = dir.file("MASTER.IDX");
  const std::string fonts = dir.file("fonts"), app = dir.file("app");
  for (int s = 0; s < 3; ++s) {
    Put(fonts + "\\f" + std::to_string(s) + ".ttf", Binary(1000 + s, s));
    Put(app + "\\app.ini", std::string(10 + s, 'x'));
    const std::string companion = dir.file("AST000" + std::to_string(s) + ".OVA");
    ASSERT_EQ(c.Snap(fonts + "\\*.ttf", index, companion, 0x2000), 0);
    ASSERT_EQ(c.Snap(app, index, companion, 0x3000), 0);
  }
  EXPECT_EQ(c.deleteSnapshot(index.c_str(), "AST0001.OVA"), 0);
  EXPECT_FALSE(FileExists(dir.file("AST0001.OVA")));
  for (int s : {0, 2}) {
    const std::string companion = dir.file("AST000" + std::to_string(s) + ".OVA");
    ChangeNode* tree = nullptr;
    ASSERT_EQ(c.fromSnapshot(companion.c_str(), (fonts + "\\*.ttf").c_str(), &tree, 1, 0, 0x2000), 0);
    EXPECT_EQ(Files(tree).size(), size_t(s + 1));
    c.freeTree(tree);
    ASSERT_EQ(c.fromSnapshot(companion.c_str(), app.c_str(), &tree, 1, 0, 0x3000), 0);
    ASSERT_NE(tree->children, nullptr);
    EXPECT_EQ(tree->children->length, uint32_t(10 + s));
    c.freeTree(tree);
  }
  corvid::IndexRecord* records = nullptr;
  uint32_t count = 0;
  ASSERT_EQ(corvid::ReadIndex(index.c_str(), &records, &count), 0);
  Lines kept;
  for (uint32_t i = 0; i < count; ++i) kept.push_back(records[i].companion);
  orvalis::Io().free(records);
  EXPECT_EQ(kept, (Lines{"AST0000.OVA", "AST0000.OVA", "AST0002.OVA", "AST0002.OVA"}));
  // A name the index does not know changes nothing in it.
  const std::string image = ReadWholeFile(index);
  EXPECT_EQ(c.deleteSnapshot(index.c_str(), "AST0009.OVA"), 0);
  EXPECT_EQ(ReadWholeFile(index), image);
  EXPECT_EQ(c.deleteSnapshot(index.c_str(), "..\\AST0000.OVA"), 13);
  EXPECT_TRUE(FileExists(dir.file("AST0000.OVA")));
}

// ---- bad input ---------------------------------------------------------------------------------

struct BadCompanionRow {
  const char* name;
  std::function<std::string(const std::string& good)> damage;  // kNoFile: no file at all
  const char* asset;  // "" the recorded asset
  int rc;
};

const char kNoFile[] = "<no file>";

const BadCompanionRow kBadCompanionRows[] = {
    {"missing", [](const std::string&) { return std::string(kNoFile); }, "", 2},
    {"empty_as_the_engine_creates_it", [](const std::string&) { return std::string(); }, "", 3},
    {"one_byte", [](const std::string&) { return std::string("O"); }, "", 13},
    {"foreign", [](const std::string&) { return std::string("MZ\x90\0\3\0\0\0\4\0\0\0\xFF\xFF", 16); }, "", 13},
    {"other_version", [](const std::string& g) { std::string s = g; s[8] = 2; return s; }, "", 13},
    {"cut_in_record", [](const std::string& g) { return g.substr(0, 60); }, "", 13},
    {"cut_in_contents", [](const std::string& g) { return g.substr(0, g.size() - 3); }, "", 13},
    {"record_byte_flipped", [](const std::string& g) { std::string s = g; s[40] ^= 0x20; return s; }, "", 13},
    {"garbage_after_blocks", [](const std::string& g) { return g + "GARBAGE"; }, "C:\\other", 13},
    {"other_asset", [](const std::string& g) { return g; }, "C:\\other", 3},
};

class BadCompanionTest : public ::testing::TestWithParam<BadCompanionRow> {};

TEST_P(BadCompanionTest, GivesAnErrorAndNoTree) {
  const BadCompanionRow& row = GetParam();
  Corvid c;
  ASSERT_TRUE(c.Loaded());
  ScratchDir dir;
  const std::string app = dir.file("app");
  Put(app + "\\a.txt", Binary(3000, 9));
  const std::string companion = dir.file("AST0000.OVA");
  ASSERT_EQ(c.Snap(app, dir.file("MASTER.IDX"), companion, 0x2000), 0);
  const std::string damaged = row.damage(ReadWholeFile(companion));
  DeleteFileA(companion.c_str());
  if (damaged != kNoFile) WriteWholeFile(companion, damaged);
  ChangeNode* tree = reinterpret_cast<ChangeNode*>(1);
  const std::string asset = row.asset[0] ? row.asset : app;
  EXPECT_EQ(c.fromSnapshot(companion.c_str(), asset.c_str(), &tree, 1, 0, 0x2000), row.rc);
  EXPECT_EQ(tree, nullptr);
  c.freeTree(nullptr);
  AssetChange* none = nullptr;
  c.freeChanges(&none);
  c.freeChanges(nullptr);
}

INSTANTIATE_TEST_SUITE_P(Table, BadCompanionTest, ::testing::ValuesIn(kBadCompanionRows),
                         [](const auto& info) { return std::string(info.param.name); });

struct EscapeRow {
  const char* name;
  const char* path;
};

const EscapeRow kEscapeRows[] = {
    {"parent", "..\\x.txt"},   {"parent_later", "sub\\..\\..\\x.txt"}, {"drive", "C:\\x.txt"},
    {"rooted", "\\x.txt"},     {"drive_relative", "C:x.txt"},          {"forward_slash", "sub/../../x.txt"},
};

class EscapeTest : public ::testing::TestWithParam<EscapeRow> {};

// A record that names a path outside the asset's folder makes the companion unreadable: no tree,
// so no restore, and nothing is written outside the folder.
TEST_P(EscapeTest, RecordOutsideTheFolderIsRefused) {
  Corvid c;
  ASSERT_TRUE(c.Loaded());
  ScratchDir dir;
  const std::string app = dir.file("app\\inner");
  Put(app + "\\a.txt", "aaa");
  Put(app + "\\b.txt", "bbb");
  const std::string recorded = dir.file("AST0000.OVA"), crafted = dir.file("AST0001.OVA");
  ASSERT_EQ(c.Snap(app, dir.file("MASTER.IDX"), recorded, 0x2000), 0);
  const char* path = GetParam().path;
  Rewrite(recorded, crafted, app, [&](corvid::FileRecord& r) {
    if (!std::strcmp(r.path, "b.txt")) std::snprintf(r.path, sizeof r.path, "%s", path);
  });
  ChangeNode* tree = nullptr;
  EXPECT_EQ(c.fromSnapshot(crafted.c_str(), app.c_str(), &tree, 1, 0, 0x2000), 13);
  EXPECT_EQ(tree, nullptr);
  EXPECT_FALSE(FileExists(dir.file("app\\x.txt")));
  EXPECT_FALSE(FileExists(dir.file("x.txt")));
}

INSTANTIATE_TEST_SUITE_P(Table, EscapeTest, ::testing::ValuesIn(kEscapeRows),
                         [](const auto& info) { return std::string(info.param.name); });

struct BadIndexRow {
  const char* name;
  std::function<std::string(const std::string& good)> damage;
};

const BadIndexRow kBadIndexRows[] = {
    {"empty", [](const std::string&) { return std::string(); }},
    {"foreign", [](const std::string&) { return std::string("[MASTER]\r\ncount=1\r\n"); }},
    {"cut", [](const std::string& g) { return g.substr(0, g.size() - 5); }},
    {"byte_flipped", [](const std::string& g) { std::string s = g; s[30] ^= 0x01; return s; }},
    {"count_too_high", [](const std::string& g) { std::string s = g; s[12] = 9; return s; }},
};

class BadIndexTest : public ::testing::TestWithParam<BadIndexRow> {};

// A damaged index is neither overwritten by a capture nor trusted by a delete.
TEST_P(BadIndexTest, IsLeftAsItIs) {
  Corvid c;
  ASSERT_TRUE(c.Loaded());
  ScratchDir dir;
  const std::string app = dir.file("app"), index = dir.file("MASTER.IDX");
  Put(app + "\\a.txt", "a");
  ASSERT_EQ(c.Snap(app, index, dir.file("AST0000.OVA"), 0x2000), 0);
  ASSERT_EQ(c.Snap(app, index, dir.file("AST0001.OVA"), 0x2000), 0);
  const std::string damaged = GetParam().damage(ReadWholeFile(index));
  WriteWholeFile(index, damaged);
  uint16_t result = 0;
  EXPECT_EQ(c.Snap(app, index, dir.file("AST0002.OVA"), 0x2000, &result), 13);
  EXPECT_EQ(result, 1) << "the asset itself was recorded";
  EXPECT_EQ(c.deleteSnapshot(index.c_str(), "AST0000.OVA"), 13);
  EXPECT_TRUE(FileExists(dir.file("AST0000.OVA")));
  EXPECT_EQ(ReadWholeFile(index), damaged);
}

INSTANTIATE_TEST_SUITE_P(Table, BadIndexTest, ::testing::ValuesIn(kBadIndexRows),
                         [](const auto& info) { return std::string(info.param.name); });

// An index that exists but cannot be opened is not taken for a missing (empty) one: the capture
// would otherwise replace every other snapshot's records with its own.
TEST(BadIndexTest, IndexHeldOpenIsNotReplaced) {
  Corvid c;
  ASSERT_TRUE(c.Loaded());
  ScratchDir dir;
  const std::string app = dir.file("app"), index = dir.file("MASTER.IDX");
  Put(app + "\\a.txt", "a");
  ASSERT_EQ(c.Snap(app, index, dir.file("AST0000.OVA"), 0x2000), 0);
  const std::string image = ReadWholeFile(index);
  HANDLE h = CreateFileA(index.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(h, INVALID_HANDLE_VALUE);
  EXPECT_NE(c.Snap(app, index, dir.file("AST0001.OVA"), 0x2000), 0);
  EXPECT_NE(c.deleteSnapshot(index.c_str(), "AST0000.OVA"), 0);
  CloseHandle(h);
  EXPECT_EQ(ReadWholeFile(index), image);
  EXPECT_TRUE(FileExists(dir.file("AST0000.OVA")));
}

}  // namespace
