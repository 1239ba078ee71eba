#pragma once
// ZORAPOEndpointTools: the system's link to the device enumerator. It lists
// the active render endpoints, gets and sets the default one, and turns the
// enumerator's callbacks, which come on the platform's threads, into events
// on one worker thread of its own, which calls the registered observers.
//
// Windows: the system's MMDevice enumerator. Linux: the settings-store
// enumerator of the platform layer, whose callbacks come from store watches,
// so a change written by any process is seen (docs/endpoints.md).
//
// The object's life belongs to its owner: AddRef and Release count nothing.
// Public operations belong to the owner's thread; the callbacks may come on
// any thread; observers are called on the worker.

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "core/zorthreadbasic.h"
#include "platform/com.h"
#include "platform/criticalsection.h"
#include "platform/event.h"
#include "system/izorapoendpointnotify.h"
#include "system/zorapoendpointinfo.h"

class ZORAPOEndpointTools : public IMMNotificationClient, public IZORThreadBasicWorker {
 public:
  static constexpr int32_t kEventDefaultChanged = 0;
  static constexpr int32_t kEventDeviceInactive = 1;
  static constexpr int32_t kEventDeviceActive = 2;
  static constexpr int32_t kEventSysFxChanged = 3;
  static constexpr int32_t kEventNone = 4;

  ZORAPOEndpointTools();
  // Stops the worker and the callbacks.
  ~ZORAPOEndpointTools() override;
  ZORAPOEndpointTools(const ZORAPOEndpointTools&) = delete;
  ZORAPOEndpointTools& operator=(const ZORAPOEndpointTools&) = delete;

  // IUnknown and IMMNotificationClient, on the platform's threads.
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) override;
  ULONG STDMETHODCALLTYPE AddRef() override;   // 2, counting nothing
  ULONG STDMETHODCALLTYPE Release() override;  // 1, counting nothing
  HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR deviceId, DWORD newState) override;
  HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR deviceId) override;
  HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR deviceId) override;
  HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow flow, ERole role, LPCWSTR defaultDeviceId) override;
  HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR deviceId, const PROPERTYKEY key) override;

  // The active render endpoints that Refresh accepts, in enumeration order;
  // true when there is at least one.
  virtual bool GetEndpoints(std::vector<ZORAPOEndpointInfo>& endpoints);
  // The same for the active capture endpoints, which GetEndpoints never
  // lists: a capture object looks for its endpoint here.
  virtual bool GetCaptureEndpoints(std::vector<ZORAPOEndpointInfo>& endpoints);
  // Makes the endpoint the default for the console role through the policy
  // client; false where that cannot be made or refuses.
  virtual bool SetDefaultEndpoint(const ZORAPOEndpointInfo& endpoint);
  // The default render endpoint of the multimedia role, by SetDevice.
  virtual bool GetDefaultEndpoint(ZORAPOEndpointInfo& endpoint);
  // Adds an observer, enabled; the first Register of all starts the worker.
  virtual void Register(IZORAPOEndpointNotify* observer);
  // Disables an observer; its entry stays (an unknown one gets a disabled
  // entry), and the worker keeps running.
  virtual void Unregister(IZORAPOEndpointNotify* observer);
  // Stop, then make the events, register the callbacks and start the
  // worker; false on any failure, undoing nothing.
  virtual bool Start();
  // Stops the worker and unregisters the callbacks; true if the platform
  // accepted the removal.
  virtual bool Stop();
  // Calls every enabled observer with `code`, in ascending pointer order.
  virtual void Broadcast(int32_t code);

  // The worker: waits for stop, device and property events.
  bool Run(ZORThreadBasic& thread, zor::os::Event& stopEvent) override;

  // Entries of the observer table, enabled or not.
  size_t ObserverEntries() const;

 private:
  // The active endpoints of one data flow, each refreshed; errors end the
  // list.
  bool ListActive(EDataFlow flow, std::vector<ZORAPOEndpointInfo>& endpoints);

  // The table is read by the worker while the owner may write it; the lock
  // (recursive) also lets an observer register from its own callback.
  mutable zor::os::CriticalSection m_observerLock;
  std::map<IZORAPOEndpointNotify*, bool> m_observers;
  ZORThreadBasic m_thread;
  std::unique_ptr<zor::os::Event> m_deviceEvent;
  std::unique_ptr<zor::os::Event> m_propertyEvent;
  std::atomic<int32_t> m_pendingCode{kEventNone};
};

// Creates a missing FxProperties subkey under every endpoint key below
// `path`. With a null path: only when "InitFxProperties" under
// Software\VEL\APO is a non-zero REG_DWORD, for the Render and then the
// Capture endpoints, true when both succeed; without the switch it touches
// nothing and is true. Any thread; touches the store.
bool InitFxProperties(const char16_t* path = nullptr);
