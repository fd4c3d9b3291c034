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

inline K_PACKET_INFO PacketInfoOf(const PacketSpec& shape) {
  K_PACKET_INFO info{};
  info.eFlags = shape.eFlags;
  info.nStreamIndex = shape.nStream;
  info.rtSegmentStart = shape.rtSegment;
  info.nOrderInSegment = shape.nOrder;
  info.llPts = shape.llPts;
  return info;
}

inline vc::ComPtr<IVCPacket> MakePacket(const PacketSpec& shape) {
  const K_PACKET_INFO info = PacketInfoOf(shape);
  K_STREAM_INFO stream{};
  stream.eMediaType = shape.eType;
  K_TIME time{};
  time.rtStartTime = shape.rtStart;
  time.rtEndTime = shape.rtEnd;
  std::vector<uint8_t> vecData(static_cast<size_t>(shape.cbData), 0x5A);
  vc::ComPtr<IVCPacket> cpPacket;
  const HRESULT hr = vc::CreateVCPacket(&info, &stream, &time, vecData.data(), shape.cbData, cpPacket.AddressOf());
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
