#include "base/textutil.h"

#include <cstring>

namespace orvalis {

namespace {
inline unsigned char Lower(unsigned char c) { return (c >= 'A' && c <= 'Z') ? c + 32 : c; }
inline bool IsLeadByte(unsigned char c) { return (c >= 0x80 && c <= 0x9F) || c >= 0xE0; }
}  // namespace

char* ReadTextLine(char* buf, int size, FILE* stream) {
  if (!buf || size < 2 || !stream) return nullptr;
  if (!std::fgets(buf, size, stream)) return nullptr;
  size_t n = std::strlen(buf);
  if (n > 0 && buf[n - 1] == '\n') buf[n - 1] = '\0';
  return buf;
}

const char* FindLastChar(const char* text, char c) {
  if (!text) return nullptr;
  const char* last = nullptr;
  for (const char* p = text; *p;) {
    if (IsLeadByte(static_cast<unsigned char>(*p))) {
      if (!p[1]) break;
      p += 2;
      continue;
    }
    if (*p == c) last = p;
    ++p;
  }
  return last;
}

char* FindLastChar(char* text, char c) {
  return const_cast<char*>(FindLastChar(static_cast<const char*>(text), c));
}

int CompareNoCase(const char* a, const char* b) {
  const unsigned char* x = reinterpret_cast<const unsigned char*>(a);
  const unsigned char* y = reinterpret_cast<const unsigned char*>(b);
  for (;; ++x, ++y) {
    int d = Lower(*x) - Lower(*y);
    if (d != 0 || !*x) return d;
  }
}

int CompareNoCaseN(const char* a, const char* b, size_t n) {
  const unsigned char* x = reinterpret_cast<const unsigned char*>(a);
  const unsigned char* y = reinterpret_cast<const unsigned char*>(b);
  for (; n > 0; --n, ++x, ++y) {
    int d = Lower(*x) - Lower(*y);
    if (d != 0 || !*x) return d;
  }
  return 0;
}

bool EqualNoCase(const char* a, const char* b) { return CompareNoCase(a, b) == 0; }

const char* FindNoCase(const char* haystack, const char* needle) {
  size_t n = std::strlen(needle);
  for (const char* p = haystack; *p; ++p)
    if (CompareNoCaseN(p, needle, n) == 0) return p;
  return n == 0 ? haystack : nullptr;
}

void SplitFileName(const char* path, char* name, size_t nameCap, char* ext, size_t extCap) {
  const char* base = path;
  for (const char* p = path; *p; ++p)
    if (*p == '\\' || *p == '/' || *p == ':') base = p + 1;
  const char* dot = std::strrchr(base, '.');
  size_t nameLen = dot ? static_cast<size_t>(dot - base) : std::strlen(base);
  if (name && nameCap > 0) {
    size_t n = nameLen < nameCap - 1 ? nameLen : nameCap - 1;
    std::memcpy(name, base, n);
    name[n] = '\0';
  }
  if (ext && extCap > 0) CopyText(ext, dot ? dot : "", extCap);
}

char* CopyText(char* dst, const char* src, size_t cap) {
  if (cap == 0) return dst;
  size_t n = std::strlen(src);
  if (n > cap - 1) n = cap - 1;
  std::memmove(dst, src, n);
  dst[n] = '\0';
  return dst;
}

char* AppendText(char* dst, const char* src, size_t cap) {
  size_t have = strnlen(dst, cap);
  if (have >= cap) return dst;
  CopyText(dst + have, src, cap - have);
  return dst;
}

bool EndsWith(const char* text, char c) {
  size_t n = std::strlen(text);
  return n > 0 && text[n - 1] == c;
}

}  // namespace orvalis

namespace orvalis {
bool JoinPath(char* out, size_t cap, const char* folder, const char* name) {
  const bool sep = folder[0] != '\0' && !EndsWith(folder, '\\');
  int n = std::snprintf(out, cap, "%s%s%s", folder, sep ? "\\" : "", name);
  return n >= 0 && static_cast<size_t>(n) < cap;
}

bool SiblingPath(char* out, size_t cap, const char* path, const char* name) {
  const char* slash = FindLastChar(path, '\\');
  const int folderLength = slash ? static_cast<int>(slash - path + 1) : 0;
  int n = std::snprintf(out, cap, "%.*s%s", folderLength, path, name);
  return n >= 0 && static_cast<size_t>(n) < cap;
}
bool IsBareFileName(const char* name) {
  if (!name || !name[0] || std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) return false;
  return std::strpbrk(name, "\\/:") == nullptr;
}

}  // namespace orvalis
