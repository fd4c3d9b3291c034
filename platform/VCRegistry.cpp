// The registry calls over two files. Every call loads the trees it needs from
// disk and every change is one locked read-modify-write of one file
// (CRegistryFile), so processes that register at the same moment keep each
// other's keys. A handle is a heap object holding its hive and key path; it is
// checked against the set of live handles before use.
//
// HKEY_CLASSES_ROOT is a view over two sides, HKCU\Software\Classes (user) and
// HKLM\Software\Classes (machine):
// - reads and opens look on the user side first;
// - enumerations list the user side's names, then the machine side's others;
// - a created key lands on the user side when it is already there, otherwise
//   on the machine side, and values are written to the user side when the key
//   is there; all as Windows does;
// - deletions remove the key or value from each side that has it, user side
//   first, so that the merged view no longer shows it afterwards.

#include "VCRegistry.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <unordered_set>
#include <utility>

#include "VCRegistryStore.h"

namespace vc::reg {

namespace {

std::string EnvOrEmpty(const char* pszName) {
  const char* psz = std::getenv(pszName);
  return psz ? std::string(psz) : std::string();
}

std::string HomeFolder() {
  std::string sHome = EnvOrEmpty("HOME");
  if (!sHome.empty()) return sHome;
  struct passwd pw {};
  struct passwd* pResult = nullptr;
  char buf[4096];
  if (::getpwuid_r(::getuid(), &pw, buf, sizeof buf, &pResult) == 0 && pResult && pResult->pw_dir)
    return pResult->pw_dir;
  return ".";
}

}  // namespace

std::string MachineFilePath() {
  const std::string sRoot = EnvOrEmpty(kRootEnvVar);
  if (!sRoot.empty()) return sRoot + "/machine.reg";
  return "/var/lib/corvane/registry/machine.reg";
}

std::string UserFilePath() {
  const std::string sRoot = EnvOrEmpty(kRootEnvVar);
  if (!sRoot.empty()) return sRoot + "/user.reg";
  std::string sConfig = EnvOrEmpty("XDG_CONFIG_HOME");
  // A relative XDG_CONFIG_HOME is to be ignored.
  if (sConfig.empty() || sConfig.front() != '/') sConfig = HomeFolder() + "/.config";
  return sConfig + "/corvane/registry/user.reg";
}

}  // namespace vc::reg

namespace {

using vc::String;
using vc::reg::CRegistryFile;
using vc::reg::CRegKey;
using vc::reg::CRegValue;
using vc::reg::KeyPath;

constexpr LSTATUS kErrorBadPathname = 161;

enum class EHive { Machine, User, Classes };
enum class ESide { Machine, User };

// A key as a handle names it: the hive and the path below the hive's root.
struct CKeyRef {
  EHive eHive = EHive::Machine;
  KeyPath vPath;
};

// What an HKEY that is not a predefined root points to.
struct CKeyHandle {
  CKeyRef ref;
};

// ---------------------------------------------------------------------------
// Handles

std::mutex g_mxHandles;  // guards LiveHandles()
// Never destroyed, so a RegCloseKey from a static destructor still works.
std::unordered_set<const CKeyHandle*>& LiveHandles() {
  static auto* pSet = new std::unordered_set<const CKeyHandle*>();
  return *pSet;
}

HKEY NewHandle(CKeyRef ref) {
  auto* p = new CKeyHandle{std::move(ref)};
  std::lock_guard lk(g_mxHandles);
  LiveHandles().insert(p);
  return reinterpret_cast<HKEY>(p);
}

// Copies what the handle names, so that a RegCloseKey on another thread
// cannot pull it away in the middle of a call.
LSTATUS Resolve(HKEY hKey, CKeyRef* pRef) {
  if (hKey == HKEY_LOCAL_MACHINE) {
    *pRef = CKeyRef{EHive::Machine, {}};
  } else if (hKey == HKEY_CURRENT_USER) {
    *pRef = CKeyRef{EHive::User, {}};
  } else if (hKey == HKEY_CLASSES_ROOT) {
    *pRef = CKeyRef{EHive::Classes, {}};
  } else {
    const auto* p = reinterpret_cast<const CKeyHandle*>(hKey);
    std::lock_guard lk(g_mxHandles);
    if (!LiveHandles().count(p)) return ERROR_INVALID_HANDLE;
    *pRef = p->ref;
  }
  return ERROR_SUCCESS;
}

// ---------------------------------------------------------------------------
// Paths, files and sides

CRegistryFile FileOf(ESide eSide) {
  if (eSide == ESide::Machine) return CRegistryFile(vc::reg::MachineFilePath(), "HKEY_LOCAL_MACHINE", 0644);
  return CRegistryFile(vc::reg::UserFilePath(), "HKEY_CURRENT_USER", 0600);
}

// The sides behind a hive, in the order reads consult them.
std::vector<ESide> SidesOf(EHive eHive) {
  switch (eHive) {
    case EHive::Machine: return {ESide::Machine};
    case EHive::User: return {ESide::User};
    case EHive::Classes: break;
  }
  return {ESide::User, ESide::Machine};
}

// Where a key of the hive sits in its side's file.
KeyPath FilePathOf(EHive eHive, const KeyPath& vPath) {
  if (eHive != EHive::Classes) return vPath;
  KeyPath v{u"Software", u"Classes"};
  v.insert(v.end(), vPath.begin(), vPath.end());
  return v;
}

KeyPath Join(const KeyPath& vBase, const KeyPath& vSub) {
  KeyPath v = vBase;
  v.insert(v.end(), vSub.begin(), vSub.end());
  return v;
}

// "A\B\C" -> {A, B, C}. Null or empty is the key itself; one trailing '\' is
// accepted, a leading one or an empty name inside is not.
LSTATUS SplitSubKey(const OLECHAR* pszSubKey, KeyPath* pvPath) {
  pvPath->clear();
  vc::StringView s = vc::View(pszSubKey);
  if (s.empty()) return ERROR_SUCCESS;
  if (s.front() == u'\\') return kErrorBadPathname;
  if (s.back() == u'\\') s.remove_suffix(1);
  for (;;) {
    const size_t iSep = s.find(u'\\');
    const vc::StringView sName = s.substr(0, iSep);
    if (sName.empty()) return kErrorBadPathname;
    pvPath->emplace_back(sName);
    if (iSep == vc::StringView::npos) return ERROR_SUCCESS;
    s.remove_prefix(iSep + 1);
  }
}

// Fresh copies of the trees behind one hive, loaded at the start of a call.
class CHiveSnapshot {
 public:
  LSTATUS Load(EHive eHive) {
    m_eHive = eHive;
    for (ESide eSide : SidesOf(eHive)) {
      auto pRoot = std::make_unique<CRegKey>();
      const LSTATUS st = FileOf(eSide).Load(pRoot.get());
      if (st != ERROR_SUCCESS) return st;
      m_vTrees.emplace_back(eSide, std::move(pRoot));
    }
    return ERROR_SUCCESS;
  }

  // The key on each side that has it, in reading order.
  std::vector<std::pair<ESide, const CRegKey*>> Find(const KeyPath& vPath) const {
    std::vector<std::pair<ESide, const CRegKey*>> v;
    const KeyPath vFile = FilePathOf(m_eHive, vPath);
    for (const auto& [eSide, pRoot] : m_vTrees)
      if (const CRegKey* p = pRoot->Find(vFile)) v.emplace_back(eSide, p);
    return v;
  }

  // The root of a hive always exists, even the classes root in empty files.
  bool Exists(const KeyPath& vPath) const { return vPath.empty() || !Find(vPath).empty(); }

 private:
  EHive m_eHive = EHive::Machine;
  std::vector<std::pair<ESide, std::unique_ptr<CRegKey>>> m_vTrees;
};

// The key of an open handle as seen now: one key, two for a classes key that
// both sides have, none for a classes root that neither file has yet.
struct CLoadedKey {
  CKeyRef ref;
  CHiveSnapshot snap;
  std::vector<const CRegKey*> vKeys;
};

LSTATUS LoadKey(HKEY hKey, CLoadedKey* p) {
  LSTATUS st = Resolve(hKey, &p->ref);
  if (st == ERROR_SUCCESS) st = p->snap.Load(p->ref.eHive);
  if (st != ERROR_SUCCESS) return st;
  if (!p->snap.Exists(p->ref.vPath)) return ERROR_KEY_DELETED;
  for (const auto& side : p->snap.Find(p->ref.vPath)) p->vKeys.push_back(side.second);
  return ERROR_SUCCESS;
}

// Runs fUpdate on the key at vFilePath of one side's file, under its lock.
// fUpdate receives null when the key is not (or no longer) there.
LSTATUS UpdateSide(ESide eSide, const KeyPath& vFilePath,
                   const std::function<LSTATUS(CRegKey& root, CRegKey* pKey, bool* pbChanged)>& fUpdate) {
  return FileOf(eSide).Update(
      [&](CRegKey& root, bool* pbChanged) { return fUpdate(root, root.Find(vFilePath), pbChanged); });
}

// Changes an existing key: on a classes key, on the user side when the key is
// there and on the machine side otherwise.
LSTATUS UpdateKey(const CKeyRef& ref, const std::function<LSTATUS(CRegKey& key, bool* pbChanged)>& fUpdate) {
  ESide eSide = SidesOf(ref.eHive).front();
  if (ref.eHive == EHive::Classes) {
    CHiveSnapshot snap;
    const LSTATUS st = snap.Load(EHive::Classes);
    if (st != ERROR_SUCCESS) return st;
    const auto vSides = snap.Find(ref.vPath);
    eSide = (!vSides.empty() && vSides.front().first == ESide::User) ? ESide::User : ESide::Machine;
  }
  const KeyPath vFile = FilePathOf(ref.eHive, ref.vPath);
  return UpdateSide(eSide, vFile, [&](CRegKey& root, CRegKey* pKey, bool* pbChanged) -> LSTATUS {
    if (!pKey && ref.eHive == EHive::Classes && ref.vPath.empty()) {
      pKey = root.Create(vFile);  // the classes root is there even when the file is empty
      *pbChanged = true;
    }
    if (!pKey) return ERROR_KEY_DELETED;
    return fUpdate(*pKey, pbChanged);
  });
}

// Removes something from every side that has it (fRemove answers whether it
// removed anything); the first failure wins.
LSTATUS RemoveFromSides(const std::vector<ESide>& vSides, const KeyPath& vFilePath,
                        const std::function<LSTATUS(CRegKey& root, CRegKey* pKey, bool* pbChanged)>& fRemove) {
  LSTATUS stFirst = ERROR_SUCCESS;
  for (ESide eSide : vSides) {
    const LSTATUS st = UpdateSide(eSide, vFilePath, fRemove);
    if (stFirst == ERROR_SUCCESS) stFirst = st;
  }
  return stFirst;
}

// ---------------------------------------------------------------------------
// Merged listings

std::vector<const String*> SubkeyNames(const std::vector<const CRegKey*>& vKeys) {
  std::vector<const String*> v;
  for (const CRegKey* pKey : vKeys) {
    const size_t nEarlier = v.size();
    for (const auto& pChild : pKey->Children()) {
      bool bSeen = false;
      for (size_t i = 0; i < nEarlier && !bSeen; ++i) bSeen = vc::StrIEquals(*v[i], pChild->Name());
      if (!bSeen) v.push_back(&pChild->Name());
    }
  }
  return v;
}

std::vector<const CRegValue*> MergedValues(const std::vector<const CRegKey*>& vKeys) {
  std::vector<const CRegValue*> v;
  for (const CRegKey* pKey : vKeys) {
    const size_t nEarlier = v.size();
    for (const auto& value : pKey->Values()) {
      bool bSeen = false;
      for (size_t i = 0; i < nEarlier && !bSeen; ++i) bSeen = vc::StrIEquals(v[i]->sName, value.sName);
      if (!bSeen) v.push_back(&value);
    }
  }
  return v;
}

const CRegValue* FindValue(const std::vector<const CRegKey*>& vKeys, vc::StringView sName) {
  for (const CRegKey* pKey : vKeys)
    if (const CRegValue* p = pKey->FindValue(sName)) return p;
  return nullptr;
}

// Copies a name with its terminator; *pcch is in characters, in: the buffer's
// size, out: the name's length. A short buffer is ERROR_MORE_DATA and leaves
// *pcch alone, as Windows does for names.
LSTATUS CopyName(const String& sName, LPWSTR pszOut, LPDWORD pcch) {
  if (sName.size() + 1 > *pcch) return ERROR_MORE_DATA;
  std::copy(sName.begin(), sName.end(), pszOut);
  pszOut[sName.size()] = 0;
  *pcch = static_cast<DWORD>(sName.size());
  return ERROR_SUCCESS;
}

// Copies value data: null pData asks only for the size; a short buffer is
// ERROR_MORE_DATA with the size needed in *pcbData.
LSTATUS CopyData(const CRegValue& v, LPBYTE pData, LPDWORD pcbData) {
  const auto cb = static_cast<DWORD>(v.vbData.size());
  if (pData) {
    if (*pcbData < cb) {
      *pcbData = cb;
      return ERROR_MORE_DATA;
    }
    std::copy(v.vbData.begin(), v.vbData.end(), pData);
  }
  if (pcbData) *pcbData = cb;
  return ERROR_SUCCESS;
}

// The calls catch here: nothing may throw across them, and allocation is the
// only thing inside that throws.
template <class Body>
LSTATUS Guarded(Body fBody) noexcept {
  try {
    return fBody();
  } catch (...) {
    return ERROR_NOT_ENOUGH_MEMORY;
  }
}

// ---------------------------------------------------------------------------
// Creating keys

// *pbCreated must come in false.
LSTATUS CreateKey(const CKeyRef& ref, const KeyPath& vSub, bool* pbCreated) {
  const KeyPath vFull = Join(ref.vPath, vSub);
  if (ref.eHive == EHive::Classes) {
    CHiveSnapshot snap;
    const LSTATUS st = snap.Load(EHive::Classes);
    if (st != ERROR_SUCCESS) return st;
    if (!snap.Exists(ref.vPath)) return ERROR_KEY_DELETED;
    // Open what either side has; create on the machine side otherwise.
    if (snap.Exists(vFull)) return ERROR_SUCCESS;
    return FileOf(ESide::Machine).Update([&](CRegKey& root, bool* pbChanged) {
      root.Create(FilePathOf(EHive::Classes, vFull), pbCreated);
      *pbChanged = *pbCreated;
      return ERROR_SUCCESS;
    });
  }
  return UpdateSide(SidesOf(ref.eHive).front(), ref.vPath,
                    [&](CRegKey&, CRegKey* pBase, bool* pbChanged) -> LSTATUS {
                      if (!pBase) return ERROR_KEY_DELETED;
                      pBase->Create(vSub, pbCreated);
                      *pbChanged = *pbCreated;
                      return ERROR_SUCCESS;
                    });
}

// ---------------------------------------------------------------------------
// Deleting keys

// Removes the key at vFull (not a root) from every side that has it.
// bTree: with everything below it; otherwise a key with subkeys (in the
// merged view, or found under the lock) is refused with ERROR_ACCESS_DENIED.
LSTATUS DeleteKey(const CKeyRef& ref, const KeyPath& vFull, bool bTree) {
  CHiveSnapshot snap;
  LSTATUS st = snap.Load(ref.eHive);
  if (st != ERROR_SUCCESS) return st;
  if (!snap.Exists(ref.vPath)) return ERROR_KEY_DELETED;
  const auto vFound = snap.Find(vFull);
  if (vFound.empty()) return ERROR_FILE_NOT_FOUND;
  std::vector<ESide> vSides;
  for (const auto& [eSide, pKey] : vFound) {
    if (!bTree && !pKey->Children().empty()) return ERROR_ACCESS_DENIED;
    vSides.push_back(eSide);
  }
  KeyPath vParent = FilePathOf(ref.eHive, vFull);
  const String sName = vParent.back();
  vParent.pop_back();
  return RemoveFromSides(vSides, vParent, [&](CRegKey&, CRegKey* pParent, bool* pbChanged) -> LSTATUS {
    const CRegKey* pKey = pParent ? pParent->FindChild(sName) : nullptr;
    if (!pKey) return ERROR_SUCCESS;  // gone meanwhile: what was asked for
    if (!bTree && !pKey->Children().empty()) return ERROR_ACCESS_DENIED;
    *pbChanged = pParent->RemoveChild(sName);
    return ERROR_SUCCESS;
  });
}

// Empties the handle's key (subkeys and values) on every side that has it.
LSTATUS ClearKey(const CKeyRef& ref) {
  CHiveSnapshot snap;
  const LSTATUS st = snap.Load(ref.eHive);
  if (st != ERROR_SUCCESS) return st;
  if (!snap.Exists(ref.vPath)) return ERROR_KEY_DELETED;
  std::vector<ESide> vSides;
  for (const auto& side : snap.Find(ref.vPath)) vSides.push_back(side.first);
  return RemoveFromSides(vSides, FilePathOf(ref.eHive, ref.vPath),
                         [](CRegKey&, CRegKey* pKey, bool* pbChanged) -> LSTATUS {
                           if (pKey && (!pKey->Children().empty() || !pKey->Values().empty())) {
                             pKey->Clear();
                             *pbChanged = true;
                           }
                           return ERROR_SUCCESS;
                         });
}

}  // namespace

// ---------------------------------------------------------------------------
// The calls

extern "C" {

LSTATUS RegCreateKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD, LPWSTR, DWORD, REGSAM, void*, PHKEY phkResult,
                        LPDWORD lpdwDisposition) {
  return Guarded([&]() -> LSTATUS {
    if (!phkResult) return ERROR_INVALID_PARAMETER;
    *phkResult = nullptr;
    CKeyRef ref;
    KeyPath vSub;
    LSTATUS st = Resolve(hKey, &ref);
    if (st == ERROR_SUCCESS) st = SplitSubKey(lpSubKey, &vSub);
    bool bCreated = false;
    if (st == ERROR_SUCCESS) st = CreateKey(ref, vSub, &bCreated);
    if (st != ERROR_SUCCESS) return st;
    *phkResult = NewHandle(CKeyRef{ref.eHive, Join(ref.vPath, vSub)});
    if (lpdwDisposition) *lpdwDisposition = bCreated ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
    return ERROR_SUCCESS;
  });
}

LSTATUS RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD, REGSAM, PHKEY phkResult) {
  return Guarded([&]() -> LSTATUS {
    if (!phkResult) return ERROR_INVALID_PARAMETER;
    *phkResult = nullptr;
    CLoadedKey key;
    KeyPath vSub;
    LSTATUS st = LoadKey(hKey, &key);
    if (st == ERROR_SUCCESS) st = SplitSubKey(lpSubKey, &vSub);
    if (st != ERROR_SUCCESS) return st;
    KeyPath vFull = Join(key.ref.vPath, vSub);
    if (!key.snap.Exists(vFull)) return ERROR_FILE_NOT_FOUND;
    *phkResult = NewHandle(CKeyRef{key.ref.eHive, std::move(vFull)});
    return ERROR_SUCCESS;
  });
}

LSTATUS RegCloseKey(HKEY hKey) {
  if (hKey == HKEY_LOCAL_MACHINE || hKey == HKEY_CURRENT_USER || hKey == HKEY_CLASSES_ROOT) return ERROR_SUCCESS;
  const auto* p = reinterpret_cast<const CKeyHandle*>(hKey);
  {
    std::lock_guard lk(g_mxHandles);
    if (!LiveHandles().erase(p)) return ERROR_INVALID_HANDLE;
  }
  delete p;
  return ERROR_SUCCESS;
}

LSTATUS RegSetValueExW(HKEY hKey, LPCWSTR lpValueName, DWORD, DWORD dwType, const BYTE* lpData, DWORD cbData) {
  return Guarded([&]() -> LSTATUS {
    if (!lpData && cbData) return ERROR_INVALID_PARAMETER;
    CKeyRef ref;
    const LSTATUS st = Resolve(hKey, &ref);
    if (st != ERROR_SUCCESS) return st;
    const vc::StringView sName = vc::View(lpValueName);
    return UpdateKey(ref, [&](CRegKey& key, bool* pbChanged) {
      key.SetValue(sName, dwType, lpData, cbData);
      *pbChanged = true;
      return ERROR_SUCCESS;
    });
  });
}

LSTATUS RegQueryValueExW(HKEY hKey, LPCWSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData,
                         LPDWORD lpcbData) {
  return Guarded([&]() -> LSTATUS {
    if (lpReserved || (lpData && !lpcbData)) return ERROR_INVALID_PARAMETER;
    CLoadedKey key;
    const LSTATUS st = LoadKey(hKey, &key);
    if (st != ERROR_SUCCESS) return st;
    const CRegValue* pValue = FindValue(key.vKeys, vc::View(lpValueName));
    if (!pValue) return ERROR_FILE_NOT_FOUND;
    if (lpType) *lpType = pValue->dwType;
    return CopyData(*pValue, lpData, lpcbData);
  });
}

LSTATUS RegDeleteValueW(HKEY hKey, LPCWSTR lpValueName) {
  return Guarded([&]() -> LSTATUS {
    CLoadedKey key;
    const LSTATUS st = LoadKey(hKey, &key);
    if (st != ERROR_SUCCESS) return st;
    const vc::StringView sName = vc::View(lpValueName);
    std::vector<ESide> vSides;
    for (const auto& [eSide, pKey] : key.snap.Find(key.ref.vPath))
      if (pKey->FindValue(sName)) vSides.push_back(eSide);
    if (vSides.empty()) return ERROR_FILE_NOT_FOUND;
    return RemoveFromSides(vSides, FilePathOf(key.ref.eHive, key.ref.vPath),
                           [&](CRegKey&, CRegKey* pKey, bool* pbChanged) -> LSTATUS {
                             *pbChanged = pKey && pKey->RemoveValue(sName);
                             return ERROR_SUCCESS;
                           });
  });
}

LSTATUS RegDeleteKeyW(HKEY hKey, LPCWSTR lpSubKey) {
  return Guarded([&]() -> LSTATUS {
    if (!lpSubKey) return ERROR_INVALID_PARAMETER;
    CKeyRef ref;
    KeyPath vSub;
    LSTATUS st = Resolve(hKey, &ref);
    if (st == ERROR_SUCCESS) st = SplitSubKey(lpSubKey, &vSub);
    if (st != ERROR_SUCCESS) return st;
    const KeyPath vFull = Join(ref.vPath, vSub);
    if (vFull.empty()) return ERROR_ACCESS_DENIED;  // a hive root
    return DeleteKey(ref, vFull, false);
  });
}

LSTATUS RegDeleteTreeW(HKEY hKey, LPCWSTR lpSubKey) {
  return Guarded([&]() -> LSTATUS {
    CKeyRef ref;
    KeyPath vSub;
    LSTATUS st = Resolve(hKey, &ref);
    if (st == ERROR_SUCCESS) st = SplitSubKey(lpSubKey, &vSub);
    if (st != ERROR_SUCCESS) return st;
    if (!lpSubKey) return ClearKey(ref);
    const KeyPath vFull = Join(ref.vPath, vSub);
    if (vFull.empty()) return ERROR_ACCESS_DENIED;  // a hive root cannot go
    return DeleteKey(ref, vFull, true);
  });
}

LSTATUS RegEnumKeyExW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, LPDWORD lpcchName, LPDWORD lpReserved, LPWSTR lpClass,
                      LPDWORD lpcchClass, PFILETIME lpftLastWriteTime) {
  return Guarded([&]() -> LSTATUS {
    if (!lpName || !lpcchName || lpReserved || (lpClass && !lpcchClass)) return ERROR_INVALID_PARAMETER;
    CLoadedKey key;
    const LSTATUS st = LoadKey(hKey, &key);
    if (st != ERROR_SUCCESS) return st;
    const auto vNames = SubkeyNames(key.vKeys);
    if (dwIndex >= vNames.size()) return ERROR_NO_MORE_ITEMS;
    if (lpClass) {
      // Keys here carry no class string.
      if (*lpcchClass < 1) return ERROR_MORE_DATA;
      lpClass[0] = 0;
      *lpcchClass = 0;
    }
    if (lpftLastWriteTime) *lpftLastWriteTime = FILETIME{0, 0};
    return CopyName(*vNames[dwIndex], lpName, lpcchName);
  });
}

LSTATUS RegEnumValueW(HKEY hKey, DWORD dwIndex, LPWSTR lpValueName, LPDWORD lpcchValueName, LPDWORD lpReserved,
                      LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData) {
  return Guarded([&]() -> LSTATUS {
    if (!lpValueName || !lpcchValueName || lpReserved || (lpData && !lpcbData)) return ERROR_INVALID_PARAMETER;
    CLoadedKey key;
    const LSTATUS st = LoadKey(hKey, &key);
    if (st != ERROR_SUCCESS) return st;
    const auto vValues = MergedValues(key.vKeys);
    if (dwIndex >= vValues.size()) return ERROR_NO_MORE_ITEMS;
    const CRegValue& value = *vValues[dwIndex];
    if (lpType) *lpType = value.dwType;
    const LSTATUS stName = CopyName(value.sName, lpValueName, lpcchValueName);
    const LSTATUS stData = CopyData(value, lpData, lpcbData);
    return stName != ERROR_SUCCESS ? stName : stData;
  });
}

LSTATUS RegQueryInfoKeyW(HKEY hKey, LPWSTR lpClass, LPDWORD lpcchClass, LPDWORD lpReserved, LPDWORD lpcSubKeys,
                         LPDWORD lpcbMaxSubKeyLen, LPDWORD lpcbMaxClassLen, LPDWORD lpcValues,
                         LPDWORD lpcbMaxValueNameLen, LPDWORD lpcbMaxValueLen, LPDWORD lpcbSecurityDescriptor,
                         PFILETIME lpftLastWriteTime) {
  return Guarded([&]() -> LSTATUS {
    if (lpReserved || (lpClass && !lpcchClass)) return ERROR_INVALID_PARAMETER;
    CLoadedKey key;
    const LSTATUS st = LoadKey(hKey, &key);
    if (st != ERROR_SUCCESS) return st;
    const auto vNames = SubkeyNames(key.vKeys);
    const auto vValues = MergedValues(key.vKeys);
    size_t cchMaxSubKey = 0, cchMaxValueName = 0, cbMaxValue = 0;
    for (const String* pName : vNames) cchMaxSubKey = std::max(cchMaxSubKey, pName->size());
    for (const CRegValue* pValue : vValues) {
      cchMaxValueName = std::max(cchMaxValueName, pValue->sName.size());
      cbMaxValue = std::max(cbMaxValue, pValue->vbData.size());
    }
    if (lpClass && *lpcchClass > 0) lpClass[0] = 0;
    if (lpcchClass) *lpcchClass = 0;
    if (lpcSubKeys) *lpcSubKeys = static_cast<DWORD>(vNames.size());
    if (lpcbMaxSubKeyLen) *lpcbMaxSubKeyLen = static_cast<DWORD>(cchMaxSubKey);
    if (lpcbMaxClassLen) *lpcbMaxClassLen = 0;
    if (lpcValues) *lpcValues = static_cast<DWORD>(vValues.size());
    if (lpcbMaxValueNameLen) *lpcbMaxValueNameLen = static_cast<DWORD>(cchMaxValueName);
    if (lpcbMaxValueLen) *lpcbMaxValueLen = static_cast<DWORD>(cbMaxValue);
    if (lpcbSecurityDescriptor) *lpcbSecurityDescriptor = 0;
    if (lpftLastWriteTime) *lpftLastWriteTime = FILETIME{0, 0};
    return ERROR_SUCCESS;
  });
}

}  // extern "C"
