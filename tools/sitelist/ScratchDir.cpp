#include "ScratchDir.h"

#include <stdlib.h>

#include <filesystem>

namespace sitelist {

ScratchDir::ScratchDir(const char* purpose) {
  const char* tmp = std::getenv("TMPDIR");
  std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/sitelist-" + purpose + ".XXXXXX";
  if (mkdtemp(pattern.data())) m_path = pattern;
}

ScratchDir::~ScratchDir() {
  std::error_code ec;
  if (!m_path.empty()) std::filesystem::remove_all(m_path, ec);
}

}  // namespace sitelist
