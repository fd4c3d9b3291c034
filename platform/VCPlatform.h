// The portable component layer: the one header every module, tool and host
// includes for GUIDs, HRESULTs, BSTRs, IUnknown, class factories, the registry
// and module loading. On Windows it is the platform's own headers; on Linux it
// declares the same names and signatures, implemented by the component runtime
// library (libvcrt.so) that every module links, so that memory allocated in one
// module (BSTR, CoTaskMem) is freed by the same heap in another.
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(_WIN32)

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#include <objbase.h>
#include <oleauto.h>
#include <unknwn.h>
#include <shlwapi.h>  // DLLVERSIONINFO

// Wide literals: OLECHAR is wchar_t (16-bit) on Windows.
#define W(s) L##s

#define VCRT_API

#else  // Linux

#define VCRT_API __attribute__((visibility("default")))

// Wide literals: OLECHAR is char16_t on Linux, never the 32-bit wchar_t.
#define W(s) u##s

using HRESULT = int32_t;
using LONG = int32_t;
using ULONG = uint32_t;
using DWORD = uint32_t;
using BOOL = int32_t;
using BYTE = uint8_t;
using WORD = uint16_t;
using SHORT = int16_t;
using USHORT = uint16_t;
using INT = int;
using UINT = unsigned int;
using LONGLONG = int64_t;
using ULONGLONG = uint64_t;
using LONG_PTR = intptr_t;
using ULONG_PTR = uintptr_t;
using DWORD_PTR = uintptr_t;
using SIZE_T = size_t;
using WCHAR = char16_t;
using OLECHAR = char16_t;
using LPOLESTR = OLECHAR*;
using LPCOLESTR = const OLECHAR*;
using LPWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using LPSTR = char*;
using LPCSTR = const char*;
using BSTR = OLECHAR*;
using LPVOID = void*;
using LPCVOID = const void*;
using LPBYTE = BYTE*;
using LPDWORD = DWORD*;
using PLONG = LONG*;
using HANDLE = void*;
using HMODULE = void*;
using HINSTANCE = void*;
using FARPROC = void (*)();
using LSTATUS = LONG;
using REGSAM = DWORD;
using VARIANT_BOOL = SHORT;
using LCID = DWORD;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif
#define MAX_PATH 260

#define STDMETHODCALLTYPE
#define STDAPICALLTYPE
#define STDAPI extern "C" VCRT_API HRESULT
#define WINAPI

struct GUID {
  uint32_t Data1;
  uint16_t Data2;
  uint16_t Data3;
  uint8_t Data4[8];
};
using IID = GUID;
using CLSID = GUID;
using REFGUID = const GUID&;
using REFIID = const IID&;
using REFCLSID = const CLSID&;

constexpr bool IsEqualGUID(REFGUID a, REFGUID b) {
  if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
  for (int i = 0; i < 8; ++i)
    if (a.Data4[i] != b.Data4[i]) return false;
  return true;
}
#define IsEqualIID(a, b) IsEqualGUID(a, b)
#define IsEqualCLSID(a, b) IsEqualGUID(a, b)
constexpr bool operator==(REFGUID a, REFGUID b) { return IsEqualGUID(a, b); }

#define SUCCEEDED(hr) (static_cast<HRESULT>(hr) >= 0)
#define FAILED(hr) (static_cast<HRESULT>(hr) < 0)
#define HRESULT_CODE(hr) ((hr) & 0xFFFF)
#define MAKE_HRESULT(sev, fac, code) \
  static_cast<HRESULT>((static_cast<uint32_t>(sev) << 31) | (static_cast<uint32_t>(fac) << 16) | static_cast<uint32_t>(code))
#define FACILITY_WIN32 7
constexpr HRESULT HRESULT_FROM_WIN32(uint32_t x) {
  return static_cast<HRESULT>(x) <= 0 ? static_cast<HRESULT>(x)
                                      : static_cast<HRESULT>((x & 0x0000FFFFu) | (FACILITY_WIN32 << 16) | 0x80000000u);
}

// Status codes: the Windows numbers.
#define S_OK static_cast<HRESULT>(0)
#define S_FALSE static_cast<HRESULT>(1)
#define E_NOTIMPL static_cast<HRESULT>(0x80004001u)
#define E_NOINTERFACE static_cast<HRESULT>(0x80004002u)
#define E_POINTER static_cast<HRESULT>(0x80004003u)
#define E_ABORT static_cast<HRESULT>(0x80004004u)
#define E_FAIL static_cast<HRESULT>(0x80004005u)
#define E_UNEXPECTED static_cast<HRESULT>(0x8000FFFFu)
#define E_ACCESSDENIED static_cast<HRESULT>(0x80070005u)
#define E_HANDLE static_cast<HRESULT>(0x80070006u)
#define E_OUTOFMEMORY static_cast<HRESULT>(0x8007000Eu)
#define E_INVALIDARG static_cast<HRESULT>(0x80070057u)
#define CLASS_E_NOAGGREGATION static_cast<HRESULT>(0x80040110u)
#define CLASS_E_CLASSNOTAVAILABLE static_cast<HRESULT>(0x80040111u)
#define REGDB_E_CLASSNOTREG static_cast<HRESULT>(0x80040154u)
#define REGDB_E_READREGDB static_cast<HRESULT>(0x80040150u)
#define CO_E_NOTINITIALIZED static_cast<HRESULT>(0x800401F0u)
#define CO_E_DLLNOTFOUND static_cast<HRESULT>(0x800401F8u)
#define CO_E_ERRORINDLL static_cast<HRESULT>(0x800401F9u)
#define RPC_E_CHANGED_MODE static_cast<HRESULT>(0x80010106u)
#define DISP_E_EXCEPTION static_cast<HRESULT>(0x80020009u)
#define CO_E_CLASSSTRING static_cast<HRESULT>(0x800401F3u)
#define STG_E_INVALIDFUNCTION static_cast<HRESULT>(0x80030001u)
#define TYPE_E_CANTLOADLIBRARY static_cast<HRESULT>(0x80029C4Au)

// Platform error numbers used by the system.
#define ERROR_SUCCESS 0L
#define ERROR_FILE_NOT_FOUND 2L
#define ERROR_PATH_NOT_FOUND 3L
#define ERROR_ACCESS_DENIED 5L
#define ERROR_INVALID_HANDLE 6L
#define ERROR_NOT_ENOUGH_MEMORY 8L
#define ERROR_INVALID_DATA 13L
#define ERROR_NOT_SUPPORTED 50L
#define ERROR_INVALID_PARAMETER 87L
#define ERROR_INSUFFICIENT_BUFFER 122L
#define ERROR_MOD_NOT_FOUND 126L
#define ERROR_PROC_NOT_FOUND 127L
#define ERROR_BAD_EXE_FORMAT 193L
#define ERROR_MORE_DATA 234L
#define ERROR_OPERATION_ABORTED 995L
#define ERROR_NO_MORE_ITEMS 259L
#define ERROR_BADDB 1009L
#define ERROR_BADKEY 1010L
#define ERROR_CANTOPEN 1011L
#define ERROR_CANTREAD 1012L
#define ERROR_CANTWRITE 1013L
#define ERROR_KEY_DELETED 1018L
#define ERROR_END_OF_MEDIA 1100L
#define ERROR_INVALID_INDEX 1413L
#define ERROR_TIMEOUT 1460L
#define ERROR_EMPTY 4306L
// Network failures, as Windows reports them for sockets.
#define ERROR_BAD_NET_RESP 58L
#define ERROR_CONNECTION_REFUSED 1225L
#define ERROR_NETWORK_UNREACHABLE 1231L
#define ERROR_HOST_UNREACHABLE 1232L
#define ERROR_CONNECTION_ABORTED 1236L
#define WSAECONNRESET 10054L

#define CLSCTX_INPROC_SERVER 0x1
#define CLSCTX_INPROC_HANDLER 0x2
#define CLSCTX_LOCAL_SERVER 0x4
#define CLSCTX_REMOTE_SERVER 0x10
#define CLSCTX_ALL (CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER)

#define COINIT_MULTITHREADED 0x0
#define COINIT_APARTMENTTHREADED 0x2

#define SEM_FAILCRITICALERRORS 0x0001
#define SEM_NOGPFAULTERRORBOX 0x0002
#define SEM_NOOPENFILEERRORBOX 0x8000

#define LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR 0x00000100
#define LOAD_LIBRARY_SEARCH_DEFAULT_DIRS 0x00001000

struct RECT {
  LONG left;
  LONG top;
  LONG right;
  LONG bottom;
};
struct SIZE {
  LONG cx;
  LONG cy;
};
struct POINT {
  LONG x;
  LONG y;
};
struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};
using PFILETIME = FILETIME*;
union LARGE_INTEGER {
  struct {
    DWORD LowPart;
    LONG HighPart;
  } u;
  LONGLONG QuadPart;
};
union ULARGE_INTEGER {
  struct {
    DWORD LowPart;
    DWORD HighPart;
  } u;
  ULONGLONG QuadPart;
};

// The base interface: slot 0 QueryInterface, 1 AddRef, 2 Release.
struct IUnknown {
  virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) = 0;
  virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
  virtual ULONG STDMETHODCALLTYPE Release() = 0;
};
using LPUNKNOWN = IUnknown*;

struct IClassFactory : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) = 0;
  virtual HRESULT STDMETHODCALLTYPE LockServer(BOOL fLock) = 0;
};

struct STATSTG {
  LPOLESTR pwcsName;
  DWORD type;
  ULARGE_INTEGER cbSize;
  FILETIME mtime;
  FILETIME ctime;
  FILETIME atime;
  DWORD grfMode;
  DWORD grfLocksSupported;
  CLSID clsid;
  DWORD grfStateBits;
  DWORD reserved;
};

#define STREAM_SEEK_SET 0
#define STREAM_SEEK_CUR 1
#define STREAM_SEEK_END 2
#define STATFLAG_DEFAULT 0
#define STATFLAG_NONAME 1

struct ISequentialStream : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Read(void* pv, ULONG cb, ULONG* pcbRead) = 0;
  virtual HRESULT STDMETHODCALLTYPE Write(const void* pv, ULONG cb, ULONG* pcbWritten) = 0;
};

struct IStream : public ISequentialStream {
  virtual HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER dlibMove, DWORD dwOrigin, ULARGE_INTEGER* plibNewPosition) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER libNewSize) = 0;
  virtual HRESULT STDMETHODCALLTYPE CopyTo(IStream* pstm, ULARGE_INTEGER cb, ULARGE_INTEGER* pcbRead,
                                           ULARGE_INTEGER* pcbWritten) = 0;
  virtual HRESULT STDMETHODCALLTYPE Commit(DWORD grfCommitFlags) = 0;
  virtual HRESULT STDMETHODCALLTYPE Revert() = 0;
  virtual HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER libOffset, ULARGE_INTEGER cb, DWORD dwLockType) = 0;
  virtual HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER libOffset, ULARGE_INTEGER cb, DWORD dwLockType) = 0;
  virtual HRESULT STDMETHODCALLTYPE Stat(STATSTG* pstatstg, DWORD grfStatFlag) = 0;
  virtual HRESULT STDMETHODCALLTYPE Clone(IStream** ppstm) = 0;
};

// Registry handles. The predefined roots carry the Windows values.
struct HKEY__;
using HKEY = HKEY__*;
using PHKEY = HKEY*;
#define HKEY_CLASSES_ROOT reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x80000000u))
#define HKEY_CURRENT_USER reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x80000001u))
#define HKEY_LOCAL_MACHINE reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x80000002u))

#define KEY_QUERY_VALUE 0x0001
#define KEY_SET_VALUE 0x0002
#define KEY_CREATE_SUB_KEY 0x0004
#define KEY_ENUMERATE_SUB_KEYS 0x0008
#define KEY_READ 0x20019
#define KEY_WRITE 0x20006
#define KEY_ALL_ACCESS 0xF003F
#define DELETE 0x00010000L

#define REG_NONE 0
#define REG_SZ 1
#define REG_EXPAND_SZ 2
#define REG_BINARY 3
#define REG_DWORD 4
#define REG_MULTI_SZ 7
#define REG_QWORD 11

#define REG_OPTION_NON_VOLATILE 0
#define REG_CREATED_NEW_KEY 1
#define REG_OPENED_EXISTING_KEY 2

struct DLLVERSIONINFO {
  DWORD cbSize;
  DWORD dwMajorVersion;
  DWORD dwMinorVersion;
  DWORD dwBuildNumber;
  DWORD dwPlatformID;
};
#define DLLVER_PLATFORM_WINDOWS 0x00000001
#define DLLVER_PLATFORM_NT 0x00000002

using DLLGETCLASSOBJECT = HRESULT (*)(REFCLSID, REFIID, void**);

extern "C" {
VCRT_API extern const IID IID_IUnknown;
VCRT_API extern const IID IID_IClassFactory;
VCRT_API extern const IID IID_ISequentialStream;
VCRT_API extern const IID IID_IStream;
VCRT_API extern const GUID GUID_NULL;

// Strings and task memory: one heap for every module in the process.
VCRT_API BSTR SysAllocString(const OLECHAR* psz);
VCRT_API BSTR SysAllocStringLen(const OLECHAR* pch, UINT cch);
VCRT_API BSTR SysAllocStringByteLen(LPCSTR psz, UINT len);
VCRT_API INT SysReAllocString(BSTR* pbstr, const OLECHAR* psz);
VCRT_API INT SysReAllocStringLen(BSTR* pbstr, const OLECHAR* psz, UINT len);
VCRT_API void SysFreeString(BSTR bstr);
VCRT_API UINT SysStringLen(BSTR bstr);
VCRT_API UINT SysStringByteLen(BSTR bstr);
VCRT_API LPVOID CoTaskMemAlloc(SIZE_T cb);
VCRT_API LPVOID CoTaskMemRealloc(LPVOID pv, SIZE_T cb);
VCRT_API void CoTaskMemFree(LPVOID pv);

// Activation.
VCRT_API HRESULT CoInitializeEx(LPVOID pvReserved, DWORD dwCoInit);
VCRT_API HRESULT CoInitialize(LPVOID pvReserved);
VCRT_API void CoUninitialize();
VCRT_API HRESULT CoGetClassObject(REFCLSID rclsid, DWORD dwClsContext, LPVOID pvReserved, REFIID riid, LPVOID* ppv);
VCRT_API HRESULT CoCreateInstance(REFCLSID rclsid, LPUNKNOWN pUnkOuter, DWORD dwClsContext, REFIID riid, LPVOID* ppv);
VCRT_API INT StringFromGUID2(REFGUID rguid, LPOLESTR lpsz, INT cchMax);
VCRT_API HRESULT CLSIDFromString(LPCOLESTR lpsz, CLSID* pclsid);
VCRT_API HRESULT IIDFromString(LPCOLESTR lpsz, IID* lpiid);

// Modules, errors, processes.
VCRT_API HMODULE LoadLibraryW(LPCWSTR lpLibFileName);
VCRT_API HMODULE LoadLibraryExW(LPCWSTR lpLibFileName, HANDLE hFile, DWORD dwFlags);
VCRT_API BOOL FreeLibrary(HMODULE hLibModule);
VCRT_API FARPROC GetProcAddress(HMODULE hModule, LPCSTR lpProcName);
VCRT_API DWORD GetModuleFileNameW(HMODULE hModule, LPWSTR lpFilename, DWORD nSize);
VCRT_API DWORD GetLastError();
VCRT_API void SetLastError(DWORD dwErrCode);
VCRT_API UINT SetErrorMode(UINT uMode);
VCRT_API DWORD GetCurrentProcessId();
VCRT_API DWORD GetCurrentThreadId();

// Registry subset, stored in files (see VCRegistry.h for where).
VCRT_API LSTATUS RegCreateKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD Reserved, LPWSTR lpClass, DWORD dwOptions,
                                 REGSAM samDesired, void* lpSecurityAttributes, PHKEY phkResult,
                                 LPDWORD lpdwDisposition);
VCRT_API LSTATUS RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD ulOptions, REGSAM samDesired, PHKEY phkResult);
VCRT_API LSTATUS RegCloseKey(HKEY hKey);
VCRT_API LSTATUS RegSetValueExW(HKEY hKey, LPCWSTR lpValueName, DWORD Reserved, DWORD dwType, const BYTE* lpData,
                                DWORD cbData);
VCRT_API LSTATUS RegQueryValueExW(HKEY hKey, LPCWSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData,
                                  LPDWORD lpcbData);
VCRT_API LSTATUS RegDeleteValueW(HKEY hKey, LPCWSTR lpValueName);
VCRT_API LSTATUS RegDeleteKeyW(HKEY hKey, LPCWSTR lpSubKey);
VCRT_API LSTATUS RegDeleteTreeW(HKEY hKey, LPCWSTR lpSubKey);
VCRT_API LSTATUS RegEnumKeyExW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, LPDWORD lpcchName, LPDWORD lpReserved,
                               LPWSTR lpClass, LPDWORD lpcchClass, PFILETIME lpftLastWriteTime);
VCRT_API LSTATUS RegEnumValueW(HKEY hKey, DWORD dwIndex, LPWSTR lpValueName, LPDWORD lpcchValueName,
                               LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData);
VCRT_API LSTATUS RegQueryInfoKeyW(HKEY hKey, LPWSTR lpClass, LPDWORD lpcchClass, LPDWORD lpReserved,
                                  LPDWORD lpcSubKeys, LPDWORD lpcbMaxSubKeyLen, LPDWORD lpcbMaxClassLen,
                                  LPDWORD lpcValues, LPDWORD lpcbMaxValueNameLen, LPDWORD lpcbMaxValueLen,
                                  LPDWORD lpcbSecurityDescriptor, PFILETIME lpftLastWriteTime);
}  // extern "C"

#endif  // Linux

#if defined(_WIN32)
using DLLGETCLASSOBJECT = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, LPVOID*);
#endif

// Module file name suffix of this platform: sibling modules are named
// "Corvane.<Name>.x64" plus this suffix on both platforms.
#if defined(_WIN32)
#define VC_MODULE_SUFFIX ".dll"
#define VC_MODULE_SUFFIX_W L".dll"
#else
#define VC_MODULE_SUFFIX ".so"
#define VC_MODULE_SUFFIX_W u".so"
#endif

// Reference time: signed 100 ns units; the smallest value means "unset".
using REFERENCE_TIME = LONGLONG;
inline constexpr REFERENCE_TIME VC_TIME_UNSET = INT64_MIN;
// The one definition of the reference-time units every layer counts in.
inline constexpr REFERENCE_TIME VC_TIME_SECOND = 10000000;
inline constexpr REFERENCE_TIME VC_TIME_MILLISECOND = 10000;
