// The scripted encoder of the test module, served under the four encoder
// class identifiers of the codec table (NVEnc, IntelQS, AMD, the general
// one). Each object knows the class it was created as, so one script can
// make the NVIDIA class report busy and the general one accept. It turns
// frames into packets with the frames' times (or scripted ones), after a
// scripted delay, and counts its frames (for "fail from frame N on").
//
// The facade calls it from a feeding and a draining thread; its packets and
// counters sit under one lock, never held while the script holds a call.
#include <algorithm>
#include <atomic>
#include <deque>
#include <string>

#include "Devices/KPropsImpl.h"
#include "ScriptedScript.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCCodecs/VCPacket.h"
#include "VCCritSec.h"
#include "VCObject.h"

namespace vctest {

namespace {

constexpr OLECHAR kTagProperty[] = W("{17F17C04-5856-4537-8621-D3A3A8CDB017}");

const char* EncoderKind(eClass objClass) {
  switch (objClass) {
    case eClass::NVEncEncoder: return "nvenc";
    case eClass::IntelQSEncoder: return "intelqs";
    case eClass::AMDEncoder: return "amd";
    case eClass::GeneralEncoder: return "general";
    default: break;
  }
  return "?";
}

class CScriptedEncoder : public vc::CKObjectRoot, public IVCEncoder, public CScriptedObject<CScriptedEncoder> {
 public:
  explicit CScriptedEncoder(eClass objClass) : m_eClass(objClass) {}

  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return vc::QueryInterfaceTable<IVCEncoder, IVCProps>(this, riid, ppv);
  }
  // The tag is answered here: its name is no attribute a test would set.
  HRESULT _PropsGetComputed(vc::StringView name, BSTR* pbsValue) {
    if (name != vc::StringView(kTagProperty) || m_strTag.empty()) return S_FALSE;
    *pbsValue = vc::CBstr(std::string_view(m_strTag)).Detach();
    return S_OK;
  }

  // What the Create step said the object answers.
  void Init(const Step& step) {
    m_strTag = step.strTag;
    if (!step.strCodecName.empty())
      PropsSet(vc::CBstr(std::string_view("codec_name")), vc::CBstr(std::string_view(step.strCodecName)));
    if (!step.strCodecCodec.empty())
      PropsSet(vc::CBstr(std::string_view("codec::codec")), vc::CBstr(std::string_view(step.strCodecCodec)));
  }

  HRESULT STDMETHODCALLTYPE EncodeCodecSet(eVCMediaType _eCodecType, BSTR _bsConfigParams) override {
    CallRecord record = _Record(eCall::EncodeCodecSet);
    record.strText = Utf8(_bsConfigParams);
    record.llValue = _eCodecType;
    const Step step = _Run(record);
    if (SUCCEEDED(step.hr)) {
      vc::CKMutexLock lock(m_csState);
      m_eMediaType = _eCodecType;
    }
    return step.hr;
  }

  HRESULT STDMETHODCALLTYPE EncodeFramePut(IVCFrame* _pFrame, K_AV_PROPS*, IVCPacket** _ppPacket,
                                           BSTR _bsHints) override {
    if (_ppPacket) *_ppPacket = nullptr;
    CallRecord record = _Record(eCall::EncodeFramePut);
    record.strText = Utf8(_bsHints);
    record.bPacket = _pFrame != nullptr;
    record.llArg = static_cast<LONGLONG>(reinterpret_cast<uintptr_t>(_pFrame));
    K_TIME time{};
    if (_pFrame && SUCCEEDED(_pFrame->VCTimeGet(&time))) {
      record.rtStart = time.rtStartTime;
      record.rtEnd = time.rtEndTime;
    }
    const Step step = _Run(record);
    if (FAILED(step.hr)) return step.hr;

    vc::CKMutexLock lock(m_csState);
    if (_pFrame) {
      const int nFrame = ++m_nFrames;
      if (step.nFailAt > 0 && nFrame >= step.nFailAt) return step.hrFail;
      if (!step.bNoPacket) {
        K_TIME packetTime = time;
        if (step.bFrameTimes) {
          packetTime.rtStartTime = step.rtStart;
          packetTime.rtEndTime = step.rtEnd;
        }
        m_deqWaiting.push_back(packetTime);
      }
    }
    const size_t nKeep = _pFrame ? static_cast<size_t>(std::max(step.nDelay, 0)) : 0;
    while (m_deqWaiting.size() > nKeep) {
      vc::ComPtr<IVCPacket> cpPacket = _MakePacket(m_deqWaiting.front());
      m_deqWaiting.pop_front();
      if (cpPacket) m_deqReady.push_back(cpPacket);
    }
    if (_ppPacket && !m_deqReady.empty()) {
      *_ppPacket = m_deqReady.front().Detach();
      m_deqReady.pop_front();
    }
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE EncodePacketsGet(IVCPacket** _ppPacket, LONG* _pnReadyPackets, LONGLONG _rtMaxWaitTime,
                                             BSTR _bsHints) override {
    if (_ppPacket) *_ppPacket = nullptr;
    if (_pnReadyPackets) *_pnReadyPackets = 0;
    CallRecord record = _Record(eCall::EncodePacketsGet);
    record.strText = Utf8(_bsHints);
    record.llValue = _rtMaxWaitTime;
    const Step step = _Run(record);
    if (FAILED(step.hr)) return step.hr;
    vc::CKMutexLock lock(m_csState);
    if (m_deqReady.empty()) return vc::VC_E_EMPTY;
    if (_ppPacket) {
      *_ppPacket = m_deqReady.front().Detach();
      m_deqReady.pop_front();
    }
    if (_pnReadyPackets) *_pnReadyPackets = static_cast<LONG>(m_deqReady.size());
    return step.hr;
  }

  HRESULT STDMETHODCALLTYPE EncodeClose() override {
    const Step step = _Run(_Record(eCall::EncodeClose));
    if (SUCCEEDED(step.hr)) {
      vc::CKMutexLock lock(m_csState);
      m_deqWaiting.clear();
      m_deqReady.clear();
      m_nFrames = 0;
    }
    return step.hr;
  }

 private:
  CallRecord _Record(eCall call) const {
    CallRecord record;
    record.call = call;
    record.nObject = m_nObject;
    record.objClass = m_eClass;
    return record;
  }

  Step _Run(const CallRecord& record) {
    Step step = EncoderScript().Take(record);
    EncoderScript().Wait(step, [] { return false; });
    return step;
  }

  vc::ComPtr<IVCPacket> _MakePacket(const K_TIME& time) VC_REQUIRES(m_csState) {
    K_PACKET_INFO info{};
    info.eFlags = eVCPF_KeyFrame;
    info.llPts = time.rtStartTime;
    info.llDts = time.rtStartTime;
    info.llDuration = time.rtEndTime - time.rtStartTime;
    K_STREAM_INFO stream{};
    stream.eMediaType = m_eMediaType;
    const uint8_t payload[32] = {static_cast<uint8_t>(m_nObject)};
    vc::ComPtr<IVCPacket> cpPacket;
    if (FAILED(vc::CreateVCPacket(&info, &stream, &time, payload, sizeof payload, cpPacket.AddressOf()))) return nullptr;
    return cpPacket;
  }

  const eClass m_eClass;
  std::string m_strTag;  // set once, before the object is handed out

  vc::CKMutex m_csState;
  eVCMediaType m_eMediaType VC_GUARDED_BY(m_csState) = eVCMT_Empty;
  int m_nFrames VC_GUARDED_BY(m_csState) = 0;
  std::deque<K_TIME> m_deqWaiting VC_GUARDED_BY(m_csState);  // frames whose packets are not out yet
  std::deque<vc::ComPtr<IVCPacket>> m_deqReady VC_GUARDED_BY(m_csState);
};

template <eClass kClass>
HRESULT CreateEncoder(IUnknown* pOuter, REFIID riid, void** ppv) {
  if (ppv) *ppv = nullptr;
  const Step step = TakeCreate(EncoderScript(), kClass, EncoderKind(kClass));
  if (FAILED(step.hr)) return step.hr;
  if (pOuter) return CLASS_E_NOAGGREGATION;
  vc::CKComObject<CScriptedOf<CScriptedEncoder, kClass>>* pObject = nullptr;
  HRESULT hr = vc::CKComObject<CScriptedOf<CScriptedEncoder, kClass>>::CreateInstance(&pObject);  // one reference
  if (FAILED(hr)) return hr;
  pObject->Init(step);
  hr = pObject->QueryInterface(riid, ppv);
  pObject->Release();
  return hr;
}

}  // namespace

HRESULT CreateScriptedNVEncEncoder(IUnknown* pOuter, REFIID riid, void** ppv) {
  return CreateEncoder<eClass::NVEncEncoder>(pOuter, riid, ppv);
}
HRESULT CreateScriptedIntelQSEncoder(IUnknown* pOuter, REFIID riid, void** ppv) {
  return CreateEncoder<eClass::IntelQSEncoder>(pOuter, riid, ppv);
}
HRESULT CreateScriptedAMDEncoder(IUnknown* pOuter, REFIID riid, void** ppv) {
  return CreateEncoder<eClass::AMDEncoder>(pOuter, riid, ppv);
}
HRESULT CreateScriptedGeneralEncoder(IUnknown* pOuter, REFIID riid, void** ppv) {
  return CreateEncoder<eClass::GeneralEncoder>(pOuter, riid, ppv);
}

}  // namespace vctest
