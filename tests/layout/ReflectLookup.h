// Name lookups over the generated reflection tables, shared by the layout,
// enumeration and type-library tests. Test thread only.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "VCCodecsCoreReflect.h"

namespace vctest {

inline const vc::reflect::RecordInfo* FindRecord(std::string_view svName) {
  for (const auto& rec : vc::reflect::kRecords)
    if (svName == rec.pszName) return &rec;
  return nullptr;
}

inline const vc::reflect::EnumInfo* FindEnum(std::string_view svName) {
  for (const auto& en : vc::reflect::kEnums)
    if (svName == en.pszName) return &en;
  return nullptr;
}

inline const vc::reflect::InterfaceInfo* FindInterface(std::string_view svName) {
  for (const auto& itf : vc::reflect::kInterfaces)
    if (svName == itf.pszName) return &itf;
  return nullptr;
}

// Value of an enumeration member by its full name, searched in every
// enumeration (member names are unique across all of them).
inline std::optional<uint32_t> MemberValue(std::string_view svMember) {
  for (const auto& en : vc::reflect::kEnums)
    for (const auto& m : en.members)
      if (svMember == m.pszName) return m.dwValue;
  return std::nullopt;
}

}  // namespace vctest
