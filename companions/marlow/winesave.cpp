// Reader of Wine's saved-branch text. Anything it does not understand makes the whole parse
// fail: the library then walks the live registry, so a doubtful save costs time, never content.
#include "companions/marlow/winesave.h"

#include <cstring>

namespace marlow {
namespace {

constexpr std::string_view kSignature = "WINE REGISTRY Version 2";
constexpr int kMaxSavedDepth = 512;

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Reads an escaped string from `s` at *pos up to the unescaped `end` character (which is
// consumed); the text goes to out. False when the line ends first.
bool Unescape(std::string_view s, size_t* pos, char end, std::u16string* out) {
  size_t i = *pos;
  while (i < s.size()) {
    char c = s[i++];
    if (c == end) {
      *pos = i;
      return true;
    }
    if (c != '\\') {
      out->push_back(static_cast<unsigned char>(c));
      continue;
    }
    if (i >= s.size()) return false;
    c = s[i++];
    switch (c) {
      case 'a': out->push_back(7); break;
      case 'b': out->push_back(8); break;
      case 'e': out->push_back(27); break;
      case 'f': out->push_back(12); break;
      case 'n': out->push_back(10); break;
      case 'r': out->push_back(13); break;
      case 't': out->push_back(9); break;
      case 'v': out->push_back(11); break;
      case 'x': {
        unsigned v = 0;
        int n = 0;
        for (int d; n < 4 && i < s.size() && (d = HexDigit(s[i])) >= 0; ++n, ++i) v = v * 16 + unsigned(d);
        if (!n) return false;
        out->push_back(static_cast<char16_t>(v));
        break;
      }
      default:
        if (c >= '0' && c <= '7') {
          unsigned v = unsigned(c - '0');
          for (int n = 1; n < 3 && i < s.size() && s[i] >= '0' && s[i] <= '7'; ++n, ++i) v = v * 8 + unsigned(s[i] - '0');
          out->push_back(static_cast<char16_t>(v));
        } else {
          out->push_back(static_cast<unsigned char>(c));
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
    size_t end = text_.find('\n', pos_);
    if (end == std::string_view::npos) end = text_.size();
    std::string_view l = text_.substr(pos_, end - pos_);
    pos_ = end + 1;
    if (!l.empty() && l.back() == '\r') l.remove_suffix(1);
    if (l.empty() || l.back() != '\\' || l.find("=hex") == std::string_view::npos) {
      *line = l;
      return true;
    }
    joined_.assign(l.data(), l.size() - 1);
    while (pos_ < text_.size()) {
      end = text_.find('\n', pos_);
      if (end == std::string_view::npos) end = text_.size();
      std::string_view more = text_.substr(pos_, end - pos_);
      pos_ = end + 1;
      if (!more.empty() && more.back() == '\r') more.remove_suffix(1);
      size_t lead = more.find_first_not_of(' ');
      more = lead == std::string_view::npos ? std::string_view() : more.substr(lead);
      bool goesOn = !more.empty() && more.back() == '\\';
      joined_.append(more.data(), more.size() - (goesOn ? 1 : 0));
      if (!goesOn) break;
    }
    *line = joined_;
    return true;
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
    if (!Unescape(line, &i, ']', &path)) return false;
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
    std::u16string& name = scratch_;
    name.clear();
    size_t i;
    if (line[0] == '@') {
      i = 1;
    } else if (line[0] == '"') {
      i = 1;
      if (!Unescape(line, &i, '"', &name) || name.empty()) return false;
    } else {
      return false;
    }
    if (i >= line.size() || line[i++] != '=') return false;
    v.name = AddName(name);
    v.nameLength = static_cast<uint32_t>(name.size());
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
    std::u16string& s = text_scratch_;
    s.clear();
    if (!Unescape(rest, i, '"', &s) || *i != rest.size()) return false;
    s.push_back(0);
    size_t at = b_->data.size();
    b_->data.resize(at + 2 * s.size());
    for (char16_t c : s) {
      b_->data[at++] = static_cast<char>(c & 0xFF);
      b_->data[at++] = static_cast<char>(c >> 8);
    }
    return true;
  }

  std::string_view text_;
  SavedBranch* b_;
  size_t pos_ = 0;
  std::string joined_;
  std::u16string scratch_, text_scratch_;
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
