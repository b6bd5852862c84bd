// Base64 (RFC 4648, with padding) of bytes: how a history entry holds the
// bytes of the files it keeps inside its JSON document.
#ifndef VLM_TOOLS_SITELIST_BASE64_H
#define VLM_TOOLS_SITELIST_BASE64_H

#include <string>

namespace sitelist {

std::string Base64Encode(const std::string& bytes);
// False (bytes untouched) when text is not padded base64.
bool Base64Decode(const std::string& text, std::string& bytes);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_BASE64_H
