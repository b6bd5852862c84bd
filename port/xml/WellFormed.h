// The well-formedness rules pugixml leaves to its caller, shared by both XML
// facades (AdvXMLParser for reading, AnXml for editing in place).
//
// pugixml skips text outside the document element, stops at a NUL byte as if
// the document ended there, keeps a CDATA section outside the document
// element and takes several document elements. None of that is well-formed
// XML, and text appended to a site list could make one reader see a document
// another refuses, so all of it is refused here: a text must open with '<'
// and end with '>' (around white space and a byte order mark), as every
// well-formed document does, and hold one element and no CDATA at the top.
// The checks look at both ends of the text and at the top-level nodes only,
// so they cost nothing measurable. Bytes after a NUL that end with '>' are
// not looked at.
//
// An attribute written twice is not looked for: that needs a walk over every
// element, which costs more than the whole parse of a version query on a
// large list. pugixml keeps both; every reader here takes the first.
//
// The byte scan runs before parsing, because an in-place parse rewrites the
// text; the tree check runs after a parse pugixml accepted, so that its own,
// more precise, faults come first.
// Thread safety: plain functions over the caller's data.
#ifndef VLM_PORT_XML_WELLFORMED_H
#define VLM_PORT_XML_WELLFORMED_H

#include <cstddef>

#include <pugixml.hpp>

namespace port {
namespace xml {

// Where the raw text breaks the rules; -1 where it does not.
struct TextFrame {
  std::ptrdiff_t textBefore = -1;  // a character other than '<' opens the text
  std::ptrdiff_t textAfter = -1;   // the text does not end with '>': where the text after the last '>' starts
};

// Scans size bytes of UTF-8 (a leading byte order mark and XML white space
// around the markup are allowed).
TextFrame ScanText(const char* text, std::size_t size);

struct Fault {
  std::ptrdiff_t offset = 0;  // byte offset into the parsed text
  const char* what = "";      // in pugixml's style, e.g. "Duplicate attribute"
};

// The first rule broken by a text pugixml parsed without error into doc.
// Returns false when there is none.
bool FindFault(const TextFrame& frame, const pugi::xml_document& doc, Fault& fault);

}  // namespace xml
}  // namespace port

#endif  // VLM_PORT_XML_WELLFORMED_H
