// The scripted inner objects of the test module Corvane.Test.Scripted.x64:
// stand-ins for the inner splitter (and later decoder, encoder and muxer)
// whose every call a test scripts in advance: deliver this packet, fail with
// this code, hold the call until the test releases it, block until the
// object is stopped. A call nobody scripted or allowed answers E_UNEXPECTED
// and is recorded, and the test fixture fails the test on it.
//
// Steps are queued per call kind, so calls made by a facade's own threads
// (the splitter's reading thread) and by the test thread need no global
// order. The script lives in the module; tests reach it through the
// module's exported VCTestScript.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "VCCodecsCore.h"

namespace vctest {

enum class eCall : int {
  Create,  // the class factory made an object (text: "general" or "nablet")
  SplitterOpen,
  SplitterInfoGet,
  SplitterStreamInfoGet,
  SplitterBeginSegment,
  SplitterPacketGet,
  SplitterStop,
  SplitterClose,
  kCount
};

inline const char* CallName(eCall call) {
  switch (call) {
    case eCall::Create: return "Create";
    case eCall::SplitterOpen: return "SplitterOpen";
    case eCall::SplitterInfoGet: return "SplitterInfoGet";
    case eCall::SplitterStreamInfoGet: return "SplitterStreamInfoGet";
    case eCall::SplitterBeginSegment: return "SplitterBeginSegment";
    case eCall::SplitterPacketGet: return "SplitterPacketGet";
    case eCall::SplitterStop: return "SplitterStop";
    case eCall::SplitterClose: return "SplitterClose";
    case eCall::kCount: break;
  }
  return "?";
}

enum class eWait {
  None,
  UntilReleased,  // the call waits for IScript::ReleaseHeld
  UntilStopped,   // the call waits for a SplitterStop on the same object
};

struct Step {
  eCall call = eCall::SplitterPacketGet;
  HRESULT hr = S_OK;
  eWait wait = eWait::None;
  // SplitterPacketGet with a success code: the packet to deliver, unless
  // bNoPacket (success without a packet).
  bool bNoPacket = false;
  LONG nStream = 0;
  eVCMediaType eType = eVCMT_Video;
  LONGLONG rtStart = 0;
  LONGLONG rtEnd = 0;
  LONG eFlags = 0;
  LONG cbData = 16;
  // SplitterOpen: the stream count it reports (and SplitterInfoGet later).
  LONG nStreams = 2;
  LONGLONG rtDuration = 0;

  // A packet step of stream nStream covering [rtStart, rtEnd).
  static Step Packet(LONG nStream, eVCMediaType eType, LONGLONG rtStart, LONGLONG rtEnd, LONG eFlags = 0) {
    Step step;
    step.call = eCall::SplitterPacketGet;
    step.nStream = nStream;
    step.eType = eType;
    step.rtStart = rtStart;
    step.rtEnd = rtEnd;
    step.eFlags = eFlags;
    return step;
  }
  static Step Answer(eCall call, HRESULT hr, eWait wait = eWait::None) {
    Step step;
    step.call = call;
    step.hr = hr;
    step.wait = wait;
    return step;
  }
};

struct CallRecord {
  eCall call = eCall::Create;
  std::string strText;   // path, hints or class kind (UTF-8)
  LONGLONG llValue = 0;  // segment start, stream index
  std::string strProps;  // SplitterOpen: the object's property tree as text
  uint64_t nObject = 0;  // which scripted object was called (numbered from 1 as they are made)
};

class IScript {
 public:
  // Forgets steps, allowances, records and releases every waiting call.
  virtual void Reset() = 0;
  virtual void Expect(const Step& step) = 0;
  // Calls of this kind that no step is queued for answer hr, any number of
  // times (hr may be a failure: the call is then expected to fail).
  virtual void Allow(eCall call, HRESULT hr) = 0;
  // Lets one held call (eWait::UntilReleased) go on.
  virtual void ReleaseHeld() = 0;
  // Waits until a call of this kind is waiting (held or blocked).
  virtual bool WaitWaiting(eCall call, uint32_t nMilliseconds) = 0;
  // Waits until at least n calls of this kind were made.
  virtual bool WaitCalls(eCall call, size_t n, uint32_t nMilliseconds) = 0;
  virtual std::vector<CallRecord> Calls() const = 0;
  virtual size_t CallCount(eCall call) const = 0;
  // "SplitterPacketGet(-1)" lines for calls nobody scripted or allowed.
  virtual std::vector<std::string> Unexpected() const = 0;
  // Steps queued and not yet taken.
  virtual size_t Pending() const = 0;

 protected:
  ~IScript() = default;
};

// Exported by the module: the script of one class family (0: splitter).
using PFN_VCTestScript = IScript* (*)(int nFamily);

}  // namespace vctest
