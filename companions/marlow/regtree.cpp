#include "companions/marlow/regtree.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace marlow {
namespace {

struct RootName {
  const char* full;
  const char* shortName;
};
const RootName kRoots[kRootCount] = {{"HKEY_LOCAL_MACHINE", "HKLM"},
                                     {"HKEY_CURRENT_USER", "HKCU"},
                                     {"HKEY_CLASSES_ROOT", "HKCR"},
                                     {"HKEY_USERS", "HKU"},
                                     {"HKEY_CURRENT_CONFIG", "HKCC"}};

struct FoldTable {
  unsigned char map[256];
  FoldTable() {
    for (int i = 0; i < 256; ++i) map[i] = static_cast<unsigned char>(i);
    for (int c = 'a'; c <= 'z'; ++c) map[c] = static_cast<unsigned char>(c - 32);
    // Windows-1252 lower-case letters beyond ASCII: à..þ except ÷, and š œ ž ÿ.
    for (int c = 0xE0; c <= 0xFE; ++c)
      if (c != 0xF7) map[c] = static_cast<unsigned char>(c - 32);
    map[0x9A] = 0x8A;
    map[0x9C] = 0x8C;
    map[0x9E] = 0x8E;
    map[0xFF] = 0x9F;
  }
};
const FoldTable kFold;

bool EqualsFolded(std::string_view a, const char* b) {
  size_t n = std::strlen(b);
  return a.size() == n && NamesEqual(a.data(), a.size(), b, n);
}

}  // namespace

unsigned char FoldByte(unsigned char c) { return kFold.map[c]; }

bool NamesEqual(const char* a, size_t an, const char* b, size_t bn) {
  if (an != bn) return false;
  for (size_t i = 0; i < an; ++i)
    if (kFold.map[static_cast<unsigned char>(a[i])] != kFold.map[static_cast<unsigned char>(b[i])]) return false;
  return true;
}

int CompareNames(const char* a, size_t an, const char* b, size_t bn) {
  size_t n = an < bn ? an : bn;
  for (size_t i = 0; i < n; ++i) {
    int d = kFold.map[static_cast<unsigned char>(a[i])] - kFold.map[static_cast<unsigned char>(b[i])];
    if (d) return d;
  }
  return an < bn ? -1 : an > bn ? 1 : 0;
}

const char* RootShortName(int root) { return root >= 0 && root < kRootCount ? kRoots[root].shortName : ""; }

bool ParseKeyPath(std::string_view path, KeyPath* out) {
  *out = KeyPath();
  std::vector<std::string_view> parts;
  size_t i = 0;
  while (i <= path.size()) {
    size_t j = path.find('\\', i);
    if (j == std::string_view::npos) j = path.size();
    if (j > i) parts.push_back(path.substr(i, j - i));
    i = j + 1;
  }
  if (parts.empty()) return false;
  for (int r = 0; r < kRootCount; ++r)
    if (EqualsFolded(parts[0], kRoots[r].full) || EqualsFolded(parts[0], kRoots[r].shortName)) out->root = r;
  if (out->root < 0) return false;
  out->rootText.assign(parts[0]);
  for (size_t k = 1; k < parts.size(); ++k) {
    if (k > 1) out->rest += '\\';
    out->rest.append(parts[k]);
  }
  return true;
}

std::string KeyPath::LastName() const {
  if (rest.empty()) return rootText;
  size_t p = rest.rfind('\\');
  return p == std::string::npos ? rest : rest.substr(p + 1);
}

std::string KeyPath::Canonical() const {
  std::string s = RootShortName(root);
  if (!rest.empty()) s += '\\' + rest;
  for (char& c : s) c = static_cast<char>(FoldByte(static_cast<unsigned char>(c)));
  return s;
}

const unsigned char* ValueBytes(const ChangeNode* v, unsigned char inlineBuf[4]) {
  if (!DataInline(v->type, v->length)) return static_cast<const unsigned char*>(v->data);
  uint32_t x = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(v->data));
  for (int i = 0; i < 4; ++i) inlineBuf[i] = static_cast<unsigned char>(x >> (8 * i));
  return inlineBuf;
}

// One block: the node, then its terminated name, then its data (or the root's path).
ChangeNode* NewKey(const char* name, size_t nameLength, uint16_t depth, std::string_view fullPath) {
  size_t extra = fullPath.empty() ? 0 : fullPath.size() + 1;
  auto* n = static_cast<ChangeNode*>(std::calloc(1, sizeof(ChangeNode) + nameLength + 1 + extra));
  if (!n) return nullptr;
  char* p = reinterpret_cast<char*>(n + 1);
  if (nameLength) std::memcpy(p, name, nameLength);
  p[nameLength] = 0;
  n->flags = kKindKey;
  n->name = p;
  n->nameLength = static_cast<uint32_t>(nameLength);
  n->depth = depth;
  if (extra) {
    char* d = p + nameLength + 1;
    std::memcpy(d, fullPath.data(), fullPath.size());
    d[fullPath.size()] = 0;
    n->data = d;
    n->length = static_cast<uint32_t>(extra);
  }
  return n;
}

ChangeNode* NewValue(const char* name, size_t nameLength, uint32_t type, const void* data, uint32_t length,
                     uint16_t depth) {
  bool inl = DataInline(type, length);
  size_t nameBytes = name ? nameLength + 1 : 0;
  auto* n = static_cast<ChangeNode*>(std::calloc(1, sizeof(ChangeNode) + nameBytes + (inl ? 0 : length) + 1));
  if (!n) return nullptr;
  char* p = reinterpret_cast<char*>(n + 1);
  if (name) {
    if (nameLength) std::memcpy(p, name, nameLength);
    p[nameLength] = 0;
    n->name = p;
    n->nameLength = static_cast<uint32_t>(nameLength);
    p += nameBytes;
  }
  n->type = type;
  n->length = length;
  n->depth = depth;
  if (inl) {
    uint32_t x = 0;
    const auto* b = static_cast<const unsigned char*>(data);
    for (uint32_t i = 0; i < length; ++i) x |= uint32_t(b[i]) << (8 * i);
    n->data = reinterpret_cast<void*>(static_cast<uintptr_t>(x));
  } else {
    if (length) std::memcpy(p, data, length);
    n->data = p;
  }
  return n;
}

void FreeTree(ChangeNode* tree) {
  // Iterative over siblings, recursive over depth (bounded by the registry's 512 levels).
  while (tree) {
    ChangeNode* next = tree->next;
    if (tree->flags & kKindKey) {
      FreeTree(tree->values);
      FreeTree(tree->children);
    }
    std::free(tree);
    tree = next;
  }
}

namespace {

size_t MarkSubtree(ChangeNode* n, uint16_t bit) {
  size_t count = 1;
  n->flags |= bit;
  if (n->flags & kKindKey) {
    for (ChangeNode* v = n->values; v; v = v->next) count += MarkSubtree(v, bit);
    for (ChangeNode* k = n->children; k; k = k->next) count += MarkSubtree(k, bit);
    if (n->values || n->children) n->flags |= kChangeBelow;
  }
  return count;
}

bool ValuesEqual(const ChangeNode* a, const ChangeNode* b) {
  if (a->type != b->type || a->length != b->length) return false;
  unsigned char ba[4], bb[4];
  const unsigned char* pa = ValueBytes(a, ba);
  const unsigned char* pb = ValueBytes(b, bb);
  return a->length == 0 || std::memcmp(pa, pb, a->length) == 0;
}

size_t CompareKey(ChangeNode* a, ChangeNode* b);

// Matches the list *first against *second (values or subkeys) and applies the rules. The
// nodes moved into the first list are unlinked from the second.
size_t MergeList(ChangeNode** first, ChangeNode** second) {
  std::vector<ChangeNode*> va, vb;
  for (ChangeNode* n = *first; n; n = n->next) va.push_back(n);
  for (ChangeNode* n = *second; n; n = n->next) vb.push_back(n);
  if (va.empty() && vb.empty()) return 0;
  std::vector<ChangeNode*> match(vb.size(), nullptr);
  std::vector<char> taken(va.size(), 0);
  std::vector<uint32_t> sorted;  // built only when the two lists are not in the same order
  auto less = [&](uint32_t x, uint32_t y) {
    int c = CompareNames(va[x]->name, va[x]->nameLength, va[y]->name, va[y]->nameLength);
    return c < 0 || (c == 0 && x < y);
  };
  for (size_t i = 0; i < vb.size(); ++i) {
    ChangeNode* b = vb[i];
    if (i < va.size() && !taken[i] && NamesEqual(va[i]->name, va[i]->nameLength, b->name, b->nameLength)) {
      match[i] = va[i];
      taken[i] = 1;
      continue;
    }
    if (sorted.empty() && !va.empty()) {
      sorted.resize(va.size());
      for (uint32_t k = 0; k < va.size(); ++k) sorted[k] = k;
      std::sort(sorted.begin(), sorted.end(), less);
    }
    auto it = std::lower_bound(sorted.begin(), sorted.end(), b, [&](uint32_t x, const ChangeNode* key) {
      return CompareNames(va[x]->name, va[x]->nameLength, key->name, key->nameLength) < 0;
    });
    for (; it != sorted.end() && NamesEqual(va[*it]->name, va[*it]->nameLength, b->name, b->nameLength); ++it)
      if (!taken[*it]) {
        match[i] = va[*it];
        taken[*it] = 1;
        break;
      }
  }
  size_t changes = 0;
  for (size_t k = 0; k < va.size(); ++k)
    if (!taken[k]) changes += MarkSubtree(va[k], kChangeOlder);

  ChangeNode* anchor = nullptr;  // the node of the first list after which the next insert goes
  ChangeNode* keep = nullptr;    // what stays in the second list, in order
  ChangeNode** keepTail = &keep;
  auto insert = [&](ChangeNode* n) {
    if (anchor) {
      n->next = anchor->next;
      anchor->next = n;
    } else {
      n->next = *first;
      *first = n;
    }
    anchor = n;
  };
  for (size_t i = 0; i < vb.size(); ++i) {
    ChangeNode* b = vb[i];
    ChangeNode* a = match[i];
    if (!a) {
      changes += MarkSubtree(b, kChangeNewer);
      insert(b);
      continue;
    }
    anchor = a;
    if (IsValue(a)) {
      if (!ValuesEqual(a, b)) {
        a->flags |= kChangeFrom;
        b->flags |= kChangeTo;
        changes += 2;
        insert(b);
        continue;
      }
    } else {
      changes += CompareKey(a, b);
    }
    *keepTail = b;
    keepTail = &b->next;
  }
  *keepTail = nullptr;
  *second = keep;
  return changes;
}

size_t CompareKey(ChangeNode* a, ChangeNode* b) {
  size_t changes = MergeList(&a->values, &b->values) + MergeList(&a->children, &b->children);
  if (changes) a->flags |= kChangeBelow;
  return changes;
}

}  // namespace

size_t CompareTrees(ChangeNode* first, ChangeNode* second) {
  if (!first || !second) return 0;
  return CompareKey(first, second);
}

}  // namespace marlow
