// What every facade shares: the candidate walk (order, failure marking,
// refusals, filters, the property copy reaching a candidate before it is
// asked) and the inner-object holder.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "CountedUnknown.h"
#include "Devices/KPropsImpl.h"
#include "VCCodecs/VCCandidates.h"
#include "VCCodecs/VCInnerHolder.h"
#include "VCCodecs/VCPropsCopy.h"
#include "VCObject.h"

namespace vctest {
namespace {

constexpr CLSID kFirst = vc::MakeGuid("0A000001-0000-4000-8000-000000000001");
constexpr CLSID kSecond = vc::MakeGuid("0A000002-0000-4000-8000-000000000002");
constexpr CLSID kThird = vc::MakeGuid("0A000003-0000-4000-8000-000000000003");

// A candidate decoder that answers DecodeIsSupported as told and notes the
// "probe" property it holds at that moment.
class CFakeDecoder : public vc::CKObjectRoot, public IVCDecoder, public vc::IKPropsImpl<CFakeDecoder> {
 public:
  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return vc::QueryInterfaceTable<IVCDecoder, IVCProps>(this, riid, ppv);
  }
  vc::CKCritSec& _PropsLock() { return m_csLock; }

  HRESULT STDMETHODCALLTYPE DecodeIsSupported(K_STREAM_INFO*, IVCPacket*, BOOL*) override {
    vc::CBstr bsValue;
    if (PropsGet(vc::CBstr(W("probe")), &bsValue) == S_OK) m_strProbeWhenAsked = bsValue.Utf8();
    return m_hrAnswer;
  }
  HRESULT STDMETHODCALLTYPE DecodePacket(IVCPacket*, LONGLONG, K_AV_PROPS*, IVCFrame**, BSTR) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE DecodeAudio(IVCPacket*, LONGLONG, IVCAudioBuffer*, LONG*, BSTR) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE DecodeClose() override { return S_OK; }

  HRESULT m_hrAnswer = S_OK;
  std::string m_strProbeWhenAsked;

 private:
  vc::CKCritSec m_csLock;
};

class CandidateWalkTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_walk.fnCreate = [this](const vc::VCCandidate& entry, REFIID riid, void** ppv) -> HRESULT {
      const std::string strName = vc::ToUtf8(entry.strName);
      m_vecCreated.push_back(strName);
      const auto it = m_mapCreateFails.find(strName);
      if (it != m_mapCreateFails.end()) return it->second;
      vc::ComPtr<IVCDecoder> cpDecoder;
      const HRESULT hr = vc::CreateObject<CFakeDecoder>(nullptr, vc::IidOf<IVCDecoder>(),
                                                        reinterpret_cast<void**>(cpDecoder.AddressOf()));
      if (FAILED(hr)) return hr;
      auto* pFake = static_cast<CFakeDecoder*>(cpDecoder.Get());
      pFake->m_hrAnswer = m_mapAnswers.count(strName) ? m_mapAnswers[strName] : S_OK;
      m_mapObjects[strName] = pFake;
      return cpDecoder->QueryInterface(riid, ppv);
    };
    m_walk.fnCreateFailed = [this](const vc::VCCandidate& entry, HRESULT) {
      m_vecLog.push_back("create failed " + vc::ToUtf8(entry.strName));
    };
    m_walk.fnRefused = [this](const vc::VCCandidate& entry, HRESULT) {
      m_vecLog.push_back("refused " + vc::ToUtf8(entry.strName));
    };
  }

  static vc::VCCandidate Entry(CLSID clsid, const char* szName, eVCMediaType eType = eVCMT_Empty,
                               const char* szCodec = "") {
    return {clsid, vc::FromUtf8(szName), eType, vc::FromUtf8(szCodec), 0};
  }

  vc::VCCandidateResult Walk(vc::ComPtr<IVCDecoder>* pcpAccepted = nullptr) {
    m_vecCreated.clear();
    vc::ComPtr<IVCDecoder> cpAccepted;
    const vc::VCCandidateResult result = vc::VCWalkCandidates(
        m_vecTable, m_walk,
        [this](IVCDecoder* pDecoder) {
          m_vecAsked.push_back(pDecoder);
          return pDecoder->DecodeIsSupported(nullptr, nullptr, nullptr);
        },
        &cpAccepted);
    if (pcpAccepted) *pcpAccepted = cpAccepted;
    return result;
  }

  std::vector<vc::VCCandidate> m_vecTable;
  vc::VCCandidateWalk m_walk;
  std::map<std::string, HRESULT> m_mapCreateFails;
  std::map<std::string, HRESULT> m_mapAnswers;
  std::map<std::string, CFakeDecoder*> m_mapObjects;  // not owned: valid while the walk's result lives
  std::vector<std::string> m_vecCreated;
  std::vector<IVCDecoder*> m_vecAsked;
  std::vector<std::string> m_vecLog;
};

TEST_F(CandidateWalkTest, FirstAcceptingCandidateInTableOrderWins) {
  m_vecTable = {Entry(kFirst, "first"), Entry(kSecond, "second"), Entry(kThird, "third")};
  m_mapAnswers["first"] = S_FALSE;
  vc::ComPtr<IVCDecoder> cpAccepted;
  const vc::VCCandidateResult result = Walk(&cpAccepted);
  EXPECT_EQ(result.hr, S_OK);
  EXPECT_EQ(result.nIndex, 1);
  EXPECT_EQ(m_vecCreated, (std::vector<std::string>{"first", "second"}));  // the third is never made
  ASSERT_TRUE(cpAccepted);
  EXPECT_EQ(cpAccepted.Get(), static_cast<IVCDecoder*>(m_mapObjects["second"]));
  EXPECT_EQ(m_vecLog, (std::vector<std::string>{"refused first"}));
}

TEST_F(CandidateWalkTest, FailuresMarkTheEntryWhileSuccessRefusalsLeaveItEligible) {
  m_vecTable = {Entry(kFirst, "cannot-create"), Entry(kSecond, "fails"), Entry(kThird, "declines")};
  m_mapCreateFails["cannot-create"] = REGDB_E_CLASSNOTREG;
  m_mapAnswers["fails"] = E_FAIL;
  m_mapAnswers["declines"] = S_FALSE;

  vc::VCCandidateResult result = Walk();
  EXPECT_EQ(result.hr, vc::VC_E_NO_CANDIDATE);
  EXPECT_EQ(result.hrLast, S_FALSE);
  EXPECT_EQ(result.nIndex, -1);
  EXPECT_EQ(m_vecTable[0].nState, -1);
  EXPECT_EQ(m_vecTable[1].nState, -1);
  EXPECT_EQ(m_vecTable[2].nState, 0);
  EXPECT_EQ(m_vecLog, (std::vector<std::string>{"create failed cannot-create", "refused fails", "refused declines"}));

  // The next walk over the same table tries only the entry that declined.
  m_mapAnswers["declines"] = S_OK;
  result = Walk();
  EXPECT_EQ(result.hr, S_OK);
  EXPECT_EQ(result.nIndex, 2);
  EXPECT_EQ(m_vecCreated, (std::vector<std::string>{"declines"}));
}

TEST_F(CandidateWalkTest, NoCandidateReportsTheLastFailureCode) {
  m_vecTable = {Entry(kFirst, "first"), Entry(kSecond, "second")};
  m_mapAnswers["first"] = S_FALSE;
  m_mapCreateFails["second"] = E_ACCESSDENIED;
  const vc::VCCandidateResult result = Walk();
  EXPECT_EQ(result.hr, vc::VC_E_NO_CANDIDATE);
  EXPECT_EQ(result.hrLast, E_ACCESSDENIED);
}

TEST_F(CandidateWalkTest, MediaTypeCodecAndFacadeFiltersSkipWithoutMarking) {
  m_vecTable = {Entry(kFirst, "video-only", eVCMT_Video), Entry(kSecond, "hevc-only", eVCMT_Empty, "HEVC"),
                Entry(kThird, "any")};
  m_walk.eMediaType = eVCMT_Audio;
  m_walk.strCodec = vc::FromUtf8("aac");
  vc::VCCandidateResult result = Walk();
  EXPECT_EQ(result.nIndex, 2);
  EXPECT_EQ(m_vecCreated, (std::vector<std::string>{"any"}));
  EXPECT_EQ(m_vecTable[0].nState, 0);
  EXPECT_EQ(m_vecTable[1].nState, 0);

  // The codec filter is the whole name without regard to case.
  m_walk.eMediaType = eVCMT_Video;
  m_walk.strCodec = vc::FromUtf8("hevc");
  m_mapAnswers["video-only"] = S_FALSE;
  result = Walk();
  EXPECT_EQ(result.nIndex, 1);
  EXPECT_EQ(m_vecCreated, (std::vector<std::string>{"video-only", "hevc-only"}));

  // The facade's own choice comes on top.
  m_walk.fnEligible = [](const vc::VCCandidate& entry) { return IsEqualGUID(entry.clsid, kThird); };
  result = Walk();
  EXPECT_EQ(result.nIndex, 2);
  EXPECT_EQ(m_vecCreated, (std::vector<std::string>{"any"}));
}

TEST_F(CandidateWalkTest, FacadePropertiesReachEachCandidateBeforeItIsAsked) {
  m_vecTable = {Entry(kFirst, "first"), Entry(kSecond, "second")};
  m_mapAnswers["first"] = S_FALSE;
  XMLParse::XMLNodePtr spProps = XMLParse::CoXMLNode::Create();
  ASSERT_EQ(spProps->SetAttributePath(W("probe"), W("a&b <c>"), false), S_OK);
  m_walk.pProps = spProps.get();
  vc::ComPtr<IVCDecoder> cpAccepted;
  ASSERT_EQ(Walk(&cpAccepted).hr, S_OK);
  // The refused one was asked with the properties too; the value arrives
  // as it was, entities and all.
  EXPECT_EQ(m_mapObjects["second"]->m_strProbeWhenAsked, "a&b <c>");
  EXPECT_EQ(m_vecAsked.size(), 2u);
}

TEST(PropsCopyTest, ObjectWithoutPropertyInterfaceAnswersFalseAndKeepsNoReference) {
  CCountedUnknown plain;
  EXPECT_EQ(vc::VCPropsCopyTo(*XMLParse::CoXMLNode::Create(), &plain), S_FALSE);
  EXPECT_EQ(plain.Refs(), 1u);
  EXPECT_EQ(vc::VCPropsCopyTo(*XMLParse::CoXMLNode::Create(), nullptr), E_POINTER);
}

// --- The inner-object holder ----------------------------------------------------

TEST(InnerHolderTest, ReferencesOutliveASwapAndTheOldObjectComesBackToTheCaller) {
  CCountedUnknown first, second;
  vc::CVCInnerHolder<IUnknown> holder;
  EXPECT_FALSE(holder.Has());
  EXPECT_FALSE(holder.Ref());
  EXPECT_FALSE(holder.Swap(vc::ComPtr<IUnknown>(&first)));
  EXPECT_EQ(first.Refs(), 2u);
  {
    vc::ComPtr<IUnknown> cpInUse = holder.Ref();  // a call in progress on the first object
    vc::ComPtr<IUnknown> cpOld = holder.Swap(vc::ComPtr<IUnknown>(&second));
    EXPECT_EQ(cpOld.Get(), &first);
    EXPECT_EQ(first.Refs(), 3u);  // the caller's own, the call's and the one handed back
    EXPECT_EQ(holder.UnknownRef().Get(), &second);
  }
  EXPECT_EQ(first.Refs(), 1u);
  vc::ComPtr<IUnknown> cpDetached = holder.Detach();
  EXPECT_EQ(cpDetached.Get(), &second);
  EXPECT_FALSE(holder.Has());
  cpDetached = nullptr;
  EXPECT_EQ(second.Refs(), 1u);
}

}  // namespace
}  // namespace vctest
