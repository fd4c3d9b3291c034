// What the facades share about stream descriptions, packets and frames: the
// completeness of a description, the two comparisons that decide when a
// facade needs a new inner object, and the text forms the log lines show.
//
// Loose comparison (a new inner object is needed when it fails): the codec
// name or tag (ignoring case; a missing name equals only a missing name),
// then by the current description's media type: video size and codec data,
// audio sample rate, bits per coded sample and channels. The strict form
// adds the frame rate (exactly; NaN never matches) and the aspect for video,
// and the time base for every type.
//
// Pure functions; any thread.
#pragma once

#include "VCCodecsCore.h"
#include "VCStrings.h"

namespace vc {

// 0: no media type; 1: no codec name; 2: audio without channels or sample
// rate, video without size or rate; 3: complete.
int VCStreamCompleteness(const K_STREAM_INFO& info);

bool VCStreamSameLoose(const K_STREAM_INFO& current, const K_STREAM_INFO& next);
bool VCStreamSameStrict(const K_STREAM_INFO& current, const K_STREAM_INFO& next);

// "video h264 1920x1080 25.000fps cd:45" / "audio aac 48000Hz 2ch 16bit";
// "(none)" for null.
String VCStreamText(const K_STREAM_INFO* pInfo);
// "Stm:1 #12 Key:1 Flags:0x11 Time:00:00:01.000..00:00:01.040 Size:1234";
// "(null)" for null.
String VCPacketText(IVCPacket* pPacket);
// "00:00:01.000..00:00:01.040 Flags:0x1".
String VCTimeRangeText(const K_TIME& time);
// A frame's time as above; "(null)" for null.
String VCFrameText(IVCFrame* pFrame);

}  // namespace vc
