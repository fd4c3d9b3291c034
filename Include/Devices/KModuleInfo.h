// Facts about the running process and about the module that holds this code
// (the core module, a sibling module, or a test executable that links the
// property store statically), as the property interface publishes them under
// its reserved names. Any thread; nothing is cached that could change.
#pragma once

#include "VCStrings.h"

namespace vc {

// Full path of the process's executable file.
String ProcessImagePath();
// The process identifier in decimal.
String ProcessIdText();
// Full path of the module file that contains this code.
String ModuleFilePath();
// The module's product (bFileVersion false) or file version as
// "major.minor.build.revision": from the version resource on Windows, from the
// version numbers the build compiled in on Linux. "0.0.0.0" when the module
// carries none.
String ModuleVersionText(bool bFileVersion);
// When this code was built: "Apr  6 2022 18:21:50" (date, a blank, time).
String ModuleBuildDate();

}  // namespace vc
