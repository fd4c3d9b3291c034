#include "VCGuard.h"

#include <exception>
#include <new>
#include <stdexcept>

namespace vc {

HRESULT CurrentExceptionToHResult(const char* pszFile, int nLine, const char* pszFunction) noexcept {
  HRESULT hr = E_UNEXPECTED;
  const char* pszWhat = "unknown exception";
  try {
    throw;
  } catch (const std::bad_alloc&) {
    hr = E_OUTOFMEMORY;
    pszWhat = "out of memory";
  } catch (const std::length_error&) {
    hr = E_OUTOFMEMORY;
    pszWhat = "length error";
  } catch (const std::exception& e) {
    pszWhat = e.what();
  } catch (...) {
  }
  try {
    if (LogIsOn(eVCLL_Error))
      LogWrite(eVCLL_Error, pszFile, nLine, pszFunction, "%s EXCEPTION %s hr=%08X", pszFunction, pszWhat,
               static_cast<unsigned>(hr));
  } catch (...) {
    // The log itself could not allocate: the code still goes back.
  }
  return hr;
}

}  // namespace vc
