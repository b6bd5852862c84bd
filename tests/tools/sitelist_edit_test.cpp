// add-site, remove-site, enable, disable, set-order and edit, run as a
// process on an agent whose list holds every kind of site, with passwords.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>

#include "EditFixture.h"
#include "port/config/IConfiguration.h"
#include "sitehlp/SitesHelper.h"

namespace tooltest {
namespace {

using testsupport::FileExists;
using testsupport::ReadFile;
using testsupport::WriteFile;

// Expected documents are written one element a line; the writer puts none
// between elements.
std::string Joined(const std::string& lines) { return std::regex_replace(lines, std::regex(">\n\\s*<"), "><"); }

// The agent's list as the writer gives it back after adding HttpSite "Branch":
// the global version, type, certificates, policy settings and every other
// site kept, a new local version, FipsMode gone, the fallback site's order 0.
const std::string c_afterAddingBranch = Joined(R"(<?xml version="1.0" encoding="UTF-8"?>
<ns:SiteLists xmlns:ns="zelSiteList" GlobalVersion="20250101000000" LocalVersion="@STAMP@" Type="Client">
<CaBundle><CaCertificate>CERT-ONE</CaCertificate><CaCertificate>-----BEGIN CERTIFICATE-----
TUlJQmdqQ0NBU2lnQXdJQkFnSVVRbVY0WVcxd2JHVWdjbTl2ZENCRFFTQXhNQW9H
-----END CERTIFICATE-----</CaCertificate></CaBundle>
<Policies><Setting name="OverwriteClientSites">0</Setting></Policies>
<SiteList Default="1" Name="SomeGUID">
<SpipeSite Type="master" Name="Vantor_MasterSite" Order="1" Enabled="1" Local="0" SecurePort="443" Server="mgmt.test.example:80" ServerName="MGMT:80" ServerIP="192.0.2.1:80" Version="5.0">
<RelativePath>Software</RelativePath><UseAuth>0</UseAuth><UserName></UserName><Password Encrypted="1">@SECRET@</Password>
</SpipeSite>
<SuperAgentSite Type="repository" Name="Relay" Order="2" Enabled="1" Local="0" Server="relay.test.example:8081" ServerName="RELAY:8081" ServerIP="192.0.2.2:8081">
<RelativePath>Software</RelativePath><UseAuth>0</UseAuth><UserName></UserName><Password Encrypted="1">@SECRET@</Password>
</SuperAgentSite>
<HttpSite Type="repository" Name="Own" Order="4" Enabled="1" Local="1" Server="own.test.example:8080">
<RelativePath>Updates</RelativePath><UseAuth>1</UseAuth><UserName>svc</UserName><Password Encrypted="1">@SECRET@</Password>
</HttpSite>
<FTPSite Type="repository" Name="Ftp" Order="3" Server="ftp.test.example:21" Enabled="0" Local="0">
<RelativePath>Updates</RelativePath><UserName>anonymous</UserName><Password Encrypted="1">@SECRET@</Password>
</FTPSite>
<UNCSite Type="repository" Name="Share" Order="5" Server="files.test.example" Enabled="1" Local="1">
<ShareName>updates</ShareName><RelativePath>agent</RelativePath><UseLoggedonUserAccount>0</UseLoggedonUserAccount>
<DomainName>CORP</DomainName><UserName>unc-user</UserName><Password Encrypted="1">@SECRET@</Password>
</UNCSite>
<HttpSite Type="mirror" Name="Mirror" Enabled="1" Local="1" Server="mirror.test.example:80">
<RelativePath>Mirror</RelativePath><UseAuth>0</UseAuth><UserName></UserName><Password Encrypted="1">@SECRET@</Password>
</HttpSite>
<LocalSite Type="fallback" Name="Cache" Order="0" Enabled="1" Local="1" Server="127.0.0.1">
<RelativePath>/var/cache/updates</RelativePath><UseLoggedonUserAccount>1</UseLoggedonUserAccount>
<DomainName></DomainName><UserName></UserName><Password Encrypted="1">@SECRET@</Password>
</LocalSite>
<ProxyConfigList><ProxyConfig Name="CorpProxy" Local="1" HttpProxyServer="proxy.test.example" HttpProxyPort="3128">
<AllowUserToConfigureProxy>0</AllowUserToConfigureProxy><BypassLocalAddress>1</BypassLocalAddress>
<ExclusionList><ExclusionHost>mgmt.test.example</ExclusionHost><ExclusionHost>files.test.example</ExclusionHost></ExclusionList>
<FtpUseAuth>0</FtpUseAuth><HttpUseAuth>1</HttpUseAuth>
<HttpProxyUser>proxy-user</HttpProxyUser><HttpProxyPassword Encrypted="1">@SECRET@</HttpProxyPassword>
<FtpProxyUser></FtpProxyUser><FtpProxyPassword Encrypted="1">@SECRET@</FtpProxyPassword>
<AlternateFtpUseAuth>0</AlternateFtpUseAuth><AlternateHttpUseAuth>0</AlternateHttpUseAuth>
<AlternateHttpProxyUser></AlternateHttpProxyUser><AlternateHttpProxyPassword Encrypted="1">@SECRET@</AlternateHttpProxyPassword>
<AlternateFtpProxyUser></AlternateFtpProxyUser><AlternateFtpProxyPassword Encrypted="1">@SECRET@</AlternateFtpProxyPassword>
</ProxyConfig></ProxyConfigList>
<HttpSite Type="repository" Name="Branch" Order="6" Enabled="1" Local="1" Server="repo.branch.example:8080">
<RelativePath>updates</RelativePath><UseAuth>0</UseAuth><UserName></UserName><Password Encrypted="1">@SECRET@</Password>
</HttpSite>
</SiteList></ns:SiteLists>)");

// The changes since the start that every write of the full list brings: a
// new local version, and FipsMode, which the writer never writes, gone.
void ExpectOnlyTheWritersOwnListChanges(const Json& changes) {
  ASSERT_EQ(changes["list"].size(), 2u) << changes.dump(2);
  EXPECT_EQ(changes["list"][0]["field"], "localVersion");
  EXPECT_EQ(changes["list"][0]["old"], "20250102030405");
  EXPECT_TRUE(std::regex_match(changes["list"][0]["new"].get<std::string>(), std::regex(R"(\d{14})")));
  EXPECT_EQ(changes["list"][1], (Json{{"field", "fipsMode"}, {"old", "1"}, {"new", nullptr}}));
  EXPECT_EQ(changes["caCertificates"]["added"], Json::array());
  EXPECT_EQ(changes["caCertificates"]["removed"], Json::array());
  EXPECT_EQ(changes["policySettings"], Json::array());
}

class AddSite : public EditTest {};

TEST_F(AddSite, WritesTheSiteAndKeepsEverythingElse) {
  const ToolResult r = Run({"add-site", "--kind", "http", "--name", "Branch", "--server", "repo.branch.example:8080",
                            "--path", "updates"});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out, "added HttpSite \"Branch\" to " + OwnList() + "\n");
  EXPECT_EQ(Normalized(ReadFile(OwnList())), c_afterAddingBranch);
  const Json changes = ChangesSinceStart();
  ExpectOnlyTheWritersOwnListChanges(changes);
  // The passwords of the other sites came through the rewrite unchanged.
  EXPECT_EQ(changes["sites"]["changed"], Json::array());
  EXPECT_EQ(changes["sites"]["removed"], Json::array());
  ASSERT_EQ(changes["sites"]["added"].size(), 1u);
  // A change notice follows the write; its lock file is the sign.
  EXPECT_TRUE(FileExists(LockDir() + "/SmartSiteListLock.lock"));
  EXPECT_TRUE(std::filesystem::is_empty(ScratchDir()));
}

TEST_F(AddSite, TakesEveryKindWithItsOwnFields) {
  MustRun({"add-site", "--kind", "ftp", "--name", "Ftp2", "--server", "ftp2.test.example", "--order", "7",
           "--disabled", "--not-local"});
  MustRun({"add-site", "--kind", "unc", "--name", "Share2", "--server", "files2.test.example", "--share", "pkgs",
           "--path", "a/b", "--domain", "CORP", "--user", "svc2", "--password-stdin"},
          "unc2-pw\n");
  MustRun({"add-site", "--kind", "local", "--name", "Dir", "--path", "/srv/updates", "--type", "mirror"});
  MustRun({"add-site", "--kind", "superagent", "--name", "Relay2", "--server", "[2001:db8::7]:8081"});
  const Json added = ChangesSinceStart()["sites"]["added"];
  const Json expected = Json::parse(R"([
    {"element": "FTPSite", "name": "Ftp2", "type": "repository", "order": 7, "enabled": false, "local": false,
     "server": "ftp2.test.example:21", "securePort": 0, "relativePath": "", "userName": "", "password": false},
    {"element": "UNCSite", "name": "Share2", "type": "repository", "order": 8, "enabled": true, "local": true,
     "server": "files2.test.example", "shareName": "pkgs", "relativePath": "a/b", "useLoggedonUserAccount": 0,
     "domainName": "CORP", "userName": "svc2", "password": true},
    {"element": "LocalSite", "name": "Dir", "type": "mirror", "order": 0, "enabled": true, "local": true,
     "relativePath": "/srv/updates", "useLoggedonUserAccount": 1, "domainName": "", "userName": "",
     "password": false},
    {"element": "SuperAgentSite", "name": "Relay2", "type": "repository", "order": 9, "enabled": true,
     "local": true, "server": "[2001:db8::7]:8081", "securePort": 0, "serverName": "", "serverIP": "",
     "relativePath": "", "useAuth": 0, "userName": "", "password": false}])");
  EXPECT_EQ(added, expected);
}

TEST_F(AddSite, StoresThePasswordEncryptedAndNeverShowsIt) {
  const ToolResult r = Run({"-v", "add-site", "--json", "--kind", "http", "--name", "Secret", "--server",
                            "s.test.example", "--user", "u", "--password-stdin"},
                           "Pa55-word\n");
  ASSERT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(r.out.find("Pa55-word"), std::string::npos);
  EXPECT_EQ(r.err.find("Pa55-word"), std::string::npos);
  EXPECT_NE(r.err.find("[DETAIL] SiteHlp: Entering Creating Sitelist"), std::string::npos);
  EXPECT_EQ(ReadFile(OwnList()).find("Pa55-word"), std::string::npos);
  // The library, with the agent's keys, reads the clear password back.
  port::SetConfigValue(port::ConfigKey::KeyDir, KeyDir());
  port::SetConfigValue(port::ConfigKey::LockDir, LockDir());
  sitehlp::CSitesHelper helper(testsupport::Wide(OwnList()));
  sitehlp::tag_Site* sites = nullptr;
  ASSERT_EQ(helper.ReadSiteList(L"", &sites), 0);
  const sitehlp::tag_Site* last = sites;
  while (last && last->pNext) last = last->pNext;
  ASSERT_NE(last, nullptr);
  EXPECT_EQ(std::wstring(last->httpSite.szName), L"Secret");
  EXPECT_EQ(std::wstring(last->httpSite.szPassword), L"Pa55-word");
  EXPECT_EQ(last->httpSite.nUseAuth, 1);
  helper.FreeSiteListMemory(sites);
  port::ResetConfigValues();
}

TEST_F(AddSite, RefusesANameInUseWithoutRegardToCase) {
  const Snapshot before = SnapshotOf(DataDir());
  const ToolResult r = Run({"add-site", "--kind", "ftp", "--name", "OWN", "--server", "x.test.example"});
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "sitelist add-site: a site named \"Own\" (HttpSite) is already in " + OwnList() +
                       "; site names are compared without regard to case\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

TEST_F(AddSite, RefusesASecondFallbackSite) {
  const Snapshot before = SnapshotOf(DataDir());
  const ToolResult r = Run({"add-site", "--kind", "local", "--name", "Cache2", "--path", "/x", "--type", "fallback"});
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_EQ(r.err, "sitelist add-site: " + OwnList() +
                       " already has a fallback site, LocalSite \"Cache\"; remove it first\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

TEST_F(AddSite, RefusesValuesThatDoNotFitTheKindBeforeReadingTheList) {
  const Snapshot before = SnapshotOf(DataDir());
  struct Case {
    std::vector<std::string> args;
    std::string error;
  };
  const std::string longName(260, 'n');
  const Case cases[] = {
      {{"--kind", "http", "--name", "A"}, "--server is required for --kind http"},
      {{"--kind", "local", "--name", "A", "--server", "h", "--path", "/p"},
       "--server: a local site's server is always 127.0.0.1"},
      {{"--kind", "local", "--name", "A"}, "--path (the repository's directory) is required for --kind local"},
      {{"--kind", "unc", "--name", "A", "--server", "h"}, "--share is required for --kind unc"},
      {{"--kind", "http", "--name", "A", "--server", "h", "--share", "s"}, "--share is only for --kind unc"},
      {{"--kind", "ftp", "--name", "A", "--server", "h", "--domain", "D"}, "--domain is only for --kind unc or local"},
      {{"--kind", "unc", "--name", "A", "--server", "h:445", "--share", "s"}, "--server: a UNC server takes no port"},
      {{"--kind", "http", "--name", "A", "--server", "h:70000"}, "--server: the port 70000 is not a number from 1 to 65535"},
      {{"--kind", "http", "--name", "A", "--server", "h:"}, "--server: the port  is not a number from 1 to 65535"},
      {{"--kind", "http", "--name", "A", "--server", ":80"}, "--server: no valid host in \":80\""},
      {{"--kind", "http", "--name", "A", "--server", "h", "--type", "mirror", "--order", "3"},
       "--order: a mirror site takes no order"},
      {{"--kind", "http", "--name", "", "--server", "h"}, "--name must not be empty"},
      {{"--kind", "http", "--name", longName, "--server", "h"}, "--name is longer than 259 characters"},
  };
  for (const Case& c : cases) {
    std::vector<std::string> args{"add-site"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    const ToolResult r = Run(args);
    EXPECT_EQ(r.exitStatus, 2) << c.error;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "sitelist add-site: " + c.error + "\n");
  }
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

TEST_F(AddSite, RefusesAPasswordLongerThanASiteListHolds) {
  const Snapshot before = SnapshotOf(DataDir());
  const std::vector<std::string> args{"add-site", "--kind", "http", "--name", "P", "--server", "h.test.example",
                                      "--user", "u", "--password-stdin"};
  const ToolResult tooLong = Run(args, std::string(260, 'p') + "\n");
  EXPECT_EQ(tooLong.exitStatus, 2);
  EXPECT_EQ(tooLong.out, "");
  EXPECT_EQ(tooLong.err, "sitelist add-site: the password is longer than 259 characters, more than a site list "
                         "holds; it was not used\n");
  const ToolResult empty = Run(args, "\n");
  EXPECT_EQ(empty.exitStatus, 2);
  EXPECT_EQ(empty.err, "sitelist add-site: standard input holds no password\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
  // 259 characters (here two bytes each) fit.
  std::string longest;
  for (int i = 0; i < 259; ++i) longest += "\xC3\xA9";
  const ToolResult fits = Run(args, longest);
  EXPECT_EQ(fits.exitStatus, 0) << fits.err;
  EXPECT_EQ(ChangesSinceStart()["sites"]["added"][0]["password"], true);
}

TEST_F(AddSite, TakesThePasswordOnlyFromStandardInput) {
  ToolResult r = Run({"add-site", "--kind", "http", "--name", "P", "--server", "h", "--password", "x"});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.err, "The following arguments were not expected: x --password\nRun with --help for more information.\n");
  r = Run({"add-site", "--kind", "http", "--name", "P", "--server", "h", "--password-stdin"}, "x");
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.err, "--password-stdin requires --user\nRun with --help for more information.\n");
}

class RemoveSite : public EditTest {};

TEST_F(RemoveSite, RemovesTheSiteAndSendsAChangeNotice) {
  const ToolResult r = Run({"remove-site", "share"});
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out, "removed UNCSite \"Share\" from " + OwnList() + "\n");
  const Json changes = ChangesSinceStart();
  ExpectOnlyTheWritersOwnListChanges(changes);
  ASSERT_EQ(changes["sites"]["removed"].size(), 1u);
  EXPECT_EQ(changes["sites"]["removed"][0]["name"], "Share");
  EXPECT_EQ(changes["sites"]["added"], Json::array());
  EXPECT_EQ(changes["sites"]["changed"], Json::array());
  EXPECT_TRUE(FileExists(LockDir() + "/SmartSiteListLock.lock"));
}

TEST_F(RemoveSite, AnUnknownNameListsTheSitesThereAre) {
  const Snapshot before = SnapshotOf(DataDir());
  ToolResult r = Run({"remove-site", "Nope"});
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "sitelist remove-site: no site is named \"Nope\" in " + OwnList() +
                       "; the sites there: SpipeSite \"Vantor_MasterSite\", SuperAgentSite \"Relay\", HttpSite \"Own\", "
                       "FTPSite \"Ftp\", UNCSite \"Share\", HttpSite \"Mirror\", LocalSite \"Cache\"\n");
  r = Run({"remove-site", "--kind", "ftp", "Own"});
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_EQ(r.err, "sitelist remove-site: no FTPSite is named \"Own\" in " + OwnList() +
                       "; the FTPSite sites there: FTPSite \"Ftp\"\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

TEST_F(RemoveSite, ANameOfSeveralSitesNeedsTheKind) {
  MustRun({"add-site", "--kind", "ftp", "--name", "Twin", "--server", "t.test.example"});
  std::string list = ReadFile(OwnList());
  list.replace(list.find("Name=\"Own\""), 10, "Name=\"twin\"");
  WriteFile(OwnList(), list);
  ToolResult r = Run({"remove-site", "TWIN"});
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_EQ(r.err, "sitelist remove-site: \"TWIN\" names 2 sites in " + OwnList() +
                       ": HttpSite \"twin\", FTPSite \"Twin\"; choose one with --kind\n");
  // An exact name wins over one that differs in case only.
  r = Run({"remove-site", "Twin"});
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(r.out, "removed FTPSite \"Twin\" from " + OwnList() + "\n");
}

TEST_F(RemoveSite, TheLastSpipeSiteAndTheFallbackSiteNeedForce) {
  const Snapshot before = SnapshotOf(DataDir());
  ToolResult r = Run({"remove-site", "Vantor_MasterSite"});
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_EQ(r.err, "sitelist remove-site: SpipeSite \"Vantor_MasterSite\" is the last SPIPE site (the management "
                   "server) of " + OwnList() + "; give --force to remove it all the same\n");
  r = Run({"remove-site", "Cache"});
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_EQ(r.err, "sitelist remove-site: LocalSite \"Cache\" is the fallback site of " + OwnList() +
                       "; give --force to remove it all the same\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
  MustRun({"remove-site", "--force", "Vantor_MasterSite"});
  MustRun({"remove-site", "--force", "Cache"});
  const Json removed = ChangesSinceStart()["sites"]["removed"];
  ASSERT_EQ(removed.size(), 2u);
  EXPECT_EQ(removed[0]["element"], "SpipeSite");
  EXPECT_EQ(removed[1]["element"], "LocalSite");
}

TEST_F(RemoveSite, ASpipeSiteThatIsNotTheLastNeedsNoForce) {
  std::string list = Original();
  const std::size_t spipe = list.find("    <SpipeSite");
  const std::string copy = list.substr(spipe, list.find("</SpipeSite>") + 13 - spipe);
  list.insert(spipe, std::regex_replace(copy, std::regex("Vantor_MasterSite"), "Second"));
  WriteFile(OwnList(), list);
  const ToolResult r = Run({"remove-site", "Second"});
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(r.out, "removed SpipeSite \"Second\" from " + OwnList() + "\n");
}

class EnableDisable : public EditTest {};

TEST_F(EnableDisable, FlipTheEnabledFlag) {
  ToolResult r = Run({"disable", "Own"});
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(r.out, "disabled HttpSite \"Own\" in " + OwnList() + "\n");
  r = Run({"enable", "ftp"});
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(r.out, "enabled FTPSite \"Ftp\" in " + OwnList() + "\n");
  const Json changed = ChangesSinceStart()["sites"]["changed"];
  EXPECT_EQ(changed, Json::parse(R"([
    {"element": "HttpSite", "name": "Own", "fields": [{"field": "enabled", "old": true, "new": false}]},
    {"element": "FTPSite", "name": "Ftp", "fields": [{"field": "enabled", "old": false, "new": true}]}])"));
}

TEST_F(EnableDisable, NothingToChangeWritesNothing) {
  const Snapshot before = SnapshotOf(DataDir());
  const ToolResult r = Run({"enable", "Own"});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out, "HttpSite \"Own\" in " + OwnList() + " is already enabled; nothing to change\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
  EXPECT_FALSE(FileExists(LockDir() + "/SmartSiteListLock.lock"));
}

TEST_F(EnableDisable, AnUnknownNameFails) {
  const ToolResult r = Run({"disable", "--kind", "unc", "Own"});
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_EQ(r.err, "sitelist disable: no UNCSite is named \"Own\" in " + OwnList() +
                       "; the UNCSite sites there: UNCSite \"Share\"\n");
  EXPECT_EQ(ReadFile(OwnList()), Original());
}

class SetOrder : public EditTest {};

TEST_F(SetOrder, SetsTheOrderOfOneSite) {
  const ToolResult r = Run({"set-order", "Ftp", "12"});
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(r.out, "FTPSite \"Ftp\" now has order 12 in " + OwnList() + "\n");
  EXPECT_EQ(ChangesSinceStart()["sites"]["changed"],
            Json::parse(R"([{"element": "FTPSite", "name": "Ftp", "fields": [{"field": "order", "old": 3, "new": 12}]}])"));
  const ToolResult same = Run({"set-order", "Ftp", "12"});
  EXPECT_EQ(same.out, "FTPSite \"Ftp\" in " + OwnList() + " already has order 12; nothing to change\n");
}

TEST_F(SetOrder, RefusesTheFallbackSiteAMirrorAndOrdersBelowOne) {
  const Snapshot before = SnapshotOf(DataDir());
  ToolResult r = Run({"set-order", "Cache", "2"});
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_EQ(r.err, "sitelist set-order: LocalSite \"Cache\" is the fallback site, which takes no order (it is "
                   "tried last)\n");
  r = Run({"set-order", "Mirror", "2"});
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_EQ(r.err, "sitelist set-order: HttpSite \"Mirror\" is a mirror, which takes no order\n");
  r = Run({"set-order", "Ftp", "0"});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.err, "N: Value 0 not in range 1 to 2147483647\nRun with --help for more information.\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

class EditSite : public EditTest {};

TEST_F(EditSite, ChangesTheGivenFieldsOnly) {
  const ToolResult r = Run({"edit", "Own", "--server", "own2.test.example", "--path", "New/Path"});
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(r.out, "changed HttpSite \"Own\" in " + OwnList() + ": server, path\n");
  EXPECT_EQ(ChangesSinceStart()["sites"]["changed"], Json::parse(R"([{"element": "HttpSite", "name": "Own", "fields": [
      {"field": "server", "old": "own.test.example:8080", "new": "own2.test.example:8080"},
      {"field": "relativePath", "old": "Updates", "new": "New/Path"}]}])"));
}

TEST_F(EditSite, ChangesAndClearsPasswordsShownOnlyAsChanged) {
  ToolResult r = Run({"edit", "Share", "--password-stdin"}, "other-pw\n");
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(r.out, "changed UNCSite \"Share\" in " + OwnList() + ": password\n");
  r = Run({"edit", "Own", "--clear-password", "--user", ""});
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(r.out, "changed HttpSite \"Own\" in " + OwnList() + ": use auth, user, password\n");
  const ToolResult diff = Run({"diff", Tmp("original.xml"), OwnList()});
  EXPECT_EQ(diff.out.find("other-pw"), std::string::npos);
  EXPECT_EQ(ChangesSinceStart()["sites"]["changed"], Json::parse(R"([
    {"element": "HttpSite", "name": "Own", "fields": [{"field": "useAuth", "old": 1, "new": 0},
       {"field": "userName", "old": "svc", "new": ""}, {"field": "password", "change": "cleared"}]},
    {"element": "UNCSite", "name": "Share", "fields": [{"field": "password", "change": "changed"}]}])"));
}

TEST_F(EditSite, KeepsAPortNotGivenAndRefusesWhatTheKindCannotHave) {
  MustRun({"edit", "Ftp", "--server", "ftp9.test.example"});
  EXPECT_EQ(ChangesSinceStart()["sites"]["changed"][0]["fields"][0]["new"], "ftp9.test.example:21");
  const std::string afterFirst = ReadFile(OwnList());
  ToolResult r = Run({"edit", "Own", "--share", "s"});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.err, "sitelist edit: --share is only for UNC sites\n");
  r = Run({"edit", "Cache", "--server", "h"});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.err, "sitelist edit: --server: a local site's server is always 127.0.0.1\n");
  r = Run({"edit", "Vantor_MasterSite", "--path", "x"});
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_EQ(r.err, "sitelist edit: SpipeSite \"Vantor_MasterSite\" is a SPIPE site; the management server is "
                   "changed with set-server\n");
  r = Run({"edit", "Own"});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.err, "sitelist edit: nothing to change: give --server, --path, --user, --password-stdin, "
                   "--clear-password, --share or --domain\n");
  r = Run({"edit", "Own", "--password-stdin", "--clear-password"}, "x");
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.err, "--password-stdin excludes --clear-password\nRun with --help for more information.\n");
  EXPECT_EQ(ReadFile(OwnList()), afterFirst);
}

TEST_F(EditSite, TheSameValuesWriteNothing) {
  const Snapshot before = SnapshotOf(DataDir());
  const ToolResult r = Run({"edit", "Share", "--domain", "CORP", "--user", "unc-user"});
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(r.out, "UNCSite \"Share\" in " + OwnList() + " already has these values; nothing to change\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

}  // namespace
}  // namespace tooltest
