// vccodecs register / unregister [--user]: runs the module's own
// registration through DllInstall, so a failure part-way leaves nothing.
#include <cstdio>

#include "Commands.h"
#include "ToolModule.h"

namespace vctool {

int CmdRegister(bool bRegister, bool bPerUser) {
  CoreEntry core;
  if (!LoadCore(&core)) return 2;
  const HRESULT hr = core.pfnInstall(bRegister ? TRUE : FALSE, bPerUser ? W("user") : nullptr);
  std::printf("%s %s%s: %s\n", bRegister ? "register" : "unregister", core.strPath.c_str(),
              bPerUser ? " (per user)" : " (machine)", SUCCEEDED(hr) ? "ok" : HrText(hr).c_str());
  return SUCCEEDED(hr) ? 0 : 1;
}

}  // namespace vctool
