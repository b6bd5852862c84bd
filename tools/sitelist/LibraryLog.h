// The library's log lines as the tool sees them. The library writes its lines
// to stderr; while a command runs, the tool keeps stderr in memory so that it
// can read what the library said (a failed source check rule, a lock that
// could not be taken) and restate it where it belongs. At the end everything
// goes to the real stderr, in order, except the lines the tool restated.
#ifndef VLM_TOOLS_SITELIST_LIBRARYLOG_H
#define VLM_TOOLS_SITELIST_LIBRARYLOG_H

#include <cstddef>
#include <string>
#include <vector>

namespace sitelist {

struct LogLine {
  std::size_t offset;  // where the line starts in the captured text
  std::string level;   // "ERROR", "INFO", "DETAIL", "INTERNAL"; empty for a line of the tool's own
  std::string component;
  std::string message;
};

class LibraryLog {
 public:
  // Starts keeping stderr; a no-op when it cannot (stderr then stays live).
  LibraryLog();
  // Writes what was kept to the real stderr, without the restated lines.
  ~LibraryLog();
  LibraryLog(const LibraryLog&) = delete;
  LibraryLog& operator=(const LibraryLog&) = delete;

  // A position to read lines from later.
  std::size_t Mark() const;
  // The complete lines written since mark.
  std::vector<LogLine> LinesSince(std::size_t mark) const;
  // The name of a lock the library could not take since mark, else empty.
  std::string LockNotTakenSince(std::size_t mark) const;
  // Leaves the line out of the final output: the tool has said it otherwise.
  void Restated(const LogLine& line);

 private:
  std::string Captured() const;

  int m_capture = -1;  // the in-memory file standing in for stderr
  int m_stderr = -1;   // the real stderr
  std::vector<std::size_t> m_restated;
};

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_LIBRARYLOG_H
