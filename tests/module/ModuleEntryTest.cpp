// The core module as a host sees it: loaded by file name, its entry points
// resolved, registration machine-wide and per user, creation of the four
// facades by class identifier, aggregation rules and the unload count.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "TestEnvironment.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCStrings.h"

namespace {

using vc::ComPtr;

struct ClassCase {
  const char* szName;
  const CLSID* pclsid;
  const char* szDescription;
};
const ClassCase kClasses[] = {
    {"VCSplitter", &CLSID_VCSplitter, "VCSplitter Class"},
    {"VCDecoder", &CLSID_VCDecoder, "VCDecoder Class"},
    {"VCEncoder", &CLSID_VCEncoder, "VCEncoder Class"},
    {"VCMuxer", &CLSID_VCMuxer, "VCMuxer Class"},
};

const char* const kLibId = "{03DF3785-FB0F-4786-A013-4E52BADDBCEE}";

std::string NormalisePath(std::string s) {
  std::replace(s.begin(), s.end(), '\\', '/');
#if defined(_WIN32)
  std::transform(s.begin(), s.end(), s.begin(), [](char c) { return static_cast<char>(std::tolower(c)); });
#endif
  return s;
}

std::string ClsidKey(REFCLSID clsid) { return "CLSID\\" + vc::GuidToUtf8(clsid); }

// An outer object for aggregation: counts its references, keeps the inner
// object's non-delegating unknown.
class COuter : public IUnknown {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (IsEqualIID(riid, IID_IUnknown)) {
      *ppv = this;
      AddRef();
      return S_OK;
    }
    return m_pInner ? m_pInner->QueryInterface(riid, ppv) : E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_nRef; }
  ULONG STDMETHODCALLTYPE Release() override { return --m_nRef; }
  std::atomic<ULONG> m_nRef{1};
  IUnknown* m_pInner = nullptr;
};

class CoreModuleTest : public ::testing::Test {
 protected:
  using PfnGetClassObject = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, LPVOID*);
  using PfnVoid = HRESULT(STDAPICALLTYPE*)();
  using PfnInstall = HRESULT(STDAPICALLTYPE*)(BOOL, LPCWSTR);

  void SetUp() override {
    m_strModule = vctest::ModulePathInBin("Corvane.Codecs.Core.x64");
    const vc::String w = vc::FromUtf8(m_strModule);
    m_hModule = LoadLibraryW(w.c_str());
    ASSERT_NE(m_hModule, nullptr) << m_strModule;
    Resolve("DllGetClassObject", &m_pfnGetClassObject);
    Resolve("DllCanUnloadNow", &m_pfnCanUnloadNow);
    Resolve("DllRegisterServer", &m_pfnRegister);
    Resolve("DllUnregisterServer", &m_pfnUnregister);
    Resolve("DllInstall", &m_pfnInstall);
    ASSERT_TRUE(m_pfnGetClassObject && m_pfnCanUnloadNow && m_pfnRegister && m_pfnUnregister && m_pfnInstall);
    UnregisterEverywhere();
  }
  void TearDown() override { UnregisterEverywhere(); }

  template <class F>
  void Resolve(const char* szName, F* pfn) {
    *pfn = reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(m_hModule, szName)));
  }

  void UnregisterEverywhere() {
    if (!m_pfnInstall) return;
    m_pfnInstall(FALSE, W("user"));
    m_pfnInstall(FALSE, nullptr);
  }

  // The registration of one class under a classes root ("Software\\Classes\\" prefix).
  void ExpectClassRegistered(HKEY hRoot, const ClassCase& c) {
    const std::string strKey = "Software\\Classes\\" + ClsidKey(*c.pclsid);
    std::string strValue;
    ASSERT_TRUE(vctest::RegReadString(hRoot, strKey, nullptr, &strValue)) << c.szName;
    EXPECT_EQ(strValue, c.szDescription);
    ASSERT_TRUE(vctest::RegReadString(hRoot, strKey + "\\InprocServer32", nullptr, &strValue));
    EXPECT_EQ(NormalisePath(strValue), NormalisePath(m_strModule));
    ASSERT_TRUE(vctest::RegReadString(hRoot, strKey + "\\InprocServer32", "ThreadingModel", &strValue));
    EXPECT_EQ(strValue, "Neutral");
    // Keys whose default value is the text, where component tools look.
    ASSERT_TRUE(vctest::RegReadString(hRoot, strKey + "\\TypeLib", nullptr, &strValue));
    EXPECT_EQ(strValue, kLibId);
    ASSERT_TRUE(vctest::RegReadString(hRoot, strKey + "\\Version", nullptr, &strValue));
    EXPECT_EQ(strValue, "1.0");
    EXPECT_FALSE(vctest::RegReadString(hRoot, strKey, "TypeLib", &strValue));
  }
  // On Linux the manifest beside the module serves the classes without
  // registration; Windows needs the classes registered (machine-wide: Wine's
  // activation does not look at per-user classes).
  void MakeCreatable() {
#if defined(_WIN32)
    ASSERT_EQ(m_pfnRegister(), S_OK);
#endif
  }

  bool AnyClassUnder(HKEY hRoot) {
    for (const ClassCase& c : kClasses)
      if (vctest::RegKeyExists(hRoot, "Software\\Classes\\" + ClsidKey(*c.pclsid))) return true;
    return false;
  }

  ComPtr<IClassFactory> Factory(REFCLSID clsid) {
    ComPtr<IClassFactory> cp;
    EXPECT_EQ(m_pfnGetClassObject(clsid, IID_IClassFactory, reinterpret_cast<void**>(cp.AddressOf())), S_OK);
    return cp;
  }

  std::string m_strModule;
  HMODULE m_hModule = nullptr;
  PfnGetClassObject m_pfnGetClassObject = nullptr;
  PfnVoid m_pfnCanUnloadNow = nullptr;
  PfnVoid m_pfnRegister = nullptr;
  PfnVoid m_pfnUnregister = nullptr;
  PfnInstall m_pfnInstall = nullptr;
};

TEST_F(CoreModuleTest, InstallUser_RegistersEveryClassPerUserOnly) {
  ASSERT_EQ(m_pfnInstall(TRUE, W("USER")), S_OK);
  for (const ClassCase& c : kClasses) ExpectClassRegistered(HKEY_CURRENT_USER, c);
  EXPECT_FALSE(AnyClassUnder(HKEY_LOCAL_MACHINE));
#if defined(_WIN32)
  // Wine registers a per-user type library where it registers any other.
  EXPECT_TRUE(vctest::RegKeyExists(HKEY_CLASSES_ROOT, std::string("TypeLib\\") + kLibId));
#else
  EXPECT_TRUE(vctest::RegKeyExists(HKEY_CURRENT_USER, std::string("Software\\Classes\\TypeLib\\") + kLibId));
#endif
}

TEST_F(CoreModuleTest, InstallWithLongerCommandLine_RegistersMachineWide) {
  // "users" only starts with "user": the terminating zero is compared too.
  ASSERT_EQ(m_pfnInstall(TRUE, W("users")), S_OK);
  for (const ClassCase& c : kClasses) ExpectClassRegistered(HKEY_LOCAL_MACHINE, c);
  EXPECT_FALSE(AnyClassUnder(HKEY_CURRENT_USER));
}

TEST_F(CoreModuleTest, InstallWithoutCommandLine_RegistersMachineWide) {
  ASSERT_EQ(m_pfnInstall(TRUE, nullptr), S_OK);
  for (const ClassCase& c : kClasses) ExpectClassRegistered(HKEY_LOCAL_MACHINE, c);
  EXPECT_FALSE(AnyClassUnder(HKEY_CURRENT_USER));
  EXPECT_TRUE(vctest::RegKeyExists(HKEY_LOCAL_MACHINE, std::string("Software\\Classes\\TypeLib\\") + kLibId));
}

TEST_F(CoreModuleTest, Unregister_RemovesWhatRegistrationWroteAndKeepsSharedKeys) {
  const std::string strForeign = "Software\\Classes\\CLSID\\{0B1E3F00-1111-4222-8333-944455556666}";
  for (HKEY hRoot : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER}) {
    ASSERT_TRUE(vctest::RegWriteString(hRoot, strForeign, nullptr, "someone else's class"));
    const bool bUser = hRoot == HKEY_CURRENT_USER;
    ASSERT_EQ(m_pfnInstall(TRUE, bUser ? W("user") : nullptr), S_OK);
    ASSERT_EQ(m_pfnInstall(FALSE, bUser ? W("user") : nullptr), S_OK);
    EXPECT_FALSE(AnyClassUnder(hRoot));
    EXPECT_FALSE(vctest::RegKeyExists(hRoot, std::string("Software\\Classes\\TypeLib\\") + kLibId));
    // The shared CLSID key and another class under it survive.
    EXPECT_TRUE(vctest::RegKeyExists(hRoot, "Software\\Classes\\CLSID"));
    std::string strValue;
    EXPECT_TRUE(vctest::RegReadString(hRoot, strForeign, nullptr, &strValue));
    vctest::RegRemoveTree(hRoot, strForeign);
  }
}

TEST_F(CoreModuleTest, RegisterServer_ThenCreateEachFacadeByClassIdentifier) {
  ASSERT_EQ(m_pfnRegister(), S_OK);
  for (const ClassCase& c : kClasses) {
    ComPtr<IUnknown> cp;
    ASSERT_EQ(CoCreateInstance(*c.pclsid, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                               reinterpret_cast<void**>(cp.AddressOf())),
              S_OK)
        << c.szName;
    ComPtr<IVCProps> cpProps;
    EXPECT_EQ(cp.As(&cpProps), S_OK) << c.szName;
  }
  ASSERT_EQ(m_pfnUnregister(), S_OK);
}

TEST_F(CoreModuleTest, Facades_ExposeTheirInterfacesAndAnswerWithoutInnerObject) {
  MakeCreatable();
  ComPtr<IVCSplitter> cpSplitter;
  ASSERT_EQ(CoCreateInstance(CLSID_VCSplitter, nullptr, CLSCTX_INPROC_SERVER, IID_IVCSplitter,
                             reinterpret_cast<void**>(cpSplitter.AddressOf())),
            S_OK);
  ComPtr<IVCSideData> cpSide;
  EXPECT_EQ(cpSplitter.As(&cpSide), S_OK);
  LONG nStreams = 7;
  EXPECT_EQ(cpSplitter->SplitterOpen(nullptr, nullptr, &nStreams), E_INVALIDARG);  // no source named
  EXPECT_EQ(nStreams, 0);
  IVCPacket* pPacket = nullptr;
  EXPECT_EQ(cpSplitter->SplitterPacketGet(-1, &pPacket, nullptr), vc::VC_E_EMPTY);
  EXPECT_EQ(cpSide->SideDataGetCount(0, &nStreams), vc::VC_E_EMPTY);

  ComPtr<IVCDecoder> cpDecoder;
  ASSERT_EQ(CoCreateInstance(CLSID_VCDecoder, nullptr, CLSCTX_INPROC_SERVER, IID_IVCDecoder,
                             reinterpret_cast<void**>(cpDecoder.AddressOf())),
            S_OK);
  EXPECT_EQ(cpDecoder.As(&cpSide), E_NOINTERFACE);
  EXPECT_EQ(cpDecoder->DecodeClose(), S_FALSE);  // nothing to close

  ComPtr<IVCEncoder> cpEncoder;
  ASSERT_EQ(CoCreateInstance(CLSID_VCEncoder, nullptr, CLSCTX_INPROC_SERVER, IID_IVCEncoder,
                             reinterpret_cast<void**>(cpEncoder.AddressOf())),
            S_OK);
  EXPECT_EQ(cpEncoder->EncodeClose(), S_FALSE);  // nothing to close
  EXPECT_EQ(cpEncoder->EncodePacketsGet(nullptr, nullptr, 0, nullptr), vc::VC_E_EMPTY);

  ComPtr<IVCMuxer> cpMuxer;
  ASSERT_EQ(CoCreateInstance(CLSID_VCMuxer, nullptr, CLSCTX_INPROC_SERVER, IID_IVCMuxer,
                             reinterpret_cast<void**>(cpMuxer.AddressOf())),
            S_OK);
  EXPECT_EQ(cpMuxer.As(&cpSide), S_OK);
  EXPECT_EQ(cpMuxer->MuxerClose(), S_OK);  // closing is idempotent
  EXPECT_EQ(cpMuxer->MuxerPacketPut(0, nullptr, nullptr), vc::VC_E_EMPTY);
  ComPtr<IVCProps> cpProps;
  ASSERT_EQ(cpMuxer.As(&cpProps), S_OK);
  // The property store is live on every facade: an empty name reads the whole tree.
  vc::CBstr bsValue;
  EXPECT_EQ(cpProps->PropsGet(nullptr, &bsValue), S_OK);
  EXPECT_NE(bsValue.View().find(W("props")), vc::StringView::npos) << bsValue.Utf8();
}

TEST_F(CoreModuleTest, Aggregation_OnlyForIUnknown) {
  MakeCreatable();
  COuter outer;
  for (const ClassCase& c : kClasses) {
    void* pv = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(CoCreateInstance(*c.pclsid, &outer, CLSCTX_INPROC_SERVER, IID_IVCProps, &pv), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(pv, nullptr);
  }
  // Nothing was created by the refused requests.
  EXPECT_EQ(m_pfnCanUnloadNow(), S_OK);

  // Aggregation itself goes through the module's factory: the platform's
  // activation keeps a Neutral class in its own apartment, where an outer
  // object from another apartment cannot aggregate it.
  IUnknown* pInner = nullptr;
  ComPtr<IClassFactory> cpFactory = Factory(CLSID_VCSplitter);
  ASSERT_TRUE(cpFactory);
  ASSERT_EQ(cpFactory->CreateInstance(&outer, IID_IUnknown, reinterpret_cast<void**>(&pInner)), S_OK);
  outer.m_pInner = pInner;
  // Interfaces of the inner object count on the outer object and answer its identity.
  const ULONG nBefore = outer.m_nRef;
  IVCSplitter* pSplitter = nullptr;
  ASSERT_EQ(pInner->QueryInterface(IID_IVCSplitter, reinterpret_cast<void**>(&pSplitter)), S_OK);
  EXPECT_EQ(outer.m_nRef, nBefore + 1);
  IUnknown* pIdentity = nullptr;
  ASSERT_EQ(pSplitter->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&pIdentity)), S_OK);
  EXPECT_EQ(pIdentity, static_cast<IUnknown*>(&outer));
  pIdentity->Release();
  pSplitter->Release();
  EXPECT_EQ(outer.m_nRef, nBefore);
  EXPECT_EQ(m_pfnCanUnloadNow(), S_FALSE);
  pInner->Release();
  EXPECT_EQ(m_pfnCanUnloadNow(), S_OK);
}

TEST_F(CoreModuleTest, CreateInstance_NullResultPointer) {
  COuter outer;
  for (const ClassCase& c : kClasses) {
    ComPtr<IClassFactory> cpFactory = Factory(*c.pclsid);
    ASSERT_TRUE(cpFactory);
    EXPECT_EQ(cpFactory->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(cpFactory->CreateInstance(&outer, IID_IVCProps, nullptr), E_POINTER);
  }
}

TEST_F(CoreModuleTest, GetClassObject_UnknownClassIsNotAvailable) {
  void* pv = reinterpret_cast<void*>(0x1);
  const CLSID clsidOther = vc::MakeGuid("96EB1C15-4CC0-4830-9CC3-F064196B2626");
  EXPECT_EQ(m_pfnGetClassObject(clsidOther, IID_IClassFactory, &pv), CLASS_E_CLASSNOTAVAILABLE);
  EXPECT_EQ(pv, nullptr);
}

TEST_F(CoreModuleTest, GetClassObject_RacingThreadsReceiveTheSameFactory) {
  std::vector<IClassFactory*> seen(8, nullptr);
  std::atomic<int> nReady{0};
  std::vector<std::thread> threads;
  for (size_t i = 0; i < seen.size(); ++i) {
    threads.emplace_back([&, i] {
      ++nReady;
      while (nReady.load() < static_cast<int>(seen.size())) std::this_thread::yield();
      m_pfnGetClassObject(CLSID_VCEncoder, IID_IClassFactory, reinterpret_cast<void**>(&seen[i]));
    });
  }
  for (auto& t : threads) t.join();
  for (IClassFactory* p : seen) {
    EXPECT_NE(p, nullptr);
    EXPECT_EQ(p, seen[0]);
  }
  for (IClassFactory* p : seen)
    if (p) p->Release();
}

TEST_F(CoreModuleTest, CanUnloadNow_FollowsLiveObjectsAndServerLocks) {
  ASSERT_EQ(m_pfnCanUnloadNow(), S_OK);
  ComPtr<IClassFactory> cpFactory = Factory(CLSID_VCMuxer);
  ASSERT_TRUE(cpFactory);
  EXPECT_EQ(m_pfnCanUnloadNow(), S_OK) << "a cached factory does not pin the module";

  ComPtr<IVCMuxer> cpMuxer;
  ASSERT_EQ(cpFactory->CreateInstance(nullptr, IID_IVCMuxer, reinterpret_cast<void**>(cpMuxer.AddressOf())), S_OK);
  EXPECT_EQ(m_pfnCanUnloadNow(), S_FALSE);
  cpMuxer = nullptr;
  EXPECT_EQ(m_pfnCanUnloadNow(), S_OK);

  ASSERT_EQ(cpFactory->LockServer(TRUE), S_OK);
  EXPECT_EQ(m_pfnCanUnloadNow(), S_FALSE);
  ASSERT_EQ(cpFactory->LockServer(FALSE), S_OK);
  EXPECT_EQ(m_pfnCanUnloadNow(), S_OK);
}

}  // namespace
