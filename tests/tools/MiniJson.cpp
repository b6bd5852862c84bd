#include "MiniJson.h"

#include <cstdlib>
#include <stdexcept>

namespace tooltest {
namespace {

class Parser {
 public:
  explicit Parser(const std::string& text) : m_text(text) {}

  JsonValue Document() {
    JsonValue v = Value();
    Space();
    if (m_pos != m_text.size()) Fail("trailing text");
    return v;
  }

 private:
  [[noreturn]] void Fail(const char* what) const {
    throw std::runtime_error(std::string("JSON: ") + what + " at offset " + std::to_string(m_pos));
  }
  void Space() {
    while (m_pos < m_text.size() && (m_text[m_pos] == ' ' || m_text[m_pos] == '\n' || m_text[m_pos] == '\r' ||
                                     m_text[m_pos] == '\t'))
      ++m_pos;
  }
  char Peek() {
    Space();
    if (m_pos >= m_text.size()) Fail("unexpected end");
    return m_text[m_pos];
  }
  void Expect(char c) {
    if (Peek() != c) Fail("unexpected character");
    ++m_pos;
  }
  bool Literal(const char* word) {
    const std::string w(word);
    if (m_text.compare(m_pos, w.size(), w) != 0) return false;
    m_pos += w.size();
    return true;
  }

  JsonValue Value() {
    JsonValue v;
    const char c = Peek();
    if (c == '{') {
      v.kind = JsonValue::Kind::Object;
      ++m_pos;
      if (Peek() == '}') {
        ++m_pos;
        return v;
      }
      for (;;) {
        if (Peek() != '"') Fail("object key expected");
        const std::string key = String();
        Expect(':');
        if (v.members.count(key)) Fail("duplicate key");
        v.members[key] = Value();
        v.memberOrder.push_back(key);
        if (Peek() == ',') {
          ++m_pos;
          continue;
        }
        Expect('}');
        return v;
      }
    }
    if (c == '[') {
      v.kind = JsonValue::Kind::Array;
      ++m_pos;
      if (Peek() == ']') {
        ++m_pos;
        return v;
      }
      for (;;) {
        v.items.push_back(Value());
        if (Peek() == ',') {
          ++m_pos;
          continue;
        }
        Expect(']');
        return v;
      }
    }
    if (c == '"') {
      v.kind = JsonValue::Kind::String;
      v.text = String();
      return v;
    }
    if (Literal("true")) {
      v.kind = JsonValue::Kind::Bool;
      v.boolean = true;
      return v;
    }
    if (Literal("false")) {
      v.kind = JsonValue::Kind::Bool;
      return v;
    }
    if (Literal("null")) return v;
    if (c == '-' || (c >= '0' && c <= '9')) {
      const char* start = m_text.c_str() + m_pos;
      char* end = nullptr;
      v.kind = JsonValue::Kind::Number;
      v.number = std::strtod(start, &end);
      if (end == start) Fail("bad number");
      m_pos += static_cast<std::size_t>(end - start);
      return v;
    }
    Fail("value expected");
  }

  static void AppendUtf8(std::string& out, unsigned cp) {
    if (cp < 0x80) {
      out += static_cast<char>(cp);
    } else if (cp < 0x800) {
      out += static_cast<char>(0xC0 | (cp >> 6));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
      out += static_cast<char>(0xE0 | (cp >> 12));
      out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    }
  }

  std::string String() {
    Expect('"');
    std::string out;
    for (;;) {
      if (m_pos >= m_text.size()) Fail("unterminated string");
      const char c = m_text[m_pos++];
      if (c == '"') return out;
      if (static_cast<unsigned char>(c) < 0x20) Fail("control character in string");
      if (c != '\\') {
        out += c;
        continue;
      }
      if (m_pos >= m_text.size()) Fail("unterminated escape");
      const char e = m_text[m_pos++];
      switch (e) {
        case '"': out += '"'; break;
        case '\\': out += '\\'; break;
        case '/': out += '/'; break;
        case 'b': out += '\b'; break;
        case 'f': out += '\f'; break;
        case 'n': out += '\n'; break;
        case 'r': out += '\r'; break;
        case 't': out += '\t'; break;
        case 'u': {
          if (m_pos + 4 > m_text.size()) Fail("short \\u escape");
          const std::string hex = m_text.substr(m_pos, 4);
          char* end = nullptr;
          const unsigned long cp = std::strtoul(hex.c_str(), &end, 16);
          if (end != hex.c_str() + 4) Fail("bad \\u escape");
          m_pos += 4;
          AppendUtf8(out, static_cast<unsigned>(cp));
          break;
        }
        default: Fail("bad escape");
      }
    }
  }

  const std::string& m_text;
  std::size_t m_pos = 0;
};

}  // namespace

const JsonValue& JsonValue::operator[](const std::string& key) const {
  if (kind != Kind::Object) throw std::out_of_range("not an object");
  return members.at(key);
}

const JsonValue& JsonValue::operator[](std::size_t index) const {
  if (kind != Kind::Array) throw std::out_of_range("not an array");
  return items.at(index);
}

JsonValue ParseJson(const std::string& text) { return Parser(text).Document(); }

}  // namespace tooltest
