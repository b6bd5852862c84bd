#include "TlsTrust.h"

#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <memory>

#include "Context.h"
#include "Fingerprint.h"

namespace sitelist {
namespace {

struct BioFree {
  void operator()(BIO* bio) const { BIO_free(bio); }
};
struct X509Free {
  void operator()(X509* x) const { X509_free(x); }
};

std::string Drained(BIO* bio) {
  char* data = nullptr;
  const long size = BIO_get_mem_data(bio, &data);
  return size > 0 ? std::string(data, static_cast<std::size_t>(size)) : "";
}

std::string OneLine(const X509_NAME* name) {
  std::unique_ptr<BIO, BioFree> bio(BIO_new(BIO_s_mem()));
  X509_NAME_print_ex(bio.get(), name, 0, (XN_FLAG_ONELINE | ASN1_STRFLGS_UTF8_CONVERT) & ~ASN1_STRFLGS_ESC_MSB);
  return Drained(bio.get());
}

// Where an SSL_CTX keeps the peer record of its transfer (curl makes one
// context per connection).
int PeerIndex() {
  static const int index = SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
  return index;
}

// Called for each certificate of the chain; records the server's own (the
// chain's first) and leaves the verdict as OpenSSL found it.
int OnVerify(int verdict, X509_STORE_CTX* store) {
  auto* ssl = static_cast<SSL*>(X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
  auto* peer =
      ssl ? static_cast<std::optional<PeerCertificate>*>(SSL_CTX_get_ex_data(SSL_get_SSL_CTX(ssl), PeerIndex()))
          : nullptr;
  X509* leaf = X509_STORE_CTX_get0_cert(store);
  if (peer && !*peer && leaf)
    *peer = PeerCertificate{OneLine(X509_get_subject_name(leaf)), OneLine(X509_get_issuer_name(leaf))};
  return verdict;
}

CURLcode OnContext(CURL*, void* sslContext, void* peer) {
  auto* context = static_cast<SSL_CTX*>(sslContext);
  SSL_CTX_set_ex_data(context, PeerIndex(), peer);
  // On the store rather than the context: curl sets the context's own
  // callback to none, and then the store's is the one called.
  X509_STORE_set_verify_cb(SSL_CTX_get_cert_store(context), &OnVerify);
  return CURLE_OK;
}

}  // namespace

std::string CaBundle(const std::vector<std::wstring>& certificates) {
  std::unique_ptr<BIO, BioFree> bio(BIO_new(BIO_s_mem()));
  for (const std::wstring& text : certificates) {
    const auto der = CertificateDer(Narrow(text));
    if (!der) continue;
    const unsigned char* bytes = der->data();
    std::unique_ptr<X509, X509Free> certificate(d2i_X509(nullptr, &bytes, static_cast<long>(der->size())));
    if (certificate) PEM_write_bio_X509(bio.get(), certificate.get());
  }
  return Drained(bio.get());
}

void RecordPeerCertificate(CURL* handle, std::optional<PeerCertificate>* peer) {
  curl_easy_setopt(handle, CURLOPT_SSL_CTX_FUNCTION, &OnContext);
  curl_easy_setopt(handle, CURLOPT_SSL_CTX_DATA, peer);
}

std::string VerifyResultText(long result) { return X509_verify_cert_error_string(result); }

}  // namespace sitelist
