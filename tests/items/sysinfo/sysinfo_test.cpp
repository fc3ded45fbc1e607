// System information and drives under Wine, the processor behind a stand-in CPUID.
#include <cstring>

#include "engine/context.h"
#include "engine/sys.h"
#include "items/sysinfo/sysinfo.h"
#include "tests/support/engine_sandbox.h"

using namespace orvalis;
using namespace orvalis_test;

namespace {

struct FakeCpu {
  const char* vendor;
  uint32_t signature;  // leaf 1 EAX
  uint32_t features;   // leaf 1 EDX
  const char* brand = nullptr;  // AMD brand string (48 characters at most)
};
FakeCpu g_cpu;
int g_cpuidCalls = 0;
DWORD g_processorType = 586;

void FakeCpuid(uint32_t leaf, CpuidRegs* r) {
  ++g_cpuidCalls;
  *r = {0, 0, 0, 0};
  char brand[48] = {};
  if (leaf == 0) {
    r->eax = 1;
    std::memcpy(&r->ebx, g_cpu.vendor, 4);
    std::memcpy(&r->edx, g_cpu.vendor + 4, 4);
    std::memcpy(&r->ecx, g_cpu.vendor + 8, 4);
  } else if (leaf == 1) {
    *r = {g_cpu.signature, 0, 0, g_cpu.features};
  } else if (leaf >= 0x80000002u && leaf <= 0x80000004u) {
    std::strncpy(brand, g_cpu.brand ? g_cpu.brand : "", sizeof brand);
    std::memcpy(r, brand + 16 * (leaf - 0x80000002u), 16);  // eax, ebx, ecx, edx in order
  }
}

void WINAPI FakeSystemInfo(LPSYSTEM_INFO si) {
  GetSystemInfo(si);
  si->dwProcessorType = g_processorType;
}

class CpuTest : public ::testing::Test {
 protected:
  void SetUp() override {
    SetCpuidSource(FakeCpuid);
    Sys().GetSystemInfo = FakeSystemInfo, g_processorType = 586;
  }
  void TearDown() override { SetCpuidSource(nullptr); }
  EngineSandbox box_;
};

std::string Items(const SysInfoItem* list) {
  std::string s;
  for (; list; list = list->next)
    s += std::to_string(list->item) + "=" + (list->text ? list->text : std::to_string(list->value)) + " ";
  return s;
}

UINT WINAPI ThreeDrives(LPCSTR root) {
  return root[0] == 'A' ? DRIVE_REMOVABLE : root[0] == 'C' ? DRIVE_FIXED : root[0] == 'N' ? DRIVE_REMOTE
         : root[0] == 'Q' ? DRIVE_NO_ROOT_DIR : DRIVE_UNKNOWN;
}
BOOL WINAPI FixedSpace(LPCSTR, LPDWORD spc, LPDWORD bps, LPDWORD freeClusters, LPDWORD totalClusters) {
  return *spc = 64, *bps = 512, *freeClusters = 2000000, *totalClusters = 3000000, TRUE;
}
DWORD WINAPI Connection(LPCSTR local, LPSTR remote, LPDWORD len) {
  lstrcpynA(remote, "\\\\server\\share extra words", *len);
  return local[0] == 'N' ? NO_ERROR : ERROR_NOT_CONNECTED;
}

struct Item { uint16_t item; int32_t value; const char* text = nullptr; };
// Heap nodes, as a section reader makes them.
SysInfoItem* Chain(const std::vector<Item>& items) {
  SysInfoItem* head = nullptr;
  SysInfoItem** tail = &head;
  for (const Item& i : items) {
    *tail = static_cast<SysInfoItem*>(calloc(1, sizeof(SysInfoItem)));
    **tail = {0, nullptr, i.item, i.value, i.text ? strdup(i.text) : nullptr};
    tail = &(*tail)->next;
  }
  return head;
}

TEST_F(CpuTest, ProcessorItemsProbeSettingReportSectionsDocumentElementsAndDrives) {
  const uint32_t mmx = 1u << 23;
  const struct { FakeCpu cpu; const char* name; } rows[] = {  // null: no item 16
      {{"GenuineIntel", 0x543, 0}, "Pentium"}, {{"GenuineIntel", 0x513, mmx}, "Pentium MMX"},
      {{"GenuineIntel", 0x617, 0}, "Pentium Pro"}, {{"GenuineIntel", 0x653, mmx}, "Pentium II MMX"},
      {{"GenuineIntel", 0x1633, 0}, "686 Class"},  // type bits set: not the table
      {{"GenuineIntel", 0x681, mmx}, "686 Class MMX"}, {{"GenuineIntel", 0x480, 0}, "486 Class"},
      {{"GenuineIntel", 0xF29, mmx}, nullptr},  // family 15: no name at all
      {{"AuthenticAMD", 0x612, mmx, "AMD Athlon(tm) Processor"}, "AMD Athlon(tm) Processor"},
      {{"CyrixInstead", 0x600, 0}, "6x86MX"}, {{"CyrixInstead", 0x520, mmx}, "6x86 MMX"},
      {{"CyrixInstead", 0x540, 0}, "GXm"}, {{"CyrixInstead", 0x490, 0}, "5x86"}, {{"CyrixInstead", 0x530, 0}, "586 Class"},
      {{"CentaurHauls", 0x585, mmx}, "586 Class MMX"}, {{"CentaurHauls", 0x385, mmx}, nullptr}};
  for (const auto& r : rows) {
    g_cpu = r.cpu;
    char* name = IdentifyProcessor();
    EXPECT_STREQ(name, r.name) << r.cpu.vendor << " " << r.cpu.signature;
    free(name);
  }
  // CPUID runs only from a 586 on, and not with NO_CPUID_SUPPORT.
  g_cpu = {"GenuineIntel", 0x633, 1u << 23, nullptr};
  MEMORYSTATUS ms;
  ms.dwLength = sizeof ms;
  GlobalMemoryStatus(&ms);
  const DWORD v = GetVersion();  // item 5 is major.minor as 0xMMMMmmmm
  const std::string common = "2=1 3=" + std::to_string(ms.dwTotalPhys >> 10) + " 5=" +
                             std::to_string((v & 0xFF) << 16 | ((v >> 8) & 0xFF)) + " ";
  const std::string cpu = "9=GenuineIntel 16=Pentium II MMX ";
  const struct { const char* noCpuid; DWORD type; std::string items; } collected[] = {
      {"0", 586, "1=5 " + common + cpu}, {"1", 586, "1=5 " + common}, {"0", 486, "1=4 " + common},
      {"0", 8664, "1=2 " + common + cpu}};
  for (const auto& r : collected) {
    box_.SetOrvalis("NO_CPUID_SUPPORT", r.noCpuid);
    InitEngine();
    g_processorType = r.type, g_cpuidCalls = 0;
    SnapshotRecord rec{};
    ASSERT_EQ(CollectSysInfo(&rec), 0);
    EXPECT_EQ(Items(rec.sysInfo), r.items);
    EXPECT_EQ(g_cpuidCalls > 0, r.items.find("9=") != std::string::npos) << "never executed when not allowed";
    ClearSnapshotRecord(&rec);
  }
  // The name supersedes the class; a change of free space is shown but not flagged.
  box_.CopyFromBin("TAMBRELL.DLL");
  SnapshotRecord older{}, newer{};
  lstrcpynA(older.description, "BASE0000.BCF", 260);
  lstrcpynA(newer.description, "BASE0001.BCF", 260);
  older.sysInfo = Chain({{1, 5}, {2, 1}, {3, 65536}, {5, 0x0004000A}});
  newer.sysInfo = Chain({{1, 5}, {2, 1}, {3, 131072}, {5, 0x00050000}, {16, 0, "Pentium II MMX"}});
  SysCompareResult r{};
  ASSERT_EQ(CompareSysInfo(&older, &newer, &r), 0);
  EXPECT_EQ(WrittenBy([&](FILE* f) { WriteSysInfoReport(f, &r); }),
            "System Information\r\n\r\n"
            "                  BASE0000.BCF  BASE0001.BCF\r\n"
            "  Coprocessor     Present       Present\r\n"
            "**Memory          65536K        131072K\r\n"
            "**Windows version 4.10          5.00\r\n"
            "**Processor       Not available Pentium II MMX\r\n\r\n");
  FreeSysInfoChanges(r.sysInfo);
  r = {};
  ASSERT_EQ(CompareSysInfo(&older, nullptr, &r), 0);
  EXPECT_STREQ(r.sysInfo->text, "This information is not contained in the newer snapshot");
  FreeSysInfoChanges(r.sysInfo);
  r = {};
  FreeSysInfoList(older.sysInfo);
  FreeSysInfoList(newer.sysInfo);
  DriveEntry olderDrives[26] = {}, newerDrives[26] = {};
  olderDrives[2] = {DRIVE_FIXED, 1000, 2000, ""};
  newerDrives[2] = {DRIVE_FIXED, 900, 2000, ""};
  newerDrives[3] = {DRIVE_CDROM, 0, 0, ""};
  olderDrives[13] = {DRIVE_REMOTE, 5, 10, "\\\\a\\x"};
  newerDrives[13] = {DRIVE_REMOTE, 5, 10, "\\\\b\\x"};
  lstrcpynA(older.description, "Monday", 260);
  lstrcpynA(newer.description, "Tuesday, after the printer driver update", 260);
  older.drives = olderDrives;
  newer.drives = newerDrives;
  ASSERT_EQ(CompareDrives(&older, &newer, &r), 0);
  EXPECT_STREQ(r.newerLabel, "Tuesday, after the printer driv");  // the header's 31 characters
  lstrcpynA(r.newerLabel, "Tuesday", 32);
  EXPECT_EQ(WrittenBy([&](FILE* f) { WriteDrivesReport(f, &r); }),
            "Drives\r\n\r\n"
            "      Monday       Tuesday     \r\n"
            "  C:  1000 KB free 900 KB free Fixed\r\n"
            "+ D:  Not present  0 KB free   CDROM\r\n"
            "  N:  5 KB free    5 KB free   Network\r\n"
            "      \\\\a\\x        \\\\b\\x       \r\n\r\n");
  FreeDriveChanges(r.drives);
  r = {};
  ASSERT_EQ(CompareDrives(nullptr, &newer, &r), 0);
  EXPECT_STREQ(r.drives->text, "Drive information is not contained in the older snapshot");
  FreeDriveChanges(r.drives);
  // The elements of the information document, kept as they are: without a processor name the CPU
  // element shows the last odd-numbered item's value (item 9's 0), and a drive type without a letter
  // ends its line at the zero character. (The document with a name is checked whole with the
  // snapshot information document.)
  char line[520];
  const std::pair<std::vector<Item>, const char*> elements[] = {{{{9, 0, "GenuineIntel"}}, "0"}, {{}, "262154"}};
  for (const auto& [cpu, text] : elements) {
    SysInfoItem* list = Chain({{1, 5}, {2, 1}, {3, 65536}, {5, 0x0004000A}});
    list->next->next->next->next = Chain(cpu);
    const std::string doc = WrittenBy([&](FILE* f) { WriteSysInfoXml(line, f, list); });
    EXPECT_NE(doc.find(std::string("      <CPU>") + text + "</CPU>\r\n"), std::string::npos) << doc;
    FreeSysInfoList(list);
  }
  DriveEntry table[26] = {};
  table[0] = {DRIVE_REMOVABLE, 0, 0, ""};
  table[13] = {DRIVE_REMOTE, 5, 10, "\\\\srv\\x"};
  table[17] = {DRIVE_RAMDISK, 1, 1, ""};
  EXPECT_EQ(WrittenBy([&](FILE* f) { WriteDrivesXml(line, f, table); }),
            "      <DRIVE>\r\n        <DRVNAME>A:</DRVNAME>\r\n        <DRVTYPE type=\"R\"/>\r\n"
            "        <DRVSPACE>Removable media</DRVSPACE>\r\n      </DRIVE>\r\n"
            "      <DRIVE>\r\n        <DRVNAME>N:</DRVNAME>\r\n        <DRVTYPE type=\"N\"/>\r\n"
            "        <DRVSPACE>5 KB free</DRVSPACE>\r\n        <DRVNET>\\\\srv\\x</DRVNET>\r\n      </DRIVE>\r\n"
            "      <DRIVE>\r\n        <DRVNAME>R:</DRVNAME>\r\n        <DRVTYPE type=\""
            "        <DRVSPACE>1 KB free</DRVSPACE>\r\n      </DRIVE>\r\n");
  // The space of C: and N: is the overflow guard's large case: shifted first, never again.
  EXPECT_EQ(ClustersToKB(1000, 8, 512), 4000u);      // small: shifted at the end
  EXPECT_EQ(ClustersToKB(0x10000, 2, 512), 65536u);  // 0x20000 after SPC: shifted there
  Sys().GetDriveTypeA = ThreeDrives, Sys().GetDiskFreeSpaceA = FixedSpace, Sys().WNetGetConnectionA = Connection;
  SnapshotRecord rec{};
  EXPECT_EQ(WrittenBy([&](FILE* f) { WriteDrivesSection(f, &rec); }),
            "[DRIVES_START]\r\nA,2,0,0,\r\nC,3,95977472,63995904,\r\nN,4,95977472,63995904,\\\\server\\share\r\n"
            "[DRIVES_END]\r\n");
  ClearSnapshotRecord(&rec);
}

}  // namespace
