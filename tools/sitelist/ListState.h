// The meaning of a site list file, as the library reads it: versions, type,
// FIPS mode, CA certificates, policy settings and sites. What show prints
// and what diff compares.
#ifndef VLM_TOOLS_SITELIST_LISTSTATE_H
#define VLM_TOOLS_SITELIST_LISTSTATE_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "SiteFields.h"

namespace sitelist {

class Context;

struct CertificateView {
  std::string text;
  std::string sha256;
};

struct ListState {
  std::string path;
  bool exists = false;
  std::string globalVersion, localVersion, type;
  std::optional<std::string> fipsMode;  // absent when the root carries no FipsMode
  std::vector<CertificateView> certificates;
  std::map<std::string, std::string> policies;
  std::vector<SiteRecord> sites;  // in document order
};

// Reads path through the library, with a helper of its own (policy settings
// accumulate in a helper). Returns 0 (a missing file too: exists stays
// false), or the code of the query that failed. A list whose last element
// gave no site body (-1 from the reader) counts as read: its records are
// complete.
int ReadListState(Context& ctx, const std::string& path, ListState& state);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_LISTSTATE_H
