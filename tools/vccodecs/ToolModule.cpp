#include "ToolModule.h"

#include <cstdio>

#include "VCErrorText.h"
#include "VCStrings.h"

#if defined(_WIN32)
#include <shlwapi.h>
#endif

namespace vctool {

const ClassInfo kCoreClasses[4] = {
    {"VCSplitter", &CLSID_VCSplitter},
    {"VCDecoder", &CLSID_VCDecoder},
    {"VCEncoder", &CLSID_VCEncoder},
    {"VCMuxer", &CLSID_VCMuxer},
};

namespace {

template <class F>
void Resolve(HMODULE h, const char* szName, F* pfn) {
  *pfn = reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(h, szName)));
}

bool ReadDefault(HKEY hRoot, const vc::String& strKey, std::string* pstrValue) {
  HKEY hKey = nullptr;
  if (RegOpenKeyExW(hRoot, strKey.c_str(), 0, KEY_READ, &hKey) != ERROR_SUCCESS) return false;
  OLECHAR buf[2048] = {};
  DWORD cb = sizeof buf - sizeof(OLECHAR);
  DWORD dwType = 0;
  const LSTATUS st = RegQueryValueExW(hKey, nullptr, nullptr, &dwType, reinterpret_cast<BYTE*>(buf), &cb);
  RegCloseKey(hKey);
  if (st != ERROR_SUCCESS || dwType != REG_SZ) return false;
  *pstrValue = vc::ToUtf8(buf);
  return true;
}

}  // namespace

bool LoadCore(CoreEntry* pEntry) {
  const vc::String strName = vc::FromUtf8("Corvane.Codecs.Core.x64" VC_MODULE_SUFFIX);
  HMODULE h = LoadLibraryW(strName.c_str());
  if (!h) {
    const DWORD dwError = GetLastError();
    std::fprintf(stderr, "vccodecs: cannot load %s: %s\n", vc::ToUtf8(strName).c_str(),
                 HrText(HRESULT_FROM_WIN32(dwError)).c_str());
    return false;
  }
  OLECHAR buf[4096];
  const DWORD n = GetModuleFileNameW(h, buf, 4096);
  pEntry->hModule = h;
  pEntry->strPath = vc::ToUtf8(vc::StringView(buf, n < 4096 ? n : 0));
  Resolve(h, "DllGetClassObject", &pEntry->pfnGetClassObject);
  Resolve(h, "DllRegisterServer", &pEntry->pfnRegister);
  Resolve(h, "DllUnregisterServer", &pEntry->pfnUnregister);
  Resolve(h, "DllInstall", &pEntry->pfnInstall);
  Resolve(h, "DllGetVersion", &pEntry->pfnGetVersion);
  if (!pEntry->pfnGetClassObject || !pEntry->pfnInstall) {
    std::fprintf(stderr, "vccodecs: %s lacks the module entry points\n", pEntry->strPath.c_str());
    return false;
  }
  return true;
}

std::string RegistrationOf(REFCLSID rclsid, std::string* pstrServer) {
  const vc::String strKey = vc::String(W("Software\\Classes\\CLSID\\")) + vc::GuidToString(rclsid) +
                            W("\\InprocServer32");
  if (ReadDefault(HKEY_CURRENT_USER, strKey, pstrServer)) return "per user";
  if (ReadDefault(HKEY_LOCAL_MACHINE, strKey, pstrServer)) return "machine";
  pstrServer->clear();
  return "no";
}

std::string HrText(HRESULT hr) { return vc::ErrorText(hr); }

}  // namespace vctool
