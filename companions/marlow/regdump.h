// The registry dump and key save file of MARLOW.DLL: writer and reader. Portable.
//
// Layout (all integers little-endian):
//   header, 64 bytes: "MARLOWRG", u32 version (1), u32 compression (0 stored, else the implode
//     dictionary size 1024/2048/4096), u32 block size, u32 block count, u64 stream length,
//     u64 directory offset, u32 directory length, u32 directory CRC-32, 12 bytes zero,
//     u32 CRC-32 of the 60 bytes before it.
//   blocks: the record stream cut into pieces of `block size` bytes (the last may be shorter),
//     each stored or imploded on its own (binary literals), so that a reader decodes only the
//     blocks that hold what it looks for.
//   directory: per block {u64 file offset, u32 stored size, u32 CRC-32 of its plain bytes};
//     u32 root count, per root {u32 root id, u64 record offset}; u32 label length, label.
//     Root ids 0-4 are HKLM, HKCU, HKCR, HKU, HKCC; a key save has the one root kSavedKeyRoot
//     and its key path (canonical form) as the label.
// Key records, in post-order (a key's subkeys come before it, so a writer walking the live
// registry never has to go back), at offsets of the plain stream:
//   u64 start of its subtree (its first descendant's first byte, or its own offset)
//   u32 subkey count, per subkey {u32 name length, name, u64 target}
//   u32 value count, per value {u32 name length (0xFFFFFFFF: the default value), name,
//     u32 type, u32 data length, data}
// A target is the subkey's record offset, or kAliasBit | root id when the subkey is that root
// itself (HKU\<user's SID> is HKCU). The subtrees of a key's subkeys tile the bytes from its
// subtree start to its own record exactly, in subkey order; the reader insists on it, which
// bounds every read by the size of what is read and rules out loops.
#pragma once
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "base/changetree.h"

namespace marlow {

// Result codes (Win32 numbers: they reach the export boundary unchanged).
enum DumpResult : int {
  kDumpOk = 0,
  kDumpNoFile = 2,        // the file cannot be opened
  kDumpNoKey = 3,         // the key is not in the file
  kDumpNoMemory = 8,
  kDumpCorrupt = 13,      // not ours, cut short, or damaged
  kDumpWriteFault = 29,   // the file cannot be created or written
  kDumpBadParameter = 87  // an unknown compression setting
};

inline constexpr uint64_t kAliasBit = 0x8000000000000000ull;
inline constexpr uint32_t kSavedKeyRoot = 100;
inline constexpr uint32_t kDefaultValueName = 0xFFFFFFFFu;
inline constexpr int kMaxDepth = 512;  // the registry's own nesting limit

// The subkey table and values of one key record, gathered before the record is written.
struct RecordBuilder {
  std::string children, values;
  uint32_t childCount = 0, valueCount = 0;
  void AddChild(const char* name, size_t length, uint64_t target);
  // name null: the default value.
  void AddValue(const char* name, size_t length, uint32_t type, const void* data, uint32_t dataLength);
  void Clear();
};

class DumpWriter {
 public:
  DumpWriter() = default;
  ~DumpWriter();  // a writer that was not finished deletes its file
  DumpWriter(const DumpWriter&) = delete;
  DumpWriter& operator=(const DumpWriter&) = delete;

  // compression: 0, 1 or 1024 (1024-byte dictionary), 2048, 4096; anything else is 87.
  int Open(const std::string& path, int compression, std::string_view label = {},
           uint32_t blockSize = 32768);
  uint64_t Position() const { return streamLength_ + pending_.size(); }
  // Writes the record of a key whose subtree began at subtreeStart; returns its offset.
  uint64_t WriteRecord(uint64_t subtreeStart, const RecordBuilder& record);
  void SetRoot(uint32_t id, uint64_t recordOffset) { roots_.push_back({id, recordOffset}); }
  // Writes the rest of the file and closes it: 0, or 8/29 (the file is then deleted).
  int Finish();
  void Abort();  // closes and deletes the file
  int error() const { return error_; }

 private:
  void Append(const void* data, size_t n);
  void FlushBlock(const char* data, size_t n);
  struct Block {
    uint64_t offset;
    uint32_t size, crc;
  };
  struct Root {
    uint32_t id;
    uint64_t offset;
  };
  std::FILE* file_ = nullptr;
  std::string path_, label_, pending_, packed_;
  std::vector<Block> blocks_;
  std::vector<Root> roots_;
  std::vector<unsigned char> work_;
  uint64_t streamLength_ = 0, fileOffset_ = 0;
  uint32_t blockSize_ = 0;
  int dict_ = 0, error_ = 0;
};

// Writes a whole in-memory tree (key nodes below `key`) in post-order; returns its offset.
uint64_t WriteTree(DumpWriter* writer, const ChangeNode* key);

class DumpReader {
 public:
  DumpReader() = default;
  ~DumpReader();
  DumpReader(const DumpReader&) = delete;
  DumpReader& operator=(const DumpReader&) = delete;

  int Open(const std::string& path);  // 0, 2, 8 or 13
  const std::string& label() const { return label_; }
  bool HasRoot(uint32_t id) const;
  // Reads the key at `rest` (components separated by backslashes, empty: the root itself)
  // below root `id` into a tree whose root node is named rootName and carries fullPath.
  // 0, 3 (no such key), 8 or 13.
  int ReadKey(uint32_t id, std::string_view rest, std::string_view rootName, std::string_view fullPath,
              ChangeNode** out);
  size_t blocksDecoded() const { return decodedCount_; }

 private:
  bool Fetch(uint64_t pos, void* dst, size_t n);
  bool U32(uint64_t* pos, uint32_t* v);
  bool U64(uint64_t* pos, uint64_t* v);
  const char* Bytes(uint64_t* pos, size_t n, std::string* scratch);
  const std::string* Decoded(size_t index);
  bool RootOffset(uint32_t id, uint64_t* off) const;
  int ParseSubtree(uint64_t off, uint64_t expectedStart, bool checkStart, const char* name, size_t nameLength,
                   int depth, bool allowAlias, std::string_view fullPath, uint64_t* recordEnd, ChangeNode** out);

  struct Block {
    uint64_t offset;
    uint32_t size, crc;
  };
  std::FILE* file_ = nullptr;
  uint64_t fileSize_ = 0, streamLength_ = 0;
  uint32_t blockSize_ = 0, compression_ = 0;
  std::vector<Block> blocks_;
  std::vector<std::pair<uint32_t, uint64_t>> roots_;
  std::vector<std::string> cache_;
  std::vector<char> cached_;
  std::string label_;
  std::vector<unsigned char> work_;
  size_t decodedCount_ = 0;
  int error_ = 0;  // a block that failed to decode: 8 or 13, sticky
};

}  // namespace marlow
