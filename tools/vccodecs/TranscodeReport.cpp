// The transcode report page. The plots are SVG written here by hand: a page
// that must open from a mail attachment or a CI artefact folder years later
// cannot depend on a script library or a font being reachable.
#include "TranscodeReport.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <system_error>

namespace vctool {

namespace {

// Plot geometry in SVG user units; the page scales the picture to its width.
constexpr double kPlotWidth = 760.0;
constexpr double kPlotHeight = 240.0;
constexpr double kMarginLeft = 64.0;
constexpr double kMarginRight = 16.0;
constexpr double kMarginTop = 12.0;
constexpr double kMarginBottom = 40.0;
constexpr double kLegendRow = 18.0;
// About the width of one legend character at the legend's font size.
constexpr double kLegendCharWidth = 6.6;
constexpr int kTicksWanted = 6;

// Distinct on screen and still apart when printed in grey.
constexpr const char* kColours[] = {"#1f77b4", "#d62728", "#2ca02c", "#ff7f0e",
                                    "#9467bd", "#8c564b", "#e377c2", "#17becf"};

std::string Escape(const std::string& str) {
  std::string strOut;
  strOut.reserve(str.size());
  for (char c : str) {
    switch (c) {
      case '&': strOut += "&amp;"; break;
      case '<': strOut += "&lt;"; break;
      case '>': strOut += "&gt;"; break;
      case '"': strOut += "&quot;"; break;
      case '\'': strOut += "&#39;"; break;
      default: strOut += c;
    }
  }
  return strOut;
}

// Coordinates: two decimals are below a pixel and keep the page small.
std::string Coord(double dbl) {
  char sz[32];
  std::snprintf(sz, sizeof(sz), "%.2f", dbl);
  return sz;
}

// A tick label with as many decimals as the tick step needs.
std::string TickText(double dblValue, double dblStep) {
  const int nDecimals = dblStep >= 1.0 ? 0 : std::min(6, static_cast<int>(std::ceil(-std::log10(dblStep) - 1e-9)));
  char sz[48];
  std::snprintf(sz, sizeof(sz), "%.*f", nDecimals, std::abs(dblValue) < dblStep * 1e-6 ? 0.0 : dblValue);
  return sz;
}

// A step of 1, 2 or 5 times a power of ten that cuts the span into about
// kTicksWanted parts.
double NiceStep(double dblSpan) {
  const double dblRaw = dblSpan / kTicksWanted;
  const double dblPower = std::pow(10.0, std::floor(std::log10(dblRaw)));
  const double dblFraction = dblRaw / dblPower;
  const double dblNice = dblFraction <= 1.0 ? 1.0 : dblFraction <= 2.0 ? 2.0 : dblFraction <= 5.0 ? 5.0 : 10.0;
  return dblNice * dblPower;
}

// An axis range widened to whole ticks; a flat range gets some room around it.
struct Axis {
  double dblMin = 0.0, dblMax = 1.0, dblStep = 0.2;
};

Axis MakeAxis(double dblLow, double dblHigh) {
  if (!(dblHigh > dblLow)) {
    const double dblPad = dblLow == 0.0 ? 1.0 : std::abs(dblLow) * 0.1;
    dblLow -= dblPad;
    dblHigh += dblPad;
  }
  Axis axis;
  axis.dblStep = NiceStep(dblHigh - dblLow);
  axis.dblMin = std::floor(dblLow / axis.dblStep + 1e-9) * axis.dblStep;
  axis.dblMax = std::ceil(dblHigh / axis.dblStep - 1e-9) * axis.dblStep;
  return axis;
}

// One series: the value at each sample, NaN where the sample has none.
struct Series {
  std::string strName;  // the part after the plot's prefix
  std::vector<double> vecValues;
};

std::vector<Series> CollectSeries(const ReportPlot& plot, const std::vector<ReportSample>& vecSamples) {
  std::map<std::string, Series> mapSeries;
  for (size_t i = 0; i < vecSamples.size(); ++i) {
    for (const auto& [strKey, dblValue] : vecSamples[i].mapValues) {
      if (strKey.compare(0, plot.strPrefix.size(), plot.strPrefix) != 0 || !std::isfinite(dblValue)) continue;
      Series& series = mapSeries[strKey];
      if (series.vecValues.empty()) {
        series.strName = strKey.substr(plot.strPrefix.size());
        series.vecValues.assign(vecSamples.size(), std::nan(""));
      }
      series.vecValues[i] = dblValue;
    }
  }
  std::vector<Series> vecOut;
  for (auto& [strKey, series] : mapSeries) vecOut.push_back(std::move(series));
  return vecOut;
}

// Legend entries laid out left to right, wrapping to a new row when full.
// Returns the rows used.
int LegendRows(const std::vector<Series>& vecSeries) {
  double dblX = kMarginLeft;
  int nRows = vecSeries.empty() ? 0 : 1;
  for (const Series& series : vecSeries) {
    const double dblWidth = 28.0 + kLegendCharWidth * static_cast<double>(series.strName.size()) + 16.0;
    if (dblX + dblWidth > kPlotWidth - kMarginRight && dblX > kMarginLeft) {
      ++nRows;
      dblX = kMarginLeft;
    }
    dblX += dblWidth;
  }
  return nRows;
}

void AppendLegend(const std::vector<Series>& vecSeries, double dblTop, std::string* pstr) {
  double dblX = kMarginLeft;
  double dblY = dblTop;
  for (size_t i = 0; i < vecSeries.size(); ++i) {
    const std::string& strName = vecSeries[i].strName;
    const double dblWidth = 28.0 + kLegendCharWidth * static_cast<double>(strName.size()) + 16.0;
    if (dblX + dblWidth > kPlotWidth - kMarginRight && dblX > kMarginLeft) {
      dblX = kMarginLeft;
      dblY += kLegendRow;
    }
    const char* szColour = kColours[i % std::size(kColours)];
    *pstr += "<g class=\"legend\"><line x1=\"" + Coord(dblX) + "\" y1=\"" + Coord(dblY - 4) + "\" x2=\"" +
             Coord(dblX + 22) + "\" y2=\"" + Coord(dblY - 4) + "\" stroke=\"" + szColour +
             "\" stroke-width=\"2.5\"/><text x=\"" + Coord(dblX + 28) + "\" y=\"" + Coord(dblY) + "\">" +
             Escape(strName) + "</text></g>\n";
    dblX += dblWidth;
  }
}

// The path of one series: a move starts every run of consecutive values, so
// a sample without a value leaves a gap. A run of one value is drawn as a
// dot (a zero-length segment with round caps).
std::string SeriesPath(const Series& series, const std::vector<ReportSample>& vecSamples,
                       const std::function<double(double)>& fnX, const std::function<double(double)>& fnY) {
  std::string strD;
  bool bInRun = false;
  for (size_t i = 0; i < series.vecValues.size(); ++i) {
    const double dblValue = series.vecValues[i];
    if (std::isnan(dblValue)) {
      bInRun = false;
      continue;
    }
    const bool bAlone = (i + 1 >= series.vecValues.size() || std::isnan(series.vecValues[i + 1])) && !bInRun;
    strD += (bInRun ? " L" : (strD.empty() ? "M" : " M")) + Coord(fnX(vecSamples[i].dblWall)) + " " +
            Coord(fnY(dblValue));
    if (bAlone) strD += " l0 0";
    bInRun = true;
  }
  return strD;
}

void AppendPlot(const ReportPlot& plot, const std::vector<ReportSample>& vecSamples, std::string* pstr) {
  const std::vector<Series> vecSeries = CollectSeries(plot, vecSamples);
  const double dblLegendTop = kPlotHeight + kLegendRow;
  const double dblHeight = kPlotHeight + kLegendRow * (LegendRows(vecSeries) + 0.5);
  const double dblLeft = kMarginLeft, dblRight = kPlotWidth - kMarginRight;
  const double dblTop = kMarginTop, dblBottom = kPlotHeight - kMarginBottom;

  *pstr += "<section class=\"plot\">\n<h3>" + Escape(plot.strTitle) + "</h3>\n";
  *pstr += "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " + Coord(kPlotWidth) + " " + Coord(dblHeight) +
           "\" role=\"img\" aria-label=\"" + Escape(plot.strTitle) + "\">\n";
  *pstr += "<rect class=\"frame\" x=\"" + Coord(dblLeft) + "\" y=\"" + Coord(dblTop) + "\" width=\"" +
           Coord(dblRight - dblLeft) + "\" height=\"" + Coord(dblBottom - dblTop) + "\"/>\n";
  if (vecSeries.empty()) {
    *pstr += "<text class=\"nodata\" x=\"" + Coord((dblLeft + dblRight) / 2) + "\" y=\"" +
             Coord((dblTop + dblBottom) / 2) + "\">no data</text>\n</svg>\n</section>\n";
    return;
  }

  double dblWallLow = INFINITY, dblWallHigh = -INFINITY, dblLow = 0.0, dblHigh = 0.0;
  for (const Series& series : vecSeries) {
    for (size_t i = 0; i < series.vecValues.size(); ++i) {
      if (std::isnan(series.vecValues[i])) continue;
      dblWallLow = std::min(dblWallLow, vecSamples[i].dblWall);
      dblWallHigh = std::max(dblWallHigh, vecSamples[i].dblWall);
      dblLow = std::min(dblLow, series.vecValues[i]);
      dblHigh = std::max(dblHigh, series.vecValues[i]);
    }
  }
  // Time starts at the run's start: a plot that begins late shows that.
  const Axis xAxis = MakeAxis(std::min(0.0, dblWallLow), dblWallHigh);
  const Axis yAxis = MakeAxis(dblLow, dblHigh);
  auto fnX = [&](double dbl) {
    return dblLeft + (dbl - xAxis.dblMin) / (xAxis.dblMax - xAxis.dblMin) * (dblRight - dblLeft);
  };
  auto fnY = [&](double dbl) {
    return dblBottom - (dbl - yAxis.dblMin) / (yAxis.dblMax - yAxis.dblMin) * (dblBottom - dblTop);
  };

  *pstr += "<g class=\"axis\">\n";
  for (double dbl = xAxis.dblMin; dbl <= xAxis.dblMax + xAxis.dblStep * 1e-6; dbl += xAxis.dblStep) {
    const std::string strX = Coord(fnX(dbl));
    *pstr += "<line class=\"grid\" x1=\"" + strX + "\" y1=\"" + Coord(dblTop) + "\" x2=\"" + strX + "\" y2=\"" +
             Coord(dblBottom + 4) + "\"/><text class=\"xtick\" x=\"" + strX + "\" y=\"" + Coord(dblBottom + 16) +
             "\">" + TickText(dbl, xAxis.dblStep) + "</text>\n";
  }
  for (double dbl = yAxis.dblMin; dbl <= yAxis.dblMax + yAxis.dblStep * 1e-6; dbl += yAxis.dblStep) {
    const std::string strY = Coord(fnY(dbl));
    *pstr += "<line class=\"grid\" x1=\"" + Coord(dblLeft - 4) + "\" y1=\"" + strY + "\" x2=\"" + Coord(dblRight) +
             "\" y2=\"" + strY + "\"/><text class=\"ytick\" x=\"" + Coord(dblLeft - 7) + "\" y=\"" + strY + "\">" +
             TickText(dbl, yAxis.dblStep) + "</text>\n";
  }
  *pstr += "<text class=\"xlabel\" x=\"" + Coord((dblLeft + dblRight) / 2) + "\" y=\"" + Coord(dblBottom + 32) +
           "\">wall time (s)</text>\n";
  *pstr += "<text class=\"ylabel\" transform=\"translate(14 " + Coord((dblTop + dblBottom) / 2) +
           ") rotate(-90)\">" + Escape(plot.strUnit) + "</text>\n</g>\n";

  for (size_t i = 0; i < vecSeries.size(); ++i) {
    *pstr += "<path class=\"series\" stroke=\"" + std::string(kColours[i % std::size(kColours)]) + "\" d=\"" +
             SeriesPath(vecSeries[i], vecSamples, fnX, fnY) + "\"><title>" + Escape(vecSeries[i].strName) +
             "</title></path>\n";
  }
  AppendLegend(vecSeries, dblLegendTop, pstr);
  *pstr += "</svg>\n</section>\n";
}

void AppendTable(const std::vector<std::pair<std::string, std::string>>& vecRows, std::string* pstr) {
  *pstr += "<table>\n";
  for (const auto& [strLabel, strText] : vecRows) {
    *pstr += "<tr><th>" + Escape(strLabel) + "</th><td>" + Escape(strText) + "</td></tr>\n";
  }
  *pstr += "</table>\n";
}

constexpr const char* kStyle =
    "body{font-family:sans-serif;margin:1.5em auto;max-width:60em;padding:0 1em;color:#222}\n"
    "h1{font-size:1.4em;word-break:break-all}h2{font-size:1.15em;margin-top:1.6em}h3{font-size:1em;margin:1em 0 .3em}\n"
    "code{word-break:break-all}\n"
    "table{border-collapse:collapse;margin:.5em 0}th,td{border:1px solid #bbb;padding:.2em .6em;text-align:left;"
    "vertical-align:top}th{background:#f2f2f2;font-weight:normal}td{font-family:monospace;word-break:break-all}\n"
    "svg{width:100%;height:auto;display:block}svg text{font-family:sans-serif;font-size:11px;fill:#222}\n"
    ".frame{fill:none;stroke:#888}.grid{stroke:#ddd}.xtick,.xlabel,.ylabel,.nodata{text-anchor:middle}\n"
    ".ytick{text-anchor:end;dominant-baseline:middle}.nodata{font-size:16px;fill:#888}\n"
    ".series{fill:none;stroke-width:1.8;stroke-linejoin:round;stroke-linecap:round}\n"
    ".plot,table{break-inside:avoid;page-break-inside:avoid}\n"
    "@media print{body{max-width:none;margin:0}}\n";

}  // namespace

std::vector<ReportPlot> DefaultReportPlots() {
  return {
      {"Bit rate per stream", "kbit/s", "bitrate:"},
      {"Buffer fill", "items", "fill:"},
      {"Decode frames per second", "frames/s", "decode_fps:"},
      {"Encode frames per second", "frames/s", "encode_fps:"},
      {"Key-frame distance", "frames", "key_distance:"},
  };
}

std::string ReportHtml(const TranscodeReport& report) {
  std::string strHtml =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>Transcode report: " +
      Escape(report.strInput) + " to " + Escape(report.strOutput) + "</title>\n<style>\n" + kStyle +
      "</style>\n</head>\n<body>\n";
  strHtml += "<h1>Transcode report: " + Escape(report.strInput) + " &#8594; " + Escape(report.strOutput) + "</h1>\n";
  if (!report.strCommand.empty()) strHtml += "<p><code>" + Escape(report.strCommand) + "</code></p>\n";

  strHtml += "<h2>Summary</h2>\n";
  if (report.vecSummary.empty()) {
    strHtml += "<p>No summary.</p>\n";
  } else {
    AppendTable(report.vecSummary, &strHtml);
  }

  if (!report.vecPlots.empty()) strHtml += "<h2>Over time</h2>\n";
  for (const ReportPlot& plot : report.vecPlots) AppendPlot(plot, report.vecSamples, &strHtml);

  strHtml += "<h2>Statistics</h2>\n";
  if (report.mapStats.empty()) strHtml += "<p>No statistics.</p>\n";
  for (const auto& [strFacade, mapValues] : report.mapStats) {
    strHtml += "<h3>" + Escape(strFacade) + "</h3>\n";
    if (mapValues.empty()) {
      strHtml += "<p>No values.</p>\n";
      continue;
    }
    AppendTable(std::vector<std::pair<std::string, std::string>>(mapValues.begin(), mapValues.end()), &strHtml);
  }
  strHtml += "</body>\n</html>\n";
  return strHtml;
}

bool WriteReport(const std::string& strPath, const TranscodeReport& report, std::string* pstrError) {
  namespace fs = std::filesystem;
  auto fail = [pstrError](const std::string& strWhy) {
    if (pstrError) *pstrError = strWhy;
    return false;
  };
  if (strPath.empty()) return fail("no report path");
  // UTF-8 in, whatever the platform's path encoding is out.
  const fs::path target(std::u8string(strPath.begin(), strPath.end()));
  // Beside the target, so the rename stays on one file system and is atomic;
  // the clock keeps two runs writing the same report apart.
  const auto llTicks = std::chrono::steady_clock::now().time_since_epoch().count();
  fs::path temp = target;
  temp += "." + std::to_string(llTicks) + ".tmp";

  const std::string strHtml = ReportHtml(report);
  {
    errno = 0;
    std::ofstream file(temp, std::ios::binary | std::ios::trunc);
    if (!file) {
      const int nErr = errno;
      return fail("cannot create " + strPath + ": " + (nErr ? std::strerror(nErr) : "open failed"));
    }
    file.write(strHtml.data(), static_cast<std::streamsize>(strHtml.size()));
    file.close();
    if (!file) {
      const int nErr = errno;
      std::error_code ec;
      fs::remove(temp, ec);
      return fail("cannot write " + strPath + ": " + (nErr ? std::strerror(nErr) : "write failed"));
    }
  }
  std::error_code ec;
  fs::rename(temp, target, ec);
  if (ec) {
    std::error_code ecRemove;
    fs::remove(temp, ecRemove);
    return fail("cannot write " + strPath + ": " + ec.message());
  }
  return true;
}

}  // namespace vctool
