// The encryption objects: AES-256-GCM over OpenSSL EVP.
//
// Sealed form: nonce (12 random bytes) | ciphertext | tag (16 bytes). The
// kind number is authenticated as additional data, so a value of one kind
// never opens as another even if their keys were equal. Text forms are the
// base64 of the sealed form around the UTF-8 of the clear text.
#include "port/crypto/CryptShim.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "port/log/Log.h"

namespace {

const wchar_t kComponent[] = L"Crypto";

// GCM's default nonce length: cipher, key and nonce then go in with a single
// init call, without a length setting of their own.
constexpr std::size_t kNonceSize = 12;
constexpr std::size_t kTagSize = 16;
constexpr std::size_t kOverhead = kNonceSize + kTagSize;
// EVP takes int lengths; larger inputs go through in pieces.
constexpr std::size_t kChunk = static_cast<std::size_t>(INT_MAX / 2);


// The cipher, fetched from the providers once per process. Handing OpenSSL 3
// the built-in EVP_aes_256_gcm() makes every init look the implementation up
// by name again, which cost more than the whole AES work on a password. The
// built-in one stays the fallback should the fetch fail.
class FetchedCipher {
 public:
  FetchedCipher() : m_cipher(EVP_CIPHER_fetch(nullptr, "AES-256-GCM", nullptr)) {}
  ~FetchedCipher() { EVP_CIPHER_free(m_cipher); }
  FetchedCipher(const FetchedCipher&) = delete;
  FetchedCipher& operator=(const FetchedCipher&) = delete;
  const EVP_CIPHER* get() const { return m_cipher ? m_cipher : EVP_aes_256_gcm(); }

 private:
  EVP_CIPHER* m_cipher;
};

const EVP_CIPHER* Aes256Gcm() {
  static const FetchedCipher cipher;
  return cipher.get();
}

// A cipher context kept per thread, kind and direction, with the key it was
// keyed with. Setting a key costs more than the AES work on a password (key
// schedule and GHASH table); a context keyed already takes only the next
// nonce. The key is compared on every use, so a changed key file (or another
// key directory) keys it afresh. Freeing the context wipes its schedule.
class KeyedContext {
 public:
  KeyedContext() = default;
  ~KeyedContext() {
    EVP_CIPHER_CTX_free(m_ctx);
    OPENSSL_cleanse(m_key, sizeof(m_key));
  }
  KeyedContext(const KeyedContext&) = delete;
  KeyedContext& operator=(const KeyedContext&) = delete;

  // The context, initialised for key and nonce in the direction asked; NULL
  // when OpenSSL cannot give one.
  EVP_CIPHER_CTX* start(bool encrypt, const unsigned char* key, const unsigned char* nonce) {
    if (!m_ctx && !(m_ctx = EVP_CIPHER_CTX_new())) return nullptr;
    const bool keyed = m_bKeyed && CRYPTO_memcmp(m_key, key, sizeof(m_key)) == 0;
    const EVP_CIPHER* cipher = keyed ? nullptr : Aes256Gcm();
    const unsigned char* newKey = keyed ? nullptr : key;
    m_bKeyed = false;
    const int ok = encrypt ? EVP_EncryptInit_ex(m_ctx, cipher, nullptr, newKey, nonce)
                           : EVP_DecryptInit_ex(m_ctx, cipher, nullptr, newKey, nonce);
    if (ok != 1) return nullptr;
    if (!keyed) std::memcpy(m_key, key, sizeof(m_key));
    m_bKeyed = true;
    return m_ctx;
  }

 private:
  EVP_CIPHER_CTX* m_ctx = nullptr;
  unsigned char m_key[KeyConf::c_keySize] = {};
  bool m_bKeyed = false;
};

// The calling thread's context for a kind and direction.
EVP_CIPHER_CTX* StartCipher(EncryptionType kind, bool encrypt, const unsigned char* key, const unsigned char* nonce) {
  thread_local KeyedContext contexts[2][2];
  return contexts[kind == ENCRYPTION_TEXT ? 0 : 1][encrypt ? 1 : 0].start(encrypt, key, nonce);
}

// A byte vector for clear text: wiped before its memory is given back. Its
// size is fixed at construction so that no reallocation leaves a copy behind.
class SecretBytes {
 public:
  explicit SecretBytes(std::size_t size) : m_bytes(size) {}
  ~SecretBytes() { OPENSSL_cleanse(m_bytes.data(), m_bytes.size()); }
  SecretBytes(const SecretBytes&) = delete;
  SecretBytes& operator=(const SecretBytes&) = delete;
  unsigned char* data() { return m_bytes.data(); }
  std::size_t size() const { return m_bytes.size(); }

 private:
  std::vector<unsigned char> m_bytes;
};

// Wipes a std::string's characters on scope exit.
class StringWiper {
 public:
  explicit StringWiper(std::string& s) : m_s(s) {}
  ~StringWiper() {
    if (!m_s.empty()) OPENSSL_cleanse(&m_s[0], m_s.size());
  }
  StringWiper(const StringWiper&) = delete;
  StringWiper& operator=(const StringWiper&) = delete;

 private:
  std::string& m_s;
};

class AesGcmEncryption final : public IEncryption {
 public:
  AesGcmEncryption(EncryptionType kind, const unsigned char (&key)[KeyConf::c_keySize]) : m_kind(kind) {
    std::memcpy(m_key, key, sizeof(m_key));
  }
  ~AesGcmEncryption() override { OPENSSL_cleanse(m_key, sizeof(m_key)); }
  AesGcmEncryption(const AesGcmEncryption&) = delete;
  AesGcmEncryption& operator=(const AesGcmEncryption&) = delete;

  bool decrypt(AnObjectBuffer<unsigned char>& in, AnObjectBuffer<unsigned char>& out) override {
    SecretBytes clear(in.size() >= kOverhead ? in.size() - kOverhead : 0);
    if (!open(in.data(), in.size(), clear)) return false;
    AnObjectBuffer<unsigned char> result(clear.data(), clear.size());
    out = std::move(result);
    return true;
  }

  bool encrypt(const AString& in, AString& out) override {
    ACharString utf8(in);
    StringWiper wipe(utf8);
    std::vector<unsigned char> sealed;
    if (!seal(reinterpret_cast<const unsigned char*>(utf8.data()), utf8.size(), sealed)) return false;
    out = ABase64Encode::encode(sealed.data(), sealed.size());
    return true;
  }

  bool decrypt(const AString& in, AString& out) override {
    ABuffer sealed = ABase64Encode::decode(in);
    SecretBytes clear(sealed.size() >= kOverhead ? sealed.size() - kOverhead : 0);
    if (!open(sealed.data(), sealed.size(), clear)) return false;
    std::string utf8(reinterpret_cast<const char*>(clear.data()), clear.size());
    StringWiper wipe(utf8);
    AString result(utf8);
    out = std::move(result);
    return true;
  }

  bool encrypt(const AnObjectBuffer<unsigned char>& in, AnObjectBuffer<unsigned char>& out) override {
    std::vector<unsigned char> sealed;
    if (!seal(in.data(), in.size(), sealed)) return false;
    out.assign(sealed.data(), sealed.size());
    return true;
  }

 private:
  // in -> nonce | ciphertext | tag.
  bool seal(const unsigned char* in, std::size_t size, std::vector<unsigned char>& sealed) const {
    if (size > SIZE_MAX - kOverhead) return false;
    std::vector<unsigned char> buf(size + kOverhead);
    unsigned char* nonce = buf.data();
    unsigned char* cipher = nonce + kNonceSize;
    unsigned char* tag = cipher + size;
    if (RAND_bytes(nonce, static_cast<int>(kNonceSize)) != 1) return false;
    EVP_CIPHER_CTX* ctx = StartCipher(m_kind, true, m_key, nonce);
    if (!ctx) return false;
    const unsigned char aad = static_cast<unsigned char>(m_kind);
    int len = 0;
    if (EVP_EncryptUpdate(ctx, nullptr, &len, &aad, 1) != 1) return false;
    std::size_t done = 0;
    while (done < size) {
      const std::size_t piece = std::min(size - done, kChunk);
      if (EVP_EncryptUpdate(ctx, cipher + done, &len, in + done, static_cast<int>(piece)) != 1) return false;
      done += static_cast<std::size_t>(len);
    }
    // GCM is a stream mode: Final emits nothing, but completes the tag.
    if (EVP_EncryptFinal_ex(ctx, cipher + done, &len) != 1 || done + static_cast<std::size_t>(len) != size ||
        EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_GCM_GET_TAG, static_cast<int>(kTagSize), tag) != 1)
      return false;
    sealed = std::move(buf);
    return true;
  }

  // nonce | ciphertext | tag -> clear (sized for the ciphertext). Nothing of
  // clear is meaningful unless this returns true.
  bool open(const unsigned char* in, std::size_t size, SecretBytes& clear) const {
    if (size < kOverhead || clear.size() != size - kOverhead) return false;
    const unsigned char* nonce = in;
    const unsigned char* cipher = in + kNonceSize;
    const std::size_t cipherSize = size - kOverhead;
    unsigned char tag[kTagSize];
    std::memcpy(tag, cipher + cipherSize, kTagSize);  // the ctrl wants a writable pointer
    EVP_CIPHER_CTX* ctx = StartCipher(m_kind, false, m_key, nonce);
    if (!ctx) return false;
    const unsigned char aad = static_cast<unsigned char>(m_kind);
    int len = 0;
    if (EVP_DecryptUpdate(ctx, nullptr, &len, &aad, 1) != 1) return false;
    std::size_t done = 0;
    while (done < cipherSize) {
      const std::size_t piece = std::min(cipherSize - done, kChunk);
      if (EVP_DecryptUpdate(ctx, clear.data() + done, &len, cipher + done, static_cast<int>(piece)) != 1)
        return false;
      done += static_cast<std::size_t>(len);
    }
    if (EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_GCM_SET_TAG, static_cast<int>(kTagSize), tag) != 1) return false;
    // Final checks the tag: a tampered or foreign value ends here.
    return EVP_DecryptFinal_ex(ctx, clear.data() + done, &len) == 1 && done + static_cast<std::size_t>(len) == cipherSize;
  }

  const EncryptionType m_kind;
  unsigned char m_key[KeyConf::c_keySize];
};

}  // namespace

CryptShim& CryptShim::instance() {
  static CryptShim shim;
  return shim;
}

IEncryption* CryptShim::create_encryption_object(EncryptionType kind) {
  if (kind != ENCRYPTION_TEXT && kind != ENCRYPTION_BYTES) {
    logError(kComponent, L"Unknown encryption kind " + std::to_wstring(static_cast<int>(kind)));
    return nullptr;
  }
  unsigned char key[KeyConf::c_keySize];
  if (!KeyConf::getKey(kind, key)) {
    logError(kComponent, L"No key for encryption kind " + std::to_wstring(static_cast<int>(kind)));
    return nullptr;
  }
  auto object = std::make_unique<AesGcmEncryption>(kind, key);
  OPENSSL_cleanse(key, sizeof(key));
  return object.release();
}

void CryptShim::destroy_encryption_object(IEncryption* object) { delete object; }
