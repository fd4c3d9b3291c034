// The object helpers every component class stands on: final construction
// that fails, the module lock count, the aggregated form's identity rules,
// and the side-data redirection that the splitter and muxer facades use.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "VCCodecs/VCSideDataRedir.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCObject.h"
#include "VCStrings.h"

namespace {

using vc::ComPtr;

int g_nFinalReleases = 0;

class CProbe : public vc::CKObjectRoot, public IVCDecoder {
 public:
  static HRESULT s_hrConstruct;

  HRESULT FinalConstruct() { return s_hrConstruct; }
  void FinalRelease() { ++g_nFinalReleases; }
  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return vc::QueryInterfaceTable<IVCDecoder>(this, riid, ppv);
  }

  HRESULT STDMETHODCALLTYPE DecodeIsSupported(K_STREAM_INFO*, IVCPacket*, BOOL*) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE DecodePacket(IVCPacket*, LONGLONG, K_AV_PROPS*, IVCFrame**, BSTR) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE DecodeAudio(IVCPacket*, LONGLONG, IVCAudioBuffer*, LONG*, BSTR) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE DecodeClose() override { return S_FALSE; }
};
HRESULT CProbe::s_hrConstruct = S_OK;

class ObjectHelpersTest : public ::testing::Test {
 protected:
  void SetUp() override {
    CProbe::s_hrConstruct = S_OK;
    g_nFinalReleases = 0;
    m_nLocksBefore = vc::ModuleLockCount().load();
  }
  LONG LocksNow() const { return vc::ModuleLockCount().load() - m_nLocksBefore; }
  LONG m_nLocksBefore = 0;
};

TEST_F(ObjectHelpersTest, FailingFinalConstruction_DestroysTheObjectAndReturnsItsCode) {
  CProbe::s_hrConstruct = static_cast<HRESULT>(0x80070008u);
  void* pv = reinterpret_cast<void*>(0x1);
  EXPECT_EQ(vc::CreateObject<CProbe>(nullptr, IID_IVCDecoder, &pv), static_cast<HRESULT>(0x80070008u));
  EXPECT_EQ(pv, nullptr);
  EXPECT_EQ(LocksNow(), 0) << "the half-built object is gone";
  EXPECT_EQ(g_nFinalReleases, 0) << "an object that never finished construction is not finally released";
}

TEST_F(ObjectHelpersTest, StandAloneObject_HoldsAModuleLockForItsLife) {
  ComPtr<IVCDecoder> cp;
  ASSERT_EQ(vc::CreateObject<CProbe>(nullptr, IID_IVCDecoder, reinterpret_cast<void**>(cp.AddressOf())), S_OK);
  EXPECT_EQ(LocksNow(), 1);
  ComPtr<IUnknown> cpUnk;
  ASSERT_EQ(cp.As(&cpUnk), S_OK);
  EXPECT_EQ(static_cast<void*>(cpUnk.Get()), static_cast<void*>(static_cast<IUnknown*>(cp.Get())));
  ComPtr<IVCEncoder> cpNot;
  EXPECT_EQ(cp.As(&cpNot), E_NOINTERFACE);
  cp = nullptr;
  cpUnk = nullptr;
  EXPECT_EQ(LocksNow(), 0);
  EXPECT_EQ(g_nFinalReleases, 1);
}

class CCountingOuter : public IUnknown {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (IsEqualIID(riid, IID_IUnknown)) {
      *ppv = this;
      AddRef();
      return S_OK;
    }
    return m_pInner->QueryInterface(riid, ppv);
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_nRef; }
  ULONG STDMETHODCALLTYPE Release() override { return --m_nRef; }
  ULONG m_nRef = 1;
  IUnknown* m_pInner = nullptr;
};

TEST_F(ObjectHelpersTest, AggregatedObject_DelegatesToTheOuterObject) {
  CCountingOuter outer;
  void* pv = nullptr;
  EXPECT_EQ(vc::CreateObject<CProbe>(&outer, IID_IVCDecoder, &pv), CLASS_E_NOAGGREGATION);
  EXPECT_EQ(LocksNow(), 0);

  ASSERT_EQ(vc::CreateObject<CProbe>(&outer, IID_IUnknown, &pv), S_OK);
  outer.m_pInner = static_cast<IUnknown*>(pv);
  EXPECT_EQ(LocksNow(), 1);
  EXPECT_EQ(outer.m_nRef, 1u) << "creating the inner object does not count on the outer one";

  IVCDecoder* pDecoder = nullptr;
  ASSERT_EQ(outer.QueryInterface(IID_IVCDecoder, reinterpret_cast<void**>(&pDecoder)), S_OK);
  EXPECT_EQ(outer.m_nRef, 2u);
  EXPECT_EQ(pDecoder->DecodeClose(), S_FALSE);
  pDecoder->AddRef();
  EXPECT_EQ(outer.m_nRef, 3u);
  pDecoder->Release();
  pDecoder->Release();
  EXPECT_EQ(outer.m_nRef, 1u);

  // The non-delegating unknown answers IUnknown with itself, not the outer object.
  IUnknown* pInnerUnk = nullptr;
  ASSERT_EQ(outer.m_pInner->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&pInnerUnk)), S_OK);
  EXPECT_EQ(pInnerUnk, outer.m_pInner);
  pInnerUnk->Release();
  outer.m_pInner->Release();
  EXPECT_EQ(LocksNow(), 0);
  EXPECT_EQ(g_nFinalReleases, 1);
}

// An inner object with side data that records what reached each slot.
class CSideDataInner : public vc::CKObjectRoot, public IVCSideData {
 public:
  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return vc::QueryInterfaceTable<IVCSideData>(this, riid, ppv);
  }
  HRESULT Note(int nSlot, std::string strArgs) {
    m_vecCalls.push_back(std::to_string(nSlot) + ":" + strArgs);
    return static_cast<HRESULT>(0x100 + nSlot);  // a distinct answer per slot
  }
  static std::string Text(BSTR bs) { return bs ? vc::ToUtf8(bs) : "null"; }

  HRESULT STDMETHODCALLTYPE SideDataGetCount(LONG n, LONG* p) override {
    *p = 5;
    return Note(1, std::to_string(n));
  }
  HRESULT STDMETHODCALLTYPE SideDataGetByIndex(LONG n, LONG i, BSTR*, LONG*, LONGLONG*) override {
    return Note(2, std::to_string(n) + "," + std::to_string(i));
  }
  HRESULT STDMETHODCALLTYPE SideDataGet(LONG n, BSTR t, LONG*, LONGLONG*) override {
    return Note(3, std::to_string(n) + "," + Text(t));
  }
  HRESULT STDMETHODCALLTYPE SideDataSet(LONG n, BSTR t, LONG cb, LONGLONG lp) override {
    return Note(4, std::to_string(n) + "," + Text(t) + "," + std::to_string(cb) + "," + std::to_string(lp));
  }
  HRESULT STDMETHODCALLTYPE SideDataRemove(LONG n, BSTR t) override { return Note(5, std::to_string(n) + "," + Text(t)); }
  HRESULT STDMETHODCALLTYPE SideDataStrGet(LONG n, BSTR t, BSTR*) override {
    return Note(6, std::to_string(n) + "," + Text(t));
  }
  HRESULT STDMETHODCALLTYPE SideDataStrSet(LONG n, BSTR t, BSTR v) override {
    return Note(7, std::to_string(n) + "," + Text(t) + "," + Text(v));
  }
  HRESULT STDMETHODCALLTYPE SideDataObjGet(LONG n, BSTR t, IUnknown**) override {
    return Note(8, std::to_string(n) + "," + Text(t));
  }
  HRESULT STDMETHODCALLTYPE SideDataObjSet(LONG n, BSTR t, IUnknown* p) override {
    return Note(9, std::to_string(n) + "," + Text(t) + "," + (p ? "obj" : "none"));
  }
  std::vector<std::string> m_vecCalls;
};

// A plain inner object without side data.
class CPlainInner : public vc::CKObjectRoot, public IUnknown {
 public:
  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) { return vc::QueryInterfaceTable<IUnknown>(this, riid, ppv); }
};

class CRedirHost : public vc::IVCSideDataRedir<CRedirHost> {
 public:
  vc::CVCInnerHolder<IUnknown>& _InnerHolder() { return m_inner; }
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  vc::CVCInnerHolder<IUnknown> m_inner;
};

TEST(SideDataRedir, ForwardsEverySlotUnchangedOrAnswersWhyNot) {
  CRedirHost host;
  LONG n = 0;
  EXPECT_EQ(host.SideDataGetCount(0, &n), static_cast<HRESULT>(0x800710D2u)) << "no inner object";

  ComPtr<IUnknown> cpPlain;
  ASSERT_EQ(vc::CreateObject<CPlainInner>(nullptr, IID_IUnknown, reinterpret_cast<void**>(cpPlain.AddressOf())),
            S_OK);
  host.m_inner.Swap(cpPlain);
  EXPECT_EQ(host.SideDataGetCount(0, &n), S_FALSE) << "inner object without side data";
  EXPECT_EQ(host.SideDataObjSet(0, nullptr, nullptr), S_FALSE);

  vc::CKComObject<CSideDataInner>* pInner = nullptr;
  ASSERT_EQ(vc::CKComObject<CSideDataInner>::CreateInstance(&pInner), S_OK);
  host.m_inner.Swap(static_cast<IUnknown*>(static_cast<IVCSideData*>(pInner)));
  vc::CBstr bsType(std::string_view("cc608"));
  vc::CBstr bsValue(std::string_view("text"));
  BSTR bsOut = nullptr;
  LONG cb = 0;
  LONGLONG lp = 0;
  IUnknown* pObj = nullptr;
  EXPECT_EQ(host.SideDataGetCount(3, &n), 0x101);
  EXPECT_EQ(n, 5);
  EXPECT_EQ(host.SideDataGetByIndex(3, 7, &bsOut, &cb, &lp), 0x102);
  EXPECT_EQ(host.SideDataGet(3, bsType, &cb, &lp), 0x103);
  EXPECT_EQ(host.SideDataSet(3, bsType, 16, 0x1234567890LL), 0x104);
  EXPECT_EQ(host.SideDataRemove(3, bsType), 0x105);
  EXPECT_EQ(host.SideDataStrGet(3, bsType, &bsOut), 0x106);
  EXPECT_EQ(host.SideDataStrSet(3, bsType, bsValue), 0x107);
  EXPECT_EQ(host.SideDataObjGet(3, bsType, &pObj), 0x108);
  EXPECT_EQ(host.SideDataObjSet(3, bsType, cpPlain.Get()), 0x109);
  EXPECT_EQ(pInner->m_vecCalls, (std::vector<std::string>{"1:3", "2:3,7", "3:3,cc608", "4:3,cc608,16,78187493520",
                                                          "5:3,cc608", "6:3,cc608", "7:3,cc608,text", "8:3,cc608",
                                                          "9:3,cc608,obj"}));
  pInner->Release();
}

}  // namespace
