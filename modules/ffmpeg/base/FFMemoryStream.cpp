#include "FFMemoryStream.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include "VCCritSec.h"
#include "VCGuard.h"
#include "VCObject.h"

namespace vc::ff {

namespace {

// Storage error codes the platform header does not name.
constexpr HRESULT kStgInvalidPointer = static_cast<HRESULT>(0x80030009u);  // STG_E_INVALIDPOINTER
constexpr HRESULT kStgMediumFull = static_cast<HRESULT>(0x80030070u);      // STG_E_MEDIUMFULL

// The bytes, shared by a stream and its clones.
struct StreamBytes {
  vc::CKMutex csLock;
  std::vector<uint8_t> vecData VC_GUARDED_BY(csLock);
};

// Largest stream: positions and sizes must fit the 32-bit counts of Read and
// Write many times over, but memory is finite.
constexpr ULONGLONG kMaxSize = ULONGLONG{1} << 40;

class CFFMemoryStream : public CKObjectRoot, public IStream {
 public:
  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return QueryInterfaceTable<IStream, ISequentialStream>(this, riid, ppv);
  }

  // Before the stream is handed out, so no other thread can see it yet.
  void Init(std::shared_ptr<StreamBytes> spBytes, ULONGLONG llPos) VC_NO_THREAD_SAFETY_ANALYSIS {
    m_spBytes = std::move(spBytes);
    m_llPos = llPos;
  }

  HRESULT STDMETHODCALLTYPE Read(void* pv, ULONG cb, ULONG* pcbRead) override {
    VC_GUARD_BEGIN
    if (pcbRead) *pcbRead = 0;
    if (!pv && cb > 0) return kStgInvalidPointer;
    vc::CKMutexLock lock(m_spBytes->csLock);
    const size_t cbSize = m_spBytes->vecData.size();
    const size_t cbCopy = m_llPos >= cbSize ? 0 : std::min<size_t>(cb, cbSize - static_cast<size_t>(m_llPos));
    if (cbCopy) std::memcpy(pv, m_spBytes->vecData.data() + m_llPos, cbCopy);
    m_llPos += cbCopy;
    if (pcbRead) *pcbRead = static_cast<ULONG>(cbCopy);
    return cbCopy == cb ? S_OK : S_FALSE;
    VC_GUARD_END
  }

  HRESULT STDMETHODCALLTYPE Write(const void* pv, ULONG cb, ULONG* pcbWritten) override {
    VC_GUARD_BEGIN
    if (pcbWritten) *pcbWritten = 0;
    if (!pv && cb > 0) return kStgInvalidPointer;
    vc::CKMutexLock lock(m_spBytes->csLock);
    if (m_llPos + cb > kMaxSize) return kStgMediumFull;
    std::vector<uint8_t>& vec = m_spBytes->vecData;
    try {
      if (vec.size() < m_llPos + cb) vec.resize(static_cast<size_t>(m_llPos + cb));
    } catch (const std::bad_alloc&) {
      return kStgMediumFull;
    }
    if (cb) std::memcpy(vec.data() + m_llPos, pv, cb);
    m_llPos += cb;
    if (pcbWritten) *pcbWritten = cb;
    return S_OK;
    VC_GUARD_END
  }

  HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER dlibMove, DWORD dwOrigin, ULARGE_INTEGER* plibNewPosition) override {
    VC_GUARD_BEGIN
    vc::CKMutexLock lock(m_spBytes->csLock);
    LONGLONG llBase = 0;
    switch (dwOrigin) {
      case STREAM_SEEK_SET: llBase = 0; break;
      case STREAM_SEEK_CUR: llBase = static_cast<LONGLONG>(m_llPos); break;
      case STREAM_SEEK_END: llBase = static_cast<LONGLONG>(m_spBytes->vecData.size()); break;
      default: return STG_E_INVALIDFUNCTION;
    }
    const LONGLONG llNew = llBase + dlibMove.QuadPart;
    if (llNew < 0 || static_cast<ULONGLONG>(llNew) > kMaxSize) return STG_E_INVALIDFUNCTION;
    m_llPos = static_cast<ULONGLONG>(llNew);
    if (plibNewPosition) plibNewPosition->QuadPart = m_llPos;
    return S_OK;
    VC_GUARD_END
  }

  HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER libNewSize) override {
    VC_GUARD_BEGIN
    if (libNewSize.QuadPart > kMaxSize) return kStgMediumFull;
    vc::CKMutexLock lock(m_spBytes->csLock);
    try {
      m_spBytes->vecData.resize(static_cast<size_t>(libNewSize.QuadPart));
    } catch (const std::bad_alloc&) {
      return kStgMediumFull;
    }
    return S_OK;
    VC_GUARD_END
  }

  HRESULT STDMETHODCALLTYPE CopyTo(IStream* pstm, ULARGE_INTEGER cb, ULARGE_INTEGER* pcbRead,
                                   ULARGE_INTEGER* pcbWritten) override {
    VC_GUARD_BEGIN
    if (pcbRead) pcbRead->QuadPart = 0;
    if (pcbWritten) pcbWritten->QuadPart = 0;
    if (!pstm) return kStgInvalidPointer;
    // Copied out first: the target may share our bytes (a clone).
    std::vector<uint8_t> vecChunk;
    {
      vc::CKMutexLock lock(m_spBytes->csLock);
      const size_t cbSize = m_spBytes->vecData.size();
      const size_t cbCopy = m_llPos >= cbSize ? 0 : static_cast<size_t>(std::min<ULONGLONG>(cb.QuadPart, cbSize - m_llPos));
      vecChunk.assign(m_spBytes->vecData.begin() + static_cast<ptrdiff_t>(m_llPos),
                      m_spBytes->vecData.begin() + static_cast<ptrdiff_t>(m_llPos + cbCopy));
      m_llPos += cbCopy;
    }
    if (pcbRead) pcbRead->QuadPart = vecChunk.size();
    size_t cbDone = 0;
    while (cbDone < vecChunk.size()) {
      const ULONG cbPart = static_cast<ULONG>(std::min<size_t>(vecChunk.size() - cbDone, 0x40000000));
      ULONG cbWritten = 0;
      const HRESULT hr = pstm->Write(vecChunk.data() + cbDone, cbPart, &cbWritten);
      cbDone += cbWritten;
      if (pcbWritten) pcbWritten->QuadPart = cbDone;
      if (FAILED(hr)) return hr;
      if (cbWritten < cbPart) return kStgMediumFull;
    }
    return S_OK;
    VC_GUARD_END
  }

  HRESULT STDMETHODCALLTYPE Commit(DWORD) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE Revert() override { return STG_E_INVALIDFUNCTION; }
  HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
    VC_GUARD_BEGIN
    return STG_E_INVALIDFUNCTION;
    VC_GUARD_END
  }
  HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
    VC_GUARD_BEGIN
    return STG_E_INVALIDFUNCTION;
    VC_GUARD_END
  }

  HRESULT STDMETHODCALLTYPE Stat(STATSTG* pstatstg, DWORD) override {
    VC_GUARD_BEGIN
    if (!pstatstg) return kStgInvalidPointer;
    *pstatstg = STATSTG{};
    pstatstg->type = 2;  // STGTY_STREAM
    vc::CKMutexLock lock(m_spBytes->csLock);
    pstatstg->cbSize.QuadPart = m_spBytes->vecData.size();
    return S_OK;
    VC_GUARD_END
  }

  HRESULT STDMETHODCALLTYPE Clone(IStream** ppstm) override {
    VC_GUARD_BEGIN
    if (!ppstm) return kStgInvalidPointer;
    *ppstm = nullptr;
    ComPtr<IStream> cpClone;
    HRESULT hr = CreateObject<CFFMemoryStream>(nullptr, IidOf<IStream>(), reinterpret_cast<void**>(cpClone.AddressOf()));
    if (FAILED(hr)) return hr;
    ULONGLONG llPos = 0;
    {
      vc::CKMutexLock lock(m_spBytes->csLock);
      llPos = m_llPos;
    }
    static_cast<CFFMemoryStream*>(cpClone.Get())->Init(m_spBytes, llPos);
    *ppstm = cpClone.Detach();
    return S_OK;
    VC_GUARD_END
  }

 private:
  std::shared_ptr<StreamBytes> m_spBytes;
  ULONGLONG m_llPos VC_GUARDED_BY(m_spBytes->csLock) = 0;
};

}  // namespace

HRESULT CreateMemoryStream(const void* p, size_t cb, IStream** ppStream) {
  if (!ppStream) return E_POINTER;
  *ppStream = nullptr;
  if (!p && cb > 0) return E_POINTER;
  // Allocation failures leave as exceptions for the calling frame method's guard.
  auto spBytes = std::make_shared<StreamBytes>();
  {
    vc::CKMutexLock lock(spBytes->csLock);  // uncontended: nobody else has the bytes yet
    if (cb) spBytes->vecData.assign(static_cast<const uint8_t*>(p), static_cast<const uint8_t*>(p) + cb);
  }
  ComPtr<IStream> cpStream;
  const HRESULT hr =
      CreateObject<CFFMemoryStream>(nullptr, IidOf<IStream>(), reinterpret_cast<void**>(cpStream.AddressOf()));
  if (FAILED(hr)) return hr;
  static_cast<CFFMemoryStream*>(cpStream.Get())->Init(std::move(spBytes), 0);
  *ppStream = cpStream.Detach();
  return S_OK;
}

}  // namespace vc::ff
