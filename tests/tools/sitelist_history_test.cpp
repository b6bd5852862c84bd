// sitelist history, undo and restore, and the history every write keeps: run
// as a process on the agent's list with every kind of site, a proxy and
// passwords; the bytes left on disk, exact output, JSON through a parser.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "EditFixture.h"

namespace tooltest {
namespace {

using testsupport::FileExists;
using testsupport::ListDir;
using testsupport::ReadFile;
using testsupport::WriteFile;

// A history time, checked for its form and then replaced by a stand-in of
// the same width, so that tables keep their alignment.
constexpr char c_time[] = "YYYY-MM-DDThh:mm:ssZ";

std::string WithoutTimes(const std::string& text) {
  static const std::regex time(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)");
  return std::regex_replace(text, time, c_time);
}

mode_t ModeOf(const std::string& path) {
  struct stat st {};
  if (lstat(path.c_str(), &st) != 0) return 0;
  return st.st_mode & 07777;
}

class History : public EditTest {
 protected:
  std::string Folder() const { return OwnList() + ".history"; }
  std::vector<std::string> EntryFiles() const {
    return std::filesystem::exists(Folder()) ? ListDir(Folder()) : std::vector<std::string>{};
  }
  Json HistoryJson() const { return Json::parse(MustRun({"history", "--json"})); }
  std::string LocalVersion() const { return Json::parse(MustRun({"versions", "--json"}))["localVersion"]; }
  // The commands of the entries, oldest first, as history --json gives them.
  std::vector<std::string> Commands() const {
    std::vector<std::string> commands;
    const Json entries = HistoryJson()["entries"];
    for (auto e = entries.rbegin(); e != entries.rend(); ++e) commands.push_back((*e)["command"]);
    return commands;
  }
  std::string PutBackLine(int id, const std::string& command) const {
    return "put back " + OwnList() + " as it was before " + command + " (history entry " + std::to_string(id) + ", " +
           c_time + ")\n";
  }
};

TEST_F(History, AWriteKeepsTheFilesItReplaces) {
  EXPECT_EQ(MustRun({"disable", "Own"}), "disabled HttpSite \"Own\" in " + OwnList() + "\n");
  EXPECT_EQ(EntryFiles(), std::vector<std::string>{"1.json"});
  EXPECT_EQ(ModeOf(Folder()), 0700u);
  EXPECT_EQ(ModeOf(Folder() + "/1.json"), 0600u);
  const Json h = HistoryJson();
  EXPECT_EQ(h["file"], OwnList());
  EXPECT_EQ(h["folder"], Folder());
  EXPECT_EQ(h["undo"], 1);
  ASSERT_EQ(h["entries"].size(), 1u);
  const Json& e = h["entries"][0];
  EXPECT_EQ(e["id"], 1);
  EXPECT_EQ(WithoutTimes(e["time"]), c_time);
  EXPECT_EQ(e["command"], "disable");
  EXPECT_TRUE(e["restored"].is_null());
  EXPECT_EQ(e["localVersion"], "20250102030405");
  EXPECT_EQ(e["sites"], 7);
  const Json expectedFiles = Json::array(
      {{{"path", OwnList()}, {"present", true}, {"mode", 0644}, {"uid", getuid()}, {"gid", getgid()},
        {"size", Original().size()}},
       {{"path", EtcDir() + "/srpubkey.bin"}, {"present", false}},
       {{"path", EtcDir() + "/reqseckey.bin"}, {"present", false}},
       {{"path", EtcDir() + "/sr2048pubkey.bin"}, {"present", false}},
       {{"path", EtcDir() + "/req2048seckey.bin"}, {"present", false}},
       {{"path", EtcDir() + "\\agentfipsmode"}, {"present", false}}});
  EXPECT_EQ(e["files"], expectedFiles);
}

TEST_F(History, HistoryPrintsEachEntryNewestFirst) {
  EXPECT_EQ(MustRun({"history"}), "no history of " + OwnList() + "\n");
  MustRun({"disable", "Own"});
  const std::string afterDisable = LocalVersion();
  MustRun({"set-order", "Own", "6"});
  const ToolResult r = Run({"history"});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(WithoutTimes(r.out), std::string("ID  TIME                  COMMAND    LOCAL VERSION   SITES\n") +
                                     "2   " + c_time + "  set-order  " + afterDisable + "  7\n" +
                                     "1   " + c_time + "  disable    20250102030405  7\n" +
                                     "undo puts the list back as it was before set-order (history entry 2, " +
                                     c_time + ")\n");
}

TEST_F(History, UndoPutsBackTheListByteForByte) {
  MustRun({"remove-site", "Share"});
  ASSERT_NE(ReadFile(OwnList()), Original());
  const ToolResult r = Run({"undo"});
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(WithoutTimes(r.out), PutBackLine(1, "remove-site"));
  EXPECT_EQ(ReadFile(OwnList()), Original());
  EXPECT_EQ(ModeOf(OwnList()), 0644u);
  const Json entries = HistoryJson()["entries"];
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0]["command"], "undo");
  EXPECT_EQ(entries[0]["restored"], 1);
  EXPECT_EQ(entries[0]["sites"], 6);
}

TEST_F(History, UndoTwiceWalksFurtherBackAndStopsAtTheOldest) {
  MustRun({"enable", "Ftp"});
  const std::string afterEnable = ReadFile(OwnList());
  MustRun({"edit", "Own", "--path", "Other"});
  EXPECT_EQ(WithoutTimes(MustRun({"undo"})), PutBackLine(2, "edit"));
  EXPECT_EQ(ReadFile(OwnList()), afterEnable);
  EXPECT_EQ(WithoutTimes(MustRun({"undo"})), PutBackLine(1, "enable"));
  EXPECT_EQ(ReadFile(OwnList()), Original());
  EXPECT_EQ(Commands(), (std::vector<std::string>{"enable", "edit", "undo", "undo"}));

  const Snapshot before = SnapshotOf(DataDir());
  const ToolResult past = Run({"undo"});
  EXPECT_EQ(past.exitStatus, 1);
  EXPECT_EQ(past.out, "");
  EXPECT_EQ(past.err, "sitelist undo: nothing left to undo: " + OwnList() +
                          " is back before the oldest change its history keeps (entry 1)\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

TEST_F(History, UndoAfterANewChangeSkipsWhatWasUndoneBefore) {
  MustRun({"disable", "Own"});         // 1
  MustRun({"undo"});                   // 2 puts back 1
  MustRun({"disable", "Share"});       // 3
  const std::string afterShare = ReadFile(OwnList());
  EXPECT_EQ(WithoutTimes(MustRun({"undo"})), PutBackLine(3, "disable"));  // 4 puts back 3
  EXPECT_EQ(ReadFile(OwnList()), Original());
  // Entry 3 kept the list as the first undo left it; before that lies only
  // the change that undo took back.
  const ToolResult r = Run({"undo"});
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_EQ(ReadFile(OwnList()), Original());
  EXPECT_NE(afterShare, Original());
}

TEST_F(History, AnUndoIsTakenBackByRestoringTheEntryItMade) {
  MustRun({"disable", "Own"});
  const std::string disabled = ReadFile(OwnList());
  MustRun({"undo"});
  EXPECT_EQ(ReadFile(OwnList()), Original());
  EXPECT_EQ(WithoutTimes(MustRun({"restore", "2"})), PutBackLine(2, "undo"));
  EXPECT_EQ(ReadFile(OwnList()), disabled);
  // The restore is a change of its own: undo takes it back.
  EXPECT_EQ(WithoutTimes(MustRun({"undo"})), PutBackLine(3, "restore"));
  EXPECT_EQ(ReadFile(OwnList()), Original());
  const ToolResult h = Run({"history"});
  EXPECT_EQ(WithoutTimes(h.out).substr(0, h.out.find('\n') + 1),
            "ID  TIME                  COMMAND         LOCAL VERSION   SITES\n");
  EXPECT_NE(h.out.find("\n3   "), std::string::npos);
  EXPECT_NE(WithoutTimes(h.out).find(std::string("\n3   ") + c_time + "  restore (to 2)  "), std::string::npos)
      << h.out;
  EXPECT_NE(WithoutTimes(h.out).find(std::string("\n2   ") + c_time + "  undo (to 1)     "), std::string::npos)
      << h.out;
}

TEST_F(History, RestorePutsBackAnyEntry) {
  MustRun({"disable", "Own"});
  const std::string first = ReadFile(OwnList());
  MustRun({"disable", "Share"});
  MustRun({"set-proxy", "--none"});
  EXPECT_EQ(WithoutTimes(MustRun({"restore", "2"})), PutBackLine(2, "disable"));
  EXPECT_EQ(ReadFile(OwnList()), first);
  EXPECT_EQ(WithoutTimes(MustRun({"restore", "1"})), PutBackLine(1, "disable"));
  EXPECT_EQ(ReadFile(OwnList()), Original());
  EXPECT_EQ(Commands(), (std::vector<std::string>{"disable", "disable", "set-proxy", "restore", "restore"}));
}

TEST_F(History, RestoreOfAnUnknownEntryIsRefused) {
  const ToolResult none = Run({"restore", "1"});
  EXPECT_EQ(none.exitStatus, 1);
  EXPECT_EQ(none.out, "");
  EXPECT_EQ(none.err, "sitelist restore: no history entry 1 of " + OwnList() + "; the history is empty\n");
  const ToolResult nothing = Run({"undo"});
  EXPECT_EQ(nothing.exitStatus, 1);
  EXPECT_EQ(nothing.err, "sitelist undo: no history of " + OwnList() + ": nothing to undo\n");

  MustRun({"disable", "Own"});
  MustRun({"enable", "Own"});
  const Snapshot before = SnapshotOf(DataDir());
  const ToolResult r = Run({"restore", "9"});
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "sitelist restore: no history entry 9 of " + OwnList() + "; the history keeps entries 1 to 2\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
  const ToolResult zero = Run({"restore", "0"});
  EXPECT_EQ(zero.exitStatus, 2);
  EXPECT_EQ(zero.err, "ID: Value 0 not in range 1 to 999999999\nRun with --help for more information.\n");
}

TEST_F(History, KeepPrunesTheOldestEntries) {
  for (const char* name : {"Own", "Share", "Relay", "Mirror"}) MustRun({"--keep", "2", "disable", name});
  EXPECT_EQ(EntryFiles(), (std::vector<std::string>{"3.json", "4.json"}));
  const ToolResult env = RunWith({{"VLM_HISTORY_KEEP", "3"}}, {"enable", "Own"});
  EXPECT_EQ(env.exitStatus, 0) << env.err;
  EXPECT_EQ(EntryFiles(), (std::vector<std::string>{"3.json", "4.json", "5.json"}));
  // The option wins over the variable.
  const ToolResult both = RunWith({{"VLM_HISTORY_KEEP", "5"}}, {"--keep", "1", "enable", "Share"});
  EXPECT_EQ(both.exitStatus, 0) << both.err;
  EXPECT_EQ(EntryFiles(), std::vector<std::string>{"6.json"});
  // Undo stops where the history stops.
  MustRun({"undo"});
  const ToolResult past = Run({"undo"});
  EXPECT_EQ(past.exitStatus, 1);
  EXPECT_EQ(past.err, "sitelist undo: nothing left to undo: " + OwnList() +
                          " is back before the oldest change its history keeps (entry 6)\n");
}

TEST_F(History, TheDefaultKeepsTen) {
  for (int i = 0; i < 6; ++i) {
    MustRun({"disable", "Own"});
    MustRun({"enable", "Own"});
  }
  std::vector<std::string> expected;
  for (int id = 3; id <= 12; ++id) expected.push_back(std::to_string(id) + ".json");
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(EntryFiles(), expected);
}

TEST_F(History, KeepZeroWritesWithoutHistoryAndLeavesItAlone) {
  MustRun({"--keep", "0", "disable", "Own"});
  EXPECT_FALSE(FileExists(Folder()));
  MustRun({"disable", "Share"});
  const Snapshot history = SnapshotOf(Folder());
  const ToolResult r = RunWith({{"VLM_HISTORY_KEEP", "0"}}, {"disable", "Relay"});
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(SnapshotOf(Folder()), history);
  EXPECT_EQ(Commands(), std::vector<std::string>{"disable"});
}

TEST_F(History, ABadKeepIsAUsageErrorBeforeAnythingIsWritten) {
  const Snapshot before = SnapshotOf(DataDir());
  const ToolResult env = RunWith({{"VLM_HISTORY_KEEP", "ten"}}, {"disable", "Own"});
  EXPECT_EQ(env.exitStatus, 2);
  EXPECT_EQ(env.out, "");
  EXPECT_EQ(env.err,
            "sitelist disable: VLM_HISTORY_KEEP: \"ten\" is not a number of entries to keep (0 to 1000000)\n");
  const ToolResult option = Run({"--keep", "-1", "disable", "Own"});
  EXPECT_EQ(option.exitStatus, 2);
  EXPECT_EQ(option.err, "--keep: Value -1 not in range 0 to 1000000\nRun with --help for more information.\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

TEST_F(History, WritesThatChangeNothingKeepNoEntry) {
  const Snapshot before = SnapshotOf(DataDir());
  EXPECT_EQ(Run({"disable", "Nowhere"}).exitStatus, 1);
  EXPECT_EQ(Run({"disable", "--dry-run", "Own"}).exitStatus, 0);
  EXPECT_EQ(MustRun({"disable", "Ftp"}), "FTPSite \"Ftp\" in " + OwnList() + " is already disabled; nothing to change\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

TEST_F(History, ADryRunUndoPrintsTheDiffAndWritesNothing) {
  MustRun({"disable", "Own"});
  const Snapshot before = SnapshotOf(DataDir());
  const ToolResult r = Run({"undo", "--dry-run"});
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_EQ(r.err, "");
  // FipsMode comes back too: the writer of the disable had dropped it.
  EXPECT_EQ(WithoutTimes(r.out), "--- " + OwnList() + "\n+++ " + OwnList() + " (after undo)\n~ local version: " +
                                     LocalVersion() + " -> 20250102030405\n~ FIPS mode: (not set) -> 1\n" +
                                     "~ HttpSite \"Own\"\n    enabled: no -> yes\ndry run: " +
                                     PutBackLine(1, "disable").substr(0, PutBackLine(1, "disable").size() - 1) +
                                     "; nothing was written\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
  const Json j = Json::parse(MustRun({"undo", "--dry-run", "--json"}));
  EXPECT_EQ(j["command"], "undo");
  EXPECT_EQ(j["dryRun"], true);
  EXPECT_EQ(j["written"], false);
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

TEST_F(History, UndoWithJsonSaysWhatChanged) {
  MustRun({"disable", "Own"});
  const Json j = Json::parse(MustRun({"undo", "--json"}));
  EXPECT_EQ(j["command"], "undo");
  EXPECT_EQ(j["file"], OwnList());
  EXPECT_EQ(j["dryRun"], false);
  EXPECT_EQ(j["written"], true);
  EXPECT_EQ(WithoutTimes(j["message"]), PutBackLine(1, "disable").substr(0, PutBackLine(1, "disable").size() - 1));
  EXPECT_EQ(j["changes"]["sites"]["changed"].size(), 1u) << j.dump();
  EXPECT_EQ(ReadFile(OwnList()), Original());
}

// An outside list whose management server announces a version: its key
// files come from beside it.
const char c_outsideList[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<ns:SiteLists xmlns:ns="zelSiteList" GlobalVersion="20261111000000" LocalVersion="20261111000500" Type="Client">
  <SiteList Default="1" Name="Incoming">
    <SpipeSite Type="master" Name="Vantor_InServer" Order="1" Enabled="1" Local="0" Server="mgmt.in.example:80" ServerName="IN01:80" ServerIP="203.0.113.5:80" Version="6.0">
      <RelativePath>Software</RelativePath>
      <UseAuth>0</UseAuth>
      <UserName></UserName>
      <Password Encrypted="1"></Password>
    </SpipeSite>
  </SiteList>
</ns:SiteLists>
)";

TEST_F(History, UndoOfAnImportPutsBackTheKeyFilesByteForByte) {
  const std::string oldPublic("old-public\0\x01", 12);
  WriteFile(EtcDir() + "/srpubkey.bin", oldPublic);
  chmod((EtcDir() + "/srpubkey.bin").c_str(), 0644);
  WriteFile(EtcDir() + "/sr2048pubkey.bin", "old-2048");
  chmod((EtcDir() + "/sr2048pubkey.bin").c_str(), 0640);
  std::filesystem::create_directories(Tmp("in"));
  WriteFile(Tmp("in/SiteList.xml"), c_outsideList);
  WriteFile(Tmp("in/srpubkey.bin"), "new-public");
  WriteFile(Tmp("in/reqseckey.bin"), "new-request-secret");
  const Snapshot before = SnapshotOf(EtcDir());

  EXPECT_EQ(MustRun({"install", Tmp("in/SiteList.xml")}),
            "installed " + Tmp("in/SiteList.xml") + " into " + OwnList() + "\n");
  ASSERT_EQ(ReadFile(EtcDir() + "/srpubkey.bin"), "new-public");
  ASSERT_EQ(ReadFile(EtcDir() + "/reqseckey.bin"), "new-request-secret");
  const std::string installed = ReadFile(OwnList());

  EXPECT_EQ(WithoutTimes(MustRun({"undo"})), PutBackLine(1, "install"));
  EXPECT_EQ(ReadFile(OwnList()), Original());
  EXPECT_EQ(ReadFile(EtcDir() + "/srpubkey.bin"), oldPublic);
  EXPECT_EQ(ModeOf(EtcDir() + "/srpubkey.bin"), 0644u);
  EXPECT_FALSE(FileExists(EtcDir() + "/reqseckey.bin"));
  EXPECT_EQ(ReadFile(EtcDir() + "/sr2048pubkey.bin"), "old-2048");
  EXPECT_EQ(ModeOf(EtcDir() + "/sr2048pubkey.bin"), 0640u);
  // Everything beside the list is as it was, but for the history itself.
  Snapshot after = SnapshotOf(EtcDir());
  for (auto e = after.begin(); e != after.end();) e = e->first.rfind("SiteList.xml.history", 0) == 0 ? after.erase(e) : ++e;
  EXPECT_EQ(after, before);

  // Taking the undo back places the request key again, owner-only.
  EXPECT_EQ(WithoutTimes(MustRun({"restore", "2"})), PutBackLine(2, "undo"));
  EXPECT_EQ(ReadFile(OwnList()), installed);
  EXPECT_EQ(ReadFile(EtcDir() + "/reqseckey.bin"), "new-request-secret");
  EXPECT_EQ(ModeOf(EtcDir() + "/reqseckey.bin"), 0600u);
  EXPECT_EQ(ReadFile(EtcDir() + "/srpubkey.bin"), "new-public");
}

TEST_F(History, UndoOfTheFirstInstallRemovesTheList) {
  std::filesystem::remove(OwnList());
  std::filesystem::create_directories(Tmp("in"));
  WriteFile(Tmp("in/SiteList.xml"), c_outsideList);
  WriteFile(Tmp("in/srpubkey.bin"), "new-public");
  WriteFile(Tmp("in/reqseckey.bin"), "new-request-secret");
  MustRun({"install", Tmp("in/SiteList.xml")});
  const Json entry = HistoryJson()["entries"][0];
  EXPECT_TRUE(entry["localVersion"].is_null());
  EXPECT_TRUE(entry["sites"].is_null());
  const ToolResult h = Run({"history"});
  EXPECT_EQ(WithoutTimes(h.out), std::string("ID  TIME                  COMMAND  LOCAL VERSION  SITES\n") + "1   " +
                                     c_time + "  install  -              -\n" +
                                     "undo puts the list back as it was before install (history entry 1, " + c_time +
                                     ")\n");
  MustRun({"undo"});
  EXPECT_FALSE(FileExists(OwnList()));
  EXPECT_FALSE(FileExists(EtcDir() + "/srpubkey.bin"));
  EXPECT_FALSE(FileExists(EtcDir() + "/reqseckey.bin"));
  const ToolResult show = Run({"show"});
  EXPECT_EQ(show.exitStatus, 3);
  EXPECT_EQ(show.err, "sitelist show: " + OwnList() + ": no such file\n");
}

TEST_F(History, UndoPutsBackTheOwnerAndModeTheEntryKept) {
  if (getuid() != 0) GTEST_SKIP() << "giving a file to another user needs root";
  // The list belongs to the agent's user; an administrator (root) edits it.
  ASSERT_EQ(chown(OwnList().c_str(), testsupport::kOtherUser, testsupport::kOtherGroup), 0);
  ASSERT_EQ(chmod(OwnList().c_str(), 0640), 0);
  MustRun({"disable", "Own"});
  const Json file = HistoryJson()["entries"][0]["files"][0];
  EXPECT_EQ(file["uid"], testsupport::kOtherUser);
  EXPECT_EQ(file["gid"], testsupport::kOtherGroup);
  EXPECT_EQ(file["mode"], 0640);
  // Someone takes the file over in between; undo gives it back as kept.
  ASSERT_EQ(chown(OwnList().c_str(), 0, 0), 0);
  ASSERT_EQ(chmod(OwnList().c_str(), 0600), 0);
  MustRun({"undo"});
  struct stat st {};
  ASSERT_EQ(stat(OwnList().c_str(), &st), 0);
  EXPECT_EQ(st.st_uid, testsupport::kOtherUser);
  EXPECT_EQ(st.st_gid, testsupport::kOtherGroup);
  EXPECT_EQ(st.st_mode & 07777, 0640u);
  EXPECT_EQ(ReadFile(OwnList()), Original());
}

TEST_F(History, TwoCommandsAtOnceKeepOneEntryEachInTurn) {
  // Two administrators change the list at the same moment, round after round.
  const auto rounds = [this](const std::string& site, std::vector<int>& statuses) {
    for (int i = 0; i < 3; ++i) {
      statuses.push_back(Run({"disable", site}).exitStatus);
      statuses.push_back(Run({"enable", site}).exitStatus);
    }
  };
  std::vector<int> a, b;
  std::thread first(rounds, "Own", std::ref(a));
  std::thread second(rounds, "Share", std::ref(b));
  first.join();
  second.join();
  EXPECT_EQ(a, std::vector<int>(6, 0));
  EXPECT_EQ(b, std::vector<int>(6, 0));
  // No change lost: both sites end enabled, as each command left them.
  const Json shown = Json::parse(MustRun({"show", "--json"}));
  for (const Json& site : shown["sites"])
    if (site["name"] == "Own" || site["name"] == "Share") EXPECT_EQ(site["enabled"], true) << site["name"];
  // Every change kept once, under ids given once each, newest first.
  const Json entries = HistoryJson()["entries"];
  ASSERT_EQ(entries.size(), 10u);
  for (std::size_t i = 0; i < entries.size(); ++i) {
    EXPECT_EQ(entries[i]["id"], 12 - static_cast<int>(i));
    EXPECT_TRUE(entries[i]["command"] == "enable" || entries[i]["command"] == "disable") << entries[i]["command"];
  }
  EXPECT_EQ(entries[0]["command"], "enable");
  // Each undo is kept too: room for them, so that the walk reaches entry 3.
  for (int i = 0; i < 10; ++i) EXPECT_EQ(Run({"--keep", "30", "undo"}).exitStatus, 0) << i;
  EXPECT_EQ(Run({"--keep", "30", "undo"}).exitStatus, 1);
}

}  // namespace
}  // namespace tooltest
