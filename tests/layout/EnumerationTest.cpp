// Values of the public enumerations where a typo is easy and costly: the two
// pixel-format families, the timecode and frame flag words and their
// combined members, the stereoscopic video formats and the text placement
// quirks. Combined members are checked against their parts by name, so a
// wrong literal in the IDL shows up here.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ReflectLookup.h"
#include "VCCodecsCore.h"

namespace {

using vc::reflect::EnumInfo;

class EnumerationTest : public ::testing::Test {
 protected:
  // Value of a member that must exist; fails the test when it does not.
  uint32_t ValueOf(const std::string& strMember) {
    std::optional<uint32_t> value = vctest::MemberValue(strMember);
    EXPECT_TRUE(value.has_value()) << strMember << " is missing";
    return value.value_or(0xDEADBEEFu);
  }

  const EnumInfo& Enum(const char* pszName) {
    const EnumInfo* pEnum = vctest::FindEnum(pszName);
    if (pEnum == nullptr) {
      ADD_FAILURE() << pszName << " is missing";
      static const EnumInfo kEmpty{"", 4, {}};
      return kEmpty;
    }
    return *pEnum;
  }

  // Splits a member name (after its prefix) into a sequence of atomic member
  // names joined by '_', e.g. "Net_Break_Bidir_Predicted" into Net, Break,
  // Bidir_Predicted. Returns false when no split exists.
  static bool SplitIntoAtoms(std::string_view svRest, const std::vector<std::string>& atoms,
                             std::vector<std::string>* pParts) {
    if (svRest.empty()) return true;
    for (const std::string& atom : atoms) {
      if (!svRest.starts_with(atom)) continue;
      std::string_view svAfter = svRest.substr(atom.size());
      if (!svAfter.empty() && svAfter.front() != '_') continue;
      pParts->push_back(atom);
      if (SplitIntoAtoms(svAfter.empty() ? svAfter : svAfter.substr(1), atoms, pParts)) return true;
      pParts->pop_back();
    }
    return false;
  }

  // Every member of an enumeration that is not itself atomic must be the
  // sum of the atomic members its name lists.
  void ExpectCombinedMembersAreSums(const char* pszEnum, std::string_view svPrefix,
                                    const std::vector<std::string>& atoms, int nExpectedCombined) {
    int nCombined = 0;
    for (const auto& m : Enum(pszEnum).members) {
      std::string_view svName = m.pszName;
      ASSERT_TRUE(svName.starts_with(svPrefix)) << svName;
      std::string_view svRest = svName.substr(svPrefix.size());
      if (std::find(atoms.begin(), atoms.end(), svRest) != atoms.end()) continue;
      std::vector<std::string> parts;
      if (!SplitIntoAtoms(svRest, atoms, &parts)) {
        ADD_FAILURE() << svName << " is neither a known flag nor a combination of known flags";
        continue;
      }
      ++nCombined;
      uint32_t dwSum = 0;
      for (const std::string& part : parts) dwSum += ValueOf(std::string(svPrefix) + part);
      EXPECT_EQ(m.dwValue, dwSum) << svName;
    }
    EXPECT_EQ(nCombined, nExpectedCombined) << pszEnum;
  }
};

// --- pixel formats ----------------------------------------------------------

uint32_t FourCC(std::string_view sv) {
  return static_cast<uint32_t>(static_cast<unsigned char>(sv[0])) |
         static_cast<uint32_t>(static_cast<unsigned char>(sv[1])) << 8 |
         static_cast<uint32_t>(static_cast<unsigned char>(sv[2])) << 16 |
         static_cast<uint32_t>(static_cast<unsigned char>(sv[3])) << 24;
}

TEST_F(EnumerationTest, PixelFormatFamilies_SplitOnAllFourFormatFlagBits) {
  constexpr uint32_t kFlag = 0xF0000000u;
  EXPECT_EQ(static_cast<uint32_t>(ePX_FormatFlag), kFlag);
  for (const auto& m : Enum("eVCCC").members) {
    std::string_view svName = m.pszName;
    if (svName.starts_with("ePX_")) {
      EXPECT_EQ(m.dwValue & kFlag, kFlag) << svName << " must be recognised as composed";
    } else {
      EXPECT_NE(m.dwValue & kFlag, kFlag) << svName << " must stay in the FourCC family";
    }
  }
  // The RGB subtypes have a high top nibble (0xE) but are not composed.
  EXPECT_EQ(static_cast<uint32_t>(eVCCC_RGB24), 0xE436EB7Du);
  EXPECT_NE(static_cast<uint32_t>(eVCCC_RGB24) & kFlag, kFlag);
}

TEST_F(EnumerationTest, FourCCMembers_SpellTheirNameFirstCharacterLowest) {
  // Members whose name is a four-character code; the RGB media subtypes and
  // Default are numbers, not codes.
  int nCodes = 0;
  for (const auto& m : Enum("eVCCC").members) {
    std::string_view svName = m.pszName;
    if (!svName.starts_with("eVCCC_")) continue;
    std::string_view svCode = svName.substr(6);
    if (svCode.size() != 4) continue;  // Default, RGB24, ARGB32, ...
    if (svCode == "RGB8") continue;
    ++nCodes;
    EXPECT_EQ(m.dwValue, FourCC(svCode)) << svName;
  }
  EXPECT_EQ(nCodes, 10);
}

TEST_F(EnumerationTest, ComposedPixelFormats_AreTheirComponents) {
  struct Case {
    uint32_t dwValue;
    uint32_t dwParts;
    const char* pszName;
  };
  const Case cases[] = {
      {ePX_BGRA32_FULL, ePX_Alpha_Full | 0x1u, "BGRA32_FULL"},
      {ePX_RGBA32_PREMULL, ePX_Alpha_Premull | 0x2u, "RGBA32_PREMULL"},
      {ePX_NV12_C601, ePX_NV12 | ePX_BT601, "NV12_C601"},
      {ePX_YUY2_C709, ePX_YUY2 | ePX_BT709, "YUY2_C709"},
      {ePX_UYVY_C709, ePX_UYVY | ePX_BT709, "UYVY_C709"},
      {ePX_YUV10_PLANE, ePX_Plane | ePX_10bit, "YUV10_PLANE"},
      {ePX_YUV8_420_PLANE, ePX_Plane | ePX_420, "YUV8_420_PLANE"},
      {ePX_YUV10_420_PLANE, ePX_Plane | ePX_420 | ePX_10bit, "YUV10_420_PLANE"},
      {ePX_YUV16_422_PLANE, ePX_Plane | ePX_422 | ePX_16bit, "YUV16_422_PLANE"},
      {ePX_1Channel10bit, ePX_10bit | 0x8u, "1Channel10bit"},
      // Published values that do not follow their names; they must not be
      // "corrected" to the depth the name suggests.
      {ePX_RGBA64_FULL, ePX_12bit | ePX_Alpha_Full | 0x2u, "RGBA64_FULL"},
      {ePX_RGBA128_PREMULL, ePX_10bit | ePX_12bit | ePX_Alpha_Premull | 0x2u, "RGBA128_PREMULL"},
      {ePX_1Channel16bit, ePX_12bit | 0x8u, "1Channel16bit"},
      {ePX_1Channel32bit, ePX_16bit | 0x8u, "1Channel32bit"},
  };
  for (const Case& c : cases) EXPECT_EQ(c.dwValue, c.dwParts) << c.pszName;
}

// --- timecode flags -----------------------------------------------------------

TEST_F(EnumerationTest, TimecodeInvalid_IsTopBitOutsideEveryMask) {
  EXPECT_EQ(static_cast<uint32_t>(eKTCF_Invalid), 0x80000000u);
  EXPECT_EQ(static_cast<int32_t>(eKTCF_Invalid), INT32_MIN) << "same bits as the signed 32-bit value hosts store";
  EXPECT_EQ(eKTCF_Invalid & eKTCF_Rate, 0u);
  EXPECT_EQ(eKTCF_Invalid & eKTCF_FieldNumber, 0u);
  for (const auto& m : Enum("eKTimecodeFlags").members)
    if (std::string_view(m.pszName) != "eKTCF_Invalid") {
      EXPECT_EQ(m.dwValue & 0x80000000u, 0u) << m.pszName;
    }
}

TEST_F(EnumerationTest, TimecodeOriginMembers_AreOriginPlusRateOrField) {
  const char* const kBases[] = {"DropFrame",   "Rate_24",         "Rate_25",         "Rate_30_DF",
                                "Rate_30",     "Progressive_Even_Frame", "Progressive_Odd_Frame",
                                "Rate_50",     "Rate_60_DF",      "Rate_60",         "Rate_50_Odd",
                                "Rate_60_DF_Odd", "Rate_60_Odd"};
  int nOriginMembers = 0;
  for (const auto& m : Enum("eKTimecodeFlags").members) {
    std::string_view sv = m.pszName;
    if (sv.starts_with("eKTCF_SrcTC_") || sv.starts_with("eKTCF_UserTC_")) ++nOriginMembers;
  }
  EXPECT_EQ(nOriginMembers, 2 * static_cast<int>(std::size(kBases))) << "no other origin members exist";
  for (const char* pszBase : kBases) {
    const uint32_t dwBase = ValueOf(std::string("eKTCF_") + pszBase);
    EXPECT_EQ(ValueOf(std::string("eKTCF_SrcTC_") + pszBase), eKTCF_SrcTC + dwBase) << pszBase;
    EXPECT_EQ(ValueOf(std::string("eKTCF_UserTC_") + pszBase), eKTCF_UserTC + dwBase) << pszBase;
  }
  EXPECT_EQ(static_cast<uint32_t>(eKTCF_SrcTC_Rate_30_DF), 0x1041u);
  EXPECT_EQ(static_cast<uint32_t>(eKTCF_UserTC_Rate_60_DF_Odd), 0x2241u);
}

TEST_F(EnumerationTest, TimecodeRates_StayInsideRateMask) {
  for (const auto& m : Enum("eKTimecodeFlags").members) {
    std::string_view sv = m.pszName;
    if (!sv.starts_with("eKTCF_Rate_")) continue;
    EXPECT_EQ(m.dwValue & ~static_cast<uint32_t>(eKTCF_Rate | eKTCF_DropFrame), 0u) << sv;
    EXPECT_EQ((m.dwValue & eKTCF_DropFrame) != 0, sv.find("_DF") != std::string_view::npos) << sv;
  }
}

// --- frame flags and clone kinds ----------------------------------------------

TEST_F(EnumerationTest, FrameFlagCombinations_AreSumsOfTheirParts) {
  // Longer names first so that "ReverseTime" is not read as "Reverse".
  const std::vector<std::string> atoms = {
      "Main_Mask", "Type_Mask", "None", "Break", "Last", "Dup", "Pause", "AddedFrame", "SkippedFrame", "Live", "Net",
      "ReverseTime", "Reverse", "Intra", "Predicted", "Bidir_Predicted", "S_GMC_VOP_MPEG4", "Switching_Intra",
      "Switching_Predicted", "BI", "BufferPos_Zero", "BufferPos_Min", "BufferPos_Max", "BufferPos_Overflow"};
  // 14 named combinations plus five per picture type.
  ExpectCombinedMembersAreSums("eKFrameFlags", "eKFF_", atoms, 14 + 5 * 7);
}

TEST_F(EnumerationTest, FrameFlags_EveryPictureTypeHasItsFiveCombinations) {
  for (const char* pszType :
       {"Intra", "Predicted", "Bidir_Predicted", "S_GMC_VOP_MPEG4", "Switching_Intra", "Switching_Predicted", "BI"}) {
    const uint32_t dwType = ValueOf(std::string("eKFF_") + pszType);
    EXPECT_EQ(dwType & ~static_cast<uint32_t>(eKFF_Type_Mask), 0u) << pszType;
    EXPECT_EQ(ValueOf(std::string("eKFF_Break_") + pszType), dwType + eKFF_Break);
    EXPECT_EQ(ValueOf(std::string("eKFF_Reverse_") + pszType), dwType + eKFF_Reverse);
    EXPECT_EQ(ValueOf(std::string("eKFF_Reverse_Break_") + pszType), dwType + eKFF_Reverse + eKFF_Break);
    EXPECT_EQ(ValueOf(std::string("eKFF_Net_") + pszType), dwType + eKFF_Net);
    EXPECT_EQ(ValueOf(std::string("eKFF_Net_Break_") + pszType), dwType + eKFF_Net + eKFF_Break);
  }
  EXPECT_EQ(static_cast<uint32_t>(eKFF_Reverse_Break_Intra), 0x11001u);
  EXPECT_EQ(static_cast<uint32_t>(eKFF_Net_BI), 0x70200u);
}

TEST_F(EnumerationTest, DupAndPause_IncludeTheBreakBit) {
  EXPECT_NE(eKFF_Dup & eKFF_Break, 0);
  EXPECT_NE(eKFF_Pause & eKFF_Break, 0);
  EXPECT_EQ(eKFF_BufferPos_Overflow & ~0x7F000000, 0);
}

TEST_F(EnumerationTest, CloneForceVariants_AreBasePlusForceBit) {
  int nVariants = 0;
  for (const auto& m : Enum("eKFrameClone").members) {
    std::string_view sv = m.pszName;
    for (std::string_view svForce : {std::string_view("_ForceCPU"), std::string_view("_ForceGPU")}) {
      // The force bits themselves are "eKFC_ForceCPU"/"eKFC_ForceGPU": no base.
      if (!sv.ends_with(svForce) || sv.size() == 4 + svForce.size()) continue;
      ++nVariants;
      const std::string strBase(sv.substr(0, sv.size() - svForce.size()));
      const uint32_t dwForce = svForce == "_ForceCPU" ? eKFC_ForceCPU : eKFC_ForceGPU;
      EXPECT_EQ(m.dwValue, ValueOf(strBase) + dwForce) << sv;
    }
  }
  EXPECT_EQ(nVariants, 10);
  EXPECT_EQ(eKFC_Full, eKFC_Video | eKFC_Audio | eKFC_Data | eKFC_Obj);
  EXPECT_EQ(eKFC_Reference, eKFC_VideoRef | eKFC_Audio | eKFC_Data | eKFC_Obj);
}

// --- GPU texture formats --------------------------------------------------------

TEST_F(EnumerationTest, SeparateFieldTextures_AreFieldBitPlusFormat) {
  int nFieldMembers = 0;
  for (const auto& m : Enum("eGPUTextureFormat").members) {
    std::string_view sv = m.pszName;
    if (!sv.starts_with("eGTF_GPU_Fields_")) continue;
    ++nFieldMembers;
    const uint32_t dwFormat = ValueOf("eGTF_GPU_" + std::string(sv.substr(16)));
    EXPECT_EQ(m.dwValue, eGTF_GPU_SeparateFields + dwFormat) << sv;
    EXPECT_EQ(m.dwValue & eGTF_GPU_FormatMask, dwFormat) << sv;
  }
  EXPECT_EQ(nFieldMembers, 6);
}

// --- text placement ---------------------------------------------------------------

TEST_F(EnumerationTest, JustifyEqualsRight_ExceptInTheTopRow) {
  EXPECT_EQ(eVCTF_TopJustify, 3);
  EXPECT_NE(eVCTF_TopJustify, eVCTF_TopRight);
  EXPECT_EQ(eVCTF_CenterJustify, eVCTF_CenterRight);
  EXPECT_EQ(eVCTF_BottomJustify, eVCTF_BottomRight);
}

TEST_F(EnumerationTest, WordBreakPlacements_AreWordBreaksPlusPlacement) {
  int nWordBreak = 0;
  for (const auto& m : Enum("eVCTextFlags").members) {
    std::string_view sv = m.pszName;
    if (!sv.starts_with("eVCTF_WB_")) continue;
    ++nWordBreak;
    EXPECT_EQ(m.dwValue, eVCT_WordBreaks + ValueOf("eVCTF_" + std::string(sv.substr(9)))) << sv;
  }
  EXPECT_EQ(nWordBreak, 12);
}

// --- video formats ------------------------------------------------------------------

TEST_F(EnumerationTest, BaseVideoFormats_AreExactlyZeroTo94) {
  std::map<uint32_t, int> base;
  for (const auto& m : Enum("eKVideoFormat").members)
    if (m.dwValue < 0x200) ++base[m.dwValue];
  EXPECT_EQ(base.size(), 95u);
  for (uint32_t v = 0; v < 95; ++v) EXPECT_EQ(base[v], 1) << "base value " << v;
  EXPECT_EQ(eKVF_Disabled, 94);
}

TEST_F(EnumerationTest, StereoFormats_AreLayoutCodePlusSameSizeAndRateBase) {
  const std::pair<std::string_view, uint32_t> kLayouts[] = {
      {"Full_SbS_", 0x1200}, {"Full_TnB_", 0x1400}, {"SbS_", 0x200}, {"TnB_", 0x400}};
  int nStereo = 0;
  for (const auto& m : Enum("eKVideoFormat").members) {
    std::string_view sv = m.pszName;
    if (!sv.starts_with("eKVF_3D_")) {
      EXPECT_LT(m.dwValue, 0x200u) << sv;
      continue;
    }
    ++nStereo;
    std::string_view svRest = sv.substr(8);
    const auto* pLayout = std::find_if(std::begin(kLayouts), std::end(kLayouts),
                                       [&](const auto& l) { return svRest.starts_with(l.first); });
    ASSERT_NE(pLayout, std::end(kLayouts)) << sv;
    svRest.remove_prefix(pLayout->first.size());  // "720_50p" or "1080_2398p"
    const uint32_t dwBase = ValueOf("eKVF_HD" + std::string(svRest));
    EXPECT_EQ(m.dwValue, pLayout->second + dwBase) << sv;
    EXPECT_GE(m.dwValue, 0x200u) << sv << " collides with a base format";
  }
  EXPECT_EQ(nStereo, 14 + 11 + 11 + 11);
}

TEST_F(EnumerationTest, TopAndBottom_HasNoInterlacedMembers) {
  for (uint32_t v : {1038u, 1039u, 1040u})
    for (const auto& m : Enum("eKVideoFormat").members) EXPECT_NE(m.dwValue, v) << m.pszName;
  EXPECT_EQ(eKVF_3D_TnB_1080_30p, 1037);
  EXPECT_EQ(eKVF_3D_TnB_1080_50p, 1041);
}

}  // namespace
