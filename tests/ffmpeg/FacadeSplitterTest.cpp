// The splitter facade over the general media module's splitter on real
// files: what the inner splitter delivers when called directly comes out of
// the facade, stream by stream, in the same order, from the start and after
// seeks.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "CoVCSplitter.h"
#include "FFClasses.h"
#include "FFTestMedia.h"
#include "VCComPtr.h"
#include "VCLog.h"
#include "VCStrings.h"

namespace {

constexpr HRESULT kEndOfMedia = HRESULT_FROM_WIN32(ERROR_END_OF_MEDIA);
constexpr LONGLONG kSec = 10000000;

// One packet as the comparison sees it.
using PacketKey = std::tuple<LONGLONG, LONGLONG, LONG, bool>;  // pts, dts, size, key
using PerStream = std::map<LONG, std::vector<PacketKey>>;

PacketKey KeyOf(IVCPacket* pPacket, LONG* pnStream) {
  K_PACKET_INFO info{};
  pPacket->PacketInfoGet(&info);
  *pnStream = info.nStreamIndex;
  return {info.llPts, info.llDts, info.cbPacketData, (info.eFlags & eVCPF_KeyFrame) != 0};
}

std::string AllStreams(LONG nStreams) {
  std::string str;
  for (LONG n = 0; n < nStreams; ++n) str += (n ? "," : "") + std::to_string(n);
  return str;
}

// Every packet from rtStart on, taking from whichever stream comes next.
PerStream ReadSegment(IVCSplitter* pSplitter, LONGLONG rtStart, LONG nStreams) {
  PerStream packets;
  EXPECT_EQ(pSplitter->SplitterBeginSegment(rtStart, vc::CBstr(AllStreams(nStreams))), S_OK);
  for (;;) {
    vc::ComPtr<IVCPacket> cpPacket;
    const HRESULT hr = pSplitter->SplitterPacketGet(-1, cpPacket.AddressOf(), nullptr);
    if (hr == kEndOfMedia) break;
    EXPECT_EQ(hr, S_OK);
    if (FAILED(hr) || !cpPacket) break;
    LONG nStream = -1;
    const PacketKey key = KeyOf(cpPacket.Get(), &nStream);
    packets[nStream].push_back(key);
  }
  return packets;
}

// The same straight from a fresh inner splitter.
PerStream ReadDirect(const std::string& strPath, LONGLONG rtStart, LONG* pnStreams) {
  vc::ComPtr<IVCSplitter> cpSplitter;
  EXPECT_EQ(vc::ff::CreateFFSplitter(nullptr, vc::IidOf<IVCSplitter>(),
                                     reinterpret_cast<void**>(cpSplitter.AddressOf())),
            S_OK);
  if (!cpSplitter) return {};
  EXPECT_EQ(cpSplitter->SplitterOpen(vc::CBstr(strPath), nullptr, pnStreams), S_OK);
  PerStream packets = ReadSegment(cpSplitter.Get(), rtStart, *pnStreams);
  cpSplitter->SplitterClose();
  return packets;
}

class FacadeSplitterTest : public ::testing::TestWithParam<const char*> {};

TEST_P(FacadeSplitterTest, FacadeDeliversWhatTheInnerSplitterDeliversFromStartAndAfterSeeks) {
  const std::string strPath = vc::fftest::MediaPath(GetParam());
  ASSERT_TRUE(vc::fftest::MediaExists(GetParam())) << strPath;

  vc::ComPtr<IVCSplitter> cpFacade;
  ASSERT_EQ(vc::CreateObject<vc::CCoVCSplitter>(nullptr, vc::IidOf<IVCSplitter>(),
                                                reinterpret_cast<void**>(cpFacade.AddressOf())),
            S_OK);
  LONG nStreams = 0;
  ASSERT_EQ(cpFacade->SplitterOpen(vc::CBstr(strPath), nullptr, &nStreams), S_OK);
  ASSERT_GT(nStreams, 0);

  for (LONGLONG rtStart : {LONGLONG{0}, kSec, LONGLONG{0}, kSec / 2}) {
    LONG nDirectStreams = 0;
    const PerStream direct = ReadDirect(strPath, rtStart, &nDirectStreams);
    ASSERT_EQ(nDirectStreams, nStreams);
    vc::CLogCapture log(vc::eVCLL_Error);
    const PerStream viaFacade = ReadSegment(cpFacade.Get(), rtStart, nStreams);
    // The end of the file is read once: consumers taking the buffered rest
    // do not send the thread back to a source that has ended.
    const std::vector<std::string> vecLines = log.Messages();
    EXPECT_LE(std::count_if(vecLines.begin(), vecLines.end(),
                            [](const std::string& str) {
                              return str.find("cpVCSplitter->SplitterPacketGet() FAILED") != std::string::npos;
                            }),
              1)
        << "start " << rtStart;
    ASSERT_FALSE(direct.empty()) << "start " << rtStart;
    EXPECT_EQ(viaFacade.size(), direct.size()) << "start " << rtStart;
    for (const auto& [nStream, vecPackets] : direct) {
      auto it = viaFacade.find(nStream);
      ASSERT_NE(it, viaFacade.end()) << "stream " << nStream << " start " << rtStart;
      EXPECT_EQ(it->second.size(), vecPackets.size()) << "stream " << nStream << " start " << rtStart;
      EXPECT_TRUE(it->second == vecPackets) << "stream " << nStream << " start " << rtStart;
    }
  }
  EXPECT_EQ(cpFacade->SplitterClose(), S_OK);
}

INSTANTIATE_TEST_SUITE_P(Media, FacadeSplitterTest,
                         ::testing::Values("h264_aac.mp4", "hevc_opus.mkv", "mpeg2_mp2_2prog.ts", "mpeg2_pcm.mxf",
                                           "vp9_vorbis.webm", "video_only.mp4"),
                         vc::fftest::MediaParamName);

}  // namespace
