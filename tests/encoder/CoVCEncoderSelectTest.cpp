// The encoder facade's choice of inner encoder: the codec table's order and
// name lists, the extra configuration of the hardware rows, the busy-NVIDIA
// retries, the gpu_h265 degradation, "reinit", the description and its log
// lines, and the order of making and closing encoders.
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "encoder/ScriptedEncoderFixture.h"

namespace vctest {
namespace {

using ConfigList = std::vector<std::pair<std::string, std::string>>;

class EncoderSelectTest : public ScriptedEncoderTest {};

TEST_F(EncoderSelectTest, MissingCodec_GoesStraightToTheCatchAllRows) {
  vc::CLogCapture log;
  ASSERT_EQ(Set(eVCMT_Video, "bitrate=900"), S_OK);
  ASSERT_EQ(Set(eVCMT_Audio, ""), S_OK);
  EXPECT_EQ(Configs(), (ConfigList{{"general", "bitrate=900"}, {"general", ""}}));
  EXPECT_EQ(Prop("codec_name"), "FFmpeg audio()");
  EXPECT_TRUE(LogLineWith(log, {"Create " + std::string(kGeneralClsid) + " codec:Video tag: (Param:bitrate=900)"}));
  EXPECT_TRUE(LogLineWith(log, {"_CreateEncoder(Audio, ) OK hr=00000000"}));
}

TEST_F(EncoderSelectTest, Q264_TriesIntelHardwareWithHwOnlyThenIntelSoftware) {
  m_pScript->Expect(Step::For(eClass::IntelQSEncoder, eCall::EncodeCodecSet, E_FAIL));
  vc::CLogCapture log;
  ASSERT_EQ(Set(eVCMT_Video, "codec=q264"), S_OK);
  EXPECT_EQ(Configs(), (ConfigList{{"intelqs", "codec=q264 hw_only=true"}, {"intelqs", "codec=q264"}}));
  EXPECT_EQ(Prop("codec_name"), "IntelQS SW(q264)");
  EXPECT_EQ(Prop("stat::v_encode.codec"), "IntelQS SW(q264)");
  EXPECT_TRUE(LogLineWith(log, {"Error set props'codec=q264 hw_only=true' for " + std::string(kIntelQSClsid) +
                              " codec:Video tag:"}));
}

TEST_F(EncoderSelectTest, NamesMatchWholeAndIgnoringCase_ExtraTextRoutesTheSharedClass) {
  // "Q265HW" is row 6's (the general class with the Intel HEVC plug-in);
  // refused there, row 7 (Intel software) still lists it.
  m_pScript->Expect(Step::For(eClass::GeneralEncoder, eCall::EncodeCodecSet, E_FAIL));
  ASSERT_EQ(Set(eVCMT_Video, "codec=Q265HW"), S_OK);
  EXPECT_EQ(Configs(), (ConfigList{{"general", "codec=Q265HW load_plugin=hevc_hw"}, {"intelqs", "codec=Q265HW"}}));
  EXPECT_EQ(Prop("codec_name"), "IntelQS SW(Q265HW)");

  // "a26" is no whole name of row 5's list: only the catch-all row serves it.
  ASSERT_EQ(Set(eVCMT_Video, "codec=a26"), S_OK);
  EXPECT_EQ(Configs().back(), (std::pair<std::string, std::string>{"general", "codec=a26"}));
  EXPECT_EQ(Configs().size(), 3u);
  EXPECT_EQ(Prop("codec_name"), "FFmpeg video(a26)");
}

TEST_F(EncoderSelectTest, BusyNVidia_ClosesOwnEncoderOnceRetriesFiveTimesThenGivesUp) {
  ASSERT_EQ(Set(eVCMT_Video, "codec=libx264"), S_OK);  // our own encoder, to be closed once
  m_pScript->AllowStep(Step::For(eClass::NVEncEncoder, eCall::EncodeCodecSet, kBusy));
  m_pScript->AllowStep(Step::For(eClass::GeneralEncoder, eCall::EncodeCodecSet, E_FAIL));
  vc::CLogCapture log;
  EXPECT_EQ(Set(eVCMT_Video, "codec=n264"), kBusy);

  const std::vector<CallRecord> vecConfigs = Calls(eCall::EncodeCodecSet);
  const size_t nNVidia = static_cast<size_t>(std::count_if(vecConfigs.begin(), vecConfigs.end(), [](const CallRecord& r) {
    return r.objClass == eClass::NVEncEncoder;
  }));
  EXPECT_EQ(nNVidia, 6u) << "one walk and five retries";
  ASSERT_EQ(Calls(eCall::EncodeClose).size(), 1u);
  EXPECT_EQ(Calls(eCall::EncodeClose)[0].nObject, vecConfigs[0].nObject) << "the close is of our own encoder";
  EXPECT_TRUE(LogLineWith(log, {"_CreateEncoder(Video, codec=n264) try to close nvidia encoder"}));
  EXPECT_TRUE(LogLineWith(log, {"_CreateEncoder(Video, codec=n264) FAILED hr=80040274"}));
}

TEST_F(EncoderSelectTest, BusyOnlyCountsForTheNVidiaOnlyNames) {
  m_pScript->AllowStep(Step::For(eClass::NVEncEncoder, eCall::EncodeCodecSet, kBusy));
  m_pScript->AllowStep(Step::For(eClass::GeneralEncoder, eCall::EncodeCodecSet, E_FAIL));
  vc::CLogCapture log;
  EXPECT_EQ(Set(eVCMT_Video, "codec=l264"), kNotSupported);
  EXPECT_FALSE(LogLineWith(log, {"try to close nvidia encoder"}));
  EXPECT_EQ(Calls(eCall::EncodeCodecSet).size(), 2u) << "NVEnc, then the catch-all row; no retries";
}

TEST_F(EncoderSelectTest, Reinit_KeepsCodecPropsAndRecreatesWithThem) {
  SetProp("preset", "fast");
  ASSERT_EQ(Set(eVCMT_Video, "codec=q264sw bitrate=5000"), S_OK);
  ASSERT_EQ(Set(eVCMT_Video, "REINIT"), S_OK);
  const ConfigList configs = Configs();
  ASSERT_EQ(configs.size(), 2u);
  EXPECT_EQ(configs[0], (std::pair<std::string, std::string>{"intelqs", "preset=fast codec=q264sw bitrate=5000"}));
  EXPECT_EQ(configs[1], configs[0]);
  EXPECT_EQ(Prop("codec_props::bitrate"), "5000");

  // Without "reinit" the node starts again from the object's own settings.
  ASSERT_EQ(Set(eVCMT_Video, "preset=slow"), S_OK);
  EXPECT_EQ(Configs().back(), (std::pair<std::string, std::string>{"general", "preset=slow"}));
  EXPECT_EQ(Prop("codec_props::bitrate"), "(absent)");
}

TEST_F(EncoderSelectTest, GpuH265_DegradesToGpuH264AndKeepsIt) {
  m_pScript->AllowStep(Step::For(eClass::NVEncEncoder, eCall::EncodeCodecSet, E_FAIL));
  m_pScript->AllowStep(Step::For(eClass::AMDEncoder, eCall::EncodeCodecSet, E_FAIL));
  m_pScript->AllowStep(Step::For(eClass::GeneralEncoder, eCall::EncodeCodecSet, E_FAIL));
  ASSERT_EQ(Set(eVCMT_Video, "codec=gpu_h265"), S_OK);
  EXPECT_EQ(Configs(), (ConfigList{{"nvenc", "codec=gpu_h265"},
                                {"amd", "codec=gpu_h265 amd=true"},
                                {"general", "codec=gpu_h265 amd=true"},
                                {"general", "codec=gpu_h265 load_plugin=hevc_hw"},
                                {"general", "codec=gpu_h265"},
                                {"nvenc", "codec=gpu_h264"},
                                {"intelqs", "codec=gpu_h264 hw_only=true"}}));
  EXPECT_EQ(Prop("codec_props::codec"), "gpu_h264");
  EXPECT_EQ(Prop("codec_name"), "IntelQS HW(gpu_h264)");
}

TEST_F(EncoderSelectTest, GpuH265InOtherCase_MatchesTheListsButDoesNotDegrade) {
  m_pScript->Allow(eCall::EncodeCodecSet, E_FAIL);
  vc::CLogCapture log;
  EXPECT_EQ(Set(eVCMT_Video, "codec=GPU_H265"), kNotSupported);
  EXPECT_EQ(Configs().front(), (std::pair<std::string, std::string>{"nvenc", "codec=GPU_H265"}));
  EXPECT_EQ(Configs().size(), 5u) << "rows 2, 4, 5, 6 and 8, once";
  EXPECT_EQ(Prop("codec_props::codec"), "GPU_H265");
  EXPECT_TRUE(LogLineWith(log, {"_CreateEncoder(Video, codec=GPU_H265) FAILED hr=80070032"}));
}

TEST_F(EncoderSelectTest, GenericName_DescriptionFromInnerCodecNameElseCodecCodec) {
  Step create = Step::For(eClass::GeneralEncoder, eCall::Create);
  create.strCodecName = "libx264";
  create.strCodecCodec = "x264-other";
  m_pScript->Expect(create);
  ASSERT_EQ(Set(eVCMT_Video, "codec=cpu_h264"), S_OK);
  EXPECT_EQ(Prop("codec_name"), "libx264(cpu_h264)");

  create.strCodecName.clear();
  m_pScript->Expect(create);
  ASSERT_EQ(Set(eVCMT_Video, "codec=cpu_h264"), S_OK);
  EXPECT_EQ(Prop("codec_name"), "x264-other(cpu_h264)");

  // Not a generic name: the row's own display name, whatever the inner says.
  create.strCodecName = "libx264";
  m_pScript->Expect(create);
  ASSERT_EQ(Set(eVCMT_Video, "codec=libx264"), S_OK);
  EXPECT_EQ(Prop("codec_name"), "FFmpeg video(libx264)");
}

TEST_F(EncoderSelectTest, TagOfTheCandidate_AppearsInTheLogLines) {
  Step create = Step::For(eClass::NVEncEncoder, eCall::Create);
  create.strTag = "nv-tag-7";
  m_pScript->Expect(create);
  m_pScript->Expect(Step::For(eClass::NVEncEncoder, eCall::EncodeCodecSet, E_FAIL));
  m_pScript->Expect(Step::For(eClass::GeneralEncoder, eCall::Create, E_OUTOFMEMORY));
  vc::CLogCapture log;
  EXPECT_EQ(Set(eVCMT_Video, "codec=n265"), kNotSupported);
  EXPECT_TRUE(LogLineWith(log, {"Error set props'codec=n265' for " + std::string(kNVEncClsid) + " codec:Video tag:nv-tag-7"}));
  EXPECT_TRUE(LogLineWith(log, {"Error create " + std::string(kGeneralClsid) + " codec:Video tag:"}));
}

TEST_F(EncoderSelectTest, NewEncoder_IsMadeBeforeTheOldOneIsClosed) {
  ASSERT_EQ(Set(eVCMT_Video, "codec=libx264"), S_OK);
  ASSERT_EQ(Set(eVCMT_Video, "codec=q264sw"), S_OK);
  const std::vector<CallRecord> vecAll = m_pScript->Calls();
  auto itNewSet = std::find_if(vecAll.begin(), vecAll.end(), [](const CallRecord& r) {
    return r.call == eCall::EncodeCodecSet && r.objClass == eClass::IntelQSEncoder;
  });
  auto itClose = std::find_if(vecAll.begin(), vecAll.end(), [](const CallRecord& r) { return r.call == eCall::EncodeClose; });
  ASSERT_NE(itNewSet, vecAll.end());
  ASSERT_NE(itClose, vecAll.end());
  EXPECT_LT(itNewSet - vecAll.begin(), itClose - vecAll.begin());
  EXPECT_EQ(itClose->objClass, eClass::GeneralEncoder);

  // A failed choice leaves the installed encoder open and in place.
  m_pScript->Allow(eCall::EncodeCodecSet, E_FAIL);
  EXPECT_EQ(Set(eVCMT_Video, "codec=zzz"), kNotSupported);
  EXPECT_EQ(Calls(eCall::EncodeClose).size(), 1u);
  EXPECT_EQ(Prop("codec_name"), "(absent)");
  m_pScript->Expect(Step::Answer(eCall::EncodePacketsGet, S_OK));
  EXPECT_EQ(m_cpEncoder->EncodePacketsGet(nullptr, nullptr, 0, nullptr), kEmpty);
  EXPECT_EQ(Calls(eCall::EncodePacketsGet).back().objClass, eClass::IntelQSEncoder);
}

TEST_F(EncoderSelectTest, ExternalProcess_ClosesFirstAndCreatesInProcess) {
  ASSERT_EQ(Set(eVCMT_Video, "codec=libx264"), S_OK);
  vc::CLogCapture log;
  ASSERT_EQ(Set(eVCMT_Video, "codec=q264sw external_process=true"), S_OK);
  const std::vector<CallRecord> vecAll = m_pScript->Calls();
  auto itClose = std::find_if(vecAll.begin(), vecAll.end(), [](const CallRecord& r) { return r.call == eCall::EncodeClose; });
  auto itCreate = std::find_if(vecAll.begin(), vecAll.end(), [](const CallRecord& r) {
    return r.call == eCall::Create && r.objClass == eClass::IntelQSEncoder;
  });
  ASSERT_NE(itClose, vecAll.end());
  ASSERT_NE(itCreate, vecAll.end());
  EXPECT_LT(itClose - vecAll.begin(), itCreate - vecAll.begin());
  EXPECT_EQ(Calls(eCall::EncodeClose).size(), 1u) << "closed once, before, not again at the swap";
  bool bLevel2 = false;
  for (const vc::LogRecord& record : log.Records())
    bLevel2 = bLevel2 || (record.nLevel == vc::eVCLL_Detail && record.strMessage.find("in process") != std::string::npos);
  EXPECT_TRUE(bLevel2);
}

TEST_F(EncoderSelectTest, NoEncoder_CallsAnswerEmptyAndCloseIsSilent) {
  vc::CLogCapture log;
  EXPECT_EQ(m_cpEncoder->EncodeClose(), S_FALSE);
  EXPECT_TRUE(log.Messages().empty());
  EXPECT_EQ(m_cpEncoder->EncodeFramePut(Frame(0).Get(), nullptr, nullptr, nullptr), kEmpty);
  EXPECT_EQ(m_cpEncoder->EncodePacketsGet(nullptr, nullptr, 0, nullptr), kEmpty);
}

TEST(EncoderCodecTable, HoldsTheRowsInWalkOrder) {
  const vc::EncoderCodecEntry* pTable = vc::CCoVCEncoder::_CodecTable();
  std::vector<std::string> vecRows;
  for (; pTable->eMediaType != eVCMT_Empty; ++pTable)
    vecRows.push_back(std::string(pTable->szDisplayName) + "|" + vc::GuidToUtf8(*pTable->pClsid) + "|" +
                      (pTable->szExtraConfig ? pTable->szExtraConfig : ""));
  EXPECT_EQ(vecRows, (std::vector<std::string>{
                         "FFmpeg audio|{96EB1F26-4CC0-4830-9CC3-F064196B2626}|",
                         "NVEnc HW|{D0C31F85-8131-48FD-82DA-1D2249FFBD53}|",
                         "IntelQS HW|{BE272839-CA83-42CA-931A-8273EFBDA9AE}|hw_only=true",
                         "AMD AMF HW|{D5506CCF-973E-4C01-A25F-A4556DA73992}|amd=true",
                         "AMD AMF|{96EB1F26-4CC0-4830-9CC3-F064196B2626}|amd=true",
                         "IntelQS HEVC|{96EB1F26-4CC0-4830-9CC3-F064196B2626}|load_plugin=hevc_hw",
                         "IntelQS SW|{BE272839-CA83-42CA-931A-8273EFBDA9AE}|",
                         "FFmpeg video|{96EB1F26-4CC0-4830-9CC3-F064196B2626}|",
                     }));
  EXPECT_EQ(vc::ToUtf8(vc::CCoVCEncoder::_MediaTypeName(static_cast<eVCMediaType>(77))), "###Err###(eVCMediaType)");
}

TEST(EncoderPropsText, ReadsBackToTheSameTree) {
  XMLParse::XMLNodePtr spNode = XMLParse::CoXMLNode::Create(W("codec_props"));
  ASSERT_EQ(spNode->Parse(W("codec=libx264 title='two words' x264::opts=\"a&amp;b\"")), S_OK);
  const vc::String strText = vc::CCoVCEncoder::_PropsText(*spNode);
  XMLParse::XMLNodePtr spBack = XMLParse::CoXMLNode::Create(W("codec_props"));
  ASSERT_EQ(spBack->Parse(strText), S_OK) << vc::ToUtf8(strText);
  EXPECT_TRUE(spBack->SameTree(*spNode)) << vc::ToUtf8(strText);
}

}  // namespace
}  // namespace vctest
