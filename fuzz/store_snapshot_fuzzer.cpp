// Snapshot index files of any content: the reader must never overrun a field, crash or leak,
// and every text it keeps must fit its record. The date text of whatever time it read must fit
// its 64-byte buffer too.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/datetext.h"
#include "store/snapshot.h"

using namespace orvalis;

namespace {

void Check(const char* text, size_t cap) { if (std::strlen(text) >= cap) std::abort(); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string path = "/tmp/orvalis-fuzz-" + std::to_string(getpid()) + ".BCF";
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return 0;
  std::fwrite(data, 1, size, f);
  std::fclose(f);
  for (bool isNT : {true, false}) {
    SnapshotRecord* rec = NewSnapshotRecord();
    ReadSnapshotFile(path.c_str(), rec, isNT);
    Check(rec->description, sizeof rec->description);
    for (const SnapFileEntry* e = rec->files; e; e = e->next) {
      Check(e->path, sizeof e->path);
      Check(e->companion, sizeof e->companion);
    }
    for (SnapGroupEntry* list : {rec->regKeys, rec->assets, rec->dirs})
      for (const SnapGroupEntry* e = list; e; e = e->next) {
        Check(e->name, sizeof e->name);
        Check(e->companion, sizeof e->companion);
      }
    for (int i = 0; rec->drives && i < 26; ++i) Check(rec->drives[i].netName, sizeof rec->drives[i].netName);
    char stamp[64];
    if (FormatPackedDateTime(rec->time, stamp) >= 64) std::abort();
    FreeSnapshotRecord(rec);
  }
  char user[260];
  ReadUserNameSection(path.c_str(), user);
  Check(user, sizeof user);
  ReadOsVersionSection(path.c_str());
  return 0;
}
