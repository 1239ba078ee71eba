#pragma once
// ZORAPORegistryKeys: the keys by which the audio engine finds the effect
// classes, one per class under "AudioEngine\AudioProcessingObjects" of the
// classes root, named by the CLSID in braces and holding the class's
// registration record value by value.
//
// Writing deletes a class's key and makes it anew, so a value an older
// version wrote is gone; values go in the record's order with their types.
// After each class every event on the process-wide listener list is set.
// The first failure ends the call as an HRESULT (0x8007xxxx).
//
// Reading is of outside data (any program may write these keys): strings
// are taken up to 511 units and the whole value within 1024 bytes, numbers
// only as 4-byte REG_DWORDs, interface ids only in their braced form; a
// missing or malformed value ends the read with an HRESULT.
//
// Setup-time code: it touches the store and may allocate; any thread.

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/apotypes.h"
#include "platform/com.h"
#include "platform/registry.h"

namespace zor::os {
class Event;
}

// A class's key as read back: the record's fields, with the texts and the
// interface list whole.
struct ZORAPORegisteredClass {
  CLSID clsid{};
  std::u16string friendlyName;
  std::u16string copyright;
  uint32_t majorVersion = 0;
  uint32_t minorVersion = 0;
  uint32_t flags = 0;
  uint32_t minInputConnections = 0;
  uint32_t maxInputConnections = 0;
  uint32_t minOutputConnections = 0;
  uint32_t maxOutputConnections = 0;
  uint32_t maxInstances = 0;
  std::vector<IID> interfaces;

  // The record with the first interface; texts cut to the record's 255 units.
  APO_REG_PROPERTIES ToRecord() const;
};

class ZORAPORegistryKeys {
 public:
  static constexpr const char16_t* kKeyPath = u"AudioEngine\\AudioProcessingObjects";
  // Reads use buffers of this many bytes, as the engine's own tools do:
  // 511 units of text and a terminator.
  static constexpr size_t kReadBufferBytes = 1024;
  // More interfaces than this in one key is damage, not a class.
  static constexpr uint32_t kMaxInterfaces = 64;

  // `classesRootPath` is the classes root under HKEY_LOCAL_MACHINE.
  explicit ZORAPORegistryKeys(std::u16string classesRootPath);

  // Writes the key of each record in the order given.
  HRESULT WriteAll(std::span<const APO_REG_PROPERTIES* const> records) const;
  HRESULT Write(const APO_REG_PROPERTIES& record) const;

  // Reads one class's key.
  HRESULT Read(const CLSID& clsid, ZORAPORegisteredClass& registered) const;
  // Reads every key named by a braced CLSID (other names are skipped);
  // the first failure ends the walk.
  HRESULT ReadAll(std::vector<ZORAPORegisteredClass>& registered) const;

  // Decoding of one value's bytes, as Read applies it; exposed for the fuzzer.
  static HRESULT DecodeText(zor::os::RegType type, std::span<const uint8_t> data, std::u16string& text);
  static HRESULT DecodeDword(zor::os::RegType type, std::span<const uint8_t> data, uint32_t& number);
  static HRESULT DecodeInterface(zor::os::RegType type, std::span<const uint8_t> data, IID& iid);

  // The process-wide list of events set after each class is written, for
  // anything in this process that caches the classes' keys. The caller
  // removes its event before destroying it.
  static void AddListener(zor::os::Event* event);
  static void RemoveListener(zor::os::Event* event);

 private:
  std::u16string m_path;
};
