#pragma once
// An active endpoint in the device list whose configuration is a given file,
// as an audio driver's setup would leave it: the endpoint's key under the
// MMDevices path with its state and configuration property, and its settings
// key. On Linux these are keys of the settings store (whose root the caller
// chooses first), on Windows of the registry. Removed with the object, with
// whatever the effect objects wrote under the settings key. The engine
// emulator's streams name it by Guid().

#include <filesystem>
#include <string>

class ZOREngineEndpoint {
 public:
  ZOREngineEndpoint(std::u16string guid, const std::filesystem::path& configuration, bool render = true);
  ~ZOREngineEndpoint();
  ZOREngineEndpoint(const ZOREngineEndpoint&) = delete;
  ZOREngineEndpoint& operator=(const ZOREngineEndpoint&) = delete;

  // Every key and value was written.
  bool IsValid() const { return m_valid; }
  const std::u16string& Guid() const { return m_guid; }
  // The endpoint's settings key, where its mode and public settings live.
  std::u16string SettingsKeyPath() const;

 private:
  std::u16string m_guid;
  std::u16string m_endpointKey;
  bool m_valid = false;
};
