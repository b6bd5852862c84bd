// Ranking the vendor's default HTTP update site ahead of its default FTP
// update site: which sites are candidates, when the two orders are
// exchanged, and that nothing else of the list changes.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "port/config/IConfiguration.h"
#include "port/log/Log.h"
#include "sitehlp/SiteRecordTestUtil.h"
#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace {

using sitehlp::CSitesHelper;
using sitehlp::tag_Site;
using sitetest::ListsEqual;
using sitetest::NewSite;
using sitetest::Set;
using sitetest::SiteList;

const wchar_t kHttpHost[] = L"updates.repo.example";
const wchar_t kFtpHost[] = L"ftp.repo.example";
const wchar_t kExchanged[] = L"Exchanged orders for ZelHttp and ZelFtp.";

tag_Site* HttpSite(const std::wstring& server, int order, int port = 80) {
  tag_Site* s = NewSite(sitehlp::SITE_TYPE_HTTP);
  s->bEnabled = 1;
  s->nOrder = order;
  Set(s->szType, L"repository");
  Set(s->httpSite.szSiteElement, L"HttpSite");
  Set(s->httpSite.szName, L"Http " + std::to_wstring(order));
  Set(s->httpSite.szServer, server);
  s->httpSite.nPort = port;
  return s;
}

tag_Site* FtpSite(const std::wstring& server, int order, int port = 21) {
  tag_Site* s = NewSite(sitehlp::SITE_TYPE_FTP);
  s->bEnabled = 1;
  s->nOrder = order;
  Set(s->szType, L"repository");
  Set(s->ftpSite.szName, L"Ftp " + std::to_wstring(order));
  Set(s->ftpSite.szServer, server);
  s->ftpSite.nPort = port;
  return s;
}

class SiteOrderTest : public ::testing::Test {
 protected:
  SiteOrderTest() {
    port::SetConfigValue(port::ConfigKey::DefaultHttpHost, testsupport::Narrow(kHttpHost));
    port::SetConfigValue(port::ConfigKey::DefaultFtpHost, testsupport::Narrow(kFtpHost));
  }

  // Runs the adjustment on m_list and returns the log lines it wrote.
  std::vector<std::wstring> Adjust() {
    m_before.reset(sitetest::CopyList(m_list.head()));
    testsupport::CapturingLogSink sink;
    m_helper.AdjustSitesOrder(m_list.head());
    for (const auto& line : sink.lines())
      if (line.message == kExchanged) m_exchangeLines.push_back(line);
    return sink.allMessages();
  }

  std::vector<int> Orders() const {
    std::vector<int> orders;
    for (const tag_Site* s = m_list.head(); s; s = s->pNext) orders.push_back(s->nOrder);
    return orders;
  }

  // The list as before, apart from the orders the test expects.
  ::testing::AssertionResult OnlyOrdersChanged(const std::vector<int>& orders) {
    std::size_t i = 0;
    for (tag_Site* s = m_before.head(); s; s = s->pNext, ++i) s->nOrder = orders.at(i);
    return ListsEqual(m_before.head(), m_list.head());
  }

  testsupport::ConfigScope m_config;
  CSitesHelper m_helper{m_config.dir().wfile("SiteList.xml")};
  SiteList m_list{m_helper};
  SiteList m_before{m_helper};
  std::vector<testsupport::LogLine> m_exchangeLines;
};

TEST_F(SiteOrderTest, FtpAheadOfHttpExchangesTheirOrdersAndLogsIt) {
  tag_Site* http = m_list.append(HttpSite(kHttpHost, 3));
  tag_Site* ftp = m_list.append(FtpSite(kFtpHost, 1));
  EXPECT_EQ(Adjust(), std::vector<std::wstring>{kExchanged});
  EXPECT_EQ(http->nOrder, 1);
  EXPECT_EQ(ftp->nOrder, 3);
  ASSERT_EQ(m_exchangeLines.size(), 1u);
  EXPECT_EQ(m_exchangeLines[0].level, port::LogLevel::Info);
  EXPECT_EQ(m_exchangeLines[0].component, L"SiteHlp");
}

TEST_F(SiteOrderTest, TheExchangeMovesNoRecordAndChangesNothingElse) {
  m_list.append(HttpSite(L"other.repo.example", 2));
  tag_Site* ftp = m_list.append(FtpSite(kFtpHost, 1));
  tag_Site* middle = m_list.append(HttpSite(L"mirror.repo.example", 4));
  tag_Site* http = m_list.append(HttpSite(kHttpHost, 5));
  EXPECT_EQ(Adjust(), std::vector<std::wstring>{kExchanged});
  EXPECT_EQ(m_list.at(1), ftp);
  EXPECT_EQ(m_list.at(2), middle);
  EXPECT_EQ(m_list.at(3), http);
  EXPECT_TRUE(OnlyOrdersChanged({2, 5, 4, 1}));
}

TEST_F(SiteOrderTest, HostsAreComparedWithoutRegardToCase) {
  m_list.append(FtpSite(L"FTP.Repo.Example", 2));
  m_list.append(HttpSite(L"UPDATES.REPO.EXAMPLE", 7));
  Adjust();
  EXPECT_EQ(Orders(), (std::vector<int>{7, 2}));
}

TEST_F(SiteOrderTest, EqualOrdersChangeNothingAndLogNothing) {
  m_list.append(HttpSite(kHttpHost, 2));
  m_list.append(FtpSite(kFtpHost, 2));
  EXPECT_TRUE(Adjust().empty());
  EXPECT_TRUE(OnlyOrdersChanged({2, 2}));
}

TEST_F(SiteOrderTest, HttpAlreadyAheadChangesNothingAndLogsNothing) {
  m_list.append(FtpSite(kFtpHost, 4));
  m_list.append(HttpSite(kHttpHost, 1));
  EXPECT_TRUE(Adjust().empty());
  EXPECT_TRUE(OnlyOrdersChanged({4, 1}));
}

TEST_F(SiteOrderTest, AnHttpOrderOfZeroChangesNothing) {
  m_list.append(HttpSite(kHttpHost, 0));
  m_list.append(FtpSite(kFtpHost, 1));
  EXPECT_TRUE(Adjust().empty());
  EXPECT_TRUE(OnlyOrdersChanged({0, 1}));
}

TEST_F(SiteOrderTest, AnFtpOrderOfZeroChangesNothing) {
  m_list.append(HttpSite(kHttpHost, 3));
  m_list.append(FtpSite(kFtpHost, 0));
  EXPECT_TRUE(Adjust().empty());
  EXPECT_TRUE(OnlyOrdersChanged({3, 0}));
}

TEST_F(SiteOrderTest, NegativeOrdersAreExchangedLikeAnyOtherNonZeroOrder) {
  m_list.append(HttpSite(kHttpHost, -1));
  m_list.append(FtpSite(kFtpHost, -5));
  EXPECT_EQ(Adjust(), std::vector<std::wstring>{kExchanged});
  EXPECT_EQ(Orders(), (std::vector<int>{-5, -1}));
}

TEST_F(SiteOrderTest, TheDefaultHttpHostOnAnotherPortIsNoCandidate) {
  for (int port : {0, 443, 8080, 21}) {
    SCOPED_TRACE(port);
    m_list.reset(nullptr);
    m_list.append(HttpSite(kHttpHost, 3, port));
    m_list.append(FtpSite(kFtpHost, 1));
    EXPECT_TRUE(Adjust().empty());
    EXPECT_EQ(Orders(), (std::vector<int>{3, 1}));
  }
}

TEST_F(SiteOrderTest, TheDefaultFtpHostOnAnotherPortIsNoCandidate) {
  m_list.append(HttpSite(kHttpHost, 3));
  m_list.append(FtpSite(kFtpHost, 1, 80));
  EXPECT_TRUE(Adjust().empty());
  EXPECT_EQ(Orders(), (std::vector<int>{3, 1}));
}

TEST_F(SiteOrderTest, ADisabledDefaultFtpSiteIsNoCandidate) {
  m_list.append(HttpSite(kHttpHost, 3));
  m_list.append(FtpSite(kFtpHost, 1))->bEnabled = 0;
  EXPECT_TRUE(Adjust().empty());
  EXPECT_EQ(Orders(), (std::vector<int>{3, 1}));
}

TEST_F(SiteOrderTest, AnEnabledFlagOtherThanOneIsNoCandidate) {
  m_list.append(HttpSite(kHttpHost, 3))->bEnabled = 2;
  m_list.append(FtpSite(kFtpHost, 1));
  EXPECT_TRUE(Adjust().empty());
  EXPECT_EQ(Orders(), (std::vector<int>{3, 1}));
}

TEST_F(SiteOrderTest, ASiteMarkedLocalIsNoCandidate) {
  m_list.append(HttpSite(kHttpHost, 3))->bLocal = 1;
  m_list.append(FtpSite(kFtpHost, 1));
  EXPECT_TRUE(Adjust().empty());
  m_list.reset(nullptr);
  m_list.append(HttpSite(kHttpHost, 3));
  m_list.append(FtpSite(kFtpHost, 1))->bLocal = 1;
  EXPECT_TRUE(Adjust().empty());
  EXPECT_EQ(Orders(), (std::vector<int>{3, 1}));
}

TEST_F(SiteOrderTest, AFallbackSiteIsNoCandidate) {
  Set(m_list.append(HttpSite(kHttpHost, 3))->szType, L"FallBack");
  m_list.append(FtpSite(kFtpHost, 1));
  EXPECT_TRUE(Adjust().empty());
  EXPECT_EQ(Orders(), (std::vector<int>{3, 1}));
}

TEST_F(SiteOrderTest, TheHostMustMatchTheWholeServerText) {
  for (const std::wstring& server : {std::wstring(kHttpHost) + L".", std::wstring(L"a.") + kHttpHost,
                                    std::wstring(kHttpHost) + L":80", std::wstring(kHttpHost).substr(1)}) {
    SCOPED_TRACE(testsupport::Narrow(server));
    m_list.reset(nullptr);
    m_list.append(HttpSite(server, 3));
    m_list.append(FtpSite(kFtpHost, 1));
    EXPECT_TRUE(Adjust().empty());
    EXPECT_EQ(Orders(), (std::vector<int>{3, 1}));
  }
}

TEST_F(SiteOrderTest, TheKindDecidesWhichHostIsCompared) {
  // The FTP host on an HTTP record and the HTTP host on an FTP record are no
  // candidates, whatever their ports.
  m_list.append(HttpSite(kFtpHost, 3, 21));
  m_list.append(FtpSite(kHttpHost, 1, 80));
  EXPECT_TRUE(Adjust().empty());
  EXPECT_EQ(Orders(), (std::vector<int>{3, 1}));
}

TEST_F(SiteOrderTest, OfTwoDefaultHttpSitesOnlyTheFirstCounts) {
  m_list.append(HttpSite(kHttpHost, 1));  // already ahead of the FTP site
  m_list.append(HttpSite(kHttpHost, 5));
  m_list.append(FtpSite(kFtpHost, 2));
  EXPECT_TRUE(Adjust().empty());
  EXPECT_EQ(Orders(), (std::vector<int>{1, 5, 2}));

  m_list.reset(nullptr);
  m_list.append(HttpSite(kHttpHost, 6));
  m_list.append(HttpSite(kHttpHost, 1));
  m_list.append(FtpSite(kFtpHost, 2));
  EXPECT_EQ(Adjust(), std::vector<std::wstring>{kExchanged});
  EXPECT_EQ(Orders(), (std::vector<int>{2, 1, 6}));
}

TEST_F(SiteOrderTest, OfTwoDefaultFtpSitesOnlyTheFirstCounts) {
  m_list.append(FtpSite(kFtpHost, 4));
  m_list.append(FtpSite(kFtpHost, 1));
  m_list.append(HttpSite(kHttpHost, 3));
  EXPECT_TRUE(Adjust().empty());
  EXPECT_EQ(Orders(), (std::vector<int>{4, 1, 3}));
}

TEST_F(SiteOrderTest, AFirstDefaultSiteThatIsNoCandidateLetsALaterOneCount) {
  m_list.append(HttpSite(kHttpHost, 2))->bEnabled = 0;
  m_list.append(HttpSite(kHttpHost, 9));
  m_list.append(FtpSite(kFtpHost, 3));
  EXPECT_EQ(Adjust(), std::vector<std::wstring>{kExchanged});
  EXPECT_EQ(Orders(), (std::vector<int>{2, 3, 9}));
}

TEST_F(SiteOrderTest, AListWithOnlyOneOfTheTwoDefaultSitesChangesNothing) {
  m_list.append(HttpSite(kHttpHost, 3));
  m_list.append(FtpSite(L"ftp.other.example", 1));
  EXPECT_TRUE(Adjust().empty());
  EXPECT_TRUE(OnlyOrdersChanged({3, 1}));

  m_list.reset(nullptr);
  m_list.append(HttpSite(L"updates.other.example", 3));
  m_list.append(FtpSite(kFtpHost, 1));
  EXPECT_TRUE(Adjust().empty());
  EXPECT_TRUE(OnlyOrdersChanged({3, 1}));
}

TEST_F(SiteOrderTest, ANullListIsAcceptedAndChangesNothing) {
  testsupport::CapturingLogSink sink;
  m_helper.AdjustSitesOrder(nullptr);
  EXPECT_TRUE(sink.allMessages().empty());
  // The trace scope names the step.
  ASSERT_FALSE(sink.lines().empty());
  EXPECT_EQ(sink.lines().front().message, L"Entering Adjusting sitelist order");
  EXPECT_EQ(sink.lines().front().component, L"SiteHlp");
}

TEST_F(SiteOrderTest, TheHostsComeFromTheConfiguration) {
  port::SetConfigValue(port::ConfigKey::DefaultHttpHost, "get.mirror.example");
  port::SetConfigValue(port::ConfigKey::DefaultFtpHost, "files.mirror.example");
  m_list.append(HttpSite(kHttpHost, 3));
  m_list.append(FtpSite(kFtpHost, 1));
  m_list.append(HttpSite(L"get.mirror.example", 8));
  m_list.append(FtpSite(L"files.mirror.example", 6));
  EXPECT_EQ(Adjust(), std::vector<std::wstring>{kExchanged});
  EXPECT_EQ(Orders(), (std::vector<int>{3, 1, 6, 8}));
}

}  // namespace
