// The frame-rate change before the encoder: which picture each output time
// shows (repeats and drops), the times and rate each output frame carries,
// repeats as clones sharing the picture, gaps, the end of the stream, times
// that go back, and a next stage that goes away.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <memory>
#include <ostream>
#include <utility>
#include <vector>

#include "FrameDouble.h"
#include "TranscodeRate.h"

namespace vctool {
namespace {

using vc::ComPtr;

constexpr LONGLONG kMs = VC_TIME_SECOND / 1000;

// A video frame whose "picture" is a shared number: a clone by reference
// shares it; any other clone would be a copy of the pixels and is refused.
// With bRefuseRef it refuses the reference clone too, as a frame of another
// implementation may.
class CPicture final : public vctest::CFrameDouble {
 public:
  CPicture(int nPicture, double dblRate, LONGLONG rtStart, LONGLONG rtEnd, bool bRefuseRef = false)
      : m_spPicture(std::make_shared<int>(nPicture)), m_bRefuseRef(bRefuseRef) {
    m_props.vidProps.fccType = eVCCC_I420;
    m_props.vidProps.nWidth = 64;
    m_props.vidProps.nHeight = 48;
    m_props.vidProps.dblRate = dblRate;
    m_time.rtStartTime = rtStart;
    m_time.rtEndTime = rtEnd;
  }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    // IUnknown's identifier lives in the runtime, which this binary does not
    // link; the changer asks for nothing anyway.
    if (IsEqualIID(riid, vc::IidOf<IVCFrame>())) {
      *ppv = static_cast<IVCFrame*>(this);
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_nRef; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG n = --m_nRef;
    if (n == 0) delete this;
    return n;
  }
  HRESULT STDMETHODCALLTYPE VCAVPropsGet(K_AV_PROPS* pProps, LONG* plSamples) override {
    *pProps = m_props;
    if (plSamples) *plSamples = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE VCAVPropsSet(K_AV_PROPS* pProps, BSTR) override {
    ++m_nPropsSets;
    m_props = *pProps;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE VCTimeGet(K_TIME* pTime) override {
    *pTime = m_time;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE VCTimeSet(K_TIME* pTime) override {
    m_time = *pTime;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE VCClone(IVCFrame** ppClone, eKFrameClone eType, eVCCC fcc) override {
    *ppClone = nullptr;
    if (m_bRefuseRef) return E_NOTIMPL;
    if (eType != eKFC_VideoRef || fcc != eVCCC_Default) return E_INVALIDARG;
    CPicture* pClone = new CPicture(*this);
    pClone->m_bClone = true;
    *ppClone = pClone;
    return S_OK;
  }

  int Picture() const { return *m_spPicture; }
  const void* Pixels() const { return m_spPicture.get(); }
  bool IsClone() const { return m_bClone; }
  int PropsSets() const { return m_nPropsSets; }
  const K_AV_PROPS& Props() const { return m_props; }
  const K_TIME& Time() const { return m_time; }

 private:
  CPicture(const CPicture& o)
      : vctest::CFrameDouble(), m_spPicture(o.m_spPicture), m_props(o.m_props), m_time(o.m_time) {}

  std::shared_ptr<int> m_spPicture;
  K_AV_PROPS m_props{};
  K_TIME m_time{};
  bool m_bClone = false;
  bool m_bRefuseRef = false;
  int m_nPropsSets = 0;
  std::atomic<ULONG> m_nRef{1};
};

ComPtr<CPicture> Picture(int nPicture, double dblRate, LONGLONG rtStart, LONGLONG rtEnd, bool bRefuseRef = false) {
  ComPtr<CPicture> cp;
  cp.Attach(new CPicture(nPicture, dblRate, rtStart, rtEnd, bRefuseRef));
  return cp;
}

const CPicture& As(const ComPtr<IVCFrame>& cp) { return *static_cast<CPicture*>(cp.Get()); }

class RateChangerTest : public testing::Test {
 protected:
  // Hands in a frame; the outputs collect in m_vecOut.
  void Put(int nPicture, double dblSourceRate, LONGLONG rtStart, LONGLONG rtEnd) {
    ComPtr<CPicture> cp = Picture(nPicture, dblSourceRate, rtStart, rtEnd);
    m_vecIn.push_back(cp);
    ASSERT_EQ(m_spChanger->Put(cp.Get(), Collect()), S_OK);
  }
  // nCount frames of a steady stream at dblSourceRate from rtFirst.
  void PutStream(int nCount, double dblSourceRate, LONGLONG rtFirst = 0) {
    const double dblFrame = VC_TIME_SECOND / dblSourceRate;
    for (int n = 0; n < nCount; ++n) {
      Put(n, dblSourceRate, rtFirst + std::llround(n * dblFrame), rtFirst + std::llround((n + 1) * dblFrame));
    }
  }
  void Flush() { ASSERT_EQ(m_spChanger->Flush(Collect()), S_OK); }
  void Start(double dblRate) { m_spChanger = std::make_unique<CRateChanger>(dblRate); }

  CRateChanger::Sink Collect() {
    return [this](ComPtr<IVCFrame> cp) {
      m_vecOut.push_back(std::move(cp));
      return true;
    };
  }
  std::vector<int> Pictures() const {
    std::vector<int> vec;
    for (const auto& cp : m_vecOut) vec.push_back(As(cp).Picture());
    return vec;
  }
  // Every output k at t0 + k/rate, ending where the next starts, saying the
  // new rate, and in a picture of its own input's layout.
  void ExpectOnTheGrid(double dblRate, LONGLONG rtFirst) const {
    for (size_t k = 0; k < m_vecOut.size(); ++k) {
      const CPicture& out = As(m_vecOut[k]);
      const LONGLONG rtWant = rtFirst + std::llround(static_cast<double>(k) * VC_TIME_SECOND / dblRate);
      const LONGLONG rtNext = rtFirst + std::llround(static_cast<double>(k + 1) * VC_TIME_SECOND / dblRate);
      EXPECT_EQ(out.Time().rtStartTime, rtWant) << "output " << k;
      EXPECT_EQ(out.Time().rtEndTime, rtNext) << "output " << k;
      EXPECT_DOUBLE_EQ(out.Props().vidProps.dblRate, dblRate) << "output " << k;
      EXPECT_EQ(out.Props().vidProps.nWidth, 64);
      EXPECT_EQ(out.Props().vidProps.fccType, eVCCC_I420);
    }
  }

  std::unique_ptr<CRateChanger> m_spChanger;
  std::vector<ComPtr<CPicture>> m_vecIn;
  std::vector<ComPtr<IVCFrame>> m_vecOut;
};

TEST_F(RateChangerTest, Double_RepeatsEachPictureOnceAsAClone) {
  Start(50.0);
  PutStream(10, 25.0);
  Flush();
  ASSERT_EQ(m_vecOut.size(), 20u);
  EXPECT_EQ(Pictures(), (std::vector<int>{0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7, 8, 8, 9, 9}));
  ExpectOnTheGrid(50.0, 0);
  for (size_t k = 0; k < m_vecOut.size(); k += 2) {
    const size_t n = k / 2;
    // The repeat comes first and shares the picture; the frame itself,
    // handed on last, is the second.
    EXPECT_TRUE(As(m_vecOut[k]).IsClone());
    EXPECT_EQ(As(m_vecOut[k]).Pixels(), m_vecIn[n]->Pixels());
    EXPECT_EQ(static_cast<IVCFrame*>(m_vecIn[n].Get()), m_vecOut[k + 1].Get());
    EXPECT_EQ(m_vecIn[n]->PropsSets(), 1);
  }
  EXPECT_EQ(m_spChanger->Repeated(), 10);
  EXPECT_EQ(m_spChanger->Dropped(), 0);
}

TEST_F(RateChangerTest, Halve_DropsEveryOtherPictureUntouched) {
  Start(25.0);
  PutStream(20, 50.0);
  Flush();
  EXPECT_EQ(Pictures(), (std::vector<int>{0, 2, 4, 6, 8, 10, 12, 14, 16, 18}));
  ExpectOnTheGrid(25.0, 0);
  for (const auto& cp : m_vecOut) EXPECT_FALSE(As(cp).IsClone());
  for (size_t n = 1; n < m_vecIn.size(); n += 2) {
    EXPECT_EQ(m_vecIn[n]->PropsSets(), 0) << "dropped picture " << n << " was changed";
    EXPECT_DOUBLE_EQ(m_vecIn[n]->Props().vidProps.dblRate, 50.0);
  }
  EXPECT_EQ(m_spChanger->Dropped(), 10);
  EXPECT_EQ(m_spChanger->Repeated(), 0);
}

// Rates that do not divide: one second of input gives one second of output,
// and each output time shows the picture on screen at that time.
struct RatePair {
  double dblSource;
  double dblTarget;
  int nInput;
  size_t nOutput;
};

void PrintTo(const RatePair& p, std::ostream* pOs) {
  *pOs << p.dblSource << " -> " << p.dblTarget << " fps";
}

class RateChangerGridTest : public RateChangerTest, public testing::WithParamInterface<RatePair> {};

TEST_P(RateChangerGridTest, OneSecond_ShowsThePictureOnScreenAtEachTime) {
  const RatePair p = GetParam();
  const LONGLONG rtFirst = 5 * VC_TIME_SECOND;  // a stream that does not start at zero
  Start(p.dblTarget);
  PutStream(p.nInput, p.dblSource, rtFirst);
  Flush();
  ASSERT_EQ(m_vecOut.size(), p.nOutput);
  ExpectOnTheGrid(p.dblTarget, rtFirst);
  const double dblFrame = VC_TIME_SECOND / p.dblSource;
  for (size_t k = 0; k < m_vecOut.size(); ++k) {
    const LONGLONG rtAt = As(m_vecOut[k]).Time().rtStartTime - rtFirst;
    const int nOnScreen = static_cast<int>(std::floor((static_cast<double>(rtAt) + 0.5) / dblFrame));
    EXPECT_EQ(As(m_vecOut[k]).Picture(), nOnScreen) << "output " << k;
  }
  EXPECT_EQ(static_cast<long long>(p.nOutput) - p.nInput, m_spChanger->Repeated() - m_spChanger->Dropped());
}

INSTANTIATE_TEST_SUITE_P(Rates, RateChangerGridTest,
                         testing::Values(RatePair{25.0, 30.0, 25, 30}, RatePair{30.0, 25.0, 30, 25},
                                         RatePair{25.0, 50.0, 25, 50}, RatePair{50.0, 25.0, 50, 25},
                                         RatePair{24.0, 60.0, 24, 60}, RatePair{60.0, 24.0, 60, 24},
                                         RatePair{29.97, 25.0, 30, 26}));

TEST_F(RateChangerTest, Gap_LastPictureStaysUntilTheNextStarts) {
  Start(50.0);
  Put(0, 25.0, 0, 40 * kMs);
  Put(1, 25.0, 40 * kMs, 80 * kMs);
  Put(2, 25.0, 200 * kMs, 240 * kMs);  // 120 ms missing before it
  Flush();
  // 0, 20 | 40 .. 180 | 200, 220
  EXPECT_EQ(Pictures(), (std::vector<int>{0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2}));
  ExpectOnTheGrid(50.0, 0);
  for (size_t k = 2; k < 9; ++k) EXPECT_TRUE(As(m_vecOut[k]).IsClone()) << k;
  EXPECT_EQ(m_vecOut[9].Get(), static_cast<IVCFrame*>(m_vecIn[1].Get()));
}

TEST_F(RateChangerTest, EndFrame_LastsItsOwnSpanOrOneSourceFrame) {
  struct Case {
    const char* szWhat;
    std::vector<std::pair<double, std::pair<LONGLONG, LONGLONG>>> vecIn;  // source rate, start, end
    std::vector<int> vecPictures;
  } cases[] = {
      {"its own end time: 100 ms of a last picture",
       {{25.0, {0, 40 * kMs}}, {25.0, {40 * kMs, 140 * kMs}}},
       {0, 0, 1, 1, 1, 1, 1}},
      {"no end time: one frame of the source's rate", {{25.0, {0, VC_TIME_UNSET}}}, {0, 0}},
      {"neither: one output frame", {{0.0, {0, VC_TIME_UNSET}}}, {0}},
      {"nothing put, nothing out", {}, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.szWhat);
    m_vecOut.clear();
    Start(50.0);
    int n = 0;
    for (const auto& in : c.vecIn) Put(n++, in.first, in.second.first, in.second.second);
    Flush();
    EXPECT_EQ(Pictures(), c.vecPictures);
  }
}

TEST_F(RateChangerTest, TimesThatGoBack_ContinueAfterTheHeldFrame) {
  Start(25.0);
  PutStream(3, 25.0, 10 * VC_TIME_SECOND);  // 10.00, 10.04, 10.08
  Put(3, 25.0, 0, 40 * kMs);                // a new segment from zero
  Put(4, 25.0, 40 * kMs, 80 * kMs);
  Flush();
  EXPECT_EQ(Pictures(), (std::vector<int>{0, 1, 2, 3, 4}));
  ExpectOnTheGrid(25.0, 10 * VC_TIME_SECOND);
}

TEST_F(RateChangerTest, MissingStartTimes_FollowTheFrameBefore) {
  Start(25.0);
  Put(0, 25.0, 0, 40 * kMs);
  Put(1, 25.0, VC_TIME_UNSET, VC_TIME_UNSET);
  Put(2, 25.0, 80 * kMs, 120 * kMs);
  Flush();
  EXPECT_EQ(Pictures(), (std::vector<int>{0, 1, 2}));
  ExpectOnTheGrid(25.0, 0);
}

TEST_F(RateChangerTest, SinkGone_StopsTheDelivery) {
  Start(100.0);
  int nTaken = 0;
  auto stopAfterTwo = [&nTaken](ComPtr<IVCFrame>) { return ++nTaken < 2; };
  ComPtr<CPicture> cp0 = Picture(0, 25.0, 0, 40 * kMs), cp1 = Picture(1, 25.0, 40 * kMs, 80 * kMs);
  ASSERT_EQ(m_spChanger->Put(cp0.Get(), stopAfterTwo), S_OK);
  EXPECT_EQ(m_spChanger->Put(cp1.Get(), stopAfterTwo), S_FALSE);
  EXPECT_EQ(nTaken, 2);
}

// A frame that cannot be cloned by reference (another implementation's) is
// a failure, never a silent copy.
TEST_F(RateChangerTest, CloneRefused_FailsThePut) {
  Start(50.0);
  ComPtr<CPicture> cp0 = Picture(0, 25.0, 0, 40 * kMs, true), cp1 = Picture(1, 25.0, 40 * kMs, 80 * kMs, true);
  ASSERT_EQ(m_spChanger->Put(cp0.Get(), Collect()), S_OK);
  EXPECT_EQ(m_spChanger->Put(cp1.Get(), Collect()), E_NOTIMPL);
  EXPECT_TRUE(m_vecOut.empty());
}

}  // namespace
}  // namespace vctool
