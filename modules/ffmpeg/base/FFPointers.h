// Owning pointers for FFmpeg's objects, each with the function that frees
// it: the one place the module names them. Values; one owner at a time.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/buffer.h>
#include <libavutil/dict.h>
#include <libavutil/frame.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <memory>

namespace vc::ff {

struct AvFrameFree {
  void operator()(AVFrame* p) const noexcept { av_frame_free(&p); }
};
struct AvPacketFree {
  void operator()(AVPacket* p) const noexcept { av_packet_free(&p); }
};
struct AvCodecContextFree {
  void operator()(AVCodecContext* p) const noexcept { avcodec_free_context(&p); }
};
// An input opened with avformat_open_input.
struct AvInputClose {
  void operator()(AVFormatContext* p) const noexcept { avformat_close_input(&p); }
};
// An output made with avformat_alloc_output_context2; its I/O context, when
// one was opened, is closed here too.
struct AvOutputClose {
  void operator()(AVFormatContext* p) const noexcept {
    if (p->pb && !(p->oformat->flags & AVFMT_NOFILE)) avio_closep(&p->pb);
    avformat_free_context(p);
  }
};
struct AvBufferUnref {
  void operator()(AVBufferRef* p) const noexcept { av_buffer_unref(&p); }
};
struct AvDictionaryFree {
  void operator()(AVDictionary* p) const noexcept { av_dict_free(&p); }
};
struct SwsContextFree {
  void operator()(SwsContext* p) const noexcept { sws_freeContext(p); }
};
struct SwrContextFree {
  void operator()(SwrContext* p) const noexcept { swr_free(&p); }
};

using AvFramePtr = std::unique_ptr<AVFrame, AvFrameFree>;
using AvPacketPtr = std::unique_ptr<AVPacket, AvPacketFree>;
using AvCodecContextPtr = std::unique_ptr<AVCodecContext, AvCodecContextFree>;
using AvInputPtr = std::unique_ptr<AVFormatContext, AvInputClose>;
using AvOutputPtr = std::unique_ptr<AVFormatContext, AvOutputClose>;
using AvBufferPtr = std::unique_ptr<AVBufferRef, AvBufferUnref>;
using AvDictionaryPtr = std::unique_ptr<AVDictionary, AvDictionaryFree>;
using SwsContextPtr = std::unique_ptr<SwsContext, SwsContextFree>;
using SwrContextPtr = std::unique_ptr<SwrContext, SwrContextFree>;

}  // namespace vc::ff
