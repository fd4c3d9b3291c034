// The process-wide runtime settings: the named object slots they are
// published in, "runtime::" and "runtime" names from facades, and one object
// per process even with a second copy of the code loaded (the core module).
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "CountedUnknown.h"
#include "Devices/KRuntimeSettings.h"
#include "KPropsTestFacade.h"
#include "TestEnvironment.h"
#include "VCProcessObjects.h"

namespace {

using vc::CBstr;
using vc::ComPtr;
using vctest::CCountedUnknown;
using vctest::PropsValue;


// A slot name no earlier test (or repeat of this one) in the process used.
std::string FreshSlotName(const char* szBase) {
  static std::atomic<int> s_nNext{0};
  return std::string("KPropsTest.") + szBase + "." + std::to_string(s_nNext++);
}

TEST(KPropsProcessObjectsTest, FirstCandidateIsStoredAndReturnedToEveryone) {
  const std::string strName = FreshSlotName("first");
  auto* pFirst = new CCountedUnknown(0);  // held by the slot for the life of the process
  auto* pSecond = new CCountedUnknown(0);
  IUnknown* pResult = nullptr;
  ASSERT_EQ(vc::ProcessObjectExchange(strName.c_str(), pFirst, &pResult), S_OK);
  EXPECT_EQ(pResult, pFirst);
  pResult->Release();
  EXPECT_EQ(pFirst->Refs(), 1u);  // the slot's own reference

  ASSERT_EQ(vc::ProcessObjectExchange(strName.c_str(), pSecond, &pResult), S_OK);
  EXPECT_EQ(pResult, pFirst);
  pResult->Release();
  EXPECT_EQ(pSecond->Refs(), 0u);  // not taken
  delete pSecond;

  ASSERT_EQ(vc::ProcessObjectExchange(strName.c_str(), nullptr, &pResult), S_OK);
  EXPECT_EQ(pResult, pFirst);
  pResult->Release();
}

TEST(KPropsProcessObjectsTest, LookupOfEmptySlot_IsOneAndStoresNothing) {
  const std::string strName = FreshSlotName("empty");
  IUnknown* pResult = reinterpret_cast<IUnknown*>(1);
  EXPECT_EQ(vc::ProcessObjectExchange(strName.c_str(), nullptr, &pResult), S_FALSE);
  EXPECT_EQ(pResult, nullptr);
  auto* pLater = new CCountedUnknown(0);
  ASSERT_EQ(vc::ProcessObjectExchange(strName.c_str(), pLater, &pResult), S_OK);
  EXPECT_EQ(pResult, pLater);
  pResult->Release();
}

TEST(KPropsProcessObjectsTest, BadArguments_AreRefused) {
  CCountedUnknown candidate(0);
  IUnknown* pResult = nullptr;
  EXPECT_EQ(vc::ProcessObjectExchange("ok.name", &candidate, nullptr), E_POINTER);
  for (const char* szName : {static_cast<const char*>(nullptr), "", "bad\\name", "bad name",
                             "an.overly.long.name.that.goes.past.the.sixty.four.character.limit.x"}) {
    EXPECT_EQ(vc::ProcessObjectExchange(szName, &candidate, &pResult), E_INVALIDARG) << (szName ? szName : "null");
    EXPECT_EQ(pResult, nullptr);
  }
  EXPECT_EQ(candidate.Refs(), 0u);
}

TEST(KPropsProcessObjectsTest, ConcurrentFirstUse_AgreesOnOneObject) {
  const std::string strName = FreshSlotName("race");
  constexpr int kThreads = 8;
  std::vector<CCountedUnknown*> candidates;
  for (int i = 0; i < kThreads; ++i) candidates.push_back(new CCountedUnknown(0));
  std::vector<IUnknown*> results(kThreads, nullptr);
  std::atomic<bool> bGo{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      while (!bGo.load()) std::this_thread::yield();
      vc::ProcessObjectExchange(strName.c_str(), candidates[i], &results[i]);
    });
  }
  bGo = true;
  for (auto& t : threads) t.join();
  int nStored = 0;
  for (int i = 0; i < kThreads; ++i) {
    ASSERT_NE(results[i], nullptr);
    EXPECT_EQ(results[i], results[0]);
    results[i]->Release();
  }
  for (CCountedUnknown* p : candidates) {
    if (p->Refs() == 1u) ++nStored;
    else EXPECT_EQ(p->Refs(), 0u);
  }
  EXPECT_EQ(nStored, 1);
  for (CCountedUnknown* p : candidates)
    if (p->Refs() == 0u) delete p;
}

// --- The runtime target -----------------------------------------------------

class KPropsRuntimeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_cpRuntime = vc::RuntimeSettings();
    ASSERT_TRUE(m_cpRuntime);
    m_cpFacadeA = vctest::CreateTestFacade();
    m_cpFacadeB = vctest::CreateTestFacade();
    ASSERT_TRUE(m_cpFacadeA && m_cpFacadeB);
  }
  void TearDown() override {
    if (m_cpRuntime) vctest::PropsRemoveText(m_cpRuntime.Get(), "kpropstest");
  }

  ComPtr<IVCProps> m_cpRuntime;
  vctest::TestFacadePtr m_cpFacadeA;
  vctest::TestFacadePtr m_cpFacadeB;
};

TEST_F(KPropsRuntimeTest, RuntimeSettings_IsOneObjectPerProcess) {
  ComPtr<IUnknown> cpUnknown1, cpUnknown2;
  ASSERT_EQ(m_cpRuntime.As(&cpUnknown1), S_OK);
  ASSERT_EQ(vc::RuntimeSettings().As(&cpUnknown2), S_OK);
  EXPECT_EQ(cpUnknown1.Get(), cpUnknown2.Get());
  // It is the one published in the process slot.
  ComPtr<IUnknown> cpSlot;
  ASSERT_EQ(vc::ProcessObjectExchange(vc::kRuntimeSettingsSlot, nullptr, cpSlot.AddressOf()), S_OK);
  EXPECT_EQ(cpSlot.Get(), cpUnknown1.Get());
}

TEST_F(KPropsRuntimeTest, RuntimePrefix_ReachesTheOneObjectFromEveryFacade) {
  ASSERT_EQ(vctest::PropsSetText(m_cpFacadeA.Get(), "runtime::kpropstest::level", "3"), S_OK);
  EXPECT_EQ(PropsValue(m_cpFacadeB.Get(), "runtime::kpropstest::level"), "3");
  EXPECT_EQ(PropsValue(m_cpFacadeB.Get(), "RUNTIME::kpropstest::level"), "3");
  EXPECT_EQ(PropsValue(m_cpRuntime.Get(), "kpropstest::level"), "3");
  // Nothing of it lands in the facades' own trees, and their change
  // handlers are not involved.
  LONG nCount = -1;
  ASSERT_EQ(m_cpFacadeA->PropsGetCount(CBstr(""), &nCount), S_OK);
  EXPECT_EQ(nCount, 0);
  EXPECT_TRUE(m_cpFacadeA->Changes().empty());

  EXPECT_EQ(vctest::PropsRemoveText(m_cpFacadeB.Get(), "runtime::kpropstest::level"), S_OK);
  EXPECT_EQ(PropsValue(m_cpFacadeA.Get(), "runtime::kpropstest::level"), "<hr=1>");
}

TEST_F(KPropsRuntimeTest, RuntimeName_GoesToRuntimeObjectForAllButGet) {
  ASSERT_EQ(vctest::PropsSetText(m_cpFacadeA.Get(), "", "<props runtime='local'/>"), S_OK);
  ASSERT_EQ(vctest::PropsSetText(m_cpFacadeA.Get(), "Runtime", "<props><kpropstest merged='yes'/></props>"), S_OK);
  EXPECT_EQ(PropsValue(m_cpRuntime.Get(), "kpropstest::merged"), "yes");
  // PropsGet("runtime") stays local.
  EXPECT_EQ(PropsValue(m_cpFacadeA.Get(), "runtime"), "local");

  // Counting and enumerating "runtime" list the runtime object's root.
  LONG nRuntime = -1, nThroughFacade = -2;
  ASSERT_EQ(m_cpRuntime->PropsGetCount(CBstr(""), &nRuntime), S_OK);
  ASSERT_EQ(m_cpFacadeB->PropsGetCount(CBstr("runtime"), &nThroughFacade), S_OK);
  EXPECT_EQ(nThroughFacade, nRuntime);
  bool bListed = false;
  for (LONG i = 0; i < nThroughFacade; ++i) {
    CBstr bsName;
    ASSERT_EQ(m_cpFacadeB->PropsGetByIndex(CBstr("runtime"), i, &bsName, nullptr, nullptr), S_OK);
    bListed = bListed || bsName.Utf8() == "kpropstest";
  }
  EXPECT_TRUE(bListed);
}

TEST_F(KPropsRuntimeTest, RuntimeObject_KeepsRuntimeNamesInItsOwnTree) {
  // The runtime object does not route to itself: "runtime::x" is a path there.
  ASSERT_EQ(vctest::PropsSetText(m_cpRuntime.Get(), "kpropstest::runtime::x", "1"), S_OK);
  EXPECT_EQ(PropsValue(m_cpRuntime.Get(), "kpropstest::runtime::x"), "1");
  ASSERT_EQ(vctest::PropsSetText(m_cpRuntime.Get(), "runtime::kpropstest", "2"), S_OK);
  EXPECT_EQ(PropsValue(m_cpRuntime.Get(), "runtime::kpropstest"), "2");
  EXPECT_EQ(vctest::PropsRemoveText(m_cpRuntime.Get(), "runtime"), S_OK);
}

// A second copy of the property code: the core module's own, reached through
// one of its facades.
TEST_F(KPropsRuntimeTest, CoreModuleFacade_SharesTheRuntimeObjectOfThisExecutable) {
  const vc::String strModule = vc::FromUtf8(vctest::ModulePathInBin("Corvane.Codecs.Core.x64"));
  HMODULE hModule = LoadLibraryW(strModule.c_str());
  ASSERT_NE(hModule, nullptr);
  using PfnGetClassObject = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, LPVOID*);
  auto pfnGetClassObject =
      reinterpret_cast<PfnGetClassObject>(reinterpret_cast<void*>(GetProcAddress(hModule, "DllGetClassObject")));
  ASSERT_NE(pfnGetClassObject, nullptr);
  {
    ComPtr<IClassFactory> cpFactory;
    ASSERT_EQ(pfnGetClassObject(CLSID_VCDecoder, IID_IClassFactory, reinterpret_cast<void**>(cpFactory.AddressOf())),
              S_OK);
    ComPtr<IVCProps> cpModuleFacade;
    ASSERT_EQ(cpFactory->CreateInstance(nullptr, IID_IVCProps, reinterpret_cast<void**>(cpModuleFacade.AddressOf())),
              S_OK);

    ASSERT_EQ(vctest::PropsSetText(cpModuleFacade.Get(), "runtime::kpropstest::shared", "from-module"), S_OK);
    EXPECT_EQ(PropsValue(m_cpRuntime.Get(), "kpropstest::shared"), "from-module");
    ASSERT_EQ(vctest::PropsSetText(m_cpFacadeA.Get(), "runtime::kpropstest::back", "from-exe"), S_OK);
    EXPECT_EQ(PropsValue(cpModuleFacade.Get(), "runtime::kpropstest::back"), "from-exe");
  }
  FreeLibrary(hModule);
}

}  // namespace
