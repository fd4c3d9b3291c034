// The muxer facade: chooses the inner muxer for an output target from its
// candidate table (nablet's MPEG muxer when the format asks for it, then the
// general muxer), configures it with the facade's properties plus the call's
// own, and from then on passes the stream and packet calls through to it,
// with a log line each. It writes nothing itself.
//
// MuxerSet with an unchanged target (path compared with case, property text
// without) does nothing; a changed one closes the running inner muxer and
// installs a new one, unless "seamless_switch" is set, in which case the
// running muxer is handed the new path and switches itself. A target no
// candidate takes leaves the running muxer as it was.
//
// Threads: public calls arrive on any host thread. m_csLock guards the
// property tree and the stored target; the inner muxer sits in m_inner (its
// own leaf lock). The candidate walk and every call into an inner muxer run
// outside m_csLock, each on its own counted reference, so a MuxerClose from
// another thread only waits for the swap of the reference. Side-data calls
// go to the inner muxer the same way.
#pragma once

#include "Devices/CoXMLNode.h"
#include "Devices/KPropsImpl.h"
#include "VCCodecs/VCInnerHolder.h"
#include "VCCodecs/VCSideDataRedir.h"
#include "VCCodecsCore.h"
#include "VCCritSec.h"
#include "VCObject.h"
#include "VCStrings.h"

namespace vc {

// One entry of the muxer candidate table. A null list is absent; an entry
// with neither list takes every target, one with a list only targets that
// match it (by format or by extension).
struct MuxerCandidate {
  const OLECHAR* szFormats;
  const OLECHAR* szExtensions;
  CLSID clsid;
};

class CCoVCMuxer : public CKObjectRoot,
                   public IVCMuxer,
                   public IKPropsImpl<CCoVCMuxer>,
                   public IVCSideDataRedir<CCoVCMuxer> {
 public:
  void FinalRelease();

  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return QueryInterfaceTable<IVCMuxer, IVCProps, IVCSideData>(this, riid, ppv);
  }
  CKCritSec& _PropsLock() { return m_csLock; }
  CVCInnerHolder<IVCMuxer>& _InnerHolder() { return m_inner; }

  HRESULT STDMETHODCALLTYPE MuxerSet(BSTR _bsFilePath, BSTR _bsProps) override;
  HRESULT STDMETHODCALLTYPE MuxerStreamAdd(K_STREAM_INFO* _pStreamInfo, BSTR _bsProps, LONG* _pnStreamIdx) override;
  HRESULT STDMETHODCALLTYPE MuxerStreamInfoGet(LONG _nStreamIdx, K_STREAM_INFO* _pStreamInfo,
                                               BSTR* _pbsProps) override;
  HRESULT STDMETHODCALLTYPE MuxerPacketPut(LONG _nStreamIdx, IVCPacket* _pPacket, BSTR _bsHints) override;
  // Forgets the stored target and closes the inner muxer; S_OK when none
  // was open. The next MuxerSet starts afresh, even with the same path.
  HRESULT STDMETHODCALLTYPE MuxerClose() override;

  // The candidate walk: creates the candidates that fit the node's "format"
  // and the path's extension in table order, hands each the node's
  // properties and MuxerSet(path, node text), and keeps the first that
  // accepts. 0x80070032 when none does. Caller's thread, no lock held.
  static HRESULT CreateMuxer_I(const String& strPath, const XMLParse::CoXMLNode* _pXMLProps,
                               ComPtr<IVCMuxer>* pcpMuxer);

  // The table in order, ended by an entry whose class identifier is all zeros.
  static const MuxerCandidate* _Candidates();
  // Whether the entry takes a target of this format and extension.
  static bool _Fits(const MuxerCandidate& entry, StringView format, StringView extension);
  // The private node MuxerSet configures a candidate with and its text
  // (serialised so that a receiver merges it into its own root).
  static String _NodeText(const XMLParse::CoXMLNode& node);

  // For tests: the stored target; false when none is stored.
  bool _Target(String* pstrPath, String* pstrProps) VC_EXCLUDES(m_csLock);

 private:
  // Closes and releases a detached inner muxer outside every lock, with
  // MuxerClose's log line.
  static HRESULT _CloseDetached(ComPtr<IVCMuxer> cpVCMuxer);

  CKCritSec m_csLock;  // the property tree and the stored target
  CVCInnerHolder<IVCMuxer> m_inner;
  // The path and the property text of the last successful MuxerSet (absent
  // when the call gave none, or after MuxerClose).
  bool m_bHasPath VC_GUARDED_BY(m_csLock) = false;
  String m_strPath VC_GUARDED_BY(m_csLock);
  bool m_bHasProps VC_GUARDED_BY(m_csLock) = false;
  String m_strProps VC_GUARDED_BY(m_csLock);
};

}  // namespace vc
