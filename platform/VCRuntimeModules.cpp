// Module loading for the Linux component runtime: LoadLibrary(Ex)W,
// GetProcAddress, GetModuleFileNameW and the process error mode, over dlopen.
// A bare module name is looked for in the executable's folder first, then
// through the dynamic loader's own search (which includes this runtime's
// folder), mirroring the Windows order "application folder, then defaults".
#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <string>

#include "VCPlatform.h"
#include "VCRuntimeInternal.h"
#include "VCStrings.h"

namespace {

std::atomic<UINT> g_uErrorMode{0};
thread_local std::string t_strLoadError;

// Search flags understood here: LOAD_WITH_ALTERED_SEARCH_PATH and the
// LOAD_LIBRARY_SEARCH_* family; anything else is refused with error 87, as an
// older system refuses flags it does not know.
constexpr DWORD kKnownLoadFlags = 0x00000008 | 0x00000100 | 0x00000200 | 0x00000400 | 0x00000800 | 0x00001000;

bool FileExists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

HMODULE OpenModule(const std::string& path) {
  dlerror();
  void* h = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!h) {
    const char* err = dlerror();
    t_strLoadError = err ? err : "dlopen failed";
    // A file that exists but does not load is a bad image; otherwise not found.
    const bool bHasSlash = path.find('/') != std::string::npos;
    SetLastError(bHasSlash && FileExists(path) ? ERROR_BAD_EXE_FORMAT : ERROR_MOD_NOT_FOUND);
  }
  return h;
}

}  // namespace

namespace vc::rt {

std::string ExecutablePath() {
  char buf[4096];
  const ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
  if (n <= 0) return {};
  return std::string(buf, static_cast<size_t>(n));
}

std::string DirectoryOf(const std::string& path) {
  const auto pos = path.rfind('/');
  if (pos == std::string::npos) return ".";
  return pos == 0 ? "/" : path.substr(0, pos);
}

std::string RuntimeDirectory() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&RuntimeDirectory), &info) && info.dli_fname) return DirectoryOf(info.dli_fname);
  return DirectoryOf(ExecutablePath());
}

const std::string& LastLoadError() { return t_strLoadError; }

HMODULE LoadModuleUtf8(const std::string& name) {
  if (name.empty()) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  if (name.find('/') == std::string::npos) {
    const std::string inAppDir = DirectoryOf(ExecutablePath()) + "/" + name;
    if (FileExists(inAppDir)) return OpenModule(inAppDir);
  }
  return OpenModule(name);
}

}  // namespace vc::rt

extern "C" {

VCRT_API HMODULE LoadLibraryExW(LPCWSTR lpLibFileName, HANDLE hFile, DWORD dwFlags) {
  if (!lpLibFileName || hFile || (dwFlags & ~kKnownLoadFlags) != 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  return vc::rt::LoadModuleUtf8(vc::ToUtf8(lpLibFileName));
}

VCRT_API HMODULE LoadLibraryW(LPCWSTR lpLibFileName) { return LoadLibraryExW(lpLibFileName, nullptr, 0); }

VCRT_API BOOL FreeLibrary(HMODULE hLibModule) {
  if (!hLibModule) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  return dlclose(hLibModule) == 0 ? TRUE : FALSE;
}

VCRT_API FARPROC GetProcAddress(HMODULE hModule, LPCSTR lpProcName) {
  if (!hModule || !lpProcName) {
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
  }
  dlerror();
  void* p = dlsym(hModule, lpProcName);
  if (!p) {
    SetLastError(ERROR_PROC_NOT_FOUND);
    return nullptr;
  }
  FARPROC fn;
  static_assert(sizeof fn == sizeof p);
  std::memcpy(&fn, &p, sizeof p);
  return fn;
}

VCRT_API DWORD GetModuleFileNameW(HMODULE hModule, LPWSTR lpFilename, DWORD nSize) {
  std::string path;
  if (!hModule) {
    path = vc::rt::ExecutablePath();
  } else {
    link_map* lm = nullptr;
    if (dlinfo(hModule, RTLD_DI_LINKMAP, &lm) != 0 || !lm) {
      SetLastError(ERROR_INVALID_HANDLE);
      return 0;
    }
    path = (lm->l_name && lm->l_name[0]) ? lm->l_name : vc::rt::ExecutablePath();
  }
  const vc::String w = vc::FromUtf8(path);
  if (!lpFilename || nSize == 0) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return 0;
  }
  if (w.size() + 1 > nSize) {
    std::memcpy(lpFilename, w.data(), (nSize - 1) * sizeof(OLECHAR));
    lpFilename[nSize - 1] = 0;
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return nSize;
  }
  std::memcpy(lpFilename, w.c_str(), (w.size() + 1) * sizeof(OLECHAR));
  SetLastError(ERROR_SUCCESS);
  return static_cast<DWORD>(w.size());
}

VCRT_API UINT SetErrorMode(UINT uMode) { return g_uErrorMode.exchange(uMode); }

}  // extern "C"
