// The core module's class table: the four facades in registration order.
#include "CoVCDecoder.h"
#include "CoVCEncoder.h"
#include "CoVCMuxer.h"
#include "CoVCSplitter.h"
#include "VCModule.h"

namespace vc {

CVCModule& CoreModule() {
  static CVCModule s_module(
      {
          {&CLSID_VCSplitter, "VCSplitter", "VCSplitter Class", IDR_VCSPLITTER, &CreateObject<CCoVCSplitter>},
          {&CLSID_VCDecoder, "VCDecoder", "VCDecoder Class", IDR_VCDECODER, &CreateObject<CCoVCDecoder>},
          {&CLSID_VCEncoder, "VCEncoder", "VCEncoder Class", IDR_VCENCODER, &CreateObject<CCoVCEncoder>},
          {&CLSID_VCMuxer, "VCMuxer", "VCMuxer Class", IDR_VCMUXER, &CreateObject<CCoVCMuxer>},
      },
      &LoadRegistryScriptResource);
  return s_module;
}

}  // namespace vc
