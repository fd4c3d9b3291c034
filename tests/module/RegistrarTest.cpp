// Registrar scripts run against the real registry of the platform (the
// runtime's files on Linux, Wine's registry on Windows). Everything a test
// writes lives under HKCU\Software\Classes\CorvaneRegistrarTest or under test
// class identifiers, and is removed around each test.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "TestEnvironment.h"
#include "VCModule.h"
#include "VCRegistrar.h"
#include "VCStrings.h"

namespace {

const std::string kSandbox = "Software\\Classes\\CorvaneRegistrarTest";
const std::string kModulePath = "C:\\Program Files\\Corvane\\Corvane.Codecs.Core.x64.dll";
const std::string kSplitterClass = kSandbox + "\\CLSID\\{96EB1C14-4CC0-4830-9CC3-F064196B2626}";

struct ClassScript {
  const char* szFile;
  const char* szDescription;
  const char* szClsid;      // as in the file
  const char* szTestClsid;  // what per-user tests register instead
};

const ClassScript kClassScripts[] = {
    {"VCSplitter.rgs", "VCSplitter Class", "{96EB1C14-4CC0-4830-9CC3-F064196B2626}",
     "{C0DE1C14-4CC0-4830-9CC3-F064196B2626}"},
    {"VCDecoder.rgs", "VCDecoder Class", "{96EB1C64-4CC0-4830-9CC3-F064196B2626}",
     "{C0DE1C64-4CC0-4830-9CC3-F064196B2626}"},
    {"VCEncoder.rgs", "VCEncoder Class", "{96EB1C94-4CC0-4830-9CC3-F064196B2626}",
     "{C0DE1C94-4CC0-4830-9CC3-F064196B2626}"},
    {"VCMuxer.rgs", "VCMuxer Class", "{96EB1C74-4CC0-4830-9CC3-F064196B2626}",
     "{C0DE1C74-4CC0-4830-9CC3-F064196B2626}"},
};

// The scripts as the module carries them (REGISTRY resources on Windows,
// compiled-in copies on Linux), by their file names in module/res.
std::string ReadModuleScript(const std::string& sFile) {
  static const std::pair<const char*, int> kScripts[] = {
      {"VCCodecsCore.rgs", vc::IDR_VCCODECSCORE}, {"VCSplitter.rgs", vc::IDR_VCSPLITTER},
      {"VCDecoder.rgs", vc::IDR_VCDECODER},       {"VCEncoder.rgs", vc::IDR_VCENCODER},
      {"VCMuxer.rgs", vc::IDR_VCMUXER}};
  for (const auto& [szFile, nResource] : kScripts)
    if (sFile == szFile) {
      std::string text = vc::LoadRegistryScriptResource(nResource);
      if (text.empty()) ADD_FAILURE() << "registry script " << sFile << " is not in the module's resources";
      return text;
    }
  ADD_FAILURE() << "no registry script named " << sFile;
  return {};
}

// Moves a machine-wide script's HKCR entries into the sandbox.
std::string InSandbox(const std::string& sScript) {
  EXPECT_EQ(sScript.substr(0, 4), "HKCR");
  return "HKCU\r\n{\r\nNoRemove Software\r\n{\r\nNoRemove Classes\r\n{\r\nNoRemove CorvaneRegistrarTest" +
         sScript.substr(4) + "}\r\n}\r\n}\r\n";
}

// A block of keys placed inside the sandbox.
std::string SandboxBlock(const std::string& sBody) {
  return "HKCU\r\n{\r\nNoRemove Software\r\n{\r\nNoRemove Classes\r\n{\r\nNoRemove CorvaneRegistrarTest\r\n{\r\n" +
         sBody + "\r\n}\r\n}\r\n}\r\n}\r\n";
}

class RegistrarTest : public ::testing::Test {
 protected:
  void SetUp() override { RemoveTestKeys(); }
  void TearDown() override { RemoveTestKeys(); }

  HRESULT Run(const std::string& sScript, bool bRegister, bool bPerUser = false, HANDLE hTransaction = nullptr) {
    vc::RegistrarOptions options;
    options.bPerUser = bPerUser;
    options.hTransaction = hTransaction;
    options.replacements.emplace_back("MODULE", vc::FromUtf8(kModulePath));
    return vc::RegistrarRun(sScript, bRegister, options, &m_sError);
  }
  HRESULT Register(const std::string& sScript, bool bPerUser = false) { return Run(sScript, true, bPerUser); }
  HRESULT Unregister(const std::string& sScript, bool bPerUser = false) { return Run(sScript, false, bPerUser); }

  static bool KeyExists(const std::string& sPath) { return vctest::RegKeyExists(HKEY_CURRENT_USER, sPath); }
  // A REG_SZ value, or "<missing>".
  static std::string Value(const std::string& sPath, const char* szName = nullptr) {
    std::string s;
    return vctest::RegReadString(HKEY_CURRENT_USER, sPath, szName, &s) ? s : "<missing>";
  }
  static void SetValue(const std::string& sPath, const char* szName, const std::string& sData) {
    ASSERT_TRUE(vctest::RegWriteString(HKEY_CURRENT_USER, sPath, szName, sData)) << sPath;
  }
  static void CreateKey(const std::string& sPath) { SetValue(sPath, "Marker", "pre-existing"); }

  static void ExpectDword(const std::string& sPath, const char* szName, DWORD dwExpected) {
    HKEY hKey = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, vc::FromUtf8(sPath).c_str(), 0, KEY_READ, &hKey), ERROR_SUCCESS);
    DWORD dwType = REG_NONE, dwValue = 0, cb = sizeof(dwValue);
    const vc::String sName = szName ? vc::FromUtf8(szName) : vc::String();
    const LSTATUS st = RegQueryValueExW(hKey, szName ? sName.c_str() : nullptr, nullptr, &dwType,
                                        reinterpret_cast<BYTE*>(&dwValue), &cb);
    RegCloseKey(hKey);
    ASSERT_EQ(st, ERROR_SUCCESS) << szName;
    EXPECT_EQ(dwType, static_cast<DWORD>(REG_DWORD)) << szName;
    EXPECT_EQ(dwValue, dwExpected) << szName;
  }

  std::string m_sError;

 private:
  static void RemoveTestKeys() {
    vctest::RegRemoveTree(HKEY_CURRENT_USER, kSandbox);
    for (const ClassScript& script : kClassScripts)
      vctest::RegRemoveTree(HKEY_CURRENT_USER, std::string("Software\\Classes\\CLSID\\") + script.szTestClsid);
  }
};

// ---------------------------------------------------------------------------
// The class scripts of the module.

// The splitter's script as hosts and installers know it; the other classes
// differ only in identifier and description. TypeLib and Version are keys
// whose default value is the text (no "val"): that is where component tools
// look for a class's type library.
std::string PublishedClassScript(const std::string& sClsid, const std::string& sDescription) {
  return "HKCR\r\n"
         "{\r\n"
         "\tNoRemove CLSID\r\n"
         "\t{\r\n"
         "\t\tForceRemove " + sClsid + " = s '" + sDescription + "'\r\n"
         "\t\t{\r\n"
         "\t\t\tInprocServer32 = s '%MODULE%'\r\n"
         "\t\t\t{\r\n"
         "\t\t\t\tval ThreadingModel = s 'Neutral'\r\n"
         "\t\t\t}\r\n"
         "\t\t\tTypeLib = s '{03DF3785-FB0F-4786-A013-4E52BADDBCEE}'\r\n"
         "\t\t\tVersion = s '1.0'\r\n"
         "\t\t}\r\n"
         "\t}\r\n"
         "}\r\n";
}

TEST(RegistrarModuleScriptTest, ClassScripts_MatchThePublishedTextByteForByte) {
  for (const ClassScript& script : kClassScripts)
    EXPECT_EQ(ReadModuleScript(script.szFile), PublishedClassScript(script.szClsid, script.szDescription))
        << script.szFile;
  EXPECT_EQ(ReadModuleScript("VCCodecsCore.rgs"), "HKCR\r\n{\r\n}\r\n");
}

TEST_F(RegistrarTest, SplitterScript_WritesClassKeysAndValues) {
  ASSERT_EQ(Register(InSandbox(ReadModuleScript("VCSplitter.rgs"))), S_OK) << m_sError;

  EXPECT_EQ(Value(kSplitterClass), "VCSplitter Class");
  EXPECT_EQ(Value(kSplitterClass + "\\TypeLib"), "{03DF3785-FB0F-4786-A013-4E52BADDBCEE}");
  EXPECT_EQ(Value(kSplitterClass + "\\Version"), "1.0");
  EXPECT_EQ(Value(kSplitterClass + "\\InprocServer32"), kModulePath);
  EXPECT_EQ(Value(kSplitterClass + "\\InprocServer32", "ThreadingModel"), "Neutral");
  // Values and keys belong where the script puts them, not one level up or
  // down, and TypeLib and Version are keys, not values of the class key.
  EXPECT_EQ(Value(kSplitterClass, "ThreadingModel"), "<missing>");
  EXPECT_EQ(Value(kSplitterClass, "TypeLib"), "<missing>");
  EXPECT_EQ(Value(kSplitterClass, "Version"), "<missing>");
  EXPECT_FALSE(KeyExists(kSplitterClass + "\\InprocServer32\\TypeLib"));
}

TEST_F(RegistrarTest, SplitterScriptRemoval_DeletesClassButKeepsClsidAndOtherClasses) {
  const std::string sScript = InSandbox(ReadModuleScript("VCSplitter.rgs"));
  ASSERT_EQ(Unregister(sScript), S_OK) << "never registered: " << m_sError;
  EXPECT_FALSE(KeyExists(kSandbox));

  const std::string sOther = kSandbox + "\\CLSID\\{11111111-2222-3333-4444-555555555555}\\InprocServer32";
  CreateKey(sOther);
  ASSERT_EQ(Register(sScript), S_OK) << m_sError;
  ASSERT_TRUE(KeyExists(kSplitterClass + "\\TypeLib"));
  ASSERT_TRUE(KeyExists(kSplitterClass + "\\Version"));
  ASSERT_EQ(Unregister(sScript), S_OK) << m_sError;

  EXPECT_FALSE(KeyExists(kSplitterClass));
  EXPECT_EQ(Value(sOther, "Marker"), "pre-existing");
}

TEST_F(RegistrarTest, ForceRemove_WipesStaleSubkeysAndValuesBeforeWriting) {
  CreateKey(kSplitterClass + "\\Stale\\Deeper\\Deepest");
  SetValue(kSplitterClass, "Obsolete", "old");
  SetValue(kSplitterClass + "\\InprocServer32", nullptr, "/old/path/module.so");
  SetValue(kSplitterClass + "\\InprocServer32", "Obsolete", "old");

  ASSERT_EQ(Register(InSandbox(ReadModuleScript("VCSplitter.rgs"))), S_OK) << m_sError;

  EXPECT_FALSE(KeyExists(kSplitterClass + "\\Stale"));
  EXPECT_EQ(Value(kSplitterClass, "Obsolete"), "<missing>");
  EXPECT_EQ(Value(kSplitterClass + "\\InprocServer32", "Obsolete"), "<missing>");
  EXPECT_EQ(Value(kSplitterClass + "\\InprocServer32"), kModulePath);
}

TEST_F(RegistrarTest, ClassScriptsPerUser_LandUnderUserClassesAndRemoveCleanly) {
  for (const ClassScript& script : kClassScripts) {
    SCOPED_TRACE(script.szFile);
    // Test identifiers keep the suite's real registrations untouched.
    std::string sText = ReadModuleScript(script.szFile);
    const size_t nClsid = sText.find(script.szClsid);
    ASSERT_NE(nClsid, std::string::npos);
    sText.replace(nClsid, std::strlen(script.szClsid), script.szTestClsid);
    const std::string sClass = std::string("Software\\Classes\\CLSID\\") + script.szTestClsid;
    ASSERT_EQ(Unregister(sText, true), S_OK) << "never registered: " << m_sError;

    ASSERT_EQ(Register(sText, true), S_OK) << m_sError;
    EXPECT_EQ(Value(sClass), script.szDescription);
    EXPECT_EQ(Value(sClass + "\\InprocServer32"), kModulePath);
    EXPECT_EQ(Value(sClass + "\\InprocServer32", "ThreadingModel"), "Neutral");
    EXPECT_EQ(Value(sClass + "\\TypeLib"), "{03DF3785-FB0F-4786-A013-4E52BADDBCEE}");
    EXPECT_EQ(Value(sClass + "\\Version"), "1.0");

    ASSERT_EQ(Unregister(sText, true), S_OK) << m_sError;
    EXPECT_FALSE(KeyExists(sClass));
    EXPECT_TRUE(KeyExists("Software\\Classes\\CLSID"));
  }
}

TEST_F(RegistrarTest, PerUserRemoval_KeepsSoftwareAndClassesWithForeignContent) {
  // The rewrite brings in Software and Classes without NoRemove; removing the
  // module must not take the user's other settings with it.
  CreateKey(kSandbox + "\\Foreign");
  const std::string sApp = ReadModuleScript("VCCodecsCore.rgs");
  ASSERT_EQ(Register(sApp, true), S_OK) << m_sError;
  ASSERT_EQ(Unregister(sApp, true), S_OK) << m_sError;
  EXPECT_EQ(Value(kSandbox + "\\Foreign", "Marker"), "pre-existing");
}

// ---------------------------------------------------------------------------
// The per-user text rewrite.

constexpr char kOpener[] = "HKCU\r\n{\tSoftware\r\n\t{\r\n\t\tClasses";
constexpr char kCloser[] = "\r\n\t}\r\n}\r\n";

TEST(RegistrarMakePerUserTest, ModuleScripts_OnlyTheRootTokenIsRewritten) {
  EXPECT_EQ(vc::RegistrarMakePerUser(ReadModuleScript("VCCodecsCore.rgs")),
            "HKCU\r\n{\tSoftware\r\n\t{\r\n\t\tClasses\r\n{\r\n}\r\n\r\n\t}\r\n}\r\n");
  for (const ClassScript& script : kClassScripts) {
    const std::string sText = ReadModuleScript(script.szFile);
    ASSERT_EQ(sText.substr(0, 4), "HKCR") << script.szFile;
    EXPECT_EQ(vc::RegistrarMakePerUser(sText), kOpener + sText.substr(4) + kCloser) << script.szFile;
  }
}

TEST(RegistrarMakePerUserTest, QuotedTextAndNestedKeysNamedHKCR_AreLeftAlone) {
  EXPECT_EQ(vc::RegistrarMakePerUser("HKCR\r\n{\r\n\tNoRemove HKCR = s 'HKCR'\r\n\tval 'a''HKCR' = s 'x'\r\n}\r\n"),
            std::string(kOpener) + "\r\n{\r\n\tNoRemove HKCR = s 'HKCR'\r\n\tval 'a''HKCR' = s 'x'\r\n}\r\n" + kCloser);
  EXPECT_EQ(vc::RegistrarMakePerUser("HKLM\r\n{\r\n}\r\n"), "HKLM\r\n{\r\n}\r\n");
}

TEST_F(RegistrarTest, PerUserWithLaterRoot_LaterRootStaysARoot) {
  const std::string sScript =
      "HKCR\r\n{\r\n\tNoRemove CorvaneRegistrarTest\r\n\t{\r\n\t\tFromClassesRoot\r\n\t}\r\n}\r\n" +
      SandboxBlock("FromUserRoot");
  ASSERT_EQ(Register(sScript, true), S_OK) << m_sError;

  EXPECT_TRUE(KeyExists(kSandbox + "\\FromClassesRoot"));
  EXPECT_TRUE(KeyExists(kSandbox + "\\FromUserRoot"));
  EXPECT_FALSE(KeyExists("Software\\HKCU"));
}

// ---------------------------------------------------------------------------
// Names, values and replacements.

TEST_F(RegistrarTest, QuotedNames_KeepSpacesAndDoubledQuotes) {
  ASSERT_EQ(Register(SandboxBlock("'Key With Spaces' = s 'It''s here'\r\n{\r\n"
                                  "\tval 'Value ''Name''' = s ''''\r\n"
                                  "\tval Empty = s ''\r\n"
                                  "\t'{not a block}'\r\n}")),
            S_OK)
      << m_sError;
  const std::string sKey = kSandbox + "\\Key With Spaces";
  EXPECT_EQ(Value(sKey), "It's here");
  EXPECT_EQ(Value(sKey, "Value 'Name'"), "'");
  EXPECT_EQ(Value(sKey, "Empty"), "");
  EXPECT_TRUE(KeyExists(sKey + "\\{not a block}"));
}

TEST_F(RegistrarTest, Replacements_InsertedVerbatimAndCaseBlind) {
  // A quote in the value must not end the quoted string it lands in.
  const std::string sPath = "C:\\Users\\O'Brien\\B\xC3\xBCro 100%\\m.dll";
  vc::RegistrarOptions options;
  options.replacements.emplace_back("MODULE", vc::FromUtf8(sPath));
  options.replacements.emplace_back("Name", vc::FromUtf8("Sub"));
  ASSERT_EQ(vc::RegistrarRun(SandboxBlock("Key = s '%MODULE%'\r\n{\r\n"
                                          "\tval Lower = s 'x%module%y'\r\n"
                                          "\tval Percent = s '100%%'\r\n"
                                          "\t%NAME%Key\r\n}"),
                             true, options, &m_sError),
            S_OK)
      << m_sError;
  const std::string sKey = kSandbox + "\\Key";
  EXPECT_EQ(Value(sKey), sPath);
  EXPECT_EQ(Value(sKey, "Lower"), "x" + sPath + "y");
  EXPECT_EQ(Value(sKey, "Percent"), "100%");
  EXPECT_TRUE(KeyExists(sKey + "\\SubKey"));
}

TEST_F(RegistrarTest, DwordValues_DecimalAndHexStoredAsDword) {
  ASSERT_EQ(Register(SandboxBlock("Numbers = d '7'\r\n{\r\n"
                                  "\tval Decimal = d '42'\r\n"
                                  "\tval Hex = d '0x1F'\r\n"
                                  "\tval Largest = d '4294967295'\r\n"
                                  "\tval UpperHex = d '0XfFfFfFfF'\r\n}")),
            S_OK)
      << m_sError;
  const std::string sKey = kSandbox + "\\Numbers";
  ExpectDword(sKey, nullptr, 7);
  ExpectDword(sKey, "Decimal", 42);
  ExpectDword(sKey, "Hex", 0x1F);
  ExpectDword(sKey, "Largest", 0xFFFFFFFFu);
  ExpectDword(sKey, "UpperHex", 0xFFFFFFFFu);
}

// ---------------------------------------------------------------------------
// Flags in both directions.

TEST_F(RegistrarTest, DeleteKey_GoesAtRegistrationAndIsLeftAloneAtRemoval) {
  const std::string sScript = SandboxBlock("Delete Old\r\n{\r\n\tIgnored\r\n}\r\nNew");
  CreateKey(kSandbox + "\\Old\\Child\\Grandchild");
  ASSERT_EQ(Register(sScript), S_OK) << m_sError;
  EXPECT_FALSE(KeyExists(kSandbox + "\\Old"));
  EXPECT_TRUE(KeyExists(kSandbox + "\\New"));

  CreateKey(kSandbox + "\\Old");
  ASSERT_EQ(Unregister(sScript), S_OK) << m_sError;
  EXPECT_TRUE(KeyExists(kSandbox + "\\Old"));
  EXPECT_FALSE(KeyExists(kSandbox + "\\New"));
}

TEST_F(RegistrarTest, NoRemoveKeyRemoval_DeletesListedValuesExceptNoRemoveOnes) {
  const std::string sScript = SandboxBlock(
      "NoRemove Shared = s 'description'\r\n{\r\n"
      "\tNoRemove val Keep = s 'k'\r\n"
      "\tval Drop = s 'd'\r\n"
      "\tOurs\r\n}");
  const std::string sKey = kSandbox + "\\Shared";
  ASSERT_EQ(Register(sScript), S_OK) << m_sError;
  ASSERT_EQ(Value(sKey, "Drop"), "d");

  ASSERT_EQ(Unregister(sScript), S_OK) << m_sError;
  EXPECT_EQ(Value(sKey), "description");
  EXPECT_EQ(Value(sKey, "Keep"), "k");
  EXPECT_EQ(Value(sKey, "Drop"), "<missing>");
  EXPECT_FALSE(KeyExists(sKey + "\\Ours"));
}

TEST_F(RegistrarTest, PlainKeyRemoval_DeletesWhatTheScriptWroteAndTheKeyOnlyWhenEmpty) {
  const std::string sScript = SandboxBlock(
      "Plain = s 'p'\r\n{\r\n\tval V = s 'v'\r\n\tChild = s 'c'\r\n}\r\n"
      "Lonely = s 'l'\r\n{\r\n\tval V = s 'v'\r\n}");
  const std::string sPlain = kSandbox + "\\Plain";
  ASSERT_EQ(Register(sScript), S_OK) << m_sError;
  SetValue(sPlain, "Foreign", "f");

  ASSERT_EQ(Unregister(sScript), S_OK) << m_sError;
  EXPECT_EQ(Value(sPlain, "Foreign"), "f");
  EXPECT_EQ(Value(sPlain), "<missing>");
  EXPECT_EQ(Value(sPlain, "V"), "<missing>");
  EXPECT_FALSE(KeyExists(sPlain + "\\Child"));
  EXPECT_FALSE(KeyExists(kSandbox + "\\Lonely"));
}

// ---------------------------------------------------------------------------
// Failures.

struct BrokenScript {
  const char* szName;
  const char* szBody;  // after a line that names a key to be written
  int nLine;
  const char* szMessagePart;
};

// A parser that executed as it went would create the first key.
const BrokenScript kBrokenScripts[] = {
    {"UnclosedQuote", "\tKey = s 'open\r\n}\r\n", 4, "never closed"},
    {"UnknownType", "\t{\r\n\t\tval X = b '01'\r\n\t}\r\n}\r\n", 5, "value type"},
    {"ValueWithoutEquals", "\t{\r\n\t\tval X s 'a'\r\n\t}\r\n}\r\n", 5, "expected '='"},
    {"DwordNotANumber", "\tKey = d '12ab'\r\n}\r\n", 4, "32-bit number"},
    {"DwordTooLarge", "\tKey = d '4294967296'\r\n}\r\n", 4, "32-bit number"},
    {"ValueOnRoot", "\tval X = s 'a'\r\n}\r\n", 4, "root key cannot hold values"},
    {"BlockNeverClosed", "\t{\r\n\t\tKey\r\n", 6, "opened on line 4"},
    {"StrayClosingBrace", "}\r\n}\r\n", 5, "root key"},
    {"StrayEquals", "\t{\r\n\t\t= s 'x'\r\n\t}\r\n}\r\n", 5, "expected a key name"},
    {"UnknownReplacement", "\tKey = s '%NOPE%'\r\n}\r\n", 4, "%NOPE%"},
    {"LonePercent", "\tKey = s '100%'\r\n}\r\n", 4, "closing '%'"},
    {"SecondRootUnknown", "}\r\nHKXX\r\n{\r\n}\r\n", 5, "root key"},
};

class RegistrarBrokenScriptTest : public RegistrarTest, public ::testing::WithParamInterface<BrokenScript> {};

TEST_P(RegistrarBrokenScriptTest, ParseError_ReportsLineAndWritesNothing) {
  const BrokenScript& broken = GetParam();
  EXPECT_EQ(
      Register("HKCU\r\n{\r\n\tSoftware\\Classes\\CorvaneRegistrarTest\\Written\r\n" + std::string(broken.szBody)),
      DISP_E_EXCEPTION);
  EXPECT_EQ(m_sError.rfind("line " + std::to_string(broken.nLine) + ":", 0), 0u) << m_sError;
  EXPECT_NE(m_sError.find(broken.szMessagePart), std::string::npos) << m_sError;
  EXPECT_FALSE(KeyExists(kSandbox));
}

INSTANTIATE_TEST_SUITE_P(Scripts, RegistrarBrokenScriptTest, ::testing::ValuesIn(kBrokenScripts),
                         [](const ::testing::TestParamInfo<BrokenScript>& param) {
                           return std::string(param.param.szName);
                         });

TEST_F(RegistrarTest, ParseErrorAtTheStart_ReportsTheLine) {
  EXPECT_EQ(Register("HKXX\r\n{\r\n}\r\n"), DISP_E_EXCEPTION);
  EXPECT_EQ(m_sError.rfind("line 1:", 0), 0u) << m_sError;
  EXPECT_EQ(Register("HKCU\r\n\r\nSoftware\r\n"), DISP_E_EXCEPTION);
  EXPECT_EQ(m_sError.rfind("line 3: expected '{'", 0), 0u) << m_sError;
}

TEST_F(RegistrarTest, ParseErrorPerUser_ReportsLineOfTheOriginalScript) {
  EXPECT_EQ(Register("HKCR\r\n{\r\n\tNoRemove CorvaneRegistrarTest\r\n\t{\r\n\t\tKey = q 'a'\r\n\t}\r\n}\r\n", true),
            DISP_E_EXCEPTION);
  EXPECT_EQ(m_sError.rfind("line 5:", 0), 0u) << m_sError;
  EXPECT_FALSE(KeyExists(kSandbox));
}

TEST_F(RegistrarTest, RegistryFailure_StopsTheRunAndKeepsEarlierWrites) {
  // A relative name that starts with a backslash is refused by the registry
  // itself (ERROR_BAD_PATHNAME, 161, on both platforms).
  EXPECT_EQ(Register(SandboxBlock("Before\r\n'\\Bad'\r\nAfter")), HRESULT_FROM_WIN32(161));
  EXPECT_EQ(m_sError.rfind("line 10:", 0), 0u) << m_sError;
  EXPECT_NE(m_sError.find("\\Bad"), std::string::npos) << m_sError;
  EXPECT_TRUE(KeyExists(kSandbox + "\\Before"));
  EXPECT_FALSE(KeyExists(kSandbox + "\\After"));
}

// ---------------------------------------------------------------------------
// Transactions.

// A transaction to run under: a kernel transaction on Windows (Wine hands out
// a placeholder and lacks most transacted registry calls, so the plain calls
// must be used there), any non-null value on Linux, where it is ignored.
class CTestTransaction {
 public:
#if defined(_WIN32)
  CTestTransaction() : m_hKtm(LoadLibraryW(L"ktmw32.dll")) {
    using CreateFn = HANDLE(WINAPI*)(LPSECURITY_ATTRIBUTES, LPGUID, DWORD, DWORD, DWORD, DWORD, LPWSTR);
    if (const auto pfnCreate = Find<CreateFn>("CreateTransaction"))
      m_hTransaction = pfnCreate(nullptr, nullptr, 0, 0, 0, 0, nullptr);
    if (m_hTransaction == INVALID_HANDLE_VALUE) m_hTransaction = nullptr;
  }
  ~CTestTransaction() {
    if (m_hTransaction) CloseHandle(m_hTransaction);
    if (m_hKtm) FreeLibrary(m_hKtm);
  }
  bool Commit() {
    const auto pfnCommit = Find<BOOL(WINAPI*)(HANDLE)>("CommitTransaction");
    return pfnCommit && pfnCommit(m_hTransaction);
  }
#else
  bool Commit() { return true; }
#endif
  HANDLE Get() const { return m_hTransaction; }

 private:
#if defined(_WIN32)
  template <typename Fn>
  Fn Find(const char* szName) const {
    return m_hKtm ? reinterpret_cast<Fn>(reinterpret_cast<void (*)()>(GetProcAddress(m_hKtm, szName))) : nullptr;
  }
  HMODULE m_hKtm = nullptr;
  HANDLE m_hTransaction = nullptr;
#else
  HANDLE m_hTransaction = reinterpret_cast<HANDLE>(static_cast<uintptr_t>(0x1234));
#endif
};

TEST_F(RegistrarTest, UnderTransaction_RegistersAndRemovesOnceCommitted) {
  const std::string sScript = InSandbox(ReadModuleScript("VCSplitter.rgs"));
  CreateKey(kSplitterClass + "\\Stale");
  {
    CTestTransaction transaction;
    ASSERT_NE(transaction.Get(), nullptr);
    ASSERT_EQ(Run(sScript, true, false, transaction.Get()), S_OK) << m_sError;
    ASSERT_TRUE(transaction.Commit());
  }
  EXPECT_EQ(Value(kSplitterClass + "\\InprocServer32", "ThreadingModel"), "Neutral");
  EXPECT_FALSE(KeyExists(kSplitterClass + "\\Stale"));
  {
    CTestTransaction transaction;
    ASSERT_EQ(Run(sScript, false, false, transaction.Get()), S_OK) << m_sError;
    ASSERT_TRUE(transaction.Commit());
  }
  EXPECT_FALSE(KeyExists(kSplitterClass));
  EXPECT_TRUE(KeyExists(kSandbox + "\\CLSID"));
}

}  // namespace
