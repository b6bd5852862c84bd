#include "EditFixture.h"

#include <regex>
#include <stdexcept>

namespace tooltest {

std::string Normalized(const std::string& text) {
  static const std::regex stamp(R"(LocalVersion="\d{14}")");
  static const std::regex secret(R"((Password Encrypted="1">)[^<]+<)");
  return std::regex_replace(std::regex_replace(text, stamp, R"(LocalVersion="@STAMP@")"), secret, "$1@SECRET@<");
}

EditTest::EditTest() : m_original(FullList()) {
  testsupport::WriteFile(OwnList(), m_original);
  testsupport::WriteFile(Tmp("original.xml"), m_original);
}

Json EditTest::ChangesSinceStart() const {
  return Json::parse(MustRun({"diff", "--json", Tmp("original.xml"), OwnList()}));
}

std::string EditTest::MustRun(const std::vector<std::string>& args, const std::string& input) const {
  const ToolResult r = Run(args, input);
  if (r.exitStatus != 0) throw std::runtime_error("sitelist failed: " + r.err);
  return r.out;
}

}  // namespace tooltest
