// CVCInnerHolder<I>: the one slot in which a facade keeps its inner object
// (the inner splitter, decoder, encoder or muxer).
//
// Facades never call an inner object while holding a lock, so the slot hands
// out counted references: Ref() takes one under the holder's own small lock
// and the caller makes its call on that reference outside any lock. Swap()
// installs a new object under the same lock and hands the old one back, so
// the caller closes and releases it outside the lock too. A call already
// running on the old object finishes on its own reference.
//
// Any thread. The holder's lock is a leaf: nothing else is taken while it is
// held, so a facade may use the holder while it holds its own lock.
#pragma once

#include <utility>

#include "VCComPtr.h"
#include "VCCritSec.h"
#include "VCThreadAnnotations.h"

namespace vc {

template <class I>
class CVCInnerHolder {
 public:
  CVCInnerHolder() = default;
  CVCInnerHolder(const CVCInnerHolder&) = delete;
  CVCInnerHolder& operator=(const CVCInnerHolder&) = delete;

  // A counted reference to the installed object; empty when none.
  ComPtr<I> Ref() const VC_EXCLUDES(m_csRef) {
    CKMutexLock lock(m_csRef);
    return m_cpInner;
  }
  // The same reference as IUnknown (side-data forwarding asks it for other
  // interfaces).
  ComPtr<IUnknown> UnknownRef() const VC_EXCLUDES(m_csRef) {
    CKMutexLock lock(m_csRef);
    return ComPtr<IUnknown>(m_cpInner.Get());
  }
  bool Has() const VC_EXCLUDES(m_csRef) {
    CKMutexLock lock(m_csRef);
    return static_cast<bool>(m_cpInner);
  }
  // Installs cpNew (may be empty) and returns what was installed before, for
  // the caller to close and release outside any lock.
  ComPtr<I> Swap(ComPtr<I> cpNew) VC_EXCLUDES(m_csRef) {
    CKMutexLock lock(m_csRef);
    std::swap(m_cpInner, cpNew);
    return cpNew;
  }
  // Empties the slot; returns the object that was installed.
  ComPtr<I> Detach() VC_EXCLUDES(m_csRef) { return Swap(ComPtr<I>()); }

 private:
  mutable CKMutex m_csRef;
  ComPtr<I> m_cpInner VC_GUARDED_BY(m_csRef);
};

}  // namespace vc
