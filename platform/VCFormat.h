// The printf-style formatter behind every log line and every message text the
// system builds. It follows the Windows C runtime's conventions, because the
// message texts were written for them, and gives the same UTF-8 result on
// Linux and Windows whatever the local C library does:
//
//   %ws %ls %S %wS %lS   a UTF-16 string (const OLECHAR*), written as UTF-8
//   %s %hs %hS           a narrow (UTF-8) string, copied byte for byte
//   %c %hc               a narrow character (int)
//   %wc %lc %C           a UTF-16 code unit (int), written as UTF-8
//   %d %i %u %x %X %o    int; the size prefixes hh h l I32 take 32 bits or
//                        fewer (l is 32-bit as LONG and DWORD are on Windows),
//                        ll I64 q take 64 bits, z I t j take the native size
//   %f %F %e %E %g %G %a %A  double (L: long double)
//   %p                   a pointer as 16 upper-case hex digits ("%p" of 0x1a is
//                        "000000000000001A"), as the Windows runtime prints it
//   %%                   a percent sign
// Flags "-+ #0", width and precision (both also as "*") mean what they mean
// to printf. A null string pointer prints "(null)". For a UTF-16 string the
// precision bounds the code units read (so "%.*ws" prints a buffer that is not
// terminated) and the width counts characters; for a narrow string both count
// bytes. An unknown conversion is copied through as written and consumes no
// argument; "%n" consumes its pointer and writes nothing.
//
// No printf format attribute: the compiler's checker rejects %ws and %I64d.
// Pure functions of their arguments; any thread.
#pragma once

#include <cstdarg>
#include <string>

namespace vc {

std::string FormatV(const char* pszFormat, va_list args);
std::string Format(const char* pszFormat, ...);

// Append to an existing text; used where a line is built in pieces.
void AppendFormatV(std::string& strOut, const char* pszFormat, va_list args);
void AppendFormat(std::string& strOut, const char* pszFormat, ...);

}  // namespace vc
