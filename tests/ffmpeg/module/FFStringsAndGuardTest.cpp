// The module's classes at their interface boundary, the way a host written
// from the published rules uses them:
// - input strings may be plain zero-terminated UTF-16 strings whose length
//   prefix is not there (here: garbage in the place of a prefix), so they
//   must be read up to their terminating zero;
// - every output string, the one in an out record included, is a fresh
//   allocation the caller frees (two calls never share one, and freeing one
//   leaves the object's own copy intact);
// - an exception raised inside a public method (here: by an object the
//   method calls into) becomes E_OUTOFMEMORY or E_UNEXPECTED with a level-4
//   log line naming the method, and leaves the object usable.
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "FFClasses.h"
#include "FrameDouble.h"
#include "FFTestMedia.h"
#include "VCCodecs/VCAttachments.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCLog.h"
#include "VCSideData.h"
#include "VCStrings.h"

namespace {

using vc::CBstr;
using vc::ComPtr;
using vc::fftest::MediaExists;
using vc::fftest::MediaPath;

// A zero-terminated UTF-16 string with a wrong "length prefix" in front of
// it: a reader that trusts the prefix reads far past the end (or, with
// nonsense lengths, asserts under the sanitizers).
class CPlainString {
 public:
  explicit CPlainString(std::u16string_view text) {
    m_vec.assign({u'\xFFFF', u'\x7FFF'});  // 0x7FFFFFFF bytes as a prefix would read
    m_vec.insert(m_vec.end(), text.begin(), text.end());
    m_vec.push_back(u'\0');
  }
  BSTR Get() { return reinterpret_cast<BSTR>(m_vec.data() + 2); }

 private:
  std::vector<OLECHAR> m_vec;
};

std::u16string Text(BSTR bs) { return bs ? std::u16string(bs, SysStringLen(bs)) : std::u16string(); }

template <class I>
ComPtr<I> Create(HRESULT (*pfnCreate)(IUnknown*, REFIID, void**)) {
  ComPtr<I> cp;
  EXPECT_EQ(pfnCreate(nullptr, vc::IidOf<I>(), reinterpret_cast<void**>(cp.AddressOf())), S_OK);
  return cp;
}

// The level-4 lines that name a method.
bool HasFailureLine(const vc::CLogCapture& capture, std::string_view method) {
  for (const vc::LogRecord& record : capture.Records())
    if (record.nLevel == vc::eVCLL_Error && record.strMethod.find(method) != std::string::npos &&
        record.strMessage.find("EXCEPTION") != std::string::npos)
      return true;
  return false;
}

// --- Input strings --------------------------------------------------------------

TEST(FFPlainStrings, Attachments_SetAndGetByPlainName) {
  vc::CKAttachments store;
  CPlainString name(u"caption"), value(u"hello"), other(u"caption2");
  ASSERT_EQ(store.SetString(name.Get(), value.Get()), S_OK);
  ASSERT_EQ(store.SetData(other.Get(), 3, reinterpret_cast<LONGLONG>("abc")), S_OK);

  // The same names as real BSTRs find the same entries.
  CBstr bsValue;
  ASSERT_EQ(store.GetString(CBstr(std::string_view("caption")), &bsValue), S_OK);
  EXPECT_EQ(Text(bsValue), u"hello");
  LONG cb = 0;
  LONGLONG lp = 0;
  ASSERT_EQ(store.GetData(CBstr(std::string_view("caption2")), &cb, &lp), S_OK);
  EXPECT_EQ(cb, 3);
  // And plain names read them back.
  ASSERT_EQ(store.GetString(name.Get(), &bsValue), S_OK);
  EXPECT_EQ(Text(bsValue), u"hello");
  EXPECT_EQ(store.Remove(other.Get()), S_OK);
  LONG nCount = 0;
  ASSERT_EQ(store.GetCount(&nCount), S_OK);
  EXPECT_EQ(nCount, 1);
}

TEST(FFPlainStrings, Frame_StringsByPlainName) {
  ComPtr<IVCFrame> cpFrame = Create<IVCFrame>(&vc::ff::CreateFFFrame);
  ASSERT_TRUE(cpFrame);
  CPlainString id(u"title"), value(u"news at ten");
  ASSERT_EQ(cpFrame->VCStrSet(id.Get(), value.Get()), S_OK);
  CBstr bs;
  ASSERT_EQ(cpFrame->VCStrGet(CBstr(std::string_view("title")), &bs), S_OK);
  EXPECT_EQ(Text(bs), u"news at ten");

  CPlainString dataId(u"anc");
  const uint8_t bytes[] = {1, 2, 3, 4};
  ASSERT_EQ(cpFrame->VCDataSet(dataId.Get(), 4, reinterpret_cast<LONGLONG>(bytes)), S_OK);
  LONG cb = 0;
  LONGLONG lp = 0;
  ASSERT_EQ(cpFrame->VCDataGet(dataId.Get(), &cb, &lp), S_OK);
  EXPECT_EQ(cb, 4);
}

TEST(FFPlainStrings, AudioBuffer_LineByPlainName) {
  ComPtr<IVCAudioBuffer> cpBuffer = Create<IVCAudioBuffer>(&vc::ff::CreateFFAudioBuffer);
  ASSERT_TRUE(cpBuffer);
  K_AUD_PROPS props{};
  props.nChannels = 2;
  props.nSamplesPerSec = 48000;
  props.nBitsPerSample = 16;
  CPlainString line(u"Music");
  ASSERT_EQ(cpBuffer->BufferPropsSet(line.Get(), &props, TRUE), S_OK);
  K_AUD_PROPS got{};
  LONG nSamples = -1;
  // Line names ignore case: the plain "Music" is the BSTR "music".
  ASSERT_EQ(cpBuffer->BufferPropsGet(CBstr(std::string_view("music")), &got, &nSamples), S_OK);
  EXPECT_EQ(got.nSamplesPerSec, 48000);
  EXPECT_EQ(nSamples, 0);
}

TEST(FFPlainStrings, Splitter_OpensPlainPathAndProps) {
  if (!MediaExists("h264_aac.mp4")) GTEST_SKIP() << "test media not made";
  ComPtr<IVCSplitter> cpSplitter = Create<IVCSplitter>(&vc::ff::CreateFFSplitter);
  ASSERT_TRUE(cpSplitter);
  const std::string strPath = MediaPath("h264_aac.mp4");
  CPlainString path(vc::FromUtf8(strPath));
  CPlainString props(u"<props audio_track='-1'/>");
  LONG nStreams = 0;
  ASSERT_EQ(cpSplitter->SplitterOpen(path.Get(), props.Get(), &nStreams), S_OK);
  EXPECT_EQ(nStreams, 2);
  CBstr bsPath, bsXml;
  ASSERT_EQ(cpSplitter->SplitterInfoGet(&bsPath, &bsXml, nullptr, nullptr), S_OK);
  EXPECT_EQ(bsPath.Utf8(), strPath);
  // The properties text was read too: the audio stream is not delivered.
  ComPtr<IVCPacket> cpPacket;
  CPlainString hints(u"");
  EXPECT_EQ(cpSplitter->SplitterPacketGet(1, cpPacket.AddressOf(), hints.Get()), vc::VC_E_BAD_STREAM);
}

// --- The exception guard ----------------------------------------------------------

// A frame from "another implementation" whose every read throws.
class CThrowingFrame : public vctest::CFrameDouble {
 public:
  explicit CThrowingFrame(bool bBadAlloc) : m_bBadAlloc(bBadAlloc) {}
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (!IsEqualIID(riid, IID_IUnknown) && !IsEqualIID(riid, vc::IidOf<IVCFrame>())) return E_NOINTERFACE;
    *ppv = static_cast<IVCFrame*>(this);
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_nRef; }
  ULONG STDMETHODCALLTYPE Release() override { return --m_nRef; }  // on the stack

  HRESULT STDMETHODCALLTYPE VCAVPropsGet(K_AV_PROPS*, LONG*) override { return _Throw(); }
  HRESULT STDMETHODCALLTYPE VCTimeGet(K_TIME*) override { return _Throw(); }
  HRESULT STDMETHODCALLTYPE VCAllGet(VC_FRAME_INFO*) override { return _Throw(); }
  HRESULT STDMETHODCALLTYPE VCAudioGetBytes(LONG*, LONGLONG*) override { return _Throw(); }
  HRESULT STDMETHODCALLTYPE VCAudioSet(K_AUD_PROPS*, LONG, LONGLONG) override { return _Throw(); }
  HRESULT STDMETHODCALLTYPE VCAudioAlloc(K_AUD_PROPS*, LONG) override { return _Throw(); }
  HRESULT STDMETHODCALLTYPE VCAVPropsSet(K_AV_PROPS*, BSTR) override { return _Throw(); }

  int Calls() const { return m_nCalls; }

 private:
  HRESULT _Throw() {
    ++m_nCalls;
    if (m_bBadAlloc) throw std::bad_alloc();
    throw std::runtime_error("frame double failed");
  }
  bool m_bBadAlloc;
  ULONG m_nRef = 1;
  int m_nCalls = 0;
};

TEST(FFGuard, AudioBuffer_AllocationFailureInsideBecomesOutOfMemory) {
  ComPtr<IVCAudioBuffer> cpBuffer = Create<IVCAudioBuffer>(&vc::ff::CreateFFAudioBuffer);
  CThrowingFrame frame(true);
  vc::CLogCapture capture;
  EXPECT_EQ(cpBuffer->BufferFramePut(nullptr, &frame, nullptr), E_OUTOFMEMORY);
  EXPECT_GT(frame.Calls(), 0);
  EXPECT_TRUE(HasFailureLine(capture, "BufferFramePut"));
  // The buffer's lock was let go: the next call works.
  K_AUD_PROPS props{};
  props.nChannels = 1;
  props.nSamplesPerSec = 8000;
  props.nBitsPerSample = 16;
  EXPECT_EQ(cpBuffer->BufferPropsSet(nullptr, &props, TRUE), S_OK);
}

TEST(FFGuard, Frame_OtherExceptionInsideBecomesUnexpected) {
  ComPtr<IVCFrame> cpFrame = Create<IVCFrame>(&vc::ff::CreateFFFrame);
  K_AUD_PROPS props{};
  props.nChannels = 2;
  props.nSamplesPerSec = 48000;
  props.nBitsPerSample = 16;
  ASSERT_EQ(cpFrame->VCAudioAlloc(&props, 480), S_OK);
  CThrowingFrame target(false);
  vc::CLogCapture capture;
  EXPECT_EQ(cpFrame->VCAudioCopyTo(nullptr, &target), E_UNEXPECTED);
  EXPECT_GT(target.Calls(), 0);
  EXPECT_TRUE(HasFailureLine(capture, "VCAudioCopyTo"));
  // The frame's lock was let go and its content kept.
  K_AV_PROPS got{};
  LONG nSamples = 0;
  ASSERT_EQ(cpFrame->VCAVPropsGet(&got, &nSamples), S_OK);
  EXPECT_EQ(nSamples, 480);
}

TEST(FFGuard, Decoder_ExceptionFromThePacketBecomesAnError) {
  // A packet whose description read throws, handed to the software decoder.
  class CThrowingPacket : public IVCPacket {
   public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** ppv) override {
      *ppv = nullptr;
      return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE PacketInfoGet(K_PACKET_INFO*) override { throw std::bad_alloc(); }
    HRESULT STDMETHODCALLTYPE PacketInfoSet(K_PACKET_INFO*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE PacketStreamInfoGet(K_STREAM_INFO*) override { throw std::bad_alloc(); }
    HRESULT STDMETHODCALLTYPE PacketTimeGet(K_TIME*) override { throw std::bad_alloc(); }
    HRESULT STDMETHODCALLTYPE PacketAppendData(LONG, LONGLONG) override { return E_NOTIMPL; }
  } packet;
  ComPtr<IVCDecoder> cpDecoder = Create<IVCDecoder>(&vc::ff::CreateFFDecoder);
  vc::CLogCapture capture;
  BOOL bSupported = TRUE;
  EXPECT_EQ(cpDecoder->DecodeIsSupported(nullptr, &packet, &bSupported), E_OUTOFMEMORY);
  EXPECT_FALSE(bSupported);
  EXPECT_TRUE(HasFailureLine(capture, "DecodeIsSupported"));
  EXPECT_EQ(cpDecoder->DecodeClose(), S_OK);
}

}  // namespace
