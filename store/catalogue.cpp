#include "store/catalogue.h"

#include <windows.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "base/datetext.h"
#include "base/io.h"
#include "base/textutil.h"
#include "engine/files.h"
#include "engine/strings.h"
#include "engine/sys.h"
#include "store/snapshot.h"
#include "store/store_win.h"

namespace orvalis {

uint32_t WriteSnapshotList(const char* folder, const char* outPath) {
  char* work = static_cast<char*>(Io().calloc(520, 1));
  if (!work) return 8;
  FILE* out = Io().fopen(outPath, "wt");
  if (!out) {
    Io().free(work);
    ShowOpenFailed(outPath);
    return 110;
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

int RenameSnapshotAt(const char* path, const char* description) {
  std::vector<std::string> lines;
  uint32_t stamp = 0;
  {
    FILE* f = Io().fopen(path, "rt");
    if (!f) return -1;
    stamp = OpenFileDosTime(f);
    char line[512];
    while (std::fgets(line, sizeof line, f)) lines.emplace_back(line);
    Io().fclose(f);
  }
  if (lines.empty()) return -1;
  const size_t at = lines[0].find("FormatVersion") != std::string::npos ? 1 : 0;
  if (at >= lines.size()) lines.resize(at + 1);
  char text[MAX_PATH + 2];
  std::snprintf(text, sizeof text, "%s\n", description ? description : "");
  lines[at] = text;
  FILE* f = Io().fopen(path, "wt");
  if (!f) return -1;
  bool ok = true;
  for (const std::string& l : lines) ok &= std::fputs(l.c_str(), f) >= 0;
  ok &= Io().fclose(f) == 0;
  // Renaming must not make the snapshot look newer: put the old time back.
  if (FILE* a = Io().fopen(path, "a")) {
    SetOpenFileDosTime(a, stamp);
    Io().fclose(a);
  }
  return ok ? 0 : -1;
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
