#include "ProbeOutcome.h"

#include <curl/curl.h>

#include <cerrno>
#include <cstring>

namespace sitelist {
namespace {

Outcome Failed(const std::string& reason, const std::string& detail) { return {false, reason, detail, {}, {}}; }
Outcome Passed(const std::string& detail) { return {true, "", detail, {}, {}}; }

// What the probe connects to: the proxy when it goes through one.
std::string Peer(const Probe& p) { return p.proxy ? "the proxy " + Shown(p.proxy->endpoint) : Shown(p.target); }

// The path part of the probe's URL.
std::string PathOf(const Probe& p) {
  const std::size_t authority = p.url.find("://");
  const std::size_t slash = authority == std::string::npos ? authority : p.url.find('/', authority + 3);
  return slash == std::string::npos ? "/" : p.url.substr(slash);
}

Outcome Answered(const Probe& p, const ProbeResult& r) {
  switch (p.kind) {
    case ProbeKind::HttpHead: {
      Outcome o = r.responseCode >= 400 ? Failed("HTTP status", std::to_string(r.responseCode))
                                        : Passed("HTTP " + std::to_string(r.responseCode));
      if (p.proxy && r.responseCode == 407) o = Failed("proxy", "the proxy refused the credentials (407)");
      o.httpStatus = r.responseCode;
      return o;
    }
    case ProbeKind::TlsHandshake: return Passed(r.peer ? "verified, issued by \"" + r.peer->issuer + "\"" : "verified");
    case ProbeKind::FtpLogin: return Passed("logged in, changed to " + PathOf(p));
    case ProbeKind::TcpConnect: break;
  }
  return Passed("connected");
}

Outcome Unverified(const ProbeResult& r, const OutcomeContext& context) {
  std::string detail = r.verifyResult != 0 ? VerifyResultText(r.verifyResult) : r.error;
  if (context.noCaCertificate) detail += " (the site list holds no CA certificate)";
  if (r.peer) detail += "; the server sent \"" + r.peer->subject + "\", issued by \"" + r.peer->issuer + "\"";
  Outcome o = Failed("TLS verification", detail);
  o.certificate = r.peer;
  return o;
}

Outcome NoConnection(const Probe& p, const ProbeResult& r) {
  if (r.osErrno == ECONNREFUSED) return Failed("refused", Peer(p) + " refused the connection");
  return Failed("no connection", Peer(p) + ": " + (r.osErrno ? std::strerror(static_cast<int>(r.osErrno)) : r.error));
}

Outcome TimedOut(const Probe& p, const ProbeResult& r, long timeoutMs) {
  const std::string within = " within " + std::to_string(timeoutMs) + " ms";
  if (r.connected) return Failed("timed out", "connected to " + Peer(p) + ", no answer" + within);
  return Failed("timed out", "no connection to " + Peer(p) + within);
}

Outcome Failure(const Probe& p, const ProbeResult& r, const OutcomeContext& context) {
  if (r.connectCode >= 300)
    return Failed("proxy", "the proxy answered " + std::to_string(r.connectCode) + " to CONNECT " + Shown(p.target));
  switch (r.curlCode) {
    case CURLE_COULDNT_RESOLVE_HOST: return Failed("name not resolved", p.target.host);
    case CURLE_COULDNT_RESOLVE_PROXY: return Failed("name not resolved", "the proxy " + p.proxy->endpoint.host);
    case CURLE_COULDNT_CONNECT: return NoConnection(p, r);
    case CURLE_OPERATION_TIMEDOUT: return TimedOut(p, r, context.timeoutMs);
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE: return Unverified(r, context);
    case CURLE_LOGIN_DENIED:
      return Failed("FTP login", "the server answered " + std::to_string(r.responseCode) + " to the login of " +
                                     (p.useAuth ? p.user : "anonymous"));
    case CURLE_REMOTE_ACCESS_DENIED:
      if (p.kind == ProbeKind::FtpLogin)
        return Failed("FTP path",
                      "the server answered " + std::to_string(r.responseCode) + " to the change to " + PathOf(p));
      break;
    case CURLE_SSL_CONNECT_ERROR: return Failed("TLS handshake", r.error);
    default: break;
  }
  return Failed("failed", r.error);
}

}  // namespace

Outcome OutcomeOf(const Probe& probe, const ProbeResult& result, const OutcomeContext& context) {
  if (result.lookupForbidden) {
    const bool proxy = probe.proxy.has_value();
    const std::string host = proxy ? "the proxy " + probe.proxy->endpoint.host : probe.target.host;
    return Failed("name not resolved", host + " is not pinned with --resolve (--no-lookup)");
  }
  if (result.curlCode == CURLE_OK) return Answered(probe, result);
  return Failure(probe, result, context);
}

}  // namespace sitelist
