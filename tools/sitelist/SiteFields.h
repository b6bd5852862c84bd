// Every field of a site record as the tool compares and reports it: what a
// diff shows changing, and what --json prints of a site. A password is shown
// only as whether it is set; its clear text is kept for comparison alone.
#ifndef VLM_TOOLS_SITELIST_SITEFIELDS_H
#define VLM_TOOLS_SITELIST_SITEFIELDS_H

#include <string>
#include <vector>

#include "Output.h"
#include "SiteView.h"
#include "sitehlp/SitesHelper.h"

namespace sitelist {

struct SiteField {
  std::string key;    // JSON name, e.g. "relativePath"
  std::string label;  // text label, e.g. "path"
  std::string text;   // shown value: "yes"/"no", decimal, text; "set" or "" for a password
  Json json;          // the same value typed; true/false for a password
  bool password = false;
  std::string secret;  // a password's clear text; compared, never printed

  bool SameValue(const SiteField& other) const;
};

// One site as read: matched across lists by element and name.
struct SiteRecord {
  std::string element;
  std::string name;
  SiteView view;
  std::vector<SiteField> fields;
};

SiteRecord RecordOf(const sitehlp::tag_Site& site);
// {"element", "name", then every field by its key}.
Json RecordJson(const SiteRecord& record);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_SITEFIELDS_H
