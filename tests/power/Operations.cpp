// The writing operations of the library, each with the state before it.
#include "power/Operations.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "port/config/IConfiguration.h"
#include "port/fs/AFile.h"
#include "sitehlp/SitesHelper.h"
#include "stress/Workload.h"
#include "support/TestSupport.h"

namespace powertest {

namespace {

using sitehlp::CSitesHelper;
using testsupport::Wide;

const std::vector<std::wstring> kCertificates = {L"CERT-POWER-1", L"CERT-POWER-2"};

const std::vector<std::string> kImportTargets = {"data/etc/SiteList.xml", "data/etc/srpubkey.bin",
                                                 "data/etc/reqseckey.bin", "data/etc/sr2048pubkey.bin",
                                                 "data/etc/req2048seckey.bin"};

// Gives every file under dir to the agent's user: each write as root must
// leave them so.
bool GiveToAgent(const std::string& dir) {
  for (const std::string& name : testsupport::ListDir(dir)) {
    const std::string path = dir + "/" + name;
    struct stat st {};
    if (lstat(path.c_str(), &st) != 0) return false;
    if (S_ISDIR(st.st_mode)) {
      if (!GiveToAgent(path)) return false;
    } else if (chown(path.c_str(), testsupport::kOtherUser, testsupport::kOtherGroup) != 0) {
      return false;
    }
  }
  return true;
}

// Two outside lists with their key files; the agent's list and key files
// from the first, and the server site list derived from it.
bool BaseSetup(const Layout& layout) {
  CSitesHelper helper;
  if (!workload::WriteOutsideVariant(helper, layout.source(0), 0, kCertificates) ||
      !workload::WriteOutsideVariant(helper, layout.source(1), 1, kCertificates))
    return false;
  if (helper.ImportSiteList(Wide(layout.source(0) + "/SiteList.xml"), L"") != 0) return false;
  if (!CSitesHelper::createServerSiteListFromSiteList(Wide(layout.etc()).c_str(), Wide(layout.data()).c_str()))
    return false;
  return GiveToAgent(layout.data());
}

// Bytes of a file, read through the port layer (and so from the disk model).
std::string ReadThroughPort(const std::string& path) {
  ABuffer bytes;
  if (!AFile::read(Wide(path), bytes)) return std::string();
  return std::string(reinterpret_cast<const char*>(bytes.getBytes()), bytes.size());
}

// Where CreateSiteListFromBuffer writes: the standard location under the
// root prefix, which the test configuration puts at <root>/root.
const char kStandardList[] = "root/opt/Velmora/orx/scratch/etc/SiteList.xml";

}  // namespace

std::vector<Operation> WritingOperations() {
  std::vector<Operation> all;
  {
    Operation op;
    op.name = "CreateSiteList";
    op.setup = BaseSetup;
    op.run = [](const Layout& layout) {
      CSitesHelper helper(Wide(layout.list()));
      sitehlp::tag_Site* list = workload::BuildList(7, true);
      const int rc =
          helper.CreateSiteList(list, Wide(layout.list()), L"20250101000000", L"20250101000007", L"Client", kCertificates);
      helper.FreeSiteListMemory(list);
      return rc;
    };
    op.targets = {"data/etc/SiteList.xml"};
    all.push_back(op);
  }
  // The first password written creates the key that encrypts it, and its
  // directory: neither may be lost while the list that needs them survives.
  {
    Operation op;
    op.name = "CreateSiteList (new key)";
    op.setup = [](const Layout& layout) {
      if (!BaseSetup(layout)) return false;
      std::error_code ec;
      std::filesystem::remove_all(layout.root + "/keys", ec);
      return !ec;
    };
    op.run = [](const Layout& layout) {
      CSitesHelper helper(Wide(layout.list()));
      sitehlp::tag_Site* list = workload::BuildList(7, true);
      const int rc =
          helper.CreateSiteList(list, Wide(layout.list()), L"20250101000000", L"20250101000007", L"Client", kCertificates);
      helper.FreeSiteListMemory(list);
      return rc;
    };
    op.targets = {"data/etc/SiteList.xml"};
    all.push_back(op);
  }
  {
    Operation op;
    op.name = "ImportSiteList";
    op.setup = BaseSetup;
    op.run = [](const Layout& layout) {
      CSitesHelper helper;
      return helper.ImportSiteList(Wide(layout.source(1) + "/SiteList.xml"), L"");
    };
    op.targets = kImportTargets;
    op.bTogether = true;
    all.push_back(op);
  }
  {
    Operation op;
    op.name = "InstallSiteList";
    op.setup = BaseSetup;
    op.run = [](const Layout& layout) {
      CSitesHelper helper;
      return helper.InstallSiteList(Wide(layout.source(1) + "/SiteList.xml"), L"");
    };
    op.targets = kImportTargets;
    op.bTogether = true;
    all.push_back(op);
  }
  {
    Operation op;
    op.name = "createServerSiteListFromSiteList";
    op.setup = [](const Layout& layout) {
      if (!BaseSetup(layout)) return false;
      CSitesHelper helper;
      return helper.ImportSiteList(Wide(layout.source(1) + "/SiteList.xml"), L"") == 0 && GiveToAgent(layout.data());
    };
    op.run = [](const Layout& layout) {
      return CSitesHelper::createServerSiteListFromSiteList(Wide(layout.etc()).c_str(), Wide(layout.data()).c_str())
                 ? 0
                 : -1;
    };
    op.targets = {"data/ServerSiteList.xml"};
    all.push_back(op);
  }
  {
    Operation op;
    op.name = "CreateServerSiteList";
    op.setup = BaseSetup;
    op.run = [](const Layout& layout) {
      const std::string text = ReadThroughPort(layout.source(1) + "/SiteList.xml");
      if (text.empty()) return kSourceUnread;
      AnObjectBuffer<unsigned char> buffer(reinterpret_cast<const unsigned char*>(text.data()), text.size());
      CSitesHelper helper;
      return helper.CreateServerSiteList(buffer, false) ? 0 : -1;
    };
    op.targets = {"data/ServerSiteList.xml"};
    all.push_back(op);
  }
  {
    Operation op;
    op.name = "modifySiteList";
    op.setup = BaseSetup;
    op.run = [](const Layout& layout) {
      CSitesHelper helper(Wide(layout.list()));
      const std::wstring from = Wide(layout.source(1) + "/SiteList.xml");
      return helper.modifySiteList(from.c_str(), true, true, AString()) ? 0 : -1;
    };
    op.targets = kImportTargets;
    op.bTogether = true;
    all.push_back(op);
  }
  {
    Operation op;
    op.name = "CreateSiteListFromBuffer";
    op.setup = [](const Layout& layout) {
      if (!BaseSetup(layout)) return false;
      const std::string target = layout.root + "/" + kStandardList;
      std::filesystem::create_directories(std::filesystem::path(target).parent_path());
      testsupport::WriteFile(target, testsupport::ReadFile(layout.list()));
      return chown(target.c_str(), testsupport::kOtherUser, testsupport::kOtherGroup) == 0;
    };
    op.run = [](const Layout& layout) {
      // The helper first: its construction's calls come first in the sequence.
      CSitesHelper helper;
      const std::string text = ReadThroughPort(layout.source(1) + "/SiteList.xml");
      if (text.empty()) return kSourceUnread;
      return helper.CreateSiteListFromBuffer(Wide(text));
    };
    op.targets = {kStandardList};
    all.push_back(op);
  }
  {
    Operation op;
    op.name = "PlaceSiteFiles";
    op.setup = [](const Layout& layout) {
      if (!BaseSetup(layout)) return false;
      testsupport::WriteFile(layout.etc() + "/extra.bin", "extra, old");
      testsupport::WriteFile(layout.etc() + "/gone.bin", "gone, old");
      return GiveToAgent(layout.data());
    };
    op.run = [](const Layout& layout) {
      const std::string list = ReadThroughPort(layout.source(1) + "/SiteList.xml");
      if (list.empty()) return kSourceUnread;
      std::vector<sitehlp::SiteFile> files(4);
      files[0].path = Wide(layout.list());
      files[0].contents.assign(reinterpret_cast<const unsigned char*>(list.data()), list.size());
      files[1].path = Wide(layout.etc() + "/extra.bin");
      files[1].contents.assign(reinterpret_cast<const unsigned char*>("extra, new"), 10);
      files[2].path = Wide(layout.etc() + "/gone.bin");
      files[2].bAbsent = true;
      files[3].path = Wide(layout.etc() + "/added.bin");
      files[3].contents.assign(reinterpret_cast<const unsigned char*>("added"), 5);
      files[3].nMode = 0600;
      CSitesHelper helper;
      return helper.PlaceSiteFiles(files);
    };
    op.targets = {"data/etc/SiteList.xml", "data/etc/extra.bin", "data/etc/gone.bin", "data/etc/added.bin"};
    op.bTogether = true;
    all.push_back(op);
  }
  return all;
}

Operation WritingOperation(const std::string& name) {
  for (const Operation& op : WritingOperations())
    if (op.name == name) return op;
  return Operation();
}

}  // namespace powertest
