#include "drivers/info.h"

#include <windows.h>

#include <cstdio>
#include <cstring>

#include "base/datetext.h"
#include "base/io.h"
#include "base/results.h"
#include "base/xmltext.h"
#include "engine/document.h"
#include "items/sysinfo/sysinfo.h"
#include "store/catalogue.h"
#include "store/store_win.h"

namespace orvalis {
namespace {

// "<indent><TAG>" text "</TAG>\n", the text escaped as every document's text is.
void Element(FILE* f, const char* indent, const char* tag, const char* text) {
  std::fprintf(f, "%s<%s>", indent, tag);
  WriteEscapedText(f, text, std::strlen(text));
  std::fprintf(f, "</%s>\n", tag);
}

template <typename Entry>
void List(FILE* f, const char* outer, const char* inner, const Entry* head, const char* (*name)(const Entry&)) {
  std::fprintf(f, "  <%s>\n", outer);
  for (const Entry* e = head; e; e = e->next) Element(f, "    ", inner, name(*e));
  std::fprintf(f, "  </%s>\n", outer);
}

}  // namespace

uint32_t WriteSnapshotInfo(const char* snapshot, const char* output) {
  char path[MAX_PATH];
  if (!EngineSnapshotPath(snapshot, path)) return kResultInvalidData;
  SnapshotRecord* rec = NewSnapshotRecord();
  char* line = static_cast<char*>(Io().calloc(520, 1));
  if (!rec || !line) {
    FreeSnapshotRecord(rec);
    Io().free(line);
    return kResultNoMemory;
  }
  uint32_t rc = kResultOk;
  if (LoadSnapshot(path, rec) != 0) {
    rc = kResultInvalidData;
  } else if (FILE* f = BeginDocument(output, "ORVALISBCF", "snapinfo.dtd"); !f) {
    rc = kResultFileNotFound;
  } else {
    char stamp[64] = "", flags[256] = "", user[MAX_PATH] = "", version[32];
    FormatPackedDateTime(rec->time, stamp);
    ReadSnapshotFlagsText(path, flags);
    ReadUserNameSection(path, user);
    const uint32_t os = ReadOsVersionSection(path);
    std::snprintf(version, sizeof version, "%u.%02u", os & 0xFF, (os >> 8) & 0xFF);
    Element(f, "  ", "FILE", rec->indexName);
    Element(f, "  ", "DESCRIPTION", rec->description);
    Element(f, "  ", "TIMESTAMP", stamp);
    Element(f, "  ", "FLAGS", flags);
    Element(f, "  ", "WINVERSION", version);
    Element(f, "  ", "USERNAME", user);
    std::fprintf(f, "    <SYSINFO>\n");
    WriteSysInfoXml(line, f, rec->sysInfo);
    std::fprintf(f, "    </SYSINFO>\n");
    std::fprintf(f, "    <DRIVES>\n");
    WriteDrivesXml(line, f, rec->drives);
    std::fprintf(f, "    </DRIVES>\n");
    List<SnapFileEntry>(f, "SYSFILES", "SYSFILE", rec->files, [](const SnapFileEntry& e) { return e.path; });
    List<SnapGroupEntry>(f, "DIRECTORIES", "DIRECTORY", rec->dirs, [](const SnapGroupEntry& e) { return e.name; });
    List<SnapGroupEntry>(f, "REGKEYS", "REGKEY", rec->regKeys, [](const SnapGroupEntry& e) { return e.name; });
    List<SnapGroupEntry>(f, "ASSETS", "ASSET", rec->assets, [](const SnapGroupEntry& e) { return e.name; });
    rc = EndDocument(f, output, "ORVALISBCF");
  }
  Io().free(line);
  FreeSnapshotRecord(rec);
  return rc;
}

}  // namespace orvalis
