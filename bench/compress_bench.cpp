// Speed and ratio of the implode/explode coders on corpora of the kinds the engine packs:
// directory listings, INI files, registry exports, binary data. The corpora are generated
// here, deterministically: the listing from a walk of /usr in directory order, as
// `find /usr -printf '2048,%s,%T@,%p\n'` gives it, when /usr exists, else synthetic; files
// named on the command line are measured as well.
//
//   compress_bench [--runs N] [--dump DIR] [file...]
//
// --dump DIR writes the generated corpora there, to look at or to feed other tools.
//
// Prints, per corpus, coder setting and level (fast, optimal), implode MB/s (of input), explode MB/s (of output)
// and the compressed/original ratio. MB = 10^6 bytes. Each figure is the best of N runs,
// by the wall clock and by the processor time of this process (std::clock), the second
// being the one to trust when other work shares the machine.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "compress/coder_mem.h"
#include "compress/explode.h"
#include "compress/implode.h"
#include "bench/compress_corpora.h"

namespace fs = std::filesystem;

namespace {

using namespace orvalis_bench;

constexpr size_t kListingCap = 16u << 20;

// One line as `find /usr -printf '2048,%s,%T@,%p\n'` writes it.
void ListingLine(std::string* out, const fs::path& p) {
  std::error_code ec;
  auto st = fs::symlink_status(p, ec);
  uintmax_t size = 0;
  if (fs::is_symlink(st)) {
    size = fs::read_symlink(p, ec).native().size();
  } else if (fs::is_directory(st)) {
    size = 4096;
  } else {
    size = fs::file_size(p, ec);
    if (ec) size = 0;
  }
  long long sec = 0, nsec = 0;
  auto t = fs::last_write_time(p, ec);
  if (!ec) {
    auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(
                  std::chrono::file_clock::to_sys(t).time_since_epoch())
                  .count();
    sec = ns / 1000000000;
    nsec = ns % 1000000000;
  }
  char buf[96];
  std::snprintf(buf, sizeof buf, "2048,%ju,%lld.%09lld0,", size, sec, nsec);
  *out += buf;
  *out += p.native();
  *out += '\n';
}

void Walk(std::string* out, const fs::path& dir) {
  if (out->size() >= kListingCap) return;
  std::vector<fs::path> children;
  std::error_code ec;
  for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec))
    children.push_back(it->path());
  for (const auto& c : children) {
    if (out->size() >= kListingCap) return;
    ListingLine(out, c);
    std::error_code e2;
    if (fs::is_directory(fs::symlink_status(c, e2))) Walk(out, c);
  }
}

std::string UsrListing() {
  std::string out;
  std::error_code ec;
  if (!fs::is_directory("/usr", ec)) return out;
  ListingLine(&out, "/usr");
  Walk(&out, "/usr");
  if (out.size() > kListingCap) out.resize(out.rfind('\n', kListingCap) + 1);
  return out;
}

struct Figures {
  double implodeMBs, explodeMBs, implodeCpuMBs, explodeCpuMBs, ratio;
  bool ok;
};

struct Stopwatch {
  std::chrono::steady_clock::time_point wall = std::chrono::steady_clock::now();
  std::clock_t cpu = std::clock();
  double Wall() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - wall).count();
  }
  double Cpu() const { return double(std::clock() - cpu) / CLOCKS_PER_SEC; }
};

Figures Measure(const std::string& data, int type, int dict, int level, int runs) {
  Figures f{0, 0, 0, 0, 0, true};
  std::string packed, unpacked;
  double in = 1e30, out = 1e30, inCpu = 1e30, outCpu = 1e30;
  for (int i = 0; i < runs; ++i) {
    packed.clear();
    Stopwatch w1;
    if (orvalis::ImplodeMemory(data.data(), data.size(), &packed, type, dict, level) != 0) f.ok = false;
    in = std::min(in, w1.Wall());
    inCpu = std::min(inCpu, w1.Cpu());
    unpacked.clear();
    unpacked.reserve(data.size());
    Stopwatch w2;
    if (orvalis::ExplodeMemory(packed.data(), packed.size(), &unpacked) != 0) f.ok = false;
    out = std::min(out, w2.Wall());
    outCpu = std::min(outCpu, w2.Cpu());
  }
  if (unpacked != data) f.ok = false;
  auto rate = [&](double s) { return data.size() / std::max(s, 1e-6) / 1e6; };
  f.implodeMBs = rate(in);
  f.explodeMBs = rate(out);
  f.implodeCpuMBs = rate(inCpu);
  f.explodeCpuMBs = rate(outCpu);
  f.ratio = data.empty() ? 0 : double(packed.size()) / data.size();
  return f;
}

}  // namespace

int main(int argc, char** argv) {
  int runs = 5;
  std::string dumpDir;
  std::vector<std::pair<std::string, std::string>> corpora;
  std::vector<std::string> files;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--runs") == 0 && i + 1 < argc)
      runs = std::max(1, std::atoi(argv[++i]));
    else if (std::strcmp(argv[i], "--dump") == 0 && i + 1 < argc)
      dumpDir = argv[++i];
    else
      files.push_back(argv[i]);
  }
  std::string listing = UsrListing();
  if (!listing.empty())
    corpora.emplace_back("usr-listing", std::move(listing));
  else
    corpora.emplace_back("synthetic-listing", SyntheticListing(15u << 20));
  corpora.emplace_back("ini", IniText(2u << 20));
  corpora.emplace_back("registry", RegistryExport(4u << 20));
  corpora.emplace_back("binary", BinaryData(4u << 20));
  if (!dumpDir.empty()) {
    for (const auto& [name, data] : corpora) {
      std::ofstream out(fs::path(dumpDir) / name, std::ios::binary);
      out.write(data.data(), static_cast<std::streamsize>(data.size()));
    }
  }
  for (const auto& name : files) {
    std::ifstream in(name, std::ios::binary);
    if (!in) {
      std::fprintf(stderr, "cannot read %s\n", name.c_str());
      return 2;
    }
    corpora.emplace_back(name, std::string(std::istreambuf_iterator<char>(in), {}));
  }

  struct Setting {
    const char* name;
    int type, dict;
  } const settings[] = {{"binary/1024", orvalis::kImplodeBinary, 1024},
                        {"binary/4096", orvalis::kImplodeBinary, 4096},
                        {"ascii/1024", orvalis::kImplodeAscii, 1024}};

  const struct {
    const char* name;
    int level;
  } levels[] = {{"fast", orvalis::kImplodeFast}, {"optimal", orvalis::kImplodeOptimal}};

  std::printf("%-20s %-12s %-8s %10s %8s %8s %8s %8s %8s\n", "", "", "", "", "implode", "MB/s",
              "explode", "MB/s", "");
  std::printf("%-20s %-12s %-8s %10s %8s %8s %8s %8s %8s\n", "corpus", "setting", "level",
              "bytes", "wall", "cpu", "wall", "cpu", "ratio");
  bool allOk = true;
  for (const auto& [name, data] : corpora) {
    for (const auto& s : settings) {
      for (const auto& l : levels) {
        Figures f = Measure(data, s.type, s.dict, l.level, runs);
        allOk &= f.ok;
        std::printf("%-20s %-12s %-8s %10zu %8.1f %8.1f %8.1f %8.1f %8.4f%s\n",
                    fs::path(name).filename().string().c_str(), s.name, l.name, data.size(),
                    f.implodeMBs, f.implodeCpuMBs, f.explodeMBs, f.explodeCpuMBs, f.ratio,
                    f.ok ? "" : "  ROUND TRIP FAILED");
      }
    }
  }
  return allOk ? 0 : 1;
}
