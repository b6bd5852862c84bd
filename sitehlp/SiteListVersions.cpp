// Version, type and FIPS mode of a site list file, from its root element.
#include <boost/scoped_ptr.hpp>

#include "port/log/Log.h"
#include "port/xml/AdvXMLParser.h"
#include "sitehlp/Component.h"
#include "sitehlp/SiteListFile.h"
#include "sitehlp/SitesHelper.h"
#include "xmlschema/sitelist.h"

namespace sitehlp {

namespace {

// Reads and parses path; NULL when it cannot be read or parsed. A failed
// read reports failure at once rather than parsing a stand-in text. The file
// is parsed from its UTF-8 bytes in place into a read-only tree: the parse is
// this query's whole cost, and a wide copy of the file would add two passes
// over it.
AdvXMLParser::Document* LoadRootDocument(const std::wstring& path) {
  AdvXMLParser::Utf8Text text;
  if (!ReadSiteListUtf8(path, text)) return nullptr;
  try {
    AdvXMLParser::Parser parser;
    return parser.Parse(text, AdvXMLParser::Parser::ReadingOnly);
  } catch (const AdvXMLParser::Exception&) {
    return nullptr;
  }
}

}  // namespace

int CSitesHelper::GetSitelistVersions(const std::wstring& siteListPath, std::wstring& globalVersion,
                                      std::wstring& localVersion, std::wstring& siteListType) {
  ADetailTrace trace(c_component, L"Getting Sitelist versions");
  const std::wstring& path = siteListPath.empty() ? m_siteListPath : siteListPath;
  if (!SiteListFileExists(path)) return MissingFileResult();
  globalVersion.clear();
  localVersion.clear();
  boost::scoped_ptr<AdvXMLParser::Document> document(LoadRootDocument(path));
  if (!document) return c_generalFailure;
  const AdvXMLParser::Element root = document->GetRoot();
  if (!root) return c_generalFailure;
  globalVersion = root.GetAttribute(ZEL_XML_SITELISTS_GLOBAL_VERSION);
  localVersion = root.GetAttribute(ZEL_XML_SITELISTS_LOCAL_VERSION);
  AString type;
  siteListType = root.GetAttribute(ZEL_XML_SITELISTS_TYPE, type) ? type : AString(ZEL_XML_SITELIST_TYPE_CLIENT);
  return c_success;
}

int CSitesHelper::GetGlobalSitelistVersion(std::wstring& globalVersion) {
  std::wstring localVersion;
  std::wstring type;
  return GetSitelistVersions(m_siteListPath, globalVersion, localVersion, type);
}

int CSitesHelper::GetSitelistFipsMode(const std::wstring& siteListPath, std::wstring& fipsMode) {
  ADetailTrace trace(c_component, L"Getting Sitelist fips mode");
  const std::wstring& path = siteListPath.empty() ? m_siteListPath : siteListPath;
  if (!SiteListFileExists(path)) return MissingFileResult();
  boost::scoped_ptr<AdvXMLParser::Document> document(LoadRootDocument(path));
  if (!document) return c_generalFailure;
  const AdvXMLParser::Element root = document->GetRoot();
  AString value;
  if (!root || !root.GetAttribute(ZEL_XML_SITELISTS_FIPSMODE, value)) return c_generalFailure;
  fipsMode = value;
  return c_success;
}

}  // namespace sitehlp
