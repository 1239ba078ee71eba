#include "platform/win32/cmediabuffer.h"

#include <new>

HRESULT CMediaBuffer::Create(DWORD maxLength, IMediaBuffer** buffer) {
  if (buffer == nullptr) {
    return E_POINTER;
  }
  *buffer = nullptr;
  // At least one byte, so that an empty buffer still has an address to give.
  std::unique_ptr<BYTE[]> bytes(new (std::nothrow) BYTE[maxLength > 0 ? maxLength : 1]);
  if (!bytes) {
    return E_OUTOFMEMORY;
  }
  auto* created = new (std::nothrow) CMediaBuffer(maxLength, std::move(bytes));
  if (created == nullptr) {
    return E_OUTOFMEMORY;
  }
  *buffer = created;
  return S_OK;
}

CMediaBuffer::CMediaBuffer(DWORD maxLength, std::unique_ptr<BYTE[]> bytes)
    : m_maxLength(maxLength), m_bytes(std::move(bytes)), m_capacity(maxLength) {}

HRESULT CMediaBuffer::QueryInterface(REFIID iid, void** object) {
  if (object == nullptr) {
    return E_POINTER;
  }
  if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, __uuidof(IMediaBuffer))) {
    *object = static_cast<IMediaBuffer*>(this);
    AddRef();
    return S_OK;
  }
  *object = nullptr;
  return E_NOINTERFACE;
}

ULONG CMediaBuffer::AddRef() { return m_refCount.fetch_add(1, std::memory_order_relaxed) + 1; }

ULONG CMediaBuffer::Release() {
  const ULONG remaining = m_refCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
  if (remaining == 0) {
    delete this;
  }
  return remaining;
}

HRESULT CMediaBuffer::SetLength(DWORD length) {
  if (length > m_maxLength) {
    return E_INVALIDARG;
  }
  m_length = length;
  return S_OK;
}

HRESULT CMediaBuffer::GetMaxLength(DWORD* maxLength) {
  if (maxLength == nullptr) {
    return E_POINTER;
  }
  *maxLength = m_maxLength;
  return S_OK;
}

HRESULT CMediaBuffer::GetBufferAndLength(BYTE** buffer, DWORD* length) {
  if (buffer == nullptr && length == nullptr) {
    return E_POINTER;
  }
  if (buffer != nullptr) {
    *buffer = m_bytes.get();
  }
  if (length != nullptr) {
    *length = m_length;
  }
  return S_OK;
}

// audio thread
bool CMediaBuffer::Rearm(DWORD maxLength) {
  if (maxLength > m_capacity || m_refCount.load(std::memory_order_acquire) != 1) {
    return false;
  }
  m_maxLength = maxLength;
  m_length = 0;
  return true;
}
