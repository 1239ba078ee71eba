#pragma once
// ZORPropertySetSharedMem: a property set kept in a named shared block under
// a named mutex, so that settings pass between the audio engine's process
// and a tuning tool without the registry.
//
// Block layout (little-endian), 65536 bytes unless the opener asks for
// another size, which every opener of a name must agree on:
//
//   offset  size  field
//   0       4     L: length of the blob in bytes; 0 means no content
//   4       L     the property blob (ZORPropertyBlob)
//   4 + L   rest  not interpreted; an earlier, longer write may have left
//                 bytes here
//
// The mutex is the block name with "_MuteX" appended, spelt so by every
// process. It guards the block only; this object has no lock of its own.
// Read and Write answer 0 or one of the ZOR_SHM_ERROR_ codes. The block is
// written by whatever process on the machine: Read takes L once, refuses an
// L past the block, and parses a private copy, so it never reads outside.
//
// Any thread of any process may Read and Write one block; Open and Close
// belong to the owner. The mutex ranks above the lock of a
// ZORPropertySetThreadsafe given as the set, and the set's observers run
// under it. Never on the audio thread.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/namedmutex.h"
#include "values/zorpropertyset.h"
#include "values/zorsharedmemory.h"

inline constexpr uint32_t ZOR_SHM_ERROR_NO_VIEW = 0xF0000000;    // no view is mapped
inline constexpr uint32_t ZOR_SHM_ERROR_MUTEX = 0xF0000001;      // mutex not had in time
inline constexpr uint32_t ZOR_SHM_ERROR_TOO_LARGE = 0xF0000002;  // the blob does not fit
inline constexpr uint32_t ZOR_SHM_ERROR_PARSE = 0xF0000003;      // the blob does not parse

class ZORPropertySetSharedMem : public ZORSharedMemory {
 public:
  static constexpr uint32_t kDefaultSize = 0x10000;
  static constexpr uint32_t kLengthFieldSize = 4;
  static constexpr uint32_t kMutexWaitMs = 500;
  static constexpr std::u16string_view kMutexSuffix = u"_MuteX";

  ZORPropertySetSharedMem() = default;
  // Closes the block and the mutex.
  ~ZORPropertySetSharedMem() override;

  // Unmaps and lets go of the block; the mutex stays open. Always true.
  bool Close() override;

  // The set that Read fills and Write stores; not owned, null detaches.
  // Without a set, Read and Write leave block and set alone and answer 0.
  virtual void SetPropertySet(ZORPropertySet* set);
  // Lets go of any block held, then creates or joins the block `name` of
  // `size` bytes (0: kDefaultSize), maps it and opens its mutex unless the
  // one of this name is open already. True once the block is mapped, even
  // without a mutex: Read and Write then answer ZOR_SHM_ERROR_MUTEX.
  virtual bool Open(std::u16string_view name, uint32_t size);
  // The name of the block held, empty before a successful Open.
  virtual const std::u16string& GetName() const;
  virtual bool IsOpen() const;

  // Brings the block into the set. With `merge`, the blob is merged through
  // the set's SetProperty (so its observers hear of changes) with the two
  // flags, and the answer is 0. Without it, the set is emptied and takes
  // the blob; a malformed blob keeps what was read before the fault and
  // answers ZOR_SHM_ERROR_PARSE. L of 0 leaves the set alone and answers 0;
  // L past the block leaves it alone and answers ZOR_SHM_ERROR_PARSE.
  virtual uint32_t Read(bool merge, bool overwriteExisting, bool addNew);
  // Stores the set's blob; an empty set stores L of 0. A blob over the block
  // size minus 4 answers ZOR_SHM_ERROR_TOO_LARGE and leaves the block as it
  // was. Entries with an empty value are left out.
  virtual uint32_t Write();

  // The parse of a block's bytes into `set`, as Read does it under the
  // mutex; what the fuzzer drives.
  static uint32_t ReadBlock(std::span<const uint8_t> block, ZORPropertySet& set, bool merge,
                            bool overwriteExisting, bool addNew);

 private:
  void AcquireMutex();
  // Waits as Read and Write do. An abandoned mutex counts as a failed wait
  // and is released again, so the next wait by anyone gets it.
  bool WaitForMutex();

  ZORPropertySet* m_pSet = nullptr;
  std::u16string m_name;
  std::u16string m_mutexName;
  zor::os::NamedMutex m_mutex;
};
