#include "FFAudioBufferLine.h"

extern "C" {
#include <libavutil/channel_layout.h>
}

#include <algorithm>
#include <climits>

#include "FFCommon.h"
#include "VCLog.h"
#include "VCTimeText.h"

namespace vc::ff::abuf {


CAudioLine::CAudioLine() = default;
CAudioLine::~CAudioLine() = default;

size_t CAudioLine::Samples() const {
  const size_t cbBlock = BlockAlign();
  return cbBlock ? (m_vecData.size() - m_cbFront) / cbBlock : 0;
}

HRESULT CAudioLine::SetProps(const K_AUD_PROPS& props, bool bReset) {
  if (bReset) {
    m_vecData.clear();
    m_cbFront = 0;
    m_rtAnchor = VC_TIME_UNSET;
    m_resampler.Reset();
    m_props = props;
    m_bHasProps = true;
    return S_OK;
  }
  if (m_bHasProps && std::memcmp(&m_props, &props, sizeof props) == 0) return S_OK;
  HRESULT hr = _FlushResampler();
  if (FAILED(hr)) return hr;
  if (!m_bHasProps || Samples() == 0) {
    m_props = props;
    m_bHasProps = true;
    return S_OK;
  }
  // Convert what the line holds: the old samples become one put into the
  // line in its new format, resampled in one go when the rate changes.
  const std::vector<uint8_t> vecOld(Data(), Data() + Samples() * BlockAlign());
  const CSourceAudio old{vecOld.data(), m_props, Samples(), 0};
  const LONGLONG rtStart = StartTime();
  m_vecData.clear();
  m_cbFront = 0;
  m_props = props;
  size_t nAdded = 0;
  hr = Put(old, AllChannels(old.props.nChannels), 0, VC_TIME_UNSET, &nAdded);
  if (SUCCEEDED(hr)) hr = _FlushResampler();
  if (FAILED(hr)) return hr;
  if (rtStart != VC_TIME_UNSET) SetStartTime(rtStart);
  return S_OK;
}

HRESULT CAudioLine::Put(const CSourceAudio& src, const std::vector<int>& vecChannels, LONG nTrackSplitBits,
                        LONGLONG rtTime, size_t* pnAdded) {
  *pnAdded = 0;
  if (!m_bHasProps) {
    m_props = K_AUD_PROPS{static_cast<LONG>(vecChannels.size()), src.props.nSamplesPerSec,
                          src.props.nBitsPerSample, nTrackSplitBits};
    m_bHasProps = true;
  }
  if (src.nSamples == 0) return S_FALSE;

  // Pair the chosen source channels with the line's and read them onto the
  // 32-bit scale, interleaved in the line's channel order.
  const auto nCh = static_cast<size_t>(m_props.nChannels);
  if (vecChannels.size() > nCh && vecChannels.size() != 1) {
    VC_LOG(eVCLL_Retry, "%zu source channel(s) into a line of %zu: the last %zu left out\n", vecChannels.size(),
           nCh, vecChannels.size() - nCh);
  }
  const std::vector<int> vecPairs = PairChannels(vecChannels.size(), nCh);
  std::vector<int32_t> vecWork(src.nSamples * nCh);
  for (size_t d = 0; d < nCh; ++d) {
    if (vecPairs[d] < 0) continue;  // stays zero: silence on the 32-bit scale
    const int nSrcCh = vecChannels[static_cast<size_t>(vecPairs[d])];
    if (nSrcCh < 0) continue;
    for (size_t i = 0; i < src.nSamples; ++i)
      vecWork[i * nCh + d] = ReadSample(src.At(i, nSrcCh), src.props.nBitsPerSample);
  }
  size_t nNew = src.nSamples;
  HRESULT hr = S_OK;
  if (src.props.nSamplesPerSec != m_props.nSamplesPerSec) {
    std::vector<int32_t> vecOut;
    hr = _Resample(vecWork, nNew, src.props.nSamplesPerSec, false, &vecOut, &nNew);
    if (FAILED(hr)) return hr;
    vecWork.swap(vecOut);
  } else {
    hr = _FlushResampler();
    if (FAILED(hr)) return hr;
  }

  size_t nSkip = 0;
  const size_t nSilence = _ApplyTime(rtTime, nNew, &nSkip);
  _Append(vecWork.data() + nSkip * nCh, nNew - nSkip);
  *pnAdded = nSilence + nNew - nSkip;
  return *pnAdded ? S_OK : S_FALSE;
}

size_t CAudioLine::_ApplyTime(LONGLONG rtTime, size_t nNew, size_t* pnSkip) {
  *pnSkip = 0;
  if (rtTime == VC_TIME_UNSET) return 0;
  const size_t nHeld = Samples();
  if (m_rtAnchor == VC_TIME_UNSET || (!m_bTimes && nHeld == 0)) {
    m_rtAnchor = rtTime;
    m_llAnchorPos = m_llFrontPos + static_cast<int64_t>(nHeld);
    return 0;
  }
  if (!m_bTimes) return 0;
  const LONGLONG rtEnd = EndTime();
  const LONGLONG rtDiff = rtTime - rtEnd;
  const LONG nRate = m_props.nSamplesPerSec;
  if (rtDiff > kMaxTimeCorrection || rtDiff < -kMaxTimeCorrection) {
    VC_LOG(eVCLL_Retry, "Time jump: put at %ws, line ends at %ws; times follow the put\n", TimeTextW(rtTime).c_str(),
           TimeTextW(rtEnd).c_str());
    m_rtAnchor = rtTime;
    m_llAnchorPos = m_llFrontPos + static_cast<int64_t>(nHeld);
    return 0;
  }
  if (rtDiff > m_rtMaxDiff) {
    const auto nGap = static_cast<size_t>(RefTimeToSamples(rtDiff, nRate));
    VC_LOG(eVCLL_Detail, "Gap: put at %ws, line ends at %ws: %zu silent sample(s)\n", TimeTextW(rtTime).c_str(),
           TimeTextW(rtEnd).c_str(), nGap);
    PadTo(nHeld + nGap);
    return nGap;
  }
  if (rtDiff < m_rtMinDiff) {
    *pnSkip = std::min(nNew, static_cast<size_t>(RefTimeToSamples(-rtDiff, nRate)));
    VC_LOG(eVCLL_Detail, "Overlap: put at %ws, line ends at %ws: %zu of %zu sample(s) dropped\n",
           TimeTextW(rtTime).c_str(), TimeTextW(rtEnd).c_str(), *pnSkip, nNew);
  }
  return 0;
}

uint8_t* CAudioLine::_Grow(size_t nSamples) {
  // Taken samples stay in front until they are at least half of the storage,
  // so a line read in small pieces moves its bytes rarely.
  if (m_cbFront > 0 && m_cbFront >= (m_vecData.size() - m_cbFront)) {
    m_vecData.erase(m_vecData.begin(), m_vecData.begin() + static_cast<std::ptrdiff_t>(m_cbFront));
    m_cbFront = 0;
  }
  const size_t cbOld = m_vecData.size();
  m_vecData.resize(cbOld + nSamples * BlockAlign());
  return m_vecData.data() + cbOld;
}

void CAudioLine::_Append(const int32_t* pWork, size_t nSamples) {
  if (nSamples == 0) return;
  uint8_t* pb = _Grow(nSamples);
  const size_t nValues = nSamples * static_cast<size_t>(m_props.nChannels);
  const int cbSample = BytesPerSample(m_props.nBitsPerSample);
  for (size_t k = 0; k < nValues; ++k) WriteSample(pb + k * static_cast<size_t>(cbSample), m_props.nBitsPerSample, pWork[k]);
}

void CAudioLine::PadTo(size_t nSamples) {
  const size_t nHeld = Samples();
  if (!m_bHasProps || nHeld >= nSamples) return;
  const size_t nAdd = nSamples - nHeld;
  FillSilence(_Grow(nAdd), nAdd * BlockAlign(), m_props.nBitsPerSample);
}

size_t CAudioLine::Drop(size_t n) {
  n = std::min(n, Samples());
  m_cbFront += n * BlockAlign();
  m_llFrontPos += static_cast<int64_t>(n);
  if (m_cbFront == m_vecData.size()) {
    m_vecData.clear();
    m_cbFront = 0;
  }
  return n;
}

void CAudioLine::TimesEnable(bool bEnable, LONGLONG rtMinDiff, LONGLONG rtMaxDiff) {
  m_bTimes = bEnable;
  m_rtMinDiff = rtMinDiff;
  m_rtMaxDiff = rtMaxDiff;
}

LONGLONG CAudioLine::StartTime() const {
  if (m_rtAnchor == VC_TIME_UNSET) return VC_TIME_UNSET;
  return m_rtAnchor + SamplesToRefTime(m_llFrontPos - m_llAnchorPos, m_props.nSamplesPerSec);
}

LONGLONG CAudioLine::EndTime() const {
  if (m_rtAnchor == VC_TIME_UNSET) return VC_TIME_UNSET;
  return m_rtAnchor + SamplesToRefTime(m_llFrontPos + static_cast<int64_t>(Samples()) - m_llAnchorPos,
                                       m_props.nSamplesPerSec);
}

void CAudioLine::SetStartTime(LONGLONG rtStart) {
  m_rtAnchor = rtStart;
  m_llAnchorPos = m_llFrontPos;
}

HRESULT CAudioLine::_Resample(const std::vector<int32_t>& vecIn, size_t nIn, LONG nInRate, bool bFlush,
                              std::vector<int32_t>* pvecOut, size_t* pnOut) {
  *pnOut = 0;
  if (m_resampler.IsSetUp() && m_resampler.InRate() != nInRate) {
    HRESULT hr = _FlushResampler();
    if (FAILED(hr)) return hr;
  }
  const int nCh = m_props.nChannels;
  if (!m_resampler.IsSetUp()) {
    // Channels were already paired, so both sides have the same layout and
    // the converter only resamples.
    AVChannelLayout layout{};
    av_channel_layout_default(&layout, nCh);
    const int nErr = m_resampler.Setup(AV_SAMPLE_FMT_S32, layout, nInRate, AV_SAMPLE_FMT_S32, layout,
                                       m_props.nSamplesPerSec);
    av_channel_layout_uninit(&layout);
    if (nErr < 0) {
      VC_LOG(eVCLL_Error, "Resampler %d -> %d Hz, %d channel(s): %s\n", nInRate, m_props.nSamplesPerSec, nCh,
             AvErrorText(nErr).c_str());
      return AvErrorToHr(nErr);
    }
  }
  if (nIn > static_cast<size_t>(INT_MAX)) return E_INVALIDARG;
  const int nMax = m_resampler.MaxOutput(static_cast<int>(nIn));
  if (nMax < 0) return AvErrorToHr(nMax);
  pvecOut->assign(static_cast<size_t>(nMax) * static_cast<size_t>(nCh) + static_cast<size_t>(nCh), 0);
  const auto* pIn = reinterpret_cast<const uint8_t*>(vecIn.data());
  auto* pOut = reinterpret_cast<uint8_t*>(pvecOut->data());
  const int nOut = m_resampler.ConvertRaw(nIn ? &pIn : nullptr, static_cast<int>(nIn), &pOut, nMax + 1);
  if (nOut < 0) {
    VC_LOG(eVCLL_Error, "resampling: %s\n", AvErrorText(nOut).c_str());
    return AvErrorToHr(nOut);
  }
  *pnOut = static_cast<size_t>(nOut);
  if (bFlush) m_resampler.Reset();
  return S_OK;
}

HRESULT CAudioLine::_FlushResampler() {
  if (!m_resampler.IsSetUp()) return S_OK;
  std::vector<int32_t> vecOut;
  size_t nOut = 0;
  const HRESULT hr = _Resample({}, 0, m_resampler.InRate(), true, &vecOut, &nOut);
  _Append(vecOut.data(), nOut);
  return hr;
}

}  // namespace vc::ff::abuf
