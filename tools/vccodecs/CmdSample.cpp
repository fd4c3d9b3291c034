// vccodecs sample OUT [--duration S] [--size WxH] [--rate FPS]: makes a test
// file through the encoder and muxer facades, as a host that renders its own
// pictures would: a moving picture with fine detail and the frame number
// written on it, and a 440 Hz tone, both in frame objects of the general
// media module (created by class identifier), encoded (H.264 and AAC; VP9
// and Opus for .webm) and muxed into OUT. The result is what the other
// commands and the quick start read, so it needs no other tool.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "Commands.h"
#include "ToolMedia.h"
#include "ToolModule.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCComPtr.h"
#include "VCStrings.h"

namespace vctool {

namespace {

// The general media module's frame class; a host names it by identifier and
// the runtime finds the module.
constexpr CLSID kClsidMediaFrame = vc::MakeGuid("96EB1F70-4CC0-4830-9CC3-F064196B2626");

constexpr int kSampleRate = 48000;
constexpr int kChannels = 2;
constexpr int kAudioBlock = 1024;  // samples per audio frame
constexpr double kToneHz = 440.0;
constexpr double kPi = 3.14159265358979323846;

struct SampleArgs {
  std::string strOut;
  double dblDuration = 10.0;
  int nWidth = 1280;
  int nHeight = 720;
  double dblRate = 25.0;
};

bool ParseNumber(const std::string& str, double* pdbl) {
  char* pEnd = nullptr;
  *pdbl = std::strtod(str.c_str(), &pEnd);
  return !str.empty() && pEnd && !*pEnd && std::isfinite(*pdbl);
}

bool ParseSampleArgs(const std::vector<std::string>& args, SampleArgs* pArgs) {
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& strArg = args[i];
    const bool bHasValue = i + 1 < args.size();
    double dbl = 0.0;
    if (strArg == "--duration") {
      if (!bHasValue || !ParseNumber(args[++i], &dbl) || dbl <= 0.0 || dbl > 24 * 3600.0) {
        std::fprintf(stderr, "vccodecs sample: --duration wants seconds (more than 0, at most a day)\n");
        return false;
      }
      pArgs->dblDuration = dbl;
    } else if (strArg == "--rate") {
      if (!bHasValue || !ParseNumber(args[++i], &dbl) || dbl < 1.0 || dbl > 240.0) {
        std::fprintf(stderr, "vccodecs sample: --rate wants frames per second (1 to 240)\n");
        return false;
      }
      pArgs->dblRate = dbl;
    } else if (strArg == "--size") {
      int nW = 0, nH = 0;
      char chEnd = 0;
      // 4:2:0 pictures want even sizes.
      if (!bHasValue || std::sscanf(args[++i].c_str(), "%dx%d%c", &nW, &nH, &chEnd) != 2 || nW < 16 || nH < 16 ||
          nW > 7680 || nH > 4320 || nW % 2 || nH % 2) {
        std::fprintf(stderr, "vccodecs sample: --size wants WIDTHxHEIGHT, even, 16x16 to 7680x4320\n");
        return false;
      }
      pArgs->nWidth = nW;
      pArgs->nHeight = nH;
    } else if (!strArg.empty() && strArg[0] == '-') {
      std::fprintf(stderr, "vccodecs sample: unknown option %s\n", strArg.c_str());
      return false;
    } else if (pArgs->strOut.empty()) {
      pArgs->strOut = strArg;
    } else {
      std::fprintf(stderr, "vccodecs sample: one output file only\n");
      return false;
    }
  }
  if (pArgs->strOut.empty()) std::fprintf(stderr, "vccodecs sample: which output file?\n");
  return !pArgs->strOut.empty();
}

// The encoder configurations for the output's container: WebM takes VP9 and
// Opus only, everything else gets H.264 and AAC. A key frame every two
// seconds gives seeking tests something to find.
void CodecConfigs(const SampleArgs& args, std::string* pstrVideo, std::string* pstrAudio) {
  std::string strExt = args.strOut.substr(std::min(args.strOut.size(), args.strOut.rfind('.') + 1));
  std::transform(strExt.begin(), strExt.end(), strExt.begin(), [](unsigned char c) { return std::tolower(c); });
  // About a tenth of a bit per pixel: clean pictures without a large file.
  const long long llBitrate =
      std::max(200000LL, static_cast<long long>(args.nWidth * static_cast<double>(args.nHeight) * args.dblRate * 0.1));
  const std::string strCommon =
      " bitrate=" + std::to_string(llBitrate) + " gop=" + std::to_string(static_cast<int>(args.dblRate * 2 + 0.5));
  if (strExt == "webm") {
    *pstrVideo = "codec=libvpx-vp9" + strCommon;
    *pstrAudio = "codec=libopus bitrate=96000";
  } else {
    *pstrVideo = "codec=libx264 preset=veryfast" + strCommon;
    *pstrAudio = "codec=aac bitrate=128000";
  }
}

// --- The pictures and the tone ----------------------------------------------

// 5x7 digits, one row per byte, bit 4 the leftmost pixel.
constexpr uint8_t kDigits[10][7] = {
    {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E}, {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E},
    {0x0E, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1F}, {0x1F, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0E},
    {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02}, {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E},
    {0x06, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E}, {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08},
    {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E}, {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x0C},
};

// Writes the frame number in the top-left corner, white on a black box.
void DrawCounter(uint8_t* pY, int nStride, int nWidth, int nHeight, long long llFrame) {
  char sz[16];
  std::snprintf(sz, sizeof(sz), "%06lld", llFrame % 1000000);
  const int nScale = std::max(2, nHeight / 90);
  const int nDigits = static_cast<int>(std::strlen(sz));
  const int nBoxW = std::min(nWidth, (nDigits * 6 + 1) * nScale), nBoxH = std::min(nHeight, 9 * nScale);
  for (int y = 0; y < nBoxH; ++y) std::memset(pY + static_cast<size_t>(y) * nStride, 16, static_cast<size_t>(nBoxW));
  for (int d = 0; d < nDigits; ++d) {
    const uint8_t* pGlyph = kDigits[sz[d] - '0'];
    for (int y = 0; y < 7 * nScale && nScale + y < nBoxH; ++y) {
      for (int x = 0; x < 5 * nScale; ++x) {
        const int nX = (1 + d * 6) * nScale + x;
        if (nX >= nBoxW || !(pGlyph[y / nScale] & (0x10 >> (x / nScale)))) continue;
        pY[static_cast<size_t>(nScale + y) * nStride + nX] = 235;
      }
    }
  }
}

// A diagonal gradient sliding right, a fine checkerboard in a moving bar
// (detail that costs bits) and slowly turning colours.
void DrawPicture(uint8_t* pBase, int nWidth, int nHeight, long long llFrame) {
  uint8_t* pY = pBase;
  uint8_t* pU = pY + static_cast<size_t>(nWidth) * nHeight;
  uint8_t* pV = pU + static_cast<size_t>(nWidth / 2) * (nHeight / 2);
  const int nShift = static_cast<int>(llFrame * 4);
  const int nBarW = std::max(8, nWidth / 8);
  const int nBarX = static_cast<int>((llFrame * 6) % (nWidth + nBarW)) - nBarW;
  for (int y = 0; y < nHeight; ++y) {
    uint8_t* pRow = pY + static_cast<size_t>(y) * nWidth;
    for (int x = 0; x < nWidth; ++x) {
      const bool bBar = x >= nBarX && x < nBarX + nBarW;
      pRow[x] = bBar ? static_cast<uint8_t>(((x >> 1) + (y >> 1)) % 2 ? 200 : 50)
                     : static_cast<uint8_t>(16 + (x + y + nShift) % 220);
    }
  }
  const double dblTurn = static_cast<double>(llFrame) * 0.02;
  for (int y = 0; y < nHeight / 2; ++y) {
    for (int x = 0; x < nWidth / 2; ++x) {
      const double dblAngle = dblTurn + 2.0 * kPi * x / (nWidth / 2);
      pU[static_cast<size_t>(y) * (nWidth / 2) + x] = static_cast<uint8_t>(128 + 60 * std::cos(dblAngle));
      pV[static_cast<size_t>(y) * (nWidth / 2) + x] = static_cast<uint8_t>(128 + 60 * std::sin(dblAngle + y * 0.01));
    }
  }
  DrawCounter(pY, nWidth, nWidth, nHeight, llFrame);
}

HRESULT NewFrame(vc::ComPtr<IVCFrame>* pcpFrame) {
  return CoCreateInstance(kClsidMediaFrame, nullptr, CLSCTX_INPROC_SERVER, IID_IVCFrame,
                          reinterpret_cast<void**>(pcpFrame->AddressOf()));
}

HRESULT VideoFrame(const SampleArgs& args, long long llFrame, vc::ComPtr<IVCFrame>* pcpFrame) {
  HRESULT hr = NewFrame(pcpFrame);
  if (FAILED(hr)) return hr;
  K_AV_PROPS props{};
  props.vidProps.fccType = eVCCC_I420;
  props.vidProps.nWidth = args.nWidth;
  props.vidProps.nHeight = args.nHeight;
  props.vidProps.nRowBytes = args.nWidth;  // planes packed, no padding
  props.vidProps.nAspectX = 1;
  props.vidProps.nAspectY = 1;
  props.vidProps.dblRate = args.dblRate;
  hr = (*pcpFrame)->VCAVPropsSet(&props, nullptr);
  LONG cbVideo = 0;
  LONGLONG lpVideo = 0;
  if (SUCCEEDED(hr)) hr = (*pcpFrame)->VCVideoGetBytes(&cbVideo, &lpVideo);
  if (FAILED(hr)) return hr;
  if (!lpVideo || static_cast<size_t>(cbVideo) < static_cast<size_t>(args.nWidth) * args.nHeight * 3 / 2) {
    return E_UNEXPECTED;
  }
  DrawPicture(reinterpret_cast<uint8_t*>(static_cast<intptr_t>(lpVideo)), args.nWidth, args.nHeight, llFrame);
  K_TIME time{};
  time.rtStartTime = static_cast<LONGLONG>(std::llround(llFrame * VC_TIME_SECOND / args.dblRate));
  time.rtEndTime = static_cast<LONGLONG>(std::llround((llFrame + 1) * VC_TIME_SECOND / args.dblRate));
  return (*pcpFrame)->VCTimeSet(&time);
}

// nSamples of the tone, 16-bit stereo, starting at sample llFirst.
HRESULT AudioFrame(long long llFirst, int nSamples, vc::ComPtr<IVCFrame>* pcpFrame) {
  HRESULT hr = NewFrame(pcpFrame);
  if (FAILED(hr)) return hr;
  K_AUD_PROPS aud{kChannels, kSampleRate, 16, 0};
  hr = (*pcpFrame)->VCAudioAlloc(&aud, nSamples);
  LONG cbAudio = 0;
  LONGLONG lpAudio = 0;
  if (SUCCEEDED(hr)) hr = (*pcpFrame)->VCAudioGetBytes(&cbAudio, &lpAudio);
  if (FAILED(hr)) return hr;
  if (!lpAudio || cbAudio < nSamples * kChannels * 2) return E_UNEXPECTED;
  auto* pSamples = reinterpret_cast<int16_t*>(static_cast<intptr_t>(lpAudio));
  for (int i = 0; i < nSamples; ++i) {
    const double dblPhase = 2.0 * kPi * kToneHz * static_cast<double>(llFirst + i) / kSampleRate;
    const auto nValue = static_cast<int16_t>(std::lround(8000.0 * std::sin(dblPhase)));
    for (int c = 0; c < kChannels; ++c) pSamples[i * kChannels + c] = nValue;
  }
  K_TIME time{};
  time.rtStartTime = llFirst * VC_TIME_SECOND / kSampleRate;
  time.rtEndTime = (llFirst + nSamples) * VC_TIME_SECOND / kSampleRate;
  return (*pcpFrame)->VCTimeSet(&time);
}

// --- Encoding and muxing -------------------------------------------------------

// One encoded stream: its encoder facade, and its packets until the muxer
// knows every stream (a container's header is written once, with all of
// them).
struct SampleStream {
  SampleStream(const char* szNameIn, eVCMediaType eTypeIn) : szName(szNameIn), eType(eTypeIn) {}
  const char* szName;
  eVCMediaType eType;
  vc::ComPtr<IVCEncoder> cpEncoder;
  LONG nMuxIndex = -1;
  std::deque<vc::ComPtr<IVCPacket>> deqWaiting;
  long long llPackets = 0;
};

class CSampleWriter {
 public:
  explicit CSampleWriter(const SampleArgs& args) : m_args(args) {}

  bool Open();
  // Encodes one frame and writes what came out; false after saying why.
  bool Put(SampleStream* pStream, IVCFrame* pFrame);
  // Drains both encoders and finishes the file.
  bool Finish();

  SampleStream m_video{"video", eVCMT_Video};
  SampleStream m_audio{"audio", eVCMT_Audio};

 private:
  bool _Take(SampleStream* pStream);
  bool _AddStreams();
  bool _Write(SampleStream* pStream, IVCPacket* pPacket);

  const SampleArgs& m_args;
  vc::ComPtr<IVCMuxer> m_cpMuxer;
  bool m_bStreamsAdded = false;
};

bool CSampleWriter::Open() {
  std::string strVideo, strAudio;
  CodecConfigs(m_args, &strVideo, &strAudio);
  for (auto [pStream, pstrConfig] : {std::pair{&m_video, &strVideo}, std::pair{&m_audio, &strAudio}}) {
    HRESULT hr = CoCreateInstance(CLSID_VCEncoder, nullptr, CLSCTX_INPROC_SERVER, IID_IVCEncoder,
                                  reinterpret_cast<void**>(pStream->cpEncoder.AddressOf()));
    if (SUCCEEDED(hr)) hr = pStream->cpEncoder->EncodeCodecSet(pStream->eType, vc::CBstr(std::string_view(*pstrConfig)));
    if (FAILED(hr)) {
      std::fprintf(stderr, "vccodecs sample: no %s encoder for '%s': %s\n", pStream->szName, pstrConfig->c_str(),
                   HrText(hr).c_str());
      return false;
    }
  }
  HRESULT hr = CoCreateInstance(CLSID_VCMuxer, nullptr, CLSCTX_INPROC_SERVER, IID_IVCMuxer,
                                reinterpret_cast<void**>(m_cpMuxer.AddressOf()));
  if (SUCCEEDED(hr)) hr = m_cpMuxer->MuxerSet(vc::CBstr(std::string_view(m_args.strOut)), nullptr);
  if (FAILED(hr)) {
    std::fprintf(stderr, "vccodecs sample: cannot write %s: %s\n", m_args.strOut.c_str(), HrText(hr).c_str());
    return false;
  }
  return true;
}

bool CSampleWriter::Put(SampleStream* pStream, IVCFrame* pFrame) {
  const HRESULT hr = pStream->cpEncoder->EncodeFramePut(pFrame, nullptr, nullptr, nullptr);
  if (FAILED(hr)) {
    std::fprintf(stderr, "vccodecs sample: the %s encoder refused a frame: %s\n", pStream->szName, HrText(hr).c_str());
    return false;
  }
  return _Take(pStream);
}

// Every packet the encoder holds now.
bool CSampleWriter::_Take(SampleStream* pStream) {
  for (;;) {
    vc::ComPtr<IVCPacket> cpPacket;
    const HRESULT hr = pStream->cpEncoder->EncodePacketsGet(cpPacket.AddressOf(), nullptr, 0, nullptr);
    if (hr == vc::VC_E_EMPTY || hr == vc::VC_E_TIMEOUT || (SUCCEEDED(hr) && !cpPacket)) return true;
    if (FAILED(hr)) {
      std::fprintf(stderr, "vccodecs sample: the %s encoder failed: %s\n", pStream->szName, HrText(hr).c_str());
      return false;
    }
    ++pStream->llPackets;
    if (!m_bStreamsAdded) {
      pStream->deqWaiting.push_back(std::move(cpPacket));
      if (m_video.deqWaiting.empty() || m_audio.deqWaiting.empty()) continue;
      if (!_AddStreams()) return false;
      continue;
    }
    if (!_Write(pStream, cpPacket.Get())) return false;
  }
}

// Each stream is described by its encoder's first packet; then the packets
// held back go out.
bool CSampleWriter::_AddStreams() {
  for (SampleStream* pStream : {&m_video, &m_audio}) {
    if (pStream->deqWaiting.empty()) continue;
    K_STREAM_INFO info{};
    HRESULT hr = pStream->deqWaiting.front()->PacketStreamInfoGet(&info);
    if (SUCCEEDED(hr)) hr = m_cpMuxer->MuxerStreamAdd(&info, nullptr, &pStream->nMuxIndex);
    SysFreeString(info.bsCodecNameOrTag);
    if (FAILED(hr)) {
      std::fprintf(stderr, "vccodecs sample: the muxer refused the %s stream: %s\n", pStream->szName,
                   HrText(hr).c_str());
      return false;
    }
  }
  m_bStreamsAdded = true;
  for (SampleStream* pStream : {&m_video, &m_audio}) {
    for (const vc::ComPtr<IVCPacket>& cpPacket : pStream->deqWaiting) {
      if (!_Write(pStream, cpPacket.Get())) return false;
    }
    pStream->deqWaiting.clear();
  }
  return true;
}

bool CSampleWriter::_Write(SampleStream* pStream, IVCPacket* pPacket) {
  const HRESULT hr = m_cpMuxer->MuxerPacketPut(pStream->nMuxIndex, pPacket, nullptr);
  if (FAILED(hr)) {
    std::fprintf(stderr, "vccodecs sample: writing a %s packet failed: %s\n", pStream->szName, HrText(hr).c_str());
  }
  return SUCCEEDED(hr);
}

bool CSampleWriter::Finish() {
  for (SampleStream* pStream : {&m_video, &m_audio}) {
    const HRESULT hr = pStream->cpEncoder->EncodeClose();
    if (FAILED(hr)) {
      std::fprintf(stderr, "vccodecs sample: closing the %s encoder failed: %s\n", pStream->szName,
                   HrText(hr).c_str());
      return false;
    }
    if (!_Take(pStream)) return false;
  }
  // A stream that gave nothing (a very short sample) is left out.
  if (!m_bStreamsAdded && !_AddStreams()) return false;
  const HRESULT hr = m_cpMuxer->MuxerClose();
  if (FAILED(hr)) {
    std::fprintf(stderr, "vccodecs sample: finishing %s failed: %s\n", m_args.strOut.c_str(), HrText(hr).c_str());
    return false;
  }
  return true;
}

}  // namespace

int CmdSample(const std::vector<std::string>& args) {
  SampleArgs opts;
  if (!ParseSampleArgs(args, &opts)) return 1;
  CSampleWriter writer(opts);
  if (!writer.Open()) return 1;

  const auto tStart = std::chrono::steady_clock::now();
  const long long llFrames = std::max(1LL, std::llround(opts.dblDuration * opts.dblRate));
  const long long llSamplesTotal = std::llround(opts.dblDuration * kSampleRate);
  const bool bProgress = StderrIsTerminal();
  long long llSamples = 0;
  for (long long llFrame = 0; llFrame < llFrames; ++llFrame) {
    vc::ComPtr<IVCFrame> cpVideo;
    HRESULT hr = VideoFrame(opts, llFrame, &cpVideo);
    if (FAILED(hr)) {
      std::fprintf(stderr, "%svccodecs sample: no video frame: %s\n", bProgress ? "\n" : "", HrText(hr).c_str());
      return 1;
    }
    if (!writer.Put(&writer.m_video, cpVideo.Get())) return 1;
    // The tone keeps up with the pictures, so the muxer gets both in turn.
    const long long llAudioUntil = std::min(llSamplesTotal, (llFrame + 1) * kSampleRate * 1000 /
                                                                std::llround(opts.dblRate * 1000));
    while (llSamples < llAudioUntil || (llFrame + 1 == llFrames && llSamples < llSamplesTotal)) {
      const int nBlock = static_cast<int>(std::min<long long>(kAudioBlock, llSamplesTotal - llSamples));
      vc::ComPtr<IVCFrame> cpAudio;
      hr = AudioFrame(llSamples, nBlock, &cpAudio);
      if (FAILED(hr)) {
        std::fprintf(stderr, "%svccodecs sample: no audio frame: %s\n", bProgress ? "\n" : "", HrText(hr).c_str());
        return 1;
      }
      if (!writer.Put(&writer.m_audio, cpAudio.Get())) return 1;
      llSamples += nBlock;
    }
    if (bProgress && (llFrame % 5 == 0 || llFrame + 1 == llFrames)) {
      const double dblSeconds =
          std::chrono::duration<double>(std::chrono::steady_clock::now() - tStart).count();
      char sz[64];
      std::snprintf(sz, sizeof(sz), "%lld/%lld frames, %.1f fps", llFrame + 1, llFrames,
                    dblSeconds > 0 ? static_cast<double>(llFrame + 1) / dblSeconds : 0.0);
      DrawProgress(static_cast<double>(llFrame + 1) / static_cast<double>(llFrames), sz);
    }
  }
  if (bProgress) std::fputc('\n', stderr);
  if (!writer.Finish()) return 1;
  const double dblSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - tStart).count();
  std::printf("%s: %lld video frames (%dx%d at %g fps, %lld packets), %lld audio samples (%lld packets), "
              "%.1f s in %.1f s\n",
              opts.strOut.c_str(), llFrames, opts.nWidth, opts.nHeight, opts.dblRate, writer.m_video.llPackets,
              llSamples, writer.m_audio.llPackets, opts.dblDuration, dblSeconds);
  return 0;
}

}  // namespace vctool
