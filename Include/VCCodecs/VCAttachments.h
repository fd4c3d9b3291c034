// Named attachments that travel with a packet or a frame: blocks of bytes,
// strings and counted object references, each under a name, kept in the
// order they were first set. A name holds one kind at a time: setting a
// string under the name of a data block replaces the block.
//
// The store answers the IVCSideData calls of the object that holds it (the
// stream argument is the holder's business), so each of its HRESULT methods
// converts exceptions itself and reads names and values up to their
// terminating zero. Names handed out are fresh strings the caller frees.
// Thread-safe: one small lock.
// Views of bytes handed out stay valid until that entry is set or removed
// again, or the holder goes.
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

#include "VCComPtr.h"
#include "VCPlatform.h"
#include "VCStrings.h"

namespace vc {

class CKAttachments {
 public:
  enum class eKind { Data, Text, Object };

  // IVCSideData semantics. Count and index walk every entry in set order;
  // GetByIndex gives a data block's bytes, a string's UTF-16 code units
  // (2 bytes each, no terminator) and no bytes (0 and 0) for an object.
  HRESULT GetCount(LONG* pnCount) const;
  HRESULT GetByIndex(LONG nIndex, BSTR* pbsName, LONG* pcbData, LONGLONG* plpData) const;
  // A data block by name; E_INVALIDARG for a name that holds another kind,
  // VC_E_EMPTY (0x800710D2) for an unknown name.
  HRESULT GetData(BSTR bsName, LONG* pcbData, LONGLONG* plpData) const;
  // Copies cbData bytes at lpData (cbData 0: an empty block).
  HRESULT SetData(BSTR bsName, LONG cbData, LONGLONG lpData);
  // Removes the entry of any kind; S_FALSE when there was none.
  HRESULT Remove(BSTR bsName);
  HRESULT GetString(BSTR bsName, BSTR* pbsValue) const;
  // A null value stores an empty string.
  HRESULT SetString(BSTR bsName, BSTR bsValue);
  HRESULT GetObject(BSTR bsName, IUnknown** ppObj) const;
  // A null object removes the entry.
  HRESULT SetObject(BSTR bsName, IUnknown* pObj);

  // The kind of the entry at nIndex (for copiers); false past the end.
  bool KindAt(LONG nIndex, eKind* peKind) const;
  // Copies every entry of other into this store (objects by reference).
  HRESULT CopyFrom(const CKAttachments& other);

 private:
  struct Entry {
    String strName;
    eKind eType = eKind::Data;
    std::vector<uint8_t> vecData;  // data, or the string's code units
    ComPtr<IUnknown> cpObject;
  };
  Entry* _Find(BSTR bsName);
  const Entry* _Find(BSTR bsName) const;
  Entry& _FindOrAdd(BSTR bsName);

  mutable std::mutex m_csLock;
  std::vector<Entry> m_vecEntries;  // GUARDED_BY(m_csLock)
};

}  // namespace vc
