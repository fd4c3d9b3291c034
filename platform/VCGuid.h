// GUIDs from text, checked at compile time, and the interface-identifier
// traits that QueryInterface helpers and smart pointers use. Header only; any
// thread.
#pragma once

#include <stdexcept>

#include "VCPlatform.h"

namespace vc {

namespace detail {
consteval uint32_t HexDigit(char c) {
  if (c >= '0' && c <= '9') return static_cast<uint32_t>(c - '0');
  if (c >= 'A' && c <= 'F') return static_cast<uint32_t>(c - 'A' + 10);
  if (c >= 'a' && c <= 'f') return static_cast<uint32_t>(c - 'a' + 10);
  throw std::invalid_argument("GUID text holds a character that is not hexadecimal");
}
consteval uint32_t HexRun(const char* s, int n) {
  uint32_t v = 0;
  for (int i = 0; i < n; ++i) v = (v << 4) | HexDigit(s[i]);
  return v;
}
}  // namespace detail

// "96EB1C14-4CC0-4830-9CC3-F064196B2626" (no braces) to a GUID; a typo fails the build.
consteval GUID MakeGuid(const char (&s)[37]) {
  if (s[8] != '-' || s[13] != '-' || s[18] != '-' || s[23] != '-')
    throw std::invalid_argument("GUID text must be 8-4-4-4-12 hexadecimal digits");
  GUID g{};
  g.Data1 = detail::HexRun(s, 8);
  g.Data2 = static_cast<uint16_t>(detail::HexRun(s + 9, 4));
  g.Data3 = static_cast<uint16_t>(detail::HexRun(s + 14, 4));
  g.Data4[0] = static_cast<uint8_t>(detail::HexRun(s + 19, 2));
  g.Data4[1] = static_cast<uint8_t>(detail::HexRun(s + 21, 2));
  for (int i = 0; i < 6; ++i) g.Data4[2 + i] = static_cast<uint8_t>(detail::HexRun(s + 24 + 2 * i, 2));
  return g;
}

// Interface identifier of an interface type: specialised next to each
// interface declaration by VC_DECLARE_IID.
template <class I>
struct IidTraits;

template <class I>
inline REFIID IidOf() {
  return IidTraits<I>::Get();
}

}  // namespace vc

// Declares IID_<Name> and the trait for an interface declared by this system.
#define VC_DECLARE_IID(Name, text)                   \
  inline constexpr IID IID_##Name = vc::MakeGuid(text); \
  template <>                                         \
  struct vc::IidTraits<Name> {                        \
    static REFIID Get() { return IID_##Name; }        \
  }

// The trait for an interface the platform declares (its IID_ is a variable).
#define VC_PLATFORM_IID(Name)                  \
  template <>                                  \
  struct vc::IidTraits<Name> {                 \
    static REFIID Get() { return IID_##Name; } \
  }

VC_PLATFORM_IID(IUnknown);
VC_PLATFORM_IID(IClassFactory);
VC_PLATFORM_IID(IStream);
VC_PLATFORM_IID(ISequentialStream);
