// Existence of a site list file, and reading its text under the shared
// "SiteListLock".
#ifndef VLM_SITEHLP_SITELISTFILE_H
#define VLM_SITEHLP_SITELISTFILE_H

#include <string>

#include "platform/AString.h"
#include "port/xml/AdvXMLParser.h"

namespace sitehlp {

// True when path names an existing file (a symbolic link is followed).
bool SiteListFileExists(const std::wstring& path);
// Right after SiteListFileExists answered false: c_fileMissing when there
// is no file, c_fileUnreadable when the question itself failed (an I/O
// error, a denied search): a file that may exist is never taken for a
// missing one.
int MissingFileResult();

// Reads the whole file as UTF-8 (decoded from any Unicode encoding) for
// Parser::Parse(Utf8Text&), under the shared "SiteListLock", released as soon
// as the text is in memory (also when reading fails). False when the lock
// cannot be had (logged) or the file cannot be read or decoded; then why,
// when given, says what went wrong. No wide copy of the file is made.
bool ReadSiteListUtf8(const std::wstring& path, AdvXMLParser::Utf8Text& text, std::string* why = nullptr);

}  // namespace sitehlp

#endif  // VLM_SITEHLP_SITELISTFILE_H
