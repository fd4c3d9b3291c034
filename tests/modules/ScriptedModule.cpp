// Corvane.Test.Scripted.x64: the scripted inner objects (see
// ScriptedObjects.h). It serves the general splitter's and the MXF
// splitter's class identifiers, so a facade creates it once a test has
// registered it in the private registry.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>

#include "Devices/KPropsImpl.h"
#include "ScriptedObjects.h"
#include "VCCodecs/VCPacket.h"
#include "VCCritSec.h"
#include "VCFormat.h"
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

namespace {

using Clock = std::chrono::steady_clock;

class CScript final : public IScript {
 public:
  void Reset() override {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto& queue : m_steps) queue.clear();
    m_mapAllowed.clear();
    m_vecCalls.clear();
    m_vecUnexpected.clear();
    ++m_nGeneration;  // lets every waiting call go
    m_cv.notify_all();
  }
  void Expect(const Step& step) override {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_steps[static_cast<size_t>(step.call)].push_back(step);
  }
  void Allow(eCall call, HRESULT hr) override {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_mapAllowed[call] = hr;
  }
  void ReleaseHeld() override {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_nReleases;
    m_cv.notify_all();
  }
  bool WaitWaiting(eCall call, uint32_t nMilliseconds) override {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_cv.wait_for(lock, std::chrono::milliseconds(nMilliseconds),
                         [&] { return m_nWaiting[static_cast<size_t>(call)] > 0; });
  }
  bool WaitCalls(eCall call, size_t n, uint32_t nMilliseconds) override {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_cv.wait_for(lock, std::chrono::milliseconds(nMilliseconds), [&] { return _CountLocked(call) >= n; });
  }
  std::vector<CallRecord> Calls() const override {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_vecCalls;
  }
  size_t CallCount(eCall call) const override {
    std::lock_guard<std::mutex> lock(m_mutex);
    return _CountLocked(call);
  }
  std::vector<std::string> Unexpected() const override {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_vecUnexpected;
  }
  size_t Pending() const override {
    std::lock_guard<std::mutex> lock(m_mutex);
    size_t n = 0;
    for (const auto& queue : m_steps) n += queue.size();
    return n;
  }

  // Called by the objects: records the call and returns what to do.
  Step Take(const CallRecord& record) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_vecCalls.push_back(record);
    m_cv.notify_all();
    auto& queue = m_steps[static_cast<size_t>(record.call)];
    if (!queue.empty()) {
      Step step = queue.front();
      queue.pop_front();
      return step;
    }
    auto it = m_mapAllowed.find(record.call);
    if (it != m_mapAllowed.end()) return Step::Answer(record.call, it->second);
    m_vecUnexpected.push_back(vc::Format("%s(%s %I64d)", CallName(record.call), record.strText.c_str(),
                                         static_cast<long long>(record.llValue)));
    return Step::Answer(record.call, E_UNEXPECTED);
  }

  // Holds the caller as the step says. stopCount reads the object's stop
  // counter; stopped tells the wait that it changed.
  template <class FStopped>
  void Wait(const Step& step, FStopped stopped) {
    if (step.wait == eWait::None) return;
    std::unique_lock<std::mutex> lock(m_mutex);
    const uint64_t nGeneration = m_nGeneration;
    const uint64_t nReleases = m_nReleases;
    ++m_nWaiting[static_cast<size_t>(step.call)];
    m_cv.notify_all();
    // Bounded: a test that forgets to release must fail, not hang the suite.
    const auto deadline = Clock::now() + std::chrono::seconds(60);
    m_cv.wait_until(lock, deadline, [&] {
      if (m_nGeneration != nGeneration) return true;
      if (step.wait == eWait::UntilReleased) return m_nReleases != nReleases;
      return stopped();
    });
    --m_nWaiting[static_cast<size_t>(step.call)];
  }
  // Wakes waiters to look at their stop counters.
  void Notify() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_cv.notify_all();
  }

 private:
  size_t _CountLocked(eCall call) const {
    return static_cast<size_t>(
        std::count_if(m_vecCalls.begin(), m_vecCalls.end(), [&](const CallRecord& r) { return r.call == call; }));
  }

  mutable std::mutex m_mutex;
  std::condition_variable m_cv;
  std::deque<Step> m_steps[static_cast<size_t>(eCall::kCount)];
  std::map<eCall, HRESULT> m_mapAllowed;
  std::vector<CallRecord> m_vecCalls;
  std::vector<std::string> m_vecUnexpected;
  uint64_t m_nGeneration = 0;
  uint64_t m_nReleases = 0;
  int m_nWaiting[static_cast<size_t>(eCall::kCount)] = {};
};

CScript& SplitterScript() {
  static CScript* s_pScript = new CScript;  // lives as long as the process: objects may outlive tests
  return *s_pScript;
}

std::string Utf8(BSTR bs) { return vc::ToUtf8(vc::InString(bs)); }

class CScriptedSplitter : public vc::CKObjectRoot, public IVCSplitter, public vc::IKPropsImpl<CScriptedSplitter> {
 public:
  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return vc::QueryInterfaceTable<IVCSplitter, IVCProps>(this, riid, ppv);
  }
  vc::CKCritSec& _PropsLock() { return m_csLock; }

  HRESULT STDMETHODCALLTYPE SplitterOpen(BSTR _bsFilePath, BSTR, LONG* _pnStreamsCount) override {
    CallRecord record{eCall::SplitterOpen, Utf8(_bsFilePath), 0, {}};
    {
      vc::CKAutoLock lock(m_csLock);
      if (auto spRoot = _PropsRootLocked()) record.strProps = vc::ToUtf8(spRoot->Serialize());
    }
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

  vc::CKCritSec m_csLock;
  std::string m_strPath;
  LONG m_nStreams = 0;
  LONGLONG m_rtDuration = 0;
  std::atomic<uint64_t> m_nStops{0};
  const uint64_t m_nObject = s_nObjects.fetch_add(1) + 1;
  static inline std::atomic<uint64_t> s_nObjects{0};
};

template <const char* szKind>
HRESULT CreateScriptedSplitter(IUnknown* pOuter, REFIID riid, void** ppv) {
  SplitterScript().Take({eCall::Create, szKind, 0, {}});
  return vc::CreateObject<CScriptedSplitter>(pOuter, riid, ppv);
}
constexpr char kGeneral[] = "general";
constexpr char kNablet[] = "nablet";

constexpr CLSID kClsidGeneralSplitter = vc::MakeGuid("96EB1F14-4CC0-4830-9CC3-F064196B2626");
constexpr CLSID kClsidNabletSplitter = vc::MakeGuid("ECFBFE56-F923-44B6-91D4-C9E3EA04131B");

vc::CVCModule& ScriptedModule() {
  static vc::CVCModule s_module(
      {{&kClsidGeneralSplitter, "ScriptedSplitter", "Scripted Splitter Class", 1,
        &CreateScriptedSplitter<kGeneral>},
       {&kClsidNabletSplitter, "ScriptedMxfSplitter", "Scripted MXF Splitter Class", 2,
        &CreateScriptedSplitter<kNablet>}},
      [](int) -> std::string { return {}; }, false);
  return s_module;
}

}  // namespace
}  // namespace vctest

VC_EXPORT vctest::IScript* VCTestScript(int nFamily) {
  return nFamily == 0 ? &vctest::SplitterScript() : nullptr;
}
VC_ENTRY DllGetClassObject(REFCLSID rclsid, REFIID riid, LPVOID* ppv) {
  return vctest::ScriptedModule().GetClassObject(rclsid, riid, ppv);
}
VC_ENTRY DllCanUnloadNow() { return S_FALSE; }  // the script outlives every object
