// The core module's class table: the four facades in the order of
// res/VCCodecsCoreClassTable.cmake, which is the order of registration. The
// rows take names, identifiers, descriptions and script numbers from the
// header generated from that table; the checks below hold the identifiers the
// public header gets from the IDL, and the script numbers, to the same rows.
#include <algorithm>

#include "CoVCDecoder.h"
#include "CoVCEncoder.h"
#include "CoVCMuxer.h"
#include "CoVCSplitter.h"
#include "VCCodecsCoreClassTable.h"  // generated from res/VCCodecsCoreClassTable.cmake
#include "VCModule.h"

namespace vc {

namespace {

// The creator of a named row. The flag says the name is known: the
// compile-time check reads it, because sanitizer builds cannot compare a
// function's address with null in a constant expression.
struct CCreatorOf {
  PFN_KCREATE pfnCreate = nullptr;
  bool bKnown = false;
};

constexpr CCreatorOf FindCreator(std::string_view svName) {
  if (svName == "VCSplitter") return {&CreateObject<CCoVCSplitter>, true};
  if (svName == "VCDecoder") return {&CreateObject<CCoVCDecoder>, true};
  if (svName == "VCEncoder") return {&CreateObject<CCoVCEncoder>, true};
  if (svName == "VCMuxer") return {&CreateObject<CCoVCMuxer>, true};
  return {};
}

constexpr PFN_KCREATE CreatorOf(std::string_view svName) { return FindCreator(svName).pfnCreate; }

consteval bool RowIs(std::string_view svName, const CLSID& clsid, int nScript) {
  const VCClassTableEntry& entry = ClassInTable(kCoreClassTable, svName);
  return SameGuid(entry.clsid, clsid) && entry.nRegistryScript == nScript;
}

static_assert(std::size(kCoreClassTable) == 4, "the core module serves the four facades");
static_assert(std::ranges::all_of(kCoreClassTable,
                                  [](const VCClassTableEntry& e) { return FindCreator(e.szName).bKnown; }),
              "every row of the class table needs a facade");
static_assert(RowIs("VCSplitter", CLSID_VCSplitter, IDR_VCSPLITTER), "the IDL and the class table disagree");
static_assert(RowIs("VCDecoder", CLSID_VCDecoder, IDR_VCDECODER), "the IDL and the class table disagree");
static_assert(RowIs("VCEncoder", CLSID_VCEncoder, IDR_VCENCODER), "the IDL and the class table disagree");
static_assert(RowIs("VCMuxer", CLSID_VCMuxer, IDR_VCMUXER), "the IDL and the class table disagree");

}  // namespace

CVCModule& CoreModule() {
  static CVCModule s_module(ClassRowsOf(kCoreClassTable, CreatorOf), &LoadRegistryScriptResource);
  return s_module;
}

}  // namespace vc
