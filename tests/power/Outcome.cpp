#include "power/Outcome.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <sstream>

#include "port/crypto/CryptShim.h"
#include "stress/Workload.h"
#include "support/TestSupport.h"

namespace powertest {

using testsupport::ReadFile;

namespace {

// The password a cipher text of the text form decrypts to.
std::string Decrypt(const std::string& cipher) {
  IEncryption* object = CryptShim::instance().create_encryption_object(ENCRYPTION_TEXT);
  if (!object) return "<no key>";
  AString clear;
  const bool ok = object->decrypt(AString(cipher), clear);
  CryptShim::instance().destroy_encryption_object(object);
  return ok ? testsupport::Narrow(clear) : "<undecryptable>";
}

// The local version a writer stamps with the time of the write, when it is
// given none, made the same in every document.
std::string WithoutTimeStamp(const std::string& bytes) {
  static const std::string marker = "LocalVersion=\"";
  const std::string::size_type at = bytes.find(marker);
  if (at == std::string::npos) return bytes;
  const std::string::size_type end = bytes.find('"', at + marker.size());
  if (end == std::string::npos) return bytes;
  return bytes.substr(0, at + marker.size()) + "(time)" + bytes.substr(end);
}

// A document with every cipher text replaced by its password, and its
// local version by "(time)".
std::string Meaning(const std::string& document) {
  const std::string bytes = WithoutTimeStamp(document);
  static const std::string marker = "Encrypted=\"1\">";
  std::string out;
  std::string::size_type from = 0;
  for (;;) {
    const std::string::size_type at = bytes.find(marker, from);
    if (at == std::string::npos) break;
    const std::string::size_type start = at + marker.size();
    const std::string::size_type end = bytes.find('<', start);
    if (end == std::string::npos) break;
    out.append(bytes, from, start - from);
    if (end > start) out += "[" + Decrypt(bytes.substr(start, end - start)) + "]";
    from = end;
  }
  out.append(bytes, from, std::string::npos);
  return out;
}

}  // namespace

// Length-prefixed fields of the children's reports.
void Put(std::string& out, const std::string& field) { out += std::to_string(field.size()) + ":" + field; }

void Put(std::string& out, long value) { Put(out, std::to_string(value)); }

bool Take(const std::string& in, std::size_t& pos, std::string& field) {
  const std::size_t colon = in.find(':', pos);
  if (colon == std::string::npos) return false;
  const std::size_t size = std::stoul(in.substr(pos, colon - pos));
  if (in.size() - colon - 1 < size) return false;
  field = in.substr(colon + 1, size);
  pos = colon + 1 + size;
  return true;
}

bool Take(const std::string& in, std::size_t& pos, long& value) {
  std::string field;
  if (!Take(in, pos, field)) return false;
  value = std::stol(field);
  return true;
}

void WriteReport(const std::string& path, const std::string& bytes) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) _exit(90);
  if (std::fwrite(bytes.data(), 1, bytes.size(), f) != bytes.size()) _exit(91);
  if (std::fclose(f) != 0) _exit(92);
}

// Runs body in a forked child, which writes its report; true when the child
// ended normally with 0.
bool InChild(const std::function<int()>& body) {
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) _exit(body());
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid) return false;
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::vector<FileState> States(const Operation& op, const Layout& layout) {
  std::vector<FileState> states;
  for (const std::string& target : op.targets) {
    const std::string path = layout.root + "/" + target;
    FileState s;
    struct stat st {};
    if (lstat(path.c_str(), &st) == 0) {
      s.bExists = true;
      s.mode = st.st_mode & 07777;
      s.uid = st.st_uid;
      s.gid = st.st_gid;
      const std::string bytes = ReadFile(path);
      const bool document = target.size() > 4 && target.compare(target.size() - 4, 4, ".xml") == 0;
      s.bParses = document && workload::DocumentParses(bytes);
      s.meaning = document ? Meaning(bytes) : bytes;
    }
    states.push_back(s);
  }
  return states;
}

void PutStates(std::string& out, const std::vector<FileState>& states) {
  Put(out, static_cast<long>(states.size()));
  for (const FileState& s : states) {
    Put(out, s.bExists);
    Put(out, s.meaning);
    Put(out, s.bParses);
    Put(out, static_cast<long>(s.mode));
    Put(out, static_cast<long>(s.uid));
    Put(out, static_cast<long>(s.gid));
  }
}

bool TakeStates(const std::string& in, std::size_t& pos, std::vector<FileState>& states) {
  long count = 0;
  if (!Take(in, pos, count)) return false;
  states.assign(static_cast<std::size_t>(count), FileState());
  for (FileState& s : states) {
    long exists = 0, parses = 0, mode = 0, uid = 0, gid = 0;
    if (!Take(in, pos, exists) || !Take(in, pos, s.meaning) || !Take(in, pos, parses) || !Take(in, pos, mode) ||
        !Take(in, pos, uid) || !Take(in, pos, gid))
      return false;
    s.bExists = exists != 0;
    s.bParses = parses != 0;
    s.mode = static_cast<mode_t>(mode);
    s.uid = static_cast<uid_t>(uid);
    s.gid = static_cast<gid_t>(gid);
  }
  return true;
}

// Temporaries and change records in the directories of the targets.
std::vector<std::string> Leftovers(const Operation& op, const Layout& layout) {
  std::vector<std::string> found;
  std::vector<std::string> dirs;
  for (const std::string& target : op.targets) {
    const std::string dir = std::filesystem::path(layout.root + "/" + target).parent_path().string();
    if (std::find(dirs.begin(), dirs.end(), dir) == dirs.end()) dirs.push_back(dir);
  }
  for (const std::string& dir : dirs)
    for (const std::string& name : testsupport::ListDir(dir))
      if (name.find(".tmp.") != std::string::npos || name == ".pending-change") found.push_back(dir + "/" + name);
  return found;
}

std::string Describe(const FileState& s) {
  if (!s.bExists) return "absent";
  std::ostringstream out;
  out << std::oct << "mode " << s.mode << std::dec << ", owner " << s.uid << ":" << s.gid << ", "
      << s.meaning.size() << " bytes" << (s.bParses ? ", parses" : "");
  return out.str();
}

// Where the contents of two states part, with what each holds there.
std::string Difference(const FileState& got, const FileState& want) {
  const std::string& a = got.meaning;
  const std::string& b = want.meaning;
  std::size_t at = 0;
  while (at < a.size() && at < b.size() && a[at] == b[at]) ++at;
  if (at == a.size() && at == b.size()) return "";
  const std::size_t from = at > 40 ? at - 40 : 0;
  return " (differs at byte " + std::to_string(at) + ": \"" + a.substr(from, 100) + "\" instead of \"" +
         b.substr(from, 100) + "\")";
}

}  // namespace powertest
