#include "FFFrameWav.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include "FFFormats.h"
#include "FFFrameChannels.h"
#include "FFFrameScale.h"
#include "VCLog.h"

namespace vc::ff {

namespace {

struct FileClose {
  void operator()(std::FILE* p) const { std::fclose(p); }
};
using FilePtr = std::unique_ptr<std::FILE, FileClose>;

const HRESULT kHrBadFile = HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
constexpr uint16_t kTagPcm = 1;
constexpr uint16_t kTagFloat = 3;
constexpr uint16_t kTagExtensible = 0xFFFE;
constexpr uint64_t kRiffMax = 0xFFFFFFFFu;

HRESULT OpenError(const std::string& strPath, bool bWrite) {
  const int nErr = errno;
  HRESULT hr = E_FAIL;
  if (nErr == ENOENT) hr = HRESULT_FROM_WIN32(bWrite ? ERROR_PATH_NOT_FOUND : ERROR_FILE_NOT_FOUND);
  else if (nErr == EACCES || nErr == EPERM || nErr == EISDIR) hr = HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);
  VC_LOG(eVCLL_Error, "open '%s' for %s FAILED (%s) hr=%08X\n", strPath.c_str(), bWrite ? "writing" : "reading",
         std::strerror(nErr), hr);
  return hr;
}

uint32_t Le32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
         static_cast<uint32_t>(p[3]) << 24;
}
uint16_t Le16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
void PutLe32(uint8_t* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}
void PutLe16(uint8_t* p, uint16_t v) {
  p[0] = static_cast<uint8_t>(v);
  p[1] = static_cast<uint8_t>(v >> 8);
}

struct WavInfo {
  int nChannels = 0;
  int nRate = 0;
  int nBits = 0;
  bool bFloat = false;
  uint64_t llDataOffset = 0;
  uint64_t cbData = 0;
  uint64_t llDataSizeField = 0;  // where the data chunk's size is written
  uint64_t llFileSize = 0;
  int BlockAlign() const { return nChannels * nBits / 8; }
};

bool ReadExact(std::FILE* pFile, void* p, size_t cb) { return std::fread(p, 1, cb, pFile) == cb; }

bool Seek(std::FILE* pFile, uint64_t llPos) {
  return llPos <= static_cast<uint64_t>(std::numeric_limits<long>::max()) &&
         std::fseek(pFile, static_cast<long>(llPos), SEEK_SET) == 0;
}

HRESULT ParseFormat(const uint8_t* p, uint32_t cb, WavInfo* pInfo) {
  if (cb < 16) return kHrBadFile;
  uint16_t uTag = Le16(p);
  if (uTag == kTagExtensible) {
    if (cb < 40) return kHrBadFile;
    uTag = Le16(p + 24);  // the sub-format GUID starts with the plain tag
  }
  pInfo->nChannels = Le16(p + 2);
  pInfo->nRate = static_cast<int>(Le32(p + 4));
  pInfo->nBits = Le16(p + 14);
  pInfo->bFloat = uTag == kTagFloat;
  const bool bKnown = (uTag == kTagPcm && (pInfo->nBits == 8 || pInfo->nBits == 16 || pInfo->nBits == 24 ||
                                           pInfo->nBits == 32)) ||
                      (uTag == kTagFloat && pInfo->nBits == 32);
  if (!bKnown || pInfo->nChannels <= 0 || pInfo->nChannels > kMaxAudioChannels || pInfo->nRate <= 0 ||
      Le16(p + 12) != pInfo->BlockAlign()) {
    return kHrBadFile;
  }
  return S_OK;
}

HRESULT ReadInfo(std::FILE* pFile, const std::string& strPath, WavInfo* pInfo) {
  if (std::fseek(pFile, 0, SEEK_END) != 0) return E_FAIL;
  const long nSize = std::ftell(pFile);
  if (nSize < 0 || !Seek(pFile, 0)) return E_FAIL;
  pInfo->llFileSize = static_cast<uint64_t>(nSize);
  uint8_t arrHead[12];
  if (!ReadExact(pFile, arrHead, sizeof(arrHead)) || std::memcmp(arrHead, "RIFF", 4) != 0 ||
      std::memcmp(arrHead + 8, "WAVE", 4) != 0) {
    VC_LOG(eVCLL_Error, "'%s' is not a WAV file FAILED hr=%08X\n", strPath.c_str(), kHrBadFile);
    return kHrBadFile;
  }
  bool bFormat = false;
  uint64_t llPos = 12;
  while (llPos + 8 <= pInfo->llFileSize) {
    uint8_t arrChunk[8];
    if (!Seek(pFile, llPos) || !ReadExact(pFile, arrChunk, sizeof(arrChunk))) break;
    uint64_t cbChunk = Le32(arrChunk + 4);
    if (std::memcmp(arrChunk, "fmt ", 4) == 0) {
      if (cbChunk > 1024) return kHrBadFile;
      std::vector<uint8_t> vecFmt(cbChunk);
      if (!ReadExact(pFile, vecFmt.data(), vecFmt.size())) return kHrBadFile;
      const HRESULT hr = ParseFormat(vecFmt.data(), static_cast<uint32_t>(cbChunk), pInfo);
      if (FAILED(hr)) {
        VC_LOG(eVCLL_Error, "'%s' has a sample format this frame cannot hold FAILED hr=%08X\n", strPath.c_str(), hr);
        return hr;
      }
      bFormat = true;
    } else if (std::memcmp(arrChunk, "data", 4) == 0) {
      if (!bFormat) break;
      pInfo->llDataSizeField = llPos + 4;
      pInfo->llDataOffset = llPos + 8;
      // Writers that never came back to fill in the size leave it too large.
      cbChunk = std::min<uint64_t>(cbChunk, pInfo->llFileSize - pInfo->llDataOffset);
      pInfo->cbData = cbChunk - cbChunk % static_cast<uint64_t>(pInfo->BlockAlign());
      return S_OK;
    }
    llPos += 8 + cbChunk + (cbChunk & 1);
  }
  VC_LOG(eVCLL_Error, "'%s' has no %s chunk FAILED hr=%08X\n", strPath.c_str(), bFormat ? "data" : "format",
         kHrBadFile);
  return kHrBadFile;
}

void MakeHeader(const WavFormat& fmt, uint32_t cbData, uint8_t* p /* 44 bytes */) {
  const uint16_t nAlign = static_cast<uint16_t>(fmt.nChannels * fmt.nBits / 8);
  std::memcpy(p, "RIFF", 4);
  PutLe32(p + 4, 36 + cbData + (cbData & 1));
  std::memcpy(p + 8, "WAVEfmt ", 8);
  PutLe32(p + 16, 16);
  PutLe16(p + 20, kTagPcm);
  PutLe16(p + 22, static_cast<uint16_t>(fmt.nChannels));
  PutLe32(p + 24, static_cast<uint32_t>(fmt.nRate));
  PutLe32(p + 28, static_cast<uint32_t>(fmt.nRate) * nAlign);
  PutLe16(p + 32, nAlign);
  PutLe16(p + 34, static_cast<uint16_t>(fmt.nBits));
  std::memcpy(p + 36, "data", 4);
  PutLe32(p + 40, cbData);
}

HRESULT Append(std::FILE* pFile, const std::string& strPath, const WavFormat& fmt, const uint8_t* pData,
               size_t cbData) {
  WavInfo info;
  HRESULT hr = ReadInfo(pFile, strPath, &info);
  if (FAILED(hr)) return hr;
  if (info.bFloat || info.nChannels != fmt.nChannels || info.nRate != fmt.nRate || info.nBits != fmt.nBits) {
    VC_LOG(eVCLL_Error, "'%s' holds %d ch %d Hz %d bits, not %d ch %d Hz %d bits FAILED hr=%08X\n", strPath.c_str(),
           info.nChannels, info.nRate, info.nBits, fmt.nChannels, fmt.nRate, fmt.nBits, E_INVALIDARG);
    return E_INVALIDARG;
  }
  if (info.llDataOffset + info.cbData != info.llFileSize) {
    VC_LOG(eVCLL_Error, "'%s' has chunks after its samples FAILED hr=%08X\n", strPath.c_str(), kHrBadFile);
    return kHrBadFile;
  }
  const uint64_t cbNew = info.cbData + cbData;
  if (info.llDataOffset + cbNew + 1 > kRiffMax) return E_INVALIDARG;
  uint8_t arrSize[4];
  if (!Seek(pFile, info.llFileSize) || std::fwrite(pData, 1, cbData, pFile) != cbData) return E_FAIL;
  if (cbNew & 1) {
    const uint8_t bPad = 0;
    if (std::fwrite(&bPad, 1, 1, pFile) != 1) return E_FAIL;
  }
  PutLe32(arrSize, static_cast<uint32_t>(cbNew));
  if (!Seek(pFile, info.llDataSizeField) || std::fwrite(arrSize, 1, 4, pFile) != 4) return E_FAIL;
  PutLe32(arrSize, static_cast<uint32_t>(info.llDataOffset - 8 + cbNew + (cbNew & 1)));
  if (!Seek(pFile, 4) || std::fwrite(arrSize, 1, 4, pFile) != 4) return E_FAIL;
  return S_OK;
}

}  // namespace

HRESULT WavWrite(const std::string& strPath, const WavFormat& fmt, const uint8_t* pData, size_t cbData,
                 bool bAppend) {
  if (SampleFormatFromBits(fmt.nBits) == AV_SAMPLE_FMT_NONE || fmt.nChannels <= 0 || fmt.nRate <= 0 ||
      cbData + 45 > kRiffMax) {
    return E_INVALIDARG;
  }
  if (bAppend) {
    FilePtr spFile(std::fopen(strPath.c_str(), "r+b"));
    if (spFile) {
      const HRESULT hr = Append(spFile.get(), strPath, fmt, pData, cbData);
      if (std::fclose(spFile.release()) != 0 && SUCCEEDED(hr)) return E_FAIL;
      return hr;
    }
    if (errno != ENOENT) return OpenError(strPath, true);
  }
  FilePtr spFile(std::fopen(strPath.c_str(), "wb"));
  if (!spFile) return OpenError(strPath, true);
  uint8_t arrHeader[44];
  MakeHeader(fmt, static_cast<uint32_t>(cbData), arrHeader);
  const uint8_t bPad = 0;
  bool bOk = std::fwrite(arrHeader, 1, sizeof(arrHeader), spFile.get()) == sizeof(arrHeader) &&
             std::fwrite(pData, 1, cbData, spFile.get()) == cbData &&
             ((cbData & 1) == 0 || std::fwrite(&bPad, 1, 1, spFile.get()) == 1);
  bOk = std::fclose(spFile.release()) == 0 && bOk;
  if (!bOk) {
    VC_LOG(eVCLL_Error, "write '%s' FAILED hr=%08X\n", strPath.c_str(), E_FAIL);
    return E_FAIL;
  }
  return S_OK;
}

HRESULT WavRead(const std::string& strPath, int64_t llOffset, int nSamples, AvFramePtr* pOut) {
  pOut->reset();
  if (llOffset < 0) return E_INVALIDARG;
  FilePtr spFile(std::fopen(strPath.c_str(), "rb"));
  if (!spFile) return OpenError(strPath, false);
  WavInfo info;
  HRESULT hr = ReadInfo(spFile.get(), strPath, &info);
  if (FAILED(hr)) return hr;
  const uint64_t nAlign = static_cast<uint64_t>(info.BlockAlign());
  const uint64_t llTotal = info.cbData / nAlign;
  if (static_cast<uint64_t>(llOffset) >= llTotal) return S_FALSE;
  uint64_t llCount = llTotal - static_cast<uint64_t>(llOffset);
  if (nSamples > 0) llCount = std::min<uint64_t>(llCount, static_cast<uint64_t>(nSamples));
  if (llCount * nAlign > static_cast<uint64_t>(INT_MAX)) {
    VC_LOG(eVCLL_Error, "'%s': %llu samples do not fit one frame FAILED hr=%08X\n", strPath.c_str(),
           static_cast<unsigned long long>(llCount), E_INVALIDARG);
    return E_INVALIDARG;
  }
  std::vector<uint8_t> vecRaw(static_cast<size_t>(llCount * nAlign));
  if (!Seek(spFile.get(), info.llDataOffset + static_cast<uint64_t>(llOffset) * nAlign) ||
      !ReadExact(spFile.get(), vecRaw.data(), vecRaw.size())) {
    VC_LOG(eVCLL_Error, "read '%s' FAILED hr=%08X\n", strPath.c_str(), kHrBadFile);
    return kHrBadFile;
  }
  const int nOutBits = info.nBits == 8 ? 8 : info.nBits == 16 ? 16 : 32;
  AvFramePtr spFrame;
  hr = AllocAudio(SampleFormatFromBits(nOutBits), info.nChannels, info.nRate, static_cast<int>(llCount), &spFrame);
  if (FAILED(hr)) return hr;
  if (info.nBits == nOutBits && !info.bFloat) {
    std::memcpy(spFrame->data[0], vecRaw.data(), vecRaw.size());
  } else {
    const size_t nValues = static_cast<size_t>(llCount) * static_cast<size_t>(info.nChannels);
    auto* pTo = reinterpret_cast<int32_t*>(spFrame->data[0]);
    for (size_t i = 0; i < nValues; ++i) {
      if (info.bFloat) {
        float f;
        std::memcpy(&f, &vecRaw[i * 4], sizeof(f));
        const double d = std::min(std::max(static_cast<double>(f), -1.0), 1.0) * 2147483648.0;
        pTo[i] = static_cast<int32_t>(std::min(d, 2147483647.0));
      } else {  // 24-bit little-endian into the top of 32
        const uint8_t* p = &vecRaw[i * 3];
        pTo[i] = static_cast<int32_t>(static_cast<uint32_t>(p[0]) << 8 | static_cast<uint32_t>(p[1]) << 16 |
                                      static_cast<uint32_t>(p[2]) << 24);
      }
    }
  }
  *pOut = std::move(spFrame);
  return S_OK;
}

}  // namespace vc::ff
