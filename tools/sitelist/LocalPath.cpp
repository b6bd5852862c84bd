#include "LocalPath.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace sitelist {
namespace {

Outcome Result(bool ok, const std::string& reason, const std::string& detail) { return {ok, reason, detail, {}, {}}; }

Outcome Unreadable(const std::string& what, int error) {
  return Result(false, error == ENOENT || error == ENOTDIR ? "no such path" : "not readable",
                what + ": " + std::strerror(error));
}

}  // namespace

Outcome CheckLocalPath(const std::string& path) {
  if (path.empty()) return Result(false, "no such path", "the site gives no path");
  struct stat st {};
  if (stat(path.c_str(), &st) != 0) return Unreadable(path, errno);
  if (S_ISDIR(st.st_mode)) {
    DIR* dir = opendir(path.c_str());
    if (!dir) return Unreadable(path, errno);
    errno = 0;
    const bool listed = readdir(dir) != nullptr || errno == 0;
    const int error = errno;
    closedir(dir);
    return listed ? Result(true, "", "a readable directory") : Unreadable(path, error);
  }
  if (!S_ISREG(st.st_mode)) return Result(false, "not readable", path + ": neither a directory nor a file");
  const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return Unreadable(path, errno);
  close(fd);
  return Result(true, "", "a readable file");
}

}  // namespace sitelist
