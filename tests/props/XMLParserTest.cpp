// The property tree's text form: entity decoding, the tag scanner, merge
// rules, the name=value form, hostile input, and the round trip of any tree
// through Serialize and Parse.
#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <string>
#include <vector>

#include "CoXMLNode.h"

namespace {

using XMLParse::CoXMLNode;
using XMLParse::DecodeEntities;
using XMLParse::XMLNodePtr;

vc::String S(const char* pszUtf8) { return vc::FromUtf8(pszUtf8); }
std::string U8(vc::StringView s) { return vc::ToUtf8(s); }

// Decoded text as UTF-16 code units, for checks on single characters.
std::vector<unsigned> Units(const char* pszUtf8, bool bKeepWhitespace = false, bool* pbBlank = nullptr) {
  std::vector<unsigned> units;
  for (const OLECHAR c : DecodeEntities(S(pszUtf8), bKeepWhitespace, pbBlank)) units.push_back(c);
  return units;
}
std::string Decode(const char* pszUtf8, bool bKeepWhitespace = false) {
  return U8(DecodeEntities(S(pszUtf8), bKeepWhitespace, nullptr));
}

// ---------------------------------------------------------------------------
// Entity decoding

TEST(XMLEntitiesTest, CopyAndReg_BothGiveC2) {
  EXPECT_EQ(Units("&copy;"), std::vector<unsigned>{0xC2});
  EXPECT_EQ(Units("&reg;"), std::vector<unsigned>{0xC2});
  EXPECT_EQ(Units("a&copy;b&reg;"), (std::vector<unsigned>{'a', 0xC2, 'b', 0xC2}));
}

TEST(XMLEntitiesTest, NamedEntities_DecodedInOnePass) {
  EXPECT_EQ(Decode("&lt;&gt;&amp;&apos;&quot;"), "<>&'\"");
  // What an entity produced is not read again.
  EXPECT_EQ(Decode("&amp;lt;"), "&lt;");
  EXPECT_EQ(Decode("&amp;#65;"), "&#65;");
  EXPECT_EQ(Decode("&#38;amp;"), "&amp;");
}

TEST(XMLEntitiesTest, Nbsp_IsABlankMarkedDeliberate) {
  bool bBlank = false;
  EXPECT_EQ(Units("&nbsp;", false, &bBlank), std::vector<unsigned>{' '});
  EXPECT_TRUE(bBlank);
  EXPECT_EQ(Units("a b&amp;", false, &bBlank), (std::vector<unsigned>{'a', ' ', 'b', '&'}));
  EXPECT_FALSE(bBlank);
}

TEST(XMLEntitiesTest, Whitespace_BecomesBlanksUnlessKept) {
  EXPECT_EQ(Decode("a\r\nb\tc"), "a  b c");
  EXPECT_EQ(Decode("a\r\nb\tc", true), "a\r\nb\tc");
  // Numeric entities come after that step, so they can carry line breaks.
  EXPECT_EQ(Decode("a&#xA;b&#9;c&#13;"), "a\nb\tc\r");
}

TEST(XMLEntitiesTest, NumericEntities_HexDecimalAndOctal) {
  EXPECT_EQ(Decode("&#65;&#x42;&#X43;"), "ABC");
  EXPECT_EQ(Units("&#010;"), std::vector<unsigned>{8});         // a leading 0 reads octal
  EXPECT_EQ(Units("&#0x41;"), std::vector<unsigned>{0x41});     // and "0x" hex
  EXPECT_EQ(Units("&#09;"), (std::vector<unsigned>{0, ';'}));   // octal stops at 9, which the entity swallows
  EXPECT_EQ(Decode("&#65B;"), "A;");                            // one character after the number is skipped
  EXPECT_EQ(Decode("x&#65"), "xA");                             // even when there is none
  EXPECT_EQ(Units("&#x1F600;"), (std::vector<unsigned>{0xD83D, 0xDE00}));
  EXPECT_EQ(Units("&#x110000;"), std::vector<unsigned>{0xFFFD});
  EXPECT_EQ(Units("&#99999999999999999999999;"), std::vector<unsigned>{0xFFFD});
}

TEST(XMLEntitiesTest, UnknownAmpersand_DroppedAndTheRestKept) {
  EXPECT_EQ(Decode("a&b"), "ab");
  EXPECT_EQ(Decode("&LT;"), "LT;");
  EXPECT_EQ(Decode("&lt"), "lt");
  EXPECT_EQ(Decode("&#;"), "#;");
  EXPECT_EQ(Decode("&#xg;"), "#xg;");
  EXPECT_EQ(Decode("end&"), "end");
  EXPECT_EQ(Decode("&&amp;"), "&");
}

TEST(XMLEntitiesTest, IsBlank_TrueOnlyForLayoutCharacters) {
  EXPECT_TRUE(XMLParse::IsBlank(S("")));
  EXPECT_TRUE(XMLParse::IsBlank(S(" \t\r\n")));
  EXPECT_FALSE(XMLParse::IsBlank(S(" . ")));
  EXPECT_FALSE(XMLParse::IsBlank(S("\xC2\xA0")));
}

// ---------------------------------------------------------------------------
// Tag scanner and merge rules

class XMLParserTest : public ::testing::Test {
 protected:
  HRESULT ParseText(const char* pszText) { return m_spRoot->Parse(S(pszText)); }
  std::string Text() const { return U8(m_spRoot->Serialize()); }
  std::optional<std::string> Get(const char* pszPath, bool bRaw = false) const {
    vc::String value;
    if (!m_spRoot->GetAttributePath(S(pszPath), &value, bRaw)) return std::nullopt;
    return U8(value);
  }
  std::string Value(const char* pszPath) const {
    const XMLNodePtr sp = m_spRoot->FindNode(S(pszPath));
    return sp ? U8(sp->Value()) : "<no node>";
  }
  // Parses the text and checks that it failed and changed nothing.
  void ExpectRefused(const char* pszText) {
    const std::string before = Text();
    EXPECT_EQ(ParseText(pszText), E_INVALIDARG) << pszText;
    EXPECT_EQ(Text(), before) << pszText;
  }

  XMLNodePtr m_spRoot = CoXMLNode::Create(S("props"));
};

TEST_F(XMLParserTest, ElementsAndAttributes_MergedUnderTheirNames) {
  ASSERT_EQ(ParseText("<stat kbps='10' fps=\"25\" mode=fast size = 3/><codec name=h264/>"), S_OK);
  EXPECT_EQ(Get("stat::kbps"), "10");
  EXPECT_EQ(Get("stat::fps"), "25");
  EXPECT_EQ(Get("stat::mode"), "fast");
  EXPECT_EQ(Get("stat::size"), "3");
  EXPECT_EQ(Get("codec::name"), "h264");
  EXPECT_EQ(Text(), "<props><stat kbps=\"10\" fps=\"25\" mode=\"fast\" size=\"3\"/><codec name=\"h264\"/></props>");
}

TEST_F(XMLParserTest, TopLevelElementNamedLikeTheNode_MergesIntoIt) {
  ASSERT_EQ(ParseText("<PROPS a='1'><x/></PROPS>"), S_OK);
  ASSERT_EQ(ParseText("<__root__ b='2'/>"), S_OK);
  EXPECT_EQ(Text(), "<props a=\"1\" b=\"2\"><x/></props>");
  // A nameless node is written under that name and reads it back.
  const XMLNodePtr spNameless = CoXMLNode::Create();
  ASSERT_EQ(spNameless->Parse(S("<other c='3'/>")), S_OK);
  EXPECT_EQ(U8(spNameless->Serialize()), "<__root__><other c=\"3\"/></__root__>");
}

TEST_F(XMLParserTest, ElementNamesDifferingInCase_AddressTheSameNode) {
  ASSERT_EQ(ParseText("<Stat A='1'/>"), S_OK);
  ASSERT_EQ(ParseText("<STAT b='2'></stat>"), S_OK);
  ASSERT_EQ(ParseText("<props><sTaT A='3'/></props>"), S_OK);
  ASSERT_EQ(m_spRoot->CountChildren(S("stat")), 1u);
  EXPECT_EQ(Get("stat::A"), "3");
  EXPECT_EQ(Get("STAT::b"), "2");
  EXPECT_EQ(Get("stat::a"), std::nullopt);  // attribute names keep their case
  // In one text they are the same name: the second element is the second child.
  ASSERT_EQ(ParseText("<stat/><Stat c='4'/>"), S_OK);
  ASSERT_EQ(m_spRoot->CountChildren(S("stat")), 2u);
  EXPECT_EQ(Get("stat[1]::c"), "4");
}

TEST_F(XMLParserTest, SameNameElements_MergeIntoChildrenOfTheSameRank) {
  ASSERT_EQ(ParseText("<props><s id='a'/><s id='b'/></props>"), S_OK);
  ASSERT_EQ(ParseText("<props><s x='1'/><s x='2'/><s id='c'/></props>"), S_OK);
  EXPECT_EQ(Text(), "<props><s id=\"a\" x=\"1\"/><s id=\"b\" x=\"2\"/><s id=\"c\"/></props>");
  ASSERT_EQ(ParseText("<props><s id='A'/></props>"), S_OK);  // only the first is touched
  EXPECT_EQ(Get("s[0]::id"), "A");
  EXPECT_EQ(Get("s[1]::id"), "b");
}

TEST_F(XMLParserTest, Text_ReplacesTheValueUnlessOnlyLayout) {
  ASSERT_EQ(ParseText("<props><v>  five  <x/>\n  </v></props>"), S_OK);
  EXPECT_EQ(Value("v"), "five");
  ASSERT_EQ(ParseText("<props>\n  <v>\n    <x a='1'/>\n  </v>\n</props>"), S_OK);
  EXPECT_EQ(Value("v"), "five");
  ASSERT_EQ(ParseText("<props><v>a<x/>b</v></props>"), S_OK);
  EXPECT_EQ(Value("v"), "ab");
  ASSERT_EQ(ParseText("<props><v>&#x20;</v></props>"), S_OK);  // an encoded blank is a value
  EXPECT_EQ(Value("v"), " ");
  EXPECT_EQ(Get("v"), std::nullopt);
  ASSERT_EQ(ParseText("<props><v>&nbsp;</v></props>"), S_OK);
  EXPECT_EQ(Get("v"), " ");
}

TEST_F(XMLParserTest, BlankAttribute_AbsentWhileNbspIsOneBlank) {
  ASSERT_EQ(ParseText("<props a='   ' b='&nbsp;' c='' d=' &nbsp; '/>"), S_OK);
  EXPECT_EQ(Get("a"), std::nullopt);
  EXPECT_EQ(Get("a", true), "   ");
  EXPECT_EQ(Get("b"), " ");
  EXPECT_EQ(Get("c"), std::nullopt);
  EXPECT_EQ(Get("d"), "   ");
}

TEST_F(XMLParserTest, CommentsDeclarationsAndInstructions_Skipped) {
  ASSERT_EQ(ParseText("<?xml version='1.0'?><!DOCTYPE props><!-- <x a='1'/> -->"
                      "<props><!--c--><y b='2'/><?pi <z/>?></props>"),
            S_OK);
  EXPECT_EQ(Text(), "<props><y b=\"2\"/></props>");
}

TEST_F(XMLParserTest, CData_TakenVerbatimUpToItsEnd) {
  ASSERT_EQ(ParseText("<props><v><![CDATA[a &amp; <b>\r\n c]]></v><w>x<![CDATA[ ]]>y</w></props>"), S_OK);
  EXPECT_EQ(Value("v"), "a &amp; <b>\r\n c");
  EXPECT_EQ(Value("w"), "x y");
  ASSERT_EQ(ParseText("<props><u><![raw<]]></u></props>"), S_OK);  // "<![" alone opens it too
  EXPECT_EQ(Value("u"), "raw<");
}

TEST_F(XMLParserTest, CDataWithoutEnd_RunsToSixCharactersBeforeTheEnd) {
  // The section stops six characters before the end and reading goes on there.
  ASSERT_EQ(ParseText("<abc><![CDATA[x&amp;<y</abc>"), S_OK);
  EXPECT_EQ(Value("abc"), "x&amp;<y");
  ASSERT_EQ(ParseText("<v><![CDATA[abc</v>"), S_OK);
  EXPECT_EQ(Value("v"), "abc");  // "a" verbatim, then "bc" as text, then "</v>"
  // Texts shorter than that must not reach before the section's start.
  for (const char* pszText : {"<v><![", "<![", "<v><![CDATA[", "<v><![CDATA[x"}) {
    EXPECT_EQ(ParseText(pszText), pszText[1] == '!' ? S_OK : E_INVALIDARG) << pszText;
  }
}

TEST_F(XMLParserTest, BreakAndTabTags_StandForCharacters) {
  ASSERT_EQ(ParseText("<props><v>a<br/>b<TAB/>c<br>d<br />e</br></v></props>"), S_OK);
  EXPECT_EQ(Value("v"), "a\nb\tc\nd\ne");
  EXPECT_EQ(m_spRoot->FindNode(S("v"))->ChildCount(), 0u);
  ASSERT_EQ(ParseText("<props><w><br/></w></props>"), S_OK);  // a break is content, not layout
  EXPECT_EQ(Value("w"), "\n");
}

TEST_F(XMLParserTest, MalformedText_RefusedWithoutAnyChange) {
  ASSERT_EQ(ParseText("<props a='1'><s b='2'/></props>"), S_OK);
  for (const char* pszText :
       {"<a>", "<a></b>", "</a>", "<a/></a>", "<a b></a>", "<a b=></a>", "<a b='1></a>", "<a b=1",
        "<a><!-- x</a>", "<a><? x</a>", "<!DOCTYPE", "text", "<a/>junk", "junk<a/>", "< a/>", "<a", "<>",
        "<br/>", "<a =\"1\"/>", "<a b\"c=1/>", "<a\"/>", "<=a/>", "<props x='2'><bad</props>",
        "<props x='2'/><a></a><b>"}) {
    ExpectRefused(pszText);
  }
  EXPECT_EQ(Get("x"), std::nullopt);
}

TEST_F(XMLParserTest, DeepNesting_RefusedPastTheLimit) {
  const auto fNested = [](uint32_t nDepth) {
    std::string s;
    for (uint32_t i = 0; i < nDepth; ++i) s += "<n>";
    for (uint32_t i = 0; i < nDepth; ++i) s += "</n>";
    return s;
  };
  EXPECT_EQ(ParseText(fNested(CoXMLNode::kMaxDepth).c_str()), S_OK);
  ExpectRefused(fNested(CoXMLNode::kMaxDepth + 1).c_str());
  // Below a node that is already deep there is less room.
  const XMLNodePtr spDeep = m_spRoot->CreateNode(S("a::b::c"));
  EXPECT_EQ(spDeep->Parse(S(fNested(CoXMLNode::kMaxDepth - 3).c_str())), S_OK);
  EXPECT_EQ(spDeep->Parse(S(fNested(CoXMLNode::kMaxDepth - 2).c_str())), E_INVALIDARG);
  // Far past the limit: refused early, whatever the length.
  EXPECT_EQ(ParseText(fNested(200000).c_str()), E_INVALIDARG);
}

TEST_F(XMLParserTest, LongInputs_ReadInOnePass) {
  // Shapes that make a careless scanner quadratic; each is a few hundred
  // thousand characters.
  std::string manyAttributes = "<props";
  for (int i = 0; i < 20000; ++i) manyAttributes += " a" + std::to_string(i) + "='" + std::to_string(i) + "'";
  manyAttributes += "/>";
  ASSERT_EQ(ParseText(manyAttributes.c_str()), S_OK);
  EXPECT_EQ(m_spRoot->AttributeCount(), 20000u);
  EXPECT_EQ(Get("a19999"), "19999");

  std::string manyChildren = "<props>";
  for (int i = 0; i < 20000; ++i) manyChildren += "<c" + std::to_string(i % 500) + "/>";
  manyChildren += "</props>";
  ASSERT_EQ(ParseText(manyChildren.c_str()), S_OK);
  EXPECT_EQ(m_spRoot->ChildCount(), 20000u);
  EXPECT_EQ(m_spRoot->CountChildren(S("c7")), 40u);

  const std::string brackets(300000, '[');
  EXPECT_FALSE(Get((brackets + "::x").c_str()));
  EXPECT_EQ(ParseText(("<props><v>" + std::string(300000, '&') + "</v></props>").c_str()), S_OK);
  ExpectRefused(("<props>" + std::string(300000, '<')).c_str());
}

// ---------------------------------------------------------------------------
// name=value form

TEST_F(XMLParserTest, NameValueForm_QuotedAndPlainValuesSetByPath) {
  ASSERT_EQ(ParseText("  a=1 b=\"two words\" c='x' stat::n=3\tempty= d='&lt;&nbsp;' e=\"it's\""), S_OK);
  EXPECT_EQ(Get("a"), "1");
  EXPECT_EQ(Get("b"), "two words");
  EXPECT_EQ(Get("c"), "x");
  EXPECT_EQ(Get("stat::n"), "3");
  EXPECT_EQ(Get("empty", true), "");
  EXPECT_EQ(Get("d"), "< ");
  EXPECT_EQ(Get("e"), "it's");
  ASSERT_EQ(ParseText("s[k=v w]::x=1 s[k=v w]::y=2"), S_OK);  // selectors may hold '=' and blanks
  EXPECT_EQ(m_spRoot->CountChildren(S("s")), 1u);
  EXPECT_EQ(Get("s::y"), "2");
}

TEST_F(XMLParserTest, NameValueForm_MalformedRefusedBeforeAnySet) {
  for (const char* pszText : {"a=1 b", "a=1 b='x", "a=1 =2", "a=1 x::=2", "a=1 ::x=2"}) {
    EXPECT_EQ(ParseText(pszText), E_INVALIDARG) << pszText;
    EXPECT_EQ(Get("a"), std::nullopt) << pszText;
  }
  // A pair that is well-formed but cannot be set stops there; those before stay.
  EXPECT_EQ(ParseText("a=1 t[3]::x=2 c=3"), E_INVALIDARG);
  EXPECT_EQ(Get("a"), "1");
  EXPECT_EQ(Get("c"), std::nullopt);
}

// ---------------------------------------------------------------------------
// Round trip

TEST_F(XMLParserTest, SpecialValues_SurviveTheRoundTrip) {
  m_spRoot->SetAttribute(S("lt"), S("a<b>c&d\"e'f"), false);
  m_spRoot->SetAttribute(S("ws"), S("\r\n\t x \t"), false);
  m_spRoot->SetAttribute(S("only"), S("   "), false);
  m_spRoot->SetAttribute(S("nbsp"), S("&nbsp;x"));
  m_spRoot->SetAttribute(S("octal"), S("&#010;"));
  m_spRoot->SetAttribute(S("wide"), S("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xC3\x82"), false);
  m_spRoot->SetAttribute(S("entity"), S("&amp;#65;&lt;"), false);
  m_spRoot->AddChild(S("t"))->SetValue(S("  lead and trail  "), false);
  m_spRoot->AddChild(S("t"))->SetValue(S("   "), false);
  m_spRoot->AddChild(S("t"))->SetValue(S("&nbsp;"));
  m_spRoot->AddChild(S("t"))->SetValue(S("\n"), false);
  vc::String lone = S("x");
  lone += static_cast<OLECHAR>(0xD800);
  lone += static_cast<OLECHAR>(0);
  m_spRoot->AddChild(S("u"))->SetValue(lone, false);

  const vc::String text = m_spRoot->Serialize();
  const XMLNodePtr spBack = CoXMLNode::Create(S("props"));
  ASSERT_EQ(spBack->Parse(text), S_OK) << U8(text);
  EXPECT_TRUE(spBack->SameTree(*m_spRoot)) << U8(text) << "\n" << U8(spBack->Serialize());
  // Control characters go out as hex entities, never as "&#010;" (octal).
  EXPECT_NE(text.find(S("&#xA;")), vc::String::npos);
  EXPECT_EQ(text.find(OLECHAR('\n')), vc::String::npos);
}

// Builds random trees from names and values chosen to hit every encoding rule.
class CRandomTree {
 public:
  explicit CRandomTree(uint32_t nSeed) : m_rng(nSeed) {}

  XMLNodePtr Build() {
    XMLNodePtr spRoot = CoXMLNode::Create(_Pick(kRootNames));
    std::vector<CoXMLNode*> vecNodes{spRoot.get()};
    const int nOps = _Int(0, 40);
    for (int i = 0; i < nOps; ++i) {
      CoXMLNode* pNode = vecNodes[static_cast<size_t>(_Int(0, static_cast<int>(vecNodes.size()) - 1))];
      switch (_Int(0, 4)) {
        case 0:
        case 1:
          pNode->SetAttribute(_Pick(kAttributeNames), _Value(), _Int(0, 1) == 1);
          break;
        case 2:
          pNode->SetValue(_Value(), _Int(0, 1) == 1);
          break;
        default:
          if (XMLNodePtr sp = pNode->AddChild(_Pick(kNodeNames))) vecNodes.push_back(sp.get());
          break;
      }
    }
    return spRoot;
  }

 private:
  static constexpr const char* kRootNames[] = {"props", "", "a b", "Root"};
  static constexpr const char* kNodeNames[] = {"s", "S", "stat", "a[1]", "x::y", "caf\xC3\xA9", "__root__", "brx"};
  static constexpr const char* kAttributeNames[] = {"a", "A", "kbps_avg", "n/m", "x::y", "[0]", "\xE2\x82\xAC"};
  static constexpr const char* kPieces[] = {
      "a", " ", "  ", "<", ">", "&", "\"", "'", "&amp;", "&nbsp;", "&copy;", "&#x41;", "&#010;", "\r", "\n",
      "\t", "\xC3\xA9", "\xF0\x9F\x98\x80", "]]>", "<![CDATA[", "<!--", "0", "&#0;", "&#xD800;", "\xC3\x82"};

  int _Int(int nMin, int nMax) { return std::uniform_int_distribution<int>(nMin, nMax)(m_rng); }
  template <size_t N>
  vc::String _Pick(const char* const (&names)[N]) {
    return S(names[static_cast<size_t>(_Int(0, static_cast<int>(N) - 1))]);
  }
  vc::String _Value() {
    vc::String value;
    const int nPieces = _Int(0, 5);
    for (int i = 0; i < nPieces; ++i) value += _Pick(kPieces);
    return value;
  }

  std::mt19937 m_rng;
};

TEST(XMLRoundTripTest, RandomTrees_ReadBackAsTheSameTree) {
  for (uint32_t nSeed = 1; nSeed <= 400; ++nSeed) {
    const XMLNodePtr spTree = CRandomTree(nSeed).Build();
    const vc::String text = spTree->Serialize();
    const XMLNodePtr spBack = CoXMLNode::Create(spTree->Name());
    ASSERT_EQ(spBack->Parse(text), S_OK) << "seed " << nSeed << ": " << U8(text);
    ASSERT_TRUE(spBack->SameTree(*spTree)) << "seed " << nSeed << ": " << U8(text) << "\n" << U8(spBack->Serialize());
    ASSERT_EQ(spBack->Serialize(), text) << "seed " << nSeed;
    // A copy is the same tree too.
    ASSERT_TRUE(spTree->Clone()->SameTree(*spTree)) << "seed " << nSeed;
  }
}

}  // namespace
