#include "SiteListGenerator.h"

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <new>
#include <random>
#include <stdexcept>

namespace vlmbench {

namespace {

using sitehlp::tag_Site;

using sitehlp::SITE_TYPE_FTP;
using sitehlp::SITE_TYPE_HTTP;
using sitehlp::SITE_TYPE_LOCAL;
using sitehlp::SITE_TYPE_PROXY;
using sitehlp::SITE_TYPE_UNC;
using sitesample::SiteBuilder;

std::wstring Num(std::uint64_t v) { return std::to_wstring(v); }

class Rng {
 public:
  explicit Rng(std::uint64_t seed) : m_engine(seed) {}
  // Uniform in [0, n).
  unsigned Below(unsigned n) { return static_cast<unsigned>(m_engine() % n); }
  std::wstring Word(unsigned minLen, unsigned maxLen) {
    static const wchar_t kChars[] = L"abcdefghijklmnopqrstuvwxyz0123456789";
    const unsigned len = minLen + Below(maxLen - minLen + 1);
    std::wstring s;
    for (unsigned i = 0; i < len; ++i) s.push_back(kChars[Below(36)]);
    return s;
  }

 private:
  std::mt19937_64 m_engine;
};

// A PEM-shaped certificate of about 1.2 KB.
std::wstring Certificate(Rng& rng, int index) {
  static const wchar_t kB64[] = L"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::wstring pem = L"-----BEGIN CERTIFICATE-----\n";
  for (int line = 0; line < 18; ++line) {
    for (int k = 0; k < 64; ++k) pem.push_back(kB64[rng.Below(64)]);
    pem.push_back(L'\n');
  }
  pem += L"Q0EgIw==" + Num(static_cast<unsigned>(index)) + L"\n-----END CERTIFICATE-----";
  return pem;
}

// The header of a repository; a mirror is marked as the reader marks one.
SiteBuilder& Common(SiteBuilder& site, const wchar_t* type, int order, bool enabled, bool local) {
  site.Type(type).Order(order).Enabled(enabled ? 1 : 0).Local(local ? 1 : 0);
  return site.Mirror(std::wcscmp(type, L"mirror") == 0);
}

void Credentials(Rng& rng, SiteBuilder& site) {
  if (rng.Below(100) >= 33) return;  // most repositories need no account
  const std::wstring user = L"svc_" + rng.Word(4, 10);
  site.Account(user, rng.Word(10, 20) + L"!" + Num(rng.Below(1000)));
}

tag_Site* Spipe(Rng& rng) {
  SiteBuilder s(SITE_TYPE_HTTP);
  Common(s, L"master", 1, true, false)
      .SpipeOrSuperAgent().Element(L"SpipeSite").Name(L"Vantor_MasterSite").Server(L"mgmt.corp.example", 443)
      .ServerName(L"MGMT01", 443).ServerIP(L"192.0.2.10", 443).SecurePort(8443).Path(L"Software").Version(L"5.10.0");
  Credentials(rng, s);
  return s.Release();
}

tag_Site* Http(Rng& rng, unsigned i, bool superAgent) {
  SiteBuilder s(SITE_TYPE_HTTP);
  const bool mirror = !superAgent && rng.Below(5) == 0;
  Common(s, superAgent ? L"repository" : mirror ? L"mirror" : L"repository", static_cast<int>(i + 1),
         rng.Below(10) != 0, false);
  if (superAgent) {
    s.SpipeOrSuperAgent().Element(L"SuperAgentSite").Name(L"SuperAgent_" + Num(i));
    s.Server(L"sa" + Num(i) + L".branch" + Num(rng.Below(40)) + L".corp.example", 8081);
    s.ServerName(L"SA" + Num(i), 8081).ServerIP(L"198.51.100." + Num(1 + rng.Below(250)), 8081).Path(L"Software");
  } else {
    s.Element(L"HttpSite").Name((mirror ? L"Mirror_" : L"HttpRepo_") + Num(i));
    const std::wstring host = i == 1 ? std::wstring(L"update.vlm.example") : L"repo" + Num(i) + L".vlm.example";
    s.Server(host, rng.Below(4) == 0 ? 8080 : 80);
    if (rng.Below(3) == 0) s.SecurePort(443);
    s.Path(L"Updates/" + rng.Word(3, 12) + L"/current");
  }
  s.UseAuth(rng.Below(3) == 0 ? 1 : 0);
  Credentials(rng, s);
  return s.Release();
}

tag_Site* Ftp(Rng& rng, unsigned i) {
  SiteBuilder s(SITE_TYPE_FTP);
  Common(s, L"repository", static_cast<int>(i + 1), rng.Below(10) != 0, false).Name(L"FtpRepo_" + Num(i));
  s.Server(i == 2 ? std::wstring(L"ftp.vlm.example") : L"ftp" + Num(i) + L".vlm.example", 21);
  if (rng.Below(4) == 0) s.SecurePort(990);
  s.Path(L"pub/updates/" + rng.Word(3, 10));
  if (rng.Below(2) == 0)
    s.Account(L"anonymous", L"");
  else
    Credentials(rng, s);
  return s.Release();
}

tag_Site* Unc(Rng& rng, unsigned i) {
  SiteBuilder s(SITE_TYPE_UNC);
  Common(s, L"repository", static_cast<int>(i + 1), rng.Below(10) != 0, rng.Below(2) == 0);
  s.Name(L"Share_" + Num(i)).Server(L"files" + Num(i) + L".corp.example").Share(L"updates" + Num(rng.Below(10)));
  s.Path(L"agent/" + rng.Word(3, 10)).LoggedOnUser(static_cast<int32_t>(rng.Below(2))).Domain(L"CORP");
  Credentials(rng, s);
  return s.Release();
}

tag_Site* Local(Rng& rng, unsigned i, bool fallback) {
  SiteBuilder s(SITE_TYPE_LOCAL);
  Common(s, fallback ? L"fallback" : L"repository", fallback ? 0 : static_cast<int>(i + 1), true, true)
      .Name(fallback ? std::wstring(L"Fallback") : L"LocalCache_" + Num(i))
      .Path(L"/var/cache/vlm/" + rng.Word(4, 12))
      .LoggedOnUser(0);
  return s.Release();
}

tag_Site* Proxy(Rng& rng) {
  SiteBuilder s(SITE_TYPE_PROXY);
  s.Name(L"CorpProxy").ProxyKind(L"FtpHttp").HttpProxy(L"proxy.corp.example", 3128)
      .FtpProxy(L"ftpproxy.corp.example", 2121).BypassLocal(1).ProxyAuth(0, 1);
  s.HttpProxyAccount(L"proxyuser", L"proxy-" + rng.Word(8, 12));
  s.FtpProxyAccount(L"ftpproxyuser", L"ftp-" + rng.Word(8, 12));
  std::wstring exclusions;
  const unsigned count = 12;
  for (unsigned k = 0; k < count; ++k) {
    if (k) exclusions += L";";
    exclusions += L"host" + Num(k) + L"." + rng.Word(3, 8) + L".corp.example";
  }
  s.Exclusions(exclusions, static_cast<int32_t>(count));
  return s.Release();
}

}  // namespace

GeneratedList GenerateSiteList(unsigned int n, std::uint64_t seed) {
  Rng rng(seed);
  GeneratedList out;
  for (int c = 0; c < 3; ++c) out.caCertificates.push_back(Certificate(rng, c));
  out.policies[L"OverwriteClientSites"] = L"0";
  out.policies[L"UpdateIntervalMinutes"] = L"60";
  out.policies[L"AllowRepositoryFallback"] = L"1";
  out.globalVersion = L"20260301120000";
  out.localVersion = L"20260301120500";

  tag_Site* tail = nullptr;
  auto append = [&](tag_Site* s) {
    if (tail)
      tail->pNext = s;
    else
      out.head = s;
    tail = s;
  };
  // Fixed: the SPIPE site first, the proxy configuration and the fallback
  // site last; everything between drawn in realistic proportions.
  const unsigned fixed = n >= 3 ? 3 : n;
  if (n >= 1) append(Spipe(rng));
  for (unsigned i = 1; i + (fixed - 1) < n; ++i) {
    const unsigned r = rng.Below(100);
    if (i == 1 || (r >= 10 && r < 55))
      append(Http(rng, i, false));
    else if (r < 10)
      append(Http(rng, i, true));
    else if (i == 2 || r < 70)
      append(Ftp(rng, i));
    else if (r < 85)
      append(Unc(rng, i));
    else
      append(Local(rng, i, false));
  }
  if (n >= 2) append(Proxy(rng));
  if (n >= 3) append(Local(rng, n, true));
  return out;
}

int WriteGeneratedList(sitehlp::CSitesHelper& helper, GeneratedList& list, const std::wstring& path) {
  for (const auto& p : list.policies) helper.SetPolicySetting(p.first, p.second);
  const int rc = helper.CreateSiteList(list.head, path, list.globalVersion, list.localVersion, L"Client",
                                       list.caCertificates);
  helper.FreeSiteListMemory(list.head);
  list.head = nullptr;
  return rc;
}

void FreeList(tag_Site* head) {
  while (head) {
    tag_Site* next = head->pNext;
    std::free(head);
    head = next;
  }
}

std::size_t CountSites(const tag_Site* head) {
  std::size_t n = 0;
  for (; head; head = head->pNext) ++n;
  return n;
}

}  // namespace vlmbench
