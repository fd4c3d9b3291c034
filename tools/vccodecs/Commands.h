// The tool's commands; each returns the process exit code. Main thread.
#pragma once

namespace vctool {

int CmdInfo();
int CmdRegister(bool bRegister, bool bPerUser);

}  // namespace vctool
