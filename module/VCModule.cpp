#include "VCModule.h"

#include <filesystem>
#include <memory>

#include "VCLog.h"
#include "VCRegistrar.h"

#if defined(_WIN32)
#include <oleauto.h>
#else
#include <dlfcn.h>
#endif

namespace vc {

namespace {

constexpr UINT kQuietErrorMode = SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX;
constexpr DWORD kSiblingLoadFlags = LOAD_LIBRARY_SEARCH_DEFAULT_DIRS | LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR;

#if !defined(_WIN32)
// What type-library registration writes on Windows, written by our own
// registrar so that per-user registration and removal follow the same rules.
constexpr const char* kTypeLibScript =
    "HKCR\r\n"
    "{\r\n"
    "\tNoRemove TypeLib\r\n"
    "\t{\r\n"
    "\t\tForceRemove {03DF3785-FB0F-4786-A013-4E52BADDBCEE}\r\n"
    "\t\t{\r\n"
    "\t\t\t'1.0' = s 'VCCodecsCoreLib'\r\n"
    "\t\t\t{\r\n"
    "\t\t\t\t'0'\r\n"
    "\t\t\t\t{\r\n"
    "\t\t\t\t\twin64 = s '%MODULE%'\r\n"
    "\t\t\t\t}\r\n"
    "\t\t\t\tFLAGS = s '0'\r\n"
    "\t\t\t\tHELPDIR = s '%MODULEDIR%'\r\n"
    "\t\t\t}\r\n"
    "\t\t}\r\n"
    "\t}\r\n"
    "}\r\n";
#endif

String DirectoryOf(const String& path) {
  const auto pos = path.find_last_of(W("/\\"));
  return pos == String::npos ? String() : path.substr(0, pos);
}

bool FileExists(const String& path) {
  std::error_code ec;
  return std::filesystem::is_regular_file(std::filesystem::path(path), ec);
}

String ExecutablePath() {
  OLECHAR buf[4096];
  const DWORD n = GetModuleFileNameW(nullptr, buf, 4096);
  return (n == 0 || n >= 4096) ? String() : String(buf, n);
}

// Loads one module with the sibling search flags, falling back to the plain
// call on systems that do not know those flags (error 87).
HMODULE LoadWithFallback(const String& strName) {
  HMODULE h = LoadLibraryExW(strName.c_str(), nullptr, kSiblingLoadFlags);
  if (!h && GetLastError() == ERROR_INVALID_PARAMETER) h = LoadLibraryW(strName.c_str());
  return h;
}

String ModuleFileName(HMODULE h) {
  OLECHAR buf[4096];
  const DWORD n = GetModuleFileNameW(h, buf, 4096);
  return (n == 0 || n >= 4096) ? String() : String(buf, n);
}

}  // namespace

CVCModule::CVCModule(std::vector<VCClassRow> rows, ScriptLoader loader, bool bTypeLib)
    : m_vecRows(std::move(rows)),
      m_fnLoader(std::move(loader)),
      m_bTypeLib(bTypeLib),
      m_vecFactories(m_vecRows.size(), nullptr) {}

CVCModule::~CVCModule() {
  for (IClassFactory* p : m_vecFactories)
    if (p) p->Release();
}

String CVCModule::ModulePath() {
#if defined(_WIN32)
  HMODULE h = nullptr;
  if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                          reinterpret_cast<LPCWSTR>(&CVCModule::ModulePath), &h))
    return String();
  return ModuleFileName(h);
#else
  Dl_info info{};
  if (!dladdr(reinterpret_cast<void*>(&CVCModule::ModulePath), &info) || !info.dli_fname) return String();
  std::error_code ec;
  auto abs = std::filesystem::absolute(info.dli_fname, ec);
  return FromUtf8(ec ? std::string(info.dli_fname) : abs.string());
#endif
}

HRESULT CVCModule::GetClassObject(REFCLSID rclsid, REFIID riid, void** ppv) {
  if (!ppv) return E_POINTER;
  *ppv = nullptr;
  for (size_t i = 0; i < m_vecRows.size(); ++i) {
    if (!IsEqualCLSID(*m_vecRows[i].pclsid, rclsid)) continue;
    IClassFactory* pFactory = nullptr;
    {
      // Created once: the check is repeated inside the lock so two racing
      // callers never build two factories for one class.
      CKMutexLock lock(m_csModule);
      if (!m_vecFactories[i]) {
        auto* pNew = new (std::nothrow) CKClassFactory(m_vecRows[i].pfnCreate);
        if (!pNew) return E_OUTOFMEMORY;
        pNew->AddRef();  // the cache's reference, dropped when the module goes
        m_vecFactories[i] = pNew;
      }
      pFactory = m_vecFactories[i];
      pFactory->AddRef();
    }
    HRESULT hr = pFactory->QueryInterface(riid, ppv);
    pFactory->Release();
    return hr;
  }
  return CLASS_E_CLASSNOTAVAILABLE;
}

HRESULT CVCModule::CanUnloadNow() const { return ModuleLockCount().load() == 0 ? S_OK : S_FALSE; }

HRESULT CVCModule::_RunScript(int nResource, bool bRegister) {
  const std::string strScript = m_fnLoader ? m_fnLoader(nResource) : std::string();
  if (strScript.empty()) {
    VC_LOG(4, "Registry script %d not found in the module\n", nResource);
    return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
  }
  std::string strError;
  HRESULT hr = _RunRegistrar(strScript, bRegister, &strError);
  if (FAILED(hr))
    VC_LOG(4, "Registry script %d %hs FAILED hr=%08X %hs\n", nResource, bRegister ? "register" : "unregister",
           static_cast<unsigned>(hr), strError.c_str());
  return hr;
}

HRESULT CVCModule::_RunRegistrar(std::string_view script, bool bRegister, std::string* pstrError) {
  const String strModule = ModulePath();
  RegistrarOptions opts;
  opts.bPerUser = m_bPerUser;
  opts.replacements.emplace_back("MODULE", strModule);
  opts.replacements.emplace_back("MODULEDIR", DirectoryOf(strModule));
  return RegistrarRun(script, bRegister, opts, pstrError);
}

HRESULT CVCModule::_RunScripts(bool bRegister) {
  HRESULT hrFirst = _RunScript(IDR_VCCODECSCORE, bRegister);
  if (FAILED(hrFirst) && bRegister) return hrFirst;
  for (const VCClassRow& row : m_vecRows) {
    HRESULT hr = _RunScript(row.nRegistryScript, bRegister);
    if (FAILED(hr)) {
      // Registration stops at the first failure (the caller cleans up);
      // removal goes on so that as much as possible is removed.
      if (bRegister) return hr;
      if (SUCCEEDED(hrFirst)) hrFirst = hr;
    }
  }
  return SUCCEEDED(hrFirst) ? S_OK : hrFirst;
}

#if defined(_WIN32)
bool CVCModule::_TypeLibRegistered(REFGUID libid) const {
  const String strKey = String(m_bPerUser ? L"Software\\Classes\\TypeLib\\" : L"TypeLib\\") + GuidToString(libid);
  HKEY hKey = nullptr;
  if (RegOpenKeyExW(m_bPerUser ? HKEY_CURRENT_USER : HKEY_CLASSES_ROOT, strKey.c_str(), 0, KEY_READ, &hKey) !=
      ERROR_SUCCESS)
    return false;
  RegCloseKey(hKey);
  return true;
}
#endif

HRESULT CVCModule::_RegisterTypeLib(bool bRegister) {
  if (!m_bTypeLib) return S_OK;
#if defined(_WIN32)
  const String strModule = ModulePath();
  ITypeLib* pTypeLib = nullptr;
  HRESULT hr = LoadTypeLibEx(strModule.c_str(), REGKIND_NONE, &pTypeLib);
  if (FAILED(hr)) {
    String strTlb = strModule;
    const auto dot = strTlb.find_last_of(L'.');
    const auto slash = strTlb.find_last_of(L"/\\");
    if (dot != String::npos && (slash == String::npos || dot > slash)) strTlb.resize(dot);
    strTlb += L".tlb";
    hr = LoadTypeLibEx(strTlb.c_str(), REGKIND_NONE, &pTypeLib);
  }
  if (FAILED(hr)) {
    VC_LOG(4, "LoadTypeLib(%ws) FAILED hr=%08X\n", strModule.c_str(), static_cast<unsigned>(hr));
    return hr;
  }
  HMODULE hOleAut = GetModuleHandleW(L"OLEAUT32.DLL");
  if (bRegister) {
    String strDir = DirectoryOf(strModule);
    if (m_bPerUser) {
      using PFN = HRESULT(WINAPI*)(ITypeLib*, OLECHAR*, OLECHAR*);
      auto pfn = hOleAut ? reinterpret_cast<PFN>(reinterpret_cast<void*>(GetProcAddress(hOleAut, "RegisterTypeLibForUser")))
                         : nullptr;
      hr = pfn ? pfn(pTypeLib, const_cast<OLECHAR*>(strModule.c_str()), strDir.data()) : E_NOTIMPL;
    } else {
      hr = RegisterTypeLib(pTypeLib, const_cast<OLECHAR*>(strModule.c_str()), strDir.data());
    }
  } else {
    TLIBATTR* pAttr = nullptr;
    hr = pTypeLib->GetLibAttr(&pAttr);
    if (SUCCEEDED(hr) && !_TypeLibRegistered(pAttr->guid)) {
      // Nothing to remove: the platform answers such a request with an error.
      pTypeLib->ReleaseTLibAttr(pAttr);
      pTypeLib->Release();
      return S_OK;
    }
    if (SUCCEEDED(hr)) {
      if (m_bPerUser) {
        using PFN = HRESULT(WINAPI*)(REFGUID, WORD, WORD, LCID, SYSKIND);
        auto pfn = hOleAut
                       ? reinterpret_cast<PFN>(reinterpret_cast<void*>(GetProcAddress(hOleAut, "UnRegisterTypeLibForUser")))
                       : nullptr;
        hr = pfn ? pfn(pAttr->guid, pAttr->wMajorVerNum, pAttr->wMinorVerNum, pAttr->lcid, pAttr->syskind) : E_NOTIMPL;
      } else {
        hr = UnRegisterTypeLib(pAttr->guid, pAttr->wMajorVerNum, pAttr->wMinorVerNum, pAttr->lcid, pAttr->syskind);
      }
      pTypeLib->ReleaseTLibAttr(pAttr);
    }
    // Removing a library that was never registered is not a failure.
    if (hr == TYPE_E_REGISTRYACCESS || hr == HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)) hr = S_OK;
  }
  pTypeLib->Release();
  if (FAILED(hr))
    VC_LOG(4, "%hs(%ws) FAILED hr=%08X\n", bRegister ? "RegisterTypeLib" : "UnRegisterTypeLib", strModule.c_str(),
           static_cast<unsigned>(hr));
  return hr;
#else
  std::string strError;
  HRESULT hr = _RunRegistrar(kTypeLibScript, bRegister, &strError);
  if (FAILED(hr))
    VC_LOG(4, "%hs(%ws) FAILED hr=%08X %hs\n", bRegister ? "RegisterTypeLib" : "UnRegisterTypeLib",
           ModulePath().c_str(), static_cast<unsigned>(hr), strError.c_str());
  return hr;
#endif
}

HRESULT CVCModule::RegisterServer() {
  HRESULT hr = _RunScripts(true);
  if (FAILED(hr)) return hr;
  return _RegisterTypeLib(true);
}

HRESULT CVCModule::UnregisterServer() {
  HRESULT hr = _RunScripts(false);
  HRESULT hrTlb = _RegisterTypeLib(false);
  return FAILED(hr) ? hr : hrTlb;
}

HRESULT CVCModule::Install(BOOL bInstall, LPCWSTR pszCmdLine) {
  // The whole command line is "user" (any letter case), so "users" does not
  // select per-user registration.
  const bool bUser = StrIEquals(InString(pszCmdLine), W("user"));

  const bool bWasPerUser = m_bPerUser;
  if (bUser) m_bPerUser = true;
  HRESULT hr;
  if (bInstall) {
    hr = RegisterServer();
    if (FAILED(hr)) UnregisterServer();  // leave nothing half written
  } else {
    hr = UnregisterServer();
  }
  m_bPerUser = bWasPerUser;
  return hr;
}

std::vector<String> CVCModule::_CandidatePaths(const String& strName) {
  std::vector<String> paths;
  if (strName.find_first_of(W("/\\")) != String::npos) return paths;
  for (const String& dir : {DirectoryOf(ModulePath()), DirectoryOf(ExecutablePath())}) {
    if (dir.empty()) continue;
    String full = dir + W("/") + strName;
    if (!FileExists(full)) continue;
    bool bSeen = false;
    for (const String& p : paths) bSeen = bSeen || StrIEquals(p, full);
    if (!bSeen) paths.push_back(std::move(full));
  }
  return paths;
}

HMODULE CVCModule::_LoadSibling(const String& strName, String* pstrPath) {
  HMODULE h = LoadWithFallback(strName);
  if (h) {
    *pstrPath = ModuleFileName(h);
    if (pstrPath->empty()) *pstrPath = strName;
    return h;
  }
  std::vector<String> candidates = _CandidatePaths(strName);
  if (candidates.empty()) candidates = _CandidatePaths(String(W("Corvane.")) + strName);
  for (const String& path : candidates) {
    h = LoadWithFallback(path);
    if (h) {
      *pstrPath = path;
      return h;
    }
  }
  return nullptr;
}

HRESULT CVCModule::CreateFromModule(LPCOLESTR szModule, REFCLSID rclsid, REFIID riid, void** ppv,
                                    BSTR* pbsModulePath) {
  if (!ppv) return E_POINTER;
  *ppv = nullptr;
  if (pbsModulePath) *pbsModulePath = nullptr;
  if (!szModule || !*szModule) return E_INVALIDARG;

  const String strName(szModule);
  const String strKey = ToLowerAscii(strName);
  HMODULE hModule = nullptr;
  String strPath;
  {
    CKMutexLock lock(m_csModule);
    auto it = m_mapLoadedModules.find(strKey);
    if (it != m_mapLoadedModules.end()) {
      hModule = it->second;
      strPath = m_mapLoadedPaths[strKey];
    }
  }
  if (!hModule) {
    const UINT uOldMode = SetErrorMode(kQuietErrorMode);
    hModule = _LoadSibling(strName, &strPath);
    SetErrorMode(uOldMode);
    if (!hModule) {
      VC_LOG(4, "CreateFromModule(%ws) module not found\n", strName.c_str());
      return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
    }
    CKMutexLock lock(m_csModule);
    // Another thread may have loaded it meanwhile: both handles are the same
    // module (the loader counts), and the first entry stays.
    m_mapLoadedModules.emplace(strKey, hModule);
    m_mapLoadedPaths.emplace(strKey, strPath);
  }
  if (pbsModulePath) *pbsModulePath = SysAllocStringLen(strPath.data(), static_cast<UINT>(strPath.size()));

  auto pfn = reinterpret_cast<DLLGETCLASSOBJECT>(reinterpret_cast<void*>(GetProcAddress(hModule, "DllGetClassObject")));
  if (!pfn) {
    VC_LOG(4, "CreateFromModule(%ws) has no DllGetClassObject\n", strPath.c_str());
    return HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND);
  }
  ComPtr<IClassFactory> cpFactory;
  HRESULT hr = pfn(rclsid, IID_IClassFactory, reinterpret_cast<void**>(cpFactory.AddressOf()));
  if (FAILED(hr)) return hr;
  return cpFactory->CreateInstance(nullptr, riid, ppv);
}

}  // namespace vc
