#include "VCErrorText.h"

#include <cstdio>

namespace vc {

namespace {

// Codes the component headers of one platform lack are given by number.
constexpr HRESULT kStgInvalidPointer = static_cast<HRESULT>(0x80030009u);    // STG_E_INVALIDPOINTER
constexpr HRESULT kStgMediumFull = static_cast<HRESULT>(0x80030070u);        // STG_E_MEDIUMFULL
constexpr HRESULT kTypeRegistryAccess = static_cast<HRESULT>(0x8002801Cu);   // TYPE_E_REGISTRYACCESS
constexpr HRESULT kBadPathName = static_cast<HRESULT>(0x800700A1u);          // ERROR_BAD_PATHNAME
constexpr HRESULT kArithmeticOverflow = static_cast<HRESULT>(0x80070216u);   // ERROR_ARITHMETIC_OVERFLOW
constexpr HRESULT kDeviceNotAvailable = static_cast<HRESULT>(0x800710DFu);   // ERROR_DEVICE_NOT_AVAILABLE
constexpr HRESULT kEncoderBusy = static_cast<HRESULT>(0x80040274u);          // the NVIDIA encoder's own

// Written for someone who ran the tool and wants to know what to look at.
constexpr VCErrorTextEntry kTable[] = {
    {S_FALSE, "nothing done", "there was nothing to do or nothing changed"},
    // The system's own recurring codes.
    {HRESULT_FROM_WIN32(ERROR_EMPTY), "empty", "nothing there yet, or nothing open"},
    {HRESULT_FROM_WIN32(ERROR_END_OF_MEDIA), "end of media", "no more packets in this source or stream"},
    {HRESULT_FROM_WIN32(ERROR_TIMEOUT), "timeout", "a wait ran out: the source is too slow or stopped answering"},
    {HRESULT_FROM_WIN32(ERROR_INVALID_INDEX), "bad stream index", "no such stream, or it is not delivered"},
    {HRESULT_FROM_WIN32(ERROR_NOT_SUPPORTED), "not supported", "no inner object accepts this format, codec or option"},
    {HRESULT_FROM_WIN32(ERROR_OPERATION_ABORTED), "aborted", "the call was stopped before it finished"},
    {HRESULT_FROM_WIN32(ERROR_INVALID_DATA), "invalid data", "not a media file it can read"},
    {HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), "file not found", "no such file, module or path on the server"},
    {HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND), "path not found", "a folder on the way does not exist"},
    {HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND), "entry point not found", "the module lacks a function it should export"},
    {HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_MEMORY), "not enough memory", ""},
    {HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND), "module cannot load", "the module file or a library it needs is missing"},
    {HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT), "bad module format", "the file is not a module for this machine"},
    {kBadPathName, "bad path name", "a registry script names a key it cannot write"},
    {kArithmeticOverflow, "too large", "a size or count beyond what the object can hold"},
    {kDeviceNotAvailable, "device not available", "no GPU, driver or device for this hardware path"},
    {kEncoderBusy, "encoder busy", "the NVIDIA encoder cannot open another session now"},
    // Network sources.
    {HRESULT_FROM_WIN32(ERROR_CONNECTION_REFUSED), "connection refused", "nothing listens at that address and port"},
    {HRESULT_FROM_WIN32(ERROR_NETWORK_UNREACHABLE), "network unreachable", "no route to that network"},
    {HRESULT_FROM_WIN32(ERROR_HOST_UNREACHABLE), "host unreachable", "the host does not answer on the network"},
    {HRESULT_FROM_WIN32(WSAECONNRESET), "connection reset", "the other side dropped the connection"},
    {HRESULT_FROM_WIN32(ERROR_CONNECTION_ABORTED), "connection aborted", "this side gave the connection up"},
    {HRESULT_FROM_WIN32(ERROR_BAD_NET_RESP), "server error", "the server answered with an error status"},
    // The component model's usual codes.
    {E_INVALIDARG, "invalid argument", "a value the call does not accept"},
    {E_POINTER, "null pointer", "a required pointer argument was null"},
    {E_NOTIMPL, "not implemented", "this object does not offer that call"},
    {E_NOINTERFACE, "no such interface", "the object does not implement the interface asked for"},
    {E_OUTOFMEMORY, "out of memory", ""},
    {E_UNEXPECTED, "unexpected", "an internal failure; the log says more"},
    {E_FAIL, "failed", "unspecified failure; the log says more"},
    {E_ABORT, "operation aborted", ""},
    {E_ACCESSDENIED, "access denied", "no permission for the file, key or URL"},
    {E_HANDLE, "invalid handle", ""},
    {CLASS_E_NOAGGREGATION, "no aggregation", "the class cannot be created inside another object"},
    {CLASS_E_CLASSNOTAVAILABLE, "class not available", "the module does not serve this class"},
    {REGDB_E_CLASSNOTREG, "class not registered", "run 'vccodecs register', or check the manifest next to the modules"},
    {REGDB_E_READREGDB, "registry read failed", ""},
    {CO_E_NOTINITIALIZED, "not initialized", "CoInitializeEx was not called on any thread"},
    {CO_E_DLLNOTFOUND, "module not found", "the registered module file is missing"},
    {CO_E_ERRORINDLL, "bad module", "the module file could not be loaded"},
    {CO_E_CLASSSTRING, "bad class identifier", "the text is not a class identifier"},
    {RPC_E_CHANGED_MODE, "apartment mode changed", "the thread already joined another apartment kind"},
    {DISP_E_EXCEPTION, "exception", ""},
    {STG_E_INVALIDFUNCTION, "invalid function", ""},
    {kStgInvalidPointer, "invalid pointer", ""},
    {kStgMediumFull, "medium full", "the stream or disk has no room"},
    {TYPE_E_CANTLOADLIBRARY, "cannot load type library", ""},
    {kTypeRegistryAccess, "type library registry access", "the type library's registry keys cannot be written"},
};

}  // namespace

std::span<const VCErrorTextEntry> ErrorTextTable() { return kTable; }

const VCErrorTextEntry* ErrorTextFind(HRESULT hr) {
  for (const VCErrorTextEntry& entry : kTable)
    if (entry.hr == hr) return &entry;
  return nullptr;
}

std::string ErrorText(HRESULT hr) {
  char szHex[16];
  std::snprintf(szHex, sizeof(szHex), "0x%08X", static_cast<unsigned>(hr));
  std::string strText = szHex;
  if (const VCErrorTextEntry* pEntry = ErrorTextFind(hr)) {
    strText += ' ';
    strText += pEntry->szName;
    if (pEntry->szMeaning[0]) {
      strText += ": ";
      strText += pEntry->szMeaning;
    }
  }
  return strText;
}

}  // namespace vc
