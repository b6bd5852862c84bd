#include "ListDiff.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

namespace sitelist {
namespace {

Json OptionalJson(const std::optional<std::string>& value) { return value ? Json(*value) : Json(); }

void CompareValue(std::vector<ValueChange>& out, const char* key, const char* label,
                  const std::optional<std::string>& before, const std::optional<std::string>& after) {
  if (before == after) return;
  out.push_back({key, label, before.value_or(""), after.value_or(""), OptionalJson(before), OptionalJson(after), ""});
}

void CompareList(ListDiff& diff, const ListState& a, const ListState& b) {
  auto value = [](const ListState& s, const std::string& v) { return s.exists ? std::optional(v) : std::nullopt; };
  CompareValue(diff.list, "globalVersion", "global version", value(a, a.globalVersion), value(b, b.globalVersion));
  CompareValue(diff.list, "localVersion", "local version", value(a, a.localVersion), value(b, b.localVersion));
  CompareValue(diff.list, "type", "type", value(a, a.type), value(b, b.type));
  CompareValue(diff.list, "fipsMode", "FIPS mode", a.fipsMode, b.fipsMode);
}

// Fingerprints in `from` that `minus` does not account for, counted as a multiset.
std::vector<std::string> Missing(const std::vector<CertificateView>& from, const std::vector<CertificateView>& minus) {
  std::multiset<std::string> left;
  for (const CertificateView& c : minus) left.insert(c.sha256);
  std::vector<std::string> missing;
  for (const CertificateView& c : from) {
    auto it = left.find(c.sha256);
    if (it == left.end())
      missing.push_back(c.sha256);
    else
      left.erase(it);
  }
  return missing;
}

void ComparePolicies(ListDiff& diff, const ListState& a, const ListState& b) {
  std::map<std::string, std::pair<std::optional<std::string>, std::optional<std::string>>> all;
  for (const auto& [name, value] : a.policies) all[name].first = value;
  for (const auto& [name, value] : b.policies) all[name].second = value;
  for (const auto& [name, values] : all) CompareValue(diff.policies, name.c_str(), name.c_str(), values.first, values.second);
}

std::string PasswordChange(const SiteField& before, const SiteField& after) {
  if (before.secret.empty()) return "set";
  if (after.secret.empty()) return "cleared";
  return "changed";
}

SiteChange CompareSite(const SiteRecord& a, const SiteRecord& b) {
  SiteChange change{b.element, b.name, {}};
  for (const SiteField& after : b.fields) {
    auto before = std::find_if(a.fields.begin(), a.fields.end(), [&](const SiteField& f) { return f.key == after.key; });
    if (before == a.fields.end() || before->SameValue(after)) continue;
    change.fields.push_back({after.key, after.label, before->text, after.text, before->json, after.json,
                             after.password ? PasswordChange(*before, after) : ""});
  }
  return change;
}

// Sites are matched by element and name; the n-th site of one element and
// name in one list is matched with the n-th in the other.
void CompareSites(ListDiff& diff, const ListState& a, const ListState& b) {
  using Key = std::pair<std::string, std::string>;
  std::map<Key, std::vector<const SiteRecord*>> unmatched;
  for (const SiteRecord& s : a.sites) unmatched[{s.element, s.name}].push_back(&s);
  std::vector<const SiteRecord*> matchedOld;
  for (const SiteRecord& s : b.sites) {
    std::vector<const SiteRecord*>& candidates = unmatched[{s.element, s.name}];
    if (candidates.empty()) {
      diff.sitesAdded.push_back(s);
      continue;
    }
    matchedOld.push_back(candidates.front());
    SiteChange change = CompareSite(*candidates.front(), s);
    candidates.erase(candidates.begin());
    if (!change.fields.empty()) diff.sitesChanged.push_back(std::move(change));
  }
  for (const SiteRecord& s : a.sites)
    if (std::find(matchedOld.begin(), matchedOld.end(), &s) == matchedOld.end()) diff.sitesRemoved.push_back(s);
}

}  // namespace

bool ListDiff::Identical() const {
  return oldExists == newExists && list.empty() && certificatesAdded.empty() && certificatesRemoved.empty() &&
         policies.empty() && sitesRemoved.empty() && sitesAdded.empty() && sitesChanged.empty() && files.empty();
}

ListDiff DiffLists(const ListState& before, const ListState& after) {
  ListDiff diff;
  diff.oldPath = before.path;
  diff.newPath = after.path;
  diff.oldExists = before.exists;
  diff.newExists = after.exists;
  CompareList(diff, before, after);
  diff.oldCertificates = before.certificates.size();
  diff.newCertificates = after.certificates.size();
  diff.certificatesAdded = Missing(after.certificates, before.certificates);
  diff.certificatesRemoved = Missing(before.certificates, after.certificates);
  ComparePolicies(diff, before, after);
  CompareSites(diff, before, after);
  return diff;
}

}  // namespace sitelist
