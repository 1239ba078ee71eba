#pragma once
// ZORSharedMemory: a named block of memory that every process on the
// machine can open (zor::os::SharedMemory). The block is created zeroed by
// whichever process comes first and lives while any process holds it; the
// next Create after the last holder let go starts from zeros again.
//
// Names are Windows object names, "Global\..." for blocks that cross
// sessions; on POSIX they map onto shm_open names (docs/sharedmemory.md).
// Not synchronised: the owner's thread opens and closes; what guards the
// content is the derived class's business.

#include <cstdint>
#include <string_view>

#include "platform/sharedmemory.h"

class ZORSharedMemory {
 public:
  ZORSharedMemory() = default;
  ZORSharedMemory(const ZORSharedMemory&) = delete;
  ZORSharedMemory& operator=(const ZORSharedMemory&) = delete;
  // Unmaps the view and lets go of the block.
  virtual ~ZORSharedMemory();

  // Creates the block of `size` bytes, or joins the existing one, and holds
  // it; true when held (and at once when a block is already held). With
  // `probeOnly`, holds nothing, creates nothing and answers whether the
  // block exists.
  virtual bool Create(std::u16string_view name, uint32_t size, bool probeOnly);
  // Unmaps the view and lets go of the block; always true.
  virtual bool Close();

  // Maps the whole block for reading and writing, once; null without a
  // block or when mapping fails.
  void* MapView();
  // Whether some process holds a block of that name; leaves nothing behind.
  static bool Exists(std::u16string_view name);

  // Bytes usable through the view: the size given to Create, less only when
  // another process made the block smaller.
  uint32_t GetSize() const { return m_size; }

 protected:
  zor::os::SharedMemory m_mapping;
  uint32_t m_size = 0;
  void* m_pView = nullptr;
};
