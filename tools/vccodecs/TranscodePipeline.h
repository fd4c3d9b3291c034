// The transcode pipeline: packets from the splitter facade, through one
// decoder facade and one encoder facade per transcoded stream, into the
// muxer facade; copied streams go from the splitter to the muxer untouched.
//
// Each stage runs on its own thread, with bounded queues between them:
//   reader (splitter) -> per stream: decoder -> encoder -> writer (muxer)
// so that decoding one stream, encoding it and encoding another overlap on a
// machine with few cores, while the queues keep memory bounded. A new video
// frame rate is made on the encoding thread, before the encoder
// (TranscodeRate.h). Frames and
// packets move between stages by reference (ComPtr), never copied.
//
// The main thread calls Prepare, Start, then polls Sample and Running for the
// progress bar and the report, and calls Finish once Running is false. The
// stage threads only touch their own stream's objects, the queues and the
// atomic counters; the first failure of any stage aborts every queue and is
// kept for Finish to report.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ToolMedia.h"
#include "TranscodeOptions.h"
#include "TranscodeQueue.h"
#include "VCComPtr.h"
#include "VCCritSec.h"

namespace vctool {

// Creates the encoder and the muxer facades, as a host creates them.
HRESULT CreateEncoder(IVCEncoder** ppEncoder);
HRESULT CreateMuxer(IVCMuxer** ppMuxer);

// One output stream and what went through it. The counters are written by
// the stage threads and read by the main thread.
struct TranscodeStream {
  LONG nSourceIndex = -1;
  LONG nMuxerIndex = -1;
  eVCMediaType eType = eVCMT_Empty;
  std::string strSourceCodec;
  std::string strCodec;  // the encoder's codec name, or "copy"
  bool bCopy = false;
  double dblSourceRate = 0.0;
  vc::ComPtr<IVCDecoder> cpDecoder;
  vc::ComPtr<IVCEncoder> cpEncoder;
  std::unique_ptr<CBoundedQueue<vc::ComPtr<IVCPacket>>> spPackets;  // reader -> decoder
  std::unique_ptr<CBoundedQueue<vc::ComPtr<IVCFrame>>> spFrames;    // decoder -> encoder

  std::atomic<long long> llPacketsIn{0};
  std::atomic<long long> llFramesDecoded{0};
  std::atomic<long long> llDecodeErrors{0};
  std::atomic<long long> llFramesEncoded{0};
  std::atomic<long long> llPacketsOut{0};
  std::atomic<long long> llKeysOut{0};
  std::atomic<long long> llBytesOut{0};
  std::atomic<long long> rtFirstOut{VC_TIME_UNSET};
  std::atomic<long long> rtLastOut{VC_TIME_UNSET};
  std::atomic<long long> llKeyDistance{0};  // packets between the last two key packets
  long long llLastKeyAt = -1;  // the writer's: packet count at the last key packet
  std::atomic<double> dblDecodeSeconds{0.0};  // time spent in the decoder's calls
  std::atomic<double> dblEncodeSeconds{0.0};  // in the encoder's calls

  std::string strDecoderType;
  std::string strEncoderName;
  std::map<std::string, std::string> mapDecoderStats;
  std::map<std::string, std::string> mapEncoderStats;  // the encode thread's until it ends
};

class CTranscodePipeline {
 public:
  explicit CTranscodePipeline(const TranscodeOptions& opts);
  ~CTranscodePipeline();
  CTranscodePipeline(const CTranscodePipeline&) = delete;
  CTranscodePipeline& operator=(const CTranscodePipeline&) = delete;

  // Chooses the streams, creates and configures decoders, encoders and the
  // muxer (which creates the first output file). Prints why and returns
  // false when something refuses; nothing is written then.
  bool Prepare(Source* pSource);
  void Start();
  // True while a stage thread is still at work.
  bool Running() const { return m_nRunning.load() > 0; }
  // Waits for the threads, drains and closes the encoders and the muxer and
  // reads every facade's statistics. False (with the reason in ErrorText)
  // when a stage failed.
  bool Finish();

  std::string ErrorText() const;
  const std::vector<std::unique_ptr<TranscodeStream>>& Streams() const { return m_vecStreams; }
  // The files written so far, in order (several with --split).
  std::vector<std::string> Outputs() const;
  // Packets or frames waiting in each queue, by a readable name.
  std::map<std::string, double> QueueFills() const;
  // Media seconds written so far, from the first written packet.
  double Position() const;
  const std::map<std::string, std::string>& SplitterStats() const { return m_mapSplitterStats; }
  const std::map<std::string, std::string>& MuxerStats() const { return m_mapMuxerStats; }
  // Seconds each stage thread spent waiting on a queue versus working, by
  // stage name: where the time went.
  std::map<std::string, double> StageBusySeconds() const;

 private:
  struct WriterItem {
    TranscodeStream* pStream = nullptr;
    vc::ComPtr<IVCPacket> cpPacket;
  };

  bool _ChooseStreams(const Source& source);
  bool _CreateCoders();
  std::string _EncoderConfig(const TranscodeStream& stream) const;
  bool _OpenMuxer();

  void _ReadLoop();
  void _DecodeLoop(TranscodeStream* pStream);
  void _EncodeLoop(TranscodeStream* pStream);
  // One frame into the stream's encoder, then its packets to the writer;
  // false once the run has failed.
  bool _EncodeFrame(TranscodeStream* pStream, vc::ComPtr<IVCFrame> cpFrame);
  void _WriteLoop();
  // Decoded frames of one stream to its encoder; false when the run is over.
  bool _DeliverFrame(TranscodeStream* pStream, vc::ComPtr<IVCFrame> cpFrame);
  // Every packet the encoder has ready to the writer; false when aborted.
  bool _CollectPackets(TranscodeStream* pStream);
  HRESULT _Write(TranscodeStream* pStream, IVCPacket* pPacket);
  HRESULT _SplitBefore(TranscodeStream* pStream, IVCPacket* pPacket, const K_TIME& time);
  void _ProducerDone();
  void _Fail(HRESULT hr, const std::string& strWhat);
  bool _Failed() const { return m_bFailed.load(); }
  void _AbortAll();

  const TranscodeOptions m_opts;
  Source* m_pSource = nullptr;
  vc::ComPtr<IVCMuxer> m_cpMuxer;
  std::vector<std::unique_ptr<TranscodeStream>> m_vecStreams;
  std::vector<TranscodeStream*> m_vecBySource;  // source index -> stream, null when not taken
  CBoundedQueue<WriterItem> m_queueWriter;
  std::vector<std::thread> m_vecThreads;
  std::atomic<int> m_nRunning{0};
  std::atomic<int> m_nProducers{0};  // stages that still push to the writer
  std::atomic<bool> m_bFailed{false};

  // Split output: written by the writer thread only.
  TranscodeStream* m_pSplitStream = nullptr;
  LONGLONG m_rtNextSplit = VC_TIME_UNSET;
  int m_nPart = 1;

  mutable vc::CKMutex m_mtx;
  std::string m_strError VC_GUARDED_BY(m_mtx);
  std::vector<std::string> m_vecOutputs VC_GUARDED_BY(m_mtx);
  std::map<std::string, double> m_mapBusy VC_GUARDED_BY(m_mtx);

  std::map<std::string, std::string> m_mapSplitterStats, m_mapMuxerStats;
};

}  // namespace vctool
