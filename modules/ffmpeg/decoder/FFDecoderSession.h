// One open FFmpeg decoder and the bookkeeping around it: packets of the
// public interface in (payload copied into a padded FFmpeg packet, times in
// reference time), decoded frames out one at a time with their K_TIME, in
// system memory and in the form the caller wants. Frames that come out
// while the caller does not ask for them wait in a small queue.
//
// The decoder classes own one session each and drive it under their decode
// lock: not synchronised itself, one thread at a time.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <deque>
#include <memory>

#include "FFConvert.h"
#include "FFPointers.h"
#include "VCCodecsCore.h"

namespace vc::ff {

using DecodedFramePtr = AvFramePtr;

using DecoderContextPtr = AvCodecContextPtr;

// How a session decodes.
struct CFFSessionOptions {
  int nThreads = 0;                           // 0: as many as FFmpeg finds useful
  AVBufferRef* pHwDevice = nullptr;           // the caller's reference; the session takes its own
  AVPixelFormat eHwPixFmt = AV_PIX_FMT_NONE;  // the device's picture format
};

// The form frames are handed out in.
struct CFFOutputForm {
  CVideoTarget video;
  CAudioTarget audio;
};

class CFFDecodeSession {
 public:
  CFFDecodeSession();
  ~CFFDecodeSession();
  CFFDecodeSession(const CFFDecodeSession&) = delete;
  CFFDecodeSession& operator=(const CFFDecodeSession&) = delete;

  // Opens pCodec for the stream; a session that was open is closed first.
  // 0 or the AVERROR of FFmpeg.
  int Open(const K_STREAM_INFO& info, const AVCodec* pCodec, const CFFSessionOptions& options);
  void Close();
  bool IsOpen() const { return m_spContext != nullptr; }
  // The open codec context (null when closed); for reading what FFmpeg
  // learnt about the stream.
  const AVCodecContext* Context() const { return m_spContext.get(); }
  // Whether the device acceleration gave way to software decoding because
  // the device cannot decode this stream (its profile, its size).
  bool FellBackToSoftware() const { return m_bHwFallback; }

  // Gives one packet to the decoder and collects the frames that are ready;
  // a null packet starts the drain. A packet marked as a segment start, or
  // the first packet after the end, flushes the decoder first. 0 or an
  // AVERROR (AVERROR(EINVAL) when the packet cannot be read).
  int Feed(IVCPacket* pPacket);
  // The next frame in the wanted form: 0 with *pDst (blank on entry) and
  // *pTime set; AVERROR(EAGAIN) when the decoder needs more packets;
  // AVERROR_EOF when a drain is complete; another AVERROR when the
  // conversion fails (the frame is lost, the session goes on).
  int TakeFrame(const CFFOutputForm& form, AVFrame* pDst, K_TIME* pTime);
  // Whether a decoded frame waits (no decoding is done to find out).
  bool HasFrame() const { return !m_deqFrames.empty(); }
  // Drops everything in flight (a seek); the session stays open.
  void Flush();

  // Frame rate the session times video frames with (the description's,
  // else what the codec reports; 0 when unknown).
  double FrameRate() const { return m_dblRate; }

 private:
  static AVPixelFormat _GetFormat(AVCodecContext* pContext, const AVPixelFormat* pFormats);
  int _Receive();
  int _Convert(DecodedFramePtr spDecoded, const CFFOutputForm& form, AVFrame* pDst);
  void _TimeFrame(const AVFrame& frame, K_TIME* pTime);
  LONGLONG _Duration(const AVFrame& frame) const;

  DecoderContextPtr m_spContext;
  AvPacketPtr m_spPacket;
  std::deque<DecodedFramePtr> m_deqFrames;  // decoded, waiting to be taken
  CFFVideoConverter m_videoConverter;
  CFFAudioConverter m_audioConverter;
  AVPixelFormat m_eHwPixFmt = AV_PIX_FMT_NONE;
  bool m_bHwFallback = false;
  double m_dblRate = 0;
  LONGLONG m_rtNext;     // where the next frame starts when it has no time of its own
  bool m_bDraining = false;  // a null packet was sent
  bool m_bEof = false;       // the decoder said it is drained
};

}  // namespace vc::ff
