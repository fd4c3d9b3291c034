#include "FFAudioBufferFormat.h"

extern "C" {
#include <libavutil/mathematics.h>
}

#include <algorithm>
#include <cmath>
#include <limits>

#include "VCFormat.h"
#include "VCLog.h"

namespace vc::ff::abuf {

bool CheckProps(const K_AUD_PROPS& props, std::string* pstrWhy) {
  std::string strWhy;
  if (props.nChannels < 1 || props.nChannels > kMaxChannels)
    strWhy = Format("%d channels (1 to %d)", props.nChannels, kMaxChannels);
  else if (props.nSamplesPerSec < 1 || props.nSamplesPerSec > kMaxSampleRate)
    strWhy = Format("sample rate %d", props.nSamplesPerSec);
  else if (props.nBitsPerSample != 8 && props.nBitsPerSample != 16 && props.nBitsPerSample != 32)
    strWhy = Format("%d bits per sample (8, 16 or 32)", props.nBitsPerSample);
  if (strWhy.empty()) return true;
  if (pstrWhy) *pstrWhy = std::move(strWhy);
  return false;
}

void FillSilence(uint8_t* pb, size_t cb, LONG nBits) {
  if (cb > 0) std::memset(pb, SilenceByte(nBits), cb);
}

void WriteSample(uint8_t* pb, LONG nBits, double dValue) {
  // Scale down to the target's own units first, so rounding happens there.
  switch (nBits) {
    case 8: {
      const double d = std::clamp(std::floor(dValue / 16777216.0 + 0.5), -128.0, 127.0);
      *pb = static_cast<uint8_t>(static_cast<int>(d) + 128);
      return;
    }
    case 16: {
      const auto v = static_cast<int16_t>(std::clamp(std::floor(dValue / 65536.0 + 0.5), -32768.0, 32767.0));
      std::memcpy(pb, &v, sizeof v);
      return;
    }
    default: {
      const auto v = static_cast<int32_t>(std::clamp(std::floor(dValue + 0.5), -2147483648.0, 2147483647.0));
      std::memcpy(pb, &v, sizeof v);
      return;
    }
  }
}

std::vector<CTrack> Tracks(const K_AUD_PROPS& props) {
  std::vector<CTrack> vecTracks;
  const uint32_t nBits = static_cast<uint32_t>(props.nTrackSplitBits);
  CTrack track;
  for (int nCh = 0; nCh < props.nChannels; ++nCh) {
    if (nCh > 0 && nCh < 32 && (nBits & (1u << nCh))) {
      vecTracks.push_back(track);
      track = CTrack{nCh, 0};
    }
    ++track.nCount;
  }
  if (track.nCount > 0) vecTracks.push_back(track);
  return vecTracks;
}

namespace {

bool IsSeparator(OLECHAR c) { return c == u',' || c == u';' || c == u' ' || c == u'\t'; }

// A channel number at list[*pi] (at most two digits: below kMaxChannels);
// advances *pi past it.
bool ReadNumber(StringView list, size_t* pi, int* pn) {
  size_t i = *pi;
  int n = 0;
  while (i < list.size() && list[i] >= u'0' && list[i] <= u'9') {
    n = n * 10 + (list[i] - u'0');
    if (n >= kMaxChannels) return false;
    ++i;
  }
  if (i == *pi) return false;
  *pi = i;
  *pn = n;
  return true;
}

void SetSplit(LONG* pnBits, int nPos) {
  if (nPos > 0 && nPos < 32) *pnBits = static_cast<LONG>(static_cast<uint32_t>(*pnBits) | (1u << nPos));
}

struct CRoute {
  int nSrc;
  int nDst;
};

}  // namespace

bool ParseChannelListOrLog(BSTR bsLine, BSTR bsList, const K_AUD_PROPS& props, CChannelSelection* pSel) {
  std::string strWhy;
  if (ParseChannelList(InString(bsList), props, pSel, &strWhy)) return true;
  VC_LOG(eVCLL_Error, "(%ws) channels '%ws': %s\n", bsLine, bsList, strWhy.c_str());
  return false;
}

bool ParseChannelList(StringView list, const K_AUD_PROPS& props, CChannelSelection* pSel, std::string* pstrWhy) {
  static constexpr StringView kTrack = u"track:";
  std::vector<CRoute> vecRoutes;
  CChannelSelection sel;
  bool bAfterTrack = false;
  size_t i = 0;
  const auto fail = [&](const char* pszWhat) {
    if (pstrWhy)
      *pstrWhy = Format("%s at %zu of '%ws' (%d channel(s), %d track(s))", pszWhat, i, String(list).c_str(),
                        props.nChannels, static_cast<int>(Tracks(props).size()));
    return false;
  };
  while (i < list.size()) {
    if (IsSeparator(list[i])) {
      ++i;
      continue;
    }
    int nFirst = 0;
    const auto nNext = [&] { return static_cast<int>(vecRoutes.size()); };
    if (list.size() - i > kTrack.size() && StrIEquals(list.substr(i, kTrack.size()), kTrack)) {
      i += kTrack.size();
      const std::vector<CTrack> vecTracks = Tracks(props);
      if (!ReadNumber(list, &i, &nFirst) || nFirst >= static_cast<int>(vecTracks.size())) return fail("no such track");
      SetSplit(&sel.nTrackSplitBits, nNext());
      for (int k = 0; k < vecTracks[static_cast<size_t>(nFirst)].nCount; ++k)
        vecRoutes.push_back({vecTracks[static_cast<size_t>(nFirst)].nFirst + k, nNext()});
      bAfterTrack = true;
    } else {
      if (!ReadNumber(list, &i, &nFirst)) return fail("no channel number");
      const int nSplitAt = nNext();
      if (i < list.size() && list[i] == u':') {
        ++i;
        int nDst = 0;
        if (!ReadNumber(list, &i, &nDst)) return fail("no target channel");
        vecRoutes.push_back({nFirst, nDst});
      } else if (i < list.size() && list[i] == u'-') {
        ++i;
        int nLast = 0;
        if (!ReadNumber(list, &i, &nLast)) return fail("no range end");
        const int nStep = nLast >= nFirst ? 1 : -1;
        for (int n = nFirst;; n += nStep) {
          vecRoutes.push_back({n, nNext()});
          if (n == nLast) break;
        }
      } else {
        vecRoutes.push_back({nFirst, nNext()});
      }
      if (bAfterTrack) SetSplit(&sel.nTrackSplitBits, nSplitAt);
      bAfterTrack = false;
    }
    if (i < list.size() && !IsSeparator(list[i])) return fail("unexpected character");
    if (vecRoutes.size() > static_cast<size_t>(kMaxChannels) * 4) return fail("too many items");
  }
  if (vecRoutes.empty()) {
    sel.vecChannels = AllChannels(props.nChannels);
    sel.nTrackSplitBits = props.nChannels >= 32 ? props.nTrackSplitBits
                                                : static_cast<LONG>(static_cast<uint32_t>(props.nTrackSplitBits) &
                                                                    ((1u << props.nChannels) - 1u));
    *pSel = std::move(sel);
    return true;
  }
  int nOut = 0;
  for (const CRoute& route : vecRoutes) {
    if (route.nSrc >= props.nChannels) {
      i = list.size();
      return fail(Format("channel %d does not exist", route.nSrc).c_str());
    }
    if (route.nDst >= kMaxChannels) return fail("target channel beyond the limit");
    nOut = std::max(nOut, route.nDst + 1);
  }
  sel.vecChannels.assign(static_cast<size_t>(nOut), -1);
  for (const CRoute& route : vecRoutes) sel.vecChannels[static_cast<size_t>(route.nDst)] = route.nSrc;
  *pSel = std::move(sel);
  return true;
}

std::vector<int> PairChannels(size_t nSelected, size_t nDest) {
  std::vector<int> vecPairs(nDest, -1);
  for (size_t d = 0; d < nDest; ++d) {
    if (nSelected == 1) vecPairs[d] = 0;
    else if (d < nSelected) vecPairs[d] = static_cast<int>(d);
  }
  return vecPairs;
}

CGainRamp::CGainRamp(double dStartDb, double dEndDb, size_t nSamples)
    : m_dStart(std::pow(10.0, dStartDb / 20.0)),
      m_dEnd(std::pow(10.0, dEndDb / 20.0)),
      m_nSteps(nSamples > 1 ? static_cast<double>(nSamples - 1) : 0.0) {}

bool IsGainDb(double dDb) { return !std::isnan(dDb) && dDb != std::numeric_limits<double>::infinity(); }

void RenderSamples(const CAudioRef& src, const std::vector<int>& vecSrc, const CGainRamp& srcGain,
                   const CAudioRef& dst, const std::vector<int>& vecDst, const CGainRamp* pDstGain, size_t n) {
  const std::vector<int> vecPairs = PairChannels(vecSrc.size(), vecDst.size());
  // Gather the sources of each destination channel once, so a channel named
  // twice gets both sources and its own gain only once.
  std::vector<std::vector<int>> vecSources(static_cast<size_t>(dst.nChannels));
  std::vector<bool> vecNamed(static_cast<size_t>(dst.nChannels), false);
  for (size_t k = 0; k < vecDst.size(); ++k) {
    if (vecDst[k] < 0) continue;  // a gap in the target list
    const auto nDstCh = static_cast<size_t>(vecDst[k]);
    vecNamed[nDstCh] = true;
    const int nSrcCh = vecPairs[k] >= 0 ? vecSrc[static_cast<size_t>(vecPairs[k])] : -1;
    if (nSrcCh >= 0) vecSources[nDstCh].push_back(nSrcCh);
  }
  for (int nCh = 0; nCh < dst.nChannels; ++nCh) {
    if (!vecNamed[static_cast<size_t>(nCh)]) continue;
    const std::vector<int>& vecFrom = vecSources[static_cast<size_t>(nCh)];
    for (size_t i = 0; i < n; ++i) {
      double dSum = 0;
      for (int nSrcCh : vecFrom) dSum += static_cast<double>(ReadSample(src.At(i, nSrcCh), src.nBits));
      double dValue = dSum * srcGain.At(i);
      uint8_t* pbDst = dst.At(i, nCh);
      if (pDstGain) dValue += static_cast<double>(ReadSample(pbDst, dst.nBits)) * pDstGain->At(i);
      WriteSample(pbDst, dst.nBits, dValue);
    }
  }
}

std::vector<int> AllChannels(LONG nChannels) {
  std::vector<int> vec(static_cast<size_t>(std::max<LONG>(nChannels, 0)));
  for (size_t k = 0; k < vec.size(); ++k) vec[k] = static_cast<int>(k);
  return vec;
}

LONGLONG SamplesToRefTime(int64_t llSamples, LONG nRate) {
  return av_rescale_rnd(llSamples, kRefTimePerSecond, nRate, AV_ROUND_NEAR_INF);
}

int64_t RefTimeToSamples(LONGLONG rtTime, LONG nRate) {
  return av_rescale_rnd(rtTime, nRate, kRefTimePerSecond, AV_ROUND_NEAR_INF);
}

}  // namespace vc::ff::abuf
