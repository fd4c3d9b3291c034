// A splitter facade over the scripted inner splitter: the test module is
// registered in the private registry under the inner splitters' class
// identifiers for the test's duration, and every call the facade makes on
// it must have been scripted or allowed.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "CoVCSplitter.h"
#include "TestEnvironment.h"
#include "VCComPtr.h"
#include "modules/ScriptedFixture.h"

namespace vctest {

inline constexpr LONGLONG kMs = 10000;
inline constexpr LONGLONG kSec = 10000000;

class ScriptedSplitterTest : public ScriptedFixture {
 protected:
  void SetUp() override {
    // Every close stops the inner splitter and closes it (a new open closes
    // the old source).
    StartScript(0, {eCall::Create, eCall::SplitterStop, eCall::SplitterClose}, {kGeneral, kNablet});
    if (HasFatalFailure()) return;
    ASSERT_EQ(vc::CreateObject<vc::CCoVCSplitter>(nullptr, vc::IidOf<IVCSplitter>(),
                                                  reinterpret_cast<void**>(m_cpSplitter.AddressOf())),
              S_OK);
    m_pFacade = static_cast<vc::CCoVCSplitter*>(m_cpSplitter.Get());
  }

  void TearDown() override {
    StopScript({eCall::SplitterStop, eCall::SplitterBeginSegment, eCall::Create, eCall::SplitterClose});
    if (m_pScript) m_pScript->Allow(eCall::SplitterPacketGet, HRESULT_FROM_WIN32(ERROR_END_OF_MEDIA));
    if (m_cpSplitter) m_cpSplitter->SplitterClose();
    m_cpSplitter = nullptr;
    UnregisterClasses();
  }

  // Opens path through a scripted open that answers hr.
  HRESULT Open(const char* szPath, HRESULT hr = S_OK) {
    Step step = Step::Answer(eCall::SplitterOpen, hr);
    m_pScript->Expect(step);
    LONG nStreams = 0;
    return m_cpSplitter->SplitterOpen(vc::CBstr(std::string_view(szPath)), nullptr, &nStreams);
  }
  // A segment request naming streams; the inner splitter is expected to be
  // repositioned once.
  HRESULT Segment(LONGLONG rtStart, const char* szStreams) {
    m_pScript->Expect(Step::Answer(eCall::SplitterBeginSegment, S_OK));
    return m_cpSplitter->SplitterBeginSegment(rtStart, vc::CBstr(std::string_view(szStreams)));
  }
  // Names the streams (which makes their queues and parks the thread), then
  // asks for the same start again: the empty queues make the source move
  // once more and the thread reads on. Two inner segment calls.
  HRESULT SegmentAndRead(LONGLONG rtStart, const char* szStreams) {
    const HRESULT hr = Segment(rtStart, szStreams);
    if (FAILED(hr)) return hr;
    return Segment(rtStart, "");
  }
  HRESULT Get(LONG nStream, vc::ComPtr<IVCPacket>* pcpPacket, const char* szHints = "") {
    *pcpPacket = nullptr;
    return m_cpSplitter->SplitterPacketGet(nStream, pcpPacket->AddressOf(), vc::CBstr(std::string_view(szHints)));
  }
  static K_PACKET_INFO Info(IVCPacket* pPacket) {
    K_PACKET_INFO info{};
    pPacket->PacketInfoGet(&info);
    return info;
  }

  static constexpr const char* kGeneral = "{96EB1F14-4CC0-4830-9CC3-F064196B2626}";
  static constexpr const char* kNablet = "{ECFBFE56-F923-44B6-91D4-C9E3EA04131B}";

  vc::ComPtr<IVCSplitter> m_cpSplitter;
  vc::CCoVCSplitter* m_pFacade = nullptr;
};

}  // namespace vctest
