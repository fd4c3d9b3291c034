// The tool's handle on the core module: loads it from the tool's folder the
// way a host does (by file name) and resolves its entry points. Main thread.
#pragma once

#include <string>

#include "VCCodecsCore.h"

namespace vctool {

struct CoreEntry {
  HMODULE hModule = nullptr;
  std::string strPath;
  HRESULT(STDAPICALLTYPE* pfnGetClassObject)(REFCLSID, REFIID, LPVOID*) = nullptr;
  HRESULT(STDAPICALLTYPE* pfnRegister)() = nullptr;
  HRESULT(STDAPICALLTYPE* pfnUnregister)() = nullptr;
  HRESULT(STDAPICALLTYPE* pfnInstall)(BOOL, LPCWSTR) = nullptr;
  HRESULT(STDAPICALLTYPE* pfnGetVersion)(DLLVERSIONINFO*) = nullptr;
};

// Loads the module; on failure prints why and returns false.
bool LoadCore(CoreEntry* pEntry);

struct ClassInfo {
  const char* szName;
  const CLSID* pclsid;
};
extern const ClassInfo kCoreClasses[4];

// "per user", "machine" or "no", with the registered module path.
std::string RegistrationOf(REFCLSID rclsid, std::string* pstrServer);

// A failure code for the user: its hex, name and meaning
// ("0x80070002 file not found: ..."); every failure message prints codes so.
std::string HrText(HRESULT hr);

}  // namespace vctool
