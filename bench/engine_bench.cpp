// Speed of the second half of the engine under Wine, on data it makes itself:
//   report:  the whole difference report between two snapshots that differ in N registry values,
//            N files of a watched directory and N/10 INI entries, at two sizes;
//   restore: a restore whose registry key holds 50,000 values of which 1,000 changed, and whose
//            system files and asset hold 1,000 files of which 100 changed, with the share of the
//            undo snapshot.
// Prints each figure with its condition. Run by bench/run-engine.sh.
#undef _WIN32_WINNT
#define _WIN32_WINNT 0x0600  // RegDeleteTreeA
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "drivers/create.h"
#include "engine/settings.h"
#include "exports/exports.h"
#include "store/store_win.h"
#include "tests/support/engine_sandbox.h"

using namespace orvalis;
using orvalis_test::EngineSandbox;
using orvalis_test::WriteWholeFile;

namespace {

double Now() {
  LARGE_INTEGER f, c;
  QueryPerformanceFrequency(&f);
  QueryPerformanceCounter(&c);
  return static_cast<double>(c.QuadPart) / static_cast<double>(f.QuadPart);
}

void SetValues(const std::string& key, int count, int changedFrom, const char* suffix) {
  HKEY k;
  RegCreateKeyExA(HKEY_CURRENT_USER, key.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, nullptr);
  for (int i = changedFrom; i < count; ++i) {
    char name[32], data[64];
    std::snprintf(name, sizeof name, "value%05d", i);
    std::snprintf(data, sizeof data, "data of value %d %s", i, suffix);
    RegSetValueExA(k, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(data), static_cast<DWORD>(std::strlen(data) + 1));
  }
  RegCloseKey(k);
}

void Files(const std::string& folder, int count, int changed, const char* text) {
  CreateDirectoryA(folder.c_str(), nullptr);
  for (int i = 0; i < changed; ++i) {
    char name[MAX_PATH];
    std::snprintf(name, sizeof name, "%s\\file%05d.dat", folder.c_str(), i);
    WriteWholeFile(name, std::string(text) + std::to_string(i) + "\r\n");
  }
  (void)count;
}

void Ini(const std::string& path, int entries, const char* value) {
  std::string text = "[Settings]\r\n";
  for (int i = 0; i < entries; ++i) text += "key" + std::to_string(i) + "=" + value + std::to_string(i) + "\r\n";
  WriteWholeFile(path, text);
}

void Report(int n) {
  EngineSandbox box;
  const std::string key = "Software\\OrvalisBench\\report" + std::to_string(n);
  CreateDirectoryA(box.file("NIMBRA").c_str(), nullptr);
  const std::string dir = box.file("tree"), ini = box.file("app.ini");
  SetValues(key, n, 0, "before");
  Files(dir, n, n, "before ");
  Ini(ini, n / 10, "before");
  WriteWholeFile(box.file("P.GCF"), "bench\n[GROUPFILES_START]\n" + ini + "\n[GROUPFILES_END]\n[GROUPDIRS_START]\n" + dir +
                                        "\n[GROUPDIRS_END]\n[GROUPREGKEYS_START]\nHKCU\\" + key + "\n[GROUPREGKEYS_END]\n");
  CreateSnapshotFromSpecifiedProfile("P.GCF", "before");
  Sleep(2100);  // a new DOS time for every file
  SetValues(key, n, 0, "after");
  Files(dir, n, n, "after, longer ");
  Ini(ini, n / 10, "after");
  CreateSnapshotFromSpecifiedProfile("P.GCF", "after");
  const std::string report = box.file("r.log");
  const double t0 = Now();
  const unsigned long rc = CreateReportOfSnapshotDifferences("BASE0000.BCF", "BASE0001.BCF", report.c_str());
  const double seconds = Now() - t0;
  std::string text = orvalis_test::ReadWholeFile(report);
  long lines = 0;
  for (char c : text) lines += c == '\n';
  std::printf("report  %6d values, %6d files, %5d INI entries changed: %7ld lines in %6.2f s = %8.0f lines/s (rc %lu)\n",
              n, n, n / 10, lines, seconds, lines / seconds, rc);
  RegDeleteTreeA(HKEY_CURRENT_USER, key.c_str());
}

void Restore() {
  EngineSandbox box;
  const std::string key = "Software\\OrvalisBench\\restore";
  CreateDirectoryA(box.file("NIMBRA").c_str(), nullptr);
  const std::string files = box.file("files"), assets = box.file("assets");
  SetValues(key, 50000, 0, "saved");
  Files(files, 1000, 1000, "saved ");
  Files(assets, 1000, 1000, "saved ");
  std::string profile = "bench\n[GROUPFILES_START]\n";
  for (int i = 0; i < 1000; ++i) {
    char name[MAX_PATH];
    std::snprintf(name, sizeof name, "%s\\file%05d.dat\n", files.c_str(), i);
    profile += name;
  }
  profile += "[GROUPFILES_END]\n[GROUPREGKEYS_START]\nHKCU\\" + key + "\n[GROUPREGKEYS_END]\n[GROUPASSET_START]\n" +
             assets + ",0,12288\n[GROUPASSET_END]\n";
  WriteWholeFile(box.file("P.GCF"), profile);
  CreateSnapshotFromSpecifiedProfile("P.GCF", "saved");
  SetValues(key, 1000, 0, "changed");
  Files(files, 1000, 100, "changed ");
  Files(assets, 1000, 100, "changed ");
  // The undo snapshot alone, then the whole restore (which takes one of its own first).
  SnapshotRecord* rec = NewSnapshotRecord();
  LoadSnapshot(box.file("BASE0000.BCF").c_str(), rec);
  double t0 = Now();
  CreateUndoBaseSnapshot(rec, nullptr, 0);
  const double undo = Now() - t0;
  FreeSnapshotRecord(rec);
  t0 = Now();
  const unsigned long rc = RestoreFromSpecifiedSnapshot(box.file("BASE0000.BCF").c_str());
  const double total = Now() - t0;
  std::printf("restore 50,000 values (1,000 changed), 1,000 files and 1,000 asset files (100 changed each): "
              "%.2f s, of which the undo snapshot about %.2f s (%.0f%%) (rc %lu)\n",
              total, undo, 100.0 * undo / total, rc);
  RegDeleteTreeA(HKEY_CURRENT_USER, key.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  const std::string what = argc > 1 ? argv[1] : "all";
  const int n = argc > 2 ? std::atoi(argv[2]) : 10000;
  if (what == "report" || what == "all") {
    Report(n / 2);
    Report(n);
  }
  if (what == "restore" || what == "all") Restore();
  return 0;
}
