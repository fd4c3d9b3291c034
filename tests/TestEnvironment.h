// Process-wide set-up shared by all tests: a private registry root on Linux
// (removed at exit), COM initialised on the main thread.
#pragma once

#include <string>

namespace vctest {

void PrepareProcess();
// Folder of the running test executable (where the built modules also are).
std::string BinDir();

}  // namespace vctest

#include "VCPlatform.h"

namespace vctest {

// Registry helpers over UTF-8 key paths.
bool RegKeyExists(HKEY hRoot, const std::string& strKey);
bool RegReadString(HKEY hRoot, const std::string& strKey, const char* szValue, std::string* pstrOut);
bool RegWriteString(HKEY hRoot, const std::string& strKey, const char* szValue, const std::string& strData);
void RegRemoveTree(HKEY hRoot, const std::string& strKey);

// Full path of a built module in the bin folder, e.g. "Corvane.Codecs.Core.x64".
std::string ModulePathInBin(const std::string& strBaseName);

}  // namespace vctest
