// sitelist set-proxy: the proxy configuration of the agent's list, replaced
// whole by the one given, or removed with --none.
#include <CLI/CLI.hpp>

#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "Context.h"
#include "EditableList.h"
#include "SiteInput.h"
#include "SiteKinds.h"
#include "xmlschema/sitelist.h"

namespace sitelist {
namespace {

struct ProxyOptions {
  std::string http, ftp, user, name;
  std::vector<std::string> exclude;
  bool bypassLocal = false, passwordStdin = false, none = false;
  ChangeOptions change;
  // Filled by the checks.
  HostPort httpHost, ftpHost;
  std::string exclusions, password;
};

std::optional<InputError> CheckProxy(const char* what, const std::string& text, HostPort& out) {
  if (auto e = ParseHostPort(what, text, sitehlp::c_nameCapacity - 1, out)) return e;
  if (!out.port) return InputError{std::string(what) + ": give the proxy's port, HOST:PORT"};
  return std::nullopt;
}

std::optional<InputError> Check(ProxyOptions& o) {
  if (o.none) return std::nullopt;
  if (o.http.empty()) return InputError{"give --http HOST:PORT, or --none to remove the proxy"};
  if (auto e = CheckProxy("--http", o.http, o.httpHost)) return e;
  if (!o.ftp.empty())
    if (auto e = CheckProxy("--ftp", o.ftp, o.ftpHost)) return e;
  for (const std::string& host : o.exclude) {
    if (host.empty() || host.find(';') != std::string::npos)
      return InputError{"--exclude: \"" + host + "\" is no host name (empty, or holding ';')"};
    o.exclusions += (o.exclusions.empty() ? "" : ";") + host;
  }
  if (auto e = CheckLength("--exclude: the hosts joined with ';'", o.exclusions, sitehlp::c_exclusionListCapacity - 2))
    return e;
  if (auto e = CheckLength("--name", o.name, sitehlp::c_nameCapacity - 1)) return e;
  if (auto e = CheckLength("--user", o.user, sitehlp::c_nameCapacity - 1)) return e;
  if (o.passwordStdin) return ReadPassword(o.password);
  return std::nullopt;
}

void Fill(EditableList& list, sitehlp::tag_ProxySettings& p, const ProxyOptions& o, const std::string& name) {
  constexpr unsigned int n = sitehlp::c_nameCapacity;
  p = sitehlp::tag_ProxySettings{};
  list.Set(p.szName, n, name);
  list.Set(p.szHttpProxyServer, n, o.httpHost.host);
  p.nHttpProxyPort = static_cast<int32_t>(*o.httpHost.port);
  list.Set(p.szProxyKind, n, Narrow(ZEL_XML_SITELIST_HTTP_SITE));
  if (!o.ftp.empty()) {
    list.Set(p.szFtpProxyServer, n, o.ftpHost.host);
    p.nFtpProxyPort = static_cast<int32_t>(*o.ftpHost.port);
    list.Set(p.szProxyKind, n, Narrow(ZEL_XML_SITELIST_FTPHTTP_SITE));
  }
  p.bBypassLocalAddress = o.bypassLocal;
  p.nExclusionCount = static_cast<int32_t>(o.exclude.size());
  list.Set(p.szExclusionList, sitehlp::c_exclusionListCapacity, o.exclusions);
  // The credentials serve both proxies.
  p.bHttpUseAuth = !o.user.empty();
  list.Set(p.szHttpProxyUser, n, o.user);
  list.Set(p.szHttpProxyPassword, n, o.password);
  if (!o.ftp.empty()) {
    p.bFtpUseAuth = !o.user.empty();
    list.Set(p.szFtpProxyUser, n, o.user);
    list.Set(p.szFtpProxyPassword, n, o.password);
  }
}

EditResult SetProxy(EditableList& list, const ProxyOptions& o) {
  std::vector<sitehlp::tag_Site*> proxies = list.Proxies();
  const std::string file = list.ShownFile();
  if (o.none) {
    for (sitehlp::tag_Site* proxy : proxies) list.Remove(proxy);
    return {0, "removed the proxy from " + file, file + " has no proxy; nothing to change"};
  }
  // The first configuration is replaced in its place and keeps its name;
  // the reader would take further ones for other proxies.
  sitehlp::tag_Site& proxy = proxies.empty() ? list.Append() : *proxies.front();
  for (std::size_t i = 1; i < proxies.size(); ++i) list.Remove(proxies[i]);
  const std::string name = !o.name.empty() ? o.name : proxies.empty() ? "Proxy" : NameOf(proxy);
  proxy.nSiteType = sitehlp::SITE_TYPE_PROXY;
  Fill(list, proxy.proxySettings, o, name);
  std::string what = "HTTP proxy " + o.http + (o.ftp.empty() ? "" : ", FTP proxy " + o.ftp);
  return {0, "set the proxy of " + file + ": " + what, "the proxy of " + file + " is already so; nothing to change"};
}

int Run(Context& ctx, ProxyOptions& o) {
  if (auto error = Check(o)) return ctx.Fail(error->text, c_exitUsage);
  return RunEdit(ctx, o.change, [&](EditableList& list) { return SetProxy(list, o); });
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto o = std::make_shared<ProxyOptions>();
  CLI::App* sub = app.add_subcommand("set-proxy", "Set the proxy of the agent's site list, or remove it (--none)");
  std::vector<CLI::Option*> settings{
      sub->add_option("--http", o->http, "The HTTP proxy")->type_name("HOST:PORT"),
      sub->add_option("--ftp", o->ftp, "The FTP proxy")->type_name("HOST:PORT"),
      sub->add_option("--exclude", o->exclude, "A host reached without the proxy (repeatable)")->type_name("HOST"),
      sub->add_flag("--bypass-local", o->bypassLocal, "Reach local addresses without the proxy"),
      sub->add_option("--name", o->name, "Name of the configuration (default: the current one's, else Proxy)")};
  CLI::Option* user = sub->add_option("--user", o->user, "User name for the proxies")->type_name("U");
  settings.push_back(user);
  settings.push_back(
      sub->add_flag("--password-stdin", o->passwordStdin, "Read the user's password from standard input")->needs(user));
  CLI::Option* none = sub->add_flag("--none", o->none, "Remove the proxy configuration");
  for (CLI::Option* setting : settings) none->excludes(setting);
  AddChangeOptions(*sub, o->change);
  sub->footer("Replaces the whole proxy configuration: what is not given is not kept.\n"
              "Example:\n  sitelist set-proxy --http proxy.corp.example:3128 --exclude mgmt.corp.example --bypass-local\n"
              "  sitelist set-proxy --none");
  return {sub, [o, &ctx] { return Run(ctx, *o); }};
}

const Registration c_registration(78, &Setup);

}  // namespace
}  // namespace sitelist
