// The storage under the Linux registry calls: an in-memory key tree, its text
// form, and the locked, atomic reading and writing of one registry file. The
// Reg* functions (VCRegistry.cpp) load a fresh tree from the file on every
// call, so several processes see each other's changes at once; nothing here
// caches. Any thread: CRegistryFile serialises callers inside the process with
// a mutex and across processes with flock on a lock file beside the data file.
//
// File format (UTF-8, one item per line, '\n' or "\r\n" line ends):
//
//   ; Corvane registry, format 1: HKEY_LOCAL_MACHINE     <- comment (';' or '#')
//   [Software\Classes\CLSID\{...}\InprocServer32]        <- starts a key
//   @="/opt/corvane/lib/Corvane.Codecs.Core.x64.so"      <- default value
//   "ThreadingModel"="Both"                              <- REG_SZ
//   "Path"=expand:"$HOME/bin"                            <- REG_EXPAND_SZ
//   "List"=multi:"one\0two\0"                            <- REG_MULTI_SZ
//   "Count"=dword:0000002a                               <- REG_DWORD
//   "Size"=qword:0000000100000000                        <- REG_QWORD
//   "Blob"=hex:de,ad,be,ef                               <- REG_BINARY
//   "Odd"=hex(1):41,00                                   <- any type, raw bytes
//
// - A key line names the full path from the file's root, components joined by
//   '\' ("[]" is the root itself). Key names cannot hold '\'; '%' and control
//   characters in them are written as %XXXX (four hex digits, one UTF-16 unit).
// - Value lines belong to the key line above them. Every key is written, empty
//   ones too, so an empty key survives; parent keys are implied by children.
// - Quoted strings escape \\ \" \n \r \t \0 and write other control characters
//   and unpaired surrogates as \uXXXX, so any UTF-16 string round-trips.
// - The three string types are written in quotes when their bytes are whole
//   UTF-16 units ending in one zero unit; the quotes hold every unit but that
//   final terminator. Anything else (and a DWORD or QWORD of the wrong size)
//   is written as hex(type) with the exact bytes, so nothing is ever lost.
// - Any line that does not fit these forms, or bytes that are not UTF-8, make
//   the whole file corrupt: the calls then answer ERROR_BADDB and the file is
//   left as it is, never overwritten.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "VCPlatform.h"
#include "VCStrings.h"

namespace vc::reg {

// A key path below a root, one name per component.
using KeyPath = std::vector<String>;

struct CRegValue {
  String sName;  // empty for the default value
  DWORD dwType = REG_NONE;
  std::vector<BYTE> vbData;
};

// One key: subkeys kept sorted by case-insensitive name, values in the order
// they were first set. Names are compared without case and stored as given.
class CRegKey {
 public:
  CRegKey() = default;
  explicit CRegKey(StringView sName) : m_sName(sName) {}
  CRegKey(const CRegKey&) = delete;
  CRegKey& operator=(const CRegKey&) = delete;

  const String& Name() const noexcept { return m_sName; }

  CRegKey* FindChild(StringView sName) const noexcept;
  // Returns the existing child of that name, or adds a new one. *pbCreated
  // (optional) tells which.
  CRegKey* AddChild(StringView sName, bool* pbCreated = nullptr);
  bool RemoveChild(StringView sName);
  const std::vector<std::unique_ptr<CRegKey>>& Children() const noexcept { return m_vChildren; }

  const CRegValue* FindValue(StringView sName) const noexcept;
  void SetValue(StringView sName, DWORD dwType, const BYTE* pbData, size_t cbData);
  bool RemoveValue(StringView sName);
  const std::vector<CRegValue>& Values() const noexcept { return m_vValues; }

  // Drops every subkey and value.
  void Clear() noexcept;

  // Walks a path from this key; null when a component is missing.
  const CRegKey* Find(const KeyPath& vPath) const noexcept;
  CRegKey* Find(const KeyPath& vPath) noexcept;
  // Creates missing components. *pbCreated (optional) says whether the last
  // one was new.
  CRegKey* Create(const KeyPath& vPath, bool* pbCreated = nullptr);

 private:
  size_t _LowerBound(StringView sName) const noexcept;

  String m_sName;
  std::vector<std::unique_ptr<CRegKey>> m_vChildren;
  std::vector<CRegValue> m_vValues;
};

// Text form of a whole tree. Parse fills *pRoot, which must be empty, and
// answers ERROR_SUCCESS, or ERROR_BADDB and leaves *pRoot empty. The title
// goes into the first comment line of the text.
LSTATUS ParseRegistryText(std::string_view sText, CRegKey* pRoot);
std::string FormatRegistryText(const CRegKey& root, std::string_view sTitle);

// One registry file and its lock file ("<path>.lock"). Holds only the path:
// every call opens, locks, reads and closes again.
class CRegistryFile {
 public:
  // Changes a loaded tree; sets *pbChanged when the file must be rewritten.
  // Any status but ERROR_SUCCESS leaves the file untouched and is returned.
  using Updater = std::function<LSTATUS(CRegKey& root, bool* pbChanged)>;

  CRegistryFile(std::string sPath, std::string sTitle, unsigned uNewFileMode);

  // Reads the file under a shared lock. A missing file (or folder) is an
  // empty registry; an unreadable or corrupt one answers ERROR_BADDB.
  LSTATUS Load(CRegKey* pRoot) const;
  // Re-reads the file under an exclusive lock, runs fUpdate and, if it
  // changed something, writes a temporary file beside it, flushes it and
  // renames it over the old one, all before the lock is released. Creates
  // the folder as needed.
  LSTATUS Update(const Updater& fUpdate) const;

  const std::string& Path() const noexcept { return m_sPath; }

 private:
  LSTATUS _ReadLocked(CRegKey* pRoot) const;
  LSTATUS _WriteLocked(const CRegKey& root) const;

  std::string m_sPath;
  std::string m_sTitle;
  unsigned m_uNewFileMode;
};

}  // namespace vc::reg
