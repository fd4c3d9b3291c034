// The scripted decoder of the test module, served under the three decoder
// candidates' class identifiers, and the small frame it hands out. Each
// object knows the class it was created as, so one script can make the
// NVIDIA candidate refuse and the general one accept. An object keeps the
// frames its packets made until the step lets them out (delay, reordering)
// and counts the packets it was given (for "fail from packet N on").
//
// The facade calls a decoder from the caller's thread, one call at a time;
// tests read the frames from their own thread. Each object guards its
// frames and counters with one lock, never held while the script holds a
// call.
#include <algorithm>
#include <atomic>
#include <deque>
#include <string>

#include "Devices/KPropsImpl.h"
#include "AttachingFrame.h"
#include "ScriptedScript.h"
#include "VCCodecs/VCPacket.h"
#include "VCCodecs/VCAttachments.h"
#include "VCCritSec.h"
#include "VCObject.h"

namespace vctest {

namespace {

constexpr HRESULT kEndOfMedia = HRESULT_FROM_WIN32(ERROR_END_OF_MEDIA);

const char* KindOf(eClass objClass) {
  switch (objClass) {
    case eClass::NVidiaDecoder: return "nvidia";
    case eClass::QuickSyncDecoder: return "quicksync";
    case eClass::GeneralDecoder: return "general";
    default: break;  // Any, and the classes of the other families
  }
  return "?";
}

class CScriptedDecoder : public vc::CKObjectRoot, public IVCDecoder, public CScriptedObject<CScriptedDecoder> {
 public:
  explicit CScriptedDecoder(eClass objClass) : m_eClass(objClass) {}

  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return vc::QueryInterfaceTable<IVCDecoder, IVCProps>(this, riid, ppv);
  }

  HRESULT STDMETHODCALLTYPE DecodeIsSupported(K_STREAM_INFO* _pStreamInfo, IVCPacket* _pVCPacket,
                                              BOOL* _pbSupported) override {
    vc::CKStreamInfo stream;
    if (_pStreamInfo)
      stream = vc::CKStreamInfo(*_pStreamInfo);
    else if (_pVCPacket)
      vc::VCPacketStreamInfo(_pVCPacket, &stream);
    CallRecord record = _Record(eCall::DecodeIsSupported, _pVCPacket);
    record.strText = vc::ToUtf8(vc::InString(stream.bsCodecNameOrTag));
    record.llValue = stream.eMediaType;
    record.llArg = _pbSupported ? 1 : 0;
    record.strProps = _PropsText();
    const Step step = _Run(record);
    if (_pbSupported) *_pbSupported = step.hr == S_OK;
    if (step.hr == S_OK) _Accept(stream);
    return step.hr;
  }

  HRESULT STDMETHODCALLTYPE DecodePacket(IVCPacket* _pVCPacket, LONGLONG _rtSegmentStart, K_AV_PROPS* _pAVPropsOut,
                                         IVCFrame** _ppFrame, BSTR _bsHints) override {
    if (_ppFrame) *_ppFrame = nullptr;
    CallRecord record = _Record(eCall::DecodePacket, _pVCPacket);
    record.strText = Utf8(_bsHints);
    record.llValue = _rtSegmentStart;
    record.llArg = static_cast<LONGLONG>(reinterpret_cast<uintptr_t>(_pAVPropsOut));
    const Step step = _Run(record);
    if (FAILED(step.hr)) return step.hr;
    if (!_ppFrame) return E_POINTER;

    vc::ComPtr<IVCFrame> cpFrame;
    {
      vc::CKMutexLock lock(m_csState);
      if (_pVCPacket) {
        const int nPacket = ++m_nPackets;
        if (step.nFailAt > 0 && nPacket >= step.nFailAt) return step.hrFail;
        if (!step.bNoFrame) {
          const LONGLONG rtStart = step.bFrameTimes ? step.rtStart : record.rtStart;
          const LONGLONG rtEnd = step.bFrameTimes ? step.rtEnd : record.rtEnd;
          m_deqFrames.push_back({_MakeFrame(rtStart, rtEnd, step, nPacket), rtStart});
        }
      }
      const size_t nKeep = _pVCPacket ? static_cast<size_t>(std::max(step.nDelay, 0)) : 0;
      if (m_deqFrames.size() > nKeep) {
        auto it = m_deqFrames.begin();
        if (step.bReorder)
          it = std::min_element(m_deqFrames.begin(), m_deqFrames.end(),
                                [](const CWaiting& a, const CWaiting& b) { return a.rtStart < b.rtStart; });
        cpFrame = it->cpFrame;
        m_deqFrames.erase(it);
      }
    }
    if (!cpFrame) return _pVCPacket ? step.hrNoFrame : kEndOfMedia;
    *_ppFrame = cpFrame.Detach();
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE DecodeAudio(IVCPacket* _pVCPacket, LONGLONG _rtSegmentStart,
                                        IVCAudioBuffer* _pAudioBuffer, LONG* _plSamplesDecode,
                                        BSTR _bsHints) override {
    CallRecord record = _Record(eCall::DecodeAudio, _pVCPacket);
    record.strText = Utf8(_bsHints);
    record.llValue = _rtSegmentStart;
    record.llArg = static_cast<LONGLONG>(reinterpret_cast<uintptr_t>(_pAudioBuffer));
    const Step step = _Run(record);
    if (_plSamplesDecode) *_plSamplesDecode = SUCCEEDED(step.hr) ? step.nSamples : 0;
    return step.hr;
  }

  HRESULT STDMETHODCALLTYPE DecodeClose() override {
    m_nCloses.fetch_add(1);
    DecoderScript().Notify();
    const Step step = _Run(_Record(eCall::DecodeClose, nullptr));
    vc::CKMutexLock lock(m_csState);
    m_deqFrames.clear();
    m_nPackets = 0;
    return step.hr;
  }

 private:
  struct CWaiting {
    vc::ComPtr<IVCFrame> cpFrame;
    LONGLONG rtStart = 0;
  };

  CallRecord _Record(eCall call, IVCPacket* pPacket) const {
    CallRecord record;
    record.call = call;
    record.nObject = m_nObject;
    record.objClass = m_eClass;
    record.bPacket = pPacket != nullptr;
    if (pPacket) {
      K_TIME time{};
      K_PACKET_INFO info{};
      pPacket->PacketTimeGet(&time);
      pPacket->PacketInfoGet(&info);
      record.rtStart = time.rtStartTime;
      record.rtEnd = time.rtEndTime;
      record.ePacketFlags = info.eFlags;
    }
    return record;
  }

  Step _Run(const CallRecord& record) {
    const uint64_t nClosesAtEntry = m_nCloses.load();
    Step step = DecoderScript().Take(record);
    DecoderScript().Wait(step, [&] { return m_nCloses.load() != nClosesAtEntry; });
    return step;
  }

  // Accepting a stream: remember its form for the frames and publish the
  // decoder information a real decoder publishes, distinct per class and
  // per object so that a test sees which object the facade copied it from.
  void _Accept(const vc::CKStreamInfo& stream) {
    {
      vc::CKMutexLock lock(m_csState);
      m_eMediaType = stream.eMediaType;
      m_nWidth = stream.nWidth;
      m_nHeight = stream.nHeight;
      m_nChannels = stream.nChannels;
      m_nSampleRate = stream.nSampleRate;
    }
    const std::string strCodec = vc::ToUtf8(vc::InString(stream.bsCodecNameOrTag));
    const char* szSuffix = m_eClass == eClass::NVidiaDecoder      ? "_cuvid"
                           : m_eClass == eClass::QuickSyncDecoder ? "_qsv"
                                                                  : "";
    const char* szDevice = m_eClass == eClass::NVidiaDecoder      ? "cuda"
                           : m_eClass == eClass::QuickSyncDecoder ? "qsv"
                                                                  : "cpu";
    const bool bVideo = stream.eMediaType == eVCMT_Video;
    const std::pair<const char*, std::string> props[] = {
        {"codec_name", strCodec},
        {"decoder", strCodec + szSuffix},
        {"decoder.id", std::to_string(m_nObject)},
        {"decoder.device", szDevice},
        {"decoder.profile", "Main"},
        {"decoder.level", "40"},
        {"decoder.tag", strCodec},
        {"decoder.size", bVideo ? std::to_string(stream.nWidth) + "x" + std::to_string(stream.nHeight) : ""},
    };
    for (const auto& [szName, strValue] : props)
      PropsSet(vc::CBstr(std::string_view(szName)), vc::CBstr(std::string_view(strValue)));
  }

  // The names "scripted.decoder" (the class kind) and "scripted.packet" (the
  // packet's number in this decoder, from 1) tell a test where a frame came
  // from.
  vc::ComPtr<IVCFrame> _MakeFrame(LONGLONG rtStart, LONGLONG rtEnd, const Step& step, int nPacket)
      VC_REQUIRES(m_csState) {
    vc::CKComObject<CAttachingFrame>* pFrame = nullptr;
    if (FAILED(vc::CKComObject<CAttachingFrame>::CreateInstance(&pFrame))) return nullptr;
    vc::ComPtr<IVCFrame> cpFrame;
    cpFrame.Attach(pFrame);
    K_TIME time{};
    time.rtStartTime = rtStart;
    time.rtEndTime = rtEnd;
    time.eFFlags = static_cast<eKFrameFlags>(step.eFFlags);
    K_AV_PROPS props{};
    if (m_eMediaType == eVCMT_Audio) {
      props.audProps.nChannels = m_nChannels;
      props.audProps.nSamplesPerSec = m_nSampleRate;
    } else {
      props.vidProps.nWidth = m_nWidth;
      props.vidProps.nHeight = m_nHeight;
      props.vidProps.dblRate = step.dblRate;
    }
    pFrame->Init(time, props);
    cpFrame->VCStrSet(vc::CBstr(std::string_view("scripted.decoder")), vc::CBstr(std::string_view(KindOf(m_eClass))));
    cpFrame->VCStrSet(vc::CBstr(std::string_view("scripted.packet")), vc::CBstr(std::string_view(std::to_string(nPacket))));
    return cpFrame;
  }

  const eClass m_eClass;
  std::atomic<uint64_t> m_nCloses{0};

  vc::CKMutex m_csState;
  std::deque<CWaiting> m_deqFrames VC_GUARDED_BY(m_csState);
  int m_nPackets VC_GUARDED_BY(m_csState) = 0;
  eVCMediaType m_eMediaType VC_GUARDED_BY(m_csState) = eVCMT_Empty;
  LONG m_nWidth VC_GUARDED_BY(m_csState) = 0;
  LONG m_nHeight VC_GUARDED_BY(m_csState) = 0;
  LONG m_nChannels VC_GUARDED_BY(m_csState) = 0;
  LONG m_nSampleRate VC_GUARDED_BY(m_csState) = 0;
};

template <eClass kClass>
HRESULT CreateDecoder(IUnknown* pOuter, REFIID riid, void** ppv) {
  if (ppv) *ppv = nullptr;
  const Step step = TakeCreate(DecoderScript(), kClass, KindOf(kClass));
  if (FAILED(step.hr)) return step.hr;
  return vc::CreateObject<CScriptedOf<CScriptedDecoder, kClass>>(pOuter, riid, ppv);
}

}  // namespace

HRESULT CreateScriptedNVidiaDecoder(IUnknown* pOuter, REFIID riid, void** ppv) {
  return CreateDecoder<eClass::NVidiaDecoder>(pOuter, riid, ppv);
}
HRESULT CreateScriptedQuickSyncDecoder(IUnknown* pOuter, REFIID riid, void** ppv) {
  return CreateDecoder<eClass::QuickSyncDecoder>(pOuter, riid, ppv);
}
HRESULT CreateScriptedGeneralDecoder(IUnknown* pOuter, REFIID riid, void** ppv) {
  return CreateDecoder<eClass::GeneralDecoder>(pOuter, riid, ppv);
}

}  // namespace vctest
