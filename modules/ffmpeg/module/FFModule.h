// The general media module's class table and registration.
#pragma once

#include "VCModule.h"

namespace vc::ff {

// The module's own registrar script; each class's script number is in
// res/FFClassTable.cmake with the class.
enum { IDR_FFMODULE = 101 };

CVCModule& FFmpegModule();

}  // namespace vc::ff
