// The engine's collections are singly linked lists of heap records; this frees one whose
// records own nothing else.
#pragma once
#include "base/io.h"

namespace orvalis {

template <typename T>
void FreeChain(T* p) {
  while (p) {
    T* next = p->next;
    Io().free(p);
    p = next;
  }
}

}  // namespace orvalis
