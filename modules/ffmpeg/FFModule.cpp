#include "FFModule.h"

#include "FFClasses.h"
#include "FFEmbeddedScripts.h"  // generated from modules/ffmpeg/res/*.rgs

namespace vc::ff {

CVCModule& FFmpegModule() {
  static CVCModule s_module(
      {
          {&CLSID_FFSplitter, "FFSplitter", "FFmpeg Splitter Class", IDR_FFSPLITTER, &CreateFFSplitter},
          {&CLSID_FFDecoder, "FFDecoder", "FFmpeg A/V Decoder Class", IDR_FFDECODER, &CreateFFDecoder},
          {&CLSID_FFDecoderNVidia, "FFDecoderNVidia", "NVidia Decoder Class", IDR_FFDECODER_NVIDIA,
           &CreateFFDecoderNVidia},
          {&CLSID_FFDecoderQuickSync, "FFDecoderQuickSync", "Intel QuickSync Decoder Class",
           IDR_FFDECODER_QUICKSYNC, &CreateFFDecoderQuickSync},
          {&CLSID_FFFrame, "FFFrame", "FFmpeg Frame Class", IDR_FFFRAME, &CreateFFFrame},
          {&CLSID_FFAudioBuffer, "FFAudioBuffer", "FFmpeg Audio Buffer Class", IDR_FFAUDIOBUFFER,
           &CreateFFAudioBuffer},
          {&CLSID_FFPacket, "FFPacket", "FFmpeg Packet Class", IDR_FFPACKET, &CreateFFPacket},
      },
      [](int nResource) -> std::string {
        for (const auto& script : kEmbeddedScripts)
          if (script.nResource == nResource) return std::string(script.text);
        return {};
      },
      false);
  return s_module;
}

}  // namespace vc::ff
