// Typed reads of property values.
#include "KPropsRead.h"

#include <charconv>
#include <cmath>
#include <string>
#include <system_error>

namespace vc {
namespace {

StringView TrimBlanks(StringView s) {
  auto isBlank = [](OLECHAR c) { return c == W(' ') || c == W('\t') || c == W('\r') || c == W('\n'); };
  while (!s.empty() && isBlank(s.front())) s.remove_prefix(1);
  while (!s.empty() && isBlank(s.back())) s.remove_suffix(1);
  return s;
}

// The number parsers work on narrow text; anything outside ASCII cannot be
// part of a number anyway.
bool ToAscii(StringView s, std::string* pOut) {
  pOut->clear();
  pOut->reserve(s.size());
  for (OLECHAR c : s) {
    if (c == 0 || c > 0x7F) return false;
    pOut->push_back(static_cast<char>(c));
  }
  return true;
}

// std::from_chars takes no leading '+': drop one, but only before a digit or
// a point, so "+-1" and "+" stay invalid.
const char* SkipPlus(const char* pBegin, const char* pEnd) {
  if (pEnd - pBegin >= 2 && *pBegin == '+' && pBegin[1] != '-' && pBegin[1] != '+') return pBegin + 1;
  return pBegin;
}

bool ReadText(IVCProps* pProps, StringView name, String* pValue) {
  if (!pProps) return false;
  CBstr bsName(name);
  if (!bsName.Get()) return false;
  CBstr bsValue;
  if (pProps->PropsGet(bsName, &bsValue) != S_OK) return false;
  *pValue = String(bsValue.View());
  return true;
}

bool ReadText(const XMLParse::CoXMLNode& node, StringView path, String* pValue) {
  return node.GetAttributePath(path, pValue);
}

}  // namespace

bool ParsePropBool(StringView text, bool* pValue) {
  const StringView s = TrimBlanks(text);
  if (StrIEquals(s, W("true")) || StrIEquals(s, W("yes")) || s == W("1")) {
    *pValue = true;
    return true;
  }
  if (StrIEquals(s, W("false")) || StrIEquals(s, W("no")) || s == W("0")) {
    *pValue = false;
    return true;
  }
  return false;
}

namespace {

// A whole decimal number of type TNumber (blanks around it and a leading '+'
// allowed, nothing else), through from_chars so the locale plays no part.
template <class TNumber, class... TFormat>
bool ParseNumber(StringView text, TNumber* pValue, TFormat... format) {
  std::string ascii;
  if (!ToAscii(TrimBlanks(text), &ascii) || ascii.empty()) return false;
  const char* pEnd = ascii.data() + ascii.size();
  const char* pBegin = SkipPlus(ascii.data(), pEnd);
  TNumber value{};
  const auto [pStop, ec] = std::from_chars(pBegin, pEnd, value, format...);
  if (ec != std::errc() || pStop != pEnd) return false;
  *pValue = value;
  return true;
}

}  // namespace

bool ParsePropInt(StringView text, int64_t* pValue) { return ParseNumber(text, pValue, 10); }

bool ParsePropDouble(StringView text, double* pValue) {
  double dblValue = 0;
  if (!ParseNumber(text, &dblValue, std::chars_format::general) || !std::isfinite(dblValue)) return false;
  *pValue = dblValue;
  return true;
}

bool ReadPropBool(const XMLParse::CoXMLNode& node, StringView path, bool bDefault) {
  String strValue;
  bool bValue = bDefault;
  return ReadText(node, path, &strValue) && ParsePropBool(strValue, &bValue) ? bValue : bDefault;
}
int64_t ReadPropInt(const XMLParse::CoXMLNode& node, StringView path, int64_t llDefault) {
  String strValue;
  int64_t llValue = llDefault;
  return ReadText(node, path, &strValue) && ParsePropInt(strValue, &llValue) ? llValue : llDefault;
}
double ReadPropDouble(const XMLParse::CoXMLNode& node, StringView path, double dblDefault) {
  String strValue;
  double dblValue = dblDefault;
  return ReadText(node, path, &strValue) && ParsePropDouble(strValue, &dblValue) ? dblValue : dblDefault;
}
String ReadPropText(const XMLParse::CoXMLNode& node, StringView path, StringView strDefault) {
  String strValue;
  return ReadText(node, path, &strValue) ? strValue : String(strDefault);
}

bool ReadPropBool(IVCProps* pProps, StringView name, bool bDefault) {
  String strValue;
  bool bValue = bDefault;
  return ReadText(pProps, name, &strValue) && ParsePropBool(strValue, &bValue) ? bValue : bDefault;
}
int64_t ReadPropInt(IVCProps* pProps, StringView name, int64_t llDefault) {
  String strValue;
  int64_t llValue = llDefault;
  return ReadText(pProps, name, &strValue) && ParsePropInt(strValue, &llValue) ? llValue : llDefault;
}
double ReadPropDouble(IVCProps* pProps, StringView name, double dblDefault) {
  String strValue;
  double dblValue = dblDefault;
  return ReadText(pProps, name, &strValue) && ParsePropDouble(strValue, &dblValue) ? dblValue : dblDefault;
}
String ReadPropText(IVCProps* pProps, StringView name, StringView strDefault) {
  String strValue;
  return ReadText(pProps, name, &strValue) ? strValue : String(strDefault);
}

}  // namespace vc
