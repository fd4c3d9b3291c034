#include "FFModule.h"

#include <algorithm>

#include "FFClasses.h"
#include "FFEmbeddedScripts.h"  // generated from the module's registrar scripts
#include "VCCodecs/VCInnerClasses.h"

namespace vc::ff {

namespace {

// The creator of a named row. The flag says the name is known: the
// compile-time check reads it, because sanitizer builds cannot compare a
// function's address with null in a constant expression.
struct CCreatorOf {
  PFN_KCREATE pfnCreate = nullptr;
  bool bKnown = false;
};

constexpr CCreatorOf FindCreator(std::string_view svName) {
  if (svName == "FFSplitter") return {&CreateFFSplitter, true};
  if (svName == "FFDecoder") return {&CreateFFDecoder, true};
  if (svName == "FFDecoderNVidia") return {&CreateFFDecoderNVidia, true};
  if (svName == "FFDecoderQuickSync") return {&CreateFFDecoderQuickSync, true};
  if (svName == "FFFrame") return {&CreateFFFrame, true};
  if (svName == "FFAudioBuffer") return {&CreateFFAudioBuffer, true};
  if (svName == "FFPacket") return {&CreateFFPacket, true};
  if (svName == "FFConverter") return {&CreateFFConverter, true};
  if (svName == "FFMuxer") return {&CreateFFMuxer, true};
  if (svName == "FFEncoder") return {&CreateFFEncoder, true};
  if (svName == "FFEncoderNVEnc") return {&CreateFFEncoderNVEnc, true};
  if (svName == "FFEncoderIntelQS") return {&CreateFFEncoderIntelQS, true};
  if (svName == "FFEncoderAMD") return {&CreateFFEncoderAMD, true};
  return {};
}

constexpr PFN_KCREATE CreatorOf(std::string_view svName) { return FindCreator(svName).pfnCreate; }

static_assert(std::ranges::all_of(kFFClassTable,
                                  [](const VCClassTableEntry& e) { return FindCreator(e.szName).bKnown; }),
              "every row of the class table needs a creator");
// The facades find these classes by the identifiers they are built with.
static_assert(SameGuid(CLSID_FFSplitter, CLSID_GeneralSplitter), "the facades name another general splitter");
static_assert(SameGuid(CLSID_FFDecoder, CLSID_GeneralDecoder), "the facades name another general decoder");
static_assert(SameGuid(CLSID_FFDecoderNVidia, CLSID_NVidiaDecoder), "the facades name another NVIDIA decoder");
static_assert(SameGuid(CLSID_FFDecoderQuickSync, CLSID_QuickSyncDecoder),
              "the facades name another QuickSync decoder");
static_assert(SameGuid(CLSID_FFConverter, CLSID_VCConverter), "the encoder facade names another converter");
static_assert(SameGuid(CLSID_FFMuxer, CLSID_GeneralMuxer), "the facades name another general muxer");
static_assert(SameGuid(CLSID_FFEncoder, CLSID_GeneralEncoder), "the facades name another general encoder");
static_assert(SameGuid(CLSID_FFEncoderNVEnc, CLSID_NVEncEncoder), "the facades name another NVEnc encoder");
static_assert(SameGuid(CLSID_FFEncoderIntelQS, CLSID_IntelQSEncoder), "the facades name another IntelQS encoder");
static_assert(SameGuid(CLSID_FFEncoderAMD, CLSID_AMDEncoder), "the facades name another AMD encoder");

}  // namespace

CVCModule& FFmpegModule() {
  static CVCModule s_module(
      ClassRowsOf(kFFClassTable, CreatorOf),
      [](int nResource) -> std::string {
        for (const auto& script : kEmbeddedScripts)
          if (script.nResource == nResource) return std::string(script.text);
        return {};
      },
      false);
  return s_module;
}

}  // namespace vc::ff
