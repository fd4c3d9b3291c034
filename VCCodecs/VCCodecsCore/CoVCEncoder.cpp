#include "CoVCEncoder.h"

#include <chrono>
#include <cmath>
#include <thread>
#include <utility>

#include "Devices/KPropsRead.h"
#include "VCAssert.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCCodecs/VCInnerClasses.h"
#include "VCCodecs/VCPacketsStats.h"
#include "VCCodecs/VCStreamText.h"
#include "VCFormat.h"
#include "VCGuard.h"
#include "VCLog.h"
#include "VCSideData.h"
#include "VCTimeText.h"

namespace vc {

namespace {

constexpr const char* kAssertPath = "VCCodecs/VCCodecsCore/CoVCEncoder";
// The checks name the facade's references by their long-standing names.
#define VC_ENCODER_CHECK(cond, text)                                            \
  do {                                                                          \
    if (!(cond)) ::vc::AssertFailed((text), kAssertPath, __LINE__, VC_FUNCTION); \
  } while (0)

// An NVIDIA encoder that cannot open a further hardware session says so
// with this code; only then is a retry worth it.
constexpr HRESULT kHrEncoderBusy = static_cast<HRESULT>(0x80040274u);
constexpr int kBusyRetries = 5;
constexpr auto kBusyPause = std::chrono::milliseconds(10);
constexpr size_t kFrameQueueMax = 32;
// A packet belongs to the queued frame that starts within 1 ms of it.
constexpr LONGLONG kPairTolerance = VC_TIME_MILLISECOND;
constexpr double kRateTolerance = 0.01;

constexpr const OLECHAR kTagProperty[] = W("{17F17C04-5856-4537-8621-D3A3A8CDB017}");
constexpr const OLECHAR kConverterChannel[] = W("vcencoder");

constexpr const char* kNamesNVidia[] = {"n264", "l264", "n265", "gpu_h264", "gpu_h265", nullptr};
constexpr const char* kNamesIntelHw[] = {"q264", "q264hw", "gpu_h264", "qmpeg2hw", nullptr};
constexpr const char* kNamesAmdHw[] = {"h264_amf", "hevc_amf", "gpu_h264", "gpu_h265", nullptr};
constexpr const char* kNamesAmd[] = {"a264", "a265", "gpu_h264", "gpu_h265", nullptr};
// "q265hw" sits in the Intel HEVC row and again in the Intel software row:
// the second only serves when the first could not be created or configured.
constexpr const char* kNamesIntelHevc[] = {"q265", "q265hw", "gpu_h265", nullptr};
constexpr const char* kNamesIntelSw[] = {"q264", "q264sw", "qmpeg2sw", "q265hw", nullptr};

// The general encoder's class serves rows 1, 5, 6 and 8: the extra text is
// what sends it down the AMD or the Intel HEVC route.
constexpr EncoderCodecEntry kCodecTable[] = {
    {eVCMT_Audio, nullptr, &CLSID_GeneralEncoder, nullptr, "FFmpeg audio"},
    {eVCMT_Video, kNamesNVidia, &CLSID_NVEncEncoder, nullptr, "NVEnc HW"},
    {eVCMT_Video, kNamesIntelHw, &CLSID_IntelQSEncoder, "hw_only=true", "IntelQS HW"},
    {eVCMT_Video, kNamesAmdHw, &CLSID_AMDEncoder, "amd=true", "AMD AMF HW"},
    {eVCMT_Video, kNamesAmd, &CLSID_GeneralEncoder, "amd=true", "AMD AMF"},
    {eVCMT_Video, kNamesIntelHevc, &CLSID_GeneralEncoder, "load_plugin=hevc_hw", "IntelQS HEVC"},
    {eVCMT_Video, kNamesIntelSw, &CLSID_IntelQSEncoder, nullptr, "IntelQS SW"},
    {eVCMT_Video, nullptr, &CLSID_GeneralEncoder, nullptr, "FFmpeg video"},
    {eVCMT_Empty, nullptr, nullptr, nullptr, nullptr},
};

bool NameInList(const char* const* pszNames, StringView codec) {
  for (; *pszNames; ++pszNames)
    if (StrIEquals(FromUtf8(*pszNames), codec)) return true;
  return false;
}

bool IsNVidiaOnly(StringView codec) { return StrIEquals(codec, W("n264")) || StrIEquals(codec, W("n265")); }

// The generic names for which the general encoder knows the real codec.
bool IsGenericName(StringView codec) {
  return codec == W("gpu_h264") || codec == W("cpu_h264") || codec == W("gpu_h265");
}

// A value as CoXMLNode::Parse reads it back: entities for what decoding
// would eat, quotes around blanks.
String QuotedValue(StringView value) {
  String strOut;
  bool bQuote = value.empty();
  for (const OLECHAR c : value) {
    if (c == '&') {
      strOut += W("&amp;");
    } else if (c == '"') {
      strOut += W("&quot;");
    } else {
      if (c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\'') bQuote = true;
      strOut += c;
    }
  }
  return bQuote ? W("\"") + strOut + W("\"") : strOut;
}

void AppendPropsText(const XMLParse::CoXMLNode& node, const String& strPath, String* pstrOut) {
  for (size_t n = 0; n < node.AttributeCount(); ++n) {
    const XMLParse::XMLAttribute* pAttr = node.AttributeAt(n);
    if (!pAttr) continue;
    if (!pstrOut->empty()) *pstrOut += W(" ");
    *pstrOut += strPath + pAttr->strName + W("=") + QuotedValue(pAttr->strValue);
  }
  for (size_t n = 0; n < node.ChildCount(); ++n) {
    const XMLParse::XMLNodePtr spChild = node.ChildAt(n);
    if (!spChild) continue;
    const String strChild = strPath + spChild->Name();
    if (!XMLParse::IsBlank(spChild->Value())) {
      if (!pstrOut->empty()) *pstrOut += W(" ");
      *pstrOut += strChild + W("=") + QuotedValue(spChild->Value());
    }
    AppendPropsText(*spChild, strChild + W("::"), pstrOut);
  }
}

String PropsTextOf(IUnknown* pObject, StringView name) {
  ComPtr<IVCProps> cpProps;
  if (!pObject ||
      FAILED(pObject->QueryInterface(IidOf<IVCProps>(), reinterpret_cast<void**>(cpProps.AddressOf()))) || !cpProps)
    return String();
  return ReadPropText(cpProps.Get(), name, W(""));
}

// The conversion test: a field the target leaves 0 keeps the input's value
// and so is no reason to convert; the rate never is (the facade does not
// change rates).
bool NeedsConversion(eVCMediaType eType, const K_AV_PROPS& in, const K_AV_PROPS& out) {
  if (eType == eVCMT_Video) {
    const K_VID_PROPS& a = in.vidProps;
    const K_VID_PROPS& b = out.vidProps;
    return (b.fccType != eVCCC_Default && b.fccType != a.fccType) || (b.nWidth != 0 && b.nWidth != a.nWidth) ||
           (b.nHeight != 0 && b.nHeight != a.nHeight) || (b.eInterlace != 0 && b.eInterlace != a.eInterlace) ||
           (b.nAspectX != 0 && b.nAspectX != a.nAspectX) || (b.nAspectY != 0 && b.nAspectY != a.nAspectY);
  }
  const K_AUD_PROPS& a = in.audProps;
  const K_AUD_PROPS& b = out.audProps;
  return (b.nChannels > 0 && b.nChannels != a.nChannels) ||
         (b.nSamplesPerSec != 0 && b.nSamplesPerSec != a.nSamplesPerSec) ||
         (b.nBitsPerSample != 0 && b.nBitsPerSample != a.nBitsPerSample);
}

// The re-creation and skip test: every field the encoder is opened with.
bool PropsChanged(eVCMediaType eType, const K_AV_PROPS& last, const K_AV_PROPS& next) {
  if (eType == eVCMT_Video) {
    const K_VID_PROPS& a = last.vidProps;
    const K_VID_PROPS& b = next.vidProps;
    return a.fccType != b.fccType || a.nWidth != b.nWidth || a.nHeight != b.nHeight ||
           a.eInterlace != b.eInterlace || a.nAspectX != b.nAspectX || a.nAspectY != b.nAspectY ||
           !(a.dblRate == b.dblRate);
  }
  const K_AUD_PROPS& a = last.audProps;
  const K_AUD_PROPS& b = next.audProps;
  return a.nChannels != b.nChannels || a.nSamplesPerSec != b.nSamplesPerSec || a.nBitsPerSample != b.nBitsPerSample;
}

String AVPropsText(eVCMediaType eType, const K_AV_PROPS& props) {
  if (eType == eVCMT_Video) {
    const K_VID_PROPS& v = props.vidProps;
    return FromUtf8(Format("%dx%d fcc:%08X %.3ffps il:%d ar:%d:%d", static_cast<int>(v.nWidth),
                           static_cast<int>(v.nHeight), static_cast<unsigned>(v.fccType), v.dblRate,
                           static_cast<int>(v.eInterlace), static_cast<int>(v.nAspectX),
                           static_cast<int>(v.nAspectY)));
  }
  const K_AUD_PROPS& a = props.audProps;
  return FromUtf8(Format("%dHz %dch %dbit", static_cast<int>(a.nSamplesPerSec), static_cast<int>(a.nChannels),
                         static_cast<int>(a.nBitsPerSample)));
}

// Everything attached to a frame (data blocks, strings, objects) set on the
// packet's side data.
void CopyFrameAttachments(IVCFrame* pFrame, IVCPacket* pPacket) {
  ComPtr<IVCSideData> cpSideData;
  if (FAILED(pPacket->QueryInterface(IidOf<IVCSideData>(), reinterpret_cast<void**>(cpSideData.AddressOf()))) ||
      !cpSideData)
    return;
  for (LONG n = 0;; ++n) {
    CBstr bsName;
    LONG cbData = 0;
    LONGLONG lpData = 0;
    if (pFrame->VCDataGetByIndex(n, &bsName, &cbData, &lpData) != S_OK || !bsName) break;
    cpSideData->SideDataSet(0, bsName, cbData, lpData);
  }
  for (LONG n = 0;; ++n) {
    CBstr bsName, bsValue;
    if (pFrame->VCStrGetByIndex(n, &bsName, &bsValue) != S_OK || !bsName) break;
    cpSideData->SideDataStrSet(0, bsName, bsValue);
  }
  for (LONG n = 0;; ++n) {
    CBstr bsName;
    ComPtr<IUnknown> cpObject;
    if (pFrame->VCObjGetByIndex(n, &bsName, cpObject.AddressOf(), FALSE) != S_OK || !bsName) break;
    cpSideData->SideDataObjSet(0, bsName, cpObject.Get());
  }
}

}  // namespace

CCoVCEncoder::CCoVCEncoder() : m_perf(16) {}

CCoVCEncoder::~CCoVCEncoder() = default;

const EncoderCodecEntry* CCoVCEncoder::_CodecTable() { return kCodecTable; }

String CCoVCEncoder::_MediaTypeName(eVCMediaType eType) {
  switch (eType) {
    case eVCMT_Video: return W("Video");
    case eVCMT_Audio: return W("Audio");
    case eVCMT_Subtitles: return W("Subtitles");
    case eVCMT_Data: return W("Data");
    default: return W("###Err###(eVCMediaType)");
  }
}

String CCoVCEncoder::_PropsText(const XMLParse::CoXMLNode& node) {
  String strText;
  AppendPropsText(node, String(), &strText);
  return strText;
}

size_t CCoVCEncoder::_QueuedFrames() {
  CKAutoLock lock(m_csFrames);
  return m_deqFrames.size();
}

bool CCoVCEncoder::_HasConverter() {
  CKAutoLock lock(m_csLock);
  return static_cast<bool>(m_cpVCConverter);
}

bool CCoVCEncoder::_ReadRootBool(StringView name, bool bDefault) {
  CKAutoLock lock(m_csLock);
  XMLParse::XMLNodePtr spRoot = _PropsRootLocked();
  return spRoot ? ReadPropBool(*spRoot, name, bDefault) : bDefault;
}

void CCoVCEncoder::_SetStat(const String& strName, const String& strValue) {
  if (XMLParse::XMLNodePtr spRoot = _PropsRootLocked())
    spRoot->SetAttributePath(W("stat::") + strName, strValue, /*bDecode=*/false);
}

// ---------------------------------------------------------------------------
// Selection

HRESULT CCoVCEncoder::EncodeCodecSet(eVCMediaType _eCodecType, BSTR _bsConfigParams) {
  VC_GUARD_BEGIN
  const StringView config = InString(_bsConfigParams);
  const String strType = _MediaTypeName(_eCodecType);
  const String strConfig(config);
  CKMutexLock select(m_csSelect);
  bool bExternal = false;
  {
    CKAutoLock lock(m_csLock);
    XMLParse::XMLNodePtr spRoot = _PropsRootLocked();
    if (!spRoot) return E_FAIL;
    spRoot->RemoveAttribute(W("codec_name"));
    XMLParse::XMLNodePtr spCodecProps = spRoot->CreateNode(W("codec_props"));
    if (!spCodecProps) return E_OUTOFMEMORY;
    const bool bReuse = _bsConfigParams && StrIEquals(config, W("reinit"));
    if (!bReuse) {
      spCodecProps->RemoveAllAttributes();
      spCodecProps->RemoveAllChildren();
      spCodecProps->SetValue(W(""));
      // The object's own settings first, so that the configuration text
      // overrides them; the facade's own nodes stay out.
      for (size_t n = 0; n < spRoot->AttributeCount(); ++n)
        if (const XMLParse::XMLAttribute* pAttr = spRoot->AttributeAt(n))
          spCodecProps->SetAttribute(pAttr->strName, pAttr->strValue, false);
      for (size_t n = 0; n < spRoot->ChildCount(); ++n) {
        const XMLParse::XMLNodePtr spChild = spRoot->ChildAt(n);
        if (!spChild || spChild.get() == spCodecProps.get() || StrIEquals(spChild->Name(), W("stat"))) continue;
        if (XMLParse::XMLNodePtr spCopy = spCodecProps->AddChild(spChild->Name())) spChild->CopyTo(spCopy.get());
      }
      const HRESULT hrParse = spCodecProps->Parse(config);
      if (FAILED(hrParse)) {
        VC_LOG(eVCLL_Error, "_CreateEncoder(%ws, %ws) FAILED hr=%08X", strType.c_str(), strConfig.c_str(), hrParse);
        return hrParse;
      }
    }
    bExternal = ReadPropBool(*spCodecProps, W("external_process"), false);
  }
  if (bExternal) {
    // The host process is not built: the encoder runs in process, but the
    // close-first order of a hosted encoder is kept.
    VC_LOG(eVCLL_Detail, "_CreateEncoder(%ws, %ws) external_process is not available, the encoder is created in process",
           strType.c_str(), strConfig.c_str());
    EncodeClose();
  }

  ComPtr<IVCEncoder> cpNew;
  String strDescription;
  HRESULT hr = _CreateEncoder(_eCodecType, &cpNew, &strDescription);
  if (hr == kHrEncoderBusy) {
    VC_LOG(eVCLL_Retry, "_CreateEncoder(%ws, %ws) try to close nvidia encoder", strType.c_str(), strConfig.c_str());
    EncodeClose();  // our own hardware session may be the one in the way
    for (int nLeft = kBusyRetries; nLeft > 0;) {
      --nLeft;
      hr = _CreateEncoder(_eCodecType, &cpNew, &strDescription);
      if (hr != kHrEncoderBusy) break;
      std::this_thread::sleep_for(kBusyPause);
    }
  }
  if (FAILED(hr) || !cpNew) {
    if (SUCCEEDED(hr)) hr = VC_E_NO_CANDIDATE;
    VC_LOG(eVCLL_Error, "_CreateEncoder(%ws, %ws) FAILED hr=%08X", strType.c_str(), strConfig.c_str(), hr);
    return hr;
  }

  {
    CKAutoLock lock(m_csLock);
    if (XMLParse::XMLNodePtr spRoot = _PropsRootLocked())
      spRoot->SetAttributePath(W("codec_name"), strDescription, false);
  }
  // In process the new encoder exists before the old one is closed.
  if (!bExternal) _CloseEncoder(m_inner.Ref());
  ComPtr<IVCEncoder> cpOld = m_inner.Swap(cpNew);
  {
    CKAutoLock lock(m_csLock);
    m_eMediaType = _eCodecType;
  }
  cpOld = nullptr;
  VC_LOG(eVCLL_Progress, "_CreateEncoder(%ws, %ws) OK hr=%08X", strType.c_str(), strConfig.c_str(), hr);
  return S_OK;
  VC_GUARD_END
}

HRESULT CCoVCEncoder::_CreateEncoder(eVCMediaType eType, ComPtr<IVCEncoder>* pcpEncoder, String* pstrDescription) {
  String strCodec;
  {
    CKAutoLock lock(m_csLock);
    XMLParse::XMLNodePtr spRoot = _PropsRootLocked();
    XMLParse::XMLNodePtr spCodecProps = spRoot ? spRoot->FindNode(W("codec_props")) : nullptr;
    if (!spCodecProps) {
      VC_ENCODER_CHECK(spCodecProps, "_pXMLProps");
      return E_POINTER;
    }
    spCodecProps->GetAttributePath(W("codec"), &strCodec);
  }
  const bool bNVidiaOnly = IsNVidiaOnly(strCodec);
  bool bBusy = false;
  const auto fnWalk = [&]() VC_REQUIRES(m_csSelect) {
    for (const EncoderCodecEntry* pEntry = kCodecTable; pEntry->eMediaType != eVCMT_Empty; ++pEntry) {
      const HRESULT hr = _InitSelectedEncoder(eType, *pEntry, pcpEncoder, pstrDescription);
      if (hr == S_OK && *pcpEncoder) return true;
      if (bNVidiaOnly && hr == kHrEncoderBusy) bBusy = true;
    }
    return false;
  };
  if (fnWalk()) return S_OK;
  // Case-sensitive on purpose: only the exact generic name degrades.
  if (!bNVidiaOnly && strCodec == W("gpu_h265")) {
    {
      CKAutoLock lock(m_csLock);
      if (XMLParse::XMLNodePtr spRoot = _PropsRootLocked())
        spRoot->SetAttributePath(W("codec_props::codec"), W("gpu_h264"), false);
    }
    if (fnWalk()) return S_OK;
  }
  return bBusy ? kHrEncoderBusy : VC_E_NO_CANDIDATE;
}

HRESULT CCoVCEncoder::_InitSelectedEncoder(eVCMediaType eType, const EncoderCodecEntry& entry,
                                           ComPtr<IVCEncoder>* pcpEncoder, String* pstrDescription) {
  if (pcpEncoder) *pcpEncoder = nullptr;
  if (entry.eMediaType != eType) return S_FALSE;
  String strCodec;
  bool bHasCodec = false;
  String strMerged;
  {
    CKAutoLock lock(m_csLock);
    XMLParse::XMLNodePtr spRoot = _PropsRootLocked();
    XMLParse::XMLNodePtr spCodecProps = spRoot ? spRoot->FindNode(W("codec_props")) : nullptr;
    if (!spCodecProps) return E_POINTER;
    bHasCodec = spCodecProps->GetAttributePath(W("codec"), &strCodec);
    if (entry.pszNames && (!bHasCodec || !NameInList(entry.pszNames, strCodec))) return S_FALSE;
    strMerged = _PropsText(*spCodecProps);
  }
  const String strClsid = GuidToString(*entry.pClsid);
  const String strType = _MediaTypeName(eType);

  ComPtr<IVCEncoder> cpCandidate;
  HRESULT hr = CoCreateInstance(*entry.pClsid, nullptr, CLSCTX_ALL, IidOf<IVCEncoder>(),
                                reinterpret_cast<void**>(cpCandidate.AddressOf()));
  if (FAILED(hr) || !cpCandidate) {
    if (SUCCEEDED(hr)) hr = E_NOINTERFACE;
    VC_LOG(eVCLL_Retry, "Error create %ws codec:%ws tag:%ws", strClsid.c_str(), strType.c_str(), W(""));
    return hr;
  }
  const String strTag = PropsTextOf(cpCandidate.Get(), kTagProperty);
  if (entry.szExtraConfig && *entry.szExtraConfig) strMerged += W(" ") + FromUtf8(entry.szExtraConfig);

  hr = cpCandidate->EncodeCodecSet(eType, CBstr(StringView(strMerged)));
  if (FAILED(hr)) {
    VC_LOG(eVCLL_Retry, "Error set props'%ws' for %ws codec:%ws tag:%ws", strMerged.c_str(), strClsid.c_str(),
           strType.c_str(), strTag.c_str());
    // Nothing is hosted out of process, so there is no host to tear down.
    return hr;
  }
  VC_LOG(eVCLL_Progress, "Create %ws codec:%ws tag:%ws (Param:%ws)", strClsid.c_str(), strType.c_str(),
         strTag.c_str(), strMerged.c_str());

  if (pstrDescription) {
    String strBase;
    if (StringView(FromUtf8(entry.szDisplayName)) == W("FFmpeg video") && IsGenericName(strCodec)) {
      strBase = PropsTextOf(cpCandidate.Get(), W("codec_name"));
      if (strBase.empty()) strBase = PropsTextOf(cpCandidate.Get(), W("codec::codec"));
    } else {
      strBase = FromUtf8(entry.szDisplayName);
    }
    *pstrDescription = strBase + W("(") + strCodec + W(")");
    CKAutoLock lock(m_csLock);
    _SetStat(entry.eMediaType == eVCMT_Video ? W("v_encode.codec") : W("a_encode.codec"), *pstrDescription);
  }
  if (pcpEncoder) *pcpEncoder = std::move(cpCandidate);
  return S_OK;
}

// ---------------------------------------------------------------------------
// Frames in, packets out

HRESULT CCoVCEncoder::_Convert(eVCMediaType eType, K_AV_PROPS* pAVPropsOut, const XMLParse::CoXMLNode& options,
                               BSTR bsHints, ComPtr<IVCFrame>* pcpFrame, K_AV_PROPS* pProps) {
  ComPtr<IVCConverter> cpConverter;
  K_AV_PROPS avPropsLast{};
  {
    CKAutoLock lock(m_csLock);
    cpConverter = m_cpVCConverter;
    avPropsLast = m_avPropsLast;
  }
  if (!cpConverter) {
    const HRESULT hr = CoCreateInstance(CLSID_VCConverter, nullptr, CLSCTX_ALL, IidOf<IVCConverter>(),
                                        reinterpret_cast<void**>(cpConverter.AddressOf()));
    if (FAILED(hr) || !cpConverter) {
      VC_ENCODER_CHECK(false, "m_cpVCConverter.CoCreateInstance( __uuidof(VCConverter) )");
      return FAILED(hr) ? hr : E_NOINTERFACE;
    }
    CKAutoLock lock(m_csLock);
    if (!m_cpVCConverter) m_cpVCConverter = cpConverter;
  }
  const K_AV_PROPS& avPropsIn = *pProps;
  VC_ENCODER_CHECK(pAVPropsOut->vidProps.dblRate == 0 ||
                       std::fabs(pAVPropsOut->vidProps.dblRate - avPropsIn.vidProps.dblRate) < kRateTolerance,
                   "_pAVPropsOut->vidProps.dblRate == 0 || (( ((_pAVPropsOut->vidProps.dblRate "
                   "-avPropsIn.vidProps.dblRate) >= 0)? (_pAVPropsOut->vidProps.dblRate -avPropsIn.vidProps.dblRate) "
                   ": -(_pAVPropsOut->vidProps.dblRate -avPropsIn.vidProps.dblRate) ) < 0.01)");
  K_AV_PROPS target = *pAVPropsOut;
  target.vidProps.dblRate = 0;  // the input's rate stays
  if (eType == eVCMT_Audio)
    target.vidProps.eVideoFormat = eKVF_Disabled;
  else
    target.audProps.nChannels = -1;

  const CBstr bsChannel{StringView(kConverterChannel)};
  if (ReadPropBool(options, W("flush_encoder"), false)) cpConverter->ConverterFlush(bsChannel, nullptr);
  ComPtr<IVCFrame> cpOut;
  const HRESULT hr = cpConverter->ConverterFramePut(bsChannel, pcpFrame->Get(), &target, cpOut.AddressOf(), bsHints);
  if (SUCCEEDED(hr) && cpOut) {
    K_AV_PROPS avPropsOut{};
    cpOut->VCAVPropsGet(&avPropsOut, nullptr);
    *pcpFrame = std::move(cpOut);
    *pProps = avPropsOut;
    return S_OK;
  }
  if (eType == eVCMT_Video && PropsChanged(eType, avPropsLast, avPropsIn)) {
    VC_LOG(eVCLL_Progress, "cpVCEncoder->EncodeFramePut input frame is skipped because there is no frame after conversion");
    return S_FALSE;
  }
  return S_OK;  // the frame goes on as it came
}

HRESULT CCoVCEncoder::EncodeFramePut(IVCFrame* _pFrame, K_AV_PROPS* _pAVPropsOut, IVCPacket** _ppPacket,
                                     BSTR _bsHints) {
  VC_GUARD_BEGIN
  ClearOut(_ppPacket);
  ComPtr<IVCEncoder> cpVCEncoder = m_inner.Ref();
  if (!cpVCEncoder) return VC_E_EMPTY;
  const CBstr bsHints(InString(_bsHints));  // inner objects get a real BSTR whatever the host passed

  eVCMediaType eType = eVCMT_Empty;
  const double dblInputRate = m_inputRate.Add(1);
  {
    CKAutoLock lock(m_csLock);
    eType = m_eMediaType;
    _SetStat(String(eType == eVCMT_Video ? W("v_encode.") : W("a_encode.")) + W("input_fps"),
             VCStatDoubleText(dblInputRate));
  }
  const String strPrefix = eType == eVCMT_Video ? W("v_encode.") : W("a_encode.");
  m_perf.Start();

  const XMLParse::XMLNodePtr spOptions = XMLParse::CoXMLNode::Create();
  spOptions->Parse(InString(_bsHints));

  ComPtr<IVCFrame> cpFrame(_pFrame);
  K_AV_PROPS avPropsIn{};
  if (cpFrame) cpFrame->VCAVPropsGet(&avPropsIn, nullptr);

  if (cpFrame && _pAVPropsOut && _ReadRootBool(W("vccodec.convert_frame"), true) &&
      NeedsConversion(eType, avPropsIn, *_pAVPropsOut)) {
    const HRESULT hr = _Convert(eType, _pAVPropsOut, *spOptions, bsHints, &cpFrame, &avPropsIn);
    if (FAILED(hr)) return hr;
    if (hr == S_FALSE) return S_OK;  // skipped: nothing to encode yet
  }

  if (cpFrame && _ReadRootBool(W("vccodec.reinit_for_changed_props"), true)) {
    K_AV_PROPS avPropsLast{};
    {
      CKAutoLock lock(m_csLock);
      avPropsLast = m_avPropsLast;
    }
    if (PropsChanged(eType, avPropsLast, avPropsIn)) {
      VC_LOG(eVCLL_Progress, "Reinit Encoder - PROPS CHANGED(%ws->%ws)", AVPropsText(eType, avPropsLast).c_str(),
             AVPropsText(eType, avPropsIn).c_str());
      EncodeCodecSet(eType, CBstr(StringView(W("reinit"))));
      if (ComPtr<IVCEncoder> cpNew = m_inner.Ref()) cpVCEncoder = std::move(cpNew);
    }
  }
  if (cpFrame) {
    CKAutoLock lock(m_csLock);
    m_avPropsLast = avPropsIn;
  }

  ComPtr<IVCPacket> cpPacket;
  const HRESULT hr =
      cpVCEncoder->EncodeFramePut(cpFrame.Get(), _pAVPropsOut, _ppPacket ? cpPacket.AddressOf() : nullptr, bsHints);
  if (FAILED(hr)) {
    VC_LOG(eVCLL_Error, "cpVCEncoder->EncodeFramePut(%ws) FAILED hr=%08X", VCFrameText(cpFrame.Get()).c_str(), hr);
    return hr;
  }
  // The queue keeps what pairing needs (times and attachments), not the
  // picture: a clone without it, so that up to 32 pictures do not stay
  // alive for the encoder's whole delay. A frame that cannot clone itself
  // is kept whole.
  ComPtr<IVCFrame> cpPairing;
  if (eType == eVCMT_Video && cpFrame) {
    const HRESULT hrClone = cpFrame->VCClone(cpPairing.AddressOf(),
                                             static_cast<eKFrameClone>(eKFC_Data | eKFC_Obj), eVCCC_Default);
    if (FAILED(hrClone) || !cpPairing) cpPairing = cpFrame;
  }
  size_t nQueued = 0;
  {
    CKAutoLock lock(m_csFrames);
    if (cpPairing) {
      m_deqFrames.push_back(std::move(cpPairing));
      if (m_deqFrames.size() > kFrameQueueMax) m_deqFrames.pop_front();
    }
    nQueued = m_deqFrames.size();
  }
  VC_LOG(eVCLL_Progress, "cpVCEncoder->EncodeFramePut(%ws) DeqFrm:%zd OK hr=%08X", VCFrameText(cpFrame.Get()).c_str(),
         nQueued, hr);
  if (cpPacket) {
    // The dotted prefix makes keys like "v_encode..kbps" here; the packet
    // getter uses the plain prefix. Hosts read both, so both stay.
    _PacketStats(ToUtf8(strPrefix), cpPacket.Get());
    ComPtr<IVCPacket> cpOut;
    const HRESULT hrQI = cpPacket->QueryInterface(IidOf<IVCPacket>(), reinterpret_cast<void**>(cpOut.AddressOf()));
    if (FAILED(hrQI)) {
      VC_ENCODER_CHECK(false, "(((HRESULT)(hrQI)) >= 0)");
      return hrQI;
    }
    VC_LOG(eVCLL_Progress, "[ENC-PKT] cpVCEncoder->EncodeFramePut() OUT PKT:%ws DeqFrm:%zd OK hr=%08X",
           VCPacketText(cpOut.Get()).c_str(), nQueued, hr);
    {
      CKAutoLock lock(m_csFrames);
      if (!m_deqFrames.empty()) _PairPacket(cpOut.Get());
    }
    *_ppPacket = cpOut.Detach();
  }
  m_perf.Stop(1);
  {
    CKAutoLock lock(m_csLock);
    _SetStat(strPrefix + W("performance"), FromUtf8(m_perf.Text(true)));
  }
  return hr;
  VC_GUARD_END
}

HRESULT CCoVCEncoder::EncodePacketsGet(IVCPacket** _ppPacket, LONG* _pnReadyPackets, LONGLONG _rtMaxWaitTime,
                                       BSTR _bsHints) {
  VC_GUARD_BEGIN
  ClearOut(_ppPacket);
  ComPtr<IVCEncoder> cpVCEncoder = m_inner.Ref();
  if (!cpVCEncoder) return VC_E_EMPTY;
  const CBstr bsHints(InString(_bsHints));
  LONG nReady = 0;
  ComPtr<IVCPacket> cpPacket;
  const HRESULT hr =
      cpVCEncoder->EncodePacketsGet(_ppPacket ? cpPacket.AddressOf() : nullptr, &nReady, _rtMaxWaitTime, bsHints);
  const String strWait = TimeTextW(_rtMaxWaitTime);
  if (FAILED(hr)) {
    if (hr == VC_E_EMPTY)
      VC_LOG(eVCLL_Retry, "cpVCEncoder->EncodePacketsGet(Wait:%ws) FAILED hr=%08X HRESULT_FROM_WIN32(ERROR_EMPTY)",
             strWait.c_str(), hr);
    else if (hr == VC_E_TIMEOUT)
      VC_LOG(eVCLL_Progress, "cpVCEncoder->EncodePacketsGet(Wait:%ws) NO PACKET before timeout  hr=%08X",
             strWait.c_str(), hr);
    else
      VC_LOG(eVCLL_Error, "cpVCEncoder->EncodePacketsGet(Wait:%ws) FAILED hr=%08X", strWait.c_str(), hr);
    return hr;
  }
  eVCMediaType eType = eVCMT_Empty;
  {
    CKAutoLock lock(m_csLock);
    eType = m_eMediaType;
  }
  size_t nQueued = 0;
  {
    CKAutoLock lock(m_csFrames);
    nQueued = m_deqFrames.size();
  }
  VC_LOG(eVCLL_Progress, "[ENC-PKT] cpVCEncoder->EncodePacketsGet(Wait:%ws) [%ws, DeqPkt:%d] DeqFrm:%zd OK hr=%08X",
         strWait.c_str(), VCPacketText(cpPacket.Get()).c_str(), static_cast<int>(nReady), nQueued, hr);
  if (_pnReadyPackets) *_pnReadyPackets = nReady;
  if (cpPacket) {
    _PacketStats(eType == eVCMT_Video ? "v_encode" : "a_encode", cpPacket.Get());
    VC_ENCODER_CHECK(_ppPacket, "_ppPacket");
    ComPtr<IVCPacket> cpOut;
    const HRESULT hrQI = cpPacket->QueryInterface(IidOf<IVCPacket>(), reinterpret_cast<void**>(cpOut.AddressOf()));
    if (FAILED(hrQI)) {
      VC_ENCODER_CHECK(false, "(((HRESULT)(hrQI)) >= 0)");
      return hrQI;
    }
    {
      CKAutoLock lock(m_csFrames);
      if (!m_deqFrames.empty()) _PairPacket(cpOut.Get());
    }
    *_ppPacket = cpOut.Detach();
  }
  return hr;
  VC_GUARD_END
}

void CCoVCEncoder::_PacketStats(const std::string& strPrefix, IVCPacket* pPacket) {
  CKAutoLock lock(m_csLock);
  std::unique_ptr<KPacketStats>& spStats = m_mapPacketStats[strPrefix];
  if (!spStats) spStats = std::make_unique<KPacketStats>(strPrefix);
  XMLParse::XMLNodePtr spRoot = _PropsRootLocked();
  XMLParse::XMLNodePtr spStat = spRoot ? spRoot->CreateNode(W("stat")) : nullptr;
  spStats->Update(pPacket, spStat.get());
}

void CCoVCEncoder::_PairPacket(IVCPacket* pPacket) {
  K_TIME time{};
  if (FAILED(pPacket->PacketTimeGet(&time))) return;
  const LONGLONG rtPacket = time.rtStartTime != VC_TIME_UNSET ? time.rtStartTime : time.rtEndTime;
  if (rtPacket == VC_TIME_UNSET) return;
  for (auto it = m_deqFrames.begin(); it != m_deqFrames.end(); ++it) {
    K_TIME frameTime{};
    if (!*it || FAILED((*it)->VCTimeGet(&frameTime))) continue;
    const LONGLONG t = frameTime.rtStartTime;
    if (rtPacket - kPairTolerance <= t && t < rtPacket + kPairTolerance) {
      CopyFrameAttachments(it->Get(), pPacket);
      m_deqFrames.erase(m_deqFrames.begin(), it + 1);
      return;
    }
  }
}

HRESULT CCoVCEncoder::EncodeClose() {
  VC_GUARD_BEGIN
  return _CloseEncoder(m_inner.Ref());
  VC_GUARD_END
}

HRESULT CCoVCEncoder::_CloseEncoder(const ComPtr<IVCEncoder>& cpVCEncoder) {
  if (!cpVCEncoder) return S_FALSE;
  const HRESULT hr = cpVCEncoder->EncodeClose();
  if (FAILED(hr)) {
    VC_LOG(eVCLL_Error, "cpVCEncoder->EncodeClose() FAILED hr=%08X", hr);
    return hr;
  }
  // Nothing runs in a host process, so there is no process to end here.
  m_perf.Clear();
  m_inputRate.Setup(0, KBitrateCalculator::kDefaultAverage, KBitrateCalculator::kDefaultWindow);
  ComPtr<IVCConverter> cpConverter;
  size_t nQueued = 0;
  {
    CKAutoLock lock(m_csFrames);
    nQueued = m_deqFrames.size();
  }
  {
    CKAutoLock lock(m_csLock);
    m_avPropsLast = K_AV_PROPS{};
    cpConverter = std::move(m_cpVCConverter);
    m_mapPacketStats.clear();
  }
  cpConverter = nullptr;  // released outside the lock
  VC_LOG(eVCLL_Progress, "cpVCEncoder->EncodeClose(Deq:%zd) OK hr=%08X", nQueued, hr);
  {
    CKAutoLock lock(m_csLock);
    if (XMLParse::XMLNodePtr spRoot = _PropsRootLocked()) {
      if (XMLParse::XMLNodePtr spStat = spRoot->FindNode(W("stat"))) {
        for (size_t n = spStat->AttributeCount(); n-- > 0;) {
          const XMLParse::XMLAttribute* pAttr = spStat->AttributeAt(n);
          if (!pAttr) continue;
          const String strName = pAttr->strName;
          if (strName.rfind(W("v_encode."), 0) == 0 || strName.rfind(W("a_encode."), 0) == 0)
            spStat->RemoveAttribute(strName);
        }
      }
    }
  }
  {
    CKAutoLock lock(m_csFrames);
    m_deqFrames.clear();
  }
  return hr;
}

}  // namespace vc
