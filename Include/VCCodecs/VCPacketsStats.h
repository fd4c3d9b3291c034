// Publication of the splitter's buffering statistics: for one stream, the
// buffered duration, the queue description, the bit rates, the dropped count
// and the packet rate, written as properties of the splitter's tree, at most
// every 0.1 s per stream. The splitter calls VCPacketsUpdateStatistics (its
// _UpdateStatistics) on the reading thread after a put and on consumer
// threads after a get; it takes the facade lock only around the tree writes.
//
// Stream names are the media type name and the AV index joined by a dot:
// "video.0", "audio.1". Media type names: "empty" (no packet yet), "video",
// "audio", "multiplexed", "subtitles", "data", and "unknown" for any other
// value.
//
// Keys, in the order written (%ws = stream name):
//   stat::buffer.%ws           seconds buffered
//   buffer.%ws                 the same value at the root
//   stat::buffer_details.%ws   the queue description
//   stat::kbps_avg_%ws         the queue's bit rate in kbit/s
//   stat::kbps_avg             the bit rate of all streams in kbit/s
//   info::kbps_avg             the same
//   stat::packets_dropped.%ws  packets dropped since the last reset
//   stat::packets_fps.%ws      the packet rate report
// Numbers are written as VCStatDoubleText renders them ("2", "-0.0000001",
// "1234.5") and integers in decimal. Every value is text of our own and goes
// straight into the tree (SetAttributePath with bDecode false). The root key
// "buffer.%ws" is flagged as an internal write: no option checks and no
// entity decoding, which is exactly what the direct raw tree write gives, so
// it is written like the rest and differs only by its place at the root.
#pragma once

#include <string>

#include "CoXMLNode.h"
#include "VCCodecs/VCPackets.h"
#include "VCCritSec.h"
#include "VCFormat.h"
#include "VCLog.h"
#include "VCStrings.h"

namespace vc {

// Smallest interval between two publications of one stream (0.1 s).
inline constexpr LONGLONG kStatsInterval = 1000000;

inline const OLECHAR* VCMediaTypeName(eVCMediaType eType) {
  switch (eType) {
    case eVCMT_Empty: return W("empty");
    case eVCMT_Video: return W("video");
    case eVCMT_Audio: return W("audio");
    case eVCMT_Multiplexed: return W("multiplexed");
    case eVCMT_Subtitles: return W("subtitles");
    case eVCMT_Data: return W("data");
  }
  return W("unknown");
}

inline String VCStreamName(eVCMediaType eType, LONG nAVIndex) {
  return String(VCMediaTypeName(eType)) + W(".") + FromUtf8(Format("%d", static_cast<int>(nAVIndex)));
}

// Fixed notation with seven decimals, the 100 ns resolution of a time in
// seconds, without trailing zeros or a trailing point: 2.0 -> "2",
// -0.0000001 -> "-0.0000001", 1234.5 -> "1234.5". Values that round to zero
// read "0", never "-0".
inline String VCStatDoubleText(double dbl) {
  std::string str = Format("%.7f", dbl);
  if (str.find('.') != std::string::npos) {
    while (!str.empty() && str.back() == '0') str.pop_back();
    if (!str.empty() && str.back() == '.') str.pop_back();
  }
  if (str == "-0") str = "0";
  return FromUtf8(str);
}

// Publishes the statistics of stream nStream of the set. False when the
// stream has no queue or was published less than 0.1 s ago (nothing
// written); true when published. pRoot may be null (nothing to write to):
// the line is still logged and the interval restarts. bForce publishes
// whatever the interval (a final publication, or a benchmark of one).
template <class TStreams>
bool VCPacketsUpdateStatistics(TStreams& streams, LONG nStream, XMLParse::CoXMLNode* pRoot, CKCritSec& csLock,
                               bool bForce = false) {
  auto pDeq = streams._GetDeq(nStream, false);
  if (!pDeq) return false;
  if (!bForce && pDeq->StatsClock().Elapsed(false) < kStatsInterval) return false;

  LONG nAVIndex = 0;
  const eVCMediaType eType = pDeq->MediaTypeGet(&nAVIndex);
  LONGLONG llDropped = 0;
  CBstr bsDescription;
  const LONGLONG rtDuration = pDeq->DeqDescription(nullptr, &bsDescription, &llDropped);
  const double dblKbps = pDeq->BitrateGet() / 1000.0;
  const double dblTotalKbps = streams.AggregateBitrateGet() / 1000.0;
  const String strRate = FromUtf8(pDeq->RateText());

  const String strName = VCStreamName(eType, nAVIndex);
  const String strBuffer = W("buffer.") + strName;
  const String strSeconds = VCStatDoubleText(static_cast<double>(rtDuration) / static_cast<double>(VC_TIME_SECOND));
  if (pRoot) {
    CKAutoLock lock(csLock);
    pRoot->SetAttributePath(W("stat::") + strBuffer, strSeconds, false);
    pRoot->SetAttributePath(strBuffer, strSeconds, false);
    pRoot->SetAttributePath(W("stat::buffer_details.") + strName, bsDescription.View(), false);
    pRoot->SetAttributePath(W("stat::kbps_avg_") + strName, VCStatDoubleText(dblKbps), false);
    pRoot->SetAttributePath(W("stat::kbps_avg"), VCStatDoubleText(dblTotalKbps), false);
    pRoot->SetAttributePath(W("info::kbps_avg"), VCStatDoubleText(dblTotalKbps), false);
    pRoot->SetAttributePath(W("stat::packets_dropped.") + strName, FromUtf8(Format("%I64d", llDropped)), false);
    pRoot->SetAttributePath(W("stat::packets_fps.") + strName, strRate, false);
  }
  VC_LOG(eVCLL_Progress, "Idx:%d Deq:%ws Bitrate:%.3f Kbps (Total:%.3f Kbps) Rate:%ws", static_cast<int>(nStream),
         bsDescription.Get() ? bsDescription.Get() : W(""), dblKbps, dblTotalKbps, strRate.c_str());
  pDeq->StatsClock().Elapsed(true);
  return true;
}

}  // namespace vc
