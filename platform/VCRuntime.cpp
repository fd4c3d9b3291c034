// Strings, task memory, errors and process identity of the Linux component
// runtime. One heap for every module of the process: BSTRs and CoTaskMem
// blocks may be freed by a module other than the one that allocated them.
#include <cstdlib>
#include <cstring>
#include <limits>

#include <sys/syscall.h>
#include <unistd.h>

#include "VCGuid.h"
#include "VCPlatform.h"
#include "VCStrings.h"

extern "C" {

const IID IID_IUnknown = vc::MakeGuid("00000000-0000-0000-C000-000000000046");
const IID IID_IClassFactory = vc::MakeGuid("00000001-0000-0000-C000-000000000046");
const IID IID_ISequentialStream = vc::MakeGuid("0C733A30-2A1C-11CE-ADE5-00AA0044773D");
const IID IID_IStream = vc::MakeGuid("0000000C-0000-0000-C000-000000000046");
const GUID GUID_NULL = {};

}  // extern "C"

namespace {

// A BSTR block: 4 bytes of padding (keeps the characters 8-byte aligned), the
// 32-bit byte length, the characters, a terminating zero character.
constexpr size_t kBstrHeader = 8;

BSTR AllocBstrBytes(const void* pData, size_t cbBytes) {
  if (cbBytes > std::numeric_limits<uint32_t>::max() - kBstrHeader - sizeof(OLECHAR) * 2) return nullptr;
  auto* block = static_cast<uint8_t*>(std::malloc(kBstrHeader + cbBytes + sizeof(OLECHAR) + 1));
  if (!block) return nullptr;
  const uint32_t len = static_cast<uint32_t>(cbBytes);
  std::memset(block, 0, 4);
  std::memcpy(block + 4, &len, 4);
  uint8_t* chars = block + kBstrHeader;
  if (pData) std::memcpy(chars, pData, cbBytes);
  else std::memset(chars, 0, cbBytes);
  // Two zero bytes after the data, plus one for odd byte lengths.
  chars[cbBytes] = 0;
  chars[cbBytes + 1] = 0;
  chars[cbBytes + 2] = 0;
  return reinterpret_cast<BSTR>(chars);
}

uint8_t* BlockOf(BSTR bs) { return reinterpret_cast<uint8_t*>(bs) - kBstrHeader; }

thread_local DWORD t_dwLastError = 0;

}  // namespace

extern "C" {

VCRT_API BSTR SysAllocString(const OLECHAR* psz) {
  if (!psz) return nullptr;
  return AllocBstrBytes(psz, vc::StrLen(psz) * sizeof(OLECHAR));
}

VCRT_API BSTR SysAllocStringLen(const OLECHAR* pch, UINT cch) {
  return AllocBstrBytes(pch, static_cast<size_t>(cch) * sizeof(OLECHAR));
}

VCRT_API BSTR SysAllocStringByteLen(LPCSTR psz, UINT len) { return AllocBstrBytes(psz, len); }

VCRT_API INT SysReAllocStringLen(BSTR* pbstr, const OLECHAR* psz, UINT len) {
  if (!pbstr) return FALSE;
  BSTR bsNew = SysAllocStringLen(psz, len);
  if (!bsNew) return FALSE;
  SysFreeString(*pbstr);
  *pbstr = bsNew;
  return TRUE;
}

VCRT_API INT SysReAllocString(BSTR* pbstr, const OLECHAR* psz) {
  return SysReAllocStringLen(pbstr, psz, static_cast<UINT>(vc::StrLen(psz)));
}

VCRT_API void SysFreeString(BSTR bstr) {
  if (bstr) std::free(BlockOf(bstr));
}

VCRT_API UINT SysStringByteLen(BSTR bstr) {
  if (!bstr) return 0;
  uint32_t len;
  std::memcpy(&len, BlockOf(bstr) + 4, 4);
  return len;
}

VCRT_API UINT SysStringLen(BSTR bstr) { return SysStringByteLen(bstr) / sizeof(OLECHAR); }

VCRT_API LPVOID CoTaskMemAlloc(SIZE_T cb) { return std::malloc(cb ? cb : 1); }

VCRT_API LPVOID CoTaskMemRealloc(LPVOID pv, SIZE_T cb) { return std::realloc(pv, cb ? cb : 1); }

VCRT_API void CoTaskMemFree(LPVOID pv) { std::free(pv); }

VCRT_API DWORD GetLastError() { return t_dwLastError; }

VCRT_API void SetLastError(DWORD dwErrCode) { t_dwLastError = dwErrCode; }

VCRT_API DWORD GetCurrentProcessId() { return static_cast<DWORD>(getpid()); }

VCRT_API DWORD GetCurrentThreadId() { return static_cast<DWORD>(syscall(SYS_gettid)); }

VCRT_API INT StringFromGUID2(REFGUID rguid, LPOLESTR lpsz, INT cchMax) {
  const vc::String s = vc::GuidToString(rguid);
  if (!lpsz || cchMax < static_cast<INT>(s.size() + 1)) return 0;
  std::memcpy(lpsz, s.c_str(), (s.size() + 1) * sizeof(OLECHAR));
  return static_cast<INT>(s.size() + 1);
}

VCRT_API HRESULT CLSIDFromString(LPCOLESTR lpsz, CLSID* pclsid) {
  if (!pclsid) return E_INVALIDARG;
  const vc::StringView s = vc::View(lpsz);
  if (s.size() != 38 || !vc::GuidFromString(s, pclsid)) return CO_E_CLASSSTRING;
  return S_OK;
}

VCRT_API HRESULT IIDFromString(LPCOLESTR lpsz, IID* lpiid) {
  if (!lpiid) return E_INVALIDARG;
  if (!lpsz) {
    *lpiid = GUID_NULL;
    return S_OK;
  }
  const vc::StringView s = vc::View(lpsz);
  if (s.size() != 38 || !vc::GuidFromString(s, lpiid)) return E_INVALIDARG;
  return S_OK;
}

}  // extern "C"
