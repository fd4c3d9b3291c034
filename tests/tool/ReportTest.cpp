// The transcode report page: its structure (one plot per ReportPlot, one
// line per series, gaps), escaping, and the all-or-nothing file write.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "TranscodeReport.h"

namespace vctool {
namespace {

namespace fs = std::filesystem;

size_t Count(const std::string& strText, const std::string& strWhat) {
  size_t nCount = 0;
  for (size_t nPos = strText.find(strWhat); nPos != std::string::npos; nPos = strText.find(strWhat, nPos + 1)) {
    ++nCount;
  }
  return nCount;
}

// The text between the n-th "<svg" and its "</svg>".
std::string Svg(const std::string& strHtml, size_t nIndex) {
  size_t nPos = 0;
  for (size_t i = 0; i <= nIndex; ++i) {
    nPos = strHtml.find("<svg", i ? nPos + 1 : 0);
    if (nPos == std::string::npos) return {};
  }
  return strHtml.substr(nPos, strHtml.find("</svg>", nPos) - nPos);
}

// The d attributes of the series paths, in order.
std::vector<std::string> SeriesPaths(const std::string& strSvg) {
  static const std::regex re("<path class=\"series\"[^>]* d=\"([^\"]*)\"");
  std::vector<std::string> vec;
  for (auto it = std::sregex_iterator(strSvg.begin(), strSvg.end(), re); it != std::sregex_iterator(); ++it) {
    vec.push_back((*it)[1]);
  }
  return vec;
}

class ReportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_report.strInput = "in.mp4";
    m_report.strOutput = "out.mkv";
    m_report.vecPlots = DefaultReportPlots();
  }

  // A sample at wall time dblWall with the given series values.
  void AddSample(double dblWall, std::map<std::string, double> mapValues) {
    ReportSample sample;
    sample.dblWall = dblWall;
    sample.dblPosition = dblWall * 2;
    sample.mapValues = std::move(mapValues);
    m_report.vecSamples.push_back(std::move(sample));
  }

  fs::path TempDir() {
    const fs::path dir = fs::temp_directory_path() /
                         ("vc_report_" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
    fs::remove_all(dir);
    fs::create_directories(dir);
    return dir;
  }

  TranscodeReport m_report;
};

TEST_F(ReportTest, DefaultPlots_FiveInOrderWithTheirPrefixes) {
  const std::vector<ReportPlot> vec = DefaultReportPlots();
  ASSERT_EQ(vec.size(), 5u);
  const char* aszPrefixes[] = {"bitrate:", "fill:", "decode_fps:", "encode_fps:", "key_distance:"};
  const char* aszUnits[] = {"kbit/s", "items", "frames/s", "frames/s", "frames"};
  for (size_t i = 0; i < vec.size(); ++i) {
    EXPECT_EQ(vec[i].strPrefix, aszPrefixes[i]);
    EXPECT_EQ(vec[i].strUnit, aszUnits[i]);
    EXPECT_FALSE(vec[i].strTitle.empty());
  }
}

TEST_F(ReportTest, Page_OneSvgPerPlotAndOnePathPerSeries) {
  AddSample(0.5, {{"bitrate:0", 1000}, {"bitrate:1", 128}, {"fill:video decode", 12}});
  AddSample(1.0, {{"bitrate:0", 1500}, {"bitrate:1", 130}, {"fill:video decode", 9}});
  AddSample(1.5, {{"bitrate:0", 1200}, {"bitrate:1", 129}, {"fill:video decode", 7}});
  const std::string strHtml = ReportHtml(m_report);

  EXPECT_EQ(Count(strHtml, "<svg"), 5u);
  EXPECT_EQ(Count(strHtml, "</svg>"), 5u);
  const std::string strBitrate = Svg(strHtml, 0);
  EXPECT_EQ(SeriesPaths(strBitrate).size(), 2u);
  // The legend names each series (the part after the prefix).
  EXPECT_NE(strBitrate.find(">0</text>"), std::string::npos);
  EXPECT_NE(strBitrate.find(">1</text>"), std::string::npos);
  EXPECT_NE(strBitrate.find("kbit/s"), std::string::npos);
  EXPECT_NE(strBitrate.find("wall time (s)"), std::string::npos);
  EXPECT_EQ(SeriesPaths(Svg(strHtml, 1)).size(), 1u);
  EXPECT_NE(Svg(strHtml, 1).find(">video decode</text>"), std::string::npos);
  // The three plots without samples say so instead of drawing axes.
  for (size_t i = 2; i < 5; ++i) {
    EXPECT_TRUE(SeriesPaths(Svg(strHtml, i)).empty()) << i;
    EXPECT_NE(Svg(strHtml, i).find("no data"), std::string::npos) << i;
  }
  EXPECT_EQ(strBitrate.find("no data"), std::string::npos);
  // Self-contained: nothing fetched from anywhere.
  EXPECT_EQ(strHtml.find("<script"), std::string::npos);
  EXPECT_EQ(strHtml.find("src="), std::string::npos);
  EXPECT_EQ(strHtml.find("href="), std::string::npos);
  EXPECT_EQ(strHtml.find("url("), std::string::npos);
}

TEST_F(ReportTest, Series_PointsFollowWallTimeAndValue) {
  AddSample(0.0, {{"bitrate:0", 0}});
  AddSample(1.0, {{"bitrate:0", 100}});
  AddSample(2.0, {{"bitrate:0", 50}});
  const std::vector<std::string> vec = SeriesPaths(Svg(ReportHtml(m_report), 0));
  ASSERT_EQ(vec.size(), 1u);
  static const std::regex rePoint("[ML](-?[0-9.]+) (-?[0-9.]+)");
  std::vector<std::pair<double, double>> vecPoints;
  for (auto it = std::sregex_iterator(vec[0].begin(), vec[0].end(), rePoint); it != std::sregex_iterator(); ++it) {
    vecPoints.emplace_back(std::stod((*it)[1]), std::stod((*it)[2]));
  }
  ASSERT_EQ(vecPoints.size(), 3u);
  // Later samples lie to the right; a larger value lies higher (smaller y).
  EXPECT_LT(vecPoints[0].first, vecPoints[1].first);
  EXPECT_LT(vecPoints[1].first, vecPoints[2].first);
  EXPECT_NEAR(vecPoints[1].first - vecPoints[0].first, vecPoints[2].first - vecPoints[1].first, 0.02);
  EXPECT_GT(vecPoints[0].second, vecPoints[2].second);
  EXPECT_GT(vecPoints[2].second, vecPoints[1].second);
}

TEST_F(ReportTest, MissingValue_BreaksTheLineInsteadOfDrawingZero) {
  AddSample(0.5, {{"decode_fps:0", 25}, {"decode_fps:1", 50}});
  AddSample(1.0, {{"decode_fps:0", 26}, {"decode_fps:1", 51}});
  AddSample(1.5, {{"decode_fps:1", 52}});  // stream 0 has no value here
  AddSample(2.0, {{"decode_fps:0", 24}, {"decode_fps:1", 49}});
  AddSample(2.5, {{"decode_fps:0", 25}, {"decode_fps:1", 50}});
  const std::vector<std::string> vec = SeriesPaths(Svg(ReportHtml(m_report), 2));
  ASSERT_EQ(vec.size(), 2u);
  // Two runs for stream 0, one unbroken line for stream 1.
  EXPECT_EQ(Count(vec[0], "M"), 2u) << vec[0];
  EXPECT_EQ(Count(vec[0], "L"), 2u) << vec[0];
  EXPECT_EQ(Count(vec[1], "M"), 1u) << vec[1];
  EXPECT_EQ(Count(vec[1], "L"), 4u) << vec[1];
}

TEST_F(ReportTest, LoneValue_IsStillDrawn) {
  AddSample(0.5, {{"key_distance:0", 25}});
  AddSample(1.0, {});
  AddSample(1.5, {{"key_distance:0", 50}});
  const std::vector<std::string> vec = SeriesPaths(Svg(ReportHtml(m_report), 4));
  ASSERT_EQ(vec.size(), 1u);
  // Each lone value is a move followed by a zero-length segment: a dot.
  EXPECT_EQ(Count(vec[0], "M"), 2u) << vec[0];
  EXPECT_EQ(Count(vec[0], "l0 0"), 2u) << vec[0];
}

TEST_F(ReportTest, NotFiniteValue_IsAGap) {
  AddSample(0.5, {{"encode_fps:0", 30}});
  AddSample(1.0, {{"encode_fps:0", std::numeric_limits<double>::infinity()}});
  AddSample(1.5, {{"encode_fps:0", std::nan("")}});
  AddSample(2.0, {{"encode_fps:0", 31}});
  const std::string strSvg = Svg(ReportHtml(m_report), 3);
  const std::vector<std::string> vec = SeriesPaths(strSvg);
  ASSERT_EQ(vec.size(), 1u);
  EXPECT_EQ(Count(vec[0], "M"), 2u) << vec[0];
  EXPECT_EQ(strSvg.find("inf"), std::string::npos);
  EXPECT_EQ(strSvg.find("nan"), std::string::npos);
}

TEST_F(ReportTest, Escaping_NamesAndValuesFromTheRun) {
  const std::string strBad = "a<b&c\"d'e>";
  const std::string strEscaped = "a&lt;b&amp;c&quot;d&#39;e&gt;";
  m_report.strInput = "in " + strBad + ".mp4";
  m_report.strOutput = "out " + strBad + ".mkv";
  m_report.strCommand = "vccodecs transcode " + strBad;
  m_report.vecSummary = {{"label " + strBad, "text " + strBad}};
  m_report.vecPlots.push_back({"title " + strBad, "unit " + strBad, "x:"});
  m_report.mapStats["decoder " + strBad]["stat::" + strBad] = "value " + strBad;
  AddSample(1.0, {{"fill:" + strBad, 3}, {"x:" + strBad, 1}});
  const std::string strHtml = ReportHtml(m_report);

  EXPECT_EQ(strHtml.find(strBad), std::string::npos);
  EXPECT_EQ(strHtml.find("b&c"), std::string::npos);
  for (const char* sz : {"in ", "out ", "vccodecs transcode ", "label ", "text ", "title ", "unit ", "decoder ",
                         "stat::", "value ", ">"}) {
    EXPECT_NE(strHtml.find(sz + strEscaped), std::string::npos) << sz;
  }
  // Every '<' left in the page opens markup of ours.
  static const std::regex reTagStart("<[^!/a-zA-Z]");
  EXPECT_FALSE(std::regex_search(strHtml, reTagStart));
}

TEST_F(ReportTest, EmptyReport_IsStillACompletePage) {
  TranscodeReport report;
  const std::string strHtml = ReportHtml(report);
  EXPECT_EQ(strHtml.rfind("<!DOCTYPE html>", 0), 0u);
  EXPECT_NE(strHtml.find("<meta charset=\"utf-8\">"), std::string::npos);
  EXPECT_NE(strHtml.find("<title>"), std::string::npos);
  EXPECT_NE(strHtml.find("</body>\n</html>\n"), std::string::npos);
  EXPECT_EQ(Count(strHtml, "<svg"), 0u);
  EXPECT_NE(strHtml.find("No statistics."), std::string::npos);

  // Plots but no samples: every plot is there and says it has no data.
  report.vecPlots = DefaultReportPlots();
  const std::string strPlots = ReportHtml(report);
  EXPECT_EQ(Count(strPlots, "<svg"), 5u);
  EXPECT_EQ(Count(strPlots, "no data"), 5u);
}

TEST_F(ReportTest, Tables_OneRowPerSummaryItemAndPerStat) {
  m_report.vecSummary = {{"video", "h264 1280x720"}, {"speed", "4.2x"}};
  m_report.mapStats["decoder 0"] = {{"stat::v_decode.kbps", "1200"}, {"stat::v_decode.fps", "25"}};
  m_report.mapStats["muxer"] = {{"stat::packets", "344"}};
  const std::string strHtml = ReportHtml(m_report);
  EXPECT_EQ(Count(strHtml, "<tr>"), 5u);
  EXPECT_NE(strHtml.find("<th>speed</th><td>4.2x</td>"), std::string::npos);
  EXPECT_NE(strHtml.find("<h3>decoder 0</h3>"), std::string::npos);
  EXPECT_NE(strHtml.find("<th>stat::packets</th><td>344</td>"), std::string::npos);
  EXPECT_LT(strHtml.find("<h3>decoder 0</h3>"), strHtml.find("<h3>muxer</h3>"));
}

TEST_F(ReportTest, Write_ReplacesTheTargetWithTheWholePage) {
  const fs::path dir = TempDir();
  const fs::path target = dir / "report.html";
  { std::ofstream(target) << "old page"; }
  AddSample(1.0, {{"bitrate:0", 900}});
  std::string strError = "untouched";
  ASSERT_TRUE(WriteReport(target.string(), m_report, &strError));
  std::string strRead;
  {
    // Closed before the folder goes: Windows keeps an open file.
    std::ifstream file(target, std::ios::binary);
    strRead.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  EXPECT_EQ(strRead, ReportHtml(m_report));
  // Nothing else left beside it.
  EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 1);
  fs::remove_all(dir);
}

TEST_F(ReportTest, Write_MissingFolder_FailsWithReasonAndNoFile) {
  const fs::path dir = TempDir();
  const fs::path target = dir / "no-such-folder" / "report.html";
  std::string strError;
  EXPECT_FALSE(WriteReport(target.string(), m_report, &strError));
  EXPECT_NE(strError.find("report.html"), std::string::npos) << strError;
  EXPECT_GT(strError.size(), target.string().size() + 10) << strError;  // the path and why
  EXPECT_FALSE(fs::exists(dir / "no-such-folder"));
  EXPECT_TRUE(fs::is_empty(dir));
  fs::remove_all(dir);
}

TEST_F(ReportTest, Write_TargetIsAFolder_FailsAndLeavesNoTemporaryFile) {
  // Writing the temporary file works; only the rename fails.
  const fs::path dir = TempDir();
  const fs::path target = dir / "report.html";
  fs::create_directory(target);
  std::string strError;
  EXPECT_FALSE(WriteReport(target.string(), m_report, &strError));
  EXPECT_FALSE(strError.empty());
  EXPECT_TRUE(fs::is_directory(target));
  EXPECT_TRUE(fs::is_empty(target));
  EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 1);
  fs::remove_all(dir);
}

}  // namespace
}  // namespace vctool
