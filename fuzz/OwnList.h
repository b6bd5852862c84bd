// The agent's own list that the rewriting target starts from: the vendor's
// two default repositories, a SPIPE site, a client site, a proxy and a CA
// bundle.
#ifndef VLM_FUZZ_OWNLIST_H
#define VLM_FUZZ_OWNLIST_H

#include <string>

namespace fuzzsupport {

inline const std::string kOwnList =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20250101000000\" LocalVersion=\"20250101000001\" "
    "Type=\"Client\">"
    "<CaBundle><CaCertificate>OWN-CERT</CaCertificate></CaBundle>"
    "<SiteList Default=\"1\" Name=\"SomeGUID\">"
    "<SpipeSite Type=\"master\" Name=\"Vantor_MasterSite\" Order=\"1\" Enabled=\"1\" Local=\"0\" "
    "Server=\"mgmt.corp.example:80\" ServerName=\"MGMT:80\" ServerIP=\"192.0.2.10:80\" Version=\"5\">"
    "<RelativePath>Software</RelativePath><UseAuth>0</UseAuth></SpipeSite>"
    "<HttpSite Type=\"repository\" Name=\"VendorHttp\" Order=\"2\" Enabled=\"1\" Local=\"0\" "
    "Server=\"update.vlm.example:80\"><RelativePath>Updates</RelativePath></HttpSite>"
    "<FTPSite Type=\"repository\" Name=\"VendorFtp\" Order=\"3\" Enabled=\"1\" Local=\"0\" "
    "Server=\"ftp.vlm.example:21\"><RelativePath>Updates</RelativePath></FTPSite>"
    "<UNCSite Type=\"repository\" Name=\"Share\" Order=\"4\" Enabled=\"1\" Local=\"1\" Server=\"fs.corp.example\">"
    "<ShareName>u</ShareName></UNCSite>"
    "<ProxyConfigList><ProxyConfig Name=\"P\" Local=\"1\" HttpProxyServer=\"proxy.corp.example\" "
    "HttpProxyPort=\"3128\"/></ProxyConfigList>"
    "</SiteList></ns:SiteLists>\n";

}  // namespace fuzzsupport

#endif  // VLM_FUZZ_OWNLIST_H
