// The scripted inner objects of the test module Corvane.Test.Scripted.x64:
// stand-ins for the inner splitter and decoder (and later encoder and muxer)
// whose every call a test scripts in advance: deliver this packet, make this
// frame, fail with this code, hold the call until the test releases it,
// block until the object is stopped. A call nobody scripted or allowed
// answers E_UNEXPECTED and is recorded, and the test fixture fails the test
// on it.
//
// Steps are queued per call kind, so calls made by a facade's own threads
// (the splitter's reading thread) and by the test thread need no global
// order. A step or allowance may name the class an object was created as
// (the decoder candidates share one script), and then serves only objects of
// that class. Each family has its own script in the module (0: splitter,
// 1: decoder, 3: muxer); tests reach it through the module's exported
// VCTestScript.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "VCCodecsCore.h"

namespace vctest {

enum class eCall : int {
  Create,  // the class factory was asked for an object (text: the class kind, below)
  SplitterOpen,
  SplitterInfoGet,
  SplitterStreamInfoGet,
  SplitterBeginSegment,
  SplitterPacketGet,
  SplitterStop,
  SplitterClose,
  DecodeIsSupported,
  DecodePacket,
  DecodeAudio,
  DecodeClose,
  // Muxer family (script 3).
  MuxerSet,
  MuxerStreamAdd,
  MuxerStreamInfoGet,
  MuxerPacketPut,
  MuxerClose,
  // Encoder family (script 2).
  EncodeCodecSet,
  EncodeFramePut,
  EncodePacketsGet,
  EncodeClose,
  kCount
};

// The class an object was created as. The splitters record Any; the
// decoders their candidate class, whose Create text is "nvidia",
// "quicksync" or "general".
enum class eClass : int {
  Any = 0,
  NVidiaDecoder,
  QuickSyncDecoder,
  GeneralDecoder,
  // The muxer candidates; Create text "nablet" or "general".
  NabletMuxer,
  GeneralMuxer,
  // The encoder classes, Create text "nvenc", "intelqs", "amd", "general".
  NVEncEncoder,
  IntelQSEncoder,
  AMDEncoder,
  GeneralEncoder,
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
    case eCall::DecodeIsSupported: return "DecodeIsSupported";
    case eCall::DecodePacket: return "DecodePacket";
    case eCall::DecodeAudio: return "DecodeAudio";
    case eCall::DecodeClose: return "DecodeClose";
    case eCall::MuxerSet: return "MuxerSet";
    case eCall::MuxerStreamAdd: return "MuxerStreamAdd";
    case eCall::MuxerStreamInfoGet: return "MuxerStreamInfoGet";
    case eCall::MuxerPacketPut: return "MuxerPacketPut";
    case eCall::MuxerClose: return "MuxerClose";
    case eCall::EncodeCodecSet: return "EncodeCodecSet";
    case eCall::EncodeFramePut: return "EncodeFramePut";
    case eCall::EncodePacketsGet: return "EncodePacketsGet";
    case eCall::EncodeClose: return "EncodeClose";
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

  // Decoder family. A step or allowance with a class serves only objects of
  // that class.
  eClass forClass = eClass::Any;
  // Create, DecodeIsSupported, DecodeAudio, DecodeClose answer hr (Create:
  // a failure means no object). DecodePacket fails with hr when hr is a
  // failure; otherwise the packet makes a frame and the call answers S_OK
  // with the oldest frame waiting, hrNoFrame (S_FALSE) with none yet, and,
  // draining (no packet) with nothing left,
  // HRESULT_FROM_WIN32(ERROR_END_OF_MEDIA), the way the general decoder
  // answers.
  // Frames wait inside the object until more than nDelay are waiting (a
  // decoder with delay); bReorder hands them out in start-time order (a
  // decoder that reorders), else in packet order.
  int nDelay = 0;
  bool bReorder = false;
  // The frame of this packet: the packet's times unless bFrameTimes (then
  // rtStart and rtEnd), this rate and these K_TIME flags; none at all with
  // bNoFrame.
  bool bFrameTimes = false;
  bool bNoFrame = false;
  double dblRate = 25.0;
  LONG eFFlags = 0;
  // The object's nFailAt-th packet (from 1) and every later one fail with
  // hrFail, as a decoder that broke down; 0 never.
  int nFailAt = 0;
  HRESULT hrFail = E_FAIL;
  HRESULT hrNoFrame = S_FALSE;
  // DecodeAudio: the sample count it reports.
  LONG nSamples = 0;
  // Muxer family: Create, MuxerSet, MuxerStreamAdd, MuxerPacketPut and
  // MuxerClose answer hr (Create: a failure means no object);
  // MuxerStreamInfoGet with a success code describes a stream of eType.

  // Encoder family (script 2). Create, EncodeCodecSet, EncodeClose answer
  // hr (per class with forClass). EncodeFramePut fails with hr when hr is a
  // failure, and from the object's nFailAt-th frame on with hrFail; else
  // the frame makes a packet (none with bNoPacket) with the frame's times,
  // or rtStart and rtEnd with bFrameTimes; packets come out once more than
  // nDelay frames wait, a drain (no frame) lets all out. A packet goes to
  // EncodeFramePut's slot when there is one, else waits for
  // EncodePacketsGet, which answers HRESULT_FROM_WIN32(ERROR_EMPTY) when
  // none waits. Create: what the object answers for "codec_name",
  // "codec::codec" and the tag property (empty: no value).
  std::string strCodecName;
  std::string strCodecCodec;
  std::string strTag;

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
  // A decoder call answered by objects of one class.
  static Step For(eClass objClass, eCall call, HRESULT hr = S_OK) {
    Step step = Answer(call, hr);
    step.forClass = objClass;
    return step;
  }
  // A DecodePacket whose packet makes a frame with these times.
  static Step Frame(LONGLONG rtStart, LONGLONG rtEnd, double dblRate = 25.0, LONG eFFlags = 0) {
    Step step = Answer(eCall::DecodePacket, S_OK);
    step.bFrameTimes = true;
    step.rtStart = rtStart;
    step.rtEnd = rtEnd;
    step.dblRate = dblRate;
    step.eFFlags = eFFlags;
    return step;
  }
};

struct CallRecord {
  eCall call = eCall::Create;
  // Path, hints (also DecodePacket's and DecodeAudio's), class kind, or
  // DecodeIsSupported: the codec name of the description it was given (UTF-8).
  std::string strText;
  // Segment start, stream index, or DecodeIsSupported: the description's media type.
  LONGLONG llValue = 0;
  // SplitterOpen, DecodeIsSupported: the object's property tree as text.
  std::string strProps;
  uint64_t nObject = 0;  // which scripted object was called (numbered from 1 as they are made)
  // Decoder family.
  eClass objClass = eClass::Any;
  bool bPacket = false;                 // a packet came with the call
  LONGLONG rtStart = 0, rtEnd = 0;      // its times
  LONG ePacketFlags = 0;                // its K_PACKET_INFO flags
  // DecodeIsSupported: 1 when the out flag was given; DecodePacket: the
  // address of the wanted output properties; DecodeAudio: the audio
  // buffer's address.
  LONGLONG llArg = 0;
  // Muxer family: MuxerSet's property text (strText: the path; strProps: the
  // object's tree as the facade's copy left it), MuxerStreamAdd's
  // properties (strText: the description's text), MuxerPacketPut's hints.
  std::string strArg = {};
  // Encoder family: EncodeCodecSet's text is its configuration and
  // llValue its media type; EncodeFramePut's text is its hints, bPacket
  // tells that a frame came, rtStart/rtEnd are the frame's times and llArg
  // the frame's address.
};

class IScript {
 public:
  // Forgets steps, allowances, records and releases every waiting call.
  virtual void Reset() = 0;
  virtual void Expect(const Step& step) = 0;
  // Calls of this kind that no step is queued for answer hr, any number of
  // times (hr may be a failure: the call is then expected to fail).
  virtual void Allow(eCall call, HRESULT hr) = 0;
  // The same with a whole step (for step.call, and step.forClass only when
  // it names a class): an allowance for a class wins over one for Any.
  virtual void AllowStep(const Step& step) = 0;
  // Lets one held call (eWait::UntilReleased) go on.
  virtual void ReleaseHeld() = 0;
  // Waits until a call of this kind is waiting (held or blocked).
  virtual bool WaitWaiting(eCall call, uint32_t nMilliseconds) = 0;
  // Waits until at least n calls of this kind were made.
  virtual bool WaitCalls(eCall call, size_t n, uint32_t nMilliseconds) = 0;
  virtual std::vector<CallRecord> Calls() const = 0;
  virtual size_t CallCount(eCall call) const = 0;
  // "SplitterPacketGet( -1)" lines for calls nobody scripted or allowed.
  virtual std::vector<std::string> Unexpected() const = 0;
  // Steps queued and not yet taken.
  virtual size_t Pending() const = 0;

 protected:
  ~IScript() = default;
};

// Exported by the module: the script of one class family (0: splitter,
// 1: decoder, 2: encoder, 3: muxer); null for any other.
using PFN_VCTestScript = IScript* (*)(int nFamily);

}  // namespace vctest
