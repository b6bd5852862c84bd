// What an operation leaves in the files it writes, as a fresh process finds
// them, and the reports forked children write about it.
#ifndef VLM_TESTS_POWER_OUTCOME_H
#define VLM_TESTS_POWER_OUTCOME_H

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace powertest {

// The agent's tree under one root, with the configuration pointed into it.
struct Layout {
  std::string root;
  std::string data() const { return root + "/data"; }
  std::string etc() const { return root + "/data/etc"; }
  std::string list() const { return root + "/data/etc/SiteList.xml"; }
  std::string source(int variant) const { return root + "/source" + std::to_string(variant); }
};

struct Operation {
  std::string name;
  // Prepares the state before the operation, on the real disk.
  std::function<bool(const Layout&)> setup;
  // The operation: 0 when it succeeded.
  std::function<int(const Layout&)> run;
  // The files it writes, relative to the root.
  std::vector<std::string> targets;
  // True when the files must all be old or all new (one change).
  bool bTogether = false;
};

// What a fresh process finds of one file.
struct FileState {
  bool bExists = false;
  // The bytes; in a document the cipher text of each password is replaced by
  // the password it decrypts to.
  std::string meaning;
  bool bParses = false;
  mode_t mode = 0;
  uid_t uid = 0;
  gid_t gid = 0;
  bool operator==(const FileState& o) const {
    return bExists == o.bExists && meaning == o.meaning && bParses == o.bParses && mode == o.mode && uid == o.uid &&
           gid == o.gid;
  }
};

// The states of op's targets; documents are read through the library's
// text-form key to put each password in place of its cipher text.
std::vector<FileState> States(const Operation& op, const Layout& layout);
// Temporaries and change records in the directories of op's targets.
std::vector<std::string> Leftovers(const Operation& op, const Layout& layout);
// A state in words, and where two states' contents part.
std::string Describe(const FileState& s);
std::string Difference(const FileState& got, const FileState& want);

// Runs body in a forked child (which ends with body's result, never returning
// into the caller); true when it ended normally with 0.
bool InChild(const std::function<int()>& body);
// Length-prefixed fields of the children's reports.
void Put(std::string& out, const std::string& field);
void Put(std::string& out, long value);
bool Take(const std::string& in, std::size_t& pos, std::string& field);
bool Take(const std::string& in, std::size_t& pos, long& value);
void PutStates(std::string& out, const std::vector<FileState>& states);
bool TakeStates(const std::string& in, std::size_t& pos, std::vector<FileState>& states);
// Writes a child's report; the child ends with status 90 to 92 if it cannot.
void WriteReport(const std::string& path, const std::string& bytes);

}  // namespace powertest

#endif  // VLM_TESTS_POWER_OUTCOME_H
