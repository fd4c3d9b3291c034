// The candidate walk that every facade uses to choose its inner object: an
// ordered table of class identifiers, tried one after another until one
// candidate accepts.
//
// For each entry in order the walk skips entries marked failed and those the
// stream does not fit, creates the object (CoCreateInstance unless the facade
// supplies its own creation, such as the named-module helper), hands it the
// facade's properties, and asks it. S_OK from the question accepts; a failure
// code marks the entry -1, so later walks over the same table skip it until
// the facade rebuilds the table; a success code other than S_OK is a refusal
// that leaves the entry eligible for the next walk.
//
// Runs on the caller's thread and takes no lock: the facade calls it outside
// its own lock and installs the accepted object afterwards. The table belongs
// to the caller, which serialises walks over one table.
#pragma once

#include <functional>
#include <utility>
#include <vector>

#include "Devices/CoXMLNode.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCStrings.h"

namespace vc {

// One entry of a candidate table.
struct VCCandidate {
  CLSID clsid{};
  String strName;                         // display name, for the logs
  eVCMediaType eMediaType = eVCMT_Empty;  // eVCMT_Empty fits every stream
  String strCodec;                        // empty fits every codec; else the whole name, case ignored
  LONG nState = 0;                        // 0 may be tried, -1 failed
};

// How one walk runs; every hook is optional.
struct VCCandidateWalk {
  // The stream asked about: entries whose media type or codec filter it
  // does not meet are skipped.
  eVCMediaType eMediaType = eVCMT_Empty;
  String strCodec;
  // Further choice by the facade (format or extension lists, a switch);
  // false skips the entry without marking it.
  std::function<bool(const VCCandidate&)> fnEligible;
  // Creation; by default CoCreateInstance with no outer object and dwClsCtx.
  std::function<HRESULT(const VCCandidate&, REFIID, void**)> fnCreate;
  DWORD dwClsCtx = CLSCTX_ALL;
  // Copied into each candidate's IVCProps before it is asked (null: none).
  const XMLParse::CoXMLNode* pProps = nullptr;
  // Log lines in the facade's own words.
  std::function<void(const VCCandidate&, HRESULT)> fnCreateFailed;
  std::function<void(const VCCandidate&, HRESULT)> fnRefused;
};

struct VCCandidateResult {
  HRESULT hr = VC_E_NO_CANDIDATE;  // S_OK once a candidate accepted
  HRESULT hrLast = S_OK;           // the last creation failure or refusal code
  int nIndex = -1;                 // the accepted entry
};

// The type-free walk behind VCWalkCandidates: objects are created for riid
// and passed to fnAsk as the IUnknown at the start of that interface.
VCCandidateResult VCWalkCandidatesUnknown(std::vector<VCCandidate>& vecTable, const VCCandidateWalk& walk,
                                          REFIID riid, const std::function<HRESULT(IUnknown*)>& fnAsk,
                                          ComPtr<IUnknown>* pcpAccepted);

// Walks vecTable for interface I. fnAsk(I*) is the question (the inner
// DecodeIsSupported, SplitterOpen, MuxerSet, ...). The accepted object, if
// any, is handed to *pcpAccepted with one reference.
template <class I, class FAsk>
VCCandidateResult VCWalkCandidates(std::vector<VCCandidate>& vecTable, const VCCandidateWalk& walk, FAsk&& fnAsk,
                                   ComPtr<I>* pcpAccepted) {
  ComPtr<IUnknown> cpAccepted;
  // Objects are created for I, so each pointer is an I* (single inheritance
  // from IUnknown: the same address).
  const VCCandidateResult result = VCWalkCandidatesUnknown(
      vecTable, walk, IidOf<I>(), [&](IUnknown* pUnk) { return fnAsk(static_cast<I*>(pUnk)); }, &cpAccepted);
  if (pcpAccepted) *pcpAccepted = ComPtr<I>(static_cast<I*>(cpAccepted.Get()));
  return result;
}

}  // namespace vc
