// Inside the scripted test module: the script behind IScript (one instance
// per class family) and the helpers its objects share. The objects call
// Take on whatever thread the facade calls them, then Wait as their step
// says; tests drive the same object through IScript from their own thread.
// One mutex guards everything; no call into a facade happens under it.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Devices/KPropsImpl.h"
#include "ScriptedObjects.h"
#include "VCCritSec.h"
#include "VCFormat.h"
#include "VCObject.h"
#include "VCStrings.h"

namespace vctest {

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
  void Allow(eCall call, HRESULT hr) override { AllowStep(Step::Answer(call, hr)); }
  void AllowStep(const Step& step) override {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_mapAllowed[{step.call, step.forClass}] = step;
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

  // Called by the objects: records the call and returns what to do. The
  // first queued step for the call's kind that serves the object's class
  // goes first; then the allowance for the class, then the one for Any.
  Step Take(const CallRecord& record) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_vecCalls.push_back(record);
    m_cv.notify_all();
    auto& queue = m_steps[static_cast<size_t>(record.call)];
    const auto itStep = std::find_if(queue.begin(), queue.end(), [&](const Step& step) {
      return step.forClass == eClass::Any || step.forClass == record.objClass;
    });
    if (itStep != queue.end()) {
      Step step = *itStep;
      queue.erase(itStep);
      return step;
    }
    for (const eClass objClass : {record.objClass, eClass::Any}) {
      auto it = m_mapAllowed.find({record.call, objClass});
      if (it != m_mapAllowed.end()) return it->second;
    }
    m_vecUnexpected.push_back(vc::Format("%s(%s %I64d) object %I64u", CallName(record.call), record.strText.c_str(),
                                         static_cast<long long>(record.llValue),
                                         static_cast<unsigned long long>(record.nObject)));
    return Step::Answer(record.call, E_UNEXPECTED);
  }

  // Holds the caller as the step says. stopped tells an UntilStopped wait
  // that the object's stop counter changed.
  template <class FStopped>
  void Wait(const Step& step, FStopped stopped) {
    if (step.wait == eWait::None) return;
    std::unique_lock<std::mutex> lock(m_mutex);
    const uint64_t nGeneration = m_nGeneration;
    const uint64_t nReleases = m_nReleases;
    ++m_nWaiting[static_cast<size_t>(step.call)];
    m_cv.notify_all();
    // Bounded: a test that forgets to release must fail, not hang the suite.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
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
  std::map<std::pair<eCall, eClass>, Step> m_mapAllowed;
  std::vector<CallRecord> m_vecCalls;
  std::vector<std::string> m_vecUnexpected;
  uint64_t m_nGeneration = 0;
  uint64_t m_nReleases = 0;
  int m_nWaiting[static_cast<size_t>(eCall::kCount)] = {};
};

// The scripts of the two families; they live as long as the process, as
// objects may outlive tests.
CScript& SplitterScript();
CScript& DecoderScript();
CScript& MuxerScript();
CScript& EncoderScript();

inline std::string Utf8(BSTR bs) { return vc::ToUtf8(vc::InString(bs)); }

// What every scripted object of class T shares: the property tree a facade
// hands down, under the object's own lock, and the object's number (unique
// among the objects of T) that its call records carry.
template <class T>
class CScriptedObject : public vc::IKPropsImpl<T> {
 public:
  vc::CKCritSec& _PropsLock() { return m_csProps; }

 protected:
  // The property tree as text, for a call record.
  std::string _PropsText() {
    vc::CKAutoLock lock(m_csProps);
    const auto spRoot = this->_PropsRootLocked();
    return spRoot ? vc::ToUtf8(spRoot->Serialize()) : std::string();
  }

  vc::CKCritSec m_csProps;
  const uint64_t m_nObject = s_nObjects.fetch_add(1) + 1;

 private:
  static inline std::atomic<uint64_t> s_nObjects{0};
};

// The class an object is created as is part of its type, because the
// object helpers construct objects without arguments.
template <class TObject, eClass kClass>
class CScriptedOf : public TObject {
 public:
  CScriptedOf() : TObject(kClass) {}
};

// A class factory's creation as the script sees it: recorded with the class
// kind as text, answered with the script's step (a failing one is what the
// factory returns).
inline Step TakeCreate(CScript& script, eClass objClass, const char* szKind) {
  CallRecord record;
  record.call = eCall::Create;
  record.strText = szKind;
  record.objClass = objClass;
  return script.Take(record);
}

// The decoder classes' creation functions (ScriptedDecoder.cpp).
HRESULT CreateScriptedNVidiaDecoder(IUnknown* pOuter, REFIID riid, void** ppv);
HRESULT CreateScriptedQuickSyncDecoder(IUnknown* pOuter, REFIID riid, void** ppv);
HRESULT CreateScriptedGeneralDecoder(IUnknown* pOuter, REFIID riid, void** ppv);
// The muxer classes' creation functions (ScriptedMuxer.cpp).
HRESULT CreateScriptedNabletMuxer(IUnknown* pOuter, REFIID riid, void** ppv);
HRESULT CreateScriptedGeneralMuxer(IUnknown* pOuter, REFIID riid, void** ppv);

// The encoder classes' creation functions (ScriptedEncoder.cpp).
HRESULT CreateScriptedNVEncEncoder(IUnknown* pOuter, REFIID riid, void** ppv);
HRESULT CreateScriptedIntelQSEncoder(IUnknown* pOuter, REFIID riid, void** ppv);
HRESULT CreateScriptedAMDEncoder(IUnknown* pOuter, REFIID riid, void** ppv);
HRESULT CreateScriptedGeneralEncoder(IUnknown* pOuter, REFIID riid, void** ppv);

}  // namespace vctest
