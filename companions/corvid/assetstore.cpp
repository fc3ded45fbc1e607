#include "companions/corvid/assetstore.h"

#include <cerrno>
#include <cstring>

#include "base/io.h"
#include "base/textutil.h"
#include "compress/crc32.h"

namespace corvid {
namespace {

using orvalis::Io;

constexpr char kCompanionMagic[8] = {'O', 'R', 'V', 'A', 'S', 'S', 'E', 'T'};
constexpr char kIndexMagic[8] = {'O', 'R', 'V', 'A', 'I', 'D', 'X', '1'};
constexpr uint32_t kVersion = 1;
constexpr uint32_t kBlockTag = 0x4B4C4241;  // "ABLK"
constexpr uint32_t kFileTag = 0x4C494641;   // "AFIL"
constexpr uint32_t kMaxRecords = 1000000;
// The smallest framed file record: tag, length, a one-character path with its five numbers, CRC.
constexpr uint32_t kMinFileBytes = 4 + 4 + (2 + 1 + 5 * 4) + 4;

// A little-endian writer and reader over a bounded buffer.
struct Out {
  unsigned char buf[1200];
  size_t n = 0;
  bool ok = true;
  void U16(uint32_t v) {
    Byte(static_cast<unsigned char>(v & 0xFF));
    Byte(static_cast<unsigned char>((v >> 8) & 0xFF));
  }
  void U32(uint32_t v) {
    for (int i = 0; i < 4; ++i) Byte(static_cast<unsigned char>(v >> (8 * i)));
  }
  void Byte(unsigned char c) {
    if (n < sizeof buf) buf[n++] = c; else ok = false;
  }
  void Bytes(const char* p, size_t len) {
    if (n + len > sizeof buf) { ok = false; return; }
    std::memcpy(buf + n, p, len);
    n += len;
  }
  void Text(const char* s) {
    const size_t len = std::strlen(s);
    U16(static_cast<uint32_t>(len));
    Bytes(s, len);
  }
};

struct In {
  const unsigned char* p;
  size_t left;
  bool ok = true;
  uint32_t U16() {
    if (left < 2) return ok = false, 0;
    uint32_t v = p[0] | p[1] << 8;
    p += 2, left -= 2;
    return v;
  }
  uint32_t U32() {
    if (left < 4) return ok = false, 0;
    uint32_t v = static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
                 static_cast<uint32_t>(p[3]) << 24;
    p += 4, left -= 4;
    return v;
  }
  // A counted text into out (260): false when it does not fit or holds a zero byte.
  void Text(char* out) {
    const uint32_t len = U16();
    if (!ok || len > left || len >= 260) { ok = false; return; }
    std::memcpy(out, p, len);
    out[len] = '\0';
    if (std::strlen(out) != len) ok = false;
    p += len, left -= len;
  }
};

bool ReadU32(FILE* f, uint32_t* v) {
  unsigned char b[4];
  if (std::fread(b, 1, 4, f) != 4) return false;
  *v = static_cast<uint32_t>(b[0]) | static_cast<uint32_t>(b[1]) << 8 | static_cast<uint32_t>(b[2]) << 16 |
       static_cast<uint32_t>(b[3]) << 24;
  return true;
}

// One framed record: tag, length, bytes, CRC-32 of the bytes.
bool WriteFramed(FILE* f, uint32_t tag, const Out& body) {
  if (!body.ok) return false;
  Out head;
  head.U32(tag);
  head.U32(static_cast<uint32_t>(body.n));
  Out tail;
  tail.U32(orvalis::Crc32(body.buf, body.n));
  return std::fwrite(head.buf, 1, head.n, f) == head.n && std::fwrite(body.buf, 1, body.n, f) == body.n &&
         std::fwrite(tail.buf, 1, tail.n, f) == tail.n;
}

// Reads one framed record of the expected tag into buf (1200); false when it is not one.
bool ReadFramed(FILE* f, uint32_t tag, unsigned char* buf, size_t* n) {
  uint32_t t, len, crc;
  if (!ReadU32(f, &t) || t != tag || !ReadU32(f, &len) || len > 1200) return false;
  if (std::fread(buf, 1, len, f) != len || !ReadU32(f, &crc)) return false;
  *n = len;
#ifdef FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION
  // A fuzzer cannot forge CRC-32s; its build lets damage through them to reach the parsers.
  (void)crc;
  return true;
#else
  return orvalis::Crc32(buf, len) == crc;
#endif
}

ChangeNode* NewNode(uint16_t flags, const char* name, size_t extra) {
  const size_t nameLen = std::strlen(name);
  auto* n = static_cast<ChangeNode*>(Io().calloc(1, sizeof(ChangeNode) + extra + nameLen + 1));
  if (!n) return nullptr;
  n->flags = flags;
  n->data = extra ? reinterpret_cast<char*>(n + 1) : nullptr;
  n->name = reinterpret_cast<char*>(n + 1) + extra;
  std::memcpy(n->name, name, nameLen + 1);
  n->nameLength = static_cast<uint32_t>(nameLen);
  return n;
}

// Appends at the end of parent's children. While a tree is built, a node's `values` member (which
// asset nodes do not otherwise use) remembers its last child, so that a folder of many thousand
// files is built in linear time; ClearTails puts it back to null once the tree is complete.
void Append(ChangeNode* parent, ChangeNode* child) {
  ChangeNode* last = parent->values;
  if (!last)
    for (last = parent->children; last && last->next;) last = last->next;
  if (last)
    last->next = child;
  else
    parent->children = child;
  parent->values = child;
}

void ClearTails(ChangeNode* n) {
  for (; n; n = n->next) {
    n->values = nullptr;
    ClearTails(n->children);
  }
}

// The folder node for a relative folder path under root, made when missing.
ChangeNode* FolderFor(ChangeNode* root, const char* relative) {
  ChangeNode* at = root;
  char path[260] = "";
  const char* p = relative;
  while (*p) {
    const char* end = std::strchr(p, '\\');
    const size_t len = end ? static_cast<size_t>(end - p) : std::strlen(p);
    const size_t used = std::strlen(path);
    if (used + len + 2 > sizeof path) return nullptr;
    if (used) std::strcat(path, "\\");
    std::strncat(path, p, len);
    ChangeNode* found = nullptr;
    for (ChangeNode* c = at->children; c && !found; c = c->next)
      if ((c->flags & kKindFolder) && orvalis::EqualNoCase(c->name, path)) found = c;
    if (!found) {
      found = NewNode(kKindFolder, path, 0);
      if (!found) return nullptr;
      found->depth = static_cast<uint16_t>(at->depth + 1);
      Append(at, found);
    }
    at = found;
    p += len;
    if (*p == '\\') ++p;
  }
  return at;
}

void MarkSubtree(ChangeNode* n, uint16_t bit) {
  for (; n; n = n->next) {
    n->flags |= bit;
    MarkSubtree(n->children, bit);
  }
}

bool SameKind(const ChangeNode* a, const ChangeNode* b) {
  return (a->flags & kKindFile) == (b->flags & kKindFile);
}

// Compares the children of a (first) with those of b (second), moving new and changed nodes of b
// into a. True when anything below a changed. Each node of b pairs with one node of a at most (its
// `values` member, unused by asset nodes, holds the partner meanwhile): a folder on a file system
// that tells case apart can hold "a" and "A", and each must meet its own counterpart.
bool CompareChildren(ChangeNode* a, ChangeNode* b) {
  bool changed = false;
  // Pass 1: pair every child of a; what finds no partner was removed.
  for (ChangeNode* x = a->children; x; x = x->next) {
    ChangeNode* y = b ? b->children : nullptr;
    while (y && (y->values || !SameKind(x, y) || !orvalis::EqualNoCase(x->name, y->name))) y = y->next;
    if (!y) {
      x->flags |= kChangeOlder;
      MarkSubtree(x->children, kChangeOlder);
      changed = true;
      continue;
    }
    y->values = x;
    if (x->flags & kKindFolder) {
      if (CompareChildren(x, y)) {
        x->flags |= kChangeBelow;
        changed = true;
      }
    } else if (x->length != y->length || x->time != y->time || (x->crc && y->crc && x->crc != y->crc)) {
      x->flags |= kChangeFrom;
      changed = true;
    }
  }
  if (!b) return changed;
  // Pass 2, in b's order: new nodes go after their preceding paired sibling, the newer state of a
  // changed file directly after its older state.
  ChangeNode* anchor = nullptr;
  ChangeNode** link = &b->children;
  while (ChangeNode* y = *link) {
    ChangeNode* x = static_cast<ChangeNode*>(y->values);
    y->values = nullptr;
    const bool move = !x || (x->flags & kChangeFrom);
    if (!move) {
      anchor = x;
      link = &y->next;
      continue;
    }
    *link = y->next;  // detach from b
    if (!x) {
      y->flags |= kChangeNewer;
      MarkSubtree(y->children, kChangeNewer);
      changed = true;
    } else {
      y->flags |= kChangeTo;
      anchor = x;
    }
    if (anchor) {
      y->next = anchor->next;
      anchor->next = y;
    } else {
      y->next = a->children;
      a->children = y;
    }
    anchor = y;
  }
  return changed;
}

}  // namespace

bool IsSafeRelativePath(const char* path) {
  if (!path[0] || path[0] == '\\' || std::strchr(path, ':') || std::strchr(path, '/')) return false;
  const char* p = path;
  while (*p) {
    const char* end = std::strchr(p, '\\');
    const size_t len = end ? static_cast<size_t>(end - p) : std::strlen(p);
    if (len == 0 || (len == 1 && p[0] == '.') || (len == 2 && p[0] == '.' && p[1] == '.')) return false;
    p += len;
    if (*p == '\\' && !*++p) return false;  // a trailing separator names no file
  }
  return true;
}

namespace {

bool PlainWildcardMatch(const char* pattern, const char* name) {
  const char* star = nullptr;
  const char* resume = nullptr;
  while (*name) {
    const unsigned char pc = static_cast<unsigned char>(*pattern);
    if (pc == '*') {
      star = pattern++;
      resume = name;
    } else if (pc && (pc == '?' || orvalis::CompareNoCaseN(pattern, name, 1) == 0)) {
      ++pattern;
      ++name;
    } else if (star) {
      pattern = star + 1;
      name = ++resume;
    } else {
      return false;
    }
  }
  while (*pattern == '*') ++pattern;
  return *pattern == '\0';
}

}  // namespace

// Windows lets a pattern's trailing ".*" stand for "any extension or none": "*.*" is every file
// and "setup.*" takes "setup" too. Profiles are written with that meaning.
bool WildcardMatch(const char* pattern, const char* name) {
  if (PlainWildcardMatch(pattern, name)) return true;
  const size_t n = std::strlen(pattern);
  if (n < 2 || pattern[n - 2] != '.' || pattern[n - 1] != '*' || std::strchr(name, '.')) return false;
  char shorter[260];
  if (n - 2 >= sizeof shorter) return false;
  std::memcpy(shorter, pattern, n - 2);
  shorter[n - 2] = '\0';
  return PlainWildcardMatch(shorter, name);
}

void SplitAsset(const char* asset, bool isFolder, char* folder, char* pattern) {
  orvalis::CopyText(folder, asset, 260);
  pattern[0] = '\0';
  size_t n = std::strlen(folder);
  if (!isFolder) {
    char* slash = orvalis::FindLastChar(folder, '\\');
    if (slash) {
      orvalis::CopyText(pattern, slash + 1, 260);
      *slash = '\0';
      if (std::strlen(folder) == 2 && folder[1] == ':') std::strcat(folder, "\\");  // a drive root keeps it
    } else {
      orvalis::CopyText(pattern, folder, 260);
      folder[0] = '\0';
    }
    return;
  }
  if (n > 3 && folder[n - 1] == '\\') folder[n - 1] = '\0';
}

bool WriteCompanionHead(FILE* f) {
  Out o;
  o.Bytes(kCompanionMagic, 8);
  o.U32(kVersion);
  return std::fwrite(o.buf, 1, o.n, f) == o.n;
}

bool WriteBlockHead(FILE* f, const char* asset, const char* folder, uint32_t options, uint32_t files) {
  Out o;
  o.Text(asset);
  o.Text(folder);
  o.U32(options);
  o.U32(files);
  return WriteFramed(f, kBlockTag, o);
}

bool WriteFileRecord(FILE* f, const FileRecord& r) {
  Out o;
  o.Text(r.path);
  o.U32(r.size);
  o.U32(r.time);
  o.U32(r.attributes);
  o.U32(r.crc);
  o.U32(r.stored);
  return WriteFramed(f, kFileTag, o);
}

int ReadAssetBlock(FILE* f, const char* asset, char* folder, uint32_t* options, FileRecord** records,
                   uint32_t* count) {
  *records = nullptr;
  *count = 0;
  unsigned char head[12];
  if (std::fseek(f, 0, SEEK_END) != 0) return kBadData;
  const long end = std::ftell(f);
  std::rewind(f);
  if (end == 0) return kNoAsset;  // as the engine creates it, before any asset is appended
  if (end < 12 || std::fread(head, 1, 12, f) != 12 || std::memcmp(head, kCompanionMagic, 8) != 0) return kBadData;
  In v{head + 8, 4};
  if (v.U32() != kVersion) return kBadData;
  unsigned char buf[1200];
  size_t n;
  while (std::ftell(f) < end) {
    if (!ReadFramed(f, kBlockTag, buf, &n)) return kBadData;
    In in{buf, n};
    char name[260], base[260];
    in.Text(name);
    in.Text(base);
    const uint32_t opts = in.U32(), files = in.U32();
    // A claimed count the rest of the file cannot hold is refused before memory is set aside.
    const long here = std::ftell(f);
    if (!in.ok || files > kMaxRecords || here < 0 || static_cast<uint64_t>(files) * kMinFileBytes >
                                                         static_cast<uint64_t>(end - here))
      return kBadData;
    const bool wanted = orvalis::EqualNoCase(name, asset);
    FileRecord* list = nullptr;
    if (wanted && files) {
      list = static_cast<FileRecord*>(Io().calloc(files, sizeof(FileRecord)));
      if (!list) return kNoMemory;
    }
    for (uint32_t i = 0; i < files; ++i) {
      FileRecord r{};
      bool ok = ReadFramed(f, kFileTag, buf, &n);
      In rec{buf, n};
      if (ok) {
        rec.Text(r.path);
        r.size = rec.U32();
        r.time = rec.U32();
        r.attributes = rec.U32();
        r.crc = rec.U32();
        r.stored = rec.U32();
        const long at = std::ftell(f);
        r.offset = static_cast<uint32_t>(at);
        ok = rec.ok && IsSafeRelativePath(r.path) && at >= 0 && static_cast<uint64_t>(at) + r.stored <= static_cast<uint64_t>(end) &&
             std::fseek(f, static_cast<long>(r.stored), SEEK_CUR) == 0;
      }
      if (!ok) {
        Io().free(list);
        return kBadData;
      }
      if (list) list[i] = r;
    }
    if (wanted) {
      orvalis::CopyText(folder, base, 260);
      *options = opts;
      *records = list;
      *count = files;
      return kOk;
    }
  }
  return kNoAsset;
}

int ReadIndex(const char* path, IndexRecord** records, uint32_t* count) {
  *records = nullptr;
  *count = 0;
  errno = 0;
  FILE* f = Io().fopen(path, "rb");
  // Only a missing index is an empty one: taking one held open by another process for empty
  // would have the next write replace every other snapshot's records.
  if (!f) return errno == ENOENT ? kOk : kNotFound;
  unsigned char head[16];
  int rc = kBadData;
  IndexRecord* list = nullptr;
  uint32_t total = 0;
  if (std::fread(head, 1, 16, f) == 16 && std::memcmp(head, kIndexMagic, 8) == 0) {
    In in{head + 8, 8};
    const uint32_t version = in.U32();
    total = in.U32();
    if (version == kVersion && total <= kMaxRecords) {
      list = total ? static_cast<IndexRecord*>(Io().calloc(total, sizeof(IndexRecord))) : nullptr;
      rc = total && !list ? kNoMemory : kOk;
      unsigned char buf[1200];
      size_t n;
      for (uint32_t i = 0; rc == kOk && i < total; ++i) {
        if (!ReadFramed(f, kBlockTag, buf, &n)) {
          rc = kBadData;
          break;
        }
        In r{buf, n};
        r.Text(list[i].companion);
        r.Text(list[i].asset);
        list[i].options = r.U32();
        list[i].files = r.U32();
        list[i].offset = r.U32();
        if (!r.ok) rc = kBadData;
      }
      if (rc == kOk && std::fgetc(f) != EOF) rc = kBadData;  // nothing may follow the records
    }
  }
  Io().fclose(f);
  if (rc != kOk) {
    Io().free(list);
    return rc;
  }
  *records = list;
  *count = total;
  return kOk;
}

int WriteIndex(const char* path, const IndexRecord* records, uint32_t count) {
  char temp[300];
  std::snprintf(temp, sizeof temp, "%s.tmp", path);
  FILE* f = Io().fopen(temp, "wb");
  if (!f) return kWriteFault;
  Out head;
  head.Bytes(kIndexMagic, 8);
  head.U32(kVersion);
  head.U32(count);
  bool ok = std::fwrite(head.buf, 1, head.n, f) == head.n;
  for (uint32_t i = 0; ok && i < count; ++i) {
    Out o;
    o.Text(records[i].companion);
    o.Text(records[i].asset);
    o.U32(records[i].options);
    o.U32(records[i].files);
    o.U32(records[i].offset);
    ok = WriteFramed(f, kBlockTag, o);
  }
  ok = orvalis::CloseChecked(f) && ok;
  // The rename is the only moment the index changes: a crash before it leaves the old one whole.
  if (!ok || Io().rename(temp, path) != 0) {
    Io().remove(temp);
    return kWriteFault;
  }
  return kOk;
}

ChangeNode* BuildAssetTree(const AssetOrigin& origin, const FileRecord* records, uint32_t count) {
  ChangeNode* root = NewNode(kKindName, origin.asset, sizeof(AssetOrigin));
  if (!root) return nullptr;
  std::memcpy(root->data, &origin, sizeof origin);
  root->length = sizeof origin;
  for (uint32_t i = 0; i < count; ++i) {
    const FileRecord& r = records[i];
    char folder[260];
    orvalis::CopyText(folder, r.path, sizeof folder);
    char* slash = orvalis::FindLastChar(folder, '\\');
    ChangeNode* parent = root;
    if (slash) {
      *slash = '\0';
      parent = FolderFor(root, folder);
    }
    ChangeNode* file = parent ? NewNode(kKindFile, r.path, sizeof(FileRecord)) : nullptr;
    if (!file) {
      FreeAssetTree(root);
      return nullptr;
    }
    std::memcpy(file->data, &r, sizeof r);
    file->length = r.size;
    file->time = r.time;
    file->attributes = r.attributes;
    file->crc = r.crc;
    file->depth = static_cast<uint16_t>(parent->depth + 1);
    Append(parent, file);
  }
  ClearTails(root);
  return root;
}

void FreeAssetTree(ChangeNode* tree) {
  while (tree) {
    ChangeNode* next = tree->next;
    FreeAssetTree(tree->children);
    Io().free(tree);
    tree = next;
  }
}

const FileRecord* NodeRecord(const ChangeNode* file) {
  return (file->flags & kKindFile) ? static_cast<const FileRecord*>(file->data) : nullptr;
}

void CompareAssetTrees(ChangeNode** first, ChangeNode* second) {
  if (!*first || !second) return;
  if (CompareChildren(*first, second)) (*first)->flags |= kChangeBelow;
}

}  // namespace corvid
