// The shared property implementation as a host sees it through IVCProps:
// argument checks and codes, set/get/count/enumerate/remove on the tree, the
// reserved names, report-unchanged-values, the change handler and computed
// getter hooks, and delegation (order, apply-locally, never under the lock).
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>

#include "KPropsTestFacade.h"
#include "TestEnvironment.h"
#include "VCLog.h"

namespace {

using vc::CBstr;
using vc::ComPtr;
using vctest::CFakeProps;
using vctest::PropsValue;

class KPropsImplTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_cpFacade = vctest::CreateTestFacade();
    ASSERT_TRUE(m_cpFacade);
  }

  IVCProps* Props() { return m_cpFacade.Get(); }
  HRESULT Set(const std::string& strName, const std::string& strValue) {
    return vctest::PropsSetText(Props(), strName, strValue);
  }
  std::string Value(const std::string& strName) { return PropsValue(Props(), strName); }
  HRESULT Remove(const std::string& strName) { return vctest::PropsRemoveText(Props(), strName); }

  struct CEntry {
    std::string strName;
    std::string strValue;
    bool bNode = false;
  };
  // Every entry of a node, read by index until the enumeration ends.
  std::vector<CEntry> Entries(const std::string& strNode) {
    std::vector<CEntry> entries;
    for (LONG i = 0;; ++i) {
      CBstr bsName, bsValue;
      BOOL bNode = -1;
      const HRESULT hr = Props()->PropsGetByIndex(CBstr(strNode), i, &bsName, &bsValue, &bNode);
      if (hr != S_OK) {
        EXPECT_EQ(hr, S_FALSE) << "entry " << i;
        break;
      }
      entries.push_back({bsName.Utf8(), bsValue.Utf8(), bNode != FALSE});
    }
    return entries;
  }

  vctest::TestFacadePtr m_cpFacade;
};

TEST_F(KPropsImplTest, SetEmptyNameAndEmptyValue_IsInvalidArgument) {
  EXPECT_EQ(Props()->PropsSet(CBstr(""), CBstr("")), static_cast<HRESULT>(0x80070057));
  EXPECT_EQ(Props()->PropsSet(nullptr, nullptr), static_cast<HRESULT>(0x80070057));
  EXPECT_TRUE(m_cpFacade->Changes().empty());
}

TEST_F(KPropsImplTest, SetEmptyNameWithText_MergesIntoTreeAndNotifies) {
  ASSERT_EQ(Set("a", "keep"), S_OK);
  ASSERT_EQ(Set("", "<props b='2'><stat kbps='5'/></props>"), S_OK);
  EXPECT_EQ(Value("a"), "keep");
  EXPECT_EQ(Value("b"), "2");
  EXPECT_EQ(Value("stat::kbps"), "5");
  const auto changes = m_cpFacade->Changes();
  ASSERT_EQ(changes.size(), 2u);
  EXPECT_EQ(changes[1].first, "");
}

TEST_F(KPropsImplTest, GetEmptyName_SerialisesWholeTreeThatParsesBack) {
  ASSERT_EQ(Set("codec", "h264"), S_OK);
  ASSERT_EQ(Set("stat::frames", "12"), S_OK);
  const std::string strTree = Value("");
  ASSERT_NE(strTree.rfind("<hr=", 0), 0u) << strTree;

  vctest::TestFacadePtr cpOther = vctest::CreateTestFacade();
  ASSERT_EQ(vctest::PropsSetText(cpOther.Get(), "", strTree), S_OK);
  EXPECT_EQ(PropsValue(cpOther.Get(), "codec"), "h264");
  EXPECT_EQ(PropsValue(cpOther.Get(), "stat::frames"), "12");
}

TEST_F(KPropsImplTest, ReservedNames_IgnoreCaseAndDescribeProcessAndModule) {
  EXPECT_EQ(Value("_PROCESS_PID_"), std::to_string(GetCurrentProcessId()));
  EXPECT_EQ(Value("_process_pid_"), std::to_string(GetCurrentProcessId()));

  // The property code is linked into this test executable, so the module
  // holding it is the process image.
  const std::string strImage = Value("_Process_Name_");
  EXPECT_EQ(strImage.rfind(vctest::BinDir(), 0), 0u) << strImage;
  EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::path(vc::FromUtf8(strImage)))) << strImage;
  EXPECT_EQ(Value("DLL-PATH"), strImage);

  const std::regex version(R"(\d+\.\d+\.\d+\.\d+)");
  EXPECT_TRUE(std::regex_match(Value("dll-version"), version)) << Value("dll-version");
  EXPECT_TRUE(std::regex_match(Value("dll-file-version"), version)) << Value("dll-file-version");
  // Windows: the core module's version resource, which the test executable
  // carries too; Linux: the build's version numbers.
  EXPECT_NE(Value("dll-version"), "0.0.0.0");
  EXPECT_NE(Value("dll-file-version"), "0.0.0.0");
  const std::regex date(R"([A-Z][a-z]{2} [ 123]\d \d{4} \d{2}:\d{2}:\d{2})");
  EXPECT_TRUE(std::regex_match(Value("dll-date"), date)) << Value("dll-date");

  // A stored attribute of the same name does not hide the fact.
  ASSERT_EQ(Set("", "<props _process_pid_='0'/>"), S_OK);
  EXPECT_EQ(Value("_process_pid_"), std::to_string(GetCurrentProcessId()));
}

TEST_F(KPropsImplTest, GetUnknownPath_AnswersOneAndLeavesOutStringUntouched) {
  ASSERT_EQ(Set("stat::frames", "1"), S_OK);
  BSTR bsSentinel = SysAllocString(W("sentinel"));
  for (const char* szName : {"missing", "stat::missing", "missing::frames"}) {
    BSTR bsOut = bsSentinel;
    EXPECT_EQ(Props()->PropsGet(CBstr(szName), &bsOut), S_FALSE) << szName;
    EXPECT_EQ(bsOut, bsSentinel) << szName;
  }
  SysFreeString(bsSentinel);
}

TEST_F(KPropsImplTest, NullOutPointers_AreInvalidPointer) {
  const HRESULT kPointer = static_cast<HRESULT>(0x80004003);
  EXPECT_EQ(Props()->PropsGet(CBstr("a"), nullptr), kPointer);
  EXPECT_EQ(Props()->PropsGetCount(CBstr(""), nullptr), kPointer);
  EXPECT_EQ(Props()->PropsGetByIndex(CBstr(""), 0, nullptr, nullptr, nullptr), kPointer);
  EXPECT_EQ(Props()->PropsInfoGet(CBstr("a"), eKIT_Type, nullptr), kPointer);
  EXPECT_EQ(Props()->PropsOptionGetCount(CBstr("a"), nullptr), kPointer);
  EXPECT_EQ(Props()->PropsOptionGetByIndex(CBstr("a"), 0, nullptr, nullptr), kPointer);
  EXPECT_EQ(Props()->PropsOptionGet(CBstr("a"), nullptr, nullptr, nullptr), kPointer);
}

TEST_F(KPropsImplTest, Failure_IsLoggedAtErrorLevel) {
  vc::CLogCapture capture(vc::eVCLL_Error);
  ASSERT_EQ(Props()->PropsSet(CBstr(""), CBstr("")), E_INVALIDARG);
  EXPECT_TRUE(capture.Contains("PropsSet")) << ::testing::PrintToString(capture.Messages());
  const auto records = capture.Records();
  ASSERT_FALSE(records.empty());
  EXPECT_EQ(records.back().nLevel, vc::eVCLL_Error);
}

TEST_F(KPropsImplTest, PlainZeroTerminatedStrings_AreReadToTheirEnd) {
  // Hosts may pass string literals rather than BSTRs: no length prefix.
  OLECHAR szName[] = W("plain::name");
  OLECHAR szValue[] = W("value");
  ASSERT_EQ(Props()->PropsSet(szName, szValue), S_OK);
  CBstr bsOut;
  ASSERT_EQ(Props()->PropsGet(szName, &bsOut), S_OK);
  EXPECT_EQ(bsOut.Utf8(), "value");
}

TEST_F(KPropsImplTest, ReportUnchanged_AnswersOneOnlyWhenOnAndValuesEqual) {
  ASSERT_EQ(Set("mode", "fast"), S_OK);
  EXPECT_EQ(Set("mode", "fast"), S_OK);  // off: every set notifies
  EXPECT_EQ(m_cpFacade->Changes().size(), 2u);

  m_cpFacade->_PropsSetReportUnchanged(true);
  EXPECT_EQ(Set("mode", "fast"), S_FALSE);
  EXPECT_EQ(m_cpFacade->Changes().size(), 2u);  // not notified
  EXPECT_EQ(Set("mode", "slow"), S_OK);
  EXPECT_EQ(Value("mode"), "slow");
  // Blank values count as absent: never "unchanged".
  EXPECT_EQ(Set("blank", " "), S_OK);
  EXPECT_EQ(Set("blank", " "), S_OK);
  // A node's own value is compared the same way.
  ASSERT_EQ(Set("", "<props><stat>on</stat></props>"), S_OK);
  EXPECT_EQ(Set("stat", "on"), S_FALSE);
  EXPECT_EQ(m_cpFacade->Changes().size(), 6u);
}

TEST_F(KPropsImplTest, ChangeHandler_ResultIsReturnedAndNotImplementedSelectsDefault) {
  m_cpFacade->m_fnChange = [](vc::StringView name, vc::StringView) {
    return name == W("locked") ? E_ACCESSDENIED : E_NOTIMPL;
  };
  EXPECT_EQ(Set("free", "1"), S_OK);
  EXPECT_EQ(Set("locked", "1"), E_ACCESSDENIED);
  const auto changes = m_cpFacade->Changes();
  ASSERT_EQ(changes.size(), 2u);
  EXPECT_EQ(changes[1], std::make_pair(std::string("locked"), std::string("1")));
}

TEST_F(KPropsImplTest, SetOnExistingNodeName_SetsTheNodeValue) {
  ASSERT_EQ(Set("", "<props><video codec='h264'/></props>"), S_OK);
  ASSERT_EQ(Set("video", "main"), S_OK);
  EXPECT_EQ(Value("video"), "main");
  EXPECT_EQ(Value("video::codec"), "h264");
  const auto entries = Entries("");
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_TRUE(entries[0].bNode);
}

TEST_F(KPropsImplTest, SetBelowAnAttribute_TurnsItIntoANodeKeepingItsValue) {
  ASSERT_EQ(Set("a", "x"), S_OK);
  ASSERT_EQ(Set("a::b", "y"), S_OK);
  EXPECT_EQ(Value("a"), "x");
  EXPECT_EQ(Value("a::b"), "y");
  const auto entries = Entries("");
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].strName, "a");
  EXPECT_TRUE(entries[0].bNode);
}

TEST_F(KPropsImplTest, GetNode_GivesOwnTextElseSerialisedSubtree) {
  ASSERT_EQ(Set("", "<props><title>My clip</title><stat frames='3'/></props>"), S_OK);
  EXPECT_EQ(Value("title"), "My clip");
  const std::string strStat = Value("stat");
  EXPECT_NE(strStat.find("frames"), std::string::npos) << strStat;
  EXPECT_NE(strStat.find('3'), std::string::npos) << strStat;
}

TEST_F(KPropsImplTest, ComputedGetter_AskedOnlyWhenNoAttributeAndDeliversOnOk) {
  std::vector<std::string> asked;
  m_cpFacade->m_fnComputed = [&](vc::StringView name, BSTR* pbs) {
    asked.push_back(vc::ToUtf8(name));
    if (name != W("stat::kbps")) return S_FALSE;
    *pbs = CBstr("1500").Detach();
    return S_OK;
  };
  ASSERT_EQ(Set("stored", "1"), S_OK);
  EXPECT_EQ(Value("stored"), "1");
  EXPECT_EQ(Value("stat::kbps"), "1500");
  BSTR bsOut = nullptr;
  EXPECT_EQ(Props()->PropsGet(CBstr("other"), &bsOut), S_FALSE);
  EXPECT_EQ(bsOut, nullptr);
  EXPECT_EQ(asked, (std::vector<std::string>{"stat::kbps", "other"}));
}

TEST_F(KPropsImplTest, CountAndEnumerate_AttributesFirstThenChildNodes) {
  ASSERT_EQ(Set("", "<props><stat>total</stat></props>"), S_OK);
  ASSERT_EQ(Set("z", "1"), S_OK);
  ASSERT_EQ(Set("", "<props><video codec='h264'/></props>"), S_OK);
  ASSERT_EQ(Set("a", "2"), S_OK);

  LONG nCount = -1;
  ASSERT_EQ(Props()->PropsGetCount(CBstr(""), &nCount), S_OK);
  EXPECT_EQ(nCount, 4);
  const auto entries = Entries("");
  ASSERT_EQ(entries.size(), 4u);
  EXPECT_EQ(entries[0].strName, "z");
  EXPECT_FALSE(entries[0].bNode);
  EXPECT_EQ(entries[1].strName, "a");
  EXPECT_EQ(entries[2].strName, "stat");
  EXPECT_TRUE(entries[2].bNode);
  EXPECT_EQ(entries[2].strValue, "total");
  EXPECT_EQ(entries[3].strName, "video");
  EXPECT_NE(entries[3].strValue.find("codec"), std::string::npos) << entries[3].strValue;

  const auto videoEntries = Entries("video");
  ASSERT_EQ(videoEntries.size(), 1u);
  EXPECT_EQ(videoEntries[0].strValue, "h264");
}

TEST_F(KPropsImplTest, EnumerateOutOfRange_NegativeIsInvalidPastEndIsOne) {
  ASSERT_EQ(Set("a", "1"), S_OK);
  CBstr bsName;
  EXPECT_EQ(Props()->PropsGetByIndex(CBstr(""), -1, &bsName, nullptr, nullptr), E_INVALIDARG);
  EXPECT_EQ(Props()->PropsGetByIndex(CBstr(""), 1, &bsName, nullptr, nullptr), S_FALSE);
  EXPECT_EQ(bsName.Get(), nullptr);
  // Any single out pointer is enough.
  BOOL bNode = -1;
  EXPECT_EQ(Props()->PropsGetByIndex(CBstr(""), 0, nullptr, nullptr, &bNode), S_OK);
  EXPECT_EQ(bNode, FALSE);
  LONG nCount = -1;
  EXPECT_EQ(Props()->PropsGetCount(CBstr("missing"), &nCount), S_FALSE);
  EXPECT_EQ(nCount, 0);
  EXPECT_EQ(Props()->PropsGetByIndex(CBstr("missing"), 0, &bsName, nullptr, nullptr), S_FALSE);
}

TEST_F(KPropsImplTest, Remove_AttributeNodeAndAbsentPath) {
  EXPECT_EQ(Remove(""), E_INVALIDARG);
  ASSERT_EQ(Set("a", "1"), S_OK);
  ASSERT_EQ(Set("stat::frames", "2"), S_OK);
  EXPECT_EQ(Remove("a"), S_OK);
  EXPECT_EQ(Value("a"), "<hr=1>");
  EXPECT_EQ(Remove("a"), S_FALSE);
  EXPECT_EQ(Remove("stat"), S_OK);
  EXPECT_EQ(Value("stat::frames"), "<hr=1>");
}

TEST_F(KPropsImplTest, RemoveAllPropsAndAllNodes_AtRootOrBelowANodePath) {
  ASSERT_EQ(Set("", "<props a='1' b='2'><stat x='1' y='2'><sub/><sub2/></stat><video/></props>"), S_OK);

  EXPECT_EQ(Remove("stat::_all_nodes_"), S_OK);
  EXPECT_EQ(Entries("stat").size(), 2u);  // x and y stay
  EXPECT_EQ(Remove("STAT::_ALL_PROPS_"), S_OK);
  EXPECT_TRUE(Entries("stat").empty());

  EXPECT_EQ(Remove("_all_props_"), S_OK);
  auto entries = Entries("");
  ASSERT_EQ(entries.size(), 2u);  // stat and video stay
  EXPECT_TRUE(entries[0].bNode && entries[1].bNode);
  EXPECT_EQ(Remove("_all_nodes_"), S_OK);
  EXPECT_TRUE(Entries("").empty());

  EXPECT_EQ(Remove("missing::_all_props_"), S_FALSE);
}

TEST_F(KPropsImplTest, NoRoot_EveryTreeCallFails) {
  {
    vc::CKAutoLock lock(m_cpFacade->_PropsLock());
    m_cpFacade->_PropsReplaceRootLocked(nullptr);
  }
  const HRESULT kFail = static_cast<HRESULT>(0x80004005);
  CBstr bsOut;
  LONG n = 0;
  EXPECT_EQ(Set("a", "1"), kFail);
  EXPECT_EQ(Props()->PropsGet(CBstr("a"), &bsOut), kFail);
  EXPECT_EQ(Props()->PropsGetCount(CBstr(""), &n), kFail);
  EXPECT_EQ(Props()->PropsGetByIndex(CBstr(""), 0, &bsOut, nullptr, nullptr), kFail);
  EXPECT_EQ(Remove("a"), kFail);
  EXPECT_EQ(Props()->PropsInfoGet(CBstr("a"), eKIT_Help, &bsOut), kFail);
  EXPECT_EQ(Props()->PropsOptionGetCount(CBstr("a"), &n), kFail);
  EXPECT_EQ(Props()->PropsOptionSetByIndex(CBstr("a"), 0), kFail);
  EXPECT_TRUE(m_cpFacade->Changes().empty());
}

// --- Delegation -----------------------------------------------------------

class KPropsDelegationTest : public KPropsImplTest {
 protected:
  void SetUp() override {
    KPropsImplTest::SetUp();
    m_cpDelegate = vctest::CreateFakeProps();
    ASSERT_TRUE(m_cpDelegate);
  }
  // Routes the names beginning with "inner::" to the fake delegate.
  void RouteInnerNames(bool bApplyLocally) {
    m_cpFacade->m_fnRoute = [this, bApplyLocally](vc::eKPropsOp, vc::StringView name, ComPtr<IVCProps>* pcp,
                                                  bool* pbApply) {
      if (name.substr(0, 7) != W("inner::")) return S_FALSE;
      *pcp = m_cpDelegate.Get();
      *pbApply = bApplyLocally;
      return S_OK;
    };
  }

  vctest::FakePropsPtr m_cpDelegate;
};

TEST_F(KPropsDelegationTest, RoutedRead_ReturnsDelegateAnswerOverLocalTree) {
  ASSERT_EQ(Set("", "<props><inner x='local'/></props>"), S_OK);
  RouteInnerNames(false);
  EXPECT_EQ(Value("inner::x"), "delegate:inner::x");
  LONG nCount = 0;
  EXPECT_EQ(Props()->PropsGetCount(CBstr("inner::y"), &nCount), S_OK);
  EXPECT_EQ(nCount, 7);
  m_cpDelegate->m_hrAnswer = static_cast<HRESULT>(2);  // success codes pass through as they are
  CBstr bsOut;
  EXPECT_EQ(Props()->PropsGet(CBstr("inner::x"), &bsOut), 2);
}

TEST_F(KPropsDelegationTest, RoutedReadFailing_IsReportedAsNothingDelivered) {
  RouteInnerNames(false);
  m_cpDelegate->m_hrAnswer = E_ACCESSDENIED;
  CBstr bsOut;
  LONG nCount = -1;
  EXPECT_EQ(Props()->PropsGet(CBstr("inner::x"), &bsOut), S_FALSE);
  EXPECT_EQ(Props()->PropsGetCount(CBstr("inner::x"), &nCount), S_FALSE);
  EXPECT_EQ(Props()->PropsGetByIndex(CBstr("inner::x"), 0, &bsOut, nullptr, nullptr), S_FALSE);
  EXPECT_EQ(m_cpDelegate->Calls().size(), 3u);
}

TEST_F(KPropsDelegationTest, RoutedSetWithoutApplyLocally_ReturnsDelegateResultAndLeavesTree) {
  RouteInnerNames(false);
  m_cpDelegate->m_hrAnswer = static_cast<HRESULT>(3);
  EXPECT_EQ(Set("inner::x", "v"), 3);
  m_cpDelegate->m_hrAnswer = E_ACCESSDENIED;
  EXPECT_EQ(Set("inner::x", "w"), E_ACCESSDENIED);
  EXPECT_EQ(Remove("inner::x"), E_ACCESSDENIED);

  const auto calls = m_cpDelegate->Calls();
  ASSERT_EQ(calls.size(), 3u);
  EXPECT_EQ(calls[0].eOp, vc::eKPO_Set);
  EXPECT_EQ(calls[0].strName, "inner::x");
  EXPECT_EQ(calls[0].strValue, "v");
  EXPECT_EQ(calls[2].eOp, vc::eKPO_Remove);
  EXPECT_TRUE(m_cpFacade->Changes().empty());
  m_cpFacade->m_fnRoute = nullptr;
  EXPECT_EQ(Value("inner::x"), "<hr=1>");
}

TEST_F(KPropsDelegationTest, RoutedSetApplyLocally_ChangesBothUnlessDelegateFails) {
  RouteInnerNames(true);
  EXPECT_EQ(Set("inner::x", "v"), S_OK);
  m_cpDelegate->m_hrAnswer = E_ACCESSDENIED;
  EXPECT_EQ(Set("inner::x", "w"), E_ACCESSDENIED);
  EXPECT_EQ(Set("inner::y", "w"), E_ACCESSDENIED);
  m_cpDelegate->m_hrAnswer = S_OK;
  ASSERT_EQ(Set("inner::z", "1"), S_OK);
  EXPECT_EQ(Remove("inner::z"), S_OK);

  EXPECT_EQ(m_cpDelegate->Calls().size(), 5u);
  EXPECT_EQ(m_cpFacade->Changes().size(), 2u);  // "x" once, "z" once
  m_cpFacade->m_fnRoute = nullptr;
  EXPECT_EQ(Value("inner::x"), "v");
  EXPECT_EQ(Value("inner::y"), "<hr=1>");
  EXPECT_EQ(Value("inner::z"), "<hr=1>");
}

TEST_F(KPropsDelegationTest, RoutingFailure_IsReturnedAsItIs) {
  m_cpFacade->m_fnRoute = [](vc::eKPropsOp, vc::StringView, ComPtr<IVCProps>*, bool*) { return E_ABORT; };
  CBstr bsOut;
  EXPECT_EQ(Set("a", "1"), E_ABORT);
  EXPECT_EQ(Props()->PropsGet(CBstr("a"), &bsOut), E_ABORT);
  EXPECT_EQ(Remove("a"), E_ABORT);
}

TEST_F(KPropsDelegationTest, FacadeRoutingComesBeforeRuntimeTarget) {
  m_cpFacade->m_fnRoute = [this](vc::eKPropsOp, vc::StringView, ComPtr<IVCProps>* pcp, bool*) {
    *pcp = m_cpDelegate.Get();
    return S_OK;
  };
  EXPECT_EQ(Set("runtime::kpropstest.routed", "1"), S_OK);
  const auto calls = m_cpDelegate->Calls();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].strName, "runtime::kpropstest.routed");  // not stripped: not the runtime target
  EXPECT_EQ(PropsValue(vc::RuntimeSettings().Get(), "kpropstest.routed"), "<hr=1>");
}

TEST_F(KPropsDelegationTest, InfoAndOptionCalls_AreNotOfferedToFacadeRouting) {
  RouteInnerNames(false);
  CBstr bsOut, bsHelp;
  LONG n = 0;
  Props()->PropsInfoGet(CBstr("inner::x"), eKIT_Type, &bsOut);
  Props()->PropsOptionGetCount(CBstr("inner::x"), &n);
  Props()->PropsOptionGetByIndex(CBstr("inner::x"), 0, &bsOut, &bsHelp);
  Props()->PropsOptionSetByIndex(CBstr("inner::x"), 0);
  Props()->PropsOptionGet(CBstr("inner::x"), &n, &bsOut, &bsHelp);
  EXPECT_TRUE(m_cpDelegate->Calls().empty());
  EXPECT_TRUE(m_cpFacade->RoutedOps().empty());
}

TEST_F(KPropsDelegationTest, Delegates_AreNeverCalledUnderTheFacadeLock) {
  RouteInnerNames(true);
  std::vector<bool> lockFree;
  m_cpDelegate->m_fnDuringCall = [&] { lockFree.push_back(vctest::LockIsFreeElsewhere(m_cpFacade->_PropsLock())); };
  // The probe does see the lock when it is held: the computed getter runs under it.
  bool bFreeInGetter = true;
  m_cpFacade->m_fnComputed = [&](vc::StringView, BSTR*) {
    bFreeInGetter = vctest::LockIsFreeElsewhere(m_cpFacade->_PropsLock());
    return S_FALSE;
  };
  EXPECT_EQ(Value("local"), "<hr=1>");
  EXPECT_FALSE(bFreeInGetter);

  CBstr bsOut;
  LONG n = 0;
  Set("inner::a", "1");
  Props()->PropsGet(CBstr("inner::a"), &bsOut);
  Props()->PropsGetCount(CBstr("inner::a"), &n);
  Props()->PropsGetByIndex(CBstr("inner::a"), 0, &bsOut, nullptr, nullptr);
  Remove("inner::a");
  ASSERT_EQ(lockFree.size(), 5u);
  for (size_t i = 0; i < lockFree.size(); ++i) EXPECT_TRUE(lockFree[i]) << "call " << i;
}

}  // namespace
