// The type library built from VCCodecsCore.idl against the C++ headers
// generated from the same file: record sizes and field offsets, interface
// identifiers, method slots, method and argument names, enumeration values
// and the coclasses. Together they prove that a host using the type library
// and a module using the headers agree byte for byte. Windows only (the type
// library loader is the platform's); the build copies VCCodecsCoreLib.tlb
// next to the test executable.
#ifdef _WIN32

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "ReflectLookup.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"

namespace {

using vc::ComPtr;

std::wstring TypeLibPath() {
  wchar_t szPath[MAX_PATH] = {};
  const DWORD cch = GetModuleFileNameW(nullptr, szPath, MAX_PATH);
  std::wstring strPath(szPath, cch);
  return strPath.substr(0, strPath.find_last_of(L"\\/") + 1) + L"VCCodecsCoreLib.tlb";
}

// Type-library names are ASCII identifiers.
std::string Narrow(const wchar_t* psz) {
  std::string str;
  for (; psz && *psz; ++psz) str.push_back(static_cast<char>(*psz));
  return str;
}

std::string NameOf(ITypeInfo* pInfo, MEMBERID memid) {
  BSTR bsName = nullptr;
  if (FAILED(pInfo->GetDocumentation(memid, &bsName, nullptr, nullptr, nullptr))) return "<no name>";
  std::string str = Narrow(bsName);
  SysFreeString(bsName);
  return str;
}

// Owns a TYPEATTR, FUNCDESC or VARDESC borrowed from a type info: Get and
// Release are the type info's matching pair.
template <class T, auto Get, auto Release, class... Index>
class CBorrowed {
 public:
  explicit CBorrowed(ITypeInfo* pInfo, Index... nIndex) : m_pInfo(pInfo) { m_hr = (pInfo->*Get)(nIndex..., &m_p); }
  ~CBorrowed() {
    if (m_p) (m_pInfo->*Release)(m_p);
  }
  CBorrowed(const CBorrowed&) = delete;
  CBorrowed& operator=(const CBorrowed&) = delete;
  const T* operator->() const { return m_p; }
  bool Ok() const { return SUCCEEDED(m_hr) && m_p; }

 private:
  ITypeInfo* m_pInfo;
  T* m_p = nullptr;
  HRESULT m_hr;
};

using CTypeAttr = CBorrowed<TYPEATTR, &ITypeInfo::GetTypeAttr, &ITypeInfo::ReleaseTypeAttr>;
using CVarDesc = CBorrowed<VARDESC, &ITypeInfo::GetVarDesc, &ITypeInfo::ReleaseVarDesc, UINT>;
using CFuncDesc = CBorrowed<FUNCDESC, &ITypeInfo::GetFuncDesc, &ITypeInfo::ReleaseFuncDesc, UINT>;

class TypeLibTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    const std::wstring strPath = TypeLibPath();
    s_hrLoad = LoadTypeLibEx(strPath.c_str(), REGKIND_NONE, s_cpTypeLib.AddressOf());
  }
  static void TearDownTestSuite() { s_cpTypeLib = nullptr; }

  void SetUp() override {
    ASSERT_TRUE(SUCCEEDED(s_hrLoad) && s_cpTypeLib)
        << "cannot load " << Narrow(TypeLibPath().c_str()) << ", hr=0x" << std::hex << s_hrLoad;
  }

  // The type info of the given kind and name, or null.
  static ComPtr<ITypeInfo> FindInfo(std::string_view svName, TYPEKIND eKind) {
    const UINT nCount = s_cpTypeLib->GetTypeInfoCount();
    for (UINT i = 0; i < nCount; ++i) {
      ComPtr<ITypeInfo> cpInfo;
      if (FAILED(s_cpTypeLib->GetTypeInfo(i, cpInfo.AddressOf()))) continue;
      CTypeAttr attr(cpInfo.Get());
      if (attr.Ok() && attr->typekind == eKind && NameOf(cpInfo.Get(), MEMBERID_NIL) == svName) return cpInfo;
    }
    return nullptr;
  }

  static std::vector<std::string> FuncNames(ITypeInfo* pInfo, MEMBERID memid) {
    BSTR rgbs[32] = {};
    UINT cNames = 0;
    std::vector<std::string> names;
    if (FAILED(pInfo->GetNames(memid, rgbs, 32, &cNames))) return names;
    for (UINT i = 0; i < cNames; ++i) {
      names.push_back(Narrow(rgbs[i]));
      SysFreeString(rgbs[i]);
    }
    return names;
  }

  static std::string RefName(ITypeInfo* pInfo, UINT nImpl) {
    HREFTYPE hRef = 0;
    ComPtr<ITypeInfo> cpRef;
    if (FAILED(pInfo->GetRefTypeOfImplType(nImpl, &hRef)) || FAILED(pInfo->GetRefTypeInfo(hRef, cpRef.AddressOf())))
      return "<none>";
    return NameOf(cpRef.Get(), MEMBERID_NIL);
  }

  static inline ComPtr<ITypeLib> s_cpTypeLib;
  static inline HRESULT s_hrLoad = E_FAIL;
};

TEST_F(TypeLibTest, Library_HasPublishedIdentityVersionAndLocale) {
  TLIBATTR* pAttr = nullptr;
  ASSERT_EQ(s_cpTypeLib->GetLibAttr(&pAttr), S_OK);
  EXPECT_TRUE(IsEqualGUID(pAttr->guid, LIBID_VCCodecsCoreLib));
  EXPECT_EQ(pAttr->wMajorVerNum, vc::kVCCodecsCoreLibVersionMajor);
  EXPECT_EQ(pAttr->wMinorVerNum, vc::kVCCodecsCoreLibVersionMinor);
  EXPECT_EQ(pAttr->lcid, vc::kVCCodecsCoreLibLcid);
  EXPECT_EQ(pAttr->syskind, SYS_WIN64);
  s_cpTypeLib->ReleaseTLibAttr(pAttr);
  EXPECT_EQ(vc::kVCCodecsCoreLibLcid, 0x409u);
}

TEST_F(TypeLibTest, Records_MatchCppSizeAndFieldOffsets) {
  for (const auto& rec : vc::reflect::kRecords) {
    SCOPED_TRACE(rec.pszName);
    ComPtr<ITypeInfo> cpInfo = FindInfo(rec.pszName, TKIND_RECORD);
    ASSERT_TRUE(cpInfo) << "record missing from the type library";
    CTypeAttr attr(cpInfo.Get());
    ASSERT_TRUE(attr.Ok());
    EXPECT_EQ(attr->cbSizeInstance, rec.cbSize) << "size";
    EXPECT_EQ(attr->cbAlignment, rec.cbAlign) << "alignment";
    ASSERT_EQ(attr->cVars, rec.fields.size()) << "field count";
    for (UINT i = 0; i < attr->cVars; ++i) {
      CVarDesc var(cpInfo.Get(), i);
      ASSERT_TRUE(var.Ok());
      EXPECT_EQ(NameOf(cpInfo.Get(), var->memid), rec.fields[i].pszName) << "field " << i;
      EXPECT_EQ(var->varkind, VAR_PERINSTANCE);
      EXPECT_EQ(static_cast<size_t>(var->oInst), rec.fields[i].cbOffset) << rec.fields[i].pszName;
    }
  }
}

TEST_F(TypeLibTest, Interfaces_MatchCppIdentifierSlotsAndNames) {
  for (const auto& itf : vc::reflect::kInterfaces) {
    SCOPED_TRACE(itf.pszName);
    ComPtr<ITypeInfo> cpInfo = FindInfo(itf.pszName, TKIND_INTERFACE);
    ASSERT_TRUE(cpInfo) << "interface missing from the type library";
    CTypeAttr attr(cpInfo.Get());
    ASSERT_TRUE(attr.Ok());
    EXPECT_TRUE(IsEqualGUID(attr->guid, *itf.pIid)) << "interface identifier";
    ASSERT_EQ(attr->cImplTypes, 1);
    EXPECT_EQ(RefName(cpInfo.Get(), 0), "IUnknown") << "must derive from IUnknown, not IDispatch";
    EXPECT_EQ(attr->cbSizeVft, (3 + itf.methods.size()) * sizeof(void*));
    ASSERT_EQ(attr->cFuncs, itf.methods.size()) << "method count";
    for (UINT i = 0; i < attr->cFuncs; ++i) {
      CFuncDesc func(cpInfo.Get(), i);
      ASSERT_TRUE(func.Ok());
      const auto& method = itf.methods[i];
      const std::vector<std::string> names = FuncNames(cpInfo.Get(), func->memid);
      ASSERT_FALSE(names.empty());
      EXPECT_EQ(names[0], method.pszName) << "method in slot " << method.nSlot;
      EXPECT_EQ(static_cast<size_t>(func->oVft) / sizeof(void*), method.nSlot) << method.pszName;
      EXPECT_EQ(static_cast<size_t>(func->cParams), method.params.size()) << method.pszName;
      for (size_t p = 0; p + 1 < names.size() && p < method.params.size(); ++p)
        EXPECT_EQ(names[p + 1], method.params[p]) << method.pszName << " argument " << p;
    }
  }
}

TEST_F(TypeLibTest, Enumerations_MatchCppValues) {
  for (const auto& en : vc::reflect::kEnums) {
    SCOPED_TRACE(en.pszName);
    ComPtr<ITypeInfo> cpInfo = FindInfo(en.pszName, TKIND_ENUM);
    ASSERT_TRUE(cpInfo) << "enumeration missing from the type library";
    CTypeAttr attr(cpInfo.Get());
    ASSERT_TRUE(attr.Ok());
    EXPECT_EQ(attr->cbSizeInstance, 4u);
    ASSERT_EQ(attr->cVars, en.members.size());
    for (UINT i = 0; i < attr->cVars; ++i) {
      CVarDesc var(cpInfo.Get(), i);
      ASSERT_TRUE(var.Ok());
      ASSERT_EQ(var->varkind, VAR_CONST);
      EXPECT_EQ(NameOf(cpInfo.Get(), var->memid), en.members[i].pszName);
      VARIANT v;
      VariantInit(&v);
      ASSERT_EQ(VariantChangeType(&v, var->lpvarValue, 0, VT_UI4) == S_OK ||
                    VariantChangeType(&v, var->lpvarValue, 0, VT_I4) == S_OK,
                true);
      const uint32_t dwValue = V_VT(&v) == VT_UI4 ? V_UI4(&v) : static_cast<uint32_t>(V_I4(&v));
      EXPECT_EQ(dwValue, en.members[i].dwValue) << en.members[i].pszName;
    }
  }
}

TEST_F(TypeLibTest, Coclasses_ExposeDefaultInterfaceAndProps) {
  for (const auto& co : vc::reflect::kCoclasses) {
    SCOPED_TRACE(co.pszName);
    ComPtr<ITypeInfo> cpInfo = FindInfo(co.pszName, TKIND_COCLASS);
    ASSERT_TRUE(cpInfo) << "coclass missing from the type library";
    CTypeAttr attr(cpInfo.Get());
    ASSERT_TRUE(attr.Ok());
    EXPECT_TRUE(IsEqualGUID(attr->guid, *co.pClsid)) << "class identifier";
    ASSERT_EQ(static_cast<size_t>(attr->cImplTypes), co.interfaces.size());
    for (UINT i = 0; i < attr->cImplTypes; ++i) {
      const std::string strName = RefName(cpInfo.Get(), i);
      EXPECT_EQ(strName, co.interfaces[i]);
      INT nFlags = 0;
      ASSERT_EQ(cpInfo->GetImplTypeFlags(i, &nFlags), S_OK);
      EXPECT_EQ((nFlags & IMPLTYPEFLAG_FDEFAULT) != 0, strName == co.pszDefault) << strName;
    }
  }
}

TEST_F(TypeLibTest, Library_HoldsNothingTheHeadersDoNotDeclare) {
  // The platform types the IDL uses come along: the rectangle and size
  // records, and the stream interface with what its methods take.
  std::set<std::string> known = {"tagRECT",         "tagSIZE",        "IStream", "ISequentialStream", "tagSTATSTG",
                                 "_LARGE_INTEGER", "_ULARGE_INTEGER", "_FILETIME", "GUID"};
  for (const auto& rec : vc::reflect::kRecords) known.insert(rec.pszName);
  for (const auto& en : vc::reflect::kEnums) known.insert(en.pszName);
  for (const auto& itf : vc::reflect::kInterfaces) known.insert(itf.pszName);
  for (const auto& co : vc::reflect::kCoclasses) known.insert(co.pszName);
  const UINT nCount = s_cpTypeLib->GetTypeInfoCount();
  for (UINT i = 0; i < nCount; ++i) {
    ComPtr<ITypeInfo> cpInfo;
    ASSERT_EQ(s_cpTypeLib->GetTypeInfo(i, cpInfo.AddressOf()), S_OK);
    const std::string strName = NameOf(cpInfo.Get(), MEMBERID_NIL);
    if (strName.starts_with("__WIDL_")) continue;  // the unnamed record behind the platform's GUID alias
    EXPECT_TRUE(known.count(strName)) << strName << " is in the type library but not in the headers";
  }
  // Side data has no published names; it stays out of the type library.
  EXPECT_FALSE(FindInfo("IVCSideData", TKIND_INTERFACE));
}

}  // namespace

#endif  // _WIN32
