// Runs the sitelist tool as a child process with a given environment and
// standard input, collecting its exit status and both output streams.
#ifndef VLM_TESTS_TOOLS_TOOLPROCESS_H
#define VLM_TESTS_TOOLS_TOOLPROCESS_H

#include <map>
#include <string>
#include <vector>

namespace tooltest {

struct ToolResult {
  int exitStatus = -1;  // -1 when the child did not exit normally
  std::string out;
  std::string err;
};

// Runs the tool binary with args. The child's environment is exactly env,
// plus the sanitizer settings of this process when present.
ToolResult RunTool(const std::vector<std::string>& args, const std::map<std::string, std::string>& env,
                   const std::string& input = "");
// The same, run through a wrapper command (its argv before the tool's), for
// example setpriv to take capabilities away from the tool.
ToolResult RunToolThrough(const std::vector<std::string>& wrapper, const std::vector<std::string>& args,
                          const std::map<std::string, std::string>& env, const std::string& input = "");

}  // namespace tooltest

#endif  // VLM_TESTS_TOOLS_TOOLPROCESS_H
