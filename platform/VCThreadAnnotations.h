// Lock annotations that clang's thread-safety analysis checks
// (-Wthread-safety; the "clang" preset makes them errors). Other compilers
// see nothing. Mark what a lock guards where it is declared:
//
//   CKCritSec m_csLock;
//   ComPtr<IVCSplitter> m_cpVCSplitter VC_GUARDED_BY(m_csLock);
//   void _SwapLocked() VC_REQUIRES(m_csLock);
//
// Lock types that the analysis understands are in VCCritSec.h and
// VCSharedLock.h; a std::mutex or std::lock_guard is invisible to it.
#pragma once

#if defined(__clang__)
#define VC_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define VC_THREAD_ANNOTATION(x)
#endif

#define VC_CAPABILITY(name) VC_THREAD_ANNOTATION(capability(name))
#define VC_SCOPED_CAPABILITY VC_THREAD_ANNOTATION(scoped_lockable)
#define VC_GUARDED_BY(lock) VC_THREAD_ANNOTATION(guarded_by(lock))
#define VC_PT_GUARDED_BY(lock) VC_THREAD_ANNOTATION(pt_guarded_by(lock))
#define VC_ACQUIRED_BEFORE(...) VC_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
#define VC_ACQUIRED_AFTER(...) VC_THREAD_ANNOTATION(acquired_after(__VA_ARGS__))
#define VC_REQUIRES(...) VC_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define VC_REQUIRES_SHARED(...) VC_THREAD_ANNOTATION(requires_shared_capability(__VA_ARGS__))
#define VC_ACQUIRE(...) VC_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define VC_ACQUIRE_SHARED(...) VC_THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define VC_RELEASE(...) VC_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define VC_RELEASE_SHARED(...) VC_THREAD_ANNOTATION(release_shared_capability(__VA_ARGS__))
#define VC_RELEASE_GENERIC(...) VC_THREAD_ANNOTATION(release_generic_capability(__VA_ARGS__))
#define VC_TRY_ACQUIRE(...) VC_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define VC_TRY_ACQUIRE_SHARED(...) VC_THREAD_ANNOTATION(try_acquire_shared_capability(__VA_ARGS__))
#define VC_EXCLUDES(...) VC_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define VC_ASSERT_CAPABILITY(x) VC_THREAD_ANNOTATION(assert_capability(x))
#define VC_RETURN_CAPABILITY(x) VC_THREAD_ANNOTATION(lock_returned(x))
#define VC_NO_THREAD_SAFETY_ANALYSIS VC_THREAD_ANNOTATION(no_thread_safety_analysis)
