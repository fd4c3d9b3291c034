// Changes the frame rate of a decoded video stream before the encoder, which
// keeps whatever rate its frames arrive with. Output frame k is stamped
// t0 + k/rate (t0: the first frame's start) and shows the input picture on
// screen at that moment: a picture stays shown until the next one starts, so
// slowing down drops pictures and speeding up (or a gap in the input)
// repeats them. A repeat is a clone that shares the picture
// (eKFC_VideoRef), never a copy of its pixels; every output frame gets its
// own times and says the new rate in its properties.
//
// Called on the transcode pipeline's encoding thread only; holds one input
// frame (the one whose end is not known yet) between calls.
#pragma once

#include <functional>

#include "VCCodecsCore.h"
#include "VCComPtr.h"

namespace vctool {

class CRateChanger {
 public:
  // Receives each output frame, in time order; false stops the delivery
  // (the next stage has gone) and the call returns S_FALSE.
  using Sink = std::function<bool(vc::ComPtr<IVCFrame>)>;

  explicit CRateChanger(double dblRate);

  // Takes the next input frame, in presentation order, and delivers the
  // output frames that show the frame before it. The frame is the changer's
  // from here on: it may be restamped and handed on itself.
  HRESULT Put(IVCFrame* pFrame, const Sink& sink);

  // End of the stream: delivers the held frame for the rest of its own span
  // (its end time, else one source frame).
  HRESULT Flush(const Sink& sink);

  long long Dropped() const { return m_llDropped; }
  long long Repeated() const { return m_llRepeated; }

 private:
  LONGLONG _OutputTime(long long llIndex) const;
  // The span of an input frame by its own times; the source rate, then the
  // target rate, where it has no end.
  LONGLONG _OwnDuration(IVCFrame* pFrame, const K_TIME& time) const;
  // Delivers the held frame for every output time before rtUntil.
  HRESULT _Emit(LONGLONG rtUntil, const Sink& sink);

  const double m_dblRate;
  vc::ComPtr<IVCFrame> m_cpHeld;
  LONGLONG m_rtHeldStart = 0;
  LONGLONG m_rtHeldEnd = 0;  // by its own times: where a next frame is due
  LONGLONG m_rtFirst = 0;
  LONGLONG m_rtShift = 0;  // added to input times after a jump backwards
  long long m_llNext = 0;  // index of the next output frame
  long long m_llDropped = 0;
  long long m_llRepeated = 0;
};

}  // namespace vctool
