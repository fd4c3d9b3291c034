// A muxer facade over scripted candidates: the test module is registered in
// the private registry under the general muxer's class identifier for the
// test's duration (nablet's only when a test asks: on this system that class
// does not exist), and every call the facade makes on a candidate must have
// been scripted or allowed. Creation, configuration and closing are allowed
// for every class; streams and packets are each test's business.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "CoVCMuxer.h"
#include "TestEnvironment.h"
#include "VCCodecs/VCPacket.h"
#include "VCComPtr.h"
#include "VCLog.h"
#include "VCStrings.h"
#include "modules/ScriptedModuleUse.h"
#include "modules/ScriptedObjects.h"

namespace vctest {

class ScriptedMuxerTest : public ::testing::Test {
 protected:
  static constexpr HRESULT kNoMuxer = static_cast<HRESULT>(0x800710D2u);
  static constexpr HRESULT kNoCandidate = static_cast<HRESULT>(0x80070032u);
  static constexpr const char* kNablet = "{090AD36C-B9C2-483C-97F7-4F7023D238DB}";
  static constexpr const char* kGeneral = "{96EB1F23-4CC0-4830-9CC3-F064196B2626}";

  static IScript* Script() {
    static IScript* s_pScript = LoadScript(3);
    return s_pScript;
  }

  void SetUp() override {
    m_pScript = Script();
    ASSERT_TRUE(m_pScript) << "the scripted test module did not load";
    m_pScript->Reset();
    m_pScript->Allow(eCall::Create, S_OK);
    m_pScript->Allow(eCall::MuxerSet, S_OK);
    m_pScript->Allow(eCall::MuxerClose, S_OK);
    RegisterScripted(kGeneral);
    if (HasFatalFailure()) return;
    ASSERT_EQ(vc::CreateObject<vc::CCoVCMuxer>(nullptr, vc::IidOf<IVCMuxer>(),
                                               reinterpret_cast<void**>(m_cpMuxer.AddressOf())),
              S_OK);
    m_pFacade = static_cast<vc::CCoVCMuxer*>(m_cpMuxer.Get());
    ASSERT_EQ(m_cpMuxer.As(&m_cpProps), S_OK);
  }

  void TearDown() override {
    if (m_pScript) {
      std::string strAll;
      for (const std::string& str : m_pScript->Unexpected()) strAll += str + "\n";
      EXPECT_TRUE(strAll.empty()) << "calls nobody scripted:\n" << strAll;
      m_pScript->Reset();  // lets held calls go
      m_pScript->Allow(eCall::MuxerClose, S_OK);
    }
    if (m_cpMuxer) m_cpMuxer->MuxerClose();
    m_cpProps = nullptr;
    m_cpMuxer = nullptr;
    UnregisterScripted(kGeneral);
    UnregisterScripted(kNablet);
  }

  // --- Facade calls ---

  HRESULT Set(std::string_view path, const char* szProps = nullptr) {
    const vc::CBstr bsPath(path);
    const vc::CBstr bsProps(std::string_view(szProps ? szProps : ""));
    return m_cpMuxer->MuxerSet(bsPath, szProps ? bsProps.Get() : nullptr);
  }
  void SetProp(const char* szName, const char* szValue) {
    ASSERT_EQ(m_cpProps->PropsSet(vc::CBstr(std::string_view(szName)), vc::CBstr(std::string_view(szValue))), S_OK)
        << szName;
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

  // --- What the candidates saw ---

  size_t Mark() const { return m_pScript->Calls().size(); }
  std::vector<CallRecord> Calls(eCall call, size_t nFrom = 0) const {
    std::vector<CallRecord> vecCalls;
    const std::vector<CallRecord> vecAll = m_pScript->Calls();
    for (size_t n = nFrom; n < vecAll.size(); ++n)
      if (vecAll[n].call == call) vecCalls.push_back(vecAll[n]);
    return vecCalls;
  }
  // The kinds the factory was asked for, in order ("nablet", "general").
  std::vector<std::string> Created(size_t nFrom = 0) const {
    std::vector<std::string> vecKinds;
    for (const CallRecord& record : Calls(eCall::Create, nFrom)) vecKinds.push_back(record.strText);
    return vecKinds;
  }
  // The object the last call of this kind went to (0: none).
  uint64_t LastObject(eCall call) const {
    const std::vector<CallRecord> vecCalls = Calls(call);
    return vecCalls.empty() ? 0 : vecCalls.back().nObject;
  }

  static bool LogLineWith(const vc::CLogCapture& log, std::initializer_list<std::string_view> parts,
                          int nLevel = -1) {
    for (const vc::LogRecord& record : log.Records())
      if ((nLevel < 0 || record.nLevel == nLevel) &&
          std::all_of(parts.begin(), parts.end(),
                      [&](std::string_view part) { return record.strMessage.find(part) != std::string::npos; }))
        return true;
    return false;
  }

  IScript* m_pScript = nullptr;
  vc::ComPtr<IVCMuxer> m_cpMuxer;
  vc::ComPtr<IVCProps> m_cpProps;
  vc::CCoVCMuxer* m_pFacade = nullptr;
};

}  // namespace vctest
