#include "VCRegistryStore.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <shared_mutex>
#include <utility>

#include "VCSharedLock.h"

namespace vc::reg {

// ---------------------------------------------------------------------------
// Key tree

size_t CRegKey::_LowerBound(StringView sName) const noexcept {
  size_t lo = 0;
  size_t hi = m_vChildren.size();
  while (lo < hi) {
    const size_t mid = lo + (hi - lo) / 2;
    if (StrICmp(m_vChildren[mid]->m_sName, sName) < 0)
      lo = mid + 1;
    else
      hi = mid;
  }
  return lo;
}

CRegKey* CRegKey::FindChild(StringView sName) const noexcept {
  const size_t i = _LowerBound(sName);
  if (i < m_vChildren.size() && StrIEquals(m_vChildren[i]->m_sName, sName)) return m_vChildren[i].get();
  return nullptr;
}

CRegKey* CRegKey::AddChild(StringView sName, bool* pbCreated) {
  const size_t i = _LowerBound(sName);
  const bool bExists = i < m_vChildren.size() && StrIEquals(m_vChildren[i]->m_sName, sName);
  if (pbCreated) *pbCreated = !bExists;
  if (bExists) return m_vChildren[i].get();
  auto it = m_vChildren.insert(m_vChildren.begin() + static_cast<std::ptrdiff_t>(i), std::make_unique<CRegKey>(sName));
  return it->get();
}

bool CRegKey::RemoveChild(StringView sName) {
  const size_t i = _LowerBound(sName);
  if (i >= m_vChildren.size() || !StrIEquals(m_vChildren[i]->m_sName, sName)) return false;
  m_vChildren.erase(m_vChildren.begin() + static_cast<std::ptrdiff_t>(i));
  return true;
}

const CRegValue* CRegKey::FindValue(StringView sName) const noexcept {
  for (const auto& v : m_vValues)
    if (StrIEquals(v.sName, sName)) return &v;
  return nullptr;
}

void CRegKey::SetValue(StringView sName, DWORD dwType, const BYTE* pbData, size_t cbData) {
  std::vector<BYTE> vbData(pbData, pbData + cbData);
  for (auto& v : m_vValues) {
    if (StrIEquals(v.sName, sName)) {
      // The stored name keeps the case it was first given, as on Windows.
      v.dwType = dwType;
      v.vbData = std::move(vbData);
      return;
    }
  }
  m_vValues.push_back(CRegValue{String(sName), dwType, std::move(vbData)});
}

bool CRegKey::RemoveValue(StringView sName) {
  for (auto it = m_vValues.begin(); it != m_vValues.end(); ++it) {
    if (StrIEquals(it->sName, sName)) {
      m_vValues.erase(it);
      return true;
    }
  }
  return false;
}

void CRegKey::Clear() noexcept {
  m_vChildren.clear();
  m_vValues.clear();
}

const CRegKey* CRegKey::Find(const KeyPath& vPath) const noexcept {
  const CRegKey* p = this;
  for (const auto& sName : vPath) {
    p = p->FindChild(sName);
    if (!p) return nullptr;
  }
  return p;
}

CRegKey* CRegKey::Find(const KeyPath& vPath) noexcept {
  return const_cast<CRegKey*>(static_cast<const CRegKey*>(this)->Find(vPath));
}

CRegKey* CRegKey::Create(const KeyPath& vPath, bool* pbCreated) {
  CRegKey* p = this;
  bool bCreated = false;
  for (const auto& sName : vPath) p = p->AddChild(sName, &bCreated);
  if (pbCreated) *pbCreated = bCreated;
  return p;
}

// ---------------------------------------------------------------------------
// Text form: writing

namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

void AppendHex(std::string* pOut, uint64_t v, int nDigits) {
  for (int i = nDigits - 1; i >= 0; --i) *pOut += kHexDigits[(v >> (4 * i)) & 0xF];
}

bool IsControl(OLECHAR c) { return c < 0x20 || c == 0x7F; }
bool IsHighSurrogate(OLECHAR c) { return c >= 0xD800 && c <= 0xDBFF; }
bool IsLowSurrogate(OLECHAR c) { return c >= 0xDC00 && c <= 0xDFFF; }

// Calls fEscape(unit) for each unit that cannot be written as plain UTF-8 text
// (fNeedsEscape says which), and writes everything between as UTF-8. Paired
// surrogates are plain text; unpaired ones always go to fEscape.
template <class NeedsEscape, class Escape>
void AppendEscaped(std::string* pOut, StringView s, NeedsEscape fNeedsEscape, Escape fEscape) {
  size_t iRun = 0;
  auto flush = [&](size_t iEnd) {
    if (iEnd > iRun) *pOut += ToUtf8(s.substr(iRun, iEnd - iRun));
  };
  for (size_t i = 0; i < s.size(); ++i) {
    const OLECHAR c = s[i];
    if (IsHighSurrogate(c) && i + 1 < s.size() && IsLowSurrogate(s[i + 1])) {
      ++i;
      continue;
    }
    if (IsHighSurrogate(c) || IsLowSurrogate(c) || fNeedsEscape(c)) {
      flush(i);
      fEscape(c);
      iRun = i + 1;
    }
  }
  flush(s.size());
}

void AppendQuoted(std::string* pOut, StringView s) {
  *pOut += '"';
  AppendEscaped(
      pOut, s, [](OLECHAR c) { return IsControl(c) || c == '"' || c == '\\'; },
      [pOut](OLECHAR c) {
        switch (c) {
          case '"': *pOut += "\\\""; break;
          case '\\': *pOut += "\\\\"; break;
          case '\n': *pOut += "\\n"; break;
          case '\r': *pOut += "\\r"; break;
          case '\t': *pOut += "\\t"; break;
          case 0: *pOut += "\\0"; break;
          default:
            *pOut += "\\u";
            AppendHex(pOut, c, 4);
        }
      });
  *pOut += '"';
}

void AppendKeyName(std::string* pOut, StringView s) {
  AppendEscaped(
      pOut, s, [](OLECHAR c) { return IsControl(c) || c == '%'; },
      [pOut](OLECHAR c) {
        *pOut += '%';
        AppendHex(pOut, c, 4);
      });
}

// The units of a string-typed value without its final terminator, or false
// when the bytes are not whole units ending in a zero unit.
bool StringData(const std::vector<BYTE>& vb, String* ps) {
  if (vb.size() < 2 || vb.size() % 2 != 0 || vb[vb.size() - 1] != 0 || vb[vb.size() - 2] != 0) return false;
  ps->resize(vb.size() / 2 - 1);
  if (!ps->empty()) std::memcpy(ps->data(), vb.data(), ps->size() * sizeof(OLECHAR));
  return true;
}

uint64_t LittleEndian(const std::vector<BYTE>& vb) {
  uint64_t v = 0;
  for (size_t i = vb.size(); i-- > 0;) v = (v << 8) | vb[i];
  return v;
}

void AppendData(std::string* pOut, const CRegValue& v) {
  String s;
  const bool bString = StringData(v.vbData, &s);
  if (v.dwType == REG_SZ && bString) {
    AppendQuoted(pOut, s);
  } else if (v.dwType == REG_EXPAND_SZ && bString) {
    *pOut += "expand:";
    AppendQuoted(pOut, s);
  } else if (v.dwType == REG_MULTI_SZ && bString) {
    *pOut += "multi:";
    AppendQuoted(pOut, s);
  } else if (v.dwType == REG_DWORD && v.vbData.size() == 4) {
    *pOut += "dword:";
    AppendHex(pOut, LittleEndian(v.vbData), 8);
  } else if (v.dwType == REG_QWORD && v.vbData.size() == 8) {
    *pOut += "qword:";
    AppendHex(pOut, LittleEndian(v.vbData), 16);
  } else {
    if (v.dwType == REG_BINARY) {
      *pOut += "hex:";
    } else {
      char buf[24];
      std::snprintf(buf, sizeof buf, "hex(%x):", static_cast<unsigned>(v.dwType));
      *pOut += buf;
    }
    for (size_t i = 0; i < v.vbData.size(); ++i) {
      if (i) *pOut += ',';
      AppendHex(pOut, v.vbData[i], 2);
    }
  }
}

void AppendKey(std::string* pOut, const CRegKey& key, const std::string& sPath) {
  *pOut += '[';
  *pOut += sPath;
  *pOut += "]\n";
  for (const auto& v : key.Values()) {
    if (v.sName.empty()) {
      *pOut += '@';
    } else {
      AppendQuoted(pOut, v.sName);
    }
    *pOut += '=';
    AppendData(pOut, v);
    *pOut += '\n';
  }
  for (const auto& pChild : key.Children()) {
    std::string sChild = sPath;
    if (!sChild.empty()) sChild += '\\';
    AppendKeyName(&sChild, pChild->Name());
    *pOut += '\n';
    AppendKey(pOut, *pChild, sChild);
  }
}

}  // namespace

std::string FormatRegistryText(const CRegKey& root, std::string_view sTitle) {
  std::string out = "; Corvane registry, format 1: ";
  out += sTitle;
  out += '\n';
  if (!root.Values().empty()) {
    out += '\n';
    AppendKey(&out, root, std::string());
  } else {
    for (const auto& pChild : root.Children()) {
      std::string sPath;
      AppendKeyName(&sPath, pChild->Name());
      out += '\n';
      AppendKey(&out, *pChild, sPath);
    }
  }
  return out;
}

// ---------------------------------------------------------------------------
// Text form: reading

namespace {

bool IsValidUtf8(std::string_view s) {
  size_t i = 0;
  while (i < s.size()) {
    const auto b0 = static_cast<uint8_t>(s[i]);
    size_t n = 0;
    uint32_t cp = 0;
    if (b0 < 0x80) {
      ++i;
      continue;
    } else if ((b0 & 0xE0) == 0xC0) {
      n = 1, cp = b0 & 0x1Fu;
    } else if ((b0 & 0xF0) == 0xE0) {
      n = 2, cp = b0 & 0x0Fu;
    } else if ((b0 & 0xF8) == 0xF0) {
      n = 3, cp = b0 & 0x07u;
    } else {
      return false;
    }
    if (i + n >= s.size()) return false;
    for (size_t k = 1; k <= n; ++k) {
      const auto b = static_cast<uint8_t>(s[i + k]);
      if ((b & 0xC0) != 0x80) return false;
      cp = (cp << 6) | (b & 0x3Fu);
    }
    static constexpr uint32_t kMin[] = {0, 0x80, 0x800, 0x10000};
    if (cp < kMin[n] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return false;
    i += n + 1;
  }
  return true;
}

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Exactly nDigits hex digits at the front of s.
bool TakeHex(std::string_view* ps, size_t nDigits, uint32_t* pv) {
  if (ps->size() < nDigits) return false;
  uint32_t v = 0;
  for (size_t i = 0; i < nDigits; ++i) {
    const int d = HexValue((*ps)[i]);
    if (d < 0) return false;
    v = (v << 4) | static_cast<uint32_t>(d);
  }
  ps->remove_prefix(nDigits);
  *pv = v;
  return true;
}

// A whole field of 1..nMaxDigits hex digits.
bool ParseHexNumber(std::string_view s, size_t nMaxDigits, uint64_t* pv) {
  if (s.empty() || s.size() > nMaxDigits) return false;
  uint64_t v = 0;
  for (char c : s) {
    const int d = HexValue(c);
    if (d < 0) return false;
    v = (v << 4) | static_cast<uint64_t>(d);
  }
  *pv = v;
  return true;
}

bool ParseHexBytes(std::string_view s, std::vector<BYTE>* pvb) {
  pvb->clear();
  while (!s.empty()) {
    uint32_t v = 0;
    if (!pvb->empty()) {
      if (s.front() != ',') return false;
      s.remove_prefix(1);
    }
    if (!TakeHex(&s, 2, &v)) return false;
    pvb->push_back(static_cast<BYTE>(v));
  }
  return true;
}

// Reads a quoted string at the front of *ps and consumes it.
bool TakeQuoted(std::string_view* ps, String* pOut) {
  std::string_view s = *ps;
  if (s.empty() || s.front() != '"') return false;
  s.remove_prefix(1);
  pOut->clear();
  for (;;) {
    const size_t iStop = s.find_first_of("\"\\");
    if (iStop == std::string_view::npos) return false;
    *pOut += FromUtf8(s.substr(0, iStop));
    const char cStop = s[iStop];
    s.remove_prefix(iStop + 1);
    if (cStop == '"') break;
    if (s.empty()) return false;
    const char cEsc = s.front();
    s.remove_prefix(1);
    uint32_t u = 0;
    switch (cEsc) {
      case '"': *pOut += u'"'; break;
      case '\\': *pOut += u'\\'; break;
      case 'n': *pOut += u'\n'; break;
      case 'r': *pOut += u'\r'; break;
      case 't': *pOut += u'\t'; break;
      case '0': *pOut += OLECHAR(0); break;
      case 'u':
        if (!TakeHex(&s, 4, &u)) return false;
        *pOut += static_cast<OLECHAR>(u);
        break;
      default: return false;
    }
  }
  *ps = s;
  return true;
}

bool ParseKeyName(std::string_view s, String* pOut) {
  pOut->clear();
  for (;;) {
    const size_t iPct = s.find('%');
    *pOut += FromUtf8(s.substr(0, iPct));
    if (iPct == std::string_view::npos) break;
    s.remove_prefix(iPct + 1);
    uint32_t u = 0;
    if (!TakeHex(&s, 4, &u)) return false;
    *pOut += static_cast<OLECHAR>(u);
  }
  return !pOut->empty();
}

bool ParseKeyPath(std::string_view s, KeyPath* pvPath) {
  pvPath->clear();
  if (s.empty()) return true;  // the root
  for (;;) {
    const size_t iSep = s.find('\\');
    String sName;
    if (!ParseKeyName(s.substr(0, iSep), &sName)) return false;
    pvPath->push_back(std::move(sName));
    if (iSep == std::string_view::npos) return true;
    s.remove_prefix(iSep + 1);
  }
}

void StoreString(DWORD dwType, const String& s, CRegValue* pv) {
  pv->dwType = dwType;
  pv->vbData.resize((s.size() + 1) * sizeof(OLECHAR));
  if (!s.empty()) std::memcpy(pv->vbData.data(), s.data(), s.size() * sizeof(OLECHAR));
  pv->vbData[pv->vbData.size() - 1] = 0;
  pv->vbData[pv->vbData.size() - 2] = 0;
}

void StoreNumber(DWORD dwType, uint64_t v, size_t cb, CRegValue* pv) {
  pv->dwType = dwType;
  pv->vbData.resize(cb);
  for (size_t i = 0; i < cb; ++i) pv->vbData[i] = static_cast<BYTE>(v >> (8 * i));
}

bool StartsWith(std::string_view s, std::string_view sPrefix) { return s.substr(0, sPrefix.size()) == sPrefix; }

bool ParseStringData(std::string_view s, DWORD dwType, CRegValue* pv) {
  String sText;
  if (!TakeQuoted(&s, &sText) || !s.empty()) return false;
  StoreString(dwType, sText, pv);
  return true;
}

// The text after '=' (trailing blanks already removed).
bool ParseData(std::string_view s, CRegValue* pv) {
  uint64_t n = 0;
  if (StartsWith(s, "\"")) return ParseStringData(s, REG_SZ, pv);
  if (StartsWith(s, "expand:")) return ParseStringData(s.substr(7), REG_EXPAND_SZ, pv);
  if (StartsWith(s, "multi:")) return ParseStringData(s.substr(6), REG_MULTI_SZ, pv);
  if (StartsWith(s, "dword:")) {
    if (!ParseHexNumber(s.substr(6), 8, &n)) return false;
    StoreNumber(REG_DWORD, n, 4, pv);
    return true;
  }
  if (StartsWith(s, "qword:")) {
    if (!ParseHexNumber(s.substr(6), 16, &n)) return false;
    StoreNumber(REG_QWORD, n, 8, pv);
    return true;
  }
  if (StartsWith(s, "hex:")) {
    pv->dwType = REG_BINARY;
    return ParseHexBytes(s.substr(4), &pv->vbData);
  }
  if (StartsWith(s, "hex(")) {
    const size_t iClose = s.find("):");
    if (iClose == std::string_view::npos || !ParseHexNumber(s.substr(4, iClose - 4), 8, &n)) return false;
    pv->dwType = static_cast<DWORD>(n);
    return ParseHexBytes(s.substr(iClose + 2), &pv->vbData);
  }
  return false;
}

bool ParseValueLine(std::string_view s, CRegKey* pKey) {
  CRegValue v;
  if (s.front() == '@') {
    s.remove_prefix(1);
  } else if (!TakeQuoted(&s, &v.sName) || v.sName.empty()) {
    // An empty quoted name would be a second spelling of '@'.
    return false;
  }
  const size_t iEq = s.find_first_not_of(" \t");
  if (iEq == std::string_view::npos || s[iEq] != '=') return false;
  s.remove_prefix(iEq + 1);
  const size_t iData = s.find_first_not_of(" \t");
  s.remove_prefix(iData == std::string_view::npos ? s.size() : iData);
  if (!ParseData(s, &v)) return false;
  pKey->SetValue(v.sName, v.dwType, v.vbData.data(), v.vbData.size());
  return true;
}

std::string_view TrimBlanks(std::string_view s) {
  const size_t iFirst = s.find_first_not_of(" \t\r");
  if (iFirst == std::string_view::npos) return {};
  const size_t iLast = s.find_last_not_of(" \t\r");
  return s.substr(iFirst, iLast - iFirst + 1);
}

bool ParseLines(std::string_view sText, CRegKey* pRoot) {
  CRegKey* pKey = nullptr;  // no value lines before the first key line
  while (!sText.empty()) {
    const size_t iEol = sText.find('\n');
    const std::string_view sLine = TrimBlanks(sText.substr(0, iEol));
    sText.remove_prefix(iEol == std::string_view::npos ? sText.size() : iEol + 1);
    if (sLine.empty() || sLine.front() == ';' || sLine.front() == '#') continue;
    if (sLine.front() == '[') {
      KeyPath vPath;
      if (sLine.back() != ']' || sLine.size() < 2 || !ParseKeyPath(sLine.substr(1, sLine.size() - 2), &vPath))
        return false;
      pKey = pRoot->Create(vPath);
    } else if (!pKey || (sLine.front() != '@' && sLine.front() != '"') || !ParseValueLine(sLine, pKey)) {
      return false;
    }
  }
  return true;
}

}  // namespace

LSTATUS ParseRegistryText(std::string_view sText, CRegKey* pRoot) {
  if (StartsWith(sText, "\xEF\xBB\xBF")) sText.remove_prefix(3);  // a BOM left by an editor
  if (!IsValidUtf8(sText) || !ParseLines(sText, pRoot)) {
    pRoot->Clear();
    return ERROR_BADDB;
  }
  return ERROR_SUCCESS;
}

// ---------------------------------------------------------------------------
// Files

namespace {

// Threads of this process: flock alone does not order them when they share
// nothing but the path, and keeping one mutex makes the in-process order
// obvious. Shared for loads, exclusive for updates.
vc::CKSharedLock g_mxFiles;

class CFd {
 public:
  explicit CFd(int fd = -1) noexcept : m_fd(fd) {}
  CFd(const CFd&) = delete;
  CFd& operator=(const CFd&) = delete;
  ~CFd() { Reset(); }
  int Get() const noexcept { return m_fd; }
  void Reset(int fd = -1) noexcept {
    if (m_fd >= 0) ::close(m_fd);
    m_fd = fd;
  }
  int Release() noexcept { return std::exchange(m_fd, -1); }

 private:
  int m_fd;
};

LSTATUS StatusFromErrno(int nErr) {
  if (nErr == EACCES || nErr == EPERM || nErr == EROFS) return ERROR_ACCESS_DENIED;
  if (nErr == ENOMEM) return ERROR_NOT_ENOUGH_MEMORY;
  return ERROR_CANTWRITE;
}

std::string ParentFolder(const std::string& sPath) {
  const size_t i = sPath.find_last_of('/');
  if (i == std::string::npos) return ".";
  return i == 0 ? "/" : sPath.substr(0, i);
}

// mkdir -p; answers 0 or an errno.
int MakeFolders(const std::string& sDir) {
  struct stat st {};
  if (::stat(sDir.c_str(), &st) == 0) return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
  const std::string sParent = ParentFolder(sDir);
  if (sParent != sDir) {
    if (const int nErr = MakeFolders(sParent)) return nErr;
  }
  if (::mkdir(sDir.c_str(), 0755) != 0 && errno != EEXIST) return errno;
  return 0;
}

bool Flock(int fd, int nOp) {
  while (::flock(fd, nOp) != 0) {
    if (errno != EINTR) return false;
  }
  return true;
}

bool ReadAll(int fd, std::string* ps) {
  char buf[16384];
  for (;;) {
    const ssize_t n = ::read(fd, buf, sizeof buf);
    if (n == 0) return true;
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    ps->append(buf, static_cast<size_t>(n));
  }
}

bool WriteAll(int fd, std::string_view s) {
  while (!s.empty()) {
    const ssize_t n = ::write(fd, s.data(), s.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    s.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

void SyncFolder(const std::string& sDir) {
  CFd fd(::open(sDir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd.Get() >= 0) ::fsync(fd.Get());
}

}  // namespace

CRegistryFile::CRegistryFile(std::string sPath, std::string sTitle, unsigned uNewFileMode)
    : m_sPath(std::move(sPath)), m_sTitle(std::move(sTitle)), m_uNewFileMode(uNewFileMode) {}

LSTATUS CRegistryFile::_ReadLocked(CRegKey* pRoot) const {
  pRoot->Clear();
  CFd fd(::open(m_sPath.c_str(), O_RDONLY | O_CLOEXEC));
  if (fd.Get() < 0) return (errno == ENOENT || errno == ENOTDIR) ? ERROR_SUCCESS : ERROR_BADDB;
  std::string sText;
  if (!ReadAll(fd.Get(), &sText)) return ERROR_BADDB;
  return ParseRegistryText(sText, pRoot);
}

LSTATUS CRegistryFile::Load(CRegKey* pRoot) const {
  vc::CKReadLock lk(g_mxFiles);
  const std::string sLock = m_sPath + ".lock";
  CFd fdLock(::open(sLock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, m_uNewFileMode));
  if (fdLock.Get() < 0) fdLock.Reset(::open(sLock.c_str(), O_RDONLY | O_CLOEXEC));
  // Without a lock file (a folder we may not write, or none yet) the read is
  // still whole: writers only ever rename a complete file into place.
  if (fdLock.Get() >= 0 && !Flock(fdLock.Get(), LOCK_SH)) return ERROR_BADDB;
  return _ReadLocked(pRoot);
}

LSTATUS CRegistryFile::Update(const Updater& fUpdate) const {
  vc::CKWriteLock lk(g_mxFiles);
  if (const int nErr = MakeFolders(ParentFolder(m_sPath))) return StatusFromErrno(nErr);
  const std::string sLock = m_sPath + ".lock";
  CFd fdLock(::open(sLock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, m_uNewFileMode));
  if (fdLock.Get() < 0) return StatusFromErrno(errno);
  if (!Flock(fdLock.Get(), LOCK_EX)) return ERROR_CANTWRITE;
  CRegKey root;
  LSTATUS st = _ReadLocked(&root);
  if (st != ERROR_SUCCESS) return st;
  bool bChanged = false;
  st = fUpdate(root, &bChanged);
  if (st != ERROR_SUCCESS || !bChanged) return st;
  return _WriteLocked(root);
}

LSTATUS CRegistryFile::_WriteLocked(const CRegKey& root) const {
  const std::string sText = FormatRegistryText(root, m_sTitle);
  std::string sTemp = m_sPath + ".tmp-XXXXXX";
  CFd fd(::mkostemp(sTemp.data(), O_CLOEXEC));
  if (fd.Get() < 0) return StatusFromErrno(errno);
  struct stat st {};
  const mode_t mode = ::stat(m_sPath.c_str(), &st) == 0 ? (st.st_mode & 07777) : static_cast<mode_t>(m_uNewFileMode);
  bool bOk = ::fchmod(fd.Get(), mode) == 0 && WriteAll(fd.Get(), sText) && ::fsync(fd.Get()) == 0;
  const int nWriteErr = errno;
  bOk = (::close(fd.Release()) == 0) && bOk;
  if (!bOk || ::rename(sTemp.c_str(), m_sPath.c_str()) != 0) {
    const int nErr = bOk ? errno : nWriteErr;
    ::unlink(sTemp.c_str());
    return StatusFromErrno(nErr);
  }
  SyncFolder(ParentFolder(m_sPath));
  return ERROR_SUCCESS;
}

}  // namespace vc::reg
