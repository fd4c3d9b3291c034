// vccodecs decode URL [--json] [--seek SECONDS] [--streams LIST] [--no-fallback]:
// every packet of the chosen video and audio streams read through the
// splitter facade in source order and decoded through one decoder facade per
// stream, as a host decodes. Prints per stream what came out (frames, audio
// samples, first and last frame time, frames marked as breaks) and the
// "stat::" values of the splitter and of every decoder; a progress bar with
// the frame rate on a terminal.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "Commands.h"
#include "ToolMedia.h"
#include "ToolModule.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCComPtr.h"
#include "VCStrings.h"

namespace vctool {

namespace {

using Clock = std::chrono::steady_clock;

// A decoder that keeps answering frames to null packets is broken; the
// drain gives up after this many (decoders hold a few dozen at most).
constexpr int kMaxDrainFrames = 4096;

struct DecodeArgs {
  MediaArgs media;
  std::string strStreams;  // as given; empty: every video and audio stream
  bool bFallback = true;
};

// One decoded stream: its decoder facade and what came out of it.
struct StreamRun {
  LONG nIndex = -1;
  eVCMediaType eType = eVCMT_Empty;
  std::string strCodec;
  vc::ComPtr<IVCDecoder> cpDecoder;
  LONGLONG llPackets = 0, llFrames = 0, llSamples = 0, llBreaks = 0, llErrors = 0;
  LONGLONG rtFirst = VC_TIME_UNSET, rtLast = VC_TIME_UNSET;
  LONGLONG rtSegmentStart = -1;  // of the last packet: the drain continues its segment
  HRESULT hrFirstError = S_OK;
  bool bDrainEnded = true;
  std::string strDecoderType;
  std::map<std::string, std::string> mapStats;
};

bool ParseDecodeArgs(const std::vector<std::string>& args, DecodeArgs* pArgs) {
  auto extra = [pArgs](const std::vector<std::string>& v, size_t* pi) {
    if (v[*pi] == "--no-fallback") {
      pArgs->bFallback = false;
      return eOption::kTaken;
    }
    if (v[*pi] != "--streams") return eOption::kNotMine;
    if (*pi + 1 >= v.size() || v[*pi + 1].empty()) {
      std::fprintf(stderr, "vccodecs decode: --streams wants stream indexes, e.g. --streams 0,1\n");
      return eOption::kBad;
    }
    pArgs->strStreams = v[++*pi];
    return eOption::kTaken;
  };
  return ParseArgs("decode", args, true, &pArgs->media, extra);
}

// "0,2" into indexes; false (after saying why) for anything else.
bool ParseStreamList(const std::string& strList, std::vector<LONG>* pvecIndexes) {
  size_t nPos = 0;
  while (nPos <= strList.size()) {
    const size_t nComma = std::min(strList.find(',', nPos), strList.size());
    const std::string strItem = strList.substr(nPos, nComma - nPos);
    char* pEnd = nullptr;
    const long nIndex = std::strtol(strItem.c_str(), &pEnd, 10);
    if (strItem.empty() || !pEnd || *pEnd || nIndex < 0 || nIndex > 0x7FFF) {
      std::fprintf(stderr, "vccodecs decode: --streams wants stream indexes separated by commas, not '%s'\n",
                   strList.c_str());
      return false;
    }
    if (std::find(pvecIndexes->begin(), pvecIndexes->end(), nIndex) == pvecIndexes->end())
      pvecIndexes->push_back(static_cast<LONG>(nIndex));
    nPos = nComma + 1;
  }
  return true;
}

// The streams to decode: those asked for (each must be video or audio), or
// every video and audio stream of the source.
bool ChooseStreams(const Source& source, const std::string& strList, std::vector<StreamRun>* pvecRuns) {
  std::vector<LONG> vecIndexes;
  if (!strList.empty()) {
    if (!ParseStreamList(strList, &vecIndexes)) return false;
  } else {
    for (size_t n = 0; n < source.vecStreams.size(); ++n) {
      const eVCMediaType eType = source.vecStreams[n].info.eMediaType;
      if (eType == eVCMT_Video || eType == eVCMT_Audio) vecIndexes.push_back(static_cast<LONG>(n));
    }
  }
  for (LONG nIndex : vecIndexes) {
    if (static_cast<size_t>(nIndex) >= source.vecStreams.size()) {
      std::fprintf(stderr, "vccodecs decode: no stream %d: the source has %zu\n", I(nIndex), source.vecStreams.size());
      return false;
    }
    const Source::Stream& stream = source.vecStreams[static_cast<size_t>(nIndex)];
    if (stream.info.eMediaType != eVCMT_Video && stream.info.eMediaType != eVCMT_Audio) {
      std::fprintf(stderr, "vccodecs decode: stream %d is %s: only video and audio streams decode\n", I(nIndex),
                   TypeName(stream.info.eMediaType));
      return false;
    }
    StreamRun run;
    run.nIndex = nIndex;
    run.eType = stream.info.eMediaType;
    run.strCodec = stream.strCodec;
    pvecRuns->push_back(std::move(run));
  }
  if (pvecRuns->empty()) std::fprintf(stderr, "vccodecs decode: the source has no video or audio stream\n");
  return !pvecRuns->empty();
}

// One decoder facade per stream, the way a host creates it. The decoder picks
// its inner decoder from the first packet.
bool CreateDecoders(bool bFallback, std::vector<StreamRun>* pvecRuns) {
  for (StreamRun& run : *pvecRuns) {
    const HRESULT hr = CoCreateInstance(CLSID_VCDecoder, nullptr, CLSCTX_INPROC_SERVER, IID_IVCDecoder,
                                        reinterpret_cast<void**>(run.cpDecoder.AddressOf()));
    if (FAILED(hr)) {
      std::fprintf(stderr, "vccodecs decode: the decoder could not be created: %s\n", HrText(hr).c_str());
      return false;
    }
    if (bFallback && !PropSet(run.cpDecoder.Get(), "decoder.fallback_on_error", "true")) {
      std::fprintf(stderr, "vccodecs decode: the decoder refuses \"decoder.fallback_on_error\"\n");
      return false;
    }
  }
  return true;
}

void CountFrame(IVCFrame* pFrame, StreamRun* pRun) {
  K_TIME time{};
  if (SUCCEEDED(pFrame->VCTimeGet(&time))) {
    if (pRun->rtFirst == VC_TIME_UNSET) pRun->rtFirst = time.rtStartTime;
    pRun->rtLast = time.rtStartTime;
    if (time.eFFlags & eKFF_Break) ++pRun->llBreaks;
  }
  if (pRun->eType == eVCMT_Audio) {
    K_AV_PROPS props{};
    LONG lSamples = 0;
    if (SUCCEEDED(pFrame->VCAVPropsGet(&props, &lSamples)) && lSamples > 0) pRun->llSamples += lSamples;
  }
  ++pRun->llFrames;
}

// One packet in, at most one frame out, in the segment the splitter stamped
// on the packet. A failure is counted and decoding goes on: the next key
// packet may well decode.
void DecodeOne(IVCPacket* pPacket, LONGLONG rtSegmentStart, StreamRun* pRun) {
  pRun->rtSegmentStart = rtSegmentStart;
  vc::ComPtr<IVCFrame> cpFrame;
  const HRESULT hr = pRun->cpDecoder->DecodePacket(pPacket, rtSegmentStart, nullptr, cpFrame.AddressOf(), nullptr);
  if (FAILED(hr)) {
    ++pRun->llErrors;
    if (SUCCEEDED(pRun->hrFirstError)) pRun->hrFirstError = hr;
    return;
  }
  if (hr == S_OK && cpFrame) CountFrame(cpFrame.Get(), pRun);
}

// The frames the decoder still holds, with null packets until none comes.
void Drain(StreamRun* pRun) {
  if (pRun->llPackets == 0) return;
  for (int i = 0; i < kMaxDrainFrames; ++i) {
    vc::ComPtr<IVCFrame> cpFrame;
    const HRESULT hr =
        pRun->cpDecoder->DecodePacket(nullptr, pRun->rtSegmentStart, nullptr, cpFrame.AddressOf(), nullptr);
    if (hr != S_OK || !cpFrame) return;
    CountFrame(cpFrame.Get(), pRun);
  }
  pRun->bDrainEnded = false;
}

// Frames of the video streams (of the audio streams when there is no video)
// for the progress bar.
LONGLONG ShownFrames(const std::vector<StreamRun>& vecRuns) {
  LONGLONG llVideo = 0, llAll = 0;
  bool bVideo = false;
  for (const StreamRun& run : vecRuns) {
    llAll += run.llFrames;
    if (run.eType == eVCMT_Video) llVideo += run.llFrames, bVideo = true;
  }
  return bVideo ? llVideo : llAll;
}

std::string ProgressText(const std::vector<StreamRun>& vecRuns, Clock::time_point tStart) {
  const LONGLONG llFrames = ShownFrames(vecRuns);
  const double dblSeconds = std::chrono::duration<double>(Clock::now() - tStart).count();
  char sz[96];
  std::snprintf(sz, sizeof sz, "%lld frames  %.1f fps", static_cast<long long>(llFrames),
                dblSeconds > 0 ? static_cast<double>(llFrames) / dblSeconds : 0.0);
  return sz;
}

// Reads the source to its end, handing each packet to its stream's decoder.
// S_OK at the end of the media, else the code reading stopped with.
HRESULT DecodeAll(const Source& source, std::vector<StreamRun>* pvecRuns, Clock::time_point tStart) {
  std::vector<StreamRun*> vecByIndex(source.vecStreams.size(), nullptr);
  for (StreamRun& run : *pvecRuns) vecByIndex[static_cast<size_t>(run.nIndex)] = &run;
  const bool bProgress = StderrIsTerminal();
  Clock::time_point tDrawn = tStart;
  HRESULT hrRead = S_OK;
  for (;;) {
    vc::ComPtr<IVCPacket> cpPacket;
    const HRESULT hr = source.cpSplitter->SplitterPacketGet(-1, cpPacket.AddressOf(), nullptr);
    if (hr == vc::VC_E_END_OF_MEDIA) break;
    if (FAILED(hr) || !cpPacket) {
      hrRead = FAILED(hr) ? hr : E_UNEXPECTED;
      break;
    }
    K_PACKET_INFO info{};
    K_TIME time{};
    cpPacket->PacketInfoGet(&info);
    cpPacket->PacketTimeGet(&time);
    if (info.nStreamIndex >= 0 && static_cast<size_t>(info.nStreamIndex) < vecByIndex.size() &&
        vecByIndex[static_cast<size_t>(info.nStreamIndex)]) {
      StreamRun* pRun = vecByIndex[static_cast<size_t>(info.nStreamIndex)];
      ++pRun->llPackets;
      DecodeOne(cpPacket.Get(), info.rtSegmentStart, pRun);
    }
    if (bProgress && source.rtDuration > 0 && time.rtStartTime != VC_TIME_UNSET &&
        Clock::now() - tDrawn > std::chrono::milliseconds(100)) {
      tDrawn = Clock::now();
      DrawProgress(static_cast<double>(time.rtStartTime) / static_cast<double>(source.rtDuration),
                   ProgressText(*pvecRuns, tStart));
    }
  }
  for (StreamRun& run : *pvecRuns) Drain(&run);
  if (bProgress) {
    DrawProgress(1.0, ProgressText(*pvecRuns, tStart));
    std::fprintf(stderr, "\n");
  }
  return hrRead;
}

void PrintJson(const DecodeArgs& opts, double dblSeconds, const std::vector<StreamRun>& vecRuns,
               const std::map<std::string, std::string>& mapSplitterStats) {
  std::printf("{\n  \"source\": %s,\n  \"seconds\": %.3f,\n  \"streams\": [", JsonText(opts.media.strUrl).c_str(),
              dblSeconds);
  for (size_t n = 0; n < vecRuns.size(); ++n) {
    const StreamRun& r = vecRuns[n];
    std::printf("%s\n    {\"index\": %d, \"type\": \"%s\", \"decoder\": %s, \"frames\": %lld, \"samples\": %lld, "
                "\"first\": %s, \"last\": %s, \"breaks\": %lld, \"errors\": %lld}",
                n ? "," : "", I(r.nIndex), TypeName(r.eType), JsonText(r.strDecoderType).c_str(),
                static_cast<long long>(r.llFrames), static_cast<long long>(r.llSamples),
                r.rtFirst == VC_TIME_UNSET ? "null" : Seconds(r.rtFirst).c_str(),
                r.rtLast == VC_TIME_UNSET ? "null" : Seconds(r.rtLast).c_str(), static_cast<long long>(r.llBreaks),
                static_cast<long long>(r.llErrors));
  }
  std::printf("\n  ],\n  \"stat\": {");
  bool bFirst = true;
  auto print = [&bFirst](const std::string& strName, const std::string& strValue) {
    std::printf("%s\n    %s: %s", bFirst ? "" : ",", JsonText(strName).c_str(), JsonText(strValue).c_str());
    bFirst = false;
  };
  for (const auto& [strName, strValue] : mapSplitterStats) print(strName, strValue);
  for (const StreamRun& r : vecRuns)
    for (const auto& [strName, strValue] : r.mapStats) print(std::to_string(r.nIndex) + ":" + strName, strValue);
  std::printf("\n  }\n}\n");
}

void PrintTable(const DecodeArgs& opts, double dblSeconds, const std::vector<StreamRun>& vecRuns,
                const std::map<std::string, std::string>& mapSplitterStats) {
  const double dblFps = dblSeconds > 0 ? static_cast<double>(ShownFrames(vecRuns)) / dblSeconds : 0.0;
  std::printf("source    %s\ndecoded   in %.3f s, %.1f frames per second\n\n", opts.media.strUrl.c_str(), dblSeconds,
              dblFps);
  std::printf("  #  type   decoder                     frames     samples   first(s)    last(s)  breaks  errors\n");
  for (const StreamRun& r : vecRuns) {
    std::printf("  %-2d %-6s %-25s %8lld %11lld %10s %10s %7lld %7lld\n", I(r.nIndex), TypeName(r.eType),
                r.strDecoderType.empty() ? "-" : r.strDecoderType.c_str(), static_cast<long long>(r.llFrames),
                static_cast<long long>(r.llSamples), Seconds(r.rtFirst).c_str(), Seconds(r.rtLast).c_str(),
                static_cast<long long>(r.llBreaks), static_cast<long long>(r.llErrors));
  }
  std::printf("\nsplitter\n");
  for (const auto& [strName, strValue] : mapSplitterStats) std::printf("  %-36s %s\n", strName.c_str(), strValue.c_str());
  for (const StreamRun& r : vecRuns) {
    std::printf("stream %d decoder\n", I(r.nIndex));
    for (const auto& [strName, strValue] : r.mapStats) std::printf("  %-36s %s\n", strName.c_str(), strValue.c_str());
  }
}

// Says, for each stream that gave nothing, why; false when one did, or when
// nothing was there to decode at all.
bool ReportFailures(const std::vector<StreamRun>& vecRuns, HRESULT hrRead) {
  bool bOk = true;
  if (FAILED(hrRead)) {
    std::fprintf(stderr, "vccodecs decode: reading stopped: %s\n", HrText(hrRead).c_str());
    bOk = false;
  }
  LONGLONG llPackets = 0;
  for (const StreamRun& r : vecRuns) {
    llPackets += r.llPackets;
    if (!r.bDrainEnded) {
      std::fprintf(stderr, "vccodecs decode: stream %d: the decoder gave frames without end after the last packet\n",
                   I(r.nIndex));
      bOk = false;
    }
    if (r.llPackets == 0 || r.llFrames > 0) continue;
    if (FAILED(r.hrFirstError)) {
      std::fprintf(stderr, "vccodecs decode: stream %d (%s %s) cannot be decoded: %s\n", I(r.nIndex),
                   TypeName(r.eType), r.strCodec.c_str(), HrText(r.hrFirstError).c_str());
    } else {
      std::fprintf(stderr, "vccodecs decode: stream %d (%s %s): no frame came out of %lld packets\n", I(r.nIndex),
                   TypeName(r.eType), r.strCodec.c_str(), static_cast<long long>(r.llPackets));
    }
    bOk = false;
  }
  if (llPackets == 0 && SUCCEEDED(hrRead)) {
    std::fprintf(stderr, "vccodecs decode: the source gave no packet of the chosen streams\n");
    bOk = false;
  }
  return bOk;
}

}  // namespace

int CmdDecode(const std::vector<std::string>& args) {
  const Clock::time_point tStart = Clock::now();
  DecodeArgs opts;
  if (!ParseDecodeArgs(args, &opts)) return 1;
  Source source;
  if (!OpenSource("decode", opts.media.strUrl, &source)) return 2;
  std::vector<StreamRun> vecRuns;
  if (!ChooseStreams(source, opts.strStreams, &vecRuns) || !CreateDecoders(opts.bFallback, &vecRuns)) {
    source.cpSplitter->SplitterClose();
    return 2;
  }

  std::string strStreams;
  for (const StreamRun& run : vecRuns) strStreams += (strStreams.empty() ? "" : ",") + std::to_string(run.nIndex);
  const LONGLONG rtStart = static_cast<LONGLONG>(std::llround(opts.media.dblSeek * VC_TIME_SECOND));
  const HRESULT hr = source.cpSplitter->SplitterBeginSegment(rtStart, vc::CBstr(strStreams));
  if (FAILED(hr)) {
    std::fprintf(stderr, "vccodecs decode: cannot start at %.3f s: %s\n", opts.media.dblSeek, HrText(hr).c_str());
    source.cpSplitter->SplitterClose();
    return 2;
  }

  const HRESULT hrRead = DecodeAll(source, &vecRuns, tStart);
  const double dblSeconds = std::chrono::duration<double>(Clock::now() - tStart).count();
  // Read before closing: the close removes the decoding statistics.
  for (StreamRun& run : vecRuns) {
    run.strDecoderType = PropText(run.cpDecoder.Get(), "decoder.type");
    run.mapStats = StatValues(run.cpDecoder.Get());
  }
  const std::map<std::string, std::string> mapSplitterStats = StatValues(source.cpSplitter.Get());
  if (opts.media.bJson) {
    PrintJson(opts, dblSeconds, vecRuns, mapSplitterStats);
  } else {
    PrintTable(opts, dblSeconds, vecRuns, mapSplitterStats);
  }
  const bool bOk = ReportFailures(vecRuns, hrRead);
  for (StreamRun& run : vecRuns) run.cpDecoder->DecodeClose();
  source.cpSplitter->SplitterClose();
  return bOk ? 0 : 3;
}

}  // namespace vctool
