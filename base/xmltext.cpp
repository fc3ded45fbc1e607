#include "base/xmltext.h"

#include <cstring>

namespace orvalis {

namespace {
constexpr size_t kCdataFlush = 8190;
constexpr size_t kEscapeFlush = 8187;
constexpr size_t kBufSize = 8192;  // kEscapeFlush - 1 plus the longest escape fits

void Put(FILE* f, const char* p, size_t n) {
  if (n) std::fwrite(p, 1, n, f);
}
}  // namespace

void WriteEscapedText(FILE* f, const char* text, size_t length) {
  if (!f || !text) return;
  char buf[kBufSize];
  size_t n = 0;
  if (!std::strstr(text, "]]>")) {
    Put(f, "<![CDATA[", 9);
    for (size_t i = 0; i < length; ++i) {
      unsigned char c = static_cast<unsigned char>(text[i]);
      if (c >= 0x80) continue;
      buf[n++] = static_cast<char>(c);
      if (n >= kCdataFlush) {
        Put(f, buf, n);
        n = 0;
      }
    }
    Put(f, buf, n);
    Put(f, "]]>", 3);
    return;
  }

  for (size_t i = 0; i < length; ++i) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    const char* rep = nullptr;
    if (c >= 0x80)
      rep = "";
    else if (c == '<')
      rep = "&lt";
    else if (c == '>')
      rep = "&gt";
    else if (c == '&')
      rep = "&amp";
    if (rep) {
      size_t r = std::strlen(rep);
      std::memcpy(buf + n, rep, r);
      n += r;
    } else {
      buf[n++] = static_cast<char>(c);
    }
    if (n >= kEscapeFlush) {
      Put(f, buf, n);
      n = 0;
    }
    if (n > 0) Put(f, buf, n - 1);
  }
}

char ChangeLetterFromFlags(unsigned flags) {
  if (flags & 0x1) return 'O';
  if (flags & 0x4) return 'F';
  if (flags & 0x8) return 'T';
  if (flags & 0x2) return 'N';
  return 'X';
}

char LineChangeLetter(int kind) {
  switch (kind) {
    case 2: return 'O';
    case 4: return 'F';
    case 5: return 'T';
    case 1: return 'N';
    default: return 'X';
  }
}

}  // namespace orvalis
