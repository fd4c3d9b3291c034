// Status codes in words: one table of every code the system answers, each
// with a short name and what it means to someone running the tool ("0x8007000D
// invalid data: not a media file it can read"). The tool prints every
// failure through it; codes not in the table still print as hex. Any thread;
// the table is constant.
#pragma once

#include <span>
#include <string>

#include "VCPlatform.h"

namespace vc {

struct VCErrorTextEntry {
  HRESULT hr;
  const char* szName;     // a few words, lower case ("file not found")
  const char* szMeaning;  // what usually lies behind it; may be empty
};

// The whole table, in no particular order; every code appears once.
std::span<const VCErrorTextEntry> ErrorTextTable();

// The entry of a code, or null when the table does not know it.
const VCErrorTextEntry* ErrorTextFind(HRESULT hr);

// "0x%08X name: meaning", "0x%08X name" when there is no meaning, and just
// "0x%08X" for a code the table does not know.
std::string ErrorText(HRESULT hr);

}  // namespace vc
