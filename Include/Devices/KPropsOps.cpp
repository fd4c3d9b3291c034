// The tree side of the shared property interface.
#include "KPropsOps.h"

#include <deque>
#include <new>
#include <unordered_set>

#include "KModuleInfo.h"

namespace vc::props {
namespace {

constexpr StringView kSeparator = W("::");
constexpr StringView kRuntime = W("runtime");

bool StartsWithIgnoreCase(StringView s, StringView prefix) {
  return s.size() >= prefix.size() && StrIEquals(s.substr(0, prefix.size()), prefix);
}

// Where a bracketed selector that opens at nOpen ends (the position after
// ']', or after the one tolerated character before "::"), or npos when the
// brackets are ordinary characters of the name.
size_t SelectorEnd(StringView path, size_t nOpen) {
  for (size_t nClose = path.find(W(']'), nOpen + 1); nClose != StringView::npos;
       nClose = path.find(W(']'), nClose + 1)) {
    const size_t nAfter = nClose + 1;
    if (nAfter == path.size() || path.substr(nAfter, 2) == kSeparator) return nAfter;
    if (nAfter + 1 < path.size() && path.substr(nAfter + 1, 2) == kSeparator) return nAfter + 1;
  }
  return StringView::npos;
}

bool HasValue(const XMLParse::XMLAttribute* pAttr) {
  return pAttr && (pAttr->bKeepBlank || !XMLParse::IsBlank(pAttr->strValue));
}

bool AttributeValue(const CoXMLNode& node, StringView name, String* pValue) {
  const XMLParse::XMLAttribute* pAttr = node.FindAttribute(name);
  if (!HasValue(pAttr)) return false;
  *pValue = pAttr->strValue;
  return true;
}

std::vector<String> SplitList(StringView list) {
  std::vector<String> items;
  size_t nStart = 0;
  for (;;) {
    const size_t nBar = list.find(W('|'), nStart);
    items.emplace_back(list.substr(nStart, nBar == StringView::npos ? StringView::npos : nBar - nStart));
    if (nBar == StringView::npos) break;
    nStart = nBar + 1;
  }
  return items;
}

XMLNodePtr FindEntryInherited(const XMLNodePtr& spRoot, const XMLNodePtr& spOwner, StringView name) {
  std::unordered_set<const CoXMLNode*> visited;
  std::deque<XMLNodePtr> pending{spOwner};
  while (!pending.empty()) {
    XMLNodePtr spNode = std::move(pending.front());
    pending.pop_front();
    if (!spNode || !visited.insert(spNode.get()).second) continue;  // a cycle ends here
    const XMLNodePtr spInfo = spNode->FindChild(kInfoNodeName);
    if (spInfo) {
      if (XMLNodePtr spEntry = spInfo->FindChild(name)) return spEntry;
    }
    String strLink;
    if (spInfo && AttributeValue(*spInfo, W("inherit"), &strLink)) pending.push_back(NodeAt(spRoot, strLink));
    if (AttributeValue(*spNode, W("inherit"), &strLink)) pending.push_back(NodeAt(spRoot, strLink));
  }
  return nullptr;
}

}  // namespace

bool RoutesToRuntime(eKPropsOp eOp, StringView name, StringView* pForwardName) {
  if (name.size() > kRuntime.size() + kSeparator.size() && StartsWithIgnoreCase(name, kRuntime) &&
      name.substr(kRuntime.size(), kSeparator.size()) == kSeparator) {
    *pForwardName = name.substr(kRuntime.size() + kSeparator.size());
    return true;
  }
  if (eOp != eKPO_Get && StrIEquals(name, kRuntime)) {
    *pForwardName = StringView();
    return true;
  }
  return false;
}

void SplitLastPart(StringView path, StringView* pParent, StringView* pLast) {
  size_t nLastSeparator = StringView::npos;
  for (size_t i = 0; i < path.size();) {
    if (path[i] == W('[')) {
      const size_t nEnd = SelectorEnd(path, i);
      if (nEnd != StringView::npos) {
        i = nEnd;
        continue;
      }
    }
    if (path.substr(i, 2) == kSeparator) {
      nLastSeparator = i;
      i += 2;
      continue;
    }
    ++i;
  }
  if (nLastSeparator == StringView::npos) {
    *pParent = StringView();
    *pLast = path;
  } else {
    *pParent = path.substr(0, nLastSeparator);
    *pLast = path.substr(nLastSeparator + 2);
  }
}

XMLNodePtr NodeAt(const XMLNodePtr& spRoot, StringView path) {
  if (!spRoot) return nullptr;
  return path.empty() ? spRoot : spRoot->FindNode(path);
}

bool ReservedValue(StringView name, String* pValue) {
  if (name.empty() || (name[0] != W('_') && name[0] != W('d') && name[0] != W('D'))) return false;
  if (StrIEquals(name, W("_process_name_"))) *pValue = ProcessImagePath();
  else if (StrIEquals(name, W("_process_pid_"))) *pValue = ProcessIdText();
  else if (StrIEquals(name, W("dll-version"))) *pValue = ModuleVersionText(false);
  else if (StrIEquals(name, W("dll-file-version"))) *pValue = ModuleVersionText(true);
  else if (StrIEquals(name, W("dll-path"))) *pValue = ModuleFilePath();
  else if (StrIEquals(name, W("dll-date"))) *pValue = ModuleBuildDate();
  else return false;
  return true;
}

HRESULT SetInTree(CoXMLNode& root, StringView name, StringView value, bool bReportUnchanged, bool* pbNotify) {
  *pbNotify = false;
  if (name.empty()) {
    if (value.empty()) return E_INVALIDARG;
    const HRESULT hr = root.Parse(value);
    if (FAILED(hr)) return hr;
    *pbNotify = true;
    return S_OK;
  }
  // The old and new values matter only to report an unchanged value; the
  // hot path (statistics, settings) skips the two extra reads.
  String strOld, strNew;
  if (XMLNodePtr spNode = root.FindNode(name)) {
    if (bReportUnchanged) strOld = spNode->Value();
    spNode->SetValue(value);
    if (bReportUnchanged) strNew = spNode->Value();
  } else {
    if (bReportUnchanged) root.GetAttributePath(name, &strOld);
    if (FAILED(root.SetAttributePath(name, value))) return E_INVALIDARG;
    if (bReportUnchanged) root.GetAttributePath(name, &strNew);
  }
  if (bReportUnchanged && !XMLParse::IsBlank(strOld) && !XMLParse::IsBlank(strNew) && strOld == strNew) return S_FALSE;
  *pbNotify = true;
  return S_OK;
}

bool GetAttribute(const CoXMLNode& root, StringView path, String* pValue) {
  return root.GetAttributePath(path, pValue);
}

String NodeEntryValue(const CoXMLNode& node) {
  return XMLParse::IsBlank(node.Value()) ? node.Serialize() : node.Value();
}

bool GetNodeText(const XMLNodePtr& spRoot, StringView path, String* pValue) {
  const XMLNodePtr spNode = NodeAt(spRoot, path);
  if (!spNode) return false;
  *pValue = NodeEntryValue(*spNode);
  return true;
}

HRESULT CountEntries(const XMLNodePtr& spRoot, StringView path, LONG* pnCount) {
  *pnCount = 0;
  const XMLNodePtr spNode = NodeAt(spRoot, path);
  if (!spNode) return S_FALSE;
  *pnCount = static_cast<LONG>(spNode->AttributeCount() + spNode->ChildCount());
  return S_OK;
}

HRESULT EntryAt(const XMLNodePtr& spRoot, StringView path, size_t nIndex, String* pName, String* pValue,
                bool* pbNode) {
  const XMLNodePtr spNode = NodeAt(spRoot, path);
  if (!spNode) return S_FALSE;
  const size_t nAttributes = spNode->AttributeCount();
  if (nIndex < nAttributes) {
    const XMLParse::XMLAttribute* pAttr = spNode->AttributeAt(nIndex);
    if (!pAttr) return S_FALSE;
    *pName = pAttr->strName;
    *pValue = pAttr->strValue;
    *pbNode = false;
    return S_OK;
  }
  const XMLNodePtr spChild = nIndex - nAttributes < spNode->ChildCount() ? spNode->ChildAt(nIndex - nAttributes) : nullptr;
  if (!spChild) return S_FALSE;
  *pName = spChild->Name();
  *pValue = NodeEntryValue(*spChild);
  *pbNode = true;
  return S_OK;
}

HRESULT RemoveFromTree(const XMLNodePtr& spRoot, StringView path) {
  StringView parent, last;
  SplitLastPart(path, &parent, &last);
  const bool bAllProps = StrIEquals(last, W("_all_props_"));
  if (bAllProps || StrIEquals(last, W("_all_nodes_"))) {
    const XMLNodePtr spNode = NodeAt(spRoot, parent);
    if (!spNode) return S_FALSE;
    if (bAllProps) spNode->RemoveAllAttributes();
    else spNode->RemoveAllChildren();
    return S_OK;
  }
  return spRoot->RemovePath(path) ? S_OK : S_FALSE;
}

XMLNodePtr FindInfoEntry(const XMLNodePtr& spRoot, StringView path) {
  StringView parent, name;
  SplitLastPart(path, &parent, &name);
  if (name.empty()) return nullptr;
  const XMLNodePtr spOwner = NodeAt(spRoot, parent);
  if (!spOwner) return nullptr;
  if (XMLNodePtr spEntry = FindEntryInherited(spRoot, spOwner, name)) return spEntry;
  const size_t nDot = name.find(W('.'));
  if (nDot == StringView::npos || nDot == 0) return nullptr;
  return FindEntryInherited(spRoot, spOwner, name.substr(0, nDot));
}

bool InfoAnswer(const XMLNodePtr& spRoot, const CoXMLNode& entry, eKInfoType eType, String* pAnswer) {
  switch (eType) {
    case eKIT_Help:
      if (XMLParse::IsBlank(entry.Value())) return false;
      *pAnswer = entry.Value();
      return true;
    case eKIT_Type: return AttributeValue(entry, W("type"), pAnswer);
    case eKIT_Default: return AttributeValue(entry, W("default"), pAnswer);
    case eKIT_Min: return AttributeValue(entry, W("min"), pAnswer);
    case eKIT_Max: return AttributeValue(entry, W("max"), pAnswer);
    case eKIT_Dynamic: return AttributeValue(entry, W("dynamic"), pAnswer);
    case eKIT_Values: {
      if (AttributeValue(entry, W("values"), pAnswer)) return true;
      String strFrom;
      if (!AttributeValue(entry, W("select_from"), &strFrom)) return false;
      const XMLNodePtr spFrom = NodeAt(spRoot, strFrom);
      if (!spFrom || spFrom->ChildCount() == 0) return false;
      String strList;
      for (size_t i = 0; i < spFrom->ChildCount(); ++i) {
        if (i) strList += W('|');
        strList += spFrom->ChildAt(i)->Name();
      }
      *pAnswer = std::move(strList);
      return true;
    }
  }
  return false;
}

std::vector<COption> OptionsOf(const XMLNodePtr& spRoot, StringView path) {
  std::vector<COption> options;
  const XMLNodePtr spEntry = FindInfoEntry(spRoot, path);
  String strValues;
  if (!spEntry || !InfoAnswer(spRoot, *spEntry, eKIT_Values, &strValues)) return options;
  for (String& strItem : SplitList(strValues)) options.push_back({std::move(strItem), String()});

  String strHelp;
  if (AttributeValue(*spEntry, W("values_help"), &strHelp)) {
    const std::vector<String> helps = SplitList(strHelp);
    for (size_t i = 0; i < options.size() && i < helps.size(); ++i) options[i].strHelp = helps[i];
  } else if (String strFrom; !HasValue(spEntry->FindAttribute(W("values"))) &&
                             AttributeValue(*spEntry, W("select_from"), &strFrom)) {
    // The list came from the children's names: their own values explain them.
    if (const XMLNodePtr spFrom = NodeAt(spRoot, strFrom)) {
      for (size_t i = 0; i < options.size() && i < spFrom->ChildCount(); ++i)
        options[i].strHelp = spFrom->ChildAt(i)->Value();
    }
  }
  return options;
}

bool CurrentOptionValue(const XMLNodePtr& spRoot, StringView path, String* pValue) {
  if (spRoot->GetAttributePath(path, pValue)) return true;
  if (const XMLNodePtr spNode = NodeAt(spRoot, path); spNode && !XMLParse::IsBlank(spNode->Value())) {
    *pValue = spNode->Value();
    return true;
  }
  const XMLNodePtr spEntry = FindInfoEntry(spRoot, path);
  return spEntry && InfoAnswer(spRoot, *spEntry, eKIT_Default, pValue);
}

LONG FindOption(const std::vector<COption>& options, StringView value) {
  for (size_t i = 0; i < options.size(); ++i)
    if (options[i].strValue == value) return static_cast<LONG>(i);
  for (size_t i = 0; i < options.size(); ++i)
    if (StrIEquals(options[i].strValue, value)) return static_cast<LONG>(i);
  return -1;
}

HRESULT CopyToBstr(StringView text, BSTR* pbs) {
  *pbs = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
  return *pbs ? S_OK : E_OUTOFMEMORY;
}

}  // namespace vc::props
