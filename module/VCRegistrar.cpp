#include "VCRegistrar.h"

#include <new>
#include <optional>

namespace vc {
namespace {

// Registry key names are at most 255 characters: room for any name that
// subkey enumeration returns.
constexpr DWORD kMaxKeyNameChars = 256;
// Deeper nesting than this is not a registration script but garbage (or an
// attack on the stack); the registry itself stops at 512 levels.
constexpr int kMaxNesting = 128;

constexpr std::string_view kPerUserOpener = "HKCU\r\n{\tSoftware\r\n\t{\r\n\t\tClasses";
constexpr std::string_view kPerUserCloser = "\r\n\t}\r\n}\r\n";

// Everything that stops a run: where in the script, and the status to return.
struct CRunError {
  HRESULT hr;
  int nLine;
  std::string sMessage;
};

[[noreturn]] void ThrowScriptError(int nLine, std::string sMessage) {
  throw CRunError{DISP_E_EXCEPTION, nLine, std::move(sMessage)};
}

// NUL counts as white space so that resource text padded with zeros still
// parses.
bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f' || c == '\0'; }
bool EndsBareWord(char c) { return IsSpace(c) || c == '{' || c == '}' || c == '=' || c == '\''; }


bool IsClassesRootName(std::string_view word) {
  return EqualsIgnoreAsciiCase(word, "HKCR") || EqualsIgnoreAsciiCase(word, "HKEY_CLASSES_ROOT");
}

// End of the quoted string that starts at |nOpen| (one past its closing quote),
// or npos when it never closes.
size_t SkipQuoted(std::string_view text, size_t nOpen) {
  size_t i = nOpen + 1;
  while (i < text.size()) {
    if (text[i] == '\'') {
      if (i + 1 < text.size() && text[i + 1] == '\'') {
        i += 2;
        continue;
      }
      return i + 1;
    }
    ++i;
  }
  return std::string_view::npos;
}

bool OnlySpaceFrom(std::string_view text, size_t nPos) {
  for (size_t i = nPos; i < text.size(); ++i)
    if (!IsSpace(text[i])) return false;
  return true;
}

// ---------------------------------------------------------------------------
// Per-user rewrite. Besides the text it records, for every line of the
// result, the line of the original script it came from, so that errors in a
// per-user run name the line the author wrote.

class CPerUserWriter {
 public:
  explicit CPerUserWriter(size_t nReserve) { m_sOut.reserve(nReserve + 64); }

  void CopyOriginal(std::string_view text) {
    for (char c : text) {
      m_sOut += c;
      if (c == '\n') m_vecLineMap.push_back(++m_nOriginalLine);
    }
  }
  void Insert(std::string_view text) {
    for (char c : text) {
      m_sOut += c;
      if (c == '\n') m_vecLineMap.push_back(m_nOriginalLine);
    }
  }
  std::string TakeText() { return std::move(m_sOut); }
  std::vector<int> TakeLineMap() { return std::move(m_vecLineMap); }

 private:
  std::string m_sOut;
  int m_nOriginalLine = 1;
  std::vector<int> m_vecLineMap{1};  // [output line - 1] -> original line
};

std::string RewritePerUser(std::string_view script, std::vector<int>* pLineMap) {
  CPerUserWriter out(script.size());
  int nDepth = 0;
  bool bAwaitingBlock = false;  // a root was rewritten, its '{' not seen yet
  bool bInRewrittenBlock = false;
  int nDeferredClosers = 0;
  size_t i = 0;
  while (i < script.size()) {
    const char c = script[i];
    if (c == '\'') {
      const size_t nEnd = SkipQuoted(script, i);
      const size_t nStop = nEnd == std::string_view::npos ? script.size() : nEnd;
      out.CopyOriginal(script.substr(i, nStop - i));
      i = nStop;
    } else if (c == '{') {
      if (++nDepth == 1 && bAwaitingBlock) {
        bAwaitingBlock = false;
        bInRewrittenBlock = true;
      }
      out.CopyOriginal(script.substr(i++, 1));
    } else if (c == '}') {
      if (nDepth > 0) --nDepth;
      out.CopyOriginal(script.substr(i++, 1));
      if (nDepth == 0 && bInRewrittenBlock) {
        bInRewrittenBlock = false;
        // A one-root script gets its closing text at the very end; a block
        // followed by more roots is closed in place so they stay roots.
        if (OnlySpaceFrom(script, i))
          ++nDeferredClosers;
        else
          out.Insert(kPerUserCloser);
      }
    } else if (EndsBareWord(c)) {
      out.CopyOriginal(script.substr(i++, 1));
    } else {
      size_t nEnd = i;
      while (nEnd < script.size() && !EndsBareWord(script[nEnd])) ++nEnd;
      const std::string_view word = script.substr(i, nEnd - i);
      if (nDepth == 0 && IsClassesRootName(word)) {
        if (bAwaitingBlock) ++nDeferredClosers;  // the previous one never opened a block
        bAwaitingBlock = true;
        out.Insert(kPerUserOpener);
      } else {
        out.CopyOriginal(word);
      }
      i = nEnd;
    }
  }
  if (bAwaitingBlock || bInRewrittenBlock) ++nDeferredClosers;
  for (int n = 0; n < nDeferredClosers; ++n) out.Insert(kPerUserCloser);
  if (pLineMap) *pLineMap = out.TakeLineMap();
  return out.TakeText();
}

// ---------------------------------------------------------------------------
// Tokens.

enum class TokenKind { End, Open, Close, Equals, Word, Quoted };

struct Token {
  TokenKind kind = TokenKind::End;
  std::string sText;  // words as written, quoted strings without quotes and with '' undone
  int nLine = 0;
};

class CLexer {
 public:
  explicit CLexer(std::string_view text) : m_sText(text) {
    if (m_sText.substr(0, 3) == "\xEF\xBB\xBF") m_nPos = 3;  // UTF-8 byte order mark
  }

  Token Next() {
    if (m_optPeeked) {
      Token t = std::move(*m_optPeeked);
      m_optPeeked.reset();
      return t;
    }
    return _Read();
  }
  const Token& Peek() {
    if (!m_optPeeked) m_optPeeked = _Read();
    return *m_optPeeked;
  }

 private:
  Token _Read() {
    while (m_nPos < m_sText.size() && IsSpace(m_sText[m_nPos])) {
      if (m_sText[m_nPos] == '\n') ++m_nLine;
      ++m_nPos;
    }
    Token t;
    t.nLine = m_nLine;
    if (m_nPos >= m_sText.size()) return t;
    const char c = m_sText[m_nPos];
    if (c == '\'') return _ReadQuoted(std::move(t));
    if (c == '}' || c == '=') {
      t.kind = c == '}' ? TokenKind::Close : TokenKind::Equals;
      ++m_nPos;
      return t;
    }
    if (c == '{') {
      // "{96EB1C14-...}" is a name; a '{' on its own opens a block.
      size_t nEnd = m_nPos + 1;
      while (nEnd < m_sText.size() && !IsSpace(m_sText[nEnd]) && m_sText[nEnd] != '{' && m_sText[nEnd] != '}') ++nEnd;
      if (nEnd < m_sText.size() && m_sText[nEnd] == '}' && nEnd > m_nPos + 1) {
        t.kind = TokenKind::Word;
        t.sText = m_sText.substr(m_nPos, nEnd + 1 - m_nPos);
        m_nPos = nEnd + 1;
      } else {
        t.kind = TokenKind::Open;
        ++m_nPos;
      }
      return t;
    }
    size_t nEnd = m_nPos;
    while (nEnd < m_sText.size() && !EndsBareWord(m_sText[nEnd])) ++nEnd;
    t.kind = TokenKind::Word;
    t.sText = m_sText.substr(m_nPos, nEnd - m_nPos);
    m_nPos = nEnd;
    return t;
  }

  Token _ReadQuoted(Token t) {
    const size_t nEnd = SkipQuoted(m_sText, m_nPos);
    if (nEnd == std::string_view::npos) ThrowScriptError(t.nLine, "quoted string is never closed");
    t.kind = TokenKind::Quoted;
    for (size_t i = m_nPos + 1; i + 1 < nEnd; ++i) {
      const char c = m_sText[i];
      if (c == '\n') ++m_nLine;
      t.sText += c;
      if (c == '\'') ++i;  // the second quote of ''
    }
    m_nPos = nEnd;
    return t;
  }

  std::string_view m_sText;
  size_t m_nPos = 0;
  int m_nLine = 1;
  std::optional<Token> m_optPeeked;
};

// ---------------------------------------------------------------------------
// The parsed script.

struct RegData {
  bool bDword = false;
  String sText;
  DWORD dwValue = 0;
};

struct RegValueEntry {
  String sName;
  RegData data;
  bool bNoRemove = false;
  int nLine = 0;
};

enum class KeyFlag { None, NoRemove, ForceRemove, Delete };

struct RegKeyEntry {
  String sName;
  KeyFlag eFlag = KeyFlag::None;
  std::optional<RegData> optDefault;
  std::vector<RegValueEntry> vecValues;
  std::vector<RegKeyEntry> vecKeys;
  int nLine = 0;
};

struct RegRootEntry {
  HKEY hRoot = nullptr;
  std::string sName;
  std::vector<RegKeyEntry> vecKeys;
};

std::string Describe(const Token& t) {
  switch (t.kind) {
    case TokenKind::End:
      return "end of script";
    case TokenKind::Open:
      return "'{'";
    case TokenKind::Close:
      return "'}'";
    case TokenKind::Equals:
      return "'='";
    case TokenKind::Word:
      return "'" + t.sText + "'";
    case TokenKind::Quoted:
      return "quoted '" + t.sText + "'";
  }
  return "?";
}

HKEY RootFromName(std::string_view name) {
  if (IsClassesRootName(name)) return HKEY_CLASSES_ROOT;
  if (EqualsIgnoreAsciiCase(name, "HKCU") || EqualsIgnoreAsciiCase(name, "HKEY_CURRENT_USER")) return HKEY_CURRENT_USER;
  if (EqualsIgnoreAsciiCase(name, "HKLM") || EqualsIgnoreAsciiCase(name, "HKEY_LOCAL_MACHINE")) return HKEY_LOCAL_MACHINE;
  return nullptr;
}

bool IsKeyword(const Token& t, std::string_view keyword) {
  return t.kind == TokenKind::Word && EqualsIgnoreAsciiCase(t.sText, keyword);
}

class CScriptParser {
 public:
  CScriptParser(std::string_view script, const std::vector<std::pair<std::string, String>>& replacements)
      : m_lexer(script), m_replacements(replacements) {}

  std::vector<RegRootEntry> Parse() {
    std::vector<RegRootEntry> roots;
    while (m_lexer.Peek().kind != TokenKind::End) roots.push_back(_ParseRoot());
    return roots;
  }

 private:
  RegRootEntry _ParseRoot() {
    Token t = m_lexer.Next();
    if (IsKeyword(t, "NoRemove")) t = m_lexer.Next();  // roots are never removed anyway
    RegRootEntry root;
    root.hRoot = t.kind == TokenKind::Word ? RootFromName(t.sText) : nullptr;
    if (!root.hRoot) ThrowScriptError(t.nLine, "expected a root key (HKCR, HKCU, HKLM), found " + Describe(t));
    root.sName = t.sText;
    const Token open = m_lexer.Next();
    if (open.kind != TokenKind::Open)
      ThrowScriptError(open.nLine, "expected '{' after " + root.sName + ", found " + Describe(open));
    std::vector<RegValueEntry> values;
    _ParseBlock(open.nLine, 1, &root.vecKeys, &values);
    if (!values.empty()) ThrowScriptError(values.front().nLine, "a root key cannot hold values");
    return root;
  }

  // Reads entries up to and including the '}' that closes the block opened on
  // |nOpenLine|.
  void _ParseBlock(int nOpenLine, int nDepth, std::vector<RegKeyEntry>* pKeys, std::vector<RegValueEntry>* pValues) {
    if (nDepth > kMaxNesting) ThrowScriptError(nOpenLine, "keys are nested too deeply");
    for (;;) {
      Token t = m_lexer.Next();
      if (t.kind == TokenKind::Close) return;
      if (t.kind == TokenKind::End)
        ThrowScriptError(t.nLine, "end of script inside the block opened on line " + std::to_string(nOpenLine));
      if (t.kind == TokenKind::Open || t.kind == TokenKind::Equals)
        ThrowScriptError(t.nLine, "expected a key name or 'val', found " + Describe(t));

      KeyFlag eFlag = KeyFlag::None;
      if (IsKeyword(t, "val")) {
        pValues->push_back(_ParseValue(t.nLine, false));
        continue;
      }
      if (IsKeyword(t, "NoRemove")) {
        if (IsKeyword(m_lexer.Peek(), "val")) {
          const int nLine = m_lexer.Next().nLine;
          pValues->push_back(_ParseValue(nLine, true));
          continue;
        }
        eFlag = KeyFlag::NoRemove;
      } else if (IsKeyword(t, "ForceRemove")) {
        eFlag = KeyFlag::ForceRemove;
      } else if (IsKeyword(t, "Delete")) {
        eFlag = KeyFlag::Delete;
      }
      if (eFlag != KeyFlag::None) t = m_lexer.Next();
      pKeys->push_back(_ParseKey(std::move(t), eFlag, nDepth));
    }
  }

  RegKeyEntry _ParseKey(Token name, KeyFlag eFlag, int nDepth) {
    if (name.kind != TokenKind::Word && name.kind != TokenKind::Quoted)
      ThrowScriptError(name.nLine, "expected a key name, found " + Describe(name));
    RegKeyEntry key;
    key.nLine = name.nLine;
    key.eFlag = eFlag;
    key.sName = _Expand(name.sText, name.nLine);
    if (key.sName.empty()) ThrowScriptError(name.nLine, "empty key name");
    if (m_lexer.Peek().kind == TokenKind::Equals) {
      m_lexer.Next();
      key.optDefault = _ParseData();
    }
    if (m_lexer.Peek().kind == TokenKind::Open) {
      const int nOpenLine = m_lexer.Next().nLine;
      _ParseBlock(nOpenLine, nDepth + 1, &key.vecKeys, &key.vecValues);
    }
    return key;
  }

  // After "val" (and its NoRemove): Name = type 'data'.
  RegValueEntry _ParseValue(int nLine, bool bNoRemove) {
    const Token name = m_lexer.Next();
    if (name.kind != TokenKind::Word && name.kind != TokenKind::Quoted)
      ThrowScriptError(name.nLine, "expected a value name after 'val', found " + Describe(name));
    const Token eq = m_lexer.Next();
    if (eq.kind != TokenKind::Equals)
      ThrowScriptError(eq.nLine, "expected '=' after value name '" + name.sText + "', found " + Describe(eq));
    RegValueEntry value;
    value.nLine = nLine;
    value.bNoRemove = bNoRemove;
    value.sName = _Expand(name.sText, name.nLine);
    value.data = _ParseData();
    return value;
  }

  // After '=': s 'text' or d 'number'.
  RegData _ParseData() {
    const Token type = m_lexer.Next();
    const bool bString = IsKeyword(type, "s");
    if (!bString && !IsKeyword(type, "d"))
      ThrowScriptError(type.nLine, "expected value type s or d, found " + Describe(type));
    const Token data = m_lexer.Next();
    if (data.kind != TokenKind::Word && data.kind != TokenKind::Quoted)
      ThrowScriptError(data.nLine, "expected the value data, found " + Describe(data));
    RegData result;
    result.sText = _Expand(data.sText, data.nLine);
    if (!bString) {
      result.bDword = true;
      if (!_ParseDword(result.sText, &result.dwValue))
        ThrowScriptError(data.nLine, "'" + data.sText + "' is not a 32-bit number (decimal or 0x hex)");
    }
    return result;
  }

  static bool _ParseDword(const String& s, DWORD* pValue) {
    const bool bHex = s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X');
    const size_t nStart = bHex ? 2 : 0;
    if (s.size() <= nStart) return false;
    const uint64_t nBase = bHex ? 16 : 10;
    uint64_t n = 0;
    for (size_t i = nStart; i < s.size(); ++i) {
      const OLECHAR c = s[i];
      uint64_t digit;
      if (c >= '0' && c <= '9')
        digit = static_cast<uint64_t>(c - '0');
      else if (bHex && c >= 'a' && c <= 'f')
        digit = static_cast<uint64_t>(c - 'a' + 10);
      else if (bHex && c >= 'A' && c <= 'F')
        digit = static_cast<uint64_t>(c - 'A' + 10);
      else
        return false;
      n = n * nBase + digit;
      if (n > 0xFFFFFFFFu) return false;
    }
    *pValue = static_cast<DWORD>(n);
    return true;
  }

  // Replaces %NAME% from the caller's map and %% by '%'. Splitting UTF-8 at
  // '%' is safe: an ASCII byte never occurs inside a multi-byte sequence.
  String _Expand(std::string_view text, int nLine) const {
    String out;
    size_t i = 0;
    while (i < text.size()) {
      const size_t nPercent = text.find('%', i);
      if (nPercent == std::string_view::npos) {
        out += FromUtf8(text.substr(i));
        break;
      }
      out += FromUtf8(text.substr(i, nPercent - i));
      const size_t nClose = text.find('%', nPercent + 1);
      if (nClose == std::string_view::npos)
        ThrowScriptError(nLine, "'%' without its closing '%' (write %% for a percent sign)");
      const std::string_view name = text.substr(nPercent + 1, nClose - nPercent - 1);
      if (name.empty()) {
        out += OLECHAR('%');
      } else {
        const String* pValue = nullptr;
        for (const auto& [sName, sValue] : m_replacements)
          if (EqualsIgnoreAsciiCase(sName, name)) {
            pValue = &sValue;
            break;
          }
        if (!pValue) ThrowScriptError(nLine, "unknown replacement %" + std::string(name) + "%");
        out += *pValue;
      }
      i = nClose + 1;
    }
    return out;
  }

  CLexer m_lexer;
  const std::vector<std::pair<std::string, String>>& m_replacements;
};

// ---------------------------------------------------------------------------
// Registry access: transacted when the caller runs under a transaction and the
// system has the transacted calls, plain otherwise.

#if defined(_WIN32)
struct TransactedApi {
  using CreateFn = LSTATUS(WINAPI*)(HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM, LPSECURITY_ATTRIBUTES, PHKEY, LPDWORD,
                                    HANDLE, PVOID);
  using OpenFn = LSTATUS(WINAPI*)(HKEY, LPCWSTR, DWORD, REGSAM, PHKEY, HANDLE, PVOID);
  using DeleteFn = LSTATUS(WINAPI*)(HKEY, LPCWSTR, REGSAM, DWORD, HANDLE, PVOID);
  CreateFn pfnCreate = nullptr;
  OpenFn pfnOpen = nullptr;
  DeleteFn pfnDelete = nullptr;
};

template <typename Fn>
Fn LookUp(HMODULE hModule, const char* pszName) {
  // Through a plain function pointer type so the cast does not trip
  // -Wcast-function-type.
  return reinterpret_cast<Fn>(reinterpret_cast<void (*)()>(GetProcAddress(hModule, pszName)));
}

// Looked up once; advapi32 is linked, so it is already loaded.
const TransactedApi* FindTransactedApi() {
  static const TransactedApi s_api = [] {
    TransactedApi api;
    HMODULE hAdvapi = GetModuleHandleW(L"Advapi32.dll");
    if (!hAdvapi) hAdvapi = LoadLibraryW(L"Advapi32.dll");
    if (hAdvapi) {
      api.pfnCreate = LookUp<TransactedApi::CreateFn>(hAdvapi, "RegCreateKeyTransactedW");
      api.pfnOpen = LookUp<TransactedApi::OpenFn>(hAdvapi, "RegOpenKeyTransactedW");
      api.pfnDelete = LookUp<TransactedApi::DeleteFn>(hAdvapi, "RegDeleteKeyTransactedW");
    }
    return api;
  }();
  return s_api.pfnCreate && s_api.pfnOpen && s_api.pfnDelete ? &s_api : nullptr;
}
#endif

// Closes an opened key; the predefined roots are never wrapped.
class CKey {
 public:
  CKey() = default;
  CKey(const CKey&) = delete;
  CKey& operator=(const CKey&) = delete;
  ~CKey() { Close(); }
  HKEY* Out() { return &m_hKey; }
  HKEY Get() const { return m_hKey; }
  void Close() {
    if (m_hKey) RegCloseKey(m_hKey);
    m_hKey = nullptr;
  }

 private:
  HKEY m_hKey = nullptr;
};

class CKeyOps {
 public:
  // Linux has no transacted registry calls: the handle is not used there.
  explicit CKeyOps([[maybe_unused]] HANDLE hTransaction) {
#if defined(_WIN32)
    m_hTransaction = hTransaction;
    if (m_hTransaction) m_pTransacted = FindTransactedApi();
#endif
  }

  LSTATUS Create(HKEY hParent, const String& name, HKEY* phKey) const {
#if defined(_WIN32)
    if (m_pTransacted)
      return m_pTransacted->pfnCreate(hParent, name.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_READ | KEY_WRITE,
                                      nullptr, phKey, nullptr, m_hTransaction, nullptr);
#endif
    return RegCreateKeyExW(hParent, name.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_READ | KEY_WRITE, nullptr,
                           phKey, nullptr);
  }

  LSTATUS Open(HKEY hParent, const String& name, REGSAM sam, HKEY* phKey) const {
#if defined(_WIN32)
    if (m_pTransacted) return m_pTransacted->pfnOpen(hParent, name.c_str(), 0, sam, phKey, m_hTransaction, nullptr);
#endif
    return RegOpenKeyExW(hParent, name.c_str(), 0, sam, phKey);
  }

  // Deletes one key without subkeys; a missing key counts as deleted.
  LSTATUS DeleteKey(HKEY hParent, const String& name) const {
    LSTATUS st;
#if defined(_WIN32)
    if (m_pTransacted)
      st = m_pTransacted->pfnDelete(hParent, name.c_str(), 0, 0, m_hTransaction, nullptr);
    else
#endif
      st = RegDeleteKeyW(hParent, name.c_str());
    return st == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : st;
  }

  // Deletes a key with everything below it, deepest first, one key at a time:
  // the tree call has no transacted twin. A missing key counts as deleted.
  LSTATUS DeleteTree(HKEY hParent, const String& name) const {
    CKey key;
    LSTATUS st = Open(hParent, name, KEY_READ, key.Out());
    if (st == ERROR_FILE_NOT_FOUND) return ERROR_SUCCESS;
    if (st != ERROR_SUCCESS) return st;
    String sLast;
    String sBuffer(kMaxKeyNameChars, OLECHAR(0));
    for (;;) {
      DWORD cch = kMaxKeyNameChars;
      st = RegEnumKeyExW(key.Get(), 0, sBuffer.data(), &cch, nullptr, nullptr, nullptr, nullptr);
      if (st == ERROR_NO_MORE_ITEMS) break;
      if (st != ERROR_SUCCESS) return st;
      String sChild(sBuffer.data(), cch);
      // The first subkey must be gone after its deletion; seeing it again
      // would loop forever.
      if (sChild == sLast) return ERROR_CANTWRITE;
      st = DeleteTree(key.Get(), sChild);
      if (st != ERROR_SUCCESS) return st;
      sLast = std::move(sChild);
    }
    key.Close();
    return DeleteKey(hParent, name);
  }

 private:
#if defined(_WIN32)
  HANDLE m_hTransaction = nullptr;
  const TransactedApi* m_pTransacted = nullptr;
#endif
};

// ---------------------------------------------------------------------------
// Execution.

class CScriptRunner {
 public:
  explicit CScriptRunner(HANDLE hTransaction) : m_ops(hTransaction) {}

  void Register(const RegRootEntry& root) {
    for (const RegKeyEntry& key : root.vecKeys) _RegisterKey(root.hRoot, key, root.sName);
  }
  void Remove(const RegRootEntry& root) {
    for (const RegKeyEntry& key : root.vecKeys) _RemoveKey(root.hRoot, key, root.sName);
  }

 private:
  void _RegisterKey(HKEY hParent, const RegKeyEntry& key, const std::string& sParentPath) {
    const std::string sPath = sParentPath + "\\" + ToUtf8(key.sName);
    if (key.eFlag == KeyFlag::Delete || key.eFlag == KeyFlag::ForceRemove)
      _Check(m_ops.DeleteTree(hParent, key.sName), key.nLine, "cannot delete", sPath);
    if (key.eFlag == KeyFlag::Delete) return;

    CKey hKey;
    _Check(m_ops.Create(hParent, key.sName, hKey.Out()), key.nLine, "cannot create", sPath);
    if (key.optDefault)
      _Check(_SetValue(hKey.Get(), nullptr, *key.optDefault), key.nLine, "cannot set the default value of", sPath);
    for (const RegValueEntry& value : key.vecValues)
      _Check(_SetValue(hKey.Get(), value.sName.c_str(), value.data), value.nLine,
             "cannot set value '" + ToUtf8(value.sName) + "' of", sPath);
    for (const RegKeyEntry& child : key.vecKeys) _RegisterKey(hKey.Get(), child, sPath);
  }

  void _RemoveKey(HKEY hParent, const RegKeyEntry& key, const std::string& sParentPath) {
    const std::string sPath = sParentPath + "\\" + ToUtf8(key.sName);
    switch (key.eFlag) {
      case KeyFlag::Delete:
        return;  // registration already took it away; anything there now is not ours
      case KeyFlag::ForceRemove:
        _Check(m_ops.DeleteTree(hParent, key.sName), key.nLine, "cannot delete", sPath);
        return;
      case KeyFlag::NoRemove:
      case KeyFlag::None:
        break;
    }

    CKey hKey;
    const LSTATUS st = m_ops.Open(hParent, key.sName, KEY_READ | KEY_WRITE, hKey.Out());
    if (st == ERROR_FILE_NOT_FOUND) return;
    _Check(st, key.nLine, "cannot open", sPath);
    for (const RegValueEntry& value : key.vecValues)
      if (!value.bNoRemove)
        _Check(_DeleteValue(hKey.Get(), value.sName.c_str()), value.nLine,
               "cannot delete value '" + ToUtf8(value.sName) + "' of", sPath);
    for (const RegKeyEntry& child : key.vecKeys) _RemoveKey(hKey.Get(), child, sPath);
    if (key.eFlag == KeyFlag::NoRemove) return;

    if (key.optDefault)
      _Check(_DeleteValue(hKey.Get(), nullptr), key.nLine, "cannot delete the default value of", sPath);
    // Whatever is left belongs to someone else (HKCU\Software, a shared
    // parent); only an empty key goes.
    DWORD cSubKeys = 0, cValues = 0;
    _Check(RegQueryInfoKeyW(hKey.Get(), nullptr, nullptr, nullptr, &cSubKeys, nullptr, nullptr, &cValues, nullptr,
                            nullptr, nullptr, nullptr),
           key.nLine, "cannot inspect", sPath);
    hKey.Close();
    if (cSubKeys == 0 && cValues == 0) _Check(m_ops.DeleteKey(hParent, key.sName), key.nLine, "cannot delete", sPath);
  }

  static LSTATUS _SetValue(HKEY hKey, LPCWSTR pszName, const RegData& data) {
    if (data.bDword)
      return RegSetValueExW(hKey, pszName, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&data.dwValue), sizeof(DWORD));
    return RegSetValueExW(hKey, pszName, 0, REG_SZ, reinterpret_cast<const BYTE*>(data.sText.c_str()),
                          static_cast<DWORD>((data.sText.size() + 1) * sizeof(OLECHAR)));
  }

  static LSTATUS _DeleteValue(HKEY hKey, LPCWSTR pszName) {
    const LSTATUS st = RegDeleteValueW(hKey, pszName);
    return st == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : st;
  }

  static void _Check(LSTATUS st, int nLine, const std::string& sWhat, const std::string& sPath) {
    if (st == ERROR_SUCCESS) return;
    throw CRunError{HRESULT_FROM_WIN32(static_cast<DWORD>(st)), nLine,
                    sWhat + " " + sPath + " (error " + std::to_string(st) + ")"};
  }

  CKeyOps m_ops;
};

}  // namespace

std::string RegistrarMakePerUser(std::string_view script) { return RewritePerUser(script, nullptr); }

HRESULT RegistrarRun(std::string_view script, bool bRegister, const RegistrarOptions& options, std::string* pError) {
  if (pError) pError->clear();
  std::vector<int> vecLineMap;
  try {
    std::string sPerUser;
    if (options.bPerUser) {
      sPerUser = RewritePerUser(script, &vecLineMap);
      script = sPerUser;
    }
    // Parse everything first: a broken script writes nothing.
    const std::vector<RegRootEntry> roots = CScriptParser(script, options.replacements).Parse();
    CScriptRunner runner(options.hTransaction);
    for (const RegRootEntry& root : roots) {
      if (bRegister)
        runner.Register(root);
      else
        runner.Remove(root);
    }
    return S_OK;
  } catch (const CRunError& e) {
    if (pError) {
      int nLine = e.nLine;
      if (nLine >= 1 && static_cast<size_t>(nLine) <= vecLineMap.size())
        nLine = vecLineMap[static_cast<size_t>(nLine) - 1];
      *pError = "line " + std::to_string(nLine) + ": " + e.sMessage;
    }
    return e.hr;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

}  // namespace vc
