#include "XMLParser.h"

#include "VCLog.h"
#include "XMLEntities.h"
#include "XMLNameIndex.h"
#include "XMLPath.h"

namespace XMLParse {

struct CXMLParser::CTextRun {
  uint8_t eType;  // CEvent::eKind of a text, character data, break or tab
  StringView text;
};

struct CXMLParser::CEvent {
  enum eKind : uint8_t {
    eKE_Open,       // name: an element starts
    eKE_Attribute,  // name, value (raw): an attribute of the element just opened
    eKE_Close,      // the innermost open element ends
    eKE_Text,       // value (raw)
    eKE_CData,      // value (verbatim)
    eKE_Break,      // a "br" tag
    eKE_Tab,        // a "tab" tag
  };
  eKind eType;
  StringView name;
  StringView value;
};

namespace {

bool StartsWithAscii(StringView s, size_t nPos, const char* psz) noexcept {
  for (size_t i = 0; psz[i]; ++i) {
    if (nPos + i >= s.size() || s[nPos + i] != static_cast<OLECHAR>(psz[i])) return false;
  }
  return true;
}

bool EqualsNoCaseAscii(StringView s, const char* psz) noexcept {
  size_t i = 0;
  for (; psz[i]; ++i) {
    if (i >= s.size() || vc::ToLowerAscii(s[i]) != static_cast<OLECHAR>(psz[i])) return false;
  }
  return i == s.size();
}

size_t FindAscii(StringView s, size_t nFrom, const char* psz) noexcept {
  String pattern;
  AppendAscii(pattern, psz);
  return s.find(pattern, nFrom);
}

// A top-level element named like the target, or by the name a nameless
// node is written under, is the target itself.
bool MergesIntoTarget(const CoXMLNode& target, StringView name) noexcept {
  return detail::EqualsLowered(name, target.Name()) || EqualsNoCaseAscii(name, CoXMLNode::kAnonymousRootName);
}

StringView TrimLayout(StringView s) noexcept {
  while (!s.empty() && IsLayoutSpace(s.front())) s.remove_prefix(1);
  while (!s.empty() && IsLayoutSpace(s.back())) s.remove_suffix(1);
  return s;
}

}  // namespace

// The tag scanner: turns the text into events and checks it (names, nesting,
// quoting, closing tags). Linear in the text: every search starts where the
// previous one stopped.
struct CXMLParser::CScan {
  StringView s;
  const CoXMLNode& target;
  std::vector<CEvent>& vecEvents;
  struct COpen {
    StringView name;
    uint32_t nDepth;  // of the node the element merges into
  };
  std::vector<COpen> vecOpen;
  size_t nPos = 0;
  const char* pszError = nullptr;
  static constexpr size_t kHere = static_cast<size_t>(-1);

  // Remembers why and where (nAt, or the start of the current construct).
  bool Fail(const char* pszWhy, size_t nAt = kHere) {
    pszError = pszWhy;
    if (nAt != kHere) nPos = nAt;
    return false;
  }

  bool Run() {
    while (nPos < s.size()) {
      if (s[nPos] != '<') {
        if (!_Text()) return false;
      } else if (StartsWithAscii(s, nPos, "<!--")) {
        if (!_SkipPast("-->", nPos + 4, "comment without \"-->\"")) return false;
      } else if (StartsWithAscii(s, nPos, "<![")) {
        if (!_CData()) return false;
      } else if (StartsWithAscii(s, nPos, "<!")) {
        if (!_SkipPast(">", nPos + 2, "declaration without '>'")) return false;
      } else if (StartsWithAscii(s, nPos, "<?")) {
        if (!_SkipPast("?>", nPos + 2, "processing instruction without \"?>\"")) return false;
      } else if (StartsWithAscii(s, nPos, "</")) {
        if (!_CloseTag()) return false;
      } else if (!_StartTag()) {
        return false;
      }
    }
    return vecOpen.empty() || Fail("element not closed");
  }

 private:
  bool _SkipPast(const char* pszEnd, size_t nFrom, const char* pszWhy) {
    const size_t nEnd = FindAscii(s, nFrom, pszEnd);
    if (nEnd == StringView::npos) return Fail(pszWhy);
    nPos = nEnd + std::char_traits<char>::length(pszEnd);
    return true;
  }

  bool _Text() {
    size_t nEnd = s.find(OLECHAR('<'), nPos);
    if (nEnd == StringView::npos) nEnd = s.size();
    const StringView run = s.substr(nPos, nEnd - nPos);
    if (vecOpen.empty()) {
      if (!IsBlank(run)) return Fail("text outside any element");
    } else {
      vecEvents.push_back(CEvent{CEvent::eKE_Text, {}, run});
    }
    nPos = nEnd;
    return true;
  }

  bool _CData() {
    size_t nStart = nPos + 3;
    if (StartsWithAscii(s, nStart, "CDATA[")) nStart += 6;
    const size_t nClose = FindAscii(s, nStart, "]]>");
    StringView content;
    if (nClose != StringView::npos) {
      content = s.substr(nStart, nClose - nStart);
      nPos = nClose + 3;
    } else {
      // Without "]]>" the section runs to six characters before the end of
      // the text, and reading goes on from there.
      size_t nEnd = s.size() >= 6 ? s.size() - 6 : 0;
      if (nEnd < nStart) nEnd = nStart;
      content = s.substr(nStart, nEnd - nStart);
      nPos = nEnd;
    }
    if (vecOpen.empty()) {
      if (!content.empty()) return Fail("character data outside any element");
    } else {
      vecEvents.push_back(CEvent{CEvent::eKE_CData, {}, content});
    }
    return true;
  }

  bool _CloseTag() {
    const size_t nEnd = s.find(OLECHAR('>'), nPos + 2);
    if (nEnd == StringView::npos) return Fail("closing tag without '>'");
    const StringView name = TrimLayout(s.substr(nPos + 2, nEnd - nPos - 2));
    nPos = nEnd + 1;
    if (EqualsNoCaseAscii(name, "br") || EqualsNoCaseAscii(name, "tab")) return true;  // closes nothing
    if (vecOpen.empty()) return Fail("closing tag without an open element");
    const StringView open = vecOpen.back().name;
    if (name.size() != open.size() || vc::StrICmp(name, open) != 0) return Fail("closing tag does not match");
    vecOpen.pop_back();
    vecEvents.push_back(CEvent{CEvent::eKE_Close, {}, {}});
    return true;
  }

  bool _StartTag() {
    size_t i = nPos + 1;
    while (i < s.size() && !IsLayoutSpace(s[i]) && s[i] != '/' && s[i] != '>') ++i;
    const StringView name = s.substr(nPos + 1, i - nPos - 1);
    const bool bBreak = EqualsNoCaseAscii(name, "br");
    const bool bTab = EqualsNoCaseAscii(name, "tab");
    const bool bSpecial = bBreak || bTab;
    uint32_t nDepth = 0;
    if (!bSpecial) {
      if (!CoXMLNode::IsValidNodeName(name)) return Fail("invalid element name");
      if (vecOpen.size() >= CoXMLNode::kMaxParseNesting) return Fail("elements nested too deep");
      // Nodes may not go deeper than kMaxDepth below their root, whatever
      // the depth of the node the text is merged into.
      nDepth = vecOpen.empty() ? target.Depth() + (MergesIntoTarget(target, name) ? 0 : 1) : vecOpen.back().nDepth + 1;
      if (nDepth > CoXMLNode::kMaxDepth) return Fail("elements nested too deep");
      vecEvents.push_back(CEvent{CEvent::eKE_Open, name, {}});
    } else if (vecOpen.empty()) {
      return Fail("break or tab outside any element");
    }
    bool bSelfClosing = false;
    if (!_Attributes(i, !bSpecial, &bSelfClosing)) return false;
    if (bSpecial) {
      vecEvents.push_back(CEvent{bBreak ? CEvent::eKE_Break : CEvent::eKE_Tab, {}, {}});
    } else if (bSelfClosing) {
      vecEvents.push_back(CEvent{CEvent::eKE_Close, {}, {}});
    } else {
      vecOpen.push_back(COpen{name, nDepth});
    }
    return true;
  }

  // Reads name="v", name='v' or name=v pairs up to '>' or "/>".
  bool _Attributes(size_t i, bool bKeep, bool* pbSelfClosing) {
    for (;;) {
      while (i < s.size() && IsLayoutSpace(s[i])) ++i;
      if (i >= s.size()) return Fail("tag without '>'", i);
      if (s[i] == '>') {
        nPos = i + 1;
        return true;
      }
      if (s[i] == '/' && i + 1 < s.size() && s[i + 1] == '>') {
        nPos = i + 2;
        *pbSelfClosing = true;
        return true;
      }
      const size_t nName = i;
      while (i < s.size() && !IsLayoutSpace(s[i]) && s[i] != '=' && s[i] != '>') ++i;
      const StringView name = s.substr(nName, i - nName);
      if (!CoXMLNode::IsValidAttributeName(name)) return Fail("invalid attribute name", i);
      while (i < s.size() && IsLayoutSpace(s[i])) ++i;
      if (i >= s.size() || s[i] != '=') return Fail("attribute without '='", i);
      ++i;
      while (i < s.size() && IsLayoutSpace(s[i])) ++i;
      if (i >= s.size()) return Fail("attribute without a value", i);
      StringView value;
      if (s[i] == '"' || s[i] == '\'') {
        const size_t nClose = s.find(s[i], i + 1);
        if (nClose == StringView::npos) return Fail("attribute value without its closing quote", i);
        value = s.substr(i + 1, nClose - i - 1);
        i = nClose + 1;
      } else {
        const size_t nValue = i;
        while (i < s.size() && !IsLayoutSpace(s[i]) && s[i] != '>') ++i;
        value = s.substr(nValue, i - nValue);
        if (!value.empty() && value.back() == '/' && i < s.size() && s[i] == '>') {
          value.remove_suffix(1);  // the '/' of "/>"
          --i;
        }
        if (value.empty()) return Fail("attribute without a value", i);
      }
      if (bKeep) vecEvents.push_back(CEvent{CEvent::eKE_Attribute, name, value});
    }
  }
};

HRESULT CXMLParser::Parse(StringView text) {
  size_t nFirst = 0;
  while (nFirst < text.size() && IsLayoutSpace(text[nFirst])) ++nFirst;
  if (nFirst == text.size()) return S_OK;
  return text[nFirst] == '<' ? _ParseElements(text) : _ParsePairs(text);
}

HRESULT CXMLParser::_ParseElements(StringView text) {
  std::vector<CEvent> vecEvents;
  CScan scan{text, *m_pTarget, vecEvents, {}};
  if (!scan.Run()) {
    VC_LOG(vc::eVCLL_Retry, "text does not parse at offset %d: %s\n", static_cast<int>(scan.nPos), scan.pszError);
    return E_INVALIDARG;
  }
  _Merge(vecEvents);
  return S_OK;
}

// An element's own value from its text runs. Layout whitespace at either end
// (indentation around child elements) is not part of it; a value that is
// nothing but layout leaves the node's value as it was.
void CXMLParser::_FinishValue(CoXMLNode* pNode, std::vector<CTextRun>& vecRuns) {
  size_t nFirst = 0;
  size_t nLast = vecRuns.size();
  while (nFirst < nLast && vecRuns[nFirst].eType == CEvent::eKE_Text) {
    StringView& t = vecRuns[nFirst].text;
    while (!t.empty() && IsLayoutSpace(t.front())) t.remove_prefix(1);
    if (!t.empty()) break;
    ++nFirst;
  }
  while (nLast > nFirst && vecRuns[nLast - 1].eType == CEvent::eKE_Text) {
    StringView& t = vecRuns[nLast - 1].text;
    while (!t.empty() && IsLayoutSpace(t.back())) t.remove_suffix(1);
    if (!t.empty()) break;
    --nLast;
  }
  if (nFirst == nLast) return;
  String value;
  bool bKeepBlank = false;
  for (size_t i = nFirst; i < nLast; ++i) {
    switch (vecRuns[i].eType) {
      case CEvent::eKE_Text: {
        bool bRunBlank = false;
        value += DecodeEntities(vecRuns[i].text, false, &bRunBlank);
        bKeepBlank = bKeepBlank || bRunBlank;
        break;
      }
      case CEvent::eKE_CData:
        value += vecRuns[i].text;
        break;
      case CEvent::eKE_Break:
        value += '\n';
        break;
      default:
        value += '\t';
        break;
    }
  }
  pNode->_SetDecodedValue(value, bKeepBlank);
}

void CXMLParser::_Merge(const std::vector<CEvent>& vecEvents) {
  struct CFrame {
    CoXMLNode* pNode;
    std::vector<size_t> vecSeen;  // elements merged so far, per child group of pNode
    std::vector<CTextRun> vecRuns;
  };
  std::vector<CFrame> vecStack;
  vecStack.push_back(CFrame{m_pTarget, {}, {}});
  for (const CEvent& event : vecEvents) {
    CFrame& top = vecStack.back();
    switch (event.eType) {
      case CEvent::eKE_Open: {
        CoXMLNode* pNode = nullptr;
        if (vecStack.size() == 1 && MergesIntoTarget(*m_pTarget, event.name)) {
          pNode = m_pTarget;
        } else if (top.pNode) {
          // The scan checked names and depth, so the child can be had.
          pNode = top.pNode->_MergeChild(event.name, &top.vecSeen);
        }
        vecStack.push_back(CFrame{pNode, {}, {}});
        break;
      }
      case CEvent::eKE_Attribute: {
        if (!top.pNode) break;
        bool bKeepBlank = false;
        const String value = DecodeEntities(event.value, false, &bKeepBlank);
        top.pNode->_SetDecodedAttribute(event.name, value, bKeepBlank);
        break;
      }
      case CEvent::eKE_Close:
        if (top.pNode) _FinishValue(top.pNode, top.vecRuns);
        vecStack.pop_back();
        break;
      default:
        top.vecRuns.push_back(CTextRun{event.eType, event.value});
        break;
    }
  }
}

HRESULT CXMLParser::_ParsePairs(StringView text) {
  struct CPair {
    StringView name;
    StringView value;
  };
  std::vector<CPair> vecPairs;
  size_t i = 0;
  const auto fFail = [&](const char* pszWhy) {
    VC_LOG(vc::eVCLL_Retry, "name=value text does not parse at offset %d: %s\n", static_cast<int>(i), pszWhy);
    return E_INVALIDARG;
  };
  for (;;) {
    while (i < text.size() && IsLayoutSpace(text[i])) ++i;
    if (i >= text.size()) break;
    // A selector may hold '=' and blanks ("a[key=x y]::b=1").
    const size_t nName = i;
    bool bInSelector = false;
    while (i < text.size()) {
      const OLECHAR c = text[i];
      if (c == '[') {
        bInSelector = true;
      } else if (c == ']') {
        bInSelector = false;
      } else if (!bInSelector && (c == '=' || IsLayoutSpace(c))) {
        break;
      }
      ++i;
    }
    if (i >= text.size() || text[i] != '=') return fFail("name without '='");
    const StringView name = text.substr(nName, i - nName);
    ++i;
    StringView value;
    if (i < text.size() && (text[i] == '"' || text[i] == '\'')) {
      const size_t nClose = text.find(text[i], i + 1);
      if (nClose == StringView::npos) return fFail("value without its closing quote");
      value = text.substr(i + 1, nClose - i - 1);
      i = nClose + 1;
    } else {
      const size_t nValue = i;
      while (i < text.size() && !IsLayoutSpace(text[i])) ++i;
      value = text.substr(nValue, i - nValue);
    }
    CXMLPath probe(name);
    XMLPathPart part;
    while (probe.Next(part)) {
    }
    if (probe.Malformed()) return fFail("malformed name");
    vecPairs.push_back(CPair{name, value});
  }
  for (const CPair& pair : vecPairs) {
    if (FAILED(m_pTarget->SetAttributePath(pair.name, pair.value, true))) {
      VC_LOG(vc::eVCLL_Retry, "cannot set %ws from name=value text\n", String(pair.name).c_str());
      return E_INVALIDARG;
    }
  }
  return S_OK;
}

}  // namespace XMLParse
