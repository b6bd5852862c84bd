// State shared by the commands of one run: the global options, the library's
// configuration taken from them, the helper object, and the library's log.
#ifndef VLM_TOOLS_SITELIST_CONTEXT_H
#define VLM_TOOLS_SITELIST_CONTEXT_H

#include <cstddef>
#include <memory>
#include <string>

#include "LibraryLog.h"
#include "ResultCodes.h"
#include "sitehlp/SitesHelper.h"

namespace sitelist {

// UTF-8 text of a wide string, and back.
std::string Narrow(const std::wstring& text);
std::wstring Wide(const std::string& text);

struct GlobalOptions {
  std::string dataDir;   // --data-dir
  std::string siteList;  // --site-list
  bool managed = false;    // --managed
  bool unmanaged = false;  // --unmanaged
  bool verbose = false;    // -v
  int keep = -1;           // --keep: history entries kept; -1 when not given
};

class Context {
 public:
  GlobalOptions options;

  // Name of the chosen command, for the prefix of error lines.
  void SetCommand(const std::string& name) { m_command = name; }
  const std::string& Command() const { return m_command; }

  // Starts keeping the library's log lines (see LibraryLog); they reach the
  // real stderr when the context ends.
  void KeepLibraryLog() { m_log = std::make_unique<LibraryLog>(); }
  LibraryLog& Log();

  // Makes sure the library logs at least information lines (rule failures,
  // warnings) for this run; a no-op with -v. Must come before Helper().
  void WantInformationLines();

  // The helper for the agent's own list (or --site-list), made on first use,
  // after the configuration has been put into the environment.
  sitehlp::CSitesHelper& Helper();
  // The path of the agent's own list (or --site-list).
  std::string OwnListPath() { return Narrow(Helper().GetSiteListPath()); }
  // A helper of its own for another site list file, with the same managed
  // override as Helper().
  std::unique_ptr<sitehlp::CSitesHelper> MakeHelper(const std::string& path);

  // Whether the agent counts as managed: the override, else the configuration.
  bool Managed() { return Helper().IsOrxManaged(); }

  // Prints "sitelist <command>: <meaning> (<code>)" on stderr; returns the
  // code's exit status.
  int FailCode(int code, Origin origin = Origin::Operation) const;
  // Prints "sitelist <command>: <text>" on stderr; returns status.
  int Fail(const std::string& text, int status = c_exitFailed) const;
  // Explains why reading path failed with code (library lines since mark):
  // a lock not taken, a file missing or unreadable (named, with the reason),
  // a document that is not well formed, else the code's meaning.
  int ReadFailure(const std::string& path, int code, std::size_t mark);
  // The lock, file, well-formedness or root element problem behind a failed
  // read of path (CheckList), printed with its exit status returned; 0 when
  // there is none.
  int FileFailure(const std::string& path, std::size_t mark);
  // The lock failure since mark, if any: printed, c_exitLock returned; else 0.
  int LockFailure(std::size_t mark);

  // What every command that reads a site list refuses before it reads one:
  // a lock not obtained, a file missing or unreadable (named, with the
  // reason), a document that is not well formed (see NotWellFormed), a
  // well-formed one that is not a site list (its root element named; exit
  // status 4). The library judges the file, by the rules it reads with.
  // Prints and returns the exit status; 0 when the library takes path as a
  // site list. shown is the path to name (path may be a scratch copy).
  int CheckList(const std::string& path, const std::string& shown);
  int CheckList(const std::string& path) { return CheckList(path, path); }
  // "FILE:LINE:COLUMN: XML is not well formed: what", the place and words
  // the library's parser gave, on stderr; returns c_exitNotWellFormed.
  int NotWellFormed(const sitehlp::tag_DocumentCheck& refusal, const std::string& shown) const;

 private:
  void ApplyEnvironment();

  std::string m_command;
  bool m_bEnvironmentApplied = false;
  std::unique_ptr<sitehlp::CSitesHelper> m_helper;
  std::unique_ptr<LibraryLog> m_log;
};

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_CONTEXT_H
