// Site lists as text in memory: the helper's own list read into a string, and
// list text written to the agent's standard site list location.
#include <boost/scoped_ptr.hpp>

#include <new>
#include <string>
#include <vector>

#include "port/config/IConfiguration.h"
#include "port/lock/InterProcessLock.h"
#include "port/log/Log.h"
#include "port/xml/AdvXMLParser.h"
#include "sitehlp/Component.h"
#include "sitehlp/ExceptionResult.h"
#include "sitehlp/SiteListChange.h"
#include "sitehlp/SiteListFile.h"
#include "sitehlp/SitesHelper.h"
#include "xmlschema/sitelist.h"

namespace sitehlp {

namespace {

// Where the agent's processes expect the site list that a buffer becomes.
constexpr char c_standardSiteListPath[] = "/opt/Velmora/orx/scratch/etc/SiteList.xml";

}  // namespace

bool CSitesHelper::GetSiteListBuffer(std::wstring& text) {
  ADetailTrace trace(c_component, L"Reading Sitelist");
  if (m_siteListPath.empty()) return false;
  if (!SiteListFileExists(m_siteListPath)) return false;

  InterProcessReadLock lock(c_siteListLock);
  if (!LockOrLog(lock)) return false;
  FinishInterruptedChangeOf(m_siteListPath, c_component);
  AString read;
  try {
    AdvXMLParser::UTF_ENCODINGS encoding = AdvXMLParser::UTF_8;
    AdvXMLParser::ReadBufferFromFile(m_siteListPath, read, encoding);
    text.swap(read);
    // Only the bundle's first opening tag is cut: its certificates and its
    // closing tag stay, and a tag with attributes is not matched.
    const std::wstring marker = std::wstring(L"<") + ZEL_XML_CABUNDLE + L">";
    const std::size_t start = text.find(marker);
    if (start != std::wstring::npos) {
      const std::size_t end = text.find(marker);
      text.erase(start, end + marker.size() - start);
    }
  } catch (...) {
    lock.unlock();
    return false;
  }
  lock.unlock();
  return true;
}

int CSitesHelper::CreateSiteListFromBuffer(const std::wstring& text) {
  ADetailTrace trace(c_component, L"Reading Sitelist Buffer");
  int result = c_success;
  std::vector<std::wstring> certificates;
  tag_Site* sites = nullptr;
  try {
    AdvXMLParser::Parser parser;
    boost::scoped_ptr<AdvXMLParser::Document> document(parser.Parse(text.c_str(), text.size()));
    const AdvXMLParser::Element root = document->GetRoot();

    const AdvXMLParser::Element bundle = root.GetElement(ZEL_XML_CABUNDLE);
    if (bundle) {
      for (AdvXMLParser::Element child : bundle.Children())
        if (child.HasName(ZEL_XML_CACERTIFICATE)) certificates.push_back(child.GetValue());
    } else {
      // No bundle in the text: the installed certificates are kept (none
      // when there is no installed list; never lost to a read that failed).
      const int installed = GetCaCertificates(L"", certificates);
      if (installed < 0 && installed != c_fileMissing) result = installed;
    }

    if (result == c_success) result = ReadSiteListRoot(root, &sites);
  } catch (...) {
    result = CaughtExceptionResult();
  }

  if (result == c_success) {
    const AString target(port::UnderRootPrefix(c_standardSiteListPath));
    result = CreateSiteList(sites, target, L"", L"", L"", certificates);
  }
  FreeSiteListMemory(sites);
  return result;
}

}  // namespace sitehlp
