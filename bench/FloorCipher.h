// The password crypto a perfect reader and writer of the site list could not
// avoid: AES-256-GCM through OpenSSL with one cipher context per direction,
// keyed once, a fresh random 12-byte nonce per sealed value, the tag checked
// on every opened one, and base64 (which the format forces) done directly on
// the document's bytes.
#ifndef VLM_BENCH_FLOORCIPHER_H
#define VLM_BENCH_FLOORCIPHER_H

#include <cstddef>
#include <string>

#include <openssl/evp.h>

namespace vlmbench {

class FloorCipher {
 public:
  // The key of the text form (the site list's passwords), from the key
  // file at keyPath; throws when it cannot be read.
  explicit FloorCipher(const std::string& keyPath);
  ~FloorCipher();
  FloorCipher(const FloorCipher&) = delete;
  FloorCipher& operator=(const FloorCipher&) = delete;

  // Opens the base64 text of a sealed value into wide clear text (capacity
  // characters with the terminator). False when the tag does not match.
  bool Open(const char* base64, std::size_t size, wchar_t* clear, std::size_t capacity);
  // Seals UTF-8 clear text into base64 text (appended to out).
  bool Seal(const char* clear, std::size_t size, std::string& out);

 private:
  unsigned char m_key[32];
  EVP_CIPHER* m_cipher = nullptr;
  EVP_CIPHER_CTX* m_open = nullptr;
  EVP_CIPHER_CTX* m_seal = nullptr;
};

// The process's floor cipher with the key of the configured key directory
// (made on first use, outside any timing).
FloorCipher& TheFloorCipher();

}  // namespace vlmbench

#endif  // VLM_BENCH_FLOORCIPHER_H
