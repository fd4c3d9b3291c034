// The module's exported entry points. Thin: everything is in CVCModule;
// each converts an exception into its HRESULT here, at the boundary.
#include "VCGuard.h"
#include "VCModule.h"

#if defined(_WIN32)
#include <shlwapi.h>
#define VC_ENTRY extern "C" HRESULT STDAPICALLTYPE
#else
#define VC_ENTRY extern "C" __attribute__((visibility("default"))) HRESULT
#endif

VC_ENTRY DllGetClassObject(REFCLSID rclsid, REFIID riid, LPVOID* ppv) {
  VC_GUARD_BEGIN
  return vc::CoreModule().GetClassObject(rclsid, riid, ppv);
  VC_GUARD_END
}

VC_ENTRY DllCanUnloadNow() {
  VC_GUARD_BEGIN
  return vc::CoreModule().CanUnloadNow();
  VC_GUARD_END
}

VC_ENTRY DllRegisterServer() {
  VC_GUARD_BEGIN
  return vc::CoreModule().RegisterServer();
  VC_GUARD_END
}

VC_ENTRY DllUnregisterServer() {
  VC_GUARD_BEGIN
  return vc::CoreModule().UnregisterServer();
  VC_GUARD_END
}

VC_ENTRY DllInstall(BOOL bInstall, LPCWSTR pszCmdLine) {
  VC_GUARD_BEGIN
  return vc::CoreModule().Install(bInstall, pszCmdLine);
  VC_GUARD_END
}

VC_ENTRY DllGetVersion(DLLVERSIONINFO* pdvi) {
  VC_GUARD_BEGIN
  if (!pdvi) return E_POINTER;
  if (pdvi->cbSize < sizeof(DLLVERSIONINFO)) return E_INVALIDARG;
  pdvi->dwMajorVersion = VC_VERSION_MAJOR;
  pdvi->dwMinorVersion = VC_VERSION_MINOR;
  pdvi->dwBuildNumber = VC_VERSION_PATCH;
  pdvi->dwPlatformID = DLLVER_PLATFORM_NT;
  return S_OK;
  VC_GUARD_END
}
