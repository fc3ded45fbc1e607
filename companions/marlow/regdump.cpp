#include "companions/marlow/regdump.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "companions/marlow/regtree.h"
#include "compress/crc32.h"
#include "compress/explode.h"
#include "compress/implode.h"

namespace marlow {
using orvalis::Crc32;
using orvalis::Explode;
using orvalis::Implode;
using orvalis::kExplodeOk;
using orvalis::kExplodeWorkSize;
using orvalis::kImplodeBinary;
using orvalis::kImplodeNoMemory;
using orvalis::kImplodeOk;
using orvalis::kImplodeWorkSize;
namespace {

constexpr char kMagic[8] = {'M', 'A', 'R', 'L', 'O', 'W', 'R', 'G'};
constexpr uint32_t kVersion = 1;
constexpr size_t kHeaderSize = 64;
constexpr uint32_t kMaxRoots = 16;
constexpr uint32_t kMaxLabel = 4096;

void Put32(std::string* s, uint32_t v) {
  char b[4] = {char(v), char(v >> 8), char(v >> 16), char(v >> 24)};
  s->append(b, 4);
}
void Put64(std::string* s, uint64_t v) {
  Put32(s, uint32_t(v));
  Put32(s, uint32_t(v >> 32));
}
uint32_t Get32(const unsigned char* p) { return p[0] | p[1] << 8 | p[2] << 16 | uint32_t(p[3]) << 24; }
uint64_t Get64(const unsigned char* p) { return Get32(p) | uint64_t(Get32(p + 4)) << 32; }

bool SeekTo(std::FILE* f, uint64_t off) {
#ifdef _WIN32
  return _fseeki64(f, static_cast<long long>(off), SEEK_SET) == 0;
#else
  return fseeko(f, static_cast<off_t>(off), SEEK_SET) == 0;
#endif
}

uint64_t FileSize(std::FILE* f) {
#ifdef _WIN32
  if (_fseeki64(f, 0, SEEK_END) != 0) return 0;
  long long n = _ftelli64(f);
#else
  if (fseeko(f, 0, SEEK_END) != 0) return 0;
  long long n = ftello(f);
#endif
  return n < 0 ? 0 : static_cast<uint64_t>(n);
}

// The coder streams of one block: the whole input at once, the output capped at the size the
// directory promises, so a damaged block can never grow beyond it.
struct BlockStreams {
  const char* in;
  size_t left;
  std::string* out;
  size_t cap;
};
unsigned ReadBlock(char* buf, unsigned size, void* param) {
  auto* s = static_cast<BlockStreams*>(param);
  size_t n = std::min<size_t>(size, s->left);
  std::memcpy(buf, s->in, n);
  s->in += n;
  s->left -= n;
  return static_cast<unsigned>(n);
}
unsigned WriteBlock(const char* buf, unsigned size, void* param) {
  auto* s = static_cast<BlockStreams*>(param);
  size_t room = s->cap - s->out->size();
  size_t n = std::min<size_t>(size, room);
  s->out->append(buf, n);
  return static_cast<unsigned>(n);
}

// A fuzzer cannot forge CRC-32s, so its build lets damage through them to reach the parser
// behind; everything else it meets is checked as in the product.
bool CrcOk(uint32_t stored, uint32_t computed) {
#ifdef FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION
  (void)stored;
  (void)computed;
  return true;
#else
  return stored == computed;
#endif
}

}  // namespace

void RecordBuilder::AddChild(const char* name, size_t length, uint64_t target) {
  Put32(&children, static_cast<uint32_t>(length));
  children.append(name, length);
  Put64(&children, target);
  ++childCount;
}

void RecordBuilder::AddValue(const char* name, size_t length, uint32_t type, const void* data,
                             uint32_t dataLength) {
  if (name) {
    Put32(&values, static_cast<uint32_t>(length));
    values.append(name, length);
  } else {
    Put32(&values, kDefaultValueName);
  }
  Put32(&values, type);
  Put32(&values, dataLength);
  if (dataLength) values.append(static_cast<const char*>(data), dataLength);
  ++valueCount;
}

void RecordBuilder::Clear() {
  children.clear();
  values.clear();
  childCount = valueCount = 0;
}

// ---- writer ------------------------------------------------------------------------------------

DumpWriter::~DumpWriter() { Abort(); }

int DumpWriter::Open(const std::string& path, int compression, std::string_view label, uint32_t blockSize) {
  Abort();
  switch (compression) {
    case 0: dict_ = 0; break;
    case 1:
    case 1024: dict_ = 1024; break;
    case 2048: dict_ = 2048; break;
    case 4096: dict_ = 4096; break;
    default: return kDumpBadParameter;
  }
  if (label.size() > kMaxLabel || blockSize < 1024) return kDumpBadParameter;
  if (dict_) {
    try {
      work_.resize(kImplodeWorkSize);
    } catch (const std::bad_alloc&) {
      return kDumpNoMemory;
    }
  }
  file_ = std::fopen(path.c_str(), "wb");
  if (!file_) return kDumpWriteFault;
  path_ = path;
  label_.assign(label);
  blockSize_ = blockSize;
  pending_.clear();
  blocks_.clear();
  roots_.clear();
  streamLength_ = 0;
  error_ = 0;
  char zero[kHeaderSize] = {};
  if (std::fwrite(zero, 1, kHeaderSize, file_) != kHeaderSize) error_ = kDumpWriteFault;
  fileOffset_ = kHeaderSize;
  return error_;
}

void DumpWriter::Append(const void* data, size_t n) {
  const char* p = static_cast<const char*>(data);
  while (n && !error_) {
    size_t take = std::min(n, blockSize_ - pending_.size());
    pending_.append(p, take);
    p += take;
    n -= take;
    if (pending_.size() == blockSize_) {
      FlushBlock(pending_.data(), pending_.size());
      pending_.clear();
    }
  }
}

void DumpWriter::FlushBlock(const char* data, size_t n) {
  if (error_ || !file_) return;
  Block b{fileOffset_, 0, Crc32(data, n)};
  const char* out = data;
  size_t outSize = n;
  if (dict_) {
    packed_.clear();
    BlockStreams s{data, n, &packed_, SIZE_MAX};
    int r = Implode(ReadBlock, WriteBlock, work_.data(), work_.size(), &s, kImplodeBinary, dict_);
    if (r != kImplodeOk) {
      error_ = r == kImplodeNoMemory ? kDumpNoMemory : kDumpWriteFault;
      return;
    }
    out = packed_.data();
    outSize = packed_.size();
  }
  if (std::fwrite(out, 1, outSize, file_) != outSize) {
    error_ = kDumpWriteFault;
    return;
  }
  b.size = static_cast<uint32_t>(outSize);
  fileOffset_ += outSize;
  streamLength_ += n;
  blocks_.push_back(b);
}

uint64_t DumpWriter::WriteRecord(uint64_t subtreeStart, const RecordBuilder& record) {
  uint64_t at = Position();
  std::string head;
  Put64(&head, subtreeStart);
  Put32(&head, record.childCount);
  Append(head.data(), head.size());
  Append(record.children.data(), record.children.size());
  head.clear();
  Put32(&head, record.valueCount);
  Append(head.data(), head.size());
  Append(record.values.data(), record.values.size());
  return at;
}

int DumpWriter::Finish() {
  if (!file_) return error_ ? error_ : kDumpWriteFault;
  if (!pending_.empty()) FlushBlock(pending_.data(), pending_.size());
  pending_.clear();
  std::string dir;
  for (const Block& b : blocks_) {
    Put64(&dir, b.offset);
    Put32(&dir, b.size);
    Put32(&dir, b.crc);
  }
  Put32(&dir, static_cast<uint32_t>(roots_.size()));
  for (const Root& r : roots_) {
    Put32(&dir, r.id);
    Put64(&dir, r.offset);
  }
  Put32(&dir, static_cast<uint32_t>(label_.size()));
  dir += label_;
  std::string head(kMagic, 8);
  Put32(&head, kVersion);
  Put32(&head, static_cast<uint32_t>(dict_));
  Put32(&head, blockSize_);
  Put32(&head, static_cast<uint32_t>(blocks_.size()));
  Put64(&head, streamLength_);
  Put64(&head, fileOffset_);
  Put32(&head, static_cast<uint32_t>(dir.size()));
  Put32(&head, Crc32(dir.data(), dir.size()));
  head.append(12, '\0');
  Put32(&head, Crc32(head.data(), head.size()));
  if (!error_ && (roots_.size() > kMaxRoots || std::fwrite(dir.data(), 1, dir.size(), file_) != dir.size() ||
                  !SeekTo(file_, 0) || std::fwrite(head.data(), 1, head.size(), file_) != head.size()))
    error_ = kDumpWriteFault;
  if (std::fclose(file_) != 0 && !error_) error_ = kDumpWriteFault;
  file_ = nullptr;
  if (error_) std::remove(path_.c_str());
  return error_;
}

void DumpWriter::Abort() {
  if (!file_) return;
  std::fclose(file_);
  file_ = nullptr;
  std::remove(path_.c_str());
}

uint64_t WriteTree(DumpWriter* writer, const ChangeNode* key) {
  uint64_t start = writer->Position();
  RecordBuilder rec;
  std::vector<uint64_t> offsets;
  for (const ChangeNode* k = key->children; k; k = k->next) offsets.push_back(WriteTree(writer, k));
  size_t i = 0;
  for (const ChangeNode* k = key->children; k; k = k->next) rec.AddChild(k->name, k->nameLength, offsets[i++]);
  unsigned char buf[4];
  for (const ChangeNode* v = key->values; v; v = v->next)
    rec.AddValue(v->name, v->nameLength, v->type, ValueBytes(v, buf), v->length);
  return writer->WriteRecord(start, rec);
}

// ---- reader ------------------------------------------------------------------------------------

DumpReader::~DumpReader() {
  if (file_) std::fclose(file_);
}

int DumpReader::Open(const std::string& path) {
  file_ = std::fopen(path.c_str(), "rb");
  if (!file_) return kDumpNoFile;
  fileSize_ = FileSize(file_);
  unsigned char h[kHeaderSize];
  if (fileSize_ < kHeaderSize || !SeekTo(file_, 0) || std::fread(h, 1, kHeaderSize, file_) != kHeaderSize)
    return kDumpCorrupt;
  if (std::memcmp(h, kMagic, 8) != 0 || Get32(h + 8) != kVersion || !CrcOk(Get32(h + 60), Crc32(h, 60)))
    return kDumpCorrupt;
  compression_ = Get32(h + 12);
  blockSize_ = Get32(h + 16);
  uint32_t blockCount = Get32(h + 20);
  streamLength_ = Get64(h + 24);
  uint64_t dirOffset = Get64(h + 32);
  uint32_t dirLength = Get32(h + 40);
  uint32_t dirCrc = Get32(h + 44);
  if (compression_ != 0 && compression_ != 1024 && compression_ != 2048 && compression_ != 4096) return kDumpCorrupt;
  if (blockSize_ < 1024 || blockSize_ > (1u << 24)) return kDumpCorrupt;
  if ((streamLength_ + blockSize_ - 1) / blockSize_ != blockCount) return kDumpCorrupt;
  if (dirOffset < kHeaderSize || dirOffset > fileSize_ || dirLength != fileSize_ - dirOffset) return kDumpCorrupt;
  if (uint64_t(blockCount) * 16 + 8 > dirLength) return kDumpCorrupt;
  std::string dir;
  try {
    dir.resize(dirLength);
  } catch (const std::bad_alloc&) {
    return kDumpNoMemory;
  }
  if (!SeekTo(file_, dirOffset) || std::fread(&dir[0], 1, dirLength, file_) != dirLength) return kDumpCorrupt;
  if (!CrcOk(dirCrc, Crc32(dir.data(), dir.size()))) return kDumpCorrupt;
  const auto* p = reinterpret_cast<const unsigned char*>(dir.data());
  const unsigned char* end = p + dir.size();
  blocks_.resize(blockCount);
  for (uint32_t i = 0; i < blockCount; ++i, p += 16) {
    Block& b = blocks_[i];
    b.offset = Get64(p);
    b.size = Get32(p + 8);
    b.crc = Get32(p + 12);
    uint64_t plain = i + 1 < blockCount ? blockSize_ : streamLength_ - uint64_t(i) * blockSize_;
    if (b.offset < kHeaderSize || b.offset > dirOffset || b.size > dirOffset - b.offset) return kDumpCorrupt;
    if (compression_ == 0 && b.size != plain) return kDumpCorrupt;
  }
  uint32_t rootCount = Get32(p);
  p += 4;
  if (rootCount > kMaxRoots || uint64_t(end - p) < uint64_t(rootCount) * 12 + 4) return kDumpCorrupt;
  for (uint32_t i = 0; i < rootCount; ++i, p += 12) {
    uint64_t off = Get64(p + 4);
    if (off >= streamLength_) return kDumpCorrupt;
    roots_.push_back({Get32(p), off});
  }
  uint32_t labelLength = Get32(p);
  p += 4;
  if (labelLength > kMaxLabel || labelLength != uint64_t(end - p)) return kDumpCorrupt;
  label_.assign(reinterpret_cast<const char*>(p), labelLength);
  cache_.assign(blockCount, std::string());
  cached_.assign(blockCount, 0);
  return kDumpOk;
}

bool DumpReader::HasRoot(uint32_t id) const {
  uint64_t off;
  return RootOffset(id, &off);
}

bool DumpReader::RootOffset(uint32_t id, uint64_t* off) const {
  for (const auto& r : roots_)
    if (r.first == id) {
      *off = r.second;
      return true;
    }
  return false;
}

const std::string* DumpReader::Decoded(size_t index) {
  if (cached_[index]) return &cache_[index];
  if (error_) return nullptr;
  const auto& b = blocks_[index];
  size_t plain = index + 1 < blocks_.size() ? blockSize_ : size_t(streamLength_ - uint64_t(index) * blockSize_);
  std::string& out = cache_[index];
  try {
    std::string stored(b.size, '\0');
    if (!SeekTo(file_, b.offset) || (b.size && std::fread(&stored[0], 1, b.size, file_) != b.size)) {
      error_ = kDumpCorrupt;
      return nullptr;
    }
    if (compression_ == 0) {
      out.swap(stored);
    } else {
      if (work_.empty()) work_.resize(kExplodeWorkSize);
      out.reserve(plain);
      BlockStreams s{stored.data(), stored.size(), &out, plain};
      if (Explode(ReadBlock, WriteBlock, work_.data(), work_.size(), &s) != kExplodeOk) {
        error_ = kDumpCorrupt;
        return nullptr;
      }
    }
  } catch (const std::bad_alloc&) {
    error_ = kDumpNoMemory;
    return nullptr;
  }
  if (out.size() != plain || !CrcOk(b.crc, Crc32(out.data(), out.size()))) {
    error_ = kDumpCorrupt;
    return nullptr;
  }
  cached_[index] = 1;
  ++decodedCount_;
  return &out;
}

bool DumpReader::Fetch(uint64_t pos, void* dst, size_t n) {
  if (pos > streamLength_ || n > streamLength_ - pos) return false;
  char* d = static_cast<char*>(dst);
  while (n) {
    size_t index = size_t(pos / blockSize_);
    size_t within = size_t(pos % blockSize_);
    const std::string* b = Decoded(index);
    if (!b) return false;
    size_t take = std::min(n, b->size() - within);
    std::memcpy(d, b->data() + within, take);
    d += take;
    pos += take;
    n -= take;
  }
  return true;
}

bool DumpReader::U32(uint64_t* pos, uint32_t* v) {
  unsigned char b[4];
  if (!Fetch(*pos, b, 4)) return false;
  *pos += 4;
  *v = Get32(b);
  return true;
}

bool DumpReader::U64(uint64_t* pos, uint64_t* v) {
  unsigned char b[8];
  if (!Fetch(*pos, b, 8)) return false;
  *pos += 8;
  *v = Get64(b);
  return true;
}

// n bytes at *pos: a pointer into the cached block when they lie in one, else gathered.
const char* DumpReader::Bytes(uint64_t* pos, size_t n, std::string* scratch) {
  if (*pos > streamLength_ || n > streamLength_ - *pos) return nullptr;
  size_t within = size_t(*pos % blockSize_);
  if (n && within + n <= blockSize_) {
    const std::string* b = Decoded(size_t(*pos / blockSize_));
    if (!b) return nullptr;
    *pos += n;
    return b->data() + within;
  }
  scratch->resize(n);
  if (n && !Fetch(*pos, &(*scratch)[0], n)) return nullptr;
  *pos += n;
  return scratch->data();
}

namespace {
struct ChildRef {
  std::string name;
  uint64_t target;
};
// Error code of a failed read: the block decoder's when it failed, else damage.
}  // namespace

int DumpReader::ParseSubtree(uint64_t off, uint64_t expectedStart, bool checkStart, const char* name,
                             size_t nameLength, int depth, bool allowAlias, std::string_view fullPath,
                             uint64_t* recordEnd, ChangeNode** out) {
  *out = nullptr;
  auto fail = [&]() { return error_ ? error_ : kDumpCorrupt; };
  if (depth > kMaxDepth) return kDumpCorrupt;
  uint64_t pos = off, start;
  uint32_t childCount, valueCount;
  if (!U64(&pos, &start) || !U32(&pos, &childCount)) return fail();
  if (start > off || (checkStart && start != expectedStart)) return kDumpCorrupt;
  if (uint64_t(childCount) * 12 > streamLength_ - pos) return kDumpCorrupt;
  std::vector<ChildRef> children;
  std::string scratch;
  try {
    children.reserve(childCount);
    for (uint32_t i = 0; i < childCount; ++i) {
      uint32_t n;
      uint64_t target;
      if (!U32(&pos, &n) || n > 0xFFFF) return fail();
      const char* s = Bytes(&pos, n, &scratch);
      if (!s || !U64(&pos, &target)) return fail();
      children.push_back({std::string(s, n), target});
    }
  } catch (const std::bad_alloc&) {
    return kDumpNoMemory;
  }
  ChangeNode* key = NewKey(name, nameLength, static_cast<uint16_t>(depth), fullPath);
  if (!key) return kDumpNoMemory;
  int result = kDumpOk;
  ChangeNode** tail = &key->values;
  if (!U32(&pos, &valueCount) || uint64_t(valueCount) * 12 > streamLength_ - pos) result = fail();
  for (uint32_t i = 0; result == kDumpOk && i < valueCount; ++i) {
    uint32_t n, type, length;
    const char* vname = nullptr;
    if (!U32(&pos, &n) || (n != kDefaultValueName && n > 0xFFFF)) {
      result = fail();
      break;
    }
    std::string nameCopy;
    if (n != kDefaultValueName) {
      vname = Bytes(&pos, n, &scratch);
      if (!vname) {
        result = fail();
        break;
      }
      nameCopy.assign(vname, n);  // the data may come from the same scratch
    }
    const char* data;
    if (!U32(&pos, &type) || !U32(&pos, &length) || !(data = Bytes(&pos, length, &scratch))) {
      result = fail();
      break;
    }
    ChangeNode* v = n == kDefaultValueName ? NewValue(nullptr, 0, type, data, length, uint16_t(depth + 1))
                                           : NewValue(nameCopy.data(), n, type, data, length, uint16_t(depth + 1));
    if (!v) {
      result = kDumpNoMemory;
      break;
    }
    *tail = v;
    tail = &v->next;
  }
  *recordEnd = pos;
  uint64_t at = start;
  ChangeNode** ktail = &key->children;
  for (size_t i = 0; result == kDumpOk && i < children.size(); ++i) {
    const ChildRef& c = children[i];
    ChangeNode* sub = nullptr;
    uint64_t subEnd = 0;
    if (c.target & kAliasBit) {
      uint64_t rootOff;
      if (!allowAlias || c.target - kAliasBit > 0xFFFFFFFFu || !RootOffset(uint32_t(c.target - kAliasBit), &rootOff)) {
        result = kDumpCorrupt;
        break;
      }
      result = ParseSubtree(rootOff, 0, false, c.name.data(), c.name.size(), depth + 1, false, {}, &subEnd, &sub);
    } else {
      if (c.target < at || c.target >= off) {
        result = kDumpCorrupt;
        break;
      }
      result = ParseSubtree(c.target, at, true, c.name.data(), c.name.size(), depth + 1, allowAlias, {}, &at, &sub);
    }
    if (sub) {
      *ktail = sub;
      ktail = &sub->next;
    }
  }
  if (result == kDumpOk && at != off) result = kDumpCorrupt;
  if (result != kDumpOk) {
    FreeTree(key);
    return result;
  }
  *out = key;
  return kDumpOk;
}

int DumpReader::ReadKey(uint32_t id, std::string_view rest, std::string_view rootName, std::string_view fullPath,
                        ChangeNode** out) {
  *out = nullptr;
  uint64_t off;
  if (!RootOffset(id, &off)) return kDumpNoKey;
  bool aliasUsed = false;
  std::string scratch;
  auto fail = [&]() { return error_ ? error_ : kDumpCorrupt; };
  size_t i = 0;
  while (i < rest.size()) {
    size_t j = rest.find('\\', i);
    if (j == std::string_view::npos) j = rest.size();
    std::string_view part = rest.substr(i, j - i);
    i = j + 1;
    if (part.empty()) continue;
    uint64_t pos = off, start;
    uint32_t childCount;
    if (!U64(&pos, &start) || !U32(&pos, &childCount)) return fail();
    if (uint64_t(childCount) * 12 > streamLength_ - pos) return kDumpCorrupt;
    bool found = false;
    for (uint32_t c = 0; c < childCount && !found; ++c) {
      uint32_t n;
      uint64_t target;
      if (!U32(&pos, &n) || n > 0xFFFF) return fail();
      const char* s = Bytes(&pos, n, &scratch);
      if (!s) return fail();
      bool same = NamesEqual(s, n, part.data(), part.size());
      if (!U64(&pos, &target)) return fail();
      if (!same) continue;
      found = true;
      if (target & kAliasBit) {
        if (aliasUsed || target - kAliasBit > 0xFFFFFFFFu || !RootOffset(uint32_t(target - kAliasBit), &off))
          return kDumpCorrupt;
        aliasUsed = true;
      } else {
        if (target < start || target >= off) return kDumpCorrupt;  // every step goes backwards
        off = target;
      }
    }
    if (!found) return kDumpNoKey;
  }
  uint64_t end;
  return ParseSubtree(off, 0, false, rootName.data(), rootName.size(), 0, !aliasUsed, fullPath, &end, out);
}

}  // namespace marlow
