#include "ToolMedia.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#if !defined(_WIN32)
#include <unistd.h>
#endif

#include "ToolModule.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCStrings.h"

namespace vctool {

bool ParseArgs(const char* szCmd, const std::vector<std::string>& args, bool bSeekAllowed, MediaArgs* pArgs,
               const ExtraOption& extra) {
  for (size_t i = 0; i < args.size(); ++i) {
    if (extra) {
      const eOption eResult = extra(args, &i);
      if (eResult == eOption::kBad) return false;
      if (eResult == eOption::kTaken) continue;
    }
    if (args[i] == "--json") {
      pArgs->bJson = true;
    } else if (bSeekAllowed && args[i] == "--seek" && i + 1 < args.size()) {
      char* pEnd = nullptr;
      pArgs->dblSeek = std::strtod(args[++i].c_str(), &pEnd);
      if (!pEnd || *pEnd || !std::isfinite(pArgs->dblSeek) || pArgs->dblSeek < 0) {
        std::fprintf(stderr, "vccodecs %s: --seek wants seconds (0 or more), not '%s'\n", szCmd, args[i].c_str());
        return false;
      }
    } else if (!args[i].empty() && args[i][0] == '-' && args[i] != "-") {
      std::fprintf(stderr, "vccodecs %s: unknown option %s\n", szCmd, args[i].c_str());
      return false;
    } else if (pArgs->strUrl.empty()) {
      pArgs->strUrl = args[i];
    } else {
      std::fprintf(stderr, "vccodecs %s: one source only\n", szCmd);
      return false;
    }
  }
  if (pArgs->strUrl.empty()) std::fprintf(stderr, "vccodecs %s: which source? (a file path or URL)\n", szCmd);
  return !pArgs->strUrl.empty();
}

std::string JsonText(const std::string& str) {
  std::string strOut = "\"";
  for (unsigned char c : str) {
    switch (c) {
      case '"': strOut += "\\\""; break;
      case '\\': strOut += "\\\\"; break;
      case '\n': strOut += "\\n"; break;
      case '\r': strOut += "\\r"; break;
      case '\t': strOut += "\\t"; break;
      default:
        if (c < 0x20) {
          char sz[8];
          std::snprintf(sz, sizeof sz, "\\u%04x", c);
          strOut += sz;
        } else {
          strOut += static_cast<char>(c);
        }
    }
  }
  return strOut + "\"";
}

const char* TypeName(eVCMediaType eType) {
  switch (eType) {
    case eVCMT_Video: return "video";
    case eVCMT_Audio: return "audio";
    case eVCMT_Subtitles: return "subtitles";
    case eVCMT_Data: return "data";
    case eVCMT_Multiplexed: return "multiplexed";
    default: return "empty";
  }
}

std::string Seconds(LONGLONG rt) {
  if (rt == VC_TIME_UNSET) return "unset";
  char sz[32];
  std::snprintf(sz, sizeof sz, "%.3f", static_cast<double>(rt) / VC_TIME_SECOND);
  return sz;
}

std::string StreamSeconds(LONGLONG llTime, const K_RATIONAL& tb) {
  if (llTime == VC_TIME_UNSET || tb.nDen <= 0) return "unset";
  char sz[32];
  std::snprintf(sz, sizeof sz, "%.3f", static_cast<double>(llTime) * tb.nNum / tb.nDen);
  return sz;
}

std::string StreamDetails(const K_STREAM_INFO& info) {
  char sz[160];
  if (info.eMediaType == eVCMT_Video) {
    std::snprintf(sz, sizeof sz, "%dx%d %.3f fps aspect %d:%d", I(info.nWidth), I(info.nHeight), info.dblRate,
                  I(info.nAspectX), I(info.nAspectY));
  } else if (info.eMediaType == eVCMT_Audio) {
    std::snprintf(sz, sizeof sz, "%d Hz %d ch", I(info.nSampleRate), I(info.nChannels));
  } else {
    sz[0] = 0;
  }
  return sz;
}

bool OpenSource(const char* szCmd, const std::string& strUrl, Source* pSource) {
  HRESULT hr = CoCreateInstance(CLSID_VCSplitter, nullptr, CLSCTX_INPROC_SERVER, IID_IVCSplitter,
                                reinterpret_cast<void**>(pSource->cpSplitter.AddressOf()));
  if (FAILED(hr)) {
    std::fprintf(stderr, "vccodecs %s: the splitter could not be created: %s\n", szCmd, HrText(hr).c_str());
    return false;
  }
  vc::CBstr bsUrl(strUrl);
  LONG nStreams = 0;
  hr = pSource->cpSplitter->SplitterOpen(bsUrl, nullptr, &nStreams);
  if (FAILED(hr)) {
    std::fprintf(stderr, "vccodecs %s: cannot open %s: %s\n", szCmd, strUrl.c_str(), HrText(hr).c_str());
    return false;
  }
  vc::CBstr bsPath, bsXml;
  hr = pSource->cpSplitter->SplitterInfoGet(&bsPath, &bsXml, &pSource->nStreams, &pSource->rtDuration);
  if (FAILED(hr)) {
    std::fprintf(stderr, "vccodecs %s: no source information: %s\n", szCmd, HrText(hr).c_str());
    return false;
  }
  pSource->strXml = bsXml.Utf8();
  for (LONG n = 0; n < pSource->nStreams; ++n) {
    Source::Stream stream;
    vc::CBstr bsStreamXml;
    if (FAILED(pSource->cpSplitter->SplitterStreamInfoGet(n, &stream.info, &bsStreamXml))) continue;
    stream.strCodec = vc::ToUtf8(stream.info.bsCodecNameOrTag ? stream.info.bsCodecNameOrTag : W(""));
    SysFreeString(stream.info.bsCodecNameOrTag);  // ours: the caller frees returned strings
    stream.info.bsCodecNameOrTag = nullptr;
    stream.info.lpCodecData = 0;  // the splitter's memory; not kept past this call
    stream.strXml = bsStreamXml.Utf8();
    pSource->vecStreams.push_back(std::move(stream));
  }
  return true;
}

std::map<std::string, std::string> StatValues(IUnknown* pObject) {
  std::map<std::string, std::string> mapStats;
  vc::ComPtr<IVCProps> cpProps;
  if (!pObject || FAILED(pObject->QueryInterface(IID_IVCProps, reinterpret_cast<void**>(cpProps.AddressOf()))))
    return mapStats;
  vc::CBstr bsNode(std::string("stat"));
  LONG nCount = 0;
  if (cpProps->PropsGetCount(bsNode, &nCount) != S_OK) return mapStats;
  for (LONG i = 0; i < nCount; ++i) {
    vc::CBstr bsName, bsValue;
    BOOL bNode = FALSE;
    if (cpProps->PropsGetByIndex(bsNode, i, &bsName, &bsValue, &bNode) == S_OK && !bNode)
      mapStats["stat::" + bsName.Utf8()] = bsValue.Utf8();
  }
  return mapStats;
}

std::string PropText(IUnknown* pObject, const char* szName) {
  vc::ComPtr<IVCProps> cpProps;
  if (!pObject || FAILED(pObject->QueryInterface(IID_IVCProps, reinterpret_cast<void**>(cpProps.AddressOf()))))
    return {};
  vc::CBstr bsName{std::string_view(szName)};
  vc::CBstr bsValue;
  if (cpProps->PropsGet(bsName, &bsValue) != S_OK) return {};
  return bsValue.Utf8();
}

bool PropSet(IUnknown* pObject, const char* szName, const char* szValue) {
  vc::ComPtr<IVCProps> cpProps;
  if (!pObject || FAILED(pObject->QueryInterface(IID_IVCProps, reinterpret_cast<void**>(cpProps.AddressOf()))))
    return false;
  vc::CBstr bsName{std::string_view(szName)};
  vc::CBstr bsValue{std::string_view(szValue)};
  return SUCCEEDED(cpProps->PropsSet(bsName, bsValue));
}

bool StderrIsTerminal() {
#if defined(_WIN32)
  return false;
#else
  return isatty(2) != 0;
#endif
}

void DrawProgress(double dblDone, const std::string& strCounts) {
  const int nWidth = 40;
  const double dblShare = std::clamp(dblDone, 0.0, 1.0);
  const int nFilled = static_cast<int>(dblShare * nWidth + 0.5);
  // The trailing blanks wipe a longer text of the previous draw.
  std::fprintf(stderr, "\r[%s%s] %3d%%  %s   ", std::string(static_cast<size_t>(nFilled), '#').c_str(),
               std::string(static_cast<size_t>(nWidth - nFilled), '.').c_str(), static_cast<int>(dblShare * 100 + 0.5),
               strCounts.c_str());
  std::fflush(stderr);
}

}  // namespace vctool
