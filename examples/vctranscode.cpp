// vctranscode INPUT OUTPUT: the main job of a host, written from the public
// headers alone. The first video and the first audio stream of INPUT are read
// by the splitter, decoded by one decoder per stream, encoded again (H.264
// with libx264, AAC) by one encoder per stream and written to OUTPUT by the
// muxer, whose container follows OUTPUT's extension. Every object is created
// by class identifier; the runtime finds the modules that serve them.
//
// Exit codes: 0 done, 1 usage, 2 a call failed (the message names it).
#include <cstdio>
#include <string>
#include <vector>

#include "VCCodecsCore.h"
#include "VCComPtr.h"

namespace {

// Status codes this loop tells apart (Windows error numbers as HRESULTs).
constexpr HRESULT kEndOfMedia = static_cast<HRESULT>(0x8007044C);  // ERROR_END_OF_MEDIA
constexpr HRESULT kEmpty = static_cast<HRESULT>(0x800710D2);       // ERROR_EMPTY: nothing there yet
constexpr HRESULT kTimeout = static_cast<HRESULT>(0x800705B4);     // ERROR_TIMEOUT

const char* const kVideoConfig = "codec=libx264 bitrate=2000000 preset=veryfast";
const char* const kAudioConfig = "codec=aac bitrate=128000";

// An input string: the interfaces take BSTRs, allocated with SysAllocString.
class Bstr {
 public:
  explicit Bstr(const std::string& s) {
    std::basic_string<OLECHAR> wide;
    for (size_t i = 0; i < s.size();) {  // UTF-8 to UTF-16
      const unsigned char c = static_cast<unsigned char>(s[i]);
      const int n = c < 0x80 ? 1 : c < 0xE0 ? 2 : c < 0xF0 ? 3 : 4;
      char32_t cp = n == 1 ? c : c & (0x3F >> (n - 1));
      for (int k = 1; k < n && i + k < s.size(); ++k) cp = (cp << 6) | (s[i + k] & 0x3F);
      if (cp >= 0x10000) {
        wide += static_cast<OLECHAR>(0xD800 + ((cp - 0x10000) >> 10));
        cp = 0xDC00 + ((cp - 0x10000) & 0x3FF);
      }
      wide += static_cast<OLECHAR>(cp);
      i += n;
    }
    m_bs = SysAllocString(wide.c_str());
  }
  ~Bstr() { SysFreeString(m_bs); }
  Bstr(const Bstr&) = delete;
  Bstr& operator=(const Bstr&) = delete;
  operator BSTR() const { return m_bs; }

 private:
  BSTR m_bs = nullptr;
};

// Prints what failed with its status code; false, so callers can return it.
bool Failed(const char* szWhat, HRESULT hr) {
  std::fprintf(stderr, "vctranscode: %s failed: hr=0x%08X\n", szWhat, static_cast<unsigned>(hr));
  return false;
}

template <class I>
bool Create(REFCLSID rclsid, const char* szName, vc::ComPtr<I>* pcp) {
  const HRESULT hr = CoCreateInstance(rclsid, nullptr, CLSCTX_INPROC_SERVER, vc::IidOf<I>(),
                                      reinterpret_cast<void**>(pcp->AddressOf()));
  return SUCCEEDED(hr) || Failed(szName, hr);
}

// One stream on its way through: its decoder, its encoder, its output index.
struct Track {
  const char* szName = "";
  eVCMediaType eType = eVCMT_Empty;
  LONG nSource = -1;  // stream index in the input
  LONG nOutput = -1;  // stream index in the output
  LONGLONG rtSegmentStart = 0;
  vc::ComPtr<IVCDecoder> cpDecoder;
  vc::ComPtr<IVCEncoder> cpEncoder;
  long long llFrames = 0, llPackets = 0, llDecodeErrors = 0;
};

// Writes every packet the encoder has ready now; after EncodeClose these are
// the packets the codec held back.
bool WritePackets(Track* pTrack, IVCMuxer* pMuxer) {
  for (;;) {
    vc::ComPtr<IVCPacket> cpPacket;
    LONG nReady = 0;
    HRESULT hr = pTrack->cpEncoder->EncodePacketsGet(cpPacket.AddressOf(), &nReady, 0, nullptr);
    if (hr == kEmpty || hr == kTimeout || hr == kEndOfMedia || (SUCCEEDED(hr) && !cpPacket)) return true;
    if (FAILED(hr)) return Failed("EncodePacketsGet", hr);
    hr = pMuxer->MuxerPacketPut(pTrack->nOutput, cpPacket.Get(), nullptr);
    if (FAILED(hr)) return Failed("MuxerPacketPut", hr);
    ++pTrack->llPackets;
  }
}

bool EncodeFrame(Track* pTrack, IVCFrame* pFrame, IVCMuxer* pMuxer) {
  const HRESULT hr = pTrack->cpEncoder->EncodeFramePut(pFrame, nullptr, nullptr, nullptr);
  if (FAILED(hr)) return Failed("EncodeFramePut", hr);
  ++pTrack->llFrames;
  return WritePackets(pTrack, pMuxer);
}

// A packet in, at most one frame out. A packet that does not decode is
// counted and skipped: the next key packet may well decode.
bool DecodePacket(Track* pTrack, IVCPacket* pPacket, IVCMuxer* pMuxer) {
  vc::ComPtr<IVCFrame> cpFrame;
  const HRESULT hr =
      pTrack->cpDecoder->DecodePacket(pPacket, pTrack->rtSegmentStart, nullptr, cpFrame.AddressOf(), nullptr);
  if (FAILED(hr)) {
    ++pTrack->llDecodeErrors;
    return true;
  }
  return hr != S_OK || !cpFrame || EncodeFrame(pTrack, cpFrame.Get(), pMuxer);
}

// End of input: the frames the decoder still holds (null packets until none
// comes), then the packets the encoder still holds.
bool Finish(Track* pTrack, IVCMuxer* pMuxer) {
  for (int i = 0; i < 4096; ++i) {
    vc::ComPtr<IVCFrame> cpFrame;
    const HRESULT hr =
        pTrack->cpDecoder->DecodePacket(nullptr, pTrack->rtSegmentStart, nullptr, cpFrame.AddressOf(), nullptr);
    if (hr != S_OK || !cpFrame) break;
    if (!EncodeFrame(pTrack, cpFrame.Get(), pMuxer)) return false;
  }
  const HRESULT hr = pTrack->cpEncoder->EncodeClose();
  if (FAILED(hr)) return Failed("EncodeClose", hr);
  return WritePackets(pTrack, pMuxer);
}

// Finds the first video and the first audio stream of the open input.
bool ChooseTracks(IVCSplitter* pSplitter, LONG nStreams, std::vector<Track>* pvecTracks) {
  for (LONG n = 0; n < nStreams; ++n) {
    K_STREAM_INFO info{};
    BSTR bsXml = nullptr;
    const HRESULT hr = pSplitter->SplitterStreamInfoGet(n, &info, &bsXml);
    if (FAILED(hr)) return Failed("SplitterStreamInfoGet", hr);
    SysFreeString(info.bsCodecNameOrTag);  // out strings are the caller's to free
    SysFreeString(bsXml);
    const bool bWanted = info.eMediaType == eVCMT_Video || info.eMediaType == eVCMT_Audio;
    bool bHave = false;
    for (const Track& t : *pvecTracks) bHave = bHave || t.eType == info.eMediaType;
    if (!bWanted || bHave) continue;
    Track track;
    track.eType = info.eMediaType;
    track.szName = info.eMediaType == eVCMT_Video ? "video" : "audio";
    track.nSource = n;
    pvecTracks->push_back(std::move(track));
  }
  if (pvecTracks->empty()) std::fprintf(stderr, "vctranscode: the input has no video or audio stream\n");
  return !pvecTracks->empty();
}

// A decoder and a configured encoder per track, one output stream each. The
// output stream takes its description from its first packet.
bool SetUpTracks(std::vector<Track>* pvecTracks, IVCMuxer* pMuxer) {
  for (Track& t : *pvecTracks) {
    if (!Create(CLSID_VCDecoder, "creating the decoder", &t.cpDecoder) ||
        !Create(CLSID_VCEncoder, "creating the encoder", &t.cpEncoder))
      return false;
    const char* szConfig = t.eType == eVCMT_Video ? kVideoConfig : kAudioConfig;
    HRESULT hr = t.cpEncoder->EncodeCodecSet(t.eType, Bstr(szConfig));
    if (FAILED(hr)) return Failed(t.eType == eVCMT_Video ? "EncodeCodecSet(video)" : "EncodeCodecSet(audio)", hr);
    const std::string strProps = "stream_idx=" + std::to_string(t.nSource);
    hr = pMuxer->MuxerStreamAdd(nullptr, Bstr(strProps), &t.nOutput);
    if (FAILED(hr)) return Failed("MuxerStreamAdd", hr);
  }
  return true;
}

// Every packet of the chosen streams, in the order of the input.
bool Transcode(IVCSplitter* pSplitter, std::vector<Track>* pvecTracks, IVCMuxer* pMuxer) {
  for (;;) {
    vc::ComPtr<IVCPacket> cpPacket;
    const HRESULT hr = pSplitter->SplitterPacketGet(-1, cpPacket.AddressOf(), nullptr);
    if (hr == kEndOfMedia) break;
    if (FAILED(hr) || !cpPacket) return Failed("SplitterPacketGet", FAILED(hr) ? hr : E_UNEXPECTED);
    K_PACKET_INFO info{};
    if (FAILED(cpPacket->PacketInfoGet(&info))) continue;
    for (Track& t : *pvecTracks) {
      if (t.nSource != info.nStreamIndex) continue;
      t.rtSegmentStart = info.rtSegmentStart;
      if (!DecodePacket(&t, cpPacket.Get(), pMuxer)) return false;
    }
  }
  for (Track& t : *pvecTracks)
    if (!Finish(&t, pMuxer)) return false;
  return true;
}

int Run(const std::string& strInput, const std::string& strOutput) {
  vc::ComPtr<IVCSplitter> cpSplitter;
  vc::ComPtr<IVCMuxer> cpMuxer;
  if (!Create(CLSID_VCSplitter, "creating the splitter", &cpSplitter) ||
      !Create(CLSID_VCMuxer, "creating the muxer", &cpMuxer))
    return 2;
  LONG nStreams = 0;
  HRESULT hr = cpSplitter->SplitterOpen(Bstr(strInput), nullptr, &nStreams);
  if (FAILED(hr)) {
    Failed(("opening " + strInput).c_str(), hr);
    return 2;
  }

  std::vector<Track> vecTracks;
  std::string strStreams;  // the segment's stream list, "0,1"
  bool bOk = ChooseTracks(cpSplitter.Get(), nStreams, &vecTracks);
  for (const Track& t : vecTracks) strStreams += (strStreams.empty() ? "" : ",") + std::to_string(t.nSource);
  if (bOk && FAILED(hr = cpMuxer->MuxerSet(Bstr(strOutput), nullptr)))
    bOk = Failed(("creating " + strOutput).c_str(), hr);
  bOk = bOk && SetUpTracks(&vecTracks, cpMuxer.Get());
  if (bOk && FAILED(hr = cpSplitter->SplitterBeginSegment(0, Bstr(strStreams))))
    bOk = Failed("SplitterBeginSegment", hr);
  bOk = bOk && Transcode(cpSplitter.Get(), &vecTracks, cpMuxer.Get());

  // Close in any case: the muxer finishes what it has written.
  if (FAILED(hr = cpMuxer->MuxerClose()) && bOk) bOk = Failed("MuxerClose", hr);
  for (Track& t : vecTracks)
    if (t.cpDecoder) t.cpDecoder->DecodeClose();
  cpSplitter->SplitterClose();
  for (const Track& t : vecTracks)
    std::printf("%s: stream %d -> %d, %lld frames, %lld packets, %lld packets failed to decode\n", t.szName,
                static_cast<int>(t.nSource), static_cast<int>(t.nOutput), t.llFrames, t.llPackets, t.llDecodeErrors);
  return bOk ? 0 : 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: vctranscode INPUT OUTPUT\n");
    return 1;
  }
  const HRESULT hr = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  if (FAILED(hr)) {
    Failed("CoInitializeEx", hr);
    return 2;
  }
  const int nExit = Run(argv[1], argv[2]);
  CoUninitialize();
  return nExit;
}
