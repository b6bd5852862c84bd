// The servers the tests of `sitelist check` talk to, all on 127.0.0.1 and
// started for one test: an HTTP repository, a forward proxy, TLS servers with
// a certificate from the test CA and one from another CA, an FTP server, a
// port that accepts and never answers and one that nothing listens on (see
// check_servers.py). They stop with the object.
#ifndef VLM_TESTS_TOOLS_CHECKSERVERS_H
#define VLM_TESTS_TOOLS_CHECKSERVERS_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace tooltest {

class CheckServers {
 public:
  // Makes the test certificates in certDir and serves root.
  CheckServers(const std::string& root, const std::string& certDir, const std::string& logPath);
  ~CheckServers();
  CheckServers(const CheckServers&) = delete;
  CheckServers& operator=(const CheckServers&) = delete;

  unsigned int http = 0, proxy = 0, tls = 0, tlsOther = 0, ftp = 0, silent = 0, closed = 0;

  // The request log so far: "http HEAD /Updates/ host=... via=-",
  // "proxy CONNECT host:port auth=ok", ...
  std::vector<std::string> Log() const;

 private:
  std::string m_log;
  pid_t m_pid = -1;
  int m_stdin = -1;  // closing it stops the servers
};

}  // namespace tooltest

#endif  // VLM_TESTS_TOOLS_CHECKSERVERS_H
