// Status codes in words: every code the system answers has a name, the text
// keeps the exact hex first (scripts grep for it), and an unknown code still
// prints as hex.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "VCCodecs/VCCodecsBase.h"
#include "VCErrorText.h"
#include "VCPlatform.h"

namespace {

// Every code that some layer returns or logs, by the name it is written with
// (grep the sources for HRESULT_FROM_WIN32, E_ and the VC_E_ names when one is
// added), plus the numbers that have no name on one of the platforms.
const HRESULT kCodesInUse[] = {
    S_FALSE,
    vc::VC_E_EMPTY,
    vc::VC_E_END_OF_MEDIA,
    vc::VC_E_TIMEOUT,
    vc::VC_E_BAD_STREAM,
    vc::VC_E_NO_CANDIDATE,
    vc::VC_E_ABORTED,
    vc::VC_E_INVALID_DATA,
    vc::VC_E_FILE_NOT_FOUND,
    vc::VC_E_CONNECTION_REFUSED,
    vc::VC_E_NETWORK_UNREACHABLE,
    vc::VC_E_HOST_UNREACHABLE,
    vc::VC_E_CONNECTION_RESET,
    vc::VC_E_CONNECTION_ABORTED,
    vc::VC_E_SERVER_ERROR,
    HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND),
    HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED),
    HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND),
    HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_MEMORY),
    HRESULT_FROM_WIN32(161),   // a registry script's bad key path
    HRESULT_FROM_WIN32(534),   // a frame too large
    HRESULT_FROM_WIN32(4319),  // no device for a hardware decoder
    static_cast<HRESULT>(0x80040274u),  // a busy NVIDIA encoder
    E_INVALIDARG,
    E_POINTER,
    E_NOTIMPL,
    E_NOINTERFACE,
    E_OUTOFMEMORY,
    E_UNEXPECTED,
    E_FAIL,
    E_ABORT,
    E_ACCESSDENIED,
    E_HANDLE,
    CLASS_E_NOAGGREGATION,
    CLASS_E_CLASSNOTAVAILABLE,
    REGDB_E_CLASSNOTREG,
    REGDB_E_READREGDB,
    CO_E_NOTINITIALIZED,
    CO_E_DLLNOTFOUND,
    CO_E_ERRORINDLL,
    CO_E_CLASSSTRING,
    RPC_E_CHANGED_MODE,
    DISP_E_EXCEPTION,
    STG_E_INVALIDFUNCTION,
    static_cast<HRESULT>(0x80030009u),  // STG_E_INVALIDPOINTER
    static_cast<HRESULT>(0x80030070u),  // STG_E_MEDIUMFULL
    TYPE_E_CANTLOADLIBRARY,
    static_cast<HRESULT>(0x8002801Cu),  // TYPE_E_REGISTRYACCESS
};

TEST(ErrorTextTest, EveryCodeInUseHasANameAndTheTableHasNoRepeats) {
  for (HRESULT hr : kCodesInUse) {
    const vc::VCErrorTextEntry* pEntry = vc::ErrorTextFind(hr);
    ASSERT_NE(pEntry, nullptr) << std::hex << static_cast<unsigned>(hr);
    EXPECT_STRNE(pEntry->szName, "") << std::hex << static_cast<unsigned>(hr);
    ASSERT_NE(pEntry->szMeaning, nullptr);
  }
  std::set<HRESULT> setSeen;
  std::set<std::string> setNames;
  for (const vc::VCErrorTextEntry& entry : vc::ErrorTextTable()) {
    EXPECT_TRUE(setSeen.insert(entry.hr).second) << "twice: " << std::hex << static_cast<unsigned>(entry.hr);
    // Two codes with one name would read as the same failure.
    EXPECT_TRUE(setNames.insert(entry.szName).second) << "name twice: " << entry.szName;
  }
}

TEST(ErrorTextTest, TextIsTheHexThenTheNameThenTheMeaning) {
  EXPECT_EQ(vc::ErrorText(vc::VC_E_INVALID_DATA), "0x8007000D invalid data: not a media file it can read");
  EXPECT_EQ(vc::ErrorText(vc::VC_E_FILE_NOT_FOUND).rfind("0x80070002 file not found: ", 0), 0u);
  EXPECT_EQ(vc::ErrorText(vc::VC_E_CONNECTION_REFUSED).rfind("0x800704C9 connection refused: ", 0), 0u);
  EXPECT_EQ(vc::ErrorText(E_OUTOFMEMORY), "0x8007000E out of memory");  // no meaning: no colon
  EXPECT_EQ(vc::ErrorText(S_FALSE).rfind("0x00000001 nothing done", 0), 0u);
}

TEST(ErrorTextTest, UnknownCodeStillPrintsItsHex) {
  EXPECT_EQ(vc::ErrorTextFind(static_cast<HRESULT>(0x8BADF00Du)), nullptr);
  EXPECT_EQ(vc::ErrorText(static_cast<HRESULT>(0x8BADF00Du)), "0x8BADF00D");
  EXPECT_EQ(vc::ErrorText(S_OK), "0x00000000");
}

}  // namespace
