// The frame object of the general media module (IVCFrame over FFmpeg frames).
// Decoders wrap what FFmpeg decodes without copying; hosts and the other
// classes read and change it through IVCFrame from any thread.
//
// One small lock guards the content. Pointers handed out (video and audio
// bytes, plane pointers, data blocks, per-channel copies) stay the frame's:
// they are valid while the caller holds a reference and until the part they
// point into is replaced (a new size or format, a load, a new data block
// under the same name). The planes of a decoded picture that VCVideoGetBytes
// moved into the one-buffer layout are kept until the frame goes, so
// pointers taken before that move (FrameAVFrame, VCVideoGetBytesEx) stay
// good. Memory shared with a reference clone or a decoder is shared for
// writing too: take a copying clone (eKFC_Video) before changing pixels that
// others may read.
//
// Behaviour the interface leaves open, as this class settles it:
// - VCAVPropsSet allocates: a size and pixel format other than the current
//   picture's give a new black picture (width or height 0: no picture); a
//   new sample size or channel count reshapes the audio (the remap list
//   routes channels), a new rate only relabels it; all-zero audio
//   properties drop the audio.
// - Clones take time and properties always, then what the mode names:
//   pictures by reference or by copy, audio and data blocks with strings
//   copied, objects by reference. A pixel format asks for a converted
//   picture; eKFC_BottomTop_ARGB turns the rows upside down (any format).
//   The ForceGPU modes answer E_NOTIMPL; ForceCPU changes nothing.
// - VCCut(0 picture, 1 first field, 2 second field, rectangle widened to the
//   chroma grid) and VCResize(same field numbers) give a new frame with the
//   time, properties, audio and attachments (cut: no audio, no attachments).
// - VCConvert converts the picture (format, size, eScaleType: stretch,
//   letter-box, crop or no scaling) and the audio (rate, channels, size)
//   at once; nothing is held back, so the rest count is always 0.
// - VCSave/VCLoad: see FFFrameSerial.cpp for the byte layout; attached
//   objects travel only when they are frames.
// - Renderer calls (VCPrint, VCOverlay, VCOverlayRect, VCTransition,
//   VCVideoGetHbitmap) and mixing from an audio-buffer line answer E_NOTIMPL.
//
// The method bodies are spread over FFFrame*.cpp by subject: FFFrame.cpp
// (creation, properties, time, video access), FFFrameAudio.cpp,
// FFFrameAttach.cpp (data, objects, strings), FFFrameVideo.cpp (cut, clone,
// conversion, renderer calls), FFFramePicture.cpp (picture files),
// FFFrameSerial.cpp (save and load).
#pragma once

#include <mutex>
#include <vector>

#include "FFFrameContent.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCCodecsCore.h"
#include "VCCritSec.h"
#include "VCGuard.h"
#include "VCGuid.h"
#include "VCObject.h"

namespace vc::ff {

// Answered only by this module's frames, with the object itself: how the
// module finds its own class behind an IVCFrame (FrameAVFrame, clones).
inline constexpr IID IID_FFFrameSelf = MakeGuid("96EB1F7F-4CC0-4830-9CC3-F064196B2626");

// A size that does not fit the interface's 32-bit fields (ERROR_ARITHMETIC_OVERFLOW).
inline constexpr HRESULT kHrTooLarge = HRESULT_FROM_WIN32(534);
// Nothing there under that name or index (ERROR_EMPTY).
inline constexpr HRESULT kHrEmpty = VC_E_EMPTY;

class CFFFrame : public CKObjectRoot, public IVCFrame {
 public:
  HRESULT _InternalQueryInterface(REFIID riid, void** ppv);

  // This module's frame behind pUnk, or null for another implementation.
  // Borrowed: valid while the caller holds pUnk.
  static CFFFrame* FromInterface(IUnknown* pUnk);
  // A new, empty frame: *ppFrame is its interface (one reference), the
  // return value the object behind it.
  static CFFFrame* Create(ComPtr<IVCFrame>* pcpFrame);

  // Replaces the whole content (no lock must be held by the caller).
  void SetContent(FrameContent&& content);
  // The FFmpeg frames inside; see FrameAVFrame.
  const AVFrame* VideoAVFrame();
  const AVFrame* AudioAVFrame();
  // A new reference to the audio (null when there is none). The samples are
  // shared, so in-place changes made later copy them first.
  AvFramePtr AudioSnapshot();

  // IVCFrame, in slot order.
  HRESULT STDMETHODCALLTYPE VCGetProcessID(DWORD* _pdwProcessID) override;
  HRESULT STDMETHODCALLTYPE VCAVPropsGet(K_AV_PROPS* _pProps, LONG* _plAudioSamples) override;
  HRESULT STDMETHODCALLTYPE VCAVPropsSet(K_AV_PROPS* _pProps, BSTR _bsChannelsRemap) override;
  HRESULT STDMETHODCALLTYPE VCTimeGet(K_TIME* _pTime) override;
  HRESULT STDMETHODCALLTYPE VCTimeSet(K_TIME* _pTime) override;
  HRESULT STDMETHODCALLTYPE VCFlagCheck(eKFrameFlags _eFlagCheck, LONG* _pnRes) override;
  HRESULT STDMETHODCALLTYPE VCAllGet(VC_FRAME_INFO* _pFrameInfo) override;
  HRESULT STDMETHODCALLTYPE VCAudioGetBytes(LONG* _pcbSize, LONGLONG* _ppbAudio) override;
  HRESULT STDMETHODCALLTYPE VCAudioChannelGetBytes(LONG _nChannel, BOOL _bCreateNewChannels, LONG* _pcbSize,
                                                   LONGLONG* _ppbAudio) override;
  HRESULT STDMETHODCALLTYPE VCAudioChannelsUpdate() override;
  HRESULT STDMETHODCALLTYPE VCAudioAlloc(K_AUD_PROPS* _pAudProps, LONG _lSamples) override;
  HRESULT STDMETHODCALLTYPE VCAudioSet(K_AUD_PROPS* _pAudProps, LONG _cbSize, LONGLONG _pbAudio) override;
  HRESULT STDMETHODCALLTYPE VCAudioMixDirect(LONG* _plAudioOffsetSrc, IVCFrame* _pFrameMixFrom,
                                             LONG* _plAudioOffsetMix, LONG _lSamplesMixMax, double _dblGainStartDb,
                                             double _dblGainEndDb, BOOL _bSymmetricGain) override;
  HRESULT STDMETHODCALLTYPE VCAudioMix(IVCFrame* _pFrameMixFrom, double _dblGainStartDb, double _dblGainEndDb,
                                       BOOL _bSymmetricGain, BSTR _bsAudioBufferID) override;
  HRESULT STDMETHODCALLTYPE VCAudioCopyTo(BSTR _bsChannelsList, IVCFrame* _pFrameTo) override;
  HRESULT STDMETHODCALLTYPE VCAudioSaveToFile(BSTR _bsFileName, BOOL _bAppend) override;
  HRESULT STDMETHODCALLTYPE VCAudioLoadFromFile(BSTR _bsFileName, LONGLONG _llSamplesOffset,
                                                LONG _lSamplesLoad) override;
  HRESULT STDMETHODCALLTYPE VCAudioGain(BSTR _bsChannelsList, double _dblGainStartDb, double _dblGainEndDb) override;
  HRESULT STDMETHODCALLTYPE VCVideoGetBytes(LONG* _pcbSize, LONGLONG* _ppbVideo) override;
  HRESULT STDMETHODCALLTYPE VCVideoGetHbitmap(LONGLONG* _pllHBitmap) override;
  HRESULT STDMETHODCALLTYPE VCVideoSaveToFile(BSTR _bsFileName) override;
  HRESULT STDMETHODCALLTYPE VCCut(LONG _nField, RECT* _pRect, IVCFrame** _ppFrameRes) override;
  HRESULT STDMETHODCALLTYPE VCClone(IVCFrame** _ppCloneFrame, eKFrameClone _eCloneType, eVCCC _fccPixelFormat) override;
  HRESULT STDMETHODCALLTYPE VCOverlay(IUnknown* _pFrameOverlay, IUnknown* _pFrameMask, LONG _nPosX, LONG _nPosY,
                                      double _dblAlpha, BSTR _bsPropsList, BSTR _bsAudioBufferID) override;
  HRESULT STDMETHODCALLTYPE VCConvert(K_AV_PROPS* _pPropsDest, IVCFrame** _ppFrameRes, LONG* _pnFrameRest,
                                      BSTR _bsPropsList, BSTR _bsConverterID) override;
  HRESULT STDMETHODCALLTYPE VCResize(eVCCC _fccOutput, LONG _nWidth, LONG _nHeight, LONG _nResizeField,
                                     IVCFrame** _ppFrameRes, BSTR _bsPropsList, BSTR _bsConverterID) override;
  HRESULT STDMETHODCALLTYPE VCTransition(IUnknown* _pFrameFrom, IVCFrame** _ppFrameRes, double _dblPos,
                                         BSTR _bsTransition, BSTR _bsPropsList, BSTR _bsConverterID) override;
  HRESULT STDMETHODCALLTYPE VCDataGetByIndex(LONG _nIndex, BSTR* _pbsDataID, LONG* _pcbANCData,
                                             LONGLONG* _ppbANCData) override;
  HRESULT STDMETHODCALLTYPE VCDataGet(BSTR _bsDataID, LONG* _pcbANCData, LONGLONG* _ppbANCData) override;
  HRESULT STDMETHODCALLTYPE VCDataSet(BSTR _bsDataID, LONG _cbANCData, LONGLONG _pbANCData) override;
  HRESULT STDMETHODCALLTYPE VCObjGetByIndex(LONG _nIndex, BSTR* _pbsObjID, IUnknown** _ppObj,
                                            BOOL _bMakeLocal) override;
  HRESULT STDMETHODCALLTYPE VCObjGet(BSTR _bsObjID, IUnknown** _ppObj, BOOL _bMakeLocal) override;
  HRESULT STDMETHODCALLTYPE VCObjSet(BSTR _bsObjID, IUnknown* _pObj) override;
  HRESULT STDMETHODCALLTYPE VCStrGetByIndex(LONG _nIndex, BSTR* _pbsStrID, BSTR* _pbsString) override;
  HRESULT STDMETHODCALLTYPE VCStrGet(BSTR _bsStrID, BSTR* _pbsString) override;
  HRESULT STDMETHODCALLTYPE VCStrSet(BSTR _bsStrID, BSTR _bsString) override;
  HRESULT STDMETHODCALLTYPE VCSave(DWORD* _pcbData, BYTE** _ppData, eKFrameClone _eSaveType) override;
  HRESULT STDMETHODCALLTYPE VCLoad(DWORD _cbData, BYTE* _pbData, eKFrameClone _eLoadType) override;
  HRESULT STDMETHODCALLTYPE VCWaitAsync() override;
  HRESULT STDMETHODCALLTYPE VCPrint(BSTR _bsText, double _dblTextSize, VC_RECT* _pRect, eVCTextFlags _eVCTextFlags,
                                    BSTR _bsExtraParam) override;
  HRESULT STDMETHODCALLTYPE VCOverlayRect(IVCFrame* _pFrameOverlay, IVCFrame* _pFrameMask, VC_RECT* _pRect,
                                          eVCOverlayFlags _eVCOverlayFlags, double _dblAlpha, BSTR _bsPropsList,
                                          BSTR _bsAudioBufferID) override;
  HRESULT STDMETHODCALLTYPE VCVideoGetBytesEx(VC_VID_PTR* _pVideoPtr) override;
  HRESULT STDMETHODCALLTYPE VCSaveToStream(IStream** _ppStream, eKFrameClone _eSaveType) override;
  HRESULT STDMETHODCALLTYPE VCAddToStream(IStream* _pStream, eKFrameClone _eSaveType) override;
  HRESULT STDMETHODCALLTYPE VCLoadFromStream(IStream* _pStream, eKFrameClone _eLoadType) override;

 private:
  using Lock = CKMutexLock;

  // Brings the video into the one-buffer public layout (copying once when
  // the decoder's planes are apart); keeps the old memory until the frame
  // goes. Caller holds m_csLock. False when out of memory.
  bool _MakePublicLayoutLocked() VC_REQUIRES(m_csLock);
  // A copy of the parts of the content that eCloneType names, made under
  // the lock (video by reference or by copy, audio and data copied, objects
  // by reference).
  HRESULT _CopyContent(int nCloneType, FrameContent* pOut);
  // After any change of the audio: refills the per-channel copy (in place
  // when the shape is the same, so its pointers stay good). Caller holds
  // m_csLock.
  void _RefreshChannelsLocked() VC_REQUIRES(m_csLock);
  // Makes the audio samples this frame's alone before writing into them.
  bool _AudioWritableLocked() VC_REQUIRES(m_csLock);

  CKMutex m_csLock;
  FrameContent m_content VC_GUARDED_BY(m_csLock);
  std::vector<AvFramePtr> m_vecRetired VC_GUARDED_BY(m_csLock);  // replaced video still pointed at
  // Per-channel copy of the audio (VCAudioChannelGetBytes), written back by
  // VCAudioChannelsUpdate. Dropped when the audio changes shape.
  std::vector<std::vector<uint8_t>> m_vecChannels VC_GUARDED_BY(m_csLock);

};

// Keeps props.vidProps / props.audProps in step with the FFmpeg frames of c.
void SyncVideoProps(FrameContent* pContent);
void SyncAudioProps(FrameContent* pContent);
// Display aspect ratio of a picture with sample aspect sar (0/x: square),
// reduced to fit the record's 16-bit fields.
void DisplayAspect(int nWidth, int nHeight, AVRational sar, SHORT* pnX, SHORT* pnY);

}  // namespace vc::ff
