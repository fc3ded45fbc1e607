// The dump format of MARLOW.DLL and the reader of Wine's registry save text, natively (under ASan
// and UBSan in the native preset).
#include <algorithm>
#include <cstring>

#include "companions/marlow/regdump.h"
#include "companions/marlow/regtree.h"
#include "companions/marlow/winesave.h"
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

TEST_F(RegDumpTest, EveryCompressionReadsBackEveryKeyAndOnlyTheBlocksItNeedsAndDamageGives13) {
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
  // Every cut and every single flipped bit of a dump: 13, never a crash or a wrong tree.
  for (ChangeNode*& r : roots) FreeTree(r), r = nullptr;
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

// The reader of Wine's own registry save text: what the library takes from the server in place of
// a walk, so a misread here is a wrong snapshot, and a text it is unsure of must be refused whole
// (the library then walks).
std::string Narrow(const SavedBranch& b, uint32_t at, uint32_t length) {
  std::string s;
  for (uint32_t i = 0; i < length; ++i) s += b.names[at + i] < 0x80 ? char(b.names[at + i]) : '?';
  return s;
}

// One line a key ("path [link]") and a line a value ("  name type: hex bytes").
void Flatten(const SavedBranch& b, uint32_t k, const std::string& path, std::string* out) {
  const marlow::SavedKey& key = b.keys[k];
  *out += path + (key.link ? " [link]" : "") + "\n";
  for (uint32_t v = key.firstValue; v < key.firstValue + key.valueCount; ++v) {
    const marlow::SavedValue& sv = b.values[v];
    *out += "  " + Narrow(b, sv.name, sv.nameLength) + " " + std::to_string(sv.type) + ":";
    for (unsigned char c : b.data.substr(sv.data, sv.dataLength))
      *out += {' ', "0123456789abcdef"[c >> 4], "0123456789abcdef"[c & 15]};
    *out += "\n";
  }
  for (uint32_t c : key.children) Flatten(b, c, path + "\\" + Narrow(b, b.keys[c].name, b.keys[c].nameLength), out);
}

const char kSave[] =
    "WINE REGISTRY Version 2\n;; All keys relative to \\\\Machine\n\n#arch=win64\n\n"
    "[A\\\\App] 1700000000\n#time=1d9a0b0c0d0e0f0\n@=\"d\"\n\"P\"=str(2):\"%X%\\\\y\"\n\"M\"=str(7):\"a\\0b\\0\"\n"
    "\"C\"=dword:0000002a\n\"B\"=hex:01,02,03,\\\n  04,05\n\"O\"=hex(1):41,00,42\n\"N\\x00e9\"=\"\\x00e9\\]\"\n\n"
    "[A\\\\Link] 1700000000\n#link\n\"SymbolicLinkValue\"=hex(6):5c,00\n\n[Empty] 1700000000\n";

TEST(WineSave, ReadsEveryValueFormAndImpliedKeys) {
  SavedBranch b;
  ASSERT_TRUE(marlow::ParseWineSave(kSave, &b));
  std::string text;
  Flatten(b, 0, "", &text);
  EXPECT_EQ(text,
            "\n"
            "\\A\n"  // implied by its subkeys' paths: no values
            "\\A\\App\n"
            "   1: 64 00 00 00\n"
            "  P 2: 25 00 58 00 25 00 5c 00 79 00 00 00\n"
            "  M 7: 61 00 00 00 62 00 00 00 00 00\n"
            "  C 4: 2a 00 00 00\n"
            "  B 3: 01 02 03 04 05\n"
            "  O 1: 41 00 42\n"
            "  N? 1: e9 00 5d 00 00 00\n"
            "\\A\\Link [link]\n"
            "  SymbolicLinkValue 6: 5c 00\n"
            "\\Empty\n");
}

// Anything the reader is not sure of fails the whole save and leaves nothing half-read.
TEST(WineSave, RefusesWhatItDoesNotKnow) {
  const std::string head = "WINE REGISTRY Version 2\n";
  const std::string rows[] = {
      "",
      "WINE REGISTRY Version 1\n[K] 1\n",
      head + "\"v\"=dword:1\n",              // a value before any key
      head + "[K] 1\n\"v\"=dword:1x\n",      // trailing rubbish
      head + "[K] 1\n\"v\"=hex:0\n",         // half a byte
      head + "[K] 1\n\"v\"=hex:01,\n",       // cut after a comma
      head + "[K] 1\n\"v\"=\"open\n",        // unterminated string
      head + "[K] 1\n\"v\"=str(2:\"x\"\n",   // broken type
      head + "[K] 1\n\"v\"=float:1\n",       // unknown form
      head + "[K] 1\n[K] 2\n",               // a key written twice
      head + "[K\\\\\\\\L] 1\n",             // an empty path component
      head + "[K\\x] 1\n",                   // \x with no digits
      head + "[K] 1\n\"\"=dword:00000001\n", // the default value is "@", never ""
  };
  for (const std::string& text : rows) {
    SavedBranch b;
    b.keys.resize(3);
    EXPECT_FALSE(marlow::ParseWineSave(text, &b)) << text;
    EXPECT_TRUE(b.keys.empty() && b.values.empty() && b.data.empty()) << text;
  }
  std::string deep = head + "[";
  for (int i = 0; i < 513; ++i) deep += "k\\\\";
  SavedBranch b;
  EXPECT_FALSE(marlow::ParseWineSave(deep + "k] 1\n", &b));
}

}  // namespace
