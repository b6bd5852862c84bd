#include "Output.h"

#include <algorithm>
#include <cstdio>

namespace sitelist {
namespace {

// Display width of UTF-8 text: one column per code point.
std::size_t Width(const std::string& text) {
  std::size_t n = 0;
  for (unsigned char c : text)
    if ((c & 0xC0) != 0x80) ++n;
  return n;
}

void Pad(std::string& line, std::size_t width, const std::string& cell) {
  line += cell;
  for (std::size_t w = Width(cell); w < width; ++w) line += ' ';
}

}  // namespace

void PrintFields(const std::vector<Field>& fields) {
  std::size_t width = 0;
  for (const Field& f : fields) width = std::max(width, Width(f.first));
  const std::string indent(width + 2, ' ');
  for (const Field& f : fields) {
    std::string line;
    Pad(line, width + 2, f.first);
    for (char c : f.second) {
      line += c;
      if (c == '\n') line += indent;
    }
    std::printf("%s\n", line.c_str());
  }
}

Table::Table(std::vector<std::string> headers) { m_rows.push_back(std::move(headers)); }

void Table::AddRow(std::vector<std::string> cells) {
  cells.resize(m_rows.front().size());
  m_rows.push_back(std::move(cells));
}

void Table::Print() const {
  const std::size_t columns = m_rows.front().size();
  std::vector<std::size_t> widths(columns, 0);
  for (const auto& row : m_rows)
    for (std::size_t i = 0; i < columns; ++i) widths[i] = std::max(widths[i], Width(row[i]));
  for (const auto& row : m_rows) {
    std::string line;
    for (std::size_t i = 0; i < columns; ++i) {
      if (i + 1 == columns) {
        line += row[i];
      } else {
        Pad(line, widths[i], row[i]);
        line += "  ";
      }
    }
    std::printf("%s\n", line.c_str());
  }
}

std::string JsonString(const std::string& text) {
  std::string out = "\"";
  for (unsigned char c : text) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c < 0x20) {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\u%04x", c);
          out += buf;
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  return out + "\"";
}

}  // namespace sitelist
