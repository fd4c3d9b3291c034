// The module's exported entry points. Thin: everything is in CVCModule.
#include "FFModule.h"

#define VC_ENTRY extern "C" __attribute__((visibility("default"))) HRESULT

VC_ENTRY DllGetClassObject(REFCLSID rclsid, REFIID riid, LPVOID* ppv) {
  return vc::ff::FFmpegModule().GetClassObject(rclsid, riid, ppv);
}

VC_ENTRY DllCanUnloadNow() { return vc::ff::FFmpegModule().CanUnloadNow(); }

VC_ENTRY DllRegisterServer() { return vc::ff::FFmpegModule().RegisterServer(); }

VC_ENTRY DllUnregisterServer() { return vc::ff::FFmpegModule().UnregisterServer(); }

VC_ENTRY DllInstall(BOOL bInstall, LPCWSTR pszCmdLine) {
  return vc::ff::FFmpegModule().Install(bInstall, pszCmdLine);
}
