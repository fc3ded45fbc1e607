// The difference report: a plain text file that lists, for a person to read, what changed between
// two snapshots or between a snapshot and the live system, section by section.
#pragma once
#include <cstdint>

namespace orvalis {

// Section bits, in the order the report writes them.
enum ReportSection : unsigned {
  kReportSysInfo = 1,
  kReportDrives = 2,
  kReportFiles = 4,
  kReportDirectories = 8,
  kReportRegistry = 16,
  kReportAssets = 32,
  kReportAll = 63,
};

// older, newer: index file names beside the engine; a null or empty newer is the live system.
// reportPath null or empty: "ORVALIS.LOG" beside the engine. append: open for appending, and
// write the head only when the file did not exist. 0; 87 older null or empty (nothing written);
// 8 no memory; 110 the report cannot be opened. A snapshot that cannot be read, or an item whose
// companion cannot be read, leaves its part of the report empty.
uint32_t WriteDifferenceReport(const char* older, const char* newer, const char* reportPath, bool append,
                               unsigned sections);

}  // namespace orvalis
