#include "Base64.h"

#include <cstdint>

namespace sitelist {
namespace {

constexpr char c_alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int ValueOf(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}

}  // namespace

std::string Base64Encode(const std::string& bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::size_t n = bytes.size() - i < 3 ? bytes.size() - i : 3;
    std::uint32_t group = 0;
    for (std::size_t k = 0; k < 3; ++k)
      group = group << 8 | (k < n ? static_cast<unsigned char>(bytes[i + k]) : 0u);
    for (std::size_t k = 0; k < 4; ++k)
      text += k <= n ? c_alphabet[(group >> (18 - 6 * k)) & 63] : '=';
  }
  return text;
}

bool Base64Decode(const std::string& text, std::string& bytes) {
  if (text.size() % 4 != 0) return false;
  std::string out;
  out.reserve(text.size() / 4 * 3);
  for (std::size_t i = 0; i < text.size(); i += 4) {
    const bool last = i + 4 == text.size();
    std::size_t padding = 0;
    std::uint32_t group = 0;
    for (std::size_t k = 0; k < 4; ++k) {
      const char c = text[i + k];
      if (c == '=' && last && k >= 2) {
        ++padding;
        group <<= 6;
        continue;
      }
      const int value = ValueOf(c);
      if (value < 0 || padding > 0) return false;
      group = group << 6 | static_cast<std::uint32_t>(value);
    }
    for (std::size_t k = 0; k < 3 - padding; ++k) out += static_cast<char>((group >> (16 - 8 * k)) & 0xFF);
  }
  bytes = std::move(out);
  return true;
}

}  // namespace sitelist
