// sitelist export, load, encrypt-password and notify, run as a process on a
// temporary agent.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "MiniJson.h"
#include "ToolFixture.h"
#include "port/config/IConfiguration.h"
#include "sitehlp/SitesHelper.h"

namespace tooltest {
namespace {

using testsupport::FileExists;
using testsupport::ReadFile;
using testsupport::WriteFile;

const char c_standardList[] = "/opt/Velmora/orx/scratch/etc/SiteList.xml";

class BufferCommands : public ToolTest {
 protected:
  BufferCommands() { WriteFile(OwnList(), c_agentList); }
  std::string StandardList() const { return RootDir() + c_standardList; }
};

TEST_F(BufferCommands, ExportPrintsTheListWithoutTheBundlesOpeningTag) {
  const ToolResult r = Run({"export"});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.err, "");
  std::string expected = c_agentList;
  expected.erase(expected.find("<CaBundle>"), std::string("<CaBundle>").size());
  EXPECT_EQ(r.out, expected);
}

TEST_F(BufferCommands, ExportWithoutASiteListFails) {
  std::filesystem::remove(OwnList());
  const ToolResult r = Run({"export"});
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "sitelist export: the site list could not be read\n");
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
  const JsonValue doc = ParseJson(shown.out);
  EXPECT_EQ(doc["caCertificates"].number, 1);
  EXPECT_EQ(doc["type"].text, "Client");
  EXPECT_EQ(doc["localVersion"].text.size(), 14u);  // stamped afresh
  ASSERT_EQ(doc["sites"].items.size(), 1u);
  EXPECT_EQ(doc["sites"][0]["name"].text, "Loaded");
  EXPECT_EQ(doc["sites"][0]["server"].text, "loaded.test.example:8080");
  EXPECT_EQ(doc["sites"][0]["order"].number, 4);
}

TEST_F(BufferCommands, LoadOfMalformedTextFailsAndWritesNothing) {
  std::filesystem::create_directories(RootDir() + "/opt/Velmora/orx/scratch/etc");
  const Snapshot data = SnapshotOf(DataDir());
  const Snapshot root = SnapshotOf(RootDir());
  const ToolResult r = Run({"load"}, "<ns:SiteLists><SiteList>");
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "sitelist load: XML is not well formed (-5)\n");
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
  const JsonValue doc = ParseJson(shown.out);
  EXPECT_FALSE(doc["sites"][0]["passwordSet"].boolean);
  EXPECT_TRUE(doc["sites"][2]["passwordSet"].boolean);
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
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err,
            "[ERROR] SiteHlp: Unable to take lock SiteListLock\n"
            "[ERROR] SiteHlp: Unable to take lock SmartSiteListLock\n"
            "sitelist notify: the change notice was not recorded (lock \"SmartSiteListLock\" not taken)\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

TEST_F(BufferCommands, NotifyWithAnArgumentIsAUsageError) {
  const ToolResult r = Run({"notify", "now"});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.err, "The following argument was not expected: now\nRun with --help for more information.\n");
}

}  // namespace
}  // namespace tooltest
