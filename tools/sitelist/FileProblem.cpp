#include "FileProblem.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>

namespace sitelist {

std::string ReasonOfError(int error) {
  switch (error) {
    case ENOENT: return "no such file";
    case EACCES: return "permission denied";
    case ELOOP: return "symbolic link loop";
    default: {
      std::string text = std::strerror(error);
      if (!text.empty()) text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
      return text;
    }
  }
}

std::string UnreadableReason(const std::string& path) {
  struct stat link {};
  if (lstat(path.c_str(), &link) != 0) return ReasonOfError(errno);
  struct stat target {};
  if (stat(path.c_str(), &target) != 0) {
    if (errno == ENOENT && S_ISLNK(link.st_mode)) return "no such file (broken symbolic link)";
    return ReasonOfError(errno);
  }
  if (!S_ISREG(target.st_mode)) return "not a regular file";
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return ReasonOfError(errno);
  close(fd);
  return "";
}

}  // namespace sitelist
