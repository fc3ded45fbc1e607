#include "engine/document.h"

#include "base/io.h"
#include "base/results.h"
#include "engine/strings.h"

namespace orvalis {

FILE* BeginDocument(const char* destination, const char* root, const char* dtd) {
  FILE* out = Io().fopen(destination, "wt");
  if (!out) {
    ShowDestinationError(destination);
    return nullptr;
  }
  std::fprintf(out, "%s\n", "<?xml version = \"1.0\"?>");
  std::fprintf(out, "<!DOCTYPE %s SYSTEM \"%s\">\n", root, dtd);
  std::fprintf(out, "<%s>\n", root);
  return out;
}

uint32_t EndDocument(FILE* out, const char* destination, const char* root) {
  std::fprintf(out, "</%s>\n", root);
  if (CloseChecked(out)) return kResultOk;
  Io().remove(destination);  // a document cut short by a full disk is no document
  return kResultWriteFault;
}

}  // namespace orvalis
