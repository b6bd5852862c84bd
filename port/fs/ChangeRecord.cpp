#include "port/fs/ChangeRecord.h"

#include <errno.h>
#include <unistd.h>

#include <sstream>

#include "port/fs/SysCalls.h"
#include "port/fs/Temporary.h"
#include "port/fs/WholeFile.h"

namespace port {

namespace {

// A record names a handful of files; anything larger is not one of ours.
constexpr unsigned long long kMaxRecordBytes = 64 * 1024;

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
  // Never blocks: a FIFO put in its place is refused like any other
  // non-regular file, and a symbolic link is not followed.
  ByteBuffer bytes;
  const ReadResult read = ReadWholeFile(dir + "/" + kChangeRecordName, O_NOFOLLOW, kMaxRecordBytes, bytes);
  switch (read.step) {
    case ReadStep::Done: break;
    case ReadStep::Open: return read.code == ELOOP || read.code == ENXIO ? EBADMSG : read.code;
    case ReadStep::NotRegular:
    case ReadStep::TooLarge: return EBADMSG;
    default: return read.code;
  }
  return ParseChangeRecord(std::string(bytes.data(), bytes.size()), steps) ? 0 : EBADMSG;
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
