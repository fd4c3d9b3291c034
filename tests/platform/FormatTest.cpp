// The printf-style formatter with the Windows conventions the log texts use,
// and the text form of reference times. Expected texts are literal: the same
// bytes must come out on Linux and on Windows.
#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>

#include "VCFormat.h"
#include "VCPlatform.h"
#include "VCTimeText.h"

namespace {

using vc::Format;

// UTF-8 bytes of the characters used below.
#define UTF8_E_ACUTE "\xC3\xA9"          // U+00E9
#define UTF8_EURO "\xE2\x82\xAC"          // U+20AC
#define UTF8_GRINNING "\xF0\x9F\x98\x80"  // U+1F600
#define UTF8_REPLACEMENT "\xEF\xBF\xBD"   // U+FFFD

TEST(FormatWideStringTest, AllWideSpellings_GiveUtf8) {
  const OLECHAR* psz = W("caf\u00E9 \u20AC \U0001F600");
  const std::string expected = "caf" UTF8_E_ACUTE " " UTF8_EURO " " UTF8_GRINNING;
  EXPECT_EQ(Format("%ws", psz), expected);
  EXPECT_EQ(Format("%ls", psz), expected);
  EXPECT_EQ(Format("%S", psz), expected);
  EXPECT_EQ(Format("%wS", psz), expected);
  EXPECT_EQ(Format("[%ws|%s]", W("a"), "b"), "[a|b]");
}

TEST(FormatWideStringTest, NullPointer_PrintsNullWord) {
  EXPECT_EQ(Format("<%ws>", static_cast<const OLECHAR*>(nullptr)), "<(null)>");
  EXPECT_EQ(Format("<%s>", static_cast<const char*>(nullptr)), "<(null)>");
  EXPECT_EQ(Format("<%8ws>", static_cast<const OLECHAR*>(nullptr)), "<  (null)>");
}

TEST(FormatWideStringTest, LoneSurrogates_BecomeReplacementCharacter) {
  const OLECHAR lone[] = {u'a', static_cast<OLECHAR>(0xD83D), u'b', static_cast<OLECHAR>(0xDE00), 0};
  EXPECT_EQ(Format("%ws", lone), "a" UTF8_REPLACEMENT "b" UTF8_REPLACEMENT);
  EXPECT_EQ(Format("%wc", 0xDC00), UTF8_REPLACEMENT);
}

TEST(FormatWideStringTest, Precision_BoundsCodeUnitsRead) {
  // Not terminated: the precision alone must stop the read.
  const OLECHAR buffer[4] = {u'a', u'b', u'c', u'd'};
  EXPECT_EQ(Format("%.*ws|", 3, buffer), "abc|");
  EXPECT_EQ(Format("%.0ws|", buffer), "|");
  // A precision that cuts a surrogate pair drops the pair rather than half of it.
  EXPECT_EQ(Format("%.2ws|", W("x\U0001F600y")), "x|");
  EXPECT_EQ(Format("%.3ws|", W("x\U0001F600y")), "x" UTF8_GRINNING "|");
}

TEST(FormatWideStringTest, Width_CountsCharactersNotBytes) {
  EXPECT_EQ(Format("[%4ws]", W("\u00E9\u20AC")), "[  " UTF8_E_ACUTE UTF8_EURO "]");
  EXPECT_EQ(Format("[%-3ws]", W("\U0001F600")), "[" UTF8_GRINNING "  ]");
  EXPECT_EQ(Format("[%-*ws]", 3, W("ab")), "[ab ]");
}

TEST(FormatNarrowStringTest, WidthAndPrecision_CountBytes) {
  EXPECT_EQ(Format("[%hs]", "x"), "[x]");
  EXPECT_EQ(Format("[%hS]", "x"), "[x]");
  EXPECT_EQ(Format("[%5s]", "ab"), "[   ab]");
  EXPECT_EQ(Format("[%-5s]", "ab"), "[ab   ]");
  EXPECT_EQ(Format("[%.2s]", "abcdef"), "[ab]");
  EXPECT_EQ(Format("[%4s]", UTF8_E_ACUTE), "[  " UTF8_E_ACUTE "]");
  const char unterminated[3] = {'x', 'y', 'z'};
  EXPECT_EQ(Format("[%.3s]", unterminated), "[xyz]");
}

TEST(FormatCharTest, NarrowAndWideCharacters) {
  EXPECT_EQ(Format("%c%c", 'o', 'k'), "ok");
  EXPECT_EQ(Format("[%3c][%-3c]", 'a', 'b'), "[  a][b  ]");
  EXPECT_EQ(Format("%wc|%lc|%C", 0xE9, 0x20AC, 'z'), UTF8_E_ACUTE "|" UTF8_EURO "|z");
  EXPECT_EQ(Format("%hc", 'q'), "q");
}

TEST(FormatIntegerTest, StatusCodes_PrintAsWindowsDoes) {
  EXPECT_EQ(Format("hr=%08X", static_cast<HRESULT>(0x800710D2u)), "hr=800710D2");
  EXPECT_EQ(Format("hr=%08X", S_FALSE), "hr=00000001");
  EXPECT_EQ(Format("hr=0x%08x", E_INVALIDARG), "hr=0x80070057");
  EXPECT_EQ(Format("cpVCSplitter->SplitterOpen(%ws) FAILED hr=%08X\n", W("C:\\media\\clip.mxf"),
                   static_cast<HRESULT>(0x80070032u)),
            "cpVCSplitter->SplitterOpen(C:\\media\\clip.mxf) FAILED hr=80070032\n");
}

TEST(FormatIntegerTest, SixtyFourBitSpellings_ReachTheExtremes) {
  EXPECT_EQ(Format("%I64d", INT64_MIN), "-9223372036854775808");
  EXPECT_EQ(Format("%I64d", INT64_MAX), "9223372036854775807");
  EXPECT_EQ(Format("%I64u", UINT64_MAX), "18446744073709551615");
  EXPECT_EQ(Format("%I64x", 0x0123456789ABCDEFull), "123456789abcdef");
  EXPECT_EQ(Format("%016I64X", 0xABCDEFull), "0000000000ABCDEF");
  EXPECT_EQ(Format("%lld|%llu", LLONG_MIN, ULLONG_MAX), "-9223372036854775808|18446744073709551615");
  EXPECT_EQ(Format("%qd", static_cast<long long>(-5)), "-5");
  // The argument after a 64-bit one must still line up.
  EXPECT_EQ(Format("%I64d %d %I64d", static_cast<LONGLONG>(-1), 7, static_cast<LONGLONG>(1) << 40),
            "-1 7 1099511627776");
}

TEST(FormatIntegerTest, SizePrefixes_TakeTheirWidth) {
  EXPECT_EQ(Format("%hd", 70000), "4464");
  EXPECT_EQ(Format("%hu", -1), "65535");
  EXPECT_EQ(Format("%hhd|%hhu", 200, 511), "-56|255");
  EXPECT_EQ(Format("%zd|%zu", static_cast<ptrdiff_t>(-3), SIZE_MAX),
            "-3|" + std::to_string(std::numeric_limits<size_t>::max()));
  EXPECT_EQ(Format("%Id|%Iu", static_cast<ptrdiff_t>(-4), static_cast<size_t>(4)), "-4|4");
  EXPECT_EQ(Format("%I32d|%I32u", -8, 0xFFFFFFFFu), "-8|4294967295");
  // "l" is 32-bit, as LONG and DWORD are.
  EXPECT_EQ(Format("%ld|%lu|%lx", static_cast<LONG>(-2), static_cast<DWORD>(0xFFFFFFFFu), static_cast<DWORD>(255)),
            "-2|4294967295|ff");
  EXPECT_EQ(Format("%d|%i|%u", INT_MIN, INT_MAX, UINT_MAX), "-2147483648|2147483647|4294967295");
}

TEST(FormatIntegerTest, FlagsWidthAndPrecision) {
  EXPECT_EQ(Format("[%5d][%-5d][%05d]", 42, 42, -42), "[   42][42   ][-0042]");
  EXPECT_EQ(Format("[%+d][% d][%+d]", 3, 3, -3), "[+3][ 3][-3]");
  EXPECT_EQ(Format("[%.5d][%8.3d][%-08d]", 42, 42, 42), "[00042][     042][42      ]");
  EXPECT_EQ(Format("[%08.3d]", 7), "[     007]");  // a precision turns the 0 flag off
  EXPECT_EQ(Format("[%.0d][%.0x]", 0, 0u), "[][]");
  EXPECT_EQ(Format("[%#x][%#X][%#o][%#x]", 255u, 255u, 8u, 0u), "[0xff][0XFF][010][0]");
  EXPECT_EQ(Format("[%#010x]", 255u), "[0x000000ff]");
  EXPECT_EQ(Format("[%o]", 8u), "[10]");
  EXPECT_EQ(Format("[%*d][%*d][%.*d]", 4, 1, -4, 2, 3, 3), "[   1][2   ][003]");
  EXPECT_EQ(Format("[%.*d]", -1, 5), "[5]");  // a negative precision counts as none
}

TEST(FormatPointerTest, SixteenUpperCaseDigits) {
  EXPECT_EQ(Format("%p", reinterpret_cast<void*>(static_cast<uintptr_t>(0x1A2B))), "0000000000001A2B");
  EXPECT_EQ(Format("%p", static_cast<void*>(nullptr)), "0000000000000000");
  EXPECT_EQ(Format("[%-18p]", static_cast<void*>(nullptr)), "[0000000000000000  ]");
}

TEST(FormatFloatTest, CommonConversions) {
  EXPECT_EQ(Format("%f", 1.5), "1.500000");
  EXPECT_EQ(Format("%.2f", 3.14159), "3.14");
  EXPECT_EQ(Format("%.0f|%.0f", 0.5, 1.5), "0|2");  // ties to even, as printf
  EXPECT_EQ(Format("%e|%E", 12345.678, 12345.678), "1.234568e+04|1.234568E+04");
  EXPECT_EQ(Format("%g|%g|%g|%g", 0.0001, 0.00001, 123456789.0, 100.0), "0.0001|1e-05|1.23457e+08|100");
  EXPECT_EQ(Format("%g|%G", 0.0, 1e-10), "0|1E-10");
  EXPECT_EQ(Format("%.3g|%.0g|%.0g", 2.0 / 3.0, 25.0, 35.0), "0.667|2e+01|4e+01");  // ties to even
  EXPECT_EQ(Format("%lf", 2.25), "2.250000");
  EXPECT_EQ(Format("%Lf", static_cast<long double>(2.5)), "2.500000");
  EXPECT_EQ(Format("%a", 1.0), "0x1p+0");
}

TEST(FormatFloatTest, FlagsWidthAndSpecialValues) {
  EXPECT_EQ(Format("[%+08.2f]", -1.5), "[-0001.50]");
  EXPECT_EQ(Format("[%+.1f][% .1f]", 2.0, 2.0), "[+2.0][ 2.0]");
  EXPECT_EQ(Format("[%-8.3f]", 1.0), "[1.000   ]");
  EXPECT_EQ(Format("[%#.0f][%#.0e][%#g]", 3.0, 3.0, 1.0), "[3.][3.e+00][1.00000]");
  EXPECT_EQ(Format("[%#g][%g]", 999999.5, 999999.5), "[1.00000e+06][1e+06]");
  EXPECT_EQ(Format("[%.1f]", -0.0), "[-0.0]");
  const double inf = std::numeric_limits<double>::infinity();
  EXPECT_EQ(Format("[%f][%5f][%05f][%F]", inf, -inf, inf, inf), "[inf][ -inf][  inf][INF]");
  EXPECT_EQ(Format("[%f]", std::numeric_limits<double>::quiet_NaN()), "[nan]");
  EXPECT_EQ(Format("%.0f", 1e20), "100000000000000000000");
  EXPECT_EQ(Format("%.3f", DBL_MAX).size(), 309u + 4u);  // every digit of the largest double
}

TEST(FormatTextTest, PercentUnknownAndTruncatedConversions) {
  EXPECT_EQ(Format("100%%"), "100%");
  EXPECT_EQ(Format("%y %d", 5), "%y 5");  // unknown: copied, no argument taken
  EXPECT_EQ(Format("tail %"), "tail %");
  EXPECT_EQ(Format("tail %-08"), "tail %-08");
  EXPECT_EQ(Format(""), "");
  EXPECT_EQ(Format("no conversions\n"), "no conversions\n");
  int nWritten = 17;
  EXPECT_EQ(Format("a%nb%d", &nWritten, 3), "ab3");
  EXPECT_EQ(nWritten, 17);  // %n writes nothing
}

TEST(FormatTextTest, AppendFormat_KeepsExistingText) {
  std::string s = "head:";
  vc::AppendFormat(s, "%d,%ws", 1, W("two"));
  vc::AppendFormat(s, "|%s", "three");
  EXPECT_EQ(s, "head:1,two|three");
}

TEST(FormatTextTest, HugeWidth_IsClampedNotAllocated) {
  const std::string s = Format("%999999999d", 1);
  EXPECT_GE(s.size(), 1000u);
  EXPECT_LE(s.size(), 1u << 17);
  EXPECT_EQ(s.back(), '1');
}

#if !defined(_WIN32)
// On Linux the C library implements the standard part of the conventions;
// any difference there is a fault of ours.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
template <typename T>
std::string LibcFormat(const std::string& strFormat, T value) {
  char buf[512];
  std::snprintf(buf, sizeof(buf), strFormat.c_str(), value);
  return buf;
}
#pragma GCC diagnostic pop

TEST(FormatAgreementTest, StandardSpecs_MatchTheCLibrary) {
  const char* flagSets[] = {"", "-", "+", " ", "#", "0", "-+", "+0", "#0", " 0", "-#"};
  const char* widths[] = {"", "1", "7", "25"};
  const char* precisions[] = {"", ".0", ".1", ".4", ".12"};
  const long long intValues[] = {0, 1, -1, 42, -99999, INT_MAX, INT_MIN};
  const long long longValues[] = {0, -1, LLONG_MAX, LLONG_MIN, 1234567890123LL};
  const double doubleValues[] = {0.0, -0.0, 1.0, -2.5, 0.1, 123.456, 1e-7, 6.02214076e23, 0.00009999, 999999.5};
  int nCompared = 0;
  for (const char* flags : flagSets) {
    for (const char* width : widths) {
      for (const char* precision : precisions) {
        const std::string prefix = std::string("%") + flags + width + precision;
        for (char conv : std::string("dioxXu")) {
          const std::string strFormat = prefix + conv;
          for (long long v : intValues) {
            const int n = static_cast<int>(v);
            ASSERT_EQ(Format(strFormat.c_str(), n), LibcFormat(strFormat, n)) << strFormat << " " << n;
            ++nCompared;
          }
          const std::string spec64 = prefix + "ll" + conv;
          for (long long v : longValues) {
            ASSERT_EQ(Format(spec64.c_str(), v), LibcFormat(spec64, v)) << spec64 << " " << v;
            ++nCompared;
          }
        }
        for (char conv : std::string("feEgG")) {
          const std::string strFormat = prefix + conv;
          for (double v : doubleValues) {
            // glibc drops the kept zeros of "%#g" when rounding carries into a
            // new digit ("1.e+06"); C asks for "1.00000e+06", checked above.
            if (v == 999999.5 && (conv | 0x20) == 'g' && strFormat.find('#') != std::string::npos) continue;
            ASSERT_EQ(Format(strFormat.c_str(), v), LibcFormat(strFormat, v)) << strFormat << " " << v;
            ++nCompared;
          }
        }
        const std::string specS = prefix + "s";
        ASSERT_EQ(Format(specS.c_str(), "text"), LibcFormat(specS, "text")) << specS;
      }
    }
  }
  EXPECT_GT(nCompared, 10000);
}
#endif

TEST(TimeTextTest, UnitsSignUnsetAndLargeHours) {
  const REFERENCE_TIME rtHms = ((1LL * 60 + 2) * 60 + 3) * 10'000'000LL + 4 * 10'000LL;
  const struct {
    REFERENCE_TIME rt;
    const char* pszText;
  } kCases[] = {
      {0, "00:00:00.000"},
      {15'000'000, "00:00:01.500"},
      {10'000, "00:00:00.001"},
      {rtHms, "01:02:03.004"},
      {599'990'000, "00:00:59.999"},
      {600'000'000, "00:01:00.000"},
      // Digits below the millisecond are cut toward zero.
      {9'999, "00:00:00.000"},
      {19'999, "00:00:00.001"},
      {-19'999, "-00:00:00.001"},
      {-10'009'999, "-00:00:01.000"},
      {-15'000'000, "-00:00:01.500"},
      {VC_TIME_UNSET, "UNSET"},
      {100LL * 3600 * 10'000'000, "100:00:00.000"},
      {INT64_MAX, "256204778:48:05.477"},
      {INT64_MIN + 1, "-256204778:48:05.477"},
  };
  for (const auto& c : kCases) EXPECT_EQ(vc::TimeText(c.rt), c.pszText) << c.rt;
}

TEST(TimeTextTest, WideForm_MatchesNarrowAndPrintsThroughWs) {
  EXPECT_EQ(vc::TimeTextW(15'000'000), vc::String(W("00:00:01.500")));
  EXPECT_EQ(vc::TimeTextW(VC_TIME_UNSET), vc::String(W("UNSET")));
  EXPECT_EQ(Format("pos=%ws", vc::TimeTextW(-36'000'000'000LL).c_str()), "pos=-01:00:00.000");
}

}  // namespace
