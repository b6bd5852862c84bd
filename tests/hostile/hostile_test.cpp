// Hostile and bad inputs: every file reading operation is handed the same bad
// file and must answer with its exact code, without crashing, hanging or
// expanding anything; writers facing links, read-only or missing directories
// fail cleanly and leave the old state in place.
#include <gtest/gtest.h>
#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <string>
#include <vector>

#include "port/fs/SysCalls.h"
#include "port/lock/InterProcessLock.h"
#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace {

using sitehlp::CSitesHelper;
using sitehlp::tag_Site;
using testsupport::CapturingLogSink;
using testsupport::ConfigScope;
using testsupport::FileExists;
using testsupport::ReadFile;
using testsupport::Wide;
using testsupport::WriteFile;

const char kDoc[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20250101000000\" LocalVersion=\"20250102000000\" "
    "Type=\"Server\" FipsMode=\"1\">"
    "<CaBundle><CaCertificate>CERT-1</CaCertificate></CaBundle>"
    "<SiteList Default=\"1\" Name=\"SomeGUID\">"
    "<SpipeSite Type=\"master\" Name=\"Vantor_MasterSite\" Order=\"1\" Enabled=\"1\" Local=\"0\" "
    "Server=\"mgmt.corp.example:8081\" ServerName=\"MGMT:8081\" ServerIP=\"192.0.2.7:8081\" Version=\"5\">"
    "<RelativePath>Software</RelativePath></SpipeSite>"
    "</SiteList></ns:SiteLists>\n";

// The answers of every reading operation for one file.
struct Answers {
  int read = 99;
  std::size_t sites = 0;
  int mustRead = 99;
  int smartRead = 99;
  int versions = 99;
  std::wstring globalVersion, localVersion, type;
  int fips = 99;
  std::wstring fipsMode;
  int certificates = 99;
  std::vector<std::wstring> certificateList;
};

class HostileInputTest : public ::testing::Test {
 protected:
  void SetUp() override {
    CSitesHelper::m_pSiteList = nullptr;
    CSitesHelper::m_iChange = 0;
  }
  void TearDown() override {
    CSitesHelper cleaner;
    cleaner.FreeSiteListMemory(CSitesHelper::m_pSiteList);
    CSitesHelper::m_pSiteList = nullptr;
    CSitesHelper::m_iChange = 0;
  }

  std::string Path() const { return m_config.dir().file("data/etc/SiteList.xml"); }

  // Runs every reading operation on the agent's list.
  Answers Ask() {
    Answers a;
    CSitesHelper helper;
    const std::wstring path = Wide(Path());
    tag_Site* list = nullptr;
    a.read = helper.ReadSiteList(path, &list);
    for (tag_Site* s = list; s; s = s->pNext) ++a.sites;
    helper.FreeSiteListMemory(list);
    list = nullptr;
    a.mustRead = helper.MustReadSiteList(path, &list);
    helper.FreeSiteListMemory(list);
    list = nullptr;
    a.smartRead = helper.SmartReadSiteList(path, &list);  // the cache's list, freed in TearDown
    a.type = L"untouched";
    a.versions = helper.GetSitelistVersions(path, a.globalVersion, a.localVersion, a.type);
    a.fipsMode = L"untouched";
    a.fips = helper.GetSitelistFipsMode(path, a.fipsMode);
    a.certificates = helper.GetCaCertificates(path, a.certificateList);
    return a;
  }

  // The answers for a well-formed copy of kDoc, however encoded.
  void ExpectGoodAnswers(const Answers& a) {
    EXPECT_EQ(0, a.read);
    EXPECT_EQ(1u, a.sites);
    EXPECT_EQ(0, a.mustRead);
    EXPECT_EQ(0, a.smartRead);
    EXPECT_EQ(0, a.versions);
    EXPECT_EQ(L"20250101000000", a.globalVersion);
    EXPECT_EQ(L"20250102000000", a.localVersion);
    EXPECT_EQ(L"Server", a.type);
    EXPECT_EQ(0, a.fips);
    EXPECT_EQ(L"1", a.fipsMode);
    EXPECT_EQ(0, a.certificates);
    EXPECT_EQ(std::vector<std::wstring>{L"CERT-1"}, a.certificateList);
  }

  // The answers for a file that is not a well-formed document: the reader's
  // parse failure (-5) or read failure (-10); the version queries' -1.
  void ExpectRefused(const Answers& a, int readCode) {
    EXPECT_EQ(readCode, a.read);
    EXPECT_EQ(0u, a.sites);
    EXPECT_EQ(readCode, a.mustRead);
    EXPECT_EQ(readCode, a.smartRead);
    EXPECT_EQ(-1, a.versions);
    EXPECT_EQ(L"", a.globalVersion);
    EXPECT_EQ(L"", a.localVersion);
    EXPECT_EQ(L"untouched", a.type);
    EXPECT_EQ(-1, a.fips);
    EXPECT_EQ(L"untouched", a.fipsMode);
    EXPECT_EQ(readCode, a.certificates);
    EXPECT_TRUE(a.certificateList.empty());
  }

  ConfigScope m_config;
  CapturingLogSink m_log;
};

// ---- Text encodings -------------------------------------------------------------------------------

// kDoc with one name carrying characters of two and four UTF-8 bytes, its
// declaration naming encoding.
std::u32string Utf32Doc(const std::string& encoding) {
  std::string doc = kDoc;
  doc.replace(doc.find("UTF-8"), 5, encoding);
  const std::string from = "Name=\"Vantor_MasterSite\"";
  doc.replace(doc.find(from), from.size(), "Name=\"Vantor_MasterSite\" Extra=\"X\"");
  std::u32string out(doc.begin(), doc.end());
  const std::u32string x = U"\u00C4\U0001F600";
  out.replace(out.find(U"Extra=\"X\"") + 7, 1, x);
  return out;
}

std::string Encode(const std::u32string& text, bool utf32, bool bigEndian, bool bom) {
  std::u32string all = bom ? U"\uFEFF" + text : text;
  std::string out;
  auto put = [&](std::uint32_t unit, int bytes) {
    for (int i = 0; i < bytes; ++i) {
      const int shift = bigEndian ? 8 * (bytes - 1 - i) : 8 * i;
      out.push_back(static_cast<char>((unit >> shift) & 0xFF));
    }
  };
  for (char32_t c : all) {
    if (utf32) {
      put(c, 4);
    } else if (c >= 0x10000) {
      put(0xD800 + ((c - 0x10000) >> 10), 2);
      put(0xDC00 + ((c - 0x10000) & 0x3FF), 2);
    } else {
      put(c, 2);
    }
  }
  return out;
}

TEST_F(HostileInputTest, Utf16LittleEndianWithByteOrderMarkIsRead) {
  WriteFile(Path(), Encode(Utf32Doc("UTF-16"), false, false, true));
  ExpectGoodAnswers(Ask());
}

TEST_F(HostileInputTest, Utf16BigEndianWithByteOrderMarkIsRead) {
  WriteFile(Path(), Encode(Utf32Doc("UTF-16"), false, true, true));
  ExpectGoodAnswers(Ask());
}

// The declaration must name the encoding the byte order mark gives.
TEST_F(HostileInputTest, EncodingDeclarationThatDoesNotNameTheTextsEncodingIsRefusedAsMalformed) {
  for (const char* wrong : {"UTF-8", "UTF-16BE", "UTF-32"}) {
    WriteFile(Path(), Encode(Utf32Doc(wrong), false, false, true));
    SCOPED_TRACE(wrong);
    ExpectRefused(Ask(), -5);
  }
  WriteFile(Path(), Encode(Utf32Doc("UTF-16"), true, true, true));
  ExpectRefused(Ask(), -5);
  std::string utf8 = kDoc;
  utf8.replace(utf8.find("UTF-8"), 5, "UTF-16");
  WriteFile(Path(), "\xEF\xBB\xBF" + utf8);
  ExpectRefused(Ask(), -5);
  // The name of the mark's byte order is right too.
  WriteFile(Path(), Encode(Utf32Doc("UTF-16LE"), false, false, true));
  ExpectGoodAnswers(Ask());
}

// Without a byte order mark the bytes are taken as UTF-8: ASCII text then
// holds NUL characters and does not parse; other characters do not decode.
TEST_F(HostileInputTest, Utf16WithoutByteOrderMarkOfAsciiTextIsRefusedAsMalformed) {
  const std::string doc = kDoc;
  WriteFile(Path(), Encode(std::u32string(doc.begin(), doc.end()), false, false, false));
  ExpectRefused(Ask(), -5);
}

TEST_F(HostileInputTest, Utf16WithoutByteOrderMarkOfNonAsciiTextIsUnreadable) {
  WriteFile(Path(), Encode(Utf32Doc("UTF-16"), false, true, false));
  ExpectRefused(Ask(), -10);
}

TEST_F(HostileInputTest, Utf32LittleEndianWithByteOrderMarkIsRead) {
  WriteFile(Path(), Encode(Utf32Doc("UTF-32"), true, false, true));
  ExpectGoodAnswers(Ask());
}

TEST_F(HostileInputTest, Utf32BigEndianWithByteOrderMarkIsRead) {
  WriteFile(Path(), Encode(Utf32Doc("UTF-32"), true, true, true));
  ExpectGoodAnswers(Ask());
}

TEST_F(HostileInputTest, Utf32WithoutByteOrderMarkOfAsciiTextIsRefusedAsMalformed) {
  const std::string doc = kDoc;
  WriteFile(Path(), Encode(std::u32string(doc.begin(), doc.end()), true, true, false));
  ExpectRefused(Ask(), -5);
}

TEST_F(HostileInputTest, Utf32WithoutByteOrderMarkOfNonAsciiTextIsUnreadable) {
  WriteFile(Path(), Encode(Utf32Doc("UTF-32"), true, false, false));
  ExpectRefused(Ask(), -10);
}

TEST_F(HostileInputTest, Utf16WithAnUnpairedSurrogateIsUnreadable) {
  std::string bytes = Encode(Utf32Doc("UTF-16"), false, false, true);
  const std::string low = Encode(U"\U0001F600", false, false, false).substr(2);  // the low surrogate alone
  bytes.replace(bytes.find(low), 2, "A\0", 2);
  WriteFile(Path(), bytes);
  ExpectRefused(Ask(), -10);
}

TEST_F(HostileInputTest, Utf32WithAValueBeyondUnicodeIsUnreadable) {
  std::string bytes = Encode(Utf32Doc("UTF-32"), true, false, true);
  const std::string face = Encode(U"\U0001F600", true, false, false);
  bytes.replace(bytes.find(face), 4, std::string("\x00\x00\x11\x00", 4));
  WriteFile(Path(), bytes);
  ExpectRefused(Ask(), -10);
}

TEST_F(HostileInputTest, InvalidUtf8IsUnreadable) {
  for (const std::string& bad : {std::string("\xC0\xAF"), std::string("\xED\xA0\x80"), std::string("\xF5\x80\x80\x80"),
                                std::string("\x80"), std::string("\xE2\x82")}) {
    std::string doc = kDoc;
    doc.insert(doc.find("Vantor_MasterSite"), bad);
    WriteFile(Path(), doc);
    SCOPED_TRACE(testing::PrintToString(bad));
    ExpectRefused(Ask(), -10);
  }
}

// ---- Documents that are not well formed ---------------------------------------------------------

TEST_F(HostileInputTest, MalformedDocumentIsRefusedByEveryReader) {
  for (const std::string& bad :
       {std::string("<ns:SiteLists><SiteList></ns:SiteLists>"), std::string("<a><b></a></b>"),
        std::string("no xml at all"), std::string("<a x=\"1></a>"), std::string("<a><![CDATA[x</a>"),
        std::string("<a><!-- x</a>"), std::string("<?xml version=\"1.0\"?><a/><b/>")}) {
    WriteFile(Path(), bad);
    SCOPED_TRACE(bad);
    ExpectRefused(Ask(), -5);
  }
}

TEST_F(HostileInputTest, TextCdataOrANulByteOutsideTheDocumentElementIsRefusedByEveryReader) {
  const std::string doc = kDoc;
  for (const std::string& bad : {doc + "junk", doc + "\n<!-- note -->\njunk\n", "junk" + doc,
                                 doc + std::string("\0junk", 5), doc + "<![CDATA[x]]>"}) {
    WriteFile(Path(), bad);
    SCOPED_TRACE(bad);
    ExpectRefused(Ask(), -5);
  }
  // Comments, processing instructions and white space around the element stay
  // fine (after the declaration, which must come first).
  const std::string::size_type element = doc.find("?>") + 2;
  WriteFile(Path(), doc.substr(0, element) + "\n<!-- before -->\n" + doc.substr(element) +
                        "\n<!-- after -->\n<?pi x?>\n\n");
  ExpectGoodAnswers(Ask());
}

TEST_F(HostileInputTest, RepeatedAttributeIsRefusedByEveryReader) {
  for (const std::string& from : {std::string("GlobalVersion=\"20250101000000\""), std::string("Type=\"Server\""),
                                  std::string("FipsMode=\"1\""), std::string("Server=\"mgmt.corp.example:8081\"")}) {
    std::string doc = kDoc;
    const std::string name = from.substr(0, from.find('='));
    doc.replace(doc.find(from), from.size(), from + " " + name + "=\"b.example:80\"");
    WriteFile(Path(), doc);
    SCOPED_TRACE(name);
    ExpectRefused(Ask(), -5);
  }
}

TEST_F(HostileInputTest, EveryTruncationOfTheDocumentIsRefused) {
  const std::string doc = kDoc;
  const std::string::size_type end = doc.rfind('>');
  for (std::string::size_type cut = 1; cut <= end; cut += 7) {
    WriteFile(Path(), doc.substr(0, cut));
    CSitesHelper helper;
    tag_Site* list = nullptr;
    std::wstring g, l, t, fips;
    std::vector<std::wstring> certs;
    EXPECT_EQ(-5, helper.ReadSiteList(Wide(Path()), &list)) << "cut at " << cut;
    EXPECT_EQ(nullptr, list);
    EXPECT_EQ(-1, helper.GetSitelistVersions(Wide(Path()), g, l, t)) << "cut at " << cut;
    EXPECT_EQ(-1, helper.GetSitelistFipsMode(Wide(Path()), fips)) << "cut at " << cut;
    EXPECT_EQ(-5, helper.GetCaCertificates(Wide(Path()), certs)) << "cut at " << cut;
  }
}

TEST_F(HostileInputTest, EmptyFileIsRefusedAsMalformed) {
  WriteFile(Path(), "");
  ExpectRefused(Ask(), -5);
}

TEST_F(HostileInputTest, DirectoryInPlaceOfTheFileIsUnreadable) {
  std::filesystem::create_directory(Path());
  ExpectRefused(Ask(), -10);
}

TEST_F(HostileInputTest, MissingFileIsMinusFourEverywhere) {
  const Answers a = Ask();
  EXPECT_EQ(-4, a.read);
  EXPECT_EQ(-4, a.mustRead);
  EXPECT_EQ(-4, a.smartRead);
  EXPECT_EQ(-4, a.versions);
  EXPECT_EQ(L"untouched", a.type);
  EXPECT_EQ(-4, a.fips);
  EXPECT_EQ(-4, a.certificates);
}


TEST_F(HostileInputTest, ADanglingSymbolicLinkAtTheSiteListPathIsAMissingFile) {
  ASSERT_EQ(0, symlink(m_config.dir().file("nowhere.xml").c_str(), Path().c_str()));
  const Answers a = Ask();
  EXPECT_EQ(-4, a.read);
  EXPECT_EQ(-4, a.mustRead);
  EXPECT_EQ(-4, a.smartRead);
  EXPECT_EQ(-4, a.versions);
  EXPECT_EQ(L"untouched", a.type);
  EXPECT_EQ(-4, a.fips);
  EXPECT_EQ(-4, a.certificates);
}
// ---- Size and depth ---------------------------------------------------------------------------

TEST_F(HostileInputTest, HundredThousandNestedElementsInsideASiteAreWalkedWithoutRecursion) {
  constexpr int kDepth = 100000;
  std::string doc = kDoc;
  std::string nest;
  nest.reserve(kDepth * 7);
  for (int i = 0; i < kDepth; ++i) nest += "<d>";
  for (int i = 0; i < kDepth; ++i) nest += "</d>";
  doc.insert(doc.find("<RelativePath>"), nest);
  WriteFile(Path(), doc);
  ExpectGoodAnswers(Ask());
}

TEST_F(HostileInputTest, HundredThousandNestedElementsUnderTheRootAreWalkedWithoutRecursion) {
  constexpr int kDepth = 100000;
  std::string doc = kDoc;
  std::string nest;
  for (int i = 0; i < kDepth; ++i) nest += "<SiteList>";
  for (int i = 0; i < kDepth; ++i) nest += "</SiteList>";
  doc.insert(doc.find("<SiteList "), nest);
  WriteFile(Path(), doc);
  // The nested SiteList is a SiteList of its own (one unknown child); the
  // real one after it replaces it.
  ExpectGoodAnswers(Ask());
}

TEST_F(HostileInputTest, TenMegabyteAttributeIsCutToItsField) {
  const std::string big(10 * 1024 * 1024, 'n');
  std::string doc = kDoc;
  const std::string from = "Name=\"Vantor_MasterSite\"";
  doc.replace(doc.find(from), from.size(), "Name=\"" + big + "\"");
  WriteFile(Path(), doc);
  CSitesHelper helper;
  tag_Site* list = nullptr;
  ASSERT_EQ(0, helper.ReadSiteList(Wide(Path()), &list));
  ASSERT_NE(nullptr, list);
  EXPECT_EQ(std::wstring(259, L'n'), list->httpSite.szName);
  EXPECT_EQ(nullptr, list->pNext);
  helper.FreeSiteListMemory(list);
}

TEST_F(HostileInputTest, TenMegabyteCertificateIsReadWhole) {
  const std::string big(10 * 1024 * 1024, 'c');
  std::string doc = kDoc;
  doc.replace(doc.find("CERT-1"), 6, big);
  WriteFile(Path(), doc);
  CSitesHelper helper;
  std::vector<std::wstring> certs;
  ASSERT_EQ(0, helper.GetCaCertificates(Wide(Path()), certs));
  ASSERT_EQ(1u, certs.size());
  EXPECT_EQ(std::wstring(big.size(), L'c'), certs[0]);
}

TEST_F(HostileInputTest, HundredThousandSitesAreReadInDocumentOrder) {
  constexpr int kSites = 100000;
  std::string sites;
  for (int i = 0; i < kSites; ++i)
    sites += "<UNCSite Type=\"repository\" Name=\"s" + std::to_string(i) + "\" Order=\"" + std::to_string(i) +
             "\" Server=\"h.example\" Enabled=\"1\" Local=\"0\"/>";
  std::string doc = kDoc;
  doc.insert(doc.find("</SiteList>"), sites);
  WriteFile(Path(), doc);
  CSitesHelper helper;
  tag_Site* list = nullptr;
  ASSERT_EQ(0, helper.ReadSiteList(Wide(Path()), &list));
  int n = 0;
  bool inOrder = true;
  for (tag_Site* s = list; s; s = s->pNext, ++n) {
    if (n == 0) continue;  // the SPIPE site
    inOrder = inOrder && s->nSiteType == sitehlp::SITE_TYPE_UNC && s->nOrder == n - 1 &&
              std::wstring(s->uncSite.szName) == L"s" + std::to_wstring(n - 1);
  }
  EXPECT_EQ(kSites + 1, n);
  EXPECT_TRUE(inOrder);
  helper.FreeSiteListMemory(list);
}

// ---- Entities -------------------------------------------------------------------------------------

TEST_F(HostileInputTest, DocumentTypeDeclarationIsRefusedByEveryReader) {
  // Ten levels of tenfold references: expanding them would take gigabytes.
  std::string dtd = "<!DOCTYPE ns:SiteLists [<!ENTITY e0 \"lol\">";
  for (int i = 1; i <= 9; ++i) {
    dtd += "<!ENTITY e" + std::to_string(i) + " \"";
    for (int k = 0; k < 10; ++k) dtd += "&e" + std::to_string(i - 1) + ";";
    dtd += "\">";
  }
  dtd += "<!ENTITY ext SYSTEM \"file:///etc/passwd\">]>";
  std::string doc = kDoc;
  doc.insert(doc.find("<ns:SiteLists"), dtd);
  doc.replace(doc.find("Software"), 8, "&e9;&ext;");
  doc.replace(doc.find("CERT-1"), 6, "&e9;");
  WriteFile(Path(), doc);
  ExpectRefused(Ask(), -5);
  // Even an empty one.
  std::string bare = kDoc;
  bare.insert(bare.find("<ns:SiteLists"), "<!DOCTYPE ns:SiteLists>");
  WriteFile(Path(), bare);
  ExpectRefused(Ask(), -5);
}

TEST_F(HostileInputTest, UndeclaredEntityReferenceIsRefusedByEveryReader) {
  std::string doc = kDoc;
  doc.replace(doc.find("Software"), 8, "&lol9;");
  WriteFile(Path(), doc);
  ExpectRefused(Ask(), -5);
}

// ---- Passwords ------------------------------------------------------------------------------------

TEST_F(HostileInputTest, PasswordsThatFailAuthenticationAreReadAsEmptyInEverySlot) {
  CSitesHelper helper;
  std::wstring good;
  ASSERT_EQ(1, helper.EncryptPassword(L"secret-one", good));
  std::wstring bad = good;
  bad[bad.size() / 2] = bad[bad.size() / 2] == L'A' ? L'B' : L'A';  // one changed character
  const std::string b = testsupport::Narrow(bad);
  const std::string doc =
      "<ns:SiteLists xmlns:ns=\"zelSiteList\"><SiteList>"
      "<HttpSite Name=\"ok\" Server=\"ok.example:80\"><Password Encrypted=\"1\">" + testsupport::Narrow(good) +
      "</Password></HttpSite>"
      "<HttpSite Name=\"h\" Server=\"h.example:80\"><UserName>u</UserName><Password Encrypted=\"1\">" + b +
      "</Password></HttpSite>"
      "<FTPSite Name=\"f\" Server=\"f.example:21\"><Password Encrypted=\"1\">" + b + "</Password></FTPSite>"
      "<UNCSite Name=\"u\" Server=\"u.example\"><Password Encrypted=\"1\">" + b + "</Password></UNCSite>"
      "<LocalSite Name=\"l\"><Password Encrypted=\"1\">" + b + "</Password></LocalSite>"
      "<ProxyConfigList><ProxyConfig Name=\"p\" HttpProxyServer=\"p.example\" HttpProxyPort=\"3128\">"
      "<HttpProxyPassword>" + b + "</HttpProxyPassword><FtpProxyPassword>" + b + "</FtpProxyPassword>"
      "<AlternateHttpProxyPassword>" + b + "</AlternateHttpProxyPassword>"
      "<AlternateFtpProxyPassword>" + b + "</AlternateFtpProxyPassword></ProxyConfig></ProxyConfigList>"
      "</SiteList></ns:SiteLists>";
  WriteFile(Path(), doc);
  tag_Site* list = nullptr;
  ASSERT_EQ(0, helper.ReadSiteList(Wide(Path()), &list));
  std::vector<std::wstring> passwords;
  for (tag_Site* s = list; s; s = s->pNext) {
    switch (s->nSiteType) {
      case sitehlp::SITE_TYPE_HTTP: passwords.push_back(s->httpSite.szPassword); break;
      case sitehlp::SITE_TYPE_FTP: passwords.push_back(s->ftpSite.szPassword); break;
      case sitehlp::SITE_TYPE_UNC: passwords.push_back(s->uncSite.szPassword); break;
      case sitehlp::SITE_TYPE_LOCAL: passwords.push_back(s->localSite.szPassword); break;
      case sitehlp::SITE_TYPE_PROXY:
        passwords.push_back(s->proxySettings.szHttpProxyPassword);
        passwords.push_back(s->proxySettings.szFtpProxyPassword);
        passwords.push_back(s->proxySettings.szAlternateHttpProxyPassword);
        passwords.push_back(s->proxySettings.szAlternateFtpProxyPassword);
        break;
    }
  }
  // The untouched value decrypts; the changed one is refused in every slot.
  std::vector<std::wstring> expected(9, L"");
  expected[0] = L"secret-one";
  EXPECT_EQ(expected, passwords);
  ASSERT_NE(nullptr, list->pNext);
  EXPECT_EQ(L"u", std::wstring(list->pNext->httpSite.szUserName));
  helper.FreeSiteListMemory(list);
}

// ---- Links ------------------------------------------------------------------------------------

TEST_F(HostileInputTest, SiteListPathThatIsASymbolicLinkIsReadThroughAndReplacedOnWrite) {
  const std::string elsewhere = m_config.dir().file("elsewhere.xml");
  WriteFile(elsewhere, kDoc);
  ASSERT_EQ(0, symlink(elsewhere.c_str(), Path().c_str()));
  ExpectGoodAnswers(Ask());

  CSitesHelper helper;
  EXPECT_EQ(0, helper.CreateSiteList(nullptr, Wide(Path()), L"G", L"L", L"Client", {}));
  struct stat st {};
  ASSERT_EQ(0, lstat(Path().c_str(), &st));
  EXPECT_TRUE(S_ISREG(st.st_mode)) << "the link itself is replaced by the new file";
  EXPECT_EQ(kDoc, ReadFile(elsewhere)) << "the link's target is never written through";
}

int g_injectedErrno = 0;

// Creating files (the writer's temporary) fails; opening existing ones works.
int RefuseCreate(const char* path, int flags, mode_t mode) {
  if (flags & O_CREAT) {
    if (std::string(path).find("/locks/") == std::string::npos) {
      errno = g_injectedErrno;
      return -1;
    }
  }
  return port::RealSysCalls().open(path, flags, mode);
}

TEST_F(HostileInputTest, KeyFileTargetsThatAreSymbolicLinksAreReplacedNotWrittenThrough) {
  // A versioned outside list with its two classic keys.
  testsupport::TempDir source;
  WriteFile(source.file("SiteList.xml"), kDoc);
  WriteFile(source.file("srpubkey.bin"), "new server key");
  WriteFile(source.file("reqseckey.bin"), "new request key");
  // The agent's key files are links to files elsewhere.
  const std::string etc = m_config.dir().file("data/etc/");
  const std::string victim = m_config.dir().file("victim.bin");
  WriteFile(victim, "not to be touched");
  ASSERT_EQ(0, chmod(victim.c_str(), 0644));
  ASSERT_EQ(0, symlink(victim.c_str(), (etc + "reqseckey.bin").c_str()));
  ASSERT_EQ(0, symlink(victim.c_str(), (etc + "srpubkey.bin").c_str()));

  CSitesHelper helper;
  ASSERT_EQ(0, helper.ImportSiteList(source.wfile("SiteList.xml"), L""));
  struct stat st {};
  ASSERT_EQ(0, lstat((etc + "reqseckey.bin").c_str(), &st));
  EXPECT_TRUE(S_ISREG(st.st_mode));
  EXPECT_EQ(0600u, st.st_mode & 07777u);
  EXPECT_EQ("new request key", ReadFile(etc + "reqseckey.bin"));
  ASSERT_EQ(0, lstat((etc + "srpubkey.bin").c_str(), &st));
  EXPECT_TRUE(S_ISREG(st.st_mode));
  EXPECT_EQ("new server key", ReadFile(etc + "srpubkey.bin"));
  EXPECT_EQ("not to be touched", ReadFile(victim));
  ASSERT_EQ(0, stat(victim.c_str(), &st));
  EXPECT_EQ(0644u, st.st_mode & 07777u);
}

TEST_F(HostileInputTest, ImportIntoAnUnwritableKeyDirectoryFailsAndKeepsTheOldList) {
  testsupport::TempDir source;
  WriteFile(source.file("SiteList.xml"), kDoc);
  WriteFile(source.file("srpubkey.bin"), "new server key");
  WriteFile(source.file("reqseckey.bin"), "new request key");
  const std::string old = "<ns:SiteLists xmlns:ns=\"zelSiteList\"><SiteList/></ns:SiteLists>";
  WriteFile(Path(), old);
  g_injectedErrno = EROFS;
  port::SysCalls table = port::RealSysCalls();
  table.open = RefuseCreate;
  int rc;
  {
    port::ScopedSysCallOverride scope(table);
    CSitesHelper helper;
    rc = helper.ImportSiteList(source.wfile("SiteList.xml"), L"");
  }
  EXPECT_EQ(-1, rc);
  EXPECT_EQ(old, ReadFile(Path()));
  EXPECT_FALSE(FileExists(m_config.dir().file("data/etc/reqseckey.bin")));
}

// ---- Directories that cannot be written or do not exist --------------------------------------------

class ReadOnlyDirectoryTest : public HostileInputTest, public ::testing::WithParamInterface<int> {};

TEST_P(ReadOnlyDirectoryTest, WritersFailWithTheirCodeAndLeaveTheOldListAndNoTemporary) {
  WriteFile(Path(), kDoc);
  g_injectedErrno = GetParam();
  port::SysCalls table = port::RealSysCalls();
  table.open = RefuseCreate;
  int created, spipe;
  {
    port::ScopedSysCallOverride scope(table);
    CSitesHelper helper;
    created = helper.CreateSiteList(nullptr, Wide(Path()), L"G", L"L", L"Client", {});
    spipe = helper.SetSpipeSiteForUpdSite(8443, L"192.0.2.9", L"new.corp.example", L"NEW");
  }
  EXPECT_EQ(-11, created);
  EXPECT_EQ(-11, spipe);
  EXPECT_EQ(kDoc, ReadFile(Path()));
  std::vector<std::string> names;
  for (const auto& e : std::filesystem::directory_iterator(m_config.dir().file("data/etc")))
    names.push_back(e.path().filename().string());
  EXPECT_EQ(std::vector<std::string>{"SiteList.xml"}, names);
  EXPECT_TRUE(m_log.contains(L"Failed to create site list " + Wide(Path()) + L" hr=-11"));
  InterProcessWriteLock lock(sitehlp::c_siteListLock);
  EXPECT_TRUE(lock.lock(0));
}

INSTANTIATE_TEST_SUITE_P(AccessOrReadOnlyFileSystem, ReadOnlyDirectoryTest, ::testing::Values(EACCES, EROFS),
                         [](const ::testing::TestParamInfo<int>& info) {
                           return std::string(info.param == EACCES ? "EACCES" : "EROFS");
                         });

TEST_F(HostileInputTest, MissingDirectoriesAreMissingFilesForReadersAndMinusElevenForTheWriter) {
  const std::string gone = m_config.dir().file("no/such/dir/SiteList.xml");
  CSitesHelper helper(Wide(gone));
  tag_Site* list = nullptr;
  std::wstring g, l, t, fips;
  std::vector<std::wstring> certs;
  EXPECT_EQ(-4, helper.ReadSiteList(L"", &list));
  EXPECT_EQ(-4, helper.GetSitelistVersions(L"", g, l, t));
  EXPECT_EQ(-4, helper.GetSitelistFipsMode(L"", fips));
  EXPECT_EQ(-4, helper.GetCaCertificates(L"", certs));
  EXPECT_EQ(-4, helper.SetSpipeSiteForUpdSite(80, L"192.0.2.1", L"s.example", L"S"));
  EXPECT_EQ(-11, helper.CreateSiteList(nullptr, L"", L"G", L"L", L"Client", {}));
  EXPECT_FALSE(FileExists(m_config.dir().file("no")));
}

}  // namespace
