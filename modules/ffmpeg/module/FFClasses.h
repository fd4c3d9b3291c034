// The classes of the general media module: their identifiers and creators.
// The identifiers come from the module's class table
// (res/FFClassTable.cmake), which also makes the registrar scripts and the
// manifest lines. The splitter, decoder and hardware-decoder classes are the
// ones the facades' candidate tables name (FFModule.cpp checks them against
// VCCodecs/VCInnerClasses.h); the frame, audio-buffer and packet classes let
// hosts and sibling modules create those objects by identifier too.
#pragma once

#include "FFClassTable.h"  // generated from res/FFClassTable.cmake
#include "VCGuid.h"
#include "VCPlatform.h"

namespace vc::ff {

inline constexpr CLSID CLSID_FFSplitter = ClassInTable(kFFClassTable, "FFSplitter").clsid;
inline constexpr CLSID CLSID_FFDecoder = ClassInTable(kFFClassTable, "FFDecoder").clsid;
inline constexpr CLSID CLSID_FFDecoderNVidia = ClassInTable(kFFClassTable, "FFDecoderNVidia").clsid;
inline constexpr CLSID CLSID_FFDecoderQuickSync = ClassInTable(kFFClassTable, "FFDecoderQuickSync").clsid;
inline constexpr CLSID CLSID_FFFrame = ClassInTable(kFFClassTable, "FFFrame").clsid;
inline constexpr CLSID CLSID_FFAudioBuffer = ClassInTable(kFFClassTable, "FFAudioBuffer").clsid;
inline constexpr CLSID CLSID_FFPacket = ClassInTable(kFFClassTable, "FFPacket").clsid;
inline constexpr CLSID CLSID_FFConverter = ClassInTable(kFFClassTable, "FFConverter").clsid;
inline constexpr CLSID CLSID_FFMuxer = ClassInTable(kFFClassTable, "FFMuxer").clsid;
inline constexpr CLSID CLSID_FFEncoder = ClassInTable(kFFClassTable, "FFEncoder").clsid;
inline constexpr CLSID CLSID_FFEncoderNVEnc = ClassInTable(kFFClassTable, "FFEncoderNVEnc").clsid;
inline constexpr CLSID CLSID_FFEncoderIntelQS = ClassInTable(kFFClassTable, "FFEncoderIntelQS").clsid;
inline constexpr CLSID CLSID_FFEncoderAMD = ClassInTable(kFFClassTable, "FFEncoderAMD").clsid;

// Creators in the class-factory form (outer object, interface, out pointer).
HRESULT CreateFFSplitter(IUnknown* pOuter, REFIID riid, void** ppv);
HRESULT CreateFFDecoder(IUnknown* pOuter, REFIID riid, void** ppv);
HRESULT CreateFFDecoderNVidia(IUnknown* pOuter, REFIID riid, void** ppv);
HRESULT CreateFFDecoderQuickSync(IUnknown* pOuter, REFIID riid, void** ppv);
HRESULT CreateFFFrame(IUnknown* pOuter, REFIID riid, void** ppv);
HRESULT CreateFFAudioBuffer(IUnknown* pOuter, REFIID riid, void** ppv);
HRESULT CreateFFPacket(IUnknown* pOuter, REFIID riid, void** ppv);
HRESULT CreateFFConverter(IUnknown* pOuter, REFIID riid, void** ppv);
HRESULT CreateFFMuxer(IUnknown* pOuter, REFIID riid, void** ppv);
HRESULT CreateFFEncoder(IUnknown* pOuter, REFIID riid, void** ppv);
HRESULT CreateFFEncoderNVEnc(IUnknown* pOuter, REFIID riid, void** ppv);
HRESULT CreateFFEncoderIntelQS(IUnknown* pOuter, REFIID riid, void** ppv);
HRESULT CreateFFEncoderAMD(IUnknown* pOuter, REFIID riid, void** ppv);

}  // namespace vc::ff
