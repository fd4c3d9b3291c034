// A muxer facade over scripted candidates: the test module is registered in
// the private registry under the general muxer's class identifier for the
// test's duration (nablet's only when a test asks: on this system that class
// does not exist), and every call the facade makes on a candidate must have
// been scripted or allowed. Creation, configuration and closing are allowed
// for every class; streams and packets are each test's business.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "CoVCMuxer.h"
#include "TestEnvironment.h"
#include "VCCodecs/VCPacket.h"
#include "VCComPtr.h"
#include "VCLog.h"
#include "VCStrings.h"
#include "modules/ScriptedFixture.h"

namespace vctest {

class ScriptedMuxerTest : public ScriptedFixture {
 protected:
  static constexpr HRESULT kNoMuxer = static_cast<HRESULT>(0x800710D2u);
  static constexpr HRESULT kNoCandidate = static_cast<HRESULT>(0x80070032u);
  static constexpr const char* kNablet = "{090AD36C-B9C2-483C-97F7-4F7023D238DB}";
  static constexpr const char* kGeneral = "{96EB1F23-4CC0-4830-9CC3-F064196B2626}";

  void SetUp() override {
    StartScript(3, {eCall::Create, eCall::MuxerSet, eCall::MuxerClose}, {kGeneral});
    if (HasFatalFailure()) return;
    ASSERT_EQ(vc::CreateObject<vc::CCoVCMuxer>(nullptr, vc::IidOf<IVCMuxer>(),
                                               reinterpret_cast<void**>(m_cpMuxer.AddressOf())),
              S_OK);
    m_pFacade = static_cast<vc::CCoVCMuxer*>(m_cpMuxer.Get());
    ASSERT_EQ(m_cpMuxer.As(&m_cpProps), S_OK);
  }

  void TearDown() override {
    StopScript({eCall::MuxerClose});
    if (m_cpMuxer) m_cpMuxer->MuxerClose();
    m_cpProps = nullptr;
    m_cpMuxer = nullptr;
    UnregisterClasses();
    UnregisterScripted(kNablet);  // registered by the tests that ask for it
  }

  // --- Facade calls ---

  HRESULT Set(std::string_view path, const char* szProps = nullptr) {
    const vc::CBstr bsPath(path);
    const vc::CBstr bsProps(std::string_view(szProps ? szProps : ""));
    return m_cpMuxer->MuxerSet(bsPath, szProps ? bsProps.Get() : nullptr);
  }
  // The facade's stored path ("" when none).
  std::string StoredPath() const {
    vc::String strPath;
    m_pFacade->_Target(&strPath, nullptr);
    return vc::ToUtf8(strPath);
  }

  static vc::CKStreamInfo VideoStream() {
    const vc::CBstr bsName(std::string_view("h264"));
    K_STREAM_INFO info{};
    info.eMediaType = eVCMT_Video;
    info.nWidth = 320;
    info.nHeight = 240;
    info.dblRate = 25.0;
    info.bsCodecNameOrTag = bsName.Get();
    return vc::CKStreamInfo(info);
  }
  static vc::ComPtr<IVCPacket> Packet(LONG nStream, LONGLONG rtStart, LONGLONG rtEnd) {
    K_PACKET_INFO info{};
    info.nStreamIndex = nStream;
    info.llPts = rtStart;
    info.llDts = rtStart;
    info.llDuration = rtEnd - rtStart;
    K_TIME time{};
    time.rtStartTime = rtStart;
    time.rtEndTime = rtEnd;
    const uint8_t payload[8] = {1};
    vc::ComPtr<IVCPacket> cpPacket;
    EXPECT_EQ(vc::CreateVCPacket(&info, nullptr, &time, payload, sizeof(payload), cpPacket.AddressOf()), S_OK);
    return cpPacket;
  }

  vc::ComPtr<IVCMuxer> m_cpMuxer;
  vc::CCoVCMuxer* m_pFacade = nullptr;
};

}  // namespace vctest
