#include "FFFrameChannels.h"

#include <algorithm>
#include <cstring>

#include "FFFormats.h"
#include "FFFrameScale.h"

namespace vc::ff {

namespace {

bool IsSeparator(OLECHAR c) { return c == u',' || c == u';' || c == u' ' || c == u'\t'; }

// Reads a channel number at text[i]; advances i. False when no digit is there
// or the number is out of range.
bool ReadChannel(StringView text, size_t* pi, int* pn) {
  size_t i = *pi;
  int n = 0;
  const size_t nStart = i;
  while (i < text.size() && text[i] >= u'0' && text[i] <= u'9') {
    n = n * 10 + (text[i] - u'0');
    if (n >= kMaxAudioChannels) return false;
    ++i;
  }
  if (i == nStart) return false;
  *pi = i;
  *pn = n;
  return true;
}

}  // namespace

bool ParseChannelList(StringView text, std::vector<ChannelRoute>* pRoutes) {
  std::vector<ChannelRoute> routes;
  size_t i = 0;
  while (i < text.size()) {
    if (IsSeparator(text[i])) {
      ++i;
      continue;
    }
    int nFirst = 0;
    if (!ReadChannel(text, &i, &nFirst)) return false;
    if (i < text.size() && text[i] == u':') {
      ++i;
      int nDst = 0;
      if (!ReadChannel(text, &i, &nDst)) return false;
      routes.push_back({nFirst, nDst});
    } else if (i < text.size() && text[i] == u'-') {
      ++i;
      int nLast = 0;
      if (!ReadChannel(text, &i, &nLast)) return false;
      const int nStep = nLast >= nFirst ? 1 : -1;
      for (int n = nFirst;; n += nStep) {
        routes.push_back({n, static_cast<int>(routes.size())});
        if (n == nLast) break;
      }
    } else {
      routes.push_back({nFirst, static_cast<int>(routes.size())});
    }
    if (i < text.size() && !IsSeparator(text[i])) return false;
    if (routes.size() > static_cast<size_t>(kMaxAudioChannels) * 4) return false;
  }
  for (const ChannelRoute& route : routes) {
    if (route.nDst >= kMaxAudioChannels) return false;
  }
  *pRoutes = std::move(routes);
  return true;
}

std::vector<ChannelRoute> IdentityRoutes(int nChannels) {
  std::vector<ChannelRoute> routes;
  for (int n = 0; n < nChannels; ++n) routes.push_back({n, n});
  return routes;
}

int32_t PcmRead(const uint8_t* p, int nBits) {
  switch (nBits) {
    case 8: return static_cast<int32_t>((static_cast<uint32_t>(*p) - 128u) << 24);
    case 16: {
      int16_t v;
      std::memcpy(&v, p, sizeof(v));
      return static_cast<int32_t>(static_cast<uint32_t>(v) << 16);
    }
    case 32: {
      int32_t v;
      std::memcpy(&v, p, sizeof(v));
      return v;
    }
    default: return 0;
  }
}

void PcmWrite(uint8_t* p, int nBits, int64_t llFullScale) {
  switch (nBits) {
    case 8: {
      const int64_t v = std::clamp<int64_t>((llFullScale + (int64_t{1} << 23)) >> 24, -128, 127);
      *p = static_cast<uint8_t>(v + 128);
      break;
    }
    case 16: {
      const auto v = static_cast<int16_t>(std::clamp<int64_t>((llFullScale + (int64_t{1} << 15)) >> 16, -32768, 32767));
      std::memcpy(p, &v, sizeof(v));
      break;
    }
    case 32: {
      const auto v = static_cast<int32_t>(std::clamp<int64_t>(llFullScale, INT32_MIN, INT32_MAX));
      std::memcpy(p, &v, sizeof(v));
      break;
    }
    default: break;
  }
}

HRESULT RemapPcm(const AVFrame* pSrc, int nDstBits, int nDstChannels, const std::vector<ChannelRoute>& routes,
                 AvFramePtr* pOut) {
  pOut->reset();
  if (!pSrc) return E_INVALIDARG;
  const int nSrcBits = BitsFromSampleFormat(static_cast<AVSampleFormat>(pSrc->format));
  const int nSrcChannels = pSrc->ch_layout.nb_channels;
  if (nSrcBits == 0 || SampleFormatFromBits(nDstBits) == AV_SAMPLE_FMT_NONE || nDstChannels <= 0 ||
      nDstChannels > kMaxAudioChannels) {
    return E_INVALIDARG;
  }
  for (const ChannelRoute& route : routes) {
    if (route.nSrc < 0 || route.nSrc >= nSrcChannels || route.nDst < 0 || route.nDst >= nDstChannels)
      return E_INVALIDARG;
  }
  AvFramePtr spDst;
  const HRESULT hr =
      AllocAudio(SampleFormatFromBits(nDstBits), nDstChannels, pSrc->sample_rate, pSrc->nb_samples, &spDst);
  if (FAILED(hr)) return hr;
  spDst->pts = pSrc->pts;
  const int nSrcStep = PcmBytes(nSrcBits) * nSrcChannels;
  const int nDstStep = PcmBytes(nDstBits) * nDstChannels;
  for (const ChannelRoute& route : routes) {
    const uint8_t* pIn = pSrc->data[0] + route.nSrc * PcmBytes(nSrcBits);
    uint8_t* pTo = spDst->data[0] + route.nDst * PcmBytes(nDstBits);
    for (int s = 0; s < pSrc->nb_samples; ++s) {
      PcmWrite(pTo, nDstBits, PcmRead(pIn, nSrcBits));
      pIn += nSrcStep;
      pTo += nDstStep;
    }
  }
  *pOut = std::move(spDst);
  return S_OK;
}

}  // namespace vc::ff
