// The audio buffer object (IVCAudioBuffer) of the general media module:
// named lines of interleaved PCM that hosts and decoders put audio into and
// take it out of, as raw samples or through frames (IVCFrame), with mixing,
// gains and per-line times. Created by class identifier
// (CreateFFAudioBuffer); aggregation is supported.
//
// Any thread may call any method: one lock guards all lines, and it is held
// across the calls that a method makes on a frame it was given, so a frame
// must not call back into this buffer.
//
// Conventions every method shares:
// - Line names: a null or empty name is the line "" (a line like any other).
//   Names are compared without regard to ASCII letter case. A line is created
//   by BufferPropsSet, by a put or by BufferLinesMix into it.
// - A line's format is set by BufferPropsSet or by its first put (the put's
//   format with as many channels as the put chose). Later puts in other
//   formats are converted (FFAudioBufferLine.h); frames that receive audio
//   from a line must have the line's sample rate.
// - Channel lists: FFAudioBufferFormat.h. A list names channels of the
//   audio it applies to: a put's source, a line on its way out, or, for the
//   output lists of BufferFrameMix and BufferLinesMix, the target's.
// - Gains are in dB, ramped linearly in amplitude from the start value at
//   the first sample to the end value at the last sample of the call.
// - Counts: asking for more samples than a line holds gives what it holds
//   and says how many; S_FALSE when that is none (also for a line that does
//   not exist). Null pointers where one is needed give E_POINTER, other bad
//   arguments E_INVALIDARG; both with a log line, and the line is unchanged.
// - Times: FFAudioBufferLine.h. Taking samples (get, fill, mix, append,
//   remove) moves a line's start time on by their duration.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "FFAudioBufferLine.h"
#include "VCCodecsCore.h"
#include "VCCritSec.h"
#include "VCGuard.h"
#include "VCObject.h"
#include "VCLog.h"
#include "VCStrings.h"

namespace vc::ff {

class CFFAudioBuffer : public CKObjectRoot, public IVCAudioBuffer {
 public:
  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return QueryInterfaceTable<IVCAudioBuffer>(this, riid, ppv);
  }

  // Appends the first audio stream of a WAV file (or of any file FFmpeg
  // decodes), from _lSamplesOffset file samples on, _lSamplesLoad of them
  // (0 or less: to the end). Files named *.pcm or *.raw are raw interleaved
  // PCM in the line's format, which must then be set.
  HRESULT STDMETHODCALLTYPE BufferLoadFromFile(BSTR _bsLine, BSTR _bsFileName, LONG _lSamplesOffset,
                                               LONG _lSamplesLoad) override;
  // Sets a line's format, creating the line. _bResetBuffer drops its samples
  // and time; otherwise what it holds is converted to the new format.
  HRESULT STDMETHODCALLTYPE BufferPropsSet(BSTR _bsLine, K_AUD_PROPS* _pAudProps, BOOL _bResetBuffer) override;
  // A line's format and sample count; S_FALSE (zeros) for a line without one.
  HRESULT STDMETHODCALLTYPE BufferPropsGet(BSTR _bsLine, K_AUD_PROPS* _pAudProps, LONG* _plSamples) override;
  // Appends _lSamples interleaved samples in the _pAudProps format (null:
  // the line's own) from address _pbAudio, the channels that
  // _bsChannelsListOrTrack chooses.
  HRESULT STDMETHODCALLTYPE BufferPutPtr(BSTR _bsLine, K_AUD_PROPS* _pAudProps, LONG _lSamples, LONGLONG _pbAudio,
                                         BSTR _bsChannelsListOrTrack) override;
  // Appends a frame's audio, timed by the frame's start time when it has one.
  HRESULT STDMETHODCALLTYPE BufferFramePut(BSTR _bsLine, IVCFrame* _pFrame, BSTR _bsChannelsListOrTrack) override;
  // Gives the frame *_plSamples samples (0 or less: as many as it holds, or
  // with no audio yet, all the line holds) taken from the line's channels
  // _bsChannelsList. The frame keeps its audio format when it has audio,
  // otherwise it takes the line's with the listed channels; samples the line
  // could not give are silent. *_plSamples gets the samples taken.
  HRESULT STDMETHODCALLTYPE BufferFrameFill(BSTR _bsLine, IVCFrame* _pFrame, LONG* _plSamples,
                                            BSTR _bsChannelsList) override;
  // Mixes the line's channels _bsChannelsListIn, with the ramp from
  // _dblGainFromStartDb to _dblGainFromEndDb, into the frame's channels
  // _bsChannelsListOut, over as many samples as both hold; they are taken
  // from the line. The frame must hold audio.
  HRESULT STDMETHODCALLTYPE BufferFrameMix(BSTR _bsLineFrom, IVCFrame* _pFrameTo, LONG* _plSamplesMix,
                                           double _dblGainFromStartDb, double _dblGainFromEndDb,
                                           BSTR _bsChannelsListIn, BSTR _bsChannelsListOut) override;
  // Adds the line's channels _bsChannelsList to the frame's audio as new
  // channels after its own, as a track of their own; up to *_plSamplesAppend
  // samples (0 or less: the frame's count) are taken from the line, the
  // rest of the new channels are silent. A frame without audio is filled.
  HRESULT STDMETHODCALLTYPE BufferFrameChannelsAppend(BSTR _bsLine, IVCFrame* _pFrame, LONG* _plSamplesAppend,
                                                      BSTR _bsChannelsList) override;
  // Mixes *_plSamplesMix samples (0 or less: all) of line From into the
  // start of line To, taking them from From. To's named channels are scaled
  // by the To ramp first; To is extended with silence when shorter, and
  // created in From's format (with the listed channels) when missing.
  HRESULT STDMETHODCALLTYPE BufferLinesMix(BSTR _bsLineFrom, BSTR _bsLineTo, LONG* _plSamplesMix,
                                           double _dblGainFromStartDb, double _dblGainFromEndDb,
                                           double _dblGainToStartDb, double _dblGainToEndDb,
                                           BSTR _bsChannelsListIn, BSTR _bsChannelsListOut) override;
  // Removes a line; a null or empty name removes every line.
  HRESULT STDMETHODCALLTYPE BufferLinesRemove(BSTR _bsLine) override;
  // Drops *_plSamples samples from the front of a line (null or negative:
  // all of them); *_plSamples gets the count dropped.
  HRESULT STDMETHODCALLTYPE BufferRemove(BSTR _bsLine, LONG* _plSamples) override;
  // BufferPutPtr with a time (_rtTime, VC_TIME_UNSET for none) and planar
  // input: with _cbAudioPlane non-zero, channel c of the source starts at
  // _pbAudio + c * _cbAudioPlane and holds _lSamples samples.
  HRESULT STDMETHODCALLTYPE BufferPutPtrEx(BSTR _bsLine, LONGLONG _rtTime, K_AUD_PROPS* _pAudProps, LONG _lSamples,
                                           LONGLONG _pbAudio, LONG _cbAudioPlane, BSTR _bsChannelsList) override;
  // Takes up to *_plSamples samples of the line's channels _bsChannelsList,
  // in the line's sample format. With *_ppbAudio non-zero they are written
  // there (room for *_plSamples samples, which must be positive); with zero
  // the buffer allocates them with CoTaskMemAlloc (all the line holds when
  // *_plSamples is 0 or less) and the caller frees them with CoTaskMemFree.
  // _cbAudioPlane 0 writes interleaved; otherwise channel k goes to
  // *_ppbAudio + k * _cbAudioPlane, which must hold the samples asked for.
  HRESULT STDMETHODCALLTYPE BufferGet(BSTR _bsLine, LONG* _plSamples, LONGLONG* _ppbAudio, LONG _cbAudioPlane,
                                      BSTR _bsChannelsList) override;
  // Turns time correction of timed puts on or off, with the accepted window
  // _prtMinDiff <= 0 <= _prtMaxDiff (the names are the interface's; the
  // values are passed directly). Creates the line.
  HRESULT STDMETHODCALLTYPE BufferTimesEnable(BSTR _bsLine, BOOL _bEnable, LONGLONG _prtMinDiff,
                                              LONGLONG _prtMaxDiff) override;
  HRESULT STDMETHODCALLTYPE BufferTimesIsEnabled(BSTR _bsLine, BOOL* _pbEnabled, LONGLONG* _prtMinDiff,
                                                 LONGLONG* _prtMaxDiff) override;
  // Start and end time of a line; S_FALSE with VC_TIME_UNSET for both while
  // it has no time.
  HRESULT STDMETHODCALLTYPE BufferTimesGet(BSTR _bsLine, LONGLONG* _prtStartTime, LONGLONG* _prtEndTime) override;
  // Sets the time of a line's first sample (VC_TIME_UNSET: keep it) and,
  // unless _rtMinEndTime is VC_TIME_UNSET, extends the line with silence so
  // that it ends no earlier than that. The line must have a format.
  HRESULT STDMETHODCALLTYPE BufferTimesSet(BSTR _bsLine, LONGLONG _rtStartTime, LONGLONG _rtMinEndTime) override;

 private:
  using CLine = abuf::CAudioLine;

  CLine* _FindLine(BSTR bsLine) VC_REQUIRES(m_csLock);
  // The line when it holds samples; otherwise null, with *pnSamples (when
  // given) set to 0 (the callers then answer S_FALSE).
  CLine* _NonEmptyLine(BSTR bsLine, LONG* pnSamples) VC_REQUIRES(m_csLock);
  CLine& _LineFor(BSTR bsLine) VC_REQUIRES(m_csLock);
  // Puts src into the line under the lock; bFlush empties the line's
  // resampler afterwards (a put that ends a stream).
  HRESULT _Put(BSTR bsLine, const abuf::CSourceAudio& src, BSTR bsChannels, LONGLONG rtTime, bool bFlush = false);

  CKCritSec m_csLock;
  std::map<String, std::unique_ptr<CLine>> m_mapLines VC_GUARDED_BY(m_csLock);  // keys lower-cased
};

}  // namespace vc::ff
