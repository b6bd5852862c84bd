// A private temporary directory ($TMPDIR, else /tmp), removed with
// everything in it when the object ends.
#ifndef VLM_TOOLS_SITELIST_SCRATCHDIR_H
#define VLM_TOOLS_SITELIST_SCRATCHDIR_H

#include <string>

namespace sitelist {

class ScratchDir {
 public:
  explicit ScratchDir(const char* purpose);
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  // False when the directory could not be made.
  bool Ok() const { return !m_path.empty(); }
  const std::string& Path() const { return m_path; }

 private:
  std::string m_path;
};

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_SCRATCHDIR_H
