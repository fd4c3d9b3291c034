// The general media module's class table and registration.
#pragma once

#include "VCModule.h"

namespace vc::ff {

// Registrar script numbers of this module (its own numbering).
enum {
  IDR_FFMODULE = 101,
  IDR_FFSPLITTER = 201,
  IDR_FFDECODER = 202,
  IDR_FFDECODER_NVIDIA = 203,
  IDR_FFDECODER_QUICKSYNC = 204,
  IDR_FFFRAME = 205,
  IDR_FFAUDIOBUFFER = 206,
  IDR_FFPACKET = 207,
};

CVCModule& FFmpegModule();

}  // namespace vc::ff
