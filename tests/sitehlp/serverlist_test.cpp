// Server site lists: ServerSiteList.xml derived from SiteList.xml without the
// client's own sites, and a server site list stored from memory.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "port/config/IConfiguration.h"
#include "port/crypto/KeyCache.h"
#include "port/fs/SysCalls.h"
#include "port/log/Log.h"
#include "sitehlp/DocumentTestUtil.h"
#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace sitehlp {

// Test access to the re-encryption flag, which only CreateServerSiteList sets.
struct CSitesHelperInternals {
  static bool IsReencrypting(const CSitesHelper& helper) { return helper.m_bReencrypting; }
};

}  // namespace sitehlp

namespace {

using sitehlp::CSitesHelper;
using sitehlp::CSitesHelperInternals;
using testsupport::CapturingLogSink;
using testsupport::FileExists;
using testsupport::ReadFile;
using testsupport::Wide;
using testsupport::WriteFile;

const char kDecl[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
const char kRootOpen[] =
    "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20240101000000\" LocalVersion=\"20240102030405\" "
    "Type=\"Client\" FipsMode=\"0\">";

std::string Doc(const std::string& sites, const std::string& beforeSiteList = std::string()) {
  return std::string(kDecl) + kRootOpen + beforeSiteList + "<SiteList Default=\"1\" Name=\"SomeGUID\">" + sites +
         "</SiteList></ns:SiteLists>";
}

const std::string kSpipe =
    "<SpipeSite Type=\"master\" Name=\"Vantor_MasterSite\" Order=\"1\" Enabled=\"1\" Local=\"0\" "
    "Server=\"mgmt.corp.example:80\" ServerName=\"MGMT01:80\" ServerIP=\"192.0.2.10:80\" Version=\"5.1\">"
    "<RelativePath>Software</RelativePath><UseAuth>0</UseAuth><UserName/><Password Encrypted=\"1\"/></SpipeSite>";
const std::string kProxy =
    "<ProxyConfigList><ProxyConfig Name=\"p\" Local=\"1\" HttpProxyServer=\"proxy.corp.example\" "
    "HttpProxyPort=\"8080\"><AllowUserToConfigureProxy>0</AllowUserToConfigureProxy></ProxyConfig></ProxyConfigList>";

std::string Http(const std::string& name, const std::string& local) {
  return "<HttpSite Type=\"repository\" Name=\"" + name + "\" Order=\"2\" Enabled=\"1\"" + local +
         " Server=\"" + name + ".corp.example:80\"><RelativePath>u</RelativePath></HttpSite>";
}

class ServerSiteListTest : public ::testing::Test {
 protected:
  void SetUp() override { port::ClearKeyCache(); }
  void TearDown() override { port::ClearKeyCache(); }

  std::string Src(const std::string& name) const { return m_config.dir().file("src/" + name); }
  std::string Dst(const std::string& name) const { return m_config.dir().file("dst/" + name); }
  bool Create(bool bWithDestination = true) {
    const std::wstring src = Wide(m_config.dir().file("src"));
    const std::wstring dst = Wide(m_config.dir().file("dst"));
    return CSitesHelper::createServerSiteListFromSiteList(src.c_str(), bWithDestination ? dst.c_str() : nullptr);
  }

  testsupport::ConfigScope m_config;
  bool m_dirs = std::filesystem::create_directories(m_config.dir().file("src")) &&
                std::filesystem::create_directories(m_config.dir().file("dst"));
};

// ---- createServerSiteListFromSiteList ----------------------------------------------------

TEST_F(ServerSiteListTest, OnlyLocalRepositoriesLeaveTheSpipeSiteAndVersions) {
  WriteFile(Src("SiteList.xml"),
            Doc(kSpipe + Http("a", " Local=\"1\"") +
                "<FTPSite Type=\"repository\" Name=\"f\" Order=\"3\" Server=\"f.corp.example:21\" Enabled=\"1\" "
                "Local=\"1\"><RelativePath/></FTPSite>"
                "<UNCSite Type=\"repository\" Name=\"u\" Order=\"4\" Server=\"fs\" Enabled=\"1\" Local=\"1\"/>"
                "<LocalSite Type=\"repository\" Name=\"l\" Order=\"5\" Enabled=\"1\" Local=\"1\" "
                "Server=\"127.0.0.1\"/>"));
  ASSERT_TRUE(Create());
  EXPECT_EQ(Doc(kSpipe), ReadFile(Dst("ServerSiteList.xml")));
}

TEST_F(ServerSiteListTest, TwoLocalHttpSitesGoAndTheNonLocalOneStays) {
  WriteFile(Src("SiteList.xml"), Doc(Http("a", " Local=\"1\"") + Http("b", " Local=\"0\"") + Http("c", " Local=\"1\"")));
  ASSERT_TRUE(Create());
  EXPECT_EQ(Doc(Http("b", " Local=\"0\"")), ReadFile(Dst("ServerSiteList.xml")));
}

TEST_F(ServerSiteListTest, LocalIsComparedAsTextSoTrueAndMissingStay) {
  const std::string kept = Http("t", " Local=\"true\"") + Http("n", "") + Http("z", " Local=\"01\"");
  WriteFile(Src("SiteList.xml"), Doc(kept + Http("a", " Local=\"1\"")));
  ASSERT_TRUE(Create());
  EXPECT_EQ(Doc(kept), ReadFile(Dst("ServerSiteList.xml")));
}

TEST_F(ServerSiteListTest, ServerSitesProxyBundleAndPoliciesAreKeptAsTheyStand) {
  const std::string before =
      "<CaBundle><CaCertificate>cert</CaCertificate></CaBundle>"
      "<Policies><Setting name=\"OverwriteClientSites\">1</Setting></Policies>";
  const std::string superAgent =
      "<SuperAgentSite Type=\"repository\" Name=\"sa\" Order=\"6\" Enabled=\"1\" Local=\"1\" "
      "Server=\"sa.corp.example:8081\"/>";
  WriteFile(Src("SiteList.xml"), Doc(kSpipe + superAgent + Http("a", " Local=\"1\"") + kProxy, before));
  ASSERT_TRUE(Create());
  EXPECT_EQ(Doc(kSpipe + superAgent + kProxy, before), ReadFile(Dst("ServerSiteList.xml")));
}

TEST_F(ServerSiteListTest, NullDestinationWritesBesideTheSource) {
  WriteFile(Src("SiteList.xml"), Doc(Http("a", " Local=\"1\"") + Http("b", " Local=\"0\"")));
  ASSERT_TRUE(Create(false));
  EXPECT_EQ(Doc(Http("b", " Local=\"0\"")), ReadFile(Src("ServerSiteList.xml")));
  EXPECT_FALSE(FileExists(Dst("ServerSiteList.xml")));
}

TEST_F(ServerSiteListTest, TheSourceSiteListIsNotChanged) {
  const std::string source = Doc(Http("a", " Local=\"1\"") + Http("b", " Local=\"0\""));
  WriteFile(Src("SiteList.xml"), source);
  ASSERT_TRUE(Create());
  EXPECT_EQ(source, ReadFile(Src("SiteList.xml")));
}

TEST_F(ServerSiteListTest, SourceDirectoryWithoutSiteListReturnsFalseAndWritesNothing) {
  CapturingLogSink sink;
  EXPECT_FALSE(Create());
  EXPECT_FALSE(FileExists(Dst("ServerSiteList.xml")));
  EXPECT_EQ(std::vector<std::wstring>(), sink.allMessages());
}

TEST_F(ServerSiteListTest, SourceThatIsNoSiteListDocumentReturnsFalseWithoutMessage) {
  WriteFile(Src("SiteList.xml"), std::string(kDecl) + "<ns:SiteLists xmlns:ns=\"other\"><SiteList/></ns:SiteLists>");
  WriteFile(Dst("ServerSiteList.xml"), "previous");
  CapturingLogSink sink;
  EXPECT_FALSE(Create());
  EXPECT_EQ("previous", ReadFile(Dst("ServerSiteList.xml")));
  EXPECT_EQ(std::vector<std::wstring>(), sink.allMessages());
}

TEST_F(ServerSiteListTest, GarbageSourceReturnsFalse) {
  WriteFile(Src("SiteList.xml"), "\x01\x02garbage<<");
  EXPECT_FALSE(Create());
  EXPECT_FALSE(FileExists(Dst("ServerSiteList.xml")));
}

TEST_F(ServerSiteListTest, MissingSiteListSectionIsLoggedAndNothingWritten) {
  WriteFile(Src("SiteList.xml"), std::string(kDecl) + kRootOpen + "<Policies/></ns:SiteLists>");
  WriteFile(Dst("ServerSiteList.xml"), "previous");
  CapturingLogSink sink;
  EXPECT_FALSE(Create());
  EXPECT_EQ("previous", ReadFile(Dst("ServerSiteList.xml")));
  ASSERT_EQ(1u, sink.messages(port::LogLevel::Error).size());
  const std::wstring expected = L"Site list '" + Wide(Src("SiteList.xml")) + L" missing section SiteList";
  EXPECT_EQ(expected, sink.messages(port::LogLevel::Error)[0]);
  bool fromServerUnit = false;
  for (const auto& line : sink.lines())
    if (line.message == expected) fromServerUnit = line.component == L"StSHlp";
  EXPECT_TRUE(fromServerUnit);
}

TEST_F(ServerSiteListTest, DestinationDirectoryThatDoesNotExistReturnsFalse) {
  WriteFile(Src("SiteList.xml"), Doc(Http("b", " Local=\"0\"")));
  const std::wstring src = Wide(m_config.dir().file("src"));
  const std::wstring dst = Wide(m_config.dir().file("absent"));
  EXPECT_FALSE(CSitesHelper::createServerSiteListFromSiteList(src.c_str(), dst.c_str()));
  EXPECT_FALSE(FileExists(m_config.dir().file("absent")));
}

TEST_F(ServerSiteListTest, NullSourceDirectoryReturnsFalse) {
  EXPECT_FALSE(CSitesHelper::createServerSiteListFromSiteList(nullptr, nullptr));
}

TEST_F(ServerSiteListTest, CreationIsTracedAtInformationLevelUnderTheServerComponent) {
  WriteFile(Src("SiteList.xml"), Doc(Http("b", " Local=\"0\"")));
  CapturingLogSink sink;
  ASSERT_TRUE(Create());
  ASSERT_EQ(2u, sink.lines().size());
  EXPECT_EQ(port::LogLevel::Info, sink.lines()[0].level);
  EXPECT_EQ(L"StSHlp", sink.lines()[0].component);
  EXPECT_EQ(L"Entering Creating ServerSiteList.xml", sink.lines()[0].message);
  EXPECT_EQ(port::LogLevel::Info, sink.lines()[1].level);
  EXPECT_EQ(L"Leaving Creating ServerSiteList.xml", sink.lines()[1].message);
}

// ---- CreateServerSiteList ---------------------------------------------------------------------------

class CreateServerSiteListTest : public ServerSiteListTest {
 protected:
  std::string ServerList() const { return m_config.dataDir() + "/ServerSiteList.xml"; }
  CSitesHelper m_helper{Wide(m_config.dir().file("own/SiteList.xml"))};
};

// The trace lines ("Entering ...", "Leaving ...") in order.
std::vector<std::wstring> Traces(const CapturingLogSink& sink) {
  std::vector<std::wstring> out;
  for (const auto& line : sink.lines())
    if (line.message.rfind(L"Entering ", 0) == 0 || line.message.rfind(L"Leaving ", 0) == 0)
      out.push_back(line.message);
  return out;
}

AnObjectBuffer<unsigned char> Buffer(const std::string& bytes) {
  return AnObjectBuffer<unsigned char>(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

TEST_F(CreateServerSiteListTest, WithoutAdjustTheBufferIsWrittenWhateverTheKeySize) {
  for (const char* keySize : {"0", "1", "2"}) {
    port::SetConfigValue(port::ConfigKey::CryptoKeySize, keySize);
    const std::string bytes = std::string("bytes as they are \x01\xFF for key size ") + keySize;
    AnObjectBuffer<unsigned char> buffer = Buffer(bytes);
    EXPECT_TRUE(m_helper.CreateServerSiteList(buffer, false));
    EXPECT_EQ(bytes, ReadFile(ServerList()));
  }
}

TEST_F(CreateServerSiteListTest, AdjustWithAnotherKeySizeWritesTheBufferAsItIs) {
  port::SetConfigValue(port::ConfigKey::CryptoKeySize, "0");
  const std::string bytes = Doc(Http("b", " Local=\"0\""));
  AnObjectBuffer<unsigned char> buffer = Buffer(bytes);
  EXPECT_TRUE(m_helper.CreateServerSiteList(buffer, true));
  EXPECT_EQ(bytes, ReadFile(ServerList()));
}

TEST_F(CreateServerSiteListTest, WriteFailureReturnsFalse) {
  port::SetConfigValue(port::ConfigKey::DataDir, m_config.dir().file("absent"));
  AnObjectBuffer<unsigned char> buffer = Buffer("x");
  EXPECT_FALSE(m_helper.CreateServerSiteList(buffer, false));
  EXPECT_FALSE(FileExists(m_config.dir().file("absent")));
}

TEST_F(CreateServerSiteListTest, AdjustWithKeySizeOneRegeneratesTheListAndClearsTheFlag) {
  port::SetConfigValue(port::ConfigKey::CryptoKeySize, "1");
  AnObjectBuffer<unsigned char> buffer = Buffer(Doc(Http("b", " Local=\"0\"") + kProxy));
  CapturingLogSink sink;
  EXPECT_TRUE(m_helper.CreateServerSiteList(buffer, true));
  EXPECT_FALSE(CSitesHelperInternals::IsReencrypting(m_helper));
  // Regenerated by the writer: the proxy configuration and FipsMode are gone.
  std::string written = ReadFile(ServerList());
  EXPECT_EQ(1u, sitedoc::MaskPasswords(written).size());
  EXPECT_EQ(std::string(kDecl) +
                "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20240101000000\" "
                "LocalVersion=\"20240102030405\" Type=\"Client\"><SiteList Default=\"1\" Name=\"SomeGUID\">"
                "<HttpSite Type=\"repository\" Name=\"b\" Order=\"2\" Enabled=\"1\" Local=\"0\" "
                "Server=\"b.corp.example:80\"><RelativePath>u</RelativePath><UseAuth>0</UseAuth><UserName></UserName>"
                "<Password Encrypted=\"1\">*</Password></HttpSite></SiteList></ns:SiteLists>",
            written);
  const std::vector<std::wstring> traces = Traces(sink);
  ASSERT_LE(3u, traces.size());
  EXPECT_EQ((std::vector<std::wstring>{L"Entering CreateServerSiteList", L"Entering Reading Sitelist"}),
            std::vector<std::wstring>(traces.begin(), traces.begin() + 2));
  EXPECT_EQ(L"Leaving CreateServerSiteList", traces.back());
}

TEST_F(CreateServerSiteListTest, AdjustReturnsTrueEvenWhenTheBufferCannotBeParsed) {
  port::SetConfigValue(port::ConfigKey::CryptoKeySize, "1");
  AnObjectBuffer<unsigned char> buffer = Buffer("not a site list");
  EXPECT_TRUE(m_helper.CreateServerSiteList(buffer, true));
  EXPECT_FALSE(CSitesHelperInternals::IsReencrypting(m_helper));
  std::string written = ReadFile(ServerList());
  EXPECT_EQ(14u, sitedoc::MaskStamp(written).size());
  EXPECT_EQ(std::string(kDecl) +
                "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"STAMP\" LocalVersion=\"STAMP\" "
                "Type=\"Client\"><SiteList Default=\"1\" Name=\"SomeGUID\"/></ns:SiteLists>",
            written);
}

// Every file system call that names a ServerSiteList.xml is recorded and
// refused, so that where the list would go is known and nothing is written
// there, wherever it is.
std::vector<std::string> g_serverListPaths;
bool IsServerList(const char* path) {
  const char* slash = std::strrchr(path, '/');
  return std::strstr(slash ? slash : path, "ServerSiteList.xml") != nullptr;
}
class RefusedServerListWrites {
 public:
  RefusedServerListWrites() : m_scope(Table()) { g_serverListPaths.clear(); }

 private:
  static int Refuse(const char* path) {
    g_serverListPaths.push_back(path);
    errno = EACCES;
    return -1;
  }
  static port::SysCalls Table() {
    port::SysCalls t = port::RealSysCalls();
    t.open = [](const char* p, int f, mode_t m) {
      return IsServerList(p) ? Refuse(p) : port::RealSysCalls().open(p, f, m);
    };
    t.lstat = [](const char* p, struct stat* s) {
      return IsServerList(p) ? Refuse(p) : port::RealSysCalls().lstat(p, s);
    };
    t.stat = [](const char* p, struct stat* s) {
      return IsServerList(p) ? Refuse(p) : port::RealSysCalls().stat(p, s);
    };
    t.rename = [](const char* from, const char* to) {
      return IsServerList(from) || IsServerList(to) ? Refuse(to) : port::RealSysCalls().rename(from, to);
    };
    return t;
  }
  port::ScopedSysCallOverride m_scope;
};

// The list's path is the data directory, "/" and the name: an empty data
// directory must not turn it into a path relative to the working directory.
TEST_F(CreateServerSiteListTest, WithAnEmptyDataDirectoryTheBufferGoesToTheRootDirectory) {
  port::SetConfigValue(port::ConfigKey::DataDir, "");
  AnObjectBuffer<unsigned char> buffer = Buffer(Doc(Http("b", " Local=\"0\"")));
  RefusedServerListWrites refused;
  EXPECT_FALSE(m_helper.CreateServerSiteList(buffer, false));
  EXPECT_EQ(std::vector<std::string>{"/ServerSiteList.xml"}, g_serverListPaths);
}

TEST_F(CreateServerSiteListTest, WithAnEmptyDataDirectoryTheReencryptedListGoesToTheRootDirectory) {
  port::SetConfigValue(port::ConfigKey::DataDir, "");
  port::SetConfigValue(port::ConfigKey::CryptoKeySize, "1");
  AnObjectBuffer<unsigned char> buffer = Buffer(Doc(Http("b", " Local=\"0\"")));
  RefusedServerListWrites refused;
  EXPECT_TRUE(m_helper.CreateServerSiteList(buffer, true));
  EXPECT_EQ(std::vector<std::string>{"/ServerSiteList.xml"}, g_serverListPaths);
}

}  // namespace
