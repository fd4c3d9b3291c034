// Process-wide named object slots: the way several copies of the same code in
// one process (the core module, a sibling module, a test executable that
// links the code statically) agree on a single instance of an object, such as
// the runtime settings. The first caller to offer an object for a name stores
// it; every later caller, in whichever module, gets that same object.
//
// On Linux the slots live in libvcrt.so, of which a process has one copy. On
// Windows they live in a named file mapping per name and process
// ("Local\Corvane.ProcessObject.<name>.<pid>") holding the pointer, guarded by
// the named mutex "Local\Corvane.ProcessObjectLock.<name>.<pid>" (mutexes and
// mappings share one namespace, so the two names must differ), so that
// statically linked copies of this code find each other without a shared
// library.
//
// Any thread. A stored object keeps the reference taken for it for the life of
// the process: it is never released, so its module must stay loaded (objects
// made with the object helpers hold their module's lock while they live).
#pragma once

#include "VCPlatform.h"

#if !defined(_WIN32)
extern "C" {
// The Linux runtime's export behind vc::ProcessObjectExchange.
VCRT_API HRESULT VCProcessObjectExchange(const char* szName, IUnknown* pCandidate, IUnknown** ppResult);
}
#endif

namespace vc {

// Returns in *ppResult (one reference) the object stored under szName; when
// the slot is empty, stores pCandidate (taking a reference that is kept for
// the life of the process) and returns it. Atomic across threads and modules.
// pCandidate may be null to look up only: S_FALSE and a null result when the
// slot is empty. szName: ASCII letters, digits, '.', '_' and '-', at most 64
// characters; anything else is E_INVALIDARG. ppResult null: E_POINTER.
#if defined(_WIN32)
HRESULT ProcessObjectExchange(const char* szName, IUnknown* pCandidate, IUnknown** ppResult);
#else
inline HRESULT ProcessObjectExchange(const char* szName, IUnknown* pCandidate, IUnknown** ppResult) {
  return VCProcessObjectExchange(szName, pCandidate, ppResult);
}
#endif

}  // namespace vc
