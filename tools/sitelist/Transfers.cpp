#include "Transfers.h"

#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <memory>

#include "TransferLog.h"

namespace sitelist {
namespace {

using Clock = std::chrono::steady_clock;

struct SlistFree {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
struct EasyFree {
  void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
struct MultiFree {
  void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};
using Slist = std::unique_ptr<curl_slist, SlistFree>;

Slist ListOf(const std::vector<std::string>& entries) {
  curl_slist* list = nullptr;
  for (const std::string& entry : entries) list = curl_slist_append(list, entry.c_str());
  return Slist(list);
}

class CurlGlobal {
 public:
  CurlGlobal() { curl_global_init(CURL_GLOBAL_DEFAULT); }
  ~CurlGlobal() { curl_global_cleanup(); }
  CurlGlobal(const CurlGlobal&) = delete;
  CurlGlobal& operator=(const CurlGlobal&) = delete;
};

// One probe under way. Curl keeps pointers to the error buffer, the peer
// record, the log and the transfer itself until the handle is cleaned up, so
// a transfer never moves and its handle goes first (declared last).
struct Transfer {
  const Probe* probe = nullptr;
  char error[CURL_ERROR_SIZE] = "";
  std::optional<PeerCertificate> peer;
  std::unique_ptr<TransferLog> log;
  Slist resolve;
  Clock::time_point start;
  ProbeResult result;
  std::unique_ptr<CURL, EasyFree> easy;
};

// The one protocol the probe may speak.
const char* SchemeOf(const Probe& probe) {
  switch (probe.kind) {
    case ProbeKind::HttpHead: return "http";
    case ProbeKind::TlsHandshake: return "https";
    case ProbeKind::FtpLogin: return "ftp";
    case ProbeKind::TcpConnect: return probe.url.rfind("telnet:", 0) == 0 ? "telnet" : "http";
  }
  return "";
}

// Curl closes a connection that failed through here: whether its socket was
// connected tells a server that never answered from one never reached.
int OnCloseSocket(void* transfer, curl_socket_t socket) {
  sockaddr_storage peer{};
  socklen_t size = sizeof peer;
  if (getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &size) == 0)
    static_cast<Transfer*>(transfer)->result.connected = true;
  return close(socket);
}

// Always explicit: "" keeps curl from taking a proxy from the environment.
void SetProxy(CURL* easy, const Probe& p) {
  if (!p.proxy) {
    curl_easy_setopt(easy, CURLOPT_PROXY, "");
    return;
  }
  curl_easy_setopt(easy, CURLOPT_PROXY, ("http://" + Shown(p.proxy->endpoint)).c_str());
  curl_easy_setopt(easy, CURLOPT_NOPROXY, "");
  curl_easy_setopt(easy, CURLOPT_HTTPPROXYTUNNEL, p.tunnel ? 1L : 0L);
  if (!p.proxy->user.empty()) {
    curl_easy_setopt(easy, CURLOPT_PROXYUSERNAME, p.proxy->user.c_str());
    // Basic, sent with the first request (curl's default): a proxy that wants
    // credentials may close the connection after asking for them, and a
    // tunnel is not tried again then.
    curl_easy_setopt(easy, CURLOPT_PROXYPASSWORD, p.proxy->password.c_str());
  }
}

void SetCredentials(CURL* easy, const Probe& p) {
  if (!p.useAuth) return;
  curl_easy_setopt(easy, CURLOPT_USERNAME, p.user.c_str());
  curl_easy_setopt(easy, CURLOPT_PASSWORD, p.password.c_str());
  if (p.kind == ProbeKind::HttpHead)
    curl_easy_setopt(easy, CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_BASIC | CURLAUTH_DIGEST));
}

// Only the list's own CA certificates: no system bundle, no CA directory.
void SetTrust(Transfer& t, const TransferSettings& s) {
  CURL* easy = t.easy.get();
  curl_easy_setopt(easy, CURLOPT_CAINFO, nullptr);
  curl_easy_setopt(easy, CURLOPT_CAPATH, nullptr);
  if (!s.caBundle.empty()) {
    curl_blob blob{const_cast<char*>(s.caBundle.data()), s.caBundle.size(), CURL_BLOB_COPY};
    curl_easy_setopt(easy, CURLOPT_CAINFO_BLOB, &blob);
  }
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
  RecordPeerCertificate(easy, &t.peer);
}

// The endpoint the probe connects to: the proxy when it goes through one,
// else the site, or where --connect-to sends it.
Endpoint Connected(const Probe& p, const HostPins& pins) {
  return p.proxy ? p.proxy->endpoint : pins.Redirected(p.target);
}

void Configure(Transfer& t, const TransferSettings& s, curl_slist* connectTo) {
  CURL* easy = t.easy.get();
  const Probe& p = *t.probe;
  curl_easy_setopt(easy, CURLOPT_URL, p.url.c_str());
  curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, SchemeOf(p));
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, s.timeoutMs);
  curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, s.timeoutMs);
  curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, t.error);
  curl_easy_setopt(easy, CURLOPT_PRIVATE, &t);
  curl_easy_setopt(easy, CURLOPT_CLOSESOCKETFUNCTION, &OnCloseSocket);
  curl_easy_setopt(easy, CURLOPT_CLOSESOCKETDATA, &t);
  t.resolve = ListOf(s.pins.ResolveEntriesFor(Connected(p, s.pins)));
  curl_easy_setopt(easy, CURLOPT_RESOLVE, t.resolve.get());
  curl_easy_setopt(easy, CURLOPT_CONNECT_TO, connectTo);
  curl_easy_setopt(easy, CURLOPT_USERAGENT, "sitelist/" VLM_SITELIST_VERSION);
  SetProxy(easy, p);
  SetCredentials(easy, p);
  if (p.kind == ProbeKind::HttpHead || p.kind == ProbeKind::FtpLogin) curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
  if (p.kind == ProbeKind::TlsHandshake || p.kind == ProbeKind::TcpConnect)
    curl_easy_setopt(easy, CURLOPT_CONNECT_ONLY, 1L);
  if (p.kind == ProbeKind::TlsHandshake) SetTrust(t, s);
  if (t.log) t.log->Attach(easy);
}

void Collect(Transfer& t, CURLcode code) {
  CURL* easy = t.easy.get();
  ProbeResult& r = t.result;
  r.curlCode = code;
  curl_easy_getinfo(easy, CURLINFO_OS_ERRNO, &r.osErrno);
  curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &r.responseCode);
  curl_easy_getinfo(easy, CURLINFO_HTTP_CONNECTCODE, &r.connectCode);
  curl_easy_getinfo(easy, CURLINFO_SSL_VERIFYRESULT, &r.verifyResult);
  curl_off_t connectTime = 0;
  curl_easy_getinfo(easy, CURLINFO_CONNECT_TIME_T, &connectTime);
  r.connected = r.connected || connectTime > 0;
  r.error = t.error[0] ? t.error : curl_easy_strerror(code);
  r.peer = t.peer;
  r.ms = static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - t.start).count());
}

void RunAll(CURLM* multi, int running) {
  while (running > 0) {
    curl_multi_perform(multi, &running);
    int left = 0;
    while (CURLMsg* message = curl_multi_info_read(multi, &left)) {
      if (message->msg != CURLMSG_DONE) continue;
      char* t = nullptr;
      curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &t);
      Collect(*reinterpret_cast<Transfer*>(t), message->data.result);
      curl_multi_remove_handle(multi, message->easy_handle);
    }
    if (running > 0) curl_multi_poll(multi, nullptr, 0, 100, nullptr);
  }
}

}  // namespace

std::vector<ProbeResult> RunProbes(const std::vector<ProbeJob>& jobs, const TransferSettings& settings) {
  const CurlGlobal global;
  const Slist connectTo = ListOf(settings.pins.ConnectToEntries());
  // The transfers outlive the multi handle, which may still close
  // connections of theirs when it is cleaned up.
  std::vector<std::unique_ptr<Transfer>> transfers;
  std::unique_ptr<CURLM, MultiFree> multi(curl_multi_init());
  int started = 0;
  for (const ProbeJob& job : jobs) {
    auto t = std::make_unique<Transfer>();
    t->probe = job.probe;
    if (settings.pins.LookupForbidden(Connected(*job.probe, settings.pins))) {
      t->result.lookupForbidden = true;
      transfers.push_back(std::move(t));
      continue;
    }
    t->easy.reset(curl_easy_init());
    if (settings.verbose) {
      std::vector<std::string> secrets{job.probe->password};
      if (job.probe->proxy) secrets.push_back(job.probe->proxy->password);
      t->log = std::make_unique<TransferLog>(job.logName, secrets);
    }
    Configure(*t, settings, connectTo.get());
    t->start = Clock::now();
    curl_multi_add_handle(multi.get(), t->easy.get());
    ++started;
    transfers.push_back(std::move(t));
  }
  RunAll(multi.get(), started);
  std::vector<ProbeResult> results;
  for (const auto& t : transfers) results.push_back(t->result);
  return results;
}

}  // namespace sitelist
