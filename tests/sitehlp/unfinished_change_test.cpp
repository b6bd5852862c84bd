// What a reader does with the record of an interrupted change it cannot
// finish: a damaged record is removed and said once, a record it cannot open
// is left and said once, and the list is read as it is either way.
#include <gtest/gtest.h>

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "port/fs/SysCalls.h"
#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace {

using sitehlp::CSitesHelper;
using sitehlp::tag_Site;
using testsupport::ReadFile;
using testsupport::Wide;
using testsupport::WriteFile;

const std::string kList =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20250101000000\" LocalVersion=\"20250101000001\" "
    "Type=\"Client\"><SiteList Default=\"1\" Name=\"SomeGUID\">"
    "<HttpSite Type=\"repository\" Name=\"Http\" Order=\"1\" Enabled=\"1\" Local=\"0\" "
    "Server=\"update.vlm.example:80\"><RelativePath>Updates</RelativePath></HttpSite>"
    "</SiteList></ns:SiteLists>\n";

class UnfinishedChangeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_etc = m_config.dataDir() + "/etc";
    m_list = m_etc + "/SiteList.xml";
    m_record = m_etc + "/.pending-change";
    WriteFile(m_list, kList);
  }
  // Reads the list; the number of records, or -1000 - the code on failure.
  int ReadRecords() {
    CSitesHelper helper(Wide(m_list));
    tag_Site* list = nullptr;
    const int rc = helper.ReadSiteList(Wide(m_list), &list);
    int n = 0;
    for (tag_Site* s = list; s; s = s->pNext) ++n;
    helper.FreeSiteListMemory(list);
    return rc == 0 ? n : -1000 + rc;
  }

  testsupport::ConfigScope m_config;
  testsupport::CapturingLogSink m_log;
  std::string m_etc, m_list, m_record;
};

TEST_F(UnfinishedChangeTest, ADamagedRecordIsRemovedTheListReadAndTheFaultSaidOncePerDirectory) {
  WriteFile(m_record, "not a change record\n");
  ASSERT_EQ(1, ReadRecords());
  EXPECT_NE(0, access(m_record.c_str(), F_OK));
  EXPECT_EQ(kList, ReadFile(m_list));
  const std::wstring line = L"The record of an interrupted change in " + Wide(m_etc) +
                            L" is damaged and was removed; its files are left as they are";
  EXPECT_EQ(std::vector<std::wstring>{line}, m_log.messages(port::LogLevel::Error));

  // The same fault again in the same directory is handled and not said again.
  m_log.clear();
  WriteFile(m_record, "still not a change record\n");
  ASSERT_EQ(1, ReadRecords());
  EXPECT_NE(0, access(m_record.c_str(), F_OK));
  EXPECT_EQ(std::vector<std::wstring>{}, m_log.messages(port::LogLevel::Error));
}

int g_recordOpenError = 0;

int OpenFailingForTheRecord(const char* path, int flags, mode_t mode) {
  const std::string p(path);
  const std::string name = "/.pending-change";
  if (p.size() >= name.size() && p.compare(p.size() - name.size(), name.size(), name) == 0) {
    errno = g_recordOpenError;
    return -1;
  }
  return port::RealSysCalls().open(path, flags, mode);
}

TEST_F(UnfinishedChangeTest, ARecordThatCannotBeOpenedIsLeftTheListReadAndTheFaultSaidOnce) {
  WriteFile(m_record, "a record the reader may not open\n");
  port::SysCalls table = port::RealSysCalls();
  table.open = OpenFailingForTheRecord;
  g_recordOpenError = EIO;
  {
    port::ScopedSysCallOverride faulty(table);
    ASSERT_EQ(1, ReadRecords());
    ASSERT_EQ(1, ReadRecords());
  }
  EXPECT_EQ(0, access(m_record.c_str(), F_OK));
  EXPECT_EQ(kList, ReadFile(m_list));
  const std::wstring line = L"Unable to finish the interrupted change in " + Wide(m_etc) + L": " +
                            Wide(strerror(EIO));
  EXPECT_EQ(std::vector<std::wstring>{line}, m_log.messages(port::LogLevel::Error));
}

}  // namespace
