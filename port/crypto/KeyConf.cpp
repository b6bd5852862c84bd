// Key files of the encryption kinds: loading, first-use creation and the
// in-memory cache.
#include <errno.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <openssl/crypto.h>
#include <openssl/rand.h>

#include <array>
#include <chrono>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "port/config/IConfiguration.h"
#include "port/crypto/CryptShim.h"
#include "port/crypto/KeyCache.h"
#include "port/fs/SysCalls.h"
#include "port/fs/Temporary.h"
#include "port/fs/WholeFile.h"
#include "port/log/Log.h"

namespace {

const wchar_t kComponent[] = L"Crypto";

using KeyBytes = std::array<unsigned char, KeyConf::c_keySize>;

// Cached keys, wiped when dropped and at process exit.
struct KeyCache {
  std::mutex mutex;
  std::map<std::pair<std::string, int>, KeyBytes> keys;

  void wipe() {
    for (auto& entry : keys) OPENSSL_cleanse(entry.second.data(), entry.second.size());
    keys.clear();
  }
  ~KeyCache() { wipe(); }
};

KeyCache& Cache() {
  static KeyCache cache;
  return cache;
}

std::wstring ErrnoText(int err) { return AString(std::error_code(err, std::generic_category()).message()); }

void LogFailure(const std::string& what, const std::string& path, int err) {
  logError(kComponent, AString(what + " " + path) + L": " + ErrnoText(err));
}

using port::Fd;

// mkdir -p with mode 0700 for every directory it creates: keys are readable
// by their owner only, and so is the way to them.
bool MakeDirectories(const std::string& dir) {
  if (dir.empty()) {
    logError(kComponent, L"No key directory configured");
    return false;
  }
  std::size_t pos = 0;
  while (pos != std::string::npos) {
    pos = dir.find('/', pos + 1);
    const std::string prefix = dir.substr(0, pos);
    if (prefix.empty()) continue;
    if (port::Sys().mkdir(prefix.c_str(), 0700) == 0) {
      // The new directory's name made durable: a key that outlives a power
      // cut in a directory that does not would leave every password
      // encrypted with it undecryptable.
      const std::string::size_type slash = prefix.rfind('/');
      const std::string parent = slash == 0 ? "/" : prefix.substr(0, slash);
      if (int err = port::SyncDirectory(parent)) {
        LogFailure("Cannot make durable the key directory", prefix, err);
        return false;
      }
      continue;
    }
    if (errno == EEXIST) continue;
    // Some file systems report another error (EROFS, EACCES) for a directory
    // that exists already; that one is fine.
    const int err = errno;
    struct stat st;
    if (port::Sys().stat(prefix.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) continue;
    LogFailure("Cannot create key directory", prefix, err);
    return false;
  }
  struct stat st;
  if (port::Sys().stat(dir.c_str(), &st) != 0) {
    LogFailure("Cannot use key directory", dir, errno);
    return false;
  }
  if (!S_ISDIR(st.st_mode)) {
    LogFailure("Cannot use key directory", dir, ENOTDIR);
    return false;
  }
  return true;
}

enum class ReadResult { Ok, Missing, WrongSize, Error };

// Reads the key file; only a regular file of exactly c_keySize bytes is a key.
ReadResult ReadKeyFile(const std::string& path, KeyBytes& key) {
  Fd fd(port::Sys().open(path.c_str(), O_RDONLY | O_CLOEXEC, 0));
  if (fd.get() < 0) {
    if (errno == ENOENT) return ReadResult::Missing;
    LogFailure("Cannot open key file", path, errno);
    return ReadResult::Error;
  }
  struct stat st;
  if (port::Sys().fstat(fd.get(), &st) != 0) {
    LogFailure("Cannot inspect key file", path, errno);
    return ReadResult::Error;
  }
  if (!S_ISREG(st.st_mode)) {
    LogFailure("Cannot use key file", path, EINVAL);
    return ReadResult::Error;
  }
  // One byte more than a key, to tell a longer file from a key.
  unsigned char buf[KeyConf::c_keySize + 1];
  std::size_t total = 0;
  const int err = port::ReadFully(fd.get(), buf, sizeof(buf), total);
  if (err != 0) {
    OPENSSL_cleanse(buf, sizeof(buf));
    LogFailure("Cannot read key file", path, err);
    return ReadResult::Error;
  }
  const bool ok = total == KeyConf::c_keySize;
  if (ok) std::memcpy(key.data(), buf, key.size());
  OPENSSL_cleanse(buf, sizeof(buf));
  return ok ? ReadResult::Ok : ReadResult::WrongSize;
}

bool WriteAll(int fd, const unsigned char* data, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    ssize_t n = port::Sys().write(fd, data + done, size - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (n == 0) {
      errno = EIO;
      return false;
    }
    done += static_cast<std::size_t>(n);
  }
  return true;
}

std::string HexRandom() {
  unsigned char r[8];
  if (RAND_bytes(r, sizeof(r)) != 1) return std::to_string(static_cast<long>(getpid()));
  static const char kHex[] = "0123456789abcdef";
  std::string out;
  for (unsigned char b : r) {
    out.push_back(kHex[b >> 4]);
    out.push_back(kHex[b & 0x0F]);
  }
  return out;
}

enum class CreateResult { Created, Exists, Error };

// Creates the key file with fresh random bytes. The key is written completely
// under a private temporary name and then linked into place, so that no
// reader ever sees a partial key, and exactly one of several concurrent
// creators wins: the others get Exists and read the winner's key.
CreateResult CreateKeyFile(const std::string& dir, const std::string& path, int kind, KeyBytes& key) {
  const std::string temp = dir + "/.kind" + std::to_string(kind) + ".key." + std::to_string(static_cast<long>(getpid())) +
                           "." + HexRandom();
  Fd fd(port::Sys().open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (fd.get() < 0) {
    LogFailure("Cannot create key file", temp, errno);
    return CreateResult::Error;
  }
  KeyBytes fresh;
  const char* failed = nullptr;  // the step that failed
  int err = 0;
  // fchmod: the umask must not change the owner-only mode.
  if (port::Sys().fchmod(fd.get(), 0600) != 0) {
    failed = "Cannot set the mode of key file";
    err = errno;
  } else if (RAND_bytes(fresh.data(), static_cast<int>(fresh.size())) != 1) {
    failed = "Cannot generate the key of";
    err = EIO;
  } else if (!WriteAll(fd.get(), fresh.data(), fresh.size())) {
    failed = "Cannot write key file";
    err = errno;
  } else if (port::Sys().fsync(fd.get()) != 0) {
    failed = "Cannot sync key file";
    err = errno;
  }
  if (fd.close() != 0 && !failed) {
    failed = "Cannot close key file";
    err = errno;
  }
  if (failed) {
    OPENSSL_cleanse(fresh.data(), fresh.size());
    LogFailure(failed, temp, err);
    port::Sys().unlink(temp.c_str());
    return CreateResult::Error;
  }

  CreateResult result = CreateResult::Error;
  if (port::Sys().link(temp.c_str(), path.c_str()) == 0) {
    result = CreateResult::Created;
  } else if (errno == EEXIST) {
    result = CreateResult::Exists;
  } else if (errno == EPERM || errno == EOPNOTSUPP || errno == ENOSYS) {
    // File systems without hard links: an exclusive rename does the same.
    if (port::Sys().renameNoReplace(temp.c_str(), path.c_str()) == 0) {
      result = CreateResult::Created;
    } else if (errno == EEXIST) {
      result = CreateResult::Exists;
    } else {
      LogFailure("Cannot install key file", path, errno);
    }
  } else {
    LogFailure("Cannot install key file", path, errno);
  }
  port::Sys().unlink(temp.c_str());  // after a rename it is gone already
  if (result == CreateResult::Created) {
    // A failure here only weakens durability after a crash: no error.
    port::SyncDirectory(dir);
    key = fresh;
  }
  OPENSSL_cleanse(fresh.data(), fresh.size());
  return result;
}

bool LoadKey(const std::string& dir, int kind, KeyBytes& key) {
  const std::string path = dir + "/kind" + std::to_string(kind) + ".key";
  if (!MakeDirectories(dir)) return false;
  switch (ReadKeyFile(path, key)) {
    case ReadResult::Ok:
      return true;
    case ReadResult::Missing:
      break;
    case ReadResult::WrongSize:
      logError(kComponent, AString("Key file " + path + " has a wrong size; it is left as it is"));
      return false;
    case ReadResult::Error:
      return false;
  }
  switch (CreateKeyFile(dir, path, kind, key)) {
    case CreateResult::Created:
      logInfo(kComponent, AString("Created key file " + path));
      return true;
    case CreateResult::Exists:
      break;
    case CreateResult::Error:
      return false;
  }
  // Another process created the key first. It may be writing in place rather
  // than through a temporary name, so give a short file a moment to fill.
  for (int attempt = 0;; ++attempt) {
    ReadResult r = ReadKeyFile(path, key);
    if (r == ReadResult::Ok) return true;
    if (r == ReadResult::Error || attempt >= 50) {
      if (r == ReadResult::WrongSize)
        logError(kComponent, AString("Key file " + path + " has a wrong size; it is left as it is"));
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

}  // namespace

int KeyConf::getCryptoKeySize() { return port::CryptoKeySize(); }

bool KeyConf::getKey(EncryptionType kind, unsigned char (&key)[c_keySize]) {
  if (kind != ENCRYPTION_TEXT && kind != ENCRYPTION_BYTES) return false;
  const std::string dir = port::KeyDirectory();
  KeyCache& cache = Cache();
  // Held across loading too: threads of this process then create a missing
  // key once instead of racing each other through the file system.
  std::lock_guard<std::mutex> lock(cache.mutex);
  const auto id = std::make_pair(dir, static_cast<int>(kind));
  auto it = cache.keys.find(id);
  if (it == cache.keys.end()) {
    KeyBytes loaded;
    if (!LoadKey(dir, static_cast<int>(kind), loaded)) {
      OPENSSL_cleanse(loaded.data(), loaded.size());
      return false;
    }
    it = cache.keys.emplace(id, loaded).first;
    OPENSSL_cleanse(loaded.data(), loaded.size());
  }
  std::memcpy(key, it->second.data(), c_keySize);
  return true;
}

namespace port {

void ClearKeyCache() {
  KeyCache& cache = Cache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  cache.wipe();
}

}  // namespace port
