// The configuration service: explicit settings, then the environment, then
// the embedded defaults.
#include "port/config/IConfiguration.h"

#include <cstdlib>
#include <map>
#include <mutex>

namespace port {
namespace {

struct KeyInfo {
  const char* env;
  const char* fallback;  // NULL: derived from another value
};

KeyInfo Info(ConfigKey key) {
  switch (key) {
    case ConfigKey::DataDir: return {"VLM_FRAMEWORK_DATA_DIR", "/opt/Velmora/orx/scratch"};
    case ConfigKey::Managed: return {"VLM_MANAGED", "0"};
    case ConfigKey::LockDir: return {"VLM_LOCK_DIR", nullptr};
    case ConfigKey::KeyDir: return {"VLM_KEY_DIR", nullptr};
    case ConfigKey::CryptoKeySize: return {"VLM_CRYPTO_KEY_SIZE", "0"};
    case ConfigKey::DefaultHttpHost: return {"VLM_DEFAULT_HTTP_HOST", "update.vlm.example"};
    case ConfigKey::DefaultFtpHost: return {"VLM_DEFAULT_FTP_HOST", "ftp.vlm.example"};
    case ConfigKey::LogLevel: return {"VLM_LOG_LEVEL", "info"};
    case ConfigKey::RootPrefix: return {"VLM_ROOT_PREFIX", ""};
    case ConfigKey::LogSink: return {"VLM_LOG_SINK", "syslog"};
    case ConfigKey::LockMode: return {"VLM_LOCK_MODE", "0660"};
    case ConfigKey::MaxSiteListBytes: return {"VLM_MAX_SITELIST_BYTES", "16777216"};
  }
  return {"", ""};
}

std::mutex& SettingsMutex() {
  static std::mutex m;
  return m;
}

std::map<ConfigKey, std::string>& Settings() {
  static std::map<ConfigKey, std::string> s;
  return s;
}

class Configuration : public IConfiguration {
 public:
  AString GetFrameworkDataDirectory() override { return AString(GetConfigValue(ConfigKey::DataDir)); }
  bool IsManaged() override {
    const std::string v = GetConfigValue(ConfigKey::Managed);
    return v == "1" || v == "true" || v == "yes";
  }
};

}  // namespace

std::string GetConfigValue(ConfigKey key) {
  {
    std::lock_guard<std::mutex> guard(SettingsMutex());
    auto it = Settings().find(key);
    if (it != Settings().end()) return it->second;
  }
  const KeyInfo info = Info(key);
  if (const char* env = std::getenv(info.env); env && *env) return env;
  if (info.fallback) return info.fallback;
  // Derived defaults follow the data directory, so that every process using
  // one data directory shares its locks and keys.
  const std::string data = GetConfigValue(ConfigKey::DataDir);
  return data + (key == ConfigKey::LockDir ? "/locks" : "/keystore");
}

void SetConfigValue(ConfigKey key, const std::string& value) {
  std::lock_guard<std::mutex> guard(SettingsMutex());
  Settings()[key] = value;
}

void ResetConfigValues() {
  std::lock_guard<std::mutex> guard(SettingsMutex());
  Settings().clear();
}

std::string LockDirectory() { return GetConfigValue(ConfigKey::LockDir); }
std::string KeyDirectory() { return GetConfigValue(ConfigKey::KeyDir); }
int CryptoKeySize() { return std::atoi(GetConfigValue(ConfigKey::CryptoKeySize).c_str()); }
AString DefaultHttpUpdateHost() { return AString(GetConfigValue(ConfigKey::DefaultHttpHost)); }
AString DefaultFtpUpdateHost() { return AString(GetConfigValue(ConfigKey::DefaultFtpHost)); }

std::string UnderRootPrefix(const std::string& absolutePath) {
  return GetConfigValue(ConfigKey::RootPrefix) + absolutePath;
}

unsigned LockFileMode(bool& valid) {
  const std::string text = GetConfigValue(ConfigKey::LockMode);
  valid = true;
  if (text.empty()) return kDefaultLockMode;  // no setting
  valid = text.size() <= 4 && text.find_first_not_of("01234567") == std::string::npos;
  const unsigned mode = valid ? static_cast<unsigned>(std::strtoul(text.c_str(), nullptr, 8)) : 0;
  // Nothing for other users, and the owner must be able to lock.
  valid = valid && mode <= 0777 && (mode & 0007) == 0 && (mode & 0600) == 0600;
  return valid ? mode : kDefaultLockMode;
}

unsigned LockFolderMode(unsigned lockFileMode) { return 0700 | ((lockFileMode & 0070) ? 0070 : 0); }

unsigned long long MaxSiteListBytes() {
  const std::string text = GetConfigValue(ConfigKey::MaxSiteListBytes);
  if (text.empty() || text.size() > 19 || text.find_first_not_of("0123456789") != std::string::npos)
    return kDefaultMaxSiteListBytes;
  const unsigned long long bytes = std::strtoull(text.c_str(), nullptr, 10);
  return bytes > 0 ? bytes : kDefaultMaxSiteListBytes;
}

}  // namespace port

IConfiguration* IConfiguration::GetConfiguration() {
  static port::Configuration instance;
  return &instance;
}
