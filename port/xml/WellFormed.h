// Whether a text is well-formed XML, decided by a conforming parser, and the
// place of the last refusal made on a thread.
//
// pugixml builds the trees of both XML facades (AdvXMLParser for reading,
// AnXml for editing in place) but is lenient by design: it keeps the same
// attribute twice, takes a bare '&' or '<' in a value, "]]>" and control
// characters in text, "--" in a comment, undefined entity references and
// references to characters XML forbids, and no option makes it strict. So
// every text goes first through expat, the reference non-validating XML 1.0
// parser, namespace-aware (XML_ParserCreateNS), so that unbound prefixes and
// attributes that are the same once their prefixes are expanded are refused
// too. Only a text expat accepts reaches pugixml.
//
// Two rules are the library's own:
// - A document type declaration is refused, as careful parsers refuse DTDs by
//   default: a site list has none, and with no DTD no entity other than XML's
//   five predefined ones and character references can be declared, so any
//   other entity reference is refused as undefined.
// - The facade hands expat UTF-8 whatever the file was (a UTF-16 or UTF-32
//   file is decoded first) and tells it so, so expat cannot see the encoding
//   the bytes came in. The encoding declaration is therefore compared here
//   with that encoding (TextSource); see CheckWellFormed.
// And one of expat's: its name tables are XML 1.0's fourth edition's, so a
// name using characters only the fifth edition allows is refused.
//
// Parser choice, measured with bench/run (Release, 2 shared cores, medians;
// rows "conforming XML check alone", "expat with empty element and text
// handlers" and "pugixml read-only parse in place"), over the generated
// lists held in memory:
//
//   sites (bytes)       the check   expat, empty handlers   pugixml in place
//   100 (37,541)         152 us           152 us                 24 us
//   1,000 (327,859)     1.37 ms          1.69 ms               0.19 ms
//
// expat passes over a site list at about 250 MB/s, pugixml at about
// 1.7 GB/s. A tree built from expat's callbacks would cost at least expat's
// pass with (empty) handlers, which is already more than the check plus
// pugixml's parse, before a single node is made; so expat only judges (one
// pass, with two handlers that fire in the prolog only) and pugixml keeps
// building the trees and editing in place. The check is now the larger part
// of every read: the reader, the version query and the certificates each pay
// it once per call.
//
// Why the check stays with expat rather than libxml2, whose reader a
// measurement put at about 0.55 times expat's time over the same bytes (not
// repeated here). The check is part of every read's unavoidable cost, and
// the reader is judged against its crypto-inclusive floor plus the check: a
// cheaper check lowers both sides by the same amount, so the reader's ratio
// would rise, not fall (at 1,000 sites about 0.65 ms off 5.5 ms against 3.3
// ms). What it would buy is absolute time (about 0.65 ms of a 1,000-site
// read). Against that: libxml2 reports namespace faults (an unbound prefix,
// the same attribute twice once prefixes are expanded) as errors it goes on
// after, so the refusals would need handlers of our own, and the conformance
// suite's decisions would have to be made again case by case. Not worth it
// for a read that takes milliseconds.
//
// Thread safety: CheckWellFormed keeps no state; the last refusal is kept per
// thread.
#ifndef VLM_PORT_XML_WELLFORMED_H
#define VLM_PORT_XML_WELLFORMED_H

#include <cstddef>
#include <string>

namespace port {
namespace xml {

// The encoding the text was in before the facade made it UTF-8.
enum class TextSource {
  Decoded,     // already characters (wide text handed in): nothing to compare
  Utf8,        // UTF-8 without a byte order mark
  Utf8Marked,  // UTF-8 with its byte order mark
  Utf16Le,     // the marks of UTF-16 and UTF-32
  Utf16Be,
  Utf32Le,
  Utf32Be,
};

struct Refusal {
  std::string document;    // the file the text came from (narrow path); empty for text in memory
  unsigned long line = 0;  // 1-based; 0 when not known
  unsigned long column = 0;  // 1-based, in characters; 0 when not known
  std::size_t offset = 0;  // byte offset of the fault in the UTF-8 text
  std::string description;  // the parser's own words, e.g. "duplicate attribute"
};

// True when size bytes of UTF-8 text are a well-formed XML 1.0 document with
// namespaces and without a document type declaration, whose encoding
// declaration (if any) names the encoding source says the text came in:
// UTF-8 for Utf8 and Utf8Marked; for Utf8 also US-ASCII or ISO-8859-1 when
// every byte is ASCII (the text then means the same in all three); UTF-16 or
// UTF-32 (or the name of the mark's byte order, and ISO-10646-UCS-4 for
// UTF-32) for the other marks; any name for Decoded. Names are compared
// without regard to case. False, with refusal filled (document left empty),
// otherwise. Throws std::bad_alloc when memory runs out.
bool CheckWellFormed(const char* text, std::size_t size, TextSource source, Refusal& refusal);

// Keeps refusal as the calling thread's last refusal and logs it at detail
// level.
void RecordRefusal(const Refusal& refusal);
// The calling thread's last recorded refusal: true and refusal set when one
// was recorded since the thread started or since ClearLastRefusal.
bool LastRefusal(Refusal& refusal);
void ClearLastRefusal();

}  // namespace xml
}  // namespace port

#endif  // VLM_PORT_XML_WELLFORMED_H
