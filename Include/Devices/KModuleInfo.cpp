// Process and module facts for the reserved property names.
#include "KModuleInfo.h"

#include <cstdint>
#include <cstring>
#include <string>

#if defined(_WIN32)
#include <vector>
#else
#include <cstdio>
#include <climits>
#include <dlfcn.h>
#include <unistd.h>
#endif

#include "VCFormat.h"

// The build passes the project's version numbers on Linux, where a module has
// no version resource. A build that does not leaves the module unversioned.
#if !defined(VC_VERSION_MAJOR)
#define VC_VERSION_MAJOR 0
#endif
#if !defined(VC_VERSION_MINOR)
#define VC_VERSION_MINOR 0
#endif
#if !defined(VC_VERSION_PATCH)
#define VC_VERSION_PATCH 0
#endif
#if !defined(VC_VERSION_TWEAK)
#define VC_VERSION_TWEAK 0
#endif

namespace vc {
namespace {

// An address inside this module: whatever module holds it holds this code.
void ModuleAnchor() {}

String VersionText(uint32_t dwMostSignificant, uint32_t dwLeastSignificant) {
  return FromUtf8(Format("%d.%d.%d.%d", static_cast<int>(dwMostSignificant >> 16),
                         static_cast<int>(dwMostSignificant & 0xFFFF), static_cast<int>(dwLeastSignificant >> 16),
                         static_cast<int>(dwLeastSignificant & 0xFFFF)));
}

#if defined(_WIN32)

String ModuleFileName(HMODULE hModule) {
  std::vector<wchar_t> buffer(MAX_PATH);
  for (;;) {
    const DWORD n = GetModuleFileNameW(hModule, buffer.data(), static_cast<DWORD>(buffer.size()));
    if (n == 0) return {};
    if (n < buffer.size()) return String(buffer.data(), n);
    buffer.resize(buffer.size() * 2);
  }
}

HMODULE ThisModule() {
  HMODULE hModule = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                     reinterpret_cast<LPCWSTR>(reinterpret_cast<void*>(&ModuleAnchor)), &hModule);
  return hModule;
}

// The fixed part of the module's version resource, read straight from the
// resource: it sits at the first 32-bit aligned position after the block's
// header and key, marked by its signature.
bool FindFixedVersion(VS_FIXEDFILEINFO* pInfo) {
  const HMODULE hModule = ThisModule();
  HRSRC hResource = FindResourceW(hModule, MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(16));
  if (!hResource) return false;
  HGLOBAL hData = LoadResource(hModule, hResource);
  const DWORD cbData = SizeofResource(hModule, hResource);
  const auto* pData = static_cast<const uint8_t*>(hData ? LockResource(hData) : nullptr);
  if (!pData) return false;
  constexpr DWORD kSignature = 0xFEEF04BD;
  for (DWORD off = 0; off + sizeof(VS_FIXEDFILEINFO) <= cbData; off += 4) {
    DWORD dwValue = 0;
    std::memcpy(&dwValue, pData + off, sizeof(dwValue));
    if (dwValue == kSignature) {
      std::memcpy(pInfo, pData + off, sizeof(VS_FIXEDFILEINFO));
      return true;
    }
  }
  return false;
}

#else

// The mapping of /proc/self/maps that contains the anchor names the module
// by its full path, which the loader's own record does not always do (it
// keeps the main program's name as it was typed).
String MappedFileOf(const void* pAddress) {
  FILE* pMaps = std::fopen("/proc/self/maps", "r");
  if (!pMaps) return {};
  const auto addr = reinterpret_cast<uintptr_t>(pAddress);
  std::string result;
  char line[PATH_MAX + 256];
  while (std::fgets(line, sizeof(line), pMaps)) {
    unsigned long long llStart = 0, llEnd = 0;
    int nPathAt = 0;
    if (std::sscanf(line, "%llx-%llx %*s %*s %*s %*s %n", &llStart, &llEnd, &nPathAt) < 2 || nPathAt == 0) continue;
    if (addr < llStart || addr >= llEnd) continue;
    result = line + nPathAt;
    while (!result.empty() && (result.back() == '\n' || result.back() == ' ')) result.pop_back();
    break;
  }
  std::fclose(pMaps);
  return FromUtf8(result);
}

#endif

}  // namespace

String ProcessImagePath() {
#if defined(_WIN32)
  return ModuleFileName(nullptr);
#else
  std::string buffer(PATH_MAX, '\0');
  const ssize_t n = readlink("/proc/self/exe", buffer.data(), buffer.size());
  if (n <= 0) return {};
  buffer.resize(static_cast<size_t>(n));
  return FromUtf8(buffer);
#endif
}

String ProcessIdText() { return FromUtf8(std::to_string(GetCurrentProcessId())); }

String ModuleFilePath() {
#if defined(_WIN32)
  return ModuleFileName(ThisModule());
#else
  String path = MappedFileOf(reinterpret_cast<const void*>(&ModuleAnchor));
  if (!path.empty()) return path;
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&ModuleAnchor), &info) && info.dli_fname) return FromUtf8(info.dli_fname);
  return {};
#endif
}

String ModuleVersionText(bool bFileVersion) {
#if defined(_WIN32)
  VS_FIXEDFILEINFO info{};
  if (!FindFixedVersion(&info)) return VersionText(0, 0);
  return bFileVersion ? VersionText(info.dwFileVersionMS, info.dwFileVersionLS)
                      : VersionText(info.dwProductVersionMS, info.dwProductVersionLS);
#else
  (void)bFileVersion;  // one version number set for both on Linux
  return VersionText((uint32_t{VC_VERSION_MAJOR} << 16) | uint32_t{VC_VERSION_MINOR},
                     (uint32_t{VC_VERSION_PATCH} << 16) | uint32_t{VC_VERSION_TWEAK});
#endif
}

String ModuleBuildDate() { return FromUtf8(__DATE__ " " __TIME__); }

}  // namespace vc
