// Fixture of the command-line tool tests: a temporary agent (data, lock, key
// and root directories) and the tool run as a process against it.
#ifndef VLM_TESTS_TOOLS_TOOLFIXTURE_H
#define VLM_TESTS_TOOLS_TOOLFIXTURE_H

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "ToolProcess.h"
#include "support/TestSupport.h"

namespace tooltest {

// A client site list: SPIPE site with a secure port and a version, a local
// HTTP site, a disabled FTP site, a fallback local site, two certificates,
// two policy settings and FipsMode="1".
extern const char c_agentList[];

// Every kind of site, with passwords: SPIPE site (secure port, version),
// SuperAgent site, a local HTTP site with user "svc" and password "http-pw",
// a disabled FTP site, a UNC site with share, domain, user "unc-user" and
// password "unc-pw", a mirror, a fallback local site, and a proxy with two
// excluded hosts and the user "proxy-user" with password "proxy-pw"; two
// CA certificates (one PEM), one policy setting and FipsMode="1". The
// passwords are given by the placeholders @HTTP_PW@, @UNC_PW@ and
// @PROXY_PW@; ToolTest::FullList() puts them in encrypted.
extern const char c_fullListTemplate[];

// Relative path -> mode and bytes of every entry below a directory.
using Snapshot = std::map<std::string, std::string>;
Snapshot SnapshotOf(const std::string& dir);

class ToolTest : public ::testing::Test {
 protected:
  ToolTest();

  std::string DataDir() const { return m_tmp.file("data"); }
  std::string EtcDir() const { return m_tmp.file("data/etc"); }
  std::string OwnList() const { return m_tmp.file("data/etc/SiteList.xml"); }
  std::string KeyDir() const { return m_tmp.file("keys"); }
  std::string LockDir() const { return m_tmp.file("locks"); }
  std::string RootDir() const { return m_tmp.file("root"); }
  std::string Tmp(const std::string& name) const { return m_tmp.file(name); }
  // TMPDIR of the tool: where its scratch files go, empty again after a run.
  std::string ScratchDir() const { return m_tmp.file("tmp"); }

  // c_fullListTemplate with its passwords encrypted by the tool with the
  // agent's keys (which this creates).
  std::string FullList() const;
  // The text the tool gives a clear password in a site list.
  std::string Encrypted(const std::string& password) const;

  // The child's environment: the directories above, nothing else.
  std::map<std::string, std::string> Env() const;
  ToolResult Run(const std::vector<std::string>& args, const std::string& input = "") const;
  ToolResult RunWith(const std::map<std::string, std::string>& extraEnv, const std::vector<std::string>& args,
                     const std::string& input = "") const;

  testsupport::TempDir m_tmp;
};

}  // namespace tooltest

#endif  // VLM_TESTS_TOOLS_TOOLFIXTURE_H
