// Site lists as text: the helper's own list read into a string with the CA
// bundle's opening tag cut, and list text written to the standard location.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "port/config/IConfiguration.h"
#include "port/crypto/KeyCache.h"
#include "port/fs/SysCalls.h"
#include "port/lock/InterProcessLock.h"
#include "port/log/Log.h"
#include "sitehlp/DocumentTestUtil.h"
#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace {

using sitehlp::CSitesHelper;
using sitehlp::tag_Site;
using testsupport::CapturingLogSink;
using testsupport::FileExists;
using testsupport::Narrow;
using testsupport::ReadFile;
using testsupport::Wide;
using testsupport::WriteFile;

const char kDecl[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
const char kRootOpen[] =
    "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20240101000000\" LocalVersion=\"20240102030405\" "
    "Type=\"Server\">";
const char kSiteListOpen[] = "<SiteList Default=\"1\" Name=\"SomeGUID\">";
const std::string kBundle =
    "<CaBundle><CaCertificate>cert-one</CaCertificate><CaCertificate>cert-two</CaCertificate></CaBundle>";
const std::string kSite =
    "<HttpSite Type=\"repository\" Name=\"Main\" Order=\"1\" Enabled=\"1\" Local=\"0\" "
    "Server=\"main.corp.example:80\"><RelativePath>Updates</RelativePath><UseAuth>0</UseAuth>"
    "<UserName>u</UserName><Password Encrypted=\"1\"></Password></HttpSite>";

std::string Doc(const std::string& before, const std::string& sites) {
  return std::string(kDecl) + kRootOpen + before + kSiteListOpen + sites + "</SiteList></ns:SiteLists>";
}

// The number of file system calls made while it lives.
int g_calls = 0;
class CountingSysCalls {
 public:
  CountingSysCalls() : m_scope(Table()) { g_calls = 0; }

 private:
  static port::SysCalls Table() {
    port::SysCalls t = port::RealSysCalls();
    t.open = [](const char* p, int f, mode_t m) { ++g_calls; return port::RealSysCalls().open(p, f, m); };
    t.stat = [](const char* p, struct stat* s) { ++g_calls; return port::RealSysCalls().stat(p, s); };
    t.lstat = [](const char* p, struct stat* s) { ++g_calls; return port::RealSysCalls().lstat(p, s); };
    t.access = [](const char* p, int m) { ++g_calls; return port::RealSysCalls().access(p, m); };
    t.mkdir = [](const char* p, mode_t m) { ++g_calls; return port::RealSysCalls().mkdir(p, m); };
    t.fcntlLock = [](int fd, int c, struct flock* l) { ++g_calls; return port::RealSysCalls().fcntlLock(fd, c, l); };
    return t;
  }
  port::ScopedSysCallOverride m_scope;
};

class SiteListBuffersTest : public ::testing::Test {
 protected:
  void SetUp() override { port::ClearKeyCache(); }
  void TearDown() override { port::ClearKeyCache(); }

  std::string OwnPath() const { return m_config.dataDir() + "/etc/SiteList.xml"; }
  std::string StandardPath() const { return m_config.dir().file("root/opt/Velmora/orx/scratch/etc/SiteList.xml"); }
  void MakeStandardDirectory() const {
    std::filesystem::create_directories(m_config.dir().file("root/opt/Velmora/orx/scratch/etc"));
  }

  testsupport::ConfigScope m_config;
};

// ---- GetSiteListBuffer ---------------------------------------------------------------------------

TEST_F(SiteListBuffersTest, TheBundlesOpeningTagIsCutAndItsCertificatesAndClosingTagStay) {
  WriteFile(OwnPath(), Doc(kBundle, kSite));
  CSitesHelper helper(Wide(OwnPath()));
  std::wstring text;
  ASSERT_TRUE(helper.GetSiteListBuffer(text));
  EXPECT_EQ(Wide(std::string(kDecl) + kRootOpen +
                 "<CaCertificate>cert-one</CaCertificate><CaCertificate>cert-two</CaCertificate></CaBundle>" +
                 kSiteListOpen + kSite + "</SiteList></ns:SiteLists>"),
            text);
}

TEST_F(SiteListBuffersTest, OnlyTheFirstOpeningTagIsCut) {
  const std::string twoBundles = kBundle + "<CaBundle><CaCertificate>c</CaCertificate></CaBundle>";
  WriteFile(OwnPath(), Doc(twoBundles, ""));
  CSitesHelper helper(Wide(OwnPath()));
  std::wstring text;
  ASSERT_TRUE(helper.GetSiteListBuffer(text));
  EXPECT_EQ(Wide(Doc(twoBundles.substr(std::string("<CaBundle>").size()), "")), text);
}

TEST_F(SiteListBuffersTest, ABundleTagWithAttributesOrWithoutContentIsNotCut) {
  for (const std::string& bundle : {std::string("<CaBundle Kind=\"x\"><CaCertificate>c</CaCertificate></CaBundle>"),
                                    std::string("<CaBundle/>"), std::string("")}) {
    WriteFile(OwnPath(), Doc(bundle, kSite));
    CSitesHelper helper(Wide(OwnPath()));
    std::wstring text;
    ASSERT_TRUE(helper.GetSiteListBuffer(text));
    EXPECT_EQ(Wide(Doc(bundle, kSite)), text);
  }
}

TEST_F(SiteListBuffersTest, AUtf16FileIsReturnedAsText) {
  const std::string doc = Doc(kBundle, kSite);
  std::string utf16 = "\xFF\xFE";
  for (char c : doc) {
    utf16.push_back(c);
    utf16.push_back('\0');
  }
  WriteFile(OwnPath(), utf16);
  CSitesHelper helper(Wide(OwnPath()));
  std::wstring text;
  ASSERT_TRUE(helper.GetSiteListBuffer(text));
  EXPECT_EQ(Wide(std::string(kDecl) + kRootOpen + kBundle.substr(10) + kSiteListOpen + kSite +
                 "</SiteList></ns:SiteLists>"),
            text);
}

TEST_F(SiteListBuffersTest, AnEmptyConfiguredPathReturnsFalseWithoutTouchingTheFileSystem) {
  CSitesHelper helper{std::wstring()};
  std::wstring text = L"previous";
  CountingSysCalls counting;
  EXPECT_FALSE(helper.GetSiteListBuffer(text));
  EXPECT_EQ(0, g_calls);
  EXPECT_EQ(L"previous", text);
}

TEST_F(SiteListBuffersTest, AMissingFileReturnsFalse) {
  CSitesHelper helper(Wide(OwnPath()));
  std::wstring text = L"previous";
  EXPECT_FALSE(helper.GetSiteListBuffer(text));
  EXPECT_EQ(L"previous", text);
}

TEST_F(SiteListBuffersTest, AFileThatIsNoTextReturnsFalseAndReleasesTheLock) {
  WriteFile(OwnPath(), Doc("", "") + "\xC3\x28");
  CSitesHelper helper(Wide(OwnPath()));
  std::wstring text = L"previous";
  EXPECT_FALSE(helper.GetSiteListBuffer(text));
  EXPECT_EQ(L"previous", text);
  InterProcessWriteLock writer(sitehlp::c_siteListLock);
  EXPECT_TRUE(writer.lock(0));
}

// ---- CreateSiteListFromBuffer --------------------------------------------------------------------------

TEST_F(SiteListBuffersTest, ABundleWithoutCaCertificateChildrenGivesNoCertificates) {
  WriteFile(OwnPath(), Doc(kBundle, kSite));  // the installed certificates are not used
  MakeStandardDirectory();
  CSitesHelper helper(Wide(OwnPath()));
  ASSERT_EQ(0, helper.CreateSiteListFromBuffer(Wide(Doc("<CaBundle><Other>x</Other></CaBundle>", ""))));
  std::string written = ReadFile(StandardPath());
  sitedoc::MaskStamp(written);
  EXPECT_EQ(std::string(kDecl) +
                "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20240101000000\" LocalVersion=\"STAMP\" "
                "Type=\"Server\"><SiteList Default=\"1\" Name=\"SomeGUID\"/></ns:SiteLists>",
            written);
}

TEST_F(SiteListBuffersTest, ABufferWithoutBundleKeepsTheCertificatesOfTheCurrentList) {
  WriteFile(OwnPath(), Doc(kBundle, ""));
  MakeStandardDirectory();
  CSitesHelper helper(Wide(OwnPath()));
  ASSERT_EQ(0, helper.CreateSiteListFromBuffer(Wide(Doc("", kSite))));
  std::string written = ReadFile(StandardPath());
  sitedoc::MaskStamp(written);
  sitedoc::MaskPasswords(written);
  EXPECT_EQ(std::string(kDecl) +
                "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20240101000000\" LocalVersion=\"STAMP\" "
                "Type=\"Server\">" +
                kBundle + kSiteListOpen +
                "<HttpSite Type=\"repository\" Name=\"Main\" Order=\"1\" Enabled=\"1\" Local=\"0\" "
                "Server=\"main.corp.example:80\"><RelativePath>Updates</RelativePath><UseAuth>0</UseAuth>"
                "<UserName>u</UserName><Password Encrypted=\"1\">*</Password></HttpSite></SiteList></ns:SiteLists>",
            written);
}

TEST_F(SiteListBuffersTest, TheBuffersBundleIsWrittenInsteadOfTheInstalledOne) {
  WriteFile(OwnPath(), Doc(kBundle, ""));
  MakeStandardDirectory();
  CSitesHelper helper(Wide(OwnPath()));
  ASSERT_EQ(0, helper.CreateSiteListFromBuffer(Wide(
                   Doc("<CaBundle><CaCertificate>b1</CaCertificate><x/><CaCertificate>b2</CaCertificate></CaBundle>",
                       ""))));
  std::string written = ReadFile(StandardPath());
  sitedoc::MaskStamp(written);
  EXPECT_EQ(std::string(kDecl) +
                "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20240101000000\" LocalVersion=\"STAMP\" "
                "Type=\"Server\"><CaBundle><CaCertificate>b1</CaCertificate><CaCertificate>b2</CaCertificate>"
                "</CaBundle><SiteList Default=\"1\" Name=\"SomeGUID\"/></ns:SiteLists>",
            written);
}

TEST_F(SiteListBuffersTest, TheWrittenFileCarriesTheWritersVersionsNotTheBuffers) {
  MakeStandardDirectory();
  CSitesHelper helper(Wide(OwnPath()));  // no own file: no versions, type Client
  CapturingLogSink sink;
  ASSERT_EQ(0, helper.CreateSiteListFromBuffer(Wide(Doc("", ""))));
  std::string written = ReadFile(StandardPath());
  const std::string stamp = sitedoc::MaskStamp(written);
  ASSERT_EQ(14u, stamp.size());
  EXPECT_EQ(std::string(kDecl) +
                "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"STAMP\" LocalVersion=\"STAMP\" "
                "Type=\"Client\"><SiteList Default=\"1\" Name=\"SomeGUID\"/></ns:SiteLists>",
            written);
  EXPECT_EQ((std::vector<std::wstring>{L"Local version of " + Wide(StandardPath()) + L" is " + Wide(stamp)}),
            sink.allMessages());
}

TEST_F(SiteListBuffersTest, SitesAndPasswordsSurviveTheTrip) {
  MakeStandardDirectory();
  CSitesHelper helper(Wide(OwnPath()));
  std::wstring encrypted;
  ASSERT_EQ(1, helper.EncryptPassword(L"s3cret", encrypted));
  const std::string proxy =
      "<ProxyConfigList><ProxyConfig Name=\"p\" HttpProxyServer=\"proxy.corp.example\" HttpProxyPort=\"8080\">"
      "<ExclusionList><ExclusionHost>a</ExclusionHost><ExclusionHost>b</ExclusionHost></ExclusionList>"
      "</ProxyConfig></ProxyConfigList>";
  const std::string ftp =
      "<FTPSite Type=\"mirror\" Name=\"F\" Server=\"ftp.corp.example:2121\" Enabled=\"1\" Local=\"1\">"
      "<RelativePath>r</RelativePath><UserName>fu</UserName><Password Encrypted=\"1\">" +
      Narrow(encrypted) + "</Password></FTPSite>";
  ASSERT_EQ(0, helper.CreateSiteListFromBuffer(Wide(Doc("", kSite + proxy + ftp))));

  CSitesHelper reader(Wide(StandardPath()));
  tag_Site* list = nullptr;
  ASSERT_EQ(0, reader.ReadSiteList(L"", &list));
  std::vector<std::wstring> seen;
  for (tag_Site* s = list; s; s = s->pNext) {
    if (s->nSiteType == sitehlp::SITE_TYPE_HTTP) seen.push_back(std::wstring(L"http ") + s->httpSite.szName);
    if (s->nSiteType == sitehlp::SITE_TYPE_PROXY)
      seen.push_back(std::wstring(L"proxy ") + s->proxySettings.szExclusionList);
    if (s->nSiteType == sitehlp::SITE_TYPE_FTP)
      seen.push_back(std::wstring(L"ftp ") + s->ftpSite.szServer + L" " + s->ftpSite.szPassword);
  }
  reader.FreeSiteListMemory(list);
  EXPECT_EQ((std::vector<std::wstring>{L"http Main", L"proxy a;b", L"ftp ftp.corp.example s3cret"}), seen);
}

TEST_F(SiteListBuffersTest, PoliciesOfTheBufferAreWrittenAndKept) {
  MakeStandardDirectory();
  CSitesHelper helper(Wide(OwnPath()));
  ASSERT_EQ(0, helper.CreateSiteListFromBuffer(
                   Wide(Doc("<Policies><Setting name=\"OverwriteClientSites\">1</Setting></Policies>", ""))));
  std::string written = ReadFile(StandardPath());
  sitedoc::MaskStamp(written);
  EXPECT_EQ(std::string(kDecl) +
                "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"STAMP\" LocalVersion=\"STAMP\" "
                "Type=\"Client\"><Policies><Setting name=\"OverwriteClientSites\">1</Setting></Policies>"
                "<SiteList Default=\"1\" Name=\"SomeGUID\"/></ns:SiteLists>",
            written);
  std::wstring value;
  EXPECT_TRUE(helper.GetPolicySetting(L"OverwriteClientSites", value));
  EXPECT_EQ(L"1", value);
}

TEST_F(SiteListBuffersTest, TheHelpersOwnPathIsNotWritten) {
  const std::string own = Doc(kBundle, kSite);
  WriteFile(OwnPath(), own);
  MakeStandardDirectory();
  CSitesHelper helper(Wide(OwnPath()));
  ASSERT_EQ(0, helper.CreateSiteListFromBuffer(Wide(Doc("", ""))));
  EXPECT_EQ(own, ReadFile(OwnPath()));
  EXPECT_TRUE(FileExists(StandardPath()));
}

TEST_F(SiteListBuffersTest, MalformedXmlReturnsMinus5AndLeavesTheSiteListUntouched) {
  MakeStandardDirectory();
  WriteFile(StandardPath(), "previous list");
  CSitesHelper helper(Wide(OwnPath()));
  EXPECT_EQ(-5, helper.CreateSiteListFromBuffer(Wide(std::string(kDecl) + kRootOpen + kSiteListOpen + "</ns:SiteLists>")));
  EXPECT_EQ("previous list", ReadFile(StandardPath()));
}

TEST_F(SiteListBuffersTest, GarbageTextReturnsMinus5) {
  MakeStandardDirectory();
  WriteFile(StandardPath(), "previous list");
  CSitesHelper helper(Wide(OwnPath()));
  EXPECT_EQ(-5, helper.CreateSiteListFromBuffer(L"\x01\x02 garbage"));
  EXPECT_EQ(-5, helper.CreateSiteListFromBuffer(L""));
  EXPECT_EQ("previous list", ReadFile(StandardPath()));
}

TEST_F(SiteListBuffersTest, Utf16BytesHeldAsWideCharactersReturnMinus5) {
  MakeStandardDirectory();
  WriteFile(StandardPath(), "previous list");
  std::wstring utf16 = L"\xFF\xFE";
  for (char c : Doc("", kSite)) {
    utf16.push_back(static_cast<wchar_t>(c));
    utf16.push_back(L'\0');
  }
  CSitesHelper helper(Wide(OwnPath()));
  EXPECT_EQ(-5, helper.CreateSiteListFromBuffer(utf16));
  EXPECT_EQ("previous list", ReadFile(StandardPath()));
}

TEST_F(SiteListBuffersTest, ALastSiteWithoutBodyReturnsMinus1AndWritesNothing) {
  MakeStandardDirectory();
  WriteFile(StandardPath(), "previous list");
  CSitesHelper helper(Wide(OwnPath()));
  EXPECT_EQ(-1, helper.CreateSiteListFromBuffer(
                    Wide(Doc("", kSite + "<ProxyConfigList><ProxyConfig Name=\"p\"/><Note/></ProxyConfigList>"))));
  EXPECT_EQ("previous list", ReadFile(StandardPath()));
}

TEST_F(SiteListBuffersTest, AMissingDestinationDirectoryReturnsMinus11) {
  CSitesHelper helper(Wide(OwnPath()));
  CapturingLogSink sink;
  EXPECT_EQ(-11, helper.CreateSiteListFromBuffer(Wide(Doc("", kSite))));
  EXPECT_FALSE(FileExists(m_config.dir().file("root")));
  const std::vector<std::wstring> errors = sink.messages(port::LogLevel::Error);
  ASSERT_EQ(1u, errors.size());
  EXPECT_EQ(0u, errors[0].rfind(L"Unable to write " + Wide(StandardPath()) + L": ", 0));
}

TEST_F(SiteListBuffersTest, TheConversionIsTraced) {
  MakeStandardDirectory();
  CSitesHelper helper(Wide(OwnPath()));
  CapturingLogSink sink;
  ASSERT_EQ(0, helper.CreateSiteListFromBuffer(Wide(Doc("", ""))));
  ASSERT_LE(2u, sink.lines().size());
  EXPECT_EQ(L"SiteHlp", sink.lines().front().component);
  EXPECT_EQ(L"Entering Reading Sitelist Buffer", sink.lines().front().message);
  EXPECT_EQ(L"Leaving Reading Sitelist Buffer", sink.lines().back().message);
}

}  // namespace
