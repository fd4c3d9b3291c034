// The exception guard at every exported method: exceptions never cross an
// interface. Wrap a public method's body:
//
//   HRESULT CCoVCSplitter::SplitterClose() {
//     VC_GUARD_BEGIN
//     ...
//     VC_GUARD_END
//   }
//
// An exception that escapes the body is logged at level 4 with the method
// and converted: std::bad_alloc (and std::length_error, which allocation
// sizes raise) to E_OUTOFMEMORY, anything else to E_UNEXPECTED. For methods
// that return something other than an HRESULT, VC_GUARD_END_RETURN(value)
// names what to return instead.
//
// Any thread; no lock is taken.
#pragma once

#include "VCLog.h"
#include "VCPlatform.h"

#define VC_GUARD_BEGIN try {
#define VC_GUARD_END                                                   \
  }                                                                    \
  catch (...) {                                                        \
    return ::vc::CurrentExceptionToHResult(__FILE__, __LINE__, VC_FUNCTION); \
  }
#define VC_GUARD_END_RETURN(value)                                     \
  }                                                                    \
  catch (...) {                                                        \
    ::vc::CurrentExceptionToHResult(__FILE__, __LINE__, VC_FUNCTION);  \
    return (value);                                                    \
  }

namespace vc {

// Called from a catch block: classifies the exception being handled, logs
// "<method> EXCEPTION <what> hr=%08X" at level 4 and returns the code.
// Never throws.
HRESULT CurrentExceptionToHResult(const char* pszFile, int nLine, const char* pszFunction) noexcept;

// Runs fn (returning HRESULT) under the guard; for bodies written as lambdas.
template <class Fn>
HRESULT GuardCall(const char* pszFile, int nLine, const char* pszFunction, Fn&& fn) noexcept {
  try {
    return fn();
  } catch (...) {
    return CurrentExceptionToHResult(pszFile, nLine, pszFunction);
  }
}

}  // namespace vc
