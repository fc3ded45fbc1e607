// MARLOW.DLL's trees as text, for the native dump tests and the library's tests under Wine.
#pragma once
#include <cstdint>
#include <functional>
#include <string>

#include "base/changetree.h"

namespace marlow_test {

// One line per node, depths relative to the root: equal texts are equal trees node for node and
// byte for byte, and a failed comparison shows where they part. The root's own name is the
// caller's spelling and is left out.
inline std::string Flatten(const ChangeNode* k, int base = -1) {
  if (!k) return "(no tree)";
  if (base < 0) base = k->depth;
  auto head = [&](const ChangeNode* n) {
    std::string name = n->name ? std::string(n->name) : "(default)";
    if (name.size() > 64) name = name.substr(0, 16) + "..." + std::to_string(std::hash<std::string>{}(name));
    return std::to_string(n->depth - base) + " " + std::to_string(n->flags) + " " + name + "#" + std::to_string(n->nameLength);
  };
  std::string s = (int(k->depth) == base ? "root" : head(k)) + "\n";
  for (const ChangeNode* v = k->values; v; v = v->next) {
    // A number of up to four bytes is held in the data member itself.
    const uint32_t x = uint32_t(reinterpret_cast<uintptr_t>(v->data));
    const bool inPlace = (v->type == 4 || v->type == 5) && v->length <= 4;
    s += head(v) + " type " + std::to_string(v->type) + ":";
    for (unsigned char c : std::string(inPlace ? reinterpret_cast<const char*>(&x) : static_cast<const char*>(v->data), v->length))
      s += {' ', "0123456789abcdef"[c >> 4], "0123456789abcdef"[c & 15]};
    s += "\n";
  }
  for (const ChangeNode* c = k->children; c; c = c->next) s += Flatten(c, base);
  return s;
}

}  // namespace marlow_test
