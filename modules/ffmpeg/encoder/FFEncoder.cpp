#include "FFEncoder.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "Devices/KPropsRead.h"
#include "FFClasses.h"
#include "FFCommon.h"
#include "FFEncoderInput.h"
#include "FFEncoderOptions.h"
#include "FFHwDecoder.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCLog.h"

#ifndef ERROR_DEVICE_NOT_AVAILABLE
#define ERROR_DEVICE_NOT_AVAILABLE 4319L
#endif

namespace vc::ff {

namespace {

constexpr HRESULT kHrNoDevice = HRESULT_FROM_WIN32(ERROR_DEVICE_NOT_AVAILABLE);
constexpr HRESULT kHrNotSupported = HRESULT_FROM_WIN32(ERROR_NOT_SUPPORTED);

std::string Lower(std::string str) {
  std::transform(str.begin(), str.end(), str.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return str;
}

bool NamesHevc(const std::string& strCodec) {
  return strCodec.find("265") != std::string::npos || strCodec.find("hevc") != std::string::npos;
}

const char* MediaName(eVCMediaType eType) { return eType == eVCMT_Video ? "video" : eType == eVCMT_Audio ? "audio" : "other"; }

const char* DeviceLabel(AVHWDeviceType eDevice) {
  switch (eDevice) {
    case AV_HWDEVICE_TYPE_CUDA:
      return "NVEnc";
    case AV_HWDEVICE_TYPE_QSV:
      return "IntelQS";
    case AV_HWDEVICE_TYPE_VAAPI:
      return "AMD (VAAPI)";
    default:
      return "FFmpeg";
  }
}

// The software encoder for a name: FFmpeg's encoder name, else the codec
// name ("h264" gives FFmpeg's preferred H.264 encoder).
const AVCodec* FindSoftwareEncoder(const std::string& strName) {
  if (const AVCodec* pCodec = avcodec_find_encoder_by_name(strName.c_str())) return pCodec;
  if (const AVCodecDescriptor* pDesc = avcodec_descriptor_get_by_name(strName.c_str()))
    return avcodec_find_encoder(pDesc->id);
  return nullptr;
}

// The device encoder a codec name asks for on eDevice.
std::string DeviceEncoderName(AVHWDeviceType eDevice, const std::string& strCodec) {
  const bool bHevc = NamesHevc(strCodec);
  switch (eDevice) {
    case AV_HWDEVICE_TYPE_CUDA:
      return bHevc ? "hevc_nvenc" : "h264_nvenc";
    case AV_HWDEVICE_TYPE_QSV:
      if (strCodec.find("mpeg2") != std::string::npos) return "mpeg2_qsv";
      return bHevc ? "hevc_qsv" : "h264_qsv";
    case AV_HWDEVICE_TYPE_VAAPI:
      return bHevc ? "hevc_vaapi" : "h264_vaapi";
    default:
      return {};
  }
}

}  // namespace

CCoFFEncoder::CCoFFEncoder(AVHWDeviceType eDevice) : m_eDevice(eDevice) {
  InstallAvLogBridge();
  CKAutoLock lock(m_csLock);
  if (XMLParse::XMLNodePtr spRoot = _PropsRootLocked()) PublishEncoderOptionInfo(*spRoot, nullptr);
}

std::string CCoFFEncoder::_PropText(const char16_t* szName) {
  CKAutoLock lock(m_csLock);
  XMLParse::XMLNodePtr spRoot = _PropsRootLocked();
  return spRoot ? ToUtf8(ReadPropText(*spRoot, View(szName), u"")) : std::string();
}

CFFEncodeSettings CCoFFEncoder::_ReadSettings() {
  CFFEncodeSettings settings;
  CKAutoLock lock(m_csLock);
  XMLParse::XMLNodePtr spRoot = _PropsRootLocked();
  if (!spRoot) return settings;
  const XMLParse::CoXMLNode& root = *spRoot;
  settings.llBitrate = ReadPropInt(root, u"bitrate", 0);
  settings.dblQuality = ReadPropDouble(root, u"quality", -1);
  settings.llMaxRate = ReadPropInt(root, u"max_rate", 0);
  settings.llBufferSize = ReadPropInt(root, u"buffer_size", 0);
  settings.nGop = static_cast<int>(ReadPropInt(root, u"gop", -1));
  settings.nBFrames = static_cast<int>(ReadPropInt(root, u"b_frames", -1));
  settings.nThreads = static_cast<int>(ReadPropInt(root, u"threads", 0));
  settings.strPreset = ToUtf8(ReadPropText(root, u"preset", u""));
  settings.strProfile = ToUtf8(ReadPropText(root, u"profile", u""));
  settings.strLevel = ToUtf8(ReadPropText(root, u"level", u""));
  settings.strPixFmt = ToUtf8(ReadPropText(root, u"pix_fmt", u""));
  settings.nWidth = static_cast<int>(ReadPropInt(root, u"width", 0));
  settings.nHeight = static_cast<int>(ReadPropInt(root, u"height", 0));
  settings.nSampleRate = static_cast<int>(ReadPropInt(root, u"sample_rate", 0));
  settings.nChannels = static_cast<int>(ReadPropInt(root, u"channels", 0));
  settings.bGlobalHeader = ReadPropBool(root, u"global_header", true);
  return settings;
}

HRESULT CCoFFEncoder::_OpenDevice(AVHWDeviceType eDevice, const char* szLabel) {
  m_spDevice.reset();
  // Where the machine plainly lacks the device, say so without asking
  // FFmpeg's device layer, which may load driver libraries first.
  const std::string strReason = HwDeviceMissingReason(eDevice);
  int nErr = AVERROR(ENODEV);
  if (strReason.empty()) {
    AVBufferRef* pDevice = nullptr;
    nErr = OpenHwDevice(eDevice, _PropText(u"hw_device"), &pDevice);
    if (nErr >= 0) {
      m_spDevice.reset(pDevice);
      return S_OK;
    }
  }
  VC_LOG(eVCLL_Retry, "%s encoder: no %s device: %s%s%s (hr=%08X)\n", szLabel, HwDeviceTypeName(eDevice).c_str(),
         strReason.c_str(), strReason.empty() ? "FFmpeg: " : "", strReason.empty() ? AvErrorText(nErr).c_str() : "",
         kHrNoDevice);
  return kHrNoDevice;
}

HRESULT CCoFFEncoder::_ProbeDevice() {
  AvCodecContextPtr spProbe(avcodec_alloc_context3(m_pCodec));
  if (!spProbe) return E_OUTOFMEMORY;
  spProbe->width = 640;
  spProbe->height = 480;
  spProbe->time_base = AVRational{1, 25};
  spProbe->pix_fmt = m_deviceUse.eSwPixFmt != AV_PIX_FMT_NONE ? m_deviceUse.eSwPixFmt : AV_PIX_FMT_NV12;
  spProbe->hw_device_ctx = av_buffer_ref(m_spDevice.get());
  const int nErr = avcodec_open2(spProbe.get(), m_pCodec, nullptr);
  if (nErr >= 0) return S_OK;
  // NVENC answers out of memory when the driver has no further session.
  const HRESULT hr = nErr == AVERROR(ENOMEM) ? kHrEncoderBusy : AvErrorToHr(nErr);
  VC_LOG(eVCLL_Retry, "%s encoder: '%s' does not open on the device: %s (AVERROR %d, hr=%08X)\n",
         DeviceLabel(m_eDevice), m_pCodec->name, AvErrorText(nErr).c_str(), nErr, hr);
  return hr;
}

HRESULT CCoFFEncoder::_Choose(eVCMediaType eType) {
  m_pCodec = nullptr;
  m_deviceUse = CFFEncodeDevice{};
  m_spDevice.reset();
  const std::string strCodec = Lower(_PropText(u"codec"));
  AVHWDeviceType eDevice = m_eDevice;
  std::string strEncoder;
  bool bProbe = false;
  if (m_eDevice != AV_HWDEVICE_TYPE_NONE) {
    if (eType != eVCMT_Video) {
      VC_LOG(eVCLL_Retry, "%s encoder: encodes video only, not %s (hr=%08X)\n", DeviceLabel(m_eDevice),
             MediaName(eType), kHrNotSupported);
      return kHrNotSupported;
    }
    strEncoder = DeviceEncoderName(m_eDevice, strCodec);
    bProbe = m_eDevice == AV_HWDEVICE_TYPE_CUDA;
  } else {
    CKAutoLock lock(m_csLock);
    XMLParse::XMLNodePtr spRoot = _PropsRootLocked();
    const bool bAmd = spRoot && ReadPropBool(*spRoot, u"amd", false);
    const std::string strPlugin = spRoot ? ToUtf8(ReadPropText(*spRoot, u"load_plugin", u"")) : std::string();
    if (bAmd) {
      eDevice = AV_HWDEVICE_TYPE_VAAPI;
    } else if (strPlugin == "hevc_hw") {
      eDevice = AV_HWDEVICE_TYPE_QSV;
      strEncoder = "hevc_qsv";
    }
    if (eDevice != AV_HWDEVICE_TYPE_NONE && strEncoder.empty()) strEncoder = DeviceEncoderName(eDevice, strCodec);
  }
  if (eDevice == AV_HWDEVICE_TYPE_NONE && (strCodec == "gpu_h264" || strCodec == "gpu_h265")) {
    // The best device this machine opens: NVIDIA, then Intel, then VAAPI.
    for (AVHWDeviceType eTry : {AV_HWDEVICE_TYPE_CUDA, AV_HWDEVICE_TYPE_QSV, AV_HWDEVICE_TYPE_VAAPI}) {
      const std::string strTry = DeviceEncoderName(eTry, strCodec);
      if (!avcodec_find_encoder_by_name(strTry.c_str())) continue;
      if (SUCCEEDED(_OpenDevice(eTry, "FFmpeg"))) {
        eDevice = eTry;
        strEncoder = strTry;
        break;
      }
    }
    if (eDevice == AV_HWDEVICE_TYPE_NONE) {
      VC_LOG(eVCLL_Retry, "FFmpeg encoder: no GPU encoder for '%s' opens on this machine (hr=%08X)\n",
             strCodec.c_str(), kHrNoDevice);
      return kHrNoDevice;
    }
  }
  if (eDevice != AV_HWDEVICE_TYPE_NONE) {
    m_pCodec = avcodec_find_encoder_by_name(strEncoder.c_str());
    if (!m_pCodec) {
      VC_LOG(eVCLL_Retry, "%s encoder: this FFmpeg has no '%s' encoder (hr=%08X)\n", DeviceLabel(eDevice),
             strEncoder.c_str(), kHrNotSupported);
      return kHrNotSupported;
    }
    HRESULT hr = m_spDevice ? S_OK : _OpenDevice(eDevice, DeviceLabel(eDevice));
    if (FAILED(hr) && m_eDevice == AV_HWDEVICE_TYPE_QSV) {
      CKAutoLock lock(m_csLock);
      XMLParse::XMLNodePtr spRoot = _PropsRootLocked();
      if (!(spRoot && ReadPropBool(*spRoot, u"hw_only", false))) {
        // The Intel software route: the same codec on the processor.
        const char* szSoftware = NamesHevc(strCodec) ? "libx265" : strEncoder == "mpeg2_qsv" ? "mpeg2video" : "libx264";
        VC_LOG(eVCLL_Retry, "IntelQS encoder: no device, encoding '%s' with '%s'\n", strCodec.c_str(), szSoftware);
        m_pCodec = avcodec_find_encoder_by_name(szSoftware);
        return m_pCodec ? S_OK : kHrNotSupported;
      }
    }
    if (FAILED(hr)) return hr;
    m_deviceUse.pDevice = m_spDevice.get();
    m_deviceUse.eSwPixFmt = AV_PIX_FMT_NV12;
    if (eDevice == AV_HWDEVICE_TYPE_VAAPI) m_deviceUse.eHwPixFmt = AV_PIX_FMT_VAAPI;
    if (eDevice == AV_HWDEVICE_TYPE_CUDA) m_deviceUse.eSwPixFmt = AV_PIX_FMT_YUV420P;
    return bProbe ? _ProbeDevice() : S_OK;
  }
  if (strCodec.empty() || strCodec == "cpu_h264") {
    m_pCodec = avcodec_find_encoder_by_name(eType == eVCMT_Audio ? "aac" : "libx264");
  } else {
    m_pCodec = FindSoftwareEncoder(strCodec);
  }
  if (!m_pCodec) {
    VC_LOG(eVCLL_Retry, "FFmpeg encoder: no encoder '%s' in this FFmpeg (hr=%08X)\n", strCodec.c_str(),
           kHrNotSupported);
    return kHrNotSupported;
  }
  const AVMediaType eWanted = eType == eVCMT_Video ? AVMEDIA_TYPE_VIDEO : AVMEDIA_TYPE_AUDIO;
  if (m_pCodec->type != eWanted) {
    VC_LOG(eVCLL_Retry, "FFmpeg encoder: '%s' is not a%s encoder (hr=%08X)\n", m_pCodec->name,
           eType == eVCMT_Video ? " video" : "n audio", kHrNotSupported);
    m_pCodec = nullptr;
    return kHrNotSupported;
  }
  return S_OK;
}

void CCoFFEncoder::_RestoreProps(const XMLParse::XMLNodePtr& spBefore) {
  if (!spBefore) return;
  CKAutoLock lock(m_csLock);
  _PropsReplaceRootLocked(spBefore);
}

void CCoFFEncoder::_Publish(eVCMediaType /*eType*/) {
  const String strName = FromUtf8(m_pCodec ? m_pCodec->name : "");
  CKAutoLock lock(m_csLock);
  if (XMLParse::XMLNodePtr spRoot = _PropsRootLocked()) {
    spRoot->SetAttributePath(u"codec_name", strName, false);
    spRoot->SetAttributePath(u"codec::codec", strName, false);
  }
}

HRESULT CCoFFEncoder::EncodeCodecSet(eVCMediaType _eCodecType, BSTR _bsConfigParams) {
  VC_GUARD_BEGIN
  if (_eCodecType != eVCMT_Video && _eCodecType != eVCMT_Audio) {
    VC_LOG(eVCLL_Error, "%s encoder: media type %d is neither video nor audio (hr=%08X)\n", DeviceLabel(m_eDevice),
           _eCodecType, E_INVALIDARG);
    return E_INVALIDARG;
  }
  // The settings before this call, put back when it fails.
  XMLParse::XMLNodePtr spBefore;
  {
    CKAutoLock lock(m_csLock);
    XMLParse::XMLNodePtr spRoot = _PropsRootLocked();
    if (spRoot) spBefore = spRoot->Clone();
    if (spRoot && FAILED(spRoot->Parse(InString(_bsConfigParams)))) {
      _PropsReplaceRootLocked(spBefore);
      VC_LOG(eVCLL_Error, "%s encoder: configuration '%ws' does not parse (hr=%08X)\n", DeviceLabel(m_eDevice),
             _bsConfigParams, E_INVALIDARG);
      return E_INVALIDARG;
    }
  }
  CKMutexLock lock(m_mtxEncode);
  m_session.Close();
  m_eType = eVCMT_Empty;
  const HRESULT hr = _Choose(_eCodecType);
  if (FAILED(hr)) {
    m_pCodec = nullptr;
    _RestoreProps(spBefore);
    return hr;
  }
  {
    // A value the codec cannot take is refused now, not at the first frame.
    CKAutoLock lockProps(m_csLock);
    XMLParse::XMLNodePtr spRoot = _PropsRootLocked();
    std::string strWhy;
    if (spRoot && FAILED(CheckEncoderOptions(*spRoot, m_pCodec, &strWhy))) {
      VC_LOG(eVCLL_Error, "%s encoder '%s': %s (hr=%08X)\n", DeviceLabel(m_eDevice), m_pCodec->name, strWhy.c_str(),
             E_INVALIDARG);
      m_pCodec = nullptr;
      if (spBefore) _PropsReplaceRootLocked(spBefore);
      return E_INVALIDARG;
    }
    if (spRoot) PublishEncoderOptionInfo(*spRoot, m_pCodec);
  }
  m_eType = _eCodecType;
  m_settings = _ReadSettings();
  _Publish(_eCodecType);
  VC_LOG(eVCLL_Progress, "%s encoder: '%s' chosen for %s\n", DeviceLabel(m_eDevice), m_pCodec->name,
         MediaName(_eCodecType));
  return S_OK;
  VC_GUARD_END
}

HRESULT CCoFFEncoder::_OpenSession(const AVFrame& first, double dblRate) {
  const int nErr = m_session.Open(m_pCodec, m_settings, first, dblRate, m_deviceUse);
  if (nErr >= 0) return S_OK;
  const HRESULT hr = AvErrorToHr(nErr);
  VC_LOG(eVCLL_Error, "%s encoder: opening '%s' failed: %s (AVERROR %d, hr=%08X)\n", DeviceLabel(m_eDevice),
         m_pCodec->name, AvErrorText(nErr).c_str(), nErr, hr);
  return hr;
}

void CCoFFEncoder::_Queue(std::vector<ComPtr<IVCPacket>>* pPackets) {
  if (pPackets->empty()) return;
  {
    CKMutexLock lock(m_mtxPackets);
    for (ComPtr<IVCPacket>& cpPacket : *pPackets) m_deqPackets.push_back(std::move(cpPacket));
  }
  m_cvPackets.notify_all();
  pPackets->clear();
}

HRESULT CCoFFEncoder::EncodeFramePut(IVCFrame* _pFrame, K_AV_PROPS* /*_pAVPropsOut*/, IVCPacket** _ppPacket,
                                     BSTR /*_bsHints*/) {
  VC_GUARD_BEGIN
  ClearOut(_ppPacket);
  HRESULT hr = S_OK;
  if (_pFrame) {
    CKMutexLock lock(m_mtxEncode);
    if (!m_pCodec) {
      VC_LOG(eVCLL_Error, "%s encoder: EncodeFramePut before EncodeCodecSet chose a codec (hr=%08X)\n",
             DeviceLabel(m_eDevice), VC_E_EMPTY);
      return VC_E_EMPTY;
    }
    CFFEncoderInput input;
    hr = ReadEncoderInput(_pFrame, m_eType, &input);
    if (FAILED(hr)) return hr;
    if (!m_session.IsOpen()) {
      hr = _OpenSession(*input.spFrame, input.dblRate);
      if (FAILED(hr)) return hr;
    }
    std::vector<ComPtr<IVCPacket>> vecPackets;
    const int nErr = m_session.Send(*input.spFrame, input.time, &vecPackets);
    _Queue(&vecPackets);
    if (nErr < 0) {
      hr = AvErrorToHr(nErr);
      VC_LOG(eVCLL_Error, "%s encoder '%s': frame refused: %s (AVERROR %d, hr=%08X)\n", DeviceLabel(m_eDevice),
             m_pCodec->name, AvErrorText(nErr).c_str(), nErr, hr);
      return hr;
    }
  }
  if (_ppPacket) {
    CKMutexLock lock(m_mtxPackets);
    if (!m_deqPackets.empty()) {
      *_ppPacket = m_deqPackets.front().Detach();
      m_deqPackets.pop_front();
    }
  }
  return hr;
  VC_GUARD_END
}

bool CCoFFEncoder::_WaitForPacket(LONGLONG rtWait) {
  std::unique_lock<std::mutex> lock(m_mtxPackets.native());
  // The predicate runs with the queue's lock held, which the analysis cannot
  // see through the native handle.
  return m_cvPackets.wait_for(lock, std::chrono::microseconds(rtWait / 10),
                              [this]() VC_THREAD_ANNOTATION(no_thread_safety_analysis) { return !m_deqPackets.empty(); });
}

HRESULT CCoFFEncoder::EncodePacketsGet(IVCPacket** _ppPacket, LONG* _pnReadyPackets, LONGLONG _rtMaxWaitTime,
                                       BSTR /*_bsHints*/) {
  VC_GUARD_BEGIN
  ClearOut(_ppPacket);
  ClearOut(_pnReadyPackets);
  const bool bWaited = _rtMaxWaitTime > 0 && !_WaitForPacket(_rtMaxWaitTime);
  CKMutexLock lock(m_mtxPackets);
  if (m_deqPackets.empty()) return bWaited || _rtMaxWaitTime > 0 ? VC_E_TIMEOUT : VC_E_EMPTY;
  if (_ppPacket) {
    *_ppPacket = m_deqPackets.front().Detach();
    m_deqPackets.pop_front();
  }
  if (_pnReadyPackets) *_pnReadyPackets = static_cast<LONG>(m_deqPackets.size());
  return S_OK;
  VC_GUARD_END
}

HRESULT CCoFFEncoder::EncodeClose() {
  VC_GUARD_BEGIN
  CKMutexLock lock(m_mtxEncode);
  std::vector<ComPtr<IVCPacket>> vecPackets;
  const int nErr = m_session.Drain(&vecPackets);
  _Queue(&vecPackets);
  m_session.Close();
  if (nErr < 0) {
    const HRESULT hr = AvErrorToHr(nErr);
    VC_LOG(eVCLL_Error, "%s encoder: drain failed: %s (AVERROR %d, hr=%08X)\n", DeviceLabel(m_eDevice),
           AvErrorText(nErr).c_str(), nErr, hr);
    return hr;
  }
  return S_OK;
  VC_GUARD_END
}

HRESULT CreateFFEncoder(IUnknown* pOuter, REFIID riid, void** ppv) {
  return CreateObject<CCoFFEncoder>(pOuter, riid, ppv);
}

HRESULT CreateFFEncoderNVEnc(IUnknown* pOuter, REFIID riid, void** ppv) {
  return CreateObject<CCoFFEncoderNVEnc>(pOuter, riid, ppv);
}

HRESULT CreateFFEncoderIntelQS(IUnknown* pOuter, REFIID riid, void** ppv) {
  return CreateObject<CCoFFEncoderIntelQS>(pOuter, riid, ppv);
}

HRESULT CreateFFEncoderAMD(IUnknown* pOuter, REFIID riid, void** ppv) {
  return CreateObject<CCoFFEncoderAMD>(pOuter, riid, ppv);
}

}  // namespace vc::ff
