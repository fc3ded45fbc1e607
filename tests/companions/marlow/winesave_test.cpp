// The reader of Wine's own registry save text, natively: what the library takes from the server
// in place of a walk, so a misread here is a wrong snapshot, and a text it is unsure of must be
// refused whole (the library then walks).
#include "companions/marlow/winesave.h"
#include "tests/support/test_support.h"

namespace {

using marlow::SavedBranch;

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
