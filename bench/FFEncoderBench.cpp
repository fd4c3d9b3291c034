// The general encoder against a plain libavcodec encode loop on the same
// generated frames, in the same run: libx264 veryfast at 1080p and AAC. The
// difference is what the encoder object costs (frame reading, packet
// wrapping, times, queue). Each iteration opens, encodes every frame, drains
// and closes. Report the ratio of the two rates.
// The media module exists on Linux only; elsewhere this file is empty.
#if defined(VC_TEST_MEDIA_DIR)

#include <benchmark/benchmark.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <cmath>
#include <vector>

#include "BenchMedia.h"
#include "FFClasses.h"
#include "FFFrame.h"
#include "FFFrameScale.h"
#include "FFPointers.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCStrings.h"

namespace {

using vc::ff::AvFramePtr;

constexpr int kVideoFrames = 20;
constexpr int kAudioFrames = 200;  // of 1024 samples: about 4 s at 48 kHz

std::vector<AvFramePtr> Pictures() {
  std::vector<AvFramePtr> vec;
  for (int n = 0; n < kVideoFrames; ++n) {
    AvFramePtr sp(av_frame_alloc());
    sp->format = AV_PIX_FMT_YUV420P;
    sp->width = 1920;
    sp->height = 1080;
    av_frame_get_buffer(sp.get(), 0);
    for (int p = 0; p < 3; ++p) {
      const int nRows = p ? 540 : 1080, nCols = p ? 960 : 1920;
      for (int y = 0; y < nRows; ++y)
        for (int x = 0; x < nCols; ++x) sp->data[p][y * sp->linesize[p] + x] = static_cast<uint8_t>((x * (p + 1) + y + 5 * n) & 0xFF);
    }
    sp->pts = n;
    vec.push_back(std::move(sp));
  }
  return vec;
}

std::vector<AvFramePtr> Tones() {
  std::vector<AvFramePtr> vec;
  for (int n = 0; n < kAudioFrames; ++n) {
    AvFramePtr sp;
    vc::ff::AllocAudio(AV_SAMPLE_FMT_S16, 2, 48000, 1024, &sp);
    auto* p = reinterpret_cast<int16_t*>(sp->data[0]);
    for (int i = 0; i < 1024; ++i) p[2 * i] = p[2 * i + 1] = static_cast<int16_t>(8000 * std::sin((n * 1024 + i) * 0.0576));
    sp->pts = int64_t(n) * 1024;
    vec.push_back(std::move(sp));
  }
  return vec;
}

// The module's frames over the same pictures or samples.
std::vector<vc::ComPtr<IVCFrame>> Wrap(const std::vector<AvFramePtr>& vecSrc, bool bVideo) {
  std::vector<vc::ComPtr<IVCFrame>> vec;
  for (size_t n = 0; n < vecSrc.size(); ++n) {
    AvFramePtr sp(av_frame_clone(vecSrc[n].get()));
    const LONGLONG rtStart = bVideo ? LONGLONG(n) * 400000 : LONGLONG(n) * 1024 * 10000000 / 48000;
    K_TIME time{rtStart, VC_TIME_UNSET, {}, eKFF_None};
    vc::ComPtr<IVCFrame> cp;
    vc::ff::FrameFromAVFrame(sp.get(), time, bVideo ? 25.0 : 0, cp.AddressOf());
    vec.push_back(cp);
  }
  return vec;
}

int64_t PlainLoop(const char* szCodec, const std::vector<AvFramePtr>& vecFrames, bool bVideo) {
  const AVCodec* pCodec = avcodec_find_encoder_by_name(szCodec);
  vc::ff::AvCodecContextPtr sp(avcodec_alloc_context3(pCodec));
  SwrContext* pSwr = nullptr;
  if (bVideo) {
    sp->width = 1920;
    sp->height = 1080;
    sp->pix_fmt = AV_PIX_FMT_YUV420P;
    sp->time_base = {1, 25};
    sp->framerate = {25, 1};
    sp->bit_rate = 8000000;
    av_opt_set(sp->priv_data, "preset", "veryfast", 0);
  } else {
    sp->sample_fmt = AV_SAMPLE_FMT_FLTP;
    sp->sample_rate = 48000;
    av_channel_layout_default(&sp->ch_layout, 2);
    sp->time_base = {1, 48000};
    sp->bit_rate = 128000;
    swr_alloc_set_opts2(&pSwr, &sp->ch_layout, AV_SAMPLE_FMT_FLTP, 48000, &sp->ch_layout, AV_SAMPLE_FMT_S16, 48000, 0,
                        nullptr);
    swr_init(pSwr);
  }
  sp->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  avcodec_open2(sp.get(), pCodec, nullptr);
  vc::ff::AvPacketPtr spPacket(av_packet_alloc());
  int64_t llBytes = 0;
  auto receive = [&] {
    while (avcodec_receive_packet(sp.get(), spPacket.get()) == 0) {
      llBytes += spPacket->size;
      av_packet_unref(spPacket.get());
    }
  };
  for (const AvFramePtr& spFrame : vecFrames) {
    if (bVideo) {
      avcodec_send_frame(sp.get(), spFrame.get());
    } else {
      AvFramePtr spFlt;
      vc::ff::AllocAudio(AV_SAMPLE_FMT_FLTP, 2, 48000, 1024, &spFlt);
      swr_convert(pSwr, spFlt->extended_data, 1024, const_cast<const uint8_t**>(spFrame->extended_data), 1024);
      spFlt->pts = spFrame->pts;
      avcodec_send_frame(sp.get(), spFlt.get());
    }
    receive();
  }
  avcodec_send_frame(sp.get(), nullptr);
  receive();
  swr_free(&pSwr);
  return llBytes;
}

int64_t ModuleLoop(const char16_t* szConfig, const std::vector<vc::ComPtr<IVCFrame>>& vecFrames, bool bVideo) {
  vc::ComPtr<IVCEncoder> cp;
  vc::ff::CreateFFEncoder(nullptr, vc::IidOf<IVCEncoder>(), reinterpret_cast<void**>(cp.AddressOf()));
  vc::CBstr bs{vc::StringView(szConfig)};
  cp->EncodeCodecSet(bVideo ? eVCMT_Video : eVCMT_Audio, bs);
  int64_t llPackets = 0;
  auto take = [&] {
    for (;;) {
      vc::ComPtr<IVCPacket> cpPacket;
      if (cp->EncodePacketsGet(cpPacket.AddressOf(), nullptr, 0, nullptr) != S_OK) break;
      ++llPackets;
    }
  };
  for (const auto& cpFrame : vecFrames) {
    cp->EncodeFramePut(cpFrame.Get(), nullptr, nullptr, nullptr);
    take();
  }
  cp->EncodeClose();
  take();
  return llPackets;
}

void BM_PlainX264(benchmark::State& state) {
  const auto vec = Pictures();
  for (auto _ : state) benchmark::DoNotOptimize(PlainLoop("libx264", vec, true));
  state.SetItemsProcessed(state.iterations() * kVideoFrames);
}
void BM_EncoderX264(benchmark::State& state) {
  const auto vec = Wrap(Pictures(), true);
  for (auto _ : state)
    benchmark::DoNotOptimize(ModuleLoop(u"codec=libx264 preset=veryfast bitrate=8000000", vec, true));
  state.SetItemsProcessed(state.iterations() * kVideoFrames);
}
void BM_PlainAac(benchmark::State& state) {
  const auto vec = Tones();
  for (auto _ : state) benchmark::DoNotOptimize(PlainLoop("aac", vec, false));
  state.SetItemsProcessed(state.iterations() * kAudioFrames);
}
void BM_EncoderAac(benchmark::State& state) {
  const auto vec = Wrap(Tones(), false);
  for (auto _ : state) benchmark::DoNotOptimize(ModuleLoop(u"codec=aac bitrate=128000", vec, false));
  state.SetItemsProcessed(state.iterations() * kAudioFrames);
}

// How long a hardware route takes to refuse where its device is missing
// (this machine has no GPU): the encoder facade walks these before the
// software rows, so their refusal is paid on every EncodeCodecSet.
void BM_HardwareRefusal(benchmark::State& state, HRESULT (*pfnCreate)(IUnknown*, REFIID, void**),
                        const char16_t* szConfig) {
  vcbench::CLogOff quiet;
  int64_t llRefused = 0;
  for (auto _ : state) {
    vc::ComPtr<IVCEncoder> cp;
    pfnCreate(nullptr, vc::IidOf<IVCEncoder>(), reinterpret_cast<void**>(cp.AddressOf()));
    vc::CBstr bs{vc::StringView(szConfig)};
    if (FAILED(cp->EncodeCodecSet(eVCMT_Video, bs))) ++llRefused;
  }
  state.counters["refused"] = static_cast<double>(llRefused) / static_cast<double>(state.iterations());
}
BENCHMARK_CAPTURE(BM_HardwareRefusal, nvenc, &vc::ff::CreateFFEncoderNVEnc, u"codec=n264")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_HardwareRefusal, intelqs, &vc::ff::CreateFFEncoderIntelQS, u"codec=q264 hw_only=true")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_HardwareRefusal, amd, &vc::ff::CreateFFEncoderAMD, u"codec=h264_amf amd=true")
    ->Unit(benchmark::kMillisecond);

BENCHMARK(BM_PlainX264)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_EncoderX264)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PlainAac)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_EncoderAac)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

#endif
