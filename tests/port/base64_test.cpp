// ABase64Encode: RFC 4648 vectors and the lenient decoder.
#include <gtest/gtest.h>

#include <string>

#include "port/crypto/CryptShim.h"

namespace {

std::string Bytes(const ABuffer& b) { return std::string(reinterpret_cast<const char*>(b.getBytes()), b.size()); }

AString Encode(const std::string& s) {
  return ABase64Encode::encode(reinterpret_cast<const unsigned char*>(s.data()), s.size());
}

struct Vector {
  const char* clear;
  const wchar_t* encoded;
};

const Vector kVectors[] = {
    {"", L""},         {"f", L"Zg=="},         {"fo", L"Zm8="},         {"foo", L"Zm9v"},
    {"foob", L"Zm9vYg=="}, {"fooba", L"Zm9vYmE="}, {"foobar", L"Zm9vYmFy"},
};

TEST(Base64Test, EncodesRfc4648Vectors) {
  for (const auto& v : kVectors) EXPECT_EQ(Encode(v.clear), AString(v.encoded)) << v.clear;
}

TEST(Base64Test, DecodesRfc4648Vectors) {
  for (const auto& v : kVectors) EXPECT_EQ(Bytes(ABase64Encode::decode(v.encoded)), v.clear) << v.clear;
}

TEST(Base64Test, EncodeOfNothingIsEmpty) {
  EXPECT_EQ(ABase64Encode::encode(nullptr, 0), AString());
  const unsigned char one = 'x';
  EXPECT_EQ(ABase64Encode::encode(&one, 0), AString());
}

TEST(Base64Test, DecodeSkipsWhiteSpaceAndNewlines) {
  EXPECT_EQ(Bytes(ABase64Encode::decode(L" Zm9v\r\nYmFy\n")), "foobar");
  EXPECT_EQ(Bytes(ABase64Encode::decode(L"Zm\t9v Ym\nE=")), "fooba");
}

TEST(Base64Test, DecodeSkipsStrayCharacters) {
  EXPECT_EQ(Bytes(ABase64Encode::decode(L"Zm*9v.Y-m€Fy")), "foobar");
}

TEST(Base64Test, DecodeSkipsWideCharactersWhoseLowByteIsInTheAlphabet) {
  // U+0141 and U+1F641 end in 0x41 ('A'); a wchar_t with the sign bit set too.
  AString text = L"Zm\u0141\U0001F6419v";
  text.push_back(static_cast<wchar_t>(0x80000041u));
  text += L"YmFy";
  EXPECT_EQ(Bytes(ABase64Encode::decode(text)), "foobar");
}

TEST(Base64Test, DecodeStopsAtFirstPadding) {
  EXPECT_EQ(Bytes(ABase64Encode::decode(L"Zg==Zm9v")), "f");
  EXPECT_EQ(Bytes(ABase64Encode::decode(L"Zm9v=YmFy")), "foo");
  EXPECT_EQ(Bytes(ABase64Encode::decode(L"=Zm9v")), "");
}

TEST(Base64Test, DecodesTrailingPartialGroups) {
  EXPECT_EQ(Bytes(ABase64Encode::decode(L"Zm9vYg")), "foob");    // 2 chars: 1 byte
  EXPECT_EQ(Bytes(ABase64Encode::decode(L"Zm9vYmE")), "fooba");  // 3 chars: 2 bytes
  EXPECT_EQ(Bytes(ABase64Encode::decode(L"Zm9vY")), "foo");      // 1 char: nothing
  EXPECT_EQ(Bytes(ABase64Encode::decode(L"Z")), "");
}

TEST(Base64Test, DecodeOfGarbageIsEmpty) {
  EXPECT_EQ(ABase64Encode::decode(L"!!!").size(), 0u);
  EXPECT_EQ(ABase64Encode::decode(L"").size(), 0u);
  EXPECT_EQ(ABase64Encode::decode(L"  \n\t").size(), 0u);
}

TEST(Base64Test, UsesPlusAndSlash) {
  const unsigned char bytes[] = {0xFB, 0xFF, 0xBF};
  EXPECT_EQ(ABase64Encode::encode(bytes, sizeof(bytes)), AString(L"+/+/"));
  EXPECT_EQ(Bytes(ABase64Encode::decode(L"+/+/")), std::string("\xFB\xFF\xBF"));
}

TEST(Base64Test, RoundTripsAllByteValues) {
  std::string all;
  for (int i = 0; i < 256; ++i) all.push_back(static_cast<char>(i));
  const AString encoded = Encode(all);
  EXPECT_EQ(encoded.size(), 344u);  // 85 full groups and one padded one
  EXPECT_EQ(encoded.substr(0, 8), AString(L"AAECAwQF"));
  EXPECT_EQ(encoded.substr(encoded.size() - 4), AString(L"/w=="));
  EXPECT_EQ(Bytes(ABase64Encode::decode(encoded)), all);
  // Every split point of the sequence, to cover every padding case.
  for (std::size_t n = 0; n <= all.size(); ++n) {
    const std::string part = all.substr(all.size() - n);
    ASSERT_EQ(Bytes(ABase64Encode::decode(Encode(part))), part) << n;
  }
}

}  // namespace
