// The tool's commands; each returns the process exit code. Main thread.
#pragma once

#include <string>
#include <vector>

namespace vctool {

int CmdInfo();
int CmdRegister(bool bRegister, bool bPerUser);
int CmdProps(const std::vector<std::string>& args);
int CmdProbe(const std::vector<std::string>& args);
int CmdDemux(const std::vector<std::string>& args);
int CmdDecode(const std::vector<std::string>& args);
int CmdTranscode(const std::vector<std::string>& args);
// Makes a test file through the encoder and muxer facades.
int CmdSample(const std::vector<std::string>& args);

}  // namespace vctool
