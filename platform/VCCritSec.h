// The facade lock: recursive like the platform's critical section, so a
// facade method holding it may call another that takes it again. One per
// facade; it guards the inner-object reference, the property tree and the
// facade's small state. Never held across a call into an inner object.
#pragma once

#include <mutex>

namespace vc {

using CKCritSec = std::recursive_mutex;
using CKAutoLock = std::lock_guard<CKCritSec>;

}  // namespace vc
