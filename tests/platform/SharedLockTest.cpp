// The reader/writer lock and its scoped holders: readers side by side, a
// writer alone, and every holder lets go at the end of its scope. The
// Windows build checks the slim reader/writer lock under Wine, Linux the
// std::shared_mutex underneath.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "VCSharedLock.h"

namespace {

using vc::CKReadLock;
using vc::CKSharedLock;
using vc::CKWriteLock;

// Tries from another thread, as the lock's owner would see a competitor.
bool TryExclusiveElsewhere(CKSharedLock& lock) {
  bool bGot = false;
  std::thread([&] {
    if (lock.try_lock()) {
      bGot = true;
      lock.unlock();
    }
  }).join();
  return bGot;
}

bool TrySharedElsewhere(CKSharedLock& lock) {
  bool bGot = false;
  std::thread([&] {
    if (lock.try_lock_shared()) {
      bGot = true;
      lock.unlock_shared();
    }
  }).join();
  return bGot;
}

TEST(SharedLock, ReadersShareAndKeepWritersOut) {
  CKSharedLock lock;
  {
    CKReadLock read(lock);
    EXPECT_TRUE(TrySharedElsewhere(lock));
    EXPECT_FALSE(TryExclusiveElsewhere(lock));
  }
  // Released at the end of the scope.
  EXPECT_TRUE(TryExclusiveElsewhere(lock));
}

TEST(SharedLock, WriterKeepsEveryoneOut) {
  CKSharedLock lock;
  {
    CKWriteLock write(lock);
    EXPECT_FALSE(TrySharedElsewhere(lock));
    EXPECT_FALSE(TryExclusiveElsewhere(lock));
  }
  EXPECT_TRUE(TrySharedElsewhere(lock));
  EXPECT_TRUE(TryExclusiveElsewhere(lock));
}

// Writers that interleave with readers lose no update, and no reader ever
// sees a write half done (the two counters move together under the lock).
TEST(SharedLock, WritersExcludeReadersUnderLoad) {
  CKSharedLock lock;
  long nFirst = 0;
  long nSecond = 0;
  std::atomic<bool> bTorn{false};
  constexpr int kWriters = 2;
  constexpr int kWrites = 20000;
  std::vector<std::thread> threads;
  for (int w = 0; w < kWriters; ++w) {
    threads.emplace_back([&] {
      for (int i = 0; i < kWrites; ++i) {
        CKWriteLock write(lock);
        ++nFirst;
        ++nSecond;
      }
    });
  }
  for (int r = 0; r < 2; ++r) {
    threads.emplace_back([&] {
      for (int i = 0; i < kWrites; ++i) {
        CKReadLock read(lock);
        if (nFirst != nSecond) bTorn = true;
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_FALSE(bTorn.load());
  EXPECT_EQ(nFirst, long{kWriters} * kWrites);
  EXPECT_EQ(nSecond, nFirst);
}

}  // namespace
