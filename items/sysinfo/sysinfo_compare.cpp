// Comparing two sets of system information and drives, and showing them as report columns and
// as XML elements. Every item yields a line, changed or not; only drive presence and network
// names mark a drive as changed, free space is shown but never flagged.
#include <cstdlib>
#include <cstring>

#include "base/io.h"
#include "base/lists.h"
#include "base/messages.h"
#include "base/textutil.h"
#include "engine/strings.h"
#include "engine/sys.h"
#include "items/sysinfo/sysinfo.h"

namespace orvalis {
namespace {

UINT LabelId(uint16_t item) {
  switch (item) {
    case 1: case 16: return IDS_LABEL_PROCESSOR;
    case 2: return IDS_LABEL_COPROCESSOR;
    case 3: return IDS_LABEL_MEMORY;
    case 5: return IDS_LABEL_WINDOWS;
    case 9: return IDS_LABEL_VENDOR;
    default: return 0;
  }
}

void Label(uint16_t item, char* out, int size) {
  out[0] = '\0';
  if (UINT id = LabelId(item)) LoadLocalString(id, out, size);
}

bool SameValue(const SysInfoItem* a, const SysInfoItem* b) {
  if (a->item == 9 || a->item == 16)
    return EqualNoCase(a->text ? a->text : "", b->text ? b->text : "");
  return a->value == b->value;
}

// A zero-filled node appended at the tail of a change list; null when out of memory.
template <typename T>
T* AppendNode(T** head) {
  auto* c = static_cast<T*>(Io().calloc(1, sizeof(T)));
  if (!c) return nullptr;
  while (*head) head = &(*head)->next;
  *head = c;
  return c;
}

SysInfoChange* AppendSysChange(SysCompareResult* r) { return AppendNode(&r->sysInfo); }
DriveChange* AppendDriveChange(SysCompareResult* r) { return AppendNode(&r->drives); }

// The n-th TAB-separated column of text into out (bounded); "" when absent.
void Column(const char* text, int n, char* out, size_t cap) {
  const char* p = text;
  for (int i = 0; i < n && p; ++i) {
    p = std::strchr(p, '\t');
    if (p) ++p;
  }
  if (!p) {
    out[0] = '\0';
    return;
  }
  size_t len = std::strcspn(p, "\t");
  if (len >= cap) len = cap - 1;
  std::memcpy(out, p, len);
  out[len] = '\0';
}

size_t ColumnLength(const char* text, int n) {
  char buf[256];
  Column(text, n, buf, sizeof buf);
  return std::strlen(buf);
}

void SpaceText(const DriveEntry& d, char* out, size_t cap) {
  char unit[16];
  if (d.type == DRIVE_REMOVABLE) {
    LoadLocalString(IDS_REMOVABLE_MEDIA, out, static_cast<int>(cap));
    return;
  }
  LoadLocalString(IDS_SPACE_UNIT, unit, sizeof unit);
  std::snprintf(out, cap, "%lu %s", static_cast<unsigned long>(d.freeKB), unit);
}

const char* TypeName(uint32_t type) {
  switch (type) {
    case DRIVE_REMOVABLE: return "Removable";
    case DRIVE_FIXED: return "Fixed";
    case DRIVE_CDROM: return "CDROM";
    default: return "Network";  // RAM disks included, as the product always showed them
  }
}

}  // namespace

int FormatSysInfoValue(const SysInfoItem* item, int32_t value, char* out) {
  out[0] = '\0';
  switch (item->item) {
    case 1: {
      const char* t = value == 2 ? "80286" : value == 3 ? "80386" : value == 4 ? "i486" : value == 5 ? "586 Class"
                                                                                                  : "Unknown";
      CopyText(out, t, 64);
      return 1;
    }
    case 2:
      LoadLocalString(value == 1 ? IDS_COPROCESSOR_PRESENT : IDS_COPROCESSOR_ABSENT, out, 64);
      return 1;
    case 3:
      std::snprintf(out, 64, "%iK", static_cast<int>(value));
      return 1;
    case 5:
      if (value)
        std::snprintf(out, 64, "%i.%02i", static_cast<int>(value >> 16), static_cast<int>(value & 0xFFFF));
      else
        LoadLocalString(IDS_NOT_AVAILABLE, out, 64);
      return 1;
    case 9:
    case 16:
      CopyText(out, item->text ? item->text : "", 64);
      return 1;
    default:
      return 0;
  }
}

namespace {

// The column headers of both sections: each side's display name, its description cut to what
// the header holds.
void FillLabels(const SnapshotRecord* older, const SnapshotRecord* newer, SysCompareResult* result) {
  CopyText(result->olderLabel, older ? older->description : "", sizeof result->olderLabel);
  CopyText(result->newerLabel, newer ? newer->description : "", sizeof result->newerLabel);
}

}  // namespace

int CompareSysInfo(const SnapshotRecord* older, const SnapshotRecord* newer, SysCompareResult* result) {
  FillLabels(older, newer, result);
  return CompareSysInfoLists(older ? older->sysInfo : nullptr, newer ? newer->sysInfo : nullptr, result);
}

int CompareDrives(const SnapshotRecord* older, const SnapshotRecord* newer, SysCompareResult* result) {
  FillLabels(older, newer, result);
  return CompareDriveTables(older ? older->drives : nullptr, newer ? newer->drives : nullptr, result);
}

int CompareSysInfoLists(const SysInfoItem* older, const SysInfoItem* newer, SysCompareResult* result) {
  int names = 0;
  for (const SysInfoItem* i = older; i; i = i->next) names += i->item == 16 && i->text;
  for (const SysInfoItem* i = newer; i; i = i->next) names += i->item == 16 && i->text;

  if (!older || !newer) {
    SysInfoChange* c = AppendSysChange(result);
    const UINT id = !older && !newer ? IDS_SYSINFO_NOT_IN_EITHER
                    : !newer         ? IDS_SYSINFO_NOT_IN_NEWER
                                     : IDS_SYSINFO_NOT_IN_OLDER;
    if (c) LoadLocalString(id, c->text, sizeof c->text);
    return 0;
  }
  for (SysInfoItem* i = const_cast<SysInfoItem*>(newer); i; i = i->next) i->flags &= ~2;

  for (const SysInfoItem* o = older; o; o = o->next) {
    if (o->item == 1 && names > 0) continue;  // the processor name supersedes the class
    char oldValue[64], newValue[64], label[64];
    if (!FormatSysInfoValue(o, o->value, oldValue)) continue;
    Label(o->item, label, sizeof label);
    bool changed = false;
    SysInfoItem* match = nullptr;
    for (SysInfoItem* n = const_cast<SysInfoItem*>(newer); n; n = n->next)
      if (n->item == o->item) {
        match = n;
        break;
      }
    if (match) {
      match->flags |= 2;
      FormatSysInfoValue(match, match->value, newValue);
      changed = !SameValue(o, match);
    } else {
      changed = true;
      LoadLocalString(IDS_NOT_AVAILABLE, newValue, sizeof newValue);
    }
    SysInfoChange* c = AppendSysChange(result);
    if (!c) continue;
    c->flags = changed ? 1 : 0;
    c->item = o->item;
    std::snprintf(c->text, sizeof c->text, "%s\t%.22s\t%.22s", label, oldValue, newValue);
  }
  for (const SysInfoItem* n = newer; n; n = n->next) {
    if (n->flags & 2) continue;
    if (n->item == 1 && names > 0) continue;
    char oldValue[64] = "Unknown", newValue[64], label[64];
    if (!FormatSysInfoValue(n, n->value, newValue)) continue;
    char na[64];
    if (LoadLocalString(IDS_NOT_AVAILABLE, na, sizeof na) > 0) CopyText(oldValue, na, sizeof oldValue);
    Label(n->item, label, sizeof label);
    SysInfoChange* c = AppendSysChange(result);
    if (!c) continue;
    c->flags = 1;
    c->item = n->item;
    std::snprintf(c->text, sizeof c->text, "%s\t%.22s\t%.22s", label, oldValue, newValue);
  }
  return 0;
}

int CompareDriveTables(const DriveEntry* older, const DriveEntry* newer, SysCompareResult* result) {
  if (!older || !newer) {
    DriveChange* c = AppendDriveChange(result);
    if (!c) return -1;
    c->flags = 8;
    const UINT id = !older && !newer ? IDS_DRIVES_NOT_IN_EITHER
                    : !newer         ? IDS_DRIVES_NOT_IN_NEWER
                                     : IDS_DRIVES_NOT_IN_OLDER;
    LoadLocalString(id, c->text, sizeof c->text);
    return 0;
  }
  for (int i = 0; i < 26; ++i) {
    const DriveEntry& o = older[i];
    const DriveEntry& n = newer[i];
    if (o.type == 0 && n.type == 0) continue;
    DriveChange* c = AppendDriveChange(result);
    if (!c) {
      FreeDriveChanges(result->drives);
      result->drives = nullptr;
      return -1;
    }
    c->drive = static_cast<uint16_t>(i);
    char first[80], second[80], absent[64];
    LoadLocalString(IDS_DRIVE_ABSENT, absent, sizeof absent);
    if (o.type) {
      c->flags |= 1;
      c->type = o.type;
      char space[64];
      SpaceText(o, space, sizeof space);
      std::snprintf(first, sizeof first, "%c:\t%s", 'A' + i, space);
    } else {
      std::snprintf(first, sizeof first, "%c:\t%s", 'A' + i, absent);
    }
    if (n.type) {
      c->flags |= 2;
      c->type = n.type;
      SpaceText(n, second, sizeof second);
    } else {
      CopyText(second, absent, sizeof second);
    }
    std::snprintf(c->text, sizeof c->text, "%s\t%s", first, second);
    if (o.netName[0] || n.netName[0]) {
      DriveChange* net = AppendDriveChange(result);
      if (!net) {
        FreeDriveChanges(result->drives);
        result->drives = nullptr;
        return -1;
      }
      net->flags = 8;
      net->drive = static_cast<uint16_t>(i);
      std::snprintf(net->text, sizeof net->text, "\t%s\t%s", o.netName, n.netName);
      if (!EqualNoCase(o.netName, n.netName)) {
        c->flags |= 4;
        net->flags |= 4;
      }
    }
  }
  return 0;
}

void FreeSysInfoChanges(SysInfoChange* list) { FreeChain(list); }
void FreeDriveChanges(DriveChange* list) { FreeChain(list); }

void WriteSysInfoReport(FILE* f, const SysCompareResult* r) {
  char heading[256];
  LoadLocalString(IDS_HEADING_SYSINFO, heading, sizeof heading);
  std::fprintf(f, "%s\n\n", heading);
  size_t w1 = std::strlen(r->olderLabel), w2 = std::strlen(r->newerLabel);
  for (const SysInfoChange* c = r->sysInfo; c; c = c->next) {
    if (ColumnLength(c->text, 0) > w1) w1 = ColumnLength(c->text, 0);
    if (ColumnLength(c->text, 1) > w2) w2 = ColumnLength(c->text, 1);
  }
  w2 += 1;
  char format[64];
  std::snprintf(format, sizeof format, "%%2s%%-%is%%-%is%%s\n", static_cast<int>(w1 + 1), static_cast<int>(w2));
  std::fprintf(f, format, "", "", r->olderLabel, r->newerLabel);
  for (const SysInfoChange* c = r->sysInfo; c; c = c->next) {
    char a[256], b[256], d[256];
    Column(c->text, 0, a, sizeof a);
    Column(c->text, 1, b, sizeof b);
    Column(c->text, 2, d, sizeof d);
    std::fprintf(f, format, (c->flags & 1) ? "**" : "", a, b, d);
  }
  std::fprintf(f, "\n");
}

void WriteDrivesReport(FILE* f, const SysCompareResult* r) {
  char heading[256];
  LoadLocalString(IDS_HEADING_DRIVES, heading, sizeof heading);
  std::fprintf(f, "%s\n\n", heading);
  // Columns of a drive line: letter, older space, newer space. A message node has no TAB and
  // is shown in the older column.
  size_t w1 = std::strlen(r->olderLabel), w2 = std::strlen(r->newerLabel);
  for (const DriveChange* c = r->drives; c; c = c->next) {
    const bool message = !std::strchr(c->text, '\t');
    size_t a = message ? std::strlen(c->text) : ColumnLength(c->text, 1);
    size_t b = message ? 0 : ColumnLength(c->text, 2);
    if (a > w1) w1 = a;
    if (b > w2) w2 = b;
  }
  w2 += 1;
  char format[64];
  std::snprintf(format, sizeof format, "%%-2s%%-4s%%-%is%%-%is", static_cast<int>(w1 + 1), static_cast<int>(w2));
  std::fprintf(f, format, "", "", r->olderLabel, r->newerLabel);
  std::fprintf(f, "\n");
  for (const DriveChange* c = r->drives; c; c = c->next) {
    const unsigned side = c->flags & 3;
    const char* marker = side == 1 ? "-" : side == 2 ? "+" : "";
    char letter[160], older[160], newer[160];
    if (!std::strchr(c->text, '\t')) {
      std::fprintf(f, format, marker, "", c->text, "");
      std::fprintf(f, "\n");
      continue;
    }
    Column(c->text, 0, letter, sizeof letter);
    Column(c->text, 1, older, sizeof older);
    Column(c->text, 2, newer, sizeof newer);
    if (c->flags & 8) {
      std::fprintf(f, format, marker, "", older, newer);
      std::fprintf(f, "\n");
    } else {
      std::fprintf(f, format, marker, letter, older, newer);
      std::fprintf(f, "%s\n", TypeName(c->type));
    }
  }
  std::fprintf(f, "\n");
}

void WriteSysInfoXml(char* line, FILE* f, const SysInfoItem* list) {
  char value[64] = "";
  for (const SysInfoItem* i = list; i; i = i->next) {
    if (i->item & 0x10) {  // the processor name wins and ends the walk
      CopyText(value, i->text ? i->text : "", sizeof value);
      break;
    }
    if (i->item & 1) std::snprintf(value, sizeof value, "%ld", static_cast<long>(i->value));
  }
  std::snprintf(line, 520, "      %s%s%s\n", "<CPU>", value, "</CPU>");
  std::fputs(line, f);

  const SysInfoItem* vendor = nullptr;
  const SysInfoItem* cop = nullptr;
  const SysInfoItem* mem = nullptr;
  const SysInfoItem* win = nullptr;
  for (const SysInfoItem* i = list; i; i = i->next) {
    if (i->item == 9 && !vendor) vendor = i;
    if (i->item == 2 && !cop) cop = i;
    if (i->item == 3 && !mem) mem = i;
    if (i->item == 5 && !win) win = i;
  }
  std::snprintf(line, 520, "      %s%s%s\n", "<CPUVENDOR>", vendor && vendor->text ? vendor->text : "", "</CPUVENDOR>");
  std::fputs(line, f);
  value[0] = '\0';
  if (cop) std::snprintf(value, sizeof value, "%ld", static_cast<long>(cop->value));
  std::snprintf(line, 520, "      %s%s%s\n", "<COCPU>", value, "</COCPU>");
  std::fputs(line, f);
  value[0] = '\0';
  if (mem) std::snprintf(value, sizeof value, "%ld", static_cast<long>(mem->value));
  std::snprintf(line, 520, "      %s%s%s\n", "<MEM>", value, "</MEM>");
  std::fputs(line, f);
  value[0] = '\0';
  if (win) std::snprintf(value, sizeof value, "%i.%02i", static_cast<int>(win->value >> 16), static_cast<int>(win->value & 0xFFFF));
  std::snprintf(line, 520, "      %s%s%s\n", "<WINVER>", value, "</WINVER>");
  std::fputs(line, f);
}

void WriteDrivesXml(char* line, FILE* f, const DriveEntry* table) {
  if (!table) return;
  for (int i = 0; i < 26; ++i) {
    const DriveEntry& d = table[i];
    if (!d.type) continue;
    std::snprintf(line, 520, "      %s\n", "<DRIVE>");
    std::fputs(line, f);
    std::snprintf(line, 520, "        %s%c:%s\n", "<DRVNAME>", 'A' + i, "</DRVNAME>");
    std::fputs(line, f);
    // Other types get the zero character, which ends the line text there: kept as it is.
    const char letter = d.type == 2 ? 'R' : d.type == 3 ? 'F' : d.type == 4 ? 'N' : d.type == 5 ? 'C' : '\0';
    std::snprintf(line, 520, "        %s\"%c\"%s\n", "<DRVTYPE type=", letter, "/>");
    std::fputs(line, f);
    char space[80];
    SpaceText(d, space, sizeof space);
    std::snprintf(line, 520, "        %s%s%s\n", "<DRVSPACE>", space, "</DRVSPACE>");
    std::fputs(line, f);
    if (d.type == 4) {
      std::snprintf(line, 520, "        %s%s%s\n", "<DRVNET>", d.netName, "</DRVNET>");
      std::fputs(line, f);
    }
    std::snprintf(line, 520, "      %s\n", "</DRIVE>");
    std::fputs(line, f);
  }
}

}  // namespace orvalis
