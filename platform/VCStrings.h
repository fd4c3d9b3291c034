// UTF-16 string helpers used instead of the C library's wcs* functions (whose
// wchar_t is 32-bit on Linux), and CBstr, the owner of one BSTR. Any thread.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "VCPlatform.h"

namespace vc {

using String = std::basic_string<OLECHAR>;
using StringView = std::basic_string_view<OLECHAR>;

size_t StrLen(const OLECHAR* s) noexcept;
// ASCII case folding only, which is what registry names, property names and
// module names need.
OLECHAR ToLowerAscii(OLECHAR c) noexcept;
String ToLowerAscii(StringView s);
int StrICmp(StringView a, StringView b) noexcept;
bool StrIEquals(StringView a, StringView b) noexcept;

// Narrow ASCII comparison without regard to letter case (constexpr: used by
// header-only tables).
constexpr bool EqualsIgnoreAsciiCase(std::string_view a, std::string_view b) noexcept {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char ca = a[i], cb = b[i];
    if (ca >= 'A' && ca <= 'Z') ca = static_cast<char>(ca - 'A' + 'a');
    if (cb >= 'A' && cb <= 'Z') cb = static_cast<char>(cb - 'A' + 'a');
    if (ca != cb) return false;
  }
  return true;
}

// Appends one code point (at most U+10FFFF) as UTF-8.
void AppendUtf8(std::string& out, uint32_t cp);

// UTF-8 <-> UTF-16; malformed input becomes U+FFFD rather than failing.
std::string ToUtf8(StringView s);
std::string ToUtf8(const OLECHAR* s);
String FromUtf8(std::string_view s);

inline StringView View(const OLECHAR* s) noexcept { return s ? StringView(s, StrLen(s)) : StringView(); }

// The one way an input string (a BSTR parameter of any interface method) is
// read: up to its terminating zero, never by its length prefix. A host may
// pass a plain zero-terminated wide string (a literal), which has no prefix;
// reading one as a BSTR would take whatever lies before it as the length.
// Null reads as empty. The view points into the caller's string: copy it
// before the call returns if it must be kept.
inline StringView InString(const OLECHAR* bs) noexcept { return View(bs); }

// Owns one BSTR; frees it on destruction.
class CBstr {
 public:
  CBstr() noexcept = default;
  explicit CBstr(const OLECHAR* s) : m_bs(s ? SysAllocString(s) : nullptr) {}
  explicit CBstr(StringView s) : m_bs(SysAllocStringLen(s.data(), static_cast<UINT>(s.size()))) {}
  explicit CBstr(std::string_view utf8);
  CBstr(const CBstr& o) : m_bs(o.m_bs ? SysAllocStringLen(o.m_bs, SysStringLen(o.m_bs)) : nullptr) {}
  CBstr(CBstr&& o) noexcept : m_bs(std::exchange(o.m_bs, nullptr)) {}
  CBstr& operator=(CBstr o) noexcept {
    std::swap(m_bs, o.m_bs);
    return *this;
  }
  ~CBstr() { SysFreeString(m_bs); }

  BSTR Get() const noexcept { return m_bs; }
  operator BSTR() const noexcept { return m_bs; }
  // For out-parameters: frees what is held and hands out the slot.
  BSTR* operator&() noexcept {
    Reset();
    return &m_bs;
  }
  BSTR Detach() noexcept { return std::exchange(m_bs, nullptr); }
  void Reset() noexcept { SysFreeString(std::exchange(m_bs, nullptr)); }
  UINT Length() const noexcept { return m_bs ? SysStringLen(m_bs) : 0; }
  StringView View() const noexcept { return m_bs ? StringView(m_bs, SysStringLen(m_bs)) : StringView(); }
  std::string Utf8() const { return ToUtf8(View()); }

 private:
  BSTR m_bs = nullptr;
};

// "{96EB1C14-4CC0-4830-9CC3-F064196B2626}": braced, upper case.
String GuidToString(REFGUID g);
std::string GuidToUtf8(REFGUID g);
// Accepts the braced or bare form in either letter case.
bool GuidFromString(StringView s, GUID* pg) noexcept;

}  // namespace vc
