#include "port/fs/ChangeRecord.h"

#include <errno.h>
#include <unistd.h>

#include <sstream>

#include "port/fs/SysCalls.h"
#include "port/fs/Temporary.h"

namespace port {

namespace {

// A record names a handful of files; anything larger is not one of ours.
constexpr off_t kMaxRecordBytes = 64 * 1024;

constexpr char kHeader[] = "change 1";
constexpr char kPut[] = "put ";
constexpr char kRemove[] = "remove ";
constexpr char kEnd[] = "end";

bool StartsWith(const std::string& s, const char* prefix, std::string& rest) {
  const std::string p(prefix);
  if (s.compare(0, p.size(), p) != 0) return false;
  rest = s.substr(p.size());
  return true;
}

// A put's temporary has the shape the temporaries of its target have.
bool IsTemporaryOf(const std::string& temporary, const std::string& target) {
  const std::string prefix = TemporaryPrefix(target);
  return IsPlainName(temporary) && temporary.size() > prefix.size() && temporary.compare(0, prefix.size(), prefix) == 0;
}


}  // namespace

bool IsPlainName(const std::string& name) {
  if (name.empty() || name == "." || name == "..") return false;
  return name.find_first_of(std::string("/\n\r\0", 4)) == std::string::npos;
}

std::string FormatChangeRecord(const std::vector<ChangeStep>& steps) {
  std::string text = std::string(kHeader) + "\n";
  for (const ChangeStep& step : steps) {
    if (step.bRemove)
      text += kRemove + step.target + "\n";
    else
      text += kPut + step.temporary + "/" + step.target + "\n";
  }
  return text + kEnd + "\n";
}

bool ParseChangeRecord(const std::string& text, std::vector<ChangeStep>& steps) {
  std::istringstream lines(text);
  std::string line;
  if (!std::getline(lines, line) || line != kHeader) return false;
  std::vector<ChangeStep> parsed;
  bool ended = false;
  while (std::getline(lines, line)) {
    if (ended) return false;  // nothing may follow the end
    std::string rest;
    ChangeStep step;
    if (line == kEnd) {
      ended = true;
      continue;
    } else if (StartsWith(line, kRemove, rest)) {
      step.bRemove = true;
      step.target = rest;
      if (!IsPlainName(step.target)) return false;
    } else if (StartsWith(line, kPut, rest)) {
      const std::string::size_type slash = rest.find('/');
      if (slash == std::string::npos) return false;
      step.temporary = rest.substr(0, slash);
      step.target = rest.substr(slash + 1);
      if (!IsPlainName(step.target) || !IsTemporaryOf(step.temporary, step.target)) return false;
    } else {
      return false;
    }
    parsed.push_back(step);
  }
  if (!ended || text.empty() || text.back() != '\n') return false;
  steps.swap(parsed);
  return true;
}

int ReadChangeRecord(const std::string& dir, std::vector<ChangeStep>& steps) {
  const std::string path = dir + "/" + kChangeRecordName;
  errno = 0;
  // Never blocks: a FIFO put in its place is refused like any other
  // non-regular file, and a symbolic link is not followed.
  Fd fd(Sys().open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC, 0));
  if (fd.get() < 0) return errno == ELOOP || errno == ENXIO ? EBADMSG : LastError();
  struct stat st {};
  errno = 0;
  if (Sys().fstat(fd.get(), &st) != 0) return LastError();
  if (!S_ISREG(st.st_mode) || st.st_size > kMaxRecordBytes) return EBADMSG;
  std::string text(static_cast<std::size_t>(kMaxRecordBytes) + 1, '\0');
  std::size_t used = 0;
  for (;;) {
    errno = 0;
    const ssize_t n = Sys().read(fd.get(), &text[used], text.size() - used);
    if (n < 0) {
      if (errno == EINTR) continue;
      return LastError();
    }
    if (n == 0) break;
    used += static_cast<std::size_t>(n);
    if (used == text.size()) return EBADMSG;
  }
  text.resize(used);
  return ParseChangeRecord(text, steps) ? 0 : EBADMSG;
}

bool PendingChangeNames(const std::string& dir, const std::string& temporary) {
  std::vector<ChangeStep> steps;
  const int rc = ReadChangeRecord(dir, steps);
  // A record that cannot be read may still name it: keep the temporary.
  if (rc == ENOENT) return false;
  if (rc != 0) return true;
  for (const ChangeStep& step : steps)
    if (!step.bRemove && step.temporary == temporary) return true;
  return false;
}

}  // namespace port
