#include "items/dirtree/dirtree.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "base/io.h"
#include "base/lists.h"
#include "base/textutil.h"
#include "engine/filecodec_win.h"
#include "engine/files.h"
#include "engine/settings.h"
#include "engine/sys.h"
#include "store/store_win.h"

namespace orvalis {

const char kDirOnlyOlder[] = "The newer snapshot that was selected does not contain information about this directory";
const char kDirOnlyNewer[] = "The older snapshot that was selected does not contain information about this directory";
const char kDirInNeither[] =
    "Information about this directory is not contained in either of the snapshots that were selected";

namespace {

constexpr int kListingLine = 520;
constexpr int kMaxDepth = 300;  // deeper than any path that fits in MAX_PATH

// ---- Nodes ------------------------------------------------------------------------------------

DirNode* NewNode(uint16_t flags, const char* path, DirNode* parent, uint32_t time, uint32_t size) {
  // One block: the node and its MAX_PATH path buffer right behind it.
  auto* n = static_cast<DirNode*>(Io().calloc(1, sizeof(DirNode) + MAX_PATH));
  if (!n) return nullptr;
  n->path = reinterpret_cast<char*>(n + 1);
  CopyText(n->path, path, MAX_PATH);
  n->flags = static_cast<uint16_t>(flags | kDirAllocated);
  n->parent = parent;
  n->depth = parent ? static_cast<uint16_t>(parent->depth + 1) : 0;
  n->time = time;
  n->size = size;
  return n;
}

// Lists are sorted by path without regard to case, a new node going after every node that
// compares equal or lower.
// Siblings share their folder, so comparing from the name on gives the order of the paths.
const char* NamePart(const DirNode* n, size_t folderLength) { return n->path + folderLength; }

void InsertSorted(DirNode** head, DirNode** tail, DirNode* n) {
  if (!*head) {
    *head = *tail = n;
    return;
  }
  const DirNode* parent = n->parent;
  const size_t skip = parent ? std::strlen(parent->path) : 0;
  if (lstrcmpiA(NamePart(*tail, skip), NamePart(n, skip)) <= 0) {
    n->prev = *tail;
    (*tail)->next = n;
    *tail = n;
    return;
  }
  DirNode* at = *head;
  while (at && lstrcmpiA(NamePart(at, skip), NamePart(n, skip)) <= 0) at = at->next;
  // at is the first node above n (never null: the tail is above n).
  n->next = at;
  n->prev = at->prev;
  if (at->prev)
    at->prev->next = n;
  else
    *head = n;
  at->prev = n;
}

void InsertAfter(DirNode* at, DirNode* n, DirNode** tail) {
  n->prev = at;
  n->next = at->next;
  if (at->next)
    at->next->prev = n;
  else
    *tail = n;
  at->next = n;
}

void MarkUpwards(DirNode* dir) {
  for (; dir; dir = dir->parent) dir->flags |= kDirMarked | kDirChangeBelow;
}

// The older-side node of the same path that the newer side has not claimed yet. The hint makes
// the usual case, both sides in the same order, a step forward instead of a scan.
DirNode* Lookup(DirNode* head, DirNode*& hint, const char* path) {
  for (int pass = 0; pass < 2; ++pass) {
    DirNode* from = pass == 0 ? (hint ? hint : head) : head;
    DirNode* to = pass == 0 ? nullptr : hint;
    for (DirNode* n = from; n && n != to; n = n->next) {
      if ((n->flags & kDirOlder) && !(n->flags & kDirNewerCopy) && lstrcmpiA(n->path, path) == 0) {
        hint = n->next;
        return n;
      }
    }
    if (!hint) break;
  }
  return nullptr;
}

struct Entry {
  bool isDir;
  uint32_t size;
  uint32_t time;
  const char* path;
};

// Local DOS date and time of a file time. FileTimeToLocalFileTime applies the bias in force now,
// whatever the file's date, so one bias taken at the start of a walk gives the same result as
// converting every file through the system, at a fraction of the cost for large trees.
struct TimeConverter {
  int64_t bias;  // local minus UTC, in 100 ns units
  TimeConverter() {
    FILETIME utc, local;
    Sys().GetSystemTimeAsFileTime(&utc);
    Sys().FileTimeToLocalFileTime(&utc, &local);
    bias = static_cast<int64_t>(ToUnits(local) - ToUnits(utc));
  }
  static uint64_t ToUnits(const FILETIME& f) { return static_cast<uint64_t>(f.dwHighDateTime) << 32 | f.dwLowDateTime; }
  uint32_t Dos(const FILETIME& ft) const {
    const int64_t t = static_cast<int64_t>(ToUnits(ft)) + bias;
    if (t < 0) return 0;
    int64_t secs = t / 10000000;
    int64_t days = secs / 86400;
    const int secOfDay = static_cast<int>(secs % 86400);
    // Civil date from the day count (days since 1970-01-01; 1601 to 1970 is 134774 days).
    const int64_t z = days - 134774 + 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const int64_t doe = z - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    int64_t y = yoe + era * 400;
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    const int d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    const int m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    if (m <= 2) ++y;
    if (y < 1980) return 0;  // later years wrap in the 7-bit field, as the system's conversion does
    const uint32_t date = static_cast<uint32_t>(((y - 1980) & 0x7F) << 9 | m << 5 | d) & 0xFFFF;
    const uint32_t time = static_cast<uint32_t>((secOfDay / 3600) << 11 | ((secOfDay / 60) % 60) << 5 | (secOfDay % 60) / 2);
    return date << 16 | time;
  }
};

struct Walk {
  int side;               // 1 capture or older side, 2 newer side
  bool lookup;            // merging into an older tree
  const DirFilters* filters;
  bool failed = false;
  TimeConverter clock{};
};

// One entry of a directory, from the disk or from a listing: lookup, or a new node. Returns the
// directory node to descend into (null for files or on failure).
DirNode* Place(Walk& w, DirNode* dir, const Entry& e, DirNode*& fileHint, DirNode*& dirHint) {
  if (w.lookup) {
    if (e.isDir) {
      if (DirNode* found = Lookup(dir->subdirs, dirHint, e.path)) {
        found->flags &= ~kDirOlder;
        return found;
      }
    } else if (DirNode* found = Lookup(dir->files, fileHint, e.path)) {
      found->flags &= ~kDirOlder;
      if (found->size != e.size || found->time != e.time) {
        found->flags |= kDirModified;
        DirNode* copy = NewNode(kDirNewerCopy | kDirFile, e.path, dir, e.time, e.size);
        if (!copy) {
          w.failed = true;
          return nullptr;
        }
        InsertAfter(found, copy, &dir->lastFile);
        MarkUpwards(dir);
      }
      return nullptr;
    }
  }
  DirNode* n = NewNode(static_cast<uint16_t>(w.side | (e.isDir ? kDirDirectory : kDirFile)), e.path, dir, e.time,
                       e.isDir ? 0 : e.size);
  if (!n) {
    w.failed = true;
    return nullptr;
  }
  if (e.isDir) {
    InsertSorted(&dir->subdirs, &dir->lastSubdir, n);
    return n;
  }
  InsertSorted(&dir->files, &dir->lastFile, n);
  return nullptr;
}

// After a directory of the newer side: a change among its own entries marks it and upwards.
void MarkAfterNewerLevel(DirNode* dir) {
  if (dir->flags & kDirChangeBelow) return;
  for (DirNode* s = dir->subdirs; s; s = s->next)
    if (s->flags & (kDirOlder | kDirNewer | kDirModified)) {
      MarkUpwards(dir);
      return;
    }
  for (DirNode* f = dir->files; f; f = f->next)
    if (f->flags & (kDirOlder | kDirNewer | kDirModified)) {
      MarkUpwards(dir);
      return;
    }
}



// ---- The disk ---------------------------------------------------------------------------------

// dpath ends in "\" and fits MAX_PATH.
void WalkDisk(Walk& w, DirNode* dir, const char* dpath, bool skipIE) {
  if (w.failed) return;
  char pattern[MAX_PATH + 4];
  std::snprintf(pattern, sizeof pattern, "%s*.*", dpath);
  WIN32_FIND_DATAA fd;
  HANDLE h = Sys().FindFirstFileA(pattern, &fd);
  const size_t dlen = std::strlen(dpath);
  DirNode* fileHint = nullptr;
  DirNode* dirHint = nullptr;
  if (h != INVALID_HANDLE_VALUE) {
    do {
      const char* name = fd.cFileName;
      // Every name beginning with a dot is passed over, not only "." and "..": hidden folders
      // of that kind were never part of a snapshot.
      if (name[0] == '.') continue;
      if (skipIE && EqualNoCase(name, "Temporary Internet Files")) continue;
      const size_t nlen = std::strlen(name);
      if (nlen + dlen >= MAX_PATH) continue;
      const bool isDir = (fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
      if (!isDir && w.filters && !FilterAdmits(w.filters, name)) continue;
      char path[MAX_PATH];
      std::memcpy(path, dpath, dlen);
      std::memcpy(path + dlen, name, nlen + 1);
      Entry e{isDir, fd.nFileSizeLow, w.clock.Dos(fd.ftLastWriteTime), path};
      DirNode* into = Place(w, dir, e, fileHint, dirHint);
      if (w.failed) break;
      if (into && dlen + nlen + 1 < MAX_PATH) {
        path[dlen + nlen] = '\\';
        path[dlen + nlen + 1] = '\0';
        WalkDisk(w, into, path, skipIE);
        if (w.failed) break;
      }
    } while (Sys().FindNextFileA(h, &fd));
    Sys().FindClose(h);
  }
  if (w.side == 2) MarkAfterNewerLevel(dir);
}

// The root path of a tree: one trailing backslash, a drive root as it is.
bool RootPath(const char* path, char* out) {
  char p[MAX_PATH];
  CopyText(p, path, sizeof p);
  size_t n = std::strlen(p);
  if (n == 0) return false;
  if (n != 3 && p[n - 1] == '\\') p[--n] = '\0';
  return std::snprintf(out, MAX_PATH, "%s%s", p, (n == 3 && p[2] == '\\') ? "" : "\\") < MAX_PATH;
}

DirNode* NewRoot(const char* root) { return NewNode(kDirRoot | kDirDirectory | kDirMarked, root, nullptr, 0, 0); }

// ---- Listings -----------------------------------------------------------------------------------

struct Reader {
  FILE* f;
  char pending[kListingLine];
  bool havePending = false;
  bool done = false;
};

// kind,size,time,path; false when the line has fewer than three commas.
bool ParseListingLine(const char* line, Entry* e, char* pathBuf) {
  const char* c1 = std::strchr(line, ',');
  const char* c2 = c1 ? std::strchr(c1 + 1, ',') : nullptr;
  const char* c3 = c2 ? std::strchr(c2 + 1, ',') : nullptr;
  if (!c3) return false;
  e->isDir = std::atol(line) == 1024;
  e->size = static_cast<uint32_t>(std::strtoul(c1 + 1, nullptr, 10));
  e->time = static_cast<uint32_t>(std::strtoul(c2 + 1, nullptr, 10));
  CopyText(pathBuf, c3 + 1, MAX_PATH);
  e->path = pathBuf;
  return true;
}

bool StartsWithNoCase(const char* s, const char* prefix) {
  return CompareNoCaseN(s, prefix, std::strlen(prefix)) == 0;
}

void ReadLevel(Reader& r, Walk& w, DirNode* dir, const char* prefix, int depth) {
  DirNode* fileHint = nullptr;
  DirNode* dirHint = nullptr;
  const size_t plen = std::strlen(prefix);
  while (!r.done && !w.failed) {
    if (!r.havePending) {
      if (!ReadTextLine(r.pending, kListingLine, r.f)) {
        r.done = true;
        break;
      }
      r.havePending = true;
    }
    Entry e;
    char path[MAX_PATH];
    if (!ParseListingLine(r.pending, &e, path)) {
      r.done = true;  // a line without three commas ends the listing
      break;
    }
    if (!StartsWithNoCase(path, prefix)) break;  // belongs to a level above: hand it back
    r.havePending = false;
    const char* name = path + plen;
    if (!*name || std::strchr(name, '\\')) continue;  // not a direct entry of this level
    if (!e.isDir && w.filters && !FilterAdmits(w.filters, name)) continue;
    DirNode* into = Place(w, dir, e, fileHint, dirHint);
    if (into) {
      char sub[MAX_PATH];
      if (depth < kMaxDepth && std::snprintf(sub, sizeof sub, "%s\\", path) < MAX_PATH)
        ReadLevel(r, w, into, sub, depth + 1);
    }
  }
  if (w.side == 2) MarkAfterNewerLevel(dir);
}

// Opens a listing (expanding it first when compressed) and reads its root line. The expanded
// copy, when there is one, is named in tmp and must be deleted by the caller.
FILE* OpenListing(const char* listing, int compressed, char* root, char* tmp) {
  tmp[0] = '\0';
  const char* source = listing;
  if (compressed) {
    if (!SiblingPath(tmp, MAX_PATH, listing, "DIRTEMP1.TMP")) return nullptr;
    if (ExpandFile(tmp, listing) != 0) return nullptr;
    source = tmp;
  }
  FILE* f = Io().fopen(source, "rt");
  if (!f) return nullptr;
  char line[kListingLine];
  if (!ReadTextLine(line, kListingLine, f) || !RootPath(line, root)) {
    Io().fclose(f);
    return nullptr;
  }
  return f;
}

void CloseListing(FILE* f, const char* tmp) {
  if (f) Io().fclose(f);
  if (tmp[0]) Sys().DeleteFileA(tmp);
}

bool MergeListing(DirNode* older, const char* listing, int compressed, const DirFilters* filters) {
  char root[MAX_PATH], tmp[MAX_PATH];
  FILE* f = OpenListing(listing, compressed, root, tmp);
  if (!f) {
    CloseListing(nullptr, tmp);
    return false;
  }
  if (!EqualNoCase(root, older->path)) {
    CloseListing(f, tmp);
    return false;
  }
  Walk w{2, true, filters};
  Reader r{f, {}};
  ReadLevel(r, w, older, older->path, 0);
  CloseListing(f, tmp);
  return !w.failed;
}

// A live tree as side 1: a capture (no filters) or the older side of a comparison.
DirNode* CaptureTree(const char* path, const DirFilters* filters) {
  char root[MAX_PATH];
  if (!RootPath(path, root)) return nullptr;
  char bare[MAX_PATH];
  CopyText(bare, root, sizeof bare);
  if (std::strlen(bare) > 3) bare[std::strlen(bare) - 1] = '\0';
  if (!IsDirectory(bare)) return nullptr;
  DirNode* tree = NewRoot(root);
  if (!tree) return nullptr;
  Walk w{1, false, filters};
  WalkDisk(w, tree, root, ReadOrvalisInt("SkipIETempFiles", 1) != 0);
  if (w.failed) {
    FreeDirTree(tree);
    return nullptr;
  }
  return tree;
}

DirNode* MessageNode(const char* text) { return NewNode(kDirRoot | kDirDirectory, text, nullptr, 0, 0); }

// ---- Writing a listing ----------------------------------------------------------------------

void WriteLevel(FILE* f, const DirNode* dir) {
  for (const DirNode* s = dir->subdirs; s; s = s->next) {
    std::fprintf(f, "%i,%lu,%lu,%s\n", 1024, 0ul, static_cast<unsigned long>(s->time), s->path);
    WriteLevel(f, s);
  }
  for (const DirNode* n = dir->files; n; n = n->next)
    std::fprintf(f, "%i,%lu,%lu,%s\n", 2048, static_cast<unsigned long>(n->size), static_cast<unsigned long>(n->time),
                 n->path);
}

}  // namespace

// ---- Filters ----------------------------------------------------------------------------------

// One filter rule; the four lists are chains of heap records from the seam, so that running out
// of memory while loading them is an answer (8), not an exception.
struct FileFilter {
  FileFilter* next;
  char name[256];
  char ext[256];
};

struct DirFilters {
  FileFilter* includeByExt;
  FileFilter* includeByName;
  FileFilter* excludeByExt;
  FileFilter* excludeByName;
};

namespace {

// Appends the section's rules in key order. An empty value is a filter like any
// other (an empty name and extension). False when memory ran out.
bool LoadSection(const char* file, const char* section, FileFilter** byExt, FileFilter** byName) {
  char keys[2048];
  DWORD n = Sys().GetPrivateProfileStringA(section, nullptr, "", keys, sizeof keys, file);
  FileFilter** tails[2] = {byExt, byName};
  for (FileFilter** t : tails)
    while (*t) t = &(*t)->next;
  for (const char* k = keys; k < keys + n && *k; k += std::strlen(k) + 1) {
    char value[MAX_PATH];
    Sys().GetPrivateProfileStringA(section, k, "", value, sizeof value, file);
    auto* rule = static_cast<FileFilter*>(Io().calloc(1, sizeof(FileFilter)));
    if (!rule) return false;
    SplitFileName(value, rule->name, sizeof rule->name, rule->ext, sizeof rule->ext);
    FileFilter**& tail = tails[rule->name[0] == '*' ? 0 : 1];
    *tail = rule;
    tail = &rule->next;
  }
  return true;
}

bool Matches(const FileFilter* byExt, const FileFilter* byName, const char* name, const char* ext) {
  for (const FileFilter* s = byExt; s; s = s->next)
    if (EqualNoCase(s->ext, ext)) return true;
  for (const FileFilter* s = byName; s; s = s->next)
    if (EqualNoCase(s->name, name) && EqualNoCase(s->ext, ext)) return true;
  return false;
}

}  // namespace

int LoadDirFilters(const char* file, DirFilters** out) {
  *out = static_cast<DirFilters*>(Io().calloc(1, sizeof(DirFilters)));
  if (!*out) return 8;
  if (!LoadSection(file, "INC_FILTER", &(*out)->includeByExt, &(*out)->includeByName) ||
      !LoadSection(file, "EXC_FILTER", &(*out)->excludeByExt, &(*out)->excludeByName)) {
    FreeDirFilters(*out);
    *out = nullptr;
    return 8;
  }
  return 0;
}

void FreeDirFilters(DirFilters* filters) {
  if (!filters) return;
  FreeChain(filters->includeByExt);
  FreeChain(filters->includeByName);
  FreeChain(filters->excludeByExt);
  FreeChain(filters->excludeByName);
  Io().free(filters);
}

bool FilterAdmits(const DirFilters* f, const char* fileName) {
  if (!f) return true;
  char name[256], ext[256];
  SplitFileName(fileName, name, sizeof name, ext, sizeof ext);
  const bool noIncludes = !f->includeByExt && !f->includeByName;
  if (!noIncludes && !Matches(f->includeByExt, f->includeByName, name, ext)) return false;
  return !Matches(f->excludeByExt, f->excludeByName, name, ext);
}

// ---- Public operations ----------------------------------------------------------------------

DirNode* CaptureDirectory(const char* path) { return CaptureTree(path, nullptr); }

void FreeDirTree(DirNode* node) {
  while (node) {
    DirNode* next = node->next;
    FreeDirTree(node->subdirs);
    FreeDirTree(node->files);
    Io().free(node);  // the path lives in the same block
    node = next;
  }
}

int WriteDirListing(const char* target, const DirNode* tree, int compress, uint32_t* crc) {
  *crc = 0;
  char tmp[MAX_PATH];
  const char* out = target;
  if (compress) {
    if (!SiblingPath(tmp, sizeof tmp, target, "DIRTEMP.TMP")) return 0;
    out = tmp;
  }
  FILE* f = Io().fopen(out, "wt");
  if (!f) return 0;
  char root[MAX_PATH];
  CopyText(root, tree->path, sizeof root);
  size_t n = std::strlen(root);
  if (n > 3 && root[n - 1] == '\\') root[n - 1] = '\0';
  std::fprintf(f, "%s\n", root);
  WriteLevel(f, tree);
  bool ok = !std::ferror(f);
  ok &= Io().fclose(f) == 0;
  if (compress) {
    if (ok) {
      unsigned long c = 0;
      ok = CompressFile(tmp, target, &c) == 0;
      *crc = static_cast<uint32_t>(c);
    }
    Sys().DeleteFileA(tmp);
  }
  return ok ? 1 : 0;
}

DirNode* LoadDirListing(const char* listing, int compressed, const DirFilters* filters) {
  char root[MAX_PATH], tmp[MAX_PATH];
  FILE* f = OpenListing(listing, compressed, root, tmp);
  if (!f) {
    CloseListing(nullptr, tmp);
    return nullptr;
  }
  DirNode* tree = NewRoot(root);
  if (!tree) {
    CloseListing(f, tmp);
    return nullptr;
  }
  Walk w{1, false, filters};
  Reader r{f, {}};
  ReadLevel(r, w, tree, tree->path, 0);
  CloseListing(f, tmp);
  if (w.failed) {
    FreeDirTree(tree);
    return nullptr;
  }
  return tree;
}

int CompareDirectory(DirCompareRecord* rec, const DirFilters* filters) {
  rec->tree = nullptr;
  const bool older = rec->flags & 0x40, newer = rec->flags & 0x80;
  if (older && (newer || (rec->flags & 0x4000))) {
    DirNode* tree = rec->olderListing[0] ? LoadDirListing(rec->olderListing, rec->olderCompressed, filters)
                                         : CaptureTree(rec->path, filters);
    if (!tree) return 0;
    if (newer) {
      bool ok;
      if (rec->newerListing[0]) {
        ok = MergeListing(tree, rec->newerListing, rec->newerCompressed, filters);
      } else {
        Walk w{2, true, filters};
        WalkDisk(w, tree, tree->path, ReadOrvalisInt("SkipIETempFiles", 1) != 0);
        ok = !w.failed;
      }
      if (!ok) {
        FreeDirTree(tree);
        return 0;
      }
    }
    rec->tree = tree;
    return 1;
  }
  rec->tree = MessageNode(older ? kDirOnlyOlder : newer ? kDirOnlyNewer : kDirInNeither);
  return rec->tree ? 1 : 0;
}

int WriteDirInfoSection(FILE* f, const Profile* profile, SnapshotRecord* rec) {
  char folder[MAX_PATH];
  if (!CompanionFolder(rec->indexPath, folder)) return 13;
  const int compress = ReadOrvalisInt("CompressDirInfo", 1);
  std::fprintf(f, "[DIRINFO_START]\n");
  for (const ProfileGroupEntry* d = profile->dirs; d; d = d->next) {
    SnapGroupEntry* e = AppendGroupEntry(&rec->dirs);
    if (!e) continue;
    ExpandFolderTag(d->name, e->name);
    e->first = compress;
    DirNode* tree = CaptureDirectory(e->name);
    if (!tree) continue;  // a directory that does not exist gives no line
    char target[MAX_PATH];
    bool ok = MakeUniqueFileName(folder, "DIR", "OVD", e->companion) &&
              std::snprintf(target, sizeof target, "%s%s", folder, e->companion) < MAX_PATH &&
              WriteDirListing(target, tree, compress, &e->second);
    FreeDirTree(tree);
    if (!ok) {
      if (e->companion[0] && std::snprintf(target, sizeof target, "%s%s", folder, e->companion) < MAX_PATH)
        Sys().DeleteFileA(target);
      e->companion[0] = '\0';
      return 13;
    }
    std::fprintf(f, "%s,%s,%i,%lu\n", e->name, e->companion, compress, static_cast<unsigned long>(e->second));
  }
  std::fprintf(f, "[DIRINFO_END]\n");
  return 0;
}

void DeleteDirListings(const SnapshotRecord* rec, const char* dataFolder) {
  for (const SnapGroupEntry* e = rec->dirs; e; e = e->next) DeleteCompanionFile(dataFolder, e->companion);
}

}  // namespace orvalis
