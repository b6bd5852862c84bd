#include "ToolFixture.h"

#include <sys/stat.h>

#include <filesystem>

namespace tooltest {

const char c_agentList[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<ns:SiteLists xmlns:ns="zelSiteList" GlobalVersion="20250101000000" LocalVersion="20250102030405" Type="Client" FipsMode="1">
  <CaBundle>
    <CaCertificate>CERT-ONE</CaCertificate>
    <CaCertificate>CERT-TWO</CaCertificate>
  </CaBundle>
  <Policies>
    <Setting name="OverwriteClientSites">0</Setting>
    <Setting name="Alpha">x</Setting>
  </Policies>
  <SiteList Default="1" Name="SomeGUID">
    <SpipeSite Type="master" Name="Vantor_MasterSite" Order="1" Enabled="1" Local="0" SecurePort="443" Server="mgmt.test.example:80" ServerName="MGMT:80" ServerIP="192.0.2.1:80" Version="5.0">
      <RelativePath>Software</RelativePath>
      <UseAuth>0</UseAuth>
      <UserName></UserName>
      <Password Encrypted="1"></Password>
    </SpipeSite>
    <HttpSite Type="repository" Name="Own" Order="2" Enabled="1" Local="1" Server="own.test.example:8080">
      <RelativePath>Updates</RelativePath>
      <UseAuth>0</UseAuth>
      <UserName></UserName>
      <Password Encrypted="1"></Password>
    </HttpSite>
    <FTPSite Type="repository" Name="Ftp" Order="3" Server="ftp.test.example:21" Enabled="0" Local="0">
      <RelativePath>Updates</RelativePath>
      <UserName>anonymous</UserName>
      <Password Encrypted="1"></Password>
    </FTPSite>
    <LocalSite Type="fallback" Name="Cache" Order="9" Enabled="1" Local="1" Server="127.0.0.1">
      <RelativePath>/var/cache/updates</RelativePath>
      <UseLoggedonUserAccount>0</UseLoggedonUserAccount>
      <DomainName></DomainName>
      <UserName></UserName>
      <Password Encrypted="1"></Password>
    </LocalSite>
  </SiteList>
</ns:SiteLists>
)";

Snapshot SnapshotOf(const std::string& dir) {
  namespace fs = std::filesystem;
  Snapshot snapshot;
  if (!fs::exists(dir)) return snapshot;
  for (const fs::directory_entry& e : fs::recursive_directory_iterator(dir)) {
    struct stat st {};
    lstat(e.path().c_str(), &st);
    std::string value = std::to_string(st.st_mode) + ":";
    if (e.is_regular_file()) value += testsupport::ReadFile(e.path().string());
    snapshot[fs::relative(e.path(), dir).string()] = value;
  }
  return snapshot;
}

ToolTest::ToolTest() { std::filesystem::create_directories(EtcDir()); }

std::map<std::string, std::string> ToolTest::Env() const {
  return {{"VLM_FRAMEWORK_DATA_DIR", DataDir()},
          {"VLM_LOCK_DIR", LockDir()},
          {"VLM_KEY_DIR", KeyDir()},
          {"VLM_ROOT_PREFIX", RootDir()}};
}

ToolResult ToolTest::Run(const std::vector<std::string>& args, const std::string& input) const {
  return RunTool(args, Env(), input);
}

ToolResult ToolTest::RunWith(const std::map<std::string, std::string>& extraEnv, const std::vector<std::string>& args,
                             const std::string& input) const {
  std::map<std::string, std::string> env = Env();
  for (const auto& [name, value] : extraEnv) env[name] = value;
  return RunTool(args, env, input);
}

}  // namespace tooltest
