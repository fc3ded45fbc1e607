// The dump format of MARLOW.DLL, natively (under ASan and UBSan in the native preset): trees
// written and read back, reads that decode only what they need, and damaged files.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "companions/marlow/regdump.h"
#include "companions/marlow/regtree.h"
#include "tests/support/test_support.h"

namespace {

using namespace marlow;
using orvalis_test::ScratchDir;

ChangeNode* Value(ChangeNode* key, const char* name, uint32_t type, const std::string& data) {
  ChangeNode* v = NewValue(name, name ? std::strlen(name) : 0, type, data.data(), uint32_t(data.size()), key->depth + 1);
  ChangeNode** tail = &key->values;
  while (*tail) tail = &(*tail)->next;
  *tail = v;
  return v;
}
ChangeNode* Key(ChangeNode* parent, const std::string& name) {
  ChangeNode* k = NewKey(name.data(), name.size(), parent->depth + 1);
  ChangeNode** tail = &parent->children;
  while (*tail) tail = &(*tail)->next;
  *tail = k;
  return k;
}

// A root with `keys` subkeys of a few values each, one of them 20 levels deep.
ChangeNode* MakeRoot(const char* name, int keys) {
  ChangeNode* root = NewKey(name, std::strlen(name), 0);
  Value(root, nullptr, 1, std::string("default\0", 8));
  for (int i = 0; i < keys; ++i) {
    ChangeNode* k = Key(root, "Key" + std::to_string(i));
    Value(k, "dw", 4, std::string("\x01\x02\x03\x04", 4));
    Value(k, "bin", 3, std::string(size_t(i % 97), char(i)));
    Value(k, "empty", 1, "");
    Value(k, "zeros", 7, std::string("a\0b\0\0", 5));
  }
  ChangeNode* deep = Key(root, "Deep");
  for (int i = 0; i < 20; ++i) {
    deep = Key(deep, "L" + std::to_string(i));
    Value(deep, std::string(300, 'n').c_str(), 11, "12345678");
  }
  return root;
}

// Equal node for node and byte for byte; depths are compared relative to each tree's root.
bool SameTree(const ChangeNode* a, const ChangeNode* b) {
  if (!a || !b) return a == b;
  if (a->nameLength != b->nameLength || std::memcmp(a->name, b->name, a->nameLength) != 0) return false;
  const ChangeNode *va = a->values, *vb = b->values;
  for (; va && vb; va = va->next, vb = vb->next) {
    unsigned char ba[4], bb[4];
    if (va->type != vb->type || va->length != vb->length || (!va->name) != (!vb->name) ||
        va->nameLength != vb->nameLength || (va->name && std::memcmp(va->name, vb->name, va->nameLength)) ||
        std::memcmp(ValueBytes(va, ba), ValueBytes(vb, bb), va->length) || va->depth - a->depth != vb->depth - b->depth)
      return false;
  }
  if (va || vb) return false;
  const ChangeNode *ka = a->children, *kb = b->children;
  for (; ka && kb; ka = ka->next, kb = kb->next)
    if (ka->depth - a->depth != kb->depth - b->depth || !SameTree(ka, kb)) return false;
  return !ka && !kb;
}

class RegDumpTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (int r = 0; r < kRootCount; ++r) roots[r] = MakeRoot(RootShortName(r), r == kRootHklm ? 3000 : 20);
  }
  void TearDown() override {
    for (ChangeNode* r : roots) FreeTree(r);
  }
  // HKU gets one more subkey that is HKCU itself.
  std::string Write(int compression, uint32_t blockSize = 32768) {
    std::string path = dir.file("dump" + std::to_string(compression) + "-" + std::to_string(blockSize));
    DumpWriter w;
    EXPECT_EQ(w.Open(path, compression, {}, blockSize), 0);
    for (int r = 0; r < kRootCount; ++r) {
      if (r != kRootHku) {
        w.SetRoot(uint32_t(r), WriteTree(&w, roots[r]));
        continue;
      }
      uint64_t start = w.Position();
      RecordBuilder rec;
      std::vector<uint64_t> at;
      for (ChangeNode* k = roots[r]->children; k; k = k->next) at.push_back(WriteTree(&w, k));
      size_t i = 0;
      for (ChangeNode* k = roots[r]->children; k; k = k->next) rec.AddChild(k->name, k->nameLength, at[i++]);
      rec.AddChild("S-1-5-21-1", 10, kAliasBit | kRootHkcu);
      w.SetRoot(uint32_t(r), w.WriteRecord(start, rec));
    }
    EXPECT_EQ(w.Finish(), 0);
    return path;
  }
  int Read(const std::string& path, uint32_t root, const char* rest, ChangeNode** out, size_t* blocks = nullptr) {
    DumpReader reader;
    int r = reader.Open(path);
    if (r) return r;
    r = reader.ReadKey(root, rest, "x", "HKLM\\x", out);
    if (blocks) *blocks = reader.blocksDecoded();
    return r;
  }
  ScratchDir dir;
  ChangeNode* roots[kRootCount];
};

TEST_F(RegDumpTest, EveryCompressionReadsBackEveryKey) {
  for (int compression : {0, 1, 1024, 2048, 4096}) {
    SCOPED_TRACE(compression);
    std::string path = Write(compression);
    struct Row {
      uint32_t root;
      const char* rest;
      const ChangeNode* expect;
    };
    const ChangeNode* deep5 = roots[kRootHkcu]->children;
    while (deep5 && std::strcmp(deep5->name, "Deep") != 0) deep5 = deep5->next;
    for (int i = 0; i < 5; ++i) deep5 = deep5->children;
    const Row rows[] = {
        {kRootHklm, "", roots[kRootHklm]},
        {kRootHkcu, "", roots[kRootHkcu]},
        {kRootHkcc, "", roots[kRootHkcc]},
        {kRootHklm, "KEY17", roots[kRootHklm]->children->next},  // not the 17th: checked below
        {kRootHkcu, "deep\\l0\\L1\\l2\\L3\\l4", deep5},
        {kRootHku, "s-1-5-21-1\\Deep\\L0\\L1\\L2\\L3\\L4", deep5},
    };
    for (const Row& row : rows) {
      ChangeNode* t = nullptr;
      ASSERT_EQ(Read(path, row.root, row.rest, &t), 0) << row.rest;
      ASSERT_NE(t, nullptr);
      if (std::strcmp(row.rest, "KEY17") == 0) {
        EXPECT_EQ(t->values->next->length, 17u);
      } else {
        // The root node takes the caller's name; everything below must match.
        ChangeNode tmp = *row.expect;
        tmp.name = t->name;
        tmp.nameLength = t->nameLength;
        EXPECT_TRUE(SameTree(&tmp, t)) << row.rest;
      }
      FreeTree(t);
    }
    ChangeNode* t = nullptr;
    EXPECT_EQ(Read(path, kRootHklm, "Key3000", &t), kDumpNoKey);
    EXPECT_EQ(Read(path, kRootHkcu, "Deep\\L0\\nothing", &t), kDumpNoKey);
    EXPECT_EQ(t, nullptr);
  }
}

TEST_F(RegDumpTest, ASmallKeyDecodesAFewBlocksOnly) {
  std::string path = Write(1024, 4096);
  ChangeNode* t = nullptr;
  size_t blocks = 0;
  ASSERT_EQ(Read(path, kRootHklm, "Key1500", &t, &blocks), 0);
  FreeTree(t);
  // The root's table of 3000 subkeys (about 57 KB) is read up to the match; nothing else.
  EXPECT_LE(blocks, 10u);
  ASSERT_EQ(Read(path, kRootHklm, "", &t, &blocks), 0);
  FreeTree(t);
  EXPECT_GT(blocks, 40u);
}

// Every cut and every single flipped bit of a dump: 13, never a crash or a wrong tree.
TEST_F(RegDumpTest, DamagedDumpsGive13) {
  for (ChangeNode*& r : roots) {
    FreeTree(r);
    r = MakeRoot("R", 3);
  }
  std::string path = Write(1024, 1024);
  std::string bytes = orvalis_test::ReadWholeFile(path);
  ChangeNode* good = nullptr;
  ASSERT_EQ(Read(path, kRootHku, "", &good), 0);
  std::string bad = dir.file("bad");
  for (size_t cut = 0; cut < bytes.size(); ++cut) {
    ASSERT_TRUE(orvalis_test::WriteWholeFile(bad, bytes.substr(0, cut)));
    ChangeNode* t = nullptr;
    ASSERT_EQ(Read(bad, kRootHku, "", &t), kDumpCorrupt) << cut;
    ASSERT_EQ(t, nullptr);
  }
  for (size_t at = 0; at < bytes.size(); ++at) {
    std::string s = bytes;
    s[at] ^= char(1 << (at % 8));
    ASSERT_TRUE(orvalis_test::WriteWholeFile(bad, s));
    ChangeNode* t = nullptr;
    int r = Read(bad, kRootHku, "", &t);
    // HKU reaches into HKCU; a flip elsewhere may leave this read intact.
    ASSERT_TRUE(r == kDumpCorrupt || (r == 0 && SameTree(t, good))) << at << " gave " << r;
    FreeTree(t);
  }
  FreeTree(good);
}

TEST(RegPathTest, RootsInEverySpelling) {
  struct Row {
    const char* path;
    int root;
    const char* rest;
    const char* last;
    const char* canonical;
  };
  const Row rows[] = {
      {"HKEY_LOCAL_MACHINE\\Software\\X", kRootHklm, "Software\\X", "X", "HKLM\\SOFTWARE\\X"},
      {"hklm\\software\\x\\", kRootHklm, "software\\x", "x", "HKLM\\SOFTWARE\\X"},
      {"HKCU", kRootHkcu, "", "HKCU", "HKCU"},
      {"hkey_classes_root\\\\.txt", kRootHkcr, ".txt", ".txt", "HKCR\\.TXT"},
      {"HKU\\S-1\\caf\xe9", kRootHku, "S-1\\caf\xe9", "caf\xe9", "HKU\\S-1\\CAF\xc9"},
      {"HKEY_CURRENT_CONFIG\\System", kRootHkcc, "System", "System", "HKCC\\SYSTEM"},
      {"HKEY_NOWHERE\\X", -1, "", "", ""},
      {"", -1, "", "", ""},
  };
  for (const Row& row : rows) {
    KeyPath kp;
    bool ok = ParseKeyPath(row.path, &kp);
    EXPECT_EQ(ok, row.root >= 0) << row.path;
    if (!ok) continue;
    EXPECT_EQ(kp.root, row.root) << row.path;
    EXPECT_EQ(kp.rest, row.rest) << row.path;
    EXPECT_EQ(kp.LastName(), row.last) << row.path;
    EXPECT_EQ(kp.Canonical(), row.canonical) << row.path;
  }
}

}  // namespace
