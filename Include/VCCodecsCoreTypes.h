// Generated from VCCodecsCore.idl by tools/idl/idl2h.py. Do not edit: change the IDL and
// regenerate (the idl_header_current test fails while this file is stale).
//
// The codec core's binary interface in C++: enumerations, records,
// interfaces and their identifiers, matching the type library byte for
// byte (layout checks in VCCodecsCoreLayout.h). Declarations only; any
// thread. Enumerations are unscoped with a fixed 32-bit base so that
// members read unqualified and records keep their size; the ones with
// members at or above 0x80000000 use an unsigned base to keep the bit
// pattern exact.
#pragma once

#include <cstdint>

#include "VCGuid.h"
#include "VCPlatform.h"

enum eVCMediaType : int32_t {
  eVCMT_Empty = 0,
  eVCMT_Video = 1,
  eVCMT_Audio = 2,
  eVCMT_Multiplexed = 3,
  eVCMT_Subtitles = 4,
  // 5 to 7 were never assigned; data keeps 8 for existing hosts.
  eVCMT_Data = 8,
};

enum eVCPacketFlags : int32_t {
  eVCPF_None = 0,
  eVCPF_SegmentStart = 0x1,
  eVCPF_Last = 0x2,
  eVCPF_KeyFrame = 0x10,
  eVCPF_Preroll = 0x20,
  eVCPF_Predicted = 0x100,
  eVCPF_BiPredicted = 0x200,
  eVCPF_ForceDetectType = 0x1000,
  eVCPF_AvCorrupt = 0x10000,
  eVCPF_AvDiscard = 0x20000,
  eVCPF_AvTrusted = 0x40000,
  eVCPF_AvDisposable = 0x80000,
};

// Selector of IVCProps::PropsInfoGet.
enum eKInfoType : int32_t {
  eKIT_Help = 0,
  eKIT_Type = 1,
  eKIT_Default = 2,
  eKIT_Values = 3,
  eKIT_Min = 4,
  eKIT_Max = 5,
  eKIT_Dynamic = 6,
};

enum eKInterlace : int32_t {
  eKI_Default = 0,
  eKI_Field1First = 1,
  eKI_Field2First = 2,
  eKI_Progressive = 3,
  eKI_Inverse = 4,
  eKI_OneField = 5,
  eKI_DeinterlaceF1 = 0x100,
  eKI_DeinterlaceF2 = 0x200,
};

enum eKScaleType : int32_t {
  eKST_Default = 0,
  eKST_IgnoreAR = 1,
  eKST_LetterBox = 2,
  eKST_Crop = 3,
  eKST_NoScale = 4,
};

// Where a frame's pixels live. The low 12 bits are a DXGI format number so
// that GPU code can pass them to Direct3D unchanged.
enum eGPUTextureFormat : int32_t {
  eGTF_CPU_Frame = 0,
  eGTF_GPU_R10G10B10A2 = 24,
  eGTF_GPU_RGBA32 = 28,
  eGTF_GPU_R8 = 61,
  eGTF_GPU_BGRA32 = 87,
  eGTF_GPU_BGRX32 = 88,
  eGTF_GPU_NV12 = 103,
  eGTF_GPU_YUY2 = 107,
  eGTF_GPU_FormatMask = 0xFFF,
  eGTF_GPU_SeparateFields = 0x2000,
  eGTF_GPU_Fields_RGBA32 = 0x201C,
  eGTF_GPU_Fields_R8 = 0x203D,
  eGTF_GPU_Fields_BGRA32 = 0x2057,
  eGTF_GPU_Fields_BGRX32 = 0x2058,
  eGTF_GPU_Fields_NV12 = 0x2067,
  eGTF_GPU_Fields_YUY2 = 0x206B,
};

enum eKANCFlags : int32_t {
  eKAF_None = 0,
  eKAF_AL_Valid = 2,
};

// Pixel format. FourCC codes (first character in the lowest byte) and the
// first word of the platform's RGB media subtypes share the space with the
// composed formats, which carry all four bits of ePX_FormatFlag. Several
// composed values (the 64- and 128-bit RGBA ones, ePX_1Channel16bit and
// ePX_1Channel32bit) do not follow from their component names; hosts store
// them, so they stay as they are.
enum eVCCC : uint32_t {
  eVCCC_Default = 0,
  eVCCC_r210 = 0x30313272,
  eVCCC_v210 = 0x30313276,
  eVCCC_I420 = 0x30323449,
  eVCCC_YV12 = 0x32315659,
  eVCCC_NV12 = 0x3231564E,
  eVCCC_YUY2 = 0x32595559,
  eVCCC_HDYC = 0x43594448,
  eVCCC_YVYU = 0x55595659,
  eVCCC_UYVY = 0x59565955,
  eVCCC_MJPG = 0x47504A4D,
  eVCCC_RGB8 = 0xE436EB7A,
  eVCCC_RGB24 = 0xE436EB7D,
  eVCCC_RGB32 = 0xE436EB7E,
  eVCCC_ARGB32 = 0x773C9AC0,
  ePX_FormatFlag = 0xF0000000,
  ePX_Plane = 0xF0001000,
  ePX_420 = 0xF0002000,
  ePX_422 = 0xF0004000,
  ePX_444 = 0xF0008000,
  ePX_Alpha_Full = 0xF0010000,
  ePX_Alpha_Premull = 0xF0030000,
  ePX_BT601 = 0xF0100000,
  ePX_BT709 = 0xF0200000,
  ePX_BT2020 = 0xF0400000,
  ePX_10bit = 0xF1000000,
  ePX_12bit = 0xF2000000,
  ePX_16bit = 0xF4000000,
  ePX_32bit = 0xF8000000,
  ePX_BGRX32 = 0xF0000001,
  ePX_RGBX32 = 0xF0000002,
  ePX_BGRA32_FULL = 0xF0010001,
  ePX_BGRA32_PREMULL = 0xF0030001,
  ePX_RGBA32_FULL = 0xF0010002,
  ePX_RGBA32_PREMULL = 0xF0030002,
  ePX_RGBA64_FULL = 0xF2010002,
  ePX_RGBA64_PREMULL = 0xF2030002,
  ePX_RGBA128_FULL = 0xF3010002,
  ePX_RGBA128_PREMULL = 0xF3030002,
  ePX_1Channel8bit = 0xF0000008,
  ePX_1Channel10bit = 0xF1000008,
  ePX_1Channel16bit = 0xF2000008,
  ePX_1Channel32bit = 0xF4000008,
  ePX_NV12 = 0xF0000100,
  ePX_NV12_C601 = 0xF0100100,
  ePX_NV12_C709 = 0xF0200100,
  ePX_YUY2 = 0xF0000200,
  ePX_YUY2_C601 = 0xF0100200,
  ePX_YUY2_C709 = 0xF0200200,
  ePX_UYVY = 0xF0000300,
  ePX_UYVY_C601 = 0xF0100300,
  ePX_UYVY_C709 = 0xF0200300,
  ePX_YUV_PLANE = 0xF0001000,
  ePX_YUV10_PLANE = 0xF1001000,
  ePX_YUV16_PLANE = 0xF4001000,
  ePX_YUV8_420_PLANE = 0xF0003000,
  ePX_YUV10_420_PLANE = 0xF1003000,
  ePX_YUV16_420_PLANE = 0xF4003000,
  ePX_YUV8_422_PLANE = 0xF0005000,
  ePX_YUV10_422_PLANE = 0xF1005000,
  ePX_YUV16_422_PLANE = 0xF4005000,
};

// Named video standards. 0 to 94 are the base formats; a stereoscopic format
// is a layout code (0x200 side by side, 0x400 top and bottom, 0x1200 and
// 0x1400 their full-resolution forms) plus the base format of the same size
// and rate. Top-and-bottom has no interlaced members, so 1038 to 1040 are free.
enum eKVideoFormat : int32_t {
  eKVF_Custom = 0,
  eKVF_NTSC = 1,
  eKVF_NTSC_2398 = 2,
  eKVF_NTSC_16x9 = 3,
  eKVF_PAL = 4,
  eKVF_PAL_16x9 = 5,
  eKVF_HD720_50p = 6,
  eKVF_HD720_5994p = 7,
  eKVF_HD720_60p = 8,
  eKVF_HD1080_2398p = 9,
  eKVF_HD1080_24p = 10,
  eKVF_HD1080_25p = 11,
  eKVF_HD1080_2997p = 12,
  eKVF_HD1080_30p = 13,
  eKVF_HD1080_50i = 14,
  eKVF_HD1080_5994i = 15,
  eKVF_HD1080_60i = 16,
  eKVF_HD1080_50p = 17,
  eKVF_HD1080_5994p = 18,
  eKVF_HD1080_60p = 19,
  eKVF_HD1080_9590p = 20,
  eKVF_HD1080_96p = 21,
  eKVF_HD1080_100p = 22,
  eKVF_HD1080_11988p = 23,
  eKVF_HD1080_120p = 24,
  eKVF_2K_DCI_2398p = 25,
  eKVF_2K_DCI_24p = 26,
  eKVF_2K_DCI_25p = 27,
  eKVF_2K_DCI_2997p = 28,
  eKVF_2K_DCI_30p = 29,
  eKVF_2K_DCI_4795p = 30,
  eKVF_2K_DCI_48p = 31,
  eKVF_2K_DCI_50p = 32,
  eKVF_2K_DCI_5994p = 33,
  eKVF_2K_DCI_60p = 34,
  eKVF_2K_DCI_9590p = 35,
  eKVF_2K_DCI_96p = 36,
  eKVF_2K_DCI_100p = 37,
  eKVF_2K_DCI_11988p = 38,
  eKVF_2K_DCI_120p = 39,
  eKVF_2K_2398p = 40,
  eKVF_2K_24p = 41,
  eKVF_2K_25p = 42,
  eKVF_4K_UHD_50i = 43,
  eKVF_4K_UHD_5994i = 44,
  eKVF_4K_UHD_60i = 45,
  eKVF_4K_UHD_2398p = 46,
  eKVF_4K_UHD_24p = 47,
  eKVF_4K_UHD_25p = 48,
  eKVF_4K_UHD_2997p = 49,
  eKVF_4K_UHD_30p = 50,
  eKVF_4K_DCI_2398p = 51,
  eKVF_4K_DCI_24p = 52,
  eKVF_4K_DCI_25p = 53,
  eKVF_4K_DCI_2997p = 54,
  eKVF_4K_DCI_30p = 55,
  eKVF_4K_DCI_4795p = 56,
  eKVF_4K_DCI_48p = 57,
  eKVF_4K_UHD_50p = 58,
  eKVF_4K_UHD_5994p = 59,
  eKVF_4K_UHD_60p = 60,
  eKVF_4K_UHD_9590p = 61,
  eKVF_4K_UHD_96p = 62,
  eKVF_4K_UHD_100p = 63,
  eKVF_4K_UHD_11988p = 64,
  eKVF_4K_UHD_120p = 65,
  eKVF_4K_DCI_50p = 66,
  eKVF_4K_DCI_5994p = 67,
  eKVF_4K_DCI_60p = 68,
  eKVF_4K_DCI_9590p = 69,
  eKVF_4K_DCI_96p = 70,
  eKVF_4K_DCI_100p = 71,
  eKVF_4K_DCI_11988p = 72,
  eKVF_4K_DCI_120p = 73,
  eKVF_8K_UHD_2398p = 74,
  eKVF_8K_UHD_24p = 75,
  eKVF_8K_UHD_25p = 76,
  eKVF_8K_UHD_2997p = 77,
  eKVF_8K_UHD_30p = 78,
  eKVF_8K_UHD_4795p = 79,
  eKVF_8K_UHD_48p = 80,
  eKVF_8K_UHD_50p = 81,
  eKVF_8K_UHD_5994p = 82,
  eKVF_8K_UHD_60p = 83,
  eKVF_8K_DCI_2398p = 84,
  eKVF_8K_DCI_24p = 85,
  eKVF_8K_DCI_25p = 86,
  eKVF_8K_DCI_2997p = 87,
  eKVF_8K_DCI_30p = 88,
  eKVF_8K_DCI_4795p = 89,
  eKVF_8K_DCI_48p = 90,
  eKVF_8K_DCI_50p = 91,
  eKVF_8K_DCI_5994p = 92,
  eKVF_8K_DCI_60p = 93,
  eKVF_Disabled = 94,
  eKVF_3D_SbS_720_50p = 518,
  eKVF_3D_SbS_720_5994p = 519,
  eKVF_3D_SbS_720_60p = 520,
  eKVF_3D_SbS_1080_2398p = 521,
  eKVF_3D_SbS_1080_24p = 522,
  eKVF_3D_SbS_1080_25p = 523,
  eKVF_3D_SbS_1080_2997p = 524,
  eKVF_3D_SbS_1080_30p = 525,
  eKVF_3D_SbS_1080_50i = 526,
  eKVF_3D_SbS_1080_5994i = 527,
  eKVF_3D_SbS_1080_60i = 528,
  eKVF_3D_SbS_1080_50p = 529,
  eKVF_3D_SbS_1080_5994p = 530,
  eKVF_3D_SbS_1080_60p = 531,
  eKVF_3D_TnB_720_50p = 1030,
  eKVF_3D_TnB_720_5994p = 1031,
  eKVF_3D_TnB_720_60p = 1032,
  eKVF_3D_TnB_1080_2398p = 1033,
  eKVF_3D_TnB_1080_24p = 1034,
  eKVF_3D_TnB_1080_25p = 1035,
  eKVF_3D_TnB_1080_2997p = 1036,
  eKVF_3D_TnB_1080_30p = 1037,
  eKVF_3D_TnB_1080_50p = 1041,
  eKVF_3D_TnB_1080_5994p = 1042,
  eKVF_3D_TnB_1080_60p = 1043,
  eKVF_3D_Full_SbS_720_50p = 4614,
  eKVF_3D_Full_SbS_720_5994p = 4615,
  eKVF_3D_Full_SbS_720_60p = 4616,
  eKVF_3D_Full_SbS_1080_2398p = 4617,
  eKVF_3D_Full_SbS_1080_24p = 4618,
  eKVF_3D_Full_SbS_1080_25p = 4619,
  eKVF_3D_Full_SbS_1080_2997p = 4620,
  eKVF_3D_Full_SbS_1080_30p = 4621,
  eKVF_3D_Full_SbS_1080_50i = 4622,
  eKVF_3D_Full_SbS_1080_5994i = 4623,
  eKVF_3D_Full_SbS_1080_60i = 4624,
  eKVF_3D_Full_TnB_720_50p = 5126,
  eKVF_3D_Full_TnB_720_5994p = 5127,
  eKVF_3D_Full_TnB_720_60p = 5128,
  eKVF_3D_Full_TnB_1080_2398p = 5129,
  eKVF_3D_Full_TnB_1080_24p = 5130,
  eKVF_3D_Full_TnB_1080_25p = 5131,
  eKVF_3D_Full_TnB_1080_2997p = 5132,
  eKVF_3D_Full_TnB_1080_30p = 5133,
  eKVF_3D_Full_TnB_1080_50i = 5134,
  eKVF_3D_Full_TnB_1080_5994i = 5135,
  eKVF_3D_Full_TnB_1080_60i = 5136,
};

enum eKTimecodeFlags : uint32_t {
  eKTCF_NonDropFrame = 0,
  eKTCF_DropFrame = 0x1,
  eKTCF_Rate = 0xFF0,
  eKTCF_Rate_24 = 0x10,
  eKTCF_Rate_25 = 0x20,
  eKTCF_Rate_30 = 0x40,
  eKTCF_Rate_30_DF = 0x41,
  eKTCF_Rate_50 = 0x120,
  eKTCF_Rate_60 = 0x140,
  eKTCF_Rate_60_DF = 0x141,
  eKTCF_Rate_50_Odd = 0x220,
  eKTCF_Rate_60_Odd = 0x240,
  eKTCF_Rate_60_DF_Odd = 0x241,
  eKTCF_FieldNumber = 0xF00,
  eKTCF_Progressive_Even_Frame = 0x100,
  eKTCF_Progressive_Odd_Frame = 0x200,
  eKTCF_Progressive_3th_Frame = 0x300,
  eKTCF_Progressive_4th_Frame = 0x400,
  eKTCF_Progressive_5th_Frame = 0x500,
  eKTCF_Progressive_6th_Frame = 0x600,
  eKTCF_Progressive_7th_Frame = 0x700,
  eKTCF_Progressive_8th_Frame = 0x800,
  eKTCF_SrcTC = 0x1000,
  eKTCF_UserTC = 0x2000,
  eKTCF_SrcTCUserbits = 0x4000,
  eKTCF_LocalTimeTC = 0x10000,
  eKTCF_LocalTimeSyncTC = 0x20000,
  eKTCF_Invalid = 0x80000000,
  // Origin bit plus a rate or field member.
  eKTCF_SrcTC_DropFrame = 0x1001,
  eKTCF_SrcTC_Rate_24 = 0x1010,
  eKTCF_SrcTC_Rate_25 = 0x1020,
  eKTCF_SrcTC_Rate_30_DF = 0x1041,
  eKTCF_SrcTC_Rate_30 = 0x1040,
  eKTCF_SrcTC_Progressive_Even_Frame = 0x1100,
  eKTCF_SrcTC_Progressive_Odd_Frame = 0x1200,
  eKTCF_SrcTC_Rate_50 = 0x1120,
  eKTCF_SrcTC_Rate_60_DF = 0x1141,
  eKTCF_SrcTC_Rate_60 = 0x1140,
  eKTCF_SrcTC_Rate_50_Odd = 0x1220,
  eKTCF_SrcTC_Rate_60_DF_Odd = 0x1241,
  eKTCF_SrcTC_Rate_60_Odd = 0x1240,
  eKTCF_UserTC_DropFrame = 0x2001,
  eKTCF_UserTC_Rate_24 = 0x2010,
  eKTCF_UserTC_Rate_25 = 0x2020,
  eKTCF_UserTC_Rate_30_DF = 0x2041,
  eKTCF_UserTC_Rate_30 = 0x2040,
  eKTCF_UserTC_Progressive_Even_Frame = 0x2100,
  eKTCF_UserTC_Progressive_Odd_Frame = 0x2200,
  eKTCF_UserTC_Rate_50 = 0x2120,
  eKTCF_UserTC_Rate_60_DF = 0x2141,
  eKTCF_UserTC_Rate_60 = 0x2140,
  eKTCF_UserTC_Rate_50_Odd = 0x2220,
  eKTCF_UserTC_Rate_60_DF_Odd = 0x2241,
  eKTCF_UserTC_Rate_60_Odd = 0x2240,
};

enum eKFrameFlags : int32_t {
  eKFF_Main_Mask = 0xFFFF,
  eKFF_None = 0,
  eKFF_Break = 0x1,
  eKFF_Last = 0x2,
  // A duplicated or paused frame also breaks the timeline.
  eKFF_Dup = 0x11,
  eKFF_Pause = 0x21,
  eKFF_AddedFrame = 0x40,
  eKFF_SkippedFrame = 0x80,
  eKFF_Live = 0x100,
  eKFF_Net = 0x200,
  eKFF_Reverse = 0x1000,
  eKFF_ReverseTime = 0x2000,
  eKFF_Type_Mask = 0xF0000,
  eKFF_Intra = 0x10000,
  eKFF_Predicted = 0x20000,
  eKFF_Bidir_Predicted = 0x30000,
  eKFF_S_GMC_VOP_MPEG4 = 0x40000,
  eKFF_Switching_Intra = 0x50000,
  eKFF_Switching_Predicted = 0x60000,
  eKFF_BI = 0x70000,
  eKFF_BufferPos_Zero = 0x1000000,
  eKFF_BufferPos_Min = 0x40000000,
  eKFF_BufferPos_Max = 0x7E000000,
  eKFF_BufferPos_Overflow = 0x7F000000,
  eKFF_Last_Break = 0x3,
  eKFF_Last_Dup = 0x13,
  eKFF_Last_Pause = 0x23,
  eKFF_Live_Break = 0x101,
  eKFF_Live_Last = 0x102,
  eKFF_Live_Last_Break = 0x103,
  eKFF_Live_AddedFrame = 0x140,
  eKFF_Live_SkippedFrame = 0x180,
  eKFF_Net_Break = 0x201,
  eKFF_Net_Last = 0x202,
  eKFF_Net_Last_Break = 0x203,
  eKFF_Reverse_Break = 0x1001,
  eKFF_Reverse_Last = 0x1002,
  eKFF_Reverse_Pause = 0x1021,
  eKFF_Break_Intra = 0x10001,
  eKFF_Reverse_Intra = 0x11000,
  eKFF_Reverse_Break_Intra = 0x11001,
  eKFF_Net_Intra = 0x10200,
  eKFF_Net_Break_Intra = 0x10201,
  eKFF_Break_Predicted = 0x20001,
  eKFF_Reverse_Predicted = 0x21000,
  eKFF_Reverse_Break_Predicted = 0x21001,
  eKFF_Net_Predicted = 0x20200,
  eKFF_Net_Break_Predicted = 0x20201,
  eKFF_Break_Bidir_Predicted = 0x30001,
  eKFF_Reverse_Bidir_Predicted = 0x31000,
  eKFF_Reverse_Break_Bidir_Predicted = 0x31001,
  eKFF_Net_Bidir_Predicted = 0x30200,
  eKFF_Net_Break_Bidir_Predicted = 0x30201,
  eKFF_Break_S_GMC_VOP_MPEG4 = 0x40001,
  eKFF_Reverse_S_GMC_VOP_MPEG4 = 0x41000,
  eKFF_Reverse_Break_S_GMC_VOP_MPEG4 = 0x41001,
  eKFF_Net_S_GMC_VOP_MPEG4 = 0x40200,
  eKFF_Net_Break_S_GMC_VOP_MPEG4 = 0x40201,
  eKFF_Break_Switching_Intra = 0x50001,
  eKFF_Reverse_Switching_Intra = 0x51000,
  eKFF_Reverse_Break_Switching_Intra = 0x51001,
  eKFF_Net_Switching_Intra = 0x50200,
  eKFF_Net_Break_Switching_Intra = 0x50201,
  eKFF_Break_Switching_Predicted = 0x60001,
  eKFF_Reverse_Switching_Predicted = 0x61000,
  eKFF_Reverse_Break_Switching_Predicted = 0x61001,
  eKFF_Net_Switching_Predicted = 0x60200,
  eKFF_Net_Break_Switching_Predicted = 0x60201,
  eKFF_Break_BI = 0x70001,
  eKFF_Reverse_BI = 0x71000,
  eKFF_Reverse_Break_BI = 0x71001,
  eKFF_Net_BI = 0x70200,
  eKFF_Net_Break_BI = 0x70201,
};

// How much of a frame a clone, save or load takes.
enum eKFrameClone : int32_t {
  eKFC_Props = 0,
  eKFC_Video = 0x1,
  eKFC_VideoRef = 0x2,
  eKFC_Audio = 0x10,
  eKFC_VideoRef_Audio = 0x12,
  eKFC_Data = 0x100,
  eKFC_Data_Audio = 0x110,
  eKFC_Obj = 0x200,
  eKFC_ObjData_Audio = 0x310,
  eKFC_Full = 0x311,
  eKFC_Reference = 0x312,
  eKFC_ForceCPU = 0x1000,
  eKFC_ForceGPU = 0x2000,
  eKFC_Video_ForceCPU = 0x1001,
  eKFC_VideoRef_ForceCPU = 0x1002,
  eKFC_VideoRef_Audio_ForceCPU = 0x1012,
  eKFC_Full_ForceCPU = 0x1311,
  eKFC_Reference_ForceCPU = 0x1312,
  eKFC_Video_ForceGPU = 0x2001,
  eKFC_VideoRef_ForceGPU = 0x2002,
  eKFC_VideoRef_Audio_ForceGPU = 0x2012,
  eKFC_Full_ForceGPU = 0x2311,
  eKFC_Reference_ForceGPU = 0x2312,
  eKFC_BottomTop_ARGB = 0x10000,
};

enum eVCRectType : int32_t {
  eVCRT_Absolute = 0,
  eVCRT_Relative = 1,
  eVCRT_FixedCC_15x32 = 2,
  eVCRT_Fixed14 = 14,
  eVCRT_Fixed20 = 20,
  eVCRT_Fixed24 = 24,
  eVCRT_Fixed32 = 32,
  eVCRT_Fixed40 = 40,
};

// Text placement. Only the top row has a Justify value of its own; in the
// centre and bottom rows Justify equals Right, and hosts depend on that.
enum eVCTextFlags : int32_t {
  eVCTF_HPos_Mask = 0x3,
  eVCTF_VPos_Mask = 0x30,
  eVCTF_TopLeft = 0x0,
  eVCTF_TopCenter = 0x1,
  eVCTF_TopRight = 0x2,
  eVCTF_TopJustify = 0x3,
  eVCTF_CenterLeft = 0x10,
  eVCTF_Center = 0x11,
  eVCTF_CenterRight = 0x12,
  eVCTF_CenterJustify = 0x12,
  eVCTF_BottomLeft = 0x20,
  eVCTF_BottomCenter = 0x21,
  eVCTF_BottomRight = 0x22,
  eVCTF_BottomJustify = 0x22,
  eVCT_WordBreaks = 0x100,
  eVCT_RightToLeft = 0x200,
  eVCT_Vertical = 0x400,
  eVCTF_WB_TopLeft = 0x100,
  eVCTF_WB_TopCenter = 0x101,
  eVCTF_WB_TopRight = 0x102,
  eVCTF_WB_TopJustify = 0x103,
  eVCTF_WB_CenterLeft = 0x110,
  eVCTF_WB_Center = 0x111,
  eVCTF_WB_CenterRight = 0x112,
  eVCTF_WB_CenterJustify = 0x112,
  eVCTF_WB_BottomLeft = 0x120,
  eVCTF_WB_BottomCenter = 0x121,
  eVCTF_WB_BottomRight = 0x122,
  eVCTF_WB_BottomJustify = 0x122,
  eVCTF_FirstField = 0x1000,
  eVCTF_SecondField = 0x2000,
};

enum eVCOverlayFlags : int32_t {
  eVCOF_NoScale = 0,
  eVCOF_LetterBox = 1,
  eVCOF_Crop = 2,
  eVCOF_NoAR = 4,
  eVCOF_ScaleMask = 0xF,
  eVCOF_FirstField = 0x1000,
  eVCOF_SecondField = 0x2000,
};

struct K_RATIONAL {
  LONG nNum;
  LONG nDen;
};

// One elementary stream: splitter output, muxer input, decoder query.
struct K_STREAM_INFO {
  eVCMediaType eMediaType;
  LONG cbCodecData;
  // Codec private data; owned by whoever filled the record.
  LONGLONG lpCodecData;
  K_RATIONAL raTimeBase;
  LONG nWidth;
  LONG nHeight;
  LONG nAspectX;
  LONG nAspectY;
  double dblRate;
  LONG nSampleRate;
  LONG nChannels;
  LONG nBlockAlign;
  LONG nBitsPerCodedSample;
  LONG nBitrate;
  // In a record a method hands out (an out record), a fresh string that
  // the caller frees with SysFreeString, like every out string. In a
  // record passed in, the caller's.
  BSTR bsCodecNameOrTag;
};

// One compressed packet.
struct K_PACKET_INFO {
  eVCPacketFlags eFlags;
  LONG cbPacketData;
  LONGLONG lpPacketData;
  LONGLONG llDts;
  LONGLONG llPts;
  LONGLONG llDuration;
  LONGLONG rtSegmentStart;
  LONG nIndexInSegment;
  LONG nOrderInSegment;
  LONG nKeyDistance;
  LONG nStreamIndex;
  LONGLONG llFilePos;
  LONGLONG lpSideData;
  LONG cbSideData;
  LONG nSideDatatype;
  LONG nSideDataElems;
};

struct K_TIMECODE {
  LONG nHours;
  LONG nMinutes;
  LONG nSeconds;
  LONG nFrames;
  eKTimecodeFlags eTCFlags;
  LONG nExtraCounter;
};

struct K_TIME {
  LONGLONG rtStartTime;
  LONGLONG rtEndTime;
  K_TIMECODE tcFrame;
  eKFrameFlags eFFlags;
};

// The aspect fields are 16-bit here (32-bit in K_STREAM_INFO): published
// that way, so the difference stays.
struct K_VID_PROPS {
  eKVideoFormat eVideoFormat;
  eVCCC fccType;
  LONG nWidth;
  LONG nHeight;
  LONG nRowBytes;
  eKInterlace eInterlace;
  SHORT nAspectX;
  SHORT nAspectY;
  double dblRate;
  eKScaleType eScaleType;
  eGPUTextureFormat eGPUFlags;
};

struct K_AUD_PROPS {
  LONG nChannels;
  LONG nSamplesPerSec;
  LONG nBitsPerSample;
  LONG nTrackSplitBits;
};

struct LUFS_METERS {
  float fM;
  float fS;
  float fI;
  float fLRA;
  float fLRALow;
  float fLRAHigh;
  float fMaxTPL;
  float arrTPL[32];
  float arrReserved[121];
};

struct K_AUDIO_LOUDNESS {
  float arrVUMeter[32];
  float arrVUPeaks[32];
  float arrRMS[32];
  LUFS_METERS lufs;
  LONG nValidChannels;
  LONG nValidTracks;
  LONG nTracksSplitBit;
};

struct K_ANC_DATA {
  eKANCFlags eFlags;
  K_AUDIO_LOUDNESS audOriginal;
  K_AUDIO_LOUDNESS audOutput;
};

struct K_AV_PROPS {
  K_VID_PROPS vidProps;
  K_AUD_PROPS audProps;
  K_ANC_DATA ancData;
  BOOL bLocked;
};

// Everything about a frame at once (IVCFrame::VCAllGet).
struct VC_FRAME_INFO {
  LONGLONG llVideoID;
  K_TIME mTime;
  K_AV_PROPS avProps;
  DWORD cbAudio;
  DWORD cbVideo;
  LONGLONG lpVideo;
  LONGLONG lpAudio;
  LONG lAudioSamples;
  DWORD dwProcessID;
  LONG nDataCount;
  LONG nObjCount;
  LONG nStrCount;
};

struct VC_VID_PTR {
  LONGLONG lpVideoPlanes[4];
  SIZE szVideoPlanes[4];
  LONG cbVideoRowBytes[4];
};

struct VC_RECT {
  double dblPosX;
  double dblPosY;
  double dblWidth;
  double dblHeight;
  eVCRectType eRectType;
};

struct IVCSplitter;
struct IVCPacket;
struct IVCDecoder;
struct IVCEncoder;
struct IVCMuxer;
struct IVCProps;
struct IVCFrame;
struct IVCAudioBuffer;

// Demultiplexer: opens a source and delivers its packets per stream.
// Strings, on every interface: an input string stays the caller's and is
// read up to its terminating zero, so a plain zero-terminated wide string
// serves. Every output string, the BSTR inside an out record included, is a
// fresh allocation the caller frees with SysFreeString; a failed call leaves
// its out strings null.
struct IVCSplitter : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE SplitterOpen(BSTR _bsFilePath, BSTR _bsProps, LONG* _pnStreamsCount) = 0;
  virtual HRESULT STDMETHODCALLTYPE SplitterInfoGet(BSTR* _pbsFilePath, BSTR* _pbsXMLInfo, LONG* _pnStreamsCount,
      LONGLONG* _prtTotalDuration) = 0;
  virtual HRESULT STDMETHODCALLTYPE SplitterStreamInfoGet(LONG _nStream, K_STREAM_INFO* _pStreamInfo,
      BSTR* _pbsStreamXMLInfo) = 0;
  virtual HRESULT STDMETHODCALLTYPE SplitterBeginSegment(LONGLONG _rtSegmentStart, BSTR _bsHints) = 0;
  virtual HRESULT STDMETHODCALLTYPE SplitterPacketGet(LONG _nStreamIdx, IVCPacket** _ppPacket, BSTR _bsHints) = 0;
  virtual HRESULT STDMETHODCALLTYPE SplitterStop() = 0;
  virtual HRESULT STDMETHODCALLTYPE SplitterClose() = 0;
};
VC_DECLARE_IID(IVCSplitter, "04FBCF02-887B-4AEB-B30C-408E98E6B397");

// One compressed packet.
struct IVCPacket : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE PacketInfoGet(K_PACKET_INFO* _pPacketInfo) = 0;
  virtual HRESULT STDMETHODCALLTYPE PacketInfoSet(K_PACKET_INFO* _pPacketInfo) = 0;
  virtual HRESULT STDMETHODCALLTYPE PacketStreamInfoGet(K_STREAM_INFO* _pStreamInfo) = 0;
  virtual HRESULT STDMETHODCALLTYPE PacketTimeGet(K_TIME* _pTime) = 0;
  virtual HRESULT STDMETHODCALLTYPE PacketAppendData(LONG cbData, LONGLONG lpData) = 0;
};
VC_DECLARE_IID(IVCPacket, "04FBCF64-887B-4AEB-B30C-408E98E6B397");

// Decoder: packets in, frames out.
struct IVCDecoder : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE DecodeIsSupported(K_STREAM_INFO* _pStreamInfo, IVCPacket* _pVCPacket,
      BOOL* _pbSupported) = 0;
  virtual HRESULT STDMETHODCALLTYPE DecodePacket(IVCPacket* _pVCPacket, LONGLONG _rtSegmentStart,
      K_AV_PROPS* _pAVPropsOut, IVCFrame** _ppFrame, BSTR _bsHints) = 0;
  virtual HRESULT STDMETHODCALLTYPE DecodeAudio(IVCPacket* _pVCPacket, LONGLONG _rtSegmentStart,
      IVCAudioBuffer* _pAudioBuffer, LONG* _plSamplesDecode, BSTR _bsHints) = 0;
  virtual HRESULT STDMETHODCALLTYPE DecodeClose() = 0;
};
VC_DECLARE_IID(IVCDecoder, "04FBCF79-887B-4AEB-B30C-408E98E6B397");

// Encoder: frames in, packets out.
struct IVCEncoder : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE EncodeCodecSet(eVCMediaType _eCodecType, BSTR _bsConfigParams) = 0;
  virtual HRESULT STDMETHODCALLTYPE EncodeFramePut(IVCFrame* _pFrame, K_AV_PROPS* _pAVPropsOut, IVCPacket** _ppPacket,
      BSTR _bsHints) = 0;
  virtual HRESULT STDMETHODCALLTYPE EncodePacketsGet(IVCPacket** _ppPacket, LONG* _pnReadyPackets,
      LONGLONG _rtMaxWaitTime, BSTR _bsHints) = 0;
  virtual HRESULT STDMETHODCALLTYPE EncodeClose() = 0;
};
VC_DECLARE_IID(IVCEncoder, "04FBCF26-887B-4AEB-B30C-408E98E6B397");

// Multiplexer: streams and packets in, a file out.
struct IVCMuxer : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE MuxerSet(BSTR _bsFilePath, BSTR _bsProps) = 0;
  virtual HRESULT STDMETHODCALLTYPE MuxerStreamAdd(K_STREAM_INFO* _pStreamInfo, BSTR _bsProps, LONG* _pnStreamIdx) = 0;
  virtual HRESULT STDMETHODCALLTYPE MuxerStreamInfoGet(LONG _nStreamIdx, K_STREAM_INFO* _pStreamInfo,
      BSTR* _pbsProps) = 0;
  virtual HRESULT STDMETHODCALLTYPE MuxerPacketPut(LONG _nStreamIdx, IVCPacket* _pPacket, BSTR _bsHints) = 0;
  virtual HRESULT STDMETHODCALLTYPE MuxerClose() = 0;
};
VC_DECLARE_IID(IVCMuxer, "04FBCF23-887B-4AEB-B30C-408E98E6B397");

// common Interface for properties get/set.
struct IVCProps : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE PropsSet(BSTR _bsPropName, BSTR _bsPropValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE PropsGet(BSTR _bsPropName, BSTR* _pbsPropValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE PropsGetCount(BSTR _bsNodeName, LONG* _pnCount) = 0;
  virtual HRESULT STDMETHODCALLTYPE PropsGetByIndex(BSTR _bsNodeName, LONG _nIndex, BSTR* _pbsPropName,
      BSTR* _pbsPropValue, BOOL* _pbNode) = 0;
  virtual HRESULT STDMETHODCALLTYPE PropsRemove(BSTR _bsPropName) = 0;
  virtual HRESULT STDMETHODCALLTYPE PropsInfoGet(BSTR _bsPropName, eKInfoType _eType, BSTR* _pbsInfo) = 0;
  virtual HRESULT STDMETHODCALLTYPE PropsOptionGetCount(BSTR _bsPropName, LONG* _pnOptionCount) = 0;
  virtual HRESULT STDMETHODCALLTYPE PropsOptionGetByIndex(BSTR _bsPropName, LONG _nOptionIdx, BSTR* _pbsOptionValue,
      BSTR* _pbsHelp) = 0;
  virtual HRESULT STDMETHODCALLTYPE PropsOptionSetByIndex(BSTR _bsPropName, LONG _nOptionInx) = 0;
  virtual HRESULT STDMETHODCALLTYPE PropsOptionGet(BSTR _bsPropName, LONG* _pnOptionIdx, BSTR* _pbsOptionValue,
      BSTR* _pbsHelp) = 0;
};
VC_DECLARE_IID(IVCProps, "4F366720-473F-4AD5-A5C2-428FE0C8E03E");

// Uncompressed frame: video, audio, attached data, objects and strings.
// Implemented by the frame objects of sibling modules and hosts; the facades
// only call it.
struct IVCFrame : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE VCGetProcessID(DWORD* _pdwProcessID) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCAVPropsGet(K_AV_PROPS* _pProps, LONG* _plAudioSamples) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCAVPropsSet(K_AV_PROPS* _pProps, BSTR _bsChannelsRemap) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCTimeGet(K_TIME* _pTime) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCTimeSet(K_TIME* _pTime) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCFlagCheck(eKFrameFlags _eFlagCheck, LONG* _pnRes) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCAllGet(VC_FRAME_INFO* _pFrameInfo) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCAudioGetBytes(LONG* _pcbSize, LONGLONG* _ppbAudio) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCAudioChannelGetBytes(LONG _nChannel, BOOL _bCreateNewChannels, LONG* _pcbSize,
      LONGLONG* _ppbAudio) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCAudioChannelsUpdate() = 0;
  virtual HRESULT STDMETHODCALLTYPE VCAudioAlloc(K_AUD_PROPS* _pAudProps, LONG _lSamples) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCAudioSet(K_AUD_PROPS* _pAudProps, LONG _cbSize, LONGLONG _pbAudio) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCAudioMixDirect(LONG* _plAudioOffsetSrc, IVCFrame* _pFrameMixFrom,
      LONG* _plAudioOffsetMix, LONG _lSamplesMixMax, double _dblGainStartDb, double _dblGainEndDb,
      BOOL _bSymmetricGain) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCAudioMix(IVCFrame* _pFrameMixFrom, double _dblGainStartDb, double _dblGainEndDb,
      BOOL _bSymmetricGain, BSTR _bsAudioBufferID) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCAudioCopyTo(BSTR _bsChannelsList, IVCFrame* _pFrameTo) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCAudioSaveToFile(BSTR _bsFileName, BOOL _bAppend) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCAudioLoadFromFile(BSTR _bsFileName, LONGLONG _llSamplesOffset,
      LONG _lSamplesLoad) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCAudioGain(BSTR _bsChannelsList, double _dblGainStartDb, double _dblGainEndDb) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCVideoGetBytes(LONG* _pcbSize, LONGLONG* _ppbVideo) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCVideoGetHbitmap(LONGLONG* _pllHBitmap) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCVideoSaveToFile(BSTR _bsFileName) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCCut(LONG _nField, RECT* _pRect, IVCFrame** _ppFrameRes) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCClone(IVCFrame** _ppCloneFrame, eKFrameClone _eCloneType,
      eVCCC _fccPixelFormat) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCOverlay(IUnknown* _pFrameOverlay, IUnknown* _pFrameMask, LONG _nPosX, LONG _nPosY,
      double _dblAlpha, BSTR _bsPropsList, BSTR _bsAudioBufferID) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCConvert(K_AV_PROPS* _pPropsDest, IVCFrame** _ppFrameRes, LONG* _pnFrameRest,
      BSTR _bsPropsList, BSTR _bsConverterID) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCResize(eVCCC _fccOutput, LONG _nWidth, LONG _nHeight, LONG _nResizeField,
      IVCFrame** _ppFrameRes, BSTR _bsPropsList, BSTR _bsConverterID) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCTransition(IUnknown* _pFrameFrom, IVCFrame** _ppFrameRes, double _dblPos,
      BSTR _bsTransition, BSTR _bsPropsList, BSTR _bsConverterID) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCDataGetByIndex(LONG _nIndex, BSTR* _pbsDataID, LONG* _pcbANCData,
      LONGLONG* _ppbANCData) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCDataGet(BSTR _bsDataID, LONG* _pcbANCData, LONGLONG* _ppbANCData) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCDataSet(BSTR _bsDataID, LONG _cbANCData, LONGLONG _pbANCData) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCObjGetByIndex(LONG _nIndex, BSTR* _pbsObjID, IUnknown** _ppObj,
      BOOL _bMakeLocal) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCObjGet(BSTR _bsObjID, IUnknown** _ppObj, BOOL _bMakeLocal) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCObjSet(BSTR _bsObjID, IUnknown* _pObj) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCStrGetByIndex(LONG _nIndex, BSTR* _pbsStrID, BSTR* _pbsString) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCStrGet(BSTR _bsStrID, BSTR* _pbsString) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCStrSet(BSTR _bsStrID, BSTR _bsString) = 0;
  // The saved bytes are allocated with CoTaskMemAlloc; the caller frees them.
  virtual HRESULT STDMETHODCALLTYPE VCSave(DWORD* _pcbData, BYTE** _ppData, eKFrameClone _eSaveType) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCLoad(DWORD _cbData, BYTE* _pbData, eKFrameClone _eLoadType) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCWaitAsync() = 0;
  virtual HRESULT STDMETHODCALLTYPE VCPrint(BSTR _bsText, double _dblTextSize, VC_RECT* _pRect,
      eVCTextFlags _eVCTextFlags, BSTR _bsExtraParam) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCOverlayRect(IVCFrame* _pFrameOverlay, IVCFrame* _pFrameMask, VC_RECT* _pRect,
      eVCOverlayFlags _eVCOverlayFlags, double _dblAlpha, BSTR _bsPropsList, BSTR _bsAudioBufferID) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCVideoGetBytesEx(VC_VID_PTR* _pVideoPtr) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCSaveToStream(IStream** _ppStream, eKFrameClone _eSaveType) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCAddToStream(IStream* _pStream, eKFrameClone _eSaveType) = 0;
  virtual HRESULT STDMETHODCALLTYPE VCLoadFromStream(IStream* _pStream, eKFrameClone _eLoadType) = 0;
};
VC_DECLARE_IID(IVCFrame, "4F377000-473F-4AD5-A5C2-428FE0C8E03E");

// Audio line buffer.
// Audio line buffer of the host; the decoder passes it through DecodeAudio.
struct IVCAudioBuffer : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE BufferLoadFromFile(BSTR _bsLine, BSTR _bsFileName, LONG _lSamplesOffset,
      LONG _lSamplesLoad) = 0;
  virtual HRESULT STDMETHODCALLTYPE BufferPropsSet(BSTR _bsLine, K_AUD_PROPS* _pAudProps, BOOL _bResetBuffer) = 0;
  virtual HRESULT STDMETHODCALLTYPE BufferPropsGet(BSTR _bsLine, K_AUD_PROPS* _pAudProps, LONG* _plSamples) = 0;
  virtual HRESULT STDMETHODCALLTYPE BufferPutPtr(BSTR _bsLine, K_AUD_PROPS* _pAudProps, LONG _lSamples,
      LONGLONG _pbAudio, BSTR _bsChannelsListOrTrack) = 0;
  virtual HRESULT STDMETHODCALLTYPE BufferFramePut(BSTR _bsLine, IVCFrame* _pFrame, BSTR _bsChannelsListOrTrack) = 0;
  virtual HRESULT STDMETHODCALLTYPE BufferFrameFill(BSTR _bsLine, IVCFrame* _pFrame, LONG* _plSamples,
      BSTR _bsChannelsList) = 0;
  virtual HRESULT STDMETHODCALLTYPE BufferFrameMix(BSTR _bsLineFrom, IVCFrame* _pFrameTo, LONG* _plSamplesMix,
      double _dblGainFromStartDb, double _dblGainFromEndDb, BSTR _bsChannelsListIn, BSTR _bsChannelsListOut) = 0;
  virtual HRESULT STDMETHODCALLTYPE BufferFrameChannelsAppend(BSTR _bsLine, IVCFrame* _pFrame, LONG* _plSamplesAppend,
      BSTR _bsChannelsList) = 0;
  virtual HRESULT STDMETHODCALLTYPE BufferLinesMix(BSTR _bsLineFrom, BSTR _bsLineTo, LONG* _plSamplesMix,
      double _dblGainFromStartDb, double _dblGainFromEndDb, double _dblGainToStartDb, double _dblGainToEndDb,
      BSTR _bsChannelsListIn, BSTR _bsChannelsListOut) = 0;
  virtual HRESULT STDMETHODCALLTYPE BufferLinesRemove(BSTR _bsLine) = 0;
  virtual HRESULT STDMETHODCALLTYPE BufferRemove(BSTR _bsLine, LONG* _plSamples) = 0;
  virtual HRESULT STDMETHODCALLTYPE BufferPutPtrEx(BSTR _bsLine, LONGLONG _rtTime, K_AUD_PROPS* _pAudProps,
      LONG _lSamples, LONGLONG _pbAudio, LONG _cbAudioPlane, BSTR _bsChannelsList) = 0;
  virtual HRESULT STDMETHODCALLTYPE BufferGet(BSTR _bsLine, LONG* _plSamples, LONGLONG* _ppbAudio, LONG _cbAudioPlane,
      BSTR _bsChannelsList) = 0;
  virtual HRESULT STDMETHODCALLTYPE BufferTimesEnable(BSTR _bsLine, BOOL _bEnable, LONGLONG _prtMinDiff,
      LONGLONG _prtMaxDiff) = 0;
  virtual HRESULT STDMETHODCALLTYPE BufferTimesIsEnabled(BSTR _bsLine, BOOL* _pbEnabled, LONGLONG* _prtMinDiff,
      LONGLONG* _prtMaxDiff) = 0;
  virtual HRESULT STDMETHODCALLTYPE BufferTimesGet(BSTR _bsLine, LONGLONG* _prtStartTime, LONGLONG* _prtEndTime) = 0;
  virtual HRESULT STDMETHODCALLTYPE BufferTimesSet(BSTR _bsLine, LONGLONG _rtStartTime, LONGLONG _rtMinEndTime) = 0;
};
VC_DECLARE_IID(IVCAudioBuffer, "B22982A1-E0D5-4977-847D-868F5F0BB90F");

inline constexpr CLSID CLSID_VCSplitter = vc::MakeGuid("96EB1C14-4CC0-4830-9CC3-F064196B2626");
inline constexpr CLSID CLSID_VCDecoder = vc::MakeGuid("96EB1C64-4CC0-4830-9CC3-F064196B2626");
inline constexpr CLSID CLSID_VCEncoder = vc::MakeGuid("96EB1C94-4CC0-4830-9CC3-F064196B2626");
inline constexpr CLSID CLSID_VCMuxer = vc::MakeGuid("96EB1C74-4CC0-4830-9CC3-F064196B2626");
inline constexpr GUID LIBID_VCCodecsCoreLib = vc::MakeGuid("03DF3785-FB0F-4786-A013-4E52BADDBCEE");

namespace vc {
inline constexpr WORD kVCCodecsCoreLibVersionMajor = 1;
inline constexpr WORD kVCCodecsCoreLibVersionMinor = 0;
inline constexpr LCID kVCCodecsCoreLibLcid = 0x409;
}  // namespace vc
