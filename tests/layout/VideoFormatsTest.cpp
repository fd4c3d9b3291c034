// The video-format display-name table: one row per base format in
// enumeration order, each row's enumeration name matching the member of that
// value, display names following the naming rule (with the 8K exception),
// and the lookups by value and by either name.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <string_view>

#include "ReflectLookup.h"
#include "VCVideoFormats.h"

namespace {

// The display name the naming rule gives an enumeration name: size group,
// dash, rate truncated to whole frames ("eKVF_HD1080_5994i" -> "HD1080-59i"),
// but every digit kept in the 8K rows. Written independently of the table.
std::string DisplayNameByRule(std::string_view svEnumName) {
  std::string_view sv = svEnumName.substr(5);  // drop "eKVF_"
  const size_t nSplit = sv.rfind('_');
  std::string strGroup(sv.substr(0, nSplit));
  for (char& c : strGroup)
    if (c == '_') c = '-';
  std::string_view svRate = sv.substr(nSplit + 1);
  const char chScan = svRate.back();
  std::string_view svDigits = svRate.substr(0, svRate.size() - 1);
  const bool b8K = strGroup.starts_with("8K");
  // Fractional rates are written with two decimals and no point: 5994 is 59.94.
  if (!b8K && svDigits.size() >= 4) svDigits = svDigits.substr(0, svDigits.size() - 2);
  return strGroup + "-" + std::string(svDigits) + chScan;
}

class VideoFormatsTest : public ::testing::Test {
 protected:
  static bool IsIrregularRow(std::string_view svEnumName) {
    // Rows whose names carry no size-rate pair.
    return svEnumName == "eKVF_Custom" || svEnumName == "eKVF_NTSC" || svEnumName == "eKVF_NTSC_2398" ||
           svEnumName == "eKVF_NTSC_16x9" || svEnumName == "eKVF_PAL" || svEnumName == "eKVF_PAL_16x9" ||
           svEnumName == "eKVF_Disabled";
  }
};

TEST_F(VideoFormatsTest, Table_HasOneRowPerBaseFormatInEnumerationOrder) {
  ASSERT_EQ(vc::kVideoFormatNames.size(), 95u);
  for (size_t i = 0; i < vc::kVideoFormatNames.size(); ++i)
    EXPECT_EQ(static_cast<size_t>(vc::kVideoFormatNames[i].eFormat), i) << vc::kVideoFormatNames[i].pszEnumName;
  EXPECT_STREQ(vc::kVideoFormatNames.back().pszDisplayName, "Disabled");
}

TEST_F(VideoFormatsTest, EnumerationColumn_NamesTheMemberOfThatValue) {
  const auto* pEnum = vctest::FindEnum("eKVideoFormat");
  ASSERT_NE(pEnum, nullptr);
  for (const auto& row : vc::kVideoFormatNames) {
    const char* pszMember = nullptr;
    for (const auto& m : pEnum->members)
      if (m.dwValue == static_cast<uint32_t>(row.eFormat)) pszMember = m.pszName;
    ASSERT_NE(pszMember, nullptr) << row.pszEnumName;
    EXPECT_STREQ(row.pszEnumName, pszMember);
  }
}

TEST_F(VideoFormatsTest, DisplayNames_FollowTheNamingRule) {
  for (const auto& row : vc::kVideoFormatNames) {
    if (IsIrregularRow(row.pszEnumName)) continue;
    EXPECT_EQ(row.pszDisplayName, DisplayNameByRule(row.pszEnumName)) << row.pszEnumName;
  }
}

TEST_F(VideoFormatsTest, IrregularRows_KeepTheirPublishedNames) {
  EXPECT_STREQ(vc::VideoFormatByValue(eKVF_Custom)->pszDisplayName, "Custom");
  EXPECT_STREQ(vc::VideoFormatByValue(eKVF_NTSC_2398)->pszDisplayName, "NTSC-23p");
  EXPECT_STREQ(vc::VideoFormatByValue(eKVF_NTSC_16x9)->pszDisplayName, "NTSC-16x9");
  EXPECT_STREQ(vc::VideoFormatByValue(eKVF_PAL_16x9)->pszDisplayName, "PAL-16x9");
  // Spot checks of the rule's two branches against the published list.
  EXPECT_STREQ(vc::VideoFormatByValue(eKVF_2K_DCI_4795p)->pszDisplayName, "2K-DCI-47p");
  EXPECT_STREQ(vc::VideoFormatByValue(eKVF_HD1080_11988p)->pszDisplayName, "HD1080-119p");
  EXPECT_STREQ(vc::VideoFormatByValue(eKVF_8K_UHD_2398p)->pszDisplayName, "8K-UHD-2398p");
  EXPECT_STREQ(vc::VideoFormatByValue(eKVF_8K_DCI_5994p)->pszDisplayName, "8K-DCI-5994p");
}

TEST_F(VideoFormatsTest, DisplayNames_AreUnique) {
  std::set<std::string> names;
  for (const auto& row : vc::kVideoFormatNames) EXPECT_TRUE(names.insert(row.pszDisplayName).second) << row.pszDisplayName;
}

TEST_F(VideoFormatsTest, LookupByValue_AnswersOnlyBaseFormats) {
  EXPECT_STREQ(vc::VideoFormatByValue(eKVF_PAL)->pszDisplayName, "PAL");
  EXPECT_STREQ(vc::VideoFormatByValue(eKVF_Disabled)->pszDisplayName, "Disabled");
  EXPECT_EQ(vc::VideoFormatByValue(eKVF_3D_SbS_1080_50i), nullptr);
  EXPECT_EQ(vc::VideoFormatByValue(static_cast<eKVideoFormat>(95)), nullptr);
  EXPECT_EQ(vc::VideoFormatByValue(static_cast<eKVideoFormat>(-1)), nullptr);
}

TEST_F(VideoFormatsTest, LookupByName_AcceptsEitherColumnIgnoringCase) {
  ASSERT_NE(vc::VideoFormatByName("HD1080-50i"), nullptr);
  EXPECT_EQ(vc::VideoFormatByName("HD1080-50i")->eFormat, eKVF_HD1080_50i);
  EXPECT_EQ(vc::VideoFormatByName("hd1080-59I")->eFormat, eKVF_HD1080_5994i);
  EXPECT_EQ(vc::VideoFormatByName("eKVF_HD1080_5994i")->eFormat, eKVF_HD1080_5994i);
  EXPECT_EQ(vc::VideoFormatByName("EKVF_PAL")->eFormat, eKVF_PAL);
  EXPECT_EQ(vc::VideoFormatByName("8K-UHD-5994p")->eFormat, eKVF_8K_UHD_5994p);
}

TEST_F(VideoFormatsTest, LookupByName_RejectsNearMisses) {
  EXPECT_EQ(vc::VideoFormatByName(""), nullptr);
  EXPECT_EQ(vc::VideoFormatByName("HD1080-50"), nullptr);
  EXPECT_EQ(vc::VideoFormatByName("HD1080-50i "), nullptr);
  // The 8K rows keep their digits, so the truncated spelling names nothing.
  EXPECT_EQ(vc::VideoFormatByName("8K-UHD-59p"), nullptr);
  EXPECT_EQ(vc::VideoFormatByName("PAL_16x9"), nullptr);
}

}  // namespace
