// Frames as bytes (VCSave, VCLoad) and over streams: how frames cross
// process boundaries. The layout, version 1, all numbers little-endian:
//
//   header, 32 bytes:
//     "VCFR", u16 version (1), u16 header size (32), u64 total size (header,
//     records and trailer), u32 the eKFrameClone parts saved, u32 record
//     count (trailer included), u64 zero
//   records, one after the other: u32 tag, u32 zero, u64 payload size, payload
//     "TIME" the K_TIME record as laid out in memory
//     "PROP" the K_AV_PROPS record as laid out in memory
//     "VIDE" u32 public pixel code, i32 width, i32 height, i32 interlaced,
//            i32 top field first, i32 sample aspect num, den, i32 colour
//            space, i32 colour range, u32 planes, then per plane in public
//            order i32 row bytes, i32 rows; then the planes' rows without
//            padding
//     "AUDI" i32 channels, i32 rate, i32 bits, i32 samples, interleaved samples
//     "DATA" name, u32 size, bytes        "STRG" name, u32 units, UTF-16 units
//     "OBJF" name, u32 size, a nested frame in this same layout
//     (a name is u32 UTF-16 units and the units; names are not empty)
//   trailer: a record "END " whose 4-byte payload is the CRC-32 (IEEE) of
//     every byte before the trailer.
//
// Readers skip records of tags they do not know, so later versions may add
// records. Loading checks every size against what the record can hold and
// the CRC before anything is built: truncated or damaged bytes answer
// ERROR_INVALID_DATA (0x8007000D) and the frame stays as it was. Objects
// other than frames cannot cross a process and are left out (logged).
#include <cstring>
#include <limits>
#include <memory>
#include <new>

extern "C" {
#include <libavutil/crc.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

#include "FFFormats.h"
#include "FFFrame.h"
#include "FFFrameChannels.h"
#include "FFFrameImpl.h"
#include "FFFrameScale.h"
#include "FFMemoryStream.h"
#include "VCLog.h"

namespace vc::ff {

namespace {

constexpr char kMagic[4] = {'V', 'C', 'F', 'R'};
constexpr uint16_t kVersion = 1;
constexpr uint32_t kHeaderSize = 32;
constexpr uint32_t kRecordHeaderSize = 16;
constexpr int kCloneKnownBits = eKFC_Video | eKFC_VideoRef | eKFC_Audio | eKFC_Data | eKFC_Obj | eKFC_ForceCPU |
                                eKFC_ForceGPU | eKFC_BottomTop_ARGB;
// Frames inside frames inside frames: a cycle of attached frames must end.
constexpr int kMaxNesting = 8;
const HRESULT kHrCorrupt = HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
const HRESULT kStreamShort = static_cast<HRESULT>(0x80030070u);  // STG_E_MEDIUMFULL

// Initial-exec: the module is loaded at run time, and a dynamic TLS block
// there trips the leak checker's thread walk at exit; one int fits in the
// static TLS reserve the loader keeps for such modules.
#if defined(__GNUC__) && !defined(_WIN32)
__attribute__((tls_model("initial-exec")))
#endif
thread_local int t_nNesting = 0;

struct NestingGuard {
  NestingGuard() { ++t_nNesting; }
  ~NestingGuard() { --t_nNesting; }
  NestingGuard(const NestingGuard&) = delete;
  NestingGuard& operator=(const NestingGuard&) = delete;
};

constexpr uint32_t Tag(const char (&s)[5]) {
  return static_cast<uint32_t>(static_cast<uint8_t>(s[0])) | static_cast<uint32_t>(static_cast<uint8_t>(s[1])) << 8 |
         static_cast<uint32_t>(static_cast<uint8_t>(s[2])) << 16 | static_cast<uint32_t>(static_cast<uint8_t>(s[3])) << 24;
}
constexpr uint32_t kTagTime = Tag("TIME");
constexpr uint32_t kTagProps = Tag("PROP");
constexpr uint32_t kTagVideo = Tag("VIDE");
constexpr uint32_t kTagAudio = Tag("AUDI");
constexpr uint32_t kTagData = Tag("DATA");
constexpr uint32_t kTagString = Tag("STRG");
constexpr uint32_t kTagFrame = Tag("OBJF");
constexpr uint32_t kTagEnd = Tag("END ");

uint32_t Crc32(const uint8_t* p, size_t cb) {
  return av_crc(av_crc_get_table(AV_CRC_32_IEEE_LE), 0xFFFFFFFFu, p, cb) ^ 0xFFFFFFFFu;
}

class CWriter {
 public:
  void Bytes(const void* p, size_t cb) {
    const auto* pb = static_cast<const uint8_t*>(p);
    m_vec.insert(m_vec.end(), pb, pb + cb);
  }
  void U16(uint16_t v) { Little(v, 2); }
  void U32(uint32_t v) { Little(v, 4); }
  void I32(int32_t v) { Little(static_cast<uint32_t>(v), 4); }
  void U64(uint64_t v) { Little(v, 8); }
  void Name(const String& str) {
    U32(static_cast<uint32_t>(str.size()));
    for (char16_t c : str) U16(static_cast<uint16_t>(c));
  }
  // Starts a record; EndRecord fills in its size.
  size_t BeginRecord(uint32_t uTag) {
    U32(uTag);
    U32(0);
    const size_t nAt = m_vec.size();
    U64(0);
    ++m_nRecords;
    return nAt;
  }
  void EndRecord(size_t nAt) { Patch(nAt, m_vec.size() - nAt - 8, 8); }
  void Patch(size_t nAt, uint64_t v, int nBytes) {
    for (int i = 0; i < nBytes; ++i) m_vec[nAt + static_cast<size_t>(i)] = static_cast<uint8_t>(v >> (8 * i));
  }
  uint32_t Records() const { return m_nRecords; }
  std::vector<uint8_t>& Data() { return m_vec; }

 private:
  void Little(uint64_t v, int nBytes) {
    for (int i = 0; i < nBytes; ++i) m_vec.push_back(static_cast<uint8_t>(v >> (8 * i)));
  }
  std::vector<uint8_t> m_vec;
  uint32_t m_nRecords = 0;
};

class CReader {
 public:
  CReader(const uint8_t* p, size_t cb) : m_p(p), m_cb(cb) {}
  size_t Left() const { return m_cb - m_nPos; }
  size_t Pos() const { return m_nPos; }
  bool Bytes(size_t cb, const uint8_t** pp) {
    if (cb > Left()) return false;
    *pp = m_p + m_nPos;
    m_nPos += cb;
    return true;
  }
  bool U16(uint16_t* pv) { return Little(pv, 2); }
  bool U32(uint32_t* pv) { return Little(pv, 4); }
  bool I32(int32_t* pv) {
    uint32_t v = 0;
    if (!Little(&v, 4)) return false;
    *pv = static_cast<int32_t>(v);
    return true;
  }
  bool U64(uint64_t* pv) { return Little(pv, 8); }
  bool Name(String* pstr) {
    uint32_t nUnits = 0;
    const uint8_t* p = nullptr;
    if (!U32(&nUnits) || nUnits == 0 || nUnits > Left() / 2 || !Bytes(static_cast<size_t>(nUnits) * 2, &p))
      return false;
    pstr->resize(nUnits);
    for (uint32_t i = 0; i < nUnits; ++i) (*pstr)[i] = static_cast<char16_t>(p[2 * i] | p[2 * i + 1] << 8);
    return true;
  }

 private:
  template <class T>
  bool Little(T* pv, int nBytes) {
    if (static_cast<size_t>(nBytes) > Left()) return false;
    uint64_t v = 0;
    for (int i = 0; i < nBytes; ++i) v |= static_cast<uint64_t>(m_p[m_nPos + static_cast<size_t>(i)]) << (8 * i);
    m_nPos += static_cast<size_t>(nBytes);
    *pv = static_cast<T>(v);
    return true;
  }
  const uint8_t* m_p;
  size_t m_cb;
  size_t m_nPos = 0;
};

// ---------------------------------------------------------------------------
// Writing

void WriteVideo(CWriter* pW, const AVFrame* pVideo, eVCCC fcc) {
  const auto eFmt = static_cast<AVPixelFormat>(pVideo->format);
  const AVPixFmtDescriptor* pDesc = av_pix_fmt_desc_get(eFmt);
  const int nPlanes = av_pix_fmt_count_planes(eFmt);
  const size_t nAt = pW->BeginRecord(kTagVideo);
  pW->U32(static_cast<uint32_t>(fcc));
  pW->I32(pVideo->width);
  pW->I32(pVideo->height);
  pW->I32(pVideo->interlaced_frame);
  pW->I32(pVideo->top_field_first);
  pW->I32(pVideo->sample_aspect_ratio.num);
  pW->I32(pVideo->sample_aspect_ratio.den);
  pW->I32(pVideo->colorspace);
  pW->I32(pVideo->color_range);
  pW->U32(static_cast<uint32_t>(nPlanes));
  int arrRow[4] = {};
  int arrRows[4] = {};
  for (int k = 0; k < nPlanes; ++k) {
    const int nAv = AvPlaneOfPublicPlane(fcc, k);
    const bool bChroma = nAv == 1 || nAv == 2;
    arrRow[k] = av_image_get_linesize(eFmt, pVideo->width, nAv);
    arrRows[k] = bChroma ? AV_CEIL_RSHIFT(pVideo->height, pDesc->log2_chroma_h) : pVideo->height;
    pW->I32(arrRow[k]);
    pW->I32(arrRows[k]);
  }
  for (int k = 0; k < nPlanes; ++k) {
    const int nAv = AvPlaneOfPublicPlane(fcc, k);
    for (int y = 0; y < arrRows[k]; ++y) {
      pW->Bytes(pVideo->data[nAv] + static_cast<ptrdiff_t>(y) * pVideo->linesize[nAv], static_cast<size_t>(arrRow[k]));
    }
  }
  pW->EndRecord(nAt);
}

void WriteAudio(CWriter* pW, const AVFrame* pAudio) {
  const int nBits = BitsFromSampleFormat(static_cast<AVSampleFormat>(pAudio->format));
  const size_t nAt = pW->BeginRecord(kTagAudio);
  pW->I32(pAudio->ch_layout.nb_channels);
  pW->I32(pAudio->sample_rate);
  pW->I32(nBits);
  pW->I32(pAudio->nb_samples);
  pW->Bytes(pAudio->data[0], static_cast<size_t>(pAudio->nb_samples) *
                                 static_cast<size_t>(pAudio->ch_layout.nb_channels) * static_cast<size_t>(nBits / 8));
  pW->EndRecord(nAt);
}

HRESULT WriteObjects(CWriter* pW, const std::vector<ObjEntry>& vecObj, int nType) {
  int nLeftOut = 0;
  for (const ObjEntry& entry : vecObj) {
    ComPtr<IVCFrame> cpFrame;
    if (FAILED(entry.cpObj->QueryInterface(IidOf<IVCFrame>(), reinterpret_cast<void**>(cpFrame.AddressOf())))) {
      ++nLeftOut;
      continue;
    }
    if (t_nNesting >= kMaxNesting) {
      VC_LOG(eVCLL_Retry, "frame '%ws' nested %d deep is left out\n", entry.strName.c_str(), t_nNesting);
      continue;
    }
    DWORD cbNested = 0;
    BYTE* pNested = nullptr;
    const HRESULT hr = cpFrame->VCSave(&cbNested, &pNested, static_cast<eKFrameClone>(nType));
    if (FAILED(hr)) {
      VC_LOG(eVCLL_Error, "cpFrame->VCSave(%ws) FAILED hr=%08X\n", entry.strName.c_str(), hr);
      return hr;
    }
    const size_t nAt = pW->BeginRecord(kTagFrame);
    pW->Name(entry.strName);
    pW->U32(cbNested);
    pW->Bytes(pNested, cbNested);
    pW->EndRecord(nAt);
    CoTaskMemFree(pNested);
  }
  if (nLeftOut) VC_LOG(eVCLL_Retry, "%d attached objects are not frames and are not saved\n", nLeftOut);
  return S_OK;
}

// The records are written as laid out in memory, but field by field into
// zeroed storage: the padding between fields is never the caller's memory.
K_TIME CleanTime(const K_TIME& src) {
  K_TIME time;
  std::memset(&time, 0, sizeof(time));
  time.rtStartTime = src.rtStartTime;
  time.rtEndTime = src.rtEndTime;
  time.tcFrame = src.tcFrame;
  time.eFFlags = src.eFFlags;
  return time;
}

K_AV_PROPS CleanProps(const K_AV_PROPS& src) {
  K_AV_PROPS props;
  std::memset(&props, 0, sizeof(props));
  K_VID_PROPS& vid = props.vidProps;
  vid.eVideoFormat = src.vidProps.eVideoFormat;
  vid.fccType = src.vidProps.fccType;
  vid.nWidth = src.vidProps.nWidth;
  vid.nHeight = src.vidProps.nHeight;
  vid.nRowBytes = src.vidProps.nRowBytes;
  vid.eInterlace = src.vidProps.eInterlace;
  vid.nAspectX = src.vidProps.nAspectX;
  vid.nAspectY = src.vidProps.nAspectY;
  vid.dblRate = src.vidProps.dblRate;
  vid.eScaleType = src.vidProps.eScaleType;
  vid.eGPUFlags = src.vidProps.eGPUFlags;
  props.audProps = src.audProps;
  props.ancData = src.ancData;
  props.bLocked = src.bLocked;
  return props;
}

HRESULT Serialize(const FrameContent& content, int nType, std::vector<uint8_t>* pOut) {
  CWriter w;
  w.Bytes(kMagic, sizeof(kMagic));
  w.U16(kVersion);
  w.U16(static_cast<uint16_t>(kHeaderSize));
  w.U64(0);  // total size, patched below
  w.U32(static_cast<uint32_t>(nType));
  w.U32(0);  // record count, patched below
  w.U64(0);
  const K_TIME time = CleanTime(content.time);
  const K_AV_PROPS props = CleanProps(content.props);
  size_t nAt = w.BeginRecord(kTagTime);
  w.Bytes(&time, sizeof(time));
  w.EndRecord(nAt);
  nAt = w.BeginRecord(kTagProps);
  w.Bytes(&props, sizeof(props));
  w.EndRecord(nAt);
  if (content.pVideo && (nType & (eKFC_Video | eKFC_VideoRef))) WriteVideo(&w, content.pVideo.get(), content.fccVideo);
  if (content.pAudio && (nType & eKFC_Audio)) WriteAudio(&w, content.pAudio.get());
  if (nType & eKFC_Data) {
    for (const DataEntry& entry : content.vecData) {
      nAt = w.BeginRecord(kTagData);
      w.Name(entry.strName);
      w.U32(static_cast<uint32_t>(entry.vecData.size()));
      w.Bytes(entry.vecData.data(), entry.vecData.size());
      w.EndRecord(nAt);
    }
    for (const StrEntry& entry : content.vecStr) {
      nAt = w.BeginRecord(kTagString);
      w.Name(entry.strName);
      w.Name(entry.strValue);
      w.EndRecord(nAt);
    }
  }
  if (nType & eKFC_Obj) {
    const HRESULT hr = WriteObjects(&w, content.vecObj, nType);
    if (FAILED(hr)) return hr;
  }
  std::vector<uint8_t>& vec = w.Data();
  const size_t cbBeforeEnd = vec.size();
  const uint32_t nRecords = w.Records() + 1;
  w.Patch(8, cbBeforeEnd + kRecordHeaderSize + 4, 8);
  w.Patch(20, nRecords, 4);
  nAt = w.BeginRecord(kTagEnd);
  w.U32(Crc32(vec.data(), cbBeforeEnd));
  w.EndRecord(nAt);
  if (vec.size() > std::numeric_limits<DWORD>::max()) return kHrTooLarge;
  *pOut = std::move(vec);
  return S_OK;
}

// ---------------------------------------------------------------------------
// Reading

#define VC_CHECK(cond, what)                                                           \
  do {                                                                                 \
    if (!(cond)) {                                                                     \
      VC_LOG(eVCLL_Error, "frame bytes: %s FAILED hr=%08X\n", what, kHrCorrupt);       \
      return kHrCorrupt;                                                               \
    }                                                                                  \
  } while (0)

HRESULT ReadVideo(CReader* pR, FrameContent* pContent) {
  uint32_t uFcc = 0;
  uint32_t nPlanes = 0;
  int32_t arrField[8] = {};
  VC_CHECK(pR->U32(&uFcc), "picture record too short");
  for (int32_t& n : arrField) VC_CHECK(pR->I32(&n), "picture record too short");
  VC_CHECK(pR->U32(&nPlanes), "picture record too short");
  const int nWidth = arrField[0];
  const int nHeight = arrField[1];
  const auto fcc = static_cast<eVCCC>(uFcc);
  const AVPixelFormat eFmt = PixelFormatFromFourcc(fcc);
  VC_CHECK(eFmt != AV_PIX_FMT_NONE, "unknown pixel format");
  VC_CHECK(nWidth > 0 && nHeight > 0 && nWidth <= 65536 && nHeight <= 65536, "picture size out of range");
  VC_CHECK(static_cast<int>(nPlanes) == av_pix_fmt_count_planes(eFmt), "plane count");
  VC_CHECK(arrField[6] >= 0 && arrField[6] < AVCOL_SPC_NB && arrField[7] >= 0 && arrField[7] < AVCOL_RANGE_NB,
           "colour description");
  const AVPixFmtDescriptor* pDesc = av_pix_fmt_desc_get(eFmt);
  int arrRow[4] = {};
  int arrRows[4] = {};
  uint64_t cbPlanes = 0;
  for (uint32_t k = 0; k < nPlanes; ++k) {
    const int nAv = AvPlaneOfPublicPlane(fcc, static_cast<int>(k));
    const bool bChroma = nAv == 1 || nAv == 2;
    VC_CHECK(pR->I32(&arrRow[k]) && pR->I32(&arrRows[k]), "plane table too short");
    VC_CHECK(arrRow[k] == av_image_get_linesize(eFmt, nWidth, nAv), "plane row size");
    VC_CHECK(arrRows[k] == (bChroma ? AV_CEIL_RSHIFT(nHeight, pDesc->log2_chroma_h) : nHeight), "plane rows");
    cbPlanes += static_cast<uint64_t>(arrRow[k]) * static_cast<uint64_t>(arrRows[k]);
  }
  // Checked before any memory is taken: the sizes above come from the bytes.
  VC_CHECK(cbPlanes == pR->Left(), "picture size differs from its rows");
  AvFramePtr spVideo(AllocPublicVideo(eFmt, fcc, nWidth, nHeight, 0));
  VC_CHECK(spVideo, "no memory for the picture");
  for (uint32_t k = 0; k < nPlanes; ++k) {
    const int nAv = AvPlaneOfPublicPlane(fcc, static_cast<int>(k));
    for (int y = 0; y < arrRows[k]; ++y) {
      const uint8_t* pRow = nullptr;
      VC_CHECK(pR->Bytes(static_cast<size_t>(arrRow[k]), &pRow), "picture rows cut short");
      std::memcpy(spVideo->data[nAv] + static_cast<ptrdiff_t>(y) * spVideo->linesize[nAv], pRow,
                  static_cast<size_t>(arrRow[k]));
    }
  }
  spVideo->interlaced_frame = arrField[2] != 0;
  spVideo->top_field_first = arrField[3] != 0;
  spVideo->sample_aspect_ratio = AVRational{arrField[4], arrField[5]};
  spVideo->colorspace = static_cast<AVColorSpace>(arrField[6]);
  spVideo->color_range = static_cast<AVColorRange>(arrField[7]);
  pContent->pVideo = std::move(spVideo);
  pContent->fccVideo = fcc;
  pContent->llVideoID = NewVideoID();
  return S_OK;
}

HRESULT ReadAudio(CReader* pR, FrameContent* pContent) {
  int32_t nChannels = 0, nRate = 0, nBits = 0, nSamples = 0;
  VC_CHECK(pR->I32(&nChannels) && pR->I32(&nRate) && pR->I32(&nBits) && pR->I32(&nSamples), "audio record too short");
  VC_CHECK(nChannels > 0 && nChannels <= kMaxAudioChannels && nRate > 0 && nSamples >= 0 &&
               SampleFormatFromBits(nBits) != AV_SAMPLE_FMT_NONE,
           "audio description");
  const uint64_t cb = static_cast<uint64_t>(nSamples) * static_cast<uint64_t>(nChannels) * static_cast<uint64_t>(nBits / 8);
  VC_CHECK(cb == pR->Left(), "audio size");
  AvFramePtr spAudio;
  const HRESULT hr = AllocAudio(SampleFormatFromBits(nBits), nChannels, nRate, nSamples, &spAudio);
  if (FAILED(hr)) return hr;
  const uint8_t* p = nullptr;
  pR->Bytes(static_cast<size_t>(cb), &p);
  if (cb) std::memcpy(spAudio->data[0], p, static_cast<size_t>(cb));
  pContent->pAudio = std::move(spAudio);
  return S_OK;
}

template <class Entry>
bool HasName(const std::vector<Entry>& vec, const String& str) {
  for (const Entry& e : vec) {
    if (e.strName == str) return true;
  }
  return false;
}

HRESULT ReadFrameObject(CReader* pR, int nLoadType, FrameContent* pContent) {
  String strName;
  uint32_t cbNested = 0;
  const uint8_t* pNested = nullptr;
  VC_CHECK(pR->Name(&strName) && pR->U32(&cbNested) && pR->Bytes(cbNested, &pNested) && pR->Left() == 0,
           "attached frame record");
  VC_CHECK(!HasName(pContent->vecObj, strName), "an object name twice");
  VC_CHECK(t_nNesting < kMaxNesting, "frames nested too deep");
  ComPtr<IVCFrame> cpFrame;
  if (!CFFFrame::Create(&cpFrame)) return E_OUTOFMEMORY;
  const HRESULT hr = cpFrame->VCLoad(cbNested, const_cast<BYTE*>(pNested), static_cast<eKFrameClone>(nLoadType));
  if (FAILED(hr)) return hr;
  ComPtr<IUnknown> cpUnknown;
  cpFrame->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(cpUnknown.AddressOf()));
  pContent->vecObj.push_back(ObjEntry{std::move(strName), std::move(cpUnknown)});
  return S_OK;
}

HRESULT ReadRecord(uint32_t uTag, CReader* pR, int nLoadType, FrameContent* pContent, bool* pbTime, bool* pbProps) {
  const uint8_t* p = nullptr;
  switch (uTag) {
    case kTagTime:
      VC_CHECK(pR->Left() == sizeof(K_TIME) && !*pbTime, "time record");
      pR->Bytes(sizeof(K_TIME), &p);
      std::memcpy(&pContent->time, p, sizeof(K_TIME));
      *pbTime = true;
      return S_OK;
    case kTagProps:
      VC_CHECK(pR->Left() == sizeof(K_AV_PROPS) && !*pbProps, "properties record");
      pR->Bytes(sizeof(K_AV_PROPS), &p);
      std::memcpy(&pContent->props, p, sizeof(K_AV_PROPS));
      *pbProps = true;
      return S_OK;
    case kTagVideo:
      VC_CHECK(!pContent->pVideo, "two pictures");
      return (nLoadType & (eKFC_Video | eKFC_VideoRef)) ? ReadVideo(pR, pContent) : S_OK;
    case kTagAudio:
      VC_CHECK(!pContent->pAudio, "two audio records");
      return (nLoadType & eKFC_Audio) ? ReadAudio(pR, pContent) : S_OK;
    case kTagData: {
      if (!(nLoadType & eKFC_Data)) return S_OK;
      DataEntry entry;
      uint32_t cb = 0;
      VC_CHECK(pR->Name(&entry.strName) && pR->U32(&cb) && pR->Bytes(cb, &p) && pR->Left() == 0, "data record");
      VC_CHECK(!HasName(pContent->vecData, entry.strName), "a data name twice");
      entry.vecData.assign(p, p + cb);
      pContent->vecData.push_back(std::move(entry));
      return S_OK;
    }
    case kTagString: {
      if (!(nLoadType & eKFC_Data)) return S_OK;
      StrEntry entry;
      uint32_t nUnits = 0;
      VC_CHECK(pR->Name(&entry.strName) && pR->U32(&nUnits) && nUnits <= pR->Left() / 2 &&
                   pR->Bytes(static_cast<size_t>(nUnits) * 2, &p) && pR->Left() == 0,
               "string record");
      VC_CHECK(!HasName(pContent->vecStr, entry.strName), "a string name twice");
      entry.strValue.resize(nUnits);
      for (uint32_t i = 0; i < nUnits; ++i) entry.strValue[i] = static_cast<char16_t>(p[2 * i] | p[2 * i + 1] << 8);
      pContent->vecStr.push_back(std::move(entry));
      return S_OK;
    }
    case kTagFrame:
      return (nLoadType & eKFC_Obj) ? ReadFrameObject(pR, nLoadType, pContent) : S_OK;
    default:
      return S_OK;  // a record of a later version
  }
}

HRESULT Deserialize(const uint8_t* pData, size_t cbData, int nLoadType, FrameContent* pOut) {
  CReader r(pData, cbData);
  const uint8_t* pMagic = nullptr;
  uint16_t nVersion = 0;
  uint16_t nHeader = 0;
  uint64_t cbTotal = 0;
  uint32_t uSaved = 0;
  uint32_t nRecords = 0;
  VC_CHECK(r.Bytes(4, &pMagic) && std::memcmp(pMagic, kMagic, 4) == 0, "not a saved frame");
  VC_CHECK(r.U16(&nVersion) && r.U16(&nHeader) && r.U64(&cbTotal) && r.U32(&uSaved) && r.U32(&nRecords),
           "header cut short");
  if (nVersion != kVersion) {
    const HRESULT hr = HRESULT_FROM_WIN32(ERROR_NOT_SUPPORTED);
    VC_LOG(eVCLL_Error, "frame bytes of version %u FAILED hr=%08X\n", nVersion, hr);
    return hr;
  }
  VC_CHECK(nHeader >= kHeaderSize && nHeader <= cbData, "header size");
  VC_CHECK(cbTotal == cbData, "total size differs from the bytes given");
  VC_CHECK(cbData >= nHeader + kRecordHeaderSize + 4, "no room for the trailer");
  const size_t nTrailer = cbData - kRecordHeaderSize - 4;
  {
    CReader trailer(pData + nTrailer, kRecordHeaderSize + 4);
    uint32_t uTag = 0, uZero = 0, uCrc = 0;
    uint64_t cbPayload = 0;
    trailer.U32(&uTag);
    trailer.U32(&uZero);
    trailer.U64(&cbPayload);
    trailer.U32(&uCrc);
    VC_CHECK(uTag == kTagEnd && uZero == 0 && cbPayload == 4, "trailer missing");
    VC_CHECK(uCrc == Crc32(pData, nTrailer), "checksum mismatch");
  }
  FrameContent content;
  bool bTime = false;
  bool bProps = false;
  uint32_t nSeen = 1;  // the trailer
  CReader records(pData + nHeader, nTrailer - nHeader);
  while (records.Left() > 0) {
    uint32_t uTag = 0, uZero = 0;
    uint64_t cbPayload = 0;
    const uint8_t* pPayload = nullptr;
    VC_CHECK(records.U32(&uTag) && records.U32(&uZero) && records.U64(&cbPayload), "record header cut short");
    VC_CHECK(uZero == 0, "reserved record field set");
    VC_CHECK(cbPayload <= records.Left() && records.Bytes(static_cast<size_t>(cbPayload), &pPayload),
             "record longer than the bytes");
    CReader payload(pPayload, static_cast<size_t>(cbPayload));
    const HRESULT hr = ReadRecord(uTag, &payload, nLoadType, &content, &bTime, &bProps);
    if (FAILED(hr)) return hr;
    ++nSeen;
  }
  VC_CHECK(nSeen == nRecords, "record count");
  VC_CHECK(bTime && bProps, "time or properties missing");
  SyncVideoProps(&content);
  SyncAudioProps(&content);
  *pOut = std::move(content);
  return S_OK;
}

#undef VC_CHECK

bool CheckType(int nType, HRESULT* phr) {
  if (nType & ~kCloneKnownBits) {
    VC_LOG(eVCLL_Error, "frame part selection %08X FAILED hr=%08X\n", nType, E_INVALIDARG);
    *phr = E_INVALIDARG;
    return false;
  }
  if (nType & eKFC_ForceGPU) {
    VC_LOG(eVCLL_Error, "frame part selection %08X: frames of this module live in system memory FAILED hr=%08X\n",
           nType, E_NOTIMPL);
    *phr = E_NOTIMPL;
    return false;
  }
  return true;
}

}  // namespace

// ---------------------------------------------------------------------------

HRESULT CFFFrame::VCSave(DWORD* _pcbData, BYTE** _ppData, eKFrameClone _eSaveType) {
  VC_GUARD_BEGIN
  if (!_pcbData || !_ppData) return E_POINTER;
  *_pcbData = 0;
  *_ppData = nullptr;
  HRESULT hr = S_OK;
  const int nType = _eSaveType;
  if (!CheckType(nType, &hr)) return hr;
  // A reference is enough to read the pixels; the bytes are written outside
  // the lock (attached frames are asked for their own bytes).
  FrameContent content;
  hr = _CopyContent((nType & ~eKFC_Video) | ((nType & eKFC_Video) ? eKFC_VideoRef : 0), &content);
  if (FAILED(hr)) return hr;
  std::vector<uint8_t> vecBytes;
  {
    NestingGuard guard;
    hr = Serialize(content, nType, &vecBytes);
  }
  if (FAILED(hr)) return hr;
  auto* pOut = static_cast<BYTE*>(CoTaskMemAlloc(vecBytes.size()));
  if (!pOut) return E_OUTOFMEMORY;
  std::memcpy(pOut, vecBytes.data(), vecBytes.size());
  *_pcbData = static_cast<DWORD>(vecBytes.size());
  *_ppData = pOut;
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFFrame::VCLoad(DWORD _cbData, BYTE* _pbData, eKFrameClone _eLoadType) {
  VC_GUARD_BEGIN
  if (!_pbData) {
    VC_LOG(eVCLL_Error, "no bytes FAILED hr=%08X\n", E_POINTER);
    return E_POINTER;
  }
  HRESULT hr = S_OK;
  const int nType = _eLoadType;
  if (!CheckType(nType, &hr)) return hr;
  FrameContent content;
  {
    NestingGuard guard;
    hr = Deserialize(_pbData, _cbData, nType, &content);
  }
  if (FAILED(hr)) return hr;
  SetContent(std::move(content));
  return S_OK;
  VC_GUARD_END
}

HRESULT CFFFrame::VCSaveToStream(IStream** _ppStream, eKFrameClone _eSaveType) {
  VC_GUARD_BEGIN
  if (!_ppStream) return E_POINTER;
  *_ppStream = nullptr;
  DWORD cbData = 0;
  BYTE* pData = nullptr;
  HRESULT hr = VCSave(&cbData, &pData, _eSaveType);
  if (FAILED(hr)) return hr;
  hr = CreateMemoryStream(pData, cbData, _ppStream);
  CoTaskMemFree(pData);
  return hr;
  VC_GUARD_END
}

HRESULT CFFFrame::VCAddToStream(IStream* _pStream, eKFrameClone _eSaveType) {
  VC_GUARD_BEGIN
  if (!_pStream) {
    VC_LOG(eVCLL_Error, "no stream FAILED hr=%08X\n", E_POINTER);
    return E_POINTER;
  }
  DWORD cbData = 0;
  BYTE* pData = nullptr;
  HRESULT hr = VCSave(&cbData, &pData, _eSaveType);
  if (FAILED(hr)) return hr;
  ULONG cbWritten = 0;
  hr = _pStream->Write(pData, cbData, &cbWritten);
  CoTaskMemFree(pData);
  if (SUCCEEDED(hr) && cbWritten != cbData) hr = kStreamShort;
  if (FAILED(hr)) VC_LOG(eVCLL_Error, "pStream->Write(%lu) FAILED hr=%08X\n", static_cast<unsigned long>(cbData), hr);
  return hr;
  VC_GUARD_END
}

HRESULT CFFFrame::VCLoadFromStream(IStream* _pStream, eKFrameClone _eLoadType) {
  VC_GUARD_BEGIN
  if (!_pStream) {
    VC_LOG(eVCLL_Error, "no stream FAILED hr=%08X\n", E_POINTER);
    return E_POINTER;
  }
  // The header tells how many bytes this frame takes; what follows in the
  // stream (another frame) stays unread.
  uint8_t arrHeader[kHeaderSize] = {};
  ULONG cbRead = 0;
  HRESULT hr = _pStream->Read(arrHeader, kHeaderSize, &cbRead);
  if (FAILED(hr)) return hr;
  uint64_t cbTotal = 0;
  if (cbRead == kHeaderSize && std::memcmp(arrHeader, kMagic, 4) == 0) {
    CReader r(arrHeader + 8, 8);
    r.U64(&cbTotal);
  }
  if (cbTotal < kHeaderSize || cbTotal > std::numeric_limits<DWORD>::max()) {
    VC_LOG(eVCLL_Error, "stream holds no saved frame (%lu header bytes) FAILED hr=%08X\n",
           static_cast<unsigned long>(cbRead), HRESULT_FROM_WIN32(ERROR_INVALID_DATA));
    return HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
  }
  std::unique_ptr<uint8_t[]> spBytes(new (std::nothrow) uint8_t[cbTotal]);
  if (!spBytes) return E_OUTOFMEMORY;
  std::memcpy(spBytes.get(), arrHeader, kHeaderSize);
  const ULONG cbRest = static_cast<ULONG>(cbTotal - kHeaderSize);
  hr = _pStream->Read(spBytes.get() + kHeaderSize, cbRest, &cbRead);
  if (FAILED(hr)) return hr;
  if (cbRead != cbRest) {
    VC_LOG(eVCLL_Error, "stream ends %lu bytes into a frame of %llu FAILED hr=%08X\n",
           static_cast<unsigned long>(cbRead + kHeaderSize), static_cast<unsigned long long>(cbTotal),
           HRESULT_FROM_WIN32(ERROR_INVALID_DATA));
    return HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
  }
  return VCLoad(static_cast<DWORD>(cbTotal), spBytes.get(), _eLoadType);
  VC_GUARD_END
}

}  // namespace vc::ff
