#include "TestEnvironment.h"

#include <cstdlib>
#include <filesystem>
#include <string>

#include "VCLog.h"
#include "VCPlatform.h"
#include "VCStrings.h"

namespace vctest {

namespace {

#if !defined(_WIN32)
std::string g_strRegistryRoot;

void RemoveRegistryRoot() {
  std::error_code ec;
  if (!g_strRegistryRoot.empty()) std::filesystem::remove_all(g_strRegistryRoot, ec);
}
#endif

}  // namespace

std::string BinDir() {
  OLECHAR buf[4096];
  const DWORD n = GetModuleFileNameW(nullptr, buf, 4096);
  std::string path = vc::ToUtf8(vc::StringView(buf, n < 4096 ? n : 0));
  const auto pos = path.find_last_of("/\\");
  return pos == std::string::npos ? "." : path.substr(0, pos);
}

void PrepareProcess() {
#if !defined(_WIN32)
  // Tests never touch the machine's or the user's real registry.
  std::string tmpl = (std::filesystem::temp_directory_path() / "vctests-registry-XXXXXX").string();
  if (char* dir = mkdtemp(tmpl.data())) {
    g_strRegistryRoot = dir;
    setenv("CORVANE_REGISTRY_ROOT", dir, 1);
    std::atexit(&RemoveRegistryRoot);
  }
  // Tests pick their manifest themselves where it matters.
  unsetenv("CORVANE_MANIFEST");
#endif
  // Failure lines that tests provoke on purpose would drown the report; a
  // developer who wants them sets CORVANE_LOG_LEVEL.
  if (!std::getenv("CORVANE_LOG_LEVEL")) vc::LogSetLevel(vc::kLogOff);
  CoInitializeEx(nullptr, COINIT_MULTITHREADED);
}

}  // namespace vctest

namespace vctest {

bool RegKeyExists(HKEY hRoot, const std::string& strKey) {
  HKEY h = nullptr;
  const vc::String k = vc::FromUtf8(strKey);
  if (RegOpenKeyExW(hRoot, k.c_str(), 0, KEY_READ, &h) != ERROR_SUCCESS) return false;
  RegCloseKey(h);
  return true;
}

bool RegReadString(HKEY hRoot, const std::string& strKey, const char* szValue, std::string* pstrOut) {
  HKEY h = nullptr;
  const vc::String k = vc::FromUtf8(strKey);
  if (RegOpenKeyExW(hRoot, k.c_str(), 0, KEY_READ, &h) != ERROR_SUCCESS) return false;
  const vc::String name = szValue ? vc::FromUtf8(szValue) : vc::String();
  OLECHAR buf[2048] = {};
  DWORD cb = sizeof buf - sizeof(OLECHAR);
  DWORD dwType = 0;
  const LSTATUS st =
      RegQueryValueExW(h, szValue ? name.c_str() : nullptr, nullptr, &dwType, reinterpret_cast<BYTE*>(buf), &cb);
  RegCloseKey(h);
  if (st != ERROR_SUCCESS || dwType != REG_SZ) return false;
  *pstrOut = vc::ToUtf8(buf);
  return true;
}

bool RegWriteString(HKEY hRoot, const std::string& strKey, const char* szValue, const std::string& strData) {
  HKEY h = nullptr;
  const vc::String k = vc::FromUtf8(strKey);
  if (RegCreateKeyExW(hRoot, k.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &h, nullptr) != ERROR_SUCCESS)
    return false;
  const vc::String name = szValue ? vc::FromUtf8(szValue) : vc::String();
  const vc::String data = vc::FromUtf8(strData);
  const LSTATUS st = RegSetValueExW(h, szValue ? name.c_str() : nullptr, 0, REG_SZ,
                                    reinterpret_cast<const BYTE*>(data.c_str()),
                                    static_cast<DWORD>((data.size() + 1) * sizeof(OLECHAR)));
  RegCloseKey(h);
  return st == ERROR_SUCCESS;
}

void RegRemoveTree(HKEY hRoot, const std::string& strKey) {
  const vc::String k = vc::FromUtf8(strKey);
  RegDeleteTreeW(hRoot, k.c_str());
  RegDeleteKeyW(hRoot, k.c_str());
}

std::string ModulePathInBin(const std::string& strBaseName) {
  return BinDir() + "/" + strBaseName + VC_MODULE_SUFFIX;
}

}  // namespace vctest
