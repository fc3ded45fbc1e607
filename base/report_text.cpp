#include "base/report_text.h"

#include <cstring>
#include <initializer_list>

#include "base/datetext.h"
#include "base/io.h"
#include "base/textutil.h"

namespace orvalis {
namespace {

constexpr uint16_t kShown = kChangeAny | kChangeBelow;

bool Excluded(const ChangeNode* n) { return (n->flags & kChangeExcluded) != 0; }
bool Carries(const ChangeNode* n, uint16_t mask) { return (n->flags & mask) != 0; }

bool HoldsMatch(const ChangeNode* n, uint16_t mask) {
  if (Excluded(n)) return false;
  if (Carries(n, mask)) return true;
  for (const ChangeNode* c = n->children; c; c = c->next) {
    if (Excluded(c)) continue;
    if (Carries(c, mask)) return true;
    if (Carries(c, kChangeBelow) && HoldsMatch(c, mask)) return true;
  }
  for (const ChangeNode* v = n->values; v; v = v->next)
    if (Carries(v, mask)) return true;
  return false;
}

// The printer of one tree: it remembers the last item text, which a plain-name node repeats.
class TreePrinter {
 public:
  TreePrinter(FILE* f, const TreeReportOptions& o) : f_(f), o_(o) {}

  void Tree(const ChangeNode* root) {
    if (!root || !Carries(root, kShown)) return;
    if (!o_.sorted) {
      Line(root);
      Subtree(root, kChangeAny);
      return;
    }
    for (uint16_t mask : {uint16_t{kChangeOlder}, uint16_t{kChangeNewer}, uint16_t{kChangeFrom | kChangeTo}}) {
      if (!HoldsMatch(root, mask)) continue;
      Line(root);
      Subtree(root, mask);
    }
  }

 private:
  void Subtree(const ChangeNode* n, uint16_t mask) {
    if (Excluded(n) || !Carries(n, kShown)) return;
    for (const ChangeNode* c = n->children; c; c = c->next) {
      if (Excluded(c) || !Carries(c, kShown) || !HoldsMatch(c, mask)) continue;
      Line(c);
      Subtree(c, mask);
    }
    for (const ChangeNode* v = n->values; v; v = v->next)
      if (Carries(v, mask)) Line(v);
  }

  // "%2s %<depth*2>s%s": the marker in two columns, a blank, the indentation, the text.
  void Emit(const ChangeNode* n, const char* text) {
    char format[32];
    std::snprintf(format, sizeof format, "%%2s %%%is%%s", n->depth * 2);
    std::fprintf(f_, format, ChangeMarker(n->flags), "", text);
    std::fputc('\n', f_);
  }

  void Line(const ChangeNode* n) {
    const uint16_t kind = n->flags & kKindMask;
    if (kind == kKindName) {  // kept as it is: the line before is repeated
      Emit(n, last_);
      return;
    }
    if (kind & (kKindKey | kKindFolder | kKindFile)) {
      const char* name = n->name ? n->name : "";
      if (kind & (kKindFolder | kKindFile)) {
        const char* slash = FindLastChar(name, '\\');
        if (slash) name = slash + 1;
      }
      if (kind & kKindFile) {
        char stamp[64];
        FormatPackedDateTime(n->time, stamp);
        std::snprintf(last_, sizeof last_, "%s  %s, %lu", name, stamp, static_cast<unsigned long>(n->length));
      } else if (kind & kKindName) {
        std::snprintf(last_, sizeof last_, "%s", name);
      } else {
        std::snprintf(last_, sizeof last_, "[%s]", name);
      }
      Emit(n, last_);
      return;
    }
    Value(n);
  }

  void Value(const ChangeNode* v) {
    const char* name = v->name && v->name[0] ? v->name : "<DEFAULT>";
    const char* data = static_cast<const char*>(v->data);
    if (v->type == 4) {
      std::snprintf(last_, sizeof last_, "%s  %lX", name, static_cast<unsigned long>(RegNumberOf(v)));
      Emit(v, last_);
      return;
    }
    if (!data || v->length == 0 || (v->type != 1 && v->type != 3 && v->type != 7)) {
      std::snprintf(last_, sizeof last_, "%s", name);
      Emit(v, last_);
      return;
    }
    if (v->type == 1) {
      const size_t len = strnlen(data, v->length);
      if (!o_.truncate && len > 64) return MultiLineString(v, name, data, len);
      std::snprintf(last_, sizeof last_, "%s  %.64s%s", name, data, len >= 65 ? "..." : "");
    } else if (v->type == 3) {
      if (!o_.truncate && v->length > 16) return MultiLineBinary(v, name);
      char hex[33];
      Hex(reinterpret_cast<const unsigned char*>(data), v->length < 16 ? v->length : 16, hex);
      std::snprintf(last_, sizeof last_, "%s  %.16s%s", name, hex, v->length >= 17 ? "..." : "");
    } else {
      // The strings side by side, each in quotes, in a 128-character work area; one that does not
      // fit is cut, keeping its opening quote.
      char work[129] = "";
      size_t used = 0;
      for (const char* s = data; s < data + v->length && *s; s += std::strlen(s) + 1) {
        char quoted[300];
        std::snprintf(quoted, sizeof quoted, "\"%.*s\"", 290, s);
        const size_t room = 128 - used;
        if (room == 0) break;
        CopyText(work + used, quoted, room + 1);
        used = std::strlen(work);
      }
      if (!o_.truncate && used > 64) return MultiLineList(v, name, data);
      std::snprintf(last_, sizeof last_, "%s  %.64s%s", name, work, used >= 65 ? "..." : "");
    }
    Emit(v, last_);
  }

  static void Hex(const unsigned char* p, size_t n, char* out) {
    static const char kDigits[] = "0123456789ABCDEF";
    for (size_t i = 0; i < n; ++i) {
      out[2 * i] = kDigits[p[i] >> 4];
      out[2 * i + 1] = kDigits[p[i] & 0xF];
    }
    out[2 * n] = '\0';
  }

  void NameLine(const ChangeNode* v, const char* name) {
    std::snprintf(last_, sizeof last_, "%s", name);
    Emit(v, last_);
  }

  void MultiLineString(const ChangeNode* v, const char* name, const char* text, size_t len) {
    NameLine(v, name);
    for (size_t at = 0; at < len; at += 64) {
      std::snprintf(last_, sizeof last_, "  %.64s", text + at);
      Emit(v, last_);
    }
  }

  void MultiLineBinary(const ChangeNode* v, const char* name) {
    NameLine(v, name);
    const auto* p = static_cast<const unsigned char*>(v->data);
    for (uint32_t at = 0; at < v->length; at += 32) {
      const uint32_t left = v->length - at;
      char hex[33];
      Hex(p + at, left < 16 ? left : 16, hex);
      std::snprintf(last_, sizeof last_, "  %s", hex);
      Emit(v, last_);
    }
  }

  void MultiLineList(const ChangeNode* v, const char* name, const char* data) {
    NameLine(v, name);
    for (const char* s = data; s < data + v->length && *s; s += std::strlen(s) + 1) {
      const size_t len = strnlen(s, static_cast<size_t>(data + v->length - s));
      if (len <= 64) {
        std::snprintf(last_, sizeof last_, "  \"%.*s\"", static_cast<int>(len), s);
        Emit(v, last_);
        continue;
      }
      size_t at = 0;
      std::snprintf(last_, sizeof last_, "  \"%.64s", s);
      Emit(v, last_);
      for (at = 64; len - at > 64; at += 64) {
        std::snprintf(last_, sizeof last_, "  %.64s", s + at);
        Emit(v, last_);
      }
      std::snprintf(last_, sizeof last_, "  %.*s\"", static_cast<int>(len - at), s + at);
      Emit(v, last_);
    }
  }

  FILE* f_;
  const TreeReportOptions& o_;
  char last_[512] = "";
};

}  // namespace

const char* ChangeMarker(uint16_t flags) {
  if (flags & kChangeNewer) return " +";
  if (flags & kChangeOlder) return " -";
  if (flags & kChangeFrom) return "<-";
  if (flags & kChangeTo) return "->";
  return "";
}

void PrintChangeTree(FILE* f, const ChangeNode* root, const TreeReportOptions& options) {
  TreePrinter(f, options).Tree(root);
}

ReportTreeItem* AppendReportTreeItem(ReportTreeItem*** tail) {
  auto* item = static_cast<ReportTreeItem*>(Io().calloc(1, sizeof(ReportTreeItem)));
  if (!item) return nullptr;
  **tail = item;
  *tail = &item->next;
  return item;
}

void FreeReportTreeItems(ReportTreeItem* list) {
  while (list) {
    ReportTreeItem* next = list->next;
    if (list->tree && list->release) list->release(list->tree);
    Io().free(list);
    list = next;
  }
}

void PrintTreeSection(FILE* f, const char* heading, const ReportTreeItem* items, bool itemGap,
                      const TreeReportOptions& options) {
  std::fprintf(f, "%s\n\n", heading);
  for (const ReportTreeItem* i = items; i; i = i->next) {
    std::fprintf(f, "%s\n\n", i->name);
    if (i->message) std::fprintf(f, "   %s\n", i->message);
    PrintChangeTree(f, i->tree, options);
    if (itemGap) std::fputc('\n', f);
  }
  std::fputc('\n', f);
}

}  // namespace orvalis
