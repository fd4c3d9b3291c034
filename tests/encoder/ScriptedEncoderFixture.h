// An encoder facade over scripted inner encoders: the test module is
// registered in the private registry under the four encoder class
// identifiers of the codec table for the test's duration, and every call
// the facade makes on an inner encoder must have been scripted or allowed.
// Creation, configuration and EncodeClose are allowed for every class; a
// test narrows them per class. Frames are small doubles with times,
// properties and named strings.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "CoVCEncoder.h"
#include "AttachingFrame.h"
#include "TestEnvironment.h"
#include "VCCodecs/VCAttachments.h"
#include "VCComPtr.h"
#include "VCCritSec.h"
#include "VCLog.h"
#include "VCObject.h"
#include "VCStrings.h"
#include "modules/ScriptedFixture.h"

namespace vctest {

inline constexpr const char* kNVEncClsid = "{D0C31F85-8131-48FD-82DA-1D2249FFBD53}";
inline constexpr const char* kIntelQSClsid = "{BE272839-CA83-42CA-931A-8273EFBDA9AE}";
inline constexpr const char* kAMDClsid = "{D5506CCF-973E-4C01-A25F-A4556DA73992}";
inline constexpr const char* kGeneralClsid = "{96EB1F26-4CC0-4830-9CC3-F064196B2626}";
inline constexpr HRESULT kBusy = static_cast<HRESULT>(0x80040274u);
inline constexpr HRESULT kNotSupported = static_cast<HRESULT>(0x80070032u);
inline constexpr HRESULT kEmpty = static_cast<HRESULT>(0x800710D2u);

class ScriptedEncoderTest : public ScriptedFixture {
 protected:
  static constexpr LONGLONG kMsec = VC_TIME_MILLISECOND;
  static constexpr LONGLONG kFrame = 40 * VC_TIME_MILLISECOND;

  void SetUp() override {
    StartScript(2, {eCall::Create, eCall::EncodeCodecSet, eCall::EncodeClose},
                {kNVEncClsid, kIntelQSClsid, kAMDClsid, kGeneralClsid});
    if (HasFatalFailure()) return;
    ASSERT_EQ(vc::CreateObject<vc::CCoVCEncoder>(nullptr, vc::IidOf<IVCEncoder>(),
                                                 reinterpret_cast<void**>(m_cpEncoder.AddressOf())),
              S_OK);
    m_pFacade = static_cast<vc::CCoVCEncoder*>(m_cpEncoder.Get());
    ASSERT_EQ(m_cpEncoder.As(&m_cpProps), S_OK);
  }

  void TearDown() override {
    StopScript({eCall::EncodeClose});
    if (m_cpEncoder) m_cpEncoder->EncodeClose();
    m_cpProps = nullptr;
    m_cpEncoder = nullptr;
    UnregisterClasses();
  }

  // --- Driving the facade ---

  HRESULT Set(eVCMediaType eType, const char* szConfig) {
    return m_cpEncoder->EncodeCodecSet(eType, vc::CBstr(std::string_view(szConfig)));
  }
  static K_AV_PROPS VideoProps(LONG nWidth = 320, LONG nHeight = 240, double dblRate = 25.0) {
    K_AV_PROPS props{};
    props.vidProps.fccType = static_cast<eVCCC>(0x30323449);  // I420
    props.vidProps.nWidth = nWidth;
    props.vidProps.nHeight = nHeight;
    props.vidProps.dblRate = dblRate;
    return props;
  }
  static K_AV_PROPS AudioProps() {
    K_AV_PROPS props{};
    props.audProps.nChannels = 2;
    props.audProps.nSamplesPerSec = 48000;
    props.audProps.nBitsPerSample = 16;
    return props;
  }
  // A frame starting at rtStart; szId, when given, is attached as "frame.id".
  static vc::ComPtr<IVCFrame> Frame(LONGLONG rtStart, const K_AV_PROPS& props = VideoProps(),
                                    const char* szId = nullptr) {
    vc::CKComObject<CAttachingFrame>* pFrame = nullptr;
    EXPECT_EQ(vc::CKComObject<CAttachingFrame>::CreateInstance(&pFrame), S_OK);
    vc::ComPtr<IVCFrame> cpFrame;
    cpFrame.Attach(pFrame);
    K_TIME time{};
    time.rtStartTime = rtStart;
    time.rtEndTime = rtStart + kFrame;
    pFrame->Init(time, props);
    if (szId) cpFrame->VCStrSet(vc::CBstr(std::string_view("frame.id")), vc::CBstr(std::string_view(szId)));
    return cpFrame;
  }
  // An EncodeFramePut step that gives a packet at once with these times.
  static Step PacketAt(LONGLONG rtStart) {
    Step step = Step::Answer(eCall::EncodeFramePut, S_OK);
    step.bFrameTimes = true;
    step.rtStart = rtStart;
    step.rtEnd = rtStart + kFrame;
    return step;
  }
  static Step NoPacket() {
    Step step = Step::Answer(eCall::EncodeFramePut, S_OK);
    step.bNoPacket = true;
    return step;
  }
  static std::string AttachedId(IVCPacket* pPacket) {
    vc::ComPtr<IVCSideData> cpSideData;
    if (!pPacket || FAILED(pPacket->QueryInterface(vc::IidOf<IVCSideData>(),
                                                   reinterpret_cast<void**>(cpSideData.AddressOf()))))
      return "(no side data)";
    vc::CBstr bsValue;
    if (cpSideData->SideDataStrGet(0, vc::CBstr(std::string_view("frame.id")), &bsValue) != S_OK) return "(none)";
    return vc::ToUtf8(bsValue.View());
  }

  // --- Reading the script ---

  // (class kind, configuration text) of every EncodeCodecSet so far.
  std::vector<std::pair<std::string, std::string>> Configs() const {
    std::vector<std::pair<std::string, std::string>> vec;
    for (const CallRecord& record : Calls(eCall::EncodeCodecSet)) vec.emplace_back(Kind(record.objClass), record.strText);
    return vec;
  }
  static std::string Kind(eClass objClass) {
    switch (objClass) {
      case eClass::NVEncEncoder: return "nvenc";
      case eClass::IntelQSEncoder: return "intelqs";
      case eClass::AMDEncoder: return "amd";
      case eClass::GeneralEncoder: return "general";
      default: return "?";
    }
  }
  vc::ComPtr<IVCEncoder> m_cpEncoder;
  vc::CCoVCEncoder* m_pFacade = nullptr;
};

}  // namespace vctest
