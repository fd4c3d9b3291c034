// Corvane.Test.NoEntry.x64: a module that loads but serves no classes (it has
// no DllGetClassObject), for the "procedure not found" path.
#if defined(_WIN32)
#define VC_EXPORT extern "C" __declspec(dllexport)
#else
#define VC_EXPORT extern "C" __attribute__((visibility("default")))
#endif

VC_EXPORT int VCTestNoEntryMarker() { return 42; }
