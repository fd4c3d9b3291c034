#include "XMLEntities.h"

#include <cstdint>

namespace XMLParse {
namespace {

// Everything above the last code point reads as the replacement character;
// the cap also keeps long digit runs from overflowing.
constexpr uint32_t kCodePointCap = 0x110000;

struct CNamedEntity {
  const char* pszName;  // between '&' and ';', the ';' included
  OLECHAR chValue;
  bool bDeliberateBlank;
};

// Tried in this order; "&copy;" and "&reg;" both give 0xC2 on purpose: the
// stored values and the texts other programs exchange with us rely on it.
constexpr CNamedEntity kNamedEntities[] = {
    {"lt;", '<', false},       {"gt;", '>', false},      {"amp;", '&', false},  {"apos;", '\'', false},
    {"quot;", '"', false},     {"nbsp;", ' ', true},     {"copy;", 0xC2, false}, {"reg;", 0xC2, false},
};

bool StartsWithAscii(StringView s, size_t nPos, const char* psz) noexcept {
  for (size_t i = 0; psz[i]; ++i) {
    if (nPos + i >= s.size() || s[nPos + i] != static_cast<OLECHAR>(psz[i])) return false;
  }
  return true;
}

int HexDigit(OLECHAR c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Reads digits of nBase from nPos on; returns the position after them.
size_t ReadNumber(StringView s, size_t nPos, int nBase, uint32_t* pnValue) noexcept {
  uint32_t n = 0;
  for (; nPos < s.size(); ++nPos) {
    const int d = HexDigit(s[nPos]);
    if (d < 0 || d >= nBase) break;
    n = n * static_cast<uint32_t>(nBase) + static_cast<uint32_t>(d);
    if (n > kCodePointCap) n = kCodePointCap;
  }
  *pnValue = n;
  return nPos;
}

void AppendCodePoint(String& out, uint32_t cp) {
  if (cp >= kCodePointCap) {
    out += static_cast<OLECHAR>(0xFFFD);
  } else if (cp >= 0x10000) {
    cp -= 0x10000;
    out += static_cast<OLECHAR>(0xD800 + (cp >> 10));
    out += static_cast<OLECHAR>(0xDC00 + (cp & 0x3FF));
  } else {
    out += static_cast<OLECHAR>(cp);
  }
}

// "&#..." at nPos: hex after "&#x", otherwise the automatic base of the C
// library's number reader ("0x" hex, a leading 0 octal, else decimal). Returns
// the position after the number, or nPos when no number follows.
size_t ReadNumericEntity(StringView s, size_t nPos, uint32_t* pnValue) noexcept {
  size_t i = nPos + 2;
  if (i < s.size() && (s[i] == 'x' || s[i] == 'X')) {
    if (i + 1 >= s.size() || HexDigit(s[i + 1]) < 0) return nPos;
    return ReadNumber(s, i + 1, 16, pnValue);
  }
  if (i >= s.size() || s[i] < '0' || s[i] > '9') return nPos;
  if (s[i] != '0') return ReadNumber(s, i, 10, pnValue);
  if (i + 2 < s.size() && (s[i + 1] == 'x' || s[i + 1] == 'X') && HexDigit(s[i + 2]) >= 0) {
    return ReadNumber(s, i + 2, 16, pnValue);
  }
  return ReadNumber(s, i, 8, pnValue);
}

void AppendHexEntity(String& out, uint32_t n) {
  static const char kHex[] = "0123456789ABCDEF";
  AppendAscii(out, "&#x");
  char buf[8];
  int nLen = 0;
  do {
    buf[nLen++] = kHex[n & 0xF];
    n >>= 4;
  } while (n != 0);
  while (nLen > 0) out += static_cast<OLECHAR>(buf[--nLen]);
  out += ';';
}

}  // namespace

bool IsBlank(StringView s) {
  for (const OLECHAR c : s) {
    if (!IsLayoutSpace(c)) return false;
  }
  return true;
}

bool NeedsDecoding(StringView s) noexcept {
  for (const OLECHAR c : s) {
    if (c == '&' || c == '\r' || c == '\n' || c == '\t') return true;
  }
  return false;
}

String DecodeEntities(StringView in, bool bKeepWhitespace, bool* pbDeliberateBlank) {
  String out;
  out.reserve(in.size());
  bool bDeliberateBlank = false;
  size_t i = 0;
  while (i < in.size()) {
    const OLECHAR c = in[i];
    if (c != '&') {
      const bool bSpace = c == '\r' || c == '\n' || c == '\t';
      out += (bSpace && !bKeepWhitespace) ? OLECHAR(' ') : c;
      ++i;
      continue;
    }
    bool bNamed = false;
    for (const CNamedEntity& entity : kNamedEntities) {
      if (StartsWithAscii(in, i + 1, entity.pszName)) {
        out += entity.chValue;
        bDeliberateBlank = bDeliberateBlank || entity.bDeliberateBlank;
        i += 1 + std::char_traits<char>::length(entity.pszName);
        bNamed = true;
        break;
      }
    }
    if (bNamed) continue;
    if (i + 1 < in.size() && in[i + 1] == '#') {
      uint32_t nValue = 0;
      const size_t nAfter = ReadNumericEntity(in, i, &nValue);
      if (nAfter != i) {
        AppendCodePoint(out, nValue);
        // The character after the number is the ';' of a well-formed entity;
        // whatever it is, it belongs to the entity.
        i = nAfter < in.size() ? nAfter + 1 : nAfter;
        continue;
      }
    }
    ++i;  // an '&' that starts no entity is dropped, the text after it kept
  }
  if (pbDeliberateBlank) *pbDeliberateBlank = bDeliberateBlank;
  return out;
}

void AppendAscii(String& out, const char* psz) {
  for (; *psz; ++psz) out += static_cast<OLECHAR>(*psz);
}

void AppendEncoded(String& out, StringView value, eXMLValueContext eContext, bool bKeepBlank) {
  size_t nLead = 0;
  size_t nTrail = value.size();
  if (eContext == eXVC_Text) {
    while (nLead < value.size() && value[nLead] == ' ') ++nLead;
    while (nTrail > nLead && value[nTrail - 1] == ' ') --nTrail;
  }
  bool bNbspDue = bKeepBlank;
  for (size_t i = 0; i < value.size(); ++i) {
    const OLECHAR c = value[i];
    if (c == ' ') {
      if (bNbspDue) {
        AppendAscii(out, "&nbsp;");
        bNbspDue = false;
      } else if (i < nLead || i >= nTrail) {
        AppendAscii(out, "&#x20;");
      } else {
        out += c;
      }
    } else if (c == '<') {
      AppendAscii(out, "&lt;");
    } else if (c == '>') {
      AppendAscii(out, "&gt;");
    } else if (c == '&') {
      AppendAscii(out, "&amp;");
    } else if (c == '"' && eContext == eXVC_Attribute) {
      AppendAscii(out, "&quot;");
    } else if (static_cast<uint32_t>(c) < 0x20) {
      AppendHexEntity(out, static_cast<uint32_t>(c));
    } else {
      out += c;
    }
  }
}

}  // namespace XMLParse
