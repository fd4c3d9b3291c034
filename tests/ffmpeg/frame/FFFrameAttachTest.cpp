// The frame's named attachments: three separate sets (data, strings,
// objects), walked by index in the order names were first set, replaced in
// place, removed by null values.
#include <gtest/gtest.h>

#include <vector>

#include "FFTestFrames.h"
#include "FFClasses.h"
#include "FFMemoryStream.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCStrings.h"

namespace {

using vc::CBstr;
using vc::ComPtr;
using namespace vc::ff;

const HRESULT kHrEmpty = HRESULT_FROM_WIN32(ERROR_EMPTY);

using vc::fftest::NewFrame;

HRESULT SetData(IVCFrame* pFrame, const char16_t* pszName, const std::vector<uint8_t>& vec) {
  CBstr bsName(pszName);
  return pFrame->VCDataSet(bsName, static_cast<LONG>(vec.size()), reinterpret_cast<LONGLONG>(vec.data()));
}

std::vector<std::u16string> DataNames(IVCFrame* pFrame) {
  std::vector<std::u16string> vec;
  for (LONG i = 0;; ++i) {
    CBstr bsName;
    const HRESULT hr = pFrame->VCDataGetByIndex(i, &bsName, nullptr, nullptr);
    if (hr != S_OK) {
      EXPECT_EQ(hr, S_FALSE);
      break;
    }
    vec.emplace_back(bsName.View());
  }
  return vec;
}

ULONG RefCount(IUnknown* p) {
  p->AddRef();
  return p->Release();
}

TEST(FFFrameAttachTest, DataKeepsFirstSetOrderAndReplacesInPlace) {
  ComPtr<IVCFrame> cpFrame = NewFrame();
  ASSERT_EQ(SetData(cpFrame.Get(), u"b", {1}), S_OK);
  ASSERT_EQ(SetData(cpFrame.Get(), u"a", {2, 2}), S_OK);
  ASSERT_EQ(SetData(cpFrame.Get(), u"c", {3, 3, 3}), S_OK);
  ASSERT_EQ(SetData(cpFrame.Get(), u"b", {4, 4, 4, 4}), S_OK);
  EXPECT_EQ(DataNames(cpFrame.Get()), (std::vector<std::u16string>{u"b", u"a", u"c"}));
  LONG cb = 0;
  LONGLONG ll = 0;
  ASSERT_EQ(cpFrame->VCDataGetByIndex(0, nullptr, &cb, &ll), S_OK);
  EXPECT_EQ(cb, 4);
  EXPECT_EQ(reinterpret_cast<const uint8_t*>(ll)[3], 4);

  // Removal: a null address with size 0; the others move up.
  CBstr bsA(u"a");
  ASSERT_EQ(cpFrame->VCDataSet(bsA, 0, 0), S_OK);
  EXPECT_EQ(cpFrame->VCDataSet(bsA, 0, 0), S_FALSE);
  EXPECT_EQ(DataNames(cpFrame.Get()), (std::vector<std::u16string>{u"b", u"c"}));
  EXPECT_EQ(cpFrame->VCDataGet(bsA, &cb, &ll), kHrEmpty);
  EXPECT_EQ(cb, 0);
  // Names are exact.
  CBstr bsUpper(u"B");
  EXPECT_EQ(cpFrame->VCDataGet(bsUpper, &cb, &ll), kHrEmpty);
}

TEST(FFFrameAttachTest, DataArgumentsAreChecked) {
  ComPtr<IVCFrame> cpFrame = NewFrame();
  const uint8_t b = 1;
  CBstr bsName(u"x");
  EXPECT_EQ(cpFrame->VCDataSet(nullptr, 1, reinterpret_cast<LONGLONG>(&b)), E_INVALIDARG);
  EXPECT_EQ(cpFrame->VCDataSet(bsName, -1, reinterpret_cast<LONGLONG>(&b)), E_INVALIDARG);
  EXPECT_EQ(cpFrame->VCDataSet(bsName, 1, 0), E_POINTER);
  EXPECT_EQ(cpFrame->VCDataGetByIndex(-1, nullptr, nullptr, nullptr), E_INVALIDARG);
  CBstr bsOut;
  LONG cb = 7;
  EXPECT_EQ(cpFrame->VCDataGetByIndex(0, &bsOut, &cb, nullptr), S_FALSE);
  EXPECT_EQ(bsOut.Get(), nullptr);
  EXPECT_EQ(cb, 0);
  // Setting a block from its own bytes keeps them.
  ASSERT_EQ(SetData(cpFrame.Get(), u"x", {5, 6, 7}), S_OK);
  LONGLONG ll = 0;
  ASSERT_EQ(cpFrame->VCDataGet(bsName, &cb, &ll), S_OK);
  ASSERT_EQ(cpFrame->VCDataSet(bsName, 2, ll + 1), S_OK);
  ASSERT_EQ(cpFrame->VCDataGet(bsName, &cb, &ll), S_OK);
  ASSERT_EQ(cb, 2);
  EXPECT_EQ(reinterpret_cast<const uint8_t*>(ll)[0], 6);
}

TEST(FFFrameAttachTest, StringsAreASetOfTheirOwn) {
  ComPtr<IVCFrame> cpFrame = NewFrame();
  CBstr bsName(u"lang"), bsValue(u"de"), bsOther(u"title"), bsEmpty(u"");
  ASSERT_EQ(cpFrame->VCStrSet(bsName, bsValue), S_OK);
  ASSERT_EQ(cpFrame->VCStrSet(bsOther, bsEmpty), S_OK);
  ASSERT_EQ(SetData(cpFrame.Get(), u"lang", {1}), S_OK);  // same name, other set
  CBstr bsGot;
  ASSERT_EQ(cpFrame->VCStrGet(bsName, &bsGot), S_OK);
  EXPECT_EQ(bsGot.View(), u"de");
  CBstr bsIndexName, bsIndexValue;
  ASSERT_EQ(cpFrame->VCStrGetByIndex(1, &bsIndexName, &bsIndexValue), S_OK);
  EXPECT_EQ(bsIndexName.View(), u"title");
  EXPECT_EQ(bsIndexValue.Length(), 0u);
  EXPECT_NE(bsIndexValue.Get(), nullptr);  // an empty string, not none
  EXPECT_EQ(cpFrame->VCStrGetByIndex(2, &bsIndexName, &bsIndexValue), S_FALSE);
  VC_FRAME_INFO info{};
  ASSERT_EQ(cpFrame->VCAllGet(&info), S_OK);
  EXPECT_EQ(info.nStrCount, 2);
  EXPECT_EQ(info.nDataCount, 1);
  ASSERT_EQ(cpFrame->VCStrSet(bsName, nullptr), S_OK);
  EXPECT_EQ(cpFrame->VCStrGet(bsName, &bsGot), kHrEmpty);
  EXPECT_EQ(cpFrame->VCStrGet(bsName, nullptr), E_POINTER);
  EXPECT_EQ(cpFrame->VCStrSet(nullptr, bsValue), E_INVALIDARG);
}

TEST(FFFrameAttachTest, ObjectsAreCountedReferences) {
  ComPtr<IVCFrame> cpFrame = NewFrame();
  ComPtr<IStream> cpStream;
  ASSERT_EQ(CreateMemoryStream(nullptr, 0, cpStream.AddressOf()), S_OK);
  const ULONG nBefore = RefCount(cpStream.Get());
  CBstr bsName(u"stream"), bsSecond(u"second");
  ASSERT_EQ(cpFrame->VCObjSet(bsName, cpStream.Get()), S_OK);
  EXPECT_EQ(RefCount(cpStream.Get()), nBefore + 1);
  ASSERT_EQ(cpFrame->VCObjSet(bsSecond, NewFrame().Get()), S_OK);

  ComPtr<IUnknown> cpGot;
  CBstr bsGotName;
  ASSERT_EQ(cpFrame->VCObjGetByIndex(0, &bsGotName, cpGot.AddressOf(), TRUE), S_OK);
  EXPECT_EQ(bsGotName.View(), u"stream");
  ComPtr<IStream> cpSame;
  ASSERT_EQ(cpGot->QueryInterface(vc::IidOf<IStream>(), reinterpret_cast<void**>(cpSame.AddressOf())), S_OK);
  EXPECT_EQ(cpSame.Get(), cpStream.Get());
  // A frame of this process stays the same object when made local.
  ASSERT_EQ(cpFrame->VCObjGet(bsSecond, cpGot.AddressOf(), TRUE), S_OK);
  ComPtr<IUnknown> cpAgain;
  ASSERT_EQ(cpFrame->VCObjGet(bsSecond, cpAgain.AddressOf(), FALSE), S_OK);
  EXPECT_EQ(cpGot.Get(), cpAgain.Get());

  cpGot.Release();
  cpSame.Release();
  ASSERT_EQ(cpFrame->VCObjSet(bsName, nullptr), S_OK);
  EXPECT_EQ(RefCount(cpStream.Get()), nBefore);
  EXPECT_EQ(cpFrame->VCObjGet(bsName, cpGot.AddressOf(), FALSE), kHrEmpty);
  // The frame itself would hold itself forever.
  EXPECT_EQ(cpFrame->VCObjSet(bsName, cpFrame.Get()), E_INVALIDARG);
  EXPECT_EQ(cpFrame->VCObjGetByIndex(5, nullptr, cpGot.AddressOf(), FALSE), S_FALSE);
  EXPECT_FALSE(cpGot);
}

TEST(FFFrameAttachTest, ObjectsGoWithTheFrame) {
  ComPtr<IStream> cpStream;
  ASSERT_EQ(CreateMemoryStream(nullptr, 0, cpStream.AddressOf()), S_OK);
  const ULONG nBefore = RefCount(cpStream.Get());
  {
    ComPtr<IVCFrame> cpFrame = NewFrame();
    CBstr bsName(u"s");
    ASSERT_EQ(cpFrame->VCObjSet(bsName, cpStream.Get()), S_OK);
    ComPtr<IVCFrame> cpClone;
    ASSERT_EQ(cpFrame->VCClone(cpClone.AddressOf(), eKFC_Obj, eVCCC_Default), S_OK);
    EXPECT_EQ(RefCount(cpStream.Get()), nBefore + 2);
  }
  EXPECT_EQ(RefCount(cpStream.Get()), nBefore);
}

}  // namespace
