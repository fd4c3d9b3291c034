#include "KPacketStats.h"

#include <string>
#include <utility>

#include "KStatsMath.h"

namespace vc {

namespace {

String StatName(std::string_view prefix, std::string_view suffix) {
  std::string strName(prefix);
  strName += suffix;
  return FromUtf8(strName);
}

}  // namespace

KPacketStats::KPacketStats(std::string_view prefix) : KPacketStats(prefix, KClock::CounterFn(), 0) {}

KPacketStats::KPacketStats(std::string_view prefix, KClock::CounterFn fnCounter, int64_t llFrequency)
    : m_strKeyDistanceName(StatName(prefix, ".key_distance")),
      m_strKeySizeName(StatName(prefix, ".pkt_size_key")),
      m_strOtherSizeName(StatName(prefix, ".pkt_size_pb")),
      m_strKbpsName(StatName(prefix, ".kbps")),
      m_avgKeyDistance(kKeyDistanceWindow),
      m_avgKeySize(kKeySizeWindow),
      m_avgOtherSize(kOtherSizeWindow),
      m_bitrate(std::move(fnCounter), llFrequency) {
  m_bitrate.Setup(0, kBitrateAverage, kBitrateWindow);
}

void KPacketStats::_Publish(XMLParse::CoXMLNode* pStatNode, const String& strName, const std::string& strValue) {
  // Statistics are plain text of our own making: no entity decoding.
  if (pStatNode) pStatNode->SetAttributePath(strName, FromUtf8(strValue), /*bDecode=*/false);
}

HRESULT KPacketStats::Update(IVCPacket* pPacket, XMLParse::CoXMLNode* pStatNode) {
  if (!pPacket) return E_POINTER;
  K_PACKET_INFO info{};
  HRESULT hr = pPacket->PacketInfoGet(&info);
  if (FAILED(hr)) return hr;

  const double dblKilobytes = info.cbPacketData / 1000.0;
  if (info.eFlags & eVCPF_KeyFrame) {
    m_avgKeyDistance.Add(m_nSinceKey);
    _Publish(pStatNode, m_strKeyDistanceName, m_avgKeyDistance.Text(false));
    m_nSinceKey = 0;
    m_avgKeySize.Add(dblKilobytes);
    _Publish(pStatNode, m_strKeySizeName, m_avgKeySize.Text(false));
  } else {
    ++m_nSinceKey;
    m_avgOtherSize.Add(dblKilobytes);
    _Publish(pStatNode, m_strOtherSizeName, m_avgOtherSize.Text(false));
  }

  info.nKeyDistance = m_nSinceKey;
  info.nIndexInSegment = m_nPackets;
  hr = pPacket->PacketInfoSet(&info);
  ++m_nPackets;

  const double dblBytesPerSecond = m_bitrate.Add(info.cbPacketData);
  _Publish(pStatNode, m_strKbpsName, std::to_string(RoundHalfAway(dblBytesPerSecond * 8 / 1000)));
  return FAILED(hr) ? hr : S_OK;
}

void KPacketStats::Publish(XMLParse::CoXMLNode* pStatNode) {
  if (!pStatNode || m_nPackets == 0) return;
  if (m_avgKeyDistance.Statistics(nullptr) > 0) {
    _Publish(pStatNode, m_strKeyDistanceName, m_avgKeyDistance.Text(false));
    _Publish(pStatNode, m_strKeySizeName, m_avgKeySize.Text(false));
  }
  if (m_avgOtherSize.Statistics(nullptr) > 0)
    _Publish(pStatNode, m_strOtherSizeName, m_avgOtherSize.Text(false));
  _Publish(pStatNode, m_strKbpsName, std::to_string(RoundHalfAway(m_bitrate.Rate() * 8 / 1000)));
}

}  // namespace vc
