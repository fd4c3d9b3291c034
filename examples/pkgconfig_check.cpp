// The smallest host, built with pkg-config alone:
//   c++ -std=c++20 pkgconfig_check.cpp $(pkg-config --cflags --libs corvane-codecs)
// Creates each of the four classes by identifier and asks it for its
// property interface; exits 1 naming the first class that fails.
#include <cstdio>

#include "VCCodecsCore.h"
#include "VCComPtr.h"

int main() {
  if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) return 1;
  const struct {
    const char* szName;
    const CLSID* pclsid;
  } classes[] = {{"VCSplitter", &CLSID_VCSplitter},
                 {"VCDecoder", &CLSID_VCDecoder},
                 {"VCEncoder", &CLSID_VCEncoder},
                 {"VCMuxer", &CLSID_VCMuxer}};
  int nExit = 0;
  for (const auto& c : classes) {
    vc::ComPtr<IVCProps> cpProps;
    const HRESULT hr = CoCreateInstance(*c.pclsid, nullptr, CLSCTX_INPROC_SERVER, IID_IVCProps,
                                        reinterpret_cast<void**>(cpProps.AddressOf()));
    std::printf("%-10s %s (hr=0x%08X)\n", c.szName, SUCCEEDED(hr) && cpProps ? "created" : "FAILED",
                static_cast<unsigned>(hr));
    if (FAILED(hr) || !cpProps) nExit = 1;
  }
  CoUninitialize();
  return nExit;
}
