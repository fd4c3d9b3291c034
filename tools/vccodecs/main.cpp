// vccodecs: command-line front end of Corvane Codecs Core.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Commands.h"
#include "VCPlatform.h"

namespace {

void Usage() {
  std::printf(
      "usage: vccodecs COMMAND [options]\n"
      "  info                     module path and version, the classes and their registration\n"
      "  register [--user]        register the module machine-wide or for the current user\n"
      "  unregister [--user]      remove what register wrote\n"
      "  props CLASS              list the properties of splitter, decoder, encoder or muxer\n"
      "  props CLASS NAME=VALUE.. set properties and show what reads back\n"
      "  probe URL [--json]       streams, duration and descriptions of a file or network source\n"
      "  demux URL [--json] [--seek SECONDS]\n"
      "                           every packet through the splitter, per stream, with its statistics\n"
      "  decode URL [--json] [--seek SECONDS] [--streams LIST] [--no-fallback]\n"
      "                           every video and audio stream (or those listed: 0,2) through the\n"
      "                           decoder, per stream frames, samples, times, breaks and statistics\n"
      "  transcode IN OUT [--vcodec NAME] [--acodec NAME] [--vbitrate RATE] [--abitrate RATE]\n"
      "            [--preset NAME] [--size WxH] [--rate FPS] [--streams LIST] [--props \"name=value ..\"]\n"
      "            [--split SECONDS] [--report FILE.html] [--json]\n"
      "                           every video and audio stream (or those listed) decoded and encoded\n"
      "                           again (NAME copy: packets as they are) into OUT; RATE takes k and M\n"
      "  sample OUT [--duration S] [--size WxH] [--rate FPS]\n"
      "                           a test file (moving picture with a frame counter, 440 Hz tone) through\n"
      "                           the encoder and muxer: H.264/AAC, VP9/Opus for .webm (10 s, 1280x720, 25)\n");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || !std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h") || !std::strcmp(argv[1], "help")) {
    Usage();
    return argc < 2 ? 1 : 0;
  }
  const std::string strCmd = argv[1];
  const bool bMedia = strCmd == "probe" || strCmd == "demux" || strCmd == "decode" || strCmd == "transcode" ||
                      strCmd == "sample";
  if (bMedia && !std::getenv("CORVANE_LOG_LEVEL")) {
    // The media commands report failures themselves; the modules' own lines
    // (end of file arrives as a failed read) would only interleave with the
    // dump. CORVANE_LOG_LEVEL brings them back.
#if defined(_WIN32)
    _putenv_s("CORVANE_LOG_LEVEL", "off");
#else
    setenv("CORVANE_LOG_LEVEL", "off", 0);
#endif
  }
  CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  if (strCmd == "props" || bMedia) {
    const std::vector<std::string> args(argv + 2, argv + argc);
    const int rc = strCmd == "props"   ? vctool::CmdProps(args)
                   : strCmd == "probe" ? vctool::CmdProbe(args)
                   : strCmd == "demux" ? vctool::CmdDemux(args)
                   : strCmd == "decode" ? vctool::CmdDecode(args)
                   : strCmd == "sample" ? vctool::CmdSample(args)
                                        : vctool::CmdTranscode(args);
    CoUninitialize();
    return rc;
  }
  bool bUser = false;
  for (int i = 2; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--user")) {
      bUser = true;
    } else {
      std::fprintf(stderr, "vccodecs %s: unknown option %s\n", strCmd.c_str(), argv[i]);
      return 1;
    }
  }
  int rc;
  if (strCmd == "info") {
    rc = vctool::CmdInfo();
  } else if (strCmd == "register" || strCmd == "unregister") {
    rc = vctool::CmdRegister(strCmd == "register", bUser);
  } else {
    std::fprintf(stderr, "vccodecs: unknown command '%s'\n", strCmd.c_str());
    Usage();
    rc = 1;
  }
  CoUninitialize();
  return rc;
}
