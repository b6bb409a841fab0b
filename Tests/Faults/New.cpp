// What C++ gets memory by, made to fail.

#include <cstdlib>
#include <new>

#include "Faults/FaultInjection.h"

void* operator new(std::size_t size) {
  void* const block = tervain::test::fails(tervain::test::Call::memory) ? nullptr : malloc(size);
  return block ? block : throw std::bad_alloc();
}

void* operator new[](std::size_t size) {
  return operator new(size);
}

// NOLINTBEGIN(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp,
// readability-identifier-naming)

// The sanitizer's `delete` takes what its `malloc` gave, and would complain.
extern "C" const char* __asan_default_options() {
  return "alloc_dealloc_mismatch=0";
}

// The JSON library loses the object that it was making of an initializer list when memory runs out.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:basic_json(std::initializer_list";
}

// NOLINTEND(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp,
// readability-identifier-naming)
