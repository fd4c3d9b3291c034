// The copy of a facade's properties into an inner object: every option set
// on the facade reaches a candidate before the candidate is asked anything.
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

// Sets every property of props on pInner's IVCProps. S_FALSE when the object
// has no property interface; otherwise the first failing PropsSet's code
// (after trying all), or S_OK.
HRESULT VCPropsCopyTo(const XMLParse::CoXMLNode& props, IUnknown* pInner);

}  // namespace vc
