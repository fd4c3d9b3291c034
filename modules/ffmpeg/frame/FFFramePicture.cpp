// Pictures of frames written to files (VCVideoSaveToFile).
#include <cctype>
#include <cstdio>
#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/pixdesc.h>
}

#include "FFCommon.h"
#include "FFFormats.h"
#include "FFFrameScale.h"
#include "FFPointers.h"
#include "VCLog.h"

namespace vc::ff {

namespace {

std::string LowerExtension(const std::string& strPath) {
  const size_t nDot = strPath.find_last_of('.');
  const size_t nSlash = strPath.find_last_of('/');
  if (nDot == std::string::npos || (nSlash != std::string::npos && nDot < nSlash)) return {};
  std::string strExt = strPath.substr(nDot + 1);
  for (char& c : strExt) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return strExt;
}

HRESULT WriteFile(const std::string& strPath, const uint8_t* p, size_t cb) {
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> spFile(std::fopen(strPath.c_str(), "wb"), &std::fclose);
  if (!spFile) {
    const HRESULT hr = HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND);
    VC_LOG(eVCLL_Error, "open '%s' for writing FAILED hr=%08X\n", strPath.c_str(), hr);
    return hr;
  }
  const bool bOk = std::fwrite(p, 1, cb, spFile.get()) == cb;
  if (std::fclose(spFile.release()) != 0 || !bOk) {
    VC_LOG(eVCLL_Error, "write '%s' FAILED hr=%08X\n", strPath.c_str(), E_FAIL);
    return E_FAIL;
  }
  return S_OK;
}

HRESULT EncodeImage(const AVFrame* pVideo, AVCodecID eCodec, const std::string& strPath) {
  const AVPixFmtDescriptor* pDesc = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(pVideo->format));
  const bool bAlpha = pDesc && (pDesc->flags & AV_PIX_FMT_FLAG_ALPHA);
  // JPEG: full-range 4:2:0 (the deprecated J formats are not needed).
  AVPixelFormat eFmt = AV_PIX_FMT_YUV420P;
  if (eCodec == AV_CODEC_ID_PNG) eFmt = bAlpha ? AV_PIX_FMT_RGBA : AV_PIX_FMT_RGB24;
  if (eCodec == AV_CODEC_ID_BMP) eFmt = bAlpha ? AV_PIX_FMT_BGRA : AV_PIX_FMT_BGR24;
  const AVCodec* pCodec = avcodec_find_encoder(eCodec);
  if (!pCodec) {
    VC_LOG(eVCLL_Error, "no %s encoder FAILED hr=%08X\n", avcodec_get_name(eCodec), E_NOTIMPL);
    return E_NOTIMPL;
  }
  AvFramePtr spPicture(AllocPublicVideo(eFmt, eVCCC_Default, pVideo->width, pVideo->height, 0));
  if (!spPicture) return E_OUTOFMEMORY;
  const bool bJpeg = eCodec == AV_CODEC_ID_MJPEG;
  if (bJpeg) spPicture->color_range = AVCOL_RANGE_JPEG;
  HRESULT hr = ScaleInto(ViewOf(pVideo), spPicture.get(), 0, 0, pVideo->width, pVideo->height);
  if (FAILED(hr)) return hr;

  AvCodecContextPtr spCodec(avcodec_alloc_context3(pCodec));
  AvPacketPtr spPacket(av_packet_alloc());
  if (!spCodec || !spPacket) return E_OUTOFMEMORY;
  spCodec->width = pVideo->width;
  spCodec->height = pVideo->height;
  spCodec->pix_fmt = eFmt;
  spCodec->time_base = AVRational{1, 25};
  if (bJpeg) spCodec->color_range = AVCOL_RANGE_JPEG;
  int nErr = avcodec_open2(spCodec.get(), pCodec, nullptr);
  if (nErr >= 0) nErr = avcodec_send_frame(spCodec.get(), spPicture.get());
  if (nErr >= 0) nErr = avcodec_send_frame(spCodec.get(), nullptr);
  if (nErr >= 0) nErr = avcodec_receive_packet(spCodec.get(), spPacket.get());
  if (nErr < 0) {
    hr = AvErrorToHr(nErr);
    VC_LOG(eVCLL_Error, "%s picture for '%s' FAILED %s hr=%08X\n", pCodec->name, strPath.c_str(),
           AvErrorText(nErr).c_str(), hr);
    return hr;
  }
  return WriteFile(strPath, spPacket->data, static_cast<size_t>(spPacket->size));
}

}  // namespace

HRESULT SavePicture(const AVFrame* pVideo, eVCCC fcc, const std::string& strPath) {
  if (!pVideo) return E_INVALIDARG;
  const std::string strExt = LowerExtension(strPath);
  if (strExt == "png") return EncodeImage(pVideo, AV_CODEC_ID_PNG, strPath);
  if (strExt == "bmp") return EncodeImage(pVideo, AV_CODEC_ID_BMP, strPath);
  if (strExt == "jpg" || strExt == "jpeg") return EncodeImage(pVideo, AV_CODEC_ID_MJPEG, strPath);
  AvFramePtr spLaidOut;
  if (!IsPublicLayout(pVideo, fcc)) {
    spLaidOut.reset(CopyToPublicLayout(pVideo, fcc));
    if (!spLaidOut) return E_OUTOFMEMORY;
    pVideo = spLaidOut.get();
  }
  PlaneLayout layout;
  LayoutFor(static_cast<AVPixelFormat>(pVideo->format), fcc, pVideo->width, pVideo->height, pVideo->linesize[0],
            &layout);
  return WriteFile(strPath, pVideo->data[0], layout.cbTotal);
}

}  // namespace vc::ff
