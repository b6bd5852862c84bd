// Passwords: text-form encryption both ways, byte-form decryption, and what
// happens when the crypto objects cannot be had.
#include <gtest/gtest.h>

#include <string>

#include "port/config/IConfiguration.h"
#include "port/crypto/CryptShim.h"
#include "port/crypto/KeyCache.h"
#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace sitehlp {

// Reaches the helper's private text-form routine.
struct CSitesHelperInternals {
  static bool EncryptDecryptPassword(CSitesHelper& helper, const std::wstring& in, std::wstring& out,
                                     bool bEncrypt) {
    return helper.EncryptDecryptPassword(in, out, bEncrypt);
  }
  static bool IsReencrypting(const CSitesHelper& helper) { return helper.m_bReencrypting; }
};

}  // namespace sitehlp

namespace {

using sitehlp::CSitesHelper;
using sitehlp::CSitesHelperInternals;

bool Encrypt(CSitesHelper& helper, const std::wstring& in, std::wstring& out) {
  return CSitesHelperInternals::EncryptDecryptPassword(helper, in, out, true);
}

bool Decrypt(CSitesHelper& helper, const std::wstring& in, std::wstring& out) {
  return CSitesHelperInternals::EncryptDecryptPassword(helper, in, out, false);
}

// The byte form of clear, sealed by the platform's kind 6 object, as base64.
std::wstring ByteFormOf(const std::string& clear) {
  IEncryption* object = CryptShim::instance().create_encryption_object(ENCRYPTION_BYTES);
  if (!object) return std::wstring();
  AnObjectBuffer<unsigned char> in(reinterpret_cast<const unsigned char*>(clear.data()), clear.size());
  AnObjectBuffer<unsigned char> sealed;
  const bool ok = object->encrypt(in, sealed);
  CryptShim::instance().destroy_encryption_object(object);
  if (!ok) return std::wstring();
  return ABase64Encode::encode(sealed.data(), sealed.size());
}

bool IsBase64Text(const std::wstring& text) {
  for (wchar_t c : text) {
    const bool ok = (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z') || (c >= L'0' && c <= L'9') || c == L'+' ||
                    c == L'/' || c == L'=';
    if (!ok) return false;
  }
  return true;
}

class PasswordEncryptionTest : public ::testing::Test {
 protected:
  void SetUp() override { port::ClearKeyCache(); }
  void TearDown() override { port::ClearKeyCache(); }

  // Points the key directory below a regular file, where no key can be read
  // or created.
  void MakeKeysUnavailable() {
    const std::string blocker = m_config.dir().file("not-a-directory");
    testsupport::WriteFile(blocker, "plain file");
    port::SetConfigValue(port::ConfigKey::KeyDir, blocker + "/keys");
    port::ClearKeyCache();
  }

  testsupport::ConfigScope m_config;
  CSitesHelper m_helper{m_config.defaultSiteList()};
};

// ---- EncryptPassword --------------------------------------------------------------------------

TEST_F(PasswordEncryptionTest, EncryptPasswordReturnsOneAndTextThatIsNotTheClearText) {
  std::wstring encrypted = L"previous";
  EXPECT_EQ(m_helper.EncryptPassword(L"s3cret-Pa55", encrypted), 1);
  EXPECT_NE(encrypted, L"s3cret-Pa55");
  EXPECT_NE(encrypted, L"previous");
  EXPECT_FALSE(encrypted.empty());
  EXPECT_EQ(encrypted.find(L"s3cret"), std::wstring::npos);
  // Stored in the document as it comes: it must be plain XML text.
  EXPECT_TRUE(IsBase64Text(encrypted)) << testsupport::Narrow(encrypted);
  std::wstring clear = L"previous";
  EXPECT_TRUE(Decrypt(m_helper, encrypted, clear));
  EXPECT_EQ(clear, L"s3cret-Pa55");
}

TEST_F(PasswordEncryptionTest, EncryptPasswordWithoutTextEncryptionObjectReturnsZeroAndKeepsOutput) {
  MakeKeysUnavailable();
  ASSERT_EQ(CryptShim::instance().create_encryption_object(ENCRYPTION_TEXT), nullptr);
  std::wstring encrypted = L"previous";
  EXPECT_EQ(m_helper.EncryptPassword(L"s3cret", encrypted), 0);
  EXPECT_EQ(encrypted, L"previous");
}

TEST_F(PasswordEncryptionTest, TextDecryptionWithoutEncryptionObjectFailsAndKeepsOutput) {
  std::wstring encrypted;
  ASSERT_TRUE(Encrypt(m_helper, L"s3cret", encrypted));
  MakeKeysUnavailable();
  std::wstring clear = L"previous";
  EXPECT_FALSE(Decrypt(m_helper, encrypted, clear));
  EXPECT_EQ(clear, L"previous");
}

TEST_F(PasswordEncryptionTest, EncryptPasswordAgreesWithTheTextFormRoutine) {
  std::wstring viaExported;
  ASSERT_EQ(m_helper.EncryptPassword(L"same", viaExported), 1);
  std::wstring clear;
  ASSERT_TRUE(Decrypt(m_helper, viaExported, clear));
  EXPECT_EQ(clear, L"same");
}

// ---- EncryptDecryptPassword ---------------------------------------------------------------------

TEST_F(PasswordEncryptionTest, EncryptThenDecryptGivesBackTheInput) {
  const std::wstring inputs[] = {
      L"p",
      L"correct horse battery staple",
      L"p\u00e4ssw\u00f6rd\u20ac\U0001F511",
      L"<&>\"' \t%%lt%%VAR%%gt%%",
      std::wstring(259, L'x'),
  };
  for (const std::wstring& input : inputs) {
    std::wstring encrypted;
    ASSERT_TRUE(Encrypt(m_helper, input, encrypted)) << testsupport::Narrow(input);
    EXPECT_NE(encrypted, input);
    std::wstring clear = L"previous";
    EXPECT_TRUE(Decrypt(m_helper, encrypted, clear)) << testsupport::Narrow(input);
    EXPECT_EQ(clear, input);
  }
}

TEST_F(PasswordEncryptionTest, EncryptThenDecryptOfEmptyPasswordGivesEmptyText) {
  std::wstring encrypted;
  ASSERT_TRUE(Encrypt(m_helper, L"", encrypted));
  std::wstring clear = L"previous";
  EXPECT_TRUE(Decrypt(m_helper, encrypted, clear));
  EXPECT_EQ(clear, L"");
}

TEST_F(PasswordEncryptionTest, AnotherHelperDecryptsWhatOneEncrypted) {
  std::wstring encrypted;
  ASSERT_TRUE(Encrypt(m_helper, L"shared", encrypted));
  CSitesHelper other(m_config.dir().wfile("other.xml"));
  std::wstring clear;
  EXPECT_TRUE(Decrypt(other, encrypted, clear));
  EXPECT_EQ(clear, L"shared");
}

TEST_F(PasswordEncryptionTest, TamperedValueDoesNotDecryptAndLeavesOutputUnchanged) {
  std::wstring encrypted;
  ASSERT_EQ(m_helper.EncryptPassword(L"s3cret", encrypted), 1);
  ASSERT_GT(encrypted.size(), 24u);
  std::wstring tampered = encrypted;
  wchar_t& c = tampered[20];
  c = (c == L'A') ? L'B' : L'A';
  ASSERT_NE(tampered, encrypted);
  std::wstring clear = L"previous";
  EXPECT_FALSE(Decrypt(m_helper, tampered, clear));
  EXPECT_EQ(clear, L"previous");
}

TEST_F(PasswordEncryptionTest, TruncatedValueDoesNotDecryptAndLeavesOutputUnchanged) {
  std::wstring encrypted;
  ASSERT_EQ(m_helper.EncryptPassword(L"s3cret", encrypted), 1);
  std::wstring clear = L"previous";
  EXPECT_FALSE(Decrypt(m_helper, encrypted.substr(0, 8), clear));
  EXPECT_EQ(clear, L"previous");
}

TEST_F(PasswordEncryptionTest, ClearTextDoesNotDecryptAsTextForm) {
  std::wstring clear = L"previous";
  EXPECT_FALSE(Decrypt(m_helper, L"not encrypted at all", clear));
  EXPECT_EQ(clear, L"previous");
}

TEST_F(PasswordEncryptionTest, NewHelperStartsWithReencryptingOff) {
  EXPECT_FALSE(CSitesHelperInternals::IsReencrypting(m_helper));
}

// ---- decrypt_data ------------------------------------------------------------------------------

TEST_F(PasswordEncryptionTest, DecryptDataGivesBackTheSealedText) {
  const std::wstring value = ByteFormOf("hello");
  ASSERT_FALSE(value.empty());
  std::wstring clear = L"previous";
  EXPECT_TRUE(m_helper.decrypt_data(value, clear));
  EXPECT_EQ(clear, L"hello");
}

TEST_F(PasswordEncryptionTest, DecryptDataStopsAtTheFirstZeroByte) {
  const std::wstring value = ByteFormOf(std::string("ab\0cd", 5));
  ASSERT_FALSE(value.empty());
  std::wstring clear = L"previous";
  EXPECT_TRUE(m_helper.decrypt_data(value, clear));
  EXPECT_EQ(clear, L"ab");
  EXPECT_EQ(clear.size(), 2u);
}

TEST_F(PasswordEncryptionTest, DecryptDataOfLeadingZeroByteGivesEmptyText) {
  const std::wstring value = ByteFormOf(std::string("\0abc", 4));
  ASSERT_FALSE(value.empty());
  std::wstring clear = L"previous";
  EXPECT_TRUE(m_helper.decrypt_data(value, clear));
  EXPECT_EQ(clear, L"");
}

TEST_F(PasswordEncryptionTest, DecryptDataTakesTheBytesAsUtf8) {
  const std::wstring value = ByteFormOf("p\xC3\xA4ss\xE2\x82\xAC");
  ASSERT_FALSE(value.empty());
  std::wstring clear;
  EXPECT_TRUE(m_helper.decrypt_data(value, clear));
  EXPECT_EQ(clear, L"p\u00e4ss\u20ac");
}

TEST_F(PasswordEncryptionTest, DecryptDataOfInvalidBase64FailsAndLeavesOutputUnchanged) {
  std::wstring clear = L"previous";
  EXPECT_FALSE(m_helper.decrypt_data(L"!!! not base64 ***", clear));
  EXPECT_EQ(clear, L"previous");
}

TEST_F(PasswordEncryptionTest, DecryptDataOfEmptyTextFailsAndLeavesOutputUnchanged) {
  std::wstring clear = L"previous";
  EXPECT_FALSE(m_helper.decrypt_data(L"", clear));
  EXPECT_EQ(clear, L"previous");
}

TEST_F(PasswordEncryptionTest, DecryptDataOfTamperedValueFailsAndLeavesOutputUnchanged) {
  std::wstring value = ByteFormOf("hello");
  ASSERT_GT(value.size(), 24u);
  value[16] = (value[16] == L'A') ? L'B' : L'A';
  std::wstring clear = L"previous";
  EXPECT_FALSE(m_helper.decrypt_data(value, clear));
  EXPECT_EQ(clear, L"previous");
}

TEST_F(PasswordEncryptionTest, DecryptDataSkipsLineBreaksOfTheBase64Text) {
  std::wstring value = ByteFormOf("hello");
  ASSERT_GT(value.size(), 10u);
  value.insert(8, L"\r\n");
  std::wstring clear;
  EXPECT_TRUE(m_helper.decrypt_data(value, clear));
  EXPECT_EQ(clear, L"hello");
}

TEST_F(PasswordEncryptionTest, DecryptDataDoesNotOpenTheTextForm) {
  std::wstring textForm;
  ASSERT_EQ(m_helper.EncryptPassword(L"hello", textForm), 1);
  std::wstring clear = L"previous";
  EXPECT_FALSE(m_helper.decrypt_data(textForm, clear));
  EXPECT_EQ(clear, L"previous");
}

TEST_F(PasswordEncryptionTest, DecryptDataWithoutByteEncryptionObjectFailsAndKeepsOutput) {
  const std::wstring value = ByteFormOf("hello");
  ASSERT_FALSE(value.empty());
  MakeKeysUnavailable();
  std::wstring clear = L"previous";
  EXPECT_FALSE(m_helper.decrypt_data(value, clear));
  EXPECT_EQ(clear, L"previous");
}

}  // namespace
