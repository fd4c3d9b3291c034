// The general encoder's option metadata as a host reads it through IVCProps
// (help, type, default, limits, the allowed values the chosen codec has),
// and the refusal at EncodeCodecSet of values outside them.
#include <gtest/gtest.h>

#include <string>

#include "FFClasses.h"
#include "FFDecoderTestSource.h"
#include "FFFrame.h"
#include "FFPointers.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCLog.h"
#include "VCStrings.h"

namespace {

using vc::ComPtr;

constexpr HRESULT kEmpty = static_cast<HRESULT>(0x800710D2u);

class FFEncoderOptionsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(vc::ff::CreateFFEncoder(nullptr, vc::IidOf<IVCEncoder>(), reinterpret_cast<void**>(m_cpEncoder.AddressOf())),
              S_OK);
    ASSERT_EQ(m_cpEncoder->QueryInterface(vc::IidOf<IVCProps>(), reinterpret_cast<void**>(m_cpProps.AddressOf())), S_OK);
  }
  HRESULT Set(eVCMediaType eType, const char* szConfig) {
    vc::CBstr bs{std::string_view(szConfig)};
    return m_cpEncoder->EncodeCodecSet(eType, bs);
  }
  // The info answer, or "<none>" when there is none.
  std::string Info(const char* szName, eKInfoType eType) {
    vc::CBstr bsName{std::string_view(szName)};
    vc::CBstr bsInfo;
    const HRESULT hr = m_cpProps->PropsInfoGet(bsName, eType, &bsInfo);
    return hr == S_OK ? bsInfo.Utf8() : std::string("<none>");
  }
  LONG OptionCount(const char* szName) {
    vc::CBstr bsName{std::string_view(szName)};
    LONG n = -1;
    EXPECT_TRUE(SUCCEEDED(m_cpProps->PropsOptionGetCount(bsName, &n)));
    return n;
  }
  std::string Option(const char* szName, LONG nIndex) {
    vc::CBstr bsName{std::string_view(szName)};
    vc::CBstr bsValue, bsHelp;
    EXPECT_EQ(m_cpProps->PropsOptionGetByIndex(bsName, nIndex, &bsValue, &bsHelp), S_OK);
    return bsValue.Utf8();
  }

  ComPtr<IVCEncoder> m_cpEncoder;
  ComPtr<IVCProps> m_cpProps;
};

TEST_F(FFEncoderOptionsTest, Metadata_GivesHelpTypeDefaultAndLimits) {
  // Before a codec is chosen the general entries are there already.
  EXPECT_NE(Info("bitrate", eKIT_Help).find("bit rate"), std::string::npos);
  EXPECT_EQ(Info("bitrate", eKIT_Type), "int");
  EXPECT_EQ(Info("bitrate", eKIT_Default), "0");
  EXPECT_EQ(Info("bitrate", eKIT_Min), "0");
  EXPECT_EQ(Info("b_frames", eKIT_Max), "16");
  EXPECT_EQ(Info("quality", eKIT_Type), "double");
  EXPECT_EQ(Info("preset", eKIT_Type), "string");
  EXPECT_EQ(Info("preset", eKIT_Values), "<none>") << "presets belong to a codec";
  for (const char* sz : {"max_rate", "buffer_size", "gop", "threads", "profile", "level", "pix_fmt"})
    EXPECT_NE(Info(sz, eKIT_Help), "<none>") << sz;
}

TEST_F(FFEncoderOptionsTest, Libx264_ListsItsPresetsProfilesAndFormats) {
  ASSERT_EQ(Set(eVCMT_Video, "codec=libx264"), S_OK);
  EXPECT_EQ(Info("preset", eKIT_Default), "medium");
  ASSERT_EQ(OptionCount("preset"), 10);
  EXPECT_EQ(Option("preset", 0), "ultrafast");
  EXPECT_EQ(Option("preset", 2), "veryfast");
  EXPECT_EQ(Option("preset", 9), "placebo");
  EXPECT_NE(Info("profile", eKIT_Values).find("high"), std::string::npos);
  EXPECT_NE(("|" + Info("pix_fmt", eKIT_Values) + "|").find("|yuv420p|"), std::string::npos);
  // The quality limit follows x264's rate factor.
  EXPECT_EQ(Info("quality", eKIT_Max), "51");
}

TEST_F(FFEncoderOptionsTest, ConstantOptions_ComeFromTheCodec) {
  // prores_ks names its profiles as option constants, with their help.
  ASSERT_EQ(Set(eVCMT_Video, "codec=prores_ks"), S_OK);
  const std::string strValues = "|" + Info("profile", eKIT_Values) + "|";
  EXPECT_NE(strValues.find("|hq|"), std::string::npos) << strValues;
  EXPECT_NE(strValues.find("|proxy|"), std::string::npos) << strValues;
  // A codec without the list leaves the values open again.
  ASSERT_EQ(Set(eVCMT_Video, "codec=mpeg2video"), S_OK);
  EXPECT_EQ(Info("preset", eKIT_Values), "<none>");
}

struct BadValue {
  const char* szConfig;
  const char* szLog;
};

class FFEncoderBadValueTest : public FFEncoderOptionsTest, public ::testing::WithParamInterface<BadValue> {};

TEST_P(FFEncoderBadValueTest, IsRefusedAtCodecSetWithReason) {
  vc::CLogCapture log(vc::eVCLL_Progress);
  EXPECT_EQ(Set(eVCMT_Video, GetParam().szConfig), E_INVALIDARG);
  EXPECT_TRUE(log.Contains(GetParam().szLog)) << "log says why";
  // No codec was taken: frames are refused.
  vc::ff::AvFramePtr sp(av_frame_alloc());
  sp->format = AV_PIX_FMT_YUV420P;
  sp->width = 64;
  sp->height = 48;
  ASSERT_EQ(av_frame_get_buffer(sp.get(), 0), 0);
  ComPtr<IVCFrame> cpFrame;
  ASSERT_EQ(vc::ff::FrameFromAVFrame(sp.get(), K_TIME{0, 400000, {}, eKFF_None}, 25.0, cpFrame.AddressOf()), S_OK);
  EXPECT_EQ(m_cpEncoder->EncodeFramePut(cpFrame.Get(), nullptr, nullptr, nullptr), kEmpty);
  // The bad value was not kept: the same codec without it is taken.
  EXPECT_EQ(Set(eVCMT_Video, "codec=libx264"), S_OK);
}

INSTANTIATE_TEST_SUITE_P(
    Values, FFEncoderBadValueTest,
    ::testing::Values(BadValue{"codec=libx264 preset=warpspeed", "preset='warpspeed' is not one of ultrafast|"},
                      BadValue{"codec=libx264 b_frames=40", "b_frames=40 is out of range [-1, 16]"},
                      BadValue{"codec=libx264 bitrate=fast", "bitrate='fast' is not a whole number"},
                      BadValue{"codec=libx264 quality=60", "quality=60 is out of range [-1, 51]"},
                      BadValue{"codec=libx264 pix_fmt=rgb24", "pix_fmt='rgb24' is not one of"},
                      BadValue{"codec=libx264 pix_fmt=nonsense", "pix_fmt='nonsense' is not a pixel format"},
                      BadValue{"codec=prores_ks profile=ultra", "profile='ultra' is not one of"},
                      BadValue{"codec=mpeg2video threads=-2", "threads=-2 is out of range [0, 64]"}),
    [](const auto& param) { return std::to_string(param.index); });

TEST_F(FFEncoderOptionsTest, UnknownNamesAndGoodValues_AreTaken) {
  // The facade sends its own properties along: names the encoder does not
  // know are left alone.
  EXPECT_EQ(Set(eVCMT_Video, "codec=libx264 external_process=false some_tool.flag=3 preset=VeryFast b_frames=0 "
                             "quality=23.5 pix_fmt=yuv420p"),
            S_OK);
  EXPECT_EQ(vc::fftest::PropText(m_cpEncoder.Get(), "preset"), "VeryFast");
  // A refusal leaves the earlier settings as they were.
  EXPECT_EQ(Set(eVCMT_Video, "codec=libx264 gop=-7 preset=medium"), E_INVALIDARG);
  EXPECT_EQ(vc::fftest::PropText(m_cpEncoder.Get(), "preset"), "VeryFast");
  EXPECT_EQ(vc::fftest::PropText(m_cpEncoder.Get(), "gop"), "");
}

}  // namespace
