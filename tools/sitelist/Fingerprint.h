// The CA certificates a site list carries: their bytes and SHA-256 fingerprints.
#ifndef VLM_TOOLS_SITELIST_FINGERPRINT_H
#define VLM_TOOLS_SITELIST_FINGERPRINT_H

#include <optional>
#include <string>
#include <vector>

namespace sitelist {

// The SHA-256 of the certificate's DER bytes, as colon-separated upper-case
// hex pairs (the form openssl x509 -fingerprint prints). The text may be PEM
// or bare base64; text that is neither is fingerprinted as it stands, without
// its surrounding white space.
std::string CertificateFingerprint(const std::string& text);

// The certificate's DER bytes, from PEM or bare base64 text; nothing for text
// that is neither.
std::optional<std::vector<unsigned char>> CertificateDer(const std::string& text);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_FINGERPRINT_H
