// Packets of the general media module: the shared packet object
// (vc::CreateVCPacketOver) holding an FFmpeg packet without copying its
// payload.
#pragma once

extern "C" {
#include <libavcodec/packet.h>
}

#include "VCCodecs/VCPacket.h"
#include "VCCodecsCore.h"

namespace vc::ff {

// Takes pAvPacket's reference (it is left blank, as av_packet_move_ref
// leaves it) and makes a packet whose payload is the FFmpeg buffer. info's
// payload fields are replaced by the FFmpeg packet's data and size.
HRESULT PacketFromAVPacket(AVPacket* pAvPacket, const K_PACKET_INFO& info, const K_STREAM_INFO* pStreamInfo,
                           const K_TIME& time, IVCPacket** ppPacket);
// The same sharing the stream description (no copy per packet). pAvPacket's
// payload buffer reference is taken over and the rest of it released.
HRESULT PacketFromAVPacket(AVPacket* pAvPacket, const K_PACKET_INFO& info, const CKStreamInfo& stream,
                           const K_TIME& time, IVCPacket** ppPacket);

}  // namespace vc::ff
