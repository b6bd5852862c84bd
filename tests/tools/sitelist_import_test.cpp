// sitelist validate, import and install, run as a process on a temporary
// agent with outside lists and their key files.
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

// An outside list; spipeAttributes and relativePath shape its SPIPE site.
std::string OutsideList(const std::string& spipeAttributes, const std::string& relativePath) {
  return R"(<?xml version="1.0" encoding="UTF-8"?>
<ns:SiteLists xmlns:ns="zelSiteList" GlobalVersion="20261111000000" LocalVersion="20261111000500" Type="Client">
  <CaBundle>
    <CaCertificate>OUTSIDE-CERT</CaCertificate>
  </CaBundle>
  <SiteList Default="1" Name="Incoming">
    <SpipeSite )" + spipeAttributes + R"(>
      <RelativePath>)" + relativePath + R"(</RelativePath>
      <UseAuth>0</UseAuth>
      <UserName></UserName>
      <Password Encrypted="1"></Password>
    </SpipeSite>
    <HttpSite Type="repository" Name="Mirror" Order="2" Enabled="1" Local="0" Server="mirror.in.example:80">
      <RelativePath>Updates</RelativePath>
      <UseAuth>0</UseAuth>
      <UserName></UserName>
      <Password Encrypted="1"></Password>
    </HttpSite>
  </SiteList>
</ns:SiteLists>
)";
}

const std::string c_goodSpipe =
    R"(Type="master" Name="Vantor_InServer" Order="1" Enabled="1" Local="0" Server="mgmt.in.example:80" )"
    R"(ServerName="IN01:80" ServerIP="203.0.113.5:80" Version="6.0")";

const char c_noSpipeList[] = R"(<ns:SiteLists xmlns:ns="zelSiteList" GlobalVersion="1" LocalVersion="2">
  <SiteList Default="1" Name="x">
    <HttpSite Type="repository" Name="Only" Order="1" Enabled="1" Local="0" Server="only.in.example:80">
      <RelativePath>u</RelativePath>
    </HttpSite>
  </SiteList>
</ns:SiteLists>
)";

class ImportCommands : public ToolTest {
 protected:
  ImportCommands() {
    WriteFile(OwnList(), c_agentList);
    std::filesystem::create_directories(InDir());
  }
  std::string InDir() const { return Tmp("in"); }
  std::string InList() const { return Tmp("in/SiteList.xml"); }
  void WriteKeys() const {
    WriteFile(Tmp("in/srpubkey.bin"), std::string("server-public\0\x01\x02", 16));
    WriteFile(Tmp("in/reqseckey.bin"), "request-secret");
  }
};

TEST_F(ImportCommands, ValidateAcceptsAVersionedListWithItsKeys) {
  WriteFile(InList(), OutsideList(c_goodSpipe, "Software"));
  WriteKeys();
  const Snapshot before = SnapshotOf(DataDir());
  const ToolResult r = Run({"--managed", "validate", InList()});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out, InList() + ": accepted for a managed agent\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

TEST_F(ImportCommands, ValidatePrintsEveryFailedRule) {
  const std::string spipe = R"(Type="master" Name="" Order="1" Enabled="1" Local="1" Server="mgmt.in.example:80" )"
                            R"(ServerName="IN01:80" ServerIP="203.0.113.5:80" Version="6.0")";
  WriteFile(InList(), OutsideList(spipe, ""));
  const Snapshot before = SnapshotOf(DataDir());
  const ToolResult r = Run({"validate", InList(), "--managed"});
  EXPECT_EQ(r.exitStatus, 5);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err,
            "sitelist validate: " + InList() + ": refused by the source checks (-9):\n"
            "  not-local: SPIPE site \"\": must not be local\n"
            "  name: SPIPE site \"\": name cannot be empty\n"
            "  path: SPIPE site \"\": path cannot be empty\n"
            "  request-key: SPIPE site \"\": " + InDir() + "/reqseckey.bin or " + InDir() + "/req2048seckey.bin is invalid\n"
            "  server-key: SPIPE site \"\": " + InDir() + "/srpubkey.bin or " + InDir() + "/sr2048pubkey.bin is invalid\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

TEST_F(ImportCommands, ValidateWithoutSpipeSiteDependsOnManagedMode) {
  WriteFile(InList(), c_noSpipeList);
  const ToolResult managed = RunWith({{"VLM_MANAGED", "1"}}, {"validate", InList()});
  EXPECT_EQ(managed.exitStatus, 5);
  EXPECT_EQ(managed.out, "");
  EXPECT_EQ(managed.err,
            "sitelist validate: " + InList() + ": refused by the source checks (-8):\n"
            "  spipe-site: the list has no SPIPE site\n");
  // The override wins over the configuration.
  const ToolResult unmanaged = RunWith({{"VLM_MANAGED", "1"}}, {"--unmanaged", "validate", InList()});
  EXPECT_EQ(unmanaged.exitStatus, 0);
  EXPECT_EQ(unmanaged.err, "");
  EXPECT_EQ(unmanaged.out, InList() + ": accepted for an unmanaged agent\n");
}

TEST_F(ImportCommands, ValidateOfAMissingFileNamesIt) {
  const ToolResult r = Run({"validate", Tmp("in/none.xml")});
  EXPECT_EQ(r.exitStatus, 3);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "sitelist validate: " + Tmp("in/none.xml") + ": no such file\n");
}

TEST_F(ImportCommands, ImportOfAFifoSaysItIsNoRegularFileAndLeavesTheListAlone) {
  ASSERT_EQ(0, mkfifo(Tmp("in/fifo").c_str(), 0644));
  const Snapshot before = SnapshotOf(EtcDir());
  const ToolResult r = Run({"import", Tmp("in/fifo")});
  EXPECT_EQ(r.exitStatus, 3);
  EXPECT_EQ(r.out, "");
  const std::string last = "sitelist import: " + Tmp("in/fifo") + ": not a regular file\n";
  ASSERT_GE(r.err.size(), last.size());
  EXPECT_EQ(r.err.substr(r.err.size() - last.size()), last);
  EXPECT_EQ(before, SnapshotOf(EtcDir()));
}

TEST_F(ImportCommands, ValidateWithoutFileIsAUsageError) {
  const ToolResult r = Run({"validate"});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "FILE is required\nRun with --help for more information.\n");
}

TEST_F(ImportCommands, ImportMakesTheListTheAgentsOwnWithItsKeys) {
  WriteFile(InList(), OutsideList(c_goodSpipe, "Software"));
  WriteKeys();
  const ToolResult r = Run({"--managed", "import", InList()});
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(r.out, "imported " + InList() + " into " + OwnList() + "\n");
  const std::string own = ReadFile(OwnList());
  EXPECT_NE(own.find(R"(GlobalVersion="20261111000000" LocalVersion="20261111000500" Type="Client")"),
            std::string::npos)
      << own;
  EXPECT_NE(own.find("<CaCertificate>OUTSIDE-CERT</CaCertificate>"), std::string::npos);
  EXPECT_NE(own.find(R"(Name="Vantor_InServer")"), std::string::npos);
  EXPECT_EQ(own.find(R"(Name="Own")"), std::string::npos);
  EXPECT_EQ(ReadFile(EtcDir() + "/srpubkey.bin"), std::string("server-public\0\x01\x02", 16));
  EXPECT_EQ(ReadFile(EtcDir() + "/reqseckey.bin"), "request-secret");
  EXPECT_FALSE(FileExists(EtcDir() + "/sr2048pubkey.bin"));
  const ToolResult shown = Run({"versions"});
  EXPECT_EQ(shown.out, "Global version  20261111000000\nLocal version   20261111000500\nType            Client\n");
}

TEST_F(ImportCommands, RefusedImportChangesNothing) {
  WriteFile(InList(), c_noSpipeList);
  const Snapshot before = SnapshotOf(DataDir());
  const ToolResult r = Run({"--managed", "import", InList()});
  EXPECT_EQ(r.exitStatus, 5);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err,
            "sitelist import: " + InList() + ": refused by the source checks (-8):\n"
            "  spipe-site: the list has no SPIPE site\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

TEST_F(ImportCommands, ImportOfTwoFilesIsAUsageError) {
  const ToolResult r = Run({"import", "a.xml", "b.xml"});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.err, "The following argument was not expected: b.xml\nRun with --help for more information.\n");
}

TEST_F(ImportCommands, InstallTakesAListThatImportRefuses) {
  const std::string spipe = R"(Type="master" Name="Vantor_InServer" Order="1" Enabled="1" Local="0" )"
                            R"(Server="mgmt.in.example:80" ServerName="IN01:80" ServerIP="203.0.113.5:80")";
  WriteFile(InList(), OutsideList(spipe, ""));
  std::filesystem::create_directories(Tmp("keys-in"));
  WriteFile(Tmp("keys-in/srpubkey.bin"), "classic-public");
  const Snapshot before = SnapshotOf(DataDir());
  const ToolResult refused = Run({"--managed", "import", InList()});
  EXPECT_EQ(refused.exitStatus, 5);
  EXPECT_EQ(refused.err,
            "sitelist import: " + InList() + ": refused by the source checks (-9):\n"
            "  path: SPIPE site \"Vantor_InServer\": path cannot be empty\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);

  const ToolResult r = Run({"install", InList(), "--key-dir", Tmp("keys-in")});
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(r.out, "installed " + InList() + " into " + OwnList() + "\n");
  EXPECT_NE(ReadFile(OwnList()).find(R"(Name="Vantor_InServer")"), std::string::npos);
  EXPECT_EQ(ReadFile(EtcDir() + "/srpubkey.bin"), "classic-public");
  EXPECT_FALSE(FileExists(EtcDir() + "/reqseckey.bin"));
}

TEST_F(ImportCommands, InstallOfAMissingFileFailsAndChangesNothing) {
  const Snapshot before = SnapshotOf(DataDir());
  const ToolResult r = Run({"install", Tmp("in/none.xml")});
  EXPECT_EQ(r.exitStatus, 3);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "sitelist install: " + Tmp("in/none.xml") + ": no such file\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

TEST_F(ImportCommands, InstallWithKeyDirWithoutValueIsAUsageError) {
  const ToolResult r = Run({"install", InList(), "--key-dir"});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.err, "--key-dir: 1 required DIR missing\nRun with --help for more information.\n");
}

}  // namespace
}  // namespace tooltest
