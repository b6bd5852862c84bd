#include "ListState.h"

#include "Context.h"
#include "Fingerprint.h"

namespace sitelist {

int ReadListState(Context& ctx, const std::string& path, ListState& state) {
  state = ListState{};
  state.path = path;
  const std::unique_ptr<sitehlp::CSitesHelper> helper = ctx.MakeHelper(path);
  const std::wstring wpath = Wide(path);
  std::wstring global, local, type;
  int rc = helper->GetSitelistVersions(wpath, global, local, type);
  if (rc == -4) return 0;
  if (rc < 0) return rc;
  state.exists = true;
  state.globalVersion = Narrow(global);
  state.localVersion = Narrow(local);
  state.type = Narrow(type);
  std::wstring fips;
  if (helper->GetSitelistFipsMode(wpath, fips) == 0) state.fipsMode = Narrow(fips);
  std::vector<std::wstring> certificates;
  rc = helper->GetCaCertificates(wpath, certificates);
  if (rc < 0) return rc;
  for (const std::wstring& pem : certificates)
    state.certificates.push_back({Narrow(pem), CertificateFingerprint(Narrow(pem))});
  sitehlp::tag_Site* sites = nullptr;
  rc = helper->ReadSiteList(wpath, &sites);
  for (const sitehlp::tag_Site* site = sites; site; site = site->pNext) state.sites.push_back(RecordOf(*site));
  helper->FreeSiteListMemory(sites);
  if (rc < -1 || (rc == -1 && state.sites.empty())) return rc;
  for (const auto& [name, value] : helper->GetPolicySettings()) state.policies[Narrow(name)] = Narrow(value);
  return 0;
}

}  // namespace sitelist
