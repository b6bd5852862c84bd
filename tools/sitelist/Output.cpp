#include "Output.h"

#include <algorithm>
#include <cstdio>
#include <cwchar>

#include "Context.h"

namespace sitelist {
namespace {

void Pad(std::string& line, std::size_t width, const std::string& cell) {
  line += cell;
  for (std::size_t w = DisplayWidth(cell); w < width; ++w) line += ' ';
}

}  // namespace

void PrintJson(const Json& document) {
  // Invalid UTF-8 in a name is shown replaced rather than ending the run.
  const std::string text = document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
  std::printf("%s\n", text.c_str());
}

std::size_t DisplayWidth(const std::string& text) {
  std::size_t width = 0;
  for (wchar_t c : Wide(text)) {
    const int w = wcwidth(c);
    width += w < 0 ? 1 : static_cast<std::size_t>(w);
  }
  return width;
}

void PrintFields(const std::vector<Field>& fields) {
  std::size_t width = 0;
  for (const Field& f : fields) width = std::max(width, DisplayWidth(f.first));
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
    for (std::size_t i = 0; i < columns; ++i) widths[i] = std::max(widths[i], DisplayWidth(row[i]));
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

}  // namespace sitelist
