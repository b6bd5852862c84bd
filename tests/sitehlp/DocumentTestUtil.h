// Comparing written site list documents whose passwords and version stamps
// differ from run to run.
#ifndef VLM_TESTS_SITEHLP_DOCUMENTTESTUTIL_H
#define VLM_TESTS_SITEHLP_DOCUMENTTESTUTIL_H

#include <regex>
#include <string>
#include <vector>

namespace sitedoc {

// Replaces the text of every element marked Encrypted="1" by "*" and returns
// the replaced texts in document order (the ciphertexts are random).
inline std::vector<std::string> MaskPasswords(std::string& text) {
  static const std::regex encrypted("<([A-Za-z]+) Encrypted=\"1\">([^<]*)</\\1>");
  std::vector<std::string> found;
  std::string out;
  std::size_t last = 0;
  for (auto it = std::sregex_iterator(text.begin(), text.end(), encrypted); it != std::sregex_iterator(); ++it) {
    const std::smatch& m = *it;
    out += text.substr(last, static_cast<std::size_t>(m.position(0)) - last);
    out += "<" + m[1].str() + " Encrypted=\"1\">*</" + m[1].str() + ">";
    found.push_back(m[2].str());
    last = static_cast<std::size_t>(m.position(0) + m.length(0));
  }
  out += text.substr(last);
  text = out;
  return found;
}

// Replaces the value of LocalVersion (and of GlobalVersion when it is the
// same stamp) by "STAMP" and returns the stamp; empty when there is none.
inline std::string MaskStamp(std::string& text) {
  static const std::regex local("LocalVersion=\"([0-9]{14})\"");
  std::smatch m;
  if (!std::regex_search(text, m, local)) return std::string();
  const std::string stamp = m[1].str();
  std::string::size_type at;
  while ((at = text.find("\"" + stamp + "\"")) != std::string::npos) text.replace(at + 1, stamp.size(), "STAMP");
  return stamp;
}

}  // namespace sitedoc

#endif  // VLM_TESTS_SITEHLP_DOCUMENTTESTUTIL_H
