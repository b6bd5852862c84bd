#include "SiteListMutator.h"

#include <cstring>

#include "OwnList.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

namespace fuzzsupport {

namespace {

// Bounds that keep a mutation cheap and the reader's recursion shallow.
constexpr int c_maxDepth = 64;
constexpr std::size_t c_maxNodes = 4000;

std::unique_ptr<XmlNode> NewNode(std::string name) {
  auto node = std::make_unique<XmlNode>();
  node->name = std::move(name);
  return node;
}

// ---- reading ---------------------------------------------------------------

void AppendUtf8(std::string& out, unsigned long code) {
  if (code < 0x80) {
    out += static_cast<char>(code);
  } else if (code < 0x800) {
    out += static_cast<char>(0xC0 | (code >> 6));
    out += static_cast<char>(0x80 | (code & 0x3F));
  } else if (code < 0x10000) {
    out += static_cast<char>(0xE0 | (code >> 12));
    out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (code & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | ((code >> 18) & 0x07));
    out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (code & 0x3F));
  }
}

// The five entities and character references; anything else is kept as it is.
std::string Unescape(const std::string& raw) {
  static const std::pair<const char*, char> entities[] = {
      {"&lt;", '<'}, {"&gt;", '>'}, {"&amp;", '&'}, {"&quot;", '"'}, {"&apos;", '\''}};
  std::string out;
  for (std::size_t i = 0; i < raw.size();) {
    bool done = false;
    if (raw[i] == '&') {
      for (const auto& e : entities) {
        if (raw.compare(i, std::strlen(e.first), e.first) == 0) {
          out += e.second;
          i += std::strlen(e.first);
          done = true;
          break;
        }
      }
      const std::size_t end = raw.find(';', i);
      if (!done && raw.compare(i, 2, "&#") == 0 && end != std::string::npos && end - i < 12) {
        const bool hex = i + 2 < raw.size() && raw[i + 2] == 'x';
        const std::string digits = raw.substr(i + (hex ? 3 : 2), end - i - (hex ? 3 : 2));
        char* stop = nullptr;
        const unsigned long code = std::strtoul(digits.c_str(), &stop, hex ? 16 : 10);
        if (!digits.empty() && stop && *stop == '\0' && code <= 0x10FFFF) {
          AppendUtf8(out, code);
          i = end + 1;
          done = true;
        }
      }
    }
    if (!done) out += raw[i++];
  }
  return out;
}

class TreeReader {
 public:
  explicit TreeReader(const std::string& text) : m_text(text) {}

  std::unique_ptr<XmlNode> Document() {
    if (m_text.compare(0, 3, "\xEF\xBB\xBF") == 0) m_pos = 3;
    if (!SkipMisc()) return nullptr;
    auto root = Element(0);
    if (!root || !SkipMisc() || m_pos != m_text.size()) return nullptr;
    return root;
  }

 private:
  bool At(const char* s) const { return m_text.compare(m_pos, std::strlen(s), s) == 0; }
  void SkipSpace() {
    while (m_pos < m_text.size() && std::strchr(" \t\r\n", m_text[m_pos]) && m_text[m_pos]) ++m_pos;
  }
  bool SkipPast(const char* end) {
    const std::size_t at = m_text.find(end, m_pos);
    if (at == std::string::npos) return false;
    m_pos = at + std::strlen(end);
    return true;
  }
  // White space, comments and processing instructions; false on a DOCTYPE.
  bool SkipMisc() {
    for (;;) {
      SkipSpace();
      if (At("<?")) {
        if (!SkipPast("?>")) return false;
      } else if (At("<!--")) {
        if (!SkipPast("-->")) return false;
      } else {
        return !At("<!");
      }
    }
  }
  std::string Name() {
    const std::size_t start = m_pos;
    while (m_pos < m_text.size() && !std::strchr(" \t\r\n/>=<\"'", m_text[m_pos])) ++m_pos;
    return m_text.substr(start, m_pos - start);
  }
  bool Attribute(XmlNode& node) {
    std::string name = Name();
    SkipSpace();
    if (name.empty() || !At("=")) return false;
    ++m_pos;
    SkipSpace();
    if (m_pos >= m_text.size() || (m_text[m_pos] != '"' && m_text[m_pos] != '\'')) return false;
    const char quote = m_text[m_pos++];
    const std::size_t end = m_text.find(quote, m_pos);
    if (end == std::string::npos) return false;
    node.attributes.emplace_back(std::move(name), Unescape(m_text.substr(m_pos, end - m_pos)));
    m_pos = end + 1;
    return true;
  }
  std::unique_ptr<XmlNode> Element(int depth) {
    if (depth > c_maxDepth || ++m_nodes > c_maxNodes || !At("<")) return nullptr;
    ++m_pos;
    auto node = NewNode(Name());
    if (node->name.empty()) return nullptr;
    for (;;) {
      SkipSpace();
      if (At("/>")) {
        m_pos += 2;
        return node;
      }
      if (At(">")) break;
      if (!Attribute(*node)) return nullptr;
    }
    ++m_pos;
    if (!Content(*node, depth)) return nullptr;
    return node;
  }
  bool Content(XmlNode& node, int depth) {
    for (;;) {
      const std::size_t lt = m_text.find('<', m_pos);
      if (lt == std::string::npos) return false;
      node.text += Unescape(m_text.substr(m_pos, lt - m_pos));
      m_pos = lt;
      if (At("</")) {
        m_pos += 2;
        const bool same = Name() == node.name;
        SkipSpace();
        if (!same || !At(">")) return false;
        ++m_pos;
        return true;
      }
      if (At("<!--")) {
        if (!SkipPast("-->")) return false;
      } else if (At("<?")) {
        if (!SkipPast("?>")) return false;
      } else if (At("<!")) {
        return false;
      } else {
        auto child = Element(depth + 1);
        if (!child) return false;
        node.children.push_back(std::move(child));
      }
    }
  }

  const std::string& m_text;
  std::size_t m_pos = 0;
  std::size_t m_nodes = 0;
};

// ---- writing ---------------------------------------------------------------

std::string Escape(const std::string& value, bool attribute) {
  std::string out;
  for (char c : value) {
    if (c == '&') out += "&amp;";
    else if (c == '<') out += "&lt;";
    else if (c == '>') out += "&gt;";
    else if (c == '"' && attribute) out += "&quot;";
    else out += c;
  }
  return out;
}

void Write(const XmlNode& node, std::string& out) {
  out += '<' + node.name;
  for (const auto& [name, value] : node.attributes) out += ' ' + name + "=\"" + Escape(value, true) + '"';
  if (node.text.empty() && node.children.empty()) {
    out += "/>";
    return;
  }
  out += '>' + Escape(node.text, false);
  for (const auto& child : node.children) Write(*child, out);
  out += "</" + node.name + '>';
}

}  // namespace

std::unique_ptr<XmlNode> XmlNode::Clone() const {
  auto copy = NewNode(name);
  copy->attributes = attributes;
  copy->text = text;
  for (const auto& child : children) copy->children.push_back(child->Clone());
  return copy;
}

std::unique_ptr<XmlNode> ParseTree(const std::string& text) { return TreeReader(text).Document(); }

std::string WriteTree(const XmlNode& root) {
  std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  Write(root, out);
  out += '\n';
  return out;
}

std::size_t MutateSiteList(std::uint8_t* data, std::size_t size, std::size_t maxSize, unsigned int seed) {
  std::minstd_rand random(seed);
  if (random() % 8 == 0) return LLVMFuzzerMutate(data, size, maxSize);
  std::unique_ptr<XmlNode> root = ParseTree(std::string(reinterpret_cast<const char*>(data), size));
  if (!root) {
    // Half the time bytes; otherwise start again from a whole list.
    if (random() % 2 == 0) return LLVMFuzzerMutate(data, size, maxSize);
    root = ParseTree(kOwnList);
  }
  MutateTree(*root, random);
  const std::string out = WriteTree(*root);
  if (out.size() > maxSize) return LLVMFuzzerMutate(data, size, maxSize);
  std::memcpy(data, out.data(), out.size());
  return out.size();
}

}  // namespace fuzzsupport
