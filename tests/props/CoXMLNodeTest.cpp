// The property tree's storage and path addressing: attribute and child order,
// name rules, selectors, creation rules (all-or-nothing), the turning of an
// attribute into a node, depth limits, copies.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "CoXMLNode.h"
#include "KPropsTestFacade.h"
#include "VCAssert.h"

namespace {

using XMLParse::CoXMLNode;
using XMLParse::XMLNodePtr;

vc::String S(const char* pszUtf8) { return vc::FromUtf8(pszUtf8); }
std::string U8(vc::StringView s) { return vc::ToUtf8(s); }

class CoXMLNodeTest : public ::testing::Test {
 protected:
  // The value at path as UTF-8, or nullopt when it reads as absent.
  std::optional<std::string> Get(const char* pszPath, bool bRaw = false) const {
    vc::String value;
    if (!m_spRoot->GetAttributePath(S(pszPath), &value, bRaw)) return std::nullopt;
    return U8(value);
  }
  HRESULT Set(const char* pszPath, const char* pszValue, bool bDecode = true) {
    return m_spRoot->SetAttributePath(S(pszPath), S(pszValue), bDecode);
  }
  XMLNodePtr Node(const char* pszPath) const { return m_spRoot->FindNode(S(pszPath)); }
  std::vector<std::string> AttributeNames(const CoXMLNode& node) const {
    std::vector<std::string> names;
    for (size_t i = 0; i < node.AttributeCount(); ++i) names.push_back(U8(node.AttributeAt(i)->strName));
    return names;
  }
  // The children's own values, in enumeration order.
  std::vector<std::string> ChildValues(const CoXMLNode& node) const {
    std::vector<std::string> values;
    for (size_t i = 0; i < node.ChildCount(); ++i) values.push_back(U8(node.ChildAt(i)->Value()));
    return values;
  }
  std::string Text() const { return U8(m_spRoot->Serialize()); }

  XMLNodePtr m_spRoot = CoXMLNode::Create(S("props"));
};

// ---------------------------------------------------------------------------
// Attributes and children

TEST_F(CoXMLNodeTest, Attributes_EnumerateInFirstSetOrder) {
  m_spRoot->SetAttribute(S("zeta"), S("1"));
  m_spRoot->SetAttribute(S("alpha"), S("2"));
  m_spRoot->SetAttribute(S("mid"), S("3"));
  m_spRoot->SetAttribute(S("zeta"), S("4"));  // replaced in place
  EXPECT_EQ(AttributeNames(*m_spRoot), (std::vector<std::string>{"zeta", "alpha", "mid"}));
  EXPECT_EQ(Get("zeta"), "4");

  ASSERT_TRUE(m_spRoot->RemoveAttribute(S("zeta")));
  EXPECT_FALSE(m_spRoot->RemoveAttribute(S("zeta")));
  m_spRoot->SetAttribute(S("zeta"), S("5"));  // a removed name comes back at the end
  EXPECT_EQ(AttributeNames(*m_spRoot), (std::vector<std::string>{"alpha", "mid", "zeta"}));
}

TEST_F(CoXMLNodeTest, ManyAttributes_FoundAfterRemovalsWithOrderKept) {
  // Enough names to be hashed; removals rebuild the index over shifted positions.
  std::vector<std::string> expected;
  for (int i = 0; i < 200; ++i) {
    const std::string name = "attr" + std::to_string(i);
    m_spRoot->SetAttribute(S(name.c_str()), S(std::to_string(i).c_str()));
    expected.push_back(name);
  }
  for (int i = 0; i < 200; i += 3) {
    ASSERT_TRUE(m_spRoot->RemoveAttribute(S(("attr" + std::to_string(i)).c_str())));
  }
  std::erase_if(expected, [](const std::string& s) { return std::stoi(s.substr(4)) % 3 == 0; });
  EXPECT_EQ(AttributeNames(*m_spRoot), expected);
  for (int i = 0; i < 200; ++i) {
    const auto value = Get(("attr" + std::to_string(i)).c_str());
    if (i % 3 == 0) {
      EXPECT_FALSE(value) << i;
    } else {
      EXPECT_EQ(value, std::to_string(i));
    }
  }
  m_spRoot->RemoveAllAttributes();
  EXPECT_EQ(m_spRoot->AttributeCount(), 0u);
  EXPECT_FALSE(Get("attr1"));
}

TEST_F(CoXMLNodeTest, AttributeNames_AreCaseSensitive) {
  m_spRoot->SetAttribute(S("Rate"), S("1"));
  m_spRoot->SetAttribute(S("rate"), S("2"));
  EXPECT_EQ(m_spRoot->AttributeCount(), 2u);
  EXPECT_EQ(Get("Rate"), "1");
  EXPECT_EQ(Get("rate"), "2");
  EXPECT_FALSE(Get("RATE"));
}

TEST_F(CoXMLNodeTest, NodeNamesDifferingInCase_AddressTheSameNode) {
  m_spRoot->SetName(S("Props"));
  EXPECT_EQ(U8(m_spRoot->Name()), "props");
  ASSERT_EQ(Set("Stat::kbps", "10"), S_OK);
  ASSERT_EQ(Set("STAT::fps", "25"), S_OK);
  EXPECT_EQ(m_spRoot->ChildCount(), 1u);
  EXPECT_EQ(U8(m_spRoot->ChildAt(0)->Name()), "stat");
  EXPECT_EQ(Get("sTaT::kbps"), "10");
  EXPECT_EQ(Get("stat::fps"), "25");
  EXPECT_EQ(m_spRoot->CountChildren(S("STAT")), 1u);
}

TEST_F(CoXMLNodeTest, SameNameChildren_AllKeptAndEnumeratedInInsertionOrder) {
  m_spRoot->AddChild(S("track"))->SetValue(S("first"));
  m_spRoot->AddChild(S("info"))->SetValue(S("between"));
  m_spRoot->AddChild(S("Track"))->SetValue(S("second"));
  EXPECT_EQ(ChildValues(*m_spRoot), (std::vector<std::string>{"first", "between", "second"}));
  EXPECT_EQ(m_spRoot->CountChildren(S("track")), 2u);
  EXPECT_EQ(U8(m_spRoot->FindChild(S("track"), 1)->Value()), "second");
  EXPECT_EQ(m_spRoot->FindChild(S("track"), 2), nullptr);

  ASSERT_TRUE(m_spRoot->RemoveChild(m_spRoot->FindChild(S("track")).get()));
  EXPECT_EQ(ChildValues(*m_spRoot), (std::vector<std::string>{"between", "second"}));
  EXPECT_EQ(U8(m_spRoot->FindChild(S("track"))->Value()), "second");
  ASSERT_TRUE(m_spRoot->RemoveChild(m_spRoot->FindChild(S("track")).get()));
  EXPECT_EQ(m_spRoot->CountChildren(S("track")), 0u);
  EXPECT_FALSE(m_spRoot->RemoveChild(nullptr));
}

TEST_F(CoXMLNodeTest, ManyChildNames_FoundAfterGroupRemovals) {
  for (int i = 0; i < 50; ++i) m_spRoot->AddChild(S(("n" + std::to_string(i)).c_str()))->SetValue(S("v"));
  for (int i = 0; i < 50; i += 2) {
    ASSERT_TRUE(m_spRoot->RemoveChild(m_spRoot->FindChild(S(("n" + std::to_string(i)).c_str())).get()));
  }
  for (int i = 0; i < 50; ++i) {
    EXPECT_EQ(m_spRoot->FindChild(S(("N" + std::to_string(i)).c_str())) != nullptr, i % 2 == 1) << i;
  }
  EXPECT_EQ(U8(m_spRoot->ChildAt(0)->Name()), "n1");
}

TEST_F(CoXMLNodeTest, NamesThatCannotBeWritten_AreRefused) {
  for (const char* pszName : {"", "a b", "a/b", "a<b", "a=b", "a\"b", "a'b", "a&b", "!x", "?x", "br", "TAB", "Br"}) {
    EXPECT_EQ(m_spRoot->AddChild(S(pszName)), nullptr) << pszName;
  }
  for (const char* pszName : {"", "a b", "a<b", "a=b", "a\"b", "a&b", "a\tb"}) {
    EXPECT_FALSE(m_spRoot->SetAttribute(S(pszName), S("v"))) << pszName;
  }
  EXPECT_EQ(m_spRoot->ChildCount(), 0u);
  EXPECT_EQ(m_spRoot->AttributeCount(), 0u);
  // Characters that paths and other programs use are fine.
  EXPECT_NE(m_spRoot->AddChild(S("a[1]b")), nullptr);
  EXPECT_NE(m_spRoot->AddChild(S("brx")), nullptr);
  EXPECT_NE(m_spRoot->AddChild(S("caf\u00e9")), nullptr);
  EXPECT_TRUE(m_spRoot->SetAttribute(S("a/b"), S("v")));
  EXPECT_TRUE(m_spRoot->SetAttribute(S("br"), S("v")));
}

// ---------------------------------------------------------------------------
// Values

TEST_F(CoXMLNodeTest, BlankValue_ReadsAsAbsentUnlessRawOrDeliberate) {
  ASSERT_EQ(Set("stat::empty", ""), S_OK);
  ASSERT_EQ(Set("stat::blank", "   "), S_OK);
  ASSERT_EQ(Set("stat::nbsp", "&nbsp;"), S_OK);
  EXPECT_FALSE(Get("stat::empty"));
  EXPECT_FALSE(Get("stat::blank"));
  EXPECT_EQ(Get("stat::blank", true), "   ");
  EXPECT_EQ(Get("stat::nbsp"), " ");
  EXPECT_TRUE(m_spRoot->GetAttributePath(S("stat::nbsp"), nullptr));
  EXPECT_FALSE(m_spRoot->GetAttributePath(S("stat::blank"), nullptr));
  // A plain value of blanks set later clears the mark.
  ASSERT_EQ(Set("stat::nbsp", " "), S_OK);
  EXPECT_FALSE(Get("stat::nbsp"));
}

TEST_F(CoXMLNodeTest, Decoding_OnlyWhenAsked) {
  ASSERT_EQ(Set("a", "x&amp;y"), S_OK);
  ASSERT_EQ(Set("b", "x&amp;y", false), S_OK);
  EXPECT_EQ(Get("a"), "x&y");
  EXPECT_EQ(Get("b"), "x&amp;y");
  m_spRoot->SetValue(S("1&lt;2"));
  EXPECT_EQ(U8(m_spRoot->Value()), "1<2");
  m_spRoot->SetValue(S("1&lt;2"), false);
  EXPECT_EQ(U8(m_spRoot->Value()), "1&lt;2");
}

// ---------------------------------------------------------------------------
// Paths and selectors

TEST_F(CoXMLNodeTest, ThreeLevelPath_CreatesNodesOnceAndReadsBack) {
  ASSERT_EQ(Set("video::stat::kbps_avg", "1200"), S_OK);
  ASSERT_EQ(Set("video::stat::kbps_avg", "1300"), S_OK);
  ASSERT_EQ(Set("video::stat::fps", "25"), S_OK);
  EXPECT_EQ(Get("video::stat::kbps_avg"), "1300");
  EXPECT_EQ(m_spRoot->ChildCount(), 1u);
  EXPECT_EQ(Node("video")->ChildCount(), 1u);
  EXPECT_EQ(AttributeNames(*Node("video::stat")), (std::vector<std::string>{"kbps_avg", "fps"}));
  EXPECT_FALSE(Get("video::stat::missing"));
  EXPECT_FALSE(Get("audio::stat::kbps_avg"));
}

TEST_F(CoXMLNodeTest, LastPartNamingAChild_ReadsAndWritesItsValue) {
  ASSERT_EQ(Set("codec::name", "h264"), S_OK);
  Node("codec")->SetValue(S("video"));
  EXPECT_EQ(Get("codec"), "video");
  ASSERT_EQ(Set("codec", "audio"), S_OK);
  EXPECT_EQ(U8(Node("codec")->Value()), "audio");
  EXPECT_EQ(m_spRoot->AttributeCount(), 0u);
}

TEST_F(CoXMLNodeTest, MalformedPaths_FindNothingAndCreateNothing) {
  ASSERT_EQ(Set("a::b", "1"), S_OK);
  for (const char* pszPath : {"", "::b", "a::", "a::::b", "a::b::", "[1]", "a::[0]"}) {
    EXPECT_EQ(Set(pszPath, "x"), E_INVALIDARG) << pszPath;
    EXPECT_FALSE(Get(pszPath)) << pszPath;
    EXPECT_EQ(m_spRoot->CreateNode(S(pszPath)), nullptr) << pszPath;
    EXPECT_FALSE(m_spRoot->RemovePath(S(pszPath))) << pszPath;
  }
  EXPECT_EQ(Text(), "<props><a b=\"1\"/></props>");
}

TEST_F(CoXMLNodeTest, NumericSelector_CountsFromZeroAndAppendsOnlyAtTheEnd) {
  ASSERT_EQ(Set("track[0]::id", "a"), S_OK);
  ASSERT_EQ(Set("track[1]::id", "b"), S_OK);
  ASSERT_EQ(Set("track[]::lang", "en"), S_OK);  // "[]" is the first
  EXPECT_EQ(m_spRoot->CountChildren(S("track")), 2u);
  EXPECT_EQ(Get("track::id"), "a");
  EXPECT_EQ(Get("track[0]::lang"), "en");
  EXPECT_EQ(Get("track[1]::id"), "b");
  EXPECT_FALSE(Get("track[2]::id"));

  // An index past the end creates nothing at all, not even the nodes before it.
  EXPECT_EQ(Set("track[5]::id", "c"), E_INVALIDARG);
  EXPECT_EQ(Set("group::track[1]::id", "c"), E_INVALIDARG);
  EXPECT_EQ(m_spRoot->CreateNode(S("track[999999]")), nullptr);
  EXPECT_EQ(m_spRoot->CountChildren(S("track")), 2u);
  EXPECT_EQ(Node("group"), nullptr);

  ASSERT_NE(m_spRoot->CreateNode(S("track[2]")), nullptr);
  EXPECT_EQ(m_spRoot->CountChildren(S("track")), 3u);
  ASSERT_EQ(Set("track[000002]::id", "c"), S_OK);  // six digits, leading zeros
  EXPECT_EQ(Get("track[2]::id"), "c");
}

TEST_F(CoXMLNodeTest, SevenDigits_AreATextSelector) {
  ASSERT_EQ(Set("n[1234567]::x", "1"), S_OK);
  const XMLNodePtr spNode = Node("n");
  ASSERT_NE(spNode, nullptr);
  EXPECT_EQ(U8(spNode->Value()), "1234567");
  EXPECT_EQ(Get("n[1234567]::x"), "1");
  EXPECT_FALSE(Get("n[0000001]::x"));
  EXPECT_EQ(Get("n[0]::x"), "1");
}

TEST_F(CoXMLNodeTest, TextSelector_MatchesOwnValueOrAttribute) {
  m_spRoot->AddChild(S("stream"))->SetAttribute(S("type"), S("video"));
  const XMLNodePtr spAudio = m_spRoot->AddChild(S("stream"));
  spAudio->SetAttribute(S("type"), S("audio"));
  spAudio->SetValue(S("main"));

  ASSERT_EQ(Set("stream[type=audio]::codec", "aac"), S_OK);
  ASSERT_EQ(Set("stream[type='video']::codec", "h264"), S_OK);
  ASSERT_EQ(Set("stream[type=\"video\"]::width", "1920"), S_OK);
  EXPECT_EQ(U8(spAudio->FindAttribute(S("codec"))->strValue), "aac");
  EXPECT_EQ(Get("stream[0]::codec"), "h264");
  EXPECT_EQ(Get("stream[main]::codec"), "aac");
  EXPECT_EQ(Get("stream[type=video]::width"), "1920");
  EXPECT_FALSE(Get("stream[type=Video]::width"));  // values compare exactly
  EXPECT_EQ(m_spRoot->CountChildren(S("stream")), 2u);

  // No match: a new child that carries the selector.
  ASSERT_EQ(Set("stream[type=data]::codec", "klv"), S_OK);
  ASSERT_EQ(Set("stream[extra]::codec", "none"), S_OK);
  ASSERT_EQ(m_spRoot->CountChildren(S("stream")), 4u);
  EXPECT_EQ(U8(m_spRoot->FindChild(S("stream"), 2)->FindAttribute(S("type"))->strValue), "data");
  EXPECT_EQ(U8(m_spRoot->FindChild(S("stream"), 3)->Value()), "extra");
  EXPECT_EQ(Get("stream[type=data]::codec"), "klv");
}

TEST_F(CoXMLNodeTest, KeySelectorOverATurnedAttribute_StillSelects) {
  // The path creates n with attribute x, then needs a node x below n: x
  // becomes a node, and the selector reads it there.
  const XMLNodePtr spX = m_spRoot->CreateNode(S("n[x=1]::x"));
  ASSERT_NE(spX, nullptr);
  EXPECT_EQ(m_spRoot->FindNode(S("n[x=1]::x")), spX);
  EXPECT_EQ(U8(spX->Value()), "1");
  EXPECT_EQ(m_spRoot->FindChild(S("n"))->FindAttribute(S("x")), nullptr);
  ASSERT_EQ(Set("n[x=1]::x::y", "2"), S_OK);
  EXPECT_EQ(Get("n[x=1]::x::y"), "2");
  EXPECT_EQ(m_spRoot->CountChildren(S("n")), 1u);
}

TEST_F(CoXMLNodeTest, OneCharacterBeforeSeparator_IsIgnored) {
  ASSERT_EQ(Set("t[1]::x", "0"), E_INVALIDARG);  // no t yet: index 1 is past the end
  ASSERT_EQ(Set("t[0]::x", "a"), S_OK);
  ASSERT_EQ(Set("t[1]/::x", "b"), S_OK);
  EXPECT_EQ(m_spRoot->CountChildren(S("t")), 2u);
  EXPECT_EQ(Get("t[1]::x"), "b");
  EXPECT_EQ(Get("t[1]z::x"), "b");
  EXPECT_EQ(Get("t[0]]::x"), "a");
}

TEST_F(CoXMLNodeTest, BracketsNotBeforeTheEndOrSeparator_ArePartOfTheName) {
  ASSERT_EQ(Set("a[1]bc::x", "1"), S_OK);  // two characters after ']'
  ASSERT_EQ(Set("opt[x::y", "2"), S_OK);   // never closed: "::" still splits
  ASSERT_EQ(m_spRoot->ChildCount(), 2u);
  EXPECT_EQ(U8(m_spRoot->ChildAt(0)->Name()), "a[1]bc");
  EXPECT_EQ(U8(m_spRoot->ChildAt(1)->Name()), "opt[x");
  EXPECT_EQ(Get("A[1]BC::x"), "1");
  EXPECT_EQ(Get("opt[x::y"), "2");
  // A selector may span a separator when its ']' qualifies.
  m_spRoot->AddChild(S("k"))->SetAttribute(S("p"), S("a::b"));
  EXPECT_EQ(Node("k[p=a::b]"), m_spRoot->FindChild(S("k")));
}

TEST_F(CoXMLNodeTest, SelectorOnLastPart_AddressesANodeValue) {
  ASSERT_EQ(Set("item[0]", "first"), S_OK);
  ASSERT_EQ(Set("item[1]", "second"), S_OK);
  EXPECT_EQ(m_spRoot->AttributeCount(), 0u);
  EXPECT_EQ(ChildValues(*m_spRoot), (std::vector<std::string>{"first", "second"}));
  EXPECT_EQ(Get("item[1]"), "second");
  ASSERT_TRUE(m_spRoot->RemovePath(S("item[0]")));
  EXPECT_EQ(ChildValues(*m_spRoot), (std::vector<std::string>{"second"}));
}

TEST_F(CoXMLNodeTest, RemovePath_TakesTheAttributeBeforeTheNode) {
  ASSERT_EQ(Set("a::x", "attr"), S_OK);
  Node("a")->AddChild(S("x"))->SetValue(S("node"));
  ASSERT_TRUE(m_spRoot->RemovePath(S("a::x")));
  EXPECT_EQ(Get("a::x"), "node");
  ASSERT_TRUE(m_spRoot->RemovePath(S("a::x")));
  EXPECT_FALSE(m_spRoot->RemovePath(S("a::x")));
  EXPECT_EQ(Node("a")->ChildCount(), 0u);
}

// ---------------------------------------------------------------------------
// Attribute to node

TEST_F(CoXMLNodeTest, SettingBelowAnAttribute_TurnsItIntoANodeKeepingItsValue) {
  ASSERT_EQ(Set("a", "x"), S_OK);
  ASSERT_EQ(Set("a::b", "1"), S_OK);
  EXPECT_EQ(m_spRoot->FindAttribute(S("a")), nullptr);
  const XMLNodePtr spA = Node("a");
  ASSERT_NE(spA, nullptr);
  EXPECT_EQ(U8(spA->Value()), "x");
  EXPECT_EQ(Get("a::b"), "1");
  EXPECT_EQ(Get("a"), "x");  // the node's value stands for the old attribute
  EXPECT_EQ(Text(), "<props><a b=\"1\">x</a></props>");
}

TEST_F(CoXMLNodeTest, CreateNodeThroughAnAttribute_AlsoTurnsIt) {
  m_spRoot->SetAttribute(S("Mode"), S("&nbsp;"));
  m_spRoot->SetAttribute(S("Other"), S("kept"));
  const XMLNodePtr spNode = m_spRoot->CreateNode(S("Mode::sub"));
  ASSERT_NE(spNode, nullptr);
  const XMLNodePtr spMode = m_spRoot->FindChild(S("mode"));
  ASSERT_NE(spMode, nullptr);
  EXPECT_EQ(U8(spMode->Value()), " ");
  EXPECT_TRUE(spMode->ValueKeepsBlank());
  EXPECT_EQ(m_spRoot->FindAttribute(S("Mode")), nullptr);
  EXPECT_EQ(m_spRoot->CreateNode(S("mode::sub")), spNode);
  // Attribute names are exact: "other" is not the attribute "Other".
  ASSERT_NE(m_spRoot->CreateNode(S("other::sub")), nullptr);
  EXPECT_EQ(U8(m_spRoot->FindAttribute(S("Other"))->strValue), "kept");
  EXPECT_EQ(U8(m_spRoot->FindChild(S("other"))->Value()), "");
}

TEST_F(CoXMLNodeTest, AttributeThatCannotBecomeANode_IsReportedAndLeftAlone) {
  ASSERT_EQ(Set("br", "x"), S_OK);  // a fine attribute name, never a node name
  vc::CAssertCounter counter;
  EXPECT_EQ(Set("br::b", "1"), E_INVALIDARG);
  EXPECT_EQ(counter.Count(), 1);
  EXPECT_EQ(counter.LastCondition(), "pNewNode");
  EXPECT_EQ(counter.LastPath(), "Include/Devices/KPropsImpl");
  EXPECT_EQ(Get("br"), "x");
  EXPECT_EQ(m_spRoot->ChildCount(), 0u);
}

// ---------------------------------------------------------------------------
// Depth

TEST_F(CoXMLNodeTest, Depth_LimitedBelowTheRoot) {
  std::string path = "n";
  for (uint32_t i = 1; i < CoXMLNode::kMaxDepth; ++i) path += "::n";
  const XMLNodePtr spDeepest = m_spRoot->CreateNode(S(path.c_str()));
  ASSERT_NE(spDeepest, nullptr);
  EXPECT_EQ(spDeepest->Depth(), CoXMLNode::kMaxDepth);
  EXPECT_EQ(spDeepest->AddChild(S("x")), nullptr);
  EXPECT_EQ(m_spRoot->CreateNode(S((path + "::n").c_str())), nullptr);
  EXPECT_EQ(Set((path + "::attr").c_str(), "1"), S_OK);  // an attribute adds no depth
  EXPECT_EQ(Set((path + "::n::attr").c_str(), "1"), E_INVALIDARG);
  // The text of the deepest tree reads back, and writing and dropping it
  // recurse through no frame per level.
  const vc::String text = m_spRoot->Serialize();
  EXPECT_EQ(text.size(), 7 + 7 * (CoXMLNode::kMaxDepth - 1) + 13 + 8);
  const XMLNodePtr spBack = CoXMLNode::Create(S("props"));
  ASSERT_EQ(spBack->Parse(text), S_OK);
  EXPECT_TRUE(spBack->SameTree(*m_spRoot));
  m_spRoot.reset();
}

// ---------------------------------------------------------------------------
// Copies

TEST_F(CoXMLNodeTest, CopyTo_MergesByTheParseRules) {
  ASSERT_EQ(m_spRoot->Parse(S("<props a='1'><s x='1'/><s x='2'/>root</props>")), S_OK);
  const XMLNodePtr spDest = CoXMLNode::Create(S("other"));
  ASSERT_EQ(spDest->Parse(S("<other a='0' b='keep'><s y='y'/></other>")), S_OK);
  m_spRoot->CopyTo(spDest.get());
  EXPECT_EQ(U8(spDest->Serialize()), "<other a=\"1\" b=\"keep\">root<s y=\"y\" x=\"1\"/><s x=\"2\"/></other>");
}

TEST_F(CoXMLNodeTest, Clone_IsTheSameTreeAndIndependent) {
  ASSERT_EQ(m_spRoot->Parse(S("<props a='&nbsp;'><s x='1'>v<t/></s><s/></props>")), S_OK);
  const XMLNodePtr spCopy = m_spRoot->Clone();
  EXPECT_TRUE(spCopy->SameTree(*m_spRoot));
  ASSERT_EQ(spCopy->SetAttributePath(S("s[1]::z"), S("2")), S_OK);
  EXPECT_FALSE(spCopy->SameTree(*m_spRoot));
  EXPECT_FALSE(Get("s[1]::z"));
}

TEST_F(CoXMLNodeTest, CopyIntoOwnSubtree_CopiesTheTreeAsItWas) {
  ASSERT_EQ(m_spRoot->Parse(S("<props a='1'><s><t/></s></props>")), S_OK);
  m_spRoot->CopyTo(Node("s::t").get());
  EXPECT_EQ(Text(), "<props a=\"1\"><s><t a=\"1\"><s><t/></s></t></s></props>");
}

TEST_F(CoXMLNodeTest, CopyToProps_SetsEveryPathWithEncodedValues) {
  using Sets = std::vector<std::pair<std::string, std::string>>;
  const auto fSets = [](vctest::CFakeProps& props) {
    Sets sets;
    for (const auto& call : props.Calls()) sets.emplace_back(call.strName, call.strValue);
    return sets;
  };
  ASSERT_EQ(m_spRoot->Parse(S("<props a='1&amp;2'>own<s x='&nbsp;'>v</s><t/><s y='2'/></props>")), S_OK);
  const vctest::FakePropsPtr cpProps = vctest::CreateFakeProps();
  // One name fails; the copy goes on past it and reports the failure.
  cpProps->m_fnDuringCall = [p = cpProps.Get()] {
    p->m_hrAnswer = p->Calls().back().strName == "pre::s::x" ? E_INVALIDARG : S_OK;
  };
  EXPECT_EQ(m_spRoot->CopyToProps(cpProps.Get(), S("pre")), E_INVALIDARG);
  EXPECT_EQ(fSets(*cpProps),
            (Sets{{"pre::a", "1&amp;2"}, {"pre", "own"}, {"pre::s::x", "&nbsp;"}, {"pre::s", "v"}, {"pre::s[1]::y", "2"}}));

  const vctest::FakePropsPtr cpNoPrefix = vctest::CreateFakeProps();
  EXPECT_EQ(m_spRoot->CopyToProps(cpNoPrefix.Get()), S_OK);
  const Sets noPrefix = fSets(*cpNoPrefix);
  ASSERT_GE(noPrefix.size(), 2u);
  EXPECT_EQ(noPrefix[0], (std::pair<std::string, std::string>{"a", "1&amp;2"}));
  EXPECT_EQ(noPrefix[1].first, "s::x");  // the root's own value has no name to go under
  EXPECT_EQ(m_spRoot->CopyToProps(nullptr), E_POINTER);
}

}  // namespace
