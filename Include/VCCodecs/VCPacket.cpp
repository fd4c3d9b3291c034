#include "VCCodecs/VCPacket.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <atomic>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

#include "VCCodecs/VCAttachments.h"
#include "VCObject.h"
#include "VCSideData.h"

namespace vc {

namespace {

template <class T>
const T* FromAddress(LONGLONG llAddress) {
  return reinterpret_cast<const T*>(static_cast<uintptr_t>(llAddress));
}
LONGLONG ToAddress(const void* p) { return static_cast<LONGLONG>(reinterpret_cast<uintptr_t>(p)); }

// Names in incoming records are input strings: read up to their zero.
bool SameBstr(BSTR a, BSTR b) {
  if (!a || !b) return a == b;
  return InString(a) == InString(b);
}

}  // namespace

// ---------------------------------------------------------------------------
// CKStreamInfo

CKStreamInfo::CKStreamInfo() : K_STREAM_INFO{} { eMediaType = eVCMT_Empty; }

CKStreamInfo::CKStreamInfo(const K_STREAM_INFO& src) : K_STREAM_INFO(src) {
  lpCodecData = 0;
  bsCodecNameOrTag = nullptr;
  const auto* pCodecData = FromAddress<uint8_t>(src.lpCodecData);
  const bool bHasCodecData = pCodecData && src.cbCodecData > 0;
  if (!bHasCodecData) cbCodecData = 0;
  if (!bHasCodecData && !src.bsCodecNameOrTag) return;

  auto spStorage = std::make_shared<CStorage>();
  if (bHasCodecData) spStorage->vecCodecData.assign(pCodecData, pCodecData + src.cbCodecData);
  if (src.bsCodecNameOrTag) {
    spStorage->bsName = CBstr(InString(src.bsCodecNameOrTag));
  }
  lpCodecData = bHasCodecData ? ToAddress(spStorage->vecCodecData.data()) : 0;
  bsCodecNameOrTag = spStorage->bsName.Get();
  m_spStorage = std::move(spStorage);
}

bool CKStreamInfo::SameAs(const K_STREAM_INFO& o) const {
  const K_STREAM_INFO& m = *this;
  if (m.eMediaType != o.eMediaType || m.raTimeBase.nNum != o.raTimeBase.nNum ||
      m.raTimeBase.nDen != o.raTimeBase.nDen || m.nWidth != o.nWidth || m.nHeight != o.nHeight ||
      m.nAspectX != o.nAspectX || m.nAspectY != o.nAspectY || m.dblRate != o.dblRate ||
      m.nSampleRate != o.nSampleRate || m.nChannels != o.nChannels || m.nBlockAlign != o.nBlockAlign ||
      m.nBitsPerCodedSample != o.nBitsPerCodedSample || m.nBitrate != o.nBitrate) {
    return false;
  }
  const auto* pOther = FromAddress<uint8_t>(o.lpCodecData);
  const LONG cbOther = (pOther && o.cbCodecData > 0) ? o.cbCodecData : 0;
  if (m.cbCodecData != cbOther) return false;
  if (cbOther > 0 && std::memcmp(FromAddress<uint8_t>(m.lpCodecData), pOther, static_cast<size_t>(cbOther)) != 0)
    return false;
  return SameBstr(m.bsCodecNameOrTag, o.bsCodecNameOrTag);
}

CKStreamInfo CKStreamInfo::FromShared(const K_STREAM_INFO& src, const CKStreamInfo& prev) {
  return prev.SameAs(src) ? prev : CKStreamInfo(src);
}

// ---------------------------------------------------------------------------
// The packet object

namespace {

// A packet is locked for a few record copies at a time and almost never by
// two threads at once: a spin lock spares the system mutex's call on every
// access (the queue reads and writes the record on every put).
class CSpinLock {
 public:
  void lock() noexcept {
    while (m_flag.test_and_set(std::memory_order_acquire)) {
      while (m_flag.test(std::memory_order_relaxed)) std::this_thread::yield();
    }
  }
  void unlock() noexcept { m_flag.clear(std::memory_order_release); }

 private:
  std::atomic_flag m_flag = ATOMIC_FLAG_INIT;
};

class CVCPacket : public CKObjectRoot, public IVCPacket, public IKPacketRecord, public IVCSideData {
 public:
  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    // The private face first: the queue asks for it on every put.
    return QueryInterfaceTable<IVCPacket, IKPacketRecord, IVCSideData>(this, riid, ppv);
  }

  ~CVCPacket() { _ReleaseExternal(); }

  // Called once, before the packet is handed out. Takes over the external
  // owner (pfnRelease) even when it fails.
  // pSharedStream, when given, is shared rather than copied (and
  // pStreamInfo is not read).
  HRESULT Init(const K_PACKET_INFO* pPacketInfo, const K_STREAM_INFO* pStreamInfo, const K_TIME* pTime,
               const void* pData, LONG cbData, PFN_PACKET_PAYLOAD_RELEASE pfnRelease, void* pContext,
               const CKStreamInfo* pSharedStream = nullptr);

  HRESULT STDMETHODCALLTYPE PacketInfoGet(K_PACKET_INFO* _pPacketInfo) override;
  HRESULT STDMETHODCALLTYPE PacketInfoSet(K_PACKET_INFO* _pPacketInfo) override;
  HRESULT STDMETHODCALLTYPE PacketStreamInfoGet(K_STREAM_INFO* _pStreamInfo) override;
  HRESULT STDMETHODCALLTYPE PacketTimeGet(K_TIME* _pTime) override;
  HRESULT STDMETHODCALLTYPE PacketAppendData(LONG cbData, LONGLONG lpData) override;

  const CKStreamInfo* STDMETHODCALLTYPE StreamInfoPeek() override { return &m_streamInfo; }
  void STDMETHODCALLTYPE RecordGet(K_TIME* pTime, K_PACKET_INFO* pPacketInfo) override;

  // Named attachments (data, strings, objects) that a packet carries to the
  // frame it decodes into and back. A packet has one set: the stream
  // argument is not used.
  HRESULT STDMETHODCALLTYPE SideDataGetCount(LONG, LONG* _pnCount) override { return m_attachments.GetCount(_pnCount); }
  HRESULT STDMETHODCALLTYPE SideDataGetByIndex(LONG, LONG _nIndex, BSTR* _pbsType, LONG* _pcbData,
                                               LONGLONG* _plpData) override {
    return m_attachments.GetByIndex(_nIndex, _pbsType, _pcbData, _plpData);
  }
  HRESULT STDMETHODCALLTYPE SideDataGet(LONG, BSTR _bsType, LONG* _pcbData, LONGLONG* _plpData) override {
    return m_attachments.GetData(_bsType, _pcbData, _plpData);
  }
  HRESULT STDMETHODCALLTYPE SideDataSet(LONG, BSTR _bsType, LONG _cbData, LONGLONG _lpData) override {
    return m_attachments.SetData(_bsType, _cbData, _lpData);
  }
  HRESULT STDMETHODCALLTYPE SideDataRemove(LONG, BSTR _bsType) override { return m_attachments.Remove(_bsType); }
  HRESULT STDMETHODCALLTYPE SideDataStrGet(LONG, BSTR _bsType, BSTR* _pbsValue) override {
    return m_attachments.GetString(_bsType, _pbsValue);
  }
  HRESULT STDMETHODCALLTYPE SideDataStrSet(LONG, BSTR _bsType, BSTR _bsValue) override {
    return m_attachments.SetString(_bsType, _bsValue);
  }
  HRESULT STDMETHODCALLTYPE SideDataObjGet(LONG, BSTR _bsType, IUnknown** _ppObj) override {
    return m_attachments.GetObject(_bsType, _ppObj);
  }
  HRESULT STDMETHODCALLTYPE SideDataObjSet(LONG, BSTR _bsType, IUnknown* _pObj) override {
    return m_attachments.SetObject(_bsType, _pObj);
  }

 private:
  // Makes the buffer hold cbPayload + cbMore bytes plus the padding, keeping
  // the current payload; reallocates geometrically. False when out of memory.
  bool _Reserve(size_t cbPayload, size_t cbMore);
  void _ReleaseExternal() noexcept {
    if (m_pfnRelease) std::exchange(m_pfnRelease, nullptr)(m_pReleaseContext);
  }

  CSpinLock m_csLock;
  K_PACKET_INFO m_packetInfo{};  // GUARDED_BY(m_csLock); lpPacketData/cbPacketData describe our payload
  CKStreamInfo m_streamInfo;     // written once by Init
  K_TIME m_time{};               // written once by Init
  std::unique_ptr<uint8_t[]> m_pBuffer;  // GUARDED_BY(m_csLock); owned payload + kPacketPadding zeros
  size_t m_cbBuffer = 0;                 // GUARDED_BY(m_csLock)
  std::vector<uint8_t> m_vecSideData;    // written once by Init
  // External payload owner; null once the payload is ours (or always was).
  PFN_PACKET_PAYLOAD_RELEASE m_pfnRelease = nullptr;  // GUARDED_BY(m_csLock)
  void* m_pReleaseContext = nullptr;
  CKAttachments m_attachments;
};

HRESULT CVCPacket::Init(const K_PACKET_INFO* pPacketInfo, const K_STREAM_INFO* pStreamInfo, const K_TIME* pTime,
                        const void* pData, LONG cbData, PFN_PACKET_PAYLOAD_RELEASE pfnRelease, void* pContext,
                        const CKStreamInfo* pSharedStream) {
  m_pfnRelease = pfnRelease;
  m_pReleaseContext = pContext;
  if (cbData < 0) return E_INVALIDARG;
  if (!pData && cbData > 0) return E_POINTER;
  if (pPacketInfo) {
    m_packetInfo = *pPacketInfo;
    if (m_packetInfo.cbSideData < 0) return E_INVALIDARG;
    if (!m_packetInfo.lpSideData && m_packetInfo.cbSideData > 0) return E_POINTER;
  }
  if (pTime) m_time = *pTime;
  try {
    if (pSharedStream) {
      m_streamInfo = *pSharedStream;  // one reference on the shared storage
    } else if (pStreamInfo) {
      m_streamInfo = CKStreamInfo(*pStreamInfo);
    }
    if (m_packetInfo.cbSideData > 0) {
      const auto* pSide = FromAddress<uint8_t>(m_packetInfo.lpSideData);
      m_vecSideData.assign(pSide, pSide + m_packetInfo.cbSideData);
    }
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
  m_packetInfo.lpSideData = m_vecSideData.empty() ? 0 : ToAddress(m_vecSideData.data());
  m_packetInfo.cbSideData = static_cast<LONG>(m_vecSideData.size());

  if (pfnRelease) {
    m_packetInfo.lpPacketData = cbData > 0 ? ToAddress(pData) : 0;
  } else {
    if (!_Reserve(0, static_cast<size_t>(cbData))) return E_OUTOFMEMORY;
    if (cbData > 0) std::memcpy(m_pBuffer.get(), pData, static_cast<size_t>(cbData));
    m_packetInfo.lpPacketData = ToAddress(m_pBuffer.get());
  }
  m_packetInfo.cbPacketData = cbData;
  return S_OK;
}

bool CVCPacket::_Reserve(size_t cbPayload, size_t cbMore) {
  const size_t cbNeeded = cbPayload + cbMore + kPacketPadding;
  if (m_pBuffer && cbNeeded <= m_cbBuffer) return true;
  const size_t cbNew = std::max(cbNeeded, m_pBuffer ? 2 * m_cbBuffer : size_t{0});
  std::unique_ptr<uint8_t[]> pNew(new (std::nothrow) uint8_t[cbNew]);
  if (!pNew) return false;
  if (cbPayload > 0) std::memcpy(pNew.get(), m_pBuffer.get(), cbPayload);
  std::memset(pNew.get() + cbPayload, 0, cbNew - cbPayload);
  m_pBuffer = std::move(pNew);
  m_cbBuffer = cbNew;
  return true;
}

HRESULT CVCPacket::PacketInfoGet(K_PACKET_INFO* _pPacketInfo) {
  if (!_pPacketInfo) return E_POINTER;
  std::lock_guard<CSpinLock> lock(m_csLock);
  *_pPacketInfo = m_packetInfo;
  return S_OK;
}

HRESULT CVCPacket::PacketInfoSet(K_PACKET_INFO* _pPacketInfo) {
  if (!_pPacketInfo) return E_POINTER;
  std::lock_guard<CSpinLock> lock(m_csLock);
  // The payload and side-data pointers stay ours whatever the caller passes:
  // the record is often a copy the caller edited, and a packet must never
  // describe memory it does not keep alive.
  const K_PACKET_INFO own = m_packetInfo;
  m_packetInfo = *_pPacketInfo;
  m_packetInfo.lpPacketData = own.lpPacketData;
  m_packetInfo.cbPacketData = own.cbPacketData;
  m_packetInfo.lpSideData = own.lpSideData;
  m_packetInfo.cbSideData = own.cbSideData;
  return S_OK;
}

HRESULT CVCPacket::PacketStreamInfoGet(K_STREAM_INFO* _pStreamInfo) {
  if (!_pStreamInfo) return E_POINTER;
  // The name is an output string: the caller owns (and frees) what it gets.
  BSTR bsName = nullptr;
  if (const BSTR bsOwn = m_streamInfo.bsCodecNameOrTag) {
    bsName = SysAllocStringLen(bsOwn, SysStringLen(bsOwn));
    if (!bsName) return E_OUTOFMEMORY;
  }
  *_pStreamInfo = m_streamInfo.Get();
  _pStreamInfo->bsCodecNameOrTag = bsName;
  return S_OK;
}

void CVCPacket::RecordGet(K_TIME* pTime, K_PACKET_INFO* pPacketInfo) {
  if (pTime) *pTime = m_time;
  if (pPacketInfo) {
    std::lock_guard<CSpinLock> lock(m_csLock);
    *pPacketInfo = m_packetInfo;
  }
}

HRESULT CVCPacket::PacketTimeGet(K_TIME* _pTime) {
  if (!_pTime) return E_POINTER;
  *_pTime = m_time;
  return S_OK;
}

HRESULT CVCPacket::PacketAppendData(LONG cbData, LONGLONG lpData) {
  if (cbData < 0) return E_INVALIDARG;
  if (cbData == 0) return S_FALSE;
  if (!lpData) return E_POINTER;
  const auto* pSource = FromAddress<uint8_t>(lpData);

  PFN_PACKET_PAYLOAD_RELEASE pfnRelease = nullptr;
  void* pContext = nullptr;
  {
    std::lock_guard<CSpinLock> lock(m_csLock);
    const size_t cbOld = static_cast<size_t>(m_packetInfo.cbPacketData);
    if (cbOld + static_cast<size_t>(cbData) > static_cast<size_t>(std::numeric_limits<LONG>::max()))
      return E_INVALIDARG;
    if (m_pfnRelease) {
      // The first append makes an external payload our own: the owner's
      // memory cannot grow. The source may lie in that memory, which stays
      // valid until the owner is released below.
      const auto* pExternal = FromAddress<uint8_t>(m_packetInfo.lpPacketData);
      if (!_Reserve(0, cbOld + static_cast<size_t>(cbData))) return E_OUTOFMEMORY;
      if (cbOld > 0) std::memcpy(m_pBuffer.get(), pExternal, cbOld);
      std::memcpy(m_pBuffer.get() + cbOld, pSource, static_cast<size_t>(cbData));
      pfnRelease = std::exchange(m_pfnRelease, nullptr);
      pContext = m_pReleaseContext;
    } else {
      // The source may be our own payload: keep the old buffer alive until
      // the bytes are copied.
      std::unique_ptr<uint8_t[]> pOld;
      if (cbOld + static_cast<size_t>(cbData) + kPacketPadding > m_cbBuffer) {
        const size_t cbNew = std::max(cbOld + static_cast<size_t>(cbData) + kPacketPadding, 2 * m_cbBuffer);
        std::unique_ptr<uint8_t[]> pNew(new (std::nothrow) uint8_t[cbNew]);
        if (!pNew) return E_OUTOFMEMORY;
        if (cbOld > 0) std::memcpy(pNew.get(), m_pBuffer.get(), cbOld);
        pOld = std::exchange(m_pBuffer, std::move(pNew));
        m_cbBuffer = cbNew;
      }
      std::memmove(m_pBuffer.get() + cbOld, pSource, static_cast<size_t>(cbData));
    }
    const size_t cbNewPayload = cbOld + static_cast<size_t>(cbData);
    std::memset(m_pBuffer.get() + cbNewPayload, 0, kPacketPadding);
    m_packetInfo.lpPacketData = ToAddress(m_pBuffer.get());
    m_packetInfo.cbPacketData = static_cast<LONG>(cbNewPayload);
  }
  if (pfnRelease) pfnRelease(pContext);  // outside the lock: the owner's code is not ours
  return S_OK;
}

HRESULT CreatePacket(const K_PACKET_INFO* pPacketInfo, const K_STREAM_INFO* pStreamInfo, const K_TIME* pTime,
                     const void* pData, LONG cbData, PFN_PACKET_PAYLOAD_RELEASE pfnRelease, void* pContext,
                     IVCPacket** ppPacket, const CKStreamInfo* pSharedStream = nullptr) {
  if (!ppPacket) {
    if (pfnRelease) pfnRelease(pContext);
    return E_POINTER;
  }
  *ppPacket = nullptr;
  CKComObject<CVCPacket>* pObject = nullptr;
  HRESULT hr = CKComObject<CVCPacket>::CreateInstance(&pObject);
  if (FAILED(hr)) {
    if (pfnRelease) pfnRelease(pContext);
    return hr;
  }
  // From here the object owns the external payload and releases it when it goes.
  hr = pObject->Init(pPacketInfo, pStreamInfo, pTime, pData, cbData, pfnRelease, pContext, pSharedStream);
  if (FAILED(hr)) {
    pObject->Release();
    return hr;
  }
  *ppPacket = pObject;  // the creation reference
  return S_OK;
}

}  // namespace

HRESULT CreateVCPacket(const K_PACKET_INFO* pPacketInfo, const K_STREAM_INFO* pStreamInfo, const K_TIME* pTime,
                       const void* pData, LONG cbData, IVCPacket** ppPacket) {
  return CreatePacket(pPacketInfo, pStreamInfo, pTime, pData, cbData, nullptr, nullptr, ppPacket);
}

HRESULT CreateVCPacketOver(const K_PACKET_INFO* pPacketInfo, const K_STREAM_INFO* pStreamInfo,
                           const K_TIME* pTime, const void* pData, LONG cbData,
                           PFN_PACKET_PAYLOAD_RELEASE pfnRelease, void* pContext, IVCPacket** ppPacket) {
  if (!pfnRelease) {
    if (ppPacket) *ppPacket = nullptr;
    return E_INVALIDARG;
  }
  return CreatePacket(pPacketInfo, pStreamInfo, pTime, pData, cbData, pfnRelease, pContext, ppPacket);
}

HRESULT CreateVCPacketOver(const K_PACKET_INFO* pPacketInfo, const CKStreamInfo& stream, const K_TIME* pTime,
                           const void* pData, LONG cbData, PFN_PACKET_PAYLOAD_RELEASE pfnRelease, void* pContext,
                           IVCPacket** ppPacket) {
  if (!pfnRelease) {
    if (ppPacket) *ppPacket = nullptr;
    return E_INVALIDARG;
  }
  return CreatePacket(pPacketInfo, nullptr, pTime, pData, cbData, pfnRelease, pContext, ppPacket, &stream);
}

ComPtr<IKPacketRecord> VCPacketRecordOf(IVCPacket* pPacket) {
  ComPtr<IKPacketRecord> cpRecord;
  if (!pPacket ||
      FAILED(pPacket->QueryInterface(IidOf<IKPacketRecord>(), reinterpret_cast<void**>(cpRecord.AddressOf()))))
    return ComPtr<IKPacketRecord>();
  return cpRecord;
}

HRESULT VCPacketStreamInfo(IVCPacket* pPacket, CKStreamInfo* pStream) {
  if (!pPacket || !pStream) return E_POINTER;
  if (ComPtr<IKPacketRecord> cpRecord = VCPacketRecordOf(pPacket)) {
    *pStream = *cpRecord->StreamInfoPeek();
    return S_OK;
  }
  K_STREAM_INFO stream{};
  const HRESULT hr = pPacket->PacketStreamInfoGet(&stream);
  if (FAILED(hr)) return hr;
  try {
    *pStream = CKStreamInfo(stream);
  } catch (const std::bad_alloc&) {
    SysFreeString(stream.bsCodecNameOrTag);
    return E_OUTOFMEMORY;
  }
  SysFreeString(stream.bsCodecNameOrTag);
  return S_OK;
}

eVCMediaType VCPacketMediaType(IVCPacket* pPacket) {
  if (!pPacket) return eVCMT_Empty;
  if (ComPtr<IKPacketRecord> cpRecord = VCPacketRecordOf(pPacket)) return cpRecord->StreamInfoPeek()->eMediaType;
  K_STREAM_INFO stream{};
  if (FAILED(pPacket->PacketStreamInfoGet(&stream))) return eVCMT_Empty;
  SysFreeString(stream.bsCodecNameOrTag);
  return stream.eMediaType;
}

}  // namespace vc
