// The one header a host application or sibling module includes to use the
// codec core: the portable component layer, the records, enumerations,
// interfaces and identifiers generated from VCCodecsCore.idl, the side-data
// interface, and the compile-time checks of the record layout. Declarations
// only; usable from any thread.
#pragma once

#include "VCPlatform.h"
#include "VCGuid.h"
#include "VCCodecsCoreTypes.h"
#include "VCCodecsCoreLayout.h"
#include "VCSideData.h"
