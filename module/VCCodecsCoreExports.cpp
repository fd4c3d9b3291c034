// The module's exported entry points. Thin: everything is in CVCModule.
#include "VCModule.h"

#if defined(_WIN32)
#include <shlwapi.h>
#define VC_ENTRY extern "C" HRESULT STDAPICALLTYPE
#else
#define VC_ENTRY extern "C" __attribute__((visibility("default"))) HRESULT
#endif

VC_ENTRY DllGetClassObject(REFCLSID rclsid, REFIID riid, LPVOID* ppv) {
  return vc::CoreModule().GetClassObject(rclsid, riid, ppv);
}

VC_ENTRY DllCanUnloadNow() { return vc::CoreModule().CanUnloadNow(); }

VC_ENTRY DllRegisterServer() { return vc::CoreModule().RegisterServer(); }

VC_ENTRY DllUnregisterServer() { return vc::CoreModule().UnregisterServer(); }

VC_ENTRY DllInstall(BOOL bInstall, LPCWSTR pszCmdLine) { return vc::CoreModule().Install(bInstall, pszCmdLine); }

VC_ENTRY DllGetVersion(DLLVERSIONINFO* pdvi) {
  if (!pdvi) return E_POINTER;
  if (pdvi->cbSize < sizeof(DLLVERSIONINFO)) return E_INVALIDARG;
  pdvi->dwMajorVersion = VC_VERSION_MAJOR;
  pdvi->dwMinorVersion = VC_VERSION_MINOR;
  pdvi->dwBuildNumber = VC_VERSION_PATCH;
  pdvi->dwPlatformID = DLLVER_PLATFORM_NT;
  return S_OK;
}
