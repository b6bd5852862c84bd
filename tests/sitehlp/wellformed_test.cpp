// Site lists that are not well formed: each kind of fault refused with its
// place, the place kept for the caller, and one list of such documents
// refused by every operation that reads a site list document.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "platform/ABuffer.h"
#include "port/config/IConfiguration.h"
#include "port/crypto/KeyCache.h"
#include "port/log/Log.h"
#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace {

using sitehlp::CSitesHelper;
using sitehlp::tag_DocumentCheck;
using sitehlp::tag_Site;
using testsupport::CapturingLogSink;
using testsupport::ConfigScope;
using testsupport::FileExists;
using testsupport::ReadFile;
using testsupport::Wide;
using testsupport::WriteFile;

// A well-formed site list, one piece per line, so that a fault's line is
// the line of the piece it is put into.
const std::vector<std::string> kLines = {
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>",
    "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20250101000000\" LocalVersion=\"20250102000000\" "
    "Type=\"Client\" FipsMode=\"0\">",
    "<CaBundle><CaCertificate>CERT-1</CaCertificate></CaBundle>",
    "<SiteList Default=\"1\" Name=\"SomeGUID\">",
    "<SpipeSite Type=\"master\" Name=\"Vantor_MasterSite\" Order=\"1\" Enabled=\"1\" Local=\"0\" "
    "Server=\"a.example:80\" ServerName=\"A:80\" ServerIP=\"192.0.2.7:80\" Version=\"5\">",
    "<RelativePath>Software</RelativePath><UseAuth>0</UseAuth><UserName>agent</UserName></SpipeSite>",
    "<HttpSite Type=\"repository\" Name=\"Repo\" Order=\"2\" Enabled=\"1\" Local=\"0\" Server=\"repo.example:80\">"
    "<RelativePath>Current</RelativePath></HttpSite>",
    "</SiteList>",
    "</ns:SiteLists>",
};

std::string Join(const std::vector<std::string>& lines) {
  std::string doc;
  for (const std::string& line : lines) doc += line + "\n";
  return doc;
}

// One kind of fault: the text `from` on line `line` (1-based) becomes `to`;
// expat refuses the document there, at the first character of `at` on that
// line, with description.
struct Fault {
  const char* name;
  unsigned line;
  std::string from;
  std::string to;
  std::string at;
  const char* description;
};

std::vector<std::string> ApplyToLines(const Fault& f) {
  std::vector<std::string> lines = kLines;
  std::string& line = lines.at(f.line - 1);
  const std::size_t at = line.find(f.from);
  if (at == std::string::npos) throw std::logic_error(std::string("no '") + f.from + "' on the line");
  line.replace(at, f.from.size(), f.to);
  return lines;
}

std::string Apply(const Fault& f) { return Join(ApplyToLines(f)); }

// The column (1-based; the lines are ASCII) the refusal of f points at.
unsigned ColumnOf(const Fault& f) {
  const std::string line = ApplyToLines(f).at(f.line - 1);
  const std::size_t at = line.find(f.at);
  if (at == std::string::npos) throw std::logic_error(std::string("no '") + f.at + "' on the faulty line");
  return static_cast<unsigned>(at + 1);
}

// Each kind of fault a lenient parser let through, in a site list, and where
// expat stops: at the offending character, after a '&' at what cannot follow
// it, at the start of the tag whose attribute values or prefixes are at
// fault, at the name of an end tag that does not match.
const std::vector<Fault> kFaults = {
    {"the same attribute twice", 5, "Server=\"a.example:80\"", "Server=\"a.example:80\" Server=\"b.example:80\"",
     "Server=\"b.example", "duplicate attribute"},
    {"a bare ampersand in text", 6, "Software", "Soft & Ware", " Ware", "not well-formed (invalid token)"},
    {"a bare ampersand in an attribute", 7, "Name=\"Repo\"", "Name=\"R&D\"", "\" Order",
     "not well-formed (invalid token)"},
    {"a less-than sign in an attribute", 7, "Name=\"Repo\"", "Name=\"a<b\"", "<b\"", "not well-formed (invalid token)"},
    {"']]>' in text", 7, "Current", "Cur]]>rent", ">rent", "not well-formed (invalid token)"},
    {"a control character in text", 6, "agent", "ag\x01nt", "\x01", "not well-formed (invalid token)"},
    {"'--' inside a comment", 4, "<SiteList", "<!-- old -- list --><SiteList", " list -->",
     "not well-formed (invalid token)"},
    {"an undefined entity reference", 6, "Software", "&lol9;", "&lol9;", "undefined entity"},
    {"an undefined entity reference in an attribute", 7, "Name=\"Repo\"", "Name=\"&lol9;\"", "<HttpSite",
     "undefined entity"},
    {"a reference to character 0", 6, "agent", "&#0;", "&#0;", "reference to invalid character number"},
    {"a reference to a control character", 6, "agent", "&#x1B;", "&#x1B;", "reference to invalid character number"},
    {"a reference to a surrogate", 6, "agent", "&#xD800;", "&#xD800;", "reference to invalid character number"},
    {"a reference to U+FFFF", 6, "agent", "&#65535;", "&#65535;", "reference to invalid character number"},
    {"a document type declaration", 2, "<ns:SiteLists", "<!DOCTYPE ns:SiteLists><ns:SiteLists", "<!DOCTYPE",
     "document type declaration not allowed"},
    {"a document type declaration with entities", 1, "?>", "?><!DOCTYPE x [<!ENTITY e \"lol\">]>", "<!DOCTYPE",
     "document type declaration not allowed"},
    {"an unbound namespace prefix", 8, "</SiteList>", "<x:Extra/></SiteList>", "<x:Extra",
     "unbound prefix"},
    {"a second document element", 9, "</ns:SiteLists>", "</ns:SiteLists><ns:SiteLists/>", "<ns:SiteLists/>",
     "junk after document element"},
    {"text after the document element", 9, "</ns:SiteLists>", "</ns:SiteLists>junk", "junk",
     "junk after document element"},
    {"an end tag that does not match", 8, "</SiteList>", "</SiteLists>", "SiteLists>", "mismatched tag"},
};

class WellFormedSiteListTest : public ::testing::Test {
 protected:
  void SetUp() override {
    port::ClearKeyCache();
    CSitesHelper::ClearLastXmlRefusal();
    std::filesystem::create_directories(m_config.dir().file("new"));
  }
  void TearDown() override {
    CSitesHelper cleaner;
    cleaner.FreeSiteListMemory(CSitesHelper::m_pSiteList);
    CSitesHelper::m_pSiteList = nullptr;
    CSitesHelper::m_iChange = 0;
    port::ClearKeyCache();
  }

  std::string OwnPath() const { return m_config.dataDir() + "/etc/SiteList.xml"; }
  std::string NewPath() const { return m_config.dir().file("new/SiteList.xml"); }

  ConfigScope m_config;
};

// ---- each kind of fault, with its place ---------------------------------------------------------

TEST_F(WellFormedSiteListTest, TheSiteListTheFaultsStartFromIsRead) {
  WriteFile(OwnPath(), Join(kLines));
  CSitesHelper helper(Wide(OwnPath()));
  tag_Site* list = nullptr;
  ASSERT_EQ(0, helper.ReadSiteList(L"", &list));
  ASSERT_NE(nullptr, list);
  ASSERT_NE(nullptr, list->pNext);
  EXPECT_EQ(std::wstring(L"a.example"), list->httpSite.szServer);
  EXPECT_EQ(std::wstring(L"Software"), list->httpSite.szRelativePath);
  EXPECT_EQ(std::wstring(L"agent"), list->httpSite.szUserName);
  EXPECT_EQ(std::wstring(L"Repo"), list->pNext->httpSite.szName);
  EXPECT_EQ(std::wstring(L"Current"), list->pNext->httpSite.szRelativePath);
  helper.FreeSiteListMemory(list);
  tag_DocumentCheck check;
  EXPECT_EQ(0, helper.CheckSiteListDocument(L"", check));
  EXPECT_EQ(L"ns:SiteLists", check.szRootElement);
  EXPECT_FALSE(CSitesHelper::GetLastXmlRefusal(check));
}

TEST_F(WellFormedSiteListTest, EachKindOfFaultIsRefusedByTheReaderWithItsPlace) {
  CapturingLogSink log;
  for (const Fault& f : kFaults) {
    SCOPED_TRACE(f.name);
    WriteFile(OwnPath(), Apply(f));
    CSitesHelper helper(Wide(OwnPath()));
    CSitesHelper::ClearLastXmlRefusal();
    log.clear();
    tag_Site* list = nullptr;
    EXPECT_EQ(-5, helper.ReadSiteList(Wide(OwnPath()), &list));
    EXPECT_EQ(nullptr, list);

    // Kept for the caller, as the thread's last refusal ...
    tag_DocumentCheck last;
    ASSERT_TRUE(CSitesHelper::GetLastXmlRefusal(last));
    EXPECT_EQ(Wide(OwnPath()), last.szPath);
    EXPECT_EQ(f.line, last.nLine);
    EXPECT_EQ(ColumnOf(f), last.nColumn);
    EXPECT_EQ(Wide(f.description), last.szDescription);
    EXPECT_EQ(L"", last.szRootElement);
    // ... logged at detail level ...
    const std::wstring line = Wide(OwnPath() + ":" + std::to_string(f.line) + ":" + std::to_string(ColumnOf(f)) +
                                   ": not well formed: " + f.description);
    EXPECT_EQ(std::vector<std::wstring>{line}, log.messages(port::LogLevel::Detail));
    EXPECT_TRUE(log.messages(port::LogLevel::Error).empty());
    // ... and answered by the check of the file.
    tag_DocumentCheck check;
    EXPECT_EQ(-5, helper.CheckSiteListDocument(Wide(OwnPath()), check));
    EXPECT_EQ(Wide(OwnPath()), check.szPath);
    EXPECT_EQ(f.line, check.nLine);
    EXPECT_EQ(ColumnOf(f), check.nColumn);
    EXPECT_EQ(Wide(f.description), check.szDescription);
    EXPECT_EQ(L"", check.szRootElement);
  }
}

TEST_F(WellFormedSiteListTest, EncodingDeclarationThatDoesNotNameTheFilesEncodingIsRefusedAtTheDeclaration) {
  std::string doc = Join(kLines);
  doc.replace(doc.find("UTF-8"), 5, "UTF-16");
  WriteFile(OwnPath(), doc);
  CSitesHelper helper(Wide(OwnPath()));
  tag_DocumentCheck check;
  EXPECT_EQ(-5, helper.CheckSiteListDocument(L"", check));
  EXPECT_EQ(1u, check.nLine);
  EXPECT_EQ(1u, check.nColumn);
  EXPECT_EQ(L"encoding declaration does not name the encoding of the text", check.szDescription);
}

// ---- the check of a file ------------------------------------------------------------------------

TEST_F(WellFormedSiteListTest, CheckNamesTheDocumentElementOfAWellFormedFile) {
  WriteFile(OwnPath(), "<?xml version=\"1.0\"?>\n<Other xmlns=\"urn:x\"><SiteList/></Other>\n");
  CSitesHelper helper(Wide(OwnPath()));
  tag_DocumentCheck check;
  check.nLine = 7;
  check.szDescription = L"stale";
  EXPECT_EQ(0, helper.CheckSiteListDocument(Wide(OwnPath()), check));
  EXPECT_EQ(Wide(OwnPath()), check.szPath);
  EXPECT_EQ(L"Other", check.szRootElement);
  EXPECT_EQ(0u, check.nLine);
  EXPECT_EQ(0u, check.nColumn);
  EXPECT_EQ(L"", check.szDescription);
}

TEST_F(WellFormedSiteListTest, CheckAnswersMissingUnreadableAndNoPath) {
  CSitesHelper helper(Wide(OwnPath()));
  tag_DocumentCheck check;
  EXPECT_EQ(-4, helper.CheckSiteListDocument(L"", check));
  EXPECT_EQ(Wide(OwnPath()), check.szPath);

  std::filesystem::create_directory(OwnPath());
  EXPECT_EQ(-10, helper.CheckSiteListDocument(L"", check));
  EXPECT_EQ(0u, check.nLine);
  EXPECT_EQ(Wide("cannot read " + OwnPath() + ": not a regular file"), check.szDescription);
  std::filesystem::remove(OwnPath());

  WriteFile(OwnPath(), "<ns:SiteLists xmlns:ns=\"zelSiteList\" Name=\"\xC3\x28\"/>");
  EXPECT_EQ(-10, helper.CheckSiteListDocument(L"", check));
  EXPECT_EQ(L"invalid UTF-8 text at byte 43", check.szDescription);

  CSitesHelper nowhere(L"");
  EXPECT_EQ(-2, nowhere.CheckSiteListDocument(L"", check));
  EXPECT_FALSE(CSitesHelper::GetLastXmlRefusal(check));  // none of these is a refusal of XML
}

TEST_F(WellFormedSiteListTest, CheckChangesNoStateOfTheHelper) {
  WriteFile(OwnPath(), Join(kLines));
  WriteFile(NewPath(), "<r><Policies><Setting name=\"New\">1</Setting></Policies></r>");
  WriteFile(m_config.dir().file("bad.xml"), Join(kLines).substr(0, 60));
  CSitesHelper helper(Wide(OwnPath()));
  const std::wstring current = helper.GetCurrentPath();
  tag_DocumentCheck check;
  EXPECT_EQ(-5, helper.CheckSiteListDocument(Wide(m_config.dir().file("bad.xml")), check));
  EXPECT_EQ(0, helper.CheckSiteListDocument(Wide(NewPath()), check));
  EXPECT_EQ(L"r", check.szRootElement);
  EXPECT_EQ(current, helper.GetCurrentPath());
  EXPECT_TRUE(helper.GetPolicySettings().empty());
}

// ---- the thread's last refusal ----------------------------------------------------------------------

TEST_F(WellFormedSiteListTest, LastRefusalIsKeptUntilTheNextOneOrAClearAndPerThread) {
  WriteFile(OwnPath(), Apply(kFaults[0]));
  WriteFile(NewPath(), Apply(kFaults[1]));
  CSitesHelper helper(Wide(OwnPath()));  // reads the versions of its list: a refusal already
  tag_DocumentCheck refusal;
  EXPECT_TRUE(CSitesHelper::GetLastXmlRefusal(refusal));
  EXPECT_EQ(Wide(OwnPath()), refusal.szPath);
  CSitesHelper::ClearLastXmlRefusal();
  refusal.szPath = L"untouched";
  EXPECT_FALSE(CSitesHelper::GetLastXmlRefusal(refusal));
  EXPECT_EQ(L"untouched", refusal.szPath);

  std::vector<std::wstring> certificates;
  EXPECT_EQ(-5, helper.GetCaCertificates(L"", certificates));
  // A document read well afterwards leaves the refusal in place.
  WriteFile(m_config.dir().file("good.xml"), Join(kLines));
  EXPECT_EQ(0, helper.GetCaCertificates(Wide(m_config.dir().file("good.xml")), certificates));
  ASSERT_TRUE(CSitesHelper::GetLastXmlRefusal(refusal));
  EXPECT_EQ(Wide(OwnPath()), refusal.szPath);
  EXPECT_EQ(5u, refusal.nLine);

  EXPECT_EQ(-5, helper.GetCaCertificates(Wide(NewPath()), certificates));
  ASSERT_TRUE(CSitesHelper::GetLastXmlRefusal(refusal));
  EXPECT_EQ(Wide(NewPath()), refusal.szPath);
  EXPECT_EQ(6u, refusal.nLine);

  // Another thread has its own.
  bool otherHad = true;
  std::thread other([&otherHad] {
    tag_DocumentCheck r;
    otherHad = CSitesHelper::GetLastXmlRefusal(r);
  });
  other.join();
  EXPECT_FALSE(otherHad);

  CSitesHelper::ClearLastXmlRefusal();
  EXPECT_FALSE(CSitesHelper::GetLastXmlRefusal(refusal));
}

TEST_F(WellFormedSiteListTest, RefusalOfTextInMemoryHasNoPath) {
  CSitesHelper helper(Wide(OwnPath()));
  EXPECT_EQ(-5, helper.CreateSiteListFromBuffer(Wide(Apply(kFaults[0]))));
  tag_DocumentCheck refusal;
  ASSERT_TRUE(CSitesHelper::GetLastXmlRefusal(refusal));
  EXPECT_EQ(L"", refusal.szPath);
  EXPECT_EQ(5u, refusal.nLine);
  EXPECT_EQ(ColumnOf(kFaults[0]), refusal.nColumn);
  EXPECT_EQ(L"duplicate attribute", refusal.szDescription);
}

// ---- every reading path refuses the same documents ----------------------------------------------

// The answers of every operation that reads a site list document, for one
// document put in each place it can come from.
struct PathAnswers {
  int read, mustRead, smartRead, versions, fips, certificates, check, buffer, import, install, validate, adjust;
  bool bufferWritten;
  bool rewriteOwn, rewriteNew, serverList;
  std::wstring rewriteOwnRefused, rewriteNewRefused, serverListRefused;
};

TEST_F(WellFormedSiteListTest, EveryReadingPathRefusesTheSameDocuments) {
  const std::string good = Join(kLines);
  const std::string standard = m_config.dir().file("root/opt/Velmora/orx/scratch/etc/SiteList.xml");
  std::filesystem::create_directories(std::filesystem::path(standard).parent_path());
  for (const Fault& f : kFaults) {
    SCOPED_TRACE(f.name);
    const std::string bad = Apply(f);
    PathAnswers a{};
    {
      WriteFile(OwnPath(), bad);
      CSitesHelper helper(Wide(OwnPath()));
      const std::wstring path = Wide(OwnPath());
      tag_Site* list = nullptr;
      a.read = helper.ReadSiteList(path, &list);
      helper.FreeSiteListMemory(list);
      list = nullptr;
      a.mustRead = helper.MustReadSiteList(path, &list);
      helper.FreeSiteListMemory(list);
      list = nullptr;
      CSitesHelper::m_iChange = 3;
      a.smartRead = helper.SmartReadSiteList(path, &list);
      std::wstring g, l, t, fips;
      a.versions = helper.GetSitelistVersions(path, g, l, t);
      a.fips = helper.GetSitelistFipsMode(path, fips);
      std::vector<std::wstring> certificates;
      a.certificates = helper.GetCaCertificates(path, certificates);
      tag_DocumentCheck check;
      a.check = helper.CheckSiteListDocument(path, check);
    }
    {
      // Text in memory: written nowhere.
      std::filesystem::remove(standard);
      CSitesHelper helper(Wide(OwnPath()));
      a.buffer = helper.CreateSiteListFromBuffer(Wide(bad));
      a.bufferWritten = FileExists(standard);
    }
    {
      // The source of an import, install or check; the agent's own list is good.
      WriteFile(OwnPath(), good);
      WriteFile(NewPath(), bad);
      CSitesHelper helper(Wide(OwnPath()));
      a.import = helper.ImportSiteList(Wide(NewPath()), Wide(m_config.dir().file("keys")));
      a.install = helper.InstallSiteList(Wide(NewPath()), Wide(m_config.dir().file("keys")));
      a.validate = helper.ValidateSiteListForInstall(Wide(NewPath()), false);
      EXPECT_EQ(good, ReadFile(OwnPath()));
    }
    {
      // Both documents of a rewrite, in turn; the refusal names the one at fault.
      CSitesHelper helper(Wide(OwnPath()));
      const std::wstring newPath = Wide(NewPath());
      tag_DocumentCheck refusal;
      WriteFile(OwnPath(), bad);
      WriteFile(NewPath(), good);
      CSitesHelper::ClearLastXmlRefusal();
      a.rewriteOwn = helper.modifySiteList(newPath.c_str(), true, true, AString(L""));
      if (CSitesHelper::GetLastXmlRefusal(refusal)) a.rewriteOwnRefused = refusal.szPath;
      EXPECT_EQ(bad, ReadFile(OwnPath()));
      WriteFile(OwnPath(), good);
      WriteFile(NewPath(), bad);
      CSitesHelper::ClearLastXmlRefusal();
      a.rewriteNew = helper.modifySiteList(newPath.c_str(), true, true, AString(L""));
      if (CSitesHelper::GetLastXmlRefusal(refusal)) a.rewriteNewRefused = refusal.szPath;
      EXPECT_EQ(good, ReadFile(OwnPath()));
      // The server site list is made from the own list.
      WriteFile(OwnPath(), bad);
      CSitesHelper::ClearLastXmlRefusal();
      const std::wstring etc = Wide(m_config.dataDir() + "/etc");
      a.serverList = CSitesHelper::createServerSiteListFromSiteList(etc.c_str(), nullptr);
      if (CSitesHelper::GetLastXmlRefusal(refusal)) a.serverListRefused = refusal.szPath;
    }
    {
      // Password re-encryption of a server site list held as bytes.
      CSitesHelper helper(Wide(OwnPath()));
      AnObjectBuffer<unsigned char> bytes(reinterpret_cast<const unsigned char*>(bad.data()), bad.size());
      a.adjust = helper.AdjustPwd(bytes);
    }
    EXPECT_EQ(-5, a.read);
    EXPECT_EQ(-5, a.mustRead);
    EXPECT_EQ(-5, a.smartRead);
    EXPECT_EQ(-1, a.versions);  // the version and FIPS queries answer -1 for any parse failure
    EXPECT_EQ(-1, a.fips);
    EXPECT_EQ(-5, a.certificates);
    EXPECT_EQ(-5, a.check);
    EXPECT_EQ(-5, a.buffer);
    EXPECT_FALSE(a.bufferWritten);
    EXPECT_EQ(-5, a.import);
    EXPECT_EQ(-5, a.install);
    EXPECT_EQ(0, a.validate);
    EXPECT_FALSE(a.rewriteOwn);
    EXPECT_EQ(Wide(OwnPath()), a.rewriteOwnRefused);
    EXPECT_FALSE(a.rewriteNew);
    EXPECT_EQ(Wide(NewPath()), a.rewriteNewRefused);
    EXPECT_FALSE(a.serverList);
    EXPECT_EQ(Wide(OwnPath()), a.serverListRefused);
    EXPECT_FALSE(FileExists(m_config.dataDir() + "/etc/ServerSiteList.xml"));
    EXPECT_EQ(-5, a.adjust);
  }
}

// The same operations all read the document the faults start from.
TEST_F(WellFormedSiteListTest, EveryReadingPathReadsTheWellFormedDocument) {
  const std::string good = Join(kLines);
  WriteFile(OwnPath(), good);
  WriteFile(NewPath(), good);
  // A management server with a version comes with its key files.
  WriteFile(m_config.dir().file("new/sr2048pubkey.bin"), "server-2048");
  WriteFile(m_config.dir().file("new/req2048seckey.bin"), "request-2048");
  CSitesHelper helper(Wide(OwnPath()));
  const std::wstring path = Wide(OwnPath());
  tag_Site* list = nullptr;
  EXPECT_EQ(0, helper.ReadSiteList(path, &list));
  helper.FreeSiteListMemory(list);
  std::wstring g, l, t, fips;
  EXPECT_EQ(0, helper.GetSitelistVersions(path, g, l, t));
  EXPECT_EQ(L"20250101000000", g);
  EXPECT_EQ(0, helper.GetSitelistFipsMode(path, fips));
  EXPECT_EQ(L"0", fips);
  std::vector<std::wstring> certificates;
  EXPECT_EQ(0, helper.GetCaCertificates(path, certificates));
  EXPECT_EQ(std::vector<std::wstring>{L"CERT-1"}, certificates);
  std::filesystem::create_directories(m_config.dir().file("root/opt/Velmora/orx/scratch/etc"));
  EXPECT_EQ(0, helper.CreateSiteListFromBuffer(Wide(good)));
  const std::wstring newPath = Wide(NewPath());
  EXPECT_TRUE(helper.modifySiteList(newPath.c_str(), true, true, AString(L"")));
  const std::wstring etc = Wide(m_config.dataDir() + "/etc");
  EXPECT_TRUE(CSitesHelper::createServerSiteListFromSiteList(etc.c_str(), nullptr));
  AnObjectBuffer<unsigned char> bytes(reinterpret_cast<const unsigned char*>(good.data()), good.size());
  EXPECT_EQ(0, helper.AdjustPwd(bytes));
  tag_DocumentCheck refusal;
  EXPECT_FALSE(CSitesHelper::GetLastXmlRefusal(refusal));
}

}  // namespace
