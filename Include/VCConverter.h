// The frame converter (class VCConverter): frames converted to wanted
// properties, per named channel. A channel keeps what a conversion holds
// between frames (a resampler's samples), so a stream that goes through one
// channel is converted without seams; channels are independent of each
// other. The encoder facade uses the channel "vcencoder".
//
// Not part of the type library; its identifier below is fixed here and must
// never change. Any thread; calls on one channel are serialised by the
// object, calls on different channels may run at once.
#pragma once

#include "VCCodecsCore.h"
#include "VCGuid.h"

// In the target properties a field left 0 keeps the input's value
// (fccType eVCCC_Default, size, interlacing, sample rate, channels, sample
// size), and a frame rate of 0 keeps the rate. eVideoFormat eKVF_Disabled
// leaves the video as it is; nChannels -1 leaves the audio as it is.
struct IVCConverter : public IUnknown {
  // Converts _pFrameIn (of any implementation) on channel _bsChannel. S_OK
  // with a new frame in *_ppFrameOut; S_FALSE with none when the channel
  // absorbed the frame (its samples are held for the next frame or the
  // flush). _bsOptions: a property string, for converter options.
  virtual HRESULT STDMETHODCALLTYPE ConverterFramePut(BSTR _bsChannel, IVCFrame* _pFrameIn, K_AV_PROPS* _pPropsOut,
                                                      IVCFrame** _ppFrameOut, BSTR _bsOptions) = 0;
  // Ends the channel: what it still holds comes out as one frame (S_OK),
  // or nothing (S_FALSE; _ppFrameOut may be null to drop it). The channel
  // then starts afresh.
  virtual HRESULT STDMETHODCALLTYPE ConverterFlush(BSTR _bsChannel, IVCFrame** _ppFrameOut) = 0;
};
VC_DECLARE_IID(IVCConverter, "B8F7C331-45F0-41C5-9A5C-194984C5A950");
