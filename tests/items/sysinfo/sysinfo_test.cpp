// System information and drives: processor identification through a stand-in CPUID, the
// collected items under Wine, drive space arithmetic, comparisons and their renderings.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "engine/context.h"
#include "engine/sys.h"
#include "items/sysinfo/sysinfo.h"
#include "tests/support/engine_sandbox.h"

using namespace orvalis;
using orvalis_test::EngineSandbox;

namespace {

struct FakeCpu {
  const char* vendor;
  uint32_t signature;  // leaf 1 EAX
  uint32_t features;   // leaf 1 EDX
  const char* brand;   // AMD brand string (48 characters at most)
};
FakeCpu g_cpu;
int g_cpuidCalls = 0;

void FakeCpuid(uint32_t leaf, CpuidRegs* r) {
  ++g_cpuidCalls;
  *r = {0, 0, 0, 0};
  if (leaf == 0) {
    r->eax = 1;
    std::memcpy(&r->ebx, g_cpu.vendor, 4);
    std::memcpy(&r->edx, g_cpu.vendor + 4, 4);
    std::memcpy(&r->ecx, g_cpu.vendor + 8, 4);
  } else if (leaf == 1) {
    r->eax = g_cpu.signature;
    r->edx = g_cpu.features;
  } else if (leaf >= 0x80000002u && leaf <= 0x80000004u) {
    char brand[48] = {};
    std::strncpy(brand, g_cpu.brand ? g_cpu.brand : "", sizeof brand);
    std::memcpy(r, brand + 16 * (leaf - 0x80000002u), 16);  // eax, ebx, ecx, edx in order
  }
}

DWORD g_processorType = 586;
void WINAPI FakeSystemInfo(LPSYSTEM_INFO si) {
  GetSystemInfo(si);
  si->dwProcessorType = g_processorType;
}

class CpuTest : public ::testing::Test {
 protected:
  void SetUp() override {
    SetCpuidSource(FakeCpuid);
    Sys().GetSystemInfo = FakeSystemInfo;
    g_processorType = 586;
    g_cpuidCalls = 0;
  }
  void TearDown() override { SetCpuidSource(nullptr); }
  EngineSandbox box_;
};

TEST_F(CpuTest, ProcessorNames) {
  const uint32_t mmx = 1u << 23;
  struct Row {
    FakeCpu cpu;
    const char* name;  // null: no item 16
  } rows[] = {
      {{"GenuineIntel", 0x543, 0, nullptr}, "Pentium"},
      {{"GenuineIntel", 0x513, mmx, nullptr}, "Pentium MMX"},
      {{"GenuineIntel", 0x617, 0, nullptr}, "Pentium Pro"},
      {{"GenuineIntel", 0x633, 0, nullptr}, "Pentium II"},
      {{"GenuineIntel", 0x653, mmx, nullptr}, "Pentium II MMX"},
      {{"GenuineIntel", 0x1633, 0, nullptr}, "686 Class"},  // type bits set: not the table
      {{"GenuineIntel", 0x681, mmx, nullptr}, "686 Class MMX"},
      {{"GenuineIntel", 0x480, 0, nullptr}, "486 Class"},
      {{"GenuineIntel", 0xF29, mmx, nullptr}, nullptr},  // family 15: no name at all
      {{"AuthenticAMD", 0x612, mmx, "AMD Athlon(tm) Processor"}, "AMD Athlon(tm) Processor"},
      {{"CyrixInstead", 0x600, 0, nullptr}, "6x86MX"},
      {{"CyrixInstead", 0x520, mmx, nullptr}, "6x86 MMX"},
      {{"CyrixInstead", 0x540, 0, nullptr}, "GXm"},
      {{"CyrixInstead", 0x490, 0, nullptr}, "5x86"},
      {{"CyrixInstead", 0x530, 0, nullptr}, "586 Class"},
      {{"NexGenDriven", 0x540, 0, nullptr}, "586 Class"},
      {{"CentaurHauls", 0x585, mmx, nullptr}, "586 Class MMX"},
      {{"CentaurHauls", 0x385, mmx, nullptr}, nullptr},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(std::string(r.cpu.vendor) + " " + std::to_string(r.cpu.signature));
    g_cpu = r.cpu;
    char* name = IdentifyProcessor();
    EXPECT_STREQ(name, r.name);
    free(name);
  }
}

std::string Items(const SysInfoItem* list) {
  std::string s;
  for (; list; list = list->next)
    s += std::to_string(list->item) + "=" + (list->text ? list->text : std::to_string(list->value)) + " ";
  return s;
}

// CPUID runs only from a 586 on and not when ORVALIS.INI says NO_CPUID_SUPPORT; a coprocessor is
// reported always.
TEST_F(CpuTest, CollectedItemsAndTheProbeSetting) {
  g_cpu = {"GenuineIntel", 0x633, 1u << 23, nullptr};
  MEMORYSTATUS ms;
  ms.dwLength = sizeof ms;
  GlobalMemoryStatus(&ms);
  const DWORD v = GetVersion();  // item 5 is major.minor as 0xMMMMmmmm
  const std::string common = "2=1 3=" + std::to_string(ms.dwTotalPhys >> 10) + " 5=" +
                             std::to_string((v & 0xFF) << 16 | ((v >> 8) & 0xFF)) + " ";
  struct Row {
    const char* noCpuid;
    DWORD type;
    std::string items;
  } rows[] = {{"0", 586, "1=5 " + common + "9=GenuineIntel 16=Pentium II MMX "},
              {"1", 586, "1=5 " + common},
              {"0", 486, "1=4 " + common},
              {"0", 8664, "1=2 " + common + "9=GenuineIntel 16=Pentium II MMX "}};
  for (const Row& r : rows) {
    SCOPED_TRACE(r.items);
    box_.SetOrvalis("NO_CPUID_SUPPORT", r.noCpuid);
    InitEngine();
    g_processorType = r.type;
    g_cpuidCalls = 0;
    SnapshotRecord rec{};
    ASSERT_EQ(CollectSysInfo(&rec), 0);
    EXPECT_EQ(Items(rec.sysInfo), r.items);
    EXPECT_EQ(g_cpuidCalls > 0, r.items.find("9=") != std::string::npos);  // never executed when not allowed
    ClearSnapshotRecord(&rec);
  }
}

TEST(DriveSpace, ClusterArithmeticKeepsTheOverflowGuard) {
  struct Row {
    uint32_t clusters, spc, bps, kb;
  } rows[] = {
      {2000000, 64, 512, 63995904},  // shifted first, never again
      {1000, 8, 512, 4000},          // small: shifted at the end
      {0x10000, 2, 512, 65536},      // 0x20000 after SPC: shifted there
      {0, 64, 512, 0},
  };
  for (const Row& r : rows) EXPECT_EQ(ClustersToKB(r.clusters, r.spc, r.bps), r.kb) << r.clusters;
}

// What write(f) puts into a text-mode file of the sandbox.
template <typename Write>
std::string Written(const EngineSandbox& box, Write write) {
  FILE* f = fopen(box.file("out.txt").c_str(), "w");
  write(f);
  fclose(f);
  return orvalis_test::ReadWholeFile(box.file("out.txt"));
}

UINT WINAPI ThreeDrives(LPCSTR root) {
  switch (root[0]) {
    case 'A': return DRIVE_REMOVABLE;
    case 'C': return DRIVE_FIXED;
    case 'N': return DRIVE_REMOTE;
    case 'Q': return DRIVE_NO_ROOT_DIR;
    default: return DRIVE_UNKNOWN;
  }
}
BOOL WINAPI FixedSpace(LPCSTR, LPDWORD spc, LPDWORD bps, LPDWORD freeC, LPDWORD totalC) {
  *spc = 64;
  *bps = 512;
  *freeC = 2000000;
  *totalC = 3000000;
  return TRUE;
}
DWORD WINAPI Connection(LPCSTR local, LPSTR remote, LPDWORD len) {
  lstrcpynA(remote, "\\\\server\\share extra words", *len);
  return local[0] == 'N' ? NO_ERROR : ERROR_NOT_CONNECTED;
}

TEST(Drives, TableAndSectionFromTheDriveCalls) {
  EngineSandbox box;
  Sys().GetDriveTypeA = ThreeDrives;
  Sys().GetDiskFreeSpaceA = FixedSpace;
  Sys().WNetGetConnectionA = Connection;
  SnapshotRecord rec{};
  EXPECT_EQ(Written(box, [&](FILE* f) { WriteDrivesSection(f, &rec); }),
            "[DRIVES_START]\r\nA,2,0,0,\r\nC,3,95977472,63995904,\r\nN,4,95977472,63995904,\\\\server\\share\r\n"
            "[DRIVES_END]\r\n");
  ClearSnapshotRecord(&rec);
}

SysInfoItem* Item(uint16_t n, int32_t v, const char* text = nullptr) {
  auto* i = static_cast<SysInfoItem*>(calloc(1, sizeof(SysInfoItem)));
  i->item = n;
  i->value = v;
  if (text) i->text = strdup(text);
  return i;
}
SysInfoItem* Chain(std::initializer_list<SysInfoItem*> items) {
  SysInfoItem* head = nullptr;
  SysInfoItem** tail = &head;
  for (SysInfoItem* i : items) {
    *tail = i;
    tail = &i->next;
  }
  return head;
}

TEST(SysInfoCompare, EveryItemGivesALineAndTheNameSupersedesTheClass) {
  EngineSandbox box;
  box.CopyFromBin("TAMBRELL.DLL");
  SysInfoItem* older = Chain({Item(1, 5), Item(2, 1), Item(3, 65536), Item(5, 0x0004000A)});
  SysInfoItem* newer = Chain({Item(1, 5), Item(2, 1), Item(3, 131072), Item(5, 0x00050000),
                              Item(16, 0, "Pentium II MMX")});
  SysCompareResult r{};
  SnapshotRecord olderRec{}, newerRec{};
  lstrcpynA(olderRec.description, "BASE0000.BCF", 260);
  lstrcpynA(newerRec.description, "BASE0001.BCF", 260);
  olderRec.sysInfo = older;
  newerRec.sysInfo = newer;
  ASSERT_EQ(CompareSysInfo(&olderRec, &newerRec, &r), 0);
  EXPECT_EQ(Written(box, [&](FILE* f) { WriteSysInfoReport(f, &r); }),
            "System Information\r\n\r\n"
            "                  BASE0000.BCF  BASE0001.BCF\r\n"
            "  Coprocessor     Present       Present\r\n"
            "**Memory          65536K        131072K\r\n"
            "**Windows version 4.10          5.00\r\n"
            "**Processor       Not available Pentium II MMX\r\n\r\n");
  FreeSysInfoChanges(r.sysInfo);
  r.sysInfo = nullptr;
  ASSERT_EQ(CompareSysInfo(&olderRec, nullptr, &r), 0);
  EXPECT_STREQ(r.sysInfo->text, "This information is not contained in the newer snapshot");
  FreeSysInfoChanges(r.sysInfo);
  FreeSysInfoList(older);
  FreeSysInfoList(newer);
}

TEST(DriveCompare, PresenceAndNetworkNamesMarkChanges) {
  EngineSandbox box;
  box.CopyFromBin("TAMBRELL.DLL");
  DriveEntry older[26] = {}, newer[26] = {};
  older[2] = {DRIVE_FIXED, 1000, 2000, ""};
  newer[2] = {DRIVE_FIXED, 900, 2000, ""};  // free space differs: shown, not flagged
  newer[3] = {DRIVE_CDROM, 0, 0, ""};
  older[13] = {DRIVE_REMOTE, 5, 10, "\\\\a\\x"};
  newer[13] = {DRIVE_REMOTE, 5, 10, "\\\\b\\x"};
  SysCompareResult r{};
  SnapshotRecord olderRec{}, newerRec{};
  // The labels are the descriptions, cut to the header's 31 characters.
  lstrcpynA(olderRec.description, "Monday", 260);
  lstrcpynA(newerRec.description, "Tuesday, after the printer driver update", 260);
  olderRec.drives = older;
  newerRec.drives = newer;
  ASSERT_EQ(CompareDrives(&olderRec, &newerRec, &r), 0);
  EXPECT_STREQ(r.newerLabel, "Tuesday, after the printer driv");
  lstrcpynA(r.newerLabel, "Tuesday", 32);
  // A changed network name marks the drive and its name line; the report does not show it.
  for (DriveChange* c = r.drives; c; c = c->next) EXPECT_EQ((c->flags & 4) != 0, c->drive == 13) << c->text;
  EXPECT_EQ(Written(box, [&](FILE* f) { WriteDrivesReport(f, &r); }),
            "Drives\r\n\r\n"
            "      Monday       Tuesday     \r\n"
            "  C:  1000 KB free 900 KB free Fixed\r\n"
            "+ D:  Not present  0 KB free   CDROM\r\n"
            "  N:  5 KB free    5 KB free   Network\r\n"
            "      \\\\a\\x        \\\\b\\x       \r\n\r\n");
  FreeDriveChanges(r.drives);
  r.drives = nullptr;
  ASSERT_EQ(CompareDrives(nullptr, &newerRec, &r), 0);
  EXPECT_STREQ(r.drives->text, "Drive information is not contained in the older snapshot");
  FreeDriveChanges(r.drives);
}

TEST(SysInfoXml, ElementsOfTheInformationDocument) {
  EngineSandbox box;
  box.CopyFromBin("TAMBRELL.DLL");
  struct Row {
    SysInfoItem* list;
    const char* cpu;
  } rows[] = {
      {Chain({Item(1, 5), Item(2, 1), Item(3, 65536), Item(5, 0x0004000A), Item(9, 0, "GenuineIntel"),
              Item(16, 0, "Pentium II")}),
       "Pentium II"},
      {Chain({Item(1, 5), Item(2, 1), Item(3, 65536), Item(5, 0x0004000A), Item(9, 0, "GenuineIntel")}), "0"},
      {Chain({Item(1, 5), Item(2, 1), Item(3, 65536), Item(5, 0x0004000A)}), "262154"},
  };
  for (const Row& r : rows) {
    char line[520];
    std::string doc = Written(box, [&](FILE* f) { WriteSysInfoXml(line, f, r.list); });
    EXPECT_NE(doc.find(std::string("      <CPU>") + r.cpu + "</CPU>\r\n"), std::string::npos) << doc;
    EXPECT_NE(doc.find("      <MEM>65536</MEM>\r\n      <WINVER>4.10</WINVER>\r\n"), std::string::npos);
    FreeSysInfoList(r.list);
  }
  DriveEntry table[26] = {};
  table[0] = {DRIVE_REMOVABLE, 0, 0, ""};
  table[13] = {DRIVE_REMOTE, 5, 10, "\\\\srv\\x"};
  table[17] = {DRIVE_RAMDISK, 1, 1, ""};
  char line[520];
  EXPECT_EQ(Written(box, [&](FILE* f) { WriteDrivesXml(line, f, table); }),
            "      <DRIVE>\r\n        <DRVNAME>A:</DRVNAME>\r\n        <DRVTYPE type=\"R\"/>\r\n"
            "        <DRVSPACE>Removable media</DRVSPACE>\r\n      </DRIVE>\r\n"
            "      <DRIVE>\r\n        <DRVNAME>N:</DRVNAME>\r\n        <DRVTYPE type=\"N\"/>\r\n"
            "        <DRVSPACE>5 KB free</DRVSPACE>\r\n        <DRVNET>\\\\srv\\x</DRVNET>\r\n      </DRIVE>\r\n"
            "      <DRIVE>\r\n        <DRVNAME>R:</DRVNAME>\r\n        <DRVTYPE type=\""  // the zero letter ends the line, newline too
            "        <DRVSPACE>1 KB free</DRVSPACE>\r\n      </DRIVE>\r\n");
}

}  // namespace
