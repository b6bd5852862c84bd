// ServerSiteList.xml: derived from the machine's own SiteList.xml without the
// sites the client defined itself, or stored from a server site list held in
// memory (re-encrypting its passwords when the platform's key size asks).
#include "port/config/IConfiguration.h"
#include "port/crypto/CryptShim.h"
#include "port/fs/AFile.h"
#include "port/lock/InterProcessLock.h"
#include "port/log/Log.h"
#include "port/xml/AnXml.h"
#include "sitehlp/Component.h"
#include "sitehlp/SiteListChange.h"
#include "sitehlp/SitesHelper.h"
#include "sitehlp/serversitelist/ServerSiteListPath.h"
#include "xmlschema/sitelist.h"

namespace sitehlp {

namespace {

// The key size value of the platform that calls for re-encryption.
constexpr int c_reencryptingKeySize = 1;

// Removes every child named siteElement whose Local attribute is exactly "1".
void RemoveLocalSites(AnXmlNode& siteList, const wchar_t* siteElement) {
  AnXmlNode site;
  while (siteList.tryGetChild(siteElement, ZEL_XML_SITE_LOCAL, L"1", site) && site.remove()) {
  }
}

}  // namespace

bool CSitesHelper::createServerSiteListFromSiteList(const wchar_t* srcDir, const wchar_t* dstDir) {
  AnInfoTrace trace(c_serverComponent, L"Creating ServerSiteList.xml");
  if (!srcDir) return false;
  const APath sourcePath(srcDir, c_sitelistName);

  AnXml document;
  int opened = 0;
  {
    InterProcessReadLock lock(c_siteListLock);
    if (!LockOrLog(lock, c_serverComponent)) return false;
    FinishInterruptedChangeOf(sourcePath, c_serverComponent);
    opened = document.useExistingFile(sourcePath, ZEL_XML_SITELISTS, ZEL_XML_NAMESPACE, ZEL_XML_SITELISTS_NAMESPACE);
  }
  if (opened != 1) return false;

  AnXmlNode siteList = document.getRootNode();
  if (!siteList.tryGetChildMove(ZEL_XML_SITELIST)) {
    // The message is kept exactly as the agent's log readers know it.
    logError(c_serverComponent, L"Site list '" + sourcePath + L" missing section " + ZEL_XML_SITELIST);
    return false;
  }

  // What the client defined itself goes; what the server pushed stays.
  RemoveLocalSites(siteList, ZEL_XML_SITELIST_FTP_SITE);
  RemoveLocalSites(siteList, ZEL_XML_SITELIST_HTTP_SITE);
  RemoveLocalSites(siteList, ZEL_XML_SITELIST_UNC_SITE);
  RemoveLocalSites(siteList, ZEL_XML_SITELIST_LOCAL_SITE);

  const APath targetPath(dstDir ? AString(dstDir) : AString(srcDir), c_serverSitelistName);
  InterProcessWriteLock lock(c_siteListLock);
  if (!LockOrLog(lock, c_serverComponent)) return false;
  FinishInterruptedChangeOf(targetPath, c_serverComponent);
  return document.writeFile(targetPath, false, false) == 1;
}

bool CSitesHelper::CreateServerSiteList(AnObjectBuffer<unsigned char>& buffer, bool bAdjust) {
  ADetailTrace trace(c_component, L"CreateServerSiteList");
  if (KeyConf::getCryptoKeySize() == c_reencryptingKeySize && bAdjust) {
    // Only while this flag is set does the reader take passwords in the byte
    // form; it is cleared on every way out.
    struct Reencrypting {
      explicit Reencrypting(bool& flag) : m_flag(flag) { m_flag = true; }
      ~Reencrypting() { m_flag = false; }
      bool& m_flag;
    } reencrypting(m_bReencrypting);
    AdjustPwd(buffer);
    return true;
  }
  return AFile::write(ServerSiteListPath(), buffer.data(), buffer.size());
}

}  // namespace sitehlp
