// The dump format of MARLOW.DLL, natively (under ASan and UBSan in the native preset).
#include <algorithm>
#include <cstring>

#include "companions/marlow/regdump.h"
#include "companions/marlow/regtree.h"
#include "tests/companions/marlow/marlow_fixture.h"
#include "tests/support/test_support.h"

namespace {

using namespace marlow;
using marlow_test::Flatten;

ChangeNode* Append(ChangeNode** list, ChangeNode* n) {
  while (*list) list = &(*list)->next;
  return *list = n;
}
ChangeNode* Key(ChangeNode* parent, const std::string& name) {
  return Append(&parent->children, NewKey(name.data(), name.size(), parent->depth + 1));
}
void Value(ChangeNode* key, const char* name, uint32_t type, const std::string& data) {
  Append(&key->values, NewValue(name, name ? std::strlen(name) : 0, type, data.data(), uint32_t(data.size()), key->depth + 1));
}

// A root with `keys` subkeys of a few values each, and one 20 levels deep.
ChangeNode* MakeRoot(const char* name, int keys) {
  ChangeNode* root = NewKey(name, std::strlen(name), 0);
  Value(root, nullptr, 1, std::string("default\0", 8));
  for (int i = 0; i < keys; ++i) {
    ChangeNode* k = Key(root, "Key" + std::to_string(i));
    Value(k, "dw", 4, "\x01\x02\x03\x04");
    Value(k, "bin", 3, std::string(size_t(i % 97), char(i)));
    Value(k, "empty", 1, "");
    Value(k, "zeros", 7, std::string("a\0b\0\0", 5));
  }
  ChangeNode* deep = Key(root, "Deep");
  for (int i = 0; i < 20; ++i) Value(deep = Key(deep, "L" + std::to_string(i)), std::string(300, 'n').c_str(), 11, "12345678");
  return root;
}

class RegDumpTest : public ::testing::Test {
 protected:
  void Make(int hklmKeys, int otherKeys) {
    for (int r = 0; r < kRootCount; ++r) roots[r] = MakeRoot(RootShortName(r), r == kRootHklm ? hklmKeys : otherKeys);
  }
  void TearDown() override { for (ChangeNode* r : roots) FreeTree(r); }
  // HKU holds the user's own key as a reference to HKCU, as a dump of the live registry does.
  std::string Write(int compression, uint32_t blockSize) {
    std::string path = dir.file("dump" + std::to_string(compression));
    DumpWriter w;
    EXPECT_EQ(w.Open(path, compression, {}, blockSize), 0);
    for (int r : {kRootHklm, kRootHkcu, kRootHkcr, kRootHkcc}) w.SetRoot(uint32_t(r), WriteTree(&w, roots[r]));
    RecordBuilder users;
    users.AddChild("S-1-5-21-1", 10, kAliasBit | kRootHkcu);
    w.SetRoot(kRootHku, w.WriteRecord(w.Position(), users));
    EXPECT_EQ(w.Finish(), 0);
    return path;
  }
  std::pair<int, std::string> Read(const std::string& path, uint32_t root, const char* rest, size_t* blocks = nullptr) {
    DumpReader reader;
    ChangeNode* t = nullptr;
    int r = reader.Open(path);
    if (!r) r = reader.ReadKey(root, rest, "x", "HKLM\\x", &t);
    if (blocks) *blocks = reader.blocksDecoded();
    std::string text = Flatten(t);
    FreeTree(t);
    return {r, text};
  }
  static const ChangeNode* At(const ChangeNode* k, const std::string& path) {
    for (size_t i = 0, j; k && i < path.size(); i = j + 1) {
      j = std::min(path.find('\\', i), path.size());
      for (k = k->children; k && path.compare(i, j - i, k->name) != 0;) k = k->next;
    }
    return k;
  }
  orvalis_test::ScratchDir dir;
  ChangeNode* roots[kRootCount] = {};
};

TEST_F(RegDumpTest, EveryCompressionReadsBackEveryKeyAndOnlyTheBlocksItNeeds) {
  Make(3000, 20);
  for (int compression : {0, 1, 1024, 2048, 4096}) {
    SCOPED_TRACE(compression);
    const std::string path = Write(compression, 4096);
    const struct { uint32_t root; const char* rest; int expectRoot; const char* expect; } rows[] = {
                {kRootHklm, "", kRootHklm, ""}, {kRootHkcu, "", kRootHkcu, ""}, {kRootHkcc, "", kRootHkcc, ""},
                {kRootHklm, "KEY17", kRootHklm, "Key17"},
                {kRootHkcu, "deep\\l0\\L1\\l2\\L3\\l4", kRootHkcu, "Deep\\L0\\L1\\L2\\L3\\L4"},
                {kRootHku, "s-1-5-21-1\\Deep\\L0\\L1\\L2\\L3\\L4", kRootHkcu, "Deep\\L0\\L1\\L2\\L3\\L4"}};
    for (const auto& row : rows)
      EXPECT_EQ(Read(path, row.root, row.rest), std::make_pair(0, Flatten(At(roots[row.expectRoot], row.expect))));
    EXPECT_EQ(Read(path, kRootHklm, "Key3000").first, kDumpNoKey);
    EXPECT_EQ(Read(path, kRootHkcu, "Deep\\L0\\nothing"), std::make_pair(int(kDumpNoKey), Flatten(nullptr)));
    // A small key costs the root's table of 3000 subkeys (about 57 KB) up to the match, no more.
    size_t small = 0, whole = 0;
    EXPECT_EQ(Read(path, kRootHklm, "Key1500", &small).first, 0);
    EXPECT_EQ(Read(path, kRootHklm, "", &whole).first, 0);
    EXPECT_TRUE(small <= 10 && whole > 40) << small << " of " << whole << " blocks";
  }
}

// Every cut and every single flipped bit of a dump: 13, never a crash or a wrong tree.
TEST_F(RegDumpTest, DamagedDumpsGive13) {
  Make(3, 3);
  const std::string path = Write(1024, 1024), bytes = orvalis_test::ReadWholeFile(path), bad = dir.file("bad");
  const auto good = Read(path, kRootHku, ""), corrupt = std::make_pair(int(kDumpCorrupt), Flatten(nullptr));
  ASSERT_EQ(good.first, 0);
  for (size_t cut = 0; cut < bytes.size(); ++cut) {
    ASSERT_TRUE(orvalis_test::WriteWholeFile(bad, bytes.substr(0, cut)));
    ASSERT_EQ(Read(bad, kRootHku, ""), corrupt) << cut;
  }
  for (size_t at = 0; at < bytes.size(); ++at) {
    std::string s = bytes;
    s[at] ^= char(1 << (at % 8));
    ASSERT_TRUE(orvalis_test::WriteWholeFile(bad, s));
    // HKU reaches into HKCU; a flip elsewhere may leave this read intact.
    const auto read = Read(bad, kRootHku, "");
    ASSERT_TRUE(read == corrupt || read == good) << at << " gave " << read.first;
  }
}

}  // namespace
