// Text-form helpers shared by the node, the parser and the writer: the
// encoding that the writer applies to names' values so that DecodeEntities
// reads them back unchanged. DecodeEntities and IsBlank themselves are
// declared with the node (CoXMLNode.h). Pure functions, any thread.
#pragma once

#include "CoXMLNode.h"

namespace XMLParse {

// True when DecodeEntities would change the text (it holds '&', CR, LF or
// TAB): plain values skip the copy.
bool NeedsDecoding(StringView s) noexcept;

// True for the characters that layout whitespace is made of.
inline bool IsLayoutSpace(OLECHAR c) noexcept { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

enum eXMLValueContext {
  eXVC_Attribute,  // inside double quotes
  eXVC_Text,       // element content: blanks at either end are written as
                   // entities, so the parser does not take them for layout
};

// Appends value encoded for its context: '<', '>', '&' (and '"' in an
// attribute) as named entities, control characters as "&#xN;" (never
// "&#0N;", which reads as octal), and, when bKeepBlank, its first blank as
// "&nbsp;" so the deliberate-blank mark survives.
void AppendEncoded(String& out, StringView value, eXMLValueContext eContext, bool bKeepBlank);

// Appends an ASCII string to a wide one.
void AppendAscii(String& out, const char* psz);

}  // namespace XMLParse
