// A host application written from the published rules alone: it includes
// only the public headers, creates every class of the core module and of the
// general media module by class identifier, passes plain zero-terminated
// string literals as input strings, and frees every output string it gets
// (the one inside an out record too) with SysFreeString. A string handed out
// twice, or one the object still uses, shows up as a double free or a
// use after free under the address sanitizer, and as a wrong value here.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "VCCodecsCore.h"
#include "VCSideData.h"

namespace {

// The general media module's classes, as its documentation lists them.
constexpr CLSID kFFSplitter = vc::MakeGuid("96EB1F14-4CC0-4830-9CC3-F064196B2626");
constexpr CLSID kFFDecoder = vc::MakeGuid("96EB1F64-4CC0-4830-9CC3-F064196B2626");
constexpr CLSID kFFDecoderNVidia = vc::MakeGuid("2CBD671C-8106-49EC-8ABB-9D67CF025301");
constexpr CLSID kFFDecoderQuickSync = vc::MakeGuid("BF23862C-7C7B-4CE3-8FE7-4CA5171D624E");
constexpr CLSID kFFFrame = vc::MakeGuid("96EB1F70-4CC0-4830-9CC3-F064196B2626");
constexpr CLSID kFFAudioBuffer = vc::MakeGuid("96EB1F71-4CC0-4830-9CC3-F064196B2626");
constexpr CLSID kFFPacket = vc::MakeGuid("96EB1F72-4CC0-4830-9CC3-F064196B2626");
constexpr CLSID kVCConverter = vc::MakeGuid("0792B97B-E4CB-4140-B848-EE96C6660837");
constexpr CLSID kFFEncoder = vc::MakeGuid("96EB1F26-4CC0-4830-9CC3-F064196B2626");
constexpr CLSID kFFEncoderNVEnc = vc::MakeGuid("D0C31F85-8131-48FD-82DA-1D2249FFBD53");
constexpr CLSID kFFEncoderIntelQS = vc::MakeGuid("BE272839-CA83-42CA-931A-8273EFBDA9AE");
constexpr CLSID kFFEncoderAMD = vc::MakeGuid("D5506CCF-973E-4C01-A25F-A4556DA73992");
constexpr CLSID kFFMuxer = vc::MakeGuid("96EB1F23-4CC0-4830-9CC3-F064196B2626");

constexpr HRESULT kEndOfMedia = static_cast<HRESULT>(0x8007044C);

// A literal passed where an input string goes: no length prefix.
BSTR Plain(const char16_t* s) { return const_cast<BSTR>(s); }

std::u16string Text(BSTR bs) { return bs ? std::u16string(bs, SysStringLen(bs)) : std::u16string(); }

// Takes an out string: copies it and frees it, as a host does.
std::u16string Take(BSTR& bs) {
  std::u16string text = Text(bs);
  SysFreeString(bs);
  bs = nullptr;
  return text;
}

std::u16string U16(const std::string& s) { return std::u16string(s.begin(), s.end()); }  // ASCII paths

std::string MediaFile(const char* szName) { return std::string(VC_TEST_MEDIA_DIR) + "/" + szName; }

// A host's own interface holder.
template <class I>
class CPtr {
 public:
  CPtr() = default;
  CPtr(const CPtr&) = delete;
  CPtr& operator=(const CPtr&) = delete;
  ~CPtr() { Reset(); }
  void Reset() {
    if (m_p) m_p->Release();
    m_p = nullptr;
  }
  I** Out() {
    Reset();
    return &m_p;
  }
  void** OutVoid() { return reinterpret_cast<void**>(Out()); }
  I* operator->() const { return m_p; }
  I* Get() const { return m_p; }
  explicit operator bool() const { return m_p != nullptr; }

 private:
  I* m_p = nullptr;
};

template <class I>
HRESULT Create(REFCLSID clsid, CPtr<I>* pcp) {
  return CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, vc::IidOf<I>(), pcp->OutVoid());
}

template <class I, class J>
HRESULT Query(const CPtr<I>& from, CPtr<J>* pcp) {
  return from->QueryInterface(vc::IidOf<J>(), pcp->OutVoid());
}

class HostEnvironment : public ::testing::Environment {
 public:
  void SetUp() override { ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK); }
};

// Every string IVCProps hands out, freed as it comes: a value set and read
// back, every root entry with its information and options.
void ExerciseProps(IUnknown* pObject) {
  CPtr<IVCProps> cpProps;
  ASSERT_EQ(pObject->QueryInterface(vc::IidOf<IVCProps>(), cpProps.OutVoid()), S_OK);
  ASSERT_EQ(cpProps->PropsSet(Plain(u"host.note"), Plain(u"from the host")), S_OK);
  BSTR bsValue = nullptr;
  ASSERT_EQ(cpProps->PropsGet(Plain(u"host.note"), &bsValue), S_OK);
  EXPECT_EQ(Take(bsValue), u"from the host");

  int nEntries = 0;
  for (LONG n = 0;; ++n) {
    BSTR bsName = nullptr;
    BOOL bNode = FALSE;
    const HRESULT hr = cpProps->PropsGetByIndex(Plain(u""), n, &bsName, &bsValue, &bNode);
    if (hr != S_OK) {
      EXPECT_EQ(hr, S_FALSE);
      EXPECT_EQ(bsName, nullptr);
      break;
    }
    ++nEntries;
    const std::u16string name = Take(bsName);
    Take(bsValue);
    if (bNode) continue;
    BSTR bsInfo = nullptr;
    if (SUCCEEDED(cpProps->PropsInfoGet(const_cast<BSTR>(name.c_str()), eKIT_Help, &bsInfo))) Take(bsInfo);
    LONG nOption = -1;
    BSTR bsOption = nullptr, bsHelp = nullptr;
    if (SUCCEEDED(cpProps->PropsOptionGet(const_cast<BSTR>(name.c_str()), &nOption, &bsOption, &bsHelp))) {
      Take(bsOption);
      Take(bsHelp);
    }
    LONG nOptions = 0;
    if (cpProps->PropsOptionGetCount(const_cast<BSTR>(name.c_str()), &nOptions) == S_OK && nOptions > 0) {
      ASSERT_EQ(cpProps->PropsOptionGetByIndex(const_cast<BSTR>(name.c_str()), 0, &bsOption, &bsHelp), S_OK);
      Take(bsOption);
      Take(bsHelp);
    }
  }
  EXPECT_GE(nEntries, 1);  // at least the one set above
}

// The stream description and XML of every stream, freed; the first video
// stream's index and record (its name copied, the record's string freed).
struct CStreamChoice {
  LONG nVideo = -1;
  K_STREAM_INFO video{};
  std::u16string videoName;
};

void ReadStreams(IVCSplitter* pSplitter, LONG nStreams, CStreamChoice* pChoice) {
  for (LONG n = 0; n < nStreams; ++n) {
    K_STREAM_INFO info{};
    BSTR bsXml = nullptr;
    ASSERT_EQ(pSplitter->SplitterStreamInfoGet(n, &info, &bsXml), S_OK);
    EXPECT_NE(Take(bsXml), u"");
    ASSERT_NE(info.bsCodecNameOrTag, nullptr) << "stream " << n;
    const std::u16string name = Take(info.bsCodecNameOrTag);
    if (info.eMediaType == eVCMT_Video && pChoice->nVideo < 0) {
      pChoice->nVideo = n;
      pChoice->video = info;
      pChoice->videoName = name;
    }
  }
  // The splitter's own copy is intact after all that freeing.
  if (pChoice->nVideo >= 0) {
    K_STREAM_INFO again{};
    ASSERT_EQ(pSplitter->SplitterStreamInfoGet(pChoice->nVideo, &again, nullptr), S_OK);
    EXPECT_EQ(Take(again.bsCodecNameOrTag), pChoice->videoName);
  }
}

// Every side-data entry of the source and of its streams, names and strings freed.
void ReadSideData(IUnknown* pSplitter, LONG nStreams) {
  CPtr<IVCSideData> cpSide;
  ASSERT_EQ(pSplitter->QueryInterface(vc::IidOf<IVCSideData>(), cpSide.OutVoid()), S_OK);
  ASSERT_EQ(cpSide->SideDataStrSet(-1, Plain(u"host.tag"), Plain(u"tagged")), S_OK);
  for (LONG nStream = -1; nStream < nStreams; ++nStream) {
    LONG nCount = 0;
    if (cpSide->SideDataGetCount(nStream, &nCount) != S_OK) continue;
    for (LONG n = 0; n < nCount; ++n) {
      BSTR bsType = nullptr;
      LONG cb = 0;
      LONGLONG lp = 0;
      ASSERT_EQ(cpSide->SideDataGetByIndex(nStream, n, &bsType, &cb, &lp), S_OK);
      const std::u16string type = Take(bsType);
      BSTR bsValue = nullptr;
      if (cpSide->SideDataStrGet(nStream, const_cast<BSTR>(type.c_str()), &bsValue) == S_OK) Take(bsValue);
    }
  }
  BSTR bsTag = nullptr;
  ASSERT_EQ(cpSide->SideDataStrGet(-1, Plain(u"host.tag"), &bsTag), S_OK);
  EXPECT_EQ(Take(bsTag), u"tagged");
}

// Opens the file, reads the source's and the streams' strings and returns
// the stream count.
LONG OpenAndDescribe(IVCSplitter* pSplitter, const std::string& strPath, CStreamChoice* pChoice) {
  const std::u16string path = U16(strPath);
  LONG nStreams = 0;
  EXPECT_EQ(pSplitter->SplitterOpen(const_cast<BSTR>(path.c_str()), Plain(u""), &nStreams), S_OK);
  BSTR bsPath = nullptr, bsXml = nullptr;
  LONG nCount = 0;
  LONGLONG rtDuration = 0;
  EXPECT_EQ(pSplitter->SplitterInfoGet(&bsPath, &bsXml, &nCount, &rtDuration), S_OK);
  EXPECT_EQ(Take(bsPath), path);
  EXPECT_NE(Take(bsXml).find(u"<"), std::u16string::npos);
  EXPECT_EQ(nCount, nStreams);
  ReadStreams(pSplitter, nStreams, pChoice);
  return nStreams;
}

class HostStrings : public ::testing::Test {
 protected:
  void SetUp() override {
    m_strMedia = MediaFile("h264_aac.mp4");
    if (!std::filesystem::exists(m_strMedia)) GTEST_SKIP() << "test media not made: " << m_strMedia;
  }
  std::string m_strMedia;
};

TEST_F(HostStrings, EveryClass_CreatedByIdentifier) {
  const CLSID* classes[] = {&CLSID_VCSplitter, &CLSID_VCDecoder, &CLSID_VCEncoder, &CLSID_VCMuxer,
                            &kFFSplitter,      &kFFDecoder,      &kFFFrame,        &kFFAudioBuffer,
                            &kFFPacket,        &kFFDecoderNVidia, &kFFDecoderQuickSync, &kVCConverter,
                            &kFFEncoder,       &kFFEncoderNVEnc, &kFFEncoderIntelQS, &kFFEncoderAMD,
                            &kFFMuxer};
  for (const CLSID* pclsid : classes) {
    CPtr<IUnknown> cp;
    EXPECT_EQ(Create(*pclsid, &cp), S_OK) << "class " << pclsid->Data1;
  }
}

TEST_F(HostStrings, GeneralSplitter_StringsAndRecords) {
  CPtr<IVCSplitter> cpSplitter;
  ASSERT_EQ(Create(kFFSplitter, &cpSplitter), S_OK);
  CStreamChoice choice;
  const LONG nStreams = OpenAndDescribe(cpSplitter.Get(), m_strMedia, &choice);
  ASSERT_EQ(nStreams, 2);
  EXPECT_EQ(choice.videoName, u"h264");
  ReadSideData(cpSplitter.Get(), nStreams);
  ExerciseProps(cpSplitter.Get());

  // A failed call hands out nothing.
  K_STREAM_INFO none{};
  BSTR bsNone = nullptr;
  EXPECT_FALSE(SUCCEEDED(cpSplitter->SplitterStreamInfoGet(nStreams, &none, &bsNone)));
  EXPECT_EQ(none.bsCodecNameOrTag, nullptr);
  EXPECT_EQ(bsNone, nullptr);
  EXPECT_EQ(cpSplitter->SplitterClose(), S_OK);
}

TEST_F(HostStrings, Facades_StringsAndRecords) {
  CPtr<IVCSplitter> cpSplitter;
  ASSERT_EQ(Create(CLSID_VCSplitter, &cpSplitter), S_OK);
  CStreamChoice choice;
  const LONG nStreams = OpenAndDescribe(cpSplitter.Get(), m_strMedia, &choice);
  ASSERT_EQ(nStreams, 2);
  ASSERT_GE(choice.nVideo, 0);
  ReadSideData(cpSplitter.Get(), nStreams);
  ExerciseProps(cpSplitter.Get());

  CPtr<IVCDecoder> cpDecoder;
  ASSERT_EQ(Create(CLSID_VCDecoder, &cpDecoder), S_OK);
  ExerciseProps(cpDecoder.Get());
  CPtr<IVCEncoder> cpEncoder;
  ASSERT_EQ(Create(CLSID_VCEncoder, &cpEncoder), S_OK);
  ExerciseProps(cpEncoder.Get());
  CPtr<IVCMuxer> cpMuxer;
  ASSERT_EQ(Create(CLSID_VCMuxer, &cpMuxer), S_OK);
  ExerciseProps(cpMuxer.Get());
  // No output set up: the muxer has no stream to describe and hands out nothing.
  K_STREAM_INFO muxStream{};
  BSTR bsMuxProps = nullptr;
  EXPECT_FALSE(SUCCEEDED(cpMuxer->MuxerStreamInfoGet(0, &muxStream, &bsMuxProps)));
  EXPECT_EQ(muxStream.bsCodecNameOrTag, nullptr);
  EXPECT_EQ(bsMuxProps, nullptr);
  cpSplitter->SplitterClose();
}

// Decodes the first picture of the file with the decoder class given, the
// packets coming from the splitter class given; returns the frame.
void DecodeFirstPicture(REFCLSID clsidSplitter, REFCLSID clsidDecoder, const std::string& strPath,
                        CPtr<IVCFrame>* pcpFrame) {
  CPtr<IVCSplitter> cpSplitter;
  ASSERT_EQ(Create(clsidSplitter, &cpSplitter), S_OK);
  CStreamChoice choice;
  OpenAndDescribe(cpSplitter.Get(), strPath, &choice);
  ASSERT_GE(choice.nVideo, 0);
  const std::u16string streams = U16(std::to_string(choice.nVideo));
  ASSERT_EQ(cpSplitter->SplitterBeginSegment(0, const_cast<BSTR>(streams.c_str())), S_OK);

  CPtr<IVCDecoder> cpDecoder;
  ASSERT_EQ(Create(clsidDecoder, &cpDecoder), S_OK);
  // The description handed in carries the host's own string, freed after the call.
  K_STREAM_INFO info = choice.video;
  info.bsCodecNameOrTag = SysAllocString(choice.videoName.c_str());
  BOOL bSupported = FALSE;
  const HRESULT hrSupported = cpDecoder->DecodeIsSupported(&info, nullptr, &bSupported);
  SysFreeString(info.bsCodecNameOrTag);
  ASSERT_EQ(hrSupported, S_OK);
  EXPECT_TRUE(bSupported);
  for (int n = 0; n < 100 && !*pcpFrame; ++n) {
    CPtr<IVCPacket> cpPacket;
    const HRESULT hr = cpSplitter->SplitterPacketGet(-1, cpPacket.Out(), Plain(u""));  // only the video stream is delivered
    if (hr == kEndOfMedia) break;
    ASSERT_EQ(hr, S_OK);
    const HRESULT hrDecode = cpDecoder->DecodePacket(cpPacket.Get(), 0, nullptr, pcpFrame->Out(), Plain(u""));
    ASSERT_TRUE(SUCCEEDED(hrDecode)) << std::hex << hrDecode;
  }
  for (int n = 0; n < 16 && !*pcpFrame; ++n)  // drain
    if (FAILED(cpDecoder->DecodePacket(nullptr, 0, nullptr, pcpFrame->Out(), nullptr))) break;
  ASSERT_TRUE(*pcpFrame);
  cpDecoder->DecodeClose();
  cpSplitter->SplitterClose();
}

// Every string method of a frame: set with plain literals, read back and freed.
void ExerciseFrameStrings(IVCFrame* pFrame) {
  ASSERT_EQ(pFrame->VCStrSet(Plain(u"host.title"), Plain(u"first picture")), S_OK);
  const uint8_t bytes[] = {9, 8, 7};
  ASSERT_EQ(pFrame->VCDataSet(Plain(u"host.anc"), 3, reinterpret_cast<LONGLONG>(bytes)), S_OK);
  CPtr<IVCFrame> cpOther;
  ASSERT_EQ(Create(kFFFrame, &cpOther), S_OK);
  ASSERT_EQ(pFrame->VCObjSet(Plain(u"host.obj"), cpOther.Get()), S_OK);

  BSTR bsValue = nullptr;
  ASSERT_EQ(pFrame->VCStrGet(Plain(u"host.title"), &bsValue), S_OK);
  EXPECT_EQ(Take(bsValue), u"first picture");
  bool bSawTitle = false;
  for (LONG n = 0;; ++n) {
    BSTR bsId = nullptr;
    if (pFrame->VCStrGetByIndex(n, &bsId, &bsValue) != S_OK) break;
    bSawTitle = bSawTitle || Take(bsId) == u"host.title";
    Take(bsValue);
  }
  EXPECT_TRUE(bSawTitle);
  bool bSawData = false;
  for (LONG n = 0;; ++n) {
    BSTR bsId = nullptr;
    LONG cb = 0;
    LONGLONG lp = 0;
    if (pFrame->VCDataGetByIndex(n, &bsId, &cb, &lp) != S_OK) break;
    bSawData = bSawData || Take(bsId) == u"host.anc";
  }
  EXPECT_TRUE(bSawData);
  bool bSawObj = false;
  for (LONG n = 0;; ++n) {
    BSTR bsId = nullptr;
    CPtr<IUnknown> cpObj;
    if (pFrame->VCObjGetByIndex(n, &bsId, cpObj.Out(), FALSE) != S_OK) break;
    bSawObj = bSawObj || Take(bsId) == u"host.obj";
  }
  EXPECT_TRUE(bSawObj);
}

TEST_F(HostStrings, GeneralDecoder_FrameStrings) {
  CPtr<IVCFrame> cpFrame;
  DecodeFirstPicture(kFFSplitter, kFFDecoder, m_strMedia, &cpFrame);
  ASSERT_TRUE(cpFrame);
  ExerciseFrameStrings(cpFrame.Get());
}

TEST_F(HostStrings, HardwareDecoders_PropsAndRefusal) {
  // Without the device they refuse the stream; their strings still follow the rule.
  for (const CLSID* pclsid : {&kFFDecoderNVidia, &kFFDecoderQuickSync}) {
    CPtr<IVCDecoder> cpDecoder;
    ASSERT_EQ(Create(*pclsid, &cpDecoder), S_OK);
    ExerciseProps(cpDecoder.Get());
  }
}

TEST_F(HostStrings, FrameAndAudioBuffer_Created) {
  CPtr<IVCFrame> cpFrame;
  ASSERT_EQ(Create(kFFFrame, &cpFrame), S_OK);
  ExerciseFrameStrings(cpFrame.Get());

  CPtr<IVCAudioBuffer> cpBuffer;
  ASSERT_EQ(Create(kFFAudioBuffer, &cpBuffer), S_OK);
  K_AUD_PROPS props{};
  props.nChannels = 2;
  props.nSamplesPerSec = 48000;
  props.nBitsPerSample = 16;
  ASSERT_EQ(cpBuffer->BufferPropsSet(Plain(u"host line"), &props, TRUE), S_OK);
  std::vector<int16_t> samples(2 * 480, 100);
  ASSERT_EQ(cpBuffer->BufferPutPtr(Plain(u"host line"), nullptr, 480, reinterpret_cast<LONGLONG>(samples.data()),
                                   Plain(u"")),
            S_OK);
  K_AUD_PROPS got{};
  LONG nSamples = 0;
  ASSERT_EQ(cpBuffer->BufferPropsGet(Plain(u"HOST LINE"), &got, &nSamples), S_OK);
  EXPECT_EQ(nSamples, 480);
}

// Needs the packet's description to hand out its own copy of the codec name.
TEST_F(HostStrings, Packet_StreamInfoNameIsTheCallers) {
  CPtr<IVCSplitter> cpSplitter;
  ASSERT_EQ(Create(kFFSplitter, &cpSplitter), S_OK);
  CStreamChoice choice;
  OpenAndDescribe(cpSplitter.Get(), m_strMedia, &choice);
  ASSERT_GE(choice.nVideo, 0);
  CPtr<IVCPacket> cpPacket;
  ASSERT_EQ(cpSplitter->SplitterPacketGet(choice.nVideo, cpPacket.Out(), nullptr), S_OK);
  for (int n = 0; n < 3; ++n) {
    K_STREAM_INFO info{};
    ASSERT_EQ(cpPacket->PacketStreamInfoGet(&info), S_OK);
    EXPECT_EQ(Take(info.bsCodecNameOrTag), u"h264");
  }
  // A packet made by the host and its attachments.
  CPtr<IVCPacket> cpOwn;
  ASSERT_EQ(Create(kFFPacket, &cpOwn), S_OK);
  CPtr<IVCSideData> cpSide;
  ASSERT_EQ(Query(cpOwn, &cpSide), S_OK);
  ASSERT_EQ(cpSide->SideDataStrSet(0, Plain(u"host.caption"), Plain(u"words")), S_OK);
  BSTR bsType = nullptr, bsValue = nullptr;
  ASSERT_EQ(cpSide->SideDataGetByIndex(0, 0, &bsType, nullptr, nullptr), S_OK);
  EXPECT_EQ(Take(bsType), u"host.caption");
  ASSERT_EQ(cpSide->SideDataStrGet(0, Plain(u"host.caption"), &bsValue), S_OK);
  EXPECT_EQ(Take(bsValue), u"words");
  K_STREAM_INFO own{};
  ASSERT_EQ(cpOwn->PacketStreamInfoGet(&own), S_OK);
  SysFreeString(own.bsCodecNameOrTag);
}

}  // namespace

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  // Never the machine's registry: the manifest beside the modules serves the classes.
  if (!std::getenv("CORVANE_REGISTRY_ROOT")) {
    static std::string s_strRoot = (std::filesystem::temp_directory_path() / "vchosttests-registry").string();
    setenv("CORVANE_REGISTRY_ROOT", s_strRoot.c_str(), 1);
  }
  ::testing::AddGlobalTestEnvironment(new HostEnvironment);
  return RUN_ALL_TESTS();
}
