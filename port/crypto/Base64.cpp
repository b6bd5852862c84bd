// Standard base64 (RFC 4648 alphabet, padded output, lenient input).
#include <cstddef>

#include "port/crypto/CryptShim.h"

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The 6-bit value of each ASCII character, or -1 for one not in the
// alphabet. Every password a reader meets is decoded: a table lookup per
// character keeps that cheap.
struct SextetTable {
  signed char value[128];
  constexpr SextetTable() : value() {
    for (int c = 0; c < 128; ++c) value[c] = -1;
    for (int i = 0; i < 64; ++i) value[static_cast<unsigned char>(kAlphabet[i])] = static_cast<signed char>(i);
  }
};
constexpr SextetTable kSextets;

inline int SextetOf(wchar_t c) {
  return static_cast<unsigned long>(c) < 128 ? kSextets.value[static_cast<unsigned long>(c)] : -1;
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
  // than failing on line breaks or stray characters. Written in place into
  // room for the most bytes the text can hold, then trimmed.
  out.resize(text.size() / 4 * 3 + 2);
  unsigned char* bytes = out.data();
  std::size_t n = 0;
  unsigned long acc = 0;
  int count = 0;  // sextets in acc
  for (wchar_t c : text) {
    if (c == L'=') break;
    const int v = SextetOf(c);
    if (v < 0) continue;
    acc = (acc << 6) | static_cast<unsigned long>(v);
    if (++count == 4) {
      bytes[n++] = static_cast<unsigned char>((acc >> 16) & 0xFF);
      bytes[n++] = static_cast<unsigned char>((acc >> 8) & 0xFF);
      bytes[n++] = static_cast<unsigned char>(acc & 0xFF);
      acc = 0;
      count = 0;
    }
  }
  // A partial group: 2 sextets carry one byte, 3 carry two; 1 carries none.
  if (count == 2) {
    bytes[n++] = static_cast<unsigned char>((acc >> 4) & 0xFF);
  } else if (count == 3) {
    bytes[n++] = static_cast<unsigned char>((acc >> 10) & 0xFF);
    bytes[n++] = static_cast<unsigned char>((acc >> 2) & 0xFF);
  }
  out.resize(n);
  return out;
}
