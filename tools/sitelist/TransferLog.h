// The transfer log of check -v: what curl says it does, the headers and
// commands sent and the answers, one line each on stderr after the name of
// the site. Credentials never appear: authorisation headers and the FTP
// password command are masked, and so is every password of the transfer
// wherever it would show.
#ifndef VLM_TOOLS_SITELIST_TRANSFERLOG_H
#define VLM_TOOLS_SITELIST_TRANSFERLOG_H

#include <curl/curl.h>

#include <string>
#include <vector>

namespace sitelist {

class TransferLog {
 public:
  TransferLog(std::string prefix, std::vector<std::string> secrets);

  // Makes handle log through this object, which must outlive the transfer.
  void Attach(CURL* handle);
  // A line as it is logged.
  std::string Masked(const std::string& line) const;

 private:
  static int OnDebug(CURL* handle, curl_infotype type, char* data, std::size_t size, void* self);
  void Write(char marker, const std::string& text) const;

  std::string m_prefix;
  std::vector<std::string> m_secrets;
};

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_TRANSFERLOG_H
