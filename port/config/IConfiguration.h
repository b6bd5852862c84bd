// IConfiguration: where the agent keeps its data and how it runs.
//
// Values come from environment variables, else from embedded defaults; code
// (tests, tools) may set any value explicitly, which wins over both:
//
//   key                 environment                default
//   data_dir            VLM_FRAMEWORK_DATA_DIR     /opt/Velmora/orx/scratch
//   managed             VLM_MANAGED                0
//   lock_dir            VLM_LOCK_DIR               <data_dir>/locks
//   key_dir             VLM_KEY_DIR                <data_dir>/keystore
//   crypto_key_size     VLM_CRYPTO_KEY_SIZE        0
//   default_http_host   VLM_DEFAULT_HTTP_HOST      update.vlm.example
//   default_ftp_host    VLM_DEFAULT_FTP_HOST       ftp.vlm.example
//   log_level           VLM_LOG_LEVEL              info (error|warning|info|detail)
//   root_prefix         VLM_ROOT_PREFIX            (empty)
//   log_sink            VLM_LOG_SINK               syslog (syslog|stderr|none)
//   lock_mode           VLM_LOCK_MODE              0660 (octal; see LockFileMode)
//   max_sitelist_bytes  VLM_MAX_SITELIST_BYTES     16777216 (16 MiB)
//
// root_prefix is prepended to fixed absolute locations of the agent (the
// standard site list path) so that tests never write under the real /opt.
// Thread safety: all members may be called from any thread.
#ifndef VLM_PORT_CONFIG_ICONFIGURATION_H
#define VLM_PORT_CONFIG_ICONFIGURATION_H

#include <string>

#include "platform/AString.h"

class IConfiguration {
 public:
  // The process-wide configuration service; never NULL.
  static IConfiguration* GetConfiguration();

  virtual ~IConfiguration() = default;
  virtual AString GetFrameworkDataDirectory() = 0;
  virtual bool IsManaged() = 0;
};

namespace port {

enum class ConfigKey {
  DataDir,
  Managed,
  LockDir,
  KeyDir,
  CryptoKeySize,
  DefaultHttpHost,
  DefaultFtpHost,
  LogLevel,
  RootPrefix,
  LogSink,
  LockMode,
  MaxSiteListBytes,
};

// The current value of key: explicit setting, else environment, else default.
std::string GetConfigValue(ConfigKey key);
// Sets key explicitly for this process (wins over the environment).
void SetConfigValue(ConfigKey key, const std::string& value);
// Forgets every explicit setting.
void ResetConfigValues();

// Typed views used by the port layer and the library.
std::string LockDirectory();
std::string KeyDirectory();
int CryptoKeySize();
AString DefaultHttpUpdateHost();
AString DefaultFtpUpdateHost();
// root_prefix + path, for fixed absolute locations of the agent.
std::string UnderRootPrefix(const std::string& absolutePath);

// Default mode of the lock files, and of their folder.
constexpr unsigned kDefaultLockMode = 0660;
constexpr unsigned kDefaultLockFolderMode = 0770;
// The permission bits lock files are created with. A configured value is
// refused, and the default used, when it is not octal, has bits beyond 0777,
// gives other users any access, or withholds reading and writing from the
// owner (who could then not lock). valid tells which.
unsigned LockFileMode(bool& valid);
// The folder of the lock files: the owner's bits, and the group's when the
// lock files give the group any access.
unsigned LockFolderMode(unsigned lockFileMode);

// Default limit on the size of a site list that is read.
constexpr unsigned long long kDefaultMaxSiteListBytes = 16ull * 1024 * 1024;
// The size in bytes beyond which a site list is not read: a positive decimal
// number; anything else gives the default.
unsigned long long MaxSiteListBytes();

}  // namespace port

#endif  // VLM_PORT_CONFIG_ICONFIGURATION_H
