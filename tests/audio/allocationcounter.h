#pragma once
#include <cstdint>

namespace velapo::test {

// Counts the calling thread's operator new calls (every form) since the
// counter's construction, so a test can pin "no allocation on the audio
// thread" while workers run. Link the velapo_alloccounter target directly
// into the test executable: its replacement operators do the counting.
class AllocationCounter {
 public:
  AllocationCounter() : m_start(AllocationsOnThisThread()) {}

  // Allocations made by this thread since construction.
  uint64_t Count() const { return AllocationsOnThisThread() - m_start; }

  // Allocations made by this thread since it started.
  static uint64_t AllocationsOnThisThread();

 private:
  uint64_t m_start;
};

// While one lives, the calling thread's nothrow allocations fail (answer
// null), as when memory runs out; the throwing forms are left alone.
class NothrowAllocationFailure {
 public:
  NothrowAllocationFailure();
  ~NothrowAllocationFailure();
  NothrowAllocationFailure(const NothrowAllocationFailure&) = delete;
  NothrowAllocationFailure& operator=(const NothrowAllocationFailure&) = delete;
};

}  // namespace velapo::test
