#pragma once
// A named block of memory that every process on the machine can open, with
// the rules of a Windows file mapping on the paging file:
//   - one name means one block for every process, whichever opens it;
//   - whichever process comes first creates it, and it is all zeros when
//     its creator has finished; openers never clear it;
//   - it lives exactly while some process holds it open, and the next Open
//     after the last holder let go (by Close, exit or being killed) starts
//     again from zeros;
//   - Exists looks without leaving anything behind.
// Windows: CreateFileMappingW on the paging file with a null DACL. POSIX: a
// shm_open object held by a shared flock of every holder; see
// docs/sharedmemory.md for the mapping of names and the creation protocol.
//
// One object holds one block. Open and Close may block briefly on other
// processes' Open and Close; nothing here belongs on the audio thread except
// reading and writing through the view, which is plain memory.

#include <cstdint>
#include <memory>
#include <string_view>

namespace zor::os {

class SharedMemory {
 public:
  enum class OpenStatus {
    Created,  // this call made the block; it is all zeros
    Opened,   // the block existed; its content is as its holders left it
    Failed,
  };

  SharedMemory();
  // Unmaps and lets go of the block.
  ~SharedMemory();
  SharedMemory(const SharedMemory&) = delete;
  SharedMemory& operator=(const SharedMemory&) = delete;

  // Creates the block of `size` bytes or joins the one of that name. A block
  // already held by this object is closed first. A size of 0 fails.
  OpenStatus Open(std::u16string_view name, uint32_t size);
  // Whether some process holds a block of that name. Creates nothing.
  static bool Exists(std::u16string_view name);

  bool IsOpen() const;
  // Maps the whole block for reading and writing, once; later calls return
  // the same view. Null when no block is held or the mapping fails.
  void* Map();
  void Unmap();
  void* View() const;
  // Bytes that may be used through the view: the size asked for, or less
  // when the block was created smaller by another opener.
  uint32_t UsableSize() const;
  // Unmaps and lets go; the last holder's Close ends the block.
  void Close();

  struct State;

 private:
  std::unique_ptr<State> m_state;
};

}  // namespace zor::os
