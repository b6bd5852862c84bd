#include "ToolFixture.h"

#include <sys/stat.h>

#include <filesystem>
#include <stdexcept>
#include <utility>

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

const char c_fullListTemplate[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<ns:SiteLists xmlns:ns="zelSiteList" GlobalVersion="20250101000000" LocalVersion="20250102030405" Type="Client" FipsMode="1">
  <CaBundle>
    <CaCertificate>CERT-ONE</CaCertificate>
    <CaCertificate>-----BEGIN CERTIFICATE-----
TUlJQmdqQ0NBU2lnQXdJQkFnSVVRbVY0WVcxd2JHVWdjbTl2ZENCRFFTQXhNQW9H
-----END CERTIFICATE-----</CaCertificate>
  </CaBundle>
  <Policies>
    <Setting name="OverwriteClientSites">0</Setting>
  </Policies>
  <SiteList Default="1" Name="SomeGUID">
    <SpipeSite Type="master" Name="Vantor_MasterSite" Order="1" Enabled="1" Local="0" SecurePort="443" Server="mgmt.test.example:80" ServerName="MGMT:80" ServerIP="192.0.2.1:80" Version="5.0">
      <RelativePath>Software</RelativePath>
      <UseAuth>0</UseAuth>
      <UserName></UserName>
      <Password Encrypted="1"></Password>
    </SpipeSite>
    <SuperAgentSite Type="repository" Name="Relay" Order="2" Enabled="1" Local="0" Server="relay.test.example:8081" ServerName="RELAY:8081" ServerIP="192.0.2.2:8081">
      <RelativePath>Software</RelativePath>
      <UseAuth>0</UseAuth>
      <UserName></UserName>
      <Password Encrypted="1"></Password>
    </SuperAgentSite>
    <HttpSite Type="repository" Name="Own" Order="4" Enabled="1" Local="1" Server="own.test.example:8080">
      <RelativePath>Updates</RelativePath>
      <UseAuth>1</UseAuth>
      <UserName>svc</UserName>
      <Password Encrypted="1">@HTTP_PW@</Password>
    </HttpSite>
    <FTPSite Type="repository" Name="Ftp" Order="3" Server="ftp.test.example:21" Enabled="0" Local="0">
      <RelativePath>Updates</RelativePath>
      <UserName>anonymous</UserName>
      <Password Encrypted="1"></Password>
    </FTPSite>
    <UNCSite Type="repository" Name="Share" Order="5" Server="files.test.example" Enabled="1" Local="1">
      <ShareName>updates</ShareName>
      <RelativePath>agent</RelativePath>
      <UseLoggedonUserAccount>0</UseLoggedonUserAccount>
      <DomainName>CORP</DomainName>
      <UserName>unc-user</UserName>
      <Password Encrypted="1">@UNC_PW@</Password>
    </UNCSite>
    <HttpSite Type="mirror" Name="Mirror" Enabled="1" Local="1" Server="mirror.test.example:80">
      <RelativePath>Mirror</RelativePath>
      <UseAuth>0</UseAuth>
      <UserName></UserName>
      <Password Encrypted="1"></Password>
    </HttpSite>
    <LocalSite Type="fallback" Name="Cache" Order="9" Enabled="1" Local="1" Server="127.0.0.1">
      <RelativePath>/var/cache/updates</RelativePath>
      <UseLoggedonUserAccount>1</UseLoggedonUserAccount>
      <DomainName></DomainName>
      <UserName></UserName>
      <Password Encrypted="1"></Password>
    </LocalSite>
    <ProxyConfigList>
      <ProxyConfig Name="CorpProxy" Local="1" HttpProxyServer="proxy.test.example" HttpProxyPort="3128">
        <AllowUserToConfigureProxy>0</AllowUserToConfigureProxy>
        <BypassLocalAddress>1</BypassLocalAddress>
        <ExclusionList>
          <ExclusionHost>mgmt.test.example</ExclusionHost>
          <ExclusionHost>files.test.example</ExclusionHost>
        </ExclusionList>
        <FtpUseAuth>0</FtpUseAuth>
        <HttpUseAuth>1</HttpUseAuth>
        <HttpProxyUser>proxy-user</HttpProxyUser>
        <HttpProxyPassword Encrypted="1">@PROXY_PW@</HttpProxyPassword>
      </ProxyConfig>
    </ProxyConfigList>
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

ToolTest::ToolTest() {
  std::filesystem::create_directories(EtcDir());
  std::filesystem::create_directories(ScratchDir());
}

std::map<std::string, std::string> ToolTest::Env() const {
  return {{"VLM_FRAMEWORK_DATA_DIR", DataDir()},
          {"VLM_LOCK_DIR", LockDir()},
          {"VLM_KEY_DIR", KeyDir()},
          {"VLM_ROOT_PREFIX", RootDir()},
          {"TMPDIR", ScratchDir()}};
}

std::string ToolTest::Encrypted(const std::string& password) const {
  const ToolResult r = Run({"encrypt-password"}, password);
  if (r.exitStatus != 0 || r.out.empty()) throw std::runtime_error("encrypt-password failed: " + r.err);
  return r.out.substr(0, r.out.size() - 1);
}

std::string ToolTest::FullList() const {
  std::string list = c_fullListTemplate;
  for (const auto& [placeholder, password] :
       {std::pair{"@HTTP_PW@", "http-pw"}, std::pair{"@UNC_PW@", "unc-pw"}, std::pair{"@PROXY_PW@", "proxy-pw"}}) {
    const std::size_t at = list.find(placeholder);
    list.replace(at, std::string(placeholder).size(), Encrypted(password));
  }
  return list;
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
