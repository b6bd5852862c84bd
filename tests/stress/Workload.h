// Shared pieces of the multi-process load and crash programs: a data
// directory of their own, a silent log sink, site lists to write, and the
// checks applied to whatever is found on disk.
#ifndef VLM_TESTS_STRESS_WORKLOAD_H
#define VLM_TESTS_STRESS_WORKLOAD_H

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "port/log/Log.h"
#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace workload {

// Drops every line; counts the error lines so that a run can report them.
class CountingNullSink : public port::LogSink {
 public:
  void Write(port::LogLevel level, bool internal, const std::wstring& component,
             const std::wstring& message) override;
  std::uint64_t errors() const { return m_errors; }
  const std::wstring& lastError() const { return m_lastError; }

 private:
  std::uint64_t m_errors = 0;
  std::wstring m_lastError;
};

// A temporary data directory with the configuration pointed into it:
//   <tmp>/data/etc/SiteList.xml   the agent's list
//   <tmp>/data/ServerSiteList.xml the server site list
//   <tmp>/locks, <tmp>/keys       named locks and password keys
//   <tmp>/outside                 an outside list to import, with its keys
// The configuration is process-wide and inherited by forked children.
class DataDir {
 public:
  DataDir();
  ~DataDir();
  DataDir(const DataDir&) = delete;
  DataDir& operator=(const DataDir&) = delete;

  const std::string& root() const { return m_dir.path(); }
  std::string data() const { return m_dir.file("data"); }
  std::string etc() const { return m_dir.file("data/etc"); }
  std::string siteList() const { return m_dir.file("data/etc/SiteList.xml"); }
  std::string serverSiteList() const { return m_dir.file("data/ServerSiteList.xml"); }
  std::string outside() const { return m_dir.file("outside"); }
  std::string outsideList() const { return m_dir.file("outside/SiteList.xml"); }

 private:
  testsupport::TempDir m_dir;
};

// A list of every kind: a SPIPE site first, then HTTP, FTP, UNC, local and a
// proxy configuration. variant makes the names (and so the bytes) differ;
// withPasswords adds clear-text passwords that the writer encrypts (each
// write then differs because of the fresh nonce).
sitehlp::tag_Site* BuildList(int variant, bool withPasswords);

// The four key files beside a site list, in the order writeKeyFiles writes
// them.
extern const char* const kKeyFiles[4];

// Contents of key file number file (of kKeyFiles) for a variant: distinct
// bytes per file and variant, of sizes that take more than one write call.
std::string KeyBytes(int file, int variant);

// Writes the outside list of a variant (BuildList without passwords, fixed
// versions, so that the bytes of every import of it are the same, and the
// given certificates) and its four key files into dir, which is created.
bool WriteOutsideVariant(sitehlp::CSitesHelper& helper, const std::string& dir, int variant,
                         const std::vector<std::wstring>& certificates);

// True when bytes are a well-formed site list document (root "ns:SiteLists"
// holding a "SiteList" element).
bool DocumentParses(const std::string& bytes);

// bytes with the text of every encrypted password element emptied: each
// write encrypts with a fresh nonce, everything else of a document written
// from the same records is the same byte for byte.
std::string WithoutCipherText(const std::string& bytes);

// True when the list holds a SPIPE site.
bool HasSpipeSite(const sitehlp::tag_Site* list);

// Names of directory entries that look like temporaries of the crash-safe
// writer (".<name>.tmp.<suffix>").
std::vector<std::string> TemporaryFiles(const std::string& dir);

// Microseconds on the monotonic clock.
std::int64_t NowUs();

// "--name value" of argv as a number, or fallback.
long ArgValue(int argc, char** argv, const char* name, long fallback);

}  // namespace workload

#endif  // VLM_TESTS_STRESS_WORKLOAD_H
