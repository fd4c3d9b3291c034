// The classes of the general media module: their identifiers and creators.
// The splitter, decoder and hardware-decoder identifiers are the ones the
// facades' candidate tables name; the frame, audio-buffer and packet classes
// let hosts and sibling modules create those objects by identifier too.
#pragma once

#include "VCGuid.h"
#include "VCPlatform.h"

namespace vc::ff {

inline constexpr CLSID CLSID_FFSplitter = MakeGuid("96EB1F14-4CC0-4830-9CC3-F064196B2626");
inline constexpr CLSID CLSID_FFDecoder = MakeGuid("96EB1F64-4CC0-4830-9CC3-F064196B2626");
inline constexpr CLSID CLSID_FFDecoderNVidia = MakeGuid("2CBD671C-8106-49EC-8ABB-9D67CF025301");
inline constexpr CLSID CLSID_FFDecoderQuickSync = MakeGuid("BF23862C-7C7B-4CE3-8FE7-4CA5171D624E");
inline constexpr CLSID CLSID_FFFrame = MakeGuid("96EB1F70-4CC0-4830-9CC3-F064196B2626");
inline constexpr CLSID CLSID_FFAudioBuffer = MakeGuid("96EB1F71-4CC0-4830-9CC3-F064196B2626");
inline constexpr CLSID CLSID_FFPacket = MakeGuid("96EB1F72-4CC0-4830-9CC3-F064196B2626");

// Creators in the class-factory form (outer object, interface, out pointer).
HRESULT CreateFFSplitter(IUnknown* pOuter, REFIID riid, void** ppv);
HRESULT CreateFFDecoder(IUnknown* pOuter, REFIID riid, void** ppv);
HRESULT CreateFFDecoderNVidia(IUnknown* pOuter, REFIID riid, void** ppv);
HRESULT CreateFFDecoderQuickSync(IUnknown* pOuter, REFIID riid, void** ppv);
HRESULT CreateFFFrame(IUnknown* pOuter, REFIID riid, void** ppv);
HRESULT CreateFFAudioBuffer(IUnknown* pOuter, REFIID riid, void** ppv);
HRESULT CreateFFPacket(IUnknown* pOuter, REFIID riid, void** ppv);

}  // namespace vc::ff
