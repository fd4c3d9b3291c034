// Small things every class of the general media module needs from FFmpeg:
// error codes as HRESULTs, error text, time conversion between FFmpeg time
// bases and reference time (100 ns units), and FFmpeg's log routed into ours.
#pragma once

extern "C" {
#include <libavutil/avutil.h>
#include <libavutil/rational.h>
}

#include <string>

#include "VCCodecsCore.h"

namespace vc::ff {

// Reference time: 100 ns units.
inline constexpr AVRational kRefTimeBase{1, static_cast<int>(VC_TIME_SECOND)};

// An FFmpeg error code as an HRESULT: end of file becomes end of media
// (0x8007044C), an exit requested by the interrupt callback the operation
// aborted code (0x800703E3), out of memory E_OUTOFMEMORY, invalid data
// 0x8007000D (ERROR_INVALID_DATA), an unsupported option or codec
// 0x80070032, a missing file or an HTTP 404 0x80070002, a timeout
// 0x800705B4, no permission or an HTTP 401/403 E_ACCESSDENIED. Network
// failures keep their kind: refused 0x800704C9, network unreachable
// 0x800704CF, host unreachable 0x800704D0, reset 0x80072746, aborted
// 0x800704D4, any other HTTP error status 0x8007003A (the VC_E_ names in
// VCCodecs/VCCodecsBase.h). Anything else E_FAIL. Non-negative values are
// S_OK.
HRESULT AvErrorToHr(int nAvError);

// av_strerror text of an FFmpeg error code.
std::string AvErrorText(int nAvError);

// A time in tb as reference time; AV_NOPTS_VALUE becomes VC_TIME_UNSET.
LONGLONG ToRefTime(int64_t llTime, AVRational tb);
// A reference time in tb; VC_TIME_UNSET becomes AV_NOPTS_VALUE.
int64_t FromRefTime(LONGLONG rtTime, AVRational tb);

// Routes FFmpeg's own log lines (warnings and worse) into the module log at
// once per process; further calls do nothing.
void InstallAvLogBridge();

}  // namespace vc::ff
