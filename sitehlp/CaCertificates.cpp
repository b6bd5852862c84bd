// The CA certificates of a site list: the CaCertificate texts of its bundle.
#include <boost/scoped_ptr.hpp>

#include "port/log/Log.h"
#include "port/xml/AdvXMLParser.h"
#include "sitehlp/Component.h"
#include "sitehlp/ExceptionResult.h"
#include "sitehlp/SiteListFile.h"
#include "sitehlp/SitesHelper.h"
#include "xmlschema/sitelist.h"

namespace sitehlp {

int CSitesHelper::GetCaCertificates(const std::wstring& siteListPath, std::vector<std::wstring>& certificates) {
  ADetailTrace trace(c_component, L"Getting Certificates");
  const std::wstring& path = siteListPath.empty() ? m_siteListPath : siteListPath;
  if (!SiteListFileExists(path)) return MissingFileResult();
  // UTF-8 straight into the parser: no wide copy of the file.
  AdvXMLParser::Utf8Text text;
  if (!ReadSiteListUtf8(path, text)) return c_fileUnreadable;
  try {
    AdvXMLParser::Parser parser;
    boost::scoped_ptr<AdvXMLParser::Document> document(parser.Parse(text, AdvXMLParser::Parser::ReadingOnly));
    if (!document) return c_success;
    const AdvXMLParser::Element bundle = document->GetRoot().GetElement(ZEL_XML_CABUNDLE, 0);
    if (!bundle) return c_success;
    // Appended to what the caller holds: the list is not cleared.
    for (AdvXMLParser::Element child : bundle.Children())
      if (child.HasName(ZEL_XML_CACERTIFICATE)) certificates.push_back(child.GetValue());
  } catch (const AdvXMLParser::ReadWriteException&) {
    // Here a read or write error of the parser has a code of its own.
    return c_fileNotWritten;
  } catch (...) {
    return CaughtExceptionResult();
  }
  return c_success;
}

}  // namespace sitehlp
