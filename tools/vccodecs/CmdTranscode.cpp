// vccodecs transcode IN OUT [options]: a file through the four facades, as a
// host transcodes: the splitter reads it, a decoder and an encoder per stream
// turn its frames into new packets (or the packets are copied), and the
// muxer writes them. The pipeline (TranscodePipeline.h) runs the stages on
// their own threads; this thread draws the progress bar, samples the run for
// the report and, at the end, prints what was done and every facade's
// "stat::" values. A run that fails removes what it wrote and says so.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "Commands.h"
#include "ToolMedia.h"
#include "ToolModule.h"
#include "TranscodePipeline.h"
#include "TranscodeReport.h"
#include "VCCodecs/VCCodecsBase.h"

namespace vctool {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kCmd = "vccodecs transcode";
constexpr double kSampleSeconds = 0.5;

double Since(Clock::time_point t) { return std::chrono::duration<double>(Clock::now() - t).count(); }

// Frames of the video streams (of all streams when there is no video).
long long ShownFrames(const CTranscodePipeline& pipeline) {
  long long llVideo = 0, llAll = 0;
  bool bVideo = false;
  for (const auto& spStream : pipeline.Streams()) {
    const long long ll = spStream->bCopy ? spStream->llPacketsOut.load() : spStream->llFramesEncoded.load();
    llAll += ll;
    if (spStream->eType == eVCMT_Video) llVideo += ll, bVideo = true;
  }
  return bVideo ? llVideo : llAll;
}

std::string ProgressText(const CTranscodePipeline& pipeline, double dblWall, double dblDuration) {
  const double dblPosition = pipeline.Position();
  const double dblSpeed = dblWall > 0 ? dblPosition / dblWall : 0.0;
  const double dblFps = dblWall > 0 ? static_cast<double>(ShownFrames(pipeline)) / dblWall : 0.0;
  char szLeft[32] = "--";
  if (dblSpeed > 0 && dblDuration > 0) std::snprintf(szLeft, sizeof szLeft, "%.0f s", std::max(0.0, (dblDuration - dblPosition) / dblSpeed));
  char sz[160];
  std::snprintf(sz, sizeof sz, "%.1f/%.1f s  %.2fx  %.1f fps  left %s", dblPosition, dblDuration, dblSpeed, dblFps,
                szLeft);
  return sz;
}

// One report sample: what changed since the previous one.
class CSampler {
 public:
  CSampler(const CTranscodePipeline& pipeline, TranscodeReport* pReport) : m_pipeline(pipeline), m_pReport(pReport) {
    m_vecLast.resize(pipeline.Streams().size());
  }

  void Sample(double dblWall) {
    ReportSample sample;
    sample.dblWall = dblWall;
    sample.dblPosition = m_pipeline.Position();
    const double dblSpan = dblWall - m_dblLastWall;
    if (dblSpan <= 0) return;
    for (size_t n = 0; n < m_pipeline.Streams().size(); ++n) {
      const TranscodeStream& s = *m_pipeline.Streams()[n];
      Counts now{s.llBytesOut.load(), s.llFramesDecoded.load(), s.llFramesEncoded.load()};
      const std::string strIndex = std::to_string(s.nSourceIndex);
      sample.mapValues["bitrate:" + strIndex] = static_cast<double>(now.llBytes - m_vecLast[n].llBytes) * 8 / 1000 / dblSpan;
      if (!s.bCopy) {
        sample.mapValues["decode_fps:" + strIndex] = static_cast<double>(now.llDecoded - m_vecLast[n].llDecoded) / dblSpan;
        sample.mapValues["encode_fps:" + strIndex] = static_cast<double>(now.llEncoded - m_vecLast[n].llEncoded) / dblSpan;
      }
      if (s.eType == eVCMT_Video && s.llKeyDistance > 0)
        sample.mapValues["key_distance:" + strIndex] = static_cast<double>(s.llKeyDistance.load());
      m_vecLast[n] = now;
    }
    for (const auto& [strName, dblFill] : m_pipeline.QueueFills()) sample.mapValues["fill:" + strName] = dblFill;
    m_dblLastWall = dblWall;
    if (m_pReport) m_pReport->vecSamples.push_back(std::move(sample));
  }

 private:
  struct Counts {
    long long llBytes = 0, llDecoded = 0, llEncoded = 0;
  };
  const CTranscodePipeline& m_pipeline;
  TranscodeReport* m_pReport;
  std::vector<Counts> m_vecLast;
  double m_dblLastWall = 0.0;
};

// Waits for the pipeline, drawing the bar and sampling for the report.
void Watch(const CTranscodePipeline& pipeline, double dblDuration, TranscodeReport* pReport, Clock::time_point tStart) {
  const bool bProgress = StderrIsTerminal();
  CSampler sampler(pipeline, pReport);
  double dblNextSample = kSampleSeconds;
  while (pipeline.Running()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const double dblWall = Since(tStart);
    if (pReport && dblWall >= dblNextSample) {
      sampler.Sample(dblWall);
      dblNextSample = dblWall + kSampleSeconds;
    }
    if (bProgress && dblDuration > 0)
      DrawProgress(pipeline.Position() / dblDuration, ProgressText(pipeline, dblWall, dblDuration));
  }
  if (pReport) sampler.Sample(Since(tStart));
  if (bProgress) {
    DrawProgress(1.0, ProgressText(pipeline, Since(tStart), dblDuration));
    std::fprintf(stderr, "\n");
  }
}

// Every facade's statistics by a name: "splitter", "decoder 0", "encoder 0",
// "muxer".
std::map<std::string, std::map<std::string, std::string>> AllStats(const CTranscodePipeline& pipeline) {
  std::map<std::string, std::map<std::string, std::string>> map;
  map["splitter"] = pipeline.SplitterStats();
  for (const auto& spStream : pipeline.Streams()) {
    if (spStream->bCopy) continue;
    map["decoder " + std::to_string(spStream->nSourceIndex)] = spStream->mapDecoderStats;
    map["encoder " + std::to_string(spStream->nSourceIndex)] = spStream->mapEncoderStats;
  }
  map["muxer"] = pipeline.MuxerStats();
  return map;
}

std::string CodecText(const TranscodeStream& s) {
  if (s.bCopy) return "copy";
  return s.strEncoderName.empty() ? s.strCodec : s.strEncoderName;
}

void PrintJson(const TranscodeOptions& opts, const CTranscodePipeline& pipeline, double dblSeconds, bool bOk) {
  const double dblPosition = pipeline.Position();
  std::printf("{\n  \"input\": %s,\n  \"outputs\": [", JsonText(opts.strInput).c_str());
  const std::vector<std::string> vecOutputs = pipeline.Outputs();
  for (size_t n = 0; n < vecOutputs.size(); ++n) std::printf("%s%s", n ? ", " : "", JsonText(vecOutputs[n]).c_str());
  std::printf("],\n  \"result\": %s,\n  \"seconds\": %.3f,\n  \"speed\": %.3f,\n  \"streams\": [", bOk ? "\"ok\"" : "\"failed\"",
              dblSeconds, dblSeconds > 0 ? dblPosition / dblSeconds : 0.0);
  bool bFirst = true;
  for (const auto& spStream : pipeline.Streams()) {
    const TranscodeStream& s = *spStream;
    std::printf("%s\n    {\"index\": %d, \"type\": \"%s\", \"source_codec\": %s, \"codec\": %s, \"packets_in\": %lld, "
                "\"frames_decoded\": %lld, \"frames_encoded\": %lld, \"packets_out\": %lld, \"bytes_out\": %lld}",
                bFirst ? "" : ",", I(s.nSourceIndex), TypeName(s.eType), JsonText(s.strSourceCodec).c_str(),
                JsonText(CodecText(s)).c_str(), s.llPacketsIn.load(), s.llFramesDecoded.load(),
                s.llFramesEncoded.load(), s.llPacketsOut.load(), s.llBytesOut.load());
    bFirst = false;
  }
  std::printf("\n  ],\n  \"stats\": {");
  bFirst = true;
  for (const auto& [strFacade, mapValues] : AllStats(pipeline)) {
    std::printf("%s\n    %s: {", bFirst ? "" : ",", JsonText(strFacade).c_str());
    bool bFirstValue = true;
    for (const auto& [strName, strValue] : mapValues) {
      std::printf("%s%s: %s", bFirstValue ? "" : ", ", JsonText(strName).c_str(), JsonText(strValue).c_str());
      bFirstValue = false;
    }
    std::printf("}");
    bFirst = false;
  }
  std::printf("\n  }\n}\n");
}

void PrintTable(const TranscodeOptions& opts, const CTranscodePipeline& pipeline, double dblSeconds) {
  const double dblPosition = pipeline.Position();
  std::printf("input     %s\noutput    ", opts.strInput.c_str());
  for (const std::string& str : pipeline.Outputs()) std::printf("%s ", str.c_str());
  std::printf("\ntranscoded %.3f s of media in %.3f s, %.2fx real time, %.1f frames per second\n\n", dblPosition,
              dblSeconds, dblSeconds > 0 ? dblPosition / dblSeconds : 0.0,
              dblSeconds > 0 ? static_cast<double>(ShownFrames(pipeline)) / dblSeconds : 0.0);
  std::printf("  #  type   from         to                          packets   decoded   encoded   written\n");
  for (const auto& spStream : pipeline.Streams()) {
    const TranscodeStream& s = *spStream;
    std::printf("  %-2d %-6s %-12s %-25s %10lld %9lld %9lld %9lld\n", I(s.nSourceIndex), TypeName(s.eType),
                s.strSourceCodec.c_str(), CodecText(s).c_str(), s.llPacketsIn.load(), s.llFramesDecoded.load(),
                s.llFramesEncoded.load(), s.llPacketsOut.load());
  }
  std::printf("\nbusy seconds per stage:");
  for (const auto& [strStage, dbl] : pipeline.StageBusySeconds()) std::printf("  %s %.2f", strStage.c_str(), dbl);
  std::printf("\n");
  for (const auto& [strFacade, mapValues] : AllStats(pipeline)) {
    std::printf("\n%s\n", strFacade.c_str());
    for (const auto& [strName, strValue] : mapValues) std::printf("  %-36s %s\n", strName.c_str(), strValue.c_str());
  }
}

void FillReport(const TranscodeOptions& opts, const CTranscodePipeline& pipeline, double dblSeconds, bool bOk,
                TranscodeReport* pReport) {
  pReport->strInput = opts.strInput;
  const std::vector<std::string> vecOutputs = pipeline.Outputs();
  pReport->strOutput = vecOutputs.empty() ? opts.strOutput : vecOutputs.front();
  pReport->strCommand = opts.strCommand;
  pReport->vecPlots = DefaultReportPlots();
  for (const auto& spStream : pipeline.Streams()) {
    const TranscodeStream& s = *spStream;
    pReport->vecSummary.emplace_back("stream " + std::to_string(s.nSourceIndex),
                                     std::string(TypeName(s.eType)) + " " + s.strSourceCodec + " -> " + CodecText(s));
  }
  char sz[96];
  std::snprintf(sz, sizeof sz, "%.3f s", dblSeconds);
  pReport->vecSummary.emplace_back("wall time", sz);
  std::snprintf(sz, sizeof sz, "%.2fx real time", dblSeconds > 0 ? pipeline.Position() / dblSeconds : 0.0);
  pReport->vecSummary.emplace_back("speed", sz);
  pReport->vecSummary.emplace_back("result", bOk ? "ok" : pipeline.ErrorText());
  pReport->mapStats = AllStats(pipeline);
}

// The run failed: what it wrote is not a usable file, so it goes.
void RemoveOutputs(const std::vector<std::string>& vecOutputs) {
  for (const std::string& str : vecOutputs) {
    if (std::remove(str.c_str()) == 0) {
      std::fprintf(stderr, "%s: the unfinished %s was removed\n", kCmd, str.c_str());
    } else {
      std::FILE* pFile = std::fopen(str.c_str(), "rb");
      if (pFile) {
        std::fclose(pFile);
        std::fprintf(stderr, "%s: %s is INCOMPLETE and could not be removed\n", kCmd, str.c_str());
      }
    }
  }
}

bool WriteReportFile(const std::string& strPath, const TranscodeReport& report) {
  std::string strError;
  if (WriteReport(strPath, report, &strError)) return true;
  std::fprintf(stderr, "%s: the report %s was not written: %s\n", kCmd, strPath.c_str(), strError.c_str());
  return false;
}

}  // namespace

int CmdTranscode(const std::vector<std::string>& args) {
  const Clock::time_point tStart = Clock::now();
  TranscodeOptions opts;
  if (!ParseTranscodeArgs(args, &opts)) return 1;
  Source source;
  if (!OpenSource("transcode", opts.strInput, &source)) return 2;
  CTranscodePipeline pipeline(opts);
  if (!pipeline.Prepare(&source)) {
    pipeline.Finish();
    RemoveOutputs(pipeline.Outputs());
    source.cpSplitter->SplitterClose();
    return 2;
  }
  pipeline.Start();
  TranscodeReport report;
  Watch(pipeline, static_cast<double>(source.rtDuration) / VC_TIME_SECOND, opts.strReport.empty() ? nullptr : &report,
        tStart);
  const bool bOk = pipeline.Finish();
  const double dblSeconds = Since(tStart);
  source.cpSplitter->SplitterClose();
  if (opts.bJson) {
    PrintJson(opts, pipeline, dblSeconds, bOk);
  } else {
    PrintTable(opts, pipeline, dblSeconds);
  }
  bool bReportOk = true;
  if (!opts.strReport.empty()) {
    FillReport(opts, pipeline, dblSeconds, bOk, &report);
    bReportOk = WriteReportFile(opts.strReport, report);
  }
  if (!bOk) {
    std::fprintf(stderr, "%s: %s\n", kCmd, pipeline.ErrorText().c_str());
    RemoveOutputs(pipeline.Outputs());
    return 3;
  }
  return bReportOk ? 0 : 4;
}

}  // namespace vctool
