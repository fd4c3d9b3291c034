// Small helpers over the registry calls for our own code and tests: where the
// Linux registry files live, and one-call reads and writes of string values.
// Any thread. The Reg* functions themselves are declared in VCPlatform.h; on
// Linux they are implemented over two text files (VCRegistryStore.h):
//   HKEY_LOCAL_MACHINE  /var/lib/corvane/registry/machine.reg
//   HKEY_CURRENT_USER   ${XDG_CONFIG_HOME:-$HOME/.config}/corvane/registry/user.reg
//   HKEY_CLASSES_ROOT   HKCU\Software\Classes merged over HKLM\Software\Classes
// When CORVANE_REGISTRY_ROOT is set, both files live in that folder instead.
// The variable is read on every call, so a test can point it elsewhere.
#pragma once

#include <string>
#include <vector>

#include "VCPlatform.h"
#include "VCStrings.h"

namespace vc::reg {

#ifndef _WIN32
inline constexpr const char kRootEnvVar[] = "CORVANE_REGISTRY_ROOT";

// Where the machine and user files are right now (the files need not exist).
VCRT_API std::string MachineFilePath();
VCRT_API std::string UserFilePath();
#endif

// Windows answers this number for a value of the wrong type.
inline constexpr LSTATUS kErrorInvalidDatatype = 1630;

// Reads a REG_SZ or REG_EXPAND_SZ value (not expanded) of hRoot\pszSubKey;
// null or empty names mean the key itself and the default value. Answers the
// registry's status, or kErrorInvalidDatatype for another type.
inline LSTATUS GetString(HKEY hRoot, const OLECHAR* pszSubKey, const OLECHAR* pszValue, String* psOut) {
  if (!psOut) return ERROR_INVALID_PARAMETER;
  psOut->clear();
  HKEY hKey = nullptr;
  LSTATUS st = RegOpenKeyExW(hRoot, pszSubKey ? pszSubKey : W(""), 0, KEY_QUERY_VALUE, &hKey);
  if (st != ERROR_SUCCESS) return st;
  DWORD dwType = REG_NONE;
  DWORD cb = 0;
  std::vector<BYTE> vb;
  // The value may grow between the size query and the read: try again then.
  do {
    st = RegQueryValueExW(hKey, pszValue, nullptr, &dwType, nullptr, &cb);
    if (st != ERROR_SUCCESS) break;
    vb.resize(cb);
    st = RegQueryValueExW(hKey, pszValue, nullptr, &dwType, vb.data(), &cb);
  } while (st == ERROR_MORE_DATA);
  RegCloseKey(hKey);
  if (st != ERROR_SUCCESS) return st;
  if (dwType != REG_SZ && dwType != REG_EXPAND_SZ) return kErrorInvalidDatatype;
  psOut->assign(reinterpret_cast<const OLECHAR*>(vb.data()), cb / sizeof(OLECHAR));
  while (!psOut->empty() && psOut->back() == 0) psOut->pop_back();
  return ERROR_SUCCESS;
}

// Creates hRoot\pszSubKey as needed and sets a REG_SZ value (null or empty
// name: the default value).
inline LSTATUS SetString(HKEY hRoot, const OLECHAR* pszSubKey, const OLECHAR* pszValue, StringView sValue) {
  HKEY hKey = nullptr;
  LSTATUS st = RegCreateKeyExW(hRoot, pszSubKey ? pszSubKey : W(""), 0, nullptr, REG_OPTION_NON_VOLATILE,
                               KEY_SET_VALUE, nullptr, &hKey, nullptr);
  if (st != ERROR_SUCCESS) return st;
  const String sData(sValue);  // adds the terminating zero the data must carry
  st = RegSetValueExW(hKey, pszValue, 0, REG_SZ, reinterpret_cast<const BYTE*>(sData.c_str()),
                      static_cast<DWORD>((sData.size() + 1) * sizeof(OLECHAR)));
  RegCloseKey(hKey);
  return st;
}

}  // namespace vc::reg
