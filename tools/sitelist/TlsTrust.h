// What the handshake with the management server trusts and what it saw: the
// site list's own CA certificates, and the certificate the server presented.
#ifndef VLM_TOOLS_SITELIST_TLSTRUST_H
#define VLM_TOOLS_SITELIST_TLSTRUST_H

#include <curl/curl.h>

#include <optional>
#include <string>
#include <vector>

namespace sitelist {

// The list's CA certificates as one PEM bundle; texts that do not hold a
// certificate are left out. Empty when none does.
std::string CaBundle(const std::vector<std::wstring>& certificates);

// Subject and issuer of a certificate, one line each as openssl prints them
// ("O = Example, CN = mgmt.corp.example").
struct PeerCertificate {
  std::string subject;
  std::string issuer;
};

// Makes the handshake of handle record the certificate the server presents
// into peer (which must outlive the transfer), whether or not it verifies.
void RecordPeerCertificate(CURL* handle, std::optional<PeerCertificate>* peer);

// The text of an X.509 verification result (CURLINFO_SSL_VERIFYRESULT).
std::string VerifyResultText(long result);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_TLSTRUST_H
