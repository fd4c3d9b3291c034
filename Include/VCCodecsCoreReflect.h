// Generated from VCCodecsCore.idl by tools/idl/idl2h.py. Do not edit: change the IDL and
// regenerate (the idl_header_current test fails while this file is stale).
//
// Name, offset and slot tables of every declaration in VCCodecsCoreTypes.h, for the
// tests that compare the C++ side with the type library and with the fixed
// record layout. Tests only: the slot tables are filled at static
// initialisation and rely on the Itanium C++ ABI (g++, clang, MinGW g++).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "VCCodecsCoreTypes.h"

namespace vc::reflect {

struct FieldInfo {
  const char* pszName;
  size_t cbOffset;
  size_t cbSize;
};

struct RecordInfo {
  const char* pszName;
  size_t cbSize;
  size_t cbAlign;
  std::span<const FieldInfo> fields;
};

struct EnumMemberInfo {
  const char* pszName;
  uint32_t dwValue;
};

struct EnumInfo {
  const char* pszName;
  size_t cbSize;
  std::span<const EnumMemberInfo> members;
};

struct MethodInfo {
  const char* pszName;
  size_t nSlot;  // index in the vtable; IUnknown's three come first
  std::span<const char* const> params;
};

struct InterfaceInfo {
  const char* pszName;
  const IID* pIid;
  std::span<const MethodInfo> methods;
};

struct CoclassInfo {
  const char* pszName;
  const CLSID* pClsid;
  const char* pszDefault;
  std::span<const char* const> interfaces;
};

// Vtable slot of a virtual method. Under the Itanium ABI a pointer to a
// virtual member function holds 1 + the byte offset of its vtable entry.
template <class C, class F>
size_t VtableSlot(F C::*pmf) {
  struct Rep {
    uintptr_t ptr;
    ptrdiff_t adj;
  };
  static_assert(sizeof(pmf) == sizeof(Rep), "pointer to member function is not the Itanium pair");
  Rep rep;
  std::memcpy(&rep, &pmf, sizeof rep);
  return (rep.ptr & 1u) ? (rep.ptr - 1) / sizeof(void*) : SIZE_MAX;
}

inline constexpr FieldInfo kFields_K_RATIONAL[] = {
    {"nNum", offsetof(K_RATIONAL, nNum), sizeof(K_RATIONAL::nNum)},
    {"nDen", offsetof(K_RATIONAL, nDen), sizeof(K_RATIONAL::nDen)},
};
inline constexpr FieldInfo kFields_K_STREAM_INFO[] = {
    {"eMediaType", offsetof(K_STREAM_INFO, eMediaType), sizeof(K_STREAM_INFO::eMediaType)},
    {"cbCodecData", offsetof(K_STREAM_INFO, cbCodecData), sizeof(K_STREAM_INFO::cbCodecData)},
    {"lpCodecData", offsetof(K_STREAM_INFO, lpCodecData), sizeof(K_STREAM_INFO::lpCodecData)},
    {"raTimeBase", offsetof(K_STREAM_INFO, raTimeBase), sizeof(K_STREAM_INFO::raTimeBase)},
    {"nWidth", offsetof(K_STREAM_INFO, nWidth), sizeof(K_STREAM_INFO::nWidth)},
    {"nHeight", offsetof(K_STREAM_INFO, nHeight), sizeof(K_STREAM_INFO::nHeight)},
    {"nAspectX", offsetof(K_STREAM_INFO, nAspectX), sizeof(K_STREAM_INFO::nAspectX)},
    {"nAspectY", offsetof(K_STREAM_INFO, nAspectY), sizeof(K_STREAM_INFO::nAspectY)},
    {"dblRate", offsetof(K_STREAM_INFO, dblRate), sizeof(K_STREAM_INFO::dblRate)},
    {"nSampleRate", offsetof(K_STREAM_INFO, nSampleRate), sizeof(K_STREAM_INFO::nSampleRate)},
    {"nChannels", offsetof(K_STREAM_INFO, nChannels), sizeof(K_STREAM_INFO::nChannels)},
    {"nBlockAlign", offsetof(K_STREAM_INFO, nBlockAlign), sizeof(K_STREAM_INFO::nBlockAlign)},
    {"nBitsPerCodedSample", offsetof(K_STREAM_INFO, nBitsPerCodedSample), sizeof(K_STREAM_INFO::nBitsPerCodedSample)},
    {"nBitrate", offsetof(K_STREAM_INFO, nBitrate), sizeof(K_STREAM_INFO::nBitrate)},
    {"bsCodecNameOrTag", offsetof(K_STREAM_INFO, bsCodecNameOrTag), sizeof(K_STREAM_INFO::bsCodecNameOrTag)},
};
inline constexpr FieldInfo kFields_K_PACKET_INFO[] = {
    {"eFlags", offsetof(K_PACKET_INFO, eFlags), sizeof(K_PACKET_INFO::eFlags)},
    {"cbPacketData", offsetof(K_PACKET_INFO, cbPacketData), sizeof(K_PACKET_INFO::cbPacketData)},
    {"lpPacketData", offsetof(K_PACKET_INFO, lpPacketData), sizeof(K_PACKET_INFO::lpPacketData)},
    {"llDts", offsetof(K_PACKET_INFO, llDts), sizeof(K_PACKET_INFO::llDts)},
    {"llPts", offsetof(K_PACKET_INFO, llPts), sizeof(K_PACKET_INFO::llPts)},
    {"llDuration", offsetof(K_PACKET_INFO, llDuration), sizeof(K_PACKET_INFO::llDuration)},
    {"rtSegmentStart", offsetof(K_PACKET_INFO, rtSegmentStart), sizeof(K_PACKET_INFO::rtSegmentStart)},
    {"nIndexInSegment", offsetof(K_PACKET_INFO, nIndexInSegment), sizeof(K_PACKET_INFO::nIndexInSegment)},
    {"nOrderInSegment", offsetof(K_PACKET_INFO, nOrderInSegment), sizeof(K_PACKET_INFO::nOrderInSegment)},
    {"nKeyDistance", offsetof(K_PACKET_INFO, nKeyDistance), sizeof(K_PACKET_INFO::nKeyDistance)},
    {"nStreamIndex", offsetof(K_PACKET_INFO, nStreamIndex), sizeof(K_PACKET_INFO::nStreamIndex)},
    {"llFilePos", offsetof(K_PACKET_INFO, llFilePos), sizeof(K_PACKET_INFO::llFilePos)},
    {"lpSideData", offsetof(K_PACKET_INFO, lpSideData), sizeof(K_PACKET_INFO::lpSideData)},
    {"cbSideData", offsetof(K_PACKET_INFO, cbSideData), sizeof(K_PACKET_INFO::cbSideData)},
    {"nSideDatatype", offsetof(K_PACKET_INFO, nSideDatatype), sizeof(K_PACKET_INFO::nSideDatatype)},
    {"nSideDataElems", offsetof(K_PACKET_INFO, nSideDataElems), sizeof(K_PACKET_INFO::nSideDataElems)},
};
inline constexpr FieldInfo kFields_K_TIMECODE[] = {
    {"nHours", offsetof(K_TIMECODE, nHours), sizeof(K_TIMECODE::nHours)},
    {"nMinutes", offsetof(K_TIMECODE, nMinutes), sizeof(K_TIMECODE::nMinutes)},
    {"nSeconds", offsetof(K_TIMECODE, nSeconds), sizeof(K_TIMECODE::nSeconds)},
    {"nFrames", offsetof(K_TIMECODE, nFrames), sizeof(K_TIMECODE::nFrames)},
    {"eTCFlags", offsetof(K_TIMECODE, eTCFlags), sizeof(K_TIMECODE::eTCFlags)},
    {"nExtraCounter", offsetof(K_TIMECODE, nExtraCounter), sizeof(K_TIMECODE::nExtraCounter)},
};
inline constexpr FieldInfo kFields_K_TIME[] = {
    {"rtStartTime", offsetof(K_TIME, rtStartTime), sizeof(K_TIME::rtStartTime)},
    {"rtEndTime", offsetof(K_TIME, rtEndTime), sizeof(K_TIME::rtEndTime)},
    {"tcFrame", offsetof(K_TIME, tcFrame), sizeof(K_TIME::tcFrame)},
    {"eFFlags", offsetof(K_TIME, eFFlags), sizeof(K_TIME::eFFlags)},
};
inline constexpr FieldInfo kFields_K_VID_PROPS[] = {
    {"eVideoFormat", offsetof(K_VID_PROPS, eVideoFormat), sizeof(K_VID_PROPS::eVideoFormat)},
    {"fccType", offsetof(K_VID_PROPS, fccType), sizeof(K_VID_PROPS::fccType)},
    {"nWidth", offsetof(K_VID_PROPS, nWidth), sizeof(K_VID_PROPS::nWidth)},
    {"nHeight", offsetof(K_VID_PROPS, nHeight), sizeof(K_VID_PROPS::nHeight)},
    {"nRowBytes", offsetof(K_VID_PROPS, nRowBytes), sizeof(K_VID_PROPS::nRowBytes)},
    {"eInterlace", offsetof(K_VID_PROPS, eInterlace), sizeof(K_VID_PROPS::eInterlace)},
    {"nAspectX", offsetof(K_VID_PROPS, nAspectX), sizeof(K_VID_PROPS::nAspectX)},
    {"nAspectY", offsetof(K_VID_PROPS, nAspectY), sizeof(K_VID_PROPS::nAspectY)},
    {"dblRate", offsetof(K_VID_PROPS, dblRate), sizeof(K_VID_PROPS::dblRate)},
    {"eScaleType", offsetof(K_VID_PROPS, eScaleType), sizeof(K_VID_PROPS::eScaleType)},
    {"eGPUFlags", offsetof(K_VID_PROPS, eGPUFlags), sizeof(K_VID_PROPS::eGPUFlags)},
};
inline constexpr FieldInfo kFields_K_AUD_PROPS[] = {
    {"nChannels", offsetof(K_AUD_PROPS, nChannels), sizeof(K_AUD_PROPS::nChannels)},
    {"nSamplesPerSec", offsetof(K_AUD_PROPS, nSamplesPerSec), sizeof(K_AUD_PROPS::nSamplesPerSec)},
    {"nBitsPerSample", offsetof(K_AUD_PROPS, nBitsPerSample), sizeof(K_AUD_PROPS::nBitsPerSample)},
    {"nTrackSplitBits", offsetof(K_AUD_PROPS, nTrackSplitBits), sizeof(K_AUD_PROPS::nTrackSplitBits)},
};
inline constexpr FieldInfo kFields_LUFS_METERS[] = {
    {"fM", offsetof(LUFS_METERS, fM), sizeof(LUFS_METERS::fM)},
    {"fS", offsetof(LUFS_METERS, fS), sizeof(LUFS_METERS::fS)},
    {"fI", offsetof(LUFS_METERS, fI), sizeof(LUFS_METERS::fI)},
    {"fLRA", offsetof(LUFS_METERS, fLRA), sizeof(LUFS_METERS::fLRA)},
    {"fLRALow", offsetof(LUFS_METERS, fLRALow), sizeof(LUFS_METERS::fLRALow)},
    {"fLRAHigh", offsetof(LUFS_METERS, fLRAHigh), sizeof(LUFS_METERS::fLRAHigh)},
    {"fMaxTPL", offsetof(LUFS_METERS, fMaxTPL), sizeof(LUFS_METERS::fMaxTPL)},
    {"arrTPL", offsetof(LUFS_METERS, arrTPL), sizeof(LUFS_METERS::arrTPL)},
    {"arrReserved", offsetof(LUFS_METERS, arrReserved), sizeof(LUFS_METERS::arrReserved)},
};
inline constexpr FieldInfo kFields_K_AUDIO_LOUDNESS[] = {
    {"arrVUMeter", offsetof(K_AUDIO_LOUDNESS, arrVUMeter), sizeof(K_AUDIO_LOUDNESS::arrVUMeter)},
    {"arrVUPeaks", offsetof(K_AUDIO_LOUDNESS, arrVUPeaks), sizeof(K_AUDIO_LOUDNESS::arrVUPeaks)},
    {"arrRMS", offsetof(K_AUDIO_LOUDNESS, arrRMS), sizeof(K_AUDIO_LOUDNESS::arrRMS)},
    {"lufs", offsetof(K_AUDIO_LOUDNESS, lufs), sizeof(K_AUDIO_LOUDNESS::lufs)},
    {"nValidChannels", offsetof(K_AUDIO_LOUDNESS, nValidChannels), sizeof(K_AUDIO_LOUDNESS::nValidChannels)},
    {"nValidTracks", offsetof(K_AUDIO_LOUDNESS, nValidTracks), sizeof(K_AUDIO_LOUDNESS::nValidTracks)},
    {"nTracksSplitBit", offsetof(K_AUDIO_LOUDNESS, nTracksSplitBit), sizeof(K_AUDIO_LOUDNESS::nTracksSplitBit)},
};
inline constexpr FieldInfo kFields_K_ANC_DATA[] = {
    {"eFlags", offsetof(K_ANC_DATA, eFlags), sizeof(K_ANC_DATA::eFlags)},
    {"audOriginal", offsetof(K_ANC_DATA, audOriginal), sizeof(K_ANC_DATA::audOriginal)},
    {"audOutput", offsetof(K_ANC_DATA, audOutput), sizeof(K_ANC_DATA::audOutput)},
};
inline constexpr FieldInfo kFields_K_AV_PROPS[] = {
    {"vidProps", offsetof(K_AV_PROPS, vidProps), sizeof(K_AV_PROPS::vidProps)},
    {"audProps", offsetof(K_AV_PROPS, audProps), sizeof(K_AV_PROPS::audProps)},
    {"ancData", offsetof(K_AV_PROPS, ancData), sizeof(K_AV_PROPS::ancData)},
    {"bLocked", offsetof(K_AV_PROPS, bLocked), sizeof(K_AV_PROPS::bLocked)},
};
inline constexpr FieldInfo kFields_VC_FRAME_INFO[] = {
    {"llVideoID", offsetof(VC_FRAME_INFO, llVideoID), sizeof(VC_FRAME_INFO::llVideoID)},
    {"mTime", offsetof(VC_FRAME_INFO, mTime), sizeof(VC_FRAME_INFO::mTime)},
    {"avProps", offsetof(VC_FRAME_INFO, avProps), sizeof(VC_FRAME_INFO::avProps)},
    {"cbAudio", offsetof(VC_FRAME_INFO, cbAudio), sizeof(VC_FRAME_INFO::cbAudio)},
    {"cbVideo", offsetof(VC_FRAME_INFO, cbVideo), sizeof(VC_FRAME_INFO::cbVideo)},
    {"lpVideo", offsetof(VC_FRAME_INFO, lpVideo), sizeof(VC_FRAME_INFO::lpVideo)},
    {"lpAudio", offsetof(VC_FRAME_INFO, lpAudio), sizeof(VC_FRAME_INFO::lpAudio)},
    {"lAudioSamples", offsetof(VC_FRAME_INFO, lAudioSamples), sizeof(VC_FRAME_INFO::lAudioSamples)},
    {"dwProcessID", offsetof(VC_FRAME_INFO, dwProcessID), sizeof(VC_FRAME_INFO::dwProcessID)},
    {"nDataCount", offsetof(VC_FRAME_INFO, nDataCount), sizeof(VC_FRAME_INFO::nDataCount)},
    {"nObjCount", offsetof(VC_FRAME_INFO, nObjCount), sizeof(VC_FRAME_INFO::nObjCount)},
    {"nStrCount", offsetof(VC_FRAME_INFO, nStrCount), sizeof(VC_FRAME_INFO::nStrCount)},
};
inline constexpr FieldInfo kFields_VC_VID_PTR[] = {
    {"lpVideoPlanes", offsetof(VC_VID_PTR, lpVideoPlanes), sizeof(VC_VID_PTR::lpVideoPlanes)},
    {"szVideoPlanes", offsetof(VC_VID_PTR, szVideoPlanes), sizeof(VC_VID_PTR::szVideoPlanes)},
    {"cbVideoRowBytes", offsetof(VC_VID_PTR, cbVideoRowBytes), sizeof(VC_VID_PTR::cbVideoRowBytes)},
};
inline constexpr FieldInfo kFields_VC_RECT[] = {
    {"dblPosX", offsetof(VC_RECT, dblPosX), sizeof(VC_RECT::dblPosX)},
    {"dblPosY", offsetof(VC_RECT, dblPosY), sizeof(VC_RECT::dblPosY)},
    {"dblWidth", offsetof(VC_RECT, dblWidth), sizeof(VC_RECT::dblWidth)},
    {"dblHeight", offsetof(VC_RECT, dblHeight), sizeof(VC_RECT::dblHeight)},
    {"eRectType", offsetof(VC_RECT, eRectType), sizeof(VC_RECT::eRectType)},
};

inline constexpr RecordInfo kRecords[] = {
    {"K_RATIONAL", sizeof(K_RATIONAL), alignof(K_RATIONAL), kFields_K_RATIONAL},
    {"K_STREAM_INFO", sizeof(K_STREAM_INFO), alignof(K_STREAM_INFO), kFields_K_STREAM_INFO},
    {"K_PACKET_INFO", sizeof(K_PACKET_INFO), alignof(K_PACKET_INFO), kFields_K_PACKET_INFO},
    {"K_TIMECODE", sizeof(K_TIMECODE), alignof(K_TIMECODE), kFields_K_TIMECODE},
    {"K_TIME", sizeof(K_TIME), alignof(K_TIME), kFields_K_TIME},
    {"K_VID_PROPS", sizeof(K_VID_PROPS), alignof(K_VID_PROPS), kFields_K_VID_PROPS},
    {"K_AUD_PROPS", sizeof(K_AUD_PROPS), alignof(K_AUD_PROPS), kFields_K_AUD_PROPS},
    {"LUFS_METERS", sizeof(LUFS_METERS), alignof(LUFS_METERS), kFields_LUFS_METERS},
    {"K_AUDIO_LOUDNESS", sizeof(K_AUDIO_LOUDNESS), alignof(K_AUDIO_LOUDNESS), kFields_K_AUDIO_LOUDNESS},
    {"K_ANC_DATA", sizeof(K_ANC_DATA), alignof(K_ANC_DATA), kFields_K_ANC_DATA},
    {"K_AV_PROPS", sizeof(K_AV_PROPS), alignof(K_AV_PROPS), kFields_K_AV_PROPS},
    {"VC_FRAME_INFO", sizeof(VC_FRAME_INFO), alignof(VC_FRAME_INFO), kFields_VC_FRAME_INFO},
    {"VC_VID_PTR", sizeof(VC_VID_PTR), alignof(VC_VID_PTR), kFields_VC_VID_PTR},
    {"VC_RECT", sizeof(VC_RECT), alignof(VC_RECT), kFields_VC_RECT},
};

inline constexpr EnumMemberInfo kMembers_eVCMediaType[] = {
    {"eVCMT_Empty", static_cast<uint32_t>(eVCMT_Empty)},
    {"eVCMT_Video", static_cast<uint32_t>(eVCMT_Video)},
    {"eVCMT_Audio", static_cast<uint32_t>(eVCMT_Audio)},
    {"eVCMT_Multiplexed", static_cast<uint32_t>(eVCMT_Multiplexed)},
    {"eVCMT_Subtitles", static_cast<uint32_t>(eVCMT_Subtitles)},
    {"eVCMT_Data", static_cast<uint32_t>(eVCMT_Data)},
};
inline constexpr EnumMemberInfo kMembers_eVCPacketFlags[] = {
    {"eVCPF_None", static_cast<uint32_t>(eVCPF_None)},
    {"eVCPF_SegmentStart", static_cast<uint32_t>(eVCPF_SegmentStart)},
    {"eVCPF_Last", static_cast<uint32_t>(eVCPF_Last)},
    {"eVCPF_KeyFrame", static_cast<uint32_t>(eVCPF_KeyFrame)},
    {"eVCPF_Preroll", static_cast<uint32_t>(eVCPF_Preroll)},
    {"eVCPF_Predicted", static_cast<uint32_t>(eVCPF_Predicted)},
    {"eVCPF_BiPredicted", static_cast<uint32_t>(eVCPF_BiPredicted)},
    {"eVCPF_ForceDetectType", static_cast<uint32_t>(eVCPF_ForceDetectType)},
    {"eVCPF_AvCorrupt", static_cast<uint32_t>(eVCPF_AvCorrupt)},
    {"eVCPF_AvDiscard", static_cast<uint32_t>(eVCPF_AvDiscard)},
    {"eVCPF_AvTrusted", static_cast<uint32_t>(eVCPF_AvTrusted)},
    {"eVCPF_AvDisposable", static_cast<uint32_t>(eVCPF_AvDisposable)},
};
inline constexpr EnumMemberInfo kMembers_eKInfoType[] = {
    {"eKIT_Help", static_cast<uint32_t>(eKIT_Help)},
    {"eKIT_Type", static_cast<uint32_t>(eKIT_Type)},
    {"eKIT_Default", static_cast<uint32_t>(eKIT_Default)},
    {"eKIT_Values", static_cast<uint32_t>(eKIT_Values)},
    {"eKIT_Min", static_cast<uint32_t>(eKIT_Min)},
    {"eKIT_Max", static_cast<uint32_t>(eKIT_Max)},
    {"eKIT_Dynamic", static_cast<uint32_t>(eKIT_Dynamic)},
};
inline constexpr EnumMemberInfo kMembers_eKInterlace[] = {
    {"eKI_Default", static_cast<uint32_t>(eKI_Default)},
    {"eKI_Field1First", static_cast<uint32_t>(eKI_Field1First)},
    {"eKI_Field2First", static_cast<uint32_t>(eKI_Field2First)},
    {"eKI_Progressive", static_cast<uint32_t>(eKI_Progressive)},
    {"eKI_Inverse", static_cast<uint32_t>(eKI_Inverse)},
    {"eKI_OneField", static_cast<uint32_t>(eKI_OneField)},
    {"eKI_DeinterlaceF1", static_cast<uint32_t>(eKI_DeinterlaceF1)},
    {"eKI_DeinterlaceF2", static_cast<uint32_t>(eKI_DeinterlaceF2)},
};
inline constexpr EnumMemberInfo kMembers_eKScaleType[] = {
    {"eKST_Default", static_cast<uint32_t>(eKST_Default)},
    {"eKST_IgnoreAR", static_cast<uint32_t>(eKST_IgnoreAR)},
    {"eKST_LetterBox", static_cast<uint32_t>(eKST_LetterBox)},
    {"eKST_Crop", static_cast<uint32_t>(eKST_Crop)},
    {"eKST_NoScale", static_cast<uint32_t>(eKST_NoScale)},
};
inline constexpr EnumMemberInfo kMembers_eGPUTextureFormat[] = {
    {"eGTF_CPU_Frame", static_cast<uint32_t>(eGTF_CPU_Frame)},
    {"eGTF_GPU_R10G10B10A2", static_cast<uint32_t>(eGTF_GPU_R10G10B10A2)},
    {"eGTF_GPU_RGBA32", static_cast<uint32_t>(eGTF_GPU_RGBA32)},
    {"eGTF_GPU_R8", static_cast<uint32_t>(eGTF_GPU_R8)},
    {"eGTF_GPU_BGRA32", static_cast<uint32_t>(eGTF_GPU_BGRA32)},
    {"eGTF_GPU_BGRX32", static_cast<uint32_t>(eGTF_GPU_BGRX32)},
    {"eGTF_GPU_NV12", static_cast<uint32_t>(eGTF_GPU_NV12)},
    {"eGTF_GPU_YUY2", static_cast<uint32_t>(eGTF_GPU_YUY2)},
    {"eGTF_GPU_FormatMask", static_cast<uint32_t>(eGTF_GPU_FormatMask)},
    {"eGTF_GPU_SeparateFields", static_cast<uint32_t>(eGTF_GPU_SeparateFields)},
    {"eGTF_GPU_Fields_RGBA32", static_cast<uint32_t>(eGTF_GPU_Fields_RGBA32)},
    {"eGTF_GPU_Fields_R8", static_cast<uint32_t>(eGTF_GPU_Fields_R8)},
    {"eGTF_GPU_Fields_BGRA32", static_cast<uint32_t>(eGTF_GPU_Fields_BGRA32)},
    {"eGTF_GPU_Fields_BGRX32", static_cast<uint32_t>(eGTF_GPU_Fields_BGRX32)},
    {"eGTF_GPU_Fields_NV12", static_cast<uint32_t>(eGTF_GPU_Fields_NV12)},
    {"eGTF_GPU_Fields_YUY2", static_cast<uint32_t>(eGTF_GPU_Fields_YUY2)},
};
inline constexpr EnumMemberInfo kMembers_eKANCFlags[] = {
    {"eKAF_None", static_cast<uint32_t>(eKAF_None)},
    {"eKAF_AL_Valid", static_cast<uint32_t>(eKAF_AL_Valid)},
};
inline constexpr EnumMemberInfo kMembers_eVCCC[] = {
    {"eVCCC_Default", static_cast<uint32_t>(eVCCC_Default)},
    {"eVCCC_r210", static_cast<uint32_t>(eVCCC_r210)},
    {"eVCCC_v210", static_cast<uint32_t>(eVCCC_v210)},
    {"eVCCC_I420", static_cast<uint32_t>(eVCCC_I420)},
    {"eVCCC_YV12", static_cast<uint32_t>(eVCCC_YV12)},
    {"eVCCC_NV12", static_cast<uint32_t>(eVCCC_NV12)},
    {"eVCCC_YUY2", static_cast<uint32_t>(eVCCC_YUY2)},
    {"eVCCC_HDYC", static_cast<uint32_t>(eVCCC_HDYC)},
    {"eVCCC_YVYU", static_cast<uint32_t>(eVCCC_YVYU)},
    {"eVCCC_UYVY", static_cast<uint32_t>(eVCCC_UYVY)},
    {"eVCCC_MJPG", static_cast<uint32_t>(eVCCC_MJPG)},
    {"eVCCC_RGB8", static_cast<uint32_t>(eVCCC_RGB8)},
    {"eVCCC_RGB24", static_cast<uint32_t>(eVCCC_RGB24)},
    {"eVCCC_RGB32", static_cast<uint32_t>(eVCCC_RGB32)},
    {"eVCCC_ARGB32", static_cast<uint32_t>(eVCCC_ARGB32)},
    {"ePX_FormatFlag", static_cast<uint32_t>(ePX_FormatFlag)},
    {"ePX_Plane", static_cast<uint32_t>(ePX_Plane)},
    {"ePX_420", static_cast<uint32_t>(ePX_420)},
    {"ePX_422", static_cast<uint32_t>(ePX_422)},
    {"ePX_444", static_cast<uint32_t>(ePX_444)},
    {"ePX_Alpha_Full", static_cast<uint32_t>(ePX_Alpha_Full)},
    {"ePX_Alpha_Premull", static_cast<uint32_t>(ePX_Alpha_Premull)},
    {"ePX_BT601", static_cast<uint32_t>(ePX_BT601)},
    {"ePX_BT709", static_cast<uint32_t>(ePX_BT709)},
    {"ePX_BT2020", static_cast<uint32_t>(ePX_BT2020)},
    {"ePX_10bit", static_cast<uint32_t>(ePX_10bit)},
    {"ePX_12bit", static_cast<uint32_t>(ePX_12bit)},
    {"ePX_16bit", static_cast<uint32_t>(ePX_16bit)},
    {"ePX_32bit", static_cast<uint32_t>(ePX_32bit)},
    {"ePX_BGRX32", static_cast<uint32_t>(ePX_BGRX32)},
    {"ePX_RGBX32", static_cast<uint32_t>(ePX_RGBX32)},
    {"ePX_BGRA32_FULL", static_cast<uint32_t>(ePX_BGRA32_FULL)},
    {"ePX_BGRA32_PREMULL", static_cast<uint32_t>(ePX_BGRA32_PREMULL)},
    {"ePX_RGBA32_FULL", static_cast<uint32_t>(ePX_RGBA32_FULL)},
    {"ePX_RGBA32_PREMULL", static_cast<uint32_t>(ePX_RGBA32_PREMULL)},
    {"ePX_RGBA64_FULL", static_cast<uint32_t>(ePX_RGBA64_FULL)},
    {"ePX_RGBA64_PREMULL", static_cast<uint32_t>(ePX_RGBA64_PREMULL)},
    {"ePX_RGBA128_FULL", static_cast<uint32_t>(ePX_RGBA128_FULL)},
    {"ePX_RGBA128_PREMULL", static_cast<uint32_t>(ePX_RGBA128_PREMULL)},
    {"ePX_1Channel8bit", static_cast<uint32_t>(ePX_1Channel8bit)},
    {"ePX_1Channel10bit", static_cast<uint32_t>(ePX_1Channel10bit)},
    {"ePX_1Channel16bit", static_cast<uint32_t>(ePX_1Channel16bit)},
    {"ePX_1Channel32bit", static_cast<uint32_t>(ePX_1Channel32bit)},
    {"ePX_NV12", static_cast<uint32_t>(ePX_NV12)},
    {"ePX_NV12_C601", static_cast<uint32_t>(ePX_NV12_C601)},
    {"ePX_NV12_C709", static_cast<uint32_t>(ePX_NV12_C709)},
    {"ePX_YUY2", static_cast<uint32_t>(ePX_YUY2)},
    {"ePX_YUY2_C601", static_cast<uint32_t>(ePX_YUY2_C601)},
    {"ePX_YUY2_C709", static_cast<uint32_t>(ePX_YUY2_C709)},
    {"ePX_UYVY", static_cast<uint32_t>(ePX_UYVY)},
    {"ePX_UYVY_C601", static_cast<uint32_t>(ePX_UYVY_C601)},
    {"ePX_UYVY_C709", static_cast<uint32_t>(ePX_UYVY_C709)},
    {"ePX_YUV_PLANE", static_cast<uint32_t>(ePX_YUV_PLANE)},
    {"ePX_YUV10_PLANE", static_cast<uint32_t>(ePX_YUV10_PLANE)},
    {"ePX_YUV16_PLANE", static_cast<uint32_t>(ePX_YUV16_PLANE)},
    {"ePX_YUV8_420_PLANE", static_cast<uint32_t>(ePX_YUV8_420_PLANE)},
    {"ePX_YUV10_420_PLANE", static_cast<uint32_t>(ePX_YUV10_420_PLANE)},
    {"ePX_YUV16_420_PLANE", static_cast<uint32_t>(ePX_YUV16_420_PLANE)},
    {"ePX_YUV8_422_PLANE", static_cast<uint32_t>(ePX_YUV8_422_PLANE)},
    {"ePX_YUV10_422_PLANE", static_cast<uint32_t>(ePX_YUV10_422_PLANE)},
    {"ePX_YUV16_422_PLANE", static_cast<uint32_t>(ePX_YUV16_422_PLANE)},
};
inline constexpr EnumMemberInfo kMembers_eKVideoFormat[] = {
    {"eKVF_Custom", static_cast<uint32_t>(eKVF_Custom)},
    {"eKVF_NTSC", static_cast<uint32_t>(eKVF_NTSC)},
    {"eKVF_NTSC_2398", static_cast<uint32_t>(eKVF_NTSC_2398)},
    {"eKVF_NTSC_16x9", static_cast<uint32_t>(eKVF_NTSC_16x9)},
    {"eKVF_PAL", static_cast<uint32_t>(eKVF_PAL)},
    {"eKVF_PAL_16x9", static_cast<uint32_t>(eKVF_PAL_16x9)},
    {"eKVF_HD720_50p", static_cast<uint32_t>(eKVF_HD720_50p)},
    {"eKVF_HD720_5994p", static_cast<uint32_t>(eKVF_HD720_5994p)},
    {"eKVF_HD720_60p", static_cast<uint32_t>(eKVF_HD720_60p)},
    {"eKVF_HD1080_2398p", static_cast<uint32_t>(eKVF_HD1080_2398p)},
    {"eKVF_HD1080_24p", static_cast<uint32_t>(eKVF_HD1080_24p)},
    {"eKVF_HD1080_25p", static_cast<uint32_t>(eKVF_HD1080_25p)},
    {"eKVF_HD1080_2997p", static_cast<uint32_t>(eKVF_HD1080_2997p)},
    {"eKVF_HD1080_30p", static_cast<uint32_t>(eKVF_HD1080_30p)},
    {"eKVF_HD1080_50i", static_cast<uint32_t>(eKVF_HD1080_50i)},
    {"eKVF_HD1080_5994i", static_cast<uint32_t>(eKVF_HD1080_5994i)},
    {"eKVF_HD1080_60i", static_cast<uint32_t>(eKVF_HD1080_60i)},
    {"eKVF_HD1080_50p", static_cast<uint32_t>(eKVF_HD1080_50p)},
    {"eKVF_HD1080_5994p", static_cast<uint32_t>(eKVF_HD1080_5994p)},
    {"eKVF_HD1080_60p", static_cast<uint32_t>(eKVF_HD1080_60p)},
    {"eKVF_HD1080_9590p", static_cast<uint32_t>(eKVF_HD1080_9590p)},
    {"eKVF_HD1080_96p", static_cast<uint32_t>(eKVF_HD1080_96p)},
    {"eKVF_HD1080_100p", static_cast<uint32_t>(eKVF_HD1080_100p)},
    {"eKVF_HD1080_11988p", static_cast<uint32_t>(eKVF_HD1080_11988p)},
    {"eKVF_HD1080_120p", static_cast<uint32_t>(eKVF_HD1080_120p)},
    {"eKVF_2K_DCI_2398p", static_cast<uint32_t>(eKVF_2K_DCI_2398p)},
    {"eKVF_2K_DCI_24p", static_cast<uint32_t>(eKVF_2K_DCI_24p)},
    {"eKVF_2K_DCI_25p", static_cast<uint32_t>(eKVF_2K_DCI_25p)},
    {"eKVF_2K_DCI_2997p", static_cast<uint32_t>(eKVF_2K_DCI_2997p)},
    {"eKVF_2K_DCI_30p", static_cast<uint32_t>(eKVF_2K_DCI_30p)},
    {"eKVF_2K_DCI_4795p", static_cast<uint32_t>(eKVF_2K_DCI_4795p)},
    {"eKVF_2K_DCI_48p", static_cast<uint32_t>(eKVF_2K_DCI_48p)},
    {"eKVF_2K_DCI_50p", static_cast<uint32_t>(eKVF_2K_DCI_50p)},
    {"eKVF_2K_DCI_5994p", static_cast<uint32_t>(eKVF_2K_DCI_5994p)},
    {"eKVF_2K_DCI_60p", static_cast<uint32_t>(eKVF_2K_DCI_60p)},
    {"eKVF_2K_DCI_9590p", static_cast<uint32_t>(eKVF_2K_DCI_9590p)},
    {"eKVF_2K_DCI_96p", static_cast<uint32_t>(eKVF_2K_DCI_96p)},
    {"eKVF_2K_DCI_100p", static_cast<uint32_t>(eKVF_2K_DCI_100p)},
    {"eKVF_2K_DCI_11988p", static_cast<uint32_t>(eKVF_2K_DCI_11988p)},
    {"eKVF_2K_DCI_120p", static_cast<uint32_t>(eKVF_2K_DCI_120p)},
    {"eKVF_2K_2398p", static_cast<uint32_t>(eKVF_2K_2398p)},
    {"eKVF_2K_24p", static_cast<uint32_t>(eKVF_2K_24p)},
    {"eKVF_2K_25p", static_cast<uint32_t>(eKVF_2K_25p)},
    {"eKVF_4K_UHD_50i", static_cast<uint32_t>(eKVF_4K_UHD_50i)},
    {"eKVF_4K_UHD_5994i", static_cast<uint32_t>(eKVF_4K_UHD_5994i)},
    {"eKVF_4K_UHD_60i", static_cast<uint32_t>(eKVF_4K_UHD_60i)},
    {"eKVF_4K_UHD_2398p", static_cast<uint32_t>(eKVF_4K_UHD_2398p)},
    {"eKVF_4K_UHD_24p", static_cast<uint32_t>(eKVF_4K_UHD_24p)},
    {"eKVF_4K_UHD_25p", static_cast<uint32_t>(eKVF_4K_UHD_25p)},
    {"eKVF_4K_UHD_2997p", static_cast<uint32_t>(eKVF_4K_UHD_2997p)},
    {"eKVF_4K_UHD_30p", static_cast<uint32_t>(eKVF_4K_UHD_30p)},
    {"eKVF_4K_DCI_2398p", static_cast<uint32_t>(eKVF_4K_DCI_2398p)},
    {"eKVF_4K_DCI_24p", static_cast<uint32_t>(eKVF_4K_DCI_24p)},
    {"eKVF_4K_DCI_25p", static_cast<uint32_t>(eKVF_4K_DCI_25p)},
    {"eKVF_4K_DCI_2997p", static_cast<uint32_t>(eKVF_4K_DCI_2997p)},
    {"eKVF_4K_DCI_30p", static_cast<uint32_t>(eKVF_4K_DCI_30p)},
    {"eKVF_4K_DCI_4795p", static_cast<uint32_t>(eKVF_4K_DCI_4795p)},
    {"eKVF_4K_DCI_48p", static_cast<uint32_t>(eKVF_4K_DCI_48p)},
    {"eKVF_4K_UHD_50p", static_cast<uint32_t>(eKVF_4K_UHD_50p)},
    {"eKVF_4K_UHD_5994p", static_cast<uint32_t>(eKVF_4K_UHD_5994p)},
    {"eKVF_4K_UHD_60p", static_cast<uint32_t>(eKVF_4K_UHD_60p)},
    {"eKVF_4K_UHD_9590p", static_cast<uint32_t>(eKVF_4K_UHD_9590p)},
    {"eKVF_4K_UHD_96p", static_cast<uint32_t>(eKVF_4K_UHD_96p)},
    {"eKVF_4K_UHD_100p", static_cast<uint32_t>(eKVF_4K_UHD_100p)},
    {"eKVF_4K_UHD_11988p", static_cast<uint32_t>(eKVF_4K_UHD_11988p)},
    {"eKVF_4K_UHD_120p", static_cast<uint32_t>(eKVF_4K_UHD_120p)},
    {"eKVF_4K_DCI_50p", static_cast<uint32_t>(eKVF_4K_DCI_50p)},
    {"eKVF_4K_DCI_5994p", static_cast<uint32_t>(eKVF_4K_DCI_5994p)},
    {"eKVF_4K_DCI_60p", static_cast<uint32_t>(eKVF_4K_DCI_60p)},
    {"eKVF_4K_DCI_9590p", static_cast<uint32_t>(eKVF_4K_DCI_9590p)},
    {"eKVF_4K_DCI_96p", static_cast<uint32_t>(eKVF_4K_DCI_96p)},
    {"eKVF_4K_DCI_100p", static_cast<uint32_t>(eKVF_4K_DCI_100p)},
    {"eKVF_4K_DCI_11988p", static_cast<uint32_t>(eKVF_4K_DCI_11988p)},
    {"eKVF_4K_DCI_120p", static_cast<uint32_t>(eKVF_4K_DCI_120p)},
    {"eKVF_8K_UHD_2398p", static_cast<uint32_t>(eKVF_8K_UHD_2398p)},
    {"eKVF_8K_UHD_24p", static_cast<uint32_t>(eKVF_8K_UHD_24p)},
    {"eKVF_8K_UHD_25p", static_cast<uint32_t>(eKVF_8K_UHD_25p)},
    {"eKVF_8K_UHD_2997p", static_cast<uint32_t>(eKVF_8K_UHD_2997p)},
    {"eKVF_8K_UHD_30p", static_cast<uint32_t>(eKVF_8K_UHD_30p)},
    {"eKVF_8K_UHD_4795p", static_cast<uint32_t>(eKVF_8K_UHD_4795p)},
    {"eKVF_8K_UHD_48p", static_cast<uint32_t>(eKVF_8K_UHD_48p)},
    {"eKVF_8K_UHD_50p", static_cast<uint32_t>(eKVF_8K_UHD_50p)},
    {"eKVF_8K_UHD_5994p", static_cast<uint32_t>(eKVF_8K_UHD_5994p)},
    {"eKVF_8K_UHD_60p", static_cast<uint32_t>(eKVF_8K_UHD_60p)},
    {"eKVF_8K_DCI_2398p", static_cast<uint32_t>(eKVF_8K_DCI_2398p)},
    {"eKVF_8K_DCI_24p", static_cast<uint32_t>(eKVF_8K_DCI_24p)},
    {"eKVF_8K_DCI_25p", static_cast<uint32_t>(eKVF_8K_DCI_25p)},
    {"eKVF_8K_DCI_2997p", static_cast<uint32_t>(eKVF_8K_DCI_2997p)},
    {"eKVF_8K_DCI_30p", static_cast<uint32_t>(eKVF_8K_DCI_30p)},
    {"eKVF_8K_DCI_4795p", static_cast<uint32_t>(eKVF_8K_DCI_4795p)},
    {"eKVF_8K_DCI_48p", static_cast<uint32_t>(eKVF_8K_DCI_48p)},
    {"eKVF_8K_DCI_50p", static_cast<uint32_t>(eKVF_8K_DCI_50p)},
    {"eKVF_8K_DCI_5994p", static_cast<uint32_t>(eKVF_8K_DCI_5994p)},
    {"eKVF_8K_DCI_60p", static_cast<uint32_t>(eKVF_8K_DCI_60p)},
    {"eKVF_Disabled", static_cast<uint32_t>(eKVF_Disabled)},
    {"eKVF_3D_SbS_720_50p", static_cast<uint32_t>(eKVF_3D_SbS_720_50p)},
    {"eKVF_3D_SbS_720_5994p", static_cast<uint32_t>(eKVF_3D_SbS_720_5994p)},
    {"eKVF_3D_SbS_720_60p", static_cast<uint32_t>(eKVF_3D_SbS_720_60p)},
    {"eKVF_3D_SbS_1080_2398p", static_cast<uint32_t>(eKVF_3D_SbS_1080_2398p)},
    {"eKVF_3D_SbS_1080_24p", static_cast<uint32_t>(eKVF_3D_SbS_1080_24p)},
    {"eKVF_3D_SbS_1080_25p", static_cast<uint32_t>(eKVF_3D_SbS_1080_25p)},
    {"eKVF_3D_SbS_1080_2997p", static_cast<uint32_t>(eKVF_3D_SbS_1080_2997p)},
    {"eKVF_3D_SbS_1080_30p", static_cast<uint32_t>(eKVF_3D_SbS_1080_30p)},
    {"eKVF_3D_SbS_1080_50i", static_cast<uint32_t>(eKVF_3D_SbS_1080_50i)},
    {"eKVF_3D_SbS_1080_5994i", static_cast<uint32_t>(eKVF_3D_SbS_1080_5994i)},
    {"eKVF_3D_SbS_1080_60i", static_cast<uint32_t>(eKVF_3D_SbS_1080_60i)},
    {"eKVF_3D_SbS_1080_50p", static_cast<uint32_t>(eKVF_3D_SbS_1080_50p)},
    {"eKVF_3D_SbS_1080_5994p", static_cast<uint32_t>(eKVF_3D_SbS_1080_5994p)},
    {"eKVF_3D_SbS_1080_60p", static_cast<uint32_t>(eKVF_3D_SbS_1080_60p)},
    {"eKVF_3D_TnB_720_50p", static_cast<uint32_t>(eKVF_3D_TnB_720_50p)},
    {"eKVF_3D_TnB_720_5994p", static_cast<uint32_t>(eKVF_3D_TnB_720_5994p)},
    {"eKVF_3D_TnB_720_60p", static_cast<uint32_t>(eKVF_3D_TnB_720_60p)},
    {"eKVF_3D_TnB_1080_2398p", static_cast<uint32_t>(eKVF_3D_TnB_1080_2398p)},
    {"eKVF_3D_TnB_1080_24p", static_cast<uint32_t>(eKVF_3D_TnB_1080_24p)},
    {"eKVF_3D_TnB_1080_25p", static_cast<uint32_t>(eKVF_3D_TnB_1080_25p)},
    {"eKVF_3D_TnB_1080_2997p", static_cast<uint32_t>(eKVF_3D_TnB_1080_2997p)},
    {"eKVF_3D_TnB_1080_30p", static_cast<uint32_t>(eKVF_3D_TnB_1080_30p)},
    {"eKVF_3D_TnB_1080_50p", static_cast<uint32_t>(eKVF_3D_TnB_1080_50p)},
    {"eKVF_3D_TnB_1080_5994p", static_cast<uint32_t>(eKVF_3D_TnB_1080_5994p)},
    {"eKVF_3D_TnB_1080_60p", static_cast<uint32_t>(eKVF_3D_TnB_1080_60p)},
    {"eKVF_3D_Full_SbS_720_50p", static_cast<uint32_t>(eKVF_3D_Full_SbS_720_50p)},
    {"eKVF_3D_Full_SbS_720_5994p", static_cast<uint32_t>(eKVF_3D_Full_SbS_720_5994p)},
    {"eKVF_3D_Full_SbS_720_60p", static_cast<uint32_t>(eKVF_3D_Full_SbS_720_60p)},
    {"eKVF_3D_Full_SbS_1080_2398p", static_cast<uint32_t>(eKVF_3D_Full_SbS_1080_2398p)},
    {"eKVF_3D_Full_SbS_1080_24p", static_cast<uint32_t>(eKVF_3D_Full_SbS_1080_24p)},
    {"eKVF_3D_Full_SbS_1080_25p", static_cast<uint32_t>(eKVF_3D_Full_SbS_1080_25p)},
    {"eKVF_3D_Full_SbS_1080_2997p", static_cast<uint32_t>(eKVF_3D_Full_SbS_1080_2997p)},
    {"eKVF_3D_Full_SbS_1080_30p", static_cast<uint32_t>(eKVF_3D_Full_SbS_1080_30p)},
    {"eKVF_3D_Full_SbS_1080_50i", static_cast<uint32_t>(eKVF_3D_Full_SbS_1080_50i)},
    {"eKVF_3D_Full_SbS_1080_5994i", static_cast<uint32_t>(eKVF_3D_Full_SbS_1080_5994i)},
    {"eKVF_3D_Full_SbS_1080_60i", static_cast<uint32_t>(eKVF_3D_Full_SbS_1080_60i)},
    {"eKVF_3D_Full_TnB_720_50p", static_cast<uint32_t>(eKVF_3D_Full_TnB_720_50p)},
    {"eKVF_3D_Full_TnB_720_5994p", static_cast<uint32_t>(eKVF_3D_Full_TnB_720_5994p)},
    {"eKVF_3D_Full_TnB_720_60p", static_cast<uint32_t>(eKVF_3D_Full_TnB_720_60p)},
    {"eKVF_3D_Full_TnB_1080_2398p", static_cast<uint32_t>(eKVF_3D_Full_TnB_1080_2398p)},
    {"eKVF_3D_Full_TnB_1080_24p", static_cast<uint32_t>(eKVF_3D_Full_TnB_1080_24p)},
    {"eKVF_3D_Full_TnB_1080_25p", static_cast<uint32_t>(eKVF_3D_Full_TnB_1080_25p)},
    {"eKVF_3D_Full_TnB_1080_2997p", static_cast<uint32_t>(eKVF_3D_Full_TnB_1080_2997p)},
    {"eKVF_3D_Full_TnB_1080_30p", static_cast<uint32_t>(eKVF_3D_Full_TnB_1080_30p)},
    {"eKVF_3D_Full_TnB_1080_50i", static_cast<uint32_t>(eKVF_3D_Full_TnB_1080_50i)},
    {"eKVF_3D_Full_TnB_1080_5994i", static_cast<uint32_t>(eKVF_3D_Full_TnB_1080_5994i)},
    {"eKVF_3D_Full_TnB_1080_60i", static_cast<uint32_t>(eKVF_3D_Full_TnB_1080_60i)},
};
inline constexpr EnumMemberInfo kMembers_eKTimecodeFlags[] = {
    {"eKTCF_NonDropFrame", static_cast<uint32_t>(eKTCF_NonDropFrame)},
    {"eKTCF_DropFrame", static_cast<uint32_t>(eKTCF_DropFrame)},
    {"eKTCF_Rate", static_cast<uint32_t>(eKTCF_Rate)},
    {"eKTCF_Rate_24", static_cast<uint32_t>(eKTCF_Rate_24)},
    {"eKTCF_Rate_25", static_cast<uint32_t>(eKTCF_Rate_25)},
    {"eKTCF_Rate_30", static_cast<uint32_t>(eKTCF_Rate_30)},
    {"eKTCF_Rate_30_DF", static_cast<uint32_t>(eKTCF_Rate_30_DF)},
    {"eKTCF_Rate_50", static_cast<uint32_t>(eKTCF_Rate_50)},
    {"eKTCF_Rate_60", static_cast<uint32_t>(eKTCF_Rate_60)},
    {"eKTCF_Rate_60_DF", static_cast<uint32_t>(eKTCF_Rate_60_DF)},
    {"eKTCF_Rate_50_Odd", static_cast<uint32_t>(eKTCF_Rate_50_Odd)},
    {"eKTCF_Rate_60_Odd", static_cast<uint32_t>(eKTCF_Rate_60_Odd)},
    {"eKTCF_Rate_60_DF_Odd", static_cast<uint32_t>(eKTCF_Rate_60_DF_Odd)},
    {"eKTCF_FieldNumber", static_cast<uint32_t>(eKTCF_FieldNumber)},
    {"eKTCF_Progressive_Even_Frame", static_cast<uint32_t>(eKTCF_Progressive_Even_Frame)},
    {"eKTCF_Progressive_Odd_Frame", static_cast<uint32_t>(eKTCF_Progressive_Odd_Frame)},
    {"eKTCF_Progressive_3th_Frame", static_cast<uint32_t>(eKTCF_Progressive_3th_Frame)},
    {"eKTCF_Progressive_4th_Frame", static_cast<uint32_t>(eKTCF_Progressive_4th_Frame)},
    {"eKTCF_Progressive_5th_Frame", static_cast<uint32_t>(eKTCF_Progressive_5th_Frame)},
    {"eKTCF_Progressive_6th_Frame", static_cast<uint32_t>(eKTCF_Progressive_6th_Frame)},
    {"eKTCF_Progressive_7th_Frame", static_cast<uint32_t>(eKTCF_Progressive_7th_Frame)},
    {"eKTCF_Progressive_8th_Frame", static_cast<uint32_t>(eKTCF_Progressive_8th_Frame)},
    {"eKTCF_SrcTC", static_cast<uint32_t>(eKTCF_SrcTC)},
    {"eKTCF_UserTC", static_cast<uint32_t>(eKTCF_UserTC)},
    {"eKTCF_SrcTCUserbits", static_cast<uint32_t>(eKTCF_SrcTCUserbits)},
    {"eKTCF_LocalTimeTC", static_cast<uint32_t>(eKTCF_LocalTimeTC)},
    {"eKTCF_LocalTimeSyncTC", static_cast<uint32_t>(eKTCF_LocalTimeSyncTC)},
    {"eKTCF_Invalid", static_cast<uint32_t>(eKTCF_Invalid)},
    {"eKTCF_SrcTC_DropFrame", static_cast<uint32_t>(eKTCF_SrcTC_DropFrame)},
    {"eKTCF_SrcTC_Rate_24", static_cast<uint32_t>(eKTCF_SrcTC_Rate_24)},
    {"eKTCF_SrcTC_Rate_25", static_cast<uint32_t>(eKTCF_SrcTC_Rate_25)},
    {"eKTCF_SrcTC_Rate_30_DF", static_cast<uint32_t>(eKTCF_SrcTC_Rate_30_DF)},
    {"eKTCF_SrcTC_Rate_30", static_cast<uint32_t>(eKTCF_SrcTC_Rate_30)},
    {"eKTCF_SrcTC_Progressive_Even_Frame", static_cast<uint32_t>(eKTCF_SrcTC_Progressive_Even_Frame)},
    {"eKTCF_SrcTC_Progressive_Odd_Frame", static_cast<uint32_t>(eKTCF_SrcTC_Progressive_Odd_Frame)},
    {"eKTCF_SrcTC_Rate_50", static_cast<uint32_t>(eKTCF_SrcTC_Rate_50)},
    {"eKTCF_SrcTC_Rate_60_DF", static_cast<uint32_t>(eKTCF_SrcTC_Rate_60_DF)},
    {"eKTCF_SrcTC_Rate_60", static_cast<uint32_t>(eKTCF_SrcTC_Rate_60)},
    {"eKTCF_SrcTC_Rate_50_Odd", static_cast<uint32_t>(eKTCF_SrcTC_Rate_50_Odd)},
    {"eKTCF_SrcTC_Rate_60_DF_Odd", static_cast<uint32_t>(eKTCF_SrcTC_Rate_60_DF_Odd)},
    {"eKTCF_SrcTC_Rate_60_Odd", static_cast<uint32_t>(eKTCF_SrcTC_Rate_60_Odd)},
    {"eKTCF_UserTC_DropFrame", static_cast<uint32_t>(eKTCF_UserTC_DropFrame)},
    {"eKTCF_UserTC_Rate_24", static_cast<uint32_t>(eKTCF_UserTC_Rate_24)},
    {"eKTCF_UserTC_Rate_25", static_cast<uint32_t>(eKTCF_UserTC_Rate_25)},
    {"eKTCF_UserTC_Rate_30_DF", static_cast<uint32_t>(eKTCF_UserTC_Rate_30_DF)},
    {"eKTCF_UserTC_Rate_30", static_cast<uint32_t>(eKTCF_UserTC_Rate_30)},
    {"eKTCF_UserTC_Progressive_Even_Frame", static_cast<uint32_t>(eKTCF_UserTC_Progressive_Even_Frame)},
    {"eKTCF_UserTC_Progressive_Odd_Frame", static_cast<uint32_t>(eKTCF_UserTC_Progressive_Odd_Frame)},
    {"eKTCF_UserTC_Rate_50", static_cast<uint32_t>(eKTCF_UserTC_Rate_50)},
    {"eKTCF_UserTC_Rate_60_DF", static_cast<uint32_t>(eKTCF_UserTC_Rate_60_DF)},
    {"eKTCF_UserTC_Rate_60", static_cast<uint32_t>(eKTCF_UserTC_Rate_60)},
    {"eKTCF_UserTC_Rate_50_Odd", static_cast<uint32_t>(eKTCF_UserTC_Rate_50_Odd)},
    {"eKTCF_UserTC_Rate_60_DF_Odd", static_cast<uint32_t>(eKTCF_UserTC_Rate_60_DF_Odd)},
    {"eKTCF_UserTC_Rate_60_Odd", static_cast<uint32_t>(eKTCF_UserTC_Rate_60_Odd)},
};
inline constexpr EnumMemberInfo kMembers_eKFrameFlags[] = {
    {"eKFF_Main_Mask", static_cast<uint32_t>(eKFF_Main_Mask)},
    {"eKFF_None", static_cast<uint32_t>(eKFF_None)},
    {"eKFF_Break", static_cast<uint32_t>(eKFF_Break)},
    {"eKFF_Last", static_cast<uint32_t>(eKFF_Last)},
    {"eKFF_Dup", static_cast<uint32_t>(eKFF_Dup)},
    {"eKFF_Pause", static_cast<uint32_t>(eKFF_Pause)},
    {"eKFF_AddedFrame", static_cast<uint32_t>(eKFF_AddedFrame)},
    {"eKFF_SkippedFrame", static_cast<uint32_t>(eKFF_SkippedFrame)},
    {"eKFF_Live", static_cast<uint32_t>(eKFF_Live)},
    {"eKFF_Net", static_cast<uint32_t>(eKFF_Net)},
    {"eKFF_Reverse", static_cast<uint32_t>(eKFF_Reverse)},
    {"eKFF_ReverseTime", static_cast<uint32_t>(eKFF_ReverseTime)},
    {"eKFF_Type_Mask", static_cast<uint32_t>(eKFF_Type_Mask)},
    {"eKFF_Intra", static_cast<uint32_t>(eKFF_Intra)},
    {"eKFF_Predicted", static_cast<uint32_t>(eKFF_Predicted)},
    {"eKFF_Bidir_Predicted", static_cast<uint32_t>(eKFF_Bidir_Predicted)},
    {"eKFF_S_GMC_VOP_MPEG4", static_cast<uint32_t>(eKFF_S_GMC_VOP_MPEG4)},
    {"eKFF_Switching_Intra", static_cast<uint32_t>(eKFF_Switching_Intra)},
    {"eKFF_Switching_Predicted", static_cast<uint32_t>(eKFF_Switching_Predicted)},
    {"eKFF_BI", static_cast<uint32_t>(eKFF_BI)},
    {"eKFF_BufferPos_Zero", static_cast<uint32_t>(eKFF_BufferPos_Zero)},
    {"eKFF_BufferPos_Min", static_cast<uint32_t>(eKFF_BufferPos_Min)},
    {"eKFF_BufferPos_Max", static_cast<uint32_t>(eKFF_BufferPos_Max)},
    {"eKFF_BufferPos_Overflow", static_cast<uint32_t>(eKFF_BufferPos_Overflow)},
    {"eKFF_Last_Break", static_cast<uint32_t>(eKFF_Last_Break)},
    {"eKFF_Last_Dup", static_cast<uint32_t>(eKFF_Last_Dup)},
    {"eKFF_Last_Pause", static_cast<uint32_t>(eKFF_Last_Pause)},
    {"eKFF_Live_Break", static_cast<uint32_t>(eKFF_Live_Break)},
    {"eKFF_Live_Last", static_cast<uint32_t>(eKFF_Live_Last)},
    {"eKFF_Live_Last_Break", static_cast<uint32_t>(eKFF_Live_Last_Break)},
    {"eKFF_Live_AddedFrame", static_cast<uint32_t>(eKFF_Live_AddedFrame)},
    {"eKFF_Live_SkippedFrame", static_cast<uint32_t>(eKFF_Live_SkippedFrame)},
    {"eKFF_Net_Break", static_cast<uint32_t>(eKFF_Net_Break)},
    {"eKFF_Net_Last", static_cast<uint32_t>(eKFF_Net_Last)},
    {"eKFF_Net_Last_Break", static_cast<uint32_t>(eKFF_Net_Last_Break)},
    {"eKFF_Reverse_Break", static_cast<uint32_t>(eKFF_Reverse_Break)},
    {"eKFF_Reverse_Last", static_cast<uint32_t>(eKFF_Reverse_Last)},
    {"eKFF_Reverse_Pause", static_cast<uint32_t>(eKFF_Reverse_Pause)},
    {"eKFF_Break_Intra", static_cast<uint32_t>(eKFF_Break_Intra)},
    {"eKFF_Reverse_Intra", static_cast<uint32_t>(eKFF_Reverse_Intra)},
    {"eKFF_Reverse_Break_Intra", static_cast<uint32_t>(eKFF_Reverse_Break_Intra)},
    {"eKFF_Net_Intra", static_cast<uint32_t>(eKFF_Net_Intra)},
    {"eKFF_Net_Break_Intra", static_cast<uint32_t>(eKFF_Net_Break_Intra)},
    {"eKFF_Break_Predicted", static_cast<uint32_t>(eKFF_Break_Predicted)},
    {"eKFF_Reverse_Predicted", static_cast<uint32_t>(eKFF_Reverse_Predicted)},
    {"eKFF_Reverse_Break_Predicted", static_cast<uint32_t>(eKFF_Reverse_Break_Predicted)},
    {"eKFF_Net_Predicted", static_cast<uint32_t>(eKFF_Net_Predicted)},
    {"eKFF_Net_Break_Predicted", static_cast<uint32_t>(eKFF_Net_Break_Predicted)},
    {"eKFF_Break_Bidir_Predicted", static_cast<uint32_t>(eKFF_Break_Bidir_Predicted)},
    {"eKFF_Reverse_Bidir_Predicted", static_cast<uint32_t>(eKFF_Reverse_Bidir_Predicted)},
    {"eKFF_Reverse_Break_Bidir_Predicted", static_cast<uint32_t>(eKFF_Reverse_Break_Bidir_Predicted)},
    {"eKFF_Net_Bidir_Predicted", static_cast<uint32_t>(eKFF_Net_Bidir_Predicted)},
    {"eKFF_Net_Break_Bidir_Predicted", static_cast<uint32_t>(eKFF_Net_Break_Bidir_Predicted)},
    {"eKFF_Break_S_GMC_VOP_MPEG4", static_cast<uint32_t>(eKFF_Break_S_GMC_VOP_MPEG4)},
    {"eKFF_Reverse_S_GMC_VOP_MPEG4", static_cast<uint32_t>(eKFF_Reverse_S_GMC_VOP_MPEG4)},
    {"eKFF_Reverse_Break_S_GMC_VOP_MPEG4", static_cast<uint32_t>(eKFF_Reverse_Break_S_GMC_VOP_MPEG4)},
    {"eKFF_Net_S_GMC_VOP_MPEG4", static_cast<uint32_t>(eKFF_Net_S_GMC_VOP_MPEG4)},
    {"eKFF_Net_Break_S_GMC_VOP_MPEG4", static_cast<uint32_t>(eKFF_Net_Break_S_GMC_VOP_MPEG4)},
    {"eKFF_Break_Switching_Intra", static_cast<uint32_t>(eKFF_Break_Switching_Intra)},
    {"eKFF_Reverse_Switching_Intra", static_cast<uint32_t>(eKFF_Reverse_Switching_Intra)},
    {"eKFF_Reverse_Break_Switching_Intra", static_cast<uint32_t>(eKFF_Reverse_Break_Switching_Intra)},
    {"eKFF_Net_Switching_Intra", static_cast<uint32_t>(eKFF_Net_Switching_Intra)},
    {"eKFF_Net_Break_Switching_Intra", static_cast<uint32_t>(eKFF_Net_Break_Switching_Intra)},
    {"eKFF_Break_Switching_Predicted", static_cast<uint32_t>(eKFF_Break_Switching_Predicted)},
    {"eKFF_Reverse_Switching_Predicted", static_cast<uint32_t>(eKFF_Reverse_Switching_Predicted)},
    {"eKFF_Reverse_Break_Switching_Predicted", static_cast<uint32_t>(eKFF_Reverse_Break_Switching_Predicted)},
    {"eKFF_Net_Switching_Predicted", static_cast<uint32_t>(eKFF_Net_Switching_Predicted)},
    {"eKFF_Net_Break_Switching_Predicted", static_cast<uint32_t>(eKFF_Net_Break_Switching_Predicted)},
    {"eKFF_Break_BI", static_cast<uint32_t>(eKFF_Break_BI)},
    {"eKFF_Reverse_BI", static_cast<uint32_t>(eKFF_Reverse_BI)},
    {"eKFF_Reverse_Break_BI", static_cast<uint32_t>(eKFF_Reverse_Break_BI)},
    {"eKFF_Net_BI", static_cast<uint32_t>(eKFF_Net_BI)},
    {"eKFF_Net_Break_BI", static_cast<uint32_t>(eKFF_Net_Break_BI)},
};
inline constexpr EnumMemberInfo kMembers_eKFrameClone[] = {
    {"eKFC_Props", static_cast<uint32_t>(eKFC_Props)},
    {"eKFC_Video", static_cast<uint32_t>(eKFC_Video)},
    {"eKFC_VideoRef", static_cast<uint32_t>(eKFC_VideoRef)},
    {"eKFC_Audio", static_cast<uint32_t>(eKFC_Audio)},
    {"eKFC_VideoRef_Audio", static_cast<uint32_t>(eKFC_VideoRef_Audio)},
    {"eKFC_Data", static_cast<uint32_t>(eKFC_Data)},
    {"eKFC_Data_Audio", static_cast<uint32_t>(eKFC_Data_Audio)},
    {"eKFC_Obj", static_cast<uint32_t>(eKFC_Obj)},
    {"eKFC_ObjData_Audio", static_cast<uint32_t>(eKFC_ObjData_Audio)},
    {"eKFC_Full", static_cast<uint32_t>(eKFC_Full)},
    {"eKFC_Reference", static_cast<uint32_t>(eKFC_Reference)},
    {"eKFC_ForceCPU", static_cast<uint32_t>(eKFC_ForceCPU)},
    {"eKFC_ForceGPU", static_cast<uint32_t>(eKFC_ForceGPU)},
    {"eKFC_Video_ForceCPU", static_cast<uint32_t>(eKFC_Video_ForceCPU)},
    {"eKFC_VideoRef_ForceCPU", static_cast<uint32_t>(eKFC_VideoRef_ForceCPU)},
    {"eKFC_VideoRef_Audio_ForceCPU", static_cast<uint32_t>(eKFC_VideoRef_Audio_ForceCPU)},
    {"eKFC_Full_ForceCPU", static_cast<uint32_t>(eKFC_Full_ForceCPU)},
    {"eKFC_Reference_ForceCPU", static_cast<uint32_t>(eKFC_Reference_ForceCPU)},
    {"eKFC_Video_ForceGPU", static_cast<uint32_t>(eKFC_Video_ForceGPU)},
    {"eKFC_VideoRef_ForceGPU", static_cast<uint32_t>(eKFC_VideoRef_ForceGPU)},
    {"eKFC_VideoRef_Audio_ForceGPU", static_cast<uint32_t>(eKFC_VideoRef_Audio_ForceGPU)},
    {"eKFC_Full_ForceGPU", static_cast<uint32_t>(eKFC_Full_ForceGPU)},
    {"eKFC_Reference_ForceGPU", static_cast<uint32_t>(eKFC_Reference_ForceGPU)},
    {"eKFC_BottomTop_ARGB", static_cast<uint32_t>(eKFC_BottomTop_ARGB)},
};
inline constexpr EnumMemberInfo kMembers_eVCRectType[] = {
    {"eVCRT_Absolute", static_cast<uint32_t>(eVCRT_Absolute)},
    {"eVCRT_Relative", static_cast<uint32_t>(eVCRT_Relative)},
    {"eVCRT_FixedCC_15x32", static_cast<uint32_t>(eVCRT_FixedCC_15x32)},
    {"eVCRT_Fixed14", static_cast<uint32_t>(eVCRT_Fixed14)},
    {"eVCRT_Fixed20", static_cast<uint32_t>(eVCRT_Fixed20)},
    {"eVCRT_Fixed24", static_cast<uint32_t>(eVCRT_Fixed24)},
    {"eVCRT_Fixed32", static_cast<uint32_t>(eVCRT_Fixed32)},
    {"eVCRT_Fixed40", static_cast<uint32_t>(eVCRT_Fixed40)},
};
inline constexpr EnumMemberInfo kMembers_eVCTextFlags[] = {
    {"eVCTF_HPos_Mask", static_cast<uint32_t>(eVCTF_HPos_Mask)},
    {"eVCTF_VPos_Mask", static_cast<uint32_t>(eVCTF_VPos_Mask)},
    {"eVCTF_TopLeft", static_cast<uint32_t>(eVCTF_TopLeft)},
    {"eVCTF_TopCenter", static_cast<uint32_t>(eVCTF_TopCenter)},
    {"eVCTF_TopRight", static_cast<uint32_t>(eVCTF_TopRight)},
    {"eVCTF_TopJustify", static_cast<uint32_t>(eVCTF_TopJustify)},
    {"eVCTF_CenterLeft", static_cast<uint32_t>(eVCTF_CenterLeft)},
    {"eVCTF_Center", static_cast<uint32_t>(eVCTF_Center)},
    {"eVCTF_CenterRight", static_cast<uint32_t>(eVCTF_CenterRight)},
    {"eVCTF_CenterJustify", static_cast<uint32_t>(eVCTF_CenterJustify)},
    {"eVCTF_BottomLeft", static_cast<uint32_t>(eVCTF_BottomLeft)},
    {"eVCTF_BottomCenter", static_cast<uint32_t>(eVCTF_BottomCenter)},
    {"eVCTF_BottomRight", static_cast<uint32_t>(eVCTF_BottomRight)},
    {"eVCTF_BottomJustify", static_cast<uint32_t>(eVCTF_BottomJustify)},
    {"eVCT_WordBreaks", static_cast<uint32_t>(eVCT_WordBreaks)},
    {"eVCT_RightToLeft", static_cast<uint32_t>(eVCT_RightToLeft)},
    {"eVCT_Vertical", static_cast<uint32_t>(eVCT_Vertical)},
    {"eVCTF_WB_TopLeft", static_cast<uint32_t>(eVCTF_WB_TopLeft)},
    {"eVCTF_WB_TopCenter", static_cast<uint32_t>(eVCTF_WB_TopCenter)},
    {"eVCTF_WB_TopRight", static_cast<uint32_t>(eVCTF_WB_TopRight)},
    {"eVCTF_WB_TopJustify", static_cast<uint32_t>(eVCTF_WB_TopJustify)},
    {"eVCTF_WB_CenterLeft", static_cast<uint32_t>(eVCTF_WB_CenterLeft)},
    {"eVCTF_WB_Center", static_cast<uint32_t>(eVCTF_WB_Center)},
    {"eVCTF_WB_CenterRight", static_cast<uint32_t>(eVCTF_WB_CenterRight)},
    {"eVCTF_WB_CenterJustify", static_cast<uint32_t>(eVCTF_WB_CenterJustify)},
    {"eVCTF_WB_BottomLeft", static_cast<uint32_t>(eVCTF_WB_BottomLeft)},
    {"eVCTF_WB_BottomCenter", static_cast<uint32_t>(eVCTF_WB_BottomCenter)},
    {"eVCTF_WB_BottomRight", static_cast<uint32_t>(eVCTF_WB_BottomRight)},
    {"eVCTF_WB_BottomJustify", static_cast<uint32_t>(eVCTF_WB_BottomJustify)},
    {"eVCTF_FirstField", static_cast<uint32_t>(eVCTF_FirstField)},
    {"eVCTF_SecondField", static_cast<uint32_t>(eVCTF_SecondField)},
};
inline constexpr EnumMemberInfo kMembers_eVCOverlayFlags[] = {
    {"eVCOF_NoScale", static_cast<uint32_t>(eVCOF_NoScale)},
    {"eVCOF_LetterBox", static_cast<uint32_t>(eVCOF_LetterBox)},
    {"eVCOF_Crop", static_cast<uint32_t>(eVCOF_Crop)},
    {"eVCOF_NoAR", static_cast<uint32_t>(eVCOF_NoAR)},
    {"eVCOF_ScaleMask", static_cast<uint32_t>(eVCOF_ScaleMask)},
    {"eVCOF_FirstField", static_cast<uint32_t>(eVCOF_FirstField)},
    {"eVCOF_SecondField", static_cast<uint32_t>(eVCOF_SecondField)},
};

inline constexpr EnumInfo kEnums[] = {
    {"eVCMediaType", sizeof(eVCMediaType), kMembers_eVCMediaType},
    {"eVCPacketFlags", sizeof(eVCPacketFlags), kMembers_eVCPacketFlags},
    {"eKInfoType", sizeof(eKInfoType), kMembers_eKInfoType},
    {"eKInterlace", sizeof(eKInterlace), kMembers_eKInterlace},
    {"eKScaleType", sizeof(eKScaleType), kMembers_eKScaleType},
    {"eGPUTextureFormat", sizeof(eGPUTextureFormat), kMembers_eGPUTextureFormat},
    {"eKANCFlags", sizeof(eKANCFlags), kMembers_eKANCFlags},
    {"eVCCC", sizeof(eVCCC), kMembers_eVCCC},
    {"eKVideoFormat", sizeof(eKVideoFormat), kMembers_eKVideoFormat},
    {"eKTimecodeFlags", sizeof(eKTimecodeFlags), kMembers_eKTimecodeFlags},
    {"eKFrameFlags", sizeof(eKFrameFlags), kMembers_eKFrameFlags},
    {"eKFrameClone", sizeof(eKFrameClone), kMembers_eKFrameClone},
    {"eVCRectType", sizeof(eVCRectType), kMembers_eVCRectType},
    {"eVCTextFlags", sizeof(eVCTextFlags), kMembers_eVCTextFlags},
    {"eVCOverlayFlags", sizeof(eVCOverlayFlags), kMembers_eVCOverlayFlags},
};

inline constexpr const char* kParams_IVCSplitter_SplitterOpen[] = {"_bsFilePath", "_bsProps", "_pnStreamsCount"};
inline constexpr const char* kParams_IVCSplitter_SplitterInfoGet[] = {"_pbsFilePath", "_pbsXMLInfo", "_pnStreamsCount", "_prtTotalDuration"};
inline constexpr const char* kParams_IVCSplitter_SplitterStreamInfoGet[] = {"_nStream", "_pStreamInfo", "_pbsStreamXMLInfo"};
inline constexpr const char* kParams_IVCSplitter_SplitterBeginSegment[] = {"_rtSegmentStart", "_bsHints"};
inline constexpr const char* kParams_IVCSplitter_SplitterPacketGet[] = {"_nStreamIdx", "_ppPacket", "_bsHints"};
inline const MethodInfo kMethods_IVCSplitter[] = {
    {"SplitterOpen", VtableSlot(&IVCSplitter::SplitterOpen), kParams_IVCSplitter_SplitterOpen},
    {"SplitterInfoGet", VtableSlot(&IVCSplitter::SplitterInfoGet), kParams_IVCSplitter_SplitterInfoGet},
    {"SplitterStreamInfoGet", VtableSlot(&IVCSplitter::SplitterStreamInfoGet), kParams_IVCSplitter_SplitterStreamInfoGet},
    {"SplitterBeginSegment", VtableSlot(&IVCSplitter::SplitterBeginSegment), kParams_IVCSplitter_SplitterBeginSegment},
    {"SplitterPacketGet", VtableSlot(&IVCSplitter::SplitterPacketGet), kParams_IVCSplitter_SplitterPacketGet},
    {"SplitterStop", VtableSlot(&IVCSplitter::SplitterStop), {}},
    {"SplitterClose", VtableSlot(&IVCSplitter::SplitterClose), {}},
};

inline constexpr const char* kParams_IVCPacket_PacketInfoGet[] = {"_pPacketInfo"};
inline constexpr const char* kParams_IVCPacket_PacketInfoSet[] = {"_pPacketInfo"};
inline constexpr const char* kParams_IVCPacket_PacketStreamInfoGet[] = {"_pStreamInfo"};
inline constexpr const char* kParams_IVCPacket_PacketTimeGet[] = {"_pTime"};
inline constexpr const char* kParams_IVCPacket_PacketAppendData[] = {"cbData", "lpData"};
inline const MethodInfo kMethods_IVCPacket[] = {
    {"PacketInfoGet", VtableSlot(&IVCPacket::PacketInfoGet), kParams_IVCPacket_PacketInfoGet},
    {"PacketInfoSet", VtableSlot(&IVCPacket::PacketInfoSet), kParams_IVCPacket_PacketInfoSet},
    {"PacketStreamInfoGet", VtableSlot(&IVCPacket::PacketStreamInfoGet), kParams_IVCPacket_PacketStreamInfoGet},
    {"PacketTimeGet", VtableSlot(&IVCPacket::PacketTimeGet), kParams_IVCPacket_PacketTimeGet},
    {"PacketAppendData", VtableSlot(&IVCPacket::PacketAppendData), kParams_IVCPacket_PacketAppendData},
};

inline constexpr const char* kParams_IVCDecoder_DecodeIsSupported[] = {"_pStreamInfo", "_pVCPacket", "_pbSupported"};
inline constexpr const char* kParams_IVCDecoder_DecodePacket[] = {"_pVCPacket", "_rtSegmentStart", "_pAVPropsOut", "_ppFrame", "_bsHints"};
inline constexpr const char* kParams_IVCDecoder_DecodeAudio[] = {"_pVCPacket", "_rtSegmentStart", "_pAudioBuffer", "_plSamplesDecode", "_bsHints"};
inline const MethodInfo kMethods_IVCDecoder[] = {
    {"DecodeIsSupported", VtableSlot(&IVCDecoder::DecodeIsSupported), kParams_IVCDecoder_DecodeIsSupported},
    {"DecodePacket", VtableSlot(&IVCDecoder::DecodePacket), kParams_IVCDecoder_DecodePacket},
    {"DecodeAudio", VtableSlot(&IVCDecoder::DecodeAudio), kParams_IVCDecoder_DecodeAudio},
    {"DecodeClose", VtableSlot(&IVCDecoder::DecodeClose), {}},
};

inline constexpr const char* kParams_IVCEncoder_EncodeCodecSet[] = {"_eCodecType", "_bsConfigParams"};
inline constexpr const char* kParams_IVCEncoder_EncodeFramePut[] = {"_pFrame", "_pAVPropsOut", "_ppPacket", "_bsHints"};
inline constexpr const char* kParams_IVCEncoder_EncodePacketsGet[] = {"_ppPacket", "_pnReadyPackets", "_rtMaxWaitTime", "_bsHints"};
inline const MethodInfo kMethods_IVCEncoder[] = {
    {"EncodeCodecSet", VtableSlot(&IVCEncoder::EncodeCodecSet), kParams_IVCEncoder_EncodeCodecSet},
    {"EncodeFramePut", VtableSlot(&IVCEncoder::EncodeFramePut), kParams_IVCEncoder_EncodeFramePut},
    {"EncodePacketsGet", VtableSlot(&IVCEncoder::EncodePacketsGet), kParams_IVCEncoder_EncodePacketsGet},
    {"EncodeClose", VtableSlot(&IVCEncoder::EncodeClose), {}},
};

inline constexpr const char* kParams_IVCMuxer_MuxerSet[] = {"_bsFilePath", "_bsProps"};
inline constexpr const char* kParams_IVCMuxer_MuxerStreamAdd[] = {"_pStreamInfo", "_bsProps", "_pnStreamIdx"};
inline constexpr const char* kParams_IVCMuxer_MuxerStreamInfoGet[] = {"_nStreamIdx", "_pStreamInfo", "_pbsProps"};
inline constexpr const char* kParams_IVCMuxer_MuxerPacketPut[] = {"_nStreamIdx", "_pPacket", "_bsHints"};
inline const MethodInfo kMethods_IVCMuxer[] = {
    {"MuxerSet", VtableSlot(&IVCMuxer::MuxerSet), kParams_IVCMuxer_MuxerSet},
    {"MuxerStreamAdd", VtableSlot(&IVCMuxer::MuxerStreamAdd), kParams_IVCMuxer_MuxerStreamAdd},
    {"MuxerStreamInfoGet", VtableSlot(&IVCMuxer::MuxerStreamInfoGet), kParams_IVCMuxer_MuxerStreamInfoGet},
    {"MuxerPacketPut", VtableSlot(&IVCMuxer::MuxerPacketPut), kParams_IVCMuxer_MuxerPacketPut},
    {"MuxerClose", VtableSlot(&IVCMuxer::MuxerClose), {}},
};

inline constexpr const char* kParams_IVCProps_PropsSet[] = {"_bsPropName", "_bsPropValue"};
inline constexpr const char* kParams_IVCProps_PropsGet[] = {"_bsPropName", "_pbsPropValue"};
inline constexpr const char* kParams_IVCProps_PropsGetCount[] = {"_bsNodeName", "_pnCount"};
inline constexpr const char* kParams_IVCProps_PropsGetByIndex[] = {"_bsNodeName", "_nIndex", "_pbsPropName", "_pbsPropValue", "_pbNode"};
inline constexpr const char* kParams_IVCProps_PropsRemove[] = {"_bsPropName"};
inline constexpr const char* kParams_IVCProps_PropsInfoGet[] = {"_bsPropName", "_eType", "_pbsInfo"};
inline constexpr const char* kParams_IVCProps_PropsOptionGetCount[] = {"_bsPropName", "_pnOptionCount"};
inline constexpr const char* kParams_IVCProps_PropsOptionGetByIndex[] = {"_bsPropName", "_nOptionIdx", "_pbsOptionValue", "_pbsHelp"};
inline constexpr const char* kParams_IVCProps_PropsOptionSetByIndex[] = {"_bsPropName", "_nOptionInx"};
inline constexpr const char* kParams_IVCProps_PropsOptionGet[] = {"_bsPropName", "_pnOptionIdx", "_pbsOptionValue", "_pbsHelp"};
inline const MethodInfo kMethods_IVCProps[] = {
    {"PropsSet", VtableSlot(&IVCProps::PropsSet), kParams_IVCProps_PropsSet},
    {"PropsGet", VtableSlot(&IVCProps::PropsGet), kParams_IVCProps_PropsGet},
    {"PropsGetCount", VtableSlot(&IVCProps::PropsGetCount), kParams_IVCProps_PropsGetCount},
    {"PropsGetByIndex", VtableSlot(&IVCProps::PropsGetByIndex), kParams_IVCProps_PropsGetByIndex},
    {"PropsRemove", VtableSlot(&IVCProps::PropsRemove), kParams_IVCProps_PropsRemove},
    {"PropsInfoGet", VtableSlot(&IVCProps::PropsInfoGet), kParams_IVCProps_PropsInfoGet},
    {"PropsOptionGetCount", VtableSlot(&IVCProps::PropsOptionGetCount), kParams_IVCProps_PropsOptionGetCount},
    {"PropsOptionGetByIndex", VtableSlot(&IVCProps::PropsOptionGetByIndex), kParams_IVCProps_PropsOptionGetByIndex},
    {"PropsOptionSetByIndex", VtableSlot(&IVCProps::PropsOptionSetByIndex), kParams_IVCProps_PropsOptionSetByIndex},
    {"PropsOptionGet", VtableSlot(&IVCProps::PropsOptionGet), kParams_IVCProps_PropsOptionGet},
};

inline constexpr const char* kParams_IVCFrame_VCGetProcessID[] = {"_pdwProcessID"};
inline constexpr const char* kParams_IVCFrame_VCAVPropsGet[] = {"_pProps", "_plAudioSamples"};
inline constexpr const char* kParams_IVCFrame_VCAVPropsSet[] = {"_pProps", "_bsChannelsRemap"};
inline constexpr const char* kParams_IVCFrame_VCTimeGet[] = {"_pTime"};
inline constexpr const char* kParams_IVCFrame_VCTimeSet[] = {"_pTime"};
inline constexpr const char* kParams_IVCFrame_VCFlagCheck[] = {"_eFlagCheck", "_pnRes"};
inline constexpr const char* kParams_IVCFrame_VCAllGet[] = {"_pFrameInfo"};
inline constexpr const char* kParams_IVCFrame_VCAudioGetBytes[] = {"_pcbSize", "_ppbAudio"};
inline constexpr const char* kParams_IVCFrame_VCAudioChannelGetBytes[] = {"_nChannel", "_bCreateNewChannels", "_pcbSize", "_ppbAudio"};
inline constexpr const char* kParams_IVCFrame_VCAudioAlloc[] = {"_pAudProps", "_lSamples"};
inline constexpr const char* kParams_IVCFrame_VCAudioSet[] = {"_pAudProps", "_cbSize", "_pbAudio"};
inline constexpr const char* kParams_IVCFrame_VCAudioMixDirect[] = {"_plAudioOffsetSrc", "_pFrameMixFrom", "_plAudioOffsetMix", "_lSamplesMixMax", "_dblGainStartDb", "_dblGainEndDb", "_bSymmetricGain"};
inline constexpr const char* kParams_IVCFrame_VCAudioMix[] = {"_pFrameMixFrom", "_dblGainStartDb", "_dblGainEndDb", "_bSymmetricGain", "_bsAudioBufferID"};
inline constexpr const char* kParams_IVCFrame_VCAudioCopyTo[] = {"_bsChannelsList", "_pFrameTo"};
inline constexpr const char* kParams_IVCFrame_VCAudioSaveToFile[] = {"_bsFileName", "_bAppend"};
inline constexpr const char* kParams_IVCFrame_VCAudioLoadFromFile[] = {"_bsFileName", "_llSamplesOffset", "_lSamplesLoad"};
inline constexpr const char* kParams_IVCFrame_VCAudioGain[] = {"_bsChannelsList", "_dblGainStartDb", "_dblGainEndDb"};
inline constexpr const char* kParams_IVCFrame_VCVideoGetBytes[] = {"_pcbSize", "_ppbVideo"};
inline constexpr const char* kParams_IVCFrame_VCVideoGetHbitmap[] = {"_pllHBitmap"};
inline constexpr const char* kParams_IVCFrame_VCVideoSaveToFile[] = {"_bsFileName"};
inline constexpr const char* kParams_IVCFrame_VCCut[] = {"_nField", "_pRect", "_ppFrameRes"};
inline constexpr const char* kParams_IVCFrame_VCClone[] = {"_ppCloneFrame", "_eCloneType", "_fccPixelFormat"};
inline constexpr const char* kParams_IVCFrame_VCOverlay[] = {"_pFrameOverlay", "_pFrameMask", "_nPosX", "_nPosY", "_dblAlpha", "_bsPropsList", "_bsAudioBufferID"};
inline constexpr const char* kParams_IVCFrame_VCConvert[] = {"_pPropsDest", "_ppFrameRes", "_pnFrameRest", "_bsPropsList", "_bsConverterID"};
inline constexpr const char* kParams_IVCFrame_VCResize[] = {"_fccOutput", "_nWidth", "_nHeight", "_nResizeField", "_ppFrameRes", "_bsPropsList", "_bsConverterID"};
inline constexpr const char* kParams_IVCFrame_VCTransition[] = {"_pFrameFrom", "_ppFrameRes", "_dblPos", "_bsTransition", "_bsPropsList", "_bsConverterID"};
inline constexpr const char* kParams_IVCFrame_VCDataGetByIndex[] = {"_nIndex", "_pbsDataID", "_pcbANCData", "_ppbANCData"};
inline constexpr const char* kParams_IVCFrame_VCDataGet[] = {"_bsDataID", "_pcbANCData", "_ppbANCData"};
inline constexpr const char* kParams_IVCFrame_VCDataSet[] = {"_bsDataID", "_cbANCData", "_pbANCData"};
inline constexpr const char* kParams_IVCFrame_VCObjGetByIndex[] = {"_nIndex", "_pbsObjID", "_ppObj", "_bMakeLocal"};
inline constexpr const char* kParams_IVCFrame_VCObjGet[] = {"_bsObjID", "_ppObj", "_bMakeLocal"};
inline constexpr const char* kParams_IVCFrame_VCObjSet[] = {"_bsObjID", "_pObj"};
inline constexpr const char* kParams_IVCFrame_VCStrGetByIndex[] = {"_nIndex", "_pbsStrID", "_pbsString"};
inline constexpr const char* kParams_IVCFrame_VCStrGet[] = {"_bsStrID", "_pbsString"};
inline constexpr const char* kParams_IVCFrame_VCStrSet[] = {"_bsStrID", "_bsString"};
inline constexpr const char* kParams_IVCFrame_VCSave[] = {"_pcbData", "_ppData", "_eSaveType"};
inline constexpr const char* kParams_IVCFrame_VCLoad[] = {"_cbData", "_pbData", "_eLoadType"};
inline constexpr const char* kParams_IVCFrame_VCPrint[] = {"_bsText", "_dblTextSize", "_pRect", "_eVCTextFlags", "_bsExtraParam"};
inline constexpr const char* kParams_IVCFrame_VCOverlayRect[] = {"_pFrameOverlay", "_pFrameMask", "_pRect", "_eVCOverlayFlags", "_dblAlpha", "_bsPropsList", "_bsAudioBufferID"};
inline constexpr const char* kParams_IVCFrame_VCVideoGetBytesEx[] = {"_pVideoPtr"};
inline constexpr const char* kParams_IVCFrame_VCSaveToStream[] = {"_ppStream", "_eSaveType"};
inline constexpr const char* kParams_IVCFrame_VCAddToStream[] = {"_pStream", "_eSaveType"};
inline constexpr const char* kParams_IVCFrame_VCLoadFromStream[] = {"_pStream", "_eLoadType"};
inline const MethodInfo kMethods_IVCFrame[] = {
    {"VCGetProcessID", VtableSlot(&IVCFrame::VCGetProcessID), kParams_IVCFrame_VCGetProcessID},
    {"VCAVPropsGet", VtableSlot(&IVCFrame::VCAVPropsGet), kParams_IVCFrame_VCAVPropsGet},
    {"VCAVPropsSet", VtableSlot(&IVCFrame::VCAVPropsSet), kParams_IVCFrame_VCAVPropsSet},
    {"VCTimeGet", VtableSlot(&IVCFrame::VCTimeGet), kParams_IVCFrame_VCTimeGet},
    {"VCTimeSet", VtableSlot(&IVCFrame::VCTimeSet), kParams_IVCFrame_VCTimeSet},
    {"VCFlagCheck", VtableSlot(&IVCFrame::VCFlagCheck), kParams_IVCFrame_VCFlagCheck},
    {"VCAllGet", VtableSlot(&IVCFrame::VCAllGet), kParams_IVCFrame_VCAllGet},
    {"VCAudioGetBytes", VtableSlot(&IVCFrame::VCAudioGetBytes), kParams_IVCFrame_VCAudioGetBytes},
    {"VCAudioChannelGetBytes", VtableSlot(&IVCFrame::VCAudioChannelGetBytes), kParams_IVCFrame_VCAudioChannelGetBytes},
    {"VCAudioChannelsUpdate", VtableSlot(&IVCFrame::VCAudioChannelsUpdate), {}},
    {"VCAudioAlloc", VtableSlot(&IVCFrame::VCAudioAlloc), kParams_IVCFrame_VCAudioAlloc},
    {"VCAudioSet", VtableSlot(&IVCFrame::VCAudioSet), kParams_IVCFrame_VCAudioSet},
    {"VCAudioMixDirect", VtableSlot(&IVCFrame::VCAudioMixDirect), kParams_IVCFrame_VCAudioMixDirect},
    {"VCAudioMix", VtableSlot(&IVCFrame::VCAudioMix), kParams_IVCFrame_VCAudioMix},
    {"VCAudioCopyTo", VtableSlot(&IVCFrame::VCAudioCopyTo), kParams_IVCFrame_VCAudioCopyTo},
    {"VCAudioSaveToFile", VtableSlot(&IVCFrame::VCAudioSaveToFile), kParams_IVCFrame_VCAudioSaveToFile},
    {"VCAudioLoadFromFile", VtableSlot(&IVCFrame::VCAudioLoadFromFile), kParams_IVCFrame_VCAudioLoadFromFile},
    {"VCAudioGain", VtableSlot(&IVCFrame::VCAudioGain), kParams_IVCFrame_VCAudioGain},
    {"VCVideoGetBytes", VtableSlot(&IVCFrame::VCVideoGetBytes), kParams_IVCFrame_VCVideoGetBytes},
    {"VCVideoGetHbitmap", VtableSlot(&IVCFrame::VCVideoGetHbitmap), kParams_IVCFrame_VCVideoGetHbitmap},
    {"VCVideoSaveToFile", VtableSlot(&IVCFrame::VCVideoSaveToFile), kParams_IVCFrame_VCVideoSaveToFile},
    {"VCCut", VtableSlot(&IVCFrame::VCCut), kParams_IVCFrame_VCCut},
    {"VCClone", VtableSlot(&IVCFrame::VCClone), kParams_IVCFrame_VCClone},
    {"VCOverlay", VtableSlot(&IVCFrame::VCOverlay), kParams_IVCFrame_VCOverlay},
    {"VCConvert", VtableSlot(&IVCFrame::VCConvert), kParams_IVCFrame_VCConvert},
    {"VCResize", VtableSlot(&IVCFrame::VCResize), kParams_IVCFrame_VCResize},
    {"VCTransition", VtableSlot(&IVCFrame::VCTransition), kParams_IVCFrame_VCTransition},
    {"VCDataGetByIndex", VtableSlot(&IVCFrame::VCDataGetByIndex), kParams_IVCFrame_VCDataGetByIndex},
    {"VCDataGet", VtableSlot(&IVCFrame::VCDataGet), kParams_IVCFrame_VCDataGet},
    {"VCDataSet", VtableSlot(&IVCFrame::VCDataSet), kParams_IVCFrame_VCDataSet},
    {"VCObjGetByIndex", VtableSlot(&IVCFrame::VCObjGetByIndex), kParams_IVCFrame_VCObjGetByIndex},
    {"VCObjGet", VtableSlot(&IVCFrame::VCObjGet), kParams_IVCFrame_VCObjGet},
    {"VCObjSet", VtableSlot(&IVCFrame::VCObjSet), kParams_IVCFrame_VCObjSet},
    {"VCStrGetByIndex", VtableSlot(&IVCFrame::VCStrGetByIndex), kParams_IVCFrame_VCStrGetByIndex},
    {"VCStrGet", VtableSlot(&IVCFrame::VCStrGet), kParams_IVCFrame_VCStrGet},
    {"VCStrSet", VtableSlot(&IVCFrame::VCStrSet), kParams_IVCFrame_VCStrSet},
    {"VCSave", VtableSlot(&IVCFrame::VCSave), kParams_IVCFrame_VCSave},
    {"VCLoad", VtableSlot(&IVCFrame::VCLoad), kParams_IVCFrame_VCLoad},
    {"VCWaitAsync", VtableSlot(&IVCFrame::VCWaitAsync), {}},
    {"VCPrint", VtableSlot(&IVCFrame::VCPrint), kParams_IVCFrame_VCPrint},
    {"VCOverlayRect", VtableSlot(&IVCFrame::VCOverlayRect), kParams_IVCFrame_VCOverlayRect},
    {"VCVideoGetBytesEx", VtableSlot(&IVCFrame::VCVideoGetBytesEx), kParams_IVCFrame_VCVideoGetBytesEx},
    {"VCSaveToStream", VtableSlot(&IVCFrame::VCSaveToStream), kParams_IVCFrame_VCSaveToStream},
    {"VCAddToStream", VtableSlot(&IVCFrame::VCAddToStream), kParams_IVCFrame_VCAddToStream},
    {"VCLoadFromStream", VtableSlot(&IVCFrame::VCLoadFromStream), kParams_IVCFrame_VCLoadFromStream},
};

inline constexpr const char* kParams_IVCAudioBuffer_BufferLoadFromFile[] = {"_bsLine", "_bsFileName", "_lSamplesOffset", "_lSamplesLoad"};
inline constexpr const char* kParams_IVCAudioBuffer_BufferPropsSet[] = {"_bsLine", "_pAudProps", "_bResetBuffer"};
inline constexpr const char* kParams_IVCAudioBuffer_BufferPropsGet[] = {"_bsLine", "_pAudProps", "_plSamples"};
inline constexpr const char* kParams_IVCAudioBuffer_BufferPutPtr[] = {"_bsLine", "_pAudProps", "_lSamples", "_pbAudio", "_bsChannelsListOrTrack"};
inline constexpr const char* kParams_IVCAudioBuffer_BufferFramePut[] = {"_bsLine", "_pFrame", "_bsChannelsListOrTrack"};
inline constexpr const char* kParams_IVCAudioBuffer_BufferFrameFill[] = {"_bsLine", "_pFrame", "_plSamples", "_bsChannelsList"};
inline constexpr const char* kParams_IVCAudioBuffer_BufferFrameMix[] = {"_bsLineFrom", "_pFrameTo", "_plSamplesMix", "_dblGainFromStartDb", "_dblGainFromEndDb", "_bsChannelsListIn", "_bsChannelsListOut"};
inline constexpr const char* kParams_IVCAudioBuffer_BufferFrameChannelsAppend[] = {"_bsLine", "_pFrame", "_plSamplesAppend", "_bsChannelsList"};
inline constexpr const char* kParams_IVCAudioBuffer_BufferLinesMix[] = {"_bsLineFrom", "_bsLineTo", "_plSamplesMix", "_dblGainFromStartDb", "_dblGainFromEndDb", "_dblGainToStartDb", "_dblGainToEndDb", "_bsChannelsListIn", "_bsChannelsListOut"};
inline constexpr const char* kParams_IVCAudioBuffer_BufferLinesRemove[] = {"_bsLine"};
inline constexpr const char* kParams_IVCAudioBuffer_BufferRemove[] = {"_bsLine", "_plSamples"};
inline constexpr const char* kParams_IVCAudioBuffer_BufferPutPtrEx[] = {"_bsLine", "_rtTime", "_pAudProps", "_lSamples", "_pbAudio", "_cbAudioPlane", "_bsChannelsList"};
inline constexpr const char* kParams_IVCAudioBuffer_BufferGet[] = {"_bsLine", "_plSamples", "_ppbAudio", "_cbAudioPlane", "_bsChannelsList"};
inline constexpr const char* kParams_IVCAudioBuffer_BufferTimesEnable[] = {"_bsLine", "_bEnable", "_prtMinDiff", "_prtMaxDiff"};
inline constexpr const char* kParams_IVCAudioBuffer_BufferTimesIsEnabled[] = {"_bsLine", "_pbEnabled", "_prtMinDiff", "_prtMaxDiff"};
inline constexpr const char* kParams_IVCAudioBuffer_BufferTimesGet[] = {"_bsLine", "_prtStartTime", "_prtEndTime"};
inline constexpr const char* kParams_IVCAudioBuffer_BufferTimesSet[] = {"_bsLine", "_rtStartTime", "_rtMinEndTime"};
inline const MethodInfo kMethods_IVCAudioBuffer[] = {
    {"BufferLoadFromFile", VtableSlot(&IVCAudioBuffer::BufferLoadFromFile), kParams_IVCAudioBuffer_BufferLoadFromFile},
    {"BufferPropsSet", VtableSlot(&IVCAudioBuffer::BufferPropsSet), kParams_IVCAudioBuffer_BufferPropsSet},
    {"BufferPropsGet", VtableSlot(&IVCAudioBuffer::BufferPropsGet), kParams_IVCAudioBuffer_BufferPropsGet},
    {"BufferPutPtr", VtableSlot(&IVCAudioBuffer::BufferPutPtr), kParams_IVCAudioBuffer_BufferPutPtr},
    {"BufferFramePut", VtableSlot(&IVCAudioBuffer::BufferFramePut), kParams_IVCAudioBuffer_BufferFramePut},
    {"BufferFrameFill", VtableSlot(&IVCAudioBuffer::BufferFrameFill), kParams_IVCAudioBuffer_BufferFrameFill},
    {"BufferFrameMix", VtableSlot(&IVCAudioBuffer::BufferFrameMix), kParams_IVCAudioBuffer_BufferFrameMix},
    {"BufferFrameChannelsAppend", VtableSlot(&IVCAudioBuffer::BufferFrameChannelsAppend), kParams_IVCAudioBuffer_BufferFrameChannelsAppend},
    {"BufferLinesMix", VtableSlot(&IVCAudioBuffer::BufferLinesMix), kParams_IVCAudioBuffer_BufferLinesMix},
    {"BufferLinesRemove", VtableSlot(&IVCAudioBuffer::BufferLinesRemove), kParams_IVCAudioBuffer_BufferLinesRemove},
    {"BufferRemove", VtableSlot(&IVCAudioBuffer::BufferRemove), kParams_IVCAudioBuffer_BufferRemove},
    {"BufferPutPtrEx", VtableSlot(&IVCAudioBuffer::BufferPutPtrEx), kParams_IVCAudioBuffer_BufferPutPtrEx},
    {"BufferGet", VtableSlot(&IVCAudioBuffer::BufferGet), kParams_IVCAudioBuffer_BufferGet},
    {"BufferTimesEnable", VtableSlot(&IVCAudioBuffer::BufferTimesEnable), kParams_IVCAudioBuffer_BufferTimesEnable},
    {"BufferTimesIsEnabled", VtableSlot(&IVCAudioBuffer::BufferTimesIsEnabled), kParams_IVCAudioBuffer_BufferTimesIsEnabled},
    {"BufferTimesGet", VtableSlot(&IVCAudioBuffer::BufferTimesGet), kParams_IVCAudioBuffer_BufferTimesGet},
    {"BufferTimesSet", VtableSlot(&IVCAudioBuffer::BufferTimesSet), kParams_IVCAudioBuffer_BufferTimesSet},
};


inline const InterfaceInfo kInterfaces[] = {
    {"IVCSplitter", &IID_IVCSplitter, kMethods_IVCSplitter},
    {"IVCPacket", &IID_IVCPacket, kMethods_IVCPacket},
    {"IVCDecoder", &IID_IVCDecoder, kMethods_IVCDecoder},
    {"IVCEncoder", &IID_IVCEncoder, kMethods_IVCEncoder},
    {"IVCMuxer", &IID_IVCMuxer, kMethods_IVCMuxer},
    {"IVCProps", &IID_IVCProps, kMethods_IVCProps},
    {"IVCFrame", &IID_IVCFrame, kMethods_IVCFrame},
    {"IVCAudioBuffer", &IID_IVCAudioBuffer, kMethods_IVCAudioBuffer},
};

inline constexpr const char* kInterfaces_VCSplitter[] = {"IVCSplitter", "IVCProps"};
inline constexpr const char* kInterfaces_VCDecoder[] = {"IVCDecoder", "IVCProps"};
inline constexpr const char* kInterfaces_VCEncoder[] = {"IVCEncoder", "IVCProps"};
inline constexpr const char* kInterfaces_VCMuxer[] = {"IVCMuxer", "IVCProps"};

inline constexpr CoclassInfo kCoclasses[] = {
    {"VCSplitter", &CLSID_VCSplitter, "IVCSplitter", kInterfaces_VCSplitter},
    {"VCDecoder", &CLSID_VCDecoder, "IVCDecoder", kInterfaces_VCDecoder},
    {"VCEncoder", &CLSID_VCEncoder, "IVCEncoder", kInterfaces_VCEncoder},
    {"VCMuxer", &CLSID_VCMuxer, "IVCMuxer", kInterfaces_VCMuxer},
};

}  // namespace vc::reflect
