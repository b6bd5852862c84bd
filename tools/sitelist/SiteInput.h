// Checks of the values an administrator gives for a site, before anything is
// read or written: every value must fit its record field whole (the library
// would cut it), servers and ports must make sense, and passwords come only
// from standard input.
#ifndef VLM_TOOLS_SITELIST_SITEINPUT_H
#define VLM_TOOLS_SITELIST_SITEINPUT_H

#include <optional>
#include <string>

namespace sitelist {

// A value refused; the text says which and why.
struct InputError {
  std::string text;
};

// HOST or HOST:PORT, an IPv6 literal in brackets ([2001:db8::1]:8080) or
// bare (2001:db8::1, then without a port).
struct HostPort {
  std::string host;
  std::optional<unsigned int> port;
};

// what names the value in messages ("--server"). Refuses an empty or blank
// host, a port outside 1-65535 and a host longer than maxChars characters.
std::optional<InputError> ParseHostPort(const std::string& what, const std::string& text, unsigned int maxChars,
                                        HostPort& out);

// Refuses text longer than maxChars characters (the record field's capacity
// less its terminator), and, when required, empty text.
std::optional<InputError> CheckLength(const std::string& what, const std::string& text, unsigned int maxChars,
                                      bool required = false);

// Whether text is an IPv4 or IPv6 address (an IPv6 one may be in brackets).
bool IsIpAddress(const std::string& text);

// Reads a password from standard input: one trailing line ending is the
// terminal's or echo's and is dropped. Refuses an empty one and one longer
// than a record's password field holds (259 characters).
std::optional<InputError> ReadPassword(std::string& password);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_SITEINPUT_H
