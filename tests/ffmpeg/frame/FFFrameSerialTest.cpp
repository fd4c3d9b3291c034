// Frames as bytes and over streams: save/load equality for every part
// selection, damaged and cut-short bytes, crafted records behind a valid
// checksum, forward compatibility, nested frames, and the memory stream.
#include <gtest/gtest.h>

extern "C" {
#include <libavutil/crc.h>
}

#include <cstring>
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

const HRESULT kHrInvalidData = HRESULT_FROM_WIN32(ERROR_INVALID_DATA);

using vc::fftest::NewFrame;

ComPtr<IVCFrame> FullFrame(eVCCC fcc = eVCCC_YV12, LONGLONG rtStart = 1234) {
  ComPtr<IVCFrame> cpFrame = NewFrame();
  K_AV_PROPS props{};
  props.vidProps.fccType = fcc;
  props.vidProps.nWidth = 34;
  props.vidProps.nHeight = 18;
  props.vidProps.dblRate = 50.0;
  props.vidProps.eInterlace = eKI_Field2First;
  props.audProps = K_AUD_PROPS{2, 48000, 16, 0};
  EXPECT_EQ(cpFrame->VCAVPropsSet(&props, nullptr), S_OK);
  LONG cb = 0;
  LONGLONG ll = 0;
  EXPECT_EQ(cpFrame->VCVideoGetBytes(&cb, &ll), S_OK);
  for (LONG i = 0; i < cb; ++i) reinterpret_cast<uint8_t*>(ll)[i] = static_cast<uint8_t>(i * 7);
  std::vector<int16_t> vecPcm(40);
  for (size_t i = 0; i < vecPcm.size(); ++i) vecPcm[i] = static_cast<int16_t>(i * 100 - 2000);
  EXPECT_EQ(cpFrame->VCAudioSet(&props.audProps, 80, reinterpret_cast<LONGLONG>(vecPcm.data())), S_OK);
  const uint8_t arrData[5] = {9, 8, 7, 6, 5};
  CBstr bsData(u"anc.608"), bsEmpty(u"empty"), bsStr(u"title"), bsValue(u"Grüße"), bsObj(u"thumb");
  EXPECT_EQ(cpFrame->VCDataSet(bsData, 5, reinterpret_cast<LONGLONG>(arrData)), S_OK);
  EXPECT_EQ(cpFrame->VCDataSet(bsEmpty, 0, reinterpret_cast<LONGLONG>(arrData)), S_OK);
  EXPECT_EQ(cpFrame->VCStrSet(bsStr, bsValue), S_OK);
  ComPtr<IVCFrame> cpThumb = NewFrame();
  K_TIME thumbTime{};
  thumbTime.rtStartTime = 99;
  EXPECT_EQ(cpThumb->VCTimeSet(&thumbTime), S_OK);
  EXPECT_EQ(cpFrame->VCObjSet(bsObj, cpThumb.Get()), S_OK);
  K_TIME time{};
  time.rtStartTime = rtStart;
  time.rtEndTime = rtStart + 200000;
  time.tcFrame.nSeconds = 12;
  time.eFFlags = eKFF_Break_Predicted;
  EXPECT_EQ(cpFrame->VCTimeSet(&time), S_OK);
  return cpFrame;
}

std::vector<uint8_t> Save(IVCFrame* pFrame, eKFrameClone eType) {
  DWORD cb = 0;
  BYTE* p = nullptr;
  EXPECT_EQ(pFrame->VCSave(&cb, &p, eType), S_OK);
  std::vector<uint8_t> vec(p, p + cb);
  CoTaskMemFree(p);
  return vec;
}

std::vector<uint8_t> Bytes(LONGLONG ll, LONG cb) {
  const auto* p = reinterpret_cast<const uint8_t*>(ll);
  return std::vector<uint8_t>(p, p + cb);
}

// The visible pixels, plane by plane in public order (row padding is not
// part of a saved frame).
std::vector<uint8_t> VideoBytes(IVCFrame* pFrame) {
  VC_VID_PTR ptr{};
  EXPECT_EQ(pFrame->VCVideoGetBytesEx(&ptr), S_OK);
  K_AV_PROPS props{};
  EXPECT_EQ(pFrame->VCAVPropsGet(&props, nullptr), S_OK);
  std::vector<uint8_t> vec;
  for (int p = 0; p < 4 && ptr.lpVideoPlanes[p]; ++p) {
    // Bytes per sample: plane 0 from the picture width, the others alike.
    const int nRowUsed = p == 0 ? props.vidProps.nWidth * (props.vidProps.fccType == eVCCC_UYVY ? 2 : 1)
                                : ptr.szVideoPlanes[p].cx * (props.vidProps.fccType == eVCCC_NV12 ? 2 : 1);
    for (int y = 0; y < ptr.szVideoPlanes[p].cy; ++y) {
      const auto* pRow = reinterpret_cast<const uint8_t*>(ptr.lpVideoPlanes[p]) + y * ptr.cbVideoRowBytes[p];
      vec.insert(vec.end(), pRow, pRow + nRowUsed);
    }
  }
  return vec;
}

std::vector<uint8_t> AudioBytes(IVCFrame* pFrame) {
  LONG cb = 0;
  LONGLONG ll = 0;
  EXPECT_EQ(pFrame->VCAudioGetBytes(&cb, &ll), S_OK);
  return Bytes(ll, cb);
}

LONGLONG StartOf(IVCFrame* pFrame) {
  K_TIME time{};
  EXPECT_EQ(pFrame->VCTimeGet(&time), S_OK);
  return time.rtStartTime;
}

uint32_t Crc(const std::vector<uint8_t>& vec, size_t cb) {
  return av_crc(av_crc_get_table(AV_CRC_32_IEEE_LE), 0xFFFFFFFFu, vec.data(), cb) ^ 0xFFFFFFFFu;
}

void Put32(std::vector<uint8_t>* pVec, size_t nAt, uint32_t v) {
  for (int i = 0; i < 4; ++i) (*pVec)[nAt + static_cast<size_t>(i)] = static_cast<uint8_t>(v >> (8 * i));
}

// Fixes the checksum after a deliberate change, so that only the record
// checks stand between the bytes and the frame.
void Reseal(std::vector<uint8_t>* pVec) { Put32(pVec, pVec->size() - 4, Crc(*pVec, pVec->size() - 20)); }

size_t Find(const std::vector<uint8_t>& vec, const char* pszTag) {
  for (size_t i = 32; i + 4 <= vec.size(); ++i) {
    if (std::memcmp(&vec[i], pszTag, 4) == 0) return i;
  }
  return std::string::npos;
}

void ExpectSameTimeAndProps(const VC_FRAME_INFO& a, const VC_FRAME_INFO& b) {
  EXPECT_EQ(a.mTime.rtStartTime, b.mTime.rtStartTime);
  EXPECT_EQ(a.mTime.rtEndTime, b.mTime.rtEndTime);
  EXPECT_EQ(a.mTime.tcFrame.nSeconds, b.mTime.tcFrame.nSeconds);
  EXPECT_EQ(a.mTime.eFFlags, b.mTime.eFFlags);
  const K_VID_PROPS& va = a.avProps.vidProps;
  const K_VID_PROPS& vb = b.avProps.vidProps;
  EXPECT_EQ(va.fccType, vb.fccType);
  EXPECT_EQ(va.nWidth, vb.nWidth);
  EXPECT_EQ(va.nHeight, vb.nHeight);
  EXPECT_EQ(va.nRowBytes, vb.nRowBytes);
  EXPECT_EQ(va.eInterlace, vb.eInterlace);
  EXPECT_EQ(va.dblRate, vb.dblRate);
  EXPECT_EQ(va.nAspectX, vb.nAspectX);
  EXPECT_EQ(std::memcmp(&a.avProps.audProps, &b.avProps.audProps, sizeof(K_AUD_PROPS)), 0);
}

// ---------------------------------------------------------------------------

class FFFrameSaveModeTest : public ::testing::TestWithParam<eKFrameClone> {};

TEST_P(FFFrameSaveModeTest, LoadGivesBackWhatWasSaved) {
  const int nType = GetParam();
  ComPtr<IVCFrame> cpFrame = FullFrame();
  const std::vector<uint8_t> vecSaved = Save(cpFrame.Get(), GetParam());
  ComPtr<IVCFrame> cpLoaded = NewFrame();
  ASSERT_EQ(cpLoaded->VCLoad(static_cast<DWORD>(vecSaved.size()), const_cast<BYTE*>(vecSaved.data()), GetParam()),
            S_OK);

  VC_FRAME_INFO a{}, b{};
  ASSERT_EQ(cpFrame->VCAllGet(&a), S_OK);
  ASSERT_EQ(cpLoaded->VCAllGet(&b), S_OK);
  ExpectSameTimeAndProps(a, b);
  const bool bVideo = nType & (eKFC_Video | eKFC_VideoRef);
  EXPECT_EQ(b.cbVideo != 0, bVideo);
  if (bVideo) {
    EXPECT_EQ(VideoBytes(cpFrame.Get()), VideoBytes(cpLoaded.Get()));
  }
  EXPECT_EQ(b.cbAudio != 0, (nType & eKFC_Audio) != 0);
  if (nType & eKFC_Audio) {
    EXPECT_EQ(AudioBytes(cpFrame.Get()), AudioBytes(cpLoaded.Get()));
  }
  EXPECT_EQ(b.nDataCount, (nType & eKFC_Data) ? 2 : 0);
  EXPECT_EQ(b.nStrCount, (nType & eKFC_Data) ? 1 : 0);
  EXPECT_EQ(b.nObjCount, (nType & eKFC_Obj) ? 1 : 0);
  if (nType & eKFC_Data) {
    CBstr bsName, bsValue;
    ASSERT_EQ(cpLoaded->VCStrGetByIndex(0, &bsName, &bsValue), S_OK);
    EXPECT_EQ(bsName.View(), u"title");
    EXPECT_EQ(bsValue.View(), u"Grüße");
    LONG cb = -1;
    LONGLONG ll = 0;
    CBstr bsEmpty(u"empty");
    ASSERT_EQ(cpLoaded->VCDataGet(bsEmpty, &cb, &ll), S_OK);
    EXPECT_EQ(cb, 0);
    ASSERT_EQ(cpLoaded->VCDataGetByIndex(0, nullptr, &cb, &ll), S_OK);
    EXPECT_EQ(Bytes(ll, cb), (std::vector<uint8_t>{9, 8, 7, 6, 5}));
  }
  if (nType & eKFC_Obj) {
    ComPtr<IUnknown> cpObj;
    CBstr bsName;
    ASSERT_EQ(cpLoaded->VCObjGetByIndex(0, &bsName, cpObj.AddressOf(), FALSE), S_OK);
    EXPECT_EQ(bsName.View(), u"thumb");
    ComPtr<IVCFrame> cpThumb;
    ASSERT_EQ(cpObj->QueryInterface(vc::IidOf<IVCFrame>(), reinterpret_cast<void**>(cpThumb.AddressOf())), S_OK);
    EXPECT_EQ(StartOf(cpThumb.Get()), 99);
  }
  // Saving the loaded frame again gives the same bytes.
  EXPECT_EQ(Save(cpLoaded.Get(), GetParam()), vecSaved);
}

INSTANTIATE_TEST_SUITE_P(EveryPartSelection, FFFrameSaveModeTest,
                         ::testing::Values(eKFC_Props, eKFC_Video, eKFC_VideoRef, eKFC_Audio, eKFC_VideoRef_Audio,
                                           eKFC_Data, eKFC_Data_Audio, eKFC_Obj, eKFC_ObjData_Audio, eKFC_Full,
                                           eKFC_Reference, eKFC_Full_ForceCPU));

TEST(FFFrameSaveTest, LoadTakesOnlyThePartsAskedFor) {
  ComPtr<IVCFrame> cpFrame = FullFrame();
  const std::vector<uint8_t> vecSaved = Save(cpFrame.Get(), eKFC_Full);
  ComPtr<IVCFrame> cpLoaded = FullFrame(eVCCC_NV12, 5);
  ASSERT_EQ(cpLoaded->VCLoad(static_cast<DWORD>(vecSaved.size()), const_cast<BYTE*>(vecSaved.data()), eKFC_Audio),
            S_OK);
  VC_FRAME_INFO info{};
  ASSERT_EQ(cpLoaded->VCAllGet(&info), S_OK);
  EXPECT_EQ(info.mTime.rtStartTime, 1234);
  EXPECT_EQ(info.avProps.vidProps.fccType, eVCCC_YV12);  // properties describe the saved frame
  EXPECT_EQ(info.cbVideo, 0u);
  EXPECT_NE(info.cbAudio, 0u);
  EXPECT_EQ(info.nDataCount, 0);
}

TEST(FFFrameSaveTest, DamagedBytesAreRefusedAndTheFrameStays) {
  ComPtr<IVCFrame> cpFrame = FullFrame();
  const std::vector<uint8_t> vecSaved = Save(cpFrame.Get(), eKFC_Full);
  ComPtr<IVCFrame> cpTarget = FullFrame(eVCCC_I420, 777);
  const std::vector<uint8_t> vecVideoBefore = VideoBytes(cpTarget.Get());
  for (size_t i = 0; i < vecSaved.size(); ++i) {
    std::vector<uint8_t> vec = vecSaved;
    vec[i] ^= 0x41;
    const HRESULT hr = cpTarget->VCLoad(static_cast<DWORD>(vec.size()), vec.data(), eKFC_Full);
    ASSERT_TRUE(FAILED(hr)) << "byte " << i;
  }
  for (size_t n = 0; n < vecSaved.size(); ++n) {
    std::vector<uint8_t> vec(vecSaved.begin(), vecSaved.begin() + static_cast<ptrdiff_t>(n));
    vec.push_back(0);  // a valid address even for n == 0
    ASSERT_EQ(cpTarget->VCLoad(static_cast<DWORD>(n), vec.data(), eKFC_Full), kHrInvalidData) << "length " << n;
  }
  EXPECT_EQ(StartOf(cpTarget.Get()), 777);
  EXPECT_EQ(VideoBytes(cpTarget.Get()), vecVideoBefore);
  EXPECT_EQ(cpTarget->VCLoad(10, nullptr, eKFC_Full), E_POINTER);
}

TEST(FFFrameSaveTest, CraftedRecordsBehindAValidChecksumAreRefused) {
  ComPtr<IVCFrame> cpFrame = FullFrame();
  const std::vector<uint8_t> vecSaved = Save(cpFrame.Get(), eKFC_Full);
  ComPtr<IVCFrame> cpTarget = NewFrame();
  const size_t nVideo = Find(vecSaved, "VIDE");
  const size_t nAudio = Find(vecSaved, "AUDI");
  ASSERT_NE(nVideo, std::string::npos);
  ASSERT_NE(nAudio, std::string::npos);
  struct Change {
    size_t nAt;
    uint32_t uValue;
  };
  const Change arrChanges[] = {
      {nVideo + 16 + 4, 100000},     // width beyond the limit
      {nVideo + 16 + 4, 36},         // width the rows do not match
      {nVideo + 16 + 8, 0},          // no height
      {nVideo + 16, 0x30313276},     // v210: no layout
      {nVideo + 16 + 36, 2},         // plane count
      {nVideo + 8, 0xFFFFFF},        // record size past the end
      {nAudio + 16, 0},              // no channels
      {nAudio + 16 + 8, 24},         // 24-bit samples
      {nAudio + 16 + 12, 1000},      // more samples than bytes
      {20, 99},                      // record count
      {8, 10},                       // total size
  };
  for (const Change& change : arrChanges) {
    std::vector<uint8_t> vec = vecSaved;
    Put32(&vec, change.nAt, change.uValue);
    Reseal(&vec);
    EXPECT_EQ(cpTarget->VCLoad(static_cast<DWORD>(vec.size()), vec.data(), eKFC_Full), kHrInvalidData)
        << "offset " << change.nAt;
  }
  std::vector<uint8_t> vec = vecSaved;
  vec[4] = 2;  // a later version
  Reseal(&vec);
  EXPECT_EQ(cpTarget->VCLoad(static_cast<DWORD>(vec.size()), vec.data(), eKFC_Full),
            HRESULT_FROM_WIN32(ERROR_NOT_SUPPORTED));
  EXPECT_EQ(StartOf(cpTarget.Get()), 0);
}

TEST(FFFrameSaveTest, UnknownRecordsAreSkipped) {
  ComPtr<IVCFrame> cpFrame = FullFrame();
  std::vector<uint8_t> vec = Save(cpFrame.Get(), eKFC_Full);
  vec.resize(vec.size() - 20);  // the trailer goes, a record of a later version comes
  const uint8_t arrExtra[] = {'X', 'T', 'R', 'A', 0, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3};
  vec.insert(vec.end(), std::begin(arrExtra), std::end(arrExtra));
  const uint8_t arrTrailer[20] = {'E', 'N', 'D', ' ', 0, 0, 0, 0, 4};
  vec.insert(vec.end(), std::begin(arrTrailer), std::end(arrTrailer));
  Put32(&vec, 8, static_cast<uint32_t>(vec.size()));
  uint32_t nRecords = 0;
  std::memcpy(&nRecords, &vec[20], 4);
  Put32(&vec, 20, nRecords + 1);
  Reseal(&vec);
  ComPtr<IVCFrame> cpLoaded = NewFrame();
  ASSERT_EQ(cpLoaded->VCLoad(static_cast<DWORD>(vec.size()), vec.data(), eKFC_Full), S_OK);
  EXPECT_EQ(VideoBytes(cpLoaded.Get()), VideoBytes(cpFrame.Get()));
}

TEST(FFFrameSaveTest, NestedFramesTravelAndCyclesEnd) {
  ComPtr<IVCFrame> cpA = NewFrame();
  ComPtr<IVCFrame> cpB = NewFrame();
  ComPtr<IVCFrame> cpC = FullFrame(eVCCC_NV12, 42);
  CBstr bsName(u"inner");
  ASSERT_EQ(cpB->VCObjSet(bsName, cpC.Get()), S_OK);
  ASSERT_EQ(cpA->VCObjSet(bsName, cpB.Get()), S_OK);
  const std::vector<uint8_t> vec = Save(cpA.Get(), eKFC_Full);
  ComPtr<IVCFrame> cpLoaded = NewFrame();
  ASSERT_EQ(cpLoaded->VCLoad(static_cast<DWORD>(vec.size()), const_cast<BYTE*>(vec.data()), eKFC_Full), S_OK);
  ComPtr<IUnknown> cpObj;
  ComPtr<IVCFrame> cpLevel;
  ASSERT_EQ(cpLoaded->VCObjGet(bsName, cpObj.AddressOf(), FALSE), S_OK);
  ASSERT_EQ(cpObj->QueryInterface(vc::IidOf<IVCFrame>(), reinterpret_cast<void**>(cpLevel.AddressOf())), S_OK);
  ASSERT_EQ(cpLevel->VCObjGet(bsName, cpObj.AddressOf(), FALSE), S_OK);
  ASSERT_EQ(cpObj->QueryInterface(vc::IidOf<IVCFrame>(), reinterpret_cast<void**>(cpLevel.AddressOf())), S_OK);
  EXPECT_EQ(StartOf(cpLevel.Get()), 42);
  EXPECT_EQ(VideoBytes(cpLevel.Get()), VideoBytes(cpC.Get()));

  // A holds B holds A: saving stops at the nesting limit instead of recursing.
  ASSERT_EQ(cpB->VCObjSet(bsName, cpA.Get()), S_OK);
  const std::vector<uint8_t> vecCycle = Save(cpA.Get(), eKFC_Obj);
  EXPECT_GT(vecCycle.size(), vec.size() / 100);
  ASSERT_EQ(cpLoaded->VCLoad(static_cast<DWORD>(vecCycle.size()), const_cast<BYTE*>(vecCycle.data()), eKFC_Obj),
            S_OK);
  ASSERT_EQ(cpB->VCObjSet(bsName, nullptr), S_OK);  // breaks the cycle
}

TEST(FFFrameSaveTest, ObjectsThatAreNotFramesAreLeftOut) {
  ComPtr<IVCFrame> cpFrame = NewFrame();
  ComPtr<IStream> cpStream;
  ASSERT_EQ(CreateMemoryStream(nullptr, 0, cpStream.AddressOf()), S_OK);
  CBstr bsName(u"stream");
  ASSERT_EQ(cpFrame->VCObjSet(bsName, cpStream.Get()), S_OK);
  const std::vector<uint8_t> vec = Save(cpFrame.Get(), eKFC_Full);
  ComPtr<IVCFrame> cpLoaded = NewFrame();
  ASSERT_EQ(cpLoaded->VCLoad(static_cast<DWORD>(vec.size()), const_cast<BYTE*>(vec.data()), eKFC_Full), S_OK);
  VC_FRAME_INFO info{};
  ASSERT_EQ(cpLoaded->VCAllGet(&info), S_OK);
  EXPECT_EQ(info.nObjCount, 0);
}

TEST(FFFrameSaveTest, RefusesBadSelectionsAndPointers) {
  ComPtr<IVCFrame> cpFrame = FullFrame();
  DWORD cb = 0;
  BYTE* p = nullptr;
  EXPECT_EQ(cpFrame->VCSave(&cb, &p, eKFC_Full_ForceGPU), E_NOTIMPL);
  EXPECT_EQ(cpFrame->VCSave(&cb, &p, static_cast<eKFrameClone>(0x40)), E_INVALIDARG);
  EXPECT_EQ(cpFrame->VCSave(nullptr, &p, eKFC_Full), E_POINTER);
  EXPECT_EQ(p, nullptr);
}

// ---------------------------------------------------------------------------

TEST(FFFrameStreamTest, FramesFollowOneAnotherInAStream) {
  ComPtr<IVCFrame> cpFirst = FullFrame(eVCCC_I420, 100);
  ComPtr<IVCFrame> cpSecond = FullFrame(eVCCC_UYVY, 200);
  ComPtr<IStream> cpStream;
  ASSERT_EQ(cpFirst->VCSaveToStream(cpStream.AddressOf(), eKFC_Full), S_OK);
  ComPtr<IVCFrame> cpLoaded = NewFrame();
  ASSERT_EQ(cpLoaded->VCLoadFromStream(cpStream.Get(), eKFC_Full), S_OK);
  EXPECT_EQ(StartOf(cpLoaded.Get()), 100);
  EXPECT_EQ(VideoBytes(cpLoaded.Get()), VideoBytes(cpFirst.Get()));

  // Appended after the first; read back in order.
  ASSERT_EQ(cpSecond->VCAddToStream(cpStream.Get(), eKFC_Reference), S_OK);
  LARGE_INTEGER llZero{};
  ASSERT_EQ(cpStream->Seek(llZero, STREAM_SEEK_SET, nullptr), S_OK);
  ASSERT_EQ(cpLoaded->VCLoadFromStream(cpStream.Get(), eKFC_Full), S_OK);
  EXPECT_EQ(StartOf(cpLoaded.Get()), 100);
  ASSERT_EQ(cpLoaded->VCLoadFromStream(cpStream.Get(), eKFC_Full), S_OK);
  EXPECT_EQ(StartOf(cpLoaded.Get()), 200);
  EXPECT_EQ(VideoBytes(cpLoaded.Get()), VideoBytes(cpSecond.Get()));
  EXPECT_EQ(cpLoaded->VCLoadFromStream(cpStream.Get(), eKFC_Full), kHrInvalidData);  // nothing left
  EXPECT_EQ(StartOf(cpLoaded.Get()), 200);
}

TEST(FFFrameStreamTest, ACutShortStreamIsRefused) {
  ComPtr<IVCFrame> cpFrame = FullFrame();
  const std::vector<uint8_t> vec = Save(cpFrame.Get(), eKFC_Full);
  for (size_t n : {size_t{0}, size_t{10}, size_t{32}, vec.size() / 2, vec.size() - 1}) {
    ComPtr<IStream> cpStream;
    ASSERT_EQ(CreateMemoryStream(vec.data(), n, cpStream.AddressOf()), S_OK);
    ComPtr<IVCFrame> cpLoaded = NewFrame();
    EXPECT_EQ(cpLoaded->VCLoadFromStream(cpStream.Get(), eKFC_Full), kHrInvalidData) << n;
  }
  EXPECT_EQ(cpFrame->VCLoadFromStream(nullptr, eKFC_Full), E_POINTER);
  EXPECT_EQ(cpFrame->VCAddToStream(nullptr, eKFC_Full), E_POINTER);
}

TEST(FFFrameStreamTest, MemoryStreamReadsWritesSeeksAndClones) {
  ComPtr<IStream> cpStream;
  ASSERT_EQ(CreateMemoryStream("abcdef", 6, cpStream.AddressOf()), S_OK);
  char arr[8] = {};
  ULONG cbRead = 0;
  ASSERT_EQ(cpStream->Read(arr, 4, &cbRead), S_OK);
  EXPECT_EQ(std::string(arr, cbRead), "abcd");
  ComPtr<IStream> cpClone;
  ASSERT_EQ(cpStream->Clone(cpClone.AddressOf()), S_OK);
  ASSERT_EQ(cpStream->Write("XYZ", 3, nullptr), S_OK);  // overwrites "ef", grows by one
  EXPECT_EQ(cpClone->Read(arr, 8, &cbRead), S_FALSE);   // shares the bytes, own position
  EXPECT_EQ(std::string(arr, cbRead), "XYZ");
  STATSTG stat{};
  ASSERT_EQ(cpStream->Stat(&stat, STATFLAG_NONAME), S_OK);
  EXPECT_EQ(stat.cbSize.QuadPart, 7u);
  LARGE_INTEGER llMove{};
  llMove.QuadPart = -2;
  ULARGE_INTEGER llPos{};
  ASSERT_EQ(cpStream->Seek(llMove, STREAM_SEEK_END, &llPos), S_OK);
  EXPECT_EQ(llPos.QuadPart, 5u);
  llMove.QuadPart = -10;
  EXPECT_EQ(cpStream->Seek(llMove, STREAM_SEEK_CUR, &llPos), STG_E_INVALIDFUNCTION);
  ComPtr<IStream> cpTarget;
  ASSERT_EQ(CreateMemoryStream(nullptr, 0, cpTarget.AddressOf()), S_OK);
  ULARGE_INTEGER cbAll{};
  cbAll.QuadPart = 100;
  ULARGE_INTEGER cbCopied{};
  ASSERT_EQ(cpStream->CopyTo(cpTarget.Get(), cbAll, nullptr, &cbCopied), S_OK);
  EXPECT_EQ(cbCopied.QuadPart, 2u);
  ULARGE_INTEGER cbSize{};
  cbSize.QuadPart = 1;
  ASSERT_EQ(cpTarget->SetSize(cbSize), S_OK);
  ASSERT_EQ(cpTarget->Stat(&stat, STATFLAG_NONAME), S_OK);
  EXPECT_EQ(stat.cbSize.QuadPart, 1u);
}

}  // namespace
