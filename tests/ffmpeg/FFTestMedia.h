// The test media that tests/media/make_media.sh makes before the suite runs.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace vc::fftest {

// Full path of a file in the media folder ("h264_aac.mp4", ...).
std::string MediaPath(const std::string& strName);
// Whether the file exists (the media script ran).
bool MediaExists(const std::string& strName);
// A test name for a media file parameter: "h264_aac.mp4" becomes "h264_aac_mp4".
std::string MediaParamName(const ::testing::TestParamInfo<const char*>& param);

}  // namespace vc::fftest
