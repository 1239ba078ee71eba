#pragma once
// The endpoint velapo-host plays to. By default a private one, which touches
// nothing of the machine: on Linux a store root of its own in a temporary
// directory, on Windows a fresh endpoint GUID in the registry; either way an
// endpoint key whose configuration path names the given file, all removed
// when the object dies. Joined instead (`--store DIR --endpoint GUID`), it is
// an endpoint a control panel made, left as it was found, so that velapo-ctl
// in another terminal steers the same stream.

#include <memory>
#include <string>

#include "hostdevicelist.h"
#include "platform/com.h"
#include "system/zorapoendpointinfo.h"

class HostDevice;
class ZORAPOConfigurationFile;
class ZOREngineEndpoint;

class HostEndpoint {
 public:
  HostEndpoint();
  ~HostEndpoint();
  HostEndpoint(const HostEndpoint&) = delete;
  HostEndpoint& operator=(const HostEndpoint&) = delete;

  // A private store root and endpoint whose configuration is `configPath`.
  // False, with `error`, when the file is missing or the store refuses.
  bool MakePrivate(const std::string& configPath, std::string& error);
  // The endpoint `guidText` of the store at `storeDir` (Linux; Windows has
  // the one registry and takes an empty directory). False, with `error`, for
  // a GUID that does not parse or an endpoint the store does not describe.
  bool Join(const std::string& storeDir, const std::string& guidText, std::string& error);
  // Joins when `guidText` names an endpoint, else makes a private one on
  // `configPath`; then loads the endpoint's configuration for `location`.
  // False, with `error` saying which step failed.
  bool Open(const std::string& storeDir, const std::string& guidText, const std::string& configPath, uint32_t location,
            ZORAPOConfigurationFile& config, std::string& error);

  const ZORAPOEndpointInfo& Info() const { return m_info; }
  ZORAPOEndpointInfo& Info() { return m_info; }
  IMMDevice* Device() const;
  std::string GuidText() const;
  std::string ConfigPath() const;
  bool IsPrivate() const { return m_bPrivate; }

 private:
  bool Bind(const std::u16string& guid, std::string& error);
  void RemovePrivate();

  ZORAPOEndpointInfo m_info;
  HostDevice* m_pDevice = nullptr;  // counted; released by the destructor
  std::unique_ptr<ZOREngineEndpoint> m_private;  // the keys of a private endpoint
  std::unique_ptr<HostDeviceList> m_listing;  // the device in the engine's device list
  std::u16string m_guid;
  std::string m_storeRoot;  // private root to remove (Linux)
  bool m_bPrivate = false;
  HRESULT m_comInit = E_FAIL;
};

// A private directory for the settings store, made the process's store root
// (POSIX; on Windows, whose registry is the store, `root` stays empty).
// False when it cannot be made. Removed with RemovePrivateStoreRoot.
bool MakePrivateStoreRoot(std::string& root);
void RemovePrivateStoreRoot(const std::string& root);
// Joins a store at `directory` (POSIX); false on Windows for any directory
// but the empty one, which names the registry.
bool UseStoreRoot(const std::string& directory);
