#include "TranscodeOptions.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>

namespace vctool {

namespace {

constexpr const char* kCmd = "vccodecs transcode";

std::string Lower(std::string str) {
  std::transform(str.begin(), str.end(), str.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return str;
}

bool ParseSize(const std::string& strText, int* pnWidth, int* pnHeight) {
  const size_t nX = strText.find_first_of("xX");
  if (nX == std::string::npos) return false;
  char* pEnd = nullptr;
  const long nWidth = std::strtol(strText.c_str(), &pEnd, 10);
  if (pEnd != strText.c_str() + nX) return false;
  const long nHeight = std::strtol(strText.c_str() + nX + 1, &pEnd, 10);
  if (!pEnd || *pEnd || nWidth < 2 || nHeight < 2 || nWidth > 16384 || nHeight > 16384) return false;
  *pnWidth = static_cast<int>(nWidth);
  *pnHeight = static_cast<int>(nHeight);
  return true;
}

bool ParsePositive(const std::string& strText, double* pdbl) {
  char* pEnd = nullptr;
  const double dbl = std::strtod(strText.c_str(), &pEnd);
  if (strText.empty() || !pEnd || *pEnd || !std::isfinite(dbl) || dbl <= 0) return false;
  *pdbl = dbl;
  return true;
}

bool ParseStreams(const std::string& strList, std::vector<LONG>* pvec) {
  size_t nPos = 0;
  while (nPos <= strList.size()) {
    const size_t nComma = std::min(strList.find(',', nPos), strList.size());
    const std::string strItem = strList.substr(nPos, nComma - nPos);
    char* pEnd = nullptr;
    const long n = std::strtol(strItem.c_str(), &pEnd, 10);
    if (strItem.empty() || !pEnd || *pEnd || n < 0 || n > 0x7FFF) return false;
    if (std::find(pvec->begin(), pvec->end(), n) == pvec->end()) pvec->push_back(static_cast<LONG>(n));
    nPos = nComma + 1;
  }
  return !pvec->empty();
}

// One option with a value: false (after saying why) when the value is
// missing or wrong.
bool TakeValue(const std::vector<std::string>& args, size_t* pi, TranscodeOptions* pOpts) {
  const std::string& strName = args[*pi];
  if (*pi + 1 >= args.size()) {
    std::fprintf(stderr, "%s: %s wants a value\n", kCmd, strName.c_str());
    return false;
  }
  const std::string& strValue = args[++*pi];
  bool bOk = true;
  const char* szWant = "";
  if (strName == "--vcodec" || strName == "--acodec") {
    bOk = !strValue.empty() && strValue.find_first_of(" \t=\"") == std::string::npos;
    szWant = "a codec name (libx264, aac, copy, ...)";
    (strName == "--vcodec" ? pOpts->strVideoCodec : pOpts->strAudioCodec) = strValue;
  } else if (strName == "--vbitrate" || strName == "--abitrate") {
    bOk = ParseRate(strValue, strName == "--vbitrate" ? &pOpts->llVideoBitrate : &pOpts->llAudioBitrate);
    szWant = "bits per second, with k or M (6M, 128k)";
  } else if (strName == "--preset") {
    bOk = !strValue.empty() && strValue.find_first_of(" \t=\"") == std::string::npos;
    szWant = "a preset name (veryfast, medium, ...)";
    pOpts->strPreset = strValue;
  } else if (strName == "--size") {
    bOk = ParseSize(strValue, &pOpts->nWidth, &pOpts->nHeight);
    szWant = "WIDTHxHEIGHT (1280x720)";
  } else if (strName == "--rate") {
    bOk = ParsePositive(strValue, &pOpts->dblRate) && pOpts->dblRate <= 1000;
    szWant = "frames per second (25, 29.97)";
  } else if (strName == "--streams") {
    bOk = ParseStreams(strValue, &pOpts->vecStreams);
    szWant = "stream indexes separated by commas (0,2)";
  } else if (strName == "--props") {
    pOpts->strProps += (pOpts->strProps.empty() ? "" : " ") + strValue;
  } else if (strName == "--split") {
    bOk = ParsePositive(strValue, &pOpts->dblSplit);
    szWant = "seconds per file (more than 0)";
  } else if (strName == "--report") {
    bOk = !strValue.empty();
    szWant = "a file name (report.html)";
    pOpts->strReport = strValue;
  }
  if (!bOk) std::fprintf(stderr, "%s: %s wants %s, not '%s'\n", kCmd, strName.c_str(), szWant, strValue.c_str());
  return bOk;
}

}  // namespace

bool ParseRate(const std::string& strText, long long* pllBitsPerSecond) {
  if (strText.empty()) return false;
  double dblFactor = 1.0;
  std::string strNumber = strText;
  const char cLast = strText.back();
  if (cLast == 'k' || cLast == 'K') dblFactor = 1e3;
  if (cLast == 'm' || cLast == 'M') dblFactor = 1e6;
  if (dblFactor != 1.0) strNumber.pop_back();
  double dbl = 0;
  if (!ParsePositive(strNumber, &dbl)) return false;
  const double dblBits = std::round(dbl * dblFactor);
  if (dblBits < 1 || dblBits > 1e12) return false;
  *pllBitsPerSecond = static_cast<long long>(dblBits);
  return true;
}

bool ParseTranscodeArgs(const std::vector<std::string>& args, TranscodeOptions* pOpts) {
  static const char* const kValued[] = {"--vcodec", "--acodec", "--vbitrate", "--abitrate", "--preset", "--size",
                                        "--rate",   "--streams", "--props",   "--split",    "--report"};
  pOpts->strCommand = "vccodecs transcode";
  for (const std::string& str : args) pOpts->strCommand += " " + str;
  std::vector<std::string> vecPositional;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& str = args[i];
    if (str == "--json") {
      pOpts->bJson = true;
    } else if (std::find(std::begin(kValued), std::end(kValued), str) != std::end(kValued)) {
      if (!TakeValue(args, &i, pOpts)) return false;
    } else if (str.size() > 1 && str[0] == '-') {
      std::fprintf(stderr, "%s: unknown option %s\n", kCmd, str.c_str());
      return false;
    } else {
      vecPositional.push_back(str);
    }
  }
  if (vecPositional.size() != 2) {
    std::fprintf(stderr, "%s: wants one input and one output: vccodecs transcode IN OUT [options]\n", kCmd);
    return false;
  }
  pOpts->strInput = vecPositional[0];
  pOpts->strOutput = vecPositional[1];
  if (pOpts->strInput == pOpts->strOutput) {
    std::fprintf(stderr, "%s: the output would overwrite the input\n", kCmd);
    return false;
  }
  const DefaultCodecs codecs = DefaultCodecsFor(pOpts->strOutput);
  if (pOpts->strVideoCodec.empty()) pOpts->strVideoCodec = codecs.szVideo;
  if (pOpts->strAudioCodec.empty()) pOpts->strAudioCodec = codecs.szAudio;
  const bool bVideoCopy = pOpts->strVideoCodec == kCopyCodec;
  if (bVideoCopy && (pOpts->nWidth || pOpts->dblRate > 0)) {
    std::fprintf(stderr, "%s: --size and --rate need an encoder: they do not go with --vcodec copy\n", kCmd);
    return false;
  }
  return true;
}

std::string Extension(const std::string& strPath) {
  const size_t nDot = strPath.find_last_of('.');
  const size_t nSlash = strPath.find_last_of("/\\");
  if (nDot == std::string::npos || (nSlash != std::string::npos && nDot < nSlash)) return {};
  return Lower(strPath.substr(nDot + 1));
}

DefaultCodecs DefaultCodecsFor(const std::string& strOutput) {
  static const std::map<std::string, DefaultCodecs> kByExtension = {
      {"mp4", {"libx264", "aac"}},          {"m4v", {"libx264", "aac"}},
      {"mov", {"libx264", "aac"}},          {"mkv", {"libx264", "aac"}},
      {"ts", {"libx264", "aac"}},           {"m2ts", {"libx264", "aac"}},
      {"flv", {"libx264", "aac"}},          {"webm", {"libvpx-vp9", "libopus"}},
      {"mxf", {"mpeg2video", "pcm_s16le"}}, {"avi", {"mpeg4", "libmp3lame"}},
      {"mpg", {"mpeg2video", "mp2"}},       {"mpeg", {"mpeg2video", "mp2"}},
      {"ogg", {"libtheora", "libvorbis"}},  {"ogv", {"libtheora", "libvorbis"}},
      {"mka", {"libx264", "aac"}},          {"m4a", {"libx264", "aac"}},
  };
  const auto it = kByExtension.find(Extension(strOutput));
  return it != kByExtension.end() ? it->second : DefaultCodecs{"libx264", "aac"};
}

std::string SplitPartPath(const std::string& strOutput, int nPart) {
  char szNumber[16];
  std::snprintf(szNumber, sizeof szNumber, "-%03d", nPart);
  const std::string strExt = Extension(strOutput);
  if (strExt.empty()) return strOutput + szNumber;
  const size_t nDot = strOutput.size() - strExt.size() - 1;
  return strOutput.substr(0, nDot) + szNumber + strOutput.substr(nDot);
}

}  // namespace vctool
