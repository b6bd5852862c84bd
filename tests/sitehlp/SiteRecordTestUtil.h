// Lists of tag_Site records owned by a test, and comparing records field by
// field, for the site helper's tests.
#ifndef VLM_TESTS_SITEHLP_SITERECORDTESTUTIL_H
#define VLM_TESTS_SITEHLP_SITERECORDTESTUTIL_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <sstream>
#include <string>
#include <vector>

#include "sitehlp/SitesHelper.h"
#include "support/SiteRecordBuilder.h"
#include "support/TestSupport.h"

namespace sitetest {

using sitehlp::tag_Site;

// Records are made with the builder the benchmarks share (SiteRecordBuilder.h).
using sitesample::NewSite;
using sitesample::Set;
using sitesample::SiteBuilder;

// A list owned by the test, released with FreeSiteListMemory.
class SiteList {
 public:
  explicit SiteList(sitehlp::CSitesHelper& helper, tag_Site* head = nullptr) : m_helper(helper), m_head(head) {}
  ~SiteList() { m_helper.FreeSiteListMemory(m_head); }
  SiteList(const SiteList&) = delete;
  SiteList& operator=(const SiteList&) = delete;

  tag_Site* head() const { return m_head; }
  tag_Site** out() {
    reset(nullptr);
    return &m_head;
  }
  void reset(tag_Site* head) {
    m_helper.FreeSiteListMemory(m_head);
    m_head = head;
  }
  // Hands the list over without freeing it.
  tag_Site* release() {
    tag_Site* head = m_head;
    m_head = nullptr;
    return head;
  }
  // Appends a record at the end; the list takes it over.
  tag_Site* append(tag_Site* site) {
    site->pNext = nullptr;
    if (!m_head) {
      m_head = site;
    } else {
      tag_Site* tail = m_head;
      while (tail->pNext) tail = tail->pNext;
      tail->pNext = site;
    }
    return site;
  }
  std::size_t size() const {
    std::size_t n = 0;
    for (tag_Site* s = m_head; s; s = s->pNext) ++n;
    return n;
  }
  tag_Site* at(std::size_t index) const {
    tag_Site* s = m_head;
    while (s && index--) s = s->pNext;
    return s;
  }

 private:
  sitehlp::CSitesHelper& m_helper;
  tag_Site* m_head;
};

using sitesample::CopyList;

// ---- Field by field comparison --------------------------------------------------------------

class RecordDiff {
 public:
  explicit RecordDiff(std::string where) : m_where(std::move(where)) {}

  void Text(const char* field, const wchar_t* expected, const wchar_t* actual) {
    if (std::wcscmp(expected, actual) == 0) return;
    std::ostringstream s;
    s << "  " << m_where << field << ": expected \"" << Shorten(expected) << "\" (" << std::wcslen(expected)
      << " chars), actual \"" << Shorten(actual) << "\" (" << std::wcslen(actual) << " chars)\n";
    m_out += s.str();
  }
  template <typename T>
  void Number(const char* field, T expected, T actual) {
    if (expected == actual) return;
    std::ostringstream s;
    s << "  " << m_where << field << ": expected " << expected << ", actual " << actual << "\n";
    m_out += s.str();
  }
  void Bytes(const char* field, const void* expected, const void* actual, std::size_t size) {
    if (std::memcmp(expected, actual, size) == 0) return;
    m_out += "  " + m_where + field + ": bytes differ\n";
  }
  const std::string& text() const { return m_out; }

 private:
  static std::string Shorten(const wchar_t* text) {
    std::string narrow;
    for (char c : testsupport::Narrow(text)) {
      if (c == '\t')
        narrow += "\\t";
      else if (c == '\n')
        narrow += "\\n";
      else if (c == '\r')
        narrow += "\\r";
      else
        narrow += c;
    }
    if (narrow.size() > 80) narrow = narrow.substr(0, 60) + "..." + narrow.substr(narrow.size() - 12);
    return narrow;
  }
  std::string m_where;
  std::string m_out;
};

#define VLM_TEXT(field) diff.Text(#field, e.field, a.field)
#define VLM_NUM(field) diff.Number(#field, e.field, a.field)

inline void CompareRecords(const tag_Site& e, const tag_Site& a, RecordDiff& diff) {
  VLM_NUM(nSiteType);
  VLM_NUM(bEnabled);
  VLM_NUM(bSpipeOrSuperAgent);
  VLM_NUM(bMirror);
  VLM_NUM(bLocal);
  VLM_NUM(nOrder);
  VLM_TEXT(szType);
  if (e.nSiteType != a.nSiteType) return;
  switch (e.nSiteType) {
    case sitehlp::SITE_TYPE_HTTP:
      VLM_TEXT(httpSite.szSiteElement);
      VLM_TEXT(httpSite.szName);
      VLM_TEXT(httpSite.szServer);
      VLM_TEXT(httpSite.szServerIP);
      VLM_NUM(httpSite.nPort);
      VLM_NUM(httpSite.nServerIPPort);
      VLM_NUM(httpSite.nServerNamePort);
      VLM_TEXT(httpSite.szRelativePath);
      VLM_TEXT(httpSite.szServerName);
      VLM_NUM(httpSite.nUseAuth);
      VLM_TEXT(httpSite.szUserName);
      VLM_TEXT(httpSite.szPassword);
      VLM_TEXT(httpSite.szVersion);
      VLM_NUM(httpSite.nSecurePort);
      break;
    case sitehlp::SITE_TYPE_FTP:
      VLM_TEXT(ftpSite.szName);
      VLM_TEXT(ftpSite.szServer);
      VLM_TEXT(ftpSite.szRelativePath);
      VLM_TEXT(ftpSite.szUserName);
      VLM_TEXT(ftpSite.szPassword);
      VLM_NUM(ftpSite.nPort);
      VLM_NUM(ftpSite.nSecurePort);
      break;
    case sitehlp::SITE_TYPE_UNC:
      VLM_TEXT(uncSite.szName);
      VLM_TEXT(uncSite.szServer);
      VLM_TEXT(uncSite.szRelativePath);
      VLM_TEXT(uncSite.szDomainName);
      VLM_TEXT(uncSite.szUserName);
      VLM_TEXT(uncSite.szPassword);
      VLM_NUM(uncSite.nUseLoggedonUserAccount);
      VLM_TEXT(uncSite.szShareName);
      break;
    case sitehlp::SITE_TYPE_LOCAL:
      VLM_TEXT(localSite.szName);
      VLM_TEXT(localSite.szRelativePath);
      VLM_TEXT(localSite.szDomainName);
      VLM_TEXT(localSite.szUserName);
      VLM_TEXT(localSite.szPassword);
      VLM_NUM(localSite.nUseLoggedonUserAccount);
      break;
    case sitehlp::SITE_TYPE_PROXY:
      VLM_TEXT(proxySettings.szProxyKind);
      VLM_TEXT(proxySettings.szName);
      VLM_TEXT(proxySettings.szHttpProxyServer);
      VLM_NUM(proxySettings.nHttpProxyPort);
      VLM_TEXT(proxySettings.szFtpProxyServer);
      VLM_NUM(proxySettings.nFtpProxyPort);
      VLM_NUM(proxySettings.bAllowUserToConfigureProxy);
      VLM_NUM(proxySettings.bBypassLocalAddress);
      VLM_NUM(proxySettings.bUseIEConfig);
      VLM_NUM(proxySettings.nExclusionCount);
      VLM_TEXT(proxySettings.szExclusionList);
      VLM_NUM(proxySettings.bFtpUseAuth);
      VLM_NUM(proxySettings.bHttpUseAuth);
      VLM_TEXT(proxySettings.szHttpProxyUser);
      VLM_TEXT(proxySettings.szHttpProxyPassword);
      VLM_TEXT(proxySettings.szFtpProxyUser);
      VLM_TEXT(proxySettings.szFtpProxyPassword);
      VLM_NUM(proxySettings.bAlternateFtpUseAuth);
      VLM_NUM(proxySettings.bAlternateHttpUseAuth);
      VLM_TEXT(proxySettings.szAlternateHttpProxyUser);
      VLM_TEXT(proxySettings.szAlternateHttpProxyPassword);
      VLM_TEXT(proxySettings.szAlternateFtpProxyUser);
      VLM_TEXT(proxySettings.szAlternateFtpProxyPassword);
      break;
    default:
      diff.Bytes("(body)", &e.httpSite, &a.httpSite, sizeof(tag_Site) - offsetof(tag_Site, httpSite));
      break;
  }
}

#undef VLM_TEXT
#undef VLM_NUM

// Every field of the header and of the body the kind selects (pNext left out).
inline ::testing::AssertionResult RecordsEqual(const tag_Site& expected, const tag_Site& actual,
                                               const std::string& where = std::string()) {
  RecordDiff diff(where);
  CompareRecords(expected, actual, diff);
  if (diff.text().empty()) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "records differ:\n" << diff.text();
}

// Both lists record by record, and their lengths.
inline ::testing::AssertionResult ListsEqual(const tag_Site* expected, const tag_Site* actual) {
  std::string out;
  std::size_t index = 0;
  for (; expected && actual; expected = expected->pNext, actual = actual->pNext, ++index) {
    RecordDiff diff("site " + std::to_string(index) + ".");
    CompareRecords(*expected, *actual, diff);
    out += diff.text();
  }
  std::size_t extraExpected = 0, extraActual = 0;
  for (; expected; expected = expected->pNext) ++extraExpected;
  for (; actual; actual = actual->pNext) ++extraActual;
  if (extraExpected) out += "  " + std::to_string(extraExpected) + " expected site(s) missing at the end\n";
  if (extraActual) out += "  " + std::to_string(extraActual) + " unexpected site(s) at the end\n";
  if (out.empty()) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "lists differ:\n" << out;
}

}  // namespace sitetest

#endif  // VLM_TESTS_SITEHLP_SITERECORDTESTUTIL_H
