#include "VCFormat.h"

#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "VCPlatform.h"
#include "VCStrings.h"

namespace vc {
namespace {

// Widths and precisions beyond this are clamped: a corrupt format must not
// make a log call allocate gigabytes.
constexpr int kMaxField = 1 << 16;

enum class ESize { Default, Char, Short, Bits32, Bits64, Native, LongDouble, Wide };

struct CSpec {
  bool bLeft = false;
  bool bPlus = false;
  bool bSpace = false;
  bool bAlt = false;
  bool bZero = false;
  int nWidth = 0;
  int nPrecision = -1;  // -1: not given
  ESize eSize = ESize::Default;
  char cConv = 0;
};

bool IsHighSurrogate(uint32_t u) { return u >= 0xD800 && u <= 0xDBFF; }
bool IsLowSurrogate(uint32_t u) { return u >= 0xDC00 && u <= 0xDFFF; }


constexpr uint32_t kReplacement = 0xFFFD;

// Converts at most nMaxUnits code units (or up to the terminator when
// negative). A pair cut in two by the limit is dropped rather than half
// printed; any other lone surrogate becomes U+FFFD. Returns the number of
// characters written, which is what the field width counts.
int AppendUtf16(std::string& out, const OLECHAR* psz, int nMaxUnits) {
  int nChars = 0;
  for (int i = 0; (nMaxUnits < 0 || i < nMaxUnits) && psz[i] != 0; ++i) {
    uint32_t u = static_cast<uint16_t>(psz[i]);
    if (IsHighSurrogate(u)) {
      const bool bRoom = nMaxUnits < 0 || i + 1 < nMaxUnits;
      if (!bRoom) break;
      const uint32_t u2 = static_cast<uint16_t>(psz[i + 1]);
      if (IsLowSurrogate(u2)) {
        u = 0x10000 + ((u - 0xD800) << 10) + (u2 - 0xDC00);
        ++i;
      } else {
        u = kReplacement;
      }
    } else if (IsLowSurrogate(u)) {
      u = kReplacement;
    }
    AppendUtf8(out, u);
    ++nChars;
  }
  return nChars;
}

void AppendPadding(std::string& out, int n, char c) {
  if (n > 0) out.append(static_cast<size_t>(n), c);
}

// Places an already converted field of nCount characters (appended to `out`
// from offset nStart) inside its width, padding with spaces.
void Justify(std::string& out, size_t nStart, int nCount, const CSpec& field) {
  const int nPad = field.nWidth - nCount;
  if (nPad <= 0) return;
  if (field.bLeft)
    AppendPadding(out, nPad, ' ');
  else
    out.insert(nStart, static_cast<size_t>(nPad), ' ');
}

// Sign or base prefix, then zeros, then digits, within the width.
void PutNumber(std::string& out, const CSpec& field, std::string_view prefix, std::string_view digits,
               bool bZeroPadAllowed) {
  const int nLen = static_cast<int>(prefix.size() + digits.size());
  const int nPad = field.nWidth > nLen ? field.nWidth - nLen : 0;
  if (field.bLeft) {
    out += prefix;
    out += digits;
    AppendPadding(out, nPad, ' ');
  } else if (field.bZero && bZeroPadAllowed) {
    out += prefix;
    AppendPadding(out, nPad, '0');
    out += digits;
  } else {
    AppendPadding(out, nPad, ' ');
    out += prefix;
    out += digits;
  }
}

void PutInteger(std::string& out, const CSpec& field, uint64_t uMagnitude, bool bNegative) {
  const bool bSigned = field.cConv == 'd' || field.cConv == 'i';
  const unsigned nBase = (field.cConv == 'x' || field.cConv == 'X') ? 16 : field.cConv == 'o' ? 8 : 10;
  const char* pszDigits = field.cConv == 'X' ? "0123456789ABCDEF" : "0123456789abcdef";

  char buf[64];
  char* pEnd = buf + sizeof(buf);
  char* p = pEnd;
  for (uint64_t v = uMagnitude; v != 0; v /= nBase) *--p = pszDigits[v % nBase];

  std::string digits;
  const int nMinDigits = field.nPrecision < 0 ? 1 : field.nPrecision;
  const int nHave = static_cast<int>(pEnd - p);
  if (nHave < nMinDigits) digits.assign(static_cast<size_t>(nMinDigits - nHave), '0');
  digits.append(p, pEnd);
  if (nBase == 8 && field.bAlt && (digits.empty() || digits[0] != '0')) digits.insert(digits.begin(), '0');

  std::string_view prefix;
  if (bSigned) {
    if (bNegative)
      prefix = "-";
    else if (field.bPlus)
      prefix = "+";
    else if (field.bSpace)
      prefix = " ";
  } else if (nBase == 16 && field.bAlt && uMagnitude != 0) {
    prefix = field.cConv == 'X' ? "0X" : "0x";
  }
  // An explicit precision turns the 0 flag off, as in C.
  PutNumber(out, field, prefix, digits, field.nPrecision < 0);
}

template <typename T>
std::string ToChars(T value, std::chars_format fmt, int nPrecision) {
  std::string buf(128, '\0');
  for (;;) {
    const auto res = nPrecision < 0 ? std::to_chars(buf.data(), buf.data() + buf.size(), value, fmt)
                                    : std::to_chars(buf.data(), buf.data() + buf.size(), value, fmt, nPrecision);
    if (res.ec == std::errc()) {
      buf.resize(static_cast<size_t>(res.ptr - buf.data()));
      return buf;
    }
    buf.resize(buf.size() * 4);
  }
}

// Ensures a decimal point in a finite body, before any exponent ("#" flag).
void ForcePoint(std::string& body, char cExp) {
  if (body.find('.') != std::string::npos) return;
  const size_t nExp = body.find(cExp);
  body.insert(nExp == std::string::npos ? body.size() : nExp, 1, '.');
}

// %g: the style of %e or %f chosen from the decimal exponent, trailing zeros
// dropped unless "#".
template <typename T>
std::string GeneralBody(T value, int nPrecision, bool bAlt) {
  const int nP = nPrecision < 0 ? 6 : nPrecision == 0 ? 1 : nPrecision;
  std::string sci = ToChars(value, std::chars_format::scientific, nP - 1);
  const size_t nE = sci.find('e');
  const int nX = std::atoi(sci.c_str() + nE + 1);
  std::string body = (nP > nX && nX >= -4) ? ToChars(value, std::chars_format::fixed, nP - 1 - nX) : sci;
  if (bAlt) {
    ForcePoint(body, 'e');
    return body;
  }
  const size_t nPoint = body.find('.');
  if (nPoint == std::string::npos) return body;
  size_t nExp = body.find('e');
  if (nExp == std::string::npos) nExp = body.size();
  size_t nCut = nExp;
  while (nCut > nPoint + 1 && body[nCut - 1] == '0') --nCut;
  if (nCut == nPoint + 1) nCut = nPoint;
  body.erase(nCut, nExp - nCut);
  return body;
}

// Floating point is converted here rather than by the C library so that the
// text does not depend on the process locale's decimal separator or on which
// C runtime MinGW links.
template <typename T>
void PutFloat(std::string& out, const CSpec& field, T value) {
  const bool bNegative = std::signbit(value);
  const T magnitude = std::fabs(value);
  const bool bFinite = std::isfinite(value);
  const char cLower = static_cast<char>(field.cConv | 0x20);

  std::string body;
  if (!bFinite) {
    body = std::isnan(value) ? "nan" : "inf";
  } else if (cLower == 'f') {
    body = ToChars(magnitude, std::chars_format::fixed, field.nPrecision < 0 ? 6 : field.nPrecision);
    if (field.bAlt) ForcePoint(body, 'e');
  } else if (cLower == 'e') {
    body = ToChars(magnitude, std::chars_format::scientific, field.nPrecision < 0 ? 6 : field.nPrecision);
    if (field.bAlt) ForcePoint(body, 'e');
  } else if (cLower == 'g') {
    body = GeneralBody(magnitude, field.nPrecision, field.bAlt);
  } else {  // 'a'
    body = "0x" + ToChars(magnitude, std::chars_format::hex, field.nPrecision);
    if (field.bAlt) ForcePoint(body, 'p');
  }
  if (field.cConv != cLower)
    for (char& c : body) c = (c >= 'a' && c <= 'z') ? static_cast<char>(c - 0x20) : c;

  std::string_view sign;
  if (bNegative)
    sign = "-";
  else if (field.bPlus)
    sign = "+";
  else if (field.bSpace)
    sign = " ";
  // The hexadecimal prefix stays in front of any zero padding.
  if (cLower == 'a') {
    std::string prefix(sign);
    prefix += body.substr(0, 2);
    PutNumber(out, field, prefix, std::string_view(body).substr(2), true);
  } else {
    PutNumber(out, field, sign, body, bFinite);
  }
}

class CFormatter {
 public:
  CFormatter(std::string& out, va_list* pArgs) : m_out(out), m_pArgs(pArgs) {}

  void Run(const char* pszFormat) {
    const char* p = pszFormat;
    while (*p) {
      if (*p != '%') {
        const char* pNext = std::strchr(p, '%');
        const size_t n = pNext ? static_cast<size_t>(pNext - p) : std::strlen(p);
        m_out.append(p, n);
        p += n;
        continue;
      }
      p = _Conversion(p);
    }
  }

 private:
  // Handles one conversion starting at its '%'; returns where the text goes on.
  const char* _Conversion(const char* pStart) {
    const char* p = pStart + 1;
    if (*p == '%') {
      m_out += '%';
      return p + 1;
    }
    CSpec field;
    p = _ParseFlags(p, field);
    p = _ParseWidth(p, field);
    p = _ParsePrecision(p, field);
    p = _ParseSize(p, field);
    field.cConv = *p;
    if (field.cConv == 0) {
      // A format that ends inside a conversion keeps its tail as written.
      m_out.append(pStart, p);
      return p;
    }
    if (!_Convert(field)) m_out.append(pStart, p + 1);
    return p + 1;
  }

  static const char* _ParseFlags(const char* p, CSpec& field) {
    for (;; ++p) {
      switch (*p) {
        case '-': field.bLeft = true; break;
        case '+': field.bPlus = true; break;
        case ' ': field.bSpace = true; break;
        case '#': field.bAlt = true; break;
        case '0': field.bZero = true; break;
        default: return p;
      }
    }
  }

  static const char* _ParseNumber(const char* p, int& nValue) {
    long long n = 0;
    while (*p >= '0' && *p <= '9') {
      n = n * 10 + (*p - '0');
      if (n > kMaxField) n = kMaxField;
      ++p;
    }
    nValue = static_cast<int>(n);
    return p;
  }

  const char* _ParseWidth(const char* p, CSpec& field) {
    if (*p == '*') {
      int n = va_arg(*m_pArgs, int);
      if (n < 0) {
        field.bLeft = true;
        n = n == INT32_MIN ? kMaxField : -n;
      }
      field.nWidth = n > kMaxField ? kMaxField : n;
      return p + 1;
    }
    return _ParseNumber(p, field.nWidth);
  }

  const char* _ParsePrecision(const char* p, CSpec& field) {
    if (*p != '.') return p;
    ++p;
    if (*p == '*') {
      const int n = va_arg(*m_pArgs, int);
      field.nPrecision = n < 0 ? -1 : (n > kMaxField ? kMaxField : n);
      return p + 1;
    }
    return _ParseNumber(p, field.nPrecision);
  }

  static const char* _ParseSize(const char* p, CSpec& field) {
    switch (*p) {
      case 'h':
        if (p[1] == 'h') {
          field.eSize = ESize::Char;
          return p + 2;
        }
        field.eSize = ESize::Short;
        return p + 1;
      case 'l':
        if (p[1] == 'l') {
          field.eSize = ESize::Bits64;
          return p + 2;
        }
        field.eSize = ESize::Wide;  // also "32-bit" for integers, as LONG is
        return p + 1;
      case 'I':
        if (p[1] == '6' && p[2] == '4') {
          field.eSize = ESize::Bits64;
          return p + 3;
        }
        if (p[1] == '3' && p[2] == '2') {
          field.eSize = ESize::Bits32;
          return p + 3;
        }
        field.eSize = ESize::Native;
        return p + 1;
      case 'q': field.eSize = ESize::Bits64; return p + 1;
      case 'z':
      case 't':
      case 'j': field.eSize = ESize::Native; return p + 1;
      case 'L': field.eSize = ESize::LongDouble; return p + 1;
      case 'w': field.eSize = ESize::Wide; return p + 1;
      default: return p;
    }
  }

  // Returns false for a conversion it does not know.
  bool _Convert(CSpec& field) {
    switch (field.cConv) {
      case 'd':
      case 'i': _Signed(field); return true;
      case 'u':
      case 'x':
      case 'X':
      case 'o': _Unsigned(field); return true;
      case 'c':
      case 'C': _Char(field); return true;
      case 's':
      case 'S': _String(field); return true;
      case 'p': _Pointer(field); return true;
      case 'f':
      case 'F':
      case 'e':
      case 'E':
      case 'g':
      case 'G':
      case 'a':
      case 'A': _Float(field); return true;
      case 'n': (void)va_arg(*m_pArgs, void*); return true;
      default: return false;
    }
  }

  void _Signed(const CSpec& field) {
    int64_t v;
    switch (field.eSize) {
      case ESize::Char: v = static_cast<signed char>(va_arg(*m_pArgs, int)); break;
      case ESize::Short: v = static_cast<short>(va_arg(*m_pArgs, int)); break;
      case ESize::Bits64:
      case ESize::LongDouble: v = va_arg(*m_pArgs, long long); break;
      case ESize::Native: v = va_arg(*m_pArgs, ptrdiff_t); break;
      default: v = va_arg(*m_pArgs, int); break;
    }
    // Magnitude through unsigned arithmetic so that INT64_MIN needs no negation.
    const uint64_t uMagnitude = v < 0 ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
    PutInteger(m_out, field, uMagnitude, v < 0);
  }

  void _Unsigned(const CSpec& field) {
    uint64_t v;
    switch (field.eSize) {
      case ESize::Char: v = static_cast<unsigned char>(va_arg(*m_pArgs, unsigned int)); break;
      case ESize::Short: v = static_cast<unsigned short>(va_arg(*m_pArgs, unsigned int)); break;
      case ESize::Bits64:
      case ESize::LongDouble: v = va_arg(*m_pArgs, unsigned long long); break;
      case ESize::Native: v = va_arg(*m_pArgs, size_t); break;
      default: v = va_arg(*m_pArgs, unsigned int); break;
    }
    PutInteger(m_out, field, v, false);
  }

  static bool _IsWide(const CSpec& field) {
    if (field.eSize == ESize::Wide) return true;
    if (field.eSize == ESize::Short) return false;
    return field.cConv == 'S' || field.cConv == 'C';
  }

  void _Char(const CSpec& field) {
    const int c = va_arg(*m_pArgs, int);
    const size_t nStart = m_out.size();
    if (_IsWide(field)) {
      const uint32_t u = static_cast<uint16_t>(c);
      AppendUtf8(m_out, IsHighSurrogate(u) || IsLowSurrogate(u) ? kReplacement : u);
    } else {
      m_out += static_cast<char>(c);
    }
    Justify(m_out, nStart, 1, field);
  }

  void _String(const CSpec& field) {
    const size_t nStart = m_out.size();
    int nCount = 0;
    if (_IsWide(field)) {
      const auto* psz = va_arg(*m_pArgs, const OLECHAR*);
      if (psz) {
        nCount = AppendUtf16(m_out, psz, field.nPrecision);
      } else {
        m_out += "(null)";
        nCount = 6;
      }
    } else {
      const char* psz = va_arg(*m_pArgs, const char*);
      if (!psz) psz = "(null)";
      size_t n = 0;
      // Never reads past the precision: the text need not be terminated.
      while ((field.nPrecision < 0 || n < static_cast<size_t>(field.nPrecision)) && psz[n] != 0) ++n;
      m_out.append(psz, n);
      nCount = static_cast<int>(n);
    }
    Justify(m_out, nStart, nCount, field);
  }

  void _Pointer(const CSpec& field) {
    const auto u = reinterpret_cast<uintptr_t>(va_arg(*m_pArgs, void*));
    const size_t nStart = m_out.size();
    static const char kHex[] = "0123456789ABCDEF";
    for (int nShift = static_cast<int>(sizeof(uintptr_t) * 8) - 4; nShift >= 0; nShift -= 4)
      m_out += kHex[(u >> nShift) & 0xF];
    Justify(m_out, nStart, static_cast<int>(sizeof(uintptr_t) * 2), field);
  }

  void _Float(const CSpec& field) {
    if (field.eSize == ESize::LongDouble)
      PutFloat(m_out, field, va_arg(*m_pArgs, long double));
    else
      PutFloat(m_out, field, va_arg(*m_pArgs, double));
  }

  std::string& m_out;
  va_list* m_pArgs;
};

}  // namespace

void AppendFormatV(std::string& strOut, const char* pszFormat, va_list args) {
  if (!pszFormat) return;
  va_list ap;
  va_copy(ap, args);
  CFormatter(strOut, &ap).Run(pszFormat);
  va_end(ap);
}

void AppendFormat(std::string& strOut, const char* pszFormat, ...) {
  va_list ap;
  va_start(ap, pszFormat);
  AppendFormatV(strOut, pszFormat, ap);
  va_end(ap);
}

std::string FormatV(const char* pszFormat, va_list args) {
  std::string out;
  AppendFormatV(out, pszFormat, args);
  return out;
}

std::string Format(const char* pszFormat, ...) {
  va_list ap;
  va_start(ap, pszFormat);
  std::string out = FormatV(pszFormat, ap);
  va_end(ap);
  return out;
}

}  // namespace vc
