// Speed of the system-file comparison on big, config-like copies.
// Generates deterministic older/newer pairs (scattered insertions, deletions and changes),
// writes them to a temporary folder and times CompareTextLines and CompareIniFiles at
// 25,000, 50,000 and 100,000 lines, so that the growth with file length shows.
// Usage: compare_bench [--runs N]   (best of N runs per figure, default 3)
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "items/sysfiles/filecompare.h"

namespace {

struct Rng {
  uint64_t s;
  uint32_t Next() {
    s = s * 6364136223846793005ull + 1442695040888963407ull;
    return static_cast<uint32_t>(s >> 33);
  }
  uint32_t Below(uint32_t n) { return Next() % n; }
};

const char* const kWords[] = {"WINDOWS", "SYSTEM", "DRIVERS", "TEMP", "PROGRA~1", "COMMON", "FONTS", "UTIL", "DOS",
                              "NET", "MOUSE", "SOUND", "VIDEO", "CDROM"};

std::string Word(Rng& r) { return kWords[r.Below(sizeof kWords / sizeof *kWords)]; }

// One line of an AUTOEXEC/CONFIG-like file; n keeps lines distinct enough to resync on.
std::string TextLine(Rng& r, uint32_t n) {
  char buf[200];
  switch (r.Below(8)) {
    case 0: std::snprintf(buf, sizeof buf, "SET %s%u=C:\\%s\\%s", Word(r).c_str(), n, Word(r).c_str(), Word(r).c_str()); break;
    case 1: std::snprintf(buf, sizeof buf, "DEVICEHIGH=C:\\%s\\DRV%u.SYS /X:%u", Word(r).c_str(), n, r.Below(64)); break;
    case 2: std::snprintf(buf, sizeof buf, "REM %s settings block %u", Word(r).c_str(), n); break;
    case 3: std::snprintf(buf, sizeof buf, "  LH C:\\%s\\TSR%u.COM /L:%u", Word(r).c_str(), n, r.Below(9)); break;
    case 4: std::snprintf(buf, sizeof buf, "%s", ""); break;
    case 5: std::snprintf(buf, sizeof buf, "PATH %%PATH%%;C:\\%s%u", Word(r).c_str(), n); break;
    case 6: std::snprintf(buf, sizeof buf, "\tIF EXIST C:\\%s\\RUN%u.BAT CALL RUN%u", Word(r).c_str(), n, n); break;
    default: std::snprintf(buf, sizeof buf, "FILES=%u", 20 + n % 200); break;
  }
  return buf;
}

std::string IniLine(Rng& r, uint32_t n) {
  char buf[200];
  switch (r.Below(6)) {
    case 0: std::snprintf(buf, sizeof buf, "; %s comment %u", Word(r).c_str(), n); break;
    case 1: std::snprintf(buf, sizeof buf, "device=*%s%u", Word(r).c_str(), n); break;
    default: std::snprintf(buf, sizeof buf, "%sKey%u=C:\\%s\\file%u.dll", Word(r).c_str(), n, Word(r).c_str(), r.Below(1000)); break;
  }
  return buf;
}

// About 1 line in 100 deleted, 1 in 100 changed and 1 in 100 inserted on the newer side.
void MakePair(bool ini, uint32_t lines, std::string& older, std::string& newer) {
  Rng r{ini ? 7u : 3u};
  older.clear();
  newer.clear();
  for (uint32_t i = 0; i < lines; ++i) {
    std::string line;
    if (ini && i % 21 == 0)
      line = "[Section" + std::to_string(i / 21) + "]";
    else
      line = ini ? IniLine(r, i) : TextLine(r, i);
    older += line + "\n";
    bool header = ini && i % 21 == 0;
    uint32_t roll = r.Below(100);
    if (roll == 0 && !header) continue;  // deleted
    if (roll == 1 && !header) {          // changed
      newer += line + (ini ? "0" : " /NEW") + "\n";
      continue;
    }
    if (roll == 2) newer += (ini ? IniLine(r, i + 7000000) : TextLine(r, i + 7000000)) + "\n";  // inserted
    newer += line + "\n";
  }
}

bool WriteFile(const std::string& path, const std::string& data) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return false;
  bool ok = std::fwrite(data.data(), 1, data.size(), f) == data.size();
  return std::fclose(f) == 0 && ok;
}

// Best wall time of `runs` comparisons of the two files, in seconds.
double Time(bool ini, const std::string& olderPath, const std::string& newerPath, int runs, int* differs) {
  double best = 1e30;
  for (int i = 0; i < runs; ++i) {
    FILE* older = std::fopen(olderPath.c_str(), "r");
    FILE* newer = std::fopen(newerPath.c_str(), "r");
    if (!older || !newer) std::exit(2);
    auto t0 = std::chrono::steady_clock::now();
    if (ini) {
      orvalis::IniSection* s = nullptr;
      *differs = orvalis::CompareIniFiles(newer, older, &s);
      orvalis::FreeIniSections(s);
    } else {
      orvalis::LineChange* l = nullptr;
      *differs = orvalis::CompareTextLines(newer, older, orvalis::kLookAheadDepth, &l);
      orvalis::FreeLineChanges(l);
    }
    double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    if (s < best) best = s;
    std::fclose(older);
    std::fclose(newer);
  }
  return best;
}

}  // namespace

int main(int argc, char** argv) {
  int runs = 3;
  if (argc == 3 && std::strcmp(argv[1], "--runs") == 0) runs = std::atoi(argv[2]);
  if (runs < 1) runs = 1;
  std::filesystem::path dir = std::filesystem::temp_directory_path() / "orvalis-compare-bench";
  std::filesystem::create_directories(dir);
  const std::string olderPath = (dir / "older").string(), newerPath = (dir / "newer").string();

  std::printf("best of %d runs, times include reading both copies\n", runs);
  const struct {
    const char* title;
    bool ini;
    bool unrelated;  // newer copy shares no line with the older one: every step looks 2 x 50 ahead
  } kinds[] = {{"line comparison, ~3% of lines touched", false, false},
               {"line comparison, no common line (worst case)", false, true},
               {"INI comparison, 21-line sections, ~3% of lines touched", true, false}};
  for (const auto& k : kinds) {
    std::printf("\n");
    std::printf("%s\n", k.title);
    std::printf("%10s %10s %14s %10s %8s\n", "lines", "seconds", "lines/s", "ns/line", "differs");
    for (uint32_t lines : {25000u, 50000u, 100000u}) {
      std::string older, newer;
      MakePair(k.ini, lines, older, newer);
      if (k.unrelated) {
        std::string shifted;
        for (char c : newer) shifted += (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c;
        newer = shifted;
      }
      if (!WriteFile(olderPath, older) || !WriteFile(newerPath, newer)) return 2;
      int differs = 0;
      double s = Time(k.ini, olderPath, newerPath, runs, &differs);
      std::printf("%10u %10.4f %14.0f %10.1f %8d\n", lines, s, lines / s, s * 1e9 / lines, differs);
    }
  }
  std::filesystem::remove_all(dir);
  return 0;
}
