// The general media module as a host reaches it: loaded by class identifier
// through the runtime (the manifest next to the module), every class created.
#include <gtest/gtest.h>

#include "FFClasses.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"

namespace {

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
