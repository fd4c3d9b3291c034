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
//                   attribute "key" (or, lacking one, whose child "key")
//                   has the value "value"
// Brackets are a selector only when "]" ends the path, or is followed by
// "::", or by one character and then "::" (that character is ignored);
// otherwise they are ordinary characters of the name. Get, set and create
// apply selectors the same way; create appends a child for a numeric index
// equal to the count of children of that name (a larger index is an invalid
// path) and for a text selector that matches none (giving it that value or
// attribute). A last part with a selector always addresses a node (its own
// value), never an attribute.
//
// Node names are compared without regard to ASCII letter case and stored
// lower-cased; attribute names are kept and compared exactly. A name must be
// writable in the text form (IsValidNodeName, IsValidAttributeName): calls
// that would create a node or attribute with another name fail and change
// nothing. "br" and "tab" are not node names: in text they stand for a line
// break and a tab.
//
// Lookups by name are hashed once a node has more than a few entries, and
// the get and set paths allocate nothing when the names and the value already
// exist (statistics are written through SetAttributePath on every packet).
//
// Not thread-safe: the owner (a facade) guards its tree with its lock.
#pragma once

#include <cstdint>
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
// dropped. One left-to-right pass: a character an entity produced is never
// read again. pbDeliberateBlank may be null; otherwise it is set to whether
// "&nbsp;" occurred.
String DecodeEntities(StringView in, bool bKeepWhitespace, bool* pbDeliberateBlank);
// True when the text is empty or only blanks (space, TAB, CR, LF).
bool IsBlank(StringView s);

class CoXMLNode : public std::enable_shared_from_this<CoXMLNode> {
 public:
  // Deepest node below a root (a root is at depth 0); children beyond it are
  // refused, so no walk over a tree can run away.
  static constexpr uint32_t kMaxDepth = 512;
  // Deepest element nesting Parse accepts: a root's element and its deepest
  // descendants, so that the text of any tree reads back.
  static constexpr uint32_t kMaxParseNesting = kMaxDepth + 1;
  // Element name under which a node whose own name is not a valid node name
  // (a nameless root) is written; such an element at the top level of parsed
  // text always merges into the node that parses it.
  static constexpr const char* kAnonymousRootName = "__root__";

  explicit CoXMLNode(StringView name = {});
  ~CoXMLNode();
  CoXMLNode(const CoXMLNode&) = delete;
  CoXMLNode& operator=(const CoXMLNode&) = delete;

  static XMLNodePtr Create(StringView name = {});

  // Non-empty, no character below '!', none of < > / = " ' &, not starting
  // with '!' or '?', and not "br" or "tab" in any letter case.
  static bool IsValidNodeName(StringView name);
  // Non-empty, no character below '!', none of < > = " ' &.
  static bool IsValidAttributeName(StringView name);

  const String& Name() const { return m_strName; }
  void SetName(StringView name);  // stored lower-cased

  // The node's own text value ("" when it has none).
  const String& Value() const { return m_strValue; }
  // True when the value came from "&nbsp;" and counts although it is blank.
  bool ValueKeepsBlank() const { return m_bValueKeepBlank; }
  // bDecode: run entity decoding first (values from outside); internal
  // writers of plain values (statistics) pass false.
  void SetValue(StringView value, bool bDecode = true);

  // Depth below the root this node was created under (0 for a root).
  uint32_t Depth() const { return m_nDepth; }

  // Attributes of this node, in first-set order.
  size_t AttributeCount() const;
  const XMLAttribute* AttributeAt(size_t nIndex) const;
  const XMLAttribute* FindAttribute(StringView name) const;
  // Replaces the value of an existing attribute (keeping its place) or adds
  // one at the end. False, and nothing set, for an invalid attribute name.
  bool SetAttribute(StringView name, StringView value, bool bDecode = true);
  bool RemoveAttribute(StringView name);
  void RemoveAllAttributes();

  // Children of this node, in insertion order.
  size_t ChildCount() const;
  XMLNodePtr ChildAt(size_t nIndex) const;
  // The nth child called name (from zero), or null.
  XMLNodePtr FindChild(StringView name, size_t nNth = 0) const;
  size_t CountChildren(StringView name) const;
  // Null for an invalid node name or when the child would be deeper than
  // kMaxDepth.
  XMLNodePtr AddChild(StringView name);
  bool RemoveChild(const CoXMLNode* pChild);
  void RemoveAllChildren();

  // Path addressing (see the top of this file). A malformed path finds nothing.
  XMLNodePtr FindNode(StringView path) const;
  // Creates what is missing on the way; an attribute met where a node is
  // needed is turned into a node carrying the attribute's value as its own
  // value. Null, and nothing changed, when the path is malformed or cannot
  // be created (an index past the end, an invalid name, too deep).
  XMLNodePtr CreateNode(StringView path);
  // False when absent. Values that are empty or only blanks count as absent
  // unless bRaw (or they came from "&nbsp;"). pValue may be null to ask
  // whether the value is there.
  bool GetAttributePath(StringView path, String* pValue, bool bRaw = false) const;
  // Sets the attribute at path, creating the nodes before it; when the node
  // has no such attribute but a child of that name, sets the child's own
  // value. E_INVALIDARG, and nothing changed, for a malformed or empty path
  // or one that cannot be created.
  HRESULT SetAttributePath(StringView path, StringView value, bool bDecode = true);
  // Removes the attribute, or else the node, at path; false when neither exists.
  bool RemovePath(StringView path);

  // Merges text into this node: XML-like text (starting with '<') or the
  // blank-separated name=value form ("a=1 b='two words' stat::c=3"), whose
  // names are paths. A top-level element whose name is this node's name (or
  // kAnonymousRootName) is merged into this node, any other into the child
  // of that name (the nth element of a name into the nth child of that
  // name). Attributes replace, children are merged, an element's text
  // replaces the node's value unless it is only layout whitespace. Empty
  // text merges nothing and succeeds.
  // Fails with E_INVALIDARG on text that does not parse. XML-like text is
  // checked whole before anything is merged, so it fails without a change;
  // in the name=value form the pairs before the one that could not be set
  // stay set.
  HRESULT Parse(StringView text);
  // This node and its subtree as text that Parse reads back to the same tree
  // (one line, no layout whitespace).
  String Serialize() const;

  // Deep copy of this node's value, attributes and children merged into pDest
  // (by the merge rules of Parse). Children that would be deeper than
  // kMaxDepth under pDest are left out.
  void CopyTo(CoXMLNode* pDest) const;
  XMLNodePtr Clone() const;
  // Every attribute of the subtree set on pProps by its path below this node
  // (prefix + "::"-joined node names + attribute name; the nth same-name
  // child as "name[n]"); node values by their node path (the root's own value
  // only when there is a prefix). Returns the first failure, after trying all.
  HRESULT CopyToProps(IVCProps* pProps, StringView prefix = {}) const;

  // Same names, values, deliberate blanks, attributes in order and children
  // in order, all the way down.
  bool SameTree(const CoXMLNode& other) const;

 private:
  friend class CXMLParser;
  struct Impl;

  // For the parser: values arrive decoded, with their deliberate-blank mark.
  void _SetDecodedValue(StringView value, bool bKeepBlank);
  bool _SetDecodedAttribute(StringView name, StringView value, bool bKeepBlank);
  // The child that the next merged element called name goes into: for the
  // nth such element the nth child of that name, added when missing.
  // *pvecSeen counts the elements merged so far, one count per child group
  // of this node. Null when the child cannot be added.
  CoXMLNode* _MergeChild(StringView name, std::vector<size_t>* pvecSeen);

  String m_strName;
  String m_strValue;
  bool m_bValueKeepBlank = false;
  uint32_t m_nDepth = 0;
  std::unique_ptr<Impl> m_pImpl;  // attribute and child storage with their indexes
};

}  // namespace XMLParse
