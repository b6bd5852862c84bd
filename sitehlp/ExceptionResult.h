// The result codes of the port layer's exceptions, in one place.
#ifndef VLM_SITEHLP_EXCEPTIONRESULT_H
#define VLM_SITEHLP_EXCEPTIONRESULT_H

namespace sitehlp {

// The result code of the exception being handled; call it only from inside
// a catch block. Text that is not well formed: c_notWellFormed; a read or
// write error of the XML parser: the error code it carries; memory
// exhausted: c_outOfMemory. Any other exception is thrown on.
int CaughtExceptionResult();

}  // namespace sitehlp

#endif  // VLM_SITEHLP_EXCEPTIONRESULT_H
