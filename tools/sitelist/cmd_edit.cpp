// sitelist edit NAME: changes the server, path, credentials, share or domain
// of one site of the agent's list.
#include <CLI/CLI.hpp>

#include <memory>
#include <string>

#include "Command.h"
#include "Context.h"
#include "EditableList.h"
#include "SiteFields.h"
#include "SiteInput.h"
#include "SiteKinds.h"

namespace sitelist {
namespace {

struct EditOptions {
  SiteChoice site;
  std::string server, path, user, share, domain;
  bool passwordStdin = false, clearPassword = false;
  ChangeOptions change;
  // Which value options were given (an empty value clears a field).
  CLI::Option *serverGiven = nullptr, *pathGiven = nullptr, *userGiven = nullptr, *shareGiven = nullptr,
              *domainGiven = nullptr;
  HostPort host;
  std::string password;
};

bool Given(const CLI::Option* option) { return option->count() > 0; }

std::optional<InputError> Check(EditOptions& o) {
  if (!Given(o.serverGiven) && !Given(o.pathGiven) && !Given(o.userGiven) && !Given(o.shareGiven) &&
      !Given(o.domainGiven) && !o.passwordStdin && !o.clearPassword)
    return InputError{"nothing to change: give --server, --path, --user, --password-stdin, --clear-password, "
                      "--share or --domain"};
  if (Given(o.serverGiven))
    if (auto e = ParseHostPort("--server", o.server, sitehlp::c_nameCapacity - 1, o.host)) return e;
  const unsigned int name = sitehlp::c_nameCapacity - 1;
  if (auto e = CheckLength("--path", o.path, sitehlp::c_pathCapacity - 1)) return e;
  if (auto e = CheckLength("--user", o.user, name)) return e;
  if (auto e = CheckLength("--share", o.share, name)) return e;
  if (auto e = CheckLength("--domain", o.domain, name)) return e;
  if (o.passwordStdin) return ReadPassword(o.password);
  return std::nullopt;
}

// What the options given ask of a site of this kind that it cannot have.
std::string Misfit(const sitehlp::tag_Site& site, const EditOptions& o) {
  const int kind = site.nSiteType;
  if (Given(o.serverGiven) && kind == sitehlp::SITE_TYPE_LOCAL) return "--server: a local site's server is always 127.0.0.1";
  if (Given(o.serverGiven) && kind == sitehlp::SITE_TYPE_UNC && o.host.port) return "--server: a UNC server takes no port";
  if (Given(o.shareGiven) && kind != sitehlp::SITE_TYPE_UNC) return "--share is only for UNC sites";
  if (Given(o.domainGiven) && kind != sitehlp::SITE_TYPE_UNC && kind != sitehlp::SITE_TYPE_LOCAL)
    return "--domain is only for UNC and local sites";
  return "";
}

// The fields every kind has in its own body: user, password, path.
struct Credentials {
  wchar_t* user;
  wchar_t* password;
  wchar_t* path;
};

Credentials CredentialsOf(sitehlp::tag_Site& site) {
  switch (site.nSiteType) {
    case sitehlp::SITE_TYPE_HTTP: return {site.httpSite.szUserName, site.httpSite.szPassword, site.httpSite.szRelativePath};
    case sitehlp::SITE_TYPE_FTP: return {site.ftpSite.szUserName, site.ftpSite.szPassword, site.ftpSite.szRelativePath};
    case sitehlp::SITE_TYPE_UNC: return {site.uncSite.szUserName, site.uncSite.szPassword, site.uncSite.szRelativePath};
    default: return {site.localSite.szUserName, site.localSite.szPassword, site.localSite.szRelativePath};
  }
}

void Apply(EditableList& list, sitehlp::tag_Site& site, const EditOptions& o) {
  constexpr unsigned int n = sitehlp::c_nameCapacity;
  const Credentials c = CredentialsOf(site);
  if (Given(o.pathGiven)) list.Set(c.path, sitehlp::c_pathCapacity, o.path);
  if (Given(o.userGiven)) list.Set(c.user, n, o.user);
  if (o.passwordStdin || o.clearPassword) list.Set(c.password, n, o.password);
  if (site.nSiteType == sitehlp::SITE_TYPE_HTTP) {
    if (Given(o.serverGiven)) list.Set(site.httpSite.szServer, n, o.host.host);
    if (o.host.port) site.httpSite.nPort = static_cast<int32_t>(*o.host.port);
    if (Given(o.userGiven)) site.httpSite.nUseAuth = !o.user.empty();
  } else if (site.nSiteType == sitehlp::SITE_TYPE_FTP) {
    if (Given(o.serverGiven)) list.Set(site.ftpSite.szServer, n, o.host.host);
    if (o.host.port) site.ftpSite.nPort = static_cast<int32_t>(*o.host.port);
  } else if (site.nSiteType == sitehlp::SITE_TYPE_UNC) {
    if (Given(o.serverGiven)) list.Set(site.uncSite.szServer, n, o.host.host);
    if (Given(o.shareGiven)) list.Set(site.uncSite.szShareName, n, o.share);
    if (Given(o.domainGiven)) list.Set(site.uncSite.szDomainName, n, o.domain);
    if (Given(o.userGiven)) site.uncSite.nUseLoggedonUserAccount = o.user.empty();
  } else {
    if (Given(o.domainGiven)) list.Set(site.localSite.szDomainName, n, o.domain);
    if (Given(o.userGiven)) site.localSite.nUseLoggedonUserAccount = o.user.empty();
  }
}

std::string ChangedLabels(const SiteRecord& before, const SiteRecord& after) {
  std::string labels;
  for (std::size_t i = 0; i < after.fields.size(); ++i)
    if (!before.fields[i].SameValue(after.fields[i])) labels += (labels.empty() ? "" : ", ") + after.fields[i].label;
  return labels;
}

EditResult Edit(Context& ctx, EditableList& list, const EditOptions& o) {
  int status = 0;
  sitehlp::tag_Site* site = list.Find(o.site, status);
  if (!site) return {status};
  const std::string described = Described(*site);
  if (IsSpipe(*site)) return {ctx.Fail(described + " is a SPIPE site; the management server is changed with set-server")};
  if (const std::string misfit = Misfit(*site, o); !misfit.empty()) return {ctx.Fail(misfit, c_exitUsage)};
  const SiteRecord before = RecordOf(*site);
  Apply(list, *site, o);
  return {0, "changed " + described + " in " + list.ShownFile() + ": " + ChangedLabels(before, RecordOf(*site)),
          described + " in " + list.ShownFile() + " already has these values; nothing to change"};
}

int Run(Context& ctx, EditOptions& o) {
  if (auto error = Check(o)) return ctx.Fail(error->text, c_exitUsage);
  return RunEdit(ctx, o.change, [&](EditableList& list) { return Edit(ctx, list, o); });
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto o = std::make_shared<EditOptions>();
  CLI::App* sub = app.add_subcommand("edit", "Change the server, path, credentials, share or domain of a site");
  AddSiteChoice(*sub, o->site);
  o->serverGiven = sub->add_option("--server", o->server, "HOST or HOST:PORT (without a port the port stays)")
                       ->type_name("HOST[:PORT]");
  o->pathGiven = sub->add_option("--path", o->path, "Path below the server; for a local site its directory")
                     ->type_name("REL");
  o->userGiven = sub->add_option("--user", o->user, "User name (\"\" removes it)")->type_name("U");
  CLI::Option* stdinPassword =
      sub->add_flag("--password-stdin", o->passwordStdin, "Read the new password from standard input");
  sub->add_flag("--clear-password", o->clearPassword, "Remove the password")->excludes(stdinPassword);
  o->shareGiven = sub->add_option("--share", o->share, "Share name of a UNC site")->type_name("S");
  o->domainGiven = sub->add_option("--domain", o->domain, "Domain of a UNC or local site's user")->type_name("D");
  AddChangeOptions(*sub, o->change);
  sub->footer("SPIPE sites are changed with set-server. Passwords are read only from standard input.\n"
              "Example:\n  sitelist edit Branch --server repo2.branch.example:8080\n"
              "  sitelist edit Share --user svc-update --password-stdin < /run/secrets/share-password");
  return {sub, [o, &ctx] { return Run(ctx, *o); }};
}

const Registration c_registration(77, &Setup);

}  // namespace
}  // namespace sitelist
