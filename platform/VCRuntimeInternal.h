// Internal helpers shared by the Linux runtime's source files; not exported.
#pragma once

#include <string>

#include "VCPlatform.h"

namespace vc::rt {

std::string ExecutablePath();
std::string DirectoryOf(const std::string& path);
// Folder of libvcrt.so itself (where the build puts every module).
std::string RuntimeDirectory();
// The dynamic loader's text for the last failed load on this thread.
const std::string& LastLoadError();
HMODULE LoadModuleUtf8(const std::string& name);

}  // namespace vc::rt
