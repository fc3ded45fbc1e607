// Reader of Wine's saved-branch text. Anything it does not understand makes the whole parse
// fail: the library then walks the live registry, so a doubtful save costs time, never content.
#include "companions/marlow/winesave.h"

#include <bit>
#include <cstring>

#include "compress/bytes.h"

namespace marlow {
namespace {

constexpr std::string_view kSignature = "WINE REGISTRY Version 2";
constexpr int kMaxSavedDepth = 512;

// -1 for a character that is no hex digit. A save is mostly hex text, read a digit at a time.
struct HexTable {
  signed char v[256];
  constexpr HexTable() : v() {
    for (int c = 0; c < 256; ++c)
      v[c] = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
  }
};
constexpr HexTable kHex;
inline int HexDigit(char c) { return kHex.v[static_cast<unsigned char>(c)]; }

// Where the line from pos ends: the next '\n', or the text's end. Eight bytes at a time: the
// C library's memchr that string_view::find calls is a byte loop in Wine's msvcrt, and a save
// is 50 MB of lines.
size_t LineEnd(std::string_view text, size_t pos) {
  constexpr uint64_t kOnes = 0x0101010101010101ull, kHigh = 0x8080808080808080ull;
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  for (; pos + 8 <= text.size(); pos += 8) {
    uint64_t x = orvalis::Load64LE(p + pos) ^ (kOnes * '\n');
    // The lowest byte flagged is the first zero byte of x; a borrow only flags bytes above it.
    if (uint64_t zero = (x - kOnes) & ~x & kHigh) return pos + size_t(std::countr_zero(zero) >> 3);
  }
  while (pos < text.size() && p[pos] != '\n') ++pos;
  return pos;
}

// Where unescaped text goes: UTF-16 units (names), or the UTF-16LE bytes a string value holds.
struct Units {
  std::u16string* out;
  void Run(const char* p, size_t n) {
    size_t at = out->size();
    out->resize(at + n);
    char16_t* d = out->data() + at;
    for (size_t k = 0; k < n; ++k) d[k] = static_cast<unsigned char>(p[k]);
  }
  void Put(char16_t c) { out->push_back(c); }
};
struct Bytes {
  std::string* out;
  void Run(const char* p, size_t n) {
    size_t at = out->size();
    out->resize(at + 2 * n);
    char* d = out->data() + at;
    for (size_t k = 0; k < n; ++k) {
      d[2 * k] = p[k];  // a byte stands for the unit of the same number
      d[2 * k + 1] = 0;
    }
  }
  void Put(char16_t c) {
    out->push_back(static_cast<char>(c & 0xFF));
    out->push_back(static_cast<char>(c >> 8));
  }
};

// Reads an escaped string from `s` at *pos up to the unescaped `end` character (which is
// consumed) into out. False when the line ends first.
template <class Out>
bool Unescape(std::string_view s, size_t* pos, char end, Out out) {
  const char* p = s.data();
  size_t i = *pos, n = s.size();
  while (i < n) {
    size_t j = i;
    while (j < n && p[j] != end && p[j] != '\\') ++j;  // plain text goes over in one run
    if (j > i) out.Run(p + i, j - i);
    i = j;
    if (i >= n) return false;
    char c = p[i++];
    if (c == end) {
      *pos = i;
      return true;
    }
    if (i >= n) return false;
    c = p[i++];
    switch (c) {
      case 'a': out.Put(7); break;
      case 'b': out.Put(8); break;
      case 'e': out.Put(27); break;
      case 'f': out.Put(12); break;
      case 'n': out.Put(10); break;
      case 'r': out.Put(13); break;
      case 't': out.Put(9); break;
      case 'v': out.Put(11); break;
      case 'x': {
        unsigned v = 0;
        int k = 0;
        for (int d; k < 4 && i < n && (d = HexDigit(p[i])) >= 0; ++k, ++i) v = v * 16 + unsigned(d);
        if (!k) return false;
        out.Put(static_cast<char16_t>(v));
        break;
      }
      default:
        if (c >= '0' && c <= '7') {
          unsigned v = unsigned(c - '0');
          for (int k = 1; k < 3 && i < n && p[i] >= '0' && p[i] <= '7'; ++k, ++i) v = v * 8 + unsigned(p[i] - '0');
          out.Put(static_cast<char16_t>(v));
        } else {
          out.Put(static_cast<unsigned char>(c));
        }
    }
  }
  return false;
}

bool ParseHexNumber(std::string_view s, size_t* pos, uint32_t* v) {
  size_t i = *pos;
  uint64_t n = 0;
  int d;
  while (i < s.size() && (d = HexDigit(s[i])) >= 0 && i - *pos < 8) n = n * 16 + unsigned(d), ++i;
  if (i == *pos) return false;
  *pos = i;
  *v = static_cast<uint32_t>(n);
  return true;
}

class Parser {
 public:
  Parser(std::string_view text, SavedBranch* out) : text_(text), b_(out) {}

  bool Run() {
    *b_ = SavedBranch();
    std::string_view line;
    if (!NextLine(&line) || line != kSignature) return false;
    // Room for a save of the usual make-up (a value line of some 60 characters, two or three
    // values a key), so that the stores seldom have to move as they grow.
    b_->keys.reserve(text_.size() / 256);
    b_->values.reserve(text_.size() / 96);
    b_->names.reserve(text_.size() / 8);
    b_->data.reserve(text_.size());  // strings widen to two bytes a character
    b_->keys.push_back(SavedKey());
    stack_.assign(1, 0);
    while (NextLine(&line)) {
      if (line.empty() || line[0] == ';') continue;
      if (line[0] == '#') {
        if (line == "#link") {
          if (current_ < 0) return false;
          b_->keys[size_t(current_)].link = true;
        }
        continue;  // #time, #class, #arch: nothing the dump keeps
      }
      if (line[0] == '[') {
        if (!KeyLine(line)) return false;
      } else if (current_ < 0 || !ValueLine(line)) {
        return false;
      }
    }
    return true;
  }

 private:
  // The next line without its end; a hex line continued by a trailing backslash is joined.
  bool NextLine(std::string_view* line) {
    if (pos_ >= text_.size()) return false;
    std::string_view l = TakeLine();
    if (l.empty() || l.back() != '\\' || l.find("=hex") == std::string_view::npos) {
      *line = l;
      return true;
    }
    joined_.assign(l.data(), l.size() - 1);
    while (pos_ < text_.size()) {
      std::string_view more = TakeLine();
      size_t lead = more.find_first_not_of(' ');
      more = lead == std::string_view::npos ? std::string_view() : more.substr(lead);
      bool goesOn = !more.empty() && more.back() == '\\';
      joined_.append(more.data(), more.size() - (goesOn ? 1 : 0));
      if (!goesOn) break;
    }
    *line = joined_;
    return true;
  }

  // The line at pos_ without its end ("\n" or "\r\n"); pos_ moves past it.
  std::string_view TakeLine() {
    size_t end = LineEnd(text_, pos_);
    std::string_view l = text_.substr(pos_, end - pos_);
    pos_ = end + 1;
    if (!l.empty() && l.back() == '\r') l.remove_suffix(1);
    return l;
  }

  uint32_t AddName(std::u16string_view name) {
    uint32_t at = static_cast<uint32_t>(b_->names.size());
    b_->names += name;
    return at;
  }

  bool SameName(const SavedKey& k, std::u16string_view name) const {
    return k.nameLength == name.size() &&
           (name.empty() || std::memcmp(&b_->names[k.name], name.data(), name.size() * sizeof(char16_t)) == 0);
  }

  // "[a\\b\\c] seconds": finds or makes the key, and the keys its path implies. The save is in
  // pre-order, so a key already made can only be the last subkey of its parent.
  bool KeyLine(std::string_view line) {
    std::u16string& path = scratch_;  // reused: a save has a line per key
    path.clear();
    size_t i = 1;
    if (!Unescape(line, &i, ']', Units{&path})) return false;
    size_t depth = 0, start = 0;
    stack_.resize(1);
    while (start < path.size()) {
      size_t sep = path.find(u'\\', start);
      if (sep == std::u16string::npos) sep = path.size();
      std::u16string_view name = std::u16string_view(path).substr(start, sep - start);
      start = sep + 1;
      if (name.empty()) return false;
      if (++depth > kMaxSavedDepth) return false;
      uint32_t parent = stack_.back();
      const std::vector<uint32_t>& kids = b_->keys[parent].children;
      uint32_t child;
      if (!kids.empty() && SameName(b_->keys[kids.back()], name)) {
        child = kids.back();
      } else {
        child = static_cast<uint32_t>(b_->keys.size());
        SavedKey k;
        k.name = AddName(name);
        k.nameLength = static_cast<uint32_t>(name.size());
        b_->keys.push_back(std::move(k));
        b_->keys[parent].children.push_back(child);
      }
      stack_.push_back(child);
    }
    SavedKey& k = b_->keys[stack_.back()];
    if (k.hasHeader) return false;  // a key written twice is not a save of Wine's
    k.hasHeader = true;
    k.firstValue = static_cast<uint32_t>(b_->values.size());
    current_ = static_cast<int64_t>(stack_.back());
    return true;
  }

  bool ValueLine(std::string_view line) {
    SavedValue v{};
    v.name = static_cast<uint32_t>(b_->names.size());
    size_t i;
    if (line[0] == '@') {
      i = 1;
    } else if (line[0] == '"') {
      i = 1;
      if (!Unescape(line, &i, '"', Units{&b_->names}) || b_->names.size() == v.name) return false;
    } else {
      return false;
    }
    if (i >= line.size() || line[i++] != '=') return false;
    v.nameLength = static_cast<uint32_t>(b_->names.size() - v.name);
    v.data = static_cast<uint32_t>(b_->data.size());
    std::string_view rest = line.substr(i);
    if (rest.size() && rest[0] == '"') {
      v.type = 1;
      i = 1;
      if (!String(rest, &i)) return false;
    } else if (rest.substr(0, 4) == "str(") {
      i = 4;
      if (!ParseHexNumber(rest, &i, &v.type) || rest.substr(i, 3) != "):\"") return false;
      i += 3;
      if (!String(rest, &i)) return false;
    } else if (rest.substr(0, 6) == "dword:") {
      i = 6;
      uint32_t n;
      if (!ParseHexNumber(rest, &i, &n) || i != rest.size()) return false;
      v.type = 4;
      for (int k = 0; k < 4; ++k) b_->data.push_back(static_cast<char>(n >> (8 * k)));
    } else if (rest.substr(0, 3) == "hex") {
      i = 3;
      v.type = 3;
      if (i < rest.size() && rest[i] == '(') {
        ++i;
        if (!ParseHexNumber(rest, &i, &v.type) || i >= rest.size() || rest[i++] != ')') return false;
      }
      if (i >= rest.size() || rest[i++] != ':') return false;
      // "aa,bb,...": sized once, as binary values make up most of a save's text.
      size_t at = b_->data.size();
      b_->data.resize(at + (rest.size() - i + 1) / 3);
      while (i < rest.size()) {
        int hi = HexDigit(rest[i]), lo = i + 1 < rest.size() ? HexDigit(rest[i + 1]) : -1;
        if (hi < 0 || lo < 0 || at == b_->data.size()) return false;
        b_->data[at++] = static_cast<char>(hi * 16 + lo);
        i += 2;
        if (i < rest.size() && (rest[i++] != ',' || i == rest.size())) return false;  // a comma needs a byte after it
      }
      b_->data.resize(at);
    } else {
      return false;
    }
    v.dataLength = static_cast<uint32_t>(b_->data.size() - v.data);
    b_->values.push_back(v);
    ++b_->keys[size_t(current_)].valueCount;
    return true;
  }

  // A quoted string's text as the registry holds it: UTF-16LE with its terminator.
  bool String(std::string_view rest, size_t* i) {
    if (!Unescape(rest, i, '"', Bytes{&b_->data}) || *i != rest.size()) return false;
    b_->data.append(2, '\0');
    return true;
  }

  std::string_view text_;
  SavedBranch* b_;
  size_t pos_ = 0;
  std::string joined_;
  std::u16string scratch_;
  std::vector<uint32_t> stack_;
  int64_t current_ = -1;
};

}  // namespace

bool ParseWineSave(std::string_view text, SavedBranch* out) {
  Parser p(text, out);
  if (p.Run()) return true;
  *out = SavedBranch();
  return false;
}

}  // namespace marlow
