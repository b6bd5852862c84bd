// A site list document into a linked list of records, and its policy
// settings into the helper.
#include <boost/scoped_ptr.hpp>
#include <cstdlib>
#include <cstring>
#include <new>

#include "port/log/Log.h"
#include "port/strings/Strings.h"
#include "port/xml/AdvXMLParser.h"
#include "sitehlp/Component.h"
#include "sitehlp/FieldFill.h"
#include "sitehlp/Numbers.h"
#include "sitehlp/SchemaNames.h"
#include "sitehlp/SiteBodies.h"
#include "sitehlp/SiteListFile.h"
#include "sitehlp/SitesHelper.h"
#include "xmlschema/sitelist.h"

namespace sitehlp {

namespace {

using AdvXMLParser::Element;

tag_Site* NewRecord() { return static_cast<tag_Site*>(std::calloc(1, sizeof(tag_Site))); }

}  // namespace

void CSitesHelper::ReadPolicies(const Element& policies) {
  for (Element setting : policies.Children()) {
    if (!setting.HasName(L"Setting")) continue;
    SetPolicySetting(setting.GetAttribute(L"name"), setting.GetValue());
  }
}

int CSitesHelper::ReadSitesOfSiteList(const Element& siteList, tag_Site** ppHead, bool bSitesOnly) {
  int result = 0;
  tag_Site* head = nullptr;
  tag_Site* tail = nullptr;
  try {
  for (Element child : siteList.Children()) {
    // The element's name is read and compared once (SchemaNames.h).
    const SiteElement element = SiteElementOf(child);
    int kind = -1;
    switch (element) {
      case SiteElement::ProxyConfigList: kind = SITE_TYPE_PROXY; break;
      case SiteElement::Http:
      case SiteElement::Spipe:
      case SiteElement::SuperAgent: kind = SITE_TYPE_HTTP; break;
      case SiteElement::Ftp: kind = SITE_TYPE_FTP; break;
      case SiteElement::Unc: kind = SITE_TYPE_UNC; break;
      case SiteElement::Local: kind = SITE_TYPE_LOCAL; break;
      default: break;
    }
    if (bSitesOnly && (kind < 0 || kind == SITE_TYPE_PROXY)) continue;

    tag_Site* site = NewRecord();
    if (!site) {
      result = -3;
      break;
    }
    if (tail)
      tail->pNext = site;
    else
      head = site;
    tail = site;

    // Straight from the tree's UTF-8 into the record (FieldFill.h), the four
    // header attributes found in one pass.
    static const wchar_t* const kHeader[] = {ZEL_XML_SITE_TYPE, ZEL_XML_SITE_ENABLED, ZEL_XML_SITE_LOCAL,
                                             ZEL_XML_SITE_ORDER};
    const char* header[4];
    child.GetAttributesUtf8(kHeader, 4, header);
    FillField(*this, site->szType, header[0], c_nameCapacity);
    site->bMirror = wcsicmp(site->szType, STR_SITE_TYPE_MIRROR) == 0;
    site->bEnabled = AtoiUtf8(header[1]) != 0;
    site->bLocal = AtoiUtf8(header[2]) != 0;
    const char* order = header[3];
    if (order && *order) site->nOrder = AtoiUtf8(order);
    if (wcsicmp(site->szType, L"fallback") == 0) site->nOrder = 0;

    if (kind < 0) continue;  // unknown element: header only, zero body
    site->nSiteType = kind;
    if (kind == SITE_TYPE_PROXY) {
      for (Element entry : child.Children()) {
        ADetailTrace trace(c_component, L"Reading site from SiteList");
        const std::size_t size = SiteBodySize(entry);
        if (size == 0) {
          result = -1;
          continue;
        }
        // Each body replaces the previous one whole, as a copy of a fresh body
        // would: the last entry wins.
        std::memset(&site->proxySettings, 0, size);
        result = FillSiteBody(entry, &site->proxySettings);
      }
      AString useIE;
      if (child.GetAttribute(ZEL_XML_PROXY_USE_IE_CONFIG, useIE)) site->proxySettings.bUseIEConfig = Atoi(useIE) != 0;
      continue;
    }
    if (kind == SITE_TYPE_HTTP)
      site->bSpipeOrSuperAgent = element == SiteElement::Spipe || element == SiteElement::SuperAgent;
    ADetailTrace trace(c_component, L"Reading site from SiteList");
    result = FillSiteBody(child, &site->httpSite);
  }
  } catch (...) {
    *ppHead = head;  // the caller owns what was built, whatever was thrown
    throw;
  }
  *ppHead = head;
  return result;
}

int CSitesHelper::ReadSiteListRoot(const Element& root, tag_Site** ppHead) {
  int result = 0;
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
  if (!ppSiteList) return -2;
  m_currentPath = path.empty() ? m_siteListPath : path;
  if (m_currentPath.empty()) return -2;
  if (!SiteListFileExists(m_currentPath)) return -4;

  // The file's UTF-8 is parsed in place: no wide copy of it is made, which
  // saves two passes over the text and keeps the peak memory of a read at
  // the file's bytes, the tree and the records.
  AdvXMLParser::Utf8Text text;
  if (!ReadSiteListUtf8(m_currentPath, text)) return -10;

  int result = 0;
  tag_Site* head = nullptr;
  try {
    AdvXMLParser::Parser parser;
    boost::scoped_ptr<AdvXMLParser::Document> document(parser.Parse(text, AdvXMLParser::Parser::ReadingOnly));
    result = ReadSiteListRoot(document->GetRoot(), &head);
  } catch (const AdvXMLParser::ParsingException&) {
    result = -5;
  } catch (const AdvXMLParser::ReadWriteException& e) {
    result = e.GetErrorCode();
  } catch (const std::bad_alloc&) {
    result = -3;
  }
  *ppSiteList = head;
  return result;
}

}  // namespace sitehlp
