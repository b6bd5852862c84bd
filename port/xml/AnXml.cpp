#include "port/xml/AnXml.h"

#include <cstring>
#include <new>
#include <string>
#include <vector>

#include <pugixml.hpp>

#include "port/fs/SafeWrite.h"
#include "port/strings/Strings.h"
#include "port/text/Unicode.h"
#include "port/xml/AdvXMLParser.h"
#include "port/xml/StringWriter.h"

namespace {

// Everything the document holds is kept: comments, processing instructions,
// the declaration and all white space inside the document element (a
// document type declaration is refused before pugixml sees the text). Line
// ends are kept as they are, so that text written back matches what was read.
constexpr unsigned kParseOptions = (pugi::parse_default & ~pugi::parse_eol) | pugi::parse_ws_pcdata |
                                   pugi::parse_comments | pugi::parse_pi | pugi::parse_declaration;

inline pugi::xml_node ToNode(AnXmlNodeHandle* p) { return pugi::xml_node(reinterpret_cast<pugi::xml_node_struct*>(p)); }
inline AnXmlNodeHandle* ToHandle(const pugi::xml_node& node) {
  return reinterpret_cast<AnXmlNodeHandle*>(node.internal_object());
}
inline pugi::xml_attribute ToAttribute(AnXmlAttributeHandle* p) {
  return pugi::xml_attribute(reinterpret_cast<pugi::xml_attribute_struct*>(p));
}
inline AnXmlAttributeHandle* ToHandle(const pugi::xml_attribute& attribute) {
  return reinterpret_cast<AnXmlAttributeHandle*>(attribute.internal_object());
}

inline std::string Utf8(const std::wstring& s) { return port::text::EncodeUtf8(s.data(), s.size()); }
inline AString Wide(const char* s) { return AString(port::text::DecodeUtf8(s, s ? std::strlen(s) : 0)); }

// Runs an editing step; memory running out makes it fail instead of throw.
template <typename F>
bool NoThrow(F step) {
  try {
    return step();
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool IsElement(const pugi::xml_node& node) { return node.type() == pugi::node_element; }

bool IsWhiteSpaceText(const pugi::xml_node& node) {
  if (node.type() != pugi::node_pcdata) return false;
  for (const char* p = node.value(); *p; ++p)
    if (*p != ' ' && *p != '\t' && *p != '\r' && *p != '\n') return false;
  return true;
}

bool HasElementChild(const pugi::xml_node& node) {
  for (pugi::xml_node c = node.first_child(); c; c = c.next_sibling())
    if (IsElement(c)) return true;
  return false;
}

// The child holding the element's text (see the header); null when none.
pugi::xml_node TextChild(const pugi::xml_node& element) {
  pugi::xml_node whiteSpace;
  for (pugi::xml_node c = element.first_child(); c; c = c.next_sibling()) {
    if (c.type() == pugi::node_cdata) return c;
    if (c.type() != pugi::node_pcdata) continue;
    if (!IsWhiteSpaceText(c)) return c;
    if (!whiteSpace) whiteSpace = c;
  }
  return HasElementChild(element) ? pugi::xml_node() : whiteSpace;
}

pugi::xml_node FirstChildElement(const pugi::xml_node& parent, const std::string& name) {
  for (pugi::xml_node c = parent.first_child(); c; c = c.next_sibling())
    if (IsElement(c) && name == c.name()) return c;
  return pugi::xml_node();
}

pugi::xml_node FirstChildElementWith(const pugi::xml_node& parent, const std::string& name,
                                     const std::string& attrName, const std::string& attrValue) {
  for (pugi::xml_node c = parent.first_child(); c; c = c.next_sibling()) {
    if (!IsElement(c) || name != c.name()) continue;
    const pugi::xml_attribute a = c.attribute(attrName.c_str());
    if (a && attrValue == a.value()) return c;
  }
  return pugi::xml_node();
}

// Puts a new last child into parent through place(before), which inserts
// before the given sibling (or appends when it is null). In a laid-out
// parent the closing white space stays last and the new child gets the
// indentation of the child before it, so the layout of the file holds.
template <typename Place>
pugi::xml_node PlaceLast(pugi::xml_node parent, Place place) {
  const pugi::xml_node last = parent.last_child();
  if (!last || !IsWhiteSpaceText(last) || !HasElementChild(parent)) return place(pugi::xml_node());
  std::string indentation;
  const pugi::xml_node previous = last.previous_sibling();
  if (previous) {
    const pugi::xml_node before = previous.previous_sibling();
    if (before && IsWhiteSpaceText(before)) indentation = before.value();
  }
  const pugi::xml_node created = place(last);
  if (created && !indentation.empty()) {
    pugi::xml_node space = parent.insert_child_before(pugi::node_pcdata, created);
    if (space && !space.set_value(indentation.c_str())) parent.remove_child(space);
  }
  return created;
}

pugi::xml_node AppendNamedElement(pugi::xml_node parent, const std::string& name) {
  return PlaceLast(parent, [&parent, &name](const pugi::xml_node& before) {
    pugi::xml_node created =
        before ? parent.insert_child_before(pugi::node_element, before) : parent.append_child(pugi::node_element);
    if (created && !created.set_name(name.c_str())) {
      parent.remove_child(created);
      return pugi::xml_node();
    }
    return created;
  });
}

// Whether a name can be given to an element or attribute at all.
bool UsableName(const AString& name) { return !name.empty(); }

// Drops the white space between child elements everywhere, for a fresh
// layout.
void DropLayout(pugi::xml_document& document) {
  std::vector<pugi::xml_node> layout;
  pugi::xml_node cur = document.first_child();
  while (cur) {
    if (IsElement(cur) && HasElementChild(cur))
      for (pugi::xml_node c = cur.first_child(); c; c = c.next_sibling())
        if (IsWhiteSpaceText(c)) layout.push_back(c);
    if (cur.first_child()) {
      cur = cur.first_child();
      continue;
    }
    while (cur && !cur.next_sibling()) cur = cur.parent();
    if (cur) cur = cur.next_sibling();
  }
  for (pugi::xml_node& n : layout) n.parent().remove_child(n);
}

// Whether the start tag whose name begins at offset ends with "/>". Only
// quoted attribute values can hold a "/" or ">" inside a tag.
bool SelfClosing(const char* text, std::size_t size, std::size_t offset) {
  char quote = 0;
  for (std::size_t i = offset; i < size; ++i) {
    const char c = text[i];
    if (quote) {
      if (c == quote) quote = 0;
    } else if (c == '"' || c == '\'') {
      quote = c;
    } else if (c == '/') {
      return true;
    } else if (c == '>') {
      return false;
    }
  }
  return false;
}

// An element without content written as "<a></a>" gets an empty text child,
// which is how pugixml writes it the same way again ("<a/>" stays "<a/>").
void KeepEndTags(pugi::xml_document& document, const char* text, std::size_t size) {
  std::vector<pugi::xml_node> withEndTag;
  pugi::xml_node cur = document.first_child();
  while (cur) {
    if (IsElement(cur) && !cur.first_child()) {
      const std::ptrdiff_t offset = cur.offset_debug();
      if (offset >= 0 && !SelfClosing(text, size, static_cast<std::size_t>(offset))) withEndTag.push_back(cur);
    }
    if (cur.first_child()) {
      cur = cur.first_child();
      continue;
    }
    while (cur && !cur.next_sibling()) cur = cur.parent();
    if (cur) cur = cur.next_sibling();
  }
  for (pugi::xml_node& n : withEndTag) n.append_child(pugi::node_pcdata);
}

}  // namespace

// ---- AnXmlNode ----------------------------------------------------------------

AString AnXmlNode::getName() const { return m_p ? Wide(ToNode(m_p).name()) : AString(); }

bool AnXmlNode::tryGetChildMove(const AString& name) {
  AnXmlNode child;
  if (!tryGetChild(name, child)) return false;
  m_p = child.m_p;
  return true;
}

bool AnXmlNode::getExistingChild(const AString& name, AnXmlNode& child) const { return tryGetChild(name, child); }

bool AnXmlNode::tryGetChild(const AString& name, AnXmlNode& child) const {
  if (!m_p) return false;
  return NoThrow([&] {
    const pugi::xml_node found = FirstChildElement(ToNode(m_p), Utf8(name));
    if (!found) return false;
    child.m_p = ToHandle(found);
    return true;
  });
}

bool AnXmlNode::tryGetChild(const AString& name, const AString& attrName, const AString& attrValue,
                            AnXmlNode& child) const {
  if (!m_p) return false;
  return NoThrow([&] {
    const pugi::xml_node found = FirstChildElementWith(ToNode(m_p), Utf8(name), Utf8(attrName), Utf8(attrValue));
    if (!found) return false;
    child.m_p = ToHandle(found);
    return true;
  });
}

bool AnXmlNode::setChild(const AString& name, AnXmlNode& child) {
  if (!m_p || !UsableName(name)) return false;
  return NoThrow([&] {
    const std::string utf8Name = Utf8(name);
    pugi::xml_node found = FirstChildElement(ToNode(m_p), utf8Name);
    if (!found) found = AppendNamedElement(ToNode(m_p), utf8Name);
    if (!found) return false;
    child.m_p = ToHandle(found);
    return true;
  });
}

bool AnXmlNode::setChild(const AString& name, const AString& attrName, const AString& attrValue, AnXmlNode& child) {
  if (!m_p || !UsableName(name) || !UsableName(attrName)) return false;
  return NoThrow([&] {
    const std::string utf8Name = Utf8(name);
    const std::string utf8AttrName = Utf8(attrName);
    const std::string utf8AttrValue = Utf8(attrValue);
    pugi::xml_node found = FirstChildElementWith(ToNode(m_p), utf8Name, utf8AttrName, utf8AttrValue);
    if (!found) {
      found = AppendNamedElement(ToNode(m_p), utf8Name);
      if (!found) return false;
      pugi::xml_attribute a = found.append_attribute(utf8AttrName.c_str());
      if (!a || !a.set_value(utf8AttrValue.c_str())) {
        AnXmlNode made(ToHandle(found));
        made.remove();
        return false;
      }
    }
    child.m_p = ToHandle(found);
    return true;
  });
}

bool AnXmlNode::addChild(const AString& name, AnXmlNode& child) {
  if (!m_p || !UsableName(name)) return false;
  return NoThrow([&] {
    const pugi::xml_node created = AppendNamedElement(ToNode(m_p), Utf8(name));
    if (!created) return false;
    child.m_p = ToHandle(created);
    return true;
  });
}

bool AnXmlNode::copyAsChild(const AnXmlNode& source) {
  if (!m_p || !source.m_p) return false;
  return NoThrow([&] {
    pugi::xml_node parent = ToNode(m_p);
    const pugi::xml_node proto = ToNode(source.m_p);
    const pugi::xml_node copy = PlaceLast(parent, [&parent, &proto](const pugi::xml_node& before) {
      return before ? parent.insert_copy_before(proto, before) : parent.append_copy(proto);
    });
    return static_cast<bool>(copy);
  });
}

bool AnXmlNode::remove() {
  if (!m_p) return false;
  pugi::xml_node node = ToNode(m_p);
  pugi::xml_node parent = node.parent();
  if (!parent || parent.type() == pugi::node_document) return false;
  // The white space in front of the element is its indentation: it goes too.
  const pugi::xml_node previous = node.previous_sibling();
  if (previous && IsWhiteSpaceText(previous)) parent.remove_child(previous);
  parent.remove_child(node);
  m_p = nullptr;
  return true;
}

bool AnXmlNode::tryGetValue(const AString& name, AString& value) const {
  const bool found = m_p && NoThrow([&] {
    const pugi::xml_node node = ToNode(m_p);
    if (name.empty()) {
      const pugi::xml_node text = TextChild(node);
      if (!text) return false;
      value = Wide(text.value());
      return true;
    }
    const pugi::xml_attribute a = node.attribute(Utf8(name).c_str());
    if (!a) return false;
    value = Wide(a.value());
    return true;
  });
  if (!found) value.clear();
  return found;
}

bool AnXmlNode::setValue(const AString& name, const AString& value) {
  if (!m_p) return false;
  return NoThrow([&] {
    pugi::xml_node node = ToNode(m_p);
    const std::string utf8Value = Utf8(value);
    if (name.empty()) {
      pugi::xml_node text = TextChild(node);
      if (!text) {
        if (utf8Value.empty()) return true;
        text = node.prepend_child(pugi::node_pcdata);
        if (!text) return false;
      }
      return text.set_value(utf8Value.c_str());
    }
    const std::string utf8Name = Utf8(name);
    pugi::xml_attribute a = node.attribute(utf8Name.c_str());
    if (a) return a.set_value(utf8Value.c_str());  // in place: keeps its position
    a = node.append_attribute(utf8Name.c_str());
    if (!a) return false;
    if (!a.set_value(utf8Value.c_str())) {
      node.remove_attribute(a);
      return false;
    }
    return true;
  });
}

// ---- AnXml ------------------------------------------------------------------------

struct AnXml::Impl {
  pugi::xml_document doc;
};

AnXml::AnXml() : m_impl(new Impl) {}
AnXml::~AnXml() = default;

int AnXml::useExistingFile(const AString& path, const AString& rootName, const AString& nsAttrName,
                           const AString& nsValue) {
  pugi::xml_document& doc = m_impl->doc;
  doc.reset();
  const bool ok = NoThrow([&] {
    AdvXMLParser::Utf8Text text;
    try {
      AdvXMLParser::ReadUtf8FromFile(path, text);
    } catch (const AdvXMLParser::Exception&) {
      return false;  // missing, unreadable or not text
    }
    try {
      AdvXMLParser::Parser::Check(text);  // keeps the place of a refusal
    } catch (const AdvXMLParser::Exception&) {
      return false;
    }
    const pugi::xml_parse_result result = doc.load_buffer(text.data(), text.size(), kParseOptions, pugi::encoding_utf8);
    if (!result) return false;
    KeepEndTags(doc, text.data(), text.size());
    const pugi::xml_node root = doc.document_element();
    if (Utf8(rootName) != root.name()) return false;
    const pugi::xml_attribute ns = root.attribute(Utf8(nsAttrName).c_str());
    return ns && Utf8(nsValue) == ns.value();
  });
  if (!ok) doc.reset();
  return ok ? 1 : 0;
}

int AnXml::writeFile(const AString& path, bool bIndent, bool bByteOrderMark) {
  std::string out;
  if (getText(bIndent, bByteOrderMark, out) != 1) return 0;
  return port::ReplaceFileContents(ACharString(path), out.data(), out.size(), 0644) == 0 ? 1 : 0;
}

int AnXml::getText(bool bIndent, bool bByteOrderMark, std::string& out) {
  pugi::xml_document& doc = m_impl->doc;
  if (!doc.document_element()) return 0;
  const bool ok = NoThrow([&] {
    // The file is UTF-8 whatever the source was: the declaration says so.
    for (pugi::xml_node n = doc.first_child(); n; n = n.next_sibling()) {
      if (n.type() != pugi::node_declaration) continue;
      pugi::xml_attribute encoding = n.attribute("encoding");
      if (encoding && !EqualsIgnoringAsciiCase(encoding.value(), "UTF-8") && !encoding.set_value("UTF-8")) return false;
    }
    out.clear();
    if (bByteOrderMark) out = "\xEF\xBB\xBF";
    port::xml::StringWriter writer(out);
    if (bIndent) {
      pugi::xml_document copy;
      copy.reset(doc);
      DropLayout(copy);
      copy.save(writer, "\t", pugi::format_indent | pugi::format_no_declaration, pugi::encoding_utf8);
    } else {
      doc.save(writer, "", pugi::format_raw | pugi::format_no_declaration, pugi::encoding_utf8);
    }
    return true;
  });
  return ok ? 1 : 0;
}

AnXmlNode AnXml::getRootNode() const { return AnXmlNode(ToHandle(m_impl->doc.document_element())); }

// ---- AnXmlChildIndex ------------------------------------------------------------

AnXmlChildIndex::AnXmlChildIndex(const AnXmlNode& parent) : m_bAll(true), m_pNext(nullptr) {
  if (parent.m_p) m_pNext = Match(ToHandle(ToNode(parent.m_p).first_child()));
}

AnXmlChildIndex::AnXmlChildIndex(const AnXmlNode& parent, const AString& name)
    : m_name(Utf8(name)), m_bAll(false), m_pNext(nullptr) {
  if (parent.m_p) m_pNext = Match(ToHandle(ToNode(parent.m_p).first_child()));
}

AnXmlNodeHandle* AnXmlChildIndex::Match(AnXmlNodeHandle* from) const {
  for (pugi::xml_node n = ToNode(from); n; n = n.next_sibling())
    if (IsElement(n) && (m_bAll || m_name == n.name())) return ToHandle(n);
  return nullptr;
}

bool AnXmlChildIndex::next(AnXmlNode& child) {
  if (!m_pNext) return false;
  child.m_p = m_pNext;
  m_pNext = Match(ToHandle(ToNode(m_pNext).next_sibling()));
  return true;
}

// ---- AnXmlValueIndex ------------------------------------------------------------

AnXmlValueIndex::AnXmlValueIndex(const AnXmlNode& node) : m_pNext(nullptr) {
  if (node.m_p) m_pNext = ToHandle(ToNode(node.m_p).first_attribute());
}

bool AnXmlValueIndex::next(AString& name, AString& value) {
  if (!m_pNext) return false;
  const pugi::xml_attribute a = ToAttribute(m_pNext);
  name = Wide(a.name());
  value = Wide(a.value());
  m_pNext = ToHandle(a.next_attribute());
  return true;
}
