// The benchmarks' world: a scratch directory, the configuration pointed into
// it (data, lock and key directories; no log output), and per list size the
// generated file, its records and the floors' inputs.
#ifndef VLM_BENCH_BENCHENV_H
#define VLM_BENCH_BENCHENV_H

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "SiteListGenerator.h"

namespace vlmbench {

struct SizeData {
  unsigned int n = 0;
  std::string dir;         // <scratch>/n<size>, holding SiteList.xml
  std::string listPath;    // the generated list, never written by a benchmark
  std::wstring wlistPath;
  std::size_t fileSize = 0;
  // The same list with every password element emptied: reading it skips
  // the decryption, which shows what decryption costs.
  std::string clearPath;
  std::wstring wclearPath;
  GeneratedList records;   // the same records, unchanged
  std::vector<std::vector<std::string>> passwords;  // ciphertexts per record, for the writer's floor
  std::vector<std::pair<std::wstring, std::wstring>> policies;
};

class BenchEnv {
 public:
  static BenchEnv& Get();
  ~BenchEnv();
  const std::string& dir() const { return m_dir; }
  std::wstring wdir() const;
  // Generated on first use.
  const SizeData& Size(unsigned int n);
  // A fresh file or directory name under the scratch directory.
  std::string Scratch(const std::string& name) const { return m_dir + "/" + name; }

 private:
  BenchEnv();
  std::string m_dir;
  bool m_bRemove = true;
  std::map<unsigned int, std::unique_ptr<SizeData>> m_sizes;
};

std::wstring Wide(const std::string& s);
// Copies a file byte for byte.
void CopyFile(const std::string& from, const std::string& to);
std::string ReadAll(const std::string& path);

}  // namespace vlmbench

#endif  // VLM_BENCH_BENCHENV_H
