// orvalis.exe: the command-line front end. It loads HALVERN.DLL from its own folder and drives
// it only through the exported functions, as the user interface and the scheduler do. The exit
// status is the engine's result code.
#include <windows.h>
#include <msxml2.h>
#include <objbase.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "base/results.h"

namespace {

HMODULE g_engine = nullptr;

template <typename Fn>
Fn Entry(const char* name) {
  auto fn = reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(g_engine, name)));
  if (!fn) {
    std::fprintf(stderr, "orvalis: HALVERN.DLL has no entry %s\n", name);
    std::exit(127);
  }
  return fn;
}

using Str1 = unsigned long(__cdecl*)(const char*);
using Str2 = unsigned long(__cdecl*)(const char*, const char*);
using Report = unsigned long(__cdecl*)(const char*, const char*, const char*, int);
using Xml = unsigned long(__cdecl*)(const char*, const char*, const char*, const char*, int);
using Void = unsigned long(__cdecl*)(void);
using IntGet = int(__cdecl*)(void);
using IntSet = int(__cdecl*)(const char*);

const char* Meaning(unsigned long rc) {
  if (const char* text = orvalis::ResultText(static_cast<uint32_t>(rc))) return text;
  switch (rc) {
    case 1: return "failed";
    case 0xFFFFFFFFul: return "the snapshot cannot be read";
    default: return "see the Windows error code";
  }
}

int Finish(unsigned long rc) {
  if (rc != 0) std::fprintf(stderr, "orvalis: error %lu: %s\n", rc, Meaning(rc));
  return static_cast<int>(rc);
}

std::string ExeFolder() {
  char path[MAX_PATH];
  DWORD n = GetModuleFileNameA(nullptr, path, MAX_PATH);
  if (n == 0 || n >= MAX_PATH) return ".";
  char* slash = std::strrchr(path, '\\');
  if (slash) *slash = '\0';
  return path;
}

std::string TempFile(const char* name) {
  char dir[MAX_PATH];
  DWORD n = GetTempPathA(MAX_PATH, dir);
  if (n == 0 || n >= MAX_PATH) return name;
  return std::string(dir) + name;
}

// Options: "--name value" pairs and flags; everything else is positional.
struct Args {
  std::vector<std::string> positional;
  std::vector<std::pair<std::string, std::string>> options;
  bool Has(const char* name) const {
    for (auto& o : options)
      if (o.first == name) return true;
    return false;
  }
  const char* Get(const char* name) const {
    for (auto& o : options)
      if (o.first == name) return o.second.c_str();
    return nullptr;
  }
};

const char* kValued[] = {"--profile", "--description", "--max", "--interval", "--out", "--item", "--delay", "--section"};

Args Parse(int argc, char** argv, int from) {
  Args a;
  for (int i = from; i < argc; ++i) {
    std::string s = argv[i];
    if (s.rfind("--", 0) == 0) {
      bool valued = false;
      for (const char* v : kValued) valued |= s == v;
      if (valued && i + 1 < argc) {
        a.options.push_back({s, argv[++i]});
      } else {
        a.options.push_back({s, ""});
      }
    } else {
      a.positional.push_back(s);
    }
  }
  return a;
}

// The values of <TAG>...</TAG> lines of one of the engine's list documents, per record.
std::vector<std::vector<std::string>> ReadList(const std::string& path, const char* record,
                                               const std::vector<std::string>& tags) {
  std::vector<std::vector<std::string>> rows;
  FILE* f = std::fopen(path.c_str(), "r");
  if (!f) return rows;
  char line[1024];
  std::string open = std::string("<") + record + ">";
  while (std::fgets(line, sizeof line, f)) {
    std::string s = line;
    while (!s.empty() && (s.back() == '\n' || s.back() == '\r')) s.pop_back();
    size_t start = s.find_first_not_of(' ');
    if (start == std::string::npos) continue;
    s = s.substr(start);
    if (s == open) {
      rows.emplace_back(tags.size());
      continue;
    }
    if (rows.empty()) continue;
    for (size_t t = 0; t < tags.size(); ++t) {
      std::string o = "<" + tags[t] + ">", c = "</" + tags[t] + ">";
      if (s.rfind(o, 0) == 0 && s.size() >= o.size() + c.size() && s.compare(s.size() - c.size(), c.size(), c) == 0)
        rows.back()[t] = s.substr(o.size(), s.size() - o.size() - c.size());
    }
  }
  std::fclose(f);
  return rows;
}

void PrintTable(const std::vector<std::string>& heads, const std::vector<std::vector<std::string>>& rows) {
  std::vector<size_t> w(heads.size());
  for (size_t i = 0; i < heads.size(); ++i) w[i] = heads[i].size();
  for (auto& r : rows)
    for (size_t i = 0; i < r.size(); ++i) w[i] = r[i].size() > w[i] ? r[i].size() : w[i];
  auto line = [&](const std::vector<std::string>& cells) {
    for (size_t i = 0; i < cells.size(); ++i)
      std::printf(i + 1 < cells.size() ? "%-*s  " : "%-*s", static_cast<int>(i + 1 < cells.size() ? w[i] : 0),
                  cells[i].c_str());
    std::printf("\n");
  };
  line(heads);
  std::vector<std::string> rule;
  for (size_t x : w) rule.push_back(std::string(x, '-'));
  line(rule);
  for (auto& r : rows) line(r);
  if (rows.empty()) std::printf("(none)\n");
}

struct Command {
  const char* name;
  const char* usage;
  const char* help;
  int (*run)(const Args&);
};

int CmdSettings(const Args& a) {
  if (const char* v = a.Get("--max")) Entry<IntSet>("_SetMaxSnapshot")(v);
  if (const char* v = a.Get("--interval")) Entry<IntSet>("_SetSchedule")(v);
  std::printf("MaxScheduleSnapshots  %d\n", Entry<IntGet>("_GetMaxSnapshot")());
  std::printf("INTERVAL              %d\n", Entry<IntGet>("_GetSchedule")());
  return 0;
}

int CmdSnapshot(const Args& a) {
  const char* profile = a.Get("--profile");
  const char* description = a.Get("--description");
  const bool scheduled = a.Has("--scheduled"), initial = a.Has("--initial");
  if (scheduled && initial) {
    std::fprintf(stderr, "orvalis: --scheduled and --initial exclude each other\n");
    return 87;
  }
  unsigned long rc;
  if (profile) {
    const char* fn = scheduled ? "_CreateScheduledSnapshotFromSpecifiedProfile"
                     : initial ? "_CreateInitialSnapshotFromSpecifiedProfile"
                               : "_CreateSnapshotFromSpecifiedProfile";
    rc = Entry<Str2>(fn)(profile, description);
  } else {
    const char* fn = scheduled ? "_CreateScheduledSnapshotFromDefaultProfile"
                     : initial ? "_CreateInitialSnapshotFromDefaultProfile"
                               : "_CreateSnapshotFromDefaultProfile";
    rc = Entry<Str1>(fn)(description);
  }
  if (rc == 0) std::printf("snapshot taken (a stage that failed is named in halvern.log)\n");
  return Finish(rc);
}

int CmdProfiles(const Args&) {
  std::string out = TempFile("orvalis-profiles.xml");
  char dir[MAX_PATH];
  GetTempPathA(MAX_PATH, dir);
  unsigned long rc = Entry<Str2>("_GetProfileList")(dir, "orvalis-profiles.xml");
  if (rc != 0) return Finish(rc);
  PrintTable({"FILE", "DESCRIPTION"}, ReadList(out, "PROFILES", {"FILE", "DESCRIPTION"}));
  DeleteFileA(out.c_str());
  return 0;
}

int CmdSnapshots(const Args&) {
  std::string out = TempFile("orvalis-snapshots.xml");
  char dir[MAX_PATH];
  GetTempPathA(MAX_PATH, dir);
  unsigned long rc = Entry<Str2>("_GetSnapshotList")(dir, "orvalis-snapshots.xml");
  if (rc != 0) return Finish(rc);
  PrintTable({"FILE", "TIME", "DESCRIPTION"}, ReadList(out, "SNAPSHOT", {"FILE", "TIMESTAMP", "DESCRIPTION"}));
  DeleteFileA(out.c_str());
  return 0;
}

int Need(const Args& a, size_t n, const char* usage) {
  if (a.positional.size() < n) {
    std::fprintf(stderr, "usage: orvalis %s\n", usage);
    return 87;
  }
  return 0;
}

int CmdRename(const Args& a) {
  if (int rc = Need(a, 2, "rename SNAPSHOT DESCRIPTION")) return rc;
  return Finish(Entry<Str2>("_RenameSnapshot")(a.positional[0].c_str(), a.positional[1].c_str()));
}

int CmdDelete(const Args& a) {
  if (int rc = Need(a, 1, "delete SNAPSHOT")) return rc;
  return Finish(Entry<Str1>("_DeleteSnapshot")(a.positional[0].c_str()));
}

int CmdExport(const Args& a) {
  if (int rc = Need(a, 2, "export SNAPSHOT PACKAGE")) return rc;
  return Finish(Entry<Str2>("_ExportSnapshot")(a.positional[0].c_str(), a.positional[1].c_str()));
}

int CmdImport(const Args& a) {
  if (int rc = Need(a, 1, "import PACKAGE [FOLDER]")) return rc;
  const char* folder = a.positional.size() > 1 ? a.positional[1].c_str() : nullptr;
  return Finish(Entry<Str2>("_ImportSnapshot")(a.positional[0].c_str(), folder));
}

// IXMLDOMDocument's interface id (the import libraries here do not carry it).
constexpr IID kDomDocumentIid = {0x2933BF81, 0x7B36, 0x11d2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};

// Loads an XML file into a new DOM document; null when it cannot be read.
IXMLDOMDocument* LoadXml(const std::string& path) {
  IXMLDOMDocument* d = nullptr;
  CLSID cls;
  if (FAILED(CLSIDFromProgID(L"Msxml2.DOMDocument.3.0", &cls)) ||
      FAILED(CoCreateInstance(cls, nullptr, CLSCTX_INPROC_SERVER, kDomDocumentIid, reinterpret_cast<void**>(&d))))
    return nullptr;
  d->put_async(VARIANT_FALSE);
  d->put_validateOnParse(VARIANT_FALSE);  // the DTD need not lie beside the document
  d->put_resolveExternals(VARIANT_FALSE);
  wchar_t wide[MAX_PATH];
  MultiByteToWideChar(CP_ACP, 0, path.c_str(), -1, wide, MAX_PATH);
  VARIANT v;
  VariantInit(&v);
  v.vt = VT_BSTR;
  v.bstrVal = SysAllocString(wide);
  VARIANT_BOOL ok = VARIANT_FALSE;
  const HRESULT hr = d->load(v, &ok);
  VariantClear(&v);
  if (FAILED(hr) || ok != VARIANT_TRUE) {
    d->Release();
    return nullptr;
  }
  return d;
}

// The document transformed by the stylesheet, written to page: 0, 2 (a file cannot be read), 13
// (the transform failed) or 110 (the page cannot be written).
unsigned long TransformToFile(const std::string& doc, const std::string& stylesheet, const std::string& page) {
  CoInitialize(nullptr);
  unsigned long rc = 0;
  IXMLDOMDocument* d = LoadXml(doc);
  IXMLDOMDocument* s = d ? LoadXml(stylesheet) : nullptr;
  BSTR html = nullptr;
  if (!d || !s) {
    rc = 2;
  } else if (FAILED(d->transformNode(s, &html)) || !html) {
    rc = 13;
  } else {
    const int n = WideCharToMultiByte(CP_ACP, 0, html, -1, nullptr, 0, nullptr, nullptr);
    std::string out(n > 0 ? n - 1 : 0, '\0');
    if (n > 1) WideCharToMultiByte(CP_ACP, 0, html, -1, &out[0], n, nullptr, nullptr);
    // The transform's text comes back in UTF-16, which the page's header then names; the page is
    // written in the ANSI code page, so its header says so.
    const size_t at = out.find("charset=UTF-16");
    if (at != std::string::npos) out.replace(at, 14, "charset=windows-1252");
    FILE* f = std::fopen(page.c_str(), "wb");
    if (!f || std::fwrite(out.data(), 1, out.size(), f) != out.size()) rc = 110;
    if (f && std::fclose(f) != 0) rc = 110;
  }
  if (html) SysFreeString(html);
  if (s) s->Release();
  if (d) d->Release();
  CoUninitialize();
  return rc;
}

// The stylesheet of a document type, shipped in xsl\ beside the engine.
const char* StylesheetFor(const std::string& text) {
  static const struct {
    const char* type;
    const char* xsl;
  } kTypes[] = {{"SNAPSHOTLIST", "snaplist.xsl"}, {"PROFILELIST", "proflist.xsl"}, {"ORVALISBCF", "snapinfo.xsl"},
                {"SYSFILE", "sysfile.xsl"},      {"REGKEYXML", "regkey.xsl"},    {"DIRTREEXML", "dirtree.xsl"},
                {"ASSETXML", "asset.xsl"}};
  for (const auto& t : kTypes)
    if (text.find(std::string("<!DOCTYPE ") + t.type + " ") != std::string::npos) return t.xsl;
  return nullptr;
}

// A readable page of one of the engine's documents, written beside it through the system's XML
// library (MSXML): the document itself stays as the engine wrote it.
int CmdView(const Args& a) {
  if (int rc = Need(a, 1, "view DOCUMENT.xml [PAGE.html]")) return rc;
  const std::string doc = a.positional[0];
  std::string page = a.positional.size() > 1 ? a.positional[1] : doc.substr(0, doc.rfind('.')) + ".html";
  std::string text;
  if (FILE* f = std::fopen(doc.c_str(), "rb")) {
    char buf[4096];
    size_t n;
    while (text.size() < 65536 && (n = std::fread(buf, 1, sizeof buf, f)) > 0) text.append(buf, n);
    std::fclose(f);
  } else {
    return Finish(2);
  }
  const char* xsl = StylesheetFor(text);
  if (!xsl) {
    std::fprintf(stderr, "orvalis: %s is not a document of the engine's\n", doc.c_str());
    return 13;
  }
  const std::string stylesheet = ExeFolder() + "\\xsl\\" + xsl;
  const unsigned long rc = TransformToFile(doc, stylesheet, page);
  if (rc == 0) std::printf("written: %s\n", page.c_str());
  return Finish(rc);
}

// Prints what a check found and answers its result: non-zero when damage was found.
int CmdVerify(const Args& a) {
  if (int rc = Need(a, 1, "verify SNAPSHOT|PACKAGE")) return rc;
  char folder[MAX_PATH], report[MAX_PATH];
  if (!GetTempPathA(sizeof folder, folder) || !GetTempFileNameA(folder, "orv", 0, report)) return Finish(5);
  const unsigned long rc = Entry<Str2>("_VerifySnapshot")(a.positional[0].c_str(), report);
  if (FILE* f = std::fopen(report, "r")) {
    char line[1024];
    while (std::fgets(line, sizeof line, f)) std::fputs(line, stdout);
    std::fclose(f);
  }
  DeleteFileA(report);
  return Finish(rc);
}

int CmdInfo(const Args& a) {
  if (int rc = Need(a, 2, "info SNAPSHOT OUTPUT.xml")) return rc;
  return Finish(Entry<Str2>("_SnapshotInfoXML")(a.positional[0].c_str(), a.positional[1].c_str()));
}

int CmdReport(const Args& a) {
  if (int rc = Need(a, 2, "report OLDER [NEWER] OUTPUT [--section S] [--append]")) return rc;
  const bool twoSided = a.positional.size() >= 3;
  const char* older = a.positional[0].c_str();
  const char* newer = twoSided ? a.positional[1].c_str() : nullptr;
  const char* out = a.positional[twoSided ? 2 : 1].c_str();
  std::string section = a.Get("--section") ? a.Get("--section") : "all";
  if (section == "all") {
    using All = unsigned long(__cdecl*)(const char*, const char*, const char*);
    return Finish(Entry<All>("_CreateReportOfSnapshotDifferences")(older, newer, out));
  }
  struct {
    const char* name;
    const char* entry;
  } sections[] = {{"files", "_CreateReportOfFileDifferences"},       {"registry", "_CreateReportOfRegistryDifferences"},
                  {"dirs", "_CreateReportOfDirectoryDifferences"},   {"assets", "_CreateReportOfAssetDifferences"},
                  {"sysinfo", "_CreateReportOfSysInfoDifferences"}, {"drives", "_CreateReportOfDriveDifferences"}};
  for (auto& s : sections)
    if (section == s.name) return Finish(Entry<Report>(s.entry)(older, newer, out, a.Has("--append") ? 1 : 0));
  std::fprintf(stderr, "orvalis: unknown section %s\n", section.c_str());
  return 87;
}

int CmdDiff(const Args& a) {
  if (int rc = Need(a, 2, "diff file|reg|dir|asset OLDER [NEWER] --item PATH --out FILE [--live]")) return rc;
  const std::string kind = a.positional[0];
  const char* entry = kind == "file" ? "_CompareFilestoXML" : kind == "reg" ? "_CompareRegtoXML"
                      : kind == "dir" ? "_CompareDirtoXML" : kind == "asset" ? "_CompareAssettoXML" : nullptr;
  if (!entry || !a.Get("--item") || !a.Get("--out")) {
    std::fprintf(stderr, "usage: orvalis diff file|reg|dir|asset OLDER [NEWER] --item PATH --out FILE [--live]\n");
    return 87;
  }
  const char* older = a.positional[1] == "-" ? nullptr : a.positional[1].c_str();
  const char* newer = a.positional.size() > 2 && a.positional[2] != "-" ? a.positional[2].c_str() : nullptr;
  unsigned long rc = Entry<Xml>(entry)(older, newer, a.Get("--item"), a.Get("--out"), a.Has("--live") ? 1 : 0);
  if (rc == 0) std::printf("written: %s\n", a.Get("--out"));
  return Finish(rc);
}

int CmdRestore(const Args& a) {
  const bool select = a.Has("--select");
  if (a.Has("--initial")) return Finish(Entry<Void>(select ? "_RestoreFromInitialSnapshotSelect" : "_RestoreFromInitialSnapshot")());
  if (a.Has("--recent"))
    return Finish(Entry<Void>(select ? "_RestoreFromMostRecentSnapshotSelect" : "_RestoreFromMostRecentSnapshot")());
  if (a.Has("--undo")) return Finish(Entry<Void>(select ? "_RestoreFromUndoSnapshotSelect" : "_RestoreFromUndoSnapshot")());
  if (select) return Finish(Entry<Void>("_RestoreFromSpecifiedSnapshotSelect")());
  if (int rc = Need(a, 1, "restore SNAPSHOT [--reboot [--delay SECONDS]]")) return rc;
  const char* s = a.positional[0].c_str();
  if (a.Has("--reboot")) {
    if (const char* d = a.Get("--delay")) {
      using Delay = unsigned long(__cdecl*)(const char*, long);
      return Finish(Entry<Delay>("_RestoreFromSpecifiedSnapshotDelayReboot")(s, std::atol(d)));
    }
    return Finish(Entry<Str1>("_RestoreFromSpecifiedSnapshotReboot")(s));
  }
  return Finish(Entry<Str1>("_RestoreFromSpecifiedSnapshot")(s));
}

int CmdTick(const Args& a);

const Command kCommands[] = {
    {"settings", "settings [--max N] [--interval N]", "show or change the scheduled-snapshot settings", CmdSettings},
    {"snapshot", "snapshot [--profile P.GCF] [--description TEXT] [--scheduled | --initial]",
     "take a snapshot (default profile unless --profile)", CmdSnapshot},
    {"profiles", "profiles", "list the profiles beside the engine", CmdProfiles},
    {"snapshots", "snapshots", "list the snapshots beside the engine", CmdSnapshots},
    {"rename", "rename SNAPSHOT DESCRIPTION", "change a snapshot's description", CmdRename},
    {"delete", "delete SNAPSHOT", "delete a snapshot with its companion files", CmdDelete},
    {"export", "export SNAPSHOT PACKAGE", "write a snapshot and its companions into one package", CmdExport},
    {"import", "import PACKAGE [FOLDER]", "read a package back as a new snapshot (into the engine's folder)",
     CmdImport},
    {"verify", "verify SNAPSHOT|PACKAGE",
     "check that every companion is there and every recorded CRC-32 matches", CmdVerify},
    {"info", "info SNAPSHOT OUTPUT.xml", "write a snapshot's information document", CmdInfo},
    {"view", "view DOCUMENT.xml [PAGE.html]", "write a readable HTML page of a document beside it", CmdView},
    {"report", "report OLDER [NEWER] OUTPUT [--section all|files|registry|dirs|assets|sysinfo|drives] [--append]",
     "write the text report of differences (against the live system without NEWER)", CmdReport},
    {"diff", "diff file|reg|dir|asset OLDER|- [NEWER] --item PATH --out FILE [--live]",
     "write one difference document (- for no older snapshot)", CmdDiff},
    {"restore", "restore SNAPSHOT [--reboot [--delay S]] | restore --initial|--recent|--undo [--select]",
     "restore a snapshot after taking an undo snapshot", CmdRestore},
    {"tick", "tick [--description TEXT]",
     "scheduler tick: take a scheduled snapshot, drop the oldest beyond MaxScheduleSnapshots", CmdTick},
};

int CmdTick(const Args& a) {
  unsigned long rc = Entry<Str1>("_CreateScheduledSnapshotFromDefaultProfile")(a.Get("--description") ? a.Get("--description") : "Scheduled snapshot");
  if (rc != 0) return Finish(rc);
  // Keep the newest MaxScheduleSnapshots scheduled snapshots: the list document gives the
  // files in name order, which is creation order for the engine's counter names. It carries no
  // flags, so these are read off the index files' FLAGS sections.
  std::string out = TempFile("orvalis-tick.xml");
  char dir[MAX_PATH];
  GetTempPathA(MAX_PATH, dir);
  if (Entry<Str2>("_GetSnapshotList")(dir, "orvalis-tick.xml") != 0) return Finish(rc);
  auto rows = ReadList(out, "SNAPSHOT", {"FILE"});
  DeleteFileA(out.c_str());
  std::vector<std::string> scheduled;
  std::string folder = ExeFolder();
  for (auto& r : rows) {
    char flags[32] = "";
    std::string path = folder + "\\" + r[0];
    FILE* f = std::fopen(path.c_str(), "r");
    if (!f) continue;
    char line[512];
    bool in = false;
    while (std::fgets(line, sizeof line, f)) {
      if (_strnicmp(line, "[FLAGS_END]", 11) == 0) break;
      if (in) std::snprintf(flags, sizeof flags, "%s", line);
      if (_strnicmp(line, "[FLAGS_START]", 13) == 0) in = true;
    }
    std::fclose(f);
    if (std::atol(flags) & 0x2000) scheduled.push_back(r[0]);
  }
  int keep = Entry<IntGet>("_GetMaxSnapshot")();
  if (keep < 0) keep = 0;
  for (size_t i = 0; i + keep < scheduled.size(); ++i) {
    std::printf("deleting old scheduled snapshot %s\n", scheduled[i].c_str());
    Entry<Str1>("_DeleteSnapshot")(scheduled[i].c_str());
  }
  return Finish(rc);
}

void Usage(FILE* f) {
  std::fprintf(f, "orvalis: records, compares and restores this PC's configuration.\n\nusage:\n");
  for (const Command& c : kCommands) std::fprintf(f, "  orvalis %-10s %s\n", c.name, c.help);
  std::fprintf(f, "\n'orvalis COMMAND --help' shows a command's arguments.\n");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || !std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "help")) {
    Usage(argc < 2 ? stderr : stdout);
    return argc < 2 ? 87 : 0;
  }
  const Command* cmd = nullptr;
  for (const Command& c : kCommands)
    if (!std::strcmp(argv[1], c.name)) cmd = &c;
  if (!cmd) {
    std::fprintf(stderr, "orvalis: unknown command '%s'\n", argv[1]);
    Usage(stderr);
    return 87;
  }
  Args args = Parse(argc, argv, 2);
  if (args.Has("--help")) {
    std::printf("usage: orvalis %s\n  %s\n", cmd->usage, cmd->help);
    return 0;
  }
  std::string dll = ExeFolder() + "\\HALVERN.DLL";
  g_engine = LoadLibraryA(dll.c_str());
  if (!g_engine) {
    std::fprintf(stderr, "orvalis: cannot load %s (error %lu)\n", dll.c_str(), GetLastError());
    return orvalis::kResultBadLibrary;
  }
  // The long operations say what they do and how long it took.
  const bool timed = !std::strcmp(cmd->name, "snapshot") || !std::strcmp(cmd->name, "report") ||
                     !std::strcmp(cmd->name, "restore") || !std::strcmp(cmd->name, "export") ||
                     !std::strcmp(cmd->name, "import") || !std::strcmp(cmd->name, "tick");
  if (timed) {
    std::printf("%s: working...\n", cmd->name);
    std::fflush(stdout);
  }
  const DWORD start = GetTickCount();
  int rc = cmd->run(args);
  if (timed)
    std::printf("%s: %s in %.1f s\n", cmd->name, rc == 0 ? "done" : "failed",
                static_cast<double>(GetTickCount() - start) / 1000.0);
  FreeLibrary(g_engine);
  return rc;
}
