// set-proxy, run as a process on an agent whose list holds a proxy with a
// user and password among every kind of site.
#include <gtest/gtest.h>

#include <string>

#include "EditFixture.h"

namespace tooltest {
namespace {

using testsupport::ReadFile;

class SetProxy : public EditTest {};

TEST_F(SetProxy, ReplacesTheWholeConfigurationKeepingItsName) {
  const ToolResult r = Run({"set-proxy", "--http", "proxy2.test.example:8080", "--ftp", "ftpproxy.test.example:2121",
                            "--exclude", "a.test.example", "--exclude", "b.test.example", "--user", "pu",
                            "--password-stdin"},
                           "proxy2-pw\n");
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out, "set the proxy of " + OwnList() +
                       ": HTTP proxy proxy2.test.example:8080, FTP proxy ftpproxy.test.example:2121\n");
  const std::string written = ReadFile(OwnList());
  EXPECT_NE(written.find(R"(<ProxyConfigList><ProxyConfig Name="CorpProxy" Local="1" )"
                         R"(HttpProxyServer="proxy2.test.example" HttpProxyPort="8080" )"
                         R"(FtpProxyServer="ftpproxy.test.example" FtpProxyPort="2121">)"
                         R"(<AllowUserToConfigureProxy>0</AllowUserToConfigureProxy>)"
                         R"(<BypassLocalAddress>0</BypassLocalAddress><ExclusionList>)"
                         R"(<ExclusionHost>a.test.example</ExclusionHost><ExclusionHost>b.test.example</ExclusionHost>)"
                         R"(</ExclusionList><FtpUseAuth>1</FtpUseAuth><HttpUseAuth>1</HttpUseAuth>)"
                         R"(<HttpProxyUser>pu</HttpProxyUser>)"),
            std::string::npos)
      << written;
  EXPECT_EQ(written.find("proxy2-pw"), std::string::npos);
  EXPECT_EQ(ChangesSinceStart()["sites"]["changed"], Json::parse(R"([{"element": "ProxyConfig", "name": "CorpProxy",
    "fields": [
      {"field": "httpProxy", "old": "proxy.test.example:3128", "new": "proxy2.test.example:8080"},
      {"field": "ftpProxy", "old": "", "new": "ftpproxy.test.example:2121"},
      {"field": "bypassLocalAddress", "old": true, "new": false},
      {"field": "exclusionList", "old": "mgmt.test.example;files.test.example", "new": "a.test.example;b.test.example"},
      {"field": "httpProxyUser", "old": "proxy-user", "new": "pu"},
      {"field": "httpProxyPassword", "change": "changed"},
      {"field": "ftpUseAuth", "old": false, "new": true},
      {"field": "ftpProxyUser", "old": "", "new": "pu"},
      {"field": "ftpProxyPassword", "change": "set"}]}])"));
}

TEST_F(SetProxy, NoneRemovesTheProxyAndThenHasNothingToDo) {
  ToolResult r = Run({"set-proxy", "--none"});
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(r.out, "removed the proxy from " + OwnList() + "\n");
  const Json removed = ChangesSinceStart()["sites"]["removed"];
  ASSERT_EQ(removed.size(), 1u);
  EXPECT_EQ(removed[0]["element"], "ProxyConfig");
  EXPECT_EQ(ReadFile(OwnList()).find("ProxyConfig"), std::string::npos);
  const Snapshot before = SnapshotOf(DataDir());
  r = Run({"set-proxy", "--none"});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.out, OwnList() + " has no proxy; nothing to change\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
  // A list without a proxy gets a new one, named Proxy.
  r = Run({"set-proxy", "--http", "p.test.example:3128", "--bypass-local"});
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_NE(ReadFile(OwnList()).find(R"(<ProxyConfig Name="Proxy" Local="1" HttpProxyServer="p.test.example" )"
                                     R"(HttpProxyPort="3128"><AllowUserToConfigureProxy>0</AllowUserToConfigureProxy>)"
                                     R"(<BypassLocalAddress>1</BypassLocalAddress>)"),
            std::string::npos);
}

TEST_F(SetProxy, RefusesIncompleteOrContradictoryOptions) {
  const Snapshot before = SnapshotOf(DataDir());
  struct Case {
    std::vector<std::string> args;
    std::string err;
  };
  const Case cases[] = {
      {{"set-proxy"}, "sitelist set-proxy: give --http HOST:PORT, or --none to remove the proxy\n"},
      {{"set-proxy", "--http", "p.test.example"}, "sitelist set-proxy: --http: give the proxy's port, HOST:PORT\n"},
      {{"set-proxy", "--http", "p:1", "--ftp", "f:0"},
       "sitelist set-proxy: --ftp: the port 0 is not a number from 1 to 65535\n"},
      {{"set-proxy", "--http", "p:1", "--exclude", "a;b"},
       "sitelist set-proxy: --exclude: \"a;b\" is no host name (empty, or holding ';')\n"},
      {{"set-proxy", "--none", "--http", "p:1"}, "--http excludes --none\nRun with --help for more information.\n"},
      {{"set-proxy", "--http", "p:1", "--password-stdin"},
       "--password-stdin requires --user\nRun with --help for more information.\n"},
  };
  for (const Case& c : cases) {
    const ToolResult r = Run(c.args);
    EXPECT_EQ(r.exitStatus, 2) << c.err;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, c.err);
  }
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

TEST_F(SetProxy, RefusesExcludedHostsBeyondWhatAListHolds) {
  std::vector<std::string> args{"set-proxy", "--http", "p.test.example:3128"};
  for (int i = 0; i < 40; ++i) {
    args.push_back("--exclude");
    args.push_back(std::string(99, 'h') + std::to_string(i % 10));
  }
  const ToolResult r = Run(args);
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.err, "sitelist set-proxy: --exclude: the hosts joined with ';' is longer than 3999 characters\n");
  EXPECT_EQ(ReadFile(OwnList()), Original());
}

}  // namespace
}  // namespace tooltest
