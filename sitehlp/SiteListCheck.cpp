// Whether a site list file would be read, and where it is not well formed:
// the same reading rules as the reader's, without turning it into records.
#include <boost/scoped_ptr.hpp>

#include <new>
#include <string>

#include "port/log/Log.h"
#include "port/xml/AdvXMLParser.h"
#include "port/xml/WellFormed.h"
#include "sitehlp/Component.h"
#include "sitehlp/SiteListFile.h"
#include "sitehlp/SitesHelper.h"

namespace sitehlp {

namespace {

uint32_t Clamp(unsigned long n) { return n > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(n); }

}  // namespace

int CSitesHelper::CheckSiteListDocument(const std::wstring& path, tag_DocumentCheck& check) {
  ADetailTrace trace(c_component, L"Checking Sitelist document");
  check = tag_DocumentCheck();
  check.szPath = path.empty() ? m_siteListPath : path;
  if (check.szPath.empty()) return -2;
  if (!SiteListFileExists(check.szPath)) return MissingFileResult();

  AdvXMLParser::Utf8Text text;
  std::string why;
  if (!ReadSiteListUtf8(check.szPath, text, &why)) {
    check.szDescription = AString(why);
    return -10;
  }
  try {
    // The reader's parse, so that what is accepted here is what it reads.
    AdvXMLParser::Parser parser;
    boost::scoped_ptr<AdvXMLParser::Document> document(parser.Parse(text, AdvXMLParser::Parser::ReadingOnly));
    check.szRootElement = document->GetRoot().GetName();
  } catch (const AdvXMLParser::ParsingException& e) {
    check.nLine = Clamp(e.GetLine());
    check.nColumn = Clamp(e.GetColumn());
    check.szDescription = AString(e.GetDescription());
    return -5;
  } catch (const AdvXMLParser::ReadWriteException& e) {
    check.szDescription = AString(std::string(e.what()));
    return -3;  // the parser's only read/write failure is running out of memory
  } catch (const std::bad_alloc&) {
    return -3;
  }
  return 0;
}

bool CSitesHelper::GetLastXmlRefusal(tag_DocumentCheck& refusal) {
  port::xml::Refusal last;
  if (!port::xml::LastRefusal(last)) return false;
  tag_DocumentCheck place;
  place.szPath = AString(last.document);
  place.nLine = Clamp(last.line);
  place.nColumn = Clamp(last.column);
  place.szDescription = AString(last.description);
  refusal = place;
  return true;
}

void CSitesHelper::ClearLastXmlRefusal() { port::xml::ClearLastRefusal(); }

}  // namespace sitehlp
