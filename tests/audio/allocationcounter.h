#pragma once
#include <cstdint>

namespace velapo::test {

// Counts the heap allocations made through operator new (every form, array,
// nothrow and aligned included) by the calling thread, from the counter's
// construction on. Allocations of other threads are not counted, so a test
// can pin "no allocation on the audio thread" while workers run.
//
// The counting comes from replacement operators new and delete linked into
// the test executable with this file: link the velapo_alloccounter target
// directly into the test executable. Counters nest freely.
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

}  // namespace velapo::test
