// What one frame object holds, as a value: time, properties, the video and
// audio as FFmpeg frames, and the named attachments. The frame object keeps
// one under its lock; clone, load and conversion build a new one apart and
// swap it in, so a failure half-way never leaves a frame half-changed.
// Not synchronised: one owner at a time.
#pragma once

extern "C" {
#include <libavutil/frame.h>
}

#include <cstdint>
#include <memory>
#include <vector>

#include "FFPointers.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCStrings.h"

namespace vc::ff {

struct DataEntry {
  String strName;
  std::vector<uint8_t> vecData;
};
struct StrEntry {
  String strName;
  String strValue;
};
struct ObjEntry {
  String strName;
  ComPtr<IUnknown> cpObj;
};

struct FrameContent {
  K_TIME time{};
  // The record as the host sees it. The video and audio parts always
  // describe pVideo and pAudio when those are present.
  K_AV_PROPS props{};

  // Video: a system-memory AVFrame, or null. fccVideo is its public code (a
  // YUV420P frame may be I420 or YV12; colour bits of composed codes are
  // kept). llVideoID names the pixel memory: reference clones share it.
  AvFramePtr pVideo;
  eVCCC fccVideo = eVCCC_Default;
  LONGLONG llVideoID = 0;

  // Audio: interleaved PCM (U8, S16 or S32) in one plane, or null.
  AvFramePtr pAudio;

  std::vector<DataEntry> vecData;
  std::vector<StrEntry> vecStr;
  std::vector<ObjEntry> vecObj;

  LONG AudioSamples() const { return pAudio ? pAudio->nb_samples : 0; }
};

// A new process-wide identifier for a block of pixel memory.
LONGLONG NewVideoID();

}  // namespace vc::ff
