// Filling record fields straight from the UTF-8 the parsed tree holds.
//
// The reader used to make a wide string of every attribute and child text
// and copy it into its field: one allocation, one decode and one copy per
// value. These helpers decode into the field itself and parse numbers from
// the UTF-8 text, with exactly the results of the wide path (CopyWStr's
// field contents and its truncation message, atoi's and the stream's
// numbers). A value that does not fit its field takes the wide path, so the
// truncation is logged word for word as before.
#ifndef VLM_SITEHLP_FIELDFILL_H
#define VLM_SITEHLP_FIELDFILL_H

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <wchar.h>
#include <string>

#include "platform/AString.h"
#include "port/log/Log.h"
#include "port/text/Unicode.h"
#include "port/xml/AdvXMLParser.h"
#include "sitehlp/Numbers.h"
#include "sitehlp/SitesHelper.h"

namespace sitehlp {

// The bytes of the first characters characters of utf8 (size bytes): the
// text up to the lead byte of the next character.
inline std::size_t Utf8PrefixBytes(const char* utf8, std::size_t size, std::size_t characters) {
  std::size_t seen = 0;
  for (std::size_t i = 0; i < size; ++i) {
    if (port::text::IsUtf8Continuation(static_cast<unsigned char>(utf8[i]))) continue;
    if (seen++ == characters) return i;
  }
  return size;
}

// CopyWStr(field, wide form of utf8, capacity) for a field that holds zeros
// past its text (a zeroed body, or a field CopyWStr filled): only the
// characters that change are written.
inline void FillField(CSitesHelper& helper, wchar_t* field, const char* utf8, unsigned int capacity) {
  if (!utf8) utf8 = "";
  const std::size_t old = field[0] ? ::wcsnlen(field, capacity) : 0;
  std::size_t length = 0;
  if (AdvXMLParser::DecodeUtf8Into(utf8, field, capacity, length)) {
    if (old > length + 1) std::wmemset(field + length + 1, 0, old - length - 1);
    return;
  }
  // It does not fit. Only the truncation line, logged at detail level, needs
  // the whole value widened (it quotes it); otherwise what the field keeps
  // and one character more, so that the cut is made and seen the same way,
  // is enough: a value of megabytes is never widened to four times its size.
  std::size_t bytes = std::strlen(utf8);
  if (!port::LogEnabled(port::LogLevel::Detail)) bytes = Utf8PrefixBytes(utf8, bytes, capacity);
  const std::wstring wide = port::text::DecodeUtf8(utf8, bytes);
  helper.CopyWStr(field, wide.c_str(), capacity);
}

// Atoi of the value's wide form: the narrow form is the UTF-8 itself. Plain
// decimals of up to nine digits (nearly every flag, port and order) are
// parsed here with atoi's result; anything else (blanks, a sign, more
// digits, no digit) is left to atoi itself.
inline int AtoiUtf8(const char* utf8) {
  if (!utf8) return 0;
  int value = 0;
  int digits = 0;
  const char* p = utf8;
  for (; digits < 9 && *p >= '0' && *p <= '9'; ++p, ++digits) value = value * 10 + (*p - '0');
  if (digits > 0 && !(*p >= '0' && *p <= '9')) return value;
  return std::atoi(utf8);
}

// split_host_and_port of the value's wide form, the host put into field by
// FillField; without a colon the whole text is the host and the port the
// HTTP default. port keeps its value when the text after the colon holds
// nothing but blanks, as the stream leaves it.
inline void FillHostPort(CSitesHelper& helper, wchar_t* field, unsigned int capacity, const char* utf8,
                         unsigned int& port) {
  if (!utf8) utf8 = "";
  const char* colon = std::strrchr(utf8, ':');
  if (!colon) {
    FillField(helper, field, utf8, capacity);
    port = c_defaultHttpPort;
    return;
  }
  // A colon byte is never part of a multi-byte sequence, so the last one is
  // the last ':' of the wide form, and what precedes it decodes alike.
  char host[1024];
  wchar_t tail[64];
  std::size_t tailLength = 0;
  std::size_t hostBytes = static_cast<std::size_t>(colon - utf8);
  // A host longer than the field is cut to what the field keeps and one
  // character more, unless the truncation line is logged and quotes it whole.
  if (hostBytes >= sizeof host && !port::LogEnabled(port::LogLevel::Detail))
    hostBytes = Utf8PrefixBytes(utf8, hostBytes, capacity);
  if (hostBytes < sizeof host && AdvXMLParser::DecodeUtf8Into(colon + 1, tail, 64, tailLength)) {
    std::memcpy(host, utf8, hostBytes);
    host[hostBytes] = '\0';
    FillField(helper, field, host, capacity);
    StreamExtractUnsigned(tail, tail + tailLength, port);
    return;
  }
  const std::wstring wide = port::text::DecodeUtf8(utf8, std::strlen(utf8));
  std::wstring hostText;
  split_host_and_port(wide, hostText, port);
  helper.CopyWStr(field, hostText.c_str(), capacity);
}

}  // namespace sitehlp

#endif  // VLM_SITEHLP_FIELDFILL_H
