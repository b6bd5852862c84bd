// The text-form encryption object that passwords are sealed and opened with.
//
// Creating one loads its key (a configuration lookup, a lock and a copy) and
// allocates; a document holds a password per site. So while a
// PasswordCipherScope lives on a thread (the reading or building of one
// document), that thread's passwords share one object, made at the first
// password and released with the scope. Outside a scope each password gets
// an object of its own, as before. A failed creation is not kept: the next
// password tries (and logs) again, as it would without the scope.
#ifndef VLM_SITEHLP_PASSWORDCIPHER_H
#define VLM_SITEHLP_PASSWORDCIPHER_H

#include "port/crypto/CryptShim.h"

namespace sitehlp {

class PasswordCipherScope {
 public:
  PasswordCipherScope();
  ~PasswordCipherScope();
  PasswordCipherScope(const PasswordCipherScope&) = delete;
  PasswordCipherScope& operator=(const PasswordCipherScope&) = delete;
};

// The object for one password: the scope's, or one of its own.
class PasswordCipher {
 public:
  PasswordCipher();
  ~PasswordCipher();
  PasswordCipher(const PasswordCipher&) = delete;
  PasswordCipher& operator=(const PasswordCipher&) = delete;
  IEncryption* operator->() const { return m_p; }
  explicit operator bool() const { return m_p != nullptr; }

 private:
  IEncryption* m_p = nullptr;
  bool m_bOwn = false;
};

}  // namespace sitehlp

#endif  // VLM_SITEHLP_PASSWORDCIPHER_H
