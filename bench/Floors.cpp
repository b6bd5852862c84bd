#include "Floors.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <stdexcept>

#include <pugixml.hpp>

#include "FloorCipher.h"
#include "port/config/IConfiguration.h"
#include "port/fs/SysCalls.h"

namespace vlmbench {

namespace {

using sitehlp::tag_Site;

// Sink for walked values, so the compiler cannot drop the walk.
volatile std::size_t g_sink = 0;

bool EndsWith(const char* s, const char* suffix) {
  const std::size_t n = std::strlen(s);
  const std::size_t m = std::strlen(suffix);
  return n >= m && std::memcmp(s + n - m, suffix, m) == 0;
}

// Opens the ciphertext of a password element into a wide buffer the size of
// a record's password field.
void OpenPassword(const pugi::xml_node& element, FloorCipher& cipher, std::size_t& acc) {
  const char* text = element.child_value();
  const std::size_t size = std::strlen(text);
  if (size == 0) return;
  wchar_t clear[256];
  if (!cipher.Open(text, size, clear, sizeof clear / sizeof clear[0]))
    throw std::runtime_error("floor cannot open a password");
  acc += std::wcslen(clear);
}

void Walk(const pugi::xml_node& node, std::size_t& acc, FloorCipher* cipher) {
  for (pugi::xml_attribute a = node.first_attribute(); a; a = a.next_attribute())
    acc += std::strlen(a.name()) + std::strlen(a.value());
  for (pugi::xml_node c = node.first_child(); c; c = c.next_sibling()) {
    acc += std::strlen(c.name()) + std::strlen(c.value());
    if (cipher && c.type() == pugi::node_element && EndsWith(c.name(), "Password")) OpenPassword(c, *cipher, acc);
    Walk(c, acc, cipher);
  }
}

// UTF-8 of wide record text.
const char* U8(const wchar_t* s, std::string& buffer) {
  buffer.clear();
  for (; *s; ++s) {
    const unsigned long c = static_cast<unsigned long>(*s);
    if (c < 0x80)
      buffer.push_back(static_cast<char>(c));
    else
      platform_detail::AppendUtf8(buffer, c);
  }
  return buffer.c_str();
}

class FdWriter : public pugi::xml_writer {
 public:
  explicit FdWriter(int fd) : m_fd(fd) {}
  void write(const void* data, std::size_t size) override {
    const char* p = static_cast<const char*>(data);
    while (size > 0) {
      const ssize_t n = ::write(m_fd, p, size);
      if (n <= 0) throw std::runtime_error("write failed");
      p += n;
      size -= static_cast<std::size_t>(n);
      m_written += static_cast<std::size_t>(n);
    }
  }
  std::size_t written() const { return m_written; }

 private:
  int m_fd;
  std::size_t m_written = 0;
};

constexpr char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";

// Temporary file, fsync, rename over path, directory fsync: the durability
// the library's crash-safe write gives, at its minimum number of calls.
std::size_t SaveDurably(const pugi::xml_document& doc, const std::string& path) {
  const std::string::size_type slash = path.rfind('/');
  const std::string dir = slash == std::string::npos ? "." : path.substr(0, slash);
  const std::string tmp = path + ".floor.tmp";
  const int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) throw std::runtime_error("cannot create " + tmp);
  FdWriter writer(fd);
  writer.write(kDeclaration, sizeof kDeclaration - 1);
  doc.save(writer, "", pugi::format_raw | pugi::format_no_declaration, pugi::encoding_utf8);
  // Through the port layer's system call table, like the library's write, so
  // that a benchmark can take fsync out of both at once.
  if (port::Sys().fsync(fd) != 0 || ::close(fd) != 0) throw std::runtime_error("cannot sync " + tmp);
  if (::rename(tmp.c_str(), path.c_str()) != 0) throw std::runtime_error("cannot rename " + tmp);
  const int dfd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dfd < 0) throw std::runtime_error("cannot open " + dir);
  port::Sys().fsync(dfd);
  ::close(dfd);
  return writer.written();
}

void SetNumber(pugi::xml_attribute a, long long v) {
  char text[24];
  std::snprintf(text, sizeof text, "%lld", v);
  a.set_value(text);
}

void AddNumberChild(pugi::xml_node parent, const char* name, long long v) {
  char text[24];
  std::snprintf(text, sizeof text, "%lld", v);
  parent.append_child(name).text().set(text);
}

class SiteBuilder {
 public:
  explicit SiteBuilder(pugi::xml_node site) : m_site(site) {}
  void Attr(const char* name, const wchar_t* value) { m_site.append_attribute(name).set_value(U8(value, m_buf)); }
  void Attr(const char* name, const char* value) { m_site.append_attribute(name).set_value(value); }
  void Number(const char* name, long long v) { SetNumber(m_site.append_attribute(name), v); }
  void HostPort(const char* name, const wchar_t* host, unsigned int port) {
    U8(host, m_buf);
    m_buf += ':';
    m_buf += std::to_string(port);
    m_site.append_attribute(name).set_value(m_buf.c_str());
  }
  void Child(const char* name, const wchar_t* value) { m_site.append_child(name).text().set(U8(value, m_buf)); }
  void ChildNumber(const char* name, long long v) { AddNumberChild(m_site, name, v); }
  void Password(const char* name, const std::string& encrypted) {
    pugi::xml_node p = m_site.append_child(name);
    p.text().set(encrypted.c_str());
    p.append_attribute("Encrypted").set_value("1");
  }
  void Header(const tag_Site& s, const wchar_t* name) {
    Attr("Type", s.szType[0] ? s.szType : L"repository");
    Attr("Name", name);
    if (wcscasecmp(s.szType, L"mirror") != 0) Number("Order", s.nOrder);
  }

 private:
  pugi::xml_node m_site;
  std::string m_buf;
};

}  // namespace

std::vector<std::wstring> PasswordsOf(const tag_Site& s) {
  switch (s.nSiteType) {
    case sitehlp::SITE_TYPE_HTTP: return {s.httpSite.szPassword};
    case sitehlp::SITE_TYPE_FTP: return {s.ftpSite.szPassword};
    case sitehlp::SITE_TYPE_UNC: return {s.uncSite.szPassword};
    case sitehlp::SITE_TYPE_LOCAL: return {s.localSite.szPassword};
    case sitehlp::SITE_TYPE_PROXY:
      return {s.proxySettings.szHttpProxyPassword, s.proxySettings.szFtpProxyPassword,
              s.proxySettings.szAlternateHttpProxyPassword, s.proxySettings.szAlternateFtpProxyPassword};
    default: return {};
  }
}

// The clear passwords of a record in the order the writer emits them,
// without copying: their number.
std::size_t PasswordFields(const tag_Site& s, const wchar_t* (&out)[4]) {
  switch (s.nSiteType) {
    case sitehlp::SITE_TYPE_HTTP: out[0] = s.httpSite.szPassword; return 1;
    case sitehlp::SITE_TYPE_FTP: out[0] = s.ftpSite.szPassword; return 1;
    case sitehlp::SITE_TYPE_UNC: out[0] = s.uncSite.szPassword; return 1;
    case sitehlp::SITE_TYPE_LOCAL: out[0] = s.localSite.szPassword; return 1;
    case sitehlp::SITE_TYPE_PROXY:
      out[0] = s.proxySettings.szHttpProxyPassword;
      out[1] = s.proxySettings.szFtpProxyPassword;
      out[2] = s.proxySettings.szAlternateHttpProxyPassword;
      out[3] = s.proxySettings.szAlternateFtpProxyPassword;
      return 4;
    default: return 0;
  }
}

std::size_t WalkSites(const pugi::xml_document& doc, FloorCipher* cipher);

std::size_t FloorRead(const std::string& path, FloorCipher* cipher) {
  pugi::xml_document doc;
  if (!doc.load_file(path.c_str())) throw std::runtime_error("floor cannot load " + path);
  return WalkSites(doc, cipher);
}

std::size_t FloorParseWalk(const std::string& text, FloorCipher* cipher) {
  pugi::xml_document doc;
  if (!doc.load_buffer(text.data(), text.size())) throw std::runtime_error("floor cannot parse text");
  return WalkSites(doc, cipher);
}

// Every site element's attributes and children walked, one whole record
// calloc'ed per site; the records are freed at the end.
std::size_t WalkSites(const pugi::xml_document& doc, FloorCipher* cipher) {
  std::size_t acc = 0;
  std::size_t sites = 0;
  tag_Site* head = nullptr;
  tag_Site* tail = nullptr;
  for (pugi::xml_node section = doc.document_element().first_child(); section; section = section.next_sibling()) {
    if (std::strcmp(section.name(), "SiteList") != 0) continue;
    for (pugi::xml_node site = section.first_child(); site; site = site.next_sibling()) {
      tag_Site* record = static_cast<tag_Site*>(std::calloc(1, sizeof(tag_Site)));
      if (!record) throw std::bad_alloc();
      if (tail)
        tail->pNext = record;
      else
        head = record;
      tail = record;
      Walk(site, acc, cipher);
      ++sites;
    }
  }
  while (head) {
    tag_Site* next = head->pNext;
    std::free(head);
    head = next;
  }
  g_sink = acc;
  return sites;
}

bool FloorLoad(const std::string& path) {
  pugi::xml_document doc;
  return static_cast<bool>(doc.load_file(path.c_str()));
}

namespace {

// The floor's read: one open, one fstat, reads until the size, one close.
std::string FloorReadAll(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) throw std::runtime_error("cannot open " + path);
  struct stat st {};
  ::fstat(fd, &st);
  std::string bytes(static_cast<std::size_t>(st.st_size), '\0');
  std::size_t used = 0;
  while (used < bytes.size()) {
    const ssize_t n = ::read(fd, &bytes[used], bytes.size() - used);
    if (n <= 0) break;
    used += static_cast<std::size_t>(n);
  }
  ::close(fd);
  bytes.resize(used);
  return bytes;
}

}  // namespace

std::size_t FloorReadBytes(const std::string& path) {
  const std::string bytes = FloorReadAll(path);
  const std::size_t used = bytes.size();
  g_sink = used;
  return used;
}

FloorCipher& TheFloorCipher() {
  static FloorCipher cipher(port::KeyDirectory() + "/kind3.key");
  return cipher;
}

std::size_t FloorReadWiden(const std::string& path) {
  const std::string bytes = FloorReadAll(path);
  const std::size_t used = bytes.size();
  // UTF-8 to wide text: one character per byte below 0x80, the sequences
  // decoded otherwise (no checks: a floor).
  std::wstring text(used, L'\0');
  const unsigned char* p = reinterpret_cast<const unsigned char*>(bytes.data());
  const unsigned char* end = p + used;
  wchar_t* out = &text[0];
  while (p < end) {
    const unsigned c = *p;
    if (c < 0x80) {
      *out++ = static_cast<wchar_t>(c);
      ++p;
    } else if (c < 0xE0 && p + 1 < end) {
      *out++ = static_cast<wchar_t>(((c & 0x1F) << 6) | (p[1] & 0x3F));
      p += 2;
    } else if (c < 0xF0 && p + 2 < end) {
      *out++ = static_cast<wchar_t>(((c & 0x0F) << 12) | ((p[1] & 0x3F) << 6) | (p[2] & 0x3F));
      p += 3;
    } else if (p + 3 < end) {
      *out++ = static_cast<wchar_t>(((c & 0x07) << 18) | ((p[1] & 0x3F) << 12) | ((p[2] & 0x3F) << 6) | (p[3] & 0x3F));
      p += 4;
    } else {
      break;
    }
  }
  text.resize(static_cast<std::size_t>(out - &text[0]));
  g_sink = text.size();
  return text.size();
}

std::size_t FloorCopy(const tag_Site* head) {
  tag_Site* first = nullptr;
  tag_Site* tail = nullptr;
  std::size_t n = 0;
  for (const tag_Site* s = head; s; s = s->pNext, ++n) {
    tag_Site* c = static_cast<tag_Site*>(std::calloc(1, sizeof(tag_Site)));
    if (!c) throw std::bad_alloc();
    std::memcpy(c, s, sizeof(tag_Site));
    c->pNext = nullptr;
    if (tail)
      tail->pNext = c;
    else
      first = c;
    tail = c;
  }
  while (first) {
    tag_Site* next = first->pNext;
    std::free(first);
    first = next;
  }
  return n;
}

std::size_t FloorWrite(const tag_Site* head, const std::vector<std::vector<std::string>>& passwords,
                       const std::vector<std::wstring>& caCertificates,
                       const std::vector<std::pair<std::wstring, std::wstring>>& policies, const std::string& path,
                       FloorCipher* cipher) {
  std::string buf;
  std::vector<std::string> fresh(4);
  pugi::xml_document doc;
  pugi::xml_node root = doc.append_child("ns:SiteLists");
  root.append_attribute("xmlns:ns").set_value("zelSiteList");
  root.append_attribute("GlobalVersion").set_value("20260301120000");
  root.append_attribute("LocalVersion").set_value("20260301120500");
  root.append_attribute("Type").set_value("Client");
  if (!caCertificates.empty()) {
    pugi::xml_node bundle = root.append_child("CaBundle");
    for (const std::wstring& c : caCertificates) bundle.append_child("CaCertificate").text().set(U8(c.c_str(), buf));
  }
  if (!policies.empty()) {
    pugi::xml_node node = root.append_child("Policies");
    for (const auto& p : policies) {
      pugi::xml_node setting = node.append_child("Setting");
      setting.text().set(U8(p.second.c_str(), buf));
      setting.append_attribute("name").set_value(U8(p.first.c_str(), buf));
    }
  }
  pugi::xml_node list = root.append_child("SiteList");
  list.append_attribute("Default").set_value("1");
  list.append_attribute("Name").set_value("SomeGUID");

  std::size_t index = 0;
  for (const tag_Site* s = head; s; s = s->pNext, ++index) {
    // With a cipher every password is sealed here, with a fresh nonce, as
    // the writer must; without, the ciphertexts made beforehand are used.
    const std::vector<std::string>* sealed = &passwords.at(index);
    if (cipher) {
      const wchar_t* clear[4];
      const std::size_t count = PasswordFields(*s, clear);
      for (std::size_t k = 0; k < count; ++k) {
        fresh[k].clear();
        U8(clear[k], buf);
        if (!cipher->Seal(buf.data(), buf.size(), fresh[k])) throw std::runtime_error("floor cannot seal");
      }
      sealed = &fresh;
    }
    const std::vector<std::string>& pw = *sealed;
    switch (s->nSiteType) {
      case sitehlp::SITE_TYPE_HTTP: {
        const sitehlp::tag_HttpSite& h = s->httpSite;
        const wchar_t* element = h.szSiteElement[0] ? h.szSiteElement : L"HttpSite";
        SiteBuilder b(list.append_child(U8(element, buf)));
        b.Header(*s, h.szName);
        b.Number("Enabled", s->bEnabled);
        b.Number("Local", s->bLocal);
        if (h.nSecurePort) b.Number("SecurePort", h.nSecurePort);
        b.HostPort("Server", h.szServer, static_cast<unsigned>(h.nPort));
        if (wcscasecmp(element, L"SpipeSite") == 0) {
          b.HostPort("ServerName", h.szServerName, static_cast<unsigned>(h.nServerNamePort));
          b.HostPort("ServerIP", h.szServerIP, static_cast<unsigned>(h.nServerIPPort));
          if (h.szVersion[0]) b.Attr("Version", h.szVersion);
        } else if (std::wcscmp(element, L"SuperAgentSite") == 0) {
          if (h.szServerName[0]) b.HostPort("ServerName", h.szServerName, static_cast<unsigned>(h.nServerNamePort));
          if (h.szServerIP[0]) b.HostPort("ServerIP", h.szServerIP, static_cast<unsigned>(h.nServerIPPort));
        }
        b.Child("RelativePath", h.szRelativePath);
        b.ChildNumber("UseAuth", h.nUseAuth);
        b.Child("UserName", h.szUserName);
        b.Password("Password", pw.at(0));
        break;
      }
      case sitehlp::SITE_TYPE_FTP: {
        const sitehlp::tag_FtpSite& f = s->ftpSite;
        SiteBuilder b(list.append_child("FTPSite"));
        b.Header(*s, f.szName);
        b.HostPort("Server", f.szServer, static_cast<unsigned>(f.nPort));
        b.Number("Enabled", s->bEnabled);
        if (f.nSecurePort) b.Number("SecurePort", f.nSecurePort);
        b.Number("Local", s->bLocal);
        b.Child("RelativePath", f.szRelativePath);
        b.Child("UserName", f.szUserName);
        b.Password("Password", pw.at(0));
        break;
      }
      case sitehlp::SITE_TYPE_UNC: {
        const sitehlp::tag_UncSite& u = s->uncSite;
        SiteBuilder b(list.append_child("UNCSite"));
        b.Header(*s, u.szName);
        b.Attr("Server", u.szServer);
        b.Number("Enabled", s->bEnabled);
        b.Number("Local", s->bLocal);
        b.Child("ShareName", u.szShareName);
        b.Child("RelativePath", u.szRelativePath);
        b.ChildNumber("UseLoggedonUserAccount", u.nUseLoggedonUserAccount);
        b.Child("DomainName", u.szDomainName);
        b.Child("UserName", u.szUserName);
        b.Password("Password", pw.at(0));
        break;
      }
      case sitehlp::SITE_TYPE_LOCAL: {
        const sitehlp::tag_LocalSite& l = s->localSite;
        SiteBuilder b(list.append_child("LocalSite"));
        b.Header(*s, l.szName);
        b.Number("Enabled", s->bEnabled);
        b.Number("Local", s->bLocal);
        b.Attr("Server", "127.0.0.1");
        b.Child("RelativePath", l.szRelativePath);
        b.ChildNumber("UseLoggedonUserAccount", l.nUseLoggedonUserAccount);
        b.Child("DomainName", l.szDomainName);
        b.Child("UserName", l.szUserName);
        b.Password("Password", pw.at(0));
        break;
      }
      case sitehlp::SITE_TYPE_PROXY: {
        const sitehlp::tag_ProxySettings& p = s->proxySettings;
        pugi::xml_node config = list.append_child("ProxyConfigList").append_child("ProxyConfig");
        SiteBuilder b(config);
        b.Attr("Name", p.szName);
        if (p.bUseIEConfig) b.Attr("UseIEConfig", "1");
        b.Attr("Local", "1");
        if (p.szHttpProxyServer[0]) {
          b.Attr("HttpProxyServer", p.szHttpProxyServer);
          b.Number("HttpProxyPort", static_cast<unsigned>(p.nHttpProxyPort));
        }
        if (p.szFtpProxyServer[0]) {
          b.Attr("FtpProxyServer", p.szFtpProxyServer);
          b.Number("FtpProxyPort", static_cast<unsigned>(p.nFtpProxyPort));
        }
        b.ChildNumber("AllowUserToConfigureProxy", p.bAllowUserToConfigureProxy);
        b.ChildNumber("BypassLocalAddress", p.bBypassLocalAddress);
        pugi::xml_node exclusions = config.append_child("ExclusionList");
        // Split without changing the record: the floor may run many times.
        std::wstring hosts(p.szExclusionList);
        std::wstring::size_type start = 0;
        while (start <= hosts.size()) {
          std::wstring::size_type end = hosts.find(L';', start);
          if (end == std::wstring::npos) end = hosts.size();
          if (end > start)
            exclusions.append_child("ExclusionHost").text().set(U8(hosts.substr(start, end - start).c_str(), buf));
          start = end + 1;
        }
        b.ChildNumber("FtpUseAuth", p.bFtpUseAuth);
        b.ChildNumber("HttpUseAuth", p.bHttpUseAuth);
        b.Child("HttpProxyUser", p.szHttpProxyUser);
        b.Password("HttpProxyPassword", pw.at(0));
        b.Child("FtpProxyUser", p.szFtpProxyUser);
        b.Password("FtpProxyPassword", pw.at(1));
        b.ChildNumber("AlternateFtpUseAuth", p.bAlternateFtpUseAuth);
        b.ChildNumber("AlternateHttpUseAuth", p.bAlternateHttpUseAuth);
        b.Child("AlternateHttpProxyUser", p.szAlternateHttpProxyUser);
        b.Password("AlternateHttpProxyPassword", pw.at(2));
        b.Child("AlternateFtpProxyUser", p.szAlternateFtpProxyUser);
        b.Password("AlternateFtpProxyPassword", pw.at(3));
        break;
      }
      default: break;
    }
  }
  return SaveDurably(doc, path);
}

std::size_t FloorLoadSave(const std::string& src, const std::string& dst) {
  pugi::xml_document doc;
  if (!doc.load_file(src.c_str())) throw std::runtime_error("floor cannot load " + src);
  return SaveDurably(doc, dst);
}

}  // namespace vlmbench
