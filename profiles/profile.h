// Profiles (".GCF"): what a snapshot watches.
//
// Format notes. Line 1 is the description. Four groups follow, each between a start and an end
// marker line (matched whole, without regard to case, no blanks allowed), searched from the top
// of the file on their own so their order does not matter and only the first group of a kind
// counts:
//   [GROUPFILES_START] / [GROUPFILES_END]       system files, "<windows>\WIN.INI" tags allowed
//   [GROUPDIRS_START] / [GROUPDIRS_END]         directories
//   [GROUPREGKEYS_START] / [GROUPREGKEYS_END]   registry keys
//   [GROUPASSET_START] / [GROUPASSET_END]       "name,first,second" (split at the last two commas)
#pragma once
#include <windows.h>

#include <cstdint>

namespace orvalis {

// ProfileFileEntry flag bits.
constexpr uint16_t kProfileFileText = 2;    // no zero byte in the file
constexpr uint16_t kProfileFileExists = 8;  // the file exists (and is captured)

struct ProfileFileEntry {
  uint16_t flags;
  ProfileFileEntry* next;
  uint8_t captureData[8];
  char path[MAX_PATH];  // as written in the profile, tag kept
  char captureText[MAX_PATH];
};

struct ProfileGroupEntry {
  uint16_t flags;
  ProfileGroupEntry* next;
  char name[MAX_PATH];
  uint8_t state;
  uint8_t captureData[511];
  int32_t first;   // asset lines only
  int32_t second;  // asset lines only
};

struct Profile {
  uint16_t flags;
  ProfileFileEntry* files;
  uint32_t reserved;
  ProfileGroupEntry* regKeys;
  ProfileGroupEntry* assets;
  ProfileGroupEntry* dirs;
  char fileName[MAX_PATH];
  char description[256];
  char path[MAX_PATH];
};

// Zero-filled profile record; null when out of memory.
Profile* NewProfile();
// Reads profile->path. 0, or -1 when the file cannot be opened or has no first line (the lists
// then stay empty). A group that is missing or not closed leaves what it read.
int ReadProfile(Profile* profile);
// Writes folder + fileName (folder ends in "\"); entries of missing files are dropped on
// purpose. 0, or -1 when the file cannot be created.
int WriteProfile(const Profile* profile, const char* folder);
int FreeProfile(Profile* profile);

// Appends zero-filled entries at the tail; null when out of memory.
ProfileFileEntry* AppendProfileFile(Profile* profile);
ProfileGroupEntry* AppendProfileGroup(ProfileGroupEntry** head);

// Expands a leading folder tag for the tests of a profile's files: the text up to the last ">"
// is the tag, "<windows>" the Windows folder and any other tag the system folder. A path
// without a leading "<" or without ">" is copied unchanged. out holds 260.
void ExpandFolderTag(const char* path, char* out);

// Line 1 of a profile; 0, or 1 when the file cannot be opened or is empty. out holds 260.
int ReadProfileDescription(const char* path, char* out);
// The profile list document for every "*.GCF" of folder. 0, or 1 on failure.
int WriteProfileList(const char* folder, const char* outPath);

}  // namespace orvalis
