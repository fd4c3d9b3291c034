// Property metadata through IVCProps: the info lookup in "attributes_info"
// nodes (own entry, inherit links in both places, cycles, dotted fallback,
// values from "select_from") and the four option methods built on it.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "KPropsTestFacade.h"

namespace {

using vc::CBstr;
using vctest::PropsValue;

// A tree with metadata on the root and on a "video" node that inherits from
// "common", whose info node inherits in turn from "base".
constexpr const char* kInfoTree =
    "<props>"
    "<attributes_info>"
    "<mode type='enum' default='fast' values='fast|medium|slow' values_help='Quick|Balanced|Careful'"
    " dynamic='1'>Speed preset</mode>"
    "<bitrate type='int' min='0' max='100000' default='4000'>Target bit rate</bitrate>"
    "<device type='text' select_from='devices'/>"
    "</attributes_info>"
    "<devices><gpu0>First GPU</gpu0><gpu1>Second GPU</gpu1><cpu/></devices>"
    "<base><attributes_info><profile type='enum' values='main|high'>Profile</profile></attributes_info></base>"
    "<common><attributes_info inherit='base'><gop type='int'>Group length</gop></attributes_info></common>"
    "<video inherit='common' codec='h264'>"
    "<attributes_info><codec type='text'>Codec name</codec></attributes_info>"
    "</video>"
    "</props>";

class KPropsInfoTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_cpFacade = vctest::CreateTestFacade();
    ASSERT_TRUE(m_cpFacade);
    ASSERT_EQ(vctest::PropsSetText(Props(), "", kInfoTree), S_OK);
  }
  IVCProps* Props() { return m_cpFacade.Get(); }

  // The answer, or "<hr=...>" when PropsInfoGet did not answer S_OK.
  std::string Info(const std::string& strName, eKInfoType eType) {
    CBstr bsInfo;
    const HRESULT hr = Props()->PropsInfoGet(CBstr(strName), eType, &bsInfo);
    return hr == S_OK ? bsInfo.Utf8() : "<hr=" + std::to_string(hr) + ">";
  }
  struct COptionAnswer {
    HRESULT hr;
    LONG nIndex;
    std::string strValue;
    std::string strHelp;
  };
  COptionAnswer CurrentOption(const std::string& strName) {
    COptionAnswer a{E_FAIL, -2, {}, {}};
    CBstr bsValue, bsHelp;
    a.hr = Props()->PropsOptionGet(CBstr(strName), &a.nIndex, &bsValue, &bsHelp);
    a.strValue = bsValue.Utf8();
    a.strHelp = bsHelp.Utf8();
    return a;
  }
  LONG OptionCount(const std::string& strName, HRESULT hrExpected) {
    LONG n = -1;
    EXPECT_EQ(Props()->PropsOptionGetCount(CBstr(strName), &n), hrExpected) << strName;
    return n;
  }

  vctest::TestFacadePtr m_cpFacade;
};

TEST_F(KPropsInfoTest, OwnEntry_AnswersEveryInfoType) {
  EXPECT_EQ(Info("mode", eKIT_Help), "Speed preset");
  EXPECT_EQ(Info("mode", eKIT_Type), "enum");
  EXPECT_EQ(Info("mode", eKIT_Default), "fast");
  EXPECT_EQ(Info("mode", eKIT_Values), "fast|medium|slow");
  EXPECT_EQ(Info("mode", eKIT_Dynamic), "1");
  EXPECT_EQ(Info("bitrate", eKIT_Min), "0");
  EXPECT_EQ(Info("bitrate", eKIT_Max), "100000");
  EXPECT_EQ(Info("video::codec", eKIT_Help), "Codec name");
}

TEST_F(KPropsInfoTest, NothingFound_AnswersOneAndLeavesOutUnset) {
  BSTR bsSentinel = SysAllocString(W("sentinel"));
  struct {
    const char* szName;
    eKInfoType eType;
  } cases[] = {{"unknown", eKIT_Help}, {"bitrate", eKIT_Values}, {"mode", eKIT_Min}, {"missing::x", eKIT_Type}};
  for (const auto& c : cases) {
    BSTR bsOut = bsSentinel;
    EXPECT_EQ(Props()->PropsInfoGet(CBstr(c.szName), c.eType, &bsOut), S_FALSE) << c.szName;
    EXPECT_EQ(bsOut, bsSentinel) << c.szName;
  }
  SysFreeString(bsSentinel);
}

TEST_F(KPropsInfoTest, BadArguments_AreInvalid) {
  CBstr bsOut;
  EXPECT_EQ(Props()->PropsInfoGet(CBstr(""), eKIT_Help, &bsOut), static_cast<HRESULT>(0x80070057));
  EXPECT_EQ(Props()->PropsInfoGet(CBstr("mode"), static_cast<eKInfoType>(7), &bsOut), E_INVALIDARG);
  EXPECT_EQ(Props()->PropsInfoGet(CBstr("mode"), static_cast<eKInfoType>(-1), &bsOut), E_INVALIDARG);
}

TEST_F(KPropsInfoTest, InheritLinks_FollowOwnerAndInfoNodeLinkAfterLink) {
  // video --inherit--> common (own entry "gop"); common's info node --inherit--> base.
  EXPECT_EQ(Info("video::gop", eKIT_Type), "int");
  EXPECT_EQ(Info("video::profile", eKIT_Values), "main|high");
  // A nearer entry wins over an inherited one.
  ASSERT_EQ(vctest::PropsSetText(Props(), "", "<props><common><attributes_info><profile type='text'/>"
                                              "</attributes_info></common></props>"),
            S_OK);
  EXPECT_EQ(Info("video::profile", eKIT_Type), "text");
  // The entry found ends the search even when it lacks the answer asked for.
  EXPECT_EQ(Info("video::profile", eKIT_Values), "<hr=1>");
}

TEST_F(KPropsInfoTest, InheritCycle_EndsTheSearch) {
  ASSERT_EQ(vctest::PropsSetText(Props(), "",
                                 "<props><ring1 inherit='ring2'/><ring2><attributes_info inherit='ring3'/></ring2>"
                                 "<ring3 inherit='ring1'/><self inherit='self'/></props>"),
            S_OK);
  // Run on another thread so that a walk that never ends fails the test
  // instead of hanging the suite.
  auto done = std::make_shared<std::promise<std::pair<HRESULT, HRESULT>>>();
  std::future<std::pair<HRESULT, HRESULT>> result = done->get_future();
  vc::ComPtr<IVCProps> cpProps(Props());
  std::thread([done, cpProps] {
    CBstr bs1, bs2;
    const HRESULT hr1 = cpProps->PropsInfoGet(CBstr("ring1::x"), eKIT_Type, &bs1);
    const HRESULT hr2 = cpProps->PropsInfoGet(CBstr("self::x.y"), eKIT_Type, &bs2);
    done->set_value({hr1, hr2});
  }).detach();
  ASSERT_EQ(result.wait_for(std::chrono::seconds(10)), std::future_status::ready) << "the inherit walk did not end";
  EXPECT_EQ(result.get(), std::make_pair(S_FALSE, S_FALSE));
}

TEST_F(KPropsInfoTest, DottedName_FallsBackToItsHead) {
  EXPECT_EQ(Info("bitrate.peak", eKIT_Type), "int");
  EXPECT_EQ(Info("bitrate.peak.window", eKIT_Help), "Target bit rate");
  EXPECT_EQ(Info("video::gop.max", eKIT_Type), "int");  // after the inherit walk
  EXPECT_EQ(Info("nothing.peak", eKIT_Type), "<hr=1>");
}

TEST_F(KPropsInfoTest, SelectFrom_ListsChildNamesOfTheNamedNode) {
  EXPECT_EQ(Info("device", eKIT_Values), "gpu0|gpu1|cpu");
  ASSERT_EQ(vctest::PropsSetText(Props(), "", "<props><devices><npu/></devices></props>"), S_OK);
  EXPECT_EQ(Info("device", eKIT_Values), "gpu0|gpu1|cpu|npu");
  ASSERT_EQ(vctest::PropsRemoveText(Props(), "devices::_all_nodes_"), S_OK);
  EXPECT_EQ(Info("device", eKIT_Values), "<hr=1>");
}

TEST_F(KPropsInfoTest, RuntimeNames_AskTheRuntimeObject) {
  vc::ComPtr<IVCProps> cpRuntime = vc::RuntimeSettings();
  ASSERT_TRUE(cpRuntime);
  ASSERT_EQ(vctest::PropsSetText(cpRuntime.Get(), "",
                                 "<props><attributes_info><kpropsinfo.level type='int' values='1|2|3'/>"
                                 "</attributes_info></props>"),
            S_OK);
  EXPECT_EQ(Info("runtime::kpropsinfo.level", eKIT_Type), "int");
  EXPECT_EQ(OptionCount("runtime::kpropsinfo.level", S_OK), 3);
  EXPECT_EQ(Props()->PropsOptionSetByIndex(CBstr("runtime::kpropsinfo.level"), 1), S_OK);
  EXPECT_EQ(PropsValue(cpRuntime.Get(), "kpropsinfo.level"), "2");
  EXPECT_EQ(CurrentOption("runtime::kpropsinfo.level").nIndex, 1);
  EXPECT_EQ(vctest::PropsRemoveText(cpRuntime.Get(), "kpropsinfo.level"), S_OK);
  EXPECT_EQ(vctest::PropsRemoveText(cpRuntime.Get(), "attributes_info::kpropsinfo.level"), S_OK);
}

// --- Options ---------------------------------------------------------------

TEST_F(KPropsInfoTest, Options_CountAndEnumerateWithHelp) {
  EXPECT_EQ(OptionCount("mode", S_OK), 3);
  CBstr bsValue, bsHelp;
  ASSERT_EQ(Props()->PropsOptionGetByIndex(CBstr("mode"), 2, &bsValue, &bsHelp), S_OK);
  EXPECT_EQ(bsValue.Utf8(), "slow");
  EXPECT_EQ(bsHelp.Utf8(), "Careful");
  // A values list from select_from explains each option with its node's text.
  EXPECT_EQ(OptionCount("device", S_OK), 3);
  ASSERT_EQ(Props()->PropsOptionGetByIndex(CBstr("device"), 1, &bsValue, &bsHelp), S_OK);
  EXPECT_EQ(bsValue.Utf8(), "gpu1");
  EXPECT_EQ(bsHelp.Utf8(), "Second GPU");
  // Help is optional, and empty where the list has none.
  ASSERT_EQ(Props()->PropsOptionGetByIndex(CBstr("video::profile"), 0, &bsValue, nullptr), S_OK);
  EXPECT_EQ(bsValue.Utf8(), "main");
}

TEST_F(KPropsInfoTest, Options_BadIndexIsInvalidAndNoOptionsIsOne) {
  CBstr bsValue;
  EXPECT_EQ(Props()->PropsOptionGetByIndex(CBstr("mode"), 3, &bsValue, nullptr), static_cast<HRESULT>(0x80070057));
  EXPECT_EQ(Props()->PropsOptionGetByIndex(CBstr("mode"), -1, &bsValue, nullptr), E_INVALIDARG);
  EXPECT_EQ(Props()->PropsOptionSetByIndex(CBstr("mode"), 3), E_INVALIDARG);
  EXPECT_EQ(Props()->PropsOptionSetByIndex(CBstr("mode"), -1), E_INVALIDARG);
  EXPECT_EQ(OptionCount("bitrate", S_FALSE), 0);
  EXPECT_EQ(Props()->PropsOptionGetByIndex(CBstr("bitrate"), 0, &bsValue, nullptr), S_FALSE);
  EXPECT_EQ(Props()->PropsOptionGetCount(CBstr(""), nullptr), E_INVALIDARG);
  EXPECT_TRUE(m_cpFacade->Changes().size() == 1u);  // only the tree set-up
}

TEST_F(KPropsInfoTest, OptionSetByIndex_SetsThroughPropsSetAndNotifies) {
  ASSERT_EQ(Props()->PropsOptionSetByIndex(CBstr("mode"), 1), S_OK);
  EXPECT_EQ(PropsValue(Props(), "mode"), "medium");
  const auto changes = m_cpFacade->Changes();
  ASSERT_EQ(changes.size(), 2u);
  EXPECT_EQ(changes[1], std::make_pair(std::string("mode"), std::string("medium")));

  m_cpFacade->m_fnChange = [](vc::StringView, vc::StringView) { return E_ACCESSDENIED; };
  EXPECT_EQ(Props()->PropsOptionSetByIndex(CBstr("mode"), 2), E_ACCESSDENIED);
}

TEST_F(KPropsInfoTest, OptionGet_FindsTheCurrentValue) {
  // No value yet: the default is the current option.
  COptionAnswer a = CurrentOption("mode");
  EXPECT_EQ(a.hr, S_OK);
  EXPECT_EQ(a.nIndex, 0);
  EXPECT_EQ(a.strValue, "fast");
  EXPECT_EQ(a.strHelp, "Quick");

  ASSERT_EQ(vctest::PropsSetText(Props(), "mode", "SLOW"), S_OK);  // letter case ignored
  a = CurrentOption("mode");
  EXPECT_EQ(a.hr, S_OK);
  EXPECT_EQ(a.nIndex, 2);
  EXPECT_EQ(a.strValue, "slow");

  ASSERT_EQ(vctest::PropsSetText(Props(), "mode", "ludicrous"), S_OK);
  a = CurrentOption("mode");
  EXPECT_EQ(a.hr, S_FALSE);
  EXPECT_EQ(a.nIndex, -1);
  EXPECT_EQ(a.strValue, "ludicrous");

  // A node's own value is a current value too.
  ASSERT_EQ(vctest::PropsSetText(Props(), "", "<props><device>cpu</device></props>"), S_OK);
  a = CurrentOption("device");
  EXPECT_EQ(a.nIndex, 2);
  // Neither a value nor a default.
  a = CurrentOption("video::profile");
  EXPECT_EQ(a.hr, S_FALSE);
  EXPECT_EQ(a.nIndex, -1);
  EXPECT_EQ(a.strValue, "");
}

}  // namespace
