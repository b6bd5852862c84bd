// What a probe's result means for the administrator: passed or not, the
// reason of a failure (name not resolved, refused, timed out, TLS
// verification, HTTP status, FTP login, ...) and the details.
#ifndef VLM_TOOLS_SITELIST_PROBEOUTCOME_H
#define VLM_TOOLS_SITELIST_PROBEOUTCOME_H

#include <optional>
#include <string>

#include "CheckPlan.h"
#include "TlsTrust.h"
#include "Transfers.h"

namespace sitelist {

struct Outcome {
  bool ok = false;
  std::string reason;  // empty when ok
  std::string detail;  // what answered, or what went wrong
  std::optional<long> httpStatus;
  std::optional<PeerCertificate> certificate;  // the server's, when it did not verify
};

struct OutcomeContext {
  long timeoutMs = 0;
  bool noCaCertificate = false;  // the list holds no CA certificate to verify with
};

Outcome OutcomeOf(const Probe& probe, const ProbeResult& result, const OutcomeContext& context);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_PROBEOUTCOME_H
