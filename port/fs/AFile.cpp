#include "port/fs/AFile.h"

#include <errno.h>
#include <unistd.h>

#include <climits>
#include <string>

#include "port/fs/SafeWrite.h"
#include "port/fs/SysCalls.h"
#include "port/fs/Temporary.h"
#include "port/fs/WholeFile.h"

namespace {

// Reads a whole regular file, never waiting on a FIFO; its permission bits
// go to mode. False with errno set when it cannot be read.
bool ReadRegularFile(const std::string& path, port::ByteBuffer& bytes, mode_t& mode) {
  const port::ReadResult read = port::ReadWholeFile(path, O_NOCTTY, ULLONG_MAX, bytes);
  if (read.step != port::ReadStep::Done) {
    errno = read.code;
    return false;
  }
  mode = read.mode;
  return true;
}

}  // namespace

bool AFile::exists(const AString& path) {
  // access follows a symbolic link: a dangling one names no file, so a site
  // list behind it is "missing", not "unreadable".
  return port::Sys().access(ACharString(path).c_str(), F_OK) == 0;
}

bool AFile::read(const AString& path, ABuffer& contents) {
  port::ByteBuffer bytes;
  mode_t mode = 0;
  if (!ReadRegularFile(ACharString(path), bytes, mode)) return false;
  contents.assign(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
  return true;
}

bool AFile::write(const AString& path, const unsigned char* data, std::size_t size, mode_t newFileMode) {
  const int rc = port::ReplaceFileContents(ACharString(path), data, size, newFileMode);
  if (rc != 0) errno = rc;
  return rc == 0;
}

bool AFile::writeWithMode(const AString& path, const unsigned char* data, std::size_t size, mode_t mode) {
  const int rc = port::ReplaceFileContents(ACharString(path), data, size, mode, port::ModeChoice::Exact);
  if (rc != 0) errno = rc;
  return rc == 0;
}

bool AFile::size(const AString& path, unsigned long long& bytes) {
  struct stat st {};
  if (port::Sys().stat(ACharString(path).c_str(), &st) != 0) return false;
  bytes = static_cast<unsigned long long>(st.st_size);
  return true;
}

bool AFile::remove(const AString& path) {
  return port::Sys().unlink(ACharString(path).c_str()) == 0 || errno == ENOENT;
}

bool AFile::copy(const AString& from, const AString& to) {
  port::ByteBuffer bytes;
  mode_t mode = 0;
  if (!ReadRegularFile(ACharString(from), bytes, mode)) return false;
  // A new copy is no more readable than its source (key files are 0600).
  const int rc = port::ReplaceFileContents(ACharString(to), bytes.data(), bytes.size(), mode & 0777);
  if (rc != 0) errno = rc;
  return rc == 0;
}

bool AFile::isWritable(const AString& path, bool& writable) {
  writable = false;
  const ACharString p(path);
  struct stat st {};
  if (port::Sys().stat(p.c_str(), &st) != 0) {
    if (errno != ENOENT) return false;
    writable = true;
    return true;
  }
  // Root passes access() on any file; honour an administrator's read-only
  // mark. access() still answers for root on a read-only file system.
  if (geteuid() == 0 && (st.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0) return true;
  if (port::Sys().access(p.c_str(), W_OK) == 0) {
    writable = true;
    return true;
  }
  // These are answers ("no"), not failures of the question.
  return errno == EACCES || errno == EPERM || errno == EROFS || errno == ETXTBSY;
}

bool AFiler::createDirectories(const AString& dir) {
  const ACharString path(dir);
  if (path.empty()) {
    errno = ENOENT;
    return false;
  }
  struct stat st {};
  if (port::Sys().stat(path.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode)) return true;
    errno = ENOTDIR;
    return false;
  }
  // Create each prefix in turn; one that exists must be a directory (another
  // process may be creating the same tree at the same moment).
  std::string::size_type pos = 0;
  while (pos != std::string::npos) {
    pos = path.find('/', pos + 1);
    const std::string prefix = path.substr(0, pos);
    if (prefix.empty() || prefix.back() == '/') continue;
    if (port::Sys().mkdir(prefix.c_str(), 0755) == 0) {
      // Durable before anything is written into it.
      std::string parent;
      std::string name;
      port::SplitTarget(prefix, parent, name);
      if (int err = port::SyncDirectory(parent)) {
        errno = err;
        return false;
      }
      continue;
    }
    if (errno != EEXIST) return false;
    if (port::Sys().stat(prefix.c_str(), &st) != 0) return false;
    if (!S_ISDIR(st.st_mode)) {
      errno = ENOTDIR;
      return false;
    }
  }
  return true;
}

AString joinPath(const AString& dir, const AString& name) {
  if (dir.empty()) return name;
  std::wstring::size_type skip = 0;
  while (skip < name.size() && name[skip] == L'/') ++skip;
  AString out(dir);
  if (out.back() != L'/') out.push_back(L'/');
  out.append(name, skip, std::wstring::npos);
  return out;
}

void splitPath(const AString& path, AString& dir, AString& name) {
  const std::wstring::size_type slash = path.rfind(L'/');
  if (slash == std::wstring::npos) {
    dir = AString();
    name = path;
    return;
  }
  AString d(path.substr(0, slash));
  // "a//c.xml" is "a" and "c.xml"; only the root keeps its slash.
  while (d.size() > 1 && d.back() == L'/') d.pop_back();
  if (d.empty()) d = AString(L"/");
  const AString n(path.substr(slash + 1));
  dir = d;
  name = n;
}
