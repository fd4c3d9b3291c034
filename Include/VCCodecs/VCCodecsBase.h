// Status codes and small helpers shared by the facades and the inner objects.
// Header only; any thread.
#pragma once

#include <cstdint>
#include <vector>

#include "VCPlatform.h"

namespace vc {

// Nothing there yet, or no inner object to do the work (platform error 4306).
inline constexpr HRESULT VC_E_EMPTY = HRESULT_FROM_WIN32(ERROR_EMPTY);
// End of media (error 1100).
inline constexpr HRESULT VC_E_END_OF_MEDIA = HRESULT_FROM_WIN32(ERROR_END_OF_MEDIA);
// A wait that timed out (error 1460).
inline constexpr HRESULT VC_E_TIMEOUT = HRESULT_FROM_WIN32(ERROR_TIMEOUT);
// Bad stream index (error 1413).
inline constexpr HRESULT VC_E_BAD_STREAM = HRESULT_FROM_WIN32(ERROR_INVALID_INDEX);
// No candidate accepted (error 50).
inline constexpr HRESULT VC_E_NO_CANDIDATE = HRESULT_FROM_WIN32(ERROR_NOT_SUPPORTED);
// A call broken off by a stop (error 995).
inline constexpr HRESULT VC_E_ABORTED = HRESULT_FROM_WIN32(ERROR_OPERATION_ABORTED);
// Data that cannot be read as what it claims to be (error 13).
inline constexpr HRESULT VC_E_INVALID_DATA = HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
// File or module not found (error 2).
inline constexpr HRESULT VC_E_FILE_NOT_FOUND = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);

// Network sources: the server refused the connection (error 1225), the
// network or the host cannot be reached (1231, 1232), the connection was
// reset by the other side (WSAECONNRESET) or given up on this side (1236),
// and a server that answered with an error of its own (error 58).
inline constexpr HRESULT VC_E_CONNECTION_REFUSED = HRESULT_FROM_WIN32(ERROR_CONNECTION_REFUSED);
inline constexpr HRESULT VC_E_NETWORK_UNREACHABLE = HRESULT_FROM_WIN32(ERROR_NETWORK_UNREACHABLE);
inline constexpr HRESULT VC_E_HOST_UNREACHABLE = HRESULT_FROM_WIN32(ERROR_HOST_UNREACHABLE);
inline constexpr HRESULT VC_E_CONNECTION_RESET = HRESULT_FROM_WIN32(WSAECONNRESET);
inline constexpr HRESULT VC_E_CONNECTION_ABORTED = HRESULT_FROM_WIN32(ERROR_CONNECTION_ABORTED);
inline constexpr HRESULT VC_E_SERVER_ERROR = HRESULT_FROM_WIN32(ERROR_BAD_NET_RESP);

static_assert(VC_E_EMPTY == static_cast<HRESULT>(0x800710D2u));
static_assert(VC_E_END_OF_MEDIA == static_cast<HRESULT>(0x8007044Cu));
static_assert(VC_E_TIMEOUT == static_cast<HRESULT>(0x800705B4u));
static_assert(VC_E_BAD_STREAM == static_cast<HRESULT>(0x80070585u));
static_assert(VC_E_NO_CANDIDATE == static_cast<HRESULT>(0x80070032u));
static_assert(VC_E_ABORTED == static_cast<HRESULT>(0x800703E3u));
static_assert(VC_E_INVALID_DATA == static_cast<HRESULT>(0x8007000Du));
static_assert(VC_E_FILE_NOT_FOUND == static_cast<HRESULT>(0x80070002u));
static_assert(VC_E_CONNECTION_REFUSED == static_cast<HRESULT>(0x800704C9u));
static_assert(VC_E_NETWORK_UNREACHABLE == static_cast<HRESULT>(0x800704CFu));
static_assert(VC_E_HOST_UNREACHABLE == static_cast<HRESULT>(0x800704D0u));
static_assert(VC_E_CONNECTION_RESET == static_cast<HRESULT>(0x80072746u));
static_assert(VC_E_CONNECTION_ABORTED == static_cast<HRESULT>(0x800704D4u));
static_assert(VC_E_SERVER_ERROR == static_cast<HRESULT>(0x8007003Au));

// Clears an out-parameter if the caller passed one.
template <class T>
inline void ClearOut(T* p) {
  if (p) *p = T{};
}

// The stream list of a segment request's hints: decimal stream indices
// separated by anything that is not a digit ("0,1", "0 1 3", "2;5"). A minus
// sign directly before a number is ignored (stream indices are never
// negative); numbers beyond the int32 range are skipped. Order is kept,
// repeats are dropped. Null or empty text gives an empty list.
inline std::vector<LONG> ParseStreamList(const OLECHAR* szHints) {
  std::vector<LONG> vecStreams;
  if (!szHints) return vecStreams;
  for (const OLECHAR* p = szHints; *p;) {
    if (*p < '0' || *p > '9') {
      ++p;
      continue;
    }
    int64_t llValue = 0;
    bool bOverflow = false;
    for (; *p >= '0' && *p <= '9'; ++p) {
      llValue = llValue * 10 + (*p - '0');
      if (llValue > INT32_MAX) bOverflow = true, llValue = INT32_MAX;
    }
    if (bOverflow) continue;
    const LONG nStream = static_cast<LONG>(llValue);
    bool bSeen = false;
    for (LONG n : vecStreams) bSeen = bSeen || n == nStream;
    if (!bSeen) vecStreams.push_back(nStream);
  }
  return vecStreams;
}

}  // namespace vc
