// SHA-256 fingerprints of the CA certificates a site list carries.
#ifndef VLM_TOOLS_SITELIST_FINGERPRINT_H
#define VLM_TOOLS_SITELIST_FINGERPRINT_H

#include <string>

namespace sitelist {

// The SHA-256 of the certificate's DER bytes, as colon-separated upper-case
// hex pairs (the form openssl x509 -fingerprint prints). The text may be PEM
// or bare base64; text that is neither is fingerprinted as it stands, without
// its surrounding white space.
std::string CertificateFingerprint(const std::string& text);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_FINGERPRINT_H
