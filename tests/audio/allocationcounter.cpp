#include "allocationcounter.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

// Replacement allocation functions for the whole test executable. They take
// their memory from malloc, which the sanitizers still watch, and count each
// call on the calling thread. A plain integer in thread-local storage needs
// no initialisation that could itself allocate through operator new. The
// sanitizers pair every form of new with its delete, so each non-aligned
// form is replaced; no code here allocates over-aligned memory, so the
// aligned forms stay the library's own.

namespace {

thread_local uint64_t t_allocations = 0;
thread_local bool t_failNothrow = false;

}  // namespace

namespace velapo::test {

uint64_t AllocationCounter::AllocationsOnThisThread() { return t_allocations; }

NothrowAllocationFailure::NothrowAllocationFailure() { t_failNothrow = true; }
NothrowAllocationFailure::~NothrowAllocationFailure() { t_failNothrow = false; }

}  // namespace velapo::test

void* operator new(std::size_t size) {
  ++t_allocations;
  for (;;) {
    if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
    std::new_handler handler = std::get_new_handler();
    if (handler == nullptr) throw std::bad_alloc();
    handler();
  }
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (t_failNothrow) {
    ++t_allocations;
    return nullptr;
  }
  try {
    return operator new(size);
  } catch (...) {
    return nullptr;
  }
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept { return operator new(size, tag); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
