// Class identifiers of the inner objects the facades create: the candidates
// of the splitter, decoder, encoder and muxer facades. The objects live in
// sibling modules (the general media module serves the general splitter and
// decoder and the NVIDIA and QuickSync decoders; vendor modules the others),
// so the facades and those modules take the identifiers from this one header;
// the general media module checks its class table against it when it builds.
// Constants only.
#pragma once

#include "VCGuid.h"

namespace vc {

// Splitters: the general one for files and network sources, nablet's for
// MXF files.
inline constexpr CLSID CLSID_GeneralSplitter = MakeGuid("96EB1F14-4CC0-4830-9CC3-F064196B2626");
inline constexpr CLSID CLSID_NabletMxfSplitter = MakeGuid("ECFBFE56-F923-44B6-91D4-C9E3EA04131B");

// Decoders: the software one and the two hardware ones.
inline constexpr CLSID CLSID_GeneralDecoder = MakeGuid("96EB1F64-4CC0-4830-9CC3-F064196B2626");
inline constexpr CLSID CLSID_NVidiaDecoder = MakeGuid("2CBD671C-8106-49EC-8ABB-9D67CF025301");
inline constexpr CLSID CLSID_QuickSyncDecoder = MakeGuid("BF23862C-7C7B-4CE3-8FE7-4CA5171D624E");

// Encoders: the software one, NVIDIA's NVEnc, Intel's Quick Sync, AMD's.
inline constexpr CLSID CLSID_GeneralEncoder = MakeGuid("96EB1F26-4CC0-4830-9CC3-F064196B2626");
inline constexpr CLSID CLSID_NVEncEncoder = MakeGuid("D0C31F85-8131-48FD-82DA-1D2249FFBD53");
inline constexpr CLSID CLSID_IntelQSEncoder = MakeGuid("BE272839-CA83-42CA-931A-8273EFBDA9AE");
inline constexpr CLSID CLSID_AMDEncoder = MakeGuid("D5506CCF-973E-4C01-A25F-A4556DA73992");

// Muxers: nablet's MPEG muxer (asked for by format only) and the general one.
inline constexpr CLSID CLSID_NabletMpegMuxer = MakeGuid("090AD36C-B9C2-483C-97F7-4F7023D238DB");
inline constexpr CLSID CLSID_GeneralMuxer = MakeGuid("96EB1F23-4CC0-4830-9CC3-F064196B2626");

// The frame converter the encoder facade converts input frames with
// (IVCConverter, VCConverter.h).
inline constexpr CLSID CLSID_VCConverter = MakeGuid("0792B97B-E4CB-4140-B848-EE96C6660837");

}  // namespace vc
