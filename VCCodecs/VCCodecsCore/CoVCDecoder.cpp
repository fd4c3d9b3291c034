#include "CoVCDecoder.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>

#include "Devices/KPropsRead.h"
#include "KStatsMath.h"
#include "VCAssert.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCCodecs/VCInnerClasses.h"
#include "VCCodecs/VCPacketsStats.h"
#include "VCCodecs/VCPropsCopy.h"
#include "VCCodecs/VCStreamText.h"
#include "VCGuard.h"
#include "VCLog.h"
#include "VCSideData.h"
#include "VCTimeText.h"

namespace vc {

namespace {

constexpr const char* kAssertPath = "VCCodecs/VCCodecsCore/CoVCDecoder";
// The checks name the facade's own references by their long-standing names.
#define VC_DECODER_CHECK(cond, text)                                                     \
  do {                                                                                   \
    if (!(cond)) ::vc::AssertFailed((text), kAssertPath, __LINE__, VC_FUNCTION);          \
  } while (0)

// A frame without a usable rate is timed at 25 frames per second.
constexpr double kDefaultRate = 25.0;
constexpr LONGLONG kDefaultFrameDuration = VC_TIME_SECOND / 25;  // 400000
// The small-step repair moves frames that start more than 1 ms off.
constexpr LONGLONG kMillisecond = VC_TIME_MILLISECOND;
// Packets kept for a replay when no key packet comes: the oldest go first.
constexpr size_t kReplayMax = 1024;
constexpr auto kPublishEvery = std::chrono::milliseconds(100);

// Registered at construction so that hosts see the options; every one also
// reaches the candidates with the property copy.
constexpr VCPropDefault kDefaults[] = {
    {W("decoder.nvidia"), W("true")},
    {W("decoder.quicksync"), W("false")},
    {W("decode.correct_times"), W("true")},
    {W("packets.maxdeq"), W("100")},
    {W("attach_packets"), W("false")},
    {W("experimental.out_video_packets"), W("true")},
    {W("decoder.fallback_on_error"), W("false")},
    {W("decoder.fallback.no_output_packets"), W("64")},
};

// The inner decoder's information, published under the same names.
constexpr const OLECHAR* kDecoderInfoNames[] = {W("decoder"),         W("decoder.id"),    W("decoder.device"),
                                                W("decoder.profile"), W("decoder.level"), W("decoder.tag"),
                                                W("decoder.size")};

String IntText(int64_t ll) {
  char sz[24];
  const std::to_chars_result result = std::to_chars(sz, sz + sizeof sz, ll);
  return String(sz, result.ptr);
}

bool UsableRate(double dblRate) { return std::isfinite(dblRate) && dblRate > 0.0; }

// Timecodes: "HH:MM:SS:FF", a ';' or '.' before the frames for drop frame.
struct CTimecodeValue {
  int32_t nFrame = 0;
  bool bDrop = false;
};

int DropPerMinute(int nFps) { return nFps == 30 ? 2 : nFps == 60 ? 4 : 0; }

bool ParseTimecode(const std::string& str, double dblRate, CTimecodeValue* pValue) {
  int h = 0, m = 0, s = 0, f = 0;
  char c1 = 0, c2 = 0, c3 = 0;
  if (std::sscanf(str.c_str(), "%d%c%d%c%d%c%d", &h, &c1, &m, &c2, &s, &c3, &f) != 7) return false;
  if (c1 != ':' || c2 != ':' || (c3 != ':' && c3 != ';' && c3 != '.')) return false;
  const int nFps = static_cast<int>(RoundHalfAway(UsableRate(dblRate) ? dblRate : kDefaultRate));
  if (h < 0 || m < 0 || m > 59 || s < 0 || s > 59 || f < 0 || f >= nFps) return false;
  pValue->bDrop = c3 != ':' && DropPerMinute(nFps) > 0;
  int64_t llFrame = ((static_cast<int64_t>(h) * 60 + m) * 60 + s) * nFps + f;
  if (pValue->bDrop) {
    const int64_t llMinutes = static_cast<int64_t>(h) * 60 + m;
    llFrame -= DropPerMinute(nFps) * (llMinutes - llMinutes / 10);
  }
  if (llFrame > INT32_MAX) return false;
  pValue->nFrame = static_cast<int32_t>(llFrame);
  return true;
}

K_TIMECODE TimecodeOf(int64_t llFrame, double dblRate, bool bDrop) {
  const int nFps = static_cast<int>(RoundHalfAway(UsableRate(dblRate) ? dblRate : kDefaultRate));
  const int nDrop = bDrop ? DropPerMinute(nFps) : 0;
  if (nDrop > 0) {
    // Put the dropped numbers back: 2 (or 4) per minute except every tenth.
    const int64_t llPer10 = static_cast<int64_t>(nFps) * 600 - nDrop * 9;
    const int64_t llPerMinute = static_cast<int64_t>(nFps) * 60 - nDrop;
    const int64_t ll10s = llFrame / llPer10;
    const int64_t llRest = llFrame % llPer10;
    llFrame += nDrop * 9 * ll10s + (llRest > nDrop ? nDrop * ((llRest - nDrop) / llPerMinute) : 0);
  }
  K_TIMECODE tc{};
  tc.nFrames = static_cast<LONG>(llFrame % nFps);
  tc.nSeconds = static_cast<LONG>((llFrame / nFps) % 60);
  tc.nMinutes = static_cast<LONG>((llFrame / (static_cast<int64_t>(nFps) * 60)) % 60);
  tc.nHours = static_cast<LONG>((llFrame / (static_cast<int64_t>(nFps) * 3600)) % 24);
  tc.eTCFlags = bDrop ? eKTCF_DropFrame : eKTCF_NonDropFrame;
  return tc;
}

String TimecodeText(const K_TIMECODE& tc) {
  return FromUtf8(Format("%02d:%02d:%02d%c%02d", static_cast<int>(tc.nHours), static_cast<int>(tc.nMinutes),
                         static_cast<int>(tc.nSeconds), (tc.eTCFlags & eKTCF_DropFrame) ? ';' : ':',
                         static_cast<int>(tc.nFrames)));
}

bool IsHardwareEntry(REFCLSID clsid) {
  return IsEqualGUID(clsid, CLSID_NVidiaDecoder) || IsEqualGUID(clsid, CLSID_QuickSyncDecoder);
}

// The packet's own side data carried over to the frame: objects by
// reference, strings as strings, everything else as bytes.
void CopySideData(IVCPacket* pPacket, IVCFrame* pFrame) {
  ComPtr<IVCSideData> cpSideData;
  if (FAILED(pPacket->QueryInterface(IidOf<IVCSideData>(), reinterpret_cast<void**>(cpSideData.AddressOf()))) ||
      !cpSideData)
    return;
  LONG nCount = 0;
  if (FAILED(cpSideData->SideDataGetCount(0, &nCount))) return;
  for (LONG n = 0; n < nCount; ++n) {
    CBstr bsName;
    LONG cbData = 0;
    LONGLONG lpData = 0;
    if (FAILED(cpSideData->SideDataGetByIndex(0, n, &bsName, &cbData, &lpData)) || !bsName) continue;
    ComPtr<IUnknown> cpObject;
    if (SUCCEEDED(cpSideData->SideDataObjGet(0, bsName, cpObject.AddressOf())) && cpObject) {
      pFrame->VCObjSet(bsName, cpObject.Get());
      continue;
    }
    CBstr bsValue;
    if (SUCCEEDED(cpSideData->SideDataStrGet(0, bsName, &bsValue))) {
      pFrame->VCStrSet(bsName, bsValue);
      continue;
    }
    pFrame->VCDataSet(bsName, cbData, lpData);
  }
}

}  // namespace

CCoVCDecoder::CCoVCDecoder() : m_perf(16), m_rtLatestOut(VC_TIME_UNSET) {}

CCoVCDecoder::~CCoVCDecoder() = default;

HRESULT CCoVCDecoder::FinalConstruct() {
  CKAutoLock lock(m_csLock);
  XMLParse::XMLNodePtr spRoot = _PropsRootLocked();
  if (!spRoot) return E_OUTOFMEMORY;
  return VCPropsSetDefaults(*spRoot, kDefaults);
}

std::vector<VCCandidate> CCoVCDecoder::_BuildCandidates(bool bNVidia, bool bQuickSync) {
  std::vector<VCCandidate> vecTable;
  if (bNVidia) vecTable.push_back({CLSID_NVidiaDecoder, String(W("NVidia Decoder")), eVCMT_Video, String(), 0});
  if (bQuickSync)
    vecTable.push_back({CLSID_QuickSyncDecoder, String(W("Intel QuickSync Decoder")), eVCMT_Video, String(), 0});
  vecTable.push_back({CLSID_GeneralDecoder, String(W("FFmpeg A/V")), eVCMT_Empty, String(), 0});
  return vecTable;
}

std::vector<VCCandidate> CCoVCDecoder::_Candidates() {
  CKMutexLock lock(m_csSelect);
  return m_vecCandidates;
}

size_t CCoVCDecoder::_QueuedPackets() {
  CKAutoLock lock(m_csLock);
  return m_deqPackets.size();
}

size_t CCoVCDecoder::_HeldFrames() {
  CKAutoLock lock(m_csLock);
  return m_deqHeld.size();
}

CCoVCDecoder::COptions CCoVCDecoder::_ReadOptions() {
  const uint32_t nGeneration = m_nPropsGeneration.load(std::memory_order_acquire);
  const auto tpNow = std::chrono::steady_clock::now();
  CKAutoLock lock(m_csLock);
  if (m_nOptionsGeneration == nGeneration && tpNow - m_tpOptions < std::chrono::seconds(1)) return m_options;
  COptions options;
  if (XMLParse::XMLNodePtr spRoot = _PropsRootLocked()) {
    options.bCorrectTimes = ReadPropBool(*spRoot, W("decode.correct_times"), true);
    options.llMaxDeq = ReadPropInt(*spRoot, W("packets.maxdeq"), 100);
    options.bAttach = ReadPropBool(*spRoot, W("attach_packets"), false) ||
                      ReadPropBool(*spRoot, W("experimental.out_video_packets"), true);
    options.bFallback = ReadPropBool(*spRoot, W("decoder.fallback_on_error"), false);
    options.llNoOutputMax = ReadPropInt(*spRoot, W("decoder.fallback.no_output_packets"), 64);
  }
  m_options = options;
  m_nOptionsGeneration = nGeneration;
  m_tpOptions = tpNow;
  return options;
}

String CCoVCDecoder::_Prefix() {
  return String(m_bHasStream && m_streamInfo.eMediaType == eVCMT_Video ? W("v_decode") : W("a_decode"));
}

void CCoVCDecoder::_SetStat(const String& strPrefix, const char* szSuffix, const String& strValue) {
  if (XMLParse::XMLNodePtr spRoot = _PropsRootLocked())
    spRoot->SetAttributePath(W("stat::") + strPrefix + FromUtf8(szSuffix), strValue, /*bDecode=*/false);
}

bool CCoVCDecoder::_ChooseStream(const K_STREAM_INFO* pStreamInfo, IVCPacket* pPacket, CKStreamInfo* pInfo,
                                 bool* pbFromPacket) {
  *pbFromPacket = false;
  if (pPacket) {
    CKStreamInfo fromPacket;
    if (SUCCEEDED(VCPacketStreamInfo(pPacket, &fromPacket)) && VCStreamCompleteness(fromPacket) != 0) {
      *pInfo = std::move(fromPacket);
      *pbFromPacket = true;
      return true;
    }
  }
  if (!pStreamInfo) return false;
  *pInfo = CKStreamInfo(*pStreamInfo);
  return true;
}

// ---------------------------------------------------------------------------
// Selection

HRESULT CCoVCDecoder::_CreateDecoder(const K_STREAM_INFO* pStreamInfo, IVCPacket* pPacket, String* pstrDecoderType,
                                     bool bForce) {
  CKStreamInfo info;
  bool bFromPacket = false;
  const K_STREAM_INFO* _pStmInfo = _ChooseStream(pStreamInfo, pPacket, &info, &bFromPacket) ? &info : nullptr;
  if (!_pStmInfo) {
    VC_DECODER_CHECK(_pStmInfo, "_pStmInfo");
    return E_INVALIDARG;
  }
  const auto fnUnchanged = [&]() VC_REQUIRES(m_csLock) {
    return m_bHasStream && m_inner.Has() &&
           (info.SharesStorageWith(m_streamInfo) || VCStreamSameLoose(m_streamInfo, info));
  };
  if (!bForce) {
    // The common case, every packet of an unchanged stream: no walk lock.
    CKAutoLock lock(m_csLock);
    if (fnUnchanged()) return S_FALSE;
  }

  CKMutexLock select(m_csSelect);
  String strCurrent;
  {
    CKAutoLock lock(m_csLock);
    if (!bForce && fnUnchanged()) return S_FALSE;  // another walk installed it meanwhile
    strCurrent = VCStreamText(m_bHasStream ? &m_streamInfo : nullptr);
  }
  if (!bForce) {
    for (const int nIndex : m_vecFallbackMarked)
      if (static_cast<size_t>(nIndex) < m_vecCandidates.size()) m_vecCandidates[static_cast<size_t>(nIndex)].nState = 0;
    m_vecFallbackMarked.clear();
  }
  const String strNew = VCStreamText(&info);
  VC_LOG(eVCLL_Progress, "CREATE/REINIT ENCODER:%ws->%ws", strCurrent.c_str(), strNew.c_str());

  const XMLParse::XMLNodePtr spProps = VCPropsSnapshot(*this);
  VCCandidateWalk walk;
  walk.eMediaType = info.eMediaType;
  if (info.bsCodecNameOrTag) walk.strCodec = String(InString(info.bsCodecNameOrTag));
  walk.pProps = spProps.get();
  walk.fnCreateFailed = [](const VCCandidate& entry, HRESULT hr) {
    VC_LOG(eVCLL_Error, "cpVCDecoder.CoCreateInstance( %ws ) '%ws' FAILED hr=%08X", GuidToString(entry.clsid).c_str(),
           entry.strName.c_str(), hr);
  };
  walk.fnRefused = [&strNew](const VCCandidate&, HRESULT hr) {
    VC_LOG(eVCLL_Retry, "cpVCDecoder->DecodeIsSupported( %ws ) NOT SUPPORTED (hr=%08X)", strNew.c_str(), hr);
  };
  ComPtr<IVCDecoder> cpNew;
  const VCCandidateResult result = VCWalkCandidates<IVCDecoder>(
      m_vecCandidates, walk,
      [&](IVCDecoder* pCandidate) {
        return pCandidate->DecodeIsSupported(const_cast<K_STREAM_INFO*>(&info.Get()), pPacket, nullptr);
      },
      &cpNew);
  if (result.hr != S_OK || !cpNew) return VC_E_NO_CANDIDATE;  // the old decoder stays as it was
  const VCCandidate& accepted = m_vecCandidates[static_cast<size_t>(result.nIndex)];

  String strType = accepted.strName;
  if (!walk.strCodec.empty()) strType += W("(") + walk.strCodec + W(")");
  // What the new decoder says about itself is read before the lock: the
  // facade lock is never held across a call into an inner object.
  String strHwAcceleration;
  const bool bHardware = IsHardwareEntry(accepted.clsid);
  std::vector<std::pair<const OLECHAR*, String>> vecInfo;
  {
    ComPtr<IVCProps> cpProps;
    if (SUCCEEDED(cpNew->QueryInterface(IidOf<IVCProps>(), reinterpret_cast<void**>(cpProps.AddressOf()))) &&
        cpProps) {
      if (bHardware) strHwAcceleration = ReadPropText(cpProps.Get(), W("decoder"), W(""));
      for (const OLECHAR* szName : kDecoderInfoNames) {
        CBstr bsValue;
        if (cpProps->PropsGet(CBstr(StringView(szName)), &bsValue) == S_OK)
          vecInfo.emplace_back(szName, String(bsValue.View()));
      }
    }
  }
  const bool bFallback = ReadPropBool(*spProps, W("decoder.fallback_on_error"), false);

  ComPtr<IVCDecoder> cpOld;
  {
    CKAutoLock lock(m_csLock);
    XMLParse::XMLNodePtr spRoot = _PropsRootLocked();
    if (spRoot) {
      spRoot->SetAttributePath(W("decoder.type"), strType, false);
      if (bHardware) spRoot->SetAttributePath(W("info::hw_acceleration"), strHwAcceleration, false);
    }
    VC_LOG(eVCLL_Progress, "New decoder created (%ws) Reset Packets:%zd", strCurrent.c_str(), m_deqPackets.size());
    m_streamInfo = info;
    m_bHasStream = true;
    cpOld = m_inner.Swap(cpNew);
    m_deqPackets.clear();
    m_nInFlight.store(0);
    m_deqReplay.clear();
    m_nNoOutput = 0;
    ++m_nStreamGeneration;
    _UpdateStartTC();
    if (spRoot) {
      for (const auto& [szName, strValue] : vecInfo) spRoot->SetAttributePath(szName, strValue, false);
      if (bFallback) _SetStat(_Prefix(), ".active", accepted.strName);
    }
  }
  m_nInstalled = result.nIndex;
  if (pstrDecoderType) *pstrDecoderType = strType;
  return S_OK;  // the old decoder goes here, outside the facade lock
}

void CCoVCDecoder::_PublishDecoderInfo(IVCDecoder* pDecoder) {
  ComPtr<IVCProps> cpProps;
  if (!pDecoder ||
      FAILED(pDecoder->QueryInterface(IidOf<IVCProps>(), reinterpret_cast<void**>(cpProps.AddressOf()))) || !cpProps)
    return;
  std::vector<std::pair<const OLECHAR*, String>> vecInfo;
  for (const OLECHAR* szName : kDecoderInfoNames) {
    CBstr bsValue;
    if (cpProps->PropsGet(CBstr(StringView(szName)), &bsValue) == S_OK)
      vecInfo.emplace_back(szName, String(bsValue.View()));
  }
  CKAutoLock lock(m_csLock);
  if (XMLParse::XMLNodePtr spRoot = _PropsRootLocked())
    for (const auto& [szName, strValue] : vecInfo) spRoot->SetAttributePath(szName, strValue, false);
}

void CCoVCDecoder::_UpdateStartTC() {
  m_startTC = CStartTC();
  XMLParse::XMLNodePtr spRoot = _PropsRootLocked();
  if (!spRoot) return;
  const String strStart = ReadPropText(*spRoot, W("start_timecode"), W(""));
  if (strStart.empty()) return;
  const String strUser = ReadPropText(*spRoot, W("user_timecode"), W(""));
  CTimecodeValue value;
  const bool bParsed = ParseTimecode(ToUtf8(strStart), m_streamInfo.dblRate, &value);
  const String strTC = bParsed ? TimecodeText(TimecodeOf(value.nFrame, m_streamInfo.dblRate, value.bDrop))
                               : String(W("(invalid)"));
  VC_LOG(eVCLL_Progress, "start_timecode='%ws' TC:%ws UserTC:%ws", strStart.c_str(), strTC.c_str(),
         strUser.c_str());
  if (!bParsed) return;
  m_startTC.bSet = true;
  m_startTC.nFrame = value.nFrame;
  m_startTC.bDrop = value.bDrop;
  m_startTC.bUser = strUser == W("true") || strUser == W("1");
  VC_LOG(eVCLL_Progress, "_nStartTC:%d(%ws) drop=%d userTC=%d", m_startTC.nFrame, strTC.c_str(),
         m_startTC.bDrop ? 1 : 0, m_startTC.bUser ? 1 : 0);
}

HRESULT CCoVCDecoder::DecodeIsSupported(K_STREAM_INFO* _pStreamInfo, IVCPacket* _pVCPacket, BOOL* _pbSupported) {
  VC_GUARD_BEGIN
  bool bNVidia = true;
  bool bQuickSync = false;
  {
    CKAutoLock lock(m_csLock);
    if (XMLParse::XMLNodePtr spRoot = _PropsRootLocked()) {
      bNVidia = ReadPropBool(*spRoot, W("decoder.nvidia"), true);
      bQuickSync = ReadPropBool(*spRoot, W("decoder.quicksync"), false);
    }
  }
  {
    CKMutexLock select(m_csSelect);
    // The installed decoder keeps its place by identity: a switch may have
    // added or removed entries before it.
    const CLSID clsidInstalled = m_nInstalled >= 0 && static_cast<size_t>(m_nInstalled) < m_vecCandidates.size()
                                     ? m_vecCandidates[static_cast<size_t>(m_nInstalled)].clsid
                                     : CLSID{};
    m_vecCandidates = _BuildCandidates(bNVidia, bQuickSync);
    m_vecFallbackMarked.clear();
    if (m_nInstalled >= 0) {
      const auto it = std::find_if(m_vecCandidates.begin(), m_vecCandidates.end(),
                                   [&](const VCCandidate& entry) { return IsEqualGUID(entry.clsid, clsidInstalled); });
      m_nInstalled = it == m_vecCandidates.end() ? -1 : static_cast<int>(it - m_vecCandidates.begin());
    }
  }

  CKStreamInfo info;
  bool bFromPacket = false;
  const bool bHave = _ChooseStream(_pStreamInfo, _pVCPacket, &info, &bFromPacket);
  const String strText = bHave ? VCStreamText(&info) : VCStreamText(nullptr);
  if (bFromPacket)
    VC_LOG(eVCLL_Progress, "IVCPacket StmInfo:%ws", strText.c_str());
  else
    VC_LOG(eVCLL_Progress, "StmInfo:%ws", strText.c_str());

  String strType;
  const HRESULT hr = _CreateDecoder(_pStreamInfo, _pVCPacket, &strType);
  const String strWhat = _pVCPacket ? VCPacketText(_pVCPacket) : strText;
  if (hr != S_OK) {
    VC_LOG(eVCLL_Error, "NOT SUPPORTED:%ws", strWhat.c_str());
    if (_pbSupported) *_pbSupported = FALSE;
    return S_FALSE;
  }
  VC_DECODER_CHECK(m_inner.Has(), "m_cpVCDecoder");
  if (_pbSupported) *_pbSupported = TRUE;
  VC_LOG(eVCLL_Progress, "SUPPORTED(Dec:%ws):%ws", strType.c_str(), strWhat.c_str());
  return S_OK;
  VC_GUARD_END
}

// ---------------------------------------------------------------------------
// Decoding

void CCoVCDecoder::_CorrectTime(IVCFrame* pFrame, K_TIME* pTime, LONGLONG rtSegmentStart) {
  const K_TIME& P = m_timePrev;
  if (P.rtEndTime - P.rtStartTime < 1) return;  // no previous frame
  K_AV_PROPS props{};
  double r = kDefaultRate;
  if (SUCCEEDED(pFrame->VCAVPropsGet(&props, nullptr)) && UsableRate(props.vidProps.dblRate))
    r = props.vidProps.dblRate;
  const LONGLONG g = std::llabs(P.rtEndTime - pTime->rtStartTime);
  const LONGLONG n = RoundHalfAway(static_cast<double>(g) * r / static_cast<double>(VC_TIME_SECOND));
  const String strDiff = TimeTextW(P.rtEndTime - pTime->rtStartTime);

  if (pTime->rtEndTime >= P.rtEndTime + kMillisecond && static_cast<double>(n) < r / 2) {
    if (g > kMillisecond) {
      VC_LOG(eVCLL_Retry, "Correct %d (Diff:%ws) endTime:%ws Last:%ws", static_cast<int>(n), strDiff.c_str(),
             VCTimeRangeText(*pTime).c_str(), VCTimeRangeText(P).c_str());
      pTime->rtStartTime = P.rtEndTime;
    }
    return;
  }
  const LONGLONG L = static_cast<LONGLONG>(5.0 * static_cast<double>(VC_TIME_SECOND) / r);
  if (rtSegmentStart < 0 && g < L) {
    VC_LOG(eVCLL_Retry, "Correct endTime %d (Diff:%ws) endTime:%ws Last:%ws", static_cast<int>(n), strDiff.c_str(),
           VCTimeRangeText(*pTime).c_str(), VCTimeRangeText(P).c_str());
    pTime->rtStartTime = P.rtEndTime;
    const LONGLONG D = UsableRate(r) ? static_cast<LONGLONG>(static_cast<double>(VC_TIME_SECOND) / r)
                                     : kDefaultFrameDuration;
    pTime->rtEndTime = pTime->rtStartTime + D;
    return;
  }
  VC_LOG(eVCLL_Retry, "Force BREAK %d (Diff:%ws) endTime:%ws Last:%ws", static_cast<int>(n), strDiff.c_str(),
         VCTimeRangeText(*pTime).c_str(), VCTimeRangeText(P).c_str());
  pTime->eFFlags = static_cast<eKFrameFlags>((static_cast<LONG>(pTime->eFFlags) & ~0x30) | eKFF_Break);
}

LONG CCoVCDecoder::_AttachPacketsAndCopyData(IVCFrame* pFrame, const COptions& options) {
  K_TIME F{};
  pFrame->VCTimeGet(&F);
  // The lines of this step carry the name hosts know it by.
  const auto fnLog = [](int nLevel, const char* szFormat, auto... args) {
    LogWrite(nLevel, __FILE__, __LINE__, "void vc::CCoVCDecoder::_AttachPackets()", szFormat, args...);
  };
  if (LogIsOn(eVCLL_Progress))
    fnLog(eVCLL_Progress, " %ws Deq:%zd", VCTimeRangeText(F).c_str(), m_deqPackets.size());

  LONG k = 0;
  while (!m_deqPackets.empty()) {
    IVCPacket* pPacket = m_deqPackets.front().Get();
    K_TIME Q{};
    K_PACKET_INFO info{};
    if (ComPtr<IKPacketRecord> cpRecord = VCPacketRecordOf(pPacket)) {
      cpRecord->RecordGet(&Q, &info);
    } else {
      pPacket->PacketTimeGet(&Q);
      pPacket->PacketInfoGet(&info);
    }
    if (Q.rtEndTime != VC_TIME_UNSET && F.rtStartTime != VC_TIME_UNSET && Q.rtEndTime < F.rtStartTime) {
      if (LogIsOn(eVCLL_Progress))
        fnLog(eVCLL_Progress, "SKIP:%ws Deq:%zd", VCPacketText(pPacket).c_str(), m_deqPackets.size());
      m_deqPackets.pop_front();
      continue;
    }
    if (Q.rtStartTime >= F.rtEndTime && k > 0) break;  // a later frame's packet
    const String strName = k == 0 ? String(W("video.encoded_packet"))
                                  : W("video.encoded_packet.") + IntText(k);
    if (LogIsOn(eVCLL_Progress))
      fnLog(eVCLL_Progress, "(%ws) %ws Deq:%zd", strName.c_str(), VCPacketText(pPacket).c_str(),
            m_deqPackets.size());
    if (options.bAttach) pFrame->VCObjSet(CBstr(StringView(strName)), pPacket);
    CopySideData(pPacket, pFrame);
    m_deqPackets.pop_front();
    if (XMLParse::XMLNodePtr spRoot = _PropsRootLocked())
      spRoot->SetAttributePath(W("stat::v_decode.pkt_delay"),
                               IntText(static_cast<int64_t>(m_deqPackets.size())), false);
    ++k;
  }
  if (LogIsOn(eVCLL_Progress))
    fnLog(eVCLL_Progress, "%ws NEXT:%ws Deq:%zd", k == 0 ? W("WARNING !!!") : W(""),
          m_deqPackets.empty() ? W("(none)") : VCPacketText(m_deqPackets.front().Get()).c_str(),
          m_deqPackets.size());
  return k;
}

HRESULT CCoVCDecoder::_FallBack(HRESULT hrFailure, IVCPacket* pPacket, LONGLONG rtSegmentStart,
                                K_AV_PROPS* pAVPropsOut, BSTR bsHints, ComPtr<IVCFrame>* pcpFrame) {
  // The packets to feed again: from the last key packet up to this one.
  std::vector<ComPtr<IVCPacket>> vecReplay;
  CKStreamInfo stream;
  {
    CKAutoLock lock(m_csLock);
    vecReplay.assign(m_deqReplay.begin(), m_deqReplay.end());
    stream = m_streamInfo;
  }
  if (pPacket) {
    K_PACKET_INFO info{};
    pPacket->PacketInfoGet(&info);
    if (info.eFlags & eVCPF_KeyFrame) vecReplay.clear();
    vecReplay.emplace_back(pPacket);
  }

  HRESULT hrLast = hrFailure;
  const String strPacket = VCPacketText(pPacket);
  for (;;) {
    String strFailing;
    {
      CKMutexLock select(m_csSelect);
      if (m_nInstalled >= 0 && static_cast<size_t>(m_nInstalled) < m_vecCandidates.size()) {
        m_vecCandidates[static_cast<size_t>(m_nInstalled)].nState = -1;
        m_vecFallbackMarked.push_back(m_nInstalled);
        strFailing = m_vecCandidates[static_cast<size_t>(m_nInstalled)].strName;
      }
    }
    {
      CKAutoLock lock(m_csLock);
      _SetStat(_Prefix(), ".fallback_reason",
               FromUtf8(Format("%ws hr=%08X Pkt:%ws", strFailing.c_str(), hrLast, strPacket.c_str())));
    }
    VC_LOG(eVCLL_Retry, "FALLBACK from '%ws' hr=%08X Pkt:%ws Replay:%zd", strFailing.c_str(), hrLast,
           strPacket.c_str(), vecReplay.size());

    const HRESULT hrSelect =
        _CreateDecoder(&stream.Get(), vecReplay.empty() ? nullptr : vecReplay.front().Get(), nullptr, true);
    if (hrSelect != S_OK) {
      VC_LOG(eVCLL_Error, "FALLBACK: no candidate left hr=%08X", hrLast);
      CKAutoLock lock(m_csLock);
      m_bReplayFilter = false;
      m_bBreakNext = false;
      m_deqHeld.clear();
      return hrLast;
    }
    {
      CKAutoLock lock(m_csLock);
      ++m_nFallbacks;
      _SetStat(_Prefix(), ".fallbacks", IntText(m_nFallbacks));
      m_bReplayFilter = true;  // frames the caller had from the failed decoder come again
      m_bBreakNext = true;
      m_deqHeld.clear();
    }
    ComPtr<IVCDecoder> cpDecoder = m_inner.Ref();
    bool bFailed = false;
    for (const ComPtr<IVCPacket>& cpPacket : vecReplay) {
      ComPtr<IVCFrame> cpFrame;
      m_nInFlight.fetch_add(1);
      const HRESULT hr =
          cpDecoder->DecodePacket(cpPacket.Get(), rtSegmentStart, pAVPropsOut, cpFrame.AddressOf(), bsHints);
      if (FAILED(hr)) {
        hrLast = hr;
        bFailed = true;
        break;
      }
      CKAutoLock lock(m_csLock);
      m_deqReplay.push_back(cpPacket);
      // The caller's own packet joins the attach queue on the normal path;
      // a packet at or before the latest frame the caller had went out with
      // that frame already.
      if (m_streamInfo.eMediaType == eVCMT_Video && cpPacket.Get() != pPacket) {
        K_TIME time{};
        cpPacket->PacketTimeGet(&time);
        if (m_rtLatestOut == VC_TIME_UNSET || time.rtStartTime == VC_TIME_UNSET || time.rtStartTime > m_rtLatestOut)
          m_deqPackets.push_back(cpPacket);
      }
      if (cpFrame) _TakeFrame(std::move(cpFrame));
    }
    if (!bFailed) break;
  }
  CKAutoLock lock(m_csLock);
  if (!m_deqHeld.empty()) {
    *pcpFrame = std::move(m_deqHeld.front());
    m_deqHeld.pop_front();
  }
  return S_OK;
}

void CCoVCDecoder::_TakeFrame(ComPtr<IVCFrame> cpFrame) {
  if (m_bReplayFilter) {
    K_TIME time{};
    cpFrame->VCTimeGet(&time);
    if (m_rtLatestOut != VC_TIME_UNSET && time.rtStartTime != VC_TIME_UNSET && time.rtStartTime <= m_rtLatestOut) {
      // The caller had this one from the decoder that failed.
      if (m_nInFlight.load() > 0) m_nInFlight.fetch_sub(1);
      return;
    }
    m_bReplayFilter = false;
  }
  m_deqHeld.push_back(std::move(cpFrame));
}

void CCoVCDecoder::_ResetStreamState() {
  m_deqPackets.clear();
  m_nInFlight.store(0);
  m_timePrev = K_TIME{};
  m_nTCFrame = -1;
  m_deqReplay.clear();
  m_deqHeld.clear();
  m_nNoOutput = 0;
  m_rtLatestOut = VC_TIME_UNSET;
  m_bReplayFilter = false;
  m_bBreakNext = false;
}

HRESULT CCoVCDecoder::DecodePacket(IVCPacket* _pVCPacket, LONGLONG _rtSegmentStart, K_AV_PROPS* _pAVPropsOut,
                                   IVCFrame** _ppFrame, BSTR _bsHints) {
  VC_GUARD_BEGIN
  ClearOut(_ppFrame);
  const CBstr bsHints(InString(_bsHints));  // inner objects get a real BSTR whatever the host passed
  VC_LOG(eVCLL_Progress, "Seg:%ws Hints:%ws Pkt:%ws", TimeTextW(_rtSegmentStart).c_str(),
         String(bsHints.View()).c_str(), VCPacketText(_pVCPacket).c_str());

  if (!m_inner.Has()) {
    const HRESULT hr = DecodeIsSupported(nullptr, _pVCPacket, nullptr);
    if (hr != S_OK) {
      VC_LOG(eVCLL_Error, "DecodeIsSupported()=%08X", hr);
      return VC_E_NO_CANDIDATE;
    }
  }
  if (_pVCPacket) _CreateDecoder(nullptr, _pVCPacket, nullptr);

  const COptions options = _ReadOptions();
  String strPrefix;
  uint32_t nGeneration = 0;
  bool bPublish = true;
  K_PACKET_INFO pktInfo{};
  if (_pVCPacket) _pVCPacket->PacketInfoGet(&pktInfo);
  {
    CKAutoLock lock(m_csLock);
    nGeneration = m_nStreamGeneration;
    strPrefix = _Prefix();
    const double dblInputRate = m_inputRate.Add(1);
    // The averaged statistics are rendered as text at most every 100 ms: at
    // thousands of audio packets a second the text, not the measuring, is
    // what costs. Counters stay exact on every packet.
    const auto tpNow = std::chrono::steady_clock::now();
    bPublish = !_pVCPacket || nGeneration != m_nPublishGeneration || tpNow - m_tpPublished >= kPublishEvery;
    if (bPublish) {
      m_nPublishGeneration = nGeneration;
      m_tpPublished = tpNow;
      _SetStat(strPrefix, ".input_fps", VCStatDoubleText(dblInputRate));
    }
    if (!_pVCPacket) {
      // A drain shows the latest averages of the packets before it.
      std::unique_ptr<KPacketStats>& spStats =
          m_streamInfo.eMediaType == eVCMT_Video ? m_spVideoStats : m_spAudioStats;
      XMLParse::XMLNodePtr spRoot = _PropsRootLocked();
      if (spStats && spRoot) spStats->Publish(spRoot->CreateNode(W("stat")).get());
    }
    if (_pVCPacket && (pktInfo.eFlags & eVCPF_SegmentStart)) {
      VC_LOG(eVCLL_Progress, "SEGMENT START [%ws] Reset packets:%zd", VCPacketText(_pVCPacket).c_str(),
             m_deqPackets.size());
      m_deqPackets.clear();
      m_nTCFrame = -1;
      m_nInFlight.store(0);
      m_timePrev = K_TIME{};
      // A new segment is a new start: nothing held back belongs to it.
      m_deqHeld.clear();
      m_deqReplay.clear();
      m_rtLatestOut = VC_TIME_UNSET;
      m_bReplayFilter = false;
    }
  }
  m_perf.Start();

  ComPtr<IVCFrame> cpVCFrame;
  HRESULT hr = S_OK;
  bool bHeldOnly = false;
  {
    CKAutoLock lock(m_csLock);
    bHeldOnly = !_pVCPacket && !m_deqHeld.empty();  // a drain hands out what a replay held back first
  }
  if (!bHeldOnly) {
    ComPtr<IVCDecoder> cpVCDecoder = m_inner.Ref();
    if (!cpVCDecoder) {
      VC_DECODER_CHECK(cpVCDecoder, "cpVCDecoder");
      return VC_E_EMPTY;
    }
    if (_pVCPacket) m_nInFlight.fetch_add(1);
    hr = cpVCDecoder->DecodePacket(_pVCPacket, _rtSegmentStart, _pAVPropsOut, cpVCFrame.AddressOf(), bsHints);
    bool bNoOutputTrigger = false;
    if (SUCCEEDED(hr) && options.bFallback && _pVCPacket) {
      CKAutoLock lock(m_csLock);
      m_nNoOutput = cpVCFrame ? 0 : m_nNoOutput + 1;
      bNoOutputTrigger = options.llNoOutputMax > 0 && m_nNoOutput >= options.llNoOutputMax;
      if (bNoOutputTrigger) m_nNoOutput = 0;
    }
    if (hr == VC_E_END_OF_MEDIA && !_pVCPacket) {
      // A drained decoder says so: the normal end, not a decoding error.
      VC_LOG(eVCLL_Progress, "m_cpVCDecoder->DecodePacket(%ws) hr=%08X", VCPacketText(_pVCPacket).c_str(), hr);
      return hr;
    }
    bool bFellBack = false;
    if (FAILED(hr) || bNoOutputTrigger) {
      if (FAILED(hr)) {
        CKAutoLock lock(m_csLock);
        ++m_nDecodeErrors;
        _SetStat(strPrefix, ".decode_error", IntText(m_nDecodeErrors));
        VC_LOG(eVCLL_Retry, "m_cpVCDecoder->DecodePacket(%ws) hr=%08X", VCPacketText(_pVCPacket).c_str(), hr);
      }
      // A drain has no packet to start a replay from.
      if (!options.bFallback || !_pVCPacket) return hr;
      m_nInFlight.fetch_sub(1);  // the replay counts the packet again
      ComPtr<IVCFrame> cpHeld;
      const HRESULT hrFallBack = _FallBack(hr, _pVCPacket, _rtSegmentStart, _pAVPropsOut, bsHints, &cpHeld);
      if (hrFallBack == S_OK) {
        bFellBack = true;
        cpVCFrame = std::move(cpHeld);
        hr = S_OK;
      } else if (FAILED(hr)) {
        return hrFallBack;
      } else {
        m_nInFlight.fetch_add(1);  // no candidate left: the old decoder keeps the packet and goes on
      }
    }
    if (!bFellBack) {
      CKAutoLock lock(m_csLock);
      if (options.bFallback && _pVCPacket) {
        if (pktInfo.eFlags & eVCPF_KeyFrame) m_deqReplay.clear();
        if (m_deqReplay.size() >= kReplayMax) m_deqReplay.pop_front();
        m_deqReplay.emplace_back(_pVCPacket);
      }
      if (cpVCFrame || !m_deqHeld.empty()) {
        if (cpVCFrame) _TakeFrame(std::move(cpVCFrame));
        cpVCFrame = nullptr;
        if (!m_deqHeld.empty()) {
          cpVCFrame = std::move(m_deqHeld.front());
          m_deqHeld.pop_front();
        }
      }
    }
  } else {
    CKAutoLock lock(m_csLock);
    cpVCFrame = std::move(m_deqHeld.front());
    m_deqHeld.pop_front();
  }

  bool bRepublish = false;
  {
    CKAutoLock lock(m_csLock);
    if (_pVCPacket) {
      XMLParse::XMLNodePtr spRoot = _PropsRootLocked();
      XMLParse::XMLNodePtr spStat = spRoot && bPublish ? spRoot->CreateNode(W("stat")) : nullptr;
      std::unique_ptr<KPacketStats>& spStats =
          m_streamInfo.eMediaType == eVCMT_Video ? m_spVideoStats : m_spAudioStats;
      if (!spStats) spStats = std::make_unique<KPacketStats>(ToUtf8(strPrefix));
      spStats->Update(_pVCPacket, bPublish ? spStat.get() : nullptr);
    }

    const bool bVideo = m_bHasStream && m_streamInfo.eMediaType == eVCMT_Video;
    if (cpVCFrame) {
      const LONG nInFlight = m_nInFlight.fetch_sub(1) - 1;
      _SetStat(strPrefix, ".pkt_diff", IntText(nInFlight));
      K_TIME time{};
      cpVCFrame->VCTimeGet(&time);
      if (time.rtStartTime != VC_TIME_UNSET)
        m_rtLatestOut = m_rtLatestOut == VC_TIME_UNSET ? time.rtStartTime : std::max(m_rtLatestOut, time.rtStartTime);
      if (bVideo) {
        ++m_nTCFrame;
        if (m_startTC.bSet)
          time.tcFrame = TimecodeOf(static_cast<int64_t>(m_startTC.nFrame) + m_nTCFrame, m_streamInfo.dblRate,
                                    m_startTC.bDrop);
      }
      if (options.bCorrectTimes) _CorrectTime(cpVCFrame.Get(), &time, _rtSegmentStart);
      if (m_bBreakNext) {
        time.eFFlags = static_cast<eKFrameFlags>((static_cast<LONG>(time.eFFlags) & ~0x30) | eKFF_Break);
        m_bBreakNext = false;
      }
      cpVCFrame->VCTimeSet(&time);
      m_timePrev = time;
    }

    if (_pVCPacket && bVideo) {
      m_deqPackets.emplace_back(_pVCPacket);
      if (static_cast<LONGLONG>(m_deqPackets.size()) > options.llMaxDeq) {
        VC_LOG(eVCLL_Retry, "Packet Deq Exceed Max:%zd POP:%ws", m_deqPackets.size(),
               VCPacketText(m_deqPackets.front().Get()).c_str());
        m_deqPackets.pop_front();
      }
    }
    if (!cpVCFrame) {
      VC_LOG(eVCLL_Progress, "m_cpVCDecoder->DecodePacket(%ws) DELAY Deq:%zd", VCPacketText(_pVCPacket).c_str(),
             m_deqPackets.size());
      return hr;
    }

    if (bVideo)
      _AttachPacketsAndCopyData(cpVCFrame.Get(), options);
    else
      m_deqPackets.clear();  // audio packets are never kept

    bRepublish = nGeneration != m_nStreamGeneration;
    m_perf.Stop(1);
    const bool bLog = LogIsOn(eVCLL_Progress);
    const std::string strPerf = bPublish || bLog ? m_perf.Text(true) : std::string();
    VC_LOG(eVCLL_Progress, "OK PERF:%ws (Seg:%s) %ws [%ws] Deq:%zd", FromUtf8(strPerf).c_str(),
           TimeText(_rtSegmentStart).c_str(), VCFrameText(cpVCFrame.Get()).c_str(), VCPacketText(_pVCPacket).c_str(),
           m_deqPackets.size());
    if (bPublish) _SetStat(strPrefix, ".performance", FromUtf8(strPerf));
  }
  if (bRepublish) _PublishDecoderInfo(m_inner.Ref().Get());
  VC_DECODER_CHECK(cpVCFrame, "cpVCFrame");
  *_ppFrame = cpVCFrame.Detach();
  return hr;
  VC_GUARD_END
}

HRESULT CCoVCDecoder::DecodeAudio(IVCPacket* _pVCPacket, LONGLONG _rtSegmentStart, IVCAudioBuffer* _pAudioBuffer,
                                  LONG* _plSamplesDecode, BSTR _bsHints) {
  VC_GUARD_BEGIN
  if (!_pVCPacket || !_pAudioBuffer) return E_INVALIDARG;
  if (!m_inner.Has()) {
    const HRESULT hr = DecodeIsSupported(nullptr, _pVCPacket, nullptr);
    if (hr != S_OK) {
      VC_LOG(eVCLL_Error, "DecodeIsSupported()=%08X", hr);
      return VC_E_NO_CANDIDATE;
    }
  }
  if (_plSamplesDecode) *_plSamplesDecode = 0;
  ComPtr<IVCDecoder> cpVCDecoder = m_inner.Ref();
  if (!cpVCDecoder) {
    VC_DECODER_CHECK(cpVCDecoder, "cpVCDecoder");
    return E_UNEXPECTED;
  }
  const CBstr bsHints(InString(_bsHints));
  const HRESULT hr = cpVCDecoder->DecodeAudio(_pVCPacket, _rtSegmentStart, _pAudioBuffer, _plSamplesDecode, bsHints);
  if (FAILED(hr))
    VC_LOG(eVCLL_Error, "cpVCDecoder->DecodeAudio(%ws) FAILED hr=%08X", VCPacketText(_pVCPacket).c_str(), hr);
  return hr;
  VC_GUARD_END
}

HRESULT CCoVCDecoder::DecodeClose() {
  VC_GUARD_BEGIN
  ComPtr<IVCDecoder> cpVCDecoder = m_inner.Ref();
  String strCodec;
  if (cpVCDecoder) {
    ComPtr<IVCProps> cpProps;
    if (SUCCEEDED(cpVCDecoder->QueryInterface(IidOf<IVCProps>(), reinterpret_cast<void**>(cpProps.AddressOf()))) &&
        cpProps)
      strCodec = ReadPropText(cpProps.Get(), W("codec_name"), W(""));
  }
  {
    CKMutexLock select(m_csSelect);
    CKAutoLock lock(m_csLock);
    ComPtr<IVCDecoder> cpDetached = m_inner.Detach();
    if (cpDetached) cpVCDecoder = std::move(cpDetached);
    VC_LOG(eVCLL_Progress, "(%ws) m_cpVCDecoder=%08X (Packet Deq:%zd)", strCodec.c_str(),
           static_cast<unsigned>(reinterpret_cast<uintptr_t>(cpVCDecoder.Get())), m_deqPackets.size());
    m_streamInfo = CKStreamInfo();
    m_bHasStream = false;
    ++m_nStreamGeneration;
    _ResetStreamState();
    m_startTC = CStartTC();
    m_nInstalled = -1;
  }
  HRESULT hr = S_FALSE;
  if (cpVCDecoder) {
    hr = cpVCDecoder->DecodeClose();
    if (FAILED(hr)) VC_LOG(eVCLL_Error, "(%ws) cpVCDecoder->DecodeClose() = %08X", strCodec.c_str(), hr);
  }
  {
    CKAutoLock lock(m_csLock);
    if (XMLParse::XMLNodePtr spRoot = _PropsRootLocked()) {
      if (XMLParse::XMLNodePtr spStat = spRoot->FindNode(W("stat"))) {
        for (size_t n = spStat->AttributeCount(); n-- > 0;) {
          const XMLParse::XMLAttribute* pAttr = spStat->AttributeAt(n);
          if (!pAttr) continue;
          const StringView name(pAttr->strName);
          if (name.rfind(W("v_decode."), 0) == 0 || name.rfind(W("a_decode."), 0) == 0)
            spStat->RemoveAttribute(String(name));
        }
      }
    }
    m_spVideoStats.reset();
    m_spAudioStats.reset();
    m_nDecodeErrors = 0;
    m_nFallbacks = 0;
  }
  return hr;
  VC_GUARD_END
}

}  // namespace vc
