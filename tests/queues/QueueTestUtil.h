// Packet builders shared by the queue tests: packets of a given stream,
// media type, time, segment, order and size, made with the real packet
// object.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "VCCodecs/VCPacket.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCStrings.h"

namespace queuetest {

constexpr LONGLONG kMs = 10000;
constexpr LONGLONG kSec = 10000000;

struct PacketSpec {
  LONG nStream = 0;
  eVCMediaType eType = eVCMT_Video;
  LONGLONG rtStart = 0;  // start == end == 0: a packet without time
  LONGLONG rtEnd = 0;
  LONGLONG rtSegment = 0;
  LONG nOrder = 0;
  eVCPacketFlags eFlags = eVCPF_None;
  LONG cbData = 100;
  LONGLONG llPts = 0;

  PacketSpec& Stream(LONG n) { nStream = n; return *this; }
  PacketSpec& Type(eVCMediaType e) { eType = e; return *this; }
  PacketSpec& Time(LONGLONG rtS, LONGLONG rtE) { rtStart = rtS; rtEnd = rtE; return *this; }
  PacketSpec& Segment(LONGLONG rt) { rtSegment = rt; return *this; }
  PacketSpec& Order(LONG n) { nOrder = n; return *this; }
  PacketSpec& Flags(eVCPacketFlags e) { eFlags = e; return *this; }
  PacketSpec& Bytes(LONG cb) { cbData = cb; return *this; }
  PacketSpec& Pts(LONGLONG ll) { llPts = ll; return *this; }
};

inline K_PACKET_INFO PacketInfoOf(const PacketSpec& spec) {
  K_PACKET_INFO info{};
  info.eFlags = spec.eFlags;
  info.nStreamIndex = spec.nStream;
  info.rtSegmentStart = spec.rtSegment;
  info.nOrderInSegment = spec.nOrder;
  info.llPts = spec.llPts;
  return info;
}

inline vc::ComPtr<IVCPacket> MakePacket(const PacketSpec& spec) {
  const K_PACKET_INFO info = PacketInfoOf(spec);
  K_STREAM_INFO stream{};
  stream.eMediaType = spec.eType;
  K_TIME time{};
  time.rtStartTime = spec.rtStart;
  time.rtEndTime = spec.rtEnd;
  std::vector<uint8_t> vecData(static_cast<size_t>(spec.cbData), 0x5A);
  vc::ComPtr<IVCPacket> cpPacket;
  const HRESULT hr = vc::CreateVCPacket(&info, &stream, &time, vecData.data(), spec.cbData, cpPacket.AddressOf());
  EXPECT_EQ(hr, S_OK);
  return cpPacket;
}

inline K_PACKET_INFO InfoOf(IVCPacket* pPacket) {
  K_PACKET_INFO info{};
  EXPECT_EQ(pPacket->PacketInfoGet(&info), S_OK);
  return info;
}

// Current reference count of an object (AddRef/Release round trip).
inline ULONG RefCount(IUnknown* p) {
  p->AddRef();
  return p->Release();
}

}  // namespace queuetest
