#include "BenchEnv.h"

#include <stdlib.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "Floors.h"
#include "port/config/IConfiguration.h"

namespace vlmbench {

namespace {

std::uint64_t Seed() {
  const char* s = std::getenv("VLM_BENCH_SEED");
  return s && *s ? std::strtoull(s, nullptr, 10) : 20260301u;
}

}  // namespace

std::wstring Wide(const std::string& s) { return std::wstring(AString(s)); }

void CopyFile(const std::string& from, const std::string& to) {
  std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing);
}

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

BenchEnv& BenchEnv::Get() {
  static BenchEnv env;
  return env;
}

BenchEnv::BenchEnv() {
  // VLM_BENCH_DIR chooses the file system (and is kept); by default a fresh
  // directory under $TMPDIR, removed at exit.
  const char* chosen = std::getenv("VLM_BENCH_DIR");
  if (chosen && *chosen) {
    m_dir = chosen;
    m_bRemove = false;
    std::filesystem::create_directories(m_dir);
  } else {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/vlm-bench.XXXXXX";
    if (!mkdtemp(&pattern[0])) throw std::runtime_error("cannot create a scratch directory");
    m_dir = pattern;
  }
  std::filesystem::create_directories(m_dir + "/data/etc");
  port::SetConfigValue(port::ConfigKey::DataDir, m_dir + "/data");
  port::SetConfigValue(port::ConfigKey::LockDir, m_dir + "/locks");
  port::SetConfigValue(port::ConfigKey::KeyDir, m_dir + "/keys");
  port::SetConfigValue(port::ConfigKey::RootPrefix, m_dir + "/root");
  port::SetConfigValue(port::ConfigKey::LogSink, "none");
  port::SetConfigValue(port::ConfigKey::LogLevel, "info");
}

BenchEnv::~BenchEnv() {
  for (auto& entry : m_sizes) FreeList(entry.second->records.head);
  if (m_bRemove) {
    std::error_code ignored;
    std::filesystem::remove_all(m_dir, ignored);
  }
}

std::wstring BenchEnv::wdir() const { return Wide(m_dir); }

const SizeData& BenchEnv::Size(unsigned int n) {
  auto found = m_sizes.find(n);
  if (found != m_sizes.end()) return *found->second;

  auto data = std::make_unique<SizeData>();
  data->n = n;
  data->dir = m_dir + "/n" + std::to_string(n);
  std::filesystem::create_directories(data->dir);
  data->listPath = data->dir + "/SiteList.xml";
  data->wlistPath = Wide(data->listPath);

  sitehlp::CSitesHelper helper(data->wlistPath);
  GeneratedList toWrite = GenerateSiteList(n, Seed());
  const int rc = WriteGeneratedList(helper, toWrite, data->wlistPath);
  if (rc != 0) throw std::runtime_error("cannot write the generated list: " + std::to_string(rc));
  struct stat st {};
  ::stat(data->listPath.c_str(), &st);
  data->fileSize = static_cast<std::size_t>(st.st_size);

  {
    // One pass: erasing in place moved the rest of a 3 MB text per password.
    const std::string original = ReadAll(data->listPath);
    const std::string marker = "Encrypted=\"1\">";
    std::string text;
    text.reserve(original.size());
    std::string::size_type from = 0;
    for (std::string::size_type at = original.find(marker); at != std::string::npos; at = original.find(marker, at)) {
      at += marker.size();
      text.append(original, from, at - from);
      from = at = original.find('<', at);
    }
    text.append(original, from, std::string::npos);
    data->clearPath = data->dir + "/SiteList-no-passwords.xml";
    data->wclearPath = Wide(data->clearPath);
    std::ofstream(data->clearPath, std::ios::binary) << text;
  }

  data->records = GenerateSiteList(n, Seed());
  for (const auto& p : data->records.policies) data->policies.emplace_back(p.first, p.second);
  for (const sitehlp::tag_Site* s = data->records.head; s; s = s->pNext) {
    std::vector<std::string> sealed;
    for (const std::wstring& clear : PasswordsOf(*s)) {
      std::wstring encrypted;
      helper.EncryptPassword(clear, encrypted);
      sealed.push_back(ACharString(encrypted));
    }
    data->passwords.push_back(std::move(sealed));
  }
  return *(m_sizes[n] = std::move(data));
}

}  // namespace vlmbench
