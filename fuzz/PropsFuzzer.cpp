// libFuzzer target for the property tree's text form and path addressing.
//
// One input is read as UTF-8 text and used four ways:
//   1. parsed into a fresh node and into a node that already holds a small
//      tree; text that parses must survive serialise -> parse -> serialise
//      unchanged, and XML-like text that fails must leave the tree as it was;
//   2. entity-decoded both ways (whitespace kept and not);
//   3. split into lines, each a path for get, set, create, find or remove
//      (the first character of a line picks the call); a set that succeeds
//      must read back, a create must be found again;
//   4. the tree the paths built must survive the round trip too.
// A broken property aborts, so libFuzzer records the input.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "CoXMLNode.h"
#include "VCAssert.h"
#include "VCLog.h"
#include "XMLPath.h"

namespace {

using XMLParse::CoXMLNode;
using XMLParse::XMLNodePtr;

// Enough path calls per input to reach deep trees, few enough to stay fast.
constexpr size_t kMaxPathCalls = 256;

const char kExistingTree[] =
    "<props a='1' mode=fast><stat kbps='10' fps='25'>own</stat><s id='a'/><s id='b'><t x='&nbsp;'/></s>"
    "<info name='&lt;x&gt;'><![CDATA[raw]]></info></props>";

[[noreturn]] void Fail(const char* pszWhat, const vc::String& a, const vc::String& b) {
  std::fprintf(stderr, "PropsFuzzer: %s\n--- first\n%s\n--- second\n%s\n", pszWhat, vc::ToUtf8(a).c_str(),
               vc::ToUtf8(b).c_str());
  std::abort();
}

// Serialise -> parse into a fresh node of the same name -> serialise must
// give the same tree and the same text.
void CheckRoundTrip(const CoXMLNode& tree) {
  const vc::String text = tree.Serialize();
  const XMLNodePtr spBack = CoXMLNode::Create(tree.Name());
  if (FAILED(spBack->Parse(text))) Fail("serialised text does not parse", text, {});
  const vc::String again = spBack->Serialize();
  if (!spBack->SameTree(tree)) Fail("round trip changed the tree", text, again);
  if (again != text) Fail("round trip changed the text", text, again);
}

void ParseInto(const XMLNodePtr& spNode, const vc::String& text) {
  size_t nFirst = 0;
  while (nFirst < text.size() && XMLParse::IsBlank(vc::StringView(&text[nFirst], 1))) ++nFirst;
  const bool bXml = nFirst < text.size() && text[nFirst] == '<';
  // XML-like text is checked whole before anything is merged: keep a copy
  // to compare with when it fails.
  const XMLNodePtr spBefore = bXml ? spNode->Clone() : nullptr;
  const HRESULT hr = spNode->Parse(text);
  if (FAILED(hr) && spBefore && !spBefore->SameTree(*spNode))
    Fail("failed parse changed the tree", spBefore->Serialize(), spNode->Serialize());
  CheckRoundTrip(*spNode);
}

// The small tree that inputs are also merged into, parsed once.
XMLNodePtr ExistingTree() {
  static const XMLNodePtr s_spTree = [] {
    const XMLNodePtr spTree = CoXMLNode::Create(vc::FromUtf8("props"));
    if (FAILED(spTree->Parse(vc::FromUtf8(kExistingTree)))) std::abort();
    return spTree;
  }();
  return s_spTree->Clone();
}

void CheckDecoding(const vc::String& text) {
  for (const bool bKeep : {false, true}) {
    bool bBlank = false;
    const vc::String decoded = XMLParse::DecodeEntities(text, bKeep, &bBlank);
    // Every entity is at least as long as what it gives.
    if (decoded.size() > text.size()) Fail("decoding grew the text", text, decoded);
    if (bBlank && decoded.find(OLECHAR(' ')) == vc::String::npos) Fail("deliberate blank without a blank", text, decoded);
  }
}

// True when every part of the path is plain or a numeric index: then the
// value just set must be what the path reads (a text selector may stop
// matching once a value changes).
bool HasOnlyStableSelectors(vc::StringView path) {
  XMLParse::CXMLPath cursor(path);
  XMLParse::XMLPathPart part;
  bool bAny = false;
  while (cursor.Next(part)) {
    if (part.eSelector == XMLParse::XMLPathPart::eKPP_Text) return false;
    bAny = true;
  }
  return bAny && !cursor.Malformed();
}

void RunPathCalls(const vc::String& text) {
  const XMLNodePtr spRoot = ExistingTree();
  size_t nStart = 0;
  size_t nCalls = 0;
  vc::String value;
  while (nStart <= text.size() && nCalls++ < kMaxPathCalls) {
    size_t nEnd = text.find(OLECHAR('\n'), nStart);
    if (nEnd == vc::String::npos) nEnd = text.size();
    const vc::StringView line(text.data() + nStart, nEnd - nStart);
    nStart = nEnd + 1;
    if (line.empty()) continue;
    const vc::StringView path = line.substr(1);
    switch (static_cast<uint16_t>(line[0]) % 6) {
      case 0:
        spRoot->GetAttributePath(path, &value, (line.size() & 1) != 0);
        break;
      case 1: {
        // The value is the path itself: it holds whatever the input does.
        if (SUCCEEDED(spRoot->SetAttributePath(path, path)) && HasOnlyStableSelectors(path)) {
          const vc::String expected = XMLParse::DecodeEntities(path, false, nullptr);
          if (!spRoot->GetAttributePath(path, &value, true) || value != expected) {
            Fail("a value set does not read back", vc::String(path), value);
          }
        }
        break;
      }
      case 2: {
        const XMLNodePtr spNode = spRoot->CreateNode(path);
        if (spNode && spRoot->FindNode(path) != spNode) Fail("a created node is not found", vc::String(path), {});
        break;
      }
      case 3:
        spRoot->FindNode(path);
        break;
      case 4:
        spRoot->RemovePath(path);
        break;
      default:
        spRoot->SetAttributePath(path, vc::FromUtf8("&nbsp;"), (line.size() & 1) != 0);
        break;
    }
  }
  CheckRoundTrip(*spRoot);
  // A copy is the same tree.
  if (!spRoot->Clone()->SameTree(*spRoot)) Fail("a clone differs", spRoot->Serialize(), {});
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  vc::LogSetLevel(vc::kLogOff);
  // The attribute-to-node assertion is a finding only when it fires for a
  // name that could have been a node; the path calls check that outcome.
  vc::AssertSetHandler([](const vc::AssertRecord&) {});
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
  const vc::String text = vc::FromUtf8(std::string_view(reinterpret_cast<const char*>(pData), nSize));

  ParseInto(CoXMLNode::Create(vc::FromUtf8("props")), text);
  ParseInto(ExistingTree(), text);
  ParseInto(CoXMLNode::Create(), text);

  CheckDecoding(text);
  RunPathCalls(text);
  return 0;
}
