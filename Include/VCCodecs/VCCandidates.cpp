#include "VCCodecs/VCCandidates.h"

#include "VCCodecs/VCPropsCopy.h"

namespace vc {

namespace {

bool Fits(const VCCandidate& entry, const VCCandidateWalk& walk) {
  if (entry.eMediaType != eVCMT_Empty && entry.eMediaType != walk.eMediaType) return false;
  if (!entry.strCodec.empty() && !StrIEquals(entry.strCodec, walk.strCodec)) return false;
  return !walk.fnEligible || walk.fnEligible(entry);
}

}  // namespace

VCCandidateResult VCWalkCandidatesUnknown(std::vector<VCCandidate>& vecTable, const VCCandidateWalk& walk,
                                          REFIID riid, const std::function<HRESULT(IUnknown*)>& fnAsk,
                                          ComPtr<IUnknown>* pcpAccepted) {
  VCCandidateResult result;
  if (pcpAccepted) *pcpAccepted = nullptr;
  for (size_t n = 0; n < vecTable.size(); ++n) {
    VCCandidate& entry = vecTable[n];
    if (entry.nState != 0 || !Fits(entry, walk)) continue;

    void* pv = nullptr;
    HRESULT hr = walk.fnCreate ? walk.fnCreate(entry, riid, &pv)
                               : CoCreateInstance(entry.clsid, nullptr, walk.dwClsCtx, riid, &pv);
    if (SUCCEEDED(hr) && !pv) hr = E_NOINTERFACE;
    if (FAILED(hr)) {
      if (walk.fnCreateFailed) walk.fnCreateFailed(entry, hr);
      entry.nState = -1;
      result.hrLast = hr;
      continue;
    }
    // Created for riid: the pointer is that interface, which starts with
    // IUnknown's slots. Attach the reference creation handed out.
    ComPtr<IUnknown> cpObject;
    cpObject.Attach(static_cast<IUnknown*>(pv));

    if (walk.pProps) VCPropsCopyTo(*walk.pProps, cpObject.Get());
    hr = fnAsk(cpObject.Get());
    if (hr == S_OK) {
      result.hr = S_OK;
      result.nIndex = static_cast<int>(n);
      if (pcpAccepted) *pcpAccepted = std::move(cpObject);
      return result;
    }
    if (walk.fnRefused) walk.fnRefused(entry, hr);
    if (FAILED(hr)) entry.nState = -1;  // a success code other than S_OK leaves it eligible
    result.hrLast = hr;
  }
  return result;
}

}  // namespace vc
