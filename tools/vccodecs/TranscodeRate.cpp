#include "TranscodeRate.h"

#include <cmath>

namespace vctool {

CRateChanger::CRateChanger(double dblRate) : m_dblRate(dblRate) {}

LONGLONG CRateChanger::_OutputTime(long long llIndex) const {
  // From the first frame each time, so that rounding never accumulates.
  return m_rtFirst + static_cast<LONGLONG>(std::llround(static_cast<double>(llIndex) * VC_TIME_SECOND / m_dblRate));
}

LONGLONG CRateChanger::_OwnDuration(IVCFrame* pFrame, const K_TIME& time) const {
  if (time.rtStartTime != VC_TIME_UNSET && time.rtEndTime != VC_TIME_UNSET && time.rtEndTime > time.rtStartTime)
    return time.rtEndTime - time.rtStartTime;
  K_AV_PROPS props{};
  LONG lSamples = 0;
  double dblSourceRate = m_dblRate;
  if (SUCCEEDED(pFrame->VCAVPropsGet(&props, &lSamples)) && props.vidProps.dblRate > 0)
    dblSourceRate = props.vidProps.dblRate;
  return static_cast<LONGLONG>(std::llround(VC_TIME_SECOND / dblSourceRate));
}

HRESULT CRateChanger::Put(IVCFrame* pFrame, const Sink& sink) {
  if (!pFrame) return E_POINTER;
  K_TIME time{};
  HRESULT hr = pFrame->VCTimeGet(&time);
  if (FAILED(hr)) return hr;
  LONGLONG rtStart = time.rtStartTime;
  hr = S_OK;
  if (!m_cpHeld) {
    if (rtStart == VC_TIME_UNSET) rtStart = 0;
    m_rtFirst = rtStart;
  } else if (rtStart == VC_TIME_UNSET) {
    rtStart = m_rtHeldEnd;  // no time of its own: right after the one before
  } else {
    rtStart += m_rtShift;
    // Times that go back (a new segment, a wrapped clock) would leave every
    // later picture behind the output times already given out: the stream
    // goes on from where the held frame ends instead.
    if (rtStart < m_rtHeldStart) {
      m_rtShift += m_rtHeldEnd - rtStart;
      rtStart = m_rtHeldEnd;
    }
  }
  if (m_cpHeld) hr = _Emit(rtStart, sink);
  m_cpHeld = pFrame;
  m_rtHeldStart = rtStart;
  m_rtHeldEnd = rtStart + _OwnDuration(pFrame, time);
  return hr;
}

HRESULT CRateChanger::Flush(const Sink& sink) {
  if (!m_cpHeld) return S_OK;
  return _Emit(m_rtHeldEnd, sink);
}

HRESULT CRateChanger::_Emit(LONGLONG rtUntil, const Sink& sink) {
  vc::ComPtr<IVCFrame> cpFrame = std::move(m_cpHeld);
  long long llCount = 0;
  while (_OutputTime(m_llNext + llCount) < rtUntil) ++llCount;
  if (llCount == 0) {
    ++m_llDropped;
    return S_OK;
  }
  // The rate goes into the frame before any clone is made, so that the
  // repeats carry it too; with the size and format unchanged the picture
  // stays as it is.
  K_AV_PROPS props{};
  LONG lSamples = 0;
  HRESULT hr = cpFrame->VCAVPropsGet(&props, &lSamples);
  if (SUCCEEDED(hr)) {
    props.vidProps.dblRate = m_dblRate;
    hr = cpFrame->VCAVPropsSet(&props, nullptr);
  }
  if (FAILED(hr)) return hr;
  // The repeats first and the frame itself last: nothing clones a frame
  // that the encoder already holds.
  for (long long n = 0; n < llCount; ++n) {
    vc::ComPtr<IVCFrame> cpOut;
    if (n + 1 < llCount) {
      hr = cpFrame->VCClone(cpOut.AddressOf(), eKFC_VideoRef, eVCCC_Default);
      if (FAILED(hr)) return hr;
      if (!cpOut) return E_UNEXPECTED;
      ++m_llRepeated;
    } else {
      cpOut = std::move(cpFrame);
    }
    K_TIME time{};
    hr = cpOut->VCTimeGet(&time);
    if (FAILED(hr)) return hr;
    time.rtStartTime = _OutputTime(m_llNext);
    time.rtEndTime = _OutputTime(m_llNext + 1);
    hr = cpOut->VCTimeSet(&time);
    if (FAILED(hr)) return hr;
    ++m_llNext;
    if (!sink(std::move(cpOut))) return S_FALSE;
  }
  return S_OK;
}

}  // namespace vctool
