// AnXml, AnXmlNode, AnXmlChildIndex, AnXmlValueIndex: the platform's XML
// editing classes, for changing a document in place and writing it back.
//
// Unlike AdvXMLParser (which builds documents and reads them into records),
// these classes keep everything a document holds: comments, processing
// instructions, the declaration, the white space between elements, unknown
// elements and attributes in their order. A document that is read and
// written back without edits comes out as it went in (an empty element keeps
// its "<a/>" or "<a></a>" form), except that white space outside the
// document element is dropped, attribute values are written in double
// quotes with pugixml's escaping and the declaration's encoding names UTF-8
// (the only encoding written).
//
// Text is wide at the interface and UTF-8 inside.
//
// Element text: the value of an element's first text (or CDATA) child that
// is not formatting. White space between child elements is formatting; a
// leaf element whose text is only white space has that white space as its
// text, and "<a></a>" has the empty text.
//
// A node is a handle: it stays valid while its AnXml lives and the node is
// not removed. A null node answers every question with false.
// Thread safety: an AnXml and its nodes are used by one thread at a time.
#ifndef VLM_PORT_XML_ANXML_H
#define VLM_PORT_XML_ANXML_H

#include <memory>
#include <string>

#include "platform/AString.h"
#include "platform/Forward.h"

// Opaque handles of a node and of an attribute of a document.
struct AnXmlNodeHandle;
struct AnXmlAttributeHandle;

class AnXmlNode {
 public:
  AnXmlNode() = default;

  bool isNull() const { return m_p == nullptr; }
  // The element's name; empty for a null node.
  AString getName() const;

  // Moves this handle to its first child element named name. False (the
  // handle unchanged) when there is none.
  bool tryGetChildMove(const AString& name);
  // The first child element named name. False (child untouched) when none.
  bool getExistingChild(const AString& name, AnXmlNode& child) const;
  bool tryGetChild(const AString& name, AnXmlNode& child) const;
  // The first child element named name whose attribute attrName has exactly
  // the text attrValue. False (child untouched) when none.
  bool tryGetChild(const AString& name, const AString& attrName, const AString& attrValue,
                   AnXmlNode& child) const;

  // Find or create: the first child element named name; when there is none,
  // a new one is appended. False only when it could not be made.
  bool setChild(const AString& name, AnXmlNode& child);
  // The same, matching the attribute too; a new child is given the attribute.
  bool setChild(const AString& name, const AString& attrName, const AString& attrValue, AnXmlNode& child);
  // Always appends a new child element named name.
  bool addChild(const AString& name, AnXmlNode& child);
  // Appends a deep copy of source (which may belong to another document).
  bool copyAsChild(const AnXmlNode& source);
  // Removes this element (with its subtree) from the document; the handle
  // becomes null. False for a null node or the document element.
  bool remove();

  // The value of attribute name, or the element text when name is empty.
  // When there is no such value, returns false and clears value, so that a
  // string reused across calls never carries an earlier value forward.
  bool tryGetValue(const AString& name, AString& value) const;
  // Sets attribute name (in place when it exists, else appended), or the
  // element text when name is empty (an empty text on an element without
  // text changes nothing).
  bool setValue(const AString& name, const AString& value);

  bool operator==(const AnXmlNode& other) const { return m_p == other.m_p; }
  bool operator!=(const AnXmlNode& other) const { return m_p != other.m_p; }

 private:
  friend class AnXml;
  friend class AnXmlChildIndex;
  friend class AnXmlValueIndex;
  explicit AnXmlNode(AnXmlNodeHandle* p) : m_p(p) {}
  AnXmlNodeHandle* m_p = nullptr;
};

class AnXml {
 public:
  AnXml();
  ~AnXml();
  AnXml(const AnXml&) = delete;
  AnXml& operator=(const AnXml&) = delete;

  // Reads path as this document. 1 when the file exists, decodes (byte order
  // marks are honoured, else UTF-8), is well formed (judged as every parse of
  // AdvXMLParser judges it; a refusal is kept as the thread's last, naming
  // path) and its document element is named rootName and carries nsAttrName
  // with exactly nsValue; 0 otherwise, leaving the document empty.
  int useExistingFile(const AString& path, const AString& rootName, const AString& nsAttrName,
                      const AString& nsValue);
  // Writes the document to path crash-safely in UTF-8 (an existing file keeps
  // its mode, a new one gets 0644). bIndent rewrites the layout with one tab
  // per level instead of keeping the white space as read; bByteOrderMark
  // starts the file with the UTF-8 byte order mark. 1 when written, 0
  // otherwise (also for an empty document).
  int writeFile(const AString& path, bool bIndent, bool bByteOrderMark);
  // The bytes writeFile would write, into text. 1, or 0 for an empty document
  // or a failure (text is then unspecified).
  int getText(bool bIndent, bool bByteOrderMark, std::string& text);
  // The document element; null when the document is empty.
  AnXmlNode getRootNode() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

// The child elements of a node in document order, optionally only those of
// one name. The following child is found before a child is handed out, so
// the child handed out may be removed.
class AnXmlChildIndex {
 public:
  explicit AnXmlChildIndex(const AnXmlNode& parent);
  AnXmlChildIndex(const AnXmlNode& parent, const AString& name);
  // The next child; false when none is left.
  bool next(AnXmlNode& child);

 private:
  AnXmlNodeHandle* Match(AnXmlNodeHandle* from) const;
  std::string m_name;  // UTF-8; empty: every child element
  bool m_bAll;
  AnXmlNodeHandle* m_pNext;
};

// The attributes of a node, in document order.
class AnXmlValueIndex {
 public:
  explicit AnXmlValueIndex(const AnXmlNode& node);
  // The next attribute's name and value; false when none is left.
  bool next(AString& name, AString& value);

 private:
  AnXmlAttributeHandle* m_pNext;  // the attribute to hand out next
};

#endif  // VLM_PORT_XML_ANXML_H
