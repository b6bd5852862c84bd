#include "port/xml/WellFormed.h"

#include <cstring>

namespace port {
namespace xml {

namespace {

inline bool IsXmlSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Keeps the fault nearest the start of the text.
class Earliest {
 public:
  void consider(std::ptrdiff_t offset, const char* what) {
    if (offset < 0 || (m_found && offset >= m_fault.offset)) return;
    m_fault.offset = offset;
    m_fault.what = what;
    m_found = true;
  }
  bool found() const { return m_found; }
  const Fault& fault() const { return m_fault; }

 private:
  Fault m_fault;
  bool m_found = false;
};

// pugixml's offsets point at a name or a value; the fault starts at its '<'.
std::ptrdiff_t MarkupStart(std::ptrdiff_t nameOffset, std::ptrdiff_t lead) {
  return nameOffset >= lead ? nameOffset - lead : 0;
}

}  // namespace

TextFrame ScanText(const char* text, std::size_t size) {
  TextFrame frame;
  if (!text || size == 0) return frame;
  std::size_t begin = 0;
  if (size >= 3 && std::memcmp(text, "\xEF\xBB\xBF", 3) == 0) begin = 3;
  while (begin < size && IsXmlSpace(text[begin])) ++begin;
  if (begin == size) return frame;  // nothing but white space: no element, which the parser reports
  if (text[begin] != '<') frame.textBefore = static_cast<std::ptrdiff_t>(begin);

  // Only comments, processing instructions and white space may follow the
  // document element, and each ends with '>'.
  std::size_t end = size;
  while (end > begin && IsXmlSpace(text[end - 1])) --end;
  if (text[end - 1] != '>') {
    std::size_t run = end - 1;
    while (run > 0 && text[run - 1] != '>') --run;
    while (IsXmlSpace(text[run])) ++run;  // stops at text[end - 1] at the latest
    frame.textAfter = static_cast<std::ptrdiff_t>(run);
  }
  return frame;
}

bool FindFault(const TextFrame& frame, const pugi::xml_document& doc, Fault& fault) {
  Earliest earliest;
  earliest.consider(frame.textBefore, "Text before the document element");
  earliest.consider(frame.textAfter, "Text after the document element");
  bool element = false;
  for (pugi::xml_node n = doc.first_child(); n; n = n.next_sibling()) {
    if (n.type() == pugi::node_cdata) {
      earliest.consider(MarkupStart(n.offset_debug(), 9), "CDATA outside the document element");  // "<![CDATA["
      continue;
    }
    if (n.type() != pugi::node_element) continue;
    if (element) {
      earliest.consider(MarkupStart(n.offset_debug(), 1), "More than one document element");
      break;  // the elements after it lie further on
    }
    element = true;
  }
  if (!earliest.found()) return false;
  fault = earliest.fault();
  return true;
}

}  // namespace xml
}  // namespace port
