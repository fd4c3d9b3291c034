// CVCModule on its own: factories created once under racing threads, a
// registration that fails part-way and is cleaned up by DllInstall's logic,
// objects created from named sibling modules, and (Linux) two processes
// registering different modules at once.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <thread>
#include <vector>

#if !defined(_WIN32)
#include <sys/wait.h>
#include <unistd.h>
#endif

#include "CoVCMuxer.h"
#include "CoVCSplitter.h"
#include "TestEnvironment.h"
#include "VCCodecsCore.h"
#include "VCModule.h"
#include "VCStrings.h"

namespace {

using vc::CVCModule;
using vc::String;

const CLSID kTestObjectClsid = vc::MakeGuid("7D6F0A51-3C2B-4E8D-9A47-1B5C9E2F6A30");

std::vector<vc::VCClassRow> CoreRows() {
  return {{&CLSID_VCSplitter, "VCSplitter", "VCSplitter Class", vc::IDR_VCSPLITTER,
           &vc::CreateObject<vc::CCoVCSplitter>},
          {&CLSID_VCMuxer, "VCMuxer", "VCMuxer Class", vc::IDR_VCMUXER, &vc::CreateObject<vc::CCoVCMuxer>}};
}

TEST(VCModuleFactory, RacingThreadsOnAFreshModuleShareOneFactory) {
  // The race only exists on the first request, so repeat it on fresh modules.
  for (int round = 0; round < 50; ++round) {
    CVCModule module(CoreRows(), &vc::LoadRegistryScriptResource);
    IClassFactory* seen[4] = {};
    std::atomic<int> nReady{0};
    std::vector<std::thread> threads;
    for (auto& slot : seen) {
      threads.emplace_back([&, pSlot = &slot] {
        ++nReady;
        while (nReady.load() < 4) std::this_thread::yield();
        module.GetClassObject(CLSID_VCMuxer, IID_IClassFactory, reinterpret_cast<void**>(pSlot));
      });
    }
    for (auto& t : threads) t.join();
    for (IClassFactory* p : seen) {
      ASSERT_NE(p, nullptr);
      EXPECT_EQ(p, seen[0]) << "round " << round;
    }
    for (IClassFactory* p : seen) p->Release();
  }
}

class VCModuleInstallTest : public ::testing::Test {
 protected:
  static constexpr int kBrokenScript = 999;
  static constexpr const char* kBrokenClsid = "{96EB1CFF-4CC0-4830-9CC3-F064196B2626}";

  // The splitter and muxer scripts as shipped, then a third script that
  // writes its class key and fails on the next one (a key name the registry
  // refuses), so the run stops part-way through.
  static std::string Loader(int nResource) {
    if (nResource != kBrokenScript) return vc::LoadRegistryScriptResource(nResource);
    return std::string("HKCR\r\n{\r\n\tNoRemove CLSID\r\n\t{\r\n\t\tForceRemove ") + kBrokenClsid +
           " = s 'Broken Class'\r\n\t\t{\r\n\t\t\tInprocServer32 = s '%MODULE%'\r\n\t\t}\r\n"
           "\t\t'\\Broken' = s 'refused'\r\n\t}\r\n}\r\n";
  }

  std::vector<vc::VCClassRow> Rows() {
    auto rows = CoreRows();
    static const CLSID clsidBroken = vc::MakeGuid("96EB1CFF-4CC0-4830-9CC3-F064196B2626");
    rows.push_back({&clsidBroken, "Broken", "Broken Class", kBrokenScript, &vc::CreateObject<vc::CCoVCMuxer>});
    return rows;
  }

  static bool AnyTrace(HKEY hRoot) {
    for (const std::string& clsid : {vc::GuidToUtf8(CLSID_VCSplitter), vc::GuidToUtf8(CLSID_VCMuxer),
                                     std::string(kBrokenClsid)})
      if (vctest::RegKeyExists(hRoot, "Software\\Classes\\CLSID\\" + clsid)) return true;
    return false;
  }
};

TEST_F(VCModuleInstallTest, InstallFailingPartWay_LeavesNoEntriesBehind) {
  for (const OLECHAR* szCmd : {static_cast<const OLECHAR*>(nullptr), W("User")}) {
    CVCModule module(Rows(), &Loader, false);
    const HRESULT hr = module.Install(TRUE, szCmd);
    EXPECT_TRUE(FAILED(hr)) << std::hex << hr;
    EXPECT_FALSE(AnyTrace(HKEY_LOCAL_MACHINE));
    EXPECT_FALSE(AnyTrace(HKEY_CURRENT_USER));
    EXPECT_FALSE(module.PerUser()) << "the per-user choice lasts for one call";
  }
}

TEST_F(VCModuleInstallTest, RegisterServerFailingPartWay_LeavesWhatItWroteForTheCallerToRemove) {
  CVCModule module(Rows(), &Loader, false);
  EXPECT_TRUE(FAILED(module.RegisterServer()));
  EXPECT_TRUE(vctest::RegKeyExists(HKEY_LOCAL_MACHINE, std::string("Software\\Classes\\CLSID\\") + kBrokenClsid))
      << "the third script got as far as its class key";
  module.UnregisterServer();
  EXPECT_FALSE(AnyTrace(HKEY_LOCAL_MACHINE));
}

class CreateFromModuleTest : public ::testing::Test {
 protected:
  static String Name(const std::string& base) { return vc::FromUtf8(base + VC_MODULE_SUFFIX); }

  HRESULT Create(const String& strModule, REFCLSID clsid, std::string* pstrPath = nullptr) {
    IUnknown* pUnk = nullptr;
    BSTR bsPath = nullptr;
    const HRESULT hr = m_module.CreateFromModule(strModule.c_str(), clsid, IID_IUnknown,
                                                 reinterpret_cast<void**>(&pUnk), &bsPath);
    if (pUnk) pUnk->Release();
    if (pstrPath) *pstrPath = bsPath ? vc::ToUtf8(vc::StringView(bsPath, SysStringLen(bsPath))) : std::string();
    SysFreeString(bsPath);
    return hr;
  }

  CVCModule m_module{CoreRows(), &vc::LoadRegistryScriptResource};
};

TEST_F(CreateFromModuleTest, ModuleByFileName_CreatesTheClass) {
  std::string strPath;
  EXPECT_EQ(Create(Name("Corvane.Test.Objects.x64"), kTestObjectClsid, &strPath), S_OK);
  EXPECT_NE(strPath.find("Corvane.Test.Objects.x64"), std::string::npos) << strPath;
}

TEST_F(CreateFromModuleTest, NameWithoutPrefix_IsRetriedWithCorvanePrefix) {
  std::string strPath;
  ASSERT_EQ(Create(Name("Test.Objects.x64"), kTestObjectClsid, &strPath), S_OK);
  const auto slash = strPath.find_last_of("/\\");
  EXPECT_EQ(strPath.substr(slash + 1), std::string("Corvane.Test.Objects.x64") + VC_MODULE_SUFFIX);
}

TEST_F(CreateFromModuleTest, MissingModule_IsFileNotFound) {
  EXPECT_EQ(Create(Name("Corvane.Nowhere.x64"), kTestObjectClsid), static_cast<HRESULT>(0x80070002u));
  EXPECT_EQ(Create(Name("Nowhere.x64"), kTestObjectClsid), static_cast<HRESULT>(0x80070002u));
}

TEST_F(CreateFromModuleTest, LoaderErrorModeIsRestoredAfterTheSearch) {
  const UINT uMine = SEM_FAILCRITICALERRORS;
  const UINT uOriginal = SetErrorMode(uMine);
  EXPECT_EQ(Create(Name("Corvane.Nowhere.x64"), kTestObjectClsid), static_cast<HRESULT>(0x80070002u));
  EXPECT_EQ(Create(Name("Corvane.Test.Objects.x64"), kTestObjectClsid), S_OK);
  EXPECT_EQ(SetErrorMode(uOriginal), uMine);
}

TEST_F(CreateFromModuleTest, ModuleWithoutClassObjectEntry_IsProcedureNotFound) {
  EXPECT_EQ(Create(Name("Corvane.Test.NoEntry.x64"), kTestObjectClsid), static_cast<HRESULT>(0x8007007Fu));
}

TEST_F(CreateFromModuleTest, ClassTheModuleDoesNotServe_PassesTheModulesAnswer) {
  EXPECT_EQ(Create(Name("Corvane.Test.Objects.x64"), CLSID_VCSplitter), CLASS_E_CLASSNOTAVAILABLE);
}

TEST_F(CreateFromModuleTest, SecondRequest_ReusesTheCachedHandle) {
  // Load a private copy by its full path, take the file away, then ask again
  // with the name in other letter case: only the cached handle can answer.
  namespace fs = std::filesystem;
  const fs::path dir = fs::temp_directory_path() / ("vctests-cache-" + std::to_string(GetCurrentProcessId()));
  fs::create_directories(dir);
  const fs::path copy = dir / (std::string("Corvane.Cached.x64") + VC_MODULE_SUFFIX);
  fs::copy_file(vctest::ModulePathInBin("Corvane.Test.Objects.x64"), copy, fs::copy_options::overwrite_existing);
  const std::string strCopy = copy.string();

  std::string strPath1, strPath2;
  ASSERT_EQ(Create(vc::FromUtf8(strCopy), kTestObjectClsid, &strPath1), S_OK);
  std::error_code ec;
  fs::rename(copy, dir / "moved-away", ec);
  ASSERT_FALSE(ec) << ec.message();

  std::string strUpper = strCopy;
  for (char& c : strUpper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  EXPECT_EQ(Create(vc::FromUtf8(strUpper), kTestObjectClsid, &strPath2), S_OK);
  EXPECT_EQ(strPath2, strPath1);
#if !defined(_WIN32)
  // A module instance without the cache entry cannot find it any more (the
  // Windows loader would still know the loaded module by its old path).
  CVCModule other(CoreRows(), &vc::LoadRegistryScriptResource);
  IUnknown* pUnk = nullptr;
  const String strUpperW = vc::FromUtf8(strUpper);
  EXPECT_EQ(other.CreateFromModule(strUpperW.c_str(), kTestObjectClsid, IID_IUnknown,
                                   reinterpret_cast<void**>(&pUnk), nullptr),
            static_cast<HRESULT>(0x80070002u));
#endif
  fs::remove_all(dir, ec);
}

#if !defined(_WIN32)
TEST(VCModuleRegistration, TwoProcessesRegisteringDifferentModulesAtOnceLoseNoKey) {
  using PfnVoid = HRESULT (*)();
  auto child = [](const char* szModule, const char* szEntry) -> int {
    HMODULE h = LoadLibraryW(vc::FromUtf8(vctest::ModulePathInBin(szModule)).c_str());
    if (!h) return 10;
    auto pfn = reinterpret_cast<PfnVoid>(GetProcAddress(h, szEntry));
    if (!pfn) return 11;
    for (int i = 0; i < 15; ++i) {
      if (FAILED(pfn())) return 12;
    }
    return 0;
  };
  const pid_t a = fork();
  if (a == 0) _exit(child("Corvane.Codecs.Core.x64", "DllRegisterServer"));
  const pid_t b = fork();
  if (b == 0) _exit(child("Corvane.Test.Objects.x64", "DllRegisterServer"));
  int statusA = 0, statusB = 0;
  waitpid(a, &statusA, 0);
  waitpid(b, &statusB, 0);
  ASSERT_TRUE(WIFEXITED(statusA) && WEXITSTATUS(statusA) == 0) << statusA;
  ASSERT_TRUE(WIFEXITED(statusB) && WEXITSTATUS(statusB) == 0) << statusB;

  for (const CLSID* p : {&CLSID_VCSplitter, &CLSID_VCDecoder, &CLSID_VCEncoder, &CLSID_VCMuxer, &kTestObjectClsid}) {
    std::string strServer;
    EXPECT_TRUE(vctest::RegReadString(HKEY_CLASSES_ROOT, "CLSID\\" + vc::GuidToUtf8(*p) + "\\InprocServer32",
                                      nullptr, &strServer))
        << vc::GuidToUtf8(*p);
  }
  vctest::RegRemoveTree(HKEY_LOCAL_MACHINE, "Software\\Classes\\CLSID");
  vctest::RegRemoveTree(HKEY_LOCAL_MACHINE, "Software\\Classes\\TypeLib");
}
#endif

}  // namespace
