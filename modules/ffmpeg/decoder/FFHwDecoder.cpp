#include "FFHwDecoder.h"

#include <dlfcn.h>

#include <filesystem>

namespace vc::ff {

int OpenHwDevice(AVHWDeviceType eType, const std::string& strSelector, AVBufferRef** ppDevice) {
  *ppDevice = nullptr;
  if (eType == AV_HWDEVICE_TYPE_NONE) return AVERROR(EINVAL);
  return av_hwdevice_ctx_create(ppDevice, eType, strSelector.empty() ? nullptr : strSelector.c_str(), nullptr, 0);
}

namespace {

// The device-context configuration of pCodec for eType, if it has one.
const AVCodecHWConfig* DeviceConfig(const AVCodec* pCodec, AVHWDeviceType eType) {
  for (int i = 0;; ++i) {
    const AVCodecHWConfig* pConfig = avcodec_get_hw_config(pCodec, i);
    if (!pConfig) return nullptr;
    if (pConfig->device_type == eType && (pConfig->methods & AV_CODEC_HW_CONFIG_METHOD_HW_DEVICE_CTX)) return pConfig;
  }
}

}  // namespace

CFFHwDecoderChoice FindHwDecoder(AVCodecID id, AVHWDeviceType eType) {
  CFFHwDecoderChoice wrapper;
  void* pIter = nullptr;
  while (const AVCodec* pCodec = av_codec_iterate(&pIter)) {
    if (!av_codec_is_decoder(pCodec) || pCodec->id != id) continue;
    const AVCodecHWConfig* pConfig = DeviceConfig(pCodec, eType);
    if (!pConfig) continue;
    const bool bWrapper = (pCodec->capabilities & AV_CODEC_CAP_HARDWARE) != 0;
    // FFmpeg's own decoder with the device's acceleration is preferred: it
    // parses the stream itself and handles every container's packets.
    if (!bWrapper) return {pCodec, pConfig->pix_fmt};
    if (!wrapper.pCodec) wrapper = {pCodec, pConfig->pix_fmt};
  }
  return wrapper;
}

int DownloadFrame(const AVFrame& src, AVFrame* pDst) {
  if (!src.hw_frames_ctx) return av_frame_ref(pDst, &src);
  int nErr = av_hwframe_transfer_data(pDst, &src, 0);
  if (nErr < 0) return nErr;
  nErr = av_frame_copy_props(pDst, &src);
  if (nErr < 0) av_frame_unref(pDst);
  return nErr;
}

std::string HwDeviceMissingReason(AVHWDeviceType eType) {
  if (eType == AV_HWDEVICE_TYPE_CUDA) {
    // FFmpeg loads the driver's library at run time and reports a bare
    // EPERM when it is not there.
    void* pLib = dlopen("libcuda.so.1", RTLD_LAZY | RTLD_LOCAL);
    if (!pLib) return "the NVIDIA driver library libcuda.so.1 cannot be loaded";
    dlclose(pLib);
    return {};
  }
  if (eType == AV_HWDEVICE_TYPE_QSV || eType == AV_HWDEVICE_TYPE_VAAPI) {
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator("/dev/dri", ec))
      if (entry.path().filename().string().rfind("renderD", 0) == 0) return {};
    return "no GPU render node in /dev/dri";
  }
  return {};
}

std::string HwDeviceTypeName(AVHWDeviceType eType) {
  const char* sz = av_hwdevice_get_type_name(eType);
  return sz ? sz : "none";
}

}  // namespace vc::ff
