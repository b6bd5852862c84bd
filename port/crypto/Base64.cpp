// Standard base64 (RFC 4648 alphabet, padded output, lenient input).
#include <cstddef>
#include <vector>

#include "port/crypto/CryptShim.h"

namespace {

const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The 6-bit value of c, or -1 when c is not in the alphabet.
int SextetOf(wchar_t c) {
  if (c >= L'A' && c <= L'Z') return c - L'A';
  if (c >= L'a' && c <= L'z') return c - L'a' + 26;
  if (c >= L'0' && c <= L'9') return c - L'0' + 52;
  if (c == L'+') return 62;
  if (c == L'/') return 63;
  return -1;
}

}  // namespace

AString ABase64Encode::encode(const unsigned char* data, std::size_t size) {
  AString out;
  if (!data || size == 0) return out;
  out.reserve((size + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 3 <= size; i += 3) {
    unsigned long v = (static_cast<unsigned long>(data[i]) << 16) | (static_cast<unsigned long>(data[i + 1]) << 8) | data[i + 2];
    out.push_back(static_cast<wchar_t>(kAlphabet[(v >> 18) & 0x3F]));
    out.push_back(static_cast<wchar_t>(kAlphabet[(v >> 12) & 0x3F]));
    out.push_back(static_cast<wchar_t>(kAlphabet[(v >> 6) & 0x3F]));
    out.push_back(static_cast<wchar_t>(kAlphabet[v & 0x3F]));
  }
  const std::size_t rest = size - i;
  if (rest == 1) {
    unsigned long v = static_cast<unsigned long>(data[i]) << 16;
    out.push_back(static_cast<wchar_t>(kAlphabet[(v >> 18) & 0x3F]));
    out.push_back(static_cast<wchar_t>(kAlphabet[(v >> 12) & 0x3F]));
    out.append(L"==");
  } else if (rest == 2) {
    unsigned long v = (static_cast<unsigned long>(data[i]) << 16) | (static_cast<unsigned long>(data[i + 1]) << 8);
    out.push_back(static_cast<wchar_t>(kAlphabet[(v >> 18) & 0x3F]));
    out.push_back(static_cast<wchar_t>(kAlphabet[(v >> 12) & 0x3F]));
    out.push_back(static_cast<wchar_t>(kAlphabet[(v >> 6) & 0x3F]));
    out.push_back(L'=');
  }
  return out;
}

ABuffer ABase64Encode::decode(const AString& text) {
  ABuffer out;
  // Values come from files and the network: accept what can be decoded rather
  // than failing on line breaks or stray characters.
  std::vector<unsigned char> bytes;
  bytes.reserve(text.size() / 4 * 3 + 2);
  unsigned long acc = 0;
  int count = 0;  // sextets in acc
  for (wchar_t c : text) {
    if (c == L'=') break;
    const int v = SextetOf(c);
    if (v < 0) continue;
    acc = (acc << 6) | static_cast<unsigned long>(v);
    if (++count == 4) {
      bytes.push_back(static_cast<unsigned char>((acc >> 16) & 0xFF));
      bytes.push_back(static_cast<unsigned char>((acc >> 8) & 0xFF));
      bytes.push_back(static_cast<unsigned char>(acc & 0xFF));
      acc = 0;
      count = 0;
    }
  }
  // A partial group: 2 sextets carry one byte, 3 carry two; 1 carries none.
  if (count == 2) {
    bytes.push_back(static_cast<unsigned char>((acc >> 4) & 0xFF));
  } else if (count == 3) {
    bytes.push_back(static_cast<unsigned char>((acc >> 10) & 0xFF));
    bytes.push_back(static_cast<unsigned char>((acc >> 2) & 0xFF));
  }
  out.assign(bytes.data(), bytes.size());
  return out;
}
