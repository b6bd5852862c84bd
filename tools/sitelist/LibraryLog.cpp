#include "LibraryLog.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace sitelist {
namespace {

void WriteAll(int fd, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t n = write(fd, data, size);
    if (n <= 0) return;
    data += n;
    size -= static_cast<std::size_t>(n);
  }
}

// "[LEVEL] component: message", as the library's stderr sink writes it.
LogLine Parse(std::size_t offset, const std::string& text) {
  LogLine line{offset, "", "", text};
  if (text.empty() || text[0] != '[') return line;
  const std::size_t close = text.find("] ");
  const std::size_t colon = close == std::string::npos ? close : text.find(": ", close + 2);
  if (colon == std::string::npos) return line;
  line.level = text.substr(1, close - 1);
  line.component = text.substr(close + 2, colon - close - 2);
  line.message = text.substr(colon + 2);
  return line;
}

constexpr const char c_lockNotTaken[] = "Unable to take lock ";

}  // namespace

LibraryLog::LibraryLog() {
  std::fflush(stderr);
  m_capture = memfd_create("sitelist-stderr", MFD_CLOEXEC);
  if (m_capture < 0) return;
  m_stderr = dup(STDERR_FILENO);
  if (m_stderr < 0 || dup2(m_capture, STDERR_FILENO) < 0) {
    if (m_stderr >= 0) close(m_stderr);
    close(m_capture);
    m_capture = m_stderr = -1;
  }
}

LibraryLog::~LibraryLog() {
  if (m_capture < 0) return;
  const std::string text = Captured();
  dup2(m_stderr, STDERR_FILENO);
  close(m_stderr);
  close(m_capture);
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    end = end == std::string::npos ? text.size() : end + 1;
    if (std::find(m_restated.begin(), m_restated.end(), start) == m_restated.end())
      WriteAll(STDERR_FILENO, text.data() + start, end - start);
    start = end;
  }
}

std::string LibraryLog::Captured() const {
  std::string text;
  if (m_capture < 0) return text;
  std::fflush(stderr);
  char buffer[4096];
  for (off_t at = 0;;) {
    const ssize_t n = pread(m_capture, buffer, sizeof buffer, at);
    if (n <= 0) break;
    text.append(buffer, static_cast<std::size_t>(n));
    at += n;
  }
  return text;
}

std::size_t LibraryLog::Mark() const { return Captured().size(); }

std::vector<LogLine> LibraryLog::LinesSince(std::size_t mark) const {
  const std::string text = Captured();
  std::vector<LogLine> lines;
  for (std::size_t start = mark; start < text.size();) {
    const std::size_t end = text.find('\n', start);
    if (end == std::string::npos) break;
    lines.push_back(Parse(start, text.substr(start, end - start)));
    start = end + 1;
  }
  return lines;
}

std::string LibraryLog::LockNotTakenSince(std::size_t mark) const {
  for (const LogLine& line : LinesSince(mark))
    if (line.level == "ERROR" && line.message.rfind(c_lockNotTaken, 0) == 0)
      return line.message.substr(sizeof c_lockNotTaken - 1);
  return "";
}

void LibraryLog::Restated(const LogLine& line) { m_restated.push_back(line.offset); }

}  // namespace sitelist
