#include "SiteInput.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <iostream>
#include <iterator>

#include "Context.h"
#include "sitehlp/SitesHelper.h"

namespace sitelist {
namespace {

std::size_t Characters(const std::string& text) { return Wide(text).size(); }

bool HasBlank(const std::string& text) {
  return std::any_of(text.begin(), text.end(), [](unsigned char c) { return std::isspace(c) || c < 0x20; });
}

std::optional<InputError> ParsePort(const std::string& what, const std::string& text, HostPort& out) {
  const bool digits = !text.empty() && text.size() <= 5 &&
                      std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); });
  const unsigned long port = digits ? std::stoul(text) : 0;
  if (port < 1 || port > 65535) return InputError{what + ": the port " + text + " is not a number from 1 to 65535"};
  out.port = static_cast<unsigned int>(port);
  return std::nullopt;
}

}  // namespace

std::optional<InputError> CheckLength(const std::string& what, const std::string& text, unsigned int maxChars,
                                      bool required) {
  if (required && text.empty()) return InputError{what + " must not be empty"};
  if (Characters(text) > maxChars)
    return InputError{what + " is longer than " + std::to_string(maxChars) + " characters"};
  return std::nullopt;
}

std::optional<InputError> ParseHostPort(const std::string& what, const std::string& text, unsigned int maxChars,
                                        HostPort& out) {
  out = HostPort{};
  std::string rest;
  if (!text.empty() && text[0] == '[') {
    const std::size_t close = text.find(']');
    if (close == std::string::npos) return InputError{what + ": " + text + " lacks the closing ]"};
    out.host = text.substr(0, close + 1);
    rest = text.substr(close + 1);
    if (!rest.empty() && rest[0] != ':') return InputError{what + ": unexpected text after ] in " + text};
  } else if (std::count(text.begin(), text.end(), ':') == 1) {
    out.host = text.substr(0, text.find(':'));
    rest = text.substr(text.find(':'));
  } else {
    out.host = text;
  }
  if (out.host.empty() || out.host == "[]" || HasBlank(out.host)) return InputError{what + ": no valid host in \"" + text + "\""};
  if (auto error = CheckLength(what, out.host, maxChars)) return error;
  if (!rest.empty()) return ParsePort(what, rest.substr(1), out);
  return std::nullopt;
}

bool IsIpAddress(const std::string& text) {
  std::string address = text;
  if (address.size() > 2 && address.front() == '[' && address.back() == ']')
    address = address.substr(1, address.size() - 2);
  unsigned char buffer[16];
  if (address == text && inet_pton(AF_INET, address.c_str(), buffer) == 1) return true;
  return inet_pton(AF_INET6, address.c_str(), buffer) == 1;
}

std::optional<InputError> ReadPassword(std::string& password) {
  password.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
  if (!password.empty() && password.back() == '\n') password.pop_back();
  if (!password.empty() && password.back() == '\r') password.pop_back();
  if (password.empty()) return InputError{"standard input holds no password"};
  const unsigned int max = sitehlp::c_nameCapacity - 1;
  if (Characters(password) > max)
    return InputError{"the password is longer than " + std::to_string(max) +
                      " characters, more than a site list holds; it was not used"};
  return std::nullopt;
}

}  // namespace sitelist
