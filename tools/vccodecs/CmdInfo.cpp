// vccodecs info: the module's path and version, and for each class its
// identifier, where it is registered and whether it can be created.
#include <cstdio>

#include "Commands.h"
#include "ToolModule.h"
#include "VCStrings.h"

namespace vctool {

int CmdInfo() {
  CoreEntry core;
  if (!LoadCore(&core)) return 2;

  std::string strVersion = "unknown";
  if (core.pfnGetVersion) {
    DLLVERSIONINFO dvi{};
    dvi.cbSize = sizeof dvi;
    if (SUCCEEDED(core.pfnGetVersion(&dvi)))
      strVersion = std::to_string(dvi.dwMajorVersion) + "." + std::to_string(dvi.dwMinorVersion) + "." +
                   std::to_string(dvi.dwBuildNumber);
  }
  std::printf("Corvane Codecs Core\n");
  std::printf("  module   %s\n", core.strPath.c_str());
  std::printf("  version  %s\n\n", strVersion.c_str());
  std::printf("  %-11s %-39s %-10s %s\n", "class", "identifier", "registered", "create (CoCreateInstance)");

  int nCreated = 0;
  for (const ClassInfo& cls : kCoreClasses) {
    std::string strServer;
    const std::string strWhere = RegistrationOf(*cls.pclsid, &strServer);
    IUnknown* pUnk = nullptr;
    const HRESULT hr = CoCreateInstance(*cls.pclsid, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                                        reinterpret_cast<void**>(&pUnk));
    if (pUnk) {
      pUnk->Release();
      ++nCreated;
    }
    std::printf("  %-11s %-39s %-10s %s\n", cls.szName, vc::GuidToUtf8(*cls.pclsid).c_str(), strWhere.c_str(),
                SUCCEEDED(hr) ? "ok" : HrText(hr).c_str());
    if (!strServer.empty() && strServer != core.strPath)
      std::printf("  %-11s registered module: %s\n", "", strServer.c_str());
  }
  if (nCreated < 4)
    std::printf("\n  Classes that cannot be created are neither registered nor listed in a manifest "
                "next to the module: run 'vccodecs register' (or 'register --user').\n");
  return 0;
}

}  // namespace vctool
