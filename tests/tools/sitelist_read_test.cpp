// sitelist show, versions, fips, certs and the global options, run as a
// process on a temporary agent.
#include <gtest/gtest.h>

#include <filesystem>

#include "MiniJson.h"
#include "ToolFixture.h"

namespace tooltest {
namespace {

using testsupport::ReadFile;
using testsupport::WriteFile;

const char c_bareList[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<ns:SiteLists xmlns:ns="zelSiteList" GlobalVersion="20240101000000" LocalVersion="">
  <SiteList Default="1" Name="SomeGUID"/>
</ns:SiteLists>
)";

class ReadCommands : public ToolTest {
 protected:
  ReadCommands() { WriteFile(OwnList(), c_agentList); }
};

TEST_F(ReadCommands, ShowPrintsTheListAsAnAlignedTable) {
  const Snapshot before = SnapshotOf(DataDir());
  const ToolResult r = Run({"show"});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out,
            "Site list        " + OwnList() + "\n"
            "Global version   20250101000000\n"
            "Local version    20250102030405\n"
            "Type             Client\n"
            "FIPS mode        1\n"
            "CA certificates  2\n"
            "Policy settings  Alpha = x\n"
            "                 OverwriteClientSites = 0\n"
            "Sites            4\n"
            "\n"
            "Kind   Element    Type        Name               Server                 Order  Enabled  Local  Password\n"
            "HTTP   SpipeSite  master      Vantor_MasterSite  mgmt.test.example:80   1      yes      no     -\n"
            "HTTP   HttpSite   repository  Own                own.test.example:8080  2      yes      yes    -\n"
            "FTP    FTPSite    repository  Ftp                ftp.test.example:21    3      no       no     -\n"
            "Local  LocalSite  fallback    Cache              127.0.0.1              0      yes      yes    -\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

TEST_F(ReadCommands, ShowJsonIsOneDocumentWithEverySite) {
  const ToolResult r = Run({"show", "--json"});
  ASSERT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(r.err, "");
  const JsonValue doc = ParseJson(r.out);
  EXPECT_EQ(doc.memberOrder, (std::vector<std::string>{"path", "globalVersion", "localVersion", "type", "fipsMode",
                                                        "caCertificates", "policySettings", "sites"}));
  EXPECT_EQ(doc["path"].text, OwnList());
  EXPECT_EQ(doc["globalVersion"].text, "20250101000000");
  EXPECT_EQ(doc["localVersion"].text, "20250102030405");
  EXPECT_EQ(doc["type"].text, "Client");
  EXPECT_EQ(doc["fipsMode"].text, "1");
  EXPECT_EQ(doc["caCertificates"].number, 2);
  ASSERT_EQ(doc["policySettings"].members.size(), 2u);
  EXPECT_EQ(doc["policySettings"]["Alpha"].text, "x");
  EXPECT_EQ(doc["policySettings"]["OverwriteClientSites"].text, "0");
  const JsonValue& sites = doc["sites"];
  ASSERT_EQ(sites.items.size(), 4u);
  struct Expected {
    const char *kind, *element, *type, *name, *server;
    int order;
    bool enabled, local;
  };
  const Expected expected[] = {
      {"HTTP", "SpipeSite", "master", "Vantor_MasterSite", "mgmt.test.example:80", 1, true, false},
      {"HTTP", "HttpSite", "repository", "Own", "own.test.example:8080", 2, true, true},
      {"FTP", "FTPSite", "repository", "Ftp", "ftp.test.example:21", 3, false, false},
      {"Local", "LocalSite", "fallback", "Cache", "127.0.0.1", 0, true, true},
  };
  for (std::size_t i = 0; i < 4; ++i) {
    SCOPED_TRACE(i);
    const JsonValue& s = sites[i];
    EXPECT_EQ(s.members.size(), 9u);
    EXPECT_EQ(s["kind"].text, expected[i].kind);
    EXPECT_EQ(s["element"].text, expected[i].element);
    EXPECT_EQ(s["type"].text, expected[i].type);
    EXPECT_EQ(s["name"].text, expected[i].name);
    EXPECT_EQ(s["server"].text, expected[i].server);
    EXPECT_EQ(s["order"].number, expected[i].order);
    EXPECT_EQ(s["enabled"].boolean, expected[i].enabled);
    EXPECT_EQ(s["local"].boolean, expected[i].local);
    EXPECT_EQ(s["passwordSet"].kind, JsonValue::Kind::Bool);
    EXPECT_FALSE(s["passwordSet"].boolean);
  }
}

TEST_F(ReadCommands, ShowOfAListWithoutFipsPoliciesOrSites) {
  WriteFile(Tmp("bare.xml"), c_bareList);
  const ToolResult r = Run({"show", Tmp("bare.xml")});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out,
            "Site list        " + Tmp("bare.xml") + "\n"
            "Global version   20240101000000\n"
            "Local version    -\n"
            "Type             Client\n"
            "FIPS mode        (not set)\n"
            "CA certificates  0\n"
            "Policy settings  (none)\n"
            "Sites            0\n");
  const ToolResult j = Run({"show", "--json", Tmp("bare.xml")});
  ASSERT_EQ(j.exitStatus, 0);
  const JsonValue doc = ParseJson(j.out);
  EXPECT_EQ(doc["fipsMode"].kind, JsonValue::Kind::Null);
  EXPECT_EQ(doc["localVersion"].text, "");
  EXPECT_TRUE(doc["policySettings"].members.empty());
  EXPECT_EQ(doc["sites"].kind, JsonValue::Kind::Array);
  EXPECT_TRUE(doc["sites"].items.empty());
}

TEST_F(ReadCommands, ShowOfAMissingFileFails) {
  const ToolResult r = Run({"show", Tmp("missing.xml")});
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "sitelist show: site list file does not exist (-4)\n");
}

TEST_F(ReadCommands, ShowOfTwoFilesIsAUsageError) {
  const ToolResult r = Run({"show", OwnList(), OwnList()});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "The following argument was not expected: " + OwnList() + "\nRun with --help for more information.\n");
}

TEST_F(ReadCommands, VersionsOfTheOwnListAndOfAnother) {
  ToolResult r = Run({"versions"});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out, "Global version  20250101000000\nLocal version   20250102030405\nType            Client\n");
  WriteFile(Tmp("server.xml"),
            R"(<ns:SiteLists xmlns:ns="zelSiteList" GlobalVersion="1" LocalVersion="2" Type="Server"/>)");
  r = Run({"versions", Tmp("server.xml")});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.out, "Global version  1\nLocal version   2\nType            Server\n");
}

TEST_F(ReadCommands, VersionsOfAMalformedFileFails) {
  WriteFile(Tmp("bad.xml"), "<ns:SiteLists");
  const ToolResult r = Run({"versions", Tmp("bad.xml")});
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "sitelist versions: general failure (-1)\n");
}

TEST_F(ReadCommands, VersionsWithAnUnknownOptionIsAUsageError) {
  const ToolResult r = Run({"versions", "--bogus"});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "The following argument was not expected: --bogus\nRun with --help for more information.\n");
}

TEST_F(ReadCommands, FipsPrintsTheFlagOrThatItIsNotSet) {
  ToolResult r = Run({"fips"});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out, "FIPS mode  1\n");
  WriteFile(Tmp("bare.xml"), c_bareList);
  r = Run({"fips", Tmp("bare.xml")});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.out, "FIPS mode  (not set)\n");
}

TEST_F(ReadCommands, FipsOfAMissingFileFails) {
  const ToolResult r = Run({"fips", Tmp("missing.xml")});
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "sitelist fips: site list file does not exist (-4)\n");
}

TEST_F(ReadCommands, FipsOfTwoFilesIsAUsageError) {
  const ToolResult r = Run({"fips", "a", "b"});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.err, "The following argument was not expected: b\nRun with --help for more information.\n");
}

TEST_F(ReadCommands, CertsPrintsEveryCertificateInOrder) {
  const ToolResult r = Run({"certs"});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out, "CERT-ONE\nCERT-TWO\n");
  WriteFile(Tmp("bare.xml"), c_bareList);
  const ToolResult none = Run({"certs", Tmp("bare.xml")});
  EXPECT_EQ(none.exitStatus, 0);
  EXPECT_EQ(none.out, "");
}

TEST_F(ReadCommands, CertsOfAMalformedFileFails) {
  WriteFile(Tmp("bad.xml"), "<ns:SiteLists><CaBundle>");
  const ToolResult r = Run({"certs", Tmp("bad.xml")});
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "sitelist certs: XML is not well formed (-5)\n");
}

TEST_F(ReadCommands, CertsWithAnUnknownOptionIsAUsageError) {
  const ToolResult r = Run({"certs", "--pem"});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.err, "The following argument was not expected: --pem\nRun with --help for more information.\n");
}

// ---- global options ----

TEST_F(ReadCommands, VersionOptionPrintsTheToolVersion) {
  const ToolResult r = Run({"--version"});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.out, "sitelist 4.0.0\n");
}

TEST_F(ReadCommands, HelpDescribesEveryCommand) {
  const ToolResult r = Run({"--help"});
  EXPECT_EQ(r.exitStatus, 0);
  for (const char* command : {"show", "versions", "fips", "certs", "validate", "import", "install", "set-server",
                              "server-info", "server-list", "rewrite", "export", "load", "encrypt-password", "notify"})
    EXPECT_NE(r.out.find(std::string("\n  ") + command + " "), std::string::npos) << command;
  for (const char* command : {"show", "versions", "fips", "certs", "validate", "import", "install", "set-server",
                              "server-info", "server-list", "rewrite", "export", "load", "encrypt-password", "notify"}) {
    const ToolResult h = Run({command, "--help"});
    EXPECT_EQ(h.exitStatus, 0) << command;
    EXPECT_NE(h.out.find(std::string("Example:\n  sitelist ")), std::string::npos) << command;
  }
}

TEST_F(ReadCommands, NoCommandIsAUsageError) {
  const ToolResult r = Run({});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "A subcommand is required\nRun with --help for more information.\n");
}

TEST_F(ReadCommands, DataDirOptionOverridesTheEnvironment) {
  testsupport::TempDir other;
  std::filesystem::create_directories(other.file("etc"));
  WriteFile(other.file("etc/SiteList.xml"), c_bareList);
  const ToolResult r = Run({"--data-dir", other.path(), "versions"});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.out, "Global version  20240101000000\nLocal version   \nType            Client\n");
  // Also after the command.
  const ToolResult after = Run({"show", "--data-dir", other.path()});
  EXPECT_EQ(after.exitStatus, 0);
  EXPECT_EQ(after.out.substr(0, after.out.find('\n')), "Site list        " + other.file("etc/SiteList.xml"));
}

TEST_F(ReadCommands, SiteListOptionNamesTheHelpersOwnFile) {
  WriteFile(Tmp("own.xml"), c_bareList);
  const ToolResult r = Run({"--site-list", Tmp("own.xml"), "versions"});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.out, "Global version  20240101000000\nLocal version   \nType            Client\n");
}

TEST_F(ReadCommands, VerboseWritesDetailLinesToStderr) {
  const ToolResult quiet = Run({"versions"});
  EXPECT_EQ(quiet.err, "");
  const ToolResult r = Run({"-v", "versions"});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.out, quiet.out);
  EXPECT_NE(r.err.find("[DETAIL] SiteHlp: Entering Getting Sitelist versions\n"), std::string::npos) << r.err;
}

TEST_F(ReadCommands, ManagedAndUnmanagedTogetherIsAUsageError) {
  const ToolResult r = Run({"--managed", "--unmanaged", "show"});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "--managed excludes --unmanaged\nRun with --help for more information.\n");
}

}  // namespace
}  // namespace tooltest
