// Object activation for the Linux component runtime: CoInitializeEx,
// CoGetClassObject and CoCreateInstance. A class is found in the registry
// (HKCR\CLSID\{clsid}\InprocServer32) or, failing that, in a manifest file
// written next to the built modules, which lets tools and tests run without a
// registration step. The registry wins when both know a class.
//
// Manifest: "corvane.manifest", UTF-8 lines "{CLSID} module-file", '#' starts a
// comment, a relative module path is relative to the manifest's folder. Looked
// for in the folders named by CORVANE_MANIFEST (':'-separated files), then
// beside libvcrt.so, then beside the executable.
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <unordered_map>
#include <vector>

#include "VCComPtr.h"
#include "VCCritSec.h"
#include "VCPlatform.h"
#include "VCRuntimeInternal.h"
#include "VCStrings.h"

namespace {

std::atomic<int> g_nInitialized{0};
thread_local int t_nInitCount = 0;
thread_local DWORD t_dwInitMode = 0;

vc::CKMutex g_csModules;
std::unordered_map<std::string, HMODULE> g_mapModules VC_GUARDED_BY(g_csModules);

bool ReadRegistryServer(REFCLSID rclsid, std::string* pPath) {
  const vc::String key = vc::String(W("CLSID\\")) + vc::GuidToString(rclsid) + W("\\InprocServer32");
  HKEY hKey = nullptr;
  if (RegOpenKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_READ, &hKey) != ERROR_SUCCESS) return false;
  DWORD dwType = 0;
  DWORD cb = 0;
  bool bOk = false;
  if (RegQueryValueExW(hKey, nullptr, nullptr, &dwType, nullptr, &cb) == ERROR_SUCCESS &&
      (dwType == REG_SZ || dwType == REG_EXPAND_SZ) && cb >= sizeof(OLECHAR)) {
    vc::String value(cb / sizeof(OLECHAR), 0);
    if (RegQueryValueExW(hKey, nullptr, nullptr, &dwType, reinterpret_cast<BYTE*>(value.data()), &cb) ==
        ERROR_SUCCESS) {
      value.resize(vc::StrLen(value.c_str()));
      *pPath = vc::ToUtf8(value);
      bOk = !pPath->empty();
    }
  }
  RegCloseKey(hKey);
  return bOk;
}

std::vector<std::string> ManifestFiles() {
  std::vector<std::string> files;
  if (const char* env = std::getenv("CORVANE_MANIFEST")) {
    std::stringstream ss(env);
    std::string item;
    while (std::getline(ss, item, ':'))
      if (!item.empty()) files.push_back(item);
  }
  files.push_back(vc::rt::RuntimeDirectory() + "/corvane.manifest");
  files.push_back(vc::rt::DirectoryOf(vc::rt::ExecutablePath()) + "/corvane.manifest");
  return files;
}

bool ReadManifestServer(REFCLSID rclsid, std::string* pPath) {
  for (const std::string& file : ManifestFiles()) {
    std::ifstream in(file);
    if (!in) continue;
    std::string line;
    while (std::getline(in, line)) {
      const auto hash = line.find('#');
      if (hash != std::string::npos) line.resize(hash);
      std::stringstream ls(line);
      std::string clsidText, module;
      if (!(ls >> clsidText >> module)) continue;
      GUID g{};
      if (!vc::GuidFromString(vc::FromUtf8(clsidText), &g) || !IsEqualGUID(g, rclsid)) continue;
      *pPath = module.front() == '/' ? module : vc::rt::DirectoryOf(file) + "/" + module;
      return true;
    }
  }
  return false;
}

HRESULT LoadServer(const std::string& path, HMODULE* phModule) {
  vc::CKMutexLock lock(g_csModules);
  auto it = g_mapModules.find(path);
  if (it != g_mapModules.end()) {
    *phModule = it->second;
    return S_OK;
  }
  HMODULE h = vc::rt::LoadModuleUtf8(path);
  if (!h) return CO_E_DLLNOTFOUND;
  g_mapModules.emplace(path, h);  // in-process servers stay loaded for the process's life
  *phModule = h;
  return S_OK;
}

}  // namespace

extern "C" {

VCRT_API HRESULT CoInitializeEx(LPVOID /*pvReserved*/, DWORD dwCoInit) {
  if (t_nInitCount > 0) {
    if (t_dwInitMode != dwCoInit) return RPC_E_CHANGED_MODE;
    ++t_nInitCount;
    return S_FALSE;
  }
  t_nInitCount = 1;
  t_dwInitMode = dwCoInit;
  g_nInitialized.fetch_add(1);
  return S_OK;
}

VCRT_API HRESULT CoInitialize(LPVOID pvReserved) { return CoInitializeEx(pvReserved, COINIT_APARTMENTTHREADED); }

VCRT_API void CoUninitialize() {
  if (t_nInitCount <= 0) return;
  if (--t_nInitCount == 0) g_nInitialized.fetch_sub(1);
}

VCRT_API HRESULT CoGetClassObject(REFCLSID rclsid, DWORD dwClsContext, LPVOID /*pvReserved*/, REFIID riid,
                                  LPVOID* ppv) {
  if (!ppv) return E_INVALIDARG;
  *ppv = nullptr;
  // As on Windows, some thread of the process must have joined the runtime;
  // other threads then use it implicitly.
  if (g_nInitialized.load() <= 0) return CO_E_NOTINITIALIZED;
  if ((dwClsContext & (CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER)) == 0) return REGDB_E_CLASSNOTREG;

  std::string path;
  if (!ReadRegistryServer(rclsid, &path) && !ReadManifestServer(rclsid, &path)) return REGDB_E_CLASSNOTREG;

  HMODULE hModule = nullptr;
  HRESULT hr = LoadServer(path, &hModule);
  if (FAILED(hr)) return hr;
  auto pfn = reinterpret_cast<DLLGETCLASSOBJECT>(GetProcAddress(hModule, "DllGetClassObject"));
  if (!pfn) return CO_E_ERRORINDLL;
  return pfn(rclsid, riid, ppv);
}

VCRT_API HRESULT CoCreateInstance(REFCLSID rclsid, LPUNKNOWN pUnkOuter, DWORD dwClsContext, REFIID riid,
                                  LPVOID* ppv) {
  if (!ppv) return E_POINTER;
  *ppv = nullptr;
  vc::ComPtr<IClassFactory> cpFactory;
  HRESULT hr = CoGetClassObject(rclsid, dwClsContext, nullptr, IID_IClassFactory,
                                reinterpret_cast<void**>(cpFactory.AddressOf()));
  if (FAILED(hr)) return hr;
  return cpFactory->CreateInstance(pUnkOuter, riid, ppv);
}

}  // extern "C"
