// Hashed positions of named entries kept in an insertion-ordered vector: the
// index behind a node's attributes (names compared exactly) and behind its
// groups of same-name children (names compared without letter case). The
// owner keeps the vector; the index only maps a name's hash to positions and
// asks the owner to compare names. Below kLinearMax entries the owner scans
// its vector instead, which is faster for the few entries most nodes have.
// Not thread-safe; used under the tree owner's lock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "VCStrings.h"

namespace XMLParse::detail {

inline constexpr size_t kNotFound = static_cast<size_t>(-1);

// FNV-1a over the UTF-16 code units.
inline uint32_t HashName(vc::StringView s) noexcept {
  uint32_t h = 2166136261u;
  for (const auto c : s) {
    h = (h ^ static_cast<uint16_t>(c)) * 16777619u;
  }
  return h;
}

// The same hash over the ASCII-lower-cased units, so "Stat" and "stat" meet.
inline uint32_t HashNameNoCase(vc::StringView s) noexcept {
  uint32_t h = 2166136261u;
  for (const auto c : s) {
    h = (h ^ static_cast<uint16_t>(vc::ToLowerAscii(c))) * 16777619u;
  }
  return h;
}

// Stored names are lower-cased already, so only the query is folded.
inline bool EqualsLowered(vc::StringView query, vc::StringView lowered) noexcept {
  if (query.size() != lowered.size()) return false;
  for (size_t i = 0; i < query.size(); ++i) {
    if (vc::ToLowerAscii(query[i]) != lowered[i]) return false;
  }
  return true;
}

class CNameIndex {
 public:
  static constexpr size_t kLinearMax = 8;

  bool Active() const noexcept { return !m_vecSlots.empty(); }
  void Clear() noexcept {
    m_vecSlots.clear();
    m_nCount = 0;
  }

  // Position whose entry fEquals accepts among those with this hash.
  template <class FEquals>
  size_t Find(uint32_t nHash, FEquals fEquals) const {
    if (m_vecSlots.empty()) return kNotFound;
    const size_t nMask = m_vecSlots.size() - 1;
    for (size_t i = nHash & nMask;; i = (i + 1) & nMask) {
      const CSlot& slot = m_vecSlots[i];
      if (slot.nPosPlusOne == 0) return kNotFound;
      if (slot.nHash == nHash && fEquals(static_cast<size_t>(slot.nPosPlusOne - 1))) {
        return slot.nPosPlusOne - 1;
      }
    }
  }

  void Insert(uint32_t nHash, size_t nPos) {
    if ((m_nCount + 1) * 2 > m_vecSlots.size()) _Grow();
    _Place(nHash, static_cast<uint32_t>(nPos + 1));
    ++m_nCount;
  }

  // Rebuilds from scratch for entries 0..nCount-1; fHash(pos) gives the hash.
  template <class FHash>
  void Rebuild(size_t nCount, FHash fHash) {
    Clear();
    if (nCount <= kLinearMax) return;
    size_t nSlots = 16;
    while (nSlots < nCount * 2) nSlots *= 2;
    m_vecSlots.assign(nSlots, CSlot{});
    for (size_t i = 0; i < nCount; ++i) _Place(fHash(i), static_cast<uint32_t>(i + 1));
    m_nCount = nCount;
  }

 private:
  struct CSlot {
    uint32_t nHash = 0;
    uint32_t nPosPlusOne = 0;  // 0: empty slot
  };

  void _Place(uint32_t nHash, uint32_t nPosPlusOne) {
    const size_t nMask = m_vecSlots.size() - 1;
    size_t i = nHash & nMask;
    while (m_vecSlots[i].nPosPlusOne != 0) i = (i + 1) & nMask;
    m_vecSlots[i] = CSlot{nHash, nPosPlusOne};
  }

  void _Grow() {
    std::vector<CSlot> vecOld;
    vecOld.swap(m_vecSlots);
    m_vecSlots.assign(vecOld.empty() ? 16 : vecOld.size() * 2, CSlot{});
    for (const CSlot& slot : vecOld) {
      if (slot.nPosPlusOne != 0) _Place(slot.nHash, slot.nPosPlusOne);
    }
  }

  std::vector<CSlot> m_vecSlots;  // power-of-two size, at most half full
  size_t m_nCount = 0;
};

}  // namespace XMLParse::detail
