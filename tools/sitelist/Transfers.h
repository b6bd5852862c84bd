// Runs the probes of check with libcurl, all at once (curl's multi
// interface), each bounded by the timeout, so that many sites take about as
// long as the slowest.
#ifndef VLM_TOOLS_SITELIST_TRANSFERS_H
#define VLM_TOOLS_SITELIST_TRANSFERS_H

#include <optional>
#include <string>
#include <vector>

#include "CheckPlan.h"
#include "HostPins.h"
#include "TlsTrust.h"

namespace sitelist {

struct TransferSettings {
  long timeoutMs = 5000;
  bool verbose = false;  // the transfer log on stderr
  HostPins pins;
  std::string caBundle;  // PEM; what the TLS handshakes trust, nothing else
};

// A probe to run, with the name its log lines carry.
struct ProbeJob {
  const Probe* probe;
  std::string logName;
};

// What curl found: its result code and what it learnt on the way.
struct ProbeResult {
  int curlCode = 0;
  bool lookupForbidden = false;  // not started: --no-lookup and the name is not pinned
  long osErrno = 0;
  long responseCode = 0;  // the HTTP status or the last FTP reply
  long connectCode = 0;   // the proxy's answer to CONNECT
  long verifyResult = 0;  // the X.509 verification result
  bool connected = false;
  std::string error;  // curl's error text
  std::optional<PeerCertificate> peer;
  long ms = 0;
};

// results[i] belongs to jobs[i].
std::vector<ProbeResult> RunProbes(const std::vector<ProbeJob>& jobs, const TransferSettings& settings);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_TRANSFERS_H
