#include "Fingerprint.h"

#include <openssl/evp.h>

#include <cctype>
#include <optional>
#include <vector>

namespace sitelist {
namespace {

std::string Trimmed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// The base64 body: between the BEGIN and END lines of PEM, else the whole text.
std::string Body(const std::string& text) {
  const std::size_t begin = text.find("-----BEGIN ");
  if (begin == std::string::npos) return text;
  const std::size_t start = text.find('\n', begin);
  const std::size_t end = text.find("-----END ", begin);
  if (start == std::string::npos || end == std::string::npos || end < start) return text;
  return text.substr(start + 1, end - start - 1);
}

std::optional<std::vector<unsigned char>> Base64Decoded(const std::string& text) {
  std::string clean;
  for (char c : text)
    if (!std::isspace(static_cast<unsigned char>(c))) clean += c;
  if (clean.empty() || clean.size() % 4 != 0) return std::nullopt;
  std::vector<unsigned char> bytes(clean.size() / 4 * 3);
  const int n = EVP_DecodeBlock(bytes.data(), reinterpret_cast<const unsigned char*>(clean.data()),
                                static_cast<int>(clean.size()));
  if (n < 0) return std::nullopt;
  std::size_t size = static_cast<std::size_t>(n);
  // EVP_DecodeBlock counts the padding as zero bytes.
  for (std::size_t i = clean.size(); i > 0 && clean[i - 1] == '='; --i) --size;
  bytes.resize(size);
  return bytes;
}

std::string Hex(const unsigned char* bytes, unsigned int size) {
  static const char c_digits[] = "0123456789ABCDEF";
  std::string out;
  for (unsigned int i = 0; i < size; ++i) {
    if (i) out += ':';
    out += c_digits[bytes[i] >> 4];
    out += c_digits[bytes[i] & 15];
  }
  return out;
}

}  // namespace

std::optional<std::vector<unsigned char>> CertificateDer(const std::string& text) {
  return Base64Decoded(Body(Trimmed(text)));
}

std::string CertificateFingerprint(const std::string& text) {
  const std::string trimmed = Trimmed(text);
  std::vector<unsigned char> bytes(trimmed.begin(), trimmed.end());
  if (auto der = CertificateDer(trimmed)) bytes = std::move(*der);
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  EVP_Digest(bytes.data(), bytes.size(), digest, &size, EVP_sha256(), nullptr);
  return Hex(digest, size);
}

}  // namespace sitelist
