// The general muxer against a plain libavformat write loop
// (avformat_write_header, av_interleaved_write_frame, av_write_trailer) on
// the same packets held in memory, in the same run: the 30 s 1080p H.264/AAC
// bench file written to mp4 in /dev/shm (the temporary folder where there
// is none), so the disk does not blur the difference. The difference is
// what the muxer object costs: packet records, the stream lookup, its own
// interleaving queue and the time repair. Each iteration writes the whole
// file: open, header, every packet, trailer, close. BM_MuxerVsPlain runs
// both in every iteration and reports the ratio of the muxer's rate to the
// plain loop's ("ratio"; 1.0 means no cost). Logging is off.
// The media module exists on Linux only; elsewhere this file is empty.
#if defined(VC_BENCH_MEDIA_DIR)

#include <benchmark/benchmark.h>

extern "C" {
#include <libavformat/avformat.h>
}

#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "BenchMedia.h"
#include "FFClasses.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCStrings.h"

namespace {

std::string OutPath(const char* szName) {
  const std::filesystem::path dir = std::filesystem::exists("/dev/shm") ? std::filesystem::path("/dev/shm")
                                                                        : std::filesystem::temp_directory_path();
  return (dir / ("vcbench_" + std::to_string(getpid()) + "_" + szName)).string();
}

// The bench file read once: FFmpeg packets and stream parameters for the
// plain loop, the general splitter's packets and descriptions for the muxer.
// Both hold the same payloads and times.
struct CInput {
  bool bOk = false;
  std::vector<AVCodecParameters*> vecPar;
  std::vector<AVRational> vecTimeBase;
  std::vector<AVPacket*> vecPackets;
  vc::ComPtr<IVCSplitter> cpSplitter;  // keeps the descriptions' codec data alive
  std::vector<K_STREAM_INFO> vecInfos;
  std::vector<vc::ComPtr<IVCPacket>> vecVCPackets;

  CInput() {
    const std::string strPath = vcbench::BenchFile();
    if (!std::filesystem::exists(strPath)) return;
    AVFormatContext* pFormat = nullptr;
    if (avformat_open_input(&pFormat, strPath.c_str(), nullptr, nullptr) < 0) return;
    avformat_find_stream_info(pFormat, nullptr);
    for (unsigned n = 0; n < pFormat->nb_streams; ++n) {
      AVCodecParameters* pPar = avcodec_parameters_alloc();
      avcodec_parameters_copy(pPar, pFormat->streams[n]->codecpar);
      vecPar.push_back(pPar);
      vecTimeBase.push_back(pFormat->streams[n]->time_base);
    }
    for (;;) {
      AVPacket* pPacket = av_packet_alloc();
      if (av_read_frame(pFormat, pPacket) < 0) {
        av_packet_free(&pPacket);
        break;
      }
      vecPackets.push_back(pPacket);
    }
    avformat_close_input(&pFormat);

    if (FAILED(vc::ff::CreateFFSplitter(nullptr, vc::IidOf<IVCSplitter>(),
                                        reinterpret_cast<void**>(cpSplitter.AddressOf()))))
      return;
    LONG nStreams = 0;
    if (FAILED(cpSplitter->SplitterOpen(vc::CBstr(std::string_view(strPath)), nullptr, &nStreams))) return;
    for (LONG n = 0; n < nStreams; ++n) {
      K_STREAM_INFO info{};
      vc::CBstr bsXml;
      if (FAILED(cpSplitter->SplitterStreamInfoGet(n, &info, &bsXml))) return;
      vecInfos.push_back(info);
    }
    for (;;) {
      vc::ComPtr<IVCPacket> cpPacket;
      if (cpSplitter->SplitterPacketGet(-1, cpPacket.AddressOf(), nullptr) != S_OK || !cpPacket) break;
      vecVCPackets.push_back(std::move(cpPacket));
    }
    bOk = !vecPackets.empty() && vecPackets.size() == vecVCPackets.size();
  }
  ~CInput() {
    for (AVPacket*& pPacket : vecPackets) av_packet_free(&pPacket);
    for (AVCodecParameters*& pPar : vecPar) avcodec_parameters_free(&pPar);
    for (K_STREAM_INFO& info : vecInfos) SysFreeString(info.bsCodecNameOrTag);
  }
  CInput(const CInput&) = delete;
  CInput& operator=(const CInput&) = delete;
};

const CInput& Input() {
  static vcbench::CLogOff s_logOff;  // before the first creation loads the module
  static CInput s_input;
  return s_input;
}

// One whole file with the plain loop; false on any failure.
bool WritePlain(const CInput& in, const std::string& strPath) {
  AVFormatContext* pFormat = nullptr;
  if (avformat_alloc_output_context2(&pFormat, nullptr, "mp4", strPath.c_str()) < 0) return false;
  bool bOk = avio_open(&pFormat->pb, strPath.c_str(), AVIO_FLAG_WRITE) >= 0;
  for (size_t n = 0; bOk && n < in.vecPar.size(); ++n) {
    AVStream* pStream = avformat_new_stream(pFormat, nullptr);
    bOk = pStream && avcodec_parameters_copy(pStream->codecpar, in.vecPar[n]) >= 0;
    if (bOk) {
      pStream->codecpar->codec_tag = 0;
      pStream->time_base = in.vecTimeBase[n];
    }
  }
  bOk = bOk && avformat_write_header(pFormat, nullptr) >= 0;
  AVPacket* pPacket = av_packet_alloc();
  for (size_t n = 0; bOk && n < in.vecPackets.size(); ++n) {
    const AVPacket* pIn = in.vecPackets[n];
    bOk = av_packet_ref(pPacket, pIn) >= 0;
    if (!bOk) break;
    av_packet_rescale_ts(pPacket, in.vecTimeBase[static_cast<size_t>(pIn->stream_index)],
                         pFormat->streams[pIn->stream_index]->time_base);
    bOk = av_interleaved_write_frame(pFormat, pPacket) >= 0;
  }
  av_packet_free(&pPacket);
  if (bOk) bOk = av_write_trailer(pFormat) >= 0;
  avio_closep(&pFormat->pb);
  avformat_free_context(pFormat);
  return bOk;
}

// The same file through the general muxer.
bool WriteMuxer(const CInput& in, const std::string& strPath) {
  vc::ComPtr<IVCMuxer> cpMuxer;
  if (FAILED(vc::ff::CreateFFMuxer(nullptr, vc::IidOf<IVCMuxer>(), reinterpret_cast<void**>(cpMuxer.AddressOf()))))
    return false;
  if (FAILED(cpMuxer->MuxerSet(vc::CBstr(std::string_view(strPath)), nullptr))) return false;
  for (size_t n = 0; n < in.vecInfos.size(); ++n) {
    LONG nIdx = -1;
    K_STREAM_INFO info = in.vecInfos[n];
    const std::string strProps = "stream_idx=" + std::to_string(n);
    if (FAILED(cpMuxer->MuxerStreamAdd(&info, vc::CBstr(std::string_view(strProps)), &nIdx))) return false;
  }
  for (const vc::ComPtr<IVCPacket>& cpPacket : in.vecVCPackets)
    if (FAILED(cpMuxer->MuxerPacketPut(-1, cpPacket.Get(), nullptr))) return false;
  return SUCCEEDED(cpMuxer->MuxerClose());
}

template <bool (*kWrite)(const CInput&, const std::string&)>
void BM_Write(benchmark::State& state) {
  const CInput& in = Input();
  if (!in.bOk) return state.SkipWithError("bench media missing (run bench/make_bench_media.sh)");
  const std::string strPath = OutPath("mux.mp4");
  for (auto _ : state)
    if (!kWrite(in, strPath)) return state.SkipWithError("write failed");
  std::filesystem::remove(strPath);
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(in.vecPackets.size()));
}

void BM_MuxerVsPlain(benchmark::State& state) {
  const CInput& in = Input();
  if (!in.bOk) return state.SkipWithError("bench media missing (run bench/make_bench_media.sh)");
  const std::string strPath = OutPath("ratio.mp4");
  using Clock = std::chrono::steady_clock;
  Clock::duration plain{}, muxer{};
  for (auto _ : state) {
    const Clock::time_point t0 = Clock::now();
    if (!WritePlain(in, strPath)) return state.SkipWithError("plain write failed");
    const Clock::time_point t1 = Clock::now();
    if (!WriteMuxer(in, strPath)) return state.SkipWithError("muxer write failed");
    muxer += Clock::now() - t1;
    plain += t1 - t0;
  }
  std::filesystem::remove(strPath);
  const auto ms = [&](Clock::duration d) {
    return std::chrono::duration<double, std::milli>(d).count() / static_cast<double>(state.iterations());
  };
  state.counters["plain_ms"] = ms(plain);
  state.counters["muxer_ms"] = ms(muxer);
  state.counters["ratio"] = ms(muxer) > 0 ? ms(plain) / ms(muxer) : 0;
}

BENCHMARK_TEMPLATE(BM_Write, WritePlain)->Name("BM_PlainWrite_mp4")->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Write, WriteMuxer)->Name("BM_MuxerWrite_mp4")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MuxerVsPlain)->Unit(benchmark::kMillisecond)->MinTime(3.0);

}  // namespace

#endif  // VC_BENCH_MEDIA_DIR
