#include "TransferLog.h"

#include <strings.h>

#include <cstdio>
#include <utility>

namespace sitelist {
namespace {

constexpr const char c_mask[] = "****";

bool StartsWithNoCase(const std::string& text, const char* prefix) {
  const std::size_t n = std::char_traits<char>::length(prefix);
  return text.size() >= n && strncasecmp(text.c_str(), prefix, n) == 0;
}

// "Authorization: Basic dXNlcjpwdw==" keeps its scheme; the rest goes.
std::string MaskedHeader(const std::string& line) {
  const std::size_t colon = line.find(':');
  const std::size_t scheme = line.find_first_not_of(' ', colon + 1);
  const std::size_t end = scheme == std::string::npos ? scheme : line.find(' ', scheme);
  if (end == std::string::npos) return line.substr(0, colon + 1) + " " + c_mask;
  return line.substr(0, end) + " " + c_mask;
}

}  // namespace

TransferLog::TransferLog(std::string prefix, std::vector<std::string> secrets)
    : m_prefix(std::move(prefix)), m_secrets(std::move(secrets)) {}

void TransferLog::Attach(CURL* handle) {
  curl_easy_setopt(handle, CURLOPT_DEBUGFUNCTION, &TransferLog::OnDebug);
  curl_easy_setopt(handle, CURLOPT_DEBUGDATA, this);
  curl_easy_setopt(handle, CURLOPT_VERBOSE, 1L);
}

std::string TransferLog::Masked(const std::string& line) const {
  std::string text = line;
  if (StartsWithNoCase(text, "Authorization:") || StartsWithNoCase(text, "Proxy-Authorization:"))
    text = MaskedHeader(text);
  else if (StartsWithNoCase(text, "PASS "))
    text = std::string("PASS ") + c_mask;
  for (const std::string& secret : m_secrets) {
    if (secret.empty()) continue;
    for (std::size_t at = text.find(secret); at != std::string::npos; at = text.find(secret, at + sizeof c_mask - 1))
      text.replace(at, secret.size(), c_mask);
  }
  return text;
}

void TransferLog::Write(char marker, const std::string& text) const {
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    std::string line = text.substr(start, end - start);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (!line.empty()) std::fprintf(stderr, "%s %c %s\n", m_prefix.c_str(), marker, Masked(line).c_str());
    start = end + 1;
  }
}

int TransferLog::OnDebug(CURL*, curl_infotype type, char* data, std::size_t size, void* self) {
  const auto* log = static_cast<const TransferLog*>(self);
  const std::string text(data, size);
  switch (type) {
    case CURLINFO_TEXT: log->Write('*', text); break;
    case CURLINFO_HEADER_OUT: log->Write('>', text); break;
    case CURLINFO_HEADER_IN: log->Write('<', text); break;
    default: break;  // bodies and TLS records are not shown
  }
  return 0;
}

}  // namespace sitelist
