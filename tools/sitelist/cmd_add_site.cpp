// sitelist add-site: a site the administrator defines, added to the agent's
// list (written with Local="1" unless --not-local).
#include <CLI/CLI.hpp>

#include <algorithm>
#include <climits>
#include <cwchar>
#include <memory>
#include <optional>
#include <string>
#include <tuple>

#include "Command.h"
#include "Context.h"
#include "EditableList.h"
#include "SiteInput.h"
#include "SiteKinds.h"
#include "xmlschema/sitelist.h"

namespace sitelist {
namespace {

struct AddOptions {
  std::string kind, name, server, path, type = "repository", user, share, domain;
  int order = 0;
  bool disabled = false, notLocal = false, passwordStdin = false;
  ChangeOptions change;
  // Filled by the checks.
  HostPort host;
  std::string password;
};

// What the kinds take: a server (a UNC share's without port), a share, a domain.
std::optional<InputError> CheckForKind(AddOptions& o) {
  const bool unc = o.kind == "unc", local = o.kind == "local";
  if (local && !o.server.empty()) return InputError{"--server: a local site's server is always 127.0.0.1"};
  if (!local && o.server.empty()) return InputError{"--server is required for --kind " + o.kind};
  if (local && o.path.empty()) return InputError{"--path (the repository's directory) is required for --kind local"};
  if (unc != !o.share.empty()) return InputError{unc ? "--share is required for --kind unc" : "--share is only for --kind unc"};
  if (!o.domain.empty() && !unc && !local) return InputError{"--domain is only for --kind unc or local"};
  if (!local) {
    if (auto e = ParseHostPort("--server", o.server, sitehlp::c_nameCapacity - 1, o.host)) return e;
    if (unc && o.host.port) return InputError{"--server: a UNC server takes no port"};
  }
  return std::nullopt;
}

std::optional<InputError> Check(AddOptions& o) {
  if (auto e = CheckLength("--name", o.name, sitehlp::c_nameCapacity - 1, true)) return e;
  if (auto e = CheckForKind(o)) return e;
  if (o.order != 0 && o.type != "repository")
    return InputError{"--order: a " + o.type + " site takes no order"};
  const unsigned int name = sitehlp::c_nameCapacity - 1;
  for (const auto& [what, value, max] : {std::tuple{"--path", &o.path, sitehlp::c_pathCapacity - 1},
                                         std::tuple{"--user", &o.user, name}, std::tuple{"--share", &o.share, name},
                                         std::tuple{"--domain", &o.domain, name}})
    if (auto e = CheckLength(what, *value, max)) return e;
  if (o.passwordStdin) return ReadPassword(o.password);
  return std::nullopt;
}

// One more than the highest order in the list, so that the new site is tried last.
int NextOrder(const EditableList& list) {
  int highest = 0;
  for (const sitehlp::tag_Site* site : list.Sites()) highest = std::max(highest, site->nOrder);
  return highest == INT_MAX ? INT_MAX : highest + 1;
}

void FillHttp(EditableList& list, sitehlp::tag_Site& site, const AddOptions& o) {
  sitehlp::tag_HttpSite& s = site.httpSite;
  list.Set(s.szSiteElement, sitehlp::c_nameCapacity, Narrow(FindKindName(o.kind)->element));
  site.bSpipeOrSuperAgent = o.kind == "superagent";
  list.Set(s.szName, sitehlp::c_nameCapacity, o.name);
  list.Set(s.szServer, sitehlp::c_nameCapacity, o.host.host);
  s.nPort = s.nServerIPPort = s.nServerNamePort = static_cast<int32_t>(o.host.port.value_or(sitehlp::c_defaultHttpPort));
  list.Set(s.szRelativePath, sitehlp::c_pathCapacity, o.path);
  s.nUseAuth = !o.user.empty();
  list.Set(s.szUserName, sitehlp::c_nameCapacity, o.user);
  list.Set(s.szPassword, sitehlp::c_nameCapacity, o.password);
}

void FillOther(EditableList& list, sitehlp::tag_Site& site, const AddOptions& o) {
  constexpr unsigned int n = sitehlp::c_nameCapacity, p = sitehlp::c_pathCapacity;
  if (o.kind == "ftp") {
    sitehlp::tag_FtpSite& s = site.ftpSite;
    list.Set(s.szName, n, o.name);
    list.Set(s.szServer, n, o.host.host);
    s.nPort = static_cast<int32_t>(o.host.port.value_or(21));
    list.Set(s.szRelativePath, p, o.path);
    list.Set(s.szUserName, n, o.user);
    list.Set(s.szPassword, n, o.password);
  } else if (o.kind == "unc") {
    sitehlp::tag_UncSite& s = site.uncSite;
    list.Set(s.szName, n, o.name);
    list.Set(s.szServer, n, o.host.host);
    list.Set(s.szShareName, n, o.share);
    list.Set(s.szRelativePath, p, o.path);
    list.Set(s.szDomainName, n, o.domain);
    list.Set(s.szUserName, n, o.user);
    list.Set(s.szPassword, n, o.password);
    s.nUseLoggedonUserAccount = o.user.empty();  // without a user, the agent's own account
  } else {
    sitehlp::tag_LocalSite& s = site.localSite;
    list.Set(s.szName, n, o.name);
    list.Set(s.szRelativePath, p, o.path);
    list.Set(s.szDomainName, n, o.domain);
    list.Set(s.szUserName, n, o.user);
    list.Set(s.szPassword, n, o.password);
    s.nUseLoggedonUserAccount = o.user.empty();
  }
}

EditResult Add(Context& ctx, EditableList& list, const AddOptions& o) {
  for (const sitehlp::tag_Site* site : list.Sites()) {
    if (wcscasecmp(Wide(NameOf(*site)).c_str(), Wide(o.name).c_str()) == 0)
      return {ctx.Fail("a site named \"" + NameOf(*site) + "\" (" + ElementOf(*site) + ") is already in " +
                       list.ShownFile() + "; site names are compared without regard to case")};
    if (o.type == "fallback" && IsFallback(*site))
      return {ctx.Fail(list.ShownFile() + " already has a fallback site, " + Described(*site) + "; remove it first")};
  }
  const int order = o.type == "repository" ? (o.order ? o.order : NextOrder(list)) : 0;
  sitehlp::tag_Site& site = list.Append();
  site.nSiteType = FindKindName(o.kind)->nSiteType;
  site.bEnabled = !o.disabled;
  site.bLocal = !o.notLocal;
  site.bMirror = o.type == "mirror";
  site.nOrder = order;
  list.Set(site.szType, sitehlp::c_nameCapacity, o.type);
  if (site.nSiteType == sitehlp::SITE_TYPE_HTTP)
    FillHttp(list, site, o);
  else
    FillOther(list, site, o);
  return {0, "added " + Described(site) + " to " + list.ShownFile(), ""};
}

int Run(Context& ctx, AddOptions& o) {
  if (auto error = Check(o)) return ctx.Fail(error->text, c_exitUsage);
  return RunEdit(ctx, o.change, [&](EditableList& list) { return Add(ctx, list, o); });
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto o = std::make_shared<AddOptions>();
  CLI::App* sub = app.add_subcommand("add-site", "Add a site of the administrator's own to the agent's site list");
  sub->add_option("--kind", o->kind, "http, superagent, ftp, unc or local")
      ->required()
      ->check(CLI::IsMember({"http", "superagent", "ftp", "unc", "local"}));
  sub->add_option("--name", o->name, "The site's name, unique without regard to case")->required();
  sub->add_option("--server", o->server, "HOST or HOST:PORT (HTTP 80 and FTP 21 by default; a UNC server takes no port)")
      ->type_name("HOST[:PORT]");
  sub->add_option("--path", o->path, "Path below the server; for a local site its directory")->type_name("REL");
  sub->add_option("--order", o->order, "Rank among the sites (default: after every other)")
      ->check(CLI::Range(1, INT_MAX))
      ->type_name("N");
  sub->add_option("--type", o->type, "repository (default), mirror or fallback")
      ->check(CLI::IsMember({"repository", "mirror", "fallback"}));
  sub->add_flag("--disabled", o->disabled, "Add the site disabled");
  sub->add_flag("--not-local", o->notLocal, "Write Local=\"0\" (the site counts as the server's, not the agent's)");
  CLI::Option* user = sub->add_option("--user", o->user, "User name for the site")->type_name("U");
  sub->add_flag("--password-stdin", o->passwordStdin, "Read the user's password from standard input")->needs(user);
  sub->add_option("--share", o->share, "Share name of a UNC site")->type_name("S");
  sub->add_option("--domain", o->domain, "Domain of a UNC or local site's user")->type_name("D");
  AddChangeOptions(*sub, o->change);
  sub->footer("Passwords are read only from standard input, never from an argument.\n"
              "Example:\n  sitelist add-site --kind http --name Branch --server repo.branch.example:8080 --path updates\n"
              "  printf '%s\\n' \"$PW\" | sitelist add-site --kind unc --name Share --server files.corp.example \\\n"
              "      --share updates --user svc-update --password-stdin");
  return {sub, [o, &ctx] { return Run(ctx, *o); }};
}

const Registration c_registration(72, &Setup);

}  // namespace
}  // namespace sitelist
