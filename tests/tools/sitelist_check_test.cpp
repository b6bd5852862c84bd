// check, run as a process against servers the tests start on 127.0.0.1:
// every kind of site, the failures an administrator meets (a name not
// resolved, a refused connection, a server that never answers, a certificate
// from another CA, a wrong FTP password, a missing path), the order of the
// sites and the time check takes.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <sstream>
#include <string>

#include "CheckFixture.h"

namespace tooltest {
namespace {

using testsupport::WriteFile;

const Row c_header{"Site", "Check", "Via", "Result", "ms", "Detail"};

TEST_F(CheckTest, HttpSitesAnswerAHeadOfTheirPathWithTheStatus) {
  const unsigned int h = servers.http;
  WriteList(HttpSite("Repo", 1, At("repo.test.example", h), "Updates") +
            HttpSite("Gone", 2, At("repo.test.example", h), "Nope\\Deeper"));
  const ToolResult r = Check(Pin("repo.test.example", h));
  EXPECT_EQ(r.exitStatus, 1) << r.err;
  EXPECT_EQ(r.err, "");
  const CheckTable table = TableOf(r.out);
  EXPECT_EQ(table.rows, (std::vector<Row>{
                            c_header,
                            {"Repo", "HEAD http://" + At("repo.test.example", h) + "/Updates/", "direct", "ok", "#",
                             "HTTP 200"},
                            {"Gone", "HEAD http://" + At("repo.test.example", h) + "/Nope/Deeper/", "direct", "failed",
                             "#", "HTTP status: 404"},
                        }));
  EXPECT_EQ(table.summary, "checked 2 sites: 1 ok, 1 failed");
  const std::string host = " host=" + At("repo.test.example", h) + " via=-";
  EXPECT_EQ(Logged("http"), (std::vector<std::string>{"http HEAD /Nope/Deeper/" + host, "http HEAD /Updates/" + host}));
}

TEST_F(CheckTest, TableColumnsAlignAndEveryPassingListExitsZero) {
  const unsigned int h = servers.http;
  WriteList(HttpSite("Repository-with-a-long-name", 1, At("repo.test.example", h), "Updates") +
            LocalSite("Cache", 2, WwwRoot()));
  const ToolResult r = Check(Pin("repo.test.example", h));
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  std::istringstream lines(r.out);
  std::string header, first, second;
  std::getline(lines, header);
  std::getline(lines, first);
  std::getline(lines, second);
  // Each column starts where its heading does.
  for (const char* heading : {"Check", "Via", "Result", "ms", "Detail"}) {
    const std::size_t at = header.find(heading);
    EXPECT_EQ(first.substr(at - 2, 2), "  ") << heading << "\n" << r.out;
    EXPECT_EQ(second.substr(at - 2, 2), "  ") << heading << "\n" << r.out;
    EXPECT_NE(first[at], ' ') << heading << "\n" << r.out;
    EXPECT_NE(second[at], ' ') << heading << "\n" << r.out;
  }
  EXPECT_EQ(TableOf(r.out).summary, "checked 2 sites: 2 ok, 0 failed");
}

TEST_F(CheckTest, JsonGivesEveryEnabledSiteInTheOrderTheAgentTriesThem) {
  const unsigned int h = servers.http;
  WriteList(HttpSite("Third", 3, At("repo.test.example", h), "Updates") +
            HttpSite("Off", 1, At("repo.test.example", h), "Updates", "", "", false) +
            LocalSite("Unordered", 0, WwwRoot() + "/Updates") +
            HttpSite("First", 1, At("repo.test.example", h), "Software") +
            LocalSite("Missing", 2, Tmp("no-such-dir")));
  const ToolResult r = Check(Joined({{"--json"}, Pin("repo.test.example", h)}));
  EXPECT_EQ(r.exitStatus, 1) << r.err;
  EXPECT_EQ(r.err, "");
  const CheckJson json = JsonOf(r.out);
  const std::string repo = "http://" + At("repo.test.example", h);
  EXPECT_EQ(json.document, Json::parse(R"({"path": ")" + OwnList() + R"(", "sites": [
    {"name": "First", "element": "HttpSite", "check": "HEAD )" + repo + R"(/Software/", "via": "direct",
     "proxy": null, "ok": true, "reason": null, "detail": "HTTP 200", "httpStatus": 200},
    {"name": "Missing", "element": "LocalSite", "check": "read )" + Tmp("no-such-dir") + R"(", "via": "local",
     "proxy": null, "ok": false, "reason": "no such path", "detail": ")" + Tmp("no-such-dir") +
                                              R"(: No such file or directory"},
    {"name": "Third", "element": "HttpSite", "check": "HEAD )" + repo + R"(/Updates/", "via": "direct",
     "proxy": null, "ok": true, "reason": null, "detail": "HTTP 200", "httpStatus": 200},
    {"name": "Unordered", "element": "LocalSite", "check": "read )" + WwwRoot() + R"(/Updates", "via": "local",
     "proxy": null, "ok": true, "reason": null, "detail": "a readable directory"}]})"));
  for (long ms : json.ms) EXPECT_GE(ms, 0);
}

TEST_F(CheckTest, NamedSitesAreCheckedEvenWhenDisabledAndAnUnknownNameFails) {
  const unsigned int h = servers.http;
  WriteList(HttpSite("Off", 1, At("repo.test.example", h), "Updates", "", "", false) +
            LocalSite("Cache", 2, Tmp("nowhere")));
  ToolResult r = Check(Joined({{"off"}, Pin("repo.test.example", h)}));
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(TableOf(r.out).rows,
            (std::vector<Row>{c_header,
                              {"Off", "HEAD http://" + At("repo.test.example", h) + "/Updates/", "direct", "ok", "#",
                               "HTTP 200"}}));
  r = Check({"Nope"});
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "sitelist check: no site is named \"Nope\" in " + OwnList() +
                       "; the sites there: HttpSite \"Off\", LocalSite \"Cache\"\n");
}

TEST_F(CheckTest, AListWithNothingEnabledHasNothingToCheck) {
  WriteList(HttpSite("Off", 1, "repo.test.example:80", "Updates", "", "", false));
  ToolResult r = Check({});
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(r.out, "no enabled site to check in " + OwnList() + "\n");
  r = Check({"--json"});
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(Json::parse(r.out), Json::parse(R"({"path": ")" + OwnList() + R"(", "sites": []})"));
}

TEST_F(CheckTest, ManagementServerHandshakeIsVerifiedAgainstTheListsOwnCertificates) {
  WriteList(SpipeSite("Vantor_MasterSite", 1, "mgmt.test.example", servers.http, servers.tls),
            {"CERT-ONE", TestCa()});
  const ToolResult r = Check(Joined({{"--json"}, Pin("mgmt.test.example", servers.tls),
                                    Pin("mgmt.test.example", servers.http)}));
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(JsonOf(r.out).document["sites"], Json::parse(R"([{"name": "Vantor_MasterSite", "element": "SpipeSite",
    "check": "TLS )" + At("mgmt.test.example", servers.tls) + ", TCP " + At("mgmt.test.example", servers.http) + R"(",
    "via": "direct", "proxy": null, "ok": true, "reason": null,
    "detail": "TLS verified, issued by \"O = Check Tests, CN = Check Test CA\"; TCP connected"}])"));
}

TEST_F(CheckTest, CertificateFromAnotherCaFailsVerificationNamingWhatTheServerSent) {
  WriteList(SpipeSite("Vantor_MasterSite", 1, "mgmt.test.example", servers.http, servers.tlsOther), {TestCa()});
  const ToolResult r = Check(Joined({{"--json"}, Pin("mgmt.test.example", servers.tlsOther),
                                    Pin("mgmt.test.example", servers.http)}));
  EXPECT_EQ(r.exitStatus, 1) << r.err;
  EXPECT_EQ(JsonOf(r.out).document["sites"][0], Json::parse(R"({"name": "Vantor_MasterSite", "element": "SpipeSite",
    "check": "TLS )" + At("mgmt.test.example", servers.tlsOther) + ", TCP " + At("mgmt.test.example", servers.http) + R"(",
    "via": "direct", "proxy": null, "ok": false, "reason": "TLS verification",
    "detail": "unable to get local issuer certificate; the server sent \"O = Check Tests, CN = mgmt.test.example\", issued by \"O = Elsewhere, CN = Other Test CA\"",
    "certificate": {"subject": "O = Check Tests, CN = mgmt.test.example", "issuer": "O = Elsewhere, CN = Other Test CA"}})"));
}

TEST_F(CheckTest, ListWithoutCaCertificatesTrustsNoServer) {
  // Its plain port is closed too: both failures are reported, the first one's
  // reason for the site.
  WriteList(SpipeSite("Vantor_MasterSite", 1, "mgmt.test.example", servers.closed, servers.tls));
  const ToolResult r = Check(Joined({Pin("mgmt.test.example", servers.tls), Pin("mgmt.test.example", servers.closed)}));
  EXPECT_EQ(r.exitStatus, 1) << r.err;
  EXPECT_EQ(TableOf(r.out).rows[1],
            (Row{"Vantor_MasterSite",
                 "TLS " + At("mgmt.test.example", servers.tls) + ", TCP " + At("mgmt.test.example", servers.closed),
                 "direct", "failed", "#",
                 "TLS verification: unable to get local issuer certificate (the site list holds no CA certificate); "
                 "the server sent \"O = Check Tests, CN = mgmt.test.example\", issued by \"O = Check Tests, CN = "
                 "Check Test CA\"; TCP: refused: " +
                     At("mgmt.test.example", servers.closed) + " refused the connection"}));
}

TEST_F(CheckTest, ManagementServerWithoutSecurePortIsCheckedOnItsPlainPort) {
  WriteList(SpipeSite("Vantor_MasterSite", 1, "mgmt.test.example", servers.http, 0));
  const ToolResult r = Check(Pin("mgmt.test.example", servers.http));
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(TableOf(r.out).rows[1], (Row{"Vantor_MasterSite", "TCP " + At("mgmt.test.example", servers.http),
                                         "direct", "ok", "#", "connected"}));
}

TEST_F(CheckTest, FtpSiteLogsInWithTheDecryptedPasswordAndChangesToThePath) {
  const std::string ftp = At("ftp.test.example", servers.ftp);
  WriteList(FtpSite("Ftp", 1, ftp, "Updates", "ftp-user", Encrypted("ftp-pw")) +
            FtpSite("WrongPassword", 2, ftp, "Updates", "ftp-user", Encrypted("not-it")) +
            FtpSite("NoPath", 3, ftp, "Nope", "ftp-user", Encrypted("ftp-pw")));
  const ToolResult r = Check(Pin("ftp.test.example", servers.ftp));
  EXPECT_EQ(r.exitStatus, 1) << r.err;
  EXPECT_EQ(TableOf(r.out).rows,
            (std::vector<Row>{
                c_header,
                {"Ftp", "FTP ftp://" + ftp + "/Updates/ as ftp-user", "direct", "ok", "#",
                 "logged in, changed to /Updates/"},
                {"WrongPassword", "FTP ftp://" + ftp + "/Updates/ as ftp-user", "direct", "failed", "#",
                 "FTP login: the server answered 530 to the login of ftp-user"},
                {"NoPath", "FTP ftp://" + ftp + "/Nope/ as ftp-user", "direct", "failed", "#",
                 "FTP path: the server answered 550 to the change to /Nope/"},
            }));
  EXPECT_EQ(r.out.find("ftp-pw"), std::string::npos);
}

TEST_F(CheckTest, ClosedPortIsRefusedForEveryKindOfConnection) {
  const unsigned int c = servers.closed;
  WriteList(HttpSite("Repo", 1, At("repo.test.example", c), "Updates") + UncSite("Share", 2, "files.test.example"));
  const ToolResult r = Check(Joined({Pin("repo.test.example", c), {"--connect-to", "files.test.example:445:127.0.0.1:" +
                                                                                        std::to_string(c)}}));
  EXPECT_EQ(r.exitStatus, 1) << r.err;
  EXPECT_EQ(TableOf(r.out).rows,
            (std::vector<Row>{c_header,
                              {"Repo", "HEAD http://" + At("repo.test.example", c) + "/Updates/", "direct", "failed",
                               "#", "refused: " + At("repo.test.example", c) + " refused the connection"},
                              {"Share", "TCP files.test.example:445", "direct", "failed", "#",
                               "refused: files.test.example:445 refused the connection"}}));
}

TEST_F(CheckTest, UncSiteAnswersOnTheSmbPortItsNameIsSentTo) {
  WriteList(UncSite("Share", 1, "\\\\files.test.example"));
  const ToolResult r = Check({"--connect-to", "files.test.example:445:127.0.0.1:" + std::to_string(servers.http)});
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(TableOf(r.out).rows[1], (Row{"Share", "TCP files.test.example:445", "direct", "ok", "#", "connected"}));
}

TEST_F(CheckTest, NamesThatNoResolvePinsAreNotLookedUp) {
  WriteList(HttpSite("Repo", 1, "repo.test.example:8080", "Updates") + UncSite("Share", 2, "files.test.example") +
            SpipeSite("Vantor_MasterSite", 3, "mgmt.test.example", 80, 443) +
            ProxyElement({"proxy.test.example", 3128, "", 0, {"files.test.example", "mgmt.test.example"}, false, "",
                          ""}));
  // --connect-to, as curl's, sends connections to sites elsewhere, not the
  // connection to the proxy: its name still needs a look-up.
  const ToolResult r = Check({"--connect-to", "proxy.test.example:3128:127.0.0.1:" + std::to_string(servers.proxy)});
  EXPECT_EQ(r.exitStatus, 1) << r.err;
  const std::string forbidden = " is not pinned with --resolve (--no-lookup)";
  // The management server's two ports fail alike: said once.
  EXPECT_EQ(TableOf(r.out).rows,
            (std::vector<Row>{c_header,
                              {"Repo", "HEAD http://repo.test.example:8080/Updates/", "proxy proxy.test.example:3128",
                               "failed", "#", "name not resolved: the proxy proxy.test.example" + forbidden},
                              {"Share", "TCP files.test.example:445", "direct", "failed", "#",
                               "name not resolved: files.test.example" + forbidden},
                              {"Vantor_MasterSite", "TLS mgmt.test.example:443, TCP mgmt.test.example:80", "direct",
                               "failed", "#", "name not resolved: mgmt.test.example" + forbidden}}));
}

TEST_F(CheckTest, ServerThatNeverAnswersTimesOutWithinTheTimeout) {
  const unsigned int s = servers.silent;
  WriteList(HttpSite("Repo", 1, At("repo.test.example", s), "Updates") +
            SpipeSite("Vantor_MasterSite", 2, "mgmt.test.example", servers.http, s));
  const auto start = std::chrono::steady_clock::now();
  const ToolResult r = Run(Joined({{"check", "--no-lookup", "--timeout", "0.3", "--json"}, Pin("repo.test.example", s),
                                  Pin("mgmt.test.example", s), Pin("mgmt.test.example", servers.http)}));
  const auto elapsed = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(r.exitStatus, 1) << r.err;
  const CheckJson json = JsonOf(r.out);
  const std::string within = ", no answer within 300 ms";
  EXPECT_EQ(json.document["sites"][0]["reason"], "timed out");
  EXPECT_EQ(json.document["sites"][0]["detail"], "connected to " + At("repo.test.example", s) + within);
  EXPECT_EQ(json.document["sites"][1]["reason"], "timed out");
  EXPECT_EQ(json.document["sites"][1]["detail"], "connected to " + At("mgmt.test.example", s) + within);
  // Curl's timer and the tool's clock may differ by a millisecond or two.
  for (long ms : json.ms) {
    EXPECT_GE(ms, 295);
    EXPECT_LT(ms, 2000);
  }
  EXPECT_LT(elapsed, std::chrono::milliseconds(4000));
}

TEST_F(CheckTest, SitesAreCheckedAtOnceSoManyTakeAboutAsLongAsTheSlowest) {
  // Twenty sites that never answer, 0.5 s each: one after another they would
  // take ten seconds.
  std::string sites;
  for (int i = 1; i <= 20; ++i) sites += HttpSite("Slow" + std::to_string(i), i, At("127.0.0.1", servers.silent), "x");
  WriteList(sites);
  const auto start = std::chrono::steady_clock::now();
  const ToolResult r = Run({"check", "--no-lookup", "--timeout", "0.5", "--json"});
  const auto elapsed = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(r.exitStatus, 1) << r.err;
  const CheckJson json = JsonOf(r.out);
  ASSERT_EQ(json.document["sites"].size(), 20u);
  for (const Json& site : json.document["sites"]) EXPECT_EQ(site["reason"], "timed out");
  EXPECT_LT(elapsed, std::chrono::milliseconds(4000));
}

TEST_F(CheckTest, LocalSiteNeedsAPathThatCanBeRead) {
  WriteFile(Tmp("catalog.z"), "catalog");
  ASSERT_EQ(mkfifo(Tmp("pipe").c_str(), 0600), 0);
  WriteList(LocalSite("Dir", 1, WwwRoot()) + LocalSite("File", 2, Tmp("catalog.z")) +
            LocalSite("Gone", 3, Tmp("gone")) + LocalSite("Pipe", 4, Tmp("pipe")));
  const ToolResult r = Check({});
  EXPECT_EQ(r.exitStatus, 1) << r.err;
  EXPECT_EQ(TableOf(r.out).rows,
            (std::vector<Row>{c_header,
                              {"Dir", "read " + WwwRoot(), "local", "ok", "#", "a readable directory"},
                              {"File", "read " + Tmp("catalog.z"), "local", "ok", "#", "a readable file"},
                              {"Gone", "read " + Tmp("gone"), "local", "failed", "#",
                               "no such path: " + Tmp("gone") + ": No such file or directory"},
                              {"Pipe", "read " + Tmp("pipe"), "local", "failed", "#",
                               "not readable: " + Tmp("pipe") + ": neither a directory nor a file"}}));
}

TEST_F(CheckTest, RefusesMalformedPinsAndTimeouts) {
  WriteList(LocalSite("Dir", 1, WwwRoot()));
  struct Case {
    std::vector<std::string> args;
    std::string err;
  };
  const Case cases[] = {
      {{"--resolve", "repo.test.example:80"}, "--resolve: \"repo.test.example:80\" is not HOST:PORT:..."},
      {{"--resolve", "repo.test.example:80:not-an-address"},
       "--resolve: \"not-an-address\" in \"repo.test.example:80:not-an-address\" is not an IPv4 or IPv6 address"},
      {{"--resolve", "repo.test.example:99999:127.0.0.1"},
       "--resolve: the port 99999 is not a number from 1 to 65535"},
      {{"--connect-to", "files.test.example:445:127.0.0.1"},
       "--connect-to: \"files.test.example:445:127.0.0.1\" gives no port to connect to"},
  };
  for (const Case& c : cases) {
    const ToolResult r = Run(Joined({{"check"}, c.args}));
    EXPECT_EQ(r.exitStatus, 2) << c.err;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "sitelist check: " + c.err + "\n");
  }
  const ToolResult r = Run({"check", "--timeout", "0"});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_NE(r.err.find("--timeout"), std::string::npos) << r.err;
}

TEST_F(CheckTest, MissingListIsAMissingFile) {
  const ToolResult r = Run({"--site-list", Tmp("absent.xml"), "check"});
  EXPECT_EQ(r.exitStatus, 3);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "sitelist check: " + Tmp("absent.xml") + ": no such file\n");
}

}  // namespace
}  // namespace tooltest
