#include "store/catalogue.h"

#include <windows.h>

#include <cstdlib>
#include <cstring>

#include "base/datetext.h"
#include "base/io.h"
#include "base/results.h"
#include "base/textutil.h"
#include "engine/files.h"
#include "engine/strings.h"
#include "engine/sys.h"
#include "store/snapshot.h"
#include "store/store_win.h"

namespace orvalis {

uint32_t WriteSnapshotList(const char* folder, const char* outPath) {
  char* work = static_cast<char*>(Io().calloc(520, 1));
  if (!work) return kResultNoMemory;
  FILE* out = Io().fopen(outPath, "wt");
  if (!out) {
    Io().free(work);
    ShowOpenFailed(outPath);
    return kResultOpenFailed;
  }
  std::fprintf(out, "%s\n", "<?xml version = \"1.0\"?>");
  std::fprintf(out, "%s\n", "<!DOCTYPE SNAPSHOTLIST SYSTEM \"snaplist.dtd\">");
  std::fprintf(out, "%s\n", "<SNAPSHOTLIST>");
  if (std::snprintf(work, 520, "%s*.BCF", folder) < 520) {
    WIN32_FIND_DATAA fd;
    HANDLE h = Sys().FindFirstFileA(work, &fd);
    if (h != INVALID_HANDLE_VALUE) {
      do {
        char path[MAX_PATH];
        if (std::snprintf(path, sizeof path, "%s%s", folder, fd.cFileName) >= MAX_PATH) continue;
        SnapshotRecord* rec = NewSnapshotRecord();
        if (!rec) continue;
        if (LoadSnapshot(path, rec) == 0) {
          char stamp[64];
          FormatPackedDateTime(rec->time, stamp);
          std::fprintf(out, "  %s\n", "<SNAPSHOT>");
          std::fprintf(out, "    %s%s%s\n", "<DESCRIPTION>", rec->description, "</DESCRIPTION>");
          std::fprintf(out, "    %s%s%s\n", "<TIMESTAMP>", stamp, "</TIMESTAMP>");
          std::fprintf(out, "    %s%s%s\n", "<FILE>", fd.cFileName, "</FILE>");
          std::fprintf(out, "  %s\n", "</SNAPSHOT>");
        }
        FreeSnapshotRecord(rec);
      } while (Sys().FindNextFileA(h, &fd));
      Sys().FindClose(h);
    }
  }
  std::fprintf(out, "%s\n", "</SNAPSHOTLIST>");
  Io().fclose(out);
  Io().free(work);
  return 0;
}

namespace {

// The description as one line of the index file: line breaks would split the record, and a line
// longer than the readers' 255 characters would be read back in pieces.
void DescriptionLine(const char* description, char* out, size_t cap) {
  CopyText(out, description ? description : "", cap);
  for (char* c = out; *c; ++c)
    if (*c == '\r' || *c == '\n') *c = ' ';
}

// Copies src into dst line by line, with the description line (the second when the first holds
// "FormatVersion", else the first) replaced. False when src is empty.
bool CopyWithDescription(FILE* src, FILE* dst, const char* line) {
  char piece[512];
  int lineNo = 0;
  int target = -1;
  bool atStart = true;
  while (std::fgets(piece, sizeof piece, src)) {
    if (lineNo == 0 && atStart) target = std::strstr(piece, "FormatVersion") ? 1 : 0;
    const bool ends = std::strchr(piece, '\n') != nullptr;
    if (lineNo == target) {
      if (atStart) std::fprintf(dst, "%s\n", line);
    } else {
      std::fputs(piece, dst);
    }
    atStart = ends;
    if (ends) ++lineNo;
  }
  if (target < 0) return false;
  if (!atStart) std::fputc('\n', dst);  // the last line had no line feed of its own
  if (lineNo <= target) std::fprintf(dst, "%s\n", line);  // a file of its version line only
  return true;
}

}  // namespace

int RenameSnapshotAt(const char* path, const char* description) {
  char line[256];
  DescriptionLine(description, line, sizeof line);
  char temp[MAX_PATH];
  if (std::snprintf(temp, sizeof temp, "%s.new", path) >= static_cast<int>(sizeof temp)) return -1;
  FILE* src = Io().fopen(path, "rt");
  if (!src) return -1;
  const uint32_t stamp = OpenFileDosTime(src);
  // The snapshot is rewritten beside itself and moved into place: a write that fails half-way
  // (disk full) leaves the original whole.
  FILE* dst = Io().fopen(temp, "wt");
  if (!dst) {
    Io().fclose(src);
    return -1;
  }
  const bool copied = CopyWithDescription(src, dst, line);
  const bool readOk = !std::ferror(src);
  Io().fclose(src);
  const bool written = CloseChecked(dst);
  if (!copied || !readOk || !written || Io().rename(temp, path) != 0) {
    Io().remove(temp);
    return -1;
  }
  // Renaming must not make the snapshot look newer: put the old time back.
  if (FILE* a = Io().fopen(path, "a")) {
    SetOpenFileDosTime(a, stamp);
    Io().fclose(a);
  }
  return 0;
}

int ReadSnapshotFlagsText(const char* path, char* out) {
  FILE* f = Io().fopen(path, "rt");
  if (!f) return -1;
  char line[256];
  char last[256] = "";
  bool in = false;
  while (ReadTextLine(line, sizeof line, f)) {
    if (EqualNoCase(line, "[FLAGS_END]")) break;
    if (in) CopyText(last, line, sizeof last);
    if (EqualNoCase(line, "[FLAGS_START]")) in = true;
  }
  Io().fclose(f);
  if (std::strtol(last, nullptr, 10) & kFlagImported)
    CopyText(out, "Imported", 256);
  else
    CopyText(out, last, 256);
  return 0;
}

}  // namespace orvalis
