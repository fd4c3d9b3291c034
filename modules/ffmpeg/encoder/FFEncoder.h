// The encoders of the general media module, as the encoder facade's codec
// table creates them: the general encoder "FFmpeg" (any libavcodec video or
// audio encoder by FFmpeg's name, "cpu_h264", and the GPU routes "gpu_h264",
// "gpu_h265", "amd=true" (VAAPI) and "load_plugin=hevc_hw" (QuickSync HEVC)),
// and the NVEnc, IntelQS and AMD classes, which encode on their device and
// refuse EncodeCodecSet quickly, with the missing device in the log, where
// this machine lacks it.
//
// EncodeCodecSet reads the configuration text into the object's properties
// and chooses the FFmpeg encoder; it publishes "codec_name" and
// "codec::codec" (the FFmpeg encoder chosen) and the option metadata of the
// settings for that codec (FFEncoderOptions.h); a value outside it is
// refused there, and the settings are left as they were before the call.
// The codec itself opens on the
// first frame, when size and formats are known. EncodeClose drains the codec:
// the delayed packets stay readable by EncodePacketsGet until taken, and the
// next frame opens the codec again with the same configuration.
//
// One thread may put frames while another takes packets. The encoding calls
// are serialised by an encode lock; the packet queue has its own lock, and
// the property lock is taken briefly inside either, never the other way.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/hwcontext.h>
}

#include <condition_variable>
#include <deque>
#include <string>

#include "Devices/KPropsImpl.h"
#include "FFEncodeSession.h"
#include "FFPointers.h"
#include "VCCodecsCore.h"
#include "VCCritSec.h"
#include "VCObject.h"

namespace vc::ff {

// The NVIDIA driver will not open one more encoder session now.
inline constexpr HRESULT kHrEncoderBusy = static_cast<HRESULT>(0x80040274u);

class CCoFFEncoder : public CKObjectRoot, public IVCEncoder, public IKPropsImpl<CCoFFEncoder> {
 public:
  // AV_HWDEVICE_TYPE_NONE: the general encoder; CUDA, QSV or VAAPI: a
  // device class.
  explicit CCoFFEncoder(AVHWDeviceType eDevice = AV_HWDEVICE_TYPE_NONE);

  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return QueryInterfaceTable<IVCEncoder, IVCProps>(this, riid, ppv);
  }
  CKCritSec& _PropsLock() { return m_csLock; }

  HRESULT STDMETHODCALLTYPE EncodeCodecSet(eVCMediaType _eCodecType, BSTR _bsConfigParams) override;
  HRESULT STDMETHODCALLTYPE EncodeFramePut(IVCFrame* _pFrame, K_AV_PROPS* _pAVPropsOut, IVCPacket** _ppPacket,
                                           BSTR _bsHints) override;
  HRESULT STDMETHODCALLTYPE EncodePacketsGet(IVCPacket** _ppPacket, LONG* _pnReadyPackets, LONGLONG _rtMaxWaitTime,
                                             BSTR _bsHints) override;
  HRESULT STDMETHODCALLTYPE EncodeClose() override;

 private:
  // The FFmpeg encoder and device the configuration names; logs why not.
  HRESULT _Choose(eVCMediaType eType) VC_REQUIRES(m_mtxEncode);
  // Opens the device of eDevice into m_spDevice; logs what is missing.
  HRESULT _OpenDevice(AVHWDeviceType eDevice, const char* szLabel) VC_REQUIRES(m_mtxEncode);
  // A trial session on the device, so that a driver out of sessions says so
  // now, at EncodeCodecSet, and not at the first frame.
  HRESULT _ProbeDevice() VC_REQUIRES(m_mtxEncode);
  HRESULT _OpenSession(const AVFrame& first, double dblRate) VC_REQUIRES(m_mtxEncode);
  CFFEncodeSettings _ReadSettings();
  void _Publish(eVCMediaType eType) VC_REQUIRES(m_mtxEncode);
  // Puts back the property tree of before a failed EncodeCodecSet.
  void _RestoreProps(const XMLParse::XMLNodePtr& spBefore);
  void _Queue(std::vector<ComPtr<IVCPacket>>* pPackets);
  // Waits up to rtWait (reference time) for a packet; true when one is
  // there. The standard condition variable needs the plain mutex, which the
  // analysis cannot follow.
  bool _WaitForPacket(LONGLONG rtWait) VC_NO_THREAD_SAFETY_ANALYSIS;
  std::string _PropText(const char16_t* szName);

  const AVHWDeviceType m_eDevice;
  CKCritSec m_csLock;  // the property tree
  CKMutex m_mtxEncode VC_ACQUIRED_BEFORE(m_csLock);  // the encoding calls
  eVCMediaType m_eType VC_GUARDED_BY(m_mtxEncode) = eVCMT_Empty;
  const AVCodec* m_pCodec VC_GUARDED_BY(m_mtxEncode) = nullptr;
  CFFEncodeDevice m_deviceUse VC_GUARDED_BY(m_mtxEncode);
  AvBufferPtr m_spDevice VC_GUARDED_BY(m_mtxEncode);
  CFFEncodeSession m_session VC_GUARDED_BY(m_mtxEncode);
  CFFEncodeSettings m_settings VC_GUARDED_BY(m_mtxEncode);

  CKMutex m_mtxPackets;  // the packet queue
  std::condition_variable m_cvPackets;
  std::deque<ComPtr<IVCPacket>> m_deqPackets VC_GUARDED_BY(m_mtxPackets);
};

class CCoFFEncoderNVEnc : public CCoFFEncoder {
 public:
  CCoFFEncoderNVEnc() : CCoFFEncoder(AV_HWDEVICE_TYPE_CUDA) {}
};

class CCoFFEncoderIntelQS : public CCoFFEncoder {
 public:
  CCoFFEncoderIntelQS() : CCoFFEncoder(AV_HWDEVICE_TYPE_QSV) {}
};

class CCoFFEncoderAMD : public CCoFFEncoder {
 public:
  CCoFFEncoderAMD() : CCoFFEncoder(AV_HWDEVICE_TYPE_VAAPI) {}
};

}  // namespace vc::ff
