#include "power/VolatileDisk.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <utility>

namespace powertest {

namespace {

// A write of bytes at offset, or (bTruncate) a new size of offset.
struct DataChange {
  bool bTruncate = false;
  off_t offset = 0;
  std::string bytes;
};

// Changes of one directory made by one call, kept or lost together.
using DirChange = std::vector<std::pair<std::string, int>>;  // name, node or -1 (removed)

struct Meta {
  mode_t mode = 0;
  uid_t uid = 0;
  gid_t gid = 0;
};

void Apply(std::string& data, const DataChange& change) {
  if (change.bTruncate) {
    data.resize(static_cast<std::size_t>(change.offset), '\0');
    return;
  }
  const std::size_t end = static_cast<std::size_t>(change.offset) + change.bytes.size();
  if (data.size() < end) data.resize(end, '\0');
  data.replace(static_cast<std::size_t>(change.offset), change.bytes.size(), change.bytes);
}

void Apply(std::map<std::string, int>& entries, const DirChange& change) {
  for (const auto& [name, node] : change) {
    if (node < 0)
      entries.erase(name);
    else
      entries[name] = node;
  }
}

// The absolute path without empty, "." and ".." components.
std::string Normalize(const std::string& path) {
  std::vector<std::string> parts;
  std::stringstream in(path);
  std::string part;
  while (std::getline(in, part, '/')) {
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      if (!parts.empty()) parts.pop_back();
      continue;
    }
    parts.push_back(part);
  }
  std::string out;
  for (const std::string& p : parts) out += "/" + p;
  return out.empty() ? "/" : out;
}

bool Fail(int err) {
  errno = err;
  return false;
}

VolatileDisk* g_disk = nullptr;

port::SysCalls Table() {
  port::SysCalls t = port::RealSysCalls();
  t.open = [](const char* p, int f, mode_t m) { return g_disk->open(p, f, m); };
  t.close = [](int fd) { return g_disk->close(fd); };
  t.read = [](int fd, void* b, size_t n) { return g_disk->read(fd, b, n); };
  t.write = [](int fd, const void* b, size_t n) { return g_disk->write(fd, b, n); };
  t.fsync = [](int fd) { return g_disk->fsync(fd); };
  t.fstat = [](int fd, struct stat* st) { return g_disk->fstat(fd, st); };
  t.stat = [](const char* p, struct stat* st) { return g_disk->stat(p, st); };
  // Nothing in the model is a symbolic link.
  t.lstat = [](const char* p, struct stat* st) { return g_disk->stat(p, st); };
  t.fchmod = [](int fd, mode_t m) { return g_disk->fchmod(fd, m); };
  t.fchown = [](int fd, uid_t u, gid_t g) { return g_disk->fchown(fd, u, g); };
  t.rename = [](const char* a, const char* b) { return g_disk->rename(a, b, false); };
  t.unlink = [](const char* p) { return g_disk->unlink(p); };
  t.mkdir = [](const char* p, mode_t m) { return g_disk->mkdir(p, m); };
  t.access = [](const char* p, int m) { return g_disk->access(p, m); };
  t.fcntlLock = [](int fd, int cmd, struct flock* l) { return g_disk->fcntlLock(fd, cmd, l); };
  t.opendir = [](const char* p) { return g_disk->opendir(p); };
  t.readdir = [](DIR* d) { return g_disk->readdir(d); };
  t.closedir = [](DIR* d) { return g_disk->closedir(d); };
  t.link = [](const char* a, const char* b) { return g_disk->link(a, b); };
  t.renameNoReplace = [](const char* a, const char* b) { return g_disk->rename(a, b, true); };
  t.getrandom = [](void* b, size_t n, unsigned f) -> ssize_t {
    if (!g_disk->step("getrandom", nullptr)) return -1;
    return port::RealSysCalls().getrandom(b, n, f);
  };
  return t;
}

}  // namespace

struct VolatileDisk::Node {
  bool bDirectory = false;
  Meta meta, durableMeta;
  std::string data, durableData;
  std::vector<DataChange> pendingData;
  std::map<std::string, int> entries, durableEntries;
  std::vector<DirChange> pendingEntries;
  int links = 0;
  std::uint64_t changed = 0;
};

struct VolatileDisk::OpenFile {
  int node = -1;
  int flags = 0;
  off_t offset = 0;
  short lock = F_UNLCK;
};

struct VolatileDisk::Listing {
  std::vector<std::string> names;
  std::size_t next = 0;
  struct dirent entry {};
};

VolatileDisk::VolatileDisk(std::string root, const Image& image) : m_root(Normalize(root)) {
  m_umask = ::umask(022);
  ::umask(m_umask);
  struct stat st {};
  ::stat(m_root.c_str(), &st);
  const int top = newNode(true, st.st_mode & 07777);
  m_nodes[top]->links = 1;
  std::map<std::string, int> byPath{{"", top}};
  for (const Entry& e : image) {
    const std::string::size_type slash = e.path.rfind('/');
    const std::string parent = slash == std::string::npos ? "" : e.path.substr(0, slash);
    const std::string name = slash == std::string::npos ? e.path : e.path.substr(slash + 1);
    const int node = newNode(e.bDirectory, e.mode);
    Node& n = *m_nodes[node];
    n.meta = n.durableMeta = Meta{e.mode, e.uid, e.gid};
    n.data = n.durableData = e.data;
    Node& dir = *m_nodes[byPath.at(parent)];
    dir.entries[name] = dir.durableEntries[name] = node;
    ++n.links;
    byPath[e.path] = node;
  }
}

VolatileDisk::~VolatileDisk() {
  m_override.reset();
  if (g_disk == this) g_disk = nullptr;
}

void VolatileDisk::install() {
  g_disk = this;
  m_override = std::make_unique<port::ScopedSysCallOverride>(Table());
}

bool VolatileDisk::step(const char* call, const char* argument) {
  ++m_calls;
  if (m_bTrace) std::fprintf(stderr, "%ld %s %s\n", m_calls, call, argument ? argument : "");
  if (m_cutAt > 0 && m_calls >= m_cutAt) m_bPowerLost = true;
  return m_bPowerLost ? Fail(EIO) : true;
}

bool VolatileDisk::underRoot(const std::string& path) const {
  const std::string p = Normalize(path);
  return p == m_root || p.compare(0, m_root.size() + 1, m_root + "/") == 0;
}

int VolatileDisk::lookup(const std::string& path) const {
  const std::string p = Normalize(path);
  if (!underRoot(p)) return errno = EXDEV, -1;
  int node = 0;
  std::stringstream in(p.substr(m_root.size()));
  std::string part;
  while (std::getline(in, part, '/')) {
    if (part.empty()) continue;
    const Node& dir = *m_nodes[node];
    if (!dir.bDirectory) return errno = ENOTDIR, -1;
    auto it = dir.entries.find(part);
    if (it == dir.entries.end()) return errno = ENOENT, -1;
    node = it->second;
  }
  return node;
}

bool VolatileDisk::parentOf(const std::string& path, int& parent, std::string& name) const {
  const std::string p = Normalize(path);
  if (!underRoot(p) || p == m_root) return Fail(EXDEV);
  const std::string::size_type slash = p.rfind('/');
  parent = lookup(p.substr(0, slash));
  if (parent < 0) return false;
  if (!m_nodes[parent]->bDirectory) return Fail(ENOTDIR);
  name = p.substr(slash + 1);
  return true;
}

int VolatileDisk::newNode(bool bDirectory, mode_t mode) {
  auto node = std::make_unique<Node>();
  node->bDirectory = bDirectory;
  node->meta = Meta{static_cast<mode_t>(mode & 07777), geteuid(), getegid()};
  // The inode itself is created with the entry that names it.
  node->durableMeta = node->meta;
  node->changed = ++m_clock;
  m_nodes.push_back(std::move(node));
  return static_cast<int>(m_nodes.size() - 1);
}

void VolatileDisk::setEntry(int dir, const std::string& name, int node) {
  Node& d = *m_nodes[dir];
  auto it = d.entries.find(name);
  if (it != d.entries.end()) --m_nodes[it->second]->links;
  if (node >= 0) {
    d.entries[name] = node;
    ++m_nodes[node]->links;
  } else {
    d.entries.erase(name);
  }
  d.pendingEntries.push_back({{name, node}});
  d.changed = ++m_clock;
}

VolatileDisk::OpenFile* VolatileDisk::file(int fd) {
  auto it = m_files.find(fd);
  return it == m_files.end() ? nullptr : it->second.get();
}

void VolatileDisk::fillStat(int node, struct stat* st) const {
  const Node& n = *m_nodes[node];
  *st = {};
  st->st_dev = 0x7e57;
  st->st_ino = static_cast<ino_t>(node + 100);
  st->st_mode = (n.bDirectory ? S_IFDIR : S_IFREG) | n.meta.mode;
  st->st_nlink = static_cast<nlink_t>(n.bDirectory ? 2 : n.links);
  st->st_uid = n.meta.uid;
  st->st_gid = n.meta.gid;
  st->st_size = static_cast<off_t>(n.bDirectory ? 4096 : n.data.size());
  st->st_blksize = 4096;
  st->st_blocks = (st->st_size + 511) / 512;
  st->st_mtim.tv_sec = static_cast<time_t>(1700000000 + n.changed / 1000000);
  st->st_mtim.tv_nsec = static_cast<long>(n.changed % 1000000) * 1000;
  st->st_ctim = st->st_mtim;
}

int VolatileDisk::open(const char* path, int flags, mode_t mode) {
  if (!step(__func__, path)) return -1;
  const bool writes = (flags & O_ACCMODE) != O_RDONLY;
  if (!underRoot(path)) {
    if (writes || (flags & (O_CREAT | O_TRUNC))) return errno = EACCES, -1;
    return port::RealSysCalls().open(path, flags, mode);
  }
  int node = 0;
  if (Normalize(path) != m_root) {
    int parent = -1;
    std::string name;
    if (!parentOf(path, parent, name)) return -1;
    auto it = m_nodes[parent]->entries.find(name);
    node = it == m_nodes[parent]->entries.end() ? -1 : it->second;
    if (node < 0) {
      if (!(flags & O_CREAT)) return errno = ENOENT, -1;
      node = newNode(false, mode & ~m_umask);
      setEntry(parent, name, node);
    } else if ((flags & O_CREAT) && (flags & O_EXCL)) {
      return errno = EEXIST, -1;
    }
  }
  Node& n = *m_nodes[node];
  if ((flags & O_DIRECTORY) && !n.bDirectory) return errno = ENOTDIR, -1;
  if (n.bDirectory && writes) return errno = EISDIR, -1;
  if ((flags & O_TRUNC) && writes && !n.data.empty()) {
    n.data.clear();
    n.pendingData.push_back(DataChange{true, 0, {}});
    n.changed = ++m_clock;
  }
  auto f = std::make_unique<OpenFile>();
  f->node = node;
  f->flags = flags;
  const int fd = m_nextFd++;
  m_files[fd] = std::move(f);
  return fd;
}

int VolatileDisk::close(int fd) {
  const bool on = step(__func__, std::to_string(fd).c_str());
  if (fd < 10000) return on ? port::RealSysCalls().close(fd) : -1;
  if (m_files.erase(fd) == 0) return errno = EBADF, -1;
  return on ? 0 : -1;
}

ssize_t VolatileDisk::read(int fd, void* buf, size_t n) {
  if (!step(__func__, std::to_string(fd).c_str())) return -1;
  if (fd < 10000) return port::RealSysCalls().read(fd, buf, n);
  OpenFile* f = file(fd);
  if (!f || (f->flags & O_ACCMODE) == O_WRONLY) return errno = EBADF, -1;
  const Node& node = *m_nodes[f->node];
  if (node.bDirectory) return errno = EISDIR, -1;
  if (static_cast<std::size_t>(f->offset) >= node.data.size()) return 0;
  const std::size_t count = std::min(n, node.data.size() - static_cast<std::size_t>(f->offset));
  std::memcpy(buf, node.data.data() + f->offset, count);
  f->offset += static_cast<off_t>(count);
  return static_cast<ssize_t>(count);
}

ssize_t VolatileDisk::write(int fd, const void* buf, size_t n) {
  if (!step(__func__, std::to_string(fd).c_str())) return -1;
  if (fd < 10000) return errno = EBADF, -1;
  OpenFile* f = file(fd);
  if (!f || (f->flags & O_ACCMODE) == O_RDONLY) return errno = EBADF, -1;
  Node& node = *m_nodes[f->node];
  if (f->flags & O_APPEND) f->offset = static_cast<off_t>(node.data.size());
  DataChange change{false, f->offset, std::string(static_cast<const char*>(buf), n)};
  Apply(node.data, change);
  node.pendingData.push_back(std::move(change));
  node.changed = ++m_clock;
  f->offset += static_cast<off_t>(n);
  return static_cast<ssize_t>(n);
}

int VolatileDisk::fsync(int fd) {
  if (!step(__func__, std::to_string(fd).c_str())) return -1;
  OpenFile* f = file(fd);
  if (!f) return errno = EBADF, -1;
  Node& node = *m_nodes[f->node];
  node.durableMeta = node.meta;
  node.durableData = node.data;
  node.pendingData.clear();
  node.durableEntries = node.entries;
  node.pendingEntries.clear();
  return 0;
}

int VolatileDisk::fstat(int fd, struct stat* st) {
  if (!step(__func__, std::to_string(fd).c_str())) return -1;
  if (fd < 10000) return port::RealSysCalls().fstat(fd, st);
  OpenFile* f = file(fd);
  if (!f) return errno = EBADF, -1;
  fillStat(f->node, st);
  return 0;
}

int VolatileDisk::stat(const char* path, struct stat* st) {
  if (!step(__func__, path)) return -1;
  if (!underRoot(path)) return port::RealSysCalls().stat(path, st);
  const int node = lookup(path);
  if (node < 0) return -1;
  fillStat(node, st);
  return 0;
}

int VolatileDisk::fchmod(int fd, mode_t mode) {
  if (!step(__func__, std::to_string(fd).c_str())) return -1;
  OpenFile* f = file(fd);
  if (!f) return errno = EBADF, -1;
  m_nodes[f->node]->meta.mode = mode & 07777;
  return 0;
}

int VolatileDisk::fchown(int fd, uid_t uid, gid_t gid) {
  if (!step(__func__, std::to_string(fd).c_str())) return -1;
  OpenFile* f = file(fd);
  if (!f) return errno = EBADF, -1;
  Meta& meta = m_nodes[f->node]->meta;
  if (uid != static_cast<uid_t>(-1)) meta.uid = uid;
  if (gid != static_cast<gid_t>(-1)) meta.gid = gid;
  return 0;
}

int VolatileDisk::rename(const char* from, const char* to, bool bNoReplace) {
  if (!step(__func__, from)) return -1;
  int fromDir = -1, toDir = -1;
  std::string fromName, toName;
  if (!parentOf(from, fromDir, fromName) || !parentOf(to, toDir, toName)) return -1;
  auto src = m_nodes[fromDir]->entries.find(fromName);
  if (src == m_nodes[fromDir]->entries.end()) return errno = ENOENT, -1;
  const int node = src->second;
  auto dst = m_nodes[toDir]->entries.find(toName);
  if (dst != m_nodes[toDir]->entries.end()) {
    if (bNoReplace) return errno = EEXIST, -1;
    if (dst->second == node) return 0;
    if (m_nodes[dst->second]->bDirectory != m_nodes[node]->bDirectory)
      return errno = m_nodes[node]->bDirectory ? ENOTDIR : EISDIR, -1;
  }
  if (fromDir == toDir) {
    // One change of the directory: both names or neither.
    setEntry(toDir, toName, node);
    setEntry(fromDir, fromName, -1);
    Node& dir = *m_nodes[toDir];
    DirChange both = dir.pendingEntries[dir.pendingEntries.size() - 2];
    both.push_back(dir.pendingEntries.back().front());
    dir.pendingEntries.resize(dir.pendingEntries.size() - 2);
    dir.pendingEntries.push_back(both);
    return 0;
  }
  setEntry(toDir, toName, node);
  setEntry(fromDir, fromName, -1);
  return 0;
}

int VolatileDisk::unlink(const char* path) {
  if (!step(__func__, path)) return -1;
  int dir = -1;
  std::string name;
  if (!parentOf(path, dir, name)) return errno == EXDEV ? (errno = EACCES, -1) : -1;
  auto it = m_nodes[dir]->entries.find(name);
  if (it == m_nodes[dir]->entries.end()) return errno = ENOENT, -1;
  if (m_nodes[it->second]->bDirectory) return errno = EISDIR, -1;
  setEntry(dir, name, -1);
  return 0;
}

int VolatileDisk::mkdir(const char* path, mode_t mode) {
  if (!step(__func__, path)) return -1;
  if (!underRoot(path) || Normalize(path) == m_root) {
    struct stat st {};
    return errno = port::RealSysCalls().stat(path, &st) == 0 ? EEXIST : EACCES, -1;
  }
  int dir = -1;
  std::string name;
  if (!parentOf(path, dir, name)) return -1;
  if (m_nodes[dir]->entries.count(name)) return errno = EEXIST, -1;
  const int node = newNode(true, mode & ~m_umask);
  setEntry(dir, name, node);
  return 0;
}

int VolatileDisk::access(const char* path, int mode) {
  if (!step(__func__, path)) return -1;
  if (!underRoot(path)) return port::RealSysCalls().access(path, mode);
  // The tests run as root: whatever exists may be read and written.
  return lookup(path) < 0 ? -1 : 0;
}

int VolatileDisk::fcntlLock(int fd, int cmd, struct flock* lock) {
  if (!step(__func__, std::to_string(fd).c_str())) return -1;
  OpenFile* f = file(fd);
  if (!f) return errno = EBADF, -1;
  if (lock->l_type == F_UNLCK) {
    f->lock = F_UNLCK;
    return 0;
  }
  short conflict = F_UNLCK;
  for (const auto& [otherFd, other] : m_files) {
    if (other.get() == f || other->node != f->node || other->lock == F_UNLCK) continue;
    if (lock->l_type == F_WRLCK || other->lock == F_WRLCK) conflict = other->lock;
  }
  if (cmd == F_OFD_GETLK) {
    lock->l_type = conflict;
    return 0;
  }
  // One thread: waiting for a lock held here would wait for ever.
  if (conflict != F_UNLCK) return errno = cmd == F_OFD_SETLKW ? EDEADLK : EAGAIN, -1;
  f->lock = lock->l_type;
  return 0;
}

DIR* VolatileDisk::opendir(const char* path) {
  if (!step(__func__, path)) return nullptr;
  if (!underRoot(path)) return errno = EACCES, nullptr;
  const int node = lookup(path);
  if (node < 0) return nullptr;
  if (!m_nodes[node]->bDirectory) return errno = ENOTDIR, nullptr;
  auto listing = std::make_unique<Listing>();
  listing->names = {".", ".."};
  for (const auto& entry : m_nodes[node]->entries) listing->names.push_back(entry.first);
  m_listings.push_back(std::move(listing));
  return reinterpret_cast<DIR*>(m_listings.back().get());
}

struct dirent* VolatileDisk::readdir(DIR* dir) {
  if (!step(__func__, nullptr)) return nullptr;
  Listing* listing = reinterpret_cast<Listing*>(dir);
  if (listing->next >= listing->names.size()) return nullptr;
  const std::string& name = listing->names[listing->next++];
  listing->entry = {};
  listing->entry.d_ino = listing->next;
  std::snprintf(listing->entry.d_name, sizeof listing->entry.d_name, "%s", name.c_str());
  return &listing->entry;
}

int VolatileDisk::closedir(DIR* dir) {
  const bool on = step(__func__, nullptr);
  Listing* listing = reinterpret_cast<Listing*>(dir);
  m_listings.erase(std::remove_if(m_listings.begin(), m_listings.end(),
                                  [listing](const std::unique_ptr<Listing>& l) { return l.get() == listing; }),
                   m_listings.end());
  return on ? 0 : -1;
}

int VolatileDisk::link(const char* from, const char* to) {
  if (!step(__func__, from)) return -1;
  const int node = lookup(from);
  if (node < 0) return -1;
  if (m_nodes[node]->bDirectory) return errno = EPERM, -1;
  int dir = -1;
  std::string name;
  if (!parentOf(to, dir, name)) return -1;
  if (m_nodes[dir]->entries.count(name)) return errno = EEXIST, -1;
  setEntry(dir, name, node);
  return 0;
}

Image VolatileDisk::visible() const { return collect(false, nullptr); }

Image VolatileDisk::afterCut(std::mt19937* rng) const { return collect(true, rng); }

Image VolatileDisk::collect(bool bDurable, std::mt19937* rng) const {
  auto coin = [rng]() { return ((*rng)() & 1u) != 0; };
  Image image;
  std::vector<std::pair<int, std::string>> todo{{0, ""}};
  while (!todo.empty()) {
    const auto [dirNode, prefix] = todo.back();
    todo.pop_back();
    const Node& dir = *m_nodes[dirNode];
    std::map<std::string, int> entries = bDurable ? dir.durableEntries : dir.entries;
    if (bDurable && rng)
      for (const DirChange& change : dir.pendingEntries)
        if (coin()) Apply(entries, change);
    std::vector<std::pair<int, std::string>> subdirs;
    for (const auto& [name, node] : entries) {
      const Node& n = *m_nodes[node];
      Entry e;
      e.path = prefix.empty() ? name : prefix + "/" + name;
      e.bDirectory = n.bDirectory;
      Meta meta = bDurable ? n.durableMeta : n.meta;
      if (bDurable && rng && coin()) meta = n.meta;
      e.mode = meta.mode;
      e.uid = meta.uid;
      e.gid = meta.gid;
      if (!n.bDirectory) {
        e.data = bDurable ? n.durableData : n.data;
        if (bDurable && rng)
          for (const DataChange& change : n.pendingData)
            if (coin()) Apply(e.data, change);
      } else {
        subdirs.emplace_back(node, e.path);
      }
      image.push_back(std::move(e));
    }
    for (auto it = subdirs.rbegin(); it != subdirs.rend(); ++it) todo.push_back(*it);
  }
  std::sort(image.begin(), image.end(), [](const Entry& a, const Entry& b) { return a.path < b.path; });
  return image;
}

Image ReadTree(const std::string& root) {
  namespace fs = std::filesystem;
  Image image;
  for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator(); ++it) {
    struct stat st {};
    if (::lstat(it->path().c_str(), &st) != 0) continue;
    if (!S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode)) continue;
    Entry e;
    e.path = fs::relative(it->path(), root).string();
    e.bDirectory = S_ISDIR(st.st_mode);
    e.mode = st.st_mode & 07777;
    e.uid = st.st_uid;
    e.gid = st.st_gid;
    if (!e.bDirectory) {
      std::FILE* f = std::fopen(it->path().c_str(), "rb");
      char buf[65536];
      std::size_t n = 0;
      while (f && (n = std::fread(buf, 1, sizeof buf, f)) > 0) e.data.append(buf, n);
      if (f) std::fclose(f);
    }
    image.push_back(std::move(e));
  }
  std::sort(image.begin(), image.end(), [](const Entry& a, const Entry& b) { return a.path < b.path; });
  return image;
}

void WriteTree(const std::string& root, const Image& image) {
  namespace fs = std::filesystem;
  for (const auto& child : fs::directory_iterator(root)) fs::remove_all(child.path());
  for (const Entry& e : image) {
    const std::string path = root + "/" + e.path;
    if (e.bDirectory) {
      ::mkdir(path.c_str(), 0700);
    } else {
      const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
      if (fd < 0) continue;
      std::size_t done = 0;
      while (done < e.data.size()) {
        const ssize_t n = ::write(fd, e.data.data() + done, e.data.size() - done);
        if (n <= 0) break;
        done += static_cast<std::size_t>(n);
      }
      ::close(fd);
    }
    if (::lchown(path.c_str(), e.uid, e.gid) != 0) std::perror(path.c_str());
    ::chmod(path.c_str(), e.mode);
  }
}

std::string Serialize(const Image& image) {
  std::string out;
  for (const Entry& e : image) {
    out += std::to_string(e.path.size()) + " " + std::to_string(e.bDirectory) + " " + std::to_string(e.mode) + " " +
           std::to_string(e.uid) + " " + std::to_string(e.gid) + " " + std::to_string(e.data.size()) + "\n";
    out += e.path;
    out += e.data;
  }
  return out;
}

bool Deserialize(const std::string& bytes, Image& image) {
  image.clear();
  std::size_t pos = 0;
  while (pos < bytes.size()) {
    const std::size_t eol = bytes.find('\n', pos);
    if (eol == std::string::npos) return false;
    std::istringstream header(bytes.substr(pos, eol - pos));
    std::size_t pathSize = 0, dataSize = 0;
    unsigned long mode = 0, uid = 0, gid = 0;
    int dir = 0;
    if (!(header >> pathSize >> dir >> mode >> uid >> gid >> dataSize)) return false;
    pos = eol + 1;
    if (bytes.size() - pos < pathSize + dataSize) return false;
    Entry e;
    e.path = bytes.substr(pos, pathSize);
    e.data = bytes.substr(pos + pathSize, dataSize);
    e.bDirectory = dir != 0;
    e.mode = static_cast<mode_t>(mode);
    e.uid = static_cast<uid_t>(uid);
    e.gid = static_cast<gid_t>(gid);
    pos += pathSize + dataSize;
    image.push_back(std::move(e));
  }
  return true;
}

}  // namespace powertest
