// The difference report, whole or one kind of item at a time.
//
// Every export: older, newer are index file names beside the engine (newer null or empty: the
// live system); report null or empty writes "ORVALIS.LOG" beside the engine. Results: 0; 87 older
// null or empty; 8 no memory; 110 the report cannot be opened; 29 it could not be written whole.
// append non-zero adds to an existing report without a second head; the whole report always
// starts a new file.
#include "base/results.h"
#include "drivers/report.h"
#include "engine/context.h"
#include "exports/exports.h"

using namespace orvalis;

namespace {

unsigned long Report(const char* older, const char* newer, const char* report, int append, unsigned sections) {
  InitEngine();
  return WriteDifferenceReport(older, newer, report, append != 0, sections);
}

}  // namespace

// CreateReportOfSnapshotDifferences (older, newer, report): all six sections.
extern "C" unsigned long CreateReportOfSnapshotDifferences(const char* older, const char* newer, const char* report) {
  return Report(older, newer, report, 0, kReportAll);
}

// CreateReportOfFileDifferences (older, newer, report, append): the system files section.
extern "C" unsigned long CreateReportOfFileDifferences(const char* older, const char* newer, const char* report,
                                                       int append) {
  return Report(older, newer, report, append, kReportFiles);
}

// CreateReportOfRegistryDifferences (older, newer, report, append): the registry section.
extern "C" unsigned long CreateReportOfRegistryDifferences(const char* older, const char* newer, const char* report,
                                                           int append) {
  return Report(older, newer, report, append, kReportRegistry);
}

// CreateReportOfDirectoryDifferences (older, newer, report, append): the directories section.
extern "C" unsigned long CreateReportOfDirectoryDifferences(const char* older, const char* newer, const char* report,
                                                            int append) {
  return Report(older, newer, report, append, kReportDirectories);
}

// CreateReportOfAssetDifferences (older, newer, report, append): the assets section.
extern "C" unsigned long CreateReportOfAssetDifferences(const char* older, const char* newer, const char* report,
                                                        int append) {
  return Report(older, newer, report, append, kReportAssets);
}

// CreateReportOfSysInfoDifferences (older, newer, report, append): the system information section.
extern "C" unsigned long CreateReportOfSysInfoDifferences(const char* older, const char* newer, const char* report,
                                                          int append) {
  return Report(older, newer, report, append, kReportSysInfo);
}

// CreateReportOfDriveDifferences (older, newer, report, append): the drives section.
extern "C" unsigned long CreateReportOfDriveDifferences(const char* older, const char* newer, const char* report,
                                                        int append) {
  return Report(older, newer, report, append, kReportDrives);
}
