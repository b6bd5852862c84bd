// --json on the commands that print, and the site table as the agent uses
// the sites: sorted by order, aligned by display width.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "EditFixture.h"

namespace tooltest {
namespace {

using testsupport::WriteFile;

class JsonOutput : public EditTest {};

TEST_F(JsonOutput, VersionsFipsAndCerts) {
  EXPECT_EQ(Json::parse(MustRun({"versions", "--json"})),
            (Json{{"path", OwnList()}, {"globalVersion", "20250101000000"}, {"localVersion", "20250102030405"},
                  {"type", "Client"}}));
  EXPECT_EQ(Json::parse(MustRun({"fips", "--json"})), (Json{{"path", OwnList()}, {"fipsMode", "1"}}));
  WriteFile(Tmp("nofips.xml"), R"(<ns:SiteLists xmlns:ns="zelSiteList"><SiteList/></ns:SiteLists>)");
  EXPECT_EQ(Json::parse(MustRun({"fips", "--json", Tmp("nofips.xml")})),
            (Json{{"path", Tmp("nofips.xml")}, {"fipsMode", nullptr}}));
}

TEST_F(JsonOutput, CertsCarryTheirFingerprints) {
  const Json doc = Json::parse(MustRun({"certs", "--json"}));
  EXPECT_EQ(doc["path"], OwnList());
  const Json expected = Json::parse(R"([
      {"sha256": "FF:26:62:80:62:EE:EA:92:D0:08:37:45:50:DF:DD:C2:3A:2F:B6:3E:90:C8:C9:3A:0A:E0:95:44:72:08:C0:0E",
       "text": "CERT-ONE"},
      {"sha256": "AC:37:8C:52:9C:06:CF:FC:46:C3:39:A0:D4:7E:7C:E2:66:DD:72:FF:83:FA:65:B3:8F:87:1A:15:4C:4E:84:0A",
       "text": "-----BEGIN CERTIFICATE-----\nTUlJQmdqQ0NBU2lnQXdJQkFnSVVRbVY0WVcxd2JHVWdjbTl2ZENCRFFTQXhNQW9H\n-----END CERTIFICATE-----"}])");
  EXPECT_EQ(doc["certificates"], expected);
}

TEST_F(JsonOutput, ValidateGivesEveryRuleItsVerdict) {
  std::string list = Original();
  list.replace(list.find("<RelativePath>Software</RelativePath>"), 37, "<RelativePath></RelativePath>");
  WriteFile(Tmp("in.xml"), list);
  const ToolResult r = Run({"--managed", "validate", "--json", Tmp("in.xml")});
  EXPECT_EQ(r.exitStatus, 5);
  EXPECT_EQ(r.err, "");
  const Json doc = Json::parse(r.out);
  EXPECT_EQ(doc["path"], Tmp("in.xml"));
  EXPECT_EQ(doc["managed"], true);
  EXPECT_EQ(doc["accepted"], false);
  EXPECT_EQ(doc["result"], -9);
  std::vector<std::string> verdicts;
  for (const Json& rule : doc["rules"])
    verdicts.push_back(rule["rule"].get<std::string>() + "=" + rule["verdict"].get<std::string>());
  EXPECT_EQ(verdicts, (std::vector<std::string>{"sites=passed", "spipe-site=passed", "not-local=passed",
                                                "http-kind=passed", "master-type=passed", "spipe-element=passed",
                                                "name=passed", "server=passed", "server-ip=passed",
                                                "computer-name=passed", "path=failed", "request-key=failed",
                                                "server-key=failed"}));
  EXPECT_EQ(doc["rules"][10], (Json{{"rule", "path"},
                                   {"requirement", "the SPIPE site has a relative path"},
                                   {"verdict", "failed"},
                                   {"site", "Vantor_MasterSite"},
                                   {"message", "path cannot be empty"}}));
  EXPECT_EQ(doc["rules"][0]["site"], nullptr);
  // Not managed: only the list-wide rule applies.
  const ToolResult unmanaged = Run({"validate", "--json", Tmp("in.xml")});
  EXPECT_EQ(unmanaged.exitStatus, 0);
  const Json accepted = Json::parse(unmanaged.out);
  EXPECT_EQ(accepted["accepted"], true);
  EXPECT_EQ(accepted["rules"][0]["verdict"], "passed");
  for (std::size_t i = 1; i < accepted["rules"].size(); ++i) EXPECT_EQ(accepted["rules"][i]["verdict"], "not applied");
}

TEST_F(JsonOutput, ServerInfoNotifyAndEncryptPassword) {
  EXPECT_EQ(Json::parse(MustRun({"server-info", "--json"})),
            (Json{{"name", "Vantor_MasterSite"}, {"server", "mgmt.test.example"}, {"serverIP", "192.0.2.1"},
                  {"netbiosName", "MGMT"}, {"port", 443}, {"version", "5.0"}}));
  EXPECT_EQ(Json::parse(MustRun({"notify", "--json"})), (Json{{"changeNotice", true}}));
  const Json encrypted = Json::parse(MustRun({"encrypt-password", "--json"}, "pw\n"));
  ASSERT_TRUE(encrypted["encrypted"].is_string());
  EXPECT_FALSE(encrypted["encrypted"].get<std::string>().empty());
  EXPECT_EQ(encrypted.size(), 1u);
}

TEST_F(JsonOutput, TheSiteTableFollowsTheOrderUnlessFileOrderIsAsked) {
  const std::string header =
      "Kind   Element          Type        Name               Server                   Order  Enabled  Local  "
      "Password\n";
  const std::string spipe =
      "HTTP   SpipeSite        master      Vantor_MasterSite  mgmt.test.example:80     1      yes      no     -\n";
  const std::string relay =
      "HTTP   SuperAgentSite   repository  Relay              relay.test.example:8081  2      yes      no     -\n";
  const std::string ftp =
      "FTP    FTPSite          repository  Ftp                ftp.test.example:21      3      no       no     -\n";
  const std::string own =
      "HTTP   HttpSite         repository  Own                own.test.example:8080    4      yes      yes    set\n";
  const std::string share =
      "UNC    UNCSite          repository  Share              files.test.example       5      yes      yes    set\n";
  const std::string mirror =
      "HTTP   HttpSite         mirror      Mirror             mirror.test.example:80   0      yes      yes    -\n";
  const std::string cache =
      "Local  LocalSite        fallback    Cache              127.0.0.1                0      yes      yes    -\n";
  const std::string proxy =
      "Proxy  ProxyConfigList  -           CorpProxy          proxy.test.example:3128  0      no       no     set\n";
  const std::string shown = MustRun({"show"});
  EXPECT_EQ(shown.substr(shown.find("Kind")), header + spipe + relay + ftp + own + share + mirror + cache + proxy);
  const std::string inFile = MustRun({"show", "--file-order"});
  EXPECT_EQ(inFile.substr(inFile.find("Kind")), header + spipe + relay + own + ftp + share + mirror + cache + proxy);
  std::vector<std::string> names;
  const Json doc = Json::parse(MustRun({"show", "--json"}));
  for (const Json& site : doc["sites"]) names.push_back(site["name"]);
  EXPECT_EQ(names, (std::vector<std::string>{"Vantor_MasterSite", "Relay", "Ftp", "Own", "Share", "Mirror", "Cache",
                                             "CorpProxy"}));
}

TEST_F(JsonOutput, TheSiteTableAlignsWideAndCombiningCharacters) {
  WriteFile(OwnList(), R"(<ns:SiteLists xmlns:ns="zelSiteList" GlobalVersion="1" LocalVersion="2"><SiteList>
    <HttpSite Type="repository" Name="東京" Order="1" Enabled="1" Local="1" Server="a.test.example:80"/>
    <HttpSite Type="repository" Name="Cafe&#x301;" Order="2" Enabled="1" Local="1" Server="b.test.example:80"/>
  </SiteList></ns:SiteLists>)");
  const std::string shown = MustRun({"show"});
  EXPECT_EQ(shown.substr(shown.find("Kind")),
            "Kind  Element   Type        Name  Server             Order  Enabled  Local  Password\n"
            "HTTP  HttpSite  repository  東京  a.test.example:80  1      yes      yes    -\n"
            "HTTP  HttpSite  repository  Cafe\xCC\x81  b.test.example:80  2      yes      yes    -\n");
}

}  // namespace
}  // namespace tooltest
