// Property store against a plain std::map of UTF-16 strings, in the same run:
// PropsGet and PropsSet of a three-level path in a tree of 200 attributes, and
// the parse of a 4 KB property text.
#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

#include "CoVCSplitter.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCObject.h"
#include "VCStrings.h"

namespace {

using vc::String;

// 10 nodes x 4 children x 5 attributes = 200 attributes, three levels deep.
std::vector<std::pair<String, String>> TreeEntries() {
  std::vector<std::pair<String, String>> entries;
  for (int n = 0; n < 10; ++n)
    for (int m = 0; m < 4; ++m)
      for (int a = 0; a < 5; ++a) {
        const std::string path = "node" + std::to_string(n) + "::child" + std::to_string(m) + "::attr_" +
                                 std::to_string(a);
        entries.emplace_back(vc::FromUtf8(path), vc::FromUtf8(std::to_string(n * 100 + m * 10 + a)));
      }
  return entries;
}

vc::ComPtr<IVCProps> MakeFacade() {
  vc::ComPtr<IVCProps> cp;
  vc::CreateObject<vc::CCoVCSplitter>(nullptr, IID_IVCProps, reinterpret_cast<void**>(cp.AddressOf()));
  return cp;
}

const char kProbePath[] = "node7::child2::attr_3";

void BM_PropsGet_ThreeLevels(benchmark::State& state) {
  vc::ComPtr<IVCProps> cp = MakeFacade();
  for (const auto& [k, v] : TreeEntries()) cp->PropsSet(vc::CBstr(k), vc::CBstr(v));
  vc::CBstr bsName{std::string_view(kProbePath)};
  for (auto _ : state) {
    BSTR bs = nullptr;
    cp->PropsGet(bsName, &bs);
    benchmark::DoNotOptimize(bs);
    SysFreeString(bs);
  }
}
BENCHMARK(BM_PropsGet_ThreeLevels);

void BM_StdMapGet_ThreeLevels(benchmark::State& state) {
  std::map<String, String> map;
  for (const auto& [k, v] : TreeEntries()) map[k] = v;
  const String key = vc::FromUtf8(kProbePath);
  for (auto _ : state) {
    // Same work around the lookup as the interface call: a UTF-16 key in,
    // a newly allocated string out.
    auto it = map.find(key);
    BSTR bs = SysAllocStringLen(it->second.data(), static_cast<UINT>(it->second.size()));
    benchmark::DoNotOptimize(bs);
    SysFreeString(bs);
  }
}
BENCHMARK(BM_StdMapGet_ThreeLevels);

void BM_PropsSet_ThreeLevels(benchmark::State& state) {
  vc::ComPtr<IVCProps> cp = MakeFacade();
  for (const auto& [k, v] : TreeEntries()) cp->PropsSet(vc::CBstr(k), vc::CBstr(v));
  vc::CBstr bsName{std::string_view(kProbePath)};
  vc::CBstr bsValues[2] = {vc::CBstr(std::string_view("12345")), vc::CBstr(std::string_view("67890"))};
  int i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(cp->PropsSet(bsName, bsValues[++i & 1]));
}
BENCHMARK(BM_PropsSet_ThreeLevels);

void BM_StdMapSet_ThreeLevels(benchmark::State& state) {
  std::map<String, String> map;
  for (const auto& [k, v] : TreeEntries()) map[k] = v;
  const String key = vc::FromUtf8(kProbePath);
  vc::CBstr bsValues[2] = {vc::CBstr(std::string_view("12345")), vc::CBstr(std::string_view("67890"))};
  int i = 0;
  for (auto _ : state) {
    BSTR bs = bsValues[++i & 1];
    map[key].assign(bs, SysStringLen(bs));
    benchmark::DoNotOptimize(map);
  }
}
BENCHMARK(BM_StdMapSet_ThreeLevels);

// About 4 KB of property text: nested nodes with attributes and values.
std::string PropertyText() {
  std::string text = "<props>";
  for (int n = 0; text.size() < 4000; ++n) {
    text += "<stream" + std::to_string(n % 7) + " index=\"" + std::to_string(n) +
            "\" codec=\"h264\" width=\"1920\" height=\"1080\" rate=\"25.000\" title=\"Camera &amp; mic\">"
            "<buffer max=\"5.0\" min=\"1.0\"/></stream" +
            std::to_string(n % 7) + ">";
  }
  return text + "</props>";
}

void BM_PropsParse_4KB(benchmark::State& state) {
  vc::ComPtr<IVCProps> cp = MakeFacade();
  const std::string text = PropertyText();
  vc::CBstr bsText{std::string_view(text)};
  vc::CBstr bsEmpty{std::string_view("")};
  for (auto _ : state) benchmark::DoNotOptimize(cp->PropsSet(bsEmpty, bsText));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_PropsParse_4KB);

// The same name/value pairs (already split out) stored into a std::map:
// the floor for any parser that ends in a keyed store.
void BM_StdMapInsert_4KBPairs(benchmark::State& state) {
  std::vector<std::pair<String, String>> pairs;
  for (int n = 0; pairs.size() * 24 < PropertyText().size(); ++n) {
    const std::string base = "stream" + std::to_string(n % 7) + "::";
    for (const char* attr : {"index", "codec", "width", "height", "rate", "title"})
      pairs.emplace_back(vc::FromUtf8(base + attr), vc::FromUtf8(std::to_string(n)));
    pairs.emplace_back(vc::FromUtf8(base + "buffer::max"), vc::FromUtf8("5.0"));
    pairs.emplace_back(vc::FromUtf8(base + "buffer::min"), vc::FromUtf8("1.0"));
  }
  std::map<String, String> map;
  for (auto _ : state) {
    for (const auto& [k, v] : pairs) map[k] = v;
    benchmark::DoNotOptimize(map);
  }
}
BENCHMARK(BM_StdMapInsert_4KBPairs);

}  // namespace
