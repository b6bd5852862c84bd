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

template <std::size_t N>
void Set(wchar_t (&field)[N], const std::wstring& text) {
  if (text.size() >= N) throw std::length_error("generated text does not fit its field");
  std::wmemset(field, 0, N);
  std::wmemcpy(field, text.data(), text.size());
}

tag_Site* NewSite(int kind) {
  tag_Site* site = static_cast<tag_Site*>(std::calloc(1, sizeof(tag_Site)));
  if (!site) throw std::bad_alloc();
  site->nSiteType = kind;
  return site;
}

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

void Common(tag_Site* site, const wchar_t* type, int order, bool enabled, bool local) {
  Set(site->szType, type);
  site->nOrder = order;
  site->bEnabled = enabled ? 1 : 0;
  site->bLocal = local ? 1 : 0;
  site->bMirror = std::wcscmp(type, L"mirror") == 0;
}

void Credentials(Rng& rng, wchar_t (&user)[260], wchar_t (&password)[260]) {
  if (rng.Below(100) >= 33) return;  // most repositories need no account
  Set(user, L"svc_" + rng.Word(4, 10));
  Set(password, rng.Word(10, 20) + L"!" + Num(rng.Below(1000)));
}

tag_Site* Spipe(Rng& rng) {
  tag_Site* s = NewSite(sitehlp::SITE_TYPE_HTTP);
  Common(s, L"master", 1, true, false);
  s->bSpipeOrSuperAgent = 1;
  sitehlp::tag_HttpSite& h = s->httpSite;
  Set(h.szSiteElement, L"SpipeSite");
  Set(h.szName, L"Vantor_MasterSite");
  Set(h.szServer, L"mgmt.corp.example");
  h.nPort = 443;
  Set(h.szServerName, L"MGMT01");
  h.nServerNamePort = 443;
  Set(h.szServerIP, L"192.0.2.10");
  h.nServerIPPort = 443;
  h.nSecurePort = 8443;
  Set(h.szRelativePath, L"Software");
  Set(h.szVersion, L"5.10.0");
  Credentials(rng, h.szUserName, h.szPassword);
  return s;
}

tag_Site* Http(Rng& rng, unsigned i, bool superAgent) {
  tag_Site* s = NewSite(sitehlp::SITE_TYPE_HTTP);
  const bool mirror = !superAgent && rng.Below(5) == 0;
  Common(s, superAgent ? L"repository" : mirror ? L"mirror" : L"repository", static_cast<int>(i + 1),
         rng.Below(10) != 0, false);
  sitehlp::tag_HttpSite& h = s->httpSite;
  if (superAgent) {
    s->bSpipeOrSuperAgent = 1;
    Set(h.szSiteElement, L"SuperAgentSite");
    Set(h.szName, L"SuperAgent_" + Num(i));
    Set(h.szServer, L"sa" + Num(i) + L".branch" + Num(rng.Below(40)) + L".corp.example");
    h.nPort = 8081;
    Set(h.szServerName, L"SA" + Num(i));
    h.nServerNamePort = 8081;
    Set(h.szServerIP, L"198.51.100." + Num(1 + rng.Below(250)));
    h.nServerIPPort = 8081;
    Set(h.szRelativePath, L"Software");
  } else {
    Set(h.szSiteElement, L"HttpSite");
    Set(h.szName, (mirror ? L"Mirror_" : L"HttpRepo_") + Num(i));
    Set(h.szServer, i == 1 ? std::wstring(L"update.vlm.example") : L"repo" + Num(i) + L".vlm.example");
    h.nPort = rng.Below(4) == 0 ? 8080 : 80;
    if (rng.Below(3) == 0) h.nSecurePort = 443;
    Set(h.szRelativePath, L"Updates/" + rng.Word(3, 12) + L"/current");
  }
  h.nUseAuth = rng.Below(3) == 0 ? 1 : 0;
  Credentials(rng, h.szUserName, h.szPassword);
  return s;
}

tag_Site* Ftp(Rng& rng, unsigned i) {
  tag_Site* s = NewSite(sitehlp::SITE_TYPE_FTP);
  Common(s, L"repository", static_cast<int>(i + 1), rng.Below(10) != 0, false);
  sitehlp::tag_FtpSite& f = s->ftpSite;
  Set(f.szName, L"FtpRepo_" + Num(i));
  Set(f.szServer, i == 2 ? std::wstring(L"ftp.vlm.example") : L"ftp" + Num(i) + L".vlm.example");
  f.nPort = 21;
  if (rng.Below(4) == 0) f.nSecurePort = 990;
  Set(f.szRelativePath, L"pub/updates/" + rng.Word(3, 10));
  if (rng.Below(2) == 0)
    Set(f.szUserName, L"anonymous");
  else
    Credentials(rng, f.szUserName, f.szPassword);
  return s;
}

tag_Site* Unc(Rng& rng, unsigned i) {
  tag_Site* s = NewSite(sitehlp::SITE_TYPE_UNC);
  Common(s, L"repository", static_cast<int>(i + 1), rng.Below(10) != 0, rng.Below(2) == 0);
  sitehlp::tag_UncSite& u = s->uncSite;
  Set(u.szName, L"Share_" + Num(i));
  Set(u.szServer, L"files" + Num(i) + L".corp.example");
  Set(u.szShareName, L"updates" + Num(rng.Below(10)));
  Set(u.szRelativePath, L"agent/" + rng.Word(3, 10));
  u.nUseLoggedonUserAccount = rng.Below(2);
  Set(u.szDomainName, L"CORP");
  Credentials(rng, u.szUserName, u.szPassword);
  return s;
}

tag_Site* Local(Rng& rng, unsigned i, bool fallback) {
  tag_Site* s = NewSite(sitehlp::SITE_TYPE_LOCAL);
  Common(s, fallback ? L"fallback" : L"repository", fallback ? 0 : static_cast<int>(i + 1), true, true);
  sitehlp::tag_LocalSite& l = s->localSite;
  Set(l.szName, fallback ? std::wstring(L"Fallback") : L"LocalCache_" + Num(i));
  Set(l.szRelativePath, L"/var/cache/vlm/" + rng.Word(4, 12));
  l.nUseLoggedonUserAccount = 0;
  return s;
}

tag_Site* Proxy(Rng& rng) {
  tag_Site* s = NewSite(sitehlp::SITE_TYPE_PROXY);
  sitehlp::tag_ProxySettings& p = s->proxySettings;
  Set(p.szName, L"CorpProxy");
  Set(p.szProxyKind, L"FtpHttp");
  Set(p.szHttpProxyServer, L"proxy.corp.example");
  p.nHttpProxyPort = 3128;
  Set(p.szFtpProxyServer, L"ftpproxy.corp.example");
  p.nFtpProxyPort = 2121;
  p.bBypassLocalAddress = 1;
  p.bHttpUseAuth = 1;
  Set(p.szHttpProxyUser, L"proxyuser");
  Set(p.szHttpProxyPassword, L"proxy-" + rng.Word(8, 12));
  Set(p.szFtpProxyUser, L"ftpproxyuser");
  Set(p.szFtpProxyPassword, L"ftp-" + rng.Word(8, 12));
  std::wstring exclusions;
  const unsigned count = 12;
  for (unsigned k = 0; k < count; ++k) {
    if (k) exclusions += L";";
    exclusions += L"host" + Num(k) + L"." + rng.Word(3, 8) + L".corp.example";
  }
  Set(p.szExclusionList, exclusions);
  p.nExclusionCount = static_cast<int32_t>(count);
  return s;
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

tag_Site* CopyList(const tag_Site* head) {
  tag_Site* first = nullptr;
  tag_Site* tail = nullptr;
  for (const tag_Site* s = head; s; s = s->pNext) {
    tag_Site* c = static_cast<tag_Site*>(std::malloc(sizeof(tag_Site)));
    if (!c) throw std::bad_alloc();
    std::memcpy(c, s, sizeof(tag_Site));
    c->pNext = nullptr;
    if (tail)
      tail->pNext = c;
    else
      first = c;
    tail = c;
  }
  return first;
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
