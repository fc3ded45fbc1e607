#include "store/snapshot.h"

#include <cstdlib>
#include <cstring>

#include "base/io.h"
#include "base/lists.h"
#include "base/textutil.h"

namespace orvalis {

SnapshotRecord* NewSnapshotRecord() {
  return static_cast<SnapshotRecord*>(Io().calloc(1, sizeof(SnapshotRecord)));
}

void FreeSysInfoList(SysInfoItem* list) {
  while (list) {
    SysInfoItem* next = list->next;
    Io().free(list->text);
    Io().free(list);
    list = next;
  }
}

void ClearSnapshotRecord(SnapshotRecord* rec) {
  if (!rec) return;
  FreeSysInfoList(rec->sysInfo);
  Io().free(rec->drives);
  FreeChain(rec->files);
  FreeChain(rec->regKeys);
  Io().free(rec->regBackup);
  FreeChain(rec->assets);
  FreeChain(rec->dirs);
  rec->sysInfo = nullptr;
  rec->drives = nullptr;
  rec->files = nullptr;
  rec->regKeys = nullptr;
  rec->regBackup = nullptr;
  rec->assets = nullptr;
  rec->dirs = nullptr;
}

void FreeSnapshotRecord(SnapshotRecord* rec) {
  ClearSnapshotRecord(rec);
  Io().free(rec);
}

SnapFileEntry* AppendFileEntry(SnapshotRecord* rec) {
  auto* e = static_cast<SnapFileEntry*>(Io().calloc(1, sizeof(SnapFileEntry)));
  if (!e) return nullptr;
  SnapFileEntry** tail = &rec->files;
  while (*tail) tail = &(*tail)->next;
  *tail = e;
  return e;
}

SnapGroupEntry* AppendGroupEntry(SnapGroupEntry** head) {
  auto* e = static_cast<SnapGroupEntry*>(Io().calloc(1, sizeof(SnapGroupEntry)));
  if (!e) return nullptr;
  while (*head) head = &(*head)->next;
  *head = e;
  return e;
}

bool SplitFromRight(char* line, int n, char** fields) {
  char* end = line + std::strlen(line);
  for (int i = n - 1; i > 0; --i) {
    char* comma = nullptr;
    for (char* p = end; p > line;) {
      --p;
      if (*p == ',') {
        comma = p;
        break;
      }
    }
    if (!comma) return false;
    *comma = '\0';
    fields[i] = comma + 1;
    end = comma;
  }
  fields[0] = line;
  return true;
}

bool SplitFromLeft(char* line, int n, char** fields) {
  char* p = line;
  fields[0] = line;
  for (int i = 1; i < n; ++i) {
    char* comma = std::strchr(p, ',');
    if (!comma) return false;
    *comma = '\0';
    p = comma + 1;
    fields[i] = p;
  }
  return true;
}

// ---- Writing ----------------------------------------------------------------------------------

void WriteFormatVersion(FILE* f) { std::fprintf(f, "%s=%i\n", "FormatVersion", kFormatVersion); }

void WriteTimeDateSection(FILE* f, uint32_t packed) {
  std::fprintf(f, "[TIMEDATE_START]\n%ld\n[TIMEDATE_END]\n", static_cast<long>(static_cast<int32_t>(packed)));
}

void WriteFlagsSection(FILE* f, uint16_t flags) {
  std::fprintf(f, "[FLAGS_START]\n%ld\n[FLAGS_END]\n", static_cast<long>(flags & kFlagFileMask));
}

void WriteOsVersionSection(FILE* f, uint32_t version) {
  std::fprintf(f, "[OSVERSION_START]\n%lu\n[OSVERSION_END]\n", static_cast<unsigned long>(version));
}

void WriteUserNameSection(FILE* f, const char* user) {
  std::fprintf(f, "[USERNAME_START]\n%s\n[USERNAME_END]\n", user);
}

void WriteSysInfoRecords(FILE* f, const SysInfoItem* list) {
  std::fprintf(f, "[SYSINFO_START]\n");
  for (const SysInfoItem* i = list; i; i = i->next) {
    if (i->item == 9 || i->item == 16)
      std::fprintf(f, "%i,%s\n", i->item, i->text ? i->text : "");
    else
      std::fprintf(f, "%i,%ld\n", i->item, static_cast<long>(i->value));
  }
  std::fprintf(f, "[SYSINFO_END]\n");
}

void WriteDriveRecords(FILE* f, const DriveEntry* table) {
  std::fprintf(f, "[DRIVES_START]\n");
  for (int i = 0; table && i < 26; ++i) {
    const DriveEntry& d = table[i];
    if (d.type == 0) continue;
    std::fprintf(f, "%c,%d,%lu,%lu,%s\n", 'A' + i, static_cast<int>(d.type), static_cast<unsigned long>(d.totalKB),
                 static_cast<unsigned long>(d.freeKB), d.netName);
  }
  std::fprintf(f, "[DRIVES_END]\n");
}

}  // namespace orvalis
