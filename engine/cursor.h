#pragma once
#include "engine/sys.h"

namespace orvalis {

// The hourglass for the length of a long operation. Restore() puts the previous cursor back;
// paths that keep the wait cursor up simply never call it.
class WaitCursor {
 public:
  WaitCursor() : previous_(Sys().SetCursor(Sys().LoadCursorA(nullptr, IDC_WAIT))) {}
  void Restore() { Sys().SetCursor(previous_); }

 private:
  HCURSOR previous_;
};

}  // namespace orvalis
