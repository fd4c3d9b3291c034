// Corvane.Test.Scripted.x64: the scripted inner objects (see
// ScriptedObjects.h). It serves the general splitter's and the MXF
// splitter's class identifiers, the three decoder candidates' (NVIDIA,
// QuickSync, the general one) and the two muxer candidates' (nablet's MPEG
// muxer, the general one), so a facade creates it once a test has
// registered it in the private registry under those identifiers.
#include <algorithm>
#include <atomic>

#include "Devices/KPropsImpl.h"
#include "ScriptedScript.h"
#include "VCCodecs/VCInnerClasses.h"
#include "VCCodecs/VCPacket.h"
#include "VCCritSec.h"
#include "VCModule.h"
#include "VCObject.h"

#if defined(_WIN32)
#define VC_ENTRY extern "C" HRESULT STDAPICALLTYPE
#define VC_EXPORT extern "C"
#else
#define VC_ENTRY extern "C" __attribute__((visibility("default"))) HRESULT
#define VC_EXPORT extern "C" __attribute__((visibility("default")))
#endif

namespace vctest {

CScript& SplitterScript() {
  static CScript* s_pScript = new CScript;  // never freed: objects may outlive tests
  return *s_pScript;
}
CScript& DecoderScript() {
  static CScript* s_pScript = new CScript;
  return *s_pScript;
}
CScript& MuxerScript() {
  static CScript* s_pScript = new CScript;
  return *s_pScript;
}
CScript& EncoderScript() {
  static CScript* s_pScript = new CScript;
  return *s_pScript;
}

namespace {

class CScriptedSplitter : public vc::CKObjectRoot, public IVCSplitter, public CScriptedObject<CScriptedSplitter> {
 public:
  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return vc::QueryInterfaceTable<IVCSplitter, IVCProps>(this, riid, ppv);
  }

  HRESULT STDMETHODCALLTYPE SplitterOpen(BSTR _bsFilePath, BSTR, LONG* _pnStreamsCount) override {
    CallRecord record{eCall::SplitterOpen, Utf8(_bsFilePath), 0, {}};
    record.strProps = _PropsText();
    const Step step = _Run(record);
    if (SUCCEEDED(step.hr)) {
      m_strPath = record.strText;
      m_nStreams = step.nStreams;
      m_rtDuration = step.rtDuration;
      if (_pnStreamsCount) *_pnStreamsCount = step.nStreams;
    }
    return step.hr;
  }
  HRESULT STDMETHODCALLTYPE SplitterInfoGet(BSTR* _pbsFilePath, BSTR* _pbsXMLInfo, LONG* _pnStreamsCount,
                                            LONGLONG* _prtTotalDuration) override {
    // Out strings: null unless the call succeeds, then fresh copies the caller frees.
    if (_pbsFilePath) *_pbsFilePath = nullptr;
    if (_pbsXMLInfo) *_pbsXMLInfo = nullptr;
    const Step step = _Run({eCall::SplitterInfoGet, {}, 0, {}});
    if (FAILED(step.hr)) return step.hr;
    if (_pbsFilePath) *_pbsFilePath = vc::CBstr(m_strPath).Detach();
    if (_pbsXMLInfo) *_pbsXMLInfo = vc::CBstr(std::string_view("<scripted/>")).Detach();
    if (_pnStreamsCount) *_pnStreamsCount = m_nStreams;
    if (_prtTotalDuration) *_prtTotalDuration = m_rtDuration;
    return step.hr;
  }
  HRESULT STDMETHODCALLTYPE SplitterStreamInfoGet(LONG _nStream, K_STREAM_INFO* _pStreamInfo,
                                                  BSTR* _pbsStreamXMLInfo) override {
    if (_pStreamInfo) *_pStreamInfo = K_STREAM_INFO{};
    if (_pbsStreamXMLInfo) *_pbsStreamXMLInfo = nullptr;
    const Step step = _Run({eCall::SplitterStreamInfoGet, {}, _nStream, {}});
    if (FAILED(step.hr)) return step.hr;
    if (_pStreamInfo) {
      *_pStreamInfo = K_STREAM_INFO{};
      _pStreamInfo->eMediaType = step.eType;
    }
    if (_pbsStreamXMLInfo) *_pbsStreamXMLInfo = vc::CBstr(std::string_view("<stream/>")).Detach();
    return step.hr;
  }
  HRESULT STDMETHODCALLTYPE SplitterBeginSegment(LONGLONG _rtSegmentStart, BSTR _bsHints) override {
    return _Run({eCall::SplitterBeginSegment, Utf8(_bsHints), _rtSegmentStart, {}}).hr;
  }
  HRESULT STDMETHODCALLTYPE SplitterPacketGet(LONG _nStreamIdx, IVCPacket** _ppPacket, BSTR) override {
    if (_ppPacket) *_ppPacket = nullptr;
    const Step step = _Run({eCall::SplitterPacketGet, {}, _nStreamIdx, {}});
    if (FAILED(step.hr) || step.bNoPacket || !_ppPacket) return step.hr;
    K_PACKET_INFO info{};
    info.nStreamIndex = step.nStream;
    info.eFlags = static_cast<eVCPacketFlags>(step.eFlags);
    info.llPts = step.rtStart;
    info.llDts = step.rtStart;
    info.llDuration = step.rtEnd - step.rtStart;
    K_STREAM_INFO stream{};
    stream.eMediaType = step.eType;
    K_TIME time{};
    time.rtStartTime = step.rtStart;
    time.rtEndTime = step.rtEnd;
    std::vector<uint8_t> vecPayload(static_cast<size_t>(std::max<LONG>(step.cbData, 0)),
                                    static_cast<uint8_t>(step.nStream));
    const HRESULT hr =
        vc::CreateVCPacket(&info, &stream, &time, vecPayload.data(), step.cbData, _ppPacket);
    return FAILED(hr) ? hr : step.hr;
  }
  HRESULT STDMETHODCALLTYPE SplitterStop() override {
    m_nStops.fetch_add(1);
    SplitterScript().Notify();
    return _Run({eCall::SplitterStop, {}, 0, {}}).hr;
  }
  HRESULT STDMETHODCALLTYPE SplitterClose() override { return _Run({eCall::SplitterClose, {}, 0, {}}).hr; }

 private:
  Step _Run(CallRecord record) {
    record.nObject = m_nObject;
    const uint64_t nStopsAtEntry = m_nStops.load();
    Step step = SplitterScript().Take(record);
    SplitterScript().Wait(step, [&] { return m_nStops.load() != nStopsAtEntry; });
    return step;
  }

  std::string m_strPath;
  LONG m_nStreams = 0;
  LONGLONG m_rtDuration = 0;
  std::atomic<uint64_t> m_nStops{0};
};

template <const char* szKind>
HRESULT CreateScriptedSplitter(IUnknown* pOuter, REFIID riid, void** ppv) {
  SplitterScript().Take({eCall::Create, szKind, 0, {}});
  return vc::CreateObject<CScriptedSplitter>(pOuter, riid, ppv);
}
constexpr char kGeneral[] = "general";
constexpr char kNablet[] = "nablet";

vc::CVCModule& ScriptedModule() {
  static vc::CVCModule s_module(
      {{&vc::CLSID_GeneralSplitter, "ScriptedSplitter", "Scripted Splitter Class", 1,
        &CreateScriptedSplitter<kGeneral>},
       {&vc::CLSID_NabletMxfSplitter, "ScriptedMxfSplitter", "Scripted MXF Splitter Class", 2,
        &CreateScriptedSplitter<kNablet>},
       {&vc::CLSID_NVidiaDecoder, "ScriptedNVidiaDecoder", "Scripted NVidia Decoder Class", 3,
        &CreateScriptedNVidiaDecoder},
       {&vc::CLSID_QuickSyncDecoder, "ScriptedQuickSyncDecoder", "Scripted QuickSync Decoder Class", 4,
        &CreateScriptedQuickSyncDecoder},
       {&vc::CLSID_GeneralDecoder, "ScriptedDecoder", "Scripted Decoder Class", 5, &CreateScriptedGeneralDecoder},
       {&vc::CLSID_NabletMpegMuxer, "ScriptedNabletMuxer", "Scripted nablet Muxer Class", 31,
        &CreateScriptedNabletMuxer},
       {&vc::CLSID_GeneralMuxer, "ScriptedMuxer", "Scripted Muxer Class", 32, &CreateScriptedGeneralMuxer},
       {&vc::CLSID_NVEncEncoder, "ScriptedNVEncEncoder", "Scripted NVEnc Encoder Class", 6,
        &CreateScriptedNVEncEncoder},
       {&vc::CLSID_IntelQSEncoder, "ScriptedIntelQSEncoder", "Scripted IntelQS Encoder Class", 7,
        &CreateScriptedIntelQSEncoder},
       {&vc::CLSID_AMDEncoder, "ScriptedAMDEncoder", "Scripted AMD Encoder Class", 8, &CreateScriptedAMDEncoder},
       {&vc::CLSID_GeneralEncoder, "ScriptedEncoder", "Scripted Encoder Class", 9, &CreateScriptedGeneralEncoder}},
      [](int) -> std::string { return {}; }, false);
  return s_module;
}

}  // namespace
}  // namespace vctest

VC_EXPORT vctest::IScript* VCTestScript(int nFamily) {
  switch (nFamily) {
    case 0: return &vctest::SplitterScript();
    case 1: return &vctest::DecoderScript();
    case 2: return &vctest::EncoderScript();
    case 3: return &vctest::MuxerScript();
    default: return nullptr;
  }
}
VC_ENTRY DllGetClassObject(REFCLSID rclsid, REFIID riid, LPVOID* ppv) {
  return vctest::ScriptedModule().GetClassObject(rclsid, riid, ppv);
}
VC_ENTRY DllCanUnloadNow() { return S_FALSE; }  // the script outlives every object
