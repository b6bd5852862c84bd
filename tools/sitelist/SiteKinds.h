// What the tool needs to know about a site record: its element, its name,
// and whether it is the management server's SPIPE site or the fallback site.
#ifndef VLM_TOOLS_SITELIST_SITEKINDS_H
#define VLM_TOOLS_SITELIST_SITEKINDS_H

#include <string>

#include "sitehlp/SitesHelper.h"

namespace sitelist {

// The element the writer emits for the record: "HttpSite" (also for a kind 0
// record without an element name), "SpipeSite", "SuperAgentSite",
// "FTPSite", "UNCSite", "LocalSite", "ProxyConfig"; "?" for an unknown kind.
std::string ElementOf(const sitehlp::tag_Site& site);
// The record's name field.
std::string NameOf(const sitehlp::tag_Site& site);
// "Element "name"", as messages name a site.
std::string Described(const sitehlp::tag_Site& site);
// The name field itself, for writing.
wchar_t* NameField(sitehlp::tag_Site& site);

bool IsSpipe(const sitehlp::tag_Site& site);
bool IsFallback(const sitehlp::tag_Site& site);
bool IsMirror(const sitehlp::tag_Site& site);
bool IsProxy(const sitehlp::tag_Site& site);

// Site type texts the tool writes.
extern const wchar_t c_typeFallback[];

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_SITEKINDS_H
