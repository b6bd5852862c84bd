// The site record and its small utilities: list release, bounded copies,
// number texts, macro delimiters, host:port splitting and the record layout.
#include <gtest/gtest.h>
#include <malloc.h>

#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cwchar>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace {

using sitehlp::CSitesHelper;
using sitehlp::tag_Site;
using testsupport::CapturingLogSink;

template <std::size_t N>
constexpr unsigned int CapacityOf(const wchar_t (&)[N]) {
  return static_cast<unsigned int>(N);
}

// A text of n characters cycling through the alphabet, so that a cut at any
// point is visible.
std::wstring Letters(std::size_t n) {
  std::wstring s;
  for (std::size_t i = 0; i < n; ++i) s.push_back(static_cast<wchar_t>(L'a' + i % 26));
  return s;
}

class SiteRecordTest : public ::testing::Test {
 protected:
  testsupport::ConfigScope m_config;  // before the helper: it reads the configuration
  CSitesHelper m_helper{m_config.defaultSiteList()};
};

// ---- FreeSiteListMemory -------------------------------------------------------

tag_Site* NewChain(std::size_t count) {
  tag_Site* head = nullptr;
  for (std::size_t i = 0; i < count; ++i) {
    auto* node = static_cast<tag_Site*>(std::calloc(1, sizeof(tag_Site)));
    node->nOrder = static_cast<int32_t>(count - i);
    node->pNext = head;
    head = node;
  }
  return head;
}

// Bytes held by the process's allocator in blocks handed out. Under the
// address sanitizer this does not see the sanitizer's heap and stays put;
// there the sanitizer itself proves each node freed once (double frees and
// leaks are reported and fail the run).
std::size_t BytesInUse() { return mallinfo2().uordblks; }

TEST_F(SiteRecordTest, FreeSiteListMemoryOfNullReturnsZeroAndOnlyTraces) {
  CapturingLogSink sink;
  EXPECT_EQ(m_helper.FreeSiteListMemory(nullptr), 0);
  ASSERT_EQ(sink.lines().size(), 2u);
  EXPECT_EQ(sink.lines()[0].level, port::LogLevel::Detail);
  EXPECT_EQ(sink.lines()[0].component, L"SiteHlp");
  EXPECT_EQ(sink.lines()[0].message, L"Entering Free memory for Sitelist");
  EXPECT_EQ(sink.lines()[1].component, L"SiteHlp");
  EXPECT_EQ(sink.lines()[1].message, L"Leaving Free memory for Sitelist");
}

TEST_F(SiteRecordTest, FreeSiteListMemoryReleasesTheOnlyNodeOfAOneNodeList) {
  const std::size_t before = BytesInUse();
  tag_Site* list = NewChain(1);
  ASSERT_NE(list, nullptr);
  ASSERT_EQ(list->pNext, nullptr);
  EXPECT_EQ(m_helper.FreeSiteListMemory(list), 0);
  EXPECT_EQ(BytesInUse(), before);
}

TEST_F(SiteRecordTest, FreeSiteListMemoryReleasesEveryNodeOfALongListOnce) {
  const std::size_t before = BytesInUse();
  tag_Site* list = NewChain(257);
  std::size_t count = 0;
  for (tag_Site* p = list; p; p = p->pNext) ++count;
  ASSERT_EQ(count, 257u);
  EXPECT_EQ(m_helper.FreeSiteListMemory(list), 0);
  EXPECT_EQ(BytesInUse(), before);
}

TEST_F(SiteRecordTest, FreeSiteListMemoryReleasesATwoNodeList) {
  const std::size_t before = BytesInUse();
  EXPECT_EQ(m_helper.FreeSiteListMemory(NewChain(2)), 0);
  EXPECT_EQ(BytesInUse(), before);
}

// ---- CopyWStr -------------------------------------------------------------------

TEST_F(SiteRecordTest, CopyWStrOfSourceAsLongAsCapacityKeepsCapacityLessOneAndLogsTheCut) {
  auto* site = static_cast<tag_Site*>(std::calloc(1, sizeof(tag_Site)));
  const std::wstring source = Letters(260);
  const std::wstring kept = source.substr(0, 259);
  CapturingLogSink sink;
  m_helper.CopyWStr(site->httpSite.szName, source.c_str(), CapacityOf(site->httpSite.szName));
  EXPECT_EQ(std::wstring(site->httpSite.szName), kept);
  EXPECT_EQ(std::wcslen(site->httpSite.szName), 259u);
  EXPECT_EQ(site->httpSite.szName[259], L'\0');
  // The field behind is not touched.
  EXPECT_EQ(site->httpSite.szServer[0], L'\0');

  std::vector<testsupport::LogLine> messages;
  for (const auto& line : sink.lines())
    if (line.message.rfind(L"Entering ", 0) != 0 && line.message.rfind(L"Leaving ", 0) != 0) messages.push_back(line);
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].level, port::LogLevel::Detail);
  EXPECT_FALSE(messages[0].internal);
  EXPECT_EQ(messages[0].component, L"SiteHlp");
  EXPECT_EQ(messages[0].message, L"String " + source + L" is truncated to " + kept + L" in CopyWStr");
  std::free(site);
}

TEST_F(SiteRecordTest, CopyWStrOfSourceOneShorterThanCapacityCopiesWholeWithoutMessage) {
  auto* site = static_cast<tag_Site*>(std::calloc(1, sizeof(tag_Site)));
  const std::wstring source = Letters(259);
  CapturingLogSink sink;
  m_helper.CopyWStr(site->httpSite.szName, source.c_str(), CapacityOf(site->httpSite.szName));
  EXPECT_EQ(std::wstring(site->httpSite.szName), source);
  EXPECT_EQ(site->httpSite.szName[259], L'\0');
  EXPECT_TRUE(sink.allMessages().empty());
  std::free(site);
}

TEST_F(SiteRecordTest, CopyWStrIntoServerNameTakesOneCharacterMoreThanOtherNameFields) {
  auto* site = static_cast<tag_Site*>(std::calloc(1, sizeof(tag_Site)));
  const std::wstring source = Letters(260);
  ASSERT_EQ(CapacityOf(site->httpSite.szServerName), 261u);
  CapturingLogSink sink;
  m_helper.CopyWStr(site->httpSite.szServerName, source.c_str(), CapacityOf(site->httpSite.szServerName));
  EXPECT_EQ(std::wstring(site->httpSite.szServerName), source);
  EXPECT_TRUE(sink.allMessages().empty());

  m_helper.CopyWStr(site->httpSite.szServer, source.c_str(), CapacityOf(site->httpSite.szServer));
  EXPECT_EQ(std::wstring(site->httpSite.szServer), source.substr(0, 259));
  EXPECT_EQ(sink.allMessages().size(), 1u);
  std::free(site);
}

TEST_F(SiteRecordTest, CopyWStrZeroFillsTheWholeFieldBehindAShortSource) {
  wchar_t field[16];
  for (wchar_t& c : field) c = L'Z';
  m_helper.CopyWStr(field, L"abc", 16);
  EXPECT_EQ(std::wstring(field), L"abc");
  for (int i = 3; i < 16; ++i) EXPECT_EQ(field[i], L'\0') << "at " << i;
}

TEST_F(SiteRecordTest, CopyWStrOfEmptySourceLeavesAnEmptyField) {
  wchar_t field[8] = L"old";
  CapturingLogSink sink;
  m_helper.CopyWStr(field, L"", 8);
  EXPECT_EQ(std::wstring(field), L"");
  EXPECT_TRUE(sink.allMessages().empty());
}

// ---- FormatEnvSymbols ----------------------------------------------------------

TEST_F(SiteRecordTest, FormatEnvSymbolsTurnsEscapedMacroIntoAgentMacro) {
  wchar_t buffer[64] = L"%%lt%%PATH%%gt%%/bin";
  EXPECT_EQ(m_helper.FormatEnvSymbols(buffer, 64), 0);
  EXPECT_EQ(std::wstring(buffer), L"<PATH>/bin");
}

TEST_F(SiteRecordTest, FormatEnvSymbolsReplacesEveryStartDelimiter) {
  wchar_t buffer[64] = L"%%lt%%%%lt%%";
  EXPECT_EQ(m_helper.FormatEnvSymbols(buffer, 64), 0);
  EXPECT_EQ(std::wstring(buffer), L"<<");
}

TEST_F(SiteRecordTest, FormatEnvSymbolsReplacesUnpairedDelimitersToo) {
  wchar_t buffer[64] = L"%%gt%%a%%lt%%b%%gt%%%%gt%%";
  EXPECT_EQ(m_helper.FormatEnvSymbols(buffer, 64), 0);
  EXPECT_EQ(std::wstring(buffer), L">a<b>>");
}

TEST_F(SiteRecordTest, FormatEnvSymbolsNeverEscapes) {
  wchar_t buffer[64] = L"<SOFTWARE>/x%%y";
  EXPECT_EQ(m_helper.FormatEnvSymbols(buffer, 64), 0);
  EXPECT_EQ(std::wstring(buffer), L"<SOFTWARE>/x%%y");
}

TEST_F(SiteRecordTest, FormatEnvSymbolsLeavesTextWithoutEscapesUnchanged) {
  wchar_t buffer[64] = L"/opt/agent/bin";
  EXPECT_EQ(m_helper.FormatEnvSymbols(buffer, 64), 0);
  EXPECT_EQ(std::wstring(buffer), L"/opt/agent/bin");
}

TEST_F(SiteRecordTest, FormatEnvSymbolsCutsTextWithoutEscapesToCapacityLessOne) {
  wchar_t buffer[16] = L"abcdefghij";
  CapturingLogSink sink;
  EXPECT_EQ(m_helper.FormatEnvSymbols(buffer, 5), 0);
  EXPECT_EQ(std::wstring(buffer), L"abcd");
  EXPECT_TRUE(sink.allMessages().empty());
}

TEST_F(SiteRecordTest, FormatEnvSymbolsCutsTheReplacedTextToCapacityLessOneWithoutMessage) {
  wchar_t buffer[32] = L"%%lt%%ABCDEFGH%%gt%%";
  CapturingLogSink sink;
  EXPECT_EQ(m_helper.FormatEnvSymbols(buffer, 6), 0);
  EXPECT_EQ(std::wstring(buffer), L"<ABCD");
  EXPECT_TRUE(sink.allMessages().empty());
}

TEST_F(SiteRecordTest, FormatEnvSymbolsOfNullBufferReturnsZero) {
  EXPECT_EQ(m_helper.FormatEnvSymbols(nullptr, 10), 0);
}

TEST_F(SiteRecordTest, FormatEnvSymbolsOfEmptyBufferTouchesNothing) {
  wchar_t buffer[4] = {L'\0', L'Q', L'Q', L'Q'};
  EXPECT_EQ(m_helper.FormatEnvSymbols(buffer, 4), 0);
  EXPECT_EQ(buffer[0], L'\0');
  EXPECT_EQ(buffer[1], L'Q');
  EXPECT_EQ(buffer[2], L'Q');
  EXPECT_EQ(buffer[3], L'Q');
}

TEST_F(SiteRecordTest, FormatEnvSymbolsTracesItsStep) {
  wchar_t buffer[16] = L"x";
  CapturingLogSink sink;
  m_helper.FormatEnvSymbols(buffer, 16);
  ASSERT_EQ(sink.lines().size(), 2u);
  EXPECT_EQ(sink.lines()[0].component, L"SiteHlp");
  EXPECT_EQ(sink.lines()[0].message, L"Entering Formatting environment symbols");
  EXPECT_EQ(sink.lines()[1].message, L"Leaving Formatting environment symbols");
}

// ---- ConvertToStr ------------------------------------------------------------------

TEST_F(SiteRecordTest, ConvertToStrOfTrueIsOne) { EXPECT_EQ(m_helper.ConvertToStr(true), L"1"); }

TEST_F(SiteRecordTest, ConvertToStrOfFalseIsZero) { EXPECT_EQ(m_helper.ConvertToStr(false), L"0"); }

TEST_F(SiteRecordTest, ConvertToStrOfUnsignedZeroIsZero) { EXPECT_EQ(m_helper.ConvertToStr(0u), L"0"); }

TEST_F(SiteRecordTest, ConvertToStrOfNegativeIntIsSignedDecimal) { EXPECT_EQ(m_helper.ConvertToStr(-1), L"-1"); }

TEST_F(SiteRecordTest, ConvertToStrOfExtremesIsPlainDecimal) {
  EXPECT_EQ(m_helper.ConvertToStr(4294967295u), L"4294967295");
  EXPECT_EQ(m_helper.ConvertToStr(INT_MIN), L"-2147483648");
  EXPECT_EQ(m_helper.ConvertToStr(1234567), L"1234567");
}

// ---- split_host_and_port ---------------------------------------------------------

constexpr unsigned int kPresetPort = 77;
const wchar_t kPresetHost[] = L"untouched";

// What a wide string stream makes of the text after the last colon.
unsigned int StreamPort(const std::wstring& tail, unsigned int initial) {
  std::wistringstream stream(tail);
  unsigned int value = initial;
  stream >> value;
  return value;
}

struct SplitResult {
  bool ok;
  std::wstring host;
  unsigned int port;
};

SplitResult Split(const std::wstring& text) {
  SplitResult r{false, kPresetHost, kPresetPort};
  r.ok = sitehlp::split_host_and_port(text, r.host, r.port);
  return r;
}

// The port the stream yields for text, with the preset port as its start.
unsigned int StreamPortOf(const std::wstring& text) {
  const auto colon = text.rfind(L':');
  return colon == std::wstring::npos ? kPresetPort : StreamPort(text.substr(colon + 1), kPresetPort);
}

TEST(SplitHostAndPortTest, BracketedIpv6AddressWithPortSplitsAtTheLastColon) {
  const SplitResult r = Split(L"[::1]:8443");
  EXPECT_TRUE(r.ok);
  EXPECT_EQ(r.host, L"[::1]");
  EXPECT_EQ(r.port, 8443u);
  EXPECT_EQ(r.port, StreamPortOf(L"[::1]:8443"));
}

TEST(SplitHostAndPortTest, Ipv6AddressWithoutPortTakesItsLastGroupAsPort) {
  const SplitResult r = Split(L"fe80::1");
  EXPECT_TRUE(r.ok);
  EXPECT_EQ(r.host, L"fe80:");
  EXPECT_EQ(r.port, 1u);
  EXPECT_EQ(r.port, StreamPortOf(L"fe80::1"));
}

TEST(SplitHostAndPortTest, TextWithoutColonReturnsFalseAndLeavesOutputsUntouched) {
  const SplitResult r = Split(L"repo.example");
  EXPECT_FALSE(r.ok);
  EXPECT_EQ(r.host, kPresetHost);
  EXPECT_EQ(r.port, kPresetPort);
}

TEST(SplitHostAndPortTest, EmptyTextReturnsFalseAndLeavesOutputsUntouched) {
  const SplitResult r = Split(L"");
  EXPECT_FALSE(r.ok);
  EXPECT_EQ(r.host, kPresetHost);
  EXPECT_EQ(r.port, kPresetPort);
}

TEST(SplitHostAndPortTest, TextEndingInColonReturnsTrueAndLeavesThePortAsTheStreamDoes) {
  const SplitResult r = Split(L"host.example:");
  EXPECT_TRUE(r.ok);
  EXPECT_EQ(r.host, L"host.example");
  EXPECT_EQ(r.port, kPresetPort);
  EXPECT_EQ(r.port, StreamPortOf(L"host.example:"));
}

TEST(SplitHostAndPortTest, OnlyBlanksAfterColonLeaveThePortAsTheStreamDoes) {
  const SplitResult r = Split(L"host.example: \t ");
  EXPECT_TRUE(r.ok);
  EXPECT_EQ(r.host, L"host.example");
  EXPECT_EQ(r.port, kPresetPort);
  EXPECT_EQ(r.port, StreamPortOf(L"host.example: \t "));
}

TEST(SplitHostAndPortTest, NonNumericPortGivesZeroLikeTheStream) {
  const SplitResult r = Split(L"host:abc");
  EXPECT_TRUE(r.ok);
  EXPECT_EQ(r.host, L"host");
  EXPECT_EQ(r.port, 0u);
  EXPECT_EQ(r.port, StreamPortOf(L"host:abc"));
}

TEST(SplitHostAndPortTest, LeadingBlanksAreSkippedAndExtractionStopsAtFirstNonDigit) {
  const SplitResult r = Split(L"host: 42x");
  EXPECT_TRUE(r.ok);
  EXPECT_EQ(r.host, L"host");
  EXPECT_EQ(r.port, 42u);
  EXPECT_EQ(r.port, StreamPortOf(L"host: 42x"));
}

TEST(SplitHostAndPortTest, NegativePortWrapsToLargestValueLikeTheStream) {
  const SplitResult r = Split(L"host:-1");
  EXPECT_TRUE(r.ok);
  EXPECT_EQ(r.host, L"host");
  EXPECT_EQ(r.port, 4294967295u);
  EXPECT_EQ(r.port, StreamPortOf(L"host:-1"));
}

TEST(SplitHostAndPortTest, OverlongPortSaturatesAtLargestValueLikeTheStream) {
  const SplitResult r = Split(L"host:99999999999");
  EXPECT_TRUE(r.ok);
  EXPECT_EQ(r.host, L"host");
  EXPECT_EQ(r.port, 4294967295u);
  EXPECT_EQ(r.port, StreamPortOf(L"host:99999999999"));
}

TEST(SplitHostAndPortTest, EmptyHostBeforeColonIsAllowed) {
  const SplitResult r = Split(L":8080");
  EXPECT_TRUE(r.ok);
  EXPECT_EQ(r.host, L"");
  EXPECT_EQ(r.port, 8080u);
}

TEST(SplitHostAndPortTest, BorderCasesOfTheNumberMatchTheStream) {
  const std::vector<std::wstring> tails = {
      L"4294967295", L"4294967296", L"-4294967295", L"-4294967296", L"-99999999999", L"+5", L"-0",
      L"- 1",        L"-",          L"+",           L"--1",         L"0x10",         L"007",
      L"1,000",      L"\v\f\r9",    L"\x1c" L"5",   L"\u00a0" L"5", L"\u3000" L"5",  L"\u0661",
      L"00000000000000000000042"};
  for (const std::wstring& tail : tails) {
    const std::wstring text = L"h:" + tail;
    const SplitResult r = Split(text);
    EXPECT_TRUE(r.ok) << testsupport::Narrow(text);
    EXPECT_EQ(r.host, L"h");
    EXPECT_EQ(r.port, StreamPortOf(text)) << "tail code points: " << testsupport::Narrow(tail);
  }
}

TEST(SplitHostAndPortTest, GeneratedTextsMatchTheStreamExtraction) {
  std::mt19937 random(20240917u);
  const std::wstring hostAlphabet = L"abcxyz.-[]:0123456789";
  // Mostly digits, with signs, blanks of every kind the stream skips, and
  // characters that end or prevent extraction.
  const std::wstring tailAlphabet = L"01234567890123456789012345678901234567899 \t\n\v\f\r-+ax.\u3000";
  std::vector<std::wstring> texts;
  for (int i = 0; i < 60; ++i) {
    std::wstring text;
    const std::size_t hostLength = random() % 12;
    for (std::size_t k = 0; k < hostLength; ++k) text.push_back(hostAlphabet[random() % hostAlphabet.size()]);
    if (i % 6 == 5) {
      // No colon at all.
      for (wchar_t& c : text)
        if (c == L':') c = L'.';
      texts.push_back(text);
      continue;
    }
    text.push_back(L':');
    const std::size_t tailLength = random() % 14;
    for (std::size_t k = 0; k < tailLength; ++k) text.push_back(tailAlphabet[random() % tailAlphabet.size()]);
    texts.push_back(text);
  }
  std::size_t withColon = 0;
  std::size_t numbers = 0;
  for (const std::wstring& text : texts) {
    const SplitResult r = Split(text);
    const auto colon = text.rfind(L':');
    if (colon == std::wstring::npos) {
      EXPECT_FALSE(r.ok) << testsupport::Narrow(text);
      EXPECT_EQ(r.host, kPresetHost);
      EXPECT_EQ(r.port, kPresetPort);
      continue;
    }
    ++withColon;
    EXPECT_TRUE(r.ok) << testsupport::Narrow(text);
    EXPECT_EQ(r.host, text.substr(0, colon)) << testsupport::Narrow(text);
    EXPECT_EQ(r.port, StreamPortOf(text)) << "text [" << testsupport::Narrow(text) << "]";
    if (r.port != kPresetPort && r.port != 0u) ++numbers;
  }
  // The generated set exercises every outcome.
  EXPECT_EQ(withColon, 50u);
  EXPECT_GE(numbers, 15u);
}

// ---- Record layout -------------------------------------------------------------------

TEST(SiteRecordLayoutTest, RecordAndBodySizes) {
  EXPECT_EQ(sizeof(wchar_t), 4u);
  EXPECT_EQ(sizeof(tag_Site), 29600u);
  EXPECT_EQ(sizeof(sitehlp::tag_HttpSite), 9784u);
  EXPECT_EQ(sizeof(sitehlp::tag_FtpSite), 6248u);
  EXPECT_EQ(sizeof(sitehlp::tag_UncSite), 8324u);
  EXPECT_EQ(sizeof(sitehlp::tag_LocalSite), 6244u);
  EXPECT_EQ(sizeof(sitehlp::tag_ProxySettings), 28524u);
}

TEST(SiteRecordLayoutTest, HeaderOffsets) {
  EXPECT_EQ(offsetof(tag_Site, bEnabled), 0u);
  EXPECT_EQ(offsetof(tag_Site, bSpipeOrSuperAgent), 4u);
  EXPECT_EQ(offsetof(tag_Site, bMirror), 8u);
  EXPECT_EQ(offsetof(tag_Site, bLocal), 12u);
  EXPECT_EQ(offsetof(tag_Site, nOrder), 16u);
  EXPECT_EQ(offsetof(tag_Site, nSiteType), 20u);
  EXPECT_EQ(offsetof(tag_Site, szType), 24u);
  EXPECT_EQ(offsetof(tag_Site, pNext), 1064u);
  EXPECT_EQ(offsetof(tag_Site, httpSite), 1072u);
  EXPECT_EQ(offsetof(tag_Site, ftpSite), 1072u);
  EXPECT_EQ(offsetof(tag_Site, uncSite), 1072u);
  EXPECT_EQ(offsetof(tag_Site, localSite), 1072u);
  EXPECT_EQ(offsetof(tag_Site, proxySettings), 1072u);
}

TEST(SiteRecordLayoutTest, HttpBodyOffsets) {
  using sitehlp::tag_HttpSite;
  EXPECT_EQ(offsetof(tag_HttpSite, szSiteElement), 0u);
  EXPECT_EQ(offsetof(tag_HttpSite, szName), 1040u);
  EXPECT_EQ(offsetof(tag_HttpSite, szServer), 2080u);
  EXPECT_EQ(offsetof(tag_HttpSite, szServerIP), 3120u);
  EXPECT_EQ(offsetof(tag_HttpSite, nPort), 3520u);
  EXPECT_EQ(offsetof(tag_HttpSite, nServerIPPort), 3524u);
  EXPECT_EQ(offsetof(tag_HttpSite, nServerNamePort), 3528u);
  EXPECT_EQ(offsetof(tag_HttpSite, szRelativePath), 3532u);
  EXPECT_EQ(offsetof(tag_HttpSite, szServerName), 5612u);
  EXPECT_EQ(offsetof(tag_HttpSite, nUseAuth), 6656u);
  EXPECT_EQ(offsetof(tag_HttpSite, szUserName), 6660u);
  EXPECT_EQ(offsetof(tag_HttpSite, szPassword), 7700u);
  EXPECT_EQ(offsetof(tag_HttpSite, szVersion), 8740u);
  EXPECT_EQ(offsetof(tag_HttpSite, nSecurePort), 9780u);
}

TEST(SiteRecordLayoutTest, FtpUncAndLocalBodyOffsets) {
  using sitehlp::tag_FtpSite;
  using sitehlp::tag_LocalSite;
  using sitehlp::tag_UncSite;
  EXPECT_EQ(offsetof(tag_FtpSite, szServer), 1040u);
  EXPECT_EQ(offsetof(tag_FtpSite, szRelativePath), 2080u);
  EXPECT_EQ(offsetof(tag_FtpSite, szUserName), 4160u);
  EXPECT_EQ(offsetof(tag_FtpSite, szPassword), 5200u);
  EXPECT_EQ(offsetof(tag_FtpSite, nPort), 6240u);
  EXPECT_EQ(offsetof(tag_FtpSite, nSecurePort), 6244u);

  EXPECT_EQ(offsetof(tag_UncSite, szServer), 1040u);
  EXPECT_EQ(offsetof(tag_UncSite, szRelativePath), 2080u);
  EXPECT_EQ(offsetof(tag_UncSite, szDomainName), 4160u);
  EXPECT_EQ(offsetof(tag_UncSite, szUserName), 5200u);
  EXPECT_EQ(offsetof(tag_UncSite, szPassword), 6240u);
  EXPECT_EQ(offsetof(tag_UncSite, nUseLoggedonUserAccount), 7280u);
  EXPECT_EQ(offsetof(tag_UncSite, szShareName), 7284u);

  EXPECT_EQ(offsetof(tag_LocalSite, szRelativePath), 1040u);
  EXPECT_EQ(offsetof(tag_LocalSite, szDomainName), 3120u);
  EXPECT_EQ(offsetof(tag_LocalSite, szUserName), 4160u);
  EXPECT_EQ(offsetof(tag_LocalSite, szPassword), 5200u);
  EXPECT_EQ(offsetof(tag_LocalSite, nUseLoggedonUserAccount), 6240u);
}

TEST(SiteRecordLayoutTest, ProxyBodyOffsets) {
  using sitehlp::tag_ProxySettings;
  EXPECT_EQ(offsetof(tag_ProxySettings, szName), 1040u);
  EXPECT_EQ(offsetof(tag_ProxySettings, szHttpProxyServer), 2080u);
  EXPECT_EQ(offsetof(tag_ProxySettings, nHttpProxyPort), 3120u);
  EXPECT_EQ(offsetof(tag_ProxySettings, szFtpProxyServer), 3124u);
  EXPECT_EQ(offsetof(tag_ProxySettings, nFtpProxyPort), 4164u);
  EXPECT_EQ(offsetof(tag_ProxySettings, bAllowUserToConfigureProxy), 4168u);
  EXPECT_EQ(offsetof(tag_ProxySettings, bBypassLocalAddress), 4172u);
  EXPECT_EQ(offsetof(tag_ProxySettings, bUseIEConfig), 4176u);
  EXPECT_EQ(offsetof(tag_ProxySettings, nExclusionCount), 4180u);
  EXPECT_EQ(offsetof(tag_ProxySettings, szExclusionList), 4184u);
  EXPECT_EQ(offsetof(tag_ProxySettings, bFtpUseAuth), 20188u);
  EXPECT_EQ(offsetof(tag_ProxySettings, bHttpUseAuth), 20192u);
  EXPECT_EQ(offsetof(tag_ProxySettings, szHttpProxyUser), 20196u);
  EXPECT_EQ(offsetof(tag_ProxySettings, szHttpProxyPassword), 21236u);
  EXPECT_EQ(offsetof(tag_ProxySettings, szFtpProxyUser), 22276u);
  EXPECT_EQ(offsetof(tag_ProxySettings, szFtpProxyPassword), 23316u);
  EXPECT_EQ(offsetof(tag_ProxySettings, bAlternateFtpUseAuth), 24356u);
  EXPECT_EQ(offsetof(tag_ProxySettings, bAlternateHttpUseAuth), 24360u);
  EXPECT_EQ(offsetof(tag_ProxySettings, szAlternateHttpProxyUser), 24364u);
  EXPECT_EQ(offsetof(tag_ProxySettings, szAlternateHttpProxyPassword), 25404u);
  EXPECT_EQ(offsetof(tag_ProxySettings, szAlternateFtpProxyUser), 26444u);
  EXPECT_EQ(offsetof(tag_ProxySettings, szAlternateFtpProxyPassword), 27484u);
}

TEST(SiteRecordLayoutTest, FieldCapacities) {
  tag_Site* site = nullptr;
  EXPECT_EQ(sizeof(site->szType) / sizeof(wchar_t), 260u);
  EXPECT_EQ(sizeof(site->httpSite.szServerIP) / sizeof(wchar_t), 100u);
  EXPECT_EQ(sizeof(site->httpSite.szRelativePath) / sizeof(wchar_t), 520u);
  EXPECT_EQ(sizeof(site->httpSite.szServerName) / sizeof(wchar_t), 261u);
  EXPECT_EQ(sizeof(site->proxySettings.szExclusionList) / sizeof(wchar_t), 4001u);
}

TEST(SiteRecordLayoutTest, KindValuesAreFixed) {
  EXPECT_EQ(static_cast<int>(sitehlp::SITE_TYPE_HTTP), 0);
  EXPECT_EQ(static_cast<int>(sitehlp::SITE_TYPE_FTP), 1);
  EXPECT_EQ(static_cast<int>(sitehlp::SITE_TYPE_UNC), 2);
  EXPECT_EQ(static_cast<int>(sitehlp::SITE_TYPE_LOCAL), 3);
  EXPECT_EQ(static_cast<int>(sitehlp::SITE_TYPE_PROXY), 4);
}

}  // namespace
