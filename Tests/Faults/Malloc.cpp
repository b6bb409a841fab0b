// The C library's allocator, which C++ gets its memory from too, made to fail.

#include <cstddef>

#include "Faults/FaultInjection.h"

using tervain::test::Call;
using tervain::test::fails;

extern "C" {

// The names by which an allocator of one's own can call the C library's.
// NOLINTBEGIN(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp,
// readability-identifier-naming)
void* __libc_malloc(std::size_t size) noexcept;
void* __libc_calloc(std::size_t count, std::size_t size) noexcept;
void* __libc_realloc(void* block, std::size_t size) noexcept;
// NOLINTEND(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp,
// readability-identifier-naming)

void* malloc(std::size_t size) noexcept {
  return fails(Call::memory) ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) noexcept {
  return fails(Call::memory) ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) noexcept {
  return fails(Call::memory) ? nullptr : __libc_realloc(block, size);
}

}  // extern "C"
