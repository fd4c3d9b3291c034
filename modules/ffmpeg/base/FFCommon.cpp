#include "FFCommon.h"

extern "C" {
#include <libavutil/error.h>
#include <libavutil/log.h>
#include <libavutil/mathematics.h>
}

#include <cerrno>
#include <cstdio>
#include <mutex>

#include "VCCodecs/VCCodecsBase.h"
#include "VCLog.h"

namespace vc::ff {

HRESULT AvErrorToHr(int nAvError) {
  if (nAvError >= 0) return S_OK;
  switch (nAvError) {
    case AVERROR_EOF:
      return VC_E_END_OF_MEDIA;
    case AVERROR_EXIT:
      return HRESULT_FROM_WIN32(ERROR_OPERATION_ABORTED);
    case AVERROR(ENOMEM):
      return E_OUTOFMEMORY;
    case AVERROR_INVALIDDATA:
      return HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
    case AVERROR_DECODER_NOT_FOUND:
    case AVERROR_DEMUXER_NOT_FOUND:
    case AVERROR_PROTOCOL_NOT_FOUND:
    case AVERROR_OPTION_NOT_FOUND:
    case AVERROR_PATCHWELCOME:
    case AVERROR(ENOSYS):
      return HRESULT_FROM_WIN32(ERROR_NOT_SUPPORTED);
    case AVERROR(ENOENT):
      return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
    case AVERROR(ETIMEDOUT):
      return VC_E_TIMEOUT;
    case AVERROR(EACCES):
    case AVERROR(EPERM):
      return E_ACCESSDENIED;
    // Network sources: a host can tell "nobody there" from "cannot get
    // there" from "the server said no", and only the first may be worth a
    // retry, so each keeps its own code instead of E_FAIL.
    case AVERROR(ECONNREFUSED):
      return VC_E_CONNECTION_REFUSED;
    case AVERROR(ENETUNREACH):
    case AVERROR(ENETDOWN):
      return VC_E_NETWORK_UNREACHABLE;
    case AVERROR(EHOSTUNREACH):
    case AVERROR(EHOSTDOWN):
      return VC_E_HOST_UNREACHABLE;
    case AVERROR(ECONNRESET):
    case AVERROR(EPIPE):
      return VC_E_CONNECTION_RESET;
    case AVERROR(ECONNABORTED):
      return VC_E_CONNECTION_ABORTED;
    case AVERROR_HTTP_NOT_FOUND:
      return VC_E_FILE_NOT_FOUND;
    case AVERROR_HTTP_UNAUTHORIZED:
    case AVERROR_HTTP_FORBIDDEN:
      return E_ACCESSDENIED;
    case AVERROR_HTTP_BAD_REQUEST:
    case AVERROR_HTTP_OTHER_4XX:
    case AVERROR_HTTP_SERVER_ERROR:
      return VC_E_SERVER_ERROR;
    default:
      return E_FAIL;
  }
}

std::string AvErrorText(int nAvError) {
  char sz[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(nAvError, sz, sizeof(sz));
  return sz;
}

LONGLONG ToRefTime(int64_t llTime, AVRational tb) {
  if (llTime == AV_NOPTS_VALUE) return VC_TIME_UNSET;
  if (tb.num <= 0 || tb.den <= 0) return VC_TIME_UNSET;
  return av_rescale_q_rnd(llTime, tb, kRefTimeBase,
                          static_cast<AVRounding>(AV_ROUND_NEAR_INF | AV_ROUND_PASS_MINMAX));
}

int64_t FromRefTime(LONGLONG rtTime, AVRational tb) {
  if (rtTime == VC_TIME_UNSET) return AV_NOPTS_VALUE;
  if (tb.num <= 0 || tb.den <= 0) return AV_NOPTS_VALUE;
  return av_rescale_q_rnd(rtTime, kRefTimeBase, tb,
                          static_cast<AVRounding>(AV_ROUND_NEAR_INF | AV_ROUND_PASS_MINMAX));
}

namespace {

void AvLogCallback(void* pClass, int nLevel, const char* szFormat, va_list args) {
  if (nLevel > AV_LOG_WARNING) return;
  const int nOurLevel = nLevel <= AV_LOG_ERROR ? eVCLL_Retry : eVCLL_Info;
  if (!LogIsOn(nOurLevel)) return;
  char szLine[1024];
  int nPrefix = 1;
  av_log_format_line2(pClass, nLevel, szFormat, args, szLine, sizeof(szLine), &nPrefix);
  VC_LOG(nOurLevel, "FFmpeg: %s", szLine);
}

}  // namespace

void InstallAvLogBridge() {
  static std::once_flag s_once;
  std::call_once(s_once, [] { av_log_set_callback(&AvLogCallback); });
}

}  // namespace vc::ff
