#include "VCCodecs/VCPackets.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "VCFormat.h"
#include "VCLog.h"
#include "VCTimeText.h"

#define VC_PACKETS_ASSERT(cond) VC_ASSERT_AT(cond, "Include/VCCodecs/VCPackets")

namespace vc {

namespace {

using RefTimeDuration = std::chrono::duration<int64_t, std::ratio<1, VC_TIME_SECOND>>;
// Gaps that count as a packet duration: just over 1 ms up to below 1 s.
constexpr LONGLONG kMinGap = 10001;
constexpr LONGLONG kMaxGap = VC_TIME_SECOND;
// Per-packet lines come at the lowest level; queue events one above.
constexpr int kLogPacket = eVCLL_Progress;
constexpr int kLogEvent = eVCLL_Info;

// a - b without overflow trouble for unset times (wraps like the hardware).
LONGLONG WrapSub(LONGLONG a, LONGLONG b) {
  return static_cast<LONGLONG>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

// The drop threshold 2 x rtMax + 2 s, saturated for "no limit" values.
LONGLONG DropThreshold(LONGLONG rtMax) {
  constexpr LONGLONG kMax = std::numeric_limits<LONGLONG>::max();
  constexpr LONGLONG kMin = std::numeric_limits<LONGLONG>::min();
  if (rtMax > (kMax - 2 * VC_TIME_SECOND) / 2) return kMax;
  if (rtMax < kMin / 2 + VC_TIME_SECOND) return kMin;
  return 2 * rtMax + 2 * VC_TIME_SECOND;
}

BSTR AllocBstr(const std::string& strUtf8) {
  const String str = FromUtf8(strUtf8);
  return SysAllocStringLen(str.data(), static_cast<UINT>(str.size()));
}

}  // namespace

std::string VCSizeText(LONGLONG llBytes) {
  const bool bNegative = llBytes < 0;
  uint64_t u = bNegative ? 0 - static_cast<uint64_t>(llBytes) : static_cast<uint64_t>(llBytes);
  std::string strDigits;
  int nDigits = 0;
  do {
    if (nDigits > 0 && nDigits % 3 == 0) strDigits.push_back(',');
    strDigits.push_back(static_cast<char>('0' + u % 10));
    u /= 10;
    ++nDigits;
  } while (u != 0);
  if (bNegative) strDigits.push_back('-');
  return std::string(strDigits.rbegin(), strDigits.rend());
}

VCPacketRecord::VCPacketRecord(IVCPacket* pPacket, const CKStreamInfo& hint) : cpVCPacket(pPacket) {
  if (!pPacket) return;
  if (ComPtr<IKPacketRecord> cpRecord = VCPacketRecordOf(pPacket)) {
    // One of ours: one call for time and info, and the description shared.
    cpRecord->RecordGet(&time, &pktInfo);
    stmInfo = *cpRecord->StreamInfoPeek();
    return;
  }
  pPacket->PacketTimeGet(&time);
  pPacket->PacketInfoGet(&pktInfo);
  K_STREAM_INFO streamInfo{};
  if (SUCCEEDED(pPacket->PacketStreamInfoGet(&streamInfo))) {
    stmInfo = CKStreamInfo::FromShared(streamInfo, hint);
    SysFreeString(streamInfo.bsCodecNameOrTag);  // the copy handed to us
  }
}

// ---------------------------------------------------------------------------
// VCPacketDeq

VCPacketDeq::VCPacketDeq()
    : m_hEvent(std::make_shared<CKEvent>(false)), m_tpLastPut(std::chrono::steady_clock::now()) {}

VCPacketDeq::~VCPacketDeq() = default;

String VCPacketDeq::_PacketText(const VCPacketRecord& packetInfo) const {
  const K_PACKET_INFO& info = packetInfo.pktInfo;
  return FromUtf8(Format("Stm:%d #%d Ord:%d Key:%d Flags:0x%X Time:%ws..%ws Pts:%I64d Size:%d", info.nStreamIndex,
                         info.nIndexInSegment, info.nOrderInSegment, info.nKeyDistance,
                         static_cast<unsigned>(info.eFlags), TimeTextW(packetInfo.time.rtStartTime).c_str(),
                         TimeTextW(packetInfo.time.rtEndTime).c_str(), info.llPts, info.cbPacketData));
}

LONGLONG VCPacketDeq::_Duration() const {
  const LONGLONG llCount = static_cast<LONGLONG>(m_deqPackets.size());
  if (llCount == 0) return -1;
  if (m_rtMinPacketTime >= 1) return llCount * m_rtMinPacketTime;
  // No gap known yet: each packet counts 20 ms, count / 50.0 x 10^7 rounded,
  // which is exactly count x 200000 for any count a queue can hold.
  return llCount * (VC_TIME_SECOND / 50);
}

LONGLONG VCPacketDeq::DeqPut(IVCPacket* _pPacket, LONGLONG rtReady, LONGLONG rtMax, bool bDropAllowed,
                             K_TIME* pTime, K_PACKET_INFO* pPacketInfo) {
  VC_PACKETS_ASSERT(_pPacket);
  CKMutexLock lock(m_csLock);
  if (!_pPacket) return _Duration();

  // One sample per packet: the time since the previous put, read once from
  // the steady clock (the rate report turns the average into packets/s).
  const auto tpNow = std::chrono::steady_clock::now();
  m_rate.Add(static_cast<double>(std::chrono::duration_cast<RefTimeDuration>(tpNow - m_tpLastPut).count()));
  m_tpLastPut = tpNow;
  VCPacketRecord packetInfo(_pPacket, m_stmInfoLast);
  if (!packetInfo.stmInfo.SharesStorageWith(m_stmInfoLast)) m_stmInfoLast = packetInfo.stmInfo;

  _BeginSegmentOf(packetInfo);
  VC_PACKETS_ASSERT(!m_bEOS);
  m_bEOS.store(false, std::memory_order_relaxed);
  m_bitrate.Push(packetInfo.time.rtStartTime, packetInfo.pktInfo.cbPacketData, 1.0);
  _Stamp(packetInfo);
  _TrackTime(packetInfo);
  m_llSizeBytes += packetInfo.pktInfo.cbPacketData;
  _CheckStream(packetInfo);

  VC_LOG(kLogPacket, "[%ws] Deq:%d(%I64d bytes) DeqTimes:%ws..%ws (Seg:%ws)", _PacketText(packetInfo).c_str(),
         static_cast<int>(m_deqPackets.size()), m_llSizeBytes, TimeTextW(m_rtTimeFirst).c_str(),
         TimeTextW(m_rtTimeLast).c_str(), TimeTextW(m_rtSegmentStart).c_str());
  m_deqPackets.push_back(std::move(packetInfo));
  return _Admit(m_deqPackets.back(), rtReady, rtMax, bDropAllowed, pTime, pPacketInfo);
}

void VCPacketDeq::_BeginSegmentOf(const VCPacketRecord& packetInfo) {
  if (m_rtSegmentStart == packetInfo.pktInfo.rtSegmentStart) return;
  _Clear();
  m_rtSegmentStart = packetInfo.pktInfo.rtSegmentStart;
}

void VCPacketDeq::_Stamp(VCPacketRecord& packetInfo) {
  K_PACKET_INFO& info = packetInfo.pktInfo;
  if (info.eFlags & eVCPF_KeyFrame) m_nKeyDistance = 0;
  info.nIndexInSegment = m_nPacketsInSegment;
  info.nKeyDistance = m_nKeyDistance;
  if (m_nPacketsInSegment == 0) info.eFlags = static_cast<eVCPacketFlags>(info.eFlags | eVCPF_SegmentStart);
  packetInfo.cpVCPacket->PacketInfoSet(&info);
  ++m_nPacketsInSegment;
  if (m_nKeyDistance >= 0) ++m_nKeyDistance;
}

void VCPacketDeq::_TrackTime(VCPacketRecord& packetInfo) {
  K_TIME& time = packetInfo.time;
  if (!VCPacketHasTime(time)) {
    if (VCPacketHasTime(m_lastTime)) time = m_lastTime;
    return;
  }
  if (m_rtTimeLast != VC_TIME_UNSET && m_rtTimeLast <= time.rtStartTime) {
    const LONGLONG rtGap = WrapSub(time.rtEndTime, m_rtTimeLast);
    if (rtGap >= kMinGap && rtGap < kMaxGap) {
      VC_LOG(kLogPacket, "Pkt Time:%ws Min:%ws", TimeTextW(rtGap).c_str(), TimeTextW(m_rtMinPacketTime).c_str());
      m_rtMinPacketTime = m_rtMinPacketTime > 0 ? std::min(m_rtMinPacketTime, rtGap) : rtGap;
    }
  }
  if (m_rtTimeFirst == VC_TIME_UNSET || m_rtTimeFirst > time.rtStartTime) m_rtTimeFirst = time.rtStartTime;
  if (time.rtEndTime > m_rtTimeLast) m_rtTimeLast = time.rtEndTime;
  m_lastTime = time;
}

void VCPacketDeq::_CheckStream(const VCPacketRecord& packetInfo) {
  VC_PACKETS_ASSERT(m_nStream < 0 || m_nStream == packetInfo.pktInfo.nStreamIndex);
  m_nStream.store(packetInfo.pktInfo.nStreamIndex, std::memory_order_relaxed);
  if (!m_deqPackets.empty()) {
    VC_PACKETS_ASSERT(m_deqPackets.back().pktInfo.nStreamIndex == packetInfo.pktInfo.nStreamIndex);
    VC_PACKETS_ASSERT(m_deqPackets.back().pktInfo.rtSegmentStart == packetInfo.pktInfo.rtSegmentStart);
  }
}

LONGLONG VCPacketDeq::_Admit(const VCPacketRecord& packetInfo, LONGLONG rtReady, LONGLONG rtMax, bool bDropAllowed,
                             K_TIME* pTime, K_PACKET_INFO* pPacketInfo) {
  VC_PACKETS_ASSERT(m_eMediaType == eVCMT_Empty || m_eMediaType == packetInfo.stmInfo.eMediaType);
  VC_PACKETS_ASSERT(packetInfo.stmInfo.eMediaType != eVCMT_Empty);
  m_eMediaType = packetInfo.stmInfo.eMediaType;
  if (pTime) *pTime = packetInfo.time;
  if (pPacketInfo) *pPacketInfo = packetInfo.pktInfo;

  const LONGLONG rtDuration = _Duration();
  LONGLONG rtAfter = rtDuration;
  if (rtDuration >= rtReady) {
    m_hEvent->Set();
    if (rtDuration > DropThreshold(rtMax) && bDropAllowed) {
      // A leak valve, not a trim: one packet per put. The text of the packet
      // just put is taken first, as the drop may remove that very record.
      const String strPacket = LogIsOn(eVCLL_Retry) ? _PacketText(packetInfo) : String();
      ++m_llDropped;
      VC_PACKETS_ASSERT(m_deqPackets.size() > 0);
      if (!m_deqPackets.empty()) {
        m_llSizeBytes -= m_deqPackets.front().pktInfo.cbPacketData;
        m_deqPackets.pop_front();
      }
      rtAfter = _Duration();
      VC_LOG(eVCLL_Retry, "%I64d Packet dropped :[%ws] DeqTime:%ws Deq:%d(%I64d bytes) DeqTimes:%ws..%ws (Seg:%ws)",
             m_llDropped, strPacket.c_str(), TimeTextW(rtDuration).c_str(), static_cast<int>(m_deqPackets.size()),
             m_llSizeBytes, TimeTextW(m_rtTimeFirst).c_str(), TimeTextW(m_rtTimeLast).c_str(),
             TimeTextW(m_rtSegmentStart).c_str());
    }
  }
  return rtAfter;
}

HRESULT VCPacketDeq::DeqGet(IVCPacket** ppPacket, bool bRemove) {
  CKMutexLock lock(m_csLock);
  if (m_deqPackets.empty()) return m_bEOS ? VC_E_END_OF_MEDIA : VC_E_EMPTY;

  // The front record is read where it lies: a removal takes its packet
  // reference and the few fields it still needs, then lets the slot go.
  VCPacketRecord& front = m_deqPackets.front();
  VC_PACKETS_ASSERT(front.cpVCPacket);
  if (!bRemove) {
    _LogGet(LogIsOn(kLogPacket) ? _PacketText(front) : String());
    return ppPacket ? front.cpVCPacket.CopyTo(ppPacket) : S_OK;
  }
  const String strPacket = LogIsOn(kLogPacket) ? _PacketText(front) : String();
  const K_PACKET_INFO& info = front.pktInfo;
  const LONG nStream = info.nStreamIndex;
  const LONG nIndex = info.nIndexInSegment;
  const LONGLONG llPts = info.llPts;
  const bool bHasTime = VCPacketHasTime(front.time);
  const LONGLONG rtStart = front.time.rtStartTime;
  m_llSizeBytes -= info.cbPacketData;
  ComPtr<IVCPacket> cpVCPacket = std::move(front.cpVCPacket);
  m_deqPackets.pop_front();
  if (m_deqPackets.empty()) {
    const bool bEOS = m_bEOS;
    VC_LOG(kLogEvent, "(Stream:%d) Seg:%ws #%d Pts:%I64d - %ws READY EVENT\n", nStream,
           TimeTextW(m_rtSegmentStart).c_str(), nIndex, llPts, bEOS ? W("KEEP(EOS)") : W("RESET"));
    // After end of stream the event stays set, so waiters see the end.
    if (!bEOS) m_hEvent->Reset();
    m_rtTimeFirst = VC_TIME_UNSET;
    m_rtTimeLast = VC_TIME_UNSET;
    VC_PACKETS_ASSERT(m_llSizeBytes == 0);
    m_llSizeBytes = 0;
  } else if (bHasTime) {
    m_rtTimeFirst = std::max(rtStart, m_rtTimeFirst);
  }
  _LogGet(strPacket);
  if (ppPacket) *ppPacket = cpVCPacket.Detach();  // the record's reference goes to the caller
  return S_OK;
}

void VCPacketDeq::_LogGet(const String& strPacket) const {
  VC_LOG(kLogPacket, "[%ws] Deq:%d(%I64d bytes) DeqTimes:%ws..%ws (Seg:%ws)", strPacket.c_str(),
         static_cast<int>(m_deqPackets.size()), m_llSizeBytes, TimeTextW(m_rtTimeFirst).c_str(),
         TimeTextW(m_rtTimeLast).c_str(), TimeTextW(m_rtSegmentStart).c_str());
}

void VCPacketDeq::DeqEOS() {
  VC_LOG(kLogEvent, "VCPacketDeq::DeqEOS(%d)\n", static_cast<int>(m_nStream));
  m_bEOS = true;
  m_hEvent->Set();
}

void VCPacketDeq::DeqClear() {
  CKMutexLock lock(m_csLock);
  _Clear();
}

void VCPacketDeq::_Clear() {
  VC_LOG(kLogEvent, "VCPacketDeq::DeqClear() Seg:%s Time:%s- RESET READY EVENT\n", TimeText(m_rtSegmentStart).c_str(),
         TimeText(_Duration()).c_str());
  m_hEvent->Reset();
  m_deqPackets.clear();
  m_nPacketsInSegment = 0;
  m_rtSegmentStart = -1;
  m_nKeyDistance = -1;
  m_rtMinPacketTime = 0;
  m_rtTimeFirst = VC_TIME_UNSET;
  m_rtTimeLast = VC_TIME_UNSET;
  m_llSizeBytes = 0;
  m_bEOS = false;
  m_bWaitStream = false;
  m_lastTime = K_TIME{};
  m_rate.Clear();
  m_tpLastPut = std::chrono::steady_clock::now();
  m_bitrate.Reset();
  m_llDropped = 0;
}

bool VCPacketDeq::DeqReset(LONGLONG rtSegmentStart, bool bForce) {
  CKMutexLock lock(m_csLock);
  if (!m_deqPackets.empty()) {
    VC_PACKETS_ASSERT(m_rtSegmentStart == m_deqPackets.front().pktInfo.rtSegmentStart);
    const bool bHoldsSegmentFromStart = !bForce && rtSegmentStart >= 0 && !m_bEOS &&
                                        m_rtSegmentStart == rtSegmentStart &&
                                        m_deqPackets.front().pktInfo.nIndexInSegment == 0;
    if (bHoldsSegmentFromStart) return false;
    _Clear();
    m_rtSegmentStart = rtSegmentStart;
    return true;
  }
  _Clear();
  m_rtSegmentStart = rtSegmentStart;
  m_bEOS = false;
  return true;
}

LONG VCPacketDeq::DeqSetSegment(LONGLONG rtSegmentStart) {
  CKMutexLock lock(m_csLock);
  m_rtSegmentStart = rtSegmentStart;
  m_deqPackets.ForEach([rtSegmentStart](VCPacketRecord& record) { record.pktInfo.rtSegmentStart = rtSegmentStart; });
  return static_cast<LONG>(m_deqPackets.size());
}

bool VCPacketDeq::DeqCompareOrder(LONG* _pnCompare) {
  VC_PACKETS_ASSERT(_pnCompare);
  CKMutexLock lock(m_csLock);
  if (!_pnCompare || m_deqPackets.empty()) return false;
  const LONG nOrder = m_deqPackets.front().pktInfo.nOrderInSegment;
  if (nOrder >= *_pnCompare) return false;
  *_pnCompare = nOrder;
  return true;
}

LONGLONG VCPacketDeq::DeqDescription(LONGLONG* prtSpan, BSTR* pbsText, LONGLONG* pllDropped) {
  if (pbsText) *pbsText = nullptr;
  CKMutexLock lock(m_csLock);
  const LONGLONG rtDuration = _Duration();
  // The test reads inverted on purpose and is kept that way: with real data
  // (last after first) the span reads 0, and readers rely on that.
  if (prtSpan) *prtSpan = m_rtTimeLast <= m_rtTimeFirst ? WrapSub(m_rtTimeLast, m_rtTimeFirst) : 0;
  if (pbsText) {
    *pbsText = AllocBstr(Format("Seg:%ws %ws(Idx:%d) Deq:%s...%s(%s, %d items by %s) (%s bytes)",
                                TimeTextW(m_rtSegmentStart).c_str(), m_bEOS ? W("EOS ") : W(""), m_nPacketsInSegment,
                                TimeText(m_rtTimeFirst).c_str(), TimeText(m_rtTimeLast).c_str(),
                                TimeText(rtDuration).c_str(), static_cast<int>(m_deqPackets.size()),
                                TimeText(m_rtMinPacketTime).c_str(), VCSizeText(m_llSizeBytes).c_str()));
  }
  if (pllDropped) *pllDropped = m_llDropped;
  return rtDuration;
}

LONGLONG VCPacketDeq::DeqDuration() {
  CKMutexLock lock(m_csLock);
  return _Duration();
}

LONG VCPacketDeq::DeqSize() {
  CKMutexLock lock(m_csLock);
  return static_cast<LONG>(m_deqPackets.size());
}

bool VCPacketDeq::IsWaitStream() {
  CKMutexLock lock(m_csLock);
  return m_bWaitStream;
}

void VCPacketDeq::SetWaitStream(bool bWaitStream) {
  CKMutexLock lock(m_csLock);
  m_bWaitStream = bWaitStream;
}

eVCMediaType VCPacketDeq::MediaTypeGet(LONG* pnAVIndex) {
  CKMutexLock lock(m_csLock);
  if (pnAVIndex) *pnAVIndex = m_nAVIndex;
  return m_eMediaType;
}

VCPacketDeq::CState VCPacketDeq::StateGet() {
  CKMutexLock lock(m_csLock);
  CState state;
  state.bEOS = m_bEOS;
  state.bWaitStream = m_bWaitStream;
  state.eMediaType = m_eMediaType;
  state.rtDuration = _Duration();
  state.llCount = static_cast<LONGLONG>(m_deqPackets.size());
  return state;
}

LONG VCPacketDeq::BitrateGet() {
  CKMutexLock lock(m_csLock);
  return m_bitrate.Rate();
}

std::string VCPacketDeq::RateText() {
  CKMutexLock lock(m_csLock);
  return m_rate.Text(true);
}

}  // namespace vc
