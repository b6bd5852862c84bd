// Fixture of the tests of `sitelist check`: the agent's servers started on
// 127.0.0.1 for each test (CheckServers), site list text built from their
// ports, and the tool run with every test host name pinned to 127.0.0.1 and
// --no-lookup, so that nothing is ever looked up.
#ifndef VLM_TESTS_TOOLS_CHECKFIXTURE_H
#define VLM_TESTS_TOOLS_CHECKFIXTURE_H

#include <nlohmann/json.hpp>

#include <initializer_list>
#include <string>
#include <vector>

#include "CheckServers.h"
#include "ToolFixture.h"

namespace tooltest {

using Json = nlohmann::ordered_json;

// One row of check's table, the ms column replaced by "#".
using Row = std::vector<std::string>;

// The table check printed (rows of cells two or more blanks apart, the
// header first) and the count line after it.
struct CheckTable {
  std::vector<Row> rows;
  std::string summary;
};
CheckTable TableOf(const std::string& out);

// check's JSON document with each site's "ms" taken out (into ms).
struct CheckJson {
  Json document;
  std::vector<long> ms;
};
CheckJson JsonOf(const std::string& out);

// "host:port".
std::string At(const std::string& host, unsigned int port);
// The arguments of each part, one after another.
std::vector<std::string> Joined(std::initializer_list<std::vector<std::string>> parts);

// Site elements of a site list, attributes and children as the writer emits.
std::string HttpSite(const std::string& name, int order, const std::string& server, const std::string& path,
                     const std::string& user = "", const std::string& encryptedPassword = "", bool enabled = true);
std::string SpipeSite(const std::string& name, int order, const std::string& host, unsigned int plainPort,
                      unsigned int securePort);
std::string FtpSite(const std::string& name, int order, const std::string& server, const std::string& path,
                    const std::string& user, const std::string& encryptedPassword);
std::string UncSite(const std::string& name, int order, const std::string& server);
std::string LocalSite(const std::string& name, int order, const std::string& path);

struct ProxyConfig {
  std::string httpServer;  // host, with httpPort
  unsigned int httpPort = 0;
  std::string ftpServer;
  unsigned int ftpPort = 0;
  std::vector<std::string> exclusions;
  bool bypassLocal = false;
  std::string user, encryptedPassword;  // for both proxies when set
  bool useSystemSettings = false;       // UseIEConfig
};
std::string ProxyElement(const ProxyConfig& proxy);

class CheckTest : public ToolTest {
 protected:
  CheckTest();

  // Writes the agent's list: the sites (and proxy) given, and the CA
  // certificates given (PEM texts).
  void WriteList(const std::string& sites, const std::vector<std::string>& certificates = {}) const;
  std::string TestCa() const;                         // the CA the servers' good certificate comes from
  std::string WwwRoot() const { return Tmp("www"); }  // what the HTTP and FTP servers serve

  // "--resolve HOST:PORT:127.0.0.1".
  static std::vector<std::string> Pin(const std::string& host, unsigned int port);
  // `sitelist check --no-lookup --timeout 10` with args after it: a timeout
  // that only a test which wants one meets, even on a busy machine.
  ToolResult Check(const std::vector<std::string>& args) const;
  // The server log lines of one kind ("http", "proxy", "ftp"), sorted: the
  // sites are checked at once, so their requests come in any order.
  std::vector<std::string> Logged(const std::string& kind) const;

  CheckServers servers;
};

}  // namespace tooltest

#endif  // VLM_TESTS_TOOLS_CHECKFIXTURE_H
