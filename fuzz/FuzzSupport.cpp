#include "FuzzSupport.h"

#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <vector>

#include "platform/AString.h"
#include "port/config/IConfiguration.h"
#include "port/log/Log.h"

namespace fuzzsupport {

namespace {

class NullSink : public port::LogSink {
 public:
  void Write(port::LogLevel, bool, const std::wstring&, const std::wstring&) override {}
};

std::string g_root;

void RemoveRoot() {
  std::error_code ec;
  if (!g_root.empty()) std::filesystem::remove_all(g_root, ec);
}

Environment Build() {
  const char* base = getenv("TMPDIR");
  std::string tmpl = std::string(base && *base ? base : "/tmp") + "/vlmfuzz.XXXXXX";
  std::vector<char> buf(tmpl.begin(), tmpl.end());
  buf.push_back('\0');
  if (!mkdtemp(buf.data())) {
    std::perror("mkdtemp");
    abort();
  }
  Environment env;
  env.root = buf.data();
  g_root = env.root;
  atexit(RemoveRoot);
  env.data = env.root + "/data";
  env.siteList = env.data + "/etc/SiteList.xml";
  env.input = env.root + "/input.xml";
  env.keyDir = env.root + "/keys-in";
  std::filesystem::create_directories(env.data + "/etc");
  std::filesystem::create_directories(env.keyDir);
  // The standard site list location, under the root prefix.
  std::filesystem::create_directories(env.root + "/root/opt/Velmora/orx/scratch/etc");

  port::ResetConfigValues();
  port::SetConfigValue(port::ConfigKey::DataDir, env.data);
  port::SetConfigValue(port::ConfigKey::LockDir, env.root + "/locks");
  port::SetConfigValue(port::ConfigKey::KeyDir, env.root + "/keys");
  port::SetConfigValue(port::ConfigKey::Managed, "0");
  port::SetConfigValue(port::ConfigKey::RootPrefix, env.root + "/root");

  static NullSink sink;
  port::SetLogSink(&sink);
  port::SetLogThreshold(port::LogLevel::Detail);
  return env;
}

template <std::size_t N>
void Terminated(const wchar_t (&field)[N], const char* name) {
  if (std::wmemchr(field, L'\0', N) == nullptr) {
    std::fprintf(stderr, "record field %s is not terminated within %zu characters\n", name, N);
    abort();
  }
}

}  // namespace

const Environment& Env() {
  static const Environment env = Build();
  return env;
}

void WriteBytes(const std::string& path, const std::uint8_t* data, std::size_t size) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
}

std::wstring Latin1(const std::uint8_t* data, std::size_t size) {
  std::wstring out;
  out.reserve(size);
  for (std::size_t i = 0; i < size; ++i) out.push_back(static_cast<wchar_t>(data[i]));
  return out;
}

std::wstring Utf8(const std::uint8_t* data, std::size_t size) {
  return AString(std::string(reinterpret_cast<const char*>(data), size));
}

void Require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "contract broken: %s\n", what);
  abort();
}

void RequireCode(int code, std::initializer_list<int> allowed, const char* operation) {
  for (int a : allowed)
    if (code == a) return;
  std::fprintf(stderr, "%s returned %d, which it never may\n", operation, code);
  abort();
}

std::size_t CheckList(const sitehlp::tag_Site* list) {
  std::size_t n = 0;
  for (const sitehlp::tag_Site* s = list; s; s = s->pNext, ++n) {
    Terminated(s->szType, "szType");
    Require(s->nSiteType >= sitehlp::SITE_TYPE_HTTP && s->nSiteType <= sitehlp::SITE_TYPE_PROXY,
            "a read record has a known kind");
    switch (s->nSiteType) {
      case sitehlp::SITE_TYPE_HTTP: {
        const auto& h = s->httpSite;
        Terminated(h.szSiteElement, "szSiteElement");
        Terminated(h.szName, "szName");
        Terminated(h.szServer, "szServer");
        Terminated(h.szServerIP, "szServerIP");
        Terminated(h.szRelativePath, "szRelativePath");
        Terminated(h.szServerName, "szServerName");
        Terminated(h.szUserName, "szUserName");
        Terminated(h.szPassword, "szPassword");
        Terminated(h.szVersion, "szVersion");
        break;
      }
      case sitehlp::SITE_TYPE_FTP: {
        const auto& f = s->ftpSite;
        Terminated(f.szName, "szName");
        Terminated(f.szServer, "szServer");
        Terminated(f.szRelativePath, "szRelativePath");
        Terminated(f.szUserName, "szUserName");
        Terminated(f.szPassword, "szPassword");
        break;
      }
      case sitehlp::SITE_TYPE_UNC: {
        const auto& u = s->uncSite;
        Terminated(u.szName, "szName");
        Terminated(u.szServer, "szServer");
        Terminated(u.szRelativePath, "szRelativePath");
        Terminated(u.szDomainName, "szDomainName");
        Terminated(u.szUserName, "szUserName");
        Terminated(u.szPassword, "szPassword");
        Terminated(u.szShareName, "szShareName");
        break;
      }
      case sitehlp::SITE_TYPE_LOCAL: {
        const auto& l = s->localSite;
        Terminated(l.szName, "szName");
        Terminated(l.szRelativePath, "szRelativePath");
        Terminated(l.szDomainName, "szDomainName");
        Terminated(l.szUserName, "szUserName");
        Terminated(l.szPassword, "szPassword");
        break;
      }
      case sitehlp::SITE_TYPE_PROXY: {
        const auto& p = s->proxySettings;
        Terminated(p.szProxyKind, "szProxyKind");
        Terminated(p.szName, "szName");
        Terminated(p.szHttpProxyServer, "szHttpProxyServer");
        Terminated(p.szFtpProxyServer, "szFtpProxyServer");
        Terminated(p.szExclusionList, "szExclusionList");
        Require(std::wcslen(p.szExclusionList) <= 3999, "the exclusion list holds at most 3,999 characters");
        Terminated(p.szHttpProxyUser, "szHttpProxyUser");
        Terminated(p.szHttpProxyPassword, "szHttpProxyPassword");
        Terminated(p.szFtpProxyUser, "szFtpProxyUser");
        Terminated(p.szFtpProxyPassword, "szFtpProxyPassword");
        Terminated(p.szAlternateHttpProxyUser, "szAlternateHttpProxyUser");
        Terminated(p.szAlternateHttpProxyPassword, "szAlternateHttpProxyPassword");
        Terminated(p.szAlternateFtpProxyUser, "szAlternateFtpProxyUser");
        Terminated(p.szAlternateFtpProxyPassword, "szAlternateFtpProxyPassword");
        break;
      }
    }
  }
  return n;
}

}  // namespace fuzzsupport
