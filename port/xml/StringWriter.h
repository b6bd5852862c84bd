// The pugixml writer both XML facades save documents through: it appends
// the bytes to a string.
#ifndef VLM_PORT_XML_STRINGWRITER_H
#define VLM_PORT_XML_STRINGWRITER_H

#include <cstddef>
#include <string>

#include <pugixml.hpp>

namespace port {
namespace xml {

class StringWriter : public pugi::xml_writer {
 public:
  explicit StringWriter(std::string& out) : m_out(out) {}
  void write(const void* data, std::size_t size) override { m_out.append(static_cast<const char*>(data), size); }

 private:
  std::string& m_out;
};

}  // namespace xml
}  // namespace port

#endif  // VLM_PORT_XML_STRINGWRITER_H
