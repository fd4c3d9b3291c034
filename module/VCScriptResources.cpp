// Registrar scripts by resource number: from the module's REGISTRY resources
// on Windows, from the copies compiled into the module on Linux.
#include "VCModule.h"

#if !defined(_WIN32)
#include "VCEmbeddedScripts.h"  // generated from the scripts res/VCCodecsCoreClassTable.cmake makes
#endif

namespace vc {

std::string LoadRegistryScriptResource(int nResource) {
#if defined(_WIN32)
  HMODULE hModule = nullptr;
  if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                          reinterpret_cast<LPCWSTR>(&LoadRegistryScriptResource), &hModule))
    return {};
  HRSRC hRes = FindResourceW(hModule, MAKEINTRESOURCEW(nResource), L"REGISTRY");
  if (!hRes) return {};
  HGLOBAL hData = LoadResource(hModule, hRes);
  const DWORD cb = SizeofResource(hModule, hRes);
  const auto* p = hData ? static_cast<const char*>(LockResource(hData)) : nullptr;
  return p ? std::string(p, cb) : std::string();
#else
  for (const auto& script : kEmbeddedScripts)
    if (script.nResource == nResource) return std::string(script.text);
  return {};
#endif
}

}  // namespace vc
