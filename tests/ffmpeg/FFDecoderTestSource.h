// Packets for the decoder tests without the splitter: a plain libavformat
// loop over one stream of a test file, each packet wrapped as the module's
// packet with the stream description filled the way a splitter fills it
// (FFmpeg codec name, codec data, size, rate, sample rate, channels; packet
// times in reference time). And the yardstick: what a plain libavcodec
// send/receive loop decodes from the same packets.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/hwcontext.h>
}

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCStrings.h"

namespace vc::fftest {

class CTestPacketSource {
 public:
  CTestPacketSource();
  ~CTestPacketSource();
  CTestPacketSource(const CTestPacketSource&) = delete;
  CTestPacketSource& operator=(const CTestPacketSource&) = delete;

  // Opens the file and picks its nNth stream of eType (from zero). False
  // when the file cannot be opened or has no such stream.
  bool Open(const std::string& strPath, AVMediaType eType, int nNth = 0);

  // Valid while the source is open; the codec data points into FFmpeg's
  // stream parameters.
  const K_STREAM_INFO& StreamInfo() const { return m_streamInfo; }
  const AVCodecParameters* CodecParameters() const;

  // The next packet of the stream, null at the end of the file.
  ComPtr<IVCPacket> Next();
  // Every packet left.
  std::vector<ComPtr<IVCPacket>> ReadAll();

 private:
  struct CFormatClose {
    void operator()(AVFormatContext* p) const { avformat_close_input(&p); }
  };
  std::unique_ptr<AVFormatContext, CFormatClose> m_spFormat;
  int m_nStream = -1;
  K_STREAM_INFO m_streamInfo{};
  CBstr m_bsCodecName;
};

// What the plain loop decoded.
struct CReferenceDecode {
  bool bOpened = false;
  int nFrames = 0;
  int64_t llSamples = 0;
  std::vector<int64_t> vecStartTimes;  // best-effort times in reference time; unset where FFmpeg had none
  int64_t llTickRefTime = 1;           // one tick of the stream's time base in reference time: its resolution
};

// Decodes the nNth stream of eType with avcodec_send_packet /
// avcodec_receive_frame, fed what the packet source gives a decoder:
// payload, times and flags, no side data.
CReferenceDecode DecodeWithPlainLoop(const std::string& strPath, AVMediaType eType, int nNth = 0);

// What a decoder gave for a run of packets and the drain after them.
struct CDecoderRun {
  std::vector<ComPtr<IVCFrame>> vecFrames;
  size_t nFramesBeforeDrain = 0;  // frames that came out while packets went in
  int nPacketFailures = 0;        // packets DecodePacket failed on
  HRESULT hrEnd = S_OK;           // the drain's last answer
};

// Feeds every packet to DecodePacket, then drains with null packets until
// the decoder answers anything but S_OK (at most nMaxDrain calls).
CDecoderRun RunDecoder(IVCDecoder* pDecoder, const std::vector<ComPtr<IVCPacket>>& vecPackets,
                       K_AV_PROPS* pWanted = nullptr, int nMaxDrain = 1000);

// A frame's time and properties (zeroed when the frame refuses).
K_TIME FrameTime(IVCFrame* pFrame);
K_AV_PROPS FrameProps(IVCFrame* pFrame, LONG* plAudioSamples = nullptr);

// Whether this machine has the device: the question the hardware classes ask.
bool DevicePresent(AVHWDeviceType eType);

// A property of an object as UTF-8 ("" when absent).
std::string PropText(IUnknown* pObject, const char* szName);
// Sets a property; false when the object refuses.
bool SetProp(IUnknown* pObject, const char* szName, const char* szValue);

}  // namespace vc::fftest
