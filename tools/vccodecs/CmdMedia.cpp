// vccodecs probe URL [--json] and vccodecs demux URL [--json] [--seek SECONDS]:
// a source read through the splitter facade, as a host reads it. probe shows
// the streams, the duration and the descriptions; demux takes every packet
// in source order and dumps it, with a progress bar on a terminal and the
// facade's "stat::" values at the end.
#include <algorithm>
#include <cmath>
#include <cstdio>
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

int CmdProbe(const std::vector<std::string>& args) {
  MediaArgs opts;
  if (!ParseArgs("probe", args, false, &opts)) return 1;
  Source source;
  if (!OpenSource("probe", opts.strUrl, &source)) return 2;
  if (opts.bJson) {
    std::printf("{\n  \"source\": %s,\n  \"duration\": %s,\n  \"streams\": [", JsonText(opts.strUrl).c_str(),
                Seconds(source.rtDuration).c_str());
    for (size_t n = 0; n < source.vecStreams.size(); ++n) {
      const auto& s = source.vecStreams[n];
      std::printf("%s\n    {\"index\": %zu, \"type\": \"%s\", \"codec\": %s, \"width\": %d, \"height\": %d, "
                  "\"rate\": %.6g, \"sample_rate\": %d, \"channels\": %d, \"bitrate\": %d, \"xml\": %s}",
                  n ? "," : "", n, TypeName(s.info.eMediaType), JsonText(s.strCodec).c_str(), I(s.info.nWidth),
                  I(s.info.nHeight), s.info.dblRate, I(s.info.nSampleRate), I(s.info.nChannels), I(s.info.nBitrate),
                  JsonText(s.strXml).c_str());
    }
    std::printf("\n  ],\n  \"xml\": %s\n}\n", JsonText(source.strXml).c_str());
  } else {
    std::printf("source    %s\nduration  %s s\nstreams   %d\n\n", opts.strUrl.c_str(),
                Seconds(source.rtDuration).c_str(), static_cast<int>(source.nStreams));
    std::printf("  #  type       codec         details                           kbit/s\n");
    for (size_t n = 0; n < source.vecStreams.size(); ++n) {
      const auto& s = source.vecStreams[n];
      std::printf("  %-2zu %-10s %-13s %-33s %d\n", n, TypeName(s.info.eMediaType), s.strCodec.c_str(),
                  StreamDetails(s.info).c_str(), I(s.info.nBitrate / 1000));
    }
    std::printf("\nsource description:\n%s\n", source.strXml.c_str());
    for (size_t n = 0; n < source.vecStreams.size(); ++n)
      std::printf("stream %zu description:\n%s\n", n, source.vecStreams[n].strXml.c_str());
  }
  source.cpSplitter->SplitterClose();
  return 0;
}

int CmdDemux(const std::vector<std::string>& args) {
  MediaArgs opts;
  if (!ParseArgs("demux", args, true, &opts)) return 1;
  Source source;
  if (!OpenSource("demux", opts.strUrl, &source)) return 2;

  // Every stream of the source, from the requested start.
  std::string strStreams;
  for (LONG n = 0; n < source.nStreams; ++n) strStreams += (n ? "," : "") + std::to_string(n);
  const LONGLONG rtStart = static_cast<LONGLONG>(std::llround(opts.dblSeek * VC_TIME_SECOND));
  HRESULT hr = source.cpSplitter->SplitterBeginSegment(rtStart, vc::CBstr(strStreams));
  if (FAILED(hr)) {
    std::fprintf(stderr, "vccodecs demux: cannot start at %.3f s: %s\n", opts.dblSeek, HrText(hr).c_str());
    source.cpSplitter->SplitterClose();
    return 2;
  }

  struct Totals {
    LONGLONG llPackets = 0, llBytes = 0, llKeys = 0;
    LONGLONG rtFirst = VC_TIME_UNSET, rtLast = VC_TIME_UNSET;
  };
  std::vector<Totals> vecTotals(static_cast<size_t>(std::max<LONG>(source.nStreams, 0)));
  const bool bProgress = StderrIsTerminal();
  LONGLONG llPackets = 0;
  if (opts.bJson) {
    std::printf("{\n  \"source\": %s,\n  \"start\": %.3f,\n  \"packets\": [", JsonText(opts.strUrl).c_str(),
                opts.dblSeek);
  } else {
    std::printf("stream type   #seg  key     pts(s)     dts(s)   time(s)     end(s)    size   file pos\n");
  }
  for (;;) {
    vc::ComPtr<IVCPacket> cpPacket;
    hr = source.cpSplitter->SplitterPacketGet(-1, cpPacket.AddressOf(), nullptr);
    if (hr == vc::VC_E_END_OF_MEDIA) break;
    if (FAILED(hr) || !cpPacket) {
      std::fprintf(stderr, "%svccodecs demux: reading stopped: %s\n", bProgress ? "\n" : "", HrText(hr).c_str());
      break;
    }
    K_PACKET_INFO info{};
    K_TIME time{};
    K_STREAM_INFO stream{};
    cpPacket->PacketInfoGet(&info);
    cpPacket->PacketTimeGet(&time);
    cpPacket->PacketStreamInfoGet(&stream);
    SysFreeString(stream.bsCodecNameOrTag);  // a fresh copy each call; only the type and time base are read
    const bool bKey = (info.eFlags & eVCPF_KeyFrame) != 0;
    if (info.nStreamIndex >= 0 && static_cast<size_t>(info.nStreamIndex) < vecTotals.size()) {
      Totals& t = vecTotals[static_cast<size_t>(info.nStreamIndex)];
      ++t.llPackets;
      t.llBytes += info.cbPacketData;
      t.llKeys += bKey ? 1 : 0;
      if (time.rtStartTime != VC_TIME_UNSET) {
        if (t.rtFirst == VC_TIME_UNSET) t.rtFirst = time.rtStartTime;
        t.rtLast = std::max(t.rtLast == VC_TIME_UNSET ? time.rtEndTime : t.rtLast, time.rtEndTime);
      }
    }
    if (opts.bJson) {
      std::printf("%s\n    {\"stream\": %d, \"type\": \"%s\", \"index\": %d, \"key\": %s, \"pts\": %lld, \"dts\": %lld, "
                  "\"time\": %s, \"end\": %s, \"size\": %d, \"pos\": %lld}",
                  llPackets ? "," : "", I(info.nStreamIndex), TypeName(stream.eMediaType), I(info.nIndexInSegment),
                  bKey ? "true" : "false", static_cast<long long>(info.llPts), static_cast<long long>(info.llDts),
                  Seconds(time.rtStartTime).c_str(), Seconds(time.rtEndTime).c_str(), I(info.cbPacketData),
                  static_cast<long long>(info.llFilePos));
    } else {
      std::printf("%6d %-6.6s %5d  %-3s %10s %10s %9s %10s %7d %10lld\n", I(info.nStreamIndex),
                  TypeName(stream.eMediaType), I(info.nIndexInSegment), bKey ? "K" : "-",
                  StreamSeconds(info.llPts, stream.raTimeBase).c_str(),
                  StreamSeconds(info.llDts, stream.raTimeBase).c_str(),
                  Seconds(time.rtStartTime).c_str(), Seconds(time.rtEndTime).c_str(), I(info.cbPacketData),
                  static_cast<long long>(info.llFilePos));
    }
    ++llPackets;
    if (bProgress && source.rtDuration > 0 && llPackets % 64 == 0 && time.rtStartTime != VC_TIME_UNSET)
      DrawProgress(static_cast<double>(time.rtStartTime) / static_cast<double>(source.rtDuration),
                   std::to_string(llPackets) + " packets");
  }
  if (bProgress) {
    DrawProgress(1.0, std::to_string(llPackets) + " packets");
    std::fprintf(stderr, "\n");
  }
  const std::map<std::string, std::string> mapStats = StatValues(source.cpSplitter.Get());
  if (opts.bJson) {
    std::printf("\n  ],\n  \"streams\": [");
    for (size_t n = 0; n < vecTotals.size(); ++n) {
      const Totals& t = vecTotals[n];
      std::printf("%s\n    {\"index\": %zu, \"packets\": %lld, \"keys\": %lld, \"bytes\": %lld, \"first\": %s, "
                  "\"last\": %s}",
                  n ? "," : "", n, static_cast<long long>(t.llPackets), static_cast<long long>(t.llKeys),
                  static_cast<long long>(t.llBytes), Seconds(t.rtFirst).c_str(), Seconds(t.rtLast).c_str());
    }
    std::printf("\n  ],\n  \"stat\": {");
    bool bFirst = true;
    for (const auto& [strName, strValue] : mapStats) {
      std::printf("%s\n    %s: %s", bFirst ? "" : ",", JsonText(strName).c_str(), JsonText(strValue).c_str());
      bFirst = false;
    }
    std::printf("\n  }\n}\n");
  } else {
    std::printf("\n  #  packets  keys       bytes   first(s)    last(s)\n");
    for (size_t n = 0; n < vecTotals.size(); ++n) {
      const Totals& t = vecTotals[n];
      std::printf("  %-2zu %8lld %5lld %11lld %10s %10s\n", n, static_cast<long long>(t.llPackets),
                  static_cast<long long>(t.llKeys), static_cast<long long>(t.llBytes), Seconds(t.rtFirst).c_str(),
                  Seconds(t.rtLast).c_str());
    }
    std::printf("\n");
    for (const auto& [strName, strValue] : mapStats) std::printf("%-36s %s\n", strName.c_str(), strValue.c_str());
  }
  source.cpSplitter->SplitterClose();
  return 0;
}

}  // namespace vctool
