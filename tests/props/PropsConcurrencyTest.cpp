// One facade's properties under concurrent use: threads set, get, enumerate
// and remove on the same keys for a while (the suite also runs this under
// ThreadSanitizer). Every value read must be one that some thread wrote for
// that very key, and nothing may crash.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "KPropsTestFacade.h"

namespace {

using vc::CBstr;

constexpr auto kStressDuration = std::chrono::seconds(2);
constexpr int kKeys = 6;
constexpr int kWriterCount = 2;  // thread 0 sets, thread 3 removes and also sets

class KPropsConcurrencyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_cpFacade = vctest::CreateTestFacade();
    ASSERT_TRUE(m_cpFacade);
  }

  static std::string KeyName(int nKey) { return "c::k" + std::to_string(nKey); }
  // "w<writer>.k<key>.n<sequence>"
  static std::string EncodeValue(int nWriter, int nKey, long lSeq) {
    return "w" + std::to_string(nWriter) + ".k" + std::to_string(nKey) + ".n" + std::to_string(lSeq);
  }

  // Writes one value; the sequence is published before the write so that a
  // reader can never see a number the writer has not reached.
  HRESULT Write(int nWriter, int nKey) {
    const long lSeq = ++m_lastSeq[nWriter];
    return vctest::PropsSetText(m_cpFacade.Get(), KeyName(nKey), EncodeValue(nWriter, nKey, lSeq));
  }

  // Records a problem when the value was not written for that key.
  void Check(const std::string& strValue, int nKey) {
    int nWriter = -1, nReadKey = -1;
    long lSeq = -1;
    char cEnd = 0;
    const bool bParsed =
        std::sscanf(strValue.c_str(), "w%d.k%d.n%ld%c", &nWriter, &nReadKey, &lSeq, &cEnd) == 3 &&
        nWriter >= 0 && nWriter < kWriterCount && lSeq >= 1 && lSeq <= m_lastSeq[nWriter].load();
    if (!bParsed || (nKey >= 0 && nReadKey != nKey)) {
      if (++m_nBadReads == 1) m_strFirstBad = strValue + " for key " + std::to_string(nKey);
    }
  }

  void Setter(int nWriter) {
    for (int i = 0; !Stopped(); ++i) {
      if (Write(nWriter, i % kKeys) != S_OK) ++m_nFailedCalls;
      ++m_nOps;
    }
  }
  void Getter() {
    for (int i = 0; !Stopped(); ++i) {
      const int nKey = i % kKeys;
      CBstr bsValue;
      const HRESULT hr = m_cpFacade->PropsGet(CBstr(KeyName(nKey)), &bsValue);
      if (hr == S_OK) Check(bsValue.Utf8(), nKey);
      else if (hr != S_FALSE) ++m_nFailedCalls;
      ++m_nOps;
    }
  }
  void Enumerator() {
    while (!Stopped()) {
      LONG nCount = 0;
      if (FAILED(m_cpFacade->PropsGetCount(CBstr("c"), &nCount))) ++m_nFailedCalls;
      for (LONG i = 0; i < nCount + 1; ++i) {  // one past the end, as the count may be stale
        CBstr bsName, bsValue;
        BOOL bNode = FALSE;
        const HRESULT hr = m_cpFacade->PropsGetByIndex(CBstr("c"), i, &bsName, &bsValue, &bNode);
        if (hr == S_FALSE) break;
        if (hr != S_OK || bNode) {
          ++m_nFailedCalls;
          break;
        }
        const std::string strName = bsName.Utf8();
        const int nKey = strName.size() == 2 && strName[0] == 'k' ? strName[1] - '0' : -1;
        if (nKey < 0 || nKey >= kKeys) ++m_nBadReads;
        Check(bsValue.Utf8(), nKey);
      }
      ++m_nOps;
    }
  }
  void Remover(int nWriter) {
    for (int i = 0; !Stopped(); ++i) {
      HRESULT hr = S_OK;
      if (i % 50 == 49) hr = vctest::PropsRemoveText(m_cpFacade.Get(), "c::_all_props_");
      else if (i % 2) hr = vctest::PropsRemoveText(m_cpFacade.Get(), KeyName(i % kKeys));
      else hr = Write(nWriter, (i / 2) % kKeys);
      if (FAILED(hr)) ++m_nFailedCalls;
      ++m_nOps;
    }
  }

  bool Stopped() const { return m_bStop.load(std::memory_order_relaxed); }

  vctest::TestFacadePtr m_cpFacade;
  std::array<std::atomic<long>, kWriterCount> m_lastSeq{};
  std::atomic<bool> m_bStop{false};
  std::atomic<long> m_nOps{0};
  std::atomic<int> m_nBadReads{0};
  std::atomic<int> m_nFailedCalls{0};
  std::string m_strFirstBad;  // written by the first bad read only
};

TEST_F(KPropsConcurrencyTest, SetGetEnumerateRemove_ReadOnlyWrittenValues) {
  std::vector<std::thread> threads;
  threads.emplace_back([this] { Setter(0); });
  threads.emplace_back([this] { Getter(); });
  threads.emplace_back([this] { Enumerator(); });
  threads.emplace_back([this] { Remover(1); });
  std::this_thread::sleep_for(kStressDuration);
  m_bStop = true;
  for (auto& t : threads) t.join();

  EXPECT_EQ(m_nBadReads.load(), 0) << "first: " << m_strFirstBad;
  EXPECT_EQ(m_nFailedCalls.load(), 0);
  EXPECT_GT(m_nOps.load(), 100);  // the threads really ran
  EXPECT_GT(m_lastSeq[0].load(), 0);
  EXPECT_GT(m_lastSeq[1].load(), 0);
}

}  // namespace
