// CORVID.DLL's files and trees, the parts that need no Win32: the companion's asset blocks, the
// MASTER.IDX catalogue, asset trees in the shared ChangeNode layout and their comparison, and the
// wildcard match. Portable.
//
// Companion (one per snapshot, "AST0000.OVA"; the engine creates it empty, so an empty file holds no
// asset yet, and each asset entry of the snapshot appends one block):
//   "ORVASSET" u32 version (1)                                    once, at the start
//   per asset block:
//     u32 'ABLK', u32 header length H, header (H bytes), u32 CRC-32 of the header
//       header: u16 asset length, asset, u16 folder length, folder (the folder the record paths
//               are relative to), u32 options, u32 file count
//     per file: u32 'AFIL', u32 record length R, record (R bytes), u32 CRC-32 of the record,
//               then stored size bytes of contents
//       record: u16 path length, path (relative to the asset's folder, components separated by
//               "\"), u32 size, u32 time (DOS packed), u32 attributes, u32 CRC-32 of the contents,
//               u32 stored size (0: contents not kept), and the contents are imploded (binary,
//               4096-byte dictionary)
// A reader seeks over the contents it does not need, so one asset is read without decoding any
// other data, and every record's own CRC tells a damaged record from a good one.
//
// MASTER.IDX (one per data folder, shared by every snapshot there; rewritten whole through a
// temporary file and a rename):
//   "ORVAIDX1" u32 version (1), u32 record count
//   per record: u16 companion length, companion, u16 asset length, asset, u32 options,
//               u32 file count, u32 block offset in the companion, u32 CRC-32 of the record's
//               bytes before it
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "base/changetree.h"

namespace corvid {

// Result codes (Win32 numbers, so they can reach the engine as they are).
enum : int {
  kOk = 0,
  kNotFound = 2,      // the companion or index cannot be opened
  kNoAsset = 3,       // the companion holds no such asset; the live folder does not exist
  kAccessDenied = 5,  // a file cannot be written
  kNoMemory = 8,
  kBadData = 13,      // corrupt, truncated or foreign file; a record name outside the asset's folder
  kWriteFault = 29,
};

constexpr uint32_t kOptionSubfolders = 0x1000;
constexpr uint32_t kOptionContents = 0x2000;

// One file of an asset as recorded or found.
struct FileRecord {
  char path[260];       // relative to the asset's folder
  uint32_t size;
  uint32_t time;        // DOS packed
  uint32_t attributes;
  uint32_t crc;
  uint32_t stored;      // stored bytes of contents; 0 when not kept
  uint32_t offset;      // where the contents start in the companion
};

// What a tree's root carries in `data`: where its files came from. Every file node of a tree read
// from a companion has offset and stored set, so that the restore can write it back.
struct AssetOrigin {
  char asset[260];      // the asset as named
  char folder[260];     // the asset's folder (no trailing backslash unless a drive root)
  char companion[260];  // the companion read, or "" for a live tree
  uint32_t options;     // as recorded (kOptionContents: the files can be written back)
};

// True when a relative record path stays inside the asset's folder: bare components only.
bool IsSafeRelativePath(const char* path);
// Case-insensitive match of a file name against a pattern with "*" and "?".
bool WildcardMatch(const char* pattern, const char* name);
// Splits an asset into its folder and the file pattern of its last component ("" for a folder
// asset, which means every file). isFolder says whether the asset names a folder as a whole.
void SplitAsset(const char* asset, bool isFolder, char* folder, char* pattern);

// ---- Companion ---------------------------------------------------------------------------------
// Writes the companion's head when the file is still empty (positioned at its end).
bool WriteCompanionHead(FILE* f);
// The start of one asset block; its files follow with WriteFileRecord.
bool WriteBlockHead(FILE* f, const char* asset, const char* folder, uint32_t options, uint32_t files);
// One file record; its contents (stored bytes) are written by the caller right after.
bool WriteFileRecord(FILE* f, const FileRecord& r);
// Finds the asset's block (name compared without regard to case) and reads its file records, in
// order, into *records (Io().calloc; free with Io().free), and its folder into folder (260).
// kOk, kNoAsset, kBadData, kNoMemory.
int ReadAssetBlock(FILE* f, const char* asset, char* folder, uint32_t* options, FileRecord** records,
                   uint32_t* count);

// ---- MASTER.IDX --------------------------------------------------------------------------------
struct IndexRecord {
  char companion[260];
  char asset[260];
  uint32_t options;
  uint32_t files;
  uint32_t offset;
};
// Reads the whole index: kOk (a missing file is an empty index), kNotFound (it exists but cannot
// be opened), kBadData, kNoMemory.
int ReadIndex(const char* path, IndexRecord** records, uint32_t* count);
// Writes the records into path through path + ".tmp" and a rename. kOk or kWriteFault.
int WriteIndex(const char* path, const IndexRecord* records, uint32_t count);

// ---- Trees -------------------------------------------------------------------------------------
// The tree of one asset from its file records: the root (kKindName, the asset's name) carries an
// AssetOrigin in data; folders (kKindFolder) and files (kKindFile) nest by their paths, their
// names the relative paths. Null when memory runs out.
ChangeNode* BuildAssetTree(const AssetOrigin& origin, const FileRecord* records, uint32_t count);
void FreeAssetTree(ChangeNode* tree);
// The file record a file node came from (offset, stored) or null.
const FileRecord* NodeRecord(const ChangeNode* file);
// Marks the differences in *first against second (null: a listing, flags stay 0). Files compare
// by size, time and, where both sides have one (contents kept), CRC-32. Nodes of second are moved
// into first where they are new or changed;
// what is left of second stays the caller's.
void CompareAssetTrees(ChangeNode** first, ChangeNode* second);

}  // namespace corvid
