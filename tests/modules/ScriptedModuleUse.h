// How a test reaches the scripted test module: its script of one class
// family, and its registration in the private registry under the class
// identifiers a facade creates (so the facade's CoCreateInstance finds it).
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "TestEnvironment.h"
#include "VCStrings.h"
#include "modules/ScriptedObjects.h"

namespace vctest {

// The script of family nFamily (0: splitter, 1: decoder, 2: encoder, 3: muxer); null when the
// module does not load. The module stays loaded for the process.
inline IScript* LoadScript(int nFamily) {
  const vc::String strPath = vc::FromUtf8(ModulePathInBin("Corvane.Test.Scripted.x64"));
  HMODULE hModule = LoadLibraryW(reinterpret_cast<LPCWSTR>(strPath.c_str()));
  if (!hModule) return nullptr;
  auto pfn = reinterpret_cast<PFN_VCTestScript>(reinterpret_cast<void*>(GetProcAddress(hModule, "VCTestScript")));
  return pfn ? pfn(nFamily) : nullptr;
}

// Registers the module as the server of the class (braced identifier).
inline void RegisterScripted(const char* szClsid) {
  const std::string strModule = ModulePathInBin("Corvane.Test.Scripted.x64");
  const std::string strKey = std::string("CLSID\\") + szClsid + "\\InprocServer32";
  ASSERT_TRUE(RegWriteString(HKEY_CLASSES_ROOT, strKey, nullptr, strModule));
  ASSERT_TRUE(RegWriteString(HKEY_CLASSES_ROOT, strKey, "ThreadingModel", "Both"));
}

inline void UnregisterScripted(const char* szClsid) {
  RegRemoveTree(HKEY_CLASSES_ROOT, std::string("CLSID\\") + szClsid);
}

}  // namespace vctest
