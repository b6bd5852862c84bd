// Changes of several files of one directory: all or nothing, whatever step a
// crash interrupts, finished by the next FinishInterruptedChange.
#include "port/fs/FileChange.h"

#include <errno.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "port/fs/ChangeRecord.h"
#include "port/fs/SysCalls.h"
#include "support/StopAt.h"
#include "support/TestSupport.h"

namespace {

using testsupport::FileExists;
using testsupport::ListDir;
using testsupport::ReadFile;
using testsupport::TempDir;
using testsupport::WriteFile;

struct stat StatOf(const std::string& path) {
  struct stat st {};
  lstat(path.c_str(), &st);
  return st;
}

// The files of the change used below: list and key are replaced, stale is
// removed.
const char* const kFiles[] = {"SiteList.xml", "srpubkey.bin", "reqseckey.bin"};

void WriteOldFiles(const TempDir& dir) {
  WriteFile(dir.file("SiteList.xml"), "old list");
  WriteFile(dir.file("srpubkey.bin"), "old key");
  WriteFile(dir.file("reqseckey.bin"), "old request key");
}

int StageNewFiles(port::FileChange& change) {
  if (int rc = change.stage("srpubkey.bin", "new key", 7, 0644)) return rc;
  if (int rc = change.stageRemoval("reqseckey.bin")) return rc;
  return change.stage("SiteList.xml", "new list", 8, 0644);
}

// "old", "new", or "mixed" with what each file holds.
std::string StateOf(const TempDir& dir) {
  const bool oldList = ReadFile(dir.file("SiteList.xml")) == "old list";
  const bool oldKey = ReadFile(dir.file("srpubkey.bin")) == "old key";
  const bool oldRequest = FileExists(dir.file("reqseckey.bin"));
  if (oldList && oldKey && oldRequest) return "old";
  if (!oldList && !oldKey && !oldRequest && ReadFile(dir.file("SiteList.xml")) == "new list" &&
      ReadFile(dir.file("srpubkey.bin")) == "new key")
    return "new";
  return "mixed: list '" + ReadFile(dir.file("SiteList.xml")) + "', key '" + ReadFile(dir.file("srpubkey.bin")) +
         "', request key " + (oldRequest ? "present" : "absent");
}

TEST(FileChange, StagingChangesNothingAndAnAbandonedChangeLeavesNoTemporary) {
  TempDir dir;
  WriteOldFiles(dir);
  {
    port::FileChange change(dir.path());
    ASSERT_EQ(0, StageNewFiles(change));
    EXPECT_EQ("old", StateOf(dir));
    EXPECT_EQ(5u, ListDir(dir.path()).size());  // three files, two temporaries
  }
  EXPECT_EQ("old", StateOf(dir));
  EXPECT_EQ((std::vector<std::string>{"SiteList.xml", "reqseckey.bin", "srpubkey.bin"}), ListDir(dir.path()));
}

TEST(FileChange, CommitPlacesEveryFileAndLeavesNoRecordOrTemporary) {
  TempDir dir;
  WriteOldFiles(dir);
  ASSERT_EQ(0, chown(dir.file("SiteList.xml").c_str(), testsupport::kOtherUser, testsupport::kOtherGroup));
  ASSERT_EQ(0, chmod(dir.file("SiteList.xml").c_str(), 0640));
  port::FileChange change(dir.path());
  ASSERT_EQ(0, StageNewFiles(change));
  ASSERT_EQ(0, change.stage("sr2048pubkey.bin", "new 2048 key", 12, 0604));
  ASSERT_EQ(0, change.commit());
  EXPECT_EQ("new", StateOf(dir));
  EXPECT_EQ("new 2048 key", ReadFile(dir.file("sr2048pubkey.bin")));
  EXPECT_EQ((std::vector<std::string>{"SiteList.xml", "sr2048pubkey.bin", "srpubkey.bin"}), ListDir(dir.path()));
  // Each replaced file keeps its owner, group and mode; a new one gets the
  // mode given.
  EXPECT_EQ(testsupport::kOtherUser, StatOf(dir.file("SiteList.xml")).st_uid);
  EXPECT_EQ(testsupport::kOtherGroup, StatOf(dir.file("SiteList.xml")).st_gid);
  EXPECT_EQ(0640u, StatOf(dir.file("SiteList.xml")).st_mode & 07777);
  EXPECT_EQ(0604u, StatOf(dir.file("sr2048pubkey.bin")).st_mode & 07777);
}

TEST(FileChange, NamesThatAreNoPlainNameOrTakenAreRefused) {
  TempDir dir;
  port::FileChange change(dir.path());
  for (const char* bad : {"", ".", "..", "a/b", "../SiteList.xml", "line\nbreak", ".pending-change"}) {
    EXPECT_EQ(EINVAL, change.stage(bad, "x", 1, 0644)) << bad;
    EXPECT_EQ(EINVAL, change.stageRemoval(bad)) << bad;
  }
  ASSERT_EQ(0, change.stage("SiteList.xml", "x", 1, 0644));
  EXPECT_EQ(EINVAL, change.stage("SiteList.xml", "y", 1, 0644));
  EXPECT_EQ(EINVAL, change.stageRemoval("SiteList.xml"));
  ASSERT_EQ(0, mkdir(dir.file("sub").c_str(), 0755));
  EXPECT_EQ(EISDIR, change.stage("sub", "x", 1, 0644));
  EXPECT_EQ(EISDIR, change.stageRemoval("sub"));
}

TEST(FileChange, AMissingDirectoryFailsTheStageWithENOENT) {
  TempDir dir;
  port::FileChange change(dir.file("no/such"));
  EXPECT_EQ(ENOENT, change.stage("SiteList.xml", "x", 1, 0644));
  EXPECT_TRUE(change.empty());
}

// ---- a crash at every step ----------------------------------------------------

// Stages and commits in a child stopped at call stopAt (RunStoppedAt).
long RunStopped(const TempDir& dir, long stopAt) {
  return testsupport::RunStoppedAt(stopAt, [&] {
    port::FileChange change(dir.path());
    return StageNewFiles(change) == 0 ? change.commit() : -1;
  });
}

TEST(FileChange, ACrashAtAnyStepLeavesAllOldOrAllNewFilesOnceTheNextReaderFinishes) {
  long total = 0;
  {
    TempDir dir;
    WriteOldFiles(dir);
    total = RunStopped(dir, -1);
    ASSERT_GT(total, 10);
    ASSERT_EQ("new", StateOf(dir));
  }
  int oldStates = 0, newStates = 0, interrupted = 0;
  std::string last = "old";
  for (long stopAt = 1; stopAt <= total; ++stopAt) {
    TempDir dir;
    WriteOldFiles(dir);
    ASSERT_EQ(-2, RunStopped(dir, stopAt)) << "the child was to stop at call " << stopAt;
    if (FileExists(dir.file(port::kChangeRecordName))) ++interrupted;
    ASSERT_EQ(0, port::FinishInterruptedChange(dir.path())) << "call " << stopAt;
    const std::string state = StateOf(dir);
    ASSERT_TRUE(state == "old" || state == "new") << "stopped at call " << stopAt << " of " << total << ": " << state;
    // Once a crash leaves the new files, every later one does too.
    ASSERT_FALSE(last == "new" && state == "old") << "call " << stopAt;
    last = state;
    (state == "old" ? oldStates : newStates)++;
    EXPECT_FALSE(FileExists(dir.file(port::kChangeRecordName)));
    // Whatever was left is swept by the next change of those files.
    port::FileChange next(dir.path());
    ASSERT_EQ(0, StageNewFiles(next));
    ASSERT_EQ(0, next.commit());
    std::vector<std::string> names = ListDir(dir.path());
    for (const std::string& name : names)
      EXPECT_EQ(std::string::npos, name.find(".tmp.")) << "call " << stopAt << ": " << name;
  }
  EXPECT_GT(oldStates, 0);
  EXPECT_GT(newStates, 0);
  EXPECT_GT(interrupted, 0);
  std::printf("a change of %ld calls stopped at each: %d left the old files, %d the new ones (%d with a record "
              "to finish)\n",
              total, oldStates, newStates, interrupted);
}

TEST(FileChange, FinishingThatIsItselfInterruptedCanBeDoneAgain) {
  TempDir dir;
  WriteOldFiles(dir);
  // A record and its temporaries, as a writer killed before its renames
  // leaves them.
  port::FileChange change(dir.path());
  ASSERT_EQ(0, StageNewFiles(change));
  std::vector<port::ChangeStep> steps;
  for (const std::string& name : ListDir(dir.path())) {
    if (name.rfind(".srpubkey.bin.tmp.", 0) == 0) steps.push_back({false, name, "srpubkey.bin"});
    if (name.rfind(".SiteList.xml.tmp.", 0) == 0) steps.push_back({false, name, "SiteList.xml"});
  }
  steps.push_back({true, "", "reqseckey.bin"});
  ASSERT_EQ(3u, steps.size());
  WriteFile(dir.file(port::kChangeRecordName), port::FormatChangeRecord(steps));
  // The first rename done, as by a finisher that was killed then.
  ASSERT_EQ(0, rename(dir.file(steps[0].temporary).c_str(), dir.file(steps[0].target).c_str()));
  ASSERT_EQ(0, port::FinishInterruptedChange(dir.path()));
  EXPECT_EQ("new", StateOf(dir));
  // Again: nothing left to do.
  ASSERT_EQ(0, port::FinishInterruptedChange(dir.path()));
  EXPECT_EQ("new", StateOf(dir));
}

TEST(FileChange, ADamagedRecordIsRemovedAndTheFilesLeftAlone) {
  for (const std::string& text : {std::string("change 1\nput .x.tmp.A/x\n"), std::string("garbage"),
                                  std::string("change 1\nput ../../etc/.x.tmp.A/x\nend\n"),
                                  std::string("change 1\nremove ../SiteList.xml\nend\n"),
                                  std::string("change 1\nput .other.tmp.A/SiteList.xml\nend\n")}) {
    TempDir dir;
    WriteOldFiles(dir);
    WriteFile(dir.file(port::kChangeRecordName), text);
    EXPECT_EQ(EBADMSG, port::FinishInterruptedChange(dir.path())) << text;
    EXPECT_EQ("old", StateOf(dir));
    EXPECT_FALSE(FileExists(dir.file(port::kChangeRecordName)));
  }
}

TEST(FileChange, ARecordThatIsAFifoIsRefusedWithoutWaiting) {
  TempDir dir;
  WriteOldFiles(dir);
  ASSERT_EQ(0, mkfifo(dir.file(port::kChangeRecordName).c_str(), 0600));
  EXPECT_EQ(EBADMSG, port::FinishInterruptedChange(dir.path()));
  EXPECT_EQ("old", StateOf(dir));
}

TEST(FileChange, RecordTextRoundTripsAndRefusesWhatIsNoRecord) {
  const std::vector<port::ChangeStep> steps = {{false, ".a b.tmp.XYZ123", "a b"}, {true, "", "gone.bin"}};
  const std::string text = port::FormatChangeRecord(steps);
  EXPECT_EQ("change 1\nput .a b.tmp.XYZ123/a b\nremove gone.bin\nend\n", text);
  std::vector<port::ChangeStep> parsed;
  ASSERT_TRUE(port::ParseChangeRecord(text, parsed));
  ASSERT_EQ(2u, parsed.size());
  EXPECT_EQ(".a b.tmp.XYZ123", parsed[0].temporary);
  EXPECT_EQ("a b", parsed[0].target);
  EXPECT_TRUE(parsed[1].bRemove);
  EXPECT_EQ("gone.bin", parsed[1].target);
  for (const char* bad : {"", "change 1\n", "change 1\nend", "change 2\nend\n", "change 1\nend\nend\n",
                          "change 1\nmove a\nend\n", "change 1\nput x\nend\n"})
    EXPECT_FALSE(port::ParseChangeRecord(bad, parsed)) << bad;
}

}  // namespace
