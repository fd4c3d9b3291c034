// Named attachments of packets (and frames): kinds, order, replacement,
// aliasing, object references, copying, and the packet's IVCSideData.
#include <gtest/gtest.h>

#include <cstring>

#include "CountedUnknown.h"
#include "VCCodecs/VCAttachments.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCCodecs/VCPacket.h"
#include "VCSideData.h"

namespace {

LONGLONG Addr(const void* p) { return static_cast<LONGLONG>(reinterpret_cast<uintptr_t>(p)); }


TEST(VCAttachmentsTest, EntriesKeepFirstSetOrderAndKindsReplaceEachOther) {
  vc::CKAttachments store;
  const uint8_t bytes[] = {1, 2, 3};
  ASSERT_EQ(store.SetData(vc::CBstr(W("a")), 3, Addr(bytes)), S_OK);
  ASSERT_EQ(store.SetString(vc::CBstr(W("b")), vc::CBstr(W("hi"))), S_OK);
  ASSERT_EQ(store.SetData(vc::CBstr(W("c")), 0, 0), S_OK);
  // Setting "a" again as a string keeps its place and changes its kind.
  ASSERT_EQ(store.SetString(vc::CBstr(W("a")), vc::CBstr(W("xyz"))), S_OK);

  LONG nCount = 0;
  ASSERT_EQ(store.GetCount(&nCount), S_OK);
  ASSERT_EQ(nCount, 3);
  vc::CBstr bsName;
  LONG cb = -1;
  LONGLONG lp = 0;
  ASSERT_EQ(store.GetByIndex(0, &bsName, &cb, &lp), S_OK);
  EXPECT_EQ(vc::String(bsName.Get()), W("a"));
  ASSERT_EQ(cb, 6);  // three UTF-16 code units
  EXPECT_EQ(std::memcmp(reinterpret_cast<const void*>(lp), W("xyz"), 6), 0);
  LONG cbData = 0;
  EXPECT_EQ(store.GetData(vc::CBstr(W("a")), &cbData, &lp), E_INVALIDARG);  // a string now
  EXPECT_EQ(store.GetData(vc::CBstr(W("zz")), &cbData, &lp), vc::VC_E_EMPTY);
  EXPECT_EQ(store.GetByIndex(3, nullptr, &cb, &lp), E_INVALIDARG);
  vc::CKAttachments::eKind eKind{};
  ASSERT_TRUE(store.KindAt(2, &eKind));
  EXPECT_EQ(eKind, vc::CKAttachments::eKind::Data);
}

TEST(VCAttachmentsTest, DataSetFromItsOwnBytesAndBadArguments) {
  vc::CKAttachments store;
  const uint8_t bytes[] = {9, 8, 7, 6};
  ASSERT_EQ(store.SetData(vc::CBstr(W("d")), 4, Addr(bytes)), S_OK);
  LONG cb = 0;
  LONGLONG lp = 0;
  ASSERT_EQ(store.GetData(vc::CBstr(W("d")), &cb, &lp), S_OK);
  // Re-setting the entry from a view of its own bytes must copy first.
  ASSERT_EQ(store.SetData(vc::CBstr(W("d")), 2, lp + 2), S_OK);
  ASSERT_EQ(store.GetData(vc::CBstr(W("d")), &cb, &lp), S_OK);
  ASSERT_EQ(cb, 2);
  EXPECT_EQ(reinterpret_cast<const uint8_t*>(lp)[0], 7);
  EXPECT_EQ(reinterpret_cast<const uint8_t*>(lp)[1], 6);

  EXPECT_EQ(store.SetData(vc::CBstr(W("d")), -1, Addr(bytes)), E_INVALIDARG);
  EXPECT_EQ(store.SetData(vc::CBstr(W("d")), 4, 0), E_POINTER);
  EXPECT_EQ(store.GetCount(nullptr), E_POINTER);
  EXPECT_EQ(store.Remove(vc::CBstr(W("d"))), S_OK);
  EXPECT_EQ(store.Remove(vc::CBstr(W("d"))), S_FALSE);
}

TEST(VCAttachmentsTest, ObjectsAreHeldByReferenceAndReleasedOnRemoveAndCopiedByReference) {
  vctest::CCountedUnknown object;
  {
    vc::CKAttachments store;
    ASSERT_EQ(store.SetObject(vc::CBstr(W("o")), &object), S_OK);
    EXPECT_EQ(object.Refs(), 2u);
    vc::CKAttachments copy;
    ASSERT_EQ(copy.CopyFrom(store), S_OK);
    EXPECT_EQ(object.Refs(), 3u);
    IUnknown* pOut = nullptr;
    ASSERT_EQ(copy.GetObject(vc::CBstr(W("o")), &pOut), S_OK);
    EXPECT_EQ(pOut, &object);
    pOut->Release();
    LONG cb = -1;
    LONGLONG lp = -1;
    ASSERT_EQ(copy.GetByIndex(0, nullptr, &cb, &lp), S_OK);
    EXPECT_EQ(cb, 0);
    EXPECT_EQ(lp, 0);
    // A null object removes the entry and its reference.
    ASSERT_EQ(store.SetObject(vc::CBstr(W("o")), nullptr), S_OK);
    EXPECT_EQ(object.Refs(), 2u);
  }
  EXPECT_EQ(object.Refs(), 1u);  // the copy let go when it went
}

TEST(VCAttachmentsTest, PacketCarriesAttachmentsThroughIVCSideData) {
  vc::ComPtr<IVCPacket> cpPacket;
  ASSERT_EQ(vc::CreateVCPacket(nullptr, nullptr, nullptr, nullptr, 0, cpPacket.AddressOf()), S_OK);
  vc::ComPtr<IVCSideData> cpSide;
  ASSERT_EQ(cpPacket.As(&cpSide), S_OK);
  ASSERT_EQ(cpSide->SideDataStrSet(0, vc::CBstr(W("caption")), vc::CBstr(W("hello"))), S_OK);
  vc::CBstr bsValue;
  ASSERT_EQ(cpSide->SideDataStrGet(-1, vc::CBstr(W("caption")), &bsValue), S_OK);  // one set, any stream
  EXPECT_EQ(vc::String(bsValue.Get()), W("hello"));
  LONG nCount = 0;
  ASSERT_EQ(cpSide->SideDataGetCount(0, &nCount), S_OK);
  EXPECT_EQ(nCount, 1);
}

}  // namespace

namespace {

TEST(VCStreamListTest, NumbersSeparatedByAnythingElseInOrderWithoutRepeats) {
  EXPECT_EQ(vc::ParseStreamList(W("0,1")), (std::vector<LONG>{0, 1}));
  EXPECT_EQ(vc::ParseStreamList(W(" 3 1;3 -2 ")), (std::vector<LONG>{3, 1, 2}));
  EXPECT_EQ(vc::ParseStreamList(W("99999999999,4")), (std::vector<LONG>{4}));  // beyond int32: skipped
  EXPECT_TRUE(vc::ParseStreamList(W("")).empty());
  EXPECT_TRUE(vc::ParseStreamList(nullptr).empty());
}

}  // namespace
