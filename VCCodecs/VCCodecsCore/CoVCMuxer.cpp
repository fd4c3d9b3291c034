#include "CoVCMuxer.h"

#include <vector>

#include "Devices/KPropsRead.h"
#include "VCAssert.h"
#include "VCCodecs/VCCandidates.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCCodecs/VCInnerClasses.h"
#include "VCCodecs/VCPropsCopy.h"
#include "VCCodecs/VCStreamText.h"
#include "VCGuard.h"
#include "VCLog.h"

#define VC_MUXER_ASSERT(cond) VC_ASSERT_AT(cond, "VCCodecs/VCCodecsCore/CoVCMuxer")

namespace vc {

namespace {

// In-process server and handler, local and remote server: a vendor muxer may
// live in a process of its own.
constexpr DWORD kMuxerClsCtx =
    CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER;

// The method MuxerClose's log line names, wherever the close happens.
constexpr char kCloseMethod[] = "HRESULT vc::CCoVCMuxer::MuxerClose()";

constexpr MuxerCandidate kCandidates[] = {
    {W("mpeg_nablet"), nullptr, CLSID_NabletMpegMuxer},
    {nullptr, nullptr, CLSID_GeneralMuxer},
    {nullptr, nullptr, GUID{}},
};

// The extension after the last dot of the last path element; empty when none.
StringView Extension(StringView path) {
  const size_t nSlash = path.find_last_of(W("/\\"));
  const size_t nDot = path.find_last_of('.');
  if (nDot == StringView::npos || (nSlash != StringView::npos && nDot < nSlash)) return {};
  return path.substr(nDot + 1);
}

// A list holds one name per entry of the table, so a list matches when the
// whole name does, case ignored. An absent list or an empty name never does.
bool ListMatches(const OLECHAR* szList, StringView name) {
  return szList && !name.empty() && StrIEquals(StringView(szList), name);
}

// An input string is absent when null or empty (the one rule for every
// input string); the stored form keeps that apart from a present value.
bool Present(BSTR bs) { return !InString(bs).empty(); }

String Text(BSTR bs) { return String(InString(bs)); }

}  // namespace

void CCoVCMuxer::FinalRelease() { MuxerClose(); }

const MuxerCandidate* CCoVCMuxer::_Candidates() { return kCandidates; }

bool CCoVCMuxer::_Fits(const MuxerCandidate& entry, StringView format, StringView extension) {
  if (!entry.szFormats && !entry.szExtensions) return true;
  return ListMatches(entry.szFormats, format) || ListMatches(entry.szExtensions, extension);
}

String CCoVCMuxer::_NodeText(const XMLParse::CoXMLNode& node) {
  // Written without the node's own name: the receiver merges the text into
  // its own root, where it reads "format" and the rest, and not into a child
  // called "muxer".
  XMLParse::XMLNodePtr spCopy = XMLParse::CoXMLNode::Create();
  node.CopyTo(spCopy.get());
  return spCopy->Serialize();
}

bool CCoVCMuxer::_Target(String* pstrPath, String* pstrProps) {
  CKAutoLock lock(m_csLock);
  if (pstrPath) *pstrPath = m_strPath;
  if (pstrProps) *pstrProps = m_strProps;
  return m_bHasPath || m_bHasProps;
}

// ---------------------------------------------------------------------------
// Choice of the inner muxer

HRESULT CCoVCMuxer::CreateMuxer_I(const String& strPath, const XMLParse::CoXMLNode* _pXMLProps,
                                  ComPtr<IVCMuxer>* pcpMuxer) {
  VC_MUXER_ASSERT(_pXMLProps);
  if (pcpMuxer) *pcpMuxer = nullptr;
  if (!_pXMLProps || !pcpMuxer) return E_POINTER;
  const String strFormat = ReadPropText(*_pXMLProps, W("format"), W(""));
  const StringView extension = Extension(strPath);
  const String strProps = _NodeText(*_pXMLProps);
  const CBstr bsPath(StringView{strPath});
  const CBstr bsProps(StringView{strProps});

  // The walk's table, in the same order as kCandidates (whose lists decide
  // which entries are tried).
  std::vector<VCCandidate> vecTable;
  std::vector<const MuxerCandidate*> vecEntries;
  for (const MuxerCandidate* pEntry = _Candidates(); !IsEqualGUID(pEntry->clsid, GUID{}); ++pEntry) {
    vecTable.push_back({pEntry->clsid, GuidToString(pEntry->clsid), eVCMT_Empty, String(), 0});
    vecEntries.push_back(pEntry);
  }
  VCCandidateWalk walk;
  walk.dwClsCtx = kMuxerClsCtx;
  walk.pProps = _pXMLProps;
  walk.fnEligible = [&](const VCCandidate& candidate) {
    for (const MuxerCandidate* pEntry : vecEntries)
      if (IsEqualGUID(pEntry->clsid, candidate.clsid)) return _Fits(*pEntry, strFormat, extension);
    return false;
  };
  walk.fnCreateFailed = [&](const VCCandidate& candidate, HRESULT) {
    VC_LOG(eVCLL_Retry, "Error create %ws muxer (format:%ws file:%ws)", candidate.strName.c_str(), strFormat.c_str(),
           strPath.c_str());
  };
  walk.fnRefused = [&](const VCCandidate& candidate, HRESULT) {
    VC_LOG(eVCLL_Retry, "Error set props'%ws' for %ws muxer (format:%ws file:%ws)", strProps.c_str(),
           candidate.strName.c_str(), strFormat.c_str(), strPath.c_str());
  };
  ComPtr<IVCMuxer> cpAccepted;
  const VCCandidateResult result = VCWalkCandidates<IVCMuxer>(
      vecTable, walk,
      [&](IVCMuxer* pVCMuxer) {
        const HRESULT hr = pVCMuxer->MuxerSet(bsPath, bsProps);
        return SUCCEEDED(hr) ? S_OK : hr;  // any success configures it
      },
      &cpAccepted);
  if (result.hr != S_OK || !cpAccepted) return VC_E_NO_CANDIDATE;
  VC_LOG(eVCLL_Progress, "Create %ws (format:%ws Param:%ws File:%ws)",
         vecTable[static_cast<size_t>(result.nIndex)].strName.c_str(), strFormat.c_str(), strProps.c_str(),
         strPath.c_str());
  *pcpMuxer = std::move(cpAccepted);
  return S_OK;
}

// ---------------------------------------------------------------------------
// Target

HRESULT CCoVCMuxer::MuxerSet(BSTR _bsFilePath, BSTR _bsProps) {
  VC_GUARD_BEGIN
  // The facade's properties with the call's own on top: the call wins.
  const XMLParse::XMLNodePtr spNode = XMLParse::CoXMLNode::Create(W("muxer"));
  VCPropsSnapshot(*this)->CopyTo(spNode.get());
  if (Present(_bsProps)) {
    const HRESULT hr = spNode->Parse(InString(_bsProps));
    if (FAILED(hr)) {
      VC_LOG(eVCLL_Error, "MuxerSet(%ws, %ws) FAILED hr=%08X: the properties do not parse", Text(_bsFilePath).c_str(),
             Text(_bsProps).c_str(), hr);
      return hr;
    }
  }
  const bool bPathPresent = Present(_bsFilePath);
  const bool bPropsPresent = Present(_bsProps);
  const String strPath = Text(_bsFilePath);
  const String strCallProps = Text(_bsProps);

  ComPtr<IVCMuxer> cpRunning;
  ComPtr<IVCMuxer> cpSameFile;
  {
    CKAutoLock lock(m_csLock);
    if (ReadPropBool(*spNode, W("seamless_switch"), false)) {
      cpRunning = m_inner.Ref();
      if (!cpRunning) {
        VC_LOG(eVCLL_Error, "MuxerSet(%ws) FAILED hr=%08X: a seamless switch needs a running muxer", strPath.c_str(),
               E_INVALIDARG);
        return E_INVALIDARG;
      }
    } else {
      // Path compared with case (file systems that tell case apart write
      // two files), property text without (it means the same thing).
      const bool bSamePath = m_bHasPath == bPathPresent && (!bPathPresent || m_strPath == strPath);
      const bool bSameProps =
          m_bHasProps == bPropsPresent && (!bPropsPresent || StrIEquals(m_strProps, strCallProps));
      if (bSamePath && bSameProps) return S_FALSE;
      // New properties for the file being written: a second muxer would
      // truncate it under the first, whose trailer would then land in the
      // new file. The running one finishes the file first.
      if (bSamePath && bPathPresent) {
        cpSameFile = m_inner.Detach();
        m_bHasPath = m_bHasProps = false;
        m_strPath.clear();
        m_strProps.clear();
      }
    }
  }
  if (cpSameFile) {
    VC_LOG(eVCLL_Detail, "MuxerSet(%ws) closes the running muxer first: the new one writes the same file",
           strPath.c_str());
    _CloseDetached(std::move(cpSameFile));
  }
  if (cpRunning) {
    // The running muxer switches its target itself; only the switch is
    // passed, and the stored target stays the one it was opened with.
    const CBstr bsPath(StringView{strPath});
    return cpRunning->MuxerSet(bsPath, CBstr(W("seamless_switch=true")));
  }

  const String strNodeText = _NodeText(*spNode);
  ComPtr<IVCMuxer> cpNew;
  const HRESULT hr = CreateMuxer_I(strPath, spNode.get(), &cpNew);
  if (FAILED(hr)) {
    VC_LOG(eVCLL_Error, "CreateMuxer_I(%ws, %ws) FAILED hr=%08X", strPath.c_str(), strNodeText.c_str(), hr);
    return hr;  // the running muxer, if any, goes on
  }
  ComPtr<IVCMuxer> cpOld;
  {
    CKAutoLock lock(m_csLock);
    cpOld = m_inner.Swap(std::move(cpNew));
    m_bHasPath = bPathPresent;
    m_strPath = strPath;
    m_bHasProps = bPropsPresent;
    m_strProps = strCallProps;
  }
  if (cpOld) _CloseDetached(std::move(cpOld));
  VC_LOG(eVCLL_Progress, "CreateMuxer_I(%ws, %ws) OK hr=%08X", strPath.c_str(), strNodeText.c_str(), S_OK);
  return S_OK;
  VC_GUARD_END
}

// ---------------------------------------------------------------------------
// Pass-through

HRESULT CCoVCMuxer::MuxerStreamAdd(K_STREAM_INFO* _pStreamInfo, BSTR _bsProps, LONG* _pnStreamIdx) {
  VC_GUARD_BEGIN
  ComPtr<IVCMuxer> cpVCMuxer = m_inner.Ref();
  if (!cpVCMuxer) {
    if (_pnStreamIdx) *_pnStreamIdx = -1;  // 0 would name a stream
    return VC_E_EMPTY;
  }
  const CBstr bsProps(InString(_bsProps));  // inner objects get a real BSTR whatever the host passed
  const HRESULT hr = cpVCMuxer->MuxerStreamAdd(_pStreamInfo, bsProps, _pnStreamIdx);
  VC_LOG(SUCCEEDED(hr) ? eVCLL_Progress : eVCLL_Error, "(%ws, %ws) = %08X", VCStreamText(_pStreamInfo).c_str(),
         Text(_bsProps).c_str(), hr);
  return hr;
  VC_GUARD_END
}

HRESULT CCoVCMuxer::MuxerStreamInfoGet(LONG _nStreamIdx, K_STREAM_INFO* _pStreamInfo, BSTR* _pbsProps) {
  VC_GUARD_BEGIN
  ClearOut(_pbsProps);
  ComPtr<IVCMuxer> cpVCMuxer = m_inner.Ref();
  if (!cpVCMuxer) return VC_E_EMPTY;
  const HRESULT hr = cpVCMuxer->MuxerStreamInfoGet(_nStreamIdx, _pStreamInfo, _pbsProps);
  if (SUCCEEDED(hr)) {
    VC_LOG(eVCLL_Progress, "(%ws, %ws) = %08X", VCStreamText(_pStreamInfo).c_str(),
           _pbsProps ? Text(*_pbsProps).c_str() : W(""), hr);
  } else {
    VC_LOG(eVCLL_Error, "(%d) = %08X", static_cast<int>(_nStreamIdx), hr);
  }
  return hr;
  VC_GUARD_END
}

HRESULT CCoVCMuxer::MuxerPacketPut(LONG _nStreamIdx, IVCPacket* _pPacket, BSTR _bsHints) {
  VC_GUARD_BEGIN
  ComPtr<IVCMuxer> cpVCMuxer = m_inner.Ref();
  if (!cpVCMuxer) return VC_E_EMPTY;
  const CBstr bsHints(InString(_bsHints));
  const HRESULT hr = cpVCMuxer->MuxerPacketPut(_nStreamIdx, _pPacket, bsHints);
  VC_LOG(SUCCEEDED(hr) ? eVCLL_Progress : eVCLL_Error, "(%d, %ws, %ws) = %08X", static_cast<int>(_nStreamIdx),
         VCPacketText(_pPacket).c_str(), Text(_bsHints).c_str(), hr);
  return hr;
  VC_GUARD_END
}

HRESULT CCoVCMuxer::MuxerClose() {
  VC_GUARD_BEGIN
  ComPtr<IVCMuxer> cpVCMuxer;
  {
    CKAutoLock lock(m_csLock);
    m_bHasPath = false;
    m_strPath.clear();
    m_bHasProps = false;
    m_strProps.clear();
    cpVCMuxer = m_inner.Detach();
  }
  if (!cpVCMuxer) return S_OK;
  return _CloseDetached(std::move(cpVCMuxer));
  VC_GUARD_END
}

HRESULT CCoVCMuxer::_CloseDetached(ComPtr<IVCMuxer> cpVCMuxer) {
  const HRESULT hr = cpVCMuxer->MuxerClose();
  // The line of MuxerClose, also when a replacement closes the old muxer.
  const int nLevel = SUCCEEDED(hr) ? eVCLL_Progress : eVCLL_Error;
  if (LogIsOn(nLevel)) LogWrite(nLevel, __FILE__, __LINE__, kCloseMethod, "() = %08X", hr);
  return hr;  // the reference goes with cpVCMuxer, outside every lock
}

}  // namespace vc
