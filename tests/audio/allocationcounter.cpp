#include "allocationcounter.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

// Replacement allocation functions for the whole test executable. They take
// their memory from malloc, which the sanitizers still watch, and count each
// call on the calling thread. A plain integer in thread-local storage needs
// no initialisation that could itself allocate through operator new.

namespace {

thread_local uint64_t t_allocations = 0;
thread_local bool t_failNothrow = false;

void* AllocateCounted(std::size_t size) {
  ++t_allocations;
  if (size == 0) {
    size = 1;
  }
  for (;;) {
    if (void* memory = std::malloc(size)) {
      return memory;
    }
    std::new_handler handler = std::get_new_handler();
    if (handler == nullptr) {
      throw std::bad_alloc();
    }
    handler();
  }
}

// Over-aligned memory without aligned_alloc, which MinGW lacks: allocate room
// for the alignment and a pointer, and keep malloc's pointer just in front of
// the aligned block.
void* AllocateAlignedCounted(std::size_t size, std::align_val_t alignment) {
  const auto align = static_cast<std::size_t>(alignment);
  if (size > SIZE_MAX - align - sizeof(void*)) {
    ++t_allocations;
    throw std::bad_alloc();
  }
  auto* raw = static_cast<unsigned char*>(AllocateCounted(size + align + sizeof(void*)));
  const auto start = reinterpret_cast<std::uintptr_t>(raw + sizeof(void*));
  auto* aligned = reinterpret_cast<unsigned char*>((start + align - 1) & ~(std::uintptr_t{align} - 1));
  reinterpret_cast<void**>(aligned)[-1] = raw;
  return aligned;
}

void FreeAligned(void* memory) noexcept {
  if (memory != nullptr) {
    std::free(static_cast<void**>(memory)[-1]);
  }
}

}  // namespace

namespace velapo::test {

uint64_t AllocationCounter::AllocationsOnThisThread() { return t_allocations; }

NothrowAllocationFailure::NothrowAllocationFailure() { t_failNothrow = true; }
NothrowAllocationFailure::~NothrowAllocationFailure() { t_failNothrow = false; }

}  // namespace velapo::test

void* operator new(std::size_t size) { return AllocateCounted(size); }
void* operator new[](std::size_t size) { return AllocateCounted(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (t_failNothrow) {
    ++t_allocations;
    return nullptr;
  }
  try {
    return AllocateCounted(size);
  } catch (...) {
    return nullptr;
  }
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
  return operator new(size, tag);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return AllocateAlignedCounted(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return AllocateAlignedCounted(size, alignment);
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  if (t_failNothrow) {
    ++t_allocations;
    return nullptr;
  }
  try {
    return AllocateAlignedCounted(size, alignment);
  } catch (...) {
    return nullptr;
  }
}
void* operator new[](std::size_t size, std::align_val_t alignment,
                     const std::nothrow_t& tag) noexcept {
  return operator new(size, alignment, tag);
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { FreeAligned(memory); }
void operator delete[](void* memory, std::align_val_t) noexcept { FreeAligned(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { FreeAligned(memory); }
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept {
  FreeAligned(memory);
}
void operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept {
  FreeAligned(memory);
}
void operator delete[](void* memory, std::align_val_t, const std::nothrow_t&) noexcept {
  FreeAligned(memory);
}
