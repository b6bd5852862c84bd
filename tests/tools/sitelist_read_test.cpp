// sitelist show, versions, fips, certs and the global options, run as a
// process on a temporary agent.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include <nlohmann/json.hpp>

#include "ToolFixture.h"

namespace tooltest {
namespace {

using testsupport::ReadFile;
using testsupport::WriteFile;
using Json = nlohmann::ordered_json;

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
  const Json doc = Json::parse(r.out);
  std::vector<std::string> keys;
  for (const auto& item : doc.items()) keys.push_back(item.key());
  EXPECT_EQ(keys, (std::vector<std::string>{"path", "globalVersion", "localVersion", "type", "fipsMode",
                                            "caCertificates", "policySettings", "sites"}));
  EXPECT_EQ(doc["path"], OwnList());
  EXPECT_EQ(doc["globalVersion"], "20250101000000");
  EXPECT_EQ(doc["localVersion"], "20250102030405");
  EXPECT_EQ(doc["type"], "Client");
  EXPECT_EQ(doc["fipsMode"], "1");
  EXPECT_EQ(doc["caCertificates"], 2);
  EXPECT_EQ(doc["policySettings"], Json::parse(R"({"Alpha": "x", "OverwriteClientSites": "0"})"));
  const Json expected = Json::parse(R"([
    {"kind": "HTTP", "element": "SpipeSite", "type": "master", "name": "Vantor_MasterSite",
     "server": "mgmt.test.example:80", "order": 1, "enabled": true, "local": false, "passwordSet": false},
    {"kind": "HTTP", "element": "HttpSite", "type": "repository", "name": "Own",
     "server": "own.test.example:8080", "order": 2, "enabled": true, "local": true, "passwordSet": false},
    {"kind": "FTP", "element": "FTPSite", "type": "repository", "name": "Ftp",
     "server": "ftp.test.example:21", "order": 3, "enabled": false, "local": false, "passwordSet": false},
    {"kind": "Local", "element": "LocalSite", "type": "fallback", "name": "Cache",
     "server": "127.0.0.1", "order": 0, "enabled": true, "local": true, "passwordSet": false}])");
  EXPECT_EQ(doc["sites"], expected);
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
  const Json doc = Json::parse(j.out);
  EXPECT_TRUE(doc["fipsMode"].is_null());
  EXPECT_EQ(doc["localVersion"], "");
  EXPECT_EQ(doc["policySettings"], Json::object());
  EXPECT_EQ(doc["sites"], Json::array());
}

TEST_F(ReadCommands, ShowOfAMissingFileNamesTheFile) {
  const ToolResult r = Run({"show", Tmp("missing.xml")});
  EXPECT_EQ(r.exitStatus, 3);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "sitelist show: " + Tmp("missing.xml") + ": no such file\n");
}

TEST_F(ReadCommands, AFifoIsSaidToBeNoRegularFileAndNeverWaitedOn) {
  ASSERT_EQ(0, mkfifo(Tmp("fifo").c_str(), 0644));
  // A reader that opened the FIFO the blocking way would never return.
  for (const char* command : {"show", "versions", "fips", "certs", "validate"}) {
    const ToolResult r = Run({command, Tmp("fifo")});
    EXPECT_EQ(r.exitStatus, 3) << command;
    EXPECT_EQ(r.out, "");
    // validate also shows the library's own line about the failed read.
    const std::string line = std::string("sitelist ") + command + ": " + Tmp("fifo") + ": not a regular file\n";
    ASSERT_GE(r.err.size(), line.size()) << r.err;
    EXPECT_EQ(r.err.substr(r.err.size() - line.size()), line) << command;
  }
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

TEST_F(ReadCommands, VersionsOfAMalformedFileSaysItIsNotWellFormed) {
  WriteFile(Tmp("bad.xml"), "<ns:SiteLists");
  const ToolResult r = Run({"versions", Tmp("bad.xml")});
  EXPECT_EQ(r.exitStatus, 4);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, Tmp("bad.xml") + ":1:1: XML is not well formed: unclosed token\n");
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

TEST_F(ReadCommands, FipsOfAMissingFileNamesTheFile) {
  const ToolResult r = Run({"fips", Tmp("missing.xml")});
  EXPECT_EQ(r.exitStatus, 3);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "sitelist fips: " + Tmp("missing.xml") + ": no such file\n");
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
  EXPECT_EQ(r.exitStatus, 4);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, Tmp("bad.xml") + ":1:1: XML is not well formed: unbound prefix\n");
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

const char* const c_commands[] = {"show",        "diff",       "versions",   "fips",       "certs",
                                  "validate",    "import",     "install",    "add-site",   "remove-site",
                                  "enable",      "disable",    "set-order",  "edit",       "set-proxy",
                                  "set-server",  "server-info", "server-list", "rewrite",   "export",
                                  "load",        "history",    "undo",       "restore",
                                  "encrypt-password", "notify"};

TEST_F(ReadCommands, HelpDescribesEveryCommandAndTheExitStatuses) {
  const ToolResult r = Run({"--help"});
  EXPECT_EQ(r.exitStatus, 0);
  for (const char* command : c_commands)
    EXPECT_NE(r.out.find(std::string("\n  ") + command + " "), std::string::npos) << command;
  EXPECT_NE(r.out.find("Exit status: 0 success; 1 the operation failed (its result code and meaning on\n"
                       "stderr); 2 usage error; 3 a file is missing or cannot be read; 4 a file is not\n"
                       "well-formed XML (FILE:LINE:COLUMN: what is wrong) or not a site list; 5 refused\n"
                       "by the source checks; 6 a lock could not be obtained.\n"),
            std::string::npos)
      << r.out;
  for (const char* command : c_commands) {
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
