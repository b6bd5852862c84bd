// Re-encryption of a server site list held in memory: its passwords arrive in
// the byte form and are written out again in the text form.
#include <boost/scoped_ptr.hpp>

#include <new>
#include <string>
#include <vector>

#include "port/log/Log.h"
#include "port/xml/AdvXMLParser.h"
#include "sitehlp/Component.h"
#include "sitehlp/ExceptionResult.h"
#include "sitehlp/SitesHelper.h"
#include "sitehlp/serversitelist/ServerSiteListPath.h"
#include "xmlschema/sitelist.h"

namespace sitehlp {

int CSitesHelper::AdjustPwd(const AnObjectBuffer<unsigned char>& buffer) {
  ADetailTrace trace(c_component, L"Reading Sitelist");
  int status = c_success;
  std::wstring globalVersion;
  std::wstring localVersion;
  std::wstring type;
  std::vector<std::wstring> certificates;
  tag_Site* sites = nullptr;

  try {
    // Decoded as a file is (byte order marks, strict decoding), so that the
    // buffer's encoding declaration is held against the encoding it is in.
    AdvXMLParser::Utf8Text text;
    AdvXMLParser::ConvertBufferToUtf8(buffer.data(), buffer.size(), text);
    AdvXMLParser::Parser parser;
    boost::scoped_ptr<AdvXMLParser::Document> document(parser.Parse(text, AdvXMLParser::Parser::ReadingOnly));
    const AdvXMLParser::Element root = document->GetRoot();

    globalVersion = root.GetAttribute(ZEL_XML_SITELISTS_GLOBAL_VERSION);
    localVersion = root.GetAttribute(ZEL_XML_SITELISTS_LOCAL_VERSION);
    AString rootType;
    type = root.GetAttribute(ZEL_XML_SITELISTS_TYPE, rootType) ? std::wstring(rootType)
                                                                : std::wstring(ZEL_XML_SITELIST_TYPE_CLIENT);

    const AdvXMLParser::Element bundle = root.GetElement(ZEL_XML_CABUNDLE);
    if (bundle)
      for (AdvXMLParser::Element child : bundle.Children())
        if (child.HasName(ZEL_XML_CACERTIFICATE)) certificates.push_back(child.GetValue());

    for (AdvXMLParser::Element child : root.Children()) {
      if (child.HasName(ZEL_XML_SITELIST)) {
        // Only one SiteList is expected; a later one replaces an earlier one.
        FreeSiteListMemory(sites);
        sites = nullptr;
        // Sites only: proxy configurations and unknown elements are not
        // carried into the server site list.
        status = ReadSitesOfSiteList(child, &sites, true);
      } else if (child.HasName(ZEL_XML_POLICIES)) {
        ReadPolicies(child);
      }
    }
  } catch (...) {
    status = CaughtExceptionResult();
  }

  // Written whatever was read: writing encrypts the passwords in the text
  // form. A failure to write is not part of the status.
  CreateSiteList(sites, ServerSiteListPath(), globalVersion, localVersion, type, certificates);
  FreeSiteListMemory(sites);
  return status;
}

}  // namespace sitehlp
