// The tree side of the shared property interface (KPropsImpl.h): what each
// IVCProps call does to a facade's property tree once delegation is settled,
// the reserved names, the routing of "runtime" names, and the option metadata
// lookup in "attributes_info" nodes along "inherit" links. Kept out of the
// template so that it is compiled once.
//
// The functions that take a root expect the caller to hold the lock that
// guards that tree (the facade's lock); the others are pure. None throws
// except std::bad_alloc.
#pragma once

#include <cstdint>
#include <vector>

#include "CoXMLNode.h"
#include "VCCodecsCore.h"
#include "VCStrings.h"

namespace vc {

// The ten IVCProps operations, as the delegate lookup sees them.
enum eKPropsOp : int32_t {
  eKPO_Set = 0,
  eKPO_Get = 1,
  eKPO_GetCount = 2,
  eKPO_GetByIndex = 3,
  eKPO_Remove = 4,
  eKPO_InfoGet = 5,
  eKPO_OptionGetCount = 6,
  eKPO_OptionGetByIndex = 7,
  eKPO_OptionSetByIndex = 8,
  eKPO_OptionGet = 9,
};

namespace props {

using XMLParse::CoXMLNode;
using XMLParse::XMLNodePtr;

// Name of the root node every property tree starts with.
inline constexpr OLECHAR kRootName[] = W("props");
// Child node of an owning node that holds the metadata entries of its properties.
inline constexpr OLECHAR kInfoNodeName[] = W("attributes_info");

// Whether a call goes to the process-wide runtime settings: names beginning
// with "runtime::" for every operation (*pForwardName: the rest of the name),
// and the name "runtime" itself, which stands for the whole runtime object
// (*pForwardName: empty), for every operation but eKPO_Get. Letter case is
// ignored in both forms, as node names ignore it.
bool RoutesToRuntime(eKPropsOp eOp, StringView name, StringView* pForwardName);

// "a::b[x::y]::c" -> parent "a::b[x::y]", last "c": splits at the last "::"
// outside a bracketed selector, by the same rule the tree reads paths with.
// A path without "::" has an empty parent.
void SplitLastPart(StringView path, StringView* pParent, StringView* pLast);

// The node at path below pRoot; pRoot itself for an empty path.
XMLNodePtr NodeAt(const XMLNodePtr& spRoot, StringView path);

// The reserved names of PropsGet ("_process_name_", "_process_pid_",
// "dll-version", "dll-file-version", "dll-path", "dll-date"; letter case
// ignored). False for any other name.
bool ReservedValue(StringView name, String* pValue);

// PropsSet on the tree: an empty name parses value into the root (an empty
// value as well is E_INVALIDARG); the name of an existing node sets that
// node's own value; any other name sets the attribute at that path
// (E_INVALIDARG when the tree refuses the path). S_FALSE when
// bReportUnchanged and the old and new values are equal and not blank; then
// *pbNotify stays false, otherwise a successful change sets it.
HRESULT SetInTree(CoXMLNode& root, StringView name, StringView value, bool bReportUnchanged, bool* pbNotify);

// The stored attribute at path (not a node's value).
bool GetAttribute(const CoXMLNode& root, StringView path, String* pValue);
// The node at path: its own value, or its subtree as text when it has none.
bool GetNodeText(const XMLNodePtr& spRoot, StringView path, String* pValue);
// The value a node entry shows in listings: its own value, or its subtree as
// text when it has none.
String NodeEntryValue(const CoXMLNode& node);

// Entries of the node at path: attributes in the order they were first set,
// then child nodes in insertion order. S_FALSE (count 0) when there is no
// such node.
HRESULT CountEntries(const XMLNodePtr& spRoot, StringView path, LONG* pnCount);
// S_FALSE when there is no such node or nIndex is past the last entry.
HRESULT EntryAt(const XMLNodePtr& spRoot, StringView path, size_t nIndex, String* pName, String* pValue,
                bool* pbNode);

// PropsRemove on the tree. "_all_props_" and "_all_nodes_" as the last part
// (alone or after a node path, letter case ignored) remove every attribute or
// every child node of that node. S_FALSE when there is nothing at the path.
HRESULT RemoveFromTree(const XMLNodePtr& spRoot, StringView path);

// The metadata entry of the property at path: the owning node's
// "attributes_info" child and in it the child named like the property; else
// the same search in each node that an "inherit" link names (the info node's
// "inherit" attribute, then the owning node's), link after link, each node
// visited once; else the same for the part of the name before its first '.'.
// Link paths start at the root. Null when none is found.
XMLNodePtr FindInfoEntry(const XMLNodePtr& spRoot, StringView path);

// One answer of the info-type table from an entry. The values list comes
// from "values", else from "select_from": a path from the root whose node's
// child names, joined with '|', form the list. False when the entry has no
// such answer (or eType is unknown).
bool InfoAnswer(const XMLNodePtr& spRoot, const CoXMLNode& entry, eKInfoType eType, String* pAnswer);

struct COption {
  String strValue;
  String strHelp;
};
// The options of the property at path: the items of its values answer split
// at '|'. Each option's help is the matching item of the entry's
// "values_help" attribute ('|'-separated, in the same order); for a list
// built from "select_from" without "values_help", the own value of the child
// node the option was named after. Empty when the property has no values.
std::vector<COption> OptionsOf(const XMLNodePtr& spRoot, StringView path);

// The value PropsOptionGet compares with the options: the attribute at path,
// else the own value of the node at path, else the metadata's default.
bool CurrentOptionValue(const XMLNodePtr& spRoot, StringView path, String* pValue);
// Index of value among the options: an exact match first, else one that
// differs only in ASCII letter case; -1 when none matches.
LONG FindOption(const std::vector<COption>& options, StringView value);

// Copies text into a new BSTR; E_OUTOFMEMORY when that fails.
HRESULT CopyToBstr(StringView text, BSTR* pbs);

}  // namespace props
}  // namespace vc
