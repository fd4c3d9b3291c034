// One libavcodec encoder at work for the encoder classes: opened on the first
// frame (only then are size, pixel format, sample rate and channels known),
// fed frames already read from IVCFrame into AVFrames, and drained at the
// end. It brings pictures into the pixel format and size the codec takes
// (CFFVideoConverter), audio into the codec's sample format, rate and
// channels (one CFFAudioConverter for the session, writing straight into the
// codec's frame) and into the codec's frame size, keeping the rest for the
// next frame. Each packet leaves with the times of the frame it came
// from. Driven by one encoder object under its encode lock; not synchronised.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "FFConvert.h"
#include "FFPointers.h"
#include "VCCodecs/VCPacket.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"

namespace vc::ff {

// What the configuration asks of the codec; a field left at its default
// leaves FFmpeg's (or the input's) choice.
struct CFFEncodeSettings {
  int64_t llBitrate = 0;     // "bitrate", bits per second
  double dblQuality = -1;    // "quality": crf where the codec has it, else a fixed quantiser
  int64_t llMaxRate = 0;     // "max_rate"
  int64_t llBufferSize = 0;  // "buffer_size", bits
  int nGop = -1;             // "gop"
  int nBFrames = -1;         // "b_frames"
  int nThreads = 0;          // "threads", 0: FFmpeg's choice
  std::string strPreset;     // "preset"
  std::string strProfile;    // "profile"
  std::string strLevel;      // "level"
  std::string strPixFmt;     // "pix_fmt": FFmpeg's name
  int nWidth = 0;            // "width"/"height": scale to, 0 keeps the input's
  int nHeight = 0;
  int nSampleRate = 0;       // "sample_rate", 0 keeps the input's where the codec allows
  int nChannels = 0;         // "channels", 0 keeps the input's
  bool bGlobalHeader = true;  // "global_header": codec data out of band (what mp4 and mkv want)
};

// Where a hardware encoder takes its pictures: a device context and, for
// encoders that read device memory only, the device picture format.
struct CFFEncodeDevice {
  AVBufferRef* pDevice = nullptr;       // not owned; null for software
  AVPixelFormat eHwPixFmt = AV_PIX_FMT_NONE;  // VAAPI: upload into frames of this format
  AVPixelFormat eSwPixFmt = AV_PIX_FMT_NONE;  // the system-memory format uploaded from
};

class CFFEncodeSession {
 public:
  CFFEncodeSession();
  ~CFFEncodeSession();
  CFFEncodeSession(const CFFEncodeSession&) = delete;
  CFFEncodeSession& operator=(const CFFEncodeSession&) = delete;

  bool IsOpen() const { return m_spContext != nullptr; }
  const AVCodecContext* Context() const { return m_spContext.get(); }

  // Opens pCodec for frames like first (a picture or a block of samples);
  // dblRate is the video frame rate (0: unknown, 25 assumed). 0 or an
  // AVERROR.
  int Open(const AVCodec* pCodec, const CFFEncodeSettings& settings, const AVFrame& first, double dblRate,
           const CFFEncodeDevice& device);
  // Encodes one frame (not owned, not changed) with its times. Packets that
  // come out are appended to pOut. 0 or an AVERROR.
  int Send(const AVFrame& frame, const K_TIME& time, std::vector<ComPtr<IVCPacket>>* pOut);
  // Sends the samples still waiting for a full codec frame, then drains the
  // codec: every delayed packet is appended. 0 or an AVERROR.
  int Drain(std::vector<ComPtr<IVCPacket>>* pOut);
  void Close();

 private:
  int _OpenVideo(const AVFrame& first, double dblRate, const CFFEncodeDevice& device);
  int _OpenAudio(const AVFrame& first);
  void _Configure(const CFFEncodeSettings& settings);
  void _BuildStreamInfo(double dblRate);
  int _SendVideo(const AVFrame& frame, const K_TIME& time, std::vector<ComPtr<IVCPacket>>* pOut);
  int _SendAudio(const AVFrame& frame, const K_TIME& time, std::vector<ComPtr<IVCPacket>>* pOut);
  // Cuts nSamples input samples into codec frames: put(nFirst, nChunk)
  // writes nChunk input samples from input sample nFirst on into the frame
  // being filled, at its fill, and answers how many it wrote (or an
  // AVERROR); each frame that fills up is sent.
  int _Fill(int nSamples, const std::function<int(int nFirst, int nChunk)>& put,
            std::vector<ComPtr<IVCPacket>>* pOut);
  // Converts nSamples of src, from sample nFirst on, into the codec frame
  // being filled, sending each frame that fills up. Only for a converter
  // that keeps the rate (it then holds nothing back).
  int _ConvertInto(const AVFrame& src, int nFirst, int nSamples, std::vector<ComPtr<IVCPacket>>* pOut);
  // Copies samples already in the codec's form into the frame being filled.
  int _CopyInto(const AVFrame& src, int nSamples, std::vector<ComPtr<IVCPacket>>* pOut);
  // m_spResampled with room for nSamples.
  int _ResampledBlock(int nSamples);
  // A fresh codec frame to fill, its first sample at m_llNextSample.
  int _NewPending(int nSamples);
  // Sends the frame being filled (as many samples as it holds).
  int _SendPending(std::vector<ComPtr<IVCPacket>>* pOut);
  int _Encode(AVFrame* pFrame, std::vector<ComPtr<IVCPacket>>* pOut);
  // The times a packet carries: its frame's for video, its samples' for audio.
  K_TIME _PacketTime(const AVPacket& packet);

  AvCodecContextPtr m_spContext;
  AvPacketPtr m_spPacket;
  CFFEncodeSettings m_settings;
  CKStreamInfo m_streamInfo;
  // Video.
  CFFVideoConverter m_videoConverter;
  AVBufferRef* m_pHwFrames = nullptr;  // owned; VAAPI upload pool
  int64_t m_llLastPts = AV_NOPTS_VALUE;
  std::map<int64_t, K_TIME> m_mapFrameTimes;  // codec pts -> the frame's own times
  // Audio.
  CFFAudioConverter m_audioConverter;       // input form -> the codec's, kept for the session
  AvFramePtr m_spPending;                   // the codec frame being filled
  int m_nPendingFill = 0;                   // samples in it so far
  AvFramePtr m_spResampled;                 // rate changes: one block in the codec's form
  int64_t m_llNextSample = AV_NOPTS_VALUE;  // pts of the next sample to fill in
};

}  // namespace vc::ff
