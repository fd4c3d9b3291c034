// The decoders of the general media module, as the decoder facade's
// candidate table creates them: the software decoder "FFmpeg A/V" for audio
// and video, and the NVIDIA (CUDA) and Intel QuickSync classes, which decode
// video on their device and refuse, quickly and with the reason in the log,
// where the device or its driver is missing.
//
// DecodeIsSupported opens an FFmpeg decoder for the stream (from the
// packet's description when it has a usable one, else from the argument)
// and publishes what it chose: "codec_name", "decoder", "decoder.name",
// "decoder.id", "decoder.device", "decoder.profile", "decoder.level",
// "decoder.tag", "decoder.size". DecodePacket and DecodeAudio then feed it;
// DecodeClose frees it, and the object opens again for the next stream.
// Options read when a decoder opens: "threads" (decoding threads, 0 or
// absent: as many as FFmpeg finds useful) and, for the device classes,
// "hw_device" (which device: a CUDA index, a render node; default the
// first).
//
// Any thread may call. The decoding calls are serialised by a decode lock,
// held while the caller's audio buffer is filled; the property lock is taken
// inside it, briefly, never the other way round.
#pragma once

extern "C" {
#include <libavutil/buffer.h>
#include <libavutil/hwcontext.h>
}

#include <memory>
#include <mutex>
#include <string>

#include "Devices/KPropsImpl.h"
#include "FFDecoderSession.h"
#include "FFPointers.h"
#include "VCCodecs/VCPacket.h"
#include "VCCodecsCore.h"
#include "VCCritSec.h"
#include "VCGuard.h"
#include "VCObject.h"

namespace vc::ff {

class CCoFFDecoder : public CKObjectRoot, public IVCDecoder, public IKPropsImpl<CCoFFDecoder> {
 public:
  // AV_HWDEVICE_TYPE_NONE: the software decoder; CUDA or QSV: a device class.
  explicit CCoFFDecoder(AVHWDeviceType eDevice = AV_HWDEVICE_TYPE_NONE);

  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return QueryInterfaceTable<IVCDecoder, IVCProps>(this, riid, ppv);
  }
  CKCritSec& _PropsLock() { return m_csLock; }

  HRESULT STDMETHODCALLTYPE DecodeIsSupported(K_STREAM_INFO* _pStreamInfo, IVCPacket* _pVCPacket,
                                              BOOL* _pbSupported) override;
  HRESULT STDMETHODCALLTYPE DecodePacket(IVCPacket* _pVCPacket, LONGLONG _rtSegmentStart, K_AV_PROPS* _pAVPropsOut,
                                         IVCFrame** _ppFrame, BSTR _bsHints) override;
  HRESULT STDMETHODCALLTYPE DecodeAudio(IVCPacket* _pVCPacket, LONGLONG _rtSegmentStart,
                                        IVCAudioBuffer* _pAudioBuffer, LONG* _plSamplesDecode,
                                        BSTR _bsHints) override;
  HRESULT STDMETHODCALLTYPE DecodeClose() override;

 private:
  bool _IsDevice() const { return m_eDevice != AV_HWDEVICE_TYPE_NONE; }
  // The name the log and the refusals use for this class's device.
  const char* _DeviceLabel() const;
  // Opens a decoder for info; logs why not at level 3. Under m_mtxDecode.
  HRESULT _Open(const CKStreamInfo& info) VC_REQUIRES(m_mtxDecode);
  HRESULT _OpenOnDevice(const CKStreamInfo& info, AVCodecID id, const std::string& strName,
                        CFFSessionOptions* pOptions, const AVCodec** ppCodec) VC_REQUIRES(m_mtxDecode);
  // Opens from the packet's own description (else the last one) when no
  // decoder is open. Under m_mtxDecode.
  HRESULT _EnsureOpen(IVCPacket* pPacket) VC_REQUIRES(m_mtxDecode);
  // Hands a packet (null: the drain) to the session; a refusal is logged.
  // Under m_mtxDecode.
  HRESULT _Feed(IVCPacket* pPacket) VC_REQUIRES(m_mtxDecode);
  // The output form a caller's wanted properties name; E_INVALIDARG for a
  // pixel format this module does not know.
  HRESULT _OutputForm(const K_AV_PROPS* pWanted, CFFOutputForm* pForm) const;
  // Appends the decoded sample blocks that are ready to the buffer's line;
  // S_FALSE when none was ready, end of media after the drain. Under
  // m_mtxDecode.
  HRESULT _FillBuffer(IVCAudioBuffer* pBuffer, BSTR bsLine, const CFFOutputForm& form, LONG* plSamples)
      VC_REQUIRES(m_mtxDecode);
  // Publishes the chosen decoder's information; after the first frame again
  // with what decoding has taught FFmpeg (profile, level, size).
  void _PublishInfo(const AVCodec* pCodec) VC_REQUIRES(m_mtxDecode);
  void _SetProp(const char16_t* szName, const std::string& strValue);
  // The text of a property (under the property lock).
  std::string _PropText(const char16_t* szName, const std::string& strDefault);

  const AVHWDeviceType m_eDevice;
  CKCritSec m_csLock;      // the property tree
  CKMutex m_mtxDecode VC_ACQUIRED_BEFORE(m_csLock);  // the decoding calls
  CFFDecodeSession m_session VC_GUARDED_BY(m_mtxDecode);
  CKStreamInfo m_streamInfo VC_GUARDED_BY(m_mtxDecode);  // last opened stream
  const AVCodec* m_pCodec VC_GUARDED_BY(m_mtxDecode) = nullptr;
  AvBufferPtr m_spDevice VC_GUARDED_BY(m_mtxDecode);  // device classes
  bool m_bFramePublished VC_GUARDED_BY(m_mtxDecode) = false;
};

// The device classes: the same object on another device.
class CCoFFDecoderNVidia : public CCoFFDecoder {
 public:
  CCoFFDecoderNVidia() : CCoFFDecoder(AV_HWDEVICE_TYPE_CUDA) {}
};

class CCoFFDecoderQuickSync : public CCoFFDecoder {
 public:
  CCoFFDecoderQuickSync() : CCoFFDecoder(AV_HWDEVICE_TYPE_QSV) {}
};

}  // namespace vc::ff
