// The option metadata of the general encoder's settings (rate control, GOP,
// B-frames, threads, preset, profile, level, pixel format): help, type,
// default, limits and allowed values in the property tree's
// "attributes_info" node, where IVCProps::PropsInfoGet and the option calls
// find them. The values that depend on the codec (presets, profiles, pixel
// formats) are filled in once EncodeCodecSet has chosen one. The same table
// checks a configuration before the codec is used, so that a bad value is
// refused at EncodeCodecSet and not at the first frame.
//
// Called by the encoder object on its encoding thread, with the property
// lock held (the functions take the tree, not the object).
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <string>

#include "CoXMLNode.h"
#include "VCCodecsCore.h"

namespace vc::ff {

// Writes (or rewrites) the metadata entries below root's "attributes_info";
// pCodec null: the entries without codec-specific values.
void PublishEncoderOptionInfo(XMLParse::CoXMLNode& root, const AVCodec* pCodec);

// Checks every known setting present in root against the metadata for
// pCodec. S_OK, or E_INVALIDARG with *pWhy saying which value and why.
// Names the table does not know are not looked at.
HRESULT CheckEncoderOptions(const XMLParse::CoXMLNode& root, const AVCodec* pCodec, std::string* pWhy);

}  // namespace vc::ff
