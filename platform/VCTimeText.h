// The one text form of a reference time (signed 100 ns units) used wherever a
// log line or a property shows a time: "H:MM:SS.mmm" with at least two hour
// digits ("00:00:01.500", "123:04:05.006"), a leading "-" for negative times,
// and the word "UNSET" for VC_TIME_UNSET. Digits below the millisecond are
// cut off, not rounded (toward zero, so -1.0009 s reads "-00:00:01.000"):
// a time then never shows a later millisecond than it has reached.
// Pure functions; any thread.
#pragma once

#include <string>

#include "VCPlatform.h"
#include "VCStrings.h"

namespace vc {

std::string TimeText(REFERENCE_TIME rt);
// The same text as UTF-16, for "%ws" and for property values.
String TimeTextW(REFERENCE_TIME rt);

}  // namespace vc
