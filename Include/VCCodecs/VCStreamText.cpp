#include "VCCodecs/VCStreamText.h"

#include <cstring>

#include "VCCodecs/VCPacket.h"
#include "VCFormat.h"
#include "VCTimeText.h"

namespace vc {

namespace {

StringView CodecName(const K_STREAM_INFO& info) {
  return info.bsCodecNameOrTag ? InString(info.bsCodecNameOrTag) : StringView();
}

const char* TypeWord(eVCMediaType eType) {
  switch (eType) {
    case eVCMT_Video: return "video";
    case eVCMT_Audio: return "audio";
    case eVCMT_Subtitles: return "subtitles";
    case eVCMT_Data: return "data";
    case eVCMT_Multiplexed: return "multiplexed";
    default: return "empty";
  }
}

}  // namespace

int VCStreamCompleteness(const K_STREAM_INFO& info) {
  if (info.eMediaType == eVCMT_Empty) return 0;
  if (CodecName(info).empty()) return 1;
  if (info.eMediaType == eVCMT_Audio) return (info.nChannels == 0 || info.nSampleRate == 0) ? 2 : 3;
  if (info.eMediaType == eVCMT_Video)
    return (info.nWidth == 0 || info.nHeight == 0 || info.dblRate == 0.0) ? 2 : 3;
  return 3;
}

bool VCStreamSameLoose(const K_STREAM_INFO& current, const K_STREAM_INFO& next) {
  const StringView a = CodecName(current);
  const StringView b = CodecName(next);
  // An empty name counts as a missing one: hosts and splitters use both.
  if (a.empty() != b.empty()) return false;
  if (!a.empty() && !StrIEquals(a, b)) return false;
  switch (current.eMediaType) {
    case eVCMT_Video:
      if (current.nWidth != next.nWidth || current.nHeight != next.nHeight ||
          current.cbCodecData != next.cbCodecData)
        return false;
      if (current.cbCodecData > 0) {
        const void* pA = reinterpret_cast<const void*>(static_cast<uintptr_t>(current.lpCodecData));
        const void* pB = reinterpret_cast<const void*>(static_cast<uintptr_t>(next.lpCodecData));
        if (pA != pB && (!pA || !pB || std::memcmp(pA, pB, static_cast<size_t>(current.cbCodecData)) != 0))
          return false;
      }
      return true;
    case eVCMT_Audio:
      return current.nSampleRate == next.nSampleRate && current.nBitsPerCodedSample == next.nBitsPerCodedSample &&
             current.nChannels == next.nChannels;
    default:
      return true;
  }
}

bool VCStreamSameStrict(const K_STREAM_INFO& current, const K_STREAM_INFO& next) {
  if (!VCStreamSameLoose(current, next)) return false;
  if (current.eMediaType == eVCMT_Video &&
      (!(current.dblRate == next.dblRate) || current.nAspectX != next.nAspectX || current.nAspectY != next.nAspectY))
    return false;
  return current.raTimeBase.nNum == next.raTimeBase.nNum && current.raTimeBase.nDen == next.raTimeBase.nDen;
}

String VCStreamText(const K_STREAM_INFO* pInfo) {
  if (!pInfo) return String(W("(none)"));
  const std::string strCodec = ToUtf8(CodecName(*pInfo));
  const char* szCodec = strCodec.empty() ? "-" : strCodec.c_str();
  std::string str;
  if (pInfo->eMediaType == eVCMT_Video) {
    str = Format("video %s %dx%d %.3ffps cd:%d", szCodec, static_cast<int>(pInfo->nWidth),
                 static_cast<int>(pInfo->nHeight), pInfo->dblRate, static_cast<int>(pInfo->cbCodecData));
  } else if (pInfo->eMediaType == eVCMT_Audio) {
    str = Format("audio %s %dHz %dch %dbit cd:%d", szCodec, static_cast<int>(pInfo->nSampleRate),
                 static_cast<int>(pInfo->nChannels), static_cast<int>(pInfo->nBitsPerCodedSample),
                 static_cast<int>(pInfo->cbCodecData));
  } else {
    str = Format("%s %s", TypeWord(pInfo->eMediaType), szCodec);
  }
  return FromUtf8(str);
}

String VCTimeRangeText(const K_TIME& time) {
  return TimeTextW(time.rtStartTime) + W("..") + TimeTextW(time.rtEndTime) +
         FromUtf8(Format(" Flags:0x%X", static_cast<unsigned>(time.eFFlags)));
}

String VCPacketText(IVCPacket* pPacket) {
  if (!pPacket) return String(W("(null)"));
  K_PACKET_INFO info{};
  K_TIME time{};
  if (ComPtr<IKPacketRecord> cpRecord = VCPacketRecordOf(pPacket)) {
    cpRecord->RecordGet(&time, &info);
  } else {
    pPacket->PacketInfoGet(&info);
    pPacket->PacketTimeGet(&time);
  }
  return FromUtf8(Format("Stm:%d #%d Key:%d Flags:0x%X Time:%ws..%ws Size:%d", static_cast<int>(info.nStreamIndex),
                         static_cast<int>(info.nIndexInSegment), static_cast<int>(info.nKeyDistance),
                         static_cast<unsigned>(info.eFlags), TimeTextW(time.rtStartTime).c_str(),
                         TimeTextW(time.rtEndTime).c_str(), static_cast<int>(info.cbPacketData)));
}

String VCFrameText(IVCFrame* pFrame) {
  if (!pFrame) return String(W("(null)"));
  K_TIME time{};
  pFrame->VCTimeGet(&time);
  return VCTimeRangeText(time);
}

}  // namespace vc
