// Internal checks that report and carry on. A failed VC_ASSERT hands the
// condition text, the source path and the line to the installed handler; the
// default handler logs "ASSERT FAILED: <condition> at <path>(<line>)" at level
// 4. Execution always continues after the report, in every build.
//
//   VC_ASSERT(nIndex < m_vecStreams.size());
//   VC_ASSERT_AT(pPacket != nullptr, "Include/VCCodecs/VCPackets");
//
// VC_ASSERT reports __FILE__, which the build makes relative to the source
// tree; VC_ASSERT_AT reports a fixed path for subsystems whose checks name
// their component rather than the file.
//
// Any thread. The handler runs on the failing thread, outside any lock of the
// reporter, and may run on several threads at once. Tests count failures with
// CAssertCounter.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "VCLog.h"

#define VC_ASSERT_AT(cond, path)                                      \
  do {                                                                \
    if (!(cond)) ::vc::AssertFailed(#cond, (path), __LINE__, VC_FUNCTION); \
  } while (0)

#define VC_ASSERT(cond) VC_ASSERT_AT(cond, __FILE__)

namespace vc {

struct AssertRecord {
  const char* pszCondition = "";
  const char* pszPath = "";
  int nLine = 0;
  const char* pszFunction = "";  // as the compiler names it (VC_FUNCTION)
};

using AssertHandler = std::function<void(const AssertRecord&)>;

// Called by the macros. Never throws.
void AssertFailed(const char* pszCondition, const char* pszPath, int nLine, const char* pszFunction) noexcept;

// Installs a handler (an empty one restores the default report); returns the
// previous one, empty when it was the default.
AssertHandler AssertSetHandler(AssertHandler handler);

// For tests: counts failed assertions while it lives and remembers the last
// one, instead of reporting them; puts the previous handler back on
// destruction.
class CAssertCounter {
 public:
  CAssertCounter();
  ~CAssertCounter();
  CAssertCounter(const CAssertCounter&) = delete;
  CAssertCounter& operator=(const CAssertCounter&) = delete;

  int Count() const;
  std::string LastCondition() const;
  std::string LastPath() const;
  int LastLine() const;

 private:
  struct CStore;
  std::shared_ptr<CStore> m_spStore;  // shared with the handler
  AssertHandler m_prevHandler;
};

}  // namespace vc
