// Display names of the base video formats, for property values that name a
// format in text ("HD1080-50i") and for logs. The table is in enumeration
// order, one row per base format 0..94; each row pairs the short display
// name with the enumeration member spelled out ("eKVF_HD1080_50i"), and both
// spellings are accepted when a name is looked up. Stereoscopic formats have
// no display name of their own. Constant data; any thread.
//
// Display names are size group, dash, rate truncated to whole frames
// ("HD1080-59i" for 59.94), except the 8K rows, which keep every digit of the
// rate ("8K-UHD-5994p"): that asymmetry is part of the published vocabulary.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "VCStrings.h"

#include "VCCodecsCoreTypes.h"

namespace vc {

struct VideoFormatName {
  eKVideoFormat eFormat;
  const char* pszDisplayName;
  const char* pszEnumName;
};

inline constexpr std::array<VideoFormatName, 95> kVideoFormatNames = {{
    {eKVF_Custom, "Custom", "eKVF_Custom"},
    {eKVF_NTSC, "NTSC", "eKVF_NTSC"},
    {eKVF_NTSC_2398, "NTSC-23p", "eKVF_NTSC_2398"},
    {eKVF_NTSC_16x9, "NTSC-16x9", "eKVF_NTSC_16x9"},
    {eKVF_PAL, "PAL", "eKVF_PAL"},
    {eKVF_PAL_16x9, "PAL-16x9", "eKVF_PAL_16x9"},
    {eKVF_HD720_50p, "HD720-50p", "eKVF_HD720_50p"},
    {eKVF_HD720_5994p, "HD720-59p", "eKVF_HD720_5994p"},
    {eKVF_HD720_60p, "HD720-60p", "eKVF_HD720_60p"},
    {eKVF_HD1080_2398p, "HD1080-23p", "eKVF_HD1080_2398p"},
    {eKVF_HD1080_24p, "HD1080-24p", "eKVF_HD1080_24p"},
    {eKVF_HD1080_25p, "HD1080-25p", "eKVF_HD1080_25p"},
    {eKVF_HD1080_2997p, "HD1080-29p", "eKVF_HD1080_2997p"},
    {eKVF_HD1080_30p, "HD1080-30p", "eKVF_HD1080_30p"},
    {eKVF_HD1080_50i, "HD1080-50i", "eKVF_HD1080_50i"},
    {eKVF_HD1080_5994i, "HD1080-59i", "eKVF_HD1080_5994i"},
    {eKVF_HD1080_60i, "HD1080-60i", "eKVF_HD1080_60i"},
    {eKVF_HD1080_50p, "HD1080-50p", "eKVF_HD1080_50p"},
    {eKVF_HD1080_5994p, "HD1080-59p", "eKVF_HD1080_5994p"},
    {eKVF_HD1080_60p, "HD1080-60p", "eKVF_HD1080_60p"},
    {eKVF_HD1080_9590p, "HD1080-95p", "eKVF_HD1080_9590p"},
    {eKVF_HD1080_96p, "HD1080-96p", "eKVF_HD1080_96p"},
    {eKVF_HD1080_100p, "HD1080-100p", "eKVF_HD1080_100p"},
    {eKVF_HD1080_11988p, "HD1080-119p", "eKVF_HD1080_11988p"},
    {eKVF_HD1080_120p, "HD1080-120p", "eKVF_HD1080_120p"},
    {eKVF_2K_DCI_2398p, "2K-DCI-23p", "eKVF_2K_DCI_2398p"},
    {eKVF_2K_DCI_24p, "2K-DCI-24p", "eKVF_2K_DCI_24p"},
    {eKVF_2K_DCI_25p, "2K-DCI-25p", "eKVF_2K_DCI_25p"},
    {eKVF_2K_DCI_2997p, "2K-DCI-29p", "eKVF_2K_DCI_2997p"},
    {eKVF_2K_DCI_30p, "2K-DCI-30p", "eKVF_2K_DCI_30p"},
    {eKVF_2K_DCI_4795p, "2K-DCI-47p", "eKVF_2K_DCI_4795p"},
    {eKVF_2K_DCI_48p, "2K-DCI-48p", "eKVF_2K_DCI_48p"},
    {eKVF_2K_DCI_50p, "2K-DCI-50p", "eKVF_2K_DCI_50p"},
    {eKVF_2K_DCI_5994p, "2K-DCI-59p", "eKVF_2K_DCI_5994p"},
    {eKVF_2K_DCI_60p, "2K-DCI-60p", "eKVF_2K_DCI_60p"},
    {eKVF_2K_DCI_9590p, "2K-DCI-95p", "eKVF_2K_DCI_9590p"},
    {eKVF_2K_DCI_96p, "2K-DCI-96p", "eKVF_2K_DCI_96p"},
    {eKVF_2K_DCI_100p, "2K-DCI-100p", "eKVF_2K_DCI_100p"},
    {eKVF_2K_DCI_11988p, "2K-DCI-119p", "eKVF_2K_DCI_11988p"},
    {eKVF_2K_DCI_120p, "2K-DCI-120p", "eKVF_2K_DCI_120p"},
    {eKVF_2K_2398p, "2K-23p", "eKVF_2K_2398p"},
    {eKVF_2K_24p, "2K-24p", "eKVF_2K_24p"},
    {eKVF_2K_25p, "2K-25p", "eKVF_2K_25p"},
    {eKVF_4K_UHD_50i, "4K-UHD-50i", "eKVF_4K_UHD_50i"},
    {eKVF_4K_UHD_5994i, "4K-UHD-59i", "eKVF_4K_UHD_5994i"},
    {eKVF_4K_UHD_60i, "4K-UHD-60i", "eKVF_4K_UHD_60i"},
    {eKVF_4K_UHD_2398p, "4K-UHD-23p", "eKVF_4K_UHD_2398p"},
    {eKVF_4K_UHD_24p, "4K-UHD-24p", "eKVF_4K_UHD_24p"},
    {eKVF_4K_UHD_25p, "4K-UHD-25p", "eKVF_4K_UHD_25p"},
    {eKVF_4K_UHD_2997p, "4K-UHD-29p", "eKVF_4K_UHD_2997p"},
    {eKVF_4K_UHD_30p, "4K-UHD-30p", "eKVF_4K_UHD_30p"},
    {eKVF_4K_DCI_2398p, "4K-DCI-23p", "eKVF_4K_DCI_2398p"},
    {eKVF_4K_DCI_24p, "4K-DCI-24p", "eKVF_4K_DCI_24p"},
    {eKVF_4K_DCI_25p, "4K-DCI-25p", "eKVF_4K_DCI_25p"},
    {eKVF_4K_DCI_2997p, "4K-DCI-29p", "eKVF_4K_DCI_2997p"},
    {eKVF_4K_DCI_30p, "4K-DCI-30p", "eKVF_4K_DCI_30p"},
    {eKVF_4K_DCI_4795p, "4K-DCI-47p", "eKVF_4K_DCI_4795p"},
    {eKVF_4K_DCI_48p, "4K-DCI-48p", "eKVF_4K_DCI_48p"},
    {eKVF_4K_UHD_50p, "4K-UHD-50p", "eKVF_4K_UHD_50p"},
    {eKVF_4K_UHD_5994p, "4K-UHD-59p", "eKVF_4K_UHD_5994p"},
    {eKVF_4K_UHD_60p, "4K-UHD-60p", "eKVF_4K_UHD_60p"},
    {eKVF_4K_UHD_9590p, "4K-UHD-95p", "eKVF_4K_UHD_9590p"},
    {eKVF_4K_UHD_96p, "4K-UHD-96p", "eKVF_4K_UHD_96p"},
    {eKVF_4K_UHD_100p, "4K-UHD-100p", "eKVF_4K_UHD_100p"},
    {eKVF_4K_UHD_11988p, "4K-UHD-119p", "eKVF_4K_UHD_11988p"},
    {eKVF_4K_UHD_120p, "4K-UHD-120p", "eKVF_4K_UHD_120p"},
    {eKVF_4K_DCI_50p, "4K-DCI-50p", "eKVF_4K_DCI_50p"},
    {eKVF_4K_DCI_5994p, "4K-DCI-59p", "eKVF_4K_DCI_5994p"},
    {eKVF_4K_DCI_60p, "4K-DCI-60p", "eKVF_4K_DCI_60p"},
    {eKVF_4K_DCI_9590p, "4K-DCI-95p", "eKVF_4K_DCI_9590p"},
    {eKVF_4K_DCI_96p, "4K-DCI-96p", "eKVF_4K_DCI_96p"},
    {eKVF_4K_DCI_100p, "4K-DCI-100p", "eKVF_4K_DCI_100p"},
    {eKVF_4K_DCI_11988p, "4K-DCI-119p", "eKVF_4K_DCI_11988p"},
    {eKVF_4K_DCI_120p, "4K-DCI-120p", "eKVF_4K_DCI_120p"},
    {eKVF_8K_UHD_2398p, "8K-UHD-2398p", "eKVF_8K_UHD_2398p"},
    {eKVF_8K_UHD_24p, "8K-UHD-24p", "eKVF_8K_UHD_24p"},
    {eKVF_8K_UHD_25p, "8K-UHD-25p", "eKVF_8K_UHD_25p"},
    {eKVF_8K_UHD_2997p, "8K-UHD-2997p", "eKVF_8K_UHD_2997p"},
    {eKVF_8K_UHD_30p, "8K-UHD-30p", "eKVF_8K_UHD_30p"},
    {eKVF_8K_UHD_4795p, "8K-UHD-4795p", "eKVF_8K_UHD_4795p"},
    {eKVF_8K_UHD_48p, "8K-UHD-48p", "eKVF_8K_UHD_48p"},
    {eKVF_8K_UHD_50p, "8K-UHD-50p", "eKVF_8K_UHD_50p"},
    {eKVF_8K_UHD_5994p, "8K-UHD-5994p", "eKVF_8K_UHD_5994p"},
    {eKVF_8K_UHD_60p, "8K-UHD-60p", "eKVF_8K_UHD_60p"},
    {eKVF_8K_DCI_2398p, "8K-DCI-2398p", "eKVF_8K_DCI_2398p"},
    {eKVF_8K_DCI_24p, "8K-DCI-24p", "eKVF_8K_DCI_24p"},
    {eKVF_8K_DCI_25p, "8K-DCI-25p", "eKVF_8K_DCI_25p"},
    {eKVF_8K_DCI_2997p, "8K-DCI-2997p", "eKVF_8K_DCI_2997p"},
    {eKVF_8K_DCI_30p, "8K-DCI-30p", "eKVF_8K_DCI_30p"},
    {eKVF_8K_DCI_4795p, "8K-DCI-4795p", "eKVF_8K_DCI_4795p"},
    {eKVF_8K_DCI_48p, "8K-DCI-48p", "eKVF_8K_DCI_48p"},
    {eKVF_8K_DCI_50p, "8K-DCI-50p", "eKVF_8K_DCI_50p"},
    {eKVF_8K_DCI_5994p, "8K-DCI-5994p", "eKVF_8K_DCI_5994p"},
    {eKVF_8K_DCI_60p, "8K-DCI-60p", "eKVF_8K_DCI_60p"},
    {eKVF_Disabled, "Disabled", "eKVF_Disabled"},
}};


// The row of a base format; nullptr for stereoscopic and unknown values.
constexpr const VideoFormatName* VideoFormatByValue(eKVideoFormat eFormat) {
  for (const VideoFormatName& row : kVideoFormatNames)
    if (row.eFormat == eFormat) return &row;
  return nullptr;
}

// The row whose display name or enumeration name equals svName, ignoring
// ASCII case ("hd1080-50i", "eKVF_HD1080_50i"); nullptr when none does.
constexpr const VideoFormatName* VideoFormatByName(std::string_view svName) {
  for (const VideoFormatName& row : kVideoFormatNames)
    if (EqualsIgnoreAsciiCase(svName, row.pszDisplayName) ||
        EqualsIgnoreAsciiCase(svName, row.pszEnumName))
      return &row;
  return nullptr;
}

}  // namespace vc
