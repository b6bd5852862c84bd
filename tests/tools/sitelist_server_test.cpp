// sitelist set-server, server-info, server-list and rewrite, run as a process
// on a temporary agent.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "ToolFixture.h"

namespace tooltest {
namespace {

using testsupport::FileExists;
using testsupport::ReadFile;
using testsupport::WriteFile;

class ServerCommands : public ToolTest {
 protected:
  ServerCommands() { WriteFile(OwnList(), c_agentList); }
};

TEST_F(ServerCommands, SetServerUpdatesTheSpipeSiteInPlace) {
  const ToolResult r = Run({"set-server", "--port", "8443", "--ip", "198.51.100.7", "--server", "mgmt2.test.example",
                            "--netbios", "MGMT2"});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out, "management server mgmt2.test.example:8443 (198.51.100.7, MGMT2) set in " + OwnList() + "\n");
  const std::string own = ReadFile(OwnList());
  EXPECT_NE(own.find(R"(SecurePort="443" Server="mgmt2.test.example:8443" ServerName="MGMT2:8443" )"
                     R"(ServerIP="198.51.100.7:8443" Version="5.0")"),
            std::string::npos)
      << own;
  // Updating keeps the versions.
  EXPECT_NE(own.find(R"(GlobalVersion="20250101000000" LocalVersion="20250102030405")"), std::string::npos);

  const ToolResult info = Run({"server-info", "--plain-port"});
  EXPECT_EQ(info.exitStatus, 0);
  EXPECT_EQ(info.out,
            "Name          Vantor_MasterSite\n"
            "Server        mgmt2.test.example\n"
            "Server IP     198.51.100.7\n"
            "NetBIOS name  MGMT2\n"
            "Port          8443\n"
            "Version       5.0\n");
}

TEST_F(ServerCommands, SetServerAsRootLeavesTheListToTheAgentsUser) {
  // The agent runs as its own user: root's change must not take its list away.
  ASSERT_EQ(0, chown(OwnList().c_str(), testsupport::kOtherUser, testsupport::kOtherGroup));
  ASSERT_EQ(0, chmod(OwnList().c_str(), 0640));
  const ToolResult r = Run({"set-server", "--port", "8443", "--ip", "198.51.100.7", "--server", "mgmt2.test.example",
                            "--netbios", "MGMT2"});
  ASSERT_EQ(r.exitStatus, 0) << r.err;
  struct stat st {};
  ASSERT_EQ(0, stat(OwnList().c_str(), &st));
  EXPECT_EQ(testsupport::kOtherUser, st.st_uid);
  EXPECT_EQ(testsupport::kOtherGroup, st.st_gid);
  EXPECT_EQ(0640u, st.st_mode & 07777);
  EXPECT_NE(ReadFile(OwnList()).find("mgmt2.test.example:8443"), std::string::npos);
}

TEST_F(ServerCommands, SetServerWithoutASiteListFails) {
  std::filesystem::remove(OwnList());
  const Snapshot before = SnapshotOf(DataDir());
  const ToolResult r =
      Run({"set-server", "--port", "443", "--ip", "198.51.100.7", "--server", "m.test.example", "--netbios", "M"});
  EXPECT_EQ(r.exitStatus, 3);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "sitelist set-server: " + OwnList() + ": no such file\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

TEST_F(ServerCommands, SetServerNeedsEveryOptionAndAPort) {
  const Snapshot before = SnapshotOf(DataDir());
  ToolResult r = Run({"set-server", "--port", "443", "--ip", "198.51.100.7", "--server", "m.test.example"});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.err, "--netbios is required\nRun with --help for more information.\n");
  r = Run({"set-server", "--port", "70000", "--ip", "a", "--server", "b", "--netbios", "c"});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.err, "--port: Value 70000 not in range 1 to 65535\nRun with --help for more information.\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

TEST_F(ServerCommands, ServerInfoPrefersTheSecurePortAndListsFurtherServers) {
  std::string list = c_agentList;
  const std::string second =
      R"(    <SpipeSite Type="master" Name="Second" Order="5" Enabled="1" Local="0" Server="two.test.example:81" )"
      R"(ServerName="TWO:81" ServerIP="[2001:db8::2]:81" Version="5.1">
      <RelativePath>Software</RelativePath>
    </SpipeSite>
)";
  list.insert(list.find("  </SiteList>"), second);
  WriteFile(OwnList(), list);
  ToolResult r = Run({"server-info"});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out,
            "Name          Vantor_MasterSite\n"
            "Server        mgmt.test.example\n"
            "Server IP     192.0.2.1\n"
            "NetBIOS name  MGMT\n"
            "Port          443\n"
            "Version       5.0\n");
  r = Run({"server-info", "--all"});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.out,
            "Name          Vantor_MasterSite;Second\n"
            "Server        mgmt.test.example;two.test.example\n"
            "Server IP     192.0.2.1;2001:db8::2\n"
            "NetBIOS name  MGMT;TWO\n"
            "Port          81\n"
            "Version       5.0;5.1\n");
}

TEST_F(ServerCommands, ServerInfoWithoutSpipeSiteFails) {
  WriteFile(OwnList(), R"(<ns:SiteLists xmlns:ns="zelSiteList"><SiteList>
    <HttpSite Type="repository" Name="Only" Order="1" Enabled="1" Local="0" Server="only.test.example:80"/>
  </SiteList></ns:SiteLists>)");
  const ToolResult r = Run({"server-info"});
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "sitelist server-info: the site list has no SPIPE site (-8)\n");
}

TEST_F(ServerCommands, ServerInfoOfAListWithoutSitesFails) {
  WriteFile(OwnList(), R"(<ns:SiteLists xmlns:ns="zelSiteList"><SiteList/></ns:SiteLists>)");
  const ToolResult r = Run({"server-info"});
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err,
            "[ERROR] SiteHlp: Unable to read from SiteList file, error hr=0\n"
            "sitelist server-info: the site list holds no site\n");
}

TEST_F(ServerCommands, ServerInfoWithAPositionalIsAUsageError) {
  const ToolResult r = Run({"server-info", "extra"});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.err, "The following argument was not expected: extra\nRun with --help for more information.\n");
}

TEST_F(ServerCommands, ServerListLeavesOutTheClientsOwnSites) {
  const ToolResult r = Run({"server-list"});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out, "wrote " + DataDir() + "/ServerSiteList.xml from " + EtcDir() + "/SiteList.xml\n");
  const std::string server = ReadFile(DataDir() + "/ServerSiteList.xml");
  EXPECT_NE(server.find(R"(Name="Vantor_MasterSite")"), std::string::npos);
  EXPECT_NE(server.find(R"(Name="Ftp")"), std::string::npos);
  EXPECT_EQ(server.find(R"(Name="Own")"), std::string::npos);
  EXPECT_EQ(server.find(R"(Name="Cache")"), std::string::npos);
  EXPECT_NE(server.find(R"(GlobalVersion="20250101000000")"), std::string::npos);

  std::filesystem::create_directories(Tmp("relay"));
  const ToolResult to = Run({"server-list", "--from", EtcDir(), "--to", Tmp("relay")});
  EXPECT_EQ(to.exitStatus, 0);
  EXPECT_EQ(ReadFile(Tmp("relay/ServerSiteList.xml")), server);
}

TEST_F(ServerCommands, ServerListFromADirectoryWithoutSiteListFails) {
  std::filesystem::create_directories(Tmp("empty"));
  const Snapshot before = SnapshotOf(DataDir());
  const ToolResult r = Run({"server-list", "--from", Tmp("empty")});
  EXPECT_EQ(r.exitStatus, 3);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "sitelist server-list: " + Tmp("empty") + "/SiteList.xml: no such file\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

TEST_F(ServerCommands, ServerListFromWithoutValueIsAUsageError) {
  const ToolResult r = Run({"server-list", "--from"});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.err, "--from: 1 required DIR missing\nRun with --help for more information.\n");
}

TEST_F(ServerCommands, RewriteReplacesTheSpipeSitesAndTheCaBundle) {
  WriteFile(Tmp("new.xml"), R"(<ns:SiteLists xmlns:ns="zelSiteList" GlobalVersion="9" LocalVersion="9">
  <CaBundle><CaCertificate>NEW-CERT</CaCertificate></CaBundle>
  <SiteList Default="1" Name="n">
    <SpipeSite Type="master" Name="NewServer" Order="7" Enabled="1" Local="0" Server="new.test.example:80" ServerName="NEW:80" ServerIP="192.0.2.99:80">
      <RelativePath>Software</RelativePath>
    </SpipeSite>
  </SiteList>
</ns:SiteLists>
)");
  const ToolResult r = Run({"rewrite", Tmp("new.xml"), "--server"});
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out, "rewrote " + OwnList() + " from " + Tmp("new.xml") + " (SPIPE sites and CA bundle replaced)\n");
  const std::string own = ReadFile(OwnList());
  EXPECT_EQ(own.find("Vantor_MasterSite"), std::string::npos) << own;
  EXPECT_NE(own.find(R"(Name="NewServer")"), std::string::npos);
  EXPECT_EQ(own.find("CERT-ONE"), std::string::npos);
  EXPECT_NE(own.find("NEW-CERT"), std::string::npos);
  EXPECT_NE(own.find(R"(Name="Own")"), std::string::npos);  // client sites stay
  EXPECT_NE(own.find(R"(GlobalVersion="20250101000000")"), std::string::npos);
}

TEST_F(ServerCommands, RewriteFromAMissingFileFailsAndChangesNothing) {
  const Snapshot before = SnapshotOf(DataDir());
  const ToolResult r = Run({"rewrite", "--repositories", Tmp("none.xml")});
  EXPECT_EQ(r.exitStatus, 3);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "sitelist rewrite: " + Tmp("none.xml") + ": no such file\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

TEST_F(ServerCommands, RewriteWithoutNewFileIsAUsageError) {
  const ToolResult r = Run({"rewrite", "--server"});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.err, "NEWFILE is required\nRun with --help for more information.\n");
}

}  // namespace
}  // namespace tooltest
