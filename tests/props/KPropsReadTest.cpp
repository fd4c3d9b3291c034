// Typed reads of property values: which texts read as booleans, integers and
// doubles, and that anything else (or nothing) gives the caller's default,
// from a tree node and through IVCProps.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "Devices/KPropsRead.h"
#include "KPropsTestFacade.h"

namespace {

using vc::FromUtf8;

struct CBoolCase {
  const char* szText;
  int nExpected;  // 1 true, 0 false, -1 not a boolean
};

TEST(KPropsReadTest, Bool_AcceptsThreeSpellingsInAnyCase) {
  const CBoolCase cases[] = {
      {"true", 1},  {"TRUE", 1}, {"Yes", 1},   {"1", 1},    {" yes ", 1}, {"false", 0}, {"False", 0},
      {"NO", 0},    {"0", 0},    {"", -1},     {"2", -1},   {"on", -1},   {"truely", -1}, {"y", -1},
      {"01", -1},   {"-1", -1},
  };
  for (const auto& c : cases) {
    bool bValue = false;
    const bool bParsed = vc::ParsePropBool(FromUtf8(c.szText), &bValue);
    EXPECT_EQ(bParsed, c.nExpected >= 0) << '"' << c.szText << '"';
    if (bParsed) {
      EXPECT_EQ(bValue, c.nExpected == 1) << '"' << c.szText << '"';
    }
  }
}

TEST(KPropsReadTest, Int_Accepts64BitDecimalWithSignAndRejectsJunk) {
  struct {
    const char* szText;
    bool bOk;
    int64_t llValue;
  } cases[] = {
      {"0", true, 0},
      {"42", true, 42},
      {"+42", true, 42},
      {"-42", true, -42},
      {" 17 ", true, 17},
      {"9223372036854775807", true, std::numeric_limits<int64_t>::max()},
      {"-9223372036854775808", true, std::numeric_limits<int64_t>::min()},
      {"9223372036854775808", false, 0},
      {"12abc", false, 0},
      {"1.5", false, 0},
      {"0x10", false, 0},
      {"+-1", false, 0},
      {"+", false, 0},
      {"-", false, 0},
      {"", false, 0},
      {"1 2", false, 0},
  };
  for (const auto& c : cases) {
    int64_t llValue = 99;
    EXPECT_EQ(vc::ParsePropInt(FromUtf8(c.szText), &llValue), c.bOk) << '"' << c.szText << '"';
    EXPECT_EQ(llValue, c.bOk ? c.llValue : 99) << '"' << c.szText << '"';
  }
}

TEST(KPropsReadTest, Double_AcceptsDecimalsAndRejectsJunkAndNonFinite) {
  struct {
    const char* szText;
    bool bOk;
    double dblValue;
  } cases[] = {
      {"1.5", true, 1.5},   {"+1.5", true, 1.5},  {"-0.25", true, -0.25}, {"3", true, 3.0},
      {"2e-3", true, 2e-3}, {".5", true, 0.5},    {"1.5s", false, 0},     {"", false, 0},
      {"inf", false, 0},    {"nan", false, 0},    {"1e999", false, 0},    {"1,5", false, 0},
  };
  for (const auto& c : cases) {
    double dblValue = 99;
    EXPECT_EQ(vc::ParsePropDouble(FromUtf8(c.szText), &dblValue), c.bOk) << '"' << c.szText << '"';
    EXPECT_DOUBLE_EQ(dblValue, c.bOk ? c.dblValue : 99) << '"' << c.szText << '"';
  }
}

TEST(KPropsReadTest, NodeReads_GiveValueOrDefault) {
  XMLParse::XMLNodePtr spRoot = XMLParse::CoXMLNode::Create(W("props"));
  ASSERT_EQ(spRoot->Parse(W("<props live='yes' count='-5' delay='0.25' name='clip'>"
                            "<video bad='fast' gop='250'/></props>")),
            S_OK);
  EXPECT_TRUE(vc::ReadPropBool(*spRoot, W("live"), false));
  EXPECT_FALSE(vc::ReadPropBool(*spRoot, W("video::bad"), false));
  EXPECT_TRUE(vc::ReadPropBool(*spRoot, W("missing"), true));
  EXPECT_EQ(vc::ReadPropInt(*spRoot, W("count"), 1), -5);
  EXPECT_EQ(vc::ReadPropInt(*spRoot, W("video::gop"), 1), 250);
  EXPECT_EQ(vc::ReadPropInt(*spRoot, W("delay"), 1), 1);
  EXPECT_DOUBLE_EQ(vc::ReadPropDouble(*spRoot, W("delay"), 2.0), 0.25);
  EXPECT_DOUBLE_EQ(vc::ReadPropDouble(*spRoot, W("name"), 2.0), 2.0);
  EXPECT_EQ(vc::ReadPropText(*spRoot, W("name"), W("x")), W("clip"));
  EXPECT_EQ(vc::ReadPropText(*spRoot, W("video::name"), W("x")), W("x"));
}

TEST(KPropsReadTest, InterfaceReads_GiveValueOrDefault) {
  vctest::TestFacadePtr cpFacade = vctest::CreateTestFacade();
  ASSERT_TRUE(cpFacade);
  ASSERT_EQ(vctest::PropsSetText(cpFacade.Get(), "", "<props live='false' count='+7' delay='1.5'/>"), S_OK);
  IVCProps* p = cpFacade.Get();
  EXPECT_FALSE(vc::ReadPropBool(p, W("live"), true));
  EXPECT_EQ(vc::ReadPropInt(p, W("count"), 0), 7);
  EXPECT_DOUBLE_EQ(vc::ReadPropDouble(p, W("delay"), 0), 1.5);
  EXPECT_EQ(vc::ReadPropText(p, W("missing"), W("dflt")), W("dflt"));
  EXPECT_EQ(vc::ReadPropInt(p, W("missing"), -3), -3);
  EXPECT_EQ(vc::ReadPropInt(nullptr, W("count"), -3), -3);
  // A computed value reads like a stored one.
  cpFacade->m_fnComputed = [](vc::StringView name, BSTR* pbs) {
    if (name != W("stat::fps")) return S_FALSE;
    *pbs = vc::CBstr("29.97").Detach();
    return S_OK;
  };
  EXPECT_DOUBLE_EQ(vc::ReadPropDouble(p, W("stat::fps"), 0), 29.97);
}

}  // namespace
