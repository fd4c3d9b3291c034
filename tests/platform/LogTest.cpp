// Logging: the level filter in front of the formatting, the records a sink
// sees, the separate trace channel, configuration from the environment and
// the lines written to a file.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "VCLog.h"
#include "VCPlatform.h"

#if !defined(_WIN32)
#include <unistd.h>
#endif

namespace vclogtest {

// Logs from a named class so that the method name in the record is known.
class CLogProbe {
 public:
  int Report(int nLevel, int nValue) {
    m_nLine = __LINE__; VC_LOG(nLevel, "value=%d\n", nValue);
    return m_nLine;
  }
  int Trace(const OLECHAR* pszName) {
    m_nLine = __LINE__; VC_TRACE("ROT register %ws\n", pszName);
    return m_nLine;
  }
  void InLambda() {
    auto fn = [] { VC_LOG(vc::eVCLL_Error, "from lambda"); };
    fn();
  }

 private:
  int m_nLine = 0;
};

}  // namespace vclogtest

namespace {

using vc::CLogCapture;
using vc::LogRecord;

unsigned int ProcessId() {
#if defined(_WIN32)
  return GetCurrentProcessId();
#else
  return static_cast<unsigned int>(getpid());
#endif
}

// One output line, cut at the separators of
// "2025-01-31 14:02:03.456 [pid:tid] L3 path/File.cpp(120) CClass::Method: text".
struct CLine {
  std::string strPid;
  std::string strTag;  // "L<level>" or "TRACE"
  std::string strFile;
  std::string strLine;
  std::string strMethod;
  std::string strMessage;
};

bool AllDigits(const std::string& s) {
  return !s.empty() && s.find_first_not_of("0123456789") == std::string::npos;
}

std::optional<CLine> ParseLine(const std::string& line) {
  const std::string stampShape = "dddd-dd-dd dd:dd:dd.ddd [";
  if (line.size() < stampShape.size()) return std::nullopt;
  for (size_t i = 0; i < stampShape.size(); ++i) {
    const bool bDigit = line[i] >= '0' && line[i] <= '9';
    if (stampShape[i] == 'd' ? !bDigit : line[i] != stampShape[i]) return std::nullopt;
  }
  CLine out;
  size_t nPos = stampShape.size();
  // Cuts the text up to the separator and moves past it.
  auto take = [&](const char* pszSeparator, std::string& part) {
    const size_t nEnd = line.find(pszSeparator, nPos);
    if (nEnd == std::string::npos) return false;
    part = line.substr(nPos, nEnd - nPos);
    nPos = nEnd + std::string(pszSeparator).size();
    return true;
  };
  std::string strTid;
  if (!take(":", out.strPid) || !take("] ", strTid) || !take(" ", out.strTag) || !take("(", out.strFile) ||
      !take(") ", out.strLine) || !take(": ", out.strMethod))
    return std::nullopt;
  if (!AllDigits(out.strPid) || !AllDigits(strTid) || !AllDigits(out.strLine)) return std::nullopt;
  out.strMessage = line.substr(nPos);
  return out;
}

const char* const kEnvNames[] = {"CORVANE_LOG_LEVEL", "CORVANE_LOG_FILE", "CORVANE_TRACE"};

// Saves the logging environment, lets a test change it, and puts it and the
// configuration back afterwards.
class LogEnvironmentTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* pszName : kEnvNames) {
      const char* psz = std::getenv(pszName);
      m_saved.push_back(psz ? std::optional<std::string>(psz) : std::nullopt);
      ClearEnvironment(pszName);
    }
    vc::LogReconfigure();
  }

  void TearDown() override {
    for (size_t i = 0; i < m_saved.size(); ++i) {
      if (m_saved[i])
        SetEnvironment(kEnvNames[i], *m_saved[i]);
      else
        ClearEnvironment(kEnvNames[i]);
    }
    vc::LogReconfigure();  // also closes the files the test wrote
    std::error_code ec;
    for (const auto& path : m_vecTempFiles) std::filesystem::remove(path, ec);
  }

  static void SetEnvironment(const char* pszName, const std::string& value) {
#if defined(_WIN32)
    _putenv_s(pszName, value.c_str());
#else
    setenv(pszName, value.c_str(), 1);
#endif
  }

  static void ClearEnvironment(const char* pszName) {
#if defined(_WIN32)
    _putenv_s(pszName, "");
#else
    unsetenv(pszName);
#endif
  }

  // Threshold the configuration ended up with.
  static int ConfiguredThreshold() {
    const int n = vc::LogSetLevel(0);
    vc::LogSetLevel(n);
    return n;
  }

  std::filesystem::path TempFile(const char* pszStem) {
    static std::atomic<int> s_nCounter{0};
    auto path = std::filesystem::temp_directory_path() /
                ("vclogtest-" + std::to_string(ProcessId()) + "-" + pszStem + "-" + std::to_string(++s_nCounter) +
                 ".log");
    std::filesystem::remove(path);
    m_vecTempFiles.push_back(path);
    return path;
  }

  static std::vector<std::string> ReadLines(const std::filesystem::path& path, std::string* pAll = nullptr) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    if (pAll) *pAll = ss.str();
    std::vector<std::string> vec;
    for (std::string line; std::getline(ss, line);) vec.push_back(line);
    return vec;
  }

  std::vector<std::optional<std::string>> m_saved;
  std::vector<std::filesystem::path> m_vecTempFiles;
};

using LogFilterTest = LogEnvironmentTest;

TEST_F(LogFilterTest, LevelBelowThreshold_ArgumentsNotEvaluated) {
  CLogCapture capture(vc::eVCLL_Retry);
  int nEvaluated = 0;
  VC_LOG(vc::eVCLL_Detail, "%d", ++nEvaluated);
  VC_LOG(vc::eVCLL_Progress, "%d", ++nEvaluated);
  EXPECT_EQ(nEvaluated, 0);
  EXPECT_TRUE(capture.Records().empty());

  VC_LOG(vc::eVCLL_Retry, "%d", ++nEvaluated);
  VC_LOG(vc::eVCLL_Error, "%d", ++nEvaluated);
  EXPECT_EQ(nEvaluated, 2);
  ASSERT_EQ(capture.Records().size(), 2u);

  vc::LogSetLevel(vc::kLogOff);
  VC_LOG(vc::eVCLL_Error, "%d", ++nEvaluated);
  EXPECT_EQ(nEvaluated, 2);
  EXPECT_EQ(capture.Records().size(), 2u);
}

TEST_F(LogFilterTest, LevelFromEnvironment_SetsThreshold) {
  EXPECT_EQ(ConfiguredThreshold(), vc::eVCLL_Retry);  // unset
  const struct {
    const char* pszValue;
    int nExpected;
  } cases[] = {{"0", 0}, {"2", 2}, {"4", 4}, {"off", vc::kLogOff}, {"OFF", vc::kLogOff},
               {"7", vc::eVCLL_Retry}, {"-1", vc::eVCLL_Retry}, {"verbose", vc::eVCLL_Retry}};
  for (const auto& c : cases) {
    SetEnvironment("CORVANE_LOG_LEVEL", c.pszValue);
    vc::LogReconfigure();
    EXPECT_EQ(ConfiguredThreshold(), c.nExpected) << c.pszValue;
  }
  SetEnvironment("CORVANE_LOG_LEVEL", "1");
  vc::LogReconfigure();
  EXPECT_FALSE(vc::LogIsOn(vc::eVCLL_Progress));
  EXPECT_TRUE(vc::LogIsOn(vc::eVCLL_Info));
  EXPECT_TRUE(vc::LogIsOn(vc::eVCLL_Error));
}

TEST(LogRecordTest, Sink_GetsLevelFileLineMethodAndExactMessage) {
  CLogCapture capture;
  vclogtest::CLogProbe probe;
  const int nLine = probe.Report(vc::eVCLL_Detail, 7);

  const std::vector<LogRecord> records = capture.Records();
  ASSERT_EQ(records.size(), 1u);
  const LogRecord& rec = records[0];
  EXPECT_EQ(rec.nLevel, vc::eVCLL_Detail);
  EXPECT_EQ(rec.eChannel, vc::eVCLC_Log);
  EXPECT_STREQ(rec.pszFile, "tests/platform/LogTest.cpp");
  EXPECT_EQ(rec.nLine, nLine);
  EXPECT_EQ(rec.strMethod, "vclogtest::CLogProbe::Report");
  EXPECT_EQ(rec.strMessage, "value=7\n");
}

TEST(LogRecordTest, LambdaInsideMethod_NamesTheMethod) {
  CLogCapture capture;
  vclogtest::CLogProbe().InLambda();
  const std::vector<LogRecord> records = capture.Records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].strMethod, "vclogtest::CLogProbe::InLambda::<lambda>");
  EXPECT_EQ(records[0].strMessage, "from lambda");
}

TEST(LogRecordTest, MethodName_DropsReturnTypeAndParameters) {
  const struct {
    const char* pszPretty;
    const char* pszExpected;
  } cases[] = {
      {"HRESULT CCoVCSplitter::SplitterOpen(BSTR)", "CCoVCSplitter::SplitterOpen"},
      {"virtual ULONG CCoVCDecoder::Release()", "CCoVCDecoder::Release"},
      {"static void vc::CFoo::Run(int (*)(int), long int)", "vc::CFoo::Run"},
      {"void CVCPackets<T>::Put(T*) [with T = int]", "CVCPackets<T>::Put"},
      {"std::map<int, int> CStore::Get(std::pair<int, int>) const", "CStore::Get"},
      {"bool CLess::operator()(int, int) const", "CLess::operator()"},
      {"void {anonymous}::Helper()", "{anonymous}::Helper"},
      {"CFoo::CFoo(int)", "CFoo::CFoo"},
      {"int main(int, char**)", "main"},
      {"Bare", "Bare"},
      {"void CFoo::Bar()::<lambda(int)>", "CFoo::Bar::<lambda>"},
      {"auto CFoo::Bar()::(anonymous class)::operator()(auto) const [x:auto = int]", "CFoo::Bar::<lambda>"},
      {"void (anonymous namespace)::Helper() const", "(anonymous namespace)::Helper"},
  };
  for (const auto& c : cases) EXPECT_EQ(vc::LogMethodName(c.pszPretty), c.pszExpected) << c.pszPretty;
}

TEST(LogSinkTest, SetSink_ReturnsPreviousAndRestores) {
  int nFirst = 0;
  int nSecond = 0;
  vc::LogSink original = vc::LogSetSink([&](const LogRecord&) { ++nFirst; });
  const int nOldLevel = vc::LogSetLevel(vc::eVCLL_Progress);

  vc::LogSink previous = vc::LogSetSink([&](const LogRecord&) { ++nSecond; });
  VC_LOG(vc::eVCLL_Progress, "to second");
  ASSERT_TRUE(previous);
  previous(LogRecord{});
  EXPECT_EQ(nFirst, 1);
  EXPECT_EQ(nSecond, 1);

  vc::LogSetSink(std::move(previous));
  VC_LOG(vc::eVCLL_Progress, "to first");
  EXPECT_EQ(nFirst, 2);
  EXPECT_EQ(nSecond, 1);

  vc::LogSetLevel(nOldLevel);
  vc::LogSetSink(std::move(original));
}

TEST(LogSinkTest, ThrowingSink_NeverReachesTheCaller) {
  CLogCapture capture;  // restores the sink afterwards
  vc::LogSetSink([](const LogRecord&) { throw std::runtime_error("sink failed"); });
  EXPECT_NO_THROW(VC_LOG(vc::eVCLL_Error, "x"));
  EXPECT_NO_THROW(VC_TRACE("y"));
}

TEST(LogSinkTest, NestedCaptures_InnerTakesRecordsThenOuterAgain) {
  CLogCapture outer(vc::eVCLL_Error);
  {
    CLogCapture inner(vc::eVCLL_Progress);
    VC_LOG(vc::eVCLL_Progress, "inner");
    EXPECT_EQ(inner.Messages(), std::vector<std::string>{"inner"});
  }
  VC_LOG(vc::eVCLL_Progress, "filtered again");  // the outer threshold is back
  VC_LOG(vc::eVCLL_Error, "outer");
  EXPECT_EQ(outer.Messages(), std::vector<std::string>{"outer"});
  EXPECT_TRUE(outer.Contains("out"));
  EXPECT_FALSE(outer.Contains("inner"));
}

TEST(LogTraceTest, TraceChannel_IgnoresTheLevelFilter) {
  CLogCapture capture(vc::kLogOff);
  vclogtest::CLogProbe probe;
  const int nLine = probe.Trace(W("!{96EB1C14}"));
  VC_LOG(vc::eVCLL_Error, "not shown");

  const std::vector<LogRecord> records = capture.Records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].eChannel, vc::eVCLC_Trace);
  EXPECT_EQ(records[0].nLine, nLine);
  EXPECT_EQ(records[0].strMethod, "vclogtest::CLogProbe::Trace");
  EXPECT_EQ(capture.Messages(vc::eVCLC_Trace), std::vector<std::string>{"ROT register !{96EB1C14}\n"});
  EXPECT_TRUE(capture.Messages(vc::eVCLC_Log).empty());
}

TEST(LogTraceTest, TraceOff_ArgumentsNotEvaluatedWhileLogsFlow) {
  CLogCapture capture(vc::eVCLL_Progress);
  vc::TraceSetEnabled(false);
  int nEvaluated = 0;
  VC_TRACE("%d", ++nEvaluated);
  VC_LOG(vc::eVCLL_Progress, "log %d", 1);
  EXPECT_EQ(nEvaluated, 0);
  EXPECT_EQ(capture.Messages(vc::eVCLC_Log), std::vector<std::string>{"log 1"});
  EXPECT_TRUE(capture.Messages(vc::eVCLC_Trace).empty());
}

using LogTraceEnvironmentTest = LogEnvironmentTest;

TEST_F(LogTraceEnvironmentTest, TraceVariable_SwitchesChannel) {
  EXPECT_FALSE(vc::TraceIsOn());  // unset
  SetEnvironment("CORVANE_TRACE", "0");
  vc::LogReconfigure();
  EXPECT_FALSE(vc::TraceIsOn());
  SetEnvironment("CORVANE_TRACE", "1");
  vc::LogReconfigure();
  EXPECT_TRUE(vc::TraceIsOn());
}

TEST_F(LogTraceEnvironmentTest, TraceVariableWithPath_WritesTraceLinesThere) {
  const auto tracePath = TempFile("trace");
  SetEnvironment("CORVANE_TRACE", tracePath.string());
  SetEnvironment("CORVANE_LOG_LEVEL", "off");
  vc::LogReconfigure();
  vclogtest::CLogProbe().Trace(W("moniker"));
  VC_LOG(vc::eVCLL_Error, "filtered out");
  vc::LogReconfigure();

  const std::vector<std::string> lines = ReadLines(tracePath);
  ASSERT_EQ(lines.size(), 1u);
  const std::optional<CLine> parsed = ParseLine(lines[0]);
  ASSERT_TRUE(parsed) << lines[0];
  EXPECT_EQ(parsed->strTag, "TRACE");
  EXPECT_EQ(parsed->strFile, "tests/platform/LogTest.cpp");
  EXPECT_EQ(parsed->strMethod, "vclogtest::CLogProbe::Trace");
  EXPECT_EQ(parsed->strMessage, "ROT register moniker");
}

using LogFileTest = LogEnvironmentTest;

TEST_F(LogFileTest, FileVariable_AppendsOneLinePerMessage) {
  const auto path = TempFile("file");
  {
    std::ofstream(path, std::ios::binary) << "earlier line\n";
  }
  SetEnvironment("CORVANE_LOG_FILE", path.string());
  SetEnvironment("CORVANE_LOG_LEVEL", "0");
  vc::LogReconfigure();
  const int nLine = vclogtest::CLogProbe().Report(vc::eVCLL_Progress, 5);
  VC_LOG(vc::eVCLL_Retry, "open %ws failed", W("caf\u00E9.mxf"));
  vc::LogReconfigure();

  std::string all;
  const std::vector<std::string> lines = ReadLines(path, &all);
  ASSERT_EQ(lines.size(), 3u) << all;
  EXPECT_EQ(lines[0], "earlier line");
  const std::optional<CLine> first = ParseLine(lines[1]);
  ASSERT_TRUE(first) << lines[1];
  EXPECT_EQ(first->strPid, std::to_string(ProcessId()));
  EXPECT_EQ(first->strTag, "L0");
  EXPECT_EQ(first->strFile, "tests/platform/LogTest.cpp");
  EXPECT_EQ(first->strLine, std::to_string(nLine));
  EXPECT_EQ(first->strMethod, "vclogtest::CLogProbe::Report");
  EXPECT_EQ(first->strMessage, "value=5");  // its own "\n" ended the line, no empty line follows
  const std::optional<CLine> second = ParseLine(lines[2]);
  ASSERT_TRUE(second) << lines[2];
  EXPECT_EQ(second->strTag, "L3");
  EXPECT_EQ(second->strMessage, "open caf\xC3\xA9.mxf failed");
  EXPECT_EQ(all.back(), '\n');
}

TEST_F(LogFileTest, ManyThreads_WriteWholeLines) {
  const auto path = TempFile("threads");
  SetEnvironment("CORVANE_LOG_FILE", path.string());
  SetEnvironment("CORVANE_LOG_LEVEL", "0");
  vc::LogReconfigure();
  constexpr int kThreads = 4;
  constexpr int kLinesEach = 200;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([t] {
      for (int i = 0; i < kLinesEach; ++i) VC_LOG(vc::eVCLL_Progress, "thread %d line %03d %s\n", t, i, "payload");
    });
  for (auto& th : threads) th.join();
  vc::LogReconfigure();

  const std::vector<std::string> lines = ReadLines(path);
  ASSERT_EQ(lines.size(), static_cast<size_t>(kThreads * kLinesEach));
  std::vector<int> nextLine(kThreads, 0);
  for (const std::string& line : lines) {
    const std::optional<CLine> parsed = ParseLine(line);
    ASSERT_TRUE(parsed) << line;
    int t = -1;
    int i = -1;
    char szTail[16] = {};
    ASSERT_EQ(std::sscanf(parsed->strMessage.c_str(), "thread %d line %d %15s", &t, &i, szTail), 3) << line;
    ASSERT_TRUE(t >= 0 && t < kThreads) << line;
    EXPECT_STREQ(szTail, "payload");
    EXPECT_EQ(i, nextLine[t]++) << "lines of one thread out of order";
  }
}

}  // namespace
