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
#include "sitehlp/Numbers.h"
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
    const bool isProxyList = child.HasName(ZEL_XML_PROXY_CONFIG_LIST);
    const bool isHttpFamily = child.HasName(ZEL_XML_SITELIST_HTTP_SITE) ||
                              child.HasName(ZEL_XML_SITELIST_SPIPE_SITE) ||
                              child.HasName(ZEL_XML_SITELIST_SUPERAGENT_SITE);
    int kind = -1;
    if (isProxyList)
      kind = SITE_TYPE_PROXY;
    else if (isHttpFamily)
      kind = SITE_TYPE_HTTP;
    else if (child.HasName(ZEL_XML_SITELIST_FTP_SITE))
      kind = SITE_TYPE_FTP;
    else if (child.HasName(ZEL_XML_SITELIST_UNC_SITE))
      kind = SITE_TYPE_UNC;
    else if (child.HasName(ZEL_XML_SITELIST_LOCAL_SITE))
      kind = SITE_TYPE_LOCAL;
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

    const AString type = child.GetAttribute(ZEL_XML_SITE_TYPE);
    CopyWStr(site->szType, type.c_str(), c_nameCapacity);
    site->bMirror = wcsicmp(site->szType, STR_SITE_TYPE_MIRROR) == 0;
    site->bEnabled = Atoi(child.GetAttribute(ZEL_XML_SITE_ENABLED)) != 0;
    site->bLocal = Atoi(child.GetAttribute(ZEL_XML_SITE_LOCAL)) != 0;
    const AString order = child.GetAttribute(ZEL_XML_SITE_ORDER);
    if (!order.empty()) site->nOrder = Atoi(order);
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
      site->bSpipeOrSuperAgent =
          child.HasName(ZEL_XML_SITELIST_SPIPE_SITE) || child.HasName(ZEL_XML_SITELIST_SUPERAGENT_SITE);
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

int CSitesHelper::ReadSiteList(const std::wstring& path, tag_Site** ppSiteList) {
  ADetailTrace trace(c_component, L"Reading Sitelist");
  if (!ppSiteList) return -2;
  m_currentPath = path.empty() ? m_siteListPath : path;
  if (m_currentPath.empty()) return -2;
  if (!SiteListFileExists(m_currentPath)) return -4;

  AString text;
  if (!ReadSiteListText(m_currentPath, text)) return -10;

  int result = 0;
  tag_Site* head = nullptr;
  try {
    AdvXMLParser::Parser parser;
    boost::scoped_ptr<AdvXMLParser::Document> document(parser.Parse(text.c_str(), text.size()));
    text.clear();
    text.shrink_to_fit();  // the text is not needed once parsed
    for (Element child : document->GetRoot().Children()) {
      if (child.HasName(ZEL_XML_SITELIST)) {
        // Only one SiteList is expected; a later one replaces the list read
        // from an earlier one.
        FreeSiteListMemory(head);
        head = nullptr;
        result = ReadSitesOfSiteList(child, &head, false);
      } else if (child.HasName(ZEL_XML_POLICIES)) {
        ReadPolicies(child);
      }
    }
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
