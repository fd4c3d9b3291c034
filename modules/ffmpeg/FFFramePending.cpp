// Work in progress: the methods not written yet.
#include "FFFrameImpl.h"

namespace vc::ff {
HRESULT CFFFrame::VCAudioChannelGetBytes(LONG, BOOL, LONG*, LONGLONG*) { return E_NOTIMPL; }
HRESULT CFFFrame::VCAudioChannelsUpdate() { return E_NOTIMPL; }
HRESULT CFFFrame::VCAudioAlloc(K_AUD_PROPS*, LONG) { return E_NOTIMPL; }
HRESULT CFFFrame::VCAudioSet(K_AUD_PROPS*, LONG, LONGLONG) { return E_NOTIMPL; }
HRESULT CFFFrame::VCAudioMixDirect(LONG*, IVCFrame*, LONG*, LONG, double, double, BOOL) { return E_NOTIMPL; }
HRESULT CFFFrame::VCAudioMix(IVCFrame*, double, double, BOOL, BSTR) { return E_NOTIMPL; }
HRESULT CFFFrame::VCAudioCopyTo(BSTR, IVCFrame*) { return E_NOTIMPL; }
HRESULT CFFFrame::VCAudioSaveToFile(BSTR, BOOL) { return E_NOTIMPL; }
HRESULT CFFFrame::VCAudioLoadFromFile(BSTR, LONGLONG, LONG) { return E_NOTIMPL; }
HRESULT CFFFrame::VCAudioGain(BSTR, double, double) { return E_NOTIMPL; }
HRESULT CFFFrame::VCVideoGetHbitmap(LONGLONG*) { return E_NOTIMPL; }
HRESULT CFFFrame::VCVideoSaveToFile(BSTR) { return E_NOTIMPL; }
HRESULT CFFFrame::VCCut(LONG, RECT*, IVCFrame**) { return E_NOTIMPL; }
HRESULT CFFFrame::VCClone(IVCFrame**, eKFrameClone, eVCCC) { return E_NOTIMPL; }
HRESULT CFFFrame::VCOverlay(IUnknown*, IUnknown*, LONG, LONG, double, BSTR, BSTR) { return E_NOTIMPL; }
HRESULT CFFFrame::VCConvert(K_AV_PROPS*, IVCFrame**, LONG*, BSTR, BSTR) { return E_NOTIMPL; }
HRESULT CFFFrame::VCResize(eVCCC, LONG, LONG, LONG, IVCFrame**, BSTR, BSTR) { return E_NOTIMPL; }
HRESULT CFFFrame::VCTransition(IUnknown*, IVCFrame**, double, BSTR, BSTR, BSTR) { return E_NOTIMPL; }
HRESULT CFFFrame::VCDataGetByIndex(LONG, BSTR*, LONG*, LONGLONG*) { return E_NOTIMPL; }
HRESULT CFFFrame::VCDataGet(BSTR, LONG*, LONGLONG*) { return E_NOTIMPL; }
HRESULT CFFFrame::VCDataSet(BSTR, LONG, LONGLONG) { return E_NOTIMPL; }
HRESULT CFFFrame::VCObjGetByIndex(LONG, BSTR*, IUnknown**, BOOL) { return E_NOTIMPL; }
HRESULT CFFFrame::VCObjGet(BSTR, IUnknown**, BOOL) { return E_NOTIMPL; }
HRESULT CFFFrame::VCObjSet(BSTR, IUnknown*) { return E_NOTIMPL; }
HRESULT CFFFrame::VCStrGetByIndex(LONG, BSTR*, BSTR*) { return E_NOTIMPL; }
HRESULT CFFFrame::VCStrGet(BSTR, BSTR*) { return E_NOTIMPL; }
HRESULT CFFFrame::VCStrSet(BSTR, BSTR) { return E_NOTIMPL; }
HRESULT CFFFrame::VCSave(DWORD*, BYTE**, eKFrameClone) { return E_NOTIMPL; }
HRESULT CFFFrame::VCLoad(DWORD, BYTE*, eKFrameClone) { return E_NOTIMPL; }
HRESULT CFFFrame::VCWaitAsync() { return E_NOTIMPL; }
HRESULT CFFFrame::VCPrint(BSTR, double, VC_RECT*, eVCTextFlags, BSTR) { return E_NOTIMPL; }
HRESULT CFFFrame::VCOverlayRect(IVCFrame*, IVCFrame*, VC_RECT*, eVCOverlayFlags, double, BSTR, BSTR) { return E_NOTIMPL; }
HRESULT CFFFrame::VCSaveToStream(IStream**, eKFrameClone) { return E_NOTIMPL; }
HRESULT CFFFrame::VCAddToStream(IStream*, eKFrameClone) { return E_NOTIMPL; }
HRESULT CFFFrame::VCLoadFromStream(IStream*, eKFrameClone) { return E_NOTIMPL; }

}  // namespace vc::ff
