// The changes MutateTree makes, and the names and values of the schema they
// take their material from.
#include <algorithm>
#include <map>

#include "SiteListMutator.h"

namespace fuzzsupport {

namespace {

using Values = std::vector<std::string>;

const Values c_siteKinds = {"SpipeSite", "SuperAgentSite", "HttpSite", "FTPSite", "UNCSite", "LocalSite"};
const std::string c_long(300, 'w');

const Values c_flags = {"0", "1", "2", "", "-1", "yes", " 1"};
const Values c_ports = {"0", "21", "80", "443", "8081", "65535", "65536", "-1", "", "abc", "99999999999999999999"};
const Values c_hosts = {"mgmt.corp.example:80", "update.vlm.example:80", "ftp.vlm.example:21", "fs.corp.example",
                        "[fe80::1]:8081", "[::1]", "[::1", "192.0.2.10:443", "127.0.0.1:0", ":80", "a.example:",
                        "a.example:99999", "MGMT:8081", "", c_long + ".example:80"};

// Attribute values by attribute name; names not here take c_anyValue.
const std::map<std::string, Values>& AttributeValues() {
  static const std::map<std::string, Values> values = {
      {"Type", {"master", "repository", "mirror", "fallback", "Fallback", "Client", "Server", "", "x"}},
      {"Name", {"Vantor_MasterSite", "VendorHttp", "VendorFtp", "Share", "SomeGUID", "", "P", c_long}},
      {"Order", {"0", "1", "2", "3", "7", "-1", "", "a", "4294967296", "99999999999"}},
      {"Enabled", c_flags}, {"Local", c_flags}, {"Default", c_flags}, {"Passive", c_flags},
      {"UseIEConfig", c_flags}, {"Encrypted", c_flags}, {"FipsMode", c_flags},
      {"Server", c_hosts}, {"ServerName", c_hosts}, {"ServerIP", c_hosts}, {"ServerDNS", c_hosts},
      {"HttpProxyServer", c_hosts}, {"FtpProxyServer", c_hosts},
      {"SecurePort", c_ports}, {"HttpProxyPort", c_ports}, {"FtpProxyPort", c_ports},
      {"Version", {"5", "5.1", "", "0", "99999999999", "x"}},
      {"GlobalVersion", {"20250101000000", "20250101000001", "20990101000000", "0", "", "abc",
                         "99999999999999999999999"}},
      {"LocalVersion", {"20250101000000", "20250101000001", "20990101000000", "0", "", "abc"}},
      {"name", {"OverwriteClientSites", "x", ""}},
      {"xmlns:ns", {"zelSiteList", "", "other"}},
  };
  return values;
}

const Values c_anyValue = {"", "0", "1", "-1", "x", c_long, "%%lt%%PATH%%gt%%", "\xC3\xA9", "\t", "a b"};
const Values c_passwords = {"", "AAAA", "QUJDREVGR0hJSktMTU5PUA==", "!!!!", "AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA", c_long};

// Text by element name; names not here take c_anyValue.
const std::map<std::string, Values>& TextValues() {
  static const std::map<std::string, Values> values = {
      {"RelativePath", {"Software", "Updates", "%%lt%%PATH%%gt%%/x", "", "../..", c_long}},
      {"UseAuth", c_flags}, {"UseLoggedonUserAccount", c_flags}, {"AllowUserToConfigureProxy", c_flags},
      {"BypassLocalAddress", c_flags}, {"FtpUseAuth", c_flags}, {"HttpUseAuth", c_flags},
      {"AlternateFtpUseAuth", c_flags}, {"AlternateHttpUseAuth", c_flags}, {"Setting", c_flags},
      {"UserName", {"u", "anonymous", "", "\xC3\xBC", c_long}},
      {"DomainName", {"CORP", "", c_long}}, {"ShareName", {"s", "u", "", c_long}},
      {"Password", c_passwords}, {"HttpProxyPassword", c_passwords}, {"FtpProxyPassword", c_passwords},
      {"AlternateHttpProxyPassword", c_passwords}, {"AlternateFtpProxyPassword", c_passwords},
      {"CaCertificate", {"A", "", "-----BEGIN CERTIFICATE-----\nMIIB\n-----END CERTIFICATE-----\n", c_long}},
      {"ExclusionHost", {"a.example", "*.example", "", "127.0.0.1"}},
  };
  return values;
}

// The children a site of each kind may have.
const Values& SiteChildren(const std::string& kind) {
  static const Values spipe = {"RelativePath", "UseAuth", "UserName", "Password"};
  static const Values ftp = {"RelativePath", "UserName", "Password"};
  static const Values share = {"ShareName", "RelativePath", "UseLoggedonUserAccount", "DomainName", "UserName",
                               "Password"};
  static const Values http = {"RelativePath", "UseAuth", "UserName", "Password"};
  if (kind == "SpipeSite" || kind == "SuperAgentSite") return spipe;
  if (kind == "FTPSite") return ftp;
  if (kind == "UNCSite" || kind == "LocalSite") return share;
  return http;
}

const Values c_attributeNames = {"Type", "Name", "Order", "Enabled", "Local", "Server", "ServerName", "ServerIP",
                                 "ServerDNS", "SecurePort", "Version", "Passive", "Default", "UseIEConfig",
                                 "FipsMode", "GlobalVersion", "LocalVersion", "HttpProxyServer", "HttpProxyPort",
                                 "FtpProxyServer", "FtpProxyPort", "Encrypted"};

const std::string& Pick(const Values& values, std::minstd_rand& random) { return values[random() % values.size()]; }

const std::string& ValueFor(const std::map<std::string, Values>& table, const std::string& name,
                            std::minstd_rand& random) {
  const auto found = table.find(name);
  return Pick(found == table.end() || random() % 8 == 0 ? c_anyValue : found->second, random);
}

struct Place {
  XmlNode* parent;  // null for the document element
  XmlNode* node;
  std::size_t index;
};

void Collect(XmlNode& node, XmlNode* parent, std::size_t index, std::vector<Place>& out) {
  out.push_back({parent, &node, index});
  for (std::size_t i = 0; i < node.children.size(); ++i) Collect(*node.children[i], &node, i, out);
}

bool IsSite(const std::string& name) { return std::find(c_siteKinds.begin(), c_siteKinds.end(), name) != c_siteKinds.end(); }

std::unique_ptr<XmlNode> NewSite(std::minstd_rand& random) {
  auto site = std::make_unique<XmlNode>();
  site->name = Pick(c_siteKinds, random);
  for (const char* name : {"Type", "Name", "Order", "Enabled", "Local", "Server"})
    if (random() % 8 != 0) site->attributes.emplace_back(name, ValueFor(AttributeValues(), name, random));
  for (const char* name : {"ServerName", "ServerIP", "SecurePort", "Version", "ServerDNS", "Passive"})
    if (random() % 3 == 0) site->attributes.emplace_back(name, ValueFor(AttributeValues(), name, random));
  for (const std::string& child : SiteChildren(site->name)) {
    if (random() % 4 == 0) continue;
    auto node = std::make_unique<XmlNode>();
    node->name = child;
    node->text = ValueFor(TextValues(), child, random);
    if (child == "Password") node->attributes.emplace_back("Encrypted", random() % 4 ? "1" : "0");
    site->children.push_back(std::move(node));
  }
  return site;
}

// A site into a SiteList element (the first of the root's children of that
// name, or the root itself when there is none).
void InsertSite(XmlNode& root, std::minstd_rand& random) {
  XmlNode* list = &root;
  for (auto& child : root.children)
    if (child->name == "SiteList") list = child.get();
  const std::size_t at = list->children.empty() ? 0 : random() % (list->children.size() + 1);
  list->children.insert(list->children.begin() + at, NewSite(random));
}

void ChangeAttribute(XmlNode& node, std::minstd_rand& random) {
  if (node.attributes.empty() || random() % 4 == 0) {
    const std::string& name = Pick(c_attributeNames, random);
    const std::string& value = ValueFor(AttributeValues(), name, random);
    // A name the element has already is mostly given the new value; written
    // twice, the document is not well formed.
    for (auto& [have, old] : node.attributes)
      if (have == name && random() % 4 != 0) {
        old = value;
        return;
      }
    node.attributes.emplace_back(name, value);
    return;
  }
  auto& attribute = node.attributes[random() % node.attributes.size()];
  if (random() % 6 == 0)
    node.attributes.erase(node.attributes.begin() + (&attribute - node.attributes.data()));
  else
    attribute.second = ValueFor(AttributeValues(), attribute.first, random);
}

void MutateOnce(XmlNode& root, std::minstd_rand& random) {
  std::vector<Place> places;
  Collect(root, nullptr, 0, places);
  Place& place = places[random() % places.size()];
  XmlNode& node = *place.node;
  switch (random() % 8) {
    case 0: InsertSite(root, random); break;
    case 1:  // remove an element
      if (place.parent) place.parent->children.erase(place.parent->children.begin() + place.index);
      break;
    case 2:  // copy an element beside itself
      if (place.parent && places.size() < 2000)
        place.parent->children.insert(place.parent->children.begin() + place.index + 1, node.Clone());
      break;
    case 3:  // swap two elements of one parent
      if (node.children.size() >= 2)
        std::swap(node.children[random() % node.children.size()], node.children[random() % node.children.size()]);
      break;
    case 4:  // another kind of site, same attributes and children
      for (const Place& p : places)
        if (IsSite(p.node->name) && random() % 2 == 0) {
          p.node->name = Pick(c_siteKinds, random);
          break;
        }
      break;
    case 5: node.text = ValueFor(TextValues(), node.name, random); break;
    default: ChangeAttribute(node, random); break;
  }
}

}  // namespace

void MutateTree(XmlNode& root, std::minstd_rand& random) {
  const int count = 1 + static_cast<int>(random() % 3);
  for (int i = 0; i < count; ++i) MutateOnce(root, random);
}

}  // namespace fuzzsupport
