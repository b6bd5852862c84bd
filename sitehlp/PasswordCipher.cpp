#include "sitehlp/PasswordCipher.h"

namespace sitehlp {

namespace {

thread_local int t_scopes = 0;
thread_local IEncryption* t_shared = nullptr;

}  // namespace

PasswordCipherScope::PasswordCipherScope() { ++t_scopes; }

PasswordCipherScope::~PasswordCipherScope() {
  if (--t_scopes > 0 || !t_shared) return;
  CryptShim::instance().destroy_encryption_object(t_shared);
  t_shared = nullptr;
}

PasswordCipher::PasswordCipher() {
  if (t_scopes == 0) {
    m_p = CryptShim::instance().create_encryption_object(ENCRYPTION_TEXT);
    m_bOwn = true;
    return;
  }
  if (!t_shared) t_shared = CryptShim::instance().create_encryption_object(ENCRYPTION_TEXT);
  m_p = t_shared;
}

PasswordCipher::~PasswordCipher() {
  if (m_bOwn) CryptShim::instance().destroy_encryption_object(m_p);
}

}  // namespace sitehlp
