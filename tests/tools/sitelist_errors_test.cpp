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
  for (const char* command : {"show", "versions", "certs", "diff"}) {
    std::vector<std::string> args{command, Tmp("locked.xml")};
    if (std::string(command) == "diff") args.push_back(OwnList());
    const ToolResult r = RunToolThrough(wrapper, args, Env());
    EXPECT_EQ(r.exitStatus, 3) << command << ": " << r.err;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, std::string("sitelist ") + command + ": " + Tmp("locked.xml") + ": permission denied\n");
  }
}

TEST_F(Errors, AListThatIsNotWellFormedGivesStatusFour) {
  // The end tag does not match.
  WriteFile(Tmp("bad.xml"), "<ns:SiteLists xmlns:ns=\"zelSiteList\">\n<SiteList>\n</CaBundle>\n</ns:SiteLists>\n");
  for (const char* command : {"show", "versions", "fips", "certs", "validate"}) {
    const ToolResult r = Run({command, Tmp("bad.xml")});
    EXPECT_EQ(r.exitStatus, 4) << command;
    EXPECT_EQ(r.out, "");
    const std::string line = std::string("sitelist ") + command + ": XML is not well formed (-5)\n";
    EXPECT_EQ(r.err, (std::string(command) == "validate" ? "[ERROR] SiteHlp: Failed hr=-5\n" : "") + line);
  }
  WriteFile(OwnList(), ReadFile(Tmp("bad.xml")));
  const ToolResult edit = Run({"disable", "Own"});
  EXPECT_EQ(edit.exitStatus, 4);
  EXPECT_EQ(edit.err, "sitelist disable: XML is not well formed (-5)\n");
  EXPECT_EQ(ReadFile(OwnList()), ReadFile(Tmp("bad.xml")));
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
