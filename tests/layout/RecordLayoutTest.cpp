// Record layout and method slot order of the public interface as this
// compiler builds them, against the fixed layout list and the published
// method counts. The static_asserts of VCCodecsCoreLayout.h stop a build whose
// offsets moved; these tests also catch what they cannot see (a field added
// into tail padding, a record or field the list does not know, a method slot
// shifted by an overload) and report every difference under Wine as well.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string_view>
#include <type_traits>
#include <vector>

#include "ReflectLookup.h"
#include "VCCodecsCore.h"

namespace {

using vc::layout::ExpectedField;
using vc::reflect::RecordInfo;

std::vector<ExpectedField> ExpectedFieldsOf(std::string_view svRecord) {
  std::vector<ExpectedField> fields;
  for (const ExpectedField& f : vc::layout::kExpectedFields)
    if (svRecord == f.pszRecord) fields.push_back(f);
  return fields;
}

TEST(RecordLayout, EveryRecord_MatchesFixedLayoutFieldByField) {
  ASSERT_EQ(std::size(vc::reflect::kRecords), std::size(vc::layout::kExpectedRecords))
      << "the IDL and the fixed layout list disagree on the number of records";
  for (const auto& expected : vc::layout::kExpectedRecords) {
    SCOPED_TRACE(expected.pszName);
    const RecordInfo* pRecord = vctest::FindRecord(expected.pszName);
    ASSERT_NE(pRecord, nullptr) << "record missing from the IDL";
    EXPECT_EQ(pRecord->cbSize, expected.cbSize) << "size";
    EXPECT_EQ(pRecord->cbAlign, expected.cbAlign) << "alignment";

    const std::vector<ExpectedField> fields = ExpectedFieldsOf(expected.pszName);
    EXPECT_EQ(pRecord->fields.size(), fields.size()) << "field count";
    for (size_t i = 0; i < std::min(fields.size(), pRecord->fields.size()); ++i) {
      EXPECT_STREQ(pRecord->fields[i].pszName, fields[i].pszField) << "field " << i << " name or order";
      EXPECT_EQ(pRecord->fields[i].cbOffset, fields[i].cbOffset) << "offset of " << fields[i].pszField;
    }
  }
}

TEST(RecordLayout, AddressFields_Are64BitIntegers) {
  // "lp" fields carry addresses as 64-bit integers so that records marshal
  // between processes; a 32-bit one would truncate every pointer.
  int nChecked = 0;
  for (const auto& rec : vc::reflect::kRecords)
    for (const auto& f : rec.fields)
      if (std::string_view(f.pszName).starts_with("lp")) {
        ++nChecked;
        EXPECT_EQ(f.cbSize % 8, 0u) << rec.pszName << "::" << f.pszName;
      }
  EXPECT_GE(nChecked, 6);
  static_assert(std::is_same_v<decltype(K_PACKET_INFO::lpPacketData), LONGLONG>);
  static_assert(std::is_same_v<decltype(VC_VID_PTR::lpVideoPlanes), LONGLONG[4]>);
}

// --- method slots ---------------------------------------------------------

struct PublishedInterface {
  const char* pszName;
  size_t nMethods;
};

constexpr PublishedInterface kPublishedInterfaces[] = {
    {"IVCSplitter", 7}, {"IVCPacket", 5}, {"IVCDecoder", 4},  {"IVCEncoder", 4},
    {"IVCMuxer", 5},    {"IVCProps", 10}, {"IVCFrame", 45}, {"IVCAudioBuffer", 17},
};

TEST(InterfaceSlots, EveryInterface_HasPublishedMethodCountInConsecutiveSlots) {
  ASSERT_EQ(std::size(vc::reflect::kInterfaces), std::size(kPublishedInterfaces));
  for (const auto& published : kPublishedInterfaces) {
    SCOPED_TRACE(published.pszName);
    const auto* pItf = vctest::FindInterface(published.pszName);
    ASSERT_NE(pItf, nullptr);
    EXPECT_EQ(pItf->methods.size(), published.nMethods);
    // IUnknown holds slots 0..2, so the first own method sits in slot 3.
    for (size_t i = 0; i < pItf->methods.size(); ++i)
      EXPECT_EQ(pItf->methods[i].nSlot, 3 + i) << pItf->methods[i].pszName;
  }
}

TEST(InterfaceSlots, LastFrameAndAudioBufferMethods_SitInPublishedSlots) {
  EXPECT_EQ(vc::reflect::VtableSlot(&IVCFrame::VCGetProcessID), 3u);
  EXPECT_EQ(vc::reflect::VtableSlot(&IVCFrame::VCLoadFromStream), 3u + 44u);
  EXPECT_EQ(vc::reflect::VtableSlot(&IVCAudioBuffer::BufferLoadFromFile), 3u);
  EXPECT_EQ(vc::reflect::VtableSlot(&IVCAudioBuffer::BufferTimesSet), 3u + 16u);
}

TEST(InterfaceSlots, SideData_HasNineSlotsAfterIUnknown) {
  EXPECT_EQ(vc::reflect::VtableSlot(&IVCSideData::SideDataGetCount), 3u);
  EXPECT_EQ(vc::reflect::VtableSlot(&IVCSideData::SideDataObjSet), 3u + 8u);
  EXPECT_EQ(sizeof(IVCSideData), sizeof(void*)) << "interfaces hold nothing but the vtable pointer";
}

TEST(InterfaceSlots, Identifiers_AreDistinct) {
  std::vector<IID> ids;
  for (const auto& itf : vc::reflect::kInterfaces) ids.push_back(*itf.pIid);
  ids.push_back(IID_IVCSideData);
  for (const auto& co : vc::reflect::kCoclasses) ids.push_back(*co.pClsid);
  ids.push_back(LIBID_VCCodecsCoreLib);
  for (size_t i = 0; i < ids.size(); ++i)
    for (size_t j = i + 1; j < ids.size(); ++j) EXPECT_FALSE(IsEqualGUID(ids[i], ids[j])) << i << " and " << j;
}

}  // namespace
