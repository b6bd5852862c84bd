// What the tool shows of one site record in the site table. Passwords are
// never shown: only whether one is set.
#ifndef VLM_TOOLS_SITELIST_SITEVIEW_H
#define VLM_TOOLS_SITELIST_SITEVIEW_H

#include <string>

#include "sitehlp/SitesHelper.h"

namespace sitelist {

struct SiteView {
  std::string kind;     // HTTP, FTP, UNC, Local, Proxy
  std::string element;  // the site's element in the document
  std::string type;     // site type ("master", "repository", ...), may be empty
  std::string name;
  std::string server;   // host:port, a bare host (UNC), 127.0.0.1 (local)
  int order = 0;
  bool enabled = false;
  bool local = false;
  bool hasPassword = false;
};

SiteView ViewOf(const sitehlp::tag_Site& site);

// Whether the agent tries a site of order a before one of order b: by order,
// those without one (order 0: the fallback site, mirrors, the proxy) last.
bool TriedBefore(int a, int b);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_SITEVIEW_H
