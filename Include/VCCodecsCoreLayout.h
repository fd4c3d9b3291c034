// The fixed layout of every record of the binary interface, checked at
// compile time in every translation unit that includes it (VCCodecsCore.h
// does), so a compiler, a packing pragma or an edit of the IDL that moves a
// field fails the build instead of corrupting a host's memory. The numbers
// are worked out by hand from the layout rules, not taken from a compiler:
// natural alignment of each field, records aligned to their widest member (8
// where a 64-bit field, an address or a double is present, otherwise 4).
// The same list is also kept as data (vc::layout) so that a test can report
// a mismatch field by field and notice fields this list does not know.
#pragma once

#include <cstddef>

#include "VCCodecsCoreTypes.h"

// RECORD(type, size, alignment) followed by FIELD(type, field, offset) for
// each field in declaration order.
#define VC_CORE_RECORD_LAYOUTS(RECORD, FIELD) \
  RECORD(K_RATIONAL, 8, 4) \
  FIELD(K_RATIONAL, nNum, 0) \
  FIELD(K_RATIONAL, nDen, 4) \
  \
  RECORD(K_STREAM_INFO, 80, 8) \
  FIELD(K_STREAM_INFO, eMediaType, 0) \
  FIELD(K_STREAM_INFO, cbCodecData, 4) \
  FIELD(K_STREAM_INFO, lpCodecData, 8) \
  FIELD(K_STREAM_INFO, raTimeBase, 16) \
  FIELD(K_STREAM_INFO, nWidth, 24) \
  FIELD(K_STREAM_INFO, nHeight, 28) \
  FIELD(K_STREAM_INFO, nAspectX, 32) \
  FIELD(K_STREAM_INFO, nAspectY, 36) \
  FIELD(K_STREAM_INFO, dblRate, 40) \
  FIELD(K_STREAM_INFO, nSampleRate, 48) \
  FIELD(K_STREAM_INFO, nChannels, 52) \
  FIELD(K_STREAM_INFO, nBlockAlign, 56) \
  FIELD(K_STREAM_INFO, nBitsPerCodedSample, 60) \
  FIELD(K_STREAM_INFO, nBitrate, 64) \
  FIELD(K_STREAM_INFO, bsCodecNameOrTag, 72) /* 4 bytes of padding after nBitrate */ \
  \
  RECORD(K_PACKET_INFO, 96, 8) \
  FIELD(K_PACKET_INFO, eFlags, 0) \
  FIELD(K_PACKET_INFO, cbPacketData, 4) \
  FIELD(K_PACKET_INFO, lpPacketData, 8) \
  FIELD(K_PACKET_INFO, llDts, 16) \
  FIELD(K_PACKET_INFO, llPts, 24) \
  FIELD(K_PACKET_INFO, llDuration, 32) \
  FIELD(K_PACKET_INFO, rtSegmentStart, 40) \
  FIELD(K_PACKET_INFO, nIndexInSegment, 48) \
  FIELD(K_PACKET_INFO, nOrderInSegment, 52) \
  FIELD(K_PACKET_INFO, nKeyDistance, 56) \
  FIELD(K_PACKET_INFO, nStreamIndex, 60) \
  FIELD(K_PACKET_INFO, llFilePos, 64) \
  FIELD(K_PACKET_INFO, lpSideData, 72) \
  FIELD(K_PACKET_INFO, cbSideData, 80) \
  FIELD(K_PACKET_INFO, nSideDatatype, 84) \
  FIELD(K_PACKET_INFO, nSideDataElems, 88) \
  \
  RECORD(K_TIMECODE, 24, 4) \
  FIELD(K_TIMECODE, nHours, 0) \
  FIELD(K_TIMECODE, nMinutes, 4) \
  FIELD(K_TIMECODE, nSeconds, 8) \
  FIELD(K_TIMECODE, nFrames, 12) \
  FIELD(K_TIMECODE, eTCFlags, 16) \
  FIELD(K_TIMECODE, nExtraCounter, 20) \
  \
  RECORD(K_TIME, 48, 8) \
  FIELD(K_TIME, rtStartTime, 0) \
  FIELD(K_TIME, rtEndTime, 8) \
  FIELD(K_TIME, tcFrame, 16) \
  FIELD(K_TIME, eFFlags, 40) /* 4 bytes of tail padding */ \
  \
  RECORD(K_VID_PROPS, 48, 8) \
  FIELD(K_VID_PROPS, eVideoFormat, 0) \
  FIELD(K_VID_PROPS, fccType, 4) \
  FIELD(K_VID_PROPS, nWidth, 8) \
  FIELD(K_VID_PROPS, nHeight, 12) \
  FIELD(K_VID_PROPS, nRowBytes, 16) \
  FIELD(K_VID_PROPS, eInterlace, 20) \
  FIELD(K_VID_PROPS, nAspectX, 24) \
  FIELD(K_VID_PROPS, nAspectY, 26) \
  FIELD(K_VID_PROPS, dblRate, 32) /* 4 bytes of padding after the 16-bit aspect pair */ \
  FIELD(K_VID_PROPS, eScaleType, 40) \
  FIELD(K_VID_PROPS, eGPUFlags, 44) \
  \
  RECORD(K_AUD_PROPS, 16, 4) \
  FIELD(K_AUD_PROPS, nChannels, 0) \
  FIELD(K_AUD_PROPS, nSamplesPerSec, 4) \
  FIELD(K_AUD_PROPS, nBitsPerSample, 8) \
  FIELD(K_AUD_PROPS, nTrackSplitBits, 12) \
  \
  RECORD(LUFS_METERS, 640, 4) \
  FIELD(LUFS_METERS, fM, 0) \
  FIELD(LUFS_METERS, fS, 4) \
  FIELD(LUFS_METERS, fI, 8) \
  FIELD(LUFS_METERS, fLRA, 12) \
  FIELD(LUFS_METERS, fLRALow, 16) \
  FIELD(LUFS_METERS, fLRAHigh, 20) \
  FIELD(LUFS_METERS, fMaxTPL, 24) \
  FIELD(LUFS_METERS, arrTPL, 28) \
  FIELD(LUFS_METERS, arrReserved, 156) \
  \
  RECORD(K_AUDIO_LOUDNESS, 1036, 4) \
  FIELD(K_AUDIO_LOUDNESS, arrVUMeter, 0) \
  FIELD(K_AUDIO_LOUDNESS, arrVUPeaks, 128) \
  FIELD(K_AUDIO_LOUDNESS, arrRMS, 256) \
  FIELD(K_AUDIO_LOUDNESS, lufs, 384) \
  FIELD(K_AUDIO_LOUDNESS, nValidChannels, 1024) \
  FIELD(K_AUDIO_LOUDNESS, nValidTracks, 1028) \
  FIELD(K_AUDIO_LOUDNESS, nTracksSplitBit, 1032) \
  \
  RECORD(K_ANC_DATA, 2076, 4) \
  FIELD(K_ANC_DATA, eFlags, 0) \
  FIELD(K_ANC_DATA, audOriginal, 4) \
  FIELD(K_ANC_DATA, audOutput, 1040) \
  \
  RECORD(K_AV_PROPS, 2144, 8) \
  FIELD(K_AV_PROPS, vidProps, 0) \
  FIELD(K_AV_PROPS, audProps, 48) \
  FIELD(K_AV_PROPS, ancData, 64) \
  FIELD(K_AV_PROPS, bLocked, 2140) /* no padding: 2140 + 4 is a multiple of 8 */ \
  \
  RECORD(VC_FRAME_INFO, 2248, 8) \
  FIELD(VC_FRAME_INFO, llVideoID, 0) \
  FIELD(VC_FRAME_INFO, mTime, 8) \
  FIELD(VC_FRAME_INFO, avProps, 56) \
  FIELD(VC_FRAME_INFO, cbAudio, 2200) \
  FIELD(VC_FRAME_INFO, cbVideo, 2204) \
  FIELD(VC_FRAME_INFO, lpVideo, 2208) \
  FIELD(VC_FRAME_INFO, lpAudio, 2216) \
  FIELD(VC_FRAME_INFO, lAudioSamples, 2224) \
  FIELD(VC_FRAME_INFO, dwProcessID, 2228) \
  FIELD(VC_FRAME_INFO, nDataCount, 2232) \
  FIELD(VC_FRAME_INFO, nObjCount, 2236) \
  FIELD(VC_FRAME_INFO, nStrCount, 2240) /* 4 bytes of tail padding */ \
  \
  RECORD(VC_VID_PTR, 80, 8) \
  FIELD(VC_VID_PTR, lpVideoPlanes, 0) \
  FIELD(VC_VID_PTR, szVideoPlanes, 32) \
  FIELD(VC_VID_PTR, cbVideoRowBytes, 64) \
  \
  RECORD(VC_RECT, 40, 8) \
  FIELD(VC_RECT, dblPosX, 0) \
  FIELD(VC_RECT, dblPosY, 8) \
  FIELD(VC_RECT, dblWidth, 16) \
  FIELD(VC_RECT, dblHeight, 24) \
  FIELD(VC_RECT, eRectType, 32) /* 4 bytes of tail padding */

#define VC_LAYOUT_ASSERT_RECORD(R, size, align)                   \
  static_assert(sizeof(R) == (size), #R ": size changed");        \
  static_assert(alignof(R) == (align), #R ": alignment changed");
#define VC_LAYOUT_ASSERT_FIELD(R, F, offset) static_assert(offsetof(R, F) == (offset), #R "::" #F ": offset changed");
VC_CORE_RECORD_LAYOUTS(VC_LAYOUT_ASSERT_RECORD, VC_LAYOUT_ASSERT_FIELD)
#undef VC_LAYOUT_ASSERT_RECORD
#undef VC_LAYOUT_ASSERT_FIELD

// The platform records the interfaces use.
static_assert(sizeof(RECT) == 16 && offsetof(RECT, left) == 0 && offsetof(RECT, top) == 4 &&
                  offsetof(RECT, right) == 8 && offsetof(RECT, bottom) == 12,
              "RECT is four 32-bit integers");
static_assert(sizeof(SIZE) == 8 && offsetof(SIZE, cx) == 0 && offsetof(SIZE, cy) == 4, "SIZE is two 32-bit integers");

// Enumerations travel as 32-bit integers inside records and arguments.
static_assert(sizeof(eVCMediaType) == 4 && sizeof(eVCPacketFlags) == 4 && sizeof(eKInfoType) == 4 &&
              sizeof(eKInterlace) == 4 && sizeof(eKScaleType) == 4 && sizeof(eGPUTextureFormat) == 4 &&
              sizeof(eKANCFlags) == 4 && sizeof(eVCCC) == 4 && sizeof(eKVideoFormat) == 4 &&
              sizeof(eKTimecodeFlags) == 4 && sizeof(eKFrameFlags) == 4 && sizeof(eKFrameClone) == 4 &&
              sizeof(eVCRectType) == 4 && sizeof(eVCTextFlags) == 4 && sizeof(eVCOverlayFlags) == 4,
              "enumerations are 32-bit");

namespace vc::layout {

struct ExpectedRecord {
  const char* pszName;
  size_t cbSize;
  size_t cbAlign;
};

struct ExpectedField {
  const char* pszRecord;
  const char* pszField;
  size_t cbOffset;
};

#define VC_LAYOUT_RECORD_ROW(R, size, align) {#R, size, align},
#define VC_LAYOUT_FIELD_ROW(R, F, offset) {#R, #F, offset},
#define VC_LAYOUT_NO_ROW(...)
inline constexpr ExpectedRecord kExpectedRecords[] = {
    VC_CORE_RECORD_LAYOUTS(VC_LAYOUT_RECORD_ROW, VC_LAYOUT_NO_ROW)};
inline constexpr ExpectedField kExpectedFields[] = {VC_CORE_RECORD_LAYOUTS(VC_LAYOUT_NO_ROW, VC_LAYOUT_FIELD_ROW)};
#undef VC_LAYOUT_RECORD_ROW
#undef VC_LAYOUT_FIELD_ROW
#undef VC_LAYOUT_NO_ROW

}  // namespace vc::layout
