#include "CoXMLNode.h"

#include <utility>

#include "VCAssert.h"
#include "XMLEntities.h"
#include "XMLNameIndex.h"
#include "XMLParser.h"
#include "XMLPath.h"

namespace XMLParse {

using detail::CNameIndex;
using detail::kNotFound;

// Attributes in first-set order, and children in insertion order plus one
// group per distinct name (the nth child of a name without a scan of all
// children). Groups hold a second reference to each child.
struct CoXMLNode::Impl {
  struct CGroup {
    String strName;  // lower-cased
    std::vector<XMLNodePtr> vecNodes;
  };

  std::vector<XMLAttribute> vecAttributes;
  CNameIndex attributeIndex;
  std::vector<XMLNodePtr> vecChildren;
  std::vector<CGroup> vecGroups;
  CNameIndex groupIndex;

  size_t FindAttribute(StringView name) const {
    if (!attributeIndex.Active()) {
      for (size_t i = 0; i < vecAttributes.size(); ++i) {
        if (StringView(vecAttributes[i].strName) == name) return i;
      }
      return kNotFound;
    }
    return attributeIndex.Find(detail::HashName(name),
                               [&](size_t nPos) { return StringView(vecAttributes[nPos].strName) == name; });
  }

  XMLAttribute& AppendAttribute(StringView name) {
    vecAttributes.push_back(XMLAttribute{String(name), String(), false});
    if (attributeIndex.Active()) {
      attributeIndex.Insert(detail::HashName(name), vecAttributes.size() - 1);
    } else if (vecAttributes.size() > CNameIndex::kLinearMax) {
      RebuildAttributeIndex();
    }
    return vecAttributes.back();
  }

  void EraseAttribute(size_t nPos) {
    vecAttributes.erase(vecAttributes.begin() + static_cast<std::ptrdiff_t>(nPos));
    RebuildAttributeIndex();
  }

  void RebuildAttributeIndex() {
    attributeIndex.Rebuild(vecAttributes.size(),
                           [&](size_t nPos) { return detail::HashName(vecAttributes[nPos].strName); });
  }

  // Position of the group of children called name (any letter case).
  size_t FindGroupPos(StringView name) const {
    if (!groupIndex.Active()) {
      for (size_t i = 0; i < vecGroups.size(); ++i) {
        if (detail::EqualsLowered(name, vecGroups[i].strName)) return i;
      }
      return kNotFound;
    }
    return groupIndex.Find(detail::HashNameNoCase(name),
                           [&](size_t n) { return detail::EqualsLowered(name, vecGroups[n].strName); });
  }
  const CGroup* FindGroup(StringView name) const {
    const size_t nPos = FindGroupPos(name);
    return nPos == kNotFound ? nullptr : &vecGroups[nPos];
  }
  CGroup* FindGroup(StringView name) { return const_cast<CGroup*>(std::as_const(*this).FindGroup(name)); }

  void Append(XMLNodePtr spChild) {
    CGroup* pGroup = FindGroup(spChild->m_strName);
    if (!pGroup) {
      vecGroups.push_back(CGroup{spChild->m_strName, {}});
      if (groupIndex.Active()) {
        groupIndex.Insert(detail::HashName(spChild->m_strName), vecGroups.size() - 1);
      } else if (vecGroups.size() > CNameIndex::kLinearMax) {
        RebuildGroupIndex();
      }
      pGroup = &vecGroups.back();
    }
    pGroup->vecNodes.push_back(spChild);
    vecChildren.push_back(std::move(spChild));
  }

  bool Remove(const CoXMLNode* pChild) {
    size_t nPos = 0;
    while (nPos < vecChildren.size() && vecChildren[nPos].get() != pChild) ++nPos;
    if (nPos == vecChildren.size()) return false;
    // Keeps the child alive until both references are gone.
    const XMLNodePtr spHold = vecChildren[nPos];
    vecChildren.erase(vecChildren.begin() + static_cast<std::ptrdiff_t>(nPos));
    CGroup* pGroup = FindGroup(pChild->m_strName);
    if (pGroup) {
      auto& vec = pGroup->vecNodes;
      for (auto it = vec.begin(); it != vec.end(); ++it) {
        if (it->get() == pChild) {
          vec.erase(it);
          break;
        }
      }
      if (vec.empty()) {
        vecGroups.erase(vecGroups.begin() + (pGroup - vecGroups.data()));
        RebuildGroupIndex();
      }
    }
    return true;
  }

  void RebuildGroupIndex() {
    // Group names are lower-cased, so the exact hash equals the folded one.
    groupIndex.Rebuild(vecGroups.size(), [&](size_t nPos) { return detail::HashName(vecGroups[nPos].strName); });
  }

  // Moves every child out, for a teardown that does not recurse.
  void TakeChildren(std::vector<XMLNodePtr>& vecOut) {
    vecGroups.clear();
    groupIndex.Clear();
    for (auto& sp : vecChildren) vecOut.push_back(std::move(sp));
    vecChildren.clear();
  }

  // The child a path part selects, or null.
  static CoXMLNode* FindPart(const CoXMLNode* pNode, const XMLPathPart& part);
  static bool MatchesText(const CoXMLNode* pNode, StringView selector);
  static bool SplitKeyValue(StringView selector, StringView* pKey, StringView* pValue);

  // Path creation in two passes: Check proves from the node where the
  // existing path ends that the rest can be created, Build then creates it.
  static bool CheckCreatable(const CoXMLNode* pNode, CXMLPath cursor, XMLPathPart part, bool bLastIsAttribute);
  static CoXMLNode* BuildPart(CoXMLNode* pNode, const XMLPathPart& part);
  // Walks the path's parts, or all but the last (then left in *pLast),
  // creating what is missing when bCreate.
  static CoXMLNode* Walk(CoXMLNode* pNode, StringView path, bool bCreate, XMLPathPart* pLast);
};

namespace {

bool IsForbiddenNameChar(OLECHAR c) noexcept {
  return c <= ' ' || c == '<' || c == '>' || c == '=' || c == '"' || c == '\'' || c == '&';
}

bool DeliversValue(const String& strValue, bool bKeepBlank, bool bRaw, String* pValue) {
  if (!bRaw && !bKeepBlank && IsBlank(strValue)) return false;
  if (pValue) *pValue = strValue;
  return true;
}

}  // namespace

// ---------------------------------------------------------------------------
// Construction and teardown

CoXMLNode::CoXMLNode(StringView name) : m_strName(vc::ToLowerAscii(name)), m_pImpl(std::make_unique<Impl>()) {}

CoXMLNode::~CoXMLNode() { RemoveAllChildren(); }

XMLNodePtr CoXMLNode::Create(StringView name) { return std::make_shared<CoXMLNode>(name); }

bool CoXMLNode::IsValidNodeName(StringView name) {
  if (name.empty() || name[0] == '!' || name[0] == '?') return false;
  for (const OLECHAR c : name) {
    if (IsForbiddenNameChar(c) || c == '/') return false;
  }
  // Break and tab tags stand for characters of the text, never for nodes.
  return !detail::EqualsLowered(name, StringView(W("br"))) && !detail::EqualsLowered(name, StringView(W("tab")));
}

bool CoXMLNode::IsValidAttributeName(StringView name) {
  if (name.empty()) return false;
  for (const OLECHAR c : name) {
    if (IsForbiddenNameChar(c)) return false;
  }
  return true;
}

void CoXMLNode::SetName(StringView name) { m_strName = vc::ToLowerAscii(name); }

void CoXMLNode::SetValue(StringView value, bool bDecode) {
  if (bDecode && NeedsDecoding(value)) {
    bool bKeepBlank = false;
    m_strValue = DecodeEntities(value, false, &bKeepBlank);
    m_bValueKeepBlank = bKeepBlank;
    return;
  }
  m_strValue.assign(value);
  m_bValueKeepBlank = false;
}

void CoXMLNode::_SetDecodedValue(StringView value, bool bKeepBlank) {
  m_strValue.assign(value);
  m_bValueKeepBlank = bKeepBlank;
}

// ---------------------------------------------------------------------------
// Attributes

size_t CoXMLNode::AttributeCount() const { return m_pImpl->vecAttributes.size(); }

const XMLAttribute* CoXMLNode::AttributeAt(size_t nIndex) const {
  return nIndex < m_pImpl->vecAttributes.size() ? &m_pImpl->vecAttributes[nIndex] : nullptr;
}

const XMLAttribute* CoXMLNode::FindAttribute(StringView name) const {
  const size_t nPos = m_pImpl->FindAttribute(name);
  return nPos == kNotFound ? nullptr : &m_pImpl->vecAttributes[nPos];
}

bool CoXMLNode::SetAttribute(StringView name, StringView value, bool bDecode) {
  if (bDecode && NeedsDecoding(value)) {
    bool bKeepBlank = false;
    const String decoded = DecodeEntities(value, false, &bKeepBlank);
    return _SetDecodedAttribute(name, decoded, bKeepBlank);
  }
  return _SetDecodedAttribute(name, value, false);
}

bool CoXMLNode::_SetDecodedAttribute(StringView name, StringView value, bool bKeepBlank) {
  const size_t nPos = m_pImpl->FindAttribute(name);
  XMLAttribute* pAttribute = nullptr;
  if (nPos != kNotFound) {
    pAttribute = &m_pImpl->vecAttributes[nPos];
  } else {
    if (!IsValidAttributeName(name)) return false;
    pAttribute = &m_pImpl->AppendAttribute(name);
  }
  pAttribute->strValue.assign(value);
  pAttribute->bKeepBlank = bKeepBlank;
  return true;
}

bool CoXMLNode::RemoveAttribute(StringView name) {
  const size_t nPos = m_pImpl->FindAttribute(name);
  if (nPos == kNotFound) return false;
  m_pImpl->EraseAttribute(nPos);
  return true;
}

void CoXMLNode::RemoveAllAttributes() {
  m_pImpl->vecAttributes.clear();
  m_pImpl->attributeIndex.Clear();
}

// ---------------------------------------------------------------------------
// Children

size_t CoXMLNode::ChildCount() const { return m_pImpl->vecChildren.size(); }

XMLNodePtr CoXMLNode::ChildAt(size_t nIndex) const {
  return nIndex < m_pImpl->vecChildren.size() ? m_pImpl->vecChildren[nIndex] : nullptr;
}

XMLNodePtr CoXMLNode::FindChild(StringView name, size_t nNth) const {
  const Impl::CGroup* pGroup = m_pImpl->FindGroup(name);
  return (pGroup && nNth < pGroup->vecNodes.size()) ? pGroup->vecNodes[nNth] : nullptr;
}

size_t CoXMLNode::CountChildren(StringView name) const {
  const Impl::CGroup* pGroup = m_pImpl->FindGroup(name);
  return pGroup ? pGroup->vecNodes.size() : 0;
}

XMLNodePtr CoXMLNode::AddChild(StringView name) {
  if (!IsValidNodeName(name) || m_nDepth >= kMaxDepth) return nullptr;
  XMLNodePtr spChild = Create(name);
  spChild->m_nDepth = m_nDepth + 1;
  m_pImpl->Append(spChild);
  return spChild;
}

bool CoXMLNode::RemoveChild(const CoXMLNode* pChild) { return pChild && m_pImpl->Remove(pChild); }

void CoXMLNode::RemoveAllChildren() {
  // A deep tree must not unwind through one destructor frame per level:
  // children are detached and released one at a time, each after its own
  // children were taken from it (unless someone else still holds it).
  std::vector<XMLNodePtr> vecPending;
  m_pImpl->TakeChildren(vecPending);
  while (!vecPending.empty()) {
    XMLNodePtr sp = std::move(vecPending.back());
    vecPending.pop_back();
    if (sp.use_count() == 1) sp->m_pImpl->TakeChildren(vecPending);
  }
}

CoXMLNode* CoXMLNode::_MergeChild(StringView name, std::vector<size_t>* pvecSeen) {
  size_t nGroup = m_pImpl->FindGroupPos(name);
  const size_t nNth = (nGroup != kNotFound && nGroup < pvecSeen->size()) ? (*pvecSeen)[nGroup] : 0;
  CoXMLNode* pChild = nullptr;
  if (nGroup != kNotFound && nNth < m_pImpl->vecGroups[nGroup].vecNodes.size()) {
    pChild = m_pImpl->vecGroups[nGroup].vecNodes[nNth].get();
  } else {
    pChild = AddChild(name).get();
    if (!pChild) return nullptr;
    if (nGroup == kNotFound) nGroup = m_pImpl->vecGroups.size() - 1;  // groups are only appended
  }
  if (pvecSeen->size() < m_pImpl->vecGroups.size()) pvecSeen->resize(m_pImpl->vecGroups.size(), 0);
  (*pvecSeen)[nGroup] = nNth + 1;
  return pChild;
}

// ---------------------------------------------------------------------------
// Paths

bool CoXMLNode::Impl::SplitKeyValue(StringView selector, StringView* pKey, StringView* pValue) {
  const size_t nEq = selector.find(OLECHAR('='));
  if (nEq == 0 || nEq == StringView::npos) return false;
  *pKey = selector.substr(0, nEq);
  StringView value = selector.substr(nEq + 1);
  if (value.size() >= 2 && (value[0] == '"' || value[0] == '\'') && value.back() == value[0]) {
    value = value.substr(1, value.size() - 2);
  }
  *pValue = value;
  return true;
}

bool CoXMLNode::Impl::MatchesText(const CoXMLNode* pNode, StringView selector) {
  StringView key, value;
  if (SplitKeyValue(selector, &key, &value)) {
    // The key reads like the last part of a path: the attribute, else the
    // child of that name. An attribute later turned into a node (by a path
    // that goes on below it) still selects.
    const size_t nPos = pNode->m_pImpl->FindAttribute(key);
    if (nPos != kNotFound) return StringView(pNode->m_pImpl->vecAttributes[nPos].strValue) == value;
    const CGroup* pGroup = pNode->m_pImpl->FindGroup(key);
    return pGroup && StringView(pGroup->vecNodes.front()->m_strValue) == value;
  }
  return StringView(pNode->m_strValue) == selector;
}

CoXMLNode* CoXMLNode::Impl::FindPart(const CoXMLNode* pNode, const XMLPathPart& part) {
  const CGroup* pGroup = pNode->m_pImpl->FindGroup(part.name);
  if (!pGroup) return nullptr;
  switch (part.eSelector) {
    case XMLPathPart::eKPP_Plain:
      return pGroup->vecNodes.front().get();
    case XMLPathPart::eKPP_Index:
      return part.nIndex < pGroup->vecNodes.size() ? pGroup->vecNodes[part.nIndex].get() : nullptr;
    case XMLPathPart::eKPP_Text:
      for (const XMLNodePtr& sp : pGroup->vecNodes) {
        if (MatchesText(sp.get(), part.selector)) return sp.get();
      }
      return nullptr;
  }
  return nullptr;
}

bool CoXMLNode::Impl::CheckCreatable(const CoXMLNode* pNode, CXMLPath cursor, XMLPathPart part,
                                     bool bLastIsAttribute) {
  // The first missing part may turn an attribute of that name into a node.
  // An attribute whose name cannot be a node name is left for BuildPart,
  // whose failure is reported there.
  const size_t nCount = pNode->CountChildren(part.name);
  const bool bPromotes = nCount == 0 && pNode->m_pImpl->FindAttribute(part.name) != kNotFound;
  const size_t nCountAfter = bPromotes ? 1 : nCount;
  uint32_t nDepth = pNode->m_nDepth;
  bool bFirst = true;
  for (;;) {
    const bool bLast = cursor.AtEnd();
    if (bLast && bLastIsAttribute) return IsValidAttributeName(part.name);
    if (!(bFirst && bPromotes) && !IsValidNodeName(part.name)) return false;
    if (part.eSelector == XMLPathPart::eKPP_Index && part.nIndex > (bFirst ? nCountAfter : 0)) return false;
    if (part.eSelector == XMLPathPart::eKPP_Text) {
      StringView key, value;
      if (SplitKeyValue(part.selector, &key, &value) && !IsValidAttributeName(key)) return false;
    }
    if (++nDepth > kMaxDepth) return false;
    if (bLast) return true;
    bFirst = false;
    if (!cursor.Next(part)) return false;
  }
}

CoXMLNode* CoXMLNode::Impl::BuildPart(CoXMLNode* pNode, const XMLPathPart& part) {
  if (CoXMLNode* pFound = FindPart(pNode, part)) return pFound;
  if (pNode->CountChildren(part.name) == 0) {
    const size_t nAttribute = pNode->m_pImpl->FindAttribute(part.name);
    if (nAttribute != kNotFound) {
      // The name held a plain value and now needs children: the value moves
      // onto a node of that name.
      XMLNodePtr pNewNode = pNode->AddChild(part.name);
      VC_ASSERT_AT(pNewNode, "Include/Devices/KPropsImpl");
      if (!pNewNode) return nullptr;
      XMLAttribute& attribute = pNode->m_pImpl->vecAttributes[nAttribute];
      pNewNode->m_strValue = std::move(attribute.strValue);
      pNewNode->m_bValueKeepBlank = attribute.bKeepBlank;
      pNode->m_pImpl->EraseAttribute(nAttribute);
      if (CoXMLNode* pFound = FindPart(pNode, part)) return pFound;
    }
  }
  if (part.eSelector == XMLPathPart::eKPP_Index && part.nIndex != pNode->CountChildren(part.name)) return nullptr;
  XMLNodePtr spChild = pNode->AddChild(part.name);
  if (!spChild) return nullptr;
  if (part.eSelector == XMLPathPart::eKPP_Text) {
    StringView key, value;
    if (SplitKeyValue(part.selector, &key, &value)) {
      spChild->_SetDecodedAttribute(key, value, false);
    } else {
      spChild->_SetDecodedValue(part.selector, false);
    }
  }
  return spChild.get();
}

CoXMLNode* CoXMLNode::Impl::Walk(CoXMLNode* pNode, StringView path, bool bCreate, XMLPathPart* pLast) {
  CXMLPath cursor(path);
  XMLPathPart part;
  if (!cursor.Next(part)) return nullptr;
  bool bBuilding = false;
  for (;;) {
    if (pLast && cursor.AtEnd()) {
      *pLast = part;
      return pNode;
    }
    CoXMLNode* pNext = bBuilding ? BuildPart(pNode, part) : FindPart(pNode, part);
    if (!pNext && bCreate && !bBuilding) {
      // Prove the rest well-formed and creatable first: a path that fails
      // half-way must not leave nodes behind.
      CXMLPath probe = cursor;
      XMLPathPart probePart;
      while (!probe.AtEnd()) {
        if (!probe.Next(probePart)) return nullptr;
      }
      if (!CheckCreatable(pNode, cursor, part, pLast != nullptr)) return nullptr;
      bBuilding = true;
      pNext = BuildPart(pNode, part);
    }
    if (!pNext) return nullptr;
    pNode = pNext;
    if (cursor.AtEnd()) return pNode;
    if (!cursor.Next(part)) return nullptr;
  }
}

XMLNodePtr CoXMLNode::FindNode(StringView path) const {
  CoXMLNode* pNode = Impl::Walk(const_cast<CoXMLNode*>(this), path, false, nullptr);
  return pNode ? pNode->shared_from_this() : nullptr;
}

XMLNodePtr CoXMLNode::CreateNode(StringView path) {
  CoXMLNode* pNode = Impl::Walk(this, path, true, nullptr);
  return pNode ? pNode->shared_from_this() : nullptr;
}

bool CoXMLNode::GetAttributePath(StringView path, String* pValue, bool bRaw) const {
  XMLPathPart last;
  const CoXMLNode* pNode = Impl::Walk(const_cast<CoXMLNode*>(this), path, false, &last);
  if (!pNode) return false;
  if (last.eSelector == XMLPathPart::eKPP_Plain) {
    const size_t nPos = pNode->m_pImpl->FindAttribute(last.name);
    if (nPos != kNotFound) {
      const XMLAttribute& attribute = pNode->m_pImpl->vecAttributes[nPos];
      return DeliversValue(attribute.strValue, attribute.bKeepBlank, bRaw, pValue);
    }
  }
  const CoXMLNode* pChild = Impl::FindPart(pNode, last);
  return pChild && DeliversValue(pChild->m_strValue, pChild->m_bValueKeepBlank, bRaw, pValue);
}

HRESULT CoXMLNode::SetAttributePath(StringView path, StringView value, bool bDecode) {
  // The common case, every name already there, walks once and allocates
  // nothing beyond what the new value needs.
  XMLPathPart last;
  CoXMLNode* pNode = Impl::Walk(this, path, false, &last);
  if (!pNode || last.eSelector != XMLPathPart::eKPP_Plain) {
    CXMLPath probe(path);
    XMLPathPart part;
    bool bSelectorLast = false;
    while (probe.Next(part)) bSelectorLast = part.eSelector != XMLPathPart::eKPP_Plain;
    if (probe.Malformed()) return E_INVALIDARG;
    if (bSelectorLast) {
      CoXMLNode* pTarget = Impl::Walk(this, path, true, nullptr);
      if (!pTarget) return E_INVALIDARG;
      pTarget->SetValue(value, bDecode);
      return S_OK;
    }
    pNode = Impl::Walk(this, path, true, &last);
    if (!pNode) return E_INVALIDARG;
  }
  String decoded;
  bool bKeepBlank = false;
  if (bDecode && NeedsDecoding(value)) {
    decoded = DecodeEntities(value, false, &bKeepBlank);
    value = decoded;
  }
  const size_t nPos = pNode->m_pImpl->FindAttribute(last.name);
  if (nPos != kNotFound) {
    XMLAttribute& attribute = pNode->m_pImpl->vecAttributes[nPos];
    attribute.strValue.assign(value);
    attribute.bKeepBlank = bKeepBlank;
    return S_OK;
  }
  if (CoXMLNode* pChild = Impl::FindPart(pNode, last)) {
    pChild->_SetDecodedValue(value, bKeepBlank);
    return S_OK;
  }
  return pNode->_SetDecodedAttribute(last.name, value, bKeepBlank) ? S_OK : E_INVALIDARG;
}

bool CoXMLNode::RemovePath(StringView path) {
  XMLPathPart last;
  CoXMLNode* pNode = Impl::Walk(this, path, false, &last);
  if (!pNode) return false;
  if (last.eSelector == XMLPathPart::eKPP_Plain && pNode->RemoveAttribute(last.name)) return true;
  CoXMLNode* pChild = Impl::FindPart(pNode, last);
  return pChild && pNode->RemoveChild(pChild);
}

// ---------------------------------------------------------------------------
// Text form

String CoXMLNode::Serialize() const {
  String out;
  struct CFrame {
    const CoXMLNode* pNode;
    size_t nNext;
  };
  std::vector<CFrame> vecStack;
  // Writes the start tag and the value; false when the element closed itself.
  const auto fOpen = [&out](const CoXMLNode* pNode, bool bRoot) {
    out += '<';
    if (bRoot && !IsValidNodeName(pNode->m_strName)) {
      AppendAscii(out, kAnonymousRootName);
    } else {
      out += pNode->m_strName;
    }
    for (const XMLAttribute& attribute : pNode->m_pImpl->vecAttributes) {
      out += ' ';
      out += attribute.strName;
      AppendAscii(out, "=\"");
      AppendEncoded(out, attribute.strValue, eXVC_Attribute, attribute.bKeepBlank);
      out += '"';
    }
    if (pNode->m_strValue.empty() && pNode->m_pImpl->vecChildren.empty()) {
      AppendAscii(out, "/>");
      return false;
    }
    out += '>';
    AppendEncoded(out, pNode->m_strValue, eXVC_Text, pNode->m_bValueKeepBlank);
    return true;
  };
  if (fOpen(this, true)) vecStack.push_back(CFrame{this, 0});
  while (!vecStack.empty()) {
    CFrame& frame = vecStack.back();
    if (frame.nNext < frame.pNode->m_pImpl->vecChildren.size()) {
      const CoXMLNode* pChild = frame.pNode->m_pImpl->vecChildren[frame.nNext++].get();
      if (fOpen(pChild, false)) vecStack.push_back(CFrame{pChild, 0});
      continue;
    }
    AppendAscii(out, "</");
    if (frame.pNode == this && !IsValidNodeName(m_strName)) {
      AppendAscii(out, kAnonymousRootName);
    } else {
      out += frame.pNode->m_strName;
    }
    out += '>';
    vecStack.pop_back();
  }
  return out;
}

// ---------------------------------------------------------------------------
// Copies and comparison

void CoXMLNode::CopyTo(CoXMLNode* pDest) const {
  if (!pDest || pDest == this) return;
  // Copying into our own subtree would read what it writes: copy a snapshot.
  std::vector<const CoXMLNode*> vecScan{this};
  while (!vecScan.empty()) {
    const CoXMLNode* pNode = vecScan.back();
    vecScan.pop_back();
    if (pNode == pDest) {
      Clone()->CopyTo(pDest);
      return;
    }
    for (const XMLNodePtr& sp : pNode->m_pImpl->vecChildren) vecScan.push_back(sp.get());
  }

  struct CFrame {
    const CoXMLNode* pSource;
    CoXMLNode* pDest;
    size_t nNext;
    std::vector<size_t> vecSeen;  // children merged so far, per child group of pDest
  };
  std::vector<CFrame> vecStack;
  const auto fCopyOwn = [](const CoXMLNode* pSource, CoXMLNode* pTarget) {
    for (const XMLAttribute& attribute : pSource->m_pImpl->vecAttributes) {
      pTarget->_SetDecodedAttribute(attribute.strName, attribute.strValue, attribute.bKeepBlank);
    }
    if (!pSource->m_strValue.empty()) pTarget->_SetDecodedValue(pSource->m_strValue, pSource->m_bValueKeepBlank);
  };
  fCopyOwn(this, pDest);
  vecStack.push_back(CFrame{this, pDest, 0, {}});
  while (!vecStack.empty()) {
    CFrame& frame = vecStack.back();
    const auto& vecChildren = frame.pSource->m_pImpl->vecChildren;
    if (frame.nNext >= vecChildren.size()) {
      vecStack.pop_back();
      continue;
    }
    const CoXMLNode* pChild = vecChildren[frame.nNext++].get();
    // The nth source child of a name merges into the nth child of that name.
    CoXMLNode* pTarget = frame.pDest->_MergeChild(pChild->m_strName, &frame.vecSeen);
    if (!pTarget) continue;  // deeper than a tree may go
    fCopyOwn(pChild, pTarget);
    vecStack.push_back(CFrame{pChild, pTarget, 0, {}});
  }
}

XMLNodePtr CoXMLNode::Clone() const {
  XMLNodePtr spCopy = Create(m_strName);
  CopyTo(spCopy.get());
  return spCopy;
}

bool CoXMLNode::SameTree(const CoXMLNode& other) const {
  std::vector<std::pair<const CoXMLNode*, const CoXMLNode*>> vecPending{{this, &other}};
  while (!vecPending.empty()) {
    const auto [pA, pB] = vecPending.back();
    vecPending.pop_back();
    if (pA->m_strName != pB->m_strName || pA->m_strValue != pB->m_strValue ||
        pA->m_bValueKeepBlank != pB->m_bValueKeepBlank) {
      return false;
    }
    const auto& vecAttrA = pA->m_pImpl->vecAttributes;
    const auto& vecAttrB = pB->m_pImpl->vecAttributes;
    if (vecAttrA.size() != vecAttrB.size()) return false;
    for (size_t i = 0; i < vecAttrA.size(); ++i) {
      if (vecAttrA[i].strName != vecAttrB[i].strName || vecAttrA[i].strValue != vecAttrB[i].strValue ||
          vecAttrA[i].bKeepBlank != vecAttrB[i].bKeepBlank) {
        return false;
      }
    }
    const auto& vecChildA = pA->m_pImpl->vecChildren;
    const auto& vecChildB = pB->m_pImpl->vecChildren;
    if (vecChildA.size() != vecChildB.size()) return false;
    for (size_t i = 0; i < vecChildA.size(); ++i) vecPending.emplace_back(vecChildA[i].get(), vecChildB[i].get());
  }
  return true;
}

HRESULT CoXMLNode::CopyToProps(IVCProps* pProps, StringView prefix) const {
  if (!pProps) return E_POINTER;
  HRESULT hrFirst = S_OK;
  // Values travel encoded, as in the text form, because PropsSet decodes
  // what it is given.
  const auto fSet = [&](const String& strName, const String& strValue, bool bKeepBlank) {
    String encoded;
    AppendEncoded(encoded, strValue, eXVC_Attribute, bKeepBlank);
    vc::CBstr bsName(StringView{strName});
    vc::CBstr bsValue(StringView{encoded});
    const HRESULT hr = pProps->PropsSet(bsName, bsValue);
    if (FAILED(hr) && SUCCEEDED(hrFirst)) hrFirst = hr;
  };
  const auto fJoin = [](const String& strPath, StringView name) {
    String s = strPath;
    if (!s.empty()) AppendAscii(s, "::");
    s += name;
    return s;
  };
  struct CFrame {
    const CoXMLNode* pNode;
    String strPath;
  };
  std::vector<CFrame> vecStack{CFrame{this, String(prefix)}};
  while (!vecStack.empty()) {
    CFrame frame = std::move(vecStack.back());
    vecStack.pop_back();
    for (const XMLAttribute& attribute : frame.pNode->m_pImpl->vecAttributes) {
      fSet(fJoin(frame.strPath, attribute.strName), attribute.strValue, attribute.bKeepBlank);
    }
    // An empty name would make PropsSet parse the value as text.
    if (!frame.pNode->m_strValue.empty() && !frame.strPath.empty()) {
      fSet(frame.strPath, frame.pNode->m_strValue, frame.pNode->m_bValueKeepBlank);
    }
    // Children in insertion order, the nth of a name as "name[n]"; pushed
    // in reverse so that they are visited in order, which those indexes
    // rely on when the target creates them.
    const auto& vecChildren = frame.pNode->m_pImpl->vecChildren;
    std::vector<size_t> vecSeen(frame.pNode->m_pImpl->vecGroups.size(), 0);
    std::vector<CFrame> vecChildFrames;
    vecChildFrames.reserve(vecChildren.size());
    for (const XMLNodePtr& sp : vecChildren) {
      const size_t nNth = vecSeen[frame.pNode->m_pImpl->FindGroupPos(sp->m_strName)]++;
      String strName = sp->m_strName;
      if (nNth > 0) {
        strName += '[';
        AppendAscii(strName, std::to_string(nNth).c_str());
        strName += ']';
      }
      vecChildFrames.push_back(CFrame{sp.get(), fJoin(frame.strPath, strName)});
    }
    for (auto it = vecChildFrames.rbegin(); it != vecChildFrames.rend(); ++it) vecStack.push_back(std::move(*it));
  }
  return hrFirst;
}

HRESULT CoXMLNode::Parse(StringView text) { return CXMLParser(this).Parse(text); }

}  // namespace XMLParse
