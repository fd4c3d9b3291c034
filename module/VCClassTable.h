// One row of a module's class table. The build generates the rows from the
// module's table file (res/*ClassTable.cmake), the same file its registrar
// scripts and manifest lines come from, so a class identifier is written
// once; the module's class rows and its public constants are taken from here
// or checked against it at compile time. Header only, constant data.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "VCGuid.h"
#include "VCModule.h"

namespace vc {

struct VCClassTableEntry {
  const char* szName;         // "VCSplitter"
  GUID clsid;
  const char* szDescription;  // "VCSplitter Class"
  int nRegistryScript;        // resource number of its registrar script
};

// Field by field: the platform's GUID comparison is not constexpr on Windows.
constexpr bool SameGuid(const GUID& a, const GUID& b) {
  if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
  for (int i = 0; i < 8; ++i)
    if (a.Data4[i] != b.Data4[i]) return false;
  return true;
}

// The row called svName; a name the table lacks fails the build.
template <std::size_t N>
consteval const VCClassTableEntry& ClassInTable(const VCClassTableEntry (&table)[N], std::string_view svName) {
  for (const VCClassTableEntry& entry : table)
    if (svName == entry.szName) return entry;
  throw std::invalid_argument("the class table has no row of that name");
}

// A module's class rows in the table's order (the order of registration),
// each with the creator fnCreatorOf(name) gives it. Callers check at compile
// time that every row has one.
template <std::size_t N, class CreatorOf>
std::vector<VCClassRow> ClassRowsOf(const VCClassTableEntry (&table)[N], CreatorOf fnCreatorOf) {
  std::vector<VCClassRow> rows;
  rows.reserve(N);
  for (const VCClassTableEntry& entry : table)
    rows.push_back({&entry.clsid, entry.szName, entry.szDescription, entry.nRegistryScript, fnCreatorOf(entry.szName)});
  return rows;
}

}  // namespace vc
