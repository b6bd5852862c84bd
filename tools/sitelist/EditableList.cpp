#include "EditableList.h"

#include <CLI/CLI.hpp>

#include <cstdlib>
#include <cwchar>
#include <new>

#include "Context.h"
#include "SiteFields.h"
#include "SiteKinds.h"
#include "xmlschema/sitelist.h"

namespace sitelist {
namespace {

constexpr SiteKindName c_kindNames[] = {
    {"http", ZEL_XML_SITELIST_HTTP_SITE, sitehlp::SITE_TYPE_HTTP},
    {"spipe", ZEL_XML_SITELIST_SPIPE_SITE, sitehlp::SITE_TYPE_HTTP},
    {"superagent", ZEL_XML_SITELIST_SUPERAGENT_SITE, sitehlp::SITE_TYPE_HTTP},
    {"ftp", ZEL_XML_SITELIST_FTP_SITE, sitehlp::SITE_TYPE_FTP},
    {"unc", ZEL_XML_SITELIST_UNC_SITE, sitehlp::SITE_TYPE_UNC},
    {"local", ZEL_XML_SITELIST_LOCAL_SITE, sitehlp::SITE_TYPE_LOCAL},
};

std::string Listed(const std::vector<sitehlp::tag_Site*>& sites) {
  std::string text;
  for (const sitehlp::tag_Site* site : sites) text += (text.empty() ? "" : ", ") + Described(*site);
  return text.empty() ? "(none)" : text;
}

std::vector<SiteRecord> RecordsOf(const EditableList& list) {
  std::vector<SiteRecord> records;
  for (const sitehlp::tag_Site* site : list.Sites()) records.push_back(RecordOf(*site));
  for (const sitehlp::tag_Site* site : list.Proxies()) records.push_back(RecordOf(*site));
  return records;
}

bool Same(const std::vector<SiteRecord>& a, const std::vector<SiteRecord>& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (a[i].element != b[i].element || a[i].name != b[i].name || a[i].fields.size() != b[i].fields.size())
      return false;
    for (std::size_t f = 0; f < a[i].fields.size(); ++f)
      if (!a[i].fields[f].SameValue(b[i].fields[f])) return false;
  }
  return true;
}

}  // namespace

const SiteKindName* FindKindName(const std::string& option) {
  for (const SiteKindName& k : c_kindNames)
    if (option == k.option) return &k;
  return nullptr;
}

void AddSiteChoice(CLI::App& command, SiteChoice& choice) {
  command.add_option("NAME", choice.name, "The site's name (exact, else without regard to case)")->required();
  command.add_option("--kind", choice.kind, "Only sites of this kind: http, spipe, superagent, ftp, unc or local")
      ->check(CLI::IsMember({"http", "spipe", "superagent", "ftp", "unc", "local"}));
}

sitehlp::tag_Site* EditableList::Find(const SiteChoice& choice, int& status) const {
  const SiteKindName* kind = FindKindName(choice.kind);
  return Find(choice.name, kind ? kind->element : L"", status);
}

EditableList::EditableList(Context& ctx, const std::string& file, const std::string& shownFile)
    : m_ctx(ctx), m_file(file), m_shownFile(shownFile), m_helper(ctx.MakeHelper(file)) {}

EditableList::~EditableList() { m_helper->FreeSiteListMemory(m_head); }

int EditableList::Read() {
  if (const int status = m_ctx.CheckList(m_file, m_shownFile)) return status;
  const std::size_t mark = m_ctx.Log().Mark();
  const std::wstring path = Wide(m_file);
  int rc = m_helper->GetSitelistVersions(path, m_globalVersion, m_localVersion, m_type);
  if (rc == 0) rc = m_helper->GetCaCertificates(path, m_certificates);
  if (rc == 0) rc = m_helper->ReadSiteList(path, &m_head);
  // -1 from the reader means its last element gave no site body; the records
  // are complete all the same.
  if (rc < -1 || (rc == -1 && !m_head)) return m_ctx.ReadFailure(m_shownFile, rc, mark);
  return 0;
}

int EditableList::Write() {
  const std::size_t mark = m_ctx.Log().Mark();
  const int rc = m_helper->CreateSiteList(m_head, Wide(m_file), m_globalVersion, L"", m_type, m_certificates);
  if (rc == 0) return 0;
  if (const int status = m_ctx.LockFailure(mark)) return status;
  return m_ctx.FailCode(rc);
}

std::vector<sitehlp::tag_Site*> EditableList::Sites() const {
  std::vector<sitehlp::tag_Site*> sites;
  for (sitehlp::tag_Site* site = m_head; site; site = site->pNext)
    if (!IsProxy(*site)) sites.push_back(site);
  return sites;
}

std::vector<sitehlp::tag_Site*> EditableList::Proxies() const {
  std::vector<sitehlp::tag_Site*> proxies;
  for (sitehlp::tag_Site* site = m_head; site; site = site->pNext)
    if (IsProxy(*site)) proxies.push_back(site);
  return proxies;
}

sitehlp::tag_Site* EditableList::Find(const std::string& name, const std::wstring& element, int& status) const {
  std::vector<sitehlp::tag_Site*> candidates, exact, folded;
  for (sitehlp::tag_Site* site : Sites()) {
    if (!element.empty() && wcscasecmp(Wide(ElementOf(*site)).c_str(), element.c_str()) != 0) continue;
    candidates.push_back(site);
    if (NameOf(*site) == name) exact.push_back(site);
    if (wcscasecmp(Wide(NameOf(*site)).c_str(), Wide(name).c_str()) == 0) folded.push_back(site);
  }
  const std::vector<sitehlp::tag_Site*>& found = exact.empty() ? folded : exact;
  if (found.size() == 1) return found.front();
  const std::string what = element.empty() ? "site" : Narrow(element);
  if (found.empty())
    status = m_ctx.Fail("no " + what + " is named \"" + name + "\" in " + m_shownFile + "; the " +
                        (element.empty() ? "sites" : what + " sites") + " there: " + Listed(candidates));
  else
    status = m_ctx.Fail("\"" + name + "\" names " + std::to_string(found.size()) + " sites in " + m_shownFile + ": " +
                        Listed(found) + "; choose one with --kind");
  return nullptr;
}

void EditableList::Set(wchar_t* field, unsigned int capacity, const std::string& value) {
  m_helper->CopyWStr(field, Wide(value).c_str(), capacity);
}

sitehlp::tag_Site& EditableList::Append() {
  // Records are released by the library with free(), so they are made with calloc.
  auto* site = static_cast<sitehlp::tag_Site*>(std::calloc(1, sizeof(sitehlp::tag_Site)));
  if (!site) throw std::bad_alloc();
  sitehlp::tag_Site** tail = &m_head;
  while (*tail) tail = &(*tail)->pNext;
  *tail = site;
  return *site;
}

void EditableList::Remove(sitehlp::tag_Site* site) {
  for (sitehlp::tag_Site** link = &m_head; *link; link = &(*link)->pNext) {
    if (*link != site) continue;
    *link = site->pNext;
    site->pNext = nullptr;
    m_helper->FreeSiteListMemory(site);
    return;
  }
}

int RunEdit(Context& ctx, const ChangeOptions& options, const Edit& edit) {
  const ChangeTarget target{ctx.OwnListPath(), false, true};
  return ApplyChange(ctx, target, options, [&](const std::string& file, const std::string& shownFile) {
    EditableList list(ctx, file, shownFile);
    if (const int status = list.Read()) return StepResult{status, false, ""};
    const std::vector<SiteRecord> before = RecordsOf(list);
    const EditResult result = edit(list);
    if (result.status != 0) return StepResult{result.status, false, ""};
    if (Same(before, RecordsOf(list))) return StepResult{0, false, result.unchanged};
    if (const int status = list.Write()) return StepResult{status, false, ""};
    return StepResult{0, true, result.done};
  });
}

}  // namespace sitelist
