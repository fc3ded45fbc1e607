// The benchmark's synthetic corpora (INI files, registry exports, binary data, a listing in
// the engine's own form), generated deterministically. Shared with the coder tests, which
// check the levels against each other on the same data.
#pragma once
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace orvalis_bench {

// xorshift64*: the synthetic corpora must not depend on the standard library's engines.
struct Rng {
  uint64_t s;
  uint64_t Next() {
    s ^= s >> 12;
    s ^= s << 25;
    s ^= s >> 27;
    return s * 2685821657736338717ull;
  }
  unsigned Below(unsigned n) { return static_cast<unsigned>(Next() % n); }
};

inline const char* const kWords[] = {
    "system", "windows", "program", "files", "common", "shared", "microsoft", "office", "data",
    "config", "drivers", "fonts", "help", "temp", "setup", "update", "user", "profile", "app",
    "cache", "log", "media", "tools", "runtime", "plugins"};
inline const char* const kExts[] = {".dll", ".exe", ".ini", ".txt", ".hlp", ".sys", ".dat",
                                    ".inf"};

inline std::string Word(Rng& r) {
  std::string w = kWords[r.Below(std::size(kWords))];
  if (r.Below(3) == 0) w += std::to_string(r.Below(100));
  return w;
}

// Appends the pieces in order. (Chains of operator+ trip a false -Wrestrict in gcc 12 -O3.)
inline void Add(std::string* out, std::initializer_list<std::string_view> pieces) {
  for (auto p : pieces) out->append(p.data(), p.size());
}

// A listing in the engine's own form: kind,size,time,path with backslashes.
inline std::string SyntheticListing(size_t target) {
  Rng r{0x9E3779B97F4A7C15ull};
  std::string out = "C:\\\n";
  std::vector<std::string> stack = {"C:"};
  while (out.size() < target) {
    if (stack.size() > 1 && r.Below(4) == 0) stack.pop_back();
    if (stack.size() < 8 && r.Below(3) == 0) {
      std::string dir = stack.back();
      Add(&dir, {"\\", Word(r)});
      stack.push_back(dir);
      Add(&out, {"1024,0,", std::to_string(1600000000 + r.Below(90000000)), ",", dir, "\n"});
    }
    unsigned files = r.Below(12);
    for (unsigned i = 0; i < files; ++i)
      Add(&out, {"2048,", std::to_string(r.Below(2000000)), ",",
                 std::to_string(1600000000 + r.Below(90000000)), ",", stack.back(), "\\",
                 Word(r), kExts[r.Below(std::size(kExts))], "\n"});
  }
  return out;
}

inline std::string IniText(size_t target) {
  Rng r{12345};
  std::string out;
  while (out.size() < target) {
    Add(&out, {"[", Word(r), " ", Word(r), "]\r\n"});
    unsigned keys = 3 + r.Below(20);
    for (unsigned i = 0; i < keys; ++i) {
      Add(&out, {Word(r), Word(r), "="});
      switch (r.Below(4)) {
        case 0: out += std::to_string(r.Below(100000)); break;
        case 1: Add(&out, {"C:\\WINDOWS\\", Word(r), "\\", Word(r), kExts[r.Below(8)]}); break;
        case 2: out += r.Below(2) ? "yes" : "no"; break;
        default: Add(&out, {Word(r), ",", Word(r), ",", std::to_string(r.Below(10))}); break;
      }
      out += "\r\n";
    }
    out += "\r\n";
  }
  return out;
}

inline std::string RegistryExport(size_t target) {
  Rng r{777};
  std::string out = "REGEDIT4\r\n\r\n";
  while (out.size() < target) {
    std::string key;
    Add(&key, {"HKEY_LOCAL_MACHINE\\SOFTWARE\\", Word(r), "\\", Word(r)});
    unsigned subkeys = 1 + r.Below(6);
    for (unsigned s = 0; s < subkeys; ++s) {
      Add(&out, {"[", key, "\\", Word(r), "]\r\n"});
      unsigned values = r.Below(8);
      for (unsigned i = 0; i < values; ++i) {
        Add(&out, {"\"", Word(r), "\"="});
        char buf[40];
        switch (r.Below(3)) {
          case 0:
            std::snprintf(buf, sizeof buf, "dword:%08x", r.Below(70000));
            out += buf;
            break;
          case 1: {
            out += "hex:";
            unsigned n = 4 + r.Below(24);
            for (unsigned b = 0; b < n; ++b) {
              std::snprintf(buf, sizeof buf, b ? ",%02x" : "%02x", r.Below(b % 4 ? 16 : 256));
              out += buf;
            }
            break;
          }
          default: Add(&out, {"\"C:\\\\Program Files\\\\", Word(r), "\\\\", Word(r), "\""}); break;
        }
        out += "\r\n";
      }
      out += "\r\n";
    }
  }
  return out;
}

// Structured records (small integers, repeated tags, pointers) with stretches of noise,
// roughly what executables and binary settings look like to a byte-level coder.
inline std::string BinaryData(size_t target) {
  Rng r{4242};
  std::string out;
  while (out.size() < target) {
    if (r.Below(8) == 0) {
      unsigned n = 256 + r.Below(4096);
      for (unsigned i = 0; i < n; ++i) out += static_cast<char>(r.Next() >> 56);
      continue;
    }
    unsigned records = 16 + r.Below(64);
    uint32_t ptr = 0x00401000u + r.Below(0x10000) * 16;
    for (unsigned i = 0; i < records; ++i) {
      unsigned char rec[16] = {0x55, 0x8B, 0xEC, 0x83, 0xEC, 0, 0xE8, 0, 0, 0, 0, 0x89, 0x45, 0, 0xC3, 0};
      rec[5] = static_cast<unsigned char>(r.Below(4) * 4);
      ptr += 16 * (1 + r.Below(3));
      std::memcpy(rec + 7, &ptr, 4);
      rec[13] = static_cast<unsigned char>(0xF0 + r.Below(16));
      out.append(reinterpret_cast<char*>(rec), sizeof rec);
    }
  }
  out.resize(target);
  return out;
}

}  // namespace orvalis_bench
