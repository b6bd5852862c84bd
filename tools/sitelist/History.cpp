#include "History.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <memory>

#include "Base64.h"
#include "Context.h"
#include "FileProblem.h"

namespace sitelist {
namespace {

constexpr const char c_keepVariable[] = "VLM_HISTORY_KEEP";
constexpr const char c_entrySuffix[] = ".json";
// Entries hold the agent's secret request keys: readable by their owner only.
constexpr unsigned c_entryMode = 0600;
constexpr mode_t c_folderMode = 0700;
// Far more entries than anyone keeps, and small enough for an int.
constexpr long c_keepLimit = 1000000;

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The id of an entry's file name, 0 for any other name (a temporary of a
// change, for example).
long IdOf(const std::string& name) {
  const std::size_t suffix = name.size() - std::strlen(c_entrySuffix);
  if (name.size() <= std::strlen(c_entrySuffix) || name.compare(suffix, std::string::npos, c_entrySuffix) != 0) return 0;
  if (name[0] < '1' || name[0] > '9' || suffix > 9) return 0;
  for (std::size_t i = 0; i < suffix; ++i)
    if (name[i] < '0' || name[i] > '9') return 0;
  return std::stol(name.substr(0, suffix));
}

std::string EntryPath(const std::string& folder, long id) {
  return folder + "/" + std::to_string(id) + c_entrySuffix;
}

// The ids of the entries in folder, ascending; false with errno when the
// folder cannot be listed (ENOENT: there is none yet).
bool EntryIds(const std::string& folder, std::vector<long>& ids, int& error) {
  const std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(folder.c_str()), &closedir);
  if (!dir) {
    error = errno;
    return false;
  }
  while (const dirent* e = readdir(dir.get()))
    if (const long id = IdOf(e->d_name)) ids.push_back(id);
  std::sort(ids.begin(), ids.end());
  return true;
}

Json FileJson(const KeptFile& file, bool withBytes) {
  Json json{{"path", file.path}, {"present", file.present}};
  if (!file.present) return json;
  json["mode"] = file.mode;
  json["uid"] = file.uid;
  json["gid"] = file.gid;
  json["size"] = file.bytes.size();
  if (withBytes) json["base64"] = Base64Encode(file.bytes);
  return json;
}

Json StoredJson(const HistoryEntry& entry) {
  Json files = Json::array();
  for (const KeptFile& file : entry.files) files.push_back(FileJson(file, true));
  return {{"id", entry.id},
          {"time", entry.time},
          {"command", entry.command},
          {"restored", entry.restored ? Json(entry.restored) : Json()},
          {"list", entry.list},
          {"localVersion", entry.localVersion ? Json(*entry.localVersion) : Json()},
          {"sites", entry.sites ? Json(*entry.sites) : Json()},
          {"files", files}};
}

// Throws (nlohmann's exceptions, std::invalid_argument) on anything that is
// not an entry as StoredJson writes it.
HistoryEntry ParseEntry(const std::string& text) {
  const Json json = Json::parse(text);
  HistoryEntry entry;
  entry.id = json.at("id").get<long>();
  entry.time = json.at("time").get<std::string>();
  entry.command = json.at("command").get<std::string>();
  entry.restored = json.at("restored").is_null() ? 0 : json.at("restored").get<long>();
  entry.list = json.at("list").get<std::string>();
  if (!json.at("localVersion").is_null()) entry.localVersion = json.at("localVersion").get<std::string>();
  if (!json.at("sites").is_null()) entry.sites = json.at("sites").get<long>();
  for (const Json& f : json.at("files")) {
    KeptFile file;
    file.path = f.at("path").get<std::string>();
    file.present = f.at("present").get<bool>();
    if (file.present) {
      file.mode = f.at("mode").get<unsigned>() & 0777;
      file.uid = f.at("uid").get<unsigned>();
      file.gid = f.at("gid").get<unsigned>();
      if (!Base64Decode(f.at("base64").get<std::string>(), file.bytes))
        throw std::invalid_argument("bytes not in base64");
    }
    entry.files.push_back(std::move(file));
  }
  if (entry.files.empty()) throw std::invalid_argument("no files");
  return entry;
}

bool ParseKeep(const std::string& text, int& keep) {
  if (text.empty() || text.size() > 7 || text.find_first_not_of("0123456789") != std::string::npos) return false;
  const long value = std::stol(text);
  if (value > c_keepLimit) return false;
  keep = static_cast<int>(value);
  return true;
}

}  // namespace

std::vector<KeptFile> KeepFiles(const std::vector<std::string>& paths) {
  std::vector<KeptFile> files;
  for (const std::string& path : paths) {
    KeptFile file;
    file.path = path;
    struct stat st {};
    // What a reader sees at the path: a symbolic link's target.
    if (stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode)) {
      file.present = true;
      file.bytes = ReadAll(path);
      file.mode = st.st_mode & 0777;
      file.uid = st.st_uid;
      file.gid = st.st_gid;
    }
    files.push_back(std::move(file));
  }
  return files;
}

std::string UtcNow() {
  const std::time_t now = std::time(nullptr);
  std::tm utc {};
  gmtime_r(&now, &utc);
  char text[32] = {};
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

History::History(const std::string& list) : m_folder(list + ".history") {}

bool History::Load(std::vector<HistoryEntry>& entries, std::string& why) const {
  entries.clear();
  std::vector<long> ids;
  int error = 0;
  if (!EntryIds(m_folder, ids, error)) {
    if (error == ENOENT) return true;
    why = m_folder + ": " + ReasonOfError(error);
    return false;
  }
  for (const long id : ids) {
    const std::string path = EntryPath(m_folder, id);
    const std::string reason = UnreadableReason(path);
    if (!reason.empty()) {
      why = path + ": " + reason;
      return false;
    }
    try {
      entries.push_back(ParseEntry(ReadAll(path)));
    } catch (const std::exception&) {
      why = path + ": not a history entry of this tool";
      return false;
    }
    if (entries.back().id != id) {
      why = path + ": holds entry " + std::to_string(entries.back().id);
      return false;
    }
  }
  return true;
}

std::string History::Obstacle() const {
  struct stat st {};
  if (stat(m_folder.c_str(), &st) != 0) return "";
  if (!S_ISDIR(st.st_mode)) return m_folder + ": not a directory";
  if (access(m_folder.c_str(), R_OK | W_OK | X_OK) != 0) return m_folder + ": permission denied";
  return "";
}

bool History::Add(Context& ctx, HistoryEntry& entry, int keep, std::string& why) const {
  if (mkdir(m_folder.c_str(), c_folderMode) != 0 && errno != EEXIST) {
    why = m_folder + ": " + ReasonOfError(errno);
    return false;
  }
  std::vector<long> ids;
  int error = 0;
  if (!EntryIds(m_folder, ids, error)) {
    why = m_folder + ": " + ReasonOfError(error);
    return false;
  }
  entry.id = ids.empty() ? 1 : ids.back() + 1;
  const std::string text = StoredJson(entry).dump(1) + "\n";
  std::vector<sitehlp::SiteFile> files(1);
  files[0].path = Wide(EntryPath(m_folder, entry.id));
  files[0].contents.assign(reinterpret_cast<const unsigned char*>(text.data()), text.size());
  files[0].nMode = c_entryMode;
  // The new entry counts among the ones kept.
  const std::size_t keptOld = static_cast<std::size_t>(std::max(keep, 1) - 1);
  for (std::size_t i = 0; i + keptOld < ids.size(); ++i) {
    sitehlp::SiteFile gone;
    gone.path = Wide(EntryPath(m_folder, ids[i]));
    gone.bAbsent = true;
    files.push_back(std::move(gone));
  }
  const std::size_t mark = ctx.Log().Mark();
  if (ctx.Helper().PlaceSiteFiles(files) == 0) return true;
  const std::string lock = ctx.Log().LockNotTakenSince(mark);
  why = EntryPath(m_folder, entry.id) + ": " +
        (lock.empty() ? "the entry could not be written" : "the lock \"" + lock + "\" could not be obtained");
  return false;
}

ChangeSerializer::ChangeSerializer(const std::string& list) {
  const std::size_t slash = list.rfind('/');
  const std::string dir = slash == std::string::npos || slash == 0 ? "/" : list.substr(0, slash);
  m_fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (m_fd < 0) return;
  while (flock(m_fd, LOCK_EX) != 0 && errno == EINTR) {
  }
}

ChangeSerializer::~ChangeSerializer() {
  if (m_fd >= 0) close(m_fd);
}

int HistoryKeep(Context& ctx, int& keep) {
  if (ctx.options.keep >= 0) {
    keep = ctx.options.keep;
    return 0;
  }
  const char* value = std::getenv(c_keepVariable);
  if (!value) {
    keep = c_defaultHistoryKeep;
    return 0;
  }
  if (ParseKeep(value, keep)) return 0;
  return ctx.Fail(std::string(c_keepVariable) + ": \"" + value + "\" is not a number of entries to keep (0 to " +
                      std::to_string(c_keepLimit) + ")",
                  c_exitUsage);
}

const HistoryEntry* FindEntry(const std::vector<HistoryEntry>& entries, long id) {
  for (const HistoryEntry& entry : entries)
    if (entry.id == id) return &entry;
  return nullptr;
}

long UndoTarget(const std::vector<HistoryEntry>& entries) {
  long id = entries.empty() ? 0 : entries.back().id;
  while (const HistoryEntry* entry = FindEntry(entries, id)) {
    if (entry->command != c_undoCommand) return id;
    // Restored ids are older than the undo's own, so the walk ends.
    if (entry->restored >= id) return 0;
    id = entry->restored - 1;
  }
  return 0;
}

std::string EntryPhrase(const HistoryEntry& entry) {
  return "as it was before " + entry.command + " (history entry " + std::to_string(entry.id) + ", " + entry.time +
         ")";
}

Json EntryJson(const HistoryEntry& entry) {
  Json files = Json::array();
  for (const KeptFile& file : entry.files) files.push_back(FileJson(file, false));
  return {{"id", entry.id},
          {"time", entry.time},
          {"command", entry.command},
          {"restored", entry.restored ? Json(entry.restored) : Json()},
          {"localVersion", entry.localVersion ? Json(*entry.localVersion) : Json()},
          {"sites", entry.sites ? Json(*entry.sites) : Json()},
          {"files", files}};
}

}  // namespace sitelist
