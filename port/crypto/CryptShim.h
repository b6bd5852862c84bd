// The platform crypto factory and its encryption objects.
//
// Two kinds are provided, both AES-256-GCM over OpenSSL EVP with a fresh
// random 12-byte nonce per value and the 16-byte tag checked on decryption (a
// tampered or foreign value fails; no unauthenticated byte is returned):
//   kind 3 (EncryptionType::Text):  string form, base64 of nonce|ciphertext|tag;
//   kind 6 (EncryptionType::Bytes): byte form, nonce|ciphertext|tag as bytes;
//                                   its string operations use base64 text.
// Clear text is UTF-8 inside the cipher. Each kind has its own 32-byte key,
// from KeyConf.
// Thread safety: the factory and the objects may be used from any thread;
// one object is used by one thread at a time. Each thread keeps one cipher
// context per kind and direction, keyed once and given a new nonce per value
// (wiped when the thread ends).
#ifndef VLM_PORT_CRYPTO_CRYPTSHIM_H
#define VLM_PORT_CRYPTO_CRYPTSHIM_H

#include <cstddef>

#include "platform/ABuffer.h"
#include "platform/AString.h"

enum EncryptionType : int {
  ENCRYPTION_NONE = 0,
  ENCRYPTION_TEXT = 3,   // text form: site list passwords
  ENCRYPTION_BYTES = 6,  // byte form: server site lists in transit
};

class IEncryption {
 public:
  // Byte form: decrypts in (nonce|ciphertext|tag) into out.
  virtual bool decrypt(AnObjectBuffer<unsigned char>& in, AnObjectBuffer<unsigned char>& out) = 0;
  // String form: encrypts clear text into its text form.
  virtual bool encrypt(const AString& in, AString& out) = 0;
  // String form: decrypts a text form back into clear text.
  virtual bool decrypt(const AString& in, AString& out) = 0;
  // Byte form: encrypts in into nonce|ciphertext|tag.
  virtual bool encrypt(const AnObjectBuffer<unsigned char>& in, AnObjectBuffer<unsigned char>& out) = 0;

 protected:
  virtual ~IEncryption() = default;
  friend class CryptShim;
};

class CryptShim {
 public:
  static CryptShim& instance();
  // A new object of the kind, or NULL when the kind cannot be had (unknown
  // kind, or its key can be neither read nor created).
  IEncryption* create_encryption_object(EncryptionType kind);
  void destroy_encryption_object(IEncryption* object);
};

// Keys and key policy of the platform.
//
// Kind k's key is the 32-byte file "<key dir>/kind<k>.key". A missing file is
// created with 32 random bytes (RAND_bytes), exclusively (O_EXCL) and with
// mode 0600, so concurrent first users agree on one key. A file of another
// size is refused, never repaired.
class KeyConf {
 public:
  static constexpr std::size_t c_keySize = 32;
  // The platform's key size setting (configuration "crypto_key_size").
  static int getCryptoKeySize();
  // Loads (or creates) the key of kind into key; false when it cannot be had.
  static bool getKey(EncryptionType kind, unsigned char (&key)[c_keySize]);
};

// Standard base64 (RFC 4648, with padding).
class ABase64Encode {
 public:
  static AString encode(const unsigned char* data, std::size_t size);
  // Decodes leniently: characters outside the alphabet (white space, stray
  // bytes) are skipped and decoding stops at the first "=". Returns the
  // bytes decoded so far; never fails.
  static ABuffer decode(const AString& text);
};

#endif  // VLM_PORT_CRYPTO_CRYPTSHIM_H
