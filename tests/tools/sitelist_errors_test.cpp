// Exit statuses and messages of failures: files missing or unreadable (named,
// with the reason), documents that are not well formed, refused input, locks
// not obtained.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "EditFixture.h"

namespace tooltest {
namespace {

using testsupport::ReadFile;
using testsupport::WriteFile;

class Errors : public EditTest {};

TEST_F(Errors, AFileThatCannotBeReadIsNamedWithTheReason) {
  std::filesystem::create_symlink(Tmp("loop-b"), Tmp("loop-a"));
  std::filesystem::create_symlink(Tmp("loop-a"), Tmp("loop-b"));
  std::filesystem::create_symlink(Tmp("gone.xml"), Tmp("dangling.xml"));
  std::filesystem::create_directories(Tmp("dir.xml"));
  struct Case {
    std::string file, reason;
  };
  const Case cases[] = {{Tmp("none.xml"), "no such file"},
                        {Tmp("loop-a"), "symbolic link loop"},
                        {Tmp("dangling.xml"), "no such file (broken symbolic link)"},
                        {Tmp("dir.xml"), "not a regular file"}};
  for (const Case& c : cases)
    for (const char* command : {"show", "versions", "fips", "certs", "validate"}) {
      const ToolResult r = Run({command, c.file});
      EXPECT_EQ(r.exitStatus, 3) << command << " " << c.file;
      EXPECT_EQ(r.out, "");
      const std::string line = std::string("sitelist ") + command + ": " + c.file + ": " + c.reason + "\n";
      ASSERT_GE(r.err.size(), line.size()) << r.err;
      EXPECT_EQ(r.err.substr(r.err.size() - line.size()), line) << r.err;
    }
}

TEST_F(Errors, AFileWithoutReadPermissionIsNamed) {
  WriteFile(Tmp("locked.xml"), Original());
  chmod(Tmp("locked.xml").c_str(), 0);
  // Root reads every file; without its file capabilities it reads like anyone.
  const std::vector<std::string> wrapper =
      geteuid() == 0 ? std::vector<std::string>{"/usr/bin/setpriv", "--bounding-set=-dac_override,-dac_read_search",
                                                "--inh-caps=-dac_override,-dac_read_search"}
                     : std::vector<std::string>{};
  for (const char* command : {"show", "versions", "fips", "certs", "validate", "diff", "import", "install"}) {
    std::vector<std::string> args{command, Tmp("locked.xml")};
    if (std::string(command) == "diff") args.push_back(OwnList());
    const ToolResult r = RunToolThrough(wrapper, args, Env());
    EXPECT_EQ(r.exitStatus, 3) << command << ": " << r.err;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, std::string("sitelist ") + command + ": " + Tmp("locked.xml") + ": permission denied\n");
  }
  // The agent's own list, read by the commands that work on it.
  chmod(OwnList().c_str(), 0);
  const Snapshot before = SnapshotOf(DataDir());
  for (const std::vector<std::string>& args : {std::vector<std::string>{"show"}, {"export"}, {"server-info"},
                                               {"disable", "Own"}, {"rewrite", "--server", Tmp("original.xml")}}) {
    const ToolResult r = RunToolThrough(wrapper, args, Env());
    EXPECT_EQ(r.exitStatus, 3) << args[0] << ": " << r.err;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "sitelist " + args[0] + ": " + OwnList() + ": permission denied\n");
  }
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

// The end tag on line 5 closes an element that is not open; the parser
// places the fault at the name in that tag.
const char c_mismatched[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"1\" LocalVersion=\"2\">\n"
    "  <SiteList>\n"
    "    <HttpSite Name=\"x\" Server=\"x.test.example:80\">\n"
    "    </SiteList>\n"
    "  </HttpSite>\n"
    "</ns:SiteLists>\n";

TEST_F(Errors, EveryCommandThatReadsAListNamesTheLineAndColumnOfTheFault) {
  WriteFile(Tmp("bad.xml"), c_mismatched);
  const std::string place = Tmp("bad.xml") + ":5:7: XML is not well formed: mismatched tag\n";
  const std::vector<std::vector<std::string>> commands{
      {"show", Tmp("bad.xml")},     {"versions", Tmp("bad.xml")},
      {"fips", Tmp("bad.xml")},     {"certs", Tmp("bad.xml")},
      {"validate", Tmp("bad.xml")}, {"diff", Tmp("bad.xml"), OwnList()},
      {"diff", OwnList(), Tmp("bad.xml")},
      {"import", Tmp("bad.xml")},   {"install", Tmp("bad.xml")},
      {"rewrite", "--server", Tmp("bad.xml")},
      {"import", "--dry-run", Tmp("bad.xml")}};
  const Snapshot before = SnapshotOf(DataDir());
  for (const std::vector<std::string>& args : commands) {
    const ToolResult r = Run(args);
    EXPECT_EQ(r.exitStatus, 4) << args[0];
    EXPECT_EQ(r.out, "") << args[0];
    EXPECT_EQ(r.err, place) << args[0];
  }
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

TEST_F(Errors, EveryCommandOnTheAgentsListNamesTheLineAndColumnOfTheFault) {
  WriteFile(OwnList(), c_mismatched);
  const std::string place = OwnList() + ":5:7: XML is not well formed: mismatched tag\n";
  const std::vector<std::vector<std::string>> commands{
      {"show"},        {"export"},          {"server-info"}, {"check", "--no-lookup"},
      {"disable", "x"}, {"add-site", "--kind", "http", "--name", "n", "--server", "n.test.example"},
      {"set-server", "--port", "443", "--ip", "192.0.2.9", "--server", "s.test.example", "--netbios", "S"},
      {"server-list"}, {"rewrite", "--repositories", Tmp("original.xml")}, {"set-proxy", "--none", "--dry-run"}};
  const Snapshot before = SnapshotOf(DataDir());
  for (const std::vector<std::string>& args : commands) {
    const ToolResult r = Run(args);
    EXPECT_EQ(r.exitStatus, 4) << args[0];
    EXPECT_EQ(r.out, "") << args[0];
    EXPECT_EQ(r.err, place) << args[0];
  }
  EXPECT_EQ(SnapshotOf(DataDir()), before);
  // Text read from stdin is named as such.
  const ToolResult load = Run({"load", "--site-list", Tmp("copy.xml")}, c_mismatched);
  EXPECT_EQ(load.exitStatus, 4);
  EXPECT_EQ(load.err, "<stdin>:5:7: XML is not well formed: mismatched tag\n");
  EXPECT_FALSE(testsupport::FileExists(Tmp("copy.xml")));
}

TEST_F(Errors, ADocumentThatIsNotASiteListIsRefusedWithItsRootNamed) {
  WriteFile(Tmp("other.xml"), "<?xml version=\"1.0\"?>\n<config><SiteList/></config>\n");
  const Snapshot before = SnapshotOf(DataDir());
  for (const char* command : {"show", "versions", "fips", "certs", "validate", "import", "install"}) {
    const ToolResult r = Run({command, Tmp("other.xml")});
    EXPECT_EQ(r.exitStatus, 4) << command;
    EXPECT_EQ(r.out, "") << command;
    EXPECT_EQ(r.err, std::string("sitelist ") + command + ": " + Tmp("other.xml") +
                         ": not a site list: its root element is \"config\", not SiteLists\n");
  }
  EXPECT_EQ(SnapshotOf(DataDir()), before);
  WriteFile(OwnList(), "<a:Lists xmlns:a=\"zelSiteList\"/>");
  const ToolResult edit = Run({"disable", "Own"});
  EXPECT_EQ(edit.exitStatus, 4);
  EXPECT_EQ(edit.err, "sitelist disable: " + OwnList() + ": not a site list: its root element is \"a:Lists\", not SiteLists\n");
  const ToolResult load = Run({"load", "--site-list", Tmp("copy.xml")}, "<config/>");
  EXPECT_EQ(load.exitStatus, 4);
  EXPECT_EQ(load.err, "sitelist load: <stdin>: not a site list: its root element is \"config\", not SiteLists\n");
  EXPECT_FALSE(testsupport::FileExists(Tmp("copy.xml")));
}

TEST_F(Errors, AMissingAgentListIsNamedByEveryCommandThatReadsIt) {
  std::filesystem::remove(OwnList());
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{"show"}, {"versions"}, {"fips"}, {"certs"}, {"export"}, {"server-info"},
        {"disable", "Own"}, {"server-list"}, {"rewrite", "--server", Tmp("original.xml")}}) {
    const ToolResult r = Run(args);
    EXPECT_EQ(r.exitStatus, 3) << args[0];
    EXPECT_EQ(r.out, "") << args[0];
    EXPECT_EQ(r.err, "sitelist " + args[0] + ": " + OwnList() + ": no such file\n") << args[0];
  }
  EXPECT_FALSE(testsupport::FileExists(OwnList()));
}

TEST_F(Errors, ALockNotObtainedGivesStatusSixAndWritesNothing) {
  WriteFile(Tmp("plain-file"), "x");
  const Snapshot before = SnapshotOf(DataDir());
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{"show"}, std::vector<std::string>{"disable", "Own"},
        std::vector<std::string>{"set-server", "--port", "1", "--ip", "192.0.2.9", "--server", "s", "--netbios", "n"}}) {
    const ToolResult r = RunWith({{"VLM_LOCK_DIR", Tmp("plain-file") + "/locks"}}, args);
    EXPECT_EQ(r.exitStatus, 6) << args[0] << ": " << r.err;
    EXPECT_EQ(r.out, "");
    const std::string line = "sitelist " + args[0] + ": the lock \"SiteListLock\" could not be obtained\n";
    ASSERT_GE(r.err.size(), line.size());
    EXPECT_EQ(r.err.substr(r.err.size() - line.size()), line) << r.err;
    EXPECT_NE(r.err.find("[ERROR] SiteHlp: Unable to take lock SiteListLock\n"), std::string::npos);
  }
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

TEST_F(Errors, SetServerRefusesBadValuesBeforeWriting) {
  const Snapshot before = SnapshotOf(DataDir());
  struct Case {
    std::string port, ip, server, netbios, err;
  };
  const Case cases[] = {
      {"443", "192.0.2.9", "", "N", "sitelist set-server: --server must not be empty\n"},
      {"443", "192.0.2.9", "s.test.example", "", "sitelist set-server: --netbios must not be empty\n"},
      {"443", "not-an-ip", "s.test.example", "N",
       "sitelist set-server: --ip: \"not-an-ip\" is neither an IPv4 nor an IPv6 address\n"},
      {"443", "192.0.2.300", "s.test.example", "N",
       "sitelist set-server: --ip: \"192.0.2.300\" is neither an IPv4 nor an IPv6 address\n"},
      {"443", "[192.0.2.9]", "s.test.example", "N",
       "sitelist set-server: --ip: \"[192.0.2.9]\" is neither an IPv4 nor an IPv6 address\n"},
      {"70000", "192.0.2.9", "s", "N", "--port: Value 70000 not in range 1 to 65535\nRun with --help for more information.\n"},
      {"0", "192.0.2.9", "s", "N", "--port: Value 0 not in range 1 to 65535\nRun with --help for more information.\n"},
  };
  for (const Case& c : cases) {
    const ToolResult r =
        Run({"set-server", "--port", c.port, "--ip", c.ip, "--server", c.server, "--netbios", c.netbios});
    EXPECT_EQ(r.exitStatus, 2) << c.err;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, c.err);
  }
  EXPECT_EQ(SnapshotOf(DataDir()), before);
  // IPv6, bare or in brackets, is an address.
  for (const char* ip : {"2001:db8::5", "[2001:db8::5]"}) {
    const ToolResult r =
        Run({"set-server", "--port", "443", "--ip", ip, "--server", "s.test.example", "--netbios", "N"});
    EXPECT_EQ(r.exitStatus, 0) << r.err;
  }
}

TEST_F(Errors, RewriteWithoutASectionIsAUsageError) {
  const Snapshot before = SnapshotOf(DataDir());
  const ToolResult r = Run({"rewrite", Tmp("original.xml")});
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "sitelist rewrite: give --repositories, --server or both\n");
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

TEST_F(Errors, ImportOfAListWithoutSitesWritesNothing) {
  WriteFile(Tmp("empty.xml"), R"(<ns:SiteLists xmlns:ns="zelSiteList" GlobalVersion="1"><SiteList/></ns:SiteLists>)");
  const Snapshot before = SnapshotOf(DataDir());
  for (const char* command : {"import", "install"}) {
    const ToolResult r = Run({command, Tmp("empty.xml")});
    EXPECT_EQ(r.exitStatus, 1) << command;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "[ERROR] SiteHlp: Failed hr=0\nsitelist " + std::string(command) + ": " + Tmp("empty.xml") +
                         " holds no site; nothing was " + (std::string(command) == "import" ? "imported" : "installed") +
                         "\n");
  }
  EXPECT_EQ(SnapshotOf(DataDir()), before);
}

}  // namespace
}  // namespace tooltest
