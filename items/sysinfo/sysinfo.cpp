#include "items/sysinfo/sysinfo.h"

#if defined(__i386__) || defined(__x86_64__)
#include <cpuid.h>
#endif

#include <cstdlib>
#include <cstring>

#include "base/io.h"
#include "base/textutil.h"
#include "engine/context.h"
#include "engine/strings.h"
#include "engine/sys.h"

namespace orvalis {
namespace {

void RealCpuid(uint32_t leaf, CpuidRegs* r) {
#if defined(__i386__) || defined(__x86_64__)
  unsigned a, b, c, d;
  __cpuid(leaf, a, b, c, d);
  *r = {a, b, c, d};
#else
  *r = {0, 0, 0, 0};
#endif
}

CpuidSource g_cpuid = RealCpuid;

void Cpuid(uint32_t leaf, CpuidRegs* r) { g_cpuid(leaf, r); }

void VendorText(const CpuidRegs& r, char* out) {
  std::memcpy(out, &r.ebx, 4);
  std::memcpy(out + 4, &r.edx, 4);
  std::memcpy(out + 8, &r.ecx, 4);
  out[12] = '\0';
}

const char* FamilyClass(uint32_t eax) {
  switch (eax & 0xF00) {
    case 0x400: return "486 Class";
    case 0x500: return "586 Class";
    case 0x600: return "686 Class";
    case 0x700: return "786 Class";
    case 0x800: return "886 Class";
    default: return nullptr;
  }
}

SysInfoItem* NewItem(uint16_t number) {
  auto* i = static_cast<SysInfoItem*>(Io().calloc(1, sizeof(SysInfoItem)));
  if (i) i->item = number;
  return i;
}

}  // namespace

void SetCpuidSource(CpuidSource source) { g_cpuid = source ? source : RealCpuid; }

bool CpuidAvailable() {
  if (State().noCpuidSupport) return false;
  SYSTEM_INFO si;
  Sys().GetSystemInfo(&si);
  return si.dwProcessorType >= 586;
}

bool ProcessorVendor(char* out) {
  std::memcpy(out, "123456789012", 13);
  if (!CpuidAvailable()) return false;
  CpuidRegs r;
  Cpuid(0, &r);
  VendorText(r, out);
  if (r.eax >= 1) {
    CpuidRegs sig;
    Cpuid(1, &sig);  // the signature: read, not stored
  }
  return true;
}

char* IdentifyProcessor() {
  if (!CpuidAvailable()) return nullptr;
  char* name = static_cast<char*>(Io().calloc(49, 1));
  if (!name) return nullptr;
  CpuidRegs r;
  Cpuid(0, &r);
  char vendor[13];
  VendorText(r, vendor);

  if (EqualNoCase(vendor, "AuthenticAMD")) {
    // The brand string, taken without asking whether the extended leaves exist; no " MMX".
    for (uint32_t i = 0; i < 3; ++i) {
      CpuidRegs b;
      Cpuid(0x80000002u + i, &b);
      std::memcpy(name + 16 * i, &b.eax, 4);
      std::memcpy(name + 16 * i + 4, &b.ebx, 4);
      std::memcpy(name + 16 * i + 8, &b.ecx, 4);
      std::memcpy(name + 16 * i + 12, &b.edx, 4);
    }
    name[48] = '\0';
    return name;
  }

  CpuidRegs one;
  Cpuid(1, &one);
  const char* text = nullptr;
  if (EqualNoCase(vendor, "GenuineIntel")) {
    switch (one.eax & 0x3FF0) {
      case 0x510: case 0x520: case 0x530: case 0x540: text = "Pentium"; break;
      case 0x610: text = "Pentium Pro"; break;
      case 0x630: case 0x650: text = "Pentium II"; break;
      default: text = FamilyClass(one.eax); break;
    }
  } else if (EqualNoCase(vendor, "CyrixInstead")) {
    switch (one.eax & 0xF0) {
      case 0x00: text = "6x86MX"; break;
      case 0x20: text = "6x86"; break;
      case 0x40: text = "GXm"; break;
      case 0x90: text = "5x86"; break;
      default: text = FamilyClass(one.eax); break;
    }
  } else {  // "NexGenDriven" and every other vendor
    text = FamilyClass(one.eax);
  }
  if (!text) {
    Io().free(name);
    return nullptr;
  }
  CopyText(name, text, 49);
  if (one.edx & (1u << 23)) AppendText(name, " MMX", 49);
  return name;
}

int CollectSysInfo(SnapshotRecord* rec) {
  SysInfoItem** tail = &rec->sysInfo;
  while (*tail) tail = &(*tail)->next;
  for (uint16_t number = 1; number <= 16; ++number) {
    SysInfoItem* item = nullptr;
    switch (number) {
      case 1: {
        SYSTEM_INFO si;
        Sys().GetSystemInfo(&si);
        if (!(item = NewItem(number))) return -1;
        item->value = si.dwProcessorType == 386 ? 3 : si.dwProcessorType == 486 ? 4 : si.dwProcessorType == 586 ? 5 : 2;
        break;
      }
      case 2: {
        // The key is opened and never looked at again (nor closed): the product reports a
        // coprocessor on every machine it runs on.
        HKEY key;
        Sys().RegOpenKeyA(HKEY_LOCAL_MACHINE, "HARDWARE\\DESCRIPTION\\System\\FloatingPointProcessor", &key);
        if (!(item = NewItem(number))) return -1;
        item->value = 1;
        break;
      }
      case 3: {
        MEMORYSTATUS ms;
        ms.dwLength = sizeof ms;
        Sys().GlobalMemoryStatus(&ms);
        if (!(item = NewItem(number))) return -1;
        item->value = static_cast<int32_t>(ms.dwTotalPhys >> 10);
        break;
      }
      case 5: {
        DWORD v = Sys().GetVersion();
        if (!(item = NewItem(number))) return -1;
        item->value = static_cast<int32_t>((v & 0xFF) << 16 | ((v >> 8) & 0xFF));
        break;
      }
      case 9: {
        char vendor[13];
        if (!ProcessorVendor(vendor)) continue;
        if (!(item = NewItem(number))) return -1;
        item->text = static_cast<char*>(Io().calloc(13, 1));
        if (!item->text) {
          Io().free(item);
          return -1;
        }
        std::memcpy(item->text, vendor, 13);
        break;
      }
      case 16: {
        char* name = IdentifyProcessor();
        if (!name) continue;
        if (!(item = NewItem(number))) {
          Io().free(name);
          return -1;
        }
        item->text = name;
        break;
      }
      default:
        continue;
    }
    *tail = item;
    tail = &item->next;
  }
  return 0;
}

int WriteSysInfoSection(FILE* f, SnapshotRecord* rec) {
  CollectSysInfo(rec);
  WriteSysInfoRecords(f, rec->sysInfo);
  return 0;
}

uint32_t ClustersToKB(uint32_t c, uint32_t spc, uint32_t bps) {
  bool shifted = false;
  if (c > 0x10000) {
    c >>= 10;
    shifted = true;
  }
  c *= spc;
  if (!shifted && c > 0x10000) {
    c >>= 10;
    shifted = true;
  }
  c *= bps;
  if (!shifted) c >>= 10;
  return c;
}

int GetDriveSpaceKB(const char* root, uint32_t* freeKB, uint32_t* totalKB) {
  *freeKB = 0;
  *totalKB = 0;
  OSVERSIONINFOA vi;
  std::memset(&vi, 0, sizeof vi);
  vi.dwOSVersionInfoSize = 148;
  bool useEx = Sys().GetVersionExA(&vi) && vi.dwPlatformId == 1 && (vi.dwBuildNumber & 0xFFFF) > 1000;
  if (useEx) {
    // Windows 95 OSR2 and later only; NT keeps the older call on purpose.
    using ExFn = BOOL(WINAPI*)(LPCSTR, PULARGE_INTEGER, PULARGE_INTEGER, PULARGE_INTEGER);
    HMODULE k32 = Sys().LoadLibraryA("kernel32.DLL");
    auto fn = k32 ? reinterpret_cast<ExFn>(reinterpret_cast<void*>(Sys().GetProcAddress(k32, "GetDiskFreeSpaceExA")))
                  : nullptr;
    if (fn) {
      ULARGE_INTEGER avail, total, totalFree;
      if (fn(root, &avail, &total, &totalFree)) {
        *freeKB = (totalFree.LowPart >> 10) | ((totalFree.HighPart & 0x3FF) << 22);
        *totalKB = (total.LowPart >> 10) | ((total.HighPart & 0x3FF) << 22);
      }
      Sys().FreeLibrary(k32);
      return 1;
    }
    if (k32) Sys().FreeLibrary(k32);
  }
  DWORD spc, bps, freeClusters, totalClusters;
  if (Sys().GetDiskFreeSpaceA(root, &spc, &bps, &freeClusters, &totalClusters)) {
    *freeKB = ClustersToKB(freeClusters, spc, bps);
    *totalKB = ClustersToKB(totalClusters, spc, bps);
  }
  return 1;
}

int CollectDrives(SnapshotRecord* rec) {
  auto* table = static_cast<DriveEntry*>(Io().calloc(26, sizeof(DriveEntry)));
  if (!table) return 0;
  for (int i = 0; i < 26; ++i) {
    char root[4] = {static_cast<char>('A' + i), ':', '\\', '\0'};
    UINT type = Sys().GetDriveTypeA(root);
    if (type == DRIVE_NO_ROOT_DIR) type = 0;
    if (type == 0) continue;
    DriveEntry& d = table[i];
    d.type = type;
    if (type != DRIVE_REMOVABLE && type != DRIVE_CDROM) GetDriveSpaceKB(root, &d.freeKB, &d.totalKB);
    if (type == DRIVE_REMOTE) {
      char local[3] = {root[0], ':', '\0'};
      char remote[80] = "";
      DWORD len = sizeof remote;
      if (Sys().WNetGetConnectionA(local, remote, &len) == NO_ERROR) {
        remote[sizeof remote - 1] = '\0';
        char* blank = std::strchr(remote, ' ');
        if (blank) *blank = '\0';
        CopyText(d.netName, remote, sizeof d.netName);
      }
    }
  }
  Io().free(rec->drives);
  rec->drives = table;
  return 0;
}

int WriteDrivesSection(FILE* f, SnapshotRecord* rec) {
  CollectDrives(rec);
  WriteDriveRecords(f, rec->drives);
  return 0;
}

}  // namespace orvalis
