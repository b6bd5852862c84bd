// A file system in memory behind the port layer's system call table, that
// knows what a power cut would keep.
//
// Everything under one root directory lives in the model; the processes see
// every change at once, as on a real disk, but only what an fsync covered is
// durable:
//   - the data, mode and owner of a file since its last fsync are not;
//   - the entries of a directory (creations, renames, removals, new links,
//     new subdirectories) since that directory's last fsync are not.
// A rename within one directory is one change of it (journaled file systems
// keep it whole); a rename between two directories is a removal in one and a
// creation in the other, each durable with its own directory.
//
// A power cut at system call k: that call and every later one fail with EIO
// and change nothing. What is left afterwards is either the durable state
// alone, or the durable state with a random subset of the changes not yet
// durable (the kernel may have written some of them back), each kept or not
// independently, applied in their order.
//
// Paths outside the root are the real file system's: they may be looked at
// (stat, access, read-only opens) but never changed.
#ifndef VLM_TESTS_POWER_VOLATILEDISK_H
#define VLM_TESTS_POWER_VOLATILEDISK_H

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "port/fs/SysCalls.h"

namespace powertest {

// One file or directory of a tree; path is relative to the tree's root.
struct Entry {
  std::string path;
  bool bDirectory = false;
  mode_t mode = 0;
  uid_t uid = 0;
  gid_t gid = 0;
  std::string data;
  bool operator==(const Entry& o) const {
    return path == o.path && bDirectory == o.bDirectory && mode == o.mode && uid == o.uid && gid == o.gid &&
           data == o.data;
  }
};

// A whole tree, parents before their contents, sorted by path.
using Image = std::vector<Entry>;

// The real tree under root (root itself left out).
Image ReadTree(const std::string& root);
// Replaces everything under root by image, with its modes and owners.
void WriteTree(const std::string& root, const Image& image);
std::string Serialize(const Image& image);
bool Deserialize(const std::string& bytes, Image& image);

class VolatileDisk {
 public:
  // A disk holding image under root, all of it durable.
  VolatileDisk(std::string root, const Image& image);
  ~VolatileDisk();
  VolatileDisk(const VolatileDisk&) = delete;
  VolatileDisk& operator=(const VolatileDisk&) = delete;

  // Becomes the system call table of the process while the object lives.
  void install();
  // The power goes at system call number k, counted from 1 after install
  // (0: never).
  void cutAt(long k) { m_cutAt = k; }
  long calls() const { return m_calls; }
  // Numbers every call on stderr (to find one in a failing sequence).
  void trace(bool on) { m_bTrace = on; }
  bool powerLost() const { return m_bPowerLost; }

  // What the processes see now.
  Image visible() const;
  // What a power cut now leaves: rng null, the durable state alone; else
  // the durable state with a random subset of the rest.
  Image afterCut(std::mt19937* rng) const;

  // Implementation of the table's entries (public for the trampolines).
  struct Node;
  struct OpenFile;
  struct Listing;
  int open(const char* path, int flags, mode_t mode);
  int close(int fd);
  ssize_t read(int fd, void* buf, size_t n);
  ssize_t write(int fd, const void* buf, size_t n);
  int fsync(int fd);
  int fstat(int fd, struct stat* st);
  int stat(const char* path, struct stat* st);
  int fchmod(int fd, mode_t mode);
  int fchown(int fd, uid_t uid, gid_t gid);
  int rename(const char* from, const char* to, bool bNoReplace);
  int unlink(const char* path);
  int mkdir(const char* path, mode_t mode);
  int access(const char* path, int mode);
  int fcntlLock(int fd, int cmd, struct flock* lock);
  DIR* opendir(const char* path);
  struct dirent* readdir(DIR* dir);
  int closedir(DIR* dir);
  int link(const char* from, const char* to);
  // False when the power is gone (errno EIO): every entry asks first.
  bool step(const char* call, const char* argument);

 private:
  // The node of the parent directory of path and the last name; false with
  // errno when a component is missing or not a directory, or path is not
  // under the root (errno EXDEV).
  bool parentOf(const std::string& path, int& parent, std::string& name) const;
  // The node path names, or -1 with errno.
  int lookup(const std::string& path) const;
  bool underRoot(const std::string& path) const;
  int newNode(bool bDirectory, mode_t mode);
  void setEntry(int dir, const std::string& name, int node);
  void fillStat(int node, struct stat* st) const;
  OpenFile* file(int fd);
  Image collect(bool bDurable, std::mt19937* rng) const;

  std::string m_root;
  std::vector<std::unique_ptr<Node>> m_nodes;  // 0 is the root
  std::map<int, std::unique_ptr<OpenFile>> m_files;
  std::vector<std::unique_ptr<Listing>> m_listings;
  int m_nextFd = 10000;
  long m_calls = 0;
  long m_cutAt = 0;
  bool m_bPowerLost = false;
  bool m_bTrace = false;
  mode_t m_umask = 022;
  std::uint64_t m_clock = 1;
  std::unique_ptr<port::ScopedSysCallOverride> m_override;
};

}  // namespace powertest

#endif  // VLM_TESTS_POWER_VOLATILEDISK_H
