// A bounded queue between two stages of the transcode pipeline: one stage
// pushes (and waits while the queue is full), the next pops (and waits while
// it is empty). Items are moved, never copied, so a queue of ComPtr hands
// the reference itself from thread to thread. Close() says the producer is
// done (pops drain what is left, then fail); Abort() wakes and fails both
// sides at once, for a stage that failed. Any thread.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <utility>

#include "VCCritSec.h"

namespace vctool {

template <class T>
class CBoundedQueue {
 public:
  explicit CBoundedQueue(size_t nCapacity) : m_nCapacity(nCapacity ? nCapacity : 1) {}
  CBoundedQueue(const CBoundedQueue&) = delete;
  CBoundedQueue& operator=(const CBoundedQueue&) = delete;

  // False when the queue was aborted (the item is dropped) or closed.
  bool Push(T item) VC_NO_THREAD_SAFETY_ANALYSIS {
    std::unique_lock<std::mutex> lock(m_mtx.native());
    m_cvNotFull.wait(lock, [this]() VC_NO_THREAD_SAFETY_ANALYSIS {
      return m_bAborted || m_bClosed || m_deqItems.size() < m_nCapacity;
    });
    if (m_bAborted || m_bClosed) return false;
    m_deqItems.push_back(std::move(item));
    lock.unlock();
    m_cvNotEmpty.notify_one();
    return true;
  }

  // False at the end: closed and empty, or aborted.
  bool Pop(T* pItem) VC_NO_THREAD_SAFETY_ANALYSIS {
    std::unique_lock<std::mutex> lock(m_mtx.native());
    m_cvNotEmpty.wait(lock, [this]() VC_NO_THREAD_SAFETY_ANALYSIS {
      return m_bAborted || m_bClosed || !m_deqItems.empty();
    });
    if (m_bAborted || m_deqItems.empty()) return false;
    *pItem = std::move(m_deqItems.front());
    m_deqItems.pop_front();
    lock.unlock();
    m_cvNotFull.notify_one();
    return true;
  }

  void Close() {
    {
      vc::CKMutexLock lock(m_mtx);
      m_bClosed = true;
    }
    m_cvNotEmpty.notify_all();
    m_cvNotFull.notify_all();
  }

  void Abort() {
    {
      vc::CKMutexLock lock(m_mtx);
      m_bAborted = true;
      m_deqItems.clear();
    }
    m_cvNotEmpty.notify_all();
    m_cvNotFull.notify_all();
  }

  size_t Size() const {
    vc::CKMutexLock lock(m_mtx);
    return m_deqItems.size();
  }
  size_t Capacity() const { return m_nCapacity; }

 private:
  const size_t m_nCapacity;
  mutable vc::CKMutex m_mtx;
  std::condition_variable m_cvNotFull;   // waits on m_mtx.native()
  std::condition_variable m_cvNotEmpty;  // waits on m_mtx.native()
  std::deque<T> m_deqItems VC_GUARDED_BY(m_mtx);
  bool m_bClosed VC_GUARDED_BY(m_mtx) = false;
  bool m_bAborted VC_GUARDED_BY(m_mtx) = false;
};

}  // namespace vctool
