// Secrets stay out of the log: marked passwords go through every operation
// that touches them, with the log at detail level, and no captured line may
// hold a clear-text password or the bytes of a key (password encryption keys
// and the request keys that travel with a site list). Request keys are
// written owner-only.
#include <gtest/gtest.h>
#include <errno.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include "platform/ABuffer.h"
#include "port/config/IConfiguration.h"
#include "port/crypto/CryptShim.h"
#include "port/fs/SysCalls.h"
#include "port/log/Log.h"
#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace {

using sitehlp::CSitesHelper;
using sitehlp::tag_Site;
using testsupport::CapturingLogSink;
using testsupport::ConfigScope;
using testsupport::Narrow;
using testsupport::ReadFile;
using testsupport::TempDir;
using testsupport::Wide;
using testsupport::WriteFile;

// Marked passwords: one ASCII, one with characters outside ASCII.
const std::wstring kPassword = L"Mk7-clear-Passw0rd-Q9";
const std::wstring kPassword2 = L"Zz-geheim-\u00C4\u00D6-\u263A-42";

const std::string kRequestKey = "REQUEST-KEY-BYTES-3f9a1c";
const std::string kRequest2048Key = "REQUEST-2048-KEY-BYTES-77e0";
const std::string kServerKey = "SERVER-PUBLIC-KEY-3f9a1c";
const std::string kServer2048Key = "SERVER-2048-PUBLIC-KEY-77e0";

template <std::size_t N>
void Set(wchar_t (&field)[N], const std::wstring& text) {
  ASSERT_LT(text.size(), N);
  std::wmemset(field, 0, N);
  std::wmemcpy(field, text.data(), text.size());
}

tag_Site* NewSite(int kind, const wchar_t* type, int order) {
  tag_Site* site = static_cast<tag_Site*>(std::calloc(1, sizeof(tag_Site)));
  site->nSiteType = kind;
  site->bEnabled = 1;
  site->nOrder = order;
  Set(site->szType, type);
  return site;
}

// A list with a marked password in every password slot of every kind: a
// versioned SPIPE site, the vendor's HTTP and FTP sites, UNC, local, a
// fallback site and a proxy with all four proxy passwords.
tag_Site* MarkedList() {
  tag_Site* spipe = NewSite(sitehlp::SITE_TYPE_HTTP, L"master", 1);
  Set(spipe->httpSite.szSiteElement, L"SpipeSite");
  Set(spipe->httpSite.szName, L"Vantor_MasterSite");
  Set(spipe->httpSite.szServer, L"mgmt.corp.example");
  Set(spipe->httpSite.szRelativePath, L"Software");
  Set(spipe->httpSite.szVersion, L"5.10");
  Set(spipe->httpSite.szUserName, L"spipe-user");
  Set(spipe->httpSite.szPassword, kPassword);
  spipe->httpSite.nPort = 80;

  tag_Site* http = NewSite(sitehlp::SITE_TYPE_HTTP, L"repository", 3);
  Set(http->httpSite.szSiteElement, L"HttpSite");
  Set(http->httpSite.szName, L"VendorHttp");
  Set(http->httpSite.szServer, L"update.vlm.example");
  http->httpSite.nPort = 80;
  http->httpSite.nUseAuth = 1;
  Set(http->httpSite.szUserName, L"http-user");
  Set(http->httpSite.szPassword, kPassword2);

  tag_Site* ftp = NewSite(sitehlp::SITE_TYPE_FTP, L"repository", 2);
  Set(ftp->ftpSite.szName, L"VendorFtp");
  Set(ftp->ftpSite.szServer, L"ftp.vlm.example");
  ftp->ftpSite.nPort = 21;
  Set(ftp->ftpSite.szUserName, L"ftp-user");
  Set(ftp->ftpSite.szPassword, kPassword);

  tag_Site* unc = NewSite(sitehlp::SITE_TYPE_UNC, L"repository", 4);
  unc->bLocal = 1;
  Set(unc->uncSite.szName, L"Share");
  Set(unc->uncSite.szServer, L"fs.corp.example");
  Set(unc->uncSite.szShareName, L"updates");
  Set(unc->uncSite.szUserName, L"unc-user");
  Set(unc->uncSite.szPassword, kPassword);

  tag_Site* local = NewSite(sitehlp::SITE_TYPE_LOCAL, L"repository", 5);
  local->bLocal = 1;
  Set(local->localSite.szName, L"Local");
  Set(local->localSite.szRelativePath, L"/var/cache/x");
  Set(local->localSite.szUserName, L"local-user");
  Set(local->localSite.szPassword, kPassword2);

  tag_Site* fallback = NewSite(sitehlp::SITE_TYPE_HTTP, L"fallback", 0);
  Set(fallback->httpSite.szSiteElement, L"HttpSite");
  Set(fallback->httpSite.szName, L"Fallback");
  Set(fallback->httpSite.szServer, L"fallback.corp.example");
  fallback->httpSite.nPort = 80;
  Set(fallback->httpSite.szPassword, kPassword);

  tag_Site* proxy = NewSite(sitehlp::SITE_TYPE_PROXY, L"", 0);
  Set(proxy->proxySettings.szName, L"Proxy");
  Set(proxy->proxySettings.szHttpProxyServer, L"proxy.corp.example");
  proxy->proxySettings.nHttpProxyPort = 3128;
  Set(proxy->proxySettings.szFtpProxyServer, L"fproxy.corp.example");
  proxy->proxySettings.nFtpProxyPort = 2121;
  Set(proxy->proxySettings.szHttpProxyUser, L"hp-user");
  Set(proxy->proxySettings.szHttpProxyPassword, kPassword);
  Set(proxy->proxySettings.szFtpProxyPassword, kPassword2);
  Set(proxy->proxySettings.szAlternateHttpProxyPassword, kPassword);
  Set(proxy->proxySettings.szAlternateFtpProxyPassword, kPassword2);

  spipe->pNext = http;
  http->pNext = ftp;
  ftp->pNext = unc;
  unc->pNext = local;
  local->pNext = fallback;
  fallback->pNext = proxy;
  return spipe;
}

// Every password of a list, in order.
std::vector<std::wstring> Passwords(const tag_Site* list) {
  std::vector<std::wstring> out;
  for (const tag_Site* s = list; s; s = s->pNext) {
    switch (s->nSiteType) {
      case sitehlp::SITE_TYPE_HTTP: out.push_back(s->httpSite.szPassword); break;
      case sitehlp::SITE_TYPE_FTP: out.push_back(s->ftpSite.szPassword); break;
      case sitehlp::SITE_TYPE_UNC: out.push_back(s->uncSite.szPassword); break;
      case sitehlp::SITE_TYPE_LOCAL: out.push_back(s->localSite.szPassword); break;
      case sitehlp::SITE_TYPE_PROXY:
        out.push_back(s->proxySettings.szHttpProxyPassword);
        out.push_back(s->proxySettings.szFtpProxyPassword);
        out.push_back(s->proxySettings.szAlternateHttpProxyPassword);
        out.push_back(s->proxySettings.szAlternateFtpProxyPassword);
        break;
    }
  }
  return out;
}

const std::vector<std::wstring> kAllMarked = {kPassword, kPassword2, kPassword, kPassword, kPassword2, kPassword,
                                              kPassword, kPassword2, kPassword, kPassword2};

std::wstring Hex(const std::string& bytes, bool upper) {
  static const char lower[] = "0123456789abcdef";
  static const char capital[] = "0123456789ABCDEF";
  const char* digits = upper ? capital : lower;
  std::wstring out;
  for (unsigned char c : bytes) {
    out.push_back(static_cast<wchar_t>(digits[c >> 4]));
    out.push_back(static_cast<wchar_t>(digits[c & 15]));
  }
  return out;
}

std::wstring Latin1(const std::string& bytes) {
  std::wstring out;
  for (unsigned char c : bytes) out.push_back(static_cast<wchar_t>(c));
  return out;
}

int FailCreate(const char* path, int flags, mode_t mode) {
  if ((flags & O_CREAT) && std::string(path).find("/locks/") == std::string::npos) {
    errno = EACCES;
    return -1;
  }
  return port::RealSysCalls().open(path, flags, mode);
}

class SecretsTest : public ::testing::Test {
 protected:
  SecretsTest() {
    CSitesHelper::m_pSiteList = nullptr;
    CSitesHelper::m_iChange = 0;
    std::filesystem::create_directories(m_config.dir().file("root/opt/Velmora/orx/scratch/etc"));
  }
  ~SecretsTest() override {
    m_helper.FreeSiteListMemory(CSitesHelper::m_pSiteList);
    CSitesHelper::m_pSiteList = nullptr;
    CSitesHelper::m_iChange = 0;
  }

  std::string Own() const { return m_config.dir().file("data/etc/SiteList.xml"); }
  std::wstring WOwn() const { return Wide(Own()); }

  void WriteMarkedList(const std::string& path, const std::vector<std::wstring>& certificates = {L"CERT"}) {
    tag_Site* list = MarkedList();
    ASSERT_EQ(0, m_helper.CreateSiteList(list, Wide(path), L"20250101000000", L"20250101000001", L"Client",
                                          certificates));
    m_helper.FreeSiteListMemory(list);
    const std::string bytes = ReadFile(path);
    EXPECT_EQ(std::string::npos, bytes.find(Narrow(kPassword))) << "clear text in " << path;
    EXPECT_EQ(std::string::npos, bytes.find(Narrow(kPassword2))) << "clear text in " << path;
  }

  // Every secret that must never be logged: the marked passwords and, for
  // every key file, its bytes as text, in hexadecimal and in base64.
  std::vector<std::wstring> Secrets() const {
    std::vector<std::wstring> out = {kPassword, kPassword2};
    std::vector<std::string> keys = {kRequestKey, kRequest2048Key, kServerKey, kServer2048Key};
    std::error_code ec;
    for (const auto& e : std::filesystem::directory_iterator(m_config.dir().file("keys"), ec))
      if (e.is_regular_file()) keys.push_back(ReadFile(e.path().string()));
    for (const std::string& key : keys) {
      out.push_back(Latin1(key));
      out.push_back(Hex(key, false));
      out.push_back(Hex(key, true));
      const AString b64 = ABase64Encode::encode(reinterpret_cast<const unsigned char*>(key.data()), key.size());
      out.push_back(b64.substr(0, b64.size() > 8 ? b64.size() - 4 : b64.size()));  // without the padded tail
    }
    return out;
  }

  // The captured lines that hold a secret.
  std::vector<std::wstring> Leaks() const {
    std::vector<std::wstring> leaks;
    const std::vector<std::wstring> secrets = Secrets();
    for (const auto& line : m_log.lines())
      for (const std::wstring& secret : secrets)
        if (!secret.empty() && (line.message.find(secret) != std::wstring::npos ||
                                line.component.find(secret) != std::wstring::npos))
          leaks.push_back(line.message);
    return leaks;
  }

  void ExpectNoLeak() {
    EXPECT_GT(m_log.lines().size(), 0u) << "the operations logged nothing at all";
    EXPECT_EQ(std::vector<std::wstring>{}, Leaks());
  }

  ConfigScope m_config;
  CapturingLogSink m_log;
  CSitesHelper m_helper;
};

TEST_F(SecretsTest, TheScanFindsAPasswordOrKeyBytesThatAreLogged) {
  logDetail(L"SiteHlp", L"value " + kPassword2 + L" seen");
  std::wstring encrypted;
  ASSERT_EQ(1, m_helper.EncryptPassword(L"x", encrypted));  // creates the text key
  const std::string key = ReadFile(m_config.dir().file("keys/kind3.key"));
  ASSERT_EQ(32u, key.size());
  logError(L"SiteHlp", L"key " + Hex(key, false));
  logInfo(L"SiteHlp", L"req " + Latin1(kRequestKey));
  EXPECT_EQ(3u, Leaks().size());
}

TEST_F(SecretsTest, WritingAndReadingAListLogsNoPassword) {
  WriteMarkedList(Own());
  tag_Site* list = nullptr;
  ASSERT_EQ(0, m_helper.ReadSiteList(WOwn(), &list));
  EXPECT_EQ(kAllMarked, Passwords(list)) << "the passwords did go through the reader";
  m_helper.FreeSiteListMemory(list);
  list = nullptr;
  ASSERT_EQ(0, m_helper.MustReadSiteList(WOwn(), &list));
  m_helper.FreeSiteListMemory(list);
  list = nullptr;
  ASSERT_EQ(0, m_helper.SmartReadSiteList(WOwn(), &list));
  EXPECT_EQ(kAllMarked, Passwords(list));
  ExpectNoLeak();
}

TEST_F(SecretsTest, APasswordTooLongForItsFieldIsCutWithAMaskedLineThatNamesTheFieldAndTheLengths) {
  // 305 characters, as encrypt-password used to accept; its start is a
  // marked password, so that the scan sees any piece of it in the log.
  const std::wstring longPassword = kPassword + std::wstring(305 - kPassword.size(), L'x');
  std::wstring encrypted;
  ASSERT_EQ(1, m_helper.EncryptPassword(longPassword, encrypted));
  const std::string document =
      "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"1\" LocalVersion=\"2\" Type=\"Client\">"
      "<SiteList Default=\"1\" Name=\"SomeGUID\"><HttpSite Type=\"repository\" Name=\"Mirror\" Order=\"1\" "
      "Enabled=\"1\" Local=\"0\" Server=\"mirror.corp.example:80\"><RelativePath>u</RelativePath><UseAuth>1"
      "</UseAuth><UserName>u</UserName><Password Encrypted=\"1\">" + Narrow(encrypted) + "</Password></HttpSite>"
      "<ProxyConfigList><ProxyConfig Name=\"P\" HttpProxyServer=\"proxy.corp.example\" HttpProxyPort=\"3128\">"
      "<HttpProxyPassword Encrypted=\"1\">" + Narrow(encrypted) + "</HttpProxyPassword></ProxyConfig>"
      "</ProxyConfigList></SiteList></ns:SiteLists>\n";
  WriteFile(Own(), document);
  m_log.clear();
  tag_Site* list = nullptr;
  ASSERT_EQ(0, m_helper.ReadSiteList(WOwn(), &list));
  ASSERT_NE(nullptr, list);
  ASSERT_NE(nullptr, list->pNext);
  EXPECT_EQ(longPassword.substr(0, 259), std::wstring(list->httpSite.szPassword));
  EXPECT_EQ(longPassword.substr(0, 259), std::wstring(list->pNext->proxySettings.szHttpProxyPassword));
  m_helper.FreeSiteListMemory(list);
  EXPECT_EQ((std::vector<std::wstring>{
                L"String ******** is truncated to ******** in CopyWStr (Password: 305 characters, 259 kept)",
                L"String ******** is truncated to ******** in CopyWStr (HttpProxyPassword: 305 characters, 259 "
                L"kept)"}),
            m_log.messages(port::LogLevel::Detail));
  ExpectNoLeak();
}

TEST_F(SecretsTest, MergingOrderingAndTheServerEndpointLogNoPassword) {
  WriteMarkedList(Own());
  tag_Site* given = MarkedList();
  tag_Site* base = MarkedList();
  tag_Site* merged = nullptr;
  EXPECT_EQ(0, m_helper.MergeSiteLists(given, base, true, &merged));
  tag_Site* mergedWithoutBase = nullptr;
  EXPECT_EQ(0, m_helper.MergeSiteLists(given, nullptr, false, &mergedWithoutBase));
  m_helper.FreeSiteListMemory(mergedWithoutBase);
  tag_Site* spipes = nullptr;
  EXPECT_EQ(0, m_helper.GetSpipeSite(merged, &spipes));
  tag_Site* fallback = nullptr;
  EXPECT_EQ(0, m_helper.GetFallbackSite(merged, &fallback));
  m_helper.AdjustSitesOrder(merged);
  m_helper.FreeSiteListMemory(fallback);
  m_helper.FreeSiteListMemory(spipes);
  m_helper.FreeSiteListMemory(merged);
  m_helper.FreeSiteListMemory(base);
  m_helper.FreeSiteListMemory(given);

  CSitesHelper own;
  EXPECT_EQ(0, own.SetSpipeSiteForUpdSite(8443, L"192.0.2.5", L"new.corp.example", L"NEW"));
  std::wstring name, server, ip, netbios, version;
  int port = 0;
  EXPECT_EQ(0, own.GetVantorServerInfo(name, server, ip, netbios, port, version, true, false));
  tag_Site* list = nullptr;
  ASSERT_EQ(0, own.ReadSiteList(L"", &list));
  EXPECT_EQ(kAllMarked, Passwords(list)) << "the rewritten list still carries the passwords";
  own.FreeSiteListMemory(list);
  ExpectNoLeak();
}

TEST_F(SecretsTest, FailingWritesOfListsWithPasswordsLogNoPassword) {
  WriteMarkedList(Own());
  port::SysCalls table = port::RealSysCalls();
  table.open = FailCreate;
  {
    port::ScopedSysCallOverride scope(table);
    CSitesHelper own;
    tag_Site* list = MarkedList();
    EXPECT_EQ(-11, own.CreateSiteList(list, L"", L"", L"", L"", {}));
    own.FreeSiteListMemory(list);
    EXPECT_EQ(-11, own.SetSpipeSiteForUpdSite(80, L"192.0.2.6", L"x.corp.example", L"X"));
  }
  EXPECT_FALSE(m_log.messages(port::LogLevel::Error).empty());
  ExpectNoLeak();
}

TEST_F(SecretsTest, ImportAndInstallLogNeitherPasswordsNorKeyBytesAndWriteRequestKeysOwnerOnly) {
  TempDir source;
  WriteMarkedList(source.file("SiteList.xml"));
  WriteFile(source.file("srpubkey.bin"), kServerKey);
  WriteFile(source.file("reqseckey.bin"), kRequestKey);
  WriteFile(source.file("sr2048pubkey.bin"), kServer2048Key);
  WriteFile(source.file("req2048seckey.bin"), kRequest2048Key);
  // Request keys already there with wider permissions are narrowed.
  WriteFile(m_config.dir().file("data/etc/reqseckey.bin"), "old");
  ASSERT_EQ(0, chmod(m_config.dir().file("data/etc/reqseckey.bin").c_str(), 0644));

  CSitesHelper own;
  ASSERT_EQ(0, own.ImportSiteList(source.wfile("SiteList.xml"), L""));
  const std::string etc = m_config.dir().file("data/etc/");
  struct stat st {};
  for (const auto& [name, mode, bytes] :
       {std::make_tuple("reqseckey.bin", 0600u, kRequestKey), std::make_tuple("req2048seckey.bin", 0600u, kRequest2048Key),
        std::make_tuple("srpubkey.bin", 0644u, kServerKey), std::make_tuple("sr2048pubkey.bin", 0644u, kServer2048Key)}) {
    ASSERT_EQ(0, stat((etc + name).c_str(), &st)) << name;
    EXPECT_EQ(mode, st.st_mode & 07777u) << name;
    EXPECT_EQ(bytes, ReadFile(etc + name)) << name;
  }
  tag_Site* list = nullptr;
  ASSERT_EQ(0, own.ReadSiteList(L"", &list));
  EXPECT_EQ(kAllMarked, Passwords(list)) << "the imported list carries the passwords";
  own.FreeSiteListMemory(list);

  ASSERT_EQ(0, own.InstallSiteList(source.wfile("SiteList.xml"), L""));
  ASSERT_EQ(0, stat((etc + "reqseckey.bin").c_str(), &st));
  EXPECT_EQ(0600u, st.st_mode & 07777u);
  ExpectNoLeak();
}

TEST_F(SecretsTest, ServerSiteListsAndReencryptionLogNoPassword) {
  WriteMarkedList(Own());
  EXPECT_TRUE(CSitesHelper::createServerSiteListFromSiteList(Wide(m_config.dir().file("data/etc")).c_str(),
                                                             m_config.wdataDir().c_str()));

  // A server site list in transit: passwords in the byte form (kind 6).
  IEncryption* bytes = CryptShim::instance().create_encryption_object(ENCRYPTION_BYTES);
  ASSERT_NE(nullptr, bytes);
  auto sealed = [&](const std::wstring& clear) {
    const std::string utf8 = Narrow(clear);
    AnObjectBuffer<unsigned char> in(reinterpret_cast<const unsigned char*>(utf8.data()), utf8.size());
    AnObjectBuffer<unsigned char> out;
    EXPECT_TRUE(bytes->encrypt(in, out));
    return Narrow(ABase64Encode::encode(out.data(), out.size()));
  };
  const std::string text =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?><ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"1\" "
      "LocalVersion=\"2\" Type=\"Server\"><SiteList>"
      "<HttpSite Type=\"repository\" Name=\"H\" Order=\"1\" Server=\"h.example:80\"><UserName>u</UserName>"
      "<Password Encrypted=\"1\">" + sealed(kPassword) + "</Password></HttpSite>"
      "<UNCSite Type=\"repository\" Name=\"U\" Order=\"2\" Server=\"u.example\"><Password Encrypted=\"1\">" +
      sealed(kPassword2) + "</Password></UNCSite></SiteList></ns:SiteLists>";
  CryptShim::instance().destroy_encryption_object(bytes);
  AnObjectBuffer<unsigned char> buffer(reinterpret_cast<const unsigned char*>(text.data()), text.size());

  EXPECT_TRUE(m_helper.CreateServerSiteList(buffer, false));
  port::SetConfigValue(port::ConfigKey::CryptoKeySize, "1");
  // Re-encryption (AdjustPwd inside, kind 6 in, kind 3 out).
  EXPECT_TRUE(m_helper.CreateServerSiteList(buffer, true));

  const std::string server = m_config.dataDir() + "/ServerSiteList.xml";
  const std::string written = ReadFile(server);
  EXPECT_EQ(std::string::npos, written.find(Narrow(kPassword)));
  tag_Site* list = nullptr;
  ASSERT_EQ(0, m_helper.ReadSiteList(Wide(server), &list));
  EXPECT_EQ((std::vector<std::wstring>{kPassword, kPassword2}), Passwords(list)) << "re-encrypted, not lost";
  m_helper.FreeSiteListMemory(list);
  ExpectNoLeak();
}

TEST_F(SecretsTest, BuffersAndRewritingLogNoPassword) {
  // Without a CA bundle: the buffer's text is then a whole document.
  WriteMarkedList(Own(), {});
  CSitesHelper own;
  std::wstring text;
  ASSERT_TRUE(own.GetSiteListBuffer(text));
  EXPECT_EQ(0, own.CreateSiteListFromBuffer(text));
  const std::string standard = port::UnderRootPrefix("/opt/Velmora/orx/scratch/etc/SiteList.xml");
  tag_Site* list = nullptr;
  ASSERT_EQ(0, own.ReadSiteList(Wide(standard), &list));
  EXPECT_EQ(kAllMarked, Passwords(list)) << "the buffer's passwords went through";
  own.FreeSiteListMemory(list);

  TempDir other;
  WriteMarkedList(other.file("SiteList.xml"));
  WriteFile(other.file("srpubkey.bin"), kServerKey);
  WriteFile(other.file("reqseckey.bin"), kRequestKey);
  EXPECT_TRUE(own.modifySiteList(other.wfile("SiteList.xml").c_str(), true, true, AString()));
  ExpectNoLeak();
}

TEST_F(SecretsTest, EncryptionAndDecryptionLogNoPasswordEvenWhenTheyFail) {
  std::wstring encrypted;
  ASSERT_EQ(1, m_helper.EncryptPassword(kPassword, encrypted));
  EXPECT_EQ(std::wstring::npos, encrypted.find(kPassword));
  std::wstring clear;
  EXPECT_FALSE(m_helper.decrypt_data(encrypted, clear)) << "text form is no byte form";
  std::wstring tampered = encrypted;
  tampered[4] = tampered[4] == L'A' ? L'B' : L'A';
  const std::string doc = "<ns:SiteLists xmlns:ns=\"zelSiteList\"><SiteList><HttpSite Name=\"a\" Server=\"a:80\">"
                          "<Password Encrypted=\"1\">" + Narrow(encrypted) + "</Password></HttpSite>"
                          "<HttpSite Name=\"b\" Server=\"b:80\"><Password Encrypted=\"1\">" + Narrow(tampered) +
                          "</Password></HttpSite></SiteList></ns:SiteLists>";
  WriteFile(Own(), doc);
  tag_Site* list = nullptr;
  ASSERT_EQ(0, m_helper.ReadSiteList(WOwn(), &list));
  EXPECT_EQ((std::vector<std::wstring>{kPassword, L""}), Passwords(list));
  m_helper.FreeSiteListMemory(list);
  ExpectNoLeak();
}

}  // namespace
