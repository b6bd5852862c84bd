// check through the site list's proxy, run as a process against a proxy and
// servers the tests start on 127.0.0.1: which sites go through it (proved by
// the proxy's log and the Via header the repository saw), its credentials,
// the system's proxy settings, and the transfer log of -v without passwords.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "CheckFixture.h"

namespace tooltest {
namespace {

const Row c_header{"Site", "Check", "Via", "Result", "ms", "Detail"};

class CheckProxy : public CheckTest {
 protected:
  ProxyConfig Proxy(const std::string& password) const {
    ProxyConfig p;
    p.httpServer = p.ftpServer = "proxy.test.example";
    p.httpPort = p.ftpPort = servers.proxy;
    p.exclusions = {"direct.test.example", "*.skip.test.example"};
    p.bypassLocal = true;
    p.user = "proxy-user";
    p.encryptedPassword = Encrypted(password);
    return p;
  }
  std::vector<std::string> ProxyPin() const { return Pin("proxy.test.example", servers.proxy); }
};

TEST_F(CheckProxy, CarriesSitesUnlessTheirHostIsExcludedOrLocal) {
  const unsigned int h = servers.http;
  WriteList(SpipeSite("Vantor_MasterSite", 1, "mgmt.test.example", h, servers.tls) +
            HttpSite("Proxied", 2, At("repo.test.example", h), "Updates") +
            HttpSite("Excluded", 3, At("direct.test.example", h), "Updates") +
            HttpSite("Wildcard", 4, At("a.skip.test.example", h), "Updates") +
            HttpSite("Intranet", 5, At("repohost", h), "Updates") +
            FtpSite("Ftp", 6, At("ftp.test.example", servers.ftp), "Updates", "ftp-user", Encrypted("ftp-pw")) +
            ProxyElement(Proxy("proxy-pw")),
            {TestCa()});
  // The proxied names are not pinned: only the proxy looks them up (and the
  // test proxy sends everything to 127.0.0.1).
  const ToolResult r = Check(Joined({ProxyPin(), Pin("direct.test.example", h), Pin("a.skip.test.example", h),
                                    Pin("repohost", h)}));
  EXPECT_EQ(r.exitStatus, 0) << r.err << r.out;
  const std::string via = "proxy " + At("proxy.test.example", servers.proxy);
  EXPECT_EQ(TableOf(r.out).rows,
            (std::vector<Row>{
                c_header,
                {"Vantor_MasterSite",
                 "TLS " + At("mgmt.test.example", servers.tls) + ", TCP " + At("mgmt.test.example", h), via, "ok",
                 "#", "TLS verified, issued by \"O = Check Tests, CN = Check Test CA\"; TCP connected"},
                {"Proxied", "HEAD http://" + At("repo.test.example", h) + "/Updates/", via, "ok", "#", "HTTP 200"},
                {"Excluded", "HEAD http://" + At("direct.test.example", h) + "/Updates/", "direct", "ok", "#",
                 "HTTP 200"},
                {"Wildcard", "HEAD http://" + At("a.skip.test.example", h) + "/Updates/", "direct", "ok", "#",
                 "HTTP 200"},
                {"Intranet", "HEAD http://" + At("repohost", h) + "/Updates/", "direct", "ok", "#", "HTTP 200"},
                {"Ftp", "FTP ftp://" + At("ftp.test.example", servers.ftp) + "/Updates/ as ftp-user", via, "ok", "#",
                 "logged in, changed to /Updates/"},
            }));
  // The credentials go with the first request; no excluded or local host
  // ever reaches the proxy.
  std::vector<std::string> proxied{"proxy CONNECT " + At("ftp.test.example", servers.ftp) + " auth=ok",
                                   "proxy CONNECT " + At("mgmt.test.example", h) + " auth=ok",
                                   "proxy CONNECT " + At("mgmt.test.example", servers.tls) + " auth=ok",
                                   "proxy HEAD http://" + At("repo.test.example", h) + "/Updates/ auth=ok"};
  std::sort(proxied.begin(), proxied.end());
  EXPECT_EQ(Logged("proxy"), proxied);
  EXPECT_EQ(Logged("http"),
            (std::vector<std::string>{"http HEAD /Updates/ host=" + At("a.skip.test.example", h) + " via=-",
                                      "http HEAD /Updates/ host=" + At("direct.test.example", h) + " via=-",
                                      "http HEAD /Updates/ host=" + At("repo.test.example", h) + " via=1.1 test-proxy",
                                      "http HEAD /Updates/ host=" + At("repohost", h) + " via=-"}));
}

TEST_F(CheckProxy, WrongProxyPasswordIsTheProxysRefusal) {
  WriteList(HttpSite("Proxied", 1, At("repo.test.example", servers.http), "Updates") +
            SpipeSite("Vantor_MasterSite", 2, "mgmt.test.example", servers.http, 0) +
            ProxyElement(Proxy("wrong")));
  const ToolResult r = Check(Joined({{"--json"}, ProxyPin()}));
  EXPECT_EQ(r.exitStatus, 1) << r.err;
  const Json sites = JsonOf(r.out).document["sites"];
  const std::string proxy = At("proxy.test.example", servers.proxy);
  EXPECT_EQ(sites, Json::parse(R"j([
    {"name": "Proxied", "element": "HttpSite", "check": "HEAD http://)j" + At("repo.test.example", servers.http) +
                                R"j(/Updates/", "via": "proxy", "proxy": ")j" + proxy + R"j(", "ok": false,
     "reason": "proxy", "detail": "the proxy refused the credentials (407)", "httpStatus": 407},
    {"name": "Vantor_MasterSite", "element": "SpipeSite", "check": "TCP )j" + At("mgmt.test.example", servers.http) +
                                R"j(", "via": "proxy", "proxy": ")j" + proxy + R"j(", "ok": false,
     "reason": "proxy", "detail": "the proxy answered 407 to CONNECT )j" + At("mgmt.test.example", servers.http) +
                                R"j("}])j"));
  EXPECT_EQ(Logged("http"), std::vector<std::string>{});
}

TEST_F(CheckProxy, SystemSettingsComeFromTheEnvironment) {
  ProxyConfig system;
  system.useSystemSettings = true;
  WriteList(HttpSite("Proxied", 1, At("repo.test.example", servers.http), "Updates") +
            HttpSite("Excluded", 2, At("a.direct.test.example", servers.http), "Updates") + ProxyElement(system));
  const std::string proxy = At("proxy.test.example", servers.proxy);
  const ToolResult r = RunWith({{"http_proxy", "http://proxy-user:proxy-pw@" + proxy + "/"},
                                {"no_proxy", "localhost, direct.test.example"}},
                               Joined({{"check", "--no-lookup"}, ProxyPin(),
                                      Pin("a.direct.test.example", servers.http)}));
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(TableOf(r.out).rows,
            (std::vector<Row>{
                c_header,
                {"Proxied", "HEAD http://" + At("repo.test.example", servers.http) + "/Updates/", "proxy " + proxy,
                 "ok", "#", "HTTP 200"},
                {"Excluded", "HEAD http://" + At("a.direct.test.example", servers.http) + "/Updates/", "direct", "ok",
                 "#", "HTTP 200"}}));
  EXPECT_EQ(Logged("http").size(), 2u);
  EXPECT_EQ(Logged("http")[0], "http HEAD /Updates/ host=" + At("a.direct.test.example", servers.http) + " via=-");
}

TEST_F(CheckProxy, WithoutAProxyConfigurationEnvironmentProxiesAreNotUsed) {
  WriteList(HttpSite("Repo", 1, At("repo.test.example", servers.http), "Updates"));
  const ToolResult r = RunWith({{"http_proxy", "http://" + At("proxy.test.example", servers.proxy)}},
                               Joined({{"check", "--no-lookup"}, Pin("repo.test.example", servers.http)}));
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(TableOf(r.out).rows[1][2], "direct");
  EXPECT_EQ(Logged("proxy"), std::vector<std::string>{});
}

TEST_F(CheckProxy, VerboseShowsTheTransferLogWithEveryPasswordMasked) {
  const unsigned int h = servers.http;
  WriteList(HttpSite("Private", 1, At("repo.test.example", h), "private/Updates", "http-user", Encrypted("http-pw")) +
            HttpSite("NoCredentials", 2, At("repo.test.example", h), "private/Updates") +
            FtpSite("Ftp", 3, At("ftp.test.example", servers.ftp), "Updates", "ftp-user", Encrypted("ftp-pw")) +
            ProxyElement(Proxy("proxy-pw")));
  const ToolResult r = Run(Joined({{"-v", "check", "--no-lookup", "--timeout", "10"}, ProxyPin(),
                                  Pin("ftp.test.example", servers.ftp)}));
  EXPECT_EQ(r.exitStatus, 1) << r.err;
  EXPECT_EQ(TableOf(r.out).rows,
            (std::vector<Row>{
                c_header,
                {"Private", "HEAD http://" + At("repo.test.example", h) + "/private/Updates/",
                 "proxy " + At("proxy.test.example", servers.proxy), "ok", "#", "HTTP 200"},
                {"NoCredentials", "HEAD http://" + At("repo.test.example", h) + "/private/Updates/",
                 "proxy " + At("proxy.test.example", servers.proxy), "failed", "#", "HTTP status: 401"},
                {"Ftp", "FTP ftp://" + At("ftp.test.example", servers.ftp) + "/Updates/ as ftp-user",
                 "proxy " + At("proxy.test.example", servers.proxy), "ok", "#", "logged in, changed to /Updates/"}}));
  // The log shows the exchanges, credentials masked.
  for (const std::string& line :
       {"Private > HEAD http://" + At("repo.test.example", h) + "/private/Updates/ HTTP/1.1",
        std::string("Private > Authorization: Basic ****"), std::string("Private > Proxy-Authorization: Basic ****"),
        std::string("Private < HTTP/1.0 200 OK"), std::string("NoCredentials < HTTP/1.0 401 Unauthorized"),
        std::string("Ftp > USER ftp-user"), std::string("Ftp > PASS ****"),
        std::string("Ftp < 250 \"/Updates\" is the current directory.")})
    EXPECT_NE(r.err.find("\n" + line + "\n"), std::string::npos) << line;
  // No password shows, neither as it is nor inside an authorisation header.
  for (const char* secret : {"http-pw", "ftp-pw", "proxy-pw", "aHR0cC11c2VyOmh0dHAtcHc", "cHJveHktdXNlcjpwcm94eS1wdw"})
    EXPECT_EQ(r.err.find(secret), std::string::npos) << secret;
  EXPECT_EQ(r.out.find("-pw"), std::string::npos);
}

}  // namespace
}  // namespace tooltest
