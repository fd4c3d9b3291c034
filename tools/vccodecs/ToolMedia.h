// What the media commands (probe, demux, decode) share: their argument
// parsing, the source opened through the splitter facade as a host opens it,
// JSON text, time texts, the "stat::" values of a facade and the progress
// bar. Main thread.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "VCCodecsCore.h"
#include "VCComPtr.h"

namespace vctool {

// LONG is long on Windows: printf wants an int.
inline int I(LONG n) { return static_cast<int>(n); }

struct MediaArgs {
  std::string strUrl;
  bool bJson = false;
  double dblSeek = 0.0;
};

// A command's own option: kTaken when it was the command's (the index moved
// past its values), kBad after printing why it is wrong, kNotMine otherwise.
enum class eOption { kNotMine, kTaken, kBad };
using ExtraOption = std::function<eOption(const std::vector<std::string>& args, size_t* pnIndex)>;

// URL, --json, --seek (when allowed) and the command's own options; prints
// why and returns false on a bad command line.
bool ParseArgs(const char* szCmd, const std::vector<std::string>& args, bool bSeekAllowed, MediaArgs* pArgs,
               const ExtraOption& extra = {});

// A JSON string literal of UTF-8 text, quotes included.
std::string JsonText(const std::string& str);
const char* TypeName(eVCMediaType eType);
// Reference time in seconds ("1.040"), "unset" for the unset time.
std::string Seconds(LONGLONG rt);
// A time in the stream's own time base, in seconds.
std::string StreamSeconds(LONGLONG llTime, const K_RATIONAL& tb);
// Size, rate, aspect of video; sample rate and channels of audio.
std::string StreamDetails(const K_STREAM_INFO& info);

// A source opened through the splitter facade. The stream descriptions are
// copies without their codec data (the splitter's memory) and without the
// codec name string (kept as UTF-8 beside them).
struct Source {
  vc::ComPtr<IVCSplitter> cpSplitter;
  std::string strXml;
  LONG nStreams = 0;
  LONGLONG rtDuration = 0;
  struct Stream {
    K_STREAM_INFO info{};
    std::string strCodec;
    std::string strXml;
  };
  std::vector<Stream> vecStreams;
};

// Creates the splitter facade and opens the URL; prints why and returns false
// when it cannot.
bool OpenSource(const char* szCmd, const std::string& strUrl, Source* pSource);

// Every value under the "stat" node of an object's properties, named
// "stat::NAME"; empty when the object has no properties.
std::map<std::string, std::string> StatValues(IUnknown* pObject);

// One property of an object as UTF-8 ("" when absent); false when the object
// refuses to set one.
std::string PropText(IUnknown* pObject, const char* szName);
bool PropSet(IUnknown* pObject, const char* szName, const char* szValue);

bool StderrIsTerminal();
// Redraws the bar on stderr: the share done and what to say after it.
void DrawProgress(double dblDone, const std::string& strCounts);

}  // namespace vctool
