#include "FFDecoder.h"

#include <string>

#include "Devices/KPropsRead.h"
#include "FFClasses.h"
#include "FFCommon.h"
#include "FFDecoderCodecs.h"
#include "FFFrame.h"
#include "FFHwDecoder.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCLog.h"

#ifndef ERROR_DEVICE_NOT_AVAILABLE
#define ERROR_DEVICE_NOT_AVAILABLE 4319L
#endif

namespace vc::ff {

namespace {

// The device of a hardware class is missing (no GPU, no driver, no library).
constexpr HRESULT kHrNoDevice = HRESULT_FROM_WIN32(ERROR_DEVICE_NOT_AVAILABLE);
constexpr HRESULT kHrNotSupported = HRESULT_FROM_WIN32(ERROR_NOT_SUPPORTED);

// A description the decoder can start from: anything but the empty type.
bool Usable(const K_STREAM_INFO& info) { return info.eMediaType != eVCMT_Empty; }

// The audio buffer line named by the hints ("line=name"); empty by default.
String LineFromHints(BSTR bsHints) {
  const StringView hints = InString(bsHints);
  if (hints.empty()) return {};
  XMLParse::XMLNodePtr spNode = XMLParse::CoXMLNode::Create();
  if (!spNode || FAILED(spNode->Parse(hints))) return {};
  String strLine;
  spNode->GetAttributePath(u"line", &strLine);
  return strLine;
}

}  // namespace

CCoFFDecoder::CCoFFDecoder(AVHWDeviceType eDevice) : m_eDevice(eDevice) { InstallAvLogBridge(); }

const char* CCoFFDecoder::_DeviceLabel() const {
  switch (m_eDevice) {
    case AV_HWDEVICE_TYPE_CUDA:
      return "CUDA";
    case AV_HWDEVICE_TYPE_QSV:
      return "QuickSync";
    case AV_HWDEVICE_TYPE_NONE:
      return "FFmpeg";
    default:
      return av_hwdevice_get_type_name(m_eDevice);
  }
}

void CCoFFDecoder::_SetProp(const char16_t* szName, const std::string& strValue) {
  const String value = FromUtf8(strValue);
  CKAutoLock lock(m_csLock);
  if (XMLParse::XMLNodePtr spRoot = _PropsRootLocked()) spRoot->SetAttributePath(View(szName), value, false);
}

std::string CCoFFDecoder::_PropText(const char16_t* szName, const std::string& strDefault) {
  CKAutoLock lock(m_csLock);
  XMLParse::XMLNodePtr spRoot = _PropsRootLocked();
  if (!spRoot) return strDefault;
  return ToUtf8(ReadPropText(*spRoot, View(szName), FromUtf8(strDefault)));
}

HRESULT CCoFFDecoder::_OpenOnDevice(const CKStreamInfo& info, AVCodecID id, const std::string& strName,
                                    CFFSessionOptions* pOptions, const AVCodec** ppCodec) {
  if (info.eMediaType != eVCMT_Video) {
    VC_LOG(eVCLL_Retry, "%s decoder: decodes video only (stream media type %d)\n", _DeviceLabel(), info.eMediaType);
    return kHrNotSupported;
  }
  const CFFHwDecoderChoice choice = FindHwDecoder(id, m_eDevice);
  if (!choice.pCodec) {
    VC_LOG(eVCLL_Retry, "%s decoder: FFmpeg cannot decode codec '%s' on %s devices\n", _DeviceLabel(),
           strName.c_str(), HwDeviceTypeName(m_eDevice).c_str());
    return kHrNotSupported;
  }
  if (!m_spDevice) {
    AVBufferRef* pDevice = nullptr;
    const int nErr = OpenHwDevice(m_eDevice, _PropText(u"hw_device", ""), &pDevice);
    if (nErr < 0) {
      const std::string strReason = HwDeviceMissingReason(m_eDevice);
      VC_LOG(eVCLL_Retry, "no %s device: %s%s%s (AVERROR %d, hr=%08X)\n", _DeviceLabel(),
             strReason.empty() ? "" : strReason.c_str(), strReason.empty() ? "" : "; FFmpeg: ",
             AvErrorText(nErr).c_str(), nErr, kHrNoDevice);
      return kHrNoDevice;
    }
    m_spDevice.reset(pDevice);
  }
  pOptions->pHwDevice = m_spDevice.get();
  pOptions->eHwPixFmt = choice.eHwPixFmt;
  *ppCodec = choice.pCodec;
  return S_OK;
}

HRESULT CCoFFDecoder::_Open(const CKStreamInfo& info) {
  m_session.Close();
  m_pCodec = nullptr;
  const std::string strName = ToUtf8(View(info.bsCodecNameOrTag));
  if (info.eMediaType != eVCMT_Video && info.eMediaType != eVCMT_Audio) {
    VC_LOG(eVCLL_Retry, "%s decoder: not an audio or video stream (media type %d, codec '%s')\n", _DeviceLabel(),
           info.eMediaType, strName.c_str());
    return kHrNotSupported;
  }
  if (strName.empty()) {
    VC_LOG(eVCLL_Retry, "%s decoder: the stream description names no codec\n", _DeviceLabel());
    return kHrNotSupported;
  }
  const AVCodecID id = CodecIdFromNameOrTag(strName, info.eMediaType);
  if (id == AV_CODEC_ID_NONE) {
    VC_LOG(eVCLL_Retry, "%s decoder: codec '%s' is unknown to FFmpeg (hr=%08X)\n", _DeviceLabel(), strName.c_str(),
           kHrNotSupported);
    return kHrNotSupported;
  }

  CFFSessionOptions options;
  {
    CKAutoLock lock(m_csLock);
    if (XMLParse::XMLNodePtr spRoot = _PropsRootLocked())
      options.nThreads = static_cast<int>(ReadPropInt(*spRoot, u"threads", 0));
  }
  const AVCodec* pCodec = nullptr;
  if (_IsDevice()) {
    const HRESULT hr = _OpenOnDevice(info, id, strName, &options, &pCodec);
    if (FAILED(hr)) return hr;
  } else {
    pCodec = FindSoftwareDecoder(strName, id);
    if (!pCodec) {
      VC_LOG(eVCLL_Retry, "FFmpeg decoder: no decoder for codec '%s' (%s) in this FFmpeg (hr=%08X)\n",
             strName.c_str(), CodecName(id).c_str(), kHrNotSupported);
      return kHrNotSupported;
    }
  }
  const int nErr = m_session.Open(info, pCodec, options);
  if (nErr < 0) {
    const HRESULT hr = AvErrorToHr(nErr);
    VC_LOG(eVCLL_Retry, "%s decoder: opening '%s' for codec '%s' failed: %s (AVERROR %d, hr=%08X)\n",
           _DeviceLabel(), pCodec->name, strName.c_str(), AvErrorText(nErr).c_str(), nErr, hr);
    return hr;
  }
  m_pCodec = pCodec;
  m_bFramePublished = false;
  _PublishInfo(pCodec);
  VC_LOG(eVCLL_Progress, "%s decoder: '%s' opened for codec '%s'\n", _DeviceLabel(), pCodec->name, strName.c_str());
  return S_OK;
}

void CCoFFDecoder::_PublishInfo(const AVCodec* pCodec) {
  const AVCodecContext* pContext = m_session.Context();
  if (!pContext) return;
  std::string strDevice = _IsDevice() ? HwDeviceTypeName(m_eDevice) : "cpu";
  std::string strDecoder = pCodec->name;
  if (_IsDevice()) {
    const std::string strSelector = _PropText(u"hw_device", "");
    strDecoder = strSelector.empty() ? strDevice : strDevice + ":" + strSelector;
  }
  int nProfile = pContext->profile;
  int nLevel = pContext->level;
  if (nProfile == FF_PROFILE_UNKNOWN || nLevel == FF_LEVEL_UNKNOWN) {
    // Some decoders learn these only from the first packet; the codec data
    // tells them now, when the facade reads them.
    int nProbedProfile = FF_PROFILE_UNKNOWN, nProbedLevel = FF_LEVEL_UNKNOWN;
    ProbeProfileLevel(pContext->codec_id, pContext->extradata, pContext->extradata_size, &nProbedProfile,
                      &nProbedLevel);
    if (nProfile == FF_PROFILE_UNKNOWN) nProfile = nProbedProfile;
    if (nLevel == FF_LEVEL_UNKNOWN) nLevel = nProbedLevel;
  }
  std::string strProfile;
  if (nProfile != FF_PROFILE_UNKNOWN) {
    const char* szProfile = avcodec_profile_name(pContext->codec_id, nProfile);
    strProfile = szProfile ? szProfile : std::to_string(nProfile);
  }
  std::string strSize;
  if (pContext->codec_type == AVMEDIA_TYPE_VIDEO) {
    const int nWidth = pContext->width > 0 ? pContext->width : m_streamInfo.nWidth;
    const int nHeight = pContext->height > 0 ? pContext->height : m_streamInfo.nHeight;
    if (nWidth > 0 && nHeight > 0) strSize = std::to_string(nWidth) + "x" + std::to_string(nHeight);
  }
  _SetProp(u"codec_name", CodecName(pContext->codec_id));
  _SetProp(u"decoder", strDecoder);
  _SetProp(u"decoder.name", pCodec->name);
  _SetProp(u"decoder.id", std::to_string(static_cast<int>(pContext->codec_id)));
  _SetProp(u"decoder.device", strDevice);
  _SetProp(u"decoder.profile", strProfile);
  _SetProp(u"decoder.level", nLevel != FF_LEVEL_UNKNOWN ? std::to_string(nLevel) : std::string());
  _SetProp(u"decoder.tag", ToUtf8(View(m_streamInfo.bsCodecNameOrTag)));
  _SetProp(u"decoder.size", strSize);
}

HRESULT CCoFFDecoder::DecodeIsSupported(K_STREAM_INFO* _pStreamInfo, IVCPacket* _pVCPacket, BOOL* _pbSupported) {
  VC_GUARD_BEGIN
  ClearOut(_pbSupported);
  CKStreamInfo info;
  bool bHave = false;
  if (_pVCPacket) {
    // The packet's own description wins: it is what the packets really are.
    CKStreamInfo packetInfo;
    if (SUCCEEDED(VCPacketStreamInfo(_pVCPacket, &packetInfo)) && Usable(packetInfo)) {
      info = packetInfo;
      bHave = true;
    }
  }
  if (!bHave && _pStreamInfo && Usable(*_pStreamInfo)) {
    info = CKStreamInfo(*_pStreamInfo);
    bHave = true;
  }
  if (!bHave) {
    VC_LOG(eVCLL_Retry, "%s decoder: no usable stream description (hr=%08X)\n", _DeviceLabel(), E_INVALIDARG);
    return E_INVALIDARG;
  }
  CKMutexLock lock(m_mtxDecode);
  m_streamInfo = info;
  const HRESULT hr = _Open(info);
  if (FAILED(hr)) return hr;
  if (_pbSupported) *_pbSupported = TRUE;
  return S_OK;
  VC_GUARD_END
}

HRESULT CCoFFDecoder::_EnsureOpen(IVCPacket* pPacket) {
  if (m_session.IsOpen()) return S_OK;
  if (pPacket) {
    CKStreamInfo packetInfo;
    if (SUCCEEDED(VCPacketStreamInfo(pPacket, &packetInfo)) && Usable(packetInfo)) m_streamInfo = packetInfo;
  }
  if (!Usable(m_streamInfo)) {
    VC_LOG(eVCLL_Error, "%s decoder: nothing to decode with: no stream description (hr=%08X)\n", _DeviceLabel(),
           VC_E_EMPTY);
    return VC_E_EMPTY;
  }
  return _Open(m_streamInfo);
}

HRESULT CCoFFDecoder::_OutputForm(const K_AV_PROPS* pWanted, CFFOutputForm* pForm) const {
  *pForm = CFFOutputForm{};
  if (!pWanted) return S_OK;
  const K_VID_PROPS& vid = pWanted->vidProps;
  if (vid.fccType != eVCCC_Default) {
    pForm->video.ePixFmt = PixelFormatFromFourcc(vid.fccType);
    if (pForm->video.ePixFmt == AV_PIX_FMT_NONE) {
      VC_LOG(eVCLL_Error, "%s decoder: wanted pixel format %08X is not one this module converts to\n",
             _DeviceLabel(), static_cast<unsigned>(vid.fccType));
      return E_INVALIDARG;
    }
  }
  if (vid.nWidth > 0 && vid.nHeight > 0) {
    pForm->video.nWidth = vid.nWidth;
    pForm->video.nHeight = vid.nHeight;
  }
  const K_AUD_PROPS& aud = pWanted->audProps;
  pForm->audio.eSampleFmt = aud.nBitsPerSample == 32 ? AV_SAMPLE_FMT_S32 : AV_SAMPLE_FMT_S16;
  pForm->audio.nSampleRate = aud.nSamplesPerSec > 0 ? aud.nSamplesPerSec : 0;
  pForm->audio.nChannels = aud.nChannels > 0 ? aud.nChannels : 0;
  return S_OK;
}

HRESULT CCoFFDecoder::_Feed(IVCPacket* pPacket) {
  const int nErr = m_session.Feed(pPacket);
  if (nErr >= 0) return S_OK;
  const HRESULT hr = AvErrorToHr(nErr);
  VC_LOG(eVCLL_Retry, "%s decoder '%s': packet refused: %s (AVERROR %d, hr=%08X)\n", _DeviceLabel(),
         m_pCodec ? m_pCodec->name : "", AvErrorText(nErr).c_str(), nErr, hr);
  return hr;
}

HRESULT CCoFFDecoder::DecodePacket(IVCPacket* _pVCPacket, LONGLONG /*_rtSegmentStart*/, K_AV_PROPS* _pAVPropsOut,
                                   IVCFrame** _ppFrame, BSTR /*_bsHints*/) {
  VC_GUARD_BEGIN
  if (!_ppFrame) return E_POINTER;
  *_ppFrame = nullptr;
  CFFOutputForm form;
  HRESULT hr = _OutputForm(_pAVPropsOut, &form);
  if (FAILED(hr)) return hr;
  CKMutexLock lock(m_mtxDecode);
  if (!m_session.IsOpen()) {
    if (!_pVCPacket) return VC_E_END_OF_MEDIA;  // nothing was decoding: nothing to drain
    hr = _EnsureOpen(_pVCPacket);
    if (FAILED(hr)) return hr;
  }
  hr = _Feed(_pVCPacket);
  if (FAILED(hr)) return hr;
  DecodedFramePtr spFrame(av_frame_alloc());
  if (!spFrame) return E_OUTOFMEMORY;
  K_TIME time{};
  const int nErr = m_session.TakeFrame(form, spFrame.get(), &time);
  if (nErr == AVERROR(EAGAIN)) return S_FALSE;
  if (nErr == AVERROR_EOF) return VC_E_END_OF_MEDIA;
  if (nErr < 0) {
    hr = AvErrorToHr(nErr);
    VC_LOG(eVCLL_Retry, "%s decoder '%s': decoded frame lost: %s (AVERROR %d, hr=%08X)\n", _DeviceLabel(),
           m_pCodec ? m_pCodec->name : "", AvErrorText(nErr).c_str(), nErr, hr);
    return hr;
  }
  if (!m_bFramePublished && m_pCodec) {
    // Profile, level and the real picture size are known for sure now.
    m_bFramePublished = true;
    _PublishInfo(m_pCodec);
    if (m_session.FellBackToSoftware())
      VC_LOG(eVCLL_Retry, "%s decoder: the device cannot decode this stream; decoding in software\n",
             _DeviceLabel());
  }
  hr = FrameFromAVFrame(spFrame.get(), time, m_session.FrameRate(), _ppFrame);
  if (FAILED(hr)) VC_LOG(eVCLL_Error, "%s decoder: FrameFromAVFrame FAILED hr=%08X\n", _DeviceLabel(), hr);
  return hr;
  VC_GUARD_END
}

HRESULT CCoFFDecoder::DecodeAudio(IVCPacket* _pVCPacket, LONGLONG /*_rtSegmentStart*/, IVCAudioBuffer* _pAudioBuffer,
                                  LONG* _plSamplesDecode, BSTR _bsHints) {
  VC_GUARD_BEGIN
  ClearOut(_plSamplesDecode);
  if (!_pAudioBuffer) return E_INVALIDARG;
  const String strLine = LineFromHints(_bsHints);
  CBstr bsLine{StringView(strLine)};
  CKMutexLock lock(m_mtxDecode);
  if (!m_session.IsOpen()) {
    if (!_pVCPacket) return VC_E_END_OF_MEDIA;
    const HRESULT hr = _EnsureOpen(_pVCPacket);
    if (FAILED(hr)) return hr;
  }
  if (m_session.Context()->codec_type != AVMEDIA_TYPE_AUDIO) {
    VC_LOG(eVCLL_Error, "%s decoder: DecodeAudio on a stream that is not audio\n", _DeviceLabel());
    return E_INVALIDARG;
  }
  const HRESULT hrFeed = _Feed(_pVCPacket);
  if (FAILED(hrFeed)) return hrFeed;
  // The line's own sample width when it has one, else 16-bit.
  CFFOutputForm form;
  K_AUD_PROPS lineProps{};
  LONG lLineSamples = 0;
  if (_pAudioBuffer->BufferPropsGet(bsLine, &lineProps, &lLineSamples) == S_OK && lineProps.nBitsPerSample == 32)
    form.audio.eSampleFmt = AV_SAMPLE_FMT_S32;
  return _FillBuffer(_pAudioBuffer, bsLine, form, _plSamplesDecode);
  VC_GUARD_END
}

HRESULT CCoFFDecoder::_FillBuffer(IVCAudioBuffer* pBuffer, BSTR bsLine, const CFFOutputForm& form,
                                  LONG* plSamples) {
  LONG lTotal = 0;
  for (;;) {
    DecodedFramePtr spFrame(av_frame_alloc());
    if (!spFrame) return E_OUTOFMEMORY;
    K_TIME time{};
    const int nErr = m_session.TakeFrame(form, spFrame.get(), &time);
    if (nErr == AVERROR(EAGAIN)) break;
    if (nErr == AVERROR_EOF) {
      if (lTotal == 0) return VC_E_END_OF_MEDIA;
      break;
    }
    if (nErr < 0) {
      const HRESULT hr = AvErrorToHr(nErr);
      VC_LOG(eVCLL_Retry, "%s decoder: decoded samples lost: %s (hr=%08X)\n", _DeviceLabel(),
             AvErrorText(nErr).c_str(), hr);
      return hr;
    }
    K_AUD_PROPS props{};
    props.nChannels = spFrame->ch_layout.nb_channels;
    props.nSamplesPerSec = spFrame->sample_rate;
    props.nBitsPerSample = av_get_bytes_per_sample(static_cast<AVSampleFormat>(spFrame->format)) * 8;
    // Interleaved samples in one plane: no plane size to give.
    const HRESULT hr = pBuffer->BufferPutPtrEx(bsLine, time.rtStartTime, &props, spFrame->nb_samples,
                                               reinterpret_cast<LONGLONG>(spFrame->data[0]), 0, nullptr);
    if (FAILED(hr)) {
      VC_LOG(eVCLL_Error, "%s decoder: BufferPutPtrEx(%ws) FAILED hr=%08X\n", _DeviceLabel(), bsLine, hr);
      return hr;
    }
    lTotal += spFrame->nb_samples;
    if (plSamples) *plSamples = lTotal;
  }
  return lTotal > 0 ? S_OK : S_FALSE;
}

HRESULT CCoFFDecoder::DecodeClose() {
  VC_GUARD_BEGIN
  CKMutexLock lock(m_mtxDecode);
  m_session.Close();
  m_spDevice.reset();
  m_pCodec = nullptr;
  return S_OK;
  VC_GUARD_END
}

HRESULT CreateFFDecoder(IUnknown* pOuter, REFIID riid, void** ppv) {
  return CreateObject<CCoFFDecoder>(pOuter, riid, ppv);
}

HRESULT CreateFFDecoderNVidia(IUnknown* pOuter, REFIID riid, void** ppv) {
  return CreateObject<CCoFFDecoderNVidia>(pOuter, riid, ppv);
}

HRESULT CreateFFDecoderQuickSync(IUnknown* pOuter, REFIID riid, void** ppv) {
  return CreateObject<CCoFFDecoderQuickSync>(pOuter, riid, ppv);
}

}  // namespace vc::ff
