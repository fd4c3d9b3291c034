// The Linux registry: the Win32 call subset over the machine and user files.
// Every test gets its own empty registry folder.
#ifndef _WIN32

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "VCRegistry.h"
#include "VCStrings.h"

namespace {

namespace fs = std::filesystem;
using vc::String;

// Sets an environment variable for a scope and puts the old value back.
class CScopedEnv {
 public:
  CScopedEnv(const char* pszName, const char* pszValue) : m_sName(pszName) {
    if (const char* psz = std::getenv(pszName)) m_osOld = psz;
    if (pszValue)
      ::setenv(pszName, pszValue, 1);
    else
      ::unsetenv(pszName);
  }
  ~CScopedEnv() {
    if (m_osOld)
      ::setenv(m_sName.c_str(), m_osOld->c_str(), 1);
    else
      ::unsetenv(m_sName.c_str());
  }

 private:
  std::string m_sName;
  std::optional<std::string> m_osOld;
};

std::vector<BYTE> Bytes(const String& s, bool bTerminator = true) {
  const auto* p = reinterpret_cast<const BYTE*>(s.c_str());
  return std::vector<BYTE>(p, p + (s.size() + (bTerminator ? 1 : 0)) * sizeof(OLECHAR));
}

class RegistryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char szTemplate[] = "/tmp/vcregistry-XXXXXX";
    ASSERT_NE(::mkdtemp(szTemplate), nullptr);
    m_sRoot = szTemplate;
    m_pEnv = std::make_unique<CScopedEnv>(vc::reg::kRootEnvVar, m_sRoot.c_str());
  }

  void TearDown() override {
    for (HKEY h : m_vOpen) RegCloseKey(h);
    m_pEnv.reset();
    std::error_code ec;
    fs::remove_all(m_sRoot, ec);
  }

  // Creates (or opens) a key; the handle is closed after the test.
  HKEY CreateKey(HKEY hRoot, const String& sPath, DWORD* pdwDisposition = nullptr) {
    HKEY h = nullptr;
    EXPECT_EQ(RegCreateKeyExW(hRoot, sPath.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &h, pdwDisposition),
              ERROR_SUCCESS);
    if (h) m_vOpen.push_back(h);
    return h;
  }

  LSTATUS OpenKey(HKEY hRoot, const String& sPath, HKEY* ph) {
    *ph = reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(1));  // must come back null on failure
    const LSTATUS st = RegOpenKeyExW(hRoot, sPath.c_str(), 0, KEY_READ, ph);
    if (st == ERROR_SUCCESS) m_vOpen.push_back(*ph);
    return st;
  }

  bool KeyExists(HKEY hRoot, const String& sPath) {
    HKEY h = nullptr;
    return OpenKey(hRoot, sPath, &h) == ERROR_SUCCESS;
  }

  void SetValue(HKEY h, const OLECHAR* pszName, DWORD dwType, const std::vector<BYTE>& vb) {
    ASSERT_EQ(RegSetValueExW(h, pszName, 0, dwType, vb.data(), static_cast<DWORD>(vb.size())), ERROR_SUCCESS);
  }

  void SetString(HKEY h, const OLECHAR* pszName, const String& s) { SetValue(h, pszName, REG_SZ, Bytes(s)); }

  // The value's bytes, or nothing when the query fails.
  std::optional<std::vector<BYTE>> QueryBytes(HKEY h, const OLECHAR* pszName, DWORD* pdwType = nullptr) {
    DWORD cb = 0;
    if (RegQueryValueExW(h, pszName, nullptr, pdwType, nullptr, &cb) != ERROR_SUCCESS) return std::nullopt;
    std::vector<BYTE> vb(cb);
    if (RegQueryValueExW(h, pszName, nullptr, pdwType, vb.data(), &cb) != ERROR_SUCCESS) return std::nullopt;
    vb.resize(cb);
    return vb;
  }

  // A REG_SZ value without its terminator; "<missing>" when it cannot be read.
  String QueryString(HKEY h, const OLECHAR* pszName) {
    DWORD dwType = REG_NONE;
    const auto ovb = QueryBytes(h, pszName, &dwType);
    if (!ovb || dwType != REG_SZ || ovb->size() < 2) return u"<missing>";
    return String(reinterpret_cast<const OLECHAR*>(ovb->data()), ovb->size() / 2 - 1);
  }

  std::vector<String> SubkeyNames(HKEY h) {
    std::vector<String> v;
    OLECHAR sz[256];
    for (DWORD i = 0;; ++i) {
      DWORD cch = 256;
      const LSTATUS st = RegEnumKeyExW(h, i, sz, &cch, nullptr, nullptr, nullptr, nullptr);
      if (st != ERROR_SUCCESS) {
        EXPECT_EQ(st, ERROR_NO_MORE_ITEMS);
        return v;
      }
      v.emplace_back(sz, cch);
    }
  }

  std::vector<String> ValueNames(HKEY h) {
    std::vector<String> v;
    OLECHAR sz[256];
    for (DWORD i = 0;; ++i) {
      DWORD cch = 256;
      const LSTATUS st = RegEnumValueW(h, i, sz, &cch, nullptr, nullptr, nullptr, nullptr);
      if (st != ERROR_SUCCESS) {
        EXPECT_EQ(st, ERROR_NO_MORE_ITEMS);
        return v;
      }
      v.emplace_back(sz, cch);
    }
  }

  static std::string ReadFile(const std::string& sPath) {
    std::ifstream in(sPath, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }

  static void WriteFile(const std::string& sPath, const std::string& sText) {
    std::ofstream out(sPath, std::ios::binary | std::ios::trunc);
    out << sText;
  }

  std::string m_sRoot;
  std::unique_ptr<CScopedEnv> m_pEnv;
  std::vector<HKEY> m_vOpen;
};

// --- names and values ------------------------------------------------------

TEST_F(RegistryTest, Names_AreCaseInsensitiveAndKeepTheirCase) {
  HKEY h = CreateKey(HKEY_LOCAL_MACHINE, u"Software\\Corvane\\MixedCase");
  SetString(h, u"ThreadingModel", u"Both");
  SetString(h, u"THREADINGMODEL", u"Apartment");

  HKEY hUpper = nullptr;
  ASSERT_EQ(OpenKey(HKEY_LOCAL_MACHINE, u"SOFTWARE\\corvane\\MIXEDCASE", &hUpper), ERROR_SUCCESS);
  EXPECT_EQ(QueryString(hUpper, u"threadingmodel"), u"Apartment");
  EXPECT_EQ(ValueNames(hUpper), std::vector<String>{u"ThreadingModel"});

  HKEY hParent = CreateKey(HKEY_LOCAL_MACHINE, u"software\\CORVANE");
  EXPECT_EQ(SubkeyNames(hParent), std::vector<String>{u"MixedCase"});

  DWORD dwDisposition = 0;
  CreateKey(HKEY_LOCAL_MACHINE, u"software\\corvane\\mixedcase", &dwDisposition);
  EXPECT_EQ(dwDisposition, static_cast<DWORD>(REG_OPENED_EXISTING_KEY));
  CreateKey(HKEY_LOCAL_MACHINE, u"software\\corvane\\Other\\", &dwDisposition);
  EXPECT_EQ(dwDisposition, static_cast<DWORD>(REG_CREATED_NEW_KEY));
}

TEST_F(RegistryTest, DefaultValue_NullAndEmptyNameAreOneValue) {
  HKEY h = CreateKey(HKEY_CURRENT_USER, u"Software\\Corvane");
  SetString(h, nullptr, u"by null");
  EXPECT_EQ(QueryString(h, u""), u"by null");
  SetString(h, u"", u"by empty");
  EXPECT_EQ(QueryString(h, nullptr), u"by empty");
  EXPECT_EQ(ValueNames(h), std::vector<String>{u""});
  EXPECT_NE(ReadFile(vc::reg::UserFilePath()).find("\n@=\"by empty\"\n"), std::string::npos);

  EXPECT_EQ(RegDeleteValueW(h, nullptr), ERROR_SUCCESS);
  EXPECT_EQ(RegQueryValueExW(h, u"", nullptr, nullptr, nullptr, nullptr), ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistryTest, QueryValue_AnswersSizesAndShortBuffers) {
  HKEY h = CreateKey(HKEY_LOCAL_MACHINE, u"Software\\Corvane");
  SetString(h, u"Name", u"abc");
  DWORD dwType = REG_NONE;
  DWORD cb = 0;
  EXPECT_EQ(RegQueryValueExW(h, u"Name", nullptr, &dwType, nullptr, &cb), ERROR_SUCCESS);
  EXPECT_EQ(cb, 8u);  // three units and the terminator, in bytes
  EXPECT_EQ(dwType, static_cast<DWORD>(REG_SZ));

  BYTE buf[8] = {};
  cb = 4;
  EXPECT_EQ(RegQueryValueExW(h, u"Name", nullptr, nullptr, buf, &cb), ERROR_MORE_DATA);
  EXPECT_EQ(cb, 8u);
  EXPECT_EQ(RegQueryValueExW(h, u"Name", nullptr, nullptr, buf, &cb), ERROR_SUCCESS);
  EXPECT_EQ(String(reinterpret_cast<const OLECHAR*>(buf)), u"abc");

  EXPECT_EQ(RegQueryValueExW(h, u"Name", nullptr, nullptr, buf, nullptr), ERROR_INVALID_PARAMETER);
  cb = sizeof buf;
  EXPECT_EQ(RegQueryValueExW(h, u"Missing", nullptr, nullptr, buf, &cb), ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistryTest, ValueTypes_KeepTypeAndExactBytes) {
  HKEY h = CreateKey(HKEY_LOCAL_MACHINE, u"Software\\Types");
  const std::vector<BYTE> vbDword{0x2a, 0, 0, 0};
  const std::vector<BYTE> vbQword{1, 2, 3, 4, 5, 6, 7, 0x80};
  const std::vector<BYTE> vbBinary{0xde, 0xad, 0x00, 0xef};
  const std::vector<BYTE> vbShortDword{1, 2, 3};
  const std::vector<BYTE> vbUnterminated = Bytes(u"no end", false);
  const std::vector<BYTE> vbOddLength{0x41, 0x00, 0x42};
  const std::vector<BYTE> vbMulti = Bytes(String(u"one\0two\0", 8));
  const struct {
    const OLECHAR* pszName;
    DWORD dwType;
    std::vector<BYTE> vb;
  } kCases[] = {
      {u"Dword", REG_DWORD, vbDword},          {u"Qword", REG_QWORD, vbQword},
      {u"Binary", REG_BINARY, vbBinary},       {u"EmptyBinary", REG_BINARY, {}},
      {u"ShortDword", REG_DWORD, vbShortDword}, {u"Unterminated", REG_SZ, vbUnterminated},
      {u"OddLength", REG_SZ, vbOddLength},     {u"Multi", REG_MULTI_SZ, vbMulti},
      {u"Expand", REG_EXPAND_SZ, Bytes(u"$HOME/x")}, {u"Custom", 0x12345678, vbBinary},
  };
  for (const auto& c : kCases) SetValue(h, c.pszName, c.dwType, c.vb);
  for (const auto& c : kCases) {
    DWORD dwType = REG_NONE;
    const auto ovb = QueryBytes(h, c.pszName, &dwType);
    ASSERT_TRUE(ovb.has_value()) << vc::ToUtf8(c.pszName);
    EXPECT_EQ(*ovb, c.vb) << vc::ToUtf8(c.pszName);
    EXPECT_EQ(dwType, c.dwType) << vc::ToUtf8(c.pszName);
  }
  const std::string sText = ReadFile(vc::reg::MachineFilePath());
  EXPECT_NE(sText.find("\"Dword\"=dword:0000002a\n"), std::string::npos) << sText;
  EXPECT_NE(sText.find("\"Qword\"=qword:8007060504030201\n"), std::string::npos) << sText;
  EXPECT_NE(sText.find("\"Multi\"=multi:\"one\\0two\\0\"\n"), std::string::npos) << sText;
  EXPECT_NE(sText.find("\"ShortDword\"=hex(4):01,02,03\n"), std::string::npos) << sText;
}

TEST_F(RegistryTest, OddStrings_RoundTripThroughTheFile) {
  const String kOdd[] = {
      u"",
      u"say \"hi\"",
      u"C:\\path\\with\\backslashes\\",
      u"line one\nline two\r\n\ttabbed",
      String(u"embedded\0nul", 12),
      u"caf\u00e9 \u65e5\u672c \U0001F600",
      u"lone \xD800 high and \xDC00 low",
      u"100% [brackets] ; # = @",
      u"\x01\x1f\x7f controls",
  };
  // Names pass through the calls as zero-terminated strings, and key names
  // cannot hold a backslash.
  auto fValueName = [&](size_t i) {
    String s = u"name " + kOdd[i] + u" " + String(1, static_cast<OLECHAR>(u'0' + i));
    std::replace(s.begin(), s.end(), u'\0', u'0');
    return s;
  };
  auto fKeyName = [&](size_t i) {
    String s = fValueName(i);
    std::replace(s.begin(), s.end(), u'\\', u'/');
    return s;
  };
  HKEY h = CreateKey(HKEY_CURRENT_USER, u"Software\\Odd");
  for (size_t i = 0; i < std::size(kOdd); ++i) {
    SetString(h, fValueName(i).c_str(), kOdd[i]);
    CreateKey(h, fKeyName(i));
  }
  // Move the file to another registry folder: what is read there came through
  // the text alone.
  const std::string sText = ReadFile(vc::reg::UserFilePath());
  char szOther[] = "/tmp/vcregistry-other-XXXXXX";
  ASSERT_NE(::mkdtemp(szOther), nullptr);
  CScopedEnv env(vc::reg::kRootEnvVar, szOther);
  WriteFile(vc::reg::UserFilePath(), sText);

  HKEY hCopy = nullptr;
  ASSERT_EQ(OpenKey(HKEY_CURRENT_USER, u"Software\\Odd", &hCopy), ERROR_SUCCESS);
  EXPECT_EQ(ValueNames(hCopy).size(), std::size(kOdd));
  EXPECT_EQ(SubkeyNames(hCopy).size(), std::size(kOdd));
  for (size_t i = 0; i < std::size(kOdd); ++i) {
    EXPECT_EQ(QueryString(hCopy, fValueName(i).c_str()), kOdd[i]) << i;
    EXPECT_TRUE(KeyExists(hCopy, fKeyName(i))) << i;
  }
  std::error_code ec;
  fs::remove_all(szOther, ec);
}

// --- handles and paths -----------------------------------------------------

TEST_F(RegistryTest, BadHandlesAndPaths_AnswerWindowsCodes) {
  int nNotAKey = 0;
  const HKEY hBogus = reinterpret_cast<HKEY>(&nNotAKey);
  const HKEY hUsers = reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x80000003u));
  HKEY h = nullptr;
  EXPECT_EQ(RegOpenKeyExW(hBogus, u"x", 0, KEY_READ, &h), ERROR_INVALID_HANDLE);
  EXPECT_EQ(RegOpenKeyExW(hUsers, u"x", 0, KEY_READ, &h), ERROR_INVALID_HANDLE);
  EXPECT_EQ(RegCloseKey(hBogus), ERROR_INVALID_HANDLE);

  ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, u"Software", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &h, nullptr),
            ERROR_SUCCESS);
  EXPECT_EQ(RegCloseKey(h), ERROR_SUCCESS);
  EXPECT_EQ(RegCloseKey(h), ERROR_INVALID_HANDLE);
  EXPECT_EQ(RegSetValueExW(h, u"v", 0, REG_SZ, nullptr, 0), ERROR_INVALID_HANDLE);
  EXPECT_EQ(RegCloseKey(HKEY_LOCAL_MACHINE), ERROR_SUCCESS);

  EXPECT_EQ(OpenKey(HKEY_LOCAL_MACHINE, u"Software\\Missing", &h), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(h, nullptr);
  EXPECT_EQ(OpenKey(HKEY_LOCAL_MACHINE, u"\\Software", &h), 161);        // ERROR_BAD_PATHNAME
  EXPECT_EQ(OpenKey(HKEY_LOCAL_MACHINE, u"Software\\\\x", &h), 161);
}

TEST_F(RegistryTest, KeyDeletedElsewhere_HandleAnswersKeyDeleted) {
  HKEY h = CreateKey(HKEY_LOCAL_MACHINE, u"Software\\Gone\\Child");
  SetString(h, u"v", u"x");
  ASSERT_EQ(RegDeleteTreeW(HKEY_LOCAL_MACHINE, u"Software\\Gone"), ERROR_SUCCESS);

  HKEY hSub = nullptr;
  DWORD cb = 0;
  EXPECT_EQ(RegQueryValueExW(h, u"v", nullptr, nullptr, nullptr, &cb), ERROR_KEY_DELETED);
  EXPECT_EQ(RegSetValueExW(h, u"v", 0, REG_BINARY, nullptr, 0), ERROR_KEY_DELETED);
  EXPECT_EQ(RegCreateKeyExW(h, u"Sub", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &hSub, nullptr), ERROR_KEY_DELETED);
  EXPECT_EQ(RegOpenKeyExW(h, nullptr, 0, KEY_READ, &hSub), ERROR_KEY_DELETED);
  EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, u"Software\\Gone\\Child\\Sub"));
}

// --- deleting --------------------------------------------------------------

TEST_F(RegistryTest, DeleteKey_WithSubkeys_IsRefused) {
  CreateKey(HKEY_LOCAL_MACHINE, u"Software\\A\\B");
  EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, u"Software\\A"), ERROR_ACCESS_DENIED);
  EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, u"Software\\A\\B"));
  EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, u"Software\\a\\b"), ERROR_SUCCESS);
  EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, u"Software\\A"), ERROR_SUCCESS);
  EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, u"Software\\A"));
  EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, u"Software\\A"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, u""), ERROR_ACCESS_DENIED);
  EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, u"Software"));
}

TEST_F(RegistryTest, DeleteTree_RemovesSubtreeOrEmptiesKey) {
  SetString(CreateKey(HKEY_LOCAL_MACHINE, u"Software\\T\\A\\B\\C"), u"deep", u"x");
  SetString(CreateKey(HKEY_LOCAL_MACHINE, u"Software\\T\\A2"), u"sibling", u"y");
  HKEY hT = CreateKey(HKEY_LOCAL_MACHINE, u"Software\\T");
  SetString(hT, nullptr, u"own value");

  EXPECT_EQ(RegDeleteTreeW(hT, u"A"), ERROR_SUCCESS);
  EXPECT_EQ(SubkeyNames(hT), std::vector<String>{u"A2"});
  EXPECT_EQ(RegDeleteTreeW(hT, u"A"), ERROR_FILE_NOT_FOUND);

  EXPECT_EQ(RegDeleteTreeW(hT, nullptr), ERROR_SUCCESS);
  EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, u"Software\\T"));
  EXPECT_TRUE(SubkeyNames(hT).empty());
  EXPECT_TRUE(ValueNames(hT).empty());
}

// --- enumeration -----------------------------------------------------------

TEST_F(RegistryTest, Enumeration_SortsKeysAndReportsShortBuffers) {
  HKEY h = CreateKey(HKEY_LOCAL_MACHINE, u"Software\\E");
  for (const OLECHAR* psz : {u"beta", u"Alpha", u"gamma"}) CreateKey(h, psz);
  SetString(h, u"second", u"22");
  SetString(h, u"first", u"1");
  EXPECT_EQ(SubkeyNames(h), (std::vector<String>{u"Alpha", u"beta", u"gamma"}));
  EXPECT_EQ(ValueNames(h), (std::vector<String>{u"second", u"first"}));  // in the order they were set

  OLECHAR sz[8];
  DWORD cch = 5;  // "Alpha" needs six with the terminator
  EXPECT_EQ(RegEnumKeyExW(h, 0, sz, &cch, nullptr, nullptr, nullptr, nullptr), ERROR_MORE_DATA);
  EXPECT_EQ(RegEnumKeyExW(h, 3, sz, &cch, nullptr, nullptr, nullptr, nullptr), ERROR_NO_MORE_ITEMS);

  BYTE buf[4];
  DWORD cb = 4;
  cch = 8;
  DWORD dwType = REG_NONE;
  EXPECT_EQ(RegEnumValueW(h, 0, sz, &cch, nullptr, &dwType, buf, &cb), ERROR_MORE_DATA);
  EXPECT_EQ(cb, 6u);
  EXPECT_EQ(dwType, static_cast<DWORD>(REG_SZ));
  cch = 8;
  EXPECT_EQ(RegEnumValueW(h, 2, sz, &cch, nullptr, nullptr, nullptr, nullptr), ERROR_NO_MORE_ITEMS);

  DWORD cSubKeys = 0, cchMaxSubKey = 0, cValues = 0, cchMaxValueName = 0, cbMaxValue = 0;
  ASSERT_EQ(RegQueryInfoKeyW(h, nullptr, nullptr, nullptr, &cSubKeys, &cchMaxSubKey, nullptr, &cValues,
                             &cchMaxValueName, &cbMaxValue, nullptr, nullptr),
            ERROR_SUCCESS);
  EXPECT_EQ(cSubKeys, 3u);
  EXPECT_EQ(cchMaxSubKey, 5u);
  EXPECT_EQ(cValues, 2u);
  EXPECT_EQ(cchMaxValueName, 6u);
  EXPECT_EQ(cbMaxValue, 6u);
}

// --- the classes view ------------------------------------------------------

TEST_F(RegistryTest, ClassesRoot_ReadsUserSideFirst) {
  SetString(CreateKey(HKEY_LOCAL_MACHINE, u"Software\\Classes\\CLSID\\{X}"), nullptr, u"machine");
  SetString(CreateKey(HKEY_LOCAL_MACHINE, u"Software\\Classes\\CLSID\\{X}"), u"OnlyMachine", u"m");
  SetString(CreateKey(HKEY_CURRENT_USER, u"Software\\Classes\\CLSID\\{x}"), nullptr, u"user");
  CreateKey(HKEY_LOCAL_MACHINE, u"Software\\Classes\\MachineOnly");

  HKEY h = nullptr;
  ASSERT_EQ(OpenKey(HKEY_CLASSES_ROOT, u"clsid\\{X}", &h), ERROR_SUCCESS);
  EXPECT_EQ(QueryString(h, nullptr), u"user");
  EXPECT_EQ(QueryString(h, u"OnlyMachine"), u"m");
  EXPECT_EQ(ValueNames(h), (std::vector<String>{u"", u"OnlyMachine"}));
  EXPECT_TRUE(KeyExists(HKEY_CLASSES_ROOT, u"MachineOnly"));
  EXPECT_FALSE(KeyExists(HKEY_CLASSES_ROOT, u"Nowhere"));

  String s;
  EXPECT_EQ(vc::reg::GetString(HKEY_CLASSES_ROOT, u"CLSID\\{X}", nullptr, &s), ERROR_SUCCESS);
  EXPECT_EQ(s, u"user");
}

TEST_F(RegistryTest, ClassesRoot_CreatesOnMachineSideUnlessUserHasTheKey) {
  DWORD dwDisposition = 0;
  HKEY hNew = CreateKey(HKEY_CLASSES_ROOT, u".new\\Sub", &dwDisposition);
  EXPECT_EQ(dwDisposition, static_cast<DWORD>(REG_CREATED_NEW_KEY));
  SetString(hNew, nullptr, u"n");
  EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, u"Software\\Classes\\.new\\Sub"));
  EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, u"Software\\Classes\\.new"));

  CreateKey(HKEY_CURRENT_USER, u"Software\\Classes\\.user");
  HKEY hUser = CreateKey(HKEY_CLASSES_ROOT, u".USER", &dwDisposition);
  EXPECT_EQ(dwDisposition, static_cast<DWORD>(REG_OPENED_EXISTING_KEY));
  SetString(hUser, u"Where", u"user side");
  HKEY hCheck = nullptr;
  ASSERT_EQ(OpenKey(HKEY_CURRENT_USER, u"Software\\Classes\\.user", &hCheck), ERROR_SUCCESS);
  EXPECT_EQ(QueryString(hCheck, u"Where"), u"user side");
  EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, u"Software\\Classes\\.user"));

  // A key the user side lacks goes to the machine side, even below a user key.
  CreateKey(hUser, u"Child");
  EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, u"Software\\Classes\\.user\\Child"));
  EXPECT_TRUE(KeyExists(HKEY_CLASSES_ROOT, u".user\\Child"));

  EXPECT_EQ(vc::reg::SetString(HKEY_CLASSES_ROOT, u"Helper", u"v", u"text"), ERROR_SUCCESS);
  ASSERT_EQ(OpenKey(HKEY_LOCAL_MACHINE, u"Software\\Classes\\Helper", &hCheck), ERROR_SUCCESS);
  EXPECT_EQ(QueryString(hCheck, u"v"), u"text");
}

TEST_F(RegistryTest, ClassesRoot_EnumerationMergesUserFirstWithoutDuplicates) {
  CreateKey(HKEY_CURRENT_USER, u"Software\\Classes\\Delta");
  CreateKey(HKEY_CURRENT_USER, u"Software\\Classes\\Beta");
  CreateKey(HKEY_LOCAL_MACHINE, u"Software\\Classes\\alpha");
  CreateKey(HKEY_LOCAL_MACHINE, u"Software\\Classes\\BETA");
  EXPECT_EQ(SubkeyNames(HKEY_CLASSES_ROOT), (std::vector<String>{u"Beta", u"Delta", u"alpha"}));
  DWORD cSubKeys = 0;
  ASSERT_EQ(RegQueryInfoKeyW(HKEY_CLASSES_ROOT, nullptr, nullptr, nullptr, &cSubKeys, nullptr, nullptr, nullptr,
                             nullptr, nullptr, nullptr, nullptr),
            ERROR_SUCCESS);
  EXPECT_EQ(cSubKeys, 3u);
}

TEST_F(RegistryTest, ClassesRoot_DeleteRemovesTheKeyFromBothSides) {
  SetString(CreateKey(HKEY_CURRENT_USER, u"Software\\Classes\\Both\\In"), nullptr, u"u");
  SetString(CreateKey(HKEY_LOCAL_MACHINE, u"Software\\Classes\\Both\\In"), nullptr, u"m");
  HKEY h = CreateKey(HKEY_CLASSES_ROOT, u"Both\\In");
  EXPECT_EQ(RegDeleteValueW(h, nullptr), ERROR_SUCCESS);
  EXPECT_EQ(RegQueryValueExW(h, nullptr, nullptr, nullptr, nullptr, nullptr), ERROR_FILE_NOT_FOUND);

  EXPECT_EQ(RegDeleteKeyW(HKEY_CLASSES_ROOT, u"Both"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(RegDeleteTreeW(HKEY_CLASSES_ROOT, u"Both"), ERROR_SUCCESS);
  EXPECT_FALSE(KeyExists(HKEY_CLASSES_ROOT, u"Both"));
  EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, u"Software\\Classes\\Both"));
  EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, u"Software\\Classes\\Both"));
  EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, u"Software\\Classes"));
}

// --- files -----------------------------------------------------------------

TEST_F(RegistryTest, FilePaths_FollowTheEnvironmentOnEveryCall) {
  EXPECT_EQ(vc::reg::MachineFilePath(), m_sRoot + "/machine.reg");
  EXPECT_EQ(vc::reg::UserFilePath(), m_sRoot + "/user.reg");
  CScopedEnv root(vc::reg::kRootEnvVar, nullptr);
  CScopedEnv home("HOME", "/home/someone");
  {
    CScopedEnv xdg("XDG_CONFIG_HOME", "/xdg");
    EXPECT_EQ(vc::reg::MachineFilePath(), "/var/lib/corvane/registry/machine.reg");
    EXPECT_EQ(vc::reg::UserFilePath(), "/xdg/corvane/registry/user.reg");
  }
  CScopedEnv xdg("XDG_CONFIG_HOME", nullptr);
  EXPECT_EQ(vc::reg::UserFilePath(), "/home/someone/.config/corvane/registry/user.reg");
}

TEST_F(RegistryTest, HandWrittenFile_IsRead) {
  WriteFile(vc::reg::MachineFilePath(),
            "\xEF\xBB\xBF; written by hand\r\n"
            "# another comment\r\n"
            "\r\n"
            "[Software\\Hand\\50%0025 %0009tab]\r\n"
            "  @ = \"d\"   \r\n"
            "\"N\"=dword:2A\r\n");
  HKEY h = nullptr;
  ASSERT_EQ(OpenKey(HKEY_LOCAL_MACHINE, u"Software\\Hand\\50% \ttab", &h), ERROR_SUCCESS);
  EXPECT_EQ(QueryString(h, nullptr), u"d");
  EXPECT_EQ(QueryBytes(h, u"n"), (std::vector<BYTE>{0x2a, 0, 0, 0}));
}

TEST_F(RegistryTest, CorruptFile_AnswersBadDbAndIsLeftAlone) {
  const char* const kCorrupt[] = {
      "[Software]\nnot a value line\n",
      "@=\"value before any key\"\n",
      "[Software]\n\"v\"=\"no closing quote\n",
      "[Software]\n\"bad escape\"=\"\\q\"\n",
      "[Software]\n\"v\"=hex:1\n",
      "[Software]\n\"v\"=dword:123456789\n",
      "[Software]\n\"v\"=\"trailing\" junk\n",
      "[Software]\n\"v\"=\"\xff\xfe not utf-8\"\n",
      "[Software\\\\Empty]\n",
      "[Software\\%zz]\n",
      "[Software\n",
  };
  for (const char* pszText : kCorrupt) {
    SCOPED_TRACE(pszText);
    WriteFile(vc::reg::MachineFilePath(), pszText);
    HKEY h = nullptr;
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, u"Software", 0, KEY_READ, &h), ERROR_BADDB);
    EXPECT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, u"Other", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &h, nullptr),
              ERROR_BADDB);
    EXPECT_EQ(RegSetValueExW(HKEY_LOCAL_MACHINE, u"v", 0, REG_BINARY, nullptr, 0), ERROR_BADDB);
    EXPECT_EQ(RegOpenKeyExW(HKEY_CLASSES_ROOT, u"x", 0, KEY_READ, &h), ERROR_BADDB);
    EXPECT_EQ(ReadFile(vc::reg::MachineFilePath()), pszText);
  }
}

TEST_F(RegistryTest, UnreadableFile_AnswersBadDb) {
  // Running as root ignores file modes; a symlink loop and a folder cannot
  // be read by anyone.
  ASSERT_EQ(::symlink("user.reg", vc::reg::UserFilePath().c_str()), 0);
  HKEY h = nullptr;
  EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, u"Software", 0, KEY_READ, &h), ERROR_BADDB);
  EXPECT_EQ(RegOpenKeyExW(HKEY_CLASSES_ROOT, u"CLSID", 0, KEY_READ, &h), ERROR_BADDB);
  EXPECT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, u"Software", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &h, nullptr),
            ERROR_BADDB);
  ASSERT_TRUE(fs::create_directory(vc::reg::MachineFilePath()));
  OLECHAR sz[16];
  DWORD cch = 16;
  EXPECT_EQ(RegEnumKeyExW(HKEY_LOCAL_MACHINE, 0, sz, &cch, nullptr, nullptr, nullptr, nullptr), ERROR_BADDB);
  DWORD cSubKeys = 0;
  EXPECT_EQ(RegQueryInfoKeyW(HKEY_LOCAL_MACHINE, nullptr, nullptr, nullptr, &cSubKeys, nullptr, nullptr, nullptr,
                             nullptr, nullptr, nullptr, nullptr),
            ERROR_BADDB);
}

TEST_F(RegistryTest, MissingFiles_AreAnEmptyRegistryAndWritesLeaveNoTemporaries) {
  HKEY h = nullptr;
  EXPECT_EQ(OpenKey(HKEY_CLASSES_ROOT, u"CLSID", &h), ERROR_FILE_NOT_FOUND);
  EXPECT_TRUE(SubkeyNames(HKEY_LOCAL_MACHINE).empty());

  // Folders are created on the first write.
  CScopedEnv env(vc::reg::kRootEnvVar, (m_sRoot + "/deeper/still").c_str());
  for (int i = 0; i < 5; ++i) SetString(CreateKey(HKEY_CURRENT_USER, u"Software\\W"), u"n", u"v");
  std::vector<std::string> vFiles;
  for (const auto& entry : fs::directory_iterator(m_sRoot + "/deeper/still"))
    vFiles.push_back(entry.path().filename().string());
  std::sort(vFiles.begin(), vFiles.end());
  EXPECT_EQ(vFiles, (std::vector<std::string>{"user.reg", "user.reg.lock"}));
}

// --- concurrent writers ----------------------------------------------------

constexpr int kKeysPerProcess = 200;
constexpr int kKeysPerThread = 100;

// Creates nKeys keys with one value each under Software\Race\<sParent>.
bool WriteManyKeys(const std::string& sParent, int nKeys) {
  for (int i = 0; i < nKeys; ++i) {
    const String sPath = vc::FromUtf8("Software\\Race\\" + sParent + "\\Key" + std::to_string(i));
    HKEY h = nullptr;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, sPath.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &h, nullptr) !=
        ERROR_SUCCESS)
      return false;
    const DWORD dw = static_cast<DWORD>(i);
    const LSTATUS st = RegSetValueExW(h, u"Index", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&dw), sizeof dw);
    RegCloseKey(h);
    if (st != ERROR_SUCCESS) return false;
  }
  return true;
}

TEST_F(RegistryTest, TwoProcessesWritingAtOnce_LoseNothing) {
  int fdsGo[2];
  ASSERT_EQ(::pipe(fdsGo), 0);
  pid_t pids[2];
  for (int n = 0; n < 2; ++n) {
    pids[n] = ::fork();
    ASSERT_GE(pids[n], 0);
    if (pids[n] == 0) {
      // Both children wait for the pipe to close, then start together.
      ::close(fdsGo[1]);
      char c;
      while (::read(fdsGo[0], &c, 1) > 0) {
      }
      ::_exit(WriteManyKeys("Process" + std::to_string(n), kKeysPerProcess) ? 0 : 1);
    }
  }
  ::close(fdsGo[0]);
  ::close(fdsGo[1]);
  for (pid_t pid : pids) {
    int nStatus = 0;
    ASSERT_EQ(::waitpid(pid, &nStatus, 0), pid);
    EXPECT_TRUE(WIFEXITED(nStatus) && WEXITSTATUS(nStatus) == 0);
  }
  for (const OLECHAR* pszParent : {u"Software\\Race\\Process0", u"Software\\Race\\Process1"}) {
    HKEY h = nullptr;
    ASSERT_EQ(OpenKey(HKEY_LOCAL_MACHINE, pszParent, &h), ERROR_SUCCESS);
    EXPECT_EQ(SubkeyNames(h).size(), static_cast<size_t>(kKeysPerProcess)) << vc::ToUtf8(pszParent);
    HKEY hLast = nullptr;
    ASSERT_EQ(OpenKey(h, vc::FromUtf8("Key" + std::to_string(kKeysPerProcess - 1)), &hLast), ERROR_SUCCESS);
    EXPECT_EQ(QueryBytes(hLast, u"Index"), (std::vector<BYTE>{kKeysPerProcess - 1, 0, 0, 0}));
  }
}

TEST_F(RegistryTest, TwoThreadsWritingAtOnce_LoseNothing) {
  bool bOk[2] = {false, false};
  std::thread t0([&] { bOk[0] = WriteManyKeys("Thread0", kKeysPerThread); });
  std::thread t1([&] { bOk[1] = WriteManyKeys("Thread1", kKeysPerThread); });
  t0.join();
  t1.join();
  EXPECT_TRUE(bOk[0] && bOk[1]);
  HKEY h = nullptr;
  ASSERT_EQ(OpenKey(HKEY_LOCAL_MACHINE, u"Software\\Race", &h), ERROR_SUCCESS);
  DWORD cSubKeys = 0;
  for (const OLECHAR* pszParent : {u"Thread0", u"Thread1"}) {
    HKEY hParent = nullptr;
    ASSERT_EQ(OpenKey(h, pszParent, &hParent), ERROR_SUCCESS);
    ASSERT_EQ(RegQueryInfoKeyW(hParent, nullptr, nullptr, nullptr, &cSubKeys, nullptr, nullptr, nullptr, nullptr,
                               nullptr, nullptr, nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(cSubKeys, static_cast<DWORD>(kKeysPerThread));
  }
}

}  // namespace

#endif  // _WIN32
