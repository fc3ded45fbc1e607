// Memory-backed read and write callbacks for the coder fuzz targets: reads come in chunks of a
// chosen size so the decoder's and encoder's refills are reached at every offset.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

namespace {

struct Pieces {
  const uint8_t* data;
  size_t left, chunk;
  std::string out;
};

unsigned Read(char* buf, unsigned size, void* param) {
  auto* p = static_cast<Pieces*>(param);
  size_t n = size < p->chunk ? size : p->chunk;
  if (n > p->left) n = p->left;
  for (size_t i = 0; i < n; ++i) buf[i] = static_cast<char>(p->data[i]);
  p->data += n;
  p->left -= n;
  return static_cast<unsigned>(n);
}

unsigned Write(const char* buf, unsigned size, void* param) {
  static_cast<Pieces*>(param)->out.append(buf, size);
  return size;
}

}  // namespace
