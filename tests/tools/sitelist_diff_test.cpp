// sitelist diff: two lists compared by meaning, as text and as JSON.
#include <gtest/gtest.h>

#include <string>

#include "EditFixture.h"

namespace tooltest {
namespace {

using testsupport::WriteFile;

void Replace(std::string& text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  ASSERT_NE(at, std::string::npos) << from;
  text.replace(at, from.size(), to);
}

class Diff : public EditTest {
 protected:
  // The original list changed in every respect a diff reports.
  std::string Changed() const {
    std::string b = Original();
    Replace(b, R"(GlobalVersion="20250101000000")", R"(GlobalVersion="20260101000000")");
    Replace(b, R"(Type="Client" FipsMode="1")", R"(Type="Server")");
    Replace(b, "<CaCertificate>CERT-ONE</CaCertificate>", "<CaCertificate>CERT-NEW</CaCertificate>");
    Replace(b, R"(<Setting name="OverwriteClientSites">0</Setting>)",
            R"(<Setting name="OverwriteClientSites">1</Setting><Setting name="Beta">b</Setting>)");
    const std::size_t ftp = b.find("    <FTPSite");
    b.erase(ftp, b.find("</FTPSite>") + 11 - ftp);
    Replace(b, R"(Server="own.test.example:8080")", R"(Server="own.test.example:8443")");
    Replace(b, R"(<UseAuth>1</UseAuth>
      <UserName>svc</UserName>
      <Password Encrypted="1">)",
            R"(<UseAuth>1</UseAuth>
      <UserName>svc</UserName>
      <Password Encrypted="1">)" +
                Encrypted("new-http-pw") + "<!--");
    Replace(b, "</Password>\n    </HttpSite>\n    <UNCSite", "--></Password>\n    </HttpSite>\n    <UNCSite");
    Replace(b, R"(Name="Share" Order="5" Server="files.test.example" Enabled="1")",
            R"(Name="Share" Order="5" Server="files.test.example" Enabled="0")");
    Replace(b, "    <ProxyConfigList>", R"(    <HttpSite Type="repository" Name="New" Order="6" Enabled="1" Local="1" Server="new.test.example:80">
      <RelativePath>N</RelativePath>
    </HttpSite>
    <ProxyConfigList>)");
    return b;
  }
};

TEST_F(Diff, ShowsEveryChangeByMeaning) {
  WriteFile(Tmp("b.xml"), Changed());
  const ToolResult r = Run({"diff", Tmp("original.xml"), Tmp("b.xml")});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out,
            "--- " + Tmp("original.xml") + "\n"
            "+++ " + Tmp("b.xml") + "\n"
            "~ global version: 20250101000000 -> 20260101000000\n"
            "~ type: Client -> Server\n"
            "~ FIPS mode: 1 -> (not set)\n"
            "~ CA certificates: 2 -> 2\n"
            "    - SHA256 FF:26:62:80:62:EE:EA:92:D0:08:37:45:50:DF:DD:C2:3A:2F:B6:3E:90:C8:C9:3A:0A:E0:95:44:72:08:C0:0E\n"
            "    + SHA256 21:B4:BD:14:B0:F3:0D:B6:12:9C:47:59:C0:59:E8:B2:E6:1B:F8:CB:E0:79:A5:DC:11:36:90:4F:E1:38:AA:09\n"
            "+ policy Beta: b\n"
            "~ policy OverwriteClientSites: 0 -> 1\n"
            "- FTPSite \"Ftp\"\n"
            "~ HttpSite \"Own\"\n"
            "    server: own.test.example:8080 -> own.test.example:8443\n"
            "    password: changed\n"
            "~ UNCSite \"Share\"\n"
            "    enabled: yes -> no\n"
            "+ HttpSite \"New\"\n"
            "    type: repository\n"
            "    order: 6\n"
            "    enabled: yes\n"
            "    local: yes\n"
            "    server: new.test.example:80\n"
            "    secure port: 0\n"
            "    path: N\n"
            "    use auth: 0\n"
            "    user: (empty)\n"
            "    password: (none)\n");
  EXPECT_EQ(r.out.find("new-http-pw"), std::string::npos);
}

TEST_F(Diff, JsonHoldsTheSameChanges) {
  WriteFile(Tmp("b.xml"), Changed());
  const ToolResult r = Run({"diff", "--json", Tmp("original.xml"), Tmp("b.xml")});
  ASSERT_EQ(r.exitStatus, 0) << r.err;
  const Json expected = Json::parse(R"({
    "old": "@A@", "new": "@B@", "oldExists": true, "newExists": true, "identical": false,
    "list": [{"field": "globalVersion", "old": "20250101000000", "new": "20260101000000"},
             {"field": "type", "old": "Client", "new": "Server"},
             {"field": "fipsMode", "old": "1", "new": null}],
    "caCertificates": {"old": 2, "new": 2,
      "added": ["21:B4:BD:14:B0:F3:0D:B6:12:9C:47:59:C0:59:E8:B2:E6:1B:F8:CB:E0:79:A5:DC:11:36:90:4F:E1:38:AA:09"],
      "removed": ["FF:26:62:80:62:EE:EA:92:D0:08:37:45:50:DF:DD:C2:3A:2F:B6:3E:90:C8:C9:3A:0A:E0:95:44:72:08:C0:0E"]},
    "policySettings": [{"name": "Beta", "old": null, "new": "b"},
                       {"name": "OverwriteClientSites", "old": "0", "new": "1"}],
    "sites": {
      "removed": [{"element": "FTPSite", "name": "Ftp", "type": "repository", "order": 3, "enabled": false,
                   "local": false, "server": "ftp.test.example:21", "securePort": 0, "relativePath": "Updates",
                   "userName": "anonymous", "password": false}],
      "added": [{"element": "HttpSite", "name": "New", "type": "repository", "order": 6, "enabled": true,
                 "local": true, "server": "new.test.example:80", "securePort": 0, "relativePath": "N",
                 "useAuth": 0, "userName": "", "password": false}],
      "changed": [{"element": "HttpSite", "name": "Own", "fields": [
                     {"field": "server", "old": "own.test.example:8080", "new": "own.test.example:8443"},
                     {"field": "password", "change": "changed"}]},
                  {"element": "UNCSite", "name": "Share", "fields": [
                     {"field": "enabled", "old": true, "new": false}]}]},
    "files": []})");
  Json doc = Json::parse(r.out);
  EXPECT_EQ(doc["old"], Tmp("original.xml"));
  EXPECT_EQ(doc["new"], Tmp("b.xml"));
  doc["old"] = "@A@";
  doc["new"] = "@B@";
  EXPECT_EQ(doc, expected);
}

TEST_F(Diff, OfAListWithItselfFindsNoDifferences) {
  const ToolResult r = Run({"diff", Tmp("original.xml"), OwnList()});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.out, "--- " + Tmp("original.xml") + "\n+++ " + OwnList() + "\nno differences\n");
  const ToolResult j = Run({"diff", "--json", Tmp("original.xml"), OwnList()});
  EXPECT_EQ(Json::parse(j.out)["identical"], true);
}

TEST_F(Diff, MatchesSitesOfOneNameByKindAndCountsRepeatedCertificates) {
  std::string a = Original(), b = Original();
  Replace(a, R"(Name="Ftp")", R"(Name="Own")");
  Replace(b, "<CaCertificate>CERT-ONE</CaCertificate>",
          "<CaCertificate>CERT-ONE</CaCertificate><CaCertificate>CERT-ONE</CaCertificate>");
  Replace(b, R"(Name="Ftp")", R"(Name="Own")");
  Replace(b, R"(Server="ftp.test.example:21")", R"(Server="ftp.test.example:2121")");
  WriteFile(Tmp("a.xml"), a);
  WriteFile(Tmp("b.xml"), b);
  const ToolResult r = Run({"diff", Tmp("a.xml"), Tmp("b.xml")});
  EXPECT_EQ(r.out,
            "--- " + Tmp("a.xml") + "\n+++ " + Tmp("b.xml") + "\n"
            "~ CA certificates: 2 -> 3\n"
            "    + SHA256 FF:26:62:80:62:EE:EA:92:D0:08:37:45:50:DF:DD:C2:3A:2F:B6:3E:90:C8:C9:3A:0A:E0:95:44:72:08:C0:0E\n"
            "~ FTPSite \"Own\"\n"
            "    server: ftp.test.example:21 -> ftp.test.example:2121\n");
}

TEST_F(Diff, NamesAMissingOrBrokenFile) {
  ToolResult r = Run({"diff", Tmp("original.xml"), Tmp("none.xml")});
  EXPECT_EQ(r.exitStatus, 3);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "sitelist diff: " + Tmp("none.xml") + ": no such file\n");
  WriteFile(Tmp("bad.xml"), "<ns:SiteLists><SiteList></ns:SiteLists>");
  r = Run({"diff", Tmp("bad.xml"), Tmp("original.xml")});
  EXPECT_EQ(r.exitStatus, 4);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, Tmp("bad.xml") + ":1:1: XML is not well formed: unbound prefix\n");
  r = Run({"diff", Tmp("original.xml")});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.err, "B is required\nRun with --help for more information.\n");
}

}  // namespace
}  // namespace tooltest
