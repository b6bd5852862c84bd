#include "port/xml/WellFormed.h"

#include <expat.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <new>
#include <type_traits>

#include "platform/AString.h"
#include "port/log/Log.h"
#include "port/strings/Strings.h"
#include "port/text/Unicode.h"

namespace port {
namespace xml {

namespace {

constexpr wchar_t kComponent[] = L"XML";

// Any character outside the names would do: names never hold a line feed.
constexpr XML_Char kNamespaceSeparator = '\n';

// expat takes at most INT_MAX bytes per call.
constexpr std::size_t kChunk = std::size_t{1} << 30;

struct ParserFree {
  void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};
using ParserPtr = std::unique_ptr<std::remove_pointer<XML_Parser>::type, ParserFree>;

bool AllAscii(const char* text, std::size_t size) {
  unsigned char any = 0;
  for (std::size_t i = 0; i < size; ++i) any |= static_cast<unsigned char>(text[i]);
  return any < 0x80;
}

bool NameIn(const char* name, std::initializer_list<const char*> names) {
  return std::any_of(names.begin(), names.end(),
                     [name](const char* n) { return EqualsIgnoringAsciiCase(name, n); });
}

// What the handlers found: the library's own refusals, which stop expat.
struct Verdict {
  XML_Parser parser = nullptr;
  const char* text = nullptr;
  std::size_t size = 0;
  TextSource source = TextSource::Decoded;
  bool refused = false;
  Refusal refusal;
};

// Where expat is (1-based; its own column is 0-based).
void PlaceOfParser(XML_Parser parser, Refusal& refusal) {
  refusal.line = XML_GetCurrentLineNumber(parser);
  refusal.column = XML_GetCurrentColumnNumber(parser) + 1;
  const XML_Index index = XML_GetCurrentByteIndex(parser);
  refusal.offset = index > 0 ? static_cast<std::size_t>(index) : 0;
}

void RefuseHere(Verdict& v, const char* description) {
  v.refused = true;
  PlaceOfParser(v.parser, v.refusal);
  v.refusal.description = description;
  XML_StopParser(v.parser, XML_FALSE);
}

bool DeclaredEncodingFits(const Verdict& v, const char* name) {
  switch (v.source) {
    case TextSource::Decoded: return true;
    case TextSource::Utf8:
      return EqualsIgnoringAsciiCase(name, "UTF-8") ||
             (NameIn(name, {"US-ASCII", "ISO-8859-1"}) && AllAscii(v.text, v.size));
    case TextSource::Utf8Marked: return EqualsIgnoringAsciiCase(name, "UTF-8");
    case TextSource::Utf16Le: return NameIn(name, {"UTF-16", "UTF-16LE"});
    case TextSource::Utf16Be: return NameIn(name, {"UTF-16", "UTF-16BE"});
    case TextSource::Utf32Le: return NameIn(name, {"UTF-32", "UTF-32LE", "ISO-10646-UCS-4"});
    case TextSource::Utf32Be: return NameIn(name, {"UTF-32", "UTF-32BE", "ISO-10646-UCS-4"});
  }
  return false;
}

void XMLCALL OnXmlDeclaration(void* data, const XML_Char* /*version*/, const XML_Char* encoding, int /*standalone*/) {
  Verdict& v = *static_cast<Verdict*>(data);
  if (encoding && !DeclaredEncodingFits(v, encoding))
    RefuseHere(v, "encoding declaration does not name the encoding of the text");
}

// Line and column (1-based; columns in characters) of offset in text, by
// XML's line ends (CR LF, CR and LF each end a line), as expat counts them.
void PlaceOf(const char* text, std::size_t offset, Refusal& refusal) {
  unsigned long line = 1;
  unsigned long column = 1;
  for (std::size_t i = 0; i < offset; ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (c == '\n' || (c == '\r' && (i + 1 == offset || text[i + 1] != '\n'))) {
      ++line;
      column = 1;
    } else if (c != '\r' && !port::text::IsUtf8Continuation(c)) {
      ++column;
    }
  }
  refusal.line = line;
  refusal.column = column;
  refusal.offset = offset;
}

// expat reports the declaration when it has read its name; the refusal
// points at its start, the last "<!DOCTYPE" before that.
void XMLCALL OnDoctype(void* data, const XML_Char*, const XML_Char*, const XML_Char*, int) {
  Verdict& v = *static_cast<Verdict*>(data);
  RefuseHere(v, "document type declaration not allowed");
  static const char kOpen[] = "<!DOCTYPE";
  const std::size_t end = std::min(v.refusal.offset, v.size);
  for (std::size_t at = end; at-- > 0;) {
    if (std::strncmp(v.text + at, kOpen, sizeof kOpen - 1) == 0 && at + sizeof kOpen - 1 <= v.size) {
      PlaceOf(v.text, at, v.refusal);
      break;
    }
  }
}

// expat's own refusal, where it stopped.
void ExpatRefusal(XML_Parser parser, Refusal& refusal) {
  PlaceOfParser(parser, refusal);
  const XML_LChar* what = XML_ErrorString(XML_GetErrorCode(parser));
  refusal.description = what ? what : "not well-formed";
}

thread_local Refusal t_lastRefusal;
thread_local bool t_hasRefusal = false;

}  // namespace

bool CheckWellFormed(const char* text, std::size_t size, TextSource source, Refusal& refusal) {
  if (!text) size = 0;
  // The text is UTF-8 whatever its declaration says: the facade made it so.
  ParserPtr parser(XML_ParserCreateNS("UTF-8", kNamespaceSeparator));
  if (!parser) throw std::bad_alloc();
  Verdict verdict;
  verdict.parser = parser.get();
  verdict.text = text;
  verdict.size = size;
  verdict.source = source;
  XML_SetUserData(parser.get(), &verdict);
  XML_SetXmlDeclHandler(parser.get(), &OnXmlDeclaration);
  XML_SetStartDoctypeDeclHandler(parser.get(), &OnDoctype);

  std::size_t done = 0;
  XML_Status status = XML_STATUS_OK;
  do {
    const std::size_t chunk = std::min(size - done, kChunk);
    const bool last = done + chunk == size;
    status = XML_Parse(parser.get(), text ? text + done : "", static_cast<int>(chunk), last ? XML_TRUE : XML_FALSE);
    done += chunk;
  } while (status == XML_STATUS_OK && done < size);
  if (status == XML_STATUS_OK) return true;

  if (verdict.refused) {
    refusal = verdict.refusal;
  } else {
    if (XML_GetErrorCode(parser.get()) == XML_ERROR_NO_MEMORY) throw std::bad_alloc();
    ExpatRefusal(parser.get(), refusal);
  }
  refusal.document.clear();
  return false;
}

void RecordRefusal(const Refusal& refusal) {
  t_lastRefusal = refusal;
  t_hasRefusal = true;
  if (!LogEnabled(LogLevel::Detail)) return;
  const std::string where = refusal.document.empty() ? std::string("text in memory") : refusal.document;
  logDetail(kComponent, AString(where + ":" + std::to_string(refusal.line) + ":" + std::to_string(refusal.column) +
                                ": not well formed: " + refusal.description));
}

bool LastRefusal(Refusal& refusal) {
  if (!t_hasRefusal) return false;
  refusal = t_lastRefusal;
  return true;
}

void ClearLastRefusal() {
  t_hasRefusal = false;
  t_lastRefusal = Refusal();
}

}  // namespace xml
}  // namespace port
