// Frames per second of the decoder facade against the inner "FFmpeg A/V"
// decoder called directly, on the same packets, in the same run. Both are
// created the way a host creates them (CoCreateInstance: the facade from the
// core module, the inner decoder from the media module); the facade's
// hardware entries are switched off, so it installs that same inner decoder
// and the difference is what the facade adds per packet (selection check,
// time repair, packet queue and attach, statistics). Each iteration makes
// the decoder take the stream, decodes every packet, drains and closes.
// Arguments: the stream (0: the video, 750 packets of 1080p H.264; 1: the
// audio, about 1400 AAC packets, where the per-packet cost shows most) and
// the decoding threads ("threads": 0 is FFmpeg's choice; with 1 the
// facade's own cost per frame is not hidden behind the decoding threads).
// BM_DecoderFacadeOverDirect alternates the two within each iteration and
// reports their ratio ("facade_per_direct", the goal is 0.98 or more), which
// holds up better than two separate runs on a busy machine.
// The file is the 30 s 1080p H.264/AAC MP4 of bench/make_bench_media.sh
// (VC_BENCH_MEDIA_DIR, or the environment variable of the same name); the
// benchmarks skip without it. Logging is off.
#if defined(VC_BENCH_MEDIA_DIR)

#include <benchmark/benchmark.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "BenchMedia.h"
#include "FFCommon.h"
#include "FFPacket.h"
#include "VCCodecs/VCInnerClasses.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCLog.h"
#include "VCStrings.h"

namespace {

using vcbench::BenchFile;
using vcbench::CLogOff;

// One stream's packets as the media module's packets, with a description
// the way a splitter fills it.
struct CStreamPackets {
  K_STREAM_INFO info{};
  vc::CBstr bsCodecName;
  std::vector<uint8_t> vecCodecData;
  std::vector<vc::ComPtr<IVCPacket>> vecPackets;
};

struct CBenchInput {
  bool bOk = false;
  std::string strError;
  CStreamPackets streams[2];  // video, audio
};

void Describe(const AVStream& stream, CStreamPackets* pOut) {
  const AVCodecParameters& par = *stream.codecpar;
  pOut->vecCodecData.assign(par.extradata, par.extradata + par.extradata_size);
  pOut->bsCodecName = vc::CBstr(std::string_view(avcodec_get_name(par.codec_id)));
  K_STREAM_INFO& info = pOut->info;
  info.eMediaType = par.codec_type == AVMEDIA_TYPE_VIDEO ? eVCMT_Video : eVCMT_Audio;
  info.cbCodecData = static_cast<LONG>(pOut->vecCodecData.size());
  info.lpCodecData = reinterpret_cast<LONGLONG>(pOut->vecCodecData.data());
  info.raTimeBase = {stream.time_base.num, stream.time_base.den};
  info.nWidth = par.width;
  info.nHeight = par.height;
  info.dblRate = par.codec_type == AVMEDIA_TYPE_VIDEO ? av_q2d(stream.avg_frame_rate) : 0.0;
  info.nSampleRate = par.sample_rate;
  info.nChannels = par.ch_layout.nb_channels;
  info.nBlockAlign = par.block_align;
  info.nBitsPerCodedSample = par.bits_per_coded_sample;
  info.nBitrate = static_cast<LONG>(par.bit_rate);
  info.bsCodecNameOrTag = pOut->bsCodecName;
}

void LoadInput(CBenchInput* pIn) {
  const std::string strPath = BenchFile();
  AVFormatContext* pFormat = nullptr;
  if (avformat_open_input(&pFormat, strPath.c_str(), nullptr, nullptr) < 0) {
    pIn->strError = "bench media missing (" + strPath + "): run bench/make_bench_media.sh";
    return;
  }
  std::unique_ptr<AVFormatContext, void (*)(AVFormatContext*)> spFormat(
      pFormat, [](AVFormatContext* p) { avformat_close_input(&p); });
  if (avformat_find_stream_info(pFormat, nullptr) < 0) {
    pIn->strError = "no stream information in " + strPath;
    return;
  }
  int nIndex[2] = {av_find_best_stream(pFormat, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0),
                   av_find_best_stream(pFormat, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0)};
  if (nIndex[0] < 0 || nIndex[1] < 0) {
    pIn->strError = "no video or no audio stream in " + strPath;
    return;
  }
  for (int k = 0; k < 2; ++k) Describe(*pFormat->streams[nIndex[k]], &pIn->streams[k]);

  AVPacket* pPacket = av_packet_alloc();
  while (av_read_frame(pFormat, pPacket) >= 0) {
    const int k = pPacket->stream_index == nIndex[0] ? 0 : pPacket->stream_index == nIndex[1] ? 1 : -1;
    if (k < 0) {
      av_packet_unref(pPacket);
      continue;
    }
    const AVRational tb = pFormat->streams[pPacket->stream_index]->time_base;
    K_PACKET_INFO info{};
    info.eFlags = (pPacket->flags & AV_PKT_FLAG_KEY) ? eVCPF_KeyFrame : eVCPF_None;
    if (pPacket->flags & AV_PKT_FLAG_DISCARD) info.eFlags = static_cast<eVCPacketFlags>(info.eFlags | eVCPF_AvDiscard);
    info.llDts = pPacket->dts;
    info.llPts = pPacket->pts;
    info.llDuration = pPacket->duration;
    info.nStreamIndex = pPacket->stream_index;
    K_TIME time{};
    time.rtStartTime = vc::ff::ToRefTime(pPacket->pts != AV_NOPTS_VALUE ? pPacket->pts : pPacket->dts, tb);
    time.rtEndTime = time.rtStartTime + vc::ff::ToRefTime(pPacket->duration, tb);
    vc::ComPtr<IVCPacket> cpPacket;
    if (FAILED(vc::ff::PacketFromAVPacket(pPacket, info, &pIn->streams[k].info, time, cpPacket.AddressOf()))) {
      pIn->strError = "PacketFromAVPacket failed";
      av_packet_free(&pPacket);
      return;
    }
    pIn->streams[k].vecPackets.push_back(std::move(cpPacket));
  }
  av_packet_free(&pPacket);
  pIn->bOk = !pIn->streams[0].vecPackets.empty() && !pIn->streams[1].vecPackets.empty();
  if (!pIn->bOk) pIn->strError = "no packets in " + strPath;
}

const CBenchInput& Input() {
  static CBenchInput* s_pInput = [] {
    CLogOff logOff;
    auto* p = new CBenchInput;  // lives for the process: every benchmark decodes these packets
    LoadInput(p);
    return p;
  }();
  return *s_pInput;
}

bool SetProp(IUnknown* pObject, const char* szName, const char* szValue) {
  vc::ComPtr<IVCProps> cpProps;
  if (FAILED(pObject->QueryInterface(IID_IVCProps, reinterpret_cast<void**>(cpProps.AddressOf())))) return false;
  return SUCCEEDED(cpProps->PropsSet(vc::CBstr(std::string_view(szName)), vc::CBstr(std::string_view(szValue))));
}

// The inner decoder as the module serves it, or the facade with only the
// software entry left in its table; the facade hands "threads" on to the
// decoder it installs.
vc::ComPtr<IVCDecoder> NewDecoder(bool bFacade, int64_t nThreads) {
  vc::ComPtr<IVCDecoder> cpDecoder;
  if (FAILED(CoCreateInstance(bFacade ? CLSID_VCDecoder : vc::CLSID_GeneralDecoder, nullptr, CLSCTX_INPROC_SERVER,
                              IID_IVCDecoder, reinterpret_cast<void**>(cpDecoder.AddressOf()))))
    return nullptr;
  if (!SetProp(cpDecoder.Get(), "threads", std::to_string(nThreads).c_str())) return nullptr;
  if (bFacade && (!SetProp(cpDecoder.Get(), "decoder.nvidia", "false") ||
                  !SetProp(cpDecoder.Get(), "decoder.quicksync", "false")))
    return nullptr;
  return cpDecoder;
}

// Takes the stream, decodes every packet, drains, closes. The frames that
// came out, or -1 when the decoder refused the stream.
int64_t DecodeStream(IVCDecoder* pDecoder, const CStreamPackets& stream) {
  K_STREAM_INFO info = stream.info;
  if (pDecoder->DecodeIsSupported(&info, stream.vecPackets.front().Get(), nullptr) != S_OK) return -1;
  int64_t llFrames = 0;
  for (const vc::ComPtr<IVCPacket>& cpPacket : stream.vecPackets) {
    vc::ComPtr<IVCFrame> cpFrame;
    if (pDecoder->DecodePacket(cpPacket.Get(), -1, nullptr, cpFrame.AddressOf(), nullptr) == S_OK && cpFrame)
      ++llFrames;
  }
  for (;;) {
    vc::ComPtr<IVCFrame> cpFrame;
    if (pDecoder->DecodePacket(nullptr, -1, nullptr, cpFrame.AddressOf(), nullptr) != S_OK || !cpFrame) break;
    ++llFrames;
  }
  pDecoder->DecodeClose();
  return llFrames;
}

std::string Label(const benchmark::State& state) {
  return std::string(state.range(0) == 0 ? "video" : "audio") + ", threads " + std::to_string(state.range(1));
}

void BM_Decoder(benchmark::State& state, bool bFacade) {
  CLogOff logOff;
  const CBenchInput& in = Input();
  if (!in.bOk) return state.SkipWithError(in.strError.c_str());
  if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) return state.SkipWithError("no apartment");
  const CStreamPackets& stream = in.streams[state.range(0)];
  state.SetLabel(Label(state));
  int64_t llFrames = 0;
  {
    vc::ComPtr<IVCDecoder> cpDecoder = NewDecoder(bFacade, state.range(1));
    if (!cpDecoder) {
      state.SkipWithError("the decoder could not be created");
    } else {
      for (auto _ : state) {
        const int64_t llRun = DecodeStream(cpDecoder.Get(), stream);
        if (llRun <= 0) {
          state.SkipWithError("the decoder refused the stream or gave no frame");
          break;
        }
        llFrames += llRun;
      }
    }
  }
  state.counters["fps"] = benchmark::Counter(static_cast<double>(llFrames), benchmark::Counter::kIsRate);
  CoUninitialize();
}

void BM_DecoderDirect(benchmark::State& state) { BM_Decoder(state, false); }
void BM_DecoderFacade(benchmark::State& state) { BM_Decoder(state, true); }

// Direct and facade by turns, each timed on its own: the ratio of their
// frame rates over the whole run.
void BM_DecoderFacadeOverDirect(benchmark::State& state) {
  CLogOff logOff;
  const CBenchInput& in = Input();
  if (!in.bOk) return state.SkipWithError(in.strError.c_str());
  if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) return state.SkipWithError("no apartment");
  const CStreamPackets& stream = in.streams[state.range(0)];
  state.SetLabel(Label(state));
  using Clock = std::chrono::steady_clock;
  double dblSeconds[2] = {0, 0};
  int64_t llFrames[2] = {0, 0};
  {
    vc::ComPtr<IVCDecoder> cpDecoders[2] = {NewDecoder(false, state.range(1)), NewDecoder(true, state.range(1))};
    if (!cpDecoders[0] || !cpDecoders[1]) {
      state.SkipWithError("the decoders could not be created");
    } else {
      int nTurn = 0;
      for (auto _ : state) {
        // Alternate which goes first, so neither always meets a warm cache.
        for (int k = 0; k < 2; ++k) {
          const int n = (k + nTurn) % 2;
          const Clock::time_point t0 = Clock::now();
          const int64_t llRun = DecodeStream(cpDecoders[n].Get(), stream);
          dblSeconds[n] += std::chrono::duration<double>(Clock::now() - t0).count();
          if (llRun <= 0) {
            state.SkipWithError("a decoder refused the stream or gave no frame");
            break;
          }
          llFrames[n] += llRun;
        }
        ++nTurn;
      }
    }
  }
  if (dblSeconds[0] > 0 && dblSeconds[1] > 0 && llFrames[0] > 0) {
    const double dblDirect = static_cast<double>(llFrames[0]) / dblSeconds[0];
    const double dblFacade = static_cast<double>(llFrames[1]) / dblSeconds[1];
    state.counters["direct_fps"] = dblDirect;
    state.counters["facade_fps"] = dblFacade;
    state.counters["facade_per_direct"] = dblFacade / dblDirect;
  }
  CoUninitialize();
}

// Real time: the decoders' threads do most of the work.
void Cases(benchmark::internal::Benchmark* pBench) {
  pBench->Args({0, 0})->Args({0, 1})->Args({1, 0})->UseRealTime()->Unit(benchmark::kMillisecond);
}
BENCHMARK(BM_DecoderDirect)->Apply(Cases);
BENCHMARK(BM_DecoderFacade)->Apply(Cases);
BENCHMARK(BM_DecoderFacadeOverDirect)->Apply(Cases);

}  // namespace

#endif  // VC_BENCH_MEDIA_DIR
