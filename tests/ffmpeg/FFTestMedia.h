// The test media that tests/media/make_media.sh makes before the suite runs.
#pragma once

#include <string>

namespace vc::fftest {

// Full path of a file in the media folder ("h264_aac.mp4", ...).
std::string MediaPath(const std::string& strName);
// Whether the file exists (the media script ran).
bool MediaExists(const std::string& strName);

}  // namespace vc::fftest
