// The part every scripted facade fixture shares: it takes one family's
// script from the scripted test module, resets it for the test, registers
// the module under the classes the facade creates, and at the end fails the
// test on any call nobody scripted. The helpers read back what the scripted
// objects saw (calls, creations, the object a call went to) and what the
// facade logged. Used on the test thread only; the derived fixture owns the
// facade and closes it between StopScript() and UnregisterClasses().
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "VCComPtr.h"
#include "VCLog.h"
#include "VCStrings.h"
#include "modules/ScriptedModuleUse.h"
#include "modules/ScriptedObjects.h"

namespace vctest {

class ScriptedFixture : public ::testing::Test {
 protected:
  static constexpr const char* kAbsent = "(absent)";

  // Takes the family's script (0: splitter, 1: decoder, 2: encoder, 3:
  // muxer), resets it, allows each call in vecAllowed with S_OK and
  // registers the module under every class. Fails fatally when the module
  // does not load or a class cannot be registered.
  void StartScript(int nFamily, std::initializer_list<eCall> allowed, std::vector<const char*> vecClasses) {
    m_pScript = FamilyScript(nFamily);
    ASSERT_TRUE(m_pScript) << "the scripted test module did not load";
    m_pScript->Reset();
    for (eCall call : allowed) m_pScript->Allow(call, S_OK);
    m_vecClasses = std::move(vecClasses);
    for (const char* szClsid : m_vecClasses) {
      RegisterScripted(szClsid);
      if (HasFatalFailure()) return;
    }
  }

  // Fails the test on calls nobody scripted; then anything goes: held calls
  // are let go and the calls in closing are allowed, so the facade can close.
  void StopScript(std::initializer_list<eCall> closing) {
    if (!m_pScript) return;
    const std::vector<std::string> vecUnexpected = m_pScript->Unexpected();
    std::string strAll;
    for (const std::string& str : vecUnexpected) strAll += str + "\n";
    EXPECT_TRUE(vecUnexpected.empty()) << "calls nobody scripted:\n" << strAll;
    m_pScript->Reset();
    for (eCall call : closing) m_pScript->Allow(call, S_OK);
  }

  void UnregisterClasses() {
    for (const char* szClsid : m_vecClasses) UnregisterScripted(szClsid);
    m_vecClasses.clear();
  }

  // --- The facade's properties (m_cpProps, set by the derived fixture) ---

  void SetProp(const char* szName, const char* szValue) {
    ASSERT_EQ(m_cpProps->PropsSet(vc::CBstr(std::string_view(szName)), vc::CBstr(std::string_view(szValue))), S_OK)
        << szName;
  }
  // The facade's property, kAbsent when it has none (an empty value is a value).
  std::string Prop(const char* szName) const {
    vc::CBstr bsValue;
    if (m_cpProps->PropsGet(vc::CBstr(std::string_view(szName)), &bsValue) != S_OK) return kAbsent;
    return vc::ToUtf8(bsValue.View());
  }

  // --- What the scripted objects saw ---

  // The number of calls recorded so far: a mark to read later calls from.
  size_t Mark() const { return m_pScript->Calls().size(); }
  std::vector<CallRecord> Calls(eCall call, size_t nFrom = 0) const {
    std::vector<CallRecord> vecCalls;
    const std::vector<CallRecord> vecAll = m_pScript->Calls();
    for (size_t n = nFrom; n < vecAll.size(); ++n)
      if (vecAll[n].call == call) vecCalls.push_back(vecAll[n]);
    return vecCalls;
  }
  // The kinds the factory was asked for, in order ("nvidia", "general"...).
  std::vector<std::string> Created(size_t nFrom = 0) const {
    std::vector<std::string> vecKinds;
    for (const CallRecord& record : Calls(eCall::Create, nFrom)) vecKinds.push_back(record.strText);
    return vecKinds;
  }
  // The object the last call of this kind went to (0: none).
  uint64_t LastObject(eCall call) const {
    const std::vector<CallRecord> vecCalls = Calls(call);
    return vecCalls.empty() ? 0 : vecCalls.back().nObject;
  }

  // Whether one captured line of the log channel (not the trace) holds
  // every part, at nLevel when one is given.
  static bool LogLineWith(const vc::CLogCapture& log, std::initializer_list<std::string_view> parts,
                          int nLevel = -1) {
    for (const vc::LogRecord& record : log.Records())
      if (record.eChannel == vc::eVCLC_Log && (nLevel < 0 || record.nLevel == nLevel) &&
          std::all_of(parts.begin(), parts.end(),
                      [&](std::string_view part) { return record.strMessage.find(part) != std::string::npos; }))
        return true;
    return false;
  }

  IScript* m_pScript = nullptr;
  vc::ComPtr<IVCProps> m_cpProps;

 private:
  // The module stays loaded for the process, so each family's script is
  // looked up once.
  static IScript* FamilyScript(int nFamily) {
    static IScript* const s_apScripts[] = {LoadScript(0), LoadScript(1), LoadScript(2), LoadScript(3)};
    return nFamily >= 0 && nFamily < 4 ? s_apScripts[nFamily] : nullptr;
  }

  std::vector<const char*> m_vecClasses;
};

}  // namespace vctest
