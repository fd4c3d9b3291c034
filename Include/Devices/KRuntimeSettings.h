// The process-wide runtime settings: one property object per process, which
// every facade reaches through names beginning with "runtime::" (and the name
// "runtime" for the whole object). Hosts set process-wide options there once;
// facades and modules read them with the typed reads of KPropsRead.h.
//
// Exactly one exists per process even when several copies of this code are
// loaded (the core module, sibling modules, a test executable that links the
// property store statically): the first copy to need it creates it and
// publishes it in a process-wide slot (VCProcessObjects.h); every other copy
// uses that one. It lives until the process ends. Any thread.
#pragma once

#include "KPropsImpl.h"
#include "VCCritSec.h"
#include "VCObject.h"

namespace vc {

// Name of the process-wide slot that holds the object.
inline constexpr char kRuntimeSettingsSlot[] = "Corvane.RuntimeSettings";

class CKRuntimeSettings : public CKObjectRoot, public IKPropsImpl<CKRuntimeSettings> {
 public:
  // The runtime object is the target of "runtime" names, never a router of them.
  static constexpr bool kPropsRuntimeTarget = false;

  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) { return QueryInterfaceTable<IVCProps>(this, riid, ppv); }
  CKCritSec& _PropsLock() { return m_csLock; }

 private:
  CKCritSec m_csLock;
};

// The process's runtime settings object (one reference), created on first
// use; null only when it could not be created.
ComPtr<IVCProps> RuntimeSettings();

}  // namespace vc
