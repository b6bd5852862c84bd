#include "sitehlp/ExceptionResult.h"

#include <new>

#include "port/xml/AdvXMLParser.h"
#include "sitehlp/SitesHelper.h"

namespace sitehlp {

int CaughtExceptionResult() {
  try {
    throw;
  } catch (const AdvXMLParser::ParsingException&) {
    return c_notWellFormed;
  } catch (const AdvXMLParser::ReadWriteException& e) {
    return e.GetErrorCode();
  } catch (const std::bad_alloc&) {
    return c_outOfMemory;
  }
}

}  // namespace sitehlp
