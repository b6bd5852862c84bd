// --dry-run on every command that writes: the same run on a scratch copy,
// the diff of what would change, nothing written where the agent's files
// are, and the exit status of the real run.
#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <string>

#include "EditFixture.h"

namespace tooltest {
namespace {

using testsupport::FileExists;
using testsupport::ReadFile;
using testsupport::WriteFile;

// An outside list with a versioned management server; its key files lie beside it.
const char c_outsideList[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<ns:SiteLists xmlns:ns="zelSiteList" GlobalVersion="20261111000000" LocalVersion="20261111000500" Type="Client">
  <CaBundle><CaCertificate>CERT-TWO</CaCertificate></CaBundle>
  <SiteList Default="1" Name="Incoming">
    <SpipeSite Type="master" Name="Vantor_InServer" Order="1" Enabled="1" Local="0" Server="mgmt.in.example:80" ServerName="IN01:80" ServerIP="203.0.113.5:80" Version="6.0">
      <RelativePath>Software</RelativePath>
    </SpipeSite>
    <HttpSite Type="repository" Name="Own" Order="2" Enabled="1" Local="0" Server="own.in.example:80">
      <RelativePath>Updates</RelativePath>
    </HttpSite>
  </SiteList>
</ns:SiteLists>
)";

// The version stamp the library would make now, from the local clock.
std::string ClockStamp() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char stamp[16];
  std::strftime(stamp, sizeof stamp, "%Y%m%d%H%M%S", &local);
  return stamp;
}

class DryRun : public EditTest {
 protected:
  DryRun() {
    std::filesystem::create_directories(Tmp("in"));
    WriteFile(Tmp("in/SiteList.xml"), c_outsideList);
    WriteFile(Tmp("in/srpubkey.bin"), "server-public");
    WriteFile(Tmp("in/reqseckey.bin"), "request-secret");
    WriteFile(EtcDir() + "/srpubkey.bin", "old-public-key");
  }

  // Runs args with --dry-run and --json, then for real with --json: the dry
  // run writes nothing and tells the changes the real run then makes.
  void ExpectDryRunToForetellTheRealRun(std::vector<std::string> args, const std::string& input = "") {
    const std::string started = ClockStamp();
    const Snapshot data = SnapshotOf(DataDir()), root = SnapshotOf(RootDir());
    args.push_back("--json");
    std::vector<std::string> dry = args;
    dry.push_back("--dry-run");
    const ToolResult preview = Run(dry, input);
    ASSERT_EQ(preview.exitStatus, 0) << preview.err;
    EXPECT_EQ(SnapshotOf(DataDir()), data);
    EXPECT_EQ(SnapshotOf(RootDir()), root);
    EXPECT_TRUE(std::filesystem::is_empty(ScratchDir()));
    const ToolResult real = Run(args, input);
    ASSERT_EQ(real.exitStatus, 0) << real.err;
    Json foretold = Json::parse(preview.out), done = Json::parse(real.out);
    EXPECT_EQ(foretold["dryRun"], true);
    EXPECT_EQ(foretold["written"], false);
    EXPECT_EQ(done["dryRun"], false);
    EXPECT_EQ(done["written"], true);
    EXPECT_EQ(foretold["message"], done["message"]);
    EXPECT_FALSE(foretold["changes"]["identical"].get<bool>());
    // A fresh version is stamped from the clock in each run, and shows only
    // when the second differs from the last write's: the stamps made during
    // the two runs are left out, those that come from the sources compared.
    for (Json* changes : {&foretold["changes"], &done["changes"]}) {
      Json kept = Json::array();
      for (const Json& change : (*changes)["list"]) {
        const bool version = change["field"] == "localVersion" || change["field"] == "globalVersion";
        if (!version || !change["new"].is_string() || change["new"].get<std::string>() < started) kept.push_back(change);
      }
      (*changes)["list"] = kept;
    }
    EXPECT_EQ(foretold["changes"], done["changes"]);
  }
};

TEST_F(DryRun, ImportShowsTheListAndTheKeyFilesItWouldWrite) {
  const ToolResult r = Run({"--managed", "import", "--dry-run", Tmp("in/SiteList.xml")});
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out,
            "--- " + OwnList() + "\n"
            "+++ " + OwnList() + " (after import)\n"
            "~ global version: 20250101000000 -> 20261111000000\n"
            "~ local version: 20250102030405 -> 20261111000500\n"
            "~ FIPS mode: 1 -> (not set)\n"
            "~ CA certificates: 2 -> 1\n"
            "    - SHA256 FF:26:62:80:62:EE:EA:92:D0:08:37:45:50:DF:DD:C2:3A:2F:B6:3E:90:C8:C9:3A:0A:E0:95:44:72:08:C0:0E\n"
            "    - SHA256 AC:37:8C:52:9C:06:CF:FC:46:C3:39:A0:D4:7E:7C:E2:66:DD:72:FF:83:FA:65:B3:8F:87:1A:15:4C:4E:84:0A\n"
            "    + SHA256 BA:8B:EC:32:56:5F:D0:9D:9E:A5:5B:6B:4F:7B:C0:1D:35:84:D9:D1:B0:5B:95:D8:7B:45:70:01:DA:71:B9:DD\n"
            "- policy OverwriteClientSites: 0\n"
            "- SpipeSite \"Vantor_MasterSite\"\n"
            "- SuperAgentSite \"Relay\"\n"
            "- FTPSite \"Ftp\"\n"
            "- UNCSite \"Share\"\n"
            "- HttpSite \"Mirror\"\n"
            "- LocalSite \"Cache\"\n"
            "- ProxyConfig \"CorpProxy\"\n"
            "~ HttpSite \"Own\"\n"
            "    order: 4 -> 2\n"
            "    local: yes -> no\n"
            "    server: own.test.example:8080 -> own.in.example:80\n"
            "    use auth: 1 -> 0\n"
            "    user: svc -> (empty)\n"
            "    password: cleared\n"
            "+ SpipeSite \"Vantor_InServer\"\n"
            "    type: master\n"
            "    order: 1\n"
            "    enabled: yes\n"
            "    local: no\n"
            "    server: mgmt.in.example:80\n"
            "    secure port: 0\n"
            "    server name: IN01:80\n"
            "    server IP: 203.0.113.5:80\n"
            "    version: 6.0\n"
            "    path: Software\n"
            "    use auth: 0\n"
            "    user: (empty)\n"
            "    password: (none)\n"
            "+ file " + EtcDir() + "/reqseckey.bin (14 bytes)\n"
            "~ file " + EtcDir() + "/srpubkey.bin (14 bytes -> 13 bytes)\n"
            "dry run: imported " + Tmp("in/SiteList.xml") + " into " + OwnList() + "; nothing was written\n");
  EXPECT_EQ(ReadFile(OwnList()), Original());
  EXPECT_EQ(ReadFile(EtcDir() + "/srpubkey.bin"), "old-public-key");
  EXPECT_FALSE(FileExists(EtcDir() + "/reqseckey.bin"));
  EXPECT_TRUE(std::filesystem::is_empty(ScratchDir()));
}

TEST_F(DryRun, ImportForetellsTheRealImport) {
  ExpectDryRunToForetellTheRealRun({"--managed", "import", Tmp("in/SiteList.xml")});
  EXPECT_EQ(ReadFile(EtcDir() + "/reqseckey.bin"), "request-secret");
}

TEST_F(DryRun, ARefusedImportGivesTheRealRunsStatusAndMessage) {
  std::string list = c_outsideList;
  list.replace(list.find("<RelativePath>Software"), 22, "<RelativePath>");
  WriteFile(Tmp("in/SiteList.xml"), list);
  const Snapshot before = SnapshotOf(DataDir());
  const ToolResult dry = Run({"--managed", "import", "--dry-run", Tmp("in/SiteList.xml")});
  const ToolResult real = Run({"--managed", "import", Tmp("in/SiteList.xml")});
  EXPECT_EQ(dry.exitStatus, 5);
  EXPECT_EQ(real.exitStatus, 5);
  EXPECT_EQ(dry.out, "");
  EXPECT_EQ(dry.err, "sitelist import: " + Tmp("in/SiteList.xml") + ": refused by the source checks (-9):\n"
                     "  path: SPIPE site \"Vantor_InServer\": path cannot be empty\n");
  EXPECT_EQ(real.err, dry.err);
  EXPECT_EQ(SnapshotOf(DataDir()), before);
  EXPECT_TRUE(std::filesystem::is_empty(ScratchDir()));
}

TEST_F(DryRun, InstallForetellsTheRealInstall) {
  ExpectDryRunToForetellTheRealRun({"install", Tmp("in/SiteList.xml")});
}

TEST_F(DryRun, SetServerShowsTheSpipeSiteAndTheLostFipsFlag) {
  const ToolResult r = Run({"set-server", "--dry-run", "--port", "8443", "--ip", "198.51.100.7", "--server",
                            "m2.test.example", "--netbios", "M2"});
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(r.out, "--- " + OwnList() + "\n+++ " + OwnList() + " (after set-server)\n"
                   "~ FIPS mode: 1 -> (not set)\n"
                   "~ SpipeSite \"Vantor_MasterSite\"\n"
                   "    server: mgmt.test.example:80 -> m2.test.example:8443\n"
                   "    server name: MGMT:80 -> M2:8443\n"
                   "    server IP: 192.0.2.1:80 -> 198.51.100.7:8443\n"
                   "dry run: management server m2.test.example:8443 (198.51.100.7, M2) set in " + OwnList() +
                   "; nothing was written\n");
  EXPECT_EQ(ReadFile(OwnList()), Original());
  ExpectDryRunToForetellTheRealRun(
      {"set-server", "--port", "8443", "--ip", "198.51.100.7", "--server", "m2.test.example", "--netbios", "M2"});
}

TEST_F(DryRun, RewriteForetellsTheRealRewrite) {
  ExpectDryRunToForetellTheRealRun({"rewrite", "--server", Tmp("in/SiteList.xml")});
}

TEST_F(DryRun, ServerListShowsTheNewFile) {
  const ToolResult r = Run({"server-list", "--dry-run", "--json"});
  ASSERT_EQ(r.exitStatus, 0) << r.err;
  const Json doc = Json::parse(r.out);
  EXPECT_EQ(doc["file"], DataDir() + "/ServerSiteList.xml");
  EXPECT_EQ(doc["changes"]["oldExists"], false);
  EXPECT_EQ(doc["changes"]["newExists"], true);
  std::vector<std::string> added;
  for (const Json& site : doc["changes"]["sites"]["added"]) added.push_back(site["name"]);
  // The client's own sites (Local="1") are left out.
  EXPECT_EQ(added, (std::vector<std::string>{"Vantor_MasterSite", "Relay", "Ftp", "CorpProxy"}));
  EXPECT_FALSE(FileExists(DataDir() + "/ServerSiteList.xml"));
  ExpectDryRunToForetellTheRealRun({"server-list"});
}

TEST_F(DryRun, LoadForetellsTheRealLoadToEitherTarget) {
  std::filesystem::create_directories(RootDir() + "/opt/Velmora/orx/scratch/etc");
  ExpectDryRunToForetellTheRealRun({"load"}, Original());
  ExpectDryRunToForetellTheRealRun({"load", "--site-list", Tmp("copy.xml")}, Original());
  const ToolResult malformed = Run({"load", "--dry-run"}, "<ns:SiteLists>");
  EXPECT_EQ(malformed.exitStatus, 4);
  EXPECT_EQ(malformed.err, "<stdin>:1:1: XML is not well formed: unbound prefix\n");
}

TEST_F(DryRun, EveryEditForetellsItself) {
  ExpectDryRunToForetellTheRealRun({"add-site", "--kind", "ftp", "--name", "F2", "--server", "f2.test.example"});
  ExpectDryRunToForetellTheRealRun({"edit", "Own", "--user", "other", "--password-stdin"}, "pw2");
  ExpectDryRunToForetellTheRealRun({"disable", "Relay"});
  ExpectDryRunToForetellTheRealRun({"enable", "Relay"});
  ExpectDryRunToForetellTheRealRun({"set-order", "Relay", "8"});
  ExpectDryRunToForetellTheRealRun({"set-proxy", "--http", "p.test.example:1"});
  ExpectDryRunToForetellTheRealRun({"remove-site", "--force", "Cache"});
}

TEST_F(DryRun, ARefusedEditGivesTheRealStatus) {
  const ToolResult r = Run({"remove-site", "--dry-run", "Cache"});
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "sitelist remove-site: LocalSite \"Cache\" is the fallback site of " + OwnList() +
                       "; give --force to remove it all the same\n");
  const ToolResult nothing = Run({"enable", "--dry-run", "Own"});
  EXPECT_EQ(nothing.exitStatus, 0);
  EXPECT_EQ(nothing.out, "--- " + OwnList() + "\n+++ " + OwnList() + " (after enable)\nno differences\n"
                         "dry run: HttpSite \"Own\" in " + OwnList() + " is already enabled; nothing to change; "
                         "nothing was written\n");
  EXPECT_EQ(ReadFile(OwnList()), Original());
}

}  // namespace
}  // namespace tooltest
