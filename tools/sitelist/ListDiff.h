// What differs between two site lists by meaning: versions, type, FIPS mode,
// policy settings, CA certificates (by fingerprint) and sites, matched by
// element and name. Passwords differ only as "changed", "set" or "cleared".
#ifndef VLM_TOOLS_SITELIST_LISTDIFF_H
#define VLM_TOOLS_SITELIST_LISTDIFF_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "ListState.h"

namespace sitelist {

struct ValueChange {
  std::string key;    // JSON name
  std::string label;  // text label
  std::string oldText, newText;
  Json oldJson, newJson;  // null where there was, or will be, no value
  std::string passwordChange;  // "changed", "set" or "cleared" for a password; else empty
};

struct SiteChange {
  std::string element, name;
  std::vector<ValueChange> fields;
};

// A file beside the list that a write adds, replaces or removes; its
// contents are never shown.
struct FileChange {
  std::string name;
  std::optional<std::size_t> oldSize, newSize;
};

struct ListDiff {
  std::string oldPath, newPath;
  bool oldExists = true, newExists = true;
  std::vector<ValueChange> list;  // global and local version, type, FIPS mode
  std::size_t oldCertificates = 0, newCertificates = 0;
  std::vector<std::string> certificatesAdded, certificatesRemoved;  // fingerprints
  std::vector<ValueChange> policies;  // key: the setting's name
  std::vector<SiteRecord> sitesRemoved, sitesAdded;
  std::vector<SiteChange> sitesChanged;
  std::vector<FileChange> files;

  bool Identical() const;
};

ListDiff DiffLists(const ListState& before, const ListState& after);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_LISTDIFF_H
