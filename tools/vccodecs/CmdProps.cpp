// vccodecs props CLASS [NAME=VALUE ...]: an inspector for an object's
// properties. Without assignments it lists every property (set values and
// those only described by metadata) with its help, type, default, allowed
// values and range; with assignments it sets each and shows what reads back.
#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "Commands.h"
#include "ToolModule.h"
#include "VCComPtr.h"
#include "VCStrings.h"

namespace vctool {

namespace {

struct PropRow {
  std::string strName;
  std::string strValue;
  bool bHasValue = false;
  std::string strType, strDefault, strValues, strRange, strHelp;
};

std::string Info(IVCProps* pProps, const std::string& strName, eKInfoType eType) {
  vc::CBstr bsName(strName);
  vc::CBstr bsInfo;
  const HRESULT hr = pProps->PropsInfoGet(bsName, eType, &bsInfo);
  return hr == S_OK ? bsInfo.Utf8() : std::string();
}

std::string Options(IVCProps* pProps, const std::string& strName) {
  vc::CBstr bsName(strName);
  LONG nCount = 0;
  if (pProps->PropsOptionGetCount(bsName, &nCount) != S_OK || nCount <= 0) return {};
  std::string strList;
  for (LONG i = 0; i < nCount; ++i) {
    vc::CBstr bsValue, bsHelp;
    if (pProps->PropsOptionGetByIndex(bsName, i, &bsValue, &bsHelp) != S_OK) continue;
    if (!strList.empty()) strList += "|";
    strList += bsValue.Utf8();
  }
  return strList;
}

// Every attribute below strNode, and every property its "attributes_info"
// node describes, as "::"-joined paths.
void Collect(IVCProps* pProps, const std::string& strNode, std::map<std::string, PropRow>* pRows, int nDepth) {
  if (nDepth > 32) return;
  vc::CBstr bsNode(strNode);
  LONG nCount = 0;
  if (pProps->PropsGetCount(bsNode, &nCount) != S_OK) return;
  const std::string strPrefix = strNode.empty() ? std::string() : strNode + "::";
  for (LONG i = 0; i < nCount; ++i) {
    vc::CBstr bsName, bsValue;
    BOOL bNode = FALSE;
    if (pProps->PropsGetByIndex(bsNode, i, &bsName, &bsValue, &bNode) != S_OK) continue;
    const std::string strName = bsName.Utf8();
    if (bNode) {
      if (strName == "attributes_info") {
        vc::CBstr bsInfo(strPrefix + strName);
        LONG nInfo = 0;
        if (pProps->PropsGetCount(bsInfo, &nInfo) != S_OK) continue;
        for (LONG k = 0; k < nInfo; ++k) {
          vc::CBstr bsEntry, bsIgnored;
          BOOL bEntryNode = FALSE;
          if (pProps->PropsGetByIndex(bsInfo, k, &bsEntry, &bsIgnored, &bEntryNode) == S_OK && bEntryNode)
            (*pRows)[strPrefix + bsEntry.Utf8()].strName = strPrefix + bsEntry.Utf8();
        }
      } else {
        Collect(pProps, strPrefix + strName, pRows, nDepth + 1);
      }
      continue;
    }
    PropRow& row = (*pRows)[strPrefix + strName];
    row.strName = strPrefix + strName;
    row.strValue = bsValue.Utf8();
    row.bHasValue = true;
  }
}

std::string Clip(const std::string& s, size_t n) { return s.size() <= n ? s : s.substr(0, n - 3) + "..."; }

void PrintTable(const std::vector<PropRow>& rows) {
  size_t wName = 4, wValue = 5, wType = 4, wDefault = 7, wValues = 6;
  for (const PropRow& r : rows) {
    wName = std::max(wName, std::min<size_t>(r.strName.size(), 40));
    wValue = std::max(wValue, std::min<size_t>(r.bHasValue ? r.strValue.size() : 1, 24));
    wType = std::max(wType, std::min<size_t>(r.strType.size(), 10));
    wDefault = std::max(wDefault, std::min<size_t>(r.strDefault.size(), 16));
    wValues = std::max(wValues, std::min<size_t>(r.strValues.size() + r.strRange.size(), 28));
  }
  auto line = [&](const std::string& a, const std::string& b, const std::string& c, const std::string& d,
                  const std::string& e, const std::string& f) {
    std::printf("  %-*s  %-*s  %-*s  %-*s  %-*s  %s\n", static_cast<int>(wName), Clip(a, 40).c_str(),
                static_cast<int>(wValue), Clip(b, 24).c_str(), static_cast<int>(wType), Clip(c, 10).c_str(),
                static_cast<int>(wDefault), Clip(d, 16).c_str(), static_cast<int>(wValues), Clip(e, 28).c_str(),
                f.c_str());
  };
  line("name", "value", "type", "default", "values", "help");
  for (const PropRow& r : rows) {
    std::string strAllowed = r.strValues;
    if (!r.strRange.empty()) strAllowed += (strAllowed.empty() ? "" : " ") + r.strRange;
    line(r.strName, r.bHasValue ? r.strValue : "-", r.strType, r.strDefault, strAllowed, r.strHelp);
  }
}

bool ClassByName(const std::string& strClass, const ClassInfo** ppClass) {
  for (const ClassInfo& cls : kCoreClasses) {
    const std::string strShort = std::string(cls.szName).substr(2);  // "Splitter"
    if (vc::EqualsIgnoreAsciiCase(strClass, cls.szName) || vc::EqualsIgnoreAsciiCase(strClass, strShort) ||
        vc::EqualsIgnoreAsciiCase(strClass, vc::GuidToUtf8(*cls.pclsid))) {
      *ppClass = &cls;
      return true;
    }
  }
  return false;
}

}  // namespace

int CmdProps(const std::vector<std::string>& args) {
  if (args.empty()) {
    std::fprintf(stderr, "usage: vccodecs props CLASS [NAME=VALUE ...]   (CLASS: splitter, decoder, encoder, muxer)\n");
    return 1;
  }
  const ClassInfo* pClass = nullptr;
  if (!ClassByName(args[0], &pClass)) {
    std::fprintf(stderr, "vccodecs props: unknown class '%s' (splitter, decoder, encoder, muxer)\n", args[0].c_str());
    return 1;
  }
  vc::ComPtr<IVCProps> cpProps;
  HRESULT hr = CoCreateInstance(*pClass->pclsid, nullptr, CLSCTX_INPROC_SERVER, IID_IVCProps,
                                reinterpret_cast<void**>(cpProps.AddressOf()));
  if (FAILED(hr)) {
    std::fprintf(stderr, "vccodecs props: cannot create %s (%s)\n", pClass->szName, HrText(hr).c_str());
    return 2;
  }

  if (args.size() > 1) {
    int rc = 0;
    std::printf("%s: setting %zu properties\n", pClass->szName, args.size() - 1);
    for (size_t i = 1; i < args.size(); ++i) {
      const auto eq = args[i].find('=');
      if (eq == std::string::npos || eq == 0) {
        std::fprintf(stderr, "vccodecs props: '%s' is not NAME=VALUE\n", args[i].c_str());
        rc = 1;
        continue;
      }
      const std::string strName = args[i].substr(0, eq);
      hr = cpProps->PropsSet(vc::CBstr(strName), vc::CBstr(args[i].substr(eq + 1)));
      vc::CBstr bsBack;
      const HRESULT hrGet = cpProps->PropsGet(vc::CBstr(strName), &bsBack);
      std::printf("  %-32s set %-14s read back: %s\n", strName.c_str(), FAILED(hr) ? HrText(hr).c_str() : "ok",
                  hrGet == S_OK ? ("\"" + bsBack.Utf8() + "\"").c_str() : "(absent)");
      if (FAILED(hr)) rc = 1;
    }
    return rc;
  }

  std::map<std::string, PropRow> mapRows;
  Collect(cpProps.Get(), std::string(), &mapRows, 0);
  std::vector<PropRow> rows;
  for (auto& [name, row] : mapRows) {
    row.strHelp = Info(cpProps.Get(), name, eKIT_Help);
    row.strType = Info(cpProps.Get(), name, eKIT_Type);
    row.strDefault = Info(cpProps.Get(), name, eKIT_Default);
    row.strValues = Options(cpProps.Get(), name);
    const std::string strMin = Info(cpProps.Get(), name, eKIT_Min);
    const std::string strMax = Info(cpProps.Get(), name, eKIT_Max);
    if (!strMin.empty() || !strMax.empty()) row.strRange = "[" + strMin + " .. " + strMax + "]";
    rows.push_back(row);
  }
  std::printf("%s %s: %zu properties\n", pClass->szName, vc::GuidToUtf8(*pClass->pclsid).c_str(), rows.size());
  if (!rows.empty()) PrintTable(rows);
  return 0;
}

}  // namespace vctool
