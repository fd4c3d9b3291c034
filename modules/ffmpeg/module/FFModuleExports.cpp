// The module's exported entry points. Thin: everything is in CVCModule;
// each converts an exception into its HRESULT here, at the boundary.
#include "FFModule.h"
#include "VCGuard.h"

#define VC_ENTRY extern "C" __attribute__((visibility("default"))) HRESULT

VC_ENTRY DllGetClassObject(REFCLSID rclsid, REFIID riid, LPVOID* ppv) {
  VC_GUARD_BEGIN
  return vc::ff::FFmpegModule().GetClassObject(rclsid, riid, ppv);
  VC_GUARD_END
}

VC_ENTRY DllCanUnloadNow() {
  VC_GUARD_BEGIN
  return vc::ff::FFmpegModule().CanUnloadNow();
  VC_GUARD_END
}

VC_ENTRY DllRegisterServer() {
  VC_GUARD_BEGIN
  return vc::ff::FFmpegModule().RegisterServer();
  VC_GUARD_END
}

VC_ENTRY DllUnregisterServer() {
  VC_GUARD_BEGIN
  return vc::ff::FFmpegModule().UnregisterServer();
  VC_GUARD_END
}

VC_ENTRY DllInstall(BOOL bInstall, LPCWSTR pszCmdLine) {
  VC_GUARD_BEGIN
  return vc::ff::FFmpegModule().Install(bInstall, pszCmdLine);
  VC_GUARD_END
}
