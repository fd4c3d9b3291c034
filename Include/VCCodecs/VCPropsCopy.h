// A facade's option defaults, and the copy of its properties into an inner
// object: every option set on the facade reaches a candidate before the
// candidate is asked anything.
//
// VCPropsSnapshot takes the facade's property lock only to clone its tree;
// VCPropsCopyTo then runs without any facade lock (it calls into the inner
// object). Any thread.
#pragma once

#include "Devices/CoXMLNode.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCCritSec.h"

namespace vc {

// A deep copy of the facade's property tree (an empty node when the facade
// has none). T is a facade built on IKPropsImpl<T>.
template <class T>
XMLParse::XMLNodePtr VCPropsSnapshot(T& facade) {
  XMLParse::XMLNodePtr spCopy = XMLParse::CoXMLNode::Create();
  CKAutoLock lock(facade._PropsLock());
  if (XMLParse::XMLNodePtr spRoot = facade._PropsRootLocked()) spRoot->CopyTo(spCopy.get());
  return spCopy;
}

// One option a facade registers in its tree at construction, so that hosts
// (and `vccodecs props`) see it with its default.
struct VCPropDefault {
  const OLECHAR* szName;
  const OLECHAR* szValue;
};

// Writes each default into the tree rooted at root; the first failure's code.
template <size_t N>
HRESULT VCPropsSetDefaults(XMLParse::CoXMLNode& root, const VCPropDefault (&defaults)[N]) {
  for (const VCPropDefault& def : defaults) {
    const HRESULT hr = root.SetAttributePath(def.szName, def.szValue, false);
    if (FAILED(hr)) return hr;
  }
  return S_OK;
}

// Sets every property of props on pInner's IVCProps. S_FALSE when the object
// has no property interface; otherwise the first failing PropsSet's code
// (after trying all), or S_OK.
HRESULT VCPropsCopyTo(const XMLParse::CoXMLNode& props, IUnknown* pInner);

}  // namespace vc
