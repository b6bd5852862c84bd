// Rewriting sections of the helper's own site list document in place from
// another site list: the vendor's default repositories, the SPIPE sites and
// the CA bundle. Everything else in the document is kept as it stands.
#include <string>
#include <utility>

#include "port/config/IConfiguration.h"
#include "port/fs/AFile.h"
#include "port/lock/InterProcessLock.h"
#include "port/log/Log.h"
#include "port/xml/AnXml.h"
#include "sitehlp/Component.h"
#include "sitehlp/Numbers.h"
#include "sitehlp/OwnedSiteList.h"
#include "sitehlp/SiteListChange.h"
#include "sitehlp/SitesHelper.h"
#include "xmlschema/sitelist.h"

namespace sitehlp {

namespace {

// Compared exactly: a site type written in another case is not the fallback
// site here.
constexpr wchar_t c_siteTypeFallback[] = L"fallback";

bool OpenSiteList(AnXml& document, const AString& path) {
  return document.useExistingFile(path, ZEL_XML_SITELISTS, ZEL_XML_NAMESPACE, ZEL_XML_SITELISTS_NAMESPACE) == 1;
}

// One vendor site of a SiteList: its node, order and type texts. A missing
// site or attribute leaves the texts empty.
struct VendorSite {
  AnXmlNode node;
  AString order;
  AString type;
};

VendorSite FindVendorSite(const AnXmlNode& siteList, const wchar_t* element, const AString& server, bool bWithType) {
  VendorSite site;
  if (siteList.tryGetChild(element, ZEL_XML_SITE_SERVER, server, site.node)) {
    site.node.tryGetValue(ZEL_XML_SITE_ORDER, site.order);
    if (bWithType) site.node.tryGetValue(ZEL_XML_SITE_TYPE, site.type);
  }
  return site;
}

}  // namespace

bool CSitesHelper::modifySiteList(const wchar_t* newPath, bool bReplaceRepositories, bool bReplaceServer,
                                  const AString& keyDir) {
  ADetailTrace trace(c_serverComponent, L"modifying site list");
  if (!newPath) return false;

  AnXml own;
  bool opened = false;
  {
    InterProcessReadLock lock(c_siteListLock);
    if (!LockOrLog(lock, c_serverComponent)) return false;
    FinishInterruptedChangeOf(m_siteListPath, c_serverComponent);
    opened = OpenSiteList(own, m_siteListPath);
  }
  if (!opened) return false;
  AnXml incoming;
  if (!OpenSiteList(incoming, newPath)) return false;

  AnXmlNode ownRoot = own.getRootNode();
  AnXmlNode newRoot = incoming.getRootNode();
  AnXmlNode ownSiteList;
  AnXmlNode newSiteList;
  if (!ownRoot.getExistingChild(ZEL_XML_SITELIST, ownSiteList) || !newRoot.getExistingChild(ZEL_XML_SITELIST, newSiteList))
    return false;

  if (bReplaceRepositories) {
    const AString httpServer = port::DefaultHttpUpdateHost() + L":80";
    const AString ftpServer = port::DefaultFtpUpdateHost() + L":21";
    VendorSite ownHttp = FindVendorSite(ownSiteList, ZEL_XML_SITELIST_HTTP_SITE, httpServer, true);
    VendorSite ownFtp = FindVendorSite(ownSiteList, ZEL_XML_SITELIST_FTP_SITE, ftpServer, true);
    VendorSite newHttp = FindVendorSite(newSiteList, ZEL_XML_SITELIST_HTTP_SITE, httpServer, false);
    VendorSite newFtp = FindVendorSite(newSiteList, ZEL_XML_SITELIST_FTP_SITE, ftpServer, false);

    int ownHttpOrder = Atoi(ownHttp.order);
    int ownFtpOrder = Atoi(ownFtp.order);
    const int newHttpOrder = Atoi(newHttp.order);
    const int newFtpOrder = Atoi(newFtp.order);

    // The vendor sites keep the own list's order numbers but take the new
    // list's ranking; a fallback site is never re-ranked.
    if (ownHttp.type != c_siteTypeFallback && ownFtp.type != c_siteTypeFallback && ownHttpOrder != 0 &&
        ownFtpOrder != 0 && newHttpOrder != 0 && newFtpOrder != 0 &&
        (newHttpOrder < newFtpOrder) != (ownHttpOrder < ownFtpOrder)) {
      std::swap(ownHttpOrder, ownFtpOrder);
    }
    if (ownHttpOrder != 0 && newHttpOrder != 0)
      replaceZelRepository(newHttp.node, ownSiteList, ownHttp.node, ownHttpOrder, ownHttp.type.c_str());
    if (ownFtpOrder != 0 && newFtpOrder != 0)
      replaceZelRepository(newFtp.node, ownSiteList, ownFtp.node, ownFtpOrder, ownFtp.type.c_str());
  }

  if (bReplaceServer) doReplaceVantorSite(ownRoot, newRoot);

  // The key files that belong to the new list and the edited own list are
  // one change: a written list never lacks its keys, and keys never stay
  // without their list.
  OwnedSiteList newSites(*this);
  const int hr = MustReadSiteList(newPath, newSites.out());
  if (hr < 0 || !newSites.get()) return false;
  std::string text;
  if (own.getText(false, false, text) != 1) return false;
  const AString targetDir = DirectoryOf(m_siteListPath);
  if (!AFiler::createDirectories(targetDir)) return false;
  SiteListChange change(targetDir, c_serverComponent);
  if (!StageKeyFiles(*this, change, newPath, newSites.get(), keyDir.c_str()) ||
      !change.Stage(FileNameOf(m_siteListPath), reinterpret_cast<const unsigned char*>(text.data()), text.size(),
                    c_newSiteListMode) ||
      !change.Commit())
    return false;
  CopyFipsMarker(newPath, targetDir);
  return true;
}

bool CSitesHelper::doReplaceVantorSite(AnXmlNode& ownRoot, AnXmlNode& newRoot) {
  AnXmlNode ownSiteList;
  AnXmlNode newSiteList;
  if (!ownRoot.getExistingChild(ZEL_XML_SITELIST, ownSiteList)) return false;
  if (!newRoot.getExistingChild(ZEL_XML_SITELIST, newSiteList)) return false;

  AnXmlNode spipeSite;
  while (ownSiteList.tryGetChild(ZEL_XML_SITELIST_SPIPE_SITE, spipeSite) && spipeSite.remove()) {
  }
  AnXmlNode bundle;
  if (ownRoot.tryGetChild(ZEL_XML_CABUNDLE, bundle)) bundle.remove();

  AnXmlChildIndex newSpipeSites(newSiteList, ZEL_XML_SITELIST_SPIPE_SITE);
  AnXmlNode newSpipeSite;
  while (newSpipeSites.next(newSpipeSite)) {
    AnXmlNode added;
    if (!ownSiteList.addChild(ZEL_XML_SITELIST_SPIPE_SITE, added)) continue;
    // Order 0: the new site's Order is not carried over; no type: Type is
    // copied as it is.
    copyXmlAttributesAlter(newSpipeSite, added, 0, L"");
    copyXmlSubNodes(newSpipeSite, added);
  }

  AnXmlNode newBundle;
  if (!newRoot.tryGetChild(ZEL_XML_CABUNDLE, newBundle)) return false;
  return ownRoot.copyAsChild(newBundle);
}

void CSitesHelper::replaceZelRepository(AnXmlNode& newSite, AnXmlNode& ownSiteList, AnXmlNode& ownSite, int order,
                                        const wchar_t* siteType) {
  ownSite.remove();
  AString server;
  newSite.tryGetValue(ZEL_XML_SITE_SERVER, server);
  // The old element is gone, so this makes a new one at the end.
  if (!ownSiteList.setChild(newSite.getName(), ZEL_XML_SITE_SERVER, server, ownSite)) return;
  copyXmlAttributesAlter(newSite, ownSite, order, siteType);
  copyXmlSubNodes(newSite, ownSite);
}

void CSitesHelper::copyXmlAttributesAlter(AnXmlNode& src, AnXmlNode& dst, int order, const wchar_t* siteType) {
  const std::wstring type = siteType ? siteType : L"";
  AnXmlValueIndex attributes(src);
  AString name;
  AString value;
  while (attributes.next(name, value)) {
    if (name == ZEL_XML_SITE_ORDER) {
      if (order != 0) dst.setValue(ZEL_XML_SITE_ORDER, std::to_wstring(order));
    } else if (name == ZEL_XML_SITE_TYPE && !type.empty()) {
      dst.setValue(ZEL_XML_SITE_TYPE, type);
    } else {
      dst.setValue(name, value);
    }
  }
  // The element text, read into the same string (cleared when the source
  // has none).
  src.tryGetValue(L"", value);
  dst.setValue(L"", value);
}

void CSitesHelper::copyXmlAttributes(AnXmlNode& src, AnXmlNode& dst) {
  AnXmlValueIndex attributes(src);
  AString name;
  AString value;
  while (attributes.next(name, value)) dst.setValue(name, value);
  src.tryGetValue(L"", value);
  dst.setValue(L"", value);
}

void CSitesHelper::copyXmlSubNodes(AnXmlNode& src, AnXmlNode& dst) {
  AnXmlChildIndex children(src);
  AnXmlNode child;
  while (children.next(child)) {
    AnXmlNode copy;
    // Find or create: several source children of one name fold into one.
    if (!dst.setChild(child.getName(), copy)) continue;
    copyXmlAttributes(child, copy);
  }
}

}  // namespace sitehlp
