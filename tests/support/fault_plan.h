// Fault plan for the engine's seam: counts every call of the fallible seam entries (the C runtime
// table and the Win32 calls that create, write, copy or allocate) and makes the n-th call of one
// chosen entry fail the way the system would (null, EOF, FALSE with a Win32 error). It also counts
// heap blocks and open files, so that a run can be checked for leaks. Installed on construction,
// the real calls put back on destruction.
#pragma once
#include <map>
#include <string>
#include <vector>

namespace orvalis_test {

class FaultPlan {
 public:
  FaultPlan();
  ~FaultPlan();
  FaultPlan(const FaultPlan&) = delete;
  FaultPlan& operator=(const FaultPlan&) = delete;

  // The entries that can be made to fail.
  static const std::vector<std::string>& Entries();
  // Fail the n-th call (from 1) of entry from now on; n 0 fails nothing. Resets the counters.
  void Arm(const std::string& entry, int n);
  // Calls of each entry since the last Arm.
  std::map<std::string, int> Calls() const;
  // Heap blocks taken and not given back, files opened and not closed, since the last Arm.
  long LiveBlocks() const;
  long OpenFiles() const;
};

}  // namespace orvalis_test
