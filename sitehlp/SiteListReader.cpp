// A site list document into a linked list of records, and its policy
// settings into the helper.
#include <boost/scoped_ptr.hpp>
#include <cstdlib>
#include <cstring>
#include <new>

#include "port/log/Log.h"
#include "port/strings/Strings.h"
#include "port/xml/AdvXMLParser.h"
#include "sitehlp/Allocation.h"
#include "sitehlp/Component.h"
#include "sitehlp/ExceptionResult.h"
#include "sitehlp/FieldFill.h"
#include "sitehlp/Numbers.h"
#include "sitehlp/PasswordCipher.h"
#include "sitehlp/SiteListFile.h"
#include "sitehlp/SiteTables.h"
#include "sitehlp/SitesHelper.h"
#include "xmlschema/sitelist.h"

namespace sitehlp {

namespace {

using AdvXMLParser::Element;

// The header every child of SiteList gives its record, whatever the child
// is: the type, the mirror flag, Enabled, Local and Order (0 for a fallback
// site, whatever the attribute says). The four attributes are found in one
// pass and go straight from the tree's UTF-8 into the record.
void ReadSiteHeader(CSitesHelper& helper, const Element& child, tag_Site& site) {
  static const wchar_t* const kHeader[] = {ZEL_XML_SITE_TYPE, ZEL_XML_SITE_ENABLED, ZEL_XML_SITE_LOCAL,
                                           ZEL_XML_SITE_ORDER};
  static const std::string kHeaderUtf8[] = {ACharString(kHeader[0]), ACharString(kHeader[1]),
                                            ACharString(kHeader[2]), ACharString(kHeader[3])};
  static const char* const kHeaderNames[] = {kHeaderUtf8[0].c_str(), kHeaderUtf8[1].c_str(), kHeaderUtf8[2].c_str(),
                                             kHeaderUtf8[3].c_str()};
  const char* header[4];
  child.GetAttributesUtf8(kHeaderNames, 4, header);
  FillField(helper, site.szType, header[0], c_nameCapacity);
  site.bMirror = wcsicmp(site.szType, STR_SITE_TYPE_MIRROR) == 0;
  site.bEnabled = AtoiUtf8(header[1]) != 0;
  site.bLocal = AtoiUtf8(header[2]) != 0;
  const char* order = header[3];
  if (order && *order) site.nOrder = AtoiUtf8(order);
  if (wcsicmp(site.szType, L"fallback") == 0) site.nOrder = 0;
}

// Where a record's body starts, whatever its kind.
void* BodyOf(tag_Site& site) { return &site.httpSite; }

}  // namespace

void CSitesHelper::ReadPolicies(const Element& policies) {
  for (Element setting : policies.Children()) {
    if (!setting.HasName(L"Setting")) continue;
    SetPolicySetting(setting.GetAttribute(L"name"), setting.GetValue());
  }
}

int CSitesHelper::ReadProxyConfigList(const Element& list, tag_Site& site, int result) {
  for (Element entry : list.Children()) {
    ADetailTrace trace(c_component, L"Reading site from SiteList");
    const SiteElementSpec* spec = FindSiteElementSpec(entry);
    if (!spec) {
      result = c_generalFailure;
      continue;
    }
    // Each body replaces the previous one whole, as a copy of a fresh body
    // would: the last entry wins.
    std::memset(BodyOf(site), 0, spec->bodySize);
    result = FillSiteBody(entry, *spec, BodyOf(site));
  }
  AString useIE;
  if (list.GetAttribute(ZEL_XML_PROXY_USE_IE_CONFIG, useIE)) site.proxySettings.bUseIEConfig = Atoi(useIE) != 0;
  return result;
}

int CSitesHelper::ReadSitesOfSiteList(const Element& siteList, tag_Site** ppHead, bool bSitesOnly) {
  int result = c_success;
  tag_Site* head = nullptr;
  tag_Site* tail = nullptr;
  try {
    for (Element child : siteList.Children()) {
      // The element's name is read and compared once.
      const SiteListChild what = ClassifySiteListChild(child);
      if (bSitesOnly && !what.spec) continue;

      tag_Site* site = static_cast<tag_Site*>(AllocateZeroed(AllocationUse::ReadRecord, sizeof(tag_Site)));
      if (!site) {
        result = c_outOfMemory;
        break;
      }
      (tail ? tail->pNext : head) = site;
      tail = site;

      ReadSiteHeader(*this, child, *site);
      if (what.kind < 0) continue;  // unknown element: header only, zero body
      site->nSiteType = what.kind;
      if (!what.spec) {
        result = ReadProxyConfigList(child, *site, result);
        continue;
      }
      site->bSpipeOrSuperAgent = what.spec->spipeOrSuperAgent;
      ADetailTrace trace(c_component, L"Reading site from SiteList");
      result = FillSiteBody(child, *what.spec, BodyOf(*site));
    }
  } catch (...) {
    *ppHead = head;  // the caller owns what was built, whatever was thrown
    throw;
  }
  *ppHead = head;
  return result;
}

int CSitesHelper::ReadSiteListRoot(const Element& root, tag_Site** ppHead) {
  // The passwords of the document share one encryption object.
  PasswordCipherScope passwords;
  int result = c_success;
  for (Element child : root.Children()) {
    if (child.HasName(ZEL_XML_SITELIST)) {
      // Only one SiteList is expected; a later one replaces the list read
      // from an earlier one.
      FreeSiteListMemory(*ppHead);
      *ppHead = nullptr;
      result = ReadSitesOfSiteList(child, ppHead, false);
    } else if (child.HasName(ZEL_XML_POLICIES)) {
      ReadPolicies(child);
    }
  }
  return result;
}

int CSitesHelper::ReadSiteList(const std::wstring& path, tag_Site** ppSiteList) {
  ADetailTrace trace(c_component, L"Reading Sitelist");
  if (!ppSiteList) return c_missingArgument;
  m_currentPath = path.empty() ? m_siteListPath : path;
  if (m_currentPath.empty()) return c_missingArgument;
  if (!SiteListFileExists(m_currentPath)) return MissingFileResult();

  // The file's UTF-8 is parsed in place: no wide copy of it is made, which
  // saves two passes over the text and keeps the peak memory of a read at
  // the file's bytes, the tree and the records.
  AdvXMLParser::Utf8Text text;
  if (!ReadSiteListUtf8(m_currentPath, text)) return c_fileUnreadable;

  int result = c_success;
  tag_Site* head = nullptr;
  try {
    AdvXMLParser::Parser parser;
    boost::scoped_ptr<AdvXMLParser::Document> document(parser.Parse(text, AdvXMLParser::Parser::ReadingOnly));
    result = ReadSiteListRoot(document->GetRoot(), &head);
  } catch (...) {
    result = CaughtExceptionResult();
  }
  *ppSiteList = head;
  return result;
}

}  // namespace sitehlp
