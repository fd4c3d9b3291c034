// Reads the text form of the property tree into a node: XML-like text
// (elements, attributes, text, character data, break and tab tags, comments)
// or the blank-separated name=value form. XML-like text is scanned and
// checked whole first, then merged, so text that does not parse changes
// nothing. Used by CoXMLNode::Parse on the caller's thread, under the tree
// owner's lock; owns nothing beyond one call.
#pragma once

#include "CoXMLNode.h"

namespace XMLParse {

class CXMLParser {
 public:
  explicit CXMLParser(CoXMLNode* pTarget) : m_pTarget(pTarget) {}

  // S_OK, or E_INVALIDARG for text that does not parse (logged with the
  // offset where reading stopped).
  HRESULT Parse(StringView text);

 private:
  struct CEvent;
  struct CScan;
  struct CTextRun;

  HRESULT _ParseElements(StringView text);
  HRESULT _ParsePairs(StringView text);
  void _Merge(const std::vector<CEvent>& vecEvents);
  static void _FinishValue(CoXMLNode* pNode, std::vector<CTextRun>& vecRuns);

  CoXMLNode* m_pTarget;
};

}  // namespace XMLParse
