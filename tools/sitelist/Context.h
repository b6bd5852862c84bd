// State shared by the commands of one run: the global options, the library's
// configuration taken from them, and the helper object.
#ifndef VLM_TOOLS_SITELIST_CONTEXT_H
#define VLM_TOOLS_SITELIST_CONTEXT_H

#include <memory>
#include <string>

#include "sitehlp/SitesHelper.h"

namespace sitelist {

struct GlobalOptions {
  std::string dataDir;   // --data-dir
  std::string siteList;  // --site-list
  bool managed = false;    // --managed
  bool unmanaged = false;  // --unmanaged
  bool verbose = false;    // -v
};

class Context {
 public:
  GlobalOptions options;

  // Name of the chosen command, for the prefix of error lines.
  void SetCommand(const std::string& name) { m_command = name; }

  // Makes sure the library logs at least information lines (rule failures,
  // warnings) for this run; a no-op with -v. Must come before Helper().
  void WantInformationLines();

  // The helper for the agent's own list (or --site-list), made on first use,
  // after the configuration has been put into the environment.
  sitehlp::CSitesHelper& Helper();

  // Whether the agent counts as managed: the override, else the configuration.
  bool Managed() { return Helper().IsOrxManaged(); }

  // Prints "sitelist <command>: <meaning> (<code>)" on stderr; returns 1.
  int FailCode(int code) const;
  // Prints "sitelist <command>: <text>" on stderr; returns 1.
  int Fail(const std::string& text) const;

 private:
  void ApplyEnvironment();

  std::string m_command;
  bool m_bEnvironmentApplied = false;
  std::unique_ptr<sitehlp::CSitesHelper> m_helper;
};

// UTF-8 text of a wide string, and back.
std::string Narrow(const std::wstring& text);
std::wstring Wide(const std::string& text);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_CONTEXT_H
