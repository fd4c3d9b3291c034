// Packet builders shared by the queue tests: packets of a given stream,
// media type, time, segment, order and size, made with the real packet
// object.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
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

// A packet from elsewhere: forwards IVCPacket to one of ours but answers
// nothing else, so the readers must take the public road (and free the codec
// name that road hands out). Counts the description reads. Lives on the
// stack: the references it counts never free it.
class CForeignPacket final : public IVCPacket {
 public:
  explicit CForeignPacket(IVCPacket* pInner) : m_cpInner(pInner) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    *ppv = IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IVCPacket) ? this : nullptr;
    if (!*ppv) return E_NOINTERFACE;
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_nRef; }
  ULONG STDMETHODCALLTYPE Release() override { return --m_nRef; }
  HRESULT STDMETHODCALLTYPE PacketInfoGet(K_PACKET_INFO* p) override { return m_cpInner->PacketInfoGet(p); }
  HRESULT STDMETHODCALLTYPE PacketInfoSet(K_PACKET_INFO* p) override { return m_cpInner->PacketInfoSet(p); }
  HRESULT STDMETHODCALLTYPE PacketStreamInfoGet(K_STREAM_INFO* p) override {
    ++m_nStreamInfoReads;
    return m_cpInner->PacketStreamInfoGet(p);
  }
  HRESULT STDMETHODCALLTYPE PacketTimeGet(K_TIME* p) override { return m_cpInner->PacketTimeGet(p); }
  HRESULT STDMETHODCALLTYPE PacketAppendData(LONG cb, LONGLONG lp) override {
    return m_cpInner->PacketAppendData(cb, lp);
  }

  int StreamInfoReads() const { return m_nStreamInfoReads; }
  ULONG Refs() const { return m_nRef; }

 private:
  vc::ComPtr<IVCPacket> m_cpInner;
  std::atomic<ULONG> m_nRef{1};
  int m_nStreamInfoReads = 0;
};

// Current reference count of an object (AddRef/Release round trip).
inline ULONG RefCount(IUnknown* p) {
  p->AddRef();
  return p->Release();
}

}  // namespace queuetest
