#pragma once
// The little COM objects the platform layer and the tools hand out answer
// for IUnknown and one interface, and count their references; this is that
// part, written once.

#include <atomic>

#include "platform/com.h"

namespace zor::os {

template <typename Interface>
class ComObject : public Interface {
 public:
  explicit ComObject(const IID& iid) : m_iid(iid) {}
  virtual ~ComObject() = default;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, m_iid)) {
      *ppv = static_cast<Interface*>(this);
      this->AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_refs; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --m_refs;
    if (left == 0) delete this;
    return left;
  }

 private:
  const IID& m_iid;
  std::atomic<ULONG> m_refs{1};
};

}  // namespace zor::os
