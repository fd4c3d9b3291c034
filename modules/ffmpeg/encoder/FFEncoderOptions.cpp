#include "FFEncoderOptions.h"

extern "C" {
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <vector>

#include "Devices/KPropsOps.h"
#include "VCStrings.h"

namespace vc::ff {

namespace {

using XMLParse::CoXMLNode;
using XMLParse::XMLNodePtr;

enum class EKind { Int, Double, Text };

// One setting the encoder reads (CCoFFEncoder::_ReadSettings). Limits of
// the numbers are ours where FFmpeg's own would let nonsense through
// (a negative bit rate, 10000 B-frames); the codec may still narrow them.
struct COptionRow {
  const char* szName;
  EKind eKind;
  const char* szDefault;
  double dblMin;
  double dblMax;
  const char* szHelp;
};

constexpr double kNoLimit = 0;  // min == max == 0: no limits

const COptionRow kRows[] = {
    {"bitrate", EKind::Int, "0", 0, 2e9,
     "Average bit rate in bits per second; 0 leaves the rate control to the codec (or to quality)."},
    {"quality", EKind::Double, "-1", -1, 1000,
     "Constant quality: the codec's rate factor (crf) where it has one, else a fixed quantiser; -1 is off."},
    {"max_rate", EKind::Int, "0", 0, 2e9, "Peak bit rate in bits per second for constrained rate control; 0 is none."},
    {"buffer_size", EKind::Int, "0", 0, 2e9,
     "Rate control buffer (VBV) size in bits, used with max_rate; 0 is the codec's choice."},
    {"gop", EKind::Int, "-1", -1, 100000, "Key frame every this many frames at most; -1 is the codec's choice."},
    {"b_frames", EKind::Int, "-1", -1, 16, "Most B-frames in a row; 0 turns them off, -1 is the codec's choice."},
    {"threads", EKind::Int, "0", 0, 64, "Encoding threads; 0 lets the codec choose."},
    {"preset", EKind::Text, "", kNoLimit, kNoLimit, "Speed against compression preset of the codec."},
    {"profile", EKind::Text, "", kNoLimit, kNoLimit, "Profile of the stream (codec-specific names)."},
    {"level", EKind::Text, "", kNoLimit, kNoLimit, "Level of the stream, for example 4.1 (codec-specific)."},
    {"pix_fmt", EKind::Text, "", kNoLimit, kNoLimit,
     "Pixel format the codec encodes (FFmpeg's name); empty chooses the one nearest to the input."},
};

const char* TypeName(EKind eKind) {
  switch (eKind) {
    case EKind::Int: return "int";
    case EKind::Double: return "double";
    default: return "string";
  }
}

// x264 and x265 take their presets and profiles as free text; these are
// the names the libraries know.
constexpr const char* kX26xPresets[] = {"ultrafast", "superfast", "veryfast", "faster", "fast",
                                        "medium",    "slow",      "slower",   "veryslow", "placebo"};
constexpr const char* kX264Profiles[] = {"baseline", "main", "high", "high10", "high422", "high444"};
constexpr const char* kX265Profiles[] = {"main", "main10", "mainstillpicture", "main422-10", "main444-8",
                                         "main444-10"};

// What the codec allows for one of the text settings, and its default.
struct CAllowed {
  std::vector<std::string> vecValues;  // empty: any text
  std::vector<std::string> vecHelp;    // per value, may be empty
  std::string strDefault;
  std::optional<std::pair<double, double>> range;  // a number option of the codec
};

const AVOption* PrivateOption(const AVCodec* pCodec, const char* szName) {
  if (!pCodec || !pCodec->priv_class) return nullptr;
  const AVClass* pClass = pCodec->priv_class;
  return av_opt_find(&pClass, szName, nullptr, 0, AV_OPT_SEARCH_FAKE_OBJ);
}

// The named constants of the codec's private option (prores_ks "profile",
// nvenc "preset"), as FFmpeg lists them.
void AddConstants(const AVCodec* pCodec, const AVOption& option, CAllowed* pAllowed) {
  if (!option.unit) return;
  const AVClass* pClass = pCodec->priv_class;
  for (const AVOption* p = nullptr; (p = av_opt_next(&pClass, p));) {
    if (p->type != AV_OPT_TYPE_CONST || !p->unit || std::strcmp(p->unit, option.unit) != 0) continue;
    pAllowed->vecValues.emplace_back(p->name);
    pAllowed->vecHelp.emplace_back(p->help ? p->help : "");
    if (option.type != AV_OPT_TYPE_STRING && p->default_val.i64 == option.default_val.i64)
      pAllowed->strDefault = p->name;
  }
}

CAllowed AllowedFor(const char* szName, const AVCodec* pCodec) {
  CAllowed allowed;
  if (!pCodec) return allowed;
  const bool bX264 = std::strcmp(pCodec->name, "libx264") == 0;
  const bool bX265 = std::strcmp(pCodec->name, "libx265") == 0;
  if (std::strcmp(szName, "pix_fmt") == 0) {
    for (const AVPixelFormat* p = pCodec->pix_fmts; p && *p != AV_PIX_FMT_NONE; ++p)
      allowed.vecValues.emplace_back(av_get_pix_fmt_name(*p));
    return allowed;
  }
  if (std::strcmp(szName, "preset") == 0 && (bX264 || bX265)) {
    allowed.vecValues.assign(std::begin(kX26xPresets), std::end(kX26xPresets));
    allowed.strDefault = "medium";
    return allowed;
  }
  if (std::strcmp(szName, "profile") == 0 && (bX264 || bX265)) {
    if (bX264) allowed.vecValues.assign(std::begin(kX264Profiles), std::end(kX264Profiles));
    else allowed.vecValues.assign(std::begin(kX265Profiles), std::end(kX265Profiles));
    return allowed;
  }
  const AVOption* pOption = PrivateOption(pCodec, szName);
  if (!pOption) return allowed;
  AddConstants(pCodec, *pOption, &allowed);
  if (pOption->type == AV_OPT_TYPE_INT || pOption->type == AV_OPT_TYPE_INT64) {
    if (allowed.vecValues.empty()) {
      allowed.range = std::make_pair(pOption->min, pOption->max);
      allowed.strDefault = std::to_string(pOption->default_val.i64);
    }
  } else if (pOption->type == AV_OPT_TYPE_STRING && pOption->default_val.str) {
    allowed.strDefault = pOption->default_val.str;
  }
  return allowed;
}

std::string Join(const std::vector<std::string>& vec) {
  std::string str;
  for (const std::string& s : vec) {
    if (!str.empty()) str += '|';
    str += s;
  }
  return str;
}

std::string Number(double dbl) {
  char sz[32];
  std::snprintf(sz, sizeof(sz), "%.15g", dbl);
  return sz;
}

// The limits of a number setting for pCodec: quality follows the codec's
// rate factor where it has one.
std::pair<double, double> LimitsFor(const COptionRow& row, const AVCodec* pCodec) {
  if (std::strcmp(row.szName, "quality") == 0) {
    // x264 and x265 declare their rate factor without a top; 51 is theirs.
    if (pCodec && (std::strcmp(pCodec->name, "libx264") == 0 || std::strcmp(pCodec->name, "libx265") == 0))
      return {-1, 51};
    const AVOption* pCrf = PrivateOption(pCodec, "crf");
    if (pCrf && pCrf->max < row.dblMax) return {-1, pCrf->max};
  }
  return {row.dblMin, row.dblMax};
}

bool SameIgnoringCase(const std::string& a, const std::string& b) {
  return a.size() == b.size() && strncasecmp(a.c_str(), b.c_str(), a.size()) == 0;
}

}  // namespace

void PublishEncoderOptionInfo(CoXMLNode& root, const AVCodec* pCodec) {
  XMLNodePtr spInfo = root.FindChild(props::kInfoNodeName);
  if (!spInfo) spInfo = root.AddChild(props::kInfoNodeName);
  if (!spInfo) return;
  for (const COptionRow& row : kRows) {
    const String strName = FromUtf8(row.szName);
    if (XMLNodePtr spOld = spInfo->FindChild(strName)) spInfo->RemoveChild(spOld.get());
    XMLNodePtr spEntry = spInfo->AddChild(strName);
    if (!spEntry) continue;
    spEntry->SetValue(FromUtf8(row.szHelp), false);
    spEntry->SetAttribute(u"type", FromUtf8(TypeName(row.eKind)), false);
    if (row.eKind != EKind::Text) {
      const auto [dblMin, dblMax] = LimitsFor(row, pCodec);
      spEntry->SetAttribute(u"default", FromUtf8(row.szDefault), false);
      spEntry->SetAttribute(u"min", FromUtf8(Number(dblMin)), false);
      spEntry->SetAttribute(u"max", FromUtf8(Number(dblMax)), false);
      continue;
    }
    const CAllowed allowed = AllowedFor(row.szName, pCodec);
    spEntry->SetAttribute(u"default", FromUtf8(allowed.strDefault), false);
    if (allowed.range) {
      spEntry->SetAttribute(u"min", FromUtf8(Number(allowed.range->first)), false);
      spEntry->SetAttribute(u"max", FromUtf8(Number(allowed.range->second)), false);
    }
    if (!allowed.vecValues.empty()) {
      spEntry->SetAttribute(u"values", FromUtf8(Join(allowed.vecValues)), false);
      bool bAnyHelp = false;
      for (const std::string& s : allowed.vecHelp) bAnyHelp = bAnyHelp || !s.empty();
      if (bAnyHelp) spEntry->SetAttribute(u"values_help", FromUtf8(Join(allowed.vecHelp)), false);
    }
  }
}

HRESULT CheckEncoderOptions(const CoXMLNode& root, const AVCodec* pCodec, std::string* pWhy) {
  for (const COptionRow& row : kRows) {
    String strValue;
    if (!root.GetAttributePath(FromUtf8(row.szName), &strValue) || strValue.empty()) continue;
    const std::string strText = ToUtf8(strValue);
    if (row.eKind != EKind::Text) {
      char* pEnd = nullptr;
      errno = 0;
      const double dbl = std::strtod(strText.c_str(), &pEnd);
      const bool bWhole = row.eKind != EKind::Int || static_cast<double>(static_cast<int64_t>(dbl)) == dbl;
      if (pEnd == strText.c_str() || *pEnd != '\0' || errno == ERANGE || !bWhole) {
        *pWhy = std::string(row.szName) + "='" + strText + "' is not " +
                (row.eKind == EKind::Int ? "a whole number" : "a number");
        return E_INVALIDARG;
      }
      const auto [dblMin, dblMax] = LimitsFor(row, pCodec);
      if (dbl < dblMin || dbl > dblMax) {
        *pWhy = std::string(row.szName) + "=" + strText + " is out of range [" + Number(dblMin) + ", " +
                Number(dblMax) + "]";
        return E_INVALIDARG;
      }
      continue;
    }
    const CAllowed allowed = AllowedFor(row.szName, pCodec);
    if (std::strcmp(row.szName, "pix_fmt") == 0 && av_get_pix_fmt(strText.c_str()) == AV_PIX_FMT_NONE) {
      *pWhy = "pix_fmt='" + strText + "' is not a pixel format FFmpeg knows";
      return E_INVALIDARG;
    }
    if (allowed.range) {
      char* pEnd = nullptr;
      const double dbl = std::strtod(strText.c_str(), &pEnd);
      if (pEnd == strText.c_str() || *pEnd != '\0' || dbl < allowed.range->first || dbl > allowed.range->second) {
        *pWhy = std::string(row.szName) + "='" + strText + "' is not a number in [" + Number(allowed.range->first) +
                ", " + Number(allowed.range->second) + "]";
        return E_INVALIDARG;
      }
    }
    if (allowed.vecValues.empty()) continue;
    bool bFound = false;
    for (const std::string& s : allowed.vecValues) bFound = bFound || SameIgnoringCase(s, strText);
    if (!bFound) {
      *pWhy = std::string(row.szName) + "='" + strText + "' is not one of " + Join(allowed.vecValues);
      return E_INVALIDARG;
    }
  }
  return S_OK;
}

}  // namespace vc::ff
