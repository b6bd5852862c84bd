// Passwords: clear text in records, encrypted in documents. The ciphers are
// the platform crypto library's; this unit only picks the kind and direction.
#include <cstring>

#include "port/crypto/CryptShim.h"
#include "sitehlp/PasswordCipher.h"
#include "sitehlp/SitesHelper.h"

namespace sitehlp {

namespace {

// Releases a factory object on every path.
class EncryptionObject {
 public:
  explicit EncryptionObject(EncryptionType kind) : m_p(CryptShim::instance().create_encryption_object(kind)) {}
  ~EncryptionObject() { CryptShim::instance().destroy_encryption_object(m_p); }
  EncryptionObject(const EncryptionObject&) = delete;
  EncryptionObject& operator=(const EncryptionObject&) = delete;
  IEncryption* operator->() const { return m_p; }
  explicit operator bool() const { return m_p != nullptr; }

 private:
  IEncryption* m_p;
};

}  // namespace

bool CSitesHelper::EncryptDecryptPassword(const std::wstring& in, std::wstring& out, bool bEncrypt) {
  PasswordCipher object;
  if (!object) return false;
  AString result;
  const bool ok = bEncrypt ? object->encrypt(AString(in), result) : object->decrypt(AString(in), result);
  if (ok) out = std::move(result);
  return ok;
}

bool CSitesHelper::decrypt_data(const std::wstring& encrypted, std::wstring& clear) {
  EncryptionObject object(ENCRYPTION_BYTES);
  if (!object) return false;
  const ABuffer bytes = ABase64Encode::decode(AString(encrypted));
  AnObjectBuffer<unsigned char> input(bytes.getBytes(), bytes.size());
  AnObjectBuffer<unsigned char> output;
  if (!object->decrypt(input, output)) return false;
  // The clear text is taken as a zero-terminated 8-bit string.
  const char* text = reinterpret_cast<const char*>(output.data());
  const std::size_t length = output.size() ? strnlen(text, output.size()) : 0;
  clear = AString(std::string(text ? text : "", length));
  return true;
}

int CSitesHelper::EncryptPassword(const std::wstring& password, std::wstring& encrypted) {
  return EncryptDecryptPassword(password, encrypted, true) ? 1 : 0;
}

}  // namespace sitehlp
