// What a fresh process that reads a site list cannot avoid: the shared
// libraries it needs (OpenSSL's crypto library, expat, the C++ runtime;
// pugixml is linked in, as in the library), OpenSSL's initialisation, the
// key file, the conforming check (expat, no handlers), the parse with a walk
// of every site (one tag_Site calloc'ed per site) and the opening of every
// password. Prints the time spent in main and in each step (µs).
//   vlm-bench-fresh-floor <list> <key file>
#include <expat.h>
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <openssl/crypto.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>

#include <pugixml.hpp>

#include "FloorCipher.h"
#include "sitehlp/SitesHelper.h"

namespace {

double NowUs() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) * 1e6 + static_cast<double>(ts.tv_nsec) / 1e3;
}

std::string ReadFile(const char* path) {
  std::string bytes;
  const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return bytes;
  char buf[65536];
  for (ssize_t n; (n = ::read(fd, buf, sizeof buf)) > 0;) bytes.append(buf, static_cast<std::size_t>(n));
  ::close(fd);
  return bytes;
}

bool Conforming(const std::string& bytes) {
  XML_Parser parser = XML_ParserCreateNS("UTF-8", '\n');
  const bool ok = XML_Parse(parser, bytes.data(), static_cast<int>(bytes.size()), XML_TRUE) == XML_STATUS_OK;
  XML_ParserFree(parser);
  return ok;
}

bool EndsWithPassword(const char* name) {
  const std::size_t n = std::strlen(name);
  return n >= 8 && std::strcmp(name + n - 8, "Password") == 0;
}

// Opens every password under node; false when one does not open.
bool OpenAll(const pugi::xml_node& node, vlmbench::FloorCipher& cipher, std::size_t& opened) {
  for (pugi::xml_node c = node.first_child(); c; c = c.next_sibling()) {
    if (c.type() != pugi::node_element) continue;
    if (EndsWithPassword(c.name()) && *c.child_value()) {
      wchar_t clear[256];
      if (!cipher.Open(c.child_value(), std::strlen(c.child_value()), clear, 256)) return false;
      ++opened;
    }
    if (!OpenAll(c, cipher, opened)) return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const double start = NowUs();
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s <list> <key file>\n", argv[0]);
    return 2;
  }
  OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CONFIG, nullptr);
  const double init = NowUs();
  vlmbench::FloorCipher cipher(argv[2]);
  const double key = NowUs();
  std::string bytes = ReadFile(argv[1]);
  if (bytes.empty() || !Conforming(bytes)) return 1;
  const double check = NowUs();
  pugi::xml_document doc;
  if (!doc.load_buffer_inplace(&bytes[0], bytes.size())) return 1;
  std::size_t sites = 0;
  std::size_t opened = 0;
  sitehlp::tag_Site* head = nullptr;
  for (pugi::xml_node section = doc.document_element().first_child(); section; section = section.next_sibling()) {
    if (std::strcmp(section.name(), "SiteList") != 0) continue;
    for (pugi::xml_node site = section.first_child(); site; site = site.next_sibling(), ++sites) {
      auto* record = static_cast<sitehlp::tag_Site*>(std::calloc(1, sizeof(sitehlp::tag_Site)));
      if (!record) return 1;
      record->pNext = head;
      head = record;
      if (!OpenAll(site, cipher, opened)) return 1;
    }
  }
  while (head) {
    sitehlp::tag_Site* next = head->pNext;
    std::free(head);
    head = next;
  }
  const double done = NowUs();
  const char* spawned = std::getenv("VLM_FRESH_SPAWN_NS");
  std::printf("to_main_us=%.1f end_us=%.1f ", spawned ? start - std::atof(spawned) / 1e3 : 0.0, done);
  std::printf("main_us=%.1f openssl_init_us=%.1f key_us=%.1f read_check_us=%.1f parse_decrypt_us=%.1f sites=%zu "
              "passwords=%zu\n",
              done - start, init - start, key - init, check - key, done - check, sites, opened);
  return 0;
}
