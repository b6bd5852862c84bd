// Reading a site list file's text under the shared "SiteListLock".
#ifndef VLM_SITEHLP_SITELISTFILE_H
#define VLM_SITEHLP_SITELISTFILE_H

#include <string>

#include "platform/AString.h"
#include "port/xml/AdvXMLParser.h"

namespace sitehlp {

// True when path exists (existence test on its narrow form).
bool SiteListFileExists(const std::wstring& path);

// Reads the whole file into text under the shared "SiteListLock", released as
// soon as the text is in memory (also when reading fails). False when the
// lock cannot be had (logged) or the file cannot be read or decoded.
bool ReadSiteListText(const std::wstring& path, AString& text);

// The same, delivering the text as UTF-8 for Parser::Parse(Utf8Text&): the
// reading the reader and the queries use, with no wide copy of the file.
bool ReadSiteListUtf8(const std::wstring& path, AdvXMLParser::Utf8Text& text);

}  // namespace sitehlp

#endif  // VLM_SITEHLP_SITELISTFILE_H
