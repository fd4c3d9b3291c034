// Side-data exchange: per-stream blocks of bytes, strings and objects that a
// host hands to a muxer or reads from a splitter next to the packets (HDR
// metadata, captions, container tags). The splitter and muxer facades
// implement it by forwarding every slot unchanged to the same slot of their
// inner object and answer S_FALSE when the inner object has none, so the
// meaning of each slot is the inner object's; the names and arguments below
// are the ones the sibling modules implement. Called on any host thread.
//
// Not part of the type library: its slots carry no published names there,
// so the identifier below is fixed here and must never change.
#pragma once

#include "VCGuid.h"
#include "VCPlatform.h"

struct IVCSideData : public IUnknown {
  // Number of side-data entries of a stream.
  virtual HRESULT STDMETHODCALLTYPE SideDataGetCount(LONG _nStream, LONG* _pnCount) = 0;
  // The entry at _nIndex: its type name and a view of its bytes, owned by the
  // object and valid until the entry is set or removed again.
  virtual HRESULT STDMETHODCALLTYPE SideDataGetByIndex(LONG _nStream, LONG _nIndex, BSTR* _pbsType, LONG* _pcbData,
                                                       LONGLONG* _plpData) = 0;
  // A view of the bytes of the entry named _bsType (same lifetime as above).
  virtual HRESULT STDMETHODCALLTYPE SideDataGet(LONG _nStream, BSTR _bsType, LONG* _pcbData, LONGLONG* _plpData) = 0;
  // Copies _cbData bytes from the address _lpData into the entry _bsType.
  virtual HRESULT STDMETHODCALLTYPE SideDataSet(LONG _nStream, BSTR _bsType, LONG _cbData, LONGLONG _lpData) = 0;
  virtual HRESULT STDMETHODCALLTYPE SideDataRemove(LONG _nStream, BSTR _bsType) = 0;
  virtual HRESULT STDMETHODCALLTYPE SideDataStrGet(LONG _nStream, BSTR _bsType, BSTR* _pbsValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE SideDataStrSet(LONG _nStream, BSTR _bsType, BSTR _bsValue) = 0;
  // Returns one reference to the object stored under _bsType.
  virtual HRESULT STDMETHODCALLTYPE SideDataObjGet(LONG _nStream, BSTR _bsType, IUnknown** _ppObj) = 0;
  // Keeps a reference to _pObj; a null _pObj removes the entry.
  virtual HRESULT STDMETHODCALLTYPE SideDataObjSet(LONG _nStream, BSTR _bsType, IUnknown* _pObj) = 0;
};
VC_DECLARE_IID(IVCSideData, "6A1C3E52-9B7D-4F0A-8E21-5D3C7B9A1F64");
