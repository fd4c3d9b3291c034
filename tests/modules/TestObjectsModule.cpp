// Corvane.Test.Objects.x64: a sibling module for the tests. It serves one
// class (CLSID_VCTestObject) through the same object helpers and module class
// as the core module, and registers it with its own registrar script.
#include "VCCodecsCore.h"
#include "VCModule.h"
#include "VCObject.h"

#if defined(_WIN32)
#define VC_ENTRY extern "C" HRESULT STDAPICALLTYPE
#else
#define VC_ENTRY extern "C" __attribute__((visibility("default"))) HRESULT
#endif

namespace {

constexpr CLSID CLSID_VCTestObject = vc::MakeGuid("7D6F0A51-3C2B-4E8D-9A47-1B5C9E2F6A30");

// A plain object whose only job is to exist: tests check where it came from.
class CTestObject : public vc::CKObjectRoot, public IUnknown {
 public:
  HRESULT _InternalQueryInterface(REFIID riid, void** ppv) {
    return vc::QueryInterfaceTable<IUnknown>(this, riid, ppv);
  }
};

vc::CVCModule& TestModule() {
  static vc::CVCModule s_module({{&CLSID_VCTestObject, "VCTestObject", "VCTestObject Class", 1,
                                  &vc::CreateObject<CTestObject>}},
                                [](int nResource) -> std::string {
                                  if (nResource == 1)
                                    return "HKCR\r\n{\r\n\tNoRemove CLSID\r\n\t{\r\n"
                                           "\t\tForceRemove {7D6F0A51-3C2B-4E8D-9A47-1B5C9E2F6A30} = s "
                                           "'VCTestObject Class'\r\n\t\t{\r\n"
                                           "\t\t\tInprocServer32 = s '%MODULE%'\r\n\t\t}\r\n\t}\r\n}\r\n";
                                  if (nResource == vc::IDR_VCCODECSCORE) return "HKCR\r\n{\r\n}\r\n";
                                  return {};
                                },
                                false);
  return s_module;
}

}  // namespace

VC_ENTRY DllGetClassObject(REFCLSID rclsid, REFIID riid, LPVOID* ppv) {
  return TestModule().GetClassObject(rclsid, riid, ppv);
}
VC_ENTRY DllCanUnloadNow() { return TestModule().CanUnloadNow(); }
VC_ENTRY DllRegisterServer() { return TestModule().RegisterServer(); }
VC_ENTRY DllUnregisterServer() { return TestModule().UnregisterServer(); }
