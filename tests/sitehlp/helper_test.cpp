// The helper object: construction, the default site list location, policy
// settings and the managed question.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cwchar>
#include <string>
#include <type_traits>

#include "port/config/IConfiguration.h"
#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace {

using sitehlp::CSitesHelper;
using testsupport::CapturingLogSink;

const char kServerList[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
    "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20200101000000\" LocalVersion=\"20200102000000\" "
    "Type=\"Server\"><SiteList Default=\"1\" Name=\"SomeGUID\"/></ns:SiteLists>";

const char kOtherList[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
    "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20211111111111\" LocalVersion=\"20211212121212\">"
    "<SiteList Default=\"1\" Name=\"SomeGUID\"/></ns:SiteLists>";

class SitesHelperObjectTest : public ::testing::Test {
 protected:
  testsupport::ConfigScope m_config;
};

// ---- Construction -------------------------------------------------------------------

TEST_F(SitesHelperObjectTest, DefaultConstructorUsesSiteListInEtcOfDataDirectory) {
  CSitesHelper helper;
  EXPECT_EQ(helper.GetSiteListPath(), m_config.wdataDir() + L"/etc/SiteList.xml");
  EXPECT_EQ(helper.GetSiteListPath(), m_config.defaultSiteList());
}

TEST_F(SitesHelperObjectTest, DefaultConstructorFollowsTheConfiguredDataDirectory) {
  const std::string other = m_config.dir().file("elsewhere");
  port::SetConfigValue(port::ConfigKey::DataDir, other);
  CSitesHelper helper;
  EXPECT_EQ(helper.GetSiteListPath(), testsupport::Wide(other) + L"/etc/SiteList.xml");
}

TEST_F(SitesHelperObjectTest, DefaultConstructorJoinsTheDirectoryCutTo259Characters) {
  const std::string longDir = m_config.dir().file(std::string(300, 'd'));
  port::SetConfigValue(port::ConfigKey::DataDir, longDir);
  const std::wstring directory = (testsupport::Wide(longDir) + L"/etc").substr(0, 259);
  ASSERT_NE(directory.back(), L'/');
  CSitesHelper helper;
  EXPECT_EQ(helper.GetSiteListPath(), directory + L"/SiteList.xml");
  EXPECT_EQ(helper.GetGlobalVersion(), L"");
  EXPECT_EQ(helper.GetSiteListType(), L"Client");
}

TEST(SitesHelperClassTest, IsPolymorphicThroughItsVirtualDestructor) {
  EXPECT_TRUE(std::is_polymorphic<CSitesHelper>::value);
  EXPECT_TRUE(std::has_virtual_destructor<CSitesHelper>::value);
}

TEST_F(SitesHelperObjectTest, DefaultConstructorForMissingFileLeavesVersionsEmptyAndTypeClient) {
  ASSERT_FALSE(testsupport::FileExists(testsupport::Narrow(m_config.defaultSiteList())));
  CSitesHelper helper;
  EXPECT_EQ(helper.GetGlobalVersion(), L"");
  EXPECT_EQ(helper.GetLocalVersion(), L"");
  EXPECT_EQ(helper.GetSiteListType(), L"Client");
  EXPECT_EQ(helper.GetCurrentPath(), L"");
  EXPECT_TRUE(helper.GetPolicySettings().empty());
}

TEST_F(SitesHelperObjectTest, PathConstructorForMissingFileLeavesVersionsEmptyAndTypeClient) {
  const std::wstring path = m_config.dir().wfile("absent.xml");
  CSitesHelper helper(path);
  EXPECT_EQ(helper.GetSiteListPath(), path);
  EXPECT_EQ(helper.GetGlobalVersion(), L"");
  EXPECT_EQ(helper.GetLocalVersion(), L"");
  EXPECT_EQ(helper.GetSiteListType(), L"Client");
  EXPECT_EQ(helper.GetCurrentPath(), L"");
}

TEST_F(SitesHelperObjectTest, DefaultConstructorReadsVersionsAndTypeOfTheDefaultFile) {
  testsupport::WriteFile(testsupport::Narrow(m_config.defaultSiteList()), kServerList);
  CSitesHelper helper;
  EXPECT_EQ(helper.GetGlobalVersion(), L"20200101000000");
  EXPECT_EQ(helper.GetLocalVersion(), L"20200102000000");
  EXPECT_EQ(helper.GetSiteListType(), L"Server");
}

TEST_F(SitesHelperObjectTest, PathConstructorReadsVersionsAndTypeOfThatFile) {
  // The default list holds other versions: the given path must win.
  testsupport::WriteFile(testsupport::Narrow(m_config.defaultSiteList()), kServerList);
  const std::string path = m_config.dir().file("given.xml");
  testsupport::WriteFile(path, kOtherList);
  CSitesHelper helper(testsupport::Wide(path));
  EXPECT_EQ(helper.GetSiteListPath(), testsupport::Wide(path));
  EXPECT_EQ(helper.GetGlobalVersion(), L"20211111111111");
  EXPECT_EQ(helper.GetLocalVersion(), L"20211212121212");
  EXPECT_EQ(helper.GetSiteListType(), L"Client");
}

TEST_F(SitesHelperObjectTest, PathConstructorKeepsTheGivenPathVerbatim) {
  CSitesHelper helper(std::wstring(L"relative/dir/../SiteList.xml"));
  EXPECT_EQ(helper.GetSiteListPath(), L"relative/dir/../SiteList.xml");
}

TEST_F(SitesHelperObjectTest, ConstructorOfUnparsableFileEmptiesVersionsAndKeepsTypeClient) {
  testsupport::WriteFile(testsupport::Narrow(m_config.defaultSiteList()), "<ns:SiteLists GlobalVersion=");
  CSitesHelper helper;
  EXPECT_EQ(helper.GetGlobalVersion(), L"");
  EXPECT_EQ(helper.GetLocalVersion(), L"");
  EXPECT_EQ(helper.GetSiteListType(), L"Client");
}

TEST_F(SitesHelperObjectTest, DefaultConstructorTracesItsSteps) {
  CapturingLogSink sink;
  { CSitesHelper helper; }
  ASSERT_FALSE(sink.lines().empty());
  EXPECT_EQ(sink.lines().front().level, port::LogLevel::Detail);
  EXPECT_EQ(sink.lines().front().component, L"SiteHlp");
  EXPECT_EQ(sink.lines().front().message, L"Entering Constructing sites helper object");
  EXPECT_TRUE(sink.contains(L"Entering Getting Sitelist file name"));
  EXPECT_TRUE(sink.contains(L"Entering Getting Sitelist versions"));
  EXPECT_EQ(sink.lines().back().message, L"Leaving Constructing sites helper object");
  EXPECT_TRUE(sink.messages(port::LogLevel::Error).empty());
}

TEST_F(SitesHelperObjectTest, PathConstructorTracesWithFullPathMessageAndAsksNoDirectory) {
  CapturingLogSink sink;
  { CSitesHelper helper(m_config.dir().wfile("absent.xml")); }
  ASSERT_FALSE(sink.lines().empty());
  EXPECT_EQ(sink.lines().front().component, L"SiteHlp");
  EXPECT_EQ(sink.lines().front().message, L"Entering Constructing sites helper object with full path");
  EXPECT_FALSE(sink.contains(L"Entering Getting Sitelist file name"));
  EXPECT_EQ(sink.lines().back().message, L"Leaving Constructing sites helper object with full path");
}

TEST_F(SitesHelperObjectTest, DestructorLeavesTheProcessWideCacheAlone) {
  auto* cached = static_cast<sitehlp::tag_Site*>(std::calloc(1, sizeof(sitehlp::tag_Site)));
  sitehlp::tag_Site* const previous = CSitesHelper::m_pSiteList;
  CSitesHelper::m_pSiteList = cached;
  { CSitesHelper helper(m_config.defaultSiteList()); }
  EXPECT_EQ(CSitesHelper::m_pSiteList, cached);
  EXPECT_EQ(cached->pNext, nullptr);
  CSitesHelper::m_pSiteList = previous;
  std::free(cached);
}

// ---- GetSiteListFilename ----------------------------------------------------------------

TEST_F(SitesHelperObjectTest, GetSiteListFilenameWritesTheDirectoryNotTheFile) {
  CSitesHelper helper;
  wchar_t buffer[260];
  EXPECT_EQ(helper.GetSiteListFilename(buffer, 260), 0);
  EXPECT_EQ(std::wstring(buffer), m_config.wdataDir() + L"/etc");
}

TEST_F(SitesHelperObjectTest, GetSiteListFilenameCutsToCapacityLessOne) {
  CSitesHelper helper;
  const std::wstring full = m_config.wdataDir() + L"/etc";
  ASSERT_GT(full.size(), 10u);
  wchar_t buffer[20];
  for (wchar_t& c : buffer) c = L'Q';
  EXPECT_EQ(helper.GetSiteListFilename(buffer, 10), 0);
  EXPECT_EQ(std::wstring(buffer), full.substr(0, 9));
  EXPECT_EQ(buffer[9], L'\0');
  // Nothing beyond the capacity is written.
  for (int i = 10; i < 20; ++i) EXPECT_EQ(buffer[i], L'Q') << "at " << i;
}

TEST_F(SitesHelperObjectTest, GetSiteListFilenameOfExactFitKeepsEverything) {
  CSitesHelper helper;
  const std::wstring full = m_config.wdataDir() + L"/etc";
  std::wstring buffer(full.size() + 1, L'Q');
  EXPECT_EQ(helper.GetSiteListFilename(&buffer[0], static_cast<unsigned long>(buffer.size())), 0);
  EXPECT_EQ(std::wstring(buffer.c_str()), full);
}

TEST_F(SitesHelperObjectTest, GetSiteListFilenameTracesItsStep) {
  CSitesHelper helper;
  wchar_t buffer[260];
  CapturingLogSink sink;
  helper.GetSiteListFilename(buffer, 260);
  ASSERT_EQ(sink.lines().size(), 2u);
  EXPECT_EQ(sink.lines()[0].component, L"SiteHlp");
  EXPECT_EQ(sink.lines()[0].message, L"Entering Getting Sitelist file name");
  EXPECT_EQ(sink.lines()[1].message, L"Leaving Getting Sitelist file name");
}

// ---- Policy settings -----------------------------------------------------------------------

TEST_F(SitesHelperObjectTest, GetPolicySettingOfUnknownNameReturnsFalseAndLeavesOutputUnchanged) {
  CSitesHelper helper;
  std::wstring value = L"previous";
  EXPECT_FALSE(helper.GetPolicySetting(L"a", value));
  EXPECT_EQ(value, L"previous");
}

TEST_F(SitesHelperObjectTest, GetPolicySettingAfterSetReturnsTrueAndTheValue) {
  CSitesHelper helper;
  helper.SetPolicySetting(L"a", L"1");
  std::wstring value = L"previous";
  EXPECT_TRUE(helper.GetPolicySetting(L"a", value));
  EXPECT_EQ(value, L"1");
}

TEST_F(SitesHelperObjectTest, SetPolicySettingOverwritesAnExistingValue) {
  CSitesHelper helper;
  helper.SetPolicySetting(L"OverwriteClientSites", L"1");
  helper.SetPolicySetting(L"OverwriteClientSites", L"0");
  std::wstring value;
  EXPECT_TRUE(helper.GetPolicySetting(L"OverwriteClientSites", value));
  EXPECT_EQ(value, L"0");
  EXPECT_EQ(helper.GetPolicySettings().size(), 1u);
}

TEST_F(SitesHelperObjectTest, PolicySettingNamesAreCaseSensitive) {
  CSitesHelper helper;
  helper.SetPolicySetting(L"a", L"1");
  std::wstring value = L"previous";
  EXPECT_FALSE(helper.GetPolicySetting(L"A", value));
  EXPECT_EQ(value, L"previous");
}

TEST_F(SitesHelperObjectTest, PolicySettingsBelongToOneHelper) {
  CSitesHelper first;
  CSitesHelper second;
  first.SetPolicySetting(L"a", L"1");
  std::wstring value = L"previous";
  EXPECT_FALSE(second.GetPolicySetting(L"a", value));
  EXPECT_EQ(value, L"previous");
}

// ---- IsOrxManaged ----------------------------------------------------------------------------

TEST_F(SitesHelperObjectTest, IsOrxManagedWithOverrideMinusOneIsTrueAlthoughConfigurationSaysNotManaged) {
  port::SetConfigValue(port::ConfigKey::Managed, "0");
  CSitesHelper helper;
  helper.SetManagedOverride(-1);
  EXPECT_TRUE(helper.IsOrxManaged());
}

TEST_F(SitesHelperObjectTest, IsOrxManagedWithOverrideMinusTwoIsFalseAlthoughConfigurationSaysManaged) {
  port::SetConfigValue(port::ConfigKey::Managed, "1");
  CSitesHelper helper;
  helper.SetManagedOverride(-2);
  EXPECT_FALSE(helper.IsOrxManaged());
}

TEST_F(SitesHelperObjectTest, IsOrxManagedWithoutOverrideFollowsConfigurationManaged) {
  port::SetConfigValue(port::ConfigKey::Managed, "1");
  CSitesHelper helper;
  EXPECT_TRUE(helper.IsOrxManaged());
}

TEST_F(SitesHelperObjectTest, IsOrxManagedWithoutOverrideFollowsConfigurationNotManaged) {
  port::SetConfigValue(port::ConfigKey::Managed, "0");
  CSitesHelper helper;
  EXPECT_FALSE(helper.IsOrxManaged());
}

TEST_F(SitesHelperObjectTest, IsOrxManagedWithOverrideZeroAsksTheConfigurationEachTime) {
  CSitesHelper helper;
  helper.SetManagedOverride(0);
  port::SetConfigValue(port::ConfigKey::Managed, "1");
  EXPECT_TRUE(helper.IsOrxManaged());
  port::SetConfigValue(port::ConfigKey::Managed, "0");
  EXPECT_FALSE(helper.IsOrxManaged());
}

TEST_F(SitesHelperObjectTest, IsOrxManagedWithAnyOtherOverrideAsksTheConfiguration) {
  CSitesHelper helper;
  helper.SetManagedOverride(1);
  port::SetConfigValue(port::ConfigKey::Managed, "0");
  EXPECT_FALSE(helper.IsOrxManaged());
  helper.SetManagedOverride(-3);
  port::SetConfigValue(port::ConfigKey::Managed, "1");
  EXPECT_TRUE(helper.IsOrxManaged());
}

TEST_F(SitesHelperObjectTest, IsOrxManagedTracesItsStep) {
  CSitesHelper helper;
  helper.SetManagedOverride(-1);
  CapturingLogSink sink;
  helper.IsOrxManaged();
  ASSERT_EQ(sink.lines().size(), 2u);
  EXPECT_EQ(sink.lines()[0].component, L"SiteHlp");
  EXPECT_EQ(sink.lines()[0].message, L"Entering IsOrxManaged");
  EXPECT_EQ(sink.lines()[1].message, L"Leaving IsOrxManaged");
}

}  // namespace
