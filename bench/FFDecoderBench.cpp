// Frames per second of the software decoder ("FFmpeg A/V") on the H.264 test
// file, next to a plain libavcodec send/receive loop over the same packets
// with the same threading, in the same run: the difference is what the
// decoder object costs (packet copy, frame wrapping, bookkeeping). Each
// iteration opens, decodes every packet, drains and closes.
// The media module exists on Linux only; elsewhere this file is empty.
#if defined(VC_TEST_MEDIA_DIR)

#include <benchmark/benchmark.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "FFClasses.h"
#include "FFCommon.h"
#include "FFPacket.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCStrings.h"

namespace {

struct CPacketFree {
  void operator()(AVPacket* p) const { av_packet_free(&p); }
};
using PacketPtr = std::unique_ptr<AVPacket, CPacketFree>;

// The video packets of the file, kept both as FFmpeg packets (for the plain
// loop) and as the module's packets (for the decoder object).
struct CBenchInput {
  bool bOk = false;
  std::string strError;
  AVCodecParameters* pParams = nullptr;  // owned
  AVRational timeBase{1, 1};
  std::vector<PacketPtr> vecAvPackets;
  std::vector<vc::ComPtr<IVCPacket>> vecPackets;
  K_STREAM_INFO streamInfo{};
  vc::CBstr bsCodecName;
  std::vector<uint8_t> vecCodecData;
};

std::string MediaFile(const char* szName) {
  const char* szDir = std::getenv("VC_TEST_MEDIA_DIR");
  return (std::filesystem::path(szDir && *szDir ? szDir : VC_TEST_MEDIA_DIR) / szName).string();
}

void LoadInput(CBenchInput* pIn) {
  const std::string strPath = MediaFile("h264_aac.mp4");
  AVFormatContext* pFormat = nullptr;
  if (avformat_open_input(&pFormat, strPath.c_str(), nullptr, nullptr) < 0) {
    pIn->strError = "test media missing (" + strPath + "): run tests/media/make_media.sh";
    return;
  }
  std::unique_ptr<AVFormatContext, void (*)(AVFormatContext*)> spFormat(
      pFormat, [](AVFormatContext* p) { avformat_close_input(&p); });
  const int nStream = avformat_find_stream_info(pFormat, nullptr) < 0
                          ? -1
                          : av_find_best_stream(pFormat, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  if (nStream < 0) {
    pIn->strError = "no video stream in " + strPath;
    return;
  }
  const AVStream* pStream = pFormat->streams[nStream];
  pIn->pParams = avcodec_parameters_alloc();
  avcodec_parameters_copy(pIn->pParams, pStream->codecpar);
  pIn->timeBase = pStream->time_base;
  pIn->vecCodecData.assign(pStream->codecpar->extradata, pStream->codecpar->extradata + pStream->codecpar->extradata_size);
  pIn->bsCodecName = vc::CBstr(std::string_view(avcodec_get_name(pStream->codecpar->codec_id)));
  K_STREAM_INFO& info = pIn->streamInfo;
  info.eMediaType = eVCMT_Video;
  info.cbCodecData = static_cast<LONG>(pIn->vecCodecData.size());
  info.lpCodecData = reinterpret_cast<LONGLONG>(pIn->vecCodecData.data());
  info.raTimeBase = {pStream->time_base.num, pStream->time_base.den};
  info.nWidth = pStream->codecpar->width;
  info.nHeight = pStream->codecpar->height;
  info.dblRate = av_q2d(pStream->avg_frame_rate);
  info.bsCodecNameOrTag = pIn->bsCodecName;

  PacketPtr spPacket(av_packet_alloc());
  while (av_read_frame(pFormat, spPacket.get()) >= 0) {
    if (spPacket->stream_index != nStream) {
      av_packet_unref(spPacket.get());
      continue;
    }
    PacketPtr spCopy(av_packet_clone(spPacket.get()));
    K_PACKET_INFO packetInfo{};
    packetInfo.eFlags = (spPacket->flags & AV_PKT_FLAG_KEY) ? eVCPF_KeyFrame : eVCPF_None;
    packetInfo.llDts = spPacket->dts;
    packetInfo.llPts = spPacket->pts;
    K_TIME time{};
    time.rtStartTime = vc::ff::ToRefTime(spPacket->pts, pStream->time_base);
    time.rtEndTime = time.rtStartTime + vc::ff::ToRefTime(spPacket->duration, pStream->time_base);
    vc::ComPtr<IVCPacket> cpPacket;
    if (FAILED(vc::ff::PacketFromAVPacket(spPacket.get(), packetInfo, &info, time, cpPacket.AddressOf()))) {
      pIn->strError = "PacketFromAVPacket failed";
      return;
    }
    pIn->vecAvPackets.push_back(std::move(spCopy));
    pIn->vecPackets.push_back(std::move(cpPacket));
  }
  pIn->bOk = !pIn->vecPackets.empty();
  if (!pIn->bOk) pIn->strError = "no video packets in " + strPath;
}

const CBenchInput& Input() {
  static CBenchInput* s_pInput = [] {
    auto* p = new CBenchInput;  // lives for the process: the packets are used by every benchmark
    LoadInput(p);
    return p;
  }();
  return *s_pInput;
}

// The yardstick: open, send every packet, take every frame, drain, close.
void BM_H264_PlainLibavcodecLoop(benchmark::State& state) {
  const CBenchInput& in = Input();
  if (!in.bOk) {
    state.SkipWithError(in.strError.c_str());
    return;
  }
  const AVCodec* pCodec = avcodec_find_decoder(in.pParams->codec_id);
  AVFrame* pFrame = av_frame_alloc();
  int64_t llFrames = 0;
  for (auto _ : state) {
    AVCodecContext* pContext = avcodec_alloc_context3(pCodec);
    avcodec_parameters_to_context(pContext, in.pParams);
    pContext->pkt_timebase = in.timeBase;
    pContext->thread_count = static_cast<int>(state.range(0));  // 0: FFmpeg's choice, as the decoder object's default
    pContext->thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
    if (avcodec_open2(pContext, pCodec, nullptr) < 0) {
      state.SkipWithError("avcodec_open2 failed");
      avcodec_free_context(&pContext);
      break;
    }
    auto receive = [&] {
      while (avcodec_receive_frame(pContext, pFrame) >= 0) {
        ++llFrames;
        benchmark::DoNotOptimize(pFrame->data[0]);
        av_frame_unref(pFrame);
      }
    };
    for (const PacketPtr& spPacket : in.vecAvPackets) {
      if (avcodec_send_packet(pContext, spPacket.get()) == AVERROR(EAGAIN)) {
        receive();
        avcodec_send_packet(pContext, spPacket.get());
      }
      receive();
    }
    avcodec_send_packet(pContext, nullptr);
    receive();
    avcodec_free_context(&pContext);
  }
  av_frame_free(&pFrame);
  state.counters["fps"] = benchmark::Counter(static_cast<double>(llFrames), benchmark::Counter::kIsRate);
}
// Argument: decoding threads (0: FFmpeg's choice; 1: one thread, where the
// decoder object's own cost per frame shows most).
BENCHMARK(BM_H264_PlainLibavcodecLoop)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// The decoder object on the same packets: DecodeIsSupported, DecodePacket
// per packet, drain with null packets, DecodeClose.
void BM_H264_FFDecoder(benchmark::State& state) {
  const CBenchInput& in = Input();
  if (!in.bOk) {
    state.SkipWithError(in.strError.c_str());
    return;
  }
  vc::ComPtr<IVCDecoder> cpDecoder;
  if (FAILED(vc::ff::CreateFFDecoder(nullptr, vc::IidOf<IVCDecoder>(),
                                     reinterpret_cast<void**>(cpDecoder.AddressOf())))) {
    state.SkipWithError("CreateFFDecoder failed");
    return;
  }
  vc::ComPtr<IVCProps> cpProps;
  cpDecoder.As(&cpProps);
  const vc::CBstr bsThreads{std::string_view("threads")};
  const vc::CBstr bsCount{std::string_view(std::to_string(state.range(0)))};
  if (!cpProps || FAILED(cpProps->PropsSet(bsThreads, bsCount))) {
    state.SkipWithError("the decoder refused the thread count");
    return;
  }
  int64_t llFrames = 0;
  K_STREAM_INFO info = in.streamInfo;
  for (auto _ : state) {
    if (cpDecoder->DecodeIsSupported(&info, nullptr, nullptr) != S_OK) {
      state.SkipWithError("DecodeIsSupported refused the stream");
      break;
    }
    for (const auto& cpPacket : in.vecPackets) {
      vc::ComPtr<IVCFrame> cpFrame;
      if (cpDecoder->DecodePacket(cpPacket.Get(), -1, nullptr, cpFrame.AddressOf(), nullptr) == S_OK) ++llFrames;
    }
    for (;;) {
      vc::ComPtr<IVCFrame> cpFrame;
      if (cpDecoder->DecodePacket(nullptr, -1, nullptr, cpFrame.AddressOf(), nullptr) != S_OK) break;
      ++llFrames;
    }
    cpDecoder->DecodeClose();
  }
  state.counters["fps"] = benchmark::Counter(static_cast<double>(llFrames), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_H264_FFDecoder)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

#endif  // VC_TEST_MEDIA_DIR
