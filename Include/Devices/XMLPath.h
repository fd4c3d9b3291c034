// Splits a property path ("stat::video[1]::kbps") into its parts, one at a
// time and without copying: each part is a view of the name and of its
// bracketed selector. Used by CoXMLNode's path calls on the caller's thread;
// owns nothing (the path text must outlive the cursor).
#pragma once

#include <cstdint>

#include "VCStrings.h"

namespace XMLParse {

struct XMLPathPart {
  enum eKind : uint8_t {
    eKPP_Plain = 0,  // no selector
    eKPP_Index = 1,  // "[n]": n decimal digits, at most six; "[]" is 0
    eKPP_Text = 2,   // any other selector text
  };
  vc::StringView name;
  vc::StringView selector;  // without the brackets
  eKind eSelector = eKPP_Plain;
  uint32_t nIndex = 0;
};

class CXMLPath {
 public:
  static constexpr size_t kMaxIndexDigits = 6;

  explicit CXMLPath(vc::StringView path) noexcept : m_path(path) {}

  // Reads the next part. False at the end, or when the path is malformed
  // (an empty path, an empty part, a trailing "::"), which Malformed() tells.
  bool Next(XMLPathPart& part) noexcept {
    if (m_bMalformed) return false;
    if (m_nPos >= m_path.size() && !m_bPartDue) return false;
    const size_t nStart = m_nPos;
    const size_t nEnd = m_path.size();
    part.selector = {};
    part.eSelector = XMLPathPart::eKPP_Plain;
    part.nIndex = 0;
    size_t nNameEnd = nEnd;
    size_t nNext = nEnd;
    bool bSeparator = false;
    for (size_t i = nStart; i < nEnd; ++i) {
      const OLECHAR c = m_path[i];
      if (c == ':' && i + 1 < nEnd && m_path[i + 1] == ':') {
        nNameEnd = i;
        nNext = i + 2;
        bSeparator = true;
        break;
      }
      if (c != '[') continue;
      const size_t nClose = _NextClose(i + 1);
      if (nClose == kNone) continue;
      size_t nAfter;
      if (nClose + 1 == nEnd) {
        nAfter = nEnd;
      } else if (_SeparatorAt(nClose + 1)) {
        nAfter = nClose + 3;
        bSeparator = true;
      } else if (_SeparatorAt(nClose + 2)) {
        nAfter = nClose + 4;  // the one character before "::" is ignored
        bSeparator = true;
      } else {
        continue;  // ordinary characters of the name
      }
      nNameEnd = i;
      nNext = nAfter;
      part.selector = m_path.substr(i + 1, nClose - i - 1);
      _Classify(part);
      break;
    }
    part.name = m_path.substr(nStart, nNameEnd - nStart);
    m_nPos = nNext;
    m_bPartDue = bSeparator;
    if (part.name.empty() || (bSeparator && m_nPos >= nEnd)) {
      m_bMalformed = true;
      return false;
    }
    return true;
  }

  // True when the part just read was the last one.
  bool AtEnd() const noexcept { return m_nPos >= m_path.size() && !m_bPartDue; }
  bool Malformed() const noexcept { return m_bMalformed; }

 private:
  static constexpr size_t kNone = static_cast<size_t>(-1);

  bool _SeparatorAt(size_t i) const noexcept {
    return i + 1 < m_path.size() && m_path[i] == ':' && m_path[i + 1] == ':';
  }

  // The first ']' at or after nFrom. Remembered, so that a path full of '['
  // is still scanned once.
  size_t _NextClose(size_t nFrom) noexcept {
    if (m_bNoMoreClose) return kNone;
    if (m_nClose != kNone && m_nClose >= nFrom) return m_nClose;
    m_nClose = m_path.find(OLECHAR(']'), nFrom);
    if (m_nClose == vc::StringView::npos) {
      m_nClose = kNone;
      m_bNoMoreClose = true;
    }
    return m_nClose;
  }

  static void _Classify(XMLPathPart& part) noexcept {
    const vc::StringView sel = part.selector;
    if (sel.size() <= kMaxIndexDigits) {
      uint32_t n = 0;
      bool bDigits = true;
      for (const OLECHAR c : sel) {
        if (c < '0' || c > '9') {
          bDigits = false;
          break;
        }
        n = n * 10 + static_cast<uint32_t>(c - '0');
      }
      if (bDigits) {
        part.eSelector = XMLPathPart::eKPP_Index;
        part.nIndex = n;
        return;
      }
    }
    part.eSelector = XMLPathPart::eKPP_Text;
  }

  vc::StringView m_path;
  size_t m_nPos = 0;
  size_t m_nClose = kNone;
  bool m_bNoMoreClose = false;
  bool m_bPartDue = true;  // a part must follow (at the start and after "::")
  bool m_bMalformed = false;
};

}  // namespace XMLParse
