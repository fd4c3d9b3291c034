// The splitter's packet queues. VCPacketDeq holds the compressed packets of
// one elementary stream between the reading thread, which puts them in, and
// the consumer of that stream, which takes them out: it numbers packets within
// their segment, keeps the byte count and time span of what it holds,
// estimates the play time held, sets a ready event once enough is buffered,
// and, when allowed, lets the oldest packet go when far too much is buffered.
// VCPacketsStreams<TOwner, TDeq> is the set of queues of one source, one per
// stream index, with the lookups the reading thread and the packet delivery
// need (which stream comes next, how much is buffered) and an aggregate
// bit-rate meter over all streams.
//
// Threads: the reading thread puts, signals end of stream and resets; any
// number of consumer threads get packets, wait on ready events and read
// statistics. Each queue serialises its operations with its own lock (except
// DeqEOS, which only raises a flag and sets the event); the set's
// reader/writer lock guards the map and is always taken before a queue's lock,
// never after. Internal checks report through VC_ASSERT_AT with the path
// "Include/VCCodecs/VCPackets" and carry on.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <span>
#include <string>
#include <vector>

#include "KAverageTime.h"
#include "KBitrateCalc.h"
#include "KClock.h"
#include "KRing.h"
#include "VCAssert.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCCodecs/VCPacket.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCCritSec.h"
#include "VCEvent.h"
#include "VCSharedLock.h"
#include "VCStrings.h"

namespace vc {

// One queue element, and the unit the delivery copies out: the packet's time,
// info and stream description as read at put time (the info then stamped by
// the queue), plus a counted reference to the packet. Copying adds a
// reference; destruction releases it.
struct VCPacketRecord {
  K_TIME time{};
  K_PACKET_INFO pktInfo{};
  ComPtr<IVCPacket> cpVCPacket;
  CKStreamInfo stmInfo;

  VCPacketRecord() = default;
  // Reads the packet's info, stream description and time and keeps a
  // reference to it. A stream description equal to hint's shares its storage.
  explicit VCPacketRecord(IVCPacket* pPacket, const CKStreamInfo& hint = CKStreamInfo());
};

// A packet has no time when its start equals its end and that value is 0 or
// unset; such packets inherit the time of the last one that had a time.
inline bool VCPacketHasTime(const K_TIME& time) {
  return !(time.rtStartTime == time.rtEndTime && (time.rtStartTime == 0 || time.rtStartTime == VC_TIME_UNSET));
}

// A byte count as log and statistics text: decimal digits grouped in threes
// with commas ("1,234,567"), so that "(%s bytes)" reads naturally.
std::string VCSizeText(LONGLONG llBytes);

class VCPacketDeq {
 public:
  VCPacketDeq();
  virtual ~VCPacketDeq();
  VCPacketDeq(const VCPacketDeq&) = delete;
  VCPacketDeq& operator=(const VCPacketDeq&) = delete;

  // Appends a packet (reading thread). Stamps its index in the segment, key
  // distance and segment-start flag, writes the stamped info back into the
  // packet, and sets the ready event once the duration reaches rtReady. When
  // bDropAllowed and the duration exceeds 2 x rtMax + 2 s, the oldest packet
  // goes (one per put). The optional outputs receive the stored time and info.
  // Returns the duration after the put, in 100 ns.
  LONGLONG DeqPut(IVCPacket* _pPacket, LONGLONG rtReady, LONGLONG rtMax, bool bDropAllowed,
                  K_TIME* pTime = nullptr, K_PACKET_INFO* pPacketInfo = nullptr);
  // Hands out the oldest packet (a new reference) when ppPacket is given, and
  // removes it when bRemove (otherwise a peek). Empty: 0x8007044C after end of
  // stream, else 0x800710D2, and nothing changes.
  HRESULT DeqGet(IVCPacket** ppPacket, bool bRemove);
  // End of stream: sets the flag and the ready event without the queue lock,
  // so it never waits behind a put.
  void DeqEOS();
  // Drops every packet and the per-segment state; the stream index, media
  // type and AV index stay.
  void DeqClear();
  // Start of a new segment. Keeps everything (false) when not forced and the
  // queue still holds segment rtSegmentStart from its first packet; otherwise
  // clears (true).
  bool DeqReset(LONGLONG rtSegmentStart, bool bForce);
  // Re-stamps the packets held with a new segment start; returns their count.
  LONG DeqSetSegment(LONGLONG rtSegmentStart);
  // True, with *_pnCompare lowered, when the front packet's order in the
  // segment is below *_pnCompare.
  bool DeqCompareOrder(LONG* _pnCompare);
  // Duration (the return value), span, description text (a new BSTR for the
  // caller to free) and dropped count; any output may be null.
  LONGLONG DeqDescription(LONGLONG* prtSpan = nullptr, BSTR* pbsText = nullptr, LONGLONG* pllDropped = nullptr);
  // Play time held, in 100 ns: -1 when empty; count x smallest packet gap
  // when one is known; otherwise 20 ms per packet.
  LONGLONG DeqDuration();
  LONG DeqSize();

  bool IsEOS() const { return m_bEOS; }
  bool IsWaitStream();
  void SetWaitStream(bool bWaitStream);
  // Media type of the packets held (eVCMT_Empty before the first); the AV
  // index, when asked, is the stream's index among streams of its type.
  eVCMediaType MediaTypeGet(LONG* pnAVIndex = nullptr);
  // The ready event: set once enough is buffered or at end of stream, reset
  // when a removal empties the queue (unless at end of stream) or on a clear.
  CKEventPtr ReadyEventGet() const { return m_hEvent; }

  // What the set's buffering decisions read, under one lock.
  struct CState {
    bool bEOS = false;
    bool bWaitStream = false;
    eVCMediaType eMediaType = eVCMT_Empty;
    LONGLONG rtDuration = -1;
    LONGLONG llCount = 0;
  };
  CState StateGet();

  // Statistics publication: the bit rate of the packets put (bits per
  // second), the packet rate report and the clock of the last publication.
  LONG BitrateGet();
  std::string RateText();
  KClock& StatsClock() { return m_clockStats; }

 private:
  template <class, class>
  friend class VCPacketsStreams;

  void _Clear() VC_REQUIRES(m_csLock);
  LONGLONG _Duration() const VC_REQUIRES(m_csLock);
  // Steps of DeqPut, all under the lock.
  void _BeginSegmentOf(const VCPacketRecord& packetInfo) VC_REQUIRES(m_csLock);
  void _Stamp(VCPacketRecord& packetInfo) VC_REQUIRES(m_csLock);
  void _TrackTime(VCPacketRecord& packetInfo) VC_REQUIRES(m_csLock);
  void _CheckStream(const VCPacketRecord& packetInfo) VC_REQUIRES(m_csLock);
  LONGLONG _Admit(const VCPacketRecord& packetInfo, LONGLONG rtReady, LONGLONG rtMax, bool bDropAllowed,
                  K_TIME* pTime, K_PACKET_INFO* pPacketInfo) VC_REQUIRES(m_csLock);
  String _PacketText(const VCPacketRecord& packetInfo) const;
  void _LogGet(const String& strPacket) const VC_REQUIRES(m_csLock);

  LONGLONG m_rtMinPacketTime VC_GUARDED_BY(m_csLock) = 0;  // smallest gap, 0 = unknown
  LONGLONG m_rtTimeFirst VC_GUARDED_BY(m_csLock) = VC_TIME_UNSET;
  LONGLONG m_rtTimeLast VC_GUARDED_BY(m_csLock) = VC_TIME_UNSET;
  LONGLONG m_llSizeBytes VC_GUARDED_BY(m_csLock) = 0;
  mutable CKMutex m_csLock;
  CKRing<VCPacketRecord> m_deqPackets VC_GUARDED_BY(m_csLock);  // oldest first
  const CKEventPtr m_hEvent;                                     // manual reset, created reset
  LONG m_nPacketsInSegment VC_GUARDED_BY(m_csLock) = 0;
  LONGLONG m_rtSegmentStart VC_GUARDED_BY(m_csLock) = -1;
  K_TIME m_lastTime VC_GUARDED_BY(m_csLock){};
  LONG m_nKeyDistance VC_GUARDED_BY(m_csLock) = -1;
  std::atomic<bool> m_bEOS{false};  // written by DeqEOS without the lock
  std::atomic<LONG> m_nStream{-1};  // read by DeqEOS without the lock
  LONGLONG m_llDropped VC_GUARDED_BY(m_csLock) = 0;
  bool m_bWaitStream VC_GUARDED_BY(m_csLock) = false;
  eVCMediaType m_eMediaType VC_GUARDED_BY(m_csLock) = eVCMT_Empty;
  std::atomic<LONG> m_nAVIndex{0};  // set by the set once, right after creation
  KBitrateCalc m_bitrate VC_GUARDED_BY(m_csLock){eKStatsLocking::ByOwner};
  KAverageTime m_rate VC_GUARDED_BY(m_csLock){30, eKStatsLocking::ByOwner};
  KClock m_clockStats;  // its own lock
  // The description of the last packet put: the next one usually shares it.
  CKStreamInfo m_stmInfoLast VC_GUARDED_BY(m_csLock);
  std::chrono::steady_clock::time_point m_tpLastPut VC_GUARDED_BY(m_csLock);  // m_rate's sample start
};

// The owner hook: TOwner answers whether the queues may drop packets
// ("vccodecs.drop_packets"), read on every put so that a change takes effect
// on the next one:
//   bool TOwner::_DropPacketsAllowed();
// It is called with no lock of the set held.
template <class TOwner, class TDeq = VCPacketDeq>
class VCPacketsStreams {
 public:
  using DeqPtr = std::shared_ptr<TDeq>;
  static constexpr LONGLONG kPutFailed = -VC_TIME_SECOND;

  explicit VCPacketsStreams(TOwner* pOwner) : m_pOwner(pOwner) {}
  VCPacketsStreams(const VCPacketsStreams&) = delete;
  VCPacketsStreams& operator=(const VCPacketsStreams&) = delete;

  // The queue of a stream, made when absent and bCreate. *pbCreated tells
  // whether this call made it (exactly one of several racing callers does).
  DeqPtr _GetDeq(LONG nStream, bool bCreate, bool* pbCreated = nullptr);

  // Routes a packet into its stream's queue. Returns that queue's duration
  // after the put, or kPutFailed for a null packet or a missing queue.
  LONGLONG PacketPut(IVCPacket* _pPacket, bool bCreate, double dblReady, double dblMax, LONG* pnAVIndex = nullptr);
  // End of stream for one stream (false when it has no queue) or, with
  // nStream < 0, for all.
  bool DeqEOS(LONG nStream, bool bCreate);
  CKEventPtr ReadyEventGet(LONG nStream, bool bCreate);
  // nMode 0 re-stamps the packets held with the new segment start; 1 resets
  // the queues, keeping those that still hold the segment from its first
  // packet unless one must clear (then all clear); 2 clears them all. False
  // when nothing was cleared, so the source need not be repositioned.
  bool BeginSegment(LONG nStream, LONGLONG rtSegmentStart, int nMode);
  // Takes (or peeks) a packet of one stream; 0x80070585 for an unknown one.
  HRESULT PacketGet(IVCPacket** ppPacket, LONG nStream, bool bRemove, eVCMediaType* peMediaType = nullptr,
                    LONG* pnAVIndex = nullptr, LONGLONG* prtDuration = nullptr);
  // True when the listed streams are not exactly the streams with queues.
  bool StreamsChanged(std::span<const LONG> streams);
  // The stream whose front packet came first from the source; the first
  // stream when all are empty; -1 without queues.
  LONG NextStream();
  // The stream indices that have queues, ascending.
  std::vector<LONG> Streams() const {
    CKReadLock lock(m_srwLock);
    std::vector<LONG> vecStreams;
    for (const auto& entry : m_mapDeques) vecStreams.push_back(entry.first);
    return vecStreams;
  }
  // The ready events of the queues that have not reached end of stream (what
  // a reader of any stream waits on while every queue is empty); *pbAllEnded
  // tells whether every queue is at end of stream (true without queues).
  std::vector<CKEventPtr> ReadyEventsNotEnded(bool* pbAllEnded);
  // Creates the queue with its AV index: true when this call created it.
  bool SetAVIndex(LONG nStream, LONG _nAVStreamIdx);
  bool DeqRemove(LONG nStream);
  // Shortest duration over the counted queues (see the .cpp for the rules).
  LONGLONG BufferedDuration(LONG nStream, LONG nExclude, int nMediaMask);
  void SetWaitStream(LONG nStream, bool bWaitStream);

  // Bits per second of all packets put through the set.
  LONG AggregateBitrateGet() const {
    CKMutexLock lock(m_csBitrate);
    return m_bitrate.Rate();
  }

 private:
  // Returns the queue of nStream under the shared lock, or null.
  DeqPtr _Find(LONG nStream) const;

  TOwner* const m_pOwner;
  mutable CKSharedLock m_srwLock;
  std::map<LONG, DeqPtr> m_mapDeques VC_GUARDED_BY(m_srwLock);
  // The aggregate meter over every packet put; a new segment resets it.
  mutable CKMutex m_csBitrate;
  KBitrateCalc m_bitrate VC_GUARDED_BY(m_csBitrate){eKStatsLocking::ByOwner};
};

// ---------------------------------------------------------------------------
// VCPacketsStreams

#define VC_PACKETS_ASSERT(cond) VC_ASSERT_AT(cond, "Include/VCCodecs/VCPackets")

template <class TOwner, class TDeq>
typename VCPacketsStreams<TOwner, TDeq>::DeqPtr VCPacketsStreams<TOwner, TDeq>::_Find(LONG nStream) const {
  CKReadLock lock(m_srwLock);
  auto it = m_mapDeques.find(nStream);
  return it != m_mapDeques.end() ? it->second : DeqPtr();
}

template <class TOwner, class TDeq>
typename VCPacketsStreams<TOwner, TDeq>::DeqPtr VCPacketsStreams<TOwner, TDeq>::_GetDeq(LONG nStream, bool bCreate,
                                                                                       bool* pbCreated) {
  if (pbCreated) *pbCreated = false;
  for (;;) {
    if (DeqPtr pFound = _Find(nStream)) return pFound;
    if (!bCreate) return DeqPtr();
    CKWriteLock lock(m_srwLock);
    DeqPtr pDeq = std::make_shared<TDeq>();
    VC_PACKETS_ASSERT(pDeq);
    // Another thread may have inserted the stream between the two locks: its
    // queue wins and ours is dropped.
    if (!m_mapDeques.emplace(nStream, pDeq).second) continue;
    if (pbCreated) *pbCreated = true;
    return pDeq;
  }
}

template <class TOwner, class TDeq>
LONGLONG VCPacketsStreams<TOwner, TDeq>::PacketPut(IVCPacket* _pPacket, bool bCreate, double dblReady, double dblMax,
                                                   LONG* pnAVIndex) {
  VC_PACKETS_ASSERT(_pPacket);
  if (!_pPacket) return kPutFailed;
  K_PACKET_INFO pktInfo{};
  _pPacket->PacketInfoGet(&pktInfo);
  DeqPtr pDeq = _GetDeq(pktInfo.nStreamIndex, bCreate);
  if (!pDeq) return kPutFailed;

  const bool bDropAllowed = m_pOwner && m_pOwner->_DropPacketsAllowed();
  auto toTime = [](double dbl) -> LONGLONG {
    // Clamped, so that "no limit" values such as 1e300 stay meaningful.
    if (!(dbl > -9.2e18)) return dbl > 0 ? std::numeric_limits<LONGLONG>::max() : std::numeric_limits<LONGLONG>::min();
    if (dbl >= 9.2e18) return std::numeric_limits<LONGLONG>::max();
    return static_cast<LONGLONG>(dbl);
  };
  K_TIME time{};
  const LONGLONG rtDuration = pDeq->DeqPut(_pPacket, toTime(dblReady), toTime(dblMax), bDropAllowed, &time);
  {
    CKMutexLock lockBitrate(m_csBitrate);
    m_bitrate.Push(time.rtStartTime, pktInfo.cbPacketData, 1.0);
  }
  if (pnAVIndex) pDeq->MediaTypeGet(pnAVIndex);
  return rtDuration;
}

template <class TOwner, class TDeq>
bool VCPacketsStreams<TOwner, TDeq>::DeqEOS(LONG nStream, bool bCreate) {
  if (nStream >= 0) {
    DeqPtr pDeq = _GetDeq(nStream, bCreate);
    if (!pDeq) return false;
    pDeq->DeqEOS();
    return true;
  }
  CKReadLock lock(m_srwLock);
  for (auto& entry : m_mapDeques) entry.second->DeqEOS();
  return true;
}

template <class TOwner, class TDeq>
CKEventPtr VCPacketsStreams<TOwner, TDeq>::ReadyEventGet(LONG nStream, bool bCreate) {
  if (DeqPtr pFound = _Find(nStream)) return pFound->ReadyEventGet();
  if (!bCreate) return CKEventPtr();
  CKWriteLock lock(m_srwLock);
  DeqPtr pDeq = std::make_shared<TDeq>();
  VC_PACKETS_ASSERT(pDeq);
  m_mapDeques.emplace(nStream, pDeq);  // keeps the queue of a racing creator
  auto Iter = m_mapDeques.find(nStream);
  VC_PACKETS_ASSERT(Iter != m_mapDeques.end());
  return Iter != m_mapDeques.end() ? Iter->second->ReadyEventGet() : CKEventPtr();
}

template <class TOwner, class TDeq>
bool VCPacketsStreams<TOwner, TDeq>::BeginSegment(LONG nStream, LONGLONG rtSegmentStart, int nMode) {
  CKReadLock lock(m_srwLock);
  bool bForce = nMode >= 2;
  if (nStream >= 0) {
    auto it = m_mapDeques.find(nStream);
    if (it == m_mapDeques.end()) return true;
    if (nMode == 0) {
      it->second->DeqSetSegment(rtSegmentStart);
      return false;
    }
    return it->second->DeqReset(rtSegmentStart, bForce);
  }

  {
    CKMutexLock lockBitrate(m_csBitrate);
    m_bitrate.Reset();
  }
  bool bCleared = false;
  for (auto it = m_mapDeques.begin(); it != m_mapDeques.end();) {
    if (nMode == 0) {
      it->second->DeqSetSegment(rtSegmentStart);
      ++it;
      continue;
    }
    bCleared = it->second->DeqReset(rtSegmentStart, bForce);
    if (nMode == 1 && !bForce && bCleared && rtSegmentStart >= 0) {
      // One queue lost its packets, so the source is repositioned for all:
      // clear every queue, the ones kept so far included.
      bForce = true;
      it = m_mapDeques.begin();
      continue;
    }
    ++it;
  }
  return bCleared;
}

template <class TOwner, class TDeq>
HRESULT VCPacketsStreams<TOwner, TDeq>::PacketGet(IVCPacket** ppPacket, LONG nStream, bool bRemove,
                                                  eVCMediaType* peMediaType, LONG* pnAVIndex,
                                                  LONGLONG* prtDuration) {
  CKReadLock lock(m_srwLock);
  auto it = m_mapDeques.find(nStream);
  if (it == m_mapDeques.end()) return VC_E_BAD_STREAM;
  TDeq& deq = *it->second;
  if (peMediaType || pnAVIndex) {
    const eVCMediaType eType = deq.MediaTypeGet(pnAVIndex);
    if (peMediaType) *peMediaType = eType;
  }
  if (prtDuration) *prtDuration = deq.DeqDuration();
  return deq.DeqGet(ppPacket, bRemove);
}

template <class TOwner, class TDeq>
bool VCPacketsStreams<TOwner, TDeq>::StreamsChanged(std::span<const LONG> streams) {
  CKReadLock lock(m_srwLock);
  if (streams.size() != m_mapDeques.size()) return true;
  for (LONG nStream : streams) {
    if (m_mapDeques.find(nStream) == m_mapDeques.end()) return true;
  }
  return false;
}

template <class TOwner, class TDeq>
LONG VCPacketsStreams<TOwner, TDeq>::NextStream() {
  CKReadLock lock(m_srwLock);
  LONG nNext = -1;
  LONG nMinOrder = 0x7fffffff;
  for (auto& entry : m_mapDeques) {
    const bool bLower = entry.second->DeqCompareOrder(&nMinOrder);
    if (bLower || nNext < 0) nNext = entry.first;
  }
  return nNext;
}

template <class TOwner, class TDeq>
std::vector<CKEventPtr> VCPacketsStreams<TOwner, TDeq>::ReadyEventsNotEnded(bool* pbAllEnded) {
  CKReadLock lock(m_srwLock);
  std::vector<CKEventPtr> vecEvents;
  for (const auto& entry : m_mapDeques) {
    if (!entry.second->IsEOS()) vecEvents.push_back(entry.second->ReadyEventGet());
  }
  if (pbAllEnded) *pbAllEnded = vecEvents.empty();
  return vecEvents;
}

template <class TOwner, class TDeq>
bool VCPacketsStreams<TOwner, TDeq>::SetAVIndex(LONG nStream, LONG _nAVStreamIdx) {
  bool bCreated = false;
  DeqPtr pDeq = _GetDeq(nStream, true, &bCreated);
  if (!pDeq) return false;
  if (bCreated) {
    pDeq->m_nAVIndex = _nAVStreamIdx;
    return true;
  }
  VC_PACKETS_ASSERT(pDeq->m_nAVIndex == _nAVStreamIdx);
  return false;
}

template <class TOwner, class TDeq>
bool VCPacketsStreams<TOwner, TDeq>::DeqRemove(LONG nStream) {
  CKWriteLock lock(m_srwLock);
  if (nStream >= 0) return m_mapDeques.erase(nStream) > 0;
  m_mapDeques.clear();
  return true;
}

// Rules for the set (nStream < 0): queues at end of stream and the excluded
// one do not count; a queue counts when its media type shares a bit with the
// mask, or, before its first packet, when it is marked as waited for. The
// result is the smallest duration of the counted queues. While any counted
// queue holds 1000 packets or fewer (or none counted), queues that have not
// delivered yet pull the result down to -1 too, so reading continues until
// every stream has shown up. Without exclusion the plain minimum is returned
// (INT64_MAX when nothing counted); with one, an untouched minimum reads -1
// for a set of fewer than 2 queues and INT64_MAX otherwise.
template <class TOwner, class TDeq>
LONGLONG VCPacketsStreams<TOwner, TDeq>::BufferedDuration(LONG nStream, LONG nExclude, int nMediaMask) {
  CKReadLock lock(m_srwLock);
  if (nStream >= 0) {
    auto it = m_mapDeques.find(nStream);
    return it != m_mapDeques.end() ? it->second->DeqDuration() : -1;
  }
  constexpr LONGLONG kNone = std::numeric_limits<LONGLONG>::max();
  LONGLONG rtMin = kNone;
  LONGLONG llMinCount = kNone;
  bool bCounted = false;
  for (auto& entry : m_mapDeques) {
    if (entry.first == nExclude) continue;
    const typename TDeq::CState state = entry.second->StateGet();
    if (state.bEOS) continue;
    const bool bCounts = (state.eMediaType & nMediaMask) != 0 || (state.eMediaType == eVCMT_Empty && state.bWaitStream);
    if (!bCounts) continue;
    bCounted = true;
    rtMin = std::min(rtMin, state.rtDuration);
    llMinCount = std::min(llMinCount, state.llCount);
  }
  if (!bCounted || llMinCount <= 1000) {
    for (auto& entry : m_mapDeques) {
      if (entry.first == nExclude) continue;
      const typename TDeq::CState state = entry.second->StateGet();
      if (!state.bEOS && state.eMediaType == eVCMT_Empty) rtMin = std::min(rtMin, state.rtDuration);
    }
  }
  if (nExclude < 0 || rtMin != kNone) return rtMin;
  return m_mapDeques.size() < 2 ? -1 : kNone;
}

template <class TOwner, class TDeq>
void VCPacketsStreams<TOwner, TDeq>::SetWaitStream(LONG nStream, bool bWaitStream) {
  CKReadLock lock(m_srwLock);
  auto it = m_mapDeques.find(nStream);
  if (it != m_mapDeques.end()) it->second->SetWaitStream(bWaitStream);
}

#undef VC_PACKETS_ASSERT

}  // namespace vc
