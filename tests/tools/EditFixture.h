// Shared by the tests of the commands that change a site list: the agent's
// list holds every kind of site (ToolTest::FullList), and helpers to look at
// what a command left on disk.
#ifndef VLM_TESTS_TOOLS_EDITFIXTURE_H
#define VLM_TESTS_TOOLS_EDITFIXTURE_H

#include <nlohmann/json.hpp>

#include <string>

#include "ToolFixture.h"

namespace tooltest {

using Json = nlohmann::ordered_json;

// The text with the writer's fresh local version stamp replaced by @STAMP@
// and every encrypted password text by @SECRET@ (encryption is salted, so
// the bytes differ from run to run while the passwords stay).
std::string Normalized(const std::string& text);

class EditTest : public ToolTest {
 protected:
  EditTest();

  // The agent's list as first written (FullList()).
  const std::string& Original() const { return m_original; }
  // `sitelist diff --json` of a copy of the original against the agent's list now.
  Json ChangesSinceStart() const;
  // A run that must succeed; its stdout.
  std::string MustRun(const std::vector<std::string>& args, const std::string& input = "") const;

 private:
  std::string m_original;
};

}  // namespace tooltest

#endif  // VLM_TESTS_TOOLS_EDITFIXTURE_H
