// The transcode report: one self-contained HTML page (inline SVG, no script
// or file it needs besides itself) with plots over time of what the
// transcode sampled while it ran. The transcode command fills a
// TranscodeReport as it goes (one sample about every half second of wall
// time) and writes it once at the end. Main thread.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace vctool {

// One point in time of the run.
struct ReportSample {
  double dblWall = 0.0;      // seconds since the transcode began
  double dblPosition = 0.0;  // media seconds written so far
  // Named series values at this point, for example "bitrate:0" (kbit/s of
  // output stream 0), "fill:video decode" (packets or frames waiting in that
  // queue), "decode_fps:0", "encode_fps:0", "key_distance:0". A series
  // missing from a sample is a gap in its line, not a zero.
  std::map<std::string, double> mapValues;
};

// One plot: the series whose names begin with strPrefix, one line each.
struct ReportPlot {
  std::string strTitle;   // "Bit rate per stream"
  std::string strUnit;    // "kbit/s"
  std::string strPrefix;  // "bitrate:"
};

struct TranscodeReport {
  std::string strInput;
  std::string strOutput;  // the first output file
  std::string strCommand;
  // Label and text pairs shown as a table above the plots: codecs, sizes,
  // wall time, speed, result.
  std::vector<std::pair<std::string, std::string>> vecSummary;
  std::vector<ReportPlot> vecPlots;
  std::vector<ReportSample> vecSamples;
  // Final "stat::" values per facade ("decoder 0", "encoder 1", "muxer"):
  // shown as tables at the end.
  std::map<std::string, std::map<std::string, std::string>> mapStats;
};

// The plots every transcode report has, in this order: bit rate per stream,
// buffer fill, decode frames per second, encode frames per second, key-frame
// distance.
std::vector<ReportPlot> DefaultReportPlots();

// The whole page as text (UTF-8).
std::string ReportHtml(const TranscodeReport& report);

// Writes the page to a file; false with the reason in *pstrError when it
// cannot (the file is then not left half written).
bool WriteReport(const std::string& strPath, const TranscodeReport& report, std::string* pstrError);

}  // namespace vctool
