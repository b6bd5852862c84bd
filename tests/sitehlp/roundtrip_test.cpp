// Writing a list and reading the file back gives the records back field by
// field: passwords, macros in their stored form, IPv6 hosts, texts at and past
// their capacity, exclusion lists as the writer splits them, and a few hundred
// random lists.
#include <gtest/gtest.h>

#include <cwchar>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "sitehlp/SiteRecordTestUtil.h"
#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace {

using sitehlp::CSitesHelper;
using sitehlp::tag_Site;
using sitetest::NewSite;
using sitetest::Set;
using sitetest::SiteBuilder;
using sitetest::SiteList;
using testsupport::Narrow;
using testsupport::Wide;

bool EqualsNoCase(const wchar_t* a, const wchar_t* b) {
  for (; *a && *b; ++a, ++b)
    if (std::towlower(*a) != std::towlower(*b)) return false;
  return *a == *b;
}

// The stored macro form: every %%lt%% becomes <, then every %%gt%% becomes >,
// cut to capacity - 1 characters.
std::wstring FormatMacros(const std::wstring& text, std::size_t capacity) {
  std::wstring out = text;
  for (const auto& pair : {std::make_pair(std::wstring(L"%%lt%%"), std::wstring(L"<")),
                           std::make_pair(std::wstring(L"%%gt%%"), std::wstring(L">"))}) {
    for (std::size_t at = out.find(pair.first); at != std::wstring::npos; at = out.find(pair.first))
      out.replace(at, pair.first.size(), pair.second);
  }
  if (out.size() > capacity - 1) out.resize(capacity - 1);
  return out;
}

template <std::size_t N>
void Format(wchar_t (&field)[N]) {
  Set(field, FormatMacros(field, N));
}

// The non-empty hosts of a ";"-separated list.
std::vector<std::wstring> Hosts(const std::wstring& list) {
  std::vector<std::wstring> hosts;
  std::size_t begin = 0;
  while (begin <= list.size()) {
    std::size_t end = list.find(L';', begin);
    if (end == std::wstring::npos) end = list.size();
    if (end > begin) hosts.push_back(list.substr(begin, end - begin));
    begin = end + 1;
  }
  return hosts;
}

// What the writer leaves in a record: macro fields in stored form, the
// exclusion list cut behind its first host.
tag_Site* WriterLeaves(const tag_Site& original) {
  tag_Site* s = NewSite(original.nSiteType);
  std::memcpy(s, &original, sizeof(tag_Site));
  s->pNext = nullptr;
  switch (s->nSiteType) {
    case sitehlp::SITE_TYPE_HTTP: {
      sitehlp::tag_HttpSite& h = s->httpSite;
      const wchar_t* element = h.szSiteElement[0] ? h.szSiteElement : L"HttpSite";
      Format(h.szServer);
      if (EqualsNoCase(element, L"SpipeSite")) {
        Format(h.szServerName);
        Format(h.szServerIP);
        Format(h.szVersion);
      } else if (std::wcscmp(element, L"SuperAgentSite") == 0) {
        Format(h.szServerName);
        Format(h.szServerIP);
      }
      Format(h.szRelativePath);
      break;
    }
    case sitehlp::SITE_TYPE_FTP:
      Format(s->ftpSite.szServer);
      Format(s->ftpSite.szRelativePath);
      break;
    case sitehlp::SITE_TYPE_UNC:
      Format(s->uncSite.szServer);
      Format(s->uncSite.szRelativePath);
      Format(s->uncSite.szDomainName);
      break;
    case sitehlp::SITE_TYPE_LOCAL:
      Format(s->localSite.szRelativePath);
      Format(s->localSite.szDomainName);
      break;
    case sitehlp::SITE_TYPE_PROXY: {
      sitehlp::tag_ProxySettings& p = s->proxySettings;
      Format(p.szHttpProxyServer);
      Format(p.szFtpProxyServer);
      std::wstring list = FormatMacros(p.szExclusionList, 4000);
      const std::size_t first = list.find_first_not_of(L';');
      if (first != std::wstring::npos) {
        const std::size_t end = list.find(L';', first);
        if (end != std::wstring::npos) list.resize(end);
      }
      Set(p.szExclusionList, list);
      break;
    }
    default:
      break;
  }
  return s;
}

// The record the reader builds from what the writer wrote for original.
// Detail lines the reader logs for exclusion hosts that do not fit are
// appended to log.
tag_Site* ReadBack(const tag_Site& original, std::vector<std::wstring>& log) {
  tag_Site* s = NewSite(original.nSiteType);
  const int kind = original.nSiteType;
  if (kind >= sitehlp::SITE_TYPE_HTTP && kind <= sitehlp::SITE_TYPE_LOCAL) {
    Set(s->szType, original.szType[0] ? original.szType : L"repository");
    s->bMirror = EqualsNoCase(s->szType, L"mirror");
    s->bEnabled = original.bEnabled != 0;
    s->bLocal = original.bLocal != 0;
    s->nOrder = (s->bMirror || EqualsNoCase(s->szType, L"fallback")) ? 0 : original.nOrder;
  }
  switch (kind) {
    case sitehlp::SITE_TYPE_HTTP: {
      const sitehlp::tag_HttpSite& o = original.httpSite;
      sitehlp::tag_HttpSite& h = s->httpSite;
      Set(h.szSiteElement, o.szSiteElement[0] ? o.szSiteElement : L"HttpSite");
      const bool spipe = std::wcscmp(h.szSiteElement, L"SpipeSite") == 0;
      const bool superAgent = std::wcscmp(h.szSiteElement, L"SuperAgentSite") == 0;
      s->bSpipeOrSuperAgent = spipe || superAgent;
      Set(h.szName, o.szName);
      Set(h.szServer, FormatMacros(o.szServer, 260));
      h.nPort = o.nPort;
      h.nSecurePort = o.nSecurePort;
      // Absent ServerName and ServerIP read as an empty host with port 80.
      h.nServerNamePort = 80;
      h.nServerIPPort = 80;
      const std::wstring name = FormatMacros(o.szServerName, 261);
      const std::wstring ip = FormatMacros(o.szServerIP, 100);
      if (spipe || (superAgent && !name.empty())) {
        Set(h.szServerName, name);
        h.nServerNamePort = o.nServerNamePort;
      }
      if (spipe || (superAgent && !ip.empty())) {
        Set(h.szServerIP, ip);
        h.nServerIPPort = o.nServerIPPort;
      }
      if (spipe) Set(h.szVersion, FormatMacros(o.szVersion, 260));
      Set(h.szRelativePath, FormatMacros(o.szRelativePath, 520));
      h.nUseAuth = o.nUseAuth;
      Set(h.szUserName, o.szUserName);
      Set(h.szPassword, o.szPassword);
      break;
    }
    case sitehlp::SITE_TYPE_FTP: {
      const sitehlp::tag_FtpSite& o = original.ftpSite;
      sitehlp::tag_FtpSite& f = s->ftpSite;
      Set(f.szName, o.szName);
      Set(f.szServer, FormatMacros(o.szServer, 260));
      f.nPort = o.nPort;
      f.nSecurePort = o.nSecurePort;
      Set(f.szRelativePath, FormatMacros(o.szRelativePath, 520));
      Set(f.szUserName, o.szUserName);
      Set(f.szPassword, o.szPassword);
      break;
    }
    case sitehlp::SITE_TYPE_UNC: {
      const sitehlp::tag_UncSite& o = original.uncSite;
      sitehlp::tag_UncSite& u = s->uncSite;
      Set(u.szName, o.szName);
      Set(u.szServer, FormatMacros(o.szServer, 260));
      Set(u.szRelativePath, FormatMacros(o.szRelativePath, 520));
      Set(u.szDomainName, FormatMacros(o.szDomainName, 260));
      Set(u.szUserName, o.szUserName);
      Set(u.szPassword, o.szPassword);
      u.nUseLoggedonUserAccount = o.nUseLoggedonUserAccount;
      Set(u.szShareName, o.szShareName);
      break;
    }
    case sitehlp::SITE_TYPE_LOCAL: {
      const sitehlp::tag_LocalSite& o = original.localSite;
      sitehlp::tag_LocalSite& l = s->localSite;
      Set(l.szName, o.szName);
      Set(l.szRelativePath, FormatMacros(o.szRelativePath, 520));
      Set(l.szDomainName, FormatMacros(o.szDomainName, 260));
      Set(l.szUserName, o.szUserName);
      Set(l.szPassword, o.szPassword);
      l.nUseLoggedonUserAccount = o.nUseLoggedonUserAccount;
      break;
    }
    case sitehlp::SITE_TYPE_PROXY: {
      const sitehlp::tag_ProxySettings& o = original.proxySettings;
      sitehlp::tag_ProxySettings& p = s->proxySettings;
      Set(p.szName, o.szName);
      if (o.szHttpProxyServer[0]) {
        Set(p.szHttpProxyServer, FormatMacros(o.szHttpProxyServer, 260));
        p.nHttpProxyPort = o.nHttpProxyPort;
      }
      if (o.szFtpProxyServer[0]) {
        Set(p.szFtpProxyServer, FormatMacros(o.szFtpProxyServer, 260));
        p.nFtpProxyPort = o.nFtpProxyPort;
      }
      Set(p.szProxyKind, o.szHttpProxyServer[0] && o.szFtpProxyServer[0] ? L"FtpHttp"
                         : o.szHttpProxyServer[0]                        ? L"HttpSite"
                         : o.szFtpProxyServer[0]                         ? L"FTPSite"
                                                                         : L"");
      p.bUseIEConfig = o.bUseIEConfig != 0;
      p.bAllowUserToConfigureProxy = o.bAllowUserToConfigureProxy != 0;
      p.bBypassLocalAddress = o.bBypassLocalAddress != 0;
      p.bFtpUseAuth = o.bFtpUseAuth != 0;
      p.bHttpUseAuth = o.bHttpUseAuth != 0;
      p.bAlternateFtpUseAuth = o.bAlternateFtpUseAuth != 0;
      p.bAlternateHttpUseAuth = o.bAlternateHttpUseAuth != 0;
      // The reader joins the hosts again while they fit 3,999 characters,
      // counting a delimiter for every host, the first one included.
      std::wstring list;
      for (const std::wstring& host : Hosts(FormatMacros(o.szExclusionList, 4000))) {
        if (list.size() + host.size() + 1 <= 3999) {
          if (p.nExclusionCount != 0) list += L";";
          list += host;
          ++p.nExclusionCount;
        } else {
          log.push_back(L"Exclusion list of proxy settings is truncated to " + list + L" in ReadSiteFromSiteList");
        }
      }
      Set(p.szExclusionList, list);
      Set(p.szHttpProxyUser, o.szHttpProxyUser);
      Set(p.szHttpProxyPassword, o.szHttpProxyPassword);
      Set(p.szFtpProxyUser, o.szFtpProxyUser);
      Set(p.szFtpProxyPassword, o.szFtpProxyPassword);
      Set(p.szAlternateHttpProxyUser, o.szAlternateHttpProxyUser);
      Set(p.szAlternateHttpProxyPassword, o.szAlternateHttpProxyPassword);
      Set(p.szAlternateFtpProxyUser, o.szAlternateFtpProxyUser);
      Set(p.szAlternateFtpProxyPassword, o.szAlternateFtpProxyPassword);
      break;
    }
    default:
      break;
  }
  return s;
}

// ---- Fixture ---------------------------------------------------------------------------------

class SiteListRoundTripTest : public ::testing::Test {
 protected:
  // Writes a copy of list, checks what the writer left in the copy, reads the
  // file back and compares it with what the reader should build.
  void RoundTrip(const tag_Site* list) {
    SiteList written(m_helper, sitetest::CopyList(list));
    SiteList writerLeaves(m_helper);
    SiteList expected(m_helper);
    std::vector<std::wstring> expectedLog;
    for (const tag_Site* s = list; s; s = s->pNext) {
      writerLeaves.append(WriterLeaves(*s));
      if (s->nSiteType >= sitehlp::SITE_TYPE_HTTP && s->nSiteType <= sitehlp::SITE_TYPE_PROXY)
        expected.append(ReadBack(*s, expectedLog));
    }

    ASSERT_EQ(0, m_helper.CreateSiteList(written.head(), m_wpath, L"20240101000000", L"20240101000001", L"Client",
                                         {}));
    EXPECT_TRUE(sitetest::ListsEqual(writerLeaves.head(), written.head())) << "records after writing";

    CSitesHelper reader(m_wpath);
    SiteList read(reader);
    testsupport::CapturingLogSink log;
    ASSERT_EQ(0, reader.ReadSiteList(m_wpath, read.out()));
    EXPECT_TRUE(sitetest::ListsEqual(expected.head(), read.head())) << "records read back";
    std::vector<std::wstring> truncations;
    for (const std::wstring& message : log.messages(port::LogLevel::Detail))
      if (message.rfind(L"Exclusion list of proxy settings", 0) == 0) truncations.push_back(message);
    EXPECT_EQ(expectedLog, truncations);
  }

  testsupport::ConfigScope m_config;
  std::string m_path = m_config.dir().file("SiteList.xml");
  std::wstring m_wpath = Wide(m_path);
  CSitesHelper m_helper{m_wpath};
  SiteList m_list{m_helper};
};

// ---- Lists with every field set ---------------------------------------------------------------

void FillEveryKind(SiteList& list) {
  using sitehlp::SITE_TYPE_HTTP;
  list.append(SiteBuilder(SITE_TYPE_HTTP)
                  .Type(L"repository").Enabled().Order(1).Element(L"HttpSite").Name(L"Http \u2603 <&> \"q\" 'a'")
                  .Server(L"[fe80::1]", 8443).SecurePort(443).ServerName(L"NOT-WRITTEN", 1).ServerIP(L"192.0.2.99", 2)
                  .Version(L"not written either").Path(L"%%lt%%PATH%%gt%%/Software/Current").UseAuth(1)
                  .Account(L" user with spaces ", L"Secr3t-Pa55! <&> \"'")
                  .Release());
  list.append(SiteBuilder(SITE_TYPE_HTTP)
                  .Type(L"master").Enabled().SpipeOrSuperAgent().Order(2).Element(L"SpipeSite")
                  .Name(L"%%lt%%NAME%%gt%% stays escaped").Server(L"[2001:db8::10]", 443)
                  .ServerName(L"%%lt%%HOSTNAME%%gt%%", 80).ServerIP(L"[fe80::1%eth0]", 8443)
                  .Version(L"5.10.%%lt%%BUILD%%gt%%").Path(L"Software").UseAuth(-4)
                  .Account(L"agent", L"Spipe-Pa55-\u00e9\u00df\u4e2d\U0001F511")
                  .Release());
  list.append(SiteBuilder(SITE_TYPE_HTTP)
                  .Type(L"repository").Local().Order(-3).Element(L"SuperAgentSite").Name(L"SA One")
                  .Server(L"sa1.example", 8081).SecurePort(8444).ServerName(L"SA1", 8082).ServerIP(L"[::1]", 8083)
                  .Version(L"dropped").Path(L"Software").Account(L"sauser", L"SuperAgent-Pa55!")
                  .Release());
  list.append(SiteBuilder(SITE_TYPE_HTTP)
                  .Type(L"repository").Enabled(2).Order(4).Element(L"SuperAgentSite").Name(L"SA Two")
                  .Server(L"sa2.example", 8091).ServerName(L"", 8092).ServerIP(L"", 8093)
                  .Release());
  list.append(SiteBuilder(sitehlp::SITE_TYPE_FTP)
                  .Type(L"Fallback").Enabled().Order(9).Name(L"Ftp Fallback").Server(L"[::1]", 21).SecurePort(990)
                  .Path(L"pub/%%lt%%VER%%gt%%").Account(L"anonymous", L"Ftp-Pa55!")
                  .Release());
  list.append(SiteBuilder(sitehlp::SITE_TYPE_UNC)
                  .Type(L"Mirror").Enabled().Mirror().Order(3).Name(L"Unc Mirror").Server(L"\\\\%%lt%%SRV%%gt%%")
                  .Share(L"%%lt%%share%%gt%%$").Path(L"updates\\current").LoggedOnUser(-2)
                  .Domain(L"%%lt%%DOMAIN%%gt%%").Account(L"uncuser", L"Unc-Pa55!")
                  .Release());
  list.append(SiteBuilder(sitehlp::SITE_TYPE_LOCAL)
                  .Type(L"").Enabled().Local().Order(7).Name(L"Local Repo").Path(L"%%lt%%INSTALLDIR%%gt%%/repo")
                  .LoggedOnUser(1).Domain(L"LOCALDOM").Account(L"localuser", L"Local-Pa55!")
                  .Release());
  list.append(SiteBuilder(sitehlp::SITE_TYPE_PROXY)
                  .Type(L"dropped").Enabled().Order(8).ProxyKind(L"FtpHttp").Name(L"Proxy Settings").UseIEConfig()
                  .HttpProxy(L"[fe80::2]", 8080).FtpProxy(L"%%lt%%FTPPROXY%%gt%%", 2121).UserMayConfigure(1)
                  .BypassLocal(3).Exclusions(L";a.example;;%%lt%%H%%gt%%;;*.corp.example;", 7).ProxyAuth(1, 1)
                  .HttpProxyAccount(L"huser", L"HttpProxy-Pa55!").FtpProxyAccount(L"fuser", L"FtpProxy-Pa55!")
                  .AlternateProxyAuth(1, 1).AlternateHttpProxyAccount(L"ahuser", L"AltHttpProxy-Pa55!")
                  .AlternateFtpProxyAccount(L"afuser", L"AltFtpProxy-Pa55!")
                  .Release());
}

TEST_F(SiteListRoundTripTest, EveryKindWithEveryFieldSetComesBack) {
  FillEveryKind(m_list);
  RoundTrip(m_list.head());
}

TEST_F(SiteListRoundTripTest, EveryKindComesBackWithTheValuesSpelledOut) {
  // The same list, with the read-back values written out by hand for the
  // fields the writer and reader change.
  FillEveryKind(m_list);
  SiteList written(m_helper, sitetest::CopyList(m_list.head()));
  ASSERT_EQ(0, m_helper.CreateSiteList(written.head(), m_wpath, L"", L"", L"", {}));
  SiteList read(m_helper);
  ASSERT_EQ(0, m_helper.ReadSiteList(m_wpath, read.out()));
  ASSERT_EQ(8u, read.size());

  const tag_Site& http = *read.at(0);
  EXPECT_STREQ(L"[fe80::1]", http.httpSite.szServer);
  EXPECT_EQ(8443, http.httpSite.nPort);
  EXPECT_STREQ(L"", http.httpSite.szServerName);
  EXPECT_EQ(80, http.httpSite.nServerNamePort);
  EXPECT_STREQ(L"", http.httpSite.szServerIP);
  EXPECT_EQ(80, http.httpSite.nServerIPPort);
  EXPECT_STREQ(L"", http.httpSite.szVersion);
  EXPECT_STREQ(L"<PATH>/Software/Current", http.httpSite.szRelativePath);
  EXPECT_STREQ(L" user with spaces ", http.httpSite.szUserName);
  EXPECT_STREQ(L"Secr3t-Pa55! <&> \"'", http.httpSite.szPassword);
  EXPECT_EQ(0, http.bSpipeOrSuperAgent);

  const tag_Site& spipe = *read.at(1);
  EXPECT_EQ(1, spipe.bSpipeOrSuperAgent);
  EXPECT_STREQ(L"%%lt%%NAME%%gt%% stays escaped", spipe.httpSite.szName);
  EXPECT_STREQ(L"[2001:db8::10]", spipe.httpSite.szServer);
  EXPECT_STREQ(L"<HOSTNAME>", spipe.httpSite.szServerName);
  EXPECT_STREQ(L"[fe80::1%eth0]", spipe.httpSite.szServerIP);
  EXPECT_EQ(8443, spipe.httpSite.nServerIPPort);
  EXPECT_STREQ(L"5.10.<BUILD>", spipe.httpSite.szVersion);
  EXPECT_EQ(-4, spipe.httpSite.nUseAuth);
  EXPECT_STREQ(L"Spipe-Pa55-\u00e9\u00df\u4e2d\U0001F511", spipe.httpSite.szPassword);

  const tag_Site& agentWithout = *read.at(3);
  EXPECT_EQ(1, agentWithout.bEnabled);
  EXPECT_STREQ(L"", agentWithout.httpSite.szServerName);
  EXPECT_EQ(80, agentWithout.httpSite.nServerNamePort);
  EXPECT_EQ(80, agentWithout.httpSite.nServerIPPort);

  const tag_Site& ftp = *read.at(4);
  EXPECT_EQ(0, ftp.nOrder);
  EXPECT_STREQ(L"Fallback", ftp.szType);
  EXPECT_STREQ(L"[::1]", ftp.ftpSite.szServer);
  EXPECT_EQ(21, ftp.ftpSite.nPort);

  const tag_Site& unc = *read.at(5);
  EXPECT_EQ(1, unc.bMirror);
  EXPECT_EQ(0, unc.nOrder);
  EXPECT_STREQ(L"\\\\<SRV>", unc.uncSite.szServer);
  EXPECT_STREQ(L"%%lt%%share%%gt%%$", unc.uncSite.szShareName);
  EXPECT_EQ(-2, unc.uncSite.nUseLoggedonUserAccount);

  const tag_Site& local = *read.at(6);
  EXPECT_STREQ(L"repository", local.szType);
  EXPECT_STREQ(L"<INSTALLDIR>/repo", local.localSite.szRelativePath);

  const tag_Site& proxy = *read.at(7);
  EXPECT_STREQ(L"", proxy.szType);
  EXPECT_EQ(0, proxy.bEnabled);
  EXPECT_EQ(0, proxy.nOrder);
  EXPECT_STREQ(L"FtpHttp", proxy.proxySettings.szProxyKind);
  EXPECT_STREQ(L"<FTPPROXY>", proxy.proxySettings.szFtpProxyServer);
  EXPECT_EQ(1, proxy.proxySettings.bBypassLocalAddress);
  EXPECT_STREQ(L"a.example;<H>;*.corp.example", proxy.proxySettings.szExclusionList);
  EXPECT_EQ(3, proxy.proxySettings.nExclusionCount);
  EXPECT_STREQ(L"AltFtpProxy-Pa55!", proxy.proxySettings.szAlternateFtpProxyPassword);
}

std::wstring Pattern(const wchar_t* tag, std::size_t length) {
  std::wstring text = tag;
  for (wchar_t c = L'a'; text.size() < length; c = c == L'z' ? L'a' : c + 1) text += c;
  text.resize(length);
  return text;
}

// Every text field holds capacity - 1 characters.
void FillAtCapacity(SiteList& list) {
  list.append(SiteBuilder(sitehlp::SITE_TYPE_HTTP)
                  .Type(Pattern(L"type-", 259)).Element(L"SpipeSite").Name(Pattern(L"name-", 259))
                  .Server(Pattern(L"server-", 259), 65535).SecurePort(4294967295u)
                  .ServerName(Pattern(L"netbios-", 260), 1).ServerIP(Pattern(L"ip-", 99), 2)
                  .Version(Pattern(L"version-", 259)).Path(Pattern(L"path-", 519)).UseAuth(2147483647)
                  .Account(Pattern(L"user-", 259), Pattern(L"Pa55-", 259))
                  .Release());
  list.append(SiteBuilder(sitehlp::SITE_TYPE_HTTP)
                  .Type(L"repository").Element(L"SuperAgentSite").Server(Pattern(L"%%lt%%server%%gt%%-", 259), 0)
                  .ServerName(Pattern(L"%%lt%%netbios%%gt%%-", 260), 0).ServerIP(Pattern(L"%%lt%%ip%%gt%%-", 99), 0)
                  .Path(Pattern(L"%%lt%%path%%gt%%-", 519)).Account(L"", Pattern(L"\u00e9\u4e2d-", 259))
                  .Release());
  list.append(SiteBuilder(sitehlp::SITE_TYPE_FTP)
                  .Type(L"repository").Name(Pattern(L"ftpname-", 259)).Server(Pattern(L"ftpserver-", 259), -1)
                  .SecurePort(1).Path(Pattern(L"ftppath-", 519))
                  .Account(Pattern(L"ftpuser-", 259), Pattern(L"ftppass-", 259))
                  .Release());
  list.append(SiteBuilder(sitehlp::SITE_TYPE_UNC)
                  .Type(L"repository").Name(Pattern(L"uncname-", 259)).Server(Pattern(L"uncserver-", 259))
                  .Path(Pattern(L"uncpath-", 519)).Domain(Pattern(L"uncdomain-", 259))
                  .Account(Pattern(L"uncuser-", 259), Pattern(L"uncpass-", 259)).LoggedOnUser(-2147483647 - 1)
                  .Share(Pattern(L"share-", 259))
                  .Release());
  list.append(SiteBuilder(sitehlp::SITE_TYPE_LOCAL)
                  .Type(L"repository").Name(Pattern(L"localname-", 259)).Path(Pattern(L"localpath-", 519))
                  .Domain(Pattern(L"localdomain-", 259))
                  .Account(Pattern(L"localuser-", 259), Pattern(L"localpass-", 259)).LoggedOnUser(5)
                  .Release());
  // 1999 + 1 + 2000 = 4000 characters: the writer cuts the last one.
  list.append(SiteBuilder(sitehlp::SITE_TYPE_PROXY)
                  .Name(Pattern(L"proxyname-", 259)).HttpProxy(Pattern(L"httpproxy-", 259), 65535)
                  .FtpProxy(Pattern(L"ftpproxy-", 259), 1)
                  .Exclusions(Pattern(L"first-", 1999) + L";" + Pattern(L"second-", 2000), 0)
                  .HttpProxyAccount(Pattern(L"hu-", 259), Pattern(L"hp-", 259))
                  .FtpProxyAccount(Pattern(L"fu-", 259), Pattern(L"fp-", 259))
                  .AlternateHttpProxyAccount(Pattern(L"ahu-", 259), Pattern(L"ahp-", 259))
                  .AlternateFtpProxyAccount(Pattern(L"afu-", 259), Pattern(L"afp-", 259))
                  .Release());
}

TEST_F(SiteListRoundTripTest, TextsAtTheirCapacityComeBackWhole) {
  FillAtCapacity(m_list);
  RoundTrip(m_list.head());
}

TEST_F(SiteListRoundTripTest, ExclusionListOfFourThousandCharactersLosesItsLastCharacter) {
  FillAtCapacity(m_list);
  SiteList written(m_helper, sitetest::CopyList(m_list.head()));
  ASSERT_EQ(0, m_helper.CreateSiteList(written.head(), m_wpath, L"", L"", L"", {}));
  SiteList read(m_helper);
  ASSERT_EQ(0, m_helper.ReadSiteList(m_wpath, read.out()));
  ASSERT_EQ(6u, read.size());
  const std::wstring list = read.at(5)->proxySettings.szExclusionList;
  EXPECT_EQ(Pattern(L"first-", 1999) + L";" + Pattern(L"second-", 1999), list);
  EXPECT_EQ(3999u, list.size());
  EXPECT_EQ(2, read.at(5)->proxySettings.nExclusionCount);
}

TEST_F(SiteListRoundTripTest, TextsPastTheirCapacityAreCutWhenFilledAndComeBackCut) {
  testsupport::CapturingLogSink log;
  const std::wstring longText = Pattern(L"long-", 700);
  tag_Site* s = m_list.append(NewSite(sitehlp::SITE_TYPE_HTTP));
  Set(s->szType, L"master");
  Set(s->httpSite.szSiteElement, L"SpipeSite");
  m_helper.CopyWStr(s->httpSite.szName, longText.c_str(), sitehlp::c_nameCapacity);
  m_helper.CopyWStr(s->httpSite.szServer, longText.c_str(), sitehlp::c_nameCapacity);
  m_helper.CopyWStr(s->httpSite.szServerName, longText.c_str(), sitehlp::c_serverNameCapacity);
  m_helper.CopyWStr(s->httpSite.szServerIP, longText.c_str(), sitehlp::c_serverIPCapacity);
  m_helper.CopyWStr(s->httpSite.szRelativePath, longText.c_str(), sitehlp::c_pathCapacity);
  m_helper.CopyWStr(s->httpSite.szPassword, longText.c_str(), sitehlp::c_nameCapacity);
  EXPECT_EQ(Pattern(L"long-", 259), std::wstring(s->httpSite.szName));
  EXPECT_EQ(Pattern(L"long-", 260), std::wstring(s->httpSite.szServerName));
  EXPECT_EQ(Pattern(L"long-", 99), std::wstring(s->httpSite.szServerIP));
  EXPECT_EQ(Pattern(L"long-", 519), std::wstring(s->httpSite.szRelativePath));
  EXPECT_TRUE(log.contains(L"String " + longText + L" is truncated to " + Pattern(L"long-", 99) + L" in CopyWStr"));

  tag_Site* p = m_list.append(NewSite(sitehlp::SITE_TYPE_PROXY));
  const std::wstring hosts = Pattern(L"h1-", 3000) + L";" + Pattern(L"h2-", 3000);
  m_helper.CopyWStr(p->proxySettings.szExclusionList, hosts.c_str(), sitehlp::c_exclusionListCapacity);
  EXPECT_EQ(4000u, std::wcslen(p->proxySettings.szExclusionList));
  RoundTrip(m_list.head());
}

TEST_F(SiteListRoundTripTest, SingleExclusionHostOf3999CharactersIsDroppedOnReadingWithALogLine) {
  // The reader counts a delimiter for every host, the first one included.
  tag_Site* p = m_list.append(NewSite(sitehlp::SITE_TYPE_PROXY));
  Set(p->proxySettings.szExclusionList, Pattern(L"big-", 3999));
  tag_Site* q = m_list.append(NewSite(sitehlp::SITE_TYPE_PROXY));
  Set(q->proxySettings.szExclusionList, L";" + Pattern(L"fits-", 3998));
  RoundTrip(m_list.head());

  SiteList read(m_helper);
  testsupport::CapturingLogSink log;
  ASSERT_EQ(0, m_helper.ReadSiteList(m_wpath, read.out()));
  ASSERT_EQ(2u, read.size());
  EXPECT_STREQ(L"", read.at(0)->proxySettings.szExclusionList);
  EXPECT_EQ(0, read.at(0)->proxySettings.nExclusionCount);
  EXPECT_EQ(Pattern(L"fits-", 3998), std::wstring(read.at(1)->proxySettings.szExclusionList));
  EXPECT_EQ(1, read.at(1)->proxySettings.nExclusionCount);
  EXPECT_EQ(std::vector<std::wstring>{L"Exclusion list of proxy settings is truncated to  in ReadSiteFromSiteList"},
            log.messages(port::LogLevel::Detail));
}

TEST_F(SiteListRoundTripTest, EmptyListComesBackEmpty) {
  ASSERT_EQ(0, m_helper.CreateSiteList(nullptr, m_wpath, L"", L"", L"", {}));
  SiteList read(m_helper);
  EXPECT_EQ(0, m_helper.ReadSiteList(m_wpath, read.out()));
  EXPECT_EQ(nullptr, read.head());
}

TEST_F(SiteListRoundTripTest, RecordsOfUnknownKindAreLeftOutOfTheDocument) {
  FillEveryKind(m_list);
  tag_Site* unknown = NewSite(5);
  unknown->pNext = m_list.at(3)->pNext;
  m_list.at(3)->pNext = unknown;
  RoundTrip(m_list.head());
}

TEST_F(SiteListRoundTripTest, PolicySettingsComeBack) {
  m_helper.SetPolicySetting(L"OverwriteClientSites", L"1");
  m_helper.SetPolicySetting(L"B", L" spaced value ");
  m_helper.SetPolicySetting(L"a&<", L"v&<>\"");
  ASSERT_EQ(0, m_helper.CreateSiteList(nullptr, m_wpath, L"", L"", L"", {}));
  CSitesHelper reader(m_config.dir().wfile("unrelated.xml"));
  SiteList read(reader);
  ASSERT_EQ(0, reader.ReadSiteList(m_wpath, read.out()));
  EXPECT_EQ(m_helper.GetPolicySettings(), reader.GetPolicySettings());
}

TEST_F(SiteListRoundTripTest, VersionsAndTypeComeBack) {
  ASSERT_EQ(0, m_helper.CreateSiteList(nullptr, m_wpath, L"20200202020202", L"20210303030303", L"Server", {}));
  CSitesHelper reader(m_wpath);
  EXPECT_EQ(L"20200202020202", reader.GetGlobalVersion());
  EXPECT_EQ(L"20210303030303", reader.GetLocalVersion());
  EXPECT_EQ(L"Server", reader.GetSiteListType());
}

// Tabs and line feeds inside texts and attribute values are plain XML content.
TEST_F(SiteListRoundTripTest, TabsAndLineFeedsInTextsAndAttributesComeBack) {
  tag_Site* s = m_list.append(NewSite(sitehlp::SITE_TYPE_UNC));
  Set(s->szType, L"repository");
  Set(s->uncSite.szName, L"tab\there\nline\r\nbreak\r");
  Set(s->uncSite.szServer, L"srv\r.example");
  Set(s->uncSite.szShareName, L"share\tname");
  Set(s->uncSite.szRelativePath, L"a\nb\n");
  Set(s->uncSite.szDomainName, L"\tDOMAIN\n");
  Set(s->uncSite.szUserName, L"first\tsecond");
  Set(s->uncSite.szPassword, L"pass\nword\r");
  RoundTrip(m_list.head());
}

// A text made only of white space is character data like any other and must
// be delivered as it was written.
TEST_F(SiteListRoundTripTest, TextsOfWhiteSpaceOnlyComeBack) {
  tag_Site* s = m_list.append(NewSite(sitehlp::SITE_TYPE_UNC));
  Set(s->szType, L"repository");
  Set(s->uncSite.szName, L" ");
  Set(s->uncSite.szShareName, L"   ");
  Set(s->uncSite.szRelativePath, L"\t");
  Set(s->uncSite.szDomainName, L"\n");
  Set(s->uncSite.szUserName, L" ");
  tag_Site* p = m_list.append(NewSite(sitehlp::SITE_TYPE_PROXY));
  Set(p->proxySettings.szHttpProxyUser, L"  ");
  Set(p->proxySettings.szExclusionList, L"a; ;b");
  RoundTrip(m_list.head());
}

// A carriage return in element text must be written so that the parser's
// line-end handling does not turn it into a line feed.
TEST_F(SiteListRoundTripTest, CarriageReturnsInElementTextsComeBack) {
  tag_Site* s = m_list.append(NewSite(sitehlp::SITE_TYPE_LOCAL));
  Set(s->szType, L"repository");
  Set(s->localSite.szRelativePath, L"C:\\repo\rX");
  Set(s->localSite.szDomainName, L"DOM\r\nAIN");
  Set(s->localSite.szUserName, L"first\rsecond");
  RoundTrip(m_list.head());
}

// ---- Random lists -----------------------------------------------------------------------------

class RandomLists {
 public:
  explicit RandomLists(unsigned seed) : m_rng(seed) {}

  tag_Site* Make(CSitesHelper& helper) {
    SiteList list(helper);
    const int count = Int(0, 8);
    for (int i = 0; i < count; ++i) list.append(Site());
    return list.release();
  }

 private:
  int Int(int low, int high) { return std::uniform_int_distribution<int>(low, high)(m_rng); }
  bool Chance(int percent) { return Int(1, 100) <= percent; }

  // Text of up to max characters: never only white space, never a control
  // character; sometimes with escaped macro delimiters.
  std::wstring Text(std::size_t max, bool allowSemicolon = true) {
    static const std::wstring pool =
        L"abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789 .-_/\\:[]&<>\"'%=#@!?*$~+(),{}"
        L"\u00e9\u00df\u00fc\u03a9\u4e2d\u6587\U0001F600\U0001F511";
    if (Chance(15)) return std::wstring();
    std::size_t length = static_cast<std::size_t>(Int(1, Chance(10) ? static_cast<int>(max) : 24));
    if (length > max) length = max;
    std::wstring text;
    while (text.size() < length) {
      if (Chance(5)) {
        text += Chance(50) ? L"%%lt%%" : L"%%gt%%";
        continue;
      }
      if (allowSemicolon && Chance(3)) {
        text += L';';
        continue;
      }
      text += pool[static_cast<std::size_t>(Int(0, static_cast<int>(pool.size()) - 1))];
    }
    text.resize(length);
    if (text.find_first_not_of(L' ') == std::wstring::npos) text[0] = L'x';
    if (text.back() == L' ' && Chance(50)) text += L'y';
    if (text.size() > max) text.resize(max);
    return text;
  }

  template <std::size_t N>
  void Fill(wchar_t (&field)[N]) {
    Set(field, Text(N - 1));
  }

  int32_t Port() {
    switch (Int(0, 5)) {
      case 0: return 0;
      case 1: return 80;
      case 2: return 443;
      case 3: return -1;
      default: return Int(1, 65535);
    }
  }
  int32_t Raw() {
    switch (Int(0, 4)) {
      case 0: return 0;
      case 1: return 1;
      case 2: return -Int(1, 1000);
      default: return Int(2, 100000);
    }
  }

  std::wstring Hosts() {
    std::wstring list;
    const int count = Int(0, 6);
    for (int i = 0; i < count; ++i) {
      if (i) list += Chance(20) ? L";;" : L";";
      if (Chance(10)) list += L";";
      list += Text(40, false);
    }
    return list;
  }

  tag_Site* Site() {
    const int kind = Int(0, 4);
    tag_Site* s = NewSite(kind);
    static const wchar_t* const types[] = {L"",         L"master",   L"repository", L"mirror",     L"MIRROR",
                                           L"fallback", L"FallBack", L"remediation", L"custom type"};
    Set(s->szType, types[Int(0, 8)]);
    if (Chance(10)) Fill(s->szType);
    s->bEnabled = Raw();
    s->bLocal = Raw();
    s->bMirror = Raw();
    s->bSpipeOrSuperAgent = Raw();
    s->nOrder = Raw();
    switch (kind) {
      case sitehlp::SITE_TYPE_HTTP: {
        sitehlp::tag_HttpSite& h = s->httpSite;
        static const wchar_t* const elements[] = {L"", L"HttpSite", L"SpipeSite", L"SuperAgentSite"};
        Set(h.szSiteElement, elements[Int(0, 3)]);
        Fill(h.szName);
        Fill(h.szServer);
        Fill(h.szServerIP);
        h.nPort = Port();
        h.nServerIPPort = Port();
        h.nServerNamePort = Port();
        Fill(h.szRelativePath);
        Fill(h.szServerName);
        h.nUseAuth = Raw();
        Fill(h.szUserName);
        Fill(h.szPassword);
        Fill(h.szVersion);
        h.nSecurePort = static_cast<uint32_t>(Port());
        break;
      }
      case sitehlp::SITE_TYPE_FTP: {
        sitehlp::tag_FtpSite& f = s->ftpSite;
        Fill(f.szName);
        Fill(f.szServer);
        Fill(f.szRelativePath);
        Fill(f.szUserName);
        Fill(f.szPassword);
        f.nPort = Port();
        f.nSecurePort = static_cast<uint32_t>(Port());
        break;
      }
      case sitehlp::SITE_TYPE_UNC: {
        sitehlp::tag_UncSite& u = s->uncSite;
        Fill(u.szName);
        Fill(u.szServer);
        Fill(u.szRelativePath);
        Fill(u.szDomainName);
        Fill(u.szUserName);
        Fill(u.szPassword);
        u.nUseLoggedonUserAccount = Raw();
        Fill(u.szShareName);
        break;
      }
      case sitehlp::SITE_TYPE_LOCAL: {
        sitehlp::tag_LocalSite& l = s->localSite;
        Fill(l.szName);
        Fill(l.szRelativePath);
        Fill(l.szDomainName);
        Fill(l.szUserName);
        Fill(l.szPassword);
        l.nUseLoggedonUserAccount = Raw();
        break;
      }
      default: {
        sitehlp::tag_ProxySettings& p = s->proxySettings;
        Fill(p.szProxyKind);
        Fill(p.szName);
        if (Chance(70)) Fill(p.szHttpProxyServer);
        p.nHttpProxyPort = Int(0, 65535);
        if (Chance(70)) Fill(p.szFtpProxyServer);
        p.nFtpProxyPort = Int(0, 65535);
        p.bAllowUserToConfigureProxy = Raw();
        p.bBypassLocalAddress = Raw();
        p.bUseIEConfig = Raw();
        p.nExclusionCount = Raw();
        Set(p.szExclusionList, Hosts());
        p.bFtpUseAuth = Raw();
        p.bHttpUseAuth = Raw();
        Fill(p.szHttpProxyUser);
        Fill(p.szHttpProxyPassword);
        Fill(p.szFtpProxyUser);
        Fill(p.szFtpProxyPassword);
        p.bAlternateFtpUseAuth = Raw();
        p.bAlternateHttpUseAuth = Raw();
        Fill(p.szAlternateHttpProxyUser);
        Fill(p.szAlternateHttpProxyPassword);
        Fill(p.szAlternateFtpProxyUser);
        Fill(p.szAlternateFtpProxyPassword);
        break;
      }
    }
    return s;
  }

  std::mt19937 m_rng;
};

TEST_F(SiteListRoundTripTest, ThreeHundredRandomListsComeBack) {
  RandomLists random(20240607u);
  std::map<int, int> kinds;
  for (int i = 0; i < 300; ++i) {
    SCOPED_TRACE("random list " + std::to_string(i));
    SiteList list(m_helper, random.Make(m_helper));
    for (tag_Site* s = list.head(); s; s = s->pNext) ++kinds[s->nSiteType];
    RoundTrip(list.head());
    if (HasFailure()) break;  // one readable failure rather than hundreds
  }
  // The lists did hold every kind, many times.
  ASSERT_EQ(5u, kinds.size());
  for (const auto& kind : kinds) EXPECT_LT(150, kind.second) << "kind " << kind.first;
}

}  // namespace
