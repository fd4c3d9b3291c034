// Logging for every layer. A log call carries a numeric level, the source file
// and line and the method; trace calls (hosting, running object table) go to a
// channel of their own that is switched on and off apart from the levels.
//
//   VC_LOG(eVCLL_Retry, "cpVCSplitter->SplitterOpen(%ws) FAILED hr=%08X\n", bsPath, hr);
//   VC_TRACE("ROT register %ws\n", pszName);
//
// The level test is an inline read of an atomic threshold made before the
// arguments are evaluated or anything is formatted, so a log call on every
// packet costs one load and a compare when its level is off. Formatting uses
// vc::Format (VCFormat.h): "%ws" for UTF-16 strings, "%I64d" for 64-bit.
//
// Configuration is read from the environment on first use:
//   CORVANE_LOG_LEVEL  lowest level shown, 0..4, or "off" (default 3)
//   CORVANE_LOG_FILE   append lines to this file instead of stderr
//   CORVANE_TRACE      "1": trace lines to stderr; any other non-empty value
//                      except "0": append them to that file (default off)
// Each line reads
//   2025-01-31 14:02:03.456 [pid:tid] L3 path/File.cpp(120) CClass::Method: text
// ("TRACE" in place of "L3" on the trace channel); a message's own trailing
// newline ends the line rather than adding an empty one.
//
// Every function here may be called from any thread; writes are serialised.
// A sink installed with LogSetSink takes the records instead of the output
// (tests use CLogCapture); it is called outside the log's lock, possibly on
// several threads at once.
#pragma once

#include <atomic>
#include <cstdarg>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#if defined(_MSC_VER)
#define VC_FUNCTION __FUNCSIG__
#else
#define VC_FUNCTION __PRETTY_FUNCTION__
#endif

// Level is evaluated once; the format and its arguments only when it is on.
#define VC_LOG(level, ...)                                                                  \
  do {                                                                                      \
    const int vcLogLevel_ = (level);                                                        \
    if (::vc::LogIsOn(vcLogLevel_))                                                         \
      ::vc::LogWrite(vcLogLevel_, __FILE__, __LINE__, VC_FUNCTION, __VA_ARGS__);            \
  } while (0)

#define VC_TRACE(...)                                                                       \
  do {                                                                                      \
    if (::vc::TraceIsOn()) ::vc::TraceWrite(__FILE__, __LINE__, VC_FUNCTION, __VA_ARGS__); \
  } while (0)

namespace vc {

enum eVCLogLevel : int {
  eVCLL_Progress = 0,  // progress and success
  eVCLL_Info = 1,
  eVCLL_Detail = 2,
  eVCLL_Retry = 3,  // recoverable failures and retries
  eVCLL_Error = 4,  // failures returned to the caller
};
// Threshold that shows nothing ("off").
inline constexpr int kLogOff = eVCLL_Error + 1;

enum eVCLogChannel : int {
  eVCLC_Log = 0,
  eVCLC_Trace = 1,
};

struct LogRecord {
  int nLevel = 0;  // 0 on the trace channel
  eVCLogChannel eChannel = eVCLC_Log;
  const char* pszFile = "";  // as the compiler wrote __FILE__: relative to the source tree
  int nLine = 0;
  std::string strMethod;   // "CClass::Method", return type and parameters dropped
  std::string strMessage;  // exactly as formatted, any trailing "\n" kept
};

using LogSink = std::function<void(const LogRecord&)>;

namespace detail {
// Lowest level shown; negative until the environment has been read, so that
// the first call goes the slow way and reads it.
extern std::atomic<int> g_nLogThreshold;
// 1 on, 0 off, negative until the environment has been read.
extern std::atomic<int> g_nTraceState;
}  // namespace detail

inline bool LogIsOn(int nLevel) noexcept {
  return nLevel >= detail::g_nLogThreshold.load(std::memory_order_relaxed);
}
inline bool TraceIsOn() noexcept { return detail::g_nTraceState.load(std::memory_order_relaxed) != 0; }

// Called by the macros; usable directly where a wrapper forwards its own
// format. They check the level again, never throw, and ignore a null format.
void LogWrite(int nLevel, const char* pszFile, int nLine, const char* pszFunction, const char* pszFormat, ...);
void LogWriteV(int nLevel, const char* pszFile, int nLine, const char* pszFunction, const char* pszFormat,
               va_list args);
void TraceWrite(const char* pszFile, int nLine, const char* pszFunction, const char* pszFormat, ...);

// Re-reads the environment (tests change it) and reopens the outputs.
void LogReconfigure();
// Overrides the level threshold (kLogOff for none); returns the previous one.
int LogSetLevel(int nMinLevel);
// Switches the trace channel; returns whether it was on. Lines go to the
// CORVANE_TRACE file when one is configured, otherwise to stderr.
bool TraceSetEnabled(bool bOn);
// Installs a sink that receives every record shown (both channels) instead of
// the output; an empty sink restores the output. Returns the previous sink.
LogSink LogSetSink(LogSink sink);

// "HRESULT CCoVCSplitter::SplitterOpen(BSTR)" -> "CCoVCSplitter::SplitterOpen".
std::string LogMethodName(std::string_view prettyFunction);

// For tests: collects every record of both channels while it lives, with the
// level threshold opened to nMinLevel and the trace channel switched on; puts
// back the previous sink, threshold and trace switch on destruction.
class CLogCapture {
 public:
  explicit CLogCapture(int nMinLevel = eVCLL_Progress);
  ~CLogCapture();
  CLogCapture(const CLogCapture&) = delete;
  CLogCapture& operator=(const CLogCapture&) = delete;

  std::vector<LogRecord> Records() const;
  // Messages of one channel, in the order they were logged.
  std::vector<std::string> Messages(eVCLogChannel eChannel = eVCLC_Log) const;
  // Whether any message of either channel contains the text.
  bool Contains(std::string_view text) const;
  void Clear();

 private:
  struct CStore;
  std::shared_ptr<CStore> m_spStore;  // shared with the sink, which may outlive this object briefly
  LogSink m_prevSink;
  int m_nPrevLevel;
  bool m_bPrevTrace;
};

}  // namespace vc
