// The encoder facade: chooses the inner encoder from a fixed codec table
// (NVIDIA, Intel, AMD hardware routes, then the general FFmpeg encoder),
// feeds it frames (converted to the wanted output properties through the
// frame converter, the encoder re-created when the input properties change),
// hands out its packets with the attachments of the frames they came from,
// and publishes statistics under "stat::v_encode." or "stat::a_encode.".
//
// Selection. EncodeCodecSet fills the "codec_props" node from the object's
// own properties and the configuration text (or keeps it for "reinit"),
// walks the table and keeps the first entry whose inner object accepts the
// merged configuration. In process the new encoder is made before the old
// one is closed. Out-of-process hosting is not built: "external_process" is
// honoured only in its close-first order and the encoder runs in process.
//
// Threads: one feeding thread (EncodeFramePut) and one draining thread
// (EncodePacketsGet); EncodeCodecSet and EncodeClose from any thread. Locks,
// in the order they may nest: m_csSelect (one selection and swap at a time,
// held across the calls into candidates and the close of the replaced
// encoder), then m_csLock (the property tree and the small state; never held
// across a call into an inner object), then m_csFrames (the frame queue),
// then the holder's own lock.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <string>

#include "Devices/KPropsImpl.h"
#include "KAverageTime.h"
#include "KBitrateCalculator.h"
#include "KPacketStats.h"
#include "VCCodecs/VCInnerHolder.h"
#include "VCCodecsCore.h"
#include "VCConverter.h"
#include "VCCritSec.h"
#include "VCObject.h"
#include "VCStrings.h"

namespace vc {

// One row of the codec table.
struct EncoderCodecEntry {
  eVCMediaType eMediaType;        // eVCMT_Empty ends the table
  const char* const* pszNames;    // null-terminated; null accepts any codec, or none
  const CLSID* pClsid;
  const char* szExtraConfig;      // appended to the merged configuration; may be null
  const char* szDisplayName;
};

class CCoVCEncoder : public CKObjectRoot, public IVCEncoder, public IKPropsImpl<CCoVCEncoder> {
 public:
  CCoVCEncoder();
  ~CCoVCEncoder();

  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return QueryInterfaceTable<IVCEncoder, IVCProps>(this, riid, ppv);
  }
  CKCritSec& _PropsLock() { return m_csLock; }
  CVCInnerHolder<IVCEncoder>& _InnerHolder() { return m_inner; }

  HRESULT STDMETHODCALLTYPE EncodeCodecSet(eVCMediaType _eCodecType, BSTR _bsConfigParams) override;
  HRESULT STDMETHODCALLTYPE EncodeFramePut(IVCFrame* _pFrame, K_AV_PROPS* _pAVPropsOut, IVCPacket** _ppPacket,
                                           BSTR _bsHints) override;
  HRESULT STDMETHODCALLTYPE EncodePacketsGet(IVCPacket** _ppPacket, LONG* _pnReadyPackets, LONGLONG _rtMaxWaitTime,
                                             BSTR _bsHints) override;
  HRESULT STDMETHODCALLTYPE EncodeClose() override;

  // The codec table in walk order, ended by an entry of media type 0.
  static const EncoderCodecEntry* _CodecTable();
  // "Video", "Audio", "Subtitles", "Data", else "###Err###(eVCMediaType)".
  static String _MediaTypeName(eVCMediaType eType);
  // A node's attributes (and those of its children, by path) in the
  // blank-separated name=value form that CoXMLNode::Parse reads back.
  static String _PropsText(const XMLParse::CoXMLNode& node);

  // For tests: frames waiting to be paired with packets, and whether a
  // converter was created.
  size_t _QueuedFrames() VC_EXCLUDES(m_csFrames);
  bool _HasConverter() VC_EXCLUDES(m_csLock);

 private:
  // The table walk: the first entry that accepts wins; gpu_h265 degrades to
  // gpu_h264 once. 0x80040274 when an NVIDIA-only name found its encoder
  // busy, else 0x80070032 when nothing accepted.
  HRESULT _CreateEncoder(eVCMediaType eType, ComPtr<IVCEncoder>* pcpEncoder, String* pstrDescription)
      VC_REQUIRES(m_csSelect) VC_EXCLUDES(m_csLock);
  // One entry: S_FALSE when it does not apply, S_OK with the configured
  // encoder, or the failure of its creation or configuration.
  HRESULT _InitSelectedEncoder(eVCMediaType eType, const EncoderCodecEntry& entry, ComPtr<IVCEncoder>* pcpEncoder,
                               String* pstrDescription) VC_REQUIRES(m_csSelect) VC_EXCLUDES(m_csLock);
  // The close of EncodeClose on a given encoder (the current one, or the
  // one a new encoder replaces).
  HRESULT _CloseEncoder(const ComPtr<IVCEncoder>& cpVCEncoder) VC_EXCLUDES(m_csLock, m_csFrames);
  bool _ReadRootBool(StringView name, bool bDefault) VC_EXCLUDES(m_csLock);
  void _SetStat(const String& strName, const String& strValue) VC_REQUIRES(m_csLock);
  // The per-packet statistics for prefix, updated and published.
  void _PacketStats(const std::string& strPrefix, IVCPacket* pPacket) VC_EXCLUDES(m_csLock);
  // Copies the attachments of the queued frame whose time matches the
  // packet's onto the packet and drops that frame and the older ones.
  void _PairPacket(IVCPacket* pPacket) VC_REQUIRES(m_csFrames);
  // Conversion of the input frame: S_OK with *pcpFrame and *pProps possibly
  // replaced; S_FALSE when the frame is to be skipped; or a failure.
  HRESULT _Convert(eVCMediaType eType, K_AV_PROPS* pAVPropsOut, const XMLParse::CoXMLNode& options, BSTR bsHints,
                   ComPtr<IVCFrame>* pcpFrame, K_AV_PROPS* pProps) VC_EXCLUDES(m_csLock);

  CKMutex m_csSelect VC_ACQUIRED_BEFORE(m_csLock);
  CKCritSec m_csLock VC_ACQUIRED_BEFORE(m_csFrames);
  CVCInnerHolder<IVCEncoder> m_inner;
  eVCMediaType m_eMediaType VC_GUARDED_BY(m_csLock) = eVCMT_Empty;
  K_AV_PROPS m_avPropsLast VC_GUARDED_BY(m_csLock){};
  ComPtr<IVCConverter> m_cpVCConverter VC_GUARDED_BY(m_csLock);
  std::map<std::string, std::unique_ptr<KPacketStats>> m_mapPacketStats VC_GUARDED_BY(m_csLock);
  KAverageTime m_perf;
  KBitrateCalculator m_inputRate;

  CKCritSec m_csFrames;
  std::deque<ComPtr<IVCFrame>> m_deqFrames VC_GUARDED_BY(m_csFrames);
};

}  // namespace vc
