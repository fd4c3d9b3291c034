// A byte stream (IStream) over memory, for frames saved to and loaded from
// streams: Linux has no system memory stream. Growable, seekable, cloneable
// (a clone shares the bytes and has its own position). Any thread; a small
// lock per stream. No transactions: Commit does nothing, Revert and region
// locks are not supported.
#pragma once

#include <cstddef>

#include "VCPlatform.h"

namespace vc::ff {

// A new stream holding a copy of cb bytes at p (empty for cb 0), positioned
// at its start. One reference. Throws std::bad_alloc when the copy cannot be
// made (callers are guarded interface methods).
HRESULT CreateMemoryStream(const void* p, size_t cb, IStream** ppStream);

}  // namespace vc::ff
