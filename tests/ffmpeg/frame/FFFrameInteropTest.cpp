// The frame object next to frames of other implementations and other
// processes: audio read and written through the interface alone, frames
// made local by their saved bytes, and the class reached through the
// runtime by its identifier.
#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "FFTestFrames.h"
#include "FrameDouble.h"
#include "FFClasses.h"
#include "FFFrame.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCObject.h"
#include "VCStrings.h"

namespace {

using vc::CBstr;
using vc::ComPtr;
using namespace vc::ff;

using vc::fftest::NewFrame;
using vc::fftest::Samples16;

// A frame of another implementation, as if living in another process: it
// answers the calls the frame object may make on a stranger (properties,
// bytes, audio set, save) from an inner frame, and nothing else.
class CForeignFrame final : public vctest::CCountedFrameDouble {
 public:
  explicit CForeignFrame(ComPtr<IVCFrame> cpInner) : m_cpInner(std::move(cpInner)) {}
  std::atomic<int> m_nAudioSets{0};

  HRESULT STDMETHODCALLTYPE VCGetProcessID(DWORD* p) override {
    *p = GetCurrentProcessId() + 1;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE VCAVPropsGet(K_AV_PROPS* p, LONG* pl) override { return m_cpInner->VCAVPropsGet(p, pl); }
  HRESULT STDMETHODCALLTYPE VCAudioGetBytes(LONG* pcb, LONGLONG* pp) override {
    return m_cpInner->VCAudioGetBytes(pcb, pp);
  }
  HRESULT STDMETHODCALLTYPE VCAudioSet(K_AUD_PROPS* p, LONG cb, LONGLONG pb) override {
    ++m_nAudioSets;
    return m_cpInner->VCAudioSet(p, cb, pb);
  }
  HRESULT STDMETHODCALLTYPE VCSave(DWORD* pcb, BYTE** pp, eKFrameClone e) override {
    return m_cpInner->VCSave(pcb, pp, e);
  }

 private:
  ~CForeignFrame() = default;
  ComPtr<IVCFrame> m_cpInner;
};

ComPtr<IVCFrame> Stereo16(std::vector<int16_t> vec) {
  ComPtr<IVCFrame> cpFrame = NewFrame();
  K_AUD_PROPS aud{2, 48000, 16, 0};
  EXPECT_EQ(cpFrame->VCAudioSet(&aud, static_cast<LONG>(vec.size() * 2), reinterpret_cast<LONGLONG>(vec.data())),
            S_OK);
  return cpFrame;
}


TEST(FFFrameInteropTest, AudioCrossesToAndFromOtherImplementations) {
  ComPtr<IVCFrame> cpInner = Stereo16({1, 2, 3, 4});
  ComPtr<IVCFrame> cpForeign;
  cpForeign.Attach(new CForeignFrame(cpInner));
  EXPECT_EQ(FrameAVFrame(cpForeign.Get()), nullptr);  // not ours

  ComPtr<IVCFrame> cpFrame = Stereo16({10, 20, 30, 40});
  ASSERT_EQ(cpFrame->VCAudioMix(cpForeign.Get(), 0.0, 0.0, FALSE, nullptr), S_OK);
  EXPECT_EQ(Samples16(cpFrame.Get()), (std::vector<int16_t>{11, 22, 33, 44}));

  CBstr bsSwap(u"1:0,0:1");
  ASSERT_EQ(cpFrame->VCAudioCopyTo(bsSwap, cpForeign.Get()), S_OK);
  EXPECT_EQ(static_cast<CForeignFrame*>(cpForeign.Get())->m_nAudioSets, 1);
  EXPECT_EQ(Samples16(cpInner.Get()), (std::vector<int16_t>{22, 11, 44, 33}));
}

TEST(FFFrameInteropTest, FramesOfOtherProcessesAreMadeLocalOnRequest) {
  ComPtr<IVCFrame> cpInner = Stereo16({5, 6});
  ComPtr<IVCFrame> cpForeign;
  cpForeign.Attach(new CForeignFrame(cpInner));
  ComPtr<IVCFrame> cpFrame = NewFrame();
  CBstr bsName(u"remote");
  ASSERT_EQ(cpFrame->VCObjSet(bsName, cpForeign.Get()), S_OK);

  ComPtr<IUnknown> cpAsIs;
  ASSERT_EQ(cpFrame->VCObjGet(bsName, cpAsIs.AddressOf(), FALSE), S_OK);
  EXPECT_EQ(cpAsIs.Get(), static_cast<IUnknown*>(cpForeign.Get()));

  ComPtr<IUnknown> cpLocal;
  ASSERT_EQ(cpFrame->VCObjGet(bsName, cpLocal.AddressOf(), TRUE), S_OK);
  ComPtr<IVCFrame> cpLocalFrame;
  ASSERT_EQ(cpLocal->QueryInterface(vc::IidOf<IVCFrame>(), reinterpret_cast<void**>(cpLocalFrame.AddressOf())), S_OK);
  EXPECT_NE(cpLocalFrame.Get(), cpForeign.Get());
  DWORD dwPid = 0;
  ASSERT_EQ(cpLocalFrame->VCGetProcessID(&dwPid), S_OK);
  EXPECT_EQ(dwPid, GetCurrentProcessId());
  EXPECT_EQ(Samples16(cpLocalFrame.Get()), (std::vector<int16_t>{5, 6}));
}

TEST(FFFrameInteropTest, ClassIsCreatedThroughTheRuntime) {
  ComPtr<IVCFrame> cpFrame;
  ASSERT_EQ(CoCreateInstance(CLSID_FFFrame, nullptr, CLSCTX_INPROC_SERVER, vc::IidOf<IVCFrame>(),
                             reinterpret_cast<void**>(cpFrame.AddressOf())),
            S_OK);
  K_AUD_PROPS aud{1, 8000, 8, 0};
  ASSERT_EQ(cpFrame->VCAudioAlloc(&aud, 16), S_OK);
  DWORD cb = 0;
  BYTE* p = nullptr;
  ASSERT_EQ(cpFrame->VCSave(&cb, &p, eKFC_Full), S_OK);
  // The module's frame and the one linked here read each other's bytes.
  ComPtr<IVCFrame> cpHere = NewFrame();
  EXPECT_EQ(cpHere->VCLoad(cb, p, eKFC_Full), S_OK);
  CoTaskMemFree(p);
  LONG lSamples = 0;
  K_AV_PROPS props{};
  ASSERT_EQ(cpHere->VCAVPropsGet(&props, &lSamples), S_OK);
  EXPECT_EQ(lSamples, 16);
  EXPECT_EQ(props.audProps.nSamplesPerSec, 8000);
}

}  // namespace
