// Runs registrar scripts (the .rgs text the module keeps as resources) against
// the registry, in registration or removal mode. The same code serves Linux,
// where the Reg* calls go to our component runtime, and Windows, where they go
// to advapi32. Called by DllRegisterServer / DllUnregisterServer / DllInstall on
// whatever thread the registration tool uses; holds no state between runs.
//
// The script is parsed completely before anything is written, so a syntax
// error or an unknown %NAME% changes nothing. A registry call that fails during
// execution stops the run and leaves what was already written in place: the
// caller (DllInstall) runs the scripts in removal mode to clean up.
//
// Script text in brief:
//   HKCR                                    root: HKCR, HKCU, HKLM or the
//   {                                       HKEY_... long forms
//     NoRemove CLSID                        kept on removal, block processed
//     {
//       ForceRemove {GUID} = s 'Text'       whole subtree replaced on registration
//       {
//         InprocServer32 = s '%MODULE%'     default value, %NAME% replaced
//         {
//           val ThreadingModel = s 'Neutral'
//           NoRemove val Keep = d '0x10'    value kept on removal
//         }
//         Delete Obsolete                   deleted on registration
//       }
//     }
//   }
// Names are bare words or single-quoted strings ('' is a quote inside one).
// A bare name that starts with '{' runs up to its '}' ("{GUID}"); a lone '{'
// opens a block. Keywords and root names are matched without regard to case.
//
// Removal: NoRemove keys stay (their block is processed); ForceRemove keys go
// with their whole subtree; keys without a flag lose what the script wrote
// (listed values, default value, listed subkeys) and are deleted when nothing
// else is left in them, so a shared parent such as HKCU\Software, which the
// per-user rewrite introduces without a flag, survives. Delete keys are left
// alone. Keys or values that are already missing are not an error.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "VCPlatform.h"
#include "VCStrings.h"

namespace vc {

struct RegistrarOptions {
  // Rewrite HKCR roots to HKCU\Software\Classes first (RegistrarMakePerUser).
  bool bPerUser = false;
  // A kernel transaction to write under (Windows only; null for none). Used
  // when advapi32 offers the transacted key functions, otherwise ignored.
  HANDLE hTransaction = nullptr;
  // %NAME% -> value. Names are matched without regard to case and given
  // without the percent signs ("MODULE"). "%%" always stands for one '%'.
  std::vector<std::pair<std::string, String>> replacements;
};

// Parses |script| (UTF-8) and applies it: registration when |bRegister|,
// removal otherwise. Returns S_OK, DISP_E_EXCEPTION for a script error (syntax,
// unknown replacement, bad number), or HRESULT_FROM_WIN32 of the first failing
// registry call. On failure |pError| (optional) receives "line N: what went
// wrong"; on success it is cleared.
HRESULT RegistrarRun(std::string_view script, bool bRegister, const RegistrarOptions& options,
                     std::string* pError = nullptr);

// The per-user form of a script: every root "HKCR" (or "HKEY_CLASSES_ROOT")
// becomes "HKCU\r\n{\tSoftware\r\n\t{\r\n\t\tClasses" and its block gets the
// closing text "\r\n\t}\r\n}\r\n". When nothing but white space follows the
// block (the usual one-root script) the closing text is appended at the very
// end of the script; otherwise it goes right after the block so that later
// roots stay roots. Quoted strings and nested keys that happen to be named HKCR
// are not touched.
std::string RegistrarMakePerUser(std::string_view script);

}  // namespace vc
