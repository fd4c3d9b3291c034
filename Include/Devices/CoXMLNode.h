// The property tree: a node with a name, its own text value, attributes kept
// in the order they were first set, and child nodes kept as a multimap in
// insertion order. Every facade keeps its settings, published information and
// statistics in one such tree; IVCProps (KPropsImpl.h) is the interface over
// it, and the "bsProps"/"bsHints" strings of the public calls are parsed into
// it.
//
// Paths join node names with "::"; the last part names an attribute of the
// node reached by the parts before it (or, when a child node of that name
// exists, that child's own value). A part may carry a bracketed selector:
//   "name[2]"       the third child called "name" (numeric index from zero,
//                   at most six digits; "name[]" is index 0)
//   "name[text]"    the child called "name" whose own value is "text", or,
//                   for "key=value" (value optionally quoted), whose
//                   attribute "key" is "value"
// Brackets are a selector only when "]" ends the path, or is followed by
// "::", or by one character and then "::" (that character is ignored);
// otherwise they are ordinary characters of the name. Get, set and create
// apply selectors the same way; create appends a child for a numeric index
// equal to the count of children of that name (a larger index is an invalid
// path) and for a text selector that matches none (giving it that value or
// attribute).
//
// Node names are compared without regard to ASCII letter case and stored
// lower-cased; attribute names are kept and compared exactly.
//
// Not thread-safe: the owner (a facade) guards its tree with its lock.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "VCCodecsCore.h"
#include "VCStrings.h"

namespace XMLParse {

using vc::String;
using vc::StringView;

class CoXMLNode;
using XMLNodePtr = std::shared_ptr<CoXMLNode>;

struct XMLAttribute {
  String strName;
  String strValue;
  // The value came from "&nbsp;": a blank that counts as a value. Other
  // values that are empty or only blanks read as absent.
  bool bKeepBlank = false;
};

// Entity decoding of one attribute or text value, in the order the system
// defines: CR, LF and TAB to blanks (unless bKeepWhitespace), the named
// entities, "&nbsp;" (sets *pbDeliberateBlank), "&copy;" and "&reg;" both to
// the character 0xC2, numeric entities with automatic base, any other '&'
// dropped.
String DecodeEntities(StringView in, bool bKeepWhitespace, bool* pbDeliberateBlank);
// True when the text is empty or only blanks.
bool IsBlank(StringView s);

class CoXMLNode {
 public:
  explicit CoXMLNode(StringView name = {});
  CoXMLNode(const CoXMLNode&) = delete;
  CoXMLNode& operator=(const CoXMLNode&) = delete;

  static XMLNodePtr Create(StringView name = {});

  const String& Name() const { return m_strName; }
  void SetName(StringView name);  // stored lower-cased

  // The node's own text value ("" when it has none).
  const String& Value() const { return m_strValue; }
  // bDecode: run entity decoding first (values from outside); internal
  // writers of plain values (statistics) pass false.
  void SetValue(StringView value, bool bDecode = true);

  // Attributes of this node, in first-set order.
  size_t AttributeCount() const;
  const XMLAttribute* AttributeAt(size_t nIndex) const;
  const XMLAttribute* FindAttribute(StringView name) const;
  void SetAttribute(StringView name, StringView value, bool bDecode = true);
  bool RemoveAttribute(StringView name);
  void RemoveAllAttributes();

  // Children of this node, in insertion order.
  size_t ChildCount() const;
  XMLNodePtr ChildAt(size_t nIndex) const;
  // The nth child called name (from zero), or null.
  XMLNodePtr FindChild(StringView name, size_t nNth = 0) const;
  size_t CountChildren(StringView name) const;
  XMLNodePtr AddChild(StringView name);
  bool RemoveChild(const CoXMLNode* pChild);
  void RemoveAllChildren();

  // Path addressing (see the top of this file). A malformed path finds nothing.
  XMLNodePtr FindNode(StringView path) const;
  // Creates what is missing on the way; an attribute met where a node is
  // needed is turned into a node carrying the attribute's value as its own
  // value. Null when the path is malformed.
  XMLNodePtr CreateNode(StringView path);
  // False when absent. Values that are empty or only blanks count as absent
  // unless bRaw (or they came from "&nbsp;").
  bool GetAttributePath(StringView path, String* pValue, bool bRaw = false) const;
  // Sets the attribute at path, creating the nodes before it; E_INVALIDARG
  // for a malformed or empty path.
  HRESULT SetAttributePath(StringView path, StringView value, bool bDecode = true);
  // Removes the attribute, or else the node, at path; false when neither exists.
  bool RemovePath(StringView path);

  // Merges text into this node: XML-like text (starting with '<') or the
  // blank-separated name=value form ("a=1 b='two words' stat::c=3"), whose
  // names are paths. A top-level element whose name is this node's name is
  // merged into this node, any other into the child of that name (the nth
  // element of a name into the nth child of that name). Attributes replace,
  // children are merged. Fails (and may leave part of the text merged) with
  // E_INVALIDARG on text that does not parse.
  HRESULT Parse(StringView text);
  // This node and its subtree as text that Parse reads back to the same tree.
  String Serialize() const;

  // Deep copy of this node's value, attributes and children merged into pDest.
  void CopyTo(CoXMLNode* pDest) const;
  XMLNodePtr Clone() const;
  // Every attribute of the subtree set on pProps by its path below this node
  // (prefix + "::"-joined node names + attribute name); node values by their
  // node path. Returns the first failure, after trying all.
  HRESULT CopyToProps(IVCProps* pProps, StringView prefix = {}) const;

 private:
  struct Impl;
  String m_strName;
  String m_strValue;
  std::unique_ptr<Impl> m_pImpl;  // attribute and child storage with their indexes
};

}  // namespace XMLParse
