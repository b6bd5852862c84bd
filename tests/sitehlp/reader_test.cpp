// Reading a site list document into site records: every kind of site, the
// defaults and odd rules of the reader, passwords, field capacities, file
// encodings and the failure codes.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "port/crypto/CryptShim.h"
#include "port/crypto/KeyCache.h"
#include "port/log/Log.h"
#include "port/xml/AdvXMLParser.h"
#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace sitehlp {

// Test access to the helper's re-encryption flag, which only the server site
// list re-encryption sets in production.
struct CSitesHelperInternals {
  static void SetReencrypting(CSitesHelper& helper, bool value) { helper.m_bReencrypting = value; }
};

}  // namespace sitehlp

namespace {

using sitehlp::CSitesHelper;
using sitehlp::CSitesHelperInternals;
using sitehlp::tag_Site;
using testsupport::Narrow;
using testsupport::Wide;

tag_Site* const kUntouched = reinterpret_cast<tag_Site*>(static_cast<std::uintptr_t>(0x5a5a5a50));

std::string Document(const std::string& sites, const std::string& beforeSiteList = std::string()) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20200101010101\" "
         "LocalVersion=\"20200202020202\" Type=\"Client\">" +
         beforeSiteList + "<SiteList Default=\"1\" Name=\"SomeGUID\">" + sites + "</SiteList></ns:SiteLists>\n";
}

std::vector<tag_Site*> Nodes(tag_Site* head) {
  std::vector<tag_Site*> nodes;
  for (tag_Site* p = head; p; p = p->pNext) nodes.push_back(p);
  return nodes;
}

std::wstring W(const wchar_t* field) { return std::wstring(field); }

bool BodyIsZero(const tag_Site* site) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(&site->proxySettings);
  for (std::size_t i = 0; i < sizeof(sitehlp::tag_ProxySettings); ++i)
    if (p[i] != 0) return false;
  return true;
}

// Header and body compared byte for byte, the link left out.
bool SameRecord(const tag_Site* a, const tag_Site* b) {
  return std::memcmp(a, b, offsetof(tag_Site, pNext)) == 0 &&
         std::memcmp(&a->proxySettings, &b->proxySettings, sizeof(sitehlp::tag_ProxySettings)) == 0;
}

// A host-like text of exactly length characters made of c.
std::string Host(char c, std::size_t length) {
  const std::string suffix = ".corp.example";
  return std::string(length - suffix.size(), c) + suffix;
}

// Encodes wide text as UTF-16 LE with a byte order mark.
std::string Utf16LeWithBom(const std::wstring& text) {
  std::string out = "\xFF\xFE";
  auto put = [&out](std::uint32_t unit) {
    out.push_back(static_cast<char>(unit & 0xFF));
    out.push_back(static_cast<char>((unit >> 8) & 0xFF));
  };
  for (wchar_t ch : text) {
    const std::uint32_t c = static_cast<std::uint32_t>(ch);
    if (c >= 0x10000) {
      put(0xD800 + ((c - 0x10000) >> 10));
      put(0xDC00 + ((c - 0x10000) & 0x3FF));
    } else {
      put(c);
    }
  }
  return out;
}

// The byte form of clear (kind 6), as base64 text.
std::wstring ByteFormOf(const std::string& clear) {
  IEncryption* object = CryptShim::instance().create_encryption_object(ENCRYPTION_BYTES);
  if (!object) return std::wstring();
  AnObjectBuffer<unsigned char> in(reinterpret_cast<const unsigned char*>(clear.data()), clear.size());
  AnObjectBuffer<unsigned char> sealed;
  const bool ok = object->encrypt(in, sealed);
  CryptShim::instance().destroy_encryption_object(object);
  if (!ok) return std::wstring();
  return ABase64Encode::encode(sealed.data(), sealed.size());
}

std::vector<std::wstring> ExclusionLines(const testsupport::CapturingLogSink& sink) {
  std::vector<std::wstring> out;
  for (const std::wstring& m : sink.messages(port::LogLevel::Detail))
    if (m.rfind(L"Exclusion list", 0) == 0) out.push_back(m);
  return out;
}

class SiteListReaderTest : public ::testing::Test {
 protected:
  void SetUp() override { port::ClearKeyCache(); }
  void TearDown() override {
    m_helper.FreeSiteListMemory(m_list);
    m_list = nullptr;
    port::ClearKeyCache();
  }

  int ReadDocument(const std::string& bytes) {
    testsupport::WriteFile(m_path, bytes);
    m_helper.FreeSiteListMemory(m_list);
    m_list = nullptr;
    return m_helper.ReadSiteList(m_wpath, &m_list);
  }

  // The text form of clear as a document holds it.
  std::string Enc(const std::wstring& clear) {
    std::wstring encrypted;
    EXPECT_EQ(m_helper.EncryptPassword(clear, encrypted), 1);
    return Narrow(encrypted);
  }

  testsupport::ConfigScope m_config;
  std::string m_path = m_config.dir().file("SiteList.xml");
  std::wstring m_wpath = Wide(m_path);
  CSitesHelper m_helper{m_wpath};
  tag_Site* m_list = nullptr;
};

// ---- structure of the list -------------------------------------------------------------------

TEST_F(SiteListReaderTest, EmptySiteListGivesZeroAndNullList) {
  testsupport::WriteFile(m_path, Document(""));
  m_list = kUntouched;
  const int result = m_helper.ReadSiteList(m_wpath, &m_list);
  if (m_list == kUntouched) m_list = nullptr;
  EXPECT_EQ(result, 0);
  EXPECT_EQ(m_list, nullptr);
}

TEST_F(SiteListReaderTest, UnknownElementYieldsHeaderOnlyRecordInItsPosition) {
  ASSERT_EQ(ReadDocument(Document(
                "<HttpSite Type=\"repository\" Name=\"First\" Order=\"1\" Enabled=\"1\" Server=\"a.corp.example:81\"/>"
                "<GopherSite Type=\"MiRrOr\" Name=\"Odd\" Order=\"4\" Enabled=\"1\" Local=\"1\" "
                "Server=\"odd.corp.example:70\"><RelativePath>x</RelativePath></GopherSite>"
                "<FTPSite Type=\"repository\" Name=\"Last\" Order=\"2\" Server=\"f.corp.example:21\"/>")),
            0);
  const auto nodes = Nodes(m_list);
  ASSERT_EQ(nodes.size(), 3u);
  EXPECT_EQ(W(nodes[0]->httpSite.szName), L"First");
  EXPECT_EQ(nodes[1]->nSiteType, 0);
  EXPECT_EQ(W(nodes[1]->szType), L"MiRrOr");
  EXPECT_EQ(nodes[1]->bMirror, 1);
  EXPECT_EQ(nodes[1]->nOrder, 4);
  EXPECT_EQ(nodes[1]->bEnabled, 1);
  EXPECT_EQ(nodes[1]->bLocal, 1);
  EXPECT_EQ(nodes[1]->bSpipeOrSuperAgent, 0);
  EXPECT_TRUE(BodyIsZero(nodes[1]));
  EXPECT_EQ(nodes[2]->nSiteType, 1);
  EXPECT_EQ(W(nodes[2]->ftpSite.szName), L"Last");
  EXPECT_EQ(nodes[2]->pNext, nullptr);
}

TEST_F(SiteListReaderTest, SiteListOfUnknownElementsOnlyGivesZeroAndOneRecordEach) {
  ASSERT_EQ(ReadDocument(Document("<Alpha Type=\"repository\" Order=\"7\"/><Beta/><Gamma Enabled=\"1\"/>")), 0);
  const auto nodes = Nodes(m_list);
  ASSERT_EQ(nodes.size(), 3u);
  EXPECT_EQ(W(nodes[0]->szType), L"repository");
  EXPECT_EQ(nodes[0]->nOrder, 7);
  EXPECT_EQ(W(nodes[1]->szType), L"");
  EXPECT_EQ(nodes[2]->bEnabled, 1);
  for (tag_Site* s : nodes) {
    EXPECT_EQ(s->nSiteType, 0);
    EXPECT_TRUE(BodyIsZero(s));
  }
}

TEST_F(SiteListReaderTest, ListKeepsDocumentOrderNotSiteOrder) {
  ASSERT_EQ(ReadDocument(Document("<HttpSite Name=\"Third\" Order=\"3\" Server=\"c.corp.example:80\"/>"
                                  "<HttpSite Name=\"First\" Order=\"1\" Server=\"a.corp.example:80\"/>"
                                  "<HttpSite Name=\"Second\" Order=\"2\" Server=\"b.corp.example:80\"/>")),
            0);
  const auto nodes = Nodes(m_list);
  ASSERT_EQ(nodes.size(), 3u);
  EXPECT_EQ(W(nodes[0]->httpSite.szName), L"Third");
  EXPECT_EQ(W(nodes[1]->httpSite.szName), L"First");
  EXPECT_EQ(W(nodes[2]->httpSite.szName), L"Second");
  EXPECT_EQ(nodes[0]->nOrder, 3);
  EXPECT_EQ(nodes[1]->nOrder, 1);
  EXPECT_EQ(nodes[2]->nOrder, 2);
}

TEST_F(SiteListReaderTest, LaterSiteListElementReplacesEarlierOne) {
  const std::string doc =
      "<ns:SiteLists xmlns:ns=\"zelSiteList\">"
      "<SiteList><HttpSite Name=\"Early1\" Server=\"e.corp.example:80\"/><HttpSite Name=\"Early2\"/></SiteList>"
      "<SiteList><FTPSite Name=\"Late\" Server=\"l.corp.example:21\"/></SiteList>"
      "</ns:SiteLists>";
  ASSERT_EQ(ReadDocument(doc), 0);
  const auto nodes = Nodes(m_list);
  ASSERT_EQ(nodes.size(), 1u);
  EXPECT_EQ(nodes[0]->nSiteType, 1);
  EXPECT_EQ(W(nodes[0]->ftpSite.szName), L"Late");
}

// ---- header fields ---------------------------------------------------------------------------------

TEST_F(SiteListReaderTest, FallbackTypeInAnyCaseForcesOrderZero) {
  ASSERT_EQ(ReadDocument(Document("<HttpSite Type=\"Fallback\" Name=\"F1\" Order=\"5\" Server=\"f.corp.example:80\"/>"
                                  "<HttpSite Type=\"FALLBACK\" Name=\"F2\" Order=\"6\" Server=\"f.corp.example:80\"/>"
                                  "<HttpSite Type=\"repository\" Name=\"R\" Order=\"5\" Server=\"r.corp.example:80\"/>")),
            0);
  const auto nodes = Nodes(m_list);
  ASSERT_EQ(nodes.size(), 3u);
  EXPECT_EQ(W(nodes[0]->szType), L"Fallback");
  EXPECT_EQ(nodes[0]->nOrder, 0);
  EXPECT_EQ(W(nodes[1]->szType), L"FALLBACK");
  EXPECT_EQ(nodes[1]->nOrder, 0);
  EXPECT_EQ(nodes[2]->nOrder, 5);
}

TEST_F(SiteListReaderTest, MirrorTypeInAnyCaseSetsMirrorFlag) {
  ASSERT_EQ(ReadDocument(Document("<HttpSite Type=\"MIRROR\" Name=\"M\" Server=\"m.corp.example:80\"/>"
                                  "<FTPSite Type=\"mirror\" Name=\"N\" Server=\"n.corp.example:21\"/>"
                                  "<HttpSite Type=\"mirrors\" Name=\"X\" Server=\"x.corp.example:80\"/>")),
            0);
  const auto nodes = Nodes(m_list);
  ASSERT_EQ(nodes.size(), 3u);
  EXPECT_EQ(nodes[0]->bMirror, 1);
  EXPECT_EQ(W(nodes[0]->szType), L"MIRROR");
  EXPECT_EQ(nodes[1]->bMirror, 1);
  EXPECT_EQ(nodes[2]->bMirror, 0);
}

TEST_F(SiteListReaderTest, EnabledAbsentIsZeroAndAnyNonZeroValueIsOne) {
  ASSERT_EQ(ReadDocument(Document("<HttpSite Name=\"NoFlag\" Server=\"a.corp.example:80\"/>"
                                  "<HttpSite Name=\"Two\" Enabled=\"2\" Local=\"-3\" Server=\"b.corp.example:80\"/>"
                                  "<HttpSite Name=\"Zero\" Enabled=\"0\" Local=\"0\" Server=\"c.corp.example:80\"/>"
                                  "<HttpSite Name=\"Text\" Enabled=\"yes\" Local=\"7x\" Server=\"d.corp.example:80\"/>")),
            0);
  const auto nodes = Nodes(m_list);
  ASSERT_EQ(nodes.size(), 4u);
  EXPECT_EQ(nodes[0]->bEnabled, 0);
  EXPECT_EQ(nodes[0]->bLocal, 0);
  EXPECT_EQ(nodes[1]->bEnabled, 1);
  EXPECT_EQ(nodes[1]->bLocal, 1);
  EXPECT_EQ(nodes[2]->bEnabled, 0);
  EXPECT_EQ(nodes[2]->bLocal, 0);
  EXPECT_EQ(nodes[3]->bEnabled, 0);  // atoi("yes") is 0
  EXPECT_EQ(nodes[3]->bLocal, 1);    // atoi("7x") is 7
}

TEST_F(SiteListReaderTest, SpipeOrSuperAgentFlagMarksOnlyThoseTwoElements) {
  ASSERT_EQ(ReadDocument(Document("<HttpSite Name=\"H\" Server=\"h.corp.example:80\"/>"
                                  "<SpipeSite Name=\"S\" Server=\"s.corp.example:80\"/>"
                                  "<SuperAgentSite Name=\"A\" Server=\"a.corp.example:80\"/>"
                                  "<FTPSite Name=\"F\" Server=\"f.corp.example:21\"/>"
                                  "<UNCSite Name=\"U\" Server=\"u.corp.example\"/>"
                                  "<LocalSite Name=\"L\"/>"
                                  "<ProxyConfigList><ProxyConfig Name=\"P\"/></ProxyConfigList>")),
            0);
  const auto nodes = Nodes(m_list);
  ASSERT_EQ(nodes.size(), 7u);
  const int expectedFlag[] = {0, 1, 1, 0, 0, 0, 0};
  const int expectedKind[] = {0, 0, 0, 1, 2, 3, 4};
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    EXPECT_EQ(nodes[i]->bSpipeOrSuperAgent, expectedFlag[i]) << i;
    EXPECT_EQ(nodes[i]->nSiteType, expectedKind[i]) << i;
  }
  EXPECT_EQ(W(nodes[0]->httpSite.szSiteElement), L"HttpSite");
  EXPECT_EQ(W(nodes[1]->httpSite.szSiteElement), L"SpipeSite");
  EXPECT_EQ(W(nodes[2]->httpSite.szSiteElement), L"SuperAgentSite");
}

// ---- servers and ports -------------------------------------------------------------------------------

TEST_F(SiteListReaderTest, HttpServerWithoutPortGetsPort80) {
  ASSERT_EQ(ReadDocument(Document("<HttpSite Name=\"H\" Server=\"repo.corp.example\"/>")), 0);
  ASSERT_NE(m_list, nullptr);
  EXPECT_EQ(W(m_list->httpSite.szServer), L"repo.corp.example");
  EXPECT_EQ(m_list->httpSite.nPort, 80);
  // Absent ServerName and ServerIP fail to split as well: empty host, port 80.
  EXPECT_EQ(W(m_list->httpSite.szServerName), L"");
  EXPECT_EQ(m_list->httpSite.nServerNamePort, 80);
  EXPECT_EQ(W(m_list->httpSite.szServerIP), L"");
  EXPECT_EQ(m_list->httpSite.nServerIPPort, 80);
  EXPECT_EQ(m_list->httpSite.nSecurePort, 0u);
}

TEST_F(SiteListReaderTest, FtpServerWithoutPortGetsPort80Not21) {
  ASSERT_EQ(ReadDocument(Document("<FTPSite Name=\"F\" Server=\"ftp.corp.example\"/>")), 0);
  ASSERT_NE(m_list, nullptr);
  EXPECT_EQ(m_list->nSiteType, 1);
  EXPECT_EQ(W(m_list->ftpSite.szServer), L"ftp.corp.example");
  EXPECT_EQ(m_list->ftpSite.nPort, 80);
  EXPECT_EQ(m_list->ftpSite.nSecurePort, 0u);
}

TEST_F(SiteListReaderTest, ServerIsSplitAtTheLastColon) {
  ASSERT_EQ(ReadDocument(Document("<SpipeSite Name=\"S\" Server=\"[2001:db8::5]:8443\" ServerName=\"fe80::1\" "
                                  "ServerIP=\"198.51.100.4:8444\"/>")),
            0);
  ASSERT_NE(m_list, nullptr);
  EXPECT_EQ(W(m_list->httpSite.szServer), L"[2001:db8::5]");
  EXPECT_EQ(m_list->httpSite.nPort, 8443);
  EXPECT_EQ(W(m_list->httpSite.szServerName), L"fe80:");
  EXPECT_EQ(m_list->httpSite.nServerNamePort, 1);
  EXPECT_EQ(W(m_list->httpSite.szServerIP), L"198.51.100.4");
  EXPECT_EQ(m_list->httpSite.nServerIPPort, 8444);
}

TEST_F(SiteListReaderTest, SuperAgentWithoutServerDnsTakesHostFromServer) {
  ASSERT_EQ(ReadDocument(Document("<SuperAgentSite Name=\"A\" Server=\"relay.corp.example:8081\"/>")), 0);
  ASSERT_NE(m_list, nullptr);
  EXPECT_EQ(W(m_list->httpSite.szServer), L"relay.corp.example");
  EXPECT_EQ(m_list->httpSite.nPort, 8081);
}

TEST_F(SiteListReaderTest, SuperAgentWithServerDnsTakesHostAndPortFromIt) {
  ASSERT_EQ(ReadDocument(Document(
                "<SuperAgentSite Name=\"A\" Server=\"relay.corp.example:8081\" ServerDNS=\"relay.dns.corp.example:9091\"/>"
                "<SuperAgentSite Name=\"B\" Server=\"relay.corp.example:8081\" ServerDNS=\"relay2.dns.corp.example\"/>"
                "<SpipeSite Name=\"C\" Server=\"mgmt.corp.example:8443\" ServerDNS=\"ignored.corp.example:1\"/>"
                "<HttpSite Name=\"D\" Server=\"repo.corp.example:80\" ServerDNS=\"ignored.corp.example:1\"/>")),
            0);
  const auto nodes = Nodes(m_list);
  ASSERT_EQ(nodes.size(), 4u);
  EXPECT_EQ(W(nodes[0]->httpSite.szServer), L"relay.dns.corp.example");
  EXPECT_EQ(nodes[0]->httpSite.nPort, 9091);
  EXPECT_EQ(W(nodes[1]->httpSite.szServer), L"relay2.dns.corp.example");
  EXPECT_EQ(nodes[1]->httpSite.nPort, 80);
  EXPECT_EQ(W(nodes[2]->httpSite.szServer), L"mgmt.corp.example");
  EXPECT_EQ(nodes[2]->httpSite.nPort, 8443);
  EXPECT_EQ(W(nodes[3]->httpSite.szServer), L"repo.corp.example");
  EXPECT_EQ(nodes[3]->httpSite.nPort, 80);
}

TEST_F(SiteListReaderTest, VersionIsKeptForSpipeSitesOnly) {
  ASSERT_EQ(ReadDocument(Document("<SpipeSite Name=\"S\" Server=\"s.corp.example:80\" Version=\"5.10.0\"/>"
                                  "<HttpSite Name=\"H\" Server=\"h.corp.example:80\" Version=\"1.2\"/>"
                                  "<SuperAgentSite Name=\"A\" Server=\"a.corp.example:80\" Version=\"9.9\"/>")),
            0);
  const auto nodes = Nodes(m_list);
  ASSERT_EQ(nodes.size(), 3u);
  EXPECT_EQ(W(nodes[0]->httpSite.szVersion), L"5.10.0");
  EXPECT_EQ(W(nodes[1]->httpSite.szVersion), L"");
  EXPECT_EQ(W(nodes[2]->httpSite.szVersion), L"");
}

// ---- proxy configuration ---------------------------------------------------------------------------

TEST_F(SiteListReaderTest, ProxyWithBothServersIsFtpHttp) {
  ASSERT_EQ(ReadDocument(Document("<ProxyConfigList><ProxyConfig Name=\"P\" HttpProxyServer=\"hp.corp.example\" "
                                  "HttpProxyPort=\"3128\" FtpProxyServer=\"fp.corp.example\" FtpProxyPort=\"2121\"/>"
                                  "</ProxyConfigList>")),
            0);
  ASSERT_NE(m_list, nullptr);
  const auto& p = m_list->proxySettings;
  EXPECT_EQ(m_list->nSiteType, 4);
  EXPECT_EQ(W(p.szProxyKind), L"FtpHttp");
  EXPECT_EQ(W(p.szHttpProxyServer), L"hp.corp.example");
  EXPECT_EQ(p.nHttpProxyPort, 3128);
  EXPECT_EQ(W(p.szFtpProxyServer), L"fp.corp.example");
  EXPECT_EQ(p.nFtpProxyPort, 2121);
}

TEST_F(SiteListReaderTest, ProxyWithNeitherServerHasEmptyKindAndNoFlags) {
  ASSERT_EQ(ReadDocument(Document("<ProxyConfigList><ProxyConfig Name=\"P\" HttpProxyPort=\"3128\" "
                                  "FtpProxyPort=\"2121\"/></ProxyConfigList>")),
            0);
  ASSERT_NE(m_list, nullptr);
  const auto& p = m_list->proxySettings;
  EXPECT_EQ(m_list->nSiteType, 4);
  EXPECT_EQ(W(p.szName), L"P");
  EXPECT_EQ(W(p.szProxyKind), L"");
  EXPECT_EQ(W(p.szHttpProxyServer), L"");
  EXPECT_EQ(p.nHttpProxyPort, 0);
  EXPECT_EQ(W(p.szFtpProxyServer), L"");
  EXPECT_EQ(p.nFtpProxyPort, 0);
  EXPECT_EQ(p.bUseIEConfig, 0);
  EXPECT_EQ(p.bAllowUserToConfigureProxy, 0);
  EXPECT_EQ(p.bBypassLocalAddress, 0);
  EXPECT_EQ(p.bFtpUseAuth, 0);
  EXPECT_EQ(p.bHttpUseAuth, 0);
  EXPECT_EQ(p.bAlternateFtpUseAuth, 0);
  EXPECT_EQ(p.bAlternateHttpUseAuth, 0);
  EXPECT_EQ(p.nExclusionCount, 0);
  EXPECT_EQ(W(p.szExclusionList), L"");
}

TEST_F(SiteListReaderTest, ProxyWithOnlyHttpServerIsHttpSite) {
  ASSERT_EQ(ReadDocument(Document("<ProxyConfigList><ProxyConfig Name=\"P\" HttpProxyServer=\"hp.corp.example\" "
                                  "HttpProxyPort=\"8080\" FtpProxyPort=\"2121\"/></ProxyConfigList>")),
            0);
  ASSERT_NE(m_list, nullptr);
  const auto& p = m_list->proxySettings;
  EXPECT_EQ(W(p.szProxyKind), L"HttpSite");
  EXPECT_EQ(p.nHttpProxyPort, 8080);
  EXPECT_EQ(p.nFtpProxyPort, 0);  // the port is read only with its server
}

TEST_F(SiteListReaderTest, ProxyWithOnlyFtpServerIsFTPSite) {
  ASSERT_EQ(ReadDocument(Document("<ProxyConfigList><ProxyConfig Name=\"P\" FtpProxyServer=\"fp.corp.example\" "
                                  "FtpProxyPort=\"21\" HttpProxyServer=\"\" HttpProxyPort=\"3128\"/></ProxyConfigList>")),
            0);
  ASSERT_NE(m_list, nullptr);
  const auto& p = m_list->proxySettings;
  EXPECT_EQ(W(p.szProxyKind), L"FTPSite");
  EXPECT_EQ(W(p.szFtpProxyServer), L"fp.corp.example");
  EXPECT_EQ(p.nFtpProxyPort, 21);
  EXPECT_EQ(W(p.szHttpProxyServer), L"");
  EXPECT_EQ(p.nHttpProxyPort, 0);
}

TEST_F(SiteListReaderTest, UseIEConfigOnProxyConfigListOverridesTheEntry) {
  ASSERT_EQ(ReadDocument(Document("<ProxyConfigList UseIEConfig=\"0\"><ProxyConfig Name=\"A\" UseIEConfig=\"1\"/>"
                                  "</ProxyConfigList>"
                                  "<ProxyConfigList UseIEConfig=\"3\"><ProxyConfig Name=\"B\"/></ProxyConfigList>"
                                  "<ProxyConfigList><ProxyConfig Name=\"C\" UseIEConfig=\"1\"/></ProxyConfigList>")),
            0);
  const auto nodes = Nodes(m_list);
  ASSERT_EQ(nodes.size(), 3u);
  EXPECT_EQ(W(nodes[0]->proxySettings.szName), L"A");
  EXPECT_EQ(nodes[0]->proxySettings.bUseIEConfig, 0);
  EXPECT_EQ(W(nodes[1]->proxySettings.szName), L"B");
  EXPECT_EQ(nodes[1]->proxySettings.bUseIEConfig, 1);
  EXPECT_EQ(W(nodes[2]->proxySettings.szName), L"C");
  EXPECT_EQ(nodes[2]->proxySettings.bUseIEConfig, 1);
}

TEST_F(SiteListReaderTest, ExclusionHostsPastTheLimitAreDroppedOneByOneWithALogLineEach) {
  const std::string a = Host('a', 3000);
  const std::string b = Host('b', 1000);  // 3000 + 1000 + 1 > 3999: dropped
  const std::string c = Host('c', 998);   // 3000 + 998 + 1 = 3999: appended
  const std::string d = Host('d', 20);    // dropped: the list is full
  testsupport::CapturingLogSink sink;
  ASSERT_EQ(ReadDocument(Document("<ProxyConfigList><ProxyConfig Name=\"P\"><ExclusionList>"
                                  "<ExclusionHost>" + a + "</ExclusionHost>"
                                  "<ExclusionHost>" + b + "</ExclusionHost>"
                                  "<Comment>skipped.corp.example</Comment>"
                                  "<ExclusionHost>" + c + "</ExclusionHost>"
                                  "<ExclusionHost>" + d + "</ExclusionHost>"
                                  "</ExclusionList></ProxyConfig></ProxyConfigList>")),
            0);
  ASSERT_NE(m_list, nullptr);
  const auto& p = m_list->proxySettings;
  const std::wstring expected = Wide(a + ";" + c);
  EXPECT_EQ(expected.size(), 3999u);
  EXPECT_EQ(W(p.szExclusionList), expected);
  EXPECT_EQ(p.nExclusionCount, 2);
  const std::vector<std::wstring> lines = ExclusionLines(sink);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], L"Exclusion list of proxy settings is truncated to " + Wide(a) + L" in ReadSiteFromSiteList");
  EXPECT_EQ(lines[1], L"Exclusion list of proxy settings is truncated to " + expected + L" in ReadSiteFromSiteList");
}

TEST_F(SiteListReaderTest, ExclusionLimitCountsTheSeparatorEvenForTheFirstHost) {
  const std::string fits = Host('f', 3998);     // 0 + 3998 + 1 = 3999
  const std::string tooLong = Host('t', 3999);  // 0 + 3999 + 1 = 4000
  testsupport::CapturingLogSink sink;
  ASSERT_EQ(ReadDocument(Document("<ProxyConfigList><ProxyConfig Name=\"A\"><ExclusionList>"
                                  "<ExclusionHost>" + tooLong + "</ExclusionHost>"
                                  "</ExclusionList></ProxyConfig></ProxyConfigList>"
                                  "<ProxyConfigList><ProxyConfig Name=\"B\"><ExclusionList>"
                                  "<ExclusionHost>" + fits + "</ExclusionHost><ExclusionHost>x</ExclusionHost>"
                                  "</ExclusionList></ProxyConfig></ProxyConfigList>")),
            0);
  const auto nodes = Nodes(m_list);
  ASSERT_EQ(nodes.size(), 2u);
  EXPECT_EQ(W(nodes[0]->proxySettings.szExclusionList), L"");
  EXPECT_EQ(nodes[0]->proxySettings.nExclusionCount, 0);
  EXPECT_EQ(W(nodes[1]->proxySettings.szExclusionList), Wide(fits));
  EXPECT_EQ(nodes[1]->proxySettings.nExclusionCount, 1);
  const std::vector<std::wstring> lines = ExclusionLines(sink);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], L"Exclusion list of proxy settings is truncated to  in ReadSiteFromSiteList");
  EXPECT_EQ(lines[1], L"Exclusion list of proxy settings is truncated to " + Wide(fits) + L" in ReadSiteFromSiteList");
}

TEST_F(SiteListReaderTest, TwoProxyConfigEntriesKeepOnlyTheSecond) {
  ASSERT_EQ(ReadDocument(Document(
                "<ProxyConfigList>"
                "<ProxyConfig Name=\"First\" UseIEConfig=\"1\" HttpProxyServer=\"hp.corp.example\" HttpProxyPort=\"3128\">"
                "<AllowUserToConfigureProxy>1</AllowUserToConfigureProxy><BypassLocalAddress>1</BypassLocalAddress>"
                "<ExclusionList><ExclusionHost>one.corp.example</ExclusionHost></ExclusionList>"
                "<FtpUseAuth>1</FtpUseAuth><HttpUseAuth>1</HttpUseAuth><HttpProxyUser>u1</HttpProxyUser>"
                "<HttpProxyPassword Encrypted=\"1\">" + Enc(L"pw1") + "</HttpProxyPassword>"
                "<FtpProxyUser>u2</FtpProxyUser><AlternateFtpUseAuth>1</AlternateFtpUseAuth>"
                "<AlternateHttpUseAuth>1</AlternateHttpUseAuth><AlternateHttpProxyUser>u3</AlternateHttpProxyUser>"
                "<AlternateFtpProxyUser>u4</AlternateFtpProxyUser>"
                "</ProxyConfig>"
                "<ProxyConfig Name=\"Second\" FtpProxyServer=\"fp.corp.example\" FtpProxyPort=\"2121\"/>"
                "</ProxyConfigList>")),
            0);
  ASSERT_NE(m_list, nullptr);
  ASSERT_EQ(m_list->pNext, nullptr);
  // The record is exactly what the second entry alone gives.
  tag_Site* alone = nullptr;
  const std::string path2 = m_config.dir().file("second.xml");
  testsupport::WriteFile(path2, Document("<ProxyConfigList><ProxyConfig Name=\"Second\" FtpProxyServer=\"fp.corp.example\" "
                                         "FtpProxyPort=\"2121\"/></ProxyConfigList>"));
  ASSERT_EQ(m_helper.ReadSiteList(Wide(path2), &alone), 0);
  ASSERT_NE(alone, nullptr);
  EXPECT_TRUE(SameRecord(m_list, alone));
  m_helper.FreeSiteListMemory(alone);

  const auto& p = m_list->proxySettings;
  EXPECT_EQ(W(p.szName), L"Second");
  EXPECT_EQ(W(p.szProxyKind), L"FTPSite");
  EXPECT_EQ(W(p.szFtpProxyServer), L"fp.corp.example");
  EXPECT_EQ(p.nFtpProxyPort, 2121);
  EXPECT_EQ(W(p.szHttpProxyServer), L"");
  EXPECT_EQ(p.nHttpProxyPort, 0);
  EXPECT_EQ(p.bUseIEConfig, 0);
  EXPECT_EQ(p.bAllowUserToConfigureProxy, 0);
  EXPECT_EQ(p.bBypassLocalAddress, 0);
  EXPECT_EQ(p.nExclusionCount, 0);
  EXPECT_EQ(W(p.szExclusionList), L"");
  EXPECT_EQ(p.bFtpUseAuth, 0);
  EXPECT_EQ(p.bHttpUseAuth, 0);
  EXPECT_EQ(W(p.szHttpProxyUser), L"");
  EXPECT_EQ(W(p.szHttpProxyPassword), L"");
  EXPECT_EQ(W(p.szFtpProxyUser), L"");
  EXPECT_EQ(p.bAlternateFtpUseAuth, 0);
  EXPECT_EQ(p.bAlternateHttpUseAuth, 0);
  EXPECT_EQ(W(p.szAlternateHttpProxyUser), L"");
  EXPECT_EQ(W(p.szAlternateFtpProxyUser), L"");
}

TEST_F(SiteListReaderTest, ProxyListEndingInNonProxyChildPlacedLastReturnsMinusOneWithAllRecords) {
  ASSERT_EQ(ReadDocument(Document("<HttpSite Name=\"H\" Server=\"h.corp.example:80\"/>"
                                  "<FTPSite Name=\"F\" Server=\"f.corp.example:21\"/>"
                                  "<ProxyConfigList><ProxyConfig Name=\"P\" HttpProxyServer=\"hp.corp.example\" "
                                  "HttpProxyPort=\"3128\"/><Note>not a proxy</Note></ProxyConfigList>")),
            -1);
  const auto nodes = Nodes(m_list);
  ASSERT_EQ(nodes.size(), 3u);
  EXPECT_EQ(nodes[0]->nSiteType, 0);
  EXPECT_EQ(W(nodes[0]->httpSite.szName), L"H");
  EXPECT_EQ(nodes[1]->nSiteType, 1);
  EXPECT_EQ(W(nodes[1]->ftpSite.szName), L"F");
  EXPECT_EQ(nodes[2]->nSiteType, 4);
  EXPECT_EQ(W(nodes[2]->proxySettings.szName), L"P");
  EXPECT_EQ(W(nodes[2]->proxySettings.szProxyKind), L"HttpSite");
}

TEST_F(SiteListReaderTest, ProxyListWithNonProxyChildFollowedBySiteReturnsZero) {
  ASSERT_EQ(ReadDocument(Document("<ProxyConfigList><ProxyConfig Name=\"P\"/><Note/></ProxyConfigList>"
                                  "<HttpSite Name=\"H\" Server=\"h.corp.example:80\"/>")),
            0);
  const auto nodes = Nodes(m_list);
  ASSERT_EQ(nodes.size(), 2u);
  EXPECT_EQ(W(nodes[0]->proxySettings.szName), L"P");
  EXPECT_EQ(W(nodes[1]->httpSite.szName), L"H");
}

TEST_F(SiteListReaderTest, UnknownElementAfterFailedProxyEntryKeepsMinusOne) {
  ASSERT_EQ(ReadDocument(Document("<ProxyConfigList><Note/></ProxyConfigList><Trailer Name=\"T\"/>")), -1);
  const auto nodes = Nodes(m_list);
  ASSERT_EQ(nodes.size(), 2u);
  EXPECT_EQ(nodes[0]->nSiteType, 4);
  EXPECT_TRUE(BodyIsZero(nodes[0]));
  EXPECT_EQ(nodes[1]->nSiteType, 0);
  EXPECT_TRUE(BodyIsZero(nodes[1]));
}

// ---- every field of every kind -------------------------------------------------------------------

TEST_F(SiteListReaderTest, FullDocumentFillsEveryFieldOfEveryKind) {
  const std::string doc = Document(
      "<HttpSite Type=\"repository\" Name=\"HttpRepo\" Order=\"3\" Enabled=\"1\" Local=\"0\" SecurePort=\"8443\" "
      "Server=\"repo.corp.example:8080\">"
      "<RelativePath>updates/current</RelativePath><UseAuth>1</UseAuth><UserName>httpuser</UserName>"
      "<Password Encrypted=\"1\">" + Enc(L"http-secret") + "</Password></HttpSite>"
      "<SpipeSite Type=\"master\" Name=\"MgmtServer\" Order=\"1\" Enabled=\"1\" Local=\"0\" SecurePort=\"443\" "
      "Server=\"mgmt.corp.example:8081\" ServerName=\"MGMTSRV:8082\" ServerIP=\"192.0.2.10:8083\" Version=\"5.10.0\">"
      "<RelativePath>Software</RelativePath><UseAuth>0</UseAuth><UserName>spipeuser</UserName>"
      "<Password Encrypted=\"1\">" + Enc(L"spipe-secret") + "</Password></SpipeSite>"
      "<SuperAgentSite Type=\"repository\" Name=\"Relay1\" Order=\"2\" Enabled=\"0\" Local=\"1\" "
      "Server=\"relay.corp.example:8090\" ServerName=\"RELAY1:8091\" ServerIP=\"198.51.100.7:8092\">"
      "<RelativePath>relay/path</RelativePath><UseAuth>7</UseAuth><UserName>sauser</UserName>"
      "<Password Encrypted=\"1\">" + Enc(L"sa-secret") + "</Password></SuperAgentSite>"
      "<FTPSite Type=\"mirror\" Name=\"FtpMirror\" Server=\"ftp.corp.example:2121\" Enabled=\"1\" SecurePort=\"990\" "
      "Local=\"1\" Passive=\"1\">"
      "<RelativePath>pub/updates</RelativePath><UserName>ftpuser</UserName>"
      "<Password Encrypted=\"1\">" + Enc(L"ftp-secret") + "</Password></FTPSite>"
      "<UNCSite Type=\"repository\" Name=\"Share1\" Order=\"4\" Server=\"fileserver.corp.example:445\" Enabled=\"1\" "
      "Local=\"0\">"
      "<ShareName>updates$</ShareName><RelativePath>agent\\content</RelativePath>"
      "<UseLoggedonUserAccount>3</UseLoggedonUserAccount><DomainName>CORP</DomainName><UserName>uncuser</UserName>"
      "<Password Encrypted=\"1\">" + Enc(L"unc-secret") + "</Password></UNCSite>"
      "<LocalSite Type=\"fallback\" Name=\"LocalRepo\" Order=\"9\" Enabled=\"1\" Local=\"1\" Server=\"127.0.0.1\">"
      "<RelativePath>/var/lib/agent/repo</RelativePath><UseLoggedonUserAccount>1</UseLoggedonUserAccount>"
      "<DomainName>LOCALDOM</DomainName><UserName>localuser</UserName>"
      "<Password Encrypted=\"1\">" + Enc(L"local-secret") + "</Password></LocalSite>"
      "<ProxyConfigList><ProxyConfig Name=\"CorpProxy\" UseIEConfig=\"1\" Local=\"1\" "
      "HttpProxyServer=\"proxy.corp.example\" HttpProxyPort=\"3128\" FtpProxyServer=\"ftpproxy.corp.example\" "
      "FtpProxyPort=\"2121\">"
      "<AllowUserToConfigureProxy>1</AllowUserToConfigureProxy><BypassLocalAddress>1</BypassLocalAddress>"
      "<ExclusionList><ExclusionHost>intranet.corp.example</ExclusionHost>"
      "<ExclusionHost>*.build.corp.example</ExclusionHost></ExclusionList>"
      "<FtpUseAuth>1</FtpUseAuth><HttpUseAuth>1</HttpUseAuth>"
      "<HttpProxyUser>proxyhttpuser</HttpProxyUser>"
      "<HttpProxyPassword Encrypted=\"1\">" + Enc(L"php-secret") + "</HttpProxyPassword>"
      "<FtpProxyUser>proxyftpuser</FtpProxyUser>"
      "<FtpProxyPassword Encrypted=\"1\">" + Enc(L"pfp-secret") + "</FtpProxyPassword>"
      "<AlternateFtpUseAuth>1</AlternateFtpUseAuth><AlternateHttpUseAuth>1</AlternateHttpUseAuth>"
      "<AlternateHttpProxyUser>althttpuser</AlternateHttpProxyUser>"
      "<AlternateHttpProxyPassword Encrypted=\"1\">" + Enc(L"ahp-secret") + "</AlternateHttpProxyPassword>"
      "<AlternateFtpProxyUser>altftpuser</AlternateFtpProxyUser>"
      "<AlternateFtpProxyPassword Encrypted=\"1\">" + Enc(L"afp-secret") + "</AlternateFtpProxyPassword>"
      "</ProxyConfig></ProxyConfigList>");
  ASSERT_EQ(ReadDocument(doc), 0);
  const auto n = Nodes(m_list);
  ASSERT_EQ(n.size(), 7u);

  // HttpSite
  EXPECT_EQ(n[0]->bEnabled, 1);
  EXPECT_EQ(n[0]->bSpipeOrSuperAgent, 0);
  EXPECT_EQ(n[0]->bMirror, 0);
  EXPECT_EQ(n[0]->bLocal, 0);
  EXPECT_EQ(n[0]->nOrder, 3);
  EXPECT_EQ(n[0]->nSiteType, 0);
  EXPECT_EQ(W(n[0]->szType), L"repository");
  {
    const auto& h = n[0]->httpSite;
    EXPECT_EQ(W(h.szSiteElement), L"HttpSite");
    EXPECT_EQ(W(h.szName), L"HttpRepo");
    EXPECT_EQ(W(h.szServer), L"repo.corp.example");
    EXPECT_EQ(h.nPort, 8080);
    EXPECT_EQ(W(h.szServerIP), L"");
    EXPECT_EQ(h.nServerIPPort, 80);
    EXPECT_EQ(W(h.szServerName), L"");
    EXPECT_EQ(h.nServerNamePort, 80);
    EXPECT_EQ(W(h.szRelativePath), L"updates/current");
    EXPECT_EQ(h.nUseAuth, 1);
    EXPECT_EQ(W(h.szUserName), L"httpuser");
    EXPECT_EQ(W(h.szPassword), L"http-secret");
    EXPECT_EQ(W(h.szVersion), L"");
    EXPECT_EQ(h.nSecurePort, 8443u);
  }
  // SpipeSite
  EXPECT_EQ(n[1]->bEnabled, 1);
  EXPECT_EQ(n[1]->bSpipeOrSuperAgent, 1);
  EXPECT_EQ(n[1]->bMirror, 0);
  EXPECT_EQ(n[1]->bLocal, 0);
  EXPECT_EQ(n[1]->nOrder, 1);
  EXPECT_EQ(n[1]->nSiteType, 0);
  EXPECT_EQ(W(n[1]->szType), L"master");
  {
    const auto& h = n[1]->httpSite;
    EXPECT_EQ(W(h.szSiteElement), L"SpipeSite");
    EXPECT_EQ(W(h.szName), L"MgmtServer");
    EXPECT_EQ(W(h.szServer), L"mgmt.corp.example");
    EXPECT_EQ(h.nPort, 8081);
    EXPECT_EQ(W(h.szServerName), L"MGMTSRV");
    EXPECT_EQ(h.nServerNamePort, 8082);
    EXPECT_EQ(W(h.szServerIP), L"192.0.2.10");
    EXPECT_EQ(h.nServerIPPort, 8083);
    EXPECT_EQ(W(h.szRelativePath), L"Software");
    EXPECT_EQ(h.nUseAuth, 0);
    EXPECT_EQ(W(h.szUserName), L"spipeuser");
    EXPECT_EQ(W(h.szPassword), L"spipe-secret");
    EXPECT_EQ(W(h.szVersion), L"5.10.0");
    EXPECT_EQ(h.nSecurePort, 443u);
  }
  // SuperAgentSite
  EXPECT_EQ(n[2]->bEnabled, 0);
  EXPECT_EQ(n[2]->bSpipeOrSuperAgent, 1);
  EXPECT_EQ(n[2]->bMirror, 0);
  EXPECT_EQ(n[2]->bLocal, 1);
  EXPECT_EQ(n[2]->nOrder, 2);
  EXPECT_EQ(n[2]->nSiteType, 0);
  EXPECT_EQ(W(n[2]->szType), L"repository");
  {
    const auto& h = n[2]->httpSite;
    EXPECT_EQ(W(h.szSiteElement), L"SuperAgentSite");
    EXPECT_EQ(W(h.szName), L"Relay1");
    EXPECT_EQ(W(h.szServer), L"relay.corp.example");
    EXPECT_EQ(h.nPort, 8090);
    EXPECT_EQ(W(h.szServerName), L"RELAY1");
    EXPECT_EQ(h.nServerNamePort, 8091);
    EXPECT_EQ(W(h.szServerIP), L"198.51.100.7");
    EXPECT_EQ(h.nServerIPPort, 8092);
    EXPECT_EQ(W(h.szRelativePath), L"relay/path");
    EXPECT_EQ(h.nUseAuth, 7);
    EXPECT_EQ(W(h.szUserName), L"sauser");
    EXPECT_EQ(W(h.szPassword), L"sa-secret");
    EXPECT_EQ(W(h.szVersion), L"");
    EXPECT_EQ(h.nSecurePort, 0u);
  }
  // FTPSite
  EXPECT_EQ(n[3]->bEnabled, 1);
  EXPECT_EQ(n[3]->bSpipeOrSuperAgent, 0);
  EXPECT_EQ(n[3]->bMirror, 1);
  EXPECT_EQ(n[3]->bLocal, 1);
  EXPECT_EQ(n[3]->nOrder, 0);
  EXPECT_EQ(n[3]->nSiteType, 1);
  EXPECT_EQ(W(n[3]->szType), L"mirror");
  {
    const auto& f = n[3]->ftpSite;
    EXPECT_EQ(W(f.szName), L"FtpMirror");
    EXPECT_EQ(W(f.szServer), L"ftp.corp.example");
    EXPECT_EQ(f.nPort, 2121);
    EXPECT_EQ(f.nSecurePort, 990u);
    EXPECT_EQ(W(f.szRelativePath), L"pub/updates");
    EXPECT_EQ(W(f.szUserName), L"ftpuser");
    EXPECT_EQ(W(f.szPassword), L"ftp-secret");
  }
  // UNCSite
  EXPECT_EQ(n[4]->bEnabled, 1);
  EXPECT_EQ(n[4]->bSpipeOrSuperAgent, 0);
  EXPECT_EQ(n[4]->bMirror, 0);
  EXPECT_EQ(n[4]->bLocal, 0);
  EXPECT_EQ(n[4]->nOrder, 4);
  EXPECT_EQ(n[4]->nSiteType, 2);
  EXPECT_EQ(W(n[4]->szType), L"repository");
  {
    const auto& u = n[4]->uncSite;
    EXPECT_EQ(W(u.szName), L"Share1");
    EXPECT_EQ(W(u.szServer), L"fileserver.corp.example:445");  // not split
    EXPECT_EQ(W(u.szShareName), L"updates$");
    EXPECT_EQ(W(u.szRelativePath), L"agent\\content");
    EXPECT_EQ(u.nUseLoggedonUserAccount, 3);
    EXPECT_EQ(W(u.szDomainName), L"CORP");
    EXPECT_EQ(W(u.szUserName), L"uncuser");
    EXPECT_EQ(W(u.szPassword), L"unc-secret");
  }
  // LocalSite
  EXPECT_EQ(n[5]->bEnabled, 1);
  EXPECT_EQ(n[5]->bSpipeOrSuperAgent, 0);
  EXPECT_EQ(n[5]->bMirror, 0);
  EXPECT_EQ(n[5]->bLocal, 1);
  EXPECT_EQ(n[5]->nOrder, 0);  // fallback
  EXPECT_EQ(n[5]->nSiteType, 3);
  EXPECT_EQ(W(n[5]->szType), L"fallback");
  {
    const auto& l = n[5]->localSite;
    EXPECT_EQ(W(l.szName), L"LocalRepo");
    EXPECT_EQ(W(l.szRelativePath), L"/var/lib/agent/repo");
    EXPECT_EQ(l.nUseLoggedonUserAccount, 1);
    EXPECT_EQ(W(l.szDomainName), L"LOCALDOM");
    EXPECT_EQ(W(l.szUserName), L"localuser");
    EXPECT_EQ(W(l.szPassword), L"local-secret");
  }
  // ProxyConfigList
  EXPECT_EQ(n[6]->bEnabled, 0);
  EXPECT_EQ(n[6]->bSpipeOrSuperAgent, 0);
  EXPECT_EQ(n[6]->bMirror, 0);
  EXPECT_EQ(n[6]->bLocal, 0);
  EXPECT_EQ(n[6]->nOrder, 0);
  EXPECT_EQ(n[6]->nSiteType, 4);
  EXPECT_EQ(W(n[6]->szType), L"");
  EXPECT_EQ(n[6]->pNext, nullptr);
  {
    const auto& p = n[6]->proxySettings;
    EXPECT_EQ(W(p.szProxyKind), L"FtpHttp");
    EXPECT_EQ(W(p.szName), L"CorpProxy");
    EXPECT_EQ(W(p.szHttpProxyServer), L"proxy.corp.example");
    EXPECT_EQ(p.nHttpProxyPort, 3128);
    EXPECT_EQ(W(p.szFtpProxyServer), L"ftpproxy.corp.example");
    EXPECT_EQ(p.nFtpProxyPort, 2121);
    EXPECT_EQ(p.bAllowUserToConfigureProxy, 1);
    EXPECT_EQ(p.bBypassLocalAddress, 1);
    EXPECT_EQ(p.bUseIEConfig, 1);
    EXPECT_EQ(p.nExclusionCount, 2);
    EXPECT_EQ(W(p.szExclusionList), L"intranet.corp.example;*.build.corp.example");
    EXPECT_EQ(p.bFtpUseAuth, 1);
    EXPECT_EQ(p.bHttpUseAuth, 1);
    EXPECT_EQ(W(p.szHttpProxyUser), L"proxyhttpuser");
    EXPECT_EQ(W(p.szHttpProxyPassword), L"php-secret");
    EXPECT_EQ(W(p.szFtpProxyUser), L"proxyftpuser");
    EXPECT_EQ(W(p.szFtpProxyPassword), L"pfp-secret");
    EXPECT_EQ(p.bAlternateFtpUseAuth, 1);
    EXPECT_EQ(p.bAlternateHttpUseAuth, 1);
    EXPECT_EQ(W(p.szAlternateHttpProxyUser), L"althttpuser");
    EXPECT_EQ(W(p.szAlternateHttpProxyPassword), L"ahp-secret");
    EXPECT_EQ(W(p.szAlternateFtpProxyUser), L"altftpuser");
    EXPECT_EQ(W(p.szAlternateFtpProxyPassword), L"afp-secret");
  }
}

TEST_F(SiteListReaderTest, ChildValuesAreReadFromChildElementsNotAttributes) {
  ASSERT_EQ(ReadDocument(Document("<UNCSite Name=\"U\" Server=\"u.corp.example\" ShareName=\"attr\" "
                                  "UserName=\"attr\" DomainName=\"attr\" RelativePath=\"attr\">"
                                  "<ShareName>child</ShareName></UNCSite>")),
            0);
  ASSERT_NE(m_list, nullptr);
  const auto& u = m_list->uncSite;
  EXPECT_EQ(W(u.szShareName), L"child");
  EXPECT_EQ(W(u.szUserName), L"");
  EXPECT_EQ(W(u.szDomainName), L"");
  EXPECT_EQ(W(u.szRelativePath), L"");
  EXPECT_EQ(u.nUseLoggedonUserAccount, 0);
}

// ---- passwords ---------------------------------------------------------------------------------------

TEST_F(SiteListReaderTest, PasswordWrittenByEncryptPasswordIsReadAsClearText) {
  const std::wstring clear = L"p\u00e4ss <&> w\u00f6rd";
  std::wstring encrypted;
  ASSERT_EQ(m_helper.EncryptPassword(clear, encrypted), 1);
  ASSERT_NE(encrypted, clear);
  ASSERT_EQ(ReadDocument(Document("<HttpSite Name=\"H\" Server=\"h.corp.example:80\"><Password Encrypted=\"1\">" +
                                  Narrow(encrypted) + "</Password></HttpSite>")),
            0);
  ASSERT_NE(m_list, nullptr);
  EXPECT_EQ(W(m_list->httpSite.szPassword), clear);
}

TEST_F(SiteListReaderTest, PasswordThatFailsAuthenticationLeavesFieldEmpty) {
  // Well-formed base64 of random bytes: no key seals it.
  const std::string forged = "q83vEjRWeJq83vEjRWeJq83vEjRWeJq83vEjRWeJq83vEjRWeJ8=";
  ASSERT_EQ(ReadDocument(Document("<HttpSite Name=\"H\" Server=\"h.corp.example:80\"><Password Encrypted=\"1\">" +
                                  forged + "</Password></HttpSite>"
                                  "<FTPSite Name=\"F\" Server=\"f.corp.example:21\"><Password>not base64 at all!"
                                  "</Password></FTPSite>"
                                  "<UNCSite Name=\"U\" Server=\"u\"><Password Encrypted=\"1\"></Password></UNCSite>"
                                  "<LocalSite Name=\"L\"/>"
                                  "<ProxyConfigList><ProxyConfig Name=\"P\"><HttpProxyPassword>" + forged +
                                  "</HttpProxyPassword><AlternateFtpProxyPassword>" + forged +
                                  "</AlternateFtpProxyPassword></ProxyConfig></ProxyConfigList>")),
            0);
  const auto n = Nodes(m_list);
  ASSERT_EQ(n.size(), 5u);
  EXPECT_EQ(W(n[0]->httpSite.szPassword), L"");
  EXPECT_EQ(W(n[1]->ftpSite.szPassword), L"");
  EXPECT_EQ(W(n[2]->uncSite.szPassword), L"");
  EXPECT_EQ(W(n[3]->localSite.szPassword), L"");
  EXPECT_EQ(W(n[4]->proxySettings.szHttpProxyPassword), L"");
  EXPECT_EQ(W(n[4]->proxySettings.szAlternateFtpProxyPassword), L"");
  EXPECT_EQ(W(n[3]->localSite.szName), L"L");
}

TEST_F(SiteListReaderTest, HttpProxyPasswordUsesTextFormWhileReencrypting) {
  std::wstring textForm;
  ASSERT_EQ(m_helper.EncryptPassword(L"http-proxy-clear", textForm), 1);
  std::wstring textFormOther;
  ASSERT_EQ(m_helper.EncryptPassword(L"alt-http-clear", textFormOther), 1);
  const std::wstring byteFtp = ByteFormOf("ftp-proxy-clear");
  const std::wstring byteSite = ByteFormOf("site-clear");
  const std::wstring byteHttpProxy = ByteFormOf("byte-http-proxy");
  ASSERT_FALSE(byteFtp.empty());
  ASSERT_FALSE(byteSite.empty());

  const std::string doc = Document(
      "<HttpSite Name=\"H\" Server=\"h.corp.example:80\"><Password>" + Narrow(byteSite) + "</Password></HttpSite>"
      "<ProxyConfigList><ProxyConfig Name=\"P\">"
      "<HttpProxyPassword Encrypted=\"1\">" + Narrow(textForm) + "</HttpProxyPassword>"
      "<FtpProxyPassword Encrypted=\"1\">" + Narrow(byteFtp) + "</FtpProxyPassword>"
      "<AlternateHttpProxyPassword Encrypted=\"1\">" + Narrow(textFormOther) + "</AlternateHttpProxyPassword>"
      "</ProxyConfig></ProxyConfigList>"
      "<ProxyConfigList><ProxyConfig Name=\"Q\">"
      "<HttpProxyPassword Encrypted=\"1\">" + Narrow(byteHttpProxy) + "</HttpProxyPassword>"
      "</ProxyConfig></ProxyConfigList>");

  CSitesHelperInternals::SetReencrypting(m_helper, true);
  const int result = ReadDocument(doc);
  CSitesHelperInternals::SetReencrypting(m_helper, false);
  ASSERT_EQ(result, 0);
  const auto n = Nodes(m_list);
  ASSERT_EQ(n.size(), 3u);
  EXPECT_EQ(W(n[0]->httpSite.szPassword), L"site-clear");                   // byte form
  EXPECT_EQ(W(n[1]->proxySettings.szHttpProxyPassword), L"http-proxy-clear");  // text form always
  EXPECT_EQ(W(n[1]->proxySettings.szFtpProxyPassword), L"ftp-proxy-clear");    // byte form
  EXPECT_EQ(W(n[1]->proxySettings.szAlternateHttpProxyPassword), L"");         // text form refused
  EXPECT_EQ(W(n[2]->proxySettings.szHttpProxyPassword), L"");                  // byte form refused

  // Without the flag the same document reads only the text forms.
  ASSERT_EQ(ReadDocument(doc), 0);
  const auto m = Nodes(m_list);
  ASSERT_EQ(m.size(), 3u);
  EXPECT_EQ(W(m[0]->httpSite.szPassword), L"");
  EXPECT_EQ(W(m[1]->proxySettings.szHttpProxyPassword), L"http-proxy-clear");
  EXPECT_EQ(W(m[1]->proxySettings.szFtpProxyPassword), L"");
  EXPECT_EQ(W(m[1]->proxySettings.szAlternateHttpProxyPassword), L"alt-http-clear");
  EXPECT_EQ(W(m[2]->proxySettings.szHttpProxyPassword), L"");
}

// ---- field capacities -------------------------------------------------------------------------------

TEST_F(SiteListReaderTest, NameOf259CharactersIsKeptWholeWithoutMessage) {
  const std::string name(259, 'n');
  testsupport::CapturingLogSink sink;
  ASSERT_EQ(ReadDocument(Document("<HttpSite Name=\"" + name + "\" Server=\"h.corp.example:80\"/>")), 0);
  ASSERT_NE(m_list, nullptr);
  EXPECT_EQ(W(m_list->httpSite.szName), Wide(name));
  for (const std::wstring& m : sink.allMessages()) EXPECT_EQ(m.find(L"is truncated to"), std::wstring::npos) << Narrow(m);
}

TEST_F(SiteListReaderTest, NameOf260CharactersKeeps259AndLogsTheCut) {
  const std::string name(259, 'n');
  const std::string longName = name + "Z";
  testsupport::CapturingLogSink sink;
  ASSERT_EQ(ReadDocument(Document("<FTPSite Name=\"" + longName + "\" Server=\"f.corp.example:21\"/>")), 0);
  ASSERT_NE(m_list, nullptr);
  EXPECT_EQ(W(m_list->ftpSite.szName), Wide(name));
  EXPECT_EQ(m_list->ftpSite.szName[259], L'\0');
  EXPECT_TRUE(sink.contains(L"String " + Wide(longName) + L" is truncated to " + Wide(name) + L" in CopyWStr"));
}

TEST_F(SiteListReaderTest, ALongValueIsCutTheSameWayWhetherOrNotTheCutIsLogged) {
  // Characters of one to four bytes around the cut, in a name and in a host
  // far longer than its field.
  std::string longText;
  for (int i = 0; i < 2000; ++i) longText += (i % 4 == 0) ? "a" : (i % 4 == 1) ? "\xC3\xA9" : (i % 4 == 2) ? "\xE2\x82\xAC" : "\xF0\x9F\x98\x80";
  const std::string document =
      Document("<HttpSite Name=\"" + longText + "\" Server=\"" + longText + ":8443\"/>");
  std::wstring name[2], server[2];
  unsigned port[2] = {0, 0};
  for (int detail = 1; detail >= 0; --detail) {
    testsupport::CapturingLogSink sink;
    if (!detail) port::SetLogThreshold(port::LogLevel::Info);
    ASSERT_EQ(ReadDocument(document), 0);
    ASSERT_NE(m_list, nullptr);
    name[detail] = W(m_list->httpSite.szName);
    server[detail] = W(m_list->httpSite.szServer);
    port[detail] = static_cast<unsigned>(m_list->httpSite.nPort);
    bool cutLogged = false;
    for (const std::wstring& m : sink.allMessages()) cutLogged = cutLogged || m.find(L"is truncated to") != std::wstring::npos;
    EXPECT_EQ(detail == 1, cutLogged);
  }
  EXPECT_EQ(259u, name[0].size());
  EXPECT_EQ(name[1], name[0]);
  EXPECT_EQ(server[1], server[0]);
  EXPECT_EQ(8443u, port[0]);
  EXPECT_EQ(port[1], port[0]);
}

TEST_F(SiteListReaderTest, ServerNameHoldsOneCharacterMoreThanOtherNames) {
  const std::string name260(260, 's');
  const std::string name261 = name260 + "X";
  ASSERT_EQ(ReadDocument(Document("<SpipeSite Name=\"" + name260 + "\" Server=\"s.corp.example:80\" ServerName=\"" +
                                  name260 + ":81\"/>"
                                  "<SpipeSite Name=\"B\" Server=\"s.corp.example:80\" ServerName=\"" + name261 +
                                  ":82\"/>")),
            0);
  const auto n = Nodes(m_list);
  ASSERT_EQ(n.size(), 2u);
  EXPECT_EQ(W(n[0]->httpSite.szName), Wide(std::string(259, 's')));
  EXPECT_EQ(W(n[0]->httpSite.szServerName), Wide(name260));
  EXPECT_EQ(n[0]->httpSite.nServerNamePort, 81);
  EXPECT_EQ(W(n[1]->httpSite.szServerName), Wide(name260));
  EXPECT_EQ(n[1]->httpSite.nServerNamePort, 82);
}

TEST_F(SiteListReaderTest, RelativePathHolds519CharactersAndServerIP99) {
  const std::string path519(519, 'p');
  const std::string path520 = path519 + "Q";
  const std::string ip99(99, '9');
  ASSERT_EQ(ReadDocument(Document("<SuperAgentSite Name=\"A\" Server=\"a.corp.example:80\" ServerIP=\"" + ip99 +
                                  "X:5\"><RelativePath>" + path519 + "</RelativePath></SuperAgentSite>"
                                  "<UNCSite Name=\"U\" Server=\"u\"><RelativePath>" + path520 +
                                  "</RelativePath></UNCSite>"
                                  "<LocalSite Name=\"L\"><RelativePath>" + path520 + "</RelativePath></LocalSite>"
                                  "<FTPSite Name=\"F\" Server=\"f:21\"><RelativePath>" + path519 +
                                  "</RelativePath></FTPSite>")),
            0);
  const auto n = Nodes(m_list);
  ASSERT_EQ(n.size(), 4u);
  EXPECT_EQ(W(n[0]->httpSite.szRelativePath), Wide(path519));
  EXPECT_EQ(W(n[0]->httpSite.szServerIP), Wide(ip99));
  EXPECT_EQ(n[0]->httpSite.nServerIPPort, 5);
  EXPECT_EQ(W(n[1]->uncSite.szRelativePath), Wide(path519));
  EXPECT_EQ(W(n[2]->localSite.szRelativePath), Wide(path519));
  EXPECT_EQ(W(n[3]->ftpSite.szRelativePath), Wide(path519));
}

TEST_F(SiteListReaderTest, AttributesOfTenThousandCharactersAreCutToTheirFields) {
  const std::string huge(10000, 'h');
  const std::string hugeHost = Host('w', 10000);
  ASSERT_EQ(ReadDocument(Document(
                "<SpipeSite Type=\"" + huge + "\" Name=\"" + huge + "\" Order=\"" + std::string(10000, '1') +
                "\" Server=\"" + hugeHost + "\" ServerName=\"" + huge + "\" ServerIP=\"" + huge + "\" Version=\"" +
                huge + "\" SecurePort=\"" + std::string(10000, '7') + "\"><RelativePath>" + huge +
                "</RelativePath><UserName>" + huge + "</UserName></SpipeSite>"
                "<ProxyConfigList><ProxyConfig Name=\"" + huge + "\" HttpProxyServer=\"" + hugeHost +
                "\" HttpProxyPort=\"3128\"><HttpProxyUser>" + huge + "</HttpProxyUser><ExclusionList><ExclusionHost>" +
                hugeHost + "</ExclusionHost><ExclusionHost>ok.corp.example</ExclusionHost></ExclusionList>"
                "</ProxyConfig></ProxyConfigList>")),
            0);
  const auto n = Nodes(m_list);
  ASSERT_EQ(n.size(), 2u);
  EXPECT_EQ(W(n[0]->szType), Wide(std::string(259, 'h')));
  const auto& h = n[0]->httpSite;
  EXPECT_EQ(W(h.szName), Wide(std::string(259, 'h')));
  EXPECT_EQ(W(h.szServer), Wide(std::string(259, 'w')));
  EXPECT_EQ(h.nPort, 80);
  EXPECT_EQ(W(h.szServerName), Wide(std::string(260, 'h')));
  EXPECT_EQ(W(h.szServerIP), Wide(std::string(99, 'h')));
  EXPECT_EQ(W(h.szVersion), Wide(std::string(259, 'h')));
  EXPECT_EQ(W(h.szRelativePath), Wide(std::string(519, 'h')));
  EXPECT_EQ(W(h.szUserName), Wide(std::string(259, 'h')));
  EXPECT_EQ(h.nSecurePort, 4294967295u);  // stream extraction overflow
  const auto& p = n[1]->proxySettings;
  EXPECT_EQ(W(p.szName), Wide(std::string(259, 'h')));
  EXPECT_EQ(W(p.szHttpProxyServer), Wide(std::string(259, 'w')));
  EXPECT_EQ(W(p.szHttpProxyUser), Wide(std::string(259, 'h')));
  EXPECT_EQ(W(p.szExclusionList), L"ok.corp.example");
  EXPECT_EQ(p.nExclusionCount, 1);
}

// ---- policy settings and paths -----------------------------------------------------------------------

TEST_F(SiteListReaderTest, PolicySettingsAreStoredAndOverwriteExistingKeys) {
  m_helper.SetPolicySetting(L"OverwriteClientSites", L"0");
  m_helper.SetPolicySetting(L"KeptSetting", L"kept");
  ASSERT_EQ(ReadDocument(Document("<HttpSite Name=\"H\" Server=\"h.corp.example:80\"/>",
                                  "<Policies><Setting name=\"OverwriteClientSites\">1</Setting>"
                                  "<Other name=\"Ignored\">x</Other>"
                                  "<Setting name=\"NewSetting\">new value</Setting></Policies>")),
            0);
  std::wstring value = L"untouched";
  EXPECT_TRUE(m_helper.GetPolicySetting(L"OverwriteClientSites", value));
  EXPECT_EQ(value, L"1");
  EXPECT_TRUE(m_helper.GetPolicySetting(L"NewSetting", value));
  EXPECT_EQ(value, L"new value");
  EXPECT_TRUE(m_helper.GetPolicySetting(L"KeptSetting", value));
  EXPECT_EQ(value, L"kept");
  value = L"untouched";
  EXPECT_FALSE(m_helper.GetPolicySetting(L"Ignored", value));
  EXPECT_EQ(value, L"untouched");
  EXPECT_EQ(m_helper.GetPolicySettings().size(), 3u);
}

TEST_F(SiteListReaderTest, PoliciesAfterTheSiteListAreReadToo) {
  ASSERT_EQ(ReadDocument("<ns:SiteLists xmlns:ns=\"zelSiteList\"><SiteList/>"
                         "<Policies><Setting name=\"Late\">yes</Setting></Policies></ns:SiteLists>"),
            0);
  EXPECT_EQ(m_list, nullptr);
  std::wstring value;
  EXPECT_TRUE(m_helper.GetPolicySetting(L"Late", value));
  EXPECT_EQ(value, L"yes");
}

TEST_F(SiteListReaderTest, CurrentPathIsTheGivenPath) {
  const std::string other = m_config.dir().file("Other.xml");
  testsupport::WriteFile(other, Document("<HttpSite Name=\"O\" Server=\"o.corp.example:80\"/>"));
  ASSERT_EQ(m_helper.ReadSiteList(Wide(other), &m_list), 0);
  EXPECT_EQ(m_helper.GetCurrentPath(), Wide(other));
  ASSERT_NE(m_list, nullptr);
  EXPECT_EQ(W(m_list->httpSite.szName), L"O");
}

TEST_F(SiteListReaderTest, EmptyPathReadsTheHelpersOwnFile) {
  testsupport::WriteFile(m_path, Document("<HttpSite Name=\"Own\" Server=\"o.corp.example:80\"/>"));
  ASSERT_EQ(m_helper.ReadSiteList(L"", &m_list), 0);
  EXPECT_EQ(m_helper.GetCurrentPath(), m_wpath);
  ASSERT_NE(m_list, nullptr);
  EXPECT_EQ(W(m_list->httpSite.szName), L"Own");
}

// ---- failures ----------------------------------------------------------------------------------------

TEST_F(SiteListReaderTest, MissingFileReturnsMinusFourAndLeavesListUntouched) {
  tag_Site* out = kUntouched;
  const std::wstring missing = m_config.dir().wfile("missing.xml");
  EXPECT_EQ(m_helper.ReadSiteList(missing, &out), -4);
  EXPECT_EQ(out, kUntouched);
  EXPECT_EQ(m_helper.GetCurrentPath(), missing);
  if (out != kUntouched) m_helper.FreeSiteListMemory(out);
}

TEST_F(SiteListReaderTest, DirectoryAtThePathReturnsMinusTenAndLeavesListUntouched) {
  const std::string directory = m_config.dir().file("SiteListDir.xml");
  ASSERT_EQ(mkdir(directory.c_str(), 0755), 0);
  tag_Site* out = kUntouched;
  EXPECT_EQ(m_helper.ReadSiteList(Wide(directory), &out), -10);
  EXPECT_EQ(out, kUntouched);
  if (out != kUntouched) m_helper.FreeSiteListMemory(out);
}

TEST_F(SiteListReaderTest, NoPathAndNoOwnPathReturnsMinusTwo) {
  CSitesHelper pathless{std::wstring()};
  ASSERT_EQ(pathless.GetSiteListPath(), L"");
  tag_Site* out = kUntouched;
  EXPECT_EQ(pathless.ReadSiteList(L"", &out), -2);
  EXPECT_EQ(out, kUntouched);
  if (out != kUntouched) pathless.FreeSiteListMemory(out);
}

TEST_F(SiteListReaderTest, MalformedDocumentReturnsMinusFiveAndNullList) {
  testsupport::WriteFile(m_path, Document("<HttpSite Name=\"H\" Server=\"h.corp.example:80\"></FTPSite>"));
  m_list = kUntouched;
  const int result = m_helper.ReadSiteList(m_wpath, &m_list);
  if (m_list == kUntouched) m_list = nullptr;
  EXPECT_EQ(result, -5);
  EXPECT_EQ(m_list, nullptr);
}

TEST_F(SiteListReaderTest, TruncatedDocumentReturnsMinusFiveAndNullList) {
  const std::string whole = Document("<HttpSite Name=\"H\" Server=\"h.corp.example:80\"/>"
                                     "<FTPSite Name=\"F\" Server=\"f.corp.example:21\"/>");
  const std::string cut = whole.substr(0, whole.find("<FTPSite") + 12);
  testsupport::WriteFile(m_path, cut);
  m_list = kUntouched;
  const int result = m_helper.ReadSiteList(m_wpath, &m_list);
  if (m_list == kUntouched) m_list = nullptr;
  EXPECT_EQ(result, -5);
  EXPECT_EQ(m_list, nullptr);
}

TEST_F(SiteListReaderTest, EmptyFileReturnsMinusFive) {
  testsupport::WriteFile(m_path, "");
  m_list = kUntouched;
  const int result = m_helper.ReadSiteList(m_wpath, &m_list);
  if (m_list == kUntouched) m_list = nullptr;
  EXPECT_EQ(result, -5);
  EXPECT_EQ(m_list, nullptr);
}

TEST_F(SiteListReaderTest, InvalidUtf8BytesReturnMinusTenAndLeaveListUntouched) {
  testsupport::WriteFile(m_path, Document("<HttpSite Name=\"Bad\xC3\x28\" Server=\"h.corp.example:80\"/>"));
  tag_Site* out = kUntouched;
  EXPECT_EQ(m_helper.ReadSiteList(m_wpath, &out), -10);
  EXPECT_EQ(out, kUntouched);
  if (out != kUntouched) m_helper.FreeSiteListMemory(out);
}

TEST_F(SiteListReaderTest, InvalidUtf16BytesReturnMinusTen) {
  // An unpaired high surrogate, then an odd byte count.
  std::string unpaired = Utf16LeWithBom(Wide(Document("<HttpSite Name=\"X\"/>")));
  const std::size_t at = unpaired.size() - 4;
  unpaired[at] = '\x00';
  unpaired[at + 1] = '\xD8';
  tag_Site* out = kUntouched;
  testsupport::WriteFile(m_path, unpaired);
  EXPECT_EQ(m_helper.ReadSiteList(m_wpath, &out), -10);
  EXPECT_EQ(out, kUntouched);
  testsupport::WriteFile(m_path, Utf16LeWithBom(Wide(Document(""))) + "<");
  EXPECT_EQ(m_helper.ReadSiteList(m_wpath, &out), -10);
  EXPECT_EQ(out, kUntouched);
  if (out != kUntouched) m_helper.FreeSiteListMemory(out);
}

// ---- encodings ---------------------------------------------------------------------------------------

TEST_F(SiteListReaderTest, Utf16LittleEndianFileWithBomReadsTheSameRecords) {
  const std::string sites =
      "<HttpSite Type=\"repository\" Name=\"D\xC3\xA9p\xC3\xB4t \xE2\x82\xAC\" Order=\"2\" Enabled=\"1\" "
      "Server=\"repo.corp.example:8080\"><RelativePath>\xF0\x9F\x93\xA6/updates</RelativePath></HttpSite>"
      "<UNCSite Name=\"Share\" Server=\"fs.corp.example\"><ShareName>s$</ShareName></UNCSite>"
      "<ProxyConfigList><ProxyConfig Name=\"P\" HttpProxyServer=\"hp.corp.example\" HttpProxyPort=\"3128\">"
      "<ExclusionList><ExclusionHost>a.corp.example</ExclusionHost></ExclusionList></ProxyConfig></ProxyConfigList>";
  ASSERT_EQ(ReadDocument(Document(sites)), 0);
  tag_Site* fromUtf8 = m_list;
  m_list = nullptr;

  std::string utf16Doc = Document(sites);
  const std::string decl = "encoding=\"UTF-8\"";
  utf16Doc.replace(utf16Doc.find(decl), decl.size(), "encoding=\"UTF-16\"");
  const int result = ReadDocument(Utf16LeWithBom(Wide(utf16Doc)));
  const auto a = Nodes(fromUtf8);
  const auto b = Nodes(m_list);
  EXPECT_EQ(result, 0);
  ASSERT_EQ(a.size(), 3u);
  ASSERT_EQ(b.size(), 3u);
  for (std::size_t i = 0; i < a.size(); ++i) EXPECT_TRUE(SameRecord(a[i], b[i])) << i;
  EXPECT_EQ(W(b[0]->httpSite.szName), L"D\u00e9p\u00f4t \u20ac");
  EXPECT_EQ(W(b[0]->httpSite.szRelativePath), L"\U0001F4E6/updates");
  EXPECT_EQ(W(b[1]->uncSite.szShareName), L"s$");
  EXPECT_EQ(W(b[2]->proxySettings.szExclusionList), L"a.corp.example");
  m_helper.FreeSiteListMemory(fromUtf8);
}

TEST_F(SiteListReaderTest, Utf8FileWithBomReadsTheSameRecords) {
  const std::string sites = "<HttpSite Name=\"D\xC3\xA9p\xC3\xB4t\" Server=\"repo.corp.example:8080\"/>"
                            "<FTPSite Name=\"F\" Server=\"f.corp.example:21\"/>";
  ASSERT_EQ(ReadDocument(Document(sites)), 0);
  tag_Site* plain = m_list;
  m_list = nullptr;
  const int result = ReadDocument("\xEF\xBB\xBF" + Document(sites));
  const auto a = Nodes(plain);
  const auto b = Nodes(m_list);
  EXPECT_EQ(result, 0);
  ASSERT_EQ(a.size(), 2u);
  ASSERT_EQ(b.size(), 2u);
  for (std::size_t i = 0; i < a.size(); ++i) EXPECT_TRUE(SameRecord(a[i], b[i])) << i;
  EXPECT_EQ(W(b[0]->httpSite.szName), L"D\u00e9p\u00f4t");
  m_helper.FreeSiteListMemory(plain);
}

// ---- one element at a time ---------------------------------------------------------------------------

TEST_F(SiteListReaderTest, ReadSiteFromSiteListBuildsABodyOrNothing) {
  const std::wstring text =
      L"<SiteList><FTPSite Name=\"F\" Server=\"ftp.corp.example:2121\" SecurePort=\"990\">"
      L"<RelativePath>pub</RelativePath><UserName>u</UserName></FTPSite><Unknown Name=\"X\"/></SiteList>";
  AdvXMLParser::Parser parser;
  std::unique_ptr<AdvXMLParser::Document> document(parser.Parse(text.c_str(), text.size()));
  ASSERT_TRUE(document);
  AdvXMLParser::Element ftp = document->GetRoot().FirstChildElement();
  AdvXMLParser::Element unknown = ftp.NextSiblingElement();
  ASSERT_TRUE(ftp);
  ASSERT_TRUE(unknown);

  void* body = reinterpret_cast<void*>(static_cast<std::uintptr_t>(0x1234));
  EXPECT_EQ(m_helper.ReadSiteFromSiteList(&unknown, &body), -1);
  EXPECT_EQ(body, nullptr);

  body = nullptr;
  ASSERT_EQ(m_helper.ReadSiteFromSiteList(&ftp, &body), 0);
  ASSERT_NE(body, nullptr);
  const auto* f = static_cast<const sitehlp::tag_FtpSite*>(body);
  EXPECT_EQ(W(f->szName), L"F");
  EXPECT_EQ(W(f->szServer), L"ftp.corp.example");
  EXPECT_EQ(f->nPort, 2121);
  EXPECT_EQ(f->nSecurePort, 990u);
  EXPECT_EQ(W(f->szRelativePath), L"pub");
  EXPECT_EQ(W(f->szUserName), L"u");
  EXPECT_EQ(W(f->szPassword), L"");
  std::free(body);
}

}  // namespace
