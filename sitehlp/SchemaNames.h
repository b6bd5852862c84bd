// Schema names compared with the names the parsed tree holds, without
// decoding them: the names are ASCII, so a name of the tree equals one
// exactly when its UTF-8 bytes equal the name's (HasName's answer, with one
// read of the tree's name and plain byte comparisons).
#ifndef VLM_SITEHLP_SCHEMANAMES_H
#define VLM_SITEHLP_SCHEMANAMES_H

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "platform/AString.h"

namespace sitehlp {

// The UTF-8 forms of a fixed list of schema names, made once.
class NarrowNames {
 public:
  NarrowNames(const wchar_t* const* names, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) m_names.push_back(ACharString(names[i]));
  }
  std::size_t size() const { return m_names.size(); }
  // Index of utf8 in the list, or size() when it is none of them.
  std::size_t Find(const char* utf8) const {
    for (std::size_t i = 0; i < m_names.size(); ++i)
      if (utf8[0] == m_names[i][0] && std::strcmp(utf8, m_names[i].c_str()) == 0) return i;
    return m_names.size();
  }

 private:
  std::vector<std::string> m_names;
};

}  // namespace sitehlp

#endif  // VLM_SITEHLP_SCHEMANAMES_H
