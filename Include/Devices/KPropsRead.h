// Typed reads of property values, from a tree node (the caller holds the lock
// that guards the tree) or through an IVCProps (which locks for itself). A
// value that is absent or does not read as the type gives the caller's
// default, so settings code can read "what the user asked for, else the
// default" in one call. Pure functions; any thread.
//
// Accepted forms (blanks around the value are ignored):
//   boolean  "true"/"false", "yes"/"no", "1"/"0", in any letter case
//   integer  64-bit decimal, an optional leading '+' or '-'; nothing after it
//   double   decimal with optional fraction and exponent ("1.5", "-2e-3");
//            finite values only; nothing after it
#pragma once

#include <cstdint>

#include "CoXMLNode.h"
#include "VCCodecsCore.h"
#include "VCStrings.h"

namespace vc {

// The parsers behind the reads: false (and *pValue untouched) when the text
// is not of the type.
bool ParsePropBool(StringView text, bool* pValue);
bool ParsePropInt(StringView text, int64_t* pValue);
bool ParsePropDouble(StringView text, double* pValue);

// From the attribute at path below node.
bool ReadPropBool(const XMLParse::CoXMLNode& node, StringView path, bool bDefault);
int64_t ReadPropInt(const XMLParse::CoXMLNode& node, StringView path, int64_t llDefault);
double ReadPropDouble(const XMLParse::CoXMLNode& node, StringView path, double dblDefault);
String ReadPropText(const XMLParse::CoXMLNode& node, StringView path, StringView strDefault);

// Through PropsGet (anything but S_OK gives the default). A null pProps gives
// the default.
bool ReadPropBool(IVCProps* pProps, StringView name, bool bDefault);
int64_t ReadPropInt(IVCProps* pProps, StringView name, int64_t llDefault);
double ReadPropDouble(IVCProps* pProps, StringView name, double dblDefault);
String ReadPropText(IVCProps* pProps, StringView name, StringView strDefault);

}  // namespace vc
