// sitelist export, load, encrypt-password and notify, run as a process on a
// temporary agent.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include <nlohmann/json.hpp>

#include "ToolFixture.h"
#include "port/config/IConfiguration.h"
#include "sitehlp/SitesHelper.h"

namespace tooltest {
namespace {

using testsupport::FileExists;
using testsupport::ReadFile;
using testsupport::WriteFile;
using Json = nlohmann::ordered_json;

const char c_standardList[] = "/opt/Velmora/orx/scratch/etc/SiteList.xml";

class BufferCommands : public ToolTest {
 protected:
  BufferCommands() { WriteFile(OwnList(), c_agentList); }
  std::string StandardList() const { return RootDir() + c_standardList; }
};

TEST_F(BufferCommands, ExportPrintsTheListAsItIsWithTheBundlesStartTagPutBack) {
  const ToolResult r = Run({"export"});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out, c_agentList);
  const ToolResult json = Run({"export", "--json"});
  EXPECT_EQ(json.exitStatus, 0);
  EXPECT_EQ(Json::parse(json.out), (Json{{"path", OwnList()}, {"text", std::string(c_agentList)}}));
}

TEST_F(BufferCommands, ExportPutsTheStartTagBackOnALineOfItsOwnOrInline) {
  std::string inlineBundle = c_agentList;
  inlineBundle.replace(inlineBundle.find("<CaBundle>\n    "), 15, "<CaBundle>");
  WriteFile(OwnList(), inlineBundle);
  EXPECT_EQ(Run({"export"}).out, inlineBundle);
  std::string empty = c_agentList;
  const std::size_t from = empty.find("<CaBundle>"), to = empty.find("</CaBundle>") + 11;
  empty.replace(from, to - from, "<CaBundle></CaBundle>");
  WriteFile(OwnList(), empty);
  EXPECT_EQ(Run({"export"}).out, empty);
}

TEST_F(BufferCommands, ExportWithoutASiteListNamesTheFile) {
  std::filesystem::remove(OwnList());
  const ToolResult r = Run({"export"});
  EXPECT_EQ(r.exitStatus, 3);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "sitelist export: " + OwnList() + ": no such file\n");
}

TEST_F(BufferCommands, ExportedTextLoadsBackIntoAnotherFile) {
  const std::string full = FullList();
  WriteFile(OwnList(), full);
  const ToolResult exported = Run({"export"});
  ASSERT_EQ(exported.exitStatus, 0) << exported.err;
  const ToolResult loaded = Run({"load", "--site-list", Tmp("copy.xml")}, exported.out);
  ASSERT_EQ(loaded.exitStatus, 0) << loaded.err;
  EXPECT_EQ(loaded.err, "");
  EXPECT_EQ(loaded.out, "site list written to " + Tmp("copy.xml") + "\n");
  // Loading stamps a fresh local version (and, as no list was there before,
  // takes it for the global version too), and the writer leaves FipsMode
  // out; everything else, passwords included, comes back.
  const ToolResult diff = Run({"diff", "--json", OwnList(), Tmp("copy.xml")});
  ASSERT_EQ(diff.exitStatus, 0) << diff.err;
  const Json changes = Json::parse(diff.out);
  ASSERT_EQ(changes["list"].size(), 3u) << diff.out;
  EXPECT_EQ(changes["list"][0]["field"], "globalVersion");
  EXPECT_EQ(changes["list"][1]["field"], "localVersion");
  EXPECT_EQ(changes["list"][0]["new"], changes["list"][1]["new"]);
  EXPECT_EQ(changes["list"][2], (Json{{"field", "fipsMode"}, {"old", "1"}, {"new", nullptr}}));
  EXPECT_EQ(changes["caCertificates"]["added"], Json::array());
  EXPECT_EQ(changes["caCertificates"]["removed"], Json::array());
  EXPECT_EQ(changes["policySettings"], Json::array());
  EXPECT_EQ(changes["sites"], (Json{{"removed", Json::array()}, {"added", Json::array()}, {"changed", Json::array()}}));
  EXPECT_EQ(ReadFile(OwnList()), full);
  EXPECT_FALSE(FileExists(StandardList()));
  EXPECT_TRUE(std::filesystem::is_empty(ScratchDir()));
}

TEST_F(BufferCommands, ExportWithAnArgumentIsAUsageError) {
  const ToolResult r = Run({"export", "file.xml"});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "The following argument was not expected: file.xml\nRun with --help for more information.\n");
}

TEST_F(BufferCommands, LoadWritesTheTextToTheStandardLocation) {
  std::filesystem::create_directories(RootDir() + "/opt/Velmora/orx/scratch/etc");
  const std::string text = R"(<ns:SiteLists xmlns:ns="zelSiteList" GlobalVersion="7" LocalVersion="8">
  <CaBundle><CaCertificate>LOADED-CERT</CaCertificate></CaBundle>
  <SiteList Default="1" Name="x">
    <HttpSite Type="repository" Name="Loaded" Order="4" Enabled="1" Local="0" Server="loaded.test.example:8080">
      <RelativePath>L</RelativePath>
    </HttpSite>
  </SiteList>
</ns:SiteLists>)";
  const Snapshot own = SnapshotOf(DataDir());
  const ToolResult r = Run({"load"}, text);
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out, std::string("site list written to the standard location ") + c_standardList + "\n");
  EXPECT_EQ(SnapshotOf(DataDir()), own);  // the configured list is not the target

  const ToolResult shown = Run({"show", "--json", StandardList()});
  ASSERT_EQ(shown.exitStatus, 0) << shown.err;
  const Json doc = Json::parse(shown.out);
  EXPECT_EQ(doc["caCertificates"], 1);
  EXPECT_EQ(doc["type"], "Client");
  EXPECT_EQ(doc["globalVersion"], "20250101000000");  // the agent's, as the library hands empty ones to the writer
  EXPECT_EQ(doc["localVersion"].get<std::string>().size(), 14u);  // stamped afresh
  ASSERT_EQ(doc["sites"].size(), 1u);
  EXPECT_EQ(doc["sites"][0]["name"], "Loaded");
  EXPECT_EQ(doc["sites"][0]["server"], "loaded.test.example:8080");
  EXPECT_EQ(doc["sites"][0]["order"], 4);
  EXPECT_TRUE(std::filesystem::is_empty(ScratchDir()));
}

TEST_F(BufferCommands, LoadOfMalformedTextFailsAndWritesNothing) {
  std::filesystem::create_directories(RootDir() + "/opt/Velmora/orx/scratch/etc");
  const Snapshot data = SnapshotOf(DataDir());
  const Snapshot root = SnapshotOf(RootDir());
  const ToolResult r = Run({"load"}, "<ns:SiteLists><SiteList>");
  EXPECT_EQ(r.exitStatus, 4);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "<stdin>:1:1: XML is not well formed: unbound prefix\n");
  EXPECT_FALSE(FileExists(StandardList()));
  EXPECT_EQ(SnapshotOf(DataDir()), data);
  EXPECT_EQ(SnapshotOf(RootDir()), root);
}

TEST_F(BufferCommands, LoadWithAnArgumentIsAUsageError) {
  const ToolResult r = Run({"load", "file.xml"}, "x");
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.err, "The following argument was not expected: file.xml\nRun with --help for more information.\n");
}

TEST_F(BufferCommands, EncryptPasswordGivesTextThatDecryptsBack) {
  const ToolResult r = Run({"encrypt-password"}, "s3cret pass\n");
  ASSERT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(r.err, "");
  ASSERT_GT(r.out.size(), 1u);
  ASSERT_EQ(r.out.back(), '\n');
  const std::string encrypted = r.out.substr(0, r.out.size() - 1);
  EXPECT_EQ(encrypted.find("s3cret"), std::string::npos);

  std::string list = c_agentList;
  const std::string empty = "<UserName>anonymous</UserName>\n      <Password Encrypted=\"1\"></Password>";
  list.replace(list.find(empty), empty.size(),
               "<UserName>anonymous</UserName>\n      <Password Encrypted=\"1\">" + encrypted + "</Password>");
  WriteFile(Tmp("with-password.xml"), list);
  const ToolResult shown = Run({"show", "--json", Tmp("with-password.xml")});
  ASSERT_EQ(shown.exitStatus, 0) << shown.err;
  const Json doc = Json::parse(shown.out);
  EXPECT_EQ(doc["sites"][0]["passwordSet"], false);
  EXPECT_EQ(doc["sites"][2]["passwordSet"], true);
  EXPECT_EQ(shown.out.find("s3cret"), std::string::npos);

  // The library, with the same keys, reads the clear password back.
  port::SetConfigValue(port::ConfigKey::KeyDir, KeyDir());
  port::SetConfigValue(port::ConfigKey::LockDir, LockDir());
  sitehlp::CSitesHelper helper(testsupport::Wide(Tmp("with-password.xml")));
  sitehlp::tag_Site* sites = nullptr;
  ASSERT_EQ(helper.ReadSiteList(L"", &sites), 0);
  ASSERT_NE(sites, nullptr);
  const sitehlp::tag_Site* ftp = sites->pNext->pNext;
  ASSERT_EQ(ftp->nSiteType, sitehlp::SITE_TYPE_FTP);
  EXPECT_EQ(std::wstring(ftp->ftpSite.szPassword), L"s3cret pass");
  helper.FreeSiteListMemory(sites);
  port::ResetConfigValues();
}

TEST_F(BufferCommands, EncryptPasswordRefusesAPasswordLongerThanARecordHolds) {
  // 259 characters fit (non-ASCII ones count as one each); 260 do not.
  std::string fits;
  for (int i = 0; i < 259; ++i) fits += (i % 2) ? "\xC3\xA9" : "p";
  const ToolResult accepted = Run({"encrypt-password"}, fits + "\n");
  EXPECT_EQ(accepted.exitStatus, 0) << accepted.err;
  for (const std::size_t length : {260u, 305u}) {
    const std::string tooLong(length, 'q');
    const Snapshot before = SnapshotOf(DataDir());
    const ToolResult r = Run({"encrypt-password"}, tooLong + "\n");
    EXPECT_EQ(r.exitStatus, 2);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "sitelist encrypt-password: the password has " + std::to_string(length) +
                         " characters; a site list holds at most 259\n");
    EXPECT_EQ(r.err.find("qqqq"), std::string::npos);
    EXPECT_EQ(SnapshotOf(DataDir()), before);
  }
}

TEST_F(BufferCommands, EncryptPasswordFailsWithoutAKeyDirectory) {
  WriteFile(Tmp("plain-file"), "x");
  const Snapshot before = SnapshotOf(DataDir());
  const ToolResult r = RunWith({{"VLM_KEY_DIR", Tmp("plain-file") + "/keys"}}, {"encrypt-password"}, "secret\n");
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err,
            "[ERROR] Crypto: Cannot create key directory " + Tmp("plain-file") + "/keys: Not a directory\n"
            "[ERROR] Crypto: No key for encryption kind 3\n"
            "sitelist encrypt-password: the password could not be encrypted\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
  EXPECT_EQ(ReadFile(Tmp("plain-file")), "x");
}

TEST_F(BufferCommands, EncryptPasswordRefusesThePasswordAsAnArgument) {
  const ToolResult r = Run({"encrypt-password", "secret"});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "The following argument was not expected: secret\nRun with --help for more information.\n");
  EXPECT_FALSE(FileExists(KeyDir()));
}

TEST_F(BufferCommands, NotifyRecordsAChangeNotice) {
  const ToolResult r = Run({"notify"});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out, "change notice recorded\n");
  EXPECT_TRUE(FileExists(LockDir() + "/SmartSiteListLock.lock"));
}

TEST_F(BufferCommands, NotifyFailsWhenTheCacheLockCannotBeTaken) {
  WriteFile(Tmp("plain-file"), "x");
  const Snapshot before = SnapshotOf(DataDir());
  const ToolResult r = RunWith({{"VLM_LOCK_DIR", Tmp("plain-file") + "/locks"}}, {"notify"});
  EXPECT_EQ(r.exitStatus, 6);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err,
            "[ERROR] SiteHlp: Unable to take lock SiteListLock\n"
            "[ERROR] SiteHlp: Unable to take lock SmartSiteListLock\n"
            "sitelist notify: the lock \"SmartSiteListLock\" could not be obtained\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

TEST_F(BufferCommands, NotifyWithAnArgumentIsAUsageError) {
  const ToolResult r = Run({"notify", "now"});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.err, "The following argument was not expected: now\nRun with --help for more information.\n");
}

}  // namespace
}  // namespace tooltest
