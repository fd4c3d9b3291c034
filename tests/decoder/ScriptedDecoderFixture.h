// A decoder facade over scripted candidates: the test module is registered
// in the private registry under the three decoder class identifiers (NVIDIA,
// QuickSync, the general decoder) for the test's duration, and every call
// the facade makes on a candidate must have been scripted or allowed.
// Creation is allowed for every class and DecodeClose answers S_OK; what a
// candidate says to DecodeIsSupported and DecodePacket is each test's
// business.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "CoVCDecoder.h"
#include "TestEnvironment.h"
#include "VCCodecs/VCPacket.h"
#include "VCComPtr.h"
#include "VCLog.h"
#include "VCStrings.h"
#include "modules/ScriptedFixture.h"

namespace vctest {

class ScriptedDecoderTest : public ScriptedFixture {
 protected:
  static constexpr LONGLONG kMsec = VC_TIME_MILLISECOND;
  static constexpr LONGLONG kFrame = 40 * VC_TIME_MILLISECOND;  // one frame at 25 fps

  void SetUp() override {
    StartScript(1, {eCall::Create, eCall::DecodeClose}, {kNVidia, kQuickSync, kGeneral});
    if (HasFatalFailure()) return;
    ASSERT_EQ(vc::CreateObject<vc::CCoVCDecoder>(nullptr, vc::IidOf<IVCDecoder>(),
                                                 reinterpret_cast<void**>(m_cpDecoder.AddressOf())),
              S_OK);
    m_pFacade = static_cast<vc::CCoVCDecoder*>(m_cpDecoder.Get());
    ASSERT_EQ(m_cpDecoder.As(&m_cpProps), S_OK);
  }

  void TearDown() override {
    StopScript({eCall::DecodeClose});
    if (m_cpDecoder) m_cpDecoder->DecodeClose();
    m_cpProps = nullptr;
    m_cpDecoder = nullptr;
    UnregisterClasses();
  }

  // --- Streams and packets ---

  static vc::CKStreamInfo VideoStream(const char* szCodec = "h264", LONG nWidth = 320, LONG nHeight = 240,
                                      double dblRate = 25.0, std::vector<uint8_t> vecCodecData = {1, 2, 3, 4}) {
    const vc::CBstr bsName(std::string_view(szCodec ? szCodec : ""));
    K_STREAM_INFO info{};
    info.eMediaType = eVCMT_Video;
    info.nWidth = nWidth;
    info.nHeight = nHeight;
    info.dblRate = dblRate;
    info.raTimeBase = {1, 90000};
    info.cbCodecData = static_cast<LONG>(vecCodecData.size());
    info.lpCodecData = vecCodecData.empty() ? 0 : static_cast<LONGLONG>(reinterpret_cast<uintptr_t>(vecCodecData.data()));
    info.bsCodecNameOrTag = szCodec ? bsName.Get() : nullptr;
    return vc::CKStreamInfo(info);  // a deep copy: owns its name and codec data
  }
  static vc::CKStreamInfo AudioStream(const char* szCodec = "aac", LONG nSampleRate = 48000, LONG nChannels = 2) {
    const vc::CBstr bsName{std::string_view(szCodec)};
    K_STREAM_INFO info{};
    info.eMediaType = eVCMT_Audio;
    info.nSampleRate = nSampleRate;
    info.nChannels = nChannels;
    info.nBitsPerCodedSample = 16;
    info.raTimeBase = {1, nSampleRate};
    info.bsCodecNameOrTag = bsName.Get();
    return vc::CKStreamInfo(info);
  }
  // A packet of stream covering [rtStart, rtEnd).
  static vc::ComPtr<IVCPacket> Packet(const vc::CKStreamInfo& stream, LONGLONG rtStart, LONGLONG rtEnd,
                                      LONG eFlags = eVCPF_None) {
    K_PACKET_INFO info{};
    info.eFlags = static_cast<eVCPacketFlags>(eFlags);
    info.llPts = rtStart;
    info.llDts = rtStart;
    info.llDuration = rtEnd - rtStart;
    K_TIME time{};
    time.rtStartTime = rtStart;
    time.rtEndTime = rtEnd;
    const uint8_t payload[16] = {7};
    vc::ComPtr<IVCPacket> cpPacket;
    EXPECT_EQ(vc::CreateVCPacket(&info, &stream.Get(), &time, payload, sizeof(payload), cpPacket.AddressOf()), S_OK);
    return cpPacket;
  }
  // Packet n (from 0) of a 25 fps stream.
  static vc::ComPtr<IVCPacket> FramePacket(const vc::CKStreamInfo& stream, int n, LONG eFlags = eVCPF_None) {
    return Packet(stream, n * kFrame, (n + 1) * kFrame, eFlags);
  }

  // --- Facade calls ---

  HRESULT IsSupported(const vc::CKStreamInfo& stream, BOOL* pbSupported = nullptr) {
    return m_cpDecoder->DecodeIsSupported(const_cast<K_STREAM_INFO*>(&stream.Get()), nullptr, pbSupported);
  }
  HRESULT Decode(IVCPacket* pPacket, vc::ComPtr<IVCFrame>* pcpFrame, LONGLONG rtSegmentStart = -1) {
    *pcpFrame = nullptr;
    return m_cpDecoder->DecodePacket(pPacket, rtSegmentStart, nullptr, pcpFrame->AddressOf(), nullptr);
  }
  // Only the general candidate is tried, and it accepts every stream.
  void UseGeneralOnly() {
    SetProp("decoder.nvidia", "false");
    SetProp("decoder.quicksync", "false");
    m_pScript->AllowStep(Step::For(eClass::GeneralDecoder, eCall::DecodeIsSupported, S_OK));
  }

  // --- Frames ---

  static K_TIME TimeOf(IVCFrame* pFrame) {
    K_TIME time{};
    EXPECT_EQ(pFrame->VCTimeGet(&time), S_OK);
    return time;
  }
  // A string the scripted decoder put on the frame ("scripted.decoder": the
  // class kind; "scripted.packet": the packet's number in its decoder).
  static std::string FrameString(IVCFrame* pFrame, const char* szName) {
    vc::CBstr bsValue;
    if (FAILED(pFrame->VCStrGet(vc::CBstr(std::string_view(szName)), &bsValue))) return kAbsent;
    return vc::ToUtf8(bsValue.View());
  }
  // The object attached under szName, null when none.
  static vc::ComPtr<IUnknown> FrameObject(IVCFrame* pFrame, const char* szName) {
    vc::ComPtr<IUnknown> cpObject;
    pFrame->VCObjGet(vc::CBstr(std::string_view(szName)), cpObject.AddressOf(), FALSE);
    return cpObject;
  }
  static bool SameObject(IUnknown* pA, IUnknown* pB) {
    vc::ComPtr<IUnknown> cpA, cpB;
    if (!pA || !pB) return pA == pB;
    pA->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(cpA.AddressOf()));
    pB->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(cpB.AddressOf()));
    return cpA.Get() == cpB.Get();
  }

  // --- What the candidates saw ---

  // The candidate table's states in order.
  std::vector<LONG> States() const {
    std::vector<LONG> vecStates;
    for (const vc::VCCandidate& entry : m_pFacade->_Candidates()) vecStates.push_back(entry.nState);
    return vecStates;
  }

  static constexpr const char* kNVidia = "{2CBD671C-8106-49EC-8ABB-9D67CF025301}";
  static constexpr const char* kQuickSync = "{BF23862C-7C7B-4CE3-8FE7-4CA5171D624E}";
  static constexpr const char* kGeneral = "{96EB1F64-4CC0-4830-9CC3-F064196B2626}";

  vc::ComPtr<IVCDecoder> m_cpDecoder;
  vc::CCoVCDecoder* m_pFacade = nullptr;
};

}  // namespace vctest
