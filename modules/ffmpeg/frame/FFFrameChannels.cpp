#include "FFFrameChannels.h"

#include <algorithm>
#include <cstring>

#include "FFAudioBufferFormat.h"
#include "FFFormats.h"
#include "FFFrameScale.h"
#include "VCLog.h"

namespace vc::ff {

bool ParseChannelList(StringView text, const K_AUD_PROPS& source, std::vector<ChannelRoute>* pRoutes) {
  if (text.empty()) {
    pRoutes->clear();
    return true;
  }
  abuf::CChannelSelection sel;
  std::string strWhy;
  if (!abuf::ParseChannelList(text, source, &sel, &strWhy)) {
    VC_LOG(eVCLL_Error, "channel list: %s FAILED hr=%08X\n", strWhy.c_str(), E_INVALIDARG);
    return false;
  }
  std::vector<ChannelRoute> routes;
  for (size_t d = 0; d < sel.vecChannels.size(); ++d) {
    if (sel.vecChannels[d] >= 0) routes.push_back({sel.vecChannels[d], static_cast<int>(d)});
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
