// The general splitter against a plain libavformat loop on the same file, in
// the same run: packets per second of av_read_frame alone, and of the
// splitter handing out each packet as an IVCPacket with its records. Two
// shapes: end to end (open, every packet, close) and reading only (every
// packet of a source opened once; the untimed return to the start between
// iterations is a seek for the plain loop and a segment start, which opens
// the file again, for the splitter). Logging is off, as in
// production with the default level. The media come from
// tests/media/make_media.sh (VC_TEST_MEDIA_DIR, or the environment variable
// of the same name).
#include <benchmark/benchmark.h>

extern "C" {
#include <libavformat/avformat.h>
}

#include <cstdlib>
#include <filesystem>
#include <string>

#include "FFClasses.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCLog.h"
#include "VCStrings.h"

namespace {

std::string MediaFile(const char* szName) {
  const char* szDir = std::getenv("VC_TEST_MEDIA_DIR");
  return (std::filesystem::path(szDir && *szDir ? szDir : VC_TEST_MEDIA_DIR) / szName).string();
}

class CLogOff {
 public:
  CLogOff() : m_nPrev(vc::LogSetLevel(vc::kLogOff)) { av_log_set_level(AV_LOG_QUIET); }
  ~CLogOff() { vc::LogSetLevel(m_nPrev); }

 private:
  int m_nPrev;
};

// --- The plain loop -----------------------------------------------------------

AVFormatContext* OpenPlain(const std::string& strPath) {
  AVFormatContext* pFormat = nullptr;
  if (avformat_open_input(&pFormat, strPath.c_str(), nullptr, nullptr) < 0) return nullptr;
  if (avformat_find_stream_info(pFormat, nullptr) < 0) avformat_close_input(&pFormat);
  return pFormat;
}

int64_t ReadPlain(AVFormatContext* pFormat, AVPacket* pPacket) {
  int64_t llPackets = 0;
  while (av_read_frame(pFormat, pPacket) >= 0) {
    benchmark::DoNotOptimize(pPacket->data);
    av_packet_unref(pPacket);
    ++llPackets;
  }
  return llPackets;
}

void BM_PlainEndToEnd(benchmark::State& state, const char* szFile) {
  const std::string strPath = MediaFile(szFile);
  if (!std::filesystem::exists(strPath)) return state.SkipWithError("test media missing");
  CLogOff logOff;
  AVPacket* pPacket = av_packet_alloc();
  int64_t llPackets = 0;
  for (auto _ : state) {
    AVFormatContext* pFormat = OpenPlain(strPath);
    if (!pFormat) return state.SkipWithError("open failed");
    llPackets += ReadPlain(pFormat, pPacket);
    avformat_close_input(&pFormat);
  }
  av_packet_free(&pPacket);
  state.SetItemsProcessed(llPackets);
}

void BM_PlainReadOnly(benchmark::State& state, const char* szFile) {
  const std::string strPath = MediaFile(szFile);
  if (!std::filesystem::exists(strPath)) return state.SkipWithError("test media missing");
  CLogOff logOff;
  AVFormatContext* pFormat = OpenPlain(strPath);
  if (!pFormat) return state.SkipWithError("open failed");
  AVPacket* pPacket = av_packet_alloc();
  int64_t llPackets = 0;
  for (auto _ : state) {
    state.PauseTiming();
    avformat_seek_file(pFormat, -1, INT64_MIN, 0, 0, 0);
    state.ResumeTiming();
    llPackets += ReadPlain(pFormat, pPacket);
  }
  av_packet_free(&pPacket);
  avformat_close_input(&pFormat);
  state.SetItemsProcessed(llPackets);
}

// --- The splitter ---------------------------------------------------------------

vc::ComPtr<IVCSplitter> OpenSplitter(const std::string& strPath) {
  vc::ComPtr<IVCSplitter> cpSplitter;
  if (FAILED(vc::ff::CreateFFSplitter(nullptr, vc::IidOf<IVCSplitter>(),
                                      reinterpret_cast<void**>(cpSplitter.AddressOf()))))
    return nullptr;
  LONG nStreams = 0;
  if (FAILED(cpSplitter->SplitterOpen(vc::CBstr(std::string_view(strPath)), nullptr, &nStreams))) return nullptr;
  return cpSplitter;
}

int64_t ReadSplitter(IVCSplitter* pSplitter) {
  int64_t llPackets = 0;
  for (;;) {
    vc::ComPtr<IVCPacket> cpPacket;
    if (FAILED(pSplitter->SplitterPacketGet(-1, cpPacket.AddressOf(), nullptr))) break;
    benchmark::DoNotOptimize(cpPacket.Get());
    ++llPackets;
  }
  return llPackets;
}

void BM_SplitterEndToEnd(benchmark::State& state, const char* szFile) {
  const std::string strPath = MediaFile(szFile);
  if (!std::filesystem::exists(strPath)) return state.SkipWithError("test media missing");
  CLogOff logOff;
  int64_t llPackets = 0;
  for (auto _ : state) {
    vc::ComPtr<IVCSplitter> cpSplitter = OpenSplitter(strPath);
    if (!cpSplitter) return state.SkipWithError("open failed");
    llPackets += ReadSplitter(cpSplitter.Get());
    cpSplitter->SplitterClose();
  }
  state.SetItemsProcessed(llPackets);
}

void BM_SplitterReadOnly(benchmark::State& state, const char* szFile) {
  const std::string strPath = MediaFile(szFile);
  if (!std::filesystem::exists(strPath)) return state.SkipWithError("test media missing");
  CLogOff logOff;
  vc::ComPtr<IVCSplitter> cpSplitter = OpenSplitter(strPath);
  if (!cpSplitter) return state.SkipWithError("open failed");
  int64_t llPackets = 0;
  for (auto _ : state) {
    state.PauseTiming();
    cpSplitter->SplitterBeginSegment(0, nullptr);
    state.ResumeTiming();
    llPackets += ReadSplitter(cpSplitter.Get());
  }
  state.SetItemsProcessed(llPackets);
}

BENCHMARK_CAPTURE(BM_PlainEndToEnd, h264_aac_mp4, "h264_aac.mp4");
BENCHMARK_CAPTURE(BM_SplitterEndToEnd, h264_aac_mp4, "h264_aac.mp4");
BENCHMARK_CAPTURE(BM_PlainReadOnly, h264_aac_mp4, "h264_aac.mp4");
BENCHMARK_CAPTURE(BM_SplitterReadOnly, h264_aac_mp4, "h264_aac.mp4");
BENCHMARK_CAPTURE(BM_PlainEndToEnd, mpeg2_pcm_mxf, "mpeg2_pcm.mxf");
BENCHMARK_CAPTURE(BM_SplitterEndToEnd, mpeg2_pcm_mxf, "mpeg2_pcm.mxf");
BENCHMARK_CAPTURE(BM_PlainReadOnly, mpeg2_mp2_2prog_ts, "mpeg2_mp2_2prog.ts");
BENCHMARK_CAPTURE(BM_SplitterReadOnly, mpeg2_mp2_2prog_ts, "mpeg2_mp2_2prog.ts");

}  // namespace
