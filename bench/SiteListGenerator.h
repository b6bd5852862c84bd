// Deterministic site lists for the benchmarks: the same seed and size give
// the same records, certificates and policies every time (only the password
// ciphertexts differ, their nonces being random).
#ifndef VLM_BENCH_SITELISTGENERATOR_H
#define VLM_BENCH_SITELISTGENERATOR_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "sitehlp/SitesHelper.h"
#include "support/SiteRecordBuilder.h"

namespace vlmbench {

struct GeneratedList {
  sitehlp::tag_Site* head = nullptr;  // calloc'ed records, freed with FreeSiteListMemory
  std::vector<std::wstring> caCertificates;
  std::map<std::wstring, std::wstring> policies;
  std::wstring globalVersion;
  std::wstring localVersion;
};

// Builds n sites in realistic proportions: one SPIPE site, SuperAgent sites,
// HTTP repositories and mirrors, FTP, UNC and local repositories, one
// fallback site and one proxy configuration with exclusions; about a third
// of the sites carry a user name and a password. Three CA certificates and a
// few policy settings come with it.
GeneratedList GenerateSiteList(unsigned int n, std::uint64_t seed);

// Writes the list with helper.CreateSiteList (passwords encrypted by the
// library, so a reader exercises its decryption), with the list's policies
// and versions. Returns CreateSiteList's result. The records are consumed
// (the writer changes them), the list is freed.
int WriteGeneratedList(sitehlp::CSitesHelper& helper, GeneratedList& list, const std::wstring& path);

// A deep copy of a record list (each node calloc'ed, as the library does).
using sitesample::CopyList;
void FreeList(sitehlp::tag_Site* head);
std::size_t CountSites(const sitehlp::tag_Site* head);

}  // namespace vlmbench

#endif  // VLM_BENCH_SITELISTGENERATOR_H
