#include "FloorCipher.h"

#include <fcntl.h>
#include <unistd.h>

#include <openssl/crypto.h>
#include <openssl/rand.h>

#include <cstring>
#include <stdexcept>


namespace vlmbench {

namespace {

constexpr std::size_t kNonce = 12;
constexpr std::size_t kTag = 16;
// The text form's kind number, authenticated as additional data.
constexpr unsigned char kTextKind = 3;
constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

struct Sextets {
  signed char v[256];
  constexpr Sextets() : v() {
    for (int i = 0; i < 256; ++i) v[i] = -1;
    for (int i = 0; i < 64; ++i) v[static_cast<unsigned char>(kAlphabet[i])] = static_cast<signed char>(i);
  }
};
constexpr Sextets kSextets;

// Padded base64 into bytes; the number of bytes, 0 for a malformed text.
std::size_t Decode(const char* text, std::size_t size, unsigned char* out) {
  while (size > 0 && text[size - 1] == '=') --size;
  std::size_t n = 0;
  unsigned long acc = 0;
  int count = 0;
  for (std::size_t i = 0; i < size; ++i) {
    const int s = kSextets.v[static_cast<unsigned char>(text[i])];
    if (s < 0) return 0;
    acc = (acc << 6) | static_cast<unsigned long>(s);
    if (++count == 4) {
      out[n++] = static_cast<unsigned char>(acc >> 16);
      out[n++] = static_cast<unsigned char>(acc >> 8);
      out[n++] = static_cast<unsigned char>(acc);
      acc = 0;
      count = 0;
    }
  }
  if (count == 2) out[n++] = static_cast<unsigned char>(acc >> 4);
  if (count == 3) {
    out[n++] = static_cast<unsigned char>(acc >> 10);
    out[n++] = static_cast<unsigned char>(acc >> 2);
  }
  return n;
}

void Encode(const unsigned char* data, std::size_t size, std::string& out) {
  std::size_t i = 0;
  for (; i + 3 <= size; i += 3) {
    const unsigned long v = (static_cast<unsigned long>(data[i]) << 16) | (data[i + 1] << 8) | data[i + 2];
    const char group[4] = {kAlphabet[v >> 18], kAlphabet[(v >> 12) & 63], kAlphabet[(v >> 6) & 63], kAlphabet[v & 63]};
    out.append(group, 4);
  }
  if (size - i == 1) {
    const unsigned long v = static_cast<unsigned long>(data[i]) << 16;
    const char group[4] = {kAlphabet[v >> 18], kAlphabet[(v >> 12) & 63], '=', '='};
    out.append(group, 4);
  } else if (size - i == 2) {
    const unsigned long v = (static_cast<unsigned long>(data[i]) << 16) | (data[i + 1] << 8);
    const char group[4] = {kAlphabet[v >> 18], kAlphabet[(v >> 12) & 63], kAlphabet[(v >> 6) & 63], '='};
    out.append(group, 4);
  }
}

}  // namespace

FloorCipher::FloorCipher(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) throw std::runtime_error("floor cipher: cannot open " + path);
  const ssize_t n = ::read(fd, m_key, sizeof m_key);
  ::close(fd);
  if (n != static_cast<ssize_t>(sizeof m_key)) throw std::runtime_error("floor cipher: cannot read " + path);
  m_cipher = EVP_CIPHER_fetch(nullptr, "AES-256-GCM", nullptr);
  m_open = EVP_CIPHER_CTX_new();
  m_seal = EVP_CIPHER_CTX_new();
  if (!m_cipher || !m_open || !m_seal || EVP_DecryptInit_ex(m_open, m_cipher, nullptr, m_key, nullptr) != 1 ||
      EVP_EncryptInit_ex(m_seal, m_cipher, nullptr, m_key, nullptr) != 1)
    throw std::runtime_error("floor cipher: OpenSSL refuses AES-256-GCM");
}

FloorCipher::~FloorCipher() {
  EVP_CIPHER_CTX_free(m_open);
  EVP_CIPHER_CTX_free(m_seal);
  EVP_CIPHER_free(m_cipher);
  OPENSSL_cleanse(m_key, sizeof m_key);
}

bool FloorCipher::Open(const char* base64, std::size_t size, wchar_t* clear, std::size_t capacity) {
  unsigned char sealed[1024];
  unsigned char plain[1024];
  if (size / 4 * 3 > sizeof sealed) return false;
  const std::size_t n = Decode(base64, size, sealed);
  if (n < kNonce + kTag || n - kNonce - kTag >= capacity) return false;
  const std::size_t length = n - kNonce - kTag;
  int len = 0;
  if (EVP_DecryptInit_ex(m_open, nullptr, nullptr, nullptr, sealed) != 1 ||
      EVP_DecryptUpdate(m_open, nullptr, &len, &kTextKind, 1) != 1 ||
      EVP_DecryptUpdate(m_open, plain, &len, sealed + kNonce, static_cast<int>(length)) != 1 ||
      EVP_CIPHER_CTX_ctrl(m_open, EVP_CTRL_GCM_SET_TAG, static_cast<int>(kTag), sealed + kNonce + length) != 1 ||
      EVP_DecryptFinal_ex(m_open, plain + len, &len) != 1)
    return false;
  // The record's fields are wide text; the generated passwords are ASCII
  // (anything else is refused rather than widened wrongly).
  unsigned char any = 0;
  for (std::size_t i = 0; i < length; ++i) {
    any |= plain[i];
    clear[i] = static_cast<wchar_t>(plain[i]);
  }
  clear[length] = L'\0';
  OPENSSL_cleanse(plain, length);
  return any < 0x80;
}

bool FloorCipher::Seal(const char* clear, std::size_t size, std::string& out) {
  unsigned char sealed[1024];
  if (size + kNonce + kTag > sizeof sealed) return false;
  int len = 0;
  if (RAND_bytes(sealed, static_cast<int>(kNonce)) != 1 ||
      EVP_EncryptInit_ex(m_seal, nullptr, nullptr, nullptr, sealed) != 1 ||
      EVP_EncryptUpdate(m_seal, nullptr, &len, &kTextKind, 1) != 1 ||
      EVP_EncryptUpdate(m_seal, sealed + kNonce, &len, reinterpret_cast<const unsigned char*>(clear),
                        static_cast<int>(size)) != 1 ||
      EVP_EncryptFinal_ex(m_seal, sealed + kNonce + len, &len) != 1 ||
      EVP_CIPHER_CTX_ctrl(m_seal, EVP_CTRL_GCM_GET_TAG, static_cast<int>(kTag), sealed + kNonce + size) != 1)
    return false;
  Encode(sealed, size + kNonce + kTag, out);
  return true;
}

}  // namespace vlmbench
