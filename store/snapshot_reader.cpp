// Reading snapshot index files. Every section reader opens the file afresh and scans from the
// top for its start marker, so sections may stand in any order and a missing one simply leaves
// its part of the record empty. Lines longer than a reader's buffer arrive in pieces; a piece
// that does not parse is skipped like any other bad record.
#include <cstdlib>
#include <cstring>

#include "base/io.h"
#include "base/textutil.h"
#include "store/snapshot.h"

namespace orvalis {
namespace {

constexpr int kLine = 256;      // section readers: 255 characters a line
constexpr int kLongLine = 512;  // the head and FILEINFO pass: 511

class File {
 public:
  explicit File(const char* path) : f_(Io().fopen(path, "r")) {}
  ~File() {
    if (f_) Io().fclose(f_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  FILE* get() const { return f_; }

 private:
  FILE* f_;
};

bool IsMarker(const char* line, const char* marker) { return EqualNoCase(line, marker); }

// Advances the stream past the line equal to marker; false at end of file.
bool SeekMarker(FILE* f, const char* marker, char* buf, int size) {
  while (ReadTextLine(buf, size, f))
    if (IsMarker(buf, marker)) return true;
  return false;
}

// Calls fn(line) for every line of the section named by start/end (to end of file when the end
// marker is missing). fn returns false to stop with -1. Result: -1 when the file cannot be
// opened, else 0 (also when the section is absent). *found tells whether the start was seen.
template <typename Fn>
int ForEachSectionLine(const char* path, const char* start, const char* end, Fn fn, bool* found = nullptr) {
  File f(path);
  if (!f.get()) return -1;
  char line[kLine];
  if (found) *found = false;
  if (!SeekMarker(f.get(), start, line, kLine)) return 0;
  if (found) *found = true;
  while (ReadTextLine(line, kLine, f.get())) {
    if (IsMarker(line, end)) break;
    if (!fn(line)) return -1;
  }
  return 0;
}

uint32_t ParseUnsigned(const char* s) { return static_cast<uint32_t>(std::strtoul(s, nullptr, 10)); }
int32_t ParseSigned(const char* s) { return static_cast<int32_t>(std::strtol(s, nullptr, 10)); }

// strtok on ",": skips empty tokens, as the product's reader did.
char* NextToken(char** cursor) {
  char* p = *cursor;
  while (*p == ',') ++p;
  if (!*p) return nullptr;
  char* start = p;
  while (*p && *p != ',') ++p;
  if (*p) *p++ = '\0';
  *cursor = p;
  return start;
}

// REGINFO / ASSETINFO / DIRINFO: name, companion and, where the version has them, two numbers.
// A companion name is used only when it is a bare file name inside the data folder: a record
// naming "..\x", "C:\x" or "." would otherwise have deletion or restore reach outside it. Any
// other name is invalid data and leaves the record without a companion.
void CopyCompanionName(char* dst, const char* name) { CopyText(dst, IsBareFileName(name) ? name : "", kMaxPath); }

int ReadGroupSection(const char* path, const char* start, const char* end, SnapGroupEntry** head, bool hasNumbers,
                     bool keepNumbers) {
  return ForEachSectionLine(path, start, end, [&](char* line) {
    char* fields[4];
    if (!SplitFromRight(line, hasNumbers ? 4 : 2, fields)) return true;
    SnapGroupEntry* e = AppendGroupEntry(head);
    if (!e) return true;  // a record that cannot be allocated is skipped
    CopyText(e->name, fields[0], sizeof e->name);
    CopyCompanionName(e->companion, fields[1]);
    if (hasNumbers && keepNumbers) {
      e->first = ParseSigned(fields[2]);
      e->second = ParseUnsigned(fields[3]);
    }
    return true;
  });
}

void ParseFileRecord(char* line, SnapshotRecord* rec) {
  char* fields[4];
  if (!SplitFromLeft(line, 4, fields)) return;
  SnapFileEntry* e = AppendFileEntry(rec);
  if (!e) return;
  CopyText(e->path, fields[0], sizeof e->path);
  CopyCompanionName(e->companion, fields[1]);
  e->flags = ParseSigned(fields[2]) != 0 ? 2 : 0;
  e->time = static_cast<uint32_t>(ParseSigned(fields[3]));
}

}  // namespace

int ReadSnapshotHead(const char* path, int* version, char* description) {
  File f(path);
  if (!f.get()) return -1;
  char line[kLongLine];
  if (!ReadTextLine(line, kLongLine, f.get())) return -1;
  *version = 0;
  if (std::strstr(line, "FormatVersion")) {
    const char* eq = std::strchr(line, '=');
    // A number past the int range is read as the largest version: any version above 6 reads as 6.
    const long v = eq ? std::strtol(eq + 1, nullptr, 10) : 0;
    *version = v > 1000000 ? 1000000 : v < -1000000 ? -1000000 : static_cast<int>(v);
    if (!ReadTextLine(line, kLongLine, f.get())) return -1;
  }
  CopyText(description, line, kMaxPath);
  return 0;
}

int ReadFileInfoSection(const char* path, SnapshotRecord* rec, int version) {
  File f(path);
  if (!f.get()) return -1;
  char line[kLongLine];
  const char* start = version == 0 ? "[DRIVES_END]" : "[FILEINFO_START]";
  if (!SeekMarker(f.get(), start, line, kLongLine)) return 0;
  while (ReadTextLine(line, kLongLine, f.get())) {
    if (version != 0 && IsMarker(line, "[FILEINFO_END]")) break;
    ParseFileRecord(line, rec);
  }
  return 0;
}

int ReadTimeDateSection(const char* path, SnapshotRecord* rec) {
  return ForEachSectionLine(path, "[TIMEDATE_START]", "[TIMEDATE_END]", [&](char* line) {
    rec->time = static_cast<uint32_t>(ParseSigned(line));
    return true;
  });
}

int ReadFlagsSection(const char* path, SnapshotRecord* rec) {
  return ForEachSectionLine(path, "[FLAGS_START]", "[FLAGS_END]", [&](char* line) {
    rec->flags = static_cast<uint16_t>(ParseSigned(line));
    return true;
  });
}

int ReadSysInfoSection(const char* path, SnapshotRecord* rec) {
  SysInfoItem** tail = &rec->sysInfo;
  while (*tail) tail = &(*tail)->next;
  return ForEachSectionLine(path, "[SYSINFO_START]", "[SYSINFO_END]", [&](char* line) {
    char* cursor = line;
    char* first = NextToken(&cursor);
    char* second = first ? NextToken(&cursor) : nullptr;
    if (!second) return true;
    auto* item = static_cast<SysInfoItem*>(Io().calloc(1, sizeof(SysInfoItem)));
    if (!item) return true;
    item->item = static_cast<uint16_t>(ParseSigned(first));
    if (item->item == 9 || item->item == 16) {
      size_t n = std::strlen(second) + 1;
      item->text = static_cast<char*>(Io().calloc(n, 1));
      if (!item->text) {
        Io().free(item);
        return true;
      }
      std::memcpy(item->text, second, n);
    } else {
      item->value = ParseSigned(second);
    }
    *tail = item;
    tail = &item->next;
    return true;
  });
}

int ReadDrivesSection(const char* path, SnapshotRecord* rec, int version) {
  bool found = false;
  DriveEntry* table = nullptr;
  int rc = ForEachSectionLine(
      path, "[DRIVES_START]", "[DRIVES_END]",
      [&](char* line) {
        if (!table) {
          table = static_cast<DriveEntry*>(Io().calloc(26, sizeof(DriveEntry)));
          if (!table) return false;
        }
        char* f[5];
        if (!SplitFromLeft(line, 4, f)) return true;  // type or a size missing
        char* net = std::strchr(f[3], ',');
        if (net) *net++ = '\0';
        const int letter = static_cast<unsigned char>(f[0][0]) & 0xDF;
        if (letter < 'A' || letter > 'Z') return true;
        DriveEntry& d = table[letter - 'A'];
        d.type = static_cast<uint32_t>(ParseSigned(f[1]));
        d.totalKB = ParseUnsigned(f[2]);
        d.freeKB = ParseUnsigned(f[3]);
        if (version < 4) {  // older files counted bytes
          d.totalKB >>= 10;
          d.freeKB >>= 10;
        }
        CopyText(d.netName, net ? net : "", sizeof d.netName);
        return true;
      },
      &found);
  if (rc != 0) {
    Io().free(table);
    return -1;
  }
  if (found && !table) {  // an empty section still says the machine had a drive table
    table = static_cast<DriveEntry*>(Io().calloc(26, sizeof(DriveEntry)));
    if (!table) return -1;
  }
  if (table) {
    Io().free(rec->drives);
    rec->drives = table;
  }
  return 0;
}

int ReadRegInfoSection(const char* path, SnapshotRecord* rec, int version) {
  return ReadGroupSection(path, "[REGINFO_START]", "[REGINFO_END]", &rec->regKeys, version > 1, true);
}

int ReadAssetInfoSection(const char* path, SnapshotRecord* rec, int version) {
  return ReadGroupSection(path, "[ASSETINFO_START]", "[ASSETINFO_END]", &rec->assets, true, version > 1);
}

int ReadDirInfoSection(const char* path, SnapshotRecord* rec, int version) {
  return ReadGroupSection(path, "[DIRINFO_START]", "[DIRINFO_END]", &rec->dirs, version >= 3, true);
}

int ReadRegBackSection(const char* path, SnapshotRecord* rec) {
  bool user = false, system = false;
  int rc = ForEachSectionLine(path, "[REGBACK_START]", "[REGBACK_END]", [&](char* line) {
    char* f[4];
    if (!SplitFromRight(line, 4, f)) return true;
    if (!rec->regBackup) {
      rec->regBackup = static_cast<RegBackupRecord*>(Io().calloc(1, sizeof(RegBackupRecord)));
      if (!rec->regBackup) return true;
    }
    RegBackupRecord* b = rec->regBackup;
    if (FindNoCase(f[0], "USER.DAT")) {
      CopyCompanionName(b->userName, f[1]);
      b->userFlag = ParseSigned(f[2]);
      b->userCrc = ParseUnsigned(f[3]);
      user = true;
    } else if (FindNoCase(f[0], "SYSTEM.DAT")) {
      CopyCompanionName(b->systemName, f[1]);
      b->systemFlag = ParseSigned(f[2]);
      b->systemCrc = ParseUnsigned(f[3]);
      system = true;
    }
    return true;
  });
  if (rec->regBackup && !user && !system) {
    Io().free(rec->regBackup);
    rec->regBackup = nullptr;
  }
  return rc;
}

int ReadRegNtSection(const char* path, SnapshotRecord* rec) {
  return ForEachSectionLine(path, "[REGNT_START]", "[REGNT_END]", [&](char* line) {
    const char* comma = std::strrchr(line, ',');
    if (!comma) return true;
    if (!rec->regBackup) {
      rec->regBackup = static_cast<RegBackupRecord*>(Io().calloc(1, sizeof(RegBackupRecord)));
      if (!rec->regBackup) return true;
    }
    CopyCompanionName(rec->regBackup->userName, comma + 1);  // last record wins
    return true;
  });
}

uint32_t ReadOsVersionSection(const char* path) {
  uint32_t v = 0;
  ForEachSectionLine(path, "[OSVERSION_START]", "[OSVERSION_END]", [&](char* line) {
    v = ParseUnsigned(line);
    return true;
  });
  return v;
}

void ReadUserNameSection(const char* path, char* out) {
  out[0] = '\0';
  ForEachSectionLine(path, "[USERNAME_START]", "[USERNAME_END]", [&](char* line) {
    CopyText(out, line, kMaxPath);
    return true;
  });
}

int ReadSnapshotFile(const char* path, SnapshotRecord* rec, bool isNT) {
  int version = 0;
  if (ReadSnapshotHead(path, &version, rec->description) != 0) return -1;
  ReadFileInfoSection(path, rec, version);
  ReadTimeDateSection(path, rec);
  ReadFlagsSection(path, rec);
  int rc;
  if ((rc = ReadSysInfoSection(path, rec)) != 0) return rc;
  if ((rc = ReadDrivesSection(path, rec, version)) != 0) return rc;
  if ((rc = ReadRegInfoSection(path, rec, version)) != 0) return rc;
  if ((rc = ReadAssetInfoSection(path, rec, version)) != 0) return rc;
  if ((rc = isNT ? ReadRegNtSection(path, rec) : ReadRegBackSection(path, rec)) != 0) return rc;
  return ReadDirInfoSection(path, rec, version);
}

}  // namespace orvalis
