// Reading never blocks on anything but a lock: a FIFO, socket, device or
// directory where a site list or a key file should be is refused at once,
// while the reader holds "SiteListLock", so a writer waiting behind it gets
// through. A list beyond the size limit is refused with a line that says why.
#include <gtest/gtest.h>
#include <errno.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "port/config/IConfiguration.h"
#include "port/fs/SysCalls.h"
#include "sitehlp/OutsideListText.h"
#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace {

using sitehlp::CSitesHelper;
using sitehlp::tag_Site;
using testsupport::CapturingLogSink;
using testsupport::ConfigScope;
using testsupport::MakeSpecialFile;
using testsupport::ReadFile;
using testsupport::Wide;
using testsupport::WriteFile;

const char kOwnList[] =
    "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"1\" LocalVersion=\"2\" Type=\"Client\">"
    "<SiteList Default=\"1\" Name=\"SomeGUID\"><SpipeSite Type=\"master\" Name=\"Vantor_MasterSite\" Order=\"1\" "
    "Enabled=\"1\" Local=\"0\" Server=\"mgmt.corp.example:443\"><RelativePath>Software</RelativePath></SpipeSite>"
    "</SiteList></ns:SiteLists>\n";

// ---- a writer waiting behind the reader ---------------------------------------

// Pipes between the reader and the writer, and the file the reader reads.
int g_goToWriter[2];
int g_writerWaits[2];
std::string g_special;

// The writer tells the reader once it is about to wait for "SiteListLock".
int SignallingLock(int fd, int cmd, struct flock* lock) {
  static bool told = false;
  if (!told && cmd == F_OFD_SETLKW && lock->l_type == F_WRLCK) {
    told = true;
    const char byte = 'w';
    if (write(g_writerWaits[1], &byte, 1) != 1) _exit(5);
  }
  return port::RealSysCalls().fcntlLock(fd, cmd, lock);
}

// The reader, holding the shared lock, opens the special file only once the
// writer waits for the lock behind it.
int OpenOnceTheWriterWaits(const char* path, int flags, mode_t mode) {
  if (g_special == path) {
    const char go = 'g';
    char waits = 0;
    if (write(g_goToWriter[1], &go, 1) != 1 || read(g_writerWaits[0], &waits, 1) != 1) _exit(6);
    usleep(50 * 1000);  // into its blocking wait
  }
  return port::RealSysCalls().open(path, flags, mode);
}

[[noreturn]] void Writer(const std::wstring& ownList) {
  alarm(10);
  char go = 0;
  if (read(g_goToWriter[0], &go, 1) != 1) _exit(7);
  port::SysCalls table = port::RealSysCalls();
  table.fcntlLock = SignallingLock;
  port::Sys() = table;
  CSitesHelper helper(ownList);
  tag_Site* list = nullptr;
  if (helper.ReadSiteList(L"", &list) != 0) _exit(8);
  const int rc = helper.CreateSiteList(list, L"", L"", L"20300101000000", L"", {});
  helper.FreeSiteListMemory(list);
  _exit(rc == 0 ? 0 : 9);
}

// The reader's side, in a child the alarm ends if it waits: 0 when the read
// gave -10 and the writer waiting behind it wrote the list.
int ReaderWithAWriterBehind(const std::wstring& ownList, const std::string& special) {
  const pid_t pid = fork();
  if (pid != 0) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
  }
  alarm(10);
  if (pipe(g_goToWriter) != 0 || pipe(g_writerWaits) != 0) _exit(20);
  g_special = special;
  const pid_t writer = fork();
  if (writer == 0) Writer(ownList);
  port::SysCalls table = port::RealSysCalls();
  table.open = OpenOnceTheWriterWaits;
  port::Sys() = table;
  CSitesHelper helper(ownList);
  tag_Site* list = nullptr;
  const int rc = helper.ReadSiteList(Wide(special), &list);
  port::Sys() = port::RealSysCalls();
  int status = 0;
  if (waitpid(writer, &status, 0) != writer) _exit(21);
  if (rc != -10 || list != nullptr) _exit(22);
  if (!WIFEXITED(status)) _exit(23);
  if (WEXITSTATUS(status) != 0) _exit(30 + WEXITSTATUS(status));
  _exit(0);
}

class SpecialFileTest : public ::testing::TestWithParam<const char*> {
 protected:
  SpecialFileTest() { WriteFile(m_config.dir().file("data/etc/SiteList.xml"), kOwnList); }
  std::wstring OwnList() const { return m_config.defaultSiteList(); }
  ConfigScope m_config;
};

TEST_P(SpecialFileTest, ReadingGivesMinusTenAtOnceAndTheWriterWaitingBehindGetsThrough) {
  const std::string special = m_config.dir().file(GetParam());
  const int socketFd = MakeSpecialFile(GetParam(), special);
  ASSERT_NE(-2, socketFd);
  EXPECT_EQ(0, ReaderWithAWriterBehind(OwnList(), special));
  EXPECT_NE(std::string::npos, ReadFile(testsupport::Narrow(OwnList())).find("LocalVersion=\"20300101000000\""));
  if (socketFd >= 0) close(socketFd);
}

TEST_P(SpecialFileTest, EveryReadingOperationRefusesIt) {
  const std::string special = m_config.dir().file(GetParam());
  const int socketFd = MakeSpecialFile(GetParam(), special);
  ASSERT_NE(-2, socketFd);
  CapturingLogSink log;
  CSitesHelper helper(OwnList());
  tag_Site* list = nullptr;
  EXPECT_EQ(-10, helper.ReadSiteList(Wide(special), &list));
  EXPECT_EQ(-10, helper.MustReadSiteList(Wide(special), &list));
  EXPECT_EQ(nullptr, list);
  std::wstring global, local, type;
  EXPECT_EQ(-1, helper.GetSitelistVersions(Wide(special), global, local, type));
  std::vector<std::wstring> certificates;
  EXPECT_EQ(-10, helper.GetCaCertificates(Wide(special), certificates));
  EXPECT_EQ(-10, helper.ImportSiteList(Wide(special), L""));
  EXPECT_EQ(kOwnList, ReadFile(testsupport::Narrow(OwnList())));
  if (socketFd >= 0) close(socketFd);
}

INSTANTIATE_TEST_SUITE_P(Kinds, SpecialFileTest, ::testing::Values("fifo", "socket", "device", "directory"),
                         [](const ::testing::TestParamInfo<const char*>& info) { return std::string(info.param); });

TEST(SpecialKeyFile, AKeyFileThatIsAFifoFailsTheImportAtOnceAndChangesNothing) {
  ConfigScope config;
  WriteFile(config.dir().file("data/etc/SiteList.xml"), kOwnList);
  testsupport::TempDir source;
  WriteFile(source.file("SiteList.xml"), outsidelist::Document({outsidelist::SpipeSite({})}));
  ASSERT_EQ(0, mkfifo(source.file("srpubkey.bin").c_str(), 0644));
  WriteFile(source.file("reqseckey.bin"), "request key");
  const pid_t pid = fork();
  if (pid == 0) {
    alarm(10);
    CSitesHelper helper;
    _exit(helper.InstallSiteList(source.wfile("SiteList.xml"), L"") == -1 ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(pid, waitpid(pid, &status, 0));
  ASSERT_TRUE(WIFEXITED(status)) << "the install waited on the FIFO";
  EXPECT_EQ(0, WEXITSTATUS(status));
  EXPECT_EQ(kOwnList, ReadFile(config.dir().file("data/etc/SiteList.xml")));
  EXPECT_FALSE(testsupport::FileExists(config.dir().file("data/etc/reqseckey.bin")));
}

// ---- the size limit -------------------------------------------------------------

TEST(SiteListSizeLimit, AListBeyondTheDefaultLimitIsRefusedWithALineThatSaysWhy) {
  ConfigScope config;
  const std::string path = config.dir().file("data/etc/SiteList.xml");
  WriteFile(path, "");
  ASSERT_EQ(0, truncate(path.c_str(), 16 * 1024 * 1024 + 1));  // sparse
  CSitesHelper helper;
  CapturingLogSink log;
  tag_Site* list = nullptr;
  EXPECT_EQ(-10, helper.ReadSiteList(L"", &list));
  EXPECT_EQ(nullptr, list);
  EXPECT_EQ(std::vector<std::wstring>{L"Unable to read " + Wide(path) +
                                      L": larger than the limit of 16777216 bytes (VLM_MAX_SITELIST_BYTES): "
                                      L"16777217 bytes or more"},
            log.messages(port::LogLevel::Error));
  // One byte less is read (and found not to be a document).
  ASSERT_EQ(0, truncate(path.c_str(), 16 * 1024 * 1024));
  log.clear();
  EXPECT_EQ(-5, helper.ReadSiteList(L"", &list));
  EXPECT_TRUE(log.messages(port::LogLevel::Error).empty());
}

TEST(SiteListSizeLimit, TheLimitIsTheSetting) {
  ConfigScope config;
  const std::string path = config.dir().file("data/etc/SiteList.xml");
  WriteFile(path, kOwnList);
  const std::string size = std::to_string(sizeof kOwnList - 1);
  port::SetConfigValue(port::ConfigKey::MaxSiteListBytes, size);
  CSitesHelper helper;
  tag_Site* list = nullptr;
  ASSERT_EQ(0, helper.ReadSiteList(L"", &list));
  helper.FreeSiteListMemory(list);
  list = nullptr;
  port::SetConfigValue(port::ConfigKey::MaxSiteListBytes, std::to_string(sizeof kOwnList - 2));
  CapturingLogSink log;
  EXPECT_EQ(-10, helper.ReadSiteList(L"", &list));
  EXPECT_EQ(std::vector<std::wstring>{L"Unable to read " + Wide(path) + L": larger than the limit of " +
                                      Wide(std::to_string(sizeof kOwnList - 2)) +
                                      L" bytes (VLM_MAX_SITELIST_BYTES): " + Wide(size) + L" bytes or more"},
            log.messages(port::LogLevel::Error));
}

}  // namespace
