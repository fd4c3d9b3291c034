// The per-packet statistics the decoder and encoder facades keep for every
// compressed packet: distance between key packets, sizes of key and other
// packets, and the bit rate. Each update writes the packet's key distance and
// running index back into the packet and publishes four report values under
// the facade's "stat" node, named prefix + ".key_distance", ".pkt_size_key",
// ".pkt_size_pb" and ".kbps" ("v_decode", "a_decode" or "encode" as prefix).
//
// Owned by one facade (one per statistic prefix). Update is called on the
// facade's packet path with the facade lock held, which also guards the
// property tree it writes to; the counters here rely on that lock.
//
// Window sizes: key distances and key-packet sizes average the last 16 key
// packets (a GOP is usually 0.5 to 10 s, so this spans a useful stretch
// without remembering the start of a long file); other packet sizes average
// the last 64 packets (about two seconds of 30 fps video). The bit rate feeds
// packet sizes as increments (mode 0) on the meter's own clock, as the
// packets pass through the facade, in a 1 s window averaged over 64 rates:
// it is the throughput of the facade, not the coded rate of the stream.
#pragma once

#include <cstdint>
#include <string_view>

#include "CoXMLNode.h"
#include "KAverageTime.h"
#include "KBitrateCalculator.h"
#include "VCCodecsCore.h"
#include "VCStrings.h"
#include "VCPlatform.h"

namespace vc {

class KPacketStats {
 public:
  static constexpr int kKeyDistanceWindow = 16;
  static constexpr int kKeySizeWindow = 16;
  static constexpr int kOtherSizeWindow = 64;
  static constexpr int kBitrateAverage = 64;
  static constexpr int64_t kBitrateWindow = VC_TIME_SECOND;

  explicit KPacketStats(std::string_view prefix);
  // For tests: the bit-rate meter's clock reads fnCounter at llFrequency.
  KPacketStats(std::string_view prefix, KClock::CounterFn fnCounter, int64_t llFrequency);
  KPacketStats(const KPacketStats&) = delete;
  KPacketStats& operator=(const KPacketStats&) = delete;

  // Measures pPacket, writes nKeyDistance and nIndexInSegment back into it and
  // publishes the results as attributes of pStatNode (nothing is published
  // when it is null). E_POINTER for a null packet; a failure to read the
  // packet's description changes nothing and is returned; a failure to write
  // it back is returned after the statistics are updated.
  HRESULT Update(IVCPacket* pPacket, XMLParse::CoXMLNode* pStatNode);

  // Publishes the current values without measuring a packet (a caller that
  // passed no node to some updates shows the latest values so). Only what
  // has been measured is published.
  void Publish(XMLParse::CoXMLNode* pStatNode);

  // Packets measured so far (the next packet's nIndexInSegment).
  int32_t PacketCount() const { return m_nPackets; }

 private:
  void _Publish(XMLParse::CoXMLNode* pStatNode, const String& strName, const std::string& strValue);

  const String m_strKeyDistanceName;
  const String m_strKeySizeName;
  const String m_strOtherSizeName;
  const String m_strKbpsName;

  KAverageTime m_avgKeyDistance;  // packets between key packets; KAverageTime for its report line
  KAverageTime m_avgKeySize;      // kilobytes
  KAverageTime m_avgOtherSize;    // kilobytes
  KBitrateCalculator m_bitrate;
  int32_t m_nPackets = 0;         // GUARDED_BY(the facade lock)
  int32_t m_nSinceKey = 0;        // GUARDED_BY(the facade lock)
};

}  // namespace vc
