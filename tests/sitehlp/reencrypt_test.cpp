// Re-encryption of a server site list held in memory: byte form passwords in,
// ServerSiteList.xml with text form passwords out.
#include <gtest/gtest.h>

#include <errno.h>

#include <filesystem>
#include <string>
#include <vector>

#include "port/config/IConfiguration.h"
#include "port/crypto/CryptShim.h"
#include "port/crypto/KeyCache.h"
#include "port/log/Log.h"
#include "sitehlp/DocumentTestUtil.h"
#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace sitehlp {

// Test access to the re-encryption flag, which CreateServerSiteList sets
// around AdjustPwd in production.
struct CSitesHelperInternals {
  static void SetReencrypting(CSitesHelper& helper, bool value) { helper.m_bReencrypting = value; }
};

}  // namespace sitehlp

namespace {

using sitehlp::CSitesHelper;
using sitehlp::CSitesHelperInternals;
using sitehlp::tag_Site;
using testsupport::CapturingLogSink;
using testsupport::FileExists;
using testsupport::Narrow;
using testsupport::ReadFile;
using testsupport::Wide;

const char kDecl[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
const char kRootOpen[] =
    "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20240101000000\" LocalVersion=\"20240102030405\" "
    "Type=\"Server\">";
const char kSiteListOpen[] = "<SiteList Default=\"1\" Name=\"SomeGUID\">";

// The byte form (kind 6) of clear, as base64 text.
std::string ByteForm(const std::string& clear) {
  IEncryption* object = CryptShim::instance().create_encryption_object(ENCRYPTION_BYTES);
  if (!object) return std::string();
  AnObjectBuffer<unsigned char> in(reinterpret_cast<const unsigned char*>(clear.data()), clear.size());
  AnObjectBuffer<unsigned char> sealed;
  const bool ok = object->encrypt(in, sealed);
  CryptShim::instance().destroy_encryption_object(object);
  return ok ? Narrow(ABase64Encode::encode(sealed.data(), sealed.size())) : std::string();
}

std::string Password(const std::string& stored) { return "<Password Encrypted=\"1\">" + stored + "</Password>"; }

std::string HttpIn(const std::string& name, int order, const std::string& password) {
  return "<HttpSite Type=\"repository\" Name=\"" + name + "\" Order=\"" + std::to_string(order) +
         "\" Enabled=\"1\" Local=\"0\" Server=\"" + name + ".corp.example:80\"><RelativePath>p" + name +
         "</RelativePath><UseAuth>1</UseAuth><UserName>u" + name + "</UserName>" + Password(password) + "</HttpSite>";
}

// The same site as the writer emits it, the password masked.
std::string HttpOut(const std::string& name, int order) {
  return "<HttpSite Type=\"repository\" Name=\"" + name + "\" Order=\"" + std::to_string(order) +
         "\" Enabled=\"1\" Local=\"0\" Server=\"" + name + ".corp.example:80\"><RelativePath>p" + name +
         "</RelativePath><UseAuth>1</UseAuth><UserName>u" + name + "</UserName>" + Password("*") + "</HttpSite>";
}

AnObjectBuffer<unsigned char> Buffer(const std::string& bytes) {
  return AnObjectBuffer<unsigned char>(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

std::string Utf16Le(const std::string& ascii, bool bWithBom) {
  std::string out = bWithBom ? "\xFF\xFE" : "";
  for (char c : ascii) {
    out.push_back(c);
    out.push_back('\0');
  }
  return out;
}

class ReencryptTest : public ::testing::Test {
 protected:
  void SetUp() override { port::ClearKeyCache(); }
  void TearDown() override { port::ClearKeyCache(); }

  int Adjust(const std::string& bytes) {
    CSitesHelperInternals::SetReencrypting(m_helper, true);
    const int status = m_helper.AdjustPwd(Buffer(bytes));
    CSitesHelperInternals::SetReencrypting(m_helper, false);
    return status;
  }
  std::string Written() const { return ReadFile(m_config.dataDir() + "/ServerSiteList.xml"); }

  // The clear passwords of the written list, read back as the agent does.
  std::vector<std::wstring> WrittenPasswords() {
    CSitesHelper reader(Wide(m_config.dataDir() + "/ServerSiteList.xml"));
    tag_Site* list = nullptr;
    EXPECT_EQ(0, reader.ReadSiteList(L"", &list));
    std::vector<std::wstring> out;
    for (tag_Site* s = list; s; s = s->pNext)
      out.push_back(s->nSiteType == sitehlp::SITE_TYPE_FTP ? s->ftpSite.szPassword : s->httpSite.szPassword);
    reader.FreeSiteListMemory(list);
    return out;
  }

  testsupport::ConfigScope m_config;
  CSitesHelper m_helper{Wide(m_config.dir().file("own/SiteList.xml"))};
};

TEST_F(ReencryptTest, TwoHttpSitesAndAnFtpSiteComeOutInOrderWithTextFormPasswords) {
  const std::string ftpIn =
      "<FTPSite Type=\"repository\" Name=\"c\" Order=\"3\" Server=\"c.corp.example:21\" Enabled=\"1\" Local=\"0\">"
      "<RelativePath>pc</RelativePath><UserName>uc</UserName>" +
      Password(ByteForm("gamma")) + "</FTPSite>";
  const std::string buffer = std::string(kDecl) + kRootOpen + kSiteListOpen + HttpIn("a", 1, ByteForm("alpha")) +
                             HttpIn("b", 2, ByteForm("beta")) + ftpIn + "</SiteList></ns:SiteLists>";
  std::wstring primed;  // the text form's key is made (and logged) here, not below
  ASSERT_EQ(1, m_helper.EncryptPassword(L"x", primed));
  CapturingLogSink sink;
  ASSERT_EQ(0, Adjust(buffer));
  std::string written = Written();
  const std::vector<std::string> stored = sitedoc::MaskPasswords(written);
  EXPECT_EQ(std::string(kDecl) + kRootOpen + kSiteListOpen + HttpOut("a", 1) + HttpOut("b", 2) +
                "<FTPSite Type=\"repository\" Name=\"c\" Order=\"3\" Server=\"c.corp.example:21\" Enabled=\"1\" "
                "Local=\"0\"><RelativePath>pc</RelativePath><UserName>uc</UserName>" +
                Password("*") + "</FTPSite></SiteList></ns:SiteLists>",
            written);
  ASSERT_EQ(3u, stored.size());
  // The text form decrypts with the normal reader, without the flag.
  EXPECT_EQ((std::vector<std::wstring>{L"alpha", L"beta", L"gamma"}), WrittenPasswords());
  EXPECT_EQ(std::vector<std::wstring>(), sink.allMessages());
}

TEST_F(ReencryptTest, WithoutTheFlagTheByteFormIsNotTaken) {
  ASSERT_EQ(0, m_helper.AdjustPwd(Buffer(std::string(kDecl) + kRootOpen + kSiteListOpen +
                                         HttpIn("a", 1, ByteForm("alpha")) + "</SiteList></ns:SiteLists>")));
  EXPECT_EQ((std::vector<std::wstring>{L""}), WrittenPasswords());
}

TEST_F(ReencryptTest, APasswordTheByteFormCannotDecryptIsWrittenEmpty) {
  ASSERT_EQ(0, Adjust(std::string(kDecl) + kRootOpen + kSiteListOpen + HttpIn("a", 1, "bm90IHNlYWxlZA==") +
                      HttpIn("b", 2, ByteForm("beta")) + "</SiteList></ns:SiteLists>"));
  EXPECT_EQ((std::vector<std::wstring>{L"", L"beta"}), WrittenPasswords());
}

TEST_F(ReencryptTest, AProxyConfigListIsLost) {
  ASSERT_EQ(0, Adjust(std::string(kDecl) + kRootOpen + kSiteListOpen + HttpIn("a", 1, "") +
                      "<ProxyConfigList><ProxyConfig Name=\"p\" HttpProxyServer=\"proxy.corp.example\" "
                      "HttpProxyPort=\"8080\"/></ProxyConfigList>" +
                      HttpIn("b", 2, "") + "</SiteList></ns:SiteLists>"));
  std::string written = Written();
  sitedoc::MaskPasswords(written);
  EXPECT_EQ(std::string(kDecl) + kRootOpen + kSiteListOpen + HttpOut("a", 1) + HttpOut("b", 2) +
                "</SiteList></ns:SiteLists>",
            written);
}

TEST_F(ReencryptTest, AnElementThatIsNoSiteIsLeftOut) {
  ASSERT_EQ(0, Adjust(std::string(kDecl) + kRootOpen + kSiteListOpen + HttpIn("a", 1, "") +
                      "<GopherSite Type=\"repository\" Name=\"g\" Order=\"9\"/></SiteList></ns:SiteLists>"));
  std::string written = Written();
  sitedoc::MaskPasswords(written);
  EXPECT_EQ(std::string(kDecl) + kRootOpen + kSiteListOpen + HttpOut("a", 1) + "</SiteList></ns:SiteLists>", written);
}

TEST_F(ReencryptTest, ARootWithoutTypeIsRegeneratedAsClient) {
  ASSERT_EQ(0, Adjust(std::string(kDecl) +
                      "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20240101000000\" "
                      "LocalVersion=\"20240102030405\">" +
                      kSiteListOpen + "</SiteList></ns:SiteLists>"));
  EXPECT_EQ(std::string(kDecl) +
                "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20240101000000\" "
                "LocalVersion=\"20240102030405\" Type=\"Client\"><SiteList Default=\"1\" Name=\"SomeGUID\"/>"
                "</ns:SiteLists>",
            Written());
}

TEST_F(ReencryptTest, FipsModeIsNotCarriedOver) {
  ASSERT_EQ(0, Adjust(std::string(kDecl) +
                      "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20240101000000\" "
                      "LocalVersion=\"20240102030405\" Type=\"Server\" FipsMode=\"1\">" +
                      kSiteListOpen + "</SiteList></ns:SiteLists>"));
  EXPECT_EQ(std::string(kDecl) + kRootOpen + "<SiteList Default=\"1\" Name=\"SomeGUID\"/></ns:SiteLists>", Written());
}

TEST_F(ReencryptTest, CaCertificatesAndPoliciesAreCarriedAndPoliciesStayInTheHelper) {
  m_helper.SetPolicySetting(L"Kept", L"k");
  m_helper.SetPolicySetting(L"OverwriteClientSites", L"0");
  ASSERT_EQ(0, Adjust(std::string(kDecl) + kRootOpen +
                      "<CaBundle><CaCertificate>one</CaCertificate><Other>x</Other><CaCertificate>two</CaCertificate>"
                      "</CaBundle><Policies><Setting name=\"OverwriteClientSites\">1</Setting>"
                      "<Setting name=\"New\">n</Setting></Policies>" +
                      kSiteListOpen + "</SiteList></ns:SiteLists>"));
  EXPECT_EQ(std::string(kDecl) + kRootOpen +
                "<CaBundle><CaCertificate>one</CaCertificate><CaCertificate>two</CaCertificate></CaBundle>"
                "<Policies><Setting name=\"Kept\">k</Setting><Setting name=\"New\">n</Setting>"
                "<Setting name=\"OverwriteClientSites\">1</Setting></Policies>"
                "<SiteList Default=\"1\" Name=\"SomeGUID\"/></ns:SiteLists>",
            Written());
  std::wstring value;
  EXPECT_TRUE(m_helper.GetPolicySetting(L"New", value));
  EXPECT_EQ(L"n", value);
  EXPECT_TRUE(m_helper.GetPolicySetting(L"OverwriteClientSites", value));
  EXPECT_EQ(L"1", value);
}

TEST_F(ReencryptTest, GarbageReturnsMinus5AndStillWritesAListWithoutSites) {
  CapturingLogSink sink;
  EXPECT_EQ(-5, Adjust("this is no site list <<<"));
  std::string written = Written();
  const std::string stamp = sitedoc::MaskStamp(written);
  ASSERT_EQ(14u, stamp.size());
  // Nothing was read: the writer's defaults fill the root.
  EXPECT_EQ(std::string(kDecl) +
                "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"STAMP\" LocalVersion=\"STAMP\" "
                "Type=\"Client\"><SiteList Default=\"1\" Name=\"SomeGUID\"/></ns:SiteLists>",
            written);
  const std::wstring path = Wide(m_config.dataDir() + "/ServerSiteList.xml");
  EXPECT_EQ((std::vector<std::wstring>{L"text in memory:1:1: not well formed: syntax error",
                                       L"Local version of " + path + L" is " + Wide(stamp)}),
            sink.allMessages());
}

TEST_F(ReencryptTest, AnEmptyBufferReturnsMinus5) {
  EXPECT_EQ(-5, Adjust(""));
  EXPECT_TRUE(FileExists(m_config.dataDir() + "/ServerSiteList.xml"));
}

TEST_F(ReencryptTest, MalformedListWritesNoSites) {
  // The fault is found when the text is parsed, before any site is read.
  EXPECT_EQ(-5, Adjust(std::string(kDecl) + kRootOpen + kSiteListOpen + HttpIn("a", 1, "") + "</SiteList>"));
  std::string written = Written();
  sitedoc::MaskStamp(written);
  EXPECT_EQ(std::string::npos, written.find("HttpSite"));
}

TEST_F(ReencryptTest, Utf16BufferWithByteOrderMarkIsRead) {
  ASSERT_EQ(0, Adjust(Utf16Le(std::string("<?xml version=\"1.0\" encoding=\"UTF-16\"?>") + kRootOpen + kSiteListOpen + HttpIn("a", 1, "") +
                                  "</SiteList></ns:SiteLists>",
                              true)));
  std::string written = Written();
  sitedoc::MaskPasswords(written);
  EXPECT_EQ(std::string(kDecl) + kRootOpen + kSiteListOpen + HttpOut("a", 1) + "</SiteList></ns:SiteLists>", written);
}

// As in a file, the declaration must name the encoding the bytes are in.
TEST_F(ReencryptTest, Utf16BufferDeclaringUtf8IsNotWellFormed) {
  EXPECT_EQ(-5, Adjust(Utf16Le(std::string(kDecl) + kRootOpen + kSiteListOpen + HttpIn("a", 1, "") +
                                   "</SiteList></ns:SiteLists>",
                               true)));
  std::string written = Written();
  EXPECT_EQ(14u, sitedoc::MaskStamp(written).size());
  EXPECT_EQ(std::string::npos, written.find("HttpSite"));
}

TEST_F(ReencryptTest, Utf16BufferWithoutByteOrderMarkIsNotWellFormed) {
  EXPECT_EQ(-5, Adjust(Utf16Le(std::string(kDecl) + kRootOpen + kSiteListOpen + HttpIn("a", 1, "") +
                                   "</SiteList></ns:SiteLists>",
                               false)));
  std::string written = Written();
  EXPECT_EQ(14u, sitedoc::MaskStamp(written).size());
  EXPECT_EQ(std::string::npos, written.find("HttpSite"));
}

TEST_F(ReencryptTest, BytesThatAreNoUtf8PassTheDecodersCodeAndStillWrite) {
  EXPECT_EQ(EILSEQ, Adjust(std::string(kDecl) + "<ns:SiteLists Name=\"\xC3\x28\"/>"));
  std::string written = Written();
  EXPECT_EQ(14u, sitedoc::MaskStamp(written).size());
}

TEST_F(ReencryptTest, AFailedWriteIsNotReported) {
  port::SetConfigValue(port::ConfigKey::DataDir, m_config.dir().file("absent"));
  CapturingLogSink sink;
  EXPECT_EQ(0, Adjust(std::string(kDecl) + kRootOpen + kSiteListOpen + HttpIn("a", 1, "") +
                      "</SiteList></ns:SiteLists>"));
  EXPECT_FALSE(FileExists(m_config.dir().file("absent")));
  ASSERT_EQ(1u, sink.messages(port::LogLevel::Error).size());
  EXPECT_EQ(0u, sink.messages(port::LogLevel::Error)[0].rfind(L"Unable to write " +
                                                                  Wide(m_config.dir().file("absent/ServerSiteList.xml")),
                                                              0));
}

}  // namespace
