// Texts of outside site lists (the kind handed to import and install) for the
// source check, key file and import tests.
#ifndef VLM_TESTS_SITEHLP_OUTSIDELISTTEXT_H
#define VLM_TESTS_SITEHLP_OUTSIDELISTTEXT_H

#include <string>
#include <vector>

namespace outsidelist {

struct SpipeSiteText {
  std::string type = "master";
  std::string name = "Vantor_BranchServer";
  std::string order = "1";
  std::string local = "0";
  std::string server = "mgmt.branch.example:80";
  std::string serverName = "BRANCH01:80";
  std::string serverIP = "198.51.100.20:80";
  std::string version = "5.10.2";  // empty: no Version attribute
  std::string relativePath = "Software";
};

inline std::string SpipeSite(const SpipeSiteText& s) {
  std::string out = "<SpipeSite Type=\"" + s.type + "\" Name=\"" + s.name + "\" Order=\"" + s.order +
                    "\" Enabled=\"1\" Local=\"" + s.local + "\" Server=\"" + s.server + "\" ServerName=\"" +
                    s.serverName + "\" ServerIP=\"" + s.serverIP + "\"";
  if (!s.version.empty()) out += " Version=\"" + s.version + "\"";
  out += "><RelativePath>" + s.relativePath +
         "</RelativePath><UseAuth>0</UseAuth><UserName></UserName><Password Encrypted=\"1\"></Password></SpipeSite>";
  return out;
}

inline std::string HttpSite(const std::string& name, const std::string& server, int order,
                            const std::string& type = "repository") {
  return "<HttpSite Type=\"" + type + "\" Name=\"" + name + "\" Order=\"" + std::to_string(order) +
         "\" Enabled=\"1\" Local=\"0\" Server=\"" + server +
         "\"><RelativePath>Updates</RelativePath><UseAuth>0</UseAuth><UserName></UserName>"
         "<Password Encrypted=\"1\"></Password></HttpSite>";
}

inline std::string FtpSite(const std::string& name, const std::string& server, int order) {
  return "<FTPSite Type=\"repository\" Name=\"" + name + "\" Order=\"" + std::to_string(order) + "\" Server=\"" +
         server +
         "\" Enabled=\"1\" Local=\"0\"><RelativePath>Updates</RelativePath><UserName>anonymous</UserName>"
         "<Password Encrypted=\"1\"></Password></FTPSite>";
}

inline std::string CaBundle(const std::vector<std::string>& certificates) {
  std::string out = "<CaBundle>";
  for (const std::string& c : certificates) out += "<CaCertificate>" + c + "</CaCertificate>";
  return out + "</CaBundle>";
}

// A whole document; rootExtra goes into the root element's attributes and
// before goes in front of the SiteList element.
inline std::string Document(const std::vector<std::string>& sites,
                            const std::string& rootExtra = "GlobalVersion=\"20261101090000\" "
                                                           "LocalVersion=\"20261101091500\" Type=\"Client\"",
                            const std::string& before = "") {
  std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ns:SiteLists xmlns:ns=\"zelSiteList\" " +
                    rootExtra + ">" + before + "<SiteList Default=\"1\" Name=\"BranchOfficeList\">";
  for (const std::string& s : sites) out += s;
  return out + "</SiteList></ns:SiteLists>\n";
}

}  // namespace outsidelist

#endif  // VLM_TESTS_SITEHLP_OUTSIDELISTTEXT_H
