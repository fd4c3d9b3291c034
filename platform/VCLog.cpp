#include "VCLog.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <utility>

#include "VCCritSec.h"
#include "VCFormat.h"
#include "VCPlatform.h"

#if !defined(_WIN32)
#include <sys/syscall.h>
#include <unistd.h>
#endif

namespace vc {

namespace detail {
constinit std::atomic<int> g_nLogThreshold{-1};
constinit std::atomic<int> g_nTraceState{-1};
}  // namespace detail

namespace {

constexpr int kDefaultLevel = eVCLL_Retry;

#if defined(_WIN32)
// Paths from the wide environment so that any file name works.
using PathString = std::wstring;
PathString EnvPath(const wchar_t* pszName) {
  const wchar_t* psz = _wgetenv(pszName);
  return psz ? PathString(psz) : PathString();
}
FILE* OpenAppend(const PathString& path) { return _wfopen(path.c_str(), L"ab"); }
#define VC_ENV(name) L##name
#else
using PathString = std::string;
PathString EnvPath(const char* pszName) {
  const char* psz = std::getenv(pszName);
  return psz ? PathString(psz) : PathString();
}
FILE* OpenAppend(const PathString& path) { return std::fopen(path.c_str(), "ab"); }
#define VC_ENV(name) name
#endif

// One output: stderr when no path is set or the file cannot be opened.
struct COutput {
  PathString strPath;
  FILE* pFile = nullptr;
  bool bOpenTried = false;

  void Reset(PathString path) {
    if (pFile) std::fclose(pFile);
    pFile = nullptr;
    bOpenTried = false;
    strPath = std::move(path);
  }
  FILE* Get() {
    if (strPath.empty()) return stderr;
    if (!bOpenTried) {
      bOpenTried = true;
      pFile = OpenAppend(strPath);
      if (!pFile) std::fputs("log: cannot open the log file, writing to stderr\n", stderr);
    }
    return pFile ? pFile : stderr;
  }
};

struct CLogState {
  CKMutex csLock;
  COutput logOut VC_GUARDED_BY(csLock);
  COutput traceOut VC_GUARDED_BY(csLock);
  std::shared_ptr<const LogSink> spSink VC_GUARDED_BY(csLock);
};

// Never destroyed: static destructors of other objects may still log.
CLogState& State() {
  static CLogState* s_pState = new CLogState;
  return *s_pState;
}

int ParseLevel(const char* psz) {
  if (!psz || !*psz) return kDefaultLevel;
  std::string s(psz);
  for (char& c : s) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 0x20 : c);
  if (s == "off" || s == "none") return kLogOff;
  if (s.size() == 1 && s[0] >= '0' && s[0] <= '4') return s[0] - '0';
  return kDefaultLevel;
}

// Caller holds the state's lock.
void ReadEnvironment(CLogState& st) VC_REQUIRES(st.csLock) {
  detail::g_nLogThreshold.store(ParseLevel(std::getenv("CORVANE_LOG_LEVEL")), std::memory_order_relaxed);
  st.logOut.Reset(EnvPath(VC_ENV("CORVANE_LOG_FILE")));

  const PathString trace = EnvPath(VC_ENV("CORVANE_TRACE"));
  const bool bOn = !trace.empty() && trace != VC_ENV("0");
  const bool bToStderr = trace == VC_ENV("1");
  st.traceOut.Reset(bOn && !bToStderr ? trace : PathString());
  detail::g_nTraceState.store(bOn ? 1 : 0, std::memory_order_relaxed);
}

std::once_flag g_onceConfig;

void EnsureConfigured() {
  std::call_once(g_onceConfig, [] {
    CLogState& st = State();
    CKMutexLock lock(st.csLock);
    ReadEnvironment(st);
  });
}

// The threshold is set from the environment when the program starts, so even
// the first log call skips its arguments when its level is off. Files are
// opened only at the first line written.
[[maybe_unused]] const bool g_bConfiguredAtStart = (EnsureConfigured(), true);

unsigned int CurrentProcessId() {
#if defined(_WIN32)
  return GetCurrentProcessId();
#else
  return static_cast<unsigned int>(getpid());
#endif
}

unsigned int CurrentThreadId() {
#if defined(_WIN32)
  return GetCurrentThreadId();
#else
  return static_cast<unsigned int>(syscall(SYS_gettid));
#endif
}

std::string TimeStamp() {
  const auto now = std::chrono::system_clock::now();
  const std::time_t t = std::chrono::system_clock::to_time_t(now);
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm tmLocal{};
#if defined(_WIN32)
  localtime_s(&tmLocal, &t);
#else
  localtime_r(&t, &tmLocal);
#endif
  char buf[32];
  std::strftime(buf, sizeof(buf), "%Y-%m-%d %H:%M:%S", &tmLocal);
  return Format("%s.%03d", buf, static_cast<int>(ms));
}

std::string FormatLine(const LogRecord& rec) {
  std::string line = TimeStamp();
  AppendFormat(line, " [%u:%u] ", CurrentProcessId(), CurrentThreadId());
  if (rec.eChannel == eVCLC_Trace)
    line += "TRACE";
  else
    AppendFormat(line, "L%d", rec.nLevel);
  AppendFormat(line, " %s(%d) %s: ", rec.pszFile, rec.nLine, rec.strMethod.c_str());
  size_t nEnd = rec.strMessage.size();
  while (nEnd > 0 && (rec.strMessage[nEnd - 1] == '\n' || rec.strMessage[nEnd - 1] == '\r')) --nEnd;
  line.append(rec.strMessage, 0, nEnd);
  line += '\n';
  return line;
}

void Dispatch(const LogRecord& rec) {
  CLogState& st = State();
  std::shared_ptr<const LogSink> spSink;
  {
    CKMutexLock lock(st.csLock);
    spSink = st.spSink;
  }
  if (spSink) {
    (*spSink)(rec);
    return;
  }
  const std::string line = FormatLine(rec);
  CKMutexLock lock(st.csLock);
  FILE* f = rec.eChannel == eVCLC_Trace ? st.traceOut.Get() : st.logOut.Get();
  std::fwrite(line.data(), 1, line.size(), f);
  std::fflush(f);
}

void Emit(eVCLogChannel eChannel, int nLevel, const char* pszFile, int nLine, const char* pszFunction,
          const char* pszFormat, va_list args) noexcept {
  if (!pszFormat) return;
  try {
    LogRecord rec;
    rec.nLevel = nLevel;
    rec.eChannel = eChannel;
    rec.pszFile = pszFile ? pszFile : "";
    rec.nLine = nLine;
    rec.strMethod = LogMethodName(pszFunction ? pszFunction : "");
    rec.strMessage = FormatV(pszFormat, args);
    Dispatch(rec);
  } catch (...) {
    // Logging never takes the caller down, not even when memory runs out.
  }
}

}  // namespace

void LogWriteV(int nLevel, const char* pszFile, int nLine, const char* pszFunction, const char* pszFormat,
               va_list args) {
  EnsureConfigured();
  if (!LogIsOn(nLevel)) return;
  Emit(eVCLC_Log, nLevel, pszFile, nLine, pszFunction, pszFormat, args);
}

void LogWrite(int nLevel, const char* pszFile, int nLine, const char* pszFunction, const char* pszFormat, ...) {
  va_list ap;
  va_start(ap, pszFormat);
  LogWriteV(nLevel, pszFile, nLine, pszFunction, pszFormat, ap);
  va_end(ap);
}

void TraceWrite(const char* pszFile, int nLine, const char* pszFunction, const char* pszFormat, ...) {
  EnsureConfigured();
  if (!TraceIsOn()) return;
  va_list ap;
  va_start(ap, pszFormat);
  Emit(eVCLC_Trace, 0, pszFile, nLine, pszFunction, pszFormat, ap);
  va_end(ap);
}

void LogReconfigure() {
  EnsureConfigured();
  CLogState& st = State();
  CKMutexLock lock(st.csLock);
  ReadEnvironment(st);
}

int LogSetLevel(int nMinLevel) {
  EnsureConfigured();
  return detail::g_nLogThreshold.exchange(nMinLevel, std::memory_order_relaxed);
}

bool TraceSetEnabled(bool bOn) {
  EnsureConfigured();
  return detail::g_nTraceState.exchange(bOn ? 1 : 0, std::memory_order_relaxed) != 0;
}

LogSink LogSetSink(LogSink sink) {
  EnsureConfigured();
  auto spNew = sink ? std::make_shared<const LogSink>(std::move(sink)) : nullptr;
  CLogState& st = State();
  CKMutexLock lock(st.csLock);
  std::shared_ptr<const LogSink> spOld = std::exchange(st.spSink, std::move(spNew));
  return spOld ? *spOld : LogSink();
}

std::string LogMethodName(std::string_view s) {
  // Templates: "void C<T>::F(T) [with T = int]" (gcc), "... [T = int]" (clang).
  if (!s.empty() && s.back() == ']') {
    const size_t nWith = s.rfind(" [");
    if (nWith != std::string_view::npos) s = s.substr(0, nWith);
  }
  // Lambdas name the enclosing method: "void CFoo::Bar()::<lambda(int)>" (gcc),
  // "auto CFoo::Bar()::(anonymous class)::operator()(int) const" (clang).
  size_t nLambda = s.find("::<lambda");
  if (nLambda == std::string_view::npos) nLambda = s.find("::(anonymous class)::");
  if (nLambda != std::string_view::npos) return LogMethodName(s.substr(0, nLambda)) + "::<lambda>";

  const size_t nClose = s.rfind(')');
  if (nClose == std::string_view::npos) return std::string(s);  // already a bare name
  // The parameter list: from the last ')' back to its '('.
  size_t nOpen = nClose;
  for (int nDepth = 0;; --nOpen) {
    if (s[nOpen] == ')') ++nDepth;
    if (s[nOpen] == '(' && --nDepth == 0) break;
    if (nOpen == 0) return std::string(s);
  }
  // The name: back to the space after the return type, skipping spaces
  // inside template arguments.
  size_t nStart = nOpen;
  for (int nDepth = 0; nStart > 0; --nStart) {
    const char c = s[nStart - 1];
    if (c == '>' || c == ')') ++nDepth;
    if (c == '<' || c == '(') --nDepth;
    if (c == ' ' && nDepth <= 0) break;
  }
  return std::string(s.substr(nStart, nOpen - nStart));
}

struct CLogCapture::CStore {
  CKMutex csLock;
  std::vector<LogRecord> vecRecords VC_GUARDED_BY(csLock);
};

CLogCapture::CLogCapture(int nMinLevel) : m_spStore(std::make_shared<CStore>()) {
  std::shared_ptr<CStore> spStore = m_spStore;
  m_prevSink = LogSetSink([spStore](const LogRecord& rec) {
    CKMutexLock lock(spStore->csLock);
    spStore->vecRecords.push_back(rec);
  });
  m_nPrevLevel = LogSetLevel(nMinLevel);
  m_bPrevTrace = TraceSetEnabled(true);
}

CLogCapture::~CLogCapture() {
  TraceSetEnabled(m_bPrevTrace);
  LogSetLevel(m_nPrevLevel);
  LogSetSink(std::move(m_prevSink));
}

std::vector<LogRecord> CLogCapture::Records() const {
  CKMutexLock lock(m_spStore->csLock);
  return m_spStore->vecRecords;
}

std::vector<std::string> CLogCapture::Messages(eVCLogChannel eChannel) const {
  std::vector<std::string> vec;
  CKMutexLock lock(m_spStore->csLock);
  for (const LogRecord& rec : m_spStore->vecRecords)
    if (rec.eChannel == eChannel) vec.push_back(rec.strMessage);
  return vec;
}

bool CLogCapture::Contains(std::string_view text) const {
  CKMutexLock lock(m_spStore->csLock);
  for (const LogRecord& rec : m_spStore->vecRecords)
    if (rec.strMessage.find(text) != std::string::npos) return true;
  return false;
}

void CLogCapture::Clear() {
  CKMutexLock lock(m_spStore->csLock);
  m_spStore->vecRecords.clear();
}

}  // namespace vc
