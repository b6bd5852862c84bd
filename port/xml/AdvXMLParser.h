// AdvXMLParser: the platform's DOM parser facade, over pugixml.
//
// Text is wide on both sides; pugixml works in UTF-8 underneath. Element is a
// small handle (one pointer) to a node of a Document; it is valid while its
// Document lives. A document type declaration is refused, so no entity is
// known beyond the five predefined ones and character references.
//
// Errors: Parser::Parse throws ParsingException for text that is not well
// formed (-5 to callers) and ReadWriteException(ENOMEM) when memory runs out;
// the file functions throw ReadWriteException with the errno of the failed
// call (EILSEQ for bytes that are not valid text in their encoding).
// Thread safety: a Document and its Elements are used by one thread at a time.
#ifndef VLM_PORT_XML_ADVXMLPARSER_H
#define VLM_PORT_XML_ADVXMLPARSER_H

#include <sys/types.h>

#include <cstddef>
#include <exception>
#include <memory>
#include <string>
#include <utility>

#include "platform/AString.h"
#include "platform/Forward.h"

namespace AdvXMLParser {

// Text encodings of files and byte buffers. Value 4 is UTF-8.
enum UTF_ENCODINGS {
  ENCODING_UNKNOWN = 0,
  UTF_16_LE = 1,
  UTF_16_BE = 2,
  UTF_32_LE = 3,
  UTF_8 = 4,
  UTF_32_BE = 5,
};

class Exception : public std::exception {
 public:
  Exception(int code, std::string what) : m_code(code), m_what(std::move(what)) {}
  int GetErrorCode() const { return m_code; }
  const char* what() const noexcept override { return m_what.c_str(); }

 private:
  int m_code;
  std::string m_what;
};

// Text that is not well-formed XML. The code is the byte offset of the fault
// in the UTF-8 form of the text; line and column (1-based, the column in
// characters) place it, and description is the parser's own word for it.
class ParsingException : public Exception {
 public:
  ParsingException(int offset, unsigned long line, unsigned long column, std::string description)
      : Exception(offset, "XML not well formed at line " + std::to_string(line) + ", column " + std::to_string(column) +
                              ": " + description),
        m_line(line),
        m_column(column),
        m_description(std::move(description)) {}
  unsigned long GetLine() const { return m_line; }
  unsigned long GetColumn() const { return m_column; }
  const std::string& GetDescription() const { return m_description; }

 private:
  unsigned long m_line;
  unsigned long m_column;
  std::string m_description;
};

// A read or write failure; the code is an errno value.
class ReadWriteException : public Exception {
 public:
  using Exception::Exception;
};

class Node {
 public:
  Node() = default;
  explicit Node(ElementRef ref) : m_ref(ref) {}
  bool IsNull() const { return m_ref == nullptr; }
  explicit operator bool() const { return m_ref != nullptr; }
  ElementRef GetRef() const { return m_ref; }
  AString GetName() const;
  // The name as the tree holds it (UTF-8); valid while the node lives.
  const char* GetNameUtf8() const;
  // Compares the name without building a string.
  bool HasName(const wchar_t* name) const;

 protected:
  ElementRef m_ref = nullptr;
};

class Element : public Node {
 public:
  using Node::Node;

  // The attribute's value; empty when absent.
  AString GetAttribute(const wchar_t* name) const;
  // True and value set when the attribute exists.
  bool GetAttribute(const wchar_t* name, AString& value) const;
  bool HasAttribute(const wchar_t* name) const;
  // The element's text (its first text or CDATA child); empty when none.
  AString GetValue() const;
  // The same two without making wide text: the UTF-8 the tree holds, valid
  // while the document lives and the node is unchanged. The attribute's is
  // NULL when it is absent; the text is "" when there is none.
  const char* GetAttributeUtf8(const wchar_t* name) const;
  const char* GetValueUtf8() const;
  // GetAttributeUtf8 of count names at once, in one pass over the element's
  // attributes: values[i] is the first value named names[i], or NULL.
  void GetAttributesUtf8(const wchar_t* const* names, std::size_t count, const char** values) const;
  // The same with the names in UTF-8, as the tree holds them: compared byte
  // for byte, without decoding.
  void GetAttributesUtf8(const char* const* names, std::size_t count, const char** values) const;

  // The index-th child element named name (0 = first); null when none.
  Element GetElement(const wchar_t* name, int index = 0) const;
  // Child elements in document order (non-element children are skipped).
  Element FirstChildElement() const;
  Element NextSiblingElement() const;
  // The parent element; null for the document element.
  Element GetParent() const;

  // Building. Each returns a null Element when memory runs out.
  Element AppendElement(const wchar_t* name);              // as last child
  Element PrependElement(const wchar_t* name);             // as first child
  Element InsertElementAfter(const wchar_t* name, const Element& sibling);  // behind a child
  // Adds or replaces an attribute; false when it could not be set.
  bool SetAttribute(const wchar_t* name, const wchar_t* value);
  bool SetAttribute(const wchar_t* name, const std::wstring& value) { return SetAttribute(name, value.c_str()); }
  // Adds an attribute the element does not have yet (one of an element being
  // built), as the last one; false when it could not be set. Unlike
  // SetAttribute it does not look for one to replace.
  bool AppendAttribute(const wchar_t* name, const wchar_t* value);
  // Replaces the element's text.
  bool SetValue(const wchar_t* text);
  bool SetValue(const std::wstring& text) { return SetValue(text.c_str()); }

  // Range over the child elements: for (Element e : parent.Children()) ...
  class iterator {
   public:
    explicit iterator(ElementRef ref) : m_cur(ref) {}
    Element operator*() const { return Element(m_cur); }
    iterator& operator++() {
      m_cur = Element(m_cur).NextSiblingElement().GetRef();
      return *this;
    }
    bool operator!=(const iterator& other) const { return m_cur != other.m_cur; }

   private:
    ElementRef m_cur;
  };
  struct Range {
    ElementRef first;
    iterator begin() const { return iterator(first); }
    iterator end() const { return iterator(nullptr); }
  };
  Range Children() const { return Range{FirstChildElement().GetRef()}; }
};

class Document {
 public:
  Document();
  ~Document();
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;

  // The document element; null for an empty document.
  Element GetRoot() const;
  // Makes the document element (replacing any).
  Element CreateRoot(const wchar_t* name);
  // The document as text, with an XML declaration naming UTF-8. bIndent
  // false writes it unindented on one line.
  AString GenerateXML(bool bIndent) const;
  // The same in UTF-8 bytes, without the round trip through wide text.
  std::string GenerateUtf8(bool bIndent) const;

 private:
  friend class Parser;
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

// UTF-8 text in a buffer the parser can take over without copying (it is
// parsed in place), with the encoding it was in (its byte order mark) and the
// file it came from, which a refusal names. Move-only; empty after
// Parser::Parse took it.
class Utf8TextMaker;
class Utf8Text {
 public:
  Utf8Text() = default;
  ~Utf8Text();
  Utf8Text(Utf8Text&& other) noexcept;
  Utf8Text& operator=(Utf8Text&& other) noexcept;
  Utf8Text(const Utf8Text&) = delete;
  Utf8Text& operator=(const Utf8Text&) = delete;
  const char* data() const { return m_p ? m_p : ""; }
  // Bytes, without the terminating NUL the buffer always carries.
  std::size_t size() const { return m_size; }
  // The encoding of the bytes read (UTF_8 for text made in memory) and
  // whether they began with a byte order mark.
  UTF_ENCODINGS GetEncoding() const { return m_encoding; }
  bool HasByteOrderMark() const { return m_bMarked; }
  // The file read (narrow path); empty for text converted from memory.
  const std::string& GetOrigin() const { return m_origin; }

 private:
  friend class Parser;
  friend class Utf8TextMaker;  // the reading and decoding functions below
  char* m_p = nullptr;
  std::size_t m_size = 0;
  UTF_ENCODINGS m_encoding = UTF_8;
  bool m_bMarked = false;
  std::string m_origin;
};

// Every Parse first has the text judged by a conforming XML parser
// (port/xml/WellFormed.h): a text it refuses throws ParsingException with its
// place, which is also kept as the calling thread's last refusal
// (port::xml::LastRefusal), named by the file a Utf8Text came from.
class Parser {
 public:
  // What a parsed Document will be used for. A tree only read keeps each
  // element's leading text inside the element instead of in a node of its
  // own: the same values through GetValue and the same child elements, in
  // about a third less memory and time. Such a tree must not be edited.
  enum Use { Editing, ReadingOnly };
  // Parses text in place; the Document owns its buffer afterwards and text
  // is left empty (also when parsing throws). Same results and errors as
  // Parse of the same text in wide form.
  Document* Parse(Utf8Text& text, Use use = Editing);
  // Parses length characters of text into a new Document owned by the caller.
  Document* Parse(const wchar_t* text, std::size_t length);
  // Parses UTF-8 bytes directly.
  Document* ParseUtf8(const char* text, std::size_t length);
  // The check each Parse of text makes first, alone, for a caller that
  // builds its tree another way: throws ParsingException (and keeps the
  // refusal) when text is not well formed. text is left as it is.
  static void Check(const Utf8Text& text);
};

// Filter applied to the decoded text of a file; none is used by the library.
using FilterFunction = void (*)(AString& text);
// Conversion callbacks of WriteBufferToFile; none are used by the library.
struct ConversionCallbacks;

// Reads a whole file into wide text. The encoding is taken from a byte order
// mark (UTF-8, UTF-16 LE/BE, UTF-32 LE/BE), else UTF-8; encoding receives it.
void ReadBufferFromFile(const AString& path, AString& text, UTF_ENCODINGS& encoding,
                        FilterFunction filter = nullptr);
// Reads a whole file as ReadBufferFromFile does (same byte order marks, same
// strict decoding, same errors), but delivers UTF-8 for Parser::Parse: a
// UTF-8 file (the usual case) is only checked, never widened and narrowed
// again; a UTF-16 or UTF-32 one is converted.
void ReadUtf8FromFile(const AString& path, Utf8Text& text);
// Decodes a byte buffer as ConvertBufferToUnicode does (same byte order
// marks, same strict decoding, same errors) into UTF-8 for Parser::Parse;
// UTF-8 bytes are only checked and copied.
void ConvertBufferToUtf8(const unsigned char* bytes, std::size_t size, Utf8Text& text);
// Decodes UTF-8 of the tree into dst as the wide accessors decode it. True,
// with length characters and a terminating zero written, when the text fits
// in capacity - 1 characters; false (dst's content undefined) otherwise.
bool DecodeUtf8Into(const char* utf8, wchar_t* dst, std::size_t capacity, std::size_t& length);
// Decodes a byte buffer the same way; encoding is the starting guess used
// when no byte order mark is found (UTF_8 or ENCODING_UNKNOWN mean UTF-8).
void ConvertBufferToUnicode(const unsigned char* bytes, std::size_t size, AString& text, UTF_ENCODINGS& encoding);
// Writes text crash-safely (see SafeWrite.h); encoding 4 (UTF_8) writes UTF-8
// without a byte order mark, which is the only encoding the library writes.
void WriteBufferToFile(const AString& path, const AString& text, UTF_ENCODINGS encoding,
                       const ConversionCallbacks* callbacks = nullptr);
// The same for text already in UTF-8.
void WriteUtf8BufferToFile(const AString& path, const std::string& utf8, mode_t newFileMode = 0644);

}  // namespace AdvXMLParser

#endif  // VLM_PORT_XML_ADVXMLPARSER_H
