// The component runtime as modules and hosts use it: BSTRs, GUID text,
// module loading errors, and (Linux) activation through the manifest and the
// registry, with the registry winning when both know a class.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>

#if !defined(_WIN32)
#include <dlfcn.h>
#include <stdlib.h>
#endif

#include "TestEnvironment.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCObject.h"
#include "VCStrings.h"

namespace {

TEST(RuntimeBstr, LengthPrefixKeepsEmbeddedZerosAndOddByteLengths) {
  const OLECHAR text[] = {'a', 0, 'b', 0};
  BSTR bs = SysAllocStringLen(text, 3);
  ASSERT_NE(bs, nullptr);
  EXPECT_EQ(SysStringLen(bs), 3u);
  EXPECT_EQ(SysStringByteLen(bs), 6u);
  EXPECT_EQ(bs[1], 0);
  EXPECT_EQ(bs[3], 0) << "terminated after the stated length";
  SysFreeString(bs);

  BSTR bsBytes = SysAllocStringByteLen("abc", 3);
  ASSERT_NE(bsBytes, nullptr);
  EXPECT_EQ(SysStringByteLen(bsBytes), 3u);
  EXPECT_EQ(SysStringLen(bsBytes), 1u);
  EXPECT_EQ(std::memcmp(bsBytes, "abc", 4), 0) << "zero byte after the data";
  SysFreeString(bsBytes);

  EXPECT_EQ(SysAllocString(nullptr), nullptr);
  EXPECT_EQ(SysStringLen(nullptr), 0u);
  SysFreeString(nullptr);

  BSTR bsEmpty = SysAllocString(W(""));
  ASSERT_NE(bsEmpty, nullptr) << "an empty string is not a null one";
  EXPECT_EQ(SysStringLen(bsEmpty), 0u);
  ASSERT_TRUE(SysReAllocString(&bsEmpty, W("longer text")));
  EXPECT_EQ(SysStringLen(bsEmpty), 11u);
  SysFreeString(bsEmpty);
}

TEST(RuntimeBstr, OwnerConvertsUtf8BothWays) {
  vc::CBstr bs(std::string_view("Gr\xC3\xBC\xC3\x9F" "e \xF0\x9F\x8E\xAC"));
  EXPECT_EQ(bs.Length(), 8u) << "the clapper board is a surrogate pair";
  EXPECT_EQ(bs.Utf8(), "Gr\xC3\xBC\xC3\x9F" "e \xF0\x9F\x8E\xAC");
}

TEST(RuntimeGuid, TextRoundTripMatchesCompileTimeParsing) {
  constexpr GUID g = vc::MakeGuid("96EB1C14-4CC0-4830-9CC3-F064196B2626");
  OLECHAR buf[39];
  ASSERT_EQ(StringFromGUID2(g, buf, 39), 39);
  EXPECT_EQ(vc::ToUtf8(buf), "{96EB1C14-4CC0-4830-9CC3-F064196B2626}");
  EXPECT_EQ(StringFromGUID2(g, buf, 38), 0) << "no room for the terminating zero";
  CLSID parsed{};
  ASSERT_EQ(CLSIDFromString(W("{96eb1c14-4cc0-4830-9cc3-f064196b2626}"), &parsed), S_OK);
  EXPECT_TRUE(IsEqualGUID(parsed, g));
  EXPECT_EQ(vc::GuidToUtf8(g), "{96EB1C14-4CC0-4830-9CC3-F064196B2626}");
  EXPECT_FALSE(vc::GuidFromString(vc::FromUtf8("{96EB1C14-4CC0-4830-9CC3-F064196B262}"), &parsed));
  EXPECT_FALSE(vc::GuidFromString(vc::FromUtf8("{96EB1C14+4CC0-4830-9CC3-F064196B2626}"), &parsed));
  EXPECT_FALSE(vc::GuidFromString(vc::FromUtf8("{96EB1C14-4CC0-4830-9CC3-F064196B262G}"), &parsed));
}

TEST(RuntimeModules, LoadErrorsCarryThePlatformNumbers) {
  SetLastError(0);
  EXPECT_EQ(LoadLibraryW(W("Corvane.Does.Not.Exist.x64" VC_MODULE_SUFFIX)), nullptr);
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_MOD_NOT_FOUND));

  const vc::String strNoEntry = vc::FromUtf8(vctest::ModulePathInBin("Corvane.Test.NoEntry.x64"));
  HMODULE h = LoadLibraryW(strNoEntry.c_str());
  ASSERT_NE(h, nullptr);
  SetLastError(0);
  EXPECT_EQ(GetProcAddress(h, "DllGetClassObject"), nullptr);
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PROC_NOT_FOUND));
  EXPECT_NE(GetProcAddress(h, "VCTestNoEntryMarker"), nullptr);

  OLECHAR buf[4096];
  const DWORD n = GetModuleFileNameW(h, buf, 4096);
  ASSERT_GT(n, 0u);
  EXPECT_TRUE(std::filesystem::equivalent(std::filesystem::path(vc::ToUtf8(vc::StringView(buf, n))),
                                          std::filesystem::path(vc::ToUtf8(strNoEntry))));
  EXPECT_EQ(GetModuleFileNameW(h, buf, 4), 4u) << "truncated names fill the buffer";
  FreeLibrary(h);
}

TEST(RuntimeActivation, UnknownClassIsNotRegistered) {
  IUnknown* pUnk = reinterpret_cast<IUnknown*>(0x1);
  EXPECT_EQ(CoCreateInstance(vc::MakeGuid("00000000-1234-4321-8888-000000000001"), nullptr, CLSCTX_INPROC_SERVER,
                             IID_IUnknown, reinterpret_cast<void**>(&pUnk)),
            REGDB_E_CLASSNOTREG);
  EXPECT_EQ(pUnk, nullptr);
}

#if !defined(_WIN32)

// The module file that holds an object's code, found from its vtable.
std::string ModuleOfObject(IUnknown* p) {
  Dl_info info{};
  void* vtbl = *reinterpret_cast<void**>(p);
  if (!dladdr(vtbl, &info) || !info.dli_fname) return {};
  return std::filesystem::weakly_canonical(info.dli_fname).string();
}

TEST(RuntimeActivation, ManifestServesClassesWithoutRegistration) {
  ASSERT_FALSE(vctest::RegKeyExists(HKEY_CLASSES_ROOT, "CLSID\\" + vc::GuidToUtf8(CLSID_VCDecoder)));
  vc::ComPtr<IVCDecoder> cp;
  ASSERT_EQ(CoCreateInstance(CLSID_VCDecoder, nullptr, CLSCTX_INPROC_SERVER, IID_IVCDecoder,
                             reinterpret_cast<void**>(cp.AddressOf())),
            S_OK);
  EXPECT_EQ(ModuleOfObject(cp.Get()),
            std::filesystem::weakly_canonical(vctest::ModulePathInBin("Corvane.Codecs.Core.x64")).string());
}

TEST(RuntimeActivation, ExtraManifestFromEnvironmentIsRead) {
  namespace fs = std::filesystem;
  const fs::path dir = fs::temp_directory_path() / ("vctests-manifest-" + std::to_string(GetCurrentProcessId()));
  fs::create_directories(dir);
  const fs::path manifest = dir / "extra.manifest";
  {
    FILE* f = std::fopen(manifest.c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fprintf(f, "# test classes\n{7D6F0A51-3C2B-4E8D-9A47-1B5C9E2F6A30} %s\n",
                 vctest::ModulePathInBin("Corvane.Test.Objects.x64").c_str());
    std::fclose(f);
  }
  setenv("CORVANE_MANIFEST", manifest.c_str(), 1);
  vc::ComPtr<IUnknown> cp;
  const HRESULT hr = CoCreateInstance(vc::MakeGuid("7D6F0A51-3C2B-4E8D-9A47-1B5C9E2F6A30"), nullptr,
                                      CLSCTX_INPROC_SERVER, IID_IUnknown, reinterpret_cast<void**>(cp.AddressOf()));
  unsetenv("CORVANE_MANIFEST");
  EXPECT_EQ(hr, S_OK);
  std::error_code ec;
  fs::remove_all(dir, ec);
}

TEST(RuntimeActivation, RegistryWinsOverTheManifest) {
  // Register a private copy of the core module for the muxer class: the
  // object must come from the copy, not from the module the manifest names.
  namespace fs = std::filesystem;
  const fs::path dir = fs::temp_directory_path() / ("vctests-regwins-" + std::to_string(GetCurrentProcessId()));
  fs::create_directories(dir);
  const fs::path copy = dir / (std::string("Corvane.Codecs.Core.x64") + VC_MODULE_SUFFIX);
  fs::copy_file(vctest::ModulePathInBin("Corvane.Codecs.Core.x64"), copy, fs::copy_options::overwrite_existing);
  const std::string strKey = "Software\\Classes\\CLSID\\" + vc::GuidToUtf8(CLSID_VCMuxer);
  ASSERT_TRUE(vctest::RegWriteString(HKEY_CURRENT_USER, strKey + "\\InprocServer32", nullptr, copy.string()));

  vc::ComPtr<IVCMuxer> cp;
  ASSERT_EQ(CoCreateInstance(CLSID_VCMuxer, nullptr, CLSCTX_INPROC_SERVER, IID_IVCMuxer,
                             reinterpret_cast<void**>(cp.AddressOf())),
            S_OK);
  EXPECT_EQ(ModuleOfObject(cp.Get()), fs::weakly_canonical(copy).string());
  cp = nullptr;
  vctest::RegRemoveTree(HKEY_CURRENT_USER, strKey);
  std::error_code ec;
  fs::remove_all(dir, ec);
}

#endif  // !_WIN32

}  // namespace
