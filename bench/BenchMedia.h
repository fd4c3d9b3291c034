// What the media benchmarks share: the 30 s 1080p H.264/AAC file of
// bench/make_bench_media.sh (VC_BENCH_MEDIA_DIR, or the environment variable
// of the same name) and a switch that silences both our log and FFmpeg's
// for the run.
#pragma once

#if defined(VC_BENCH_MEDIA_DIR)

extern "C" {
#include <libavutil/log.h>
}

#include <cstdlib>
#include <filesystem>
#include <string>

#include "VCLog.h"

namespace vcbench {

inline std::string BenchFile() {
  const char* szDir = std::getenv("VC_BENCH_MEDIA_DIR");
  return (std::filesystem::path(szDir && *szDir ? szDir : VC_BENCH_MEDIA_DIR) / "h264_aac_1080p_30s.mp4").string();
}

class CLogOff {
 public:
  // The modules keep their own level, read from the environment when they
  // load: set it before the first creation loads them.
  CLogOff() : m_nPrev(vc::LogSetLevel(vc::kLogOff)) {
    setenv("CORVANE_LOG_LEVEL", "off", 0);
    av_log_set_level(AV_LOG_QUIET);
  }
  ~CLogOff() { vc::LogSetLevel(m_nPrev); }
  CLogOff(const CLogOff&) = delete;
  CLogOff& operator=(const CLogOff&) = delete;

 private:
  int m_nPrev;
};

}  // namespace vcbench

#endif  // VC_BENCH_MEDIA_DIR
