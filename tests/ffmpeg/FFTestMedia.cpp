#include "FFTestMedia.h"

#include <cctype>
#include <cstdlib>
#include <filesystem>

namespace vc::fftest {

std::string MediaPath(const std::string& strName) {
  const char* szDir = std::getenv("VC_TEST_MEDIA_DIR");
  return (std::filesystem::path(szDir && *szDir ? szDir : VC_TEST_MEDIA_DIR) / strName).string();
}

bool MediaExists(const std::string& strName) { return std::filesystem::exists(MediaPath(strName)); }

std::string MediaParamName(const ::testing::TestParamInfo<const char*>& param) {
  std::string str = param.param;
  for (char& c : str)
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  return str;
}

}  // namespace vc::fftest
