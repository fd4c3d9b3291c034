#include "VCStrings.h"

#include <cstdio>

namespace vc {

size_t StrLen(const OLECHAR* s) noexcept {
  if (!s) return 0;
  size_t n = 0;
  while (s[n]) ++n;
  return n;
}

OLECHAR ToLowerAscii(OLECHAR c) noexcept {
  return (c >= 'A' && c <= 'Z') ? static_cast<OLECHAR>(c - 'A' + 'a') : c;
}

String ToLowerAscii(StringView s) {
  String r(s);
  for (auto& c : r) c = ToLowerAscii(c);
  return r;
}

int StrICmp(StringView a, StringView b) noexcept {
  const size_t n = a.size() < b.size() ? a.size() : b.size();
  for (size_t i = 0; i < n; ++i) {
    const OLECHAR ca = ToLowerAscii(a[i]);
    const OLECHAR cb = ToLowerAscii(b[i]);
    if (ca != cb) return ca < cb ? -1 : 1;
  }
  if (a.size() == b.size()) return 0;
  return a.size() < b.size() ? -1 : 1;
}

bool StrIEquals(StringView a, StringView b) noexcept { return a.size() == b.size() && StrICmp(a, b) == 0; }

void AppendUtf8(std::string& out, uint32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

std::string ToUtf8(StringView s) {
  std::string out;
  out.reserve(s.size());
  for (size_t i = 0; i < s.size(); ++i) {
    uint32_t cp = static_cast<uint16_t>(s[i]);
    if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < s.size()) {
      const uint32_t lo = static_cast<uint16_t>(s[i + 1]);
      if (lo >= 0xDC00 && lo <= 0xDFFF) {
        cp = 0x10000 + ((cp - 0xD800) << 10) + (lo - 0xDC00);
        ++i;
      } else {
        cp = 0xFFFD;
      }
    } else if (cp >= 0xD800 && cp <= 0xDFFF) {
      cp = 0xFFFD;
    }
    AppendUtf8(out, cp);
  }
  return out;
}

std::string ToUtf8(const OLECHAR* s) { return ToUtf8(View(s)); }

String FromUtf8(std::string_view s) {
  String out;
  out.reserve(s.size());
  size_t i = 0;
  while (i < s.size()) {
    const auto b0 = static_cast<uint8_t>(s[i]);
    uint32_t cp = 0xFFFD;
    size_t len = 1;
    auto cont = [&](size_t k) { return i + k < s.size() && (static_cast<uint8_t>(s[i + k]) & 0xC0) == 0x80; };
    if (b0 < 0x80) {
      cp = b0;
    } else if ((b0 & 0xE0) == 0xC0 && cont(1)) {
      cp = ((b0 & 0x1Fu) << 6) | (static_cast<uint8_t>(s[i + 1]) & 0x3Fu);
      len = 2;
      if (cp < 0x80) cp = 0xFFFD;
    } else if ((b0 & 0xF0) == 0xE0 && cont(1) && cont(2)) {
      cp = ((b0 & 0x0Fu) << 12) | ((static_cast<uint8_t>(s[i + 1]) & 0x3Fu) << 6) |
           (static_cast<uint8_t>(s[i + 2]) & 0x3Fu);
      len = 3;
      if (cp < 0x800 || (cp >= 0xD800 && cp <= 0xDFFF)) cp = 0xFFFD;
    } else if ((b0 & 0xF8) == 0xF0 && cont(1) && cont(2) && cont(3)) {
      cp = ((b0 & 0x07u) << 18) | ((static_cast<uint8_t>(s[i + 1]) & 0x3Fu) << 12) |
           ((static_cast<uint8_t>(s[i + 2]) & 0x3Fu) << 6) | (static_cast<uint8_t>(s[i + 3]) & 0x3Fu);
      len = 4;
      if (cp < 0x10000 || cp > 0x10FFFF) cp = 0xFFFD;
    }
    i += len;
    if (cp >= 0x10000) {
      cp -= 0x10000;
      out += static_cast<OLECHAR>(0xD800 + (cp >> 10));
      out += static_cast<OLECHAR>(0xDC00 + (cp & 0x3FF));
    } else {
      out += static_cast<OLECHAR>(cp);
    }
  }
  return out;
}

CBstr::CBstr(std::string_view utf8) {
  const String s = FromUtf8(utf8);
  m_bs = SysAllocStringLen(s.data(), static_cast<UINT>(s.size()));
}

std::string GuidToUtf8(REFGUID g) {
  char buf[40];
  std::snprintf(buf, sizeof buf, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", static_cast<unsigned>(g.Data1), g.Data2, g.Data3,
                g.Data4[0], g.Data4[1], g.Data4[2], g.Data4[3], g.Data4[4], g.Data4[5], g.Data4[6], g.Data4[7]);
  return buf;
}

String GuidToString(REFGUID g) { return FromUtf8(GuidToUtf8(g)); }

bool GuidFromString(StringView s, GUID* pg) noexcept {
  if (!pg) return false;
  if (s.size() == 38) {
    if (s.front() != '{' || s.back() != '}') return false;
    s = s.substr(1, 36);
  }
  if (s.size() != 36) return false;
  auto hex = [](OLECHAR c, uint32_t* v) {
    if (c >= '0' && c <= '9') *v = static_cast<uint32_t>(c - '0');
    else if (c >= 'A' && c <= 'F') *v = static_cast<uint32_t>(c - 'A' + 10);
    else if (c >= 'a' && c <= 'f') *v = static_cast<uint32_t>(c - 'a' + 10);
    else return false;
    return true;
  };
  auto run = [&](size_t at, int n, uint32_t* out) {
    uint32_t v = 0;
    for (int i = 0; i < n; ++i) {
      uint32_t d;
      if (!hex(s[at + static_cast<size_t>(i)], &d)) return false;
      v = (v << 4) | d;
    }
    *out = v;
    return true;
  };
  if (s[8] != '-' || s[13] != '-' || s[18] != '-' || s[23] != '-') return false;
  GUID g{};
  uint32_t v;
  if (!run(0, 8, &v)) return false;
  g.Data1 = v;
  if (!run(9, 4, &v)) return false;
  g.Data2 = static_cast<uint16_t>(v);
  if (!run(14, 4, &v)) return false;
  g.Data3 = static_cast<uint16_t>(v);
  for (int i = 0; i < 8; ++i) {
    const size_t at = i < 2 ? 19 + 2 * static_cast<size_t>(i) : 24 + 2 * static_cast<size_t>(i - 2);
    if (!run(at, 2, &v)) return false;
    g.Data4[i] = static_cast<uint8_t>(v);
  }
  *pg = g;
  return true;
}

}  // namespace vc
