// Codec lookup for the decoders: turns the codec name or tag of a stream
// description into an FFmpeg codec and decoder, and a stream description into
// the fields of a codec context. Pure functions over FFmpeg's static tables;
// any thread.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <string>
#include <string_view>

#include "VCCodecsCore.h"

namespace vc::ff {

// The codec a stream's bsCodecNameOrTag names, tried in this order: an FFmpeg
// decoder name ("h264", "aac_fixed"), a codec name in any letter case
// ("HEVC", "mpeg2video"), a few common aliases ("h265", "avc", "mpeg2"), a
// four-character tag of the RIFF or QuickTime tables ("avc1", "hvc1",
// "mp4a"; audio tables first for audio streams), and for audio a decimal or
// 0x-hexadecimal WAVE format tag ("1", "0x55"). AV_CODEC_ID_NONE when nothing
// matches.
AVCodecID CodecIdFromNameOrTag(std::string_view nameOrTag, eVCMediaType eType);

// The software decoder for a stream: the FFmpeg decoder of exactly that name
// when the name is one and it is not a hardware wrapper, else FFmpeg's
// default decoder for the codec. Null when FFmpeg has none.
const AVCodec* FindSoftwareDecoder(std::string_view nameOrTag, AVCodecID id);

// Copies what a decoder needs from the stream description into a codec
// context that is not yet open: media type, size, aspect, frame rate, sample
// rate and channels, block alignment, bits per coded sample, bit rate, and a
// padded copy of the codec data. Packet times are reference time, so the
// packet time base is 1/10,000,000. AVERROR(ENOMEM) when the codec data
// cannot be copied.
int FillCodecContext(const K_STREAM_INFO& info, AVCodecContext* pContext);

// Profile and level read from codec data, in FFmpeg's numbering, for the
// codecs whose decoders learn them only from the first packet: H.264 (avcC
// record or Annex B parameter sets) and AAC (AudioSpecificConfig; no
// level). Fields that cannot be read are left as they are; false when
// nothing could be read.
bool ProbeProfileLevel(AVCodecID id, const uint8_t* pData, int cbData, int* pnProfile, int* pnLevel);

// The codec's name as FFmpeg writes it ("h264"); "none" for AV_CODEC_ID_NONE.
std::string CodecName(AVCodecID id);

}  // namespace vc::ff
