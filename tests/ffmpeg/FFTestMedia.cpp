#include "FFTestMedia.h"

#include <cstdlib>
#include <filesystem>

namespace vc::fftest {

std::string MediaPath(const std::string& strName) {
  const char* szDir = std::getenv("VC_TEST_MEDIA_DIR");
  return (std::filesystem::path(szDir && *szDir ? szDir : VC_TEST_MEDIA_DIR) / strName).string();
}

bool MediaExists(const std::string& strName) { return std::filesystem::exists(MediaPath(strName)); }

}  // namespace vc::fftest
