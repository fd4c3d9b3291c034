// The core module's state and entry logic: the class table, one cached class
// factory per class, the lock count, registration through registrar scripts
// and the type library, DllInstall's per-user switch, and the creation of
// objects from named sibling modules. The exported entry points are thin
// calls into CoreModule(); tests build their own CVCModule with other rows.
//
// Every method may be called from any thread at once: factory creation and
// the table of loaded sibling modules are guarded by m_csModule, the lock
// count is atomic.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "VCCritSec.h"
#include "VCObject.h"
#include "VCPlatform.h"
#include "VCStrings.h"

namespace vc {

struct VCClassRow {
  const CLSID* pclsid;
  const char* szClassName;    // "VCSplitter"
  const char* szDescription;  // "VCSplitter Class"
  int nRegistryScript;        // resource number of its registrar script
  PFN_KCREATE pfnCreate;
};

class CVCModule {
 public:
  // Returns the text of a registrar script by resource number, or an empty
  // string when there is none.
  using ScriptLoader = std::function<std::string(int nResource)>;

  // bTypeLib: whether registration also registers the core type library
  // (sibling modules built on this class have none).
  CVCModule(std::vector<VCClassRow> rows, ScriptLoader loader, bool bTypeLib = true);
  ~CVCModule();
  CVCModule(const CVCModule&) = delete;
  CVCModule& operator=(const CVCModule&) = delete;

  HRESULT GetClassObject(REFCLSID rclsid, REFIID riid, void** ppv);
  HRESULT CanUnloadNow() const;
  HRESULT RegisterServer();
  HRESULT UnregisterServer();
  HRESULT Install(BOOL bInstall, LPCWSTR pszCmdLine);

  // Creates clsid inside the module named szModule (a bare file name or a
  // path), loading it once for the life of the process. pbsModulePath, when
  // given, receives the full path of the module used.
  HRESULT CreateFromModule(LPCOLESTR szModule, REFCLSID rclsid, REFIID riid, void** ppv, BSTR* pbsModulePath);

  const std::vector<VCClassRow>& Rows() const { return m_vecRows; }
  bool PerUser() const { return m_bPerUser; }
  void SetPerUser(bool b) { m_bPerUser = b; }

  // Full path of the module file that holds this code.
  static String ModulePath();

 private:
  HRESULT _RunScripts(bool bRegister);
  HRESULT _RunScript(int nResource, bool bRegister);
  HRESULT _RunRegistrar(std::string_view script, bool bRegister, std::string* pstrError);
  HRESULT _RegisterTypeLib(bool bRegister);
#if defined(_WIN32)
  bool _TypeLibRegistered(REFGUID libid) const;
#endif
  HMODULE _LoadSibling(const String& strName, String* pstrPath);
  static std::vector<String> _CandidatePaths(const String& strName);

  std::vector<VCClassRow> m_vecRows;
  ScriptLoader m_fnLoader;
  bool m_bPerUser = false;
  bool m_bTypeLib = true;

  CKMutex m_csModule;
  std::vector<IClassFactory*> m_vecFactories VC_GUARDED_BY(m_csModule);  // one slot per row
  std::map<String, HMODULE> m_mapLoadedModules VC_GUARDED_BY(m_csModule);  // lower-cased name
  std::map<String, String> m_mapLoadedPaths VC_GUARDED_BY(m_csModule);
};

// The instance behind the exported entry points.
CVCModule& CoreModule();

// Registrar script resources of the core module.
enum : int {
  IDR_VCCODECSCORE = 101,
  IDR_VCSPLITTER = 106,
  IDR_VCDECODER = 107,
  IDR_VCENCODER = 108,
  IDR_VCMUXER = 109,
};

// Reads a registrar script from a module's resources (on Linux: the scripts
// compiled into the module).
std::string LoadRegistryScriptResource(int nResource);

}  // namespace vc
