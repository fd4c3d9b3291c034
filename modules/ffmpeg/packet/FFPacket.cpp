#include "FFPacket.h"

#include "FFClasses.h"
#include "FFCommon.h"
#include "VCCodecs/VCPacket.h"
#include "VCComPtr.h"

namespace vc::ff {

namespace {

void FreeAvPacket(void* pContext) {
  AVPacket* pPacket = static_cast<AVPacket*>(pContext);
  av_packet_free(&pPacket);
}

void FreeAvBuffer(void* pContext) {
  AVBufferRef* pBuffer = static_cast<AVBufferRef*>(pContext);
  av_buffer_unref(&pBuffer);
}

}  // namespace

HRESULT PacketFromAVPacket(AVPacket* pAvPacket, const K_PACKET_INFO& info, const CKStreamInfo& stream,
                           const K_TIME& time, IVCPacket** ppPacket) {
  if (!ppPacket) return E_POINTER;
  *ppPacket = nullptr;
  if (!pAvPacket) return E_INVALIDARG;
  // Only the payload's buffer reference travels with the packet object: no
  // second AVPacket per packet.
  const int nResult = av_packet_make_refcounted(pAvPacket);
  if (nResult < 0) {
    av_packet_unref(pAvPacket);
    return AvErrorToHr(nResult);
  }
  AVBufferRef* pBuffer = pAvPacket->buf;
  const uint8_t* pData = pAvPacket->data;
  const int cbData = pAvPacket->size;
  pAvPacket->buf = nullptr;  // the buffer is ours now, whatever happens below
  K_PACKET_INFO infoOut = info;
  infoOut.cbPacketData = cbData;
  infoOut.lpPacketData = reinterpret_cast<LONGLONG>(pData);
  // info's side data may point into pAvPacket: the packet object copies it
  // before the rest of pAvPacket goes.
  const HRESULT hr = CreateVCPacketOver(&infoOut, stream, &time, pData, cbData, &FreeAvBuffer, pBuffer, ppPacket);
  av_packet_unref(pAvPacket);
  return hr;
}

HRESULT PacketFromAVPacket(AVPacket* pAvPacket, const K_PACKET_INFO& info, const K_STREAM_INFO* pStreamInfo,
                           const K_TIME& time, IVCPacket** ppPacket) {
  if (!ppPacket) return E_POINTER;
  *ppPacket = nullptr;
  if (!pAvPacket) return E_INVALIDARG;
  AVPacket* pOwned = av_packet_alloc();
  if (!pOwned) return E_OUTOFMEMORY;
  av_packet_move_ref(pOwned, pAvPacket);
  K_PACKET_INFO infoOut = info;
  infoOut.cbPacketData = pOwned->size;
  infoOut.lpPacketData = reinterpret_cast<LONGLONG>(pOwned->data);
  // The release function runs on failure too, so pOwned never leaks.
  return CreateVCPacketOver(&infoOut, pStreamInfo, &time, pOwned->data, pOwned->size, &FreeAvPacket, pOwned,
                            ppPacket);
}

HRESULT CreateFFPacket(IUnknown* pOuter, REFIID riid, void** ppv) {
  if (!ppv) return E_POINTER;
  *ppv = nullptr;
  if (pOuter) return CLASS_E_NOAGGREGATION;
  ComPtr<IVCPacket> cpPacket;
  const HRESULT hr = CreateVCPacket(nullptr, nullptr, nullptr, nullptr, 0, cpPacket.AddressOf());
  if (FAILED(hr)) return hr;
  return cpPacket->QueryInterface(riid, ppv);
}

}  // namespace vc::ff
