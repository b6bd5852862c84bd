// Merging site lists: the six merge operations one by one, the merge as a
// whole over every combination of inputs (checked against a model of the
// rules), and who owns which record when memory runs out.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <wchar.h>

#include "port/log/Log.h"
#include "sitehlp/AllocationTestUtil.h"
#include "sitehlp/SiteRecordTestUtil.h"
#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace {

using sitehlp::CSitesHelper;
using sitehlp::tag_Site;
using sitetest::AllocationControl;
using sitetest::ExpectNoLeak;
using sitetest::ListsEqual;
using sitetest::NewSite;
using sitetest::RecordsEqual;
using sitetest::Set;
using sitetest::SiteList;
using testsupport::Wide;

// ---- records -----------------------------------------------------------------------------------

tag_Site* Http(const std::wstring& name, int order = 1, const std::wstring& element = L"HttpSite",
               const std::wstring& type = L"repository") {
  tag_Site* s = NewSite(sitehlp::SITE_TYPE_HTTP);
  s->bEnabled = 1;
  s->nOrder = order;
  Set(s->szType, type);
  Set(s->httpSite.szSiteElement, element);
  Set(s->httpSite.szName, name);
  Set(s->httpSite.szServer, name + L".corp.example");
  s->httpSite.nPort = 80;
  Set(s->httpSite.szRelativePath, L"Software/" + name);
  return s;
}

tag_Site* Spipe(const std::wstring& name, int order = 0) {
  tag_Site* s = Http(name, order, L"SpipeSite", L"master");
  s->bSpipeOrSuperAgent = 1;
  Set(s->httpSite.szServerIP, L"192.0.2.7");
  Set(s->httpSite.szServerName, L"NB-" + name);
  s->httpSite.nServerIPPort = 443;
  s->httpSite.nServerNamePort = 443;
  Set(s->httpSite.szVersion, L"5.0");
  return s;
}

tag_Site* Ftp(const std::wstring& name, const std::wstring& type = L"repository") {
  tag_Site* s = NewSite(sitehlp::SITE_TYPE_FTP);
  s->bEnabled = 1;
  s->nOrder = 2;
  Set(s->szType, type);
  Set(s->ftpSite.szName, name);
  Set(s->ftpSite.szServer, name + L".ftp.example");
  s->ftpSite.nPort = 21;
  return s;
}

tag_Site* Unc(const std::wstring& name, const std::wstring& type = L"repository") {
  tag_Site* s = NewSite(sitehlp::SITE_TYPE_UNC);
  Set(s->szType, type);
  Set(s->uncSite.szName, name);
  Set(s->uncSite.szServer, L"\\\\" + name);
  Set(s->uncSite.szShareName, L"share");
  return s;
}

tag_Site* Local(const std::wstring& name) {
  tag_Site* s = NewSite(sitehlp::SITE_TYPE_LOCAL);
  Set(s->szType, L"repository");
  Set(s->localSite.szName, name);
  Set(s->localSite.szRelativePath, L"/srv/" + name);
  return s;
}

tag_Site* Proxy(const std::wstring& name) {
  tag_Site* s = NewSite(sitehlp::SITE_TYPE_PROXY);
  Set(s->proxySettings.szName, name);
  Set(s->proxySettings.szHttpProxyServer, L"proxy.corp.example");
  s->proxySettings.nHttpProxyPort = 3128;
  Set(s->proxySettings.szExclusionList, L"a.example;b.example");
  s->proxySettings.nExclusionCount = 2;
  return s;
}

// A record of a kind no site has; its name sits where an HTTP site's would.
tag_Site* OddKind(int kind, const std::wstring& name) {
  tag_Site* s = NewSite(kind);
  Set(s->szType, L"repository");
  Set(s->httpSite.szName, name);
  return s;
}

tag_Site* HttpFallback(const std::wstring& name) { return Http(name, 0, L"HttpSite", L"fallback"); }
tag_Site* FtpFallback(const std::wstring& name) { return Ftp(name, L"fallback"); }

tag_Site* Chain(std::initializer_list<tag_Site*> sites) {
  tag_Site* head = nullptr;
  tag_Site* tail = nullptr;
  for (tag_Site* s : sites) {
    s->pNext = nullptr;
    if (tail)
      tail->pNext = s;
    else
      head = s;
    tail = s;
  }
  return head;
}

std::wstring NameOf(const tag_Site* s) {
  switch (s->nSiteType) {
    case sitehlp::SITE_TYPE_FTP: return s->ftpSite.szName;
    case sitehlp::SITE_TYPE_UNC: return s->uncSite.szName;
    case sitehlp::SITE_TYPE_LOCAL: return s->localSite.szName;
    case sitehlp::SITE_TYPE_PROXY: return s->proxySettings.szName;
    default: return s->httpSite.szName;
  }
}

std::vector<std::wstring> Names(const tag_Site* list) {
  std::vector<std::wstring> names;
  for (const tag_Site* s = list; s; s = s->pNext) names.push_back(NameOf(s));
  return names;
}

using Names_t = std::vector<std::wstring>;

// No record of result is a record of any of the inputs.
::testing::AssertionResult SharesNothing(const tag_Site* result, std::initializer_list<const tag_Site*> inputs) {
  std::set<const tag_Site*> inputNodes;
  for (const tag_Site* list : inputs)
    for (const tag_Site* s = list; s; s = s->pNext) inputNodes.insert(s);
  for (const tag_Site* s = result; s; s = s->pNext)
    if (inputNodes.count(s)) return ::testing::AssertionFailure() << "record " << testsupport::Narrow(NameOf(s)) << " is shared";
  return ::testing::AssertionSuccess();
}


// ---- the agent's own list on disk ---------------------------------------------------------------

std::string Document(const std::string& sites) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20200101010101\" "
         "LocalVersion=\"20200202020202\" Type=\"Client\"><SiteList Default=\"1\" Name=\"SomeGUID\">" +
         sites + "</SiteList></ns:SiteLists>\n";
}

std::string HttpXml(const std::string& name, const std::string& element = "HttpSite",
                    const std::string& type = "repository") {
  return "<" + element + " Type=\"" + type + "\" Name=\"" + name + "\" Order=\"3\" Enabled=\"1\" Local=\"0\" Server=\"" +
         name + ".own.example:80\" ServerName=\"NB" + name + ":80\" ServerIP=\"198.51.100.4:80\" Version=\"4.1\">"
         "<RelativePath>Software</RelativePath><UseAuth>0</UseAuth></" + element + ">";
}
std::string SpipeXml(const std::string& name) { return HttpXml(name, "SpipeSite", "master"); }
std::string FtpFallbackXml(const std::string& name) {
  return "<FTPSite Type=\"fallback\" Name=\"" + name + "\" Order=\"9\" Enabled=\"1\" Local=\"0\" Server=\"" + name +
         ".ftp.example:21\"><RelativePath>Pub</RelativePath></FTPSite>";
}
std::string ProxyXml(const std::string& name) {
  return "<ProxyConfigList><ProxyConfig Name=\"" + name +
         "\" HttpProxyServer=\"proxy.own.example\" HttpProxyPort=\"8080\"><ExclusionList><ExclusionHost>x.example"
         "</ExclusionHost></ExclusionList></ProxyConfig></ProxyConfigList>";
}

class MergeTest : public ::testing::Test {
 protected:
  void WriteOwnList(const std::string& sites) { testsupport::WriteFile(m_path, Document(sites)); }

  // The own list as the reader gives it, for exact comparisons.
  tag_Site* ReadOwnList() {
    tag_Site* list = nullptr;
    EXPECT_EQ(m_helper.ReadSiteList(Wide(m_path), &list), 0);
    return list;
  }

  // A copy of the index-th record of list, detached.
  static tag_Site* CopyOf(const tag_Site* list, std::size_t index) {
    while (index--) list = list->pNext;
    tag_Site* copy = NewSite(list->nSiteType);
    std::memcpy(copy, list, sizeof(tag_Site));
    copy->pNext = nullptr;
    return copy;
  }

  testsupport::ConfigScope m_config;
  std::string m_path = m_config.dir().file("SiteList.xml");
  CSitesHelper m_helper{Wide(m_path)};
};

// ---- MergeThisSiteList ---------------------------------------------------------------------------

TEST_F(MergeTest, MergeThisSiteListRejectsMissingArguments) {
  SiteList list(m_helper, Chain({Http(L"a")}));
  tag_Site* head = nullptr;
  tag_Site* tail = nullptr;
  EXPECT_EQ(m_helper.MergeThisSiteList(nullptr, false, &tail, &head), -2);
  EXPECT_EQ(m_helper.MergeThisSiteList(list.head(), false, nullptr, &head), -2);
  EXPECT_EQ(m_helper.MergeThisSiteList(list.head(), false, &tail, nullptr), -2);
  EXPECT_EQ(head, nullptr);
  EXPECT_EQ(tail, nullptr);
}

TEST_F(MergeTest, MergeThisSiteListCopiesKindsZeroToFourInOrder) {
  SiteList source(m_helper, Chain({Http(L"h"), Ftp(L"f"), Unc(L"u"), Local(L"l"), Proxy(L"p")}));
  SiteList expected(m_helper, sitetest::CopyList(source.head()));
  SiteList result(m_helper);
  tag_Site* tail = nullptr;
  EXPECT_EQ(m_helper.MergeThisSiteList(source.head(), false, &tail, result.out()), 0);
  EXPECT_TRUE(ListsEqual(expected.head(), result.head()));
  EXPECT_EQ(tail, result.at(4));
  EXPECT_EQ(tail->pNext, nullptr);
  EXPECT_TRUE(SharesNothing(result.head(), {source.head()}));
}

TEST_F(MergeTest, MergeThisSiteListDropsProxyRecordsWhenAskedTo) {
  SiteList source(m_helper, Chain({Proxy(L"p1"), Http(L"h"), Proxy(L"p2")}));
  SiteList result(m_helper);
  tag_Site* tail = nullptr;
  EXPECT_EQ(m_helper.MergeThisSiteList(source.head(), true, &tail, result.out()), 0);
  EXPECT_EQ(Names(result.head()), Names_t{L"h"});
  EXPECT_EQ(tail, result.head());
}

TEST_F(MergeTest, MergeThisSiteListDropsRecordsOfUnknownKinds) {
  SiteList source(m_helper, Chain({OddKind(5, L"k5"), Http(L"h"), OddKind(-1, L"km1"), OddKind(7, L"k7")}));
  SiteList result(m_helper);
  tag_Site* tail = nullptr;
  EXPECT_EQ(m_helper.MergeThisSiteList(source.head(), false, &tail, result.out()), 0);
  EXPECT_EQ(Names(result.head()), Names_t{L"h"});
  EXPECT_EQ(tail->pNext, nullptr);
}

TEST_F(MergeTest, MergeThisSiteListAppendsBehindTheGivenTail) {
  SiteList result(m_helper, Chain({Http(L"first")}));
  tag_Site* tail = result.head();
  SiteList source(m_helper, Chain({Ftp(L"second"), Unc(L"third")}));
  tag_Site* head = result.head();
  EXPECT_EQ(m_helper.MergeThisSiteList(source.head(), false, &tail, &head), 0);
  EXPECT_EQ(head, result.head());
  EXPECT_EQ(Names(result.head()), (Names_t{L"first", L"second", L"third"}));
  EXPECT_EQ(tail, result.at(2));
}

TEST_F(MergeTest, MergeThisSiteListCopiesAreIndependentOfTheirSources) {
  SiteList source(m_helper, Chain({Http(L"h")}));
  SiteList result(m_helper);
  tag_Site* tail = nullptr;
  ASSERT_EQ(m_helper.MergeThisSiteList(source.head(), false, &tail, result.out()), 0);
  Set(source.head()->httpSite.szName, L"changed");
  source.reset(nullptr);
  EXPECT_EQ(Names(result.head()), Names_t{L"h"});
}

TEST_F(MergeTest, MergeThisSiteListStopsAtTheFailedAllocationKeepingWhatWasCopied) {
  SiteList source(m_helper, Chain({Http(L"a"), Http(L"b"), Http(L"c")}));
  SiteList result(m_helper);
  tag_Site* tail = nullptr;
  {
    AllocationControl control(AllocationControl::Once, 1);
    EXPECT_EQ(m_helper.MergeThisSiteList(source.head(), false, &tail, result.out()), -3);
    EXPECT_EQ(AllocationControl::count(), 2);  // the walk stopped at b
  }
  EXPECT_EQ(Names(result.head()), Names_t{L"a"});
  EXPECT_EQ(tail, result.head());
  EXPECT_EQ(tail->pNext, nullptr);
}

// ---- GetSpipeSite --------------------------------------------------------------------------------

TEST_F(MergeTest, GetSpipeSiteRejectsMissingArguments) {
  SiteList list(m_helper, Chain({Spipe(L"s")}));
  tag_Site* out = nullptr;
  EXPECT_EQ(m_helper.GetSpipeSite(nullptr, &out), -2);
  EXPECT_EQ(m_helper.GetSpipeSite(list.head(), nullptr), -2);
}

TEST_F(MergeTest, GetSpipeSiteWithoutSpipeSiteIsMinusEight) {
  // An FTP site named "SpipeSite" has that text where an HTTP site keeps its
  // element name; it is still no SPIPE site.
  SiteList list(m_helper, Chain({Http(L"h", 1, L"SuperAgentSite"), Ftp(L"SpipeSite"), Http(L"x")}));
  SiteList out(m_helper);
  EXPECT_EQ(m_helper.GetSpipeSite(list.head(), out.out()), -8);
  EXPECT_EQ(out.head(), nullptr);
}

TEST_F(MergeTest, GetSpipeSiteCopiesEverySpipeSiteInListOrder) {
  tag_Site* lower = Http(L"s2", 0, L"spipesite", L"master");
  SiteList list(m_helper, Chain({Http(L"h"), Spipe(L"s1"), Ftp(L"f"), lower, Spipe(L"s3")}));
  SiteList out(m_helper);
  EXPECT_EQ(m_helper.GetSpipeSite(list.head(), out.out()), 0);
  ASSERT_EQ(Names(out.head()), (Names_t{L"s1", L"s2", L"s3"}));
  EXPECT_TRUE(RecordsEqual(*list.at(1), *out.at(0)));
  EXPECT_TRUE(RecordsEqual(*list.at(3), *out.at(1)));
  EXPECT_TRUE(RecordsEqual(*list.at(4), *out.at(2)));
  EXPECT_EQ(out.at(2)->pNext, nullptr);
  EXPECT_TRUE(SharesNothing(out.head(), {list.head()}));
}

TEST_F(MergeTest, GetSpipeSiteOutOfMemoryKeepsTheCopiesMadeSoFar) {
  SiteList list(m_helper, Chain({Spipe(L"s1"), Spipe(L"s2"), Spipe(L"s3")}));
  SiteList out(m_helper);
  AllocationControl control(AllocationControl::Once, 2);
  EXPECT_EQ(m_helper.GetSpipeSite(list.head(), out.out()), -3);
  EXPECT_EQ(Names(out.head()), (Names_t{L"s1", L"s2"}));
}

// ---- GetFallbackSite ------------------------------------------------------------------------------

TEST_F(MergeTest, GetFallbackSiteRejectsMissingArguments) {
  SiteList list(m_helper, Chain({HttpFallback(L"fb")}));
  tag_Site* out = nullptr;
  EXPECT_EQ(m_helper.GetFallbackSite(nullptr, &out), -2);
  EXPECT_EQ(m_helper.GetFallbackSite(list.head(), nullptr), -2);
}

TEST_F(MergeTest, GetFallbackSiteWithoutFallbackSiteIsMinusOne) {
  // A fallback site of any kind but HTTP or FTP does not count.
  SiteList list(m_helper, Chain({Http(L"h"), Unc(L"u", L"fallback")}));
  tag_Site* out = nullptr;
  EXPECT_EQ(m_helper.GetFallbackSite(list.head(), &out), -1);
  EXPECT_EQ(out, nullptr);
}

TEST_F(MergeTest, GetFallbackSiteCopiesTheFirstHttpOrFtpFallbackSiteIgnoringCase) {
  tag_Site* first = Ftp(L"fb1", L"FallBack");
  SiteList list(m_helper, Chain({Unc(L"u", L"fallback"), Http(L"h"), first, HttpFallback(L"fb2")}));
  SiteList out(m_helper);
  EXPECT_EQ(m_helper.GetFallbackSite(list.head(), out.out()), 0);
  ASSERT_NE(out.head(), nullptr);
  EXPECT_NE(out.head(), first);
  EXPECT_TRUE(RecordsEqual(*first, *out.head()));
  EXPECT_EQ(out.head()->pNext, nullptr);
}

TEST_F(MergeTest, GetFallbackSiteOutOfMemoryLeavesTheOutputNull) {
  SiteList list(m_helper, Chain({HttpFallback(L"fb")}));
  tag_Site* out = reinterpret_cast<tag_Site*>(0x10);  // a stale value the call must overwrite
  AllocationControl control(AllocationControl::Once, 0);
  EXPECT_EQ(m_helper.GetFallbackSite(list.head(), &out), -3);
  EXPECT_EQ(out, nullptr);
}

// ---- UpdateFallbackSite ---------------------------------------------------------------------------

TEST_F(MergeTest, UpdateFallbackSiteRejectsMissingArguments) {
  tag_Site* head = nullptr;
  tag_Site* tail = nullptr;
  SiteList fallback(m_helper, Chain({HttpFallback(L"fb")}));
  EXPECT_EQ(m_helper.UpdateFallbackSite(nullptr, &tail, &head), -2);
  EXPECT_EQ(m_helper.UpdateFallbackSite(fallback.head(), nullptr, &head), -2);
  EXPECT_EQ(m_helper.UpdateFallbackSite(fallback.head(), &tail, nullptr), -2);
  EXPECT_EQ(head, nullptr);
}

TEST_F(MergeTest, UpdateFallbackSiteIntoAnEmptyChainMakesItTheHeadAndLeavesTheTail) {
  tag_Site* fallback = HttpFallback(L"fb");
  fallback->pNext = reinterpret_cast<tag_Site*>(0x10);  // cleared by the call
  SiteList result(m_helper);
  tag_Site* tail = nullptr;
  EXPECT_EQ(m_helper.UpdateFallbackSite(fallback, &tail, result.out()), 0);
  EXPECT_EQ(result.head(), fallback);
  EXPECT_EQ(fallback->pNext, nullptr);
  EXPECT_EQ(tail, nullptr);
}

TEST_F(MergeTest, UpdateFallbackSiteOverwritesTheExistingFallbackSiteInPlace) {
  SiteList result(m_helper, Chain({Http(L"a"), HttpFallback(L"old"), Http(L"b")}));
  tag_Site* head = result.head();
  tag_Site* tail = result.at(2);
  tag_Site* place = result.at(1);
  tag_Site* given = FtpFallback(L"new");
  SiteList expected(m_helper, sitetest::CopyList(given));
  EXPECT_EQ(m_helper.UpdateFallbackSite(given, &tail, &head), 0);  // given is freed
  EXPECT_EQ(head, result.head());
  EXPECT_EQ(result.at(1), place);
  EXPECT_TRUE(RecordsEqual(*expected.head(), *place));
  EXPECT_EQ(place->pNext, result.at(2));
  EXPECT_EQ(Names(result.head()), (Names_t{L"a", L"new", L"b"}));
  EXPECT_EQ(tail, result.at(2));
}

TEST_F(MergeTest, UpdateFallbackSiteAppendsBehindTheTailWhenTheChainHasNone) {
  SiteList result(m_helper, Chain({Http(L"a"), Http(L"b")}));
  tag_Site* head = result.head();
  tag_Site* tail = result.at(1);
  tag_Site* given = HttpFallback(L"fb");
  EXPECT_EQ(m_helper.UpdateFallbackSite(given, &tail, &head), 0);
  EXPECT_EQ(Names(result.head()), (Names_t{L"a", L"b", L"fb"}));
  EXPECT_EQ(tail, given);
  EXPECT_EQ(given->pNext, nullptr);
}

TEST_F(MergeTest, UpdateFallbackSiteOfAnotherKindIsAppendedEvenWhenTheChainHasOne) {
  SiteList result(m_helper, Chain({HttpFallback(L"old"), Http(L"a")}));
  tag_Site* head = result.head();
  tag_Site* tail = result.at(1);
  tag_Site* given = Unc(L"uncfb", L"fallback");
  EXPECT_EQ(m_helper.UpdateFallbackSite(given, &tail, &head), 0);
  EXPECT_EQ(Names(result.head()), (Names_t{L"old", L"a", L"uncfb"}));
  EXPECT_EQ(tail, given);
}

TEST_F(MergeTest, UpdateFallbackSiteMatchesAFallbackRecordOfAnyKindInTheChain) {
  SiteList result(m_helper, Chain({Unc(L"uncfb", L"FALLBACK"), Http(L"a")}));
  tag_Site* head = result.head();
  tag_Site* tail = result.at(1);
  EXPECT_EQ(m_helper.UpdateFallbackSite(HttpFallback(L"fb"), &tail, &head), 0);
  EXPECT_EQ(Names(result.head()), (Names_t{L"fb", L"a"}));
  EXPECT_EQ(result.head()->nSiteType, sitehlp::SITE_TYPE_HTTP);
}

TEST_F(MergeTest, UpdateFallbackSiteWithoutKnownTailConsumesTheSite) {
  // A chain that has a head but no tail cannot take the site; it is freed all
  // the same (the sanitizer build would report it otherwise).
  SiteList result(m_helper, Chain({Http(L"a")}));
  tag_Site* head = result.head();
  tag_Site* tail = nullptr;
  EXPECT_EQ(m_helper.UpdateFallbackSite(HttpFallback(L"fb"), &tail, &head), 0);
  EXPECT_EQ(Names(result.head()), Names_t{L"a"});
  EXPECT_EQ(tail, nullptr);
  ExpectNoLeak();
}

// ---- UpdateSpipeSite --------------------------------------------------------------------------------

TEST_F(MergeTest, UpdateSpipeSiteRejectsMissingArguments) {
  SiteList spipe(m_helper, Chain({Spipe(L"s")}));
  tag_Site* head = nullptr;
  tag_Site* tail = nullptr;
  EXPECT_EQ(m_helper.UpdateSpipeSite(nullptr, &tail, &head), -2);
  EXPECT_EQ(m_helper.UpdateSpipeSite(spipe.head(), nullptr, &head), -2);
  EXPECT_EQ(m_helper.UpdateSpipeSite(spipe.head(), &tail, nullptr), -2);
  EXPECT_EQ(head, nullptr);
}

TEST_F(MergeTest, UpdateSpipeSiteIntoAnEmptyChainLinksTheGivenChain) {
  tag_Site* given = Chain({Spipe(L"n1"), Spipe(L"n2")});
  SiteList result(m_helper);
  tag_Site* tail = nullptr;
  EXPECT_EQ(m_helper.UpdateSpipeSite(given, &tail, result.out()), 0);
  EXPECT_EQ(result.head(), given);  // linked, not copied
  EXPECT_EQ(Names(result.head()), (Names_t{L"n1", L"n2"}));
}

TEST_F(MergeTest, UpdateSpipeSiteReplacesTheSpipeSitesAndMovesTheNewOnesToTheEnd) {
  SiteList result(m_helper, Chain({Http(L"a"), Spipe(L"old1"), Http(L"b"), Http(L"c"), Spipe(L"old2"), Http(L"d")}));
  tag_Site* head = result.head();
  tag_Site* tail = result.at(5);
  tag_Site* given = Chain({Spipe(L"n1"), Spipe(L"n2")});
  EXPECT_EQ(m_helper.UpdateSpipeSite(given, &tail, &head), 0);
  EXPECT_EQ(head, result.head());
  EXPECT_EQ(Names(result.head()), (Names_t{L"a", L"b", L"c", L"d", L"n1", L"n2"}));
  EXPECT_EQ(result.at(4), given);
  EXPECT_EQ(tail, result.at(5));
}

TEST_F(MergeTest, UpdateSpipeSiteOfTwoAdjacentSpipeSitesRemovesOnlyTheFirst) {
  SiteList result(m_helper, Chain({Http(L"a"), Spipe(L"old1"), Spipe(L"old2"), Http(L"b")}));
  tag_Site* head = result.head();
  tag_Site* tail = result.at(3);
  EXPECT_EQ(m_helper.UpdateSpipeSite(Chain({Spipe(L"n")}), &tail, &head), 0);
  EXPECT_EQ(Names(result.head()), (Names_t{L"a", L"old2", L"b", L"n"}));
}

TEST_F(MergeTest, UpdateSpipeSiteSkipsOnlyTheOneRecordBehindARemovedSpipeSite) {
  tag_Site* head = Chain({Spipe(L"o1"), Spipe(L"o2"), Spipe(L"o3"), Spipe(L"o4"), Spipe(L"o5")});
  tag_Site* o2 = head->pNext;
  tag_Site* tail = o2->pNext->pNext->pNext;
  tag_Site* given = Chain({Spipe(L"n")});
  EXPECT_EQ(m_helper.UpdateSpipeSite(given, &tail, &head), 0);
  SiteList result(m_helper, head);
  // o1 removed, o2 skipped, o3 removed, o4 skipped, o5 removed.
  EXPECT_EQ(head, o2);
  EXPECT_EQ(Names(head), (Names_t{L"o2", L"o4", L"n"}));
  EXPECT_EQ(tail, given);
}

TEST_F(MergeTest, UpdateSpipeSiteRemovingTheLastRecordEndsTheWalk) {
  SiteList result(m_helper, Chain({Http(L"a"), Spipe(L"old")}));
  tag_Site* head = result.head();
  tag_Site* tail = result.at(1);
  tag_Site* given = Chain({Spipe(L"n")});
  EXPECT_EQ(m_helper.UpdateSpipeSite(given, &tail, &head), 0);
  EXPECT_EQ(Names(result.head()), (Names_t{L"a", L"n"}));
  EXPECT_EQ(tail, given);  // the freed old tail is not left behind
}

TEST_F(MergeTest, UpdateSpipeSiteRemovingTheHeadMovesTheHead) {
  tag_Site* given = Chain({Spipe(L"n")});
  tag_Site* head = Chain({Spipe(L"old")});
  tag_Site* tail = head;
  EXPECT_EQ(m_helper.UpdateSpipeSite(given, &tail, &head), 0);
  SiteList result(m_helper, head);
  EXPECT_EQ(head, given);
  EXPECT_EQ(Names(head), Names_t{L"n"});
}

TEST_F(MergeTest, UpdateSpipeSiteWithoutSpipeSiteHangsTheChainOnTheTailPointerOnly) {
  SiteList result(m_helper, Chain({Http(L"a"), Http(L"b")}));
  tag_Site* head = result.head();
  tag_Site* oldTail = result.at(1);
  tag_Site* tail = oldTail;
  SiteList given(m_helper, Chain({Spipe(L"n1"), Spipe(L"n2")}));
  EXPECT_EQ(m_helper.UpdateSpipeSite(given.head(), &tail, &head), 0);
  // The tail record is not linked to the new chain, so the result does not
  // show the SPIPE sites; the tail pointer moved to them.
  EXPECT_EQ(Names(result.head()), (Names_t{L"a", L"b"}));
  EXPECT_EQ(oldTail->pNext, nullptr);
  EXPECT_EQ(tail, given.head());
  EXPECT_EQ(given.at(1)->pNext, nullptr);  // the old tail's (null) link
}

TEST_F(MergeTest, UpdateSpipeSiteTailRuleCarriesTheTailsLinkBehindTheNewChain) {
  SiteList result(m_helper, Chain({Http(L"a"), Http(L"b")}));
  tag_Site* head = result.head();
  tag_Site* tail = result.at(0);  // a tail that is not the last record
  tag_Site* given = Chain({Spipe(L"n1"), Spipe(L"n2")});
  EXPECT_EQ(m_helper.UpdateSpipeSite(given, &tail, &head), 0);
  EXPECT_EQ(tail, given);
  EXPECT_EQ(given->pNext->pNext, result.at(1));
  EXPECT_EQ(Names(result.head()), (Names_t{L"a", L"b"}));
  std::free(given->pNext);
  std::free(given);
}

// ---- MergeSiteLists: the documented cases --------------------------------------------------------

TEST_F(MergeTest, MergeSiteListsWithoutOutputIsMinusTwoAndLogged) {
  testsupport::CapturingLogSink sink;
  SiteList given(m_helper, Chain({Http(L"a")}));
  EXPECT_EQ(m_helper.MergeSiteLists(given.head(), nullptr, true, nullptr), -2);
  EXPECT_EQ(sink.messages(port::LogLevel::Error), Names_t{L"Final SiteList parameter is invalid"});
  for (const auto& line : sink.lines())
    if (line.level == port::LogLevel::Error) {
      EXPECT_EQ(line.component, L"SiteHlp");
    }
}

TEST_F(MergeTest, WithBaseTheGivenListsProxyRecordsAreDroppedAndTheBasesKept) {
  SiteList base(m_helper, Chain({Http(L"b1"), Proxy(L"baseProxy"), Ftp(L"b2")}));
  SiteList given(m_helper, Chain({Proxy(L"givenProxy"), Http(L"g1"), Unc(L"g2")}));
  SiteList expected(m_helper, sitetest::CopyList(base.head()));
  expected.append(CopyOf(given.head(), 1));
  expected.append(CopyOf(given.head(), 2));
  SiteList result(m_helper);
  EXPECT_EQ(m_helper.MergeSiteLists(given.head(), base.head(), true, result.out()), 0);
  EXPECT_EQ(Names(result.head()), (Names_t{L"b1", L"baseProxy", L"b2", L"g1", L"g2"}));
  EXPECT_TRUE(ListsEqual(expected.head(), result.head()));
  EXPECT_TRUE(SharesNothing(result.head(), {base.head(), given.head()}));
}

TEST_F(MergeTest, WithBaseAndGivenListTheFileIsNotRead) {
  // A missing own list does not matter: the merge only copies its inputs.
  SiteList given(m_helper, Chain({Spipe(L"g")}));
  SiteList result(m_helper);
  EXPECT_EQ(m_helper.MergeSiteLists(given.head(), nullptr, true, result.out()), 0);
  EXPECT_EQ(Names(result.head()), Names_t{L"g"});
}

TEST_F(MergeTest, WithBaseNoGivenListTheFilesFallbackAndSpipeSitesFollowTheBase) {
  WriteOwnList(HttpXml("own") + SpipeXml("ownS1") + FtpFallbackXml("ownFb") + SpipeXml("ownS2"));
  SiteList own(m_helper, ReadOwnList());
  SiteList base(m_helper, Chain({Http(L"b1"), Spipe(L"baseS"), Http(L"b2")}));
  SiteList expected(m_helper, Chain({CopyOf(base.head(), 0), CopyOf(base.head(), 2), CopyOf(own.head(), 2),
                                     CopyOf(own.head(), 1), CopyOf(own.head(), 3)}));
  SiteList result(m_helper);
  EXPECT_EQ(m_helper.MergeSiteLists(nullptr, base.head(), true, result.out()), 0);
  EXPECT_EQ(Names(result.head()), (Names_t{L"b1", L"b2", L"ownFb", L"ownS1", L"ownS2"}));
  EXPECT_TRUE(ListsEqual(expected.head(), result.head()));
}

TEST_F(MergeTest, WithBaseNoGivenListABaseFallbackSiteTakesTheFilesContentsInPlace) {
  WriteOwnList(FtpFallbackXml("ownFb") + SpipeXml("ownS"));
  SiteList own(m_helper, ReadOwnList());
  SiteList base(m_helper, Chain({HttpFallback(L"baseFb"), Spipe(L"baseS"), Http(L"b1")}));
  SiteList result(m_helper);
  EXPECT_EQ(m_helper.MergeSiteLists(nullptr, base.head(), true, result.out()), 0);
  SiteList expected(m_helper, Chain({CopyOf(own.head(), 0), CopyOf(base.head(), 2), CopyOf(own.head(), 1)}));
  EXPECT_EQ(Names(result.head()), (Names_t{L"ownFb", L"b1", L"ownS"}));
  EXPECT_TRUE(ListsEqual(expected.head(), result.head()));
}

TEST_F(MergeTest, WithBaseNoGivenListAndNoBaseSpipeSiteTheTailRuleLeavesTheFilesSpipeSitesOut) {
  WriteOwnList(SpipeXml("ownS") + FtpFallbackXml("ownFb"));
  SiteList base(m_helper, Chain({Http(L"b1")}));
  SiteList result(m_helper);
  EXPECT_EQ(m_helper.MergeSiteLists(nullptr, base.head(), true, result.out()), 0);
  EXPECT_EQ(Names(result.head()), (Names_t{L"b1", L"ownFb"}));
  ExpectNoLeak();  // the SPIPE copies that did not reach the result were freed
}

TEST_F(MergeTest, WithBaseNoGivenListAndNoBaseTheFilesFallbackAndSpipeSitesAreTheResult) {
  WriteOwnList(HttpXml("own") + SpipeXml("ownS") + FtpFallbackXml("ownFb"));
  SiteList result(m_helper);
  EXPECT_EQ(m_helper.MergeSiteLists(nullptr, nullptr, true, result.out()), 0);
  // The fallback site becomes the head of the empty result; with no tail
  // known and no SPIPE site in it, the SPIPE sites stay out.
  EXPECT_EQ(Names(result.head()), Names_t{L"ownFb"});
  ExpectNoLeak();
}

TEST_F(MergeTest, WithBaseNoGivenListAMissingFileFailsWithItsCodeAndFreesTheResult) {
  SiteList base(m_helper, Chain({Http(L"b1"), Http(L"b2")}));
  tag_Site* result = nullptr;
  EXPECT_EQ(m_helper.MergeSiteLists(nullptr, base.head(), true, &result), -4);
  EXPECT_EQ(result, nullptr);
  EXPECT_EQ(Names(base.head()), (Names_t{L"b1", L"b2"}));
  ExpectNoLeak();
}

TEST_F(MergeTest, WithBaseNoGivenListAFileWithoutSitesKeepsTheBase) {
  WriteOwnList("");
  SiteList base(m_helper, Chain({Http(L"b1")}));
  SiteList result(m_helper);
  EXPECT_EQ(m_helper.MergeSiteLists(nullptr, base.head(), true, result.out()), 0);
  EXPECT_EQ(Names(result.head()), Names_t{L"b1"});
}

TEST_F(MergeTest, WithoutBaseTheBaseListIsIgnoredEntirely) {
  WriteOwnList(HttpXml("own1") + ProxyXml("ownProxy") + HttpXml("own2"));
  SiteList own(m_helper, ReadOwnList());
  SiteList base(m_helper, Chain({Http(L"b1"), Spipe(L"baseS"), HttpFallback(L"baseFb")}));
  SiteList result(m_helper);
  EXPECT_EQ(m_helper.MergeSiteLists(nullptr, base.head(), false, result.out()), 0);
  EXPECT_TRUE(ListsEqual(own.head(), result.head()));
  EXPECT_TRUE(SharesNothing(result.head(), {base.head()}));
}

TEST_F(MergeTest, WithoutBaseAGivenListWithoutSpipeSitesLeavesTheFilesSpipeSites) {
  WriteOwnList(HttpXml("own1") + SpipeXml("ownS") + HttpXml("own2"));
  SiteList own(m_helper, ReadOwnList());
  SiteList given(m_helper, Chain({Http(L"g1"), Proxy(L"gp")}));
  SiteList result(m_helper);
  EXPECT_EQ(m_helper.MergeSiteLists(given.head(), nullptr, false, result.out()), 0);
  // Only the given list's fallback and SPIPE sites would be taken over.
  EXPECT_TRUE(ListsEqual(own.head(), result.head()));
}

TEST_F(MergeTest, WithoutBaseTheGivenListsSpipeSitesReplaceTheFilesAtTheEnd) {
  WriteOwnList(HttpXml("own1") + SpipeXml("ownS") + HttpXml("own2"));
  SiteList own(m_helper, ReadOwnList());
  SiteList given(m_helper, Chain({Spipe(L"g1"), Http(L"gh"), Spipe(L"g2")}));
  SiteList expected(m_helper, Chain({CopyOf(own.head(), 0), CopyOf(own.head(), 2), CopyOf(given.head(), 0),
                                     CopyOf(given.head(), 2)}));
  SiteList result(m_helper);
  EXPECT_EQ(m_helper.MergeSiteLists(given.head(), nullptr, false, result.out()), 0);
  EXPECT_TRUE(ListsEqual(expected.head(), result.head()));
  EXPECT_TRUE(SharesNothing(result.head(), {given.head(), own.head()}));
}

TEST_F(MergeTest, AResultThatHasAFallbackSiteKeepsItInPlaceWithTheGivenSitesContents) {
  WriteOwnList(HttpXml("own1") + FtpFallbackXml("ownFb") + HttpXml("own2"));
  SiteList own(m_helper, ReadOwnList());
  SiteList given(m_helper, Chain({Http(L"g"), HttpFallback(L"givenFb"), HttpFallback(L"secondFb")}));
  SiteList expected(m_helper, Chain({CopyOf(own.head(), 0), CopyOf(given.head(), 1), CopyOf(own.head(), 2)}));
  SiteList result(m_helper);
  EXPECT_EQ(m_helper.MergeSiteLists(given.head(), nullptr, false, result.out()), 0);
  EXPECT_TRUE(ListsEqual(expected.head(), result.head()));
  EXPECT_EQ(result.at(1)->nSiteType, sitehlp::SITE_TYPE_HTTP);
}

TEST_F(MergeTest, AResultWithoutFallbackSiteGetsTheGivenOneAppended) {
  WriteOwnList(HttpXml("own1"));
  SiteList given(m_helper, Chain({FtpFallback(L"givenFb")}));
  SiteList result(m_helper);
  EXPECT_EQ(m_helper.MergeSiteLists(given.head(), nullptr, false, result.out()), 0);
  EXPECT_EQ(Names(result.head()), (Names_t{L"own1", L"givenFb"}));
}

TEST_F(MergeTest, TwoAdjacentSpipeSitesInTheListBeingUpdatedOnlyTheFirstIsRemoved) {
  WriteOwnList(HttpXml("own1") + SpipeXml("ownS1") + SpipeXml("ownS2") + HttpXml("own2"));
  SiteList given(m_helper, Chain({Spipe(L"g")}));
  SiteList result(m_helper);
  EXPECT_EQ(m_helper.MergeSiteLists(given.head(), nullptr, false, result.out()), 0);
  EXPECT_EQ(Names(result.head()), (Names_t{L"own1", L"ownS2", L"own2", L"g"}));
}

TEST_F(MergeTest, RecordKindsOutsideZeroToFourNeverReachTheResult) {
  SiteList base(m_helper, Chain({OddKind(7, L"b7"), Http(L"b1"), OddKind(5, L"b5")}));
  SiteList given(m_helper, Chain({OddKind(9, L"g9"), Ftp(L"g1"), OddKind(-3, L"gm3")}));
  SiteList result(m_helper);
  EXPECT_EQ(m_helper.MergeSiteLists(given.head(), base.head(), true, result.out()), 0);
  EXPECT_EQ(Names(result.head()), (Names_t{L"b1", L"g1"}));
  for (const tag_Site* s = result.head(); s; s = s->pNext) {
    EXPECT_GE(s->nSiteType, 0);
    EXPECT_LE(s->nSiteType, 4);
  }
}

TEST_F(MergeTest, WithoutBaseAMissingFileAndNoGivenSpipeSiteFailsWithTheReadsCode) {
  SiteList given(m_helper, Chain({HttpFallback(L"givenFb"), Http(L"g")}));
  tag_Site* result = nullptr;
  EXPECT_EQ(m_helper.MergeSiteLists(given.head(), nullptr, false, &result), -4);
  EXPECT_EQ(result, nullptr);  // the fallback copy that headed it was freed with it
  ExpectNoLeak();
}

TEST_F(MergeTest, WithoutBaseAMissingFileIsOverriddenByTheGivenSpipeSites) {
  SiteList given(m_helper, Chain({Http(L"g"), Spipe(L"g1"), Spipe(L"g2")}));
  SiteList expected(m_helper, Chain({CopyOf(given.head(), 1), CopyOf(given.head(), 2)}));
  SiteList result(m_helper);
  EXPECT_EQ(m_helper.MergeSiteLists(given.head(), nullptr, false, result.out()), 0);
  EXPECT_TRUE(ListsEqual(expected.head(), result.head()));
}

TEST_F(MergeTest, WithoutBaseAMissingFileLeavesOnlyTheGivenFallbackSiteWhenItHeadsTheResult) {
  // The fallback site heads the empty result without a tail; the SPIPE
  // update finds no SPIPE site and no tail, yet its success is the result.
  SiteList given(m_helper, Chain({Spipe(L"g1"), HttpFallback(L"givenFb")}));
  SiteList result(m_helper);
  EXPECT_EQ(m_helper.MergeSiteLists(given.head(), nullptr, false, result.out()), 0);
  EXPECT_EQ(Names(result.head()), Names_t{L"givenFb"});
  ExpectNoLeak();
}

TEST_F(MergeTest, WithoutBaseAMalformedFileFailsWithMinusFive) {
  testsupport::WriteFile(m_path, "<ns:SiteLists><SiteList>");
  tag_Site* result = nullptr;
  EXPECT_EQ(m_helper.MergeSiteLists(nullptr, nullptr, false, &result), -5);
  EXPECT_EQ(result, nullptr);
}

TEST_F(MergeTest, TheResultOutlivesItsInputs) {
  WriteOwnList(HttpXml("own1") + FtpFallbackXml("ownFb") + SpipeXml("ownS"));
  tag_Site* given = Chain({Spipe(L"g1"), HttpFallback(L"givenFb"), Spipe(L"g2")});
  SiteList own(m_helper, ReadOwnList());
  // own1, the fallback site in place with the given contents, then g1 and g2.
  SiteList expected(m_helper,
                    Chain({CopyOf(own.head(), 0), CopyOf(given, 1), CopyOf(given, 0), CopyOf(given, 2)}));
  own.reset(nullptr);
  tag_Site* result = nullptr;
  ASSERT_EQ(m_helper.MergeSiteLists(given, nullptr, false, &result), 0);
  m_helper.FreeSiteListMemory(given);
  ASSERT_EQ(std::remove(m_path.c_str()), 0);
  EXPECT_TRUE(ListsEqual(expected.head(), result));
  m_helper.FreeSiteListMemory(result);
  ExpectNoLeak();
}

TEST_F(MergeTest, EachStepOpensItsTraceScopeUnderTheComponent) {
  WriteOwnList(HttpXml("own1") + FtpFallbackXml("ownFb") + SpipeXml("ownS"));
  SiteList given(m_helper, Chain({Spipe(L"g1"), HttpFallback(L"givenFb")}));
  SiteList result(m_helper);
  testsupport::CapturingLogSink sink;
  ASSERT_EQ(m_helper.MergeSiteLists(given.head(), nullptr, false, result.out()), 0);
  const std::set<std::wstring> own{L"Merge SiteLists", L"Merge this sitelist", L"Getting fallback site",
                                   L"Updating fallback site", L"Getting Spipe site", L"Updating Sitelist site"};
  Names_t entered;
  for (const auto& line : sink.lines()) {
    if (line.message.rfind(L"Entering ", 0) != 0 || !own.count(line.message.substr(9))) continue;
    entered.push_back(line.message.substr(9));
    EXPECT_EQ(line.component, L"SiteHlp");
    EXPECT_EQ(line.level, port::LogLevel::Detail);
  }
  EXPECT_EQ(entered, (Names_t{L"Merge SiteLists", L"Merge this sitelist", L"Getting fallback site",
                              L"Updating fallback site", L"Getting Spipe site", L"Updating Sitelist site"}));
  EXPECT_TRUE(sink.messages(port::LogLevel::Error).empty());
}

// ---- MergeSiteLists: every combination against a model of the rules ------------------------------

// What the merge decides on: a record's name, kind and the two roles.
struct Entry {
  std::wstring name;
  int kind;
  bool spipe;
  bool fallback;
};

std::vector<Entry> Entries(const tag_Site* list) {
  std::vector<Entry> out;
  for (const tag_Site* s = list; s; s = s->pNext)
    out.push_back(Entry{NameOf(s), s->nSiteType,
                        s->nSiteType == 0 && wcscasecmp(s->httpSite.szSiteElement, L"SpipeSite") == 0,
                        wcscasecmp(s->szType, L"fallback") == 0});
  return out;
}

// The merge's rules restated on names: the expected result and code.
struct Model {
  std::vector<Entry> result;
  bool tailKnown = false;
  int code = 0;

  void Append(const std::vector<Entry>& list, bool skipProxy) {
    for (const Entry& e : list)
      if ((e.kind >= 0 && e.kind <= 3) || (e.kind == 4 && !skipProxy)) {
        result.push_back(e);
        tailKnown = true;
      }
  }
  void TakeFallback(const std::vector<Entry>& list) {
    for (const Entry& e : list) {
      if (!e.fallback || (e.kind != 0 && e.kind != 1)) continue;
      if (result.empty()) {
        result.push_back(e);
        return;
      }
      for (Entry& r : result)
        if (r.fallback) {
          r = e;
          return;
        }
      if (tailKnown) result.push_back(e);
      return;
    }
  }
  void TakeSpipeSites(const std::vector<Entry>& list) {
    std::vector<Entry> spipe;
    for (const Entry& e : list)
      if (e.spipe) spipe.push_back(e);
    if (spipe.empty()) return;
    code = 0;
    if (result.empty()) {
      result = spipe;
      return;
    }
    std::size_t i = 0;
    while (i < result.size() && !result[i].spipe) ++i;
    if (i == result.size()) return;  // tail rule: not linked
    while (i < result.size()) {
      if (result[i].spipe) {
        result.erase(result.begin() + static_cast<std::ptrdiff_t>(i));
        ++i;  // the record behind a removed one is not examined
      } else {
        ++i;
      }
    }
    result.insert(result.end(), spipe.begin(), spipe.end());
  }
};

struct Variant {
  const char* label;
  std::function<tag_Site*()> make;  // NULL list when it returns NULL
};

std::vector<Variant> BaseVariants() {
  return {
      {"none", [] { return static_cast<tag_Site*>(nullptr); }},
      {"plain", [] { return Chain({Http(L"b1"), Proxy(L"bProxy"), OddKind(7, L"b7"), Local(L"bLocal")}); }},
      {"spipe", [] { return Chain({Http(L"b1"), Spipe(L"bS1"), Ftp(L"b2")}); }},
      {"fallback", [] { return Chain({Http(L"b1"), FtpFallback(L"bFb")}); }},
      {"both", [] { return Chain({Spipe(L"bS1"), Spipe(L"bS2"), HttpFallback(L"bFb"), Unc(L"b1"), Spipe(L"bS3")}); }},
  };
}

std::vector<Variant> GivenVariants() {
  return {
      {"none", [] { return static_cast<tag_Site*>(nullptr); }},
      {"plain", [] { return Chain({Http(L"g1"), Proxy(L"gProxy")}); }},
      {"spipe", [] { return Chain({Spipe(L"gS1"), Http(L"g1"), Spipe(L"gS2")}); }},
      {"fallback", [] { return Chain({HttpFallback(L"gFb"), Http(L"g1"), FtpFallback(L"gFb2")}); }},
      {"both", [] { return Chain({Http(L"g1"), FtpFallback(L"gFb"), Spipe(L"gS1"), OddKind(6, L"g6")}); }},
  };
}

struct FileVariant {
  const char* label;
  const char* sites;  // NULL: no file
};

const FileVariant kFiles[] = {
    {"missing", nullptr},
    {"empty", ""},
    {"plain", "<HttpSite Type=\"repository\" Name=\"o1\" Order=\"1\" Enabled=\"1\" Server=\"o1.own.example:80\"/>"
              "<ProxyConfigList><ProxyConfig Name=\"oProxy\" HttpProxyServer=\"p.own.example\" HttpProxyPort=\"1\"/>"
              "</ProxyConfigList>"},
    {"spipe", "<SpipeSite Type=\"master\" Name=\"oS1\" Server=\"s.own.example:443\"/>"
              "<HttpSite Type=\"repository\" Name=\"o1\" Server=\"o1.own.example:80\"/>"
              "<SpipeSite Type=\"master\" Name=\"oS2\" Server=\"s2.own.example:443\"/>"},
    {"fallback", "<HttpSite Type=\"repository\" Name=\"o1\" Server=\"o1.own.example:80\"/>"
                 "<FTPSite Type=\"fallback\" Name=\"oFb\" Server=\"fb.own.example:21\"/>"},
    {"both", "<FTPSite Type=\"Fallback\" Name=\"oFb\" Server=\"fb.own.example:21\"/>"
             "<SpipeSite Type=\"master\" Name=\"oS1\" Server=\"s.own.example:443\"/>"
             "<UNCSite Type=\"repository\" Name=\"oUnc\" Server=\"unc.own.example\"/>"},
};

class MergeCombinationTest : public MergeTest {
 protected:
  struct Case {
    bool withBase;
    const Variant* base;
    const Variant* given;
    const FileVariant* file;
    std::string label() const {
      return std::string(withBase ? "withBase" : "withoutBase") + "/base=" + base->label + "/given=" +
             given->label + "/file=" + file->label;
    }
  };

  void ForEachCase(const std::function<void(const Case&)>& body) {
    const std::vector<Variant> bases = BaseVariants();
    const std::vector<Variant> givens = GivenVariants();
    for (bool withBase : {true, false})
      for (const Variant& base : bases)
        for (const Variant& given : givens)
          for (const FileVariant& file : kFiles) {
            if (file.sites)
              WriteOwnList(file.sites);
            else
              std::remove(m_path.c_str());
            body(Case{withBase, &base, &given, &file});
          }
  }

  // The expected names and code, from the model and the inputs.
  Model Expect(const Case& c, const tag_Site* base, const tag_Site* given, const tag_Site* own) {
    Model m;
    const int readCode = c.file->sites ? 0 : -4;
    if (c.withBase) {
      if (base) m.Append(Entries(base), false);
      if (given) {
        m.Append(Entries(given), true);
      } else {
        m.code = readCode;
        if (readCode >= 0 && own) {
          m.TakeFallback(Entries(own));
          m.TakeSpipeSites(Entries(own));
        }
      }
    } else {
      m.code = readCode;
      if (readCode >= 0 && own) m.Append(Entries(own), false);
      if (given) {
        m.TakeFallback(Entries(given));
        m.TakeSpipeSites(Entries(given));
      }
    }
    if (m.code < 0) m.result.clear();
    return m;
  }
};

TEST_F(MergeCombinationTest, EveryCombinationOfInputsGivesTheModelsResultAndOwnsItsRecords) {
  int cases = 0;
  ForEachCase([&](const Case& c) {
    SCOPED_TRACE(c.label());
    ++cases;
    tag_Site* base = c.base->make();
    tag_Site* given = c.given->make();
    tag_Site* own = nullptr;
    if (c.file->sites) {
      ASSERT_EQ(m_helper.ReadSiteList(Wide(m_path), &own), 0);
    }
    const Model model = Expect(c, base, given, own);

    // Every input record by name, copied, to check the result's records whole.
    std::map<std::wstring, tag_Site*> reference;
    for (tag_Site* list : {base, given, own})
      for (const tag_Site* s = list; s; s = s->pNext) {
        tag_Site* copy = NewSite(0);
        std::memcpy(copy, s, sizeof(tag_Site));
        copy->pNext = nullptr;
        reference[NameOf(s)] = copy;
      }

    tag_Site* result = nullptr;
    const int code = m_helper.MergeSiteLists(given, base, c.withBase, &result);
    EXPECT_TRUE(SharesNothing(result, {base, given, own}));
    // The inputs go first; the result must not depend on them.
    m_helper.FreeSiteListMemory(base);
    m_helper.FreeSiteListMemory(given);
    m_helper.FreeSiteListMemory(own);

    EXPECT_EQ(code, model.code);
    std::vector<std::wstring> expectedNames;
    for (const Entry& e : model.result) expectedNames.push_back(e.name);
    EXPECT_EQ(Names(result), expectedNames);
    for (const tag_Site* s = result; s; s = s->pNext) {
      auto it = reference.find(NameOf(s));
      ASSERT_NE(it, reference.end());
      EXPECT_TRUE(RecordsEqual(*it->second, *s, testsupport::Narrow(NameOf(s)) + "."));
    }
    m_helper.FreeSiteListMemory(result);
    for (auto& entry : reference) std::free(entry.second);
  });
  EXPECT_EQ(cases, 2 * 5 * 5 * 6);
  ExpectNoLeak();
}

TEST_F(MergeCombinationTest, AnAllocationFailureAtAnyIndexFailsTheMergeWithoutLeakOrDoubleFree) {
  int runs = 0;
  ForEachCase([&](const Case& c) {
    SCOPED_TRACE(c.label());
    // Count the allocations of a run that succeeds.
    int allocations = 0;
    {
      tag_Site* base = c.base->make();
      tag_Site* given = c.given->make();
      tag_Site* result = nullptr;
      AllocationControl counting;
      m_helper.MergeSiteLists(given, base, c.withBase, &result);
      allocations = AllocationControl::count();
      m_helper.FreeSiteListMemory(result);
      m_helper.FreeSiteListMemory(base);
      m_helper.FreeSiteListMemory(given);
    }
    for (AllocationControl::Mode mode : {AllocationControl::Once, AllocationControl::FromThereOn}) {
      for (int failAt = 0; failAt < allocations; ++failAt) {
        SCOPED_TRACE("fail at " + std::to_string(failAt) + (mode == AllocationControl::Once ? " once" : " on"));
        ++runs;
        tag_Site* base = c.base->make();
        tag_Site* given = c.given->make();
        tag_Site* result = nullptr;
        int code = 0;
        {
          AllocationControl control(mode, failAt);
          code = m_helper.MergeSiteLists(given, base, c.withBase, &result);
        }
        m_helper.FreeSiteListMemory(base);
        m_helper.FreeSiteListMemory(given);
        // A failed copy fails the whole merge, whatever the other steps gave;
        // nothing half-built is handed out.
        EXPECT_EQ(code, -3);
        EXPECT_EQ(result, nullptr);
        m_helper.FreeSiteListMemory(result);
      }
    }
  });
  EXPECT_GT(runs, 1000);
  ExpectNoLeak();
}

}  // namespace
