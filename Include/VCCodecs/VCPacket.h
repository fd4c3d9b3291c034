// The compressed packet object (IVCPacket) that the splitter's queues carry,
// and the stream description value (CKStreamInfo) that packets and queue
// records keep.
//
// A packet owns its K_PACKET_INFO, K_STREAM_INFO and K_TIME and its payload.
// The payload is either a buffer of its own (CreateVCPacket copies the bytes
// in) or memory owned by someone else (CreateVCPacketOver wraps, for example,
// an FFmpeg packet without copying, and calls the owner's release function
// when the packet goes). lpPacketData/cbPacketData always describe the
// payload the packet holds: PacketInfoSet leaves them (and the side-data
// pointer and size) as they are, so no caller can point a packet at memory it
// does not own; PacketAppendData is the only way to change the payload.
//
// Every method may be called from any thread; a small lock keeps the records
// consistent. PacketStreamInfoGet hands out a fresh copy of the codec name
// (bsCodecNameOrTag) on every call, which the caller frees like any other
// output string. The other pointers handed out (lpPacketData, lpSideData,
// lpCodecData) stay the packet's: they are valid while the caller holds a
// reference and, for the payload, until the next PacketAppendData, and the
// caller must not free them.
//
// Our own code reads a packet's description without that copy through
// VCPacketStreamInfo / VCPacketMediaType below: packets made here answer the
// private IKPacketRecord, and foreign packets take the public road.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCStrings.h"

namespace vc {

// A K_STREAM_INFO that owns its codec data bytes and codec-name BSTR. Copies
// share one immutable block of storage, so copying a description (a queue
// does for every packet) costs a reference count, not an allocation. The
// record's fields read directly (stmInfo.eMediaType); lpCodecData and
// bsCodecNameOrTag point into the storage and stay valid while this object
// or any copy of it lives: never free them, never repoint them.
// Not synchronised: a value, one owner at a time.
class CKStreamInfo : public K_STREAM_INFO {
 public:
  CKStreamInfo();  // all zero, eVCMT_Empty
  // Deep copy of the record; the source's pointers are not kept.
  explicit CKStreamInfo(const K_STREAM_INFO& src);

  const K_STREAM_INFO& Get() const { return *this; }

  // Same field values, the same codec data bytes and the same codec name.
  bool SameAs(const K_STREAM_INFO& other) const;
  // A copy of src that shares prev's storage when prev describes the same
  // stream (the usual case for consecutive packets of one stream).
  static CKStreamInfo FromShared(const K_STREAM_INFO& src, const CKStreamInfo& prev);
  // Whether the two share one block of storage (false when this owns none).
  bool SharesStorageWith(const CKStreamInfo& other) const {
    return m_spStorage && m_spStorage == other.m_spStorage;
  }

 private:
  struct CStorage {
    std::vector<uint8_t> vecCodecData;
    CBstr bsName;
  };
  std::shared_ptr<const CStorage> m_spStorage;  // null when there is nothing to own
};

// Zero bytes kept after an owned payload: FFmpeg's bitstream readers may read
// up to 64 bytes past the end of a packet.
inline constexpr size_t kPacketPadding = 64;

// Releases an external payload; called once, with pContext, when the packet
// no longer needs the memory (destroyed, or the payload copied by an append).
using PFN_PACKET_PAYLOAD_RELEASE = void (*)(void* pContext);

// Creates a packet with a copy of cbData bytes at pData (none when cbData is
// 0). Any record pointer may be null: the packet then starts from a zeroed
// record (media type eVCMT_Empty, times 0). The side data that pPacketInfo
// points to, if any, is copied too. Hands out one reference.
HRESULT CreateVCPacket(const K_PACKET_INFO* pPacketInfo, const K_STREAM_INFO* pStreamInfo, const K_TIME* pTime,
                       const void* pData, LONG cbData, IVCPacket** ppPacket);

// As CreateVCPacket, but the payload is not copied: the packet reads pData
// in place and calls pfnRelease(pContext) once it no longer needs it (also
// when creation fails). The memory must stay valid and unchanged until then.
HRESULT CreateVCPacketOver(const K_PACKET_INFO* pPacketInfo, const K_STREAM_INFO* pStreamInfo,
                           const K_TIME* pTime, const void* pData, LONG cbData,
                           PFN_PACKET_PAYLOAD_RELEASE pfnRelease, void* pContext, IVCPacket** ppPacket);
// The same with a stream description shared with the caller (a reference on
// its storage, no copy): what a splitter does for every packet of a stream.
HRESULT CreateVCPacketOver(const K_PACKET_INFO* pPacketInfo, const CKStreamInfo& stream, const K_TIME* pTime,
                           const void* pData, LONG cbData, PFN_PACKET_PAYLOAD_RELEASE pfnRelease, void* pContext,
                           IVCPacket** ppPacket);

}  // namespace vc

// What this library's packets tell our own code without the public
// interface's copies: answered by QueryInterface next to IVCPacket. Not
// published, so a packet from elsewhere simply does not answer it. The
// layout is the one of this library's CKStreamInfo: every module that asks
// links the same library. Any thread.
struct IKPacketRecord : public IUnknown {
  // The description the packet was made with. It never changes; the pointer
  // is valid while the caller holds a reference to the packet.
  virtual const vc::CKStreamInfo* STDMETHODCALLTYPE StreamInfoPeek() = 0;
  // Time and info, read together under the packet's lock.
  virtual void STDMETHODCALLTYPE RecordGet(K_TIME* pTime, K_PACKET_INFO* pPacketInfo) = 0;
};
VC_DECLARE_IID(IKPacketRecord, "8C2E5A71-3B94-4D0E-A6F2-19D7C4B05E38");

namespace vc {

// The private face of one of this library's packets; null for any other.
ComPtr<IKPacketRecord> VCPacketRecordOf(IVCPacket* pPacket);
// The description of a packet's stream, the way our own code reads it: for a
// packet made by this library (in any module) a share of the packet's own
// description (no allocation); for any other packet a copy of what
// PacketStreamInfoGet hands out, whose codec name is then freed. Fails with
// the packet's code (or E_POINTER) and leaves *pStream as it was.
HRESULT VCPacketStreamInfo(IVCPacket* pPacket, CKStreamInfo* pStream);
// Only the media type (eVCMT_Empty when the packet does not tell); allocates
// nothing for our own packets.
eVCMediaType VCPacketMediaType(IVCPacket* pPacket);

}  // namespace vc
