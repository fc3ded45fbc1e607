#include "profiles/profile.h"


#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/io.h"
#include "base/lists.h"
#include "base/textutil.h"
#include "compress/filecodec.h"
#include "engine/files.h"
#include "engine/strings.h"
#include "engine/sys.h"

namespace orvalis {
namespace {

constexpr int kProfileLine = MAX_PATH;  // 259 characters a line

class TextFile {
 public:
  TextFile(const char* path, const char* mode) : f_(Io().fopen(path, mode)) {}
  ~TextFile() {
    if (f_) Io().fclose(f_);
  }
  TextFile(const TextFile&) = delete;
  TextFile& operator=(const TextFile&) = delete;
  FILE* get() const { return f_; }

 private:
  FILE* f_;
};

bool SeekGroup(FILE* f, const char* marker, char* line) {
  while (ReadTextLine(line, kProfileLine, f))
    if (EqualNoCase(line, marker)) return true;
  return false;
}

int ReadFileGroup(Profile* p) {
  TextFile f(p->path, "rt");
  if (!f.get()) return -1;
  char line[kProfileLine];
  if (!SeekGroup(f.get(), "[GROUPFILES_START]", line)) return -1;
  while (ReadTextLine(line, kProfileLine, f.get())) {
    if (EqualNoCase(line, "[GROUPFILES_END]")) return 0;
    ProfileFileEntry* e = AppendProfileFile(p);
    if (!e) return 0;
    CopyText(e->path, line, sizeof e->path);
    char expanded[MAX_PATH];
    ExpandFolderTag(e->path, expanded);
    if (PathExists(expanded)) e->flags |= kProfileFileExists;
    if (IsTextFile(expanded) == 1) e->flags |= kProfileFileText;
  }
  return -1;  // no closing marker
}

// Splits "name,first,second" at its last two commas; false when there are fewer.
bool ParseAssetLine(char* line, ProfileGroupEntry* e) {
  char* last = std::strrchr(line, ',');
  if (!last) return false;
  *last = '\0';
  char* middle = std::strrchr(line, ',');
  if (!middle) return false;
  *middle = '\0';
  e->first = static_cast<int32_t>(std::atol(middle + 1));
  e->second = static_cast<int32_t>(std::atol(last + 1));
  CopyText(e->name, line, sizeof e->name);
  return true;
}

int ReadGroup(const Profile* p, const char* start, const char* end, ProfileGroupEntry** head, bool assets) {
  *head = nullptr;
  TextFile f(p->path, "rt");
  if (!f.get()) return -1;
  char line[kProfileLine];
  if (!SeekGroup(f.get(), start, line)) return 0;
  while (ReadTextLine(line, kProfileLine, f.get())) {
    if (EqualNoCase(line, end)) break;
    if (assets) {
      ProfileGroupEntry parsed{};
      if (!ParseAssetLine(line, &parsed)) continue;
      ProfileGroupEntry* e = AppendProfileGroup(head);
      if (!e) break;
      CopyText(e->name, parsed.name, sizeof e->name);
      e->first = parsed.first;
      e->second = parsed.second;
    } else {
      ProfileGroupEntry* e = AppendProfileGroup(head);
      if (!e) break;
      CopyText(e->name, line, sizeof e->name);
    }
  }
  return 0;
}

}  // namespace

Profile* NewProfile() { return static_cast<Profile*>(Io().calloc(1, sizeof(Profile))); }

ProfileFileEntry* AppendProfileFile(Profile* profile) {
  auto* e = static_cast<ProfileFileEntry*>(Io().calloc(1, sizeof(ProfileFileEntry)));
  if (!e) return nullptr;
  ProfileFileEntry** tail = &profile->files;
  while (*tail) tail = &(*tail)->next;
  *tail = e;
  return e;
}

ProfileGroupEntry* AppendProfileGroup(ProfileGroupEntry** head) {
  auto* e = static_cast<ProfileGroupEntry*>(Io().calloc(1, sizeof(ProfileGroupEntry)));
  if (!e) return nullptr;
  while (*head) head = &(*head)->next;
  *head = e;
  return e;
}

void ExpandFolderTag(const char* path, char* out) {
  const char* close = path[0] == '<' ? std::strrchr(path, '>') : nullptr;
  if (!close) {
    CopyText(out, path, MAX_PATH);
    return;
  }
  const size_t tagLen = static_cast<size_t>(close - path) + 1;
  char dir[MAX_PATH] = "";
  if (tagLen == 9 && CompareNoCaseN(path, "<windows>", 9) == 0)
    Sys().GetWindowsDirectoryA(dir, MAX_PATH);
  else
    Sys().GetSystemDirectoryA(dir, MAX_PATH);
  std::snprintf(out, MAX_PATH, "%s%s", dir, close + 1);
}

int ReadProfile(Profile* profile) {
  {
    TextFile f(profile->path, "rt");
    char line[kProfileLine];
    if (!f.get() || !ReadTextLine(line, kProfileLine, f.get())) return -1;
    CopyText(profile->description, line, sizeof profile->description);
  }
  ReadFileGroup(profile);
  ReadGroup(profile, "[GROUPDIRS_START]", "[GROUPDIRS_END]", &profile->dirs, false);
  ReadGroup(profile, "[GROUPREGKEYS_START]", "[GROUPREGKEYS_END]", &profile->regKeys, false);
  ReadGroup(profile, "[GROUPASSET_START]", "[GROUPASSET_END]", &profile->assets, true);
  return 0;
}

int WriteProfile(const Profile* profile, const char* folder) {
  char path[MAX_PATH];
  if (std::snprintf(path, sizeof path, "%s%s", folder, profile->fileName) >= MAX_PATH) return -1;
  TextFile f(path, "wt");
  if (!f.get()) return -1;
  FILE* out = f.get();
  std::fprintf(out, "%s\n", profile->description);
  std::fprintf(out, "[GROUPFILES_START]\n");
  for (const ProfileFileEntry* e = profile->files; e; e = e->next)
    if (e->flags & kProfileFileExists) std::fprintf(out, "%s\n", e->path);
  std::fprintf(out, "[GROUPFILES_END]\n[GROUPDIRS_START]\n");
  for (const ProfileGroupEntry* e = profile->dirs; e; e = e->next) std::fprintf(out, "%s\n", e->name);
  std::fprintf(out, "[GROUPDIRS_END]\n[GROUPREGKEYS_START]\n");
  for (const ProfileGroupEntry* e = profile->regKeys; e; e = e->next) std::fprintf(out, "%s\n", e->name);
  std::fprintf(out, "[GROUPREGKEYS_END]\n[GROUPASSET_START]\n");
  for (const ProfileGroupEntry* e = profile->assets; e; e = e->next)
    std::fprintf(out, "%s,%d,%d\n", e->name, static_cast<int>(e->first), static_cast<int>(e->second));
  std::fprintf(out, "[GROUPASSET_END]\n");
  return 0;
}

int FreeProfile(Profile* profile) {
  if (!profile) return 0;
  FreeChain(profile->files);
  FreeChain(profile->regKeys);
  FreeChain(profile->assets);
  FreeChain(profile->dirs);
  Io().free(profile);
  return 0;
}

int ReadProfileDescription(const char* path, char* out) {
  TextFile f(path, "rt");
  out[0] = '\0';
  if (!f.get()) return 1;
  char line[kProfileLine];
  if (!ReadTextLine(line, kProfileLine, f.get())) return 1;
  CopyText(out, line, MAX_PATH);
  return 0;
}

int WriteProfileList(const char* folder, const char* outPath) {
  TextFile f(outPath, "wt");
  if (!f.get()) {
    ShowOpenFailed(outPath);
    return 1;
  }
  FILE* out = f.get();
  std::fprintf(out, "%s\n", "<?xml version = \"1.0\"?>");
  std::fprintf(out, "%s\n", "<!DOCTYPE PROFILELIST SYSTEM \"proflist.dtd\">");
  std::fprintf(out, "%s\n", "<PROFILELIST>");
  char pattern[MAX_PATH];
  const char* sep = EndsWith(folder, '\\') ? "" : "\\";
  if (std::snprintf(pattern, sizeof pattern, "%s%s*.GCF", folder, sep) < MAX_PATH) {
    WIN32_FIND_DATAA fd;
    HANDLE h = Sys().FindFirstFileA(pattern, &fd);
    if (h != INVALID_HANDLE_VALUE) {
      do {
        char path[MAX_PATH];
        char description[MAX_PATH];
        if (std::snprintf(path, sizeof path, "%s%s%s", folder, sep, fd.cFileName) >= MAX_PATH) continue;
        if (ReadProfileDescription(path, description) != 0) continue;
        std::fprintf(out, "  %s\n", "<PROFILES>");
        std::fprintf(out, "    %s%s%s\n", "<DESCRIPTION>", description, "</DESCRIPTION>");
        std::fprintf(out, "    %s%s%s\n", "<FILE>", fd.cFileName, "</FILE>");
        std::fprintf(out, "  %s\n", "</PROFILES>");
      } while (Sys().FindNextFileA(h, &fd));
      Sys().FindClose(h);
    }
  }
  std::fprintf(out, "%s\n", "</PROFILELIST>");
  return 0;
}

}  // namespace orvalis
