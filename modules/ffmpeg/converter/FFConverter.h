// The frame converter VCConverter (IVCConverter, VCConverter.h) of the
// general media module. Pictures are converted by the frame object itself
// (size and pixel format through libswscale); audio-only frames go through
// a resampler kept per channel (CFFAudioConverter), so a stream converted
// to another rate has no seams between frames and the samples a rate change
// holds back come out with the next frame or the flush. Frames of other
// implementations are copied into this module's frames first.
//
// Any thread: the channel map has its own lock, each channel another, held
// while that channel converts.
#pragma once

#include <map>
#include <memory>
#include <mutex>

#include "FFConvert.h"
#include "VCCodecsCore.h"
#include "VCConverter.h"
#include "VCObject.h"
#include "VCStrings.h"

namespace vc::ff {

class CFFConverter : public CKObjectRoot, public IVCConverter {
 public:
  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) { return QueryInterfaceTable<IVCConverter>(this, riid, ppv); }

  HRESULT STDMETHODCALLTYPE ConverterFramePut(BSTR _bsChannel, IVCFrame* _pFrameIn, K_AV_PROPS* _pPropsOut,
                                              IVCFrame** _ppFrameOut, BSTR _bsOptions) override;
  HRESULT STDMETHODCALLTYPE ConverterFlush(BSTR _bsChannel, IVCFrame** _ppFrameOut) override;

 private:
  struct CChannel {
    std::mutex mtx;
    CFFAudioConverter audio;     // guarded by mtx
    int nBits = 0;               // the sample size of the last output
    LONGLONG rtNext = VC_TIME_UNSET;  // where the next output starts: held samples make it earlier than the input
  };
  std::shared_ptr<CChannel> _Channel(const String& strName, bool bCreate);

  std::mutex m_mtxChannels;
  std::map<String, std::shared_ptr<CChannel>> m_mapChannels;  // guarded by m_mtxChannels
};

// A copy of pFrame in this module's frame (video picture, audio samples,
// properties and time); a frame of this module is handed back as it is.
HRESULT MakeLocalFrame(IVCFrame* pFrame, ComPtr<IVCFrame>* pcpLocal);

}  // namespace vc::ff
