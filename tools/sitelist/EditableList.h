// A site list read for editing: its records, versions and CA certificates,
// written back with CreateSiteList. The edits of single sites (add-site,
// remove-site, enable, disable, set-order, edit, set-proxy) go through here.
#ifndef VLM_TOOLS_SITELIST_EDITABLELIST_H
#define VLM_TOOLS_SITELIST_EDITABLELIST_H

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Change.h"
#include "sitehlp/SitesHelper.h"

namespace CLI {
class App;
}

namespace sitelist {

class Context;

// The site element names, by what administrators call them: http, spipe,
// superagent, ftp, unc, local.
struct SiteKindName {
  const char* option;
  const wchar_t* element;
  int nSiteType;
};
const SiteKindName* FindKindName(const std::string& option);

// NAME and --kind of the commands that change one site.
struct SiteChoice {
  std::string name;
  std::string kind;
};
void AddSiteChoice(CLI::App& command, SiteChoice& choice);

class EditableList {
 public:
  EditableList(Context& ctx, const std::string& file, const std::string& shownFile);
  ~EditableList();
  EditableList(const EditableList&) = delete;
  EditableList& operator=(const EditableList&) = delete;

  // Reads the list; on failure prints why and returns the exit status.
  int Read();
  // Writes the records back with the global version, type and CA
  // certificates read, a fresh local version and the policy settings read.
  // On failure prints why and returns the exit status.
  int Write();

  sitehlp::CSitesHelper& Helper() { return *m_helper; }
  const std::string& ShownFile() const { return m_shownFile; }
  // The list's CA certificates, as read.
  const std::vector<std::wstring>& Certificates() const { return m_certificates; }
  // The sites (every record but proxy configurations), in list order.
  std::vector<sitehlp::tag_Site*> Sites() const;
  std::vector<sitehlp::tag_Site*> Proxies() const;
  // The site NAME designates: the one of that exact name, else the only one
  // of that name without regard to case; element, when not empty, narrows
  // the search. Prints why there is none (naming the sites there are) or
  // why there are several, and sets status, when it finds none.
  sitehlp::tag_Site* Find(const std::string& name, const std::wstring& element, int& status) const;
  sitehlp::tag_Site* Find(const SiteChoice& choice, int& status) const;

  // Puts value into a record field of capacity characters (checked to fit).
  void Set(wchar_t* field, unsigned int capacity, const std::string& value);
  // A new zero-filled record appended to the list.
  sitehlp::tag_Site& Append();
  // Takes the record out of the list and frees it.
  void Remove(sitehlp::tag_Site* site);

 private:
  Context& m_ctx;
  std::string m_file;
  std::string m_shownFile;
  std::unique_ptr<sitehlp::CSitesHelper> m_helper;
  sitehlp::tag_Site* m_head = nullptr;
  std::wstring m_globalVersion, m_localVersion, m_type;
  std::vector<std::wstring> m_certificates;
};

// What an edit did: the result line, or, when the records came out as they
// were, the line saying there was nothing to change.
struct EditResult {
  // A failure, already printed, with its exit status; implicit, so that an
  // edit returns a failing status as it is.
  EditResult(int failed) : status(failed) {}
  EditResult(int result, std::string doneLine, std::string unchangedLine)
      : status(result), done(std::move(doneLine)), unchanged(std::move(unchangedLine)) {}
  int status = 0;
  std::string done;
  std::string unchanged;
};
using Edit = std::function<EditResult(EditableList& list)>;

// Edits the agent's own list (or --site-list) through ApplyChange: reads
// it, applies edit, and writes it unless the records are unchanged.
int RunEdit(Context& ctx, const ChangeOptions& options, const Edit& edit);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_EDITABLELIST_H
