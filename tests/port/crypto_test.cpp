// CryptShim and KeyConf: AES-256-GCM objects of kinds 3 and 6 and their key
// files.
#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "port/config/IConfiguration.h"
#include "port/crypto/CryptShim.h"
#include "port/crypto/KeyCache.h"
#include "support/TestSupport.h"

namespace {

using testsupport::ReadFile;
using testsupport::WriteFile;

struct Destroy {
  void operator()(IEncryption* p) const { CryptShim::instance().destroy_encryption_object(p); }
};
using Object = std::unique_ptr<IEncryption, Destroy>;

Object Create(EncryptionType kind) { return Object(CryptShim::instance().create_encryption_object(kind)); }

using Bytes = AnObjectBuffer<unsigned char>;

Bytes ToBytes(const std::string& s) { return Bytes(reinterpret_cast<const unsigned char*>(s.data()), s.size()); }
std::string ToString(const Bytes& b) {
  return b.empty() ? std::string() : std::string(reinterpret_cast<const char*>(b.data()), b.size());
}
std::string Decode(const AString& text) {
  ABuffer b = ABase64Encode::decode(text);
  return std::string(reinterpret_cast<const char*>(b.getBytes()), b.size());
}
AString Encode(const std::string& s) {
  return ABase64Encode::encode(reinterpret_cast<const unsigned char*>(s.data()), s.size());
}

std::string KnownKey(char seed) {
  std::string key;
  for (int i = 0; i < 32; ++i) key.push_back(static_cast<char>(seed + i));
  return key;
}

// Reference AES-256-GCM with one byte of additional data, independent of the
// code under test.
std::string RefSeal(const std::string& key, const std::string& nonce, const std::string& clear, unsigned char aad) {
  EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
  std::string out(clear.size(), '\0');
  unsigned char tag[16];
  int len = 0;
  EVP_EncryptInit_ex(ctx, EVP_aes_256_gcm(), nullptr, reinterpret_cast<const unsigned char*>(key.data()),
                     reinterpret_cast<const unsigned char*>(nonce.data()));
  EVP_EncryptUpdate(ctx, nullptr, &len, &aad, 1);
  if (!clear.empty())
    EVP_EncryptUpdate(ctx, reinterpret_cast<unsigned char*>(&out[0]), &len,
                      reinterpret_cast<const unsigned char*>(clear.data()), static_cast<int>(clear.size()));
  EVP_EncryptFinal_ex(ctx, tag, &len);
  EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_GCM_GET_TAG, 16, tag);
  EVP_CIPHER_CTX_free(ctx);
  return nonce + out + std::string(reinterpret_cast<const char*>(tag), 16);
}

// Returns true and the clear text when sealed opens under key and aad.
bool RefOpen(const std::string& key, const std::string& sealed, unsigned char aad, std::string& clear) {
  if (sealed.size() < 28) return false;
  const std::string nonce = sealed.substr(0, 12);
  const std::string cipher = sealed.substr(12, sealed.size() - 28);
  std::string tag = sealed.substr(sealed.size() - 16);
  EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
  std::string out(cipher.size(), '\0');
  unsigned char rest[16];
  int len = 0;
  EVP_DecryptInit_ex(ctx, EVP_aes_256_gcm(), nullptr, reinterpret_cast<const unsigned char*>(key.data()),
                     reinterpret_cast<const unsigned char*>(nonce.data()));
  EVP_DecryptUpdate(ctx, nullptr, &len, &aad, 1);
  if (!cipher.empty())
    EVP_DecryptUpdate(ctx, reinterpret_cast<unsigned char*>(&out[0]), &len,
                      reinterpret_cast<const unsigned char*>(cipher.data()), static_cast<int>(cipher.size()));
  EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_GCM_SET_TAG, 16, &tag[0]);
  const bool ok = EVP_DecryptFinal_ex(ctx, rest, &len) == 1;
  EVP_CIPHER_CTX_free(ctx);
  if (ok) clear = out;
  return ok;
}

std::set<std::string> DirEntries(const std::string& dir) {
  std::set<std::string> names;
  for (const auto& e : std::filesystem::directory_iterator(dir)) names.insert(e.path().filename().string());
  return names;
}

class CryptoTest : public ::testing::Test {
 protected:
  void SetUp() override { port::ClearKeyCache(); }
  void TearDown() override { port::ClearKeyCache(); }

  std::string keyDir() const { return scope.dir().file("keys"); }
  std::string keyFile(int kind) const { return keyDir() + "/kind" + std::to_string(kind) + ".key"; }
  void writeKey(int kind, const std::string& key) {
    std::filesystem::create_directories(keyDir());
    WriteFile(keyFile(kind), key);
  }

  testsupport::ConfigScope scope;
};

// ---- round trips ----

TEST_F(CryptoTest, Kind3TextRoundTripAscii) {
  Object o = Create(ENCRYPTION_TEXT);
  ASSERT_TRUE(o);
  AString sealed;
  ASSERT_TRUE(o->encrypt(AString(L"Secret-Passw0rd"), sealed));
  EXPECT_EQ(Decode(sealed).size(), 28u + 15u);
  EXPECT_EQ(sealed.find(L"Secret"), AString::npos);
  AString clear;
  ASSERT_TRUE(o->decrypt(sealed, clear));
  EXPECT_EQ(clear, AString(L"Secret-Passw0rd"));
}

TEST_F(CryptoTest, Kind3TextRoundTripNonAscii) {
  Object o = Create(ENCRYPTION_TEXT);
  ASSERT_TRUE(o);
  const AString text(L"p\u00e4ssw\u00f6rd\u20ac\U0001F511");
  AString sealed;
  ASSERT_TRUE(o->encrypt(text, sealed));
  // UTF-8 inside: 1+2+1+1+1+2+1+1+3+4 bytes.
  EXPECT_EQ(Decode(sealed).size(), 28u + 17u);
  AString clear;
  ASSERT_TRUE(o->decrypt(sealed, clear));
  EXPECT_EQ(clear, text);
}

TEST_F(CryptoTest, Kind3TextRoundTripEmpty) {
  Object o = Create(ENCRYPTION_TEXT);
  ASSERT_TRUE(o);
  AString sealed;
  ASSERT_TRUE(o->encrypt(AString(), sealed));
  EXPECT_EQ(Decode(sealed).size(), 28u);
  AString clear(L"previous");
  ASSERT_TRUE(o->decrypt(sealed, clear));
  EXPECT_EQ(clear, AString());
}

TEST_F(CryptoTest, Kind6BytesRoundTrip) {
  Object o = Create(ENCRYPTION_BYTES);
  ASSERT_TRUE(o);
  std::string all;
  for (int i = 0; i < 256; ++i) all.push_back(static_cast<char>(i));
  std::string large(200000, '\0');
  for (std::size_t i = 0; i < large.size(); ++i) large[i] = static_cast<char>((i * 7919) >> 3);
  for (const std::string& clear : {std::string(), std::string("<SiteList/>"), all, large}) {
    Bytes in = ToBytes(clear), sealed, out;
    ASSERT_TRUE(o->encrypt(in, sealed));
    EXPECT_EQ(sealed.size(), clear.size() + 28);
    ASSERT_TRUE(o->decrypt(sealed, out));
    EXPECT_EQ(ToString(out), clear);
  }
}

TEST_F(CryptoTest, Kind6BytesDecryptInPlace) {
  Object o = Create(ENCRYPTION_BYTES);
  ASSERT_TRUE(o);
  Bytes buf = ToBytes("same buffer");
  ASSERT_TRUE(o->encrypt(buf, buf));
  EXPECT_EQ(buf.size(), 11u + 28u);
  ASSERT_TRUE(o->decrypt(buf, buf));
  EXPECT_EQ(ToString(buf), "same buffer");
}

TEST_F(CryptoTest, Kind6TextRoundTrip) {
  Object o = Create(ENCRYPTION_BYTES);
  ASSERT_TRUE(o);
  AString sealed, clear;
  ASSERT_TRUE(o->encrypt(AString(L"gr\u00fc\u00dfe"), sealed));
  EXPECT_EQ(Decode(sealed).size(), 28u + 7u);
  ASSERT_TRUE(o->decrypt(sealed, clear));
  EXPECT_EQ(clear, AString(L"gr\u00fc\u00dfe"));
}

TEST_F(CryptoTest, TextAndByteFormsAreTheSameValue) {
  Object o = Create(ENCRYPTION_BYTES);
  ASSERT_TRUE(o);
  Bytes sealed;
  ASSERT_TRUE(o->encrypt(ToBytes("caf\xc3\xa9"), sealed));
  AString clear;
  ASSERT_TRUE(o->decrypt(ABase64Encode::encode(sealed.data(), sealed.size()), clear));
  EXPECT_EQ(clear, AString(L"caf\u00e9"));
}

TEST_F(CryptoTest, EachEncryptionUsesAFreshNonce) {
  Object o = Create(ENCRYPTION_TEXT);
  ASSERT_TRUE(o);
  AString a, b;
  ASSERT_TRUE(o->encrypt(AString(L"same"), a));
  ASSERT_TRUE(o->encrypt(AString(L"same"), b));
  EXPECT_NE(a, b);
  EXPECT_NE(Decode(a).substr(0, 12), Decode(b).substr(0, 12));
  AString ca, cb;
  ASSERT_TRUE(o->decrypt(a, ca));
  ASSERT_TRUE(o->decrypt(b, cb));
  EXPECT_EQ(ca, AString(L"same"));
  EXPECT_EQ(cb, AString(L"same"));

  Object o6 = Create(ENCRYPTION_BYTES);
  ASSERT_TRUE(o6);
  Bytes s1, s2;
  ASSERT_TRUE(o6->encrypt(ToBytes("same"), s1));
  ASSERT_TRUE(o6->encrypt(ToBytes("same"), s2));
  EXPECT_NE(ToString(s1).substr(0, 12), ToString(s2).substr(0, 12));
  EXPECT_NE(ToString(s1), ToString(s2));
}

// ---- the format, checked against a reference implementation ----

TEST_F(CryptoTest, ByteFormIsNonceCiphertextTagWithKindAsAad) {
  const std::string key = KnownKey('A');
  writeKey(6, key);
  Object o = Create(ENCRYPTION_BYTES);
  ASSERT_TRUE(o);
  Bytes sealed;
  ASSERT_TRUE(o->encrypt(ToBytes("reference"), sealed));
  std::string clear;
  ASSERT_TRUE(RefOpen(key, ToString(sealed), 6, clear));
  EXPECT_EQ(clear, "reference");
  EXPECT_FALSE(RefOpen(key, ToString(sealed), 3, clear));

  Bytes in = ToBytes(RefSeal(key, "0123456789ab", "from outside", 6)), out;
  ASSERT_TRUE(o->decrypt(in, out));
  EXPECT_EQ(ToString(out), "from outside");
}

TEST_F(CryptoTest, TextFormIsBase64OfTheByteFormOverUtf8) {
  const std::string key = KnownKey('a');
  writeKey(3, key);
  Object o = Create(ENCRYPTION_TEXT);
  ASSERT_TRUE(o);
  AString sealed;
  ASSERT_TRUE(o->encrypt(AString(L"\u00e9t\u00e9"), sealed));
  std::string clear;
  ASSERT_TRUE(RefOpen(key, Decode(sealed), 3, clear));
  EXPECT_EQ(clear, "\xc3\xa9t\xc3\xa9");

  AString out;
  ASSERT_TRUE(o->decrypt(Encode(RefSeal(key, "nonce-nonce!", "hiver \xe2\x82\xac", 3)), out));
  EXPECT_EQ(out, AString(L"hiver \u20ac"));
}

// ---- tampering and foreign values ----

TEST_F(CryptoTest, Kind6TamperedBytesAreRefused) {
  Object o = Create(ENCRYPTION_BYTES);
  ASSERT_TRUE(o);
  Bytes sealed;
  ASSERT_TRUE(o->encrypt(ToBytes("site list document"), sealed));
  const std::string good = ToString(sealed);
  // nonce (0, 11), ciphertext (12, 29), tag (30, 45)
  for (std::size_t pos : {std::size_t(0), std::size_t(11), std::size_t(12), std::size_t(29), std::size_t(30),
                          good.size() - 1}) {
    std::string bad = good;
    bad[pos] = static_cast<char>(bad[pos] ^ 0x01);
    Bytes in = ToBytes(bad), out = ToBytes("untouched");
    EXPECT_FALSE(o->decrypt(in, out)) << pos;
    EXPECT_EQ(ToString(out), "untouched") << pos;
  }
  Bytes in = ToBytes(good), out;
  ASSERT_TRUE(o->decrypt(in, out));
  EXPECT_EQ(ToString(out), "site list document");
}

TEST_F(CryptoTest, Kind3TamperedTextIsRefused) {
  Object o = Create(ENCRYPTION_TEXT);
  ASSERT_TRUE(o);
  AString sealed;
  ASSERT_TRUE(o->encrypt(AString(L"password"), sealed));
  const std::string good = Decode(sealed);
  ASSERT_EQ(good.size(), 36u);
  for (std::size_t pos : {std::size_t(0), std::size_t(11), std::size_t(12), std::size_t(19), std::size_t(20),
                          std::size_t(35)}) {
    std::string bad = good;
    bad[pos] = static_cast<char>(bad[pos] ^ 0x80);
    AString out(L"untouched");
    EXPECT_FALSE(o->decrypt(Encode(bad), out)) << pos;
    EXPECT_EQ(out, AString(L"untouched")) << pos;
  }
}

TEST_F(CryptoTest, TruncatedInputIsRefused) {
  Object o6 = Create(ENCRYPTION_BYTES);
  Object o3 = Create(ENCRYPTION_TEXT);
  ASSERT_TRUE(o6);
  ASSERT_TRUE(o3);
  Bytes sealed;
  ASSERT_TRUE(o6->encrypt(ToBytes("abc"), sealed));
  const std::string good = ToString(sealed);
  for (std::size_t n : {std::size_t(0), std::size_t(1), std::size_t(27), std::size_t(28), good.size() - 1}) {
    Bytes in = ToBytes(good.substr(0, n)), out = ToBytes("untouched");
    EXPECT_FALSE(o6->decrypt(in, out)) << n;
    EXPECT_EQ(ToString(out), "untouched") << n;
  }
  AString text;
  ASSERT_TRUE(o3->encrypt(AString(L"abc"), text));
  for (const AString& in : {AString(), AString(L"AAAA"), Encode(Decode(text).substr(0, 27)),
                            Encode(Decode(text).substr(0, Decode(text).size() - 1))}) {
    AString out(L"untouched");
    EXPECT_FALSE(o3->decrypt(in, out));
    EXPECT_EQ(out, AString(L"untouched"));
  }
}

TEST_F(CryptoTest, ValuesOfOneKindDoNotDecryptAsTheOther) {
  Object o3 = Create(ENCRYPTION_TEXT);
  Object o6 = Create(ENCRYPTION_BYTES);
  ASSERT_TRUE(o3);
  ASSERT_TRUE(o6);
  AString t3, t6, out(L"untouched");
  ASSERT_TRUE(o3->encrypt(AString(L"kind three"), t3));
  ASSERT_TRUE(o6->encrypt(AString(L"kind six"), t6));
  EXPECT_FALSE(o6->decrypt(t3, out));
  EXPECT_FALSE(o3->decrypt(t6, out));
  EXPECT_EQ(out, AString(L"untouched"));
  Bytes b6, bout;
  ASSERT_TRUE(o6->encrypt(ToBytes("bytes"), b6));
  EXPECT_FALSE(o3->decrypt(b6, bout));
  EXPECT_EQ(bout.size(), 0u);
}

TEST_F(CryptoTest, KindIsBoundEvenWhenKeysAreEqual) {
  const std::string key = KnownKey('k');
  writeKey(3, key);
  writeKey(6, key);
  Object o3 = Create(ENCRYPTION_TEXT);
  Object o6 = Create(ENCRYPTION_BYTES);
  ASSERT_TRUE(o3);
  ASSERT_TRUE(o6);
  AString t3, t6, out(L"untouched");
  ASSERT_TRUE(o3->encrypt(AString(L"three"), t3));
  ASSERT_TRUE(o6->encrypt(AString(L"six"), t6));
  EXPECT_FALSE(o6->decrypt(t3, out));
  EXPECT_FALSE(o3->decrypt(t6, out));
  EXPECT_EQ(out, AString(L"untouched"));
  ASSERT_TRUE(o3->decrypt(t3, out));
  EXPECT_EQ(out, AString(L"three"));
}

// ---- factory ----

TEST_F(CryptoTest, UnknownKindsHaveNoObject) {
  // Values outside 0..7 are not valid EncryptionType values (no fixed
  // underlying type), so only the unused ones inside that range are tried.
  for (int kind : {0, 1, 2, 4, 5, 7}) {
    EXPECT_EQ(CryptShim::instance().create_encryption_object(static_cast<EncryptionType>(kind)), nullptr) << kind;
    unsigned char key[KeyConf::c_keySize];
    EXPECT_FALSE(KeyConf::getKey(static_cast<EncryptionType>(kind), key)) << kind;
  }
  // No key file was made for them.
  EXPECT_FALSE(testsupport::FileExists(keyFile(5)));
}

TEST_F(CryptoTest, DestroyAcceptsNull) {
  CryptShim::instance().destroy_encryption_object(nullptr);
  EXPECT_EQ(&CryptShim::instance(), &CryptShim::instance());
}

// ---- key files ----

TEST_F(CryptoTest, KeyFileIsCreatedOwnerOnlyWith32Bytes) {
  ASSERT_FALSE(testsupport::FileExists(keyDir()));
  Object o = Create(ENCRYPTION_TEXT);
  ASSERT_TRUE(o);
  struct stat st;
  ASSERT_EQ(stat(keyDir().c_str(), &st), 0);
  EXPECT_TRUE(S_ISDIR(st.st_mode));
  EXPECT_EQ(st.st_mode & 07777, 0700u);
  ASSERT_EQ(stat(keyFile(3).c_str(), &st), 0);
  EXPECT_TRUE(S_ISREG(st.st_mode));
  EXPECT_EQ(st.st_mode & 07777, 0600u);
  EXPECT_EQ(st.st_size, 32);
  // Only the key itself: the temporary it was written under is gone.
  EXPECT_EQ(DirEntries(keyDir()), std::set<std::string>{"kind3.key"});

  unsigned char key[KeyConf::c_keySize];
  ASSERT_TRUE(KeyConf::getKey(ENCRYPTION_TEXT, key));
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(key), 32), ReadFile(keyFile(3)));

  // The other kind gets a key of its own.
  ASSERT_TRUE(Create(ENCRYPTION_BYTES));
  EXPECT_EQ(DirEntries(keyDir()), (std::set<std::string>{"kind3.key", "kind6.key"}));
  EXPECT_NE(ReadFile(keyFile(3)), ReadFile(keyFile(6)));
}

TEST_F(CryptoTest, KeyFileModeIsIndependentOfUmask) {
  std::filesystem::create_directories(keyDir());
  const mode_t previous = umask(0277);
  Object o = Create(ENCRYPTION_BYTES);
  umask(previous);
  ASSERT_TRUE(o);
  struct stat st;
  ASSERT_EQ(stat(keyFile(6).c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0600u);
  EXPECT_EQ(st.st_size, 32);
}

TEST_F(CryptoTest, NestedKeyDirectoryIsCreated) {
  const std::string dir = scope.dir().file("a/b/c");
  port::SetConfigValue(port::ConfigKey::KeyDir, dir);
  ASSERT_TRUE(Create(ENCRYPTION_TEXT));
  struct stat st;
  ASSERT_EQ(stat(dir.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0700u);
  EXPECT_EQ(ReadFile(dir + "/kind3.key").size(), 32u);
}

TEST_F(CryptoTest, KeyFileOfAnotherSizeIsRefusedAndLeftAlone) {
  for (std::size_t size : {std::size_t(31), std::size_t(0), std::size_t(33), std::size_t(64)}) {
    port::ClearKeyCache();
    const std::string content(size, 'z');
    writeKey(3, content);
    writeKey(6, content);
    EXPECT_EQ(CryptShim::instance().create_encryption_object(ENCRYPTION_TEXT), nullptr) << size;
    EXPECT_EQ(CryptShim::instance().create_encryption_object(ENCRYPTION_BYTES), nullptr) << size;
    unsigned char key[KeyConf::c_keySize];
    EXPECT_FALSE(KeyConf::getKey(ENCRYPTION_TEXT, key)) << size;
    EXPECT_EQ(ReadFile(keyFile(3)), content) << size;
    EXPECT_EQ(ReadFile(keyFile(6)), content) << size;
  }
}

TEST_F(CryptoTest, KeyFileThatIsADirectoryIsRefused) {
  std::filesystem::create_directories(keyFile(3));
  EXPECT_EQ(CryptShim::instance().create_encryption_object(ENCRYPTION_TEXT), nullptr);
}

TEST_F(CryptoTest, ImpossibleKeyDirectoryGivesNoObject) {
  const std::string blocker = scope.dir().file("blocker");
  WriteFile(blocker, "a regular file");
  port::SetConfigValue(port::ConfigKey::KeyDir, blocker + "/keys");
  EXPECT_EQ(CryptShim::instance().create_encryption_object(ENCRYPTION_TEXT), nullptr);
  EXPECT_EQ(CryptShim::instance().create_encryption_object(ENCRYPTION_BYTES), nullptr);
  port::SetConfigValue(port::ConfigKey::KeyDir, blocker);
  EXPECT_EQ(CryptShim::instance().create_encryption_object(ENCRYPTION_TEXT), nullptr);
  EXPECT_EQ(ReadFile(blocker), "a regular file");
}

TEST_F(CryptoTest, CryptoKeySizeFollowsConfiguration) {
  port::SetConfigValue(port::ConfigKey::CryptoKeySize, "1");
  EXPECT_EQ(KeyConf::getCryptoKeySize(), 1);
  port::SetConfigValue(port::ConfigKey::CryptoKeySize, "0");
  EXPECT_EQ(KeyConf::getCryptoKeySize(), 0);
}

TEST_F(CryptoTest, KeyPersistsAcrossCacheClears) {
  AString t3;
  Bytes b6;
  {
    Object o3 = Create(ENCRYPTION_TEXT);
    Object o6 = Create(ENCRYPTION_BYTES);
    ASSERT_TRUE(o3);
    ASSERT_TRUE(o6);
    ASSERT_TRUE(o3->encrypt(AString(L"kept"), t3));
    ASSERT_TRUE(o6->encrypt(ToBytes("kept too"), b6));
  }
  port::ClearKeyCache();
  Object o3 = Create(ENCRYPTION_TEXT);
  Object o6 = Create(ENCRYPTION_BYTES);
  ASSERT_TRUE(o3);
  ASSERT_TRUE(o6);
  AString clear;
  ASSERT_TRUE(o3->decrypt(t3, clear));
  EXPECT_EQ(clear, AString(L"kept"));
  Bytes out;
  ASSERT_TRUE(o6->decrypt(b6, out));
  EXPECT_EQ(ToString(out), "kept too");

  // It is the file that carries the key: another file, another key.
  WriteFile(keyFile(3), KnownKey('0'));
  port::ClearKeyCache();
  Object other = Create(ENCRYPTION_TEXT);
  ASSERT_TRUE(other);
  AString untouched(L"untouched");
  EXPECT_FALSE(other->decrypt(t3, untouched));
  EXPECT_EQ(untouched, AString(L"untouched"));
}

TEST_F(CryptoTest, LoadedKeysAreServedFromMemoryUntilCleared) {
  writeKey(6, KnownKey('A'));
  unsigned char key[KeyConf::c_keySize];
  ASSERT_TRUE(KeyConf::getKey(ENCRYPTION_BYTES, key));
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(key), 32), KnownKey('A'));
  WriteFile(keyFile(6), KnownKey('B'));
  ASSERT_TRUE(KeyConf::getKey(ENCRYPTION_BYTES, key));
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(key), 32), KnownKey('A'));
  port::ClearKeyCache();
  ASSERT_TRUE(KeyConf::getKey(ENCRYPTION_BYTES, key));
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(key), 32), KnownKey('B'));
}

TEST_F(CryptoTest, CacheIsPerKeyDirectory) {
  writeKey(3, KnownKey('A'));
  const std::string other = scope.dir().file("otherkeys");
  std::filesystem::create_directories(other);
  WriteFile(other + "/kind3.key", KnownKey('B'));
  unsigned char key[KeyConf::c_keySize];
  ASSERT_TRUE(KeyConf::getKey(ENCRYPTION_TEXT, key));
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(key), 32), KnownKey('A'));
  port::SetConfigValue(port::ConfigKey::KeyDir, other);
  ASSERT_TRUE(KeyConf::getKey(ENCRYPTION_TEXT, key));
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(key), 32), KnownKey('B'));
}

TEST_F(CryptoTest, ThreadsCreatingTheKeyAgreeOnIt) {
  constexpr int kThreads = 8;
  std::vector<std::string> keys(kThreads);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i)
    threads.emplace_back([&keys, i] {
      unsigned char key[KeyConf::c_keySize];
      if (KeyConf::getKey(ENCRYPTION_TEXT, key)) keys[i] = std::string(reinterpret_cast<const char*>(key), 32);
    });
  for (auto& t : threads) t.join();
  const std::string file = ReadFile(keyFile(3));
  ASSERT_EQ(file.size(), 32u);
  for (const auto& k : keys) EXPECT_EQ(k, file);
}

// Two processes start at once on a fresh key directory: both must end with
// the one key on disk, so that what the child encrypts the parent decrypts.
TEST_F(CryptoTest, ProcessesCreatingTheKeyAtOnceAgreeOnIt) {
  for (int round = 0; round < 10; ++round) {
    SCOPED_TRACE(round);
    const std::string dir = scope.dir().file("race" + std::to_string(round));
    const std::string result = scope.dir().file("child" + std::to_string(round) + ".out");
    port::SetConfigValue(port::ConfigKey::KeyDir, dir);
    port::ClearKeyCache();
    int go[2];
    ASSERT_EQ(pipe(go), 0);
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      close(go[1]);
      char c;
      if (read(go[0], &c, 1) != 1) _exit(2);
      IEncryption* o = CryptShim::instance().create_encryption_object(ENCRYPTION_BYTES);
      if (!o) _exit(3);
      Bytes in = ToBytes("from the child"), sealed;
      const bool ok = o->encrypt(in, sealed);
      CryptShim::instance().destroy_encryption_object(o);
      if (!ok) _exit(4);
      FILE* f = fopen(result.c_str(), "wb");
      if (!f || fwrite(sealed.data(), 1, sealed.size(), f) != sealed.size() || fclose(f) != 0) _exit(5);
      _exit(0);
    }
    close(go[0]);
    ASSERT_EQ(write(go[1], "g", 1), 1);
    close(go[1]);
    Object o = Create(ENCRYPTION_BYTES);
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status));
    ASSERT_EQ(WEXITSTATUS(status), 0);
    ASSERT_TRUE(o);
    Bytes in = ToBytes(ReadFile(result)), out;
    ASSERT_TRUE(o->decrypt(in, out));
    EXPECT_EQ(ToString(out), "from the child");
    EXPECT_EQ(DirEntries(dir), std::set<std::string>{"kind6.key"});
    EXPECT_EQ(ReadFile(dir + "/kind6.key").size(), 32u);
  }
}

}  // namespace
