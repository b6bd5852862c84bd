#include "port/xml/AdvXMLParser.h"

#include <errno.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>

#include <pugixml.hpp>

#include "port/fs/WholeFile.h"
#include "port/text/Unicode.h"
#include "port/xml/StringWriter.h"
#include "port/xml/WellFormed.h"

namespace AdvXMLParser {

namespace {

// Element handles are pugixml node pointers in disguise.
inline pugi::xml_node ToNode(ElementRef ref) { return pugi::xml_node(reinterpret_cast<pugi::xml_node_struct*>(ref)); }
inline ElementRef ToRef(const pugi::xml_node& node) { return reinterpret_cast<ElementRef>(node.internal_object()); }

// One character of a NUL-terminated UTF-8 string at p (whose first byte is
// >= 0x80) in the codec's replacing mode, so that names compare equal to
// what GetName returns. (The pointer is returned rather than updated through
// a reference so that callers keep it in a register.)
inline const unsigned char* DecodeMulti(const unsigned char* p, wchar_t& out) {
  return port::text::DecodeUtf8Replacing(p, 4, out);
}

// Compares a UTF-8 string of the tree with a wide one without allocating.
bool EqualsWide(const char* utf8, const wchar_t* wide) {
  if (!wide) wide = L"";
  const unsigned char* p = reinterpret_cast<const unsigned char*>(utf8 ? utf8 : "");
  for (;;) {
    const unsigned c = *p;
    if (c < 0x80) {
      if (static_cast<wchar_t>(c) != *wide) return false;
      if (c == 0) return true;
      ++p;
      ++wide;
      continue;
    }
    wchar_t decoded;
    p = DecodeMulti(p, decoded);
    if (decoded != *wide) return false;
    ++wide;
  }
}

// UTF-8 of the tree to wide text.
AString ToWide(const char* utf8) {
  return utf8 ? AString(port::text::DecodeUtf8(utf8, std::strlen(utf8))) : AString();
}

// The UTF-8 of a wide name or value for the builder, in a buffer on the
// stack when it fits (every name and nearly every value of a site list
// does), so that building a document makes no temporary string per call.
// One pass, no length first: the values are short, and measuring them cost
// as much as narrowing them. The bytes are the codec's.
class NarrowText {
 public:
  explicit NarrowText(const wchar_t* s) {
    if (!s) s = L"";
    char* d = m_stack;
    // Any kLimit characters fit, at four bytes each at most.
    constexpr std::size_t kLimit = (sizeof m_stack - 1) / 4;
    for (std::size_t i = 0; i < kLimit; ++i) {
      const std::uint32_t c = static_cast<std::uint32_t>(s[i]);
      if (c == 0) {
        *d = '\0';
        m_p = m_stack;
        return;
      }
      if (c < 0x80)
        *d++ = static_cast<char>(c);
      else
        d = port::text::PutUtf8(d, c);
    }
    m_heap = port::text::EncodeUtf8(s, std::wcslen(s));  // longer: the general path
    m_p = m_heap.c_str();
  }
  NarrowText(const NarrowText&) = delete;
  NarrowText& operator=(const NarrowText&) = delete;
  const char* c_str() const { return m_p; }

 private:
  char m_stack[512];
  std::string m_heap;
  const char* m_p;
};

// Encodes wide text into a NUL-terminated buffer from pugixml's allocator,
// which the parser then takes over without copying. The buffer is sized for
// mostly-ASCII text so that the usual document is encoded in one pass; text
// with more non-ASCII than that switches once to an exactly sized buffer.
// outSize counts the terminator. Null when memory runs out.
char* EncodeForParser(const wchar_t* s, std::size_t n, std::size_t& outSize) {
  port::ByteBuffer buffer(pugi::get_memory_allocation_function(), pugi::get_memory_deallocation_function());
  if (!buffer.reserve(n + n / 8 + 64)) return nullptr;
  std::size_t written = 0;
  const std::size_t done = port::text::EncodeUtf8Into(s, n, buffer.data(), buffer.capacity() - 1, written);
  if (done < n) {
    const std::size_t need = written + port::text::Utf8Length(s + done, n - done);
    buffer.resize(written);
    if (!buffer.reserve(need + 1)) return nullptr;
    std::size_t more = 0;
    port::text::EncodeUtf8Into(s + done, n - done, buffer.data() + written, need - written, more);
    written += more;
  }
  buffer.data()[written] = '\0';
  outSize = written + 1;
  return buffer.release();
}

int ClampOffset(std::size_t offset) { return offset > INT_MAX ? INT_MAX : static_cast<int>(offset); }

[[noreturn]] void ThrowNotWellFormed(port::xml::Refusal& refusal, const std::string& origin) {
  refusal.document = origin;
  port::xml::RecordRefusal(refusal);
  throw ParsingException(ClampOffset(refusal.offset), refusal.line, refusal.column, refusal.description);
}

// The conforming check (WellFormed.h) before pugixml, which rewrites the
// text when it parses in place.
void CheckText(const char* text, std::size_t size, port::xml::TextSource source, const std::string& origin) {
  port::xml::Refusal refusal;
  if (!port::xml::CheckWellFormed(text, size, source, refusal)) ThrowNotWellFormed(refusal, origin);
}

// pugixml's own verdict on a text the check accepted. No text is known that
// expat accepts and pugixml refuses; should one turn up, its refusal carries
// only pugixml's offset and description, without a line and column.
void CheckResult(const pugi::xml_parse_result& result, const std::string& origin) {
  if (result.status == pugi::status_out_of_memory) throw ReadWriteException(ENOMEM, "out of memory parsing XML");
  if (result.status == pugi::status_ok) return;
  port::xml::Refusal refusal;
  refusal.offset = result.offset > 0 ? static_cast<std::size_t>(result.offset) : 0;
  refusal.description = result.description();
  ThrowNotWellFormed(refusal, origin);
}

port::xml::TextSource SourceOf(const Utf8Text& text) {
  switch (text.GetEncoding()) {
    case UTF_16_LE: return port::xml::TextSource::Utf16Le;
    case UTF_16_BE: return port::xml::TextSource::Utf16Be;
    case UTF_32_LE: return port::xml::TextSource::Utf32Le;
    case UTF_32_BE: return port::xml::TextSource::Utf32Be;
    default: return text.HasByteOrderMark() ? port::xml::TextSource::Utf8Marked : port::xml::TextSource::Utf8;
  }
}

pugi::xml_node FirstElementOf(pugi::xml_node n) {
  while (n && n.type() != pugi::node_element) n = n.next_sibling();
  return n;
}

// Names the builder refuses: pugixml would write them as broken markup.
inline bool BadName(const wchar_t* name) { return !name || !*name; }

// Gives a freshly inserted element its name, or takes it out again.
Element Named(pugi::xml_node parent, pugi::xml_node child, const wchar_t* name) {
  if (!child) return Element();
  bool ok = false;
  try {
    ok = child.set_name(NarrowText(name).c_str());
  } catch (const std::bad_alloc&) {
  }
  if (!ok) {
    parent.remove_child(child);
    return Element();
  }
  return Element(ToRef(child));
}

}  // namespace

// ---- Node -------------------------------------------------------------------

AString Node::GetName() const { return ToWide(ToNode(m_ref).name()); }

const char* Node::GetNameUtf8() const { return ToNode(m_ref).name(); }

bool Node::HasName(const wchar_t* name) const { return m_ref && EqualsWide(ToNode(m_ref).name(), name); }

// ---- Element ----------------------------------------------------------------

namespace {

// Appends an attribute as the element's last; false (and none added) when it
// cannot be made. Throws std::bad_alloc.
bool AppendNewAttribute(ElementRef ref, const wchar_t* name, const char* value) {
  pugi::xml_node self = ToNode(ref);
  pugi::xml_attribute a = self.append_attribute("");  // named below, where a failure shows
  if (!a) return false;
  if (!a.set_name(NarrowText(name).c_str()) || !a.set_value(value)) {
    self.remove_attribute(a);
    return false;
  }
  return true;
}

pugi::xml_attribute FindAttribute(ElementRef ref, const wchar_t* name) {
  for (pugi::xml_attribute a = ToNode(ref).first_attribute(); a; a = a.next_attribute())
    if (EqualsWide(a.name(), name)) return a;
  return pugi::xml_attribute();
}

}  // namespace

AString Element::GetAttribute(const wchar_t* name) const {
  const pugi::xml_attribute a = FindAttribute(m_ref, name);
  return a ? ToWide(a.value()) : AString();
}

bool Element::GetAttribute(const wchar_t* name, AString& value) const {
  const pugi::xml_attribute a = FindAttribute(m_ref, name);
  if (!a) return false;
  value = ToWide(a.value());
  return true;
}

bool Element::HasAttribute(const wchar_t* name) const { return static_cast<bool>(FindAttribute(m_ref, name)); }

AString Element::GetValue() const { return ToWide(ToNode(m_ref).child_value()); }

const char* Element::GetAttributeUtf8(const wchar_t* name) const {
  const pugi::xml_attribute a = FindAttribute(m_ref, name);
  return a ? a.value() : nullptr;
}

const char* Element::GetValueUtf8() const { return ToNode(m_ref).child_value(); }

// A reader wants most attributes of a site element: one walk over them
// costs a fraction of one search per name.
void Element::GetAttributesUtf8(const wchar_t* const* names, std::size_t count, const char** values) const {
  for (std::size_t i = 0; i < count; ++i) values[i] = nullptr;
  for (pugi::xml_attribute a = ToNode(m_ref).first_attribute(); a; a = a.next_attribute()) {
    const char* name = a.name();
    const unsigned first = static_cast<unsigned char>(*name);
    for (std::size_t i = 0; i < count; ++i) {
      // An ASCII first character can only match the same byte: most names
      // are told apart here without decoding.
      const std::uint32_t wanted = static_cast<std::uint32_t>(names[i] ? names[i][0] : 0);
      if (wanted < 0x80 && wanted != first) continue;
      if (!values[i] && EqualsWide(name, names[i])) {
        values[i] = a.value();
        break;
      }
    }
  }
}

void Element::GetAttributesUtf8(const char* const* names, std::size_t count, const char** values) const {
  for (std::size_t i = 0; i < count; ++i) values[i] = nullptr;
  for (pugi::xml_attribute a = ToNode(m_ref).first_attribute(); a; a = a.next_attribute()) {
    const char* name = a.name();
    for (std::size_t i = 0; i < count; ++i) {
      if (names[i][0] != name[0] || values[i] || std::strcmp(name, names[i]) != 0) continue;
      values[i] = a.value();
      break;
    }
  }
}

// Readers fill fixed-capacity record fields straight from the tree: no wide
// string is made (and freed) per value. The decoding is ToWide's.
bool DecodeUtf8Into(const char* utf8, wchar_t* dst, std::size_t capacity, std::size_t& length) {
  if (!dst || capacity == 0) return false;
  const unsigned char* p = reinterpret_cast<const unsigned char*>(utf8 ? utf8 : "");
  wchar_t* d = dst;
  wchar_t* const last = dst + capacity - 1;  // room for the terminator
  while (*p) {
    if (d == last) return false;
    if (*p < 0x80)
      *d++ = static_cast<wchar_t>(*p++);
    else
      p = DecodeMulti(p, *d++);
  }
  *d = L'\0';
  length = static_cast<std::size_t>(d - dst);
  return true;
}

Element Element::GetElement(const wchar_t* name, int index) const {
  if (index < 0) return Element();
  for (pugi::xml_node n = FirstElementOf(ToNode(m_ref).first_child()); n; n = FirstElementOf(n.next_sibling())) {
    if (EqualsWide(n.name(), name) && index-- == 0) return Element(ToRef(n));
  }
  return Element();
}

Element Element::FirstChildElement() const { return Element(ToRef(FirstElementOf(ToNode(m_ref).first_child()))); }

Element Element::NextSiblingElement() const { return Element(ToRef(FirstElementOf(ToNode(m_ref).next_sibling()))); }

Element Element::GetParent() const {
  const pugi::xml_node parent = ToNode(m_ref).parent();
  return Element(parent.type() == pugi::node_element ? ToRef(parent) : nullptr);
}

Element Element::AppendElement(const wchar_t* name) {
  if (!m_ref || BadName(name)) return Element();
  pugi::xml_node self = ToNode(m_ref);
  return Named(self, self.append_child(pugi::node_element), name);
}

Element Element::PrependElement(const wchar_t* name) {
  if (!m_ref || BadName(name)) return Element();
  pugi::xml_node self = ToNode(m_ref);
  return Named(self, self.prepend_child(pugi::node_element), name);
}

Element Element::InsertElementAfter(const wchar_t* name, const Element& sibling) {
  if (!m_ref || BadName(name)) return Element();
  pugi::xml_node self = ToNode(m_ref);
  // pugixml refuses (null) a sibling that is not a child of this element.
  return Named(self, self.insert_child_after(pugi::node_element, ToNode(sibling.GetRef())), name);
}

bool Element::SetAttribute(const wchar_t* name, const wchar_t* value) {
  if (!m_ref || BadName(name)) return false;
  try {
    const NarrowText utf8Value(value);
    pugi::xml_attribute a = FindAttribute(m_ref, name);
    if (a) return a.set_value(utf8Value.c_str());  // in place: keeps its position
    return AppendNewAttribute(m_ref, name, utf8Value.c_str());
  } catch (const std::bad_alloc&) {
    return false;
  }
}

// SetAttribute without the search for an attribute to replace: a writer
// filling a new element knows none is there, and the search made building a
// site element quadratic in its attributes.
bool Element::AppendAttribute(const wchar_t* name, const wchar_t* value) {
  if (!m_ref || BadName(name)) return false;
  try {
    return AppendNewAttribute(m_ref, name, NarrowText(value).c_str());
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool Element::SetValue(const wchar_t* text) {
  if (!m_ref) return false;
  try {
    // xml_text works on the same first text/CDATA child GetValue reads, and
    // appends a text child when there is none.
    return ToNode(m_ref).text().set(NarrowText(text).c_str());
  } catch (const std::bad_alloc&) {
    return false;
  }
}

// ---- Document ---------------------------------------------------------------

struct Document::Impl {
  pugi::xml_document doc;
};

Document::Document() : m_impl(new Impl) {}
Document::~Document() = default;

Element Document::GetRoot() const { return Element(ToRef(m_impl->doc.document_element())); }

Element Document::CreateRoot(const wchar_t* name) {
  if (BadName(name)) return Element();
  // The new element is made first, so that a failure leaves the old tree.
  pugi::xml_node document = m_impl->doc;
  const Element root = Named(document, document.append_child(pugi::node_element), name);
  if (root.IsNull()) return root;
  const pugi::xml_node keep = ToNode(root.GetRef());
  for (pugi::xml_node n = document.first_child(); n;) {
    const pugi::xml_node next = n.next_sibling();
    if (n != keep) document.remove_child(n);
    n = next;
  }
  return root;
}

std::string Document::GenerateUtf8(bool bIndent) const {
  // pugixml's own declaration names no encoding, so ours is written instead.
  std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
  if (bIndent) out += '\n';
  port::xml::StringWriter writer(out);
  // Indented output uses one tab per level.
  const unsigned flags = (bIndent ? pugi::format_indent : pugi::format_raw) | pugi::format_no_declaration;
  m_impl->doc.save(writer, "\t", flags, pugi::encoding_utf8);
  // pugixml writes a carriage return in element text as it is, and every
  // parser turns it into a line feed on reading: write it as a character
  // reference so the text survives. Attributes are escaped by pugixml already
  // and the output itself contains no other carriage return.
  if (out.find('\r') != std::string::npos) {
    std::string escaped;
    escaped.reserve(out.size() + 16);
    for (char c : out) {
      if (c == '\r')
        escaped += "&#13;";
      else
        escaped += c;
    }
    out.swap(escaped);
  }
  return out;
}

AString Document::GenerateXML(bool bIndent) const { return ToWide(GenerateUtf8(bIndent).c_str()); }

// ---- Parser -----------------------------------------------------------------

// A leaf element whose text is only white space (a blank user name, a tab as
// a path) keeps it; white space between elements is still dropped, so an
// indented document costs no extra nodes.
constexpr unsigned kParseOptions = pugi::parse_default | pugi::parse_ws_pcdata_single;

namespace {

// A buffer from pugixml's allocator until pugixml takes it over.
class OwnedBuffer {
 public:
  explicit OwnedBuffer(char* p) : m_p(p) {}
  ~OwnedBuffer() {
    if (m_p) pugi::get_memory_deallocation_function()(m_p);
  }
  OwnedBuffer(const OwnedBuffer&) = delete;
  OwnedBuffer& operator=(const OwnedBuffer&) = delete;
  char* get() const { return m_p; }
  char* release() {
    char* p = m_p;
    m_p = nullptr;
    return p;
  }

 private:
  char* m_p;
};

// Checks size bytes of buffer (NUL-terminated after them), then parses them
// in place into doc, which owns the buffer afterwards.
void CheckAndLoadInPlace(OwnedBuffer& buffer, std::size_t size, unsigned options, port::xml::TextSource source,
                         const std::string& origin, pugi::xml_document& doc) {
  CheckText(buffer.get(), size, source, origin);
  CheckResult(doc.load_buffer_inplace_own(buffer.release(), size + 1, options, pugi::encoding_utf8), origin);
}

}  // namespace

Document* Parser::Parse(const wchar_t* text, std::size_t length) {
  if (!text) length = 0;
  try {
    std::size_t size = 0;
    OwnedBuffer buffer(EncodeForParser(text, length, size));
    if (!buffer.get()) throw ReadWriteException(ENOMEM, "out of memory parsing XML");
    std::unique_ptr<Document> document(new Document);
    // The text is characters already: its encoding declaration names nothing.
    CheckAndLoadInPlace(buffer, size - 1, kParseOptions, port::xml::TextSource::Decoded, std::string(),
                        document->m_impl->doc);
    return document.release();
  } catch (const std::bad_alloc&) {
    throw ReadWriteException(ENOMEM, "out of memory parsing XML");
  }
}

Utf8Text::~Utf8Text() {
  if (m_p) pugi::get_memory_deallocation_function()(m_p);
}

Utf8Text::Utf8Text(Utf8Text&& other) noexcept
    : m_p(other.m_p),
      m_size(other.m_size),
      m_encoding(other.m_encoding),
      m_bMarked(other.m_bMarked),
      m_origin(std::move(other.m_origin)) {
  other.m_p = nullptr;
  other.m_size = 0;
}

Utf8Text& Utf8Text::operator=(Utf8Text&& other) noexcept {
  if (this != &other) {
    if (m_p) pugi::get_memory_deallocation_function()(m_p);
    m_p = other.m_p;
    m_size = other.m_size;
    m_encoding = other.m_encoding;
    m_bMarked = other.m_bMarked;
    m_origin = std::move(other.m_origin);
    other.m_p = nullptr;
    other.m_size = 0;
  }
  return *this;
}

// The bytes Parse(const wchar_t*, ...) would have made from the wide form of
// this text are exactly these, so the check and pugixml see the same buffer
// (NUL counted) and report the same results and offsets, without the round
// trip; only the encoding declaration is held against the file's encoding.
Document* Parser::Parse(Utf8Text& text, Use use) {
  const unsigned options = use == ReadingOnly ? kParseOptions | pugi::parse_embed_pcdata : kParseOptions;
  OwnedBuffer buffer(text.m_p);
  const std::size_t size = text.m_size;
  const port::xml::TextSource source = SourceOf(text);
  const std::string origin = std::move(text.m_origin);
  text.m_p = nullptr;  // the buffer is ours now
  text = Utf8Text();
  try {
    std::unique_ptr<Document> document(new Document);
    if (!buffer.get()) {
      OwnedBuffer empty(static_cast<char*>(pugi::get_memory_allocation_function()(1)));
      if (!empty.get()) throw ReadWriteException(ENOMEM, "out of memory parsing XML");
      empty.get()[0] = '\0';
      CheckAndLoadInPlace(empty, 0, options, source, origin, document->m_impl->doc);
    } else {
      CheckAndLoadInPlace(buffer, size, options, source, origin, document->m_impl->doc);
    }
    return document.release();
  } catch (const std::bad_alloc&) {
    throw ReadWriteException(ENOMEM, "out of memory parsing XML");
  }
}

void Parser::Check(const Utf8Text& text) {
  try {
    CheckText(text.data(), text.size(), SourceOf(text), text.GetOrigin());
  } catch (const std::bad_alloc&) {
    throw ReadWriteException(ENOMEM, "out of memory parsing XML");
  }
}

Document* Parser::ParseUtf8(const char* text, std::size_t length) {
  if (!text) length = 0;
  try {
    std::unique_ptr<Document> document(new Document);
    const bool marked = length >= 3 && std::memcmp(text, "\xEF\xBB\xBF", 3) == 0;
    CheckText(text, length, marked ? port::xml::TextSource::Utf8Marked : port::xml::TextSource::Utf8, std::string());
    const pugi::xml_parse_result result =
        document->m_impl->doc.load_buffer(text ? text : "", length, kParseOptions, pugi::encoding_utf8);
    CheckResult(result, std::string());
    return document.release();
  } catch (const std::bad_alloc&) {
    throw ReadWriteException(ENOMEM, "out of memory parsing XML");
  }
}

}  // namespace AdvXMLParser
