// The packet object: what it copies and what it only references, that the
// payload pointer can never be pointed at foreign memory, appends (including
// from its own payload), external payload owners and their release, and the
// stream description value with its shared storage.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "QueueTestUtil.h"
#include "VCCodecs/VCPacket.h"

namespace {

using queuetest::InfoOf;

const uint8_t* Bytes(LONGLONG lp) { return reinterpret_cast<const uint8_t*>(static_cast<uintptr_t>(lp)); }
LONGLONG Address(const void* p) { return static_cast<LONGLONG>(reinterpret_cast<uintptr_t>(p)); }

struct ReleaseProbe {
  int nCalls = 0;
  static void Release(void* pContext) { ++static_cast<ReleaseProbe*>(pContext)->nCalls; }
};

class VCPacketTest : public ::testing::Test {
 protected:
  vc::ComPtr<IVCPacket> Create(const std::vector<uint8_t>& vecData, const K_PACKET_INFO* pInfo = nullptr,
                               const K_STREAM_INFO* pStream = nullptr, const K_TIME* pTime = nullptr) {
    vc::ComPtr<IVCPacket> cpPacket;
    EXPECT_EQ(vc::CreateVCPacket(pInfo, pStream, pTime, vecData.data(), static_cast<LONG>(vecData.size()),
                                 cpPacket.AddressOf()),
              S_OK);
    return cpPacket;
  }
  vc::ComPtr<IVCPacket> CreateOver(const std::vector<uint8_t>& vecData, ReleaseProbe* pProbe) {
    vc::ComPtr<IVCPacket> cpPacket;
    EXPECT_EQ(vc::CreateVCPacketOver(nullptr, nullptr, nullptr, vecData.data(), static_cast<LONG>(vecData.size()),
                                     &ReleaseProbe::Release, pProbe, cpPacket.AddressOf()),
              S_OK);
    return cpPacket;
  }
  static std::vector<uint8_t> PayloadOf(IVCPacket* pPacket) {
    const K_PACKET_INFO info = InfoOf(pPacket);
    const uint8_t* p = Bytes(info.lpPacketData);
    return std::vector<uint8_t>(p, p + info.cbPacketData);
  }
};

TEST_F(VCPacketTest, Create_CopiesPayloadAndPadsWithZeros) {
  std::vector<uint8_t> vecSource = {1, 2, 3, 4, 5};
  K_PACKET_INFO info{};
  info.cbPacketData = 999;  // ignored: the payload given decides
  info.lpPacketData = 12345;
  info.nStreamIndex = 3;
  vc::ComPtr<IVCPacket> cpPacket = Create(vecSource, &info);
  vecSource[0] = 99;

  const K_PACKET_INFO got = InfoOf(cpPacket.Get());
  EXPECT_EQ(got.cbPacketData, 5);
  EXPECT_EQ(got.nStreamIndex, 3);
  EXPECT_NE(got.lpPacketData, Address(vecSource.data()));
  EXPECT_EQ(PayloadOf(cpPacket.Get()), (std::vector<uint8_t>{1, 2, 3, 4, 5}));
  const uint8_t* pPad = Bytes(got.lpPacketData) + got.cbPacketData;
  for (size_t i = 0; i < vc::kPacketPadding; ++i) ASSERT_EQ(pPad[i], 0) << "padding byte " << i;
}

TEST_F(VCPacketTest, Create_CopiesStreamInfoTimeAndSideData) {
  std::vector<uint8_t> vecCodec = {0xA, 0xB, 0xC};
  std::vector<uint8_t> vecSide = {7, 8};
  K_STREAM_INFO stream{};
  stream.eMediaType = eVCMT_Audio;
  stream.nSampleRate = 48000;
  stream.cbCodecData = 3;
  stream.lpCodecData = Address(vecCodec.data());
  stream.bsCodecNameOrTag = SysAllocString(W("aac"));
  K_PACKET_INFO info{};
  info.lpSideData = Address(vecSide.data());
  info.cbSideData = 2;
  K_TIME time{};
  time.rtStartTime = 100;
  time.rtEndTime = 200;
  vc::ComPtr<IVCPacket> cpPacket = Create({1}, &info, &stream, &time);
  SysFreeString(stream.bsCodecNameOrTag);
  vecCodec.assign(3, 0);
  vecSide.assign(2, 0);

  K_STREAM_INFO got{};
  ASSERT_EQ(cpPacket->PacketStreamInfoGet(&got), S_OK);
  EXPECT_EQ(got.eMediaType, eVCMT_Audio);
  EXPECT_EQ(got.nSampleRate, 48000);
  ASSERT_EQ(got.cbCodecData, 3);
  EXPECT_EQ(std::vector<uint8_t>(Bytes(got.lpCodecData), Bytes(got.lpCodecData) + 3),
            (std::vector<uint8_t>{0xA, 0xB, 0xC}));
  ASSERT_NE(got.bsCodecNameOrTag, nullptr);
  EXPECT_EQ(vc::String(got.bsCodecNameOrTag, SysStringLen(got.bsCodecNameOrTag)), vc::String(W("aac")));
  // The codec data stays the packet's; the name is an output string, a
  // fresh copy on every read that the caller frees without harm to the packet.
  K_STREAM_INFO again{};
  cpPacket->PacketStreamInfoGet(&again);
  EXPECT_EQ(again.lpCodecData, got.lpCodecData);
  ASSERT_NE(again.bsCodecNameOrTag, nullptr);
  EXPECT_NE(again.bsCodecNameOrTag, got.bsCodecNameOrTag);
  SysFreeString(got.bsCodecNameOrTag);
  SysFreeString(again.bsCodecNameOrTag);
  K_STREAM_INFO third{};
  cpPacket->PacketStreamInfoGet(&third);
  EXPECT_EQ(vc::String(third.bsCodecNameOrTag, SysStringLen(third.bsCodecNameOrTag)), vc::String(W("aac")));
  SysFreeString(third.bsCodecNameOrTag);

  const K_PACKET_INFO gotInfo = InfoOf(cpPacket.Get());
  ASSERT_EQ(gotInfo.cbSideData, 2);
  EXPECT_EQ(Bytes(gotInfo.lpSideData)[0], 7);
  EXPECT_EQ(Bytes(gotInfo.lpSideData)[1], 8);
  K_TIME gotTime{};
  ASSERT_EQ(cpPacket->PacketTimeGet(&gotTime), S_OK);
  EXPECT_EQ(gotTime.rtStartTime, 100);
  EXPECT_EQ(gotTime.rtEndTime, 200);
}

TEST_F(VCPacketTest, BadArguments_FailWithClearCodes) {
  uint8_t b = 0;
  IVCPacket* pPacket = reinterpret_cast<IVCPacket*>(&b);  // must be cleared on failure
  EXPECT_EQ(vc::CreateVCPacket(nullptr, nullptr, nullptr, &b, -1, &pPacket), E_INVALIDARG);
  EXPECT_EQ(pPacket, nullptr);
  EXPECT_EQ(vc::CreateVCPacket(nullptr, nullptr, nullptr, nullptr, 4, &pPacket), E_POINTER);
  EXPECT_EQ(vc::CreateVCPacket(nullptr, nullptr, nullptr, &b, 1, nullptr), E_POINTER);
  K_PACKET_INFO info{};
  info.cbSideData = 4;  // without a pointer
  EXPECT_EQ(vc::CreateVCPacket(&info, nullptr, nullptr, &b, 1, &pPacket), E_POINTER);

  vc::ComPtr<IVCPacket> cpPacket = Create({1});
  EXPECT_EQ(cpPacket->PacketInfoGet(nullptr), E_POINTER);
  EXPECT_EQ(cpPacket->PacketInfoSet(nullptr), E_POINTER);
  EXPECT_EQ(cpPacket->PacketStreamInfoGet(nullptr), E_POINTER);
  EXPECT_EQ(cpPacket->PacketTimeGet(nullptr), E_POINTER);
}

TEST_F(VCPacketTest, InfoSet_KeepsPayloadAndSideDataPointers) {
  std::vector<uint8_t> vecSide = {1, 2, 3};
  K_PACKET_INFO info{};
  info.lpSideData = Address(vecSide.data());
  info.cbSideData = 3;
  vc::ComPtr<IVCPacket> cpPacket = Create({9, 9}, &info);
  const K_PACKET_INFO before = InfoOf(cpPacket.Get());

  std::vector<uint8_t> vecForeign(64, 1);
  K_PACKET_INFO edited = before;
  edited.lpPacketData = Address(vecForeign.data());
  edited.cbPacketData = 64;
  edited.lpSideData = Address(vecForeign.data());
  edited.cbSideData = 64;
  edited.nIndexInSegment = 17;
  edited.nKeyDistance = 4;
  edited.eFlags = eVCPF_KeyFrame;
  ASSERT_EQ(cpPacket->PacketInfoSet(&edited), S_OK);

  const K_PACKET_INFO after = InfoOf(cpPacket.Get());
  EXPECT_EQ(after.lpPacketData, before.lpPacketData);
  EXPECT_EQ(after.cbPacketData, 2);
  EXPECT_EQ(after.lpSideData, before.lpSideData);
  EXPECT_EQ(after.cbSideData, 3);
  EXPECT_EQ(after.nIndexInSegment, 17);
  EXPECT_EQ(after.nKeyDistance, 4);
  EXPECT_EQ(after.eFlags, eVCPF_KeyFrame);
}

TEST_F(VCPacketTest, AppendData_GrowsPayloadAndKeepsPointerCurrent) {
  vc::ComPtr<IVCPacket> cpPacket = Create({1, 2});
  const std::vector<uint8_t> vecMore = {3, 4, 5};
  ASSERT_EQ(cpPacket->PacketAppendData(3, Address(vecMore.data())), S_OK);
  EXPECT_EQ(PayloadOf(cpPacket.Get()), (std::vector<uint8_t>{1, 2, 3, 4, 5}));

  // Many small appends: the payload stays whole and padded.
  std::vector<uint8_t> vecExpected = {1, 2, 3, 4, 5};
  for (uint8_t i = 0; i < 200; ++i) {
    ASSERT_EQ(cpPacket->PacketAppendData(1, Address(&i)), S_OK);
    vecExpected.push_back(i);
  }
  EXPECT_EQ(PayloadOf(cpPacket.Get()), vecExpected);
  const K_PACKET_INFO info = InfoOf(cpPacket.Get());
  for (size_t i = 0; i < vc::kPacketPadding; ++i) ASSERT_EQ(Bytes(info.lpPacketData)[info.cbPacketData + i], 0);
}

TEST_F(VCPacketTest, AppendData_FromOwnPayloadDoublesIt) {
  vc::ComPtr<IVCPacket> cpPacket = Create({1, 2, 3});
  for (int i = 0; i < 6; ++i) {  // forces reallocations with the source inside the old buffer
    const K_PACKET_INFO info = InfoOf(cpPacket.Get());
    ASSERT_EQ(cpPacket->PacketAppendData(info.cbPacketData, info.lpPacketData), S_OK);
  }
  const std::vector<uint8_t> vecPayload = PayloadOf(cpPacket.Get());
  ASSERT_EQ(vecPayload.size(), 3u * 64u);
  for (size_t i = 0; i < vecPayload.size(); ++i) ASSERT_EQ(vecPayload[i], i % 3 + 1) << "byte " << i;
}

TEST_F(VCPacketTest, AppendData_RejectsBadInputAndLeavesPayload) {
  vc::ComPtr<IVCPacket> cpPacket = Create({1});
  uint8_t b = 2;
  EXPECT_EQ(cpPacket->PacketAppendData(0, Address(&b)), S_FALSE);
  EXPECT_EQ(cpPacket->PacketAppendData(-1, Address(&b)), E_INVALIDARG);
  EXPECT_EQ(cpPacket->PacketAppendData(1, 0), E_POINTER);
  EXPECT_EQ(cpPacket->PacketAppendData(0x7fffffff, Address(&b)), E_INVALIDARG);
  EXPECT_EQ(PayloadOf(cpPacket.Get()), (std::vector<uint8_t>{1}));
}

TEST_F(VCPacketTest, ExternalPayload_ReadInPlaceAndReleasedOnceWithPacket) {
  const std::vector<uint8_t> vecOwned = {4, 5, 6};
  ReleaseProbe probe;
  {
    vc::ComPtr<IVCPacket> cpPacket = CreateOver(vecOwned, &probe);
    EXPECT_EQ(InfoOf(cpPacket.Get()).lpPacketData, Address(vecOwned.data()));
    vc::ComPtr<IVCPacket> cpSecond = cpPacket;
    cpPacket = nullptr;
    EXPECT_EQ(probe.nCalls, 0);
  }
  EXPECT_EQ(probe.nCalls, 1);
}

TEST_F(VCPacketTest, ExternalPayload_AppendCopiesAndReleasesOwnerAtOnce) {
  const std::vector<uint8_t> vecOwned = {4, 5};
  ReleaseProbe probe;
  vc::ComPtr<IVCPacket> cpPacket = CreateOver(vecOwned, &probe);
  // The appended bytes come from the owner's memory itself.
  ASSERT_EQ(cpPacket->PacketAppendData(2, Address(vecOwned.data())), S_OK);
  EXPECT_EQ(probe.nCalls, 1);
  EXPECT_NE(InfoOf(cpPacket.Get()).lpPacketData, Address(vecOwned.data()));
  EXPECT_EQ(PayloadOf(cpPacket.Get()), (std::vector<uint8_t>{4, 5, 4, 5}));
  cpPacket = nullptr;
  EXPECT_EQ(probe.nCalls, 1);
}

TEST_F(VCPacketTest, ExternalPayload_ReleasedWhenCreationFails) {
  uint8_t b = 1;
  ReleaseProbe probe;
  EXPECT_EQ(vc::CreateVCPacketOver(nullptr, nullptr, nullptr, &b, 1, &ReleaseProbe::Release, &probe, nullptr),
            E_POINTER);
  EXPECT_EQ(probe.nCalls, 1);
  IVCPacket* pPacket = nullptr;
  EXPECT_EQ(vc::CreateVCPacketOver(nullptr, nullptr, nullptr, &b, -5, &ReleaseProbe::Release, &probe, &pPacket),
            E_INVALIDARG);
  EXPECT_EQ(probe.nCalls, 2);
  EXPECT_EQ(pPacket, nullptr);
  EXPECT_EQ(vc::CreateVCPacketOver(nullptr, nullptr, nullptr, &b, 1, nullptr, nullptr, &pPacket), E_INVALIDARG);
}

TEST_F(VCPacketTest, StreamInfoWithoutName_HandsOutNoString) {
  K_STREAM_INFO stream{};
  stream.eMediaType = eVCMT_Video;
  vc::ComPtr<IVCPacket> cpPacket = Create({1}, nullptr, &stream);
  K_STREAM_INFO got{};
  got.bsCodecNameOrTag = reinterpret_cast<BSTR>(&stream);  // must be overwritten
  ASSERT_EQ(cpPacket->PacketStreamInfoGet(&got), S_OK);
  EXPECT_EQ(got.bsCodecNameOrTag, nullptr);
  EXPECT_EQ(got.eMediaType, eVCMT_Video);
}

// Our own readers: a share of the packet's description for our packets, a
// copy through the public method (name freed) for anyone else's.
TEST_F(VCPacketTest, OwnReaders_ShareOursAndCopyForeignDescriptions) {
  std::vector<uint8_t> vecCodec = {5, 6};
  K_STREAM_INFO stream{};
  stream.eMediaType = eVCMT_Audio;
  stream.nChannels = 6;
  stream.cbCodecData = 2;
  stream.lpCodecData = Address(vecCodec.data());
  stream.bsCodecNameOrTag = SysAllocString(W("ac3"));
  vc::ComPtr<IVCPacket> cpPacket = Create({1}, nullptr, &stream);
  SysFreeString(stream.bsCodecNameOrTag);

  vc::CKStreamInfo ours;
  ASSERT_EQ(vc::VCPacketStreamInfo(cpPacket.Get(), &ours), S_OK);
  vc::CKStreamInfo oursAgain;
  ASSERT_EQ(vc::VCPacketStreamInfo(cpPacket.Get(), &oursAgain), S_OK);
  EXPECT_TRUE(ours.SharesStorageWith(oursAgain)) << "our packets hand out their own description, not a copy";
  EXPECT_EQ(ours.nChannels, 6);
  EXPECT_EQ(vc::VCPacketMediaType(cpPacket.Get()), eVCMT_Audio);

  queuetest::CForeignPacket foreign(cpPacket.Get());
  vc::CKStreamInfo copied;
  ASSERT_EQ(vc::VCPacketStreamInfo(&foreign, &copied), S_OK);
  EXPECT_EQ(foreign.StreamInfoReads(), 1);
  EXPECT_FALSE(copied.SharesStorageWith(ours));
  EXPECT_TRUE(copied.SameAs(ours));
  EXPECT_EQ(vc::VCPacketMediaType(&foreign), eVCMT_Audio);
  EXPECT_EQ(foreign.StreamInfoReads(), 2);
  EXPECT_EQ(foreign.Refs(), 1u) << "the readers keep no reference";

  const vc::CKStreamInfo before = copied;
  EXPECT_EQ(vc::VCPacketStreamInfo(nullptr, &copied), E_POINTER);
  EXPECT_TRUE(copied.SharesStorageWith(before)) << "a failure leaves the output as it was";
  EXPECT_EQ(vc::VCPacketMediaType(nullptr), eVCMT_Empty);
}

TEST(CKStreamInfoTest, Copies_ShareStorageAndEqualDescriptionsAreShared) {
  std::vector<uint8_t> vecCodec = {1, 2, 3, 4};
  K_STREAM_INFO src{};
  src.eMediaType = eVCMT_Video;
  src.nWidth = 1920;
  src.cbCodecData = 4;
  src.lpCodecData = Address(vecCodec.data());
  src.bsCodecNameOrTag = SysAllocString(W("h264"));

  const vc::CKStreamInfo first(src);
  EXPECT_NE(first.lpCodecData, src.lpCodecData);
  EXPECT_NE(first.bsCodecNameOrTag, src.bsCodecNameOrTag);
  const vc::CKStreamInfo copy = first;
  EXPECT_EQ(copy.lpCodecData, first.lpCodecData);
  EXPECT_TRUE(first.SameAs(src));

  const vc::CKStreamInfo shared = vc::CKStreamInfo::FromShared(src, first);
  EXPECT_EQ(shared.lpCodecData, first.lpCodecData);

  // Each difference makes a description of its own.
  K_STREAM_INFO other = src;
  other.nWidth = 1280;
  EXPECT_FALSE(first.SameAs(other));
  vecCodec[3] = 9;
  EXPECT_FALSE(first.SameAs(src));
  const vc::CKStreamInfo fresh = vc::CKStreamInfo::FromShared(src, first);
  EXPECT_NE(fresh.lpCodecData, first.lpCodecData);
  EXPECT_EQ(Bytes(fresh.lpCodecData)[3], 9);
  vecCodec[3] = 4;
  BSTR bsOther = SysAllocString(W("H264"));
  other = src;
  other.bsCodecNameOrTag = bsOther;
  EXPECT_FALSE(first.SameAs(other));
  other.bsCodecNameOrTag = nullptr;
  EXPECT_FALSE(first.SameAs(other));
  SysFreeString(bsOther);
  SysFreeString(src.bsCodecNameOrTag);
}

}  // namespace
