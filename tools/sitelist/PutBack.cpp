#include "PutBack.h"

#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <vector>

#include "Context.h"
#include "FileProblem.h"

namespace sitelist {
namespace {

std::string DirectoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash);
}

// Where a kept file goes when the entry's list is put back at file: the list
// at file, every other file at its place relative to the list's directory.
bool Destination(const HistoryEntry& entry, const KeptFile& kept, const std::string& file, std::string& path) {
  if (&kept == entry.ListFile()) {
    path = file;
    return true;
  }
  const std::string from = DirectoryOf(entry.list);
  if (kept.path.compare(0, from.size(), from) != 0 || kept.path.size() == from.size()) return false;
  path = DirectoryOf(file) + kept.path.substr(from.size());
  return true;
}

struct Placing {
  const KeptFile* kept;
  std::string path;
};

bool Differs(const Placing& p) {
  const std::vector<KeptFile> now = KeepFiles({p.path});
  if (now[0].present != p.kept->present) return true;
  return p.kept->present && now[0].bytes != p.kept->bytes;
}

int Place(Context& ctx, const std::vector<Placing>& group) {
  std::vector<sitehlp::SiteFile> files;
  for (const Placing& p : group) {
    sitehlp::SiteFile f;
    f.path = Wide(p.path);
    f.bAbsent = !p.kept->present;
    if (p.kept->present) {
      f.contents.assign(reinterpret_cast<const unsigned char*>(p.kept->bytes.data()), p.kept->bytes.size());
      f.nMode = p.kept->mode & 0777;
    }
    files.push_back(std::move(f));
  }
  const std::size_t mark = ctx.Log().Mark();
  const int rc = ctx.Helper().PlaceSiteFiles(files);
  if (rc == 0) return 0;
  if (const int status = ctx.LockFailure(mark)) return status;
  return ctx.Fail("the files of " + DirectoryOf(group.front().path) + " could not be put back (" +
                  std::to_string(rc) + ")");
}

// A replaced file keeps the attributes of the one it replaced; the kept
// ones are put back here. Owner and group only where the process may
// give them: others keep what they have.
void SetAttributes(const Placing& p) {
  if (!p.kept->present) return;
  struct stat st {};
  if (lstat(p.path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return;
  if ((st.st_mode & 0777) != p.kept->mode) chmod(p.path.c_str(), p.kept->mode);
  // A process that may not give them (EPERM) leaves the file its own.
  if ((st.st_uid != p.kept->uid || st.st_gid != p.kept->gid) && lchown(p.path.c_str(), p.kept->uid, p.kept->gid) != 0)
    return;
}

}  // namespace

int PutBack(Context& ctx, const HistoryEntry& entry, const std::string& file) {
  // Directory -> its files, the list's directory first.
  std::vector<std::string> order;
  std::map<std::string, std::vector<Placing>> groups;
  for (const KeptFile& kept : entry.files) {
    std::string path;
    if (!Destination(entry, kept, file, path))
      return ctx.Fail("history entry " + std::to_string(entry.id) + " keeps " + kept.path + ", which is not beside " +
                      entry.list);
    const std::string dir = DirectoryOf(path);
    if (!groups.count(dir)) order.push_back(dir);
    groups[dir].push_back({&kept, path});
  }
  for (const std::string& dir : order) {
    const std::vector<Placing>& group = groups[dir];
    bool differs = false;
    for (const Placing& p : group) differs = differs || Differs(p);
    if (!differs) continue;
    if (const int status = Place(ctx, group)) return status;
  }
  for (const std::string& dir : order)
    for (const Placing& p : groups[dir]) SetAttributes(p);
  return 0;
}

int RunPutBack(Context& ctx, const ChangeOptions& options, const std::string& list, const HistoryEntry& entry) {
  ChangeTarget target{list, true, true, entry.id};
  return ApplyChange(ctx, target, options, [&](const std::string& file, const std::string& shownFile) {
    if (const int status = PutBack(ctx, entry, file)) return StepResult{status, false, ""};
    // Written even when the files were as kept already: the entry this
    // records is what lets the next undo walk on.
    return StepResult{0, true, "put back " + shownFile + " " + EntryPhrase(entry)};
  });
}

int LoadHistory(Context& ctx, std::string& list, std::vector<HistoryEntry>& entries) {
  list = AbsoluteListPath(ctx.OwnListPath());
  std::string why;
  if (!History(list).Load(entries, why)) return ctx.Fail(why);
  return 0;
}

}  // namespace sitelist
