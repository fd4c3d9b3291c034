// The scripted muxer of the test module, served under the two muxer
// candidates' class identifiers (nablet's MPEG muxer and the general one).
// Each object knows the class it was created as, so one script can make the
// nablet candidate refuse its configuration and the general one accept. It
// writes nothing: every call is recorded with what it was given (path and
// property text, the object's own property tree as the facade's copy left
// it, stream descriptions, packets and hints) and answers as its step says.
// Stream indexes are handed out in the order the streams were added.
//
// The facade calls a muxer on any thread; the object keeps its stream count
// in an atomic and its property tree under its own lock, never held while
// the script holds a call.
#include <atomic>
#include <string>

#include "Devices/KPropsImpl.h"
#include "ScriptedScript.h"
#include "VCCodecs/VCStreamText.h"
#include "VCCritSec.h"
#include "VCObject.h"

namespace vctest {

namespace {

const char* MuxerKindOf(eClass objClass) { return objClass == eClass::NabletMuxer ? "nablet" : "general"; }

class CScriptedMuxer : public vc::CKObjectRoot, public IVCMuxer, public CScriptedObject<CScriptedMuxer> {
 public:
  explicit CScriptedMuxer(eClass objClass) : m_eClass(objClass) {}

  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return vc::QueryInterfaceTable<IVCMuxer, IVCProps>(this, riid, ppv);
  }

  HRESULT STDMETHODCALLTYPE MuxerSet(BSTR _bsFilePath, BSTR _bsProps) override {
    CallRecord record = _Record(eCall::MuxerSet);
    record.strText = Utf8(_bsFilePath);
    record.strArg = Utf8(_bsProps);
    record.strProps = _PropsText();
    return _Run(record).hr;
  }
  HRESULT STDMETHODCALLTYPE MuxerStreamAdd(K_STREAM_INFO* _pStreamInfo, BSTR _bsProps, LONG* _pnStreamIdx) override {
    if (_pnStreamIdx) *_pnStreamIdx = -1;
    CallRecord record = _Record(eCall::MuxerStreamAdd);
    record.strText = vc::ToUtf8(vc::VCStreamText(_pStreamInfo));
    record.llValue = _pStreamInfo ? _pStreamInfo->eMediaType : eVCMT_Empty;
    record.strArg = Utf8(_bsProps);
    const Step step = _Run(record);
    if (SUCCEEDED(step.hr) && _pnStreamIdx) *_pnStreamIdx = m_nStreams.fetch_add(1);
    return step.hr;
  }
  HRESULT STDMETHODCALLTYPE MuxerStreamInfoGet(LONG _nStreamIdx, K_STREAM_INFO* _pStreamInfo,
                                               BSTR* _pbsProps) override {
    if (_pStreamInfo) *_pStreamInfo = K_STREAM_INFO{};
    if (_pbsProps) *_pbsProps = nullptr;
    CallRecord record = _Record(eCall::MuxerStreamInfoGet);
    record.llValue = _nStreamIdx;
    const Step step = _Run(record);
    if (FAILED(step.hr)) return step.hr;
    if (_pStreamInfo) _pStreamInfo->eMediaType = step.eType;
    if (_pbsProps) *_pbsProps = vc::CBstr(std::string_view("scripted.stream=" + std::to_string(_nStreamIdx))).Detach();
    return step.hr;
  }
  HRESULT STDMETHODCALLTYPE MuxerPacketPut(LONG _nStreamIdx, IVCPacket* _pPacket, BSTR _bsHints) override {
    CallRecord record = _Record(eCall::MuxerPacketPut);
    record.llValue = _nStreamIdx;
    record.strArg = Utf8(_bsHints);
    record.bPacket = _pPacket != nullptr;
    if (_pPacket) {
      K_TIME time{};
      K_PACKET_INFO info{};
      _pPacket->PacketTimeGet(&time);
      _pPacket->PacketInfoGet(&info);
      record.rtStart = time.rtStartTime;
      record.rtEnd = time.rtEndTime;
      record.ePacketFlags = info.eFlags;
    }
    return _Run(record).hr;
  }
  HRESULT STDMETHODCALLTYPE MuxerClose() override { return _Run(_Record(eCall::MuxerClose)).hr; }

 private:
  CallRecord _Record(eCall call) const {
    CallRecord record;
    record.call = call;
    record.nObject = m_nObject;
    record.objClass = m_eClass;
    return record;
  }
  Step _Run(const CallRecord& record) {
    Step step = MuxerScript().Take(record);
    MuxerScript().Wait(step, [] { return false; });  // only a release lets a held call go
    return step;
  }

  const eClass m_eClass;
  std::atomic<LONG> m_nStreams{0};
};

template <eClass kClass>
HRESULT CreateMuxer(IUnknown* pOuter, REFIID riid, void** ppv) {
  if (ppv) *ppv = nullptr;
  const Step step = TakeCreate(MuxerScript(), kClass, MuxerKindOf(kClass));
  if (FAILED(step.hr)) return step.hr;
  return vc::CreateObject<CScriptedOf<CScriptedMuxer, kClass>>(pOuter, riid, ppv);
}

}  // namespace

HRESULT CreateScriptedNabletMuxer(IUnknown* pOuter, REFIID riid, void** ppv) {
  return CreateMuxer<eClass::NabletMuxer>(pOuter, riid, ppv);
}
HRESULT CreateScriptedGeneralMuxer(IUnknown* pOuter, REFIID riid, void** ppv) {
  return CreateMuxer<eClass::GeneralMuxer>(pOuter, riid, ppv);
}

}  // namespace vctest
