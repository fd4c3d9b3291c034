// The general media module as a host reaches it: loaded by class identifier
// through the runtime (the manifest next to the module), every class created,
// and registered and removed per user from the scripts its class table makes.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "FFClasses.h"
#include "TestEnvironment.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCStrings.h"

namespace {

std::string UserClassKey(const vc::VCClassTableEntry& entry) {
  return "Software\\Classes\\CLSID\\" + vc::GuidToUtf8(entry.clsid);
}

TEST(FFModuleTest, EveryClassOfTheTable_CreatesThroughTheManifest) {
  for (const vc::VCClassTableEntry& entry : vc::ff::kFFClassTable) {
    vc::ComPtr<IUnknown> cpUnknown;
    EXPECT_EQ(CoCreateInstance(entry.clsid, nullptr, CLSCTX_INPROC_SERVER, vc::IidOf<IUnknown>(),
                               reinterpret_cast<void**>(cpUnknown.AddressOf())),
              S_OK)
        << entry.szName;
  }
}

TEST(FFModuleTest, InstallUser_WritesEveryClassOfTheTableAndRemovalTakesThemAway) {
  const std::string strModule = vctest::ModulePathInBin("Corvane.Codecs.FFmpeg.x64");
  HMODULE hModule = LoadLibraryW(vc::FromUtf8(strModule).c_str());
  ASSERT_NE(hModule, nullptr) << strModule;
  using PfnInstall = HRESULT(STDAPICALLTYPE*)(BOOL, LPCWSTR);
  const auto pfnInstall = reinterpret_cast<PfnInstall>(reinterpret_cast<void*>(GetProcAddress(hModule, "DllInstall")));
  ASSERT_NE(pfnInstall, nullptr);

  ASSERT_EQ(pfnInstall(TRUE, W("user")), S_OK);
  for (const vc::VCClassTableEntry& entry : vc::ff::kFFClassTable) {
    SCOPED_TRACE(entry.szName);
    std::string strValue;
    ASSERT_TRUE(vctest::RegReadString(HKEY_CURRENT_USER, UserClassKey(entry), nullptr, &strValue));
    EXPECT_EQ(strValue, entry.szDescription);
    ASSERT_TRUE(vctest::RegReadString(HKEY_CURRENT_USER, UserClassKey(entry) + "\\InprocServer32", nullptr, &strValue));
    std::replace(strValue.begin(), strValue.end(), '\\', '/');
    EXPECT_EQ(strValue, strModule);
    ASSERT_TRUE(vctest::RegReadString(HKEY_CURRENT_USER, UserClassKey(entry) + "\\InprocServer32", "ThreadingModel",
                                      &strValue));
    EXPECT_EQ(strValue, "Both");
  }

  ASSERT_EQ(pfnInstall(FALSE, W("user")), S_OK);
  for (const vc::VCClassTableEntry& entry : vc::ff::kFFClassTable)
    EXPECT_FALSE(vctest::RegKeyExists(HKEY_CURRENT_USER, UserClassKey(entry))) << entry.szName;
  EXPECT_TRUE(vctest::RegKeyExists(HKEY_CURRENT_USER, "Software\\Classes\\CLSID"));
}

TEST(FFModuleTest, PacketClassCreatesThroughTheRuntime) {
  vc::ComPtr<IVCPacket> cpPacket;
  ASSERT_EQ(CoCreateInstance(vc::ff::CLSID_FFPacket, nullptr, CLSCTX_INPROC_SERVER, vc::IidOf<IVCPacket>(),
                             reinterpret_cast<void**>(cpPacket.AddressOf())),
            S_OK);
  K_PACKET_INFO info{};
  EXPECT_EQ(cpPacket->PacketInfoGet(&info), S_OK);
  EXPECT_EQ(info.cbPacketData, 0);
}

TEST(FFModuleTest, PacketClassRefusesAggregation) {
  vc::ComPtr<IUnknown> cpUnknown;
  IUnknown* pOuter = reinterpret_cast<IUnknown*>(&cpUnknown);  // never called: refused first
  EXPECT_EQ(CoCreateInstance(vc::ff::CLSID_FFPacket, pOuter, CLSCTX_INPROC_SERVER, vc::IidOf<IUnknown>(),
                             reinterpret_cast<void**>(cpUnknown.AddressOf())),
            CLASS_E_NOAGGREGATION);
}

}  // namespace
