// A first-in-first-out ring of slots that grows by doubling, so that a
// steady push/pop allocates nothing (a std::deque allocates a block every
// few hundred bytes pushed). The packet queues keep their records in one and
// the bit-rate meters their entries.
// Elements live only in the occupied slots: a push constructs one in place,
// a pop destroys it at once (releasing what it holds), and free slots cost
// nothing to keep. The storage shrinks back when the ring empties after
// having grown large. Not synchronised.
#pragma once

#include <cstddef>
#include <memory>
#include <utility>

namespace vc {

template <class T>
class CKRing {
 public:
  CKRing() = default;
  CKRing(const CKRing&) = delete;
  CKRing& operator=(const CKRing&) = delete;
  ~CKRing() {
    clear();
    _Free(m_pSlots);
  }

  bool empty() const { return m_nSize == 0; }
  size_t size() const { return m_nSize; }
  T& front() { return m_pSlots[m_nHead]; }
  T& back() { return m_pSlots[_Slot(m_nSize - 1)]; }
  const T& front() const { return m_pSlots[m_nHead]; }
  const T& back() const { return m_pSlots[_Slot(m_nSize - 1)]; }

  void push_back(T&& value) { emplace_back(std::move(value)); }
  template <class... Args>
  T& emplace_back(Args&&... args) {
    if (m_nSize == m_nCapacity) _Grow();
    T* pSlot = std::construct_at(m_pSlots + _Slot(m_nSize), std::forward<Args>(args)...);
    ++m_nSize;
    return *pSlot;
  }
  void pop_front() {
    std::destroy_at(m_pSlots + m_nHead);
    m_nHead = (m_nHead + 1) & (m_nCapacity - 1);
    if (--m_nSize == 0) _ShrinkEmpty();
  }
  void clear() {
    while (m_nSize > 0) pop_front();
  }
  template <class F>
  void ForEach(F fn) {
    for (size_t i = 0; i < m_nSize; ++i) fn(m_pSlots[_Slot(i)]);
  }
  size_t capacity() const { return m_nCapacity; }

  static constexpr size_t kInitialCapacity = 16;
  static constexpr size_t kKeptCapacity = 1024;  // an empty ring keeps at most this many slots

 private:
  static T* _Allocate(size_t nSlots) { return std::allocator<T>().allocate(nSlots); }
  void _Free(T* pSlots) {
    if (pSlots) std::allocator<T>().deallocate(pSlots, m_nCapacity);
  }
  size_t _Slot(size_t nIndex) const { return (m_nHead + nIndex) & (m_nCapacity - 1); }
  void _Grow() {
    const size_t nNew = m_nCapacity ? 2 * m_nCapacity : kInitialCapacity;
    T* pNew = _Allocate(nNew);
    for (size_t i = 0; i < m_nSize; ++i) {
      T* pOld = m_pSlots + _Slot(i);
      std::construct_at(pNew + i, std::move(*pOld));
      std::destroy_at(pOld);
    }
    _Free(m_pSlots);
    m_pSlots = pNew;
    m_nCapacity = nNew;
    m_nHead = 0;
  }
  void _ShrinkEmpty() {
    m_nHead = 0;
    if (m_nCapacity <= kKeptCapacity) return;
    T* pNew = _Allocate(kKeptCapacity);
    _Free(m_pSlots);
    m_pSlots = pNew;
    m_nCapacity = kKeptCapacity;
  }

  T* m_pSlots = nullptr;   // m_nCapacity slots; only the m_nSize from m_nHead on hold elements
  size_t m_nCapacity = 0;  // 0 or a power of two
  size_t m_nHead = 0;
  size_t m_nSize = 0;
};

}  // namespace vc
